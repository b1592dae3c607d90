"""Networks: results, chunks, errors, threads, memory."""

import gc
import os
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor

import numpy
import pytest

import nolk

FAST = pytest.param(
    "NolkFast:num_threads=2",
    marks=pytest.mark.skipif(not nolk.has_implementation("NolkFast"), reason="NolkFast is not installed"),
)


@pytest.mark.parametrize("implementation", [None, "NolkRaw", FAST])
@pytest.mark.parametrize("batch", [1, 16])
def test_digits_are_read_as_by_the_training_framework(model, pictures, labels, expected, implementation, batch):
    default = "NolkFast" if nolk.has_implementation("NolkFast") else "NolkRaw"
    with nolk.load(model, batch=batch, implementation=implementation) as net:
        assert net.implementation == (implementation or default)
        scores = net(pictures)
    assert scores.dtype == numpy.float32 and scores.shape == (500, 10)
    assert numpy.abs(scores[:20] - expected).max() < 1e-4  # the file has six decimals, the order of sums is another
    assert (scores.argmax(axis=1) == labels).sum() == 493


def test_models_come_as_paths_and_as_bytes(model, pictures):
    data = model.read_bytes()
    with nolk.load(model, implementation="NolkRaw") as net:
        expected = net(pictures[:1])
    for source in (str(model), data, bytearray(data), memoryview(b"head" + data)[4:]):
        with nolk.load(source, implementation="NolkRaw") as net:
            assert (net(pictures[:1]) == expected).all()


def test_any_number_of_samples_gives_the_same_results(model, pictures):
    with nolk.load(model, batch=16) as net:
        whole = net(pictures)
        for n in (0, 1, 15, 16, 17, 48, 50):
            assert net(pictures[:n]).shape == (n, 10)
            assert (net(pictures[:n]) == whole[:n]).all()
            out = numpy.full((n + 1, 10), 7, numpy.float32)
            net.run([pictures[:n]], out=[out[:n]])
            assert (out[:n] == whole[:n]).all() and (out[n:] == 7).all()


def two_inputs() -> nolk.Network:
    b = nolk.Builder()
    left, right = b.input(2, 3, 4, name="left"), b.input(5, name="right")
    return b.build({"sum": b.add(left, left), "size": b.abs(right)}, batch=4)


def test_several_inputs_and_outputs_have_names_and_come_as_a_tuple():
    with two_inputs() as net:
        assert net.inputs == (("left", (4, 2, 3, 4)), ("right", (4, 5)))
        assert net.outputs == (("sum", (4, 2, 3, 4)), ("size", (4, 5)))
        left = numpy.arange(7 * 24, dtype=numpy.float32).reshape(7, 2, 3, 4)
        right = -numpy.arange(35, dtype=numpy.float32).reshape(7, 5)
        twice, size = net(left, right)
        assert (twice == 2 * left).all() and (size == -right).all()


def test_a_network_may_have_no_inputs():
    b = nolk.Builder()
    with b.build([b.const_tensor(numpy.float32([1, 2, 3]))], batch=2) as net:
        assert net().tolist() == [[1, 2, 3]] * 2


def test_names_may_hold_any_bytes():
    recording = nolk._nolk.Recording()
    recording.finish([recording.call(0, [], [(3,)])])
    with nolk.load(recording.file(4, False, [(1, b"a\xff\n"), (2, "\u00e4".encode())])) as net:
        assert (net.inputs[0].name, net.outputs[0].name) == ("a\ufffd\n", "\u00e4")
        with pytest.raises(TypeError, match="a\ufffd\n: expected a numpy array"):
            net(None)


def zeros(*shape, dtype=numpy.float32):
    return numpy.zeros(shape, dtype)


def read_only(array):
    array.flags.writeable = False
    return array


LEFT, RIGHT, SUM, SIZE = zeros(3, 2, 3, 4), zeros(3, 5), zeros(3, 2, 3, 4), zeros(3, 5)
UNALIGNED = numpy.frombuffer(bytes(61), numpy.uint8)[1:].view(numpy.float32).reshape(3, 5)


@pytest.mark.parametrize(
    "inputs, outputs, error, text",
    [
        ([LEFT], [SUM, SIZE], TypeError, "expected 2 input arrays, got 1"),
        ([LEFT, RIGHT], [SUM], TypeError, "expected 2 output arrays, got 1"),
        (
            (array for array in [LEFT, RIGHT]),
            [SUM, SIZE],
            TypeError,
            "inputs: expected a list of arrays, got generator",
        ),
        ([LEFT, RIGHT], zeros(2, 3, 5), TypeError, "^out: expected a list of arrays, got numpy.ndarray"),
        ([LEFT, RIGHT.tolist()], [SUM, SIZE], TypeError, "right: expected a numpy array, got list"),
        (
            [LEFT, numpy.ma.masked_array(RIGHT, mask=True)],
            [SUM, SIZE],
            TypeError,
            "right: expected an array without a mask",
        ),
        ([LEFT, RIGHT], [SUM, numpy.ma.masked_array(SIZE)], TypeError, "size: expected an array without a mask"),
        ([LEFT, zeros(3, 5, dtype=float)], [SUM, SIZE], TypeError, "right: expected float32, got float64"),
        ([LEFT, zeros(3, 5, dtype=">f4")], [SUM, SIZE], TypeError, "right: expected float32, got >f4"),
        ([LEFT, UNALIGNED], [SUM, SIZE], ValueError, "right: expected an aligned array"),
        ([zeros(3, 2, 4, 3), RIGHT], [SUM, SIZE], ValueError, r"left: expected float32 \[n, 2, 3, 4\], got shape"),
        ([LEFT, zeros(3, 5, 1, 1)], [SUM, SIZE], ValueError, r"right: expected .* got shape \(3, 5, 1, 1\)"),
        ([LEFT, zeros(2, 5)], [SUM, SIZE], ValueError, r"right: expected float32 \[3, 5\], got shape \(2, 5\)"),
        ([LEFT, zeros(6, 5)[::2]], [SUM, SIZE], ValueError, "right: expected a C-contiguous array"),
        ([LEFT, RIGHT], [SUM, zeros(4, 5)], ValueError, r"size: expected float32 \[3, 5\], got shape \(4, 5\)"),
        ([LEFT, RIGHT], [SUM, zeros(3, 10)[:, ::2]], ValueError, "size: expected a C-contiguous array"),
        ([LEFT, RIGHT], [SUM, read_only(zeros(3, 5))], ValueError, "size: the array is read-only"),
        ([LEFT, RIGHT], [LEFT, SIZE], ValueError, "shares memory"),
        ([LEFT, RIGHT], [SUM, SUM.ravel()[:15].reshape(3, 5)], ValueError, "shares memory"),
    ],
)
def test_wrong_arrays_are_refused(inputs, outputs, error, text):
    with two_inputs() as net:
        with pytest.raises(error, match=text):
            net.run(inputs, out=outputs)
        net.run([LEFT, RIGHT], out=[SUM, SIZE])  # the network still works


SLOPES = numpy.float32([[1, 1, 2], [2, 3, 3]]).reshape(2, 3, 1, 1)  # of prelu in a batch of 2


def swapped(b, x):
    return b.transpose(x, (1, 0, 2, 3))


def shares(x):
    return numpy.exp(x) / numpy.exp(x).sum(0)


@pytest.mark.parametrize(
    "record, expected",
    [
        (swapped, lambda x: x.transpose(1, 0, 2, 3)),
        (lambda b, x: swapped(b, b.softmax(swapped(b, x), "c")), shares),
        (lambda b, x: b.slice(b.concat([x, x], -4), "n", 1, 3), lambda x: x[::-1]),
        (lambda b, x: b.prelu(b.sub(b.sub(x, x), x), numpy.float32([1, 2, 3])), lambda x: -x * SLOPES),
    ],
    ids=["transposed", "transposed and back", "slice of concat", "prelu"],
)
def test_a_network_that_mixes_samples_takes_exactly_one_batch(record, expected):
    def mixing(**options):
        b = nolk.Builder()
        return b.build([record(b, b.input(3, 1, 1))], batch=2, **options)

    with mixing() as net:
        assert net.mixes_samples
        x = numpy.arange(6, dtype=numpy.float32).reshape(2, 3, 1, 1)
        assert numpy.allclose(net(x), expected(x), rtol=1e-5)
        for part in (x[:1], numpy.concatenate([x, x])):
            with pytest.raises(ValueError, match=r"expected float32 \[2, 3, 1, 1\]"):
                net(part)
    with pytest.raises(nolk.Error, match="mixes samples"):
        mixing(shared=True)


@pytest.mark.parametrize(
    "change, error, text",
    [
        (lambda data: b"", nolk.Error, "head"),
        (lambda data: data[:1000], nolk.Error, "checksum|ends"),
        (lambda data: data[:999] + b"?" + data[1000:], nolk.Error, "checksum"),
        (lambda data: "no/such/file", FileNotFoundError, "no/such/file"),
        (lambda data: list(data), TypeError, "expected a path, bytes or memoryview, got list"),
        (lambda data: memoryview(data)[::2], BufferError, ""),
    ],
)
def test_models_that_cannot_be_loaded_are_refused(model, change, error, text):
    with pytest.raises(error, match=text):
        nolk.load(change(model.read_bytes()))


@pytest.mark.parametrize(
    "options, error, text",
    [
        ({"batch": 0}, ValueError, "batch: expected 1 to 2147483647, got 0"),
        ({"batch": 2**31}, ValueError, "batch: expected 1 to 2147483647, got 2147483648"),
        ({"batch": 1.5}, TypeError, "batch: expected an integer, got float"),
        ({"implementation": 1}, TypeError, "implementation: expected a string, got int"),
        ({"implementation": "NolkRaw\0x"}, ValueError, "implementation: expected text without null characters"),
        ({"implementation": "\udcff"}, ValueError, "implementation: expected text without null characters and surr"),
        ({"shared": "no"}, TypeError, "shared: expected a bool, got str"),
        ({"memory_bytes": 1e9}, TypeError, "memory_bytes: expected an integer, got float"),
        ({"multiply_adds": -1}, ValueError, "multiply_adds: expected 0 to"),
        ({"implementation": "Missing:x=1"}, nolk.Error, "digits.cm: dlopen 'libMissing.so' failed: .*cannot open"),
        ({"implementation": "NolkRaw:num_threads=x"}, nolk.Error, "num_threads=x: a setting is not a number"),
        ({"memory_bytes": 1000}, nolk.LimitExceeded, "the limit is 1,000 bytes"),
        ({"multiply_adds": 1000}, nolk.LimitExceeded, "limit"),
    ],
)
def test_options_that_cannot_be_are_refused(model, options, error, text):
    with pytest.raises(error, match=text):
        nolk.load(model, **options)


def run_script(script, model):
    """Runs Python code with the path of the model; what became of it."""
    result = subprocess.run([sys.executable, "-c", script, str(model)], capture_output=True, text=True, timeout=100)
    return result.returncode, result.stdout, result.stderr


ERRORS = """
import sys, threading, numpy, nolk
for source, options in [(b"", {}), (sys.argv[1], {"implementation": "Missing"}), (sys.argv[1], {"memory_bytes": 1})]:
    try:
        nolk.load(source, **options)
    except nolk.Error as error:
        assert str(error)
    else:
        raise SystemExit("no error")
assert not nolk.has_implementation("Missing")
for batch in (1, 4):
    with nolk.load(sys.argv[1], batch=batch, shared=batch > 1) as net:
        net(numpy.zeros((5, 1, 28, 28), numpy.float32))
        try:
            net(numpy.zeros((5, 1, 28, 29), numpy.float32))
        except ValueError:
            pass
"""


def test_standard_error_stays_empty(model):
    assert run_script(ERRORS, model) == (0, "", "")


# Makes calls in a thread that Python does not wait for; they are under way when it ends.
ENDS_DURING_A_CALL = """
import sys, threading, numpy, nolk
net, x, started = nolk.load(sys.argv[1], batch=16), numpy.zeros((160, 1, 28, 28), numpy.float32), threading.Event()
def call_forever():
    while True:
        net(x)
        started.set()
threading.Thread(target=call_forever, daemon=True).start()
started.wait()
"""

# Ctrl-C long before the call is through.
INTERRUPTED = """
import os, signal, sys, threading, numpy, nolk
x, out = numpy.zeros((300_000, 1, 28, 28), numpy.float32), numpy.full((300_000, 10), 7, numpy.float32)
for options in {}, {"batch": 4, "shared": True}:
    net = nolk.load(sys.argv[1], **options)
    threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT)).start()
    try:
        net.run([x], out=[out])
    except KeyboardInterrupt:
        assert (out[-1] == 7).all()
        assert net(x[:5]).shape == (5, 10)  # the network still works
    else:
        raise SystemExit("not interrupted")
"""

OTHER_INTERPRETER = """
import _xxsubinterpreters as interpreters
script = "try: import nolk\\nexcept ImportError as error: assert 'main interpreter' in str(error)\\nelse: assert False"
interpreters.run_string(interpreters.create(), script)
"""


@pytest.mark.parametrize("script", [ENDS_DURING_A_CALL, INTERRUPTED], ids=["ends during a call", "interrupted"])
def test_calls_end_with_their_process_and_with_signals(script, model):
    assert run_script(script, model) == (0, "", "")


@pytest.mark.skipif(sys.version_info >= (3, 13), reason="the module for other interpreters has another name")
def test_another_interpreter_is_refused(model):
    assert run_script(OTHER_INTERPRETER, model) == (0, "", "")


def test_a_closed_network_is_refused(model, pictures):
    with nolk.load(model) as net:
        assert not net.closed
    assert net.closed
    net.close()
    for use in (lambda: net(pictures), lambda: net("no array"), lambda: net.run([], out=[]), net.__enter__):
        with pytest.raises(nolk.Error, match="closed"):
            use()


def test_loading_releases_the_lock():
    b = nolk.Builder()
    b.build([b.full_connect(b.input(1024), numpy.ones((4096, 1024), numpy.float32))]).close()
    content = b.to_bytes()
    data = bytearray(content)
    for _ in range(20):  # one is enough, unless this thread has no turn
        with ThreadPoolExecutor(1) as pool:
            call = pool.submit(nolk.load, data)
            while not call.done():
                try:
                    data.__init__(content)  # in one step
                except BufferError:  # Python runs here while the library reads the bytes
                    return
                time.sleep(1e-4)
            call.result().close()
    pytest.fail("no other thread ran while a network was loaded")


def slow_network(**options) -> nolk.Network:
    """Takes about a tenth of a second for each sample."""
    b = nolk.Builder()
    x = b.input(32, 128, 128)
    weight = numpy.full((32, 32, 5, 5), 1e-3, numpy.float32)
    for _ in range(2):
        x = b.convolve(x, weight, padding=2)
    return b.build([x], **options)


def test_a_second_call_at_a_time_is_refused_and_the_lock_is_released():
    net = slow_network()
    x = numpy.ones((8, 32, 128, 128), numpy.float32)
    refused = []
    with ThreadPoolExecutor(1) as pool:
        call = pool.submit(net, x)
        # Python runs here while the network computes; with the lock held no turn would come before the end.
        while not call.done():
            try:
                net(x[:0])
            except nolk.Error as error:
                refused.append(str(error))
                net.close()  # the call goes on
                break
        result = call.result()
    assert refused and "shared=True" in refused[0]
    assert net.closed and result.shape == x.shape and (result == result[0]).all()


@pytest.mark.parametrize("batch", [1, 4])
def test_threads_share_a_network_and_get_their_own_results(model, pictures, batch):
    with nolk.load(model, batch=1) as net:
        alone = net(pictures)
    with nolk.load(model, batch=batch, shared=True) as net:
        with ThreadPoolExecutor(8) as pool:
            parts = list(pool.map(net, numpy.split(pictures, [7, 50, 51, 200, 333])))
    assert numpy.abs(numpy.concatenate(parts) - alone).max() < 1e-5  # products of another size sum in another order


def test_a_forked_process_refuses_a_network_whose_thread_stayed_behind(model, pictures):
    net = nolk.load(model, batch=4, shared=True)
    child = os.fork()
    if child == 0:
        status = 1
        try:
            net(pictures[:1])
        except nolk.Error:
            net.close()
            status = 0
        finally:
            os._exit(status)  # whatever was raised, no other test runs twice
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    assert net(pictures[:1]).shape == (1, 10)


def resident_bytes() -> int:
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGESIZE")


def test_memory_does_not_grow_with_loads(model, pictures):
    data, bad = model.read_bytes(), model.read_bytes()[:-1] + b"?"

    def load_and_close(count):
        for i in range(count):
            with nolk.load(data, batch=2, shared=i % 50 == 0) as net:
                if i % 10 == 0:
                    net(pictures[:3])
            if i % 10 == 0:
                with pytest.raises(nolk.Error):
                    nolk.load(bad)
        gc.collect()
        return resident_bytes()

    before = load_and_close(1000)
    assert load_and_close(9000) - before < 4 << 20  # one network is 0.6 MB
