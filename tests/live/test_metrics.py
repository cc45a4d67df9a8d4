"""The metrics of an agent to which things happen, beside its answers; clients that misbehave."""

import contextlib
import datetime
import socket
import time
import unittest

from harness import LiveTest, hosts_of, run_agent, wait_for
from metrics import OPEN_METRICS, free_port, request, scrape, values, wait_as_answered

PREFIX = "vxlan_agent_"


class MetricsTest(LiveTest):
    """40 hosts in the logical switch ls1, VNI 5001, and a flood set to two VTEPs."""

    def setUp(self):
        super().setUp()
        self.server = self.serve()
        self.database = self.connect(self.server)
        self.publish_switch(self.database)
        self.hosts = hosts_of(40)
        self.database.announce("ls1", self.hosts)
        self.database.ctl(*(f"add-mcast-remote ls1 unknown-dst 10.0.0.{last}" for last in (3, 4)))
        self.port = free_port()
        options = ("--withdraw-delay=0.2", "--hold-time=0", f"--ring={self.directory}")
        self.agent = self.follow(self.server.remote, f"--metrics={self.port}", *options)
        self.agent.wait_hosts(self.hosts)
        self.agent.wait_quiet()

    def metric(self, *key):
        return scrape(self.port).get((PREFIX + key[0], *key[1:]))

    def wait_metric(self, value, *key):
        wait_for(f"{key}: {value}", lambda: self.metric(*key) == value)

    def check(self, **wanted):
        """All is told as it is answered, and these besides. Returns what is told."""
        told = wait_as_answered(self, self.agent, self.port)
        told = {(name.removeprefix(PREFIX), *labels): told[name, *labels] for name, *labels in told}
        self.assertEqual({key: told.get((key,)) for key in wanted}, wanted)
        return told


class Events(MetricsTest):
    def test_hosts_go_and_a_row_is_bad(self):
        told = self.check(hosts=40, flood_destinations=2, database_connections_total=1)
        changes, messages = told["changes_applied_total",], told["database_messages_total",]
        self.database.withdraw(*list(self.hosts)[:3])
        self.wait_metric(3, "hosts_deleted_total", "at once")
        told = self.check(
            hosts=37, changes_applied_total=changes + 3, database_messages_total=messages + 1
        )
        self.assertEqual(told["hosts_deleted_total", "deferred"], 0)
        self.database.ctl(
            "del-mcast-remote ls1 unknown-dst 10.0.0.3", "add-ls ls2",
            "set Logical_Switch ls2 tunnel_key=5001", "bind-ls tor p1 20 ls2",
        )  # fmt: skip
        self.wait_metric(1, "flood_destinations")
        self.check(problems=1)

    def test_a_hold_and_its_deferred_deletion(self):
        batches = self.check(holds_total=0)["deletion_batch_duration_seconds_count", "unicast"]
        self.database.withdraw(*list(self.hosts)[:30])
        self.wait_metric(30, "hosts_marked")
        told = self.check(hosts=40, hold_missing_hosts=30, converging=1, holds_total=1)
        self.assertEqual(told["hosts_deleted_total", "at once"], 0)
        self.check_times_of_hold()
        self.agent.command("release")
        self.agent.wait_released()
        told = self.check(hosts=10, hold_missing_hosts=0, converging_duration_seconds=0)
        self.assertNotIn(("hold_started_timestamp_seconds",), told)
        self.assertEqual(told["hosts_deleted_total", "deferred"], 30)
        self.assertEqual(told["hosts_deleted_total", "at once"], 0)
        self.assertGreater(told["deletion_batch_duration_seconds_count", "unicast"], batches)
        self.assertGreater(told["deletion_batch_duration_seconds_sum", "unicast"], 0)
        self.assertEqual(told["deletion_batch_budget_seconds",], 0.01)

    def check_times_of_hold(self):
        text = self.agent.status()["hold"]["since"]
        since = datetime.datetime.fromisoformat(text[:26] + "+00:00").timestamp()
        before = time.time()
        told = scrape(self.port)
        self.assertAlmostEqual(told[f"{PREFIX}hold_started_timestamp_seconds",], since, delta=0.1)
        lasts = told[f"{PREFIX}converging_duration_seconds",]
        self.assertTrue(before - since - 0.1 <= lasts <= time.time() - since + 0.1, lasts)
        self.assertLess(told["process_start_time_seconds",], since)

    def test_the_database_goes_and_comes(self):
        self.server.kill()
        self.wait_metric(0, "database_state", "in sync")
        self.check(converging=1, hosts=40, problems=1)
        self.server.start()
        self.wait_metric(1, "database_state", "in sync")
        self.check(hosts=40, database_connections_total=2)

    def test_many_hosts_come_at_once(self):
        """Scrapes are answered while it works."""
        self.database.announce("ls1", hosts_of(20000, first=100))
        told = []
        while not told or told[-1] < 20040:
            told.append(self.metric("hosts"))
        self.assertEqual(told, sorted(told))
        told = self.check(hosts=20040)
        turns = told["event_loop_turn_duration_seconds_count",]
        self.assertEqual(told["event_loop_turn_duration_seconds_bucket", "+Inf"], turns)
        self.assertLess(told["event_loop_turn_duration_seconds_bucket", "0.001"], turns)
        self.assertGreater(told["trace_ring_written_bytes_total",], 100000)
        self.assertGreater(told["process_resident_memory_bytes",], 1 << 20)


class Clients(MetricsTest):
    def test_ask_in_other_ways(self):
        response, text = request(self.port)
        self.assertIn("text/plain; version=0.0.4", response.getheader("Content-Type"))
        response, open_text = request(self.port, accept=OPEN_METRICS)
        self.assertIn(f"{OPEN_METRICS}; version=1.0.0", response.getheader("Content-Type"))
        self.assertTrue(open_text.endswith("\n# EOF\n"))
        self.assertEqual(values(text).keys(), values(open_text, OPEN_METRICS).keys())
        response, body = request(self.port, method="HEAD")
        self.assertEqual((response.status, body), (200, ""))
        self.assertGreater(int(response.getheader("Content-Length")), 1000)
        for method, path, status in (
            ("GET", "/", 404), ("GET", "/metrics/", 404),
            ("POST", "/metrics", 405), ("PUT", "/", 405),
        ):  # fmt: skip
            response, body = request(self.port, method=method, path=path)
            self.assertEqual(response.status, status)
            self.assertNotIn(PREFIX, body)
        self.assertEqual(response.getheader("Allow"), "GET, HEAD")

    def test_misbehave(self):
        """It goes on, and hangs up on them."""
        with contextlib.ExitStack() as stack:
            def connect():
                client = socket.create_connection(("127.0.0.1", self.port))
                return stack.enter_context(client)

            silent = []
            for words in 8 * (
                b"", b"GET /metrics HT", b"GET /metrics HTTP/1.1\r\nHost: x\r\nA: ",
                b"POST /metrics HTTP/1.1\r\nHost: x\r\nContent-Length: 9\r\n\r\n",
            ):  # fmt: skip
                silent.append(connect())
                silent[-1].sendall(words)
            for words in (
                b"\0\xff\r\n\r\n", b"GET /" + b"x" * 100000, b"GET /metrics HTTP/1.1\r\n\r\n" * 500,
            ):  # fmt: skip
                with contextlib.suppress(OSError):
                    connect().sendall(words)
            self.database.announce("ls1", hosts_of(1, first=100))
            wait_for("the host", lambda: len(self.agent.hosts()) == 41)
            for each in silent:
                each.settimeout(60)
                while each.recv(4096):
                    pass
            self.assertEqual(self.metric("hosts"), 41)


class Addresses(LiveTest):
    def fails(self, address, status, *words):
        done = run_agent(
            "run", "--database=unix:/nowhere", "--switch=tor", "--data-plane=none",
            f"--control={self.directory}/agent.sock", f"--metrics={address}",
        )  # fmt: skip
        self.assertEqual(done.returncode, status, done.stderr)
        for word in words:
            self.assertIn(word, done.stderr)

    def test_that_cannot_be_served_at(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            port = other.getsockname()[1]
            place = f"metrics at 127.0.0.1:{port}"
            self.fails(f"127.0.0.1:{port}", 1, place, "Address already in use")
        self.fails("192.0.2.77:9472", 1, "192.0.2.77:9472", "Cannot assign")
        self.fails("banana:9472", 64, '"banana:9472"', "expected an IPv4 address")
        self.fails("65536", 64, '"65536"', "a port from 1 to 65535")

    def test_of_ipv6(self):
        port = free_port()
        try:
            socket.create_server(("::1", port), family=socket.AF_INET6).close()
        except OSError as error:
            self.skipTest(f"no IPv6: {error}")
        agent = self.follow("unix:/nowhere", f"--metrics=[::1]:{port}")
        agent.status()  # by then it serves
        told = values(request(port, host="::1")[1])
        self.assertEqual(told[f"{PREFIX}database_state", "connecting"], 1)
        self.assertIn(f"http://[::1]:{port}/metrics", agent.process.said())


if __name__ == "__main__":
    unittest.main()
