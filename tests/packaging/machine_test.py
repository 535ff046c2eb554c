"""The package on a machine that has booted: systemd is process 1, journald writes the journal, and the daemon runs as
its unit says, with no more rights than that.

    machine_test.py                a copy of this machine's file system, of which only the top layer is written
    machine_test.py --debian DIR   a Debian of its own with rsyslog, made in DIR with debootstrap

Needs root, and a kernel that lets systemd-nspawn boot: where a machine without the package does not boot either,
nothing can be shown, and the test is skipped with that word (exit code 77). The network is not that of this machine,
but for making the Debian.
"""
import json
import os
import re
import shutil
import signal
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import deb

PATIENCE = 120  # seconds after which something that should have happened is taken not to happen
INSIDE = "SYSLOGMON_MACHINE_LAB"
SKIPPED = 77
ENVIRONMENT = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
               "HOME": "/root", "LC_ALL": "C", "DEBIAN_FRONTEND": "noninteractive"}
UNIT = "syslogmond.service"
CAP_DAC_READ_SEARCH = 1 << 2  # linux/capability.h


def mount(*words):
    subprocess.run(["mount", *map(str, words)], check=True)


def wait_until(what, condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"after {PATIENCE} s there is still no {what}")
        time.sleep(0.1)


def debian(folder, package):
    """A Debian with what the package depends on, and rsyslog. Made once, and again when the package needs something else."""
    folder = Path(folder).resolve()
    depends = subprocess.run(["dpkg-deb", "--field", package, "Depends"], check=True, capture_output=True,
                             text=True).stdout
    made = folder / "made"  # with what is in it
    if not made.exists() or made.read_text() != depends:
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        root = folder / "root"
        run = {"check": True, "stdout": subprocess.DEVNULL, "env": ENVIRONMENT}
        subprocess.run(["debootstrap", "--variant=minbase", "--include=systemd,systemd-sysv,dbus", "bookworm", root],
                       **run)
        subprocess.run(["chroot", root, "apt-get", "install", "--yes", "--no-install-recommends", "rsyslog",
                        "logrotate"], **run)
        subprocess.run(["chroot", root, "apt-get", "satisfy", "--yes", "--no-install-recommends", depends], **run)
        made.write_text(depends)
    return folder / "root"


class Machine:
    """A machine of its own: what is written is in memory."""

    def __init__(self, lower, has_rsyslog=False):
        layers = Path(tempfile.mkdtemp(prefix="machine-"))
        mount("-t", "tmpfs", "tmpfs", layers)
        self.root = layers / "root"
        for folder in ("upper", "work", "root"):
            (layers / folder).mkdir()
        mount("-t", "overlay", "overlay",
              "-o", f"lowerdir={lower},upperdir={layers / 'upper'},workdir={layers / 'work'}", self.root)
        mount("-t", "tmpfs", "-o", "mode=0755", "tmpfs", self.root / "var/log")
        (self.root / "var/log/journal").mkdir()  # as Debian has it: the journal outlives a boot
        self.forget_what_it_runs(has_rsyslog)
        self.forget_the_package()
        self.log = tempfile.TemporaryFile()
        self.nspawn = None
        self.leader = None

    def forget_what_it_runs(self, has_rsyslog):
        """Of the services of the copied machine none is started, but rsyslog when it is wanted."""
        for wants in (self.root / "etc/systemd/system").glob("*.wants"):
            shutil.rmtree(wants)
        (self.root / "etc/systemd/system/syslog.service").unlink(missing_ok=True)
        (self.root / "usr/sbin/policy-rc.d").unlink(missing_ok=True)
        if has_rsyslog:
            subprocess.run(["systemctl", "--root", self.root, "enable", "rsyslog.service"], check=True,
                           capture_output=True)

    def forget_the_package(self):
        for folder in ("var/lib/syslogmon", "etc/syslogmon", "var/log/syslogmon"):
            shutil.rmtree(self.root / folder, ignore_errors=True)
        for file in ("etc/rsyslog.d/syslogmon.conf", "etc/logrotate.d/syslogmon"):
            (self.root / file).unlink(missing_ok=True)
        if self.chroot("dpkg-query", "--show", "syslogmon").returncode == 0:
            self.chroot("dpkg", "--purge", "--force-all", "syslogmon")

    def chroot(self, *argv):
        return subprocess.run(["chroot", self.root, *argv], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              env=ENVIRONMENT)

    # ---- power ----

    def boot(self):
        """True when systemd says that it is up."""
        self.nspawn = subprocess.Popen(
            ["systemd-nspawn", "--boot", "--quiet", "--register=no", "--keep-unit", "--link-journal=no",
             "--private-network", "--console=pipe", "--directory", self.root],
            stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log)
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end and self.nspawn.poll() is None:
            if not self.leader:
                children = Path(f"/proc/{self.nspawn.pid}/task/{self.nspawn.pid}/children").read_text().split()
                self.leader = children[0] if children else None
            elif self.run("systemctl", "is-system-running").stdout.strip() in ("running", "degraded"):
                return True
            time.sleep(0.1)
        return False

    def power_off(self):
        self.run("systemctl", "poweroff")
        self.nspawn.wait(timeout=PATIENCE)
        self.leader = None

    def pull_the_plug(self):
        if self.nspawn and self.nspawn.poll() is None:
            # With its first process the whole machine ends, which nspawn alone would leave running.
            os.kill(int(self.leader), signal.SIGKILL) if self.leader else self.nspawn.kill()
            self.nspawn.wait()
        self.leader = None

    def said(self):
        self.log.seek(0)
        return self.log.read().decode(errors="replace")

    # ---- inside ----

    def run(self, *argv, timeout=PATIENCE):
        return subprocess.run(["nsenter", "--target", self.leader, "--all", "--root", "--wdns=/", "--",
                               *map(str, argv)],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, env=ENVIRONMENT,
                              timeout=timeout)

    def command(self, *argv, timeout=PATIENCE):
        done = self.run(*argv, timeout=timeout)
        if done.returncode != 0:
            raise AssertionError(f"{argv} ended with {done.returncode}: {done.stdout}{done.stderr}")
        return done.stdout

    def install(self, package):
        shutil.copy(package, self.root / "root")
        self.command("dpkg", "--install", f"/root/{package.name}")

    def unit(self, name):
        """A property of the daemon's unit, as systemd has it."""
        return self.command("systemctl", "show", "--property", name, "--value", UNIT).strip()

    def write(self, *numbers):
        for number in numbers:
            self.command("logger", "--tag", "test", f"numbered {number}.")
        # What logger has sent is in the journal.
        self.command("journalctl", "--sync")

    def reported(self):
        """The numbers of the entries that were reported, after a scan."""
        self.command("syslogmon", "scan", "--wait", "--timeout", PATIENCE)
        alerts = [json.loads(line) for line in self.command("syslogmon", "--json", "alerts").splitlines()]
        return [int(re.search(r"numbered (\d+)\.", alert["message"])[1]) for alert in alerts]


class OnAMachine(unittest.TestCase):
    maxDiff = None
    lower = "/"
    first = second = None

    def start(self, has_rsyslog=False):
        self.machine = Machine(self.lower, has_rsyslog)
        self.addCleanup(self.machine.pull_the_plug)
        self.assertTrue(self.machine.boot(), self.machine.said())

    def start_with_the_package(self):
        """The package is installed, and each numbered entry makes an alert."""
        self.start()
        self.machine.install(self.first)
        self.machine.command("syslogmon", "event", "add", "EACH", "1", "--keyword", "numbered")

    def test_a_machine_with_a_journal_only_reports_what_the_journal_gets_once(self):
        self.start()
        self.machine.write(1, 2)  # before the package came
        self.machine.install(self.first)
        self.machine.command("syslogmon", "event", "add", "EACH", "1", "--keyword", "numbered")
        self.machine.write(3, 4)
        self.assertEqual([3, 4], self.machine.reported())
        self.assertEqual("active", self.machine.unit("ActiveState"))

    def test_the_daemon_has_the_rights_of_its_unit_and_no_more(self):
        self.start_with_the_package()
        status = self.machine.command("cat", f"/proc/{self.machine.unit('MainPID')}/status")
        value = dict(re.findall(r"^(\w+):\s*(\S+)", status, re.MULTILINE))
        self.assertEqual(CAP_DAC_READ_SEARCH, int(value["CapBnd"], 16))
        self.assertEqual(CAP_DAC_READ_SEARCH, int(value["CapEff"], 16))
        self.assertEqual("1", value["NoNewPrivs"])
        self.assertEqual("2", value["Seccomp"])
        self.members_of_adm_read_and_change_nothing()

    def members_of_adm_read_and_change_nothing(self):
        """While the daemon runs and when it has stopped."""
        def as_member(*words, group="adm"):
            return self.machine.run("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups" if group is None
                                    else f"--groups={group}", "syslogmon", *words)
        self.machine.write(1)
        self.assertEqual([1], self.machine.reported())
        for state in ("start", "stop"):
            self.machine.command("systemctl", state, UNIT)
            self.assertIn("numbered", as_member("alerts").stdout, state)
            self.assertNotEqual(0, as_member("alerts", group=None).returncode, state)
        self.assertNotEqual(0, as_member("set", "cycle", "60").returncode)

    def test_the_watchdog_is_fed_and_a_daemon_that_hangs_is_started_again(self):
        self.start()
        drop_in = self.machine.root / f"etc/systemd/system/{UNIT}.d"
        drop_in.mkdir(parents=True)
        (drop_in / "watchdog.conf").write_text("[Service]\nWatchdogSec=3\nRestartSec=0\n")
        self.machine.install(self.first)
        self.machine.command("syslogmon", "event", "add", "EACH", "1", "--keyword", "numbered")
        daemon = self.machine.unit("MainPID")
        fed = set()
        wait_until("sign of life", lambda: fed.add(self.machine.unit("WatchdogTimestampMonotonic")) or len(fed) > 4)
        self.assertEqual((daemon, "0"), (self.machine.unit("MainPID"), self.machine.unit("NRestarts")))
        self.machine.command("systemctl", "kill", "--kill-who=main", "--signal=STOP", UNIT)
        self.machine.write(1)
        wait_until("restart", lambda: self.machine.unit("NRestarts") != "0")
        wait_until("daemon", lambda: self.machine.unit("ActiveState") == "active")
        self.machine.write(2)
        self.assertEqual([1, 2], self.machine.reported())

    def test_a_reload_has_checked_what_was_written_before_it(self):
        self.start_with_the_package()
        daemon = self.machine.unit("MainPID")
        self.machine.write(1, 2)
        self.machine.command("systemctl", "reload", UNIT)
        self.assertEqual(daemon, self.machine.unit("MainPID"))
        self.machine.write(3)
        self.assertEqual([1, 2, 3], self.machine.reported())

    def test_a_killed_daemon_is_started_again_and_goes_on_where_it_was(self):
        self.start_with_the_package()
        self.machine.write(1)
        self.assertEqual([1], self.machine.reported())
        self.machine.command("systemctl", "kill", "--kill-who=main", "--signal=KILL", UNIT)
        self.machine.write(2)
        wait_until("restart", lambda: self.machine.unit("NRestarts") == "1"
                   and self.machine.unit("ActiveState") == "active")
        self.machine.write(3)
        self.assertEqual([1, 2, 3], self.machine.reported())

    def test_a_machine_that_boots_again_reports_what_was_not_read_and_nothing_twice(self):
        self.start_with_the_package()
        self.machine.write(1)
        self.assertEqual([1], self.machine.reported())
        self.machine.command("systemctl", "stop", UNIT)
        self.machine.write(2)
        self.machine.power_off()
        self.assertTrue(self.machine.boot(), self.machine.said())
        wait_until("daemon", lambda: self.machine.unit("ActiveState") == "active")
        self.machine.write(3)
        self.assertEqual([1, 2, 3], self.machine.reported())

    def test_an_upgrade_loses_nothing_and_a_purge_leaves_nothing(self):
        self.start_with_the_package()
        self.machine.write(1)
        daemon = self.machine.unit("MainPID")
        self.machine.install(self.second)
        self.assertNotEqual(daemon, self.machine.unit("MainPID"))
        self.machine.write(2)
        self.assertEqual([1, 2], self.machine.reported())
        self.machine.command("dpkg", "--purge", "syslogmon")
        self.assertEqual("not-found", self.machine.unit("LoadState"))
        self.assertEqual("", self.machine.command("sh", "-c", "find /etc /usr /var/lib /var/log /run -name '*syslogmon*'"
                                                  " -not -path '/var/lib/dpkg/*'"))


class WithRsyslog(OnAMachine):
    """A Debian whose rsyslog reads the journal, too."""

    def test_with_the_drop_ins_in_place_rsyslog_writes_the_log_that_is_read(self):
        self.start(has_rsyslog=True)
        self.machine.install(self.first)
        self.machine.command("syslogmon", "event", "add", "EACH", "1", "--keyword", "numbered")
        self.machine.write(1)
        self.assertEqual([1], self.machine.reported())  # from the journal
        advice = self.machine.run("syslogmon", "doctor").stdout
        command = re.search(r"install -D -m 644 .* systemctl restart rsyslog$", advice, re.MULTILINE)
        self.assertTrue(command, advice)
        self.machine.command("sh", "-c", command[0])
        self.machine.command("syslogmon", "input", "remove", "journal")
        log = self.machine.root / "var/log/messages"
        self.machine.write(2)
        wait_until("line in the log", lambda: log.exists() and "numbered 2." in log.read_text())
        self.assertEqual([1, 2], self.machine.reported())


def main():
    if os.geteuid() != 0:
        sys.exit("needs root")
    if INSIDE not in os.environ:
        os.environ[INSIDE] = "yes"
        os.execvp("unshare", ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", sys.executable, *sys.argv])
    packages = tempfile.mkdtemp(prefix="package-")
    mount("-t", "tmpfs", "tmpfs", packages)
    OnAMachine.first = deb.make(packages)
    OnAMachine.second = deb.newer_version(OnAMachine.first, "99.0")
    case = OnAMachine
    if sys.argv[1:2] == ["--debian"]:
        case = WithRsyslog
        case.lower = debian(sys.argv[2], OnAMachine.first)
        del sys.argv[1:3]
    machine = Machine(case.lower)
    if not machine.boot():
        print(f"skipped: no machine boots here under systemd-nspawn:\n{machine.said()}")
        return SKIPPED
    machine.power_off()
    suite = unittest.defaultTestLoader.loadTestsFromNames(sys.argv[1:], case) if sys.argv[1:] else \
        unittest.defaultTestLoader.loadTestsFromTestCase(case)
    done = unittest.TextTestRunner(verbosity=2).run(suite)
    return 0 if done.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
