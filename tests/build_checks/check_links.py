"""Links every function that the umbrella header declares against the shared library.

usage: check_links.py COMPILER LIBRARY ROOT [FLAG...]

A declaration that the library doesn't export compiles in an application and fails when it is linked. What is defined
in a header, templates and members of classes are left out: a class is exported as a whole or meant for the static form.
"""

import os
import re
import subprocess
import sys
import tempfile

UMBRELLA = "qrt_core/qrt_core.h"
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
STRING = re.compile(r'"(?:[^"\\\n]|\\.)*"')
DIRECTIVE = re.compile(r"^[ \t]*#(?:[^\n\\]|\\.|\\\n)*$", re.M)
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]+"([^"]+)"', re.M)
NAMESPACE = re.compile(r"(?:inline\s+)?namespace\s+([\w:]*)\s*$")
ATTRIBUTE = re.compile(r"\bQRT_API\b|\[\[[^\]]*\]\]|__attribute__\s*\(\((?:[^()]|\([^()]*\))*\)\)|\bextern\b(?:\s*\"C\")?")
OTHER = re.compile(r"^(?:template|using|typedef|struct|class|enum|union|friend|inline|constexpr|static)\b")


def headers_of(root, first):
    """All headers of the project that `first` includes, itself too."""
    found, waiting = [], [first]
    while waiting:
        header = waiting.pop()
        path = os.path.join(root, header)
        if header in found or not os.path.exists(path):
            continue
        found.append(header)
        with open(path, encoding="ascii") as file:
            waiting += INCLUDE.findall(file.read())
    return sorted(found)


def statements(text):
    """Yields (namespace, text) of every statement that ends with a semicolon outside of classes and functions."""
    spaces, start, i = [], 0, 0
    while i < len(text):
        c = text[i]
        if c == ";":
            yield "::".join(spaces), text[start:i].strip()
            start = i + 1
        elif c == "}":
            spaces.pop()
            start = i + 1
        elif c == "{":
            head = text[start:i].strip()
            space = NAMESPACE.match(head)
            if space or head.startswith('extern "C"') and "(" not in head:
                spaces.append(space[1] if space else "")
            else:
                depth = 1
                while depth:
                    i += 1
                    depth += {"{": 1, "}": -1}.get(text[i], 0)
                # A class goes on to its semicolon; a function ends with its brace.
                if not OTHER.match(head) or "(" in head:
                    start = i + 1
                    i += 1
                    continue
            if space or head.startswith('extern "C"'):
                start = i + 1
        i += 1


def without_defaults(parameters):
    result, depth, skipping = "", 0, False
    for c in parameters:
        if skipping and depth == 0 and c == ",":
            skipping = False
        if c in "(<{[":
            depth += 1
        elif c in ")>}]":
            depth -= 1
        if c == "=" and depth == 0:
            skipping = True
        if not skipping:
            result += c
    return result


def pointer_to(declaration, variable):
    """A pointer to the function that is declared, or None if it isn't one."""
    declaration = ATTRIBUTE.sub("", declaration).strip()
    if OTHER.match(declaration) or "(" not in declaration or "{" in declaration:
        return None
    depth, begin = 0, None
    for i, c in enumerate(declaration):
        depth += {"<": 1, ">": -1}.get(c, 0)
        if c == "(" and depth == 0:
            begin = i
            break
    if begin is None:
        return None
    name = re.search(r"([A-Za-z_]\w*)\s*$", declaration[:begin])
    # Without a type in front it is a macro or an assertion.
    if name is None or not declaration[:name.start()].strip() or re.search(r"\boperator\b", declaration[:begin]):
        return None
    end = declaration.rindex(")")
    return (name[1], f"{declaration[:name.start()]} (*{variable})({without_defaults(declaration[begin + 1:end])})"
                     f"{declaration[end + 1:]} = &{name[1]};")


def program(root):
    """The source of a program that refers to all functions, and their names."""
    lines, names = [f'#include "{UMBRELLA}"'], []
    for header in headers_of(root, UMBRELLA):
        with open(os.path.join(root, header), encoding="ascii") as file:
            text = DIRECTIVE.sub("", COMMENT.sub("", file.read()))
        for space, declaration in statements(text):
            space = re.sub(r"^:+|:+$", "", re.sub(r"::(::)+", "::", space))
            pointer = pointer_to(declaration, f"qrt_link_{len(names)}")
            if pointer is None:
                continue
            names.append(f"{space}::{pointer[0]}")
            lines.append(f"namespace {space} {{ {pointer[1]} }}" if space else pointer[1])
    return "\n".join([*lines, "int main() {}", ""]), names


def main():
    compiler, library, root, *flags = sys.argv[1:]
    source, names = program(root)
    with tempfile.TemporaryDirectory(prefix="qrt_links_") as folder:
        result = subprocess.run(
            [compiler, "-std=c++17", "-O0", *flags, "-I", root, "-x", "c++", "-", "-x", "none", library,
             f"-Wl,-rpath,{os.path.dirname(library)}", "-o", os.path.join(folder, "program")],
            input=source, capture_output=True, text=True, check=False)
    missing = sorted(set(re.findall(r"undefined reference to `([^']+)'", result.stderr)))
    for name in missing:
        print(f"declared and not exported: {name}")
    if result.returncode != 0 and not missing:
        print(result.stderr)
    print(f"{len(names)} functions, {len(missing)} not exported")
    # A header whose functions aren't found any more would pass in silence.
    expected = {"marlo::utility::load_model", "marlo::runtime::CreateNet", "marlo::kernel::Sgemm",
                "marlo::kernel::functional::Normalize_CHW_Float_SSE", "::QRT_Get_Core_Version"}
    absent = expected - set(names)
    for name in sorted(absent):
        print(f"not found in the headers: {name}")
    return 1 if result.returncode != 0 or absent else 0


if __name__ == "__main__":
    sys.exit(main())
