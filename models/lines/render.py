"""Lines as pictures: rendered, then turned, bent out of square, lit, blurred and made noisy at random."""

import io
import math

import numpy as np
from PIL import Image, ImageDraw, ImageFilter

from fonts import open_font

ROWS = 32  # rows of every picture that the network is given
SIZES = (14, 18, 22, 26, 30, 34, 40, 48)  # font sizes in pixels
FILTERS = (Image.BILINEAR, Image.BILINEAR, Image.BICUBIC, Image.BOX, Image.LANCZOS, Image.HAMMING)


class FontCache:
    """Opened fonts by face and size."""

    def __init__(self, room=3000):
        self.fonts, self.room = {}, room

    def get(self, path, size):
        if len(self.fonts) >= self.room:
            self.fonts.clear()
        key = (path, size)
        if key not in self.fonts:
            self.fonts[key] = open_font(path, size)
        return self.fonts[key]


def draw_ink(text, font, spacing=0.0, word_spacing=0.0):
    """Coverage uint8 of a text with room around it, and its box: left, top, right, bottom.

    The box goes from the height of ascenders to the depth of descenders of the face's letters, and at least around the ink.
    """
    advance = font.getlength(text) + abs(spacing) * len(text) + abs(word_spacing) * text.count(" ")
    size = font.size
    canvas = Image.new("L", (int(advance + 3 * size), int(3.6 * size)), 0)
    draw = ImageDraw.Draw(canvas)
    x, y = 1.5 * size, 2.2 * size
    if spacing == 0.0 and word_spacing == 0.0:
        draw.text((x, y), text, font=font, fill=255, anchor="ls")
    else:
        for character in text:
            draw.text((x, y), character, font=font, fill=255, anchor="ls")
            x += font.getlength(character) + spacing + word_spacing * (character == " ")
    ink = canvas.getbbox()
    if ink is None:
        return None
    _, top, _, bottom = font.getbbox("dlpqg", anchor="ls")
    line = (ink[0], min(ink[1], y + top), ink[2], max(ink[3], y + bottom))
    return canvas, ink, line


def unit(rng, low, high):
    return low + (high - low) * rng.random()


def quadrilateral(box, rng, strength):
    """Corners (upper left, lower left, lower right, upper right) of what is cut out around a box."""
    left, top, right, bottom = box
    height = bottom - top
    above, below = (height * unit(rng, 0.0, 0.08 + 0.22 * rng.random()) for _ in range(2))
    ahead, behind = (height * unit(rng, 0.02, 0.2 + 0.6 * rng.random() ** 2) for _ in range(2))
    top, bottom, left, right = top - above, bottom + below, left - ahead, right + behind
    corners = np.array([[left, top], [left, bottom], [right, bottom], [right, top]])
    if strength > 0 and rng.random() < 0.6:
        centre = corners.mean(0)
        # A long line that is turned is made level before it is read: what is left is a part of its height.
        most = math.degrees(math.atan2(0.6 * height, right - left))
        angle = math.radians(max(-most, min(most, unit(rng, -3.0, 3.0) * strength)))
        turn = np.array([[math.cos(angle), -math.sin(angle)], [math.sin(angle), math.cos(angle)]])
        corners = (corners - centre) @ turn.T + centre
        # The cut grows with what the turn moves out of it, as a cut around a turned line does.
        lift = abs(math.sin(angle)) * (right - left) / 2 * unit(rng, 0.5, 1.2)
        corners[[0, 3], 1] -= lift * 0.7
        corners[[1, 2], 1] += lift * 0.7
    if strength > 0 and rng.random() < 0.4:
        corners += np.array([[unit(rng, -0.09, 0.09) * height for _ in range(2)] for _ in range(4)]) * strength
    if strength > 0 and rng.random() < 0.25:
        slant = unit(rng, -0.12, 0.35) * height * strength
        corners[[0, 3], 0] -= slant / 2
        corners[[1, 2], 0] += slant / 2
    return corners


def cut_out(canvas, corners, stretch, rng, rows=ROWS):
    """What lies between four corners, as a picture of so many rows."""
    height = (np.linalg.norm(corners[0] - corners[1]) + np.linalg.norm(corners[3] - corners[2])) / 2
    length = (np.linalg.norm(corners[0] - corners[3]) + np.linalg.norm(corners[1] - corners[2])) / 2
    if height > 1.6 * rows:  # shrunk with a filter first, for the transformation takes single samples
        scale = 1.3 * rows / height
        size = (max(1, round(canvas.width * scale)), max(1, round(canvas.height * scale)))
        corners = corners * np.array([size[0] / canvas.width, size[1] / canvas.height])
        canvas = canvas.resize(size, rng.choice(FILTERS))
    width = max(4, round(length / height * rows * stretch))
    return canvas.transform((width, rows), Image.QUAD, corners.flatten().tolist(), rng.choice((Image.BILINEAR, Image.BICUBIC)))


def neighbours(canvas, line, font, text, rng):
    """Bits of the lines above and below, and rules, that a cut may catch."""
    draw = ImageDraw.Draw(canvas)
    height = line[3] - line[1]
    kind = rng.random()
    if kind < 0.5:
        other = "".join(rng.sample(text, len(text)))
        y = rng.choice((line[1] - 0.02 * height, line[3] + 1.0 * height))
        draw.text((line[0], int(y) + rng.choice((-1, 1))), other, font=font, fill=255, anchor="ls" if y < line[1] else "ls")
    elif kind < 0.8:
        y = line[3] + unit(rng, 0.0, 0.2) * height
        draw.line((line[0] - height, y, line[2] + height, y), fill=255, width=max(1, round(height / 24)))
    else:
        x = rng.choice((line[0] - unit(rng, 0.25, 0.6) * height, line[2] + unit(rng, 0.25, 0.6) * height))
        draw.line((x, line[1] - height, x, line[3] + height), fill=255, width=max(1, round(height / 24)))


def light(ink, rng, strength):
    """Grey levels 0..1 of a picture whose coverage by ink is 0..1."""
    contrast = unit(rng, 1.0 - 0.7 * strength, 1.0)
    paper = unit(rng, contrast, 1.0)
    picture = paper - contrast * ink
    rows, columns = ink.shape
    if strength > 0 and rng.random() < 0.5:
        steps = max(2, columns // rng.choice((24, 48, 96, 200)) + 1)
        coarse = np.array([[unit(rng, -1, 1) for _ in range(steps)] for _ in range(rng.choice((1, 2, 3)))], np.float32)
        field = Image.fromarray(coarse).resize((columns, rows), Image.BILINEAR)
        picture = picture * (1.0 + 0.35 * strength * rng.random() * np.asarray(field))
    if rng.random() < 0.25:
        picture = 1.0 - picture
    return picture


def spoil(picture, rng, strength, noise):
    """Blur, noise, low resolution and JPEG; uint8."""
    image = Image.fromarray(np.clip(picture * 255, 0, 255).astype(np.uint8))
    if strength > 0:
        if rng.random() < 0.3:
            scale = unit(rng, 1.0 - 0.6 * strength, 1.0)
            small = (max(2, round(image.width * scale)), max(10, round(image.height * scale)))
            image = image.resize(small, rng.choice(FILTERS)).resize(image.size, rng.choice(FILTERS[:4]))
        if rng.random() < 0.3:
            image = image.filter(ImageFilter.GaussianBlur(unit(rng, 0.2, 1.3) * strength))
        elif rng.random() < 0.1:
            image = image.filter(ImageFilter.BoxBlur((1, 0)[rng.random() < 0.5]))
        elif rng.random() < 0.1:
            image = image.filter(ImageFilter.UnsharpMask(1.5, int(120 * strength), 2))
        if rng.random() < 0.5:
            values = np.asarray(image, np.float32)
            values = values + noise.standard_normal(values.shape, np.float32) * (unit(rng, 0, 30) * strength)
            image = Image.fromarray(np.clip(values, 0, 255).astype(np.uint8))
        if rng.random() < 0.3:
            store = io.BytesIO()
            image.save(store, "JPEG", quality=int(unit(rng, 95 - 70 * strength, 95)))
            image = Image.open(store).convert("L")
    return np.asarray(image)


def render_line(text, path, fonts, rng, noise, strength):
    """A picture uint8 [32, width] of a text, or None if the face draws nothing.

    `strength` is 0 for lines as they are rendered and 1 for the most that training does to them.
    """
    size = rng.choice(SIZES)
    font = fonts.get(path, size)
    spacing = unit(rng, -0.03, 0.16) * size if strength > 0 and rng.random() < 0.15 else 0.0
    word_spacing = unit(rng, -0.07, 0.3) * size if strength > 0 and rng.random() < 0.2 else 0.0
    drawn = draw_ink(text, font, spacing, word_spacing)
    if drawn is None:
        return None
    canvas, ink, line = drawn
    if strength > 0 and rng.random() < 0.1:
        neighbours(canvas, line, font, text, rng)
    # Cuts go around the letters' line, or closer around the ink of a line without tall letters.
    share = rng.random() if rng.random() < 0.35 else 0.0
    floor = 0.45 * (line[3] - line[1])
    middle = (ink[1] + ink[3]) / 2
    top = min(line[1] + share * (ink[1] - line[1]), middle - floor / 2)
    bottom = max(line[3] + share * (ink[3] - line[3]), middle + floor / 2)
    corners = quadrilateral((line[0], top, line[2], bottom), rng, strength)
    if strength > 0 and size >= 22 and rng.random() < 0.12:
        canvas = canvas.filter(ImageFilter.MaxFilter(3) if size >= 30 and rng.random() < 0.6 else ImageFilter.GaussianBlur(0.7))
    stretch = math.exp(unit(rng, -0.35, 0.25)) if strength > 0 and rng.random() < 0.4 else 1.0
    picture = cut_out(canvas, corners, stretch, rng)
    values = light(np.asarray(picture, np.float32) / 255, rng, strength)
    return spoil(values, rng, strength, noise)
