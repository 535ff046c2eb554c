"""Soak: 10,000 lines a second, written and rotated under random restarts, for about half an hour. Each numbered line is
reported exactly once, each other one counts once, and neither the memory nor the descriptors of the daemon grow.

First and last the daemon is stopped or killed again and again, at random moments. In between it has one long
life, which is what shows growth. The log is rotated all the time.

Lives are counted, not seconds: a busy machine takes longer, and sees as much. SYSLOGMON_SOAK_LIVES sets how
many short lives there are, and as often the long one is looked at: 400 unless set, at least 20. SYSLOGMON_SOAK_LINES
sets how many lines a second are written: 10,000 unless set, at least 300.
"""
import os
import subprocess
import threading
import time

import lab

LIVES = max(20, int(os.environ.get("SYSLOGMON_SOAK_LIVES", 400)))

# Of all lines, so many are numbered, and each of those becomes an alert. The others are counted, each by the event of its
# bucket.
NUMBERED_PER_SECOND = 300
LINES_PER_SECOND = int(os.environ.get("SYSLOGMON_SOAK_LINES", 10_000))
BUCKETS = 50
# More than a bucket has lines: they are counted, not reported.
MORE_THAN_ALL = 100_000_000

# Seconds whose lines are written at once at most. Longer than the longest pause.
LONGEST_ROUND = 2

# Backups that are kept: more than can pile up before the daemon has read them.
KEPT = 12

# KiB by which the memory in use may differ between the second half of the long life and the first, and
# what the daemon may ever have used. In the first half the store's cache (2 MiB) is filled.
GROWTH_KIB = 1024
PEAK_KIB = 32 * 1024

# Bytes of the trace log and its older files, at most.
TRACE_BYTES = 52 << 20


class Writer:
    """Sends lines to rsyslogd all the time, now few, now many at once."""

    def __init__(self, log):
        self._log = log
        self.counted = [0] * BUCKETS  # lines of each bucket
        self.began = time.monotonic()
        self.seconds = 0
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def _run(self):
        randomness = lab.randomness("how many lines")
        counted = numbered = 0.0  # lines that are due
        last = self.began
        while not self._stop.is_set():
            now = time.monotonic()
            # What rsyslogd was too slow to take is not made up for: the rounds would become longer and longer.
            passed, last = min(now - last, LONGEST_ROUND), now
            counted += passed * (LINES_PER_SECOND - NUMBERED_PER_SECOND)
            numbered += passed * NUMBERED_PER_SECOND
            self._count(int(counted) - sum(self.counted))
            self._log.send_numbers(int(numbered) - self._log.written)
            time.sleep(randomness.choice((0.001, 0.01, 0.1, 1)))
        # By the last numbered line it is seen that all are in the log.
        self._log.send_numbers(1)

    def _count(self, lines):
        done = sum(self.counted)
        for number in range(done, done + lines):
            bucket = number * 7 % BUCKETS
            self._log.send(f"entry {number} {in_bucket(bucket)} " + "x" * (number * 11 % 61))
            self.counted[bucket] += 1

    def stop(self):
        if not self._stop.is_set():
            self._stop.set()
            self._thread.join()
            self.seconds = time.monotonic() - self.began


def in_bucket(number):
    return f"bucket-{number}."


class Use:
    """What the daemon uses of the machine."""

    def __init__(self, pid):
        with open(f"/proc/{pid}/status") as status:
            values = dict(line.split(":", 1) for line in status)
        self.memory = int(values["RssAnon"].split()[0])  # KiB
        self.peak = int(values["VmHWM"].split()[0])  # KiB, of this life
        self.threads = int(values["Threads"])
        self.descriptors = len(os.listdir(f"/proc/{pid}/fd"))


class Soak(lab.LabTest):
    interval = lab.USUAL_INTERVAL

    def setUp(self):
        super().setUp()
        self.random = lab.randomness("what happens")
        self.log = lab.Rsyslog(self.lab)
        self.log.start()
        self.logrotate = lab.Logrotate(self.lab, "create 0644", f"rotate {KEPT}",
                                       after=f"kill -HUP $(cat {self.log.pid_file})")
        self.lab.watch_numbered_lines()
        self.lab.watch("SEVENTH", 1, lab.NUMBERED, report_count=7)
        self.lab.watch("NEVER", 1, "not in any line")
        for bucket in range(BUCKETS):
            self.lab.watch("BUCKET", f"{bucket + 1:x}", in_bucket(bucket), report_count=MORE_THAN_ALL)
        self.restarts = self.kills = self.rotations = 0
        self.short_lives = []  # the use at the end of each
        self.long_life = []  # the use again and again
        self.not_read = 0  # rotations since the daemon has read everything

    def test_nothing_is_lost_or_counted_twice_and_nothing_grows(self):
        self.start()
        self.writer = writer = Writer(self.log)
        self.addCleanup(writer.stop)
        self.restart(LIVES // 2)
        self.live(LIVES)
        self.restart(LIVES // 2)
        writer.stop()
        self.log.wait_written()
        self.daemon.scan()
        self.short_lives.append(Use(self.daemon.pid))

        self.tell()
        self.assert_all_reported_once()
        self.assert_nothing_has_grown()

    # ---- what happens ----

    def restart(self, lives):
        """One short life after another. At its beginning and at its end, the daemon runs."""
        for _ in range(lives):
            for _ in range(self.random.choice((0, 1, 3, 10))):
                self.do_something()
            self.short_lives.append(Use(self.daemon.pid))
            self.end_this_life()
            while self.random.random() < 0.3:
                self.die_young()
            if self.random.random() < 0.3:
                self.rotate()
            self.start()

    def start(self):
        self.daemon.start()
        self.not_read = 0

    def die_young(self):
        """Before or in the first pass."""
        self.daemon.launch()
        time.sleep(self.random.uniform(0, 0.1))
        self.daemon.kill()
        self.kills += 1

    def live(self, looks):
        for _ in range(looks):
            self.do_something()
            self.scan()
            self.long_life.append(Use(self.daemon.pid))

    def do_something(self):
        what = self.random.random()
        if what < 0.3:
            self.scan()
            self.rotate()
        elif what < 0.6:
            self.scan()
        elif what < 0.7:
            self.lab.command("event", "set", "NEVER", 1, "--keyword", f"not in line {what}")
        else:
            self.lab.command("scan")  # and does not wait for its end
        time.sleep(self.random.uniform(0, 1))

    def end_this_life(self):
        """In the middle of whatever it does, or in order."""
        if self.random.random() < 0.7:
            self.daemon.wake()
            time.sleep(self.random.uniform(0, 0.02))
            self.daemon.kill()
            self.kills += 1
        else:
            self.daemon.stop()
            self.restarts += 1

    def scan(self):
        self.daemon.scan()
        self.not_read = 0

    def rotate(self):
        if self.not_read < KEPT // 2:
            self.logrotate.rotate()
            self.log.wait_until_reopened()
            self.rotations += 1
            self.not_read += 1

    # ---- what came of it ----

    def reported_numbers(self):
        """As the lab's, but the reports of a whole soak are too many to be held as such."""
        argv = [lab.build_root() / "bin" / "syslogmon", "--root", self.lab.root, "--json", "alerts"]
        numbers = {"EACH": [], "SEVENTH": []}
        with subprocess.Popen(argv, stdout=subprocess.PIPE) as command:
            for line in command.stdout:
                source = "SEVENTH" if b'"source":"SEVENTH"' in line else "EACH"
                numbers[source].append(int(lab.NUMBER.search(line)[1]))
        self.assertEqual(0, command.returncode)
        return numbers

    def assert_all_reported_once(self):
        numbers = self.reported_numbers()
        self.assert_each_once_and_in_order(range(self.log.written), numbers["EACH"])
        self.assertEqual(list(range(6, self.log.written, 7)), numbers["SEVENTH"])
        self.assertEqual(self.log.written,
                         7 * len(numbers["SEVENTH"]) + self.lab.hits("SEVENTH"))
        hits = {int(event["id"], 16) - 1: event["hits"] or 0
                for event in self.lab.json("event", "list")["events"] if event["source"] == "BUCKET"}
        self.assertEqual(dict(enumerate(self.writer.counted)), hits)

    def assert_nothing_has_grown(self):
        half = len(self.long_life) // 2
        self.assertGreater(half, 5, "the long life was too short to show growth")
        first, second = (max(use.memory for use in part)
                         for part in (self.long_life[:half], self.long_life[half:]))
        self.assertLess(second - first, GROWTH_KIB, "memory of the long life, in KiB")
        uses = self.long_life + self.short_lives
        self.assertLess(max(use.peak for use in uses), PEAK_KIB, "highest peak of a life, in KiB")
        # A look may come in the middle of a pass, which has the log open. What leaks raises the lowest.
        for what in ("descriptors", "threads"):
            first, second = (min(getattr(use, what) for use in part)
                             for part in (self.long_life[:half], self.long_life[half:]))
            self.assertLessEqual(second, first, what)
        traces = (self.lab.root / "log").iterdir()
        self.assertLess(sum(path.stat().st_size for path in traces), TRACE_BYTES)

    def tell(self):
        half = len(self.long_life) // 2
        lines = self.log.written + sum(self.writer.counted)
        print(f"\n{LIVES} lives, {lines} lines, {lines / self.writer.seconds:.0f} a second, {self.log.written} of them "
              f"reported; {self.rotations} rotations, {self.kills} kills, {self.restarts} orderly restarts, "
              f"{len(self.long_life)} looks at the long life")
        for name, uses in (("long life, first half", self.long_life[:half]),
                           ("long life, second half", self.long_life[half:]),
                           ("short lives", self.short_lives)):
            figures = [f"{what} {min(values)} to {max(values)}"
                       for what in ("memory", "peak", "descriptors", "threads")
                       if (values := [getattr(use, what) for use in uses])]
            print(f"    {name}: {', '.join(figures)} (memory in KiB)", flush=True)


if __name__ == "__main__":
    lab.main(*lab.RSYSLOG, *lab.LOGROTATE)
