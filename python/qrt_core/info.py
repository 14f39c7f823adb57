"""What a model file holds, without making its networks ready."""

from typing import Any, Dict, List

from qrt_core._table import html_table


class Info(Dict[str, Any]):
    """The header, networks and layers of a model: a dict of what JSON can hold. Printed it is a summary."""

    def _lines(self) -> List[str]:
        lines = []
        for network in self["networks"]:
            inputs, outputs = ", ".join(network["inputs"]), ", ".join(network["outputs"])
            lines.append(
                f"{network['id']}: {len(network['layers'])} layers, {network['weights']} weights, "
                f"from {inputs} to {outputs}"
            )
            for index, layer in enumerate(network["layers"]):
                lines.append(f"  {index}  {layer['id']} ({layer['kind']})  {layer['kernel'] or ''}".rstrip())
        return lines

    def __str__(self) -> str:
        return "\n".join(self._lines())

    def _repr_html_(self) -> str:
        return "".join(
            html_table(
                ("#", "layer", "kind", "kernel", "weights"),
                [
                    (str(index), layer["id"], layer["kind"], layer["kernel"] or "", str(layer["weights"]))
                    for index, layer in enumerate(network["layers"])
                ],
                network["id"],
            )
            for network in self["networks"]
        )
