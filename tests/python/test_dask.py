"""Restoring a chunked Zarr stack on a Dask cluster of worker processes: the result joins
into the one-process restoration, survives a worker that dies mid-run, and bad input is
refused before any task runs."""

import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import dask
import dask.array as da
import numpy as np
import zarr
from distributed import Client, LocalCluster

import ovidane
import ovidane.dask
from ovidane.omezarr import open_ome_zarr, write_ome_zarr

SPACING = (0.1, 0.1, 0.25)
OPTICS = dict(na=1.3, ri=1.515, wavelength=0.52)
SHAPE, CHUNKS = (128, 512, 512), (64, 256, 256)
# One thread per task, a small budget: the library cuts each column of chunks itself.
TASKS = dict(OPTICS, noise="medium", threads=1, memory_budget=256 << 20)
WAIT = 300  # seconds: a run that hangs fails instead


def bead_stack(seed=7, count=400, peak=2000.0):
    """Beads blurred by the library's PSF on a background of 100, with Poisson noise."""
    rng = np.random.default_rng(seed)
    kernel = ovidane.psf((32, 48, 48), SPACING, **OPTICS)
    kernel *= peak / kernel.max()
    light = np.full(SHAPE, 100.0, np.float32)
    for _ in range(count):
        z, y, x = (int(rng.integers(0, s - k)) for s, k in zip(SHAPE, kernel.shape))
        light[z:z + kernel.shape[0], y:y + kernel.shape[1], x:x + kernel.shape[2]] += kernel
    return rng.poisson(light).astype(np.uint16)


class DaskRestore(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.TemporaryDirectory()
        cls.stack = bead_stack()
        cls.store = os.path.join(cls.work.name, "stack.zarr")
        write_ome_zarr(da.from_array(cls.stack, chunks=CHUNKS), cls.store, SPACING)
        cls.cluster = LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                   dashboard_address=":0", silence_logs=50)
        cls.client = Client(cls.cluster)
        # The one run on the cluster besides the one that loses a worker: a cluster that
        # has lost one may keep a task of its next run waiting for ever.
        cls.restored = ovidane.dask.restore(cls.store, **TASKS)
        cls.output = os.path.join(cls.work.name, "restored.zarr")
        cls.client.compute(write_ome_zarr(cls.restored, cls.output, SPACING, compute=False)
                           ).result(timeout=WAIT)
        stored, cls.spacing = open_ome_zarr(cls.output)
        cls.result = stored.compute(scheduler="sync")

    @classmethod
    def tearDownClass(cls):
        cls.client.close(timeout=WAIT)
        cls.cluster.close(timeout=WAIT)
        cls.work.cleanup()

    def test_cluster_agrees_with_one_process_away_from_the_faces(self):
        ovidane.set_memory_budget(TASKS["memory_budget"])
        expected = ovidane.restore(self.stack, SPACING, **OPTICS, noise=TASKS["noise"])
        ovidane.set_memory_budget(None)
        self.assertEqual(self.result.shape, SHAPE)
        self.assertEqual(self.restored.chunks, da.from_array(self.stack, chunks=CHUNKS).chunks)
        span = float(expected.max() - expected.min())
        inner = (slice(8, -8), slice(20, -20), slice(20, -20))
        difference = np.abs(self.result[inner] - expected[inner]).max() / span
        print(f"difference {100 * difference:.3f}% of the range", file=sys.stderr)
        self.assertLess(difference, 0.01)
        self.assertEqual(self.spacing, SPACING)

    def test_a_worker_killed_mid_run_leaves_the_result_whole_and_equal(self):
        # Until the cluster has let go of an earlier run's results, it would hand them back.
        deadline = time.time() + WAIT
        while any(self.client.has_what().values()):
            self.assertLess(time.time(), deadline, "results of an earlier run stay")
            time.sleep(0.05)
        future = self.client.compute(self.restored)
        while not any(self.client.processing().values()):
            self.assertFalse(future.done(), "the run ended before a worker could be killed")
            self.assertLess(time.time(), deadline, "no task started")
            time.sleep(0.05)
        time.sleep(0.5)  # into the run
        busy = next(w for w, keys in self.client.processing().items() if keys)
        pid = self.client.run(os.getpid, workers=[busy])[busy]
        self.assertFalse(future.done())
        os.kill(pid, signal.SIGKILL)
        try:
            result = future.result(timeout=WAIT / 2)
        except TimeoutError:
            # This version of distributed may keep a task of the dead worker "processing"
            # for ever. A user then restarts the workers and asks again; that run must
            # give the same result too.
            print("stalled after the kill: workers restarted", file=sys.stderr)
            future.cancel()
            self.client.restart(timeout=WAIT)
            result = self.client.compute(self.restored).result(timeout=WAIT)
        np.testing.assert_array_equal(result, self.result)


class Refusals(unittest.TestCase):
    def test_bad_input_is_refused_before_any_task_runs(self):
        def no_task(*args, **kwargs):
            raise AssertionError("a task ran")

        with tempfile.TemporaryDirectory() as work:
            plain = os.path.join(work, "plain.zarr")
            zarr.save_array(plain, np.zeros((8, 64, 64), np.uint16))
            stack = da.zeros((16, 64, 64), dtype=np.uint16, chunks=(16, 32, 32))
            cases = {
                "margin": (stack.rechunk((16, 16, 64)), SPACING, {}),
                "3 axes": (stack[np.newaxis], SPACING, {}),
                "spacing is missing": (plain, None, {}),
                "positive finite": (stack, (0.1, float("nan"), 0.25), {}),
                "estimated per chunk": (stack, SPACING, dict(noise="auto")),
                "uint8, uint16 or float32": (stack.astype(np.int32), SPACING, {}),
            }
            with dask.config.set(scheduler=no_task):
                for words, (data, spacing, extra) in cases.items():
                    with self.assertRaisesRegex((ValueError, TypeError), words):
                        ovidane.dask.restore(data, spacing, **dict(OPTICS, **extra))
                with self.assertRaises(ovidane.OvidaneError):
                    ovidane.dask.restore(stack, (0.1, 0.1, 0.25), na=1.3, ri=1.515, wavelength=5)

            out = os.path.join(work, "out.zarr")
            cli = subprocess.run([sys.executable, "-m", "ovidane", "restore", plain, out,
                                  "--scheduler", "local:1", "--na", "1.3", "--ri", "1.515",
                                  "--wavelength", "0.52"], capture_output=True, text=True)
            self.assertEqual(cli.returncode, 2, cli.stderr)
            self.assertIn("spacing is missing", cli.stderr)
            self.assertFalse(os.path.exists(out))


if __name__ == "__main__":
    unittest.main()
