#!/usr/bin/python3
"""Draws a picture, and lets the tool make the other pictures of docs/image.md from it.

usage: make_pictures.py QRT    the built command-line tool
"""

import math
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
WIDTH, HEIGHT = 192, 128

# Name of the picture, and the operations that make it of the drawing.
OPERATIONS = {
    "before": [],
    "resize": ["--resize", "96x64"],
    "resize-up": ["--crop", "24x16+60+70", "--resize", "192x128"],
    "nearest": ["--crop", "24x16+60+70", "--nearest", "192x128"],
    "crop": ["--crop", "96x96+20+20"],
    "crop-outside": ["--crop", "128x128-32+32"],
    "zoom": ["--zoom", "0.5,0.4,1.1,1"],
    "rotate-90": ["--rotate", "90"],
    "rotate-180": ["--rotate", "180"],
    "rotate-270": ["--rotate", "270"],
    "flip-horizontal": ["--flip", "horizontal"],
    "flip-vertical": ["--flip", "vertical"],
    "gray": ["--gray"],
    "swap": ["--swap"],
    "planes": ["--planes"],
    "affine": ["--affine", "0.966,0.259,-9,-0.259,0.966,26"],
    "affine-nearest": ["--affine-nearest", "0.966,0.259,-9,-0.259,0.966,26"],
    "affine-forward": ["--affine-forward", "1.2,0,-60,0,1.2,-20"],
    "warp": ["--warp", "0.7,0.3,0,-0.3,0.7,0"],
}


def mixed(a, b, t):
    return tuple(p + (q - p) * t for p, q in zip(a, b))


def inside(x, y, corners):
    """Whether a point is in a convex polygon whose corners go round clockwise."""
    edges = zip(corners, corners[1:] + corners[:1])
    return all((x1 - x0) * (y - y0) - (y1 - y0) * (x - x0) >= 0 for (x0, y0), (x1, y1) in edges)


def color_at(x, y):
    """A house in the evening, with a sun on one side only."""
    horizon = 86 + 4 * math.sin(x / 23)
    color = mixed((70, 120, 200), (250, 190, 130), y / 90)
    if math.hypot(x - 158, y - 30) < 15:
        color = (255, 225, 90)
    if y > horizon:
        color = mixed((90, 150, 60), (40, 90, 40), (y - horizon) / 45)
    if inside(x, y, [(52, 62), (104, 62), (104, 104), (52, 104)]):
        color = (200, 60, 50) if (y // 6 + (x + 5 * (y // 6 % 2)) // 10) % 2 < 1 else (180, 50, 45)
    if inside(x, y, [(78, 34), (112, 63), (44, 63)]):
        color = (90, 55, 60)
    if inside(x, y, [(60, 70), (74, 70), (74, 84), (60, 84)]):
        color = (250, 240, 170) if abs(x - 67) > 1 and abs(y - 77) > 1 else (60, 40, 40)
    if inside(x, y, [(84, 76), (97, 76), (97, 104), (84, 104)]):
        color = (70, 90, 150)
    return color


def drawing():
    """The picture as a PPM file, each pixel of nine points."""
    rows = bytearray(b"P6\n%d %d\n255\n" % (WIDTH, HEIGHT))
    for y in range(HEIGHT):
        for x in range(WIDTH):
            points = [color_at(x + i / 3 + 1 / 6, y + j / 3 + 1 / 6) for i in range(3) for j in range(3)]
            rows += bytes(round(sum(channel) / 9) for channel in zip(*points))
    return bytes(rows)


def nv12(samples):
    """Red, green and blue as luminance and, for each four pixels, a pair of chrominances."""
    luminance, chrominance = bytearray(), bytearray()
    pixels = [samples[i : i + 3] for i in range(0, len(samples), 3)]
    for red, green, blue in pixels:
        # As cameras do, away from black and white: nothing clamps what is computed of it.
        luminance.append(round(16 + 219 / 255 * (0.299 * red + 0.587 * green + 0.114 * blue)))
    for y in range(0, HEIGHT, 2):
        for x in range(0, WIDTH, 2):
            square = [(y + i) * WIDTH + x + j for i in range(2) for j in range(2)]
            light = sum(luminance[i] for i in square) / 4
            for channel, factor in ((2, 113 / 64), (0, 90 / 64)):
                value = 16 + 219 / 255 * sum(pixels[i][channel] for i in square) / 4
                chrominance.append(min(max(round(128 + (value - light) / factor), 0), 255))
    return bytes(luminance + chrominance)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    with tempfile.TemporaryDirectory() as folder:

        def make(name, contents, *operations):
            source = os.path.join(folder, "source")
            with open(source, "wb") as file:
                file.write(contents)
            target = os.path.join(HERE, name + ".png")
            subprocess.run([sys.argv[1], "image", source, target, *operations], check=True)

        picture = drawing()
        for name, operations in OPERATIONS.items():
            make(name, picture, *operations)
        # What memory holds before and after: bytes as gray pictures.
        samples = picture[-3 * WIDTH * HEIGHT :]
        make("pixels", b"P5\n%d %d\n255\n" % (3 * WIDTH, HEIGHT) + samples)
        camera = nv12(samples)
        make("nv12", b"P5\n%d %d\n255\n" % (WIDTH, HEIGHT * 3 // 2) + camera)
        make("yuv", camera, "--yuv", "nv12:%dx%d" % (WIDTH, HEIGHT))


if __name__ == "__main__":
    main()
