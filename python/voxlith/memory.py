"""Memory that a task takes, compared with what the machine has before any is taken."""

from __future__ import annotations

import os
import resource

from .errors import VoxlithError


def require_memory(needed: float, task: str) -> None:
    """Refuse a task that takes more memory than there is.

    Parameters
    ----------
    needed : float
        Bytes.
    task : str
        What takes them, for the message.

    Raises
    ------
    VoxlithError
        When the machine, or the limit of the process, has less.

    Examples
    --------
    >>> require_memory(1000.0, "a small model")
    >>> require_memory(1.0e18, "a model of 10 x 10 x 10 cells")  # doctest: +ELLIPSIS
    Traceback (most recent call last):
    voxlith.errors.VoxlithError: a model of 10 x 10 x 10 cells takes 1000000000.0 GB of memory; there are ... GB
    """
    there = float(os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE"))
    limit = resource.getrlimit(resource.RLIMIT_AS)[0]
    there = min(there, limit) if limit != resource.RLIM_INFINITY else there
    if needed > there:
        raise VoxlithError(f"{task} takes {needed / 1.0e9:.1f} GB of memory; there are {there / 1.0e9:.1f} GB")
