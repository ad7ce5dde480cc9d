# The completion scripts of kel and of the daemons, run by bash.

import os
import pathlib
import subprocess

from driving import KEL, KelCase, run

# Completes the last word of a line, as bash would call the function.
DRIVER = r"""
source <("$0" completion bash) && source "$1"
COMP_WORDS=("${@:2}") COMP_CWORD=$(($# - 2))
[[ $2 != kel ]] || COMP_WORDS[0]=$0
"$([[ $2 = kel ]] && echo _kel || echo _kelstdmt_daemon)" "$2"
printf '%s\n' "${COMPREPLY[@]-}"
"""
DAEMONS = pathlib.Path(__file__).resolve().parents[2] / "tools" / "service" / "completion.bash"


class Completion(KelCase):
    def test_words_files_and_keys(self):
        files, keys = ["one file", "other"], ["software/orv/", "software/other one/"]
        for name in files:
            (self.here / name).touch()
        for key in (*keys, "solo"):
            self.run_kel("reg", "set", key.rstrip("/"), "v", "1")
        for line, found in (("kel co", ["completion", "conf"]), ("kel nothing ", []),
                            ("kel reg ls --ma", ["--machine"]), ("kel reg ", "del export get import ls set".split()),
                            ("kel cp --links = e", ["expand"]), ("kel mon set f n 1 --type re", ["real"]),
                            ("kel mon watch -n ", []), ("kel sum -- o", files), ("kel conf get --json o", files),
                            ("kel conf get f o", []), ("kel reg ls so", ["software/", "solo/"]),
                            ("kel reg get software/o", keys), ("kel reg import --to sol", ["solo/"]),
                            (os.environ["KELNMSD"] + " --l", ["--listen", "--log"])):
            told = subprocess.run(["bash", "--norc", "-c", DRIVER, KEL, DAEMONS, *line.split(" ")], capture_output=True,
                                  text=True, cwd=self.here, env=self.environment, timeout=120)
            self.assertEqual((sorted(filter(None, told.stdout.split("\n"))), told.stderr), (found, ""), line)


run()
