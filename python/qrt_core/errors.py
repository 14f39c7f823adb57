"""What the package raises. Everything of its own is an Error; texts say all that is known, fields say it for programs."""

from typing import Any, Dict, NamedTuple, Optional, Tuple


class Misfit(NamedTuple):
    """One point in which something is not what it should be."""

    member: str
    """What is at fault: members of the description by their keys ("stride_x, stride_y"), or "input 0" and the like."""
    expected: str
    """What is taken, in words: "1 x 1"."""
    found: str
    """What is there, in the same words: "2 x 2"."""


class Refusal(NamedTuple):
    """One thing that can't be imported, or that is wrong with a file. Texts are empty where there is nothing to say."""

    node: str
    """The node's name, or its first output where it has none."""
    op: str
    """Its operator, as the file spells it."""
    opset: int
    """The operator set that the operator is read by; 0 outside of nodes."""
    source: str
    """What the exporter left of the place in the source: "net.py:12"."""
    attribute: str
    """Attribute, input or tensor at fault."""
    why: str
    """What is wrong, with what was expected and what was found."""
    help: str
    """What would help."""


def _restored(kind: Any, text: str, fields: Dict[str, Any]) -> Any:
    return kind(text, **fields)


class Error(Exception):
    """Base of all errors of this package. Fields that don't apply are None or empty."""

    network: Optional[str]
    """Id of the network."""
    layer: Optional[int]
    """Index of the layer."""
    id: Optional[str]
    """Id of the layer."""
    kind: Optional[str]
    """What the layer computes, such as "Conv2d"."""
    role: Optional[str]
    """"input converter 0" or the like; empty for the layer's own kernel."""
    kernel: Optional[str]
    """The kernel at fault."""
    misfits: Tuple[Misfit, ...]
    """Why, as far as the kernel says."""
    refusals: Tuple[Refusal, ...]
    """All that an import refuses."""

    def __init__(
        self,
        message: str = "",
        *,
        network: Optional[str] = None,
        layer: Optional[int] = None,
        id: Optional[str] = None,
        kind: Optional[str] = None,
        role: Optional[str] = None,
        kernel: Optional[str] = None,
        misfits: Tuple[Misfit, ...] = (),
        refusals: Tuple[Refusal, ...] = (),
    ) -> None:
        super().__init__(message)
        self.network = network
        self.layer = layer
        self.id = id
        self.kind = kind
        self.role = role
        self.kernel = kernel
        self.misfits = tuple(misfits)
        self.refusals = tuple(refusals)

    @property
    def message(self) -> str:
        """The text."""
        return str(self.args[0]) if self.args else ""

    @property
    def expected(self) -> Optional[str]:
        """What the first misfit expected, or None."""
        return self.misfits[0].expected if self.misfits else None

    @property
    def found(self) -> Optional[str]:
        """What the first misfit found, or None."""
        return self.misfits[0].found if self.misfits else None

    def __str__(self) -> str:
        return self.message

    def __reduce__(self) -> Any:
        return _restored, (type(self), self.message, dict(self.__dict__))


class ModelError(Error, ValueError):
    """Bytes that are no model, a model for another version, or a network that can't be built."""


class LayerError(Error):
    """A layer that its kernel refuses, or that can't run: `layer`, `id`, `kernel` and `misfits` say which and why."""


class InputError(Error, ValueError):
    """Inputs that a network or a function doesn't take."""


class NotFoundError(Error, KeyError):
    """A model has no network of this id."""


class BusyError(Error, RuntimeError):
    """Another thread is running a network of the same model."""


class ProcessorError(Error, RuntimeError):
    """A network names a kernel whose instructions this processor lacks."""


class OnnxError(Error):
    """A network that can't be imported; `refusals` has all that is wrong."""


class OnnxFileError(OnnxError, ValueError):
    """A file that is no ONNX file, is damaged, or contradicts itself."""


class UnsupportedError(OnnxError, NotImplementedError):
    """A sound network that asks for something that isn't supported."""
