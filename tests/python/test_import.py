"""Models of ONNX files, from the data that Debian has for that library (libonnx-testdata)."""

import os
import pickle

import numpy as np
import pytest
import qrt_core as qrt

FOLDER = "/usr/share/libonnx-testdata/data/node"

pytestmark = pytest.mark.skipif(not os.path.isdir(FOLDER), reason="there is no libonnx-testdata")


def case(name):
    return os.path.join(FOLDER, name, "model.onnx")


def test_imports_runs_and_saves(tmp_path):
    model = qrt.import_onnx(case("test_relu"), network="net", kernels="portable")
    assert model.networks == ["net"] and model.report["inputs"][0]["name"] == "x"
    assert model.report["kernels"] == "portable" and model.path is None
    x = np.random.default_rng(1).standard_normal(model["net"].inputs[0].shape or (3, 4, 5)).astype(np.float32)
    np.testing.assert_array_equal(model["net"](x), np.maximum(x, 0))
    model.save(tmp_path / "net.qrtmodel")
    np.testing.assert_array_equal(qrt.load(tmp_path / "net.qrtmodel")["net"](x), np.maximum(x, 0))
    copy = pickle.loads(pickle.dumps(model))
    assert copy.report == model.report
    np.testing.assert_array_equal(copy[0](x), np.maximum(x, 0))


def test_a_pass_that_fails_again_says_the_same_and_logs_nothing(caplog):
    table = np.arange(120, dtype=np.float32).reshape(5, 4, 3, 2)
    model = qrt.import_onnx(case("test_gather_0"), constants={"data": table}, kernels="portable")
    caplog.clear()
    rows, beyond = np.array([0, 1, 3], np.float32), np.array([0, 1, 99], np.float32)
    with pytest.raises(qrt.Error, match="99") as first:
        model[0](beyond)
    for _ in range(2):
        np.testing.assert_array_equal(model[0](rows).ravel(), table[[0, 1, 3]].ravel())
        net = model[0]
        net(rows)
        with pytest.raises(qrt.Error) as again:
            net(beyond)
        assert str(again.value) == str(first.value)
        np.testing.assert_array_equal(net(rows).ravel(), table[[0, 1, 3]].ravel())
    assert not caplog.records


def test_refusals():
    with pytest.raises(qrt.OnnxFileError):
        qrt.import_onnx(__file__)
    for missing in (qrt.import_onnx, qrt.verify):
        with pytest.raises(FileNotFoundError) as failure:
            missing("/no/such/file.onnx")
        assert failure.value.filename == "/no/such/file.onnx"
    with pytest.raises(qrt.UnsupportedError) as failure:
        qrt.import_onnx(case("test_strnormalizer_export_monday_casesensintive_lower"))
    assert failure.value.refusals and failure.value.refusals[0].why
    with pytest.raises(ValueError, match="kernels 'neon': expected 'portable'"):
        qrt.import_onnx(case("test_relu"), kernels="neon")
    with pytest.raises(TypeError):
        qrt.import_onnx(3)
