"""The library's return codes as Python exceptions."""

_MEANINGS = {
    1: "the run failed or was cancelled; no complete output was written",
    2: "an argument was refused or a file could not be opened",
    4: "out of memory",
    5: "the output could not be created, or the temporary disk is too small",
    9: "the input could not be converted to float",
    13: "a guard band is larger than 100",
    14: "the overlap is larger than 300",
    15: "the emission wavelength is out of range (micrometres, e.g. 0.52)",
    16: "refractive index or numerical aperture out of range (NA below n, NA/n^2 at least 0.2)",
    17: "x/y spacing too large for these optics",
    18: "x/y spacing too small for these optics",
    19: "z spacing too large for these optics",
    20: "z spacing too small for these optics",
}


class OvidaneError(RuntimeError):
    """A call into the library did not succeed; `code` is the library's return code."""

    def __init__(self, code, message=None):
        self.code = code
        super().__init__(message or _MEANINGS.get(code, f"unexpected library result {code}"))


class CancelledError(OvidaneError):
    """The progress callback asked the run to stop."""

    def __init__(self):
        super().__init__(1, "cancelled by the progress callback")


def check(code, cancelled=False):
    if code == 0:
        return
    if code == 1 and cancelled:
        raise CancelledError()
    raise OvidaneError(code)
