"""The completion script, run by bash."""

import os
import pathlib
import subprocess

from driving import KEL, KelCase, run

# Completes the last word of a line, as bash would call the function.
DRIVER = r"""
set -u
source <("$0" completion bash)
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
COMP_WORDS[0]=$0
_kel
printf '%s\n' "${COMPREPLY[@]-}"
"""


class Completion(KelCase):
    def complete(self, *words):
        found = subprocess.run(["bash", "--norc", "-c", DRIVER, KEL, "kel", *words], capture_output=True, text=True,
                               cwd=self.here, env=self.environment, timeout=120)
        self.assertEqual(found.stderr, "", words)
        return sorted(filter(None, found.stdout.split("\n")))

    def test_words(self):
        for line, found in [("", "completion conf cp mon nms reg rsh server sum"), ("co", "completion conf"), ("nothing ", ""),
                            ("reg ", "del export get import ls set"), ("reg ls --ma", "--machine"),
                            ("cp a b --links ", "expand ignore new"), ("cp --links = e", "expand"),
                            ("mon set f n 1 --type re", "real"), ("mon watch -n ", "")]:
            self.assertEqual(self.complete(*line.split(" ")), found.split(), line)
        for command in ([], ["reg"], ["reg", "import"], ["mon", "watch"]):
            self.assertIn("--help", self.complete(*command, "-"))

    def test_files(self):
        for name in ("one file", "other"):
            (self.here / name).touch()
        for words in (["sum", "o"], ["sum", "a", "o"], ["cp", "a", "b", "o"], ["conf", "get", "--json", "o"],
                      ["sum", "--", "o"], ["reg", "import", "--to", "k", "o"]):
            self.assertEqual(self.complete(*words), ["one file", "other"], words)
        self.assertEqual(self.complete("conf", "get", "f", "o"), [])

    def test_keys(self):
        for key in ("software/orv", "software/other one", "solo"):
            self.run_kel("reg", "set", key, "v", "1")
        self.run_kel("reg", "set", "--machine", "hers", "v", "1")
        for words, found in ((["ls", "so"], ["software/", "solo/"]), (["ls", "--machine", ""], ["hers/"]),
                             (["get", "software/o"], ["software/orv/", "software/other one/"]),
                             (["import", "--to", "sol"], ["solo/"])):
            self.assertEqual(self.complete("reg", *words), found, words)

    def test_daemons(self):
        script = pathlib.Path(__file__).resolve().parents[2] / "tools" / "service" / "completion.bash"
        line = 'source "$0"; COMP_WORDS=("$1" --l) COMP_CWORD=1; _kelstdmt_daemon "$1"; echo "${COMPREPLY[@]}"'
        for daemon, found in (("KELNMSD", "--listen --log"), ("KELRSHD", "--limit --listen --log")):
            told = subprocess.run(["bash", "--norc", "-c", line, script, os.environ[daemon]], capture_output=True, text=True)
            self.assertEqual((sorted(told.stdout.split()), told.stderr), (found.split(), ""))


if __name__ == "__main__":
    run()
