"""kel mon beside a peer that knows nothing but the format of monitor files: files that are made here at random, whole,
cut short and spoiled, must be told as what they are, and files that kel makes must hold the bytes that are made here."""

import json
import math
import os
import random
import re
import struct

from driving import IS_SANITIZED, KelCase, exact, run

KINDS = ("bool", "int", "real", "string")
BOOL, INT, REAL, STRING = range(4)
NIL_INT = -2**31
NIL = {BOOL: (0x80, 0x81), INT: (NIL_INT, NIL_INT + 1)}  # and uninit, which are shown alike
SIZES = [0, 1, 8, 100, 505, 508, 509, 4092, 5000, 70000]


def packed_text(text):
    return struct.pack(">i", len(text)) + text


def slot(kind, value, size=0):
    if kind == STRING:
        return packed_text(value).ljust(size + 4, b"\0")
    return struct.pack(">d" if kind == REAL else ">i", value)


def head(kind, name, size):
    return struct.pack(">ii", kind, 0) + packed_text(name) + struct.pack(">i", size) * (kind == STRING)


def record(kind, name, value, size=0):
    return head(kind, name, size) + slot(kind, value, size)


def header(title):
    return bytes(4) + packed_text(title)


class More(Exception):
    """The data end within a record."""


def read(data):
    """The title, the parameters in order, and whether all is well; None is no monitor file."""
    at = 0

    def take(count):
        nonlocal at
        if at + count > len(data):
            raise More
        at += count
        return data[at - count:at]

    def integer():
        return struct.unpack(">i", take(4))[0]

    try:
        if integer() > 0 or (length := integer()) < 0:
            return None
        title = take(length).split(b"\0")[0]
    except More:
        return None
    found, before, is_well = {}, None, True
    try:
        while at < len(data):
            kind = integer()
            if kind not in range(4):
                return title, found, False
            integer()
            length = integer()
            if not 0 <= length <= 1023:
                return title, found, False
            name = take(length).split(b"\0")[0]
            size = integer() if kind == STRING else 0
            if not 0 <= size <= 0x7FFFFFFF - 4:
                return title, found, False
            raw = take((4, 4, 8, 4 + size)[kind])
            if name == before == b"":  # zeros without end would read so
                return title, found, False
            if kind == REAL:
                value = struct.unpack(">d", raw)[0]
                value = value if math.isfinite(value) else str(value)
            else:
                value = raw[3] if kind == BOOL else struct.unpack(">i", raw[:4])[0]
            if kind == STRING:
                is_fitting = 0 <= value <= size
                value = raw[4:4 + value].split(b"\0")[0] if is_fitting else None
                is_well = is_well and is_fitting
            elif value in NIL.get(kind, ()):
                value = None
            elif kind == BOOL:
                value = value != 0
            before = name
            found.pop(name, None)  # the later one counts, at its own place
            found[name] = name, KINDS[kind], value, size
    except More:
        pass
    return title, found, is_well


def some_parameter(chance):
    kind = chance.randrange(4)
    length = chance.choice([0, 1, 3, 8, 40, 1023]) if chance.random() < 0.3 else chance.randrange(1, 12)
    size = chance.choice(SIZES) if kind == STRING else 0
    return kind, bytes(chance.randrange(1, 256) for _ in range(length)), size


def some_value(chance, kind, size):
    if kind == BOOL:
        return chance.randrange(2)
    if kind == INT:
        return chance.choice([0, 1, -1, 255, 256, NIL_INT, 0x7FFFFFFF, chance.randrange(-2**31, 2**31)])
    if kind == REAL:
        return chance.choice([0.0, -0.0, 1e-310, math.inf, math.nan, chance.gauss(0, 1e9)])
    length = chance.choice([0, size, chance.randrange(size + 1)])
    return bytes(chance.randrange(1, 256) for _ in range(min(length, 50))) + b"t" * (length - 50)


def spoiled(chance, data):
    data = bytearray(data)
    for _ in range(chance.randrange(1, 4)):
        at = chance.randrange(len(data))
        if chance.random() < 0.5:
            data[at] = chance.choice([0, 1, 3, 4, 127, 128, 255])
        else:
            data[at:at + 4] = struct.pack(">i", chance.choice([0, 1, 2, 3, 4, 1023, 1024, -1, 0x7FFFFFFF, 0x7FFFFFFB]))
    return bytes(data)


class Monitor(KelCase):
    # Type, name, value in the file and as shown; the last of them has a slot of 8 bytes.
    PARAMETERS = [(BOOL, b"on", 1, True, "true"), (INT, b"count", -7, -7, "-7"), (INT, b"nil", NIL_INT, None, "nil"),
                  (REAL, b"load", 0.1, 0.1, "0.1"), (REAL, b"nan", math.nan, "nan", "nan"),
                  (STRING, b"odd\n\xfe", b"t\xc3\xbc\xff", "t\u00fc\ufffd", "t\u00fc\\xFF")]
    FILE = header(b"Status \xff") + b"".join(record(*parameter[:3], 8) for parameter in PARAMETERS)

    def setUp(self):
        super().setUp()
        self.file = self.here / "m"
        self.file.write_bytes(self.FILE)

    def test_random_files(self):
        chance = random.Random(20)
        for _ in range(60 if IS_SANITIZED else 200):
            data = header(b"Title" * chance.randrange(3))
            for _ in range(chance.randrange(30)):
                kind, name, size = some_parameter(chance)
                data += record(kind, name, some_value(chance, kind, size), size)
            if chance.random() < 0.3:
                data = data[:chance.randrange(len(data) + 1)]
            elif chance.random() < 0.5:
                data = spoiled(chance, data)
            self.file.write_bytes(data)
            expected = read(data)
            shown = self.run_kel("mon", "show", "m", "--json", code=int(not expected or not expected[2]))
            if not expected:
                self.assertEqual(shown, b"")
                continue
            document = json.loads(shown.decode())
            found = [(exact(p, "name"), p["type"], p["value"] if p["value"] is None or "size" not in p else exact(p, "value"),
                      p.get("size", 0)) for p in document["parameters"]]
            self.assertEqual((exact(document, "title"), found), (expected[0], list(expected[1].values())), data[:400].hex())

    def test_random_writes(self):
        chance = random.Random(21)
        for title in (b"Status", b""):
            self.file.unlink()
            data, known = bytearray(header(title)), {}
            for _ in range(15 if IS_SANITIZED else 60):
                kind, name, size = some_parameter(chance)
                if known and chance.random() < 0.5:
                    name = chance.choice(list(known))
                    if chance.random() < 0.9:
                        kind, size, _ = known[name]
                is_other = name in known and known[name][0] != kind
                if name not in known:
                    data += head(kind, name, size)
                    known[name] = kind, size, len(data)
                    data += slot(kind, b"" if kind == STRING else 0, size)
                value = some_value(chance, kind, known[name][1])
                told = ("false", "true")[value] if kind == BOOL else value if kind == STRING else repr(value)
                self.run_kel("mon", "set", "--type", KINDS[kind], "--size", str(size), "--title", title, "--", "m", name, told,
                             code=int(is_other))
                if not is_other:  # a text leaves what stands behind it
                    bare = packed_text(value) if kind == STRING else slot(kind, value)
                    data[known[name][2]:known[name][2] + len(bare)] = bare
                self.assertEqual(self.file.read_bytes(), data, (kind, name, size, value))

    def test_what_people_read(self):
        names = ["on", "count", "nil", "load", "nan", r"odd\n\xFE"]
        self.assertEqual(self.run_kel("mon", "show", "m").decode().split("\n")[2:],
                         ["NAME       TYPE    VALUE",
                          *(f"{name:9}  {KINDS[p[0]]:6}  {p[4]}" for name, p in zip(names, self.PARAMETERS)), ""])
        text = self.run_kel("mon", "watch", "m", "--interval", "0.05", "--count", "3").decode()
        self.assertEqual(len(re.findall(r"^count +int +-7 ", text, re.M)), 3)
        self.assertNotIn("\033", text)

    def test_failures(self):
        (self.here / "plain").write_bytes(b"a:1\n")
        os.mkfifo(self.here / "pipe")
        for line, complaint in [("m none 1", "no such parameter"), ("m on 2", "neither true nor false"),
                                ("m count 2147483648", "no whole number"), ("m count 1x", "no whole number"),
                                ("m load x", "no number"), ("m new 123456 --size 5 --type string", "longer than 5 bytes"),
                                ("m load 1 --type int", "is a real"), ("plain a 1", "not a monitor file"),
                                ("none a 1 --type int", "(--title makes it): none"),
                                ("none a x --type int --title T", "no whole number"), ("pipe a 1", ""), (". a 1", "")]:
            self.run_kel("mon", "set", *line.split(), code=1)
            self.assertIn(complaint, self.complaint)
        for none in ("pipe", ".", "missing", "plain"):
            self.run_kel("mon", "show", none, code=1)
        self.assertFalse((self.here / "none").exists())
        self.assertEqual(self.file.read_bytes(), self.FILE)


run()
