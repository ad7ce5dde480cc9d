# What KELSTDMT_LOG shows of a name server's client, a server and a relay, on both sides.

import os
import re
import shutil
import subprocess

from driving import AS_ROOT, KEL, KelCase, run

LINE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z (\d+) (\d+) (server|handshake|names|relay): (.*)")


class Trace(KelCase):
    def follows(self, text, *patterns):
        # All are lines of a trace, and of one after the other "area: text" matches; others may stand between.
        lines = [LINE.fullmatch(line) for line in text.splitlines()]
        self.assertNotIn(None, lines, text)
        left = iter(f"{line[3]}: {line[4]}" for line in lines)
        for pattern in patterns:
            self.assertTrue(any(re.fullmatch(pattern, line) for line in left), f"{pattern} in {text}")
        return lines

    def kel(self, asked, *words, code=1, program=KEL):
        done = subprocess.run([program, *words], env=dict(self.environment, KELSTDMT_LOG=asked), cwd=self.here,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, code, done.stderr)
        return done.stderr

    def test_both_sides_tell_the_same_story(self):
        self.name_server()
        self.environment.update(SHELL="/bin/sh", KELSTDMT_LOG="all:server.log")
        server = self.daemon("KELRSHD", *AS_ROOT, stderr=subprocess.DEVNULL)
        told = self.kel("names,relay,handshake", "rsh", ".", "--", "sh", "-c", ": '\x1b\n'; exit 3", code=3)
        server.terminate()
        self.assertEqual(server.wait(60), 0)
        self.follows(told, r"names: asks \S+ port \d+: query of kelrshd", r"names: \S+ answers query with status 0",
                     r"handshake: asked with byte 0, answered with byte 1", r"relay: asks for .*'\\x1b\\x0a'; exit 3.*",
                     "relay: the server has launched it", "relay: the end is acknowledged, the exit code is 3")
        served = self.follows((self.here / "server.log").read_text(), r"server: .* listens on port \d+",
                              r"names: \S+ answers register with status 0", r"handshake: connection \d+ is granted",
                              "relay: asked for .*exit 3.*", "relay: the end is sent", "server: the loop ends: .*")
        self.assertEqual({int(line[1]) for line in served}, {server.pid})
        (thread,) = {int(line[2]) for line in served if line[3] == "relay"}
        self.assertNotEqual(thread, server.pid, "a request is a thread of its own")

    def test_where_lines_go(self):
        self.environment["ORVNMSPORT"] = "1"
        for quiet in "server,relay", ":file":
            self.assertEqual(self.kel(quiet, "nms", "ping").count("\n"), 1, quiet)
        self.assertRegex(self.kel("names,wrong:", "nms", "ping"), r"(?s)no area is called 'wrong'.* names: ")
        self.assertRegex(self.kel("all:no/such/folder", "nms", "ping"), r"\A.*cannot write to .*\n.*\n\Z")

    def test_a_program_with_more_rights_than_its_caller_is_silent(self):
        if os.geteuid() != 0 or os.statvfs(self.here).f_flag & os.ST_NOSUID:
            self.skipTest("takes root, and a folder where programs may have the rights of others")
        program = shutil.copy(KEL, self.here / "kel")
        os.chown(program, 0, 65534)  # of another group, so that it still reads the folders of this user
        program.chmod(0o2755)
        self.here.chmod(0o755)
        self.environment["ORVNMSPORT"] = "1"
        # A sanitizer complains there, because it may not look into such a program.
        self.assertFalse([*filter(LINE.fullmatch, self.kel("all", "nms", "ping", program=program).splitlines())])


run()
