"""Writes folded weights as a JSON model of qrt_core, members in the order the library writes."""

import base64
import json

from network import LAYERS, SIDE, shapes

PROTOCOL_VERSION = 20015
INPUT, ACTIVATION, CONV2D = 0, 1, 2  # layer type codes
RELU = 2  # activation type code
MAIN_MEMORY = 1  # low 16 bits of the location code 0x10001
NETWORK = "digits"

KERNELS = {
    INPUT: "Input_Fallback_M1",
    CONV2D: "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
    ACTIVATION: "ReLU_SSE_Float_M1",
}


def blob(values):
    """Base64 text of little-endian float32 numbers."""
    return base64.b64encode(values.astype("<f4").tobytes()).decode("ascii")


def layer_head(class_name, code, name, inputs, readers):
    return {
        "serializable_type": class_name,
        "type": code,
        "id": name,
        "input_ids": inputs,
        "read_count": readers,
    }


def input_layer():
    return {**layer_head("InputInfo", INPUT, "input", [], 1), "location": MAIN_MEMORY}


def convolution_layer(index, source, weight, bias):
    inputs, outputs, window, stride, padding = LAYERS[index]
    readers = 0 if index + 1 == len(LAYERS) else 1
    return {
        **layer_head("Conv2dInfo", CONV2D, f"conv{index + 1}", [source], readers),
        "in_channels": inputs,
        "out_channels": outputs,
        "kernel_x": window,
        "kernel_y": window,
        "padding_l": padding,
        "padding_t": padding,
        "padding_r": padding,
        "padding_b": padding,
        "stride_x": stride,
        "stride_y": stride,
        "dilation_x": 1,
        "dilation_y": 1,
        "groups": 1,
        "if_bias": True,
        "weight": blob(weight),
        "bias": blob(bias),
    }


def relu_layer(index, source):
    return {
        **layer_head("ActivationInfo", ACTIVATION, f"relu{index + 1}", [source], 1),
        "activation_type": RELU,
        "activation_alpha": 1.0,
        "activation_beta": 0.0,
        "num_parameters": 1,
        "weight": "",
    }


def layers_of(weights):
    """Layer descriptions in order of execution."""
    layers = [input_layer()]
    for index, (weight, bias) in enumerate(weights):
        layers.append(convolution_layer(index, layers[-1]["id"], weight, bias))
        if index + 1 < len(weights):
            layers.append(relu_layer(index, layers[-1]["id"]))
    return layers


def extra_info(summary, made):
    time = {"serializable_type": "TimeInfo"}
    time.update(
        year=made.year,
        moon=made.month,
        day=made.day,
        hour=made.hour,
        min=made.minute,
        sec=made.second,
    )
    return {
        "serializable_type": "NetExtraInfo",
        "version": 1,
        "app_type": 0,
        "model_id": 0,
        "model_base_h": SIDE,
        "model_base_w": SIDE,
        "fmlas": sum(row[2] for row in shapes()),
        "time": time,
        "device": "cpu",
        "summary": summary,
    }


def configuration(layers):
    """Kernels of the x86 back end; the other back ends are there and empty."""
    table = {}
    for layer in layers:
        table[layer["id"]] = {
            "summary": "",
            "input_converters": {"kernel_ids": []},
            "kernel": {"kernel_type": KERNELS[layer["type"]], "infer_param_type": ""},
            "output_converters": {"kernel_ids": []},
        }
    sse = {
        "summary": "portable convolutions, SSE rectifiers",
        "squential_ids": list(table),
        **table,
    }
    empty = {"summary": "", "squential_ids": []}
    others = [
        "cpu_avx",
        "cpu_armv7",
        "cpu_armv8",
        "gpu_opengl",
        "gpu_metal",
        "gpu_cuda",
        "cpu_armv82",
    ]
    return {"cpu_sse": sse, **{name: empty for name in others}}


def write_model(path, weights, summary, made):
    """Writes the model; `weights` as network.folded gives them, `made` a datetime."""
    layers = layers_of(weights)
    network = {
        "serializable_type": "QRModelInfo",
        "squential_output_ids": [layers[-1]["id"]],
        "extra_info": extra_info(summary, made),
        "squential_ids": [layer["id"] for layer in layers],
        "squential_types": [layer["type"] for layer in layers],
        **{layer["id"]: layer for layer in layers},
    }
    model = {
        "serialization_protocol_version": PROTOCOL_VERSION,
        "sdk_type": "qrt",
        "core_major_ver": 1,
        "core_minor_ver": 0,
        "sdk_major_ver": 1,
        "sdk_minor_ver": 0,
        "model_arr": {
            "serializable_type": "QRModelInfoArr",
            "squential_ids": [NETWORK],
            NETWORK: network,
        },
        "config_arr": {"squential_ids": [NETWORK], NETWORK: configuration(layers)},
    }
    with open(path, "w", encoding="ascii", newline="\n") as text:
        json.dump(model, text, indent=4)
