"""Members of a group may read what root has set up, whether the daemon runs or not, and change nothing."""
import os
import shutil
import stat
import subprocess

import lab

NOBODY = 65534
ADM = 4  # any group does


def as_nobody(group, argv):
    """Runs a program as nobody, who is in one more group."""
    return subprocess.run(["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", f"--groups={group}", *map(str, argv)],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace",
                          timeout=lab.PATIENCE, cwd="/")


READING = (
    ("status",), ("--json", "status"), ("event", "list"), ("event", "show", "DISK", "1"), ("get",), ("collect",),
    ("alerts",), ("--json", "alerts"), ("sink", "list"), ("sink", "show", "out"), ("sink", "undelivered", "out"),
    ("sink", "limit"), ("silence", "list"), ("input", "list"), ("reg", "list"), ("reg", "export"), ("trace", "level"),
    ("export",), ("export", "--all"), ("metrics",), ("fleet", "identity"),
)
CHANGING = (
    ("event", "add", "NET", "1", "--keyword", "x"), ("event", "remove", "DISK", "1"), ("set", "cycle", "600"),
    ("sink", "remove", "out"), ("sink", "limit", "5"), ("silence", "add", "--source", "DISK", "--for", "1h"),
    ("reg", "set", "A", "b", "c"), ("trace", "level", "detail"),
)


class Readers(lab.LabTest):
    def setUp(self):
        super().setUp()
        if subprocess.run(["setpriv", f"--groups={ADM}", "true"], capture_output=True).returncode != 0:
            self.skipTest("only root can be a member of a group for a test")
        if as_nobody(ADM, [lab.build_root() / "bin" / "syslogmon", "--version"]).returncode != 0:
            self.skipTest(f"the programs in {lab.build_root()} are not for everybody to run")
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.lab.command("sink", "add", "file", "out", f"path={self.lab.folder / 'out'}")
        self.lab.folder.chmod(0o755)
        self.lab.root.chmod(0o755)

    def let_in(self, group=ADM):
        """What the service does with Group= and the modes of its folders."""
        for name in ("state", "run", "log"):
            folder = self.lab.root / name
            folder.mkdir(exist_ok=True)
            os.chown(folder, 0, group)
            folder.chmod(0o750)

    def work(self):
        self.daemon.start()
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.scan()

    def reader(self, *words, group=ADM):
        return as_nobody(group, [lab.build_root() / "bin" / "syslogmon", "--root", self.lab.root, *words])

    def files(self):
        """Names, modes and groups of everything that was made."""
        return {str(path): (oct(path.lstat().st_mode), path.lstat().st_gid)
                for name in ("state", "run", "log") for path in (self.lab.root / name).rglob("*")}

    def assert_reads_as_root(self):
        before = self.files()
        for words in READING:
            read = self.reader(*words)
            self.assertEqual(0, read.returncode, (words, read.stderr))
            # How long ago something was moves between two calls.
            if words[0] not in ("status", "--json", "metrics", "sink"):
                self.assertEqual(self.lab.command(*words), read.stdout, words)
            self.assertEqual(before, self.files(), words)

    def test_a_member_reads_all_that_root_reads_while_the_daemon_runs(self):
        self.let_in()
        self.work()
        self.assertIn("running", self.reader("status").stdout)
        self.assertEqual(1, len(self.reader("alerts").stdout.splitlines()))
        self.assert_reads_as_root()

    def test_a_member_reads_when_the_daemon_has_ended_well_or_was_killed(self):
        self.let_in()
        self.work()
        self.daemon.stop()
        self.assertEqual(3, self.reader("status").returncode)
        self.assertEqual(self.lab.command("alerts"), self.reader("alerts").stdout)
        self.work()
        self.daemon.kill()
        self.assertEqual(2, len(self.reader("alerts").stdout.splitlines()))
        self.assertEqual(self.lab.command("event", "list"), self.reader("event", "list").stdout)

    def test_a_member_sees_what_is_committed_while_he_reads_again_and_again(self):
        self.let_in()
        self.daemon.start()
        for number in range(1, 21):
            lab.append(lab.MESSAGES, lab.stamped(f"error {number}"))
            self.daemon.scan()
            self.assertIn(f"error {number}\n", self.reader("alerts", "-n", "1").stdout)

    def test_a_member_changes_nothing(self):
        self.let_in()
        self.work()
        before = self.lab.command("reg", "export")
        for words in CHANGING:
            refused = self.reader(*words)
            self.assertEqual(1, refused.returncode, (words, refused.stderr))
            self.assertIn("run as root", refused.stderr, words)
        self.assertEqual(before, self.lab.command("reg", "export"))

    def test_a_member_sees_what_a_file_would_change_without_reading_its_secrets(self):
        self.let_in()
        self.work()
        secret = self.lab.folder / "token"
        secret.write_text("s3cret-of-root\n")
        secret.chmod(0o600)
        rules = self.lab.folder / "rules.yaml"
        rules.write_text(f"sinks:\n  - name: hook\n    kind: webhook\n    url: https://alerts.invalid/\n"
                         f"    token-file: {secret}\n")
        rules.chmod(0o644)
        dry = self.reader("apply", rules, "--dry-run", "--detailed-exitcode")
        self.assertEqual(2, dry.returncode, dry.stderr)
        self.assertIn("+ sink hook", dry.stdout)
        self.assertEqual(f"syslogmon: warning: the sink hook: the secret in {secret} cannot be read here (Permission denied), "
                         "so it was not looked at; apply refuses a sink whose secret it cannot read\n", dry.stderr)
        self.assertEqual(self.lab.command("apply", rules, "--dry-run"), dry.stdout)
        refused = self.reader("apply", rules)
        self.assertEqual(1, refused.returncode)
        self.assertIn("run as root", refused.stderr)

    def test_a_backup_of_a_member_is_his_own_alone(self):
        self.let_in()
        self.work()
        folder = self.lab.folder / "his"
        folder.mkdir()
        os.chown(folder, NOBODY, ADM)
        folder.chmod(0o750)
        self.assertEqual("", self.reader("backup", folder / "copy").stderr)
        self.assertEqual(0o600, stat.S_IMODE((folder / "copy").stat().st_mode))

    def test_a_stranger_reads_nothing(self):
        self.let_in()
        self.work()
        for words in READING:
            refused = self.reader(*words, group=NOBODY)
            self.assertNotEqual(0, refused.returncode, words)
            self.assertEqual("", refused.stdout, words)
        self.assertIn("run as root, or as a member of the group that may read it",
                      self.reader("alerts", group=NOBODY).stderr)

    def test_what_nobody_needs_for_reading_stays_private(self):
        self.let_in()
        self.work()
        readable = {os.path.basename(name) for name, (mode, _) in self.files().items() if int(mode, 8) & 0o077}
        self.assertEqual({"agent.db", "agent.db-wal", "agent.db-shm", "status.json", "trace.log"}, readable)
        for name, (mode, group) in self.files().items():
            if int(mode, 8) & 0o077:
                self.assertEqual((0o640, ADM), (int(mode, 8) & 0o777, group), name)

    def test_readers_are_let_in_to_what_was_private_before_and_out_again(self):
        self.work()
        self.assertNotEqual(0, self.reader("alerts").returncode)
        self.daemon.kill()  # which leaves a journal with the old rights
        self.let_in()
        self.work()
        self.assertEqual(2, len(self.reader("alerts").stdout.splitlines()))
        self.daemon.stop()
        for name in ("state", "run", "log"):
            (self.lab.root / name).chmod(0o700)
        self.work()
        self.assertNotEqual(0, self.reader("alerts").returncode)

    def test_a_copy_that_is_put_back_can_be_read_as_well(self):
        self.let_in()
        self.work()
        copy = self.lab.folder / "copy"
        self.lab.command("backup", copy)
        self.daemon.stop()
        self.lab.command("restore", copy)
        self.assertEqual(self.lab.command("alerts"), self.reader("alerts").stdout)

    def test_a_wrong_root_is_an_error_and_stays_as_it_is(self):
        empty = self.lab.folder / "empty"
        empty.mkdir()
        for words in READING:
            refused = subprocess.run([lab.build_root() / "bin" / "syslogmon", "--root", empty, *words],
                                     capture_output=True, text=True, stdin=subprocess.DEVNULL)
            self.assertEqual(1, refused.returncode, words)
            self.assertIn("name an install root with --root", refused.stderr)
        self.assertEqual([], list(empty.iterdir()))


if __name__ == "__main__":
    if shutil.which("setpriv") is None:
        raise SystemExit("setpriv is missing: tools/install-packages check installs it")
    lab.main()
