#!/usr/bin/env python3
"""Runs what a page of the documents tells its reader to do, in order, inside an appliance with a running daemon.

usage: run.py PAGE

A fenced block is, by its info string,
  sh           a script, run by bash -eu in a folder of the page's own
  sh project   the same in the project's folder; make only says what it would do
  text         behind a script: what that prints; "..." stands for any text
  c, cpp, cmake, python, scenario    a file when its first line is a comment that begins with its name and a colon
Any other block is only read.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

PROJECT = pathlib.Path(__file__).resolve().parents[2]
FILE_NAME = re.compile(r"(?://|/\*|#) ([\w.-]+\.\w+):")
FILES = {"c", "cpp", "cmake", "python", "scenario"}
DRY_MAKE = 'make() { command make -n "$@" >/dev/null; }\n'


def blocks(page):
    """(line, info string, text) of each fenced block."""
    info = None
    for number, line in enumerate(page.read_text().splitlines(), 1):
        if info is None and line.startswith("```"):
            start, info, text = number, line[3:], ""
        elif line == "```":
            yield start, info, text
            info = None
        elif info is not None:
            text += line + "\n"


def run(script, folder):
    # Into a file, as a service that the script starts would keep a pipe open.
    with tempfile.TemporaryFile("w+") as output:
        result = subprocess.run(["bash", "-euo", "pipefail", "-c", script], cwd=folder, stdin=subprocess.DEVNULL,
                                stdout=output, stderr=subprocess.STDOUT, timeout=120, check=False)
        output.seek(0)
        return result.returncode, output.read()


def matches(expected, printed):
    pattern = ".*".join(re.escape(piece) for piece in expected.split("..."))
    return re.fullmatch(pattern, printed, re.DOTALL) is not None


def main(page):
    os.environ["PATH"] = "/vemra/bin:/usr/sbin:" + os.environ["PATH"]
    os.environ["CMAKE_PREFIX_PATH"] = "/vemra"
    os.environ["PKG_CONFIG_PATH"] = "/vemra/lib/pkgconfig"
    os.environ["LD_LIBRARY_PATH"] = "/vemra/lib"
    os.environ["PYTHONPATH"] = "/vemra/lib/python3/dist-packages"
    folder = pathlib.Path(tempfile.mkdtemp())
    status, printed = run("ostrelServer && for i in $(seq 100); do ostrelCtl count host && exit; sleep 0.05; done", "/")
    ran, before = 0, ""
    for line, info, text in blocks(page):
        name = FILE_NAME.match(text)
        if info in ("sh", "sh project"):
            ran += 1
            project = info == "sh project"
            status, printed = run(DRY_MAKE + text if project else text, PROJECT if project else folder)
        elif info == "text" and before in ("sh", "sh project") and not matches(text, printed):
            sys.exit(f"{page}:{line}: expected\n{text}but was printed\n{printed}")
        elif info in FILES and name:
            (folder / name[1]).write_text(text)
        # A filter that names no test would tell nobody.
        if status != 0 or "Running 0 tests" in printed:
            sys.exit(f"{page}:{line}: status {status}, printed\n{printed}")
        before = info
    print(f"{page.name}: {ran} scripts")


main(pathlib.Path(sys.argv[1]))
