"""What a model file holds, without making its networks ready."""

import html
from typing import Any, Dict, List


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
        parts = []
        for network in self["networks"]:
            rows = "".join(
                "<tr>"
                + "".join(
                    f"<td>{html.escape(str(cell))}</td>"
                    for cell in (index, layer["id"], layer["kind"], layer["kernel"] or "", layer["weights"])
                )
                + "</tr>"
                for index, layer in enumerate(network["layers"])
            )
            parts.append(
                f"<table><caption>{html.escape(network['id'])}</caption><thead><tr><th>#</th><th>layer</th>"
                f"<th>kind</th><th>kernel</th><th>weights</th></tr></thead><tbody>{rows}</tbody></table>"
            )
        return "".join(parts)
