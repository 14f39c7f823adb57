"""The network, the folding of its batch normalisation, and truncation to half precision."""

import numpy as np
import torch
from torch import nn

# Input channels, output channels, window, stride and padding of each convolution. A ReLU follows
# each but the last.
LAYERS = [
    (1, 16, 5, 2, 2),
    (16, 32, 3, 1, 1),
    (32, 48, 3, 2, 1),
    (48, 64, 3, 1, 1),
    (64, 10, 7, 1, 0),
]
SIDE = 28


class Digits(nn.Module):
    """Convolutions with batch normalisation while it is trained."""

    def __init__(self):
        super().__init__()
        parts = []
        for i, (inputs, outputs, window, stride, padding) in enumerate(LAYERS):
            last = i + 1 == len(LAYERS)
            if last:
                parts.append(nn.Dropout2d(0.1))
            parts.append(nn.Conv2d(inputs, outputs, window, stride, padding, bias=last))
            if not last:
                parts += [nn.BatchNorm2d(outputs), nn.ReLU()]
        self.parts = nn.Sequential(*parts)

    def forward(self, pictures):
        return self.parts(pictures).flatten(1)


def folded(model):
    """(weight, bias) of each convolution as float32 arrays, batch normalisation worked in."""
    result, convolution = [], None
    for part in model.parts:
        if isinstance(part, nn.Conv2d):
            convolution = part
            if part.bias is not None:
                result.append((part.weight.detach().double(), part.bias.detach().double()))
        elif isinstance(part, nn.BatchNorm2d):
            scale = part.weight.detach().double() / torch.sqrt(part.running_var.double() + part.eps)
            weight = convolution.weight.detach().double() * scale[:, None, None, None]
            result.append(
                (weight, part.bias.detach().double() - part.running_mean.double() * scale)
            )
    return [(weight.float().numpy(), bias.float().numpy()) for weight, bias in result]


def truncated(values):
    """float32 values cut toward zero to what binary16 can hold, as float32.

    Raises ValueError for a value that is out of range.
    """
    half = values.astype(np.float16)
    if not np.isfinite(half).all():
        raise ValueError("a weight is outside the range of half precision")
    too_large = np.abs(half.astype(np.float32)) > np.abs(values)
    bits = half.view(np.uint16) - too_large.astype(np.uint16)  # one step toward zero
    return bits.view(np.float16).astype(np.float32)


def logits(weights, pictures, dtype=torch.float32):
    """Logits [n, 10] of folded weights."""
    values = pictures.to(dtype)
    for i, ((weight, bias), (_, _, _, stride, padding)) in enumerate(zip(weights, LAYERS)):
        values = nn.functional.conv2d(
            values,
            torch.from_numpy(weight).to(dtype),
            torch.from_numpy(bias).to(dtype),
            stride,
            padding,
        )
        if i + 1 < len(LAYERS):
            values = torch.relu(values)
    return values.flatten(1)


def shapes():
    """Output side, parameters and multiply-adds of each convolution."""
    rows, side = [], SIDE
    for inputs, outputs, window, stride, padding in LAYERS:
        side = (side + 2 * padding - window) // stride + 1
        taps = inputs * outputs * window * window
        rows.append((side, taps + outputs, taps * side * side))
    return rows
