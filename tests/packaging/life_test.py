"""The life of the package on a host: installed, upgraded, removed, installed again, purged.

Needs root. It works on a copy of this machine's file system, which is one in name only: an overlay whose upper
layer lies in memory. Nothing of the machine is changed. /run, /tmp and /var/log are empty there, and a stand-in
for systemctl runs the real daemon.
"""
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import deb

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "system"))

import lab  # noqa: E402

PATIENCE = 300  # seconds after which something that should have happened is taken not to happen
INSIDE = "SYSLOGMON_PACKAGE_LAB"
HERE = Path(__file__).resolve().parent
ENVIRONMENT = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
               "HOME": "/root", "LC_ALL": "C", "DEBIAN_FRONTEND": "noninteractive"}


def enter_namespace():
    if os.geteuid() != 0:
        sys.exit("needs root")
    subprocess.run([lab.SOURCE / "tools" / "fetch-debs", lab.tools(), *lab.RSYSLOG], check=True)
    os.environ[INSIDE] = "yes"
    os.execvp("unshare", ["unshare", "--mount", "--pid", "--net", "--fork", "--kill-child", "--mount-proc",
                          sys.executable, *sys.argv])


def mount(*words):
    subprocess.run(["mount", *map(str, words)], check=True)


class Host:
    """The copy of the machine."""

    def __init__(self):
        layers = Path(tempfile.mkdtemp())
        mount("-t", "tmpfs", "tmpfs", layers)
        self.upper = layers / "upper"
        self.root = layers / "root"
        for folder in (self.upper, layers / "work", self.root):
            folder.mkdir()
        mount("-t", "overlay", "overlay",
              "-o", f"lowerdir=/,upperdir={self.upper},workdir={layers / 'work'}", self.root)
        for folder in ("run", "tmp", "var/log"):
            mount("-t", "tmpfs", "-o", "mode=0755", "tmpfs", self.root / folder)
        mount("-t", "proc", "proc", self.root / "proc")
        mount("--bind", "/dev", self.root / "dev")
        (self.root / "run/systemd/system").mkdir(parents=True)
        shutil.copy(HERE / "systemctl", self.root / "usr/local/sbin/systemctl")
        (self.root / "usr/sbin/policy-rc.d").unlink(missing_ok=True)
        self.forget_the_package()
        self.log = self.root / "var/log/messages"

    def forget_the_package(self):
        """The machine may have the package, or what an installation from source has left."""
        if self.state():
            self.command("dpkg", "--purge", "--force-all", "syslogmon")
        for folder in ("var/lib/syslogmon", "etc/syslogmon"):
            shutil.rmtree(self.root / folder, ignore_errors=True)
        for file in ("etc/rsyslog.d/syslogmon.conf", "etc/logrotate.d/syslogmon"):
            (self.root / file).unlink(missing_ok=True)

    def run(self, *argv, timeout=PATIENCE):
        return subprocess.run(["chroot", self.root, *map(str, argv)], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, env=ENVIRONMENT, timeout=timeout)

    def command(self, *argv):
        done = self.run(*argv)
        if done.returncode != 0:
            raise AssertionError(f"{argv} ended with {done.returncode}: {done.stdout}{done.stderr}")
        return done.stdout

    # ---- the package ----

    def install(self, package):
        shutil.copy(package, self.root / "tmp")
        self.command("dpkg", "--install", f"/tmp/{package.name}")

    def put_drop_ins_in_place(self):
        """By the command that doctor gives on a host with rsyslog and without the log."""
        (self.root / "etc/rsyslog.conf").touch()
        self.log.rename(self.log.with_name("kept"))
        advice = self.run("syslogmon", "doctor").stdout
        self.log.with_name("kept").rename(self.log)
        self.command("sh", "-c", re.search(r"install -D -m 644 .* systemctl restart rsyslog$", advice, re.MULTILINE)[0])

    def state(self):
        done = self.run("dpkg-query", "--show", "--showformat=${Version} ${db:Status-Status}", "syslogmon")
        return done.stdout

    def own_files(self):
        """Whatever bears the package's name, but for dpkg's and the unit state's records of it."""
        found = []
        for folder in ("etc", "lib/systemd", "usr", "var", "run"):
            for path in (self.root / folder).resolve().rglob("*syslogmon*"):
                found.append("/" + str(path.relative_to(self.root)))
        return sorted(path for path in found if not path.startswith("/var/lib/dpkg/"))

    def asked(self):
        """What systemctl was asked to do with units since the last time."""
        log = self.root / "run/systemctl.log"
        lines = log.read_text().splitlines() if log.exists() else []
        log.write_text("")
        return lines

    # ---- the monitor ----

    def write(self, *numbers):
        with open(self.log, "a") as log:
            for number in numbers:
                log.write(f"{time.strftime('%b %e %H:%M:%S')} host test: numbered {number}.\n")

    def reported(self):
        """The numbers of the lines that were reported, after a scan."""
        self.command("syslogmon", "scan", "--wait", "--timeout", PATIENCE)
        alerts = [json.loads(line) for line in self.command("syslogmon", "--json", "alerts").splitlines()]
        return [int(re.search(r"numbered (\d+)\.", alert["message"])[1]) for alert in alerts]

    def daemon(self):
        """The process ID of the daemon, or nothing."""
        done = self.run("syslogmon", "--json", "status")
        status = json.loads(done.stdout)
        return status["pid"] if status["running"] else None


class Rsyslogd:
    """A real rsyslogd, which follows the rules that are installed in the copy."""

    def __init__(self, host):
        self.host = host
        folder = Path(tempfile.mkdtemp())
        self.socket = folder / "socket"
        (folder / "rsyslog.conf").write_text(
            f'module(load="imuxsock" SysSock.Name="{self.socket}")\n$IncludeConfig {host.root}/etc/rsyslog.d/*.conf\n')
        # It writes the copy's /var/log: the rule names it so.
        mount("--bind", host.root / "var/log", "/var/log")
        libraries = lab.tool_libraries()
        self.process = subprocess.Popen(
            [lab.tool("rsyslogd"), "-n", "-f", folder / "rsyslog.conf", "-i", folder / "pid",
             "-M", libraries / "rsyslog"],
            env={**ENVIRONMENT, "LD_LIBRARY_PATH": str(libraries)})
        self.wait_until(self.socket.exists)

    def write(self, text):
        """Sends a line until it is in the log."""
        def arrives():
            subprocess.run(["logger", "--socket", self.socket, "--", text], check=True)
            return text.encode() in lab.content_of(self.host.log)
        self.wait_until(arrives)

    @staticmethod
    def wait_until(condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end:
                raise AssertionError("rsyslogd does not answer")
            time.sleep(0.05)

    def stop(self):
        self.process.kill()
        self.process.wait()
        subprocess.run(["umount", "--lazy", "/var/log"], check=True)


class Life(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        folder = tempfile.mkdtemp()
        mount("-t", "tmpfs", "tmpfs", folder)
        cls.first = deb.make(folder)
        cls.second = deb.newer_version(cls.first, "99.0")
        cls.earlier = deb.with_drop_ins(cls.first, "0.9")

    def setUp(self):
        self.host = Host()
        self.addCleanup(self.host.run, "systemctl", "stop", "syslogmond.service")

    def install(self):
        """The first installation: a log with lines in it, an event for each numbered line."""
        self.host.write(1, 2)
        self.host.install(self.first)
        self.host.command("syslogmon", "event", "add", "EACH", "1", "--keyword", "numbered")

    def test_an_installation_starts_the_daemon_behind_the_lines_that_are_there(self):
        self.install()
        self.assertIsNotNone(self.host.daemon())
        self.host.write(3, 4)
        self.assertEqual([3, 4], self.host.reported())
        self.assertEqual(["start syslogmond.service"], self.host.asked())
        self.assertEqual("enabled\n", self.host.command("systemctl", "is-enabled", "syslogmond.service"))

    # ---- the modes of the log ----

    LOGS = ("messages", "messages.1", "messages-20261101", "messages.2.gz")
    OTHERS = ("messages.old", "other")

    def open_all(self):
        """Everybody can read all files."""
        for name in (*self.LOGS, *self.OTHERS):
            (self.host.root / "var/log" / name).touch()
            os.chmod(self.host.root / "var/log" / name, 0o644)

    def modes(self, names):
        return [self.mode(name) for name in names]

    def mode(self, name="messages"):
        path = self.host.root / "var/log" / name
        return f"{path.owner()}:{path.group()} {path.stat().st_mode & 0o777:o}"

    def test_an_installation_closes_logs_that_everybody_can_read_and_rsyslogd_goes_on_writing_them(self):
        self.open_all()
        self.host.install(self.first)
        self.host.put_drop_ins_in_place()
        self.assertEqual(["root:adm 640"] * 4, self.modes(self.LOGS))
        self.assertEqual(["root:root 644"] * 2, self.modes(self.OTHERS))

        rsyslog = Rsyslogd(self.host)
        self.addCleanup(rsyslog.stop)
        rsyslog.write("goes on")
        self.assertEqual("root:adm 640", self.mode())
        self.host.log.rename(self.host.log.with_name("messages.1"))
        rsyslog.process.send_signal(signal.SIGHUP)
        rsyslog.write("in a new file")
        self.assertEqual("root:adm 640", self.mode())

    def test_an_upgrade_closes_them_too_but_for_what_dpkg_statoverride_opens(self):
        self.install()
        self.open_all()
        self.host.command("dpkg-statoverride", "--update", "--add", "root", "adm", "0644", "/var/log/messages")
        self.host.install(self.second)
        self.assertEqual(["root:adm 644", *["root:adm 640"] * 3], self.modes(self.LOGS))

    # ---- upgrade, removal ----

    def test_an_upgrade_restarts_the_daemon_and_loses_no_line(self):
        self.install()
        before = self.host.daemon()
        self.host.asked()
        self.host.write(3, 4)
        self.host.install(self.second)
        self.host.write(5)

        self.assertEqual("99.0 installed", self.host.state())
        self.assertEqual(["restart syslogmond.service"], self.host.asked())
        self.assertNotIn(self.host.daemon(), (before, None))
        self.assertEqual([3, 4, 5], self.host.reported())

    def test_an_upgrade_leaves_a_daemon_stopped_that_an_administrator_has_disabled(self):
        self.install()
        self.host.command("systemctl", "stop", "syslogmond.service")
        (self.host.root / "etc/systemd/system/multi-user.target.wants/syslogmond.service").unlink()
        self.host.install(self.second)
        self.assertIsNone(self.host.daemon())
        self.assertEqual("", self.host.run("systemctl", "is-enabled", "syslogmond.service").stdout)

    def test_an_upgrade_keeps_the_drop_ins_that_an_earlier_version_has_brought(self):
        self.host.install(self.earlier)
        configuration = self.host.root / "etc/logrotate.d/syslogmon"
        configuration.write_text(configuration.read_text().replace("weekly", "daily"))
        self.host.install(self.second)
        self.assertIn("    daily\n", configuration.read_text())
        self.assertTrue((self.host.root / "etc/rsyslog.d/syslogmon.conf").exists())
        self.host.command("dpkg", "--purge", "syslogmon")
        self.assertFalse(configuration.exists())

    def test_a_removed_package_keeps_what_it_knows_and_goes_on_when_it_is_installed_again(self):
        self.install()
        self.host.write(3)
        self.assertEqual([3], self.host.reported())
        self.host.asked()
        self.host.command("dpkg", "--remove", "syslogmon")

        self.assertEqual("1.0.0 config-files", self.host.state())
        self.assertEqual(["stop syslogmond.service"], self.host.asked())
        kept = self.host.own_files()
        self.assertEqual(set(), {path for path in kept if path.startswith("/etc/") and "systemd" not in path})
        self.assertEqual([], [path for path in kept if path.startswith("/usr/")])
        self.assertTrue((self.host.root / "var/lib/syslogmon/agent.db").exists())

        self.host.write(4, 5)
        self.host.install(self.first)
        self.host.write(6)
        self.assertEqual([3, 4, 5, 6], self.host.reported())
        self.assertEqual("enabled\n", self.host.command("systemctl", "is-enabled", "syslogmond.service"))

    def test_a_purged_package_leaves_nothing_but_the_log(self):
        before = self.host.own_files()
        self.install()
        self.host.put_drop_ins_in_place()
        self.assertNotEqual(before, self.host.own_files())
        self.host.asked()
        self.host.command("dpkg", "--purge", "syslogmon")
        self.assertEqual(before, [path for path in self.host.own_files() if path != "/run/syslogmond.said"
                                  and path != "/run/syslogmond.service.pid"])
        self.assertEqual(["stop syslogmond.service", "try-restart rsyslog.service"],
                         self.host.asked())
        self.assertTrue(self.host.log.exists())
        self.assertIn(self.host.run("dpkg-query", "--status", "syslogmon").returncode, (0, 1))
        self.assertNotIn("syslogmon", self.host.command("dpkg-query", "--show"))


if __name__ == "__main__":
    if INSIDE not in os.environ:
        enter_namespace()
    unittest.main(verbosity=2)
