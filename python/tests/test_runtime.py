"""Reference counts and memory stay flat over many calls, and the GIL is released while the core
works (another Python thread keeps running during a long call)."""

import gc
import sys
import threading
import time

import numpy as np

import ombrix


def resident_bytes() -> int:
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * 4096


def test_reference_counts_and_memory_are_stable_over_1000_calls(rng):
    image = rng.integers(0, 4096, size=(64, 64), dtype=np.uint16)
    frames = [image, image[::-1].copy()]
    mask = np.ones(image.shape, np.uint8)

    def failing_value():
        try:
            ombrix.disc_median(image, 0)
        except ValueError:
            pass

    def failing_type():
        try:
            ombrix.disc_median(image.astype(np.int32), 3)
        except TypeError:
            pass

    # Each output is at least 8 kB, so a leak of one output per call would grow by 8 MB.
    calls = [
        lambda: ombrix.disc_median(image, 4),
        lambda: ombrix.remove_cosmic_rays(image, 3, 50, mask),
        lambda: ombrix.temporal_noise(frames),
        lambda: ombrix.gaussian_blur(image, 1),
        lambda: ombrix.wavelet_planes(image),
        failing_value,
        failing_type,
        lambda: ombrix.measure_edge(image),
    ]
    for i in range(100):  # warm-up: allocator pools, OpenCV's thread pool
        calls[i % len(calls)]()
    gc.collect()
    counts = (sys.getrefcount(image), sys.getrefcount(mask), sys.getrefcount(frames[0]))
    objects = len(gc.get_objects())
    memory = resident_bytes()
    for i in range(1000):
        calls[i % len(calls)]()
    gc.collect()
    assert (sys.getrefcount(image), sys.getrefcount(mask), sys.getrefcount(frames[0])) == counts
    assert len(gc.get_objects()) <= objects + 50
    assert resident_bytes() - memory < 4 * 1024 * 1024


def test_results_outlive_their_inputs(rng):
    image = rng.integers(0, 4096, size=(64, 64), dtype=np.uint16)
    out = ombrix.disc_median(image, 3)
    expected = out.copy()
    del image
    gc.collect()
    np.testing.assert_array_equal(out, expected)
    out_base = out.base
    del out
    gc.collect()
    assert out_base is not None  # the capsule outlives the view that was dropped


def test_another_thread_runs_while_the_core_works(rng):
    image = rng.integers(0, 65536, size=(512, 512), dtype=np.uint16)
    call = {}
    done = threading.Event()

    def work():
        call["start"] = time.perf_counter()
        ombrix.disc_median(image, 12)
        call["end"] = time.perf_counter()
        done.set()

    stamps = []
    worker = threading.Thread(target=work)
    worker.start()
    while not done.is_set():
        stamps.append(time.perf_counter())
        time.sleep(0.001)
    worker.join()
    # This thread can only take a time stamp while it holds the GIL: stamps strictly inside the
    # worker's call exist only if the call let go of it. The call takes hundreds of milliseconds.
    inside = [t for t in stamps if call["start"] < t < call["end"]]
    assert call["end"] - call["start"] > 0.05
    assert len(inside) >= 10
