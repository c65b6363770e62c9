#!/usr/bin/env bash
# `ovd psf` writes a centred unit-sum PSF as raw float or float TIFF, and refuses optics
# the restorations refuse, with one line and no file left behind.
set -u
ovd="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures+1)); }

"$ovd" psf "$work/psf.raw" --size 32x24x15 --spacing 0.1,0.1,0.25 --na 1.3 --ri 1.515 \
  --wavelength 520 || fail "ovd psf to raw failed"
/usr/bin/python3 - "$work/psf.raw" <<'PY' || fail "raw PSF is not a centred unit sum"
import sys
import numpy as np
psf = np.fromfile(sys.argv[1], dtype=np.float32)
assert psf.size == 32 * 24 * 15, psf.size
psf = psf.reshape(15, 24, 32)
assert abs(psf.sum(dtype=np.float64) - 1.0) < 1e-4, psf.sum()
peak = np.unravel_index(np.argmax(psf), psf.shape)
assert tuple(int(i) for i in peak) == (7, 12, 16), peak
PY

"$ovd" psf "$work/exact.raw" --size 32x24x15 --spacing 0.1,0.1,0.25 --na 1.3 --psf-model exact \
  --sample-ri 1.33 --focus-depth 5 || fail "ovd psf --psf-model exact failed"
/usr/bin/python3 - "$work/exact.raw" "$work/psf.raw" <<'PY' || fail "exact PSF is not a unit sum unlike the specified one"
import sys
import numpy as np
exact, specified = (np.fromfile(name, dtype=np.float32) for name in sys.argv[1:])
assert exact.size == specified.size and abs(exact.sum(dtype=np.float64) - 1.0) < 1e-4
assert np.abs(exact - specified).max() > 0.1 * specified.max()
PY

"$ovd" psf "$work/psf.tif" --size 16x16x8 --spacing 0.1,0.1,0.25 --sa 1.0 || fail "ovd psf to TIFF failed"
PYTHONPATH="$(dirname "$0")" /usr/bin/python3 - "$work/psf.tif" <<'PY' ||
import sys
from read_tiff import read
pages, description = read(sys.argv[1])
assert pages.shape == (8, 16, 16) and pages.dtype.kind == "f", (pages.shape, pages.dtype)
assert "spacing=0.25" in description, description
PY
  fail "TIFF PSF is not a float32 stack of 8 pages with its spacing"

err=$("$ovd" psf "$work/bad.raw" --na 0.25 2>&1 >/dev/null); status=$?
[ "$status" -eq 1 ] && grep -qF "numerical aperture out of range" <<<"$err" || fail "low NA: $status $err"
err=$("$ovd" psf "$work/bad.tif" --spacing 0.1,0.1,5 2>&1 >/dev/null); status=$?
[ "$status" -eq 1 ] && grep -qF "z spacing too large" <<<"$err" || fail "coarse z: $status $err"
err=$("$ovd" psf "$work/bad.raw" --size 16x16 2>&1 >/dev/null); status=$?
[ "$status" -eq 2 ] && grep -qF "is not WxHxD" <<<"$err" || fail "bad size: $status $err"
err=$("$ovd" psf "$work/bad.raw" --psf-model exact --focus-depth -1 2>&1 >/dev/null); status=$?
[ "$status" -eq 2 ] && grep -qF "focus-depth" <<<"$err" || fail "negative depth: $status $err"
[ ! -e "$work/bad.raw" ] && [ ! -e "$work/bad.tif" ] || fail "a refused PSF left a file behind"
exit $((failures > 0))
