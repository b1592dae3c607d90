"""Networks over Dask arrays."""

import subprocess
import sys

import numpy
import pytest

import nolk

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
    assert lazy.chunks[0] == (64,) * 7 + (52,)  # whole batches
    assert (lazy.compute(scheduler=None if with_client else "threads") == expected).all()


def test_a_process_loads_a_model_once(client, monkeypatch, model, pictures):
    loads = []
    monkeypatch.setattr(
        nolk.dask, "load", lambda *args, **options: loads.append(options) or nolk.load(*args, **options)
    )
    for _ in range(2):
        nolk.dask.predict(model, as_dask(pictures, 50), batch=3, client=client).compute()
    assert len(loads) == 3  # predict looks at it each time, the worker loads it for 11 blocks


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
    negative, size = nolk.dask.predict(b.to_bytes(), as_dask(x, 6), as_dask(y, 4), batch=2, client=client)
    assert (negative.compute() == -x).all()
    assert (dask_array.concatenate([size, size]).compute() == 1).all()
    for arrays, error, text in [
        ((as_dask(x, 6),), TypeError, "expected 2 arrays, got 1"),
        ((as_dask(x, 6), as_dask(y[:9], 4)), ValueError, "different numbers of samples"),
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
    command = ["timeout", "100", sys.executable, str(example), "--pictures=6000", "--block=200", "--kill"]
    result = subprocess.run(command, capture_output=True, text=True)
    assert result.returncode == 0, result.stdout + result.stderr
    assert "killed worker" in result.stdout and "% Completed" in result.stdout
    assert "every picture has the result of the single process" in result.stdout
