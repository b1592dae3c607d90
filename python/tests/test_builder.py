"""Networks that are recorded in Python, against numpy's arithmetic."""

import numpy
import pytest

import nolk

random = numpy.random.default_rng(1)


def floats(*shape):
    return random.uniform(-1, 1, shape).astype(numpy.float32)


def windows(x, kernel, stride, dilation=1, fill=0.0, padding=(0, 0, 0, 0)):
    """[n, c, oh, ow, kh, kw]"""
    top, bottom, left, right = padding
    x = numpy.pad(x.astype(float), ((0, 0), (0, 0), (top, bottom), (left, right)), constant_values=fill)
    span = [(k - 1) * dilation + 1 for k in kernel]
    view = numpy.lib.stride_tricks.sliding_window_view(x, span, axis=(2, 3))
    return view[:, :, :: stride[0], :: stride[1], ::dilation, ::dilation]


def run(record, *inputs):
    """The result for inputs of two samples, float32."""
    b = nolk.Builder()
    result = record(b, *(b.input(*x.shape[1:]) for x in inputs))
    with b.build([result], batch=2) as net:
        assert net.outputs[0].shape[1:] == result.shape
        return net(*inputs)


X, Y, M = floats(2, 4, 7, 6), floats(2, 4, 7, 6), floats(2, 12)
KERNEL, DEPTHWISE, BIAS, VECTOR = floats(6, 4, 3, 2), floats(8, 1, 3, 3), floats(6), floats(4)
UPWARDS, MATRIX = floats(4, 3, 2, 2), floats(5, 12)


def grouped(x, weight, stride, groups):
    parts = zip(numpy.split(x, groups, axis=1), numpy.split(weight, groups))
    sums = [numpy.einsum("nchwij,ocij->nohw", windows(part, w.shape[2:], stride), w) for part, w in parts]
    return numpy.concatenate(sums, axis=1)


def transposed(x, weight, stride):
    n, _, h, w = x.shape
    _, out, kh, kw = weight.shape
    result = numpy.zeros((n, out, (h - 1) * stride + kh, (w - 1) * stride + kw))
    for i in range(h):
        for j in range(w):
            part = numpy.einsum("nc,cokl->nokl", x[:, :, i, j], weight)
            result[:, :, i * stride : i * stride + kh, j * stride : j * stride + kw] += part
    return result


def normalized(x):
    return (x - x.mean((2, 3), keepdims=True)) / numpy.sqrt(x.var((2, 3), keepdims=True) + 1e-5)


def per_channel(vector):
    return vector[:, None, None]


def exps(x, axis):
    e = numpy.exp(x - x.max(axis, keepdims=True))
    return e / e.sum(axis, keepdims=True)


def sigmoid(x):
    return 1 / (1 + numpy.exp(-x))


I, H = 6, 3
LSTM_INPUT, LSTM_RECURRENT, LSTM_BIAS, STEPS = (
    floats(2, 4, H, I),
    floats(2, 4, H, H),
    floats(2, 2, 4, H),
    floats(2, 1, 7, I),
)


def lstm_pass(steps, inputs, recurrent, bias):
    """float64 [n, time, H] for one direction; gates in the order input, output, forget, candidate."""
    h = c = numpy.zeros((len(steps), H))
    results = []
    for t in range(steps.shape[1]):
        gates = numpy.einsum("ni,ghi->gnh", steps[:, t], inputs) + numpy.einsum("nk,ghk->gnh", h, recurrent)
        i, o, f, g = gates + bias.sum(0)[:, None]
        c = sigmoid(f) * c + sigmoid(i) * numpy.tanh(g)
        h = sigmoid(o) * numpy.tanh(c)
        results.append(h)
    return numpy.stack(results, 1)


def lstm(x):
    forward, backward = (
        lstm_pass(x[:, 0, ::order], w, r, b)[:, ::order]
        for order, w, r, b in zip((1, -1), LSTM_INPUT, LSTM_RECURRENT, LSTM_BIAS)
    )
    return numpy.concatenate([forward, backward], 2)[:, None]


CASES = {
    "convolve": (
        lambda b, x: b.convolve(x, KERNEL, BIAS, padding=(1, 0, 2, 1), stride=(1, 2), dilation=2),
        [X],
        numpy.einsum("nchwij,ocij->nohw", windows(X, (3, 2), (1, 2), 2, 0, (1, 0, 2, 1)), KERNEL) + per_channel(BIAS),
    ),
    "convolve groups": (
        lambda b, x: b.convolve(x, DEPTHWISE, stride=2, groups=4),
        [X],
        grouped(X, DEPTHWISE, (2, 2), 4),
    ),
    "de_convolve": (lambda b, x: b.de_convolve(x, UPWARDS, stride=2), [X], transposed(X, UPWARDS, 2)),
    "full_connect": (lambda b, x: b.full_connect(x, MATRIX, BIAS[:5]), [M], M @ MATRIX.T + BIAS[:5]),
    "mat_mul": (lambda b, x, y: b.mat_mul(x, b.transpose(y, (0, 1, 3, 2))), [X, Y], X @ Y.transpose(0, 1, 3, 2)),
    "lstm": (
        lambda b, x: b.lstm(x, LSTM_INPUT, LSTM_RECURRENT, LSTM_BIAS, direction="both"),
        [STEPS],
        lstm(STEPS.astype(float)),
    ),
    "max_pool": (lambda b, x: b.max_pool(x, (3, 2), (2, 1)), [X], windows(X, (3, 2), (2, 1)).max((4, 5))),
    "avg_pool": (lambda b, x: b.avg_pool(x, 2, stride=2), [X], windows(X, (2, 2), (2, 2)).mean((4, 5))),
    "pad": (lambda b, x: b.pad(x, (1, 2, 3, 0)), [X], numpy.pad(X, ((0, 0), (0, 0), (1, 2), (3, 0)))),
    "slice": (lambda b, x: b.slice(x, "h", 1, 7, step=2), [X], X[:, :, 1:7:2]),
    "concat": (lambda b, x, y: b.concat([x, y, x], -3), [X, Y], numpy.concatenate([X, Y, X], 1)),
    "const_tensor": (
        lambda b, x, y: b.add(x, b.multiply(y, b.const_tensor(VECTOR.reshape(4, 1, 1)))),
        [X, Y],
        X + Y * per_channel(VECTOR),
    ),
    "softmax": (lambda b, x: b.softmax(x, -3), [X], exps(X.astype(float), 1)),
    "reduce": (lambda b, x: b.reduce(x, (4, 1, 1), "mean"), [X], X.mean((2, 3), keepdims=True)),
    "reshape": (
        lambda b, x: b.reshape(x, numpy.array([168]), layout="nhwc"),
        [X],
        X.transpose(0, 2, 3, 1).reshape(2, 168),
    ),
    "clip": (lambda b, x: b.clip(x, -0.5, 0.25), [X], X.clip(-0.5, 0.25)),
    "batch_normalize": (
        lambda b, x: b.batch_normalize(x, VECTOR, BIAS[:4], VECTOR, VECTOR**2, epsilon=0.1),
        [X],
        per_channel(VECTOR) * (X - per_channel(VECTOR)) / numpy.sqrt(0.1 + per_channel(VECTOR**2))
        + per_channel(BIAS[:4]),
    ),
    "instance_normalization": (lambda b, x: b.instance_normalization(x), [X], normalized(X.astype(float))),
    "instance_normalization scaled": (
        lambda b, x: b.instance_normalization(x, VECTOR, BIAS[:4]),
        [X],
        normalized(X.astype(float)) * per_channel(VECTOR) + per_channel(BIAS[:4]),
    ),
    "resize": (lambda b, x: b.resize(x, (4, 14, 12), "nearest"), [X], X.repeat(2, 2).repeat(2, 3)),
}


@pytest.mark.parametrize("name", CASES)
def test_operations_compute_what_numpy_does(name):
    record, inputs, expected = CASES[name]
    numpy.testing.assert_allclose(
        run(record, *inputs), expected, rtol=1e-5, atol=1e-5
    )  # float32 sums of up to 36 terms


def snake_case(name):
    return "".join("_" + c.lower() if c.isupper() else c for c in name)


def test_every_operation_of_the_library_has_a_described_method():
    operations = {snake_case(row[0]) for row in nolk._nolk.operations()}
    assert len(operations) == 34
    for name in operations:
        assert len(getattr(nolk.Builder, name).__doc__) > 80, name


def test_a_saved_network_is_the_one_that_ran(tmp_path):
    b = nolk.Builder()
    x = b.input(4, 7, 6, name="picture")
    net = b.build({"scores": b.softmax(b.convolve(x, KERNEL, BIAS), "c")}, batch=2)
    for version in (1, 2, 3, 4):
        b.save(tmp_path / "own.cm", version=version)
        assert nolk.inspect(tmp_path / "own.cm")["version"] == version
        assert nolk.check(tmp_path / "own.cm") == []
        with nolk.load(tmp_path / "own.cm", batch=2) as loaded:
            assert (loaded(X) == net(X)).all()
            assert loaded.inputs[0].name == ("picture" if version > 1 else "input 0")
            assert loaded.outputs[0].name == ("scores" if version > 1 else "output 0")
    assert len(b.to_bytes(lossy=True)) <= len(b.to_bytes())


def test_tensors_without_a_name_have_a_number_beside_those_with_one():
    b = nolk.Builder()
    x, y = b.input(3, name="left"), b.input(3)
    with b.build({"": b.add(x, y), "difference": b.sub(x, y)}) as net:
        assert [info.name for info in net.inputs + net.outputs] == ["left", "input 1", "output 0", "difference"]


OTHER = nolk.Builder().input(4, 7, 6)


@pytest.mark.parametrize(
    "record, error, text",
    [
        (lambda b, x: b.relu(OTHER), ValueError, "another builder"),
        (lambda b, x: b.relu(X), TypeError, "relu: expected a nolk.Tensor, got numpy.ndarray"),
        (lambda b, x: b.concat(x, "c"), TypeError, "concat: expected a list of tensors, got nolk"),
        (lambda b, x: b.input(0), ValueError, "input: expected 1 to 2147483647, got 0"),
        (lambda b, x: b.input(3, name=7), TypeError, "name: expected a string, got int"),
        (lambda b, x: b.convolve(x, KERNEL.astype(float)), TypeError, "convolve: weights weight: expected float32"),
        (lambda b, x: b.convolve(x, KERNEL.T), ValueError, "expected a C-contiguous array"),
        (lambda b, x: b.convolve(x, MATRIX), ValueError, r"expected \[out, in, kh, kw\], got shape \(5, 12\)"),
        (lambda b, x: b.convolve(x, KERNEL, BIAS[:5]), ValueError, r"bias: expected \[6\], got shape \(5,\)"),
        (lambda b, x: b.convolve(x, KERNEL, groups=4), ValueError, "6 output channels do not divide into 4"),
        (lambda b, x: b.convolve(x, KERNEL, stride=1.5), TypeError, "convolve: stride: expected integers"),
        (lambda b, x: b.convolve(x, KERNEL, padding=(1, 2)), ValueError, "expected an integer or .top, bottom"),
        (lambda b, x: b.convolve(x, KERNEL, stride=1 << 70), ValueError, "does not fit 32 bits"),
        (lambda b, x: b.pad(x, -1), ValueError, "pad: "),
        (lambda b, x: b.softmax(x, "d"), ValueError, "softmax: axis: expected one of 'n', 'c', 'h', 'w'"),
        (lambda b, x: b.softmax(x, -5), ValueError, "softmax: axis: expected one of .* or -4 to 3, got -5"),
        (lambda b, x: b.concat([], "c"), ValueError, "concat"),
        (lambda b, x: b.softmax(x, "\udcff"), ValueError, "softmax: axis: expected one of"),
        (lambda b, x: b.clip(x, 0, 10**400), ValueError, "clip: max: the number is too large for a float"),
        (lambda b, x: b.instance_normalization(x, VECTOR), TypeError, "expected scale and bias, or neither"),
        (lambda b, x: b.to_bytes(lossy="no"), TypeError, "lossy: expected a bool, got str"),
        (lambda b, x: b.clip(x, "low", 1), TypeError, "clip: min: expected a number, got str"),
        (lambda b, x: b.build([]), ValueError, "needs an output"),
        (lambda b, x: b.build(x), TypeError, "outputs: expected a list of tensors, got nolk"),
        (lambda b, x: b.build({7: x}), TypeError, "outputs: expected a string, got int"),
        (lambda b, x: b.build([b.max_pool(x, 9, 1)]), nolk.Error, r"output 0: its extents are \[4, -1, -2\]"),
        (lambda b, x: b.build([x] * 40_000), nolk.Error, "at most 32767 records"),
        (lambda b, x: b.save("own.cm"), nolk.Error, "not built"),
    ],
)
def test_what_cannot_be_recorded_is_refused(record, error, text):
    b = nolk.Builder()
    with pytest.raises(error, match=text):
        record(b, b.input(4, 7, 6))


def test_a_network_that_cannot_be_loaded_can_be_looked_at():
    b = nolk.Builder()
    with pytest.raises(nolk.Error, match="convolve"):
        b.build([b.convolve(b.input(4, 7, 6), KERNEL[:, :3].copy())])
    assert "error" in {finding.severity for finding in nolk.check(b.to_bytes())}


def test_a_builder_builds_once():
    b = nolk.Builder()
    x = b.input(3)
    for options, error, text in [  # which do not count
        ({"batch": 0}, ValueError, "batch: "),
        ({"shared": 1}, TypeError, "shared: expected a bool, got int"),
        ({"implementation": "Missing"}, nolk.Error, "^dlopen 'libMissing.so' failed"),
        ({"outputs": {"\udcff": x}}, ValueError, "outputs: expected text without"),
    ]:
        with pytest.raises(error, match=text):
            b.build(**{"outputs": [x], **options})
    b.build([x]).close()
    for again in (lambda: b.relu(x), lambda: b.build([x])):
        with pytest.raises(nolk.Error, match="built"):
            again()
