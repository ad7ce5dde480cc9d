# Programs at a terminal, as a person drives them.

import fcntl
import os
import pty
import re
import select
import struct
import sys
import termios
import time

from driving import KEL

try:
    os.close(pty.openpty()[0])
except OSError as error:
    print("no pseudo-terminals here:", error)
    sys.exit(77)

ENTER, LEAVE = b"\033[?1049h", b"\033[?1049l"


class Terminal:
    # kel, or another program, in a session of its own on a pseudo-terminal.

    def __init__(self, case, *arguments, program=KEL, rows=24, columns=80, **streams):
        self.case, self.seen = case, b""
        self.ours, self.theirs = pty.openpty()
        case.addCleanup(os.close, self.ours)
        case.addCleanup(os.close, self.theirs)
        self.resize(rows, columns)
        self.modes = termios.tcgetattr(self.theirs)
        given = {name: self.theirs for name in ("stdin", "stdout", "stderr")} | streams
        self.process = case.started(program, *arguments, start_new_session=True,
                                    preexec_fn=lambda: fcntl.ioctl(self.theirs, termios.TIOCSCTTY, 0), **given)

    def resize(self, rows, columns):
        fcntl.ioctl(self.theirs, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def await_bytes(self, pattern, keys=b""):
        # Types, and reads on until what came since the last call matches.
        os.write(self.ours, keys)
        deadline = time.monotonic() + 60
        while not (found := re.search(pattern, self.seen, re.S)):
            self.case.assertGreater(deadline, time.monotonic(), f"{pattern} did not come: {self.seen[-500:]}")
            if select.select([self.ours], [], [], 0.2)[0]:
                self.seen += os.read(self.ours, 65536)
        self.seen = self.seen[found.end():]
        return found

    def await_end(self, code, keys=b""):
        self.await_bytes(re.escape(LEAVE), keys)
        self.case.assertEqual(self.process.wait(60), code)
        self.case.assertEqual(termios.tcgetattr(self.theirs), self.modes)
