#!/usr/bin/env python3
"""inventory_interop.py PROGRAM: a peer written in another language reads what examples/inventory writes.

The program keeps its files in the three encodings; this script decodes them with `struct` and by splitting
lines, and compares with its own reading of the account files that the program was given.
"""
import pathlib
import random
import struct
import subprocess
import sys
import tempfile


class Binary:
    """Values as this machine keeps them, or (order ">") in XDR."""

    def __init__(self, data, order):
        self.data, self.at, self.order = data, 0, order

    def take(self, form):
        (value,) = struct.unpack_from(form, self.data, self.at)
        self.at += struct.calcsize(form)
        return value

    def int(self):
        return self.take(self.order + "i")

    def bool(self):
        value = self.int() if self.order == ">" else self.take("B")
        assert value in (0, 1), f"a bool is {value}"
        return bool(value)

    def text(self):
        length = self.int()
        assert 0 <= length <= len(self.data) - self.at, f"a text of {length} bytes"
        value = self.data[self.at : self.at + length]
        self.at += length
        return value

    def at_end(self):
        return self.at == len(self.data)


class Text:
    """One value a line; a text stands between double quotes, with \\n and \\\\ within."""

    def __init__(self, data):
        assert data.endswith(b"\n"), "the last line has no end"
        self.lines = data.split(b"\n")[:-1]
        self.lines.reverse()

    def int(self):
        return int(self.lines.pop())

    def bool(self):
        return {b"T": True, b"F": False}[self.lines.pop()]

    def text(self):
        line = self.lines.pop()
        assert len(line) >= 2 and line[:1] == line[-1:] == b'"', f"no quoted text: {line}"
        parts = line[1:-1].split(b"\\\\")
        return b"\\".join(part.replace(b"\\n", b"\n") for part in parts)

    def at_end(self):
        return not self.lines


def decode(source):
    def texts():
        return [source.text() for _ in range(source.int())]

    assert source.text() == b"kelstdmt inventory 1"
    # Name, user and group id, full name, home, shell and its kind, groups: in the order of the file.
    accounts = [(source.text(), source.int(), source.int(), source.text() if source.bool() else None,
                 source.text(), source.text(), source.int(), texts()) for _ in range(source.int())]
    names = texts()
    groups = {}
    for _ in range(source.int()):
        key = source.text()
        groups[key] = {"name": source.text(), "gid": source.int(), "members": texts()}
    assert source.text() == b"end"
    assert source.at_end(), "bytes are left behind the end"
    return accounts, names, groups


def parse(passwd, group):
    def kind(shell):
        if not shell:
            return 0
        last = b"/" + shell.rpartition(b"/")[2] if b"/" in shell else b""
        return 2 if last in (b"/nologin", b"/false", b"/true", b"/sync", b"/shutdown", b"/halt") else 1

    def lines(data, fields):
        seen = set()
        for line in data.split(b"\n"):
            parts = line.removesuffix(b"\r").split(b":")
            if line.startswith(b"#") or len(parts) != fields or not parts[0] or parts[0] in seen:
                continue
            if all(part.isdigit() and int(part) < 2**31 for part in (parts[2:4] if fields == 7 else parts[2:3])):
                seen.add(parts[0])
                yield parts

    groups = {}
    for name, _, gid, members in lines(group, 4):
        groups[name] = {"name": name, "gid": int(gid), "members": [m for m in members.split(b",") if m]}
    accounts = []
    for name, _, uid, gid, person, home, shell in lines(passwd, 7):
        primary = [g["name"] for g in groups.values() if g["gid"] == int(gid)][:1]
        others = [g["name"] for g in groups.values() if g["gid"] != int(gid)
                  for member in g["members"] if member == name]
        accounts.append((name, int(uid), int(gid), person.split(b",")[0] or None, home, shell, kind(shell),
                         primary + others))
    return accounts, list(groups), groups


def generated(seed):
    """Account files with texts that are hard to carry, and some lines that are none."""
    chance = random.Random(seed)
    pieces = [b"a", b"Z", b" ", b"\t", b'"', b"\\", b"\\n", "é".encode(), b"\xff", b"#", b"-", b"/"]

    def word(least):
        return b"".join(chance.choice(pieces) for _ in range(chance.randint(least, 8)))

    names = [b"u%d" % i + word(0) for i in range(60)]
    passwd = [
        b":".join([name, b"x", b"%d" % chance.choice([0, 7, 65534, 2**31 - 1]), b"%d" % chance.randint(0, 20),
                   word(0) + b"," * chance.randint(0, 2), word(0),
                   chance.choice([b"", b"/bin/sh", b"/usr/sbin/nologin", word(1)])])
        for name in names
    ]
    group = [
        b":".join([b"g%d" % i + word(0), b"", b"%d" % chance.randint(0, 20),
                   b",".join(chance.choice(names + [b"", b"nobody here"]) for _ in range(chance.randint(0, 9)))])
        for i in range(40)
    ]
    for lines in (passwd, group):
        for bad in (b"", b"# none", b"too:few", b"a:b:c:d:e:f:g:h", b"n:x:-1:0:::", b"n:x:2147483648:0:::",
                    b"n:x:1 :0", b"::0:", lines[0]):
            lines.insert(chance.randint(1, len(lines)), bad)
    return b"\n".join(passwd) + b"\n", b"\r\n".join(group)


def check(program, folder, passwd, group):
    (folder / "passwd").write_bytes(passwd)
    (folder / "group").write_bytes(group)
    run = subprocess.run([program, "--keep", folder, folder / "passwd", folder / "group"], capture_output=True)
    assert run.returncode == 0, f"the program ended with {run.returncode}\n{run.stdout}\n{run.stderr}"
    expected = parse(passwd, group)
    for ending, source in (
        ("text", Text),
        ("binary", lambda data: Binary(data, "<")),
        ("xdr", lambda data: Binary(data, ">")),
    ):
        found = decode(source((folder / f"inventory.{ending}").read_bytes()))
        for what, left, right in zip(("accounts", "group names", "groups"), expected, found):
            assert left == right, f"{ending}: {what}: expected {left}\nfound {right}"
    return len(expected[0]), len(expected[1])


def main():
    program = sys.argv[1]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        machine = [pathlib.Path(path).read_bytes() for path in ("/etc/passwd", "/etc/group")]
        assert check(program, folder, *machine)[0] > 0, "this machine has no accounts"
        for seed in range(20):
            accounts, groups = check(program, folder, *generated(seed))
            assert (accounts, groups) == (60, 40), f"seed {seed}: {accounts} accounts, {groups} groups"
    print("all files read as expected")


main()
