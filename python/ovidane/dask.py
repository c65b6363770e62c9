"""Restoration of chunked volumes (Dask arrays, Zarr stores) as a lazy Dask computation,
for volumes that outgrow one machine.

    import ovidane.dask
    from ovidane.omezarr import open_ome_zarr, write_ome_zarr
    stack, spacing = open_ome_zarr("stack.zarr")
    restored = ovidane.dask.restore(stack, spacing, na=1.4, ri=1.515, wavelength=0.52)
    write_ome_zarr(restored, "restored.zarr", spacing)

Each task restores a column of chunks: all of the stack's depth, as the library never cuts
the z axis either (a widefield PSF spreads its light over every plane, and its scale to a
sum of 1 follows the depth it is computed for), and in x and y one chunk together with a
margin of its neighbours' pixels. It keeps only the chunk: the margin stands in for the
stack around it, which the light of the chunk's edge pixels came from. The margin is as
wide as the guard band the library gives an inner face of its own subvolumes (twice the
guard band asked for), so a chunk sees as much of its surroundings as a subvolume of a
one-process restoration does. The result has the chunks of the input.

The inverse filter takes what describes the whole stack from the whole stack, as a
one-process run does, so that chunks join without steps between them: the background (the
stack's smallest value) and the non-negativity step (one pedestal and one scale for every
pixel, from the stack's sum). Its tasks restore linearly, without either, and two cheap
passes over their results do the rest. The iterative methods keep their estimates per chunk,
as the library keeps them per subvolume.

Any Dask scheduler runs the tasks; on a distributed cluster each worker process loads the
library itself.
"""

import dask
import dask.array as da
import numpy as np

from . import _api
from .omezarr import open_ome_zarr

# The library refuses guard bands above this.
_LARGEST_GUARD_BAND = 100
# The non-negativity step of the inverse filter: the share of negative pixels it tolerates,
# and its pedestal search, which starts at nine tenths of the smallest value and rises by
# tenths until that share lies below the pedestal, or the pedestal passes -1.
_TOLERATED_NEGATIVE_SHARE = np.float32(0.02)
_PEDESTAL_STEP = float(np.float32(0.9))
_SEARCH_MARGIN = float(np.float32(0.001))


def restore(data, spacing=None, na=None, ri=None, wavelength=None, *, sa=0.0, noise="low",
            method="wiener", iterations=None, acceleration="extrapolation",
            roughness=None, start="data", guard_xy=10, guard_z=6, memory_budget=None,
            threads=None, temp_dir=None):
    """A lazy Dask array (z, y, x) of float32: data restored chunk by chunk.

    data: a Dask array (z, y, x) of uint8, uint16 or float32, or the path of a Zarr store;
    an OME-Zarr store brings its spacing, which `spacing` (x, y, z, micrometres) overrides.
    The optics and the method options are those of ovidane.restore, for widefield
    fluorescence: a transmitted-light stack is inverted within the range of the whole stack,
    which a column does not know. noise is a fixed level
    ('low', 'medium', 'high' or a number): an automatic one would be estimated per chunk,
    and chunks restored with different levels would not join. memory_budget (bytes) and
    threads hold each task's run in its worker process (ovidane.set_memory_budget,
    ovidane.set_worker_threads); give a worker process one Dask thread, since the library
    restores one stack at a time per process.

    Everything is checked here, before any task runs: the array's shape, its chunks against
    the margin, the spacing, the optics and the options.
    """
    array, stored_spacing = (data, None) if isinstance(data, da.Array) else open_ome_zarr(data)
    if spacing is None:
        spacing = stored_spacing
    if spacing is None:
        raise ValueError("the spacing is missing: the store records none; give spacing=(x, y, z) "
                         "in micrometres")
    spacing = _api._spacing(spacing)
    if not all(np.isfinite(v) and v > 0 for v in spacing):
        raise ValueError(f"spacing must be three positive finite lengths, not {spacing}")
    if array.ndim != 3:
        raise ValueError(f"a stack has 3 axes (z, y, x); this array has {array.ndim}: "
                         f"select one channel and time point first")
    if array.dtype not in _api._DATA_TYPES:
        raise TypeError(f"pixels must be uint8, uint16 or float32, not {array.dtype}")
    if None in (na, ri, wavelength):
        raise ValueError("na, ri and wavelength are required")
    options = _checked_options(spacing, na, ri, wavelength, sa=sa,
                               noise=noise, method=method, iterations=iterations,
                               acceleration=acceleration, roughness=roughness, start=start,
                               guard_xy=guard_xy, guard_z=guard_z, temp_dir=temp_dir)
    # The margin, (z, y, x): a column has all of z.
    depth = (0, 2 * options["guard_xy"], 2 * options["guard_xy"])
    _check_chunks(array.chunks, depth)
    if array.shape[0] > 32767:
        raise ValueError(f"a stack has at most 32767 slices, not {array.shape[0]}")
    if min(array.shape[1:]) <= options["guard_xy"]:
        raise ValueError(f"the stack must be wider and higher than guard_xy, {options['guard_xy']}")
    if memory_budget is not None:
        _api._bounded_int("memory_budget", memory_budget, 0, 2**63 - 1)
    if threads is not None:
        _api._bounded_int("threads", threads, 0, 2**31 - 1)

    columns = array.rechunk({0: -1})

    def chunks_restored(**task_options):
        return da.map_overlap(_restore_chunk, columns, depth=depth, boundary="none", trim=True,
                              allow_rechunk=False, dtype=np.float32,
                              meta=np.empty((0, 0, 0), np.float32), name="ovidane-restore",
                              spacing=spacing, options=dict(options, **task_options),
                              memory_budget=memory_budget, threads=threads)

    if method != "wiener":
        return chunks_restored().rechunk(array.chunks)
    # The filter passes a constant c as c / (1 + K): its gain at zero frequency.
    gain = 1.0 / (1.0 + _api._noise_factor(noise))
    restored = chunks_restored(phase_object=True, background_gain=gain)
    return _whole_stack_steps(array, restored, gain).rechunk(array.chunks)


def _checked_options(spacing, na, ri, wavelength, *, noise, guard_xy, guard_z, method,
                     iterations, acceleration, roughness, start, sa, **rest):
    """The keyword arguments of ovidane.restore, refused here as a task would refuse them."""
    if noise == "auto":
        raise ValueError("noise 'auto' is estimated per chunk, so chunks would not join; give "
                         "'low', 'medium', 'high' or a number")
    _api._noise_factor(noise)
    _api._iterative_options(method, iterations, acceleration, roughness, start)
    sa = _api._finite("sa", sa)
    guard_xy = _api._bounded_int("guard_xy", guard_xy, 0, _LARGEST_GUARD_BAND)
    guard_z = _api._bounded_int("guard_z", guard_z, 0, _LARGEST_GUARD_BAND)
    na, ri, wavelength = (_api._finite(n, v) for n, v in
                          (("na", na), ("ri", ri), ("wavelength", wavelength)))
    # The theoretical PSF refuses optics and sampling as a restoration does, at no cost.
    _api.psf((4, 8, 8), spacing, na, ri, wavelength, sa=sa, temp_dir=rest["temp_dir"])
    return dict(na=na, ri=ri, wavelength=wavelength, sa=sa, noise=noise, method=method,
                iterations=iterations, acceleration=acceleration, roughness=roughness,
                start=start, guard_xy=guard_xy, guard_z=guard_z, **rest)


def _check_chunks(chunks, depth):
    for name, sizes, reach in list(zip("zyx", chunks, depth))[1:]:
        if min(sizes) < reach and len(sizes) > 1:
            raise ValueError(f"chunks along {name} must hold at least the margin of {reach} "
                             f"pixels that each task borrows from its neighbours; the smallest "
                             f"holds {min(sizes)}: rechunk the array")
        if max(sizes) + 2 * reach > 32767:
            raise ValueError(f"chunks along {name} must hold at most {32767 - 2 * reach} pixels")


def _restore_chunk(block, spacing, options, memory_budget, threads):
    """One task: the chunk and its margin restored in the worker's process. With a
    background_gain, the block's own background, which the run subtracts, is given back, so
    that the whole stack's can be taken off every chunk alike."""
    _api.set_memory_budget(memory_budget)
    _api.set_worker_threads(threads)
    options = dict(options)
    gain = options.pop("background_gain", None)
    restored = _api.restore(block, spacing, **options)
    if gain is not None:
        restored += np.float32(float(block.min()) * gain)
    return restored


def _whole_stack_steps(stack, linear, gain):
    """The inverse filter's background and non-negativity steps for the whole stack, on the
    chunks restored without them: two looks at every chunk decide one background, pedestal
    and scale, which the output's tasks apply."""
    pixels = float(np.prod(stack.shape, dtype=np.float64))
    minimum = stack.min()
    background = dask.delayed(lambda low: float(low) * gain)(minimum)
    # What the non-negativity step keeps: the sum of the stack without its background.
    stack_sum = dask.delayed(lambda total, low: float(total) - pixels * float(low))(
        stack.sum(dtype=np.float64), minimum)
    blocks = linear.to_delayed().ravel()
    first = [dask.delayed(_first_look)(b, background) for b in blocks]
    steps = dask.delayed(_pedestal_steps)(first, pixels)
    counts = [dask.delayed(_second_look)(b, background, steps) for b in blocks]
    decision = dask.delayed(_decide)(background, steps, counts, stack_sum, pixels)
    return linear.map_blocks(_finish, decision=decision, dtype=np.float32,
                             name="ovidane-nonnegativity")


def _first_look(block, background):
    values = block - np.float32(background)
    return float(values.min()), int(np.count_nonzero(values <= 0))


def _pedestal_steps(looks, pixels):
    """Every pedestal the search may reach, or None when the stack needs no pedestal."""
    lowest = min(low for low, _ in looks)
    negative = sum(count for _, count in looks)
    if not (lowest < 0 and negative / pixels > _TOLERATED_NEGATIVE_SHARE):
        return None
    if not np.isfinite(lowest):
        raise ValueError("the restored stack holds values that are not finite")
    steps = [_PEDESTAL_STEP * lowest]
    while not steps[-1] > -1.0 or len(steps) < 2:
        steps.append(_PEDESTAL_STEP * steps[-1])
    return steps


def _second_look(block, background, steps):
    """Per step, the pixels of the block below it and not below the step before."""
    if steps is None:
        return None
    values = block - np.float32(background)
    values = values[values < np.float32(steps[-1])]
    limits = np.asarray(steps, np.float32)
    return np.bincount(np.searchsorted(limits, values, side="right"), minlength=len(steps) + 1)


def _decide(background, steps, counts, stack_sum, pixels):
    """(background, pedestal, scale) as the constraint's search finds them."""
    if steps is None:
        return background, 0.0, 1.0
    per_step = np.sum(counts, axis=0)
    k, below, pedestal, share = 0, per_step[0], steps[0], 0.0
    while share < _TOLERATED_NEGATIVE_SHARE:
        share = below / pixels
        if share < _TOLERATED_NEGATIVE_SHARE:
            k += 1
            pedestal = steps[k]
            below += per_step[k]
        if pedestal > -1.0:
            share = _TOLERATED_NEGATIVE_SHARE + _SEARCH_MARGIN
    return background, pedestal, stack_sum / (stack_sum - pedestal * pixels)


def _finish(block, decision):
    background, pedestal, scale = decision
    values = block - np.float32(background)
    if pedestal == 0.0 and scale == 1.0:
        return values
    values -= np.float32(pedestal)
    np.maximum(values, 0, out=values)
    values *= np.float32(scale)
    return values
