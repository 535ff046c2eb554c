"""What the monitor has counted, as Prometheus reads it: from the command, from a text file. And the examples that use it."""
import json
import re
import subprocess
import time

import lab

EXAMPLES = lab.SOURCE / "examples"
SAMPLE = re.compile(r"^(\w+)(?:\{(.*)\})? (\S+)$")


def samples(text):
    """By name and labels as they stand there: {("syslogmon_hits_total", 'source="DISK",event_id="1"'): 3.0}"""
    return {(name, labels or ""): float(value)
            for name, labels, value in (SAMPLE.match(line).groups() for line in text.splitlines()
                                        if not line.startswith("#"))}


def promtool(*words, **more):
    return subprocess.run([lab.tools() / "usr" / "bin" / "promtool", *words], capture_output=True, text=True, **more)


class Metrics(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", "1A", "disk", report_count=2)
        self.lab.command("sink", "add", "file", "out", f"path={lab.VAR_LOG / 'out.json'}")
        self.daemon.start()

    def metrics(self):
        return samples(self.lab.command("metrics"))

    def assert_promtool_takes(self, text):
        done = promtool("check", "metrics", input=text)
        self.assertEqual((0, ""), (done.returncode, done.stdout + done.stderr))

    def test_hits_alerts_lines_and_passes_are_counted_across_a_restart(self):
        before = self.metrics()
        lab.append(lab.MESSAGES, *(lab.stamped(f"disk {number}") for number in range(5)))
        lab.append(lab.MESSAGES, lab.stamped("something else"), "no stamp")
        self.daemon.scan()
        found = self.metrics()
        event = 'source="DISK",event_id="1A"'
        log = f'log="{lab.MESSAGES}"'
        self.assertEqual(0, before["syslogmon_hits_total", event], "an event has its series before its first hit")
        self.assertEqual(5, found["syslogmon_hits_total", event])
        self.assertEqual(2, found["syslogmon_alerts_total", event])
        self.assertEqual(7, found["syslogmon_lines_read_total", log] - before.get(("syslogmon_lines_read_total", log), 0))
        self.assertEqual(1, found["syslogmon_lines_without_stamp_total", log])
        self.assertEqual(0, found["syslogmon_unread_bytes", log])
        self.assertEqual(1, found["syslogmon_up", ""])
        self.assertGreater(found["syslogmon_last_pass_timestamp_seconds", ""], 1.7e9)

        self.daemon.kill()
        stopped = self.metrics()
        self.assertEqual(0, stopped["syslogmon_up", ""])
        self.daemon.start()
        lab.append(lab.MESSAGES, lab.stamped("disk 5"))
        self.daemon.scan()
        found = self.metrics()
        self.assertEqual(6, found["syslogmon_hits_total", event])
        self.assertEqual(3, found["syslogmon_alerts_total", event])
        self.assertGreater(found["syslogmon_pass_seconds_count", ""], 1)

    def test_what_is_unread_is_told_while_the_daemon_is_stopped(self):
        line = lab.stamped("something else")
        self.daemon.stop()
        look = self.metrics()["syslogmon_last_pass_timestamp_seconds", ""]
        self.assertGreater(look, 1.7e9, "of the daemon that has gone")
        lab.append(lab.MESSAGES, line)
        found = self.metrics()
        self.assertEqual(len(line) + 1, found["syslogmon_unread_bytes", f'log="{lab.MESSAGES}"'])
        self.assertAlmostEqual(time.time() - look, found["syslogmon_behind_seconds", f'log="{lab.MESSAGES}"'], delta=60)
        self.assertNotIn(("syslogmon_monitor_restarts", ""), found)
        for status in self.lab.root.rglob("status.json"):
            status.unlink() # as a boot does
        self.assertNotIn(("syslogmon_last_pass_timestamp_seconds", ""), self.metrics())
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")
        lab.append(lab.MESSAGES, line, line)
        self.assertEqual(2 * (len(line) + 1), self.metrics()["syslogmon_unread_bytes", f'log="{lab.MESSAGES}"'],
                         "of a rotated log, the new file")

    def test_promtool_has_nothing_to_say(self):
        self.lab.watch('a "quoted" name', 2, "word")
        lab.append(lab.MESSAGES, lab.stamped("disk"), lab.stamped("disk"))
        self.daemon.scan()
        self.assert_promtool_takes(self.lab.command("metrics"))

    def test_a_text_file_is_replaced_whole_and_others_may_read_it(self):
        target = self.lab.folder / "syslogmon.prom"
        self.lab.command("metrics", "--textfile", target)
        first = target.stat()
        self.assertEqual(0o644, first.st_mode & 0o777)
        with open(target) as reader:
            self.lab.command("metrics", "--textfile", target)
            self.assertNotEqual(first.st_ino, target.stat().st_ino)
            self.assert_promtool_takes(reader.read())
        self.assert_promtool_takes(target.read_text())
        self.assertEqual([target.name], [path.name for path in self.lab.folder.glob("*prom*")])

    def test_a_text_file_that_cannot_be_written_is_an_error(self):
        target = self.lab.folder / "missing" / "syslogmon.prom"
        done = self.lab.run("metrics", "--textfile", target)
        self.assertEqual(1, done.returncode)
        self.assertEqual(f"syslogmon: cannot write {target}: No such file or directory; make its folder writable, "
                         "make room, or name another file\n", done.stderr)
        # As of a variable that is not set, in a script.
        done = self.lab.run("metrics", "--textfile", "")
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertIn("name another file", done.stderr)


class Examples(lab.LabTest):
    def names(self):
        """Of all metrics, with what a histogram adds."""
        text = self.lab.command("metrics")
        found = set(re.findall(r"^# TYPE (\w+)", text, re.MULTILINE))
        histograms = re.findall(r"^# TYPE (\w+) histogram", text, re.MULTILINE)
        return found | {name + suffix for name in histograms for suffix in ("_bucket", "_sum", "_count")}

    def assert_names_are_there(self, expression):
        used = set(re.findall(r"\bsyslogmon_\w+", expression))
        self.assertTrue(used, expression)
        self.assertEqual(set(), used - self.names(), expression)

    def test_the_alert_rules_come_to_what_their_test_says(self):
        rules = EXAMPLES / "prometheus"
        for words in (("check", "rules", "rules.yml"), ("test", "rules", "rules_test.yml")):
            done = promtool(*words, cwd=rules)
            self.assertEqual(0, done.returncode, done.stdout + done.stderr)
        for expression in re.findall(r"expr: (.*(?:\n {10}.*)*)", (rules / "rules.yml").read_text()):
            self.assert_names_are_there(expression)

    def test_the_page_about_metrics_names_each_and_no_other(self):
        page = (lab.SOURCE / "docs" / "metrics.md").read_text()
        listed = re.findall(r"^\| `(syslogmon_\w+)` \| (\w+) \| [^|]*\| ([^|]*) \|$", page, re.MULTILINE)
        text = self.lab.command("metrics")
        told = re.findall(r"^# HELP (\w+) (.*)\n# TYPE \w+ (\w+)$", text, re.MULTILINE)
        self.assertGreater(len(told), 20)
        self.assertEqual([(name, kind, words) for name, words, kind in told], listed)

    def test_the_dashboard_asks_for_metrics_that_are_there(self):
        dashboard = json.loads((EXAMPLES / "grafana" / "dashboard.json").read_text())
        expressions = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
        self.assertGreater(len(expressions), 10)
        for expression in expressions:
            self.assert_names_are_there(expression)


if __name__ == "__main__":
    lab.main("prometheus")
