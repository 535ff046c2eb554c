"""SIGKILL at random moments while lines are written and rotated: each line still counts exactly once."""
import time

import lab

KILLS = 120

LINES_PER_SECOND = 3000


class Killing(lab.LabTest):
    def setUp(self):
        super().setUp()
        self.random = lab.randomness("when to kill")
        self.log = lab.Rsyslog(self.lab)
        self.log.start()
        self.logrotate = lab.Logrotate(self.lab, "create 0644",
                                       after=f"kill -HUP $(cat {self.log.pid_file})")
        self.lab.watch_numbered_lines()
        self.lab.watch("SEVENTH", 1, lab.NUMBERED, report_count=7)

    def test_each_line_counts_once_however_often_the_daemon_is_killed(self):
        # The first start finds the end of the log; everything behind it counts.
        self.daemon.start()
        self.daemon.stop()
        typical = self.time_of_a_start()

        writer = lab.NumberWriter(self.log, LINES_PER_SECOND)
        self.addCleanup(writer.stop)
        killed_before_the_first_pass_was_stored = 0
        for life in range(KILLS):
            self.live_a_while(typical)
            killed_before_the_first_pass_was_stored += self.daemon.passes() == 0
            # No pass runs while files are renamed: where the monitor stands is looked up in the files
            # once, at the beginning of a pass.
            if life % 10 == 4:
                self.rotate()
            if life % 10 == 9:
                self.daemon.start()
                self.rotate()
                self.wake_and_kill()
            if life % 40 == 39:
                self.rotate()
                self.rotate()
        writer.stop()
        self.log.wait_written()
        self.daemon.start()
        self.daemon.scan()

        self.assertGreater(self.log.written, 50 * KILLS, "the writer has stopped")
        lines = range(self.log.written)
        files = lab.log_files()
        self.assertEqual(1 + KILLS // 10 * 2 + KILLS // 40 * 2, len(files))
        self.assertEqual(list(lines), sorted(n for numbers in files.values() for n in numbers))
        self.assert_each_once_and_in_order(lines, self.lab.reported_numbers())
        sevenths = self.lab.reported_numbers("SEVENTH")
        self.assertEqual(list(range(6, self.log.written, 7)), sevenths)
        self.assertEqual(self.log.written, 7 * len(sevenths) + self.lab.hits("SEVENTH"))
        self.assertGreater(killed_before_the_first_pass_was_stored, KILLS // 10)

    def time_of_a_start(self):
        """Seconds from the start to the end of the first pass."""
        began = time.monotonic()
        self.daemon.start()
        took = time.monotonic() - began
        self.daemon.kill()
        return took

    def live_a_while(self, typical):
        """Starts the daemon, and kills it before, in or after its first passes."""
        self.daemon.launch()
        time.sleep(self.random.uniform(0, 2 * typical))
        if self.random.random() < 0.5:
            self.wake_and_kill()
        self.daemon.kill()

    def wake_and_kill(self):
        self.daemon.wake()
        time.sleep(self.random.uniform(0, 0.02))
        self.daemon.kill()

    def rotate(self):
        self.logrotate.rotate()
        self.log.wait_until_reopened()

    def test_a_kill_in_the_middle_of_a_long_pass_leaves_nothing_of_that_pass(self):
        self.daemon.start()
        self.log.write_numbers(100)
        self.daemon.scan()
        self.daemon.kill()
        self.log.write_numbers(60_000)
        for _ in range(5):
            traced = len(self.lab.trace())
            self.daemon.launch()
            self.lab.wait_for_trace("numbered n=100.", since=traced)
            time.sleep(self.random.uniform(0, 0.1))
            self.daemon.kill()
            self.assertEqual(0, self.daemon.passes(), "the pass was over before the kill")
            self.assertEqual(list(range(100)), self.lab.reported_numbers())
            self.assertEqual(2, self.lab.hits("SEVENTH"))

        self.daemon.start()
        self.assert_each_once_and_in_order(range(60_100), self.lab.reported_numbers())
        self.assertEqual(list(range(6, 60_100, 7)), self.lab.reported_numbers("SEVENTH"))
        self.assertEqual(60_100 % 7, self.lab.hits("SEVENTH"))


if __name__ == "__main__":
    lab.main(*lab.RSYSLOG, *lab.LOGROTATE)
