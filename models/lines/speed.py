#!/usr/bin/python3
"""Times a line of 32 x 320 in this library, PyTorch and ONNX Runtime, each on one thread, in turns.

usage: speed.py QRT MODEL [--onnx lines.onnx]

MODEL is the file that `qrt tune` made of lines.qrtmodel on this machine. ONNX Runtime is npm's onnxruntime-node, found in
NODE_PATH or a folder node_modules here; without it or without PyTorch there are fewer lines.
"""

import argparse
import json
import os
import subprocess
import sys
import time

from fonts import HERE


def qrt_times(options, model):
    command = [options.qrt, "bench", model, "--input", f"1x32x{options.width}", "--seconds", str(options.seconds), "--json"]
    answer = subprocess.run(command, capture_output=True, check=True, text=True).stdout
    network = json.loads(answer)["context"]["networks"][0]
    return network["min_ms"], network["median_ms"]


def torch_times(options):
    import onnx
    import torch
    from onnx import numpy_helper

    from export import Exported
    from network import Lines

    torch.set_num_threads(1)
    network = Exported(Lines().eval()).eval()
    # Any weights take as long; these are at least the file's sizes.
    names = {tensor.name: numpy_helper.to_array(tensor) for tensor in onnx.load(options.onnx).graph.initializer}
    state = network.state_dict()
    network.load_state_dict({key: torch.tensor(names[key]) if key in names else value for key, value in state.items()})
    picture = torch.rand(1, 1, 32, options.width) * 2 - 1
    times = []
    with torch.inference_mode():
        frozen = torch.jit.optimize_for_inference(torch.jit.trace(network, picture))
        for _ in range(20):
            frozen(picture)
        end = time.perf_counter() + options.seconds
        while time.perf_counter() < end:
            begin = time.perf_counter()
            frozen(picture)
            times.append(1000 * (time.perf_counter() - begin))
    times.sort()
    return times[0], times[len(times) // 2]


def ort_times(options):
    command = ["node", os.path.join(HERE, "speed.cjs"), options.onnx, str(options.width), str(options.seconds)]
    answer = subprocess.run(command, capture_output=True, check=True, text=True).stdout.split()
    return float(answer[0]), float(answer[1])


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("qrt", help="the built command-line tool")
    arguments.add_argument("model", help="the tuned model")
    arguments.add_argument("--onnx", default=os.path.join(HERE, "lines.onnx"))
    arguments.add_argument("--width", type=int, default=320)
    arguments.add_argument("--seconds", type=float, default=1.0, help="of each turn")
    arguments.add_argument("--turns", type=int, default=5)
    options = arguments.parse_args()
    sides = {
        "this library, tuned": lambda: qrt_times(options, options.model),
        "ONNX Runtime": lambda: ort_times(options),
        "PyTorch": lambda: torch_times(options),
    }
    turns = {}
    for _ in range(options.turns):
        for name, measure in list(sides.items()):
            try:
                turns.setdefault(name, []).append(measure())
            except (ImportError, OSError, subprocess.CalledProcessError) as fault:
                print(f"{name}: left out, {fault}", file=sys.stderr)
                del sides[name]
    first = None
    print(f"{'1 thread, 32 x ' + str(options.width):24}{'least ms':>10}{'middle ms':>11}{'ratio':>8}")
    for name, times in turns.items():
        least = min(time[0] for time in times)
        middle = sorted(time[1] for time in times)[len(times) // 2]
        first = first or least
        print(f"{name:24}{least:>10.2f}{middle:>11.2f}{least / first:>8.2f}")


if __name__ == "__main__":
    main()
