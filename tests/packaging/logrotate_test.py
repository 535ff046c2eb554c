"""The packaged rotation rules, run by real logrotate: no line is passed over, and no rotation waits for ever.

The snippets are taken as they are packaged, but for the names of programs that are not installed here: the
command, and what tells the writing program to go on in a new file.
"""
import os
import subprocess
import sys
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "system"))

import lab  # noqa: E402

PACKAGED = SOURCE / "packaging"


class Snippet:
    """One of the packaged files, fitted to a lab."""

    def __init__(self, owner, name, **replaced):
        self._lab = owner
        self.path = owner.folder / name
        command = lab.build_root() / "bin" / "syslogmon"
        text = (PACKAGED / name).read_text()
        for old, new in {"syslogmon scan": f"{command} --root {owner.root} scan",
                         "/usr/bin/syslogmon": str(command), **replaced}.items():
            if old not in text:
                raise AssertionError(f"{name} has no {old!r}")
            text = text.replace(old, new)
        self.path.write_text(text)
        self.path.chmod(0o644)

    def rotate(self):
        """Rotates now, in less than the time for which a test waits, and returns how many seconds that took."""
        begin = time.monotonic()
        done = self.run_logrotate()
        if done.returncode != 0 or "error:" in done.stderr:
            raise AssertionError(f"logrotate ended with {done.returncode}: {done.stderr}")
        return time.monotonic() - begin

    def run_logrotate(self):
        argv = [lab.tool("logrotate"), "--verbose", "--force", "--state", self._lab.folder / "state", self.path]
        return subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              env={**os.environ, "LD_LIBRARY_PATH": str(lab.tool_libraries())},
                              timeout=3 * lab.PATIENCE)


class SystemLog(lab.LabTest):
    """rsyslogd writes /var/log/messages, which the packaged snippet rotates."""

    def setUp(self):
        super().setUp()
        self.log = lab.Rsyslog(self.lab)
        self.log.start()
        self.lab.watch_numbered_lines()

    def snippet(self, **replaced):
        tell = f"kill -HUP $(cat {self.log.pid_file})"
        return Snippet(self.lab, "logrotate.conf", **{
            "[ ! -x /usr/lib/rsyslog/rsyslog-rotate ] || /usr/lib/rsyslog/rsyslog-rotate": tell, **replaced})

    def rotate(self, snippet):
        took = snippet.rotate()
        self.log.wait_until_reopened()
        return took

    def check(self):
        self.daemon.scan()
        self.assert_each_once_and_in_order(range(self.log.written), self.lab.reported_numbers())

    def test_a_busy_log_loses_no_line_over_more_rotations_than_files_are_kept(self):
        self.daemon.start()
        snippet = self.snippet()
        for _ in range(7):
            self.log.send_numbers(2000)
            self.rotate(snippet)
        self.log.write_numbers(2000)
        self.check()
        self.assertEqual({"messages", *(f"messages.{n}" for n in range(1, 5))}, set(lab.log_files()))

    def test_a_month_of_rotations_while_the_daemon_is_down_loses_no_line(self):
        self.daemon.start()
        self.daemon.stop()
        snippet = self.snippet(**{"--timeout 60": "--timeout 86400"})  # nobody waits for a daemon that is down
        for _ in range(4):
            self.log.write_numbers(3)
            self.rotate(snippet)
        self.log.write_numbers(3)
        self.daemon.start()
        self.check()

    def test_a_quiet_week_makes_no_empty_file(self):
        self.daemon.start()
        snippet = self.snippet()
        self.log.write_numbers(3)
        snippet.rotate()
        lab.MESSAGES.write_bytes(b"")  # nothing was written since
        snippet.rotate()
        self.assertEqual({"messages", "messages.1"}, set(lab.log_files()))
        self.log.reopen()
        self.log.wait_until_reopened()
        self.log.write_numbers(3)
        self.check()

    def test_a_daemon_that_does_not_answer_delays_a_rotation_by_no_more_than_the_time_limit(self):
        self.daemon.start()
        self.log.write_numbers(3)
        self.daemon.child.signal(19)  # SIGSTOP
        took = self.rotate(self.snippet(**{"--timeout 60": "--timeout 2"}))
        self.assertGreaterEqual(took, 2)
        self.daemon.child.signal(18)  # SIGCONT
        self.log.write_numbers(3)
        self.check()

    def test_a_removed_command_stops_no_rotation(self):
        self.log.write_numbers(3)
        snippet = Snippet(self.lab, "logrotate.conf", **{
            "/usr/bin/syslogmon": "/usr/bin/no-such-program",
            "[ ! -x /usr/lib/rsyslog/rsyslog-rotate ] || /usr/lib/rsyslog/rsyslog-rotate":
                f"kill -HUP $(cat {self.log.pid_file})"})
        self.rotate(snippet)
        self.assertEqual([0, 1, 2], lab.log_files()["messages.1"])

    def test_an_older_file_that_is_unread_is_found_although_the_log_is_rotated_again(self):
        """What firstaction is for: in prerotate, messages.1 would be missing."""
        self.daemon.start()
        self.log.write_numbers(3)
        snippet = self.snippet()
        self.daemon.stop()
        self.rotate(snippet)
        self.log.write_numbers(3)
        self.daemon.start()
        self.log.write_numbers(3)
        self.rotate(snippet)
        self.log.write_numbers(3)
        self.check()


class OtherLogs(lab.LabTest):
    """The example for the customer file and the file-monitor target, with a program that can be stopped."""

    log = lab.VAR_LOG / "application.log"

    def setUp(self):
        super().setUp()
        self.lab.watch_numbered_lines()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        lab.append(self.log, lab.stamped("the log begins"))
        self.program = self.lab.folder / "program"
        # Writes numbered lines as fast as it can until it is stopped; goes on with the next number.
        self.program.write_text(f"""#!{sys.executable}
import os, signal, sys, time
sys.path.insert(0, {str(SOURCE / "tests" / "system")!r})
import lab
count = {str(self.lab.folder / "count")!r}
number = int(open(count).read()) if os.path.exists(count) else 0
stopped = []
signal.signal(signal.SIGTERM, lambda *_: stopped.append(1))
with open({str(self.log)!r}, "ab", buffering=0) as log:
    while not stopped:
        log.write((lab.stamped(lab.numbered(number)) + "\\n").encode())
        number += 1
        time.sleep(0.0005)
open(count, "w").write(str(number))
""")
        self.program.chmod(0o755)
        self.pid_file = self.lab.folder / "program.pid"
        self.stop = f"kill $(cat {self.pid_file}); while [ -e /proc/$(cat {self.pid_file})/exe ]; do sleep 0.01; done"
        self.start = f"setsid {self.program} </dev/null >/dev/null 2>&1 & echo $! >{self.pid_file}"
        self.addCleanup(self.shell, f"kill $(cat {self.pid_file}) 2>/dev/null || true")

    def shell(self, script):
        subprocess.run(["sh", "-c", script], check=True)

    def wait_until_written(self, number):
        """Waits until the program is past this number, and so writes into the file that is in place."""
        self.lab.wait_until(f"line {number} is in the log", lambda: lab.last_number_in(self.log) > number)

    def snippet(self):
        return Snippet(self.lab, "logrotate-other-logs", **{
            "systemctl stop application.service": self.stop,
            "systemctl start application.service": self.start})

    def check(self):
        self.shell(self.stop)
        self.daemon.scan()
        written = int((self.lab.folder / "count").read_text())
        self.assert_each_once_and_in_order(range(written), self.lab.reported_numbers())

    def run_rotations(self, setting):
        self.lab.command("set", setting, self.log)
        self.daemon.start()
        snippet = self.snippet()
        self.shell(self.start)
        for rotation in range(4):
            self.wait_until_written(50 * (rotation + 1))
            snippet.rotate()
        self.wait_until_written(250)
        self.check()

    def test_a_customer_file_loses_no_line(self):
        self.run_rotations("customer-file")

    def test_a_file_monitor_target_loses_no_line(self):
        self.run_rotations("file-monitor")

    def test_a_scan_that_fails_puts_the_rotation_off_and_lets_the_program_go_on(self):
        self.lab.command("set", "customer-file", self.log)
        self.daemon.start()
        self.daemon.stop()
        self.shell(self.start)
        self.wait_until_written(50)
        refused = self.snippet().run_logrotate()
        self.assertNotEqual(0, refused.returncode, refused.stderr)
        self.assertFalse(self.log.with_name("application.log.1").exists())
        self.wait_until_written(lab.last_number_in(self.log) + 50)
        self.daemon.start()
        self.check()


if __name__ == "__main__":
    lab.main(*lab.RSYSLOG, *lab.LOGROTATE)
