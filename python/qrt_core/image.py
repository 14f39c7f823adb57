"""From pictures to inputs: the library's image functions on NumPy arrays.

A picture is an array of uint8 or float32 in one of two layouts: "hwc", pixels side by side, (height, width, channels)
or (height, width), or "chw", planes, (channels, height, width). Any strides are taken. Results are new arrays, the
same to the bit on every processor. Sizes are (height, width), as in shapes.
"""

from typing import Any, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from qrt_core import _core
from qrt_core.errors import InputError

__all__ = [
    "affine",
    "crop",
    "flip",
    "gray",
    "normalize",
    "resize",
    "rotate",
    "swap_red_blue",
    "to_float",
    "to_pixels",
    "to_planes",
    "warp",
    "yuv_to_rgb",
    "zoom",
]

_Array = npt.NDArray[Any]

_LARGEST_SIDE = 32768
_RGB_TO_BGR = 4
_GRAY = {"bgr": 6, "rgb": 7, "rgba": 11}
_YUV = {"nv12": 22, "nv21": 24, "iyuv": 32}
_TURNS = {90: 50, 180: 51, 270: 52}
_FLIPS = {"horizontal": 53, "vertical": 54}
_WARPS = {"forward": 56, "nearest": 57, "bilinear": 58}
_NORMALIZED_WARP = 55
_TO_PLANES, _TO_PIXELS, _TO_FLOAT = 60, 61, 65
_CROP_NEAREST = 85  # of one channel


class _Picture:
    """A picture in C order with its sizes, and the number of axes that its results have."""

    def __init__(self, picture: Any, layout: str, types: Sequence[str] = ("uint8", "float32")) -> None:
        array = np.asarray(picture)
        if array.dtype.name not in types:
            raise TypeError(f"picture: expected an array of {' or '.join(types)}, found one of {array.dtype}")
        if layout not in ("hwc", "chw"):
            raise ValueError(f"layout {layout!r}: expected 'hwc' or 'chw'")
        self.is_flat = array.ndim == 2
        if self.is_flat:
            array = array[:, :, None] if layout == "hwc" else array[None]
        if array.ndim != 3:
            raise InputError(f"a picture has 2 or 3 axes, and not {array.ndim}")
        if 0 in array.shape:
            raise InputError(f"a picture of {array.shape} has no pixels")
        self.layout = layout
        # No copy where it is in order already; of the machine's byte order, too.
        self.array: _Array = np.ascontiguousarray(array, dtype=types[types.index(array.dtype.name)])
        height, width = (0, 1) if layout == "hwc" else (1, 2)
        self.height, self.width = self.array.shape[height], self.array.shape[width]
        self.channels = self.array.shape[2 if layout == "hwc" else 0]

    def empty(self, size: Tuple[int, int], fill: Any = None) -> _Array:
        """An array of this layout, type and number of channels, with three axes."""
        shape = (*size, self.channels) if self.layout == "hwc" else (self.channels, *size)
        return np.empty(shape, self.array.dtype) if fill is None else np.full(shape, fill, self.array.dtype)

    def finished(self, result: _Array) -> _Array:
        """The result with as many axes as the picture came with."""
        if not self.is_flat:
            return result
        flat: _Array = result[:, :, 0] if self.layout == "hwc" else result[0]
        return flat

    def planes(self) -> _Array:
        """The picture as planes."""
        return self.array if self.layout == "chw" else _planes_of(self.array)

    def pixels(self) -> _Array:
        """The picture as pixels."""
        return self.array if self.layout == "hwc" else _pixels_of(self.array)


def _planes_of(pixels: _Array) -> _Array:
    height, width, channels = pixels.shape
    planes = np.empty((channels, height, width), pixels.dtype)
    _core._image_convert(pixels, "hwc", planes, "chw", _TO_PLANES)
    return planes


def _pixels_of(planes: _Array) -> _Array:
    channels, height, width = planes.shape
    pixels = np.empty((height, width, channels), planes.dtype)
    _core._image_convert(planes, "chw", pixels, "hwc", _TO_PIXELS)
    return pixels


def _size(size: Sequence[int]) -> Tuple[int, int]:
    height, width = (int(side) for side in size)
    for side in (height, width):
        if not 1 <= side <= _LARGEST_SIDE:
            raise ValueError(f"size {(height, width)}: expected sides from 1 to {_LARGEST_SIDE}")
    return height, width


def _choice(what: str, value: Any, choices: Any) -> Any:
    if value not in choices:
        raise ValueError(f"{what} {value!r}: expected {' or '.join(map(repr, choices))}")
    return choices[value]


def resize(
    picture: Any, size: Sequence[int], method: str = "bilinear", layout: str = "hwc"
) -> _Array:
    """Resizes a picture of uint8 with up to 4 channels, or any number of planes.

    Args:
        picture: uint8, in `layout`.
        size: (height, width) of the result.
        method: "bilinear", which mixes four pixels, or "nearest".
        layout: "hwc" or "chw", of picture and result.

    Returns:
        uint8 of `size` in the same layout.

    Raises:
        TypeError: for another type than uint8.
        InputError, ValueError: for sizes or options that aren't taken.
    """
    source = _Picture(picture, layout, ("uint8",))
    is_nearest = _choice("method", method, {"bilinear": False, "nearest": True})
    result = source.empty(_size(size))
    if layout == "hwc":
        _core._image_resize(source.array, result, is_nearest)
    else:
        for plane, target in zip(source.array, result):
            _core._image_resize(plane[:, :, None], target[:, :, None], is_nearest)
    return source.finished(result)


def crop(
    picture: Any, top: int, left: int, height: int, width: int, fill: int = 0, layout: str = "hwc"
) -> _Array:
    """Cuts a rectangle out of a picture.

    Args:
        picture: uint8 or float32, in `layout`.
        top, left: of the rectangle, in pixels. It may reach outside of the picture.
        height, width: of the rectangle and the result.
        fill: the value outside of the picture.
        layout: "hwc" or "chw", of picture and result.

    Returns:
        (height, width) pixels of the picture's type, in the same layout.

    Raises:
        TypeError: for a picture of another type.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    source = _Picture(picture, layout)
    height, width = _size((height, width))
    if layout == "hwc" and source.array.dtype == np.uint8:
        result = source.empty((height, width))
        _core._image_crop(source.array, "hwc", result, top, left, fill)
        return source.finished(result)
    first, last = max(top, 0), min(top + height, source.height)
    begin, end = max(left, 0), min(left + width, source.width)
    if (first, begin, last, end) == (top, left, top + height, left + width):
        result = source.empty((height, width))
        _core._image_crop(source.array, layout, result, top, left, 0)
        return source.finished(result)
    result = source.empty((height, width), fill)
    if first < last and begin < end:
        inside = source.empty((last - first, end - begin))
        _core._image_crop(source.array, layout, inside, first, begin, 0)
        rows, columns = slice(first - top, last - top), slice(begin - left, end - left)
        result[(rows, columns) if layout == "hwc" else (slice(None), rows, columns)] = inside
    return source.finished(result)


def zoom(picture: Any, left: float, top: float, right: float, bottom: float) -> _Array:
    """Cuts a rectangle out of a picture and resizes it, by the nearest pixel, to the picture's size.

    Args:
        picture: uint8 of pixels, (height, width, channels) or (height, width), up to 4 channels. The result's last row
            is made in pairs, so heights are even.
        left, top, right, bottom: of the rectangle, in fractions of the picture; outside of it the result is 0.

    Returns:
        uint8 of the picture's shape.

    Raises:
        TypeError: for a picture of another type than uint8.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    source = _Picture(picture, "hwc", ("uint8",))
    if source.channels > 4:
        raise InputError(f"a picture has 1 to 4 channels, and not {source.channels}")
    if source.height % 2 or source.width % 2:
        raise InputError(f"a picture of {source.height} x {source.width} pixels has an odd side")
    result = source.empty((source.height, source.width), 0)
    _core._image_zoom(source.array, result, (left, top, right, bottom), _CROP_NEAREST + source.channels - 1)
    return source.finished(result)


def rotate(picture: Any, degrees: int, layout: str = "hwc") -> _Array:
    """Turns a picture clockwise.

    Args:
        picture: uint8 or float32, in `layout`.
        degrees: 90, 180 or 270.
        layout: "hwc" or "chw", of picture and result.

    Returns:
        The picture's type, in the same layout; (width, height) pixels for 90 and 270 degrees.

    Raises:
        TypeError: for a picture of another type.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    source = _Picture(picture, layout)
    code = _choice("degrees", degrees, _TURNS)
    size = (source.height, source.width) if degrees == 180 else (source.width, source.height)
    result = source.empty(size)
    _core._image_convert(source.array, layout, result, layout, code)
    return source.finished(result)


def flip(picture: Any, direction: str = "horizontal", layout: str = "hwc") -> _Array:
    """Exchanges left and right, or top and bottom.

    Args:
        picture: uint8 or float32, in `layout`.
        direction: "horizontal" for left and right, "vertical" for top and bottom.
        layout: "hwc" or "chw", of picture and result.

    Returns:
        The picture's shape and type, in the same layout.

    Raises:
        TypeError: for a picture of another type.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    source = _Picture(picture, layout)
    code = _choice("direction", direction, _FLIPS)
    result = source.empty((source.height, source.width))
    _core._image_convert(source.array, layout, result, layout, code)
    return source.finished(result)


def gray(picture: Any, order: str = "rgb", layout: str = "hwc") -> _Array:
    """The brightness of a picture of uint8: red, green and blue weighed with 77, 150 and 29 of 256.

    Args:
        picture: uint8, in `layout`.
        order: of its colours: "rgb", "bgr" or "rgba".
        layout: "hwc" or "chw", of the picture.

    Returns:
        uint8 of (height, width).

    Raises:
        TypeError: for a picture of another type than uint8.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    source = _Picture(picture, layout, ("uint8",))
    code = _choice("order", order, _GRAY)
    if source.channels != len(order):
        raise InputError(f"a picture in {order!r} has {len(order)} channels, and not {source.channels}")
    result = np.empty((1, source.height, source.width), np.uint8)
    _core._image_convert(source.pixels(), "hwc", result, "chw", code)
    plane: _Array = result[0]
    return plane


def swap_red_blue(picture: Any, layout: str = "hwc") -> _Array:
    """Exchanges the first and the third channel.

    Args:
        picture: uint8 of 3 channels, in `layout`.
        layout: "hwc" or "chw", of picture and result.

    Returns:
        uint8 of the picture's shape, in the same layout.

    Raises:
        TypeError: for a picture of another type than uint8.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    source = _Picture(picture, layout, ("uint8",))
    if source.channels != 3:
        raise InputError(f"a picture in red, green and blue has 3 channels, and not {source.channels}")
    planes = np.empty((3, source.height, source.width), np.uint8)
    _core._image_convert(source.pixels(), "hwc", planes, "chw", _RGB_TO_BGR)
    return planes if layout == "chw" else _pixels_of(planes)


def to_planes(picture: Any) -> _Array:
    """Brings the samples of each channel together.

    Args:
        picture: uint8 or float32, pixels, (height, width, channels) or (height, width).

    Returns:
        Planes of the same type, (channels, height, width).

    Raises:
        TypeError: for a picture of another type.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    return _planes_of(_Picture(picture, "hwc").array)


def to_pixels(picture: Any) -> _Array:
    """Brings the samples of each pixel together.

    Args:
        picture: uint8 or float32, planes, (channels, height, width) or (height, width).

    Returns:
        Pixels of the same type, (height, width, channels).

    Raises:
        TypeError: for a picture of another type.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    return _pixels_of(_Picture(picture, "chw").array)


def to_float(picture: Any) -> _Array:
    """Makes numbers of bytes.

    Args:
        picture: uint8, of 2 or 3 axes.

    Returns:
        float32 of the same values and shape.

    Raises:
        TypeError: for a picture of another type than uint8.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    array = np.asarray(picture)
    layout = "hwc"
    source = _Picture(array, layout, ("uint8",))
    result = np.empty(source.array.shape, np.float32)
    _core._image_convert(source.array, layout, result, layout, _TO_FLOAT)
    return source.finished(result)


def normalize(
    picture: Any,
    mean: Union[float, Sequence[float]],
    scale: Union[float, Sequence[float]],
    layout: str = "hwc",
) -> _Array:
    """(sample - mean) * scale, as planes: what most networks take.

    Args:
        picture: uint8 or float32, in `layout`.
        mean, scale: one number, or one for each channel.
        layout: "hwc" or "chw", of the picture.

    Returns:
        float32 of (channels, height, width).

    Raises:
        TypeError: for a picture of another type.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    source = _Picture(picture, layout)
    numbers = []
    for name, given in (("mean", mean), ("scale", scale)):
        vector = np.asarray(given, np.float32).reshape(-1)
        if len(vector) not in (1, source.channels):
            raise ValueError(f"{name}: expected 1 or {source.channels} numbers, found {len(vector)}")
        numbers.append(np.ascontiguousarray(np.broadcast_to(vector, (source.channels,))))
    planes = source.planes()
    result = np.empty(planes.shape, np.float32)
    _core._image_normalize(planes, result, *numbers)
    return result


def _warped(picture: Any, matrix: Any, code: int, layout: str) -> _Array:
    source = _Picture(picture, layout)
    numbers = np.asarray(matrix, np.float32).reshape(-1)
    if len(numbers) != 6:
        raise ValueError(f"matrix: expected 6 numbers, found {len(numbers)}")
    planes = source.planes()
    is_bytes = planes.dtype == np.uint8
    result = np.zeros(planes.shape, np.float32)
    _core._image_warp(planes.astype(np.float32), result, numbers.tolist(), code)
    if is_bytes:
        result = np.clip(np.rint(result), 0, 255).astype(np.uint8)
    return source.finished(result if layout == "chw" else _pixels_of(result))


def affine(picture: Any, matrix: Any, method: str = "bilinear", layout: str = "hwc") -> _Array:
    """Warps a picture of uint8 or float32 by a matrix of 2 x 3 numbers in pixels.

    Args:
        picture: uint8 or float32, in `layout`. Bytes are mixed as float32 and rounded.
        matrix: 6 numbers, row by row: where a pixel of the result comes from, x first; for "forward", where a pixel of
            the picture goes to.
        method: "bilinear", "nearest" or "forward".
        layout: "hwc" or "chw", of picture and result.

    Returns:
        The picture's shape and type; 0 where nothing comes from.

    Raises:
        TypeError: for a picture of another type.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    return _warped(picture, matrix, _choice("method", method, _WARPS), layout)


def warp(picture: Any, matrix: Any, layout: str = "hwc") -> _Array:
    """Warps a picture by a matrix in coordinates from -1 to 1, bilinearly. Outside of it its border is continued.

    Args:
        picture: uint8 or float32, in `layout`. Bytes are mixed as float32 and rounded.
        matrix: 6 numbers, row by row: where a pixel of the result comes from, x first.
        layout: "hwc" or "chw", of picture and result.

    Returns:
        The picture's shape and type, in the same layout.

    Raises:
        TypeError: for a picture of another type.
        InputError, ValueError: for shapes or options that aren't taken.
    """
    return _warped(picture, matrix, _NORMALIZED_WARP, layout)


def yuv_to_rgb(data: Any, height: int, width: int, form: str = "nv12", layout: str = "hwc") -> _Array:
    """A camera's picture in red, green and blue.

    Args:
        data: height * width / 2 * 3 bytes, uint8 of any shape or a buffer: the luminance, and the chrominance behind.
        height, width: of the picture, even.
        form: "nv12", "nv21" or "iyuv".
        layout: "hwc" or "chw", of the result.

    Returns:
        uint8 of 3 channels in `layout`.

    Raises:
        TypeError: for data of another type than uint8.
        InputError, ValueError: for sizes or options that aren't taken.
    """
    code = _choice("form", form, _YUV)
    _choice("layout", layout, {"hwc": 0, "chw": 0})
    height, width = _size((height, width))
    if height % 2 or width % 2:
        raise InputError(f"a picture of {height} x {width} pixels has an odd side; its chrominance has half of each")
    array = np.frombuffer(data, np.uint8) if isinstance(data, (bytes, bytearray, memoryview)) else np.asarray(data)
    if array.dtype != np.uint8:
        raise TypeError(f"data: expected an array of uint8, found one of {array.dtype}")
    expected = height * width // 2 * 3
    if array.size != expected:
        raise InputError(f"data has {array.size} bytes; a picture of {height} x {width} in {form} has {expected}")
    whole = np.ascontiguousarray(array).reshape(-1)
    # The chrominance lies behind the luminance, whose sizes are the picture's.
    luminance = whole[: height * width].reshape(height, width, 1)
    planes = np.empty((3, height, width), np.uint8)
    _core._image_convert(luminance, "hwc", planes, "chw", code)
    return planes if layout == "chw" else _pixels_of(planes)
