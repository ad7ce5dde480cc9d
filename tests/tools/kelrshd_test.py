"""kelrshd with a name server of its own, and a client that is written here: what it runs, refuses, logs and ends."""

import ctypes
import os
import re
import select
import signal
import socket
import struct
import subprocess
import threading
import unittest

from driving import KelCase, run

ERROR, OUTPUT, INPUT, INPUT_END, CODE, END = 2, 3, 4, 5, 6, 7
NEW_NETWORK = 0x40000000
IS_ROOT = os.geteuid() == 0
AS_ROOT = ["--allow-root"] * IS_ROOT


class Command:
    """A command of the server at a port: `reason` is why it was not started."""

    def __init__(self, port, text, folder="", shell=0, host="127.0.0.1", source=None):
        self.socket = socket.create_connection((host, port), 60, source)
        self.outputs, self.code, self.reason = {OUTPUT: b"", ERROR: b""}, None, None
        self.socket.sendall(b"\0")
        self.is_permitted = self.take(1) == b"\1"
        if not self.is_permitted:
            return
        self.say(len(text), text.encode(), len(folder), folder.encode(), shell)
        if self.int() != 0:
            self.int()
            self.reason = self.take(self.int()).decode()

    def say(self, *parts):
        self.socket.sendall(b"".join(part if isinstance(part, bytes) else struct.pack(">i", part) for part in parts))

    def take(self, count):
        got = b""
        while len(got) < count and (more := self.socket.recv(count - len(got))):
            got += more
        return got

    def int(self):
        return struct.unpack(">i", self.take(4))[0]

    def step(self):
        tag = self.int()
        if tag in self.outputs:
            self.outputs[tag] += self.take(self.int())
        elif tag == CODE:
            self.code = self.int()
        return tag

    def line(self):
        while b"\n" not in self.outputs[OUTPUT]:
            self.step()
        return self.outputs[OUTPUT].decode()

    def finish(self):
        while self.step() != END:
            pass
        self.say(END)
        self.socket.close()
        return self.code, self.outputs[OUTPUT].decode(), self.outputs[ERROR].decode()


class RemoteShellServer(KelCase):
    def setUp(self):
        super().setUp()
        self.environment.update(XDG_RUNTIME_DIR=str(self.here), SHELL="/bin/sh")

    def server(self, *arguments, **options):
        """One that is ready; its log is a file, and its port is the one that the name server tells."""
        daemon = self.daemon("KELRSHD", "--log", "log", *AS_ROOT, *arguments, **options)
        self.assertTrue(daemon.is_ready, f"kelrshd {arguments} does not serve")
        self.port = self.ports()["kelrshd"]
        return daemon

    def command(self, *arguments, port=None, **options):
        command = Command(port or self.port, *arguments, **options)
        self.addCleanup(command.socket.close)
        return command

    def ports(self):
        records = [{field["name"]: field["value"] for field in record["fields"]}
                   for record in self.json_of("nms", "list")["records"]]
        return {record["_ServerName"]: int(record["_PortNumber"]) for record in records}

    def log(self, *patterns):
        """The lines behind their times, once one matches each pattern: the server writes when its client has gone."""
        for _ in range(100000):
            lines = (self.here / "log").read_text().splitlines()
            if all(any(re.search(pattern, line) for line in lines) for pattern in patterns):
                break
        else:
            self.fail(f"expected lines like {patterns}, saw {lines}")
        for line in lines:
            self.assertRegex(line, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} ")
        return [line.split(" ", 1)[1] for line in lines]

    def await_end(self, process):
        """Of a process that is nobody's child here."""
        try:
            watched = os.pidfd_open(process)
        except ProcessLookupError:
            return
        with os.fdopen(watched) as end:
            poll = select.poll()
            poll.register(end, 1)
            self.assertTrue(poll.poll(60000), f"process {process} goes on")

    def fails(self, words, *arguments, program=(), **environment):
        done = subprocess.run([*program, os.environ["KELRSHD"], *arguments], capture_output=True, text=True, timeout=60,
                              env=dict(self.environment, **environment), cwd=self.here)
        self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
        self.assertRegex(done.stderr, rf"\Akelrshd: .*{words}.*\n\Z")

    def test_what_runs_is_in_the_log(self):
        self.name_server()
        (self.here / "base" / "below").mkdir(parents=True)
        base = (self.here / "base").resolve()
        self.server("--base", "base")
        self.assertEqual(self.command("pwd").finish(), (0, f"{base}\n", ""))
        self.assertEqual(self.command("pwd", "below").finish(), (0, f"{base}/below\n", ""))
        self.assertEqual(self.command("echo a; echo b >&2; exit 3 #\x1b[2J\n", "/", 1).finish()[:2], (3, "a\n"))
        self.assertTrue(self.command("nowhere-\r\"x").reason)
        killed = self.command("kill -9 $$", shell=1)
        self.assertEqual(killed.finish()[0], 137)
        left = self.command("sleep 600 & echo $!; wait; : " + "x" * 2000, shell=1)
        child = int(left.line())
        left.socket.close()
        self.await_end(child)
        lines = self.log("137 .*client has left", "refused")
        started = [line for line in lines if " started " in line]
        for line, text in zip(started, (r'"pwd" in ".*base"|"pwd"', r'"pwd" in ".*base/below"',
                                        r'shell "echo a; echo b >&2; exit 3 #\\x1B\[2J\\n" in "/"',
                                        r'shell "kill -9 \$\$"', r'shell "sleep .*x"\.\.\. \(20\d\d bytes\)'), strict=True):
            self.assertRegex(line, rf"^127\.0\.0\.1 started \d+: ({text})$")
            self.assertLess(len(line), 1200)
        ends = [next(end for end in lines if end.startswith("127.0.0.1 ended " + line.split()[2])) for line in started]
        self.assertEqual([end.split(": ")[1] for end in ends],
                         ["exit code 0", "exit code 0", "exit code 3", "exit code 137 (signal 9)",
                          "exit code 137 (signal 9), its client has left"])
        self.assertRegex("\n".join(lines), r'127\.0\.0\.1 refused "nowhere-\\r\\"x": .')

    def test_the_limit(self):
        self.name_server()
        self.server("--limit", 2)
        running = [self.command("cat") for _ in range(2)]
        self.assertIn("2 commands run already", self.command("true").reason)
        self.assertIn('127.0.0.1 refused "true": 2 commands run already, which is the limit', self.log("limit$"))
        running[0].say(INPUT, 3, b"abc", INPUT_END)
        self.assertEqual(running[0].finish(), (0, "abc", ""))
        self.log("ended")
        while (late := self.command("echo late")).reason:
            pass  # the place is free when the server has seen its client go
        self.assertEqual(late.finish(), (0, "late\n", ""))

    def test_the_end_of_the_server_ends_what_runs(self):
        self.name_server()
        for addresses in ([], ["--listen=127.0.0.1", "--listen=127.0.0.2"]):
            daemon = self.server(*addresses)
            commands = [self.command("sleep 600 & echo $!; trap '' TERM; wait", shell=1, host=host)
                        for host in ("127.0.0.1", "127.0.0.2", "127.0.0.2")]
            children = [int(command.line()) for command in commands]
            daemon.terminate() if not addresses else self.run_kel("server", "shutdown", f":{self.port}@127.0.0.2")
            for command in commands:
                self.assertEqual(command.finish()[0], 137)
            self.assertEqual(daemon.wait(60), 0)
            for child in children:
                self.await_end(child)
            self.assertEqual(self.ports(), {})

    def test_a_daemon_and_a_second_one(self):
        self.name_server()
        arguments = [*AS_ROOT, "--log", "log"]
        subprocess.run([os.environ["KELRSHD"], *arguments], check=True, env=self.environment, cwd=self.here, timeout=60)
        process = int((self.here / "kelrshd.pid").read_text())
        self.addCleanup(lambda: os.path.exists(f"/proc/{process}") and os.kill(process, signal.SIGKILL))
        self.assertEqual(self.command("echo here", port=self.ports()["kelrshd"]).finish(), (0, "here\n", ""))
        self.fails(f"kelrshd.pid is held by process {process}", *arguments)
        self.fails("name kelrshd is taken", *arguments, "--pid-file", "other.pid")
        self.fails("cannot listen on port", *arguments, "--foreground", "--port", str(self.ports()["kelrshd"]))
        self.server("--user-server")
        user = subprocess.run(["id", "-un"], capture_output=True, text=True, check=True).stdout.strip()
        self.assertEqual(self.command("echo mine", port=self.ports()["kelrshd-" + user]).finish(), (0, "mine\n", ""))
        os.kill(process, signal.SIGTERM)
        self.await_end(process)
        self.assertFalse((self.here / "kelrshd.pid").exists())

    def test_what_keeps_it_from_starting(self):
        self.fails("no name server answers on port 1 of this machine", "--foreground", *AS_ROOT, ORVNMSPORT="1")
        self.name_server()
        self.fails("folder nowhere", "--foreground", *AS_ROOT, "--base", "nowhere")
        self.fails("listen on localhost", "--foreground", *AS_ROOT, "--listen", "localhost")
        self.fails("cannot write the log", "--foreground", *AS_ROOT, "--log", "/nowhere/log")
        if IS_ROOT:
            self.fails("every client would be root", "--foreground")
            self.here.chmod(0o777)
            daemon = self.daemon("KELRSHD", "--log", "other-log", user=65534, group=65534, extra_groups=[])
            self.assertTrue(daemon.is_ready)
            self.assertEqual(self.command("id -u", port=self.ports()["kelrshd"]).finish()[1], "65534\n")

    def test_a_name_server_that_is_started_anew(self):
        for journal in ([], ["--journal", "names"]):
            names = self.name_server(*journal)
            daemon = self.server()
            names.kill()
            names.wait()
            self.assertTrue(self.daemon("KELNMSD", "--port", self.environment["ORVNMSPORT"], *journal).is_ready)
            while "kelrshd" not in self.ports():
                self.assertEqual(journal, [], "a journal keeps the name")
            self.assertEqual(self.command("echo found", port=self.ports()["kelrshd"]).finish(), (0, "found\n", ""))
            if not journal:
                self.assertIn("registered again: the name server had lost the name kelrshd", self.log("again"))
            daemon.terminate()
            daemon.wait()

    def test_other_machines_need_a_list(self):
        outcome = []

        def on_another_network():
            if ctypes.CDLL(None).unshare(NEW_NETWORK) != 0 or os.system(
                    "ip link set lo up && ip route add local 10.0.0.0/8 dev lo") != 0:
                outcome.append(None)
                return
            self.name_server()
            self.server()

            def is_permitted(peer):
                return self.command("true", host="10.1.1.1", source=(peer, 0)).is_permitted

            outcome.append([is_permitted("10.0.0.7"), self.command("true").is_permitted])
            self.run_kel("reg", "set", "software/orv/kelrshd", "ConnectionAllowed", "10.0.0.*")
            outcome[0] += [is_permitted("10.0.0.7"), is_permitted("10.0.1.7")]

        thread = threading.Thread(target=on_another_network)  # a network is a thread's
        thread.start()
        thread.join()
        if outcome == [None]:
            raise unittest.SkipTest("no right to a network of its own")
        self.assertEqual(outcome, [[False, True, True, False]])
        self.assertEqual([line for line in self.log(r"\.1\.7 refused") if "refused" in line],
                         [f"10.0.{part}.7 refused: not permitted by the lists of software/orv/kelrshd" for part in (0, 1)])
        self.assertRegex("\n".join(self.log()), "10.0.0.7 started")


run()
