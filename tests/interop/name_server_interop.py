#!/usr/bin/env python3
"""An independent client of the name server: name_server_interop.py DRIVER [KELNMSD] [--sanitized].

Speaks the protocol by its bytes, to the server inside a program (DRIVER) and to the daemon (KELNMSD), keeps a model of
what must be registered, and is as unpleasant as a peer can be.
"""
import os
import random
import resource
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import zlib

EMPTY = []
PATIENCE = 60


def check(seen, expected, what):
    if seen != expected:
        sys.exit(f"{what}: expected {expected!r}, saw {seen!r}"[:2000])


def number(value):
    return struct.pack(">i", value)


def text(value):
    value = value.encode()
    return number(len(value) + 1) + number(len(value)) + value


def record(fields, process=0):
    return number(process) + number(len(fields)) + b"".join(text(name) + text(value) for name, value in fields)


def request(code, body=b""):
    return number(100) + bytes([code]) + body


class Server:
    """A program that serves until this ends."""

    def __init__(self, *command, limits=()):
        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            for which, value in limits:
                resource.setrlimit(which, (value, value))

        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        preexec_fn=limit)
        first = self.process.stdout.readline().split()
        if first[:1] != [b"port"]:
            sys.exit(f"{command}: {self.process.stderr.read()}")
        self.port = int(first[1])
        check(self.process.stdout.readline(), b"ready\n", "what follows the port")

    def end(self, with_signal=None):
        if with_signal:
            self.process.send_signal(with_signal)
        complaints = self.process.communicate(timeout=PATIENCE)[1]
        return self.process.returncode, complaints.decode()


class Peer:
    def __init__(self, server, *sent):
        self.socket = socket.create_connection(("localhost", server.port), PATIENCE)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.file = self.socket.makefile("rb")
        for piece in sent:
            self.socket.sendall(piece)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.file.close()
        self.socket.close()

    def reset(self):
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.close()

    def bytes(self, count):
        got = self.file.read(count)
        if len(got) != count:
            raise EOFError(f"{len(got)} of {count} bytes")
        return got

    def int(self):
        return struct.unpack(">i", self.bytes(4))[0]

    def text(self):
        size, length = self.int(), self.int()
        check(size, length + 1, "the size of a text")
        return self.bytes(length).decode()

    def record(self):
        process, count = self.int(), self.int()
        return process, [(self.text(), self.text()) for _ in range(count)]

    def answer(self, code):
        status = self.bytes(1)[0]
        if code == 4:
            return status, self.int()
        if status or code not in (5, 7):
            return status
        return [self.record() for _ in range(self.int())] if code == 5 else self.record()


def ask(server, code, *body):
    with Peer(server, request(code, record(*body) if body else b"")) as peer:
        return peer.answer(code)


def everything(server):
    return ask(server, 5, EMPTY)


class Model:
    """What must be registered, in order."""

    def __init__(self):
        self.records = []

    def matching(self, fields):
        return [r for r in self.records if set(fields) <= set(r[1])]

    def serve(self, code, fields, process):
        matching = self.matching(fields)
        if code == 5:
            return matching
        if code == 4:
            self.records = [r for r in self.records if r not in matching]
            return (0, len(matching)) if matching else (5, 0)
        if any((p, set(f)) == (process, set(fields)) for p, f in self.records) or \
                any(name == "_ServerName" and self.matching([(name, value)]) for name, value in fields):
            return 4
        self.records.append((process, fields))
        return 0


def walk(server, model, chance, steps):
    """Random requests, many on one connection, in pieces of any size."""
    names = ["_ServerName", "_PortNumber", "Host", "ö", ""]
    with Peer(server) as peer:
        while steps > 0:
            batch = []
            for _ in range(chance.choice([1, 1, 20])):
                fields = [(name, str(chance.randrange(chance.choice([2, 40])))) for name in
                          chance.sample(names, chance.randrange(len(names)))]
                code = chance.choice([3, 3, 3, 5, 4 if fields else 5])
                batch.append((code, fields, chance.choice([0, 0, os.getpid(), 1]) if code == 3 else 0))
            data = b"".join(request(code, record(fields, process)) for code, fields, process in batch)
            while data:
                cut = chance.choice([len(data), 1, 17])
                peer.socket.sendall(data[:cut])
                data = data[cut:]
            for asked in batch:
                check(peer.answer(asked[0]), model.serve(*asked), f"the answer to {asked}")
            steps -= len(batch)
    check(everything(server), model.records, "all records")


def refuse_nonsense(server):
    for sent, answer in ((number(101) + b"\1", b""), (request(2), b"\3"), (request(3, number(0) + number(-1)), b"\3"),
                         (request(5, number(0) + number(257)), b"\3"), (request(1) + request(99), b"\0\3"),
                         (request(3, number(0) + number(1) + number(1 << 30) + number((1 << 30) - 1)), b"\3"),
                         (request(3, record([("a\0b", "c")])), b"\3"), (request(5, record([("a", "b" * 256)])), b"\3"),
                         (request(4, number(0) + number(1) + number(3) + number(3)), b"\3")):
        with Peer(server, sent) as peer:
            check(peer.file.read(), answer, f"the answer to {sent[:40]}")
    check(ask(server, 3, [("none", "")], 1 << 30), 6, "a record of no process")
    check(ask(server, 3, [("n" * 255, "v" * 255)] + [(f"{i}", "") for i in range(255)]), 0, "the largest record")
    check(ask(server, 4, [("n" * 255, "v" * 255)]), (0, 1), "its removal")


def crowd(server):
    """Silent, half, resetting and unread peers; meanwhile everybody else is served at once."""
    count = 10000
    with Peer(server) as peer:
        for first in range(0, count, 500):
            peer.socket.sendall(b"".join(request(3, record([("_ServerName", f"server {i}"), ("all", "1")]))
                                         for i in range(first, first + 500)))
            check({peer.answer(3) for _ in range(500)}, {0}, "registrations")
    began = time.monotonic()
    unread = [Peer(server, request(5, record([("all", "1")])) * 50) for _ in range(20)]
    others = [Peer(server, request(3, record([("half", "1")]))[:i % 30]) for i in range(700)]
    for i in range(300):
        Peer(server, request(5, record(EMPTY))[:i % 14]).reset()
    slowest = 0
    for i in range(300):
        asked = time.monotonic()
        check(len(ask(server, 5, [("_ServerName", f"server {i}")])), 1, "a query in the crowd")
        slowest = max(slowest, time.monotonic() - asked)
    if slowest > 5:
        sys.exit(f"a query took {slowest} s among silent peers")
    check([r[1][0][1] for r in unread[7].answer(5)], [f"server {i}" for i in range(count)], "an answer read late")
    for peer in unread[8:]:  # their end tells the server nothing but that
        peer.reset()
    flood = [Peer(server) for _ in range(1100)]
    check(ask(server, 1), 0, "a ping behind a flood")
    check(others[20].file.read(), b"", "the end of a peer that was idle longest")
    for peer in flood[:-1] + others + unread[:8]:
        peer.close()
    check(ask(server, 4, [("all", "1")]), (0, count), "removal of all")
    check(flood[-1].file.read(), b"", "the end of a silent peer")
    if time.monotonic() - began < 9:
        sys.exit("a silent peer was dropped too early")


class Sleeper:
    """A process that does nothing."""

    def __init__(self):
        self.process = subprocess.Popen(["sleep", "1000"])
        self.id = self.process.pid

    def kill(self):
        self.process.kill()
        self.process.wait()


def processes(start, journal):
    server = start()
    before = everything(server)
    dying, staying, later = Sleeper(), Sleeper(), Sleeper()
    for sleeper, name in ((dying, "a"), (dying, "b"), (staying, "c"), (later, "d"), (staying, "e")):
        check(ask(server, 3, [("_ServerName", name), ("of", "test")], sleeper.id), 0, "an associated record")
    check(ask(server, 3, [("_ServerName", "a")]), 4, "a name that is held")
    dying.kill()
    check([r[0] for r in ask(server, 5, [("of", "test")])], [staying.id, later.id, staying.id], "records after an end")
    check(ask(server, 3, [("_ServerName", "a"), ("of", "test")]), 0, "the name of a dead process")
    check(server.end(signal.SIGKILL)[0], -signal.SIGKILL, "its end")
    later.kill()
    server = start()
    kept = [(staying.id, "c"), (staying.id, "e"), (0, "a")]
    check([(r[0], r[1][0][1]) for r in ask(server, 5, [("of", "test")])], kept, "records after both ended")
    check(server.end(signal.SIGTERM), (0, ""), "an orderly end")
    # The id is another process's by now: the births in the journal are of one that was before.
    data, at = bytearray(open(journal, "rb").read()), 17
    while at < len(data):
        length = struct.unpack_from(">i", data, at)[0]
        if data[at + 8:at + 9] == b"+" and struct.unpack_from(">I", data, at + 25)[0] == staying.id:
            data[at + 24] ^= 1
            struct.pack_into(">I", data, at + 4, zlib.crc32(data[at + 8:at + 8 + length]))
        at += 8 + length
    open(journal, "wb").write(data)
    server = start()
    staying_still = [(0, [("_ServerName", "a"), ("of", "test")])]
    check(ask(server, 5, [("of", "test")]), staying_still, "records of a reused id")
    check(ask(server, 4, [("of", "test")]), (0, 1), "their removal")
    check(everything(server), before, "what the others left")
    staying.kill()
    server.end(signal.SIGKILL)


def damage(program, journal):
    """A journal that is torn, damaged, foreign, in use, and of which there is no more room."""
    def start(*limits):
        return Server(*program, limits=limits)
    if os.path.exists(journal):
        os.remove(journal)
    server = start()
    ends = []
    for i in range(5):
        check(ask(server, 3, [("n", str(i))]), 0, "a registration")
        ends.append(os.path.getsize(journal))
    second = subprocess.run(program, capture_output=True, stdin=subprocess.DEVNULL)
    check((second.returncode, b"in use" in second.stderr), (1, True), "a second server")
    server.end(signal.SIGKILL)
    whole = open(journal, "rb").read()
    for what, data, left, said, copy in (
            ("a torn end", whole[:ends[4] - 3], 4, "unfinished", False),
            ("a torn head", whole[:ends[3] + 5], 4, "unfinished", False),
            ("a flipped byte", whole[:ends[1] + 12] + b"?" + whole[ends[1] + 13:], 2, "damaged", True),
            ("a length beyond the end", whole[:ends[0] + 1] + b"\x02" + whole[ends[0] + 2:], 1, "damaged", True),
            ("a huge length", whole[:ends[0]] + b"\x7f" + whole[ends[0] + 1:], 1, "damaged", True),
            ("zeros behind", whole + bytes(4096), 5, "damaged", True),
            ("half a header", whole[:9], 0, "", False)):
        open(journal, "wb").write(data)
        server = start()
        check([r[1][0][1] for r in everything(server)], [str(i) for i in range(left)], what)
        check(ask(server, 3, [("after", "it")]), 0, what)
        complaints = server.end(signal.SIGKILL)[1]
        check(said in complaints, True, f"{what}: complaints {complaints}")
        check(os.path.exists(journal + ".damaged"), copy, f"a copy after {what}")
        if copy:
            check(open(journal + ".damaged", "rb").read(), data, f"the copy after {what}")
            os.remove(journal + ".damaged")
        server = start()
        check(len(everything(server)), left + 1, f"{what}, the second time")
        check(server.end(signal.SIGTERM), (0, ""), f"{what}, the second time")
    for data, said in ((b"kelstdmt names 2\nnew", b"newer"), (b"my diary\n" * 9, b"no journal")):
        open(journal, "wb").write(data)
        ended = subprocess.run(program, capture_output=True, stdin=subprocess.DEVNULL)
        check((ended.returncode, said in ended.stderr, open(journal, "rb").read()), (1, True, data), "a foreign file")
    os.remove(journal)
    server = start((resource.RLIMIT_FSIZE, 1000))
    statuses = [ask(server, 3, [("n", str(i))]) for i in range(100)]
    count = statuses.index(9)
    check(statuses, [0] * count + [9] * (100 - count), "registrations on a full disk")
    check((ask(server, 4, EMPTY), len(everything(server))), ((9, 0), count), "a removal on a full disk")
    check("refused" in server.end(signal.SIGKILL)[1], True, "a complaint about the full disk")
    server = start()
    check(len(everything(server)), count, "records after the disk was full")
    # Grows by 8 MB, and keeps two records.
    with Peer(server) as peer:
        for i in range(200):
            pair = request(3, record([("big", str(i))] + [(f"{k}", "x" * 255) for k in range(75)]))
            peer.socket.sendall(pair * 2 + request(4, record([("big", str(i))])))
            check((peer.answer(3), peer.answer(3), peer.answer(4)), (0, 4, (0, 1)), "a record that comes and goes")
    size = os.path.getsize(journal)
    check(size < 1100000, True, f"a journal of {size} bytes for {count} records")
    server.end(signal.SIGKILL)
    server = start()
    check([r[1] for r in everything(server)], [[("n", str(i))] for i in range(count)], "records after compaction")
    check(server.end(signal.SIGKILL)[1], "", "complaints after compaction")


def scarcity(program):
    """More processes and peers than there are descriptors."""
    server = Server(*program, limits=((resource.RLIMIT_NOFILE, 64),))
    sleepers = [Sleeper() for _ in range(90)]
    for sleeper in sleepers:
        check(ask(server, 3, [("_ServerName", str(sleeper.id))], sleeper.id), 0, "a record without a descriptor")
    peers = [Peer(server) for _ in range(100)]
    check(len(everything(server)), 90, "records of all processes")
    for sleeper in sleepers[::2]:
        sleeper.kill()
    check(ask(server, 3, [("_ServerName", str(sleepers[0].id))]), 0, "the name of a dead process")
    check([r[0] for r in everything(server)], [s.id for s in sleepers[1::2]] + [0], "records of the living")
    for peer in peers:
        peer.close()
    for sleeper in sleepers[1::2]:
        sleeper.kill()
    check(len(everything(server)), 1, "records of nobody")
    check(server.end(signal.SIGTERM)[0], 0, "its end")


def daemon(program, folder):
    pid_file = folder + "/pid"
    command = [program, "--port", "0", "--pid-file", pid_file, "--listen", "127.0.0.1"]
    started = subprocess.run(command, capture_output=True, timeout=PATIENCE)
    check((started.returncode, started.stderr), (0, b""), "the start of a daemon")
    check(subprocess.run(command, capture_output=True).returncode, 1, "a second daemon")
    server = type("Daemon", (), {"port": int(started.stdout.split()[1])})
    check(ask(server, 7)[1][0][0], "Version", "the version of a daemon")
    process = os.pidfd_open(int(open(pid_file).read()))
    check(ask(server, 6), 0, "the shutdown of a daemon")
    import select
    check(len(select.select([process], [], [], PATIENCE)[0]), 1, "the end of a daemon")
    check(os.path.exists(pid_file), False, "the file of a daemon that ended")
    for arguments, code in ((["--port", "x"], 2), (["--no-such"], 2), (["--port", "70000"], 2), (["--version"], 0),
                            (["--foreground", "--listen", "no address"], 1),
                            (["--foreground", "--port", "0", "--journal", folder], 1)):
        ended = subprocess.run([program] + arguments, capture_output=True, stdin=subprocess.DEVNULL, timeout=PATIENCE)
        check((ended.returncode, bool(ended.stdout), bool(ended.stderr)), (code, code == 0, code != 0), arguments)


def main():
    # The sanitizers need descriptors themselves.
    is_sanitized = "--sanitized" in sys.argv
    driver, *daemons = [argument for argument in sys.argv[1:] if argument != "--sanitized"]
    chance = random.Random(5)
    with tempfile.TemporaryDirectory() as folder:
        os.environ["KELSTDMT_REGISTRY"] = os.environ["HOME"] = folder
        server, model = Server(driver), Model()
        check(ask(server, 7), (0, [("Version", "embedded")]), "the version")
        check(ask(server, 1), 0, "a ping")
        walk(server, model, chance, 2000)
        refuse_nonsense(server)
        server.process.stdin.close()
        server.process.stdin = None
        check(server.end(), (0, ""), "the end of an embedded server")
        if not daemons:
            return
        journal = folder + "/journal"
        program = daemons[:1] + ["--port", "0", "--foreground", "--journal", journal]

        def start():
            return Server(*program)
        model = Model()
        for _ in range(4):
            server = start()
            check(everything(server), model.records, "records after the restart")
            walk(server, model, chance, 1000)
            check(server.end(signal.SIGKILL)[0], -signal.SIGKILL, "its end")
        processes(start, journal)
        server = start()
        refuse_nonsense(server)
        crowd(server)
        check(everything(server), model.records, "records after the crowd")
        check((ask(server, 6), server.end()), (0, (0, "")), "a shutdown")
        damage(program, journal)
        if not is_sanitized:
            scarcity(daemons[:1] + ["--port", "0", "--foreground"])
        daemon(daemons[0], folder)


main()
