#!/usr/bin/env bash
# What stands at an output's name stays as it was until a command succeeds: an output that is
# an input, or that exists and --overwrite isn't given, is refused up front, a refused or failed run (a full disk included) leaves an old
# file, a symbolic link and its target untouched and no temporary file beside them, and a
# successful run through a link writes the link's target.
set -u
ovd=$(realpath "$1")
work=$(mktemp -d)
export TMPDIR="$work/tmp"
mkdir "$TMPDIR"
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures+1)); }
cd "$work"

expect() { # expect <status> <text in stderr> -- command...
  local status="$1" text="$2"; shift 3
  local err; err=$("$@" 2>&1 >/dev/null); local got=$?
  if [ "$got" -ne "$status" ] || ! grep -qF -- "$text" <<<"$err"; then
    fail "$* -> status $got, stderr: $err (wanted $status and '$text')"
  elif [ "$(printf '%s\n' "$err" | grep -c .)" -ne 1 ]; then
    fail "$* -> more than one line: $err"
  fi
}
unchanged() { # unchanged <file> <copy of what it held>
  cmp -s "$1" "$2" || fail "$1 changed"
}

head -c $((64*64*16*2)) /dev/urandom > in.raw
cp in.raw in.orig
ln -s in.raw in-link.raw
ln in.raw in-hard.raw
raw=(--size 64x64x16 --type u16 --spacing 0.1,0.1,0.25)

# The same file under another path, a symbolic link or a hard link is still the input.
for out in in.raw ./in.raw "$work/in.raw" in-link.raw in-hard.raw; do
  expect 2 "is the same file as IN" -- "$ovd" restore in.raw "$out" "${raw[@]}"
done
expect 2 "--save-psf './out.raw' is the same file as OUT" -- \
  "$ovd" restore in.raw out.raw "${raw[@]}" --save-psf ./out.raw
expect 2 "--log 'in-link.raw' is the same file as IN" -- \
  "$ovd" restore in.raw out.raw "${raw[@]}" --log in-link.raw
expect 2 "--log './p.raw' is the same file as OUT" -- "$ovd" psf p.raw --log ./p.raw
unchanged in.raw in.orig
[ -L in-link.raw ] || fail "the link to the input was replaced"

# Runs the library refuses or that fail keep what was there: a file, a link and its target,
# a saved PSF's old file.
echo "an older result" > old.raw; cp old.raw old.orig
echo "an older PSF" > old-psf.tif; cp old-psf.tif old-psf.orig
echo "a linked result" > target.raw; cp target.raw target.orig
ln -s target.raw link.raw
expect 1 "numerical aperture out of range" -- "$ovd" restore in.raw old.raw "${raw[@]}" --na 1.6 \
  --save-psf old-psf.tif --overwrite
expect 1 "numerical aperture out of range" -- "$ovd" restore in.raw link.raw "${raw[@]}" --na 1.6 --overwrite
expect 1 "numerical aperture out of range" -- "$ovd" psf old.raw --na 0.25 --overwrite
expect 2 "noise level 'loud'" -- "$ovd" restore in.raw old.raw "${raw[@]}" --na 1.3 --noise loud --overwrite
# Without --overwrite an existing output, through a link too, is refused before any work.
expect 3 "OUT 'old.raw' already exists; add --overwrite" -- "$ovd" restore in.raw old.raw "${raw[@]}"
expect 3 "OUT 'link.raw' already exists" -- "$ovd" restore in.raw --out link.raw "${raw[@]}"
expect 3 "--save-psf 'old-psf.tif' already exists" -- "$ovd" restore in.raw new.raw "${raw[@]}" \
  --save-psf old-psf.tif
expect 3 "OUT 'old.raw' already exists" -- "$ovd" psf old.raw
unchanged old.raw old.orig
unchanged old-psf.tif old-psf.orig
unchanged target.raw target.orig
[ -L link.raw ] || fail "a failed run replaced the link"

# A TIFF that doesn't fit: a file size limit makes the writes fail as a full disk would, once
# the library's raw PSF (256 KiB) is written and the TIFF of the same pixels grows past it.
( trap '' XFSZ; ulimit -f 257; "$ovd" psf old-psf.tif --size 64x64x16 --overwrite ) 2> full.err
status=$?
[ "$status" -ne 0 ] && [ "$(grep -c . full.err)" -eq 1 ] && grep -qF "old-psf.tif: cannot be written" full.err ||
  fail "a TIFF on a full disk: status $status, $(cat full.err)"
rm -f full.err
unchanged old-psf.tif old-psf.orig

# A run that succeeds through a link writes the link's target and keeps the link.
"$ovd" restore in.raw link.raw "${raw[@]}" --na 1.3 --overwrite || fail "restore through a link exited $?"
[ -L link.raw ] || fail "a successful run replaced the link"
[ "$(stat -c %s target.raw)" -eq $((64*64*16*4)) ] || fail "the link's target didn't get the result"

# Without OUT the result goes beside the input as NAME_ovd.tif, and only once.
mkdir sub && cp in.raw sub/cells.raw
"$ovd" restore sub/cells.raw "${raw[@]}" --na 1.3 || fail "restore without OUT exited $?"
[ -s sub/cells_ovd.tif ] || fail "no default output beside the input: $(ls sub)"
cp sub/cells_ovd.tif default.orig
expect 3 "OUT 'sub/cells_ovd.tif' already exists" -- "$ovd" restore sub/cells.raw "${raw[@]}"
unchanged sub/cells_ovd.tif default.orig
rm -r sub default.orig

leftovers=$(ls -A | grep -v -x -E 'tmp|in\.raw|in\.orig|in-link\.raw|in-hard\.raw|old\.raw|old\.orig|old-psf\.tif|old-psf\.orig|target\.raw|target\.orig|link\.raw' || true)
[ -z "$leftovers" ] || fail "files left behind: $leftovers"
[ -z "$(ls -A "$TMPDIR")" ] || fail "temporary files left: $(ls -A "$TMPDIR")"
exit $((failures > 0))
