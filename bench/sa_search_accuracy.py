"""The full and the binned aberration search on the bead calibration stack of the tests
(tests/python/test_detect_sa.py: 5 x 5 beads near the middle plane of a 128 x 128 x 64 stack,
0.1 / 0.25 um, NA 1.3, 520 nm, blurred with the library's PSF at a known aberration, a
background of 100 and Poisson noise), and a 256 x 256 x 64 stack of 10 x 10 such beads. For
each true value: both estimates, and the time of each search as a multiple of one
restoration of the same stack (the best of three), measured in turns in one run. The times
include what the package adds to every call (the stack written to a private file), so
bench_RunBench's DetectionVsRestoration is the measure of the library itself.

    PYTHONPATH=python OVIDANE_LIBRARY=build/libovdinf01.so /usr/bin/python3 bench/sa_search_accuracy.py
"""

import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests",
                                "python"))

import numpy as np  # noqa: E402

import ovidane  # noqa: E402
import test_detect_sa as calibration  # noqa: E402

TRUE_VALUES = (-3.0, -1.5, 0.0, 1.0, 2.0, 4.0)


def wide_stack(sa, seed=1):
    """The calibration stack's beads, 10 x 10 of them, on a 256 x 256 x 64 stack."""
    shape = (64, 256, 256)
    rng = np.random.default_rng(seed)
    truth = np.zeros(shape)
    for i in range(10):
        for j in range(10):
            truth[32 + rng.integers(-3, 4), 12 + 25 * i + rng.integers(-2, 3),
                  12 + 25 * j + rng.integers(-2, 3)] = rng.uniform(0.8, 1.0)
    psf = ovidane.psf(shape, calibration.SPACING, **calibration.OPTICS, sa=sa)
    kernel = np.fft.ifftshift(psf.astype(np.float64))
    blurred = np.fft.irfftn(np.fft.rfftn(truth) * np.fft.rfftn(kernel), s=shape)
    blurred *= calibration.PEAK / blurred.max()
    return rng.poisson(np.clip(blurred, 0, None) + calibration.BACKGROUND).astype(np.uint16)


def seconds(call):
    start = time.perf_counter()
    result = call()
    return result, time.perf_counter() - start


def main():
    ovidane.set_messages(None)
    optics = dict(spacing=calibration.SPACING, **calibration.OPTICS)
    for name, make in (("128 x 128 x 64, 25 beads", calibration.calibration_stack),
                       ("256 x 256 x 64, 100 beads", wide_stack)):
        print(f"\n{name}")
        print(f"{'true':>6} {'full':>7} {'binned':>7} {'|full-true|':>11} {'|binned-true|':>13} "
              f"{'full/rest.':>10} {'binned/rest.':>12}")
        errors = {False: [], True: []}
        for true in TRUE_VALUES:
            stack = make(true)
            ovidane.restore(stack, **optics)  # plans and pools made before the timings
            restoration = min(seconds(lambda: ovidane.restore(stack, **optics))[1]
                              for _ in range(3))
            full, full_s = seconds(lambda: ovidane.detect_sa(stack, **optics))
            binned, binned_s = seconds(lambda: ovidane.detect_sa(stack, **optics, fast=True))
            errors[False].append(abs(full - true))
            errors[True].append(abs(binned - true))
            print(f"{true:+6.2f} {full:+7.3f} {binned:+7.3f} {abs(full - true):11.3f} "
                  f"{abs(binned - true):13.3f} {full_s / restoration:10.2f} "
                  f"{binned_s / restoration:12.2f}", flush=True)
        print(f"{'median error':>22} {np.median(errors[False]):11.3f} "
              f"{np.median(errors[True]):13.3f}")


if __name__ == "__main__":
    main()
