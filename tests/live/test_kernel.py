"""What becomes of the kernel while database, operator and agent change: the scenarios of others
with a kernel behind the agent, and what only a kernel can show."""

import itertools
import signal
import subprocess
import unittest

import test_follow
import test_restarts
from harness import AGENT, BROADCAST, PATIENCE, hosts_of, run, wait_for
from kernel import (
    MARK, OWN, KernelTest, Monitor, await_equal, bridge, expected, fdb, ip, link, links, nexthops,
    text,
)  # fmt: skip
from test_follow import HOST, OTHER

HOSTS, FLOODS = test_restarts.HOSTS, test_restarts.FLOODS
OTHERS = "02:00:00:aa:00:01"
NEXTHOPS = {900000777: 201, 900000778: 202}  # and their protocols; 201 is the agent's


class FollowTest(KernelTest, test_follow.FollowTest):
    """What the agent says that it has, it has programmed."""

    def wait_floods(self, floods):
        super().wait_floods(floods)
        self.assert_programmed()

    def wait_places(self, places):
        super().wait_places(places)
        self.assert_programmed()

    def wait_gone(self, *names, patience=PATIENCE):
        wait_for(f"the end of {names[0]}", lambda: not set(names) & set(links()), patience)

    def wait_well(self):
        wait_for("no problem", lambda: not self.agent.problems())

    def restart(self, *options):
        """With other options."""
        self.agent.process.end()
        self.agent = self.follow(self.server.remote, *options)
        self.agents = [self.agent]


class Hosts(FollowTest, test_follow.Hosts):
    def test_are_behind_our_own_vtep(self):
        self.database.announce("ls1", {HOST: OWN, OTHER: "10.0.0.2"})
        for vtep in (OWN, "10.0.0.3", OWN):
            self.database.transact(*self.database.modification(HOST, vtep))
            reasons = {(5001, HOST): "behind our own VTEP"} if vtep == OWN else {}
            await_equal(fdb, expected(self.database))
            self.agent.wait_differences(reasons)

    def test_have_a_foreign_entry(self):
        """Whoever made it keeps it, and the doctor says so."""
        wait_for("the device", lambda: link("vx5001"))
        foreign = f"{HOST} dev vx5001 dst 10.9.9.9 self static"
        bridge(f"fdb add {foreign}")
        self.database.announce("ls1", {HOST: "10.0.0.2", OTHER: "10.0.0.2"})
        self.agent.wait_differences({(5001, HOST): "foreign"})
        self.assertEqual(fdb()[5001, OTHER], "10.0.0.2")
        self.assertIn(f"{HOST} dst 10.9.9.9", run("bridge", "fdb", "show", "dev", "vx5001"))
        self.assertEqual(self.agent.status()["hosts"]["foreign"], 1)
        bridge(f"fdb del {foreign}")
        self.assert_programmed()

    def test_wait_in_the_gate(self):
        self.restart("--withdraw-delay=600")
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.agent.wait_hosts({HOST: "10.0.0.2"})
        self.database.withdraw(HOST)
        self.agent.wait_differences({(5001, HOST): "waiting in the gate"})
        self.assertEqual(fdb(), {(5001, HOST): "10.0.0.2"})
        self.agent.process.end()  # it is not to be waited for


class Switches(FollowTest, test_follow.Switches):
    test_with_one_vni = None  # the rows do not say which of them counts
    test_have_our_address = None  # nor this

    def test_lose_their_key_for_a_moment(self):
        """The device stays, and whatever is programmed."""
        self.database.announce("ls1", hosts_of(10))
        self.agent.wait_hosts(hosts_of(10))
        before, monitor = links()["vx5001"], Monitor(self)
        self.database.transact_each([[self.database.key("ls1", key)] for key in (None, 0, 5001)])
        self.database.announce("ls1", {"02:00:00:01:00:00": "10.0.0.3"})
        self.assert_programmed()
        self.agent.wait_quiet()
        self.assertEqual(monitor.deleted(), set())
        self.assertEqual(links()["vx5001"], before)

    def test_change_our_address(self):
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.assert_programmed()
        ip("addr add 192.0.2.2/32 dev underlay")
        self.database.ctl("set Physical_Switch tor tunnel_ips=192.0.2.2")
        wait_for("it", lambda: link("vx5001")["local"] == "192.0.2.2")
        self.assert_programmed()


class Floods(FollowTest, test_follow.Floods):
    pass


class RestartTest(KernelTest, test_restarts.RestartTest):
    def check_kept(self, hosts=HOSTS):
        super().check_kept(hosts)
        entries = {(5001, mac): vtep for mac, vtep in hosts.items()}
        entries |= {key: text("any", vteps) for key, (_, vteps) in FLOODS.items()}
        self.assertEqual(fdb(), entries)

    def stop_controller(self):
        """What the doctor finds then has a reason."""
        super().stop_controller()
        status, reasons = self.agent.differences()
        self.assertEqual((status, len(reasons)), (0, len(HOSTS) + len(FLOODS)))
        self.assertLessEqual(set(reasons.values()), {"held", "marked"})


class Controller(RestartTest, test_restarts.Controller):
    pass


class Crash(RestartTest, test_restarts.Crash):
    # How an agent finds that a server is lost has nothing to do with the kernel.
    test_of_a_server_with_another_schema = None
    test_of_a_server_that_freezes = None


class Agent(RestartTest):
    def setUp(self):
        super().setUp()
        self.database.ctl("add-mcast-remote ls1 01:00:5e:00:00:05 10.0.0.2")
        self.assert_programmed()

    def test_is_killed(self):
        """Not a packet need be lost: nothing is deleted, nor made anew."""
        before, programmed, monitor = links(), fdb(), Monitor(self)
        for _ in range(3):
            self.agent.restart()
            self.agent.wait_in_sync()
            self.agent.wait_quiet()
            self.assert_programmed()
        self.assertEqual((fdb(), monitor.deleted(), links()), (programmed, set(), before))

    def test_is_stopped_and_finds_leftovers(self):
        """They stay until the database has told what is wanted; what others made, for ever."""
        before = links(), fdb()
        self.agent.process.end(signal.SIGTERM)
        self.assertEqual((links(), fdb()), before)
        gone, moved, *_ = HOSTS
        self.database.transact(
            *self.database.deletion(gone), *self.database.modification(moved, "10.0.0.9")
        )  # fmt: skip
        self.server.kill()
        for vni, mark in ((7001, MARK), (7002, "vxlan-agent other")):
            ip(
                f"link add vx{vni} type vxlan id {vni} local {OWN} dstport 4789 nolearning",
                f'link set vx{vni} alias "{mark}"', f"link add br{vni} type bridge",
                f'link set br{vni} alias "{mark}"', f"link set vx{vni} master br{vni}",
            )  # fmt: skip
        for vni in (5001, 7001, 7002):
            bridge(f"fdb add {OTHERS} dev vx{vni} dst 10.0.0.7 self permanent extern_learn")
        for number, protocol in NEXTHOPS.items():
            ip(f"nexthop add id {number} via 10.0.0.7 fdb protocol {protocol}")
        before = links(), fdb()
        self.agent.start()
        wait_for("what was read", lambda: self.agent.kernel("groups") == 2)
        self.assertEqual((links(), fdb()), before)
        self.start_server()
        theirs = {(vni, OTHERS): "10.0.0.7, not in the bridge" for vni in (5001, 7002)}
        await_equal(fdb, expected(self.database) | theirs)
        await_equal(lambda: {name for name in links() if "700" in name}, {"vx7002", "br7002"})
        self.assertEqual(NEXTHOPS.keys() & nexthops().keys(), {900000778})


class Devices(FollowTest):
    def check_device(self, *, vni=5001, bridge_name="br5001", mtu=1450):
        wait_for(f"the device of VNI {vni}", lambda: link(f"vx{vni}"))
        self.assert_programmed()
        self.assertEqual(link(f"vx{vni}"), {
            "alias": MARK, "master": bridge_name, "mtu": mtu, "up": True, "port learning": False,
            "local": OWN, "port": 4789, "learning": False, "udp_csum": False,
            "mcast_snooping": None,
        })  # fmt: skip

    def wait_master(self, port, master):
        await_equal(lambda: (link(port) or {}).get("master"), master)

    def test_are_made_and_go(self):
        for _ in range(2):
            self.database.announce("ls1", {HOST: "10.0.0.2"})
            self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.3")
            self.check_device()
            self.wait_master("p1.10", "br5001")
            ours = link("br5001")
            self.assertEqual((ours["alias"], ours["up"], ours["mcast_snooping"]), (MARK, True, 0))
            self.database.ctl("unbind-ls tor p1 10")
            self.wait_gone("vx5001", "br5001")
            self.wait_master("p1.10", None)
            wait_for("no nexthop", lambda: not nexthops())
            self.database.ctl("clear-remote-macs ls1", "bind-ls tor p1 10 ls1")
        self.check_device()
        self.wait_well()

    def test_take_the_bridge_and_the_mtu_of_the_operator(self):
        ip("link set underlay mtu 9000", "link add lan type bridge", "link set lan up")
        ip("link set p1.20 master lan")
        self.add_switches(("ls2", 5002, ["p1 20"], HOST))
        self.check_device(vni=5002, bridge_name="lan", mtu=8950)
        self.assertNotIn("br5002", links())
        self.database.ctl("unbind-ls tor p1 20")
        self.wait_gone("vx5002")
        self.wait_master("p1.20", "lan")

    def test_wait_for_ports(self):
        self.database.ctl("add-port tor p9", "bind-ls tor p9 0 ls1")
        for _ in range(2):
            self.wait_problem("p9")
            ip("link add p9 type veth peer name far")
            self.wait_master("p9", "br5001")
            self.wait_well()
            ip("link del p9")

    def test_have_tagged_ports(self):
        """Of a kernel that has none, its words are told."""
        ip("link add p9 type veth peer name far")
        self.database.ctl("add-port tor p9", "bind-ls tor p9 40 ls1")
        make = "ip link add link p9 name p9.41 type vlan id 41".split()
        tried = subprocess.run(make, capture_output=True, text=True)
        if tried.returncode != 0:
            self.wait_problem("p9", tried.stderr.split(": ", 1)[1].strip(" .\n"))
        else:
            self.wait_master("p9.40", "br5001")
        self.database.ctl("unbind-ls tor p9 40")
        self.wait_gone("p9.40")
        self.wait_well()

    def test_meet_others_that_stand_in_their_way(self):
        for vni, culprit, word in (
            (5002, "link add vx5002 type veth peer name far", "vx5002"),
            (5003, "link add other type vxlan id 5003 dstport 4789", "exists"),
            (5004, "link add br5004 type veth peer name far", "br5004"),
        ):
            with self.subTest(culprit):
                name = culprit.split()[2]
                ip(culprit)
                before = link(name)
                self.add_switches((f"ls{vni}", vni, ["p1 20"], HOST))
                self.wait_problem(str(vni), word)
                self.assertEqual(link(name), before)
                await_equal(lambda: self.agent.differences()[0], 0)
                ip(f"link del {name}")
                self.check_device(vni=vni, bridge_name=f"br{vni}")
                self.wait_well()
                self.database.ctl("unbind-ls tor p1 20")
                self.wait_gone(f"vx{vni}", f"br{vni}")

    def test_are_adopted(self):
        """They are never changed, and those of VNIs without one are missed."""
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.3")
        self.assert_programmed()
        self.agent.process.end()
        ip("link del vx5001", "link del br5001")
        self.restart("--links=adopt", *test_follow.QUICK)
        self.wait_problem("5001")
        make = (
            f"link add overlay type vxlan id 5001 local {OWN} dstport 4789", "link set overlay up",
            "link add lan type bridge", "link set lan up", "link set overlay master lan",
        )  # fmt: skip
        for _ in range(2):
            ip(*make)
            before = links()
            self.assert_programmed()
            self.wait_well()
            self.assertEqual(links(), before)
            ip("link del overlay", "link del lan")
            self.wait_problem("5001")
            await_equal(lambda: self.agent.differences()[0], 0)

    def test_may_not_be_made(self):
        without = ("setpriv", "--bounding-set=-net_admin", "--inh-caps=-net_admin")
        command = (
            *without, AGENT, "run", f"--database={self.server.remote}", "--switch=tor",
            f"--control={self.directory}/powerless.sock", "--data-plane=linux",
        )  # fmt: skip
        done = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE)
        self.assertEqual(done.returncode, 77, done)
        self.assertRegex(done.stderr, "CAP_NET_ADMIN|permi")


class Sizes(FollowTest):
    def test_hosts(self):
        published = hosts_of(20000, ("10.0.0.2", "10.0.0.3"))
        self.database.announce("ls1", published)
        self.agent.wait_hosts(published)
        self.database.move_all("ls1", "10.0.0.3")
        self.agent.wait_hosts(dict.fromkeys(published, "10.0.0.3"))
        self.assert_programmed()
        self.database.ctl("unbind-ls tor p1 10")
        self.agent.wait_hosts({})

    def change_lists(self, lists, verb="add"):
        """Of {MAC: VTEPs}, in one transaction."""
        members = ((mac, vtep) for mac, vteps in lists.items() for vtep in vteps)
        self.database.ctl(*(f"{verb}-mcast-remote ls1 {mac} {vtep}" for mac, vtep in members))
        self.assert_programmed()

    def test_lists(self):
        """Of all, of a part, and of any."""
        vteps = [f"10.1.{number >> 8}.{number & 255}" for number in range(1, 501)]
        self.database.ctl("set Logical_Switch ls1 replication_mode=source_node")
        self.change_lists({"unknown-dst": vteps})
        self.change_lists({"unknown-dst": vteps[::2]}, "del")
        self.database.ctl("set Logical_Switch ls1 replication_mode=service_node")
        self.assert_programmed()
        self.assertEqual(fdb(), {(5001, BROADCAST): text("any", vteps[1::2])})

    def test_groups(self):
        """Equal sets share one."""
        pairs = list(itertools.combinations([f"10.1.0.{number}" for number in range(1, 21)], 2))
        sets = {f"01:00:5e:00:00:{number:02x}": pairs[number % 190] for number in range(200)}
        self.change_lists(sets)
        self.assertEqual(self.agent.kernel("groups"), 190)
        self.change_lists({mac: ["10.1.0.99"] for mac in sets})
        self.change_lists({mac: pair[:1] for mac, pair in sets.items()}, "del")
        self.database.transact(*self.database.deletion(*sets, table="Mcast_Macs_Remote"))
        self.assert_programmed()
        wait_for("no nexthop", lambda: not nexthops())
        self.assertEqual(self.agent.kernel("groups"), 0)

    def test_vnis(self):
        vnis = range(6001, 6301)
        self.add_switches(*((f"n{vni}", vni, [f"p1 {vni - 5900}"], HOST) for vni in vnis))
        self.assert_programmed()
        self.assertEqual(self.agent.kernel("devices"), len(vnis) + 1)
        self.database.ctl(*(f"unbind-ls tor p1 {vni - 5900}" for vni in vnis))
        self.wait_gone(*(f"{kind}{vni}" for vni in vnis for kind in ("vx", "br")), patience=90)


if __name__ == "__main__":
    unittest.main()
