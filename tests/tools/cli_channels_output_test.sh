#!/usr/bin/env bash
# A two-channel ImageJ hyperstack is restored channel by channel, each with its own
# wavelength, and written back as a hyperstack: each channel equals that channel restored
# alone. 16-bit output records the scale that recovers the float result, and reports what it
# clipped. --verbose shows the run's choices and stages without the library's internals,
# which --debug adds; both are UTF-8.
set -u
ovd=$(realpath "$1")
here=$(dirname "$(realpath "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures+1)); }
cd "$work"
py() { PYTHONPATH="$here" /usr/bin/python3 "$@"; }

py "$here/make_tiff16.py" cells.tif 48 40 16 \
  "ImageJ=1.11a;images=16;channels=2;slices=8;hyperstack=true;unit=micron;spacing=0.25"
# The same pixels as an OME-TIFF whose pages run through z first, then c.
py "$here/make_tiff16.py" ome.tif 48 40 16 '<OME><Image><Pixels DimensionOrder="XYZCT" SizeC="2" SizeZ="8" SizeT="1" PhysicalSizeX="0.1" PhysicalSizeY="0.1" PhysicalSizeZ="0.25"/></Image></OME>'
common=(--spacing 0.1,0.1,0.25 --na 1.3)

# Wavelengths: one per channel, or one for all only when asked.
for case in "|IN has 2 channels: give each its wavelength" "--wavelength 520|add --same-wavelength" \
            "--wavelength 461,520,610|3 values for 2 channels" "--wavelength 461,nan|positive numbers"; do
  # shellcheck disable=SC2086
  err=$("$ovd" restore cells.tif out.tif "${common[@]}" ${case%%|*} 2>&1); status=$?
  [ "$status" -eq 2 ] && grep -qF "${case#*|}" <<<"$err" || fail "'${case%%|*}': $status $err"
done
[ ! -e out.tif ] || fail "a refused hyperstack left an output"

"$ovd" restore cells.tif "${common[@]}" --wavelength 461,610 -v 2> verbose.txt || fail "hyperstack restore exited $?"
"$ovd" restore cells.tif -o words.tif "${common[@]}" --wavelength 461,610 --output-type u16 --debug \
  2> debug.txt || fail "16-bit restore exited $?"
py - <<'PY' || fail "channels are not split, restored and interleaved back as they should"
import numpy as np
from read_tiff import read
pages, _ = read("cells.tif")
for c in range(2):
    pages[c::2].astype("<u2").tofile(f"c{c + 1}.raw")
pages[8:].astype("<u2").tofile("co2.raw")
PY
"$ovd" restore ome.tif "${common[@]}" --wavelength 461,610 || fail "OME restore exited $?"
for c in 1:461 2:610 o2:610; do
  "$ovd" restore "c${c%%:*}.raw" "c${c%%:*}.tif" --size 48x40x8 --type u16 "${common[@]}" \
    --wavelength "${c#*:}" || fail "channel ${c%%:*} alone exited $?"
done
py - <<'PY' || fail "the hyperstack's channels differ from those restored alone"
import re
import numpy as np
from read_tiff import read
both, description = read("cells_ovd.tif")
assert both.shape == (16, 40, 48) and both.dtype.kind == "f", both.shape
assert all(k in description for k in ("channels=2", "slices=8", "hyperstack=true", "spacing=0.25")), description
for c in range(2):
    alone, _ = read(f"c{c + 1}.tif")
    np.testing.assert_allclose(both[c::2], alone, rtol=1e-5, atol=1e-6 * alone.max())
assert not np.allclose(both[0::2], both[1::2])
ome, _ = read("ome_ovd.tif")
np.testing.assert_array_equal(ome[1::2], read("co2.tif")[0])
words, description = read("words.tif")
scale = float(re.search(r"ovd_scale=([0-9.e+-]+)", description).group(1))
assert words.dtype == np.uint16 and words.max() == 65535 and "channels=2" in description, description
np.testing.assert_allclose(words / scale, both, atol=0.5 / scale + 1e-6 * both.max())
PY

# What a person reads: the choices and stages, not the memory manager; all of it UTF-8.
for line in "PSF: theoretical widefield, NA 1.3" "emission 461, 610 nm" "restoring channel 2: " \
            "subvolume" "result: " "µm"; do
  grep -qF "$line" verbose.txt || fail "--verbose lacks '$line': $(cat verbose.txt)"
done
grep -qF "blocks allocated" verbose.txt && fail "--verbose shows the memory manager's reports"
grep -qF "blocks allocated" debug.txt || fail "--debug lacks the library's own lines"
grep -qF "16-bit output: stored = restored x" debug.txt || fail "--debug lacks the run's lines"
py -c 'import sys; [open(f, "rb").read().decode("utf-8") for f in sys.argv[1:]]' verbose.txt debug.txt ||
  fail "messages are not UTF-8"

# A factor that drives values past 16 bits is applied and its clipping told; a plain run is
# silent.
err=$("$ovd" restore c1.raw big.tif --size 48x40x8 --type u16 "${common[@]}" --output-type u16 \
  --scale 1e9 2>&1) || fail "--scale 1e9 exited $?"
grep -qE "^ovd: [0-9]+ pixels lay outside 0-65535 once scaled by 1e\+09 and were clipped$" <<<"$err" ||
  fail "clipping not reported: $err"
err=$("$ovd" restore c1.raw quiet.tif --size 48x40x8 --type u16 "${common[@]}" 2>&1)
[ -z "$err" ] || fail "a plain run printed: $err"
exit $((failures > 0))
