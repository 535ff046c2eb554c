"""Alerts of the real daemon arrive at real receivers, each of which is down for a part of the test.

At the end every alert has arrived, in order, and what arrived twice has the same key.
"""
import email
import email.policy
import json
import os
import socket
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "system"))

import lab  # noqa: E402
import receivers  # noqa: E402

LINE_HOST = "host"  # that writes the lines of lab.stamped()


def without_repeats(values):
    return list(dict.fromkeys(values))


class SinkTest(lab.LabTest):
    """A daemon that reports each numbered line."""

    def setUp(self):
        super().setUp()
        self.written = 0
        self.lab.watch_numbered_lines()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.daemon.start()

    def add(self, kind, name, **options):
        if kind in ("mail", "program", "webhook"):
            options.setdefault("rate", "none")  # each alert in a message of its own
        words = [f"{option.replace('_', '-')}={value}" for option, value in options.items()]
        self.lab.command("sink", "add", kind, name, *words)

    def report(self, count):
        """Writes numbered lines and returns when they are stored as alerts."""
        lab.append(lab.MESSAGES, *(lab.stamped(lab.numbered(n))
                                   for n in range(self.written, self.written + count)))
        self.written += count
        self.daemon.scan()

    def secret(self, name, text):
        path = self.lab.folder / name
        path.touch(0o600)
        path.write_text(text + "\n")
        return path

    def sink(self, name):
        return self.lab.json("sink", "show", name)["sink"]

    def wait_failed(self, name):
        return self.lab.wait_until(f"{name} has failed", lambda: self.sink(name)["last_error"])

    def wait_delivered(self, name):
        """Waits until nothing waits for the sink any more, as far as it was written down."""
        self.lab.wait_until(f"everything is delivered to {name}",
                            lambda: self.sink(name)["waiting"] == 0)
        self.assertEqual(0, self.sink(name)["dropped"])

    def stored(self):
        """(key, message) of all alerts that are in the store."""
        return [(alert["key"], alert["message"]) for alert in self.lab.alerts()]

    def assert_arrived(self, pairs):
        """All (key, message) of the store have arrived in order, and repeats were repeats."""
        self.assertEqual(self.written, len(self.stored()))
        self.assertEqual(self.stored(), without_repeats(pairs))


class Https(SinkTest):
    def setUp(self):
        super().setUp()
        self.authority = receivers.Authority(self.lab.folder / "ca")
        self.receiver = receivers.HttpsReceiver(self.lab, self.authority)

    def add_webhook(self, **options):
        self.add("webhook", "hook", url=self.receiver.url,
                 **{"ca_file": self.authority.ca, **options})

    def arrived(self):
        return [(alert["key"], alert["message"]) for alert in self.receiver.alerts()]

    def test_alerts_wait_while_it_is_down_and_arrive_in_order(self):
        self.receiver.start()
        self.add_webhook(token_file=self.secret("token", "s3cret"))
        self.report(5)
        self.wait_delivered("hook")
        self.receiver.stop()
        self.report(7)
        self.wait_failed("hook")
        self.report(3)
        self.receiver.start()
        self.wait_delivered("hook")
        self.assert_arrived(self.arrived())
        for headers, alert in self.receiver.requests:
            self.assertEqual(alert["key"], headers["Idempotency-Key"])
            self.assertEqual("Bearer s3cret", headers["Authorization"])

    def test_a_server_with_the_certificate_of_a_stranger_gets_nothing(self):
        self.receiver.start()
        stranger = receivers.Authority(self.lab.folder / "stranger")
        self.add_webhook(ca_file=stranger.ca)
        self.report(2)
        self.assertIn("certificate", self.wait_failed("hook"))
        self.assertEqual([], self.receiver.requests)
        self.lab.command("sink", "set", "hook", f"ca-file={self.authority.ca}")
        self.wait_delivered("hook")
        self.assert_arrived(self.arrived())

    def test_a_receiver_that_wants_a_certificate_of_its_clients_gets_it(self):
        clients = receivers.Authority(self.lab.folder / "clients")
        stranger = receivers.Authority(self.lab.folder / "strangers")
        self.receiver = receivers.HttpsReceiver(self.lab, self.authority, clients=clients)
        self.receiver.start()
        wrong, key_of_wrong = stranger.issue("a-stranger")
        right, key = clients.issue("syslogmon")
        self.add_webhook()
        self.report(1)
        self.lab.wait_until("none was refused", lambda: self.receiver.refused("did not return a certificate"))
        self.wait_failed("hook")
        self.lab.command("sink", "set", "hook", f"cert={wrong}", f"key={key_of_wrong}")
        self.report(1)
        self.lab.wait_until("the one of a stranger was refused", lambda: self.receiver.refused("verify failed"))
        # A certificate with the key of another one is no certificate at all.
        self.lab.command("sink", "set", "hook", f"cert={right}", f"key={key_of_wrong}")
        self.lab.wait_until("a key that does not fit was refused",
                            lambda: "key" in (self.sink("hook")["last_error"] or ""))
        self.assertEqual([], self.receiver.requests)
        self.lab.command("sink", "set", "hook", f"cert={right}", f"key={key}")
        self.report(1)
        self.wait_delivered("hook")
        self.assert_arrived(self.arrived())
        self.assertEqual({"syslogmon"}, set(self.receiver.clients))

    def test_a_proxy_is_asked_for_the_receiver_and_sees_no_alert(self):
        clients = receivers.Authority(self.lab.folder / "clients")
        self.receiver = receivers.HttpsReceiver(self.lab, self.authority, clients=clients)
        self.receiver.start()
        proxy = receivers.Proxy(self.lab)
        certificate, key = clients.issue("syslogmon")
        self.add_webhook(proxy=proxy.url, cert=certificate, key=key)
        self.report(2)
        self.assertIn("connect", self.wait_failed("hook").lower())
        self.assertEqual([], self.receiver.requests, "nothing goes past a proxy that is down")
        proxy.start()
        self.report(2)
        self.wait_delivered("hook")
        self.assert_arrived(self.arrived())
        self.assertEqual({f"CONNECT localhost:{self.receiver.port}"}, set(proxy.asked))
        self.assertEqual({"syslogmon"}, set(self.receiver.clients))

    def test_a_daemon_that_is_killed_while_it_sends_repeats_only_what_was_seen(self):
        self.receiver.delay = 0.005
        self.receiver.start()
        self.add_webhook()
        for lives in range(1, 4):
            self.report(150)
            seen = len(self.receiver.requests)
            self.lab.wait_until("some have arrived",
                                lambda: len(self.receiver.requests) >= seen + 30)
            self.daemon.kill()
            self.daemon.start()
        self.wait_delivered("hook")
        self.assert_arrived(self.arrived())

    def test_a_secret_is_in_no_trace_no_status_and_no_list(self):
        self.receiver.start()
        self.lab.command("set", "trace-level", "detail")
        self.add_webhook(token_file=self.secret("token", "s3cret-of-the-test"))
        self.report(2)
        self.wait_delivered("hook")
        self.receiver.stop()
        self.report(1)
        self.wait_failed("hook")
        said = self.lab.trace() + self.lab.words() + json.dumps(self.daemon.published())
        for words in (("sink", "list"), ("sink", "show", "hook"), ("status",), ("reg", "list", "-r")):
            said += self.lab.command("--json", *words) if words[0] != "status" else ""
            said += self.lab.run(*words).stdout
        self.assertNotIn("s3cret-of-the-test", said)
        database = b"".join(path.read_bytes() for path in (self.lab.root / "state").iterdir())
        self.assertNotIn(b"s3cret-of-the-test", database)


class AlertmanagerCluster(SinkTest):
    def setUp(self):
        super().setUp()
        self.one = receivers.Alertmanager(self.lab, "one")
        self.two = receivers.Alertmanager(self.lab, "two", peers=[self.one])
        self.one.start()
        self.two.start()
        self.sources = []
        for source in ("DISK", "POWER", "FAN", "LINK"):
            self.lab.watch(source, "1A2B", f"{source} trouble")
        self.lab.command("scan", "--wait", "--timeout", lab.PATIENCE)
        self.add("alertmanager", "am", peers=f"{self.one.url},{self.two.url}", severity="critical")

    def happen(self, source):
        lab.append(lab.MESSAGES, lab.stamped(f"{source} trouble"))
        self.daemon.scan()
        self.sources.append(source)

    def wait_for(self, peer, *sources):
        self.lab.wait_until(f"{sources} are at {peer.url}",
                            lambda: set(peer.alerts()) == set(sources))

    def test_a_peer_that_is_down_gets_what_is_active_when_it_is_back(self):
        self.happen("DISK")
        self.wait_for(self.one, "DISK")
        self.wait_for(self.two, "DISK")
        self.two.kill()
        self.happen("POWER")
        self.wait_for(self.one, "DISK", "POWER")
        self.wait_delivered("am")  # one peer has it
        self.lab.wait_until("the other peer is known to be down",
                            lambda: self.sink("am")["peers"][self.two.url]["last_error"])
        self.two.start()
        self.wait_for(self.two, "DISK", "POWER")  # what it had before was in its memory only
        self.happen("FAN")
        self.wait_for(self.one, "DISK", "POWER", "FAN")
        self.wait_for(self.two, "DISK", "POWER", "FAN")
        self.assert_keys()

    def test_nothing_is_lost_while_all_peers_are_down(self):
        self.one.kill()
        self.two.kill()
        self.happen("DISK")
        self.happen("LINK")
        self.wait_failed("am")
        self.one.start()
        self.two.start()
        self.wait_for(self.one, "DISK", "LINK")
        self.wait_for(self.two, "DISK", "LINK")
        self.assert_keys()

    def assert_keys(self):
        """Each peer has each alert under its key, with the labels that are asked for."""
        keys = {alert["source"]: alert["key"] for alert in self.lab.alerts()}
        self.assertEqual(set(self.sources), set(keys))
        for peer in (self.one, self.two):
            for source, alert in peer.alerts().items():
                self.assertEqual(keys[source], alert["annotations"]["key"])
                self.assertEqual({"alertname": "SyslogEvent", "severity": "critical",
                                  "source": source, "event_id": "1A2B",
                                  "host": LINE_HOST, "monitor": socket.gethostname()},
                                 alert["labels"])
                self.assertEqual("active", alert["status"]["state"])


class Snmp(SinkTest):
    def setUp(self):
        super().setUp()
        self.trapd = receivers.Snmptrapd(
            self.lab,
            "authCommunity log public\n"
            "createUser -e 0x8000000001020304 trapuser SHA authpass123 AES privpass123\n"
            "createUser informuser SHA authpass123 AES privpass123\n"
            "authUser log trapuser\nauthUser log informuser\n")
        self.trapd.start()
        self.keys = {"auth": "SHA", "auth_file": self.secret("auth", "authpass123"),
                     "priv": "AES", "priv_file": self.secret("priv", "privpass123")}

    def add_snmp(self, **options):
        self.add("snmp", "trapd", receiver=self.trapd.receiver, **options)

    def arrived(self):
        return list(zip(self.trapd.values("alertKey"), self.trapd.values("alertMessage")))

    def check_down_and_up_again(self):
        self.report(4)
        self.wait_delivered("trapd")
        self.trapd.stop()
        self.report(5)
        self.wait_failed("trapd")
        self.trapd.start()
        self.wait_delivered("trapd")
        self.lab.wait_until("all are in its log",
                            lambda: len(without_repeats(self.arrived())) == self.written)
        self.assert_arrived(self.arrived())
        self.assertEqual({LINE_HOST}, set(self.trapd.values("alertHost")))
        self.assertEqual({socket.gethostname()}, set(self.trapd.values("alertMonitor")))

    def test_informs_of_v2c_wait_while_it_is_down(self):
        self.add_snmp(community_file=self.secret("community", "public"))
        self.check_down_and_up_again()

    def test_informs_of_v3_wait_while_it_is_down(self):
        self.add_snmp(version=3, user="informuser", **self.keys)
        self.check_down_and_up_again()

    def test_traps_of_both_versions_arrive(self):
        self.add_snmp(notify="trap", community_file=self.secret("community", "public"))
        self.add("snmp", "v3", receiver=self.trapd.receiver, notify="trap", version=3,
                 user="trapuser", engine_id="8000000001020304", **self.keys)
        self.report(3)
        self.wait_delivered("trapd")
        self.wait_delivered("v3")
        self.lab.wait_until("each has come twice", lambda: len(self.arrived()) == 6)
        self.assert_arrived(self.arrived())
        self.assertEqual({"1"}, set(self.trapd.values("alertEventId")))
        self.assertEqual({"EACH"}, set(self.trapd.values("alertSource")))
        self.assertEqual({"false"}, set(self.trapd.values("alertIsTest")))

    def test_the_library_is_loaded_by_the_first_sink_of_its_kind(self):
        def mapped():
            return "libnetsnmp" in Path(f"/proc/{self.lab.status()['pid']}/maps").read_text()
        self.assertFalse(mapped())
        self.add_snmp(community_file=self.secret("community", "public"))
        self.lab.wait_until("it is loaded", mapped)

    def test_a_wrong_key_is_told_of(self):
        self.add_snmp(version=3, user="informuser",
                      **{**self.keys, "auth_file": self.secret("wrong", "wrongpass123")})
        self.report(1)
        self.assertIn("the keys differ", self.wait_failed("trapd"))

    def test_the_mib_has_no_fault(self):
        self.assertEqual("0: ", receivers.smilint(receivers.OUR_MIB))


class Mail(SinkTest):
    def arrived(self, server):
        """(key, message) of all alerts in all mails."""
        pairs = []
        for _, _, text in server.mails:
            mail = email.message_from_string(text, policy=email.policy.default)
            blocks = mail.get_body(("plain",)).get_content().replace("\r\n", "\n").split("\n\n\n")
            keys = mail.get_all("X-Syslogmon-Key")
            self.assertEqual(len(keys), len([block for block in blocks if block.strip()]))
            for key, block in zip(keys, blocks):
                self.assertIn(f"key       {key}", block)
                pairs.append((key, block.strip().splitlines()[0]))
        return pairs

    def test_mails_wait_while_the_server_is_down(self):
        server = receivers.MailServer(self.lab)
        server.start()
        self.add("mail", "mail", server=f"smtp://127.0.0.1:{server.port}", digest=4,
                 **{"from": "monitor@example.com", "to": "ops@example.com,boss@example.com"})
        self.report(1)
        self.wait_delivered("mail")
        server.stop()
        self.report(10)
        self.wait_failed("mail")
        server.start()
        self.wait_delivered("mail")
        self.assert_arrived(self.arrived(server))
        self.assertEqual([1, 4, 4, 2], [text.count("X-Syslogmon-Key:") for _, _, text in server.mails])
        self.assertEqual({("monitor@example.com", ("ops@example.com", "boss@example.com"))},
                         {(sender, tuple(to)) for sender, to, _ in server.mails})
        ids = [email.message_from_string(text)["Message-ID"] for _, _, text in server.mails]
        self.assertEqual(len(ids), len(set(ids)))

    def test_a_mail_is_read_as_it_was_meant_and_no_line_adds_a_header(self):
        server = receivers.MailServer(self.lab)
        server.start()
        self.add("mail", "mail", server=f"smtp://127.0.0.1:{server.port}",
                 **{"from": "monitor@example.com", "to": "ops@example.com,boss@example.com"})
        strange = "Größe überschritten: 日本語 =?UTF-8?B?QUxMIEdPT0Q=?= \r.\rBcc: x@example.com "
        lab.append(lab.MESSAGES, lab.stamped(lab.numbered(0) + " " + strange + "lang " * 60))
        self.daemon.scan()
        self.wait_delivered("mail")
        mail = email.message_from_string(server.mails[0][2], policy=email.policy.default)
        self.assertEqual([], mail.defects)
        self.assertEqual(["1.0"], mail.get_all("MIME-Version"))
        for name in ("Date", "From", "To", "Subject", "Message-ID", "X-Syslogmon-Key", "Auto-Submitted"):
            self.assertEqual(1, len(mail.get_all(name)), name)
            self.assertEqual((), mail[name].defects, name)
        self.assertIsNone(mail["Bcc"])
        self.assertEqual(["ops@example.com", "boss@example.com"],
                         [address.addr_spec for address in mail["To"].addresses])
        self.assertLess(abs(mail["Date"].datetime.timestamp() - time.time()), 3600)
        self.assertIn("Größe überschritten: 日本語 =?UTF-8?B?QUxMIEdPT0Q=?= ", mail["Subject"])
        self.assertRegex(mail["Message-ID"], r"^<[-0-9a-f]+\.1@\S+>$")
        part = mail.get_body(("plain",))
        self.assertEqual(("text/plain", "utf-8", "quoted-printable"),
                         (part.get_content_type(), part.get_content_charset(), part["Content-Transfer-Encoding"]))
        self.assertIn("日本語", part.get_content())
        self.assertIn("lang " * 59, part.get_content())
        for text in server.mails[0][2].splitlines():
            self.assertLessEqual(len(text.encode()), 998)
        self.assertTrue(server.mails[0][2].isascii())

    def test_with_a_password_over_tls(self):
        authority = receivers.Authority(self.lab.folder / "ca")
        server = receivers.MailServer(self.lab, authority, login=("monitor", "s3cret"))
        server.start()
        self.add("mail", "mail", server=f"smtps://localhost:{server.port}", ca_file=authority.ca,
                 user="monitor", password_file=self.secret("password", "wrong"),
                 **{"from": "monitor@example.com", "to": "ops@example.com"})
        self.report(2)
        self.wait_failed("mail")
        self.assertEqual([], server.mails)
        self.secret("password", "s3cret")
        self.wait_delivered("mail")
        self.assert_arrived(self.arrived(server))


class Program(SinkTest):
    def test_one_that_hangs_and_dies_gets_every_alert_in_the_end(self):
        taken = self.lab.folder / "taken"
        count = self.lab.folder / "count"
        program = self.lab.folder / "program"
        program.write_text(f"#!/bin/sh\n[ -e {count} ] && read n < {count}\nn=$((n + 1))\n"
                           f"echo $n > {count}\n[ $n = 3 ] && sleep 600\n[ $n = 5 ] && kill -9 $$\n"
                           f"cat >> {taken}\n[ $n = 7 ] && exit 1\nexit 0\n")
        program.chmod(0o755)
        self.add("program", "pager", command=program, timeout=1)
        self.report(8)
        self.wait_delivered("pager")
        arrived = [json.loads(line) for line in taken.read_text().splitlines()]
        self.assertEqual(self.written + 1, len(arrived))  # it took one and said that it had not
        self.assert_arrived([(alert["key"], alert["message"]) for alert in arrived])


class File(SinkTest):
    def test_it_is_rotated_while_alerts_come(self):
        path = self.lab.folder / "alerts.json"
        self.add("file", "file", path=path)
        for generation in range(4):
            self.report(20)
            self.wait_delivered("file")
            path.rename(self.lab.folder / f"alerts.json.{generation}")
        lines = []
        for generation in range(4):
            lines += (self.lab.folder / f"alerts.json.{generation}").read_text().splitlines()
        self.assertEqual(self.written, len(lines))
        alerts = [json.loads(line) for line in lines]
        self.assert_arrived([(alert["key"], alert["message"]) for alert in alerts])


class Syslog(SinkTest):
    def test_a_report_in_the_log_is_not_reported_again(self):
        log = lab.Rsyslog(self.lab)
        log.start()
        self.add("syslog", "syslog", socket=log.path)
        self.report(3)
        self.wait_delivered("syslog")
        self.lab.wait_until("they are in the log",
                            lambda: lab.MESSAGES.read_text().count(" TARSKvkvmain: ") == 3)
        self.daemon.scan()
        self.assertEqual([0, 1, 2], self.lab.reported_numbers())
        for key, _ in self.stored():
            self.assertIn(f"[{key} x1] {LINE_HOST}: EACH 1: ", lab.MESSAGES.read_text())

    def test_alerts_wait_while_the_syslog_daemon_is_down(self):
        log = lab.Rsyslog(self.lab)
        log.start()
        self.add("syslog", "syslog", socket=log.path)
        log.child.kill()
        self.report(3)
        self.wait_failed("syslog")
        log.path.unlink()
        log.start()
        self.wait_delivered("syslog")
        self.lab.wait_until("they are in the log",
                            lambda: lab.MESSAGES.read_text().count(" TARSKvkvmain: ") == 3)


class Journal(SinkTest):
    """With a socket of the test's own where systemd-journald listens."""

    SOCKET = Path("/run/systemd/journal/socket")

    def setUp(self):
        super().setUp()
        self.SOCKET.parent.mkdir(parents=True, exist_ok=True)
        self.lab.mount_tmpfs(self.SOCKET.parent, "1m")

    def listen(self):
        journal = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        journal.settimeout(lab.PATIENCE)
        journal.bind(str(self.SOCKET))
        self.lab.on_close(journal.close)
        return journal

    def test_an_alert_has_a_field_for_each_part_and_waits_for_the_journal(self):
        self.add("journal", "journal", level="err")
        self.report(2)
        self.assertIn("is systemd-journald running?", self.wait_failed("journal"))
        journal = self.listen()
        for key, message in self.stored():
            fields = dict(line.split("=", 1) for line in journal.recv(65536).decode().splitlines()
                          if "=" in line)
            self.assertEqual("TARSKvkvmain", fields["SYSLOG_IDENTIFIER"])
            self.assertEqual("3", fields["PRIORITY"])
            self.assertEqual("EACH", fields["SYSLOGMON_SOURCE"])
            self.assertEqual("1", fields["SYSLOGMON_EVENT_ID"])
            self.assertEqual("1", fields["SYSLOGMON_COUNT"])
            self.assertEqual(key, fields["SYSLOGMON_KEY"])
            self.assertEqual(LINE_HOST, fields["SYSLOGMON_HOST"])
            self.assertEqual(socket.gethostname(), fields["SYSLOGMON_MONITOR"])
            self.assertEqual(f"{LINE_HOST}: EACH 1: {message}", fields["MESSAGE"])
        self.wait_delivered("journal")


del SinkTest  # it has no test of its own

if __name__ == "__main__":
    lab.main(*lab.RSYSLOG, *receivers.ALERTMANAGER, *receivers.SNMPTRAPD, *receivers.SMILINT)
