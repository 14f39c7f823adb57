"""From masters to 28 x 28 pictures that differ in place, stroke, light and noise, at random."""

import math

import torch
import torch.nn.functional as F

SIDE = 28
FINE = 2 * SIDE  # pictures are made at twice the size and averaged down
MASTER = 64
MASTER_HEIGHT = 40.0


class Strength:
    """How far pictures are changed: 0 not at all, 1 as in training.

    Angles are in degrees, lengths in pixels of the 28 x 28 picture, grey levels 0..1.
    """

    def __init__(self, factor):
        self.turn = 16.0 * factor
        self.shear = 0.25 * factor
        self.aspect = 0.25 * factor
        self.bend = 0.8 * factor
        self.stroke = (
            0.35 * factor
        )  # share of the pictures that get thicker, and of those that get thinner
        self.noise = 0.12 * factor
        self.shift = 3.5 * factor
        self.heights = (20.0 - 7.0 * factor, 20.0 + 5.0 * factor)
        self.background = 0.45 * factor
        self.blur = 0.5 * factor


def uniform(low, high, count, generator):
    return torch.rand(count, generator=generator) * (high - low) + low


def chosen(share, count, generator):
    """A column of ones (for about `share` of the pictures) and zeros, to multiply pictures with."""
    return (torch.rand(count, 1, 1, 1, generator=generator) < share).float()


def sampling_grid(count, strength, generator):
    """Where each fine pixel is read in the master, in the coordinates of grid_sample."""
    turn = uniform(-1, 1, count, generator) * strength.turn * math.pi / 180
    shear = uniform(-1, 1, count, generator) * strength.shear
    aspect = torch.exp(uniform(-1, 1, count, generator) * strength.aspect)
    height = uniform(*strength.heights, count, generator)
    zoom = SIDE / MASTER * MASTER_HEIGHT / height  # picture coordinates to master coordinates
    cos, sin = torch.cos(turn), torch.sin(turn)
    room = torch.clamp((SIDE - height) / 2 - 1, min=0.0)
    reach = torch.minimum(room, torch.full_like(room, strength.shift)) * 2 / SIDE
    dx = uniform(-1, 1, count, generator) * reach
    dy = uniform(-1, 1, count, generator) * reach
    rows = torch.stack(
        [
            torch.stack(
                [zoom / aspect * (cos + shear * sin), zoom / aspect * (sin - shear * cos)], 1
            ),
            torch.stack([-zoom * sin, zoom * cos], 1),
        ],
        1,
    )
    offset = -(rows @ torch.stack([dx, dy], 1)[:, :, None])
    grid = F.affine_grid(torch.cat([rows, offset], 2), (count, 1, FINE, FINE), align_corners=False)
    if strength.bend > 0:
        size = uniform(0, 1, count, generator)[:, None, None, None] * strength.bend * 2 / SIDE
        knots = torch.randn(count, 2, 4, 4, generator=generator) * size
        bend = F.interpolate(knots, size=(FINE, FINE), mode="bicubic", align_corners=True)
        grid = grid + bend.permute(0, 2, 3, 1)
    return grid


def change_stroke(ink, strength, generator):
    """Thickens some pictures and thins others; one that would lose its ink stays as it is."""
    count = ink.shape[0]
    thick = F.max_pool2d(ink, 3, 1, 1)
    amount = uniform(0, 1, count, generator)[:, None, None, None]
    pick = chosen(strength.stroke, count, generator)
    result = ink + pick * amount * (thick - ink)
    thin = -F.max_pool2d(-ink, 3, 1, 1)
    left = thin.sum((1, 2, 3), keepdim=True) > 0.5 * ink.sum((1, 2, 3), keepdim=True)
    return result + (1 - pick) * chosen(strength.stroke, count, generator) * left * amount * (
        thin - ink
    )


def blurred(picture, strength, generator):
    """Softens about `blur` of the pictures, some of them twice."""
    kernel = torch.tensor([1.0, 2.0, 1.0])
    kernel = (kernel[:, None] * kernel[None, :] / 16)[None, None]
    for share in (strength.blur, strength.blur / 2):
        soft = F.conv2d(F.pad(picture, (1, 1, 1, 1), mode="replicate"), kernel)
        picture = picture + chosen(share, picture.shape[0], generator) * (soft - picture)
    return picture


def make_pictures(masters, strength, generator):
    """Pictures float32 [n, 1, 28, 28], 0..1, from masters uint8 [n, 64, 64].

    Half of them are dark on light.
    """
    count = masters.shape[0]
    ink = masters[:, None].float() / 255
    ink = F.grid_sample(
        ink, sampling_grid(count, strength, generator), mode="bilinear", align_corners=False
    )
    ink = F.avg_pool2d(change_stroke(ink, strength, generator), 2)
    ink = blurred(ink, strength, generator)
    ink = ink / ink.amax((1, 2, 3), keepdim=True).clamp(min=0.1)

    # The ground lies at a grey level, with a slope across the picture, and the ink above it.
    level = uniform(0, 1, count, generator)[:, None, None, None] * strength.background
    contrast = 1 - uniform(0, 1, count, generator)[:, None, None, None] * strength.background
    ramp = torch.linspace(-0.5, 0.5, SIDE)
    slope = torch.randn(count, 2, 1, 1, generator=generator) * strength.background * 0.2
    ground = (
        level + slope[:, :1] * ramp[None, None, :, None] + slope[:, 1:] * ramp[None, None, None, :]
    )
    picture = ground + ink * contrast * (1 - level)
    sigma = uniform(0, 1, count, generator)[:, None, None, None] * strength.noise
    picture = picture + torch.randn(picture.shape, generator=generator) * sigma
    picture = picture.clamp(0, 1)
    dark = chosen(0.5, count, generator)
    picture = picture + dark * (1 - 2 * picture)
    return torch.round(picture * 255) / 255  # as a picture file holds it
