"""Builds the wheel: CMake makes the package and the libraries, and this puts them together.

The libraries lie beside the extension module, which finds them there; libnolk looks there for implementations, too.
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent.parent
COMPONENTS = ["python", "wheel"]  # the package, the libraries


def version() -> str:
    header = (ROOT / "include/nolk.h").read_text()
    return ".".join(re.findall(r"^#define NOLK_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$", header, re.M))


def cmake(*arguments: object) -> None:
    subprocess.run(["cmake", *map(str, arguments)], check=True)


class CMakeBuild(build_ext):
    def run(self) -> None:
        tree, prefix = Path(self.build_temp).resolve(), Path(self.build_temp).resolve() / "installed"
        shutil.rmtree(prefix, ignore_errors=True)
        options = {"TESTS": "OFF", "TOOLS": "OFF", "CONVERT": "OFF", "EXAMPLES": "OFF", "MODEL": "ON", "PYTHON": "ON"}
        cmake(
            *("-S", ROOT, "-B", tree, "-DCMAKE_BUILD_TYPE=Release"),
            *(("-G", "Ninja") if shutil.which("ninja") else ()),
            *(f"-DNOLK_BUILD_{name}={value}" for name, value in options.items()),
            *(
                f"-DPython_EXECUTABLE={sys.executable}",
                "-DNOLK_PYTHON_FOLDER:STRING=python",
                "-DCMAKE_INSTALL_LIBDIR:STRING=lib",
            ),
            *("-DNOLK_PYTHON_RPATH=$ORIGIN", f"-DCMAKE_INSTALL_PREFIX={prefix}"),
        )
        cmake("--build", tree, "--parallel", os.cpu_count() or 1, "--target", "nolk_wheel")
        for component in COMPONENTS:
            cmake("--install", tree, "--component", component, "--strip")
        package = Path(self.build_lib) / "nolk"
        shutil.rmtree(self.build_lib, ignore_errors=True)  # of an older build, all of whose files the wheel would have
        shutil.copytree(prefix / "python/nolk", package)
        for library in (prefix / "lib").glob("lib*.so*"):
            if not re.search(r"\.so\.\d+\.", library.name):  # by the name that programs load, not by the full version
                shutil.copy2(library, package)
        for license in (ROOT / "LICENSE", ROOT / "cmake/debian/copyright"):
            shutil.copy2(license, package)


setup(version=version(), ext_modules=[Extension("nolk._nolk", [])], cmdclass={"build_ext": CMakeBuild})
