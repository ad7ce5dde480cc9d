"""kel as its users meet it: exit codes, help, texts and JSON, against files that python writes and reads."""

import filecmp
import functools
import json
import operator
import os
import pathlib
import random
import re
import subprocess

from driving import IS_SANITIZED, KEL, KelCase, exact, run

ODD_NAMES = [b"plain", "gr\u00fc\u00df".encode(), b"\xff\xfe bytes", b"quote\" and space", b"line\nend", b"\x01\x7f", b"[a,b]",
             b"{}", b"ls", b"-dash"]
ODD_BYTES = ODD_NAMES + [b"", b"-5", b"--json", b"\xed\xa0\x80", b"\xc0\x80", b"C:\\a", b"x" * 5000]


class CommandLine(KelCase):
    def test_help(self):
        """What it tells of each command is held to the manual pages."""
        self.assertIn(b"Usage: kel reg get", self.run_kel("reg", "get", "--help"))
        self.assertIn(b"watch", self.run_kel("--help-all"))
        self.assertRegex(self.run_kel("--version"), rb"\Akel \d+\.\d+\.\d+\n\Z")

    def test_wrong_usage(self):
        told = [("reg", "required"), ("reg nothing -x", "no such command: nothing"), ("reg get -x", "option: -x"),
                ("cp a b --links", "--links: its value"), ("sum -f", "option: -f"), ("reg get a b c d", "expected: c")]
        others = ["", "nothing", "mon watch f --interval x", "mon watch f -n nan", "mon watch f -n 1e999", "mon watch f -n -1",
                  "mon watch f --count 0", "mon set f a 1 --type long", "cp a b --links no", "cp a b --new --merge",
                  "reg set a b", "reg set a b c --stdin", "reg set a b c --type -1", "reg ls --user --machine"]
        for line, word in told + [(line, "") for line in others]:
            self.assertEqual(self.run_kel(*line.split(), code=2), b"", line)
            self.assertIn("--help'.", self.complaint, line)
            self.assertIn(word, self.complaint)

    def test_session_of_the_page(self):
        """Each line of the session in doc/kel.md that begins with a dollar prints what stands below it."""
        page = (pathlib.Path(__file__).parents[2] / "doc/kel.md").read_text()
        session = re.search(r"\n## A session\n+```\n(.*?)```", page, re.S).group(1)
        steps = re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", session, re.M)
        self.assertGreater(len(steps), 10)
        for line, printed in steps:
            done = subprocess.run(["bash", "-c", 'kel() { "$0" "$@"; }\n' + line, KEL], cwd=self.here, text=True,
                                  env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            self.assertEqual(done.stdout, printed, line)

    def test_output_that_cannot_be_written(self):
        (self.here / "f").write_bytes(b"a:1\n")
        for command in (["conf", "list", "f"], ["--help"], ["completion", "bash"]):
            with open("/dev/full", "wb") as full:
                code = subprocess.run([KEL, *command], stdout=full, stderr=subprocess.PIPE, cwd=self.here,
                                      env=self.environment).returncode
            self.assertEqual(code, 1, command)


class Registry(KelCase):
    def stored(self, *layer):
        folders = self.json_of("reg", "ls", "-r", *layer)
        return {exact(f, "key"): {exact(v, "name"): (v["type"], exact(v, "value")) for v in f["values"]}
                for f in folders}

    def test_any_bytes_there_and_back(self):
        chance = random.Random(1)
        model = {b"": {}}
        for number in range(12 if IS_SANITIZED else 40):
            parts = chance.sample(ODD_NAMES, chance.randint(1, 3))
            key, name, value = b"\\".join(parts), chance.choice(ODD_NAMES + [b""]), chance.choice(ODD_BYTES)
            kind = chance.choice([1, 1, 3, 4])
            if kind == 1 and chance.random() < 0.5:
                self.run_kel("reg", "set", "--", key.replace(b"\\", b"/"), name, value)
            else:
                value += b"\0\r" if kind != 1 else b""
                self.run_kel("reg", "set", "--stdin", "--type", str(kind), "--", key, name, input=value)
            for depth in range(len(parts)):
                model.setdefault(b"\\".join(parts[:depth + 1]), {})
            model[key][name] = (kind, value)
            read = self.run_kel("reg", "get", "--", key.upper() if number % 2 else key, name)
            self.assertEqual(read, value + (b"\n" if kind == 1 else b""))
        self.assertEqual(self.stored(), model)

        export = self.run_kel("reg", "export")
        self.run_kel("reg", "import", "--machine", input=export)
        self.assertEqual(self.stored("--machine"), model)
        self.assertEqual(self.run_kel("reg", "export", "--machine"), export)
        self.assertEqual(json.loads(export)["format"], "kelstdmt registry 1")
        (self.here / "one").write_bytes(self.run_kel("reg", "export", "plain"))
        self.run_kel("reg", "import", f"C:{self.here}\\one".replace("/", "\\"), "--to", "other/place")
        below, copied = ({key.removeprefix(top): values for key, values in layer.items()
                          if (key + b"\\").startswith(top + b"\\")}
                         for top, layer in [(b"plain", model), (b"other\\place", self.stored())])
        self.assertEqual(copied, below)

    def test_texts_and_failures(self):
        self.run_kel("reg", "set", "a/b", "Port", "-5")
        (self.here / "wrong").write_bytes(b"a:1")
        self.run_kel("reg", "set", "a", "", "x\033[2J")
        self.assertEqual(self.run_kel("reg", "ls", "A"), b"b\\\n(default) = x\\x1B[2J\n")
        self.assertEqual(self.json_of("reg", "get", "a\\b", "PORT")["value"], "-5")
        for line, complaint in [("reg get a/b none", "no such value: none"), ("reg ls c", "no such key: user: c"),
                                ("reg get a.b c", "not a key"), ("reg get a c/d", "not a name"),
                                ("reg del a", "has subkeys"), ("reg del a none", "no such value"),
                                ("reg del c", "no such key"), ("reg del /", "the root"),
                                ("reg import none", "No such file"),
                                ("reg import wrong", "not an export: wrong: "), ("reg export c", "no such key")]:
            self.assertEqual(self.run_kel(*line.split(), code=1), b"")
            self.assertIn(complaint, self.complaint)
        self.run_kel("reg", "del", "a/b", "port")
        self.assertEqual(self.run_kel("reg", "ls", "a/b"), b"")
        self.run_kel("reg", "del", "-r", "a")
        self.assertEqual(self.run_kel("reg", "ls", "-r"), b"\n")
        self.assertEqual(self.json_of("reg", "ls", "--machine"), {"key": "", "subkeys": [], "values": []})

    def test_imports_that_are_none_change_nothing(self):
        def document(*keys, format="kelstdmt registry 1"):
            return json.dumps({"format": format, "key": "k", "keys": keys}).encode()

        good = {"key": "good", "values": [{"name": "a", "type": 1, "value": "1"}]}
        bad_values = [{"name": "a/b", "value": ""}, {"name": "a", "type": 1.5, "value": ""}, {"name": "a", "value": 1},
                      {"name": "a", "value_base64": "abc"}, {"name": "a", "value": "a\0b"}]
        bad_keys = [{"key": "x"}, {"key": "a.b", "values": []}, {"key": "a\\\\b", "values": []},
                    *({"key": "x", "values": [value]} for value in bad_values)]
        for bad in [b"", b"{", b"[1,]", b"null", b"\xff", b'"\\ud800"', b"[" * 100000, b"{}", document(format="other"),
                    document(good) + b"x", document(good)[:-3], *(document(good, key) for key in bad_keys)]:
            with self.subTest(bad[:200]):
                self.run_kel("reg", "import", code=1, input=bad)
        self.assertEqual(self.run_kel("reg", "ls"), b"")


class Configuration(KelCase):
    def test_entries(self):
        file = self.here / "settings"
        file.write_bytes(b"b : 2\nno colon\n a:\xff\033\nb:3\nempty:\n")
        self.assertEqual(self.json_of("conf", "list", "settings"),
                         [{"name": "a", "value": "\ufffd\033", "value_base64": "/xs="}, {"name": "b", "value": "3"},
                          {"name": "empty", "value": ""}])
        self.assertEqual(self.run_kel("conf", "list", "settings"), b"a:\\xFF\\x1B\nb:3\nempty:\n")
        self.assertEqual(self.run_kel("conf", "get", "settings", "a"), b"\xff\033\n")
        self.assertEqual(self.run_kel("conf", "get", "settings", "em pty"), b"\n")
        self.assertEqual(self.json_of("conf", "get", "settings", "b"), {"name": "b", "value": "3"})
        self.run_kel("conf", "set", "settings", "c", " x:y")
        self.run_kel("conf", "set", "settings", "--", "b", "-1")
        self.run_kel("conf", "del", "settings", "empty")
        self.assertEqual(file.read_bytes(), b"a:\xff\033\nb:-1\nc: x:y\n")
        self.run_kel("conf", "set", "new", "a", "1")
        self.assertEqual((self.here / "new").read_bytes(), b"a:1\n")

    def test_failures(self):
        (self.here / "f").write_bytes(b"a:1\n")
        for line, complaint in [(["get", "f", "b"], "no such name: b"), (["del", "f", "b"], "no such name: b"),
                                (["list", "none"], "cannot open: none"), (["del", "none", "a"], "cannot open: none"),
                                (["set", "f", "a:b", "1"], "not a name"), (["set", "none", " ", "1"], "not a name"),
                                (["set", "none", "a", "1\n2"], "one line"), (["set", ".", "a", "1"], "cannot open")]:
            self.run_kel("conf", *line, code=1)
            self.assertIn(complaint, self.complaint)
        self.assertEqual((self.here / "f").read_bytes(), b"a:1\n")
        self.assertFalse((self.here / "none").exists())


class Files(KelCase):
    def test_sums(self):
        chance = random.Random(2)
        expected = []
        for name in ODD_NAMES[:2] + [b"[a,b]", b"{}", b"\xff"]:
            data = chance.randbytes(chance.choice([0, 1, 70000]))
            (self.here / os.fsdecode(name)).write_bytes(data)
            mixed = functools.reduce(operator.xor, data, 0)
            expected.append((name, (len(data) % 65536) << 16 | sum(data) % 256 << 8 | mixed))
        names = [name for name, _ in expected]
        self.assertEqual([(exact(e, "file"), e["sum"]) for e in self.json_of("sum", *names)], expected)
        self.assertEqual(self.run_kel("sum", "{}").decode(), "%08x  {}\n" % dict(expected)[b"{}"])
        self.assertEqual(len(self.run_kel("sum", "plain", "none", ".", "[a,b]", code=1).splitlines()), 2)
        self.assertEqual(self.complaint.count("kel sum: "), 2)
        self.assertIn("File or directory does not exist: none", self.complaint)

    def test_copies(self):
        tree = self.here / "tree"
        (tree / "in ner").mkdir(parents=True)
        (tree / "in ner" / os.fsdecode(b"\xff")).write_bytes(b"1")
        (tree / "file").write_bytes(b"2" * 100000)
        (tree / "link").symlink_to("file")

        def same(copy, links):
            different = filecmp.dircmp(tree, copy)
            self.assertEqual((different.right_only, different.diff_files), ([], []))
            self.assertEqual(different.left_only, [] if links else ["link"])
            self.assertEqual((copy / "link").is_symlink(), links == "new")
            self.assertEqual(os.listdir(os.fsencode(copy / "in ner")), [b"\xff"])

        self.run_kel("cp", "tree", "deep/er/copy")
        self.run_kel("cp", "tree/", "deep/er/copy")
        same(self.here / "deep/er/copy", "new")
        self.run_kel("cp", "tree", "deep/", "--links", "expand")
        same(self.here / "deep/tree", "expand")
        (self.here / "deep/tree/more").write_bytes(b"")
        self.run_kel("cp", "tree", "deep/tree", "--replace", "--links=ignore")
        same(self.here / "deep/tree", "")
        self.run_kel("cp", "tree/file", "deep")
        self.run_kel("cp", "tree/file", "tree/in ner", self.here / "deep")
        self.assertEqual((self.here / "deep/file").read_bytes(), b"2" * 100000)
        self.assertTrue((self.here / "deep/in ner").is_dir())
        self.run_kel("cp", "tree/file", "deep/file", "--new", code=1)
        self.assertIn("File exists: deep/file", self.complaint)
        for line in ["tree/file none tree", "tree/file deep/file none", "tree tree/in", "none x", ". deep/",
                     "tree/file " + "x" * 300]:
            self.run_kel("cp", *line.split(), code=1)


if __name__ == "__main__":
    run()
