"""The rule by which rsyslog writes the system log: a log as it is wanted, written by real rsyslogd, and one text in the
package, in ./run's advice and in doctor's. Needs root, since files are given to a group."""
import os
import subprocess
import sys
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "system"))

import lab  # noqa: E402

DROP_IN = SOURCE / "packaging" / "rsyslog.conf"


class RuleTest(lab.LabTest):
    """rsyslogd with settings such as Debian's, and the packaged file included behind them."""

    settings = ""

    def setUp(self):
        super().setUp()
        self.log = lab.Rsyslog(self.lab, extra=f"""
$FileOwner root
$FileGroup adm
$FileCreateMode 0644
{self.settings}
$IncludeConfig {DROP_IN}
stop
""")
        self.log.start()

    def write(self, *texts):
        """Sends lines, and returns when the last one is in the log."""
        for text in texts:
            self.log.send(text)
        end = f": {texts[-1]}\n".encode()
        self.lab.wait_until(f"{texts[-1]!r} is in the log", lambda: lab.content_of(lab.MESSAGES).endswith(end))

    def texts(self):
        return [line.split(": ", 1)[1] for line in lab.MESSAGES.read_text().splitlines()]


class Rule(RuleTest):
    def test_makes_a_log_that_root_and_adm_alone_can_read_also_after_a_rotation(self):
        self.assertEqual(["root:adm 640"], self.owners())
        lab.MESSAGES.rename(lab.VAR_LOG / "messages.1")
        self.log.reopen()
        self.log.wait_until_reopened()
        self.assertEqual(["root:adm 640", "root:adm 640"], self.owners())

    @staticmethod
    def owners():
        return [f"{path.owner()}:{path.group()} {path.stat().st_mode & 0o777:o}"
                for path in sorted(lab.VAR_LOG.glob("messages*"))]

    def test_writes_equal_lines_each_for_itself_with_stamps_that_are_read(self):
        self.write("equal", "equal", "equal", "other")
        self.assertEqual(["equal", "equal", "equal", "other"], self.texts()[-4:])
        self.assertRegex(lab.MESSAGES.read_text().splitlines()[-1],
                         r"^[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d \S+ test: other$")


class RuleOnAHostThatBuffers(RuleTest):
    settings = "$OMFileAsyncWriting on\n$OMFileFlushOnTXEnd off\n$OMFileFlushInterval 3600\n"

    def test_writes_each_line_at_once_all_the_same(self):
        self.write("one")
        self.write("two")


class RuleOnAHostThatReducesRepeats(RuleTest):
    settings = "$RepeatedMsgReduction on"

    def test_cannot_undo_that_and_the_reduced_line_counts_once(self):
        self.lab.watch("EACH", 1, "equal", report_count=100)
        self.daemon.start()
        self.write("equal", "equal", "equal", "other")
        self.assertEqual(["equal", "message repeated 2 times: [ equal]", "other"], self.texts()[-3:])
        self.daemon.scan()
        self.assertEqual(2, self.lab.hits("EACH"))


class Advice(lab.LabTest):
    """On a machine without a system log."""

    def rule(self):
        """The lines of the packaged file, without its comments."""
        return [line for line in DROP_IN.read_text().splitlines() if not line.startswith("#")]

    def assert_shows_the_rule(self, text):
        lines = text.splitlines()
        begin = next((n for n, line in enumerate(lines) if line.strip().startswith(self.rule()[0].split()[0])), None)
        self.assertIsNotNone(begin, text)
        indent = lines[begin][:lines[begin].index("*")]
        self.assertEqual([indent + line for line in self.rule()], lines[begin:begin + len(self.rule())])
        self.assertIn("/etc/rsyslog.d/syslogmon.conf", text)  # where the package puts it, too

    def on_a_host_with_rsyslog(self, *argv):
        """What a program prints on a host with rsyslog as it comes, and without the package."""
        etc = self.lab.folder / "etc"
        etc.mkdir()
        (etc / "rsyslog.conf").write_text("*.* /var/log/syslog\n")
        return subprocess.run(["unshare", "--mount", "sh", "-ec", 'mount --bind "$0" /etc; exec "$@"', etc, *argv],
                              capture_output=True, text=True).stdout

    def test_run_shows_the_packaged_rule(self):
        self.assert_shows_the_rule(self.on_a_host_with_rsyslog(SOURCE / "tools" / "system-log-advice"))
        self.assertIn("tools/system-log-advice", (SOURCE / "run").read_text())

    def test_doctor_shows_the_packaged_rule(self):
        self.assert_shows_the_rule(self.on_a_host_with_rsyslog(
            lab.build_root() / "bin" / "syslogmon", "--root", self.lab.root, "doctor"))


del RuleTest  # it has no test of its own

if __name__ == "__main__":
    if os.geteuid() != 0:
        sys.exit("needs root")
    lab.main(*lab.RSYSLOG)
