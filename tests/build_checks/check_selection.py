"""Links a program with the kernels of one model only, and says how large it is.

usage: check_selection.py COMPILER TOOL LIBRARY MODEL ROOT INCLUDE... [-- LINK_FLAG...]

The same source is linked with the whole library and with what `qrt select` writes. Both must compute the same from the
model, the selected one must hold the entries of the model's kernels and of no others, and be clearly smaller.
"""

import os
import re
import subprocess
import sys
import tempfile

PROGRAM = r"""
#include <cstdio>
#include <vector>

#include <qrt_core/utility/model.h>

int main(int, char** arguments) {
  marlo::utility::Model model(arguments[1]);
  const std::vector<float> white(28 * 28, 1.0f);
  const auto results = model.run({{1, 28, 28}, white});
  for (const float logit : results[0].elements()) std::printf("%.9g\n", logit);
}
"""
# Of the whole library's size. The library is read in whole before the linker drops what nobody calls.
LARGEST_SHARE = 0.6


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def rows_in(program):
    """Kernels whose class is in the program: the names of their classes' tables."""
    found = set()
    for line in run("nm", "--demangle", "--defined-only", program).splitlines():
        match = re.search(r"vtable for marlo::kernel::KernelClass<.*rows::(\w+)>", line)
        if match:
            found.add(match[1])
    return found


def stripped_size(program):
    run("strip", "-o", program + ".stripped", program)
    return os.path.getsize(program + ".stripped")


def main(arguments):
    link_flags = []
    if "--" in arguments:
        at = arguments.index("--")
        arguments, link_flags = arguments[:at], arguments[at + 1:]
    compiler, tool, library, model, root, *includes = arguments
    with tempfile.TemporaryDirectory() as folder:
        program = os.path.join(folder, "program.cpp")
        with open(program, "w", encoding="ascii") as file:
            file.write(PROGRAM)
        selected = os.path.join(folder, "register_kernels.cpp")
        run(tool, "select", model, "--output", selected)
        with open(selected, encoding="ascii") as file:
            kernels = set(re.findall(r"QRT_DECLARE_KERNEL_ENTRY\((\w+)\)", file.read()))
        flags = ["-std=c++17", "-O2", "-I", root] + [flag for i in includes for flag in ("-I", i)]
        sizes, answers = {}, {}
        for name, sources in (("whole", [program]), ("selected", [program, selected])):
            out = os.path.join(folder, name)
            run(compiler, *flags, *sources, library, "-Wl,--gc-sections", *link_flags, "-o", out)
            sizes[name] = stripped_size(out)
            answers[name] = run(out, model)
        faults = []
        if answers["whole"] != answers["selected"] or not answers["whole"]:
            faults.append("the programs compute different numbers")
        rows = rows_in(os.path.join(folder, "selected"))
        if rows != kernels:
            faults.append(f"too many: {sorted(rows - kernels)}, missing: {sorted(kernels - rows)}")
        if not rows_in(os.path.join(folder, "whole")) > kernels:
            faults.append("the whole library has no more kernels than the model names")
        share = sizes["selected"] / sizes["whole"]
        print(f"{len(kernels)} kernels: {sizes['selected']} bytes; the whole library: {sizes['whole']} bytes "
              f"({share:.2f})")
        if share > LARGEST_SHARE:
            faults.append(f"the selected program has {share:.2f} of the other's size, allowed are {LARGEST_SHARE}")
        for fault in faults:
            print(fault, file=sys.stderr)
        return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
