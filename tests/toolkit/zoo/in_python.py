#!/usr/bin/env python3
"""Imports networks in Python, and compares them with PyTorch in the same process.

    PYTHONPATH=build/release/python in_python.py [NAME ...]

exports each of the networks of export.py, or those that are named, runs it through qrt_core and through PyTorch, and
fails where one is refused or differs by more than 1e-4 of its largest output. A network with random weights may multiply
every rounding: where it differs by more, PyTorch's own result is compared with what it computes in double precision,
and twenty times that difference is allowed: kernels by minimal filtering round some ten times as coarsely.
"""

import os
import sys
import tempfile
from pathlib import Path

import numpy as np
import qrt_core as qrt
import torch

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import export  # noqa: E402, this folder's

BOUND = 1e-4
TIMES_ITS_OWN = 20


def own_difference(name):
    """How far PyTorch's own outputs are from those in double precision, over the largest."""
    network, x = export.build(name)
    results = []
    with torch.no_grad():
        for precision in (torch.float32, torch.float64):
            outputs = network.to(precision)(x.to(precision) if x.is_floating_point() else x)
            results.append([outputs] if isinstance(outputs, torch.Tensor) else list(outputs))
    return max(float((a.double() - b).abs().max() / b.abs().max()) for a, b in zip(*results))


def difference(folder, name):
    """The largest difference over the largest output, and the milliseconds of a pass."""
    export.export(folder, name)
    x = np.load(folder / f"{name}.input.npy")
    net = qrt.import_onnx(folder / f"{name}.onnx")[0]
    x = x.reshape(net.inputs[0].shape)  # without the batch, which recurrent ones have in the middle
    results = net(x)
    arrays = list(results.values()) if isinstance(results, dict) else [results]
    largest = 0.0
    for i, array in enumerate(arrays):
        expected = np.load(folder / f"{name}.output-{i}.npy")
        made = array.reshape(expected.shape)
        largest = max(largest, float(np.abs(made - expected).max() / max(np.abs(expected).max(), 1e-30)))
    return largest, net.profile(x, repeat=3).pass_ms


def main():
    names = sys.argv[1:] or list(export.NETWORKS)
    unknown = [name for name in names if name not in export.NETWORKS]
    if unknown:
        sys.exit(f"no network is called {', '.join(unknown)}; there are {', '.join(export.NETWORKS)}")
    failed = []
    for name in names:
        with tempfile.TemporaryDirectory() as folder:
            try:
                largest, ms = difference(Path(folder), name)
            except qrt.Error as failure:
                print(f"{name}: {failure}")
                failed.append(name)
                continue
        print(f"{name}: {largest:.1e} apart, {ms:.2f} ms", flush=True)
        if largest <= BOUND:
            continue
        own = own_difference(name)
        print(f"{name}: PyTorch's own result is {own:.1e} off", flush=True)
        if not largest <= TIMES_ITS_OWN * own:
            failed.append(name)
    if failed:
        sys.exit(f"failed: {', '.join(failed)}")


if __name__ == "__main__":
    main()
