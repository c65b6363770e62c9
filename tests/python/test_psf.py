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

    def test_refusals_reach_the_caller_as_the_restorations_report_them(self):
        # The package's own checks raise ValueError; the library's refusals carry code 2.
        for change, error in [(dict(shape=(0, 16, 16)), ValueError),
                              (dict(psf_model="vectorial"), ValueError),
                              (dict(na=1.6), ovidane.OvidaneError),
                              (dict(psf_model="exact", sample_index=0.5), ovidane.OvidaneError)]:
            with self.subTest(change=change):
                with self.assertRaises(error) as raised:
                    ovidane.psf(**{"shape": (8, 16, 16), "spacing": SPACING, **OPTICS, **change})
                self.assertEqual(getattr(raised.exception, "code", 2), 2)

    def test_exact_model_is_the_scalar_diffraction_integral(self):
        # The integral evaluated pixel by pixel in numpy, with J0 from its integral form and
        # the aberration's piston and defocus removed by least squares, compared with the
        # library's PSF, both relative to their peaks.
        shape, spacing = (12, 24, 21), (0.08, 0.09, 0.2)
        rho = (np.arange(3000) + 0.5) / 3000
        theta = (np.arange(96) + 0.5) * np.pi / 96
        for na, ri, sa, sample, depth in [(1.3, 1.515, 0.0, None, 0.0),
                                          (1.4, 1.515, 0.8, 1.33, 4.0)]:
            with self.subTest(na=na, sa=sa, sample=sample):
                psf = ovidane.psf(shape, spacing, na=na, ri=ri, wavelength=0.52, sa=sa,
                                  psf_model="exact", sample_index=sample, focus_depth=depth)
                k = 2 * np.pi / 0.52
                ns = sample or ri
                s = na * rho
                ci = np.sqrt(ri**2 - s**2)
                weight = np.where(s < ns, rho, 0.0)
                aberration = k * depth * (np.sqrt(np.clip(ns**2 - s**2, 0, None)) - ci)
                aberration += 2 * np.pi * sa * rho**4
                basis = np.stack([np.ones_like(rho), k * ci], axis=1) * np.sqrt(weight)[:, None]
                fit = np.linalg.lstsq(basis, aberration * np.sqrt(weight), rcond=None)[0]
                aberration -= fit[0] + fit[1] * k * ci
                z, y, x = [(np.arange(n) - n // 2) * d
                           for n, d in zip(shape, (spacing[2], spacing[1], spacing[0]))]
                radius = np.hypot(*np.meshgrid(y, x, indexing="ij"))
                radii, where = np.unique(np.round(radius, 9), return_inverse=True)
                j0 = np.cos(np.multiply.outer(np.outer(k * na * radii, rho),
                                              np.sin(theta))).mean(axis=2)
                pupil = np.exp(1j * (np.outer(z, k * ci) + aberration)) * weight
                expected = (np.abs(pupil @ j0.T) ** 2)[:, where.reshape(radius.shape)]
                np.testing.assert_allclose(psf / psf.max(), expected / expected.max(), rtol=0,
                                           atol=1e-3)

    def test_exact_model_has_the_widefield_widths_and_keeps_each_planes_light(self):
        # NA 1.4 oil at 520 nm: 0.51 lambda/NA laterally, the non-paraxial 0.51 um axially.
        psf = ovidane.psf((81, 288, 288), (0.065, 0.065, 0.05), na=1.4, ri=1.515,
                          wavelength=0.52, psf_model="exact")

        def width(profile, step):
            v = profile / profile.max()
            above = np.flatnonzero(v >= 0.5)
            low, high = above[0], above[-1]
            left = low - (v[low] - 0.5) / (v[low] - v[low - 1])
            right = high + (v[high] - 0.5) / (v[high] - v[high + 1])
            return (right - left) * step

        self.assertAlmostEqual(width(psf[40, 144, :], 0.065), 0.19, delta=0.05 * 0.19)
        self.assertAlmostEqual(width(psf[:, 144, 144], 0.05), 0.51, delta=0.05 * 0.51)
        energy = psf.sum(axis=(1, 2))
        np.testing.assert_allclose(energy / energy[40], 1.0, atol=0.02)  # planes within 2 um


if __name__ == "__main__":
    unittest.main()
