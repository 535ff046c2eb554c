"""Supervision: the monitor ends, or is stopped, or cannot store its work, and no line is lost by it."""
import signal

import lab

# Enough for a pass that a signal can strike.
MANY = 50_000


class FailedLoad(lab.LabTest):
    """An event with a missing value makes the load of the table fail, and so ends the monitor."""

    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.lab.watch("FAN", 1, "error", report_count=3)

    def see(self, text):
        lab.append(lab.MESSAGES, lab.stamped(text))

    def damage(self):
        self.lab.command("reg", "delete", self.lab.event_key("DISK", 1), "ReportCount")

    def wait_for_state(self, state, seconds=lab.PATIENCE):
        self.lab.wait_until(f"the monitor is {state}",
                            lambda: self.lab.status().get("state") == state, seconds)

    def assert_mending_is_told(self):
        told = self.lab.status()["damaged"]
        self.assertEqual([("DISK", "1", "it has no ReportCount of 4 bytes")],
                         [(event["source"], event["id"], event["problem"]) for event in told])
        shown = self.lab.run("status").stdout
        self.assertIn("event DISK 1 cannot be loaded: it has no ReportCount of 4 bytes", shown)
        self.assertIn("syslogmon event remove 'DISK' 1", shown)

    def test_a_failed_reload_is_told_and_tried_again_after_growing_pauses_until_it_is_mended(self):
        self.daemon.start()
        self.see("error")
        self.daemon.scan()
        self.damage()
        self.daemon.child.signal(signal.SIGHUP)

        self.wait_for_state("pausing")
        self.assert_mending_is_told()
        self.lab.wait_until("it was tried twice again",
                            lambda: "started again in 4 s" in self.daemon.child.said())
        pauses = [line.rsplit(" in ", 1)[1] for line in self.daemon.child.said().splitlines()]
        self.assertEqual(["1 s", "2 s", "4 s"], pauses)
        self.assertEqual(3, self.lab.status()["restarts"])
        self.assertEqual("VKVMonQueGet() failed", self.lab.status()["last_error"])
        self.see("error while the monitor was down")

        # What the status says mends it, without waiting for the end of the pause.
        passes, due = self.daemon.passes(), self.daemon.published()["next_start_ms"]
        self.lab.command("event", "remove", "DISK", "1")
        self.lab.wait_until("the monitor has made its first pass", lambda: self.daemon.passes() > passes)
        self.assertLess(self.daemon.published()["last_pass"]["began_ms"], due)
        self.wait_for_state("running")
        self.daemon.scan()
        self.lab.watch("DISK", 1, "error")
        self.lab.wait_until("the event is back",
                            lambda: self.lab.status()["events"] == 2)
        self.see("error after all")
        self.daemon.scan()
        self.assertEqual(["error", "error after all"], self.lab.texts("DISK"))
        self.assertEqual(["error after all"], self.lab.texts("FAN"), "a hit of another event was lost")
        self.assertEqual([], self.lab.status()["damaged"])

    def test_a_value_that_is_put_back_mends_it_at_the_next_try(self):
        self.daemon.start()
        self.damage()
        self.daemon.child.signal(signal.SIGHUP)
        self.wait_for_state("pausing")
        self.see("error")
        self.lab.command("reg", "set", self.lab.event_key("DISK", 1), "ReportCount", "1",
                         "--type", "dword")
        self.wait_for_state("running")
        self.daemon.scan()
        self.assertEqual(["error"], self.lab.texts("DISK"))

    def test_a_daemon_that_starts_with_a_damaged_event_tells_it_and_waits_to_be_mended(self):
        self.damage()
        self.daemon.launch()
        self.wait_for_state("pausing")
        self.assert_mending_is_told()
        self.assertTrue(self.lab.status()["running"])
        self.lab.command("event", "remove", "DISK", "1")
        self.wait_for_state("running")

    def test_it_can_be_stopped_while_it_pauses(self):
        self.damage()
        self.daemon.launch()
        self.wait_for_state("pausing")
        self.daemon.stop()


class Stopping(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch_numbered_lines()
        self.lab.watch("SEVENTH", 1, lab.NUMBERED, report_count=7)
        self.daemon.start()

    def begin_a_long_pass(self):
        lab.append(lab.MESSAGES, *(lab.stamped(lab.numbered(n)) for n in range(MANY)))
        self.daemon.wake()
        self.lab.wait_for_trace("numbered n=0.")

    def assert_all_counted_once(self):
        self.assert_each_once_and_in_order(range(MANY), self.lab.reported_numbers())
        sevenths = len(self.lab.alerts()) - MANY
        self.assertEqual(MANY, 7 * sevenths + self.lab.hits("SEVENTH"))

    def test_sigterm_stops_it_at_the_end_of_the_pass_under_way(self):
        self.stop_in_a_pass(signal.SIGTERM)

    def test_sigint_stops_it_in_the_same_way(self):
        self.stop_in_a_pass(signal.SIGINT)

    def stop_in_a_pass(self, number):
        self.begin_a_long_pass()
        self.daemon.child.signal(number)
        self.assertEqual(1, self.daemon.passes(), "the pass was over before the signal")
        self.assertEqual(0, self.daemon.child.wait())
        self.assertEqual(2, self.daemon.passes())
        self.assert_all_counted_once()

        reports = len(self.lab.alerts())
        self.daemon.start()
        self.daemon.scan()
        self.assertEqual(reports, len(self.lab.alerts()), "lines were read again")

    def test_a_second_sigterm_ends_it_at_once_and_the_pass_is_read_again(self):
        self.begin_a_long_pass()
        self.daemon.child.signal(signal.SIGTERM)
        self.lab.wait_until("it was told to stop",
                            lambda: self.daemon.published()["state"] == "stopping")
        self.daemon.child.signal(signal.SIGTERM)
        self.assertEqual(1, self.daemon.child.wait())
        self.assertEqual(1, self.daemon.passes(), "the pass was over before the second signal")
        self.assertEqual([], self.lab.messages())

        self.daemon.start()
        self.assert_all_counted_once()


class FullDisk(lab.LabTest):
    """Somebody fills the disk, again and again until the agent has nothing left to let go."""

    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.state = self.lab.root / "state"
        self.lab.mount_tmpfs(self.state, "16m")
        self.lab.look_at_changes(0)  # said again to the new store
        self.lab.watch_numbered_lines()
        self.lab.watch("SEVENTH", 1, lab.NUMBERED, report_count=7)
        self.daemon.start()

    def fill_disk(self):
        with open(self.state / "ballast", "ab", buffering=0) as ballast:
            try:
                while ballast.write(bytes(4096)) == 4096:
                    pass
            except OSError:
                pass  # not one page more

    def write_lines(self):
        lab.append(lab.MESSAGES, *(lab.stamped(lab.numbered(n)) for n in range(20_000)))
        self.daemon.wake()

    def assert_all_counted_once(self):
        for source in ("EACH", "SEVENTH"):
            hits = sum(alert["count"] for alert in self.lab.alerts(source)) + self.lab.hits(source)
            self.assertEqual(20_000, hits, source)

    def test_the_reserve_is_room_for_a_pass_whose_lines_are_all_counted(self):
        self.fill_disk()
        self.write_lines()
        self.lab.wait_until("the pass is stored", lambda: self.lab.messages())
        self.assert_all_counted_once()

    def test_a_pass_that_cannot_be_stored_is_read_again_when_there_is_room(self):
        (self.state / "reserve").unlink()
        self.fill_disk()
        self.write_lines()
        self.lab.wait_until("the pass cannot be stored",
                            lambda: "started again in" in self.daemon.child.said())
        self.assertTrue(self.daemon.child.is_running())
        self.assertEqual([], self.lab.messages())
        for said in (self.daemon.child.said(), self.lab.status()["last_error"]):
            self.assertIn("disk is full", said)
            self.assertIn("free some space", said)

        (self.state / "ballast").unlink()
        self.lab.wait_until("the monitor runs again", lambda: self.lab.messages())
        self.daemon.scan()
        self.assert_all_counted_once()


if __name__ == "__main__":
    lab.main()
