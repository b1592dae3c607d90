"""What the tests share: the digits that come with the examples."""

from pathlib import Path

import numpy
import pytest

DIGITS = Path(__file__).resolve().parents[2] / "examples/digits"


@pytest.fixture(scope="session")
def model() -> Path:
    return DIGITS / "digits.cm"


@pytest.fixture(scope="session")
def pictures() -> numpy.ndarray:
    """float32 [500, 1, 28, 28], 0 paper to 1 ink."""
    grey = numpy.frombuffer((DIGITS / "test-images.idx").read_bytes(), numpy.uint8, offset=16)
    return grey.reshape(-1, 1, 28, 28).astype(numpy.float32) / numpy.float32(255)


@pytest.fixture(scope="session")
def labels() -> numpy.ndarray:
    return numpy.frombuffer((DIGITS / "test-labels.idx").read_bytes(), numpy.uint8, offset=8)


@pytest.fixture(scope="session")
def expected() -> numpy.ndarray:
    """float64 [20, 10]: probabilities of the first pictures, by the framework that trained the network."""
    return numpy.loadtxt(DIGITS / "expected.csv", delimiter=",", skiprows=1)[:, 2:]
