"""How fast networks run: whole passes, and what comes before the first."""

import os
from dataclasses import dataclass, fields
from typing import Any, Dict, List, Mapping, NamedTuple, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from qrt_core._core import Model, _bench, _source_of
from qrt_core._table import Rows, html_table, text_table
from qrt_core._types import Source


@dataclass(frozen=True, eq=False)
class BenchedNetwork:
    """What was measured of one network. Times are in milliseconds, sizes in bytes."""

    name: str
    """What the result calls its model."""
    network: str
    """Its id in the model."""
    passes: int
    """How many were sampled, of all threads."""
    min_ms: float
    """The shortest pass by the clock on the wall."""
    median_ms: float
    """The median of the passes."""
    median_interval_ms: Tuple[float, float]
    """Between these the true median lies, at 95 % confidence."""
    mean_ms: float
    """Their sum over their number."""
    p90_ms: float
    """Nine of ten passes are shorter."""
    p99_ms: float
    """99 of 100 passes are shorter."""
    max_ms: float
    """The longest pass."""
    spread: float
    """The width of the middle half of the passes, over the median."""
    passes_per_second: float
    """Passes that all threads ended in a second."""
    load_ms: float
    """From nothing to a network that can run."""
    first_pass_ms: float
    """The first pass alone, with the check of the shapes."""
    is_steady: bool
    """Whether passes settled before they were sampled."""
    warm_passes: int
    """Passes of a thread before the samples."""
    warm_ms: float
    """What these took."""
    resident_bytes: int
    """By how much the process grew for it; 0 where it found room."""
    static_pool_bytes: int
    """Of one thread: inputs and what lasts, but for weights."""
    dynamic_pool_bytes: int
    """Of one thread: what passes need."""
    pool_growth_bytes: int
    """By how much both grew while passes were sampled."""
    wall_ms: "npt.NDArray[np.float64]"
    """Each sampled pass by the clock on the wall."""
    cpu_ms: "npt.NDArray[np.float64]"
    """The same by the processor's time."""


class BenchRatio(NamedTuple):
    """Two networks side by side."""

    first: int
    """The place of the one that is compared with."""
    second: int
    """The place of the other one."""
    time: float
    """The time of a pass of the second over that of the first: below 1 the second is faster."""
    low: float
    """The lower bound of `time`, at 95 % confidence."""
    high: float
    """The upper bound of `time`."""

    @property
    def verdict(self) -> str:
        """"faster" or "slower" of the second, or "alike" where chance may have made the difference."""
        return "faster" if self.high < 1 else "slower" if self.low > 1 else "alike"


_COLUMNS = ("model", "passes", "min ms", "median", "p90", "p99", "spread", "passes/s", "load ms", "first pass", "pools")


class Bench(Rows[BenchedNetwork]):
    """Networks that were measured, the one beside the other. Printed it is a table."""

    ratios: Tuple[BenchRatio, ...]
    """Of each network to the first."""
    threads: int
    """How many ran each network at once."""
    resident_bytes: int
    """Of the whole process in the end."""
    peak_resident_bytes: int
    """The most that it ever was."""

    def __init__(
        self,
        networks: Sequence[BenchedNetwork],
        ratios: Sequence[BenchRatio],
        threads: int,
        resident_bytes: int,
        peak_resident_bytes: int,
    ) -> None:
        """bench() makes it."""
        self.ratios = tuple(ratios)
        self.threads = threads
        self.resident_bytes = resident_bytes
        self.peak_resident_bytes = peak_resident_bytes
        super().__init__(networks)

    def to_dict(self) -> Dict[str, List[Any]]:
        """The networks as columns by name, as pandas.DataFrame() takes them, without the single passes."""
        names = [field.name for field in fields(BenchedNetwork) if field.name not in ("wall_ms", "cpu_ms")]
        return {name: [getattr(network, name) for network in self._rows] for name in names}

    def _cells(self) -> List[Tuple[str, ...]]:
        return [
            (
                network.name,
                str(network.passes),
                f"{network.min_ms:.4f}",
                f"{network.median_ms:.4f}",
                f"{network.p90_ms:.4f}",
                f"{network.p99_ms:.4f}",
                f"{100 * network.spread:.1f} %",
                f"{network.passes_per_second:.1f}",
                f"{network.load_ms:.4f}",
                f"{network.first_pass_ms:.4f}",
                f"{(network.static_pool_bytes + network.dynamic_pool_bytes) / 2**20:.2f} MiB",
            )
            for network in self._rows
        ]

    def _captions(self) -> List[str]:
        lines = [
            f"{self._rows[ratio.second].name} takes {ratio.time:.4f} of the time of "
            f"{self._rows[ratio.first].name} (95 % confidence: {ratio.low:.4f} to {ratio.high:.4f}): {ratio.verdict}"
            for ratio in self.ratios
        ]
        return [*lines, f"threads: {self.threads}; the process holds {self.resident_bytes / 2**20:.2f} MiB"]

    def __str__(self) -> str:
        return "\n".join([text_table(_COLUMNS, self._cells(), set(range(1, len(_COLUMNS)))), *self._captions()])

    def __repr__(self) -> str:
        medians = ", ".join(f"{network.name}: {network.median_ms:.4f} ms" for network in self._rows)
        return f"<Bench of {medians}>"

    def _repr_html_(self) -> str:
        return html_table(_COLUMNS, self._cells(), "; ".join(self._captions()))


def bench(
    *models: Source,
    names: Optional[Sequence[str]] = None,
    network: Union[None, str, int] = None,
    inputs: Optional[Mapping[str, Sequence[int]]] = None,
    threads: int = 1,
    cpu: Optional[int] = None,
    keep_state: bool = False,
    seconds: Optional[float] = None,
) -> Bench:
    """Measures whole passes of networks. Several models run in turn, so that what disturbs the machine meets all alike.

    A pass is that of the library, from inputs in memory to outputs, without the call from Python. Each thread loads
    the models anew and has networks of its own. A KeyboardInterrupt ends it.

    Args:
        models: one or more: Model objects, paths, or bytes of models. The others are compared with the first.
        names: what the result calls them; None for the names of their files.
        network: the id or number of the network in each model; None for the only one.
        inputs: shapes of inputs by id, without a batch, {"x": (3, 224, 224)}; None for those that the models tell.
        threads: how many run the network at once, 1 or more.
        cpu: the processor that the first thread stays on, the next have the next numbers; None for any.
        keep_state: whether recurrent layers begin a pass where the last one ended.
        seconds: of samples for each model; None for as many as make the median known to half a percent, 0.5 to 10 s.

    Returns:
        A Bench: a sequence of BenchedNetwork, with `ratios`.

    Raises:
        ValueError: for no model, and for options out of range.
        NotFoundError: for a network that isn't there.
        InputError: for an input whose shape the model doesn't tell.
        LayerError: for shapes that don't fit.
        ModelError, OSError: as load().
    """
    opened = [model if isinstance(model, Model) else _source_of(model) for model in models]
    if names is None:
        names = [
            os.path.basename(model.path) if model.path is not None else f"model {place}"
            for place, model in enumerate(opened, 1)
        ]
    if len(names) != len(opened):
        raise ValueError(f"names: expected {len(opened)}, found {len(names)}")
    facts = _bench(list(zip(names, opened)), network, inputs, threads, cpu, keep_state, seconds)
    facts["networks"] = [BenchedNetwork(**network) for network in facts["networks"]]
    facts["ratios"] = [BenchRatio._make(ratio) for ratio in facts["ratios"]]
    return Bench(**facts)
