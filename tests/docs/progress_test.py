"""What ./run shows while it builds: ninja's count on a terminal, a line now and then otherwise; and all of it in a file."""
import os
import pty
import subprocess
import tempfile
import unittest
from pathlib import Path

PROGRAM = Path(__file__).resolve().parents[2] / "tools" / "build-progress"
STEPS = "".join(f"[{n}/40] Building {n}\n" for n in range(1, 41))
FAILED = "[1/40] Building 1\nFAILED: a.o\na.cc:1: error: [7/8] is no step\nninja: stopped"


class Progress(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.log = Path(folder.name) / "log"

    def show(self, text):
        """What is shown to a pipe."""
        return subprocess.run([PROGRAM, self.log], input=text, capture_output=True, text=True, check=True).stdout

    def show_on_a_terminal(self, text):
        ours, its = pty.openpty()
        program = subprocess.Popen([PROGRAM, self.log], stdin=subprocess.PIPE, stdout=its, text=True)
        os.close(its)
        program.communicate(text)
        shown = b""
        try:
            while part := os.read(ours, 4096):
                shown += part
        except OSError:
            pass  # the other end is closed
        os.close(ours)
        return shown.decode()

    def test_in_a_pipe_there_is_a_line_at_each_tenth(self):
        self.assertEqual([f"    step {4 * n} of 40" for n in range(1, 11)], self.show(STEPS).splitlines())

    def test_on_a_terminal_the_count_stands_in_one_line_which_goes_in_the_end(self):
        shown = self.show_on_a_terminal(STEPS)
        self.assertEqual("".join(f"\r    step {n} of 40 " for n in range(1, 41)) + "\r\x1b[K", shown)

    def test_all_output_is_in_the_file_and_only_steps_are_shown(self):
        self.assertEqual("", self.show(FAILED))
        self.assertEqual(FAILED + "\n", self.log.read_text())

    def test_a_build_of_few_steps_says_nothing_in_a_pipe(self):
        self.assertEqual("", self.show("ninja: no work to do.\n"))
        self.assertEqual("", self.show("[1/3] a\n[2/3] b\n[3/3] c\n"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
