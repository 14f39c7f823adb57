"""Small models for the tests, written as the JSON form."""

import json
import os

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DIGITS = os.path.join(ROOT, "models", "digits", "digits.json")
DIGITS_BINARY = os.path.join(ROOT, "models", "digits", "digits.qrtmodel")
SMOOTH = os.path.join(ROOT, "examples", "data", "smooth.json")


def _config(kernel):
    return {
        "summary": "",
        "input_converters": {"kernel_ids": []},
        "kernel": {"kernel_type": kernel, "infer_param_type": ""},
        "output_converters": {"kernel_ids": []},
    }


def input_layer(name):
    return {"serializable_type": "InputInfo", "type": 0, "id": name, "input_ids": [], "location": 1}, "Input_Fallback_M1"


def add(name, first, second):
    layer = {"serializable_type": "ElementWiseOperatorInfo", "type": 11, "id": name, "input_ids": [first, second]}
    return {**layer, "op_type": 0}, "Elementwise_Fallback_Float_M1"


def relu(name, source, kernel="ReLU_Fallback_Float_M1"):
    layer = {"serializable_type": "ActivationInfo", "type": 1, "id": name, "input_ids": [source], "activation_type": 2}
    return {**layer, "activation_alpha": 1.0, "activation_beta": 0.0, "num_parameters": 1, "weight": ""}, kernel


def network(layers, outputs, summary=""):
    description, config = {"serializable_type": "QRModelInfo", "squential_output_ids": outputs}, {"summary": ""}
    description["extra_info"] = {
        "serializable_type": "NetExtraInfo",
        **dict.fromkeys(("version", "app_type", "model_id", "model_base_h", "model_base_w", "fmlas"), 0),
        "time": dict.fromkeys(("year", "moon", "day", "hour", "min", "sec"), 0) | {"serializable_type": "TimeInfo"},
        "device": "",
        "summary": summary,
    }
    ids = [layer["id"] for layer, _ in layers]
    description["squential_ids"] = config["squential_ids"] = ids
    description["squential_types"] = [layer["type"] for layer, _ in layers]
    for layer, kernel in layers:
        description[layer["id"]] = {"read_count": 0, **layer}
        config[layer["id"]] = _config(kernel)
    return description, config


def model(**networks):
    infos = {"serializable_type": "QRModelInfoArr", "squential_ids": list(networks)}
    configs = {"squential_ids": list(networks)}
    for name, (description, config) in networks.items():
        infos[name] = description
        configs[name] = {"cpu_sse": config}
    return json.dumps(
        {
            "serialization_protocol_version": 20015,
            "sdk_type": "qrt",
            "core_major_ver": 1,
            "core_minor_ver": 0,
            "sdk_major_ver": 1,
            "sdk_minor_ver": 0,
            "model_arr": infos,
            "config_arr": configs,
        }
    ).encode()


def two_inputs():
    """a + b, and the same without negative numbers: two outputs."""
    layers = [input_layer("a"), input_layer("b"), add("sum", "a", "b"), relu("top", "sum")]
    return network(layers, ["sum", "top"])
