#!/usr/bin/env python3
"""kgrep_interop.py PROGRAM [SEED [ROUNDS]]: examples/kgrep beside a model of it made of Python's `re`.

Files with random lines (several bytes a character, invalid bytes, NULs, no last line end) are searched with
random patterns and options in every mode, and all that is printed is compared. Then come the cases that need
a file system or a shell.
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
    assert b"Sanitizer" not in done.stderr and done.returncode in (0, 1, 2), (arguments, done)
    assert code is None or done.returncode == code, (arguments, done)
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
    def __init__(self, kind, ignore_case, pattern, whole):
        self.ignore_case, self.whole, self.kind = ignore_case, whole, kind
        if ignore_case:
            pattern = ascii_upper(pattern)
        if kind == "-F":
            pattern = re.escape(pattern)
        elif kind == "-S":
            wild = {"*": "(?:.*)" if whole else "(?:.*?)", "?": "."}
            pattern = "".join(wild.get(c) or re.escape(c) for c in pattern) + (r"\Z" if whole else "")
        else:
            pattern = pattern.replace("$", r"\Z")
        self.program = re.compile(pattern, re.DOTALL)

    def matches(self, line):
        searched = ascii_upper(line) if self.ignore_case else line
        if self.whole:
            match = self.program.search(searched)
            if match and match.span() == (0, len(line)):
                yield match
            return
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


def lines_of(data):
    if b"\0" in data:
        data = data.replace(b"\0", b"\n")
    parts = data.split(b"\n")
    return parts[:-1] if parts[-1] == b"" else parts


def expected(model, files, options, locale):
    """The whole output, the exit code."""
    out, found, total = [], False, 0
    for name, data in files:
        selected, shown = 0, []
        for number, raw in enumerate(lines_of(data), 1):
            if selected >= options.get("-m", 1 << 60):
                break
            line = decode(raw, locale)
            matches = list(model.matches(line))
            if bool(matches) == options.get("-v", False):
                continue
            selected += 1
            prefix = name + b":%d:" % number
            template = decode(options["-s"].encode(), locale) if "-s" in options else None
            if options.get("--first"):
                matches = matches[:1]
            if options.get("-o"):
                for match in matches if not options.get("-v") else []:
                    begin, end = match.span()
                    text = line[begin:end] if template is None else model.expand(template, match, line)
                    if begin < end:
                        shown.append(prefix + encode(text, locale))
            elif template is None:
                shown.append(prefix + raw)
            else:
                at, text = 0, ""
                for match in matches:
                    text += line[at : match.start()] + model.expand(template, match, line)
                    at = match.end()
                shown.append(prefix + encode(text + line[at:], locale))
        total += selected
        if options.get("-c"):
            out.append(name + b":%d" % selected)
        elif options.get("-l") or options.get("-L"):
            if bool(selected) == bool(options.get("-l")):
                out.append(name)
        elif selected and b"\0" in data:
            out.append(b"kgrep: " + name + b": binary file matches")
        else:
            out += shown
        found = found or (selected > 0) == (not options.get("-L"))
    if options.get("--total"):
        out.append(b"total:%d" % total)
    return b"".join(line + b"\n" for line in out), 0 if found else 1


# Random inputs -------------------------------------------------------------------------------------------


PIECES = [b"a", b"b", b"B", b"c", b"-", b"]", b"ab", b"x", b" ", b".", b"*", b"?", b"\\", b"&", "é".encode(), "ß".encode(),
          "€".encode(), "\U0001d11e".encode(), b"\xff", b"\xc3"]


def random_file(chance):
    ends = [b"\n"] * 3 + ([b"\0"] if chance.random() < 0.1 else [])
    data = b"".join(
        b"".join(chance.choice(PIECES) for _ in range(chance.choice([0, 1, 3, 8]))) + chance.choice(ends)
        for _ in range(chance.randint(0, 30))
    )
    return data[:-1] if chance.random() < 0.3 else data


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


def random_pattern(chance, kind, locale):
    characters = list("abBcx é€") if "UTF" in locale else list("abBcx ")
    if kind == "-E":
        return random_regexp(chance, 2, characters)
    pieces = characters + (["*", "?", "*", "?"] if kind == "-S" else [".", "*", "\\"])
    return "".join(chance.choice(pieces) for _ in range(chance.choice([0, 1, 1, 2, 3])))


def random_options(chance):
    options = {flag: True for flag in ("-v", "--total", "--first") if chance.random() < 0.15}
    if chance.random() < 0.6:
        options[chance.choice(["-o", "-c", "-l", "-L"])] = True
    if chance.random() < 0.1:
        options["-m"] = chance.randint(0, 3)
    if chance.random() < 0.4 and "-v" not in options:
        options["-s"] = chance.choice(["", "<&>", "[\\1|\\2]", "\\0\\\\\\&\\q", "é"])
    return options


def compare_with_model(folder, chance, rounds):
    for number in range(rounds):
        if number % 10 == 0:
            files = [(b"f%d" % i, random_file(chance)) for i in range(5)]
            for name, data in files:
                (folder / name.decode()).write_bytes(data)
        kind, locale = chance.choice(["-F", "-S", "-E"]), chance.choice(["C", "C.UTF-8"])
        ignore_case, whole = chance.random() < 0.4, chance.random() < 0.2
        pattern, options = random_pattern(chance, kind, locale), random_options(chance)
        model = Model(kind, ignore_case, pattern, whole)
        words = [kind] + ["-i"] * ignore_case + ["-x"] * whole + [f"--pattern={pattern}"]
        for name, value in options.items():
            words += [name] if value is True else [name, str(value)]
        done = run(words + [name for name, _ in files], locale, cwd=folder)
        out, code = expected(model, files, options, locale)
        assert (done.stdout, done.returncode) == (out, code), (
            f"round {number}: {words} in {locale}\nexpected {code} {out}\nfound {done.returncode} {done.stdout}"
            f"\n{done.stderr}\nin {files}"
        )
        if "-s" in options and not any(b"\0" in data for _, data in files):
            replaces_in_place(folder, model, files, words, options, locale)


def replaces_in_place(folder, model, files, words, options, locale):
    """What stands in the files afterwards, beside what would have been printed."""
    shown = {flag: value for flag, value in options.items() if flag in ("-s", "--first", "-m")}
    run(words + ["--in-place"] + [name for name, _ in files], locale, cwd=folder)
    for name, data in files:
        out = expected(model, [(name, data)], shown, locale)[0]
        changed = dict(re.findall(rb"^f\d:(\d+):(.*)$", out, re.MULTILINE))
        lines = lines_of(data)
        for line, text in changed.items():
            lines[int(line) - 1] = text
        wanted = b"\n".join(lines) + (b"\n" if data.endswith(b"\n") else b"")
        assert (folder / name.decode()).read_bytes() == wanted, (words, name, data)
        (folder / name.decode()).write_bytes(data)
    assert not list(folder.glob(".kgrep*")), "a temporary file is left"


# Cases ---------------------------------------------------------------------------------------------------


def bad_patterns():
    for pattern, at, message in [
        ("é(a*)*", 5, "*+ operand could be empty"),
        ("*a", 0, "?+* follows nothing"),
        ("a\\", 1, 'Trailing \\'),
    ]:
        err = run([pattern, "/dev/null"], code=2).stderr.decode()
        first, shown, caret = err.rstrip("\n").split("\n")
        assert first == "kgrep: " + message and shown.strip() == pattern, err
        assert caret == "  " + " " * at + "^", f"{pattern}: the caret is not below {at}\n{err}"
    for words in (["-c"], ["--nothing", "a"], ["-m", "x", "a"], ["--in-place", "a", "f"], ["-vs", "x", "a"]):
        assert run(words, code=2).stderr.startswith(b"kgrep: "), words


def folders_and_links(folder):
    (folder / "sub/deep").mkdir(parents=True)
    (folder / "one.txt").write_bytes(b"needle\n")
    (folder / "sub/two.TXT").write_bytes(b"hay\nneedle needle\n")
    (folder / "sub/deep/name\nwith end.txt").write_bytes(b"needle")
    (folder / "sub/loop").symlink_to("..")
    (folder / "sub/link.txt").symlink_to("../one.txt")
    os.mkfifo(folder / "sub/pipe")
    done = run(["needle", "."], code=0, cwd=folder)
    assert done.stdout == (b"./one.txt:1:needle\n./sub/two.TXT:2:needle needle\n"
                           b"./sub/deep/name\nwith end.txt:1:needle\n"), done
    done = run(["-c", "--total", "--include=*.txt", "--exclude=name*", "needle", ".", "sub/link.txt"], code=0, cwd=folder)
    assert done.stdout == b"./one.txt:1\nsub/link.txt:1\ntotal:2\n", done
    done = run(["-hN", "--color=always", "needle", "sub/two.TXT"], code=0, cwd=folder)
    assert done.stdout == b"\x1b[1;31mneedle\x1b[m \x1b[1;31mneedle\x1b[m\n", done
    # What cannot be read is told, and the search goes on; with -q a match is enough.
    done = run(["needle", "missing", "/proc/self/mem", "one.txt"], code=2, cwd=folder)
    assert done.stdout == b"one.txt:1:needle\n" and done.stderr.count(b"kgrep: ") == 2, done
    run(["-q", "needle", "missing", "one.txt"], code=0, cwd=folder)
    if os.geteuid():
        (folder / "sub/deep").chmod(0)
        done = run(["needle", "sub"], code=2, cwd=folder)
        (folder / "sub/deep").chmod(0o755)
        assert done.stdout == b"sub/two.TXT:2:needle needle\n" and b"sub/deep" in done.stderr, done


def standard_streams():
    assert run(["b"], stdin=b"a\nabc\n", code=0).stdout == b"2:abc\n"
    assert run(["-H", "b", "-"], stdin=b"b", code=0).stdout == b"(standard input):1:b\n"
    # A line is printed before the input ends.
    with subprocess.Popen([PROGRAM, "b"], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
        process.stdin.write(b"b1\nb")
        process.stdin.flush()
        assert process.stdout.readline() == b"1:b1\n"
    for before in ("", "trap '' PIPE; "):
        shell = f"{before}yes | {PROGRAM} y 2>&3 | head -n 1"
        done = subprocess.run(["sh", "-c", f"exec 3>&2; {shell}"], capture_output=True, timeout=100)
        assert done.stdout == b"1:y\n" and done.stderr.replace(b"yes: standard output: Broken pipe\n", b"") == b"", done
    done = subprocess.run(["sh", "-c", f"echo b | {PROGRAM} b >/dev/full"], capture_output=True)
    assert done.returncode == 2 and b"standard output" in done.stderr, done


def in_place(folder):
    file = folder / "file"
    file.write_bytes(b"one\ntwo\n" * 50000 + b"two")
    file.chmod(0o640)
    (folder / "link").symlink_to("file")
    (folder / "binary").write_bytes(b"two\0\n")
    done = run(["--in-place", "-s", "&-\\1", "t(w)o", "link", "binary"], code=2, cwd=folder)
    assert file.read_bytes() == b"one\ntwo-w\n" * 50000 + b"two-w", done
    assert done.stderr == b"kgrep: binary: binary file matches\n" and done.stdout == b"", done
    assert stat.S_IMODE(file.stat().st_mode) == 0o640 and (folder / "link").is_symlink()
    assert sorted(os.listdir(folder)) == ["binary", "file", "link"]


def main():
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 100 if re.search("[at]san", PROGRAM) else 400
    bad_patterns()
    standard_streams()
    for case in (folders_and_links, in_place):
        with tempfile.TemporaryDirectory() as name:
            case(pathlib.Path(name))
    with tempfile.TemporaryDirectory() as name:
        compare_with_model(pathlib.Path(name), random.Random(seed), rounds)
    print(f"{rounds} searches as expected, seed {seed}")


main()
