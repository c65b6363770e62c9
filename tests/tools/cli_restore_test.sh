#!/usr/bin/env bash
# Whole runs through the command-line tool: raw and TIFF in and out, the saved PSF, the
# aberration estimate, and Ctrl-C during a long run. Nothing may stay in the temporary
# directory afterwards.
set -u
ovd="$1"
work=$(mktemp -d)
export TMPDIR="$work/tmp"
mkdir "$TMPDIR"
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures+1)); }
size_is() { # size_is <file> <bytes>
  [ -f "$1" ] && [ "$(stat -c %s "$1")" -eq "$2" ] || fail "$1 should have $2 bytes"
}
optics=(--na 1.3 --ri 1.515 --wavelength 0.52)

# A 16-bit stack of 64x64x16: background with a few bright voxels.
awk 'BEGIN { srand(3); for (i = 0; i < 64*64*16; i++) { v = 100 + int(rand()*10);
  if (i % 4099 == 0) v += 400; printf "%c%c", v % 256, int(v / 256) } }' LC_ALL=C > "$work/stack.raw"
size_is "$work/stack.raw" $((64*64*16*2))
raw=("$work/stack.raw" --size 64x64x16 --type u16 --spacing 0.1,0.1,0.25)

"$ovd" restore "${raw[@]:0:1}" "$work/restored.raw" "${raw[@]:1}" "${optics[@]}" \
  --save-psf "$work/psf.raw" || fail "raw restore exited $?"
size_is "$work/restored.raw" $((64*64*16*4))
[ -s "$work/psf.raw" ] || fail "no saved PSF"

# The iterative methods: a few passes of each, and refusals that name the flag.
for method in "mlem --acceleration line --start wiener" "mlem --roughness 0" "gold"; do
  # shellcheck disable=SC2086
  "$ovd" restore "${raw[@]:0:1}" "$work/iterative.raw" "${raw[@]:1}" "${optics[@]}" \
    --method $method --iter 4 --overwrite || fail "--method $method exited $?"
  size_is "$work/iterative.raw" $((64*64*16*4))
done
# The two accelerations are two different runs, each as the log names it.
for acceleration in line extrapolation; do
  "$ovd" restore "${raw[@]:0:1}" "$work/$acceleration.raw" "${raw[@]:1}" "${optics[@]}" \
    --method mlem --iter 3 --acceleration $acceleration --verbose 2> "$work/$acceleration.log" ||
    fail "--acceleration $acceleration exited $?"
done
cmp -s "$work/line.raw" "$work/extrapolation.raw" && fail "--acceleration made no difference"
grep -q "start data, line search" "$work/line.log" || fail "the log hides the line search"

# One plane: ML-EM of a plane, and blind ML-EM that writes its PSF estimate. A plane method on
# the stack is refused, like the other bad values below.
head -c $((64*64*2)) "$work/stack.raw" > "$work/plane-in.raw"
plane=("$work/plane-in.raw" --size 64x64x1 --type u16 --spacing 0.1,0.1,0.25)
for method in "mlem2d --object-updates 2" "blind --psf-updates 2"; do
  # shellcheck disable=SC2086
  "$ovd" restore "${plane[@]:0:1}" "$work/plane.raw" "${plane[@]:1}" "${optics[@]}" \
    --method $method --iter 3 --save-psf "$work/plane-psf.raw" --overwrite \
    || fail "--method $method exited $?"
  size_is "$work/plane.raw" $((64*64*4))
  [ -s "$work/plane-psf.raw" ] || fail "--method $method saved no PSF"
done
for bad in "--iterations 0" "--method richardson" "--acceleration fast" "--roughness nan" \
           "--start zero" "--guard-z 101" "--overlap 1000" "--method blind" \
           "--method mlem2d --object-updates 101"; do
  # shellcheck disable=SC2086
  if "$ovd" restore "${raw[@]:0:1}" "$work/refused.raw" "${raw[@]:1}" "${optics[@]}" \
       --method mlem $bad 2> "$work/refused.txt"; then
    fail "$bad was accepted"
  fi
  [ -s "$work/refused.txt" ] || fail "$bad was refused without a word"
  [ ! -e "$work/refused.raw" ] || fail "$bad left an output"
done

estimate=$("$ovd" detect-sa "${raw[@]}" "${optics[@]}" --threads 1) || fail "detect-sa exited $?"
[[ "$estimate" =~ ^-?[0-9]+(\.[0-9]+)?$ ]] || fail "detect-sa printed '$estimate', not a number"

# The binned search finds a known aberration: 5 x 5 beads near the middle plane of a
# 128x128x64 stack, blurred with the tool's own PSF at aberration 2, over a background of 100
# with Poisson noise. Within 0.3, as the full search on the same kind of stack.
"$ovd" psf "$work/sa2.raw" --size 128x128x64 --spacing 0.1,0.1,0.25 "${optics[@]}" --sa 2 ||
  fail "psf exited $?"
/usr/bin/python3 - "$work/sa2.raw" "$work/beads.raw" <<'PY' || fail "no bead stack"
import sys
import numpy as np
shape = (64, 128, 128)
psf = np.fromfile(sys.argv[1], dtype=np.float32).reshape(shape).astype(np.float64)
rng = np.random.default_rng(1)
truth = np.zeros(shape)
for i in range(5):
    for j in range(5):
        truth[32 + rng.integers(-3, 4), 12 + 25 * i + rng.integers(-2, 3),
              12 + 25 * j + rng.integers(-2, 3)] = rng.uniform(0.8, 1.0)
blurred = np.fft.irfftn(np.fft.rfftn(truth) * np.fft.rfftn(np.fft.ifftshift(psf)), s=shape)
blurred *= 400.0 / blurred.max()
rng.poisson(np.clip(blurred, 0, None) + 100.0).astype("<u2").tofile(sys.argv[2])
PY
binned=$("$ovd" detect-sa "$work/beads.raw" --size 128x128x64 --type u16 --spacing 0.1,0.1,0.25 \
  "${optics[@]}" --fast) || fail "detect-sa --fast exited $?"
awk -v e="$binned" 'BEGIN { exit !(e > 1.7 && e < 2.3) }' ||
  fail "the binned search found $binned for an aberration of 2"

# TIFF both ways: the PSF written as TIFF carries its spacing, so the restore needs none,
# and the restored TIFF reads back with the same size.
"$ovd" psf "$work/psf.tif" --size 32x32x16 --spacing 0.1,0.1,0.25 "${optics[@]}" || fail "psf exited $?"
"$ovd" restore "$work/psf.tif" "$work/restored.tif" "${optics[@]}" || fail "TIFF restore exited $?"
"$ovd" restore "$work/restored.tif" "$work/again.raw" "${optics[@]}" || fail "float TIFF re-read exited $?"
size_is "$work/again.raw" $((32*32*16*4))

# A 16-bit TIFF as acquisition software writes it, spacing in its OME description: restored
# to a float TIFF with the library's message lines in a log file.
/usr/bin/python3 "$(dirname "$0")/make_tiff16.py" "$work/acquired.tif" 48 40 12
"$ovd" restore "$work/acquired.tif" "$work/acquired-restored.tif" "${optics[@]}" \
  --log "$work/run.log" || fail "16-bit TIFF restore exited $?"
"$ovd" restore "$work/acquired-restored.tif" "$work/acquired-again.raw" "${optics[@]}" ||
  fail "re-reading the restored TIFF exited $?"
size_is "$work/acquired-again.raw" $((48*40*12*4))
[ -s "$work/run.log" ] || fail "--log wrote nothing"
# The tool's output is UTF-8, and the library's lines are part of it.
/usr/bin/python3 -c 'import sys; open(sys.argv[1], "rb").read().decode("utf-8")' "$work/run.log" \
  2>/dev/null || fail "the library's message lines are not UTF-8"

# Ctrl-C once the run has started (its private directory exists): exit 130, no output,
# nothing left in the temporary directory. A small budget cuts the stack into many pieces.
"$ovd" restore "${raw[@]:0:1}" "$work/cancelled.raw" "${raw[@]:1}" "${optics[@]}" \
  --memory-budget 1 &
run=$!
for _ in $(seq 200); do
  [ -n "$(ls -A "$TMPDIR")" ] && break
  sleep 0.01
done
kill -INT $run 2>/dev/null
wait $run
status=$?
if [ "$status" -ne 130 ] && [ "$status" -ne 0 ]; then fail "Ctrl-C gave status $status"; fi
[ "$status" -ne 130 ] || [ ! -e "$work/cancelled.raw" ] || fail "a cancelled run left its output"

[ -z "$(ls -A "$TMPDIR")" ] || fail "temporary files left: $(ls -A "$TMPDIR")"
exit $((failures > 0))
