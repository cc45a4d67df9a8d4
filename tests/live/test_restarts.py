"""Controllers, database servers and agents that stop, crash and come back, in every order."""

import datetime
import json
import unittest

from harness import BROADCAST, SCHEMA, LiveTest, hosts_of, wait_for

HOSTS = hosts_of(1000, ("10.0.0.2", "10.0.0.3"))
HALF = dict(list(HOSTS.items())[:500])
FLOODS = {(5001, BROADCAST): (2, ["10.0.0.2", "10.0.0.3"])}
# Even on a slow machine, 300 deletions that are a transaction each come together.
DELAY = "--withdraw-delay=1"


class RestartTest(LiveTest):
    """A thousand hosts and a flood list in VNI 5001, and an agent that has them."""

    options = (DELAY, "--settle=1")

    def setUp(self):
        super().setUp()
        self.server = self.serve()
        self.database = self.connect(self.server)
        self.publish_switch(self.database)
        self.publish()
        self.agent = self.follow(self.server.remote, *self.options)
        self.agent.wait_hosts(HOSTS)
        self.agent.wait_in_sync()

    def publish(self, hosts=HOSTS):
        """Them and the list, as a controller does that starts."""
        self.database.set_key("ls1", 5001)
        (_, vteps), = FLOODS.values()
        self.database.ctl(*(f"add-mcast-remote ls1 unknown-dst {vtep}" for vtep in vteps))
        self.database.announce("ls1", hosts)

    def stop_controller(self):
        """As one that stops in peace: row by row, and the key of the switch at last."""
        rows = [self.database.deletion(mac) for mac in HOSTS]
        rows.append(self.database.deletion("unknown-dst", table="Mcast_Macs_Remote"))
        rows.append([self.database.key("ls1", None)])
        for first in range(0, len(rows), 400):
            self.database.transact_each(rows[first : first + 400])
            self.check_kept()
        self.agent.wait_held()
        wait_for("all marks", lambda: self.check_kept() or self.agent.marked() == set(HOSTS))

    def check_kept(self, hosts=HOSTS):
        """Whatever happens to the database, the agent has them still."""
        self.assertEqual(self.agent.hosts(), hosts)
        self.assertEqual(self.agent.floods(), FLOODS)

    def wait_lost(self, hosts=HOSTS):
        wait_for("the loss", lambda: self.agent.status()["database"]["state"] != "in sync")
        self.assertTrue(self.agent.status()["converging"])
        self.check_kept(hosts)

    def start_server(self):
        self.server.start()
        self.database = self.connect(self.server)


class Controller(RestartTest):
    options = (DELAY, "--settle=2")

    def test_brings_all_back(self):
        self.stop_controller()
        self.check_recording(self.agent)
        status = self.agent.status()
        self.assertEqual((status["converging"], status["hold"]["waiting"]), (True, len(HOSTS)))
        self.assertIn("hold", status["because"])
        self.publish()
        self.check_kept()
        self.agent.wait_released()
        self.check_kept()
        self.assertEqual((self.agent.marked(), self.agent.status()["converging"]), (set(), False))
        # All withdrawals came while the client was told to keep what they take away.
        lines = self.agent.recorded()
        told = [at for at, line in enumerate(lines) if "controllerState" in line.get("set", "")]
        outside = lines[: told[-2]] + lines[told[-1] :]
        self.assertEqual([line for line in outside if "del" in line], [])
        self.assertEqual(set(self.agent.withdrawn()), set(HOSTS))
        self.assertEqual(len(self.agent.recorded("vlanVniMap")), 1)
        self.check_report(status["hold"]["since"])

    def check_report(self, since):
        """It tells one hold, begun `since`, within which all hosts were marked and none was lost."""
        report = self.agent.ask("report")[0]
        ((began, ended),) = report["windows"]["holds"]["rows"]
        told = datetime.datetime.fromisoformat(since[:26] + "+00:00").timestamp()
        self.assertAlmostEqual(report["epoch"] + began, told, delta=0.05)
        self.assertGreater(ended, began)
        rows = [row for row in report["state"] if row[0] >= began]
        self.assertEqual((min(row[4] for row in rows), max(row[8] for row in rows)), (len(HOSTS),) * 2)
        self.assertEqual((rows[-1][3], rows[-1][6]), (len(HOSTS), 0))
        page = self.directory / "tor.html"
        self.assertEqual(self.agent.command("report", page).returncode, 0)
        self.assertIn('"title":"tor"', page.read_text())

    def test_brings_half_back(self):
        """Its database has been restarted, too."""
        self.stop_controller()
        self.server.kill()
        self.wait_lost()
        self.start_server()
        self.publish(HALF)
        wait_for("half of them", lambda: self.agent.marked() == set(HOSTS) - set(HALF))
        self.check_kept()
        self.check_recording(self.agent)
        self.agent.wait_released()
        self.assertEqual((self.agent.hosts(), self.agent.floods()), (HALF, FLOODS))

    def test_brings_nothing_back(self):
        self.stop_controller()
        self.assertIn("yes", self.agent.command("release").stdout)
        self.agent.wait_released()
        self.assertEqual((self.agent.hosts(), self.agent.floods()), ({}, {}))
        wait_for("the VNI to go", lambda: self.agent.status()["vnis"] == 0)
        self.assertIn("no", self.agent.command("release").stdout)

    def test_withdraws_some(self):
        """How many of how many, in one transaction, begin a hold: more than both bounds."""
        for number, gone, is_held in ((20, 20, False), (100, 30, False), (100, 31, True)):
            with self.subTest(number=number, gone=gone):
                self.database.ctl("unbind-ls tor p1 10")
                self.agent.wait_hosts({})
                self.database.ctl("clear-remote-macs ls1")
                published = hosts_of(number)
                self.database.announce("ls1", published)
                self.database.ctl("bind-ls tor p1 10 ls1")
                self.agent.wait_hosts(published)
                self.assertNotIn("a hold", self.agent.process.said())
                self.database.withdraw(*list(published)[:gone])
                if is_held:
                    self.agent.wait_held()
                    self.assertEqual(self.agent.hosts(), published)
                    self.agent.command("release")
                self.agent.wait_hosts(dict(list(published.items())[gone:]))
        self.assertEqual(self.agent.process.said().count("a hold:"), 1)

    def test_is_not_the_operator(self):
        """What is taken away on purpose goes, however much it is."""
        steps = (
            ("unbind-ls tor p1 10", "bind-ls tor p1 10 ls1"),
            ("del-port tor p1", "add-port tor p1 -- bind-ls tor p1 10 ls1"),
            ("del-ps tor", "add-ps tor -- add-port tor p1 -- bind-ls tor p1 10 ls1"),
        )
        for take, give in steps:
            self.database.ctl(take)
            self.agent.wait_hosts({})
            self.assertEqual(self.agent.floods(), {})
            self.database.ctl(give)
            self.agent.wait_hosts(HOSTS)
        self.assertNotIn("a hold", self.agent.process.said())


class ControllerThatStaysAway(RestartTest):
    options = (DELAY, "--settle=1", "--hold-time=4")

    def test_is_waited_for(self):
        self.stop_controller()
        self.assertTrue(self.agent.status()["hold"]["ends"])
        self.agent.wait_released()
        self.assertEqual((self.agent.hosts(), self.agent.floods()), ({}, {}))


class Crash(RestartTest):
    def test_of_server_and_agent(self):
        """What has changed meanwhile is seen when both run again, and what the agent had is in the
        recording that it has left."""
        published = dict(HOSTS)
        for crashed in ({"server"}, {"agent"}, {"server", "agent"}):
            with self.subTest(crashed=crashed):
                gone, moved = list(published)[:2]
                operations = [
                    *self.database.deletion(gone), *self.database.modification(moved, "10.0.0.9")
                ]  # fmt: skip
                if "agent" in crashed:
                    self.agent.process.kill()
                if "server" in crashed:
                    self.server.kill()
                    self.server.transact(*operations)
                else:
                    self.database.transact(*operations)
                if "agent" in crashed:
                    self.agent.start()
                    before = self.agent.replayed(age=1)["l2rib"]["hosts"]
                    self.assertEqual({each["mac"]: each["vtep"] for each in before}, published)
                else:
                    self.wait_lost(published)
                if "server" in crashed:
                    self.start_server()
                del published[gone]
                published[moved] = "10.0.0.9"
                self.agent.wait_hosts(published)
                self.agent.wait_in_sync()
                self.assertEqual((self.agent.floods(), self.agent.problems()), (FLOODS, {}))
                self.check_recording(self.agent)

    def test_of_a_server_that_comes_back_empty(self):
        self.server.kill()
        self.server.create()
        self.start_server()
        self.check_empty_database()

    def test_of_a_database_while_its_server_runs(self):
        self.server.manage("ovsdb-server/remove-db", "hardware_vtep")
        self.wait_lost()
        self.server.create()
        self.server.manage("ovsdb-server/add-db", self.server.file)
        self.check_empty_database()

    def check_empty_database(self):
        """Without our switch it says nothing. With it, and with half of the hosts, it looks like
        one that is being filled."""
        place = "Physical_Switch tor"
        wait_for("the problem", lambda: place in self.agent.problems())
        self.assertIn(place, self.agent.status()["because"])
        self.check_kept()
        self.check_recording(self.agent)
        self.database = self.connect(self.server)
        self.publish_switch(self.database)
        self.agent.wait_held()
        self.check_kept()
        self.publish(HALF)
        wait_for("half", lambda: self.agent.marked() == set(HOSTS) - set(HALF))
        self.check_kept()
        self.agent.wait_hosts(HALF)

    def test_of_a_server_with_another_schema(self):
        lacking = json.loads(SCHEMA.read_text())
        del lacking["cksum"], lacking["tables"]["Ucast_Macs_Remote"]["columns"]["locator"]
        column = {"columns": {"name": {"type": "string"}}}
        other = {"name": "other", "version": "1.0.0", "tables": {"Table": column}}
        original = self.server.file.read_bytes()
        for schema, word in ((other, "hardware_vtep"), (lacking, "Ucast_Macs_Remote.locator")):
            with self.subTest(word=word):
                self.server.kill()
                file = self.directory / "other.ovsschema"
                file.write_text(json.dumps(schema))
                self.server.create(file)
                self.server.start()
                wait_for("the problem", lambda: word in str(self.agent.problems()))
                self.check_kept()
        self.server.kill()
        self.server.file.write_bytes(original)
        self.start_server()
        self.agent.wait_in_sync()
        self.check_kept()
        self.assertEqual(self.agent.problems(), {})

    def test_of_a_server_that_freezes(self):
        """Only the agent's own probe finds it."""
        self.server.process.freeze()
        self.wait_lost()
        self.assertIn("silence", str(self.agent.problems()))
        self.server.process.thaw()
        self.database.withdraw("02:00:00:00:00:01")
        self.agent.wait_in_sync()
        wait_for("the change", lambda: len(self.agent.hosts()) == len(HOSTS) - 1)


class Recording(RestartTest):
    options = (DELAY, "--settle=600", "--hold-time=0", "--record-size=1")

    def test_begins_anew(self):
        """Each file replays by itself: marks, withdrawn members of lists, all."""
        self.churn(HOSTS)
        self.check_recording(self.agent)
        half = [mac for mac in HOSTS if mac not in HALF]
        self.database.withdraw(*half)
        self.database.ctl("del-mcast-remote ls1 unknown-dst 10.0.0.2")
        self.agent.wait_held()
        path = f"controller/5001/multipath/{BROADCAST}"
        wait_for("the list", lambda: self.agent.recorded(path)[-1]["value"] == ["10.0.0.3"])
        self.assertEqual(self.agent.floods(), FLOODS)
        self.churn(HALF)
        self.assertEqual(self.agent.marked(), set(half))
        self.check_recording(self.agent)
        self.churn(HALF)
        self.check_recording(self.agent)
        self.agent.command("release")
        self.agent.wait_released()
        self.assertEqual(set(self.agent.hosts()), set(HALF))

    def churn(self, hosts):
        """Moves them to and fro until a new file is begun."""
        begun = self.agent.recording.stat().st_ino
        for turn in range(100):
            vtep = f"10.0.1.{turn}"
            self.database.move_all("ls1", vtep)
            moved = dict.fromkeys(hosts, vtep)
            wait_for("the move", lambda: moved.items() <= self.agent.hosts().items())
            if self.agent.recording.stat().st_ino != begun:
                return
        self.fail("the recording is never begun anew")


if __name__ == "__main__":
    unittest.main()
