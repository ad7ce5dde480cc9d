"""The manual pages: groff finds nothing wrong, and they tell the options that the programs' help tells, and no others."""

import os
import pathlib
import re
import shutil
import subprocess
import unittest

from driving import KEL, run

PAGES = pathlib.Path(__file__).resolve().parents[2] / "doc" / "man"
OPTION = re.compile(r"(?<![\w-])--?[a-z][a-z-]*")


def options_of(*command):
    """The options of a command, and its subcommands, by its help."""
    told = subprocess.run([*command, "--help"], capture_output=True, text=True, check=True).stdout
    options = set()
    for names in re.findall(r"^ +(-\S+)", told, re.MULTILINE):
        options.update(OPTION.findall(names.replace(",", " ")))
    return options, re.findall(r"^ +([a-z]+) ", told.partition("\nSubcommands:\n")[2], re.MULTILINE)


def tags(page):
    """The plain text of the tags of a page's lists."""
    for tag in re.findall(r"^\.TP\n(.*)", (PAGES / page).read_text(), re.MULTILINE):
        yield re.sub(r"^\.[A-Z]+ ", "", re.sub(r"\\f.", "", tag)).replace("\\-", "-").replace('"', "")


class Manual(unittest.TestCase):
    maxDiff = None

    def test_daemons(self):
        for name in ("kelnmsd", "kelrshd"):
            options, _ = options_of(os.environ[name.upper()])
            self.assertEqual(sorted(OPTION.findall(" ".join(tags(name + ".8")))), sorted(options), name)

    def test_kel(self):
        told = {}

        def walk(*words):
            options, commands = options_of(KEL, *words)
            if words:
                options -= {"-h", "--help", "--help-all"}
            for command in commands:
                walk(*words, command)
            if not commands or not words:
                told[" ".join(words)] = sorted(options)

        walk()
        documented = {"": []}
        for tag in tags("kel.1"):
            name = re.match("[a-z ]*", tag).group().strip()
            documented.setdefault(name, []).extend(OPTION.findall(tag))
        self.assertEqual({name: sorted(options) for name, options in documented.items()}, told)

    @unittest.skipUnless(shutil.which("man"), "no man")
    def test_form(self):
        pages = sorted(PAGES.iterdir())
        self.assertGreater(len(pages), 5)
        for page in pages:
            done = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page], capture_output=True,
                                  text=True, env=dict(os.environ, LC_ALL="C.UTF-8", MANROFFSEQ="", MANWIDTH="80"))
            self.assertEqual((done.returncode, done.stderr), (0, ""), page.name)
            for name, section in re.findall(r"^\.BR (\S+) \((\d)\)", page.read_text(), re.MULTILINE):
                linked = PAGES / f"{name}.{section}".replace("\\-", "-")
                self.assertTrue(linked in pages or name == "mv", f"{page.name}: no page {linked.name}")


if __name__ == "__main__":
    run()
