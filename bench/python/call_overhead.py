"""What a call from Python costs beside the pass that it makes.

    PYTHONPATH=build/release/python python3 bench/python/call_overhead.py [--json] [--onnxruntime-node FOLDER]

Networks of one small layer are run by calls from Python and by passes of the library alone, in turn; a figure is the
least of the rounds, the one that other programs disturbed least. Where ONNX Runtime's package for Python can be imported,
or FOLDER holds its package for Node (node_modules), its own call on the same network takes part in the same rounds. Node's
calls are awaited one by one, as its package has no other.
"""

import argparse
import contextlib
import importlib.util
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np
import qrt_core as qrt

ROUNDS, CALLS = 400, 2000

NODE = """
const ort = require('onnxruntime-node');
const [path, calls] = [process.argv[1], Number(process.argv[2])];
(async () => {
  const one = {intraOpNumThreads: 1, interOpNumThreads: 1, executionMode: 'sequential'};
  const session = await ort.InferenceSession.create(path, one);
  const feed = {x: new ort.Tensor('float32', new Float32Array(8), [1, 8])};
  for await (const line of require('readline').createInterface({input: process.stdin})) {
    const begin = process.hrtime.bigint();
    for (let j = 0; j < calls; ++j) await session.run(feed);
    console.log(Number(process.hrtime.bigint() - begin) / 1e3 / calls);
  }
})();
"""


def field(number, value):
    """A field of a message in the form of protocol buffers."""
    if isinstance(value, int):
        return bytes([number << 3, value])
    value = value.encode() if isinstance(value, str) else value
    return bytes([number << 3 | 2, len(value)]) + value


def onnx_file(op, inputs):
    """The bytes of an ONNX file of one operator, from inputs of 1 x 8 floats to y."""
    shape = field(2, b"".join(field(1, field(1, size)) for size in (1, 8)))
    infos = {name: field(1, name) + field(2, field(1, field(1, 1) + shape)) for name in (*inputs, "y")}
    node = b"".join(field(1, name) for name in inputs) + field(2, "y") + field(4, op)
    graph = field(1, node) + field(2, "net")
    graph += b"".join(field(11, infos[name]) for name in inputs) + field(12, infos["y"])
    return field(1, 8) + field(7, graph) + field(8, field(2, 13))


def microseconds(call, calls):
    begin = time.perf_counter()
    for _ in range(calls):
        call()
    return (time.perf_counter() - begin) / calls * 1e6


def measure(path, peers=()):
    """Times of a network; one of the peers in turn with it, each a function that makes a round and returns its time."""
    net = qrt.import_onnx(path)[0]
    arrays = [np.ones(8, np.float32) for _ in net.inputs]
    net(*arrays)
    calls = {1: lambda: net(arrays[0]), 2: lambda: net(arrays[0], arrays[1])}
    call = calls[len(arrays)]
    rows = []
    for _ in range(ROUNDS):
        native = net._time_passes(*arrays, count=CALLS) / CALLS * 1e6
        empty = microseconds(lambda: None, CALLS)
        rows.append((native, microseconds(call, CALLS), empty, *(peer() for peer in peers)))
    native, whole, empty, *others = (min(column) for column in zip(*rows))
    whole -= empty
    return {"pass_us": native, "call_us": whole, "overhead_us": whole - native}, others


def onnxruntime_in_python(path):
    import onnxruntime

    options = onnxruntime.SessionOptions()
    options.intra_op_num_threads = options.inter_op_num_threads = 1
    session = onnxruntime.InferenceSession(path, options, providers=["CPUExecutionProvider"])
    feed = {"x": np.ones((1, 8), np.float32)}
    return lambda: microseconds(lambda: session.run(None, feed), CALLS)


@contextlib.contextmanager
def onnxruntime_in_node(path, folder):
    """Calls in a process of their own, which makes a round for each line that it is sent."""
    with subprocess.Popen(
        ["node", "-e", NODE, path, str(CALLS)],
        env={**os.environ, "NODE_PATH": folder},
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        text=True,
    ) as process:

        def make_round():
            process.stdin.write("\n")
            process.stdin.flush()
            return float(process.stdout.readline())

        yield make_round


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--json", action="store_true", help="prints the figures as JSON")
    parser.add_argument("--onnxruntime-node", metavar="FOLDER", help="node_modules with onnxruntime-node")
    options = parser.parse_args()
    figures = {}
    with tempfile.TemporaryDirectory() as folder, contextlib.ExitStack() as opened:
        relu, add = (os.path.join(folder, op + ".onnx") for op in ("Relu", "Add"))
        for path, op, inputs in ((relu, "Relu", ["x"]), (add, "Add", ["a", "b"])):
            with open(path, "wb") as file:
                file.write(onnx_file(op, inputs))
        peers = {}
        if importlib.util.find_spec("onnxruntime") is not None:
            peers["relu, ONNX Runtime in Python"] = onnxruntime_in_python(relu)
        if options.onnxruntime_node and shutil.which("node"):
            node = onnxruntime_in_node(relu, options.onnxruntime_node)
            peers["relu, ONNX Runtime in Node"] = opened.enter_context(node)
        figures["relu, 8 numbers"], times = measure(relu, peers.values())
        figures["sum of two inputs"], _ = measure(add)
        figures.update({name: {"call_us": time} for name, time in zip(peers, times)})
    if options.json:
        json.dump(figures, sys.stdout, indent=2)
        print()
        return
    print(f"{'microseconds':30}{'pass':>8}{'call':>8}{'overhead':>10}")
    for name, row in figures.items():
        cells = [f"{row[key]:.2f}" if key in row else "" for key in ("pass_us", "call_us", "overhead_us")]
        print(f"{name:30}{cells[0]:>8}{cells[1]:>8}{cells[2]:>10}".rstrip())


if __name__ == "__main__":
    main()
