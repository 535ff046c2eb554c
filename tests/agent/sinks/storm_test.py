"""A storm: many matching lines at once, through a mail, a program and a webhook sink with the rates that they have unless
set otherwise. Every hit must be in some message, and few messages may come.

    storm_test.py               5,000 lines, for every day
    STORM_LINES=1000000 STORM_SECONDS=60 storm_test.py
    STORM_TO_THE_END=1 storm_test.py            with these rates until the last hit was told of: some minutes

Prints what arrived, how long it took and the daemon's largest memory.
"""
import json
import os
import re
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "system"))

import lab  # noqa: E402
import receivers  # noqa: E402

LINES = int(os.environ.get("STORM_LINES", "5000"))
SECONDS = float(os.environ.get("STORM_SECONDS", "0"))
AT_ONCE = 5000  # lines in one write
TO_THE_END = "STORM_TO_THE_END" in os.environ  # the mail that tells of the last ones goes five minutes after the one before

# What a sink may send at once with the rate that it has unless set otherwise.
MOST_AT_ONCE = {"mail": 12, "program": 60, "webhook": 60}


def hits_in_json(alert):
    return alert["count"] + alert.get("held_back", {}).get("hits", 0) + alert.get("digest", {}).get("hits", 0)


def hits_in_mail(text):
    """Soft line breaks of the encoding are taken away first."""
    text = text.replace("=\r\n", "")
    hits = sum(int(number) for number in re.findall(r"^    hits      (\d+)\r?$", text, re.MULTILINE))
    return hits + sum(int(number) for number in
                      re.findall(r"^Held back before it: \d+ alerts of (\d+) hits", text, re.MULTILINE))


class Storm(lab.LabTest):
    def setUp(self):
        super().setUp()
        for source in ("DISK", "NET"):
            self.lab.watch(source, "1", f"{source} storm")
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        self.daemon.start()
        self.mail = receivers.MailServer(self.lab)
        self.mail.start()
        self.authority = receivers.Authority(self.lab.folder / "ca")
        self.hook = receivers.HttpsReceiver(self.lab, self.authority)
        self.hook.start()
        self.got = self.lab.folder / "got"
        program = self.lab.folder / "program"
        program.write_text(f"#!/bin/sh\ncat >> {self.got}\n")
        program.chmod(0o755)
        # Not what the monitor may have to tell about itself meanwhile.
        only = "only=source=DISK,source=NET"
        self.lab.command("sink", "add", "mail", "mail", only, f"server=smtp://127.0.0.1:{self.mail.port}",
                         "from=a@example.com", "to=b@example.com", "tls=none")
        self.lab.command("sink", "add", "program", "program", only, f"command={program}")
        self.lab.command("sink", "add", "webhook", "webhook", only, f"url={self.hook.url}",
                         f"ca-file={self.authority.ca}")

    def write(self):
        """The lines, in steps that fill the time."""
        begin = time.monotonic()
        for first in range(0, LINES, AT_ONCE):
            lab.append(lab.MESSAGES, *(lab.stamped(f"{'DISK' if n % 3 else 'NET'} storm {n}")
                                       for n in range(first, min(first + AT_ONCE, LINES))))
            time.sleep(max(0.0, begin + SECONDS * first / LINES - time.monotonic()))
        return time.monotonic() - begin

    def messages(self):
        """By sink: the hits of each message."""
        lines = self.got.read_text().splitlines() if self.got.exists() else []
        return {"mail": [hits_in_mail(mail[2]) for mail in list(self.mail.mails)],
                "program": [hits_in_json(json.loads(line)) for line in lines],
                "webhook": [hits_in_json(alert) for _, alert in list(self.hook.requests)]}

    def memory(self):
        status = Path(f"/proc/{self.daemon.pid}/status").read_text()
        return int(re.search(r"VmHWM:\s+(\d+)", status)[1]) / 1024

    def test_every_hit_is_in_some_message_and_few_messages_come(self):
        took = self.write()
        # A million on a busy machine take longer than all that other tests wait for.
        patience = 10 * lab.PATIENCE
        scanned = self.lab.run("scan", "--wait", "--timeout", patience, timeout=2 * patience)
        self.assertEqual(0, scanned.returncode, scanned.stderr)
        stored = time.monotonic()
        # What waits for a token is told of within a second from here on: no test waits for an hour.
        held = {sink: sum(hits) for sink, hits in self.messages().items()}
        sent = {sink: len(hits) for sink, hits in self.messages().items()}
        for sink in MOST_AT_ONCE:
            self.assertLessEqual(sent[sink], MOST_AT_ONCE[sink] + 60 * (took + 120) / 60, sink)
            if not TO_THE_END:
                self.lab.command("sink", "set", sink, "rate=1/s")
        self.lab.wait_until("every hit was told of",
                            lambda: all(sum(hits) >= LINES for hits in self.messages().values()),
                            seconds=(20 if TO_THE_END else 5) * lab.PATIENCE)
        for sink, hits in self.messages().items():
            self.assertEqual(LINES, sum(hits), sink)
        print(f"{LINES} lines in {took:.1f} s; with the usual rates, until the last was stored: "
              + ", ".join(f"{sink} {sent[sink]} messages of {held[sink]} hits" for sink in sent)
              + f"; the rest {time.monotonic() - stored:.1f} s later, "
              + ("with the same rates" if TO_THE_END else "when each could send one a second") + ", messages in all: "
              + ", ".join(f"{sink} {len(hits)}" for sink, hits in self.messages().items())
              + f"; {self.memory():.0f} MiB at most", file=sys.stderr)


if __name__ == "__main__":
    lab.main()
