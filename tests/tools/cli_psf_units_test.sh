#!/usr/bin/env bash
# A measured PSF's spacing reaches the run in micrometres whatever unit its TIFF states:
# ImageJ's unit text (nm, the escaped micro sign), TIFF's centimetre resolution unit, OME's
# unit attributes. The run reports back the spacing it was given in the saved PSF.
set -u
ovd="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures+1)); }

"$ovd" psf "$work/psf.raw" --size 16x16x9 --spacing 0.1,0.1,0.25 || fail "ovd psf exited $?"
/usr/bin/python3 - "$work" <<'PY' || fail "could not write the test files"
import sys
import numpy as np
import tifffile
work = sys.argv[1]
psf = np.fromfile(f"{work}/psf.raw", dtype=np.float32).reshape(9, 16, 16)
rng = np.random.default_rng(1)
rng.poisson(100, size=(8, 32, 32)).astype(np.uint16).tofile(f"{work}/stack.raw")

def imagej(name, lines, resolution, unit="NONE"):
    with tifffile.TiffWriter(f"{work}/{name}.tif") as w:
        for z, plane in enumerate(psf):
            text = "ImageJ=1.11a\nimages=9\nslices=9\n" + lines if z == 0 else None
            w.write(plane, description=text, resolution=(resolution, resolution),
                    resolutionunit=unit, metadata=None, contiguous=False)

imagej("nm", "unit=nm\nspacing=250\n", 0.01)
imagej("escaped", "unit=\\u00B5m\nspacing=0.25\n", 10.0)
imagej("centimetre", "spacing=0.000025\n", 1e5, "CENTIMETER")
imagej("pixel", "unit=pixel\nspacing=1\n", 1.0)
ome = ('<?xml version="1.0"?><OME><Image><Pixels PhysicalSizeX="100" PhysicalSizeXUnit="nm" '
       'PhysicalSizeY="0.1" PhysicalSizeZ="250" PhysicalSizeZUnit="nm" SizeX="16" SizeY="16" '
       'SizeZ="9"/></Image></OME>')
with tifffile.TiffWriter(f"{work}/ome.tif") as w:
    for z, plane in enumerate(psf):
        w.write(plane, description=ome if z == 0 else None, metadata=None, contiguous=False)
PY

stack=("$work/stack.raw" --size 32x32x8 --type u16 --spacing 0.1,0.1,0.25)
for name in nm escaped centimetre ome; do
  "$ovd" restore "${stack[@]:0:1}" "$work/out.raw" --overwrite "${stack[@]:1}" --psf "$work/$name.tif" \
    --save-psf "$work/saved-$name.tif" || { fail "$name: restore exited $?"; continue; }
  /usr/bin/python3 - "$work/saved-$name.tif" <<'PY' || fail "$name: the run was given another spacing"
import sys
import tifffile
with tifffile.TiffFile(sys.argv[1]) as t:
    page = t.pages[0]
    numerator, denominator = page.tags["XResolution"].value
    x = denominator / numerator
    z = float(t.imagej_metadata["spacing"])
assert abs(x - 0.1) < 1e-5 and abs(z - 0.25) < 1e-5, (x, z)
PY
done

# A PSF without a length unit has no spacing: the user is asked for it.
err=$("$ovd" restore "${stack[@]:0:1}" "$work/out.raw" --overwrite "${stack[@]:1}" --psf "$work/pixel.tif" 2>&1)
[ $? -eq 2 ] && grep -qF "give it with --psf-spacing" <<<"$err" || fail "unitless PSF: $err"
exit $((failures > 0))
