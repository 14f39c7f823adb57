"""Kernels and layouts chosen by measurement."""

import datetime
import logging
import math
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, List, Mapping, NamedTuple, Optional, Sequence, Tuple, Union

from qrt_core._core import Model, _model_of, _source_of, _tune
from qrt_core._progress import shown
from qrt_core._table import html_table, text_table
from qrt_core._types import Path, Shapes, Source
from qrt_core._wisdom import wisdom_path
from qrt_core.explanation import ExplainedCandidate, ExplainedRefusal, _candidates_of


class TunedLayer(NamedTuple):
    """What was chosen for one layer."""

    id: str
    """Its name in the network."""
    before: str
    """The kernel that it had."""
    kernel: str
    """The kernel that it has."""
    candidates: int
    """So many ways to run it there were."""
    ms: float
    """Milliseconds of its kernel in a pass, without converters of layouts."""
    before_ms: float
    """The same of the kernel that it had."""


class TunedConfiguration(NamedTuple):
    """One of the configurations that ran as whole networks."""

    name: str
    """"given", "measured", "fewer converters", "whole blocks" or "estimated"; "exchanged" for the best of them with kernels
    exchanged."""
    ms: float
    """Milliseconds of a pass; of several sizes the weighted sum."""


class TunedSize(NamedTuple):
    """What tuning did to passes on inputs of one size."""

    inputs: Mapping[str, Tuple[int, ...]]
    """Shapes of the inputs by id."""
    weight: float
    """What its milliseconds were multiplied with."""
    before_ms: float
    """Milliseconds of a pass of the given model."""
    after_ms: float
    """Milliseconds of a pass of the chosen one."""
    difference: float
    """Of the outputs, over the largest number of each."""


@dataclass(frozen=True)
class Tuning:
    """What tune() did to a network. Printed it is a table."""

    network: str
    """Id of the network."""
    processor: str
    """What the choice is for, by the processor's own name."""
    kernels: str
    """The set that was chosen from, such as "avx2"."""
    tolerance: float
    """How far a kernel's results may be from those of the one that it replaced, over the largest of them."""
    configurations: Tuple[TunedConfiguration, ...]
    """Those that ran as whole networks, the given one first."""
    chosen: str
    """The name of one of them."""
    padded: Mapping[str, int]
    """Layers whose results have channels of zeros in the chosen one, up to a whole block of 8, and how many channels in all."""
    before_ms: float
    """Milliseconds of a pass of the given model; of several sizes the weighted sum."""
    after_ms: float
    """The same of the chosen one."""
    difference: float
    """Of the outputs, over the largest number of each; the largest of all sizes."""
    sizes: Tuple[TunedSize, ...]
    """The sizes that it was tuned for, in the order in which they were given."""
    changes_tried: int
    """How many kernels that were close were tried in whole passes."""
    changes_kept: int
    """How many of these made passes faster and are in the chosen one."""
    seconds: float
    """That it took."""
    measured: int
    """How many kernels were measured on layers."""
    remembered: int
    """How many times were taken from the file of earlier measurements."""
    is_complete: bool
    """Whether nothing was left out, for want of time or by an interrupt."""
    is_interrupted: bool
    """Whether a KeyboardInterrupt ended the measurements."""
    is_exact: bool
    """Whether it is proved that no other choice costs less by these times."""
    layers: Tuple[TunedLayer, ...]
    """In the order in which they run, without new ones. Empty where the given model stayed as it was."""
    converters: Mapping[str, str]
    """New layers that convert layouts, and whose result each converts."""
    excluded: Tuple[str, ...]
    """Kernels that need other instructions."""
    notes: Tuple[str, ...]
    """What went wrong without stopping it, in words."""
    candidates: Mapping[str, Tuple[ExplainedCandidate, ...]] = field(default_factory=dict)
    """By layer id: the kernels that could run the layer on the first size, the given model's first, with the converters
    that they would need in the given model. Empty where they weren't asked for."""
    refusals: Mapping[str, Tuple[ExplainedRefusal, ...]] = field(default_factory=dict)
    """By layer id: the kernels for layers of its kind that can't run it, by name. Empty where they weren't asked for."""

    def second(self, layer: str) -> Optional[ExplainedCandidate]:
        """What came second on a layer: the fastest of the candidates with another kernel than the one that was chosen.

        Args:
            layer: its id.

        Returns:
            The candidate, whose `whole_ms` is to be compared with that of the chosen kernel's; None where no other kernel
            could run the layer.

        Raises:
            KeyError: for a layer without candidates: it stayed as it is, there is none of this id, or they weren't asked
                for.
        """
        candidates = self.candidates[layer]
        kernels = {one.id: one.kernel for one in self.layers}
        chosen = kernels.get(layer, candidates[0].kernel)
        others = [candidate for candidate in candidates if candidate.kernel != chosen]
        return min(others, key=lambda candidate: candidate.whole_ms) if others else None

    def to_dict(self) -> Dict[str, List[Any]]:
        """The layers as columns by name, as pandas.DataFrame() takes them."""
        return {name: [getattr(layer, name) for layer in self.layers] for name in TunedLayer._fields}

    def _changed(self) -> List[Tuple[str, ...]]:
        return [
            (layer.id, layer.before, layer.kernel, f"{layer.before_ms:.4f}", f"{layer.ms:.4f}")
            for layer in self.layers
            if layer.before != layer.kernel
        ]

    def _caption(self) -> str:
        return (
            f"{self.network}: {self.before_ms:.4f} ms before, {self.after_ms:.4f} ms after ({self.chosen}); "
            f"outputs differ by {self.difference:.2g} of the largest"
        )

    def __str__(self) -> str:
        changed = self._changed()
        return "\n".join([*([text_table(_COLUMNS, changed, {3, 4})] if changed else []), self._caption()])

    def __repr__(self) -> str:
        return f"<Tuning of {self._caption()}>"

    def _repr_html_(self) -> str:
        return html_table(_COLUMNS, self._changed(), self._caption())


_COLUMNS = ("layer", "kernel before", "kernel", "ms before", "ms")


def _sizes_of(
    inputs: Union[None, Shapes, Sequence[Shapes]], weights: Optional[Sequence[float]]
) -> List[Tuple[Optional[Shapes], float]]:
    several = isinstance(inputs, (list, tuple))
    sizes: List[Optional[Shapes]] = list(inputs) if several else [inputs]  # type: ignore[arg-type, list-item]
    if not sizes:
        raise ValueError("inputs: expected shapes of at least one size")
    factors = [1.0] * len(sizes) if weights is None else [float(weight) for weight in weights]
    if len(factors) != len(sizes):
        raise ValueError(f"weights: expected one for each size, {len(sizes)}, found {len(factors)}")
    for factor in factors:
        if not 0 < factor < math.inf:
            raise ValueError(f"weights: expected numbers above 0, found {factor}")
    return list(zip(sizes, factors))


def tune(
    model: Source,
    *,
    inputs: Union[None, Shapes, Sequence[Shapes]] = None,
    weights: Optional[Sequence[float]] = None,
    network: Union[None, str, int] = None,
    kernels: Optional[str] = None,
    numerics: Union[str, float] = "bounded",
    budget: float = 120.0,
    wisdom: Union[None, bool, Path] = None,
    candidates: bool = False,
    progress: Union[bool, Callable[[int, int, float], object]] = False,
) -> Model:
    """Chooses kernels and layouts for one network by measuring them on this machine.

    A KeyboardInterrupt ends the measurements, and the best that is known by then is returned; so does the end of the
    budget. `Model.tuning` says so, and what was chosen and why.

    Args:
        model: a Model, a path, or the bytes of a model.
        inputs: shapes of inputs by id, without a batch, {"x": (3, 224, 224)}; None for those that the model tells; a
            sequence of such mappings for a network that runs on several sizes. The weighted sum of their passes is then
            made as small as can be.
        weights: how much a pass on each size counts; None for all alike.
        network: its id or number; None for the only one.
        kernels: the set to choose from, "portable", "sse", "avx", "fma", "avx2" or "avx512"; None for what this
            processor can run.
        numerics: how far a kernel's results may be from those of the one that it replaces, over the largest of them:
            "same" for the same bits, "bounded" for sums in another order (1e-4), "fast" for approximations (0.05), or
            a number.
        budget: seconds, after which nothing more is measured.
        wisdom: a file of earlier measurements, which is read and added to; None or True for the one of `qrt tune` in
            the user's folder for caches, False for none.
        candidates: whether the Tuning tells every kernel that could run a layer, with its time, and of the rest why they
            can't.
        progress: True shows a line on the standard error; or a function that is called between measurements with the
            number of layers that are done, that of all, and the seconds so far.

    Returns:
        The tuned Model: the given one where nothing was faster. Its `tuning` is a Tuning.

    Raises:
        ValueError: for kernels that there aren't or that this processor can't run, and for options out of range.
        NotFoundError: for a network that isn't there.
        InputError: for an input whose shape the model doesn't tell.
        LayerError: for shapes that don't fit.
        ModelError, OSError: as load().
    """
    given = model if isinstance(model, Model) else _source_of(model)
    sizes = _sizes_of(inputs, weights)
    today = datetime.datetime.now(datetime.timezone.utc).date().isoformat()
    with shown(progress, "layer {} of {}, {:.0f} s") as callback:
        data, facts = _tune(given, network, sizes, kernels, numerics, budget, wisdom_path(wisdom), today, candidates, callback)
    facts["configurations"] = tuple(map(TunedConfiguration._make, facts["configurations"]))
    facts["sizes"] = tuple(map(TunedSize._make, facts["sizes"]))
    facts["layers"] = tuple(map(TunedLayer._make, facts["layers"]))
    facts["candidates"] = {layer: _candidates_of(rows) for layer, rows in facts["candidates"].items()}
    facts["refusals"] = {
        layer: tuple(map(ExplainedRefusal._make, rows)) for layer, rows in facts["refusals"].items()
    }
    tuning = Tuning(**facts)
    log = logging.getLogger("qrt_core")
    for note in tuning.notes:
        log.warning("%s", note)
    if not tuning.is_complete:
        log.warning("not everything was measured: the rest is as it was estimated")
    return _model_of(data, given.report, tuning)
