"""rsh_interop.py PROGRAM [--sanitized]: both sides of the remote shell, met by a peer that knows nothing but
the messages: a client here against servers of PROGRAM (rsh_driver), a server here against its clients, and
its clients against its servers."""

import os
import pathlib
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

ERR, OUT, IN, END, CODE, DONE, KILL, BREAK = 2, 3, 4, 5, 6, 7, 8, 9
HOLD_OUT, HOLD_IN, GO_ON_OUT, GO_ON_IN = 35, 36, 51, 52
NO_CODE, PATIENCE, MIB = -0x80000000, 60, 1 << 20
CUT = struct.pack("ii", 1, 0)
PROGRAM, SANITIZED = sys.argv[1], "--sanitized" in sys.argv
scratch = tempfile.TemporaryDirectory(prefix="rsh_interop_")
folder = pathlib.Path(scratch.name)
failures = 0


def check(saw, expected, what):
    global failures
    if saw != expected:
        failures += 1
        print(f"{what}: expected {expected!r:.300}, saw {saw!r:.300}", flush=True)


def ints(*values):
    return struct.pack(f">{len(values)}i", *values)


def text(content):
    return ints(len(content)) + content


def data(tag, content):
    return ints(tag) + text(content)


PRESSURE = [ints(tag) for tag in (34, 35, 50, 51)]


def request(command, directory="", shell=0):
    return text(os.fsencode(command)) + text(os.fsencode(directory)) + ints(shell)


class Peer(socket.socket):
    """A connection that reads ints, sends in pieces and knows how to go."""

    def __init__(self, connection):
        super().__init__(fileno=connection.detach())
        self.settimeout(PATIENCE)
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
        for n in range(0, len(content), piece):
            self.sendall(content[n : n + piece])

    def converse(self, ignored=()):
        """The other side's messages up to its acknowledgement: output, error output, code."""
        received, code = {OUT: [], ERR: []}, None
        while (tag := self.int()) != DONE:
            if tag in received:
                received[tag].append(self.text())
                check(received[tag][-1] != b"", True, "data in a message")
            elif tag == CODE and code is None:
                code = self.int()
            elif tag not in ignored:
                return f"tag {tag} after {received!r:.100} and the code {code}"
        self.sendall(ints(DONE))
        return b"".join(received[OUT]), b"".join(received[ERR]), code

    def rest(self):
        received = b""
        try:
            while block := self.recv(MIB):
                received += block
        except ConnectionResetError:
            pass
        return received

    def hang_up(self):
        try:
            self.shutdown(socket.SHUT_WR)
        except OSError:  # the other side has gone already
            pass

    def leave(self, how):
        """By "close", by "cut" with a reset, or by "half" in order: what came until the other side had gone too."""
        received = b""
        if how == "cut":
            self.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, CUT)
        if how == "half":
            self.hang_up()
            received = self.rest()
        self.close()
        return received


class Program:
    """The driver, what it holds, and how much memory it needed."""

    def __init__(self, *arguments):
        self.process = subprocess.Popen([PROGRAM, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True, env=dict(os.environ, SHELL="/bin/sh"))
        self.path = pathlib.Path(f"/proc/{self.process.pid}")

    def say(self, line):
        print(line, file=self.process.stdin, flush=True)

    def line(self):
        return self.process.stdout.readline().rstrip("\n")

    def holds(self):
        children = [child for task in self.path.glob("task/*/children") for child in task.read_text().split()]
        return len(list((self.path / "fd").iterdir())), len(children)

    def check_holds(self, expected, what):
        """`expected` may hold what the last request was still about to close."""
        wait_for(lambda: self.holds() <= expected)
        check(min(self.holds(), expected), self.holds(), f"descriptors and children {what}")


def wait_for(condition):
    until = time.monotonic() + PATIENCE / 3
    while not condition() and time.monotonic() < until:
        time.sleep(0.005)


def peak(pid):
    return int(pathlib.Path(f"/proc/{pid}/status").read_text().split("VmHWM:")[1].split()[0]) // 1024


def check_peak(pid, before, what):
    check(SANITIZED or peak(pid) <= before + 96, True, f"{peak(pid)} MiB of memory, {before} MiB before {what}")


def is_running(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False


def check_ends(pids, what):
    wait_for(lambda: not any(map(is_running, pids)))
    check([pid for pid in pids if is_running(pid)], [], f"processes that {what} left")


# A client here -----------------------------------------------------------------------------------------------


class Session:
    """A request. The driver tells its end once this end is closed, or before."""

    def __init__(self, sent, port=0, outcome=None):
        self.peer = Peer(socket.create_connection(("127.0.0.1", ports[port])))
        self.outcome = outcome or ("ended" if port else "served")
        self.peer.say(sent)

    def __enter__(self):
        return self.peer

    def __exit__(self, kind, error, trace):
        self.peer.close()
        if not kind:
            check(server.line(), self.outcome, "how the request ended")


def asked(*words, feed=b"", piece=MIB, port=0):
    """What a whole request gives, with nothing behind the end."""
    with Session(b"", port) as peer:
        peer.say(request(*words) + feed, piece)
        check(peer.int(), 0, f"the launch of {words!r:.80}")
        result = peer.converse({HOLD_IN, GO_ON_IN} if len(feed) > MIB // 8 else ())
        check(peer.rest(), b"", f"what follows the end of {words!r:.80}")
    return result


def commands():
    big = os.urandom(3 * MIB)
    fed = b"".join(data(IN, big[n : n + 100_001]) for n in range(0, len(big), 100_001)) + ints(END)
    # Unknown tags lead no payload; those of the other direction and a second end are unknown too.
    odd = ints(0, 1, 2, 3, 6, 10, 99, -5, NO_CODE, 0x7FFFFFFF, HOLD_IN, GO_ON_OUT) + data(IN, b"in step")
    for command, directory, feed, expected in (
        ("true", "", b"", (b"", b"", 0)),
        ('sh -c "exit 7"', "", b"", (b"", b"", 7)),
        ('sh -c "kill -9 $$"', "", b"", (b"", b"", 137)),
        ("head -c 3000 /dev/zero", "", b"", (bytes(3000), b"", 0)),
        ('sh -c "cat; echo e >&2"', "", data(IN, b"hello") + ints(IN, 0, END), (b"hello", b"e\n", 0)),
        ("cat", "", fed, (big, b"", 0)),
        ('sh -c "cat >&2"', "", fed, (b"", big, 0)),
        ("true", "", fed, (b"", b"", 0)),  # ends before its input is read
        ('sh -c "exec >&- 2>&-; read l; exit $l"', "", data(IN, b"5\n"), (b"", b"", 5)),  # closes its output
        ("pwd", "/", b"", (b"/\n", b"", 0)),
        ("pwd", "below", b"", (f"{folder}/below\n".encode(), b"", 0)),
        ('sh -c "printf %s ' + "x" * 100_000 + '"', "", b"", (b"x" * 100_000, b"", 0)),
        ("cat", "", odd + ints(77, END, END) + data(IN, b"late"), (b"in step", b"", 0)),
    ):
        for port in (0, 1):
            check(asked(command, directory, feed=feed, port=port), expected, f"{command!r:.80} in {directory!r}")
    sent = data(IN, b"one") + data(IN, b"two") + ints(123, END)
    check(asked("cat", "below", feed=sent, piece=1), (b"onetwo", b"", 0), "byte by byte")
    for line in (
        "", " echo  'a  b'\t", 'echo "a  b" \'c"d\' "e\\"f"', 'echo "', "echo a\\", 'echo \\"', 'printf "%s|" "" "" a\\ b',
        "echo \\\\ '\\\\' \"\\\\\" \\\\\\\"x", "echo a\necho b; echo c >&2; exit 3", 'echo "$(echo "in $(echo "side")")"',
        "cat | tr a-z A-Z", '"echo" "both ends"', 'x="a b"; echo "$x" \'$x\' $x', "echo " + "y" * 100_000, "no_such_command",
        'echo "' + '\\\\" "' * 500 + '"',
    ):
        local = subprocess.run(["/bin/sh", "-c", line], input=b"input", capture_output=True, cwd=folder)
        saw = asked(line, str(folder), 1, feed=data(IN, b"input") + ints(END))
        check(saw, (local.stdout, local.stderr, local.returncode), f"the shell's {line!r:.100}")


def refusals():
    (folder / "plain").write_text("no program")
    for command, directory, part in (("/no/such", "", "o such file"), ("", "", ""), (f"{folder}/plain", "", "denied"),
                                     ("true", "no such", "not a folder"), ("true " + "x" * 300_000, "", "long"),
                                     ("true", "plain", "not a folder")):  # fmt: skip
        with Session(request(command, directory), outcome="refused") as peer:
            check((peer.int(), peer.int()), (10, 3), f"the refusal of {command!r:.80}")
            message = peer.text().decode()
            check(part in message and message != "", True, f"{message!r} for {command!r:.80} in {directory!r}")
            check(peer.rest(), b"", "what follows the refusal")
    before = peak(server.process.pid)
    for sent in (ints(-1), ints(0x7FFFFFFF) + bytes(100), ints(NO_CODE), ints(3), text(b"true") + ints(-1),
                 text(b"true") + ints(0x7FFFFFFF), ints(16 * MIB) + bytes(4 * MIB)):  # fmt: skip
        try:
            with Session(sent, outcome="refused") as peer:
                peer.leave("half")
        except OSError:  # it hung up before all was sent
            check(server.line(), "refused", f"the request {sent[:20]}")
    check_peak(server.process.pid, before, "hostile requests")


def vanishing():
    asks = request("cat", "below")
    sent = asks + data(IN, b"hello") + ints(END)
    waits = request('sh -c "sleep 1000 & echo $! $$; wait"')
    for how in ("close", "half", "cut"):
        for count in range(0, len(sent) + 1, 5 if SANITIZED else 1):
            # One that cuts the connection may take back what it has sent.
            launched = count >= len(asks)
            session = Session(sent[:count], outcome="served" if launched else "refused")
            session.peer.leave(how)
            saw = server.line()
            check(saw in (session.outcome, "refused" if how == "cut" else ""), True, f"{saw}: {how} after {count} bytes")
        for count in range(1, 30, 5 if SANITIZED else 1):
            with Session(sent) as peer:
                peer.take(count)
                peer.leave(how)
        with Session(waits) as peer:
            check((peer.int(), peer.int()), (0, OUT), "a command that waits")
            pids = [int(word) for word in peer.text().split()]
            peer.leave(how)
        check_ends(pids, f"a client that left by {how}")
    for last in (ints(IN, -1), ints(IN, NO_CODE), ints(IN, 0x7FFFFFFF) + bytes(8 * MIB), ints(IN, 100) + bytes(50)):
        before = peak(server.process.pid)
        with Session(request('sh -c "echo $$; exec cat >/dev/null"')) as peer:
            check((peer.int(), peer.int()), (0, OUT), "a command that reads")
            pids = [int(peer.text())]
            peer.say(last)
            if last[4] < 128:
                peer.leave("close")
            else:
                check(peer.rest(), b"", "the answer to a negative count")
        check_ends(pids, f"the count {last[4:8]}")
        check_peak(server.process.pid, before, f"the count {last[4:8]}")


def controls():
    trap = request('trap "echo caught; exit 5" INT; echo ready; while :; do sleep 0.01; done', "", 1)
    for port, flags in ((0, 0), (0, socket.MSG_OOB), (1, 0)):
        for tag, expected in ((BREAK, (b"caught\n", b"", 5)), (KILL, (b"", b"", 137))):
            with Session(trap, port) as peer:
                check((peer.int(), peer.int(), peer.text()), (0, OUT, b"ready\n"), "a trap")
                peer.send(ints(tag), flags)
                check(peer.converse(), expected, f"the end by {tag} with flags {flags}")
    for ignored in (0, 5, 7, -1, NO_CODE, 0x7FFFFFFF):
        with Session(request("cat")) as peer:
            check(peer.int(), 0, "cat")
            peer.send(ints(ignored), socket.MSG_OOB)
            peer.say(data(IN, b"on"))
            check((peer.int(), peer.text()), (OUT, b"on"), f"serving goes on after {ignored} out of band")
            peer.send(ints(KILL), socket.MSG_OOB)
            check(peer.converse(), (b"", b"", 137), f"terminated after {ignored} out of band")
    os.mkfifo(folder / "fifo")
    for command, late in ((f"cat {folder}/fifo & exit 3", b"late"), ("sleep 1000 & exit 3", b"")):
        with Session(request(command, "", 1)) as peer:
            check((peer.int(), peer.int(), peer.int()), (0, CODE, 3), "an end with output held by the background")
            if late:
                (folder / "fifo").write_bytes(late)
                check((peer.int(), peer.text()), (OUT, late), "output after the end")
            else:
                peer.say(ints(KILL))
            check(peer.int(), DONE, f"the end behind {command!r}")
            peer.say(ints(DONE))
    for order in ("terminate", "close"):
        with Session(request("sleep 1000"), 1) as peer:
            check(peer.int(), 0, "sleep")
            server.say(order)
            if order == "terminate":
                check(peer.converse(), (b"", b"", 137), "terminated by the server")


PUMP = """import os, signal
signal.signal(signal.SIGINT, lambda *_: os.write(2, b"caught"))
while block := os.read(0, 65536):
    while block: block = block[os.write(1, block):]
"""


def pressure():
    before = peak(server.process.pid)
    with Session(request("sleep 1000")) as peer:  # takes nothing
        check(peer.int(), 0, "sleep")
        for _ in range(1024):
            if select.select([peer], [], [], 0)[0]:
                break
            peer.say(data(IN, bytes(MIB // 16)))
        check(peer.int(), HOLD_IN, "under pressure")
        peer.say(data(IN, bytes(8 * MIB)) + ints(KILL))  # as one that does not know what that means
        check(peer.converse({GO_ON_IN}), (b"", b"", 137), "terminated under pressure")
    with Session(request('sh -c "echo $$; exec cat /dev/zero"')) as peer:  # nobody takes anything, and one goes
        check((peer.int(), peer.int()), (0, OUT), "a flood")
        pids = [int(peer.text().split(b"\n")[0])]
        peer.settimeout(0.5)
        try:
            peer.say(data(IN, bytes(200 * MIB)))
            check("all was taken", "no more room", "a flood without a reader")
        except TimeoutError:
            peer.leave("close")
    check_ends(pids, "a flood without a reader")
    (folder / "pump.py").write_text(PUMP)
    block, count = os.urandom(MIB), 16 if SANITIZED else 64
    with Session(request(f"{sys.executable} {folder}/pump.py")) as peer:
        sent = data(IN, block) * (count // 2) + ints(BREAK) + data(IN, block) * (count // 2) + ints(END)
        peer.say(data(IN, b"x"))  # what comes back tells that it is ready for a signal
        check((peer.int(), peer.int(), peer.text()), (0, OUT, b"x"), "a pump")
        feeding = threading.Thread(target=peer.say, args=[sent])
        feeding.start()
        output, errors, code = peer.converse({HOLD_IN, GO_ON_IN})
        feeding.join()
        check((output == block * count, errors, code), (True, b"caught", 0), "both ways at once")
    check_peak(server.process.pid, before, "floods")


# A server here -----------------------------------------------------------------------------------------------


class Client:
    """rsh_driver with one command, and the connection at this end."""

    def __init__(self, *words, channels="pipes", stdin=subprocess.DEVNULL):
        self.control, theirs = socket.socketpair()
        self.control.settimeout(PATIENCE)
        words = words or ("a command", "/a directory", 1)
        self.process = subprocess.Popen([PROGRAM, "run", port_here, *map(str, words), channels, str(theirs.fileno())],
                                        stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        pass_fds=[theirs.fileno()])  # fmt: skip
        theirs.close()
        self.peer = Peer(listener.accept()[0])
        check(self.peer.take(len(request(*words))), request(*words), "the request")

    def say(self, line):
        self.control.sendall(line.encode() + b"\n")

    def end(self):
        """What it says of the command and its end, and what came out of its channels."""
        try:
            self.say("wait")
            self.control.shutdown(socket.SHUT_WR)
        except BrokenPipeError:  # it has ended: the launch was refused
            pass
        output, errors = self.process.communicate(timeout=PATIENCE)
        check(self.process.returncode, 0, "the exit code of a client")
        reports = Peer.rest(self.control)
        self.control.close()
        return reports.decode().replace("\n", " ").strip(), output, errors


def answered(script, channels="pipes", piece=MIB):
    """What a client makes of the bytes of a server that goes behind them."""
    client = Client(channels=channels)
    client.peer.say(script[:4], piece)
    if script[:4] == ints(0):
        check(client.peer.int(), END, "the end of an empty input")
    try:
        client.peer.say(script[4:], piece)
        client.peer.hang_up()
    except (BrokenPipeError, ConnectionResetError):  # it did not like the beginning
        pass
    result = client.end()
    told = client.peer.leave("half")
    return *result, b"".join(word for n in range(0, len(told), 4) if (word := told[n : n + 4]) not in PRESSURE)


def answers():
    big = os.urandom(2 * MIB)
    ending, failed = ints(CODE, 7, DONE), "refused 4 0 Remote process launching error"
    odd = ints(0, 1, 4, 5, 8, 9, 10, 99, -5, NO_CODE, 0x7FFFFFFF, HOLD_OUT, GO_ON_OUT)
    for script, report, output, errors in (
        (ints(10, 3) + text(b"No such file"), "refused 4 3 No such file", b"", b""),
        (ints(1, 0) + text(b"no pipes"), failed, b"", b""),
        (ints(-1, 11) + text(b"a\0b"), "refused 4 11 a", b"", b""),
        (ints(10, 3, -1), "refused 3 0 Protocol mismatch", b"", b""),
        (ints(6, 9), failed, b"", b""),
        (ints(0) + ending, "started exit 7", b"", b""),
        (ints(0, DONE), f"started exit {NO_CODE}", b"", b""),
        (ints(0, CODE, -1, DONE), "started exit -1", b"", b""),
        (ints(0) + data(OUT, b"a\0b") + ints(OUT, 0, ERR, 0) + data(ERR, b"c") + ending, "started exit 7", b"a\0b", b"c"),
        (ints(0) + odd + data(OUT, b"in step") + odd + ending, "started exit 7", b"in step", b""),
        (ints(0) + data(OUT, big) + data(ERR, big[::-1]) + ending, "started exit 7", big, big[::-1]),
        (ints(0) + data(OUT, b"a") + ints(OUT, -1) + ending + ints(0), f"started exit {NO_CODE}", b"a", b""),
        (ints(0) + data(ERR, b"a") + ints(ERR, NO_CODE) + ending + ints(0), f"started exit {NO_CODE}", b"", b"a"),
        (ints(0, OUT, 0x7FFFFFFF) + big, f"started exit {NO_CODE}", big, b""),
    ):
        for channels in ("pipes", "streams"):
            for piece in (1, MIB) if len(script) < MIB else (MIB,):
                acknowledgement = ints(DONE) if script.endswith(ints(DONE)) else b""
                saw = answered(script, channels, piece)
                check(saw, (report, output, errors, acknowledgement), f"the answer {script!r:.100} through {channels}")
    hostile = answered(ints(10, 3, 0x7FFFFFFF) + big)[0]
    check(hostile.startswith("refused"), True, f"{hostile} for an endless text")
    script = ints(0) + data(OUT, b"hello") + data(ERR, b"err") + ending
    for count in range(0, len(script), 5 if SANITIZED else 1):
        report, output, errors, rest = answered(script[:count])
        started = f"started exit {NO_CODE}"  # output that breaks off must not look like all of it
        check((report, rest), (started if count >= 4 else failed, b""), f"a server that goes after {count} bytes")
        whole = output == b"hello" or count < 17, errors == b"err" or count < 28
        parts = b"hello".startswith(output), b"err".startswith(errors)
        check(whole + parts, (True,) * 4, f"{output!r} and {errors!r} after {count} bytes")


def clients():
    for words in (("", "", 0), ("x" * 100_000, "\xfc b", 1), ('quotes " and \\', ".", 0)):
        client = Client(*words, stdin=subprocess.PIPE)
        client.process.stdin.write(b"input" * 1000)
        client.process.stdin.close()
        client.process.stdin = None
        client.peer.say(ints(0))
        received = b""
        while (tag := client.peer.int()) == IN:
            received += client.peer.text()
        check((tag, received), (END, b"input" * 1000), "what a client sends")
        client.say("interrupt")
        check(client.peer.int(), BREAK, "an interrupt")
        client.say("terminate")
        check(client.peer.int(), KILL, "a termination")
        client.peer.say(ints(CODE, 137, DONE))
        check((client.peer.int(), client.end()), (DONE, ("started exit 137", b"", b"")), "a client")
        client.peer.close()
    client = Client(channels="streams", stdin=subprocess.PIPE)
    client.peer.say(ints(0))
    client.say("close")
    check(client.peer.rest(), b"", "a client that gives up")
    client.control.shutdown(socket.SHUT_WR)
    check(client.process.communicate(timeout=PATIENCE), (b"", b""), "a client that gives up")
    client.peer.close()


def client_pressure():
    """Output that nobody takes and endless input at once; hold and go on in both directions."""
    client = Client(stdin=open("/dev/zero"))
    peer, block = client.peer, bytes(MIB // 16)
    before = peak(client.process.pid)

    def until(wanted):
        while (tag := peer.int()) == IN:
            peer.text()
        check(tag, wanted, "a message among endless input")

    sending = threading.Thread(target=peer.say, args=[ints(0) + data(OUT, block) * 512])
    sending.start()
    until(HOLD_OUT)
    client.say("interrupt")
    until(BREAK)
    received = []
    taking = threading.Thread(target=lambda: received.append(client.process.stdout.read()))
    taking.start()
    until(GO_ON_OUT)
    sending.join()
    peer.say(ints(HOLD_IN) + data(ERR, b"mark"))
    reading = threading.Thread(target=client.process.stderr.read, args=[4])
    reading.start()
    while reading.is_alive():
        if select.select([peer], [], [], 0.01)[0]:
            check((peer.int(), peer.text() != b""), (IN, True), "what was under way")
    client.say("terminate")
    until(KILL)
    check(select.select([peer], [], [], 0)[0], [], "input that is held")
    peer.say(ints(GO_ON_IN))
    check((peer.int(), peer.text() != b""), (IN, True), "input that goes on")
    check_peak(client.process.pid, before, "a client under pressure")
    peer.say(ints(CODE, 5, DONE))
    until(DONE)
    taking.join()
    check((len(received[0]), client.end()[0]), (512 * len(block), "started exit 5"), "a client under pressure")
    peer.close()


def many():
    """Commands in a row and side by side leave nothing open, here against ours and among ours."""

    def serve():
        for _ in range(1 + COUNT):
            with Peer(listener.accept()[0]) as peer:
                peer.text(), peer.text(), peer.int()
                peer.say(ints(0) + data(OUT, b"ok") + ints(CODE, 0, DONE))
                check(peer.rest().endswith(ints(DONE)), True, "an acknowledgement")

    threading.Thread(target=serve, daemon=True).start()
    for port, count in ((port_here, COUNT), (str(ports[0]), COUNT), (str(ports[1]), 80)):
        client = Program("repeat", port)
        client.say("1 1 wait true")
        check(client.line(), "1 times 0", "a first command")
        held = client.holds()
        client.say(f"1 {count} wait true")
        check(client.line(), f"{count} times 0", "commands in a row")
        if port != port_here:
            for action, outcome in (("terminate", "137"), ("interrupt", "130"), ("close", "closed")):
                client.say(f"8 10 {action} cat")
                check(client.line(), f"80 times {outcome}", f"{action} of commands side by side")
            for _ in range(1 + count + 240):
                server.line()
        client.check_holds(held, "of a client of many")
        client.process.stdin.close()
        check(client.process.wait(PATIENCE), 0, "the exit code of a client of many")


(folder / "below").mkdir()
COUNT = 80 if SANITIZED else 1000
listener = socket.create_server(("127.0.0.1", 0), backlog=64)
listener.settimeout(PATIENCE)
port_here = str(listener.getsockname()[1])
server = Program("serve", str(folder))
ports = [int(port) for port in server.line().split()]
for port in (0, 1):
    asked("true", port=port)
held = server.holds()
for part in (commands, refusals, vanishing, controls, pressure, answers, clients, client_pressure, many):
    part()
    server.check_holds(held, f"after {part.__name__}")
with Session(request("sleep 1000"), outcome="served") as peer:
    check(peer.int(), 0, "sleep")
    server.process.stdin.close()
    check(peer.converse(), (b"", b"", 137), "a command of a server that stops")
check((server.line(), server.process.wait(PATIENCE)), ("over", 0), "the end")
sys.exit(failures != 0)
