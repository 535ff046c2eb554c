"""What the monitor tells about itself: by alerts, once, and not to the sink that it is about."""
import signal

import lab


class Alarms(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.lab.command("set", "alarm-after", "1")

    def wait_for(self, kind):
        self.lab.wait_until(f"an alert of the kind {kind}", lambda: self.lab.own_alerts(kind))

    def test_a_table_that_cannot_be_loaded_is_told_once_over_all_tries_and_restarts(self):
        self.daemon.start()
        self.lab.command("reg", "delete", self.lab.event_key("DISK", 1), "ReportCount")
        self.daemon.child.signal(signal.SIGHUP)
        self.wait_for("table")
        self.lab.wait_until("it was tried twice again", lambda: "again in 4 s" in self.daemon.child.said())
        self.daemon.stop()
        self.daemon.launch()
        self.lab.wait_until("it was tried twice again", lambda: "again in 2 s" in self.daemon.child.said())
        told = self.lab.own_alerts("table")
        self.assertEqual(1, len(told), told)
        self.assertIn("the table of events cannot be loaded", told[0])

    def test_a_failing_sink_is_told_to_the_others_only(self):
        good, bad = self.lab.root / "good", self.lab.root / "missing" / "bad"
        self.lab.command("sink", "add", "file", "good", f"path={good}")
        self.lab.command("sink", "add", "program", "bad", "command=/bin/false")
        self.daemon.start()
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.scan()
        self.wait_for("sink-fails")
        self.lab.wait_until("the other sink has it", lambda: b"the sink bad takes no alerts" in lab.content_of(good))
        # It takes alerts again: the one that waits, and none about itself.
        taken = self.lab.root / "taken"
        program = self.lab.root / "program"
        program.write_text(f"#!/bin/sh\ncat >> {taken}\n")
        program.chmod(0o755)
        self.lab.command("sink", "set", "bad", f"command={program}")
        lab.append(lab.MESSAGES, lab.stamped("error after all"))
        self.daemon.scan()
        self.lab.wait_until("it has all", lambda: b"error after all" in lab.content_of(taken))
        self.assertNotIn(b"takes no alerts", lab.content_of(taken))
        self.assertEqual(1, len(self.lab.own_alerts("sink-fails")))

    def test_a_log_that_cannot_be_read_is_told_with_its_reason(self):
        self.lab.command("set", "customer-file", lab.VAR_LOG / "gone.log")
        self.daemon.start()
        self.wait_for("unreadable")
        self.assertEqual(["/var/log/gone.log cannot be read: No such file or directory"],
                         self.lab.own_alerts("unreadable"))

    def test_a_monitor_that_runs_well_tells_nothing(self):
        self.daemon.start()
        for number in range(3):
            lab.append(lab.MESSAGES, lab.stamped(f"error {number}"))
            self.daemon.look()
        self.daemon.child.signal(signal.SIGHUP)
        self.daemon.look()
        self.daemon.stop()
        self.daemon.start()
        self.assertEqual([], self.lab.alerts(lab.OWN_SOURCE))


if __name__ == "__main__":
    lab.main()
