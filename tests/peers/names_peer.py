# The protocol of the name service, both sides of it, by doc/name-service.md and the rules of doc/kelnmsd.md alone.
# Fields are texts; bytes that are none stand in them as surrogates.

import contextlib
import os
import select
import socket
import threading
import time

from peer import Peer, ints

PING, REGISTER, DELETE, QUERY, SHUTDOWN, VERSION = 1, 3, 4, 5, 6, 7
UNKNOWN, EXISTS, NO_SUCH, REFUSED = 3, 4, 5, 6


def text(value):
    value = value.encode("utf-8", "surrogateescape")
    return ints(len(value) + 1, len(value)) + value


def record(fields, process=0):
    return ints(process, len(fields)) + b"".join(text(each) for field in fields.items() for each in field)


def request(code, body=b""):
    return ints(100) + bytes([code]) + body


class Connection(Peer):
    def field(self):
        size, length = self.int(), self.int()
        if not 0 <= length < size <= 256 or b"\0" in (content := self.take(length)):
            raise ValueError(f"a text of {length} bytes and a size of {size}")
        return content.decode("utf-8", "surrogateescape")

    def record(self):
        process, count = self.int(), self.int()
        if not 0 <= count <= 256:
            raise ValueError(f"{count} fields")
        return process, dict([(self.field(), self.field()) for _ in range(count)])


class Client(Connection):
    def __init__(self, port, sent=b""):
        super().__init__(socket.create_connection(("127.0.0.1", port), 60))
        self.say(sent)

    def answer(self, code):
        # The records of a query, the record of a version, status and number of a removal, or the status.
        status = self.take(1)[0]
        if code == DELETE:
            return status, self.int()
        if status or code not in (QUERY, VERSION):
            return status
        return [self.record() for _ in range(self.int())] if code == QUERY else self.record()


class Records:
    # What a name server keeps, in order, as pairs of process and fields; it answers as Client reads.

    def __init__(self):
        self.kept, self.watched = [], {}

    def has_ended(self, process):
        # A process is watched from its first record on, so that another that gets its id is not taken for it.
        try:
            if process not in self.watched:
                self.watched[process] = os.fdopen(os.pidfd_open(process))
            return bool(select.select([self.watched[process]], [], [], 0)[0])
        except OSError:
            return True

    def serve(self, code, fields={}, process=0):
        ended = {each for each in self.watched if self.has_ended(each)}
        self.kept = [known for known in self.kept if known[0] not in ended]
        for each in ended:
            self.watched.pop(each).close()
        found = [known for known in self.kept if fields.items() <= known[1].items()]
        if code == VERSION:
            return 0, {"Version": "a name server in Python"}
        if code == QUERY:
            return found
        if code == DELETE:
            self.kept = [known for known in self.kept if known not in found]
            return (0, len(found)) if found else (NO_SUCH, 0)
        if code == REGISTER:
            if process and self.has_ended(process):
                return REFUSED
            name = fields.get("_ServerName")
            taken = name is not None and name in [known[1].get("_ServerName") for known in self.kept]
            if taken or (process, fields) in self.kept:
                return EXISTS
            self.kept.append((process, fields))
        return 0 if code in (PING, REGISTER, SHUTDOWN) else UNKNOWN


def encoded(code, answer):
    if code == QUERY:
        return bytes(1) + ints(len(answer)) + b"".join(record(fields, process) for process, fields in answer)
    if code == DELETE:
        return bytes(answer[:1]) + ints(answer[1])
    return bytes(1) + record(answer[1]) if code == VERSION else bytes([answer])


class Server:
    # A name server on a thread, for programs of this machine. It sends each answer byte by byte.

    def __init__(self):
        self.records, self.guard = Records(), threading.Lock()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.thread = threading.Thread(target=self.accept)
        self.thread.start()

    def accept(self):
        with self.listener:
            while True:
                try:
                    connection = Connection(self.listener.accept()[0])
                except OSError:  # end wakes it
                    return
                threading.Thread(target=self.talk, args=[connection], daemon=True).start()

    def talk(self, connection):
        with connection:
            try:
                while connection.int() == 100:
                    code = connection.take(1)[0]
                    process, fields = connection.record() if code in (REGISTER, DELETE, QUERY) else (0, {})
                    with self.guard:
                        answer = self.records.serve(code, fields, process)
                    for byte in encoded(code, answer):
                        connection.say(bytes([byte]))
                        time.sleep(0.001)  # so that it travels alone
                    if code == SHUTDOWN:
                        self.end()
                    if answer == UNKNOWN:
                        return
            except ValueError:
                connection.say(bytes([UNKNOWN]))
            except (EOFError, OSError):
                pass

    def end(self):
        with contextlib.suppress(OSError):  # it may have ended by itself
            self.listener.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        with self.guard:
            while self.records.watched:
                self.records.watched.popitem()[1].close()
