"""The aberration estimate on a bead calibration sample: a grid of bright beads blurred with
the library's own PSF at a known spherical aberration, a background of 100 and Poisson
noise. Prints the true and the found value."""

import unittest

import numpy as np

import ovidane

SPACING = (0.1, 0.1, 0.25)
OPTICS = dict(na=1.3, ri=1.515, wavelength=0.52)
SHAPE = (64, 128, 128)
PEAK, BACKGROUND = 400.0, 100.0


def calibration_stack(sa, seed=1):
    """5 x 5 beads near the middle plane, jittered, of nearly equal brightness."""
    rng = np.random.default_rng(seed)
    depth, height, width = SHAPE
    truth = np.zeros(SHAPE)
    step = width // 5
    for i in range(5):
        for j in range(5):
            z = depth // 2 + rng.integers(-3, 4)
            y = step // 2 + i * step + rng.integers(-2, 3)
            x = step // 2 + j * step + rng.integers(-2, 3)
            truth[z, y, x] = rng.uniform(0.8, 1.0)
    kernel = np.fft.ifftshift(ovidane.psf(SHAPE, SPACING, **OPTICS, sa=sa).astype(np.float64))
    blurred = np.fft.irfftn(np.fft.rfftn(truth) * np.fft.rfftn(kernel), s=SHAPE)
    blurred *= PEAK / blurred.max()
    return rng.poisson(np.clip(blurred, 0, None) + BACKGROUND).astype(np.uint16)


class DetectSphericalAberration(unittest.TestCase):
    def test_estimate_lies_near_the_true_value(self):
        # The figure of merit is flattest near its minimum and bends with the noise there;
        # 0.3 is about a tenth of the scan's step, the precision a restoration needs. The
        # binned search (x and y binned by 2 on this stack) is held to the same bound here.
        for true in (-1.5, 2.0):
            stack = calibration_stack(true)
            for fast in (False, True):
                with self.subTest(sa=true, fast=fast):
                    found = ovidane.detect_sa(stack, SPACING, **OPTICS, fast=fast)
                    print(f"spherical aberration: true {true:+.2f}, found {found:+.3f}"
                          f"{' (binned)' if fast else ''}")
                    self.assertAlmostEqual(found, true, delta=0.3)

    def test_bad_search_options_are_refused_before_the_library(self):
        stack = calibration_stack(2.0)
        for options, error in (({"fast": True, "bin_factor": 1}, ValueError),
                               ({"fast": True, "bin_factor": 2**32 + 2}, ValueError),
                               ({"fast": True, "bin_factor": 2.0}, TypeError),
                               ({"bin_factor": 2}, ValueError),
                               ({"fast": "yes"}, TypeError)):
            with self.subTest(**options), self.assertRaises(error):
                ovidane.detect_sa(stack, SPACING, **OPTICS, **options)
        # The library's own refusals: binned by 8, a stack 64 pixels wide keeps 8; a bad model.
        for part, options in ((stack[:, :64, :64], dict(fast=True, bin_factor=8)),
                              (stack, dict(psf_model="exact", focus_depth=-1.0))):
            with self.subTest(**options):
                with self.assertRaises(ovidane.OvidaneError) as raised:
                    ovidane.detect_sa(part, SPACING, **OPTICS, **options)
                self.assertEqual(raised.exception.code, 2)

    def test_limits_that_exclude_the_minimum_give_zero(self):
        self.assertEqual(ovidane.detect_sa(calibration_stack(2.0), SPACING, **OPTICS,
                                           lower=-5.0, upper=1.0), 0.0)


if __name__ == "__main__":
    unittest.main()
