"""The theoretical PSF a Python caller gets: a unit volume centred in the array, shaped by
the optics, and refused optics reported as the restorations report them."""

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
                self.assertGreaterEqual(float(psf.min()), 0.0)
                peak = np.unravel_index(np.argmax(psf), psf.shape)
                self.assertEqual(tuple(int(i) for i in peak), tuple(n // 2 for n in shape))

    def test_axially_symmetric_without_aberration_and_skewed_with_it(self):
        shape = (15, 33, 33)
        clean = ovidane.psf(shape, SPACING, **OPTICS)
        aberrated = ovidane.psf(shape, SPACING, **OPTICS, sa=1.0)
        scale = float(clean.max())
        # Centred on an odd number of planes, the ideal PSF mirrors onto itself about the
        # focal plane; spherical aberration makes the two sides of focus differ.
        np.testing.assert_allclose(np.flip(clean, 0), clean, atol=1e-4 * scale)
        self.assertGreater(float(np.abs(np.flip(aberrated, 0) - aberrated).max()), 0.01 * scale)
        self.assertAlmostEqual(float(aberrated.sum(dtype=np.float64)), 1.0, delta=1e-4)
        # With equal lateral spacings x and y are interchangeable, aberrated or not.
        for psf in (clean, aberrated):
            np.testing.assert_allclose(psf.transpose(0, 2, 1), psf, atol=1e-4 * scale)

    def test_lateral_width_follows_the_aperture(self):
        # A lower aperture gives a wider central spot: less of the unit sum in the peak.
        sharp = ovidane.psf((8, 32, 32), SPACING, na=1.4, ri=1.515, wavelength=0.52)
        soft = ovidane.psf((8, 32, 32), SPACING, na=0.9, ri=1.515, wavelength=0.52)
        self.assertGreater(float(sharp.max()), 1.5 * float(soft.max()))

    def test_refused_optics_and_shapes(self):
        cases = [
            (dict(na=0.25), 16),
            (dict(wavelength=500.0), 15),
            (dict(na=1.6), 2),
            (dict(spacing=(5.0, 5.0, 0.25)), 17),
            (dict(spacing=(0.1, 0.1, 0.001)), 20),
        ]
        for change, code in cases:
            arguments = dict(spacing=SPACING, **OPTICS)
            arguments.update(change)
            with self.subTest(change=change):
                with self.assertRaises(ovidane.OvidaneError) as raised:
                    ovidane.psf((8, 16, 16), **arguments)
                self.assertEqual(raised.exception.code, code)
        with self.assertRaises(ValueError):
            ovidane.psf((16, 16), SPACING, **OPTICS)
        with self.assertRaises(ValueError):
            ovidane.psf((0, 16, 16), SPACING, **OPTICS)


if __name__ == "__main__":
    unittest.main()
