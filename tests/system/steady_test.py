"""Steady writing: a real rsyslogd under load, scans meanwhile, and each line is reported exactly once."""
import sys
import threading
import time

import lab

LINES = 60_000  # in each of the two tests

# Microseconds between two batches of rsyslogd: some 15,000 lines a second, and a block of 4 KiB every
# few milliseconds, far oftener than the 50 ms for which the monitor waits for the rest of a line.
PACE = 4000

# Seconds after which a writer that has stopped inside a line may have stopped for longer than the monitor
# waits. On a machine that has much else to do, rsyslogd is held up that long now and then. A line that is
# cut by such a stall is two lines to any reader: only such a line may be missing.
STALL = 0.04

# Prints where the log ended before and after each stall.
WATCH_FOR_STALLS = f"""
import os, time
size, since = 0, time.monotonic()
while True:
    now, seen = time.monotonic(), os.path.getsize("{lab.MESSAGES}")
    if seen != size:
        if now - since > {STALL}:
            print(size, seen, flush=True)
        size, since = seen, now
    time.sleep(0.001)
"""


class Scanner:
    """Scans all the time, and notes how often the log ended inside a line when it asked."""

    def __init__(self, daemon):
        self.asked_inside_a_line = 0
        self._daemon = daemon
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def _run(self):
        randomness = lab.randomness("when to scan")
        while not self._stop.is_set():
            self.asked_inside_a_line += lab.ends_inside_a_line(lab.MESSAGES)
            self._daemon.wake()
            time.sleep(randomness.uniform(0.001, 0.015))

    def stop_asking(self):
        self._stop.set()
        self._thread.join()

    def stop(self):
        """Returns when the last pass that was asked for has ended."""
        self.stop_asking()
        self._daemon.scan()


class SteadyWriting(lab.LabTest):
    def test_each_line_that_is_written_in_blocks_is_reported_once_and_in_order(self):
        self.write_and_scan(lab.Rsyslog(self.lab, in_blocks=True, pace=PACE))

    def test_each_line_that_a_writer_thread_writes_in_blocks_is_reported_once_and_in_order(self):
        self.write_and_scan(lab.Rsyslog(self.lab, in_blocks=True, asynchronous=True, pace=PACE))

    def write_and_scan(self, log):
        log.start()
        self.lab.watch_numbered_lines()
        self.daemon.start()
        stalls = self.lab.spawn("watch-for-stalls", [sys.executable, "-c", WATCH_FOR_STALLS])

        scanner = Scanner(self.daemon)
        self.addCleanup(scanner.stop_asking)
        log.send_numbers(LINES)
        # The last pass must end while the writer still writes: when a writer stops inside a line for
        # good, that part is a line to any reader.
        self.lab.wait_until("most lines are written",
                            lambda: lab.last_number_in(lab.MESSAGES) > LINES * 9 // 10)
        scanner.stop()
        self.assertLess(lab.last_number_in(lab.MESSAGES), LINES - 1, "the writer was faster than the test")
        passes = self.daemon.passes()
        stalls.kill()
        log.finish()
        self.daemon.scan()

        self.assertEqual(list(range(LINES)), lab.numbers_in(lab.MESSAGES), "rsyslogd lost lines")
        self.assert_reported_but_for(self.lines_cut_by(stalls.said()))
        self.assertGreater(passes, 20)
        self.assertGreater(scanner.asked_inside_a_line, 20, "the log hardly ever ended inside a line")

    def lines_cut_by(self, stalls):
        """The numbers of the lines inside which the writer may have stood still."""
        content = lab.MESSAGES.read_bytes()
        cut = set()
        for stall in stalls.splitlines():
            before, after = map(int, stall.split())
            for end in range(before, after + 1, lab.BLOCK):
                line = content[content.rfind(b"\n", 0, end) + 1:content.index(b"\n", end)]
                cut.update(int(n) for n in lab.NUMBER.findall(line))
        return cut

    def assert_reported_but_for(self, cut):
        reported = self.lab.reported_numbers(parts=len(cut))
        lost = set(range(LINES)) - set(reported)
        if lost:
            print(f"(the writer stood still inside the lines {sorted(lost & cut)})", end=" ", flush=True)
        self.assertLess(len(lost), LINES // 1000)
        self.assert_each_once_and_in_order([n for n in range(LINES) if n not in lost & cut], reported)


class UnfinishedLines(lab.LabTest):
    LINES = 800

    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch_numbered_lines()
        self.daemon.start()

    def test_each_line_of_a_writer_that_cuts_every_line_in_two_is_reported_whole_and_once(self):
        scanner = Scanner(self.daemon)
        self.addCleanup(scanner.stop_asking)
        held_up = self.write_in_halves()
        scanner.stop()

        reported = self.lab.reported_numbers(parts=len(held_up))
        lost = held_up - set(reported)
        self.assert_each_once_and_in_order([n for n in range(self.LINES) if n not in lost], reported)
        self.assertLess(len(lost), self.LINES // 100)
        self.assertGreater(scanner.asked_inside_a_line, 100)

    def write_in_halves(self):
        """Returns the numbers of the lines between whose halves too much time passed."""
        randomness = lab.randomness("halves")
        held_up = set()
        for number in range(self.LINES):
            line = lab.stamped(lab.numbered(number)) + "\n"
            cut = randomness.randrange(1, len(line))
            lab.append(lab.MESSAGES, line[:cut], end="")
            began = time.monotonic()
            time.sleep(randomness.uniform(0, 0.01))
            lab.append(lab.MESSAGES, line[cut:], end="")
            if time.monotonic() - began > STALL:
                held_up.add(number)
        return held_up

    def test_a_line_whose_end_does_not_come_is_a_line(self):
        lab.append(lab.MESSAGES, lab.stamped(lab.numbered(1)), end="")
        self.daemon.scan()
        self.assertEqual([1], self.lab.reported_numbers())
        lab.append(lab.MESSAGES, "", lab.stamped(lab.numbered(2)))
        self.daemon.scan()
        self.assertEqual([1, 2], self.lab.reported_numbers())


if __name__ == "__main__":
    lab.main(*lab.RSYSLOG)
