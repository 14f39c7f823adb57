"""Holds the stubs against the module, and the package's sources against their types.

usage: check_stubs.py FOLDER    the folder that holds the package
"""

import os
import subprocess
import sys
import tempfile

USE = """
import numpy as np
import qrt_core as qrt

net: qrt.Net = qrt.load("net.qrtmodel")["net"]
shape = net.inputs[0].shape
reveal_type(net.profile(np.zeros(3)))
reveal_type(qrt.kernels())
model = qrt.tune("net.qrtmodel", inputs={"x": (3, 4)}, progress=True)
reveal_type(model.tuning)
reveal_type(qrt.bench(model, "other.qrtmodel")[0])
reveal_type(qrt.explain(model)[0].converters)
reveal_type(qrt.explain(model, candidates=True, html="page.html")[0].second)
qrt.tune(model, inputs=[{"x": (3, 4)}, {"x": (3, 8)}], weights=[1, 0.5])
reveal_type(qrt.verify("net.onnx", data=np.zeros(3)).first_beyond)
qrt.image.resize(np.zeros((3, 3, 3), np.uint8), (2, 2))
qrt.load(3)
"""


def run(folder, arguments):
    environment = {**os.environ, "MYPYPATH": folder, "PYTHONPATH": folder}
    done = subprocess.run([sys.executable, "-m", *arguments], env=environment, capture_output=True, text=True, check=False)
    return done.returncode, done.stdout + done.stderr


def main(folder):
    with tempfile.TemporaryDirectory() as cache:
        # The metaclass is pybind11's, and no class but by the module makes objects.
        allowed = os.path.join(cache, "allowed")
        with open(allowed, "w", encoding="utf-8") as file:
            for name in ("Finding", "Kernel", "Layer", "Model", "Net", "Port"):
                file.write(f"qrt_core._core.{name}\nqrt_core._core.{name}.__init__\n")
        options = ["--ignore-missing-stub", "--allowlist", allowed]
        status, text = run(folder, ["mypy.stubtest", "qrt_core._core", *options])
        if status != 0:
            print(text)
            return 1
        options = ["--cache-dir", cache, "--ignore-missing-imports"]
        status, text = run(folder, ["mypy", *options, "--strict", "-p", "qrt_core"])
        if status != 0:
            print(text)
            return 1
        program = os.path.join(cache, "use.py")
        with open(program, "w", encoding="utf-8") as file:
            file.write(USE)
        _, text = run(folder, ["mypy", *options, program])
    expected = (
        'Revealed type is "qrt_core.profile.Profile"',
        'Revealed type is "builtins.list[qrt_core._core.Kernel]"',
        'Revealed type is "Union[qrt_core.tuning.Tuning, None]"',
        'Revealed type is "qrt_core.benchmark.BenchedNetwork"',
        "fallback=qrt_core.explanation.ExplainedConverter], ...]",
        "fallback=qrt_core.explanation.ExplainedCandidate], None]",
        "fallback=qrt_core.verification.VerifiedLayer], None]",
        'Argument 1 to "load" has incompatible type "int"',
        "Found 1 error",
    )
    missing = [line for line in expected if line not in text]
    if missing:
        print(text, "missing:", *missing, sep="\n")
        return 1
    print("the stubs are the module's")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
