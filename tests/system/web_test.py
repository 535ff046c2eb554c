"""The page and its data over HTTP: what is answered, who gets no answer, and that nobody holds up the monitor."""
import contextlib
import http.client
import json
import os
import re
import socket
import stat
import subprocess
import threading
import time

import lab


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class OverSocket(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=lab.PATIENCE)
        self.path = str(path)

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(lab.PATIENCE)
        self.sock.connect(self.path)


class Web(lab.LabTest):
    def setUp(self):
        super().setUp()
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", "1A", "disk")
        self.lab.command("sink", "add", "file", "out", f"path={lab.VAR_LOG / 'out.json'}")
        self.port = free_port()

    def serve(self, address=None):
        self.lab.command("set", "web", address or f"127.0.0.1:{self.port}")
        if self.daemon.child is None:
            self.daemon.start()

    def answer(self, path, method="GET", connection=None, **headers):
        """Status, headers and body."""
        names = {name.replace("_", "-"): value for name, value in headers.items()}
        connection = connection or http.client.HTTPConnection("127.0.0.1", self.port, timeout=lab.PATIENCE)
        with contextlib.closing(connection):
            connection.request(method, path, headers=names)
            answer = connection.getresponse()
            return answer.status, answer.headers, answer.read()

    def status_of(self, path, **more):
        return self.answer(path, **more)[0]

    def json(self, path):
        status, _, body = self.answer(path)
        self.assertEqual(200, status, body)
        return json.loads(body)

    def is_served(self):
        try:
            return self.status_of("/metrics") == 200
        except OSError:
            return False

    def log(self, *texts):
        lab.append(lab.MESSAGES, *(lab.stamped(text) for text in texts))
        self.daemon.scan()

    def fresh(self, path, condition):
        """What is answered once it is so: an answer is kept for a second."""
        found = []
        self.lab.wait_until(path, lambda: condition(found.append(self.json(path)) or found[-1]))
        return found[-1]


class Answers(Web):
    def setUp(self):
        super().setUp()
        self.serve()

    def test_the_metrics_are_those_of_the_command(self):
        self.log("disk 1", "disk 2")
        wanted = 'syslogmon_hits_total{source="DISK",event_id="1A"} 2'
        self.assertIn(wanted, self.lab.command("metrics"))
        self.lab.wait_until("the metrics", lambda: wanted in self.answer("/metrics")[2].decode())
        self.assertEqual("text/plain; version=0.0.4; charset=utf-8", self.answer("/metrics")[1]["Content-Type"])

    def test_the_overview_tells_of_daemon_logs_and_sinks(self):
        self.log("disk")
        found = self.fresh("/api/v1/overview", lambda view: view["alerts"] == 1)
        self.assertEqual("running", found["daemon"]["state"])
        self.assertEqual(self.daemon.pid, found["daemon"]["pid"])
        self.assertIsNone(found["daemon"]["stands"])
        self.assertEqual([{"path": "/var/log/messages", "role": "system log", "unread_bytes": 0, "behind_seconds": 0}],
                         found["logs"])
        self.assertEqual(["out"], [sink["name"] for sink in found["sinks"]])

    def test_a_look_at_all_files_that_is_late_is_told(self):
        daemon = self.json("/api/v1/overview")["daemon"]
        self.assertFalse(daemon["is_late"])
        self.assertIn(daemon["seconds_since_look"], range(2 * lab.PATIENCE))

        def told_late():
            self.lab.tell_a_late_look()
            daemon = self.json("/api/v1/overview")["daemon"]
            return daemon["is_late"] and daemon["seconds_since_look"] > 900_000
        self.lab.wait_until("late", told_late)

    def test_silences_that_are_not_over_are_told(self):
        self.lab.command("silence", "add", "--source", "D*", "--for", "1h", "--comment", "<disk swap>")
        found = self.fresh("/api/v1/overview", lambda view: view["silences"])["silences"]
        self.assertEqual([("D*", None, "*", True, "<disk swap>")],
                         [(one["source"], one["event_id"], one["host"], one["holds"], one["comment"]) for one in found])
        self.lab.command("silence", "end", found[0]["number"])
        self.fresh("/api/v1/overview", lambda view: not view["silences"])

    def test_hits_are_told_by_event_and_over_time(self):
        self.log("disk 1", "disk 2", "disk 3")
        event = self.fresh("/api/v1/events", lambda found: found["events"][0]["hits"] == 3)["events"][0]
        self.assertEqual({"source": "DISK", "event_id": "1A", "keywords": ["disk"], "report_count": 1, "severity": None,
                          "hits": 3, "alerts": 3, "held_back": 0}, event)
        course = self.json("/api/v1/history?kind=hits&seconds=600")
        self.assertEqual(60, course["step_seconds"])
        series = course["series"][0]
        self.assertEqual(("DISK", "1A", 3), (series["name"], series["event_id"], series["sum"]))
        self.assertEqual(3, sum(series["values"]))
        self.assertEqual(course["steps"], len(series["values"]))

    def test_an_event_is_told_as_soon_as_the_monitor_has_it(self):
        def sources():
            return [event["source"] for event in self.json("/api/v1/events")["events"]]
        for source in ("NEW", "NEWER"):
            self.assertNotIn(source, sources())
            before = self.lab.status()["last_pass"]["number"]
            self.lab.watch(source, 1, "new")
            self.lab.wait_until("the monitor has it", lambda: self.lab.status()["last_pass"]["number"] > before)
            self.daemon.scan()  # whoever is told of that pass was told of the one before
            self.assertIn(source, sources())

    def test_the_course_of_one_event_is_told_alone(self):
        self.lab.watch("DISK", "2", "two")
        self.lab.watch("NET", "2", "two")
        self.log("disk one", "two", "two")
        both = "/api/v1/history?event_id=2"
        found = self.fresh(both, lambda found: len(found["series"]) == 2)
        self.assertEqual({("DISK", "2", 2), ("NET", "2", 2)},
                         {(one["name"], one["event_id"], one["sum"]) for one in found["series"]})
        one = self.json("/api/v1/history?source=DISK&event_id=2")["series"]
        self.assertEqual([("DISK", "2", 2)], [(one["name"], one["event_id"], one["sum"]) for one in one])
        self.assertEqual(["1A", "2"], sorted(one["event_id"] for one in self.json("/api/v1/history?source=DISK")["series"]))
        self.assertEqual([], self.json("/api/v1/history?source=D*")["series"], "a name, and no pattern")

    def test_alerts_come_newest_first_and_in_pages_and_can_be_searched(self):
        self.log(*(f"disk {number:03}" for number in range(25)))
        found = self.fresh("/api/v1/alerts?limit=10", lambda found: len(found["alerts"]) == 10)
        numbers = []
        before = ""
        for _ in range(3):
            found = self.json(f"/api/v1/alerts?limit=10{before}")
            numbers += [int(alert["message"][-3:]) for alert in found["alerts"]]
            before = f"&before={found['before']}"
        self.assertEqual(list(reversed(range(25))), numbers)
        self.assertIsNone(found["before"])
        self.assertEqual(1, len(self.json("/api/v1/alerts?text=DISK%20013")["alerts"]))
        self.assertEqual(25, len(self.json("/api/v1/alerts?source=D*")["alerts"]))
        self.assertEqual(0, len(self.json("/api/v1/alerts?source=E*")["alerts"]))
        self.assertEqual(0, len(self.json("/api/v1/alerts?event_id=1")["alerts"]))

    def test_a_query_that_cannot_be_used_is_told_why(self):
        for path, why in (("/api/v1/history?event_id=xyz", "xyz"),
                          ("/api/v1/history?kind=other", "kind must be one of hits, "),
                          ("/api/v1/history?seconds=x", "seconds must be a number from 60 to "),
                          ("/api/v1/alerts?limit=1001", "limit must be a number from 1 to 1000"),
                          ("/api/v1/alerts?event_id=zz", "zz")):
            status, _, body = self.answer(path)
            self.assertEqual(400, status, path)
            self.assertIn(why, json.loads(body)["error"])
        self.assertEqual(404, self.status_of("/api/v1/other"))

    def test_news_are_told_as_they_come(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=lab.PATIENCE)
        self.addCleanup(connection.close)
        connection.request("GET", "/api/v1/stream")
        stream = connection.getresponse()
        self.assertEqual("text/event-stream", stream.headers["Content-Type"])
        self.assertEqual(b"retry: 3000\n", stream.readline())
        self.log("disk")
        lines = iter(stream.readline, b"")
        self.assertIn(b"event: pass\n", lines)
        self.daemon.stop()
        self.assertEqual([], [line for line in lines if line.startswith(b"HTTP")], "it ends with the daemon")

    def test_it_is_served_where_the_setting_says_while_the_daemon_runs(self):
        self.lab.command("set", "web", "off")
        self.lab.wait_until("its end", lambda: not self.is_served())
        self.port = free_port()
        self.serve()
        self.lab.wait_until("another port", self.is_served)

    def test_a_port_that_another_has_is_told_and_tried_again(self):
        with socket.socket() as other:
            other.bind(("127.0.0.1", 0))
            other.listen()
            self.port = other.getsockname()[1]
            self.serve()
            self.lab.wait_for_trace(f"cannot serve the page on 127.0.0.1 port {self.port}: Address already in use; "
                                    "end what has it, or name another place with syslogmon set web")
        self.lab.wait_until("the port", self.is_served)

    def test_a_log_line_with_markup_stays_text(self):
        line = "disk <script>alert(1)</script> \"'&\u202e"
        self.log(line)
        found = self.fresh("/api/v1/alerts", lambda found: found["alerts"])
        self.assertIn(line, found["alerts"][0]["message"])
        _, headers, _ = self.answer("/api/v1/alerts")
        self.assertEqual(("application/json", "nosniff"), (headers["Content-Type"], headers["X-Content-Type-Options"]))


class Guard(Web):
    def test_it_is_off_unless_it_is_set(self):
        self.daemon.start()
        self.assertEqual("off\n", self.lab.command("get", "web"))
        self.assertFalse(self.is_served())

    def test_only_reading_is_answered(self):
        self.serve()
        for method in ("POST", "PUT", "DELETE", "OPTIONS"):
            self.assertEqual(405, self.status_of("/api/v1/alerts", method=method), method)
        status, _, body = self.answer("/metrics", method="HEAD")
        self.assertEqual((200, b""), (status, body))

    def test_another_name_of_this_address_gets_nothing(self):
        self.serve()
        for host in ("evil.example", "evil.example:9514", "localhost.evil.example", "", "10.0.0.1"):
            self.assertEqual(421, self.status_of("/metrics", Host=host), host)
        for host in ("localhost", "LOCALHOST:1", "127.0.0.1", "[::1]:9514"):
            self.assertEqual(200, self.status_of("/metrics", Host=host), host)

    def test_a_strangers_page_gets_nothing(self):
        self.serve()
        own = f"http://127.0.0.1:{self.port}"
        self.assertEqual(403, self.status_of("/api/v1/alerts", Origin="http://evil.example"))
        self.assertEqual(403, self.status_of("/api/v1/alerts", Sec_Fetch_Site="cross-site"))
        self.assertEqual(200, self.status_of("/api/v1/alerts", Sec_Fetch_Site="same-origin", Origin=own))
        _, headers, _ = self.answer("/", Sec_Fetch_Site="cross-site")
        self.assertNotIn("Access-Control-Allow-Origin", headers)
        self.assertIn("default-src 'none'", headers["Content-Security-Policy"])
        self.assertNotIn("unsafe", headers["Content-Security-Policy"])

    def test_the_page_loads_nothing_from_elsewhere(self):
        self.serve()
        for path in ("/", "/app.js", "/uPlot.js", "/uPlot.css", "/icon.svg"):
            status, headers, body = self.answer(path)
            self.assertEqual(200, status, path)
            found = re.findall(rb"https?://[^\s\"']+", body)
            self.assertEqual([], [url for url in found if b"www.w3.org" not in url and b"github.com/leeoniya" not in url], path)
            self.assertEqual(304, self.status_of(path, If_None_Match=headers["ETag"]), path)

    def test_another_address_is_asked_by_the_names_that_the_machine_gives_itself(self):
        name = os.uname().nodename.split(".")[0]
        for path, text in (("/etc/hosts", f"127.0.0.1 localhost\n127.0.1.1 {name}.hosts.example {name}\n"),
                           ("/etc/resolv.conf", "nameserver 127.0.0.9\nsearch lan.example\n")):
            stand_in = self.lab.folder / path.replace("/", "_")
            stand_in.write_text(text)
            subprocess.run(["mount", "--bind", stand_in, path], check=True)
            self.lab.on_close(lambda path=path: subprocess.run(["umount", "--lazy", path], check=True))
        self.serve(f"0.0.0.0:{self.port}")
        for host, status in ((name, 401), (f"{name}.hosts.example", 401), (f"{name.upper()}.LAN.example:80", 401),
                             (f"{name}.anything", 421), (f"{name}.hosts.example.com", 421), ("hosts.example", 421)):
            self.assertEqual(status, self.status_of("/metrics", Host=host), host)

    def test_other_machines_need_the_token(self):
        self.serve(f"0.0.0.0:{self.port}")
        token_file = self.lab.root / "state" / "web-token"
        self.assertEqual(0o600, stat.S_IMODE(token_file.stat().st_mode))
        token = token_file.read_text().strip()
        self.assertGreater(len(token), 30)
        self.assertEqual(401, self.status_of("/metrics"))
        self.assertEqual(401, self.status_of("/metrics", Authorization=f"Bearer {token[:-1]}x"))
        self.assertEqual(401, self.status_of("/?token=wrong"))
        self.assertEqual(200, self.status_of("/metrics", Authorization=f"Bearer {token}"))
        status, headers, _ = self.answer(f"/?token={token}")
        self.assertEqual((303, "/"), (status, headers["Location"]))
        self.assertIn("HttpOnly; SameSite=Strict", headers["Set-Cookie"])
        self.assertEqual(200, self.status_of("/api/v1/overview", Cookie=headers["Set-Cookie"].split(";")[0]))
        self.daemon.stop()
        self.daemon.start()
        self.assertEqual(token, token_file.read_text().strip(), "it stays the same")

    def test_a_token_that_can_be_tried_out_serves_nobody(self):
        self.serve(f"0.0.0.0:{self.port}")
        token_file = self.lab.root / "state" / "web-token"
        self.daemon.stop()
        for text in ("\n", "secret\n"):
            token_file.write_text(text)
            self.daemon.start()
            self.assertFalse(self.is_served())
            said = self.daemon.child.said()
            self.assertIn(f"the token in {token_file} has {len(text) - 1} characters", said)
            self.assertIn("remove the file, and the daemon makes it anew", said)
            self.daemon.stop()
        token_file.unlink()
        self.daemon.start()
        self.assertEqual(401, self.status_of("/metrics"))

    def test_a_socket_is_for_its_user_and_goes_with_the_daemon(self):
        path = self.lab.root / "run" / "web.sock"
        self.serve(path)
        self.assertEqual(0o600, stat.S_IMODE(path.stat().st_mode))
        self.assertEqual(200, self.status_of("/metrics", connection=OverSocket(path)))
        self.daemon.kill()
        self.assertTrue(path.exists(), "a killed daemon leaves it behind")
        self.daemon.start()
        self.assertEqual(200, self.status_of("/metrics", connection=OverSocket(path)))
        self.daemon.stop()
        self.assertFalse(path.exists())

    def test_an_address_that_is_none_is_refused(self):
        for address in ("9514", "127.0.0.1", "127.0.0.1:0", "127.0.0.1:65536", "::1:9514", "example.com:80", "run/web.sock",
                        "/" + "x" * 200):
            done = self.lab.run("set", "web", address)
            self.assertEqual(1, done.returncode, address)
            self.assertIn(f'cannot set web to "{address}"', done.stderr)


class Limits(Web):
    def setUp(self):
        super().setUp()
        self.serve()

    def test_readers_that_do_nothing_hold_up_nobody(self):
        idle = []
        self.addCleanup(lambda: [one.close() for one in idle])
        for number in range(80):
            one = socket.create_connection(("127.0.0.1", self.port), timeout=5)
            # Half a request, or an answer that is not taken.
            one.sendall(b"GET /api/v1/alerts HTTP/1.1\r\nHost: localhost\r\n" + (b"" if number % 2 else b"\r\n"))
            idle.append(one)
        self.log("disk while all wait")
        self.assertEqual(1, len(self.lab.alerts("DISK")))
        for one in idle:
            one.close()
        self.lab.wait_until("an answer", self.is_served)

    def test_a_connection_is_good_for_many_requests(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=lab.PATIENCE)
        self.addCleanup(connection.close)
        connection.connect()
        own = connection.sock
        for path in ("/metrics", "/", "/api/v1/other", "/metrics"):
            connection.request("GET", path)
            connection.getresponse().read()
            self.assertIs(own, connection.sock, path)

    def test_there_are_so_many_streams_and_no_more(self):
        streams = []
        self.addCleanup(lambda: [one.close() for one in streams])
        statuses = []
        for _ in range(18):
            one = http.client.HTTPConnection("127.0.0.1", self.port, timeout=lab.PATIENCE)
            streams.append(one)
            one.request("GET", "/api/v1/stream")
            statuses.append(one.getresponse().status)
        self.assertEqual([200] * 16 + [503] * 2, statuses)
        self.assertEqual(200, self.status_of("/metrics"))
        self.daemon.stop()  # also with all of them open

    def test_headers_that_never_end_are_refused(self):
        with socket.create_connection(("127.0.0.1", self.port), timeout=lab.PATIENCE) as one:
            with contextlib.suppress(OSError):
                one.sendall(b"GET / HTTP/1.1\r\n" + b"X: " + b"y" * 100_000 + b"\r\n\r\n")
            answer = b""
            with contextlib.suppress(OSError):
                answer = one.recv(100)
        self.assertNotIn(b" 200 ", answer)
        self.assertTrue(self.is_served())

    def test_a_daemon_that_is_asked_all_the_time_reads_each_line(self):
        ends = threading.Event()

        def ask():
            while not ends.is_set():
                for path in ("/metrics", "/api/v1/overview", f"/api/v1/alerts?text={time.time_ns()}"):
                    self.status_of(path)

        askers = [threading.Thread(target=ask) for _ in range(3)]
        for asker in askers:
            asker.start()
        try:
            for number in range(20):
                self.log(f"disk {number}")
        finally:
            ends.set()
            for asker in askers:
                asker.join()
        self.assertEqual(20, len(self.lab.alerts("DISK")))


if __name__ == "__main__":
    lab.main()
