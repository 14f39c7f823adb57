"""Loading and running networks."""

import gc
import json
import multiprocessing
import os
import pathlib
import pickle
import threading
import types

import models
import numpy as np
import pytest
import qrt_core as qrt


@pytest.fixture(scope="module")
def digits():
    return qrt.load(models.DIGITS)["digits"]


@pytest.fixture
def picture():
    return np.random.default_rng(1).random((1, 28, 28), dtype=np.float32)


@pytest.fixture
def pair():
    return qrt.load(models.model(pair=models.two_inputs()))["pair"]


A = np.array([[[1, -2, 3]]], np.float32)
B = np.array([[[4, -5, 6]]], np.float32)


@pytest.mark.parametrize(
    "source",
    [models.DIGITS, pathlib.Path(models.DIGITS), open(models.DIGITS, "rb").read(), models.DIGITS_BINARY],
    ids=["str", "path", "bytes", "binary"],
)
def test_loads_from(source, digits, picture):
    model = qrt.load(source)
    assert list(model) == model.networks == ["digits"]
    assert len(model) == 1 and "digits" in model and "other" not in model
    np.testing.assert_array_equal(model[0](picture), model["digits"](picture))
    np.testing.assert_allclose(model[-1](picture), digits(picture), rtol=0.01, atol=0.02)


def test_bytearrays_are_copied(picture, digits):
    data = bytearray(open(models.DIGITS, "rb").read())
    model = qrt.load(memoryview(data))
    data[:] = bytes(len(data))
    np.testing.assert_array_equal(pickle.loads(pickle.dumps(model))["digits"](picture), digits(picture))


def test_what_is_no_source():
    with pytest.raises(TypeError, match="path or bytes, and not int"):
        qrt.load(3)
    with pytest.raises(FileNotFoundError) as failure:
        qrt.load("/no/such/file.json")
    assert failure.value.filename == "/no/such/file.json"
    with pytest.raises(IsADirectoryError):
        qrt.load(models.ROOT)
    with pytest.raises(qrt.ModelError):
        qrt.load(b"not a model")
    with pytest.raises(qrt.ModelError):
        qrt.load(b"")


def test_networks_by_id_and_number(digits):
    model = qrt.load(models.model(first=models.two_inputs(), second=models.two_inputs()))
    assert [model[i].id for i in (0, 1, -1, -2)] == ["first", "second", "second", "first"]
    with pytest.raises(IndexError):
        model[2]
    with pytest.raises(qrt.NotFoundError, match="'third'; there is 'first', 'second'"):
        model["third"]
    with pytest.raises(KeyError):
        model["third"]
    with pytest.raises(TypeError):
        model[1.5]


def test_agrees_with_the_scores_of_the_model(digits):
    lines = [line.split() for line in open(os.path.join(models.ROOT, "models/digits/samples/expected_logits.txt"))]
    image = pytest.importorskip("PIL.Image")
    for name, *logits in (line for line in lines if line[0] != "#"):
        path = os.path.join(models.ROOT, "models/digits/samples", name)
        pixels = np.asarray(image.open(path).convert("L"), np.float32)[None] / 255
        if pixels.shape == (1, 28, 28):
            np.testing.assert_allclose(digits(pixels).reshape(-1), np.array(logits, float), atol=2e-5)


def test_ports_and_layers(digits, picture):
    (port,) = digits.inputs
    assert (port.id, port.layer, port.shape, port.dtype, port.layout) == (
        "input", 0, (1, 28, 28), np.dtype("float32"), "CHW")  # fmt: skip
    digits(picture)
    assert [(out.id, out.shape) for out in digits.outputs] == [("conv5", (10, 1, 1))]
    layers = digits.layers
    assert [layer.index for layer in layers] == list(range(10))
    assert (layers[1].id, layers[1].kind, layers[1].inputs) == ("conv1", "Conv2d", ["input"])
    assert layers[1].kernel == "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"
    assert layers[0].is_input and not layers[0].inputs and layers[9].is_output
    assert repr(layers[2]).startswith("Layer(index=2, id='relu1'")


def test_one_output_is_an_array_and_several_are_a_dict(digits, pair, picture):
    assert digits(picture).shape == (10, 1, 1)
    results = pair(A, B)
    assert list(results) == ["sum", "top"]
    np.testing.assert_array_equal(results["sum"], A + B)
    np.testing.assert_array_equal(results["top"], np.maximum(A + B, 0))


def test_inputs_by_name(pair):
    for results in (pair(a=A, b=B), pair(A, b=B), pair.run({"b": B, "a": A}), pair.run([A, B]), pair.run((A, B))):
        np.testing.assert_array_equal(results["sum"], A + B)


def test_requested_layers(digits, picture):
    relu = digits(picture, outputs="relu1")
    assert relu.shape == (16, 14, 14) and relu.min() == 0
    both = digits(picture, outputs=["conv5", "relu1"])
    assert list(both) == ["conv5", "relu1"]
    np.testing.assert_array_equal(both["relu1"], relu)
    np.testing.assert_array_equal(both["conv5"], digits(picture))
    with pytest.raises(qrt.InputError, match="no layer"):
        digits(picture, outputs="relu9")
    with pytest.raises(ValueError, match="twice"):
        digits(picture, outputs=["relu1", "relu1"])
    with pytest.raises(ValueError, match="none"):
        digits(picture, outputs=[])
    with pytest.raises(TypeError):
        digits(picture, outputs=[1])


def test_an_input_that_is_asked_for_is_a_copy(pair):
    x = A.copy()
    results = pair(x, B, outputs=["a", "sum"])
    assert not np.shares_memory(results["a"], x)
    results["a"][:] = 9
    np.testing.assert_array_equal(x, A)


@pytest.mark.parametrize("dtype", ["float64", "float16", "int64", "uint8", "bool", ">f4"])
def test_other_types_are_converted(digits, picture, dtype):
    x = (picture * 3).astype(dtype)
    np.testing.assert_array_equal(digits(x), digits(x.astype(np.float32)))


def test_any_strides(digits):
    whole = np.random.default_rng(2).random((2, 60, 56), dtype=np.float32)
    for x in (whole[1:, ::2, ::2][:, :28], whole[:1, 28:0:-1, 28:0:-1], np.asfortranarray(whole[:1, :28, :28])):
        np.testing.assert_array_equal(digits(x), digits(np.ascontiguousarray(x)))
    zeros = np.broadcast_to(np.float32(0.5), (1, 28, 28))
    np.testing.assert_array_equal(digits(zeros), digits(zeros.copy()))
    shifted = np.zeros(784 * 4 + 1, np.uint8)[1:].view(np.float32).reshape(1, 28, 28)
    assert not shifted.flags.aligned
    np.testing.assert_array_equal(digits(shifted), digits(np.zeros((1, 28, 28), np.float32)))


def test_read_only_arrays_lists_and_a_batch_of_one(digits, picture):
    expected = digits(picture)
    picture.flags.writeable = False
    np.testing.assert_array_equal(digits(picture), expected)
    np.testing.assert_array_equal(digits(picture.tolist()), expected)
    np.testing.assert_array_equal(digits(picture[None]), expected)


@pytest.mark.parametrize("value", [None, "text", [["a"]], object(), np.zeros((1, 28, 28), complex)])
def test_what_has_no_numbers(digits, value):
    with pytest.raises(TypeError, match="input 'input': expected an array of float32"):
        digits(value)


def test_wrong_inputs(digits, pair, picture):
    with pytest.raises(qrt.InputError, match=r"takes 2 inputs \('a', 'b'\), and 'b' is missing"):
        pair(A)
    with pytest.raises(qrt.InputError, match="was given 3"):
        pair(A, B, A)
    with pytest.raises(qrt.InputError, match="none is named 'c'"):
        pair(A, c=B)
    with pytest.raises(qrt.InputError, match="given twice"):
        pair(A, a=B)
    with pytest.raises(qrt.LayerError) as failure:
        digits(np.zeros((2, 28, 28), np.float32))
    assert (failure.value.network, failure.value.layer, failure.value.id) == ("digits", 1, "conv1")
    assert failure.value.kernel == "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"
    assert failure.value.expected and failure.value.found
    # It can run again.
    assert digits(picture).shape == (10, 1, 1)


def test_kernels_that_work_in_place_leave_the_callers_array():
    layers = [models.input_layer("x"), models.relu("y", "x", "ReLU_Inplace_SSE_Float_M1")]
    net = qrt.load(models.model(net=models.network(layers, ["y"])))["net"]
    x = A.copy()
    np.testing.assert_array_equal(net(x), np.maximum(A, 0))
    np.testing.assert_array_equal(x, A)


def test_calls_that_repeat_give_what_others_give(pair, digits, picture):
    calls = [(A, B), (B, A), (A[None], B[None]), (A.astype(float), B), (np.zeros((1, 2, 2), np.float32),) * 2, (A, B)]
    for a, b in calls:
        for _ in range(2):
            results = pair(a, b)
            assert results["sum"].shape == a.shape
            np.testing.assert_array_equal(results["sum"], a + b)
            np.testing.assert_array_equal(results["top"], np.maximum(a + b, 0))
    for _ in range(2):
        with pytest.raises(qrt.InputError, match="'b' is missing"):
            pair(A)
        np.testing.assert_array_equal(pair(A, B)["sum"], A + B)
    first = digits(picture)
    with pytest.raises(qrt.LayerError):
        digits(picture.repeat(2, axis=0))
    np.testing.assert_array_equal(digits(picture), first)
    again = digits(picture)
    assert again.flags.writeable and again.flags.c_contiguous and again.flags.aligned and not again.flags.owndata
    assert again.strides == (4, 4, 4)
    np.testing.assert_array_equal(digits(picture), digits.__call__(picture))


def outcome(net, *arrays):
    """The shapes of a call's results, or its error."""
    try:
        results = net(*arrays)
    except qrt.Error as failure:
        return str(failure)
    return [array.shape for array in (results.values() if isinstance(results, dict) else [results])]


def test_calls_that_repeat_take_what_first_calls_take(picture):
    pair = models.model(pair=models.two_inputs())
    for data, usual, others in (
        # No shape is known of these inputs, so that an axis more is no batch.
        (pair, (A, B), [(A[None], B), (A, B[None]), (A[None], B[None]), (A[None, None], B[None, None]), (A[0], B[0])]),
        # One of three axes is known here.
        (models.DIGITS, (picture,), [(picture[None],), (picture[None, None],), (picture[0],), (picture.repeat(2, 0),)]),
    ):
        for arrays in others:
            net = qrt.load(data)[0]
            net(*usual)
            net(*usual)
            expected = outcome(qrt.load(data)[0], *arrays)
            assert outcome(net, *arrays) == expected
            assert outcome(net, *arrays) == expected


@pytest.mark.parametrize("kernel", ["ReLU_Fallback_Float_M1", "ReLU_Inplace_SSE_Float_M1"])
def test_sizes_of_the_source_are_taken_with_and_without_their_batch(kernel):
    tensor = {"name": "x", "shape": [0, 3], "layout": "SC", "batch": True, "batch_axis": 1}
    summary = json.dumps({"qrt_model": 1, "inputs": [tensor], "outputs": []}, separators=(",", ":"))
    net = qrt.load(models.model(net=models.network([models.input_layer("x"), models.relu("y", "x", kernel)], ["y"], summary)))[0]
    x = np.arange(12, dtype=np.float32).reshape(4, 1, 3) - 5
    for array in (x, x, x[:, 0], x, x[:2], x[:2, 0]):
        result = net(array)
        assert result.shape == (len(array), 3)
        np.testing.assert_array_equal(result, np.maximum(array, 0).reshape(-1, 3))


def test_outputs_tell_the_shapes_of_the_last_pass():
    model = qrt.load(models.model(pair=models.two_inputs()))
    net, other = model[0], model[0]
    small, large = np.zeros((1, 1, 3), np.float32), np.zeros((1, 2, 5), np.float32)

    def shapes(of):
        return [port.shape for port in of.outputs]

    assert shapes(net) == [None, None]
    net(large, large)
    assert shapes(net) == shapes(other) == [(1, 2, 5)] * 2
    net(small, small, outputs="sum")
    assert shapes(net)[0] == (1, 1, 3)
    net(large, large)
    assert shapes(net) == [(1, 2, 5)] * 2
    other(small, small)
    assert shapes(net) == [(1, 1, 3)] * 2
    net(large, large)
    assert shapes(net) == shapes(net.clone()) == [(1, 2, 5)] * 2
    net.profile(small, small, repeat=1)
    assert shapes(net) == [(1, 1, 3)] * 2


def test_outputs_are_read_while_another_thread_runs(picture):
    net = qrt.load(models.DIGITS)["digits"]
    done = threading.Event()

    def run():
        for _ in range(300):
            net(picture, outputs=["conv5"])
        done.set()

    thread = threading.Thread(target=run)
    thread.start()
    while not done.is_set():
        assert net.outputs[0].shape in (None, (10, 1, 1))
    thread.join()


def test_mappings_and_what_is_none(pair):
    results = pair.run(types.MappingProxyType({"a": A, "b": B}))
    np.testing.assert_array_equal(results["sum"], A + B)
    with pytest.raises(TypeError, match="inputs: expected ids of inputs, found 3"):
        pair.run({"a": A, 3: B})


def test_results_stay_valid(digits, picture):
    first = digits(picture)
    kept = first.copy()
    for _ in range(5):
        digits(picture * 2)
    np.testing.assert_array_equal(first, kept)
    net = qrt.load(models.DIGITS)["digits"]
    second = net(picture)[2:5]
    del net
    gc.collect()
    np.testing.assert_array_equal(second, kept[2:5])


def test_results_may_die_on_another_thread(picture):
    net = qrt.load(models.DIGITS)["digits"]
    bag, done = [], threading.Event()

    def drop():
        while not done.is_set() or bag:
            if bag:
                bag.pop()

    thread = threading.Thread(target=drop)
    thread.start()
    for _ in range(200):
        bag.append(net(picture))
        bag.append(net(picture, outputs="relu1"))
    del net
    done.set()
    thread.join()


def test_one_network_on_two_threads_at_once(picture):
    net = qrt.load(models.DIGITS)["digits"]
    expected, wrong, busy = net(picture), [], []
    barrier = threading.Barrier(4)

    def run():
        barrier.wait()
        for _ in range(300):
            try:
                if not np.array_equal(net(picture), expected):
                    wrong.append(1)
            except qrt.BusyError as failure:
                busy.append(failure)

    threads = [threading.Thread(target=run) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong
    for failure in busy:
        assert failure.network == "digits" and "clone()" in str(failure)
    np.testing.assert_array_equal(net(picture), expected)


def test_state_goes_on_and_is_reset():
    net = qrt.load(models.SMOOTH)["smooth"]
    signal = np.array([[0], [0], [1], [1], [1], [1], [0], [0]], np.float32)
    whole = net(signal)
    np.testing.assert_allclose(whole[:3, 0], [0, 0, 0.1904], atol=1e-4)
    net.reset()
    parts = [net(signal[:3]), net(signal[3:])]
    np.testing.assert_array_equal(np.concatenate(parts), whole)


def test_clones_run_at_once_and_have_states_of_their_own(digits, picture):
    net = qrt.load(models.DIGITS)["digits"]
    expected, found = net(picture), []
    clones = [net.clone() for _ in range(4)]
    del net

    def run(clone):
        for _ in range(20):
            found.append(clone(picture))

    threads = [threading.Thread(target=run, args=(clone,)) for clone in clones]
    for thread in threads:
        thread.start()
    clones.clear()
    for thread in threads:
        thread.join()
    assert len(found) == 80 and all(np.array_equal(one, expected) for one in found)
    first = qrt.load(models.SMOOTH)["smooth"]
    ones = np.ones((2, 1), np.float32)
    begin = first(ones)
    second = first.clone()
    np.testing.assert_array_equal(second(ones), begin)
    np.testing.assert_array_equal(second(ones), first(ones))


def test_pickles(digits, picture):
    model = qrt.load(models.DIGITS)
    for copy in (pickle.loads(pickle.dumps(model))["digits"], pickle.loads(pickle.dumps(model["digits"]))):
        np.testing.assert_array_equal(copy(picture), digits(picture))


def sum_of(net, first, second):
    return net(first, second, outputs="sum")


@pytest.mark.parametrize("way", ["fork", "spawn"])
def test_other_processes(pair, way):
    with multiprocessing.get_context(way).Pool(1) as pool:
        np.testing.assert_array_equal(pool.apply(sum_of, (pair, A, B)), A + B)


def test_a_file_that_changes_is_noticed(tmp_path):
    path = tmp_path / "net.json"
    path.write_bytes(open(models.DIGITS, "rb").read())
    model = qrt.load(path)
    assert model.path == str(path)
    path.write_bytes(b"{}")
    with pytest.raises(qrt.ModelError, match="has changed"):
        model.to_bytes()


def test_saves(tmp_path, digits, picture):
    model = qrt.load(models.DIGITS)
    for name, tolerance in (("net.json", 0), ("net.qrtmodel", 0.02)):
        model.save(tmp_path / name)
        np.testing.assert_allclose(qrt.load(tmp_path / name)["digits"](picture), digits(picture), atol=tolerance)
    assert sorted(os.listdir(tmp_path)) == ["net.json", "net.qrtmodel"]
    assert qrt.load(model.to_bytes("qrtmodel")).networks == ["digits"]
    with pytest.raises(ValueError, match="qrtmodel or .json"):
        model.save(tmp_path / "net.bin")
    with pytest.raises(ValueError, match="'xml'"):
        model.to_bytes("xml")
    with pytest.raises(OSError):
        model.save(tmp_path / "no" / "net.json")


def resident():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGESIZE")


def test_many_calls_take_no_memory(calls):
    net = qrt.load(models.model(pair=models.two_inputs()))["pair"]
    wide, asked = A.astype(float), {"a": A, "b": B}

    def run(count):
        for _ in range(count // 5):
            net(A, B)
            net(A, B, outputs="top")
            net(a=wide, b=B)
            net.run(asked)
            try:
                net(A)
            except qrt.InputError:
                pass

    run(10_000)
    before = resident()
    run(calls)
    # A kept array takes more than 100 bytes with its block: one call in five that kept one would keep 20 bytes a call.
    grown = resident() - before
    assert grown < max(1 << 20, 2 * calls), f"{grown} bytes in {calls} calls"


def test_models_and_clones_take_no_memory():
    data = models.model(pair=models.two_inputs())

    def run(count):
        for _ in range(count):
            net = qrt.load(data)["pair"]
            results = [net(A, B), net.clone()(A, B)]
            del net
            del results

    run(100)
    before = resident()
    run(1000)
    assert resident() - before < 1 << 20


def test_objects_are_made_by_the_module_only(digits):
    model = qrt.load(models.DIGITS)
    for kind in (type(digits), type(model), type(digits.inputs[0]), type(digits.layers[0])):
        for make in (kind, lambda kind=kind: kind.__new__(kind), lambda kind=kind: object.__new__(kind)):
            with pytest.raises(TypeError):
                make()
        with pytest.raises(TypeError, match="not an acceptable base type"):
            type("Derived", (kind,), {})


def test_what_an_input_raises_is_raised(digits, picture):
    class Broken:
        def __init__(self, failure):
            self.failure = failure

        def __array__(self, *types, **options):
            raise self.failure

    for failure in (ZeroDivisionError("on the way"), KeyboardInterrupt(), MemoryError()):
        with pytest.raises(type(failure)):
            digits(Broken(failure))
    with pytest.raises(TypeError, match="found Broken"):
        digits(Broken(ValueError()))


def test_inputs_and_outputs_of_other_kinds_are_told(digits, picture):
    with pytest.raises(TypeError, match=r"a dict; `run` takes one"):
        digits({"input": picture})
    with pytest.raises(TypeError, match="outputs: expected the id of a layer, or several, found 3"):
        digits(picture, outputs=3)
    with pytest.raises(ValueError, match="null"):
        qrt.load("a\0b")
