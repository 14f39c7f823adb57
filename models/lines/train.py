#!/usr/bin/python3
"""Trains the reader of lines. README.md says what it needs; it can be stopped and taken up again."""

import argparse
import json
import math
import multiprocessing
import os
import random
import time

import numpy as np
import torch
import torch.nn.functional as F

from fonts import CHARACTERS, HERE, load_faces
from network import Lines, best_texts, input_of, steps_of
from render import ROWS, FontCache, render_line
from texts import Texts, load_words

BATCH = 64
GROUP = 6  # batches whose lines are sorted by width, so that few columns of a batch are padding
PEAK_RATE = 3e-3
PLAIN = 0.45  # share of lines as rendered
LIMITS = ((0.4, 12), (0.8, 24), (1.0, 44))  # share of the lines, up to it, and their longest text


def known_faces(role, folder):
    """The faces of a role; looking through the fonts takes half a minute, so their list is kept."""
    path = os.path.join(folder, f"faces_{role}.json")
    if not os.path.exists(path):
        with open(path, "w", encoding="utf-8") as text:
            json.dump(load_faces(role), text)
    with open(path, encoding="utf-8") as text:
        return json.load(text)


def weighted(faces):
    """Faces and cumulative weights: one of a large package or family counts less, by the square root."""
    sizes = {}
    for face in faces:
        sizes[face[1]] = sizes.get(face[1], 0) + 1
    return faces, np.cumsum([sizes[face[1]] ** -0.5 for face in faces])


def padded(lines):
    """Lines of one batch as uint8 [n, 32, width], the last columns repeated, and their texts."""
    width = -(-max(picture.shape[1] for _, picture in lines) // 8) * 8
    pictures = np.empty((len(lines), ROWS, width), np.uint8)
    for row, (_, picture) in zip(pictures, lines):
        row[:, : picture.shape[1]] = picture
        row[:, picture.shape[1] :] = np.median(picture[:, -3:])
    return pictures, [text for text, _ in lines]


def make_group(number, seed, faces, texts, fonts):
    """The batches of one group, the same for the same number and seed whoever makes it."""
    rng = random.Random(f"{seed} {number}")
    noise = np.random.default_rng([seed, number])
    early = 2 * number * GROUP  # lines are short and plain at first: the alignment is found sooner
    cap = 6 if early < 500 else 12 if early < 1000 else 99
    ramp = min(1.0, 0.2 + early / 2000)
    rows, weights = faces
    lines = []
    while len(lines) < BATCH * GROUP:
        share = rng.random()
        limit = min(cap, next(limit for bound, limit in LIMITS if share < bound))
        _, text = texts.draw(rng, limit=limit)
        path = rows[int(np.searchsorted(weights, rng.random() * weights[-1]))][3]
        strength = 0.0 if rng.random() < PLAIN else ramp * rng.random() ** 0.7
        picture = render_line(text, path, fonts, rng, noise, strength)
        if picture is not None and 8 <= picture.shape[1] <= 1200 and picture.shape[1] >= 4 * len(text):
            lines.append((text, picture))
    lines.sort(key=lambda line: line[1].shape[1])
    batches = [padded(lines[i : i + BATCH]) for i in range(0, len(lines), BATCH)]
    rng.shuffle(batches)
    return batches


def renderer(first, every, seed, faces, queue):
    """A process that makes every so many groups, ahead of the training."""
    texts, fonts = Texts(load_words(False)), FontCache()
    number = first
    while True:
        queue.put(make_group(number, seed, faces, texts, fonts))
        number += every


def batches_from(start, seed, faces, workers):
    """Batches from number `start` on, in order: each group twice, the second time light for dark."""
    first = start // (2 * GROUP)
    queues = [multiprocessing.Queue(3) for _ in range(workers)]
    for i, queue in enumerate(queues):
        arguments = (first + i, workers, seed, faces, queue)
        multiprocessing.Process(target=renderer, args=arguments, daemon=True).start()
    number = 0
    while True:
        batches = queues[number % workers].get()
        yield from batches
        yield from ((255 - pictures, texts) for pictures, texts in batches)
        number += 1


def targets_of(texts):
    codes = [ord(character) - 31 for text in texts for character in text]
    return torch.tensor(codes), torch.tensor([len(text) for text in texts])


def loss_of(model, pictures, texts):
    logits = steps_of(model(input_of(pictures)))
    targets, lengths = targets_of(texts)
    steps = torch.full((len(texts),), logits.shape[1], dtype=torch.long)
    scores = F.log_softmax(logits, 2).permute(1, 0, 2)
    return F.ctc_loss(scores, targets, steps, lengths, zero_infinity=True)


def distance(first, second):
    """Insertions, deletions and replacements that make one text the other."""
    row = list(range(len(second) + 1))
    for i, a in enumerate(first, 1):
        diagonal, row[0] = row[0], i
        for j, b in enumerate(second, 1):
            diagonal, row[j] = row[j], min(row[j] + 1, row[j - 1] + 1, diagonal + (a != b))
    return row[-1]


def rate_at(done):
    """Learning rate when this share of the training is done: up quickly, down as a cosine."""
    if done < 0.04:
        return PEAK_RATE * (0.1 + 0.9 * done / 0.04)
    return PEAK_RATE * max(0.004, 0.5 + 0.5 * math.cos(math.pi * min(1.0, (done - 0.04) / 0.96)))


class Average:
    """A running mean of weights and statistics, which reads better than the last weights do."""

    def __init__(self, model):
        self.values = {name: value.clone() for name, value in model.state_dict().items()}

    @torch.no_grad()
    def add(self, model, step):
        keep = min(0.998, (1 + step) / (20 + step))
        for name, value in model.state_dict().items():
            if value.dtype.is_floating_point:
                self.values[name].lerp_(value, 1 - keep)


def checking_lines(faces, seed=99):
    """Lines in unseen faces, as rendered and distorted, by which the training is watched."""
    texts, fonts = Texts(load_words(True)), FontCache()
    sets = []
    for strength in (0.0, 0.8):
        rng, noise = random.Random(seed), np.random.default_rng(seed)
        lines = []
        while len(lines) < 320:
            _, text = texts.draw(rng, limit=30)
            picture = render_line(text, rng.choice(faces)[3], fonts, rng, noise, strength)
            if picture is not None and picture.shape[1] < 700:
                lines.append((text, picture))
        lines.sort(key=lambda line: line[1].shape[1])
        sets.append([padded(lines[i : i + 32]) for i in range(0, len(lines), 32)])
    return sets


@torch.no_grad()
def error_rate(model, batches):
    """Edits by characters."""
    edits = characters = 0
    for pictures, texts in batches:
        answers = best_texts(model(input_of(pictures)))
        edits += sum(distance(text, answer) for text, answer in zip(texts, answers))
        characters += sum(map(len, texts))
    return edits / characters


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--out", default=os.path.join(HERE, "run"), help="folder of checkpoints")
    arguments.add_argument("--minutes", type=float, default=90, help="how long to train in all")
    arguments.add_argument("--renderers", type=int, default=1)
    arguments.add_argument("--seed", type=int, default=1)
    options = arguments.parse_args()
    os.makedirs(options.out, exist_ok=True)
    checkpoint = os.path.join(options.out, "checkpoint.pt")

    torch.set_num_threads(1)
    torch.manual_seed(options.seed)
    model = Lines().to(memory_format=torch.channels_last)
    optimizer = torch.optim.AdamW(model.parameters(), lr=PEAK_RATE, weight_decay=0.01)
    average, step, spent = Average(model), 0, 0.0
    if os.path.exists(checkpoint):
        saved = torch.load(checkpoint)
        model.load_state_dict(saved["model"])
        optimizer.load_state_dict(saved["optimizer"])
        average.values, step, spent = saved["average"], saved["step"], saved["spent"]
        step -= step % (2 * GROUP)
    faces = weighted(known_faces("seen", options.out))
    checks = checking_lines(known_faces("unseen", options.out))
    print(f"{len(faces[0])} faces to train on, from step {step}", flush=True)

    begin, last_check, running, waited = time.monotonic() - spent, time.monotonic(), None, 0.0
    batches = batches_from(step, options.seed, faces, options.renderers)
    while spent < options.minutes * 60:
        before = time.monotonic()
        pictures, texts = next(batches)
        waited += time.monotonic() - before
        for group in optimizer.param_groups:
            group["lr"] = rate_at(spent / (options.minutes * 60))
        loss = loss_of(model, pictures, texts)
        optimizer.zero_grad(set_to_none=True)
        loss.backward()
        torch.nn.utils.clip_grad_norm_(model.parameters(), 2.0)
        optimizer.step()
        step += 1
        average.add(model, step)
        running = loss.item() if running is None else 0.98 * running + 0.02 * loss.item()
        spent = time.monotonic() - begin
        if step % 50 == 0:
            print(f"step {step}, {spent:.0f} s ({waited:.0f} waited), loss {running:.4f}", flush=True)
        finished = spent >= options.minutes * 60
        if finished or time.monotonic() - last_check > 240:
            smooth = Lines().to(memory_format=torch.channels_last)
            smooth.load_state_dict(average.values)
            smooth.eval()
            clean, distorted = (100 * error_rate(smooth, check) for check in checks)
            print(f"step {step}, {spent:.0f} s: errors {clean:.2f} % as rendered, {distorted:.2f} % distorted", flush=True)
            state = {"model": model.state_dict(), "optimizer": optimizer.state_dict(), "average": average.values, "step": step, "spent": spent}
            torch.save(state, checkpoint + ".new")
            os.replace(checkpoint + ".new", checkpoint)
            last_check = time.monotonic()


if __name__ == "__main__":
    main()
