"""Digits drawn as pen strokes, for training beside those of the fonts.

A shape is a text of strokes with semicolons between them, a stroke its points "x,y" (x to the
right, y down, the digit between 0 and 1), joined by a smooth curve, or by straight lines where the
stroke begins with "line". Points move at random from picture to picture.
"""

import math

import numpy as np
from PIL import Image, ImageDraw

from fonts import fit_into_master

CANVAS = 160
BOX = 96  # side of the unit square on the canvas

SHAPES = {
    0: [
        "0.5,0 0.2,0.2 0.15,0.55 0.3,0.92 0.55,1 0.8,0.8 0.85,0.45 0.7,0.1 0.48,0",
        "0.62,0.04 0.3,0.1 0.12,0.5 0.3,0.95 0.7,0.95 0.9,0.5 0.72,0.08 0.45,0.02",
        "0.4,0.02 0.25,0.5 0.4,0.98 0.62,0.95 0.72,0.5 0.6,0.05 0.36,0.06",
    ],
    1: [
        "line 0.5,0 0.5,1",
        "line 0.3,0.25 0.55,0 0.55,1",
        "line 0.32,0.2 0.52,0 0.52,1; line 0.28,1 0.76,1",
        "0.6,0 0.52,0.5 0.45,1",
    ],
    2: [
        "0.2,0.25 0.35,0.03 0.65,0.03 0.8,0.28 0.6,0.58 0.18,0.98; line 0.18,0.98 0.85,0.98",
        "0.2,0.2 0.5,0 0.78,0.22 0.55,0.6 0.2,0.92 0.12,0.8 0.32,0.76 0.6,0.95 0.88,0.92",
        "line 0.2,0.1 0.75,0.05 0.78,0.3 0.2,1 0.85,1",
    ],
    3: [
        "0.2,0.12 0.5,0 0.78,0.2 0.65,0.42 0.42,0.48 0.7,0.55 0.82,0.78 0.55,1 0.18,0.88",
        "line 0.2,0.02 0.78,0.02 0.45,0.4; 0.45,0.4 0.75,0.5 0.8,0.8 0.5,1 0.18,0.9",
        "0.22,0.1 0.55,0.02 0.7,0.22 0.42,0.46; 0.42,0.46 0.76,0.6 0.7,0.92 0.4,1 0.2,0.9",
    ],
    4: [
        "line 0.55,0 0.15,0.65 0.88,0.65; line 0.68,0.3 0.68,1",
        "line 0.68,1 0.68,0 0.12,0.68 0.9,0.68",
        "0.25,0 0.2,0.3 0.25,0.52 0.5,0.55 0.8,0.5; line 0.75,0.05 0.7,1",
        "line 0.25,0.05 0.18,0.5 0.8,0.5; line 0.74,0 0.74,1",
    ],
    5: [
        "line 0.78,0 0.28,0 0.24,0.42; 0.24,0.42 0.55,0.36 0.8,0.6 0.72,0.9 0.45,1 0.18,0.9",
        "0.3,0.05 0.25,0.4 0.55,0.4 0.78,0.65 0.6,0.96 0.2,0.95; line 0.3,0.05 0.82,0.02",
        "0.75,0.02 0.35,0.05 0.3,0.4 0.65,0.5 0.72,0.8 0.45,1 0.2,0.95",
    ],
    6: [
        "0.7,0 0.35,0.25 0.18,0.65 0.35,0.98 0.7,0.95 0.8,0.7 0.6,0.5 0.3,0.56 0.2,0.75",
        "0.5,0 0.28,0.4 0.25,0.8 0.5,1 0.75,0.8 0.6,0.58 0.3,0.7",
        "0.78,0.1 0.5,0 0.2,0.4 0.2,0.85 0.5,1 0.8,0.85 0.78,0.58 0.5,0.46 0.22,0.62",
    ],
    7: [
        "line 0.15,0.02 0.82,0.02 0.4,1",
        "line 0.15,0.02 0.82,0.02 0.4,1; line 0.35,0.5 0.78,0.48",
        "line 0.18,0.18 0.2,0.02 0.8,0.04; 0.8,0.04 0.55,0.45 0.45,1",
        "0.15,0.1 0.45,0.02 0.8,0.06 0.62,0.45 0.5,1",
    ],
    8: [
        "0.5,0.48 0.22,0.25 0.5,0 0.78,0.25 0.5,0.48 0.18,0.75 0.5,1 0.82,0.75 0.5,0.48",
        "0.75,0.12 0.45,0 0.25,0.22 0.5,0.48 0.8,0.75 0.5,1 0.2,0.8 0.48,0.5 0.76,0.2",
        "0.5,0 0.28,0.2 0.48,0.42 0.7,0.2 0.5,0; 0.5,0.42 0.2,0.7 0.5,1 0.8,0.7 0.48,0.42",
    ],
    9: [
        "0.78,0.3 0.55,0.02 0.25,0.2 0.3,0.48 0.6,0.5 0.78,0.28 0.75,0.6 0.6,1",
        "0.75,0.2 0.45,0.02 0.2,0.25 0.45,0.48 0.75,0.25; line 0.75,0.08 0.7,1",
        "0.78,0.25 0.5,0 0.2,0.22 0.4,0.52 0.76,0.32 0.76,0.7 0.5,1 0.2,0.92",
    ],
}


def parsed(shape):
    """The strokes of a shape: (whether its lines are straight, points float [n, 2])."""
    strokes = []
    for stroke in shape.split(";"):
        words = stroke.split()
        straight = words[0] == "line"
        points = [[float(number) for number in word.split(",")] for word in words[straight:]]
        strokes.append((straight, np.array(points)))
    return strokes


def smooth(points, steps=10):
    """Points of the Catmull-Rom curve through the given points."""
    padded = np.vstack([points[0], points, points[-1]])
    t = np.linspace(0.0, 1.0, steps, endpoint=False)[:, None]
    pieces = []
    for p0, p1, p2, p3 in zip(padded, padded[1:], padded[2:], padded[3:]):
        pieces.append(
            0.5
            * (
                2 * p1
                + (p2 - p0) * t
                + (2 * p0 - 5 * p1 + 4 * p2 - p3) * t**2
                + (3 * p1 - p0 - 3 * p2 + p3) * t**3
            )
        )
    return np.vstack(pieces + [points[-1]])


def pen(draw, points, width):
    """A line with round ends and joints."""
    draw.line([tuple(point) for point in points], fill=255, width=max(1, round(width)))
    radius = width / 2
    for x, y in points:
        draw.ellipse((x - radius, y - radius, x + radius, y + radius), fill=255)


def draw_shape(shape, rng):
    """One master of a shape, its points moved and the whole squeezed at random."""
    canvas = Image.new("L", (CANVAS, CANVAS), 0)
    draw = ImageDraw.Draw(canvas)
    width = BOX * rng.uniform(0.04, 0.2)
    squeeze = np.array([rng.uniform(0.6, 1.05), 1.0])
    turn = rng.normal(0.0, 0.08)
    matrix = np.array([[math.cos(turn), -math.sin(turn)], [math.sin(turn), math.cos(turn)]])
    loose = rng.uniform(0.01, 0.05)
    joint = rng.normal(0.0, loose, 2)  # strokes that meet move together, most of the time
    for straight, points in parsed(shape):
        points = points + rng.normal(0.0, loose, points.shape) + joint * rng.uniform(0.0, 1.0)
        if not straight or rng.uniform() < 0.3:
            points = smooth(points)
        points = ((points - 0.5) * squeeze) @ matrix.T * BOX + CANVAS / 2
        pen(draw, points, width)
    return fit_into_master(np.asarray(canvas))


def drawn_masters(count, rng):
    """`count` masters of each digit: uint8 [10, count, MASTER, MASTER]."""
    return np.stack(
        [
            np.stack([draw_shape(shapes[i % len(shapes)], rng) for i in range(count)])
            for _, shapes in sorted(SHAPES.items())
        ]
    )
