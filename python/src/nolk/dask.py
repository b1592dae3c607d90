"""Networks over Dask arrays, on one machine or on many.

    from dask.distributed import Client
    import nolk.dask

    with Client("tcp://scheduler:8786") as client:
        scores = nolk.dask.predict("digits.cm", pictures, batch=16, client=client)
        digits = scores.argmax(axis=1).compute()

Needs dask and distributed (Debian: python3-dask and python3-distributed), on the workers too.
"""

import threading
from operator import getitem
from typing import Any

import dask.array
import numpy
from dask.base import tokenize
from distributed import WorkerPlugin, get_client, get_worker

from ._network import Array, Network, TensorInfo, load
from ._source import Model, read

__all__ = ["ModelPlugin", "predict"]


class _LoadedModel:
    """A network of this process, which runs one block at a time."""

    def __init__(self, network: Network) -> None:
        self._network = network
        self._lock = threading.Lock()

    def run(self, blocks: list[Array]) -> Array | tuple[Array, ...]:
        arrays = [numpy.ascontiguousarray(block) for block in blocks]
        with self._lock:
            return self._network(*arrays)


# The networks of this process by the name of their plugin. Several workers may be threads of one process.
_loaded: dict[str, _LoadedModel] = {}
_loading = threading.Lock()


class ModelPlugin(WorkerPlugin):  # type: ignore[misc]  # distributed has no types
    """Loads a model once in each worker process, also in those that join later.

    `predict` registers it. A process keeps the network until it ends.

    Parameters
    ----------
    model : bytes
        A model file.
    batch : int
    implementation : str
        As for `nolk.load`.
    """

    def __init__(self, model: bytes, batch: int, implementation: str) -> None:
        self.model, self.batch, self.implementation = model, batch, implementation
        self.name = "nolk-" + tokenize(model, batch, implementation)

    def setup(self, worker: Any) -> None:
        self.load()

    def load(self) -> None:
        """Load the model into this process, unless it is there."""
        with _loading:
            if self.name not in _loaded:
                network = load(self.model, batch=self.batch, implementation=self.implementation)
                _loaded[self.name] = _LoadedModel(network)


def _run_block(name: str, *blocks: Any) -> Array | tuple[Array, ...]:
    """The task for one block of each input, which comes in a list for each axis but the first."""
    if name not in _loaded:
        _load_late(name)
    arrays = []
    for block in blocks:
        while isinstance(block, list):
            (block,) = block
        arrays.append(block)
    return _loaded[name].run(arrays)


def _load_late(name: str) -> None:
    """Load the model of a plugin whose setup has failed: Dask only logs why, so the task repeats it and fails with it."""
    try:
        plugin = get_worker().plugins[name]
    except (KeyError, ValueError):  # no such plugin, no worker
        raise RuntimeError(
            f"{name} is not loaded in this process: give nolk.dask.predict the client of its workers"
        ) from None
    plugin.load()


def _client_of_process() -> Any:
    try:
        return get_client()
    except ValueError:
        return None


def _require_form(info: TensorInfo, array: dask.array.Array) -> None:
    if array.dtype != numpy.float32:
        raise TypeError(f"{info.name}: expected float32, got {array.dtype}")
    if array.shape[1:] != info.shape[1:]:
        extents = ", ".join(["n", *map(str, info.shape[1:])])
        raise ValueError(f"{info.name}: expected float32 [{extents}], got shape {array.shape}")


def _in_blocks(array: dask.array.Array, block: int) -> dask.array.Array:
    """The array in blocks of so many samples, each with whole samples; the last one may be smaller."""
    return array.rechunk({0: block, **dict.fromkeys(range(1, array.ndim), -1)})


def predict(
    model: Model,
    *arrays: dask.array.Array,
    batch: int = 16,
    implementation: str | None = None,
    client: Any = None,
) -> dask.array.Array | tuple[dask.array.Array, ...]:
    """Map a network over the first axis of Dask arrays.

    Nothing is computed yet, except that the workers load the model: each process once, and those that join later, too.
    The model's bytes travel with it, so the workers need no access to the file.

    Parameters
    ----------
    model : str, os.PathLike, bytes, bytearray or memoryview
        The path of a model file on this machine, or its bytes.
    *arrays : dask.array.Array
        For each input of the network, float32 [n, c, h, w], or [n, c] for a matrix. They are computed block by block. A
        block has as many samples as the first array's first chunk, down to a multiple of the batch. Chunks should be
        such multiples: else Dask puts blocks together from several chunks, and copies them.
    batch : int
        The number of samples that one run of the network computes.
    implementation : str, optional
        As for `nolk.load`. The default is that of this machine, so that all workers compute alike.
    client : distributed.Client, optional
        The client whose workers compute. By default the current one; without any, this process computes.

    Returns
    -------
    dask.array.Array or tuple of dask.array.Array
        For each output float32 [n, ...], in the same blocks; a tuple unless there is exactly one.

    Raises
    ------
    TypeError, ValueError
        For arrays that the network does not take.
    Error
        If the model cannot be loaded, here or by a worker.
    """
    data = bytes(read(model))
    with load(model, batch=batch, implementation=implementation) as network:
        inputs, outputs, implementation = network.inputs, network.outputs, network.implementation
        mixes_samples = network.mixes_samples
    if len(arrays) != len(inputs):
        raise TypeError(f"expected {len(inputs)} arrays, got {len(arrays)}")
    if mixes_samples:
        raise ValueError("the network mixes samples, so its input cannot be cut into blocks")
    for info, array in zip(inputs, arrays):
        _require_form(info, array)

    block = max(batch, arrays[0].chunks[0][0] // batch * batch)
    arrays = tuple(_in_blocks(array, block) for array in arrays)
    if any(array.chunks[0] != arrays[0].chunks[0] for array in arrays):
        raise ValueError("the arrays have different numbers of samples")

    plugin = ModelPlugin(data, batch, implementation)
    client = client or _client_of_process()
    if client:
        client.register_worker_plugin(plugin)
    else:
        plugin.load()
    return _results(plugin.name, arrays, outputs)


def _results(
    plugin: str, arrays: tuple[dask.array.Array, ...], outputs: tuple[TensorInfo, ...]
) -> dask.array.Array | tuple[dask.array.Array, ...]:
    """One task for each block; with several outputs one more for each of them, which takes it from the tuple."""
    sources: list[Any] = [plugin, None]
    for place, array in enumerate(arrays):
        sources += [array, _axes(f"input {place}", array.ndim)]
    if len(outputs) == 1:
        return _array(_run_block, outputs[0], sources)
    every = dask.array.blockwise(_run_block, "n", *sources, dtype=object, meta=numpy.empty(0, object))
    return tuple(_array(getitem, info, [every, "n", place, None]) for place, info in enumerate(outputs))


def _axes(name: str, count: int) -> tuple[str, ...]:
    """Blocks differ along the first axis only, which all arrays have in common."""
    return ("n", *(f"{name}, axis {axis}" for axis in range(1, count)))


def _array(function: Any, info: TensorInfo, sources: list[Any]) -> dask.array.Array:
    axes = _axes("output", len(info.shape))
    new_axes = dict(zip(axes[1:], info.shape[1:]))
    meta = numpy.empty([0] * len(axes), numpy.float32)
    return dask.array.blockwise(function, axes, *sources, new_axes=new_axes, dtype=meta.dtype, meta=meta)
