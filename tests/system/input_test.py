"""Inputs: files of other forms and the journal count like lines of the system log, each once, however often the
daemon is killed and the files are rotated."""
import gzip
import json
import os
import re
import shutil
import socket
import subprocess
import threading
import time
from pathlib import Path

import lab

KILLS = 15
# Of 400, the first files of some come just while the journal is read.
USERS = 400
JOURNALD = "/lib/systemd/systemd-journald"


def iso(number, tag="app[7]"):
    """A numbered line as rsyslog writes it unless told otherwise."""
    stamp = time.strftime("%Y-%m-%dT%H:%M:%S.123456%z")
    return f"{stamp[:-2]}:{stamp[-2:]} web07 {tag}: {lab.numbered(number)}"


class Inputs(lab.LabTest):
    def setUp(self):
        super().setUp()
        self.random = lab.randomness("inputs")
        self.lab.watch_numbered_lines()
        self.log = lab.VAR_LOG / "app.log"
        self.log.touch()
        self.written = 0

    def add_files(self, *options):
        self.lab.command("input", "add", "files", "app", f"path={lab.VAR_LOG}/app.log", *options)

    def write(self, count):
        lab.append(self.log, *(iso(n) for n in range(self.written, self.written + count)))
        self.written += count

    def wait_for_all(self):
        self.lab.wait_until("all lines are reported",
                            lambda: len(self.lab.reported_numbers()) >= self.written)
        self.assert_each_once(range(self.written), self.lab.reported_numbers())

    def test_lines_with_iso_stamps_are_reported_with_their_host_and_program(self):
        self.daemon.start()
        self.add_files()
        self.write(3)
        self.wait_for_all()
        alert = self.lab.alerts("EACH")[0]
        self.assertEqual((str(self.log), "web07", "app"),
                         (alert["log"], alert["line_host"], alert["program"]))
        self.assertIn("web07 app[7]: numbered n=0.", alert["message"])

    def test_what_was_written_before_the_input_was_added_is_passed_over(self):
        lab.append(self.log, iso(99))
        self.add_files()
        self.daemon.start()
        self.write(1)
        self.wait_for_all()

    def test_each_line_counts_once_through_kills_and_rotations(self):
        self.add_files()
        for life in range(KILLS):
            self.daemon.launch()
            for _ in range(self.random.randint(1, 4)):
                self.write(self.random.randint(1, 500))
                time.sleep(self.random.random() * 0.1)
                self.rotate(self.random.choice(["no", "rename", "copy", "gzip"]))
            time.sleep(self.random.random() * 0.2)
            self.daemon.kill()
            self.write(self.random.randint(1, 200))
            self.rotate(self.random.choice(["no", "rename", "copy", "gzip"]))
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def rotate(self, how):
        if how == "no":
            return
        kept = lab.VAR_LOG / f"app.log-{20000000 + self.written}"
        if kept.exists():
            return
        if how == "rename":
            self.log.rename(kept)
            self.log.touch()
        elif how == "copy":
            shutil.copyfile(self.log, kept)
            os.truncate(self.log, 0)
        else:
            data = self.log.read_bytes()
            self.log.rename(kept)
            self.log.touch()
            part = kept.with_name("app.part")
            part.write_bytes(gzip.compress(data))
            part.rename(kept.with_name(kept.name + ".gz"))
            kept.unlink()

    def test_no_words_of_a_stranger_hide_a_line_or_make_one_count(self):
        self.lab.watch("LOGIN", 1, "Failed password")
        self.lab.watch("MANY", 2, "Failed password", report_count=1000)
        self.daemon.start()
        self.add_files()
        for user in ("bob", "TARSKvkvmain", "last message repeated 1 times"):
            lab.append(self.log, lab.stamped(f"Failed password for invalid user {user}"))
        lab.append(self.log, lab.stamped("last message repeated 2000000000 times"))
        self.write(1)
        self.wait_for_all()
        self.assertEqual(["Failed password for invalid user bob",
                          "Failed password for invalid user TARSKvkvmain",
                          "Failed password for invalid user last message repeated 1 times"],
                         self.lab.texts("LOGIN"))
        self.assertEqual(3, self.lab.hits("MANY", 2))

    def test_repeats_of_rsyslog_count(self):
        self.lab.watch("DISK", 1, "disk failure", report_count=30)
        self.daemon.start()
        self.add_files()
        lab.append(self.log, lab.stamped("disk failure"),
                   lab.stamped("message repeated 29 times: [ disk failure]"))
        self.lab.wait_until("the repeats are counted", lambda: self.lab.alerts("DISK"))
        self.assertEqual(0, self.lab.hits("DISK"))

    def test_repeats_count_once_where_the_input_says_that_nobody_folds_them(self):
        self.lab.watch("DISK", 1, "disk failure", report_count=30)
        self.daemon.start()
        self.add_files("repeats=no")
        lab.append(self.log, lab.stamped("disk failure"),
                   lab.stamped("message repeated 1000000 times: [ disk failure]"))
        self.write(1)
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("DISK"))
        self.assertEqual(2, self.lab.hits("DISK"))

    def test_a_reload_of_everything_passes_over_nothing(self):
        self.add_files()
        self.daemon.start()
        for _ in range(20):
            self.write(50)
            self.daemon.child.signal(1)
            time.sleep(0.02)
        self.wait_for_all()

    def test_removing_the_last_input_takes_the_spool_away_from_the_monitor(self):
        self.add_files()
        self.daemon.start()
        self.write(1)
        self.wait_for_all()
        self.lab.command("input", "remove", "app")
        self.lab.wait_until("the monitor has no customer file",
                            lambda: self.lab.run("get", "customer-file").stdout.find("spool") < 0)
        lab.append(self.log, iso(5))
        # Of a monitor that has just begun anew: the passes of the one before it do not count.
        self.lab.run("scan", "--wait")
        self.assertEqual(1, len(self.lab.reported_numbers()))

    def test_the_customer_file_counts_each_line_once_while_inputs_come_and_go(self):
        other = lab.VAR_LOG / "other.log"
        lab.append(self.log, lab.stamped("before it was set"))
        self.lab.command("set", "customer-file", str(self.log))
        self.daemon.start()
        self.lab.wait_until("it is the monitor's", lambda: self.customer_file_of_module() == str(self.log))
        for life in range(6):
            self.write_stamped(50)
            self.lab.command("input", "add", "files", "other", f"path={other}")
            self.write_stamped(50)
            if life % 2:
                self.daemon.kill()
                self.write_stamped(50)
                self.daemon.start()
            self.lab.wait_until("the spool is the monitor's",
                                lambda: self.customer_file_of_module().endswith("/spool"))
            self.assertEqual(str(self.log), self.lab.run("get", "customer-file").stdout.strip())
            self.write_stamped(50)
            self.rotate_stamped(life)
            self.write_stamped(50)
            self.lab.command("input", "remove", "other")
            self.write_stamped(50)
            self.lab.wait_until("it is the monitor's again",
                                lambda: self.customer_file_of_module() == str(self.log))
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))
        self.assertEqual(0, self.lab.status()["restarts"])

    def write_stamped(self, count):
        """As the module takes them itself."""
        lab.append(self.log, *(lab.stamped(lab.numbered(n)) for n in range(self.written, self.written + count)))
        self.written += count

    def rotate_stamped(self, number):
        self.log.rename(lab.VAR_LOG / f"app.log-2026{number:04}")
        self.log.touch()

    def customer_file_of_module(self):
        return self.lab.run("reg", "get", lab.MONITOR_KEY, "FILENAME").stdout.strip()

    def test_a_customer_file_that_is_set_while_there_are_inputs_is_one_of_them(self):
        self.add_files()
        self.daemon.start()
        other = lab.VAR_LOG / "other.log"
        lab.append(other, lab.stamped("before it was set"))
        self.lab.command("set", "customer-file", str(other))
        self.lab.wait_until("it is an input", lambda: "customer-file" in self.lab.command("input", "list"))
        self.write(2)
        lab.append(other, lab.stamped(lab.numbered(2)))
        self.written = 3
        self.wait_for_all()
        self.lab.command("set", "customer-file", "")
        self.lab.wait_until("it is none", lambda: "customer-file" not in self.lab.command("input", "list"))
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_status_and_doctor_show_each_input_with_what_is_wrong(self):
        lab.append(lab.MESSAGES, lab.stamped("first"))
        self.add_files()
        self.daemon.start()
        self.write(2)
        self.wait_for_all()
        (lab.VAR_LOG / "pipe.log").unlink(missing_ok=True)
        os.mkfifo(lab.VAR_LOG / "pipe.log")
        self.lab.command("input", "add", "files", "pipe", f"path={lab.VAR_LOG}/pipe.log")
        self.lab.wait_until("the pipe is told of", lambda: self.input_status("pipe")["problems"])
        self.assertEqual([f"cannot read {lab.VAR_LOG}/pipe.log: it is not a regular file"],
                         self.input_status("pipe")["problems"])
        told = self.input_status("app")
        self.assertEqual(("files", 1, 0, 0, []), tuple(told[name] for name in (
            "kind", "open_files", "behind_bytes", "behind_seconds", "problems")))
        self.assertLess(abs(told["last_entry_ms"] - time.time() * 1000), 60_000)
        self.assertIsNone(self.lab.status()["inputs_wait"])
        shown = {check["looked_at"]: check for check in json.loads(self.lab.run("--json", "doctor").stdout)["checks"]
                 if check["check"] == "input"}
        self.assertEqual("well", shown["app"]["outcome"])
        self.assertEqual("finding", shown["pipe"]["outcome"])

    def input_status(self, name):
        return next(told for told in self.lab.status()["inputs"] if told["name"] == name)

    def test_a_second_reader_of_the_system_log_is_told_of(self):
        lab.append(lab.MESSAGES, lab.stamped("first"))
        done = self.lab.run("input", "add", "files", "all", f"path={lab.VAR_LOG}/*")
        self.assertIn("/var/log/messages is read without an input, so its lines count twice; leave it out: "
                      "syslogmon input set all exclude=/var/log/messages", done.stderr)
        self.assertIn("count twice", self.lab.run("doctor").stdout)
        self.lab.command("input", "set", "all", "exclude=/var/log/messages")
        self.assertNotIn("count twice", self.lab.run("doctor").stdout)

    def test_no_input_reads_what_the_monitor_writes_itself(self):
        self.daemon.start()
        self.lab.command("input", "add", "files", "all", *(f"path={self.lab.root}/{own}/*" for own in ("state", "run", "log")),
                         f"path={self.log}")
        self.write(3)
        self.wait_for_all()
        for _ in range(3):
            self.daemon.scan()
        self.assert_each_once(range(self.written), self.lab.reported_numbers())
        self.assertEqual(1, self.input_status("all")["open_files"])

    def test_a_name_of_a_stranger_does_nothing_to_the_terminal(self):
        own = lab.VAR_LOG / "own\033[2J.log"
        lab.append(own, "first")
        self.lab.command("set", "file-monitor", own)
        done = self.lab.run("input", "add", "files", "app", f"path={lab.VAR_LOG}/*.log")
        self.assertIn("own?[2J.log is read without an input as the file monitor's target", done.stderr)
        self.assertNotIn("\033", done.stderr)

    def test_two_inputs_of_one_file_and_the_other_readers_of_the_monitor_are_told_of(self):
        lab.append(lab.MESSAGES, lab.stamped("first"))
        target = lab.VAR_LOG / "target.log"
        lab.append(target, "first")
        self.lab.command("set", "file-monitor", target)
        self.add_files()
        done = self.lab.run("input", "add", "files", "second", f"path={lab.VAR_LOG}/[at]*.log")
        self.assertIn(f"{self.log} is read by the input app too, so its lines count twice", done.stderr)
        self.assertIn(f"{target} is read without an input as the file monitor's target", done.stderr)
        self.assertEqual(3, self.lab.run("doctor").stdout.count("count twice"))  # app is told of the second, too
        self.lab.command("input", "remove", "second")
        self.assertEqual(0, self.lab.run("doctor").stdout.count("count twice"))

    def test_what_is_wrong_with_the_files_is_said_when_an_input_is_added_or_changed(self):
        done = self.lab.run("input", "add", "files", "app", f"path={lab.VAR_LOG}/typo*.log")
        self.assertIn("syslogmon: warning: no file has a name of these patterns", done.stderr)
        self.assertEqual(done.returncode, 0)
        done = self.lab.run("input", "set", "app", "path=/nonexistent/app.log")
        self.assertIn("syslogmon: warning: cannot list the folder /nonexistent: No such file or directory", done.stderr)
        lab.append(self.log, iso(0))
        done = self.lab.run("input", "set", "app", f"path={self.log}")
        self.assertEqual(done.stderr, "")

    def test_inputs_wait_while_the_monitor_has_too_much_to_read(self):
        self.lab.command("set", "spool-megabytes", "1")
        self.add_files()
        self.daemon.start()
        self.write(1)
        self.wait_for_all()
        # What the monitor cannot read, it has to read still.
        spool = self.lab.root / "state" / "spool"
        spool.unlink()
        spool.mkdir()
        # More than a batch of the inputs has.
        quiet = [f"{iso(0)[:32]} web07 app[7]: quiet {'x' * 1000}"] * 300
        for _ in range(50):
            self.write(1)
            lab.append(self.log, *quiet)

        def wait():
            self.lab.run("scan")
            return self.lab.status()["inputs_wait"]
        self.lab.wait_until("the inputs wait", wait)
        self.assertIn("bytes of the spool to read still; the inputs wait for it", self.lab.status()["inputs_wait"])
        self.assertIn("the inputs wait", self.lab.run("doctor").stdout)
        self.assertGreater(self.input_status("app")["behind_seconds"], 0)
        before = self.input_status("app")["behind_bytes"]
        lab.append(self.log, *quiet)
        self.lab.wait_until("what comes meanwhile is told", lambda: wait() and
                            self.input_status("app")["behind_bytes"] >= before + 300 * 1000)
        spool.rmdir()
        self.lab.wait_until("they wait no longer", lambda: not wait())
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_what_was_removed_unread_is_told(self):
        self.add_files()
        self.write(5)
        self.log.unlink()
        self.log.touch()
        self.written = 0
        self.daemon.start()
        self.lab.wait_until("the loss is told", lambda: self.lab.alerts("SYSLOGMON"))
        self.assertIn(f"input app: {self.log} is gone", self.lab.messages("SYSLOGMON")[0])

    def test_the_last_entries_can_be_looked_at(self):
        self.write(12)
        self.add_files()
        shown = self.lab.command("input", "test", "app").splitlines()
        self.assertEqual(10, len(shown))
        self.assertIn("web07 app[7]: numbered n=11.", shown[-1])


class BrokenInputs(lab.LabTest):
    """Each is named, with the cause; the others go on."""

    def setUp(self):
        super().setUp()
        self.lab.watch_numbered_lines()
        self.log = lab.VAR_LOG / "app.log"
        self.log.touch()
        self.broken = []

    def add(self, name, *options, problem):
        self.lab.command("input", "add", "files", name, *options)
        self.broken.append((name, problem))

    def test_each_is_named_and_the_others_go_on(self):
        folder = lab.VAR_LOG / "vanishes"
        folder.mkdir()
        os.mkfifo(lab.VAR_LOG / "pipe.log")
        (lab.VAR_LOG / "nothing.log.gz").write_bytes(b"\x1f\x8b\x08 no archive")
        self.lab.command("input", "add", "files", "app", f"path={self.log}")
        self.add("pipe", f"path={lab.VAR_LOG}/pipe.log",
                 problem="cannot read /var/log/pipe.log: it is not a regular file")
        self.add("typo", f"path={lab.VAR_LOG}/typo*.log", problem="no file has a name of these patterns")
        self.add("gone", f"path={folder}/*.log",
                 problem="cannot list the folder /var/log/vanishes: No such file or directory")
        self.add("archive", f"path={lab.VAR_LOG}/nothing.log.gz", "begin=start",
                 problem="cannot read /var/log/nothing.log.gz: it is damaged")
        folder.rmdir()
        self.daemon.start()
        lab.append(self.log, *(iso(n) for n in range(3)))
        self.lab.wait_until("the good one goes on", lambda: len(self.lab.reported_numbers()) == 3)
        for name, problem in self.broken:
            self.lab.wait_until(f"{name} is named", lambda: self.told(name).startswith(problem))
        self.assertEqual("", self.told("app"))
        # What was wrong is mended, and counts.
        folder.mkdir()
        lab.append(folder / "a.log", iso(3))
        lab.append(lab.VAR_LOG / "typo1.log", iso(4))
        self.lab.run("scan", "--wait")  # which fails, for the pipe is still there
        self.assert_each_once(range(5), self.lab.reported_numbers())

    def told(self, name):
        problems = {row["name"]: row["problems"] for row in self.lab.status()["inputs"]}
        return "; ".join(problems[name])


class WhereAlertsComeFrom(lab.LabTest):
    """An alert names the log, the host and the program of its line, with and without inputs."""

    def setUp(self):
        super().setUp()
        self.lab.watch("EACH", 1, "numbered")
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.customer, self.target = lab.VAR_LOG / "app.log", lab.VAR_LOG / "target.log"
        lab.append(self.customer, lab.stamped("the log begins"))
        self.target.touch()
        self.lab.command("set", "customer-file", self.customer)
        self.lab.command("set", "file-monitor", self.target)
        self.daemon.start()

    def line(self, host, text):
        return f"{time.strftime('%b %e %H:%M:%S')} {host} sshd[7]: {text}"

    def report_one_of_each(self):
        lab.append(lab.MESSAGES, self.line("web01", "numbered"))
        lab.append(self.customer, self.line("web02", "numbered"))
        # All lines are equal but for their hosts, and this one has neither host nor program.
        lab.append(self.target, "numbered")
        self.lab.command("scan", "--wait")
        found = {(alert["log"], alert.get("line_host"), alert.get("program"))
                 for alert in self.lab.alerts("EACH")}
        self.assertEqual({(str(lab.MESSAGES), "web01", "sshd"), (str(self.customer), "web02", "sshd"),
                          (str(self.target), None, None)}, found)

    def test_without_inputs(self):
        self.report_one_of_each()

    def test_of_a_rotated_file_the_log_is_named(self):
        lab.append(lab.MESSAGES, self.line("web01", "numbered"))
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")
        lab.append(lab.MESSAGES, lab.stamped("the next log begins"))
        self.lab.command("scan", "--wait")
        self.assertEqual([str(lab.MESSAGES)], [alert["log"] for alert in self.lab.alerts("EACH")])

    def test_with_inputs(self):
        self.lab.command("input", "add", "files", "other", f"path={lab.VAR_LOG}/other.log")
        self.lab.wait_until("the customer file is an input",
                            lambda: "customer-file" in self.lab.command("input", "list"))
        self.report_one_of_each()

    def test_what_looks_broken_up_in_another_log_stays_as_it_is(self):
        self.lab.command("input", "add", "files", "other", f"path={lab.VAR_LOG}/other.log")
        lab.append(lab.MESSAGES, self.line("web01", "numbered a\x1fb"))
        self.lab.command("scan", "--wait")
        self.assertIn("numbered a\x1fb", self.lab.messages("EACH")[0])


class JournalTest(lab.LabTest):
    """A real systemd-journald, which writes into this namespace."""

    def setUp(self):
        super().setUp()
        self.lab.watch_numbered_lines()
        for folder in ("/run/systemd", "/run/log"):
            self.lab.mount_tmpfs(Path(folder), "200m")
        for folder in ("/run/systemd/journal", "/run/log/journal", "/var/log/journal"):
            Path(folder).mkdir(parents=True, exist_ok=True)
        self.start_journald()
        self.written = 0

    def start_journald(self):
        self.journald = self.lab.spawn("systemd-journald", [JOURNALD])
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(self.socket.close)

        def connected():
            try:
                self.socket.connect("/run/systemd/journal/socket")
                return True
            except OSError:
                return False
        self.lab.wait_until("journald listens", connected)

    def log(self, message, **fields):
        fields = {"MESSAGE": message, "SYSLOG_IDENTIFIER": "app", "PRIORITY": "4"} | fields
        self.socket.send("".join(f"{name}={value}\n" for name, value in fields.items()).encode())


class Journal(JournalTest):
    def write(self, count):
        for number in range(self.written, self.written + count):
            self.log(lab.numbered(number))
        self.written += count

    def wait_for_all(self):
        self.lab.wait_until("all entries are reported",
                            lambda: len(self.lab.reported_numbers()) >= self.written)
        self.assert_each_once_and_in_order(range(self.written), self.lab.reported_numbers())

    def test_each_entry_counts_once_through_kills_and_rotations_of_the_journal(self):
        self.write_one()
        self.lab.command("input", "add", "journal", "journal")
        for life in range(10):
            self.daemon.launch()
            for _ in range(3):
                self.write(300)
                if life % 2:
                    self.journald.signal(12)  # SIGUSR2: rotate
                time.sleep(0.05)
            self.daemon.kill()
            self.write(100)
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_each_entry_counts_once_that_comes_while_the_place_is_moved_up_to_the_newest(self):
        """An input that wants some alone does so at each start."""
        self.write_one()
        self.lab.command("input", "add", "journal", "journal", "match=SYSLOG_IDENTIFIER=app")
        for _ in range(20):
            self.daemon.launch()
            for _ in range(40):
                self.write(5)
                time.sleep(0.002)
            self.daemon.kill()
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_is_read_by_itself_on_a_fresh_host_without_a_system_log_until_it_is_removed(self):
        self.write_one()
        self.daemon.launch_on_fresh_host()
        self.lab.wait_until("the journal is an input", lambda: self.lab.json("input", "list")["inputs"])
        self.assertEqual(["journal"], [row["name"] for row in self.lab.json("input", "list")["inputs"]])
        self.lab.wait_until("it is read", lambda: self.lab.status()["inputs"])
        self.write(3)
        self.wait_for_all()
        self.assertEqual("well", self.outcome("system log"))
        self.lab.command("input", "remove", "journal")
        self.daemon.kill()
        self.daemon.launch_on_fresh_host()
        self.daemon.wait_at_rest()
        self.assertEqual([], self.lab.json("input", "list")["inputs"])

    def test_is_not_read_by_itself_beside_a_system_log(self):
        self.write_one()
        lab.append(lab.MESSAGES, lab.stamped("first"))
        self.daemon.launch_on_fresh_host()
        self.daemon.wait_at_rest()
        self.assertEqual([], self.lab.json("input", "list")["inputs"])
        done = self.lab.run("input", "add", "journal", "journal")
        self.assertIn("they count twice; choose one of them: syslogmon input remove journal", done.stderr)

    def test_files_that_a_syslog_daemon_writes_are_told_of_beside_the_journal(self):
        self.write_one()
        lab.append(lab.VAR_LOG / "auth.log", lab.stamped("first"))
        self.lab.command("input", "add", "journal", "journal")
        done = self.lab.run("input", "add", "files", "auth", "path=/var/log/auth.log")
        self.assertIn("/var/log/auth.log is read by the input auth, and the journal by the input journal: where a "
                      "syslog daemon writes the journal's entries into that file, they count twice; choose one of "
                      "them: syslogmon input set auth exclude=/var/log/auth.log, or syslogmon input remove journal",
                      done.stderr)
        self.assertIn("they count twice", self.lab.run("doctor").stdout)
        self.lab.command("input", "set", "auth", "path=/var/log/other.log")
        self.assertNotIn("they count twice", self.lab.run("doctor").stdout)

    def test_rules_are_tried_over_the_journal(self):
        self.write(3)
        self.log(lab.numbered(3), PRIORITY="6")
        self.wait_until_written("n=3")

        def lines(*options):
            return next(event["lines"] for event in self.lab.json("test", *options, "journal")["events"]
                        if event["source"] == "EACH")
        self.assertEqual(4, lines())
        self.assertEqual(3, lines("--input-option", "priority=warning"))
        self.assertEqual(0, lines("--input-option", "match=SYSLOG_IDENTIFIER=other"))
        copy = lab.VAR_LOG / "copy"
        shutil.copytree("/run/log/journal", copy)
        self.log(lab.numbered(4))
        self.wait_until_written("n=4")
        self.assertEqual((5, 4), (lines(), lines("--input-option", f"directory={copy}")))

    def wait_until_written(self, text):
        """Journald may have said something itself behind it, as of its rotation."""
        self.lab.wait_until(f"{text} is in the journal", lambda: text in subprocess.run(
            ["journalctl", "-n", "20", "-o", "cat"], capture_output=True, text=True, check=False).stdout)

    def rotate(self):
        """Everything that was sent is in a file that is written no more."""
        before = set(self.journal_files())
        self.journald.signal(12)  # SIGUSR2
        self.lab.wait_until("it is rotated", lambda: set(self.journal_files()) - before)

    @staticmethod
    def journal_files():
        return sorted(path for folder in ("/run/log/journal", "/var/log/journal")
                      for path in Path(folder).rglob("*.journal"))

    def test_each_entry_counts_once_when_a_volatile_journal_becomes_persistent(self):
        self.write_one()
        self.lab.command("input", "add", "journal", "journal")
        self.daemon.start()
        self.write(50)
        self.wait_for_all()
        self.write(200)
        self.journald.signal(10)  # SIGUSR1: what is in /run goes to /var, and on it goes there
        self.lab.wait_until("it is persistent", lambda: any(path.is_relative_to("/var") for path in self.journal_files()))
        self.write(50)
        self.wait_for_all()
        self.daemon.kill()
        self.write(50)
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_each_entry_counts_once_when_the_journal_becomes_persistent_while_nobody_reads_it(self):
        self.write_one()
        self.lab.command("input", "add", "journal", "journal")
        self.daemon.start()
        self.write(50)
        self.wait_for_all()
        self.daemon.kill()
        self.write(50)
        self.wait_until_written(f"n={self.written - 1}.")
        self.journald.signal(10)
        self.lab.wait_until("it is persistent", lambda: any(path.is_relative_to("/var") for path in self.journal_files()))
        self.write(50)
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_damaged_and_foreign_files_among_those_of_the_journal_do_no_harm(self):
        self.write_one()
        self.lab.command("input", "add", "journal", "journal")
        self.daemon.start()
        self.write(50)
        self.wait_for_all()
        self.rotate()
        folder = self.journal_files()[0].parent
        read = next(path for path in self.journal_files() if "@" in path.name)
        whole = read.read_bytes()
        (folder / "system@half.journal").write_bytes(whole[:len(whole) // 2])
        (folder / "foreign.journal").write_bytes(os.urandom(100_000))
        (folder / "empty.journal").touch()
        (folder / "system.journal~").write_bytes(whole[:1000])
        self.write(50)
        self.wait_for_all()
        self.daemon.kill()
        self.write(50)
        self.rotate()
        # One that was read already, in its middle.
        with read.open("r+b") as file:
            file.seek(len(whole) // 3)
            file.write(os.urandom(len(whole) // 3))
        self.write(50)
        self.daemon.start()
        self.wait_for_all()

    def test_each_entry_counts_once_of_users_whose_journals_begin_while_it_is_read(self):
        """Each user has a file of his own, which comes while entries of the system are read that came later."""
        self.write_one()
        self.journald.signal(10)  # SIGUSR1: a volatile journal has one file for all
        self.lab.wait_until("it is persistent", lambda: any(path.is_relative_to("/var") for path in self.journal_files()))
        self.lab.command("input", "add", "journal", "journal")
        self.daemon.start()
        is_written = threading.Event()

        def scan():
            while not is_written.is_set():
                self.lab.run("scan", "--wait")
        scanning = [threading.Thread(target=scan) for _ in range(2)]
        for thread in scanning:
            thread.start()
        for user in range(1000, 1000 + USERS):
            self.write(10)
            self.write_as(user)
            self.write(5)
        is_written.set()
        for thread in scanning:
            thread.join()
        self.wait_for_all()
        self.assertEqual(USERS, len([path for path in self.journal_files() if path.name.startswith("user-")]))
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def write_as(self, user):
        pid = os.fork()
        if pid == 0:
            try:
                os.setgid(user)
                os.setuid(user)
                self.log(lab.numbered(self.written))
            finally:
                os._exit(0)
        os.waitpid(pid, 0)
        self.written += 1

    def test_a_namespace_is_read_and_the_hosts_own_journal_is_not(self):
        self.lab.spawn("systemd-journald@lab", [JOURNALD, "lab"])
        own, namespaces = self.socket, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(namespaces.close)

        def connected():
            try:
                namespaces.connect("/run/systemd/journal.lab/socket")
                return True
            except OSError:
                return False
        self.lab.wait_until("the journald of the namespace listens", connected)
        self.lab.command("input", "add", "journal", "lab", "namespace=lab")
        self.daemon.start()
        self.log("numbered n=99.")
        self.socket = namespaces
        self.write(20)
        self.wait_for_all()
        self.daemon.kill()
        self.write(20)
        self.socket = own
        self.log("numbered n=99.")
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_a_folder_of_journal_files_is_read_and_what_comes_into_it(self):
        collected = self.begin_with_a_folder()
        self.collect(collected)
        self.wait_for_all()
        self.daemon.kill()
        self.write(20)
        self.wait_until_written("n=59.")
        self.rotate()
        self.collect(collected)
        self.log(lab.numbered(99))  # into this host's journal, and not into that folder
        self.wait_until_written("n=99.")
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_a_folder_of_journal_files_that_is_replaced_is_read_on(self):
        collected = self.begin_with_a_folder()
        new = lab.VAR_LOG / "new"
        new.mkdir()
        self.collect(new)
        collected.rename(lab.VAR_LOG / "old")
        new.rename(collected)
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def begin_with_a_folder(self):
        """Journal files of a folder are read, and others are there that do not lie in it yet. Returns the folder."""
        collected = lab.VAR_LOG / "remote"
        collected.mkdir()
        self.write(20)
        self.wait_until_written("n=19.")
        self.rotate()
        self.collect(collected)
        self.lab.command("input", "add", "journal", "remote", f"directory={collected}", "begin=start")
        self.daemon.start()
        self.wait_for_all()
        self.write(20)
        self.wait_until_written("n=39.")
        self.rotate()
        return collected

    def collect(self, folder):
        """Files that are written no more come there, as from another machine."""
        for path in self.journal_files():
            if "@" in path.name and not (folder / path.name).exists():
                # Its state, which journald sets behind the renaming: archived.
                self.lab.wait_until(f"{path} is done with", lambda path=path: path.read_bytes()[16] == 2)
                part = folder / "part"
                shutil.copyfile(path, part)
                part.rename(folder / path.name)

    def test_a_journal_that_was_removed_as_a_whole_while_the_daemon_was_stopped_is_told(self):
        self.write_one()
        self.lab.command("input", "add", "journal", "journal")
        self.daemon.start()
        self.write(5)
        self.wait_for_all()
        self.daemon.kill()
        self.log("lost")
        self.wait_until_written("lost")
        self.journald.kill()
        for path in self.journal_files():
            path.unlink()
        self.daemon.start()
        self.start_journald()
        self.write(5)
        self.wait_for_all()
        losses = self.lab.messages("SYSLOGMON")
        self.assertEqual(1, len(losses), losses)
        self.assertIn("input journal: the journal no longer holds the entry that was read last: entries may be missing, "
                      "how many cannot be known", losses[0])

    def test_another_journal_is_read_from_the_change_on_and_nothing_of_it_is_missed(self):
        self.write_one()
        self.lab.command("input", "add", "journal", "journal")
        self.daemon.start()
        self.write(3)
        self.wait_for_all()
        self.daemon.stop()
        other = lab.VAR_LOG / "other"
        shutil.copytree("/run/log/journal", other)
        self.lab.command("input", "set", "journal", f"directory={other}")
        self.daemon.start()
        self.lab.command("input", "set", "journal", "--unset", "directory", "priority=debug")
        self.write(2)
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def outcome(self, check):
        found = json.loads(self.lab.run("--json", "doctor").stdout)["checks"]
        return next(row["outcome"] for row in found if row["check"] == check)

    def write_one(self):
        """Until it can be read: a journal without an entry is not there yet."""
        self.write(1)
        self.written = 0
        self.wait_until_written("numbered")

    def begin_with_one_of_few(self):
        """An input that wants few entries has read one of them."""
        self.write_one()
        self.lab.command("input", "add", "journal", "journal", "match=SYSLOG_IDENTIFIER=rare")
        self.daemon.start()
        self.log(lab.numbered(0), SYSLOG_IDENTIFIER="rare")
        self.written = 1
        self.wait_for_all()

    def test_entries_that_an_input_does_not_want_may_go_without_being_missed(self):
        self.begin_with_one_of_few()
        self.daemon.kill()
        self.log("nobody wants this")
        self.daemon.start()  # it moves up
        self.daemon.look()
        self.daemon.look()
        self.daemon.kill()
        self.journald.signal(12)
        time.sleep(0.5)
        subprocess.run(["journalctl", "--vacuum-files=1"], capture_output=True, check=False)
        self.log(lab.numbered(1), SYSLOG_IDENTIFIER="rare")
        self.written = 2
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))

    def test_entries_that_were_vacuumed_before_they_were_read_are_told(self):
        self.write_one()
        self.lab.command("input", "add", "journal", "journal")
        self.daemon.start()
        self.log(lab.numbered(0))
        self.written = 1
        self.wait_for_all()
        self.daemon.kill()
        for number in range(5):
            self.log(f"lost {number}")
        # It takes the signal before what waits in its socket.
        self.wait_until_written("lost 4")
        self.journald.signal(12)
        time.sleep(0.5)
        subprocess.run(["journalctl", "--vacuum-files=1"], capture_output=True, check=False)
        self.log(lab.numbered(1))
        self.written = 2
        self.daemon.start()
        self.wait_for_all()
        losses = self.lab.alerts("SYSLOGMON")
        self.assertEqual(1, len(losses), losses)
        self.assertEqual("journal", losses[0]["log"])
        found = re.search(r"input journal: the journal no longer holds the entry that was read last: the numbers "
                          r"(\d+) to (\d+) of all its entries are missing", losses[0]["message"])
        self.assertTrue(found, losses[0]["message"])
        self.assertLessEqual(5, int(found[2]) - int(found[1]) + 1)

    def test_entries_that_are_gone_are_told_once_to_an_input_that_wants_few(self):
        self.begin_with_one_of_few()
        self.log("it is gone when it is looked for")
        self.wait_until_written("it is gone")
        self.rotate()
        subprocess.run(["journalctl", "--vacuum-files=1"], capture_output=True, check=True)
        self.lab.wait_until("the loss is told", lambda: self.lab.alerts("SYSLOGMON"))
        for number in (1, 2):
            self.rotate()  # so that it is opened anew
            self.log(lab.numbered(number), SYSLOG_IDENTIFIER="rare")
            self.written = number + 1
            self.wait_for_all()
        self.assertEqual(1, len(self.lab.alerts("SYSLOGMON")), self.lab.messages("SYSLOGMON"))

    def test_entries_that_are_gone_between_others_are_told_with_their_numbers(self):
        """The entry that was read last is there still, and so are some behind it."""
        self.write_one()
        self.lab.command("input", "add", "journal", "journal")
        self.daemon.start()
        self.write(1)
        self.wait_for_all()
        self.daemon.kill()
        self.write(1)
        self.wait_until_written("n=1.")
        self.rotate()
        kept = set(self.journal_files())
        for number in range(5):
            self.log(f"lost {number}")
        self.wait_until_written("lost 4")
        self.rotate()
        self.write(1)
        self.wait_until_written("n=2.")
        removed = next(path for path in self.journal_files() if "@" in path.name and path not in kept)
        numbers = self.numbers_in(removed)
        removed.unlink()
        self.daemon.start()
        self.wait_for_all()
        self.lab.wait_until("the loss is told", lambda: self.lab.alerts("SYSLOGMON"))
        losses = self.lab.messages("SYSLOGMON")
        self.assertEqual(1, len(losses), losses)
        found = re.search(r"input journal: entries of the journal are missing: the numbers (\d+) to (\d+); they were vacuumed, "
                          r"or their file was removed or damaged, before they were read", losses[0])
        self.assertTrue(found, losses[0])
        self.assertEqual((numbers[0], numbers[-1]), (int(found[1]), int(found[2])))

    @staticmethod
    def numbers_in(path):
        """Of its entries, by the journal's own numbering."""
        shown = subprocess.run(["journalctl", "--file", path, "-o", "export"], capture_output=True, text=True,
                               check=True).stdout
        return [int(number, 16) for number in re.findall("^__CURSOR=.*;i=([0-9a-f]+)", shown, re.MULTILINE)]

    def test_matches_and_priorities_choose(self):
        self.lab.command("input", "add", "journal", "journal", "match=SYSLOG_IDENTIFIER=app",
                         "priority=warning")
        self.daemon.start()
        self.log(lab.numbered(7), PRIORITY="6")
        self.log(lab.numbered(8), SYSLOG_IDENTIFIER="other")
        self.write(1)
        self.wait_for_all()


if __name__ == "__main__":
    lab.main()
