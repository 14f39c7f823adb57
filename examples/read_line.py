#!/usr/bin/env python3
"""Reads a line of printed text: a picture, NumPy, and the rule that turns steps into characters.

    read_line.py models/lines/lines.qrtmodel models/lines/samples/libertine.png
"""

import sys

import numpy as np
from PIL import Image

import qrt_core as qrt

ROWS = 32
CLASSES = 96  # nothing new, and the printable characters of ASCII


def line_of(path):
    """A picture of any size as the network takes it: 32 rows, black -1 and white 1."""
    picture = Image.open(path).convert("L")
    width = max(16, round(picture.width * ROWS / picture.height / 4) * 4)
    levels = np.asarray(picture.resize((width, ROWS), Image.BILINEAR), np.float32)
    darkest, lightest = np.percentile(levels, (0.5, 99.5))
    return np.clip((levels - darkest) * (2 / max(1, lightest - darkest)) - 1, -1, 1)[None]


def text_of(scores):
    """The best class of each step, repeats taken together, class 0 left out."""
    best = scores.reshape(-1, CLASSES).argmax(1)
    before = np.concatenate([[0], best[:-1]])
    return "".join(chr(31 + k) for k in best[(best != 0) & (best != before)]).strip()


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: read_line.py MODEL PICTURE")
    net = qrt.load(sys.argv[1])["lines"]
    print(text_of(net(line_of(sys.argv[2]))))


if __name__ == "__main__":
    main()
