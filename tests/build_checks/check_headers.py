"""Compiles every installed header as C++17, with warnings as errors.

usage: check_headers.py CMAKE BUILD_DIR SOURCE_DIR COMPILER [FLAG...]

The headers are those that the install rules take, in a folder with nothing else beside them, so that a
public header that includes a private one or a dependency of the sources fails here. All are compiled as one, and each on
its own, so that nothing has to come before it; but for those that this build has compiled so, because a source
that is compiled alone includes the header of its name first. Loop bodies that sources share, recognised by an anonymous
namespace, aren't for consumers: they belong into a *_internal.h.
"""

import json
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

FLAGS = ["-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Werror",
         "-x", "c++"]
PRIVATE_DEPENDENCIES = ("rapidjson/", "cblas", "CLI/", "stb")


def headers_below(root):
    for folder, _, files in os.walk(root):
        for name in files:
            if name.endswith(".h"):
                yield os.path.relpath(os.path.join(folder, name), root)


def included_dependencies(path):
    with open(path, encoding="ascii") as lines:
        for line in lines:
            if line.startswith("#include"):
                target = line.split()[1].strip('<>"')
                if target.startswith(PRIVATE_DEPENDENCIES):
                    yield target


def has_anonymous_namespace(path):
    with open(path, encoding="ascii") as file:
        return re.search(r"^\s*namespace\s*\{", file.read(), re.M) is not None


def sources_compiled_alone(build_dir):
    """Not those that another file includes, nor those with headers that come before their own."""
    try:
        with open(os.path.join(build_dir, "compile_commands.json"), encoding="utf-8") as file:
            entries = json.load(file)
    except FileNotFoundError:
        return set()
    return {os.path.realpath(os.path.join(entry["directory"], entry["file"]))
            for entry in entries if " -include" not in entry["command"]}


def is_first_in_its_source(source_dir, header, compiled_alone):
    source = os.path.realpath(os.path.join(source_dir, header.removesuffix(".h") + ".cpp"))
    if source not in compiled_alone:
        return False
    with open(source, encoding="ascii") as file:
        first = next((line for line in file if line.startswith("#include")), "")
    return first.split()[1:] == [f'"{header}"']


def text_problems(root, header):
    path = os.path.join(root, header)
    problems = [f"{header} includes {name}, which consumers don't have" for name in included_dependencies(path)]
    if has_anonymous_namespace(path):
        problems.append(f"{header} is installed and has an anonymous namespace")
    return problems


def compile_problems(compiler, flags, root, headers):
    # Included twice, so that a missing include guard shows as well.
    source = "".join(f'#include "{header}"\n' for header in headers) * 2
    result = subprocess.run([compiler, *FLAGS, *flags, "-I", root, "-"], input=source,
                            capture_output=True, text=True, check=False)
    if result.returncode == 0:
        return []
    what = f"{headers[0]} doesn't compile on its own" if len(headers) == 1 else "the headers don't compile together"
    return [f"{what}:\n{result.stderr}"]


def main():
    cmake, build_dir, source_dir, compiler, *flags = sys.argv[1:]
    with tempfile.TemporaryDirectory(prefix="qrt_headers_") as prefix:
        for component in ("qrt_core_headers", "qrt_toolkit_headers"):
            subprocess.run([cmake, "--install", build_dir, "--prefix", prefix, "--component", component],
                           check=True, stdout=subprocess.DEVNULL)
        root = os.path.join(prefix, "include")
        headers = sorted(headers_below(root))
        problems = [problem for header in headers for problem in text_problems(root, header)]
        compiled = sources_compiled_alone(build_dir)
        alone = [[header] for header in headers if not is_first_in_its_source(source_dir, header, compiled)]
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            for found in pool.map(lambda group: compile_problems(compiler, flags, root, group), [headers, *alone]):
                problems += found
    print("\n".join(problems))
    print(f"{len(headers)} headers, {len(alone)} of them compiled on their own, {len(problems)} problems")
    return 1 if problems or not headers else 0


if __name__ == "__main__":
    sys.exit(main())
