#!/usr/bin/python3
"""Makes samples/photo.jpg: one digit written with a thick pen on a sheet of paper, as a camera sees it.

usage: make_photo.py QRT    the built command-line tool, which writes the picture

The light falls from one side, the paper lies on a dark desk, and the digit stands away from the
middle. Nothing but Python itself is needed.
"""

import math
import os
import random
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
WIDTH, HEIGHT = 1280, 960
CENTRE, SCALE = (820, 500), 3.4  # of the digit, in pixels, and pixels per unit of the path
PEN = 24  # half its width
SEED = 7

# A five, x 0..60 and y 0..100: cubic Bezier segments as in strokes.py.
STROKES = [
    [(14, 8), (12, 20), (12, 34), (10, 44), (26, 36), (52, 42), (52, 68), (52, 94), (22, 102), (6, 90)],
    [(14, 8), (26, 9), (40, 6), (54, 5)],
]


def points_of(stroke):
    """Points along the segments, close to each other, in pixels of the photograph."""
    for i in range(0, len(stroke) - 3, 3):
        a, b, c, d = stroke[i : i + 4]
        for step in range(120):
            t = step / 119
            weights = ((1 - t) ** 3, 3 * (1 - t) ** 2 * t, 3 * (1 - t) * t * t, t**3)
            x, y = (sum(w * p[k] for w, p in zip(weights, (a, b, c, d))) for k in range(2))
            turned = (0.99 * (x - 30) + 0.08 * (y - 50), -0.08 * (x - 30) + 0.99 * (y - 50))
            yield CENTRE[0] + SCALE * turned[0], CENTRE[1] + SCALE * turned[1]


def ink():
    """How much ink covers each pixel, 0 to 1."""
    covered = [bytearray(WIDTH) for _ in range(HEIGHT)]
    for stroke in STROKES:
        for x, y in points_of(stroke):
            for row in range(int(y - PEN - 8), int(y + PEN + 9)):
                for column in range(int(x - PEN - 8), int(x + PEN + 9)):
                    distance = math.hypot(column - x, row - y)
                    cover = max(0.0, min(1.0, (PEN + 7 - distance) / 14))
                    covered[row][column] = max(covered[row][column], round(255 * cover))
    return covered


def on_paper(x, y):
    """How far inside the sheet a point is, in pixels; the sheet lies a little turned."""
    u, v = x * 0.998 + y * 0.06, y * 0.998 - x * 0.06
    return min(u - 150, 1215 - u, v - 20, 850 - v)


def photograph():
    """The photograph as a PPM file."""
    rng = random.Random(SEED)
    covered = ink()
    rows = bytearray(b"P6\n%d %d\n255\n" % (WIDTH, HEIGHT))
    for y in range(HEIGHT):
        for x in range(WIDTH):
            light = 0.80 + 0.18 * x / WIDTH - 0.10 * y / HEIGHT
            paper = max(0.0, min(1.0, on_paper(x, y) / 3))
            desk = 0.9 + 0.1 * math.sin(y / 9 + math.sin(x / 90))
            cover = covered[y][x] / 255
            noise = rng.gauss(0, 1.5)
            for desk_level, paper_level, ink_level in ((96, 246, 30), (66, 242, 38), (44, 230, 84)):
                level = desk_level * desk + (paper_level - desk_level * desk) * paper
                level = light * (level + (ink_level - level) * cover) + noise
                rows.append(max(0, min(255, round(level))))
    return bytes(rows)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    with tempfile.TemporaryDirectory() as folder:
        source = os.path.join(folder, "photo.ppm")
        with open(source, "wb") as file:
            file.write(photograph())
        target = os.path.join(HERE, "samples", "photo.jpg")
        subprocess.run([sys.argv[1], "image", source, target], check=True)


if __name__ == "__main__":
    main()
