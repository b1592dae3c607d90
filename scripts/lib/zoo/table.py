"""Converts the cases of export.py and prints what came out: a line of a Markdown table for each.

    python3 table.py FOLDER NOLK_CONVERT NOLK [--check] [NAME]...

Operations are those of the converted file. The difference is the largest between nolk's outputs and PyTorch's, of an
output's largest value. The time is the conversion's on the processor, without its check. With --check nolk-convert
compares with its own evaluator too. The exit status is 1 when a network was refused or differs by more than 1e-4.
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


def line(folder, arguments, scratch):
    model = scratch / "net.cm"
    begin = resource.getrusage(resource.RUSAGE_CHILDREN)
    status, text = run(arguments.convert, folder / "model.onnx", model, "--no-check")
    end = resource.getrusage(resource.RUSAGE_CHILDREN)
    seconds = end.ru_utime + end.ru_stime - begin.ru_utime - begin.ru_stime
    if status != 0:
        return f"| {folder.name} | | | | {text.splitlines()[-1] if text else 'no text'} |", False
    operations = next((word for row in text.splitlines() for word, unit in zip(row.split(), row.split()[1:])
                       if unit.startswith("operations")), "?")
    far = difference(model, folder, arguments.nolk, scratch)
    checked = ""
    if arguments.check:
        status, text = run(arguments.convert, folder / "model.onnx", model)
        checked = "" if status == 0 else text.splitlines()[-1]
    good = far <= 1e-4 and status == 0
    return f"| {folder.name} | {operations} | {far:.1e} | {seconds:.2f} s | {checked} |", good


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("convert", type=pathlib.Path)
    parser.add_argument("nolk", type=pathlib.Path)
    parser.add_argument("names", nargs="*")
    parser.add_argument("--check", action="store_true")
    arguments = parser.parse_intermixed_args()
    print("| network | operations | difference | conversion | remark |\n|---|---|---|---|---|")
    all_good = True
    for folder in sorted(path for path in arguments.folder.iterdir() if (path / "model.onnx").exists()):
        if arguments.names and folder.name not in arguments.names:
            continue
        with tempfile.TemporaryDirectory() as scratch:
            try:
                text, good = line(folder, arguments, pathlib.Path(scratch))
            except RuntimeError as error:
                text, good = f"| {folder.name} | | | | {error} |", False
        print(text, flush=True)
        all_good = all_good and good
    sys.exit(0 if all_good else 1)


main()
