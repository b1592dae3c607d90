"""Runs neural networks on CPUs, on numpy arrays.

    import nolk

    with nolk.load("digits.cm", batch=16) as net:
        print(net.inputs, net.outputs)   # names and shapes
        scores = net(pictures)           # numpy float32 [n, 1, 28, 28] to [n, 10]
        net.run([pictures], out=[scores])  # into the caller's arrays

What there is:

    load        a network from a model file
    inspect     what is in a model file
    check       what is wrong with a model file
    convert     a model file from an ONNX file
    Builder     a network recorded operation by operation
    nolk.dask   a network over a Dask array, on many machines

Arrays are float32, C-contiguous and in the order [n, c, h, w]: samples, channels, rows, columns; matrices are [n, c].
Errors of the library are `nolk.Error`; wrong arguments raise `TypeError` and `ValueError`.
"""

from ._models import Finding, check, convert, inspect
from ._network import Network, TensorInfo, has_implementation, load
from ._nolk import Error, LimitExceeded, Tensor
from ._operations import Builder

for _public in (Builder, Error, Finding, LimitExceeded, Network, Tensor, TensorInfo):
    _public.__module__ = __name__  # where users find it; help and messages say so
for _function in (check, convert, has_implementation, inspect, load):
    _function.__module__ = __name__
del _public, _function

__all__ = [
    "Builder",
    "Error",
    "Finding",
    "LimitExceeded",
    "Network",
    "Tensor",
    "TensorInfo",
    "check",
    "convert",
    "has_implementation",
    "inspect",
    "load",
]
