#!/usr/bin/python3
"""The plain numpy/scipy way to the same Wiener restoration, as a yardstick for whole runs.

Reads a raw 16-bit stack, pads it by mirroring to the padded size a run would use, makes a
Gaussian PSF of that size, applies the Wiener quotient g * conj(h) / (|h|^2 + k) with
scipy.fft on float32 data (two forward and one inverse real transform), and writes the
interior as raw float32. Prints the best wall time of the repeats in seconds, as

    scipy_seconds <best> first <first>

Usage: scipy_baseline.py STACK WIDTH HEIGHT DEPTH PADDED_X PADDED_Y PADDED_Z OUT
       [--threads N] [--repeats R]
"""
import argparse
import os
import time

import numpy as np
import scipy.fft


def restore(args, k=2e-5):
    shape = (args.depth, args.height, args.width)
    padded = (args.pz, args.py, args.px)
    stack = np.fromfile(args.stack, dtype=np.uint16, count=np.prod(shape)).reshape(shape)
    image = stack.astype(np.float32)
    pad = [(0, p - s) for p, s in zip(padded, shape)]
    image = np.pad(image, pad, mode="reflect")

    # A separable Gaussian PSF centred on the origin, of unit sum.
    axes = []
    for n, sigma in zip(padded, (2.0, 1.2, 1.2)):
        d = np.minimum(np.arange(n), n - np.arange(n)).astype(np.float32)
        axes.append(np.exp(-0.5 * (d / sigma) ** 2).astype(np.float32))
    psf = axes[0][:, None, None] * axes[1][None, :, None] * axes[2][None, None, :]
    psf /= psf.sum(dtype=np.float64)

    g = scipy.fft.rfftn(image, workers=args.threads)
    h = scipy.fft.rfftn(psf, workers=args.threads)
    g *= np.conj(h) / (h.real * h.real + h.imag * h.imag + np.float32(k))
    result = scipy.fft.irfftn(g, s=padded, workers=args.threads).astype(np.float32)
    np.ascontiguousarray(result[: shape[0], : shape[1], : shape[2]]).tofile(args.out)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("stack")
    for name in ("width", "height", "depth", "px", "py", "pz"):
        parser.add_argument(name, type=int)
    parser.add_argument("out")
    parser.add_argument("--threads", type=int, default=os.cpu_count())
    parser.add_argument("--repeats", type=int, default=3)
    args = parser.parse_args()
    times = []
    for _ in range(args.repeats):
        start = time.perf_counter()
        restore(args)
        times.append(time.perf_counter() - start)
    print(f"scipy_seconds {min(times):.4f} first {times[0]:.4f}")


if __name__ == "__main__":
    main()
