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
        # One pixel past what the record's 16-bit size fields hold.
        with self.assertRaises(ValueError):
            ovidane.restore(np.zeros((1, 1, 32768), np.uint8), (0.1, 0.1, 0.25), 1.4, 1.515, 0.52)
        with self.assertRaises(ValueError):
            ovidane.restore(self.stack, (0.1, 0.1), 1.4, 1.515, 0.52)
        with self.assertRaises(ValueError):
            ovidane.restore(self.stack, (0.1, 0.1, 0.25), 1.4, 1.515, 0.52, noise="loud")

    def test_detection_values_are_checked_before_they_reach_the_library(self):
        # NaN limits pass the library's order check, and ctypes wraps 16-bit fields.
        for change in (dict(lower=float("nan"), upper=float("nan")), dict(upper=float("inf")),
                       dict(guard_xy=65546), dict(guard_z=32768), dict(overlap=-1)):
            with self.subTest(change=change), self.assertRaises(ValueError):
                ovidane.detect_sa(self.stack, (0.1, 0.1, 0.25), 1.4, 1.515, 0.52, **change)


class LibraryReasons(unittest.TestCase):
    # The refusals themselves are the C interface's to test; here one of each kind reaches
    # the caller with its code and reason.
    def test_failures_carry_the_library_reason(self):
        ordinary = np.full((4, 16, 16), 100, np.uint16)
        ordinary[2, 8, 8] = 900
        cases = [
            (dict(stack=np.zeros((4, 16, 16), np.uint16)), 1, "no contrast"),
            (dict(overlap=1000), 14, "at most 300"),
        ]
        for change, code, reason in cases:
            arguments = dict(stack=ordinary, spacing=(0.1, 0.1, 0.25), na=1.4, ri=1.515,
                             wavelength=0.52)
            arguments.update(change)
            with self.subTest(code=code, reason=reason):
                with self.assertRaises(ovidane.OvidaneError) as raised:
                    ovidane.restore(**arguments)
                self.assertEqual(raised.exception.code, code)
                self.assertIn(reason, raised.exception.reason)
                self.assertIn(reason, str(raised.exception))


if __name__ == "__main__":
    unittest.main()
