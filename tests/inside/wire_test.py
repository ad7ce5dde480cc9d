"""tools/wireshark/kelstdmt.lua: tshark tells what a client and a server of each protocol said in pieces; then the same with
bytes that no program sends."""

import os
import pathlib
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

if not shutil.which("tshark"):
    print("skipped: there is no tshark")
    sys.exit(77)
SCRIPT = os.path.abspath(sys.argv.pop())
NAMES, SHELL = 1239, 4711


def ints(*numbers):
    return struct.pack(f">{len(numbers)}i", *numbers)


def text(content):
    return ints(len(content)) + content


def record(**fields):
    pairs = [each.encode() for field in fields.items() for each in field]
    return ints(0, len(fields)) + b"".join(ints(len(each) + 1) + text(each) for each in pairs)


# What a client says and is answered. The first question tells the port of the shell.
REGISTERED = {"_ServerName": "kelrshd", "_PortNumber": str(SHELL)}
TO_NAMES = [(ints(100) + b"\3" + record(**REGISTERED), b"\0"), (ints(100) + b"\1", b"\0"),
            (ints(100) + b"\5" + record(kind="many"),
             b"\0" + ints(40) + b"".join(record(number=f"{number:03}", text="x" * 60) for number in range(40))),
            (ints(100) + b"\4" + record(kind="many"), b"\0" + ints(1)), (ints(100) + b"\7", b"\0" + record(release="1"))]
TO_SHELL = [(b"\0", b"\1"), (text(b"ls -l") + text(b"/") + ints(0, 4) + text(b"hi\n") + ints(5, 7),
                             ints(0, 3) + text(b"12345678" * 500) + ints(6, 3, 7))]
OTHERS = [(text(b"ls") + text(b"/") + ints(0), ints(10, 7) + text(b"no")), (b"\2", b"\1\5abcd\0")]


class Capture:
    """A file of TCP segments between a client and a server, without Ethernet (link type 101)."""

    def __init__(self):
        self.packets, self.next = [], {}

    def add(self, client, server, of_client, payload, cut=0):
        for piece in (payload[at:at + 700] for at in range(0, len(payload), 700)):
            source, target = (client, server) if of_client else (server, client)
            sequence, back = (self.next.get((client, server, side), 1) for side in (of_client, not of_client))
            self.next[client, server, of_client] = sequence + len(piece)
            whole = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 40 + len(piece), 0, 0, 64, 6, 0, b"\x7f\0\0\1", b"\x7f\0\0\1")
            whole += struct.pack(">HHIIBBHHH", source, target, sequence, back, 5 << 4, 0x18, 65535, 0, 0) + piece
            kept = whole[:len(whole) - cut]
            self.packets.append(struct.pack("<IIII", len(self.packets), 0, len(kept), len(whole)) + kept)

    def tshark(self, case, *options):
        with tempfile.TemporaryDirectory() as here:
            head = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101)
            pathlib.Path(here, "capture.pcap").write_bytes(head + b"".join(self.packets))
            done = subprocess.run(["tshark", "-n", "-r", "capture.pcap", "-X", f"lua_script:{SCRIPT}", *options],
                                  capture_output=True, text=True, cwd=here, timeout=250, errors="replace",
                                  env=dict(os.environ, HOME=here))
        case.assertEqual(re.findall(r".*(?:Lua Error|\.lua:\d+).*", done.stdout + done.stderr)[:3], [])
        case.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout


class Wire(unittest.TestCase):
    def test_what_is_said_is_shown(self):
        capture = Capture()
        for port, talk in (NAMES, TO_NAMES), (SHELL, TO_SHELL):
            for asked, answered in talk:
                capture.add(999, port, True, asked)
                capture.add(999, port, False, answered)
        for passes in [], ["-2"]:
            shown = {}
            for proto, names in ("kelnms", "request status records deleted name value"), (
                    "kelrsh", "handshake grant command directory answer tag exit_code data"):
                options = [option for name in names.split() for option in ("-e", f"{proto}.{name}")]
                told = capture.tshark(self, *passes, "-Y", proto, "-T", "fields", "-E", "aggregator=,", *options)
                columns = zip(*(line.split("\t") for line in told.splitlines()))
                shown |= {name: ",".join(filter(None, column)) for name, column in zip(names.split(), columns)}
            self.assertEqual(shown["request"], "3,1,5,4,7")
            self.assertEqual((shown["status"], shown["records"], shown["deleted"]), ("0,0,0,0,0", "40", "1"))
            many = ",".join(f"{number:03}," + "x" * 60 for number in range(40))
            self.assertEqual(shown["value"], f"kelrshd,{SHELL},many,{many},many,1")
            self.assertEqual(shown["name"].replace("number,text", "?"), "_ServerName,_PortNumber,kind," + "?," * 40 + "kind,release")
            said = [shown[name] for name in ("handshake", "grant", "command", "directory", "answer", "tag", "exit_code")]
            self.assertEqual(said, ["0", "1", "ls -l", "/", "0", "4,5,7,3,6,7", "3"])
            data = bytes.fromhex(shown["data"].replace(",", "").replace(":", ""))
            self.assertEqual(data, b"hi\n" + b"12345678" * 500)
        self.assertNotIn("alformed", capture.tshark(self, "-V"))

    def test_no_bytes_break_it(self):
        chance, capture = random.Random(9), Capture()
        odd = [ints(number) for number in (-1, -2**31, 2**31 - 1, 2**24, 257, 0, 100, 2)] + [b"", b"\xff"]
        shells = [tuple(map(b"".join, zip(*TO_SHELL))), *OTHERS]
        capture.add(999, NAMES, True, TO_NAMES[0][0])
        for number in range(400):
            port, said = (NAMES, chance.choice(TO_NAMES)) if number % 2 else (SHELL, chance.choice(shells))
            sides = [bytearray(each) for each in said]
            for _ in range(chance.randint(0, 3)):
                side = chance.choice(sides)
                at = chance.randrange(len(side) or 1)
                side[at:at + chance.choice([0, 1, 4])] = chance.choice(odd)
            for of_client, side in zip((True, False), sides):
                split = chance.randint(0, len(side))
                for piece in (side[:split], side[split:]):
                    capture.add(2000 + number, port, of_client, bytes(piece), chance.choice([0, 0, 0, min(3, len(piece))]))
        shown = capture.tshark(self, "-V")
        for words in "cut off", "broken: a length of", "broken: a record of":
            self.assertIn(words, shown)
        self.assertEqual(capture.tshark(self, "-2").count("\n"), len(capture.packets))


unittest.main()
