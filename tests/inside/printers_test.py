"""tools/gdb: what a debugger prints of the values in subject.cpp, in the running program and in a core file of it."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

if not shutil.which("gdb"):
    print("skipped: there is no gdb")
    sys.exit(77)
SUBJECT, LIBRARY, SCRIPT = (os.path.abspath(argument) for argument in sys.argv[1:4])
del sys.argv[1:]

ANNA = r'demo::Account = {Name = "Anna", Uid = 1, Age = std::optional<int> = {\[contained value\] = 30}, ' \
       r"Login = bash, Twice = <computed>, Friend = {}}}"
BERTA = r'(demo::)?Admin = {{Name = "Berta", Uid = 1, Age = std::optional<int> \[no contained value\], ' \
        r"Login = bash, Twice = <computed>, Friend = {}, Rank = 0.5}}"


def braced(pattern, inner):
    return pattern.replace("{{", "{").replace("}}", "}").replace("{}", inner)


BERTA_HERE = braced(BERTA, "demo::Account at 0x[0-9a-f]+")
ANNA_HERE = braced(ANNA, "(demo::)?Admin at 0x[0-9a-f]+")
NO_OBJECT = "(<no object: 0x[0-9a-f]+>|<memory that cannot be read>)"

EXPECTED = {
    "null": "null",
    "text": r'"grüß \\"x\\"\\n"',
    "long_text": r"'x' <repeats 60 times>\.\.\.",
    "uninit": "uninit",
    "whole": "42",
    "word": '"word"',
    "shell": "bash",
    "anna": braced(ANNA, BERTA_HERE),
    "berta": braced(BERTA, ANNA_HERE),
    "*base": braced(BERTA, ANNA_HERE),
    "object": braced(ANNA, BERTA_HERE),
    "accounts": rf"(demo::)?Accounts of 3 = {{{braced(ANNA, BERTA_HERE)}, null, {braced(BERTA, ANNA_HERE)}}}",
    "numbers": r'(demo::)?Numbers of 1 = {\["one"\] = 1}',
    "values": rf'(demo::)?Values of 5 = {{uninit, nil, 42, "word", {braced(ANNA, BERTA_HERE)}}}',
    "thrown": r'(kellib::X|kelX)NegativeIndex = {Description = "Negative index".*}',
    "wild_any.as": r".*<not a value: kind \d+>",
    "wild_handle.as": ".*" + NO_OBJECT,
    "wild_account.as": ".*" + NO_OBJECT,
    "wild_accounts.as": ".*" + NO_OBJECT,
    "*freed": NO_OBJECT,
    "ring[0]": "(demo::)?Ring of 30 = {.*at 0x.*}",
}


class Printers(unittest.TestCase):
    def gdb(self, *commands):
        """What the commands print, each expression's value by its text."""
        words = ["gdb", "-batch", "-nx", "-iex", f"add-auto-load-safe-path {os.path.dirname(LIBRARY)}"]
        settings = ["set print elements 60", "set width 0", "set breakpoint pending on", "set debuginfod enabled off"]
        if not LIBRARY.endswith(".so"):
            settings.append(f"source {SCRIPT}")
        for command in [*settings, *commands, "up"]:
            words += ["-ex", command]
        for expression in EXPECTED:
            words += ["-ex", f"output {expression}", "-ex", f"echo \\n=== {expression}\\n"]
        done = subprocess.run([*words, SUBJECT], capture_output=True, timeout=200, cwd=self.here,
                              env=dict(os.environ, LC_ALL="C.UTF-8"))
        told, complaints = done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")
        if "Operation not permitted" in complaints:
            self.skipTest("no program may be looked at here: " + complaints)
        self.assertNotIn("Python Exception", told + complaints)
        return dict(reversed(pair) for pair in re.findall(r"(?:^|=== .*\n)(?:.*\n)*?(.*)\n(?==== (.*)\n)", told)), told + complaints

    def compare(self, told, output):
        for expression, pattern in EXPECTED.items():
            self.assertIn(expression, told, output)
            self.assertRegex(told[expression], rf"\A{pattern}\Z", expression)
        self.assertLess(len(told["ring[0]"]), 100_000)

    def test_program_and_core_file(self):
        with tempfile.TemporaryDirectory() as self.here:
            core = pathlib.Path(self.here) / "core"
            self.compare(*self.gdb("break stop_here", "run", f"generate-core-file {core}"))
            self.compare(*self.gdb(f"core-file {core}"))


unittest.main()
