"""Rotation by real logrotate: each line is reported exactly once on both sides of it.

Each test states the whole of /var/log: the numbered lines in each file before and after.
"""
import datetime
import os
import shlex
import time

import lab


def dated(days_ago=0):
    """The name of the backup that logrotate makes today, or yesterday."""
    return f"messages-{datetime.date.today() - datetime.timedelta(days_ago):%Y%m%d}"


class RotationTest(lab.LabTest):
    """Three numbered lines are in the log and checked: 0, 1, 2."""

    directives = ("create 0644",)

    def setUp(self):
        super().setUp()
        self.log = lab.Rsyslog(self.lab)
        self.log.start()
        self.logrotate = lab.Logrotate(self.lab, *self.directives,
                                       after=f"kill -HUP $(cat {self.log.pid_file})")
        self.lab.watch_numbered_lines()
        self.daemon.start()
        self.write(3)
        self.daemon.scan()
        self.assert_log({"messages": [0, 1, 2]})

    def write(self, count):
        self.log.write_numbers(count)

    def rotate(self, *directives):
        """Rotates and waits until rsyslogd writes the new file."""
        self.logrotate.rotate(*directives)
        self.log.wait_until_reopened()

    def assert_log(self, files):
        self.assertEqual(files, lab.log_files())

    def scan_and_check(self):
        """Everything written so far was reported once, in order."""
        self.daemon.scan()
        self.assert_each_once_and_in_order(range(self.log.written), self.lab.reported_numbers())


class NumberedBackups(RotationTest):
    def test_a_rotation_between_two_passes_loses_no_line(self):
        self.write(2)
        self.rotate()
        self.write(2)

        self.assert_log({"messages": [5, 6], "messages.1": [0, 1, 2, 3, 4]})
        self.scan_and_check()
        self.assert_log({"messages": [5, 6], "messages.1": [0, 1, 2, 3, 4]})

    def test_a_rotation_right_after_a_pass_loses_no_line(self):
        self.rotate()
        self.write(2)

        self.assert_log({"messages": [3, 4], "messages.1": [0, 1, 2]})
        self.scan_and_check()

    def test_two_rotations_between_two_passes_lose_no_line(self):
        self.write(2)
        self.rotate()
        self.write(2)
        self.rotate()
        self.write(2)

        self.assert_log({"messages": [7, 8], "messages.1": [5, 6], "messages.2": [0, 1, 2, 3, 4]})
        self.scan_and_check()

    def test_a_rotation_while_the_daemon_is_down_loses_no_line(self):
        self.daemon.stop()
        self.write(2)
        self.rotate()
        self.write(2)
        self.assert_log({"messages": [5, 6], "messages.1": [0, 1, 2, 3, 4]})

        self.daemon.start()
        self.scan_and_check()

    def test_two_rotations_while_the_daemon_is_down_lose_no_line(self):
        self.daemon.kill()
        self.rotate()
        self.write(2)
        self.rotate()
        self.write(2)
        self.assert_log({"messages": [5, 6], "messages.1": [3, 4], "messages.2": [0, 1, 2]})

        self.daemon.start()
        self.scan_and_check()

    def test_twelve_rotations_while_the_daemon_is_down_are_read_in_the_order_of_their_numbers(self):
        self.daemon.stop()
        for _ in range(12):
            self.write(1)
            self.rotate()
        files = {f"messages.{n}": [15 - n] for n in range(1, 12)}
        files["messages.12"] = [0, 1, 2, 3]
        files["messages"] = []
        self.assert_log(files)

        self.daemon.start()
        self.scan_and_check()
        self.write(1)
        self.scan_and_check()

    def test_a_pass_between_the_rotation_and_the_first_line_of_the_new_file_changes_nothing(self):
        self.write(2)
        lab.Logrotate(self.lab, "create 0644").rotate()  # rsyslogd is not told yet
        self.write_to_backup(2)
        self.assert_log({"messages": [], "messages.1": [0, 1, 2, 3, 4, 5, 6]})
        self.assertEqual(0, lab.MESSAGES.stat().st_size)
        self.daemon.look()

        self.log.reopen()
        self.log.wait_until_reopened()
        self.write(2)
        self.assert_log({"messages": [7, 8], "messages.1": [0, 1, 2, 3, 4, 5, 6]})
        self.scan_and_check()

    def write_to_backup(self, count):
        self.log.send_numbers(count)
        last = self.log.written - 1
        self.lab.wait_until("the lines are in the old file",
                            lambda: lab.last_number_in(lab.VAR_LOG / "messages.1") == last)

    def test_a_pass_while_there_is_no_live_file_changes_nothing(self):
        self.write(2)
        lab.Logrotate(self.lab, "nocreate").rotate()
        self.assert_log({"messages.1": [0, 1, 2, 3, 4]})
        self.daemon.look()

        self.log.reopen()
        self.log.wait_until_reopened()
        self.write(2)
        self.assert_log({"messages": [5, 6], "messages.1": [0, 1, 2, 3, 4]})
        self.scan_and_check()

    def test_with_notifempty_a_quiet_time_makes_no_empty_backup_and_no_line_is_lost(self):
        # An empty backup has no first line, by which the monitor could tell it. With notifempty
        # there never is one.
        self.write(2)
        lab.Logrotate(self.lab, "nocreate").rotate()
        lab.MESSAGES.touch(0o644)
        self.logrotate.rotate("notifempty")
        self.assert_log({"messages": [], "messages.1": [0, 1, 2, 3, 4]})

        self.log.reopen()
        self.log.wait_until_reopened()
        self.write(2)
        self.rotate("notifempty")
        self.write(2)
        self.assert_log({"messages": [7, 8], "messages.1": [5, 6], "messages.2": [0, 1, 2, 3, 4]})
        self.scan_and_check()

    def test_backups_that_are_compressed_once_they_were_read_lose_no_line(self):
        for _ in range(3):
            self.write(2)
            self.rotate("compress", "delaycompress")
            self.write(1)
            self.scan_and_check()
        self.assertEqual(["messages", "messages.1", "messages.2.gz", "messages.3.gz"],
                         sorted(lab.log_files()))

    def test_a_log_that_is_copied_and_truncated_loses_no_line(self):
        self.write(2)
        self.logrotate.rotate("copytruncate", "nocreate")
        self.daemon.look()  # the live file is empty
        self.write(2)

        self.assert_log({"messages": [5, 6], "messages.1": [0, 1, 2, 3, 4]})
        self.scan_and_check()


class DatedBackups(RotationTest):
    directives = ("create 0644", "dateext", "dateformat -%Y%m%d")

    def setUp(self):
        # The names say which day it is, so no test may begin on one day and end on another.
        midnight = datetime.datetime.combine(datetime.date.today(), datetime.time.max)
        left = (midnight - datetime.datetime.now()).total_seconds()
        if left < lab.PATIENCE:
            time.sleep(left + 1)
        super().setUp()

    def test_a_rotation_between_two_passes_loses_no_line(self):
        self.write(2)
        self.rotate()
        self.write(2)

        self.assert_log({"messages": [5, 6], dated(): [0, 1, 2, 3, 4]})
        self.scan_and_check()

    def test_two_rotations_between_two_passes_lose_no_line(self):
        self.write(2)
        self.rotate("dateyesterday")
        self.write(2)
        self.rotate()
        self.write(2)

        self.assert_log({"messages": [7, 8], dated(): [5, 6], dated(1): [0, 1, 2, 3, 4]})
        self.scan_and_check()

    def test_a_rotation_while_the_daemon_is_down_loses_no_line(self):
        self.daemon.kill()
        self.write(2)
        self.rotate()
        self.write(2)
        self.assert_log({"messages": [5, 6], dated(): [0, 1, 2, 3, 4]})

        self.daemon.start()
        self.scan_and_check()

    def test_two_rotations_while_the_daemon_is_down_lose_no_line(self):
        self.daemon.stop()
        self.rotate("dateyesterday")
        self.write(2)
        self.rotate()
        self.write(2)
        self.assert_log({"messages": [5, 6], dated(): [3, 4], dated(1): [0, 1, 2]})

        self.daemon.start()
        self.scan_and_check()

    def test_a_month_of_backups_is_read_in_the_order_of_their_dates(self):
        # logrotate dates one backup a day. Here a day passes each time: the backups that are there
        # become a day older, as their names and times say.
        self.daemon.stop()
        for _ in range(31):
            self.let_a_day_pass()
            self.write(1)
            self.rotate()
        files = {dated(days): [33 - days] for days in range(30)}
        files[dated(30)] = [0, 1, 2, 3]
        files["messages"] = []
        self.assert_log(files)

        self.daemon.start()
        self.scan_and_check()

    def let_a_day_pass(self):
        for days in range(30, -1, -1):
            backup = lab.VAR_LOG / dated(days)
            if backup.exists():
                backup.rename(lab.VAR_LOG / dated(days + 1))

    def test_a_second_rotation_on_one_day_is_refused_by_logrotate_and_the_log_goes_on(self):
        self.write(2)
        self.rotate()
        self.write(2)
        said = self.logrotate.rotate(expect=1)
        self.assertIn("skipping rotation", said)
        self.write(2)

        self.assert_log({"messages": [5, 6, 7, 8], dated(): [0, 1, 2, 3, 4]})
        self.scan_and_check()


class ChangeOfScheme(RotationTest):
    def test_dated_backups_after_numbered_ones_are_followed(self):
        self.rotate()
        self.write(2)
        self.daemon.scan()
        # The scheme in force is known by the times of the newest files: this one is of yesterday.
        yesterday = time.time() - 86400
        os.utime(lab.VAR_LOG / "messages.1", (yesterday, yesterday))
        self.write(1)
        self.rotate("dateext", "dateformat -%Y%m%d")
        self.write(2)

        self.assert_log({"messages": [6, 7], dated(): [3, 4, 5], "messages.1": [0, 1, 2]})
        self.scan_and_check()


class WhileItIsWritten(RotationTest):
    def test_a_rotation_that_waits_for_a_scan_first_loses_no_line_of_a_busy_log(self):
        scan = shlex.join([str(lab.build_root() / "bin" / "syslogmon"), "--root", str(self.lab.root),
                           "scan", "--wait"])
        logrotate = lab.Logrotate(self.lab, "create 0644", before=scan,
                                  after=f"kill -HUP $(cat {self.log.pid_file})")
        for _ in range(8):
            self.log.send_numbers(2000)
            logrotate.rotate()
            self.log.wait_until_reopened()
        self.log.write_numbers(2000)

        files = lab.log_files()
        self.assertEqual({"messages"} | {f"messages.{n}" for n in range(1, 9)}, set(files))
        self.assertEqual(list(range(self.log.written)),
                         [n for name in sorted(files, reverse=True, key=lambda f: (len(f), f))
                          for n in files[name]])
        self.scan_and_check()


class CustomerFile(lab.LabTest):
    """The customer file /var/log/vmkernel is followed through its four backups."""

    log = lab.VAR_LOG / "vmkernel"

    def test_two_rotations_of_vmkernel_between_two_passes_lose_no_line(self):
        self.lab.watch_numbered_lines()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        lab.append(self.log, lab.stamped("the log begins"))
        self.lab.command("set", "customer-file", self.log)
        self.daemon.start()
        logrotate = lab.Logrotate(self.lab, "create 0644", log=self.log)
        self.write(0, 1)
        self.daemon.scan()

        self.write(2)
        logrotate.rotate()
        self.write(3)
        logrotate.rotate()
        self.write(4)
        self.assertEqual({"messages": [], "vmkernel": [4], "vmkernel.1": [3], "vmkernel.2": [0, 1, 2]},
                         lab.log_files())
        self.daemon.scan()
        self.assert_each_once_and_in_order(range(5), self.lab.reported_numbers())

    def write(self, *numbers):
        lab.append(self.log, *(lab.stamped(lab.numbered(n)) for n in numbers))


del RotationTest  # it has no test of its own

if __name__ == "__main__":
    lab.main(*lab.RSYSLOG, *lab.LOGROTATE)
