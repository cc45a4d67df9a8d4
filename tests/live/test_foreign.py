"""Others that change what the agent has programmed: it puts that back, and leaves theirs alone."""

import unittest

from harness import BROADCAST, wait_for
from kernel import OWN, ZERO, KernelTest, bridge, fdb, ip, link, nexthops, shown

HOST, OTHER, GROUP = "02:00:00:00:00:01", "02:00:00:00:00:02", "01:00:5e:00:00:05"
THEIRS = "02:00:00:bb:00:01"
MARKED = "self permanent extern_learn"


def ids(kind):
    """Of nexthops: of groups, or of those that have a gateway."""
    return [number for number, each in nexthops().items() if kind in each]


class ForeignHands(KernelTest):
    """Hosts and lists to all in VNI 5001, to any in 5002; and entries of somebody else."""

    def setUp(self):
        super().setUp()
        self.server = self.serve()
        self.database = self.connect(self.server)
        self.publish_switch(self.database)
        self.database.ctl(
            "set Logical_Switch ls1 replication_mode=source_node",
            "add-ls ls2", "set Logical_Switch ls2 tunnel_key=5002", "bind-ls tor p1 20 ls2",
            *(f"add-mcast-remote {switch} {mac} {vtep}" for switch in ("ls1", "ls2")
              for mac in ("unknown-dst", GROUP) for vtep in ("10.0.0.2", "10.0.0.3")),
        )  # fmt: skip
        self.database.announce("ls1", {HOST: "10.0.0.2", OTHER: "10.0.0.3"})
        self.agent = self.follow(self.server.remote, "--withdraw-delay=0", "--settle=1")
        self.assert_programmed()
        self.agent.wait_in_sync()
        bridge(
            f"fdb add {THEIRS} dev vx5001 dst 10.9.9.9 self static",
            f"fdb add {THEIRS} dev p1.10 master static",
            "fdb append 01:00:5e:00:00:09 dev vx5001 dst 10.9.9.9 self permanent",
        )

    @staticmethod
    def theirs():
        entries = shown("bridge", "-j", "fdb", "show")
        return [each for each in entries if THEIRS == each["mac"] or each.get("dst") == "10.9.9.9"]

    def attack(self, change, counted=True):
        """It is put back by the agent that runs, which says so."""
        with self.subTest(change):
            process, said = self.agent.process, self.agent.process.said()
            before = self.agent.kernel("putBack")
            tool, command = change.split(" ", 1)
            {"bridge": bridge, "ip": ip}[tool](command)
            self.assert_programmed()
            if counted:
                wait_for("the count", lambda: self.agent.kernel("putBack") > before)
            wait_for("a word", lambda: process.said() != said)
            self.assertTrue(process.runs())

    def test_change_entries(self):
        theirs = self.theirs()
        self.assertEqual(len(theirs), 3)
        for change in (
            f"fdb del {HOST} dev vx5001 dst 10.0.0.2 self",
            f"fdb del {HOST} dev vx5001 master",
            f"fdb replace {HOST} dev vx5001 dst 10.9.9.9 self static",
            f"fdb replace {OTHER} dev vx5001 dst 10.9.9.9 self static extern_learn",
            f"fdb replace {OTHER} dev vx5001 dst 10.9.9.9 {MARKED}",
            f"fdb replace {OTHER} dev p1.10 master static",
            f"fdb del {ZERO} dev vx5001 dst 10.0.0.2 self",
            f"fdb del {GROUP} dev vx5001 dst 10.0.0.3 self",
            f"fdb del {ZERO} dev vx5002 self",
        ):
            self.attack(f"bridge {change}")
            self.assertEqual(self.theirs(), theirs)
        self.database.withdraw(HOST)
        self.assert_programmed()
        self.assertEqual(self.theirs(), theirs)

    def test_flush(self):
        for command in ("vx5001", "vx5001 extern_learn", "br5001", "vx5002"):
            self.attack(f"bridge fdb flush dev {command}")

    def test_change_more_than_is_listened_to(self):
        """News are lost while it does not run: all is read again."""
        noise = "{} 02:00:00:cc:00:01 dev vx5001 dst 10.9.9.9 self".format
        self.agent.process.freeze()
        bridge(
            *([noise("fdb add"), noise("fdb del")] * 15000),
            f"fdb del {HOST} dev vx5001 self", f"fdb del {OTHER} dev vx5001 master",
        )  # fmt: skip
        ip("link del vx5002")
        self.agent.process.thaw()
        wait_for("news to be lost", lambda: self.agent.kernel("readAgain") > 0)
        self.assert_programmed()

    def test_change_nexthops(self):
        ip("nexthop add id 900000900 via 10.9.9.9 fdb", "nexthop add id 7 group 900000900 fdb")
        ours = set(nexthops()) - {900000900, 7}
        group, member = min(ours & set(ids("group"))), min(ours & set(ids("gateway")))
        self.attack(f"ip nexthop replace id {group} group {member} fdb protocol 201")
        self.attack(f"ip nexthop replace id {member} via 10.0.0.99 fdb protocol 201")
        self.attack(f"ip nexthop del id {group}")
        self.attack(f"ip nexthop del id {min(set(ids('gateway')) - {900000900})}")
        self.attack("ip nexthop flush protocol 201")
        self.assertLessEqual({900000900, 7}, set(nexthops()))

    def test_change_links(self):
        """The devices are again as the agent makes them, and ports where they were."""
        names = ("vx5001", "br5001", "vx5002", "br5002", "p1.10", "p1.20")
        before = {name: link(name) for name in names}
        ip("link add lan type bridge")
        for change in (
            "ip link set vx5001 down",
            "ip link set vx5001 nomaster",
            "ip link set vx5001 master lan",
            "ip link set br5001 down",
            "bridge link set dev vx5001 learning on",
            "ip link set p1.10 nomaster",
            "ip link del br5001",
            "ip link del vx5001",
            "ip link del vx5002",
        ):
            self.attack(change, counted=False)
            wait_for("the links", lambda: {name: link(name) for name in names} == before)
        self.assertEqual(fdb()[5001, BROADCAST], "all 10.0.0.2 10.0.0.3")

    def test_make_a_device_of_their_own(self):
        """Which has our VNI, on another port."""
        ip(f"link add theirs up type vxlan id 5001 local {OWN} dstport 4790")
        bridge(f"fdb add {HOST} dev theirs dst 10.9.9.9 {MARKED}")
        before = link("theirs"), self.theirs()
        self.database.transact(*self.database.modification(HOST, "10.0.0.7"))
        self.agent.wait_in_sync()
        wait_for("the move", lambda: self.agent.hosts()[HOST] == "10.0.0.7")
        self.assertEqual((link("theirs"), self.theirs()), before)


if __name__ == "__main__":
    unittest.main()
