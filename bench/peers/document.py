#!/usr/bin/env python3
"""Puts the figures of a run into a document, between the markers that it has for them, and draws its charts.

usage: document.py RESULT DOCUMENT | document.py RESULT --print

A marker is a line <!-- bench NAME -->; what it stands for ends at the line <!-- end -->. The text around is written by
hand. The charts go into a folder beside the document, of its name.
"""

import datetime
import json
import os
import pathlib
import platform
import re
import subprocess
import sys

from charts import bars
from tables import TITLES, all_tables, by_peer, duration, times


def processor():
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    return f"{model[1] if model else platform.machine()}, {os.cpu_count()} processors, of which one was used"


def versions():
    packages = ["redis-tools", "libhiredis-dev", "libsqlite3-dev", "liblmdb-dev", "dconf-service"]
    printed = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}, ", *packages], capture_output=True,
                             text=True, check=False).stdout
    return printed.rstrip(", ") or "unknown"


def machine(result):
    system = "ext4 on a loop device of its own" if result["device"] else "that of the project's folder"
    return "\n".join([f"- measured on {datetime.date.today()}", f"- processor: {processor()}",
                      f"- kernel: Linux {platform.release()}", f"- file system: {system}",
                      f"- packages: {versions()}"])


def charts(result):
    """SVG texts by file name."""
    drawn = {}
    for row in result["reads"] + result["commits"]:
        durable = {peer["name"]: peer["durable"] for peer in result["peers"]}
        is_commit = row["id"].startswith("commit")
        entries = [(name, figure["ratio"], f"{times(figure['ratio'])} ({duration(figure['seconds'])})")
                   for name, figure in by_peer(row).items()
                   if name != "floor" and (durable[name] or not is_commit)]
        floor = "append and fdatasync by the bare echo server" if is_commit else "the bare echo server"
        drawn[f"{row['id']}.svg"] = bars(TITLES[row["id"]], f"ratio to {floor}; less is better", entries, 1)
    largest = result["sizes"][-1]
    for key, what, label in (("start", "start-up", duration), ("memory", "memory", lambda n: f"{n / 2**20:.1f} MiB")):
        entries = [(name, figure[key], label(figure[key])) for name, figure in by_peer(largest).items()
                   if name != "floor"]
        drawn[f"{key}.svg"] = bars(f"{what} with {largest['keys']:,} keys", "less is better", entries)
    return drawn


def fill(text, parts):
    def replaced(match):
        return f"{match[1]}\n{parts[match[2]]}\n{match[3]}"

    return re.sub(r"(<!-- bench ([\w-]+) -->)\n.*?(<!-- end -->)", replaced, text, flags=re.DOTALL)


def main(result_path, target):
    result = json.loads(pathlib.Path(result_path).read_text())
    parts = {**all_tables(result), "machine": machine(result)}
    if target == "--print":
        for name, part in parts.items():
            print(f"{name}:\n{part}\n")
        return
    document = pathlib.Path(target)
    document.write_text(fill(document.read_text(), parts))
    folder = document.with_suffix("")
    folder.mkdir(exist_ok=True)
    for name, drawing in charts(result).items():
        (folder / name).write_text(drawing)
    print(f"{document.name}: tables and charts are those of this run")


if len(sys.argv) != 3:
    sys.exit(__doc__)
main(*sys.argv[1:])
