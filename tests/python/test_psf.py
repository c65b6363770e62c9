"""The theoretical PSF a Python caller gets: a unit volume centred in the array, whatever the
parity of its axes, and refused optics reported as the restorations report them."""

import unittest

import numpy as np

import ovidane

SPACING = (0.1, 0.1, 0.25)
OPTICS = dict(na=1.3, ri=1.515, wavelength=0.52)


class TheoreticalPsf(unittest.TestCase):
    def test_unit_sum_and_peak_in_the_middle_for_even_and_odd_shapes(self):
        for shape in [(16, 32, 32), (15, 31, 33), (1, 17, 16)]:
            with self.subTest(shape=shape):
                psf = ovidane.psf(shape, SPACING, **OPTICS)
                self.assertEqual(psf.shape, shape)
                self.assertEqual(psf.dtype, np.float32)
                self.assertAlmostEqual(float(psf.sum(dtype=np.float64)), 1.0, delta=1e-4)
                peak = np.unravel_index(np.argmax(psf), psf.shape)
                self.assertEqual(tuple(int(i) for i in peak), tuple(n // 2 for n in shape))

    def test_refused_optics_reach_the_caller_with_their_code(self):
        with self.assertRaises(ovidane.OvidaneError) as raised:
            ovidane.psf((8, 16, 16), SPACING, na=1.6, ri=1.515, wavelength=0.52)
        self.assertEqual(raised.exception.code, 2)
        with self.assertRaises(ValueError):
            ovidane.psf((0, 16, 16), SPACING, **OPTICS)


if __name__ == "__main__":
    unittest.main()
