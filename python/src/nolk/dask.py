"""Networks over Dask arrays, on one machine or on many.

    from dask.distributed import Client
    import nolk.dask

    with Client("tcp://scheduler:8786") as client:
        scores = nolk.dask.predict("digits.cm", pictures, batch=16, client=client)
        digits = scores.argmax(axis=1).compute()

Needs dask and distributed (Debian: python3-dask and python3-distributed), on the workers too.
"""

import hashlib
import threading
from itertools import accumulate, pairwise
from operator import getitem
from typing import Any

import dask.array
import numpy
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
        # Blocks of another process may lie anywhere within a message.
        arrays = [numpy.require(block, requirements=["C", "A"]) for block in blocks]
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
        self.name = f"nolk-{hashlib.sha256(model).hexdigest()}-{batch}-{implementation}"

    def setup(self, worker: Any) -> None:
        self.load()
        self.model = b""  # this copy came with a message, and the network has what it needs

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
    """Load the model of a plugin whose setup failed: Dask only logs why, so the task repeats it and fails with it."""
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
    if not isinstance(array, dask.array.Array):
        raise TypeError(f"{info.name}: expected a Dask array, got {type(array).__name__}")
    if array.dtype != numpy.float32:
        raise TypeError(f"{info.name}: expected float32, got {array.dtype}")
    if numpy.isnan(array.shape[:1]).any():
        raise ValueError(f"{info.name}: the number of samples is not known; array.compute_chunk_sizes() finds it")
    if array.shape[1:] != info.shape[1:]:
        extents = ", ".join(["n", *map(str, info.shape[1:])])
        raise ValueError(f"{info.name}: expected float32 [{extents}], got shape {array.shape}")


def _blocks(array: dask.array.Array, batch: int) -> tuple[int, ...]:
    """Its chunks along the first axis with every cut moved back to a multiple of the batch, so that all but the last
    hold whole batches, and hardly a sample moves to another chunk."""
    count = array.shape[0]
    cuts = {end // batch * batch for end in accumulate(array.chunks[0][:-1])} | {0, count}
    return tuple(after - before for before, after in pairwise(sorted(cuts))) or (0,)


def _in_blocks(array: dask.array.Array, blocks: tuple[int, ...]) -> dask.array.Array:
    """The array in these blocks, each with whole samples; itself if it has them already."""
    return array.rechunk((blocks, *array.shape[1:]))


def _register(client: Any, plugin: ModelPlugin) -> None:
    """Gives the plugin to the scheduler and the workers, unless they have it: the scheduler keeps a note."""
    if client.asynchronous:
        raise ValueError("predict needs a client that is not asynchronous")
    note = ["nolk", plugin.name]
    if not client.get_metadata(note, default=False):
        client.register_worker_plugin(plugin)
        client.set_metadata(note, True)


def predict(
    model: Model,
    *arrays: dask.array.Array,
    batch: int = 16,
    implementation: str | None = None,
    client: Any = None,
) -> dask.array.Array | tuple[dask.array.Array, ...]:
    """Map a network over the first axis of Dask arrays.

    Nothing is computed yet, except that the workers load the model: each process once, and those that join later, too.
    They get the model's bytes from the scheduler when they load it, not with the tasks, so they need no access to the
    file. Another call for the same model, batch and implementation sends nothing.

    Parameters
    ----------
    model : str, os.PathLike, bytes, bytearray or memoryview
        The path of a model file on this machine, or its bytes.
    *arrays : dask.array.Array
        For each input of the network, float32 [n, c, h, w], or [n, c] for a matrix. They are computed block by block.
        The blocks are the first array's chunks, as far as these are multiples of the batch. Other chunks are cut anew,
        at the multiple before their end, so that only the last block needs filling up; that copies them. So does
        joining chunks of part of a sample, and adapting other inputs to the first one's blocks.
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
        For arrays that the network does not take, or whose number of samples is not known yet.
    Error
        If the model cannot be loaded, here or by a worker.
    """
    data = bytes(read(model))
    with load(model, batch=batch, implementation=implementation) as network:
        inputs, outputs, mixes_samples = network.inputs, network.outputs, network.mixes_samples
        batch, implementation = network.batch, network.implementation
    if len(arrays) != len(inputs):
        raise TypeError(f"expected {len(inputs)} {'array' if len(inputs) == 1 else 'arrays'}, got {len(arrays)}")
    if mixes_samples:
        raise ValueError("the network mixes samples, so its input cannot be cut into blocks")
    for info, array in zip(inputs, arrays):
        _require_form(info, array)

    if len({array.shape[0] for array in arrays}) > 1:
        raise ValueError("the arrays have different numbers of samples")
    blocks = _blocks(arrays[0], batch)
    arrays = tuple(_in_blocks(array, blocks) for array in arrays)

    plugin = ModelPlugin(data, batch, implementation)
    client = client or _client_of_process()
    if client:
        _register(client, plugin)
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
