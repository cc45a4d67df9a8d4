"""The agent and servers that misbehave, or that know less than others."""

import os
import unittest

from harness import PATIENCE, LiveTest, hosts_of, wait_for
from peer import LOGICAL, SWITCH, TRANSACTION, Peer, PeerServer, compact, rows_of, told, uuid_of

MIB = 1 << 20
UNKNOWN = uuid_of(0xABCDEF)


class Saying(Peer):
    """Says bytes behind the state."""

    def __init__(self, hosts, text):
        super().__init__(hosts)
        self._text = text

    def monitored(self):
        self.write(self._text)


class Answering(Peer):
    """Answers a request in a way of its own."""

    def __init__(self, hosts, method, answer):
        super().__init__(hosts)
        setattr(self, method, lambda *_: answer)


class ServerAnswering(Peer):
    """Tells of _Server in a way of its own."""

    def __init__(self, hosts, tables):
        super().__init__(hosts)
        self._tables = tables

    def monitor_cond(self, database, *others):
        if database == "_Server":
            return {"result": self._tables}
        return super().monitor_cond(database, *others)


def notification(method, *params):
    return compact({"id": None, "method": method, "params": params})


def update(tables):
    return notification("update3", "monitor", TRANSACTION, tables)


# What comes behind the state, and what is said of it: the connection is given up.
FATAL = {
    "another protocol": (b"HTTP/1.0 400 Bad Request\r\n\r\n", "expected a JSON object"),
    "an array": (b"[1, 2]", "expected a JSON object"),
    "a brace too many": (b"}", "expected a JSON object"),
    "no JSON": (b'{"method": update3}', "expected JSON"),
    "no UTF-8": (b'{"method": "\xff\xfe"}', "expected JSON"),
    "a zero byte": (b'{"a": 1}\0', "expected a JSON object"),
    "a deep message": (b'{"a":' * 200, "deep"),
    "an update that is an array": (update([]), "expected table updates"),
    "an update that is null": (update(None), "expected table updates"),
    "an update without a transaction": (notification("update3", "monitor", {}), "its last transaction"),
    "a transaction that is a number": (notification("update3", "monitor", 1, {}), "last transaction"),
    "an update of another kind": (notification("update2", "monitor", {}), "update3"),
    "a change of an unknown row": (update(told({"Ucast_Macs_Remote": {UNKNOWN: {"MAC": "02:00:00:00:00:01"}}}, "modify")), UNKNOWN),
    "the end of an unknown row": (update(told({"Logical_Switch": {UNKNOWN: None}}, "delete")), UNKNOWN),
    "the end of the monitor": (notification("monitor_canceled", "monitor"), "monitor canceled"),
    "the end of the database": (notification("update2", "server", {"Database": {SWITCH: {"delete": None}}}), "hardware_vtep"),
    "another cluster": (notification("update2", "server", {"Database": {SWITCH: {"modify": {"cid": ["uuid", UNKNOWN]}}}}), "another cluster"),
}  # fmt: skip

# A request, the reply, and what is said of it.
WRONG_REPLIES = {
    "no schema": ("get_schema", {"error": "unknown database"}, "unknown database"),
    "neither result nor error": ("get_schema", {}, "expected the schema"),
    "a schema of another kind": ("get_schema", {"result": []}, "expected a schema"),
    "a schema without tables": ("get_schema", {"result": {"version": "9.9.9"}}, "9.9.9"),
    "a state without tables": ("monitor_cond_since", {"result": [False, TRANSACTION, 1]}, "expected table updates"),
    "a state of two parts": ("monitor_cond_since", {"result": [False, TRANSACTION]}, "whether the transaction is known"),
    "a transaction that may be known": ("monitor_cond_since", {"result": [1, TRANSACTION, {}]}, "whether the transaction is known"),
}  # fmt: skip

# What comes behind the state, and changes nothing: the connection stays.
HARMLESS = [
    b" \r\n\t",
    b"{}",
    b'{"id": null, "result": null, "error": null}',
    b'{"id": 17, "result": {}, "error": null}',
    b'{"id": "nobody", "result": {"a": [1]}, "error": null}',
    b'{"id": "monitor", "error": {"error": "late"}}',
    b'{"id": "schema", "result": {}}',
    notification("stolen", "lock"),
    notification("update3"),
    notification("update3", "another", TRANSACTION, []),
    compact({"method": "update3", "id": None}),
    compact({"method": "echo", "params": ["no id"]}),
    update({"Tunnel": {UNKNOWN: {"modify": {}}}}),
    update({"Ucast_Macs_Remote": {}}),
]

# These are problems, each in its place: by that, an update.
MISSHAPEN = {
    "Ucast_Macs_Remote": [],
    f"Logical_Switch {LOGICAL}": {LOGICAL: []},
    f"Physical_Switch {SWITCH}": {SWITCH: {"modify": [1]}},
    f"Mcast_Macs_Remote {UNKNOWN}": {UNKNOWN: {"renamed": {}}},
    "Ucast_Macs_Remote not-a-uuid": {"not-a-uuid": {"insert": {}}},
}


class PeersTest(LiveTest):
    def setUp(self):
        super().setUp()
        self.server = PeerServer(self.directory)
        self.addCleanup(self.server.close)
        self._known = 1
        self.server.serve(Peer(hosts_of(1)))
        self.agent = self.follow(self.server.remotes)
        self.agent.wait_hosts(hosts_of(1))

    def meet(self, *peers):
        """Has the agent meet these peers, and then a good one, which knows another host."""
        self._known += 1
        good = Peer(hosts_of(self._known))
        self.server.serve(*peers, good)
        self.agent.wait_hosts(good.hosts)
        self.agent.wait_in_sync()
        return good

    def known(self):
        return hosts_of(self._known)

    def last_word(self):
        return self.agent.status()["database"]["lastWord"]

    def test_what_ends_the_connection(self):
        for name, (text, problem) in FATAL.items():
            with self.subTest(name):
                self.meet(Saying(self.known(), text))
                self.assertIn(problem, self.last_word())
        for name, (method, reply, problem) in WRONG_REPLIES.items():
            with self.subTest(name):
                self.meet(Answering(self.known(), method, reply))
                self.assertIn(problem, self.last_word())
        for name, tables in (("no row of ours", {}), ("an array", [])):
            with self.subTest(name):
                self.meet(ServerAnswering(self.known(), tables))
        self.assertEqual(self.agent.withdrawn(), [])

    def test_a_lost_row_has_the_whole_state_told(self):
        text, _ = FATAL["a change of an unknown row"]
        good = self.meet(Saying(self.known(), text))
        asked = next(each for each in good.requests if each["method"] == "monitor_cond_since")
        self.assertEqual(asked["params"][3], "00000000-0000-0000-0000-000000000000")

    def test_what_changes_nothing(self):
        more = hosts_of(5)
        good = Saying(hosts_of(1), b"".join(HARMLESS) + update(told(rows_of(more), "insert")))
        self.server.serve(good, Peer({}))
        self.agent.wait_hosts(more)
        self.assertEqual(self.agent.problems(), {})

    def test_misshapen_rows(self):
        good = Peer(hosts_of(1))
        self.server.serve(good, Peer({}))
        wait_for("the state to be asked for", lambda: len(good.requests) >= 4)
        for place, rows in MISSHAPEN.items():
            good.update({place.split()[0]: rows})
        wait_for("the problems", lambda: set(MISSHAPEN) <= set(self.agent.problems()))
        self.assertEqual(self.agent.hosts(), hosts_of(1))
        self.meet()
        self.assertEqual(self.agent.problems(), {})

    def test_servers_that_know_less(self):
        for number, monitors in enumerate((["monitor_cond", "monitor"], ["monitor"]), 2):
            with self.subTest(monitors[0]):
                less = Peer(hosts_of(1))
                less.monitors = monitors
                self.server.serve(less)
                wait_for("the monitor", lambda less=less: less.told == monitors[0])
                form = "insert" if monitors[0] == "monitor_cond" else "new"
                less.update(told(rows_of(hosts_of(number)), form))
                self.agent.wait_hosts(hosts_of(number))
                self.agent.wait_in_sync()
        none = Peer(hosts_of(1))
        none.monitors = []
        self._known = 3
        self.meet(none)
        self.assertIn("expected the server to allow a monitor", self.last_word())

    def test_a_connection_that_ends_at_any_byte(self):
        class Ending(Peer):
            """Hangs up when it has said so many bytes."""

            def __init__(self, hosts, left):
                super().__init__(hosts)
                self.left = left

            def write(self, text):
                super().write(text[: self.left])
                self.left -= len(text)
                if self.left <= 0:
                    raise OSError

        whole = Ending(self.known(), 1 << 20)
        self.server.serve(whole)
        wait_for("the whole dialogue", lambda: len(whole.requests) == 4)
        self.agent.wait_in_sync()
        length = (1 << 20) - whole.left
        self.meet(*(Ending(self.known(), left) for left in range(1, length)))
        self.assertEqual(self.agent.withdrawn(), [])

    def test_states_in_pieces(self):
        class Pieces(Peer):
            def __init__(self, hosts, size):
                super().__init__(hosts)
                self._size = size

            def write(self, text):
                for at in range(0, len(text), self._size):
                    super().write(text[at : at + self._size])

        for size, count in ((1, 1000), (7, 10_000), (64 << 10, 100_000)):
            with self.subTest(f"pieces of {size} bytes"):
                hosts = hosts_of(count)
                self.server.serve(Pieces(hosts, size))
                wait_for("the hosts", lambda hosts=hosts: self.agent.hosts() == hosts, 3 * PATIENCE)

    def test_probes_during_a_large_state(self):
        class Probing(Peer):
            """Probes again whenever a probe is answered."""

            def monitored(self):
                self.probe()

            def probe(self):
                self.send({"id": ["probe", len(self.replies)], "method": "echo", "params": ["a", 1]})

            def replied(self, message):
                assert message["result"] == ["a", 1]
                assert message["id"] == ["probe", len(self.replies) - 1]
                self.probe()

        probing = Probing(hosts_of(100_000))
        self.server.serve(probing)
        answered = []

        def applied():
            answered.append(len(probing.replies))
            return self.agent.status()["hosts"]["wanted"] == 100_000

        wait_for("all hosts", applied, 3 * PATIENCE)
        # Evaluated or applied at one go, it would have let but a few through.
        self.assertGreater(answered[-1], 20)

    def test_an_endless_message(self):
        class Endless(Peer):
            """Announces a message of 1 GiB."""

            said = 0

            def __init__(self, hosts, begin, go_on):
                super().__init__(hosts)
                self._begin, self._go_on = begin, go_on * (MIB // len(go_on))

            def monitored(self):
                self.write(self._begin)
                for _ in range(1024):
                    self.write(self._go_on)
                    self.said += MIB

        for name, begin, go_on in (
            ("a string", b'{"a":"', b"x"),
            ("many values", b'{"a":[0', b",{},[]"),
        ):
            with self.subTest(name):
                endless = Endless(self.known(), begin, go_on)
                self._known += 1
                self.server.serve(endless, Peer(self.known()))
                wait_for("the end of it", lambda: self.agent.hosts() == self.known(), 3 * PATIENCE)
                self.assertIn("expected a message of at most", self.last_word())
                self.assertLess(endless.said, 300 * MIB)
        if "VXLAN_SANITIZED" not in os.environ:  # which takes memory of its own
            self.assertLess(self.peak_memory(), 400 * MIB)

    def peak_memory(self):
        with open(f"/proc/{self.agent.process.id}/status", encoding="ascii") as status:
            peak = next(line for line in status if line.startswith("VmHWM:"))
        return int(peak.split()[1]) << 10


if __name__ == "__main__":
    unittest.main()
