#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The same records in a database of brix and in a file of GNU recutils, each question a process.

usage: recutils.py BRIX [--records N] [--turns N] [--dir FOLDER]

The programs take turns; a row gives both medians in milliseconds, from the start of a process to its
end, and the median of the ratios. brix signs what it writes and needs the password for it.
"""
import argparse
import json
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path


def record(number):
    return {
        "name": f"ink {number:06}",
        "colour": f"colour {number // 10}",
        "supplier": f"supplier {number % 17}",
        "batch": str(number * 7),
        "level": f"{number % 100}.5",
        "remark": "opened, stirred",
    }


def run(command, **options):
    start = time.perf_counter()
    done = subprocess.run(command, capture_output=True, text=True, check=True, **options)
    return (time.perf_counter() - start) * 1000, done.stdout


def fill(brix, folder, count):
    records = [record(number) for number in range(count)]
    database, recfile = folder / "inks.db", folder / "inks.rec"
    run([brix, "db", "create", database, "--key", "name", "--user", "ada"])
    lines = "".join(json.dumps(each) + "\n" for each in records)
    run([brix, "db", "import", database, "--user", "ada"], input=lines)
    blocks = ("\n".join(f"{name}: {value}" for name, value in each.items()) for each in records)
    recfile.write_text("%rec: ink\n%key: name\n\n" + "\n\n".join(blocks) + "\n")
    return database, recfile


def questions(brix, database, recfile, count):
    """Of each row: a title, both commands for a turn, and what both answers must hold."""

    def get(turn):
        each = record(random.randrange(count))
        select = ["recsel", "-t", "ink", "-e", f"name = '{each['name']}'", recfile]
        return [brix, "db", "get", database, each["name"]], select, each["batch"]

    def search(turn):
        each = record(random.randrange(count))
        select = ["recsel", "-t", "ink", "-e", f"colour = '{each['colour']}'", "-P", "name", recfile]
        return [brix, "db", "search", database, "colour", each["colour"]], select, each["name"]

    def insert(turn):
        each = record(count + turn)
        values = [f"{name}={value}" for name, value in each.items() if name != "name"]
        fields = [part for name, value in each.items() for part in ("-f", name, "-v", value)]
        ours = [brix, "db", "set", database, each["name"], *values, "--user", "ada"]
        return ours, ["recins", "-t", "ink", *fields, recfile], ""

    def check(turn):
        return [brix, "db", "check", database], ["recfix", "--check", recfile], ""

    return [("get", get), ("search", search), ("insert", insert), ("check", check)]


def measure(title, question, turns):
    ours, theirs = [], []
    for turn in range(turns):
        mine, other, expected = question(turn)
        for command, times in ((mine, ours), (other, theirs)):
            took, answer = run(command)
            if expected not in answer:
                sys.exit(f"{command[0]} does not answer {expected}")
            times.append(took)
    ratio = statistics.median(b / a for a, b in zip(ours, theirs))
    print(f"{title:10} brix {statistics.median(ours):8.1f} ms  recutils "
          f"{statistics.median(theirs):8.1f} ms  ratio {ratio:.2f}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("brix", type=Path)
    parser.add_argument("--records", type=int, default=10000)
    parser.add_argument("--turns", type=int, default=5)
    parser.add_argument("--dir", type=Path, default=Path("/dev/shm"))
    options = parser.parse_args()
    if not shutil.which("recsel"):
        sys.exit("GNU recutils are not installed")
    os.environ["BRIX_PASSWORD"] = "secret"
    random.seed(20261120)
    with tempfile.TemporaryDirectory(dir=options.dir) as work:
        brix = options.brix.resolve()
        database, recfile = fill(brix, Path(work), options.records)
        for title, question in questions(brix, database, recfile, options.records):
            measure(title, question, options.turns)


if __name__ == "__main__":
    main()
