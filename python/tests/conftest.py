"""Shared fixtures of the Python tests: the test-data folder of the build (OMBRIX_TEST_DATA_DIR,
set by ctest) and its images, read with OpenCV through the test-only module _ombrix_reference."""

import glob
import os

import numpy as np
import pytest

import _ombrix_reference


def data_dir() -> str:
    folder = os.environ.get("OMBRIX_TEST_DATA_DIR", "")
    if not folder or not os.path.isdir(folder):
        raise RuntimeError("OMBRIX_TEST_DATA_DIR must name the build's UnitTestData folder")
    return folder


def read(*parts: str) -> np.ndarray:
    return _ombrix_reference.read_image(os.path.join(data_dir(), *parts))


def read_all(folder: str, pattern: str) -> list:
    files = sorted(glob.glob(os.path.join(data_dir(), folder, pattern)))
    if not files:
        raise RuntimeError("no files " + pattern + " in " + folder)
    return [_ombrix_reference.read_image(f) for f in files]


@pytest.fixture
def rng():
    return np.random.default_rng(20261123)
