"""Adds the function of docs/add-a-kernel.md by what stands there alone, and runs the family's tests over its kernels.

usage: new_function.py ROOT COMPILER [FLAG...] -- LIBRARY...

The edits of the document are made in copies of the files that they name, in a folder that the compiler looks into first.
What is compiled from it goes in front of the libraries, which know nothing of the function.
"""

import os
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

import samples

GUIDE = "docs/add-a-kernel.md"
FUNCTION = "SquaredReLU"
TEST = "tests/kernel/extension/elementary/element_function_test.cpp"
FAMILY = "qrt_core/kernel/extension/elementary/element_function"
# Each source that the list of functions or the list of rows reaches, with its flags.
SOURCES = {
    f"{FAMILY}.cpp": [],
    f"{FAMILY}s_portable.cpp": [],
    f"{FAMILY}s_fma.cpp": ["-mavx", "-mfma"],
    f"{FAMILY}s_avx512.cpp": ["-mavx512f", "-mavx512vl", "-mavx512bw", "-mavx512dq", "-mfma"],
    "qrt_core/runtime/engine/kernel_table.cpp": [],
    "qrt_core/runtime/engine/register_extension_kernels.cpp": [],
    TEST: [],
}


def main():
    if "--" not in sys.argv:
        sys.exit(__doc__)
    divider = sys.argv.index("--")
    root, compiler, *flags = sys.argv[1:divider]
    libraries = sys.argv[divider + 1:]
    with tempfile.TemporaryDirectory(prefix="qrt_new_function_") as folder:
        edits = [block for block in samples.document_blocks(root, GUIDE) if block.kind == "edit"]
        for block in edits:
            path = os.path.join(folder, block.name)
            if os.path.exists(path):
                sys.exit(f"{block}: {block.name} has been edited before")
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write("\n".join(samples.edited(root, block)))
        print(f"{len(edits)} edits of {GUIDE}")

        def compile_source(source):
            copy = os.path.join(folder, source)
            output = os.path.join(folder, os.path.basename(source) + ".o")
            subprocess.run([compiler, "-std=c++20", "-O0", "-Wall", "-Wextra", "-Werror", "-ffp-contract=off", "-I", folder,
                            "-I", root, *flags, *SOURCES[source], "-c", "-o", output,
                            copy if os.path.exists(copy) else os.path.join(root, source)], check=True)
            return output

        with ThreadPoolExecutor(os.cpu_count()) as pool:
            objects = list(pool.map(compile_source, SOURCES))
        program = os.path.join(folder, "test")
        subprocess.run([compiler, "-o", program, *objects, *libraries], check=True)
        result = subprocess.run([program, f"--gtest_filter=*{FUNCTION}*"], check=False, capture_output=True, text=True)
    print(result.stdout)
    kernels = [f"{FUNCTION}_{kind}{instructions}_Float_M1" for kind in ("", "Inplace_")
               for instructions in ("Fallback", "FMA", "AVX512")]
    missing = [kernel for kernel in kernels if kernel not in result.stdout]
    if missing:
        print("no test of " + ", ".join(missing))
    return 1 if missing or result.returncode != 0 else 0


if __name__ == "__main__":
    sys.exit(main())
