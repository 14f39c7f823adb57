"""House rules that can be seen in the text of the sources.

usage: check_sources.py ROOT

Sources are ASCII with Unix line ends, no file is longer than 600 lines, nothing is left "to do", and the
files for AVX and FMA include only the intrinsics, <cstddef>, <cstdint> and headers of ours that do the same.
"""

import os
import re
import sys

FOLDERS = (
    "qrt_core", "qrt_toolkit", "python", "tools", "tests", "bench", "examples", "fuzz", "models", "cmake", "packaging")
SUFFIXES = (".h", ".cpp", ".py", ".pyi", ".cmake", ".in", ".sh", ".txt", ".map")
CODE = (".h", ".cpp", ".py", ".sh")
LONGEST_FILE = 600
LEFT_TO_DO = re.compile(r"\b(" + "|".join(("TO" + "DO", "FIX" + "ME", "XX" + "X", "HA" + "CK")) + r")\b")
# Looked for here: clang-tidy takes a third of its time for it where there are many vectors.
TYPEDEF = re.compile(r"^\s*typedef\b(?!.*__attribute__)")  # GCC ignores attributes on an alias of a dependent type
CORE_INCLUDES = ("<immintrin.h>", "<cstddef>", "<cstdint>")


def sources_below(root):
    for top in FOLDERS:
        for folder, folders, files in os.walk(os.path.join(root, top)):
            folders[:] = [name for name in folders if name not in ("corpus", "data", "__pycache__")]
            for name in sorted(files):
                if name.endswith(SUFFIXES):
                    yield os.path.relpath(os.path.join(folder, name), root)


def forbidden_includes(root, path, seen):
    """Yields (file, include) for what `path` may not bring into a file for AVX, through our headers too."""
    if path in seen or not os.path.exists(os.path.join(root, path)):
        return
    seen.add(path)
    with open(os.path.join(root, path), encoding="ascii", errors="replace") as file:
        includes = re.findall(r"^\s*#\s*include\s+(\S+)", file.read(), re.M)
    for include in includes:
        if include.startswith('"qrt_core/'):
            yield from forbidden_includes(root, include.strip('"'), seen)
        elif include not in CORE_INCLUDES:
            yield path, include


def check(root, path):
    with open(os.path.join(root, path), "rb") as file:
        content = file.read()
    lines = content.split(b"\n")
    for number, line in enumerate(lines, 1):
        if not line.isascii():
            yield f"{path}:{number}: not ASCII"
        if line.endswith((b"\r", b" ", b"\t")):
            yield f"{path}:{number}: blanks or a carriage return at the end of the line"
        if LEFT_TO_DO.search(line.decode("ascii", "replace")):
            yield f"{path}:{number}: left to do: {line.decode('ascii', 'replace').strip()}"
        if path.endswith((".h", ".cpp")) and TYPEDEF.search(line.decode("ascii", "replace")):
            yield f"{path}:{number}: typedef instead of using"
    if content and not content.endswith(b"\n"):
        yield f"{path}: no newline at the end"
    if path.endswith(CODE) and len(lines) - 1 > LONGEST_FILE:
        yield f"{path}: {len(lines) - 1} lines, {LONGEST_FILE} at most"
    if re.search(r"_(avx|fma|avx2|avx512)\.cpp$", path) and path.startswith("qrt_core"):
        for where, include in forbidden_includes(root, path, set()):
            yield f"{path}: {where} includes {include}, which may bring in shared inline functions"
        if b"#error" not in content:
            yield f"{path}: no #error where the instruction set is missing"


def main():
    root = sys.argv[1]
    paths = list(sources_below(root))
    problems = [problem for path in paths for problem in check(root, path)]
    print("\n".join(problems))
    print(f"{len(paths)} files, {len(problems)} problems")
    return 1 if problems or not paths else 0


if __name__ == "__main__":
    sys.exit(main())
