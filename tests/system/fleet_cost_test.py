"""What a fleet costs: alerts a second through three servers and through one collector, and what memory agent, collector and
command take with many hosts. It prints what it has measured, and compares what must not grow. For the long check.

    SYSLOGMON_FLEET_HOSTS    hosts of which alerts and statuses come; 10000 unless set
    SYSLOGMON_FLEET_ALERTS   alerts that are sent for the rates; 40000 unless set
"""
import json
import os
import re
import socket
import time
import uuid

import fleet
import lab

HOSTS = int(os.environ.get("SYSLOGMON_FLEET_HOSTS", 10_000))
ALERTS = int(os.environ.get("SYSLOGMON_FLEET_ALERTS", 40_000))
SENDERS = 40
PATIENCE = 600

SIMULATOR = lab.build_root().parent / "tests" / "agent" / "sinks" / "simulated_hosts"


def kilobytes(pid, what):
    """VmRSS or VmHWM of a process."""
    with open(f"/proc/{pid}/status") as status:
        return int(re.search(rf"{what}:\s+(\d+) kB", status.read())[1])


class Publisher:
    """Says much to a server, and hears nothing but that it came."""

    def __init__(self, server):
        self._socket = socket.create_connection((server.address, server.port), timeout=60)
        self._lines = self._socket.makefile("rb")
        self._lines.readline()
        self._socket.sendall(b'CONNECT {"verbose":false,"headers":true}\r\n')

    def publish(self, subject, body, **headers):
        head = "NATS/1.0\r\n" + "".join(f"{name.replace('_', '-')}: {value}\r\n" for name, value in headers.items()) + "\r\n"
        self._socket.sendall(f"HPUB {subject} {len(head)} {len(head) + len(body)}\r\n{head}{body}\r\n".encode())

    def flush(self):
        self._socket.sendall(b"PING\r\n")
        for line in self._lines:
            if line.strip() == b"PONG":
                return
        raise EOFError("the server has ended")

    def close(self):
        self._lines.close()
        self._socket.close()


class Cost(lab.LabTest):
    def setUp(self):
        super().setUp()
        self.servers = fleet.Servers(self.lab, 3)
        self.servers.start()
        self.centre = fleet.Centre(self.servers)
        self.addCleanup(self.centre.lab.close)

    def wait_counted(self, count, wanted):
        """Seconds from a tenth to nine tenths of what is wanted, and how many that were."""
        marks = []
        for share in (0.1, 0.9):
            self.lab.wait_until(f"{wanted} come", lambda: count() >= share * wanted, PATIENCE)
            marks.append((time.monotonic(), count()))
        self.lab.wait_until(f"{wanted} come", lambda: count() >= wanted, PATIENCE)
        (began, first), (ended, last) = marks
        return (last - first) / (ended - began)

    def test_alerts_a_second(self):
        self.centre.daemon.start()
        self.lab.wait_until("the stream is there", lambda: self.servers.stream())
        self.centre.daemon.stop()
        each = ALERTS // SENDERS
        simulated = self.lab.spawn("simulated", [SIMULATOR, self.lab.folder / "sim", SENDERS, each, self.servers.urls])
        sent = self.wait_counted(self.servers.messages, each * SENDERS)
        simulated.kill()
        began = time.monotonic()
        self.centre.daemon.start()
        self.lab.wait_until("all are collected", lambda: self.centre.collected() >= each * SENDERS, PATIENCE)
        collected = each * SENDERS / (time.monotonic() - began)
        print(f"{each * SENDERS} alerts of {SENDERS} hosts: {sent:.0f} a second through three servers, "
              f"{collected:.0f} a second through one collector; {kilobytes(self.centre.daemon.pid, 'VmHWM')} KiB there at most")
        self.assertEqual(each * SENDERS, self.centre.collected())

    def publish_until_stored(self, publisher, uuids, status, wanted):
        """Two alerts and a status of each host. Servers on a busy machine can change their leader, and what nobody waits
        for an answer to is gone then; what they have is passed over by its id."""
        give_up = time.monotonic() + PATIENCE
        while self.servers.messages() < wanted:
            self.assertLess(time.monotonic(), give_up, f"{self.servers.messages()} of {wanted} are stored")
            for one in uuids:
                for alert in (1, 2):
                    publisher.publish(f"syslogmon.alerts.{one}", self.alert(one, alert), Nats_Msg_Id=f"{one}/{alert}",
                                      Syslogmon_After=alert - 1)
                publisher.publish(f"$KV.syslogmon-status.{one}", status)
            publisher.flush()
            waited = time.monotonic() + 10
            while self.servers.messages() < wanted and time.monotonic() < waited:
                time.sleep(0.05)

    def test_memory_with_many_hosts(self):
        self.centre.lab.json("fleet", "status")
        self.centre.daemon.start()
        member = fleet.Member(self.servers, "web", every=60)
        self.addCleanup(member.lab.close)
        member.lab.command("sink", "add", "nats", "fleet", f"servers={self.servers.urls}")
        member.daemon.start()
        self.lab.wait_until("it is there", lambda: len(self.centre.hosts()) == 1)
        before = [kilobytes(one.daemon.pid, "VmRSS") for one in (self.centre, member)]
        publisher = Publisher(self.servers.all[0])
        self.addCleanup(publisher.close)
        uuids = [str(uuid.UUID(int=(number * 2654435761 % 2**32 << 96) + number)) for number in range(1, HOSTS + 1)]
        status = json.dumps({"host": "simulated", "version": "1.0.0", "error": "", "local": [], "monitor": "", "every_s": 3600,
                             "groups": {"web": {"revision": 0, "newest": 0, "canary": False}}})
        for begin in range(0, HOSTS, 200):
            self.publish_until_stored(publisher, uuids[begin:begin + 200], status, 2 * min(begin + 200, HOSTS))
        self.lab.wait_until("all are collected", lambda: self.centre.collected() >= 2 * HOSTS, PATIENCE)
        self.assertEqual(HOSTS, len(self.centre.collect()["hosts"]))
        self.lab.wait_until("all statuses are there", lambda: len(self.centre.hosts()) == HOSTS + 1, PATIENCE)
        after = [kilobytes(one.daemon.pid, "VmRSS") for one in (self.centre, member)]
        began = time.monotonic()
        _, status, usage = os.wait4(os.posix_spawn("/bin/sh", ["sh", "-c", 'exec "$@" >/dev/null', "sh",
                                                    str(lab.build_root() / "bin" / "syslogmon"), "--root",
                                                    str(self.centre.lab.root), "fleet", "status"], os.environ), 0)
        took = time.monotonic() - began
        self.assertEqual(0, status)
        servers = [kilobytes(server.child.pid, "VmRSS") for server in self.servers.all]
        store = sum(path.stat().st_size for path in (self.centre.lab.root / "state").glob("agent.db*"))
        print(f"{HOSTS} hosts: the collector's daemon has {before[0]} KiB before and {after[0]} KiB after, its store {store} bytes; "
              f"an agent's {before[1]} and {after[1]} KiB; the servers {servers} KiB; "
              f"fleet status takes {took:.1f} s and {usage.ru_maxrss} KiB")
        # Hosts cost disk, not memory.
        self.assertLess(after[0] - before[0], 64 * 1024)
        self.assertLess(after[1] - before[1], 8 * 1024)

    @staticmethod
    def alert(host, number):
        return json.dumps({"key": f"{host}/{number}", "id": number, "time": "2026-11-22T10:00:00.000Z", "host": "simulated",
                           "log": "Application", "source": "SIMULATED", "event_id": "1", "count": 1,
                           "message": f"Nov 22 10:00:00 simulated test: number {number}"})


if __name__ == "__main__":
    fleet.server_program()
    lab.main()
