"""The agent and a real controller, which fills the database by what is bound where."""

import os
import signal
import unittest

from harness import LiveTest, Process, hosts_of, run, wait_for

SCHEMAS = "/usr/share/ovn"
VTEPS = ("10.0.0.2", "10.0.0.3")


class ControllerTest(LiveTest):
    """northd with its databases, and the controller of VTEPs beside it."""

    def setUp(self):
        super().setUp()
        os.environ["OVN_RUNDIR"] = str(self.directory)
        self.vtep = self.serve()
        self.north = self.serve("nb", schema=f"{SCHEMAS}/ovn-nb.ovsschema")
        self.south = self.serve("sb", schema=f"{SCHEMAS}/ovn-sb.ovsschema")
        self.database = self.connect(self.vtep)
        databases = (f"--ovnnb-db={self.north.remote}", f"--ovnsb-db={self.south.remote}")
        north = Process("northd", self.directory, "ovn-northd", *databases)
        self.addCleanup(north.kill)
        self.controller = None
        self.start_controller()
        self.addCleanup(lambda: self.controller.kill())

        self.database.ctl(
            "add-ps tor", "set Physical_Switch tor tunnel_ips=192.0.2.1", "add-port tor p1",
            "add-ls ls1", "bind-ls tor p1 10 ls1",
        )  # fmt: skip
        self.in_north("ls-add sw")
        self.in_south(*(f"chassis-add {vtep} vxlan {vtep}" for vtep in VTEPS))
        self.bind()
        self.hosts = {}
        self.add(hosts_of(30, VTEPS))
        self.agent = self.follow(self.vtep.remote, "--settle=1")
        self.check(self.hosts)

    def start_controller(self):
        databases = (f"--vtep-db={self.vtep.remote}", f"--ovnsb-db={self.south.remote}")
        self.controller = Process(
            "controller", self.directory, "ovn-controller-vtep", *databases
        )
        wait_for("the controller's socket", self.control_of_controller().exists)

    def control_of_controller(self):
        return self.directory / f"ovn-controller-vtep.{self.controller.id}.ctl"

    def stop_controller(self):
        """In good order: it takes back all that it has written."""
        run("ovs-appctl", "-t", self.control_of_controller(), "exit")
        self.assertEqual(self.controller.exit_status(), 0)

    def in_north(self, *commands):
        words = " -- ".join(commands).split()
        run("ovn-nbctl", f"--db={self.north.remote}", "--timeout=20", "--wait=sb", *words)

    def in_south(self, *commands):
        words = " -- ".join(commands).split()
        run("ovn-sbctl", f"--db={self.south.remote}", "--timeout=20", *words)

    def bind(self):
        """Our switch's port to the controller's network."""
        self.in_north(
            "lsp-add sw tor", "lsp-set-type tor vtep", "lsp-set-addresses tor unknown",
            "lsp-set-options tor vtep-physical-switch=tor vtep-logical-switch=ls1",
        )  # fmt: skip

    def unbind(self):
        self.in_north("lsp-del tor")

    @staticmethod
    def _port(mac):
        return mac.replace(":", "")

    def add(self, hosts):
        self.hosts = {**self.hosts, **hosts}
        ports = {self._port(mac): mac for mac in hosts}
        self.in_north(*(f"lsp-add sw {port}" for port in ports))
        self.in_north(*(f"lsp-set-addresses {port} {mac}" for port, mac in ports.items()))
        self.in_south(*(f"lsp-bind {port} {hosts[mac]}" for port, mac in ports.items()))

    def remove(self, mac):
        del self.hosts[mac]
        self.in_north(f"lsp-del {self._port(mac)}")

    def move(self, mac, vtep):
        self.hosts[mac] = vtep
        port = self._port(mac)
        self.in_south(f"lsp-unbind {port}", f"lsp-bind {port} {vtep}")

    def published(self):
        """The hosts and the flood sets that the database has for us."""
        hosts, floods = self.database.published()
        return {mac: vteps[0] for (_, mac), vteps in hosts.items()}, floods

    def check(self, hosts):
        """The database comes to have these hosts, and the agent what the database has."""
        wait_for("the database", lambda: self.published()[0] == hosts)
        wait_for("the agent", lambda: (self.agent.hosts(), self.agent.floods()) == self.published())
        self.agent.wait_in_sync()
        self.assertEqual((self.agent.hosts(), self.agent.floods()), self.published())

    def test_hosts_come_and_move_and_go(self):
        self.add({"02:00:00:00:99:01": VTEPS[0]})
        self.check(self.hosts)
        for vtep in reversed(VTEPS):
            self.move("02:00:00:00:99:01", vtep)
            self.check(self.hosts)
        for mac in [mac for mac, vtep in self.hosts.items() if vtep == VTEPS[1]][:5]:
            self.move(mac, VTEPS[0])
        self.check(self.hosts)
        self.assertEqual(self.agent.withdrawn(), [])
        self.remove("02:00:00:00:99:01")
        self.check(self.hosts)
        self.assertEqual(self.agent.withdrawn(), ["02:00:00:00:99:01"])

    def test_a_controller_that_is_killed(self):
        self.controller.end(signal.SIGKILL)
        moved = next(iter(self.hosts))
        self.move(moved, VTEPS[0] if self.hosts[moved] == VTEPS[1] else VTEPS[1])
        self.start_controller()
        self.check(self.hosts)
        self.assertEqual(self.agent.withdrawn(), [])

    def test_a_controller_that_is_stopped_and_started(self):
        self.stop_controller()
        self.assertEqual(self.published(), ({}, {}))
        self.agent.wait_held()
        self.assertEqual(self.agent.hosts(), self.hosts)
        self.start_controller()
        self.check(self.hosts)
        wait_for("the end of the hold", lambda: not self.agent.status()["hold"])
        self.assertEqual(self.agent.marked(), set())
        self.check(self.hosts)

    def test_databases_that_restart(self):
        each_and_two = [self.vtep], [self.south], [self.north], [self.vtep, self.south]
        for number, servers in enumerate(each_and_two):
            with self.subTest([each.file.stem for each in servers]):
                for each in servers:
                    each.kill()
                for each in servers:
                    each.start()
                self.database = self.connect(self.vtep)
                self.add({f"02:00:00:00:98:{number:02}": VTEPS[0]})
                self.check(self.hosts)
        self.assertEqual(self.agent.withdrawn(), [])

    def test_a_network_that_is_unbound(self):
        self.unbind()
        self.agent.wait_held()
        self.assertEqual(self.agent.hosts(), self.hosts)
        self.bind()
        self.check(self.hosts)
        wait_for("the end of the hold", lambda: not self.agent.status()["hold"])
        self.unbind()
        self.agent.wait_held()
        self.agent.ask("release")
        self.check({})
        self.bind()
        self.check(self.hosts)

    def test_a_vlan_that_is_unbound(self):
        self.database.ctl("unbind-ls tor p1 10")
        wait_for("no hosts", lambda: self.agent.hosts() == {})
        self.assertIsNone(self.agent.status()["hold"])
        self.database.ctl("bind-ls tor p1 10 ls1")
        self.check(self.hosts)


if __name__ == "__main__":
    unittest.main()
