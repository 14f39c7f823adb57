"""Runs clang-tidy over sources of a build tree, several of them at a time.

    clang_tidy.py <source tree> <build tree> <jobs> <folder>...

Most of what clang-tidy does is to walk through the headers of the standard library, for each source again. So sources
with the same flags that don't get in each other's way are included by one file, and looked at together; that takes
about a fifth of the time. Where anything is found in such a file, or it can't be compiled, its halves are looked at, and
so on; only what is found in a source alone counts.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "cmake"))
from source_batches import batches_of  # noqa: E402

OURS = r"/(qrt_core|qrt_toolkit|tools)/.*\.(h|cpp)$"


def flags_of(entry):
    """The command of a source without the names of the source and of its object."""
    return re.sub(r" -o \S+ -c \S+$", "", entry["command"])


def unused_usings(path):
    """Using-declarations of a source whose name it doesn't use: another source in the batch may use it."""
    with open(path, encoding="ascii") as file:
        text = file.read()
    return [f"{path}: using declaration of {name} is unused"
            for name in re.findall(r"^using [\w:]+::(\w+);", text, re.MULTILINE)
            if len(re.findall(rf"\b{name}\b", text)) < 2]


def look_at(root, database, path, *options):
    """What clang-tidy says about a source, and whether it found nothing."""
    command = ["clang-tidy", "--quiet", "-p", database, f"--config-file={root}/.clang-tidy",
               f"--header-filter={OURS}", *options, path]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    said = [line for line in (done.stdout + done.stderr).split("\n")
            if line and not re.match(r"(clang-tidy|\d+ warnings? |Suppressed |Use -header|Found compiler error)", line)]
    return "\n".join(said), done.returncode == 0


def main():
    root, build = (os.path.abspath(path) for path in sys.argv[1:3])
    jobs, folders = int(sys.argv[3]), sys.argv[4:]
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = json.load(file)
    sources = {}
    for entry in entries:
        path = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
        if any(path.startswith(os.path.join(root, folder) + "/") for folder in folders):
            sources.setdefault(path, entry)
    if not sources:
        sys.exit(f"clang_tidy.py: the build tree {build} compiles nothing in {' '.join(folders)}")

    def look_together(batch):
        """The batch, what is found in its sources, and whether it is nothing."""
        if len(batch["paths"]) == 1:
            return batch, *look_at(root, build, batch["paths"][0])
        folder = tempfile.mkdtemp(prefix="batch_", dir=together)
        file_name = os.path.join(folder, "batch.cpp")
        with open(file_name, "w", encoding="utf-8") as file:
            file.writelines(f'#include "{path}"\n' for path in batch["paths"])
        with open(os.path.join(folder, "compile_commands.json"), "w", encoding="utf-8") as file:
            # A name of one source may hide that of another.
            flags, directory = kinds[batch["paths"][0]]
            json.dump([{"directory": directory, "file": file_name,
                        "command": f"{flags} -Wno-shadow -c {file_name}"}], file)
        return batch, *look_at(root, folder, file_name)

    together = os.path.join(build, "lint")
    shutil.rmtree(together, ignore_errors=True)
    os.makedirs(together)
    kinds = {path: (flags_of(entry), entry["directory"]) for path, entry in sources.items()}
    waiting, found, runs = batches_of(kinds), [], 0
    with ThreadPoolExecutor(jobs) as pool:
        while waiting:
            runs += len(waiting)
            answers, waiting = list(pool.map(look_together, waiting)), []
            for batch, text, clean in answers:
                paths = batch["paths"]
                if not clean and len(paths) > 1:
                    middle = len(paths) // 2
                    waiting += [dict(batch, paths=half) for half in (paths[:middle], paths[middle:])]
                elif not clean and text not in found:
                    found.append(text)
    for path in sources:
        found += unused_usings(path)
    print(f"{len(sources)} sources looked at in {runs} runs")
    if found:
        sys.exit("\n".join(found))


if __name__ == "__main__":
    main()
