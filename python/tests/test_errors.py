"""Whatever array is passed, the module answers with a result or an exception, never a crash:
the core's errors as ValueError with its message, wrong dtypes and dimensions as TypeError, and the
caller's arrays untouched."""

import numpy as np
import pytest

import ombrix

IMAGE_FUNCTIONS = [
    lambda a: ombrix.disc_median(a, 3),
    lambda a: ombrix.remove_cosmic_rays(a, 3, 100),
    lambda a: ombrix.gaussian_blur(a, 2),
    lambda a: ombrix.wavelet_planes(a),
    lambda a: ombrix.wavelet_structures(a),
    lambda a: ombrix.measure_edge(a),
    lambda a: ombrix.measure_chart(a),
    lambda a: ombrix.temporal_noise([a, a]),
]


def test_the_core_messages_reach_python():
    image = np.zeros((20, 20), np.uint16)
    with pytest.raises(ValueError, match="wrongs parameters"):
        ombrix.disc_median(image, 0)
    with pytest.raises(ValueError, match="wrongs parameters"):
        ombrix.disc_median(np.zeros((0, 0), np.uint16), 3)
    with pytest.raises(ValueError, match="Not impl"):
        ombrix.disc_median(image.astype(np.float32), 3)
    with pytest.raises(ValueError, match="Not impl"):
        ombrix.remove_cosmic_rays(image.astype(np.uint8), 4, 10)
    with pytest.raises(ValueError):
        ombrix.remove_cosmic_rays(image, 3, 10, mask=np.zeros((5, 5), np.uint8))


@pytest.mark.parametrize(
    "bad",
    [
        np.array(5, np.uint16),  # 0-d
        np.zeros(7, np.uint16),  # 1-d
        np.zeros((2, 3, 4, 5), np.uint16),  # 4-d
        np.zeros((4, 4, 7), np.uint16),  # too many channels
        np.zeros((4, 4), object),
        np.zeros((4, 4), np.int32),
        np.zeros((4, 4), np.int64),
        np.zeros((4, 4), np.bool_),
        np.zeros((4, 4), np.complex64),
        np.zeros((4, 4), ">u2"),  # foreign byte order
        [[1, 2], [3, 4]],  # not an array
        None,
    ],
    ids=lambda a: str(getattr(a, "dtype", type(a).__name__)) + str(getattr(a, "shape", "")),
)
def test_wrong_arrays_are_type_errors(bad):
    for function in IMAGE_FUNCTIONS:
        with pytest.raises(TypeError):
            function(bad)


@pytest.mark.parametrize("shape", [(0, 0), (0, 5), (5, 0), (0, 0, 3)])
def test_empty_arrays_never_crash(shape):
    empty = np.zeros(shape, np.uint16)
    for function in IMAGE_FUNCTIONS[:-1]:
        try:
            function(empty)
        except ValueError:
            pass
    assert ombrix.measure_edge(empty).measured is False
    assert ombrix.measure_chart(empty).targets == ()
    # A series of frames takes 2-D frames only.
    with pytest.raises(TypeError if len(shape) == 3 else ValueError):
        ombrix.temporal_noise([empty, empty])


@pytest.mark.parametrize("dtype", [np.float32, np.float64])
def test_nan_and_inf_never_crash(dtype):
    image = np.full((64, 64), np.nan, dtype)
    image[:, 32:] = np.inf
    before = image.copy()
    for function in IMAGE_FUNCTIONS + [
        lambda a: ombrix.disc_median(a, 1),
        lambda a: ombrix.remove_cosmic_rays(a, 2, 10),
        lambda a: ombrix.gaussian_blur(a, 1, True),
    ]:
        try:
            function(image)
        except ValueError:
            pass
    np.testing.assert_array_equal(image, before)


def test_unguarded_sigmas_do_not_crash():
    image = np.arange(100, dtype=np.float32).reshape(10, 10)
    for sigma in (0, -1, -100):
        try:
            out = ombrix.gaussian_blur(image, sigma)
            assert out.shape == image.shape
        except ValueError:
            pass


def test_caller_arrays_are_never_modified(rng):
    image = rng.integers(0, 60000, size=(64, 64), dtype=np.uint16)
    image[10, 10] = 65535
    mask = np.ones(image.shape, np.uint8)
    copies = (image.copy(), mask.copy())
    ombrix.disc_median(image, 3)
    ombrix.remove_cosmic_rays(image, 3, 10, mask)
    ombrix.gaussian_blur(image, 2, True)
    ombrix.wavelet_structures(image, mask=mask)
    ombrix.temporal_noise([image, image])
    ombrix.measure_edge(image)
    np.testing.assert_array_equal(image, copies[0])
    np.testing.assert_array_equal(mask, copies[1])


def test_huge_radii_finish_with_the_whole_image_disc(rng):
    image = rng.integers(0, 4096, size=(20, 30), dtype=np.uint16)
    whole = ombrix.disc_median(image, 50)
    for radius in (10**5, 2**31 - 1):
        np.testing.assert_array_equal(ombrix.disc_median(image, radius), whole)
        cleaned, _ = ombrix.remove_cosmic_rays(image, radius, 10)
        np.testing.assert_array_equal(cleaned, ombrix.remove_cosmic_rays(image, 50, 10)[0])
    with pytest.raises(TypeError):
        ombrix.disc_median(image, 2**31)  # beyond the core's int


def test_parameters_whose_cost_grows_without_bound_are_refused():
    image = np.zeros((16, 16), np.float32)
    assert ombrix.gaussian_blur(image, 1000).shape == image.shape
    with pytest.raises(ValueError, match="sigma must be at most 1000"):
        ombrix.gaussian_blur(image, 1001)
    with pytest.raises(ValueError, match="at most 65 taps"):
        ombrix.wavelet_planes(image, kernel=[1.0 / 66] * 66)
    with pytest.raises(ValueError, match="at most 65 taps"):
        ombrix.wavelet_structures(image, kernel=[1.0 / 66] * 66)
    with pytest.raises(ValueError):  # the core's own refusal of an empty kernel
        ombrix.wavelet_planes(image, kernel=[])
    y, x = np.mgrid[0:64, 0:48]
    edge = np.where(x - 24 > (y - 32) * 0.09, 3000, 500).astype(np.uint16)
    assert ombrix.measure_edge(edge).measured
    with pytest.raises(ValueError, match="the profile would exceed 16777216 bins"):
        ombrix.measure_edge(edge, oversampling=1e9)
    for oversampling in (-1.0, float("nan"), float("inf")):
        with pytest.raises(ValueError, match="oversampling must be finite and positive"):
            ombrix.measure_edge(edge, oversampling=oversampling)
