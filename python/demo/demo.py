"""Ovidane demo: a synthetic widefield stack with a known object, blurred by a PSF with
spherical aberration, noisy like a camera image, then estimated and restored by the library.

Prints the aberration found against the true one, how close the raw stack and the two
restorations (inverse filter, ML-EM) are to the object (correlation and PSNR) with the time
each took, and writes a PNG of maximum projections: raw | inverse filter | ML-EM | truth, xy
on top and xz below.

    PYTHONPATH=python /usr/bin/python3 python/demo/demo.py --out build/demo
"""

import argparse
import os
import struct
import sys
import time
import zlib

import numpy as np

# The stack and the microscope: 128 x 128 x 32 voxels of 0.1 x 0.1 x 0.25 micrometres, an oil
# objective of NA 1.3 (n = 1.515) and green emission.
SHAPE = (32, 128, 128)  # (z, y, x)
SPACING = (0.1, 0.1, 0.25)  # (x, y, z), micrometres
NA, RI, WAVELENGTH = 1.3, 1.515, 0.52
TRUE_SA = 1.0
BACKGROUND = 100.0
PEAK_COUNTS = 1000.0  # brightest blurred voxel above background, in photons
SEED = 20240531


def make_object(rng):
    """Beads (single voxels far below the resolution) and a few curved filaments."""
    truth = np.zeros(SHAPE, np.float64)
    depth, height, width = SHAPE
    for _ in range(24):
        z = rng.integers(4, depth - 4)
        y, x = rng.integers(8, height - 8), rng.integers(8, width - 8)
        truth[z, y, x] += rng.uniform(0.6, 1.0)
    # Filaments: smooth 3D curves, sampled densely and splatted onto the grid with weights
    # that add up to a constant line density.
    t = np.linspace(0.0, 1.0, 4000)
    for _ in range(4):
        start = rng.uniform([6, 10, 10], [depth - 6, height - 10, width - 10])
        end = rng.uniform([6, 10, 10], [depth - 6, height - 10, width - 10])
        bend = rng.uniform(-15, 15, size=3) * np.array([0.2, 1.0, 1.0])
        points = start + np.outer(t, end - start) + np.outer(np.sin(np.pi * t), bend)
        index = np.clip(np.rint(points).astype(int), 0, np.array(SHAPE) - 1)
        np.add.at(truth, (index[:, 0], index[:, 1], index[:, 2]), 0.02)
    return truth


def blur(image, psf):
    """Circular convolution with a PSF whose centre sits at the middle of its array."""
    kernel = np.fft.ifftshift(psf.astype(np.float64))
    return np.fft.irfftn(np.fft.rfftn(image) * np.fft.rfftn(kernel), s=image.shape)


def fitted(estimate, truth):
    """The estimate after the gain and offset that bring it closest to the truth, so that
    stacks in different units (camera counts, restored intensities) compare fairly."""
    a = np.vstack([estimate.ravel(), np.ones(estimate.size)]).T
    (gain, offset), *_ = np.linalg.lstsq(a, truth.ravel(), rcond=None)
    return gain * estimate + offset


def correlation(a, b):
    return float(np.corrcoef(a.ravel(), b.ravel())[0, 1])


def psnr(estimate, truth):
    error = np.mean((fitted(estimate, truth) - truth) ** 2)
    return float(10.0 * np.log10(truth.max() ** 2 / error))


def to_bytes(image):
    """Grey levels 0-255 between the 0.1 and 99.9 percentiles."""
    low, high = np.percentile(image, [0.1, 99.9])
    scaled = (image - low) / (high - low if high > low else 1.0)
    return (np.clip(scaled, 0.0, 1.0) * 255.0 + 0.5).astype(np.uint8)


def write_png(path, pixels):
    """An 8-bit greyscale PNG from a 2D uint8 array, with zlib and struct only."""
    height, width = pixels.shape

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    rows = b"".join(b"\x00" + pixels[y].tobytes() for y in range(height))  # filter: none
    with open(path, "wb") as out:
        out.write(b"\x89PNG\r\n\x1a\n")
        out.write(chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 0, 0, 0, 0)))
        out.write(chunk(b"IDAT", zlib.compress(rows, 9)))
        out.write(chunk(b"IEND", b""))


def projections(stacks, gap=4):
    """xy maximum projections side by side, their xz projections (z stretched to the true
    aspect) below, each panel scaled on its own."""
    stretch = max(1, int(round(SPACING[2] / SPACING[0])))
    panels = []
    for stack in stacks:
        xy = to_bytes(stack.max(axis=0))
        xz = to_bytes(np.repeat(stack.max(axis=1), stretch, axis=0))
        column = np.full((xy.shape[0] + gap + xz.shape[0], xy.shape[1]), 255, np.uint8)
        column[: xy.shape[0]] = xy
        column[xy.shape[0] + gap:] = xz
        panels.append(column)
    height = panels[0].shape[0]
    sheet = np.full((height, sum(p.shape[1] for p in panels) + gap * (len(panels) - 1)), 255, np.uint8)
    x = 0
    for panel in panels:
        sheet[:, x:x + panel.shape[1]] = panel
        x += panel.shape[1] + gap
    return sheet


def synthetic_stack(ovidane):
    """The object in photons, and the raw 16-bit stack a camera would record of it."""
    rng = np.random.default_rng(SEED)
    truth = make_object(rng)
    psf = ovidane.psf(SHAPE, SPACING, NA, RI, WAVELENGTH, sa=TRUE_SA)
    blurred = blur(truth, psf)
    # Object and image in photons: the brightest blurred voxel gets PEAK_COUNTS.
    scale = PEAK_COUNTS / blurred.max()
    blurred *= scale
    truth *= scale
    raw = rng.poisson(np.clip(blurred, 0, None) + BACKGROUND).astype(np.uint16)
    return truth, raw


def timed(function):
    start = time.perf_counter()
    result = function()
    return result, time.perf_counter() - start


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default="demo-output", help="directory for the PNG")
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)

    import ovidane

    truth, raw = synthetic_stack(ovidane)
    depth, height, width = SHAPE
    print(f"synthetic widefield stack {width}x{height}x{depth}, spacing "
          f"{SPACING[0]}/{SPACING[1]}/{SPACING[2]} um, NA {NA}, n {RI}, {WAVELENGTH * 1000:.0f} nm, "
          f"true SA {TRUE_SA}, background {BACKGROUND:.0f}, Poisson noise (seed {SEED})")

    try:
        found = ovidane.detect_sa(raw, SPACING, NA, RI, WAVELENGTH)
        print(f"spherical aberration: found {found:.3f}, true {TRUE_SA:.3f}")
        wiener, wiener_seconds = timed(
            lambda: ovidane.restore(raw, SPACING, NA, RI, WAVELENGTH, sa=found))
        mlem, mlem_seconds = timed(
            lambda: ovidane.restore(raw, SPACING, NA, RI, WAVELENGTH, sa=found, method="mlem"))
    except ovidane.OvidaneError as error:
        print(f"demo: the library refused the stack: {error}", file=sys.stderr)
        return 1

    rows = [("raw", raw, None), ("inverse filter", wiener, wiener_seconds),
            ("ML-EM (defaults)", mlem, mlem_seconds)]
    print(f"{'':18} {'correlation':>11} {'PSNR dB':>8} {'time s':>7}")
    for name, stack, seconds in rows:
        stack_f = stack.astype(np.float64)
        took = f"{seconds:7.2f}" if seconds is not None else f"{'':>7}"
        print(f"{name:18} {correlation(stack_f, truth):11.3f} {psnr(stack_f, truth):8.2f} {took}")

    picture = os.path.join(args.out, "demo.png")
    write_png(picture, projections([s.astype(np.float64) for _, s, _ in rows] + [truth]))
    print(f"maximum projections (raw | inverse filter | ML-EM | truth; xy above, xz below): {picture}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
