# The other end of a connection: it reads ints and texts, sends in pieces, and goes in several ways.

import socket
import struct

MIB = 1 << 20


def ints(*values):
    return struct.pack(f">{len(values)}i", *values)


def text(content):
    return ints(len(content)) + content


class Peer(socket.socket):
    def __init__(self, connection):
        connection.settimeout(60)
        super().__init__(fileno=connection.detach())
        self.settimeout(60)
        self.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def take(self, count):
        received = bytearray()
        while len(received) < count and (block := self.recv(min(count - len(received), MIB))):
            received += block
        if len(received) < count:
            raise EOFError(f"{len(received)} of {count} bytes: {received[-100:]}")
        return bytes(received)

    def int(self):
        return struct.unpack(">i", self.take(4))[0]

    def text(self):
        return self.take(self.int())

    def say(self, content, piece=MIB):
        for at in range(0, len(content), piece):
            self.sendall(content[at:at + piece])

    def rest(self):
        received = bytearray()
        try:
            while block := self.recv(MIB):
                received += block
        except ConnectionResetError:
            pass
        return bytes(received)

    def leave(self, how):
        # By "close", by "cut" with a reset, or by "half" in order: what came until the other side had gone too.
        received = b""
        if how == "cut":
            self.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        if how == "half":
            self.shutdown(socket.SHUT_WR)
            received = self.rest()
        self.close()
        return received
