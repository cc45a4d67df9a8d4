"""A database server of our own, which can misbehave: it says what a test has it say."""

import contextlib
import json
import pathlib
import socket
import threading

from harness import PATIENCE, SCHEMA

SWITCH, PORT, LOGICAL = (f"00000000-0000-0000-0000-00000000000{each}" for each in (1, 2, 3))
TRANSACTION = "11111111-0000-0000-0000-000000000000"
MONITORS = {"monitor_cond_since": "update3", "monitor_cond": "update2", "monitor": "update"}


def schema():
    """The schema, without what nobody asks for, which keeps the dialogue short."""
    whole = json.loads(pathlib.Path(SCHEMA).read_text())
    tables = {
        name: {"columns": dict.fromkeys(whole["tables"][name]["columns"], {"type": "string"})}
        for name in ("Mcast_Macs_Remote", "Physical_Locator_Set", *rows_of({}))
    }
    return {"name": "hardware_vtep", "version": whole["version"], "cksum": "1 1", "tables": tables}


def uuid_of(number):
    return f"22222222-0000-0000-0000-{number:012x}"


def rows_of(hosts):
    """By table and uuid, the rows of a switch that binds VLAN 10 to VNI 5001, and its hosts."""
    vteps = sorted({*hosts.values()})
    locators = {vtep: uuid_of(0xFF0000 + index) for index, vtep in enumerate(vteps)}
    switch = {"name": "tor", "tunnel_ips": "192.0.2.1", "ports": ["uuid", PORT]}
    port = {"name": "p1", "vlan_bindings": ["map", [[10, ["uuid", LOGICAL]]]]}
    return {
        "Physical_Switch": {SWITCH: switch},
        "Physical_Port": {PORT: port},
        "Logical_Switch": {LOGICAL: {"name": "ls1", "tunnel_key": 5001}},
        "Physical_Locator": {
            uuid: {"dst_ip": vtep, "encapsulation_type": "vxlan_over_ipv4"}
            for vtep, uuid in locators.items()
        },
        "Ucast_Macs_Remote": hosts_rows(hosts, locators),
    }


def hosts_rows(hosts, locators):
    return {
        uuid_of(number): {
            "MAC": mac,
            "locator": ["uuid", locators[vtep]],
            "logical_switch": ["uuid", LOGICAL],
        }
        for number, (mac, vtep) in enumerate(hosts.items())
    }


def told(tables, form):
    """As table updates."""
    return {
        name: {uuid: {form: row} for uuid, row in rows.items()} for name, rows in tables.items()
    }


def compact(message):
    return json.dumps(message, separators=(",", ":")).encode()


class Peer:
    """What one connection says. A test's peers override what they do differently."""

    monitors = list(MONITORS)  # that it knows
    told = None  # the one by which it has told its state

    def __init__(self, hosts):
        self.hosts = hosts
        self.requests = []
        self.replies = []
        self.answered = threading.Condition()

    def serve(self, connection):
        self._connection = connection
        decoder, pending = json.JSONDecoder(), ""
        while piece := connection.recv(1 << 16):
            pending += piece.decode()
            while pending:
                try:
                    message, end = decoder.raw_decode(pending)
                except json.JSONDecodeError:
                    break
                pending = pending[end:]
                self.take(message)

    def take(self, message):
        if "method" in message:
            self.requests.append(message)
            answer = getattr(self, message["method"], lambda *_: None)(*message["params"])
            if answer is not None:
                self.send({"id": message["id"], "error": None, **answer})
            if message["method"] in self.monitors and "_Server" not in message["params"]:
                self.told = message["method"]
                self.monitored()
            return
        with self.answered:
            self.replies.append(message)
            self.answered.notify_all()
        self.replied(message)

    def send(self, message):
        self.write(compact(message))

    def write(self, text):
        self._connection.sendall(text)

    def echo(self, *params):
        return {"result": params}

    def get_schema(self, _):
        return {"result": schema()}

    def monitor_cond(self, database, *_):
        if database != "_Server":
            return self.state("monitor_cond", lambda: told(rows_of(self.hosts), "initial"))
        row = {"name": "hardware_vtep", "model": "standalone", "connected": True}
        return {"result": told({"Database": {SWITCH: row}}, "initial")}

    def monitor_cond_since(self, *_):
        tables = told(rows_of(self.hosts), "initial")
        return self.state("monitor_cond_since", lambda: [False, TRANSACTION, tables])

    def monitor(self, *_):
        return self.state("monitor", lambda: told(rows_of(self.hosts), "new"))

    def state(self, method, result):
        if method in self.monitors:
            return {"result": result()}
        return {"result": None, "error": {"error": "unknown method", "details": method}}

    def update(self, tables):
        """Tells table updates in the way that was asked for."""
        number = [TRANSACTION] if self.told == "monitor_cond_since" else []
        params = ["monitor", *number, tables]
        self.send({"id": None, "method": MONITORS[self.told], "params": params})

    def monitored(self):
        """Called when the state is told."""

    def replied(self, message):
        """Called for each reply of the agent."""


class PeerServer:
    """Serves a peer a connection, in the order in which they are put in; the last one serves all
    further ones."""

    def __init__(self, directory):
        path = directory / "peer.sock"
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(str(path))
        # It passes for many members of a cluster: between members, nobody waits.
        links = [directory / str(number) for number in range(400)]
        for link in links:
            link.symlink_to(path)
        self.remotes = ",".join(f"unix:{link}" for link in links)
        self._listener.listen(8)
        self._peers = []
        self._serving = None
        self._connection = None
        self._lock = threading.Lock()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def serve(self, *peers):
        """From now on; whom it serves now is disconnected."""
        with self._lock:
            self._peers = list(peers)
            self._disconnect()

    def _disconnect(self):
        with contextlib.suppress(OSError):
            if self._connection:
                self._connection.shutdown(socket.SHUT_RDWR)

    def _run(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            with self._lock:
                if not self._peers:
                    connection.close()
                    continue
                peer = self._peers.pop(0) if len(self._peers) > 1 else self._peers[0]
                self._connection = connection
            with connection:
                with contextlib.suppress(OSError):  # the agent hangs up on some, as it should
                    peer.serve(connection)
                with self._lock:
                    self._connection = None

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        with self._lock:
            self._disconnect()
        self._thread.join(PATIENCE)
