"""The full screen in a real terminal (tmux): what it shows, each key, other sizes, a slow terminal without colour."""
import os
import re
import shutil
import subprocess
import sys

import lab

# Bytes a second that the line passes on: 9,600 baud. And that a screen without news may send, a tenth of it.
SLOW_LINE = 960
MOST_BYTES_A_SECOND = 96


class Top(lab.LabTest):
    def setUp(self):
        super().setUp()
        if shutil.which("tmux") is None:
            self.fail("needs tmux")
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", "1A", "disk")
        self.lab.watch("LOGIN", 2, "login")
        self.lab.watch("ALPHA", 3, "alpha")
        self.daemon.start()
        self.log("disk 1", "disk 2", "login 1")
        self.socket = self.lab.folder / "tmux"
        self.lab.on_close(lambda: self.tmux("kill-server", check=False))

    def log(self, *texts):
        lab.append(lab.MESSAGES, *(lab.stamped(text) for text in texts))
        self.daemon.scan()

    def tmux(self, *words, check=True):
        return subprocess.run(["tmux", "-S", self.socket, "-f", "/dev/null", *map(str, words)], capture_output=True,
                              text=True, check=check).stdout

    def show(self, columns=80, rows=24, terminal="screen", locale="C.UTF-8", more="", delay=200):
        program = f"{lab.build_root() / 'bin' / 'syslogmon'} --root {self.lab.root} top --delay {delay}"
        self.tmux("new-session", "-d", "-x", columns, "-y", rows,
                  f"env -u NO_COLOR LC_ALL={locale} TERM={terminal} {more} {program}; echo ended with $?; sleep 600")
        self.wait("q quit")

    def screen(self):
        return self.tmux("capture-pane", "-p").splitlines()

    def text(self):
        return "\n".join(self.screen())

    def wait(self, text):
        self.lab.wait_until(f"{text} on the screen", lambda: text in self.text())

    def press(self, *keys):
        self.tmux("send-keys", *keys)

    def sources(self):
        return [line.split()[0] for line in self.screen() if line.startswith(("DISK ", "LOGIN ", "ALPHA "))]

    def test_it_shows_the_monitor_at_work(self):
        self.show()
        self.assertEqual(["DISK", "LOGIN", "ALPHA"], self.sources())
        self.assertIn("running", self.screen()[0])
        self.assertIn("/var/log/messages  unread 0 B", self.text())
        self.log("alpha beta gamma")
        self.wait("alpha beta gamma")
        self.daemon.stop()
        self.wait("STOPPED")
        self.press("q")
        self.wait("ended with 0")

    def test_keys_sort_filter_and_explain(self):
        self.show()
        self.press("s")
        self.wait("sort: hits")
        self.press("s")
        self.wait("sort: name")
        self.assertEqual(["ALPHA", "DISK", "LOGIN"], self.sources())
        self.press("/", "l", "o", "g")
        self.wait("filter: log_")
        self.press("Enter")
        self.wait("filter: log ")
        self.assertEqual(["LOGIN"], self.sources())
        self.press("Enter")
        self.wait("a line must contain   login")
        self.press("Escape")
        self.wait("ALPHA ")
        self.press("Down", "Enter")
        self.wait("Event DISK 1A")
        self.wait("why it came           1 hit")

    def test_the_explanation_follows_what_comes_while_it_is_shown(self):
        self.show()
        self.press("/", "a", "l", "p", "h", "Enter", "Enter")
        self.wait("newest alert          none")
        self.lab.command("event", "set", "ALPHA", 3, "--report-count", 2)
        self.log("alpha one", "alpha two")
        self.wait("why it came           2 hits")

    def test_it_takes_another_size(self):
        self.show()
        for columns, rows in ((132, 40), (60, 15), (20, 5), (80, 24)):
            self.tmux("resize-window", "-x", columns, "-y", rows)
            self.lab.wait_until(f"{columns} x {rows}", lambda n=rows: len(self.screen()) == n and
                                self.screen()[-1].startswith("q quit"))
        self.assertEqual(["DISK", "LOGIN", "ALPHA"], self.sources())

    def test_it_works_without_colour_and_without_utf8(self):
        self.show(terminal="vt100", locale="C")
        self.assertEqual(["DISK", "LOGIN", "ALPHA"], self.sources())
        self.assertNotIn("█", self.text())
        self.assertIn("@", next(line for line in self.screen() if line.startswith("DISK ")))

    def clock(self):
        """Seconds of the day on the screen."""
        found = self.lab.wait_until("the clock", lambda: re.search(r"(\d\d):(\d\d):(\d\d)", self.screen()[0]))
        hours, minutes, seconds = map(int, found.groups())
        return 3600 * hours + 60 * minutes + seconds

    def test_over_a_slow_line_only_what_is_different_is_sent(self):
        passed = self.lab.folder / "passed"
        slow_line = lab.SOURCE / "tests" / "system" / "slow_line.py"
        self.show(delay=100, more=f"{sys.executable} {slow_line} {SLOW_LINE} {passed}")
        self.log("alpha over the line")
        self.wait("alpha over the line")
        before, begin = int(passed.read_text()), self.clock()
        seconds = self.lab.wait_until("three more seconds on the screen",
                                      lambda: (self.clock() - begin) % 86400 >= 3 and (self.clock() - begin) % 86400)
        # Ten looks a second, of which two find something: another second, and one more since the last pass.
        self.assertLess((int(passed.read_text()) - before) / seconds, MOST_BYTES_A_SECOND)
        self.assertEqual(["ALPHA", "DISK", "LOGIN"], sorted(self.sources()))
        self.press("q")
        self.wait("ended with 0")

    def test_a_sink_in_trouble_is_shown_in_red_and_before_the_others(self):
        for number in range(12):
            self.lab.command("sink", "add", "file", f"out{number:02}", f"path={lab.VAR_LOG / f'out{number:02}.json'}")
        self.lab.command("sink", "add", "webhook", "pager", "url=http://127.0.0.1:1/")
        self.log("disk 3")
        self.show()
        self.wait("sink pager  delivered 0  waiting")
        self.wait("Failed to connect")
        found = next(line for line in self.tmux("capture-pane", "-p", "-e").splitlines() if "sink pager" in line)
        self.assertRegex(found, r"\x1b\[[\d;]*31m")
        shown = [line for line in self.screen() if line.startswith("sink ")]
        self.assertTrue(shown[0].startswith("sink pager"), shown)
        self.assertRegex(self.text(), r"\nand \d+ more")
        self.assertIn("DISK", self.sources())

    def assert_stopped_is_red(self, is_red, more):
        self.daemon.stop()
        self.show(more=more)
        first = self.tmux("capture-pane", "-p", "-e").splitlines()[0]
        self.assertIn("STOPPED", first)
        self.assertEqual(is_red, re.search(r"\x1b\[[\d;]*31m", first) is not None, repr(first))

    def test_trouble_is_red(self):
        self.assert_stopped_is_red(True, "")

    def test_trouble_is_red_with_an_empty_no_color(self):
        self.assert_stopped_is_red(True, "NO_COLOR=")

    def test_nothing_is_red_with_no_color(self):
        self.assert_stopped_is_red(False, "NO_COLOR=1")

    def test_on_a_terminal_that_shows_no_screen_it_says_what_to_do(self):
        for terminal, why in (("dumb", 'the terminal "dumb" cannot show text at a place; use syslogmon status'),
                              ("none-such", 'the terminal "none-such" is not known here; set TERM to one that is, such as xterm')):
            said = subprocess.run(["script", "-qec", f"{lab.build_root() / 'bin' / 'syslogmon'} --root {self.lab.root} top",
                                   "/dev/null"], env=os.environ | {"TERM": terminal}, stdin=subprocess.DEVNULL,
                                  capture_output=True, text=True, timeout=lab.PATIENCE)
            self.assertEqual((1, f"syslogmon: cannot show the full screen: {why}\n"),
                             (said.returncode, said.stdout.replace("\r\n", "\n")))

    def test_without_a_terminal_it_says_what_to_use(self):
        done = self.lab.run("top")
        self.assertEqual((1, "syslogmon: cannot show the full screen: this is no terminal; use syslogmon status or "
                             "syslogmon metrics in scripts\n"), (done.returncode, done.stderr))


if __name__ == "__main__":
    lab.main()
