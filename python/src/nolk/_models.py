"""Looking into model files, checking and making them."""

import json
import os
import shutil
import subprocess
import tempfile
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any, Literal, NamedTuple

from . import _nolk
from ._nolk import Error
from ._source import Model, errors_name, path_of, read, require_batch, require_bool, require_integer

# What a file of unknown origin may need while it is examined: bytes in memory, and steps of one run.
MEMORY_BYTES, MULTIPLY_ADDS = 1 << 32, 1 << 37

CONVERTER = "nolk-convert"


def inspect(model: Model, *, batch: int = 1) -> dict[str, Any]:
    """Tell what is in a model file, and what the built-in implementation makes of it.

    Parameters
    ----------
    model : str, os.PathLike, bytes, bytearray or memoryview
        The path of a model file, or its bytes.
    batch : int
        The number of samples for which shapes, multiply-adds and memory are computed.

    Returns
    -------
    dict
        What ``nolk info --json`` prints: "version", "headInfo", "inputs", "outputs", "operations" (with "operation",
        "details", "settings", "inputs", "output", "parameters", "multiplyAdds", "layer", "fused"), "layers", "totals",
        "cost" and "remark". Sizes are bytes where the name says so. The path is None for bytes.

    Raises
    ------
    Error
        If the file cannot be loaded.
    OSError
        If the file cannot be read.
    """
    batch = require_batch(batch)
    data, path = read(model), path_of(model)
    with errors_name(model):
        info: dict[str, Any] = json.loads(_nolk.inspect(data, batch, MEMORY_BYTES, MULTIPLY_ADDS))
    info["path"] = path or None
    return info


class Finding(NamedTuple):
    """Something wrong or suspicious in a model file; as a string, one line with all of it.

    An error means that loading fails or the result is undefined, a warning that it is probably a mistake, a remark that
    the file could not be examined to the end. The record counts from 1 and is 0 for the rest of the file; the offset is
    in bytes.
    """

    severity: Literal["error", "warning", "remark"]
    record: int
    operation: str
    offset: int
    text: str
    description: str

    def __str__(self) -> str:
        return self.description


def check(model: Model) -> list[Finding]:
    """Find everything that is wrong or suspicious in a model file.

    Parameters
    ----------
    model : str, os.PathLike, bytes, bytearray or memoryview
        The path of a model file, or its bytes. They may be damaged in any way.

    Returns
    -------
    list of Finding
        In the order of the file; empty if all is well.

    Raises
    ------
    OSError
        If the file cannot be read.
    """
    found, remark = _nolk.check(read(model), MEMORY_BYTES, MULTIPLY_ADDS)
    findings = [Finding(*finding) for finding in found]  # type: ignore[arg-type]
    return findings + ([Finding("remark", 0, "network", 0, remark, remark)] if remark else [])


def convert(
    source: str | os.PathLike[str],
    target: str | os.PathLike[str],
    *,
    shapes: Mapping[str, Sequence[int]] | None = None,
    version: int = 4,
    lossy: bool = False,
    check: bool = True,
) -> dict[str, Any]:
    """Make a model file of an ONNX file, with the program nolk-convert, which must be installed.

    Parameters
    ----------
    source : str or os.PathLike
        The ONNX file.
    target : str or os.PathLike
        The model file to write.
    shapes : mapping of str to sequence of int, optional
        Extents of inputs that the ONNX file leaves free: {"image": (1, 3, 320, 320)}.
    version, lossy
        As for `Builder.save`.
    check : bool
        Whether the results are compared with those of the ONNX graph.

    Returns
    -------
    dict
        The converter's report: what became of the nodes, and the largest differences of the results.

    Raises
    ------
    Error
        If the converter is missing, or with what it says if it cannot convert the file.
    """
    program = shutil.which(CONVERTER)
    if not program:
        raise Error(f"{CONVERTER}: not found; it is in the package {CONVERTER}")
    options = [f"--version={require_integer('version', version, 1, 4)}"]
    for name, extents in (shapes or {}).items():
        options += ["--shape", f"{name}={','.join(map(str, extents))}"]
    options += ["--lossy"] if require_bool("lossy", lossy) else []
    options += [] if require_bool("check", check) else ["--no-check"]
    with tempfile.TemporaryDirectory() as folder:
        report = Path(folder, "report.json")
        # After "--" a path is no option, whatever its first letter.
        command = [program, *options, "--report", str(report), "--", os.fspath(source), os.fspath(target)]
        result = subprocess.run(command, capture_output=True, text=True, errors="replace")
        if result.returncode != 0:
            raise Error(result.stderr.strip() or f"{CONVERTER} ended with status {result.returncode}")
        content: dict[str, Any] = json.loads(report.read_text())
        return content
