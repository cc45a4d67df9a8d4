"""What `vxlan-agent explain` tells of the hosts of a running agent, from the database to the kernel."""

import json
import unittest

from harness import hosts_of
from kernel import KernelTest, await_equal, bridge

HOST, FORBIDDEN = "02:00:00:00:00:01", "02:00:00:bb:00:01"
CROWD = hosts_of(40, ("10.0.0.2", "10.0.0.3"))


class Explain(KernelTest):
    def setUp(self):
        super().setUp()
        self.server = self.serve()
        self.database = self.connect(self.server)
        self.publish_switch(self.database)
        self.agent = self.follow(self.server.remote, "--withdraw-delay=1", "--settle=1")
        self.agent.wait_in_sync()

    def explain(self, mac, *options):
        done = self.agent.command("explain", mac, "--format=json", *options)
        self.assertEqual(done.returncode, 0, done.stderr)
        return [json.loads(line) for line in done.stdout.splitlines()]

    def story(self, mac):
        return [line["event"] for line in self.explain(mac) if "event" in line]

    def verdict(self, mac):
        return {line["verdict"]: line["text"] for line in self.explain(mac) if "verdict" in line}

    def wait_story(self, mac, *behind):
        """Until it ends so."""
        await_equal(lambda: self.story(mac)[-len(behind) :], list(behind))

    def test_a_host_from_the_database_to_the_kernel_and_back(self):
        self.assertEqual(self.verdict(HOST), {"notAnnounced": "no VNI announces it"})
        self.database.announce("ls1", {HOST: "10.0.0.2"})
        self.wait_story(HOST, "announced", "came", "copied", "programmed")
        self.database.transact(*self.database.modification(HOST, "10.0.0.3"))
        self.wait_story(HOST, "announcedElsewhere", "moved", "copied", "programmed")
        line = next(each for each in self.explain(HOST) if each.get("event") == "moved")
        self.assertEqual(
            (line["vlan"], line["from"], line["vtep"]), (10, "10.0.0.2", "10.0.0.3"), line)
        bridge(f"fdb del {HOST} dev vx5001 dst 10.0.0.3 self")
        self.wait_story(HOST, "putBack", "programmed")
        now, *verdict = self.agent.command("explain", HOST).stdout.splitlines()[-3:]
        self.assertRegex(now, "^now, at [-0-9]+ [:.0-9]+:$")
        self.assertEqual(verdict, ["  VNI 5001: in the RIB: VLAN 10 behind 10.0.0.3",
                                   "  VNI 5001: programmed into the kernel"])  # fmt: skip
        self.database.withdraw(HOST)
        self.wait_story(HOST, "waiting", "withdrawn", "deleted", "removed", "unprogrammed")
        self.assertEqual(self.verdict(HOST), {"notAnnounced": "no VNI announces it"})
        self.assertEqual(self.explain("02:00:00:00:00:99")[0]["verdict"], "notAnnounced")

    def test_a_host_that_is_held(self):
        self.database.announce("ls1", CROWD)
        self.agent.wait_hosts(CROWD)
        self.database.withdraw(*CROWD)
        self.agent.wait_held()
        self.wait_story(HOST, "converging", "withdrawn", "marked")
        self.assertIn("waiting", self.story(HOST))
        self.assertIn("hold", self.story(HOST))
        self.assertIn("marked for deletion", self.verdict(HOST)["kept"])
        self.agent.command("release")
        self.agent.wait_released()
        self.wait_story(HOST, "unprogrammed")
        deleted = next(each for each in self.explain(HOST) if each.get("event") == "deleted")
        self.assertIn("by the deferred deletion", deleted["text"])
        self.assertGreaterEqual(deleted["after"], 0)

    def test_a_host_that_the_kernel_refuses(self):
        bridge(f"fdb add {FORBIDDEN} dev vx5001 dst 10.9.9.9 self static")
        self.database.announce("ls1", {FORBIDDEN: "10.0.0.2"})
        self.wait_story(FORBIDDEN, "refused")
        self.assertIn("not in the kernel: ", self.verdict(FORBIDDEN)["kernel"])
        bridge(f"fdb del {FORBIDDEN} dev vx5001 dst 10.9.9.9 self")
        self.wait_story(FORBIDDEN, "programmed")

    def test_wrong_questions(self):
        for words in (["02:00"], [HOST, "--vlan=4095"], [HOST, "--vni=0"]):
            with self.subTest(words):
                done = self.agent.command("explain", *words)
                self.assertEqual(done.returncode, 64, done)
                self.assertIn("expected", done.stderr)
        self.assertIn("expected one MAC", self.agent.answer(b'{"question": "explain"}')[0]["error"])


if __name__ == "__main__":
    unittest.main()
