"""The number of threads that the library uses."""

from __future__ import annotations

import operator

from . import _vxl


def check_threads(threads: int | None) -> int:
    """`threads` as a number, 0 for one per core."""
    if threads is None:
        return 0
    try:
        number = operator.index(threads)
    except TypeError:
        raise TypeError(f"threads is a number or None, not {type(threads).__name__}") from None
    if not 0 <= number <= 1024:
        raise ValueError(f"threads is 0 (one per core) to 1024, not {number}")
    return number


def set_threads(threads: int | None) -> None:
    """Limit the threads that the library uses in this process.

    The limit applies until the next call. Where calls have a parameter `threads`, the smaller number applies,
    also to other calls that run at the same time.

    Parameters
    ----------
    threads : int or None
        None or 0: one per core, the default.
    """
    _vxl.set_threads(check_threads(threads))
