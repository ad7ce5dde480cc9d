# Runs the built kel in a folder of its own, away from the caller's settings.

import base64
import json
import os
import pathlib
import random
import select
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

KEL = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 1 else "kel"

IS_SANITIZED = bool(os.environ.get("KELSTDMT_SANITIZE"))
AS_ROOT = ["--allow-root"] * (os.geteuid() == 0)


def peak(process):
    # The MiB of memory that it has needed; sanitizers need as much as they like.
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return 0 if IS_SANITIZED else int(status.split("VmHWM:")[1].split()[0]) // 1024


def await_end(process_id):
    # Of a process that may be nobody's child here.
    try:
        with os.fdopen(os.pidfd_open(process_id)) as end:
            assert select.select([end], [], [], 60)[0], f"process {process_id} goes on"
    except ProcessLookupError:
        pass


def free_port():
    # One below those that the system gives to clients, whose connections would hold it for a while after their end.
    first_given = int(pathlib.Path("/proc/sys/net/ipv4/ip_local_port_range").read_text().split()[0])
    while True:
        with socket.socket() as probe:
            try:
                probe.bind(("", port := random.randrange(first_given // 2, first_given)))
                return port
            except OSError:
                pass


def exact(entry, name):
    # The bytes of a member that holds any bytes.
    coded = entry.get(name + "_base64")
    return base64.b64decode(coded, validate=True) if coded is not None else entry[name].encode()


class KelCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="kel-")
        self.addCleanup(folder.cleanup)
        self.here = pathlib.Path(folder.name)
        self.environment = dict(os.environ, KELSTDMT_REGISTRY=str(self.here / "registry"), LC_ALL="C.UTF-8",
                                TERM="xterm", LSAN_OPTIONS="exitcode=99", ASAN_OPTIONS="exitcode=99")

    def run_kel(self, *arguments, code=0, input=b""):
        # Standard output as bytes; checks the exit code, and that a failure is told on one line.
        done = subprocess.run([KEL, *map(os.fsencode, arguments)], input=input, capture_output=True, cwd=self.here,
                              env=self.environment, timeout=120)
        self.complaint = done.stderr.decode(errors="surrogateescape")
        self.assertEqual(done.returncode, code, f"kel {arguments}: {done.stdout!r} {self.complaint}")
        if code == 0:
            self.assertEqual(self.complaint, "", f"kel {arguments}")
        else:
            self.assertRegex(self.complaint, r"\Akel[a-z ]*: .", f"kel {arguments}")
        return done.stdout

    def started(self, *command, **options):
        # A process that ends with the test.
        process = subprocess.Popen([*map(os.fsencode, map(str, command))], env=self.environment, cwd=self.here, **options)
        for pipe in filter(None, (process.stdin, process.stdout, process.stderr)):
            self.addCleanup(pipe.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def daemon(self, program, *arguments, **options):
        # A daemon in the foreground, which is_ready or has ended; what it told before is in told.
        daemon = self.started(os.environ[program], "--foreground", *arguments, stdout=subprocess.PIPE, **options)
        daemon.told = []
        while (line := daemon.stdout.readline()) not in (b"ready\n", b""):
            daemon.told.append(line)
        daemon.is_ready = line != b""
        self.addCleanup(self.expect_orderly_end, daemon)
        return daemon

    def expect_orderly_end(self, daemon):
        # Of one that the test has left running; a sanitizer tells by the code what it has found.
        if daemon.poll() is None:
            daemon.send_signal(signal.SIGCONT)
            daemon.terminate()
            self.assertEqual(daemon.wait(60), 0, f"{daemon.args} does not end as it should")

    def name_server(self, *arguments):
        # A name server of our own, on a port that was free a moment ago.
        for _ in range(5):
            port = free_port()
            daemon = self.daemon("KELNMSD", "--port", port, *arguments)
            if daemon.is_ready:
                self.environment["ORVNMSPORT"] = str(port)
                return daemon
        self.fail(f"kelnmsd {arguments} does not serve on port {port}: it ended with {daemon.wait(60)}")

    def awaits(self, look, is_right, what):
        # What comes in its own time: the first that is right of what is seen.
        until = time.monotonic() + 60
        while not is_right(seen := look()):
            self.assertGreater(until, time.monotonic(), f"expected {what}, saw {seen}")
            time.sleep(0.01)
        return seen

    def json_of(self, *arguments):
        return json.loads(self.run_kel(*arguments, "--json").decode())


class RemoteCase(KelCase):
    def setUp(self):
        super().setUp()
        self.environment["SHELL"] = "/bin/sh"
        self.name_server()

    def start(self, *words, **streams):
        given = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE) | streams
        return self.started(KEL, "rsh", *words, **given)


def run():
    # A caller may ignore them, as nohup does, and shells do for background jobs.
    for each in (signal.SIGHUP, signal.SIGQUIT):
        signal.signal(each, signal.SIG_DFL)
    signal.signal(signal.SIGINT, signal.default_int_handler)
    unittest.main(verbosity=1)
