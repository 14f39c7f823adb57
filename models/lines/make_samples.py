#!/usr/bin/python3
"""Draws samples/: lines and a page in faces that training never saw, from a fixed seed."""

import io
import os

import numpy as np
from PIL import Image, ImageDraw, ImageFilter

from fonts import HERE, open_font
from render import draw_ink

SAMPLES = os.path.join(HERE, "samples")
FONTS = "/usr/share/fonts/"

# File, face, size in pixels, text, and what is done to the picture.
LINES = (
    ("open-sans", "truetype/open-sans/OpenSans-Regular.ttf", 28, "The quick brown fox jumps over the lazy dog.", ""),
    ("roboto-invoice", "truetype/roboto/unhinted/RobotoTTF/Roboto-Medium.ttf", 30, "Invoice 2024-0817: $1,249.50 (due 31.08.)", ""),
    ("libertine", "opentype/linux-libertine/LinLibertine_R.otf", 34, "Sphinx of black quartz, judge my vow!", ""),
    ("garamond-italic", "opentype/ebgaramond/EBGaramond12-Italic.otf", 36, "Pack my box with five dozen liquor jugs", ""),
    ("go-mono", "fonts-go/Go-Mono.ttf", 24, "for (i = 0; i < n; ++i) sum += a[i] * b[i];", ""),
    ("inter-bold", "opentype/inter/Inter-Bold.otf", 40, "PLATFORM 9 - MIND THE GAP", "invert"),
    ("mononoki-address", "truetype/mononoki/mononoki-Regular.ttf", 26, "mail: jane.doe+test@example.org", ""),
    ("andika-small", "truetype/andika/Andika-Regular.ttf", 13, "small print is twelve pixels high", ""),
    ("slab-turned", "opentype/roboto/slab/RobotoSlab-Regular.otf", 30, "turned by two degrees, 100% legible", "turn"),
    ("caladea-noisy", "truetype/crosextra/Caladea-Regular.ttf", 32, "Noise? It reads through most of it.", "noise"),
    ("cabin-blurred", "opentype/cabin/Cabin-Regular.otf", 32, "a little out of focus, as photos are", "blur"),
    ("vollkorn-shade", "truetype/vollkorn/Vollkorn-Regular.ttf", 32, "light from the left, shade on the right", "shade"),
    ("noto-pale", "truetype/noto/NotoSans-Regular.ttf", 28, "pale grey on paper: contrast of a fifth", "pale"),
    ("quattrocento-jpeg", "opentype/quattrocento/Quattrocento-Regular.otf", 26, "saved as JPEG, saved again, and again", "jpeg"),
    ("gillius-numbers", "truetype/adf/GilliusADF-Regular.otf", 30, "+49 (30) 1234-5678 / ext. 90", ""),
    ("b612-signs", "opentype/b612/B612Mono-Regular.otf", 24, "~/bin & $HOME #1 @ 50% {x} <y> [z] \\ ^ | `", ""),
)

PAGE = (
    ("head", "To whom it may concern"),
    ("text", "On the 14th of March 1879, at half past eleven in the"),
    ("text", "morning, a parcel of 3 kg was left at our door. It held"),
    ("text", "letters, two maps (1:25,000), and a key marked \"B-17\"."),
    ("", ""),
    ("text", "We have asked our neighbours, the post office and the"),
    ("text", "owner of No. 42; nobody knows whose it is. If it is"),
    ("text", "yours, please write to lost@example.com or call"),
    ("text", "555-0142 before Friday, 6 pm."),
    ("", ""),
    ("text", "With kind regards,"),
    ("text", "J. & K. Winterbottom"),
)


def changed(picture, how, rng):
    """A picture as it comes out of a camera that did one thing wrong."""
    if how == "invert":
        return Image.fromarray(255 - np.asarray(picture))
    if how == "turn":
        return picture.rotate(2, Image.BICUBIC, expand=True, fillcolor=255)
    if how == "noise":
        values = np.asarray(picture, np.float32) + rng.normal(0, 28, np.asarray(picture).shape)
        return Image.fromarray(np.clip(values, 0, 255).astype(np.uint8))
    if how == "blur":
        return picture.filter(ImageFilter.GaussianBlur(1.2))
    if how == "shade":
        slope = np.linspace(1.0, 0.45, picture.width)[None]
        return Image.fromarray((np.asarray(picture) * slope).astype(np.uint8))
    if how == "pale":
        return Image.fromarray((180 + np.asarray(picture) * 0.2).astype(np.uint8))
    if how == "jpeg":
        for quality in (40, 35, 30):
            store = io.BytesIO()
            picture.save(store, "JPEG", quality=quality)
            picture = Image.open(store).convert("L")
    return picture


def line_picture(face, size, text):
    canvas, _, box = draw_ink(text, open_font(FONTS + face, size))
    margin = size // 4
    left, top, right, bottom = (round(value) for value in box)
    cut = canvas.crop((left - margin, top - margin, right + margin, bottom + margin))
    return Image.fromarray(255 - np.asarray(cut))


def page_picture(rng):
    """A page as a telephone sees it: turned, unevenly lit, a little soft."""
    page = Image.new("L", (1000, 760), 255)
    draw = ImageDraw.Draw(page)
    y = 60
    for kind, text in PAGE:
        face, size = ("Inter-Bold", 38) if kind == "head" else ("Inter-Regular", 27)
        draw.text((90, y), text, font=open_font(FONTS + f"opentype/inter/{face}.otf", size), fill=20)
        y += 74 if kind == "head" else 50 if text else 30
    page = page.rotate(-4, Image.BICUBIC, expand=True, fillcolor=255)
    page = page.filter(ImageFilter.GaussianBlur(0.7))
    rows, columns = np.mgrid[0 : page.height, 0 : page.width]
    light = 0.62 + 0.36 * (columns / page.width) * (1 - 0.5 * rows / page.height)
    values = np.asarray(page, np.float32) * light + rng.normal(0, 5, light.shape)
    return Image.fromarray(np.clip(values, 0, 255).astype(np.uint8))


def main():
    rng = np.random.default_rng(7)
    os.makedirs(SAMPLES, exist_ok=True)
    rows = []
    for name, face, size, text, how in LINES:
        picture = changed(line_picture(face, size, text), how, rng)
        picture.save(os.path.join(SAMPLES, name + ".png"), optimize=True)
        rows.append(f"{name}.png\t{text}\n")
    with open(os.path.join(SAMPLES, "labels.txt"), "w", encoding="utf-8") as text:
        text.writelines(rows)
    page_picture(rng).save(os.path.join(SAMPLES, "page.jpg"), quality=80)
    with open(os.path.join(SAMPLES, "page.txt"), "w", encoding="utf-8") as text:
        text.writelines(line + "\n" for _, line in PAGE if line)


if __name__ == "__main__":
    main()
