"""python -m ovidane restore in.zarr out.zarr --scheduler local:N|tcp://host:port ...

Restores a Zarr stack on a Dask cluster, chunk by chunk, and writes an OME-Zarr store with
the input's chunks and spacing. Exit status: 0 done, 2 input refused, 1 the run failed.
"""

import argparse
import os
import sys
import time

from . import OvidaneError


def _noise(text):
    return text if text in ("low", "medium", "high") else float(text)


def _arguments(argv):
    parser = argparse.ArgumentParser(prog="python -m ovidane")
    commands = parser.add_subparsers(dest="command", required=True)
    run = commands.add_parser("restore", help="restore a Zarr stack on a Dask cluster")
    run.add_argument("input", help="Zarr or OME-Zarr store holding a 3D stack (z, y, x)")
    run.add_argument("output", help="OME-Zarr store to write; replaced if it exists")
    run.add_argument("--scheduler", default=f"local:{os.cpu_count() or 1}",
                     help="local:N (N worker processes here) or the address of a running "
                          "scheduler, tcp://host:port (default: %(default)s)")
    run.add_argument("--na", type=float, required=True, help="numerical aperture")
    run.add_argument("--ri", type=float, required=True, help="refractive index of the immersion")
    run.add_argument("--wavelength", type=float, required=True,
                     help="emission wavelength, micrometres")
    run.add_argument("--spacing", type=float, nargs=3, metavar=("X", "Y", "Z"),
                     help="micrometres; needed when the store records none")
    run.add_argument("--sa", type=float, default=0.0, help="spherical aberration of the PSF")
    run.add_argument("--noise", type=_noise, default="low",
                     help="low, medium, high or a regularisation level (default: low)")
    run.add_argument("--method", default="wiener", choices=("wiener", "mlem", "gold"))
    run.add_argument("--iterations", type=int, help="passes of the iterative methods")
    run.add_argument("--guard-xy", type=int, default=10, help="x/y guard band, pixels")
    run.add_argument("--guard-z", type=int, default=6, help="z guard band, slices")
    run.add_argument("--memory-budget", type=int, metavar="MB",
                     help="working memory of one task, MB (default: the worker's machine)")
    run.add_argument("--threads", type=int,
                     help="threads of one task (default: this machine's processors shared "
                          "among local workers, all of a remote worker's)")
    return run, parser.parse_args(argv)


def _client(scheduler, threads):
    from distributed import Client, LocalCluster

    if scheduler.startswith("local:"):
        workers = int(scheduler[len("local:"):])
        if workers < 1:
            raise ValueError("local:N needs N of at least 1")
        cluster = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                               dashboard_address=":0")
        shared = threads if threads is not None else max(1, (os.cpu_count() or 1) // workers)
        return Client(cluster), cluster, shared
    return Client(scheduler), None, threads


def main(argv=None):
    parser, args = _arguments(argv)
    import ovidane.dask
    from ovidane.omezarr import open_ome_zarr, write_ome_zarr

    local = args.scheduler.startswith("local:")
    if not local and not args.scheduler.startswith(("tcp://", "tls://", "ucx://")):
        parser.error("--scheduler is local:N or a scheduler address such as tcp://host:port")
    try:
        stack, stored = open_ome_zarr(args.input)
        spacing = tuple(args.spacing) if args.spacing else stored
        budget = None if args.memory_budget is None else args.memory_budget << 20
        plan = dict(spacing=spacing, na=args.na, ri=args.ri, wavelength=args.wavelength,
                    sa=args.sa, noise=args.noise,
                    method=args.method, iterations=args.iterations, guard_xy=args.guard_xy,
                    guard_z=args.guard_z, memory_budget=budget)
        # Everything is checked before a cluster starts or a file is written.
        ovidane.dask.restore(stack, **plan)
    except (ValueError, TypeError, OvidaneError, OSError) as refusal:
        print(f"ovidane: {refusal}", file=sys.stderr)
        return 2

    started = time.time()
    try:
        client, cluster, threads = _client(args.scheduler, args.threads)
        try:
            workers = len(client.scheduler_info()["workers"])
            print(f"{args.input}: {stack.shape[2]}x{stack.shape[1]}x{stack.shape[0]} in "
                  f"{stack.numblocks[1] * stack.numblocks[2]} columns of chunks, on {workers} "
                  f"workers ({args.scheduler})")
            restored = ovidane.dask.restore(stack, threads=threads, **plan)
            write_ome_zarr(restored, args.output, spacing)
        finally:
            client.close()
            if cluster is not None:
                cluster.close()
    except Exception as failure:  # a task's own error, or the cluster's
        print(f"ovidane: the run failed: {failure}", file=sys.stderr)
        return 1
    print(f"{args.output}: written in {time.time() - started:.1f} s")
    return 0


if __name__ == "__main__":
    sys.exit(main())
