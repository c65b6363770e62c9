"""Recomputes the transform service's outputs with numpy.

Runs the dump program given as the first argument into a fresh temporary folder and
compares each output with numpy's FFT in double precision. Tolerances are relative to the
largest magnitude of the expected array: single-precision transforms of these sizes stay
near 1e-7 of it, while a wrong layout, sign, scale or conjugation is off by order 1.
"""
import os
import subprocess
import sys
import tempfile

import numpy as np

TOLERANCE = 1e-5


def load(folder, name, width=None):
    x, y, z = (int(v) for v in open(os.path.join(folder, "size.txt")).read().split())
    data = np.fromfile(os.path.join(folder, name + ".raw"), dtype="<f4")
    return data.reshape(z, y, width if width is not None else x).astype(np.float64)


def relative_error(actual, expected):
    return np.max(np.abs(actual - expected)) / np.max(np.abs(expected))


def check_case(folder):
    failures = []
    x, y, z = (int(v) for v in open(os.path.join(folder, "size.txt")).read().split())
    a, b = load(folder, "a"), load(folder, "b")
    A, B = np.fft.fftn(a), np.fft.fftn(b)
    half = x // 2 + 1

    def expect(name, actual, expected):
        error = relative_error(actual, expected)
        status = "ok" if error < TOLERANCE else "FAILED"
        print(f"{os.path.basename(folder):8s} {name:10s} relative error {error:.2e} {status}")
        if error >= TOLERANCE:
            failures.append(f"{folder}: {name}")

    packed = load(folder, "half", x + 2)
    spectrum = packed[:, :, 0:2 * half:2] + 1j * packed[:, :, 1:2 * half:2]
    expect("half", spectrum, np.fft.rfftn(a))
    if x + 2 > 2 * half and np.any(packed[:, :, 2 * half:] != 0):
        failures.append(f"{folder}: padding of the half spectrum is not zero")
    expect("half_back", load(folder, "half_back"), a)

    forward = np.fft.fftn(a + 1j * b)
    expect("fwd_re", load(folder, "fwd_re"), forward.real)
    expect("fwd_im", load(folder, "fwd_im"), forward.imag)
    inverse = np.fft.ifftn(a + 1j * b)
    expect("inv_re", load(folder, "inv_re"), inverse.real)
    expect("inv_im", load(folder, "inv_im"), inverse.imag)

    expect("convolve", load(folder, "convolve"), np.fft.ifftn(A * B).real)
    expect("correlate", load(folder, "correlate"), np.fft.ifftn(A * np.conj(B)).real)
    k = np.float32(0.01)
    wiener = np.fft.ifftn(A * np.conj(B) / (np.abs(B) ** 2 + k)).real
    expect("wiener", load(folder, "wiener"), wiener)

    if os.path.exists(os.path.join(folder, "shift.raw")):
        # The origin moves to the centre: out(x) = in((x + X/2) mod X) on every axis.
        expect("shift", load(folder, "shift"), np.fft.fftshift(a))
    elif x % 2 == 0 and y % 2 == 0 and z % 2 == 0:
        failures.append(f"{folder}: no shift output for an even size")
    return failures


def main():
    dump = sys.argv[1]
    with tempfile.TemporaryDirectory(prefix="ovd-fft-numpy-") as root:
        subprocess.run([dump, root], check=True)
        failures = []
        for case in sorted(os.listdir(root)):
            failures += check_case(os.path.join(root, case))
    if failures:
        print("\n".join(failures), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
