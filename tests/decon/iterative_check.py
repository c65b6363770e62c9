"""Checks ten passes of the iterative restorations against numpy, pass by pass.

Beads seen through an anisotropic Gaussian PSF (a centred file) on a background, with Poisson
noise from a fixed seed, restored three times with every pass saved: ML-EM with the line
search, factor 20 (a Gaussian blur of the start of width sqrt(2), Good's step with beta
0.002) and guard bands the likelihood leaves out; ML-EM with the vector extrapolation, factor
8 (Good's step only); Gold's method with a blur of width 1.5 after every third pass. Each
pass is recomputed from the definitions, pixel arithmetic in single precision as the
library's, transforms and sums in double.
"""
import os
import subprocess
import sys
import tempfile

import numpy as np

f32 = np.float32
X, Y, Z = 32, 32, 16
SPACING = (f32(0.1), f32(0.1), f32(0.2))
SIGMAS = (1.5, 1.5, 2.0)  # Gaussian PSF, pixels in x, y, z
BACKGROUND = 20.0
SEED = 2024
BEADS = [  # x, y, z, brightness
    (8, 9, 7, 30000.0),
    (11, 9, 8, 24000.0),
    (22, 20, 6, 40000.0),
    (16, 25, 9, 18000.0),
    (25, 7, 10, 26000.0),
]
PASSES = 10
GUARD = (1, 2, 2, 1, 2, 2)  # x1, x2, y1, y2, z1, z2
GUARD_VALUE = f32(1e-20)

# Double-precision transforms against single-precision ones leave a few 1e-7 of the largest
# value per pass; ten passes that sharpen the beads grow that to some 1e-6. A wrong step of
# the line search, an alpha off by a percent or a missing roughness step is off by 1e-3 or
# more.
TOLERANCE = 1e-4


def origin_gaussian():
    def distance(n):
        i = np.arange(n)
        return np.where(i <= n // 2, i, i - n)

    z, y, x = np.meshgrid(distance(Z), distance(Y), distance(X), indexing="ij")
    psf = np.exp(-0.5 * ((x / SIGMAS[0]) ** 2 + (y / SIGMAS[1]) ** 2 + (z / SIGMAS[2]) ** 2))
    return psf / psf.sum()


def make_stack(psf):
    beads = np.zeros((Z, Y, X))
    for x, y, z, value in BEADS:
        beads[z, y, x] = value
    blurred = np.fft.irfftn(np.fft.rfftn(beads) * np.fft.rfftn(psf), s=beads.shape)
    rng = np.random.default_rng(SEED)
    return rng.poisson(np.clip(blurred, 0, None) + BACKGROUND).astype(f32)


def convolve(a, b):
    return np.fft.irfftn(np.fft.rfftn(a) * np.fft.rfftn(b), s=a.shape).astype(f32)


def correlate(a, b):
    return np.fft.irfftn(np.fft.rfftn(a) * np.conj(np.fft.rfftn(b)), s=a.shape).astype(f32)


def divide(a, b):
    out = np.zeros_like(a)
    np.divide(a, b, out=out, where=b != 0)
    return out


def gaussian_kernel(width):
    """Wrapped Gaussian of the given full width at half maximum, lateral pixels as the unit,
    planes apart by the spacing ratio; sum 1."""
    ratio = SPACING[2] / SPACING[0]
    sigma = f32(float(f32(width)) / 2.35457)

    def term(n, step):
        i = np.arange(n)
        u = np.where(i <= n // 2, i, i - n).astype(f32) * f32(step)
        return (u * u) / (f32(2) * sigma * sigma)

    exponent = term(Z, ratio)[:, None, None] + term(Y, 1)[None, :, None] + term(X, 1)[None, None, :]
    kernel = np.exp(-exponent.astype(np.float64))
    return kernel / kernel.sum()


def gaussian_blur(image, width):
    return np.clip(convolve(image, gaussian_kernel(width)), 0, None).astype(f32)


def roughness_step(x, beta):
    """Good's roughness update: every pixel off the border of its plane moves towards
    beta·sqrt(x)·(sum of the square roots of its neighbours), in single precision."""
    beta = f32(beta)
    b = np.sqrt(np.clip(x, 0, None)).astype(f32)
    centre = b[:, 1:-1, 1:-1]
    s = b[:, 1:-1, :-2] + b[:, 1:-1, 2:] + b[:, :-2, 1:-1] + b[:, 2:, 1:-1]
    n = np.full((x.shape[0], 1, 1), f32(6))
    n[0] = n[-1] = f32(4)
    s6 = s.copy()
    s6[1:-1] = s[1:-1] + b[2:, 1:-1, 1:-1] + b[:-2, 1:-1, 1:-1]
    s6[0], s6[-1] = s[0], s[-1]
    updated = (beta * centre * s6 + x[:, 1:-1, 1:-1]) / (beta * n + f32(1))
    out = x.copy()
    out[:, 1:-1, 1:-1] = np.where(updated <= GUARD_VALUE, GUARD_VALUE, updated)
    return out


def floor(x):
    return np.where(x < GUARD_VALUE, GUARD_VALUE, x).astype(f32)


class LineSearch:
    def __init__(self):
        self.steps = []

    def likelihood(self, g, r, c, t):
        x1, x2, y1, y2, z1, z2 = GUARD
        inner = (slice(z1, Z - z2), slice(y1, Y - y2), slice(x1, X - x2))
        g, r, c = g[inner], r[inner], c[inner]
        d = c * f32(t)
        ratio = (d + r) / r
        keep = ratio > GUARD_VALUE
        terms = g[keep] * np.log(ratio[keep]) - d[keep]
        return float(terms.astype(np.float64).sum())

    def step(self, x, g, psf):
        r = convolve(x, psf)
        e = x * correlate(divide(g, r), psf)
        c = convolve(e, psf) - r
        d = e - x
        low = divide(d, x).min()
        limit = float(max(f32(-1) / low, f32(1))) if low < 0 else None
        t = 1.0
        best = self.likelihood(g, r, c, t)
        while True:
            nxt = 2 * t
            if limit is not None and nxt >= limit:
                if limit > t and self.likelihood(g, r, c, limit) > best:
                    t = limit
                break
            value = self.likelihood(g, r, c, nxt)
            if not value > best:
                break
            t, best = nxt, value
        self.steps.append(t)
        return floor(x + d * f32(t))


class Extrapolation:
    def __init__(self):
        self.gradient = None
        self.last = None
        self.alphas = []

    def step(self, x, g, psf):
        return self.carry(x, correlate(divide(g, convolve(x, psf)), psf))

    def carry(self, x, m):
        """The plain update x · m, carried on by the extrapolation and held at the floor."""
        x = x * m
        # A factor that is not positive has no logarithm and counts as no change.
        b = np.log(np.where(m > 0, m, f32(1))).astype(f32)
        gradient = x * b
        alpha = 0.0
        if self.gradient is not None:
            a = self.gradient.astype(np.float64)
            denominator = float((a * a).sum())
            if denominator != 0:
                alpha = min(max(float((gradient.astype(np.float64) * a).sum()) / denominator, 0), 1)
        previous = self.last
        self.gradient, self.last = gradient, x.copy()
        self.alphas.append(alpha)
        if alpha > 0:
            quotient = np.ones_like(x)
            ok = previous > GUARD_VALUE
            # The ratio of a pass is held within a factor of 2 of no change.
            ratio = np.clip(x[ok] / previous[ok], f32(0.5), f32(2))
            quotient[ok] = np.power(ratio, f32(alpha))
            x = quotient * x
        return floor(x)


def gold_pass(x, g, psf):
    w = x * divide(g, convolve(x, psf))
    return np.where(w < 0, GUARD_VALUE, w).astype(f32)


def write(path, array):
    np.ascontiguousarray(array, dtype="<f4").tofile(path)


def read(path, shape=(Z, Y, X)):
    return np.fromfile(path, dtype="<f4").reshape(shape)


def run(program, folder, name, extra, shape=(Z, Y, X)):
    output = os.path.join(folder, name + ".raw")
    arguments = [program, "input=" + os.path.join(folder, "stack.raw"), "output=" + output,
                 "psf=" + os.path.join(folder, "psf.raw"), f"size={shape[2]},{shape[1]},{shape[0]}",
                 "spacing=" + ",".join(str(float(s)) for s in SPACING), f"passes={PASSES}"] + extra
    result = subprocess.run(arguments, capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"{name}: the restoration failed: {result.stderr.strip()}")
    calls = int(result.stdout.split()[-1])
    if calls < PASSES:
        sys.exit(f"{name}: only {calls} status updates")
    files = [output + f"_I{i}" for i in range(1, PASSES)] + [output]
    return [read(f, shape) for f in files]


def compare(name, actual, expected, failures):
    worst = 0.0
    for i, (a, e) in enumerate(zip(actual, expected), start=1):
        error = float(np.max(np.abs(a.astype(np.float64) - e)) / np.max(np.abs(e)))
        worst = max(worst, error)
        if not np.all(np.isfinite(a)) or error >= TOLERANCE:
            failures.append(f"{name} pass {i} ({error:.2e})")
    status = "ok" if worst < TOLERANCE else "FAILED"
    print(f"{name:14s} largest deviation from numpy over {PASSES} passes {worst:.2e} "
          f"of the maximum {status}")
    return worst


def main():
    program = sys.argv[1]
    failures = []
    psf_origin = origin_gaussian()
    stack = make_stack(psf_origin)
    psf_file = np.fft.fftshift(psf_origin).astype(f32)
    # The library scales the PSF to sum 1 again after reading it.
    psf = np.fft.ifftshift(psf_file)
    psf = (psf * f32(1.0 / psf.astype(np.float64).sum())).astype(f32)
    g = stack

    with tempfile.TemporaryDirectory(prefix="ovd-iterative-") as folder:
        write(os.path.join(folder, "stack.raw"), stack)
        write(os.path.join(folder, "psf.raw"), psf_file)
        guard = "guard=" + ",".join(str(v) for v in GUARD)

        search = LineSearch()
        x = gaussian_blur(g, np.sqrt(f32(20) / f32(10)))
        expected = []
        for _ in range(PASSES):
            x = roughness_step(search.step(x, g, psf), 2e-3)
            expected.append(x.astype(np.float64))
        actual = run(program, folder, "search", ["method=mlem", "factor=20", guard])
        compare("line search", actual, expected, failures)
        print(f"  steps {search.steps}")
        if max(search.steps) <= 1:
            failures.append("the line search never went beyond the plain step")

        extrapolation = Extrapolation()
        x = g.copy()
        expected = []
        for _ in range(PASSES):
            x = roughness_step(extrapolation.step(x, g, psf), 8e-4)
            expected.append(x.astype(np.float64))
        actual = run(program, folder, "extrapolation", ["method=mlem", "factor=8",
                                                         "extrapolation=1"])
        compare("extrapolation", actual, expected, failures)
        print("  alpha " + ", ".join(f"{a:.3f}" for a in extrapolation.alphas))
        if not 0 < max(extrapolation.alphas) < 1:
            failures.append("the extrapolation never extrapolated")

        x = g.copy()
        expected = []
        for i in range(1, PASSES + 1):
            x = gold_pass(x, g, psf)
            if i % 3 == 0:
                x = gaussian_blur(x, 1.5)
            expected.append(x.astype(np.float64))
        actual = run(program, folder, "gold", ["method=gold", "smooth=1.5,3"])
        compare("Gold", actual, expected, failures)

    if failures:
        sys.exit("FAILED: " + ", ".join(failures))
    print("all checks passed")


if __name__ == "__main__":
    main()
