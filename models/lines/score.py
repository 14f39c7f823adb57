#!/usr/bin/python3
"""Counts the errors on lines of unseen faces and words, by condition, length and family: scores.txt.

Most lines are cut out as in training, so that the network alone is judged. With --tool, lines on paper are read by
`qrt read` as well, which has to find and level them first.
"""

import argparse
import io
import math
import os
import random
import subprocess
import tempfile

import numpy as np
import torch
from PIL import Image, ImageFilter

from fonts import HERE
from network import Lines, best_texts, input_of
from render import SIZES, FontCache, cut_out, draw_ink, light, quadrilateral, render_line, spoil
from texts import Texts, load_words
from train import distance, known_faces, padded

BATCH = 32


def shaken(text, path, fonts, rng, corners_of):
    """A line as rendered, but cut out between other corners."""
    drawn = draw_ink(text, fonts.get(path, rng.choice(SIZES)))
    if drawn is None:
        return None
    canvas, _, line = drawn
    corners = corners_of(quadrilateral(line, rng, 0), line[3] - line[1])
    picture = cut_out(canvas, corners, 1.0, rng)
    return (light(np.asarray(picture, np.float32) / 255, rng, 0) * 255).astype(np.uint8)


def turned(text, path, fonts, rng, noise):
    def corners_of(corners, height):
        angle = math.radians(rng.choice((-3, 3)))
        turn = np.array([[math.cos(angle), -math.sin(angle)], [math.sin(angle), math.cos(angle)]])
        centre = corners.mean(0)
        lift = abs(math.sin(angle)) * (corners[:, 0].max() - centre[0])
        room = np.array([[0, -lift], [0, lift], [0, lift], [0, -lift]])
        return (corners - centre + room) @ turn.T + centre

    return shaken(text, path, fonts, rng, corners_of)


def perspective(text, path, fonts, rng, noise):
    def corners_of(corners, height):
        return corners + np.array([[rng.uniform(-1, 1) * 0.08 * height for _ in "xy"] for _ in range(4)])

    return shaken(text, path, fonts, rng, corners_of)


def plain(text, path, fonts, rng, noise):
    return render_line(text, path, fonts, rng, noise, 0.0)


def distorted(text, path, fonts, rng, noise):
    return render_line(text, path, fonts, rng, noise, 0.3 + 0.6 * rng.random())


def after(change):
    """A condition that changes pictures as rendered."""

    def make(text, path, fonts, rng, noise):
        picture = plain(text, path, fonts, rng, noise)
        return None if picture is None else change(picture, noise)

    return make


def blurred(picture, noise):
    return np.asarray(Image.fromarray(picture).filter(ImageFilter.GaussianBlur(1.0)))


def noisy(picture, noise):
    return np.clip(picture + noise.normal(0, 24, picture.shape), 0, 255).astype(np.uint8)


def as_jpeg(picture, noise):
    store = io.BytesIO()
    Image.fromarray(picture).save(store, "JPEG", quality=35)
    return np.asarray(Image.open(store).convert("L"))


def shaded(picture, noise):
    return (picture * np.linspace(1.0, 0.4, picture.shape[1])[None]).astype(np.uint8)


def inverted(picture, noise):
    return 255 - picture if picture.mean() > 127 else picture


def pale(picture, noise):
    return (150 + 0.25 * picture).astype(np.uint8)


def small(picture, noise):
    image = Image.fromarray(picture)
    low = image.resize((max(2, image.width * 14 // 32), 14), Image.HAMMING)
    return np.asarray(low.resize(image.size, Image.BILINEAR))


CONDITIONS = (
    ("as rendered", plain, 3),
    ("turned by 3 degrees", turned, 1),
    ("perspective", perspective, 1),
    ("blurred", after(blurred), 1),
    ("noisy", after(noisy), 1),
    ("JPEG, quality 35", after(as_jpeg), 1),
    ("uneven light", after(shaded), 1),
    ("light on dark", after(inverted), 1),
    ("contrast of a quarter", after(pale), 1),
    ("14 pixels high, enlarged", after(small), 1),
    ("distorted in several ways", distorted, 3),
)


def on_paper(strength, turn):
    """A condition: a line with room around it, turned by up to so many degrees, as `qrt read` is given it."""

    def make(text, path, fonts, rng, noise):
        drawn = draw_ink(text, fonts.get(path, rng.choice(SIZES)))
        if drawn is None:
            return None
        canvas, _, (left, top, right, bottom) = drawn
        height = bottom - top
        room = [height * rng.uniform(0.2, 0.8) for _ in range(4)]
        ink = canvas.crop((round(left - room[0]), round(top - room[1]), round(right + room[2]), round(bottom + room[3])))
        scale = rng.uniform(28, 60) / height
        ink = ink.resize((max(8, round(ink.width * scale)), round(ink.height * scale)), Image.HAMMING)
        ink = ink.rotate(rng.uniform(-turn, turn), Image.BICUBIC, expand=True)
        if strength > 0:
            corners = np.array([[0, 0], [0, ink.height], [ink.width, ink.height], [ink.width, 0]], float)
            corners += strength * 0.08 * height * scale * np.array([[rng.uniform(-1, 1) for _ in "xy"] for _ in range(4)])
            ink = ink.transform(ink.size, Image.QUAD, corners.flatten().tolist(), Image.BICUBIC)
        much = strength * (0.3 + 0.6 * rng.random())
        return spoil(light(np.asarray(ink, np.float32) / 255, rng, much), rng, much, noise)

    return make


PAPER = (
    ("as rendered", on_paper(0, 0)),
    ("turned by up to 3 degrees", on_paper(0, 3)),
    ("distorted and turned", on_paper(1, 3)),
)
LENGTHS = ((1, 5), (6, 15), (16, 30), (31, 60))


class Count:
    """Edits and characters."""

    def __init__(self):
        self.edits = self.characters = 0

    def add(self, edits, text):
        self.edits += edits
        self.characters += len(text)

    def percent(self):
        return 100 * self.edits / max(1, self.characters)


def lines_of(make, faces, count, seed):
    """(kind, text, face, picture) of so many lines; every package has the same share."""
    texts, fonts = Texts(load_words(True)), FontCache()
    rng, noise = random.Random(seed), np.random.default_rng(seed)
    packages = {}
    for face in faces:
        packages.setdefault(face[0], []).append(face)
    lines = []
    while len(lines) < count:
        face = rng.choice(packages[rng.choice(sorted(packages))])
        kind, text = texts.draw(rng, limit=60 if rng.random() < 0.3 else 30)
        picture = make(text, face[3], fonts, rng, noise)
        if picture is not None and picture.shape[1] >= 4:
            lines.append((kind, text, face, picture))
    return sorted(lines, key=lambda line: line[3].shape[1])


@torch.no_grad()
def edits_of(model, lines):
    """Edits of each line."""
    edits = []
    for start in range(0, len(lines), BATCH):
        batch = lines[start : start + BATCH]
        pictures, texts = padded([(text, picture) for _, text, _, picture in batch])
        answers = best_texts(model(input_of(pictures)))
        edits += [distance(text, answer) for text, answer in zip(texts, answers)]
    return edits


def tool_edits_of(tool, lines):
    """Edits of each line, read by the command-line tool from a file."""
    edits = []
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "line.png")
        for _, text, _, picture in lines:
            Image.fromarray(picture).save(path)
            command = [tool, "read", path, "--model", os.path.join(HERE, "lines.qrtmodel")]
            answer = subprocess.run(command, capture_output=True, text=True, check=True).stdout
            edits.append(distance(text, " ".join(answer.split("\n")).strip()))
    return edits


def as_halves(state):
    """Weights as a .qrtmodel holds them; statistics are folded in before, which this leaves aside."""
    return {
        name: value.half().float() if value.dtype == torch.float32 else value
        for name, value in state.items()
    }


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--run", default=os.path.join(HERE, "run"), help="folder of checkpoints")
    arguments.add_argument("--role", default="unseen", help="faces of fonts.txt to score on")
    arguments.add_argument("--tool", help="the command-line tool, to read lines.qrtmodel's lines with as well")
    arguments.add_argument("--lines", type=int, default=600, help="lines of most conditions")
    arguments.add_argument("--scores", default=os.path.join(HERE, "scores.txt"))
    options = arguments.parse_args()
    torch.set_num_threads(1)
    model = Lines()
    saved = torch.load(os.path.join(options.run, "checkpoint.pt"))
    model.load_state_dict(as_halves(saved["average"]))
    model.eval()
    faces = known_faces(options.role, options.run)
    packages = {face[0] for face in faces}
    rows = [
        f"trained on {saved['step']} batches of 64 lines in {saved['spent'] / 60:.0f} minutes",
        f"{options.role}: {len(packages)} packages, {len(faces)} faces; words held out; errors per character",
    ]
    families, lengths, kinds = {}, {}, {}
    for number, (name, make, times) in enumerate(CONDITIONS):
        lines = lines_of(make, faces, options.lines * times, 1000 + number)
        whole = Count()
        for (kind, text, face, _), edits in zip(lines, edits_of(model, lines)):
            whole.add(edits, text)
            families.setdefault(face[1], {}).setdefault(name, Count()).add(edits, text)
            if name == "as rendered":
                kinds.setdefault(kind, Count()).add(edits, text)
            if make in (plain, distorted):
                span = next(span for span in LENGTHS if span[0] <= len(text) <= span[1])
                lengths.setdefault((name, span), Count()).add(edits, text)
        rows.append(f"{name:28}{len(lines):>7} lines{whole.characters:>8} characters{whole.percent():>8.2f} %")
        print(rows[-1], flush=True)
    faces = known_faces("handwriting", options.run)
    for name, make, number in (("as rendered", plain, 900), ("distorted in several ways", distorted, 901)):
        lines = lines_of(make, faces, options.lines, number)
        whole = Count()
        for (_, text, _, _), edits in zip(lines, edits_of(model, lines)):
            whole.add(edits, text)
        rows.append(f"faces like handwriting, {name}: {whole.percent():.2f} %")
    for number, (name, make) in enumerate(PAPER if options.tool else ()):
        lines = lines_of(make, known_faces(options.role, options.run), options.lines, 2000 + number)
        whole, right = Count(), 0
        for (_, text, _, _), edits in zip(lines, tool_edits_of(options.tool, lines)):
            whole.add(edits, text)
            right += edits == 0
        rows.append(f"qrt read, {name}: {whole.percent():.2f} % of {whole.characters} characters, {100 * right / len(lines):.0f} % of lines without error")
        print(rows[-1], flush=True)
    for (name, span), count in sorted(lengths.items()):
        rows.append(f"{name}, {span[0]} to {span[1]} characters: {count.percent():.2f} %")
    for kind, count in sorted(kinds.items(), key=lambda item: item[1].percent()):
        rows.append(f"as rendered, {kind}: {count.percent():.2f} %")
    for name in ("as rendered", "distorted in several ways"):
        known = [(c[name].percent(), f, c[name].characters) for f, c in families.items() if name in c]
        known.sort(reverse=True)
        worst = ", ".join(f"{family} {value:.1f} %" for value, family, _ in known[:8])
        rows.append(f"worst families, {name}: {worst}")
        rows.append(f"median of {len(known)} families, {name}: {known[len(known) // 2][0]:.2f} %")
    with open(options.scores, "w", encoding="utf-8") as text:
        text.writelines(row + "\n" for row in rows)


if __name__ == "__main__":
    main()
