"""kel rsh with a name server and kelrshd."""

import os
import random
import signal
import socket
import subprocess
import sys

from driving import AS_ROOT, RemoteCase, await_end, run
from peer import MIB
from terminal_test import Terminal

TELL_WORDS = "import os, sys; sys.stdout.buffer.write(b'\\0'.join(map(os.fsencode, sys.argv[1:])))"
# A command that says when it listens to interrupts, and what it then does.
LISTENING = "trap '{}' INT; echo ready; while :; do sleep 1; done"
LOST = "the connection to this machine was lost"


def closed(*descriptors):
    return lambda: [os.close(each) for each in descriptors]


class WithOurServer(RemoteCase):
    def setUp(self):
        super().setUp()
        self.server = self.daemon("KELRSHD", *AS_ROOT, stderr=subprocess.DEVNULL)
        self.assertTrue(self.server.is_ready)

    def ends(self, code, *words, complaint="", **streams):
        """Standard output of a command that ends with the code; its complaint is one line that has the words."""
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
        script = 'printf "%s|" "a  b" \'"\' "\\\\" "$((1 + 1))"\nprintf "last"'
        for way in ([".", "--", "sh", "-c", script], ["--shell", "localhost", "--", script]):
            self.assertEqual(self.ends(0, *way), b'a  b|"|\\|2|last')

    def test_folders_codes_and_complaints(self):
        (self.here / "tool").write_text("#!/bin/sh\npwd\nexit 7\n")
        (self.here / "tool").chmod(0o755)
        self.assertEqual(self.ends(7, "--cwd", self.here, ".", "--", "./tool"), os.fsencode(self.here) + b"\n")
        self.assertEqual(self.ends(255, "--shell", ".", "--", "exit", "255"), b"")
        for words, complaint in ((["no-such-program"], "no such file"), (["/"], "cannot start"),
                                 (["--cwd", "/no/such", "--", "true"], "cannot start")):
            self.ends(255, ".", *words, complaint=complaint)
        for words in ((), (".",), (".", "--", ""), ("", "--", "true"), (".", "--", 'a"b')):
            self.run_kel("rsh", *words, code=2)
        self.ends(255, "--user", "nobody-here", ".", "--", "true", complaint="kelrshd-nobody-here")
        process = self.start(".", "--", "sh", "-c", "echo begun; exec sleep 600")
        self.assertEqual(process.stdout.readline(), b"begun\n")
        self.server.kill()
        self.assertEqual((process.wait(60), process.stderr.read().decode()), (255, f"kel rsh: {LOST}\n"))
        self.server.wait(60)
        self.ends(255, ".", "--", "true", complaint="no remote-shell server answers on this machine")
        self.environment["ORVNMSPORT"] = "1"
        self.ends(255, "localhost", "--", "true", complaint="no name server answers on this machine, port 1")

    def test_much_there_and_back(self):
        much = random.Random(1).randbytes(64 * MIB)
        process = self.start(".", "--", "cat")
        self.assertEqual((process.communicate(much)[0] == much, process.returncode), (True, 0))

    def opened(self, path, how):
        descriptor = os.open(path, how)
        self.addCleanup(os.close, descriptor)
        return descriptor

    def test_channels_of_every_sort(self):
        with open(self.here / "file", "w+b") as file:
            file.write(b"x" * 200_000)
            appended = self.opened(self.here / "file", os.O_WRONLY | os.O_APPEND)
            for offset, options in ((0, {}), (200_000, {"stdout": appended})):
                file.seek(0)
                output = self.ends(0, ".", "--", "wc", "-c", stdin=file, **options)
                self.assertEqual(output or (self.here / "file").read_bytes()[offset:], b"200000\n")
        for options in ({"stdin": subprocess.DEVNULL}, {"stdin": None, "preexec_fn": closed(0)}):
            self.assertEqual(self.ends(0, ".", "--", "cat", **options), b"")
        near, far = socket.socketpair()
        with near, far:
            far.sendall(b"by socket")
            far.shutdown(socket.SHUT_WR)
            self.assertEqual(self.ends(0, ".", "--", "cat", stdin=near), b"by socket")
        self.ends(0, ".", "--", "true", stdout=None, preexec_fn=closed(1))
        self.ends(255, ".", "--", "echo", "x", stdout=None, preexec_fn=closed(1), complaint="standard output: Bad file")
        for command, channel, path, how, complaint in (
                ("yes", "stdout", "/dev/full", os.O_WRONLY, "No space left"),
                ("cat", "stdin", "/", os.O_RDONLY, "standard input: Is a directory"),
                ("pwd", "stdout", "/dev/null", os.O_RDONLY, "Bad file")):
            self.ends(255, ".", "--", command, complaint=complaint, **{channel: self.opened(path, how)})
        # Input that stays open, also beyond what pipes hold, does not keep a command that has ended.
        reading, writing = os.pipe()
        self.addCleanup(closed(reading, writing))
        self.ends(3, "--shell", ".", "--", "exit 3", stdin=reading)
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
        for action, signals, code, said in (("echo bye; exit 9", [signal.SIGINT], 9, b"bye\n"),
                                            ("echo ready", [signal.SIGINT, signal.SIGINT], 128 + signal.SIGKILL, b""),
                                            ("", [signal.SIGTERM], -signal.SIGTERM, b""),
                                            ("", [signal.SIGHUP], -signal.SIGHUP, b""),
                                            ("", [signal.SIGQUIT], -signal.SIGQUIT, b"")):
            process = self.start(".", "--", "sh", "-c", "echo $$; " + LISTENING.format(action))
            command = int(process.stdout.readline())
            for each in signals:
                self.assertEqual(process.stdout.readline(), b"ready\n")
                process.send_signal(each)
            self.assertEqual((process.communicate(timeout=60), process.returncode), ((said, b""), code))
            await_end(command)

    def test_at_a_terminal(self):
        words = ["rsh", ".", "--"]
        terminal = Terminal(self, *words, "sh", "-c", "read line; echo got $line >&2; " + LISTENING.format("exit 6"))
        terminal.await_bytes(rb"got typed\r\n.*ready|ready.*got typed", b"typed\n")  # two channels, in any order
        terminal.await_bytes(rb"\^C", b"\003")
        self.assertEqual(terminal.process.wait(30), 6)
        # The end comes without a key, and a key at the line's beginning ends the input.
        self.assertEqual(Terminal(self, *words, "true").process.wait(30), 0)
        terminal = Terminal(self, *words, "wc", "-l")
        os.write(terminal.ours, b"one\n\004")
        terminal.await_bytes(rb"\b1\r\n")
        self.assertEqual(terminal.process.wait(30), 0)


run()
