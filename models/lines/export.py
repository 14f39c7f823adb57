#!/usr/bin/python3
"""Writes a checkpoint as an ONNX file, batch normalisation folded in, and checks what it computes."""

import argparse
import os
import warnings

import torch
from torch import nn

from fonts import HERE
from network import Lines


class Exported(nn.Module):
    """The trained network without what only training needs, and with the classes as a convolution.

    A convolution of one column is the same as a linear layer for each, and there are more kernels for it.
    """

    def __init__(self, trained):
        super().__init__()
        parts = []
        for part in trained.convolutions:
            if isinstance(part, nn.BatchNorm2d):
                parts[-1] = nn.utils.fusion.fuse_conv_bn_eval(parts[-1], part)
            else:
                parts.append(part)
        self.convolutions = nn.Sequential(*parts)
        self.lstm = trained.lstm
        linear = trained.classes
        self.classes = nn.Conv2d(linear.in_features, linear.out_features, 1)
        self.classes.weight.data = linear.weight.data[:, :, None, None]
        self.classes.bias.data = linear.bias.data

    def forward(self, picture):
        columns = self.convolutions(picture).squeeze(2)
        sequence, _ = self.lstm(columns.permute(2, 0, 1))
        steps = self.classes(sequence.permute(1, 2, 0).unsqueeze(2))
        return steps.squeeze(2).permute(0, 2, 1)


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--checkpoint", default=os.path.join(HERE, "run", "checkpoint.pt"))
    arguments.add_argument("--onnx", default=os.path.join(HERE, "lines.onnx"))
    options = arguments.parse_args()
    torch.set_num_threads(1)
    trained = Lines()
    trained.load_state_dict(torch.load(options.checkpoint)["average"])
    trained.eval()
    with torch.no_grad():  # below the least half is nothing
        for weights in trained.parameters():
            weights[weights.abs() < 2**-24] = 0
    exported = Exported(trained).eval()
    picture = torch.rand(1, 1, 32, 320) * 2 - 1
    with torch.no_grad():
        expected, found = trained(picture), exported(picture)
    difference = ((expected - found).abs().max() / expected.abs().max()).item()
    if difference > 1e-4:
        raise SystemExit(f"the exported network differs by {difference:.1e} of the largest output")
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # on what batches an LSTM is exported for
        torch.onnx.export(
            exported,
            picture,
            options.onnx,
            opset_version=13,
            input_names=["picture"],
            output_names=["steps"],
            dynamic_axes={"picture": {3: "width"}, "steps": {1: "columns"}},
        )
    print(f"{options.onnx}: within {difference:.1e} of the trained network")


if __name__ == "__main__":
    main()
