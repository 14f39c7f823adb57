"""Which sources can be compiled as one: none uses a name that another keeps to itself.

    source_batches.py <source>...

prints the number of a batch and a source in each line. Most of what a compiler does for a source of ours is to read the
headers of the standard library, so sources that are included by one file take a fraction of the time.
"""

import re
import sys

MOST_SOURCES = 32
MOST_LINES = 4000


# What an expression for a declaration takes for its name, and isn't.
KEYWORDS = {"const", "constexpr", "default", "delete", "false", "namespace", "noexcept", "operator", "override",
            "return", "sizeof", "static", "true"}


def names_in(path, text):
    """The names that a source keeps to itself, with what declares them; those among them that name what others have
    declared; and all words that may refer to such a name. Declarations of a namespace begin at the beginning of a
    line, where clang-format puts them. Too many names are harmless."""
    shared = {name: line for line, name in re.findall(r"^(using [\w:]+::(\w+);)", text, re.MULTILINE)}
    own = dict(shared)
    for block in re.findall(r"^namespace \{$.*?^\}  // namespace$", text, re.MULTILINE | re.DOTALL):
        for line in block.split("\n"):
            if (not re.match(r"[A-Za-z_\[]", line) or re.match(r"(namespace|template|extern)\b", line)
                    or re.match(r"[A-Z_]+\(", line)):
                continue
            found = (re.match(r"(?:struct|class|enum class|enum|union|using) (\w+)\b(?!::)", line)
                     or re.search(r"(?<![\w:~.])(\w+)\(", line)
                     or re.search(r"(?<![\w:])(\w+)(?:\[.*\])?(?: =|\{|;)", line))
            if found and found[1] not in KEYWORDS:
                own[found[1]] = path
                shared.pop(found[1], None)
    # A macro that a source takes back is a name of its own like the others.
    own.update((name, path) for name in re.findall(r"^ *# *define (\w+)", text, re.MULTILINE))
    code = re.sub(r'//[^\n]*|"(?:\\.|[^"\\\n])*"', "", text)
    # Not those that belong to something: x.name, x->name, space::name.
    return own, set(shared), set(re.findall(r"(?<![\w.])(?<!->)(?<!::)\w+", code))


def leaves_macros(text):
    defined, taken_back = (set(re.findall(rf"^ *# *{word} (\w+)", text, re.MULTILINE)) for word in ("define", "undef"))
    return not defined <= taken_back


def clash(one, other):
    """Whether one keeps a name to itself that the other refers to, and doesn't declare alike. What is declared
    elsewhere is the same thing for both, unless the other has something else of that name."""
    own, shared, _ = one
    others, _, words = other
    return any(others.get(name) != own[name] and (name in others or name not in shared)
               for name in own.keys() & (words | others.keys()))


def batches_of(sources):
    """Lists of sources that can be compiled together, the longest first.

    sources: path to what has to be equal within a batch, such as the compiler's flags.
    """
    batches = []
    for path, kind in sorted(sources.items()):
        with open(path, encoding="ascii") as file:
            text = file.read()
        names = names_in(path, text)
        lines = text.count("\n")
        if re.search(r"^ *# *define\b.*^ *# *include\b", text, re.MULTILINE | re.DOTALL) or leaves_macros(text):
            kind = (kind, path)  # What a macro changes are the headers behind it.
        for batch in batches:
            if (batch["kind"] == kind and len(batch["paths"]) < MOST_SOURCES and batch["lines"] + lines <= MOST_LINES
                    and not any(clash(names, others) or clash(others, names) for others in batch["names"])):
                break
        else:
            batch = {"kind": kind, "paths": [], "names": [], "lines": 0}
            batches.append(batch)
        batch["paths"].append(path)
        batch["names"].append(names)
        batch["lines"] += lines
    return sorted(batches, key=lambda batch: -batch["lines"])


if __name__ == "__main__":
    for number, batch in enumerate(batches_of({path: None for path in sys.argv[1:]})):
        for path in batch["paths"]:
            print(number, path)
