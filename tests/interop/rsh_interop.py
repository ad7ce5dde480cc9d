# kel rsh and a server in Python, which knows nothing but the messages and says any of them, whole and in pieces.

import select
import signal
import subprocess
import threading

from driving import RemoteCase, peak, run
from peer import MIB, ints, text
from rsh_peer import BREAK, CODE, END, ERROR, GO_ON_INPUT, GO_ON_OUTPUT, HOLD_INPUT, HOLD_OUTPUT, INPUT, INPUT_END, KILL
from rsh_peer import NO_CODE, OUTPUT, Server, data, request

LOST = "the connection to this machine was lost"
# Unknown tags lead no payload; those of the other direction are unknown too.
UNKNOWN = ints(0, 1, INPUT, INPUT_END, KILL, BREAK, 10, 99, -5, NO_CODE, 0x7FFFFFFF, HOLD_OUTPUT, GO_ON_OUTPUT)


class RemoteShell(RemoteCase):
    def setUp(self):
        super().setUp()
        self.server = Server()
        self.addCleanup(self.server.close)
        self.run_kel("nms", "register", "kelrshd", str(self.server.port))

    def session(self, words=("--shell", "--cwd", "/a directory", ".", "--", "a", "command"),
                asked=("a command", "/a directory", 1), **streams):
        # A client, and its connection once it has asked.
        client = self.start(*words, **streams)
        peer = self.server.session(request(*asked))
        self.addCleanup(peer.close)
        return client, peer

    def test_answers(self):
        # What a client makes of the bytes of a server that goes behind them: code, output and errors.
        ending = ints(CODE, 7, END)
        for script, code, output, errors in (
                (ints(10, 3) + text(b"No such\0file"), 255, b"", "cannot start the command on this machine: No such"),
                (ints(10, 3, -1), 255, b"", "what answers on this machine is no remote-shell server"),
                (ints(6, 9), 255, b"", "Remote process launching error"),
                (ints(0, CODE, -1, END), 255, b"", "the command ended with -1"),
                (ints(0) + data(OUTPUT, b"a\0b") + ints(OUTPUT, 0) + data(ERROR, b"c") + ending, 7, b"a\0b", "c"),
                (ints(0) + UNKNOWN + data(OUTPUT, b"in step") + UNKNOWN + ending, 7, b"in step", ""),
                (ints(0) + data(OUTPUT, b"a") + ints(OUTPUT, -1), 255, b"a", LOST),
                (ints(0, OUTPUT, 0x7FFFFFFF) + b"a", 255, b"a", LOST)):
            client, peer = self.session(stdin=subprocess.DEVNULL)
            peer.say(script, 1)
            told = peer.leave("half")
            self.assertEqual(told.endswith(ints(END)), script.endswith(ints(END)), script)
            saw, complaint = client.communicate(timeout=60)
            self.assertEqual((client.returncode, saw), (code, output), script)
            self.assertIn(errors, complaint.decode())

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

    def test_pressure_both_ways(self):
        # Output that nobody takes and endless input at once; hold and go on in both directions.
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
        for _ in range(4000):  # its input goes on meanwhile
            self.assertEqual((peer.int(), len(peer.text()) > 0), (INPUT, True))
        self.assertTrue(sending.is_alive(), "it takes more than it can give away")
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
