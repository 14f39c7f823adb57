"""The samples of the documents: cuts them out for the tests, checks that none is left out, and runs commands.

usage: samples.py cut ROOT FOLDER           writes FOLDER/NAME.inc for each sample, and prints where they are from
       samples.py check ROOT                every sample is named and used, every excerpt, edit and link holds
       samples.py commands ROOT PROGRAM...  runs the commands that stand in the documents with their output

In a document the line before a block of code says what the block is:
  <!-- sample: NAME -->    what a test of tests/documents includes as "samples/NAME.inc": C++, or else a string
  <!-- excerpt: PATH -->   lines of that file, in their order; a line "..." stands for any lines left out
  <!-- edit: PATH below TEXT -->   lines to write into that file, below the one line that holds TEXT; new_function.py does
A block of C++ or JSON without such a line is a mistake. In public headers the n-th @code block of file.h is the
sample "file_h", "file_h_2" and so on. A block whose first line begins with "$ " holds commands and their output.
"""

import glob
import os
import re
import subprocess
import sys

MARK = re.compile(r"^<!-- (sample|excerpt|edit): (\S+)(?: below (.+))? -->$")
FENCE = re.compile(r"^```(\w*)$")
LINK = re.compile(r"\]\(([^)\s]+)\)")


class Block:
    """A block of code: where it begins, its language, what its mark says, and its lines."""

    def __init__(self, path, line, language, mark):
        self.path, self.line, self.language = path, line, language
        self.kind, self.name, self.below = mark if mark else (None, None, None)
        self.lines = []

    def __str__(self):
        return f"{self.path}:{self.line}"


def read(root, path):
    with open(os.path.join(root, path), encoding="utf-8") as file:
        return file.read().split("\n")


def documents(root):
    for pattern in ("*.md", "docs/*.md", "models/*/*.md"):
        yield from sorted(os.path.relpath(path, root) for path in glob.glob(os.path.join(root, pattern)))


def document_blocks(root, path):
    block, before = None, ""
    for number, line in enumerate(read(root, path), 1):
        fence = FENCE.match(line)
        if block is None and fence:
            mark = MARK.match(before)
            block = Block(path, number, fence[1], mark.groups() if mark else None)
        elif block is not None and fence:
            yield block
            block = None
        elif block is not None:
            block.lines.append(line)
        before = line


def header_blocks(root, path):
    block, count = None, 0
    stem = os.path.basename(path).replace(".", "_")
    for number, line in enumerate(read(root, path), 1):
        text = re.sub(r"^\s*/// ?", "", line)
        begin = re.match(r"@code(\{\.(\w+)\})?$", text)
        if begin:
            count += 1
            name = stem if count == 1 else f"{stem}_{count}"
            block = Block(path, number, begin[2] or "cpp", ("sample", name, None))
        elif text == "@endcode":
            yield block
            block = None
        elif block is not None:
            block.lines.append(text)


def all_blocks(root):
    for path in documents(root):
        yield from document_blocks(root, path)
    for path in sorted(glob.glob(os.path.join(root, "qrt_core/**/*.h"), recursive=True)):
        yield from header_blocks(root, os.path.relpath(path, root))


def cut(root, folder):
    os.makedirs(folder, exist_ok=True)
    for path in sorted({os.path.join(root, path) for path in documents(root)} |
                       {os.path.join(root, block.path) for block in all_blocks(root)}):
        print(path)
    for block in all_blocks(root):
        if block.kind != "sample":
            continue
        text = "\n".join(block.lines) + "\n"
        # What isn't C++ becomes an expression that a test can read; C++ keeps its place for error messages.
        text = f'R"sample({text})sample"\n' if block.language != "cpp" else f'#line {block.line + 1} "{block.path}"\n{text}'
        path = os.path.join(folder, block.name + ".inc")
        old = ""
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                old = file.read()
        if text != old:
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)


def plain(line):
    """A line without what an excerpt may drop: indentation, alignment, and the end of a macro's line."""
    return re.sub(r"\s+", " ", line.rstrip("\\")).strip()


def stands_in(lines, source):
    """Whether `lines` stand in `source`: one after the other, but where "..." stands."""
    source = [plain(line) for line in source]
    parts, part = [], []
    for line in lines:
        if plain(line) == "...":
            parts.append(part)
            part = []
        # The document's own remark on where the lines are.
        elif not re.match(r"// \S+\.(h|cpp)\b", line):
            part.append(plain(line))
    place = 0
    for part in parts + [part]:
        starts = (i for i in range(place, len(source) - len(part) + 1) if source[i:i + len(part)] == part)
        start = next(starts, None)
        if start is None:
            return False
        place = start + len(part)
    return True


def edited(root, block):
    """The lines of the file that an edit is for, with the block in its place."""
    lines = read(root, block.name)
    places = [number for number, line in enumerate(lines) if block.below and block.below in line]
    if len(places) != 1:
        raise ValueError(f"{block}: {len(places)} lines of {block.name} hold {block.below!r}")
    return lines[:places[0] + 1] + block.lines + lines[places[0] + 1:]


def anchors(lines):
    """What a heading can be linked as."""
    for line in lines:
        if line.startswith("#"):
            yield re.sub(r"[^\w\- ]", "", line.lstrip("#").strip().lower()).replace(" ", "-")


def link_problems(root, path):
    for number, line in enumerate(read(root, path), 1):
        for target in LINK.findall(line):
            if target.startswith(("http:", "https:")):
                continue
            file, _, anchor = target.partition("#")
            where = os.path.normpath(os.path.join(os.path.dirname(path), file)) if file else path
            if not os.path.exists(os.path.join(root, where)):
                yield f"{path}:{number}: there is no {where}"
            elif anchor and anchor not in anchors(read(root, where)):
                yield f"{path}:{number}: {where} has no heading #{anchor}"


def check(root):
    used = set()
    for path in glob.glob(os.path.join(root, "tests/documents/*.cpp")):
        used.update(re.findall(r'#include "samples/(\w+)\.inc"', "\n".join(read(root, path))))
    problems, names = [], set()
    for block in all_blocks(root):
        if block.kind == "sample":
            if block.name in names:
                problems.append(f"{block}: another sample is named {block.name}")
            names.add(block.name)
        elif block.kind == "excerpt":
            if not os.path.exists(os.path.join(root, block.name)):
                problems.append(f"{block}: there is no {block.name}")
            elif not stands_in(block.lines, read(root, block.name)):
                problems.append(f"{block}: {block.name} reads otherwise")
        elif block.kind == "edit":
            try:
                edited(root, block)
            except (OSError, ValueError) as failure:
                problems.append(str(failure))
        elif block.language in ("cpp", "json"):
            problems.append(f"{block}: neither a sample, an excerpt nor an edit")
    problems += [f"no test uses the sample {name}" for name in sorted(names - used)]
    problems += [f"there is no sample {name}, which a test uses" for name in sorted(used - names)]
    for path in documents(root):
        problems += link_problems(root, path)
    print("\n".join(problems))
    print(f"{len(names)} samples, {len(problems)} problems")
    return 1 if problems or not names else 0


def commands_of(block):
    """Yields (command, expected lines)."""
    command, expected = None, []
    for line in block.lines:
        if command is not None and command.endswith("\\"):
            command = command[:-1] + line.strip()
        elif line.startswith("$ "):
            if command is not None:
                yield command, expected
            command, expected = line[2:], []
        else:
            expected.append(line)
    yield command, expected


def commands(root, programs):
    path = os.pathsep.join([*(os.path.dirname(program) for program in programs), os.environ["PATH"]])
    names = {os.path.basename(program) for program in programs}
    problems, count = [], 0
    for document in documents(root):
        for block in document_blocks(root, document):
            if not block.lines or not block.lines[0].startswith("$ "):
                continue
            for command, expected in commands_of(block):
                if command.split()[0] not in names:
                    problems.append(f"{block}: no such program here: {command}")
                    continue
                count += 1
                result = subprocess.run(command, shell=True, cwd=root, env={**os.environ, "PATH": path},
                                        capture_output=True, text=True, check=False)
                found = result.stdout.rstrip("\n").split("\n")
                if result.returncode != 0 or not stands_in(expected, found) or len(found) < len(expected):
                    problems.append(f"{block}: {command} printed\n{result.stdout}{result.stderr}")
    print("\n".join(problems))
    print(f"{count} commands, {len(problems)} problems")
    return 1 if problems or count == 0 else 0


def main():
    arguments = sys.argv[1:]
    if len(arguments) == 3 and arguments[0] == "cut":
        return cut(*arguments[1:])
    if len(arguments) == 2 and arguments[0] == "check":
        return check(arguments[1])
    if len(arguments) >= 3 and arguments[0] == "commands":
        return commands(arguments[1], arguments[2:])
    sys.exit(__doc__)


if __name__ == "__main__":
    sys.exit(main())
