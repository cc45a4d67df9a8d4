"""Packets through the kernel that the agent has programmed: between hosts behind a port of ours and
hosts behind other VTEPs."""

import unittest

from harness import hosts_of, wait_for
from kernel import KernelTest, Ping

LOCAL, FIRST, SECOND = "02:00:00:00:ff:01", "02:00:00:00:ff:02", "02:00:00:00:ff:03"
VTEPS = {FIRST: "10.0.0.2", SECOND: "10.0.0.3"}
FILLING = hosts_of(100, ("10.0.0.4",))  # so many that their loss begins a hold

# Packets to all, of many flows.
SPRAY = """
import socket
for port in range(20000, 20200):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as flow:
        flow.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        flow.bind(("172.16.0.1", port))
        flow.sendto(b"", ("172.16.255.255", 9))
"""


class PacketTest(KernelTest):
    """A host of ours, and two remote VTEPs."""

    ports = ()

    def setUp(self):
        super().setUp()
        self.local = self.local_host("p1", LOCAL, "172.16.0.1")
        self.server = self.serve()
        self.database = self.connect(self.server)
        self.publish_switch(self.database, vlan=0)
        self.agent = self.follow(self.server.remote, "--withdraw-delay=1", "--settle=1")
        self.agent.wait_in_sync()

    def remotes(self, *addresses):
        hosts = zip(VTEPS.items(), addresses)
        return [self.remote(vtep, mac, address) for (mac, vtep), address in hosts]


class Hosts(PacketTest):
    def setUp(self):
        """One that is at two VTEPs, so that a move need not lose a packet, and an unmoved one."""
        super().setUp()
        self.places = self.remotes("172.16.0.2", "172.16.0.2")
        self.places[1].ip(f"link set vx address {FIRST}")
        for each in self.places:
            each.ip(f"neigh replace 172.16.0.1 lladdr {LOCAL} dev vx nud permanent")
        self.local.ip(f"neigh replace 172.16.0.2 lladdr {FIRST} dev eth0 nud permanent")
        self.database.announce("ls1", {FIRST: "10.0.0.2", **FILLING})
        self.assert_programmed()
        self.ping = Ping(self, self.local, "172.16.0.2")

    def wait_at(self, number):
        """Its packets arrive there."""
        place = self.places[number]
        before = place.received()
        wait_for("packets", lambda: place.received() > before + 10)

    def test_move(self):
        moves = self.database.ways_to_move(self.ping.wait_replies)
        self.wait_at(0)
        for number in range(12):
            place = (number + 1) % 2
            moves[number % 3](FIRST, f"10.0.0.{2 + place}")
            self.wait_at(place)
        self.assertEqual(self.ping.lost(), 0)

    def test_outlive_the_agent(self):
        for _ in range(3):
            self.agent.process.kill()
            self.ping.wait_replies()
            self.agent.start()
            self.agent.wait_in_sync()
            self.assert_programmed()
        self.assertEqual(self.ping.lost(), 0)

    def test_outlive_their_controller(self):
        """It takes everything away, and brings it back."""
        rows = [self.database.deletion(mac) for mac in (FIRST, *FILLING)]
        self.database.transact_each([*rows, [self.database.key("ls1", None)]])
        self.agent.wait_held()
        wait_for("all marks", lambda: len(self.agent.marked()) == len(rows))
        self.ping.wait_replies()
        self.database.set_key("ls1", 5001)
        self.database.announce("ls1", {FIRST: "10.0.0.2", **FILLING})
        self.agent.wait_released()
        self.assert_programmed()
        self.assertEqual(self.ping.lost(), 0)


class Floods(PacketTest):
    def setUp(self):
        super().setUp()
        self.places = self.remotes("172.16.0.2", "172.16.0.3")

    def publish_list(self, mode, *verbs):
        members = zip(verbs, VTEPS.values())
        commands = [f"{verb}-mcast-remote ls1 unknown-dst {vtep}" for verb, vtep in members]
        self.database.ctl(f"set Logical_Switch ls1 replication_mode={mode}", *commands)
        self.assert_programmed()

    def arrived(self):
        """How many packets of a spray each remote gets."""
        before = [each.received() for each in self.places]
        self.local.run("python3", "-c", SPRAY)
        return [each.received() - was for each, was in zip(self.places, before)]

    def test_reach_all(self):
        """And what the local host asks for, each of them answers."""
        self.publish_list("source_node", "add", "add")
        self.assertEqual(self.arrived(), [200, 200])
        self.publish_list("source_node", "del")
        self.assertEqual(self.arrived(), [0, 200])
        self.publish_list("source_node", "add")
        self.database.announce("ls1", VTEPS)
        self.assert_programmed()
        for address in ("172.16.0.2", "172.16.0.3"):
            self.assertEqual(Ping(self, self.local, address).lost(), 0)
        for place in self.places:
            place.run("ip", "neigh", "flush", "dev", "vx")
            self.assertEqual(Ping(self, place, "172.16.0.1").lost(), 0)

    def test_reach_any(self):
        self.publish_list("service_node", "add", "add")
        first, second = self.arrived()
        self.assertEqual(first + second, 200)
        self.assertGreater(min(first, second), 20)
        self.publish_list("service_node", "del")
        self.assertEqual(self.arrived(), [0, 200])
        self.publish_list("source_node", "add")
        self.assertEqual(self.arrived(), [200, 200])


if __name__ == "__main__":
    unittest.main()
