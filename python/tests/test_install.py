"""pip installs the package from the build without any download, and the installed copy works on
its own: the compiled module and the processing plug-in library travel with it."""

import os
import shutil
import subprocess
import sys


HERE = os.path.dirname(os.path.abspath(__file__))
PACKAGE_SOURCE = os.path.dirname(HERE)


def test_pip_installs_a_working_package_without_downloading(tmp_path):
    build = os.environ.get("OMBRIX_BUILD_DIR")
    assert build, "ctest names the build folder in OMBRIX_BUILD_DIR"
    # A copy of the package's sources, so that the in-tree build leaves the checkout clean.
    source = tmp_path / "src"
    shutil.copytree(
        PACKAGE_SOURCE,
        source,
        ignore=shutil.ignore_patterns("tests", "bench", "build", "*.egg-info", "__pycache__"),
    )
    site = tmp_path / "site"
    env = dict(os.environ, OMBRIX_BUILD_DIR=build, PIP_NO_INDEX="1", PIP_NO_CACHE_DIR="1")
    env.pop("PYTHONPATH", None)
    subprocess.run(
        [sys.executable, "-m", "pip", "install", "--no-build-isolation", "--no-index",
         "--no-deps", "--disable-pip-version-check", "--target", str(site), str(source)],
        env=env, check=True, cwd=str(tmp_path), capture_output=True,
    )
    script = (
        "import numpy as np, ombrix\n"
        "print(ombrix.__file__)\n"
        "image = np.zeros((9, 9), np.uint16); image[4, 4] = 1000\n"
        "print(int(ombrix.disc_median(image, 3)[4, 4]))\n"
        "print(ombrix.ProcessingPlugin().module_path)\n"
    )
    env = dict(os.environ, PYTHONPATH=str(site))
    out = subprocess.run(
        [sys.executable, "-c", script], env=env, check=True, cwd=str(tmp_path),
        capture_output=True, text=True,
    ).stdout.split("\n")
    assert out[0].startswith(str(site))
    assert out[1] == "0"  # the single bright pixel is the median of nothing but zeros
    assert out[2].startswith(str(site))
