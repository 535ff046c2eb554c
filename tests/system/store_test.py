"""The store under attack: floods on a small disk, a lock that somebody keeps, files that are taken away."""
import contextlib
import json
import os
import shutil
import signal
import socket
import sqlite3
import subprocess
import time

import lab

MEGABYTE = 1 << 20


def free_bytes(folder):
    disk = os.statvfs(folder)
    return disk.f_bavail * disk.f_frsize


class Flood(lab.LabTest):
    """More lines than the disk could hold as alerts: 150,000 of 330 bytes on 40 MB."""

    LINES = 150_000

    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.state = self.lab.root / "state"
        self.lab.mount_tmpfs(self.state, "40m")
        self.lab.look_at_changes(0)  # said again to the new store
        self.lab.watch("FLOOD", 1, "FAULT")
        self.lab.watch("SECOND", 2, "FAULT", report_count=2)
        self.daemon.start()

    def line(self, number):
        return lab.stamped(f"FAULT {number:06} ").ljust(329, "x")

    def flood(self):
        with open(lab.MESSAGES, "a") as log:
            for number in range(self.LINES):
                log.write(self.line(number) + "\n")
        self.daemon.scan()

    def test_every_hit_is_in_a_count_and_the_disk_is_not_full(self):
        self.flood()
        self.assertTrue(self.daemon.child.is_running())
        self.assertEqual(0, self.lab.status()["restarts"], self.lab.words())
        for source in ("FLOOD", "SECOND"):
            alerts = self.lab.alerts(source)
            self.assertEqual(self.LINES, sum(alert["count"] for alert in alerts), source)
            folded = alerts[-1]
            self.assertEqual([], [alert for alert in alerts[:-1] if "reports" in alert])
            self.assertGreater(folded["reports"], 50_000)
            self.assertIn(f"FAULT {self.LINES - 1:06} ", folded["last_message"])
        flood = self.lab.alerts("FLOOD")
        numbers = [int(alert["message"].split("FAULT ")[1][:6]) for alert in flood]
        self.assertEqual(list(range(len(flood))), numbers, "the folded one begins behind the last")

        self.assertGreater(free_bytes(self.state), 10 * MEGABYTE)
        self.assertLess((self.state / "agent.db-wal").stat().st_size, 5 * MEGABYTE)

    def test_what_follows_is_reported_and_the_space_can_be_used_by_others(self):
        self.flood()
        (self.state / "ballast").write_bytes(bytes(10 * MEGABYTE))
        lab.append(lab.MESSAGES, self.line(self.LINES))
        self.daemon.scan()
        self.assertIn(f"FAULT {self.LINES:06} ", self.lab.messages("FLOOD")[-1])
        self.daemon.stop()
        self.daemon.start()
        self.assertEqual(self.LINES + 1, sum(alert["count"] for alert in self.lab.alerts("FLOOD")))


class Counts(lab.LabTest):
    def test_an_alert_counts_the_repeats_of_its_line(self):
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("THREE", 1, "error", report_count=3)
        self.daemon.start()
        repeats = lab.stamped("", tag="")[:-len(": ")] + "last message repeated 49 times"
        lab.append(lab.MESSAGES, lab.stamped("error"), repeats, lab.stamped("error"),
                   lab.stamped("error"))
        self.daemon.scan()
        self.assertEqual([50], [alert["count"] for alert in self.lab.alerts("THREE")])
        self.assertEqual(2, self.lab.hits("THREE"))


class Lock(lab.LabTest):
    """Somebody begins a transaction in the store and does not end it."""

    PULSE = 1.0  # seconds in which the watchdog of this daemon is fed

    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.systemd = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.systemd.bind(str(self.lab.folder / "notify"))
        self.systemd.setblocking(False)
        os.environ.update({"NOTIFY_SOCKET": str(self.lab.folder / "notify"),
                           "WATCHDOG_USEC": str(int(3e6 * self.PULSE))})
        self.daemon.start()
        self.holder = sqlite3.connect(self.lab.root / "state" / "agent.db", isolation_level=None)
        self.holder.execute("BEGIN IMMEDIATE")
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.wake()
        self.lab.wait_until("the status tells of the wait",
                            lambda: self.daemon.published()["waiting_since_ms"] > 0)

    def tearDown(self):
        for name in ("NOTIFY_SOCKET", "WATCHDOG_USEC"):
            os.environ.pop(name)
        self.holder.close()
        self.systemd.close()
        super().tearDown()

    def was_fed(self):
        """Has the watchdog been fed since the last call?"""
        fed = False
        with contextlib.suppress(BlockingIOError):
            while True:
                fed = b"WATCHDOG=1" in self.systemd.recv(4096) or fed
        return fed

    def said(self, text):
        return self.daemon.child.said().count(text)

    def test_a_wait_is_told_until_it_is_over(self):
        self.assertIn("waits for the store's lock", self.lab.run("status").stdout)
        self.assertEqual(self.daemon.published()["waiting_since_ms"],
                         self.lab.status()["waiting_since_ms"])
        self.assertEqual(1, self.said("another process holds the lock of"))
        self.assertEqual(0, self.said("is over"))

        self.holder.execute("COMMIT")
        self.lab.wait_until("the alert is stored", lambda: self.lab.texts("DISK") == ["error"])
        self.assertEqual(1, self.said("another process holds the lock of"))
        self.assertEqual(1, self.said("is over after"))
        self.assertIsNone(self.lab.status()["waiting_since_ms"])

    def test_the_watchdog_is_not_fed_while_it_waits(self):
        self.assertTrue(self.was_fed())
        time.sleep(3 * self.PULSE)
        self.assertFalse(self.was_fed())
        self.holder.execute("COMMIT")
        self.lab.wait_until("it is fed again", self.was_fed)

    def test_a_stop_ends_the_wait_and_the_line_is_read_again(self):
        self.daemon.stop()  # or else it would take ten minutes
        self.holder.execute("COMMIT")
        self.daemon.start()
        self.daemon.scan()
        self.assertEqual(["error"], self.lab.texts("DISK"))


class Files(lab.LabTest):
    """Files of the agent that somebody takes away while the daemon runs."""

    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.daemon.start()
        self.store = self.lab.root / "state" / "agent.db"

    def copy_store(self):
        """A copy of all that is stored, made as a backup makes it."""
        copy = self.lab.folder / "copy"
        with sqlite3.connect(self.store) as store, sqlite3.connect(copy) as backup:
            store.backup(backup)
        store.close()
        backup.close()
        return copy

    def end_of_daemon(self):
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.wake()
        return self.daemon.child.wait()

    def test_a_daemon_whose_store_was_removed_says_so_and_ends(self):
        copy = self.copy_store()
        self.store.unlink()
        self.assertEqual(1, self.end_of_daemon())
        self.assertIn("was removed or replaced while the daemon ran", self.daemon.child.said())

        self.daemon.launch()
        self.assertEqual(1, self.daemon.child.wait())
        self.assertIn("it is gone, and there was one", self.daemon.child.said())
        self.assertIn("it is gone, and there was one", self.lab.run("event", "list").stderr)

        shutil.copy(copy, self.store)
        self.daemon.start()
        self.daemon.scan()
        self.assertEqual(["error"], self.lab.texts("DISK"))

    def test_a_daemon_whose_store_was_replaced_ends_and_the_next_one_takes_the_new_one(self):
        self.copy_store().rename(self.store)
        refused = self.lab.run("event", "add", "FAN", "1", "--keyword", "fan")
        self.assertEqual(1, refused.returncode)
        self.assertIn("works with another file", refused.stderr)
        self.assertEqual(1, self.end_of_daemon())

        self.daemon.start()
        self.daemon.scan()
        self.assertEqual(["error"], self.lab.texts("DISK"))

    def test_a_removed_run_time_folder_lets_no_second_daemon_start(self):
        shutil.rmtree(self.lab.root / "run")
        status = self.lab.run("--json", "status")
        self.assertTrue(json.loads(status.stdout)["running"], status.stdout)
        first = self.daemon.child
        self.daemon.launch()
        self.assertEqual(1, self.daemon.child.wait())
        self.assertIn(f"another one works with it, process {first.pid}", self.daemon.child.said())
        self.assertTrue(first.is_running())
        first.signal(signal.SIGTERM)
        self.assertEqual(0, first.wait())


class Restored(lab.LabTest):
    """A copy that cannot be put into the place of the store after all."""

    def test_nothing_that_was_committed_is_lost_when_the_last_step_fails(self):
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        copy = self.lab.folder / "copy"
        self.lab.command("backup", copy)
        self.daemon.start()
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.scan()
        self.daemon.kill()
        state = self.lab.root / "state"
        store = state / "agent.db"
        # What was committed last is in the journal alone, and no file comes into the place of a mounted one.
        self.assertGreater((state / "agent.db-wal").stat().st_size, 0)
        subprocess.run(["mount", "--bind", store, store], check=True)
        refused = self.lab.run("restore", copy)
        subprocess.run(["umount", store], check=True)
        self.assertEqual(1, refused.returncode)
        self.assertIn("the store is as it was", refused.stderr)
        self.assertEqual(["DISK"], [alert["source"] for alert in self.lab.alerts()])
        self.assertEqual([], list(state.glob("agent.db.new*")))
        self.lab.command("restore", copy)
        self.assertEqual([], self.lab.alerts())

    def test_the_journal_of_a_store_that_is_gone_is_not_taken_for_the_copys(self):
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        copy = self.lab.folder / "copy"
        self.lab.command("backup", copy)
        self.daemon.start()
        self.lab.watch("LATER", 2, "later")
        self.daemon.kill()
        state = self.lab.root / "state"
        self.assertGreater((state / "agent.db-wal").stat().st_size, 0)
        (state / "agent.db").unlink()
        self.lab.command("restore", copy)
        self.assertEqual(["DISK"], [event["source"] for event in self.lab.json("event", "list")["events"]])
        self.assertTrue((state / "agent.db-wal.old").exists())


if __name__ == "__main__":
    lab.main()
