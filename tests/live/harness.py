"""What the tests of the live agent stand on: real database servers, and the agent, as child
processes in a directory of the test's own, each ended by its own id."""

import contextlib
import ipaddress
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent))
import schemas  # noqa: E402

AGENT = os.environ["VXLAN_AGENT"]
SCHEMA = pathlib.Path("/usr/share/openvswitch/vtep.ovsschema")
SLOWER = 3 if "VXLAN_SANITIZED" in os.environ else 1  # as a program with sanitizers is
PATIENCE = 20 * SLOWER  # seconds that something may take to come about on a busy machine
BROADCAST = "ff:ff:ff:ff:ff:ff"
TO_ALL, TO_ANY = 1, 2
COLUMNS = {
    "Physical_Port": ["vlan_bindings"],
    "Logical_Switch": ["tunnel_key", "replication_mode"],
    "Physical_Locator": ["dst_ip"],
    "Physical_Locator_Set": ["locators"],
    "Ucast_Macs_Remote": ["MAC", "locator", "logical_switch"],
    "Mcast_Macs_Remote": ["MAC", "locator_set", "logical_switch"],
}


def wait_for(what, condition, patience=PATIENCE):
    """Returns the first true result of condition(); fails if there is none in time."""
    end = time.monotonic() + patience
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"not within {patience} s: {what}; last: {result!r}")
        time.sleep(0.02)


def answers(path):
    """Whether somebody listens at a unix socket."""
    with contextlib.suppress(OSError), socket.socket(socket.AF_UNIX) as probe:
        probe.connect(str(path))
        return True
    return False


def run(*command, **options):
    """What a command prints; fails if it does."""
    words = [str(word) for word in command]
    done = subprocess.run(words, capture_output=True, text=True, timeout=PATIENCE, **options)
    assert done.returncode == 0, f"{words}: {done.stderr}{done.stdout}"
    return done.stdout


class Process:
    """A child process; what it prints goes to a file."""

    def __init__(self, name, directory, *command):
        self.log = directory / f"{name}.log"
        with self.log.open("ab") as log:
            self._child = subprocess.Popen(
                [str(part) for part in command], stdin=subprocess.DEVNULL, stdout=log, stderr=log
            )

    @property
    def id(self):
        return self._child.pid

    def said(self):
        return self.log.read_text(errors="replace")

    def send(self, number):
        self._child.send_signal(number)

    def freeze(self):
        self.send(signal.SIGSTOP)

    def thaw(self):
        self.send(signal.SIGCONT)

    def end(self, number=signal.SIGTERM):
        """Ends it, and returns its exit status."""
        if self._child.poll() is None:
            self.send(number)
            self.thaw()
        return self.exit_status()

    def kill(self):
        return self.end(signal.SIGKILL)

    def runs(self):
        return self._child.poll() is None

    def exit_status(self):
        try:
            return self._child.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self._child.kill()
            raise


def members(value):
    """Of a set, of which one is written bare."""
    return value[1] if value[0] == "set" else [value]


class Server:
    """An ovsdb-server with a hardware_vtep database."""

    def __init__(self, directory, name="vtep", schema=SCHEMA):
        self.directory = directory
        self.file = directory / f"{name}.db"
        self.socket = directory / f"{name}.sock"
        self.remote = f"unix:{self.socket}"
        self._name = name
        self.process = None
        self.create(schema)

    def create(self, schema=SCHEMA):
        """An empty database in the place of what is there."""
        self.file.unlink(missing_ok=True)
        subprocess.run(["ovsdb-tool", "create", self.file, schema], check=True, timeout=PATIENCE)

    def start(self, *options):
        self.process = Process(
            self._name, self.directory, "ovsdb-server", self.file, f"--remote=p{self.remote}",
            f"--unixctl={self.directory}/{self._name}.ctl", "--no-chdir", *options,
        )  # fmt: skip
        wait_for("the database server", self._answers)
        return self

    def _answers(self):
        assert self.process.runs(), self.process.said()
        return answers(self.socket)

    def kill(self):
        self.process.kill()
        self.socket.unlink(missing_ok=True)

    def transact(self, *operations):
        """A transaction on its file, while it does not run."""
        transaction = json.dumps(["hardware_vtep", *operations])
        run = ["ovsdb-tool", "transact", self.file, transaction]
        done = subprocess.run(run, check=True, capture_output=True, text=True, timeout=PATIENCE)
        assert "error" not in done.stdout, done.stdout

    def manage(self, *words):
        """A command to the running server: manage("ovsdb-server/remove-db", NAME)."""
        control = f"--target={self.directory}/{self._name}.ctl"
        run = ["ovs-appctl", control, "--timeout=20", *words]
        subprocess.run(run, check=True, capture_output=True)


class Database:
    """Transactions on the rows of a switch, over a connection of its own."""

    def __init__(self, server):
        self._remote = server.remote
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.settimeout(PATIENCE)
        self._socket.connect(str(server.socket))
        self._pending = ""

    def close(self):
        self._socket.close()

    def ctl(self, *commands):
        """Commands of vtep-ctl, one transaction: ctl("add-ls ls1", "bind-ls tor p1 10 ls1")."""
        words = " -- ".join(commands).split()
        run = ["vtep-ctl", f"--db={self._remote}", "--timeout=20", *words]
        return subprocess.run(run, check=True, capture_output=True, text=True).stdout

    def transact(self, *operations):
        return self.transact_each([operations])[0]

    def transact_each(self, transactions):
        """One behind the other, none waiting for the reply to the one before."""
        results = []
        for first in range(0, len(transactions), 100):  # what the buffers of the sockets take
            some = transactions[first : first + 100]
            for operations in some:
                params = ["hardware_vtep", *operations]
                request = {"id": 1, "method": "transact", "params": params}
                self._socket.sendall(json.dumps(request).encode())
            results += [self._result() for _ in some]
        return results

    def _result(self):
        result = self._read()["result"]
        errors = [each for each in result if each and "error" in each]
        assert not errors, errors
        return result

    def _read(self):
        while True:
            with contextlib.suppress(json.JSONDecodeError):
                message, end = json.JSONDecoder().raw_decode(self._pending)
                self._pending = self._pending[end:]
                if message.get("method") != "echo":
                    return message
                echo = {"id": message["id"], "result": message["params"], "error": None}
                self._socket.sendall(json.dumps(echo).encode())
                continue
            piece = self._socket.recv(1 << 20)
            assert piece, "the database server has closed the connection"
            self._pending += piece.decode()

    def tables(self):
        """{table: {uuid: row}}, all of one moment."""
        columns = {table: ["_uuid", *names] for table, names in COLUMNS.items()}
        results = self.transact(
            *(
                {"op": "select", "table": table, "where": [], "columns": names}
                for table, names in columns.items()
            )
        )
        return {
            table: {row["_uuid"][1]: row for row in result["rows"]}
            for table, result in zip(columns, results)
        }

    def published(self):
        """What it has for us, where all rows are good: {(VNI, MAC): VTEPs} of hosts, and
        {(VNI, MAC): (TYPE, VTEPs)} of flood sets, all VTEPs ascending, our own among them."""
        tables = self.tables()
        switches = {}
        for port in tables["Physical_Port"].values():
            for _, (_, uuid) in port["vlan_bindings"][1]:
                switch = tables["Logical_Switch"][uuid]
                if isinstance(switch["tunnel_key"], int) and switch["tunnel_key"] > 0:
                    switches[uuid] = switch
        hosts, floods = {}, {}
        for row in tables["Ucast_Macs_Remote"].values():
            switch = switches.get(row["logical_switch"][1])
            if switch:
                vteps = hosts.setdefault((switch["tunnel_key"], row["MAC"]), [])
                vteps.append(tables["Physical_Locator"][row["locator"][1]]["dst_ip"])
        for row in tables["Mcast_Macs_Remote"].values():
            switch = switches.get(row["logical_switch"][1])
            locators = tables["Physical_Locator_Set"][row["locator_set"][1]]["locators"]
            if switch:
                mac = BROADCAST if row["MAC"] == "unknown-dst" else row["MAC"]
                kind = TO_ALL if switch["replication_mode"] == "source_node" else TO_ANY
                _, vteps = floods.setdefault((switch["tunnel_key"], mac), (kind, []))
                uuids = [uuid for _, uuid in members(locators)]
                vteps += [tables["Physical_Locator"][uuid]["dst_ip"] for uuid in uuids]
        for vteps in (*hosts.values(), *(vteps for _, vteps in floods.values())):
            vteps.sort(key=ipaddress.ip_address)
        return hosts, floods

    def _locator(self, vtep):
        """The operations that make a locator, and how to refer to it."""
        where = [["dst_ip", "==", vtep]]
        select = {"op": "select", "table": "Physical_Locator", "where": where, "columns": ["_uuid"]}
        rows = self.transact(select)[0]["rows"]
        if rows:
            return [], rows[0]["_uuid"]
        row = {"dst_ip": vtep, "encapsulation_type": "vxlan_over_ipv4"}
        name = "l" + vtep.encode().hex()
        insert = {"op": "insert", "table": "Physical_Locator", "row": row, "uuid-name": name}
        return [insert], ["named-uuid", name]

    def _switch(self, name):
        where = [["name", "==", name]]
        select = {"op": "select", "table": "Logical_Switch", "where": where, "columns": ["_uuid"]}
        return self.transact(select)[0]["rows"][0]["_uuid"]

    def insertion(self, switch, hosts):
        """The operations that announce hosts, {MAC: VTEP}."""
        switch = self._switch(switch)
        operations = []
        locators = {}
        for mac, vtep in hosts.items():
            if vtep not in locators:
                made, locators[vtep] = self._locator(vtep)
                operations += made
            row = {"MAC": mac, "logical_switch": switch, "locator": locators[vtep]}
            operations.append({"op": "insert", "table": "Ucast_Macs_Remote", "row": row})
        return operations

    @staticmethod
    def deletion(*macs, table="Ucast_Macs_Remote"):
        """The operations that withdraw hosts."""
        return [{"op": "delete", "table": table, "where": [["MAC", "==", mac]]} for mac in macs]

    def deletion_at(self, mac, vtep):
        """The same of one that is announced at several VTEPs."""
        _, locator = self._locator(vtep)
        where = [["MAC", "==", mac], ["locator", "==", locator]]
        return [{"op": "delete", "table": "Ucast_Macs_Remote", "where": where}]

    def modification(self, mac, vtep):
        """The operations that move a host by changing its row."""
        made, locator = self._locator(vtep)
        where = [["MAC", "==", mac]]
        row = {"locator": locator}
        update = {"op": "update", "table": "Ucast_Macs_Remote", "where": where, "row": row}
        return [*made, update]

    def ways_to_move(self, between=lambda: None):
        """The three that controllers have; `between` is called between two messages."""

        def in_two_messages(mac, vtep):
            self.withdraw(mac)
            between()
            self.announce("ls1", {mac: vtep})

        def in_one(mac, vtep):
            self.transact(*self.deletion(mac), *self.insertion("ls1", {mac: vtep}))

        def in_place(mac, vtep):
            self.transact(*self.modification(mac, vtep))

        return in_place, in_one, in_two_messages

    def move_all(self, switch, vtep):
        """All hosts of a switch, in one transaction."""
        made, locator = self._locator(vtep)
        where = [["logical_switch", "==", self._switch(switch)]]
        row = {"locator": locator}
        update = {"op": "update", "table": "Ucast_Macs_Remote", "where": where, "row": row}
        self.transact(*made, update)

    def announce(self, switch, hosts):
        self.transact(*self.insertion(switch, hosts))

    def withdraw(self, *macs):
        self.transact(*self.deletion(*macs))

    @staticmethod
    def key(switch, key):
        """The operation that sets a switch's tunnel_key; None empties it."""
        row = {"tunnel_key": ["set", []] if key is None else key}
        where = [["name", "==", switch]]
        return {"op": "update", "table": "Logical_Switch", "where": where, "row": row}

    def set_key(self, switch, key):
        self.transact(self.key(switch, key))


def run_agent(*words):
    command = [AGENT, *(str(word) for word in words)]
    return subprocess.run(command, capture_output=True, text=True, timeout=60 * SLOWER)


def replay(journal):
    done = run_agent("replay", "--format=json", journal)
    assert done.returncode == 0, done.stderr
    return [json.loads(line) for line in done.stdout.splitlines()]


class Agent:
    """A vxlan-agent run, and what it answers."""

    def __init__(self, directory, remote, *options, switch="tor", name="agent", plane="none"):
        self.control = directory / f"{name}.sock"
        self.recording = directory / f"{name}.jsonl"
        source = [f"--database={remote}", f"--switch={switch}"] if remote else []
        self._start = lambda: Process(
            name, directory, AGENT, "run", *source, f"--data-plane={plane}",
            f"--control={self.control}", f"--record={self.recording}", *options,
        )  # fmt: skip
        self.process = None
        self.start()

    def start(self):
        self.process = self._start()
        wait_for("the agent's control socket", self._answers)

    def _answers(self):
        assert self.process.runs(), self.process.said()
        return answers(self.control)

    def restart(self):
        """As after a crash: it has had no time to put anything away."""
        self.process.kill()
        self.start()

    def answer(self, question):
        """What it answers to a line on its control socket, held to its schema."""
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(PATIENCE)
            connection.connect(str(self.control))
            connection.sendall(question + b"\n")
            with connection.makefile() as answer:
                return [self._read(question, line) for line in answer]

    @staticmethod
    def _read(question, line):
        if line.startswith('{"error"'):
            return schemas.read(line, "error")
        return schemas.read(line, json.loads(question)["question"])

    def ask(self, what):
        return self.answer(json.dumps({"question": what}).encode())

    def command(self, *words):
        """The command that asks it, as an operator enters it."""
        return run_agent(*words, f"--control={self.control}")

    def status(self):
        return self.ask("status")[0]

    def hosts(self):
        """{MAC: VTEP}."""
        return {each["mac"]: each["vtep"] for each in self.ask("hosts")}

    def places(self):
        """{MAC: (VLAN, VNI)} of its hosts."""
        return {each["mac"]: (each["vlan"], each["vni"]) for each in self.ask("hosts")}

    def marked(self):
        return {each["mac"] for each in self.ask("hosts") if each["marked"]}

    def floods(self):
        """{(VNI, MAC): (TYPE, VTEPs)}."""
        floods = self.ask("floods")
        return {(each["vni"], each["mac"]): (each["type"], each["vteps"]) for each in floods}

    def problems(self):
        return {each["what"]: each for each in self.ask("problems")}

    def wait_hosts(self, hosts):
        wait_for(f"{len(hosts)} hosts as published", lambda: self.hosts() == hosts)

    def wait_in_sync(self):
        wait_for("in sync", lambda: not self.status()["converging"])

    def wait_held(self):
        wait_for("a hold", lambda: self.status()["hold"])

    def wait_released(self):
        wait_for("the end of the hold", lambda: not self.status()["hold"])
        self.wait_quiet()

    def wait_quiet(self):
        """Until nothing is under way, but for a hold, or a database that is not there."""
        wait_for("quiet", self._is_quiet)

    def _is_quiet(self):
        status = self.status()
        hosts, hold = status["hosts"], status["hold"]
        if status["database"]["state"] != "in sync":
            return True
        if hold:
            return hosts["waiting"] == 0 and hosts["marked"] == hold["waiting"]
        return not status["clocks"]["nextDue"]

    def recorded(self, path=""):
        """The lines of its recording that write at a path that begins so."""
        with self.recording.open() as file:
            lines = [json.loads(line) for line in file]
        return [line for line in lines if line.get("set", line.get("del", "")).startswith(path)]

    def withdrawn(self):
        """The hosts that were ever withdrawn from the client."""
        paths = [line.get("del", "") for line in self.recorded("controller/")]
        return [path.split("/")[3] for path in paths if "/host/" in path]

    def replayed(self, age=0):
        """The last dump of its recording, or of the one that it has kept as FILE.AGE."""
        return replay(f"{self.recording}.{age}" if age else self.recording)[-1]

    def replayed_steps(self):
        """A dump behind each line of its recording."""
        steps = self.recording.with_suffix(".steps")
        with self.recording.open() as lines:
            steps.write_text("".join(line + '{"dump": ""}\n' for line in lines))
        return replay(steps)


class LiveTest(unittest.TestCase):
    """Has a directory. What is started is ended behind each test, and what each agent said last is
    compared with what its recording replays to."""

    agent_class = Agent

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="vxlan-live-"))
        self.addCleanup(shutil.rmtree, self.directory)
        self.agents = []

    def tearDown(self):
        for agent in self.agents:
            if agent.process.runs():
                self.check_recording(agent)

    def serve(self, *arguments, **options):
        server = Server(self.directory, *arguments, **options).start()
        self.addCleanup(lambda: server.process.kill())
        return server

    def connect(self, server):
        database = Database(server)
        self.addCleanup(database.close)
        return database

    def follow(self, remote, *options, **more):
        agent = self.agent_class(self.directory, remote, *options, **more)
        self.addCleanup(lambda: agent.process.kill())
        self.agents.append(agent)
        return agent

    def publish_switch(self, database, *, vni=5001, vlan=10, switch="ls1"):
        """Our switch, and a logical one that it binds."""
        database.ctl(
            "add-ps tor", "set Physical_Switch tor tunnel_ips=192.0.2.1", "add-port tor p1",
            f"add-ls {switch}", f"set Logical_Switch {switch} tunnel_key={vni}",
            f"bind-ls tor p1 {vlan} {switch}",
        )  # fmt: skip

    def check_recording(self, agent):
        agent.wait_quiet()
        hosts, floods = agent.ask("hosts"), agent.ask("floods")
        end = agent.replayed()
        marked = {
            (each["mac"], each["vlan"])
            for each in end["client"]["hostTable"]["entries"]
            if each["markedForDel"]
        }
        replayed = [
            (each["mac"], each["vlan"], each["vtep"], (each["mac"], each["vlan"]) in marked)
            for each in end["l2rib"]["hosts"]
        ]
        said = [(each["mac"], each["vlan"], each["vtep"], each["marked"]) for each in hosts]
        self.assertCountEqual(replayed, said)
        replayed = [
            (each["vlan"], each["mac"], each["type"], each["dests"])
            for each in end["l2rib"]["floodSets"]
            if "mac" in each
        ]
        said = [(each["vlan"], each["mac"], each["type"], each["vteps"]) for each in floods]
        self.assertCountEqual(replayed, said)
        done = run_agent("diff", agent.recording, f"agent:{agent.control}")
        self.assertEqual(done.returncode, 0, done)


def hosts_of(number, vteps=("10.0.0.2",), first=1):
    """{MAC: VTEP} of so many hosts."""
    return {
        f"02:00:00:{each >> 16:02x}:{each >> 8 & 255:02x}:{each & 255:02x}": vteps[each % len(vteps)]
        for each in range(first, first + number)
    }
