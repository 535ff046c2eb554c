"""The network between three servers is cut: alerts go on to be collected, each once and in its host's order. Needs networks
of its own, which root or user namespaces can have.
"""
import fleet
import fleet_test
import lab


class Cut(fleet_test.Fleet):
    servers_count = 3
    kind_of_servers = fleet.CabledServers

    def setUp(self):
        super().setUp()
        self.add_hosts(2)

    def report_and_wait(self):
        for host in self.hosts:
            host.report(self.random.randrange(1, 40))
        self.wait_collected()

    def test_alerts_go_on_to_be_collected_while_one_server_is_cut_off_and_when_it_is_back(self):
        self.report_and_wait()
        for server in self.servers.all:
            self.servers.cut(server)
            self.report_and_wait()
            self.servers.heal(server)
            self.servers.wait_healthy()
            self.report_and_wait()

    def test_nothing_is_collected_twice_or_lost_when_agents_and_collector_are_killed_beside_the_cut(self):
        for _ in range(4):
            server = self.random.choice(self.servers.all)
            self.servers.cut(server)
            for host in self.hosts:
                host.report(self.random.randrange(1, 40))
            victim = self.random.choice([*self.hosts, self.centre])
            victim.daemon.kill()
            victim.daemon.start()
            self.servers.heal(server)
            self.servers.wait_healthy()
        self.report_and_wait()


if __name__ == "__main__":
    fleet.main_in_a_network()
