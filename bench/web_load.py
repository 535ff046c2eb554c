#!/usr/bin/env python3
"""Does asking for the metrics hold up a pass? Passes of a real daemon over some lines each, alone and while another process
asks for /metrics at a rate, in turns: the durations that the daemon tells of.

    SYSLOGMON_BUILD=build/release SYSLOGMON_TOOLS=build/release/tools bench/web_load.py [PASSES] [REQUESTS-A-SECOND]
"""
import multiprocessing
import os
import socket
import statistics
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "system"))

import lab  # noqa: E402

PASSES = int(sys.argv[1]) if len(sys.argv) > 1 else 400
RATE = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
REQUEST = b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n"


def answer(connection):
    data = b""
    while b"\r\n\r\n" not in data:
        part = connection.recv(1 << 16)
        if not part:
            raise EOFError("the connection was closed")
        data += part
    head, body = data.split(b"\r\n\r\n", 1)
    length = int(head.lower().split(b"content-length:")[1].split()[0])
    while len(body) < length:
        body += connection.recv(1 << 16)


def ask(port, asks, asked):
    connection = None
    began = None
    count = 0
    while True:
        if not asks.is_set():
            asks.wait()
            began = None
            connection = socket.create_connection(("127.0.0.1", port))  # the one before may be closed for doing nothing
        if began is None:
            began, count = time.monotonic(), 0
        connection.sendall(REQUEST)
        answer(connection)
        count += 1
        with asked.get_lock():
            asked.value += 1
        time.sleep(max(0.0, began + count / RATE - time.monotonic()))


def durations(host, count):
    found = []
    for number in range(count):
        lab.append(lab.MESSAGES, *(lab.stamped(f"line {number} {part}") for part in range(20)), lab.stamped("disk"))
        host.daemon.scan()
        found.append(host.status()["last_pass"]["took_us"])
    return found


def shown(name, values):
    values = sorted(values)
    print(f"{name}: median {statistics.median(values):.0f} us, 99th percentile {values[int(len(values) * 0.99)]} us, "
          f"{len(values)} passes")


def main():
    lab.enter()
    host = lab.Lab()
    lab.append(lab.MESSAGES, lab.stamped("the log begins"))
    host.watch("DISK", 1, "disk")
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    host.command("set", "web", f"127.0.0.1:{port}")
    host.daemon.start()
    asks, asked = multiprocessing.Event(), multiprocessing.Value("q", 0)
    asker = multiprocessing.Process(target=ask, args=(port, asks, asked), daemon=True)
    asker.start()
    alone, busy, seconds = [], [], 0.0
    for _ in range(10):  # in turns, so that what else the machine does falls on both
        alone += durations(host, PASSES // 10)
        began = time.monotonic()
        asks.set()
        busy += durations(host, PASSES // 10)
        asks.clear()
        seconds += time.monotonic() - began
    shown("alone", alone)
    shown("asked", busy)
    print(f"{asked.value / seconds:.0f} requests a second")
    asker.terminate()
    host.close()
    lab.leave()


main()
