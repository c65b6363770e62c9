"""restore, detect_sa and friends: numpy arrays in (z, y, x) order, through the library's
exported operations."""

import ctypes
import os
import tempfile

import numpy as np

from . import _library as L
from .errors import check

_DATA_TYPES = {np.dtype(np.uint8): 0, np.dtype(np.uint16): 1, np.dtype(np.float32): 2}
_ARGUMENT_PIXEL_TYPES = {np.dtype(np.float32): 0, np.dtype(np.uint16): 1, np.dtype(np.uint8): 2}
_NOISE = {"auto": 0.0, "low": 2e-5, "medium": 2e-4, "high": 2e-3}
_METHODS = {"wiener": 0, "mlem": 1, "gold": 2, "mlem2d": 3, "blind": 4}
_ACCELERATIONS = {"line": 0, "extrapolation": 1}
_STARTS = {"data": 0, "wiener": 1, "flat": 2}


def _as_stack(stack):
    array = np.asarray(stack)
    if array.ndim == 2:
        array = array[np.newaxis]
    if array.ndim != 3:
        raise ValueError(f"a stack has 3 axes (z, y, x); this array has {array.ndim}")
    if array.dtype not in _DATA_TYPES:
        raise TypeError(f"pixels must be uint8, uint16 or float32, not {array.dtype}")
    if max(array.shape) > 32767 or min(array.shape) < 1:
        raise ValueError(f"each axis must have 1 to 32767 pixels, not {array.shape}")
    return np.ascontiguousarray(array)


def _spacing(spacing):
    values = tuple(float(v) for v in spacing)
    if len(values) != 3:
        raise ValueError("spacing is (x, y, z) in micrometres")
    return values


def _choice(name, value, table):
    if value not in table:
        raise ValueError(f"{name} is one of {', '.join(table)}, not {value!r}")
    return table[value]


def _bounded_int(name, value, low, high):
    """Checked before it reaches a fixed-width field of a record, where it would wrap."""
    if isinstance(value, bool) or not isinstance(value, (int, np.integer)):
        raise TypeError(f"{name} must be an integer, not {value!r}")
    if not low <= value <= high:
        raise ValueError(f"{name} must lie in {low} to {high}, not {value}")
    return int(value)


def _finite(name, value):
    number = float(value)
    if not np.isfinite(number):
        raise ValueError(f"{name} must be a finite number, not {value!r}")
    return number


def _iterative_options(method, iterations, acceleration, roughness, start, object_updates=None,
                       psf_updates=None):
    options = L.IterativeOptions()
    L.lib.ovdInitStructIterativeOps(ctypes.byref(options))
    options.nMethod = _choice("method", method, _METHODS)
    if iterations is not None:
        options.nIterations = _bounded_int("iterations", iterations, 1, 10000)
    options.nAcceleration = _choice("acceleration", acceleration, _ACCELERATIONS)
    if roughness is not None:
        options.fRoughness = _finite("roughness", roughness)
    options.nStart = _choice("start", start, _STARTS)
    if object_updates is not None:
        options.nObjectUpdates = _bounded_int("object_updates", object_updates, 1, 100)
    if psf_updates is not None:
        options.nPsfUpdates = _bounded_int("psf_updates", psf_updates, 1, 100)
    return options


def _noise_factor(noise):
    if isinstance(noise, str):
        if noise not in _NOISE:
            raise ValueError(f"noise is one of {sorted(_NOISE)} or a positive number")
        return _NOISE[noise]
    if not noise > 0:
        raise ValueError("a numeric noise level must be positive")
    return float(noise)


class _Progress:
    """Bridges a Python progress function to the library's status callback. The function
    gets (percent, subvolume, subvolume_count, minutes_left); returning False cancels."""

    def __init__(self, function):
        self.function = function
        self.cancelled = False
        self.error = None
        self.record_callback = L.StatusCallback(self._on_record)
        self.host_callback = L.HostStatusCallback(self._on_host)

    def _report(self, percent, index, count, minutes):
        if self.function is None:
            return 201
        try:
            if self.function(percent, index, count, minutes) is False:
                self.cancelled = True
                return 0
        except BaseException as error:  # carried out after the call returns
            self.error = error
            self.cancelled = True
            return 0
        return 201

    def _on_record(self, status, _user):
        s = status.contents
        # The record counts per subvolume; a caller wants the whole run's progress.
        count = max(s.sSubvolumeCount, 1)
        percent = min(100.0, (max(s.sSubvolume, 1) - 1 + s.fPercentDone / 100.0) / count * 100.0)
        return self._report(percent, s.sSubvolume, s.sSubvolumeCount, s.fMinutesLeft)

    def _on_host(self, _user, _stage, percent, count, index, minutes):
        return self._report(percent, index, count, minutes)

    def finish(self, code):
        if self.error is not None:
            raise self.error
        check(code, cancelled=self.cancelled)


def _write_raw(array, path):
    array.tofile(path)


def _channel_wavelengths(wavelength, channels, same_wavelength):
    values = [float(v) for v in np.atleast_1d(wavelength)]
    if len(values) == 1 and channels > 1 and not same_wavelength:
        raise ValueError(f"the stack has {channels} channels: give a wavelength for each, or "
                         "same_wavelength=True to use one for all")
    if len(values) not in (1, channels):
        raise ValueError(f"{len(values)} wavelengths for {channels} channels")
    return values * channels if len(values) == 1 else values


def restore(stack, spacing, na, ri, wavelength, *, sa=0.0, brightfield=False, noise="auto",
            psf=None, psf_spacing=None, guard_xy=10, guard_z=6, overlap=10, progress=None,
            temp_dir=None, return_psf=False, method="wiener", iterations=None,
            acceleration="extrapolation", roughness=None, start="data", object_updates=None,
            psf_updates=None, same_wavelength=False, psf_model="specified", sample_index=None,
            focus_depth=0.0, phase_object=False):
    """Restores a stack with the library's Wiener filter, or iteratively.

    stack: array (z, y, x) of uint8, uint16 or float32, or (c, z, y, x) for several channels,
    restored one by one, each with the theoretical PSF of its own entry in wavelength (one
    value for all only with same_wavelength; progress then reports each channel's run).
    spacing: (x, y, z) in micrometres.
    na, ri, wavelength (micrometres): the optics. sa: spherical aberration of the
    theoretical PSF. psf: a measured PSF (z, y, x), with psf_spacing (x, y, z), used instead.
    noise: 'auto', 'low', 'medium', 'high' or a regularisation level (Wiener filter).
    method: 'wiener' (one pass, fast), 'mlem' (maximum likelihood, best on photon-limited
    data) or 'gold'; for a single plane (a 2D array or depth 1) also 'mlem2d' and 'blind',
    which estimates the PSF as well, starting from psf or the model: with return_psf the
    estimate comes back. iterations, acceleration ('extrapolation' or 'line'), roughness
    (Good's roughness factor), start ('data', 'wiener', 'flat') and, for the plane methods,
    object_updates and psf_updates a pass tune the iterative methods; None leaves the
    library's defaults. phase_object: the object is a phase object, whose restoration keeps
    its negative values. progress(percent, subvolume, count, minutes_left) sees the
    whole run's percentage. psf_model, sample_index and focus_depth choose the theoretical
    PSF as in psf(). Returns the restored float32 stack, and the PSF used when return_psf
    is true.
    """
    if np.ndim(stack) == 4:
        if psf is not None or return_psf:
            raise ValueError("psf and return_psf hold one channel's PSF; restore the channels "
                             "of a (c, z, y, x) stack with their theoretical PSFs")
        channels = np.asarray(stack)
        wavelengths = _channel_wavelengths(wavelength, len(channels), same_wavelength)
        options = dict(sa=sa, brightfield=brightfield, noise=noise, guard_xy=guard_xy,
                       guard_z=guard_z, overlap=overlap, progress=progress, temp_dir=temp_dir,
                       method=method, iterations=iterations, acceleration=acceleration,
                       roughness=roughness, start=start, object_updates=object_updates,
                       psf_updates=psf_updates, psf_model=psf_model,
                       sample_index=sample_index, focus_depth=focus_depth,
                       phase_object=phase_object)
        return np.stack([restore(channel, spacing, na, ri, w, **options)
                         for channel, w in zip(channels, wavelengths)])
    array = _as_stack(stack)
    sx, sy, sz = _spacing(spacing)
    iterative = _iterative_options(method, iterations, acceleration, roughness, start,
                                   object_updates, psf_updates)
    model = _psf_model(psf_model, sample_index, focus_depth)
    sa = _finite("sa", sa)
    guard_xy = _bounded_int("guard_xy", guard_xy, 0, 32767)
    guard_z = _bounded_int("guard_z", guard_z, 0, 32767)
    overlap = _bounded_int("overlap", overlap, 0, 32767)
    depth, height, width = array.shape
    with tempfile.TemporaryDirectory(prefix="ovidane-", dir=temp_dir) as work:
        input_path = os.path.join(work, "input.raw")
        output_path = os.path.join(work, "output.raw")
        psf_in_path = os.path.join(work, "psf.raw")
        psf_out_path = os.path.join(work, "psf-used.raw")
        library_temp = os.path.join(work, "tmp")
        os.mkdir(library_temp)
        _write_raw(array, input_path)

        image = L.ImageRecord()
        image.pszFile = input_path.encode()
        image.nDataType = _DATA_TYPES[array.dtype]
        image.nModality = 5 if brightfield else 4
        image.sWidth, image.sHeight, image.sDepth, image.sExtent4 = width, height, depth, 1
        image.fXSpacing, image.fYSpacing, image.fZSpacing = sx, sy, sz
        image.fNumericalAperture, image.fRefractiveIndex = na, ri
        image.fEmissionWavelength, image.fSphericalAberration = wavelength, sa

        psf_in = None
        if psf is not None:
            measured = np.ascontiguousarray(np.asarray(psf, dtype=np.float32))
            if measured.ndim != 3:
                raise ValueError("a PSF has 3 axes (z, y, x)")
            if max(measured.shape) > 32767 or min(measured.shape) < 1:
                raise ValueError(f"each PSF axis must have 1 to 32767 pixels, not {measured.shape}")
            if not np.isfinite(measured).all():
                raise ValueError("the PSF holds values that are not finite")
            _write_raw(measured, psf_in_path)
            psf_in = L.PsfRecord()
            psf_in.pszFile = psf_in_path.encode()
            psf_in.sDepth, psf_in.sHeight, psf_in.sWidth = measured.shape
            psf_in.fXSpacing, psf_in.fYSpacing, psf_in.fZSpacing = _spacing(psf_spacing or spacing)
        psf_out = None
        if return_psf:
            psf_out = L.PsfRecord()
            psf_out.pszFile = psf_out_path.encode()

        std = L.StandardOptions()
        exp = L.ExpertOptions()
        L.lib.ovdInitStructInvFilterOpsStd(ctypes.byref(std))
        L.lib.ovdInitStructInvFilterOpsExp(ctypes.byref(exp))
        std.pszOutputFile = output_path.encode()
        std.pszTempDirectory = library_temp.encode()
        std.bPhaseObject = 1 if phase_object else 0
        exp.fNoiseFactor = _noise_factor(noise)
        exp.sXYGuardBand, exp.sZGuardBand, exp.sOverlap = guard_xy, guard_z, overlap

        bridge = _Progress(progress)
        code = L.lib.ovd3dRestoreWithPsfModel(ctypes.byref(image),
                                              ctypes.byref(psf_in) if psf_in else None,
                                              ctypes.byref(psf_out) if psf_out else None,
                                              ctypes.byref(std), ctypes.byref(exp),
                                              ctypes.byref(iterative), ctypes.byref(model),
                                              bridge.record_callback, None)
        bridge.finish(code)
        restored = np.fromfile(output_path, dtype=np.float32).reshape(array.shape)
        if not return_psf:
            return restored
        used = np.fromfile(psf_out_path, dtype=np.float32).reshape(
            psf_out.sDepth, psf_out.sHeight, psf_out.sWidth)
        return restored, used


def detect_sa(stack, spacing, na, ri, wavelength, *, lower=-10.0, upper=10.0, brightfield=False,
              guard_xy=10, guard_z=6, overlap=10, progress=None, temp_dir=None,
              psf_model="specified", sample_index=None, focus_depth=0.0, fast=False,
              bin_factor=None):
    """Estimates the spherical aberration of a stack (z, y, x) between lower and upper, with
    the theoretical PSF that psf_model, sample_index and focus_depth choose as in psf().
    fast=True searches on the stack binned in x and y (by bin_factor, 2 to 8; None: the
    library's choice), several times faster and less accurate than the full search."""
    array = _as_stack(stack)
    model = _psf_model(psf_model, sample_index, focus_depth)
    search = _sa_search(fast, bin_factor)
    sx, sy, sz = _spacing(spacing)
    # The library orders the limits only by comparison, which NaN passes.
    lower, upper = _finite("lower", lower), _finite("upper", upper)
    guard_xy = _bounded_int("guard_xy", guard_xy, 0, 32767)
    guard_z = _bounded_int("guard_z", guard_z, 0, 32767)
    overlap = _bounded_int("overlap", overlap, 0, 32767)
    depth, height, width = array.shape
    with tempfile.TemporaryDirectory(prefix="ovidane-", dir=temp_dir) as work:
        input_path = os.path.join(work, "input.raw")
        library_temp = os.path.join(work, "tmp")
        os.mkdir(library_temp)
        _write_raw(array, input_path)
        result = ctypes.c_float(0.0)
        bridge = _Progress(progress)
        code = L.lib.ovd3dInverseFilterDetectSAWithSearch(
            input_path.encode(), library_temp.encode(), width, height, depth, sx, sy, sz, na, ri,
            wavelength, 0, 1 if brightfield else 0, 0, guard_xy, guard_z, overlap, 1,
            _ARGUMENT_PIXEL_TYPES[array.dtype], lower, upper, ctypes.byref(result), 0, 0, 0,
            ctypes.byref(model), ctypes.byref(search), bridge.host_callback, None)
        bridge.finish(code)
        return float(result.value)


_PSF_MODELS = {"specified": 0, "exact": 1}


def _sa_search(fast, bin_factor):
    search = L.SASearch()
    L.lib.ovdInitStructSASearch(ctypes.byref(search))
    if not isinstance(fast, (bool, np.bool_)):
        raise TypeError(f"fast must be True or False, not {fast!r}")
    if bin_factor is not None:
        if not fast:
            raise ValueError("bin_factor is for the fast (binned) search: give fast=True")
        search.nBinFactor = _bounded_int("bin_factor", bin_factor, 2, 8)
    search.nSearch = 1 if fast else 0
    return search


def _psf_model(psf_model, sample_index, focus_depth):
    model = L.PsfModel()
    L.lib.ovdInitStructPsfModel(ctypes.byref(model))
    model.nModel = _choice("psf_model", psf_model, _PSF_MODELS)
    model.fSampleIndex = 0.0 if sample_index is None else _finite("sample_index", sample_index)
    model.fDepth = _finite("focus_depth", focus_depth)
    return model


def psf(shape, spacing, na, ri, wavelength, *, sa=0.0, brightfield=False, temp_dir=None,
        psf_model="specified", sample_index=None, focus_depth=0.0):
    """The theoretical PSF of the optics as a float32 array of `shape` (z, y, x), summing to
    1, its peak at (z // 2, y // 2, x // 2) when sa is 0. spacing: (x, y, z) in micrometres;
    wavelength in micrometres; sa: the spherical aberration term restore takes. psf_model:
    'specified' (the restorations' model) or 'exact' (the non-paraxial scalar integral), which
    also takes the sample's refractive index (None: that of the immersion, ri) and
    focus_depth, the depth of the focus below the coverslip in micrometres."""
    dims = tuple(int(v) for v in shape)
    if len(dims) != 3:
        raise ValueError("shape is (z, y, x)")
    if max(dims) > 32767 or min(dims) < 1:
        raise ValueError(f"each axis must have 1 to 32767 pixels, not {dims}")
    sx, sy, sz = _spacing(spacing)
    depth, height, width = dims
    with tempfile.TemporaryDirectory(prefix="ovidane-", dir=temp_dir) as work:
        path = os.path.join(work, "psf.raw")
        model = _psf_model(psf_model, sample_index, focus_depth)
        code = L.lib.ovdWriteTheoreticalPsfModel(path.encode(), width, height, depth, sx, sy, sz,
                                                 float(na), float(ri), float(wavelength),
                                                 1 if brightfield else 0, float(sa),
                                                 ctypes.byref(model))
        check(code)
        return np.fromfile(path, dtype=np.float32).reshape(dims)


_message_callback = None  # kept alive while the library holds it


def set_messages(function):
    """Sends the library's message lines to function(line), or silences them with None."""
    global _message_callback
    if function is None:
        _message_callback = L.MessageCallback(0)
    else:
        _message_callback = L.MessageCallback(lambda line, _user: function(line.decode(errors="replace")))
    L.lib.ovdSetMessageCallback(_message_callback, None)


def set_memory_budget(nbytes):
    """Holds this process's next runs to nbytes of working memory (the library cuts stacks
    into subvolumes that fit); None or 0 gives the machine's physical memory back."""
    budget = 0 if nbytes is None else _bounded_int("memory budget", nbytes, 0, 2**63 - 1)
    L.lib.ovdSetMemoryBudget(budget)


def set_worker_threads(count):
    """Spreads the heavy operations of this process's next runs over count threads; None or
    0 means all processors. Results do not depend on the count."""
    threads = 0 if count is None else _bounded_int("threads", count, 0, 2**31 - 1)
    L.lib.ovdSetWorkerThreads(threads)
