# kelrshd with a name server of its own, and a client that knows nothing but the messages: what it runs, refuses, logs
# and ends, and clients that lie, go, or take nothing.

import concurrent.futures
import os
import pathlib
import re
import select
import signal
import socket
import subprocess

from driving import AS_ROOT, KEL, KelCase, await_end, peak, run
from peer import MIB, Peer, ints
from rsh_peer import BREAK, CODE, END, ERROR, GO_ON_OUTPUT, HOLD_INPUT, HOLD_OUTPUT, INPUT, INPUT_END, KILL, NO_CODE
from rsh_peer import OUTPUT, Command, data, request

# Unknown tags lead no payload; those of the other direction are unknown too.
UNKNOWN = ints(0, 1, ERROR, OUTPUT, CODE, 10, 99, -5, NO_CODE, 0x7FFFFFFF, HOLD_INPUT, GO_ON_OUTPUT)


class RemoteShellServer(KelCase):
    def setUp(self):
        super().setUp()
        self.environment.update(XDG_RUNTIME_DIR=str(self.here), SHELL="/bin/sh")
        self.names = self.name_server()

    def server(self, *arguments):
        # One that is ready; its log is a file, and its port is the one that the name server tells.
        daemon = self.daemon("KELRSHD", "--log", "log", *AS_ROOT, *arguments)
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

    def log(self, pattern):
        # The lines behind their times, once one matches: the server writes when its client has gone.
        log = self.awaits((self.here / "log").read_text, lambda seen: re.search(pattern, seen, re.M),
                          f"a line like {pattern}")
        return re.findall(r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} (.*)\n", log, re.M)

    def fails(self, words, *arguments, **environment):
        done = subprocess.run([os.environ["KELRSHD"], *arguments], capture_output=True, text=True, timeout=60,
                              env=dict(self.environment, **environment), cwd=self.here)
        self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
        self.assertRegex(done.stderr, rf"\Akelrshd: .*{words}.*\n\Z")

    def test_commands(self):
        self.server()
        big = os.urandom(3 * MIB)
        fed = b"".join(data(INPUT, big[at:at + 100_001]) for at in range(0, len(big), 100_001)) + ints(INPUT_END)
        for command, sent, expected in (
                ('sh -c "cat; exit 7"', fed, (7, big, b"")), ('sh -c "cat >&2"', fed, (0, b"", big)),
                ("true", fed, (0, b"", b"")),  # ends before its input is read
                ('sh -c "exec >&- 2>&-; read l; exit $l"', data(INPUT, b"5\n"), (5, b"", b"")),  # closes its output
                ('sh -c "(sleep 0.1; echo late) & echo early; exit 4"', b"", (4, b"early\nlate\n", b"")),
                ("cat", UNKNOWN + data(INPUT, b"read") + ints(INPUT_END) + data(INPUT, b"late"), (0, b"read", b""))):
            self.says(expected, command, sent=sent)
        # What holds the output is part of the session, whose code is told at once.
        command = self.command("sleep 1000 & exit 3", shell=1)
        self.assertEqual((command.step(), command.code), (CODE, 3))

    def test_requests_that_are_refused(self):
        self.server()
        for command, folder, error, part in (
                ("/no/such", "", 3, "o such file"), ("", "", 3, ""), ("true", "/dev/null", 3, "not a folder"),
                ("true " + "x" * 300_000, "", 3, "long"), ("true", "d" * 300, 7, "")):
            *told, reason = self.command(command, folder).reason
            self.assertTrue(told == [10, error] and reason and part in reason, f"{told} {reason} for {command!r:.80}")

    def holds(self, daemon):
        # Descriptors and children.
        here = pathlib.Path(f"/proc/{daemon.pid}")
        return len(os.listdir(here / "fd")), sum(len(each.read_text().split()) for each in here.glob("task/*/children"))

    def test_clients_that_go_leave_nothing(self):
        daemon = self.server("--limit", 500)
        self.says((0, b"", b""), "true")
        held, before = self.holds(daemon), peak(daemon)
        sent = request("cat", "/") + data(INPUT, b"hello") + ints(INPUT_END)
        for how in ("close", "half", "cut"):
            for count in range(0, len(sent) + 1, 3):
                peer = Peer(socket.create_connection(("127.0.0.1", self.port)))
                peer.say(b"\0" + sent[:count])
                peer.take(1)
                answer = ints(0) if how == "half" and count >= len(request("cat", "/")) else b""
                self.assertEqual(peer.leave(how)[:4], answer, f"{how} after {count}")
        for way in ("close", "cut", ints(END), ints(INPUT, -1), ints(INPUT, 0x7FFFFFFF) + bytes(8 * MIB)):
            command = self.command('sh -c "sleep 1000 & echo $! $$; exec cat /dev/zero"')
            processes = map(int, command.line().partition("\n")[0].split())
            command.leave(way) if isinstance(way, str) else command.say(way)
            command.close()
            for process in processes:
                await_end(process)

        def repeat(_):
            self.says((0, b"x", b""), "cat", sent=data(INPUT, b"x") + ints(INPUT_END))
            self.says((137, b"", b""), "sleep 1000", sent=ints(KILL))

        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            list(pool.map(repeat, range(200)))
        self.awaits(lambda: self.holds(daemon), lambda now: all(map(int.__le__, now, held)), f"at most {held}")
        self.assertLess(peak(daemon) - before, 96)

    def test_signals_in_and_out_of_band(self):
        self.server()
        for flags in (0, socket.MSG_OOB):
            command = self.command('trap "echo caught; exit 5" INT; echo; while :; do sleep 0.01; done', shell=1)
            command.line()
            command.send(ints(BREAK), flags)
            self.assertEqual(command.finish(), (5, b"\ncaught\n", b""), flags)
        command = self.command("cat")
        for ignored in (0, INPUT_END, END, NO_CODE):
            command.send(ints(ignored), socket.MSG_OOB)
            command.say(data(INPUT, b"."))
            command.step()
        command.send(ints(KILL), socket.MSG_OOB)
        self.assertEqual(command.finish(), (137, b"....", b""))

    def test_more_than_anybody_takes(self):
        daemon = self.server()
        before = peak(daemon)
        command = self.command("sleep 1000")  # takes nothing
        while not select.select([command], [], [], 0)[0]:
            command.say(data(INPUT, bytes(MIB // 16)))
        self.assertEqual(command.step(), HOLD_INPUT)
        command.say(data(INPUT, bytes(8 * MIB)) + ints(KILL))  # as one that does not know what that means
        self.assertEqual(command.finish(), (137, b"", b""))
        # A channel that is held holds no other up, and nothing comes on it behind what shows that it is held.
        command = self.command("yes & while read line; do echo $line >&2; done; kill $!; exit 5", shell=1)
        command.say(ints(HOLD_OUTPUT) + data(INPUT, b"held\n"))
        while command.step() != ERROR:
            pass
        for _ in range(20):
            command.say(data(INPUT, b"through\n"))
            self.assertEqual(command.step(), ERROR)
        command.say(ints(GO_ON_OUTPUT))
        self.assertEqual(command.step(), OUTPUT)
        command.say(ints(INPUT_END))
        self.assertEqual(command.finish()[0], 5)
        self.assertLess(peak(daemon) - before, 96)

    def test_what_runs_is_in_the_log(self):
        self.server("--base", self.here, "--limit", 1)
        (self.here / "below").mkdir()
        self.says((0, os.fsencode((self.here / "below").resolve()) + b"\n", b""), "pwd", "below")
        self.says((3, b"a\n", b"b\n"), "echo a; echo b >&2; exit 3 #\x1b[2J\n", "/", 1)
        self.assertTrue(self.command("nowhere-\r\"x").reason)
        left = self.command("sleep 600 & echo $!; wait; : " + "x" * 2000, shell=1)
        child = int(left.line())
        self.assertIn("1 commands run already", self.command("true").reason[2])
        left.close()
        await_end(child)
        for line, pattern in zip(self.log("client has left$"), (
                r'started \d+: "pwd" in ".*/below"', r"ended \d+: exit code 0",
                r'started \d+: shell "echo a;.* exit 3 #\\x1B\[2J\\n" in "/"', r"ended \d+: exit code 3",
                r'refused "nowhere-\\r\\"x": .+', r'started \d+: shell "sleep .{900,1100}"\.\.\. \(20\d\d bytes\).*',
                'refused "true": 1 commands run already, which is the limit',
                r"ended \d+: exit code 137 \(signal 9\), its client has left"), strict=True):
            self.assertRegex(line, rf"^127\.0\.0\.1 {pattern}$")
        # The place is free when the server has seen its client go.
        self.awaits(lambda: self.command("true").reason, lambda reason: not reason, "a free place")
        for _ in range(66):  # that say nothing: 64 more than the limit are kept
            peer = Peer(socket.create_connection(("127.0.0.1", self.port)))
            self.addCleanup(peer.close)
            peer.say(b"\0")
        self.log("127.0.0.1 refused: too many connections$")

    def test_the_end_of_the_server_ends_what_runs(self):
        daemon = self.server("--listen=127.0.0.1", "--listen=127.0.0.2")
        commands = [self.command("sleep 600 & echo $!; trap '' TERM; wait", shell=1, host=host)
                    for host in ("127.0.0.1", "127.0.0.2")]
        children = [int(command.line()) for command in commands]
        daemon.terminate()
        self.assertEqual([command.finish()[0] for command in commands] + [daemon.wait(60)], [137, 137, 0])
        for child in children:
            await_end(child)
        self.assertEqual(self.ports(), {})

    def test_a_daemon_and_what_keeps_a_second_from_starting(self):
        arguments = [*AS_ROOT, "--log", "log"]
        subprocess.run([os.environ["KELRSHD"], *arguments], check=True, env=self.environment, cwd=self.here, timeout=60)
        process = int((self.here / "kelrshd.pid").read_text())
        self.addCleanup(lambda: os.path.exists(f"/proc/{process}") and os.kill(process, signal.SIGKILL))
        self.fails(f"kelrshd.pid is held by process {process}", *arguments)
        for words, *wrong in (("folder nowhere", "--base=nowhere"), ("cannot write the log", "--log=/nowhere/log"),
                              ("listen on localhost", "--listen=localhost"), ("name kelrshd is taken",),
                              ("cannot listen on port", "--port", str(self.ports()["kelrshd"]))):
            self.fails(words, "--foreground", *AS_ROOT, *wrong)
        self.fails("no name server answers on port 1 of this machine", "--foreground", *AS_ROOT, ORVNMSPORT="1")
        self.server("--user-server")
        user = subprocess.run(["id", "-un"], capture_output=True, text=True, check=True).stdout.strip()
        self.says((0, b"mine\n", b""), "echo mine", port=self.ports()["kelrshd-" + user])
        os.kill(process, signal.SIGTERM)
        await_end(process)
        self.assertFalse((self.here / "kelrshd.pid").exists())
        for program in ("KELRSHD", "KELNMSD"):
            done = subprocess.run([os.environ[program], "--port", "70000"], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertRegex(done.stderr, r"\A(\w+): .*70000.*\nTry '\1 --help'\.\n\Z")
        if AS_ROOT:
            self.fails("every client would be root", "--foreground")

    def test_a_name_server_that_is_started_anew(self):
        self.server()
        self.names.kill()
        self.names.wait()
        self.log("the name server does not answer, so no client finds this one")
        self.assertTrue(self.daemon("KELNMSD", "--port", self.environment["ORVNMSPORT"]).is_ready)
        port = self.awaits(self.ports, lambda ports: "kelrshd" in ports, "kelrshd")["kelrshd"]
        self.says((0, b"found\n", b""), "echo found", port=port)
        self.log("registered again: the name server had lost the name kelrshd")

        def is_taken():
            return not any(subprocess.run([KEL, "nms", *words], env=self.environment, capture_output=True).returncode
                           for words in (("delete", "kelrshd"), ("register", "kelrshd", "1")))

        self.awaits(is_taken, bool, "the name, which kelrshd takes again each time that it looks")
        self.log("the name kelrshd has been taken by another server")


run()
