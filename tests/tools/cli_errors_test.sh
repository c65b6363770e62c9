#!/usr/bin/env bash
# The command-line tool answers bad input with one line that says what is wrong, and a
# non-zero exit status, and leaves nothing behind.
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
  elif [ "$(printf '%s\n' "$err" | grep -c .)" -ne 1 ]; then
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
expect 2 "noise level 'loud'" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" --size 10x10x10 \
  --type u16 --spacing 0.1,0.1,0.25 --noise loud
expect 1 "numerical aperture out of range" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" \
  --size 10x10x10 --type u16 --spacing 0.1,0.1,0.25 --na 0.25
expect 1 "z spacing too large" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" \
  --size 10x10x10 --type u16 --spacing 0.1,0.1,5
echo "not a tiff" > "$work/fake.tif"
expect 2 "not a readable TIFF" -- "$ovd" restore "$work/fake.tif" "$work/out.raw"
expect 2 "temporary directory does not exist" -- "$ovd" restore "$work/stack.raw" "$work/out.raw" \
  --size 10x10x10 --type u16 --spacing 0.1,0.1,0.25 --temp-dir "$work/nowhere"

leftovers=$(ls "$work" | grep -v -E '^(stack.raw|fake.tif)$' || true)
[ -z "$leftovers" ] || { echo "FAIL: files left behind: $leftovers"; failures=$((failures+1)); }
exit $((failures > 0))
