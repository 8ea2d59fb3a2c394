"""Installs the package ombrix: the pure-Python package in ombrix/ with the compiled module
_ombrix and the processing plug-in library that the project's CMake build made.

    pip install --no-build-isolation ./python

takes them from the build folder named by OMBRIX_BUILD_DIR (default: build/ at the top of the
project); when that folder holds no module yet, the project is configured there and the module
built with CMake first. Nothing is downloaded.
"""

import glob
import os
import shutil
import subprocess
import sys

from setuptools import setup
from setuptools.command.build_py import build_py
from setuptools.dist import Distribution

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.dirname(HERE)


def build_dir() -> str:
    return os.path.abspath(os.environ.get("OMBRIX_BUILD_DIR", os.path.join(PROJECT, "build")))


def compiled_files(package_dir: str) -> list:
    modules = glob.glob(os.path.join(package_dir, "_ombrix.*"))
    plugins = glob.glob(os.path.join(package_dir, "OmbrixProcessing.*"))
    return modules + plugins if modules and plugins else []


def build_with_cmake(folder: str) -> None:
    subprocess.check_call(
        [
            "cmake",
            "-S",
            PROJECT,
            "-B",
            folder,
            "-DCMAKE_BUILD_TYPE=Release",
            "-DOMBRIX_BUILD_PYTHON=ON",
            "-DPython3_EXECUTABLE=" + sys.executable,
        ]
    )
    subprocess.check_call(
        ["cmake", "--build", folder, "--target", "_ombrix", "--parallel", str(os.cpu_count() or 2)]
    )


class BuildWithCompiledModule(build_py):
    """build_py that adds the compiled module and the plug-in library next to the Python files."""

    def run(self):
        super().run()
        folder = build_dir()
        package_dir = os.path.join(folder, "python", "ombrix")
        files = compiled_files(package_dir)
        if not files:
            build_with_cmake(folder)
            files = compiled_files(package_dir)
        if not files:
            raise RuntimeError("the CMake build made no module in " + package_dir)
        target = os.path.join(self.build_lib, "ombrix")
        os.makedirs(target, exist_ok=True)
        for path in files:
            shutil.copy2(path, target)


class BinaryDistribution(Distribution):
    """The wheel carries compiled code: platform-specific, never a pure-Python wheel."""

    def has_ext_modules(self):
        return True


setup(
    name="ombrix",
    version="0.1",
    description="Ombrix imaging core: sensor-image filters, temporal noise and slanted-edge MTF "
    "on numpy arrays",
    packages=["ombrix"],
    python_requires=">=3.7",
    install_requires=["numpy"],
    cmdclass={"build_py": BuildWithCompiledModule},
    distclass=BinaryDistribution,
    zip_safe=False,
)
