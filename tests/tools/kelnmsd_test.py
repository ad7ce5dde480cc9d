# kelnmsd and an independent client: it speaks the protocol by its bytes, keeps a model of what must be registered, and
# is as unpleasant as a peer can be.

import os
import random
import resource
import signal
import struct
import subprocess
import zlib

from driving import IS_SANITIZED, KelCase, run
from names_peer import DELETE, PING, QUERY, REGISTER, SHUTDOWN, VERSION, Client, Records, record, request
from peer import ints


class NameServer(KelCase):
    def server(self, has_journal=True, limit=(resource.RLIMIT_CORE, (0, 0))):
        def start():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(*limit)

        self.journal = self.here / "journal"
        journal = ["--journal", "journal"] * has_journal
        daemon = self.daemon("KELNMSD", "--port", 0, *journal, preexec_fn=start, stderr=subprocess.PIPE)
        self.assertTrue(daemon.is_ready)
        self.port = int(daemon.told[0].split()[1])
        return daemon

    def killed(self, process):
        # What it complained of.
        process.kill()
        return process.communicate(timeout=60)[1]

    def ask(self, code, *body):
        with Client(self.port, request(code, record(*body) if body else b"")) as peer:
            return peer.answer(code)

    def names(self, fields={}):
        # Process and name of the records that match.
        return [(process, found["_ServerName"]) for process, found in self.ask(QUERY, fields)]

    def test_requests_follow_a_model(self):
        # Random ones, many on one connection, in pieces of any size; and the server is killed between them.
        chance, model = random.Random(5), Records()
        names = ["_ServerName", "_PortNumber", "Host", "ö", ""]
        for _ in range(4):
            daemon = self.server()
            self.assertEqual(self.ask(QUERY, {}), model.kept, "after the restart")
            with Client(self.port) as peer:
                for _ in range(150):
                    batch = []
                    for _ in range(chance.choice([1, 1, 20])):
                        fields = {name: str(chance.randrange(chance.choice([2, 40]))) for name in
                                  chance.sample(names, chance.randrange(len(names)))}
                        code = chance.choice([REGISTER, REGISTER, REGISTER, QUERY, DELETE if fields else QUERY])
                        batch.append((code, fields, chance.choice([0, 0, os.getpid(), 1]) if code == REGISTER else 0))
                    sent = b"".join(request(each[0], record(*each[1:])) for each in batch)
                    peer.say(sent, chance.choice([1 << 20, 1, 17]))
                    for asked in batch:
                        self.assertEqual(peer.answer(asked[0]), model.serve(*asked), asked)
            self.killed(daemon)

    def test_nonsense_and_limits(self):
        daemon = self.server(has_journal=False)
        for sent, answer in ((ints(101) + b"\1", b""), (request(PING) + request(99), b"\0\3"),
                             (request(3, ints(0, -1)), b"\3"), (request(3, record({"a\0b": "c"})), b"\3"),
                             (request(5, record({"a": "b" * 256})), b"\3")):
            with Client(self.port, sent) as peer:
                self.assertEqual(peer.rest(), answer, sent[:40])
        largest = {"n" * 255: "v" * 255}
        self.assertEqual(self.ask(REGISTER, largest | {f"{i}": "" for i in range(255)}), 0)
        self.assertEqual((list(self.ask(VERSION)[1])[0], self.ask(PING), self.ask(SHUTDOWN)), ("Version", 0, 0))
        self.assertEqual(daemon.wait(60), 0)

    def test_a_crowd(self):
        # Silent, half, resetting and unread peers; meanwhile everybody else is served at once.
        self.server(has_journal=False)
        expected = [(0, f"server {i}") for i in range(10000)]
        with Client(self.port) as peer:
            for first in range(0, len(expected), 500):
                names = [name for _, name in expected[first:first + 500]]
                peer.say(b"".join(request(REGISTER, record({"_ServerName": name})) for name in names))
                self.assertEqual({peer.answer(REGISTER) for _ in range(500)}, {0})
        unread = [Client(self.port, request(QUERY, record({})) * 50) for _ in range(20)]
        others = [Client(self.port, request(REGISTER, record({"half": "1"}))[:i % 30]) for i in range(700)]
        for i in range(300):
            Client(self.port, request(QUERY, record({}))[:i % 14]).leave("cut")
            self.assertEqual(self.names({"_ServerName": f"server {i}"}), expected[i:i + 1])
        self.assertEqual([(r[0], r[1]["_ServerName"]) for r in unread[7].answer(QUERY)], expected, "read late")
        flood = [Client(self.port) for _ in range(1100)]
        self.assertEqual(self.ask(PING), 0)
        self.assertEqual(others[20].rest(), b"", "the end of a peer that was idle longest")
        for peer in flood[:-1] + others + unread:
            peer.close()
        self.assertEqual(flood[-1].rest(), b"", "the end of a silent peer")

    def test_records_of_processes(self):
        # More of them, and of peers in the midst of a request, than descriptors; sanitizers need some themselves.
        daemon = self.server(limit=(resource.RLIMIT_NOFILE, (64 + 1000 * IS_SANITIZED,) * 2))
        dying, staying, later, *others = [self.started("sleep", 1000) for _ in range(90)]
        peers = [Client(self.port, request(PING)[:3]) for _ in range(100)]
        self.assertEqual(self.ask(REGISTER, {"none": ""}, 1 << 30), 6, "a record of no process")
        peers += [Client(self.port, request(PING)[:3]) for _ in range(10)]
        for name, sleeper in enumerate((dying, staying, later, staying, *others)):
            self.assertEqual(self.ask(REGISTER, {"_ServerName": str(name)}, sleeper.pid), 0)
        for sleeper in (dying, *others):
            self.killed(sleeper)
        self.assertEqual(self.names(), [(staying.pid, "1"), (later.pid, "2"), (staying.pid, "3")])
        for peer in peers:
            peer.close()
        self.assertEqual(self.ask(REGISTER, {"_ServerName": "0"}), 0, "the name of a dead process")
        self.killed(daemon)
        self.killed(later)
        daemon = self.server()
        self.assertEqual(self.names(), [(staying.pid, "1"), (staying.pid, "3"), (0, "0")], "after both ended")
        self.killed(daemon)
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
        self.assertEqual(self.names(), [(0, "0")])

    def test_a_damaged_journal(self):
        daemon, ends = self.server(), []
        expected = [(0, str(i)) for i in range(5)]
        for _, name in expected:
            self.assertEqual(self.ask(REGISTER, {"_ServerName": name}), 0)
            ends.append(self.journal.stat().st_size)
        self.refused("in use")
        self.killed(daemon)
        whole, copy = self.journal.read_bytes(), self.here / "journal.damaged"
        for what, found, left, said in (
                ("a torn end", whole[:ends[4] - 3], 4, "unfinished"), ("half a header", whole[:9], 0, ""),
                ("a flipped byte", whole[:ends[1] + 12] + b"?" + whole[ends[1] + 13:], 2, "damaged"),
                ("a huge length", whole[:ends[0]] + b"\x7f" + whole[ends[0] + 1:], 1, "damaged"),
                ("zeros behind", whole + bytes(4096), 5, "damaged")):
            self.journal.write_bytes(found)
            daemon = self.server()
            self.assertEqual(self.names(), expected[:left], what)
            self.assertEqual(self.ask(REGISTER, {"_ServerName": "new"}), 0, what)
            self.assertIn(said, self.killed(daemon).decode(), what)
            self.assertEqual(copy.read_bytes() if copy.exists() else b"", found if said == "damaged" else b"", what)
            copy.unlink(missing_ok=True)
            daemon = self.server()
            self.assertEqual((self.names(), self.killed(daemon)), ([*expected[:left], (0, "new")], b""), what)
        for found, said in ((b"kelstdmt names 2\nnew", "newer"), (b"my diary\n" * 9, "no journal")):
            self.journal.write_bytes(found)
            self.refused(said)
            self.assertEqual(self.journal.read_bytes(), found)

    def refused(self, words):
        done = subprocess.run([os.environ["KELNMSD"], *"--foreground --port 0 --journal journal".split()], text=True,
                              capture_output=True, cwd=self.here, timeout=60)
        self.assertEqual((done.returncode, done.stdout, words in done.stderr), (1, "", True), done.stderr)

    def test_a_full_disk_and_a_long_journal(self):
        daemon = self.server(limit=(resource.RLIMIT_FSIZE, (1000, 1000)))
        statuses = [self.ask(REGISTER, {"_ServerName": str(i)}) for i in range(100)]
        expected = [(0, str(i)) for i in range(statuses.index(9))]
        self.assertEqual(statuses, [0] * len(expected) + [9] * (100 - len(expected)))
        self.assertEqual((self.ask(DELETE, {}), self.names()), ((9, 0), expected))
        self.assertIn(b"refused", self.killed(daemon))
        daemon = self.server()
        # Grows by 8 MB, and keeps few records.
        with Client(self.port) as peer:
            for i in range(200):
                pair = request(REGISTER, record({"big": str(i)} | {f"{k}": "x" * 255 for k in range(75)}))
                peer.say(pair * 2 + request(DELETE, record({"big": str(i)})))
                self.assertEqual([peer.answer(code) for code in (REGISTER, REGISTER, DELETE)], [0, 4, (0, 1)])
        self.assertLess(self.journal.stat().st_size, 1_100_000)
        self.killed(daemon)
        daemon = self.server()
        self.assertEqual((self.names(), self.killed(daemon)), (expected, b""))


run()
