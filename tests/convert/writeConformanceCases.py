"""Writes the conformance cases of ONNX's operators, which Debian's python3-onnx computes when it is asked for them.

    python3 writeConformanceCases.py FOLDER

Each case gets a folder with model.onnx, input_0.pb ..., output_0.pb ... Cases with other values than tensors are left out.
"""
import pathlib
import sys
import warnings

import numpy
import onnx
from onnx import numpy_helper

OLDEST_OPSET = 9

for old, new in (("object", object), ("bool", bool), ("int", int), ("float", float)):
    if old not in vars(numpy):  # names that newer releases of numpy no longer have
        setattr(numpy, old, new)


def write(case, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for opset in case.model.opset_import:
        if opset.domain == "" and opset.version < OLDEST_OPSET:  # the definition has not changed since
            opset.version = OLDEST_OPSET
    onnx.save(case.model, str(folder / "model.onnx"))
    inputs, outputs = case.data_sets[0]
    graph = case.model.graph
    for kind, arrays, names in (("input", inputs, graph.input), ("output", outputs, graph.output)):
        for i, array in enumerate(arrays):
            tensor = array if isinstance(array, onnx.TensorProto) else numpy_helper.from_array(numpy.asarray(array))
            tensor.name = names[i].name
            (folder / f"{kind}_{i}.pb").write_bytes(tensor.SerializeToString())


def main():
    warnings.simplefilter("ignore")
    from onnx.backend.test.case.node import collect_testcases
    root = pathlib.Path(sys.argv[1])
    left_out = 0
    for case in collect_testcases(None):
        values = [value for data in case.data_sets[0] for value in data]
        if "BFLOAT16" in case.name or any(isinstance(value, (list, dict)) or value is None for value in values):
            left_out += 1
            continue
        write(case, root / case.name)
    print(f"{len(list(root.iterdir()))} cases, {left_out} left out")


main()
