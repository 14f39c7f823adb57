"""Writes docs/attributes.md: every persisted class with its attributes, as the tests' own list has them.

usage: attributes.py ROOT [--check]

Order, types, defaults and versions are from tests/data/attributes.txt, which the tests compare with the library's classes;
meanings are the comments of the members in the headers. --check compares the document instead.
"""

import glob
import os
import re
import sys

DOCUMENT = "docs/attributes.md"
LIST = "tests/data/attributes.txt"
HEADERS = ("qrt_core/runtime/model/*.h", "qrt_core/runtime/tensor/tensor_shape.h")
ATTRIBUTE = re.compile(r"^  (\S+) (\S+)(?: = (.+?))?(?: since (\d+))?(?: (\S+) before (\d+))?$")
CLASS = re.compile(r"^class (\S+)(?: : (\S+))?(?: code (\d+))?$")
VALUE = r"\b(\w+)(?: = [^;]*|\{[^;]*\})?;"
MEMBER = re.compile(VALUE + r"\s*///<\s*(.*)$")
DERIVED = re.compile(r"^\s*(?:class|struct) (?:QRT_API )?(\w+)(?: final)?(?: : (.*?))? \{$")
SCALARS = {"bool": "1", "i8": "1", "u8": "1", "i16": "2", "u16": "2", "half": "2", "i32": "4", "u32": "4", "f32": "4",
           "i64": "8", "u64": "8", "f64": "8"}
PARTS = ("map", "blobs", "layers", "samplings", "param", "u16ss")

HEAD = """# Attributes of every class

In the order in which they stand in a binary file, and are written in JSON; [file-formats.md](file-formats.md) says how each type is
written. `./dev catalogue` makes this page of the list that the tests hold the classes to.

Numbers are named by their kind and bits: u16, i32, f32, half; u16s is a vector of u16. A blob is trained numbers. The default
is what a new object has, and what a binary file that is older than the attribute leaves. In JSON it holds for nested objects only:
a number that is left out is 0, a boolean false, and a string must be there.

Orders of weights and gates, and what counts a batch, are told with examples in [from-a-trained-network.md](from-a-trained-network.md).
"""


def classes(root):
    """Yields (name, base, code, attributes) of the list."""
    current = None
    with open(os.path.join(root, LIST), encoding="ascii") as lines:
        for line in lines:
            line = line.rstrip("\n")
            begin = CLASS.match(line)
            if begin:
                if current:
                    yield current
                current = (begin[1], begin[2], begin[3], [])
            elif current and line.startswith("  "):
                current[3].append(ATTRIBUTE.match(line).groups())
    yield current


def without_kernel(root):
    """The descriptions that no kernel's source names: nothing but kernels for any description could run them."""
    text = ""
    for path in glob.glob(os.path.join(root, "qrt_core/kernel/**/*"), recursive=True):
        if path.endswith((".h", ".cpp")):
            with open(path, encoding="ascii") as file:
                text += file.read()
    names = [name for name, _, code, _ in classes(root) if code is not None]
    # Inputs run on a kernel for any description.
    return {name for name in names if name != "InputInfo" and not re.search(rf"\b{name}\b", text)}


class Meanings:
    """The comments of the members in the headers, by class and member, and the classes' bases."""

    def __init__(self, root):
        self.comments, self.bases = {}, {}
        for pattern in HEADERS:
            for path in sorted(glob.glob(os.path.join(root, pattern))):
                with open(path, encoding="ascii") as file:
                    # The bases of a class may stand on lines of their own.
                    text = re.sub(r",\n\s+public ", ", public ", file.read())
                self.read(text.split("\n"))

    def read(self, lines):
        name = last = above = None
        outer = []
        for line in lines:
            named = re.match(r"^QRT_NAMED_PARAM\((\w+), (\w+)\)$", line)
            if named:
                self.bases[named[1]] = [named[2]]
            begin, member = DERIVED.match(line), MEMBER.search(line)
            more = re.match(r"^\s*///<\s*(.*)$", line)
            plain = re.search(VALUE + "$", line)
            if outer and line.strip() == "};" and line.index("}") == outer[-1][1]:
                name = outer.pop()[0]
            if begin:
                outer.append((name, len(line) - len(line.lstrip())))
                name = begin[1]
                self.bases[name] = re.findall(r"public (\w+)", begin[2] or "")
            if member:
                last = member[1]
                self.comments[name, last] = member[2]
            elif more and last:
                self.comments[name, last] += " " + more[1]
            else:
                last = None
                if plain and above:
                    self.comments[name, plain[1]] = above
            comment = re.match(r"^\s*/// (.*)$", line)
            above = comment[1].rstrip(".") if comment else None

    def of(self, name, key):
        """The comment behind the member, or the one above it, of the class or of one of its bases."""
        if (name, key) in self.comments:
            return self.comments[name, key]
        found = (self.of(base, key) for base in self.bases.get(name, []))
        return next((comment for comment in found if comment), "")


def bytes_of(kind):
    if kind in SCALARS:
        return SCALARS[kind]
    if kind == "string":
        return "8 + length"
    if kind.endswith("s") and kind[:-1] in SCALARS:
        return f"8 + {SCALARS[kind[:-1]]} each"
    if kind == "strings":
        return "8 + strings"
    if kind == "blob":
        return "8 + 2 each"
    name = kind.partition(":")[0]
    if name not in (*PARTS, "object"):
        sys.exit(f"{LIST}: no such type: {kind}")
    return "" if name == "object" else "its parts"


def kind_text(kind):
    name, _, of = kind.partition(":")
    of = of and f"[{of}](#{of.lower().replace(':', '')})"
    words = {"u16ss": "vector of u16s", "object": f"{of}", "map": f"ids, then a {of} for each", "blobs": "list of blobs",
             "layers": "ids, u16s \"squential_types\", then a description for each",
             "samplings": "u16, then as many [TensorDimemsionSamplingInfo](#tensordimemsionsamplinginfo)",
             "param": "string, then \"infer_param\" of that class where there is one"}
    return words.get(name, kind)


def page(root):
    meanings, unread = Meanings(root), without_kernel(root)
    output = [HEAD]
    for name, base, code, attributes in classes(root):
        output.append(f"## {name}\n")
        notes = [f"Type {code}." if code else "",
                 "No kernel of the library reads it." if name in unread else "",
                 f"First the attributes of [{base}](#{base.lower().replace(':', '')})." if base else ""]
        text = " ".join(note for note in notes if note)
        if text:
            output.append(text + "\n")
        if not attributes:
            continue
        output.append("| Attribute | Type | Bytes | Default | Meaning |\n|---|---|---|---|---|")
        for kind, key, default, since, old, changed in attributes:
            meaning = meanings.of(name.split(":")[-1], key)
            if key == "serializable_type":
                meaning = "name of the class"
            if since and "since version" not in meaning:
                meaning += f"; since version {since}"
            if old and f"before version {changed}" not in meaning:
                meaning += f"; {old} before version {changed}"
            output.append(f"| {key} | {kind_text(kind)} | {bytes_of(kind)} | {default or ''} | {meaning} |")
        output.append("")
    return "\n".join(output)


def main():
    arguments = sys.argv[1:]
    if len(arguments) not in (1, 2) or arguments[1:] not in ([], ["--check"]):
        sys.exit(__doc__)
    path = os.path.join(arguments[0], DOCUMENT)
    text = page(arguments[0])
    if arguments[1:]:
        with open(path, encoding="ascii") as file:
            if file.read() != text:
                print(f"{DOCUMENT} isn't what ./dev catalogue writes")
                return 1
        return 0
    with open(path, "w", encoding="ascii") as file:
        file.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
