"""What the pages of doc/ show byte by byte, against the library: files that it wrote, and conversations (> to the
server, < from it) that are played with its servers."""

import itertools
import pathlib
import re
import socket
import subprocess
import sys
import tempfile

# The examples of each page in their order: a file that the driver writes, or the server to talk to.
EXAMPLES = {
    "streams.md": ["binary", "xdr", "text"],
    "monitor.md": ["monitor"],
    "name-service.md": [0, 0, 0, 0, 0],
    "remote-shell.md": [1],
    "formats.md": ["printed", "settings", "registry/user/software/demo/port.text",
                   "registry/user/software/demo/icon.data", 2, 2, 2, 2],
}
DOC = pathlib.Path(__file__).parents[2] / "doc"
BLOCK = re.compile(r"^```text\n(.*?)^```|((?:^    [^\n]+\n)+)", re.M | re.S)
LINE = re.compile(r"(?:([<>]) )?(?:([0-9a-f]{8})  )?([0-9a-f]{2}(?: {1,2}[0-9a-f]{2})*)(?: {3,}.*)?$")


def examples(page):
    """The blocks of the page that are all bytes, as lists of (mark, offset, bytes)."""
    for fenced, indented in BLOCK.findall((DOC / page).read_text()):
        lines = [LINE.match(line.strip()) for line in (fenced or indented).splitlines()]
        if all(lines):
            yield [(line[1], line[2], bytes.fromhex(line[3])) for line in lines]


def expect(saw, expected, what):
    assert saw == expected, f"{what}: the page has {expected.hex(' ')}, the library {saw.hex(' ')}"


def compare(example, saw, what):
    for _, offset, _ in example:
        at = b"".join(data for _, place, data in example if offset and place < offset)
        assert not offset or int(offset, 16) == len(at), f"{what}: offset {offset} is {len(at):x}"
    expect(saw, b"".join(data for _, _, data in example), what)


def in_order_of(saw, lines):
    """The lines in the order in which they came: the exit code of a command may overtake its output."""
    rest, ordered = list(lines), b""
    while line := next((line for line in rest if saw.startswith(ordered + line)), None):
        rest.remove(line)
        ordered += line
    return ordered if not rest else b"".join(lines)


def talk(example, port, what):
    with socket.create_connection(("127.0.0.1", port), 60) as peer, peer.makefile("rb") as answers:
        for mark, lines in itertools.groupby(example, key=lambda line: line[0]):
            lines = [data for _, _, data in lines]
            if mark == ">":
                peer.sendall(b"".join(lines))
            else:
                saw = answers.read(sum(map(len, lines)))
                expect(saw, in_order_of(saw, lines) if port == ports[1] else b"".join(lines), what)


with tempfile.TemporaryDirectory() as folder:
    driver = subprocess.Popen([sys.argv[1], folder], stdout=subprocess.PIPE, text=True,
                              env={"KELSTDMT_REGISTRY": f"{folder}/registry"})
    ports = [int(port) for port in driver.stdout.readline().split()]
    try:
        for page, sources in EXAMPLES.items():
            found = list(examples(page))
            assert len(found) == len(sources), f"{page} has {len(found)} examples, not {len(sources)}"
            for number, (example, source) in enumerate(zip(found, sources), 1):
                what = f"{page}, example {number}"
                if isinstance(source, int):
                    talk(example, ports[source], what)
                else:
                    compare(example, (pathlib.Path(folder) / source).read_bytes(), what)
        assert driver.wait(60) == 0, driver.returncode
    finally:
        driver.kill()
