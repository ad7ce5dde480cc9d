# kel at a terminal: the table that is redrawn, the progress line, and the terminal as it was afterwards.

import os
import re
import signal
import subprocess
import termios

from driving import KelCase, run
from terminal import ENTER, LEAVE, Terminal


class AtATerminal(KelCase):
    def set(self, name, value, *more):
        self.run_kel("mon", "set", "m", name, value, *more)

    def watch(self, *more, **options):
        self.set("count", "1", "--type", "int", "--title", "Title")
        self.set("text", "a\033]b", "--type", "string")
        terminal = Terminal(self, "mon", "watch", "m", "-n", "0.05", *more, **options)
        terminal.await_bytes(re.escape(ENTER))
        return terminal

    def test_redraws_until_it_ends(self):
        for name, code in [("SIGINT", 0), ("SIGTERM", -signal.SIGTERM)]:
            terminal = self.watch()
            terminal.await_bytes(rb"Title.*NAME.*count +int +1 .*text +string +a\\x1B\]b")
            self.assertFalse(termios.tcgetattr(terminal.theirs)[3] & termios.ECHO)
            self.set("count", "12345")
            terminal.await_bytes(rb"count +int +12345 +" + "\u2581+\u2588+".encode())
            # A process whose parent is in another session is not stopped by the terminal, but by whoever asks.
            terminal.process.send_signal(signal.SIGTSTP)
            terminal.await_bytes(re.escape(LEAVE))
            terminal.process.send_signal(signal.SIGCONT)
            terminal.await_bytes(re.escape(ENTER) + rb".*NAME")
            terminal.process.send_signal(getattr(signal, name))
            terminal.await_end(code)
        self.watch("--count", "3").await_end(0)

    def test_sizes_and_moves(self):
        self.set("p", "0", "--type", "int", "--title", "Title")
        for number in range(19):
            self.set(f"p{number}", str(number), "--type", "int")
        terminal = self.watch(rows=10, columns=40)
        for keys, first in [(b"", b"1"), (b"\033[B", b"2"), (b"\033[6~", b"8"), (b"k", b"7"), (b"\033[5~", b"1"), (b"j", b"2"),
                            (b"\033[A", b"1"), (b"\033[F", b"17"), (b"\033[H", b"1"), (b"\033[F", b"17")]:
            terminal.await_bytes(first + rb" to \d+ of 22", keys)
        terminal.resize(12, 20)
        frame = terminal.await_bytes(rb"\033\[H((?:[^\033]*\033\[K\r*\n){10})\033\[J\033\[12;1H15 to 22").group(1)
        self.assertLessEqual(max(map(len, re.split("\033\\[K\r*\n", frame.decode()))), 20, frame)
        terminal.await_end(0, b"q")

    def test_file_that_is_replaced(self):
        terminal = self.watch()
        os.remove(self.here / "m")
        terminal.await_bytes(rb"cannot open")
        self.set("other", "true", "--type", "bool", "--title", "New")
        terminal.await_bytes(rb"New.*other +bool +true")
        with open(self.here / "m", "ab") as file:
            file.write(b"\0\0\0\7" + bytes(20))
        terminal.await_bytes(rb"24;1H.*[Ww]eird")
        terminal.await_end(0, b"\003")

    def test_progress_and_interruption(self):
        # One file 2,000 times is long work on every machine.
        (self.here / "file").write_bytes(b"x" * (1 << 25))
        terminal = Terminal(self, "sum", *["file"] * 2000, stdout=subprocess.DEVNULL)
        terminal.await_bytes(rb"\r\d+ files, [\d.]+ [MG]iB, [\d.]+ [KMG]iB/s +file *\033\[K")
        terminal.await_bytes(rb"\r\033\[Kkel sum: interrupted\r\n", b"\003")
        self.assertEqual(terminal.process.wait(30), -signal.SIGINT)


run()
