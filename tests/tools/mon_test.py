# kel mon beside a peer that knows nothing but the format of monitor files: what kel writes must be the bytes that are
# made here, and it must tell files of those bytes, whole and cut short, as what they are. Spoiled files are left to a
# fuzz target.

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
SIZES = [0, 1, 8, 100, 505, 508, 509, 4092, 5000, 70000]
VALUES = {BOOL: [0, 1], INT: [0, -1, 256, NIL_INT, 0x7FFFFFFF], REAL: [0.0, -0.0, 1e-310, math.inf, math.nan, -1.5e9]}


def packed_text(text):
    return struct.pack(">i", len(text)) + text


def packed(kind, value):
    if kind == STRING:
        return packed_text(value)
    return struct.pack(">d" if kind == REAL else ">i", value)


def shown(kind, value):
    # As JSON has it; a text is compared by its bytes.
    if kind == REAL:
        return value if math.isfinite(value) else str(value)
    return None if kind == INT and value == NIL_INT else value


class Monitor(KelCase):
    def set(self, kind, name, value, *more, code=0):
        self.run_kel("mon", "set", "--type", KINDS[kind], *more, "--", "m", name, value, code=code)

    def tells(self, title, parameters):
        document = json.loads(self.run_kel("mon", "show", "m", "--json").decode())
        found = [(KINDS.index(p["type"]), exact(p, "name"), exact(p, "value") if "size" in p else p["value"],
                  p.get("size", 0)) for p in document["parameters"]]
        self.assertEqual((exact(document, "title"), found), (title, parameters))

    def test_random_files(self):
        chance, file = random.Random(21), self.here / "m"
        for title in (b"Status", b""):
            file.unlink(missing_ok=True)
            data, known, ends = bytearray(4) + packed_text(title), {}, []
            for _ in range(15 if IS_SANITIZED else 60):
                kind, size = chance.randrange(4), chance.choice(SIZES)
                name = chance.randbytes(chance.choice([0, 1, 3, 8, 40, 1023])).replace(b"\0", b"0")
                if known and chance.random() < 0.5:
                    name = chance.choice(list(known))
                    if chance.random() < 0.9:
                        kind, size, *_ = known[name]
                size *= kind == STRING
                if name not in known:
                    data += struct.pack(">ii", kind, 0) + packed_text(name) + struct.pack(">i", size) * (kind == STRING)
                    known[name] = kind, size, len(data), None
                    data += packed(kind, b"" if kind == STRING else 0).ljust(size + 4, b"\0")
                    ends.append(len(data))
                known_kind, known_size, at, _ = known[name]
                text = (b"t\xc3\xbc\n\xff" * known_size)[:chance.choice([0, known_size, known_size // 2])]
                value = text if kind == STRING else chance.choice(VALUES[kind])
                told = ("false", "true")[value] if kind == BOOL else value if kind == STRING else repr(value)
                self.set(kind, name, told, "--size", str(size), "--title", title, code=int(kind != known_kind))
                if kind == known_kind:  # a text leaves what stands behind it
                    data[at:at + len(packed(kind, value))] = packed(kind, value)
                    known[name] = kind, known_size, at, shown(kind, value)
                self.assertEqual(file.read_bytes(), data, (kind, name, size, value))
            parameters = [(kind, name, value, size) for name, (kind, size, _, value) in known.items()]
            self.tells(title, parameters)
            for count, end in enumerate(ends):
                file.write_bytes(data[:end - 1])
                self.tells(title, parameters[:count])

    def test_texts_and_failures(self):
        for kind, name, value in ((BOOL, "on", "true"), (INT, "count", "-7"), (INT, "nil", str(NIL_INT)),
                                  (REAL, "load", "0.1"), (STRING, b"odd\n\xfe", b"t\xc3\xbc\xff")):
            self.set(kind, name, value, "--title", "Status")
        self.assertEqual(self.run_kel("mon", "show", "m").decode().split("\n")[2:], [
            "NAME       TYPE    VALUE", "on         bool    true", "count      int     -7", "nil        int     nil",
            "load       real    0.1", r"odd\n\xFE  string  tü\xFF", ""])
        text = self.run_kel("mon", "watch", "m", "--interval", "0.05", "--count", "3").decode()
        self.assertEqual((len(re.findall(r"^count +int +-7 ", text, re.M)), text.count("\033")), (3, 0))
        (self.here / "plain").write_bytes(b"a:1\n")
        os.mkfifo(self.here / "pipe")
        for line, complaint in [("m none 1", "no such parameter"), ("m on 2", "neither true nor false"),
                                ("m count 2147483648", "no whole number"), ("m load x", "no number"),
                                ("m new 123456 --size 5 --type string", "longer than 5 bytes"),
                                ("plain a 1", "not a monitor file"), ("pipe a 1", ""),
                                ("none a 1 --type int", "(--title makes it): none")]:
            before = (self.here / "m").read_bytes()
            self.run_kel("mon", "set", *line.split(), code=1)
            self.assertIn(complaint, self.complaint)
            self.assertEqual((self.here / "m").read_bytes(), before)


run()
