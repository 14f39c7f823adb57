"""The network: convolutions down to one row, a two-directional LSTM, two steps of characters a column."""

import torch
from torch import nn

from fonts import CHARACTERS

CLASSES = len(CHARACTERS) + 1  # class 0 is the blank of connectionist temporal classification
STRIDE = 4  # columns of the picture behind one step of the LSTM
BRAIN_FLOATS = "avx512_bf16" in open("/proc/cpuinfo", encoding="utf-8").read()
STEPS = 2  # answers that each of them gives, so that narrow letters have one each


def block(inputs, outputs, window=3):
    padding = 1 if window == 3 else 0
    return [
        nn.Conv2d(inputs, outputs, window, padding=padding, bias=False),
        nn.BatchNorm2d(outputs),
        nn.ReLU(inplace=True),
    ]


class Lines(nn.Module):
    """Pictures [n, 1, 32, w] of grey levels, black -1 and white 1; logits [n, w / 4, 2 * 96]: two steps of 96 classes each."""

    def __init__(self, hidden=128):
        super().__init__()
        self.convolutions = nn.Sequential(
            *block(1, 16),
            nn.MaxPool2d(2),
            *block(16, 32),
            nn.MaxPool2d(2),
            *block(32, 64),
            *block(64, 64),
            nn.MaxPool2d((2, 1)),
            *block(64, 128),
            *block(128, 128, (4, 1)),
        )
        self.drop = nn.Dropout(0.05)
        self.lstm = nn.LSTM(128, hidden, bidirectional=True)
        self.classes = nn.Linear(2 * hidden, STEPS * CLASSES)

    def forward(self, pictures):
        # The half type of brain floats takes half the time on processors that have it; the LSTM needs the digits.
        with torch.autocast("cpu", torch.bfloat16, enabled=self.training and BRAIN_FLOATS):
            columns = self.convolutions(pictures).squeeze(2).float()  # [n, 128, w / 4]
        sequence, _ = self.lstm(self.drop(columns).permute(2, 0, 1))
        return self.classes(sequence).permute(1, 0, 2)


def input_of(pictures):
    """uint8 pictures [n, 32, w], NumPy's, as the network takes them."""
    return torch.from_numpy(pictures)[:, None].float() / 127.5 - 1


def steps_of(logits):
    """[n, w / 4, 2 * 96] as [n, w / 2, 96]: a step of 96 classes for every two columns."""
    return logits.reshape(logits.shape[0], -1, CLASSES)


def best_texts(logits):
    """The most probable class of each step, repeats and blanks taken out, as text."""
    texts = []
    for row in steps_of(logits).argmax(2).tolist():
        previous, text = 0, []
        for value in row:
            if value != previous and value != 0:
                text.append(CHARACTERS[value - 1])
            previous = value
        texts.append("".join(text))
    return texts
