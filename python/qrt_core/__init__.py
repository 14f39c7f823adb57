"""Neural-network inference on x86-64 processors.

    import qrt_core as qrt

    net = qrt.load("digits.qrtmodel")["digits"]
    scores = net(pixels)            # NumPy in, NumPy out
    print(net.profile(pixels))

`load` reads model files, `import_onnx` makes models of ONNX files, `verify` compares what it made with the source,
`tune` chooses kernels by measurement, `bench` measures whole passes and `explain` says what they are made of, `check` and
`info` look into models, `kernels` lists what one can name, and `qrt_core.image` turns pictures into inputs. The library's
log lines go to the logger "qrt_core" of `logging`.
"""

from typing import Dict, List, Optional, Sequence

from qrt_core import image
from qrt_core._core import Finding, Kernel, Layer, Model, Net, Port, import_onnx, kernels, load
from qrt_core._core import _source_of
from qrt_core._core import version as __version__
from qrt_core._types import Source as _Source
from qrt_core.benchmark import Bench, BenchedNetwork, BenchRatio, bench
from qrt_core.errors import (
    BusyError,
    Error,
    InputError,
    LayerError,
    Misfit,
    ModelError,
    NotFoundError,
    OnnxError,
    OnnxFileError,
    ProcessorError,
    Refusal,
    UnsupportedError,
)
from qrt_core.explanation import (
    ExplainedCandidate,
    ExplainedConverter,
    ExplainedKind,
    ExplainedLayer,
    ExplainedRefusal,
    Explanation,
    Machine,
    MemoryLevel,
    TensorForm,
    explain,
)
from qrt_core.info import Info
from qrt_core.profile import Profile, ProfileRow
from qrt_core.tuning import TunedConfiguration, TunedLayer, TunedSize, Tuning, tune
from qrt_core.verification import Verification, VerifiedLayer, verify

__all__ = [
    "Bench",
    "BenchRatio",
    "BenchedNetwork",
    "BusyError",
    "Error",
    "ExplainedCandidate",
    "ExplainedConverter",
    "ExplainedKind",
    "ExplainedLayer",
    "ExplainedRefusal",
    "Explanation",
    "Finding",
    "Info",
    "InputError",
    "Kernel",
    "Layer",
    "LayerError",
    "Machine",
    "MemoryLevel",
    "Misfit",
    "Model",
    "ModelError",
    "Net",
    "NotFoundError",
    "OnnxError",
    "OnnxFileError",
    "Port",
    "ProcessorError",
    "Profile",
    "ProfileRow",
    "Refusal",
    "TensorForm",
    "TunedConfiguration",
    "TunedLayer",
    "TunedSize",
    "Tuning",
    "UnsupportedError",
    "Verification",
    "VerifiedLayer",
    "bench",
    "check",
    "explain",
    "image",
    "import_onnx",
    "info",
    "kernels",
    "load",
    "tune",
    "verify",
]


def _model_of(source: _Source) -> Model:
    return source if isinstance(source, Model) else _source_of(source)


def check(source: _Source, inputs: Optional[Dict[str, Dict[str, Sequence[int]]]] = None) -> List[Finding]:
    """Judges whether a model means what it says.

    Args:
        source: a path, the bytes of a model, or a Model.
        inputs: shapes by network and input id, {"net": {"x": (3, 224, 224)}}; None for those that the model tells.

    Returns:
        Every point that was found, in the order of the file; empty for a model that is right. Bytes that are no model
        give one finding.

    Raises:
        OSError: for a file that can't be read.
    """
    return _model_of(source).check(inputs)


def info(source: _Source) -> Info:
    """Reads what a model holds, without making its networks ready.

    Args:
        source: a path, the bytes of a model, or a Model.

    Returns:
        A dict with the versions and, under "networks", the header of each network, its inputs and outputs and its
        layers: id, kind, kernel, the ids that it reads, the number of its weights, and its attributes.

    Raises:
        OSError: for a file that can't be read.
        ModelError: for bytes that are no model.
    """
    return Info(_model_of(source)._info())
