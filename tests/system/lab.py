"""A private host for system tests: the real daemon and command, real syslog daemons, real logrotate.

A test program calls main(), which starts it again inside a mount namespace of its own. There, /var/log
is an empty tmpfs, so "/var/log/messages" can be written, rotated and removed without touching the
machine's. Everything else a test makes lies on another tmpfs, which is gone with the namespace. Each
process that a test starts is killed when the test ends, however it ends.

Environment:
    SYSLOGMON_BUILD   build folder, with the programs in root/bin and the libraries in root/lib
    SYSLOGMON_TOOLS   folder into which tools/fetch-debs unpacks the syslog daemons and logrotate
    SYSLOGMON_SEED    repeats the random choices of an earlier run; a test that fails prints its seed

The oracle of most tests: numbered lines, each written once, and an event that reports each hit. Then
the numbers that were reported must be the numbers that were written.
"""
import collections
import contextlib
import fcntl
import json
import os
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import time
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
VAR_LOG = Path("/var/log")
MESSAGES = VAR_LOG / "messages"

# The packages of the programs that tests run as peers.
RSYSLOG = ("rsyslog", "libestr0", "libfastjson4")
INETUTILS = ("inetutils-syslogd",)
LOGROTATE = ("logrotate", "libpopt0")

# Seconds after which something that should have happened is taken not to happen. Long enough for a
# sanitizer build on a machine that does other work; nothing ever sleeps this long when all is well. Shorter
# than the cycle of 300 s, so what happens within it was not brought about by that. The thread sanitizer's builds get more.
PATIENCE = int(os.environ.get("SYSLOGMON_TEST_PATIENCE", 60))

# Milliseconds between two looks at a log that is being written, unless set otherwise.
USUAL_INTERVAL = 1000

# Of all random choices of a run.
SEED = os.environ.setdefault("SYSLOGMON_SEED", str(time.time_ns() % 1_000_000))

# Of the alerts that the monitor makes about itself.
OWN_SOURCE = "SYSLOGMON"

# Below HKEY_LOCAL_MACHINE.
MONITOR_KEY = r"SOFTWARE\KORBIN\TARSKVOSKAR\REPORTTABLE\EVENTLOG"

_INSIDE = "SYSLOGMON_LAB_FOLDER"


# ---- starting a test program ----


def main(*packages):
    """Runs the tests of the calling program in a private namespace and ends the program."""
    enter(*packages)
    program = unittest.main(module="__main__", verbosity=2, exit=False)
    leave()
    sys.exit(0 if program.result.wasSuccessful() else 1)


def enter(*packages, disk=None):
    """Starts the calling program again in a private namespace, where it returns. /var/log and all that is
    made of a lab lie on tmpfs, or on the disk below the given folder."""
    os.umask(0o022)
    if _INSIDE not in os.environ:
        _enter_namespace(packages)
    # A host's journal would be watched where it has no system log.
    if Path("/run/log").is_dir():
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run/log"], check=True)
    for place in (Path(os.environ[_INSIDE]), VAR_LOG):
        if disk is None:
            subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", place], check=True)
        else:
            (disk / place.name).mkdir(parents=True)
            subprocess.run(["mount", "--bind", disk / place.name, place], check=True)


def leave():
    folder = Path(os.environ[_INSIDE])
    subprocess.run(["umount", "--lazy", folder], check=True)
    folder.rmdir()


def _enter_namespace(packages):
    for name in ("bin/syslogmond", "bin/syslogmon", "lib/vkevmon.dll"):
        if not (build_root() / name).exists():
            sys.exit(f"{build_root() / name} is missing: build the target agent first")
    if packages:
        subprocess.run([SOURCE / "tools" / "fetch-debs", tools(), *packages], check=True)
    folder = tempfile.mkdtemp(prefix="syslogmon-")
    unshare = _working_unshare(folder)
    if unshare is None:
        os.rmdir(folder)
        sys.exit("needs root or user namespaces")
    os.environ.update({_INSIDE: folder, "LC_ALL": "C"})
    os.execvp(unshare[0], [*unshare, sys.executable, *sys.argv])


def _working_unshare(folder):
    for unshare in (["unshare", "--mount"], ["unshare", "--mount", "--map-root-user"]):
        trial = [*unshare, "mount", "-t", "tmpfs", "tmpfs", folder]
        if subprocess.run(trial, capture_output=True).returncode == 0:
            return unshare
    return None


def _folder_of(variable):
    if variable not in os.environ:
        sys.exit(f"set {variable}: see {Path(__file__).name}")
    return Path(os.environ[variable]).resolve()


def build_root():
    return _folder_of("SYSLOGMON_BUILD") / "root"


def tools():
    return _folder_of("SYSLOGMON_TOOLS")


def tool(name):
    return tools() / "usr" / "sbin" / name


def tool_libraries():
    return tools() / "usr" / "lib" / f"{os.uname().machine}-linux-gnu"


def randomness(purpose):
    """A source of random choices of its own, which SYSLOGMON_SEED repeats."""
    return random.Random(f"{SEED} {purpose}")


# ---- log lines ----


def stamped(text, tag="test"):
    """A line as a syslog daemon writes it, without its line end."""
    return f"{time.strftime('%b %e %H:%M:%S')} host {tag}: {text}"


# The dot behind the number shows that none of its digits is missing.
NUMBERED = "numbered"
NUMBER = re.compile(rb"numbered n=(\d+)\.")


def numbered(number):
    """The text of a numbered line. The lengths differ, so that block edges fall everywhere."""
    return f"{NUMBERED} n={number}. " + "x" * (number * 7 % 97)


def numbers_in(path):
    """The numbers of a log's numbered lines, in file order."""
    return [int(n) for n in NUMBER.findall(Path(path).read_bytes())]


def content_of(path):
    """All bytes of a file; none when it is not there (yet)."""
    try:
        return Path(path).read_bytes()
    except FileNotFoundError:
        return b""


def last_number_in(path):
    """The number of the last whole numbered line, or -1."""
    try:
        with open(path, "rb") as log:
            log.seek(max(0, os.path.getsize(path) - 8192))
            found = NUMBER.findall(log.read())
    except FileNotFoundError:
        return -1
    return int(found[-1]) if found else -1


def ends_inside_a_line(path):
    with open(path, "rb") as log:
        size = log.seek(0, os.SEEK_END)
        if size == 0:
            return False
        log.seek(size - 1)
        return log.read(1) != b"\n"


def append(path, *lines, end="\n"):
    """Appends lines in one write, as a syslog daemon does."""
    data = "".join(line + end for line in lines).encode("utf-8", "surrogateescape")
    with open(path, "ab", buffering=0) as log:
        log.write(data)


def log_files():
    """The whole of /var/log: the numbers in each file, by name."""
    return {path.name: numbers_in(path) for path in VAR_LOG.iterdir()}


# ---- the host ----


class Lab:
    """One install root with its daemon, and an empty /var/log.

    The daemon looks at the files when the test asks for it; with `interval`, also when they change, at most
    once in so many milliseconds.
    """

    def __init__(self, interval=0):
        self.folder = Path(tempfile.mkdtemp(dir=os.environ[_INSIDE]))
        self.root = self.folder / "root"
        self.root.mkdir()
        (self.root / "lib").symlink_to(build_root() / "lib")
        for path in VAR_LOG.iterdir():
            remove(path)
        self.children = []
        self.daemon = Daemon(self)
        self.last_words = ""
        self._closing = contextlib.ExitStack()
        self.look_at_changes(interval)

    def look_at_changes(self, interval):
        self.command("set", "trigger-interval", interval)

    def on_close(self, action):
        self._closing.callback(action)

    def close(self):
        for child in self.children:
            child.kill()
        self._closing.close()
        self.last_words = self.words()
        shutil.rmtree(self.folder)

    def spawn(self, name, argv, **environment):
        """Starts a process in a process group of its own. It dies with the test program."""
        child = Child(self, name, argv, environment)
        self.children.append(child)
        return child

    def mount_tmpfs(self, folder, size):
        """Puts a disk of its own on a folder."""
        folder.mkdir(exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"mode=0755,size={size}", "tmpfs", folder],
                       check=True)
        self.on_close(lambda: subprocess.run(["umount", "--lazy", folder], check=True))

    # ---- the command ----

    def run(self, *words, timeout=2 * PATIENCE):
        """Runs the command and returns what came of it, whatever that is."""
        argv = [build_root() / "bin" / "syslogmon", "--root", self.root, *map(str, words)]
        return subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              errors="replace", timeout=timeout)

    def command(self, *words):
        """Runs the command, which must succeed, and returns its output."""
        done = self.run(*words)
        if done.returncode != 0:
            raise AssertionError(f"syslogmon {' '.join(map(str, words))} ended with "
                                 f"{done.returncode}: {done.stderr}")
        return done.stdout

    def json(self, *words):
        return json.loads(self.command("--json", *words))

    def status(self):
        done = self.run("--json", "status")
        return json.loads(done.stdout)

    def watch(self, source, event_id, *keywords, report_count=1, hours="all"):
        """Registers an event."""
        options = [part for keyword in keywords for part in ("--keyword", keyword)]
        self.command("event", "add", source, event_id, *options, "--report-count", report_count,
                     "--hours", hours)

    def watch_numbered_lines(self):
        """Registers the event that reports each numbered line. All reports are kept."""
        self.command("sink", "limit", 100_000_000)
        self.watch("EACH", 1, NUMBERED)

    def event_key(self, source, event_id):
        """The registry key with the values of an event."""
        return rf"{MONITOR_KEY}\APPLICATION\{source}\{event_id}\WATCHSETTING"

    def hits(self, source, event_id=1):
        return self.json("event", "show", source, event_id)["event"]["hits"]

    def alerts(self, source=None):
        """Of an event's source; None: of all events, without what the monitor tells about itself."""
        found = [json.loads(line) for line in self.command("--json", "alerts").splitlines()]
        return [alert for alert in found
                if alert["source"] == source or (source is None and alert["source"] != OWN_SOURCE)]

    def own_alerts(self, kind):
        """What the monitor tells about itself, of one kind: the messages."""
        return [alert["message"] for alert in self.alerts(OWN_SOURCE) if alert["labels"]["alarm"] == kind]

    def messages(self, source=None):
        """The lines that were reported, in the order of the reports."""
        return [alert["message"] for alert in self.alerts(source)]

    def texts(self, source=None):
        """As messages(), without time stamp, host and tag."""
        return [message.split(": ", 1)[1] for message in self.messages(source)]

    def reported_numbers(self, source="EACH", parts=0):
        """The numbers of the reported lines, in the order of the reports. No more parts of lines than
        so many may have been reported."""
        numbers = []
        for message in self.messages(source):
            found = NUMBER.search(message.encode())
            parts -= not found
            if parts < 0:
                raise AssertionError(f"a part of a line was reported: {message!r}")
            numbers += [int(found[1])] if found else []
        return numbers

    def tell_a_late_look(self):
        """Tells in the daemon's place that its last look at all files is long ago, until it tells anew: every ten seconds."""
        status = self.root / "run" / "status.json"
        told = json.loads(status.read_text())
        told["last_full_pass"]["began_boot_ns"] -= 10**15
        other = status.with_suffix(".other")
        other.write_text(json.dumps(told))
        other.replace(status)

    # ---- waiting ----

    def wait_until(self, what, condition, seconds=PATIENCE):
        """Waits until the condition holds, and returns what it gave. Shows the logs if it never does."""
        end = time.monotonic() + seconds
        while True:
            result = condition()
            if result:
                return result
            if time.monotonic() > end:
                raise AssertionError(f"not within {seconds} s: {what}\n{self.words()}")
            time.sleep(0.005)

    def trace(self):
        """The text of the trace log."""
        path = self.root / "log" / "trace.log"
        return path.read_text(errors="replace") if path.exists() else ""

    def wait_for_trace(self, text, seconds=PATIENCE, since=0):
        """Waits for a record with this text behind the first `since` characters of the trace log."""
        self.wait_until(f"a trace record with {text!r}", lambda: text in self.trace()[since:], seconds)

    def words(self):
        """The ends of all that the processes had to say."""
        parts = [("trace log", self.trace())]
        parts += [(child.name, child.said()) for child in self.children]
        text = ""
        for name, said in parts:
            lines = said.splitlines()[-25:]
            if lines:
                text += f"--- {name}, its last {len(lines)} lines\n" + "\n".join(lines) + "\n"
        return text


def remove(path):
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink()


class Child:
    """A process of the test's own."""

    def __init__(self, lab, name, argv, environment):
        self.name = name
        self.output = lab.folder / f"{name}.{len(lab.children)}.out"
        # setpriv replaces itself by the program, so its process ID is the program's.
        mortal = ["setpriv", "--pdeathsig", "KILL", "--", *map(str, argv)]
        with open(self.output, "ab") as output:
            self.process = subprocess.Popen(mortal, stdin=subprocess.DEVNULL, stdout=output,
                                            stderr=output, process_group=0,
                                            env={**os.environ, **environment})
        self.pid = self.process.pid

    def said(self):
        return self.output.read_text(errors="replace") if self.output.exists() else ""

    def is_running(self):
        return self.process.poll() is None

    def signal(self, number):
        self.process.send_signal(number)

    def wait(self, seconds=PATIENCE):
        """Waits for its end and returns the exit status, negative for the signal that ended it."""
        return self.process.wait(seconds)

    def kill(self):
        if self.is_running():
            self.process.kill()
            self.process.wait()


class Daemon:
    """syslogmond, in one life after another."""

    def __init__(self, lab):
        self._lab = lab
        self.child = None

    @property
    def pid(self):
        return self.child.pid

    def launch(self, *arguments, under=()):
        """Starts it and returns at once."""
        argv = [*under, build_root() / "bin" / "syslogmond", "--root", self._lab.root, *arguments]
        self.child = self._lab.spawn("syslogmond", argv)
        return self.child

    def launch_on_fresh_host(self):
        """The same, of a program that was installed there: it was told of no root, and sets the host up."""
        program = self._lab.root / "bin" / "syslogmond"
        if not program.exists():
            program.parent.mkdir()
            shutil.copy(build_root() / "bin" / "syslogmond", program)
        self.child = self._lab.spawn("syslogmond", [program])

    def start(self, *arguments, under=()):
        """Starts it and waits until its first pass is stored."""
        self.launch(*arguments, under=under)
        self.wait_at_rest()

    def wait_at_rest(self, passes=1):
        """Waits until this life has stored so many passes."""
        def has_stored():
            self.assert_is_running()
            return self.passes() >= passes
        self._lab.wait_until(f"{passes} passes are stored", has_stored)

    def assert_is_running(self):
        if not self.child.is_running():
            raise AssertionError(f"the daemon ended with {self.child.wait()}\n"
                                 f"{self._lab.words()}")

    def passes(self):
        """How many passes this life has stored."""
        status = self.published()
        return status["last_pass"]["number"] if status.get("pid") == self.pid else 0

    def published(self):
        """What the daemon tells about itself: the command reads the same file."""
        try:
            return json.loads((self._lab.root / "run" / "status.json").read_text())
        except FileNotFoundError:
            return {}

    def stop(self):
        """Stops it in order. It must say that all is well."""
        self.child.signal(signal.SIGTERM)
        status = self.child.wait()
        if status != 0:
            raise AssertionError(f"the daemon ended with {status}\n{self._lab.words()}")

    def kill(self):
        """Ends it as a power cut would."""
        self.child.signal(signal.SIGKILL)
        self.child.wait()

    def wake(self):
        """Asks for a scan and does not wait for it."""
        self.child.signal(signal.SIGUSR1)

    def look(self):
        """Makes a pass over all files and waits for its end, also when it cannot reach all lines.

        One that was under way already may have left behind what was written before the call: the pass that is waited for
        has begun since, whatever its number is.
        """
        asked_ns = time.clock_gettime_ns(time.CLOCK_BOOTTIME)
        self.wake()

        def has_looked():
            self.assert_is_running()
            status = self.published()
            return status.get("pid") == self.pid and status["last_full_pass"]["began_boot_ns"] > asked_ns
        self._lab.wait_until("a pass that began since is stored", has_looked)

    def scan(self):
        """Returns when everything that was written before has been checked."""
        self._lab.command("scan", "--wait", "--timeout", PATIENCE)


# ---- the peers ----


# Bytes of a block of a daemon that writes in blocks.
BLOCK = 4096


class Rsyslog:
    """A real rsyslogd that writes numbered lines into /var/log/messages.

    in_blocks: it writes in blocks of 4 KiB, as under load: the file ends inside a line until the next
    block, and the last block comes when it is told to reopen the file. Otherwise it writes whole lines
    as they come. pace: microseconds between two batches of 64 lines; 0 is as fast as it can.
    """

    def __init__(self, lab, in_blocks=False, asynchronous=False, pace=0, extra=""):
        self._lab = lab
        self._socket = None
        self._probes = 0
        self.written = 0  # numbered lines so far
        self.path = lab.folder / "rsyslog.socket"
        self.pid_file = lab.folder / "rsyslogd.pid"
        self._configuration = lab.folder / "rsyslog.conf"
        # Otherwise a batch fits into the buffer, and is written in one piece.
        flush = f'ioBufferSize="{BLOCK}" flushOnTXEnd="off"' if in_blocks else 'ioBufferSize="64k"'
        flush += ' asyncWriting="on" flushInterval="10"' if asynchronous else ""
        self._configuration.write_text(f"""
global(processInternalMessages="on")
module(load="imuxsock" SysSock.Name="{self.path}" SysSock.RateLimit.Interval="0")
main_queue(queue.type="LinkedList" queue.size="1000000" queue.dequeueBatchSize="64"
           queue.dequeueSlowdown="{pace}")
syslog.* action(type="omfile" file="{lab.folder / 'rsyslogd.log'}")
& stop
{extra}
*.* action(type="omfile" file="{MESSAGES}" template="RSYSLOG_TraditionalFileFormat" {flush})
""")

    def start(self):
        """Starts it and waits until the first line is in the log."""
        argv = [tool("rsyslogd"), "-n", "-f", self._configuration, "-i", self.pid_file,
                "-M", tool_libraries() / "rsyslog"]
        self.child = self._lab.spawn("rsyslogd", argv, LD_LIBRARY_PATH=str(tool_libraries()))
        self._lab.wait_until("rsyslogd has made its socket", self.path.exists)
        self._lab.wait_until("rsyslogd has its process ID written", self.pid_file.exists)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.connect(str(self.path))
        self._lab.on_close(self._socket.close)
        self.send("the log begins")
        self.write_out(lambda: b"begins\n" in content_of(MESSAGES))

    def send(self, text, tag="test"):
        stamp = time.strftime("%b %e %H:%M:%S")
        self._socket.send(f"<13>{stamp} {tag}: {text}".encode())

    def send_numbers(self, count):
        """Sends the next numbered lines; rsyslogd writes them in its own time."""
        for _ in range(count):
            self.send(numbered(self.written))
            self.written += 1

    def write_numbers(self, count):
        """Writes the next numbered lines and returns when they are in the log."""
        self.send_numbers(count)
        self.wait_written()

    def wait_written(self):
        last = self.written - 1
        self._lab.wait_until(f"line {last} is in the log", lambda: last_number_in(MESSAGES) == last)

    def reopen(self):
        """Makes it write out what it holds back and open its files anew."""
        self.child.signal(signal.SIGHUP)

    def wait_until_reopened(self):
        """Returns when it writes into the file that is in place now. Its first line is a probe then."""
        def probe_arrived():
            self._probes += 1
            self.send(f"probe {self._probes}.")
            time.sleep(0.01)
            return b"probe" in content_of(MESSAGES)
        self._lab.wait_until("rsyslogd writes the new file", probe_arrived)

    def write_out(self, is_complete):
        """Makes it write out what it holds back, again and again until the log is complete."""
        def look():
            self.reopen()
            time.sleep(0.1)
            return is_complete()
        self._lab.wait_until("rsyslogd has written everything", look)

    def finish(self):
        """Returns when everything that was sent is in the log, to the last line end."""
        self.write_out(lambda: last_number_in(MESSAGES) == self.written - 1)


class Syslogd:
    """A real syslogd of the kind that folds repeats: "last message repeated 3 times"."""

    def __init__(self, lab):
        self._lab = lab
        self._path = lab.folder / "syslogd.socket"
        self._configuration = lab.folder / "syslogd.conf"
        self._configuration.write_text(f"*.*\t{MESSAGES}\n")

    def start(self):
        argv = [tool("syslogd"), "--no-detach", "--no-klog", "--no-forward", "--mark=0",
                f"--rcfile={self._configuration}", f"--rcdir={self._lab.folder}/none",
                f"--socket={self._path}", f"--pidfile={self._lab.folder}/syslogd.pid"]
        self.child = self._lab.spawn("syslogd", argv)
        self._lab.wait_until("syslogd has made its socket", self._path.exists)
        self._lab.wait_until("syslogd has begun the log",
                             lambda: b": restart\n" in content_of(MESSAGES))
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.connect(str(self._path))
        self._lab.on_close(self._socket.close)

    def send(self, text, times=1):
        stamp = time.strftime("%b %e %H:%M:%S")
        for _ in range(times):
            self._socket.send(f"<13>{stamp} test: {text}".encode())

    def write(self, text, times=1):
        """Sends a line and returns when it has left its trace in the log: repeats may be held back."""
        before = MESSAGES.stat().st_size
        self.send(text, times)
        self._lab.wait_until(f"{text!r} is in the log", lambda: MESSAGES.stat().st_size > before)

    def wait_until_read(self):
        """Returns when it has read everything that was sent."""
        def unread():
            return struct.unpack("i", fcntl.ioctl(self._socket, termios.TIOCOUTQ, bytes(4)))[0]
        self._lab.wait_until("syslogd has read everything", lambda: unread() == 0)

    def reopen(self):
        """Makes it write out the repeats that it holds back and open its files anew."""
        self.wait_until_read()
        begun = content_of(MESSAGES).count(b": restart\n")
        self.child.signal(signal.SIGHUP)
        self._lab.wait_until("syslogd has begun anew",
                             lambda: content_of(MESSAGES).count(b": restart\n") > begun)


class NumberWriter:
    """Sends numbered lines to rsyslogd all the time."""

    def __init__(self, log, lines_per_second):
        self._log = log
        self._at_once = lines_per_second // 100
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def _run(self):
        while not self._stop.is_set():
            self._log.send_numbers(self._at_once)
            time.sleep(0.01)

    def stop(self):
        self._stop.set()
        self._thread.join()


class Logrotate:
    """Real logrotate over one log.

    before: a command that is run first of all. (A prerotate script would run when the older backups
    have been renamed already: then there is no messages.1, and the monitor takes the sequence of
    backups to end before it begins.) after: a command that is run when the log was renamed.
    """

    def __init__(self, lab, *directives, log=MESSAGES, before="", after=""):
        self._lab = lab
        self._state = lab.folder / f"{log.name}.rotation-state"
        self._configuration = lab.folder / f"{log.name}.logrotate"
        self._log = log
        self._scripts = ""
        if before:
            self._scripts += f"    firstaction\n        {before}\n    endscript\n"
        if after:
            self._scripts += f"    postrotate\n        {after}\n    endscript\n"
        self._directives = ("rotate 40", *directives)

    def rotate(self, *more, expect=0):
        """Rotates now, must end with the expected exit status, and returns what logrotate said."""
        directives = "".join(f"    {directive}\n" for directive in (*self._directives, *more))
        self._configuration.write_text(f"{self._log} {{\n{directives}{self._scripts}}}\n")
        argv = [tool("logrotate"), "--verbose", "--force", "--state", self._state,
                self._configuration]
        done = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              env={**os.environ, "LD_LIBRARY_PATH": str(tool_libraries())},
                              timeout=PATIENCE)
        if done.returncode != expect:
            raise AssertionError(f"logrotate ended with {done.returncode}: {done.stderr}")
        return done.stderr


# ---- test cases ----


class LabTest(unittest.TestCase):
    """A test with a lab of its own, which shows all logs when it fails."""

    maxDiff = 2000
    interval = 0  # of the lab

    def setUp(self):
        self.lab = Lab(self.interval)
        self.addCleanup(self.lab.close)
        self.daemon = self.lab.daemon

    def run(self, result=None):
        before = len(result.failures) + len(result.errors)
        super().run(result)
        if len(result.failures) + len(result.errors) > before:
            print(self.lab.last_words, f"SYSLOGMON_SEED={SEED}", sep="", file=sys.stderr)
        return result

    def assert_each_once(self, written, reported):
        """Every line that was written was reported once, and nothing else was."""
        times = collections.Counter(reported)
        wanted = set(written)
        missing = [n for n in written if n not in times]
        repeated = [n for n, count in times.items() if count > 1]
        foreign = [n for n in times if n not in wanted]
        if missing or repeated or foreign:
            self.fail(f"of {len(wanted)} lines, "
                      f"{len(missing)} were not reported {missing[:10]}, "
                      f"{len(repeated)} more than once {repeated[:10]}, "
                      f"{len(foreign)} were never written {foreign[:10]}")

    def assert_each_once_and_in_order(self, written, reported):
        self.assert_each_once(written, reported)
        self.assertEqual(list(written), reported, "each line was reported once, but not in order")
