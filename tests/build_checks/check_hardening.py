"""Built files are hardened: what the loader resolves is read-only, stacks hold no code, functions check their stacks,
and calls of the C library know the sizes of what they write to.

usage: check_hardening.py FILE...

FILE is a shared library or a program, whose headers are looked at, or an archive of objects, whose code is.
"""

import subprocess
import sys

# An object of the BLAS that the archive of the library holds; it says nothing of our own code.
NOT_OURS = "private_blas.o"


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def problems_of_linked(path):
    headers = output("readelf", "--wide", "--file-header", "--segments", "--dynamic", path)
    lines = headers.splitlines()
    if not any("Type:" in line and "DYN" in line for line in lines):
        yield "is not position-independent"
    if not any(line.split()[:1] == ["GNU_RELRO"] for line in lines):
        yield "has no segment that becomes read-only (-z relro)"
    if not any("FLAGS" in line and "NOW" in line for line in lines):
        yield "resolves symbols late (-z now)"
    stacks = [line.split() for line in lines if "GNU_STACK" in line]
    if not stacks or any("E" in words[-2] for words in stacks):
        yield "has a stack that may hold code"


def problems_of_objects(path):
    wanted = {"__stack_chk_fail": "checks no stack (-fstack-protector-strong)",
              "_chk": "has no call with a checked size (_FORTIFY_SOURCE)"}
    member, used = "", set()
    for line in output("nm", "--undefined-only", path).splitlines():
        words = line.split()
        if len(words) == 1 and line.endswith(":"):
            member = line[:-1]
        elif member != NOT_OURS and len(words) == 2:
            name = words[1].split("@")[0]
            used.add(name)
            if name.startswith("__") and name.endswith("_chk"):
                used.add("_chk")
    for name, problem in wanted.items():
        if name not in used:
            yield problem


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    found = []
    for path in sys.argv[1:]:
        problems = problems_of_objects if path.endswith(".a") else problems_of_linked
        found.extend(f"{path} {problem}" for problem in problems(path))
    print("\n".join(found) if found else "hardened: " + " ".join(sys.argv[1:]))
    sys.exit(1 if found else 0)


main()
