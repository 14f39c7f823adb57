"""Checks that docs/troubleshooting.md explains every message of the library.

usage: messages.py ROOT [--list]

A message is a piece of text with a blank in qrt_core/. In the document it stands between backquotes, with an ellipsis (one character) where the
library puts a name or a number. --list prints the messages instead.
"""

import glob
import os
import re
import sys

DOCUMENT = "docs/troubleshooting.md"
STRINGS = re.compile(r'"(?:[^"\\\n]|\\.)*"(?:\s*(?:PRI\w+\s*)?"(?:[^"\\\n]|\\.)*")*')
PIECE = re.compile(r'"((?:[^"\\]|\\.)*)"')
VALUE = re.compile(r"%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z|j|t)?[a-zA-Z]")
ELLIPSIS = "\u2026"
# Sources that say nothing but what a kernel expects and what it found instead: see PIECES.
REASONS = re.compile(r"(?:/acceptance|_facts)\.cpp$|/misfits_internal\.h$")
# Findings explain themselves; the document has a line for each of their codes.
FINDINGS = re.compile(r"utility/(check_(json|model|network|network_shapes|overwritten|weights)|nearest_name)\.cpp$")
CODES = re.compile(r"const names\[\] = \{(.*?)\};", re.S)
# Functions that say the same.
REASONING = re.compile(r"^KernelFamily::Misfits .*?^}$", re.M | re.S)
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
PREPROCESSOR = re.compile(r"^[ \t]*#[ \t]*(?:error|include|if).*$|static_assert\([^;]*;", re.M)
# Pieces that complete another message, and what only a compiler says.
PIECES = {
    "a boolean", "an object", "an array", "a string", "a number", "an integer", "an array of arrays", "the document",
    "AVX and FMA", "AVX2 and FMA", "rows of ", " of rows", "unknown type", " layout ", " and ",
    "] (Verbose): ", "] (Info): ", "] (Warnning): ",
    # Members, expectations and findings of a kernel's reasons, which explain themselves.
    ", the rectifier", ", the leaky rectifier", ", tanh", "a layer that ", "inputs that ", "no description", "a description", "one tensor", "one tensor in main memory", "inference parameter", "input 0", "step size of input 0",
    "stride_y, stride_x", "above 0", "another one", "FLOAT32, which a pass computes", "an even size; an odd last row or column holds the bias alone",
    # Faults of check_shapes, which the document explains as whole sentences.
    " refuses ", " would make ", " of ", ", which no tensor can hold", ", which is empty", " refuses its own output ",
    "no shape is given for this input", " would make nothing", "it is a null pointer",
    "it has a kernel or converter that could not be configured",
    # Parts of a story, and what fills the place of a name in one.
    ", kernel ", ": expected ", "expected ", ": found ", ", found ", "input converter ", "output converter ",
    "input converter", "output converter", 'network "', "layer ", "layout ", " in ", "an unknown location",
    "a tensor in each position", "a null pointer", "layers are named by their ids", "networks are named by their ids",
    "the file ", " is not a model", "it reads layer ", ", which gives nothing",
}


def messages_of(text):
    text = REASONING.sub("", PREPROCESSOR.sub("", COMMENT.sub("", text)))
    for match in STRINGS.finditer(text):
        message = "".join(PIECE.findall(match[0]))
        message = message.replace('\\"', '"').replace("\\n", "").replace("\\\\", "\\")
        if " " not in message.strip() or message in PIECES:
            continue
        message = VALUE.sub(ELLIPSIS, message).strip(" ,")
        if re.search(r"[A-Za-z]{2}", message.replace(ELLIPSIS, "")):
            yield re.sub(r" +", " ", message)


def all_messages(root):
    found = {}
    for path in sorted(glob.glob(os.path.join(root, "qrt_core/**/*"), recursive=True)):
        if path.endswith("check_model.cpp"):
            with open(path, encoding="ascii") as file:
                for code in PIECE.findall(CODES.search(file.read())[1]):
                    found[code] = os.path.relpath(path, root)
        if path.endswith((".h", ".cpp")) and not FINDINGS.search(path) and not REASONS.search(path):
            with open(path, encoding="ascii") as file:
                for message in messages_of(file.read()):
                    found.setdefault(message, os.path.relpath(path, root))
    return found


def main():
    arguments = sys.argv[1:]
    if len(arguments) not in (1, 2) or arguments[1:] not in ([], ["--list"]):
        sys.exit(__doc__)
    root = arguments[0]
    messages = all_messages(root)
    if arguments[1:]:
        for message, path in messages.items():
            print(f"{path}: {message}")
        return 0
    with open(os.path.join(root, DOCUMENT), encoding="utf-8") as file:
        document = re.sub(r"\s+", " ", file.read())
    problems = [f"{path}: {DOCUMENT} doesn't explain `{message}`"
                for message, path in messages.items() if f"`{message}`" not in document]
    explained = re.findall(r"^\| `([^`]+)`", open(os.path.join(root, DOCUMENT), encoding="utf-8").read(), re.M)
    problems += [f"{DOCUMENT}: nothing says `{text}`" for text in explained if text not in messages]
    print("\n".join(problems))
    print(f"{len(messages)} messages, {len(problems)} problems")
    return 1 if problems or not messages else 0


if __name__ == "__main__":
    sys.exit(main())
