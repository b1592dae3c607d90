"""What recording networks needs besides the operations, which are in _operations.py."""

import os
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any

import numpy
from numpy.typing import NDArray

from . import _nolk
from ._network import Network, load
from ._nolk import Tensor
from ._source import require_batch, require_bool, require_implementation, require_integer, require_string

Array = NDArray[numpy.float32]

# The keys of names in a file's head info, see docs/model-format.md.
INPUT_NAME, OUTPUT_NAME = 1, 2


class Recorder:
    """Records a network, operation by operation, builds it, and saves it as a model file.

    Every operation returns the tensor that it makes. Its class `Tensor` has the shape of one sample; the batch comes
    with `build`. Weights are numpy arrays, float32 and C-contiguous, and are copied by the call::

        b = nolk.Builder()
        x = b.input(1, 28, 28)
        y = b.softmax(b.full_connect(b.reshape(x, (784,)), weight, bias), axis="c")
        with b.build([y], batch=16) as net:
            scores = net(pictures)
        b.save("own.cm")

    Below, x is [n, c, h, w]; results are float32 too.
    """

    def __init__(self) -> None:
        self._recording = _nolk.Recording()
        self._input_names: list[str] = []
        self._output_names: list[str] = []

    def _call(self, code: int, inputs: Sequence[Tensor], arguments: Sequence[Any]) -> Tensor:
        return self._recording.call(code, inputs, arguments)

    def input(self, *shape: int, name: str = "") -> Tensor:
        """The next input of the network; a network takes its inputs in the order of these calls.

        Parameters
        ----------
        *shape : int
            Channels, rows and columns of one sample, or the columns of a matrix alone.
        name : str
            Its name; without it the input is called "input 0", "input 1" and so on.

        Returns
        -------
        Tensor
        """
        extents = [require_integer("input", extent, 1, 2**31 - 1) for extent in shape]
        name = require_string("name", name)
        tensor = self._recording.call(0, [], [extents])
        self._input_names.append(name)
        return tensor

    def build(
        self,
        outputs: Sequence[Tensor] | Mapping[str, Tensor],
        *,
        batch: int = 1,
        implementation: str | None = None,
        shared: bool = False,
    ) -> Network:
        """Build the network. A builder builds once, and records nothing afterwards.

        Wrong arguments, which include a missing implementation, leave the builder as it was. If the recorded network
        cannot be loaded, or not with these settings, the builder is used up; `to_bytes` still returns the network, so
        that `check` can look at it.

        Parameters
        ----------
        outputs : sequence or mapping of Tensor
            The tensors that a run returns, in this order; as a mapping with their names, where an empty one stands for
            "output 0", "output 1" and so on.
        batch, implementation, shared
            As for `load`.

        Returns
        -------
        Network

        Raises
        ------
        Error
            If the network cannot be loaded, with the operation and the reason. Not every operation that does not fit
            its input is found: some are run and give undefined results. `nolk.check` on `to_bytes` reports those.
        TypeError, ValueError
            For arguments of another type, and for numbers out of range.
        """
        # A builder that is finished takes no second call, so wrong arguments are found before.
        batch, shared = require_batch(batch), require_bool("shared", shared)
        implementation = require_implementation(implementation)
        names = [require_string("outputs", name) for name in outputs] if isinstance(outputs, Mapping) else []
        self._recording.finish(list(outputs.values()) if isinstance(outputs, Mapping) else outputs)
        self._output_names = names
        return load(self.to_bytes(), batch=batch, implementation=implementation, shared=shared)

    def to_bytes(self, *, version: int = 4, lossy: bool = False) -> bytes:
        """The network as a model file, after `build`, even if that could not load the network.

        Parameters
        ----------
        version : int
            Of the file format, 1 to 4. Names need 2 or more.
        lossy : bool
            Whether weights may be replaced by the nearest of 256 values where that makes the file smaller; version 4.

        Returns
        -------
        bytes
        """
        version, lossy = require_integer("version", version, 1, 4), require_bool("lossy", lossy)
        head_info: list[tuple[int, bytes]] = []
        for key, kind, names in ((INPUT_NAME, "input", self._input_names), (OUTPUT_NAME, "output", self._output_names)):
            if version > 1 and any(names):  # a file has names for all of a kind or for none
                head_info += [(key, (name or f"{kind} {place}").encode()) for place, name in enumerate(names)]
        return self._recording.file(version, lossy, head_info)

    def save(self, path: str | os.PathLike[str], *, version: int = 4, lossy: bool = False) -> None:
        """Write the network to a file, after `build`.

        Parameters
        ----------
        path : str or os.PathLike
            The model file.
        version, lossy
            As for `to_bytes`.
        """
        Path(path).write_bytes(self.to_bytes(version=version, lossy=lossy))
