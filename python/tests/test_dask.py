"""Networks over Dask arrays."""

import subprocess
import sys

import numpy
import pytest

import nolk

cloudpickle = pytest.importorskip("cloudpickle")
dask_array = pytest.importorskip("dask.array")
distributed = pytest.importorskip("distributed")
import nolk.dask  # noqa: E402

from conftest import DIGITS  # noqa: E402


@pytest.fixture(scope="module")
def client():
    with distributed.Client(n_workers=1, threads_per_worker=2, processes=False, dashboard_address=None) as client:
        yield client


def as_dask(array, block):
    return dask_array.from_array(array, chunks=(block, -1, -1, 14)[: array.ndim])


# The one without a client comes first: as long as a client lives, predict finds it.
@pytest.mark.parametrize("with_client", [False, True])
def test_results_are_those_of_one_process(request, model, pictures, with_client):
    client = request.getfixturevalue("client") if with_client else None
    with nolk.load(model, batch=16) as net:
        expected = net(pictures)
    lazy = nolk.dask.predict(model, as_dask(pictures, 70), batch=16, client=client)
    assert lazy.shape == (500, 10) and lazy.dtype == numpy.float32
    assert lazy.chunks[0] == (64, 64, 80, 64, 64, 80, 64, 20)  # whole batches, near the cuts at 70, 140, ...
    assert (lazy.compute(scheduler=None if with_client else "threads") == expected).all()


def test_blocks_may_travel_between_processes(model, pictures):
    with nolk.load(model, batch=16) as net:
        expected = net(pictures)
    with distributed.Client(n_workers=1, threads_per_worker=1, processes=True, dashboard_address=None) as client:
        x = dask_array.from_array(pictures, chunks=(48, 1, 28, 28))  # cut as the network wants them, so not copied
        assert (client.compute(nolk.dask.predict(model, x, client=client)).result() == expected).all()


@pytest.mark.parametrize(
    "chunks, blocks",
    [
        ((32, 48, 16, 5), (32, 48, 16, 5)),
        ((10, 10, 10), (16, 14)),
        ((5, 5), (10,)),
        ((17, 0, 15), (16, 16)),
        ((0,), (0,)),
    ],
)
def test_blocks_hold_whole_batches(model, chunks, blocks):
    x = dask_array.ones((sum(chunks), 1, 28, 28), chunks=(chunks, 1, 28, 28), dtype=numpy.float32)
    scores = nolk.dask.predict(model, x, batch=16)
    assert scores.chunks == (blocks, (10,))
    assert scores.compute().shape == (sum(chunks), 10)
    assert len(scores.dask.layers) == (2 if chunks == blocks else 3)  # the array, the network; another one to cut anew


def test_a_model_is_sent_once_and_loaded_once(client, monkeypatch, model):
    def counted(calls, function):
        return lambda *args, **options: calls.append(args) or function(*args, **options)

    loads, sent = [], []
    monkeypatch.setattr(nolk.dask, "load", counted(loads, nolk.load))
    monkeypatch.setattr(client, "register_worker_plugin", counted(sent, client.register_worker_plugin))
    x = dask_array.ones((300, 1, 28, 28), chunks=(3, 1, 28, 28), dtype=numpy.float32)
    for _ in range(2):
        scores = nolk.dask.predict(model, x, batch=3, client=client)
        assert len(cloudpickle.dumps(dict(scores.dask))) < model.stat().st_size  # for 100 blocks
        scores.compute()
    assert len(sent) == 1
    assert len(loads) == 3  # predict looks at the model each time, the worker loads it


def test_a_worker_that_cannot_load_the_model_says_why(client, monkeypatch, model, pictures):
    def fail(*args, **options):
        raise nolk.Error("no room")

    lazy = nolk.dask.predict(model, as_dask(pictures, 50), batch=5, client=client)
    monkeypatch.setattr(nolk.dask, "_loaded", {})  # as in a worker that joins later
    monkeypatch.setattr(nolk.dask, "load", fail)
    with pytest.raises(nolk.Error, match="no room"):
        lazy.compute()


def test_several_inputs_and_outputs(client):
    b = nolk.Builder()
    left, right = b.input(1, 2, 2, name="left"), b.input(3, name="right")
    b.build({"negative": b.sub(b.sub(left, left), left), "size": b.abs(right)})
    x, y = numpy.arange(40, dtype=numpy.float32).reshape(10, 1, 2, 2), -numpy.ones((10, 3), numpy.float32)
    unknown = as_dask(x, 6)
    unknown = unknown[unknown[:, 0, 0, 0] > 5]
    negative, size = nolk.dask.predict(b.to_bytes(), as_dask(x, 6), as_dask(y, 4), batch=2, client=client)
    assert (negative.compute() == -x).all()
    assert (dask_array.concatenate([size, size]).compute() == 1).all()
    for arrays, error, text in [
        ((as_dask(x, 6),), TypeError, "expected 2 arrays, got 1"),
        ((as_dask(x, 6), y), TypeError, "right: expected a Dask array, got ndarray"),
        ((as_dask(x, 6), as_dask(y[:9], 4)), ValueError, "different numbers of samples"),
        ((unknown, as_dask(y, 4)), ValueError, r"left: the number of samples is not known; .*compute_chunk_sizes"),
        ((as_dask(x, 6), as_dask(y.astype(float), 4)), TypeError, "right: expected float32, got float64"),
        ((as_dask(x, 6), as_dask(y[:, :2], 4)), ValueError, r"right: expected float32 \[n, 3\], got shape \(10, 2\)"),
    ]:
        with pytest.raises(error, match=text):
            nolk.dask.predict(b.to_bytes(), *arrays, client=client)


def test_a_network_that_mixes_samples_is_refused(client):
    b = nolk.Builder()
    swapped = b.transpose(b.input(3, 1, 1), (1, 0, 2, 3))
    b.build([b.transpose(b.softmax(swapped, "c"), (1, 0, 2, 3))])
    with pytest.raises(ValueError, match="mixes samples"):
        nolk.dask.predict(b.to_bytes(), as_dask(numpy.zeros((4, 3, 1, 1), numpy.float32), 2), batch=2, client=client)


def test_a_job_survives_a_killed_worker():
    example = DIGITS.parent / "cluster/cluster.py"
    # SIGTERM, of which the example ends its processes too
    command = ["timeout", "100", sys.executable, str(example), "--pictures=20000", "--block=200", "--kill"]
    result = subprocess.run(command, capture_output=True, text=True)
    assert result.returncode == 0, result.stdout + result.stderr
    assert "killed worker" in result.stdout and "% Completed" in result.stdout
    assert "every picture has the result of the single process" in result.stdout
