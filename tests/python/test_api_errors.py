"""The Python package refuses what it can't pass on, and turns library codes into
exceptions that say what went wrong."""

import unittest

import numpy as np

import ovidane

STACK = np.full((4, 16, 16), 100, np.uint16)
ARGUMENTS = dict(stack=STACK, spacing=(0.1, 0.1, 0.25), na=1.4, ri=1.515, wavelength=0.52)


class Refusals(unittest.TestCase):
    def test_bad_arguments_are_refused_before_the_library(self):
        cases = [
            (ovidane.restore, TypeError, dict(stack=STACK.astype(np.int32))),
            (ovidane.restore, ValueError, dict(stack=np.zeros((2, 2, 2, 2), np.uint8))),
            # One pixel past what the record's 16-bit size fields hold.
            (ovidane.restore, ValueError, dict(stack=np.zeros((1, 1, 32768), np.uint8))),
            (ovidane.restore, ValueError, dict(spacing=(0.1, 0.1))),
            (ovidane.restore, ValueError, dict(noise="loud")),
            # NaN limits pass the library's order check, and ctypes wraps 16-bit fields.
            (ovidane.detect_sa, ValueError, dict(lower=float("nan"), upper=float("nan"))),
            (ovidane.detect_sa, ValueError, dict(upper=float("inf"))),
            (ovidane.detect_sa, ValueError, dict(guard_xy=65546)),
            (ovidane.detect_sa, ValueError, dict(guard_z=32768)),
            (ovidane.detect_sa, ValueError, dict(overlap=-1)),
        ]
        for function, error, change in cases:
            with self.subTest(function=function.__name__, change=change):
                with self.assertRaises(error):
                    function(**dict(ARGUMENTS, **change))

    # The refusals themselves are the C interface's to test; here one of each kind reaches
    # the caller with its code and reason.
    def test_library_failures_carry_their_code_and_reason(self):
        ordinary = STACK.copy()
        ordinary[2, 8, 8] = 900
        for change, code, reason in [(dict(stack=np.zeros_like(STACK)), 1, "no contrast"),
                                     (dict(stack=ordinary, overlap=1000), 14, "at most 300")]:
            with self.subTest(code=code, reason=reason):
                with self.assertRaises(ovidane.OvidaneError) as raised:
                    ovidane.restore(**dict(ARGUMENTS, **change))
                self.assertEqual(raised.exception.code, code)
                self.assertIn(reason, raised.exception.reason)
                self.assertIn(reason, str(raised.exception))


if __name__ == "__main__":
    unittest.main()
