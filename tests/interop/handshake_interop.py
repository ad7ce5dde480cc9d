"""The handshake from outside, in both directions: bytes as they travel, and peers that stop half way, cut the
connection, say nothing, or tell more than they send."""

import socket
import struct
import subprocess
import sys
import time

VERSION = b"KEL netServer Version 0.99\0"
RIGHTS = "error 3 Connection refused due to lack of rights"
REFUSED = "error 3 Connection refused"
CUT = struct.pack("ii", 1, 0)
driver = subprocess.Popen([sys.argv[1]], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)
port = int(driver.stdout.readline())
failures = 0


def check(saw, expected, what):
    global failures
    if saw != expected:
        failures += 1
        print(f"{what}: expected {expected!r}, saw {saw!r}")


def peer(data=b""):
    connection = socket.create_connection(("127.0.0.1", port), 60)
    connection.sendall(data)
    return connection


def cut(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, CUT)
    connection.close()


def rest(connection):
    received = b""
    while block := connection.recv(4096):
        received += block
    return received


def our_server():
    silent = [peer() for _ in range(20)]
    for _ in range(50):
        cut(peer())
        cut(peer(b"\0"))
        cut(peer(b"\2"))
    half = peer()
    half.shutdown(socket.SHUT_WR)
    check(rest(half), b"", "no question")
    for data, answer in ((b"\1", b"\1"), (b"\2", b"\1\x1b" + VERSION), (b"\4", b""), (b"\xff\0\0", b""), (b"\2\2", b"\1\x1b" + VERSION)):
        check(rest(peer(data)), answer, f"the answer to {data}")
    urgent = peer()
    urgent.send(b"\1", socket.MSG_OOB)
    urgent.shutdown(socket.SHUT_WR)
    check(rest(urgent), b"", "a question out of band")
    # What comes in one piece with the question is the stream's.
    connected = peer(b"\0" + struct.pack(">ii", 1, -2))
    connected.shutdown(socket.SHUT_WR)
    check(rest(connected), b"\1" + struct.pack(">ii", 2, -1), "ints")
    silent[0].sendall(b"\1")
    check(rest(silent[0]), b"\1", "a late question")
    return silent


def our_client(listener):
    """Each operation against servers that read `count` bytes, answer, and then close, cut, or keep still."""
    theirs = listener.getsockname()[1]
    long_text = b"x" * 254 + b"\0"
    text = "x" * 254
    cases = [
        ("connect", b"\1" + struct.pack(">i", 12), "close", "int 12", 5),
        ("connect", b"\0", "close", RIGHTS, 1),
        ("connect", b"\2", "close", RIGHTS, 1),
        ("connect", b"", "close", "null", 1),
        ("connect", b"", "cut", "null", 1),
        ("connect", b"", "still", "null", 1),
        ("connect", b"", "at once", "null", 0),
        ("alive", b"\1", "close", "alive", 1),
        ("alive", b"\0", "close", "not alive", 1),
        ("alive", b"", "close", "not alive", 1),
        ("alive", b"", "cut", "not alive", 1),
        ("alive", b"", "still", "not alive", 1),
        ("version", b"\1\x1b" + VERSION, "close", "version " + VERSION[:-1].decode(), 1),
        ("version", b"\1\4a\0bc", "close", "version a", 1),
        ("version", b"\1\3abcdef", "close", "version abc", 1),
        ("version", b"\1\0", "close", "version ", 1),
        ("version", b"\1\xff" + long_text, "close", "version " + text, 1),
        ("version", b"\1\xff" + long_text[:-1], "close", REFUSED, 1),
        ("version", b"\1\xffabc", "cut", REFUSED, 1),
        ("version", b"\1\xffabc", "still", REFUSED, 1),
        ("version", b"\1", "close", REFUSED, 1),
        ("version", b"\0\1a", "close", RIGHTS, 1),
        ("version", b"", "cut", RIGHTS, 1),
        ("shutdown", b"\1", "close", "done", 1),
        ("shutdown", b"\0", "close", RIGHTS, 1),
        ("shutdown", b"", "still", RIGHTS, 1),
    ]
    codes = {"connect": b"\0", "alive": b"\1", "version": b"\2", "shutdown": b"\3"}
    for operation, answer, end, outcome, count in cases:
        what = f"{operation} with the answer {answer!r}, then {end}"
        begin = time.monotonic()
        driver.stdin.write(f"{operation} {theirs} {0.3 if end == 'still' else 60}\n")
        connection = listener.accept()[0]
        connection.settimeout(60)
        question = b""
        if end == "at once":
            cut(connection)
        else:
            question = connection.recv(1)
            connection.sendall(answer)
            while len(question) < count:
                question += connection.recv(count - len(question))
            if end == "cut":
                cut(connection)
            if end == "close":
                connection.shutdown(socket.SHUT_WR)
            check(question, codes[operation] + struct.pack(">i", 7)[: count - 1], f"the question of {what}")
        check(driver.stdout.readline(), outcome + "\n", what)
        if end == "still" and not 0.25 < time.monotonic() - begin < 30:
            check(time.monotonic() - begin, 0.3, f"seconds of {what}")
        if end in ("close", "still"):
            check(rest(connection), b"", f"what {what} sends behind the question")
        connection.close()
    listener.close()
    for operation, outcome in (("connect", "null"), ("alive", "not alive"), ("version", REFUSED), ("shutdown", "done")):
        driver.stdin.write(f"{operation} {theirs} 60\n")
        check(driver.stdout.readline(), outcome + "\n", f"{operation} where nobody listens")


held = our_server()
our_client(socket.create_server(("127.0.0.1", 0), backlog=8))
for command, answer in (("connect", "int 8"), ("alive", "alive"), ("version", "version " + VERSION[:-1].decode())):
    driver.stdin.write(f"{command} {port} 60\n")
    check(driver.stdout.readline(), answer + "\n", f"{command} between our own")
check(rest(peer(b"\3")), b"\1", "the answer to a shutdown")
driver.stdin.close()
check(driver.stdout.readline(), "the loop has ended\n", "the end")
check(driver.wait(60), 0, "the driver's exit code")
sys.exit(failures != 0)
