"""Many members of a group take a change, over three servers: how long that lasts. For the long check.

    SYSLOGMON_FLEET_HOSTS    members, simulated; 1000 unless set
"""
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
        rules = self.lab.folder / "rules.yaml"
        for change in range(CHANGES):
            rules.write_text("events:\n" + "".join(
                f"- {{source: SIMULATED, id: {number:X}, keywords: [change {change}]}}\n" for number in range(1, 21)))
            began = time.monotonic()
            self.centre.lab.command("fleet", "apply", rules, "--group", "web", "--wait", "--within", f"{PATIENCE}s")
            took.append(time.monotonic() - began)
            revisions = {row["groups"]["web"]["revision"] for row in self.hosts()}
            self.assertEqual(1, len(revisions))
        print(f"{HOSTS} members run a change of 20 events after {', '.join(f'{t:.1f}' for t in took)} s")

    def hosts(self):
        return self.centre.lab.json("fleet", "status")["hosts"]


if __name__ == "__main__":
    fleet.server_program()
    lab.main()
