"""Plays each scenario of faults.txt, which stand behind lines "=== PLUGIN STATUS what it shows".

Lines "> TEXT" there are texts that the bench must print; SCENARIO stands for the file's path.
usage: faults.py BENCH PLUGINS FAULTS
"""

import os
import subprocess
import sys
import tempfile

bench, plugins, faults = sys.argv[1:]


def play(section, path):
    head, *lines = section.splitlines(keepends=True)
    plugin, status, what = head.split(maxsplit=2)
    wanted = [line[2:].rstrip("\n") for line in lines if line.startswith("> ")]
    with open(path, "w") as file:
        file.writelines(line for line in lines if not line.startswith("> "))
    run = subprocess.run([bench, f"{plugins}/{plugin}.ostr", path], stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True)
    missing = [text for text in wanted if text.replace("SCENARIO", path) not in run.stdout]
    if run.returncode == int(status) and not missing:
        return True
    print(f"{what.strip()}: status {run.returncode}, expected {status}; not printed: {missing}\n{run.stdout}")
    return False


with open(faults) as file, tempfile.TemporaryDirectory() as folder:
    scenarios = file.read().split("=== ")[1:]
    results = [play(section, os.path.join(folder, "scenario")) for section in scenarios]
print(f"{sum(results)} of {len(results)} scenarios went as expected")
sys.exit(not all(results))
