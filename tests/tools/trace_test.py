"""What KELSTDMT_LOG shows of a name server's client, a server and a relay, on both sides."""

import os
import re
import shutil
import subprocess

from driving import AS_ROOT, KEL, KelCase, run

LINE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z (\d+) (\d+) (server|handshake|names|relay): (.*)")


class Trace(KelCase):
    def lines(self, text, *areas):
        """(process, thread, area, text) of each line; the areas are those that may occur, and do."""
        found = [LINE.fullmatch(line) for line in text.splitlines()]
        self.assertNotIn(None, found, text)
        self.assertEqual({line[3] for line in found}, set(areas), text)
        return [(int(line[1]), int(line[2]), line[3], line[4]) for line in found]

    def follows(self, lines, *patterns):
        """One line after the other matches; others may stand between."""
        left = iter([line[3] for line in lines])
        for pattern in patterns:
            self.assertTrue(any(re.fullmatch(pattern, line) for line in left), f"{pattern} in {lines}")

    def kel(self, asked, *words, code=0, program=KEL):
        done = subprocess.run([program, *words], env=dict(self.environment, KELSTDMT_LOG=asked), cwd=self.here,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, code, done.stderr)
        return done.stderr

    def test_both_sides_tell_the_same_story(self):
        self.name_server()
        self.environment.update(SHELL="/bin/sh", KELSTDMT_LOG="all:server.log")
        server = self.daemon("KELRSHD", *AS_ROOT, stderr=subprocess.DEVNULL)
        del self.environment["KELSTDMT_LOG"]
        told = self.kel("names,relay,handshake", "rsh", "localhost", "--", "sh", "-c", ": '\x1b\n'; cat; exit 3", code=3)
        client = self.lines(told, "names", "relay", "handshake")
        server.terminate()
        self.assertEqual(server.wait(60), 0)
        served = self.lines((self.here / "server.log").read_text(), "server", "names", "relay", "handshake")
        self.follows(client, r"asks \S+ port \d+: query of kelrshd", r"\S+ answers query with status 0",
                     "records that match: 1", r"kelrshd is at port \d+", r"connected to \S+ port \d+",
                     "asked with byte 0, answered with byte 1", r"asks for .*: '\\x1b\\x0a'; cat; exit 3.*", "the server has launched it",
                     "the command has ended with 3", "the end is acknowledged, the exit code is 3")
        self.follows(served, r".* listens on port \d+", "localhost answers register with status 0", "the loop begins",
                     r"connection \d+ from .*", r"connection \d+ asks with byte 0", r"connection \d+ is granted",
                     r"connection \d+: OnRequest answers spawn", "the loop ends: .*", r"stops listening on port \d+")
        relay = [line for line in served if line[2] == "relay"]
        self.follows(relay, "asked for .*exit 3.*", r"launched as process \d+", "the end is sent",
                     "the client acknowledges the end")
        for line in "output: its source has ended", "the command has ended with 3", "the client ends the input":
            self.follows(relay, line)
        self.assertEqual({line[0] for line in served}, {server.pid})
        self.assertEqual(len({line[1] for line in relay}), 1, "a request is one thread")
        self.assertNotIn(server.pid, {line[1] for line in relay})

    def test_where_lines_go(self):
        self.environment["ORVNMSPORT"] = "1"
        self.lines(self.kel("all", "nms", "ping", code=1).rpartition("kel nms")[0], "names", "handshake")
        for quiet in "", "server,relay", ":file":
            self.assertEqual(self.kel(quiet, "nms", "ping", code=1).count("\n"), 1, quiet)
        told = self.kel("names,wrong:", "nms", "ping", code=1)
        self.assertIn("kelstdmt: KELSTDMT_LOG: no area is called 'wrong'", told)
        self.assertIn(" names: ", told)
        told = self.kel("all:no/such/folder", "nms", "ping", code=1)
        self.assertEqual((told.count("cannot write to "), told.count("\n")), (1, 2), told)
        self.assertFalse((self.here / "file").exists())

    def test_a_program_with_more_rights_than_its_caller_is_silent(self):
        if os.geteuid() != 0 or os.statvfs(self.here).f_flag & os.ST_NOSUID:
            self.skipTest("takes root, and a folder where programs may have the rights of others")
        program = self.here / "kel"
        shutil.copy(KEL, program)
        os.chown(program, 65534, 65534)
        program.chmod(0o4755)
        self.here.chmod(0o755)
        self.environment["ORVNMSPORT"] = "1"
        # A sanitizer complains there, because it may not look into such a program.
        told = self.kel("all", "nms", "ping", code=1, program=program)
        self.assertEqual([line for line in told.splitlines() if LINE.fullmatch(line)], [])


run()
