# kel rsh with a name server and kelrshd. How it behaves at a terminal is in story_test.py.

import os
import random
import signal
import subprocess
import sys

from driving import AS_ROOT, RemoteCase, await_end, peak, run
from peer import MIB

TELL_WORDS = "import os, sys; sys.stdout.buffer.write(b'\\0'.join(map(os.fsencode, sys.argv[1:])))"
# A command that says when it listens to interrupts, and what it then does.
LISTENING = "trap '{}' INT; echo ready; while :; do sleep 1; done"


class WithOurServer(RemoteCase):
    def setUp(self):
        super().setUp()
        self.server = self.daemon("KELRSHD", *AS_ROOT, stderr=subprocess.DEVNULL)
        self.assertTrue(self.server.is_ready)

    def ends(self, code, *words, complaint="", **streams):
        # Standard output of a command that ends with the code; its complaint is one line that has the words.
        process = self.start(*words, **streams)
        output, errors = process.communicate(timeout=120)
        self.assertEqual(process.returncode, code, (words, output, errors))
        self.assertEqual(errors.count(b"\n"), int(complaint != ""), errors)
        self.assertIn(complaint.encode(), errors)
        return output

    def test_words_arrive_unchanged(self):
        chance = random.Random(6)
        pieces = ["a", " ", "\t", "\n", '"', '""', "\\", "\\\\", "'", "$HOME", "*", "-c", "--", "\x01", "\u00fc", "[x]"]
        lines = [["", "", 'end"'], ["--help", "--cwd", "/"], ["x" * 100_000]]
        lines += [["".join(chance.choices(pieces, k=chance.randint(0, 5))) for _ in range(6)] for _ in range(6)]
        for words in lines:
            got = self.ends(0, ".", "--", "sh", "-c", 'exec "$@"', "sh", sys.executable, "-c", TELL_WORDS, *words)
            self.assertEqual(got.split(b"\0"), [os.fsencode(word) for word in words])
        self.assertEqual(self.ends(0, "--shell", "localhost", "--", 'printf "%s|"', '"a  b" $((1 + 1))'), b"a  b|2|")

    def test_folders_codes_and_complaints(self):
        (self.here / "tool").write_text("#!/bin/sh\npwd\nexit 7\n")
        (self.here / "tool").chmod(0o755)
        self.assertEqual(self.ends(7, "--cwd", self.here, ".", "--", "./tool"), os.fsencode(self.here) + b"\n")
        self.assertEqual(self.ends(255, "--shell", ".", "--", "exit", "255"), b"")
        for line, complaint in (("no-such-program", "no such file"), ("--cwd /no/such -- true", "cannot start"),
                                ("--user nobody-here -- true", "kelrshd-nobody-here")):
            self.ends(255, ".", *line.split(), complaint=complaint)
        for words in ((".",), (".", "--", ""), ("", "--", "true"), (".", "--", 'a"b')):
            self.run_kel("rsh", *words, code=2)
        process = self.start(".", "--", "sh", "-c", "echo begun; exec sleep 600")
        self.assertEqual(process.stdout.readline(), b"begun\n")
        self.server.kill()
        lost = b"kel rsh: the connection to this machine was lost\n"
        self.assertEqual((process.wait(60), process.stderr.read()), (255, lost))
        self.server.wait(60)
        self.ends(255, ".", "--", "true", complaint="no remote-shell server answers on this machine")

    def test_much_there_and_back(self):
        much = random.Random(1).randbytes(64 * MIB)
        process = self.start(".", "--", "cat")
        self.assertEqual((process.communicate(much)[0] == much, process.returncode), (True, 0))
        self.assertLess(peak(self.server), 96)

    def test_channels_of_every_sort(self):
        (self.here / "file").write_bytes(b"x" * 200_000)
        with open(self.here / "file", "rb") as file, open(self.here / "file", "ab") as appended:
            self.ends(0, ".", "--", "wc", "-c", stdin=file, stdout=appended)
            self.assertEqual(file.read(), b"200000\n")
        self.assertEqual(self.ends(0, ".", "--", "cat", stdin=None, preexec_fn=lambda: os.close(0)), b"")
        self.ends(255, ".", "--", "echo", "x", stdout=None, preexec_fn=lambda: os.close(1), complaint="output: Bad file")
        folder = os.open("/", os.O_RDONLY)
        self.addCleanup(os.close, folder)
        self.ends(255, ".", "--", "cat", complaint="standard input: Is a directory", stdin=folder)
        with open("/dev/full", "wb") as full:
            self.ends(255, ".", "--", "yes", complaint="No space left", stdout=full)
        # Input beyond what pipes hold does not keep a command that has ended.
        process = self.start(".", "--", "head", "-c", "1")
        with self.assertRaises(BrokenPipeError):
            while True:
                process.stdin.write(b"x" * 65536)
                process.stdin.flush()
        self.assertEqual((process.wait(60), process.stdout.read()), (0, b"x"))

    def test_the_reader_leaves(self):
        for ignored in (False, True):
            process = self.start(".", "--", "sh", "-c", "echo $$; exec yes", restore_signals=not ignored)
            command = int(process.stdout.readline())
            process.stdout.close()
            self.assertEqual(process.wait(60), 255 if ignored else -signal.SIGPIPE)
            self.assertEqual(process.stderr.read(), b"kel rsh: standard output: Broken pipe\n" * ignored)
            await_end(command)

    def test_signals(self):
        for action, number, code, said in (("echo bye; exit 9", signal.SIGINT, 9, b"bye\n"),
                                            ("", signal.SIGTERM, -signal.SIGTERM, b""),
                                            ("", signal.SIGQUIT, -signal.SIGQUIT, b"")):
            process = self.start(".", "--", "sh", "-c", "echo $$; " + LISTENING.format(action))
            command = int(process.stdout.readline())
            self.assertEqual(process.stdout.readline(), b"ready\n")
            process.send_signal(number)
            self.assertEqual((process.communicate(timeout=60), process.returncode), ((said, b""), code))
            await_end(command)


run()
