"""kelnmsd and an independent client: it speaks the protocol by its bytes, keeps a model of what must be registered, and
is as unpleasant as a peer can be."""

import os
import random
import resource
import select
import signal
import struct
import subprocess
import time
import zlib

from driving import IS_SANITIZED, KelCase, run
from names_peer import DELETE, PING, QUERY, REGISTER, SHUTDOWN, VERSION, Client, Records, record, request
from peer import ints

EMPTY = {}



class NameServer(KelCase):
    def server(self, *arguments, limits=()):
        """One that serves, with the journal unless it is told otherwise."""
        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            for which, value in limits:
                resource.setrlimit(which, (value, value))

        journal = [] if "--no-journal" in arguments else ["--journal", "journal"]
        daemon = self.daemon("KELNMSD", "--port", 0, *journal, preexec_fn=limit, stderr=subprocess.PIPE)
        self.assertTrue(daemon.is_ready)
        self.port = int(daemon.told[0].split()[1])
        self.journal = self.here / "journal"
        return daemon

    def ends(self, daemon, number):
        """What it complained of."""
        daemon.send_signal(number)
        complaints = daemon.communicate(timeout=60)[1].decode()
        self.assertEqual(daemon.returncode, 0 if number == signal.SIGTERM else -number)
        return complaints

    def ask(self, code, *body):
        with Client(self.port, request(code, record(*body) if body else b"")) as peer:
            return peer.answer(code)

    def values(self, fields=EMPTY):
        """The values of the first fields of the records that match."""
        return [list(found.values())[0] for _, found in self.ask(QUERY, fields)]

    def test_requests_follow_a_model(self):
        """Random ones, many on one connection, in pieces of any size; and the server is killed between them."""
        chance, model = random.Random(5), Records()
        names = ["_ServerName", "_PortNumber", "Host", "ö", ""]
        for _ in range(4):
            daemon = self.server()
            self.assertEqual(self.ask(QUERY, EMPTY), model.kept, "after the restart")
            with Client(self.port) as peer:
                for _ in range(150):
                    batch = []
                    for _ in range(chance.choice([1, 1, 20])):
                        fields = {name: str(chance.randrange(chance.choice([2, 40]))) for name in
                                  chance.sample(names, chance.randrange(len(names)))}
                        code = chance.choice([REGISTER, REGISTER, REGISTER, QUERY, DELETE if fields else QUERY])
                        batch.append((code, fields, chance.choice([0, 0, os.getpid(), 1]) if code == REGISTER else 0))
                    peer.say(b"".join(request(code, record(fields, process)) for code, fields, process in batch),
                             chance.choice([1 << 20, 1, 17]))
                    for asked in batch:
                        self.assertEqual(peer.answer(asked[0]), model.serve(*asked), asked)
            self.assertEqual(self.ask(QUERY, EMPTY), model.kept)
            self.ends(daemon, signal.SIGKILL)

    def test_nonsense_and_limits(self):
        daemon = self.server("--no-journal")
        for sent, answer in ((ints(101) + b"\1", b""), (request(2), b"\3"), (request(1) + request(99), b"\0\3"),
                             (request(3, ints(0, -1)), b"\3"), (request(5, ints(0, 257)), b"\3"),
                             (request(3, record({"a\0b": "c"})), b"\3"), (request(5, record({"a": "b" * 256})), b"\3"),
                             (request(3, ints(0, 1, 1 << 30, (1 << 30) - 1)), b"\3"), (request(4, ints(0, 1, 3, 3)), b"\3")):
            with Client(self.port, sent) as peer:
                self.assertEqual(peer.rest(), answer, sent[:40])
        largest = {"n" * 255: "v" * 255}
        self.assertEqual(self.ask(REGISTER, {"none": ""}, 1 << 30), 6, "a record of no process")
        self.assertEqual(self.ask(REGISTER, largest | {f"{i}": "" for i in range(255)}), 0)
        self.assertEqual(self.ask(DELETE, largest), (0, 1))
        self.assertEqual((list(self.ask(VERSION)[1])[0], self.ask(PING), self.ask(SHUTDOWN)), ("Version", 0, 0))
        self.assertEqual(daemon.wait(60), 0)

    def test_a_crowd(self):
        """Silent, half, resetting and unread peers; meanwhile everybody else is served at once."""
        self.server("--no-journal")
        count = 10000
        with Client(self.port) as peer:
            for first in range(0, count, 500):
                peer.say(b"".join(request(REGISTER, record({"_ServerName": f"server {i}", "all": "1"}))
                                  for i in range(first, first + 500)))
                self.assertEqual({peer.answer(REGISTER) for _ in range(500)}, {0})
        began = time.monotonic()
        unread = [Client(self.port, request(QUERY, record({"all": "1"})) * 50) for _ in range(20)]
        others = [Client(self.port, request(REGISTER, record({"half": "1"}))[:i % 30]) for i in range(700)]
        for i in range(300):
            Client(self.port, request(QUERY, record(EMPTY))[:i % 14]).leave("cut")
        for i in range(300):
            asked = time.monotonic()
            self.assertEqual(self.values({"_ServerName": f"server {i}"}), [f"server {i}"])
            self.assertLess(time.monotonic() - asked, 5, "seconds of a query among silent peers")
        self.assertEqual([r[1]["_ServerName"] for r in unread[7].answer(QUERY)], [f"server {i}" for i in range(count)], "read late")
        for peer in unread[8:]:  # their end tells the server nothing but that
            peer.leave("cut")
        flood = [Client(self.port) for _ in range(1100)]
        self.assertEqual(self.ask(PING), 0)
        self.assertEqual(others[20].rest(), b"", "the end of a peer that was idle longest")
        for peer in flood[:-1] + others + unread[:8]:
            peer.close()
        self.assertEqual(self.ask(DELETE, {"all": "1"}), (0, count))
        self.assertEqual(flood[-1].rest(), b"", "the end of a silent peer")
        flood[-1].close()
        self.assertGreater(time.monotonic() - began, 9, "a silent peer was dropped too early")

    def test_records_of_processes(self):
        daemon = self.server()
        self.assertEqual(self.ask(REGISTER, {"kept": ""}), 0)
        dying, staying, later = self.started("sleep", 1000), self.started("sleep", 1000), self.started("sleep", 1000)
        for sleeper, name in ((dying, "a"), (dying, "b"), (staying, "c"), (later, "d"), (staying, "e")):
            self.assertEqual(self.ask(REGISTER, {"_ServerName": name, "of": "test"}, sleeper.pid), 0)
        self.assertEqual(self.ask(REGISTER, {"_ServerName": "a"}), 4, "a name that is held")
        dying.kill()
        dying.wait()
        of_test = {"of": "test"}
        self.assertEqual([r[0] for r in self.ask(QUERY, of_test)], [staying.pid, later.pid, staying.pid])
        self.assertEqual(self.ask(REGISTER, {"_ServerName": "a"} | of_test), 0, "the name of a dead process")
        self.ends(daemon, signal.SIGKILL)
        later.kill()
        later.wait()
        daemon = self.server()
        self.assertEqual([(r[0], r[1]["_ServerName"]) for r in self.ask(QUERY, of_test)],
                         [(staying.pid, "c"), (staying.pid, "e"), (0, "a")], "after both ended")
        self.assertEqual(self.ends(daemon, signal.SIGTERM), "")
        # The id is another process's by now: the births in the journal are of one that was before.
        entries, at = bytearray(self.journal.read_bytes()), 17
        while at < len(entries):
            length = struct.unpack_from(">i", entries, at)[0]
            if entries[at + 8:at + 9] == b"+" and struct.unpack_from(">I", entries, at + 25)[0] == staying.pid:
                entries[at + 24] ^= 1
                struct.pack_into(">I", entries, at + 4, zlib.crc32(entries[at + 8:at + 8 + length]))
            at += 8 + length
        self.journal.write_bytes(entries)
        self.server()
        self.assertEqual(self.ask(QUERY, EMPTY), [(0, {"kept": ""}), (0, {"_ServerName": "a"} | of_test)])

    def test_a_damaged_journal(self):
        daemon, ends = self.server(), []
        for i in range(5):
            self.assertEqual(self.ask(REGISTER, {"n": str(i)}), 0)
            ends.append(self.journal.stat().st_size)
        self.refused("in use")
        self.ends(daemon, signal.SIGKILL)
        whole, copy = self.journal.read_bytes(), self.here / "journal.damaged"
        for what, found, left, said, is_copied in (
                ("a torn end", whole[:ends[4] - 3], 4, "unfinished", False),
                ("a torn head", whole[:ends[3] + 5], 4, "unfinished", False),
                ("a flipped byte", whole[:ends[1] + 12] + b"?" + whole[ends[1] + 13:], 2, "damaged", True),
                ("a length beyond the end", whole[:ends[0] + 1] + b"\x02" + whole[ends[0] + 2:], 1, "damaged", True),
                ("a huge length", whole[:ends[0]] + b"\x7f" + whole[ends[0] + 1:], 1, "damaged", True),
                ("zeros behind", whole + bytes(4096), 5, "damaged", True),
                ("half a header", whole[:9], 0, "", False)):
            self.journal.write_bytes(found)
            daemon = self.server()
            self.assertEqual(self.values(), [str(i) for i in range(left)], what)
            self.assertEqual(self.ask(REGISTER, {"after": "it"}), 0, what)
            self.assertIn(said, self.ends(daemon, signal.SIGKILL), what)
            self.assertEqual(copy.exists(), is_copied, what)
            if is_copied:
                self.assertEqual(copy.read_bytes(), found, what)
                copy.unlink()
            daemon = self.server()
            self.assertEqual((len(self.values()), self.ends(daemon, signal.SIGTERM)), (left + 1, ""), what)
        for found, said in ((b"kelstdmt names 2\nnew", "newer"), (b"my diary\n" * 9, "no journal")):
            self.journal.write_bytes(found)
            self.refused(said)
            self.assertEqual(self.journal.read_bytes(), found)

    def refused(self, words, *arguments, code=1):
        arguments = arguments or ("--foreground", "--port", "0", "--journal", "journal")
        done = subprocess.run([os.environ["KELNMSD"], *arguments], capture_output=True, text=True, timeout=60, cwd=self.here,
                              env=self.environment)
        self.assertEqual((done.returncode, done.stdout, words in done.stderr), (code, "", True), done.stderr)

    def test_a_full_disk_and_a_long_journal(self):
        daemon = self.server(limits=[(resource.RLIMIT_FSIZE, 1000)])
        statuses = [self.ask(REGISTER, {"n": str(i)}) for i in range(100)]
        count = statuses.index(9)
        self.assertEqual(statuses, [0] * count + [9] * (100 - count))
        self.assertEqual((self.ask(DELETE, EMPTY), len(self.values())), ((9, 0), count))
        self.assertIn("refused", self.ends(daemon, signal.SIGKILL))
        daemon = self.server()
        # Grows by 8 MB, and keeps few records.
        with Client(self.port) as peer:
            for i in range(200):
                pair = request(REGISTER, record({"big": str(i)} | {f"{k}": "x" * 255 for k in range(75)}))
                peer.say(pair * 2 + request(DELETE, record({"big": str(i)})))
                self.assertEqual((peer.answer(REGISTER), peer.answer(REGISTER), peer.answer(DELETE)), (0, 4, (0, 1)))
        self.assertLess(self.journal.stat().st_size, 1_100_000)
        self.ends(daemon, signal.SIGKILL)
        daemon = self.server()
        self.assertEqual(self.values(), [str(i) for i in range(count)])
        self.assertEqual(self.ends(daemon, signal.SIGKILL), "")

    def test_without_descriptors(self):
        """More processes and peers than there are descriptors."""
        if IS_SANITIZED:
            self.skipTest("sanitizers need descriptors themselves")
        daemon = self.server("--no-journal", limits=[(resource.RLIMIT_NOFILE, 64)])
        sleepers = [self.started("sleep", 1000) for _ in range(90)]
        for sleeper in sleepers:
            self.assertEqual(self.ask(REGISTER, {"_ServerName": str(sleeper.pid)}, sleeper.pid), 0)
        peers = [Client(self.port) for _ in range(100)]
        self.assertEqual(len(self.values()), 90)
        for sleeper in sleepers[::2]:
            sleeper.kill()
            sleeper.wait()
        self.assertEqual(self.ask(REGISTER, {"_ServerName": str(sleepers[0].pid)}), 0, "the name of a dead process")
        self.assertEqual([r[0] for r in self.ask(QUERY, EMPTY)], [s.pid for s in sleepers[1::2]] + [0])
        for peer in peers:
            peer.close()
        for sleeper in sleepers[1::2]:
            sleeper.kill()
            sleeper.wait()
        self.assertEqual(len(self.values()), 1)
        daemon.terminate()
        self.assertEqual(daemon.wait(60), 0)

    def test_a_daemon_and_wrong_usage(self):
        arguments = ["--port", "0", "--pid-file", "pid", "--listen", "127.0.0.1"]
        started = subprocess.run([os.environ["KELNMSD"], *arguments], capture_output=True, timeout=60, cwd=self.here,
                                 env=self.environment)
        self.assertEqual((started.returncode, started.stderr), (0, b""))
        self.port = int(started.stdout.split()[1])
        self.refused("held by process", *arguments)
        process = os.pidfd_open(int((self.here / "pid").read_text()))
        self.addCleanup(os.close, process)
        self.assertEqual(self.ask(SHUTDOWN), 0)
        self.assertTrue(select.select([process], [], [], 60)[0], "it goes on")
        self.assertFalse((self.here / "pid").exists())
        for line, code in (("--port x", 2), ("--no-such", 2), ("--port 70000", 2), ("--foreground --listen nowhere", 1),
                           ("--foreground --port 0 --journal .", 1)):
            self.refused("kelnmsd: ", *line.split(), code=code)


run()
