"""tools/wireshark/kelstdmt.lua: real programs talk through a proxy that records, and tshark tells what they said; then
the same with bytes that no program sends."""

import os
import pathlib
import random
import re
import shutil
import socket
import struct
import subprocess
import sys
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tools"))
from driving import KEL, KelCase, run  # noqa: E402

if not shutil.which("tshark"):
    print("skipped: there is no tshark")
    sys.exit(77)
SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "tools/wireshark/kelstdmt.lua"
AS_ROOT = ["--allow-root"] * (os.geteuid() == 0)
NAMES = 1239


class Capture:
    """A file of TCP segments between a client and a server, without Ethernet (link type 101)."""

    def __init__(self):
        self.packets, self.next, self.guard = [], {}, threading.Lock()

    def add(self, client, server, of_client, payload, cut=0):
        with self.guard:
            for at in range(0, len(payload), 700):
                self.segment(client, server, of_client, payload[at:at + 700], cut)

    def segment(self, client, server, of_client, piece, cut):
        source, target = (client, server) if of_client else (server, client)
        sequence = self.next.setdefault((client, server, of_client), 1)
        back = self.next.setdefault((client, server, not of_client), 1)
        self.next[client, server, of_client] += len(piece)
        tcp = struct.pack(">HHIIBBHHH", source, target, sequence, back, 5 << 4, 0x18, 65535, 0, 0)
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 40 + len(piece), 0, 0, 64, 6, 0, b"\x7f\0\0\1", b"\x7f\0\0\1")
        whole = ip + tcp + piece
        kept = whole[:len(whole) - cut]
        self.packets.append(struct.pack("<IIII", len(self.packets), 0, len(kept), len(whole)) + kept)

    def write(self, path):
        path.write_bytes(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101) + b"".join(self.packets))


class Proxy:
    """Stands for a server; the capture has the port `shown` for it."""

    def __init__(self, case, capture, target, shown=None):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.capture, self.target, self.shown = capture, target, shown or self.port
        self.running, self.sockets = [], []
        case.addCleanup(self.listener.close)
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                client, (_, port) = self.listener.accept()
            except OSError:
                return
            server = socket.create_connection(("127.0.0.1", self.target))
            for of_client, source, sink in ((True, client, server), (False, server, client)):
                pump = threading.Thread(target=self.pump, args=(port, of_client, source, sink), daemon=True)
                self.running.append(pump)
                pump.start()
            self.sockets += [client, server]

    def pump(self, port, of_client, source, sink):
        try:
            while piece := source.recv(65536):
                self.capture.add(port, self.shown, of_client, piece)
                sink.sendall(piece)
            sink.shutdown(socket.SHUT_WR)
        except OSError:
            pass

    def wait(self):
        for pump in self.running:
            pump.join(60)
        for each in self.sockets:
            each.close()


class Wire(KelCase):
    def tshark(self, capture, *options):
        capture.write(self.here / "capture.pcap")
        done = subprocess.run(["tshark", "-n", "-r", "capture.pcap", "-X", f"lua_script:{SCRIPT}", *options],
                              capture_output=True, text=True, cwd=self.here, timeout=250, errors="replace",
                              env=dict(self.environment, HOME=str(self.here)))
        self.assertEqual(re.findall(r".*(?:Lua Error|\.lua:\d+).*", done.stdout + done.stderr)[:3], [])
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def fields(self, capture, proto, *names, passes=()):
        options = [option for name in names for option in ("-e", f"{proto}.{name}")]
        told = self.tshark(capture, *passes, "-Y", proto, "-T", "fields", "-E", "aggregator=,", *options)
        return [tuple(line.split("\t")) for line in told.splitlines()]

    def record(self):
        """What a user's commands say to a name server and a remote shell: the capture, and the shell's port in it."""
        capture = Capture()
        self.name_server()
        server = self.daemon("KELRSHD", *AS_ROOT, stderr=subprocess.DEVNULL)
        self.assertTrue(server.is_ready)
        found = self.json_of("nms", "query", "_ServerName=kelrshd")["records"][0]["fields"]
        shell = Proxy(self, capture, next(int(f["value"]) for f in found if f["name"] == "_PortNumber"))
        # The users' name server knows the recorder in place of the server.
        self.name_server()
        names = Proxy(self, capture, int(self.environment["ORVNMSPORT"]), NAMES)
        self.environment["ORVNMSPORT"] = str(names.port)
        self.run_kel("nms", "register", "_ServerName=kelrshd", f"_PortNumber={shell.port}")
        for number in range(40):
            self.run_kel("nms", "register", f"number={number:03}", "kind=many", "text=" + "x" * 60)
        self.assertEqual(len(self.json_of("nms", "query", "kind=many")["records"]), 40)
        self.run_kel("nms", "delete", "kind=many", "number=007")
        self.run_kel("nms", "ping")
        self.environment["SHELL"] = "/bin/sh"
        done = subprocess.run([KEL, "rsh", "localhost", "--", "sh", "-c", "cat; seq 2000; exit 3"], input=b"hi\n",
                              capture_output=True, env=self.environment, timeout=120)
        self.assertEqual(done.returncode, 3, done.stderr)
        names.wait()
        shell.wait()
        return capture, shell.port

    def test_what_programs_say_is_shown(self):
        capture, port = self.record()
        for passes in [], ["-2"]:
            told = self.fields(capture, "kelnms", "request", "status", "records", "deleted", "name", "value", passes=passes)
            requests = [line[0] for line in told if line[0]]
            self.assertEqual(requests[:41], ["3"] * 41)
            pairs = zip(told[0][4].split(","), told[0][5].split(","))
            self.assertEqual(dict(pairs), {"_ServerName": "kelrshd", "_PortNumber": str(port)})
            self.assertEqual(told[1][1], "0")
            many = next(line for line in told if line[2] == "40")
            self.assertEqual(sorted(many[5].split(","))[:40], [f"{number:03}" for number in range(40)])
            self.assertEqual([line[3] for line in told if line[3]], ["1"])
            told = self.fields(capture, "kelrsh", "handshake", "grant", "command", "answer", "tag", "exit_code", "data",
                               passes=passes)
            self.assertEqual(told[0][0], "0")
            self.assertEqual(told[1][1], "1")
            self.assertIn("seq 2000", "".join(line[2] for line in told))
            self.assertIn("0", [line[3] for line in told])
            tags = [int(tag) for line in told for tag in line[4].split(",") if tag]
            self.assertEqual(sorted(set(tags) - {3}), [4, 5, 6, 7])
            self.assertEqual(tags.count(7), 2)
            self.assertEqual([line[5] for line in told if line[5]], ["3"])
            data = bytes.fromhex("".join(line[6].replace(",", "").replace(":", "") for line in told))
            self.assertIn(b"1999\n2000\n", data)
        self.assertNotIn("alformed", self.tshark(capture, "-V"))

    def test_no_bytes_break_it(self):
        chance, capture = random.Random(9), Capture()
        text = lambda content: struct.pack(">i", len(content)) + content  # noqa: E731
        record = struct.pack(">iiii", 0, 1, 4, 3) + b"abc" + struct.pack(">ii", 4, 3) + b"def"
        names = [(struct.pack(">iB", 100, 5) + record, struct.pack(">bi", 0, 2) + record * 2),
                 (struct.pack(">iB", 100, 4) + record, struct.pack(">bi", 0, 2)), (struct.pack(">iB", 100, 7), b"\0" + record)]
        shells = [(b"\0" + text(b"ls") + text(b"") + struct.pack(">iii4sii", 1, 4, 4, b"data", 5, 7),
                   b"\1" + struct.pack(">iii5siii", 0, 3, 5, b"hello", 6, 0, 7)),
                  (text(b"ls") + text(b"/") + b"\0\0\0\0", struct.pack(">ii", 10, 7) + text(b"no")), (b"\2", b"\1\5abcd\0")]
        odd = [struct.pack(">i", number) for number in (-1, -2**31, 2**31 - 1, 2**24, 257, 0, 100, 2)]
        # A name server tells the port, so that any bytes to and from it are a remote shell's.
        told = struct.pack(">iiii", 0, 2, 12, 11) + b"_ServerName" + struct.pack(">ii", 8, 7) + b"kelrshd" + struct.pack(
            ">ii", 12, 11) + b"_PortNumber" + struct.pack(">ii", 5, 4) + b"4711"
        capture.add(999, NAMES, True, struct.pack(">iB", 100, 3) + told)
        for number in range(400):
            port, (asked, answered) = (NAMES, chance.choice(names)) if number % 2 else (4711, chance.choice(shells))
            sides = [bytearray(asked), bytearray(answered)]
            for _ in range(chance.randint(0, 3)):
                side = chance.choice(sides)
                at = chance.randrange(len(side) or 1)
                side[at:at + chance.choice([0, 1, 4])] = chance.choice(odd + [b"", b"\xff"])
            for of_client, side in ((True, sides[0]), (False, sides[1])):
                split = chance.randint(0, len(side))
                for piece in (side[:split], side[split:]):
                    capture.add(2000 + number, port, of_client, bytes(piece), chance.choice([0, 0, 0, min(3, len(piece))]))
        shown = self.tshark(capture, "-V")
        for words in "cut off", "broken: a length of", "broken: a record of":
            self.assertIn(words, shown)
        self.assertEqual(self.tshark(capture, "-2").count("\n"), len(capture.packets))


run()
