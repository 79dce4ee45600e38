"""Compiles the plug-ins of mistakes.txt, whose members stand behind lines "=== TEXT [| OPTION]".

The compiler must print the text as its first error, or no error behind "=== none".
usage: mistakes.py COMPILER INCLUDE MISTAKES
"""

import concurrent.futures
import os
import re
import subprocess
import sys
import tempfile

compiler, include, mistakes = sys.argv[1:]
options = ["-Wall", "-Wextra", "-Wnon-virtual-dtor", "-Werror"]


def precompile(folder):
    """The headers, which take longest."""
    os.mkdir(folder + "/ostrel")
    subprocess.run([compiler, "-std=c++17", *options, "-xc++-header", include + "/ostrel/plugin.hpp", "-I" + include,
                    "-o", folder + "/ostrel/plugin.hpp.gch"], check=True)


def check(section, folder):
    text, members = section.split("\n", 1)
    text, _, option = text.partition(" | ")
    source = f'''#include <ostrel/plugin.hpp>
class Plugin {{ public:
static constexpr char name[] = "plugin";
{members}}};
OSTREL_PLUGIN(Plugin)
'''
    run = subprocess.run([compiler, option or "-std=c++17", *options, "-fsyntax-only", "-I" + folder, "-I" + include,
                          "-xc++", "-"], input=source, stderr=subprocess.PIPE, text=True)
    errors = re.findall(r"error: (?:static assertion failed: )?(.*)", run.stderr)
    fine = not errors if text.startswith("none") else bool(errors) and errors[0] == text
    # Behind what the whole header needs nothing else is complained of.
    fine = fine and (not text.startswith("#") or len(errors) == 2)
    if not fine:
        print(f"{text}:\n{run.stderr}")
    return fine


with open(mistakes) as file, concurrent.futures.ThreadPoolExecutor(2) as pool, tempfile.TemporaryDirectory() as folder:
    precompile(folder)
    results = list(pool.map(lambda section: check(section, folder), file.read().split("=== ")[1:]))
print(f"{sum(results)} of {len(results)} compile as expected")
sys.exit(not all(results))
