"""A kernel for each test: network namespaces of its own. The one that the test itself is in is the
switch, the others are what is around it. Elsewhere nothing is touched."""

import collections
import ctypes
import ipaddress
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import unittest

from harness import BROADCAST, TO_ALL, Agent, LiveTest, Process, run, wait_for

OWN = "192.0.2.1"  # our VTEP
ZERO = "00:00:00:00:00:00"
MARK = "vxlan-agent tor"
ENTERED = "VXLAN_NAMESPACES_ENTERED"


def enter():
    """Starts the program anew in a network namespace, where it may do what root may. Where that is
    not permitted, returns why."""
    if ENTERED in os.environ:
        return None
    unshare = ["unshare", "-n" if os.geteuid() == 0 else "-Urn"]
    probe = [*unshare, *"ip link add vx1 type vxlan id 1 dstport 4789".split()]
    tried = subprocess.run(probe, capture_output=True, text=True)
    if tried.returncode == 0:
        os.environ[ENTERED] = "yes"
        os.execvp("unshare", [*unshare, sys.executable, *sys.orig_argv[1:]])
    why = f"no vxlan device in a network namespace of ours: {tried.stderr.strip()}"
    if os.environ.get("VXLAN_NAMESPACES") == "required":
        sys.exit(why)
    return why


WHY_NOT = enter()


def leave_namespace():
    """For an empty one; what is in the old one ends with the last process there."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(0x40000000) != 0:  # CLONE_NEWNET
        raise OSError(ctypes.get_errno(), "unshare")
    forbid_ipv6(run)


def forbid_ipv6(runs):
    """Nothing is sent but what a test sends."""
    for which in ("all", "default"):
        runs("sh", "-c", f"echo 1 > /proc/sys/net/ipv6/conf/{which}/disable_ipv6")


def ip(*commands, runs=run):
    """One behind the other: ip("link set lo up", "link add br1 type bridge")."""
    runs("ip", "-batch", "-", input="\n".join(commands))


def bridge(*commands):
    run("bridge", "-batch", "-", input="\n".join(commands))


def shown(*words, runs=run):
    """What a command shows as JSON, but for timers and carriers, which change by themselves."""
    carriers = {"NO-CARRIER", "LOWER_UP", "M-DOWN"}

    def lasting(each):
        each["flags"] = sorted(set(each.get("flags") or ()) - carriers)
        return {name: each[name] for name in each if not re.search("_timer$|state$", name)}

    return json.loads(runs(*words) or "[]", object_hook=lasting)


def links():
    """{name: what ip shows of it}."""
    return {each["ifname"]: each for each in shown("ip", "-j", "-d", "link", "show")}


def nexthops():
    """{id: what ip shows of it}."""
    return {each["id"]: each for each in shown("ip", "-j", "nexthop")}


def link(name):
    """What matters of a link, and not which it is; None if it is not there."""
    each = links().get(name)
    if not each:
        return None
    device = each["linkinfo"].get("info_data", {})
    return {
        "alias": each.get("ifalias"), "master": each.get("master"), "mtu": each["mtu"],
        "up": "UP" in each["flags"],
        "port learning": each["linkinfo"].get("info_slave_data", {}).get("learning"),
        **{key: device.get(key) for key in ("local", "port", "learning", "udp_csum")},
        "mcast_snooping": device.get("mcast_snooping"),
    }  # fmt: skip


def text(kind, vteps):
    """A flood set as the agent writes it: "all 10.0.0.2 10.0.0.3"."""
    return " ".join([kind, *sorted(vteps, key=ipaddress.ip_address)])


def is_group(mac):
    return int(mac[:2], 16) & 1


def fdb():
    """What is programmed of ours, {(VNI, MAC): text}. A host has an entry in the device and one in
    the bridge; if one is missing, the text says so."""
    devices = {name: each["linkinfo"] for name, each in links().items() if "linkinfo" in each}
    entries, bridged, groups = collections.defaultdict(list), set(), nexthops()
    for entry in shown("bridge", "-j", "fdb", "show"):
        device = devices.get(entry["ifname"], {})  # it may be new
        if device.get("info_kind") != "vxlan" or "extern_learn" not in entry["flags"]:
            continue
        key = (device["info_data"]["id"], BROADCAST if entry["mac"] == ZERO else entry["mac"])
        if "self" not in entry["flags"]:
            bridged.add(key)
        elif "nhid" in entry:
            ids = [each["id"] for each in groups.get(entry["nhid"], {}).get("group", [])]
            entries[key] = text("any", (groups[each]["gateway"] for each in ids if each in groups))
        else:
            entries[key].append(entry["dst"])
    for key, vteps in entries.items():
        if isinstance(vteps, list):
            entries[key] = text("all", vteps) if is_group(key[1]) else vteps[0]
    hosts = {key for key in entries if not is_group(key[1])}
    entries.update({key: f"{entries[key]}, not in the bridge" for key in hosts - bridged})
    return {**entries, **{key: "in the bridge alone" for key in bridged - hosts}}


def expected(database):
    """The same from the rows that the database has."""
    hosts, floods = database.published()
    wanted = {key: vteps[0] for key, vteps in hosts.items() if vteps[0] != OWN}
    for key, (kind, vteps) in floods.items():
        others = set(vteps) - {OWN}
        if others:
            wanted[key] = text("all" if kind == TO_ALL else "any", others)
    return wanted


def await_equal(values, wanted):
    """Until values() returns what is wanted."""
    try:
        wait_for("it", lambda: values() == wanted)
    except AssertionError:
        unittest.TestCase().assertEqual(values(), wanted)


class Namespace:
    """Another machine."""

    def __init__(self, test, name):
        self._directory, self._name = test.directory, name
        hold = "setpriv --pdeathsig=KILL unshare -n sleep infinity".split()
        child = Process(name, test.directory, *hold)
        test.addCleanup(child.kill)
        self.id = child.id
        command = pathlib.Path(f"/proc/{self.id}/comm")
        wait_for(f"the namespace {name}", lambda: command.read_text() == "sleep\n")
        forbid_ipv6(self.run)

    def _inside(self, *command):
        return ("nsenter", "-t", self.id, "-n", *command)

    def run(self, *command, **options):
        return run(*self._inside(*command), **options)

    def start(self, name, *command):
        return Process(f"{self._name}-{name}", self._directory, *self._inside(*command))

    def ip(self, *commands):
        ip(*commands, runs=self.run)

    def received(self):
        """How many packets have come out of its tunnels."""
        statistics = shown("ip", "-j", "-s", "link", "show", "vx", runs=self.run)
        return statistics[0]["stats64"]["rx"]["packets"]


class Ping:
    """Runs from a namespace to an address; tells how many replies were missing."""

    def __init__(self, test, source, address):
        command = ("stdbuf", "-oL", "ping", "-n", "-i", "0.002", address)
        self._process = source.start(f"ping-{address}", *command)
        test.addCleanup(self._process.kill)
        self.wait_replies(1)

    def _replies(self):
        return {int(each) for each in re.findall(r"icmp_seq=(\d+) ttl", self._process.said())}

    def wait_replies(self, number=10):
        """So many more."""
        last = max(self._replies(), default=0)
        wait_for("a reply", lambda: max(self._replies(), default=0) >= last + number)

    def lost(self):
        """Ends it. What came behind the last reply does not count, it may be on its way."""
        self.wait_replies()
        self._process.end(signal.SIGINT)
        replies = self._replies()
        return max(replies) - len(replies)


class Monitor:
    """What becomes of the FDB of the switch meanwhile."""

    def __init__(self, test):
        self._process = Process("monitor", test.directory, "bridge", "monitor", "fdb")
        test.addCleanup(self._process.kill)
        wait_for("the monitor", lambda: self._sees("02:00:00:00:ff:01"))

    def _sees(self, mac):
        """Whether it has come to an entry that is made now."""
        bridge(f"fdb replace {mac} dev underlay self", f"fdb del {mac} dev underlay self")
        return f"Deleted {mac} dev underlay" in self._process.said()

    def deleted(self):
        """The MACs of all entries of vxlan devices that were deleted, if only for a moment."""
        wait_for("the monitor", lambda: self._sees("02:00:00:00:ff:02"))
        return set(re.findall(r"Deleted (\S+) dev vx", self._process.said()))


class KernelAgent(Agent):
    def wait_hosts(self, hosts):
        super().wait_hosts(hosts)

        def programmed():
            return {mac: vtep for (_, mac), vtep in fdb().items() if not is_group(mac)}

        await_equal(programmed, hosts)

    def differences(self):
        """The exit status of the doctor, and {(VNI, MAC): reason}."""
        done = self.command("doctor", "--format=json")
        lines = [json.loads(line) for line in done.stdout.splitlines()]
        return done.returncode, {(each["vni"], each["mac"]): each["reason"] for each in lines}

    def wait_differences(self, differences):
        await_equal(self.differences, (0, differences))

    def kernel(self, what):
        """A number of its status."""
        return self.status()["kernel"][what]


class KernelTest(LiveTest):
    """The switch, an underlay of 10.0.0.0/8, and ports; what else there is, a test makes."""

    agent_class = KernelAgent
    ports = ("p1.10", "p1.20", "p1.30")

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        if WHY_NOT:
            raise unittest.SkipTest(WHY_NOT)

    def setUp(self):
        leave_namespace()
        ip(
            "link set lo up", "link add underlay type bridge", f"addr add {OWN}/32 dev underlay",
            "link set underlay up", "route add 10.0.0.0/8 dev underlay",
            *(f"link add {port} up type veth peer name {port}-far" for port in self.ports),
        )  # fmt: skip
        super().setUp()

    def tearDown(self):
        """In the end, the doctor finds nothing that differs, but for a reason."""
        super().tearDown()
        for agent in self.agents:
            if agent.process.runs():
                await_equal(lambda: agent.differences()[0], 0)
                self.assertNotIn(None, agent.differences()[1].values())

    def follow(self, remote, *options, plane="linux", **more):
        return super().follow(remote, *options, plane=plane, **more)

    def assert_programmed(self):
        """The kernel comes to have what the database has, and the doctor agrees. It may mention what
        others made of which the database knows nothing."""
        wanted = expected(self.database)
        await_equal(fdb, wanted)

        def differences():
            status, reasons = self.agent.differences()
            theirs = {key for key, why in reasons.items() if why == "foreign" and key not in wanted}
            return status, {key: reasons[key] for key in reasons.keys() - theirs}

        await_equal(differences, (0, {}))

    def wait_problem(self, *words):
        """That has all of these words."""

        def is_told():
            problems = map(str, self.agent.problems().values())
            return any(all(word in each for word in words) for each in problems)

        wait_for(f"a problem with {words}", is_told)

    def local_host(self, port, mac, address):
        """Behind an access port."""
        host = Namespace(self, f"host-{port}")
        ip(f"link add {port} up type veth peer name eth0 netns {host.id}")
        host.ip(f"link set eth0 address {mac} up", f"addr add {address}/16 dev eth0")
        return host

    def remote(self, vtep, mac, address):
        """A VTEP, with a host of its own."""
        remote = Namespace(self, f"remote-{vtep}")
        port = f"to{vtep}"
        ip(f"link add {port} up master underlay type veth peer name eth0 netns {remote.id}")
        remote.ip(
            f"addr add {vtep}/32 dev eth0", "link set eth0 up", f"route add {OWN} dev eth0",
            f"link add vx type vxlan id 5001 local {vtep} dstport 4789 nolearning noudpcsum",
            f"link set vx address {mac} mtu 1450 up", f"addr add {address}/16 dev vx",
        )  # fmt: skip
        remote.run("bridge", "fdb", "append", ZERO, "dev", "vx", "dst", OWN)
        return remote
