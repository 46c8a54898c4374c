#!/usr/bin/env python3
"""module_symbols_test.py BUILD_DIR: no module library needs a symbol that only a module it may
not use (cmake/modules.txt) defines. The component's members are defined in several modules, so
a call can reach upward without an include saying so."""
import os
import re
import subprocess
import sys

root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
build = sys.argv[1]

below = {}
for line in open(os.path.join(root, "cmake", "modules.txt")):
    if not re.match(r"[a-z]", line):
        continue
    module, _, *uses = line.split()
    below[module] = set()
    for used in uses:
        if used != "-":
            below[module] |= {used} | below[used]


def symbols(library, *options):
    out = subprocess.run(["nm", "--format=posix", *options, library], check=True,
                         capture_output=True, text=True).stdout
    return [line.split() for line in out.splitlines() if " " in line and not line.endswith(":")]


defined, needed = {}, {}
for module in below:
    library = os.path.join(build, "libdossync_%s.a" % module.split("/")[-1])
    if not os.path.exists(library):
        continue
    defined[module] = {s[0] for s in symbols(library, "--defined-only", "-g") if s[1] in "TDBRVW"}
    needed[module] = {s[0] for s in symbols(library, "-u")} - defined[module]

definer = {}
for module, names in defined.items():
    for name in names:
        definer.setdefault(name, set()).add(module)

problems = set()
for module, names in needed.items():
    for name in names:
        owners = definer.get(name, set())
        if owners and not owners & (below[module] | {module}):
            problems.add("%s needs %s from %s" % (module, name, ", ".join(sorted(owners))))
if len(defined) < 10:
    problems.add("only %d module libraries in %s" % (len(defined), build))
if problems:
    print(subprocess.run(["c++filt"], input="\n".join(sorted(problems)) + "\n", capture_output=True,
                         text=True).stdout, end="")
print("module_symbols_test: %d libraries, %d upward uses" % (len(defined), len(problems)))
sys.exit(1 if problems else 0)
