#!/usr/bin/env python3
"""monitor_interop.py PROGRAM: monitor files read and written by a peer that knows nothing but their format.

This script makes files at random, whole, cut short and spoiled, and PROGRAM (monitor_driver) must tell what
stands in them; then PROGRAM makes files from random requests, and they must hold the bytes that this script
writes for the same requests, at every step.
"""
import pathlib
import random
import struct
import subprocess
import sys
import tempfile

BOOL, INT, REAL, STRING = range(4)
NIL_INT, NIL_REAL_BITS = -0x80000000, 0x5A17A2ECC414A040


def head(kind, name, size):
    data = struct.pack(">iii", kind, 0, len(name)) + name
    return data + (struct.pack(">i", size) if kind == STRING else b"")


def slot(kind, size, value):
    if kind == STRING:
        return struct.pack(">i", len(value)) + value + bytes(size - len(value))
    return struct.pack({BOOL: ">i", INT: ">i", REAL: ">d"}[kind], value)


def header(title):
    return struct.pack(">ii", 0, len(title)) + title


def tell(data):
    """What the driver prints about these bytes."""

    class More(Exception):
        pass

    at = 0

    def take(count):
        nonlocal at
        if at + count > len(data):
            raise More
        at += count
        return data[at - count : at]

    def int_():
        return struct.unpack(">i", take(4))[0]

    try:
        if int_() > 0 or (length := int_()) < 0:
            return ["none"]
        title = take(length).split(b"\0")[0]
    except More:
        return ["none"]
    found, state, before = {}, "whole", None
    try:
        while at < len(data):
            kind = int_()
            if kind not in range(4):
                state = "damaged"
                break
            int_()
            length = int_()
            if not 0 <= length <= 1023:
                state = "damaged"
                break
            name = take(length).split(b"\0")[0]
            size = int_() if kind == STRING else 0
            if not 0 <= size <= 0x7FFFFFFF - 4:
                state = "damaged"
                break
            raw = take({BOOL: 4, INT: 4, REAL: 8, STRING: 4 + size}[kind])
            if kind == STRING:
                (length,) = struct.unpack(">i", raw[:4])
                value = "nil" if not 0 <= length <= size else "x" + raw[4 : 4 + length].split(b"\0")[0].hex()
            else:
                value = raw[3] if kind == BOOL else struct.unpack({INT: ">i", REAL: ">Q"}[kind], raw)[0]
            if name == before == b"":  # zeros without end would read so
                state = "damaged"
                break
            before = name
            found.pop(name, None)  # the later one counts, at its own place
            found[name] = f"{kind} x{name.hex()} {size} {value}"
    except More:
        pass
    return ["x" + title.hex(), *found.values(), state]


def some_name(rng):
    length = rng.choice([0, 1, 3, 8, 40, 1023]) if rng.random() < 0.3 else rng.randrange(1, 12)
    return bytes(rng.randrange(1, 256) for _ in range(length))


def some_parameter(rng):
    kind = rng.randrange(4)
    size = rng.choice([0, 1, 8, 100, 505, 508, 509, 4092, 5000, 70000]) if kind == STRING else 0
    return kind, some_name(rng), size


def some_value(rng, kind, size):
    if kind == BOOL:
        return rng.randrange(2)
    if kind == INT:
        return rng.choice([0, 1, -1, 255, 256, NIL_INT, 0x7FFFFFFF, rng.randrange(-(2**31), 2**31)])
    if kind == REAL:
        return rng.choice([0.0, -0.0, 1e-310, float("inf"), rng.gauss(0, 1e9)])
    length = rng.choice([0, size, rng.randrange(size + 1)])
    return bytes(rng.randrange(1, 256) for _ in range(min(length, 50))) + b"t" * (length - 50)


def spoil(rng, data):
    data = bytearray(data)
    for _ in range(rng.randrange(1, 4)):
        at = rng.randrange(len(data))
        if rng.random() < 0.5:
            data[at] = rng.choice([0, 1, 3, 4, 127, 128, 255])
        else:
            data[at : at + 4] = struct.pack(">i", rng.choice([0, 1, 2, 3, 4, 1023, 1024, -1, 0x7FFFFFFF, 0x7FFFFFFB]))
    return bytes(data)


def reads_what_we_wrote(program, path, rng):
    data = header(b"Title" * rng.randrange(3))
    for _ in range(rng.randrange(30)):
        kind, name, size = some_parameter(rng)
        data += head(kind, name, size) + slot(kind, size, some_value(rng, kind, size))
    if rng.random() < 0.3:
        data = data[: rng.randrange(len(data) + 1)]
    elif rng.random() < 0.5:
        data = spoil(rng, data)
    path.write_bytes(data)
    answer = subprocess.run([program, "read", path], stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=True)
    got = answer.stdout.decode().splitlines()
    assert got == tell(data), f"of {data[:400].hex()}\nexpected {tell(data)}\ngot      {got}"
    reports = answer.stderr.decode().count("kelstdmt: internal error:")
    expected = (got[-1] == "damaged") + sum(line.endswith(" nil") for line in got)
    assert reports == expected, f"{reports} reports in place of {expected}: {answer.stderr.decode()}"
    path.unlink()


def writes_what_we_read(program, path, rng):
    if rng.random() < 0.3:  # what stands there is overwritten
        path.write_bytes(bytes(rng.randrange(1, 256) for _ in range(200)))
    with subprocess.Popen([program, "write", path, "Status"], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as driver:
        data, known = bytearray(header(b"Status")), {}
        for step in range(40):
            kind, name, size = some_parameter(rng)
            if known and rng.random() < 0.5:
                name = rng.choice(list(known))
                if rng.random() < 0.9:
                    kind, size, _ = known[name]
            if name not in known:
                data += head(kind, name, size)
                known[name] = kind, size, len(data)
                data += slot(kind, size, b"" if kind == STRING else 0)
            elif kind == known[name][0]:
                size = known[name][1]
            value = some_value(rng, kind, size)
            sent = struct.unpack(">Q", struct.pack(">d", value))[0] if kind == REAL else value
            sent = "x" + value.hex() if kind == STRING else sent
            driver.stdin.write(f"{kind} x{name.hex()} {size} {sent}\n".encode())
            driver.stdin.flush()
            answer = driver.stdout.readline().strip()
            if known[name][0] != kind:
                assert answer == b"null", answer
                continue
            assert answer == b"ok", f"{answer} at step {step}"
            at = known[name][2]
            # A text leaves what stands behind it.
            bare = struct.pack(">i", len(value)) + value if kind == STRING else slot(kind, size, value)
            data[at : at + len(bare)] = bare
            assert path.read_bytes() == data, f"step {step}: {kind} {name} {size} {value[:60] if kind == STRING else value}"
        driver.stdin.close()
    assert driver.returncode == 0, driver.returncode
    path.unlink()


def main():
    program = sys.argv[1]
    rng = random.Random(20)
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "monitor"
        for _ in range(int(sys.argv[2]) if len(sys.argv) > 2 else 200):
            reads_what_we_wrote(program, path, rng)
        for _ in range(30):
            writes_what_we_read(program, path, rng)


main()
