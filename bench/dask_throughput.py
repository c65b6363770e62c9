"""Throughput of ovidane.dask.restore on local Dask clusters of 1 and 2 worker processes,
and the peak resident memory of each worker.

    PYTHONPATH=python OVIDANE_LIBRARY=build/libovdinf01.so /usr/bin/python3 bench/dask_throughput.py

A 512x512x128 16-bit bead stack in 256x256x64 chunks is restored by the inverse filter from
one Zarr store into another, each task with one library thread and a 256 MB budget, so that
N workers use N cores. Each cluster first restores a small stack, so that the timed run
finds the library loaded in every worker.
"""

import argparse
import os
import resource
import sys
import tempfile
import time

import dask.array as da
import numpy as np
from distributed import Client, LocalCluster

import ovidane
import ovidane.dask
from ovidane.omezarr import write_ome_zarr

SPACING = (0.1, 0.1, 0.25)
OPTICS = dict(na=1.3, ri=1.515, wavelength=0.52)
TASKS = dict(OPTICS, noise="medium", threads=1, memory_budget=256 << 20)


def bead_stack(shape, count=400, seed=7):
    rng = np.random.default_rng(seed)
    kernel = ovidane.psf((32, 48, 48), SPACING, **OPTICS)
    kernel *= 2000.0 / kernel.max()
    light = np.full(shape, 100.0, np.float32)
    for _ in range(count):
        z, y, x = (int(rng.integers(0, s - k)) for s, k in zip(shape, kernel.shape))
        light[z:z + kernel.shape[0], y:y + kernel.shape[1], x:x + kernel.shape[2]] += kernel
    return rng.poisson(light).astype(np.uint16)


def peak_resident_mb():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024.0


def run(workers, store, work, voxels):
    with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                      dashboard_address=":0", silence_logs=50) as cluster, \
            Client(cluster) as client:
        warm = da.from_array(np.full((16, 64, 64), 100, np.uint16), chunks=(16, 32, 32))
        ovidane.dask.restore(warm, SPACING, **TASKS, guard_xy=4).compute()
        started = time.perf_counter()
        output = os.path.join(work, f"out{workers}.zarr")
        write_ome_zarr(ovidane.dask.restore(store, **TASKS), output, SPACING)
        seconds = time.perf_counter() - started
        peaks = sorted(client.run(peak_resident_mb).values())
    return seconds, voxels / seconds / 1e6, peaks


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--workers", type=int, nargs="+", default=[1, 2])
    args = parser.parse_args()
    shape, chunks = (128, 512, 512), (64, 256, 256)
    with tempfile.TemporaryDirectory() as work:
        store = os.path.join(work, "stack.zarr")
        write_ome_zarr(da.from_array(bead_stack(shape), chunks=chunks), store, SPACING)
        voxels = float(np.prod(shape))
        print(f"{shape[2]}x{shape[1]}x{shape[0]} uint16, chunks "
              f"{chunks[2]}x{chunks[1]}x{chunks[0]}, {os.cpu_count()} processors")
        print("workers  seconds  Mvoxel/s  speed-up  peak resident per worker (MB)")
        first = None
        for workers in args.workers:
            seconds, rate, peaks = run(workers, store, work, voxels)
            first = first or rate
            print(f"{workers:7d}  {seconds:7.1f}  {rate:8.2f}  {rate / first:8.2f}  "
                  + ", ".join(f"{p:.0f}" for p in peaks))
    return 0


if __name__ == "__main__":
    sys.exit(main())
