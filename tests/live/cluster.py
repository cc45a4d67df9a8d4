"""Clusters of database servers, and what servers and agents need to meet over TCP and TLS."""

import re
import subprocess

from harness import PATIENCE, SCHEMA, Server, run, wait_for


class Member(Server):
    """One of a cluster; the first member makes it, the others join it."""

    def __init__(self, directory, number):
        self._addresses = [f"unix:{directory}/{each}.raft" for each in {number, 0}]
        self._addresses.sort(key=lambda each: f"/{number}.raft" not in each)
        self._control = directory / f"{number}.ctl"
        super().__init__(directory, str(number))

    def create(self, schema=SCHEMA):
        if len(self._addresses) == 1:
            run("ovsdb-tool", "create-cluster", self.file, schema, *self._addresses)
        else:
            run("ovsdb-tool", "join-cluster", self.file, "hardware_vtep", *self._addresses)

    def says(self, line):
        """Whether it runs, and its report of itself has a line like "Role: leader"."""
        command = ["ovs-appctl", "-t", self._control, "cluster/status", "hardware_vtep"]
        done = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE)
        return line in done.stdout.splitlines()


class Cluster:
    def __init__(self, directory, size=3):
        self.members = [Member(directory, number).start() for number in range(size)]
        for each in self.members:
            wait_for("a member", lambda each=each: each.says("Status: cluster member"))

    def leader(self, among=None):
        """The leader; `among` leaves out those that are frozen."""
        return wait_for("a leader", lambda: self._leader(among or self.members))

    @staticmethod
    def _leader(among):
        return next((each for each in among if each.says("Role: leader")), None)

    def others(self, member):
        return [each for each in self.members if each is not member]

    def kill(self):
        for each in self.members:
            each.process.kill()


def port_of(server):
    """Where a server listens that was told to choose a port."""
    listens = re.compile(r"listening on port (\d+)")
    return wait_for("a port", lambda: listens.search(server.process.said()))[1]


class Authority:
    """Certifies keys."""

    def __init__(self, directory, name):
        self._directory = directory
        self._name = name
        self.certificate, self._key = self._made(name)

    def _made(self, name, *options):
        certificate, key = self._directory / f"{name}.pem", self._directory / f"{name}.key"
        run(
            "openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
            "-subj", f"/CN={name}", "-keyout", key, "-out", certificate, *options,
        )  # fmt: skip
        return certificate, key

    def options(self, name):
        """What lets servers and agents show a certificate of this authority, and ask for one."""
        signed = ("-CA", self.certificate, "-CAkey", self._key)
        certificate, key = self._made(f"{self._name}-{name}", *signed)
        return [
            f"--private-key={key}",
            f"--certificate={certificate}",
            f"--ca-cert={self.certificate}",
        ]
