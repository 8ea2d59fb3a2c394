#!/usr/bin/python3
"""Cost of the Python layer and the speed of the module against scipy and scikit-image.

1. Binding overhead: disc_median radius 10 on a 2048 x 2048 uint16 frame, the wall time of the
   Python call against the core's own time within that same call, measured in C++ inside the
   module (_ombrix._disc_median_timed); the overhead is wall / core - 1 per call, its median
   reported, so the machine's load between calls does not enter it.
2. disc_median against scipy.ndimage.median_filter with the same disc footprint and against
   skimage.filters.rank.median (where scikit-image is installed), same frame, same run.
3. The GIL: two Python threads calling the module against one thread making the same calls in
   turn (wall time of one over two): measure_edge, whose core runs on one thread, and
   disc_median, whose core already spreads over every core through OpenCV.

    PYTHONPATH=build/python /usr/bin/python3 python/bench/bench_bindings.py [--repeats N] [--size S]
"""

import argparse
import statistics
import threading
import time

import numpy as np
import scipy.ndimage

import ombrix
from ombrix import _ombrix


def sensor_frame(size: int, seed: int = 7) -> np.ndarray:
    """A smooth scene with shot-like noise, 12-bit values in uint16."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:size, 0:size] / size
    scene = 1500 + 800 * np.sin(6 * x) * np.cos(4 * y) + 600 * x
    return np.clip(scene + rng.normal(0, 30, scene.shape), 0, 4095).astype(np.uint16)


def slanted_edge(rows: int, cols: int, degrees: float = 5.0) -> np.ndarray:
    """A blurred step leaning by degrees, as test input for measure_edge."""
    y, x = np.mgrid[0:rows, 0:cols].astype(np.float64)
    distance = (x - cols / 2) - (y - rows / 2) * np.tan(np.radians(degrees))
    return (2000 + 10000 / (1 + np.exp(-distance / 0.8))).astype(np.uint16)


def disc(radius: int) -> np.ndarray:
    dy, dx = np.mgrid[-radius : radius + 1, -radius : radius + 1]
    return dx * dx + dy * dy <= (radius + 0.5) ** 2


def timed(function, *args) -> float:
    start = time.perf_counter()
    function(*args)
    return time.perf_counter() - start


def overhead(image: np.ndarray, radius: int, repeats: int) -> None:
    ombrix.disc_median(image, radius)  # warm-up
    shares, walls, cores = [], [], []
    for _ in range(repeats):
        start = time.perf_counter()
        _, core = _ombrix._disc_median_timed(image, radius)
        wall = time.perf_counter() - start
        walls.append(wall)
        cores.append(core)
        shares.append(wall / core - 1.0)
    plain = statistics.median(timed(ombrix.disc_median, image, radius) for _ in range(repeats))
    print(f"disc_median r{radius} {image.shape[1]}x{image.shape[0]}: Python call"
          f" {statistics.median(walls) * 1e3:.1f} ms, core inside it"
          f" {statistics.median(cores) * 1e3:.1f} ms (medians of {repeats}); binding overhead"
          f" {100.0 * statistics.median(shares):+.3f} % (median per call),"
          f" {1e3 * statistics.median(w - c for w, c in zip(walls, cores)):.3f} ms;"
          f" ombrix.disc_median itself {plain * 1e3:.1f} ms")


def against_others(image: np.ndarray, radius: int, repeats: int) -> None:
    ours = statistics.median(timed(ombrix.disc_median, image, radius) for _ in range(repeats))
    start = time.perf_counter()
    scipy_result = scipy.ndimage.median_filter(image, footprint=disc(radius), mode="mirror")
    scipy_time = time.perf_counter() - start
    r = radius
    same = np.array_equal(ombrix.disc_median(image, radius)[r:-r, r:-r], scipy_result[r:-r, r:-r])
    print(f"scipy.ndimage.median_filter (disc footprint, 1 run): {scipy_time * 1e3:.0f} ms,"
          f" {scipy_time / ours:.1f} x the time of disc_median ({ours * 1e3:.1f} ms);"
          f" interior identical: {same}")
    try:
        from skimage.filters import rank
        from skimage.morphology import disk
    except ImportError:
        print("skimage.filters.rank.median: scikit-image is not installed")
        return
    start = time.perf_counter()
    rank.median(image, disk(radius))
    sk_time = time.perf_counter() - start
    print(f"skimage.filters.rank.median (disk({radius}), 1 run): {sk_time * 1e3:.0f} ms,"
          f" {sk_time / ours:.1f} x the time of disc_median")


def threads(name: str, call, calls: int, rounds: int = 5) -> None:
    call()  # warm-up

    def worker():
        for _ in range(calls):
            call()

    ones, twos, ratios = [], [], []
    for _ in range(rounds):  # alternated, the fastest of each kept: least disturbed by other work
        ones.append(timed(lambda: [call() for _ in range(2 * calls)]))
        start = time.perf_counter()
        cpu = time.process_time()
        pair = [threading.Thread(target=worker) for _ in range(2)]
        for t in pair:
            t.start()
        for t in pair:
            t.join()
        two = time.perf_counter() - start
        twos.append(two)
        ratios.append((time.process_time() - cpu) / two)
    one, two = min(ones), min(twos)
    # Processor time over wall time above 1 means the two threads ran at once, whatever else the
    # machine was doing; the speed-up also needs a free core.
    print(f"{name}: {2 * calls} calls on one thread {one * 1e3:.0f} ms, on two threads"
          f" {two * 1e3:.0f} ms (fastest of {rounds}), speed-up {one / two:.2f} x; processor time"
          f" / wall time on two threads up to {max(ratios):.2f}")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--repeats", type=int, default=7)
    parser.add_argument("--size", type=int, default=2048)
    args = parser.parse_args()
    image = sensor_frame(args.size)
    overhead(image, 10, args.repeats)
    against_others(image, 10, max(1, args.repeats // 2))
    edge = slanted_edge(512, 256)
    threads("measure_edge 256x512", lambda: ombrix.measure_edge(edge), 20)
    small = image[:512, :512].copy()
    threads("disc_median r10 512x512", lambda: ombrix.disc_median(small, 10), 5)


if __name__ == "__main__":
    main()
