#!/usr/bin/env python3
"""What it costs to read a journal, beside journalctl -o short of the same.

    bench/journal.py [--build DIR] [--entries N]

Has a real systemd-journald write N entries (200,000) into a journal of its own, in memory, and runs
"input_bench journal" over it, which prints entries a second of processor time of both. The messages
imitate those of a busy mail host, 80 to 200 bytes; each entry has the fields that journald adds to
what a program sends. Runs in a private mount namespace (as root, or in a user namespace).
"""
import argparse
import os
import pathlib
import random
import signal
import socket
import subprocess
import sys
import time

JOURNALD = "/lib/systemd/systemd-journald"


def enter_namespace():
    if os.environ.get("JOURNAL_INSIDE"):
        return
    os.environ["JOURNAL_INSIDE"] = "1"
    how = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
    os.execvp("unshare", how + [sys.executable, *sys.argv])


def prepare_folders():
    for folder in ("/run/systemd", "/run/log"):
        pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2g", "tmpfs", folder], check=True)
    for folder in ("/run/systemd/journal", "/run/systemd/journald.conf.d", "/run/log/journal"):
        pathlib.Path(folder).mkdir(parents=True)
    pathlib.Path("/run/systemd/journald.conf.d/bench.conf").write_text(
        "[Journal]\nRateLimitBurst=0\nStorage=volatile\nForwardToSyslog=no\nRuntimeMaxUse=1500M\n",
        encoding="ascii")


def connect():
    for _ in range(1000):
        try:
            sender = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
            sender.connect("/run/systemd/journal/socket")
            return sender
        except OSError:
            time.sleep(0.01)
    sys.exit("systemd-journald does not listen")


def write_entries(count):
    choice = random.Random(1)  # the same in each run
    sender = connect()
    for number in range(count):
        text = f"connect from unknown[{number}] " + "x" * choice.randint(30, 150)
        sender.send(f"MESSAGE={text}\nPRIORITY=6\nSYSLOG_FACILITY=2\nSYSLOG_IDENTIFIER=postfix/smtpd\n"
                    f"SYSLOG_PID=4711\n".encode())


def newest_entry():
    return subprocess.run(["journalctl", "-q", "-n", "1", "-o", "cat"], capture_output=True, text=True,
                          check=False).stdout


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path,
                        default=pathlib.Path(__file__).resolve().parents[1] / "build" / "release")
    parser.add_argument("--entries", type=int, default=200_000)
    options = parser.parse_args()
    enter_namespace()
    prepare_folders()
    with subprocess.Popen([JOURNALD], stderr=subprocess.DEVNULL) as journald:
        try:
            write_entries(options.entries)
            while f"[{options.entries - 1}]" not in newest_entry():
                time.sleep(0.1)
        finally:
            journald.send_signal(signal.SIGTERM)
    folder = next(pathlib.Path("/run/log/journal").iterdir())
    done = subprocess.run([options.build / "bench" / "input_bench", "journal", folder], check=False)
    sys.exit(done.returncode)


if __name__ == "__main__":
    main()
