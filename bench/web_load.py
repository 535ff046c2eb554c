#!/usr/bin/env python3
"""Does asking for the metrics hold up a pass? Passes of a real daemon over some lines each, alone and while another process
asks for /metrics at a rate, in turns: the durations that the daemon tells of. With --search, a page with a search that
finds nothing is open all the while that is asked: told of each pass, it asks again for what is new, and for the rest that a
page shows.

    SYSLOGMON_BUILD=build/release SYSLOGMON_TOOLS=build/release/tools bench/web_load.py [PASSES] [REQUESTS-A-SECOND]
        [--events N] [--alerts N] [--search]
"""
import argparse
import json
import multiprocessing
import os
import socket
import sqlite3
import statistics
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "system"))

import lab  # noqa: E402

parser = argparse.ArgumentParser()
parser.add_argument("passes", nargs="?", type=int, default=400)
parser.add_argument("rate", nargs="?", type=int, default=1000)
parser.add_argument("--events", type=int, default=1)
parser.add_argument("--alerts", type=int, default=0)
parser.add_argument("--search", action="store_true")
OPTIONS = parser.parse_args()
PASSES, RATE = OPTIONS.passes, OPTIONS.rate
SHOWN = ("overview", "history?kind=hits&seconds=3600&top=10", "events")


def request(path):
    return f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode()


def answer(connection):
    data = b""
    while b"\r\n\r\n" not in data:
        part = connection.recv(1 << 16)
        if not part:
            raise EOFError("the connection was closed")
        data += part
    head, body = data.split(b"\r\n\r\n", 1)
    length = int(head.lower().split(b"content-length:")[1].split()[0])
    whole = bytearray(length)  # in one piece: who asks should cost the processors as little as can be
    place = memoryview(whole)
    place[:len(body)] = body
    count = len(body)
    while count < length:
        part = connection.recv_into(place[count:])
        if not part:
            raise EOFError("the connection was closed")
        count += part
    return whole


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
        connection.sendall(request("/metrics"))
        answer(connection)
        count += 1
        with asked.get_lock():
            asked.value += 1
        time.sleep(max(0.0, began + count / RATE - time.monotonic()))


def keep_page_open(port, asks, searched):
    """As the page does it: what was looked through is not looked through again."""
    stream = socket.create_connection(("127.0.0.1", port))
    stream.sendall(request("/api/v1/stream"))
    looked_to = 0
    while part := stream.recv(1 << 12):
        if b"event: pass" not in part or not asks.is_set():
            continue
        with socket.create_connection(("127.0.0.1", port)) as connection:
            for path in (*SHOWN, f"alerts?limit=50&text=nowhere&after={looked_to}"):
                connection.sendall(request(f"/api/v1/{path}"))
                body = answer(connection)
            looked_to = json.loads(body)["newest"]
        with searched.get_lock():
            searched.value += 1


def fill(host):
    """Events of which none is hit, and alerts of before."""
    rules = host.folder / "rules.yaml"
    rules.write_text("events:\n- {source: DISK, id: 1, keywords: disk}\n"
                     + "".join(f"- {{source: EVENT{number:04}, id: 1, keywords: word{number:04}}}\n" for number in range(OPTIONS.events - 1)))
    host.command("apply", rules)
    host.command("sink", "limit", 1_000_000)
    with sqlite3.connect(host.root / "state" / "agent.db") as store:
        store.executemany("INSERT INTO alert (time_ms, host, log_name, source, event_id, count, message)"
                          " VALUES (?, 'web1', '/var/log/messages', 'DISK', 1, 1, ?)",
                          ((1_700_000_000_000 + number * 1000, f"line {number:06} " + "x" * 200) for number in range(OPTIONS.alerts)))


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
    fill(host)
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    host.command("set", "web", f"127.0.0.1:{port}")
    host.daemon.start()
    asks, asked = multiprocessing.Event(), multiprocessing.Value("q", 0)
    asker = multiprocessing.Process(target=ask, args=(port, asks, asked), daemon=True)
    asker.start()
    searched = multiprocessing.Value("q", 0)
    page = multiprocessing.Process(target=keep_page_open, args=(port, asks, searched), daemon=True)
    if OPTIONS.search:
        page.start()
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
    print(f"{asked.value / seconds:.0f} requests a second, {searched.value / seconds:.1f} refreshes of the page")
    asker.terminate()
    if OPTIONS.search:
        page.terminate()
    host.close()
    lab.leave()


main()
