"""Alert rules and dashboard: their metrics are those of an agent, and each alert fires when it
should."""

import json
import pathlib
import re
import subprocess
import unittest

from harness import PATIENCE, wait_for
from kernel import KernelTest, bridge
from metrics import OPEN_METRICS, families, free_port, request

FOLDER = pathlib.Path(__file__).parents[2] / "monitoring"
METRIC = re.compile(r"\b(?:vxlan_agent|process)_\w+")


def promtool(*words, **options):
    run = ["promtool", *words]
    return subprocess.run(
        run, cwd=FOLDER, capture_output=True, text=True, timeout=PATIENCE, **options
    )


def alerts():
    """{name: its text}."""
    parts = re.split(r"- alert: (\w+)", (FOLDER / "alerts.yml").read_text())[1:]
    return dict(zip(parts[::2], parts[1::2]))


def panels():
    return json.loads((FOLDER / "dashboard.json").read_text())["panels"]


class Alerts(unittest.TestCase):
    def test_fire_when_they_should(self):
        for check in (("check", "rules", "alerts.yml"), ("test", "rules", "alerts-test.yml")):
            done = promtool(*check)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        tests = (FOLDER / "alerts-test.yml").read_text()
        self.assertEqual(set(re.findall(r'alertname="(\w+)"', tests)), set(alerts()))

    def test_say_what_to_do(self):
        for name, text in alerts().items():
            for key in ("severity", "summary", "description", "run"):
                self.assertIn(f" {key}: ", text, name)
            self.assertIn(f"`{name}`", (FOLDER / "README.md").read_text())


class Dashboard(unittest.TestCase):
    def test_is_laid_out(self):
        """No two panels have an id or a place in common, and none is outside."""
        places, ids = set(), set()
        for panel in panels():
            ids.add(panel["id"])
            at = panel["gridPos"]
            self.assertLessEqual(at["x"] + at["w"], 24, panel["title"])
            cells = {
                (x, y)
                for x in range(at["x"], at["x"] + at["w"])
                for y in range(at["y"], at["y"] + at["h"])
            }
            self.assertFalse(cells & places, panel["title"])
            places |= cells
        self.assertEqual(len(ids), len(panels()))

    def test_has_expressions(self):
        """That are ones, once its variables have values."""
        targets = [target["expr"] for panel in panels() for target in panel.get("targets", ())]
        self.assertGreater(len(targets), 20)
        expressions = [each.replace("$__rate_interval", "5m") for each in targets]
        rules = [{"record": f"x:{at}", "expr": each} for at, each in enumerate(expressions)]
        done = promtool("check", "rules", "/dev/stdin", input=json.dumps(
            {"groups": [{"name": "dashboard", "rules": rules}]}
        ))  # fmt: skip
        self.assertIn(f"{len(rules)} rules found", done.stdout, done.stderr)


class Metrics(KernelTest):
    """Of an agent that has all of them: a kernel, a hold, a recording and a ring."""

    def setUp(self):
        super().setUp()
        server = self.serve()
        self.database = self.connect(server)
        self.publish_switch(self.database)
        self.port = free_port()
        self.agent = self.follow(
            server.remote, f"--metrics={self.port}", f"--ring={self.directory}",
            "--withdraw-delay=0", "--hold-min=0", "--hold-time=0",
        )  # fmt: skip
        hosts = {"02:00:00:00:00:01": "10.0.0.2"}
        self.database.announce("ls1", hosts)
        self.agent.wait_hosts(hosts)
        self.database.withdraw(*hosts)
        self.agent.wait_held()

    def test_are_well_made_and_those_that_are_used_and_described(self):
        text = request(self.port)[1]
        done = promtool("check", "metrics", input=text)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))
        told = families(request(self.port, accept=OPEN_METRICS)[1], OPEN_METRICS)
        for family in told:
            self.assertTrue(family.documentation and family.samples, family.name)
        names = {sample.name for family in told for sample in family.samples}
        for file in ("alerts.yml", "alerts-test.yml", "dashboard.json"):
            used = set(METRIC.findall((FOLDER / file).read_text()))
            self.assertGreater(len(used), 5)
            self.assertEqual(used - names, set(), file)
        described = set(METRIC.findall((FOLDER.parent / "docs/live.md").read_text()))
        self.assertEqual({re.sub("_(bucket|count|sum)$", "", each) for each in names}, described)


if __name__ == "__main__":
    unittest.main()
