"""The file-monitor target: appended to, replaced, shrunk, deleted and made again, with odd content, and
with a restart of the daemon between any two of these."""
import itertools
import os

import lab

TARGET = lab.VAR_LOG / "application.log"

LINE_MAX = 3328  # bytes of a line that are looked at

KEYWORD = "watched"


class Target:
    """The watched file, and the lines of it that the next pass should report."""

    def __init__(self):
        self._count = 0
        self._unfinished = ""  # the begun line at the end of the file
        self.to_report = []

    def _line(self, suffix=""):
        self._count += 1
        return f"{KEYWORD} {self._count}.{suffix}"

    def _expect(self, text):
        """What a reader who knows complete lines only makes of a text that was appended."""
        *lines, self._unfinished = (self._unfinished + text).split("\n")
        for line in lines:
            seen = line[:LINE_MAX].split("\0")[0]
            if KEYWORD in seen:
                self.to_report.append(seen)

    def _append(self, text):
        with open(TARGET, "ab", buffering=0) as target:
            target.write(text.encode())
        self._expect(text)

    def create(self):
        TARGET.write_bytes(b"")
        self._unfinished = ""

    # ---- what can happen to it ----

    def is_appended_to(self):
        self._append(f"{self._line()}\n{self._line()}\nanything\n")

    def gets_no_news(self):
        pass

    def gets_a_begun_line(self):
        self._append(self._line(" begun, "))

    def gets_the_rest_of_a_line(self):
        self._append(f"the rest\n{self._line()}\n")

    def gets_very_long_lines(self):
        for length in (LINE_MAX, LINE_MAX + 1, 20_000):
            self._append(self._line().ljust(length, "x") + "\n")
        self._append(self._line() + "\n")

    def gets_zero_bytes(self):
        self._append(f"{self._line()} before\0 behind\n\0{self._line()}\n{self._line()}\0\n")

    def gets_carriage_returns(self):
        self._append(f"{self._line()}\r\n{self._line()}\r\n\r\n")

    def gets_empty_lines(self):
        self._append(f"\n\n{self._line()}\n\n")

    def is_replaced(self):
        successor = TARGET.with_suffix(".new")
        successor.write_bytes(b"")
        successor.rename(TARGET)
        self._unfinished = ""
        self._append(f"{self._line()}\n{self._line()}\n")

    def is_replaced_by_an_empty_file(self):
        successor = TARGET.with_suffix(".new")
        successor.write_bytes(b"")
        successor.rename(TARGET)
        self._unfinished = ""

    def is_shrunk(self):
        # To a part of what was there, and no line of that is new.
        os.truncate(TARGET, TARGET.stat().st_size // 2)
        self._unfinished = ""

    def is_shrunk_to_nothing(self):
        os.truncate(TARGET, 0)
        self._unfinished = ""

    def is_deleted_and_made_again(self):
        TARGET.unlink()
        self.create()
        self._append(f"{self._line()}\n")


HAPPENINGS = (Target.is_appended_to, Target.gets_no_news, Target.gets_a_begun_line,
              Target.gets_the_rest_of_a_line, Target.gets_very_long_lines, Target.gets_zero_bytes,
              Target.gets_carriage_returns, Target.gets_empty_lines, Target.is_replaced,
              Target.is_replaced_by_an_empty_file, Target.is_shrunk, Target.is_shrunk_to_nothing,
              Target.is_deleted_and_made_again)


def all_pairs(things):
    """A walk over the things in which each stands once in front of each, itself included."""
    pairs = {a: list(things) for a in things}
    walk, stack = [], [things[0]]
    while stack:
        if pairs[stack[-1]]:
            stack.append(pairs[stack[-1]].pop())
        else:
            walk.append(stack.pop())
    return walk[::-1]


class FileMonitor(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("WATCHED", 1, KEYWORD)
        self.lab.watch("SUM", 1, KEYWORD, report_count=1_000_000)
        self.lab.command("set", "file-monitor", TARGET)
        self.target = Target()
        self.target.create()
        self.daemon.start()

    def check(self, story=None):
        """Everything was reported that should have been by now, in order, and nothing else."""
        self.daemon.scan()
        self.assertEqual(self.target.to_report, self.lab.messages("WATCHED"), story)

    def test_any_two_happenings_in_a_row_are_told_apart(self):
        self.walk(lambda: None)

    def test_any_two_happenings_with_an_orderly_restart_between_them(self):
        self.walk(self.restart)

    def test_any_two_happenings_with_a_kill_between_them(self):
        self.walk(self.kill)

    def walk(self, between):
        walk = all_pairs(HAPPENINGS)
        self.assertEqual(set(itertools.product(HAPPENINGS, repeat=2)), set(itertools.pairwise(walk)))
        for before, happening in itertools.pairwise([Target.gets_no_news, *walk]):
            between()
            happening(self.target)
            self.check(f"it {before.__name__}, then it {happening.__name__}")
        self.assertEqual(len(self.target.to_report), self.lab.hits("SUM"))

    def restart(self):
        self.daemon.stop()
        self.daemon.start()

    def kill(self):
        self.daemon.kill()
        self.daemon.start()

    def test_a_target_that_appears_later_is_read_from_its_first_line(self):
        TARGET.unlink()
        self.daemon.scan()
        self.restart()
        self.target.create()
        self.target.is_appended_to()
        self.check()

    def test_what_was_in_the_target_when_it_was_set_is_read_too(self):
        other = lab.VAR_LOG / "other.log"
        other.write_text(f"{KEYWORD} by another name\n")
        self.set_target(other)
        self.assertEqual([f"{KEYWORD} by another name"], self.lab.messages("WATCHED"))

        self.set_target("")
        lab.append(other, f"{KEYWORD} no more")
        self.daemon.scan()
        self.assertEqual([f"{KEYWORD} by another name"], self.lab.messages("WATCHED"))

    def set_target(self, path):
        """Returns when the running daemon has taken the new target."""
        passes = self.daemon.passes()
        self.lab.command("set", "file-monitor", path)
        self.daemon.wait_at_rest(passes + 1)

    def test_the_lines_of_a_target_need_no_time_stamp_and_those_of_the_system_log_do(self):
        lab.append(lab.MESSAGES, f"{KEYWORD} without a time stamp")
        lab.append(TARGET, f"{KEYWORD} without a time stamp")
        self.daemon.scan()
        self.assertEqual([f"{KEYWORD} without a time stamp"], self.lab.messages("WATCHED"))


if __name__ == "__main__":
    lab.main()
