"""Writes the methods of nolk.Builder: one for each operation that the extension module lists.

    describe_operations.py _nolk.so nolk.h _operations.py

Names and parameters follow from the table of operations in src/model/operations.h, the descriptions are the comments of
nolk::RunnerBuilder in nolk.h. So a new operation needs nothing here.
"""

import importlib.machinery
import importlib.util
import re
import sys
import textwrap
from dataclasses import dataclass
from pathlib import Path

HEAD = '''"""The operations of a network. Made by describe_operations.py; changes here are lost."""

from collections.abc import Sequence
from typing import Literal

from ._builder import Array, Recorder
from ._nolk import Tensor

Shape = Sequence[int]
Axis = int | Literal["n", "c", "h", "w"]
Pair = int | tuple[int, int]
Border = int | tuple[int, int, int, int]


class Builder(Recorder):
    __doc__ = Recorder.__doc__
'''

# Nothing in Python for these: Recorder has input, and resize does all that the older record of resize does.
OMITTED = {("input", 1), ("resize", 2)}


@dataclass
class Parameter:
    name: str
    type: str
    text: str
    default: str | None = None
    is_positional: bool = False  # although it has a default


def simple(type_: str, text: str):
    return lambda field: [Parameter(field, type_, text, DEFAULTS.get(field))]


DEFAULTS = {
    "dilation": "1",
    "epsilon": "1e-5",
    "layout": '"nchw"',
    "padding": "0",
    "stride": "1",
    "trans_mode": '"half_pixel"',
}

BIAS = "Array | None"

# The parameters for each kind of field; where there are several, the extension takes them as a tuple.
KINDS = {
    "float": simple("float", "A number."),
    "Axis": simple("Axis", "Its letter in [n, c, h, w], or its number, 0 to 3 or -4 to -1."),
    "BasicOp": simple('Literal["maximum", "mean", "sum", "minimum"]', "What becomes of the values."),
    "DimsHW": simple("Pair", "Rows and columns, or one number for both."),
    "Padding": simple(
        "Border", "Rows and columns added: (top, bottom, left, right), or one number for all four sides."
    ),
    "Perm": simple("Sequence[int]", "Four numbers of axes, a permutation of (0, 1, 2, 3) for n, c, h, w."),
    "ResizeMode": simple('Literal["linear", "nearest"]', "How values between the elements are found."),
    "ResizeTransMode": simple('Literal["half_pixel", "align_corners"]', "Where the elements lie; for linear only."),
    "Tensor": simple("Array", "float32 [c, h, w] or [c]: one sample, the same for the whole batch."),
    "TensorLayout": simple('Literal["nchw", "nhwc"]', "The order in which the elements are taken."),
    "TensorShape": simple("Shape", "(c, h, w), or (c,) for a matrix; without the batch."),
    "Vector": simple("Array", "float32, at least one value for each channel."),
    "SlicePos": lambda field: [
        Parameter("axis", "Axis", "Its letter in [n, c, h, w], or its number, 0 to 3 or -4 to -1."),
        Parameter("start", "int", "The first index."),
        Parameter("end", "int", "The index after the last."),
        Parameter("step", "int", "From one index to the next.", "1"),
    ],
    "SharedWeights": lambda field: [
        Parameter("weight", "Array", "float32 [out, in]."),
        Parameter("bias", BIAS, "float32 [out]; none by default.", "None", True),
    ],
    "Weights": lambda field: [
        Parameter("weight", "Array", "float32 [out, in / groups, kh, kw]; of deconvolutions [in, out, kh, kw]."),
        Parameter("bias", BIAS, "float32 [out]; none by default.", "None", True),
        Parameter("groups", "int", "Equal parts of the channels that are kept apart.", "1"),
    ],
    "LstmWeights": lambda field: [
        Parameter("input_weights", "Array", "float32 [d, 4, H, I]: d directions, gates, hidden size, input size."),
        Parameter("recurrent_weights", "Array", "float32 [d, 4, H, H]."),
        Parameter("bias", BIAS, "float32 [d, 2, 4, H], input half and recurrent half; none by default.", "None", True),
        Parameter(
            "direction", 'Literal["forward", "backward", "both"]', "The order of time; d is 2 for both.", '"forward"'
        ),
    ],
}


def load_extension(path: str):
    loader = importlib.machinery.ExtensionFileLoader("_nolk", path)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("_nolk", loader))
    loader.exec_module(module)
    return module


def snake_case(name: str) -> str:
    return re.sub(r"(?<=[a-z0-9])([A-Z])", r"_\1", name).lower()


def descriptions(header: str) -> dict[str, str]:
    """The comment above each method of RunnerBuilder, or beside it; several methods may stand below one comment."""
    body = header[header.index("class RunnerBuilder {") :]
    body = body[: body.index("\n};")]
    texts: dict[str, str] = {}
    for block in body.split("\n\n"):
        lines = [line.strip() for line in block.splitlines()]
        comment = " ".join(line[2:].strip() for line in lines if line.startswith("//"))
        for name, beside in re.findall(r"virtual TensorX\* (\w+)\([^;]*;[ ]*(?:// (.*))?", block):
            texts.setdefault(name, comment or beside or "")
    return texts


def input_parameters(count: int) -> list[Parameter]:
    if count < 0:
        return [Parameter("inputs", "Sequence[Tensor]", "Tensors of this builder.")]
    return [Parameter(name, "Tensor", "A tensor of this builder.") for name in ("x" if count == 1 else "ab")[:count]]


def field_parameters(fields: list[tuple[str, str]]) -> list[list[Parameter]]:
    groups = [KINDS[kind](snake_case(field)) for field, kind in fields]
    if any(field == "kernel" for field, _ in fields):  # libraries differ in the stride that they choose for a pooling
        for group in groups:
            for parameter in group:
                parameter.default = None if parameter.name == "stride" else parameter.default
    if len(fields) == 1 and len(groups[0]) == 1:  # an operation without any argument says nothing
        groups[0][0].default = None
    return groups


def passed(group: list[Parameter]) -> str:
    return group[0].name if len(group) == 1 else "(" + ", ".join(p.name for p in group) + ")"


def in_order(parameters: list[Parameter]) -> tuple[list[Parameter], list[Parameter]]:
    """Those that may be given by their place, and those by name only."""
    required = [p for p in parameters if p.default is None]
    positional = [p for p in parameters if p.default and p.is_positional]
    return required + positional, [p for p in parameters if p.default and not p.is_positional]


def signature(name: str, placed: list[Parameter], named: list[Parameter]) -> str:
    words = ["self"]
    for index, p in enumerate(placed + named):
        words += ["*"] if index == len(placed) else []
        words.append(f"{p.name}: {p.type}" + (f" = {p.default}" if p.default else ""))
    line = f"    def {name}({', '.join(words)}) -> Tensor:\n"
    if len(line) <= 100:
        return line
    return f"    def {name}(\n" + "".join(f"        {word},\n" for word in words) + "    ) -> Tensor:\n"


# The types in the docstrings, for those whose names mean nothing to users.
DESCRIBED = {
    "Array": "numpy.ndarray",
    BIAS: "numpy.ndarray",
    "Axis": "int or str",
    "Border": "int or (int, int, int, int)",
    "Pair": "int or (int, int)",
    "Sequence[Tensor]": "sequence of Tensor",
    "Sequence[int]": "sequence of int",
    "Shape": "sequence of int",
}


def described(type_: str) -> str:
    if type_.startswith("Literal"):
        return "{" + type_[len("Literal[") : -1].replace('"', "'") + "}"
    return DESCRIBED.get(type_, type_)


def docstring(text: str, parameters: list[Parameter]) -> str:
    text = re.sub(r"[^.]*\bprints\b[^.]*\.", "", text)  # of networks that cannot be recorded or loaded here
    text = text[0].upper() + text[1:] if re.match(r"[a-z]\w+ ", text) else text
    lines = textwrap.wrap(text, 100, break_long_words=False) or ["An operation."]
    if lines[0][0] != '"':
        lines[0] = '"""' + lines[0]
    lines += ["", "Parameters", "----------"]
    for parameter in parameters:
        optional = ", optional" if parameter.default else ""
        lines += [f"{parameter.name} : {described(parameter.type)}{optional}"]
        lines += ["    " + line for line in textwrap.wrap(parameter.text, 96)]
    lines += ["", "Returns", "-------", "Tensor", '"""']
    return "".join(("        " + line).rstrip() + "\n" for line in lines)


def method(rows: list[tuple], text: str) -> str:
    """The method for the rows of one name, the one with most fields first. The fields that a shorter row lacks are
    optional, and it serves when they are left out."""
    name, code, input_count, fields = rows[0]
    inputs, groups = input_parameters(input_count), field_parameters(fields)
    given = [p.name for p in inputs]
    inputs_text = given[0] if input_count < 0 else "[" + ", ".join(given) + "]"
    body = ""
    for _, short_code, _, short_fields in rows[1:]:
        missing = [g[0] for g, f in zip(groups, fields) if f not in short_fields]
        for parameter in missing:
            parameter.type, parameter.default, parameter.is_positional = BIAS, "None", True
        kept = ", ".join(passed(g) for g, f in zip(groups, fields) if f in short_fields)
        names = [p.name for p in missing]
        body += f"        if {' is None and '.join(names)} is None:\n"
        body += f"            return self._call({short_code}, {inputs_text}, [{kept}])\n"
        if len(names) > 1:
            together = " and ".join(names)
            body += f"        if {' is None or '.join(names)} is None:\n"
            body += f'            raise TypeError("{snake_case(name)}: expected {together}, or neither")\n'
            missing[-1].text += f" Only {together} together."
    body += f"        return self._call({code}, {inputs_text}, [{', '.join(passed(g) for g in groups)}])\n"
    parameters = inputs + [p for group in groups for p in group]
    placed, named = in_order(parameters)
    return signature(snake_case(name), placed, named) + docstring(text, placed + named) + body


def main(extension: str, header: str, result: str) -> None:
    texts = descriptions(Path(header).read_text())
    rows: dict[str, list[tuple]] = {}
    for row in load_extension(extension).operations():
        if (row[0], len(row[3])) not in OMITTED:
            rows.setdefault(row[0], []).append(row)
    methods = []
    for name, alike in rows.items():
        alike.sort(key=lambda row: -len(row[3]))
        methods.append(method(alike, texts[name]))
    Path(result).write_text(HEAD + "\n" + "\n".join(methods))


if __name__ == "__main__":
    main(*sys.argv[1:])
