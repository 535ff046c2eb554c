"""NATS servers on this machine, and hosts that send their alerts there: for the tests of fleets."""
import contextlib
import ctypes
import itertools
import json
import math
import os
import shutil
import signal
import socket
import sqlite3
import subprocess
import time
import urllib.request

import lab

STREAM = "syslogmon-alerts"
OTHER_CLOCK = lab.build_root().parent / "tests" / "system" / "libother_clock.so"
SKIPPED = 77  # the exit status that the test runner takes for it


def server_program():
    """The program; without it there is nothing to test with."""
    found = shutil.which("nats-server", path=os.environ["PATH"] + ":/usr/sbin")
    if found is None:
        print("skipped: nats-server is missing; run tools/install-packages check")
        raise SystemExit(SKIPPED)
    return found


def free_ports(count):
    """Ports of this machine that nobody has at this moment."""
    sockets = [socket.socket() for _ in range(count)]
    for one in sockets:
        one.bind(("127.0.0.1", 0))
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


# Seconds after which a server that leads, and does not make the others well, is to give that up.
LEADS_FOR = 45


class Server:
    """One nats-server with a folder of its own."""

    def __init__(self, servers, number, port, route, monitor, address="127.0.0.1", under=()):
        self._servers = servers
        self.name = f"{servers.name}{number}"
        self.scheme = "nats"  # "tls": its clients are to ask for encryption
        self.address = address
        self.port = port
        self.route = route
        self.monitor = monitor
        self._under = under
        self.folder = servers.lab.folder / f"nats-{self.name}"
        self.child = None
        self.is_stopped = False

    @property
    def url(self):
        return f"{self.scheme}://{self.address}:{self.port}"

    def configure(self, routes):
        """`routes`: where it finds the others, HOST:PORT of each."""
        self.folder.mkdir()
        listen = "127.0.0.1" if self.address == "127.0.0.1" else "0.0.0.0"
        cluster = ""
        if routes:
            listed = ", ".join(f"nats://{route}" for route in routes)
            cluster = f"""cluster {{ name: fleet, listen: "{listen}:{self.route}", routes: [{listed}],
                          no_advertise: true }}"""
        (self.folder / "nats.conf").write_text(f"""
server_name: {self.name}
listen: "{listen}:{self.port}"
http: "{listen}:{self.monitor}"
max_payload: 1MB
jetstream {{ store_dir: "{self.folder}/data" }}
{cluster}
{self._servers.extra}
""")

    def start(self):
        self.child = self._servers.lab.spawn(f"nats-{self.name}",
                                             [*self._under, server_program(), "-c", self.folder / "nats.conf"])

    def kill(self):
        self.resume()
        self.child.kill()

    def stop(self):
        """It stands still, with its connections open."""
        self.child.signal(signal.SIGSTOP)
        self.is_stopped = True

    def resume(self):
        if self.is_stopped:
            self.child.signal(signal.SIGCONT)
        self.is_stopped = False

    def wipe(self):
        """Its disk is lost. Only of one that does not run."""
        shutil.rmtree(self.folder / "data", ignore_errors=True)

    def is_healthy(self):
        """It runs, and knows what the cluster has."""
        only = "?js-server-only=true" if self._servers.replicas > 1 else ""
        return self.ask("/healthz" + only).get("status") == "ok"

    def streams(self, more=""):
        """All that it has, by name."""
        found = self.ask("/jsz?streams=true&config=true" + more)
        return {stream["name"]: stream for account in found.get("account_details", [])
                for stream in account.get("stream_detail", [])}

    def ask(self, path):
        try:
            with urllib.request.urlopen(f"http://{self.address}:{self.monitor}{path}", timeout=2) as answer:
                return json.load(answer)
        except (OSError, ValueError):
            return {}


class Servers:
    """One server, or a cluster of them."""

    def __init__(self, the_lab, count=1, extra="", name="n"):
        self.lab = the_lab
        self.name = name
        self.extra = extra
        self.all = self.make(count)

    def make(self, count):
        ports = free_ports(3 * count)
        made = [Server(self, i, *ports[3 * i:3 * i + 3]) for i in range(count)]
        for server in made:
            server.configure([f"127.0.0.1:{other.route}" for other in made] if count > 1 else [])
        return made

    def start(self):
        for server in self.all:
            server.start()
        self.wait_healthy()

    def lose(self, server, wiped):
        """Kills a server, and waits until all are well again: two disks of three that are lost at once are a majority. Its own
        disk is lost if that is wanted and it can be done without. Returns whether it was."""
        server.kill()
        is_lost = wiped and self.can_do_without(server, lab.PATIENCE)
        if is_lost:
            server.wipe()
        server.start()
        self.wait_healthy()
        return is_lost

    def can_do_without(self, server, seconds):
        """Will the others, within this time, have all that any of them has, and one of them lead? One that comes back without
        a disk gives its voice to anybody: it would make one lead that is behind, and what that lacks would be gone."""
        others = [other for other in self.all if other is not server]
        had = {}
        for other in others:
            for name, stream in other.streams().items():
                had[name] = max(had.get(name, 0), stream["state"]["last_seq"])

        def agree():
            return all(name in streams and streams[name]["state"]["last_seq"] >= last
                       and streams[name]["cluster"].get("leader") in names
                       for streams in [other.streams() for other in others] for name, last in had.items())
        names = {other.name for other in others}
        until = time.monotonic() + seconds
        while not agree():
            if time.monotonic() > until:
                print(f"the others do not have the same without {server.name}: {self.account()}")
                return False
            time.sleep(0.01)
        return True

    def wait_healthy(self):
        """Until another one of them may be lost: as long as those that are behind come nearer, however slow the machine is and
        whatever is sent meanwhile. That takes a while when two were wiped one soon after the other: the first of them, should
        it lead now, has nothing to give the second until it writes a snapshot. It does so for what the cluster has each
        minute, and of a stream that is at rest for longer than can be waited for. Now and then one is left without some
        messages, whoever leads, and numbers those that come otherwise than the two others, while it is well by its own words:
        each is renewed once at most. How far readers are comes even later, and is not waited for: the collector's store knows it."""
        led_since = moved_at = time.monotonic()
        fewest = math.inf
        has_led_anew = False
        renewed = set()
        while (missing := self.missing()) > 0 or not self.are_healthy():
            now = time.monotonic()
            if missing < fewest:
                fewest, moved_at = missing, now
            if now - moved_at > 4 * lab.PATIENCE:
                raise AssertionError(f"the servers are not well, and do not get on: {self.account()}")
            if now - led_since > LEADS_FOR:
                print(f"not well yet: {self.account()}")
                one = self.odd_one()
                stands = has_led_anew and now - moved_at > LEADS_FOR
                if stands and one is not None and one not in renewed:
                    self.renew(one)
                    renewed.add(one)
                    fewest, moved_at = math.inf, now
                else:
                    self.change_leaders()
                    has_led_anew = True
                led_since = now
            time.sleep(0.01)

    def odd_one(self):
        """The only one that has not what the others have, if all are well and another one leads; or nothing. Of two, it is
        the one that has less. One that counts otherwise than two others may have more."""
        had = {server: server.streams() for server in self.all}
        odd = set()
        for name in set().union(*had.values()):
            last = {server: streams[name]["state"]["last_seq"] for server, streams in had.items() if name in streams}
            numbers = list(last.values())
            wanted = max(numbers, key=lambda number: (numbers.count(number), number))
            odd |= {server for server in self.all if last.get(server) != wanted}
        if len(odd) != 1 or not self.are_healthy():
            return None
        one = odd.pop()
        return None if any(stream["cluster"].get("leader") == one.name for stream in had[one].values()) else one

    def renew(self, server):
        """As an administrator does: the others have all of it."""
        print(f"{server.name} is given an empty disk")
        server.kill()
        if not self.can_do_without(server, 4 * lab.PATIENCE):
            raise AssertionError(f"{server.name} has something that the others need: {self.account()}")
        server.wipe()
        server.start()

    def account(self):
        """Of each server: whether it is well, and the last number and the leader of each stream that it has."""
        return {server.name: (server.is_healthy(), {name: (stream["state"]["last_seq"], stream["cluster"].get("leader"))
                                                    for name, stream in server.streams().items()}) for server in self.all}

    def change_leaders(self):
        """As an administrator does, so that one that has all of it gives it to those that have not."""
        for server in self.all:
            try:
                client = Stranger(server)
            except OSError:
                continue
            for name, stream in server.streams().items():
                if stream["cluster"].get("leader") == server.name:
                    print(f"the stream {name} is to be led by another one than {server.name}")
                    client.publish(f"$JS.API.STREAM.LEADER.STEPDOWN.{name}", "")
            client.close()

    def are_healthy(self):
        return all(server.is_healthy() for server in self.all)

    def missing(self):
        """How many messages those that are behind lack of what is kept on all of them, and of what one has now."""
        wanted = {}
        for server in self.all:
            for name, stream in server.streams().items():
                if stream["config"]["num_replicas"] == self.replicas:
                    wanted[name] = max(wanted.get(name, 0), stream["state"]["last_seq"])
        had = [server.streams() for server in self.all]
        return sum(max(0, last - (streams[name]["state"]["last_seq"] if name in streams else 0))
                   for name, last in wanted.items() for streams in had)

    @property
    def urls(self):
        return ",".join(server.url for server in self.all)

    @property
    def replicas(self):
        return len(self.all)

    def stream(self, name=STREAM):
        """What the first server that answers tells of a stream; nothing while there is none."""
        for server in self.all:
            if found := server.streams().get(name):
                return found
        return {}

    def messages(self, name=STREAM):
        """How many the stream has had."""
        return self.stream(name).get("state", {}).get("last_seq", 0)


# ---- servers with cables between them ----

CLONE_NEWNET = 0x40000000


def enter_network():
    """Gives this program, and all that it starts from here on, a network of its own. Returns whether that can be."""
    if ctypes.CDLL(None).unshare(CLONE_NEWNET) != 0:
        return False
    _ip("link", "set", "lo", "up")
    return True


def main_in_a_network():
    """The end of a test program that cuts the servers off from each other."""
    server_program()
    if not enter_network():
        print("skipped: no network of its own can be made here")
        raise SystemExit(SKIPPED)
    lab.main()


def _ip(*words, inside=None):
    within = [] if inside is None else ["nsenter", f"--net=/proc/{inside.pid}/ns/net", "--"]
    subprocess.run([*within, "ip", *map(str, words)], check=True)


class Cable:
    """Between two networks, each with its address: 10.77.NUMBER.1 and .2."""

    def __init__(self, number, one, other):
        self._one = one
        self._name = f"cable{number}"
        _ip("link", "add", self._name, "type", "veth", "peer", "name", f"{self._name}b")
        for end, (name, inside) in enumerate(((self._name, one), (f"{self._name}b", other)), 1):
            if inside is not None:
                _ip("link", "set", name, "netns", inside.pid)
            _ip("address", "add", f"10.77.{number}.{end}/24", "dev", name, inside=inside)
            _ip("link", "set", name, "up", inside=inside)

    def pull(self):
        _ip("link", "set", self._name, "down", inside=self._one)

    def plug(self):
        _ip("link", "set", self._name, "up", inside=self._one)


class CabledServers(Servers):
    """Each in a network of its own, with a cable to each of the others and one to the hosts. After enter_network()."""

    def make(self, count):
        # The networks outlive the servers.
        networks = [self.lab.spawn(f"network{i}", ["unshare", "--net", "sleep", "infinity"]) for i in range(count)]
        for network in networks:
            self.lab.wait_until("the network is there", lambda: self._has_own(network))
            _ip("link", "set", "lo", "up", inside=network)
        for number, network in enumerate(networks):
            Cable(number, None, network)
        made = [Server(self, i, 4222, 6222, 8222, f"10.77.{i}.2",
                       ["nsenter", f"--net=/proc/{networks[i].pid}/ns/net", "--"]) for i in range(count)]
        routes = [[] for _ in range(count)]
        self._cables = [[] for _ in range(count)]
        for number, (i, j) in enumerate(itertools.combinations(range(count), 2), count):
            cable = Cable(number, networks[i], networks[j])
            for one, other, end in ((i, j, 2), (j, i, 1)):
                self._cables[one].append(cable)
                routes[one].append(f"10.77.{number}.{end}:6222")
        for server, others in zip(made, routes):
            server.configure(others)
        return made

    @staticmethod
    def _has_own(network):
        return os.readlink(f"/proc/{network.pid}/ns/net") != os.readlink("/proc/self/ns/net")

    def cut(self, server):
        """The others do not reach it any more, and it does not reach them; the hosts reach all of them."""
        for cable in self._cables[self.all.index(server)]:
            cable.pull()

    def heal(self, server):
        for cable in self._cables[self.all.index(server)]:
            cable.plug()


class Host:
    """An agent with a store of its own, whose log is this test's: /var/log is one for all of a test, so each host
    follows a file of its own instead of the system log."""

    def __init__(self, number, servers, **options):
        self.lab = lab.Lab()
        self.number = number
        self.log = self.lab.root / "app.log"
        self.log.write_text(lab.stamped("the log begins") + "\n")
        self.written = 0
        self.daemon = self.lab.daemon
        self.lab.watch_numbered_lines()
        self.lab.command("set", "customer-file", self.log)
        self.lab.command("set", "trigger-interval", 50)
        self.add_sink(servers, **options)

    def add_sink(self, servers, **options):
        words = [f"{name.replace('_', '-')}={value}" for name, value in options.items()]
        self.lab.command("sink", "add", "nats", "fleet", f"servers={servers.urls}", "timeout=2", "look=2", *words)

    def report(self, count):
        """Writes numbered lines, which the monitor finds in its own time."""
        lab.append(self.log, *(lab.stamped(lab.numbered(n)) for n in range(self.written, self.written + count)))
        self.written += count

    def ledger(self):
        """(key, message) of each alert, in the order of the store."""
        return [(alert["key"], alert["message"]) for alert in self.lab.alerts()]

    def uuid(self):
        return sqlite(self.lab, "SELECT uuid FROM store")[0][0]

    def sink(self):
        return self.lab.json("sink", "show", "fleet")["sink"]


class Member:
    """A host that belongs to groups, with a log of its own and no sink."""

    def __init__(self, servers, groups, **options):
        self.lab = lab.Lab()
        self._servers = servers
        options = {"timeout": 2, "every": 1, **options}
        self._words = [f"{name.replace('_', '-')}={value}" for name, value in options.items()]
        self.groups = groups
        self.log = self.lab.root / "app.log"
        self.log.write_text(lab.stamped("the log begins") + "\n")
        self.daemon = self.lab.daemon
        self.lab.watch_numbered_lines()
        self.lab.command("set", "customer-file", self.log)
        self.join(groups)

    def join(self, groups):
        self.lab.command("fleet", "join", f"groups={groups}", f"servers={self._servers.urls}", *self._words)

    def join_by_sink(self, groups):
        """Without servers of its own: those of the host's sink."""
        self.lab.command("fleet", "join", f"groups={groups}", *self._words)

    def events(self):
        return sorted(f"{event['source']} {event['id']}" for event in self.lab.json("event", "list")["events"])

    def sources_key(self):
        """The registry key that has a key for each source."""
        return self.lab.event_key("EACH", 1).rsplit("\\EACH", 1)[0]

    def uuid(self):
        return sqlite(self.lab, "SELECT uuid FROM store")[0][0]


class Accounts:
    """Those of the example, and the passwords that they are given by."""

    def __init__(self, secrets):
        self.secrets = secrets
        self.secrets.mkdir()

    def account(self, name):
        """The options of a sink or a member by which it is this one."""
        path = self.secrets / name
        path.touch(0o600)
        path.write_text(self.password(name))
        return {"user": name, "password_file": path}

    @staticmethod
    def password(name):
        return f"the password of {name}"

    def give(self, servers, *hosts):
        """Makes the servers, which are not started yet, know them: the collector's UUID, then NAME=UUID[:GROUPS] of hosts."""
        folder = servers.all[0].folder
        (folder / "accounts.conf").write_text(subprocess.run(
            [lab.SOURCE / "examples" / "fleet" / "accounts", self.secrets, *hosts],
            check=True, capture_output=True, text=True).stdout)
        with open(folder / "nats.conf", "a") as configuration:
            configuration.write('include "accounts.conf"\n')


class Stranger:
    """A client that says to a server what it likes, and hears what it may not."""

    def __init__(self, server, user="", password=""):
        self._socket = socket.create_connection((server.address, server.port), timeout=10)
        self._lines = self._socket.makefile("rb")
        self._lines.readline()  # who the server is
        options = {"user": user, "pass": password, "verbose": False, "headers": True}
        self._socket.sendall(f"CONNECT {json.dumps(options)}\r\n".encode())

    def refusals(self, line):
        """What the server says to this, up to its answer to a question behind it."""
        self._socket.sendall(line.encode() + b"\r\nPING\r\n")
        heard = []
        while (said := self._lines.readline().strip()) and said != b"PONG":
            heard += [said.decode()] if said.startswith(b"-ERR") else []
        return heard

    def publish(self, subject, text="{}"):
        return self.refusals(f"PUB {subject} {len(text.encode())}\r\n{text}")

    def request(self, subject, answers_to, text):
        return self.refusals(f"PUB {subject} {answers_to} {len(text.encode())}\r\n{text}")

    def publish_with_header(self, subject, header):
        head = f"NATS/1.0\r\n{header}\r\n\r\n"
        return self.refusals(f"HPUB {subject} {len(head)} {len(head) + 2}\r\n{head}{{}}")

    def flood(self, subject, text, messages):
        """So many of them as fast as the server takes them. Returns when it has."""
        one = f"PUB {subject} {len(text.encode())}\r\n{text}"
        many = 1000 * f"{one}\r\n".encode()
        for _ in range(messages // 1000 - 1):
            self._socket.sendall(many)
        return self.refusals("\r\n".join([one] * 1000))

    def subscribe(self, subject):
        return self.refusals(f"SUB {subject} 1")

    def publish_behind(self, subject, after, text):
        """As a host sends an alert behind the one of that number."""
        head = f"NATS/1.0\r\nSyslogmon-After: {after}\r\n\r\n"
        size = len(head) + len(text.encode())
        return self.refusals(f"HPUB {subject} {len(head)} {size}\r\n{head}{text}")

    def hear(self, count):
        """The texts of so many messages of what it has subscribed to."""
        heard = []
        while len(heard) < count:
            words = self._lines.readline().split()
            if words[0] in (b"MSG", b"HMSG"):
                head = int(words[-2]) if words[0] == b"HMSG" else 0
                heard.append(self._lines.read(int(words[-1]) + 2)[head:-2].decode())
            elif words[0] == b"PING":
                self._socket.sendall(b"PONG\r\n")
        return heard

    def take_and_confirm(self, subject, reader, count):
        """Has so many messages delivered to itself in the name of a reader, and confirms them."""
        self.subscribe(subject)
        question = json.dumps({"batch": count, "expires": 60_000_000_000})
        self._socket.sendall(f"PUB {reader} {subject} {len(question)}\r\n{question}\r\n".encode())
        for _ in range(count):
            while not (words := self._lines.readline().split())[0] in (b"MSG", b"HMSG"):
                if words[0] == b"PING":
                    self._socket.sendall(b"PONG\r\n")
            self._lines.read(int(words[-1]) + 2)
            self._socket.sendall(b"PUB " + words[3] + b" 4\r\n+ACK\r\n")
        return self.refusals("PING")

    def close(self):
        self._lines.close()
        self._socket.close()


def rows_of(store, statement):
    """Rows of a store, read beside the agent."""
    with contextlib.closing(sqlite3.connect(f"file:{store}?mode=ro", uri=True, timeout=30)) as database:
        return database.execute(statement).fetchall()


def sqlite(the_lab, statement):
    return rows_of(the_lab.root / "state" / "agent.db", statement)


class Centre:
    """The host that collects the alerts of all."""

    def __init__(self, servers, **options):
        self.lab = lab.Lab()
        self.daemon = self.lab.daemon
        self.lab.command("sink", "limit", 100_000_000)
        words = [f"{name.replace('_', '-')}={value}" for name, value in options.items()]
        self.lab.command("collect", f"servers={servers.urls}", f"replicas={servers.replicas}", "timeout=2", *words)

    def uuid(self):
        return sqlite(self.lab, "SELECT uuid FROM store")[0][0]

    def ledger(self, host):
        """What it has of a host, in its own order."""
        rows = sqlite(self.lab, "SELECT origin, message FROM alert WHERE origin <> '' ORDER BY id")
        own = {key for key, _ in host.ledger()}
        return [(key, message) for key, message in rows if key in own]

    def forget(self, host, number):
        """What it has is that of one to which the servers have delivered what is behind this alert, and not the alert."""
        with contextlib.closing(sqlite3.connect(self.lab.root / "state" / "agent.db", timeout=30)) as database, database:
            database.execute("DELETE FROM alert WHERE origin = ?", (host.ledger()[number - 1][0],))
            database.execute("INSERT INTO fleet_hole SELECT uuid, ?1, ?1, stored_ms, stored_ms, heard_ms, heard_ms, 0, 0"
                             " FROM fleet_host WHERE uuid = ?2", (number, host.uuid()))

    def collected(self):
        return sqlite(self.lab, "SELECT count(*) FROM alert WHERE origin <> ''")[0][0]

    def collect(self):
        return self.lab.json("collect")

    def hosts(self, clock_ahead=0):
        """What each host has said of itself, by its UUID; as shown where the clock is so many seconds ahead."""
        argv = [lab.build_root() / "bin" / "syslogmon", "--root", self.lab.root, "--json", "fleet", "status"]
        shown = subprocess.run(argv, check=True, capture_output=True, text=True, timeout=lab.PATIENCE,
                               env={**os.environ, "LD_PRELOAD": OTHER_CLOCK, "OTHER_CLOCK": str(clock_ahead)}).stdout
        return {row["uuid"]: row for row in json.loads(shown)["hosts"]}
