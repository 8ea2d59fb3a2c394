"""Temporal noise through the Python module against numpy's sample standard deviation on the
suite's TemporalNoise frames, both input forms, and the core's refusals."""

import numpy as np
import pytest

import ombrix
from conftest import read_all


def test_temporal_noise_matches_numpy_std_on_the_suite_frames():
    frames = read_all("TemporalNoise", "RawNoise_*.tif")
    stack = np.stack(frames)
    assert stack.dtype == np.uint16 and stack.shape[0] > 2
    noise = ombrix.temporal_noise(stack)
    assert noise.dtype == np.float32 and noise.shape == stack.shape[1:]
    expected = stack.astype(np.float64).std(axis=0, ddof=1)
    # Sums in single precision: float32 tolerance.
    np.testing.assert_allclose(noise, expected, rtol=2e-5, atol=1e-3)
    # The list form reads the same frames.
    np.testing.assert_array_equal(ombrix.temporal_noise(frames), noise)


def test_temporal_noise_of_strided_frames(rng):
    stack = rng.integers(0, 4096, size=(6, 20, 30), dtype=np.uint16)
    expected = ombrix.temporal_noise(np.ascontiguousarray(stack[:, ::2, 1::2]))
    np.testing.assert_array_equal(ombrix.temporal_noise(stack[:, ::2, 1::2]), expected)
    np.testing.assert_allclose(
        expected, stack[:, ::2, 1::2].astype(np.float64).std(axis=0, ddof=1), rtol=2e-5
    )


def test_one_frame_gives_nan_everywhere():
    noise = ombrix.temporal_noise([np.full((4, 5), 7, np.uint16)])
    assert np.isnan(noise).all()


def test_frames_of_another_shape_or_type_are_refused_with_the_core_message():
    a = np.zeros((4, 5), np.uint16)
    with pytest.raises(ValueError, match="All images needs to have the save image dimension"):
        ombrix.temporal_noise([a, np.zeros((5, 5), np.uint16)])
    with pytest.raises(ValueError, match="All images needs to have the save image type"):
        ombrix.temporal_noise([a, np.zeros((4, 5), np.float32)])
    with pytest.raises(ValueError):
        ombrix.temporal_noise([])
    with pytest.raises(ValueError):
        ombrix.temporal_noise(np.zeros((0, 4, 5), np.uint16))


def test_frames_of_the_wrong_form_are_type_errors():
    with pytest.raises(TypeError):
        ombrix.temporal_noise(np.zeros((2, 3, 4, 5), np.uint16))
    with pytest.raises(TypeError):
        ombrix.temporal_noise(np.zeros((4, 5), np.uint16))
    with pytest.raises(TypeError):
        ombrix.temporal_noise([np.zeros((4, 5, 3), np.uint16)])
    with pytest.raises(TypeError):
        ombrix.temporal_noise("frames")
    with pytest.raises(TypeError):
        ombrix.temporal_noise([np.zeros((4, 5), np.int64)])
