"""The example that reads a line, on the samples of the model that ships."""

import os
import subprocess
import sys

import models
import pytest

pytest.importorskip("PIL")

SCRIPT = os.path.join(models.ROOT, "examples", "read_line.py")
LINES = os.path.join(models.ROOT, "models", "lines")


def read(picture):
    command = [sys.executable, SCRIPT, os.path.join(LINES, "lines.qrtmodel"), picture]
    return subprocess.run(command, capture_output=True, text=True, check=False)


@pytest.mark.parametrize("name", ["libertine.png", "go-mono.png"])
def test_samples_read_as_expected(name):
    with open(os.path.join(LINES, "samples", "labels.txt"), encoding="ascii") as rows:
        texts = dict(row.rstrip("\n").split("\t") for row in rows)
    answer = read(os.path.join(LINES, "samples", name))
    assert answer.returncode == 0, answer.stderr
    assert answer.stdout == texts[name] + "\n"


def test_what_is_no_picture_is_refused():
    answer = read(os.path.join(LINES, "README.md"))
    assert answer.returncode != 0
    assert "cannot identify image file" in answer.stderr
