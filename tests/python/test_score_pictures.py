"""The example that scores a folder of pictures, on a cluster of two workers of which one is killed."""

import csv
import importlib.util
import json
import os
import shutil
import signal
import subprocess
import sys
import time

import models
import pytest

distributed = pytest.importorskip("distributed")
pytest.importorskip("PIL")

SCRIPT = os.path.join(models.ROOT, "examples", "score_pictures.py")
SAMPLES = os.path.join(models.ROOT, "models", "digits", "samples")
DIGITS = ("zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine")


@pytest.fixture(scope="module")
def cluster():
    with distributed.LocalCluster(
        n_workers=2, threads_per_worker=1, dashboard_address=None, silence_logs=50
    ) as running:
        yield running


def fill(folder, copies):
    names = sorted(name for name in os.listdir(SAMPLES) if name.endswith(".png"))
    for copy in range(copies):
        os.makedirs(folder / str(copy))
        for name in names:
            shutil.copy(os.path.join(SAMPLES, name), folder / str(copy) / name)
    (folder / "broken.png").write_bytes(b"no picture")
    return copies * len(names) + 1


def start(cluster, folder, output):
    command = [sys.executable, "-B", SCRIPT, models.DIGITS, str(folder), "--output", str(output)]
    command += ["--cluster", cluster.scheduler_address]
    return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def test_a_worker_that_is_killed_loses_nothing(cluster, tmp_path):
    pictures, output = tmp_path / "pictures", tmp_path / "scores.csv"
    count = fill(pictures, 8)
    running = start(cluster, pictures, output)
    deadline = time.monotonic() + 60
    while time.monotonic() < deadline and running.poll() is None:
        if output.exists() and output.read_bytes().count(b"\n") > 20:
            break
        time.sleep(0.005)
    assert running.poll() is None, "too quick to be disturbed"
    os.kill(list(cluster.workers.values())[0].pid, signal.SIGKILL)
    text, errors = running.communicate(timeout=100)
    assert running.returncode == 0, errors
    assert text.startswith(f"{count} pictures, 1 failed")
    with open(output, encoding="utf-8") as file:
        rows = list(csv.DictReader(file))
    assert len({row["picture"] for row in rows}) == len(rows) == count
    (failed,) = [row for row in rows if row["error"]]
    assert failed["picture"].endswith("broken.png") and "UnidentifiedImageError" in failed["error"]
    for row in rows:
        if not row["error"]:
            assert DIGITS[int(row["best"])] == os.path.basename(row["picture"]).split("-")[0]


def test_forms_of_the_results(tmp_path):
    spec = importlib.util.spec_from_file_location("score_pictures", SCRIPT)
    script = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(script)
    results = [{"picture": "a,b.png", "scores": [0.25, 0.5], "error": ""}, {"picture": "c", "scores": [], "error": "no"}]
    for name in ("scores.csv", "scores.jsonl"):
        table = script.Table(str(tmp_path / name))
        for result in results:
            table.add(result)
        table.close()
    assert [json.loads(line) for line in (tmp_path / "scores.jsonl").read_text().splitlines()] == results
    rows = list(csv.reader((tmp_path / "scores.csv").read_text().splitlines()))
    assert rows[1:] == [["a,b.png", "1", "0.5", "", "0.25 0.5"], ["c", "", "", "no", ""]]
    with pytest.raises(ValueError, match="expected a name in .csv, .jsonl or .parquet"):
        script.Table("scores.xml")
