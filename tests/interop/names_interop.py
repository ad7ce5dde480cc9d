# kel, servers and clients of ours with a name server in Python, which must be to them what kelnmsd is.

import os
import subprocess

from driving import AS_ROOT, KEL, KelCase, run
from names_peer import Server


class NameServers(KelCase):
    def answer(self, *words, program=KEL):
        # Code, output and complaint.
        done = subprocess.run([program, *words], env=self.environment, cwd=self.here, capture_output=True, timeout=120)
        return done.returncode, done.stdout.decode(errors="surrogateescape"), done.stderr.decode()

    def test_servers_are_found(self):
        names = Server()
        self.addCleanup(names.end)
        self.environment.update(ORVNMSPORT=str(names.port), SHELL="/bin/sh")
        shell = self.daemon("KELRSHD", *AS_ROOT, stderr=subprocess.DEVNULL)
        self.assertTrue(shell.is_ready)
        sums = self.started(os.environ["REQUEST"], "serve", "sums", stdout=subprocess.PIPE)
        sums.stdout.readline()
        self.assertEqual([(process, fields["_ServerName"]) for process, fields in names.records.kept],
                         [(shell.pid, "kelrshd"), (sums.pid, "sums")])
        self.assertEqual(self.answer("rsh", "localhost", "--", "sh", "-c", "echo here; exit 3"), (3, "here\n", ""))
        self.assertIn(" answers: ", self.answer("server", "ping", "sums@localhost")[1])
        self.assertIn(" = 42", self.answer("calculate", "sums@localhost", "6 * 7", program=os.environ["REQUEST"])[1])
        self.assertIn("taken", self.answer(*AS_ROOT, "--foreground", program=os.environ["KELRSHD"])[2])
        for server, name in ((shell, "kelrshd"), (sums, "sums")):
            server.kill()
            server.wait()
            self.assertIn(f"no server {name} is registered on this machine", self.answer("server", "ping", name)[2])
        for words, said in ((f"register --process {os.getpid()} -- \udcffodd=x=y", ""),
                            ("register -- \udcffodd=x=y \u00fc=", ""), ("query \u00fc=", "\\xFFodd = x=y\n"),
                            ("version", "Python"), ("delete \udcffodd=x=y", ""), ("list", "SERVER"), ("shutdown", "")):
            code, output, complaint = self.answer("nms", *words.split())
            self.assertEqual((code, said in output, complaint), (0, True, ""), f"{words}: {output}")


run()
