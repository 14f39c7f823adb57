"""The image functions, each beside NumPy."""

import numpy as np
import pytest
from qrt_core import InputError, image

RNG = np.random.default_rng(3)
BYTES = RNG.integers(0, 256, (24, 32, 3), dtype=np.uint8)
FLOATS = RNG.random((24, 32, 3), dtype=np.float32)
BOTH = pytest.mark.parametrize("picture", [BYTES, FLOATS], ids=["uint8", "float32"])


def planes(picture):
    return np.ascontiguousarray(picture.transpose(2, 0, 1))


@BOTH
def test_planes_and_pixels(picture):
    np.testing.assert_array_equal(image.to_planes(picture), planes(picture))
    np.testing.assert_array_equal(image.to_pixels(planes(picture)), picture)
    np.testing.assert_array_equal(image.to_planes(planes(picture).transpose(1, 2, 0)), planes(picture))


@BOTH
@pytest.mark.parametrize("degrees", [90, 180, 270])
def test_rotate(picture, degrees):
    expected = np.rot90(picture, -degrees // 90)
    np.testing.assert_array_equal(image.rotate(picture, degrees), expected)
    np.testing.assert_array_equal(image.rotate(planes(picture), degrees, "chw"), planes(expected))
    np.testing.assert_array_equal(image.rotate(picture[:, :, 0], degrees), expected[:, :, 0])


@BOTH
def test_flip(picture):
    for direction, expected in (("horizontal", picture[:, ::-1]), ("vertical", picture[::-1])):
        np.testing.assert_array_equal(image.flip(picture, direction), expected)
        np.testing.assert_array_equal(image.flip(planes(picture), direction, "chw"), planes(expected))


@BOTH
def test_crop(picture):
    for top, left, height, width in ((2, 3, 10, 12), (-4, -5, 20, 20), (20, 30, 10, 10), (50, 50, 4, 4), (0, 0, 24, 32)):
        padded = np.full((200, 200, 3), 7, picture.dtype)
        padded[100:124, 100:132] = picture
        expected = padded[100 + top : 100 + top + height, 100 + left : 100 + left + width]
        np.testing.assert_array_equal(image.crop(picture, top, left, height, width, 7), expected)
        cut = image.crop(planes(picture), top, left, height, width, 7, layout="chw")
        np.testing.assert_array_equal(cut, planes(expected))


def test_any_strides():
    wide = RNG.integers(0, 256, (48, 64, 6), dtype=np.uint8)
    for view in (wide[::2, ::-2, ::2], wide[::2, ::2, 5:2:-1], np.asfortranarray(wide[:24, :32, :3])):
        copy = np.ascontiguousarray(view)
        for function in (
            lambda x: image.resize(x, (10, 11)),
            lambda x: image.flip(x),
            lambda x: image.gray(x),
            lambda x: image.normalize(x, 1.0, 2.0),
        ):
            np.testing.assert_array_equal(function(view), function(copy))


def test_resize():
    flat = np.full((9, 13, 2), 77, np.uint8)
    for method in ("bilinear", "nearest"):
        np.testing.assert_array_equal(image.resize(flat, (20, 5), method), np.full((20, 5, 2), 77))
        both = image.resize(BYTES, (12, 40), method)
        by_planes = image.resize(planes(BYTES), (12, 40), method, "chw")
        np.testing.assert_array_equal(planes(both), by_planes)
    np.testing.assert_array_equal(image.resize(BYTES, (24, 32)), BYTES)
    np.testing.assert_array_equal(image.resize(BYTES, (12, 16), "nearest"), BYTES[::2, ::2])
    halves = BYTES.astype(int)
    mean = (halves[::2, ::2] + halves[1::2, ::2] + halves[::2, 1::2] + halves[1::2, 1::2]) / 4
    assert np.abs(image.resize(BYTES, (12, 16)) - mean).max() <= 1
    for bad in ((0, 4), (4, -1), (4, 1 << 20)):
        with pytest.raises(ValueError, match="size"):
            image.resize(BYTES, bad)
    with pytest.raises(TypeError, match="uint8, found one of float32"):
        image.resize(FLOATS, (4, 4))
    with pytest.raises(ValueError, match="1 to 4 channels"):
        image.resize(np.zeros((4, 4, 5), np.uint8), (2, 2))


def test_gray_and_swap():
    weights = np.array([77, 150, 29])
    expected = (BYTES.astype(int) * weights).sum(2) >> 8
    assert np.abs(image.gray(BYTES).astype(int) - expected).max() <= 1
    np.testing.assert_array_equal(image.gray(BYTES[:, :, ::-1], "bgr"), image.gray(BYTES))
    np.testing.assert_array_equal(image.gray(planes(BYTES), layout="chw"), image.gray(BYTES))
    np.testing.assert_array_equal(image.swap_red_blue(BYTES), BYTES[:, :, ::-1])
    np.testing.assert_array_equal(image.swap_red_blue(planes(BYTES), "chw"), planes(BYTES)[::-1])
    with pytest.raises(InputError, match="4 channels"):
        image.gray(BYTES, "rgba")


def test_float_and_normalize():
    np.testing.assert_array_equal(image.to_float(BYTES), BYTES.astype(np.float32))
    mean, scale = np.float32([1, 2, 3]), np.float32([0.5, 0.25, 2])
    for picture in (BYTES, FLOATS):
        expected = planes((picture.astype(np.float32) - mean) * scale)
        np.testing.assert_array_equal(image.normalize(picture, mean, scale), expected)
        np.testing.assert_array_equal(image.normalize(planes(picture), mean, scale, "chw"), expected)
    with pytest.raises(ValueError, match="mean: expected 1 or 3 numbers, found 2"):
        image.normalize(BYTES, [1, 2], 1)


def test_warps():
    same = [1, 0, 0, 0, 1, 0]
    for picture in (BYTES, FLOATS):
        np.testing.assert_array_equal(image.affine(picture, same, "nearest"), picture)
        moved = image.affine(picture, [1, 0, 2, 0, 1, 3], "nearest")
        np.testing.assert_array_equal(moved[:-3, :-2], picture[3:, 2:])
        inner = image.affine(picture, same)[:-1, :-1]
        np.testing.assert_array_equal(inner, picture[:-1, :-1])
        assert image.affine(picture, same, "forward").dtype == picture.dtype
        assert image.warp(planes(picture), same, "chw").shape == (3, 24, 32)
    with pytest.raises(ValueError, match="6 numbers, found 4"):
        image.affine(BYTES, [1, 2, 3, 4])


def test_yuv():
    gray = np.concatenate([np.full(8 * 6, 128, np.uint8), np.full(8 * 6 // 2, 128, np.uint8)])
    for form in ("nv12", "nv21", "iyuv"):
        pixels = image.yuv_to_rgb(gray, 6, 8, form)
        assert pixels.shape == (6, 8, 3) and len(np.unique(pixels)) == 1
        np.testing.assert_array_equal(planes(pixels), image.yuv_to_rgb(gray.tobytes(), 6, 8, form, "chw"))
    with pytest.raises(InputError, match="odd side"):
        image.yuv_to_rgb(gray, 5, 8)
    with pytest.raises(InputError, match="has 72 bytes; a picture of 8 x 8 in nv12 has 96"):
        image.yuv_to_rgb(gray, 8, 8)


def test_zoom():
    result = image.zoom(BYTES, 0.0, 0.0, 0.5, 0.5)
    assert result.shape == BYTES.shape
    np.testing.assert_array_equal(result[0, 0], BYTES[0, 0])
    assert image.zoom(BYTES, 2.0, 2.0, 3.0, 3.0).max() == 0


@pytest.mark.parametrize("shape", [(3,), (2, 2, 2, 2)])
def test_other_ranks(shape):
    with pytest.raises(InputError, match="2 or 3 axes"):
        image.flip(np.zeros(shape, np.uint8))
    with pytest.raises(TypeError):
        image.flip(np.zeros((4, 4), np.int64))
    with pytest.raises(InputError, match="no pixels"):
        image.flip(np.zeros((0, 4), np.uint8))
    with pytest.raises(ValueError, match="layout"):
        image.flip(BYTES, layout="nchw")
