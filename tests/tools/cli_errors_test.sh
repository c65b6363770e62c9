#!/usr/bin/env bash
# The command-line tool answers bad input with one line that says what is wrong, and a
# non-zero exit status, and leaves nothing behind. A failure inside the library is told with
# the library's own reason.
set -u
ovd="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

expect() { # expect <status> <text in stderr> -- command...
  local status="$1" text="$2"; shift 3
  local err; err=$("$@" 2>&1 >/dev/null); local got=$?
  if [ "$got" -ne "$status" ] || ! grep -qF -- "$text" <<<"$err"; then
    echo "FAIL: $* -> status $got, stderr: $err (wanted $status and '$text')"; failures=$((failures+1))
  elif [ "$(printf '%s\n' "$err" | grep -v '^Run with --help' | grep -c .)" -ne 1 ]; then
    echo "FAIL: $* -> more than one line: $err"; failures=$((failures+1))
  fi
}

head -c 2000 /dev/zero > "$work/stack.raw"
expect 2 "no such file" -- "$ovd" restore "$work/missing.raw" "$work/out.raw" --size 10x10x10 --type u16
expect 2 "needs its size and type" -- "$ovd" restore "$work/stack.raw" "$work/out.raw"
expect 2 "has 2000 bytes but 10x10x20 u16 needs 4000" -- \
  "$ovd" restore "$work/stack.raw" "$work/out.raw" --size 10x10x20 --type u16 --spacing 0.1,0.1,0.25
expect 2 "spacing is unknown" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" --size 10x10x10 --type u16
expect 2 "is not WxHxD" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" --size 10x10 --type u16
# One past the 16-bit record field is refused before the file's size is even compared.
expect 2 "is not WxHxD" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" --size 32768x1x1 --type u8
expect 2 "noise level 'loud'" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" --size 10x10x10 \
  --type u16 --spacing 0.1,0.1,0.25 --noise loud
expect 1 "numerical aperture out of range" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" \
  --size 10x10x10 --type u16 --spacing 0.1,0.1,0.25 --na 0.25
expect 1 "z spacing too large" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" \
  --size 10x10x10 --type u16 --spacing 0.1,0.1,5
# The optics refusals name their one cause; no library reason is tacked on.
err=$("$ovd" restore "$work/stack.raw" "$work/out.raw" --size 10x10x10 --type u16 \
  --spacing 0.1,0.1,0.25 --wavelength 0.0005 2>&1)
[ "$err" = "ovd: the emission wavelength is out of range (give micrometres, e.g. 0.52)" ] ||
  { echo "FAIL: wavelength refusal said: $err"; failures=$((failures+1)); }
echo "not a tiff" > "$work/fake.tif"
expect 2 "not a readable TIFF" -- "$ovd" restore "$work/fake.tif" "$work/out.raw"
expect 2 "temporary directory does not exist" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" \
  --size 10x10x10 --type u16 --spacing 0.1,0.1,0.25 --temp-dir "$work/nowhere"
expect 2 "out.tif: cannot write in $work/nowhere" -- "$ovd" restore "$work/stack.raw" \
  "$work/nowhere/out.tif" --size 10x10x10 --type u16 --spacing 0.1,0.1,0.25


# Values for 16-bit and other narrow fields are checked before they are narrowed, and the
# limits of an aberration search must be numbers in order.
raw=("$work/stack.raw" "$work/out.raw" --size 10x10x10 --type u16 --spacing 0.1,0.1,0.25)
expect 105 "--guard-z: Value 65536 not in range" -- "$ovd" restore "${raw[@]}" --guard-z 65536
expect 105 "--guard-xy: Value 65546 not in range" -- "$ovd" restore "${raw[@]}" --guard-xy 65546
expect 105 "--overlap: Value 65836 not in range" -- "$ovd" detect-sa "${raw[@]:0:1}" "${raw[@]:2}" \
  --overlap 65836
expect 105 "--threads: Value 100000 not in range" -- "$ovd" restore "${raw[@]}" --threads 100000
expect 105 "--memory-budget: Value 1e300 not in range" -- "$ovd" restore "${raw[@]}" --memory-budget 1e300
expect 2 "--memory-budget must be a number" -- "$ovd" restore "${raw[@]}" --memory-budget nan
for case in "out.raw --scale 3|--scale applies to 16-bit output" "out.raw --output-type u16|needs a TIFF" \
            "out.tif --output-type u16 --scale nan|--scale 'nan' is not auto" \
            "out.tif --output-type u16 --scale=-2|--scale '-2' is not auto"; do
  set -- ${case%%|*}
  expect 2 "${case#*|}" -- "$ovd" restore "${raw[@]:0:1}" "$work/$1" "${raw[@]:2}" "${@:2}"
done
expect 2 "--min and --max must be finite" -- "$ovd" detect-sa "${raw[@]:0:1}" "${raw[@]:2}" \
  --min nan --max nan
expect 2 "--min and --max must be finite" -- "$ovd" detect-sa "${raw[@]:0:1}" "${raw[@]:2}" \
  --min 5 --max -5
expect 105 "--bin-factor: Value 65538 not in range" -- "$ovd" detect-sa "${raw[@]:0:1}" \
  "${raw[@]:2}" --bin-factor 65538
expect 1 "the bin factor 2 leaves fewer than 16 pixels" -- "$ovd" detect-sa "${raw[@]:0:1}" \
  "${raw[@]:2}" --bin-factor 2

# Options of other deconvolution tools are answered with what to type instead.
for case in "--float|--output-type" "--bg 100|subtract a known offset" "--background=5|--bg: ovd" \
            "--gpu 0|--threads N" "--tilesize 256|--memory-budget MB"; do
  # shellcheck disable=SC2086
  expect 105 "${case#*|}" -- "$ovd" restore "${raw[@]}" ${case%%|*}
done
version=$("$ovd" --version) && grep -qE '^ovd [0-9]+\.[0-9]+\.[0-9]+$' <<<"${version%%$'\n'*}" &&
  grep -qF "FFT: fftw-3" <<<"$version" && grep -qF "vectors: " <<<"$version" ||
  { echo "FAIL: --version printed: $version"; failures=$((failures+1)); }

# Stacks the library can't restore: the message names the cause, not only the code's class.
expect 1 "guard band of 10 pixels must be smaller than the stack's width and height (10 x 10)" -- \
  "$ovd" restore "${raw[@]}"
expect 1 "x and y guard band of 10 pixels must be smaller than its width and height" -- \
  "$ovd" detect-sa "${raw[@]:0:1}" "${raw[@]:2}"
head -c $((16 * 16 * 4 * 2)) /dev/zero > "$work/zero.raw"
expect 1 "the stack has no contrast: every pixel is 0" -- "$ovd" restore "$work/zero.raw" \
  "$work/out.raw" --size 16x16x4 --type u16 --spacing 0.1,0.1,0.25 --method wiener
/usr/bin/python3 -c "import sys; sys.stdout.buffer.write(bytes.fromhex('0000c07f') * 16 * 16 * 4)" \
  > "$work/nan.raw"
expect 1 "not finite numbers" -- "$ovd" restore "$work/nan.raw" "$work/out.raw" --size 16x16x4 \
  --type f32 --spacing 0.1,0.1,0.25
# Files that may take no more than 16 kB: the first temporary file the run writes can't be
# written whole, which is said as such (and not blamed on the input). A budget of 1 MB leaves
# the temporary files no memory, so they go to the disk.
head -c $((64 * 64 * 8 * 2)) /dev/urandom > "$work/large.raw"
expect 1 "could not be written in the temporary directory" -- \
  bash -c 'ulimit -f 16; trap "" XFSZ; exec "$@"' limited "$ovd" restore "$work/large.raw" \
  "$work/out.raw" --size 64x64x8 --type u16 --spacing 0.1,0.1,0.25 --memory-budget 1

# TIFF stacks that are not what their pages alone suggest: a hyperstack of interleaved
# channels or time points, a file cut short (its page chain then ends early) and one with
# fewer pages than its description declares.
tiff() { /usr/bin/python3 "$(dirname "$0")/make_tiff16.py" "$work/$1" 32 32 "$2" "$3"; }
tiff channels.tif 16 "ImageJ=1.11a;images=16;channels=2;slices=8;hyperstack=true"
tiff frames.tif 16 "ImageJ=1.11a;images=16;frames=4;slices=4;hyperstack=true"
tiff declared.tif 8 "ImageJ=1.11a;images=16;slices=16"
tiff whole.tif 16 ""
head -c $(($(stat -c %s "$work/whole.tif") / 2)) "$work/whole.tif" > "$work/cut.tif"
for case in "frames.tif|a hyperstack of 4 time points" \
            "cut.tif|the pages end after page 7 where the file points to more; it is truncated" \
            "declared.tif|declares 16 pages but holds 8; it is truncated"; do
  expect 2 "${case#*|}" -- "$ovd" restore "$work/${case%%|*}" "$work/out.raw" --spacing 0.1,0.1,0.25
done
expect 2 "a hyperstack of 2 channels; this command takes one" -- "$ovd" detect-sa "$work/channels.tif" \
  --spacing 0.1,0.1,0.25
expect 2 "the channels of a hyperstack are written to a TIFF" -- "$ovd" restore "$work/channels.tif" \
  "$work/out.raw" --spacing 0.1,0.1,0.25 --wavelength 461,610
expect 2 "--psf and --save-psf hold one channel's PSF" -- "$ovd" restore "$work/channels.tif" \
  "$work/out.tif" --spacing 0.1,0.1,0.25 --wavelength 461,610 --save-psf "$work/psf.tif"

leftovers=$(ls "$work" | grep -v -E '^(stack|zero|nan|large)\.raw$|^(fake|channels|frames|declared|whole|cut)\.tif$' || true)
[ -z "$leftovers" ] || { echo "FAIL: files left behind: $leftovers"; failures=$((failures+1)); }
exit $((failures > 0))
