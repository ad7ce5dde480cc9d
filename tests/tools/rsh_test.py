"""kel rsh, with a name server and a remote-shell server of its own."""

import hashlib
import os
import random
import select
import signal
import socket
import subprocess
import sys
import threading

from driving import KEL, KelCase, run
from terminal_test import Terminal

ROOT = ["--allow-root"] * (os.geteuid() == 0)
TELL_WORDS = "import os, sys; sys.stdout.buffer.write(b'\\0'.join(map(os.fsencode, sys.argv[1:])))"
# A command that says when it listens to interrupts, and what it then does.
LISTENING = "trap '{}' INT; echo ready; while :; do sleep 1; done"


def closed(*descriptors):
    return lambda: [os.close(each) for each in descriptors]


class RemoteShell(KelCase):
    def setUp(self):
        super().setUp()
        self.environment["SHELL"] = "/bin/sh"
        self.name_server()
        self.server = self.daemon("KELRSHD", *ROOT, stderr=subprocess.DEVNULL)
        self.assertTrue(self.server.is_ready)

    def start(self, *words, **streams):
        given = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE) | streams
        process = subprocess.Popen([KEL, "rsh", *words], cwd=self.here, env=self.environment, **given)
        for pipe in (process.stdin, process.stdout, process.stderr):
            if pipe:
                self.addCleanup(pipe.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

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
            for program in ([sys.executable, "-c", TELL_WORDS],
                            ["sh", "-c", 'exec "$@"', "sh", sys.executable, "-c", TELL_WORDS]):
                got = self.ends(0, ".", "--", *program, *words)
                self.assertEqual(got.split(b"\0"), [os.fsencode(word) for word in words])
        script = 'printf "%s|" "a  b" \'"\' "\\\\" "$((1 + 1))"\nprintf "last"'
        for way in ([".", "--", "sh", "-c", script], ["--shell", "localhost", "--", script]):
            self.assertEqual(self.ends(0, *way), b'a  b|"|\\|2|last')

    def test_folders_and_codes(self):
        (self.here / "tool").write_text("#!/bin/sh\npwd\nexit 7\n")
        (self.here / "tool").chmod(0o755)
        self.assertEqual(self.ends(7, "--cwd", self.here, ".", "--", "./tool"), os.fsencode(self.here) + b"\n")
        self.assertEqual(self.ends(255, "--shell", ".", "--", "exit", "255"), b"")
        self.ends(128 + signal.SIGKILL, ".", "--", "sh", "-c", "kill -9 $$")
        for words, complaint in ((["no-such-program"], "no such file"), (["/"], "cannot start"),
                                 (["--cwd", "/no/such", "--", "true"], "cannot start")):
            self.ends(255, ".", *words, complaint=complaint)
        for words in ((), (".",), (".", "--", ""), ("", "--", "true"), (".", "--", 'a"b')):
            self.run_kel("rsh", *words, code=2)

    def test_nobody_there(self):
        self.ends(255, "--user", "nobody-here", ".", "--", "true", complaint="kelrshd-nobody-here")
        self.server.terminate()
        self.assertEqual(self.server.wait(60), 0)
        self.ends(255, ".", "--", "true", complaint="no remote-shell server answers on this machine")
        self.environment["ORVNMSPORT"] = "1"
        self.ends(255, "localhost", "--", "true", complaint="no name server answers on this machine, port 1")

    def test_much_through_little_memory(self):
        size = 300 << 20
        block = random.Random(1).randbytes(1 << 20)
        process = self.start(".", "--", "cat")

        def feed():
            with process.stdin:
                for _ in range(size >> 20):
                    process.stdin.write(block)

        thread = threading.Thread(target=feed)
        thread.start()
        got, expected = hashlib.sha256(), hashlib.sha256(block * (size >> 20))
        while more := process.stdout.read1(1 << 20):
            got.update(more)
        thread.join()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual((process.returncode, got.digest()), (0, expected.digest()))
        if "asan" not in KEL and "tsan" not in KEL:
            self.assertLess(usage.ru_maxrss, 100 << 10, "KiB")

    def test_a_tree_goes_over(self):
        source, copy = self.here / "source", self.here / "copy"
        copy.mkdir()
        for name in ("a", "b/c"):
            (source / name).parent.mkdir(parents=True, exist_ok=True)
            (source / name).write_bytes(os.urandom(3_000_000))
        archive = subprocess.Popen(["tar", "c", "-C", source, "."], stdout=subprocess.PIPE)
        self.addCleanup(archive.wait)
        self.ends(0, "--cwd", copy, ".", "--", "tar", "x", stdin=archive.stdout)
        archive.stdout.close()
        for name in ("a", "b/c"):
            self.assertEqual((copy / name).read_bytes(), (source / name).read_bytes())

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
        self.assertEqual(self.ends(0, ".", "--", "cat", stdin=subprocess.DEVNULL), b"")
        self.assertEqual(self.ends(0, ".", "--", "cat", stdin=None, preexec_fn=closed(0)), b"")
        near, far = socket.socketpair()
        with near, far:
            far.sendall(b"by socket")
            far.shutdown(socket.SHUT_WR)
            self.assertEqual(self.ends(0, ".", "--", "cat", stdin=near), b"by socket")
        self.ends(0, ".", "--", "true", stdout=None, preexec_fn=closed(1))
        self.ends(255, ".", "--", "echo", "x", stdout=None, preexec_fn=closed(1), complaint="standard output: Bad file")
        self.ends(255, ".", "--", "yes", stdout=self.opened("/dev/full", os.O_WRONLY), complaint="No space left")
        self.ends(255, ".", "--", "cat", stdin=self.opened("/", os.O_RDONLY), complaint="standard input: Is a directory")
        self.ends(255, ".", "--", "echo", "x", stdout=self.opened("/dev/null", os.O_RDONLY), complaint="Bad file")
        # Input that stays open, also beyond what pipes hold, does not keep a command that has ended.
        reading, writing = os.pipe()
        self.addCleanup(os.close, writing)
        self.addCleanup(os.close, reading)
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
            self.await_end_of(command)

    def await_end_of(self, process_id):
        try:
            process = os.pidfd_open(process_id)
        except ProcessLookupError:
            return
        self.addCleanup(os.close, process)
        self.assertTrue(select.select([process], [], [], 60)[0], "the command goes on")

    def interrupted(self, action, *signals):
        process = self.start(".", "--", "sh", "-c", "echo $$; " + LISTENING.format(action))
        command = int(process.stdout.readline())
        for each in signals:
            self.assertEqual(process.stdout.readline(), b"ready\n")
            process.send_signal(each)
        output, errors = process.communicate(timeout=60)
        self.assertEqual(errors, b"")
        self.await_end_of(command)
        return process.returncode, output

    def test_signals(self):
        self.assertEqual(self.interrupted("echo bye; exit 9", signal.SIGINT), (9, b"bye\n"))
        self.assertEqual(self.interrupted("echo ready", signal.SIGINT, signal.SIGINT), (128 + signal.SIGKILL, b""))
        for each in (signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
            self.assertEqual(self.interrupted("", each), (-each, b""))

    def test_the_server_is_killed(self):
        process = self.start(".", "--", "sh", "-c", "echo begun; exec sleep 600")
        self.assertEqual(process.stdout.readline(), b"begun\n")
        self.server.kill()
        self.assertEqual(process.wait(60), 255)
        self.assertEqual(process.stderr.read(), b"kel rsh: the connection to this machine was lost\n")

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
