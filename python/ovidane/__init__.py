"""Ovidane: deconvolution of light-microscope stacks.

    import ovidane
    restored = ovidane.restore(stack, spacing=(0.1, 0.1, 0.25), na=1.4, ri=1.515, wavelength=0.52)
"""

from ._api import (detect_sa, psf, restore, set_memory_budget, set_messages,
                   set_worker_threads)
from .errors import CancelledError, OvidaneError

__all__ = ["restore", "detect_sa", "psf", "set_messages", "set_memory_budget",
           "set_worker_threads", "OvidaneError", "CancelledError"]

set_messages(None)  # a Python caller sees no library chatter unless it asks for it
