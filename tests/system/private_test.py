"""What the agent keeps is for its own user alone, whatever the umask: it quotes logs that others may not read."""
import os
import stat

import lab


class Private(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")

    def modes(self):
        """Of everything below the root but the libraries, which belong to the build."""
        found = {}
        for folder in ("state", "run", "log"):
            for path in (self.lab.root / folder, *(self.lab.root / folder).rglob("*")):
                found[str(path.relative_to(self.lab.root))] = stat.S_IMODE(path.lstat().st_mode)
        return found

    def assert_private(self):
        found = self.modes()
        for made in ("state/agent.db", "run/status.json", "run/syslogmond.lock", "log/trace.log"):
            self.assertIn(made, found)
        open_to_others = {name: oct(mode) for name, mode in found.items() if mode & 0o077}
        self.assertEqual({}, open_to_others)

    def work(self):
        self.daemon.start()
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.scan()

    def test_with_an_umask_that_hides_nothing(self):
        before = os.umask(0)
        self.addCleanup(os.umask, before)
        for folder in ("state", "run", "log"):
            lab.remove(self.lab.root / folder)
        self.lab.look_at_changes(0)
        self.work()
        self.assert_private()

    def test_what_an_earlier_version_left_open_is_put_right(self):
        self.work()
        self.daemon.stop()
        for name in self.modes():
            path = self.lab.root / name
            path.chmod(0o777 if path.is_dir() else 0o666)
        (self.lab.root / "log" / "trace.1.log").touch(0o644)
        self.work()
        self.assertEqual({name: oct(mode) for name, mode in self.modes().items()
                          if mode & 0o077 and not name.startswith(("state/", "run/E", "run/D", "run/A"))}, {})

    def test_a_folder_that_holds_something_else_is_left_as_it_is(self):
        log = self.lab.root / "log"
        log.chmod(0o755)
        (log / "of-another-program.log").touch()
        self.work()
        self.assertEqual(0o755, stat.S_IMODE(log.stat().st_mode))
        self.assertEqual(0o600, stat.S_IMODE((log / "trace.log").stat().st_mode))


if __name__ == "__main__":
    lab.main()
