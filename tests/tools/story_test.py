# An evening at a new machine: one person at one terminal, from the first server to the last shutdown.

import os
import re
import signal

from driving import AS_ROOT, KEL, KelCase, free_port, run
from terminal import ENTER, LEAVE, Terminal

PROMPT = rb"\[(\d+)\]> "


class Evening(KelCase):
    def setUp(self):
        super().setUp()
        programs = [KEL, *(os.environ[name] for name in ("KELNMSD", "KELRSHD", "MIRROR", "REQUEST", "KGREP"))]
        self.environment.update(PATH=":".join([*map(os.path.dirname, programs), os.environ["PATH"]]), SHELL="/bin/sh",
                                HOME=str(self.here), XDG_RUNTIME_DIR=str(self.here), ORVNMSPORT=str(free_port()), PS1="[$?]> ")
        self.shell = Terminal(self, "-i", program="/bin/sh", columns=200)
        self.addCleanup(self.end_daemons)
        self.shell.await_bytes(PROMPT)
        self.types("stty -echo")

    def end_daemons(self):
        for file in self.here.glob("*.pid"):
            os.kill(int(file.read_text()), signal.SIGKILL)

    def types(self, line, *seen, code=0, end="\n"):
        # What is seen comes in this order before the next prompt, which tells the exit code; that is answered.
        keys = (line + end).encode()
        for pattern in seen:
            self.shell.await_bytes(pattern, keys)
            keys = b""
        prompt = self.shell.await_bytes(b"(.*?)" + PROMPT, keys)
        self.assertEqual(int(prompt[2]), code, f"{line}: {prompt[0]}")
        return prompt[1]

    def test_servers_and_settings(self):
        # Nobody is there yet, which is told with what to do.
        self.types("kel nms list", rb"no name server answers on this machine, port \d+ \(kelnmsd is one", code=1)
        self.types("kelnmsd --journal names.journal")
        self.types("request serve adder & while ! kel nms query adder; do :; done >queries 2>&1")
        self.types("kel nms list", rb"SERVER +PORT +PROCESS", rb"adder +\d+ +\d+")
        self.types("request calculate adder '6 * 7'", rb"= 42\b")

        # Commands elsewhere: typed input, a failure, an interruption, more than a pipe holds through both directions.
        self.types("kelrshd --base . " + " ".join(AS_ROOT))
        self.types("kel rsh localhost -- tr a-z A-Z\nhello", rb"HELLO", end="\n\004")
        self.types("kel rsh localhost -- sh -c 'exit 7'", code=7)
        self.shell.await_bytes(b"begun\r\n", b"kel rsh localhost -- sh -c 'echo begun; exec sleep 1000'\n")
        self.types("\003", code=130, end="")
        self.types("head -c 3000000 /dev/urandom >data; kel rsh localhost -- cat <data | cmp - data")
        self.types("mkdir there; tar c *.journal data | kel rsh --cwd there localhost -- tar x && cmp data there/data")

        # A copy that is set up in the registry, looked at while it stands, and changed.
        self.types("mkdir from; seq 1000 >from/numbers; ln -s numbers from/link")
        self.types("kel reg set examples/mirror Links skip; kel reg ls examples/mirror", rb"links = skip")
        self.types("mirror copy from to state", rb"links are left out", rb"1 link, 3,893 bytes", rb"every file has its size")
        self.types("ls -l to/link", code=2)
        self.types("kel sum from/numbers to/numbers | cut -c1-8 | uniq | wc -l", rb"\b1\b")
        self.types("kgrep --in-place -s 'thousand' -x 1000 to", code=0)
        self.types("kgrep thousand to", rb"numbers", rb"1000", rb"\033\[[\d;]+mthousand")
        self.shell.await_bytes(re.escape(ENTER) + b".*NAME", b"kel mon watch state/progress.mon\n")
        self.types("q", re.escape(LEAVE), end="")

        # A server that is killed is forgotten; what the journal holds comes back with the name server.
        self.types("kill -9 %1; wait %1", code=137)
        self.types("while kel nms query adder; do :; done >queries 2>&1")
        self.types("kill -9 $(cat kelnmsd.pid); kel nms list", code=1)
        self.types("kelnmsd --journal names.journal; kel rsh localhost -- echo back", rb"back")
        self.types("kel server shutdown kelrshd && kel nms shutdown && kel rsh localhost -- true", rb"no name server", code=255)


run()
