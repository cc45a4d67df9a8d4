"""What the agent makes of each thing that a controller and an operator do to the database."""

import json
import signal
import stat
import time
import unittest

from harness import BROADCAST, TO_ALL, TO_ANY, LiveTest, hosts_of, run_agent, schemas, wait_for

DELAY = 0.5  # seconds that withdrawals wait; a machine that is busy takes a part of them
QUICK = (f"--withdraw-delay={DELAY}", "--settle=1")
HOST, OTHER, THIRD = hosts_of(3)


class FollowTest(LiveTest):
    """The logical switch ls1, VNI 5001, is VLAN 10 at p1 of ours; nothing is published in it."""

    def setUp(self):
        super().setUp()
        self.server = self.serve()
        self.database = self.connect(self.server)
        self.publish_switch(self.database)
        self.agent = self.follow(self.server.remote, *QUICK)
        self.agent.wait_in_sync()

    def wait_floods(self, floods):
        wait_for(f"the floods {floods}", lambda: self.agent.floods() == floods)

    def wait_places(self, places):
        wait_for(f"hosts at {places}", lambda: self.agent.places() == places)

    def add_switches(self, *switches):
        """Of (name, VNI, bindings as "PORT VLAN", host), in one transaction but for the hosts."""
        commands = []
        for name, vni, bindings, _ in switches:
            commands += [f"add-ls {name}", f"set Logical_Switch {name} tunnel_key={vni}"]
            commands += [f"bind-ls tor {binding} {name}" for binding in bindings]
        self.database.ctl(*commands)
        for name, _, _, mac in switches:
            self.database.announce(name, {mac: "10.0.0.2"})


class Hosts(FollowTest):
    def test_come_move_and_go(self):
        database = self.database
        moves = database.ways_to_move(lambda: time.sleep(0.08))  # as real controllers
        published = {HOST: "10.0.0.1", OTHER: "10.0.0.1"}
        database.announce("ls1", published)
        self.agent.wait_hosts(published)
        for number, move in enumerate(moves, 2):
            published[HOST] = f"10.0.0.{number}"
            move(HOST, published[HOST])
            self.agent.wait_hosts(published)
        self.agent.wait_quiet()
        self.assertEqual(self.agent.withdrawn(), [])
        database.withdraw(HOST)
        self.agent.wait_hosts({OTHER: "10.0.0.1"})
        self.assertEqual(self.agent.withdrawn(), [HOST])

    def test_have_several_rows(self):
        """The lowest address counts, and when it goes, the next one."""
        vteps = ("10.0.0.9", "10.0.0.20", "10.0.0.10")
        for vtep, told in zip(vteps, ("10.0.0.9", "10.0.0.9", "10.0.0.9")):
            self.database.announce("ls1", {HOST: vtep})
            self.agent.wait_hosts({HOST: told})
        for vtep, told in (("10.0.0.9", "10.0.0.10"), ("10.0.0.10", "10.0.0.20")):
            self.database.transact(*self.database.deletion_at(HOST, vtep))
            self.agent.wait_hosts({HOST: told})
        self.agent.wait_quiet()
        self.assertEqual(self.agent.withdrawn(), [])
        self.database.transact(*self.database.deletion_at(HOST, "10.0.0.20"))
        self.agent.wait_hosts({})

    def test_outlive_a_flap_of_their_switch(self):
        """A port that is bound again: the key goes and all rows, and are back at once."""
        published = hosts_of(20)  # so few that no hold begins
        self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.2")
        self.database.announce("ls1", published)
        self.agent.wait_hosts(published)
        insertion = self.database.insertion("ls1", published)
        for gone in (0, None):
            self.database.transact_each([
                [self.database.key("ls1", gone), *self.database.deletion(*published)],
                [self.database.key("ls1", 5001), *insertion],
            ])  # fmt: skip
        self.database.announce("ls1", {"02:00:00:01:00:00": "10.0.0.3"})
        wait_for("the flap's end", lambda: len(self.agent.hosts()) == 21)
        self.agent.wait_quiet()
        self.assertEqual(self.agent.withdrawn(), [])
        self.assertEqual(len(self.agent.recorded("vlanVniMap")), 1)
        self.assertNotIn("hold", self.agent.process.said())


class Switches(FollowTest):
    def test_change_their_keys(self):
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.3")
        for key in (5001, 16777215, 0, 1, None, 5002):
            self.database.set_key("ls1", key)
            self.wait_places({HOST: (10, key)} if key else {})
            self.wait_floods({(key, BROADCAST): (TO_ANY, ["10.0.0.3"])} if key else {})
            wait_for("the VNI", lambda: self.agent.status()["vnis"] == (1 if key else 0))

    def test_are_bound_moved_and_unbound(self):
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.add_switches(("ls2", 5002, ["p1 20"], OTHER), ("ls3", 5003, [], THIRD))
        self.wait_places({HOST: (10, 5001), OTHER: (20, 5002)})
        self.database.ctl("unbind-ls tor p1 20", "bind-ls tor p1 20 ls3")
        self.wait_places({HOST: (10, 5001), THIRD: (20, 5003)})
        self.database.ctl("unbind-ls tor p1 10", "bind-ls tor p1 30 ls1")
        self.wait_places({HOST: (30, 5001), THIRD: (20, 5003)})
        self.database.ctl("unbind-ls tor p1 20", "del-port tor p1")
        self.wait_places({})
        self.database.ctl("add-port tor p2", "bind-ls tor p2 10 ls1")
        self.wait_places({HOST: (10, 5001)})

    def test_are_given_vlans(self):
        """The lowest tag that no other has; where there is none, a free one from 4094 downward."""
        self.database.ctl(*(f"add-port tor p{number}" for number in range(2, 6)))
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.add_switches(
            ("ls2", 5002, ["p1 0", "p2 4093"], OTHER),
            ("ls3", 5003, ["p2 0"], THIRD),
            ("ls4", 5004, ["p3 0"], "02:00:00:00:00:04"),
        )
        places = {
            HOST: (10, 5001),
            OTHER: (4093, 5002),
            THIRD: (4094, 5003),
            "02:00:00:00:00:04": (4092, 5004),
        }
        self.wait_places(places)
        # A tag that somebody wants: whoever was given it for want of one leaves it.
        self.database.ctl("bind-ls tor p4 4094 ls1", "unbind-ls tor p1 10")
        self.wait_places({**places, HOST: (4094, 5001), THIRD: (4091, 5003)})
        # Two with one tag: it is nobody's.
        self.database.ctl("bind-ls tor p5 4093 ls1", "bind-ls tor p3 7 ls4", "bind-ls tor p3 6 ls4")
        self.wait_places({
            HOST: (4094, 5001), OTHER: (4092, 5002), THIRD: (4091, 5003),
            "02:00:00:00:00:04": (6, 5004),
        })  # fmt: skip

    def test_with_one_vni(self):
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.wait_places({HOST: (10, 5001)})
        self.add_switches(("ls0", 5001, ["p1 20"], OTHER))
        wait_for("a problem", lambda: "VNI" in str(self.agent.problems()))
        self.wait_places({HOST: (10, 5001)})
        self.database.set_key("ls1", 5009)
        self.wait_places({HOST: (10, 5009), OTHER: (20, 5001)})
        self.assertEqual(self.agent.problems(), {})

    def test_have_our_address(self):
        self.database.ctl(
            "add-mcast-remote ls1 unknown-dst 192.0.2.1",
            "add-mcast-remote ls1 unknown-dst 192.0.2.2",
        )
        for addresses, ours, wrong in (
            ("192.0.2.2", "192.0.2.2", None),
            ('"2001:db8::1",192.0.2.1,banana', "192.0.2.1", "banana"),
            ("banana", "192.0.2.1", "banana"),
            ('"2001:db8::1"', "192.0.2.1", ""),
            ("192.0.2.2", "192.0.2.2", None),
        ):
            with self.subTest(addresses=addresses):
                self.database.ctl(f"set Physical_Switch tor tunnel_ips={addresses}")
                place = "Physical_Switch tor: tunnel_ips"
                wait_for(
                    "the problem",
                    lambda: self.agent.problems().get(place, {}).get("value") == wrong,
                )
                others = {"192.0.2.1", "192.0.2.2"} - {ours}
                self.wait_floods({(5001, BROADCAST): (TO_ANY, sorted(others))})
                values = [line["value"] for line in self.agent.recorded("vti/Vxlan1")]
                told = [each["localVtepAddr"] for each in values if "localVtepAddr" in each]
                self.assertEqual(told[-1], ours)


class Floods(FollowTest):
    def test_grow_and_shrink(self):
        group = "01:00:5e:00:00:05"
        self.database.ctl("set Logical_Switch ls1 replication_mode=source_node")
        for commands, told in (
            ("add 10.0.0.3", ["10.0.0.3"]),
            ("add 192.0.2.1, add 10.0.0.2", ["10.0.0.2", "10.0.0.3"]),
            ("add 10.0.0.10, del 10.0.0.3", ["10.0.0.2", "10.0.0.10"]),
            ("del 10.0.0.2, del 10.0.0.10, add 10.0.0.4", ["10.0.0.4"]),
            ("del 10.0.0.4", None),
        ):
            words = [each.split() for each in commands.split(",")]
            self.database.ctl(*(
                f"{verb}-mcast-remote ls1 {mac} {vtep}"
                for mac in ("unknown-dst", group) for verb, vtep in words
            ))  # fmt: skip
            both = {(5001, mac): (TO_ALL, told) for mac in (group, BROADCAST)}
            self.wait_floods(both if told else {})
        self.check_members_stay(f"controller/5001/flood/{BROADCAST}")

    def check_members_stay(self, path):
        """Until the delay is over, and only then they leave."""
        written = self.agent.recorded(path)
        self.assertEqual(
            [list(line.get("value", [])) for line in written],
            [
                ["10.0.0.3"],
                ["10.0.0.2", "10.0.0.3"],
                ["10.0.0.2", "10.0.0.3", "10.0.0.10"],
                ["10.0.0.2", "10.0.0.10"],
                ["10.0.0.2", "10.0.0.4", "10.0.0.10"],
                ["10.0.0.4"],
                [],
            ],
        )
        times = [line["at"] for line in written]
        for grown, shrunk in ((2, 3), (4, 5)):
            self.assertGreaterEqual(times[shrunk] - times[grown], DELAY - 0.01)

    def test_are_united(self):
        """Of rows that mean the same MAC."""
        self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.3")
        self.database.ctl(f"add-mcast-remote ls1 {BROADCAST} 10.0.0.2")
        self.wait_floods({(5001, BROADCAST): (TO_ANY, ["10.0.0.2", "10.0.0.3"])})
        self.database.transact(*self.database.deletion("unknown-dst", table="Mcast_Macs_Remote"))
        self.wait_floods({(5001, BROADCAST): (TO_ANY, ["10.0.0.2"])})

    def test_are_never_without_a_set(self):
        """While the mode goes back and forth."""
        self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.3")
        for mode, kind in (
            ("=source_node", TO_ALL),
            ("=service_node", TO_ANY),
            ("=source_node", TO_ALL),
            (None, TO_ANY),
        ):
            self.database.ctl(
                f"set Logical_Switch ls1 replication_mode{mode}" if mode
                else "clear Logical_Switch ls1 replication_mode"
            )  # fmt: skip
            self.wait_floods({(5001, BROADCAST): (kind, ["10.0.0.3"])})
        self.agent.wait_quiet()
        steps = [
            any(each.get("mac") == BROADCAST for each in step["l2rib"]["floodSets"] or [])
            for step in self.agent.replayed_steps()
        ]
        self.assertTrue(steps[-1])
        self.assertNotIn(False, steps[steps.index(True) :])


class BadRows(FollowTest):
    def test_are_skipped_told_and_cured(self):
        database = self.database
        good = hosts_of(2, ("10.0.0.2", "10.0.0.3"))
        zero, group = "00:00:00:00:00:00", "01:00:5e:00:00:01"
        macs = ("not-a-mac", "02:00:00:00:00", "2:0:0:0:0:1", zero, group, "")
        vteps = ("banana", "2001:db8::7", "0.0.0.0", "224.0.0.1", "", "10.0.0.256")
        nameless = {f"02:00:00:00:01:{number:02x}": vtep for number, vtep in enumerate(vteps)}
        database.ctl(
            "add-ls ls2", "bind-ls tor p1 20 ls2", "add-ls ls3", "bind-ls tor p1 30 ls3",
            "bind-ls tor p1 4095 ls3", "set Logical_Switch ls2 tunnel_key=-7",
            "set Logical_Switch ls3 tunnel_key=16777216",
        )  # fmt: skip
        for mac in ("unknown-dst", "unknown"):
            database.ctl(f"add-mcast-remote ls1 {mac} 10.0.0.3")
        database.announce("ls1", {**dict.fromkeys(macs, "10.0.0.2"), **nameless, **good})
        self.agent.wait_hosts(good)
        self.wait_floods({(5001, BROADCAST): (TO_ANY, ["10.0.0.3"])})
        expected = {
            *(("Ucast_Macs_Remote", "MAC", mac) for mac in macs),
            *(("Physical_Locator", "dst_ip", vtep) for vtep in vteps),
            ("Mcast_Macs_Remote", "MAC", "unknown"),
            ("Logical_Switch", "tunnel_key", "-7"),
            ("Logical_Switch", "tunnel_key", "16777216"),
            ("Physical_Port", "vlan_bindings", "4095"),
        }

        def told():
            places = {what: each["value"] for what, each in self.agent.problems().items()}
            return {(what.split()[0], what.split()[-1], value) for what, value in places.items()}

        wait_for("all problems", lambda: told() == expected)
        # Read anew, they are no news.
        self.server.kill()
        wait_for("the loss", lambda: self.agent.status()["converging"])
        self.server.start()
        self.agent.wait_in_sync()
        self.assertEqual(told(), expected)
        said = self.agent.process.said()
        for table, column, value in expected:
            lines = [line for line in said.splitlines() if f"{column} is \"{value}\"" in line]
            self.assertEqual(len(lines), 1 if value else 0, (table, column, value))
        # All is well in the end.
        database = self.connect(self.server)
        for number, mac in enumerate(macs):
            cured = f"02:00:00:00:02:{number:02x}"
            database.transact({
                "op": "update", "table": "Ucast_Macs_Remote", "where": [["MAC", "==", mac]],
                "row": {"MAC": cured},
            })  # fmt: skip
            good[cured] = "10.0.0.2"
        for mac in nameless:
            database.transact(*database.modification(mac, "10.0.0.4"))
            good[mac] = "10.0.0.4"
        database.ctl(
            "del-mcast-remote ls1 unknown 10.0.0.3", "unbind-ls tor p1 4095",
            "set Logical_Switch ls2 tunnel_key=5002", "set Logical_Switch ls3 tunnel_key=5003",
        )  # fmt: skip
        self.agent.wait_hosts(good)
        wait_for("no problem", lambda: not self.agent.problems())
        self.assertEqual(self.agent.status()["vnis"], 3)


class Operator(FollowTest):
    """What the command line and the control socket take."""

    def test_asks(self):
        self.database.announce("ls1", {HOST: "10.0.0.2", OTHER: "10.0.0.3", "rubbish": "10.0.0.3"})
        self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.3")
        self.wait_floods({(5001, BROADCAST): (TO_ANY, ["10.0.0.3"])})
        self.agent.wait_hosts({HOST: "10.0.0.2", OTHER: "10.0.0.3"})
        self.assertEqual(stat.S_IMODE(self.agent.control.stat().st_mode), 0o600)
        tables = {
            "hosts": [
                ["mac", "vlan", "vni", "vtep", "marked", "waiting"],
                [HOST, "10", "5001", "10.0.0.2", "no", "no"],
                [OTHER, "10", "5001", "10.0.0.3", "no", "no"],
            ],
            "floods": [
                ["vlan", "vni", "mac", "type", "vteps"],
                ["10", "5001", BROADCAST, "sendToAny", "10.0.0.3"],
            ],
        }
        for what, table in tables.items():
            lines = self.agent.command(what).stdout.splitlines()
            self.assertEqual([line.split() for line in lines], table)
        for what, word in (("problems", "rubbish"), ("status", "in sync"), ("release", "no")):
            self.assertIn(word, self.agent.command(what).stdout)
            answer = self.agent.command(what, "--format=json")
            self.assertTrue(json.loads(answer.stdout))
        one = self.agent.command("hosts", "2:0:0:0:0:2", "--format=json").stdout
        self.assertEqual([json.loads(line)["mac"] for line in one.splitlines()], [OTHER])
        self.assertEqual(self.agent.command("hosts", "02:00:00:00:00:09").stdout, "none\n")

    def test_shows_a_part(self):
        self.database.announce("ls1", {HOST: "10.0.0.2", OTHER: "10.0.0.3"})
        self.database.ctl("add-mcast-remote ls1 unknown-dst 10.0.0.3")
        self.wait_floods({(5001, BROADCAST): (TO_ANY, ["10.0.0.3"])})
        self.agent.wait_hosts({HOST: "10.0.0.2", OTHER: "10.0.0.3"})
        for words, hosts, floods in (
            (("--vlan=10", "--vni=5001"), [HOST, OTHER], [BROADCAST]),
            (("--vlan=11",), [], []),
            (("--vtep=10.0.0.3",), [OTHER], [BROADCAST]),
            ((f"--mac={HOST}", f"--mac={BROADCAST}"), [HOST], [BROADCAST]),
            (("--vni=5001", "--vtep=10.0.0.2"), [HOST], []),
        ):
            found = [self.lines(what, *words) for what in ("hosts", "floods")]
            self.assertEqual([[each["mac"] for each in some] for some in found], [hosts, floods])
            (dump,) = self.lines("dump", *words)
            rib = dump["l2rib"]
            found = [[each.get("mac") for each in rib[what]] for what in ("hosts", "floodSets")]
            self.assertEqual(found, [hosts, floods], words)
            self.assertEqual(dump["switch"], "tor")
            self.assertTrue(dump["filter"])
        table = self.agent.command("dump", "--vtep=10.0.0.3").stdout
        self.assertRegex(table, "== running at .* s, filtered: VTEP 10.0.0.3\n")
        self.assertIn(OTHER, table)
        self.assertNotIn(HOST, table)
        macs = [f"--mac=02:00:00:00:{each:02x}:01" for each in range(250)]
        done = self.agent.command("hosts", *macs)
        self.assertEqual((done.returncode, "at most 4096" in done.stderr), (1, True), done)

    def lines(self, *words):
        done = self.agent.command(*words, "--format=json")
        self.assertEqual(done.returncode, 0, done)
        return [schemas.read(line, words[0]) for line in done.stdout.splitlines()]

    def test_is_compared(self):
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.agent.wait_hosts({HOST: "10.0.0.2"})
        self.agent.wait_quiet()
        saved = self.directory / "saved.json"
        saved.write_text(self.agent.command("dump", "--format=json").stdout)
        running = f"agent:{self.agent.control}"
        self.assertEqual(run_agent("diff", saved, running).returncode, 0)
        self.database.announce("ls1", {OTHER: "10.0.0.3"})
        self.agent.wait_hosts({HOST: "10.0.0.2", OTHER: "10.0.0.3"})
        done = run_agent("diff", saved, running)
        self.assertEqual(done.returncode, 1, done)
        self.assertIn(f"+  {OTHER}", done.stdout)
        self.assertIn(f"== {self.agent.control}: running at", done.stdout)
        self.assertEqual(run_agent("diff", saved, running, f"--mac={HOST}").returncode, 0)

    def test_is_refused(self):
        for question in (
            b"{}", b"what?", b'{"question": "weather"}', b"[" * 2000, b"\xff",
            b'{"question": "hosts", "vlan": 4095}', b'{"question": "hosts", "mac": ["02:00"]}',
            b'{"question": "status", "vni": 5001}', b'{"question": "hosts", "vtap": "10.0.0.2"}',
        ):  # fmt: skip
            self.assertIn("expected", self.agent.answer(question)[0]["error"])
        with self.assertRaises(ConnectionError):
            self.agent.answer(b"x" * 100000)
        done = run_agent("status", f"--control={self.directory}/none.sock")
        self.assertEqual(done.returncode, 1)
        self.assertIn("no agent answers at", done.stderr)
        run = ("run", f"--database={self.server.remote}", "--switch=tor")
        done = run_agent(*run, f"--control={self.agent.control}")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("another agent", done.stderr)
        for words, said in (
            (("run", "--database=banana", "--switch=tor"), "banana"),
            (run[:2], "--switch"),
            (run[::2], "--database"),
            ((*run, "--hold-above=2"), "2"),
            ((*run, "--withdraw-delay=-1"), "-1"),
            ((*run, "--data-plane=cloud"), "cloud"),
            ((*run, f"--config={self.directory}/none.toml"), "none.toml"),
            (("hosts", "--format=xml"), "xml"),
            (("hosts", "02:00"), "02:00"),
            (("dump", "--vlan=4095"), "4095"),
        ):
            done = run_agent(*words)
            self.assertEqual(done.returncode, 64, done)
            self.assertIn(said, done.stderr)
        self.assertEqual(self.agent.status()["database"]["state"], "in sync")

    def test_configures_and_stops(self):
        file = self.directory / "tor.toml"
        settings = {"database": self.server.remote, "switch": "tor", "withdraw-delay": 60}
        lines = [f"{name} = {json.dumps(value)}\n" for name, value in settings.items()]
        file.write_text("".join(lines))
        other = self.follow(None, f"--config={file}", name="other")
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        for agent in (self.agent, other):
            agent.wait_hosts({HOST: "10.0.0.2"})
        self.database.withdraw(HOST)
        self.agent.wait_hosts({})
        self.assertTrue(other.ask("hosts")[0]["waiting"])
        self.assertEqual(self.agent.process.end(signal.SIGTERM), 143)
        self.assertEqual(other.process.end(signal.SIGINT), 130)
        self.assertFalse(self.agent.control.exists())
        file.write_text("".join([*lines, "colour = 1\n"]))
        done = run_agent("run", f"--config={file}")
        self.assertEqual(done.returncode, 64, done)
        self.assertIn("colour", done.stderr)

if __name__ == "__main__":
    unittest.main()
