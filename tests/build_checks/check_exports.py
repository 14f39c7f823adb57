"""Compares what a shared library exports with a list of classes and functions.

usage: check_exports.py LIBRARY NAMES

Fails on an exported symbol that belongs to no listed name, and on a listed name that has no symbol.
"""

import re
import subprocess
import sys

# What the compiler makes for a class belongs to that class.
COMPILER_PREFIX = re.compile(
    r"^(vtable for|VTT for|typeinfo for|typeinfo name for|guard variable for|"
    r"virtual thunk to|non-virtual thunk to) ")


def read_names(path):
    """Returns {name: kind} of the list."""
    names = {}
    with open(path, encoding="ascii") as lines:
        for number, line in enumerate(lines, 1):
            words = line.split("#")[0].split()
            if not words:
                continue
            if len(words) != 2 or words[0] not in ("class", "function"):
                sys.exit(f"{path}:{number}: expected `class NAME` or `function NAME`: {line.strip()}")
            names[words[1]] = words[0]
    return names


def exported_symbols(library):
    output = subprocess.run(["nm", "-D", "--defined-only", "--demangle", library],
                            check=True, capture_output=True, text=True).stdout
    for line in output.splitlines():
        _, kind, name = line.split(" ", 2)
        yield kind, re.sub(r"@.*$", "", name)


def owner(symbol, names):
    """Returns the listed name that `symbol` belongs to, or None."""
    qualified = COMPILER_PREFIX.sub("", symbol)
    qualified = re.sub(r"\[abi:\w+\]", "", qualified).split("(")[0]
    if qualified in names:
        return qualified
    while "::" in qualified:
        qualified = qualified.rsplit("::", 1)[0]
        if names.get(qualified) == "class":
            return qualified
    return None


def main():
    library, list_path = sys.argv[1:]
    names = read_names(list_path)
    found = set()
    problems = []
    count = 0
    for kind, symbol in exported_symbols(library):
        count += 1
        name = owner(symbol, names)
        if name is None:
            problems.append(f"exported but not listed: {kind} {symbol}")
        else:
            found.add(name)
    problems += [f"listed but not exported: {name}" for name in names if name not in found]
    print("\n".join(problems))
    print(f"{count} exported symbols, {len(found)} of {len(names)} listed names, "
          f"{len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
