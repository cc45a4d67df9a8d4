"""What metrics tell of the kernel's part."""

import unittest

from harness import wait_for
from kernel import KernelTest, bridge
from metrics import free_port, scrape, wait_as_answered

HOST, OTHER = "02:00:00:00:00:01", "02:00:00:00:00:02"


class KernelMetrics(KernelTest):
    def test_foreign_entries(self):
        """One in the place of ours, one beside ours, and one of ours that is taken away."""
        server = self.serve()
        self.database = self.connect(server)
        self.publish_switch(self.database)
        port = free_port()
        self.agent = self.follow(server.remote, f"--metrics={port}", "--settle=1")
        self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.3")
        self.assert_programmed()

        def hosts(state):
            return scrape(port)["vxlan_agent_kernel_hosts", state]

        self.assertEqual(hosts("programmed"), 0)
        bridge(f"fdb add {OTHER} dev vx5001 dst 10.9.9.9 self static")
        self.database.announce("ls1", {HOST: "10.0.0.2", OTHER: "10.0.0.3"})
        wait_for("a refusal", lambda: hosts("refused") == 1)
        wait_for("an entry", lambda: hosts("programmed") == 1)
        bridge(f"fdb del {HOST} dev vx5001 dst 10.0.0.2 self")
        wait_for("it is back", lambda: scrape(port)["vxlan_agent_kernel_put_back_total",] == 1)
        told = wait_as_answered(self, self.agent, port)
        wanted = {"foreign_entries": 1, "devices": 1, "nexthop_groups": 1, "requests_waiting": 0}
        self.assertEqual({key: told[f"vxlan_agent_kernel_{key}",] for key in wanted}, wanted)
        self.database.withdraw(OTHER)  # else it would be tried again and again


if __name__ == "__main__":
    unittest.main()
