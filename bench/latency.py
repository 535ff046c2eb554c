#!/usr/bin/env python3
"""How soon an alert is stored after its line was written, and what an idle daemon costs.

    bench/latency.py [--build DIR] [--interval MS]... [--samples N] [--rate LINES] [--idle SECONDS]
                     [--input]

Runs the daemon on a private /var/log (as root, or in a user namespace). The load imitates a busy web or
mail host: lines of 80 to 200 bytes under a traditional time stamp, of which none matches but the samples;
the table has 100 events. Each sample is one line that matches, written with one write(2); the latency ends
when the daemon, run with --print-alerts, has printed the alert, which it does after the pass was committed
to the disk. The store lies in the folder for temporary files. The first five samples of each run are thrown
away as a warm-up.

With --input the lines are written into a file that an input reads, so they go through the spool.

  idle   nothing else is written; the samples come at random moments, 1.2 to 1.8 intervals apart
  busy   LINES lines a second are written, in bursts of 10 ms; the samples are among them
"""
import argparse
import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time


def enter_namespace():
    if os.environ.get("LATENCY_INSIDE"):
        return
    os.environ["LATENCY_INSIDE"] = "1"
    how = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
    os.execvp("unshare", how + [sys.executable, *sys.argv])


def line(text):
    return (time.strftime("%b %e %H:%M:%S ") + "host app[4711]: " + text + "\n").encode()


class Host:
    """A daemon with a registry of its own, on a private /var/log."""

    def __init__(self, build, interval, by_input):
        self.bin = build / "root" / "bin"
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="latency."))
        (self.root / "lib").symlink_to(build / "root" / "lib")
        for name in os.listdir("/var/log"):
            os.unlink("/var/log/" + name)
        name = "/var/log/app.log" if by_input else "/var/log/messages"
        self.log = os.open(name, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o644)
        os.write(self.log, line("the first line"))
        self.tell("event", "add", "SAMPLE", "1", "-k", "sample-that-matches")
        for number in range(2, 101):
            self.tell("event", "add", "OTHER", f"{number:x}", "-k", f"never-written-{number}")
        self.tell("set", "trigger-interval", str(interval))
        if by_input:
            self.tell("input", "add", "files", "app", "path=" + name)
        self.alerts = {}  # time since 1970 at which each sample was printed, by its number
        self.daemon = subprocess.Popen([self.bin / "syslogmond", "--root", self.root, "--print-alerts"],
                                       stdout=subprocess.PIPE)
        self.reader = threading.Thread(target=self.read_alerts)
        self.reader.start()
        while self.passes() < 1:
            time.sleep(0.05)

    def tell(self, *words):
        command = [self.bin / "syslogmon", "--root", self.root, *words]
        return subprocess.run(command, check=True, capture_output=True, text=True).stdout

    def passes(self):
        try:
            return json.loads((self.root / "run/status.json").read_text())["last_pass"]["number"]
        except (FileNotFoundError, ValueError):
            return 0

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.daemon.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def switches(self):
        total = 0
        for task in pathlib.Path(f"/proc/{self.daemon.pid}/task").iterdir():
            for row in (task / "status").read_text().splitlines():
                total += int(row.split()[1]) if "ctxt_switches" in row else 0
        return total

    def read_alerts(self):
        for row in self.daemon.stdout:
            self.alerts[int(row.rsplit(b" ", 1)[1])] = time.time()

    def stop(self):
        self.daemon.send_signal(signal.SIGTERM)
        self.daemon.wait()
        self.reader.join()
        os.close(self.log)
        shutil.rmtree(self.root)


def write_idle(host, samples, interval):
    written = {}
    for number in range(samples):
        time.sleep(interval / 1000 * random.uniform(1.2, 1.8))
        text = line(f"sample-that-matches {number}")
        written[number] = time.time()
        os.write(host.log, text)
    return written


def write_busy(host, samples, interval, rate):
    burst_seconds = 0.01
    filler = [line("request done " + "x" * random.randint(40, 160)) for _ in range(1000)]
    written = {}
    lines = 0
    begin = time.monotonic()
    # A sample every 50 ms or so: their moments spread over the interval.
    next_sample = begin + 1
    while len(written) < samples:
        due = int((time.monotonic() - begin) * rate) - lines
        if due > 0:
            os.write(host.log, b"".join(random.choices(filler, k=due)))
            lines += due
        if time.monotonic() >= next_sample:
            number = len(written)
            text = line(f"sample-that-matches {number}")
            written[number] = time.time()
            os.write(host.log, text)
            next_sample += random.uniform(0.02, 0.08)
        time.sleep(burst_seconds)
    return written, lines / (time.monotonic() - begin)


def report(name, written, stored):
    missing = [number for number in written if number not in stored]
    values = sorted(1000 * (stored[n] - written[n]) for n in written if n in stored and n >= 5)
    pick = lambda share: values[min(len(values) - 1, int(len(values) * share))]
    print(f"{name}: {len(values)} samples, smallest {values[0]:.1f} ms, median {pick(0.5):.1f} ms, "
          f"99th percentile {pick(0.99):.1f} ms, largest {values[-1]:.1f} ms"
          + (f", {len(missing)} MISSING" if missing else ""))


def measure(build, interval, options):
    host = Host(build, interval, options.input)
    try:
        written = write_idle(host, options.samples, interval)
        time.sleep(interval / 1000 + 1)
        report(f"interval {interval} ms, idle", written, host.alerts)
    finally:
        host.stop()
    host = Host(build, interval, options.input)
    try:
        before, begin = host.processor_seconds(), time.monotonic()
        passes = host.passes()
        written, rate = write_busy(host, options.samples * 4, interval, options.rate)
        used, took = host.processor_seconds() - before, time.monotonic() - begin
        passes = host.passes() - passes
        time.sleep(interval / 1000 + 1)
        report(f"interval {interval} ms, {rate:.0f} lines a second", written, host.alerts)
        print(f"    processor {100 * used / took:.1f} % of one, {passes / took:.1f} passes a second")
    finally:
        host.stop()


def measure_rest(build, seconds, by_input):
    host = Host(build, 1000, by_input)
    try:
        time.sleep(2)
        before, switches, passes = host.processor_seconds(), host.switches(), host.passes()
        time.sleep(seconds)
        used = host.processor_seconds() - before
        print(f"idle for {seconds} s: {used:.2f} s of processor time, "
              f"{host.switches() - switches} context switches, {host.passes() - passes} passes")
    finally:
        host.stop()


def main():
    enter_namespace()
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default="build/release")
    parser.add_argument("--interval", type=int, action="append", help="milliseconds (default: 1000)")
    parser.add_argument("--samples", type=int, default=100)
    parser.add_argument("--rate", type=int, default=10000, help="lines a second under load")
    parser.add_argument("--idle", type=int, default=0, help="seconds to watch an idle daemon; 0: not")
    parser.add_argument("--input", action="store_true", help="the log is that of an input, not the system log")
    options = parser.parse_args()
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/var/log"], check=True)
    build = options.build.resolve()
    for interval in options.interval or [1000]:
        measure(build, interval, options)
    if options.idle:
        measure_rest(build, options.idle, options.input)


main()
