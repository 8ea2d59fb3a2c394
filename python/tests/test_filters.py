"""The filters through the Python module: the disc median against scipy's median filter with a
disc footprint (interior) and against the core's reference body (everywhere), strided inputs, the
cosmic-ray filter on the reference frames, the Gaussian blur and the wavelet process."""

import numpy as np
import pytest
import scipy.ndimage

import _ombrix_reference
import ombrix
from conftest import read


def disc_footprint(radius: int) -> np.ndarray:
    dy, dx = np.mgrid[-radius : radius + 1, -radius : radius + 1]
    return dx * dx + dy * dy <= (radius + 0.5) ** 2


@pytest.mark.parametrize("radius", [3, 5, 10])
def test_disc_median_matches_scipy_in_the_interior(rng, radius):
    image = rng.integers(0, 65536, size=(90, 120), dtype=np.uint16)
    result = ombrix.disc_median(image, radius)
    expected = scipy.ndimage.median_filter(image, footprint=disc_footprint(radius), mode="mirror")
    r = radius
    assert result.shape == image.shape and result.dtype == np.uint16
    np.testing.assert_array_equal(result[r:-r, r:-r], expected[r:-r, r:-r])


@pytest.mark.parametrize("radius", [1, 2, 3, 7, 12])
def test_disc_median_matches_the_reference_body_everywhere(rng, radius):
    image = rng.integers(0, 65536, size=(47, 61), dtype=np.uint16)
    np.testing.assert_array_equal(
        ombrix.disc_median(image, radius), _ombrix_reference.disc_median(image, radius)
    )


def test_disc_median_on_the_suite_source_matches_the_reference_body():
    image = read("MedianSrc.tif")
    np.testing.assert_array_equal(
        ombrix.disc_median(image, 10), _ombrix_reference.disc_median(image, 10)
    )


def test_strided_and_read_only_inputs_give_the_contiguous_result(rng):
    base = rng.integers(0, 4096, size=(80, 130), dtype=np.uint16)
    before = base.copy()
    views = [
        base[:, ::2],  # column step: copied once
        base[::-1],  # negative row step: copied once
        base.T,  # transposed
        np.asfortranarray(base),
        base[5:70, 3:100],  # a window: read in place with the parent's row step
    ]
    read_only = base.copy()
    read_only.setflags(write=False)
    views.append(read_only)
    for view in views:
        expected = _ombrix_reference.disc_median(np.ascontiguousarray(view), 4)
        np.testing.assert_array_equal(ombrix.disc_median(view, 4), expected)
    np.testing.assert_array_equal(base, before)


def test_outputs_own_memory_apart_from_the_input(rng):
    image = rng.integers(0, 4096, size=(32, 32), dtype=np.uint16)
    out = ombrix.disc_median(image, 3)
    assert not np.shares_memory(out, image)
    assert out.flags.writeable and out.flags.c_contiguous
    out[:] = 0  # writing the result never reaches the input
    assert image.any()


def test_remove_cosmic_rays_restores_the_clean_frame():
    hit = read("CosmicRay.tif")
    clean = read("CosmicRay10-100.tif")
    before = hit.copy()
    cleaned, replaced = ombrix.remove_cosmic_rays(hit, 10, 100)
    np.testing.assert_array_equal(hit, before)
    assert cleaned.dtype == np.uint16 and replaced.dtype == np.bool_
    inner = (slice(10, -10), slice(10, -10))
    difference = np.abs(cleaned.astype(np.int32) - clean.astype(np.int32))[inner]
    raw_difference = np.abs(hit.astype(np.int32) - clean.astype(np.int32))[inner]
    assert raw_difference.max() >= 105  # the hits are there before cleaning
    assert difference.max() < 105
    # The map marks exactly the pixels that changed, and every strong hit is among them.
    np.testing.assert_array_equal(replaced, cleaned != hit)
    strong = (hit.astype(np.int32) - clean.astype(np.int32)) > 1000
    assert strong.any() and replaced[strong].all()


def test_remove_cosmic_rays_mask_limits_the_replacement():
    hit = read("CosmicRay.tif")
    mask = np.zeros(hit.shape, np.uint8)
    mask[:, : hit.shape[1] // 2] = 1
    cleaned, replaced = ombrix.remove_cosmic_rays(hit, 10, 100, mask=mask)
    assert replaced[:, : hit.shape[1] // 2].any()
    assert not replaced[:, hit.shape[1] // 2 :].any()
    np.testing.assert_array_equal(cleaned[:, hit.shape[1] // 2 :], hit[:, hit.shape[1] // 2 :])


@pytest.mark.parametrize("separable", [False, True])
def test_gaussian_blur_keeps_a_constant_and_spreads_an_impulse(separable):
    flat = np.full((40, 50), 1234, np.uint16)
    np.testing.assert_array_equal(ombrix.gaussian_blur(flat, 2, separable), flat)
    impulse = np.zeros((41, 41), np.float32)
    impulse[20, 20] = 1000.0
    out = ombrix.gaussian_blur(impulse, 2, separable)
    assert out.dtype == np.float32
    assert out[20, 20] == out.max() and 0.0 < out[20, 20] < 1000.0
    np.testing.assert_allclose(out, out.T, rtol=1e-5, atol=1e-4)  # isotropic
    np.testing.assert_allclose(out.sum(), 1000.0, rtol=1e-3)


def test_gaussian_blur_keeps_colour_channels(rng):
    image = rng.random((30, 40, 3)).astype(np.float32)
    out = ombrix.gaussian_blur(image, 1)
    assert out.shape == (30, 40, 3)
    for c in range(3):
        np.testing.assert_array_equal(out[..., c], ombrix.gaussian_blur(image[..., c], 1))


def test_wavelet_planes_sum_back_to_the_image():
    image = read("Power.tif")
    details, smooths = ombrix.wavelet_planes(image)
    assert len(details) == 7 and len(smooths) == 7
    assert all(p.dtype == np.int16 and p.shape == image.shape for p in details + smooths)
    rebuilt = sum(d.astype(np.int64) for d in details) + smooths[-1].astype(np.int64)
    np.testing.assert_array_equal(rebuilt, image.astype(np.int64))


def test_wavelet_structures_of_the_suite_image():
    image = read("Power.tif")
    out = ombrix.wavelet_structures(image, 3.0)
    assert out.dtype == np.float32 and out.shape == image.shape
    assert out[162, 90] == 50.0 and out[55, 126] == 24.0
    masked = ombrix.wavelet_structures(image, 3.0, mask=np.zeros(image.shape, np.uint8))
    assert not masked.any()


def test_wavelet_of_an_empty_image_has_no_planes():
    details, smooths = ombrix.wavelet_planes(np.zeros((0, 5), np.uint16))
    assert details == [] and smooths == []
