"""kelrshd with a name server of its own, and a client that knows nothing but the messages: what it runs, refuses, logs
and ends, and clients that lie, go, or take nothing."""

import os
import pathlib
import re
import select
import signal
import socket
import subprocess
import sys
import threading
import time

from driving import AS_ROOT, KelCase, await_end, peak, run
from peer import MIB, Peer, ints, text
from rsh_peer import BREAK, CODE, END, ERROR, GO_ON_OUTPUT, HOLD_INPUT, HOLD_OUTPUT, INPUT, INPUT_END, KILL, NO_CODE
from rsh_peer import OUTPUT, Command, data, request

TRAP = 'trap "echo caught; exit 5" INT; echo $$; while :; do sleep 0.01; done'
# Unknown tags lead no payload; those of the other direction are unknown too.
UNKNOWN = ints(0, 1, ERROR, OUTPUT, CODE, 10, 99, -5, NO_CODE, 0x7FFFFFFF, HOLD_INPUT, GO_ON_OUTPUT)
PUMP = """import os, signal
signal.signal(signal.SIGINT, lambda *_: os.write(2, b"caught"))
while block := os.read(0, 65536):
    while block: block = block[os.write(1, block):]
"""


class RemoteShellServer(KelCase):
    def setUp(self):
        super().setUp()
        self.environment.update(XDG_RUNTIME_DIR=str(self.here), SHELL="/bin/sh")
        self.names = self.name_server()

    def server(self, *arguments, **options):
        """One that is ready; its log is a file, and its port is the one that the name server tells."""
        daemon = self.daemon("KELRSHD", "--log", "log", *AS_ROOT, *arguments, **options)
        self.assertTrue(daemon.is_ready, f"kelrshd {arguments} does not serve")
        self.port = self.ports()["kelrshd"]
        return daemon

    def command(self, *arguments, port=None, **options):
        command = Command(port or self.port, *arguments, **options)
        self.addCleanup(command.close)
        return command

    def says(self, expected, *arguments, **options):
        self.assertEqual(self.command(*arguments, **options).finish(), expected, f"{arguments!r:.100} {options!r:.100}")

    def ports(self):
        return {record["server"]: record["port"] for record in self.json_of("nms", "list")["records"]}

    def log(self, *patterns):
        """The lines behind their times, once one matches each pattern: the server writes when its client has gone."""
        until = time.monotonic() + 60
        while True:
            lines = (self.here / "log").read_text().splitlines()
            missing = [pattern for pattern in patterns if not any(re.search(pattern, line) for line in lines)]
            if not missing:
                break
            self.assertGreater(until, time.monotonic(), f"expected lines like {missing}, saw {lines}")
            time.sleep(0.001)
        for line in lines:
            self.assertRegex(line, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} ")
        return [line.split(" ", 1)[1] for line in lines]

    def fails(self, words, *arguments, **environment):
        done = subprocess.run([os.environ["KELRSHD"], *arguments], capture_output=True, text=True, timeout=60,
                              env=dict(self.environment, **environment), cwd=self.here)
        self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
        self.assertRegex(done.stderr, rf"\Akelrshd: .*{words}.*\n\Z")

    def test_commands(self):
        self.server()
        os.mkfifo(self.here / "fifo")
        big = os.urandom(3 * MIB)
        fed = b"".join(data(INPUT, big[at:at + 100_001]) for at in range(0, len(big), 100_001)) + ints(INPUT_END)
        late = UNKNOWN + data(INPUT, b"in step") + ints(77, INPUT_END, INPUT_END) + data(INPUT, b"late")
        for command, sent, expected in (
                ('sh -c "cat; echo e >&2; exit 7"', data(INPUT, b"hello") + ints(INPUT, 0, INPUT_END), (7, b"hello", b"e\n")),
                ('sh -c "kill -9 $$"', b"", (137, b"", b"")),
                ("cat", fed, (0, big, b"")), ('sh -c "cat >&2"', fed, (0, b"", big)),
                ("true", fed, (0, b"", b"")),  # ends before its input is read
                ('sh -c "exec >&- 2>&-; read l; exit $l"', data(INPUT, b"5\n"), (5, b"", b"")),  # closes its output
                ('sh -c "(sleep 0.1; echo late) & echo early; exit 4"', b"", (4, b"early\nlate\n", b"")),
                ("cat", late, (0, b"in step", b""))):
            self.says(expected, command, sent=sent)
        for line in ("", " echo  'a  b'\t", 'echo "a  b" \'c"d\' "e\\"f"', 'echo "', "echo a\\", 'echo \\"',
                     "printf %s '\\\\' \"\\\\\" \\\\\\\"x", "echo a\necho b; echo c >&2; exit 3", '"echo" "both ends"',
                     'echo "$(echo "in $(echo "side")")"', "cat | tr a-z A-Z", 'x="a b"; echo "$x" \'$x\' $x', "pwd",
                     "echo " + "y" * 100_000, "no_such_command", 'printf %s "' + '\\\\" "' * 500 + '"'):
            local = subprocess.run(["/bin/sh", "-c", line], input=b"input", capture_output=True, cwd=self.here)
            self.says((local.returncode, local.stdout, local.stderr), line, str(self.here), 1, piece=len(line) or 1,
                      sent=data(INPUT, b"in") + data(INPUT, b"put") + ints(123, INPUT_END))
        # What holds the output is part of the session, whose code is told at once.
        for line, last, expected in (("cat fifo & exit 3", b"late", b"late"), ("sleep 1000 & exit 3", ints(KILL), b"")):
            command = self.command(line, str(self.here), 1)
            self.assertEqual((command.step(), command.code), (CODE, 3))
            (self.here / "fifo").write_bytes(last) if expected else command.say(last)
            self.assertEqual(command.finish(), (3, expected, b""))

    def test_requests_that_are_refused(self):
        daemon = self.server()
        (self.here / "plain").write_text("no program")
        for command, folder, error, part in (
                ("/no/such", "", 3, "o such file"), ("", "", 3, ""), (f"{self.here}/plain", "", 3, "denied"),
                ("true", "no such", 3, "not a folder"), ("true", "plain", 3, "not a folder"),
                ("true " + "x" * 300_000, "", 3, "long"), ("true", "d" * 300, 7, "")):
            told = self.command(command, folder).reason
            self.assertTrue(told[:2] == (10, error) and told[2] and part in told[2], f"{told} for {command!r:.80}")
        before = peak(daemon)
        for sent in (ints(-1), ints(0x7FFFFFFF) + bytes(100), ints(3), text(b"true") + ints(-1),
                     text(b"true") + ints(0x7FFFFFFF), ints(16 * MIB) + bytes(4 * MIB)):
            try:
                with Peer(socket.create_connection(("127.0.0.1", self.port))) as peer:
                    peer.say(b"\0" + sent)
                    self.assertEqual(peer.leave("half"), b"\1", sent[:20])
            except OSError:  # it hung up before all was sent
                pass
        self.assertLess(peak(daemon) - before, 96)

    def holds(self, daemon):
        """Descriptors and children."""
        here = pathlib.Path(f"/proc/{daemon.pid}")
        return len(os.listdir(here / "fd")), sum(len(each.read_text().split()) for each in here.glob("task/*/children"))

    def test_clients_that_go_leave_nothing(self):
        daemon = self.server("--limit", 500)
        self.says((0, b"", b""), "true")
        held = self.holds(daemon)
        asks = request("cat", "/")
        sent = asks + data(INPUT, b"hello") + ints(INPUT_END)
        for how in ("close", "half", "cut"):
            for count in range(0, len(sent) + 1, 3):
                peer = Peer(socket.create_connection(("127.0.0.1", self.port)))
                peer.say(b"\0" + sent[:count])
                peer.take(1)
                answer = ints(0) if how == "half" and count >= len(asks) else b""
                self.assertEqual(peer.leave(how)[:4], answer, f"{how} after {count}")
        for way in ("close", "half", "cut", ints(END), ints(INPUT, -1), ints(INPUT, NO_CODE), ints(INPUT, 100) + bytes(50),
                    ints(INPUT, 0x7FFFFFFF) + bytes(8 * MIB)):
            before = peak(daemon)
            command = self.command(f'sh -c "sleep 1000 & echo $! $$; exec cat >{os.devnull}"')
            processes = [int(word) for word in command.line().split()]
            command.leave(way) if isinstance(way, str) else command.say(way)
            if way in (ints(INPUT, -1), ints(INPUT, NO_CODE), ints(END)):
                self.assertEqual(command.rest(), b"", way)
            command.close()
            for process in processes:
                await_end(process)
            self.assertLess(peak(daemon) - before, 96, f"{way[:8]} took memory")

        def repeat():
            for _ in range(25):
                self.says((0, b"x", b""), "cat", sent=data(INPUT, b"x") + ints(INPUT_END))
                self.says((137, b"", b""), "sleep 1000", sent=ints(KILL))

        threads = [threading.Thread(target=repeat) for _ in range(8)]
        for step in (threading.Thread.start, threading.Thread.join):
            for each in threads:
                step(each)
        self.assertGreaterEqual(len([line for line in self.log() if "ended" in line]), 400)
        end = time.monotonic() + 30
        while self.holds(daemon) > held and time.monotonic() < end:
            time.sleep(0.01)
        self.assertLessEqual(self.holds(daemon), held)

    def test_signals_in_and_out_of_band(self):
        self.server()
        for flags in (0, socket.MSG_OOB):
            for tag, expected in ((BREAK, (5, b"caught\n", b"")), (KILL, (137, b"", b""))):
                command = self.command(TRAP, shell=1)
                ready = command.line().encode()
                command.send(ints(tag), flags)
                code, output, errors = command.finish()
                self.assertEqual((code, output.removeprefix(ready), errors), expected, (tag, flags))
        command = self.command("cat")
        for number, ignored in enumerate((0, INPUT_END, END, -1, NO_CODE, 0x7FFFFFFF)):
            command.send(ints(ignored), socket.MSG_OOB)
            command.say(data(INPUT, b"%d" % number))
            command.step()
        command.send(ints(KILL), socket.MSG_OOB)
        self.assertEqual(command.finish(), (137, b"012345", b""))

    def test_more_than_anybody_takes(self):
        daemon = self.server()
        before = peak(daemon)
        command = self.command("sleep 1000")  # takes nothing
        while not select.select([command], [], [], 0)[0]:
            command.say(data(INPUT, bytes(MIB // 16)))
        self.assertEqual(command.step(), HOLD_INPUT)
        command.say(data(INPUT, bytes(8 * MIB)) + ints(KILL))  # as one that does not know what that means
        self.assertEqual(command.finish(), (137, b"", b""))
        command = self.command('sh -c "echo $$; exec cat /dev/zero"')  # nobody takes anything, and one goes
        process = int(command.line().split("\n")[0])
        command.settimeout(0.5)
        with self.assertRaises(TimeoutError):
            command.say(data(INPUT, bytes(200 * MIB)))
        command.close()
        await_end(process)
        # A channel that is held holds no other up.
        command = self.command("yes & read line; echo $line >&2; read line; kill $!; exit 5", shell=1)
        command.say(ints(HOLD_OUTPUT))
        while select.select([command], [], [], 0.3)[0]:
            command.step()
        command.say(data(INPUT, b"through\n"))
        self.assertEqual((command.step(), command.outputs[ERROR]), (ERROR, b"through\n"))
        command.say(ints(GO_ON_OUTPUT))
        self.assertEqual(command.step(), OUTPUT)
        command.say(data(INPUT, b"\n"))
        self.assertEqual(command.finish()[0], 5)
        (self.here / "pump.py").write_text(PUMP)
        block, count = os.urandom(MIB), 48
        command = self.command(f"{sys.executable} {self.here}/pump.py", sent=data(INPUT, b"\n"))
        command.line()  # it is ready for a signal
        half = data(INPUT, block) * (count // 2)
        feeding = threading.Thread(target=command.say, args=[half + ints(BREAK) + half + ints(INPUT_END)])
        feeding.start()
        code, output, errors = command.finish()
        feeding.join()
        self.assertEqual((code, output == b"\n" + block * count, errors), (0, True, b"caught"))
        self.assertLess(peak(daemon) - before, 96)

    def test_what_runs_is_in_the_log(self):
        (self.here / "base" / "below").mkdir(parents=True)
        base = os.fsencode((self.here / "base").resolve())
        self.server("--base", "base", "--limit", 2)
        self.says((0, base + b"\n", b""), "pwd")
        self.says((0, base + b"/below\n", b""), "pwd", "below")
        self.says((3, b"a\n", b"b\n"), "echo a; echo b >&2; exit 3 #\x1b[2J\n", "/", 1)
        self.assertTrue(self.command("nowhere-\r\"x").reason)
        self.says((137, b"", b""), "kill -9 $$", shell=1)
        left = self.command("sleep 600 & echo $!; wait; : " + "x" * 2000, shell=1)
        child = int(left.line())
        self.log("137 .signal 9.$")
        other = self.command("cat")
        self.assertIn("2 commands run already", self.command("true").reason[2])
        left.close()
        await_end(child)
        lines = self.log("client has left", "limit$")
        started = [line for line in lines if " started " in line]
        for line, what in zip(started, (r'"pwd" in ".*base"|"pwd"', r'"pwd" in ".*base/below"',
                                        r'shell "echo a; echo b >&2; exit 3 #\\x1B\[2J\\n" in "/"', r'shell "kill -9 \$\$"',
                                        r'shell "sleep .*x"\.\.\. \(20\d\d bytes\)', r'"cat"'), strict=True):
            self.assertRegex(line, rf"^127\.0\.0\.1 started \d+: ({what})$")
            self.assertLess(len(line), 1200)
        ends = [next((end for end in lines if end.startswith("127.0.0.1 ended " + line.split()[2])), ": ") for line in started]
        self.assertEqual([end.split(": ")[1] for end in ends], ["exit code 0", "exit code 0", "exit code 3",
                         "exit code 137 (signal 9)", "exit code 137 (signal 9), its client has left", ""])
        self.assertRegex("\n".join(lines), r'127\.0\.0\.1 refused "nowhere-\\r\\"x": .')
        self.assertIn('127.0.0.1 refused "true": 2 commands run already, which is the limit', lines)
        while (late := self.command("echo late")).reason:
            pass  # the place is free when the server has seen its client go
        self.assertEqual(late.finish(), (0, b"late\n", b""))
        other.close()

    def test_the_end_of_the_server_ends_what_runs(self):
        for addresses in ([], ["--listen=127.0.0.1", "--listen=127.0.0.2"]):
            daemon = self.server(*addresses)
            commands = [self.command("sleep 600 & echo $!; trap '' TERM; wait", shell=1, host=host)
                        for host in ("127.0.0.1", "127.0.0.2", "127.0.0.2")]
            children = [int(command.line()) for command in commands]
            daemon.terminate() if not addresses else self.run_kel("server", "shutdown", f":{self.port}@127.0.0.2")
            self.assertEqual([command.finish()[0] for command in commands], [137] * 3)
            self.assertEqual(daemon.wait(60), 0)
            for child in children:
                await_end(child)
            self.assertEqual(self.ports(), {})

    def test_a_daemon_and_a_second_one(self):
        arguments = [*AS_ROOT, "--log", "log"]
        subprocess.run([os.environ["KELRSHD"], *arguments], check=True, env=self.environment, cwd=self.here, timeout=60)
        process = int((self.here / "kelrshd.pid").read_text())
        self.addCleanup(lambda: os.path.exists(f"/proc/{process}") and os.kill(process, signal.SIGKILL))
        self.says((0, b"here\n", b""), "echo here", port=self.ports()["kelrshd"])
        self.fails(f"kelrshd.pid is held by process {process}", *arguments)
        self.fails("name kelrshd is taken", *arguments, "--pid-file", "other.pid")
        self.fails("cannot listen on port", *arguments, "--foreground", "--port", str(self.ports()["kelrshd"]))
        self.server("--user-server")
        user = subprocess.run(["id", "-un"], capture_output=True, text=True, check=True).stdout.strip()
        self.says((0, b"mine\n", b""), "echo mine", port=self.ports()["kelrshd-" + user])
        os.kill(process, signal.SIGTERM)
        await_end(process)
        self.assertFalse((self.here / "kelrshd.pid").exists())

    def test_what_keeps_it_from_starting(self):
        self.fails("no name server answers on port 1 of this machine", "--foreground", *AS_ROOT, ORVNMSPORT="1")
        self.fails("folder nowhere", "--foreground", *AS_ROOT, "--base", "nowhere")
        self.fails("listen on localhost", "--foreground", *AS_ROOT, "--listen", "localhost")
        self.fails("cannot write the log", "--foreground", *AS_ROOT, "--log", "/nowhere/log")
        if AS_ROOT:
            self.fails("every client would be root", "--foreground")
            self.here.chmod(0o777)
            daemon = self.daemon("KELRSHD", "--log", "other-log", user=65534, group=65534, extra_groups=[])
            self.assertTrue(daemon.is_ready)
            self.says((0, b"65534\n", b""), "id -u", port=self.ports()["kelrshd"])

    def test_a_name_server_that_is_started_anew(self):
        for journal in ([], ["--journal", "names"]):
            names = self.name_server(*journal)
            daemon = self.server()
            names.kill()
            names.wait()
            self.assertTrue(self.daemon("KELNMSD", "--port", self.environment["ORVNMSPORT"], *journal).is_ready)
            while "kelrshd" not in self.ports():
                self.assertEqual(journal, [], "a journal keeps the name")
            self.says((0, b"found\n", b""), "echo found", port=self.ports()["kelrshd"])
            if not journal:
                self.assertIn("registered again: the name server had lost the name kelrshd", self.log("again"))
            daemon.terminate()
            daemon.wait()


run()
