"""What is told of models: check, info, kernels, profiles, errors, the log."""

import json
import logging
import os
import pickle

import models
import numpy as np
import pytest
import qrt_core as qrt

PICTURE = np.zeros((1, 28, 28), np.float32)


def test_a_right_model_has_no_findings():
    assert qrt.check(models.DIGITS) == []
    assert qrt.load(models.DIGITS).check({"digits": {"input": (1, 28, 28)}}) == []


def test_findings():
    data = json.loads(open(models.DIGITS).read())
    data["model_arr"]["digits"]["conv1"]["stride_z"] = 2
    (finding,) = qrt.check(json.dumps(data).encode())
    assert (finding.code, finding.severity, finding.network) == ("unknown-member", "warning", "digits")
    assert "stride_z" in finding.member and "stride_z" in str(finding) and repr(finding).startswith("<Finding")
    assert (finding.layer, finding.id, finding.kind) == (1, "conv1", "Conv2d")
    findings = qrt.load(models.DIGITS).check({"digits": {"input": (2, 28, 28)}})
    assert "wrong-shape" in [finding.code for finding in findings]
    assert [finding.code for finding in qrt.check(b"nothing")] == ["unreadable"]


def test_info():
    info = qrt.info(models.DIGITS)
    assert info["sdk_type"] == "qrt" and info["core_version"] == (1, 0)
    (network,) = info["networks"]
    assert (network["inputs"], network["outputs"], network["base_height"]) == (["input"], ["conv5"], 28)
    conv = network["layers"][1]
    assert (conv["id"], conv["kind"], conv["weights"], conv["inputs"]) == ("conv1", "Conv2d", 16 * 25 + 16, ["input"])
    assert conv["attributes"]["stride_x"] == 2 and "weight" not in conv["attributes"]
    assert network["weights"] == sum(layer["weights"] for layer in network["layers"])
    assert json.loads(json.dumps(info))["networks"][0]["id"] == "digits"
    assert "conv1 (Conv2d)" in str(info) and "<td>conv1</td>" in info._repr_html_()
    assert qrt.info(qrt.load(models.DIGITS_BINARY))["networks"][0]["weights"] == network["weights"]
    with pytest.raises(qrt.ModelError):
        qrt.info(b"nothing")


def test_kernels():
    kernels = {kernel.name: kernel for kernel in qrt.kernels()}
    assert kernels["Input_Fallback_M1"].needs == "baseline" and kernels["Input_Fallback_M1"].runs_here
    assert list(kernels) == sorted(kernels)
    assert {kernel.needs for kernel in kernels.values()} <= {"baseline", "avx", "fma", "avx2", "avx512"}


def test_profile():
    net = qrt.load(models.DIGITS)["digits"]
    profile = net.profile(PICTURE, repeat=3)
    assert len(profile) == 10 and profile.passes == 3 and profile.network == "digits"
    row = profile[1]
    assert (row.layer, row.id, row.kind, row.role, row.shape) == (1, "conv1", "Conv2d", "", (16, 14, 14))
    assert row.bytes == 4 * (28 * 28 + 16 * 14 * 14) and profile.pass_ms > 0 and profile.cpu_ms > 0
    assert row.ms > 0 and sum(row.share for row in profile) == pytest.approx(1)
    columns = profile.to_dict()
    assert list(columns)[:2] == ["layer", "id"] and columns["id"][9] == "conv5"
    lines = str(profile).split("\n")
    assert len(lines) == 12 and lines[2].split()[:3] == ["1", "conv1", "Conv2d"]
    assert "16 x 14 x 14" in lines[2] and "median of 3 passes" in lines[-1]
    assert profile._repr_html_().count("<tr>") == 11
    with pytest.raises(ValueError, match="repeat"):
        net.profile(PICTURE, repeat=0)


def test_html_is_escaped():
    layers = [models.input_layer("<x>"), models.relu("<y>", "<x>")]
    model = models.model(net=models.network(layers, ["<y>"]))
    profile = qrt.load(model)["net"].profile(np.zeros((1, 1, 4), np.float32), repeat=1)
    for text in (profile._repr_html_(), qrt.info(model)._repr_html_()):
        assert "&lt;y&gt;" in text and "<y>" not in text


def test_errors_have_fields_and_pickle():
    data = json.loads(open(models.DIGITS).read())
    kernels = [kernel.name for kernel in qrt.kernels()]
    refusing = next(name for name in kernels if name.lower().startswith("conv2d_k1x1"))
    data["config_arr"]["digits"]["cpu_sse"]["conv1"]["kernel"]["kernel_type"] = refusing
    with pytest.raises(qrt.LayerError) as caught:
        qrt.load(json.dumps(data).encode())
    failure = caught.value
    assert isinstance(failure, qrt.Error)
    assert (failure.network, failure.layer, failure.id, failure.kind) == ("digits", 1, "conv1", "Conv2d")
    assert failure.kernel == refusing and failure.misfits
    assert failure.expected == failure.misfits[0].expected and failure.found == failure.misfits[0].found
    assert refusing in str(failure)
    copy = pickle.loads(pickle.dumps(failure))
    assert type(copy) is qrt.LayerError and copy.misfits == failure.misfits and str(copy) == str(failure)


def test_the_log_goes_to_logging(caplog):
    with caplog.at_level(logging.DEBUG, "qrt_core"):
        qrt.load(models.DIGITS).to_bytes("qrtmodel")
        data = open(models.DIGITS_BINARY, "rb").read() + b"more"
        qrt.info(data)
    assert [(record.name, record.levelname) for record in caplog.records] == [("qrt_core", "WARNING")]
    assert caplog.records[0].getMessage().startswith("4 bytes follow the object")


def test_every_public_name_says_what_it_is():
    for name in qrt.__all__:
        assert getattr(qrt, name).__doc__, name
        for member, value in getattr(getattr(qrt, name), "__dict__", {}).items():
            if not member.startswith("_") and (callable(value) or isinstance(value, property)):
                assert value.__doc__, f"{name}.{member}"
    assert qrt.__version__.count(".") == 2


def test_a_notebook_shows_models_and_networks():
    model = qrt.load(models.DIGITS)
    shown = model._repr_html_()
    assert "<td>digits</td><td>10</td><td>input: 1 x 28 x 28</td>" in shown and "digits.json" in shown
    shown = model["digits"]._repr_html_()
    assert shown.count("<tr>") == 11 and "<td>conv1</td><td>Conv2d</td>" in shown and "from input: 1 x 28 x 28" in shown


def test_what_cant_be_saved_names_the_file(tmp_path):
    path = tmp_path / "none" / "m.json"
    with pytest.raises(FileNotFoundError) as caught:
        qrt.load(models.DIGITS).save(path)
    assert caught.value.filename == os.fspath(path)
