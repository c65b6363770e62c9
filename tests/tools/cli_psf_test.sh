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
/usr/bin/python3 - "$work/psf.tif" <<'PY' || fail "TIFF PSF is not a float32 stack of 8 pages with its spacing"
import struct, sys
data = open(sys.argv[1], "rb").read()
order = {b"II": "<", b"MM": ">"}[data[:2]]
offset = struct.unpack(order + "I", data[4:8])[0]
pages, description = 0, b""
while offset:
    count = struct.unpack(order + "H", data[offset:offset + 2])[0]
    tags = {}
    for i in range(count):
        tag, kind, n, value = struct.unpack(order + "HHII", data[offset + 2 + 12 * i:offset + 14 + 12 * i])
        tags[tag] = (kind, n, value)
    if 270 in tags:
        kind, n, value = tags[270]
        description = data[value:value + n] if n > 4 else b""
    width = tags[256][2] & (0xFFFF if tags[256][0] == 3 else 0xFFFFFFFF)
    bits = tags[258][2] & 0xFFFF
    fmt = tags.get(339, (3, 1, 1))[2] & 0xFFFF
    assert width == 16 and bits == 32 and fmt == 3, (width, bits, fmt)
    pages += 1
    offset = struct.unpack(order + "I", data[offset + 2 + 12 * count:offset + 6 + 12 * count])[0]
assert pages == 8, pages
assert b"spacing=0.25" in description, description
PY

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
