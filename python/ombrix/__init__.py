"""Ombrix imaging core for Python: sensor-image filters, temporal noise, slanted-edge MTF and the
processing plug-in, on numpy arrays.

Every function is a thin layer over the C++ core that the verification suite checks; the GIL is
released while the core works on the pixels, so threads of one program run in parallel.

Arrays: ``uint8``, ``uint16``, ``float32`` or ``float64`` in native byte order, 2-D
``(rows, columns)``; functions that accept colour also take ``(rows, columns, channels)`` with 1 to
4 channels. A view that OpenCV cannot address as it is (a column slice, a negative step) is copied
once; other arrays are read in place and never modified. Results are new arrays that own their
memory.

Errors: the core's own errors become :class:`ValueError` carrying its message (for example
``"wrongs parameters"`` or ``"Not impl"``); a wrong dtype or number of dimensions is a
:class:`TypeError`. A measurement that cannot be made gives -1.0.

Units: pixel coordinates and sizes in pixels, spatial frequencies in cycles per pixel, angles in
degrees, exposure in seconds.
"""

from __future__ import annotations

import os
import sys
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple, Union

import numpy as np

from . import _ombrix

__all__ = [
    "disc_median",
    "remove_cosmic_rays",
    "gaussian_blur",
    "wavelet_planes",
    "wavelet_structures",
    "temporal_noise",
    "measure_edge",
    "measure_chart",
    "annotate_chart",
    "EdgeResult",
    "ChartEdge",
    "ChartTarget",
    "ChartResult",
    "SpotDetection",
    "ProcessingPlugin",
    "DEFAULT_WAVELET_KERNEL",
]

ArrayLike = np.ndarray
Frames = Union[np.ndarray, Sequence[np.ndarray]]

#: The B3-spline scaling kernel of the wavelet process (the kernel the suite checks it with).
DEFAULT_WAVELET_KERNEL: Tuple[float, ...] = tuple(_ombrix.default_wavelet_kernel())


# ---- Filters -------------------------------------------------------------------------------------


def disc_median(image: ArrayLike, radius: int) -> np.ndarray:
    """Median over the disc ``dx**2 + dy**2 <= (radius + 0.5)**2`` around every pixel.

    The disc is cut at the image edge, not padded (where the cut disc holds an even count, the
    lower middle sample with its top bit cleared). ``radius`` in pixels, from 1 (else
    ``ValueError("wrongs parameters ...")``); the image must be ``uint16`` with one channel (else
    ``ValueError("Not impl ...")``). Returns a ``uint16`` array of the image's shape.
    """
    return _ombrix.disc_median(image, int(radius))


def remove_cosmic_rays(
    image: ArrayLike, radius: int, threshold: int, mask: Optional[ArrayLike] = None
) -> Tuple[np.ndarray, np.ndarray]:
    """Replace bright outliers by their disc median (the cosmic-ray filter).

    A pixel more than ``threshold`` (in the image's units, DN) above the median over the disc of
    ``radius`` pixels takes the median's value; dark outliers are kept. ``mask`` (``uint8`` of the
    image's shape, optional) limits the replacement to its non-zero pixels. Radius 1 and 2 use the
    3 x 3 and 5 x 5 square windows of OpenCV's median (any dtype and channel count it takes); from
    radius 3 the disc median (``uint16``, one channel).

    Returns ``(cleaned, replaced)``: the cleaned image (the image's shape and dtype) and a boolean
    map, True where a pixel was replaced.
    """
    return _ombrix.remove_cosmic_rays(image, int(radius), int(threshold), mask)


def gaussian_blur(image: ArrayLike, sigma: int, separable: bool = False) -> np.ndarray:
    """Gaussian smoothing with an integer standard deviation ``sigma`` in pixels.

    ``separable=False`` filters with one normalised 2-D kernel; ``True`` with a row and a column
    pass of unnormalised binomial taps, divided by the scale last (integer images round and
    saturate in between). A sigma below 1 is not guarded by the core; one above 1000 is a
    ValueError (the kernel stops widening at 201 taps from sigma 22 on, while the core's cost keeps
    growing with sigma squared). Returns an array of the image's shape and dtype.
    """
    return _ombrix.gaussian_blur(image, int(sigma), bool(separable))


def wavelet_planes(
    image: ArrayLike,
    kernel: Sequence[float] = DEFAULT_WAVELET_KERNEL,
    region: Optional[ArrayLike] = None,
) -> Tuple[List[np.ndarray], List[np.ndarray]]:
    """A-trous wavelet decomposition into seven levels.

    ``kernel`` is the scaling kernel of the first level (dilated with zeros at every level; at
    most 65 taps, an empty kernel is the core's ValueError);
    ``region`` (``uint8``, optional) makes the image extend radially outside its non-zero pixels
    first. Returns ``(details, smooths)``: two lists of seven ``int16`` planes, finest first; both
    are empty for an empty image.
    """
    details, smooths = _ombrix.wavelet_planes(image, [float(v) for v in kernel], region)
    return list(details), list(smooths)


def wavelet_structures(
    image: ArrayLike,
    k: float = 3.0,
    mask: Optional[ArrayLike] = None,
    kernel: Sequence[float] = DEFAULT_WAVELET_KERNEL,
    rejection: float = 4.0,
    region: Optional[ArrayLike] = None,
    base: Optional[ArrayLike] = None,
) -> np.ndarray:
    """Image of the significant structures rebuilt from the coarser wavelet planes.

    Decomposes the image (see :func:`wavelet_planes`), then sums the detail planes from the third
    on, each cleared below ``k`` times its noise level (estimated without the coefficients beyond
    ``rejection`` standard deviations) and opened with an ellipse as wide as the kernel. ``mask``
    (``uint8``; default: every pixel) limits the statistics and the result; ``base`` (float32) is
    what the sum starts from inside the mask. Returns a ``float32`` image, 0 outside the mask. The
    defaults are those the suite checks the process with.
    """
    return _ombrix.wavelet_structures(
        image, float(k), mask, [float(v) for v in kernel], float(rejection), region, base
    )


# ---- Stack statistics ----------------------------------------------------------------------------


def temporal_noise(frames: Frames) -> np.ndarray:
    """Per-pixel temporal noise (sample standard deviation, divisor n - 1) of a frame series.

    ``frames`` is a 3-D array ``(frame, rows, columns)`` or a sequence of 2-D arrays of one shape
    and dtype (meant to be ``uint16``; other dtypes are converted to 16-bit with saturation). The
    sums are accumulated in single precision in frame order. Returns a ``float32`` image in DN; a
    single frame gives NaN everywhere (0 / 0).
    """
    return _ombrix.temporal_noise(frames)


# ---- MTF -----------------------------------------------------------------------------------------


@dataclass(frozen=True)
class EdgeResult:
    """One slanted edge's MTF measurement.

    Frequencies are in cycles per pixel. ``measured`` is False when the edge could not be located;
    every figure is then -1.0 and every curve empty.
    """

    measured: bool
    #: Frequency of each MTF sample, cycles per pixel.
    frequencies: np.ndarray
    #: Normalised, corrected MTF (1.0 at frequency 0).
    mtf: np.ndarray
    #: Oversampled edge spread function (``oversampling`` samples per pixel).
    esf: np.ndarray
    #: Centred, windowed line spread function.
    lsf: np.ndarray
    #: Frequency where the MTF falls to 0.5, cycles per pixel; -1.0 when it never does.
    mtf50: float
    #: Frequency where the MTF falls to 0.1, cycles per pixel; -1.0 when it never does.
    cut_frequency: float
    #: Cut frequency as a percentage of the Nyquist sample, 0 to 100.
    efficiency: float
    #: The frequency sample taken as Nyquist, cycles per pixel.
    nyquist: float
    #: Full width at half maximum of the LSF, pixels.
    fwhm: float
    #: Fitted slope of the edge in its measured orientation, columns per row.
    slope: float
    #: Tilt of the edge against the image axis it runs along, degrees (positive).
    angle_deg: float

    @classmethod
    def _from(cls, figures: Dict[str, Any]) -> "EdgeResult":
        return cls(**{name: figures[name] for name in cls.__dataclass_fields__})


def measure_edge(
    image: ArrayLike,
    roi: Optional[Tuple[float, float, float, float]] = None,
    oversampling: float = 4.0,
    gamma: float = 1.0,
) -> EdgeResult:
    """Slanted-edge MTF of one edge filling the image (or ``roi``).

    ``roi`` is ``(left, top, width, height)`` in pixels; a region reaching outside the image gives
    a result with ``measured=False``. ``oversampling`` is the number of profile bins per pixel;
    ``gamma`` the sensor's response exponent (values are raised to ``1 / gamma`` first when it is
    positive and not 1). Colour images are measured through their grey picture.
    """
    if roi is not None:
        roi = tuple(float(v) for v in roi)
    return EdgeResult._from(_ombrix.measure_edge(image, roi, float(oversampling), float(gamma)))


@dataclass(frozen=True)
class ChartEdge:
    """One measured edge of a chart target."""

    #: "left", "top", "right" or "bottom".
    side: str
    #: The edge region in image pixels: (left, top, width, height).
    region: Tuple[int, int, int, int]
    result: EdgeResult


@dataclass(frozen=True)
class ChartTarget:
    """One detected square target: its minimum-area rectangle and its measured edges."""

    #: 1, 2, ... in detection order.
    number: int
    #: Centre of the rectangle, pixels (x, y).
    center: Tuple[float, float]
    #: Width and height of the rectangle, pixels.
    size: Tuple[float, float]
    #: Angle of the rectangle in degrees, in [-90, 0).
    angle: float
    edges: Tuple[ChartEdge, ...]


@dataclass(frozen=True)
class ChartResult:
    """The measurement of an MTF chart, as :func:`measure_chart` returns it."""

    targets: Tuple[ChartTarget, ...]
    #: Mean efficiency over every measured edge, percent; -1.0 when there is none.
    mean_efficiency: float
    _measurement: Any = field(repr=False, compare=False)


def measure_chart(image: ArrayLike) -> ChartResult:
    """Detect the square targets of an MTF chart and measure the edges on each side of each.

    Returns a :class:`ChartResult`; an image without targets gives no targets.
    """
    measurement = _ombrix.measure_chart(image)
    targets = []
    for t in measurement.targets:
        edges = tuple(
            ChartEdge(side=e["side"], region=tuple(e["region"]), result=EdgeResult._from(e))
            for e in t["edges"]
        )
        targets.append(
            ChartTarget(
                number=t["number"],
                center=tuple(t["center"]),
                size=tuple(t["size"]),
                angle=t["angle"],
                edges=edges,
            )
        )
    return ChartResult(
        targets=tuple(targets),
        mean_efficiency=measurement.mean_efficiency,
        _measurement=measurement,
    )


def annotate_chart(image: ArrayLike, result: ChartResult) -> np.ndarray:
    """The chart as an 8-bit BGR picture ``(rows, columns, 3)`` with each target's rectangle and
    number and each edge region labelled with its cut frequency and efficiency.

    ``result`` must come from :func:`measure_chart` on this image.
    """
    if not isinstance(result, ChartResult):
        raise TypeError("result must be the ChartResult that measure_chart returned")
    return _ombrix.annotate_chart(image, result._measurement)


# ---- Processing plug-in --------------------------------------------------------------------------


@dataclass(frozen=True)
class SpotDetection:
    """What the plug-in's spot detection left."""

    #: False when the detection gave up (dark frames refused); the count is then -1.
    completed: bool
    count: int
    #: One dict per object: centroid (x, y), area (pixels), circularity, box (x, y, w, h), peak
    #: (DN above background), label, contour (N x 2 int32 array of x, y).
    objects: List[Dict[str, Any]]
    #: int32 label image (object i has label i).
    label_image: np.ndarray
    overlay_image: np.ndarray


def _default_plugin_path() -> str:
    here = os.path.dirname(os.path.abspath(__file__))
    suffix = ".dll" if sys.platform == "win32" else (".dylib" if sys.platform == "darwin" else ".so")
    return os.path.join(here, "OmbrixProcessing" + suffix)


def _sequence_measurement(name: str, doc: str) -> Callable[..., float]:
    """The method ``name`` of :class:`ProcessingPlugin`: the plug-in's measurements of a frame
    sequence (the dark-chamber count, the light-source factor) take the same inputs."""

    def measure(
        self: ProcessingPlugin,
        long_dark: ArrayLike,
        short_dark: ArrayLike,
        frames: Frames,
        bad_pixels: Optional[ArrayLike] = None,
    ) -> float:
        return getattr(self._handle, name)(long_dark, short_dark, frames, bad_pixels)

    measure.__name__ = name
    measure.__qualname__ = "ProcessingPlugin." + name
    measure.__doc__ = doc
    return measure


class ProcessingPlugin:
    """The processing plug-in library ``OmbrixProcessing``, loaded through the plug-in factory.

    ``module_path`` defaults to the library installed next to this package. Raises ValueError when
    the library cannot be loaded or makes no object. One object runs one sequence at a time.
    Frames are 16-bit sensor frames taken at 150 s; the darks are the 150 s and 1 s master darks.
    """

    def __init__(self, module_path: Optional[str] = None) -> None:
        path = os.path.abspath(module_path if module_path is not None else _default_plugin_path())
        self._handle = _ombrix.ProcessingPluginHandle(path)

    @property
    def module_path(self) -> str:
        return self._handle.module_path

    dark_chamber_defects = _sequence_measurement(
        "dark_chamber_defects",
        """Number of dark-chamber defects in the minimum of the processed frames (0 or less:
        clean), or -1.0 when the darks are refused or there is no frame.""",
    )

    def defect_map(self) -> np.ndarray:
        """The ``uint8`` map (255 on defects) of the last :meth:`dark_chamber_defects`."""
        return self._handle.defect_map()

    light_source_factor = _sequence_measurement(
        "light_source_factor",
        """Correction factor of a light source from the minimum of the processed frames, or -1.0
        when the darks are refused or there is no frame.""",
    )

    def detect_spots(
        self,
        image: ArrayLike,
        long_dark: ArrayLike,
        short_dark: ArrayLike,
        bad_pixels: Optional[ArrayLike] = None,
        nominal_mode: bool = True,
        **parameters: Any,
    ) -> SpotDetection:
        """Detect the spots of one frame (mode 2, level 2, contours kept).

        The detection parameters are those of the validation runs; keyword arguments override them
        by name (``cosmic_ray_radius``, ``cosmic_ray_threshold``, ``smoothing_sigma``,
        ``max_object_area``, ``min_object_radius``, ``threshold_factor``, ``min_control_peak``,
        ``border_margin``, ``min_circularity_percent``).
        """
        values = _ombrix.validation_parameters(bool(nominal_mode))
        unknown = set(parameters) - set(values)
        if unknown:
            raise TypeError("unknown detection parameters: " + ", ".join(sorted(unknown)))
        values.update(parameters)
        out = self._handle.detect_spots(image, long_dark, short_dark, values, bad_pixels)
        return SpotDetection(**out)
