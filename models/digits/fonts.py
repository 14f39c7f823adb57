#!/usr/bin/python3
"""Digits out of the fonts that Debian packages: one clean picture per face and digit."""

import os
import subprocess
import sys
from collections import namedtuple

import numpy as np
from PIL import Image, ImageDraw, ImageFont

HERE = os.path.dirname(os.path.abspath(__file__))
MASTER = 64  # side of a master picture
MASTER_HEIGHT = 40  # height of a digit in it
MASTER_WIDTH = 52  # and the width that no digit exceeds

# Faces whose digits are no plain digits: pictograms, key caps, boxes, outlines without a body.
NOT_DIGITS = {
    "D050000L.otf",
    "LinBiolinum_K.otf",
    "NationalPark-Outline.otf",
    "OCRBE.otf",
    "OCRBF.otf",
    "OCRBX.otf",
    "Wargames.ttf",
}

Face = namedtuple("Face", "package family path masters")  # masters: uint8 [10, side, side]


def packages(role):
    """Names of the packages that fonts.txt gives this role, "seen" or "unseen"."""
    with open(os.path.join(HERE, "fonts.txt"), encoding="utf-8") as text:
        rows = [line.split() for line in text if line.strip() and not line.startswith("#")]
    return [package for kind, package in rows if kind == role]


def files_of(package):
    """TrueType and OpenType files of an installed package, sorted, links left out."""
    answer = subprocess.run(["dpkg", "-L", package], capture_output=True, text=True, check=False)
    if answer.returncode != 0:
        sys.exit(
            f"{package} is not installed; README.md has the command that installs all font packages"
        )
    paths = [path for path in answer.stdout.splitlines() if path.lower().endswith((".ttf", ".otf"))]
    return sorted(path for path in paths if not os.path.islink(path))


def fit_into_master(picture):
    """The ink of a grey picture (bright, numpy) centred in a master; None if there is no ink."""
    rows, columns = np.where(picture > 24)
    if len(rows) == 0:
        return None
    ink = Image.fromarray(picture[rows.min() : rows.max() + 1, columns.min() : columns.max() + 1])
    scale = min(MASTER_HEIGHT / ink.height, MASTER_WIDTH / ink.width)
    size = (max(1, round(ink.width * scale)), max(1, round(ink.height * scale)))
    ink = ink.resize(size, Image.LANCZOS)
    master = Image.new("L", (MASTER, MASTER), 0)
    master.paste(ink, ((MASTER - size[0]) // 2, (MASTER - size[1]) // 2))
    return np.asarray(master)


def render_face(path):
    """Masters of the ten digits of one font file, or None if it has no usable digits."""
    try:
        font = ImageFont.truetype(path, 96)
    except OSError:
        return None, ""
    masters = []
    for digit in "0123456789":
        canvas = Image.new("L", (288, 288), 0)
        ImageDraw.Draw(canvas).text((144, 200), digit, font=font, fill=255, anchor="ms")
        masters.append(fit_into_master(np.asarray(canvas)))
    if any(master is None for master in masters):
        return None, ""
    if len({master.tobytes() for master in masters}) < 10:  # the same box for every missing glyph
        return None, ""
    return np.stack(masters), font.getname()[0]


def load_faces(role):
    """All faces of a role; a face whose ten digits equal those of an earlier face is left out."""
    faces, known = [], set()
    for package in packages(role):
        for path in files_of(package):
            if os.path.basename(path) in NOT_DIGITS:
                continue
            masters, family = render_face(path)
            if masters is None or masters.tobytes() in known:
                continue
            known.add(masters.tobytes())
            faces.append(Face(package, family, path, masters))
    return faces


def main():
    """Writes families.txt, the families behind the packages of fonts.txt."""
    with open(os.path.join(HERE, "families.txt"), "w", encoding="utf-8", newline="\n") as text:
        text.write(
            "# The families whose digits are used, by package of fonts.txt: role, package, families.\n"
        )
        for role in ("unseen", "seen"):
            families = {}
            for face in load_faces(role):
                families.setdefault(face.package, set()).add(face.family)
            for package in sorted(families):
                text.write(f"{role}\t{package}\t{', '.join(sorted(families[package]))}\n")


if __name__ == "__main__":
    main()
