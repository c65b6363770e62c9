"""Checks one restoration by the inverse filter against numpy.

Beads blurred by an anisotropic Gaussian PSF on a background, with Poisson noise from a fixed
seed; the PSF file is centred, not scaled to sum 1 and holds a few small negative values. The
program given as the first argument restores the stack as one subvolume, and numpy redoes the
steps in double precision: the stack's minimum subtracted (negatives set to 0), the PSF moved
to the origin (negatives set to 0, sum 1), G·conj(H) / (|H|² + K) with K of a fixed noise
class or estimated from the radial power spectra of the z projections (level 54), and the
linear non-negativity compression at the raw stack's sum. A run with the theoretical PSF is
checked only for sanity: finite, non-negative where compressed, beads sharper than measured.
"""
import os
import subprocess
import sys
import tempfile

import numpy as np

X, Y, Z = 64, 64, 32
SPACING = (0.1, 0.1, 0.25)
SIGMAS = (1.6, 1.6, 2.5)  # Gaussian PSF, pixels in x, y, z
BACKGROUND = 100.0
SEED = 4711
BEADS = [  # x, y, z, brightness
    (14, 16, 10, 90000.0),
    (44, 14, 14, 120000.0),
    (30, 32, 16, 70000.0),
    (16, 46, 20, 100000.0),
    (48, 46, 12, 80000.0),
]
Z_GUARD = (3, 3)

# Single-precision transforms and sums of this size agree with double precision to a few
# 1e-7 of the largest value. A K off by 10 percent is off by 5e-2, a raw sum off by 0.1
# percent by 5e-4, a PSF shifted by a pixel by 0.5.
TOLERANCE = 1e-5


def centred_gaussian():
    z, y, x = np.meshgrid(*(np.arange(n) - n // 2 for n in (Z, Y, X)), indexing="ij")
    psf = np.exp(-0.5 * ((x / SIGMAS[0]) ** 2 + (y / SIGMAS[1]) ** 2 + (z / SIGMAS[2]) ** 2))
    return psf / psf.sum()


def make_stack(psf_centred):
    beads = np.zeros((Z, Y, X))
    for x, y, z, value in BEADS:
        beads[z, y, x] = value
    otf = np.fft.fftn(np.fft.ifftshift(psf_centred))
    blurred = np.clip(np.fft.ifftn(np.fft.fftn(beads) * otf).real, 0, None)
    rng = np.random.default_rng(SEED)
    return rng.poisson(blurred + BACKGROUND).astype(np.float32)


def write(path, array):
    np.ascontiguousarray(array, dtype="<f4").tofile(path)


def read(path):
    return np.fromfile(path, dtype="<f4").reshape(Z, Y, X).astype(np.float64)


def run(program, folder, name, extra):
    output = os.path.join(folder, name + ".raw")
    arguments = [program, "method=inverse", "input=" + os.path.join(folder, "stack.raw"), "output=" + output,
                 f"size={X},{Y},{Z}", "spacing=" + ",".join(str(s) for s in SPACING),
                 f"guard=0,0,0,0,{Z_GUARD[0]},{Z_GUARD[1]}"] + extra
    result = subprocess.run(arguments, capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"{name}: the restoration failed: {result.stderr.strip()}")
    calls = int(result.stdout.split()[-1])
    if calls < 3:
        sys.exit(f"{name}: only {calls} status updates")
    return read(output)


def background_corrected(stack):
    corrected = stack.astype(np.float64) - float(stack.min())
    return np.clip(corrected, 0, None)


def psf_at_origin(psf_file):
    psf = np.clip(np.fft.fftshift(psf_file.astype(np.float64)), 0, None)
    return psf / psf.sum()


def wiener(image, psf, k):
    H = np.fft.fftn(psf)
    return np.fft.ifftn(np.fft.fftn(image) * np.conj(H) / (np.abs(H) ** 2 + k)).real


def linear_compression(a, original_sum, limit=float(np.float32(0.02))):
    """Raises the image by a pedestal, clips at 0 and rescales to the original sum, where
    more than `limit` of the pixels are negative."""
    n = a.size
    m = a.min()
    if m >= 0:
        return a
    if np.count_nonzero((a >= m) & (a <= 0)) / n <= limit:
        return a
    factor, step = float(np.float32(0.9)), float(np.float32(0.001))
    t = factor * m
    r = 0.0
    while r < limit:
        r = np.count_nonzero((a >= m) & (a <= t)) / n
        if r < limit:
            t = factor * t
        if t > -1:
            r = limit + step
    scale = original_sum / (original_sum - t * n)
    return np.clip(a - t, 0, None) * scale


def radial_profile(plane, bins):
    h, w = plane.shape
    shorter = np.float32(min(w, h))
    spectrum = np.fft.fft2(plane)
    power = spectrum.real ** 2 + spectrum.imag ** 2
    fx = np.array([x if x <= w // 2 else w - x for x in range(w)], np.float32) / np.float32(w)
    fy = np.array([y if y <= h // 2 else h - y for y in range(h)], np.float32) / np.float32(h)
    radius = np.sqrt(fx[None, :] ** 2 + fy[:, None] ** 2)
    ring = (shorter * radius).astype(np.int64)
    profile = np.zeros(bins + 1)
    for b in range(bins):
        inside = ring == b
        if inside.any():
            profile[b] = power[inside].mean()
    return profile


def smoothed(p, bins):
    s = np.zeros_like(p)
    s[0] = p[0]
    s[1] = (p[2] + p[1]) * 0.5
    s[bins - 1] = p[bins - 1]
    for i in range(2, bins - 1):
        s[i] = (p[i - 1] + p[i] + p[i + 1]) / 3
    return s


def estimated_k(image, psf, first, last, factor=0.0):
    bins = int(np.float32(min(X, Y)) * np.float32(1.41)) >> 1
    sg = smoothed(radial_profile(image[first:last + 1].sum(axis=0), bins), bins)
    sh = smoothed(radial_profile(psf.sum(axis=0), bins), bins)
    start = next((i for i in range(1, bins) if sh[i] / sh[0] < 1e-6),
                 int(np.float32(bins) / np.float32(1.41)))
    floor = max([0.0] + [sg[i] for i in range(start, bins)])
    count = max(1, sum(1 for i in range(bins) if sg[i] >= 2 * floor))
    e = min(max(sh[count - 1], 1e-6), 0.001)
    return max(4 * e, factor * 0.0001 * 4 / 10)


def fwhm(line):
    """Width at half height above the line's lowest value, with linear interpolation."""
    line = line - line.min()
    peak = int(np.argmax(line))
    half = line[peak] / 2
    left = peak
    while left > 0 and line[left - 1] > half:
        left -= 1
    right = peak
    while right < len(line) - 1 and line[right + 1] > half:
        right += 1
    if left == 0 or right == len(line) - 1:
        return float("nan")
    low = left - (line[left] - half) / (line[left] - line[left - 1])
    high = right + (line[right] - half) / (line[right] - line[right + 1])
    return high - low


def mean_fwhm(volume):
    widths = []
    for x, y, z, _ in BEADS:
        widths.append(fwhm(volume[z, y, x - 9:x + 10]))
        widths.append(fwhm(volume[z, y - 9:y + 10, x]))
    return float(np.mean(widths))


def compare(name, actual, expected, failures):
    error = np.max(np.abs(actual - expected)) / np.max(np.abs(expected))
    status = "ok" if error < TOLERANCE else "FAILED"
    print(f"{name:12s} largest deviation from numpy {error:.2e} of the maximum {status}")
    if error >= TOLERANCE:
        failures.append(name)


def main():
    program = sys.argv[1]
    failures = []
    psf_centred = centred_gaussian()
    stack = make_stack(psf_centred)
    # The file's PSF is neither scaled to 1 nor free of small negative values.
    psf_file = (psf_centred * 7.25).astype(np.float32)
    psf_file[0, 0, :4] = -1e-5
    with tempfile.TemporaryDirectory(prefix="ovd-inverse-") as folder:
        write(os.path.join(folder, "stack.raw"), stack)
        write(os.path.join(folder, "psf.raw"), psf_file)
        psf_option = ["psf=" + os.path.join(folder, "psf.raw")]

        image = background_corrected(stack)
        psf = psf_at_origin(psf_file)
        raw_sum = float(np.float32(stack.astype(np.float64).sum()))

        medium = run(program, folder, "medium", psf_option + ["noise=51"])
        expected = linear_compression(wiener(image, psf, float(np.float32(2e-4))), raw_sum)
        compare("medium", medium, expected, failures)

        k = estimated_k(image, psf, Z_GUARD[0], Z - Z_GUARD[1] - 1)
        estimate = run(program, folder, "estimate", psf_option + ["noise=54"])
        expected = linear_compression(wiener(image, psf, k), raw_sum)
        print(f"estimated K {k:.4g}")
        compare("estimate", estimate, expected, failures)

        before = mean_fwhm(image)

        theoretical = run(program, folder, "theoretical",
                          ["noise=51", "na=1.4", "n=1.515", "lambda=520"])
        negative = np.count_nonzero(theoretical < 0) / theoretical.size
        sharp = mean_fwhm(theoretical)
        print(f"theoretical  negative fraction {negative:.4f}, mean FWHM {sharp:.2f} px, "
              f"measured {before:.2f} px")
        if not np.all(np.isfinite(theoretical)):
            failures.append("theoretical: values that are not finite")
        # Non-negative where the compression acts; a few negative pixels are left alone.
        if negative > 0.02:
            failures.append("theoretical: more than 2 percent negative pixels")
        if not sharp < before:
            failures.append("theoretical: the restored beads are not sharper")

    if failures:
        sys.exit("FAILED: " + ", ".join(failures))
    print("all checks passed")


if __name__ == "__main__":
    main()
