"""The processing plug-in through the Python module: loaded through the factory, driven by the
scenario sequences on frames in memory (the suite's folders read into arrays)."""

import numpy as np
import pytest

import ombrix
from conftest import read, read_all


def darks(folder):
    return read(folder, "Black_150s.tif"), read(folder, "Black_1s.tif")


@pytest.fixture(scope="module")
def plugin():
    return ombrix.ProcessingPlugin()


def test_dark_chamber_defects(plugin):
    long_dark, short_dark = darks("DarkChamber")
    frames = read_all("DarkChamber", "RawSignal_*.tif")
    assert plugin.dark_chamber_defects(long_dark, short_dark, frames) == 0.0
    assert not plugin.defect_map().any()
    long_dark, short_dark = darks("DarkChamberFail")
    frames = read_all("DarkChamberFail", "RawSignal_*.tif")
    defects = plugin.dark_chamber_defects(long_dark, short_dark, np.stack(frames))
    assert defects > 0.0
    defect_map = plugin.defect_map()
    assert defect_map.dtype == np.uint8 and defect_map.shape == frames[0].shape
    assert defect_map.max() == 255


def test_light_source_factor(plugin):
    long_dark, short_dark = darks("QT7M21013H")
    frames = read_all("QT7M21013H", "RawSignal_*.tif")
    before = [f.copy() for f in frames]
    assert plugin.light_source_factor(long_dark, short_dark, frames) == pytest.approx(
        0.9908, abs=2e-5
    )
    for f, b in zip(frames, before):
        np.testing.assert_array_equal(f, b)


def test_failure_values(plugin):
    long_dark, short_dark = darks("DarkChamber")
    assert plugin.dark_chamber_defects(long_dark, short_dark, []) == -1.0
    empty = np.zeros((0, 0), np.uint16)
    frames = read_all("DarkChamber", "RawSignal_*.tif")
    assert plugin.light_source_factor(empty, empty, frames) == -1.0
    spots = plugin.detect_spots(frames[0], empty, empty)
    assert not spots.completed and spots.count == -1 and spots.objects == []


def test_detect_spots(plugin):
    long_dark, short_dark = darks("ValidationAlgo1")
    image = read("ValidationAlgo1", "PTC.tif")
    spots = plugin.detect_spots(image, long_dark, short_dark)
    assert spots.completed and spots.count == len(spots.objects) > 0
    assert spots.label_image.dtype == np.int32 and spots.label_image.max() == spots.count
    for o in spots.objects:
        assert o["contour"].ndim == 2 and o["contour"].shape[1] == 2 and len(o["contour"]) > 0
        x, y, w, h = o["box"]
        assert x <= o["centroid"][0] <= x + w and y <= o["centroid"][1] <= y + h
    # An impossible area limit leaves nothing to find.
    assert plugin.detect_spots(image, long_dark, short_dark, max_object_area=1).count == 0
    with pytest.raises(TypeError):
        plugin.detect_spots(image, long_dark, short_dark, no_such_parameter=1)


def test_a_wrong_library_is_a_value_error(tmp_path):
    with pytest.raises(ValueError, match="cannot load"):
        ombrix.ProcessingPlugin(str(tmp_path / "OmbrixProcessing.so"))
    not_a_library = tmp_path / "fake.so"
    not_a_library.write_bytes(b"not a library")
    with pytest.raises(ValueError, match="cannot load"):
        ombrix.ProcessingPlugin(str(not_a_library))
