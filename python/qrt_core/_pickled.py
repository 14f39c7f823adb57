"""What pickled models and networks are made of again."""

from typing import Any, Dict, Optional

from qrt_core._core import Model, Net, _model_of
from qrt_core.tuning import Tuning


def model_of(data: bytes, report: Optional[Dict[str, Any]], tuning: Optional[Tuning]) -> Model:
    """The model of these bytes."""
    return _model_of(data, report, tuning)


def net_of(data: bytes, network: str) -> Net:
    """A network of the model of these bytes."""
    return _model_of(data, None, None)[network]
