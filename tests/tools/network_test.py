# kel nms and kel server, against the name server, a server of ours, and peers of every sort that are written here.

import socket
import threading

from driving import KelCase, run
from peer import Peer


class Network(KelCase):
    def peer(self, *answers):
        # The port of one that takes a byte of each connection, gives its answer and hangs up; None is no
        # answer, and no end.
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

        threading.Thread(target=serve, daemon=True).start()
        return listener.getsockname()[1]

    def fails(self, words, *command):
        self.run_kel(*command, code=1)
        self.assertIn(words, self.complaint)
        self.assertEqual(self.complaint.count("\n"), 1, self.complaint)

    def test_what_people_read(self):
        self.name_server()
        child = self.started("sleep", 600)
        for words in ("zeta 99 --process " + str(child.pid), "adder 4711 owner=ann", "colour=red\a"):
            self.run_kel("nms", "register", *words.split(" "))
        self.assertEqual(self.run_kel("nms", "list").decode().replace(str(child.pid), "PID"),
                         "SERVER  PORT  PROCESS  OTHER FIELDS\n-       -     -        colour=red\\x07\n"
                         "adder   4711  -        owner=ann\nzeta    99    PID\n")
        self.assertEqual(self.run_kel("nms", "query", "zeta").decode(),
                         f"_ServerName = zeta\n_PortNumber = 99\n(process) = {child.pid}\n")
        [record] = self.json_of("nms", "query", "zeta")["records"]
        fields = [{"name": "_ServerName", "value": "zeta"}, {"name": "_PortNumber", "value": "99"}]
        self.assertEqual(record, {"server": "zeta", "port": 99, "process": child.pid, "fields": fields})
        self.assertIs(self.json_of("nms", "ping")["alive"], True)
        self.assertRegex(self.json_of("nms", "version")["version"], r"kelnmsd \d+\.\d+")
        self.fails("has no such record", "nms", "delete", "none")
        self.fails("not a record: at most 256 fields", "nms", "register", "x" * 300, "1")
        self.fails("has such a record already", "nms", "register", "adder", "1")
        child.kill()
        child.wait()
        self.fails("no such process", "nms", "register", "late", "1", "--process", str(child.pid))
        self.run_kel("nms", "shutdown", "--host", "localhost")
        self.fails(f"on localhost, port {self.environment['ORVNMSPORT']}", "nms", "ping", "--host", "localhost")

    def test_name_servers_that_misbehave(self):
        hostile = b"\0" + b"\x7f\xff\xff\xff" * 4  # so many records
        for command in ("nms list --host 127.0.0.1", "nms version --host 127.0.0.1", "server ping a@127.0.0.1"):
            for answer, words in ((hostile, ""), (b"\3", "does not know"), (b"\7", "status 7"), (None, "within 0.2 s")):
                self.environment["ORVNMSPORT"] = str(self.peer(answer))
                self.fails(words, *command.split(), *["--timeout", "0.2"] * (answer is None))

    def test_servers_of_the_test(self):
        self.name_server()
        for number, (answers, command, words) in enumerate((
                ([b"\1"], "ping", b" answers: "), ([b"\1", b"\1\x04abc\0"], "version", b"abc\n"),
                ([b"\1", b"\1"], "shutdown", b""), ([b"\0"], "ping", "does not answer"),
                ([b"\1", b"\0"], "shutdown", "refuses this machine"), ([b"\1", b"\1\4abc"], "version", "refuses"),
                ([b"\1", None], "shutdown", "within 2 s"), ([None], "ping", "within 2 s"))):
            self.run_kel("nms", "register", "adder", str(self.peer(*answers)))
            target = ("adder", "adder@127.0.0.1")[number % 2]
            if isinstance(words, bytes):
                self.assertIn(words, self.run_kel("server", command, target))
                self.assertEqual(self.asked[-1][0], {"ping": 1, "version": 2, "shutdown": 3}[command])
            else:
                self.fails(words, "server", command, target, *["-t", "2"] * (None in answers))
            self.assertEqual(len(self.asked), len(answers) - answers.count(None), f"answers to {command}")
            self.run_kel("nms", "delete", "adder")
        self.assertTrue(self.json_of("server", "ping", f":{self.peer(bytes([1]))}@127.0.0.1")["alive"])
        port = self.peer(b"\1", b"\1\4v.1\0")
        self.assertEqual(self.json_of("server", "version", f":{port}@127.0.0.1")["version"], "v.1")
        for line in ("nms query =a", "nms register a 1 2", "nms register a 70000", "nms ping --host=", "nms list -t 0",
                     "nms register a 1 --process 1", "server ping", "server ping @a", "server ping a@"):
            self.run_kel(*line.split(), code=2)


run()
