"""Every call that daemon and command make fails once: whatever it is, no line is lost and none counts twice.

One day in the life of a host: the daemon starts, reads, follows a rotation, takes another table, delivers, has rules
applied, and stops. It is lived again and again, and in each life another call to the C library fails, in each of the ways
in which it can (tests/support/failing_calls.cc). Where the daemon ends because of it, it says why, and a start without a
failure goes on where it was; systemd starts it again like that.

Environment:
    SYSLOGMON_FAILING_CALLS   the library of that name
    SYSLOGMON_EVERY_CALL      how many calls of each kind fail, spread evenly; "all" of them. Of memory it is ten times
                              as many at most.
    SYSLOGMON_EVERY_CALL_PART the first of three parts of them, and so on: "1/3"; all unless set
"""
import collections
import json
import os
import re
import signal
import struct
import subprocess
import sys
import time
import unittest

import lab

KINDS = ("EIO", "ENOSPC", "EINTR", "EMFILE", "ENOMEM", "short")
MEMORY = KINDS.index("ENOMEM")

# As the library has it: the counts, the number of the call that fails, its kind, whether it has failed, its name.
BOARD = struct.Struct("6QQII32s")

# Seconds that a life is given for a step before it goes on without it. What has not happened by then happens after the
# next start.
STEP_SECONDS = 3


class Board:
    """Which call is to fail; and how many there were."""

    def __init__(self, path):
        self.path = path

    def choose(self, kind, number):
        self.path.write_bytes(BOARD.pack(*([0] * 6), number, kind, 0, b""))

    def counts(self):
        return BOARD.unpack(self.path.read_bytes())[:6]

    def failed_call(self):
        *_, has_failed, name = BOARD.unpack(self.path.read_bytes())
        return name.rstrip(b"\0").decode() if has_failed else None

    def environment(self, program):
        return {"LD_PRELOAD": os.environ["SYSLOGMON_FAILING_CALLS"], "FAILING_CALLS": str(self.path),
                "FAILING_CALLS_IN": program}


def chosen(count, kind):
    """The numbers of the calls that fail: all, or so many, spread evenly."""
    wanted = os.environ.get("SYSLOGMON_EVERY_CALL", "6")
    most = count if wanted == "all" and kind != MEMORY else 1000 if wanted == "all" else int(wanted)
    if kind == MEMORY and wanted != "all":
        most *= 2
    most = min(most, count)
    part, parts = map(int, os.environ.get("SYSLOGMON_EVERY_CALL_PART", "1/1").split("/"))
    return sorted({1 + count * (2 * i + 1) // (2 * most) for i in range(most)})[part - 1::parts]


class EveryCall(unittest.TestCase):
    def setUp(self):
        self.lives = collections.Counter()
        self.failed = collections.Counter()
        self.problems = []

    def tearDown(self):
        print(f"calls of each kind: {self.counts}; lives: {dict(self.lives)}; calls that failed: {dict(self.failed)}",
              file=sys.stderr)

    def go_through(self, live, prepare=lambda host: None):
        """Lives a day for each call that can fail. `live` takes a board and returns what is wrong, or nothing."""
        self.host = lab.Lab()
        self.addCleanup(lambda: self.host.close())
        prepare(self.host)
        self.morning = Morning(self.host)
        board = Board(self.host.folder / "board")
        board.choose(0, 0)
        self.assertIsNone(live(self.host, board))
        self.counts = dict(zip(KINDS, board.counts()))
        for kind, name in enumerate(KINDS):
            for number in chosen(self.counts[name], kind):
                self.live_with_failure(live, board, kind, number)
        self.assertFalse(self.problems, "\n".join(self.problems))
        # No two lives have quite as many calls.
        self.assertGreater(sum(self.failed.values()), 0.9 * sum(self.lives.values()))

    def live_with_failure(self, live, board, kind, number):
        self.morning.come_back()
        board.choose(kind, number)
        try:
            wrong = live(self.host, board)
        except (AssertionError, subprocess.TimeoutExpired) as error:  # the next life shall be lived all the same
            wrong = f"what comes after it fails: {error}"
        call = board.failed_call()
        self.lives[KINDS[kind]] += 1
        self.failed[call] += call is not None
        if wrong:
            self.problems.append(f"call {number} to which {KINDS[kind]} can happen, {call}: {wrong}\n{self.host.words()}")
            print(self.problems[-1], file=sys.stderr, flush=True)  # the others take a while

    # ---- the daemon ----

    def test_no_call_of_the_daemon_loses_a_line_or_counts_one_twice(self):
        self.go_through(self.day, prepare)

    def day(self, host, board):
        day = Day(host, board)
        day.begin()
        day.write(3)
        day.scan()
        day.rotate()
        day.write(2)
        host.command("event", "add", "LATER", "2", "--keyword", "nothing has this", "--report-count", "1")
        day.child.signal(signal.SIGHUP)
        day.scan()
        day.apply()
        day.write(1)
        day.scan()
        day.wait_for_delivery()
        day.end()
        return day.verdict()

    # ---- the command ----

    def test_no_call_of_the_command_leaves_half_of_its_work(self):
        self.go_through(self.commands)

    def commands(self, host, board):
        """Each says why it failed, and done once more it comes to the same."""
        wrong = []
        counts = [0] * 6
        rules = host.folder / "rules.yaml"
        rules.write_text(RULES)
        left = struct.unpack_from("Q", board.path.read_bytes(), 48)[0]
        for words in (("event", "add", "EACH", "1", "--keyword", "numbered", "--report-count", "1"), ("event", "list"),
                      ("sink", "add", "file", "copy", f"path={host.folder / 'copy'}"), ("apply", rules), ("status",)):
            done, left = self.command_with_failure(host, board, words, left, counts)
            if done.returncode < 0:
                wrong.append(f"{words[0]} was ended by signal {-done.returncode}")
            if done.returncode != 0 and words != ("status",):
                if not done.stderr.strip():
                    wrong.append(f"{words[0]} failed and said nothing")
                again = host.run(*words)
                if again.returncode != 0 and "already" not in again.stderr:
                    wrong.append(f"{words[0]} failed with {done.stderr!r}, and again with {again.stderr!r}")
        sources = sorted(event["source"] for event in host.json("event", "list")["events"])
        if sources != ["APPLIED", "EACH"]:
            wrong.append(f"the events are {sources}")
        if [sink["name"] for sink in host.json("sink", "list")["sinks"]] != ["copy"]:
            wrong.append("the sink is not there")
        kind = BOARD.unpack(board.path.read_bytes())[7]
        call = board.failed_call()
        board.path.write_bytes(BOARD.pack(*counts, 0, kind, call is not None, (call or "").encode()))
        return "; ".join(wrong) or None

    def command_with_failure(self, host, board, words, left, counts):
        """Runs a command of several, in which the calls are counted on."""
        *_, kind, has_failed, name = BOARD.unpack(board.path.read_bytes())
        board.path.write_bytes(BOARD.pack(*([0] * 6), 0 if has_failed else left, kind, has_failed, name))
        before = dict(os.environ)
        os.environ.update(board.environment("syslogmon"))
        try:
            done = host.run(*words)
        finally:
            os.environ.clear()
            os.environ.update(before)
        made = board.counts()
        for i, count in enumerate(made):
            counts[i] += count
        return done, max(left - made[kind], 0)


RULES = """
events:
  - source: APPLIED
    id: 5
    keywords: [nothing has this either]
    report_count: 1
"""


class Morning:
    """How a host is before its day begins. To put it back takes less than to set up another one."""

    def __init__(self, host):
        self.host = host
        self.kept = host.folder / "morning"
        subprocess.run(["cp", "-a", host.root, self.kept], check=True)
        # The daemon knows the log by its inode.
        self.log = lab.MESSAGES.stat() if lab.MESSAGES.exists() else None

    def come_back(self):
        host = self.host
        for child in host.children:
            child.kill()
        host.children.clear()
        for path in host.folder.iterdir():
            if path != self.kept:
                lab.remove(path)
        subprocess.run(["cp", "-a", self.kept, host.root], check=True)
        for path in lab.VAR_LOG.iterdir():
            if self.log is not None and path.stat().st_ino == self.log.st_ino:
                path.rename(lab.MESSAGES)
            else:
                lab.remove(path)
        if self.log is not None:
            os.truncate(lab.MESSAGES, self.log.st_size)


def prepare(host):
    lab.append(lab.MESSAGES, lab.stamped("the log begins"))
    host.watch_numbered_lines()
    host.command("sink", "add", "file", "copy", f"path={host.folder / 'copy'}")
    # The place from which lines count.
    host.daemon.start()
    host.daemon.stop()


class Day:
    """A day of a host, in which steps may come to nothing."""

    def __init__(self, host, board):
        self.host = host
        self.board = board
        self.child = None
        self.numbers = 0
        self.copy = host.folder / "copy"
        self.wrong = []

    def begin(self):
        argv = [lab.build_root() / "bin" / "syslogmond", "--root", self.host.root]
        self.child = self.host.spawn("syslogmond", argv, **self.board.environment("syslogmond"))
        self.host.daemon.child = self.child
        self.until(lambda: self.host.daemon.passes() > 0)

    def until(self, condition):
        """Waits for a condition, unless the daemon has ended; not for long."""
        end = time.monotonic() + STEP_SECONDS
        while time.monotonic() < end and self.child.is_running():
            if condition():
                return True
            time.sleep(0.002)
        return False

    def go_on(self):
        """Where the daemon has ended, it has said why; it is started again."""
        if self.child.is_running():
            return
        status = self.child.wait()
        if status < 0:
            self.wrong.append(f"the daemon was ended by signal {-status}")
        elif not self.child.said().strip():
            self.wrong.append(f"the daemon ended with {status} and said nothing")
        self.host.daemon.launch()
        self.child = self.host.daemon.child
        self.until(lambda: self.host.daemon.passes() > 0)

    def write(self, count):
        lab.append(lab.MESSAGES, *(lab.stamped(lab.numbered(self.numbers + i)) for i in range(count)))
        self.numbers += count

    def scan(self):
        self.go_on()
        passes = self.host.daemon.passes()
        self.host.daemon.wake()
        self.until(lambda: self.host.daemon.passes() > passes)
        self.go_on()

    def rotate(self):
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")

    def apply(self):
        rules = self.host.folder / "rules.yaml"
        rules.write_text(RULES)
        self.host.command("apply", rules)

    def delivered(self):
        """The numbers in the file of the sink. A write that was cut short leaves part of a line, which is written again."""
        found = []
        for line in lab.content_of(self.copy).splitlines():
            try:
                message = json.loads(line)["message"]
            except ValueError:
                continue
            found += [int(number) for number in lab.NUMBER.findall(message.encode())]
        return found

    def wait_for_delivery(self):
        self.until(lambda: len(set(self.delivered())) == self.numbers)

    def end(self):
        self.child.signal(signal.SIGTERM)
        try:
            status = self.child.wait(lab.PATIENCE)
        except Exception:  # it is killed with the host
            self.wrong.append("the daemon does not stop")
            self.child.kill()
            status = 0
        if status < 0:
            self.wrong.append(f"the daemon was ended by signal {-status}")

    def told(self):
        """How many lines are told of as passed over."""
        losses = "\n".join(self.host.own_alerts("loss"))
        return sum(int(number) for number in re.findall(r": (\d+) lines? \(bytes", losses))

    def verdict(self):
        """After a start in which nothing fails."""
        self.host.daemon.start()
        self.host.daemon.scan()
        reported = self.host.reported_numbers()
        try:
            self.host.wait_until("all is delivered", lambda: set(self.delivered()) == set(reported), 20)
        except AssertionError:
            self.wrong.append(f"of {len(reported)} alerts, {len(set(self.delivered()))} were delivered")
        if sorted(set(reported)) != reported:
            self.wrong.append(f"not once, or not in order: {reported}")
        # Where backups cannot be listed or opened, the monitor starts afresh, and tells what it passes over.
        lost = self.numbers - len(set(reported))
        if lost != self.told():
            self.wrong.append(f"of {self.numbers} lines, {lost} were not reported, and {self.told()} told of")
        self.host.daemon.stop()
        return "; ".join(self.wrong) or None


if __name__ == "__main__":
    lab.main()
