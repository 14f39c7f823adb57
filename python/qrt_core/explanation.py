"""Where the time of a network goes, and how near to the machine's limits its kernels run."""

import logging
import os
from typing import Any, Callable, Dict, List, Mapping, NamedTuple, Optional, Sequence, Tuple, Union

from qrt_core._core import Model, _explain, _source_of
from qrt_core._files import expect_replaceable, replace_file
from qrt_core._progress import shown
from qrt_core._table import Rows, html_table, sizes_text, text_table
from qrt_core._types import Path, Source
from qrt_core._wisdom import wisdom_path


class MemoryLevel(NamedTuple):
    """One level of memory, as one core sees it. Bandwidths are in GB/s, by set of instructions."""

    name: str
    """"L1", "L2", "L3" or "memory"."""
    bytes: int
    """What it holds; 0 for main memory."""
    read: Mapping[str, float]
    """Of reading only."""
    copy: Mapping[str, float]
    """Of copying, read plus written."""


class Machine(NamedTuple):
    """What one core of this machine can do."""

    processor: str
    """The name that it gives itself."""
    gigahertz: float
    """Its clock while it was measured."""
    gigaflops: Mapping[str, float]
    """GFLOP/s of products and sums, by set of instructions."""
    levels: Tuple[MemoryLevel, ...]
    """From the nearest; main memory is the last."""


class ExplainedConverter(NamedTuple):
    """A converter that runs before or behind a layer's kernel."""

    role: str
    """"input 0" or "output 0"."""
    kernel: str
    """Its name."""
    ms: float
    """Milliseconds of a pass."""
    gigaflops: float
    """GFLOP/s; 0 where it computes nothing."""
    gigabytes: float
    """GB/s."""
    limit_ms: float
    """Milliseconds at the machine's limit; 0 where it has none."""
    of_limit: float
    """The share of the limit that is reached."""
    limit: str
    """What the limit is: instructions, such as "avx2", or the level of memory, such as "L2"."""


class TensorForm(NamedTuple):
    """How a tensor stands in memory."""

    shape: Tuple[int, ...]
    """Its sizes."""
    layout: str
    """What they mean, such as "CHW", or "C8HW8" for blocks of eight channels."""


class ExplainedCandidate(NamedTuple):
    """A kernel that can run a layer."""

    kernel: str
    """Its name."""
    needs: str
    """The set of instructions that it needs, such as "avx2"."""
    inputs: Tuple[TensorForm, ...]
    """As it reads them."""
    output: TensorForm
    """As it makes it."""
    is_chosen: bool
    """Whether it is the one that the model names."""
    is_measured: bool
    """Whether its times were measured, and not estimated."""
    ms: float
    """Milliseconds of the kernel alone."""
    converters_ms: float
    """Milliseconds of the converters that it would need where the layer stands now."""
    difference: float
    """Of its results from the layer's, over the largest; 0 for the same."""

    @property
    def whole_ms(self) -> float:
        """Milliseconds of the kernel with its converters."""
        return self.ms + self.converters_ms


class ExplainedRefusal(NamedTuple):
    """A kernel for layers of the same kind that can't run this one."""

    kernel: str
    """Its name."""
    needs: str
    """The set of instructions that it needs."""
    reasons: Tuple[str, ...]
    """Why not, in words."""


class ExplainedLayer(NamedTuple):
    """One layer of a network."""

    id: str
    """Its name in the network."""
    kind: str
    """What it computes, such as "Conv2d"."""
    kernel: str
    """What runs it."""
    shape: Optional[Tuple[int, ...]]
    """Sizes of its first output, or None."""
    ms: float
    """Milliseconds of a pass in the kernel, without converters."""
    gigaflops: float
    """GFLOP/s, two operations for each multiply-add; 0 where it has none."""
    gigabytes: float
    """GB/s, of tensors and weights."""
    limit_ms: float
    """Milliseconds at the machine's limit; 0 where it has none."""
    of_limit: float
    """The share of the limit that is reached."""
    limit: str
    """What the limit is: instructions, such as "avx2", or the level of memory, such as "L2"."""
    multiply_adds: int
    """Of the layer's definition, however the kernel gets there."""
    bytes: int
    """Of the tensors that it reads and makes, and of its weights."""
    is_converter: bool
    """Whether it only moves numbers into another layout."""
    sources: Tuple[str, ...]
    """Ids of the layers that it reads."""
    converters: Tuple[ExplainedConverter, ...]
    """What runs around it."""
    candidates: Tuple[ExplainedCandidate, ...] = ()
    """The kernels that could run it, the fastest first, with the chosen one among them; empty where they weren't asked for,
    and for inputs."""
    refusals: Tuple[ExplainedRefusal, ...] = ()
    """The kernels for layers of its kind that can't run it, by name."""

    @property
    def second(self) -> Optional[ExplainedCandidate]:
        """The fastest of the candidates that aren't chosen, with its converters; None where there is none."""
        others = [candidate for candidate in self.candidates if not candidate.is_chosen]
        return min(others, key=lambda candidate: candidate.whole_ms) if others else None


class ExplainedKind(NamedTuple):
    """Layers of one kind together."""

    kind: str
    """What they compute, or "converter"."""
    kernels: int
    """How many there are."""
    ms: float
    """Milliseconds of a pass."""
    limit_ms: float
    """The sum of their limits."""
    multiply_adds: int
    """Of all."""


_COLUMNS = ("#", "layer", "kernel", "output", "ms", "share", "GFLOP/s", "GB/s", "of limit", "limit")


def _rate(giga: float) -> str:
    return f"{giga:.1f}" if giga > 0 else ""


class Explanation(Rows[ExplainedLayer]):
    """A network, layer by layer, against the limits of the machine. Printed it is a table."""

    network: str
    """Id of the network."""
    machine: Machine
    """On which it ran."""
    kinds: Tuple[ExplainedKind, ...]
    """The longest first."""
    passes: int
    """How many were timed."""
    pass_ms: float
    """Milliseconds of a pass as it is, without any kernel timed."""
    kernels_ms: float
    """Of it, in kernels of layers."""
    converters_ms: float
    """In converters, whether layers or around layers."""
    engine_ms: float
    """Between the kernels."""
    limit_ms: float
    """The sum of all limits."""
    is_complete: bool
    """Whether everything was measured, and nothing ended it before."""
    notes: Tuple[str, ...]
    """What went wrong without stopping it, in words."""

    def __init__(self, layers: Sequence[ExplainedLayer], **facts: Any) -> None:
        """explain() makes it."""
        super().__init__(layers)
        self.__dict__.update(facts)

    def to_dict(self) -> Dict[str, List[Any]]:
        """The layers as columns by name, as pandas.DataFrame() takes them."""
        return {name: [getattr(row, name) for row in self._rows] for name in ExplainedLayer._fields}

    def _times(self, row: Union[ExplainedLayer, ExplainedConverter]) -> Tuple[str, ...]:
        return (
            f"{row.ms:.4f}",
            f"{100 * row.ms / self.pass_ms:.1f} %" if self.pass_ms > 0 else "",
            _rate(row.gigaflops),
            _rate(row.gigabytes),
            f"{100 * row.of_limit:.1f} %" if row.limit_ms > 0 and row.ms > 0 else "",
            row.limit,
        )

    def _cells(self) -> List[Tuple[str, ...]]:
        cells = []
        for index, row in enumerate(self._rows):
            shape = "" if row.shape is None else sizes_text(row.shape)
            cells.append((str(index), row.id, row.kernel, shape, *self._times(row)))
            for converter in row.converters:
                cells.append(("", f"{row.id} {converter.role}", converter.kernel, "", *self._times(converter)))
        return cells

    def _caption(self) -> str:
        return (
            f"{self.network}: {self.pass_ms:.4f} ms a pass, {self.kernels_ms:.4f} in kernels, {self.converters_ms:.4f} "
            f"in converters, {self.engine_ms:.4f} between them; {self.limit_ms:.4f} at the limits of "
            f"{self.machine.processor}"
        )

    def __str__(self) -> str:
        return f"{text_table(_COLUMNS, self._cells(), {0, 4, 5, 6, 7, 8})}\n{self._caption()}"

    def __repr__(self) -> str:
        return f"<Explanation of {self._caption()}>"

    def _repr_html_(self) -> str:
        return html_table(_COLUMNS, self._cells(), self._caption())


def explain(
    model: Source,
    *,
    inputs: Optional[Mapping[str, Sequence[int]]] = None,
    network: Union[None, str, int] = None,
    seconds: float = 1.0,
    candidates: bool = False,
    kernels: Optional[str] = None,
    budget: float = 60.0,
    wisdom: Union[None, bool, Path] = None,
    html: Optional[Path] = None,
    progress: Union[bool, Callable[[int, int], object]] = False,
) -> Explanation:
    """Runs a network and says where its time goes, and how near each kernel comes to what the machine can do.

    The machine's limits are measured first, once in a process, which takes about a second. A KeyboardInterrupt ends it; once
    the passes are timed it ends the measurement of candidates only, and the explanation has `is_complete` False.

    Args:
        model: a Model, a path, or the bytes of a model.
        inputs: shapes of inputs by id, without a batch, {"x": (3, 224, 224)}; None for those that the model tells.
        network: its id or number; None for the only one.
        seconds: of passes that are timed.
        candidates: whether the other kernels that could run each layer are looked for and measured, as tune() does it.
        kernels: the set to look in, "portable", "sse", "avx", "fma", "avx2" or "avx512"; None for what this processor can
            run.
        budget: seconds, after which no more candidates are measured.
        wisdom: a file of earlier measurements, as tune() takes it.
        html: a file for a page that shows all of it in a browser and needs nothing else.
        progress: True shows a line on the standard error; or a function that is called with the number of steps that
            are done and that of all.

    Returns:
        An Explanation: a sequence of ExplainedLayer in the order in which they run.

    Raises:
        ValueError: for options out of range, and for kernels that there aren't.
        NotFoundError: for a network that isn't there.
        InputError: for an input whose shape the model doesn't tell.
        LayerError: for shapes that don't fit.
        ModelError, OSError: as load(); OSError also for a page that can't be written, before anything is measured.
    """
    given = model if isinstance(model, Model) else _source_of(model)
    page_path = None if html is None else expect_replaceable(html)
    title = None if html is None else os.path.basename(given.path or "model")
    with shown(progress, "step {} of {}") as callback:
        facts, page = _explain(
            given, network, inputs, seconds, candidates, kernels, budget, wisdom_path(wisdom), title, callback
        )
    if page_path is not None:
        replace_file(page_path, page.encode())
    machine = facts.pop("machine")
    levels = tuple(map(MemoryLevel._make, machine.pop("levels")))
    layers = list(map(_layer_of, facts.pop("layers")))
    kinds = tuple(map(ExplainedKind._make, facts.pop("kinds")))
    log = logging.getLogger("qrt_core")
    for note in facts["notes"]:
        log.warning("%s", note)
    if not facts["is_complete"]:
        log.warning("not everything was measured: the times of other candidates are estimates")
    return Explanation(layers, machine=Machine(**machine, levels=levels), kinds=kinds, **facts)


def _candidates_of(rows: Sequence[Tuple[Any, ...]]) -> Tuple[ExplainedCandidate, ...]:
    return tuple(
        ExplainedCandidate(kernel, needs, tuple(map(TensorForm._make, inputs)), TensorForm._make(output), *facts)
        for kernel, needs, inputs, output, *facts in rows
    )


def _layer_of(row: Tuple[Any, ...]) -> ExplainedLayer:
    *own, converters, candidates, refusals = row
    made = (
        tuple(map(ExplainedConverter._make, converters)),
        _candidates_of(candidates),
        tuple(map(ExplainedRefusal._make, refusals)),
    )
    return ExplainedLayer._make((*own, *made))
