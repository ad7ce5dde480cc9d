"""kel, servers and clients of ours with a name server in Python, which must be to them what kelnmsd is."""

import os
import random
import subprocess

from driving import AS_ROOT, IS_SANITIZED, KEL, KelCase, run
from names_peer import REGISTER, Server

NAMES = ["_ServerName", "_PortNumber", "owner", "gr\u00fc\u00df", "\udcff odd", "a b"]
VALUES = ["a", "4711", "", "x=y", "\udcfe\n", "v" * 255]


def single_bytes(answer):
    return [answer[at:at + 1] for at in range(len(answer))]


class NameServers(KelCase):
    def python_server(self, **options):
        server = Server(**options)
        self.addCleanup(server.end)
        self.environment["ORVNMSPORT"] = str(server.port)
        return server

    def answer(self, *words, program=KEL, port=None):
        """Code, output and complaint of a program that asks the name server at the port."""
        environment = dict(self.environment, ORVNMSPORT=str(port)) if port else self.environment
        done = subprocess.run([program, *words], env=environment, cwd=self.here, capture_output=True, timeout=120,
                              encoding="utf-8", errors="surrogateescape")
        return done.returncode, done.stdout, done.stderr.replace(environment["ORVNMSPORT"], "PORT")

    def test_both_answer_alike(self):
        self.name_server()
        ours, chance, served = self.environment["ORVNMSPORT"], random.Random(5), self.python_server()
        codes = set()
        for step in range(12 if IS_SANITIZED else 60):
            fields = {chance.choice(NAMES): chance.choice(VALUES) for _ in range(chance.randint(1, 3))}
            words = ["nms", "list", "--json"]
            if step % 7:
                words[1:] = [chance.choice(["register", "register", "query", "delete"])]
                words += ["--process", str(os.getpid())] * (words[1] == "register" and step % 5 == 0)
                words += ["--", *(f"{name}={value}" for name, value in fields.items())]
            expected = self.answer(*words, port=ours)
            self.assertEqual(self.answer(*words, port=served.port), expected, words)
            codes.add(expected[0])
        self.assertEqual(codes, {0, 1})
        for words in (["query", "--json", "_ServerName=a"], ["list"], ["shutdown"], ["version"]):
            expected = self.answer("nms", *words, port=ours)
            self.assertEqual(self.answer("nms", *words, port=served.port), expected, words)
        self.assertEqual(expected[0], 1, "both have ended")

    def test_pieces_of_every_size(self):
        def split(answer):
            self.length = len(answer)
            return [answer[:at], answer[at:]] if at else single_bytes(answer)

        at, server = 0, self.python_server(split=split)
        self.assertEqual(server.records.serve(REGISTER, {"_ServerName": "stock", "_PortNumber": "4711"}), 0)
        for words in (["list"], ["version"], ["delete", "_ServerName=none"]):
            at = 0
            whole = self.answer("nms", *words)
            self.assertEqual(whole[0], int(words[0] == "delete"), whole)
            for at in range(1, self.length, 29 if IS_SANITIZED else 1):
                self.assertEqual(self.answer("nms", *words), whole, f"{words} split at {at}")

    def test_servers_are_found(self):
        names = self.python_server(split=single_bytes)
        self.environment["SHELL"] = "/bin/sh"
        shell = self.daemon("KELRSHD", *AS_ROOT, stderr=subprocess.DEVNULL)
        self.assertTrue(shell.is_ready)
        sums = self.started(os.environ["REQUEST"], "serve", "sums", stdout=subprocess.PIPE)
        sums.stdout.readline()
        self.assertEqual([(process, fields["_ServerName"]) for process, fields in names.records.kept],
                         [(shell.pid, "kelrshd"), (sums.pid, "sums")])
        self.assertEqual(self.answer("rsh", "localhost", "--", "sh", "-c", "echo here; exit 3"), (3, "here\n", ""))
        self.assertIn(" answers: ", self.answer("server", "ping", "sums@localhost")[1])
        self.assertIn("17 + 25 = 42", self.answer("calculate", "sums@localhost", "17 + 25", program=os.environ["REQUEST"])[1])
        self.assertIn("taken", self.answer(*AS_ROOT, "--foreground", program=os.environ["KELRSHD"])[2])
        for server, name in ((shell, "kelrshd"), (sums, "sums")):
            server.kill()
            server.wait()
            self.assertIn(f"no server {name} is registered on this machine", self.answer("server", "ping", name)[2])


run()
