#!/usr/bin/env python3
"""kgrep_interop.py PROGRAM [SEED [ROUNDS]]: examples/kgrep beside a model of it made of Python's `re`.

Files with random lines (several bytes a character, invalid bytes, no last line end) are searched with random
patterns in every mode, and all that is printed is compared. Then come the cases that need a file system or a
shell.
"""
import os
import pathlib
import random
import re
import stat
import subprocess
import sys
import tempfile

PROGRAM = os.path.abspath(sys.argv[1])


def run(arguments, locale="C.UTF-8", stdin=b"", code=None, cwd=None):
    env = dict(os.environ, LC_ALL=locale)
    done = subprocess.run([PROGRAM, *arguments], input=stdin, capture_output=True, env=env, cwd=cwd, timeout=250)
    codes = (0, 1, 2) if code is None else (code,)
    assert b"Sanitizer" not in done.stderr and done.returncode in codes, (arguments, done)
    return done


# The model ---------------------------------------------------------------------------------------------


def decode(data, locale):
    """An invalid byte is one character."""
    return data.decode("utf-8", "surrogateescape") if "UTF" in locale else data.decode("latin-1")


def encode(text, locale):
    return text.encode("utf-8", "surrogateescape") if "UTF" in locale else text.encode("latin-1")


def ascii_upper(text):
    return "".join(c.upper() if "a" <= c <= "z" else c for c in text)


class Model:
    def __init__(self, kind, ignore_case, pattern):
        self.ignore_case, self.kind = ignore_case, kind
        if ignore_case:
            pattern = ascii_upper(pattern)
        if kind == "-F":
            pattern = re.escape(pattern)
        elif kind == "-S":
            pattern = "".join({"*": "(?:.*?)", "?": "."}.get(c) or re.escape(c) for c in pattern)
        else:
            pattern = pattern.replace("$", r"\Z")
        self.program = re.compile(pattern, re.DOTALL)

    def matches(self, line):
        searched = ascii_upper(line) if self.ignore_case else line
        at, last = 0, -1
        while at <= len(line):
            match = self.program.search(searched, at)
            if not match:
                return
            begin, end = match.span()
            if begin < end or begin != last:
                yield match
            last = end
            at = end if end > begin else end + 1

    def expand(self, template, match, line):
        if self.kind != "-E":
            return template

        def insert(found):
            text = found.group()
            if text in ("\\\\", "\\&"):
                return text[1]
            group = int(text[1:] or "0") if text != "&" else 0
            begin, end = match.span(group) if group <= match.re.groups else (-1, -1)
            return line[begin:end] if begin >= 0 else ""

        return re.sub(r"\\[0-9&\\]|&", insert, template)


def expected(model, files, options, locale):
    """The whole output, the exit code."""
    out, found = [], False
    template = decode(options["-s"].encode(), locale) if "-s" in options else None
    for name, data in files:
        for number, raw in enumerate(data.splitlines(), 1):
            line = decode(raw, locale)
            matches = list(model.matches(line))
            if bool(matches) == ("-v" in options):
                continue
            found = True
            at, pieces, whole = 0, [], ""
            for match in matches:
                begin, end = match.span()
                pieces.append(line[begin:end] if template is None else model.expand(template, match, line))
                whole += line[at:begin] + pieces[-1]
                at = end
                if begin == end:
                    pieces.pop()
            for text in pieces if "-o" in options else [whole + line[at:]]:
                out.append(name + b":%d:" % number + encode(text, locale) + b"\n")
    return b"".join(out), 0 if found else 1


# Random inputs -------------------------------------------------------------------------------------------


PIECES = [b"a", b"b", b"B", b"c", b"-", b"]", b"ab", b"x", b" ", b".", b"*", b"?", b"\\", b"&", "é".encode(), "ß".encode(),
          "€".encode(), "\U0001d11e".encode(), b"\xff", b"\xc3"]


def random_file(chance):
    lines = [b"".join(chance.choices(PIECES, k=chance.choice([0, 1, 3, 8]))) for _ in range(chance.randint(0, 30))]
    return b"\n".join(lines) + chance.choice([b"", b"\n"])


def random_regexp(chance, depth, characters):
    def atom():
        draw = chance.random()
        if draw < 0.5:
            return chance.choice(characters)
        if draw < 0.6:
            return "."
        if draw < 0.75:
            first, last = chance.choice(["", "", "]", "-"]), chance.choice(["", "", "a-c", "-"])
            return "[" + chance.choice(["", "^"]) + first + "".join(chance.sample(characters, 2)) + last + "]"
        if draw < 0.8:
            return "\\" + chance.choice(".*?\\")
        if depth and draw < 0.95:
            return "(" + random_regexp(chance, depth - 1, characters) + ")"
        return chance.choice("^$")

    def piece():
        text = atom()
        if text in "^$" or (text.startswith("(") and re.compile(text.replace("$", r"\Z")).search("")):
            return text
        return text + chance.choice(["", "", "", "*", "+", "?"])

    return "|".join("".join(piece() for _ in range(chance.randint(1, 3))) for _ in range(chance.choice([1, 1, 2])))


# Such an alternative occurs nowhere, but makes the pattern one that the automata search for alone.
MANY = "|0123456789CDEFGHIJKLMNOPQRSTUVWXYZdefghijklmnopqrstuvwyz!#%,/:;<=>@_~"


def random_pattern(chance, kind, locale):
    characters = list("abBcx é€") if "UTF" in locale else list("abBcx ")
    if kind == "-E":
        return random_regexp(chance, 2, characters) + chance.choice(["", "", "", MANY])
    pieces = characters + (["*", "?", "*", "?"] if kind == "-S" else [".", "*", "\\"])
    return "".join(chance.choices(pieces, k=chance.choice([0, 1, 1, 2, 3])))


def compare_with_model(folder, chance, rounds):
    for number in range(rounds):
        if number % 10 == 0:
            files = [(b"f%d" % i, random_file(chance)) for i in range(5)]
            for name, data in files:
                (folder / name.decode()).write_bytes(data)
        kind, locale = chance.choice(["-F", "-S", "-E"]), chance.choice(["C", "C.UTF-8"])
        ignore_case, pattern = chance.random() < 0.4, random_pattern(chance, kind, locale)
        options = {flag: "" for flag in chance.choice([[], ["-v"], ["-o"], ["-s"], ["-o", "-s"]])}
        if "-s" in options:
            options["-s"] = chance.choice(["", "<&>", "[\\1|\\2]", "\\0\\\\\\&\\q", "é"])
        words = [kind, f"--pattern={pattern}"] + ["-i"] * ignore_case
        words += [f"--substitute={value}" if flag == "-s" else flag for flag, value in options.items()]
        done = run(words + [name for name, _ in files], locale, cwd=folder)
        out, code = expected(Model(kind, ignore_case, pattern), files, options, locale)
        assert (done.stdout, done.returncode) == (out, code), (
            f"round {number}: {words} in {locale}\nexpected {code} {out}\nfound {done.returncode} {done.stdout}"
            f"\n{done.stderr}\nin {files}"
        )


# Cases ---------------------------------------------------------------------------------------------------


def bad_patterns():
    for pattern, at, message in [("é(a*)*", 5, "*+ operand could be empty"), ("*a", 0, "?+* follows nothing")]:
        err = run([pattern, "/dev/null"], code=2).stderr.decode()
        assert err == f"kgrep: {message}\n  {pattern}\n  {' ' * at}^\n", err
    for words in (["-c"], ["--nothing", "a"], ["-m", "x", "a"], ["--in-place", "a", "f"], ["-vs", "x", "a"]):
        assert run(words, code=2).stderr.startswith(b"kgrep: "), words


def folders_and_links(folder):
    def prints(words, code=0):
        done = run(words, code=code, cwd=folder)
        return done.stdout.decode(), done.stderr.count(b"kgrep: ")

    (folder / "sub/deep").mkdir(parents=True)
    (folder / "one.txt").write_bytes(b"needle\n")
    (folder / "sub/two.TXT").write_bytes(b"hay\nneedle needle\nneedle\n")
    (folder / "sub/deep/name\nwith end.txt").write_bytes(b"needle")
    (folder / "sub/loop").symlink_to("..")
    (folder / "sub/link.txt").symlink_to("../one.txt")
    os.mkfifo(folder / "sub/pipe")
    assert prints(["-m1", "needle", "."]) == (
        "./one.txt:1:needle\n./sub/two.TXT:2:needle needle\n./sub/deep/name\nwith end.txt:1:needle\n", 0)
    words = ["--include=*.txt", "--exclude=name*", "needle", ".", "sub/link.txt"]
    assert prints(["-c", "--total"] + words) == ("./one.txt:1\nsub/link.txt:1\ntotal:2\n", 0)
    assert prints(["-lxS", "ha*", "."]) == ("./sub/two.TXT\n", 0)
    assert prints(["-L", "hay", "one.txt", "sub/two.TXT"]) == ("one.txt\n", 0)
    marked = "\x1b[1;31mneedle\x1b[m"
    assert prints(["-hN", "-m1", "--color=always", "needle", "sub/two.TXT"]) == (f"{marked} {marked}\n", 0)
    # What cannot be read is told, and the search goes on; with -q a match is enough.
    assert prints(["needle", "missing", "/proc/self/mem", "one.txt"], 2) == ("one.txt:1:needle\n", 2)
    run(["-q", "needle", "missing", "one.txt"], code=0, cwd=folder)


def standard_streams():
    assert run(["-H", "b", "-"], stdin=b"a\nabc", code=0).stdout == b"(standard input):2:abc\n"
    # A line is printed before the input ends.
    with subprocess.Popen([PROGRAM, "b"], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
        process.stdin.write(b"b1\nb")
        process.stdin.flush()
        assert process.stdout.readline() == b"1:b1\n"
    done = subprocess.run(["sh", "-c", f"trap '' PIPE; yes 2>&- | {PROGRAM} y | head -n 1"], capture_output=True)
    assert done.stdout == b"1:y\n" and done.stderr == b"", done
    done = subprocess.run(["sh", "-c", f"echo b | {PROGRAM} b >/dev/full"], capture_output=True)
    assert done.returncode == 2 and b"standard output" in done.stderr, done


def in_place(folder):
    file = folder / "file"
    file.write_bytes(b"one\ntwo two\n" * 50000 + b"two")
    file.chmod(0o640)
    (folder / "link").symlink_to("file")
    (folder / "binary").write_bytes(b"two\0\n")
    done = run(["--in-place", "--first", "-s", "&-\\1", "t(w)o", "link", "binary"], code=2, cwd=folder)
    assert file.read_bytes() == b"one\ntwo-w two\n" * 50000 + b"two-w", done
    assert done.stderr == b"kgrep: binary: binary file matches\n" and done.stdout == b"", done
    assert stat.S_IMODE(file.stat().st_mode) == 0o640 and (folder / "link").is_symlink()
    assert sorted(os.listdir(folder)) == ["binary", "file", "link"]


def main():
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 100 if os.environ.get("KELSTDMT_SANITIZE") else 400
    bad_patterns()
    standard_streams()
    for case in (folders_and_links, in_place, lambda folder: compare_with_model(folder, random.Random(seed), rounds)):
        with tempfile.TemporaryDirectory() as name:
            case(pathlib.Path(name))
    print(f"{rounds} searches as expected, seed {seed}")


main()
