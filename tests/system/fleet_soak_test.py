"""A large fleet for long: three servers, real daemons and simulated hosts, of which all are killed again and again. Each
alert is collected once, and in its host's order, but for those that the collector says came late.

    SYSLOGMON_FLEET_HOSTS    simulated hosts; 1000 unless set
    SYSLOGMON_FLEET_ALERTS   alerts of all; 200000 unless set
    SYSLOGMON_FLEET_FAULTS   how often something is killed, stopped, wiped or cut off; 100 unless set
    SYSLOGMON_FLEET_SHORT    set: no server loses its disk, which takes it minutes now and then to make good, and nothing
                             stands still for longer than a second
"""
import os
import resource
import time

import fleet
import lab

HOSTS = int(os.environ.get("SYSLOGMON_FLEET_HOSTS", 1000))
ALERTS = int(os.environ.get("SYSLOGMON_FLEET_ALERTS", 200_000))
FAULTS = int(os.environ.get("SYSLOGMON_FLEET_FAULTS", 100))
SHORT = "SYSLOGMON_FLEET_SHORT" in os.environ
REAL_HOSTS = 10
# Seconds for which a server stands still, or is cut off: one of these.
SPANS = (1,) if SHORT else (1, 1, 1, 1, 10, 60)
HARMS = ("server killed", "server stopped", "server cut off", "agent killed", "simulated hosts killed",
         "collector killed") + (() if SHORT else ("server wiped",))
# Of the simulated hosts, so many are one process.
TOGETHER = 50
# Seconds in which all must be collected once nothing is harmed any more.
PATIENCE = 1800

SIMULATOR = lab.build_root().parent / "tests" / "agent" / "sinks" / "simulated_hosts"


class Simulated:
    """Some of the simulated hosts, as one process in one life after another."""

    def __init__(self, the_lab, number, count, alerts, servers):
        self._lab = the_lab
        self._words = [SIMULATOR, the_lab.folder / f"sim{number}", count, alerts, servers.urls]
        self.folder = the_lab.folder / f"sim{number}"
        self.start()

    def start(self):
        self._child = self._lab.spawn(self.folder.name, self._words)

    def restart(self):
        self._child.kill()
        self.start()

    def has_stored_all(self):
        return "stored" in self._child.said()

    def ledgers(self):
        for root in sorted(self.folder.iterdir()):
            yield root.name, fleet.rows_of(root / "state" / "agent.db",
                                           "SELECT host, message FROM alert ORDER BY id")


class Soak(lab.LabTest):
    def setUp(self):
        super().setUp()
        hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        self.random = lab.randomness("what to kill")
        self.servers = fleet.CabledServers(self.lab, 3)
        self.servers.start()
        self.centre = fleet.Centre(self.servers)
        self.addCleanup(self.centre.lab.close)
        self.centre.daemon.start()
        self.hosts = []
        for number in range(REAL_HOSTS):
            self.hosts.append(fleet.Host(number, self.servers))
            self.addCleanup(self.hosts[-1].lab.close)
            self.hosts[-1].daemon.start()

    def test_each_alert_of_a_large_fleet_is_collected_once_and_in_order(self):
        each = -(-ALERTS // (HOSTS + REAL_HOSTS))  # as many of each, and no fewer in all
        began = time.monotonic()
        simulated = [Simulated(self.lab, number, min(TOGETHER, HOSTS - number * TOGETHER), each, self.servers)
                     for number in range((HOSTS + TOGETHER - 1) // TOGETHER)]
        faults = {}
        for fault in range(FAULTS):
            for host in self.hosts:
                host.report(each * (fault + 1) // FAULTS - host.written)
            what = self.harm(simulated)
            faults[what] = faults.get(what, 0) + 1
        self.servers.wait_healthy()
        harmed = time.monotonic() - began
        for one in simulated:
            self.lab.wait_until("all alerts are stored", one.has_stored_all, PATIENCE)
        for host in self.hosts:
            host.daemon.scan()
        total = each * (HOSTS + REAL_HOSTS)
        self.lab.wait_until(f"{total} alerts are collected", lambda: self.centre.collected() >= total, PATIENCE)
        took = time.monotonic() - began
        print(f"{total} alerts of {HOSTS} simulated and {REAL_HOSTS} real hosts, {FAULTS} faults {faults} "
              f"in {harmed:.0f} s; all were collected after {took:.0f} s; seed {lab.SEED}")
        self.assertEqual(total, self.centre.collected())
        self.compare(simulated, each)

    def compare(self, simulated, each):
        rows = self.centre.collect()["hosts"]
        self.assertEqual({(0, 0, 0)}, {(row["missing"], row["dropped"], row["refused"]) for row in rows})
        self.assertLess(sum(row["late"] for row in rows), self.centre.collected() / 100)
        late = {row[name]: row["late"] for row in rows for name in ("host", "uuid")}
        central = {}
        for host, message in fleet.sqlite(self.centre.lab, "SELECT host, message FROM alert WHERE"
                                          " origin <> '' AND source = 'SIMULATED' ORDER BY id"):
            central.setdefault(host, []).append((host, message))
        compared = 0
        for one in simulated:
            for name, ledger in one.ledgers():
                self.assertEqual(each, len(ledger))
                self.compare_host(ledger, central[name], late[name])
                compared += 1
        self.assertEqual(HOSTS, compared)
        for host in self.hosts:
            self.compare_host(host.ledger(), self.centre.ledger(host), late[host.uuid()])
        print(f"{sum(row['late'] for row in rows)} alerts came late; told of:")
        print("\n".join(self.centre.lab.own_alerts("fleet")) or "nothing")

    def compare_host(self, ledger, central, late):
        self.assertEqual(sorted(ledger), sorted(central))
        place = {alert: number for number, alert in enumerate(ledger)}
        newest = -1
        behind = 0
        for alert in central:
            behind += place[alert] < newest
            newest = max(newest, place[alert])
        self.assertEqual(late, behind, "as many are behind later ones as are said to have come late")

    def harm(self, simulated):
        what = self.random.choice(HARMS)
        server = self.random.choice(self.servers.all)
        if what == "agent killed":
            host = self.random.choice(self.hosts)
            host.daemon.kill()
            host.daemon.launch()
        elif what == "collector killed":
            self.centre.daemon.kill()
            self.centre.daemon.launch()
        elif what == "simulated hosts killed":
            self.random.choice(simulated).restart()
        elif what == "server stopped":
            server.stop()
            time.sleep(self.random.choice(SPANS))
            server.resume()
        elif what == "server cut off":
            self.servers.cut(server)
            time.sleep(self.random.choice(SPANS))
            self.servers.heal(server)
        elif not self.servers.lose(server, what == "server wiped"):
            what = "server killed"
        return what


if __name__ == "__main__":
    fleet.main_in_a_network()
