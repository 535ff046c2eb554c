"""The daemon looks on its own, whenever the log changes: while logrotate renames files, too."""
import threading
import time

import lab

ROTATIONS = 300

LINES_PER_SECOND = 3000


class Writer:
    """Sends numbered lines to rsyslogd all the time."""

    def __init__(self, log):
        self._log = log
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def _run(self):
        while not self._stop.is_set():
            self._log.send_numbers(LINES_PER_SECOND // 100)
            time.sleep(0.01)

    def stop(self):
        self._stop.set()
        self._thread.join()


class Rotations(lab.LabTest):
    interval = 1

    def test_rotations_of_a_busy_log_lose_no_line(self):
        randomness = lab.randomness("when to rotate")
        log = lab.Rsyslog(self.lab)
        log.start()
        logrotate = lab.Logrotate(self.lab, "create 0644", "rotate 400",
                                  after=f"kill -HUP $(cat {log.pid_file})")
        self.lab.watch_numbered_lines()
        self.daemon.start()
        writer = Writer(log)
        self.addCleanup(writer.stop)
        for _ in range(ROTATIONS):
            time.sleep(randomness.uniform(0, 0.1))
            logrotate.rotate()
            log.wait_until_reopened()
        writer.stop()
        log.wait_written()
        self.daemon.scan()
        self.assert_each_once_and_in_order(range(log.written), self.lab.reported_numbers())


if __name__ == "__main__":
    lab.main(*lab.RSYSLOG, *lab.LOGROTATE)
