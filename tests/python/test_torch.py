"""In one process with PyTorch: imported before and after it, and in agreement with it."""

import importlib.util
import subprocess
import sys

import pytest

PROGRAM = """
import sys
order, folder = sys.argv[1:]
if order == "before":
    import qrt_core as qrt
import torch
if order == "after":
    import qrt_core as qrt
torch.manual_seed(1)
layers = [torch.nn.Conv2d(3, 8, 3, padding=1), torch.nn.ReLU(), torch.nn.MaxPool2d(2), torch.nn.Conv2d(8, 16, 3, stride=2)]
layers += [torch.nn.BatchNorm2d(16), torch.nn.ReLU(), torch.nn.AdaptiveAvgPool2d(1), torch.nn.Flatten(), torch.nn.Linear(16, 5)]
network = torch.nn.Sequential(*layers).eval()
x = torch.randn(1, 3, 32, 32)
path = folder + "/" + order + ".onnx"
torch.onnx.export(network, x, path, input_names=["x"], output_names=["y"])
expected = network(x).detach().numpy().reshape(-1)
for kernels in ("portable", None):
    net = qrt.import_onnx(path, kernels=kernels)[0]
    for given in (x, x.numpy(), x[0].numpy()):
        difference = abs(net(given).reshape(-1) - expected).max()
        assert difference < 1e-5, difference
print("agrees")
"""


@pytest.mark.skipif(importlib.util.find_spec("torch") is None, reason="there is no torch (Debian: python3-torch)")
def test_before_and_after_torch(tmp_path):
    command = [sys.executable, "-B", "-c", PROGRAM]
    running = [
        subprocess.Popen([*command, order, str(tmp_path)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        for order in ("before", "after")
    ]
    for process in running:
        text, _ = process.communicate(timeout=100)
        assert process.returncode == 0 and text.endswith("agrees\n"), text
