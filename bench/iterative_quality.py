"""How close each restoration method comes to a known object: the demo's synthetic widefield
stack (beads and filaments, background, Poisson noise, aberrated theoretical PSF), restored
by the inverse filter, ML-EM at several pass counts with both accelerations, and Gold's
method; correlation and PSNR against the object, and wall time.

    PYTHONPATH=python OVIDANE_LIBRARY=build/libovdinf01.so /usr/bin/python3 bench/iterative_quality.py
"""

import os
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "python", "demo"))

import numpy as np  # noqa: E402

import demo  # noqa: E402
import ovidane  # noqa: E402


def main():
    truth, raw = demo.synthetic_stack(ovidane)
    optics = dict(spacing=demo.SPACING, na=demo.NA, ri=demo.RI, wavelength=demo.WAVELENGTH,
                  sa=demo.TRUE_SA)
    runs = [("raw", None), ("inverse filter", dict(method="wiener"))]
    for passes in (10, 30, 100):
        for acceleration in ("extrapolation", "line"):
            runs.append((f"ML-EM {passes} {acceleration}",
                         dict(method="mlem", iterations=passes, acceleration=acceleration)))
    runs.append(("ML-EM defaults", dict(method="mlem")))
    runs.append(("Gold defaults", dict(method="gold")))
    print(f"{'method':28} {'correlation':>11} {'PSNR dB':>8} {'time s':>7}")
    for name, options in runs:
        if options is None:
            stack, seconds = raw, 0.0
        else:
            start = time.perf_counter()
            stack = ovidane.restore(raw, **optics, **options)
            seconds = time.perf_counter() - start
        stack = stack.astype(np.float64)
        print(f"{name:28} {demo.correlation(stack, truth):11.3f} {demo.psnr(stack, truth):8.2f} "
              f"{seconds:7.2f}", flush=True)


if __name__ == "__main__":
    main()
