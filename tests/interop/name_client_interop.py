"""The clients of a name server against servers made here: honest ones, and such as tell sizes that they do not
send, cut their answers, say nothing, take nothing, or never come to an end."""

import os
import socket
import struct
import subprocess
import sys
import threading
import time

FUNCTIONS, MODULE = "functions", "module"
OPERATIONS = {"ping": 1, "register": 3, "delete": 4, "query": 5, "shutdown": 6, "version": 7}
ORIGINS = ("ERROR  : NMS client: ", "ERROR  : NameServer on client request: ")
TEXTS = {
    3: "request is not recognized.",
    4: "this record(s) already exists.",
    5: "could not find matching record.",
    6: "not authorized to perform this request.",
}
EXCEPTIONS = {
    "register": "nmsclib::XCantRegisterRecord from nmsServerProxy::Register: ",
    "delete": "nmsclib::XCantDelete from nmsServerProxy::Delete: ",
    "query": "nmsclib::XCantQuery from nmsServerProxy::Query: ",
    "version": "nmsclib::XCantGetVersion from nmsServerProxy::GetVersion: ",
    "shutdown": "nmsclib::XCantShutdown from nmsServerProxy::Shutdown: ",
}
CUT = struct.pack("ii", 1, 0)
PATIENCE = 4  # seconds, of those clients that are held up
failures = 0
lock = threading.Lock()


def check(saw, expected, what):
    global failures
    if saw != expected:
        with lock:
            failures += 1
            print(f"{what}: expected {expected!r}, saw {saw!r}", flush=True)


def number(value):
    return struct.pack(">i", value)


def text(value):
    return number(len(value) + 1) + number(len(value)) + value.encode()


def record(fields, process=0):
    return number(process) + number(len(fields)) + b"".join(text(n) + text(v) for n, v in fields)


class Client:
    def __init__(self, *patience):
        self.process = subprocess.Popen([sys.argv[1], *patience], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True, bufsize=1)

    def ask(self, api, operation, port, host="-", process=0, fields=()):
        words = [api, operation, host, str(port), str(process), *(f"{n}={v}" for n, v in fields)]
        self.process.stdin.write("\t".join(words) + "\n")

    def outcome(self):
        lines = []
        while (line := self.process.stdout.readline()) != ".\n":
            if not line:
                return lines + [f"ended with {self.process.wait()}"]
            lines.append(line[:-1])
        return lines

    def close(self):
        self.process.stdin.close()
        check(self.process.wait(60), 0, "the driver's exit code")


class Server:
    def __init__(self, buffer=None):
        self.listener = socket.socket()
        if buffer:
            self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, buffer)
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen()
        self.listener.settimeout(120)
        self.port = self.listener.getsockname()[1]

    def accept(self):
        connection = self.listener.accept()[0]
        connection.settimeout(120)
        return connection


def take(connection, count):
    data = b""
    while len(data) < count and (piece := connection.recv(count - len(data))):
        data += piece
    return data


def failed(api, operation, code, origin, port, host="LOCALHOST"):
    reached = f"could not connect to NameServer. ({host}, port {port})"
    line = ORIGINS[origin] + (reached if code == 2 else TEXTS.get(code, "internal error occured."))
    if operation == "ping" and api == MODULE:
        return ["not alive", "done"]
    return [f"code {code}", line] if api == FUNCTIONS else [EXCEPTIONS[operation] + line]


def done(api, *lines):
    return ["code 0", *lines] if api == FUNCTIONS else [*lines, "done"]


FOUND = [("_ServerName", "abc"), ("_PortNumber", "40123")]
LARGEST = [(f"{i:0255}", "v" * 255) for i in range(256)]
TOLD = "record 0\t_PortNumber=40123\t_ServerName=abc"
# One of each kind; fuzz/corpus/name_record has all of them.
BAD_RECORDS = (number(0) + number(257), record([("a", "v\0")]), record(FOUND)[:-1])


def cases():
    """Operation, answer, and the outcome: a code and its origin, or what is told (None: by the API's own words)."""
    for operation in ("ping", "register", "delete", "query", "version", "shutdown"):
        yield operation, b"", (2, 0)
        for code in (3, 4, 5, 6, 77, 255):
            yield operation, bytes([code]) + number(0), (2, 0) if operation == "ping" else (code, 1)
    yield "ping", b"\0", []
    yield "register", b"\0", []
    yield "shutdown", b"\0", []
    yield "delete", b"\0" + number(3), [3]
    yield "delete", b"\5", (5, 1)
    yield "delete", b"\0", (2, 0)
    yield "delete", b"\0\0\0", (2, 0)
    yield "delete", b"\0" + number(-1), (2, 0)
    yield "query", b"\0" + number(0), []
    yield "query", b"\0" + number(2) + record(FOUND) + record([("a", ""), ("", "b")]), [TOLD, "record 0\t=b\ta="]
    yield "query", b"\0" + number(1) + record([("a", "1"), ("a", "2")]) + b"more", ["record 0\ta=2"]
    yield "query", b"\0" + number(2) + record(FOUND), (2, 0)
    yield "query", b"\0" + number(0x7FFFFFFF) + record(FOUND) * 9, (2, 0)
    yield "query", b"\0" + number(-1) + record(FOUND), (2, 0)
    yield "query", b"\0\0", (2, 0)
    yield "version", b"\0" + record([("Version", "1.0"), ("a", "b")]), ["version 1.0"]
    yield "version", b"\0" + record([("version", "1.0")]), ["ERROR  : Other"]
    for bad in BAD_RECORDS:
        yield "query", b"\0" + number(1) + bad, (2, 0)
        yield "version", b"\0" + bad, (2, 0)


def expected_of(api, operation, outcome, port):
    if isinstance(outcome, tuple):
        return failed(api, operation, *outcome, port)
    if outcome == ["ERROR  : Other"]:
        return [EXCEPTIONS["version"] + outcome[0]]
    if operation == "delete":
        return done(api) if api == FUNCTIONS else done(api, f"deleted {outcome[0]}")
    return done(api, *(["alive"] if operation == "ping" and api == MODULE else outcome))


def answers():
    client, server = Client(), Server()
    sent = [("_ServerName", "abc")]
    for api in (FUNCTIONS, MODULE):
        for end in ("close", "cut", "drip"):
            for operation, answer, outcome in cases():
                if api == FUNCTIONS and operation in ("version", "shutdown"):
                    continue
                # A cut throws away what has not been read yet.
                if end == "cut" and outcome != (2, 0):
                    continue
                what = f"{api} {operation} with the answer {answer[:60]!r}, then {end}"
                request = number(100) + bytes([OPERATIONS[operation]])
                if operation in ("register", "delete", "query"):
                    request += number(4711) + number(1) + number(12) + number(11) + b"_ServerName"
                    request += number(4) + number(3) + b"abc"
                client.ask(api, operation, server.port, process=4711, fields=sent)
                with server.accept() as connection:
                    check(take(connection, len(request)), request, f"the request of {what}")
                    if end == "drip":
                        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                    pieces = [answer[i : i + 7] for i in range(0, len(answer), 7)] if end == "drip" else [answer]
                    try:
                        for piece in pieces:
                            connection.sendall(piece)
                        cut(connection) if end == "cut" else connection.shutdown(socket.SHUT_WR)
                    except OSError:
                        pass  # it has read enough and is gone
                    check(client.outcome(), expected_of(api, operation, outcome, server.port), what)
    client.close()


def cut(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, CUT)
    connection.close()


def refusals():
    """What the client finds by itself, and what it tells of a host that nobody serves."""
    client, server = Client(), Server()
    closed = socket.socket()
    closed.bind(("127.0.0.1", 0))
    port = closed.getsockname()[1]
    for api in (FUNCTIONS, MODULE):
        client.ask(api, "register", port, "127.0.0.1")
        check(client.outcome(), failed(api, "register", 2, 0, port, "127.0.0.1"), f"{api}, nobody there")
        # No server accepts here: these come back without a connection.
        client.ask(api, "register", server.port, "127.0.0.1", process=1, fields=FOUND)
        check(client.outcome(), failed(api, "register", 6, 0, server.port), f"{api}, a record of a process elsewhere")
        for what, fields in {
            "257 fields": [(f"f{i}", "v") for i in range(257)],
            "a name of 256 bytes": [("n" * 256, "v")],
            "a value of 256 bytes": [("n", "v" * 256)],
        }.items():
            client.ask(api, "register", server.port, fields=fields)
            if api == MODULE:
                with server.accept() as connection:
                    check(take(connection, 100)[5:], b"", f"what is sent of {what}")
            check(client.outcome(), failed(api, "register", 8, 0, server.port), f"{api}, {what}")
        client.ask(api, "register", server.port, process=4711, fields=LARGEST)
        with server.accept() as connection:
            request = take(connection, 5 + len(record(LARGEST)))
            connection.sendall(b"\0")
            check(len(request), 5 + len(record(LARGEST)), "the size of the largest record")
            check(all(text(n) + text(v) in request for n, v in LARGEST), True, "the largest record's fields")
            check(client.outcome(), done(api), f"{api}, the largest record")
    client.ask(MODULE, "shutdown", server.port, "127.0.0.1")
    line = ORIGINS[0] + TEXTS[6]
    nonlocal_line = "ERROR  : NMS client: cannot shutdown nonlocal NameService."
    check(client.outcome(), [nonlocal_line, EXCEPTIONS["shutdown"] + line], "shutting down another host's")
    client.ask(MODULE, "connect", port)
    check(client.outcome(), ["nmsclib::XCantConnectLocal from nmsServerProxy::ConnectLocal: Can't connect locally"], "connect")
    client.ask(MODULE, "connect", port, "127.0.0.1")
    by_name = "nmsclib::XCantConnectByName from nmsServerProxy::ConnectByName: ERROR  : can't connect by name"
    check(client.outcome(), [by_name, "server 127.0.0.1"], "connect by name")
    client.ask(MODULE, "status", port, "127.0.0.1")
    check(client.outcome()[:1], failed(FUNCTIONS, "ping", 2, 0, port, "127.0.0.1")[1:], "a status on a stream")
    for value in ("abc", "0", "", "-0x"):
        for api in (FUNCTIONS, MODULE):
            client.ask(api, "ping", value)
            warned = [line for line in client.outcome() if "ORVNMSPORT" in line]
            check(warned, ["ERROR  : value of ORVNMSPORT is invalid, using the port 1239."], f"the port {value!r}")
    for api in (FUNCTIONS, MODULE):
        client.ask(api, "query", f" {server.port}x", fields=FOUND)
        with server.accept() as connection:
            connection.sendall(b"\0" + number(0))
            check(client.outcome(), done(api), "a port with more behind it")
    client.close()


def send_on(connection, piece, pause, most, what):
    """Until the client is gone. One that takes too much is cut off, before it takes all memory."""
    try:
        for _ in range(0, most, len(piece)):
            connection.sendall(piece)
            time.sleep(pause)
        check("took all of it", "gave up", what)
        cut(connection)
    except OSError:
        pass


def patience(api, operation, behaviour):
    """One that holds its client up. Each runs beside the others, with a client of its own."""
    client, server = Client(str(PATIENCE)), Server(4096)
    fields = LARGEST if behaviour == "deaf" else FOUND
    what = f"{api} {operation}, {behaviour}"
    begin = time.monotonic()
    client.ask(api, operation, server.port, fields=fields)
    connection = server.accept()
    sender = None
    if behaviour == "half":
        connection.sendall(b"\0" + number(3) + record(FOUND)[:9])
    if behaviour == "trickle":
        connection.sendall(b"\0" + number(1) + number(0) + number(250))
        sender = threading.Thread(target=send_on, args=(connection, text("x") + text("v"), 1, 90 * 18, what))
    if behaviour == "endless":
        connection.sendall(b"\0" + number(0x7FFFFFFF))
        sender = threading.Thread(target=send_on, args=(connection, record([]) * 4096, 0, 40 << 20, what))
    if sender:
        sender.start()
    saw = client.outcome()
    lasted = time.monotonic() - begin
    code = 8 if saw == failed(api, operation, 8, 0, server.port) else 2
    check(saw, failed(api, operation, code, 0, server.port), what)
    if code == 8:
        check(behaviour, "deaf", f"{what}: told as not sent")
    if behaviour != "endless":
        check(PATIENCE - 0.5 < lasted < PATIENCE + 60, True, f"{what}: {lasted:.1f} seconds")
    client.close()
    if sender:
        sender.join()
    connection.close()


os.environ.pop("ORVNMSPORT", None)
held_up = [
    threading.Thread(target=patience, args=(api, operation, behaviour))
    for api in (FUNCTIONS, MODULE)
    for operation, behaviour in (("query", "silent"), ("register", "deaf"), ("query", "half"), ("query", "trickle"), ("query", "endless"))
]
for thread in held_up:
    thread.start()
answers()
refusals()
for thread in held_up:
    thread.join()
sys.exit(failures > 0)
