# The messages of the remote shell, by doc/remote-shell.md alone: a client, and a server that says what it is told.

import os
import socket

from peer import Peer, ints, text

ERROR, OUTPUT, INPUT, INPUT_END, CODE, END, KILL, BREAK = range(2, 10)
HOLD_OUTPUT, HOLD_INPUT, GO_ON_OUTPUT, GO_ON_INPUT = 35, 36, 51, 52
NO_CODE = -0x80000000


def data(tag, content):
    return ints(tag) + text(content)


def request(command, folder="", shell=0):
    return text(os.fsencode(command)) + text(os.fsencode(folder)) + ints(shell)


class Command(Peer):
    # A command of the server at a port: `reason` is why it was not started.

    def __init__(self, port, command, folder="", shell=0, sent=b"", host="127.0.0.1"):
        super().__init__(socket.create_connection((host, port), 60))
        self.outputs, self.code, self.reason = {OUTPUT: bytearray(), ERROR: bytearray()}, None, None
        self.say(b"\0" + request(command, folder, shell) + sent)
        assert self.take(1) == b"\1"
        if (answer := self.int()) != 0:
            self.reason = answer, self.int(), self.text().decode()
            assert self.rest() == b""

    def step(self):
        tag = self.int()
        if tag in self.outputs:
            self.outputs[tag] += (content := self.text())
            assert content, "a message without bytes"
        elif tag == CODE:
            assert self.code is None
            self.code = self.int()
        return tag

    def line(self):
        while b"\n" not in self.outputs[OUTPUT]:
            self.step()
        return self.outputs[OUTPUT].decode()

    def finish(self):
        while (tag := self.step()) != END:
            assert tag in (OUTPUT, ERROR, CODE, HOLD_INPUT, GO_ON_INPUT), tag
        self.say(ints(END))
        assert self.rest() == b"", "something behind the end"
        self.close()
        return self.code, bytes(self.outputs[OUTPUT]), bytes(self.outputs[ERROR])


class Server(socket.socket):
    # Clients come one after the other; `port` is where.

    def __init__(self):
        listener = socket.create_server(("127.0.0.1", 0))
        super().__init__(fileno=listener.detach())
        self.settimeout(60)
        self.port = self.getsockname()[1]

    def session(self, asked):
        # The next client, which must ask for that.
        peer = Peer(self.accept()[0])
        assert peer.take(1) == b"\0"
        peer.say(b"\1")
        assert (saw := peer.take(len(asked))) == asked, saw
        return peer
