#!/usr/bin/python3
"""An independent pass of digits.json in double precision, with NumPy alone.

Reads the model's layers as they stand in the file, runs every sample, writes
samples/expected_logits.txt and prints what is recognised. With --check it writes nothing and fails
if the file on disk says otherwise.
"""

import argparse
import base64
import json
import os
import sys

import numpy as np
from PIL import Image

HERE = os.path.dirname(os.path.abspath(__file__))
HEADER = """# Logits of digits.json for each sample in double precision; a pixel is grey / 255.
# Each line: file name, then the outputs for 0 to 9. A pass in float32 stays within 2e-5 of each.
"""


def blob(text, *shape):
    return np.frombuffer(base64.b64decode(text), dtype="<f4").astype(np.float64).reshape(shape)


def convolve(image, layer):
    """Convolution of [C, H, W] as the layer describes it."""
    ky, kx, sy, sx = (layer[key] for key in ("kernel_y", "kernel_x", "stride_y", "stride_x"))
    sides = [
        (0, 0),
        (layer["padding_t"], layer["padding_b"]),
        (layer["padding_l"], layer["padding_r"]),
    ]
    windows = np.lib.stride_tricks.sliding_window_view(np.pad(image, sides), (ky, kx), axis=(1, 2))[
        :, ::sy, ::sx
    ]
    weight = blob(layer["weight"], layer["out_channels"], layer["in_channels"], ky, kx)
    bias = blob(layer["bias"], layer["out_channels"])
    return np.einsum("chwyx,ocyx->ohw", windows, weight) + bias[:, None, None]


def run(network, image):
    """Output of the network for a [1, 28, 28] image, flattened."""
    results = {}
    for name, code in zip(network["squential_ids"], network["squential_types"]):
        layer = network[name]
        if code == 0:
            results[name] = image
        elif code == 1:
            results[name] = np.maximum(results[layer["input_ids"][0]], 0.0)
        else:
            results[name] = convolve(results[layer["input_ids"][0]], layer)
    return results[network["squential_output_ids"][0]].ravel()


def main():
    arguments = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    arguments.add_argument("--model", default=os.path.join(HERE, "digits.json"))
    arguments.add_argument(
        "--check",
        action="store_true",
        help="compare with expected_logits.txt instead of writing it",
    )
    options = arguments.parse_args()
    with open(options.model, encoding="ascii") as text:
        network = json.load(text)["model_arr"]["digits"]

    samples = os.path.join(HERE, "samples")
    lines, right, count = [], 0, 0
    for row in open(os.path.join(samples, "labels.txt"), encoding="utf-8"):
        name, label = row.rstrip("\n").split("\t")
        picture = np.asarray(Image.open(os.path.join(samples, name)).convert("L"))
        values = run(network, picture[None] / 255.0)
        share = np.exp(values - values.max())
        share /= share.sum()
        best = int(values.argmax())
        right += best == int(label)
        count += 1
        verdict = "" if best == int(label) else "  wrong"
        print(f"{name:22} {label} -> {best} ({share[best]:.3f}){verdict}")
        lines.append(name + "".join(f" {value:.9f}" for value in values) + "\n")
    print(f"{right} of {count} right")

    path = os.path.join(samples, "expected_logits.txt")
    if not options.check:
        with open(path, "w", encoding="utf-8", newline="\n") as out:
            out.write(HEADER + "".join(lines))
        return
    with open(path, encoding="utf-8") as known:
        rows = [line.split() for line in known if not line.startswith("#")]
    if len(rows) != count:
        sys.exit(f"{path} has {len(rows)} rows for {count} samples")
    for old, new in zip(rows, [line.split() for line in lines]):
        old_values, new_values = np.array(old[1:], float), np.array(new[1:], float)
        same_shape = old[0] == new[0] and len(old) == len(new)
        if not same_shape or not np.allclose(old_values, new_values, rtol=0, atol=1e-7):
            sys.exit(f"{old[0]} differs from {path}")


if __name__ == "__main__":
    main()
