"""Many members of a group take a change over three servers, and none takes a wrong one; how long that lasts. For the long
check.

    SYSLOGMON_FLEET_HOSTS    members, simulated; 1000 unless set
"""
import json
import os
import resource
import time

import fleet
import lab

HOSTS = int(os.environ.get("SYSLOGMON_FLEET_HOSTS", 1000))
# Of the members, so many are one process.
TOGETHER = 50
CHANGES = 5
# Seconds in which a change must have come; on an idle machine it is five.
PATIENCE = 300

SIMULATOR = lab.build_root().parent / "tests" / "agent" / "simulated_members"


class Soak(lab.LabTest):
    def setUp(self):
        super().setUp()
        hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        self.servers = fleet.Servers(self.lab, 3)
        self.servers.start()
        self.centre = fleet.Centre(self.servers)
        self.addCleanup(self.centre.lab.close)

    def test_a_change_reaches_all_members_of_a_large_group(self):
        self.hosts()
        for number in range((HOSTS + TOGETHER - 1) // TOGETHER):
            count = min(TOGETHER, HOSTS - number * TOGETHER)
            self.lab.spawn(f"sim{number}", [SIMULATOR, self.lab.folder / f"sim{number}", count, self.servers.urls])
        self.lab.wait_until("all say that they are there", lambda: len(self.hosts()) == HOSTS, PATIENCE)
        took = []
        for change in range(CHANGES):
            rules = self.rules(f"change {change}")
            began = time.monotonic()
            self.centre.lab.command("fleet", "apply", rules, "--group", "web", "--wait", "--within", f"{PATIENCE}s")
            took.append(time.monotonic() - began)
            revisions = {row["groups"]["web"]["revision"] for row in self.hosts()}
            self.assertEqual(1, len(revisions))
        print(f"{HOSTS} members run a change of 20 events after {', '.join(f'{t:.1f}' for t in took)} s")
        self.change_wrongly(revisions.pop())

    def change_wrongly(self, before):
        """A wrong file that comes past the command's checks, as by another one's hand."""
        text = self.rules("wrong").read_text() + "sinks: []\n"
        self.assertEqual(1, self.centre.lab.run("fleet", "apply", self.rules("wrong", "sinks: []\n"), "--group",
                                                "web").returncode)
        client = fleet.Stranger(self.servers.all[0])
        self.addCleanup(client.close)
        client.publish("$KV.syslogmon-rules.web.all", json.dumps({"files": [{"name": "rules.yaml", "text": text}]}))
        self.lab.wait_until("all have refused it", lambda: all(row["error"] for row in self.hosts()), PATIENCE)
        self.assertEqual({before}, {row["groups"]["web"]["revision"] for row in self.hosts()})
        stores = sorted(self.lab.folder.glob("sim*/*/state/agent.db"))
        self.assertEqual(HOSTS, len(stores))
        for store in stores:
            rows = fleet.rows_of(store, "SELECT count(*), sum(instr(data, 'change') > 0) FROM reg_value"
                                        " WHERE instr(data, 'change') OR instr(data, 'wrong')")
            self.assertEqual((20, 20), rows[0], store)

    def rules(self, keyword, more=""):
        path = self.lab.folder / "rules.yaml"
        path.write_text("events:\n" + "".join(
            f"- {{source: SIMULATED, id: {number:X}, keywords: [{keyword}]}}\n" for number in range(1, 21)) + more)
        return path

    def test_an_agent_takes_a_change(self):
        self.hosts()
        member = fleet.Member(self.servers, "web", every=60)
        self.addCleanup(member.lab.close)
        member.daemon.start()
        self.lab.wait_until("it is there", lambda: len(self.hosts()) == 1)
        took = []
        for change in range(20):
            rules = self.rules(f"number {change}")
            self.centre.lab.command("fleet", "apply", rules, "--group", "web")
            began = time.monotonic()
            newest = self.servers.messages("KV_syslogmon-rules")
            self.lab.wait_until("it has it", lambda: [(newest,)] == fleet.sqlite(
                member.lab, "SELECT revision FROM fleet_group"))
            took.append(time.monotonic() - began)
            time.sleep(1)  # nobody changes more often for long
        print(f"a daemon has a change {1000 * sorted(took)[10]:.0f} ms after the command, {1000 * max(took):.0f} ms at most")

    def hosts(self):
        return self.centre.lab.json("fleet", "status")["hosts"]


if __name__ == "__main__":
    fleet.server_program()
    lab.main()
