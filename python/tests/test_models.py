"""Looking into model files, checking them, making them of ONNX files; and what is installed."""

import inspect
import json
import os
import pydoc
import shutil
import subprocess
import zipfile

import numpy
import pytest

import nolk


def test_inspect_tells_what_the_program_tells(model, tmp_path):
    info = nolk.inspect(model, batch=2)
    assert info["path"] == str(model) and info["version"] == 4
    assert [tensor["shape"] for tensor in info["inputs"] + info["outputs"]] == [[2, 1, 28, 28], [2, 10, 1, 1]]
    assert info["totals"]["parameters"]["beforeFusion"] > 100_000
    assert info["cost"]["memoryBytes"] > 600_000
    program = shutil.which("nolk")
    if program:
        printed = subprocess.run(
            [program, "info", "--json", "--batch=2", model], capture_output=True, check=True
        ).stdout
        expected = json.loads(printed)
        for each in (info, expected):
            each["totals"].pop("peakBytes")  # of the process
        assert info == expected
    assert nolk.inspect(model.read_bytes())["path"] is None
    strange = tmp_path / "\udcff.cm"  # a byte that is no UTF-8
    shutil.copy(model, strange)
    assert nolk.inspect(strange)["path"] == str(strange)
    with pytest.raises(nolk.Error, match="digit-0.pgm: head"):
        nolk.inspect(model.with_name("digit-0.pgm"))


def test_check_finds_what_is_wrong(model):
    assert nolk.check(model) == []
    b = nolk.Builder()
    x = b.input(3)
    b.relu(x)  # never used
    b.build([b.abs(x)])
    (finding,) = nolk.check(b.to_bytes())
    assert (finding.severity, finding.record, finding.operation) == ("warning", 2, "relu")
    assert str(finding).startswith("record 2 (relu) at byte ") and finding.text in str(finding)
    assert "error" in {finding.severity for finding in nolk.check(model.read_bytes()[:-1])}


@pytest.mark.skipif(not shutil.which("nolk-convert"), reason="nolk-convert is not installed")
def test_convert_makes_a_model_file(tmp_path):
    onnx = pytest.importorskip("onnx")
    node = onnx.helper.make_node("LeakyRelu", ["x"], ["y"], alpha=0.5)
    tensors = [onnx.helper.make_tensor_value_info(name, 1, ["n", 3, 4, 4]) for name in "xy"]
    graph = onnx.helper.make_graph([node], "net", tensors[:1], tensors[1:])
    onnx.save(onnx.helper.make_model(graph, opset_imports=[onnx.helper.make_opsetid("", 13)]), tmp_path / "net.onnx")
    nolk.convert(tmp_path / "net.onnx", tmp_path / "net.cm", shapes={"x": (1, 3, 4, 4)})
    with nolk.load(tmp_path / "net.cm") as net:
        assert net.inputs == (("x", (1, 3, 4, 4)),)
        assert (net(numpy.full((1, 3, 4, 4), -2, numpy.float32)) == -1).all()
    for missing in (tmp_path / "missing.onnx", "--missing.onnx"):  # a name, not an option
        with pytest.raises(nolk.Error, match="nolk-convert: .*missing.onnx"):
            nolk.convert(missing, tmp_path / "net.cm")


def test_convert_says_when_the_converter_is_missing(monkeypatch, tmp_path):
    monkeypatch.setenv("PATH", str(tmp_path))
    with pytest.raises(nolk.Error, match="it is in the package nolk-convert"):
        nolk.convert("net.onnx", "net.cm")


def test_help_describes_all_that_is_public():
    for name in nolk.__all__:
        assert inspect.getdoc(getattr(nolk, name)), name
    text = pydoc.render_doc(nolk, renderer=pydoc.plaintext)
    for words in ("load(model: ", "class Network", "convolve(self, x: ", "nolk.dask", "float32 [n, c, h, w]"):
        assert words in text, words


@pytest.mark.skipif("NOLK_WHEEL" not in os.environ, reason="NOLK_WHEEL does not name a wheel")
def test_the_wheel_carries_the_libraries_and_the_hints():
    names = set(zipfile.ZipFile(os.environ["NOLK_WHEEL"]).namelist())
    modules = {path for path in names if path.startswith("nolk/_nolk.cpython-")}
    assert len(modules) == 1
    files = "__init__ _builder _models _network _operations _source dask".split()
    expected = {f"nolk/{name}.py" for name in files} | {"nolk/py.typed", "nolk/_nolk.pyi"}
    expected |= {"nolk/LICENSE", "nolk/copyright", "nolk/libnolk.so.1", "nolk/libnolk_model.so.1"} | modules
    expected.add("nolk/libNolkFast.so")
    assert {name for name in names if ".dist-info/" not in name} == expected
    libraries = subprocess.run(["ldd", nolk._nolk.__file__], capture_output=True, text=True, check=True).stdout
    folder = os.path.dirname(nolk._nolk.__file__)
    assert f"libnolk.so.1 => {folder}/" in libraries and f"libnolk_model.so.1 => {folder}/" in libraries
