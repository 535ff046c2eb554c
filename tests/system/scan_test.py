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


class OfInputs(ScanTest):
    """What was in an input's file before the call is reported when it returns: nothing is waited for behind it."""

    def setUp(self):
        super().setUp()
        # What comes by itself comes late.
        self.lab.command("set", "trigger-interval", "60000")
        self.log = lab.VAR_LOG / "app.log"
        self.log.touch()

    def add(self, *options):
        self.lab.command("input", "add", "files", "app", f"path={self.log}", *options)

    def append(self, *texts):
        lab.append(self.log, *(lab.stamped(text) for text in texts))

    def test_lines_of_an_input_are_reported_when_it_returns(self):
        self.add()
        told = []
        for n in range(5):
            self.append(f"error {n}")
            told.append(f"error {n}")
            self.assert_done()
            self.assertEqual(told, self.lab.texts())

    def test_a_rotation_and_a_new_file_are_no_gap(self):
        self.add()
        self.append("error 1")
        self.assert_done()
        self.append("error 2")
        self.log.rename(lab.VAR_LOG / "app.log.1")
        self.append("error 3")
        self.assert_done()
        self.assertEqual(["error 1", "error 2", "error 3"], self.lab.texts())

    def test_the_last_entry_of_joined_lines_is_waited_for(self):
        self.add("join=indentation")
        self.append("error 1", "error 2")
        self.assert_done()
        self.assertEqual(["error 1", "error 2"], self.lab.texts())

    def test_an_input_that_cannot_read_a_file_makes_it_fail(self):
        self.add()
        os.mkfifo(lab.VAR_LOG / "pipe.log")
        self.lab.command("input", "add", "files", "pipe", f"path={lab.VAR_LOG}/pipe.log")
        self.append("error 1")
        self.assert_refused("input pipe: cannot read /var/log/pipe.log: it is not a regular file")
        self.assertEqual(["error 1"], self.lab.texts())

    def test_an_input_without_a_file_has_nothing_unread(self):
        self.lab.command("input", "add", "files", "later", f"path={lab.VAR_LOG}/later*.log")
        self.assert_done()


del ScanTest  # it has no test of its own

if __name__ == "__main__":
    lab.main()
