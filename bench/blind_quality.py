"""Blind restoration of a plane against the known blur: a synthetic widefield plane of beads
and lines (Poisson noise on a background) blurred by the model PSF, restored
  (a) by ML-EM of the plane with the true PSF,
  (b) by ML-EM of the plane with a PSF 1.5 times too wide (the model at 1.5 times the
      wavelength),
  (c) blind, starting from that wrong PSF,
at their defaults (30 passes of ML-EM; 20 blind passes of one PSF and two object updates)
and at several pass counts (blind: two object updates a pass); the PSF's full width at half maximum (pixels, through its peak in x)
and the object's correlation with the truth are reported for each.

    PYTHONPATH=python OVIDANE_LIBRARY=build/libovdinf01.so /usr/bin/python3 bench/blind_quality.py [size]
"""

import sys
import time

import numpy as np

import ovidane

SPACING = (0.065, 0.065, 0.2)
OPTICS = dict(na=1.4, ri=1.515, wavelength=0.52)


def plane(n, psf, seed=1):
    rng = np.random.default_rng(seed)
    truth = np.zeros((n, n))
    for _ in range(n * n // 400):
        truth[rng.integers(8, n - 8), rng.integers(8, n - 8)] = rng.uniform(2000, 5000)
    y, x = np.mgrid[:n, :n]
    truth[np.abs(y - x - 5) < 1] += 300
    truth[np.abs(y + x - n) < 1.2] += 200
    blurred = np.fft.irfft2(np.fft.rfft2(truth) * np.fft.rfft2(np.fft.ifftshift(psf)), s=(n, n))
    return truth, rng.poisson(np.clip(blurred, 0, None) + 20).astype(np.float32)


def fwhm(psf):
    """Width at half maximum through the peak along x, edges interpolated linearly."""
    p = np.asarray(psf).reshape(psf.shape[-2:])
    row = p[np.unravel_index(np.argmax(p), p.shape)[0]]
    half = row.max() / 2
    above = np.where(row >= half)[0]
    left, right = above[0], above[-1]
    return (right + (row[right] - half) / (row[right] - row[right + 1])
            - left + (row[left] - half) / (row[left] - row[left - 1]))


def main():
    n = int(sys.argv[1]) if len(sys.argv) > 1 else 1024
    true_psf = ovidane.psf((1, n, n), SPACING, **OPTICS)[0]
    wide = dict(OPTICS, wavelength=OPTICS["wavelength"] * 1.5)
    wrong_psf = ovidane.psf((1, n, n), SPACING, **wide)[0]
    truth, data = plane(n, true_psf)

    def correlation(a):
        return np.corrcoef(np.asarray(a).ravel(), truth.ravel())[0, 1]

    print(f"{n} x {n} plane; PSF width {fwhm(true_psf):.2f} px true, {fwhm(wrong_psf):.2f} px "
          f"guessed; raw correlation {correlation(data):.3f}")
    print(f"{'run':30} {'passes':>6} {'correlation':>11} {'PSF width':>9} {'time s':>7}")
    for passes in (None, 10, 20, 30, 40):
        for name, method, given in (("(a) ML-EM, true PSF", "mlem2d", true_psf),
                                    ("(b) ML-EM, wrong PSF", "mlem2d", wrong_psf),
                                    ("(c) blind from the wrong PSF", "blind", wrong_psf)):
            start = time.perf_counter()
            restored, used = ovidane.restore(data, SPACING, **OPTICS, method=method,
                                             iterations=passes, psf=given[np.newaxis],
                                             return_psf=True)
            seconds = time.perf_counter() - start
            print(f"{name:30} {passes or 'dflt':>6} {correlation(restored):11.3f} {fwhm(used):9.2f} "
                  f"{seconds:7.1f}")


if __name__ == "__main__":
    main()
