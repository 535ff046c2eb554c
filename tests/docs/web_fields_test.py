"""The fields in docs/web.md are those of the answers: each that comes is there, with its type, and each that is there comes."""
import json
import re
import socket
import sqlite3
import sys
import urllib.request
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "system"))

import lab  # noqa: E402

TYPES = {"number": (int, float), "text": str, "true or false": bool, "list": list, "object": dict}
BY_NAME = {"alerts[].labels"}  # its keys are names of things


def documented():
    """For each heading of the data, its fields with their types."""
    text = (SOURCE / "docs" / "web.md").read_text()
    return {heading: dict(re.findall(r"^\| `([^`]+)` \| ([^|]+) \| [^|]+ \|$", body, re.MULTILINE))
            for heading, body in re.findall(r"^### (\w+)\n(.*?)(?=^###|\Z)", text, re.MULTILINE | re.DOTALL)}


def fields(value, where=""):
    """Each field of an answer, with its value, however deep."""
    if isinstance(value, list):
        for one in value:
            if isinstance(one, (dict, list)):
                yield from fields(one, f"{where}[]")
    elif isinstance(value, dict) and where not in BY_NAME:
        for name, one in value.items():
            path = f"{where}.{name}" if where else name
            yield path, one
            yield from fields(one, path)


def is_of(value, words):
    kinds = words.removesuffix(", may be missing")
    if value is None:
        return kinds.endswith(" or null")
    wanted = TYPES[kinds.removesuffix(" or null")]
    return isinstance(value, wanted) and (wanted is bool or not isinstance(value, bool))


class Fields(lab.LabTest):
    def setUp(self):
        super().setUp()
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.url = f"http://127.0.0.1:{probe.getsockname()[1]}"
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.lab.watch("DISK", 1, "disk")
        self.lab.command("sink", "add", "file", "out", f"path={lab.VAR_LOG / 'out.json'}")
        self.lab.command("input", "add", "files", "app", f"path={lab.VAR_LOG / 'app.log'}")
        self.lab.command("silence", "add", "--source", "NET*", "--for", "1h")
        self.lab.command("set", "web", self.url[7:])
        self.daemon.start()
        lab.append(lab.MESSAGES, lab.stamped("disk"))
        self.daemon.scan()

    def get(self, path):
        with urllib.request.urlopen(self.url + path, timeout=lab.PATIENCE) as answer:
            return json.load(answer)

    def compare(self, heading, path, names=()):
        """Fields that an answer has and the page does not, or the other way round, or that are of another type."""
        rows = documented()[heading]
        seen = set()
        for name, value in fields(self.get(path)):
            seen.add(name)
            self.assertIn(name, rows, path)
            self.assertTrue(is_of(value, rows[name]), f"{name} is {value!r}, documented as {rows[name]}")
        self.assertEqual(set(), rows.keys() - seen, "documented, and in no answer")

    def test_the_fields_of_the_overview_are_those_of_the_page(self):
        self.lab.wait_until("a pass", lambda: self.get("/api/v1/overview")["daemon"].get("last_pass"))
        self.compare("Overview", "/api/v1/overview")

    def test_the_fields_of_events_are_those_of_the_page(self):
        self.compare("Events", "/api/v1/events")

    def test_the_fields_of_a_history_are_those_of_the_page(self):
        self.lab.wait_until("hits", lambda: self.get("/api/v1/history")["series"])
        self.compare("History", "/api/v1/history")

    def test_the_fields_of_alerts_are_those_of_the_page(self):
        # One that has all that an alert can have.
        with sqlite3.connect(self.lab.root / "state" / "agent.db") as store:
            store.execute("UPDATE alert SET line_host = 'a', program = 'b', own_time = 'c', severity = 'err', summary = 'd',"
                          " labels = 'e=f', runbook_url = 'https://g', value = 'h', terms = 'i', held_reports = 2, held_hits = 3,"
                          " held_first = 'j', held_last = 'k', silence = 1, reports = 2, last_message = 'l'")
        self.lab.wait_until("the alert", lambda: "summary" in self.get("/api/v1/alerts")["alerts"][0])
        self.compare("Alerts", "/api/v1/alerts")


if __name__ == "__main__":
    lab.main()
