"""Loaded networks."""

from collections.abc import Sequence
from types import TracebackType
from typing import NamedTuple

import numpy
from numpy.typing import NDArray

from . import _nolk
from ._source import Model, errors_name, read, require_batch, require_bool, require_limit, require_string

Array = NDArray[numpy.float32]


class TensorInfo(NamedTuple):
    """An input or output of a network: its name and its shape.

    The name is the file's, or "input 0", "output 1" and so on in files that give none. The shape is (n, c, h, w), or
    (n, c) for a matrix, where n is the batch.
    """

    name: str
    shape: tuple[int, ...]


class Network:
    """A network that is ready to run; `load` and `Builder.build` make it.

    Call it with one numpy array for each input. It returns one array, or a tuple of arrays if the network has several
    outputs::

        with nolk.load("digits.cm", batch=16) as net:
            scores = net(pictures)  # float32 [n, 1, 28, 28] to float32 [n, 10]

    Arrays are float32 and C-contiguous; others are refused, never converted. They hold any number of samples n, the
    same for all inputs: the network runs on as many at a time as its batch, and fills up the last ones with zeros,
    whose results are cut off. A network that mixes samples, see `mixes_samples`, takes exactly one batch.

    Python's global lock is released while the network runs. Only one thread may use a network at a time: a second call
    raises `Error`. A network that was loaded with ``shared=True`` may be called from many threads. Ctrl-C and other
    signals are handled between two batches, so in the main thread they interrupt a call of many samples. A thread that
    is in a call when Python ends stays in it until the process ends.
    """

    def __init__(self, network: _nolk.Network) -> None:
        self._network = network
        self._inputs = tuple(TensorInfo(*info) for info in network.inputs)
        self._outputs = tuple(TensorInfo(*info) for info in network.outputs)

    def __call__(self, *inputs: Array) -> Array | tuple[Array, ...]:
        """Run the network.

        Parameters
        ----------
        *inputs : numpy.ndarray
            For each input, in the order of `inputs`, float32 [n, c, h, w], or [n, c] for a matrix.

        Returns
        -------
        numpy.ndarray or tuple of numpy.ndarray
            A new array for each output, float32 [n, ...]; a tuple unless there is exactly one.

        Raises
        ------
        TypeError
            For a wrong number of arrays, and for anything but numpy arrays of float32 without a mask.
        ValueError
            For a wrong shape or an array that is not C-contiguous.
        Error
            If the network is closed, or runs in another thread.
        """
        return self._network(*inputs)  # type: ignore[no-any-return]

    def run(self, inputs: Sequence[Array], out: Sequence[Array]) -> None:
        """Run the network into arrays of the caller.

        Nothing is allocated for results, so this is the faster way for small networks and for large results.

        Parameters
        ----------
        inputs : sequence of numpy.ndarray
            As for a call.
        out : sequence of numpy.ndarray
            For each output a writable array, float32 [n, ...], that shares no memory with another one. After an error
            its values are undefined.

        Raises
        ------
        TypeError, ValueError, Error
            As for a call.
        """
        self._network.run(inputs, out)

    def close(self) -> None:
        """Free the network. Using it afterwards raises `Error`.

        A call that is under way in another thread is finished first; the last one frees the memory.
        """
        self._network.close()

    def __enter__(self) -> "Network":
        if self.closed:
            raise _nolk.Error("the network is closed")
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self.close()

    @property
    def inputs(self) -> tuple[TensorInfo, ...]:
        """Names and shapes of the inputs, in the order of the arguments."""
        return self._inputs

    @property
    def outputs(self) -> tuple[TensorInfo, ...]:
        """Names and shapes of the outputs, in the order of the results."""
        return self._outputs

    @property
    def batch(self) -> int:
        """The number of samples that one run of the network computes."""
        return self._network.batch

    @property
    def shared(self) -> bool:
        """Whether several threads may call it at once."""
        return self._network.shared

    @property
    def mixes_samples(self) -> bool:
        """Whether a sample's result may depend on the other samples of its batch.

        So it is where a tensor does not have one sample for each of the batch, or where an operation works across them:
        a transposition that moves the first axis, a prelu in a batch above 1. Such a network takes exactly one batch,
        and several threads cannot share it.
        """
        return self._network.mixes_samples

    @property
    def implementation(self) -> str:
        """The implementation that runs it, with its settings: "NolkFast", "NolkRaw:num_threads=2"."""
        return self._network.implementation

    @property
    def closed(self) -> bool:
        """Whether `close` was called."""
        return self._network.is_closed

    def __repr__(self) -> str:
        inputs, outputs = (
            ", ".join(f"{tensor.name} {list(tensor.shape)}" for tensor in tensors)
            for tensors in (self._inputs, self._outputs)
        )
        state = ", closed" if self.closed else ""
        return f"<nolk.Network {inputs} -> {outputs}; {self.implementation}{state}>"


def load(
    model: Model,
    *,
    batch: int = 1,
    implementation: str | None = None,
    shared: bool = False,
    memory_bytes: int | None = None,
    multiply_adds: int | None = None,
) -> Network:
    """Load a network.

    Parameters
    ----------
    model : str, os.PathLike, bytes, bytearray or memoryview
        The path of a model file, or its bytes. These are read twice, so they must not change before `load` returns;
        they are not needed afterwards.
    batch : int
        The number of samples that one run of the network computes. Memory grows with it.
    implementation : str, optional
        A name with settings: "NolkFast:num_threads=2". By default NolkFast, whose results are the same on every
        machine, or the built-in NolkRaw if that is not installed. It names a library to be loaded, so it must never
        come from the same source as an untrusted model.
    shared : bool
        Whether several threads may call the network at once. With a batch above 1, samples of concurrent callers run
        together.
    memory_bytes, multiply_adds : int, optional
        The largest network that is accepted: bytes in memory, and steps of one run. No limits by default; give both for
        models of unknown origin.

    Returns
    -------
    Network

    Raises
    ------
    Error
        If the model cannot be loaded, with the library's reason. `LimitExceeded` if it is too large.
    OSError
        If the file cannot be read.
    TypeError, ValueError
        For arguments of another type, and for numbers out of range.
    """
    batch = require_batch(batch)
    if implementation is not None:
        require_string("implementation", implementation)
    shared = require_bool("shared", shared)
    limits = require_limit("memory_bytes", memory_bytes), require_limit("multiply_adds", multiply_adds)
    data = read(model)
    with errors_name(model):
        return Network(_nolk.Network(data, batch, implementation, shared, *limits))


def has_implementation(name: str) -> bool:
    """Whether an implementation is installed.

    Parameters
    ----------
    name : str
        Its name, without settings: "NolkFast". Its library is loaded to find out.

    Returns
    -------
    bool
    """
    return _nolk.has_implementation(require_string("name", name))
