"""Times nolk and ONNX Runtime on the networks of scripts/bench-peers, which calls this.

    python3 compare.py CASES --tools BUILD --node-modules FOLDER [--layers] [--threads 1,2] [--batch 1] [--rounds 15]
        [--runtimes built-in,NolkFast,ORT] [--libraries FOLDER] [--pin] [--json FILE] [NAME]...

CASES holds what export.py exported. Prints tables, and exits with 1 when outputs differ by more than 1e-4 of the
largest value. NolkFast is left out where libNolkFast.so is not there. Ratios and differences are from ORT, or from the
first runtime if ORT is left out.
"""
import argparse
import functools
import json
import os
import pathlib
import sys

from hosts import NolkHost, OnnxRuntimeHost
from measure import measure
from models import Model
from report import Report, heading, is_close, version_of

LIMIT = 1e-4


class Tools:
    def __init__(self, arguments):
        build = arguments.tools
        self.nolk, self.convert = build / "tools/nolk", build / "tools/convert/nolk-convert"
        self.nolk_host, self.node_modules = build / "bench/nolk_peer_host", arguments.node_modules.resolve()
        self.libraries = arguments.libraries or build / "src"

    def versions(self):
        ort = json.loads((self.node_modules / "onnxruntime-node/package.json").read_text())["version"]
        return f"{version_of(self.nolk, '--version')}, ONNX Runtime (ORT) {ort}, Node.js {version_of('node', '-v')}"


def fast_library(folder):
    return next((path for path in (folder / "libNolkFast.so", folder / "fast/libNolkFast.so") if path.exists()), None)


def start_of(tools, name, threads):
    if name == "ORT":
        return functools.partial(OnnxRuntimeHost, tools, threads)
    return functools.partial(NolkHost, tools, "NolkRaw" if name == "built-in" else name, threads)


def measured(tools, cases, name, runtimes, arguments, reference, peak_host=None):
    folder = cases / name
    if not (folder / "model.onnx").exists():
        raise RuntimeError("not exported")
    model = Model(tools, folder, arguments.batch)
    return measure(runtimes, model, reference, arguments.rounds, arguments.pin, peak_host), model.gflop


def arguments_of_program():
    parser = argparse.ArgumentParser()
    parser.add_argument("cases", type=pathlib.Path)
    parser.add_argument("names", nargs="*")
    parser.add_argument("--tools", type=pathlib.Path, required=True)
    parser.add_argument("--node-modules", type=pathlib.Path, required=True)
    parser.add_argument("--libraries", type=pathlib.Path)
    parser.add_argument("--layers", action="store_true")
    parser.add_argument("--threads", type=lambda text: sorted(int(n) for n in text.split(",")), default=[1, 2])
    parser.add_argument("--batch", type=int, default=1)
    parser.add_argument("--rounds", type=int, default=15)
    parser.add_argument("--runtimes", type=lambda text: text.split(","), default=["built-in", "NolkFast", "ORT"])
    parser.add_argument("--pin", action="store_true")
    parser.add_argument("--json", type=pathlib.Path)
    return parser.parse_intermixed_args()


def subtract_nothing(nothing, all_results):
    """Subtracts what a network that does nothing takes: all memory, and ORT's time, as its calls go through Node.js."""
    for results in all_results.values():
        for (name, threads), result in results.items():
            result.memory -= nothing[name, threads].memory
            if name == "ORT":
                result.microseconds = [time - nothing[name, threads].median for time in result.microseconds]
                result.turns = [time - nothing[name, threads].median for time in result.turns]


def host_for_peak(tools, arguments):
    return start_of(tools, "built-in", 1)(Model(tools, arguments.chains / "nothing", arguments.batch))


def save(path, all_results, gflops):
    rows = [{"network": network, "runtime": name, "threads": threads, "gflop": gflops[network],
             "median_us": result.median, "load_s": result.load, "memory_bytes": result.memory,
             "difference": result.difference, "times_us": result.microseconds}
            for network, results in all_results.items() for (name, threads), result in results.items()]
    path.write_text(json.dumps(rows))


def measure_all(tools, report, arguments, peak_host):
    """Results and GFLOP of every network, and whether none failed."""
    runtimes = {(name, threads): start_of(tools, name, threads) for name in report.names for threads in report.threads}
    reference = report.reference, report.threads[0]
    nothing, _ = measured(tools, arguments.chains, "nothing", runtimes, arguments, reference)
    all_results, gflops, good = {}, {}, True
    cases = sorted(folder.name for folder in arguments.cases.iterdir() if folder.name != "nothing")
    for name in arguments.names or cases:
        print(f"{name} ...", file=sys.stderr)
        try:
            all_results[name], gflops[name] = measured(tools, arguments.cases, name, runtimes, arguments, reference,
                                                       peak_host)
        except RuntimeError as error:  # the other networks are measured all the same
            print(f"{name}: {error}", file=sys.stderr)
            good = False
    subtract_nothing(nothing, all_results)
    print(heading(tools.versions(), nothing, arguments))
    return all_results, gflops, good


def main():
    arguments = arguments_of_program()
    arguments.chains = arguments.cases.parent / "chains"
    tools = Tools(arguments)
    fast = fast_library(tools.libraries)
    folders = [tools.libraries] + ([fast.parent] if fast else [])
    os.environ["LD_LIBRARY_PATH"] = ":".join(str(folder.resolve()) for folder in folders)
    report = Report([name for name in arguments.runtimes if name != "NolkFast" or fast], arguments.threads)

    peak_host = host_for_peak(tools, arguments) if arguments.layers else None
    all_results, gflops, good = measure_all(tools, report, arguments, peak_host)
    if peak_host:
        peak_host.close()
    if arguments.json:
        save(arguments.json, all_results, gflops)
    if arguments.layers:
        print(report.layers(all_results, gflops))
    else:
        print(report.times(all_results))
    print(report.costs(all_results))
    sys.exit(0 if good and is_close(all_results, LIMIT) else 1)


main()
