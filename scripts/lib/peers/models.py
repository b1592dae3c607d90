"""A network as each runtime reads it: converted for nolk, and as ONNX with the batch filled in.

    model = Model(tools, folder / "resnet18", batch=1)

The exported file leaves the batch free, so that one converted file serves all batches. ONNX Runtime plans its memory
best for shapes that are known, so it gets a copy with the batch.
"""
import json
import math
import subprocess

import numpy
import onnx


def run(*command):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError((done.stdout + done.stderr).strip().splitlines()[-1])
    return done.stdout


def is_newer(made, *sources):
    return made.exists() and all(made.stat().st_mtime >= source.stat().st_mtime for source in sources)


class Model:
    def __init__(self, tools, folder, batch):
        self.name, self.batch = folder.name, batch
        self.converted = folder.parent.parent / f"{folder.name}.cm"
        self.onnx = folder / f"batch-{batch}.onnx"
        self.input_file = folder / f"input-{batch}.f32"
        if not is_newer(self.converted, folder / "model.onnx", tools.convert):
            run(tools.convert, folder / "model.onnx", self.converted, "--no-check")
        if not is_newer(self.onnx, folder / "model.onnx"):
            self._fill_in_batch(folder / "model.onnx")
        self.info = json.loads(run(tools.nolk, "info", "--json", "--batch", batch, self.converted))
        self.gflop = 2e-9 * self.info["totals"]["multiplyAdds"]["afterFusion"]
        shape = [d.dim_value for d in onnx.load(str(self.onnx)).graph.input[0].type.tensor_type.shape.dim]
        self.input_shape = "x".join(str(n) for n in shape)
        numpy.random.default_rng(1).standard_normal(shape, numpy.float32).tofile(self.input_file)

    def _fill_in_batch(self, path):
        model = onnx.load(str(path))
        for value in list(model.graph.input) + list(model.graph.output):
            for dimension in value.type.tensor_type.shape.dim:
                if dimension.dim_param == "batch":
                    dimension.dim_value = self.batch
        del model.graph.value_info[:]
        onnx.save(model, str(self.onnx))

    def nolk_shapes(self, kind):
        return ",".join("x".join(str(n) for n in t["shape"] + [t["dims"]]) for t in self.info[kind])

    def batch_first(self, floats, shapes):
        """Outputs with the batch as first dimension. nolk has it there; ONNX Runtime may have it second."""
        parts, begin = [], 0
        for shape in shapes:
            size = math.prod(shape)
            part = floats[begin:begin + size].reshape(shape)
            if shape[0] != self.batch and len(shape) > 1 and shape[1] == self.batch:
                part = part.swapaxes(0, 1)
            parts.append(part.ravel())
            begin += size
        return numpy.concatenate(parts)
