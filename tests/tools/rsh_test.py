"""kel rsh with a name server and kelrshd, and with a server that is written here and knows nothing but the messages."""

import hashlib
import os
import random
import select
import signal
import socket
import subprocess
import sys
import threading

from driving import AS_ROOT, IS_SANITIZED, KEL, KelCase, await_end, peak, run
from peer import BREAK, CODE, END, ERROR, GO_ON_INPUT, GO_ON_OUTPUT, HOLD_INPUT, HOLD_OUTPUT, INPUT, INPUT_END, KILL
from peer import MIB, NO_CODE, OUTPUT, Peer, data, ints, request, text
from terminal_test import Terminal

TELL_WORDS = "import os, sys; sys.stdout.buffer.write(b'\\0'.join(map(os.fsencode, sys.argv[1:])))"
# A command that says when it listens to interrupts, and what it then does.
LISTENING = "trap '{}' INT; echo ready; while :; do sleep 1; done"
PRESSURE = [ints(tag) for tag in (HOLD_OUTPUT - 1, HOLD_OUTPUT, GO_ON_OUTPUT - 1, GO_ON_OUTPUT)]
LOST = "the connection to this machine was lost"
# Unknown tags lead no payload; those of the other direction are unknown too.
UNKNOWN = ints(0, 1, INPUT, INPUT_END, KILL, BREAK, 10, 99, -5, NO_CODE, 0x7FFFFFFF, HOLD_OUTPUT, GO_ON_OUTPUT)


def closed(*descriptors):
    return lambda: [os.close(each) for each in descriptors]


class RemoteCase(KelCase):
    def setUp(self):
        super().setUp()
        self.environment["SHELL"] = "/bin/sh"
        self.name_server()

    def start(self, *words, **streams):
        given = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE) | streams
        process = subprocess.Popen([KEL, "rsh", *words], cwd=self.here, env=self.environment, **given)
        for pipe in (process.stdin, process.stdout, process.stderr):
            if pipe:
                self.addCleanup(pipe.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process


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

    def test_much_through_little_memory(self):
        size, block = 300, random.Random(1).randbytes(MIB)
        process = self.start(".", "--", "cat")

        def feed():
            for _ in range(size):
                process.stdin.write(block)

        thread = threading.Thread(target=feed)
        thread.start()
        got, expected = hashlib.sha256(), hashlib.sha256()
        for _ in range(size):
            got.update(process.stdout.read(MIB))
            expected.update(block)
        thread.join()
        self.assertLess(peak(process), 100)
        self.assertEqual((process.communicate(), process.returncode), ((b"", b""), 0))
        self.assertEqual(got.digest(), expected.digest())

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


class WithAServerOfTheTest(RemoteCase):
    def setUp(self):
        super().setUp()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.listener.settimeout(60)
        self.addCleanup(self.listener.close)
        self.run_kel("nms", "register", "kelrshd", str(self.listener.getsockname()[1]))

    def session(self, words=("--shell", "--cwd", "/a directory", ".", "--", "a", "command"),
                asked=("a command", "/a directory", 1), **streams):
        """A client, and its connection once it has asked."""
        client = self.start(*words, **streams)
        peer = Peer(self.listener.accept()[0])
        self.addCleanup(peer.close)
        self.assertEqual(peer.take(1), b"\0")
        peer.say(b"\1")
        self.assertEqual(peer.take(len(request(*asked))), request(*asked))
        return client, peer

    def answered(self, script, piece=MIB):
        """What a client makes of the bytes of a server that goes behind them: code, output, errors, and what it told."""
        client, peer = self.session(stdin=subprocess.DEVNULL)
        said = []

        def serve():
            try:
                peer.say(script[:4], piece)
                self.assertTrue(script[:4] != ints(0) or peer.int() == INPUT_END)
                peer.say(script[4:], piece)
                said.append(peer.leave("half"))
            except OSError:  # it did not like the beginning
                said.append(b"")

        serving = threading.Thread(target=serve)
        serving.start()
        output, errors = client.communicate(timeout=60)
        serving.join()
        words = (said[0][at:at + 4] for at in range(0, len(said[0]), 4))
        told = b"".join(word for word in words if word not in PRESSURE)
        return client.returncode, output, errors.decode().removeprefix("kel rsh: "), told

    def test_answers(self):
        big, ending, failed = os.urandom(2 * MIB), ints(CODE, 7, END), "Remote process launching error"
        for script, code, output, errors in (
                (ints(10, 3) + text(b"No such file"), 255, b"", "No such file"),
                (ints(-1, 11) + text(b"a\0b"), 255, b"", "a"),
                (ints(10, 3, -1), 255, b"", "what answers on this machine is no remote-shell server"),
                (ints(6, 9), 255, b"", failed),
                (ints(0) + ending, 7, b"", ""),
                (ints(0, CODE, -1, END), 255, b"", "the command ended with -1"),
                (ints(0) + data(OUTPUT, b"a\0b") + ints(OUTPUT, 0, ERROR, 0) + data(ERROR, b"c") + ending, 7, b"a\0b", "c"),
                (ints(0) + UNKNOWN + data(OUTPUT, b"in step") + UNKNOWN + ending, 7, b"in step", ""),
                (ints(0) + data(OUTPUT, big) + data(ERROR, b"e" * MIB) + ending, 7, big, "e" * MIB),
                (ints(0) + data(OUTPUT, b"a") + ints(OUTPUT, -1) + ending + ints(0), 255, b"a", LOST),
                (ints(0, OUTPUT, 0x7FFFFFFF) + big, 255, big, LOST)):
            for piece in (1, MIB) if len(script) < MIB else (MIB,):
                told = ints(END) if script.endswith(ints(END)) else b""
                saw = self.answered(script, piece)
                self.assertEqual((*saw[:2], saw[2].rpartition(": ")[2].rstrip("\n"), saw[3]), (code, output, errors, told),
                                 f"{script!r:.100}")

    def test_what_a_client_sends(self):
        for words, asked in ((("--shell", ".", "--", "x" * 100_000), ("x" * 100_000, "", 1)),
                             (("--cwd", "\u00fc b", ".", "--", "a b", "\\c"), ('"a b" \\c', "\u00fc b", 0))):
            client, peer = self.session(words, asked)
            client.stdin.write(b"input" * 1000)
            client.stdin.close()
            client.stdin = None
            peer.say(ints(0))
            received = b""
            while (tag := peer.int()) == INPUT:
                received += peer.text()
            self.assertEqual((tag, received), (INPUT_END, b"input" * 1000))
            for tag in (BREAK, KILL):
                client.send_signal(signal.SIGINT)
                self.assertEqual(peer.int(), tag)
            peer.say(ints(CODE, 137, END))
            self.assertEqual((peer.int(), client.communicate(timeout=60), client.returncode), (END, (b"", b""), 137))
        client, peer = self.session()
        peer.say(ints(0))
        client.kill()
        self.assertEqual(peer.rest(), b"")

    def test_pressure_both_ways(self):
        """Output that nobody takes and endless input at once; hold and go on in both directions."""
        with open("/dev/zero") as zeros:
            client, peer = self.session(stdin=zeros)
        block, received = bytes(MIB // 16), []

        def until(wanted):
            while (tag := peer.int()) == INPUT:
                peer.text()
            self.assertEqual(tag, wanted)

        before = peak(client)
        sending = threading.Thread(target=peer.say, args=[ints(0) + data(OUTPUT, block) * 512])
        sending.start()
        until(HOLD_OUTPUT)
        client.send_signal(signal.SIGINT)
        until(BREAK)
        taking = threading.Thread(target=lambda: received.append(client.stdout.read()))
        taking.start()
        until(GO_ON_OUTPUT)
        sending.join()
        peer.say(ints(HOLD_INPUT) + data(ERROR, b"mark"))
        reading = threading.Thread(target=client.stderr.read, args=[4])
        reading.start()
        while reading.is_alive():
            if select.select([peer], [], [], 0.01)[0]:
                self.assertEqual((peer.int(), peer.text() != b""), (INPUT, True), "what was under way")
        client.send_signal(signal.SIGINT)
        until(KILL)
        self.assertEqual(select.select([peer], [], [], 0)[0], [], "input that is held")
        peer.say(ints(GO_ON_INPUT))
        self.assertEqual((peer.int(), peer.text() != b""), (INPUT, True), "input that goes on")
        self.assertLess(peak(client) - before, 96)
        peer.say(ints(CODE, 5, END))
        until(END)
        taking.join()
        self.assertEqual((len(received[0]), client.wait(60)), (512 * len(block), 5))


run()
