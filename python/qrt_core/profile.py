"""Where the time of a pass goes."""

from typing import Any, Dict, List, NamedTuple, Optional, Sequence, Tuple

from qrt_core._table import Rows, html_table, sizes_text, text_table


class ProfileRow(NamedTuple):
    """One kernel of a profile."""

    layer: int
    """The place of its layer in the order in which layers run."""
    id: str
    """The name of its layer in the network."""
    kind: str
    """What the layer computes."""
    role: str
    """Empty for the layer's own kernel, "input 0" or the like for a converter."""
    kernel: str
    """Its name."""
    shape: Optional[Tuple[int, ...]]
    """Sizes of the layer's output; None for converters."""
    ms: float
    """The processor's time for it in a pass: the median, in milliseconds."""
    bytes: int
    """Of the arrays that it reads and makes."""
    share: float
    """Its part of the sum over all kernels, 0 to 1."""


_COLUMNS = ("#", "layer", "kind", "kernel", "output", "ms", "share", "GB/s")


class Profile(Rows[ProfileRow]):
    """The times of a network's kernels: medians over passes. Printed it is a table."""

    network: str
    """Id of the network."""
    passes: int
    """How many passes were measured."""
    pass_ms: float
    """The median time of whole passes by the clock on the wall, in milliseconds."""
    cpu_ms: float
    """The same of the processor's time."""

    def __init__(
        self, network: str, rows: Sequence[Tuple[Any, ...]], passes: int, pass_ms: float, cpu_ms: float
    ) -> None:
        """Net.profile() makes it."""
        whole = sum(row[6] for row in rows) or 1.0
        self.network = network
        self.passes = passes
        self.pass_ms = pass_ms
        self.cpu_ms = cpu_ms
        super().__init__([ProfileRow._make((*row, row[6] / whole)) for row in rows])

    def to_dict(self) -> Dict[str, List[Any]]:
        """Columns by name, as pandas.DataFrame() takes them."""
        return {name: [getattr(row, name) for row in self._rows] for name in ProfileRow._fields}

    def _cells(self) -> List[Tuple[str, ...]]:
        return [
            (
                str(row.layer),
                f"{row.id} {row.role}".rstrip(),
                row.kind,
                row.kernel,
                "" if row.shape is None else sizes_text(row.shape),
                f"{row.ms:.4f}",
                f"{100 * row.share:.1f} %",
                f"{row.bytes / row.ms / 1e6:.1f}" if row.ms > 0 else "",
            )
            for row in self._rows
        ]

    def _caption(self) -> str:
        return f"{self.network}: {self.pass_ms:.4f} ms, median of {self.passes} passes"

    def __str__(self) -> str:
        return f"{text_table(_COLUMNS, self._cells(), {0, 5, 6, 7})}\n{self._caption()}"

    def __repr__(self) -> str:
        return f"<Profile of {self._caption()}>"

    def _repr_html_(self) -> str:
        return html_table(_COLUMNS, self._cells(), self._caption())
