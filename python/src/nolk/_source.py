"""Model files in memory or on disk."""

import operator
import os
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

import numpy

from . import _nolk
from ._nolk import Error

Buffer = bytes | bytearray | memoryview
Model = str | os.PathLike[str] | Buffer


def read(model: Model) -> Buffer:
    """The bytes of a model file, given as a path or as the bytes themselves."""
    if isinstance(model, (str, os.PathLike)):
        return Path(model).read_bytes()
    if isinstance(model, (bytes, bytearray, memoryview)):
        return model
    raise TypeError(f"model: expected a path, bytes or memoryview, got {type(model).__name__}")


def path_of(model: Model) -> str:
    """The path in errors and reports; empty for bytes."""
    return os.fspath(model) if isinstance(model, (str, os.PathLike)) else ""


@contextmanager
def errors_name(model: Model) -> Iterator[None]:
    """Puts the path before the text of an Error."""
    try:
        yield
    except Error as error:
        path = path_of(model)
        raise type(error)(f"{path}: {error}" if path else str(error)) from None


def require_integer(name: str, value: object, least: int, most: int) -> int:
    """The value of an argument, if it is an integer of that range; numpy's are, too."""
    try:
        number = operator.index(value)  # type: ignore[arg-type]  # any object may come
    except TypeError:
        raise TypeError(f"{name}: expected an integer, got {type(value).__name__}") from None
    if not least <= number <= most:
        raise ValueError(f"{name}: expected {least} to {most}, got {number}")
    return number


def require_batch(value: object) -> int:
    """The number of samples that is meant."""
    return require_integer("batch", value, 1, 2**31 - 1)


def require_limit(name: str, value: object) -> int | None:
    """A limit of a network's memory or work; None for no limit."""
    return None if value is None else require_integer(name, value, 0, 2**63 - 1)


def require_string(name: str, value: object) -> str:
    """The value of an argument, if it is text that UTF-8 can hold and that C reads to its end."""
    if not isinstance(value, str):
        raise TypeError(f"{name}: expected a string, got {type(value).__name__}")
    if "\0" in value or any("\ud800" <= character <= "\udfff" for character in value):
        raise ValueError(f"{name}: expected text without null characters and surrogates, got {value!r}")
    return value


def require_bool(name: str, value: object) -> bool:
    """The value of an argument, if it is true or false; numpy's are, too."""
    if not isinstance(value, (bool, numpy.bool_)):
        raise TypeError(f"{name}: expected a bool, got {type(value).__name__}")
    return bool(value)


def require_implementation(value: object) -> str | None:
    """The name of an implementation with its settings, if it can be loaded; None for the default."""
    if value is None:
        return None
    implementation = require_string("implementation", value)
    _nolk.require_implementation(implementation)
    return implementation
