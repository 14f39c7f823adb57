#!/usr/bin/python3
"""Faces out of the fonts that Debian packages: those that have all 95 printable characters of ASCII."""

import fnmatch
import os
import subprocess
import sys
from collections import namedtuple

import numpy as np
from PIL import Image, ImageDraw, ImageFont

HERE = os.path.dirname(os.path.abspath(__file__))
CHARACTERS = "".join(chr(code) for code in range(32, 127))
PROBE = 48  # size at which a face is looked at

Face = namedtuple("Face", "package family style path")


def packages(role):
    """Names of the packages that fonts.txt gives this role: "seen", "unseen", "handwriting" or "apart"."""
    with open(os.path.join(HERE, "fonts.txt"), encoding="utf-8") as text:
        rows = [line.split() for line in text if line.strip() and not line.startswith("#")]
    return [package for kind, package in rows if kind == role]


def left_out():
    """Patterns of the names of font files that are not used."""
    with open(os.path.join(HERE, "left_out.txt"), encoding="utf-8") as text:
        return [line.split()[0] for line in text if line.strip() and not line.startswith("#")]


def files_of(package):
    """Font files of an installed package, sorted, links left out."""
    answer = subprocess.run(["dpkg", "-L", package], capture_output=True, text=True, check=False)
    if answer.returncode != 0:
        sys.exit(
            f"{package} is not installed; README.md has the command that installs all font packages"
        )
    endings = (".ttf", ".otf", ".ttc")
    paths = [path for path in answer.stdout.splitlines() if path.lower().endswith(endings)]
    return sorted(path for path in paths if not os.path.islink(path))


def open_font(path, size):
    """A font without ligatures: what is drawn is one glyph a character."""
    return ImageFont.truetype(path, size, layout_engine=ImageFont.Layout.BASIC)


def glyphs(font):
    """Each character's picture, as its size and bytes."""
    masks = [font.getmask(character) for character in CHARACTERS + "\uffff"]
    return [(mask.size, bytes(mask)) for mask in masks]


def same_form(font, first, second):
    """Whether two characters are one form at two sizes, as small capitals are of capitals."""
    forms = []
    for character in (first, second):
        canvas = Image.new("L", (4 * PROBE, 4 * PROBE), 0)
        ImageDraw.Draw(canvas).text((PROBE, PROBE), character, font=font, fill=255)
        box = canvas.getbbox()
        if box is None:
            return True
        forms.append(np.asarray(canvas.crop(box).resize((32, 32), Image.BILINEAR), np.float32))
    return float(np.abs(forms[0] - forms[1]).mean()) < 12


def usable(font):
    """Whether a face has every character, each its own, and small letters that are no capitals."""
    drawn = glyphs(font)
    missing = drawn[-1]
    visible = [glyph for glyph in drawn[1:-1] if 0 not in glyph[0] and any(glyph[1])]
    if len(visible) < 94 or (any(missing[1]) and visible.count(missing) > 0):
        return False
    if len(set(visible)) < 91:  # I, l, | and the like may coincide; boxes do more often
        return False
    pairs = ("aA", "eE", "gG", "rR", "dD")
    return sum(same_form(font, *pair) for pair in pairs) < 2


def load_faces(role):
    """All faces of a role; a face that draws what an earlier one does is left out."""
    faces, known, patterns = [], set(), left_out()
    for package in packages(role):
        for path in files_of(package):
            if any(fnmatch.fnmatchcase(os.path.basename(path), pattern) for pattern in patterns):
                continue
            try:
                font = open_font(path, PROBE)
                if not usable(font):
                    continue
            except OSError:
                continue
            drawing = hash(tuple(glyphs(font)))
            if drawing in known:
                continue
            known.add(drawing)
            faces.append(Face(package, *font.getname(), path))
    return faces


def main():
    """Writes families.txt, the families behind the packages of fonts.txt."""
    with open(os.path.join(HERE, "families.txt"), "w", encoding="utf-8", newline="\n") as text:
        text.write("# The families that are used, by package of fonts.txt: role, package, families.\n")
        for role in ("unseen", "handwriting", "seen"):
            families = {}
            for face in load_faces(role):
                families.setdefault(face.package, set()).add(face.family)
            for package in sorted(families):
                text.write(f"{role}\t{package}\t{', '.join(sorted(families[package]))}\n")


if __name__ == "__main__":
    main()
