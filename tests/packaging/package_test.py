"""What is in the package, what lintian says of it, and how far the service is locked in."""
import gzip
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

import deb

# Type and mode, and path. TRIPLET stands for the machine's, such as x86_64-linux-gnu.
FILES = """
-rw-r--r-- ./lib/systemd/system/syslogmond.service
-rwxr-xr-x ./usr/bin/syslogmon
-rw-r--r-- ./usr/lib/TRIPLET/syslogmon/lib/libtarsk.so
-rw-r--r-- ./usr/lib/TRIPLET/syslogmon/lib/vkevmon.dll
-rw-r--r-- ./usr/lib/TRIPLET/syslogmon/lib/vkirtupt.dll
-rw-r--r-- ./usr/lib/TRIPLET/syslogmon/lib/vkmncall.dll
-rwxr-xr-x ./usr/sbin/syslogmond
-rw-r--r-- ./usr/share/bash-completion/completions/syslogmon
lrwxrwxrwx ./usr/share/bash-completion/completions/syslogmond -> syslogmon
-rw-r--r-- ./usr/share/doc/syslogmon/README.Debian
-rw-r--r-- ./usr/share/doc/syslogmon/changelog.gz
-rw-r--r-- ./usr/share/doc/syslogmon/copyright
-rw-r--r-- ./usr/share/doc/syslogmon/examples/ansible/roles/syslogmon/defaults/main.yml
-rw-r--r-- ./usr/share/doc/syslogmon/examples/ansible/roles/syslogmon/meta/main.yml
-rw-r--r-- ./usr/share/doc/syslogmon/examples/ansible/roles/syslogmon/tasks/main.yml
-rw-r--r-- ./usr/share/doc/syslogmon/examples/ansible/site.yml
-rwxr-xr-x ./usr/share/doc/syslogmon/examples/fleet/accounts
-rw-r--r-- ./usr/share/doc/syslogmon/examples/grafana/dashboard.json
-rw-r--r-- ./usr/share/doc/syslogmon/examples/host.yaml
-rw-r--r-- ./usr/share/doc/syslogmon/examples/logrotate-other-logs
-rw-r--r-- ./usr/share/doc/syslogmon/examples/policies.yaml
-rw-r--r-- ./usr/share/doc/syslogmon/examples/prometheus/rules.yml
-rw-r--r-- ./usr/share/doc/syslogmon/examples/prometheus/rules_test.yml
-rw-r--r-- ./usr/share/doc/syslogmon/examples/rules.yaml
-rw-r--r-- ./usr/share/doc/syslogmon/fleet.md
-rw-r--r-- ./usr/share/doc/syslogmon/histories.md
-rw-r--r-- ./usr/share/doc/syslogmon/json.md
-rw-r--r-- ./usr/share/doc/syslogmon/metrics.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/README.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/alertmanager.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/console.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/file.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/journal.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/mail.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/nats.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/program.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/snmp.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/syslog.md
-rw-r--r-- ./usr/share/doc/syslogmon/sinks/webhook.md
-rw-r--r-- ./usr/share/doc/syslogmon/web.md
-rw-r--r-- ./usr/share/fish/vendor_completions.d/syslogmon.fish
lrwxrwxrwx ./usr/share/fish/vendor_completions.d/syslogmond.fish -> syslogmon.fish
-rw-r--r-- ./usr/share/man/man1/syslogmon.1.gz
-rw-r--r-- ./usr/share/man/man5/syslogmon-inputs.5.gz
-rw-r--r-- ./usr/share/man/man5/syslogmon-rules.5.gz
-rw-r--r-- ./usr/share/man/man5/syslogmon-sinks.5.gz
-rw-r--r-- ./usr/share/man/man8/syslogmond.8.gz
-rw-r--r-- ./usr/share/syslogmon/logrotate.conf
-rw-r--r-- ./usr/share/syslogmon/rsyslog.conf
-rw-r--r-- ./usr/share/syslogmon/rules.schema.json
-rw-r--r-- ./usr/share/zsh/vendor-completions/_syslogmon
"""

SNMP_FILES = """
-rw-r--r-- ./usr/lib/TRIPLET/syslogmon/lib/snmp.so
-rw-r--r-- ./usr/share/doc/syslogmon-snmp/changelog.gz
-rw-r--r-- ./usr/share/doc/syslogmon-snmp/copyright
-rw-r--r-- ./usr/share/snmp/mibs/SYSLOGMON-MIB.txt
"""

CONTROL_FILES = """
-rw-r--r-- ./control
-rw-r--r-- ./md5sums
-rwxr-xr-x ./postinst
-rwxr-xr-x ./postrm
-rwxr-xr-x ./prerm
"""

# Tenths: 20 is the figure 2.0 of systemd-analyze security.
EXPOSURE_LIMIT = 20


def output(*argv, stdin=None):
    return subprocess.run(argv, stdin=stdin, capture_output=True, text=True, check=True).stdout


def listing(tar):
    """Mode, owner and path of all that is no folder."""
    triplet = output("dpkg-architecture", "-qDEB_HOST_MULTIARCH").strip()
    with tempfile.TemporaryFile() as archive:
        subprocess.run(tar, stdout=archive, check=True)
        archive.seek(0)
        rows = [line.split(None, 5) for line in output("tar", "tv", stdin=archive).splitlines()]
    for row in rows:
        assert row[1] == "root/root", row
    return sorted(f"{row[0]} {row[5].replace(triplet, 'TRIPLET')}" for row in rows if row[0][0] != "d")


class Package(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.package = deb.make(cls.folder.name)
        (cls.snmp,) = Path(cls.folder.name).glob("syslogmon-snmp_*.deb")
        cls.tree = Path(cls.folder.name) / "unpacked"
        subprocess.run(["dpkg-deb", "--extract", cls.package, cls.tree], check=True)

    def test_it_holds_these_files(self):
        self.assertEqual(sorted(FILES.split("\n")[1:-1]),
                         listing(["dpkg-deb", "--fsys-tarfile", self.package]))

    def test_what_sends_snmp_is_a_package_of_its_own(self):
        self.assertEqual(sorted(SNMP_FILES.split("\n")[1:-1]), listing(["dpkg-deb", "--fsys-tarfile", self.snmp]))
        version = output("dpkg-deb", "--field", self.package, "Version").strip()
        needed = output("dpkg-deb", "--field", self.snmp, "Depends")
        self.assertIn(f"syslogmon (= {version})", needed)
        self.assertIn("libsnmp", needed)
        self.assertNotIn("libsnmp", output("dpkg-deb", "--field", self.package, "Depends"))
        self.assertEqual(["-rw-r--r-- ./control", "-rw-r--r-- ./md5sums"],
                         listing(["dpkg-deb", "--ctrl-tarfile", self.snmp]))

    def test_without_that_package_a_sink_of_its_kind_is_refused_with_its_name(self):
        root = Path(self.folder.name) / "install-root"
        (root / "state").mkdir(parents=True)
        (root / "lib").symlink_to(next(self.tree.glob("usr/lib/*/syslogmon/lib")))
        community = Path(self.folder.name) / "community"
        community.write_text("public\n")
        adding = ("--root", root, "sink", "add", "snmp", "trapd", "receiver=127.0.0.1", f"community-file={community}")
        with self.assertRaises(subprocess.CalledProcessError) as refused:
            self.run_unpacked("usr/bin/syslogmon", *adding)
        self.assertIn("install the package syslogmon-snmp", refused.exception.stderr)
        unpacked = Path(self.folder.name) / "unpacked-snmp"
        subprocess.run(["dpkg-deb", "--extract", self.snmp, unpacked], check=True)
        library = root / "lib" / "snmp.so"
        shutil.copy(next(unpacked.rglob("snmp.so")), library)
        self.addCleanup(library.unlink)
        self.run_unpacked("usr/bin/syslogmon", *adding)

    def test_it_has_an_empty_folder_for_rules_files(self):
        folder = self.tree / "etc/syslogmon/conf.d"
        self.assertEqual([], list(folder.iterdir()))

    def test_its_control_part_holds_these_files(self):
        self.assertEqual(sorted(CONTROL_FILES.split("\n")[1:-1]),
                         listing(["dpkg-deb", "--ctrl-tarfile", self.package]))

    def test_it_needs_neither_a_syslog_daemon_nor_its_rotation(self):
        self.assertNotIn(" ./etc/", FILES)
        self.assertEqual("", output("dpkg-deb", "--field", self.package, "Recommends").strip())
        self.assertNotIn("rsyslog", output("dpkg-deb", "--field", self.package, "Depends"))

    def texts(self):
        """Each text file of the package with what it says."""
        for path in sorted(self.tree.rglob("*")):
            if not path.is_file() or path.is_symlink():
                continue
            data = path.read_bytes()
            if path.suffix == ".gz":
                data = gzip.decompress(data)
            if b"\0" not in data:
                yield path, data.decode()

    def exists(self, named):
        return (self.tree / named.lstrip("/")).exists()

    def test_the_files_of_the_package_that_its_texts_name_are_in_it(self):
        own = re.compile(r"/(?:usr/share/doc/syslogmon|usr/share/syslogmon|usr/lib/systemd|lib/systemd"
                         r"|etc/syslogmon)[\w./-]*")
        named = {(path.relative_to(self.tree), name.rstrip("."))
                 for path, text in self.texts() for name in own.findall(text)}
        # Secrets are an administrator's to make, in a folder that is there.
        named = {(path, "/etc/syslogmon" if name.startswith("/etc/syslogmon/") else name) for path, name in named}
        self.assertGreater(len(named), 10)
        self.assertEqual([], [f"{path}: {name}" for path, name in sorted(named) if not self.exists(name)])

    def test_no_text_of_the_package_sends_its_reader_to_a_file_beside_it_that_is_not_there(self):
        lost = []
        for path, text in self.texts():
            beside = re.findall(r"\]\(([^)#:]+)[^)]*\)", text) if path.suffix == ".md" else []
            beside += re.findall(r"(?<![\w/])\.\./[\w./-]+", text)
            lost += [f"{path.relative_to(self.tree)}: {name}" for name in beside if not (path.parent / name).exists()]
        self.assertEqual([], lost)

    def test_its_rule_for_rsyslog_is_the_one_of_the_doctors_advice(self):
        rule = (self.tree / "usr/share/syslogmon/rsyslog.conf").read_text()
        wanted = [line for line in rule.splitlines() if not line.startswith("#")]
        self.assertIn('fileCreateMode="0640"', " ".join(wanted))
        # What the advice looks like is tests/packaging/rsyslog_test.py's.
        program = (self.tree / "usr/bin/syslogmon").read_bytes()
        self.assertIn("\n".join(wanted).encode(), program)

    def test_lintian_finds_neither_errors_nor_warnings(self):
        done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error,warning", self.package, self.snmp],
                              capture_output=True, text=True)
        self.assertEqual((0, ""), (done.returncode, done.stdout))

    def test_its_version_is_that_of_the_programs_and_of_the_changelog(self):
        version = output("dpkg-deb", "--field", self.package, "Version").strip()
        packaged = output("gzip", "-dc", self.tree / "usr/share/doc/syslogmon/changelog.gz")
        self.assertEqual(version, re.search(r"\(([^)]*)\)", packaged)[1])
        for program in ("usr/bin/syslogmon", "usr/sbin/syslogmond"):
            self.assertEqual(f"{Path(program).name} {version}", self.run_unpacked(program, "--version").strip())

    def run_unpacked(self, program, *arguments):
        libraries = self.tree / "usr/lib" / output("dpkg-architecture", "-qDEB_HOST_MULTIARCH").strip()
        return output("env", f"LD_LIBRARY_PATH={libraries / 'syslogmon/lib'}", self.tree / program, *arguments)

    def test_the_unit_is_understood_by_systemd(self):
        # systemd looks for the program, and for the targets that units need without saying so.
        root = Path(self.folder.name) / "root"
        shutil.copytree(self.tree, root, symlinks=True)
        units = root / "lib/systemd/system"
        for name in ("sysinit", "basic", "shutdown", "multi-user", "time-set"):
            (units / f"{name}.target").write_text("[Unit]\nDefaultDependencies=no\n")
        (root / "bin").mkdir()
        for program in ("bin/kill",):
            (root / program).write_text("")
            (root / program).chmod(0o755)
        done = subprocess.run(["systemd-analyze", f"--root={root}", "--man=no", "verify", "syslogmond.service"],
                              capture_output=True, text=True)
        self.assertEqual((0, ""), (done.returncode, done.stdout + done.stderr))

    def test_the_service_is_locked_in(self):
        unit = self.tree / "lib/systemd/system/syslogmond.service"
        done = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--no-pager",
                               f"--threshold={EXPOSURE_LIMIT}", unit], capture_output=True, text=True)
        self.assertEqual(0, done.returncode, done.stdout + done.stderr)
        self.assertIn("Overall exposure level", done.stdout)

    def test_the_service_says_what_it_has_to_say_under_the_name_that_the_monitor_passes_over(self):
        unit = (self.tree / "lib/systemd/system/syslogmond.service").read_text()
        self.assertIn("\nSyslogIdentifier=TARSKvkvmain\n", unit)


if __name__ == "__main__":
    unittest.main(verbosity=2)
