"""A real systemd-journald under load: rotated and vacuumed, and the daemon killed, again and again. Each entry counts once.

    SYSLOGMON_JOURNAL_LIVES=50 journal_soak_test.py     so many kills, rotations and vacuums, with 4,000 entries each
"""
import os
import subprocess
from collections import Counter
from math import prod
from pathlib import Path

import lab
from input_test import JournalTest

LIVES = int(os.environ.get("SYSLOGMON_JOURNAL_LIVES", "50"))
# Two entries leave the same rest by each of these only if their numbers are equal, up to the product: so one that is
# lost shows whatever other one was counted twice.
MODULI = (61, 67, 71)
ROTATE = 12  # SIGUSR2


class Soak(JournalTest):
    def start_journald(self):
        settings = Path("/run/systemd/journald.conf.d/lab.conf")
        settings.parent.mkdir(parents=True)
        settings.write_text("[Journal]\nRateLimitBurst=0\nStorage=persistent\nForwardToSyslog=no\n")
        super().start_journald()

    def setUp(self):
        super().setUp()
        self.random = lab.randomness("journal soak")
        self.written = 0
        self.lab.command("event", "remove", "EACH", "1")
        # Alerts of a flood are folded, hits are not: each event counts the entries of one rest.
        for modulus in MODULI:
            for rest in range(modulus):
                self.lab.watch(f"BY{modulus}", f"{rest + 1:x}", self.word(modulus, rest), report_count=1_000_000)

    @staticmethod
    def word(modulus, rest):
        return f"by-{modulus}-is-{rest}."

    def write(self, count):
        for number in range(self.written, self.written + count):
            self.log(f"entry {number} " + " ".join(self.word(modulus, number % modulus) for modulus in MODULI))
        self.written += count
        self.assertLess(self.written, prod(MODULI))

    def counted(self):
        return Counter({(event["source"], int(event["id"], 16) - 1): event["hits"] or 0
                        for event in self.lab.json("event", "list")["events"]})

    def wanted(self):
        return Counter((f"BY{modulus}", number % modulus) for modulus in MODULI for number in range(self.written))

    def wait_for_all(self):
        self.lab.wait_until(f"{self.written} entries are counted",
                            lambda: self.counted().total() >= self.written * len(MODULI), seconds=300)
        self.assertEqual(+self.wanted(), +self.counted())

    def test_each_entry_counts_once(self):
        self.log("the first entry")
        self.lab.wait_until("the first entry is there", lambda: "first" in subprocess.run(
            ["journalctl", "-n", "1", "-o", "cat"], capture_output=True, text=True, check=False).stdout)
        self.lab.command("input", "add", "journal", "journal")
        for _ in range(LIVES):
            self.daemon.launch()
            self.write(self.random.randint(1000, 2000))
            if self.random.random() < 0.5:
                self.journald.signal(ROTATE)
            self.write(self.random.randint(500, 1000))
            self.daemon.kill()
            self.journald.signal(ROTATE)
            self.write(1400)
            self.daemon.launch()
            self.wait_for_all()
            # What was read may go.
            self.journald.signal(ROTATE)
            subprocess.run(["journalctl", "--vacuum-files=1"], capture_output=True, check=False)
            self.write(500)
            self.daemon.kill()
        self.daemon.start()
        self.wait_for_all()
        self.assertEqual([], self.lab.alerts("SYSLOGMON"))


if __name__ == "__main__":
    lab.main()
