"""What prepares and measures models: tune, bench and verify."""

import json
import os
import pickle
import signal
import types

import models
import numpy as np
import pytest
import qrt_core as qrt

NODES = "/usr/share/libonnx-testdata/data/node"
PICTURE = np.random.default_rng(3).random((1, 28, 28), dtype=np.float32)


def why_no_nodes():
    """Why the nodes can't be read: Debian's files are missing, or the build doesn't read ONNX files; empty where it does."""
    path = os.path.join(NODES, "test_relu", "model.onnx")
    if not os.path.exists(path):
        return "there is no libonnx-testdata"
    try:
        qrt.import_onnx(path, kernels="portable")
    except qrt.OnnxFileError as error:
        return str(error)
    return ""


needs_nodes = pytest.mark.skipif(bool(why_no_nodes()), reason=why_no_nodes())


@pytest.fixture(scope="module")
def wisdom(tmp_path_factory):
    return tmp_path_factory.mktemp("wisdom") / "wisdom.json"


@pytest.fixture(scope="module")
def tuned(wisdom):
    steps = []
    model = qrt.tune(models.DIGITS, kernels="sse", wisdom=wisdom, progress=lambda *step: steps.append(step))
    return model, steps


def test_tunes(tuned, wisdom, tmp_path):
    model, steps = tuned
    tuning = model.tuning
    assert (tuning.network, tuning.kernels, tuning.tolerance) == ("digits", "sse", 1e-4)
    assert tuning.is_complete and not tuning.is_interrupted and tuning.measured > 0
    assert tuning.configurations[0].name == "given"
    assert tuning.chosen in [ran.name for ran in tuning.configurations]
    assert all(channels % 8 == 0 for channels in tuning.padded.values())
    # Kernels that are close are exchanged behind the run of the configurations, so that times differ from theirs.
    assert 0 < tuning.after_ms <= tuning.before_ms
    done, of, seconds = steps[-1]
    assert 1 <= done <= of == 10 and seconds >= 0 and [step[0] for step in steps] == sorted(step[0] for step in steps)
    assert all(layer.kernel for layer in tuning.layers) and tuning.difference <= 1e-3
    assert list(tuning.to_dict()) == ["id", "before", "kernel", "candidates", "ms", "before_ms"]
    assert f"({tuning.chosen})" in str(tuning) and "<table>" in tuning._repr_html_() and "digits" in repr(tuning)
    expected = qrt.load(models.DIGITS)["digits"](PICTURE)
    np.testing.assert_allclose(model["digits"](PICTURE), expected, atol=1e-3)
    model.save(tmp_path / "tuned.json")
    assert "qrt_tuned" in (tmp_path / "tuned.json").read_text()
    assert qrt.load(tmp_path / "tuned.json").tuning is None
    assert pickle.loads(pickle.dumps(model)).tuning == tuning
    assert "times" in json.loads(wisdom.read_text())


def test_earlier_measurements_are_taken(tuned, wisdom):
    again = qrt.tune(models.DIGITS, kernels="sse", wisdom=wisdom)
    assert again.tuning.measured == 0 and again.tuning.remembered >= tuned[0].tuning.measured


def test_the_usual_wisdom_is_in_the_folder_for_caches(tmp_path, monkeypatch):
    monkeypatch.setenv("XDG_CACHE_HOME", str(tmp_path))
    model = models.model(pair=models.two_inputs())
    qrt.tune(model, kernels="sse", inputs={"a": (1, 4, 4), "b": (1, 4, 4)}, wisdom=False)
    assert not list(tmp_path.iterdir())
    qrt.tune(model, kernels="sse", inputs={"a": (1, 4, 4), "b": (1, 4, 4)})
    assert (tmp_path / "qrt" / "wisdom.json").exists()


def test_an_interrupt_keeps_the_best_so_far(caplog):
    def interrupt(*step):
        signal.raise_signal(signal.SIGINT)

    model = qrt.tune(models.DIGITS, kernels="sse", wisdom=False, progress=interrupt)
    assert model.tuning.is_interrupted and not model.tuning.is_complete and model.tuning.measured == 0
    assert "not everything was measured" in caplog.text
    np.testing.assert_allclose(model[0](PICTURE), qrt.load(models.DIGITS)[0](PICTURE), atol=1e-3)


def test_what_progress_raises_goes_on():
    def fail(*step):
        raise KeyError("mine")

    with pytest.raises(KeyError, match="mine"):
        qrt.tune(models.DIGITS, kernels="sse", wisdom=False, progress=fail)


def test_a_budget_ends_the_measurements_and_progress_is_shown(capfd):
    model = qrt.tune(models.DIGITS, kernels="sse", wisdom=False, budget=0, progress=True)
    assert model.tuning.measured == 0 and not model.tuning.is_complete and not model.tuning.is_interrupted
    assert capfd.readouterr().err.endswith("\n")


def test_several_sizes():
    pair = models.model(pair=models.two_inputs())
    sizes = [{"a": (1, 2, 3), "b": (1, 2, 3)}, {"a": (2, 9, 9), "b": (2, 9, 9)}]
    tuning = qrt.tune(pair, inputs=sizes, weights=(2, 0.5), kernels="portable", wisdom=False).tuning
    assert [size.inputs for size in tuning.sizes] == sizes and [size.weight for size in tuning.sizes] == [2, 0.5]
    for ms in ("before_ms", "after_ms"):
        assert sum(size.weight * getattr(size, ms) for size in tuning.sizes) == pytest.approx(getattr(tuning, ms))
    assert tuning.changes_kept <= tuning.changes_tried <= 8
    (one,) = qrt.tune(pair, inputs=sizes[0], kernels="portable", wisdom=False).tuning.sizes
    assert one.inputs == sizes[0] and one.weight == 1
    for options, text in (
        ({"inputs": []}, "inputs: expected shapes of at least one size"),
        ({"inputs": sizes, "weights": [1]}, "weights: expected one for each size, 2, found 1"),
        ({"inputs": sizes, "weights": [1, 0]}, "weights: expected numbers above 0, found 0.0"),
        ({"inputs": [sizes[0], {"a": (1, 2, 3)}]}, "doesn't say how large its input 'b' is"),
    ):
        with pytest.raises(ValueError, match=text):
            qrt.tune(pair, wisdom=False, **options)


def test_options_of_tune():
    pair = models.model(pair=models.two_inputs())
    shapes = {"a": (1, 2, 3), "b": (1, 2, 3)}
    for options, text in (
        ({"kernels": "neon"}, "kernels 'neon': expected 'portable'"),
        ({"numerics": "wild"}, "numerics 'wild': expected 'same'"),
        ({"numerics": -1.0}, "numerics -1.0"),
        ({"budget": -1}, "budget"),
        ({}, "doesn't say how large its input 'a' is"),
        ({"inputs": {**shapes, "c": (1,)}}, "has no input 'c'; it has 'a', 'b'"),
    ):
        with pytest.raises(ValueError, match=text):
            qrt.tune(pair, wisdom=False, **options)
    with pytest.raises(TypeError, match="expected sizes"):
        qrt.tune(pair, wisdom=False, inputs={"a": "large", "b": (1, 2, 3)})
    with pytest.raises(qrt.NotFoundError):
        qrt.tune(pair, network="other")
    with pytest.raises(qrt.LayerError):
        qrt.tune(models.DIGITS, inputs={"input": (3, 28, 28)})
    two = models.model(one=models.two_inputs(), two=models.two_inputs())
    with pytest.raises(ValueError, match="expected one of 'one', 'two'"):
        qrt.tune(two, inputs=shapes)
    model = qrt.tune(two, network="two", inputs=shapes, kernels="portable", numerics="same", wisdom=False)
    assert model.networks == ["one", "two"] and model.tuning.tolerance == 0


def test_arguments_of_other_types():
    file = "none.onnx"  # arguments are looked at first
    words = "expected 'portable', 'sse', 'avx', 'fma', 'avx2' or 'avx512' or None"
    for call, options, text in (
        (qrt.import_onnx, {"kernels": 3}, f"kernels: {words}, found 3"),
        (qrt.verify, {"kernels": b"sse"}, f"kernels: {words}, found bytes"),
        (qrt.tune, {"kernels": 3}, f"kernels: {words}, found 3"),
        (qrt.import_onnx, {"network": 3}, "network: expected a str or None, found 3"),
        (qrt.import_onnx, {"inputs": (1, 3)}, r"inputs: expected shapes by name, found \(1, 3\)"),
        (qrt.import_onnx, {"inputs": {1: (1, 3)}}, "inputs: expected shapes by name, found 1"),
        (qrt.import_onnx, {"inputs": {"x": "1x3"}}, "input 'x': expected sizes, such as .*, found '1x3'"),
        (qrt.import_onnx, {"constants": PICTURE}, "constants: expected arrays by name, found ndarray"),
        (qrt.import_onnx, {"constants": {"x": "text"}}, "constants: 'x': expected an array of numbers, found 'text'"),
        (qrt.import_onnx, {"constants": {"x": None}}, "constants: 'x': expected an array of numbers, found NoneType"),
        (qrt.verify, {"data": "text"}, "data: expected an array of numbers, found 'text'"),
        (qrt.tune, {"inputs": 3}, "inputs: expected shapes by input id, found 3"),
        (qrt.tune, {"inputs": {3: (1,)}}, "inputs: expected shapes by input id, found 3"),
    ):
        with pytest.raises(TypeError, match=text):
            if call is qrt.tune:
                call(models.DIGITS, wisdom=False, **options)
            else:
                call(file, **options)
    model = qrt.load(models.DIGITS)
    for shapes in (3, {"digits": 3}, {3: {}}, {"digits": {3: (1,)}}):
        with pytest.raises(TypeError, match="inputs: expected shapes by network and input id, found 3"):
            model.check(shapes)


@needs_nodes
def test_other_mappings_than_dicts():
    path = os.path.join(NODES, "test_relu", "model.onnx")
    shapes = types.MappingProxyType({"x": (3, 4, 5)})
    model = qrt.import_onnx(path, inputs=shapes, kernels="portable")
    ramp = np.linspace(-2, 7, 60).reshape(3, 4, 5)
    assert qrt.verify(path, data=types.MappingProxyType({"x": ramp}))[-1].largest_value == 7
    digits = types.MappingProxyType({"input": (1, 28, 28)})
    assert qrt.load(models.DIGITS).check(types.MappingProxyType({"digits": digits})) == []
    assert qrt.explain(model, seconds=0.01, inputs=shapes).passes > 0


def test_benches():
    result = qrt.bench(models.DIGITS, qrt.load(models.DIGITS_BINARY), open(models.DIGITS, "rb").read(), seconds=0.05)
    assert [network.name for network in result] == ["digits.json", "digits.qrtmodel", "model 3"] and len(result) == 3
    first = result[0]
    assert first.network == "digits" and first.passes == len(first.wall_ms) == len(first.cpu_ms) >= 10
    assert first.min_ms <= first.median_ms <= first.p90_ms <= first.p99_ms <= first.max_ms
    assert first.median_ms == pytest.approx(np.median(first.wall_ms))
    low, high = first.median_interval_ms
    assert low <= first.median_ms <= high and first.passes_per_second > 0 and first.load_ms > 0
    assert first.pool_growth_bytes == 0 and first.dynamic_pool_bytes > 0
    assert [(ratio.first, ratio.second) for ratio in result.ratios] == [(0, 1), (0, 2)]
    for ratio in result.ratios:
        assert 0 < ratio.low <= ratio.time <= ratio.high and ratio.verdict in ("faster", "slower", "alike")
    assert result.threads == 1 and result.peak_resident_bytes >= result.resident_bytes > 0
    assert result.to_dict()["name"][1] == "digits.qrtmodel" and "wall_ms" not in result.to_dict()
    assert "digits.qrtmodel takes" in str(result) and result._repr_html_().count("<tr>") == 4
    assert "digits.json: " in repr(result)


def test_benches_on_threads_and_given_shapes():
    pair = models.model(pair=models.two_inputs())
    shapes = {"a": (1, 1, 8), "b": (1, 1, 8)}
    result = qrt.bench(pair, names=["mine"], inputs=shapes, threads=2, seconds=0.05, keep_state=True)
    assert result[0].name == "mine" and result.threads == 2
    for options, text in (
        ({"names": []}, "names: expected 1, found 0"),
        ({"threads": 0}, "needs a thread"),
        ({"seconds": 0}, "seconds"),
        ({"cpu": 99999}, "99999"),
        ({"inputs": None}, "doesn't say how large"),
    ):
        with pytest.raises(ValueError, match=text):
            qrt.bench(pair, **{"inputs": shapes, **options})
    with pytest.raises(ValueError, match="no network"):
        qrt.bench()
    with pytest.raises(qrt.NotFoundError):
        qrt.bench(models.DIGITS, network="other")


def test_an_interrupt_ends_a_bench():
    before = signal.signal(signal.SIGALRM, signal.default_int_handler)
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.3)
        with pytest.raises(KeyboardInterrupt):
            qrt.bench(models.DIGITS, seconds=100)
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)


def test_explains():
    steps = []
    result = qrt.explain(models.DIGITS, seconds=0.05, progress=lambda *step: steps.append(step))
    assert len(result) == 10 and result.network == "digits" and result.passes >= 5
    assert steps[0][0] == 0 and all(done <= of for done, of in steps) and steps == sorted(steps)
    layer = result[1]
    assert (layer.id, layer.kind, layer.shape, layer.sources) == ("conv1", "Conv2d", (16, 14, 14), ("input",))
    assert layer.kernel == qrt.load(models.DIGITS)[0].layers[1].kernel
    assert layer.multiply_adds == 16 * 14 * 14 * 25 and layer.ms > 0 and 0 < layer.limit_ms and layer.limit
    assert layer.of_limit == pytest.approx(layer.limit_ms / layer.ms) and layer.bytes > 4 * 16 * 14 * 14
    assert layer.gigaflops == pytest.approx(2 * layer.multiply_adds / layer.ms / 1e6)
    assert result.pass_ms > 0 and result.kernels_ms == pytest.approx(sum(row.ms for row in result), rel=0.2)
    assert sum(kind.kernels for kind in result.kinds) >= 9 and "Conv2d" in [kind.kind for kind in result.kinds]
    machine = result.machine
    assert machine.gigaflops["sse"] > 0 and machine.gigahertz > 0 and machine.levels[-1].name == "memory"
    assert machine.levels[0].read["sse"] > machine.levels[-1].read["sse"] > 0
    assert result.to_dict()["id"][1] == "conv1" and "conv1" in str(result) and "<td>conv1</td>" in result._repr_html_()
    assert machine.processor in repr(result)
    # The machine is measured once.
    assert qrt.explain(models.DIGITS, seconds=0.01, network=0).machine == machine
    with pytest.raises(ValueError, match="seconds"):
        qrt.explain(models.DIGITS, seconds=0)

    def interrupt(*step):
        raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        qrt.explain(models.DIGITS, progress=interrupt)


def test_explains_the_candidates(wisdom, tmp_path, caplog):
    page = tmp_path / "page.html"
    result = qrt.explain(models.DIGITS, seconds=0.02, candidates=True, kernels="sse", wisdom=wisdom, html=page)
    assert result.is_complete and not result.notes and result[0].candidates == ()
    layer = result[1]
    (chosen,) = [candidate for candidate in layer.candidates if candidate.is_chosen]
    assert chosen.kernel == layer.kernel and chosen.is_measured and chosen.difference == 0
    assert chosen.inputs == (((1, 28, 28), "CHW"),) and chosen.output.layout == "CHW"
    assert [c.whole_ms for c in layer.candidates] == sorted(c.ms + c.converters_ms for c in layer.candidates)
    assert layer.second is min((c for c in layer.candidates if not c.is_chosen), key=lambda c: c.whole_ms)
    assert all(candidate.needs in ("portable", "sse") for candidate in layer.candidates)
    reasons = {refusal.kernel: refusal.reasons for refusal in layer.refusals}
    assert reasons and all(text for texts in reasons.values() for text in texts)
    assert page.read_text().count('<details id="layer-') == 10 and "digits.json" in page.read_text()
    assert qrt.explain(models.DIGITS, seconds=0.01)[1].second is None
    short = qrt.explain(models.DIGITS, seconds=0.01, candidates=True, kernels="sse", wisdom=False, budget=0)
    assert not short.is_complete and "estimates" in caplog.text
    with pytest.raises(ValueError, match="budget"):
        qrt.explain(models.DIGITS, budget=-1)
    with pytest.raises(ValueError, match="kernels 'neon'"):
        qrt.explain(models.DIGITS, kernels="neon")
    steps = []
    for wrong, kind in ((tmp_path / "none" / "page.html", FileNotFoundError), (tmp_path, IsADirectoryError)):
        with pytest.raises(kind) as failure:
            qrt.explain(models.DIGITS, html=wrong, progress=lambda *step: steps.append(step))
        assert failure.value.filename == str(wrong) and not steps


def test_tuning_tells_what_came_second(tuned, wisdom):
    assert tuned[0].tuning.candidates == tuned[0].tuning.refusals == {}
    with pytest.raises(KeyError):
        tuned[0].tuning.second("conv1")
    model = qrt.tune(models.DIGITS, kernels="sse", wisdom=wisdom, candidates=True)
    tuning = model.tuning
    candidates = tuning.candidates["conv1"]
    assert "input" not in tuning.candidates and candidates[0].is_chosen
    assert candidates[0].kernel == "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"
    second = tuning.second("conv1")
    now = model["digits"].layers[1].kernel
    assert second in candidates and second.kernel != now and second.is_measured
    assert second.whole_ms == min(candidate.whole_ms for candidate in candidates if candidate.kernel != now)
    reasons = {refusal.kernel: refusal.reasons for refusal in tuning.refusals["conv1"]}
    assert all(texts[0] for texts in reasons.values())
    assert "window: needs 1 x 1, has 5 x 5" in [text for texts in reasons.values() for text in texts]
    assert pickle.loads(pickle.dumps(model)).tuning == tuning


@needs_nodes
def test_verifies():
    folder = os.path.join(NODES, "test_relu")
    steps = []
    result = qrt.verify(
        os.path.join(folder, "model.onnx"),
        kernels="portable",
        test_data=os.path.join(folder, "test_data_set_0"),
        progress=lambda *step: steps.append(step),
    )
    assert result.agrees and result.first_beyond is None and result.not_compared == 0
    assert steps and steps[-1][0] == steps[-1][1]
    layer = result[-1]
    assert "ReLU" in layer.kernel and layer.shape == (3, 4, 5) and layer.difference <= layer.bound
    assert layer.largest_value > 0 and not layer.is_beyond and [output.id for output in result.test_data] == [layer.id]
    assert "all" in str(result) and "test data: " in str(result) and "<td>" in result._repr_html_()
    assert result.to_dict()["is_beyond"] == [False] * len(result)
    x = np.random.default_rng(1).standard_normal((3, 4, 5)).astype(np.float32)
    np.testing.assert_array_equal(result.model[0](x), np.maximum(x, 0))


@needs_nodes
def test_verifies_on_given_numbers():
    path = os.path.join(NODES, "test_relu", "model.onnx")
    ramp = np.linspace(-2, 7, 60).reshape(3, 4, 5)
    for data in (ramp, {"x": ramp}):
        assert qrt.verify(path, data=data)[-1].largest_value == 7
    with pytest.raises(qrt.UnsupportedError, match="2x4x5 were given, not 3x4x5"):
        qrt.verify(path, data=ramp[:2])
    with pytest.raises(qrt.OnnxFileError):
        qrt.verify(path, test_data="/no/such/folder")
    with pytest.raises(ValueError, match="kernels 'neon'"):
        qrt.verify(path, kernels="neon")

    def interrupt(*step):
        raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        qrt.verify(path, progress=interrupt)


def test_a_layer_beyond_its_bound_is_told():
    rows = [
        ("a", "a", "K", (2, 2), 1.0, 1e-7, 1e-7, 1e-6, 1e-3, 1e-3, 0),
        ("b", "n", "K", (2, 2), 1.0, float("nan"), 1e-7, 1e-6, 1e-3, 1e-3, 3),
    ]
    result = qrt.Verification(qrt.load(models.DIGITS), rows)
    assert not result.agrees and result.first_beyond is result[1]
    assert "layer b (K) is the first beyond its bound" in str(result) and result.to_dict()["is_beyond"] == [False, True]
