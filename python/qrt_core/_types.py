"""What functions take."""

import os
from typing import Mapping, Sequence, Union

from qrt_core._core import Model

Path = Union[str, "os.PathLike[str]"]
Source = Union[Model, Path, bytes, bytearray, memoryview]
Shapes = Mapping[str, Sequence[int]]
