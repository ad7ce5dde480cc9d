# Three hosts on one network: who may do what across machines.
#
# alpha has the name server and a server; beta and gamma are its clients, from addresses that patterns tell apart. Each
# host is a network namespace. They, the bridge between them and a table of host names stand in namespaces of this
# process, so nothing of the machine is changed, and all of it is gone when the process is, however that ends.
# Where namespaces or the program ip may not be used, the test is skipped.
#
# What goes over the wire is written by hand here; the library's own clients are asked beside that.

import ctypes
import itertools
import os
import pathlib
import select
import socket
import subprocess
import sys
import tempfile
import unittest

from names_peer import DELETE, PING, QUERY, REFUSED, REGISTER, SHUTDOWN, record, request
from peer import ints

SKIPPED = 77
LIBC = ctypes.CDLL(None)
# With the first process of a process namespace, all others in it are gone.
NAMESPACES = ["unshare", "--net", "--uts", "--mount-proc", "--pid", "--fork", "--kill-child"]
TRIAL = "ip link add name lan type bridge && ip link add name a type veth peer name b && hostname trial"


def enter_namespaces():
    # Runs this program anew in namespaces of its own: as the superuser, or as a user who may have them.
    for way in (NAMESPACES, NAMESPACES + ["--map-root-user"]):
        tried = subprocess.run(["sh", "-c", '"$@"', "sh", *way, "sh", "-c", TRIAL], capture_output=True, text=True)
        if tried.returncode == 0:
            os.execvp(way[0], [*way, sys.executable, __file__, "--inside", *sys.argv[1:]])
    print("skipped: network namespaces cannot be made here:", tried.stderr.strip())
    sys.exit(SKIPPED)


def run(*command):
    subprocess.run(command, check=True, capture_output=True)


class Host:
    def __init__(self, name, v4, v6):
        self.name, self.v4, self.v6, self.addresses = name, v4, v6, (v4, v6)
        # cat lives until its input ends, with this process at the latest; its first answer shows that the host exists.
        self.holder = subprocess.Popen(["unshare", "--net", "--uts", "cat"], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, bufsize=0)
        self.holder.stdin.write(b"?")
        assert self.holder.stdout.read(1) == b"?"
        run(*f"ip link add name {name} master lan up type veth peer name eth0 netns {self.holder.pid}".split())
        for command in (f"hostname {name}", "ip link set lo up", f"ip address add {v4}/16 dev eth0",
                        f"ip address add {v6}/64 dev eth0 nodad", "ip link set eth0 up"):
            run(*self.here(command.split()))

    def here(self, command):
        return ["nsenter", "--net", "--uts", "--target", str(self.holder.pid), *map(str, command)]

    def start(self, *command):
        # The first line of a program, which then goes on.
        process = subprocess.Popen(self.here(command), env=ENVIRONMENT, stdout=subprocess.PIPE, text=True)
        unittest.addModuleCleanup(process.wait)
        unittest.addModuleCleanup(process.kill)
        return process.stdout.readline()

    def run(self, *command):
        return subprocess.run(self.here(command), env=ENVIRONMENT, capture_output=True, text=True, timeout=120)

    def talk(self, jobs):
        # Answers to (address, port, bytes, how many bytes to read), each on a connection of its own from this host.
        # One that ends early is what has come.
        answers = []
        with open(f"/proc/{self.holder.pid}/ns/net") as there, open("/proc/self/ns/net") as back:
            assert LIBC.setns(there.fileno(), 0) == 0
            for address, port, sent, count in jobs:
                with socket.create_connection((address, port)) as connection:
                    connection.sendall(sent)
                    answers.append(connection.recv(count, socket.MSG_WAITALL))
            assert LIBC.setns(back.fileno(), 0) == 0
        return answers


def setUpModule():
    global ENVIRONMENT, alpha, beta, gamma, port
    folder = tempfile.TemporaryDirectory(prefix="kelstdmt-hosts-")
    unittest.addModuleCleanup(folder.cleanup)
    ENVIRONMENT = dict(os.environ, KELSTDMT_REGISTRY=folder.name + "/registry", HOME=folder.name, LC_ALL="C.UTF-8")
    ENVIRONMENT.pop("ORVNMSPORT", None)  # the hosts have all ports for themselves
    run("ip", "link", "add", "name", "lan", "up", "type", "bridge")
    alpha = Host("alpha", "10.0.0.1", "fd00::a:1")
    beta = Host("beta", "10.0.0.7", "fd00::b:7")
    gamma = Host("gamma", "10.0.1.7", "fd00::c:7")
    table = pathlib.Path(folder.name) / "hosts"
    table.write_text("127.0.0.1 localhost\n10.0.0.1 alpha alpha4\nfd00::a:1 alpha6\n10.0.0.7 beta\n10.0.1.7 gamma\n")
    run("mount", "--bind", table, "/etc/hosts")  # in the mount namespace of this process
    alpha.start(KELNMSD, "--port", "1239", "--foreground")
    # Its clients are the superuser of these namespaces alone.
    alpha.start(KELRSHD, "--foreground", "--allow-root", "--log", folder.name + "/log")
    port = int(alpha.start(REQUEST, "serve", "Arithmetic").split("port ")[1].split(",")[0])


class Hosts(unittest.TestCase):
    def says(self, host, command, words, code=0):
        done = host.run(*command)
        self.assertEqual((done.returncode, words in done.stdout + done.stderr), (code, True),
                         f"{host.name}: {command}: {done.returncode} {done.stdout}{done.stderr}")

    def allow(self, machine, user, name="Arithmetic"):
        for layer, patterns in (("--machine", machine), ("--user", user)):
            alpha.run(KEL, "reg", "del", "-r", layer, "Software/ORV/" + name)
            if patterns is not None:
                self.says(alpha, [KEL, "reg", "set", layer, "Software/ORV/" + name, "ConnectionAllowed", patterns], "")

    def test_a_server_is_found_by_its_host(self):
        self.allow(None, None)
        for host, place in itertools.product((alpha, beta, gamma), ("@alpha", "@alpha6", "@10.0.0.1", "@fd00::a:1")):
            self.says(host, [REQUEST, "calculate", "Arithmetic" + place, "17 + 25"], "17 + 25 = 42")
        self.says(alpha, [KEL, "server", "ping", "Arithmetic"], f"port {port} answers")
        self.says(gamma, [KEL, "server", "ping", "Arithmetic@beta"], "no name server answers on beta, port 1239", 1)
        self.says(beta, [KEL, "server", "ping", "Arithmetic"], "no name server answers on this machine", 1)

    def test_permission_lists(self):
        remote = (beta.v4, beta.v6, gamma.v4, gamma.v6)
        for machine, user, allowed in (
                (None, None, remote), ("", None, ()), (None, "[", ()), ("FD00::*", None, ()),
                ("10.0.0.* fd00::b:*", None, (beta.v4, beta.v6)),
                (None, "10.0.1.7 fd00::?:7", (beta.v6, gamma.v4, gamma.v6)),
                ("10.*", "10.0.1.* fd00::*", (gamma.v4,)),
                ("10.0.0.*", "10.0.1.*", ())):
            self.allow(machine, user)
            for host in (alpha, beta, gamma):
                # The family of the address that is asked is that of the one that asks.
                for own, asked in zip(host.addresses, alpha.addresses):
                    granted = own in allowed or host is alpha
                    answers = host.talk([(asked, port, wish, 99) for wish in (b"\1", b"\2", *[b"\3"] * (not granted))])
                    version = b"\1\x1bKEL netServer Version 0.99\0"
                    expected = [b"\1", version] if granted else [b"\1", b"\0", b"\0"]
                    self.assertEqual(answers, expected, (machine, user, host.name, own))
        self.allow("10.0.0.*", None)
        self.says(beta, [REQUEST, "calculate", "Arithmetic@alpha", "2 * 3"], "2 * 3 = 6")
        self.says(gamma, [REQUEST, "calculate", "Arithmetic@alpha", "2 * 3"], "lack of rights", 3)
        self.says(gamma, [KEL, "server", "shutdown", "Arithmetic@alpha"], "refuses this machine", 1)

    def test_records_are_for_the_own_machine(self):
        new, known = record({"_ServerName": "New", "_PortNumber": "9"}), record({"_ServerName": "Arithmetic"})
        refused, fine, none = bytes([REFUSED]), b"\0", ints(0)
        for host, asked in itertools.product((beta, gamma), alpha.addresses):
            # Each is refused, and the same connection then serves a ping.
            answers = host.talk([(asked, 1239, request(code, body) + request(PING), count) for code, body, count in (
                (REGISTER, new, 2), (DELETE, known, 6), (DELETE, record({}), 6), (SHUTDOWN, b"", 2), (QUERY, new, 6))])
            self.assertEqual(answers, [refused + fine, refused + none + fine, refused + none + fine, refused + fine,
                                       fine + none + fine], (host.name, asked))
            self.assertEqual(host.talk([(asked, 1239, request(QUERY, known), 5)]), [fine + ints(1)])
        self.says(beta, [KEL, "nms", "delete", "Arithmetic", "--host", "alpha"], "this is for programs on its own", 1)
        for asked in alpha.addresses + ("127.0.0.1",):  # which are all of one machine
            answers = alpha.talk([(asked, 1239, request(code, new), count)
                                  for code, count in ((REGISTER, 1), (REGISTER, 1), (DELETE, 5))])
            self.assertEqual(answers, [fine, b"\4", fine + ints(1)], asked)

    def test_remote_commands(self):
        command = ["--shell", "alpha", "--", "hostname; exit 3"]
        for machine, allowed in ((None, ()), ("10.0.0.*", (beta,)), ("10.*", (beta, gamma))):
            self.allow(machine, None, "kelrshd")
            for host in (alpha, beta, gamma):
                if host is alpha or host in allowed:
                    self.says(host, [KEL, "rsh", *command], "alpha\n", 3)
                else:
                    self.says(host, [KEL, "rsh", *command], "server on alpha refuses this machine", 255)
        log = pathlib.Path(ENVIRONMENT["HOME"], "log").read_text()
        self.assertIn(f"{gamma.v4} refused: not permitted by the lists of software/orv/kelrshd\n", log)

    def test_remote_commands_that_are_cut_off(self):  # as beta then is to the end
        self.allow("10.*", None, "kelrshd")
        for host in (alpha, beta):  # bytes that nobody acknowledges are given up soon
            run(*host.here(["sh", "-c", "echo 2 >/proc/sys/net/ipv4/tcp_retries2"]))
        # A little goes both ways all the time, also behind the cut: neither side is held back by the other.
        drip = "while echo; do sleep 0.01; done"
        pipe = f'{drip} | "$0" rsh --shell alpha -- \'echo $$ >&2; {drip}\''
        client = subprocess.Popen(beta.here(["sh", "-c", pipe, KEL]), env=ENVIRONMENT, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.PIPE)
        command = os.pidfd_open(int(client.stderr.readline()))
        self.addCleanup(os.close, command)
        run("ip", "link", "set", "beta", "down")
        errors = client.communicate(timeout=100)[1]
        self.assertEqual((client.returncode, errors), (255, b"kel rsh: the connection to alpha was lost\n"))
        self.assertTrue(select.select([command], [], [], 100)[0], "the command goes on")


if __name__ == "__main__":
    if sys.argv[1] != "--inside":
        enter_namespaces()
    KELNMSD, KEL, REQUEST, KELRSHD = map(os.path.abspath, sys.argv[2:6])
    unittest.main(argv=sys.argv[:1] + sys.argv[6:])
