"""The first steps of README.md, as they stand there: the demonstration runs, and each block of commands for the second
terminal does what the text around it says."""
import os
import re
import signal
import subprocess
import sys
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "system"))

import lab  # noqa: E402


def blocks():
    """The blocks of commands of the section about the demonstration, without the one that starts it and those that
    show output."""
    text = (SOURCE / "README.md").read_text()
    section = re.search(r"^## A first alert.*?(?=^## )", text, re.MULTILINE | re.DOTALL)[0]
    found = re.findall(r"(?:^    .*\n)+", section, re.MULTILINE)
    return [block for block in found if "./run" not in block and "    $ " not in block]


class FirstSteps(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.lab = lab.Lab()
        self.addCleanup(self.lab.close)
        self.folder = self.lab.folder / "demo"
        path = f"{lab.build_root() / 'bin'}:{os.environ['PATH']}"
        # unshare: the demonstration makes a private /var/log inside the one of this test.
        self.demo = self.lab.spawn("demo", [SOURCE / "examples" / "demo", self.folder], PATH=path)
        self.addCleanup(self.stop_demo)
        self.lab.wait_until("the demonstration has come to its end",
                            lambda: "Try it yourself" in self.demo.said() or not self.demo.is_running(), 180)
        self.assertTrue(self.demo.is_running(), self.demo.said())

    def stop_demo(self):
        """It ends its own daemons."""
        self.demo.signal(signal.SIGTERM)
        self.demo.wait()

    def type(self, block):
        """Types a block of commands into a second terminal, and returns what it prints."""
        script = block.replace("build/demo", str(self.folder)).replace(
            "$PWD/build/release/root", str(lab.build_root()))
        done = subprocess.run(["bash", "-ec", script], cwd=self.lab.folder, capture_output=True, text=True,
                              timeout=2 * lab.PATIENCE)
        self.assertEqual((0, ""), (done.returncode, done.stderr), script)
        return done.stdout

    def test_the_steps_show_what_is_said_of_them(self):
        register, third, report = blocks()
        os.environ["PATH"] = f"{lab.build_root() / 'bin'}:{os.environ['PATH']}"  # as the first block sets it
        self.type(register)
        self.lab.wait_until("the alert appears in the first terminal",
                            lambda: "backup failed: no space left" in self.demo.said())
        shown = self.type(third)
        self.assertRegex(shown, r"(?m)^hits\s+2$")
        self.assertNotIn("backup failed: disk", self.demo.said())
        listed = self.type(report).splitlines()[-1]
        self.assertRegex(listed, r"BACKUP 1\s+x3\s+.*backup failed: disk 3$")


if __name__ == "__main__":
    lab.main(*lab.RSYSLOG, *lab.LOGROTATE)
