"""Rules of groups reach real daemons over a real server: what is wrong changes nothing, what is local stays."""
import json
import signal
import time

import fleet
import lab

DISK = "- {source: DISK, id: 1, keywords: [I/O error]}\n"
FAN = "- {source: FAN, id: 2, keywords: [fan failed]}\n"


class Rules(lab.LabTest):
    """Servers, the host from which rules are given, and members of groups."""

    servers_count = 1

    def setUp(self):
        super().setUp()
        self.servers = fleet.Servers(self.lab, self.servers_count)
        self.servers.start()
        self.centre = fleet.Centre(self.servers)
        self.addCleanup(self.centre.lab.close)
        self.members = []

    def add_members(self, count, groups="web", **options):
        for _ in range(count):
            member = fleet.Member(self.servers, groups, **options)
            self.addCleanup(member.lab.close)
            member.daemon.start()
            self.members.append(member)
        self.wait_known()

    def wait_known(self):
        """Asking for them makes the bucket in which they say how they are."""
        self.lab.wait_until("all hosts say that they are there", lambda: len(self.hosts()) == len(self.members))

    def file(self, *events, more=""):
        path = self.lab.folder / "web.yaml"
        path.write_text("events:\n" + "".join(events) + more if events else "events: []\n" + more)
        return path

    def apply(self, path, *words, group="web"):
        return self.centre.lab.command("fleet", "apply", path, "--group", group, *words)

    def refused(self, *words):
        """What the command says, which must fail."""
        result = self.centre.lab.run(*words)
        self.assertEqual(1, result.returncode, result.stdout + result.stderr)
        return result.stderr

    def hosts(self):
        return {row["uuid"]: row for row in self.centre.lab.json("fleet", "status")["hosts"]}

    def client(self):
        """One that writes to the first server what it likes."""
        client = fleet.Stranger(self.servers.all[0])
        self.addCleanup(client.close)
        return client

    def revision(self):
        return self.centre.lab.json("fleet", "export", "--group", "web")["revision"]

    def wait_events(self, member, *wanted):
        self.lab.wait_until(f"it has the events {wanted}", lambda: member.events() == sorted(wanted))


class OneServer(Rules):
    def test_a_change_reaches_running_daemons_whose_monitors_report_by_it(self):
        self.add_members(2)
        self.apply(self.file(DISK), "--wait")
        for member in self.members:
            self.assertEqual(["DISK 1", "EACH 1"], member.events())
        member = self.members[0]
        lab.append(member.log, lab.stamped("sda: I/O error"))
        member.daemon.scan()
        self.assertEqual(1, len(member.lab.alerts("DISK")))
        # The file says all that is the fleet's.
        self.apply(self.file(FAN), "--wait")
        self.assertEqual(["EACH 1", "FAN 2"], member.events())
        shown = self.centre.lab.command("fleet", "diff", "--group", "web")
        self.assertIn("- DISK 1", shown)
        self.assertIn("+ FAN 2", shown)
        self.assertIn("FAN", self.centre.lab.command("fleet", "export", "--group", "web"))
        self.assertIn("0 added, 0 changed, 0 removed", self.apply(self.file(FAN), "--dry-run"))
        for row in self.hosts().values():
            self.assertEqual({"revision": self.revision(), "newest": self.revision(), "canary": False},
                             row["groups"]["web"])
            self.assertIsNone(row["trouble"])

    def test_a_change_is_heard_at_once_and_not_with_the_next_question(self):
        self.hosts()
        self.add_members(1, every=3600)
        for keyword in ("one", "two", "three"):
            # It waits a minute for the host, which asks once in an hour.
            self.apply(self.file(f"- {{source: DISK, id: 1, keywords: [{keyword}]}}\n"), "--wait")

    def test_local_events_and_settings_stay_and_are_told(self):
        self.add_members(1)
        member = self.members[0]
        member.lab.watch("DISK", 1, "mine")
        member.lab.command("set", "cycle", 77)
        self.apply(self.file(DISK, FAN, more="settings: {cycle: 60, silent-after: 5}\n"), "--wait")
        self.assertEqual(["DISK 1", "EACH 1", "FAN 2"], member.events())
        self.assertEqual(["mine"], member.lab.json("event", "show", "DISK", "1")["event"]["keywords"])
        settings = member.lab.json("get")["settings"]
        self.assertEqual(("77", "5"), (settings["cycle"], settings["silent-after"]))
        self.assertEqual(["DISK 1", "cycle"], self.hosts()[member.uuid()]["local"])
        # What the host's own file prunes is its own.
        own = self.lab.folder / "own.yaml"
        own.write_text("events: []\n")
        member.lab.command("apply", own, "--prune")
        self.assertEqual(["FAN 2"], member.events())
        member.lab.command("fleet", "leave")
        self.wait_events(member)
        settings = member.lab.json("get")["settings"]
        self.assertEqual(("77", "24"), (settings["cycle"], settings["silent-after"]))

    def test_a_file_that_a_host_cannot_take_changes_nothing_there_and_is_told(self):
        self.add_members(2)
        self.apply(self.file(DISK), "--wait")
        # One of them has a source of that name that is another component's.
        odd = self.members[0]
        odd.lab.command("reg", "set", odd.sources_key() + "\\OTHER", "NEWAPPLICATIONTYPE", "1")
        other = "- {source: OTHER, id: 1, keywords: [x]}\n"
        result = self.centre.lab.run("fleet", "apply", self.file(DISK, FAN, other), "--group", "web", "--wait")
        self.assertEqual(1, result.returncode)
        self.assertIn("web/web.yaml:4:", result.stderr)
        self.wait_events(self.members[1], "DISK 1", "EACH 1", "FAN 2", "OTHER 1")
        self.assertEqual(["DISK 1", "EACH 1"], [name for name in odd.events() if "OTHER" not in name])
        row = self.hosts()[odd.uuid()]
        self.assertIn("NEWAPPLICATIONTYPE", row["error"])
        self.assertNotEqual(row["groups"]["web"]["revision"], row["groups"]["web"]["newest"])
        # It is the first one that is shown.
        self.assertEqual(odd.uuid(), self.centre.lab.json("fleet", "status")["hosts"][0]["uuid"])

    def test_a_wrong_file_never_reaches_the_servers(self):
        self.add_members(1)
        self.apply(self.file(DISK), "--wait")
        before = self.revision()
        for more, place in (("- {source: FAN}\n", ":3:"), ("- {source: A, id: 1, keywords: ['((a{1,30}){1,30}){1,30}']}\n", ":3:"),
                            ("sinks: []\n", ":3:8"),
                            ("settings: {web: '127.0.0.1:1'}\n", ":3:12"), ("- [", ":")):
            said = self.refused("fleet", "apply", self.file(DISK, more), "--group", "web")
            self.assertIn(f"web.yaml{place}", said)
        self.assertIn("524288", self.refused("fleet", "apply", self.file(DISK, "#" + 600_000 * "x" + "\n"),
                                             "--group", "web"))
        # A test that fails, too.
        failing = DISK.replace("}", ", tests: [{line: nothing, gives: reported}]}")
        self.assertIn("web.yaml:2:", self.refused("fleet", "apply", self.file(failing), "--group", "web"))
        self.assertEqual(before, self.revision())
        self.assertEqual(["DISK 1", "EACH 1"], self.members[0].events())

    def test_what_was_taken_last_stays_while_the_servers_are_away_and_over_a_restart(self):
        self.add_members(1)
        member = self.members[0]
        self.apply(self.file(DISK), "--wait")
        server = self.servers.all[0]
        server.kill()
        member.daemon.kill()
        member.daemon.start()
        lab.append(member.log, lab.stamped("sda: I/O error"))
        member.daemon.scan()
        self.assertEqual(1, len(member.lab.alerts("DISK")))
        # They have lost all of it: no reason to take anything away.
        server.wipe()
        server.start()
        self.servers.wait_healthy()
        self.centre.lab.json("fleet", "status")
        self.lab.wait_until("it says again how it is", lambda: member.uuid() in self.hosts(), 2 * lab.PATIENCE)
        self.assertEqual(["DISK 1", "EACH 1"], member.events())
        self.apply(self.file(FAN), "--wait", "--within", "120s")
        self.assertEqual(["EACH 1", "FAN 2"], member.events())

    def test_files_of_several_groups_go_together_and_those_of_a_group_that_was_left_go(self):
        self.add_members(1, "db,web")
        member = self.members[0]
        self.apply(self.file(DISK), "--wait")
        self.apply(self.file(FAN), "--wait", group="db")
        self.assertEqual(["DISK 1", "EACH 1", "FAN 2"], member.events())
        member.join("db")
        self.wait_events(member, "EACH 1", "FAN 2")

    def test_a_silent_host_is_the_first_one(self):
        self.add_members(2)
        self.apply(self.file(), "--wait")
        self.members[0].daemon.kill()
        self.lab.wait_until("its silence is noticed", lambda: self.hosts()[self.members[0].uuid()]["silent_seconds"])
        rows = self.centre.lab.json("fleet", "status")["hosts"]
        self.assertEqual(self.members[0].uuid(), rows[0]["uuid"])
        self.assertIn("silent for", rows[0]["trouble"])
        self.assertIsNone(rows[1]["trouble"])

    def test_a_host_tells_its_version_its_alerts_a_minute_and_that_all_is_read(self):
        self.add_members(1)
        member = self.members[0]
        row = lambda: self.hosts()[member.uuid()]
        self.lab.wait_until("it has made a pass", lambda: row()["last_pass_ms"])
        self.assertEqual(member.lab.command("--version").split()[1], row()["version"])
        lab.append(member.log, *(lab.stamped(lab.numbered(n)) for n in range(7)))
        member.daemon.scan()
        self.lab.wait_until("it tells of them", lambda: (row()["alerts_a_minute"], row()["behind_bytes"]) == (7, 0))

    def test_a_host_that_does_not_come_to_its_log_tells_how_far_it_is_behind(self):
        self.add_members(1)
        member = self.members[0]
        row = lambda: self.hosts()[member.uuid()]
        member.daemon.scan()
        self.lab.wait_until("it has read all", lambda: row()["last_pass_ms"] and row()["behind_bytes"] == 0)
        member.lab.command("set", "trigger-interval", 0)  # it does not wake up, and comes at its next cycle
        member.lab.command("set", "cycle", 3600)
        member.daemon.scan()
        lines = [lab.stamped(lab.numbered(n)) for n in range(20_000)]
        lab.append(member.log, *lines)
        unread = sum(len(line) + 1 for line in lines)
        self.lab.wait_until("it tells of it", lambda: row()["behind_bytes"] == unread)
        self.assertIn("behind", row()["trouble"])
        member.daemon.scan()
        self.lab.wait_until("it has read them", lambda: row()["behind_bytes"] == 0)
        self.assertIsNone(row()["trouble"])

    def test_a_group_whose_value_is_damaged_is_given_files_again(self):
        self.add_members(1)
        self.apply(self.file(DISK), "--wait")
        client = self.client()
        other_files = json.dumps({"files": [{"name": "a.yaml", "text": "sinks: []\n"}]})
        for damage in ("{", other_files):
            self.assertEqual([], client.publish("$KV.syslogmon-rules.web.all", damage))
            self.lab.wait_until("the host says so", lambda: self.hosts()[self.members[0].uuid()]["error"])
            self.assertEqual(["DISK 1", "EACH 1"], self.members[0].events())
        self.assertEqual([], client.publish("$KV.syslogmon-rules.web.all", "{"))
        self.assertIn("is not of the form", self.refused("fleet", "export", "--group", "web"))
        self.assertIn("is not of the form", self.refused("fleet", "diff", "--group", "web"))
        self.assertIn("without --canary first",
                      self.refused("fleet", "apply", self.file(FAN), "--group", "web", "--canary", "1%"))
        self.assertIn("+ FAN 2", self.centre.lab.command("fleet", "diff", self.file(FAN), "--group", "web"))
        self.apply(self.file(FAN), "--wait")
        self.assertEqual(["EACH 1", "FAN 2"], self.members[0].events())
        # Taken away by another one's tools, it has no files, and still a revision.
        client.publish_with_header("$KV.syslogmon-rules.web.all", "KV-Operation: DEL")
        self.assertIn("it has no files", self.refused("fleet", "export", "--group", "web"))
        self.apply(self.file(DISK), "--wait")
        self.assertEqual(["DISK 1", "EACH 1"], self.members[0].events())

    def test_a_host_that_leaves_is_no_host_of_the_fleet_any_more(self):
        self.add_members(3)
        first, second, third = self.members
        first.lab.command("fleet", "leave")
        self.lab.wait_until("it has said goodbye", lambda: set(self.hosts()) == {second.uuid(), third.uuid()})
        second.daemon.stop()
        second.lab.command("fleet", "leave")
        self.assertEqual({third.uuid()}, set(self.hosts()))
        # It comes back as any other one.
        first.join("web")
        self.lab.wait_until("it is there again", lambda: set(self.hosts()) == {first.uuid(), third.uuid()})

    def test_a_host_that_is_gone_is_forgotten_by_its_uuid_or_by_a_name_that_no_other_has(self):
        self.add_members(2)
        gone, other = self.members
        self.assertIn("has said how it is", self.refused("fleet", "forget", "nobody"))
        name = self.hosts()[gone.uuid()]["host"]
        self.assertIn("2 hosts have that name", self.refused("fleet", "forget", name))
        gone.daemon.kill()
        self.lab.wait_until("its silence is noticed", lambda: self.hosts()[gone.uuid()]["silent_seconds"])
        self.centre.lab.command("fleet", "forget", gone.uuid())
        self.assertEqual({other.uuid()}, set(self.hosts()))
        # One that is there says how it is again.
        self.assertIn("a moment ago", self.centre.lab.run("fleet", "forget", name).stderr)
        self.lab.wait_until("it is there again", lambda: set(self.hosts()) == {other.uuid()})

    def test_silence_is_measured_by_the_servers_clock_whatever_the_clock_of_the_one_who_asks(self):
        self.add_members(2)
        silent, other = (member.uuid() for member in self.members)
        self.members[0].daemon.kill()
        self.lab.wait_until("its silence is noticed", lambda: self.hosts()[silent]["silent_seconds"])
        for ahead in (-86400, 86400):
            shown = self.centre.hosts(clock_ahead=ahead)
            self.assertLess(shown[silent]["silent_seconds"] or 86400, 3600)
            self.assertIsNone(shown[other]["silent_seconds"])

    def test_a_changed_sink_takes_the_member_to_its_servers(self):
        self.add_members(1)
        member = self.members[0]
        others = fleet.Servers(self.lab, name="other")
        others.start()
        centre = fleet.Centre(others)
        self.addCleanup(centre.lab.close)
        centre.lab.json("fleet", "status")
        member.lab.command("sink", "add", "nats", "fleet", f"servers={self.servers.urls}")
        member.join_by_sink("web")
        self.wait_known()
        member.lab.command("sink", "set", "fleet", f"servers={others.urls}")
        self.lab.wait_until("it is there", lambda: member.uuid() in centre.hosts())
        # Likewise from a file.
        rules = self.lab.folder / "sinks.yaml"
        rules.write_text(f"sinks: [{{name: fleet, kind: nats, servers: '{self.servers.urls}'}}]\n")
        self.centre.lab.command("fleet", "forget", member.uuid())
        member.lab.command("apply", rules)
        self.lab.wait_until("it is back", lambda: member.uuid() in self.hosts())

    def test_a_collector_that_cannot_begin_keeps_nobody_from_joining(self):
        self.hosts()
        member = fleet.Member(self.servers, "web")
        self.addCleanup(member.lab.close)
        self.members.append(member)
        member.lab.command("fleet", "leave")
        secret = self.lab.folder / "secret"
        secret.touch(0o600)
        secret.write_text("password")
        member.lab.command("collect", f"servers={self.servers.urls}", "user=collector", f"password-file={secret}")
        secret.unlink()
        member.daemon.start()
        member.join("web")
        self.wait_known()
        self.assertIn(str(secret), member.daemon.child.said())

    def test_what_is_wrong_with_collector_and_member_is_told_of_both(self):
        host = fleet.Member(self.servers, "web")
        self.addCleanup(host.lab.close)
        secrets = []
        for name in ("collectors", "members"):
            secrets.append(self.lab.folder / name)
            secrets[-1].touch(0o600)
            secrets[-1].write_text("password")
        host.lab.command("collect", f"servers={self.servers.urls}", "user=c", f"password-file={secrets[0]}")
        host.lab.command("fleet", "join", "groups=web", f"servers={self.servers.urls}", "user=m",
                         f"password-file={secrets[1]}")
        for secret in secrets:
            secret.unlink()
        host.daemon.start()
        self.lab.wait_until("it says so", lambda: all(str(secret) in host.daemon.child.said() for secret in secrets))

    def test_however_often_a_group_is_changed_a_host_asks_and_answers_at_its_pace(self):
        self.hosts()
        self.add_members(1, every=3600)
        member = self.members[0]
        client = self.client()
        before = self.servers.messages("KV_syslogmon-status")
        began = time.monotonic()
        for number in range(1, 401):
            text = f"events: [{{source: DISK, id: 1, keywords: [number {number}]}}]\n"
            client.publish("$KV.syslogmon-rules.web.all", json.dumps({"files": [{"name": "a.yaml", "text": text}]}))
            time.sleep(0.02)
        newest = self.servers.messages("KV_syslogmon-rules")
        self.lab.wait_until("it has the newest", lambda: self.hosts()[member.uuid()]["groups"]["web"]["revision"] == newest)
        seconds = time.monotonic() - began
        said = self.servers.messages("KV_syslogmon-status") - before
        print(f"{said} statuses for 400 changes in {seconds:.1f} s")
        # Twenty at once, and then one in a second; one more begins the next second.
        self.assertLessEqual(said, 20 + seconds + 1)
        self.assertEqual(["number 400"], member.lab.json("event", "show", "DISK", "1")["event"]["keywords"])

    def test_while_there_is_no_bucket_a_host_asks_for_it_at_its_pace(self):
        member = fleet.Member(self.servers, "web", every=3600)
        self.addCleanup(member.lab.close)
        member.daemon.start()
        server = self.servers.all[0]
        asked = lambda: server.ask("/jsz")["api"]["total"]
        self.lab.wait_until("it has asked for the bucket", lambda: asked() > 0)
        client = self.client()
        before = asked()
        began = time.monotonic()
        for _ in range(400):
            client.publish("$KV.syslogmon-rules.web.all", "{}")
            time.sleep(0.005)
        seconds = time.monotonic() - began
        looks = asked() - before
        print(f"{looks} questions for 400 messages in {seconds:.1f} s")
        self.assertGreater(looks, 1)
        # Twenty at once, and then one in a second; one more begins the next second.
        self.assertLessEqual(looks, 20 + seconds + 1)


class ThreeServers(Rules):
    servers_count = 3

    def test_buckets_that_a_member_has_made_are_kept_on_three_servers_like_all_others(self):
        member = fleet.Member(self.servers, "web")
        self.addCleanup(member.lab.close)
        member.lab.json("fleet", "status")
        for bucket in ("KV_syslogmon-rules", "KV_syslogmon-status"):
            self.assertEqual(3, self.servers.stream(bucket)["config"]["num_replicas"])


class ServerAlone(Rules):
    def test_buckets_that_a_member_has_made_at_a_server_that_stands_alone_are_kept_there(self):
        member = fleet.Member(self.servers, "web")
        self.addCleanup(member.lab.close)
        member.lab.json("fleet", "status")
        self.assertEqual(1, self.servers.stream("KV_syslogmon-rules")["config"]["num_replicas"])


class Canary(Rules):
    def setUp(self):
        super().setUp()
        self.add_members(3)
        self.apply(self.file(DISK), "--wait")

    def have(self, name):
        return [member for member in self.members if name in member.events()]

    def test_a_share_has_it_first_and_then_all_have_it(self):
        self.apply(self.file(DISK, FAN), "--canary", "30%", "--after", "1s", "--wait")
        self.assertEqual(3, len(self.have("FAN 2")))
        self.assertEqual({False}, {row["groups"]["web"]["canary"] for row in self.hosts().values()})

    def test_at_an_error_what_was_before_is_put_back_and_no_other_host_has_had_it(self):
        before = self.revision()
        for member in self.members:
            member.lab.command("reg", "set", member.sources_key() + "\\OTHER", "NEWAPPLICATIONTYPE", "1")
        said = self.refused("fleet", "apply", self.file("- {source: OTHER, id: 1, keywords: [x]}\n"), "--group", "web",
                            "--canary", "1%", "--after", "1s")
        self.assertIn("1 of 3 hosts try them first", said)
        self.assertIn("NEWAPPLICATIONTYPE", said)
        self.assertEqual(before, self.revision())
        self.lab.wait_until("all run the one before", lambda: all(
            row["groups"]["web"]["revision"] == before and row["error"] is None for row in self.hosts().values()))
        self.assertEqual(3, len(self.have("DISK 1")))

    def test_a_command_that_was_killed_is_ended_by_the_next_one_also_with_the_same_files(self):
        child = self.centre.lab.spawn("apply", [lab.build_root() / "bin" / "syslogmon", "--root",
                                                self.centre.lab.root, "fleet", "apply", self.file(FAN), "--group",
                                                "web", "--canary", "1%", "--after", "1h"])
        self.lab.wait_until("one has it", lambda: len(self.have("FAN 2")) == 1)
        child.kill()
        self.apply(self.file(DISK), "--wait")
        self.assertEqual([], self.have("FAN 2"))
        self.assertEqual(3, len(self.have("DISK 1")))

    def test_a_group_without_files_has_nothing_to_go_back_to(self):
        said = self.refused("fleet", "apply", self.file(FAN), "--group", "empty", "--canary", "1%")
        self.assertIn("give it files without --canary first", said)

    def test_a_command_that_is_interrupted_puts_back_what_was_before(self):
        before = self.revision()
        child = self.centre.lab.spawn("apply", [lab.build_root() / "bin" / "syslogmon", "--root",
                                                self.centre.lab.root, "fleet", "apply", self.file(FAN), "--group",
                                                "web", "--canary", "1%", "--after", "1h"])
        self.lab.wait_until("one has it", lambda: len(self.have("FAN 2")) == 1)
        child.signal(signal.SIGINT)
        self.assertEqual(1, child.wait())
        self.lab.wait_until("none has it", lambda: len(self.have("FAN 2")) == 0)
        self.assertEqual(before, self.revision())
        self.assertEqual(3, len(self.have("DISK 1")))


class Guarded(Rules):
    """Servers with the accounts of the example."""

    def setUp(self):
        lab.LabTest.setUp(self)
        self.accounts = fleet.Accounts(self.lab.folder / "secrets")
        self.servers = fleet.Servers(self.lab)
        self.centre = fleet.Centre(self.servers, **self.accounts.account("collector"))
        self.addCleanup(self.centre.lab.close)
        self.members = [fleet.Member(self.servers, group, **self.accounts.account(name))
                        for name, group in (("one", "web"), ("two", "db"))]
        named = [f"{name}={member.uuid()}:{member.groups}" for name, member in zip(("one", "two"), self.members)]
        self.accounts.give(self.servers, self.centre.uuid(), *named)
        self.servers.start()
        for member in self.members:
            self.addCleanup(member.lab.close)
            member.daemon.start()
        self.wait_known()

    def test_each_host_reads_its_groups_and_writes_its_own_status_and_nothing_else(self):
        self.apply(self.file(DISK), "--wait")
        self.assertEqual(["DISK 1", "EACH 1"], self.members[0].events())
        self.assertEqual(["EACH 1"], self.members[1].events())
        self.assertEqual({member.uuid() for member in self.members}, set(self.hosts()))
        own, other = (member.uuid() for member in self.members)
        stranger = fleet.Stranger(self.servers.all[0], "one", self.accounts.password("one"))
        self.addCleanup(stranger.close)
        read = "$JS.API.DIRECT.GET.KV_syslogmon-rules.$KV.syslogmon-rules"
        for subject in (f"$KV.syslogmon-status.{own}", f"{read}.web.all", f"{read}.web.canary"):
            self.assertEqual([], stranger.publish(subject), subject)
        self.assertEqual([], stranger.subscribe("$KV.syslogmon-rules.web.*"))
        for subject in (f"$KV.syslogmon-status.{other}", "$KV.syslogmon-rules.web.all", "$KV.syslogmon-rules.web.canary",
                        "$KV.syslogmon-rules.db.all", f"{read}.db.all", "$JS.API.DIRECT.GET.KV_syslogmon-rules",
                        "$JS.API.STREAM.MSG.GET.KV_syslogmon-rules", "$JS.API.STREAM.PURGE.KV_syslogmon-rules",
                        "$JS.API.STREAM.DELETE.KV_syslogmon-status", "$JS.API.STREAM.INFO.KV_syslogmon-status",
                        f"$JS.API.DIRECT.GET.KV_syslogmon-status.$KV.syslogmon-status.{other}",
                        "$JS.API.CONSUMER.CREATE.KV_syslogmon-rules",
                        "$JS.API.CONSUMER.DURABLE.CREATE.KV_syslogmon-rules.x"):
            self.assertIn("Permissions Violation", "".join(stranger.publish(subject)), subject)
        for subject in ("$KV.syslogmon-rules.db.*", "$KV.syslogmon-rules.>", "$KV.syslogmon-status.*"):
            self.assertIn("Permissions Violation", "".join(stranger.subscribe(subject)), subject)
        # Its own status is all that it may put in the place of something.
        stranger.publish_with_header(f"$KV.syslogmon-status.{own}", "Nats-Rollup: all")
        self.assertIn(other, self.hosts())
        # From a member, nobody can give rules to a group.
        said = self.members[0].lab.run("fleet", "apply", self.file(FAN), "--group", "web").stderr
        self.assertIn("cannot", said)
        self.assertEqual(["DISK 1", "EACH 1"], self.members[0].events())
        # And each may leave.
        self.members[0].lab.command("fleet", "leave")
        self.lab.wait_until("it has said goodbye", lambda: set(self.hosts()) == {other})


if __name__ == "__main__":
    fleet.server_program()
    lab.main()
