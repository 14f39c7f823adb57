#!/usr/bin/python3
"""Trains the digit classifier and writes it as a JSON model. README.md says what it needs."""

import argparse
import datetime
import os
import time

import numpy as np
import torch
import torch.nn.functional as F

from augment import Strength, make_pictures
from fonts import HERE, load_faces
from make_samples import SHAPES as UNSEEN_SHAPES
from make_samples import draw_digit
from model_json import write_model
from network import Digits, folded, logits, truncated
from strokes import drawn_masters

BATCH = 256
DRAWN_SHARE = 0.25  # of a batch; the rest comes from fonts


class Masters:
    """All training masters, drawn from at random.

    A package with many faces counts more than one with few, but only by the square root.
    """

    def __init__(self, faces, drawn):
        self.fonts = torch.from_numpy(np.stack([face.masters for face in faces]))
        self.drawn = torch.from_numpy(drawn)
        sizes = {}
        for face in faces:
            sizes[face.package] = sizes.get(face.package, 0) + 1
        self.weights = torch.tensor([sizes[face.package] ** -0.5 for face in faces])

    def batch(self, generator):
        count = int(BATCH * DRAWN_SHARE)
        digits = torch.randint(10, (BATCH,), generator=generator)
        which = torch.randint(self.drawn.shape[1], (count,), generator=generator)
        faces = torch.multinomial(
            self.weights, BATCH - count, replacement=True, generator=generator
        )
        masters = torch.cat([self.drawn[digits[:count], which], self.fonts[faces, digits[count:]]])
        return masters, digits


def train(masters, steps, generator):
    model = Digits()
    optimizer = torch.optim.AdamW(model.parameters(), lr=1e-3, weight_decay=0.02)
    schedule = torch.optim.lr_scheduler.OneCycleLR(
        optimizer, max_lr=4e-3, total_steps=steps, pct_start=0.15
    )
    start, running = time.monotonic(), None
    strength = Strength(1.0)
    for step in range(1, steps + 1):
        glyphs, digits = masters.batch(generator)
        loss = F.cross_entropy(
            model(make_pictures(glyphs, strength, generator)), digits, label_smoothing=0.02
        )
        optimizer.zero_grad()
        loss.backward()
        optimizer.step()
        schedule.step()
        running = loss.item() if running is None else 0.98 * running + 0.02 * loss.item()
        if step % 100 == 0 or step == steps:
            print(
                f"step {step} of {steps}, loss {running:.4f}, {time.monotonic() - start:.0f} s",
                flush=True,
            )
    return model.eval()


def pictures_of_faces(faces, factor, generator, rounds):
    """Every digit of every face `rounds` times: (pictures, digits, numbers of the faces) each."""
    masters = torch.from_numpy(np.stack([face.masters for face in faces])).flatten(0, 1)
    digits = torch.arange(10).repeat(len(faces))
    owner = torch.arange(len(faces)).repeat_interleave(10)
    return [
        (make_pictures(masters, Strength(factor), generator), digits, owner) for _ in range(rounds)
    ]


def drawn_pictures(rounds, seed):
    """`rounds` pictures of each shape of make_samples.py, given as by pictures_of_faces."""
    rng = np.random.default_rng(seed)
    pictures, digits = [], []
    for _ in range(rounds):
        for digit, shapes in UNSEEN_SHAPES.items():
            for variant in range(len(shapes)):
                pictures.append(draw_digit(digit, variant, rng))
                digits.append(digit)
    stack = torch.from_numpy(np.stack(pictures))[:, None].float() / 255
    digits = torch.tensor(digits)
    return [(stack, digits, torch.zeros_like(digits))]


def hits(weights, sets):
    """Whether each picture is recognised, and its owner."""
    with torch.no_grad():
        found = [
            (logits(weights, pictures).argmax(1) == digits, owner)
            for pictures, digits, owner in sets
        ]
    return torch.cat([hit for hit, _ in found]).float(), torch.cat([owner for _, owner in found])


def package_scores(hit, owner, faces):
    """Share recognised by package, worst first."""
    by_package = {}
    for value, face in zip(hit.tolist(), owner.tolist()):
        by_package.setdefault(faces[face].package, []).append(value)
    return sorted((sum(values) / len(values), package) for package, values in by_package.items())


def score(full, half, report):
    """Reports what is recognised of unseen fonts and shapes; the share that the model states."""
    faces = load_faces("unseen")
    generator = torch.Generator().manual_seed(77)
    report(f"unseen: {len({face.package for face in faces})} packages, {len(faces)} faces")
    report(f"{'pictures of':34}{'number':>8}{'float32':>10}{'half':>10}{'by package':>12}")
    cases = [
        ("unseen fonts, as they are", pictures_of_faces(faces, 0.0, generator, 2)),
        ("unseen fonts, changed half as far", pictures_of_faces(faces, 0.5, generator, 4)),
        ("unseen fonts, changed as in training", pictures_of_faces(faces, 1.0, generator, 4)),
        ("unseen drawn shapes", drawn_pictures(50, 78)),
    ]
    for name, sets in cases:
        exact, _ = hits(full, sets)
        hit, owner = hits(half, sets)
        row = f"{name:36}{len(hit):>6}{100 * exact.mean():>9.2f}%{100 * hit.mean():>9.2f}%"
        if name != "unseen drawn shapes":
            packages = package_scores(hit, owner, faces)
            row += f"{100 * sum(value for value, _ in packages) / len(packages):>11.2f}%"
        report(row)
        if "half as far" in name:
            headline = hit.mean().item()
            worst = packages[:5]
    report(
        "worst packages, changed half as far: " + ", ".join(f"{p} {100 * v:.1f}%" for v, p in worst)
    )
    return headline


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument(
        "--json", default=os.path.join(HERE, "digits.json"), help="model to write"
    )
    arguments.add_argument(
        "--scores", default=os.path.join(HERE, "scores.txt"), help="scores to write"
    )
    arguments.add_argument("--steps", type=int, default=4500, help=f"batches of {BATCH} pictures")
    arguments.add_argument("--seed", type=int, default=1)
    options = arguments.parse_args()

    torch.set_num_threads(1)  # with the seed this makes a run repeatable on one machine
    torch.manual_seed(options.seed)
    generator = torch.Generator().manual_seed(options.seed)
    start = time.monotonic()
    faces = load_faces("seen")
    masters = Masters(faces, drawn_masters(1500, np.random.default_rng(options.seed)))
    print(f"{len(faces)} faces to train on, {time.monotonic() - start:.0f} s")
    model = train(masters, options.steps, generator)
    minutes = (time.monotonic() - start) / 60

    full = folded(model)
    half = [(truncated(weight), truncated(bias)) for weight, bias in full]
    lines = []

    def report(line):
        print(line)
        lines.append(line + "\n")

    report(f"trained on {options.steps} x {BATCH} pictures in {minutes:.1f} minutes")
    report(f"seen: {len({face.package for face in faces})} packages, {len(faces)} faces")
    accuracy = score(full, half, report)
    with open(options.scores, "w", encoding="utf-8") as text:
        text.writelines(lines)
    summary = (
        "Digits 0 to 9 in 28 x 28 grey pictures (grey / 255); "
        f"{100 * accuracy:.1f} % right on fonts not trained on."
    )
    # Cut to half precision already, so that the JSON and the binary model give the same numbers.
    write_model(options.json, half, summary, datetime.datetime.now(datetime.timezone.utc))


if __name__ == "__main__":
    main()
