"""What the monitor passes over by its rules, it tells: which file, which part of it, how many lines. And nothing else."""
import gzip
import shutil

import lab

FIRST = lab.VAR_LOG / "messages.1"
TARGET = lab.VAR_LOG / "application.log"
ROTATED = lab.VAR_LOG / "application.log.1"


class Losses(lab.LabTest):
    def setUp(self):
        super().setUp()
        # No pass but those that are asked for.
        self.lab.command("set", "trigger-interval", "0")
        self.write("the log begins")
        self.lab.watch("ERROR", 1, "error")
        self.daemon.start()

    def write(self, *texts):
        lab.append(lab.MESSAGES, *(lab.stamped(text) for text in texts))

    def told(self):
        return self.lab.own_alerts("loss")

    def assert_told(self, *parts):
        told = self.told()
        self.assertEqual(len(parts), len(told), told)
        for part, message in zip(parts, told):
            self.assertIn(part, message)

    def test_a_rotation_that_is_followed_is_no_loss(self):
        for number in range(5):
            self.write(f"error {number}, before the rotation")
            lab.MESSAGES.rename(FIRST)
            self.write(f"error {number}, behind it")
            self.daemon.look()
            FIRST.unlink()
        self.assertEqual(10, len(self.lab.alerts("ERROR")))
        self.assert_told()
        # The series is there from the beginning, so that its first loss is seen as a rise.
        self.assertIn('syslogmon_losses_total{log="/var/log/messages"} 0', self.lab.command("metrics").splitlines())

    def test_a_log_that_is_compressed_at_once_is_told_with_its_lines(self):
        self.write("error 1", "error 2", "error 3")
        with gzip.open(lab.VAR_LOG / "messages.1.gz", "wb") as archive:
            archive.write(lab.MESSAGES.read_bytes())
        lab.MESSAGES.unlink()
        self.write("the next log", "error 4")
        self.daemon.look()
        self.assertEqual([], self.lab.alerts("ERROR"))
        self.assert_told("/var/log/messages: 3 lines", "/var/log/messages: 2 lines (bytes 0 to ")
        metrics = self.lab.command("metrics").splitlines()
        self.assertIn('syslogmon_losses_total{log="/var/log/messages"} 2', metrics)
        self.assertIn('syslogmon_lines_passed_over_total{log="/var/log/messages"} 5', metrics)
        self.assertIn('syslogmon_alerts_total{source="SYSLOGMON",event_id="1"} 2', metrics)

    def test_a_backup_of_another_name_is_told_with_its_lines(self):
        self.write("error 1", "error 2")
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.old")
        self.write("the next log")
        self.daemon.look()
        self.assert_told(": 2 lines", ": 1 line (bytes 0 to ")

    def test_what_is_written_between_an_emptying_and_the_next_pass_is_told(self):
        lab.MESSAGES.write_bytes(b"")
        self.write("error 1", "error 2")
        self.daemon.look()
        self.assert_told("/var/log/messages: 2 lines (bytes 0 to ")

    def write_too_late(self):
        """To a log that the monitor has left, to go on to the next one."""
        with open(lab.MESSAGES, "ab", buffering=0) as late:
            lab.MESSAGES.rename(FIRST)
            self.write("the next log")
            self.daemon.look()
            late.write(lab.stamped("error, too late").encode() + b"\n")

    def test_what_is_written_to_a_log_that_was_left_is_told(self):
        self.write_too_late()
        self.daemon.look()
        self.assertEqual([], self.lab.alerts("ERROR"))
        self.assert_told("messages: 1 line")

    def test_what_is_told_when_only_the_table_was_read_is_not_told_again_after_a_restart(self):
        self.write_too_late()
        self.lab.watch("OTHER", 2, "another word")
        self.lab.wait_until("it is told", self.told)
        self.daemon.kill()
        self.daemon.start()
        self.assert_told("messages: 1 line")

    def test_a_loss_while_the_monitor_was_stopped_is_told_at_the_next_start(self):
        self.daemon.stop()
        self.write("error 1", "error 2")
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.old")
        self.write("the next log")
        self.daemon.start()
        self.assert_told("messages.old: 2 lines", "/var/log/messages: 1 line (bytes 0 to ")
        self.daemon.stop()
        self.daemon.start()
        self.assertEqual(2, len(self.told()), "a restart tells nothing again")

    def test_a_pass_that_is_killed_tells_nothing_twice(self):
        self.write("error 1")
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.old")
        self.write("the next log")
        self.daemon.kill()
        self.daemon.start()
        self.assertEqual(2, len(self.told()))

    def test_a_log_that_has_lost_its_end_is_read_on_without_a_word_when_nothing_is_lost(self):
        self.write("error 1", "error 2")
        self.daemon.scan()
        self.daemon.kill()
        whole = lab.MESSAGES.read_bytes()
        lab.MESSAGES.write_bytes(whole[:whole.rindex(b"\n", 0, -1) + 1])
        self.daemon.start()
        self.assertEqual(2, len(self.lab.alerts("ERROR")))
        self.assert_told()

    def test_zero_bytes_in_place_of_a_lost_end_are_no_loss(self):
        self.write("error 1", "error 2")
        self.daemon.scan()
        self.daemon.kill()
        whole = lab.MESSAGES.read_bytes()
        kept = whole[: whole.rindex(b"\n", 0, -1) + 1]
        lab.MESSAGES.write_bytes(kept.ljust(len(whole), b"\0"))
        self.daemon.start()
        self.daemon.scan()
        self.assertEqual(2, len(self.lab.alerts("ERROR")))
        self.assert_told()

    def test_lines_that_take_the_place_of_a_lost_end_are_told_when_they_are_passed_over(self):
        kept = lab.MESSAGES.read_bytes()
        stamp = lab.stamped("")
        lab.append(lab.MESSAGES, stamp + "error 1, which the disk never had")
        self.daemon.scan()
        self.daemon.kill()
        # Of the same second, and so taken for what stood there.
        lab.MESSAGES.write_bytes(kept)
        self.daemon.launch()
        self.daemon.wait_at_rest()
        lab.append(lab.MESSAGES, stamp + "error 2")
        self.daemon.look()
        reported = len(self.lab.alerts("ERROR"))
        self.assertEqual(2 - reported, len(self.told()), self.told())

    def test_the_first_start_tells_nothing(self):
        self.assert_told()


class LossesOfTheTarget(lab.LabTest):
    """The file monitor follows its target by inode and offset alone, and so passes over more."""

    def setUp(self):
        super().setUp()
        self.lab.command("set", "trigger-interval", "0")
        lab.append(TARGET, "held error 0 when it was named")
        self.lab.watch("ERROR", 1, "error")
        self.lab.command("set", "file-monitor", TARGET)
        self.daemon.start()

    def assert_told(self, *parts):
        told = self.lab.own_alerts("loss")
        self.assertEqual(len(parts), len(told), told)
        for part, message in zip(parts, told):
            self.assertIn(part, message)

    def test_nothing_is_told_of_what_is_read(self):
        lab.append(TARGET, "error 1")
        self.daemon.look()
        TARGET.rename(ROTATED)
        lab.append(TARGET, "error 2")
        self.daemon.look()
        self.daemon.stop()
        lab.append(TARGET, "error 3")
        self.daemon.start()
        self.assertEqual(4, len(self.lab.alerts("ERROR")))
        self.assert_told()

    def test_what_is_unread_when_it_is_rotated_is_told_with_its_lines(self):
        lab.append(TARGET, "error 1", "error 2")
        TARGET.rename(ROTATED)
        lab.append(TARGET, "error 3")
        self.daemon.look()
        self.assertEqual(2, len(self.lab.alerts("ERROR")))
        self.assert_told(f"{TARGET}: 2 lines (bytes 31 to 47) were passed over: the monitor has gone on to a newer file")
        self.assertIn(f'syslogmon_lines_passed_over_total{{log="{TARGET}"}} 2', self.lab.command("metrics").splitlines())

    def test_what_comes_between_its_truncation_and_the_next_pass_is_told(self):
        shutil.copy(TARGET, ROTATED)
        TARGET.write_bytes(b"")
        lab.append(TARGET, "error 1")
        self.daemon.look()
        self.assertEqual(1, len(self.lab.alerts("ERROR")))
        self.assert_told(f"{TARGET}: 1 line (bytes 0 to 8) was passed over")

    def test_new_lines_that_make_up_its_old_size_are_told(self):
        TARGET.write_bytes(b"")
        lab.append(TARGET, "the error 0 when it was renamed")
        self.daemon.look()
        self.assert_told(f"{TARGET}: 1 line (bytes 0 to 31) was passed over")

    def test_what_is_unread_when_it_is_rotated_while_the_monitor_is_stopped_is_told(self):
        self.daemon.stop()
        lab.append(TARGET, "error 1", "error 2")
        TARGET.rename(ROTATED)
        lab.append(TARGET, "error 3")
        self.daemon.start()
        self.assert_told(f"{ROTATED}: 2 lines")
        self.daemon.stop()
        self.daemon.start()
        self.assertEqual(1, len(self.lab.own_alerts("loss")), "a restart tells nothing again")

    def test_nothing_is_told_of_one_target_when_another_is_named(self):
        lab.append(TARGET, "error 1")
        lab.append(ROTATED, "error 2")
        self.lab.command("set", "file-monitor", ROTATED)
        self.daemon.scan()
        self.assert_told()


if __name__ == "__main__":
    lab.main()
