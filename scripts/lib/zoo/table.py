"""Converts the cases of export.py and prints what came out: a line of a Markdown table for each.

    python3 table.py FOLDER NOLK_CONVERT NOLK [--check] [NAME]...

Operations are those of the converted file. The difference is the largest between nolk's outputs and PyTorch's, of an
output's largest value. The time is the conversion's on the processor, without its check. With --check nolk-convert
compares with its own evaluator too. Refusals are counted in the table and listed below it, as nolk-convert gives them.
The exit status is 1 when a network was refused or differs by more than 1e-4.
"""
import argparse
import pathlib
import resource
import subprocess
import sys
import tempfile

import numpy


def run(*command):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True)
    return done.returncode, (done.stdout + done.stderr).strip()


def difference(model, folder, nolk, scratch):
    wanted = [numpy.load(path) for path in sorted(folder.glob("output_*.npy"))]
    made = [scratch / f"{i}.npy" for i in range(len(wanted))]
    status, text = run(nolk, "run", model, "--input", folder / "input_0.npy", "--output", *made)
    if status != 0:
        raise RuntimeError(text)
    largest = 0.0
    for path, array in zip(made, wanted):
        result = numpy.load(path).ravel()
        if result.size != array.size:
            raise RuntimeError(f"output of {result.size} elements instead of {array.size}")
        scale = max(float(numpy.abs(array).max()), 1e-6)
        largest = max(largest, float(numpy.abs(result - array.ravel()).max()) / scale)
    return largest


def operations_in(text):
    words = [row.split() for row in text.splitlines()]
    return next((count for row in words for count, unit in zip(row, row[1:]) if unit.startswith("operations")), "?")


def convert(folder, arguments, scratch):
    """A line of the table, and what stands in the way, if anything does."""
    model, source = scratch / "net.cm", folder / "model.onnx"
    begin = resource.getrusage(resource.RUSAGE_CHILDREN)
    status, text = run(arguments.convert, source, model, "--no-check")
    end = resource.getrusage(resource.RUSAGE_CHILDREN)
    seconds = end.ru_utime + end.ru_stime - begin.ru_utime - begin.ru_stime
    if status != 0:
        refused = sum(row.startswith("  node") for row in text.splitlines())
        return f"| {folder.name} | | | | {refused or 'the file'} |", text
    operations = operations_in(text)
    far = difference(model, folder, arguments.nolk, scratch)
    wrong = "" if far <= 1e-4 else f"differs from PyTorch by {far:.1e}"
    if arguments.check:
        status, text = run(arguments.convert, source, model)
        wrong = wrong if status == 0 else text
    return f"| {folder.name} | {operations} | {far:.1e} | {seconds:.2f} s | 0 |", wrong


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("convert", type=pathlib.Path)
    parser.add_argument("nolk", type=pathlib.Path)
    parser.add_argument("names", nargs="*")
    parser.add_argument("--check", action="store_true")
    arguments = parser.parse_intermixed_args()
    print("| network | operations | difference | conversion | refusals |\n|---|---|---|---|---|")
    wrong = {}
    for folder in sorted(path for path in arguments.folder.iterdir() if (path / "model.onnx").exists()):
        if arguments.names and folder.name not in arguments.names:
            continue
        with tempfile.TemporaryDirectory() as scratch:
            try:
                text, wrong[folder.name] = convert(folder, arguments, pathlib.Path(scratch))
            except RuntimeError as error:
                text, wrong[folder.name] = f"| {folder.name} | | | | |", str(error)
        print(text, flush=True)
    for name, text in wrong.items():
        if text:
            print(f"\n{name}:\n{text}")
    sys.exit(1 if any(wrong.values()) else 0)


main()
