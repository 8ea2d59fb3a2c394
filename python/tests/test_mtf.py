"""The MTF measurement through the Python module: single edges against the analytic MTF of the
generator's edge models (Gaussian PSF over square pixels), the chart measurement and its picture."""

import math
import os
import re

import numpy as np
import pytest

import ombrix
from conftest import data_dir, read


def edge_sigmas():
    """The PSF widths of "MTF_Edge1.tif" and "MTF_Edge2.tif" as the generator recorded them."""
    with open(os.path.join(data_dir(), "MTF_Edges.txt")) as f:
        text = f.read()
    sigmas = [float(v) for v in re.findall(r"Gaussian PSF sigma ([0-9.]+) px", text)]
    assert len(sigmas) == 2
    return sigmas


def true_mtf(sigma, f):
    f = np.asarray(f, dtype=np.float64)
    return np.exp(-2.0 * math.pi**2 * sigma**2 * f**2) * np.abs(np.sinc(f))


def true_crossing(sigma, level):
    lo, hi = 1e-9, 2.0
    for _ in range(200):
        mid = 0.5 * (lo + hi)
        lo, hi = (mid, hi) if true_mtf(sigma, mid) > level else (lo, mid)
    return 0.5 * (lo + hi)


@pytest.mark.parametrize("index,name", [(0, "MTF_Edge1.tif"), (1, "MTF_Edge2.tif")])
def test_measure_edge_follows_the_analytic_mtf(index, name):
    sigma = edge_sigmas()[index]
    image = read(name)
    result = ombrix.measure_edge(image)
    assert result.measured
    assert result.frequencies.shape == result.mtf.shape and result.mtf.size > 10
    assert result.esf.size > 0 and result.lsf.size > 0
    # Up to Nyquist, where the curve is above the noise floor: within 0.03 of the true MTF.
    band = (result.frequencies > 0) & (result.frequencies <= 0.5)
    truth = true_mtf(sigma, result.frequencies[band])
    keep = truth > 0.1
    assert keep.sum() >= 5
    np.testing.assert_allclose(result.mtf[band][keep], truth[keep], atol=0.03)
    # MTF50 within 3 % of the model's; the edge leans 5 degrees.
    assert result.mtf50 == pytest.approx(true_crossing(sigma, 0.5), rel=0.03)
    assert result.angle_deg == pytest.approx(5.0, abs=0.2)


def test_the_soft_edge_cut_frequency_and_efficiency():
    sigma = edge_sigmas()[1]
    result = ombrix.measure_edge(read("MTF_Edge2.tif"))
    assert result.cut_frequency == pytest.approx(true_crossing(sigma, 0.1), rel=0.03)
    assert 45.0 <= result.efficiency <= 45.5
    assert result.efficiency == pytest.approx(100.0 * result.cut_frequency / result.nyquist, rel=1e-3)


def test_measure_edge_roi_and_options():
    image = read("MTF_Edge2.tif")
    whole = ombrix.measure_edge(image)
    same = ombrix.measure_edge(image, roi=(0, 0, image.shape[1], image.shape[0]))
    np.testing.assert_array_equal(same.mtf, whole.mtf)
    part = ombrix.measure_edge(image, roi=(0, 0, image.shape[1], 128))
    assert part.measured and not np.array_equal(part.mtf, whole.mtf)
    outside = ombrix.measure_edge(image, roi=(0, 0, image.shape[1] + 1, 10))
    assert not outside.measured
    assert outside.cut_frequency == -1.0 and outside.mtf50 == -1.0 and outside.mtf.size == 0
    finer = ombrix.measure_edge(image, oversampling=8.0)
    assert finer.esf.size == 2 * whole.esf.size
    assert ombrix.measure_edge(image, gamma=2.2).mtf50 != whole.mtf50


def test_a_flat_image_has_no_edge():
    result = ombrix.measure_edge(np.full((64, 64), 100, np.uint16))
    assert not result.measured and result.efficiency == -1.0 and result.angle_deg == -1.0


def test_measure_chart_and_annotate_chart():
    image = read("FTM.tif")
    chart = ombrix.measure_chart(image)
    assert len(chart.targets) > 0
    numbers = [t.number for t in chart.targets]
    assert numbers == list(range(1, len(numbers) + 1))
    edges = [e for t in chart.targets for e in t.edges]
    assert edges and all(e.side in ("left", "top", "right", "bottom") for e in edges)
    for e in edges:
        x, y, w, h = e.region
        assert 0 <= x and 0 <= y and x + w <= image.shape[1] and y + h <= image.shape[0]
        assert e.result.measured and e.result.cut_frequency != 0.0
    efficiencies = [e.result.efficiency for e in edges]
    assert chart.mean_efficiency == pytest.approx(sum(efficiencies) / len(efficiencies), rel=1e-6)
    picture = ombrix.annotate_chart(image, chart)
    assert picture.shape == image.shape[:2] + (3,) and picture.dtype == np.uint8
    # Red target outlines (BGR) where the grey chart has none.
    red = (picture[..., 2] == 255) & (picture[..., 0] == 0) & (picture[..., 1] == 0)
    assert red.sum() > 100
    with pytest.raises(ValueError):
        ombrix.annotate_chart(image[:-1], chart)
    with pytest.raises(TypeError):
        ombrix.annotate_chart(image, {"targets": []})


def test_a_chart_without_targets():
    chart = ombrix.measure_chart(np.zeros((200, 300), np.uint8))
    assert chart.targets == () and chart.mean_efficiency == -1.0
