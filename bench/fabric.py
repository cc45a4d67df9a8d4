"""What the benchmarks of the running agent have in common: their arguments, a real database server
with its hosts, and what reads and parses the same as the agent."""

import argparse
import os
import pathlib
import statistics
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
SWITCHES, HOSTS, MOVED = 100, 1000, 10  # switches, hosts of each, switches whose hosts move
ALL = SWITCHES * HOSTS
VTEPS = [f"10.0.{number // 250}.{1 + number % 250}" for number in range(64)]


def parse_arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", nargs="?", default=ROOT / "build/release", type=pathlib.Path, metavar="BUILD")
    parser.add_argument("--idle", default=60, type=float, metavar="SECONDS")
    parser.add_argument("--rounds", default=7, type=int, metavar="NUMBER")
    return parser.parse_args()


arguments = parse_arguments()
PROGRAMS = arguments.build.resolve() / "bin"
sys.path.insert(0, str(ROOT / "tests/live"))
os.environ["VXLAN_AGENT"] = str(PROGRAMS / "vxlan-agent")

from harness import Agent, Database, Process, Server, hosts_of, wait_for  # noqa: E402


def row(work, measured, yardstick="", ratio="", wanted=""):
    print(f"| {work} | {measured} | {yardstick} | {ratio} | {wanted} |", flush=True)


def milliseconds(times):
    return f"{statistics.median(times) * 1000:.0f} ms"


def compared(work, pairs, wanted):
    """Pairs of seconds, the agent's and the yardstick's."""
    ratio = statistics.median(ours / theirs for ours, theirs in pairs)
    row(work, *(milliseconds(times) for times in zip(*pairs)), f"{ratio:.2f}", wanted)


class Plain(Agent):
    """One that records nothing."""

    def __init__(self, directory, remote, name, *options):
        self.control = directory / f"{name}.sock"
        self._start = lambda: Process(
            name, directory, os.environ["VXLAN_AGENT"], "run", f"--database={remote}",
            "--switch=tor", f"--control={self.control}", *options,
        )  # fmt: skip
        self.start()


class Fabric:
    """A database server with all hosts, agents that follow it, and what reads it as they do."""

    options = ("--data-plane=none",)

    def __init__(self, directory):
        self.directory = directory
        self.server = Server(directory).start()
        self.database = Database(self.server)
        self.database.ctl("add-ps tor", "set Physical_Switch tor tunnel_ips=192.0.2.1", "add-port tor p1")
        self.processes = [self.server.process]
        self.name = 0
        self.flip = 0

    def fill(self):
        names = [f"ls{number}" for number in range(SWITCHES)]
        commands = [
            [f"add-ls {name}", f"set Logical_Switch {name} tunnel_key={5001 + number}",
             f"bind-ls tor p1 {10 + number} {name}"]
            for number, name in enumerate(names)
        ]  # fmt: skip
        self.database.ctl(*(each for some in commands for each in some))
        for number, name in enumerate(names):
            self.database.announce(name, hosts_of(HOSTS, VTEPS, first=number * HOSTS))

    def agent(self):
        self.name += 1
        agent = Plain(self.directory, self.server.remote, f"agent{self.name}", *self.options)
        self.processes.append(agent.process)
        return agent

    def reader(self, messages):
        self.name += 1
        reader = Process(f"reader{self.name}", self.directory, PROGRAMS / "read-state", self.server.socket, messages)
        self.processes.append(reader)
        return reader

    def end(self):
        for each in self.processes:
            each.kill()

    @staticmethod
    def times(reader):
        """When it had parsed each message, so far."""
        return [float(line.split()[0]) for line in reader.said().splitlines()]

    def bare_connect(self):
        begin = time.monotonic()
        reader = self.reader(1)
        assert reader.exit_status() == 0, reader.said()
        return self.times(reader)[0] - begin

    def move(self):
        """Returns when it was begun, and where the last host goes."""
        self.flip = 1 - self.flip
        operations, locator = self.database._locator(f"10.1.0.{1 + self.flip}")
        for number in range(SWITCHES - MOVED, SWITCHES):
            where = [["logical_switch", "==", self.database._switch(f"ls{number}")]]
            operations.append({"op": "update", "table": "Ucast_Macs_Remote", "where": where, "row": {"locator": locator}})
        begin = time.monotonic()
        self.database.transact(*operations)
        return begin, f"10.1.0.{1 + self.flip}"

    def bare_move(self):
        reader = self.reader(2)
        wait_for("the state", lambda: self.times(reader))
        begin, _ = self.move()
        assert reader.exit_status() == 0, reader.said()
        return self.times(reader)[1] - begin
