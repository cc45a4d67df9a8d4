"""The agent and clusters of database servers; the agent and servers that TCP and TLS lead to."""

import unittest

from cluster import Authority, Cluster, port_of
from harness import LiveTest, Process, hosts_of, wait_for

WHOLE = "tells all of its state"
CHANGES = "tells what has changed"


class ClusterTest(LiveTest):
    def setUp(self):
        super().setUp()
        self.cluster = Cluster(self.directory)
        self.addCleanup(self.cluster.kill)
        self.leader = self.cluster.leader()
        # The agent begins with the first of its remotes.
        members = [self.leader, *self.cluster.others(self.leader)]
        self.remotes = ",".join(each.remote for each in members)
        database = self.connect(self.leader)
        self.publish_switch(database)
        self.hosts = hosts_of(30)
        database.announce("ls1", self.hosts)
        self.agent = self.follow(self.remotes)
        self.agent.wait_hosts(self.hosts)
        self.assertEqual(self.agent.status()["database"]["remote"], self.leader.remote)

    def announce_by(self, member, number):
        more = hosts_of(number, vteps=("10.0.0.3",), first=1000)
        self.hosts = {**self.hosts, **more}
        self.connect(member).announce("ls1", more)

    def check_that_it_resumed(self):
        """It knew the state, and took on what had changed; nothing was withdrawn meanwhile."""
        self.agent.wait_hosts(self.hosts)
        self.agent.wait_in_sync()
        self.assertEqual(self.agent.process.said().count(WHOLE), 1)
        self.assertGreaterEqual(self.agent.process.said().count(CHANGES), 1)
        self.assertEqual(self.agent.withdrawn(), [])

    def lose_the_leader(self, lose):
        lose(self.leader.process)
        others = self.cluster.others(self.leader)
        self.announce_by(self.cluster.leader(others), 5)
        self.check_that_it_resumed()
        self.assertIn(self.agent.status()["database"]["remote"], [each.remote for each in others])

    def test_a_leader_that_is_killed(self):
        self.lose_the_leader(Process.kill)

    def test_a_leader_that_falls_silent(self):
        self.lose_the_leader(Process.freeze)
        self.assertIn("expected an answer to the probe", self.agent.process.said())

    def test_a_lost_quorum(self):
        others = self.cluster.others(self.leader)
        for each in others:
            each.kill()
        wait_for("the loss to be noticed", lambda: self.agent.status()["converging"])
        late = self.follow(self.remotes, name="late")
        for agent in (self.agent, late):
            said = agent.process.said
            wait_for("the quorum to be missed", lambda said=said: "no quorum" in said())
        self.assertEqual(late.hosts(), {})
        self.assertTrue(late.status()["converging"])
        self.assertEqual(self.agent.hosts(), self.hosts)

        others[0].start()
        self.announce_by(self.cluster.leader([self.leader, others[0]]), 5)
        late.wait_hosts(self.hosts)
        late.wait_in_sync()
        self.check_that_it_resumed()
        self.assertEqual(self.agent.problems(), {})

    def test_every_member_gone_and_back(self):
        self.cluster.kill()
        wait_for("the loss to be noticed", lambda: self.agent.status()["converging"])
        self.assertEqual(self.agent.hosts(), self.hosts)
        for each in self.cluster.members:
            each.start()
        self.announce_by(self.cluster.leader(), 5)
        self.agent.wait_hosts(self.hosts)
        self.agent.wait_in_sync()
        self.assertEqual(self.agent.withdrawn(), [])


class RemotesTest(LiveTest):
    def serve_at(self, *options):
        server = self.serve()
        server.kill()
        server.start(*options)
        self.publish_switch(self.connect(server))
        self.connect(server).announce("ls1", hosts_of(3))
        return port_of(server)

    def test_tcp(self):
        port = self.serve_at("--remote=ptcp:0:127.0.0.1")
        for host in ("127.0.0.1", "localhost"):
            self.follow(f"tcp:{host}:{port}", name=host).wait_hosts(hosts_of(3))

    def test_tls(self):
        ours, theirs = (Authority(self.directory, name) for name in ("ours", "theirs"))
        port = self.serve_at("--remote=pssl:0:127.0.0.1", *ours.options("server"))
        remote = f"ssl:127.0.0.1:{port}"
        good = ours.options("agent")
        self.follow(remote, *good).wait_hosts(hosts_of(3))

        plain = self.serve_plainly()
        for name, remote, options, problem in (
            ("wrong-server", remote, theirs.options("stranger"), "certificate verify failed"),
            ("wrong-client", remote, [*theirs.options("other")[:2], good[2]], "unknown ca"),
            ("no-tls", plain, good, "expected a TLS server"),
        ):
            with self.subTest(name):
                agent = self.follow(remote, *options, name=name)
                said = wait_for("a problem", lambda: agent.problems().get(f"database {remote}"))
                self.assertIn(problem, f"{said['value']} {said['why']}")
                self.assertEqual(agent.hosts(), {})
                self.assertTrue(agent.status()["converging"])

    def serve_plainly(self):
        """A server that does not speak TLS where TLS is expected."""
        server = self.serve("plain")
        server.kill()
        return f"ssl:127.0.0.1:{port_of(server.start('--remote=ptcp:0:127.0.0.1'))}"


if __name__ == "__main__":
    unittest.main()
