"""What a notebook shows of models and networks."""

from typing import Sequence

from qrt_core._core import Model, Net, Port
from qrt_core._table import html_table, sizes_text
from qrt_core.errors import ProcessorError


def _port_text(port: Port) -> str:
    return port.id if port.shape is None else f"{port.id}: {sizes_text(port.shape)}"


def _ports_text(ports: Sequence[Port]) -> str:
    return ", ".join(map(_port_text, ports))


def net_html(net: Net) -> str:
    """The layers of a network."""
    rows = [(str(layer.index), layer.id, layer.kind, layer.kernel, ", ".join(layer.inputs)) for layer in net.layers]
    caption = f"{net.id}: from {_ports_text(net.inputs)} to {_ports_text(net.outputs)}"
    return html_table(("#", "layer", "kind", "kernel", "reads"), rows, caption)


def model_html(model: Model) -> str:
    """The networks of a model."""
    rows = []
    for id in model:
        try:
            net = model[id]
            rows.append((id, str(len(net.layers)), _ports_text(net.inputs), _ports_text(net.outputs)))
        except ProcessorError as error:
            rows.append((id, "", "", str(error)))
    return html_table(("network", "layers", "inputs", "outputs"), rows, model.path or "model")
