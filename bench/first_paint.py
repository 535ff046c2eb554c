#!/usr/bin/env python3
"""When does the page first show something? In a fresh Chromium each time, in turns with a page of one word: milliseconds from
the start of the navigation, medians.

    SYSLOGMON_BUILD=build/release SYSLOGMON_TOOLS=build/release/tools bench/first_paint.py [ROUNDS]
"""
import http.server
import statistics
import sys
import threading
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(SOURCE / "tests" / "system"), str(SOURCE / "tests" / "web")]

import lab  # noqa: E402
from browser import Browser  # noqa: E402
from page_test import free_port  # noqa: E402

ROUNDS = int(sys.argv.pop(1)) if len(sys.argv) > 1 else 7
EVENTS = 2048
BARE = b"<!DOCTYPE html><title>bare</title><p>word"
PAINT = "performance.getEntriesByName('first-contentful-paint')[0]"


class Bare(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", str(len(BARE)))
        self.end_headers()
        self.wfile.write(BARE)

    def log_message(self, *_):
        pass


def first_paint(url):
    browser = Browser(1280, 1600)
    try:
        browser.open(url)
        browser.wait(f"{PAINT} !== undefined")
        return browser.run(f"{PAINT}.startTime")
    finally:
        browser.close()


class FirstPaint(lab.LabTest):
    def test_first_paint(self):
        lab.append(lab.MESSAGES, lab.stamped("the log begins"))
        rules = self.lab.folder / "rules.yaml"
        rules.write_text("events:\n" + "".join(f"- {{source: EVENT{number:04}, id: 1, keywords: word{number:04}}}\n"
                                               for number in range(EVENTS)))
        self.lab.command("apply", rules)
        page = f"127.0.0.1:{free_port()}"
        self.lab.command("set", "web", page)
        self.daemon.start()
        bare = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Bare)
        threading.Thread(target=bare.serve_forever, daemon=True).start()
        took = [(first_paint(f"http://127.0.0.1:{bare.server_port}/"), first_paint(f"http://{page}/"))
                for _ in range(ROUNDS)]
        bare.shutdown()
        bare.server_close()
        for name, times in zip(("a page of one word", f"the page, {EVENTS:,} events"), zip(*took)):
            print(f"{name}: {statistics.median(times):.0f} ms ({min(times):.0f} to {max(times):.0f})")


if __name__ == "__main__":
    lab.main()
