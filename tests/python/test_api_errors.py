"""The Python package refuses what it can't pass on, and turns library codes into
exceptions that say what went wrong."""

import unittest

import numpy as np

import ovidane


class InputChecks(unittest.TestCase):
    def setUp(self):
        self.stack = np.full((4, 16, 16), 100, np.uint16)

    def test_array_shape_and_type_are_checked_before_the_library(self):
        with self.assertRaises(TypeError):
            ovidane.restore(self.stack.astype(np.int32), (0.1, 0.1, 0.25), 1.4, 1.515, 0.52)
        with self.assertRaises(ValueError):
            ovidane.restore(np.zeros((2, 2, 2, 2), np.uint8), (0.1, 0.1, 0.25), 1.4, 1.515, 0.52)
        with self.assertRaises(ValueError):
            ovidane.restore(self.stack, (0.1, 0.1), 1.4, 1.515, 0.52)
        with self.assertRaises(ValueError):
            ovidane.restore(self.stack, (0.1, 0.1, 0.25), 1.4, 1.515, 0.52, noise="loud")

    def test_library_codes_become_exceptions_with_the_code(self):
        cases = [
            (dict(na=0.25), 16),
            (dict(wavelength=500.0), 15),
            (dict(spacing=(5.0, 5.0, 0.25)), 17),
            (dict(spacing=(0.1, 0.1, 0.001)), 20),
        ]
        for change, code in cases:
            arguments = dict(spacing=(0.1, 0.1, 0.25), na=1.4, ri=1.515, wavelength=0.52)
            arguments.update(change)
            with self.subTest(change=change):
                with self.assertRaises(ovidane.OvidaneError) as raised:
                    ovidane.restore(self.stack, **arguments)
                self.assertEqual(raised.exception.code, code)
                self.assertTrue(str(raised.exception))

    def test_detection_limits_in_the_wrong_order_are_refused(self):
        with self.assertRaises(ovidane.OvidaneError) as raised:
            ovidane.detect_sa(self.stack, (0.1, 0.1, 0.25), 1.4, 1.515, 0.52, lower=5, upper=-5)
        self.assertEqual(raised.exception.code, 2)


if __name__ == "__main__":
    unittest.main()
