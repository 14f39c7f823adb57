"""Where the time of a pass goes."""

import html
from typing import Any, Dict, Iterator, List, NamedTuple, Optional, Sequence, Tuple


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


class Profile(Sequence[ProfileRow]):
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
        self._rows = [ProfileRow._make((*row, row[6] / whole)) for row in rows]

    def __len__(self) -> int:
        return len(self._rows)

    def __iter__(self) -> Iterator[ProfileRow]:
        return iter(self._rows)

    def __getitem__(self, index: Any) -> Any:
        return self._rows[index]

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
                "" if row.shape is None else " x ".join(map(str, row.shape)),
                f"{row.ms:.4f}",
                f"{100 * row.share:.1f} %",
                f"{row.bytes / row.ms / 1e6:.1f}" if row.ms > 0 else "",
            )
            for row in self._rows
        ]

    def _caption(self) -> str:
        return f"{self.network}: {self.pass_ms:.4f} ms, median of {self.passes} passes"

    def __str__(self) -> str:
        table = [_COLUMNS, *self._cells()]
        widths = [max(len(row[column]) for row in table) for column in range(len(_COLUMNS))]
        right = {0, 5, 6, 7}
        lines = [
            "  ".join(
                cell.rjust(width) if column in right else cell.ljust(width)
                for column, (cell, width) in enumerate(zip(row, widths))
            ).rstrip()
            for row in table
        ]
        return "\n".join([*lines, self._caption()])

    def __repr__(self) -> str:
        return f"<Profile of {self._caption()}>"

    def _repr_html_(self) -> str:
        def line(cells: Sequence[str], tag: str) -> str:
            return "<tr>" + "".join(f"<{tag}>{html.escape(cell)}</{tag}>" for cell in cells) + "</tr>"

        body = "".join(line(row, "td") for row in self._cells())
        return (
            f"<table><caption>{html.escape(self._caption())}</caption>"
            f"<thead>{line(_COLUMNS, 'th')}</thead><tbody>{body}</tbody></table>"
        )
