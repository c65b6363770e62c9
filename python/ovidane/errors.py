"""The library's return codes as Python exceptions."""

_MEANINGS = {
    1: "the run failed or was cancelled; no complete output was written",
    2: "an argument was refused or a file could not be opened",
    4: "out of memory",
    5: "the output could not be created, or the temporary disk is too small",
    9: "the input could not be converted to float",
    13: "a guard band is too large",
    14: "the overlap is too large",
    15: "the emission wavelength is out of range (micrometres, e.g. 0.52)",
    16: "refractive index or numerical aperture out of range (NA below n, NA/n^2 at least 0.2)",
    17: "x/y spacing too large for these optics",
    18: "x/y spacing too small for these optics",
    19: "z spacing too large for these optics",
    20: "z spacing too small for these optics",
}


# Refusals of the optics and the sampling have one cause each, which their meaning names.
_SELF_EXPLAINING = range(15, 21)


class OvidaneError(RuntimeError):
    """A call into the library did not succeed; `code` is the library's return code and
    `reason` the library's own account of the cause (empty when it gave none)."""

    def __init__(self, code, message=None, reason=""):
        self.code = code
        self.reason = reason
        if message is None:
            message = _MEANINGS.get(code, f"unexpected library result {code}")
            if reason and code not in _SELF_EXPLAINING:
                message = f"{message}: {reason}"
        super().__init__(message)


class CancelledError(OvidaneError):
    """The progress callback asked the run to stop."""

    def __init__(self):
        super().__init__(1, "cancelled by the progress callback")


def _last_reason():
    """The reason of the last failed library call on this thread."""
    from ._library import lib

    text = lib.ovdGetLastErrorMessage()
    return text.decode("utf-8", errors="replace") if text else ""


def check(code, cancelled=False):
    """Raises for a failed call; run on the calling thread right after the call, so that the
    library's reason is that call's."""
    if code == 0:
        return
    if code == 1 and cancelled:
        raise CancelledError()
    raise OvidaneError(code, reason=_last_reason())
