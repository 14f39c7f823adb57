"""Every class that an application sees says in its comment what threads may share of it.

usage: check_threads.py ROOT

Classes are those of the headers that the umbrella header brings in. One whose comment has no word of threads
must derive from one that has, or from one that derives from such.
"""

import os
import re
import sys

UMBRELLA = "qrt_core/qrt_core.h"
INCLUDE = re.compile(r'^#include "(qrt_core/[^"]+)"', re.M)
CLASS = re.compile(
    r"(?P<comment>(?:^///[^\n]*\n)*)"
    r"(?:^template <[^\n]*>\n)?"
    r"^(?:class|struct|union) (?:QRT_API )?(?P<name>\w+)(?: final)?"
    r"(?:\s*:\s*(?P<bases>[^{;]+))?\s*\{",
    re.M)


def headers(root):
    found, waiting = set(), [UMBRELLA]
    while waiting:
        path = waiting.pop()
        full = os.path.join(root, path)
        if path in found or not os.path.exists(full):
            continue
        found.add(path)
        with open(full, encoding="ascii") as file:
            waiting.extend(INCLUDE.findall(file.read()))
    return sorted(found)


def base_names(bases):
    for base in (bases or "").split(","):
        name = base.replace("public", "").strip().split("::")[-1].split("<")[0]
        if name:
            yield name


def main():
    root = sys.argv[1]
    classes = {}
    for path in headers(root):
        with open(os.path.join(root, path), encoding="ascii") as file:
            for found in CLASS.finditer(file.read()):
                says = re.search(r"\bthreads?\b", found["comment"]) is not None
                classes[found["name"]] = (path, says, list(base_names(found["bases"])))

    def is_told(name):
        if name not in classes:
            return False
        _, says, bases = classes[name]
        return says or any(is_told(base) for base in bases)

    silent = [f"{path}: {name} says nothing of threads" for name, (path, _, _) in classes.items()
              if not is_told(name)]
    print("\n".join(silent))
    print(f"{len(classes)} classes, {len(silent)} silent")
    return 1 if silent or len(classes) < 50 else 0


if __name__ == "__main__":
    sys.exit(main())
