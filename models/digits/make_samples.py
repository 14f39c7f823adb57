#!/usr/bin/python3
"""Makes samples/: each digit once from a font not trained on, and once or twice drawn with a pen.

The drawn ones are paths of Bezier curves with a trembling hand and a pen whose pressure changes,
none of which the training strokes have. The pictures are made once, from a fixed seed, and stay
whatever the network makes of them.
"""

import argparse
import os

import numpy as np
from PIL import Image, ImageDraw, ImageFilter, ImageFont

from fonts import HERE, files_of, packages
from strokes import parsed

NAMES = ["zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine"]
SIDE = 28
FINE = 16  # fine pixels per pixel while drawing

# Strokes of cubic Bezier segments, written as in strokes.py: the start point, then three points per
# segment; x 0..60 and y 0..100.
SHAPES = {
    0: [
        "38,4 18,-2 4,28 6,56 8,86 22,102 36,98 54,92 60,64 56,38 52,14 40,0 26,6",
        "20,12 2,30 0,84 26,96 52,102 64,60 54,30 46,4 24,0 12,22",
    ],
    1: [
        "10,32 20,26 30,14 36,2 36,30 32,66 30,98",
        "34,0 30,30 32,70 24,100",
    ],
    2: [
        "6,28 8,6 36,-6 48,14 58,36 30,60 4,92 16,82 28,88 36,94 44,98 54,96 60,86",
        "10,14 24,-4 54,0 52,26 50,50 20,70 8,96 24,94 44,92 58,96",
    ],
    3: [
        "8,10 24,-4 52,0 48,24 46,40 30,46 20,46 40,44 58,58 52,80 46,102 16,102 4,84",
        "12,4 26,8 40,4 52,2 44,18 32,32 26,42 46,40 60,62 48,84 38,100 18,100 8,90",
    ],
    4: [
        "22,2 18,22 8,44 4,58 20,62 42,58 58,60; 42,34 40,56 40,80 36,100",
        "8,6 6,22 4,40 12,48 22,56 38,52 48,46; 50,2 46,34 44,70 46,100",
    ],
    5: [
        "50,4 38,8 26,6 14,6 14,18 10,34 10,44 30,32 58,48 54,72 50,100 18,104 4,86",
        "14,8 12,20 12,34 8,46 26,36 50,46 50,68 50,92 24,104 6,92; 14,8 28,10 42,4 56,2",
    ],
    6: [
        "46,2 22,14 4,46 6,72 8,100 44,106 52,80 58,54 28,46 10,70",
        "32,0 16,26 6,56 10,80 16,104 50,98 48,74 46,52 18,56 12,82",
    ],
    7: [
        "6,8 20,12 40,4 54,6 42,32 30,60 26,98",
        "6,16 6,10 8,6 10,4 26,6 44,6 56,2 44,34 26,66 22,100; 18,54 28,48 40,52 50,46",
    ],
    8: [
        "48,16 40,-6 10,0 12,22 14,44 54,52 52,78 48,106 6,104 8,76 10,50 46,44 50,18",
        "30,48 4,38 6,2 30,0 54,2 54,38 30,48 2,58 2,100 30,100 58,98 58,58 32,46",
    ],
    9: [
        "50,18 42,-4 10,4 8,28 6,54 42,54 50,20 52,46 46,74 40,100",
        "50,24 50,-4 12,-2 10,26 10,52 46,52 50,22 54,60 48,98 14,94",
    ],
}


def bezier(points, steps=24):
    """Points along the cubic segments of one stroke."""
    t = np.linspace(0, 1, steps, endpoint=False)[:, None]
    pieces = []
    for i in range(0, len(points) - 3, 3):
        a, b, c, d = points[i : i + 4]
        pieces.append(
            (1 - t) ** 3 * a + 3 * (1 - t) ** 2 * t * b + 3 * (1 - t) * t**2 * c + t**3 * d
        )
    return np.vstack(pieces + [points[-1]])


def trembled(path, rng):
    """The path with a slow drift of the hand and a small fast tremor."""
    along = np.linspace(0, 1, len(path))
    result = path.copy()
    for axis in range(2):
        for waves, size in ((1.3, 2.5), (3.1, 1.2), (9.0, 0.5)):
            result[:, axis] += rng.normal(0, size) * np.sin(
                2 * np.pi * (waves * along + rng.uniform())
            )
    return result


def draw_digit(digit, variant, rng):
    """A drawn digit, uint8 [28, 28], light on dark or dark on light."""
    canvas = Image.new("L", (SIDE * FINE, SIDE * FINE), 0)
    draw = ImageDraw.Draw(canvas)
    height = rng.uniform(18, 22) * FINE / 100
    lean, stretch, turn = rng.normal(0, 0.12), rng.uniform(0.85, 1.1), rng.normal(0, 0.07)
    matrix = np.array([[np.cos(turn), -np.sin(turn)], [np.sin(turn), np.cos(turn)]]) @ np.array(
        [[stretch, -lean], [0, 1]]
    )
    middle = SIDE * FINE / 2 + rng.normal(0, 0.8 * FINE, 2)
    width = rng.uniform(1.6, 3.0) * FINE
    for _, points in parsed(SHAPES[digit][variant]):
        path = trembled(bezier(points), rng)
        path = (path - np.array([30, 50])) @ matrix.T * height + middle
        press = 1 + 0.25 * np.sin(2 * np.pi * (np.linspace(0, 1, len(path)) + rng.uniform()))
        for (x0, y0), (x1, y1), w in zip(path, path[1:], press):
            for s in np.linspace(0, 1, 8):
                x, y, r = x0 + s * (x1 - x0), y0 + s * (y1 - y0), w * width / 2
                draw.ellipse((x - r, y - r, x + r, y + r), fill=255)
    ink = np.asarray(canvas.resize((SIDE, SIDE), Image.BOX), dtype=float) / 255
    return finish(ink, rng)


def render_digit(digit, path, rng):
    """A digit of a font, a little turned and moved, uint8 [28, 28]."""
    font = ImageFont.truetype(path, int(rng.uniform(22, 27) * FINE))
    canvas = Image.new("L", (SIDE * FINE, SIDE * FINE), 0)
    middle = SIDE * FINE / 2
    x, y = middle + rng.normal(0, FINE, 2)
    left, top, right, bottom = font.getbbox(str(digit))
    ImageDraw.Draw(canvas).text(
        (x - (left + right) / 2, y - (top + bottom) / 2), str(digit), font=font, fill=255
    )
    canvas = canvas.rotate(rng.uniform(-8, 8), Image.BICUBIC)
    canvas = canvas.filter(ImageFilter.GaussianBlur(rng.uniform(0, 0.5) * FINE))
    ink = np.asarray(canvas.resize((SIDE, SIDE), Image.BOX), dtype=float) / 255
    return finish(ink, rng)


def finish(ink, rng):
    """Grey levels of paper and pen, and a little noise."""
    paper, pen = rng.uniform(0, 0.15), rng.uniform(0.75, 1.0)
    picture = paper + (pen - paper) * ink + rng.normal(0, 0.03, ink.shape)
    if rng.uniform() < 0.5:
        picture = 1 - picture
    return np.round(np.clip(picture, 0, 1) * 255).astype(np.uint8)


def main():
    arguments = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    arguments.add_argument(
        "--out", default=os.path.join(HERE, "samples"), help="folder to write (default: samples/)"
    )
    arguments.add_argument("--seed", type=int, default=2024)
    options = arguments.parse_args()
    rng = np.random.default_rng(options.seed)
    os.makedirs(options.out, exist_ok=True)

    unseen = packages("unseen")
    fonts = rng.choice(len(unseen), 10, replace=False)
    pictures = []
    for digit, name in enumerate(NAMES):
        files = files_of(unseen[fonts[digit]])
        path = files[rng.integers(len(files))]
        pictures.append(
            (f"{name}-font-1.png", digit, render_digit(digit, path, rng), os.path.basename(path))
        )
        for variant in range(
            2 if digit % 2 else 1
        ):  # two drawings of the odd digits, one of the even ones
            picture = draw_digit(digit, variant, rng)
            pictures.append((f"{name}-drawn-{variant + 1}.png", digit, picture, "pen"))

    with open(os.path.join(options.out, "labels.txt"), "w", encoding="utf-8") as labels:
        for name, digit, picture, source in pictures:
            Image.fromarray(picture).save(os.path.join(options.out, name))
            labels.write(f"{name}\t{digit}\n")
            print(f"{name}\t{digit}\t{source}")


if __name__ == "__main__":
    main()
