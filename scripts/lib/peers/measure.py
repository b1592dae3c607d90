"""Times one model with several runtimes, turn by turn.

    results = measure(runtimes, model, key, 15, False)     # runtimes: key -> function(model) that starts a host
    results[key].median, .load, .memory, .difference
    measure(runtimes, model, key, 15, False, peak_host)[key].share(gflop)

Every host stays alive while all are measured. In a turn a host runs once untimed, because the others have emptied the
caches, then for about TURN_SECONDS. The order changes from round to round, so that a slow moment of the machine does
not hit one runtime alone. With a peak host, each turn is preceded by as long a time of multiply-adds that need no
memory: what the processor sustains changes from second to second.
"""
import dataclasses
import math
import random
import statistics

import numpy

TURN_SECONDS = 0.1
LOADS = 5


@dataclasses.dataclass
class Result:
    microseconds: list
    loads: list            # seconds
    memory: int = 0        # bytes that the network added to those of the program, at most
    difference: float = 0  # the largest from the reference's outputs, of their largest value
    turns: list = dataclasses.field(default_factory=list)  # the median microseconds of each
    peaks: list = dataclasses.field(default_factory=list)  # GFLOP/s of one core before each turn

    @property
    def median(self):
        return statistics.median(self.microseconds)

    def share(self, gflop):
        """Of the peak of one core, if a run takes so many GFLOP."""
        return statistics.median(gflop / time * 1e6 / peak for time, peak in zip(self.turns, self.peaks))

    @property
    def load(self):
        return statistics.median(self.loads)


def measure(runtimes, model, reference, rounds, pin, peak_host=None):
    hosts = {}
    try:
        for key, start in runtimes.items():
            hosts[key] = start(model)
        results = {key: first_runs(host) for key, host in hosts.items()}
        compare(model, hosts, results, reference)
        for key, host in hosts.items():
            if pin:
                host.pin(results[key].runs_of_a_turn)
        time_turns(hosts, results, rounds, peak_host)
        for _ in range(LOADS - 1):
            for key, host in hosts.items():
                results[key].loads.append(host.load())
    finally:
        for host in hosts.values():
            host.close()
    return results


def first_runs(host):
    result = Result([], [host.load()])
    for _ in range(3):
        last = host.run(1)[0]
    result.memory = host.memory()[1] - host.memory_before
    result.runs_of_a_turn = max(2, min(1000, math.ceil(TURN_SECONDS * 1e6 / last)))
    return result


def compare(model, hosts, results, reference):
    """Stores the largest differences of outputs. Every output counts by its own largest value."""
    shapes = hosts[reference].shapes()
    outputs = {key: outputs_of(host, model) for key, host in hosts.items()}
    for key, floats in outputs.items():
        if floats.size != outputs[reference].size:
            raise RuntimeError(f"{key[0]} has {floats.size} outputs, {reference[0]} {outputs[reference].size}")
        begin = 0
        for size in map(math.prod, shapes):
            wanted, found = outputs[reference][begin:begin + size], floats[begin:begin + size]
            far = float(numpy.abs(found - wanted).max() / max(numpy.abs(wanted).max(), 1e-6))
            results[key].difference = max(results[key].difference, math.inf if math.isnan(far) else far)
            begin += size


def outputs_of(host, model):
    path = model.input_file.with_suffix(".out")
    host.write(path)
    return model.batch_first(numpy.fromfile(path, numpy.float32), host.shapes())


def time_turns(hosts, results, rounds, peak_host):
    keys = list(hosts)
    shuffle = random.Random(1).shuffle
    for _ in range(rounds):
        shuffle(keys)
        for key in keys:
            if peak_host:
                results[key].peaks.append(peak_host.peak(TURN_SECONDS))
            hosts[key].run(1)
            times = hosts[key].run(results[key].runs_of_a_turn)
            results[key].microseconds += times
            results[key].turns.append(statistics.median(times))
            hosts[key].settle()
