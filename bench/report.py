"""What the benchmark programs printed with --markdown, as one page with a picture for each table.

    bench/report.py FOLDER NAME=OUTPUT...

writes FOLDER/tables.md and a picture FOLDER/NAME-N.svg for each table of the file OUTPUT. A picture has a bar for
each row: how many times as fast as the fastest peer we are, on a logarithmic axis; to the right we are ahead. The
thin line at a bar's end is the spread of both figures together.
"""

import datetime
import html
import math
import os
import platform
import re
import subprocess
import sys

PEERS = ["libglib2.0-0", "libqt5core5a", "libpocofoundation80", "libtirpc3", "libre2-9", "libpcre2-8-0", "libsqlite3-0",
         "libboost-dev", "rpcbind", "redis-server", "openssh-server", "libc6", "libstdc++6"]
UNITS = {"ns": 1, "µs": 1e3, "ms": 1e6, "s": 1e9, "B": 1, "KiB": 1024}


def said(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    return done.stdout.strip()


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        models = re.findall(r"^model name\s*: (.*)$", info.read(), re.M)
    with open("/proc/meminfo", encoding="utf-8") as info:
        memory = int(re.search(r"MemTotal:\s*(\d+)", info.read())[1]) // 2**20
    with open("/etc/os-release", encoding="utf-8") as release:
        system = re.search(r'^PRETTY_NAME="?([^"\n]*)', release.read(), re.M)[1]
    versions = said("dpkg-query", "-W", "-f", "${db:Status-Status} ${Package} ${Version}\n", *PEERS)
    commit = said("git", "log", "-1", "--format=%h") + (", changed" if said("git", "status", "--porcelain", "-uno") else "")
    return [
        f"- {models[0] if models else platform.machine()}, {os.cpu_count()} processors, {memory} GiB, {system}, "
        f"Linux {platform.release()}; load {os.getloadavg()[1]:.1f} in the last five minutes",
        f"- kelstdmt {commit}, {said('c++', '--version').splitlines()[0]}, on {datetime.date.today()}",
        "- " + ", ".join(line.removeprefix("installed ") for line in versions.splitlines() if line.startswith("installed ")),
    ]


def figure(cell):
    """(nanoseconds, bytes or seconds of a MB; relative spread) of a cell, or None."""
    match = re.fullmatch(r"([\d.]+) (\S+) ±(\d+)%", cell)
    if not match:
        return None
    value = float(match[1])
    return (1 / value if match[2] == "MB/s" else value * UNITS[match[2]]), int(match[3]) / 100


class Table:
    def __init__(self, title):
        self.title = title
        self.rows = []  # (title, how many times as fast as the peer, spread, the peer)

    def add(self, cells):
        title, verdict = cells[0], cells[-3:]
        figures = [figure(cell) for cell in cells[1:-3]]
        if not re.fullmatch(r"[\d.]+", verdict[0]) or not figures[0] or not float(verdict[0]):
            return
        ours, own_spread = figures[0]
        # The column that the verdict is about is the one that gives its ratio.
        others = [each for each in figures[1:] if each and each[0]]
        _, spread = min(others, key=lambda other: abs(math.log(ours / other[0] / float(verdict[0]))))
        self.rows.append((title, 1 / float(verdict[0]), math.hypot(own_spread, spread), verdict[2]))


def tables_of(text):
    tables = {}  # by title: the rows with threads come behind all others, under the same head again
    table = None
    for line in text.splitlines():
        cells = [cell.strip().replace("\\", "") for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
        if "ours / fastest" in cells:
            table = tables.setdefault(cells[0], Table(cells[0]))
        elif cells and table and not cells[0].startswith("---"):
            table.add(cells)
    return [table for table in tables.values() if table.rows]


def picture(table):
    left, plot, right, row, top = 330, 400, 240, 18, 46
    reach = max(2.0, *(max(ratio, 1 / ratio) * (1 + spread) for _, ratio, spread, _ in table.rows))
    decades = math.ceil(math.log2(reach))
    width, height = left + plot + right, top + row * len(table.rows) + 12

    def x(ratio):
        return left + plot / 2 + math.log2(ratio) / decades * plot / 2

    def text(at, y, what, anchor="start", colour="#222"):
        return f'<text x="{at:.0f}" y="{y:.0f}" text-anchor="{anchor}" fill="{colour}">{html.escape(what)}</text>'

    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
        f'font-family="sans-serif" font-size="11">',
        f'<rect width="{width}" height="{height}" fill="white"/>',
        f'<text x="8" y="16" font-size="13" font-weight="bold">{html.escape(table.title)}</text>',
        text(left + plot / 2 - 8, 16, "the fastest peer is ahead", "end", "#b35900"),
        text(left + plot / 2 + 8, 16, "kelstdmt is ahead", "start", "#1a6e3c"),
    ]
    step = max(1, decades // 4)
    for power in range(-decades // step * step, decades + 1, step):
        if abs(power) > decades:
            continue
        at = x(2.0**power)
        parts.append(f'<path d="M{at:.1f} {top - 8}V{height - 8}" stroke="{"#444" if power == 0 else "#ddd"}"/>')
        parts.append(text(at, top - 14, f"{2 ** abs(power)}×", "middle", "#666"))
    for number, (title, ratio, spread, peer) in enumerate(table.rows):
        y = top + row * number
        begin, end = sorted((x(1), x(ratio)))
        even = abs(ratio - 1) <= spread
        colour = "#999" if even else "#2e8b57" if ratio > 1 else "#e08214"
        parts.append(text(left - 8, y + 11, title, "end"))
        parts.append(f'<rect x="{begin:.1f}" y="{y + 2}" width="{max(end - begin, 1):.1f}" height="{row - 6}" fill="{colour}"/>')
        parts.append(f'<path d="M{x(ratio / (1 + spread)):.1f} {y + 8}H{x(ratio * (1 + spread)):.1f}" stroke="#222"/>')
        shown = f"{ratio:.{1 if ratio >= 1 else 2}f}× {peer}" if ratio < 9.95 else f"{ratio:.0f}× {peer}"
        parts.append(text(left + plot + 8, y + 11, shown))
    return "\n".join(parts + ["</svg>\n"])


def main(folder, outputs):
    os.makedirs(folder, exist_ok=True)
    page = ["# Measured beside peers", "", *machine(), ""]
    for named in outputs:
        name, path = named.split("=", 1)
        with open(path, encoding="utf-8") as file:
            output = file.read()
        tables = tables_of(output)
        if not tables:
            sys.exit(f"report.py: {path} has no table; was the program run with --markdown?")
        page += [f"## {name}", ""]
        for number, table in enumerate(tables, 1):
            file_name = f"{name}-{number}.svg"
            with open(os.path.join(folder, file_name), "w", encoding="utf-8") as file:
                file.write(picture(table))
            page.append(f"![{table.title}: how many times as fast as the fastest peer]({file_name})")
        lines = output.strip().splitlines()
        first = next(number for number, line in enumerate(lines) if line.startswith("|"))
        last = max(number for number, line in enumerate(lines) if line.startswith("|"))
        page += ["", *lines[:first], *lines[first : last + 1], "", "```", *lines[last + 2 :], "```", ""]
    path = os.path.join(folder, "tables.md")
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(page))
    print(f"report: {path}, with a picture for each table beside it")


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    main(sys.argv[1], sys.argv[2:])
