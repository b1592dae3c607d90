"""Exports networks of networks.py as cases: FOLDER/NAME/model.onnx, input_0.npy ..., output_0.npy ..., and the same
tensors as .pb files of ONNX.

    python3 export.py FOLDER [--opset 17] [--dynamic] [--set zoo|peers|chains] [NAME]...

With --dynamic the batch is free in the file, else it is 1. Cases that are there already stay. The sets are those of
networks.py.
"""
import argparse
import pathlib
import warnings

import numpy
import onnx
import torch
from networks import SETS
from onnx import numpy_helper


def settle(network, shape):
    """Batch normalisations get the statistics of their own inputs, and every scale and head values of its own."""
    torch.manual_seed(1)
    norms = [m for m in network.modules() if isinstance(m, (torch.nn.BatchNorm2d, torch.nn.LayerNorm))]
    for norm in norms:
        norm.weight.data.uniform_(0.5, 1.5)
        norm.bias.data.uniform_(-0.3, 0.3)
        if isinstance(norm, torch.nn.BatchNorm2d):
            norm.momentum = 0.5
    for module in network.modules():
        if isinstance(module, torch.nn.Linear) and not module.weight.any():  # a head that begins with zeros
            torch.nn.init.normal_(module.weight, std=0.05)
    network.train()
    with torch.no_grad():
        for _ in range(3):
            network(torch.randn(2, *shape))
    network.eval()


def tensors_of(result):
    if isinstance(result, dict):
        return list(result.values())
    return list(result) if isinstance(result, (tuple, list)) else [result]


class Tensors(torch.nn.Module):
    """Networks that return dictionaries return tensors."""

    def __init__(self, network):
        super().__init__()
        self.network = network

    def forward(self, x):
        found = tensors_of(self.network(x))
        return found[0] if len(found) == 1 else tuple(found)


def save(folder, kind, names, tensors):
    for i, (name, tensor) in enumerate(zip(names, tensors)):
        array = tensor.detach().numpy()
        numpy.save(folder / f"{kind}_{i}.npy", array)
        (folder / f"{kind}_{i}.pb").write_bytes(numpy_helper.from_array(array, name).SerializeToString())


def export(network_and_shape, folder, opset, dynamic):
    torch.manual_seed(0)
    make, shape = network_and_shape
    network = make()
    settle(network, shape)
    network = Tensors(network).eval()
    for module in network.modules():
        if isinstance(module, torch.nn.MultiheadAttention):
            module.training = module.dropout == 0  # its short cut for evaluation cannot be exported
    x = torch.randn(1, *shape)
    folder.mkdir(parents=True, exist_ok=True)
    with torch.no_grad():
        results = tensors_of(network(x))
        free = {"x": {0: "batch"}} if dynamic else None
        torch.onnx.export(network, x, str(folder / "part.onnx"), opset_version=opset, input_names=["x"],
                          dynamic_axes=free, training=torch.onnx.TrainingMode.PRESERVE)
    names = [output.name for output in onnx.load(str(folder / "part.onnx")).graph.output]
    save(folder, "input", ["x"], [x])
    save(folder, "output", names, results)
    (folder / "part.onnx").rename(folder / "model.onnx")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("names", nargs="*")
    parser.add_argument("--opset", type=int, default=17)
    parser.add_argument("--dynamic", action="store_true")
    parser.add_argument("--set", choices=SETS, default="zoo")
    arguments = parser.parse_intermixed_args()
    warnings.simplefilter("ignore")
    networks = SETS[arguments.set]
    for name in arguments.names or networks:
        folder = arguments.folder / name
        if (folder / "model.onnx").exists():
            continue
        try:
            export(networks[name], folder, arguments.opset, arguments.dynamic)
        except Exception as error:  # one that cannot be exported does not stop the others
            lines = str(error).strip().splitlines() or [type(error).__name__]
            print(f"{name}: not exported: {lines[0]}", flush=True)


main()
