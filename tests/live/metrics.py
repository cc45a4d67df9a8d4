"""Metrics of a running agent, read by a client's own parsers, in both dialects."""

import contextlib
import http.client
import socket

from harness import PATIENCE, wait_for
from prometheus_client import parser as text_parser
from prometheus_client.openmetrics import parser as open_metrics_parser

OPEN_METRICS = "application/openmetrics-text"


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


def request(port, *, method="GET", path="/metrics", accept=None, host="127.0.0.1"):
    """The response, and its body."""
    with contextlib.closing(http.client.HTTPConnection(host, port, timeout=PATIENCE)) as connection:
        connection.request(method, path, headers={"Accept": accept} if accept else {})
        response = connection.getresponse()
        return response, response.read().decode()


def families(text, dialect):
    parsers = {"text": text_parser, OPEN_METRICS: open_metrics_parser}
    return list(parsers[dialect].text_string_to_metric_families(text))


def values(text, dialect="text"):
    """{(name, label values): value} of all samples."""
    found = {}
    for family in families(text, dialect):
        for sample in family.samples:
            key = (sample.name, *sample.labels.values())
            assert key not in found, key
            found[key] = sample.value
    return found


def scrape(port):
    return values(request(port)[1])


def expected(agent):
    """The same from what the agent answers, where it answers that."""
    status, floods = agent.status(), agent.floods().values()
    hosts, hold, database = status["hosts"], status["hold"], status["database"]
    wanted = {
        "converging": status["converging"],
        "hold": hold is not None,
        "hold_missing_hosts": hold["waiting"] if hold else 0,
        "vnis": status["vnis"],
        "hosts": hosts["wanted"],
        "hosts_marked": hosts["marked"],
        "hosts_withdrawal_waiting": hosts["waiting"],
        "flood_sets": len(floods),
        "flood_destinations": sum(len(vteps) for _, vteps in floods),
        "problems": status["problems"],
        "recording_bytes": status["recording"]["bytes"],
        "recording_written": status["recording"]["written"],
    }
    labelled = {
        ("build_info", status["version"]): 1,
        ("switch_info", status["switch"], status["dataPlane"]): 1,
        ("database_info", database["remote"]): 1,
    }
    for state in ("connecting", "syncing", "in sync", "no quorum"):
        labelled["database_state", state] = state == database["state"]
    for kind in ("unicast", "bum"):
        told = status["clocks"][f"{kind}DeferredDeletion"]
        labelled["deferred_deletion_in_progress", kind] = told
    if kernel := status["kernel"]:
        for name, key in (
            ("foreign_entries", "foreign"), ("devices", "devices"), ("nexthop_groups", "groups"),
            ("put_back_total", "putBack"), ("read_again_total", "readAgain"),
        ):  # fmt: skip
            wanted[f"kernel_{name}"] = kernel[key]
        for state in ("programmed", "waiting", "refused"):
            labelled["kernel_hosts", state] = kernel[state]
    labelled.update({(name,): value for name, value in wanted.items()})
    return {(f"vxlan_agent_{name}", *labels): value for (name, *labels), value in labelled.items()}


def wait_as_answered(test, agent, port):
    """Until nothing moves between the two looks, they agree. Returns all metrics."""

    def differences():
        wanted = expected(agent).items()
        told = scrape(port)
        return {key: (told.get(key), value) for key, value in wanted if told.get(key) != value}

    with contextlib.suppress(AssertionError):
        wait_for("metrics as it answers", lambda: not differences())
    test.assertEqual(differences(), {})
    return scrape(port)
