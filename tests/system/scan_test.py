"""scan --wait: it succeeds only when everything that was written before has been checked."""
import os

import lab


class ScanTest(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.daemon.start()

    def scan(self):
        return self.lab.run("scan", "--wait", "--timeout", lab.PATIENCE)

    def assert_refused(self, *told):
        done = self.scan()
        self.assertEqual(1, done.returncode, done.stderr)
        self.assertEqual("", done.stdout)
        for text in ("not everything is checked", *told):
            self.assertIn(text, done.stderr)

    def assert_done(self):
        done = self.scan()
        self.assertEqual(0, done.returncode, done.stderr)


class WhatCannotBeRead(ScanTest):
    def test_a_log_that_is_no_regular_file_is_named(self):
        for make in (os.mkdir, os.mkfifo, lambda path: os.symlink("messages", path)):
            lab.remove(lab.MESSAGES)
            make(lab.MESSAGES)
            self.assert_refused("/var/log/messages cannot be read")
        lab.remove(lab.MESSAGES)
        lab.append(lab.MESSAGES, lab.stamped("the log begins again"))
        self.assert_done()

    def test_lines_behind_a_log_that_is_empty_are_told_as_long_as_they_are_unread(self):
        lab.append(lab.MESSAGES, lab.stamped("error: the last words"))
        size = lab.MESSAGES.stat().st_size
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")
        lab.MESSAGES.touch()
        done = self.scan()
        if self.lab.texts() == []:
            self.assertEqual(1, done.returncode)
            self.assertIn("bytes of /var/log/messages.1 are unread", done.stderr)
            self.assertLess(0, size)
        lab.append(lab.MESSAGES, lab.stamped("a first line"))
        self.assert_done()
        self.assertEqual(["error: the last words"], self.lab.texts())

    def test_a_log_whose_place_is_lost_fails_once(self):
        lab.append(lab.MESSAGES, lab.stamped("error: never read"))
        lab.remove(lab.MESSAGES)
        self.assert_done()  # no line of it is there


class WhatCountsAsDone(ScanTest):
    def test_a_line_that_is_not_ended_yet_does_not_count(self):
        target = lab.VAR_LOG / "target.log"
        lab.append(target, "a whole line")
        self.lab.command("set", "file-monitor", target)
        lab.append(target, "half a li", end="")
        self.assert_done()

    def test_no_log_at_all(self):
        lab.remove(lab.MESSAGES)
        self.assert_done()

    def test_a_rotation_between_two_scans(self):
        for n in range(1, 4):
            lab.append(lab.MESSAGES, lab.stamped(f"error {n}"))
            self.assert_done()
            lab.MESSAGES.rename(lab.VAR_LOG / f"messages-2024010{n}")
            lab.append(lab.MESSAGES, lab.stamped(f"begins {n}"))
        self.assert_done()
        self.assertEqual(["error 1", "error 2", "error 3"], self.lab.texts())


del ScanTest  # it has no test of its own

if __name__ == "__main__":
    lab.main()
