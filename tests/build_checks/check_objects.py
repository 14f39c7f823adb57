"""Looks into object files for what would make the library fail on a processor without AVX.

usage: check_objects.py avx|fma|avx2|avx512|baseline OBJECT...

Objects compiled for AVX, FMA, AVX2 or AVX-512 may define no symbol that the linker could choose for all files (weak,
unique or common) and may hold no initialiser, which would run when the library is loaded. Objects of
the baseline hold no AVX instruction, those of the AVX and AVX2 sets no fused multiply-add,
those of AVX, FMA and AVX2 no register of AVX-512.
"""

import os
import re
import subprocess
import sys
import tempfile

WEAK = set("WVuC")
INITIALISERS = re.compile(r"\s(\.(?:init_array|preinit_array|ctors|init)[.\w]*)\s")
# An instruction as objdump prints it: address, tab, mnemonic, operands.
INSTRUCTION = re.compile(r"^\s*[0-9a-f]+:\t(?:(?:lock|rep|repz|repnz|data16|cs|ds|es|fs|gs|bnd) )*(\S+)\s*(.*)$")
FUSED = re.compile(r"^vfn?m(add|sub|addsub|subadd)")
AVX512_REGISTER = re.compile(r"%(zmm\d|k[0-7]|[xy]mm(1[6-9]|2\d|3[01]))")
# These begin with a v and are no vector instructions.
OLD_V = {"verr", "verw"}


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def shared_definitions(path):
    for line in run("nm", "--defined-only", "--demangle", path).splitlines():
        parts = line.split(" ", 2)
        if len(parts) == 3 and parts[1] in WEAK:
            yield f"weak definition: {parts[1]} {parts[2]}"


def initialisers(path):
    for section in INITIALISERS.findall(run("readelf", "--sections", "--wide", path)):
        yield f"initialiser section: {section}"


def disassembly(path):
    """Of all code in one section: objdump takes minutes over the thousands that a debug build has."""
    with tempfile.TemporaryDirectory() as folder:
        script = os.path.join(folder, "one_section.ld")
        merged = os.path.join(folder, "merged.o")
        with open(script, "w", encoding="ascii") as file:
            file.write("SECTIONS { .text : { *(.text .text.*) } }\n")
        run("ld", "-r", "--force-group-allocation", "-T", script, "-o", merged, path)
        return run("objdump", "-d", "--no-show-raw-insn", merged)


def forbidden_instructions(path, is_forbidden):
    """Yields the first forbidden instruction of each function."""
    function, reported = "?", None
    for line in disassembly(path).splitlines():
        if line.endswith(">:"):
            function = line[line.index("<") + 1:-2]
            continue
        match = INSTRUCTION.match(line)
        if match and function != reported and is_forbidden(match[1], match[2]):
            reported = function
            yield f"instruction {match[1]} {match[2]} in {run('c++filt', function).strip()}"


def is_avx(mnemonic, operands):
    return (mnemonic.startswith("v") and mnemonic not in OLD_V) or "%ymm" in operands


def is_fused(mnemonic, _):
    return FUSED.match(mnemonic) is not None


def is_avx512(_, operands):
    return AVX512_REGISTER.search(operands) is not None


def check(path, kind):
    if kind == "baseline":
        yield from forbidden_instructions(path, is_avx)
        return
    yield from shared_definitions(path)
    yield from initialisers(path)
    if kind in ("avx", "avx2"):
        yield from forbidden_instructions(path, is_fused)
    if kind != "avx512":
        yield from forbidden_instructions(path, is_avx512)


def main():
    kind, objects = sys.argv[1], sys.argv[2:]
    if kind not in ("avx", "fma", "avx2", "avx512", "baseline") or not objects:
        sys.exit(__doc__)
    problems = [f"{path}: {problem}" for path in objects for problem in check(path, kind)]
    print("\n".join(problems))
    print(f"{len(objects)} {kind} objects, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
