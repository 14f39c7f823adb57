"""Whether an imported network computes what its source says."""

import os
from typing import Any, Callable, Dict, List, Mapping, NamedTuple, Optional, Sequence, Tuple, Union

import numpy.typing as npt

from qrt_core._core import Model, _verify
from qrt_core._progress import shown
from qrt_core._table import Rows, html_table, sizes_text, text_table
from qrt_core._types import Path


class VerifiedLayer(NamedTuple):
    """One layer that makes a tensor of the source, or an output that a folder of test data has."""

    id: str
    """Its name in the network."""
    node: str
    """The source's node that it comes from."""
    kernel: str
    """What runs it."""
    shape: Tuple[int, ...]
    """Sizes of its output, without a batch."""
    largest_value: float
    """Of the magnitudes that the source defines."""
    difference: float
    """The largest difference, with the weights as they were."""
    relative: float
    """The same over the largest value."""
    bound: float
    """What `difference` may be: twice what came of disturbing each layer by as much as its kernel may be off."""
    halves_difference: float
    """The largest difference with the weights as a .qrtmodel holds them."""
    halves_relative: float
    """The same over the largest value."""
    place: int
    """Of the largest difference, in elements."""

    @property
    def is_beyond(self) -> bool:
        """Whether the difference exceeds its bound."""
        return not self.difference <= self.bound


_COLUMNS = ("layer", "node", "output", "largest value", "difference", "relative", "bound", "with halves", "relative", "")


class Verification(Rows[VerifiedLayer]):
    """An imported network beside its source, layer by layer. Printed it is a table."""

    model: Model
    """The imported model."""
    test_data: Tuple[VerifiedLayer, ...]
    """Outputs against those of the folder of test data, in the graph's order."""
    not_compared: int
    """How many layers compute parts of an operator, so that no tensor of the source is theirs."""

    def __init__(
        self,
        model: Model,
        rows: Sequence[Tuple[Any, ...]],
        test_data: Sequence[Tuple[Any, ...]] = (),
        not_compared: int = 0,
    ) -> None:
        """verify() makes it."""
        self.model = model
        self.test_data = tuple(map(VerifiedLayer._make, test_data))
        self.not_compared = not_compared
        super().__init__([VerifiedLayer._make(row) for row in rows])

    @property
    def first_beyond(self) -> Optional[VerifiedLayer]:
        """The first layer beyond its bound, else the first output that isn't the folder's; None if all agree."""
        return next((row for row in (*self._rows, *self.test_data) if row.is_beyond), None)

    @property
    def agrees(self) -> bool:
        """Whether every layer, and every output of the folder's, is within its bound."""
        return self.first_beyond is None

    def to_dict(self) -> Dict[str, List[Any]]:
        """The layers as columns by name, as pandas.DataFrame() takes them."""
        names = (*VerifiedLayer._fields, "is_beyond")
        return {name: [getattr(row, name) for row in self._rows] for name in names}

    def _cells(self) -> List[Tuple[str, ...]]:
        named = [(row.id, row) for row in self._rows] + [("test data: " + row.id, row) for row in self.test_data]
        return [
            (
                name,
                "" if row.node == row.id else row.node,
                sizes_text(row.shape),
                f"{row.largest_value:.4g}",
                f"{row.difference:.2e}",
                f"{row.relative:.2e}",
                f"{row.bound:.2e}",
                f"{row.halves_difference:.2e}",
                f"{row.halves_relative:.2e}",
                "beyond" if row.is_beyond else "",
            )
            for name, row in named
        ]

    def _caption(self) -> str:
        beyond = self.first_beyond
        if beyond is None:
            text = f"all {len(self._rows)} layers agree"
        else:
            text = (
                f"layer {beyond.id} ({beyond.kernel}) is the first beyond its bound: off by {beyond.difference:.3g} "
                f"where {beyond.bound:.3g} is expected"
            )
        return text + (f"; {self.not_compared} were not compared" if self.not_compared else "")

    def __str__(self) -> str:
        return f"{text_table(_COLUMNS, self._cells(), set(range(3, 9)))}\n{self._caption()}"

    def __repr__(self) -> str:
        return f"<Verification: {self._caption()}>"

    def _repr_html_(self) -> str:
        return html_table(_COLUMNS, self._cells(), self._caption())


def verify(
    path: Path,
    *,
    inputs: Optional[Mapping[str, Sequence[int]]] = None,
    constants: Optional[Mapping[str, npt.ArrayLike]] = None,
    network: Optional[str] = None,
    kernels: Optional[str] = None,
    data: Union[None, npt.ArrayLike, Mapping[str, npt.ArrayLike]] = None,
    test_data: Optional[Path] = None,
    seed: int = 1,
    progress: Union[bool, Callable[[int, int], object]] = False,
) -> Verification:
    """Imports an ONNX file, and runs the network beside what the file defines.

    Every operator is computed plainly in double precision, on the same inputs, and each layer that makes a tensor of
    the file is compared with it.

    Args:
        path: the file, str or os.PathLike.
        inputs: shapes of inputs, as import_onnx() takes them: with their batch.
        constants: arrays that take the place of inputs, by name.
        network: the network's id; None for the file's name.
        kernels: the set to choose from, as import_onnx() takes it.
        data: arrays for inputs by name, or the array of the only input, in the file's shape. Inputs without one get
            random numbers between -1 and 1.
        test_data: a folder in ONNX's form, input_0.pb, ... and output_0.pb, ..., whose outputs are compared as well.
        seed: of the random numbers, 0 to 4294967295.
        progress: True shows a line on the standard error; or a function that is called with the number of steps that
            are done and that of all.

    Returns:
        A Verification, with the imported Model in `model`. It doesn't raise where numbers differ: ask `agrees`.

    Raises:
        OSError: for a file that isn't there.
        OnnxFileError: for a file, or test data, that can't be read.
        UnsupportedError: for a network that can't be imported, and for `data` of another shape; `refusals` says why.
        ValueError: for kernels that there aren't.
    """
    with shown(progress, "step {} of {}") as callback:
        return Verification(*_verify(path, inputs, constants, network, kernels, data, test_data, seed, callback))
