"""Compiles the plug-ins of mistakes.txt, whose members stand behind lines "=== TEXT [| OPTION]".

The compiler must print the text as its first error, or no error behind "=== none".
usage: mistakes.py COMPILER INCLUDE MISTAKES
"""

import concurrent.futures
import re
import subprocess
import sys

compiler, include, mistakes = sys.argv[1:]
options = ["-fsyntax-only", "-Wall", "-Wextra", "-Wnon-virtual-dtor", "-Werror", "-xc++", "-I" + include, "-"]


def compile(section):
    text, members = section.split("\n", 1)
    text, _, option = text.partition(" | ")
    source = f'''#include <ostrel/plugin.hpp>
class Plugin {{ public:
static constexpr char name[] = "plugin";
{members}}};
OSTREL_PLUGIN(Plugin)
'''
    run = subprocess.run([compiler, option or "-std=c++17", *options], input=source,
                         stderr=subprocess.PIPE, text=True)
    errors = re.findall(r"error: (?:static assertion failed: )?(.*)", run.stderr)
    fine = not errors if text.startswith("none") else bool(errors) and errors[0] == text
    # Behind what the whole header needs nothing else is complained of.
    fine = fine and (not text.startswith("#") or len(errors) == 2)
    if not fine:
        print(f"{text}:\n{run.stderr}")
    return fine


with open(mistakes) as file, concurrent.futures.ThreadPoolExecutor(2) as pool:
    results = list(pool.map(compile, file.read().split("=== ")[1:]))
print(f"{sum(results)} of {len(results)} compile as expected")
sys.exit(not all(results))
