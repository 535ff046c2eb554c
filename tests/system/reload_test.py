"""Table reload: the registered events change while lines are written, and no hit is lost or counted twice."""
import threading
import time

import lab

CHANGES = 1000
LINES = 50_000
LINES_PER_SECOND = 4000

# Larger than anything counted here, so the hits of the event are the sum of all that it counted.
NEVER = 1_000_000_000


class Traffic:
    """Sends numbered lines and asks for scans, all the time."""

    def __init__(self, log, daemon):
        self._log = log
        self._daemon = daemon
        self._stop = threading.Event()
        self._threads = [threading.Thread(target=self._write), threading.Thread(target=self._scan)]
        for thread in self._threads:
            thread.start()

    def _write(self):
        while not self._stop.is_set() or self._log.written < LINES:
            self._log.send_numbers(LINES_PER_SECOND // 100)
            time.sleep(0.01)

    def _scan(self):
        randomness = lab.randomness("when to scan")
        while not self._stop.is_set():
            self._daemon.wake()
            time.sleep(randomness.uniform(0.001, 0.05))

    def stop(self):
        self._stop.set()
        for thread in self._threads:
            thread.join()


class ReloadUnderLoad(lab.LabTest):
    def test_a_thousand_changes_of_the_table_lose_no_hit_and_count_none_twice(self):
        log = lab.Rsyslog(self.lab)
        log.start()
        self.lab.watch_numbered_lines()
        self.lab.watch("SEVENTH", 1, lab.NUMBERED, report_count=7)
        self.lab.watch("REWORDED", 1, lab.NUMBERED, report_count=NEVER)
        self.lab.watch("RECOUNTED", 1, lab.NUMBERED, report_count=3)
        self.daemon.start()

        traffic = Traffic(log, self.daemon)
        self.addCleanup(traffic.stop)
        for change in range(CHANGES):
            self.lab.command("event", *self.change(change))
        traffic.stop()
        log.wait_written()
        self.daemon.scan()

        self.assertGreaterEqual(log.written, LINES)
        self.assertGreater(self.lab.trace().count("Monitor Queue Reloaded."), CHANGES // 10)
        self.assert_each_once_and_in_order(range(log.written), self.lab.reported_numbers())
        sevenths = self.lab.reported_numbers("SEVENTH")
        self.assertEqual(list(range(6, log.written, 7)), sevenths)
        self.assertEqual(log.written, 7 * len(sevenths) + self.lab.hits("SEVENTH"))
        self.assertEqual(log.written, self.lab.hits("REWORDED"))
        self.assertEqual([], self.lab.messages("REWORDED"))

    def change(self, number):
        """One change of the table: events come and go before and behind the others, one is worded
        anew (and matches the same lines), one gets another report count."""
        event = f"{number // 4 + 1:X}"
        words = (lab.NUMBERED, "n=", ". ")[:1 + number // 4 % 3]
        return (("add", "COMING-AND-GOING", event, "--keyword", "not in any line"),
                ("set", "REWORDED", "1", *(part for word in words for part in ("--keyword", word))),
                ("set", "RECOUNTED", "1", "--report-count", str(number + 1)),
                ("remove", "COMING-AND-GOING", event))[number % 4]


class Counters(lab.LabTest):
    """What happens to the hits of an event when the table changes."""

    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error", report_count=5)
        self.daemon.start()

    def see(self, text, times=1):
        lab.append(lab.MESSAGES, *[lab.stamped(text)] * times)
        self.daemon.scan()

    def take(self):
        """Returns when the monitor has taken a change: it does so at once."""
        self.lab.wait_for_trace("Monitor Queue Reloaded.", since=self.traced)

    def change(self, *words):
        self.traced = len(self.lab.trace())
        self.lab.command("event", *words)

    def test_a_running_monitor_takes_an_added_event_at_once(self):
        self.change("add", "FAN", "2A", "--keyword", "fan failed")
        self.take()
        self.see("fan failed")
        self.assertEqual(["fan failed"], self.lab.texts("FAN"))

    def test_a_running_monitor_forgets_a_removed_event_at_once(self):
        self.change("remove", "DISK", "1")
        self.take()
        self.see("error", 5)
        self.assertEqual([], self.lab.messages())

    def test_new_keywords_keep_the_hits(self):
        self.see("error", 3)
        self.change("set", "DISK", "1", "--keyword", "failure")
        self.take()
        self.see("error", 3)
        self.assertEqual(3, self.lab.hits("DISK"))
        self.see("failure", 2)
        self.assertEqual(["failure"], self.lab.texts())
        self.assertEqual(0, self.lab.hits("DISK"))

    def test_new_hours_keep_the_hits(self):
        self.see("error", 3)
        self.change("set", "DISK", "1", "--hours", "none")
        self.take()
        self.see("error", 3)
        self.change("set", "DISK", "1", "--hours", "all")
        self.take()
        self.see("error", 1)
        self.assertEqual(4, self.lab.hits("DISK"))

    def test_a_new_report_count_starts_at_no_hits(self):
        self.see("error", 3)
        self.change("set", "DISK", "1", "--report-count", "4")
        self.take()
        self.see("error", 3)
        self.assertEqual(3, self.lab.hits("DISK"))
        self.see("error", 1)
        self.assertEqual(["error"], self.lab.texts())

    def test_an_event_that_is_removed_and_added_later_starts_at_no_hits(self):
        self.see("error", 3)
        self.change("remove", "DISK", "1")
        self.take()
        self.change("add", "DISK", "1", "--keyword", "error", "--report-count", "5")
        self.take()
        self.see("error", 1)
        self.assertEqual(1, self.lab.hits("DISK"))

    def test_the_hits_survive_an_orderly_restart(self):
        self.see("error", 3)
        self.daemon.stop()
        self.daemon.start()
        self.see("error", 1)
        self.assertEqual(4, self.lab.hits("DISK"))

    def test_the_hits_survive_a_kill(self):
        self.see("error", 3)
        self.daemon.kill()
        self.daemon.start()
        self.see("error", 1)
        self.assertEqual(4, self.lab.hits("DISK"))

    def test_a_change_while_the_daemon_is_down_treats_the_hits_like_any_other_change(self):
        self.lab.watch("FAN", 1, "error", report_count=5)
        self.see("error", 3)
        self.daemon.stop()
        self.lab.command("event", "set", "DISK", "1", "--keyword", "failure")
        self.lab.command("event", "set", "FAN", "1", "--report-count", "6")
        self.daemon.start()
        self.see("failure", 1)
        self.see("error", 1)
        self.assertEqual(4, self.lab.hits("DISK"))
        self.assertEqual(1, self.lab.hits("FAN"))


if __name__ == "__main__":
    lab.main(*lab.RSYSLOG)
