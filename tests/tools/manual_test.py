# The manual pages tell the options that the programs' help tells, and no others. (Their form is lintian's business.)

import os
import pathlib
import re
import subprocess
import unittest

from driving import KEL, run

PAGES = pathlib.Path(__file__).resolve().parents[2] / "doc" / "man"
OPTION = re.compile(r"(?<![\w-])--?[a-z][a-z-]*")


def options_of(*command):
    # The options of a command, and its subcommands, by its help.
    told = subprocess.run([*command, "--help"], capture_output=True, text=True, check=True).stdout
    options = OPTION.findall(" ".join(re.findall(r"^ +(-\S+)", told, re.MULTILINE)).replace(",", " "))
    return set(options), re.findall(r"^ +([a-z]+) ", told.partition("\nSubcommands:\n")[2], re.MULTILINE)


def tags(page):
    # The plain text of the tags of a page's lists.
    for tag in re.findall(r"^\.TP\n(.*)", (PAGES / page).read_text(), re.MULTILINE):
        yield re.sub(r"^\.[A-Z]+ ", "", re.sub(r"\\f.", "", tag)).replace("\\-", "-").replace('"', "")


class Manual(unittest.TestCase):
    def test_daemons(self):
        for name in ("kelnmsd", "kelrshd"):
            options, _ = options_of(os.environ[name.upper()])
            self.assertEqual(sorted(OPTION.findall(" ".join(tags(name + ".8")))), sorted(options), name)

    def test_kel(self):
        told, documented = {}, {"": []}

        def walk(*words):
            options, commands = options_of(KEL, *words)
            for command in commands:
                walk(*words, command)
            if not commands or not words:
                told[" ".join(words)] = sorted(options - ({"-h", "--help", "--help-all"} if words else set()))

        walk()
        for tag in tags("kel.1"):
            name = re.match("[a-z ]*", tag).group().strip()
            documented.setdefault(name, []).extend(OPTION.findall(tag))
        self.assertEqual({name: sorted(options) for name, options in documented.items()}, told)


run()
