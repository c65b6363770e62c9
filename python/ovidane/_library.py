"""Loading libovdinf01 and declaring its C interface for ctypes."""

import ctypes
import os
from pathlib import Path


class ImageRecord(ctypes.Structure):
    _fields_ = [
        ("pszFile", ctypes.c_char_p),
        ("pszFileAlternate", ctypes.c_char_p),
        ("nReserved", ctypes.c_uint32 * 3),
        ("nDataType", ctypes.c_uint32),
        ("nModality", ctypes.c_uint32),
        ("sWidth", ctypes.c_int16),
        ("sHeight", ctypes.c_int16),
        ("sDepth", ctypes.c_int16),
        ("sExtent4", ctypes.c_int16),
        ("fXSpacing", ctypes.c_float),
        ("fYSpacing", ctypes.c_float),
        ("fZSpacing", ctypes.c_float),
        ("fNumericalAperture", ctypes.c_float),
        ("fRefractiveIndex", ctypes.c_float),
        ("fEmissionWavelength", ctypes.c_float),
        ("fSphericalAberration", ctypes.c_float),
    ]


class PsfRecord(ctypes.Structure):
    _fields_ = [
        ("pszFile", ctypes.c_char_p),
        ("pszFileAlternate", ctypes.c_char_p),
        ("nReserved", ctypes.c_uint32),
        ("sWidth", ctypes.c_int16),
        ("sHeight", ctypes.c_int16),
        ("sDepth", ctypes.c_int16),
        ("fXSpacing", ctypes.c_float),
        ("fYSpacing", ctypes.c_float),
        ("fZSpacing", ctypes.c_float),
        ("nDataType", ctypes.c_uint32),
    ]


class StandardOptions(ctypes.Structure):
    _fields_ = [
        ("pszOutputFile", ctypes.c_char_p),
        ("pszTempDirectory", ctypes.c_char_p),
        ("bPhaseObject", ctypes.c_uint8),
        ("nReserved", ctypes.c_uint32 * 4),
    ]


class ExpertOptions(ctypes.Structure):
    _fields_ = [
        ("fNoiseFactor", ctypes.c_float),
        ("fMemoryPercent", ctypes.c_float),
        ("sXYGuardBand", ctypes.c_int16),
        ("sZGuardBand", ctypes.c_int16),
        ("sOverlap", ctypes.c_int16),
        ("sReserved", ctypes.c_int16),
        ("bXYMontage", ctypes.c_uint8),
        ("bReserved", ctypes.c_uint8),
        ("nReserved", ctypes.c_uint32 * 4),
    ]


class IterativeOptions(ctypes.Structure):
    _fields_ = [
        ("nMethod", ctypes.c_uint32),
        ("nIterations", ctypes.c_int32),
        ("nAcceleration", ctypes.c_uint32),
        ("fRoughness", ctypes.c_float),
        ("nStart", ctypes.c_uint32),
        ("fGoldSmoothing", ctypes.c_float),
        ("nGoldInterval", ctypes.c_int32),
        ("nObjectUpdates", ctypes.c_uint16),
        ("nPsfUpdates", ctypes.c_uint16),
    ]


class PsfModel(ctypes.Structure):
    _fields_ = [
        ("nModel", ctypes.c_uint32),
        ("fSampleIndex", ctypes.c_float),
        ("fDepth", ctypes.c_float),
        ("nReserved", ctypes.c_uint32),
    ]


class SASearch(ctypes.Structure):
    _fields_ = [
        ("nSearch", ctypes.c_uint32),
        ("nBinFactor", ctypes.c_uint32),
        ("nReserved", ctypes.c_uint32 * 2),
    ]


class StatusRecord(ctypes.Structure):
    _fields_ = [
        ("fPercentDone", ctypes.c_float),
        ("fMinutesLeft", ctypes.c_float),
        ("sIteration", ctypes.c_int16),
        ("sIterationCount", ctypes.c_int16),
        ("sSubvolume", ctypes.c_int16),
        ("sSubvolumeCount", ctypes.c_int16),
        ("sStage", ctypes.c_int16),
    ]


StatusCallback = ctypes.CFUNCTYPE(ctypes.c_uint16, ctypes.POINTER(StatusRecord), ctypes.c_void_p)
HostStatusCallback = ctypes.CFUNCTYPE(ctypes.c_uint16, ctypes.c_void_p, ctypes.c_uint32, ctypes.c_float,
                                      ctypes.c_uint32, ctypes.c_uint32, ctypes.c_float)
MessageCallback = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)


def _candidates():
    explicit = os.environ.get("OVIDANE_LIBRARY")
    if explicit:
        yield Path(explicit)
    here = Path(__file__).resolve().parent
    yield here / "libovdinf01.so"
    yield here.parent.parent / "build" / "libovdinf01.so"
    # Installed: the package in PREFIX/lib/python3.X/site-packages (or python3/dist-packages),
    # the library in PREFIX/lib.
    yield here.parents[2] / "libovdinf01.so"
    yield Path("libovdinf01.so")


def _load():
    errors = []
    for path in _candidates():
        try:
            return ctypes.CDLL(str(path))
        except OSError as error:
            errors.append(f"{path}: {error}")
    raise ImportError("libovdinf01.so not found; build it (make build) or set OVIDANE_LIBRARY:\n  "
                      + "\n  ".join(errors))


lib = _load()

lib.ovdInitStructInvFilterOpsStd.argtypes = [ctypes.POINTER(StandardOptions)]
lib.ovdInitStructInvFilterOpsStd.restype = ctypes.c_uint16
lib.ovdInitStructInvFilterOpsExp.argtypes = [ctypes.POINTER(ExpertOptions)]
lib.ovdInitStructInvFilterOpsExp.restype = ctypes.c_uint16
lib.ovd3dInverseFilter.argtypes = [ctypes.POINTER(ImageRecord), ctypes.POINTER(PsfRecord),
                                   ctypes.POINTER(PsfRecord), ctypes.POINTER(StandardOptions),
                                   ctypes.POINTER(ExpertOptions), StatusCallback, ctypes.c_void_p]
lib.ovd3dInverseFilter.restype = ctypes.c_uint16
lib.ovdInitStructIterativeOps.argtypes = [ctypes.POINTER(IterativeOptions)]
lib.ovdInitStructIterativeOps.restype = ctypes.c_uint16
lib.ovd3dRestore.argtypes = [ctypes.POINTER(ImageRecord), ctypes.POINTER(PsfRecord),
                             ctypes.POINTER(PsfRecord), ctypes.POINTER(StandardOptions),
                             ctypes.POINTER(ExpertOptions), ctypes.POINTER(IterativeOptions),
                             StatusCallback, ctypes.c_void_p]
lib.ovd3dRestore.restype = ctypes.c_uint16
lib.ovd3dInverseFilterDetectSA.argtypes = (
    [ctypes.c_char_p, ctypes.c_char_p] + [ctypes.c_int16] * 3 + [ctypes.c_float] * 6
    + [ctypes.c_uint16, ctypes.c_uint16, ctypes.c_uint32] + [ctypes.c_int16] * 3
    + [ctypes.c_uint16, ctypes.c_uint16, ctypes.c_float, ctypes.c_float, ctypes.POINTER(ctypes.c_float)]
    + [ctypes.c_uint16] * 3 + [HostStatusCallback, ctypes.c_void_p])
lib.ovd3dInverseFilterDetectSA.restype = ctypes.c_uint16
lib.ovdGetLastErrorMessage.argtypes = []
lib.ovdGetLastErrorMessage.restype = ctypes.c_char_p
lib.ovdSetMessageCallback.argtypes = [MessageCallback, ctypes.c_void_p]
lib.ovdSetMessageCallback.restype = None
lib.ovdWriteTheoreticalPsf.argtypes = ([ctypes.c_char_p] + [ctypes.c_int16] * 3 + [ctypes.c_float] * 6
                                       + [ctypes.c_uint16, ctypes.c_float])
lib.ovdWriteTheoreticalPsf.restype = ctypes.c_uint16
lib.ovdInitStructPsfModel.argtypes = [ctypes.POINTER(PsfModel)]
lib.ovdInitStructPsfModel.restype = ctypes.c_uint16
lib.ovdWriteTheoreticalPsfModel.argtypes = (lib.ovdWriteTheoreticalPsf.argtypes
                                            + [ctypes.POINTER(PsfModel)])
lib.ovdWriteTheoreticalPsfModel.restype = ctypes.c_uint16
lib.ovd3dRestoreWithPsfModel.argtypes = (lib.ovd3dRestore.argtypes[:6] + [ctypes.POINTER(PsfModel)]
                                         + lib.ovd3dRestore.argtypes[6:])
lib.ovd3dRestoreWithPsfModel.restype = ctypes.c_uint16
lib.ovd3dInverseFilterDetectSAWithPsfModel.argtypes = (
    lib.ovd3dInverseFilterDetectSA.argtypes[:25] + [ctypes.POINTER(PsfModel)]
    + lib.ovd3dInverseFilterDetectSA.argtypes[25:])
lib.ovd3dInverseFilterDetectSAWithPsfModel.restype = ctypes.c_uint16
lib.ovdInitStructSASearch.argtypes = [ctypes.POINTER(SASearch)]
lib.ovdInitStructSASearch.restype = ctypes.c_uint16
lib.ovd3dInverseFilterDetectSAWithSearch.argtypes = (
    lib.ovd3dInverseFilterDetectSAWithPsfModel.argtypes[:26] + [ctypes.POINTER(SASearch)]
    + lib.ovd3dInverseFilterDetectSAWithPsfModel.argtypes[26:])
lib.ovd3dInverseFilterDetectSAWithSearch.restype = ctypes.c_uint16
lib.ovdSetMemoryBudget.argtypes = [ctypes.c_int64]
lib.ovdSetMemoryBudget.restype = None
lib.ovdSetWorkerThreads.argtypes = [ctypes.c_int32]
lib.ovdSetWorkerThreads.restype = None
