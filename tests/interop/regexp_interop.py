#!/usr/bin/env python3
"""regexp_interop.py DRIVER [--cases N] [--seed S]: random patterns and texts, matched by the library and by `re`.

Both engines are leftmost and ordered, so the span of the match, the groups and the expansion of a template must be
the same. What the two languages write differently is made twice from one tree (class Pattern):

- `.` is any character: `re` gets DOTALL. `$` is the end of the text only: `re` gets \\Z. Both ends stand in a
  group for `re`, which has no `?` on them otherwise.
- In a set the library has no escapes: `]`, `-` and `^` stand where they mean themselves.
- `*` and `+` on what may match nothing are an error of the library, so the tree has none: a loop stands only on
  what has a character that must match, which also leaves out all questions of empty iterations. `?` stands on
  anything.

`re` may take exponential time where the library does not: loops are nested twice at most and texts are short, and
a search that still takes `re` too long is left out and counted.
"""
import argparse
import random
import re
import signal
import subprocess
import sys
import time

LETTERS = "aaaabbbbcd"
ASCII = ".*+?()[]|^$\\-&\n"
META = "^$.[()|?+*\\"


class Locale:
    """What patterns and texts are made of, and how they become bytes."""

    def __init__(self, name, encoding, others, ends, invalid):
        self.name, self.encoding = name, encoding
        self.others, self.ends, self.invalid = others + ASCII, ends, invalid

    def encode(self, text):
        return text.encode(self.encoding, "surrogateescape")

    def decode(self, data):
        return data.decode(self.encoding, "surrogateescape")


# Python, too, takes every byte that begins no character for one character. In the C locale only ASCII may stand in a
# pattern, and all bytes in a text.
LOCALES = (
    Locale("C.UTF-8", "utf-8", "éü日😀", "!/09acdzéü", "\udcff\udc80\udcc3\udca9"),
    Locale("C", "ascii", "", "!/09acdz", "\udcff\udc80\udcc3\udca9"),
)


class Pattern:
    """A random pattern in both languages, with a maker of texts that it is likely to match."""

    def __init__(self, rng, locale):
        self.rng, self.locale, self.loops = rng, locale, 0
        wide, wanted = False, rng.random() < 0.8  # empty matches everywhere tell little
        while not wide:
            self.groups = self.multipliers = 0
            self.ours, self.theirs, wide, self.example = self.expression(rng.choice((0, 1, 2, 2, 3, 4)))
            wide |= not wanted

    # Each of these gives (our text, the text for re, must match a character, maker of an example).

    def expression(self, depth):
        branches = [self.branch(depth) for _ in range(self.rng.choice((1, 1, 1, 2, 2, 3)))]
        return (
            "|".join(branch[0] for branch in branches),
            "|".join(branch[1] for branch in branches),
            all(branch[2] for branch in branches),
            lambda: self.rng.choice(branches)[3](),
        )

    def branch(self, depth):
        pieces = [self.piece(depth) for _ in range(self.rng.choice((0, 1, 1, 1, 2, 2, 2, 3, 3, 4)))]
        return (
            "".join(piece[0] for piece in pieces),
            "".join(piece[1] for piece in pieces),
            any(piece[2] for piece in pieces),
            lambda: "".join(piece[3]() for piece in pieces),
        )

    def piece(self, depth):
        multiplier = self.rng.choice(("", "", "", "*", "+", "?"))
        looped = multiplier in ("*", "+")
        if looped and self.loops == 2:
            multiplier, looped = "", False
        self.loops += looped
        ours, theirs, wide, example = self.atom(depth)
        self.loops -= looped
        if looped and not wide:
            multiplier = ""
        self.multipliers += bool(multiplier)
        low, high = {"": (1, 1), "*": (0, 3), "+": (1, 3), "?": (0, 1)}[multiplier]
        return (
            ours + multiplier,
            theirs + multiplier,
            wide and multiplier in ("", "+"),
            lambda: "".join(example() for _ in range(self.rng.randint(low, high))),
        )

    def atom(self, depth):
        kind = self.rng.random()
        if depth and self.groups < 9 and kind < 0.45:
            self.groups += 1
            ours, theirs, wide, example = self.expression(depth - 1)
            return f"({ours})", f"({theirs})", wide, example
        if kind < 0.55:
            return self.characters()
        if kind < 0.62:
            return ".", ".", True, self.character
        if kind < 0.65:
            return "^", "(?:^)", False, lambda: ""
        if kind < 0.68:
            return "$", r"(?:\Z)", False, lambda: ""
        c = self.character()
        escaped = c in META or self.rng.random() < 0.1
        return "\\" * escaped + c, re.escape(c), True, lambda: c

    def characters(self):
        single = {self.character() for _ in range(self.rng.randint(1, 3))}
        ranges = [tuple(sorted(self.rng.sample(self.locale.ends, 2))) for _ in range(self.rng.choice((0, 0, 0, 1, 2)))]
        ours = "".join(sorted(single - set("]-^"))) + "".join(f"{a}-{b}" for a, b in ranges)
        if "]" in single:
            ours = "]" + ours
        negated = self.rng.random() < 0.4
        if "^" in single:
            ours, negated = (ours + "^", negated) if ours else ("^", True)
        if "-" in single:
            ours += "-"
        theirs = "".join(map(re.escape, single)) + "".join(f"{re.escape(a)}-{re.escape(b)}" for a, b in ranges)

        def example():
            return self.character() if negated else self.rng.choice(sorted(single))

        caret = "^" * negated
        return f"[{caret}{ours}]", f"[{caret}{theirs}]", True, example

    def character(self):
        return self.rng.choice(LETTERS if self.rng.random() < 0.85 else self.locale.others)

    def text(self):
        def noise(lengths):
            return "".join(self.character() for _ in range(self.rng.choice(lengths)))

        # Other machines search long texts; `re` has time for them where little is repeated.
        before = {0: (0, 1, 3, 300), 1: (0, 1, 3, 300), 2: (0, 1, 3, 40)}.get(self.multipliers, (0, 0, 1, 2, 3))
        middle = list(self.example()[:8])
        for _ in range(self.rng.choice((0, 0, 0, 1, 2))):
            middle.insert(
                self.rng.randint(0, len(middle)),
                self.rng.choice((self.character(), self.rng.choice(self.locale.invalid))),
            )
        text = noise(before) + "".join(middle) + noise((0, 0, 1, 2, 3))
        return self.locale.decode(self.locale.encode(text))


def template(rng):
    """A template, and what it is made of: texts and numbers of groups."""
    pieces = []
    for _ in range(rng.randint(0, 5)):
        number = rng.randint(0, 9)
        pieces.append(
            rng.choice((("&", 0), (f"\\{number}", number), (f"\\{number}", number), (r"\\", "\\"), (r"\&", "&"),
                        ("b1", "b1"), (r"\x", r"\x")))
        )
    return "".join(piece[0] for piece in pieces), [piece[1] for piece in pieces]


class TooLong(Exception):
    pass


def give_up(_signal, _frame):
    raise TooLong


def search(pattern, text, seconds=0.2):
    signal.setitimer(signal.ITIMER_VIRTUAL, seconds)
    try:
        return pattern.search(text)
    finally:
        signal.setitimer(signal.ITIMER_VIRTUAL, 0)


def expected(pattern, text, pieces, locale):
    """What the driver should say, in its form."""
    match = search(pattern, text)
    if not match:
        return "0\t"
    starts = [len(locale.encode(text[:at])) for at in range(len(text) + 1)]
    numbers = [0, *match.span()]
    for group in range(10):
        span = match.span(group) if group <= pattern.groups else (-1, -1)
        numbers += [starts[at] if at >= 0 else -1 for at in span]
    expansion = ""
    for piece in pieces:
        if isinstance(piece, str):
            expansion += piece
        elif piece <= pattern.groups:
            expansion += match[piece] or ""
    # Invalid bytes of two groups may be a character side by side.
    return " ".join(map(str, numbers)) + "\t" + locale.decode(locale.encode(expansion))


def make_cases(rng, locale, count):
    cases = []
    while len(cases) < count:
        pattern = Pattern(rng, locale)
        compiled = re.compile(pattern.theirs, re.DOTALL)
        for _ in range(2):
            text = pattern.text()
            format, pieces = template(rng)
            cases.append((pattern.ours, text, format, compiled, pieces))
    return cases


def answers(driver, locale, cases):
    given = "".join(f"{pattern}\0{text}\0{format}\0" for pattern, text, format, _, _ in cases)
    output = subprocess.run([driver, locale.name], input=locale.encode(given), stdout=subprocess.PIPE, check=True).stdout
    found = locale.decode(output).split("\0")[:-1]
    assert len(found) == len(cases), f"{len(found)} answers"
    return found


def compare(driver, rng, locale, count):
    """Whether all agree."""
    cases = make_cases(rng, locale, count)
    matches = differences = skipped = 0
    for (pattern, text, format, compiled, pieces), ours in zip(cases, answers(driver, locale, cases)):
        try:
            theirs = expected(compiled, text, pieces, locale)
        except TooLong:
            skipped += 1
            continue
        matches += theirs != "0\t"
        if ours != theirs:
            differences += 1
            if differences <= 10:
                print(f"pattern  {pattern!r}  (re: {compiled.pattern!r})\ntext     {text!r}\ntemplate {format!r}")
                print(f"re       {theirs!r}\nlibrary  {ours!r}\n")
    print(f"{locale.name}: {matches} matches, {differences} differences, {skipped} left out")
    return not differences and matches > count // 3 and skipped <= count // 1000


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("driver")
    arguments.add_argument("--cases", type=int, default=50000, help="pairs of a pattern and a text")
    arguments.add_argument("--seed", type=int, default=time.time_ns() % 1000000)
    chosen = arguments.parse_args()
    print(f"seed {chosen.seed}, {chosen.cases} cases", flush=True)
    rng = random.Random(chosen.seed)
    signal.signal(signal.SIGVTALRM, give_up)
    agree = [
        compare(chosen.driver, rng, locale, chosen.cases * share // 5) for locale, share in zip(LOCALES, (4, 1))
    ]
    sys.exit(not all(agree))


if __name__ == "__main__":
    main()
