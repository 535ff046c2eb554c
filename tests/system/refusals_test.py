"""Refusals: one daemon per root, no work on a store that cannot be trusted, and what needs a daemon."""
import shutil
import sqlite3
import subprocess

import lab


class RefusalTest(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.store = self.lab.root / "state" / "agent.db"

    def assert_daemon_refuses(self, *told):
        """The daemon ends at once with a message, and the store is as it was."""
        before = self.store.read_bytes()
        child = self.daemon.launch()
        self.assertEqual(1, child.wait())
        for text in told:
            self.assertIn(text, child.said())
        self.assertTrue(child.said().startswith("syslogmond: cannot use") or
                        child.said().startswith("syslogmond: cannot open"), child.said())
        self.assertEqual(before, self.store.read_bytes())

    def assert_command_refuses(self, *told):
        before = self.store.read_bytes()
        for words in (("event", "list"), ("event", "add", "FAN", "1", "--keyword", "fan"),
                      ("set", "cycle", "10"), ("alerts",), ("status",)):
            done = self.lab.run(*words)
            self.assertEqual(1, done.returncode, words)
            self.assertEqual("", done.stdout)
            for text in told:
                self.assertIn(text, done.stderr)
        self.assertEqual(before, self.store.read_bytes())


class SecondDaemon(RefusalTest):
    def test_a_second_daemon_on_the_same_root_is_refused_and_the_first_works_on(self):
        self.daemon.start()
        second = lab.Daemon(self.lab)
        child = second.launch()
        self.assertEqual(1, child.wait())
        self.assertIn(f"already running as process {self.daemon.pid}", child.said())

        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.scan()
        self.assertEqual(["error"], self.lab.texts())
        self.assertEqual(self.daemon.pid, self.lab.status()["pid"])

    def test_a_daemon_starts_right_after_another_was_killed(self):
        self.daemon.start()
        self.daemon.kill()
        self.daemon.start()
        self.assertTrue(self.lab.status()["running"])


class UntrustedStore(RefusalTest):
    def test_a_store_on_a_read_only_disk_is_refused(self):
        state = self.lab.root / "state"
        for options in (["--bind", state, state], ["-o", "remount,ro,bind", state]):
            subprocess.run(["mount", *options], check=True)
        self.lab.on_close(lambda: subprocess.run(["umount", state], check=True))
        self.assert_daemon_refuses(str(self.store), "Read-only file system")
        self.assert_command_refuses(str(self.store), "Read-only file system")

    def test_an_empty_store_is_refused(self):
        self.store.write_bytes(b"")
        self.assert_daemon_refuses(str(self.store), "the file is empty", "put a copy of it back")
        self.assert_command_refuses(str(self.store), "the file is empty")

    def test_a_file_that_is_no_store_is_refused(self):
        self.store.write_bytes(b"this is no store\n" * 1000)
        self.assert_daemon_refuses(str(self.store), "file is not a database", "put a copy of it back")
        self.assert_command_refuses(str(self.store), "file is not a database")

    def test_a_store_that_lost_its_second_half_is_refused_by_the_daemon(self):
        self.settle()
        content = self.store.read_bytes()
        self.store.write_bytes(content[:len(content) // 2])
        self.assert_daemon_refuses(str(self.store), "put a copy of it back")

    def test_a_store_with_a_damaged_page_is_refused_by_the_daemon(self):
        self.settle()
        content = bytearray(self.store.read_bytes())
        page = 4096
        content[3 * page:4 * page] = b"\x55" * page
        self.store.write_bytes(content)
        self.assert_daemon_refuses(str(self.store), "put a copy of it back")

    def test_a_database_of_another_program_is_refused(self):
        self.store.unlink()
        with sqlite3.connect(self.store) as database:
            database.execute("CREATE TABLE other (name TEXT)")
        database.close()
        self.assert_daemon_refuses(str(self.store), "not a store of the agent")
        self.assert_command_refuses(str(self.store), "not a store of the agent")

    def test_a_store_of_a_newer_version_is_refused(self):
        with sqlite3.connect(self.store) as database:
            database.execute("PRAGMA user_version = 1000")
        database.close()
        self.settle()
        self.assert_daemon_refuses(str(self.store), "newer version")
        self.assert_command_refuses(str(self.store), "newer version")

    def settle(self):
        """Brings all changes from the journal into the store's own file."""
        with sqlite3.connect(self.store) as database:
            database.execute("PRAGMA wal_checkpoint(TRUNCATE)")
        database.close()

    def test_a_copy_that_is_put_back_serves_again(self):
        self.settle()
        copy = self.lab.folder / "copy.db"
        shutil.copyfile(self.store, copy)
        self.store.write_bytes(b"")
        self.assertEqual(1, self.daemon.launch().wait())
        shutil.copyfile(copy, self.store)
        self.daemon.start()
        self.assertEqual("DISK", self.lab.json("event", "list")["events"][0]["source"])


class WithoutADaemon(RefusalTest):
    def test_a_scan_needs_the_daemon(self):
        for words in (["scan"], ["scan", "--wait"]):
            done = self.lab.run(*words)
            self.assertEqual(3, done.returncode)
            self.assertRegex(done.stderr, "syslogmond is not running")

    def test_the_status_says_that_the_daemon_is_not_running(self):
        done = self.lab.run("status")
        self.assertEqual(3, done.returncode)
        self.assertRegex(done.stdout, r"state\s+not running")
        self.assertFalse(self.lab.status()["running"])

    def test_the_status_of_a_killed_daemon_is_that_it_is_not_running(self):
        self.daemon.start()
        self.assertEqual(0, self.lab.run("status").returncode)
        self.daemon.kill()
        self.assertEqual(3, self.lab.run("status").returncode)
        self.assertEqual(3, self.lab.run("scan", "--wait").returncode)

    def test_a_scan_that_is_waited_for_ends_when_the_daemon_does(self):
        self.daemon.start()
        lab.append(lab.MESSAGES, *(lab.stamped(f"error {n}") for n in range(80_000)))
        traced = len(self.lab.trace())
        self.daemon.wake()
        self.lab.wait_for_trace("error 0", since=traced)
        waiting = subprocess.Popen([lab.build_root() / "bin" / "syslogmon", "--root", self.lab.root,
                                    "scan", "--wait"], stderr=subprocess.DEVNULL)
        self.addCleanup(waiting.wait)
        self.daemon.kill()
        self.assertEqual(3, waiting.wait(timeout=lab.PATIENCE))

    def test_everything_else_works(self):
        for words in (("event", "list"), ("event", "show", "DISK", "1"),
                      ("event", "add", "FAN", "1", "--keyword", "fan"),
                      ("event", "set", "FAN", "1", "--report-count", "2"),
                      ("event", "remove", "FAN", "1"), ("get",), ("set", "cycle", "10"), ("alerts",),
                      ("reg", "list"), ("trace", "level"), ("trace", "level", "error")):
            done = self.lab.run(*words)
            self.assertEqual((0, ""), (done.returncode, done.stderr), words)


del RefusalTest  # it has no test of its own

if __name__ == "__main__":
    lab.main()
