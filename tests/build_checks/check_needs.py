"""Compares what kernels say that they need with the files that their cores live in.

usage: check_needs.py CATALOGUE... OBJECT...

The catalogues of kernels (*.md) are written from the rows. The objects are those that hold the rows, where
each stands as a symbol with relocations to its cores, and a core carries the suffix of its file.
"""

import re
import subprocess
import sys

LINE = re.compile(r"^\| `(\w+)` \|[^|]*\|[^|]*\|[^|]*\| ([^|]*) \|")
LEVELS = ["", "AVX", "AVX and FMA", "AVX2 and FMA", "AVX-512"]
# Their cores are functions of files for the baseline that call one with a suffix.
BY_METHOD = re.compile(r"multiply_columns|point_c8_strassen")


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def stated_needs(catalogue):
    with open(catalogue, encoding="utf-8") as file:
        lines = map(LINE.match, file)
        return {line[1]: LEVELS.index(line[2].strip()) for line in lines if line}


def rows_of(path):
    """Yields each row's name with the names that its relocations hold."""
    symbols = {}
    for line in run("readelf", "--syms", "--wide", "--demangle", path).splitlines():
        parts = line.split(None, 7)
        if len(parts) == 8 and parts[3] == "OBJECT" and parts[7].startswith("marlo::kernel::rows::"):
            symbols.setdefault(int(parts[6]), []).append(
                (parts[7].split("::")[-1], int(parts[1], 16), int(parts[2], 0)))
    sections = {}
    for line in run("readelf", "--sections", "--wide", path).splitlines():
        found = re.match(r"\s*\[\s*(\d+)\] (\S+)", line)
        if found:
            sections[found[2]] = int(found[1])
    section = None
    names = {}
    for line in run("readelf", "--relocs", "--wide", "--demangle", path).splitlines():
        found = re.match(r"Relocation section '\.rela?(\S+)'", line)
        if found:
            section = sections.get(found[1])
            continue
        parts = line.split(None, 4)
        if section not in symbols or len(parts) != 5 or not re.match("[0-9a-f]+$", parts[0]):
            continue
        for name, start, size in symbols[section]:
            if start <= int(parts[0], 16) < start + size:
                names.setdefault(name, []).append(parts[4])
    return names


def level_of(references):
    text = " ".join(references).lower()
    if re.search(r"_avx512\b", text):
        return 4
    if re.search(r"_fma\b", text):
        return 2
    return 1 if re.search(r"_avx(_m\d)?\b", text) else 0


def problems_of(stated, rows):
    for name, references in sorted(rows.items()):
        if name not in stated:
            yield f"{name}: the catalogue says nothing"
            continue
        derived = level_of(references)
        by_method = BY_METHOD.search(" ".join(references))
        if stated[name] != derived and not (by_method and stated[name] > derived):
            yield f"{name}: it says {LEVELS[stated[name]]!r}, and its cores need {LEVELS[derived]!r}"


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    stated, rows = {}, {}
    for path in sys.argv[1:]:
        if path.endswith(".md"):
            stated.update(stated_needs(path))
        else:
            rows.update(rows_of(path))
    problems = list(problems_of(stated, rows))
    if len(rows) < len(stated) // 2:
        problems.append(f"only {len(rows)} rows of {len(stated)} kernels were found")
    print("\n".join(problems))
    print(f"{len(rows)} rows, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
