#!/usr/bin/env python3
"""Exports networks with random weights to ONNX, with an input and PyTorch's own outputs beside each.

    export.py FOLDER [NAME ...]

makes FOLDER/NAME.onnx, FOLDER/NAME.input.npy and FOLDER/NAME.output-N.npy. Needs Debian's
python3-torchvision and python3-onnx. Weights are drawn from a fixed seed, and batch
normalizations get the statistics of random pictures, so that numbers stay in range.
"""

import sys
import warnings
from pathlib import Path

import numpy as np
import torch
import torchvision
from torch import nn

OPSET = 13


class OutputOf(nn.Module):
    """The segmentation networks return a dictionary; this one tensor of it."""

    def __init__(self, network, key):
        super().__init__()
        self.network = network
        self.key = key

    def forward(self, x):
        return self.network(x)[self.key]


class Sequence(nn.Module):
    """A recurrent layer whose states are left out."""

    def __init__(self, layer):
        super().__init__()
        self.layer = layer

    def forward(self, x):
        return self.layer(x)[0]


class TextReader(nn.Module):
    """Convolutions make a picture a sequence of columns, which two recurrent layers read."""

    def __init__(self):
        super().__init__()
        layers = []
        channels = 1
        for out, pool in ((32, (2, 2)), (64, (2, 2)), (128, (2, 1)), (128, (2, 1))):
            layers += [nn.Conv2d(channels, out, 3, padding=1), nn.BatchNorm2d(out), nn.ReLU(), nn.MaxPool2d(pool)]
            channels = out
        self.convolutions = nn.Sequential(*layers)
        self.recurrent = nn.LSTM(2 * 128, 96, num_layers=2, bidirectional=True)
        self.head = nn.Linear(2 * 96, 37)

    def forward(self, x):
        x = self.convolutions(x)
        x = x.permute(3, 0, 1, 2).flatten(2)
        return self.head(self.recurrent(x)[0])


class UNet(nn.Module):
    """Halves a picture four times and doubles it again, with the features of each size handed across."""

    def __init__(self, width=32, classes=2):
        super().__init__()
        widths = [width << i for i in range(5)]
        self.down = nn.ModuleList(map(self.block, [3, *widths], widths))
        self.pool = nn.MaxPool2d(2)
        self.grow = nn.ModuleList(nn.ConvTranspose2d(2 * w, w, 2, stride=2) for w in widths[-2::-1])
        self.up = nn.ModuleList(self.block(2 * w, w) for w in widths[-2::-1])
        self.head = nn.Conv2d(width, classes, 1)

    @staticmethod
    def block(channels, out):
        layers = []
        for c in (channels, out):
            layers += [nn.Conv2d(c, out, 3, padding=1, bias=False), nn.BatchNorm2d(out), nn.ReLU(inplace=True)]
        return nn.Sequential(*layers)

    def forward(self, x):
        kept = []
        for i, block in enumerate(self.down):
            x = block(x if i == 0 else self.pool(x))
            kept.append(x)
        for grow, block, features in zip(self.grow, self.up, kept[-2::-1]):
            x = block(torch.cat([features, grow(x)], 1))
        return self.head(x)


class Attention(nn.Module):
    """Attention over all tokens of a sequence, with scores that a mask takes away."""

    def __init__(self, width, heads):
        super().__init__()
        self.heads = heads
        self.queries, self.keys, self.values, self.out = (nn.Linear(width, width) for _ in range(4))

    def split(self, x):
        return x.reshape(x.shape[0], x.shape[1], self.heads, -1).transpose(1, 2)

    def forward(self, x, mask):
        queries, keys, values = (self.split(f(x)) for f in (self.queries, self.keys, self.values))
        scores = queries @ keys.transpose(2, 3) / (queries.shape[-1] ** 0.5) + mask
        mixed = scores.softmax(-1) @ values
        return self.out(mixed.transpose(1, 2).reshape(x.shape))


class Encoder(nn.Module):
    """Attention and two dense layers; the normalization follows each, or precedes it."""

    def __init__(self, width, heads, gelu, first):
        super().__init__()
        self.attention = Attention(width, heads)
        self.dense = nn.Sequential(nn.Linear(width, 4 * width), nn.GELU(approximate=gelu), nn.Linear(4 * width, width))
        self.norms = nn.ModuleList(nn.LayerNorm(width) for _ in range(2))
        self.first = first

    def forward(self, x, mask):
        if self.first:
            x = x + self.attention(self.norms[0](x), mask)
            return x + self.dense(self.norms[1](x))
        x = self.norms[0](x + self.attention(x, mask))
        return self.norms[1](x + self.dense(x))


class Language(nn.Module):
    """Numbers of words in, as BERT (every word sees all, but for padding) or GPT (only those before it) reads them."""

    def __init__(self, causal, words=120, width=48, heads=4, layers=2, longest=32):
        super().__init__()
        self.words = nn.Embedding(words, width)
        self.places = nn.Embedding(longest, width)
        self.norm = nn.LayerNorm(width)
        gelu = "tanh" if causal else "none"
        self.layers = nn.ModuleList(Encoder(width, heads, gelu, causal) for _ in range(layers))
        self.head = nn.Linear(width, words if causal else 3)
        self.causal = causal
        self.register_buffer("later", torch.full((longest, longest), float("-inf")).triu(1))

    def forward(self, ids):
        x = self.words(ids) + self.places(torch.arange(ids.shape[1]))
        if self.causal:
            mask = self.later[: ids.shape[1], : ids.shape[1]]
        else:
            x = self.norm(x)
            mask = (1 - (ids != 0)[:, None, None, :].float()) * -10000.0
        for layer in self.layers:
            x = layer(x, mask)
        return self.head(self.norm(x)) if self.causal else torch.tanh(self.head(x[:, 0]))


def torchvision_network(name, **options):
    return lambda: getattr(torchvision.models, name)(weights=None, **options)


def segmentation(name):
    def make():
        network = getattr(torchvision.models.segmentation, name)(weights=None, weights_backbone=None)
        return OutputOf(network, "out")

    return make


def vision_transformer():
    network = torchvision.models.VisionTransformer(
        image_size=64, patch_size=16, num_layers=3, num_heads=4, hidden_dim=96, mlp_dim=160, num_classes=50
    )
    # Zeros otherwise, which hide what the layers before have done.
    nn.init.normal_(network.heads.head.weight, std=0.1)
    return network


def recurrent(kind, **options):
    return lambda: Sequence(getattr(nn, kind)(24, 32, **options))


PICTURE = (1, 3, 224, 224)
SMALL = (1, 3, 128, 128)
LINES = (20, 1, 24)
WORDS = (1, 23)

# Name, what makes it, shape of its input.
NETWORKS = {
    "alexnet": (torchvision_network("alexnet"), PICTURE),
    "vgg11_bn": (torchvision_network("vgg11_bn"), PICTURE),
    "resnet18": (torchvision_network("resnet18"), PICTURE),
    "resnet50": (torchvision_network("resnet50"), PICTURE),
    "resnext50_32x4d": (torchvision_network("resnext50_32x4d"), PICTURE),
    "mobilenet_v2": (torchvision_network("mobilenet_v2"), PICTURE),
    "mobilenet_v3_small": (torchvision_network("mobilenet_v3_small"), PICTURE),
    "mobilenet_v3_large": (torchvision_network("mobilenet_v3_large"), PICTURE),
    "mnasnet1_0": (torchvision_network("mnasnet1_0"), PICTURE),
    "squeezenet1_1": (torchvision_network("squeezenet1_1"), PICTURE),
    "shufflenet_v2_x1_0": (torchvision_network("shufflenet_v2_x1_0"), PICTURE),
    "densenet121": (torchvision_network("densenet121"), PICTURE),
    "googlenet": (torchvision_network("googlenet", aux_logits=False, init_weights=False, transform_input=True), PICTURE),
    "inception_v3": (torchvision_network("inception_v3", aux_logits=False, init_weights=False), (1, 3, 299, 299)),
    "efficientnet_b0": (torchvision_network("efficientnet_b0"), PICTURE),
    "regnet_y_400mf": (torchvision_network("regnet_y_400mf"), PICTURE),
    "deeplabv3_mobilenet_v3_large": (segmentation("deeplabv3_mobilenet_v3_large"), SMALL),
    "lraspp_mobilenet_v3_large": (segmentation("lraspp_mobilenet_v3_large"), SMALL),
    "fcn_resnet50": (segmentation("fcn_resnet50"), SMALL),
    "unet": (UNet, PICTURE),
    "lstm": (recurrent("LSTM"), LINES),
    "lstm_bidirectional_2": (recurrent("LSTM", num_layers=2, bidirectional=True), LINES),
    "lstm_batch_first": (recurrent("LSTM", batch_first=True), (1, 20, 24)),
    "gru": (recurrent("GRU"), LINES),
    "gru_bidirectional_2": (recurrent("GRU", num_layers=2, bidirectional=True), LINES),
    "rnn": (recurrent("RNN"), LINES),
    "rnn_relu_bidirectional_2": (recurrent("RNN", num_layers=2, bidirectional=True, nonlinearity="relu"), LINES),
    "text_reader": (TextReader, (1, 1, 32, 100)),
    "vit_tiny": (vision_transformer, (1, 3, 64, 64)),
    "convnext_tiny": (torchvision_network("convnext_tiny"), SMALL),
    "bert_tiny": (lambda: Language(causal=False), WORDS),
    "gpt_tiny": (lambda: Language(causal=True), WORDS),
}


def calibrate(network, shape):
    """Gives batch normalizations the statistics of random pictures, and random scales and shifts."""
    norms = [m for m in network.modules() if isinstance(m, nn.modules.batchnorm._BatchNorm)]
    for norm in norms:
        norm.momentum = None
        nn.init.uniform_(norm.weight, 0.9, 1.1)
        nn.init.normal_(norm.bias, 0, 0.05)
    # What residual blocks add is small in trained networks. Without that, random ones of fifty layers multiply every
    # rounding by a thousand, and PyTorch's own outputs are off by 1e-4.
    for block in network.modules():
        last = getattr(block, "bn3", getattr(block, "bn2", None))
        if hasattr(block, "downsample") and last is not None:
            nn.init.constant_(last.weight, 0.25)
    if not norms:
        return
    network.train()
    for module in network.modules():
        if isinstance(module, (nn.Dropout, torchvision.ops.StochasticDepth)):
            module.eval()
    with torch.no_grad():
        network(torch.randn((4, *shape[1:])))


def build(name):
    """The network, ready to run, and its input: the same each time."""
    make, shape = NETWORKS[name]
    torch.manual_seed(1)
    network = make()
    calibrate(network, shape)
    network.eval()
    x = torch.randint(0, 120, shape) if shape == WORDS else torch.randn(shape)
    if shape == WORDS:
        x[:, -4:] = 0
    return network, x


def export(folder, name):
    network, x = build(name)
    with torch.no_grad():
        outputs = network(x)
    if isinstance(outputs, torch.Tensor):
        outputs = [outputs]
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        torch.onnx.export(network, x, str(folder / f"{name}.onnx"), opset_version=OPSET)
    np.save(folder / f"{name}.input.npy", x.numpy())
    for i, output in enumerate(outputs):
        np.save(folder / f"{name}.output-{i}.npy", output.numpy())


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    folder = Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    torch.set_num_threads(1)
    unknown = [name for name in sys.argv[2:] if name not in NETWORKS]
    if unknown:
        sys.exit(f"no network is called {', '.join(unknown)}; there are {', '.join(NETWORKS)}")
    for name in sys.argv[2:] or NETWORKS:
        if not (folder / f"{name}.onnx").exists():
            export(folder, name)
        print(name, flush=True)


if __name__ == "__main__":
    main()
