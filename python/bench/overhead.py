"""What a call from Python costs more than one from C++, for the digits network, whose run is short.

    overhead.py librunInCpp.so digits.cm

All run in one process, in turns and in random order. Prints medians.
"""

import ctypes
import random
import statistics
import sys
import time
from collections.abc import Callable
from pathlib import Path

import numpy

import nolk

RUNS, ROUNDS = 50, 200


def cpp_runs(library: str, model: bytes, implementation: str, x: numpy.ndarray, out: numpy.ndarray) -> Callable:
    functions = ctypes.CDLL(library)
    functions.loadRunner.restype = ctypes.c_void_p
    functions.loadRunner.argtypes = [ctypes.c_char_p, ctypes.c_int64, ctypes.c_char_p]
    functions.secondsOf.restype = ctypes.c_double
    functions.secondsOf.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_int]
    runner = functions.loadRunner(model, len(model), implementation.encode())
    assert runner
    return lambda: functions.secondsOf(runner, x.ctypes.data, out.ctypes.data, RUNS)


def python_runs(call: Callable) -> Callable:
    def seconds() -> float:
        start = time.perf_counter()
        for _ in range(RUNS):
            call()
        return time.perf_counter() - start

    return seconds


def main(library: str, path: str) -> None:
    model = Path(path).read_bytes()
    x = numpy.random.default_rng(1).uniform(0, 1, (1, 1, 28, 28)).astype(numpy.float32)
    out, expected = numpy.empty((2, 1, 10), numpy.float32)
    net = nolk.load(model)
    contestants = {
        "C++": cpp_runs(library, model, net.implementation, x, expected),
        "net.run([x], out=[out])": python_runs(lambda: net.run([x], out=[out])),
        "net(x)": python_runs(lambda: net(x)),
    }
    times: dict[str, list[float]] = {name: [] for name in contestants}
    for _ in range(ROUNDS):
        for name in random.sample(list(contestants), len(contestants)):
            times[name].append(contestants[name]() / RUNS * 1e6)
    assert (out == expected).all() and (net(x) == expected).all()
    print(f"digits network, batch 1, {net.implementation}, medians of {ROUNDS} rounds of {RUNS} runs")
    print(f"{'':24}{'us':>8}{'more than C++, us':>20}")
    for name, values in times.items():
        # The difference within a round is hardly moved by what else the machine does.
        more = statistics.median(value - cpp for value, cpp in zip(values, times["C++"]))
        print(f"{name:24}{statistics.median(values):8.1f}{more:20.2f}")


if __name__ == "__main__":
    main(*sys.argv[1:])
