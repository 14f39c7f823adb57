#!/usr/bin/env python3
"""Scores a folder of pictures with a network, on many cores or machines.

The library is one core's work; many of them belong to Dask (Debian: python3-distributed). Every worker loads the model
once, from bytes, so the machines need no common folder but that of the pictures. Pictures that can't be read or scored
are reported and stop nothing; what a worker was doing when it died is done by another one.

    score_pictures.py digits.qrtmodel pictures/ --output scores.csv --scale 0.00392156862745098
"""

import argparse
import csv
import itertools
import json
import os
import sys
import threading
import time

import numpy as np
from distributed import Client, LocalCluster, WorkerPlugin, as_completed, get_worker

SUFFIXES = (".png", ".jpg", ".jpeg", ".bmp", ".gif", ".webp")


class LoadModel(WorkerPlugin):
    """Makes a model ready on each worker, also on one that takes the place of another."""

    name = "qrt-model"

    def __init__(self, data, network):
        self.data, self.network = data, network

    def setup(self, worker):
        import qrt_core as qrt

        model = qrt.load(self.data)
        worker.qrt_first = model[self.network if self.network else 0]
        worker.qrt_of_thread = threading.local()
        worker.qrt_lock = threading.Lock()  # last: it says that all is there


def network_here():
    """The worker's network for this thread; all of them share the weights."""
    worker = get_worker()
    # A worker that takes the place of another one gets pictures before its model is ready.
    deadline = time.monotonic() + 120
    while not hasattr(worker, "qrt_lock") and time.monotonic() < deadline:
        time.sleep(0.01)
    own = worker.qrt_of_thread
    if not hasattr(own, "net"):
        with worker.qrt_lock:
            own.net = worker.qrt_first.clone()
    return own.net


def input_of(path, shape, mean, scale):
    """A picture as planes of the network's sizes."""
    from PIL import Image
    from qrt_core import image

    with Image.open(path) as picture:
        pixels = np.asarray(picture.convert("L" if shape[0] == 1 else "RGB"))
    return image.normalize(image.resize(pixels, shape[1:]), mean, scale)


def score(path, mean, scale):
    """Scores of one picture, or why there are none."""
    try:
        net = network_here()
        if len(net.inputs) != 1 or net.inputs[0].shape is None or len(net.inputs[0].shape) != 3:
            raise ValueError("the network doesn't take one picture of known sizes")
        net.reset()
        result = net(input_of(path, net.inputs[0].shape, mean, scale))
        if isinstance(result, dict):
            raise ValueError("the network has several outputs")
        return {"picture": path, "scores": [float(number) for number in result.reshape(-1)], "error": ""}
    except Exception as failure:  # one picture must not end the others
        return {"picture": path, "scores": [], "error": f"{type(failure).__name__}: {failure}"}


def pictures_below(folder):
    for where, folders, files in os.walk(folder):
        folders.sort()
        for name in sorted(files):
            if name.lower().endswith(SUFFIXES):
                yield os.path.abspath(os.path.join(where, name))


def results_of(client, paths, mean, scale, ahead):
    """Results as they come. No more than `ahead` pictures wait at a time, however many there are."""
    paths = iter(paths)
    begin = [client.submit(score, path, mean, scale, pure=False) for path in itertools.islice(paths, ahead)]
    running = as_completed(begin, with_results=False)
    for future in running:
        try:
            # Waits where the worker that held the result is gone: another one scores the picture again.
            yield future.result()
        except Exception as failure:
            yield {"picture": "?", "scores": [], "error": f"lost: {failure}"}
        path = next(paths, None)
        if path is not None:
            running.add(client.submit(score, path, mean, scale, pure=False))


class Table:
    """Writes results as CSV, JSON lines or Parquet, by the suffix of the file."""

    def __init__(self, path):
        self.form = os.path.splitext(path)[1]
        if self.form == ".parquet":
            import pyarrow
            import pyarrow.parquet

            columns = [("picture", pyarrow.string()), ("scores", pyarrow.list_(pyarrow.float64()))]
            self.arrow = pyarrow
            self.schema = pyarrow.schema([*columns, ("error", pyarrow.string())])
            self.file = pyarrow.parquet.ParquetWriter(path, self.schema)
        elif self.form in (".csv", ".jsonl"):
            self.file = open(path, "w", encoding="utf-8", newline="")
            if self.form == ".csv":
                self.rows = csv.writer(self.file)
                self.rows.writerow(["picture", "best", "score", "error", "scores"])
        else:
            raise ValueError(f"{path}: expected a name in .csv, .jsonl or .parquet")

    def add(self, result):
        if self.form == ".parquet":
            self.file.write_table(self.arrow.Table.from_pylist([result], self.schema))
            return
        scores = result["scores"]
        if self.form == ".csv":
            best = int(np.argmax(scores)) if scores else ""
            row = [result["picture"], best, scores[best] if scores else "", result["error"]]
            self.rows.writerow([*row, " ".join(f"{number:.9g}" for number in scores)])
        else:
            self.file.write(json.dumps(result) + "\n")
        self.file.flush()

    def close(self):
        self.file.close()


def show(done, failed, total, begin):
    width = 30
    filled = width * done // max(total, 1)
    rate = done / max(time.monotonic() - begin, 1e-9)
    bar = "#" * filled + "." * (width - filled)
    print(f"\r[{bar}] {done} of {total}, {failed} failed, {rate:.1f} a second", end="", file=sys.stderr, flush=True)


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("model", help="a .qrtmodel or .json file")
    parser.add_argument("folder", help="pictures, in folders of any depth")
    parser.add_argument("--network", default="", help="id in the model; the first one without")
    parser.add_argument("--output", default="scores.csv", help="a .csv, .jsonl or .parquet file")
    parser.add_argument("--cluster", help="address of a scheduler; a cluster on this machine without")
    parser.add_argument("--workers", type=int, default=os.cpu_count(), help="of a cluster on this machine")
    parser.add_argument("--mean", type=float, default=0.0, help="taken off each sample")
    parser.add_argument("--scale", type=float, default=1 / 255, help="then multiplied")
    options = parser.parse_args(arguments)
    with open(options.model, "rb") as file:
        data = file.read()
    paths = list(pictures_below(options.folder))
    table = Table(options.output)
    cluster = None
    if options.cluster is None:
        cluster = LocalCluster(n_workers=options.workers, threads_per_worker=1, dashboard_address=None)
    done, failed, begin = 0, 0, time.monotonic()
    with Client(options.cluster or cluster) as client:
        client.register_worker_plugin(LoadModel(data, options.network), LoadModel.name)
        ahead = 4 * max(1, sum(worker["nthreads"] for worker in client.scheduler_info()["workers"].values()))
        for result in results_of(client, paths, options.mean, options.scale, ahead):
            table.add(result)
            done += 1
            failed += bool(result["error"])
            if result["error"]:
                print(f"{result['picture']}: {result['error']}", file=sys.stderr)
            if sys.stderr.isatty():
                show(done, failed, len(paths), begin)
    table.close()
    if cluster is not None:
        cluster.close()
    print(f"{done} pictures, {failed} failed, {time.monotonic() - begin:.1f} s")
    return 0 if done == len(paths) else 1


if __name__ == "__main__":
    sys.exit(main())
