"""kel nms and kel server, against the name server, a server of ours, and peers of every sort that are written here."""

import socket
import subprocess
import threading

from driving import AS_ROOT, KelCase, run
from peer import Peer, ints

VERSION = b"KEL netServer Version 0.99\0"


class Network(KelCase):
    def peer(self, *answers):
        """The port of one that takes a byte of each connection, gives its answer and hangs up; None is no
        answer, and no end."""
        listener = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(listener.close)
        self.asked = []

        def serve():
            for answer in answers:
                peer = Peer(listener.accept()[0])
                self.addCleanup(peer.close)
                if answer is not None:
                    self.asked.append(peer.recv(1))
                    peer.say(answer)
                    peer.shutdown(socket.SHUT_WR)

        thread = threading.Thread(target=serve, daemon=True)
        thread.start()
        return listener.getsockname()[1]

    def fails(self, words, *command):
        self.run_kel(*command, code=1)
        self.assertIn(words, self.complaint)
        self.assertEqual(self.complaint.count("\n"), 1, self.complaint)

    def test_what_people_read(self):
        daemon = self.name_server()
        child = self.started("sleep", 600)
        self.run_kel("nms", "register", "zeta", "99", "--process", str(child.pid))
        self.run_kel("nms", "register", "adder", "4711", "owner=ann")
        self.run_kel("nms", "register", "colour=red\a")
        self.assertEqual(self.run_kel("nms", "list").decode().replace(str(child.pid), "PID"),
                         "SERVER  PORT  PROCESS  OTHER FIELDS\n-       -     -        colour=red\\x07\n"
                         "adder   4711  -        owner=ann\nzeta    99    PID\n")
        self.assertEqual(self.run_kel("nms", "query", "zeta").decode(),
                         f"_ServerName = zeta\n_PortNumber = 99\n(process) = {child.pid}\n")
        self.fails("has such a record already", "nms", "register", "adder", "1")
        self.run_kel("nms", "register", "wrong", "70000", code=2)
        self.assertIn("no port from 1 to 65535: 70000", self.complaint)
        child.kill()
        child.wait()
        self.fails("no such process", "nms", "register", "late", "1", "--process", str(child.pid))
        while b"zeta" in self.run_kel("nms", "list"):
            pass  # the name server hears of the end when the system tells it
        self.assertRegex(self.run_kel("nms", "ping"), rb"this machine answers: [0-9.]+ m?s\n")
        self.assertTrue(self.run_kel("nms", "version", "--host", "localhost").strip())
        self.run_kel("nms", "shutdown", "--host", "localhost")
        self.assertEqual(daemon.wait(60), 0)
        self.fails(f"on localhost, port {self.environment['ORVNMSPORT']}", "nms", "ping", "--host", "localhost")

    def test_name_servers_that_misbehave(self):
        answers = ["does not know", "already", "no such", "refuses", "status 7", "status 9"]
        for status, words in zip((3, 4, 5, 6, 7, 9), answers):
            self.environment["ORVNMSPORT"] = str(self.peer(bytes([status])))
            self.fails(words, "nms", "query", "a", "--host", "127.0.0.1")
        hostile = b"\0" + b"\x7f\xff\xff\xff" * 4  # so many records
        for answer, words in ((hostile, ""), (None, "within 0.2 s")):
            for command in (["nms", "list"], ["nms", "version"], ["server", "ping", "a@127.0.0.1"]):
                self.environment["ORVNMSPORT"] = str(self.peer(answer))
                host = ["--host", "127.0.0.1"] * (command[0] == "nms")
                self.fails(words, *command, *host, *["--timeout", "0.2"] * (answer is None))

    def test_servers_of_the_test(self):
        self.name_server()
        for number, (answers, command, words) in enumerate((
                ([b"\1"], "ping", b" answers: "), ([b"\1", b"\1\x04abc\0"], "version", b"abc\n"),
                ([b"\1", b"\1\x04a\0bc"], "version", b"a\n"), ([b"\1", b"\1\0"], "version", b"\n"),
                ([b"\1", b"\1\xff" + b"x" * 254 + b"\0more"], "version", b"x" * 254 + b"\n"),
                ([b"\1", b"\1\xff" + b"x" * 254], "version", "refuses this machine"),
                ([b"\1", b"\1"], "shutdown", b""), ([b"\0"], "ping", "does not answer"), ([b""], "ping", "does not answer"),
                ([b"\1", b"\0\1a"], "version", "refuses this machine"), ([b"\1", b"\0"], "shutdown", "refuses this machine"),
                ([b"\1", None], "shutdown", "within 0.3 s"), ([None], "ping", "within 0.3 s"))):
            self.run_kel("nms", "register", "adder", str(self.peer(*answers)))
            target = ("adder", "adder@127.0.0.1")[number % 2]
            if isinstance(words, bytes):
                self.assertIn(words, self.run_kel("server", command, target))
                self.assertEqual(self.asked[-1][0], {"ping": 1, "version": 2, "shutdown": 3}[command])
            else:
                self.fails(words, "server", command, target, *["-t", "0.3"] * (None in answers))
            self.run_kel("nms", "delete", "adder")
        self.assertTrue(self.json_of("server", "ping", f":{self.peer(bytes([1]))}@127.0.0.1")["alive"])
        self.fails("no server adder is registered on this machine", "server", "ping", "adder")
        self.run_kel("nms", "register", "adder", "_PortNumber=http")
        self.fails("with no port: http", "server", "version", "adder")
        for line in ("nms", "nms query", "nms query =a", "nms register a 1 2", "nms ping --host=", "nms list -t 0",
                     "nms register a 1 --process 1", "server ping", "server ping @a", "server ping a@", "server ping :0"):
            self.run_kel(*line.split(), code=2)

    def test_clients_of_the_test(self):
        """The handshake of a server of ours with clients that stop half way, cut the connection, or say nothing."""
        self.name_server()
        server = self.daemon("KELRSHD", *AS_ROOT, stderr=subprocess.DEVNULL)
        self.assertTrue(server.is_ready)
        port = int(self.json_of("nms", "query", "kelrshd")["records"][0]["port"])

        def client(said=b"", leaves=None):
            peer = Peer(socket.create_connection(("127.0.0.1", port)))
            self.addCleanup(peer.close)
            peer.say(said)
            return peer.leave(leaves) if leaves else peer

        silent = [client() for _ in range(20)]
        for said in (b"", b"\0", b"\2") * 50:
            client(said, "cut")
        for said, answer in ((b"", b""), (b"\1", b"\1"), (b"\2", b"\1\x1b" + VERSION), (b"\4", b""), (b"\xff\0\0", b""),
                             (b"\2\2", b"\1\x1b" + VERSION), (b"\0" + ints(-1), b"\1")):
            self.assertEqual(client(said, "half"), answer, said)
        urgent = client()
        urgent.send(b"\1", socket.MSG_OOB)
        self.assertEqual(urgent.leave("half"), b"", "a question out of band")
        silent[0].say(b"\1")
        self.assertEqual(silent[0].rest(), b"\1", "a late question")
        self.assertEqual(client(b"\3").rest(), b"\1")
        self.assertEqual(server.wait(60), 0)


run()
