"""Settings and signals: a running daemon takes them within a second."""
import signal
import time

import lab

AGENT_KEY = r"SOFTWARE\KORBIN\TARSKVOSKAR\AGENT"
FILE_MONITOR_KEY = lab.MONITOR_KEY + r"\FILEMONITOR"
OTHER_LOG = lab.VAR_LOG / "other.log"
TARGET = lab.VAR_LOG / "target.log"


class SettingsTest(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        lab.append(OTHER_LOG, lab.stamped("error before it was watched"))
        lab.append(TARGET, "error without a time stamp")
        self.lab.watch("DISK", 1, "error")
        self.daemon.start()
        self.traced = len(self.lab.trace())

    def see(self, text, path=lab.MESSAGES):
        lab.append(path, lab.stamped(text))
        self.daemon.scan()

    def wait_for_trace(self, text):
        self.lab.wait_for_trace(text, since=self.traced)

    def change(self, *words):
        """Changes a setting, and returns when the monitor was woken by that and rests again."""
        passes = self.daemon.passes()
        self.lab.command(*words)
        self.lab.wait_until("the monitor has taken it", lambda: self.daemon.passes() > passes)


class Cycle(SettingsTest):
    def test_a_new_cycle_is_taken_at_once_and_scans_without_being_asked(self):
        self.assertEqual("300\n", self.lab.command("get", "cycle"))
        self.change("set", "cycle", "10")
        self.wait_for_trace("cycle changed to 10")
        began = time.monotonic()

        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.lab.wait_until("the line is reported", lambda: self.lab.texts() == ["error"])
        self.assertGreater(time.monotonic() - began, 9)
        self.assertEqual("cycle", self.lab.status()["last_pass"]["kind"])

    def test_a_cycle_out_of_range_is_refused_and_changes_nothing(self):
        for cycle in ("9", "3601", "-10", "1e2", "soon"):
            refused = self.lab.run("set", "cycle", "--", cycle)
            self.assertEqual(1, refused.returncode)
            self.assertIn("10 to 3600", refused.stderr)
        self.assertEqual("300\n", self.lab.command("get", "cycle"))

    def test_a_setting_that_was_changed_while_the_daemon_was_down_is_taken_at_the_start(self):
        self.daemon.stop()
        self.lab.command("set", "cycle", "20")
        self.daemon.start()
        self.wait_for_trace("cycle changed to 20")


class CustomerFile(SettingsTest):
    def test_it_is_watched_from_its_end_as_soon_as_it_is_set(self):
        self.change("set", "customer-file", OTHER_LOG)
        self.wait_for_trace(f"customer monitoring file changed to {OTHER_LOG}")
        self.see("error in the customer file", OTHER_LOG)
        self.see("error in the system log")
        self.assertEqual(["error in the customer file", "error in the system log"], self.lab.texts())

    def test_it_is_forgotten_as_soon_as_it_is_taken_away(self):
        self.change("set", "customer-file", OTHER_LOG)
        self.change("set", "customer-file", "")
        self.see("error in the customer file", OTHER_LOG)
        self.see("error in the system log")
        self.assertEqual(["error in the system log"], self.lab.texts())

    def test_another_one_is_watched_from_its_end(self):
        self.change("set", "customer-file", OTHER_LOG)
        third_log = lab.VAR_LOG / "third.log"
        lab.append(third_log, lab.stamped("error before it was watched"))
        self.change("set", "customer-file", third_log)
        self.see("error in the file before", OTHER_LOG)
        self.see("error in the file of now", third_log)
        self.assertEqual(["error in the file of now"], self.lab.texts())

    def test_it_is_read_on_after_a_restart(self):
        self.change("set", "customer-file", OTHER_LOG)
        self.daemon.kill()
        lab.append(OTHER_LOG, lab.stamped("error while the daemon was down"))
        self.daemon.start()
        self.assertEqual(["error while the daemon was down"], self.lab.texts())


class FileMonitorTarget(SettingsTest):
    def test_it_is_read_as_soon_as_it_is_set(self):
        self.change("set", "file-monitor", TARGET)
        self.assertEqual(["error without a time stamp"], self.lab.messages())
        self.assertEqual("file-monitor", self.lab.status()["last_pass"]["kind"])


class OtherSettings(SettingsTest):
    def test_keywords_become_regular_expressions_on_a_fault_tolerant_server(self):
        self.lab.watch("PATTERN", 1, "fan [0-9]+ failed")
        self.see("fan 12 failed")
        self.lab.command("set", "fault-tolerant", "on")
        self.lab.wait_for_trace("Syslog monitor service start", since=self.traced)
        self.see("fan 13 failed")
        self.assertEqual(["fan 13 failed"], self.lab.texts())
        self.assertEqual(0, self.lab.status()["restarts"])


class EverySetting(SettingsTest):
    """Each setting, with all that follows from it, is taken by the daemon that runs."""

    def setUp(self):
        super().setUp()
        self.lab.watch("PATTERN", 1, "fan [0-9]+ failed")
        self.lab.watch("WIDE", 1, "größe")

    def test_no_setting_needs_a_restart(self):
        # Of each, a value that is not its default, and what shows that it counts.
        proofs = {
            "cycle": ("1234", self.cycle_counts),
            "customer-file": (OTHER_LOG, self.customer_file_counts),
            "file-monitor": (TARGET, self.file_monitor_counts),
            "log-charset": ("ISO-8859-1", self.charset_counts),
            "fault-tolerant": ("on", self.fault_tolerance_counts),
            "trigger-interval": ("50", self.interval_counts),
            "trace-level": ("detail", self.level_counts),
            "web": (self.lab.root / "run" / "web.sock", (self.lab.root / "run" / "web.sock").exists),
        }
        # Of inputs, which there are none of here: it is read with each batch of theirs. And of the alarms, which read
        # theirs with each look: alarm_test.py has them.
        # The limits of the alerts show when they are reached: sinks.DeliveryTest has them.
        others = {"spool-megabytes", "alarm-after", "silent-after", "alert-limit", "alert-megabytes"}
        self.assertEqual(set(self.lab.json("get")["settings"]), set(proofs) | others, "a setting is not tried here")
        for name, (value, counts) in proofs.items():
            with self.subTest(name):
                self.lab.command("set", name, value)
                self.lab.wait_until(f"{name} counts", counts)
        self.assertEqual(self.daemon.pid, self.lab.status()["pid"])
        self.assertEqual(0, self.lab.status()["restarts"])

    def cycle_counts(self):
        return "cycle changed to 1234" in self.lab.trace()

    def customer_file_counts(self):
        self.see("error in the customer file", OTHER_LOG)
        return "error in the customer file" in self.lab.texts()

    def file_monitor_counts(self):
        return "error without a time stamp" in self.lab.messages()

    def charset_counts(self):
        with open(lab.MESSAGES, "ab") as log:
            log.write((lab.stamped("die größe fehlt") + "\n").encode("iso-8859-1"))
        self.daemon.scan()
        return "die größe fehlt" in self.lab.texts("WIDE")

    def fault_tolerance_counts(self):
        self.see("fan 13 failed")
        return "fan 13 failed" in self.lab.texts("PATTERN")

    def interval_counts(self):
        lab.append(lab.MESSAGES, lab.stamped("error that nobody asks for"))
        return any("that nobody asks for" in message for message in self.lab.messages())

    def level_counts(self):
        self.daemon.scan()
        return " detail vkevmon " in self.lab.trace()


class Signals(SettingsTest):
    def test_sigusr1_scans_now(self):
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.wake()
        self.lab.wait_until("the line is reported", lambda: self.lab.texts() == ["error"])

    def test_sighup_takes_whatever_was_changed_in_the_registry(self):
        # Unlike its other verbs, reg does not tell the daemon.
        self.lab.command("reg", "set", lab.MONITOR_KEY, "CYCLE", "1800", "--type", "dword")
        self.lab.command("reg", "set", lab.MONITOR_KEY, "FILENAME", OTHER_LOG)
        self.lab.command("reg", "set", FILE_MONITOR_KEY, "FILENAME", TARGET)
        self.lab.command("reg", "set", self.lab.event_key("DISK", 1), "KeyWord", "failure")
        self.lab.command("reg", "set", AGENT_KEY, "TraceLevel", "0", "--type", "dword")
        passes = self.daemon.passes()
        lab.append(lab.MESSAGES, lab.stamped("error"), lab.stamped("failure"))
        lab.append(TARGET, "failure without a time stamp")

        self.daemon.child.signal(signal.SIGHUP)
        self.wait_for_trace("Monitor Queue Reloaded.")
        self.wait_for_trace("cycle changed to 1800")
        self.wait_for_trace(" detail vkevmon ")
        self.wait_for_trace(f"customer monitoring file changed to {OTHER_LOG}")
        self.lab.wait_until("all four were taken", lambda: self.daemon.passes() == passes + 4)
        self.see("failure", OTHER_LOG)
        reported = [message.split("test: ")[-1] for message in self.lab.messages()]
        self.assertEqual(["failure", "failure without a time stamp", "failure"], reported)


del SettingsTest  # it has no test of its own

if __name__ == "__main__":
    lab.main()
