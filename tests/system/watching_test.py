"""The daemon looks on its own whenever a log changes, also around the rotations of a busy log.

A rotation and the looks of the daemon come as they come, also a rotation between two steps of one pass
(docs/histories.md).
"""
import time

import lab

ROTATIONS = 12

LINES_PER_SECOND = 3000


class WatchingTest(lab.LabTest):
    interval = lab.USUAL_INTERVAL

    def setUp(self):
        super().setUp()
        self.log = lab.Rsyslog(self.lab)
        self.log.start()
        self.logrotate = lab.Logrotate(self.lab, "create 0644", f"rotate {ROTATIONS}",
                                       after=f"kill -HUP $(cat {self.log.pid_file})")
        self.lab.watch_numbered_lines()
        self.daemon.start()

    def rotate(self):
        self.logrotate.rotate()
        self.log.wait_until_reopened()


class BusyLog(WatchingTest):
    def test_rotations_of_a_busy_log_lose_no_line(self):
        randomness = lab.randomness("when to rotate")
        writer = lab.NumberWriter(self.log, LINES_PER_SECOND)
        self.addCleanup(writer.stop)
        for _ in range(ROTATIONS):
            time.sleep(randomness.uniform(0, 1))
            self.rotate()
        writer.stop()
        self.log.wait_written()
        self.daemon.scan()

        self.assertEqual(1 + ROTATIONS, len(lab.log_files()))
        self.assertGreater(self.log.written, 50 * ROTATIONS, "the writer has stopped")
        self.assert_each_once_and_in_order(range(self.log.written), self.lab.reported_numbers())


class QuietLog(WatchingTest):
    def test_a_line_is_reported_without_a_scan_before_and_after_rotations(self):
        for _ in range(3):
            self.log.write_numbers(1)
            self.wait_until_all_are_reported()
            self.log.write_numbers(1)
            self.rotate()
            self.wait_until_all_are_reported()

    def wait_until_all_are_reported(self):
        self.lab.wait_until("all lines are reported",
                            lambda: len(self.lab.messages()) >= self.log.written)
        self.assertEqual(list(range(self.log.written)), self.lab.reported_numbers())


del WatchingTest  # it has no test of its own

if __name__ == "__main__":
    lab.main(*lab.RSYSLOG, *lab.LOGROTATE)
