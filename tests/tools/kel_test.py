# kel as its users meet it: exit codes, texts and JSON, against files that python writes and reads. What its help tells
# is held to the manual pages.

import functools
import json
import operator
import os
import pathlib
import random
import re
import subprocess

from driving import IS_SANITIZED, KEL, KelCase, exact, run

ODD_NAMES = [b"plain", "gr\u00fc\u00df".encode(), b"\xff\xfe bytes", b"quote\" and space", b"line\nend", b"\x01\x7f",
             b"[a,b]", b"{}", b"ls", b"-dash"]
ODD_BYTES = ODD_NAMES + [b"", b"-5", b"--json", b"\xed\xa0\x80", b"\xc0\x80", b"C:\\a", b"x" * 5000]


class CommandLine(KelCase):
    def test_wrong_usage(self):
        for line, word in [("reg", "required"), ("reg nothing -x", "no such command: nothing"), ("", ""),
                           ("cp a b --links", "--links: its value"), ("reg get a b c d", "expected: c"),
                           ("mon watch f -n nan", ""), ("mon watch f --count 0", ""), ("reg set a b", ""),
                           ("cp a b --new --merge", ""), ("reg ls --user --machine", "")]:
            self.assertEqual(self.run_kel(*line.split(), code=2), b"", line)
            self.assertRegex(self.complaint, rf"(?s){word}.*--help'\.")

    def test_session_of_the_page(self):
        # Each line of the session in doc/kel.md that begins with a dollar prints what stands below it.
        page = (pathlib.Path(__file__).parents[2] / "doc/kel.md").read_text()
        session = re.search(r"\n## A session\n+```\n(.*?)```", page, re.S).group(1)
        for line, printed in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", session, re.M):
            done = subprocess.run(["bash", "-c", 'kel() { "$0" "$@"; }\n' + line, KEL], cwd=self.here, text=True,
                                  env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            self.assertEqual(done.stdout, printed, line)

    def test_output_that_cannot_be_written(self):
        for command in ("reg ls -r", "--help", "completion bash"):
            with open("/dev/full", "wb") as full:
                kel = self.started(KEL, *command.split(), stdout=full, stderr=subprocess.DEVNULL)
                self.assertEqual(kel.wait(60), 1, command)


class Registry(KelCase):
    def stored(self, *layer):
        folders = self.json_of("reg", "ls", "-r", *layer)
        return {exact(f, "key"): {exact(v, "name"): (v["type"], exact(v, "value")) for v in f["values"]}
                for f in folders}

    def test_any_bytes_there_and_back(self):
        chance, model = random.Random(1), {b"": {}}
        for number in range(12 if IS_SANITIZED else 40):
            parts = chance.sample(ODD_NAMES, chance.randint(1, 3))
            key, name, value = b"\\".join(parts), chance.choice(ODD_NAMES + [b""]), chance.choice(ODD_BYTES)
            kind = chance.choice([1, 1, 3, 4])
            if kind == 1 and chance.random() < 0.5:
                self.run_kel("reg", "set", "--", key.replace(b"\\", b"/"), name, value)
            else:
                value += b"\0\r" if kind != 1 else b""
                self.run_kel("reg", "set", "--stdin", "--type", str(kind), "--", key, name, input=value)
            model = {b"\\".join(parts[:depth]): {} for depth in range(1, len(parts) + 1)} | model
            model[key][name] = (kind, value)
            read = self.run_kel("reg", "get", "--", key.upper() if number % 2 else key, name)
            self.assertEqual(read, value + (b"\n" if kind == 1 else b""))
        self.assertEqual(self.stored(), model)
        export = self.run_kel("reg", "export")
        self.run_kel("reg", "import", "--machine", input=export)
        self.assertEqual(self.stored("--machine"), model)
        self.assertEqual(json.loads(export)["format"], "kelstdmt registry 1")
        self.run_kel("reg", "import", "--to", "other/place", input=self.run_kel("reg", "export", "plain"))
        model = {b"other\\place" + key[5:]: values for key, values in model.items() if (key + b"\\")[:6] == b"plain\\"}
        stored = {key: values for key, values in self.stored().items() if key.startswith(b"other\\place")}
        self.assertEqual(stored, model)

    def test_texts_and_failures(self):
        self.run_kel("reg", "set", "a/b", "Port", "-5")
        self.run_kel("reg", "set", "a", "", "x\033[2J")
        self.assertEqual(self.run_kel("reg", "ls", "A"), b"b\\\n(default) = x\\x1B[2J\n")
        self.run_kel("reg", "set", "--stdin", "--type", "3", "a/b", "bytes", input=b"\0\1")
        self.assertEqual(self.run_kel("reg", "ls", "a/b"), b"bytes = (type 3, 2 bytes) \\x00\\x01\nport = -5\n")
        self.assertEqual(self.json_of("reg", "get", "a/b", "Port"), {"name": "Port", "type": 1, "value": "-5"})
        self.assertEqual([value["name"] for value in self.json_of("reg", "ls", "a/b")["values"]], ["bytes", "port"])
        for line, complaint in [("get a/b none", "no such value: none"), ("ls c", "no such key: user: c"),
                                ("get a.b c", "not a key"), ("get a c/d", "not a name"), ("del a", "has subkeys"),
                                ("del /", "the root"), ("import none", "No such file"),
                                ("import .", "cannot read: .: Is a directory"),
                                ("import /dev/null", "not an export: /dev/null")]:
            self.assertEqual(self.run_kel("reg", *line.split(), code=1), b"")
            self.assertIn(complaint, self.complaint)
        for line in ("import", "set a b --stdin"):
            folder = os.open("/", os.O_RDONLY)
            kel = self.started(KEL, "reg", *line.split(), stdin=folder, stderr=subprocess.PIPE)
            os.close(folder)
            self.assertIn(b"cannot read: standard input: Is a directory", kel.communicate()[1])
        self.run_kel("reg", "del", "a/b", "port")
        self.run_kel("reg", "del", "-r", "a")
        self.assertEqual(self.run_kel("reg", "ls", "-r"), b"\n")

    def test_imports_that_are_none_change_nothing(self):
        def document(*keys, format="kelstdmt registry 1"):
            return json.dumps({"format": format, "key": "k", "keys": keys}).encode()

        good = {"key": "good", "values": [{"name": "a", "type": 1, "value": "1"}]}
        bad = [{"key": "x"}, {"key": "a.b", "values": []}, {"key": "a\\\\b", "values": []}]
        bad += [{"key": "x", "values": [value]} for value in (
            {"name": "a/b", "value": ""}, {"name": "a", "type": 1.5, "value": ""}, {"name": "a", "value": 1},
            {"name": "a", "type": -3, "value": ""}, {"name": "a" * 251, "value": ""},
            {"name": "a", "value": "a" * (16 << 20 | 1)}, {"name": "a", "value_base64": "abc"},
            {"name": "a", "value": "a\0b"})]
        for data in [b"", b"[1,]", b"[1e999]", b"null", b"\xff", b'"\\ud800"', b"[" * 100000, document(format="other"),
                     document(good) + b"x", *(document(good, key) for key in bad)]:
            with self.subTest(data[:200]):
                self.run_kel("reg", "import", code=1, input=data)
                self.assertNotIn("json.exception", self.complaint)
        self.assertEqual(self.run_kel("reg", "ls"), b"")


class Files(KelCase):
    def test_settings(self):
        file = self.here / "settings"
        file.write_bytes(b"b : 2\nno colon\n a:\xff\033\nb:3\nempty:\n")
        self.assertEqual(self.json_of("conf", "list", "settings"),
                         [{"name": "a", "value": "\ufffd\033", "value_base64": "/xs="}, {"name": "b", "value": "3"},
                          {"name": "empty", "value": ""}])
        self.assertEqual(self.run_kel("conf", "list", "settings"), b"a:\\xFF\\x1B\nb:3\nempty:\n")
        self.assertEqual(self.run_kel("conf", "get", "settings", "a"), b"\xff\033\n")
        for line, complaint in [("get settings d", "no such name: d"), ("set settings a:b 1", "not a name"),
                                ("list none", "cannot open: none"), ("set none a 1\n2", "one line")]:
            self.run_kel("conf", *line.split(" "), code=1)
            self.assertIn(complaint, self.complaint)
        self.run_kel("conf", "set", "settings", "c", " x:y")
        self.run_kel("conf", "set", "settings", "--", "b", "-1")
        self.run_kel("conf", "del", "settings", "empty")
        self.assertEqual(file.read_bytes(), b"a:\xff\033\nb:-1\nc: x:y\n")

    def test_sums(self):
        expected = {}
        for name, size in (b"plain", 70000), (b"[a,b]", 0), (b"\xff", 1):
            data = random.Random(2).randbytes(size)
            (self.here / os.fsdecode(name)).write_bytes(data)
            expected[name] = size % 65536 << 16 | sum(data) % 256 << 8 | functools.reduce(operator.xor, data, 0)
        self.assertEqual({exact(e, "file"): e["sum"] for e in self.json_of("sum", *expected)}, expected)
        self.assertEqual(self.run_kel("sum", "[a,b]", "none", ".", code=1), b"00000000  [a,b]\n")
        self.assertEqual(self.complaint.count("kel sum: "), 2)
        self.assertIn("File or directory does not exist: none", self.complaint)

    def test_copies(self):
        tree, copy = self.here / "tree", self.here / "deep/tree"
        (tree / "in ner").mkdir(parents=True)
        (tree / "in ner" / os.fsdecode(b"\xff")).write_bytes(b"1")
        (tree / "file").write_bytes(b"2" * 100000)
        (tree / "link").symlink_to("file")
        for line, is_link, has_link in (("deep/", True, True), ("deep/tree --replace --links expand", False, True),
                                        ("deep/tree --replace --links=ignore", False, False)):
            self.run_kel("cp", "tree", *line.split())
            self.assertEqual((copy / "file").read_bytes(), b"2" * 100000, line)
            self.assertEqual(((copy / "link").is_symlink(), (copy / "link").exists()), (is_link, has_link), line)
            self.assertEqual(os.listdir(os.fsencode(copy / "in ner")), [b"\xff"])
        self.run_kel("cp", "tree/file", "tree/in ner", "deep")
        self.assertEqual(sorted(os.listdir(self.here / "deep")), ["file", "in ner", "tree"])
        self.run_kel("cp", "tree/file", "deep/file", "--new", code=1)
        self.assertIn("File exists: deep/file", self.complaint)
        for line in ("tree/file deep/file none", "tree tree/in", "none x", "/ deep/"):
            self.run_kel("cp", *line.split(), code=1)
        self.assertTrue(self.complaint.endswith(": /\n"), self.complaint)


run()
