"""What help() shows: every public name says what it is, takes, gives and raises."""

import ast
import builtins
import inspect
import os
import re

import pytest
import qrt_core as qrt

PACKAGE = os.path.dirname(qrt.__file__)
NAMES = [*qrt.__all__, *(f"image.{name}" for name in qrt.image.__all__)]
TYPES = re.compile(r"uint8|float32|float64|numbers|as of a call|as a call takes them|arrays? ")
SHAPE = re.compile(r"\((height|channels|3|1|\w+, )|shape|pixels|`layout`|`size`|An array|call\s+returns|Profile")
# They take nothing that could be wrong.
RAISE_NOTHING = {"kernels", "Model.to_dict"}


def trees():
    for name in sorted(os.listdir(PACKAGE)):
        if name.endswith((".py", ".pyi")):
            with open(os.path.join(PACKAGE, name), encoding="utf-8") as file:
                yield name, ast.parse(file.read())


def functions_of(tree, prefix=""):
    for node in tree.body:
        if isinstance(node, ast.FunctionDef):
            yield prefix + node.name, node
        elif isinstance(node, ast.ClassDef):
            yield from functions_of(node, f"{prefix}{node.name}.")


SIGNATURES = {name: node for _, tree in trees() for name, node in functions_of(tree)}


def named(name):
    thing = qrt
    for part in name.split("."):
        thing = getattr(thing, part)
    return thing


def members(name):
    """The public members of a class that it defines itself, and calls of it."""
    thing = named(name)
    if inspect.isclass(thing):
        for member in list(vars(thing)):
            is_field = member in getattr(thing, "_fields", ()) or member in getattr(thing, "__annotations__", ())
            if (not member.startswith("_") or member == "__call__") and not is_field:
                yield f"{name}.{member}"


EVERYTHING = [*NAMES, *(member for name in NAMES for member in members(name))]
CALLABLES = [name for name in EVERYTHING if callable(named(name)) and not inspect.isclass(named(name))]


def faults_of(name, text, node):
    """What a docstring of a function doesn't say."""
    parts = dict(re.findall(r"^(Args|Returns|Raises):\n((?:[ ]+.*\n?|\n)+)", text, re.MULTILINE))
    arguments = [argument.arg for argument in (*node.args.posonlyargs, *node.args.args, *node.args.kwonlyargs)]
    arguments = [argument for argument in arguments if argument != "self"]
    if node.args.vararg:
        arguments.append(node.args.vararg.arg)
    for argument in arguments:
        if not re.search(rf"^    (?:\w+, )*{argument}(?:, \w+)*: \S", parts.get("Args", ""), re.MULTILINE):
            yield f"{name}: nothing on the argument {argument}"
    gives = not (isinstance(node.returns, ast.Constant) and node.returns.value is None)
    if gives and "Returns" not in parts and (arguments or not text.strip()):
        yield f"{name}: nothing on what it returns"
    if arguments and name not in RAISE_NOTHING:
        raised = re.findall(r"^    ([\w, ]+):", parts.get("Raises", ""), re.MULTILINE)
        if not raised:
            yield f"{name}: nothing on what it raises"
        for error in ", ".join(raised).split(", ") if raised else []:
            if not hasattr(qrt, error) and not hasattr(builtins, error):
                yield f"{name}: there is no {error}"
    if name.startswith("image.") or name in ("Net.__call__", "Net.run", "Net.profile"):
        if not TYPES.search(parts.get("Args", "")):
            yield f"{name}: nothing on the types that it takes"
        if not SHAPE.search(parts.get("Returns", "")):
            yield f"{name}: nothing on the shape that it returns"


@pytest.mark.parametrize("name", EVERYTHING)
def test_every_name_says_what_it_is(name):
    text = inspect.getdoc(named(name)) or ""
    lines = [line for line in text.splitlines() if line and not line.startswith(name.split(".")[-1] + "(")]
    assert lines and lines[0][0].isupper() or text.startswith(('"', "'", "(")), text


@pytest.mark.parametrize("name", CALLABLES)
def test_every_function_says_what_it_takes_gives_and_raises(name):
    text = inspect.getdoc(named(name)) or ""
    key = name[len("image."):] if name.startswith("image.") else name
    assert list(faults_of(name, text, SIGNATURES[key])) == []


def test_every_field_says_what_it_is():
    """Fields have no docstring of their own: the text behind each is for the reader and his editor."""
    seen = 0
    for file, tree in trees():
        for node in ast.walk(tree):
            if not isinstance(node, ast.ClassDef) or node.name not in qrt.__all__ or file.endswith(".pyi"):
                continue
            for at, field in enumerate(node.body):
                if isinstance(field, ast.AnnAssign) and not field.target.id.startswith("_"):
                    behind = node.body[at + 1] if at + 1 < len(node.body) else None
                    is_text = isinstance(behind, ast.Expr) and isinstance(behind.value, ast.Constant)
                    assert is_text and isinstance(behind.value.value, str), f"{file}: {node.name}.{field.target.id}"
                    seen += 1
    assert seen > 50


def test_what_is_missing_is_found():
    node = ast.parse("def f(a, b): ...").body[0]
    assert list(faults_of("f", "Does it.\n\nArgs:\n    a: 3 float32.\n", node)) == [
        "f: nothing on the argument b",
        "f: nothing on what it returns",
        "f: nothing on what it raises",
    ]
    text = "Does it.\n\nArgs:\n    a, b: 3.\n\nReturns:\n    4.\n\nRaises:\n    NoError: never.\n"
    assert list(faults_of("f", text, node)) == ["f: there is no NoError"]
    assert "image.f: nothing on the types that it takes" in faults_of("image.f", text, node)
