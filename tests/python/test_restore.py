"""restore and detect_sa as a Python caller uses them: arrays in, arrays out, progress
reports and cancel, on small synthetic bead stacks."""

import os
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor

import numpy as np

import ovidane

SPACING = (0.1, 0.1, 0.25)
OPTICS = dict(na=1.3, ri=1.515, wavelength=0.52)
SHAPE = (16, 48, 48)
BEADS = [(8, 12, 12), (7, 30, 16), (9, 20, 34), (8, 36, 36)]
TRUTH = np.zeros(SHAPE)
TRUTH[tuple(zip(*BEADS))] = 1.0


def bead_stack(seed=3, peak=800.0):
    """A few point beads blurred by the library's own PSF on a background of 100."""
    rng = np.random.default_rng(seed)
    kernel = np.fft.ifftshift(ovidane.psf(SHAPE, SPACING, **OPTICS).astype(np.float64))
    blurred = np.fft.irfftn(np.fft.rfftn(TRUTH) * np.fft.rfftn(kernel), s=SHAPE)
    blurred *= peak / blurred.max()
    return rng.poisson(np.clip(blurred, 0, None) + 100.0).astype(np.uint16)


RAW = bead_stack()


def concentration(stack):
    """Per bead, the signal above the stack's median in the 3x3x3 voxels round its centre
    over that in the 9x9x5 round it, averaged: rises as the beads get sharper."""
    signal = np.clip(stack.astype(np.float64) - np.median(stack), 0, None)
    ratios = []
    for z, y, x in BEADS:
        core = signal[z - 1:z + 2, y - 1:y + 2, x - 1:x + 2].sum()
        around = signal[z - 2:z + 3, y - 4:y + 5, x - 4:x + 5].sum()
        ratios.append(core / around)
    return float(np.mean(ratios))


def correlation(stack, truth=TRUTH):
    return float(np.corrcoef(stack.astype(np.float64).ravel(), truth.ravel())[0, 1])


def born_wolf_psf(depth, width, dx, dz, na, ri, wavelength):
    """An independent widefield PSF: the paraxial scalar (Born and Wolf) integral over the
    pupil per plane, J0 by the trapezoidal rule of its integral form; centred, sum 1."""
    k = 2 * np.pi / wavelength
    rho = (np.arange(200) + 0.5) / 200
    r = np.linspace(0, np.sqrt(2) * (width // 2 + 1) * dx, 400)
    theta = (np.arange(128) + 0.5) * np.pi / 128
    j0 = np.cos(np.multiply.outer(np.outer(k * na * r, rho), np.sin(theta))).mean(axis=2)
    y, x = np.mgrid[:width, :width] - width // 2
    radius = np.hypot(x, y) * dx
    planes = []
    for z in (np.arange(depth) - depth // 2) * dz:
        amplitude = j0 @ (np.exp(-0.5j * k * na**2 * z * rho**2 / ri) * rho)
        planes.append(np.interp(radius, r, np.abs(amplitude) ** 2))
    psf = np.array(planes)
    return (psf / psf.sum()).astype(np.float32)


class Restore(unittest.TestCase):
    def test_all_pixel_types_give_the_same_sharper_stack(self):
        results = [ovidane.restore(stack, SPACING, **OPTICS)
                   for stack in (RAW, RAW.astype(np.float32), (RAW // 4).astype(np.uint8))]
        for restored in results:
            self.assertEqual(restored.shape, SHAPE)
            self.assertEqual(restored.dtype, np.float32)
            self.assertTrue(np.isfinite(restored).all())
        # 16-bit and float input of the same values are the same run.
        np.testing.assert_array_equal(results[0], results[1])
        self.assertGreater(concentration(results[0]), 1.3 * concentration(RAW))
        self.assertGreater(concentration(results[2]), concentration(RAW // 4))

    def test_mlem_clearly_beats_the_wiener_filter_and_refuses_bad_options(self):
        wiener = correlation(ovidane.restore(RAW, SPACING, **OPTICS))
        mlem = correlation(ovidane.restore(RAW, SPACING, **OPTICS, method="mlem"))
        line = correlation(ovidane.restore(RAW, SPACING, **OPTICS, method="mlem", iterations=10,
                                           acceleration="line", roughness=0, start="wiener"))
        self.assertGreater(mlem, wiener + 0.2)
        self.assertGreater(line, wiener)
        for bad in (dict(method="richardson"), dict(method="mlem", iterations=0),
                    dict(method="mlem", iterations=2.5), dict(method="mlem", acceleration="fast"),
                    dict(method="mlem", roughness=float("nan")), dict(method="mlem", start="zero"),
                    dict(sa=float("inf")), dict(guard_xy=65546)):
            with self.assertRaises((ValueError, TypeError), msg=str(bad)):
                ovidane.restore(RAW, SPACING, **OPTICS, **bad)
        with self.assertRaises(ovidane.OvidaneError) as refused:
            ovidane.restore(RAW, SPACING, **OPTICS, method="mlem", roughness=-1)
        self.assertEqual(refused.exception.code, 2)

    def test_progress_reports_and_cancel_leave_no_files(self):
        seen, calls = [], []
        stop = lambda *report: calls.append(report) or False
        with tempfile.TemporaryDirectory() as work:
            ovidane.restore(RAW, SPACING, **OPTICS, temp_dir=work,
                            progress=lambda *report: seen.append(report))
            self.assertEqual(seen[-1][1:3], (1, 1))  # subvolume 1 of 1
            self.assertLessEqual(max(r[0] for r in seen), 100.0)
            with self.assertRaises(ovidane.CancelledError):
                ovidane.restore(RAW, SPACING, **OPTICS, temp_dir=work, progress=lambda *_: False)
            self.assertEqual(os.listdir(work), [])
        # Detection stops at the first report that asks it to.
        with self.assertRaises(ovidane.CancelledError):
            ovidane.detect_sa(RAW, SPACING, **OPTICS, progress=stop)
        self.assertEqual(len(calls), 1)

    def test_threads_restoring_at_once_all_succeed_alike(self):
        expected = ovidane.restore(RAW, SPACING, **OPTICS)

        def host(_):
            try:
                return np.array_equal(ovidane.restore(RAW, SPACING, **OPTICS), expected)
            except ovidane.OvidaneError as error:
                return error

        with ThreadPoolExecutor(2) as hosts:
            self.assertEqual(list(hosts.map(host, range(16))), [True] * 16)

    def test_returned_psf_is_the_chosen_models_unit_volume_covering_the_stack(self):
        for model in ("specified", "exact"):
            _, used = ovidane.restore(RAW, SPACING, **OPTICS, return_psf=True,
                                      psf_model=model)
            self.assertTrue(all(u >= s for u, s in zip(used.shape, SHAPE)))
            self.assertAlmostEqual(float(used.sum(dtype=np.float64)), 1.0, delta=1e-3)
            np.testing.assert_allclose(
                used, ovidane.psf(used.shape, SPACING, **OPTICS, psf_model=model), atol=1e-7)

    def test_a_measured_psf_is_used_as_given_and_restores_at_least_as_well_as_the_model(self):
        # Beads blurred by an independent PSF of odd size, as PSF tools write them, given as
        # the measured PSF of a stack whose subvolume has even sizes. Far from focus its
        # planes are bright up to the border of its box.
        spacing, optics = (0.065, 0.065, 0.2), dict(na=1.4, ri=1.515, wavelength=0.52)
        shape = (48, 96, 96)
        psf = born_wolf_psf(63, 65, 0.065, 0.2, **optics)
        rng = np.random.default_rng(3)
        truth = np.zeros(shape)
        count = 60
        truth[rng.integers(6, 42, count), rng.integers(4, 92, count),
              rng.integers(4, 92, count)] = rng.uniform(5e4, 1.5e5, count)
        padded = [a + b for a, b in zip(shape, psf.shape)]
        blurred = np.fft.irfftn(np.fft.rfftn(truth, padded) * np.fft.rfftn(psf, padded), padded)
        blurred = blurred[31:31 + 48, 32:32 + 96, 32:32 + 96]
        raw = rng.poisson(blurred + 100.0).astype(np.uint16)
        measured, used = ovidane.restore(raw, spacing, **optics, psf=psf, return_psf=True)
        model = ovidane.restore(raw, spacing, **optics)
        self.assertGreaterEqual(correlation(measured, truth), correlation(model, truth))
        # The PSF the run used is the file's, centred where it was and nothing beyond it.
        c = [n // 2 for n in used.shape]
        box = tuple(slice(m - n // 2, m - n // 2 + n) for m, n in zip(c, psf.shape))
        np.testing.assert_allclose(used[box], psf / psf.sum(), rtol=1e-4, atol=1e-9)
        self.assertAlmostEqual(float(used[box].sum(dtype=np.float64)), 1.0, delta=1e-5)
        # What the intensities keep: the input less its smallest value, the filter within a
        # few per cent, ML-EM without guard bands (whose light it would add) within 1%.
        kept = float(raw.sum(dtype=np.float64)) - float(raw.min()) * raw.size
        self.assertAlmostEqual(float(measured.sum(dtype=np.float64)) / kept, 1.0, delta=0.05)
        mlem = ovidane.restore(raw, spacing, **optics, psf=psf, method="mlem", guard_xy=0,
                               guard_z=0)
        self.assertAlmostEqual(float(mlem.sum(dtype=np.float64)) / kept, 1.0, delta=0.01)

    def test_a_plane_is_restored_blind_with_its_psf_estimate(self):
        plane = RAW[8]
        restored, estimate = ovidane.restore(plane, SPACING, **OPTICS, method="blind",
                                             iterations=5, return_psf=True)
        self.assertEqual(restored.shape, (1,) + plane.shape)
        self.assertEqual(estimate.shape[0], 1)
        self.assertAlmostEqual(float(estimate.sum(dtype=np.float64)), 1.0, delta=1e-3)
        self.assertGreater(concentration(np.repeat(restored, SHAPE[0], axis=0)),
                           concentration(np.repeat(plane[np.newaxis], SHAPE[0], axis=0)))
        with self.assertRaises(ValueError):
            ovidane.restore(plane, SPACING, **OPTICS, method="blind", psf_updates=0)
        with self.assertRaises(ovidane.OvidaneError) as refused:
            ovidane.restore(RAW, SPACING, **OPTICS, method="mlem2d")
        self.assertEqual(refused.exception.code, 2)

    def test_channels_are_restored_each_at_its_wavelength(self):
        stack = np.stack([bead_stack(seed=1), bead_stack(seed=2)])
        optics = dict(na=1.3, ri=1.515)
        both = ovidane.restore(stack, SPACING, **optics, wavelength=(0.46, 0.61))
        self.assertEqual(both.shape, (2,) + SHAPE)
        for channel, wavelength in enumerate((0.46, 0.61)):
            alone = ovidane.restore(stack[channel], SPACING, **optics, wavelength=wavelength)
            np.testing.assert_array_equal(both[channel], alone)
        for wavelength, same in ((0.52, False), ((0.4, 0.5, 0.6), True)):
            with self.assertRaisesRegex(ValueError, "wavelength"):
                ovidane.restore(stack, SPACING, **optics, wavelength=wavelength, same_wavelength=same)
        same = ovidane.restore(stack, SPACING, **optics, wavelength=0.52, same_wavelength=True)
        self.assertEqual(same.shape, both.shape)


if __name__ == "__main__":
    unittest.main()
