"""Start and stop: when the daemon is ready, who may stop it, and what it never waits for."""
import os
import signal
import sqlite3
import subprocess

import lab
import notify_socket

# Takes the C library minutes for one line of this many bytes: each group can end anywhere, and the
# references make it try all ways.
ENDLESS = r"(a*)(a*)(a*)(a*)(a*)\1\2\3\4\5b"
ENDLESS_LINE = "a" * 3000 + "c"


class Readiness(lab.LabTest):
    def test_it_is_ready_when_the_place_is_stored_from_which_it_reads_on(self):
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        told = notify_socket.NotifySocket(self.lab)
        holder = sqlite3.connect(self.lab.root / "state" / "agent.db", isolation_level=None)
        holder.execute("BEGIN IMMEDIATE")
        self.daemon.launch(under=["env", *told.environment()])
        self.lab.wait_for_trace("Syslog monitor service start")
        self.lab.wait_until("its table is loaded", lambda: self.daemon.published().get("table_size") == 1)
        self.assertEqual("starting", self.daemon.published()["state"])
        self.assertNotIn("READY=1", told.texts())

        holder.execute("COMMIT")
        self.lab.wait_until("it is ready", lambda: "READY=1" in told.texts())
        self.assertEqual("running", self.daemon.published()["state"])
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.scan()
        self.assertEqual(["error"], self.lab.texts())


class UnreadOutput(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch_numbered_lines()
        self.pipe = os.pipe()
        self.addCleanup(lambda: [os.close(end) for end in self.pipe])

    def start_with(self, output, errors):
        argv = [lab.build_root() / "bin" / "syslogmond", "--root", self.lab.root, "--print-alerts"]
        self.process = subprocess.Popen(list(map(str, argv)), stdin=subprocess.DEVNULL, stdout=output,
                                        stderr=errors, process_group=0)
        self.addCleanup(self.end)
        self.lab.wait_until("it has read the log",
                            lambda: self.daemon.published().get("last_pass", {}).get("number", 0) > 0)

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()

    def fill(self):
        """More alerts than a pipe takes."""
        lab.append(lab.MESSAGES, *(lab.stamped(lab.numbered(n)) for n in range(2000)))
        self.daemon.scan()

    def test_a_page_of_alerts_that_nobody_turns_stops_neither_work_nor_stop(self):
        self.start_with(self.pipe[1], subprocess.DEVNULL)
        self.fill()
        self.lab.watch("DISK", 1, "error")
        lab.append(lab.MESSAGES, lab.stamped("error"))
        self.daemon.scan()
        self.lab.command("set", "trigger-interval", 50)
        lab.append(lab.MESSAGES, lab.stamped("error that nobody asks for"))
        self.lab.wait_until("the change is seen", lambda: len(self.lab.texts("DISK")) == 2)
        self.process.send_signal(signal.SIGTERM)
        self.assertEqual(0, self.process.wait(lab.PATIENCE))

    def test_messages_that_nobody_reads_stop_neither_work_nor_stop(self):
        os.set_blocking(self.pipe[1], False)
        try:
            while True:
                os.write(self.pipe[1], bytes(4096))
        except BlockingIOError:
            os.set_blocking(self.pipe[1], True)
        self.start_with(subprocess.DEVNULL, self.pipe[1])
        self.lab.command("reg", "set", self.lab.event_key("EACH", 1), "ReportCount", "none")
        self.process.send_signal(signal.SIGHUP)
        self.lab.wait_until("it wants to say that the monitor ended",
                            lambda: self.lab.status()["state"] == "pausing")
        self.process.send_signal(signal.SIGTERM)
        self.assertEqual(0, self.process.wait(lab.PATIENCE))

    def test_a_reader_that_comes_back_gets_all_of_them_in_order(self):
        self.start_with(self.pipe[1], subprocess.DEVNULL)
        self.fill()
        got = b""
        while got.count(b"\n") < 2000:
            got += os.read(self.pipe[0], 65536)
        self.assertEqual(list(range(2000)), [int(n) for n in lab.NUMBER.findall(got)])


class EndlessLine(lab.LabTest):
    """One line keeps one expression busy for longer than anybody waits."""

    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.lab.watch("ENDLESS", 1, "b")
        # As it may stand there from former times: the command would refuse it.
        self.lab.command("reg", "set", self.lab.event_key("ENDLESS", 1), "KeyWord", ENDLESS)
        self.lab.command("set", "fault-tolerant", "on")

    def meet_it(self):
        passes = self.daemon.passes()
        lab.append(lab.MESSAGES, lab.stamped("error before it"), lab.stamped(ENDLESS_LINE),
                   lab.stamped("error behind it"))
        self.daemon.wake()
        self.lab.wait_until("the line is met",
                            lambda: self.processor_seconds() > self.used_at_rest + 1)
        self.assertEqual(passes, self.daemon.passes())

    def processor_seconds(self):
        with open(f"/proc/{self.daemon.pid}/stat") as file:
            times = file.read().rsplit(") ", 1)[1].split()
        return (int(times[11]) + int(times[12])) / os.sysconf("SC_CLK_TCK")

    def start(self, **options):
        self.daemon.start(**options)
        self.used_at_rest = self.processor_seconds()

    def test_a_stop_ends_the_process_and_nothing_of_the_pass_is_stored(self):
        self.start()
        self.meet_it()
        self.daemon.child.signal(signal.SIGTERM)
        self.assertEqual(0, self.daemon.child.wait())
        self.assertIn("ends without it", self.daemon.child.said())
        self.assertEqual([], self.lab.texts())

        self.lab.command("event", "remove", "ENDLESS", 1)
        self.daemon.start()
        self.daemon.scan()
        self.assertEqual(["error before it", "error behind it"], self.lab.texts())

    def test_the_watchdog_is_not_fed_by_it(self):
        told = notify_socket.NotifySocket(self.lab)
        self.start(under=["env", *told.environment(watchdog_seconds=3)])
        self.lab.wait_until("it is fed at rest", lambda: told.texts().count("WATCHDOG=1") > 2)
        self.meet_it()
        # What went on before the line counts at the next look, and no look after that.
        self.lab.wait_until("two looks were taken", lambda: self.daemon.published()["still_ms"] > 1500)
        told.forget()
        looks = set()
        self.lab.wait_until("three more were",
                            lambda: looks.add(self.daemon.published()["alive_ns"]) or len(looks) > 3)
        self.assertEqual([], told.texts())
        self.daemon.kill()


class SignOfLife(lab.LabTest):
    def test_a_daemon_whose_process_is_stopped_is_not_called_well(self):
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        self.daemon.start()
        self.assertIsNone(self.lab.status()["stands"])
        self.daemon.child.signal(signal.SIGSTOP)
        self.lab.wait_until("it is stopped", lambda: self.lab.status()["stands"])
        stopped = "its process is stopped, by SIGSTOP or a debugger"
        self.assertEqual(stopped, self.lab.status()["stands"])
        shown = self.lab.run("status")
        self.assertEqual(3, shown.returncode)
        self.assertIn(f"not working: {stopped}", shown.stdout)
        examined = self.lab.run("doctor").stdout
        self.assertIn(f"daemon: process {self.daemon.pid}: {stopped}", examined)
        refused = self.lab.run("scan", "--wait", "--timeout", "0.2")
        self.assertEqual(1, refused.returncode)
        self.assertIn(stopped, refused.stderr)

        self.daemon.child.signal(signal.SIGCONT)
        self.daemon.scan()
        self.assertEqual(0, self.lab.run("status").returncode)


class Limits(lab.LabTest):
    """With too little of anything it ends and says why, or it works; it never ends without a word."""

    def outcomes(self, limits, words):
        """Starts it with each limit; stops it when it works."""
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "error")
        found = []
        for limit in limits:
            traced = len(self.lab.trace())
            child = self.daemon.launch(under=["prlimit", f"--{words}={limit}"])

            def works():
                status = self.daemon.published()
                return (status.get("pid") == child.pid and status["state"] != "starting" or
                        "status.json.new: Too many open files" in self.lab.trace()[traced:])

            self.lab.wait_until("it works or has ended", lambda: not child.is_running() or works())
            # Where it cannot publish that it works, it may be about to end: the signal then comes before its words.
            signalled = child.is_running()
            if signalled:
                child.signal(signal.SIGTERM)
            if child.wait() == 0:
                found.append("worked")
                continue
            by_loader = "while loading shared libraries" in child.said()
            self.assertEqual(127 if by_loader else 1, child.wait(), f"{limit}: {child.said()}")
            if not by_loader and not signalled:
                self.assertIn("syslogmond: cannot", child.said())
            found.append("refused")
        return found

    def test_of_memory(self):
        found = self.outcomes([*range(28_000_000, 80_000_000, 4_000_000), 1_000_000_000], "as")
        self.assertIn("refused", found)
        self.assertEqual("worked", found[-1])

    def test_of_open_files(self):
        found = self.outcomes(range(6, 60, 3), "nofile")
        self.assertEqual("refused", found[0])
        self.assertEqual("worked", found[-1])


if __name__ == "__main__":
    lab.main()
