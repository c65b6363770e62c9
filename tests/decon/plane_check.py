"""Checks five passes of the plane methods against numpy, pass by pass.

A plane of beads and a line seen through an elliptical Gaussian PSF, with Poisson noise,
restored by ML-EM with the vector extrapolation (two object updates a pass, factor 8), and
blind from a PSF guess half as wide again (two plain PSF updates and three extrapolated
object updates a pass, factor 8). Both start from the data scaled to sum 1 and are recomputed
with the definitions of iterative_check.py; the blind method's saved PSF estimate, centred
and of sum 1, is compared as well.
"""
import os
import sys
import tempfile

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import iterative_check as it  # noqa: E402

f32 = np.float32
SHAPE = (1, 40, 48)  # z, y, x: not square, so that a swap of x and y shows
SIGMAS = (2.0, 1.5)  # x, y, in pixels
SEED = 7
it.PASSES = PASSES = 5
BETA = 8e-4


def gaussian(sigmas):
    def distance(n):
        i = np.arange(n)
        return np.where(i <= n // 2, i, i - n)

    y, x = np.meshgrid(distance(SHAPE[1]), distance(SHAPE[2]), indexing="ij")
    psf = np.exp(-0.5 * ((x / sigmas[0]) ** 2 + (y / sigmas[1]) ** 2))[np.newaxis]
    return psf / psf.sum()


def make_plane(psf):
    truth = np.zeros(SHAPE)
    for x, y, value in [(9, 8, 20000.0), (30, 12, 15000.0), (20, 30, 25000.0), (40, 25, 9000.0)]:
        truth[0, y, x] = value
    truth[0, 20, 5:43] += 800.0
    blurred = it.convolve(truth, psf).astype(np.float64)
    rng = np.random.default_rng(SEED)
    return rng.poisson(np.clip(blurred, 0, None) + 15.0).astype(f32)


def sum_one(a):
    return (a * f32(1.0 / a.astype(np.float64).sum())).astype(f32)


def main():
    program = sys.argv[1]
    failures = []
    g = make_plane(gaussian(SIGMAS))
    guess = gaussian((SIGMAS[0] * 1.5, SIGMAS[1] * 1.5))
    psf = sum_one(guess.astype(f32))

    with tempfile.TemporaryDirectory(prefix="ovd-plane-") as folder:
        it.write(os.path.join(folder, "stack.raw"), g)
        it.write(os.path.join(folder, "psf.raw"), np.fft.fftshift(guess).astype(f32))

        acceleration = it.Extrapolation()
        x = sum_one(g)
        expected = []
        for _ in range(PASSES):
            for _ in range(2):
                x = acceleration.step(x, g, psf)
            x = it.roughness_step(it.floor(x), BETA)
            expected.append(x.astype(np.float64))
        actual = it.run(program, folder, "plane", ["method=mlem2d", "factor=8",
                                                   "extrapolation=1", "updates=2,1"], SHAPE)
        it.compare("plane", actual, expected, failures)

        objects = it.Extrapolation()
        x, h = sum_one(g), psf.copy()
        expected = []
        for _ in range(PASSES):
            for _ in range(2):
                h = h * it.correlate(it.divide(g, it.convolve(x, h)), x)
            for _ in range(3):
                x = objects.carry(x, it.correlate(it.divide(g, it.convolve(x, h)), h))
            h, x = it.floor(h), it.floor(x)
            x = it.roughness_step(x, BETA)
            expected.append(x.astype(np.float64))
        actual = it.run(program, folder, "blind", ["method=blind", "factor=8", "updates=3,2"],
                        SHAPE)
        it.compare("blind", actual, expected, failures)
        saved = it.read(os.path.join(folder, "blind.raw_psf"), SHAPE)
        it.compare("blind PSF", [saved], [np.fft.fftshift(sum_one(h)).astype(np.float64)],
                   failures)

    if failures:
        sys.exit("FAILED: " + ", ".join(failures))
    print("all checks passed")


if __name__ == "__main__":
    main()
