"""Triangles between stations: which of them bridge a gap of the survey."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

Reals = npt.NDArray[np.float64]
Corners = npt.NDArray[np.intp] | npt.NDArray[np.int32]

_GAP = 4.0  # times the usual longest edge: a triangle with a longer one bridges a gap


def edge_lengths(x: Reals, y: Reals, corners: Corners) -> tuple[Reals, Reals]:
    """Longest and shortest edge of each triangle.

    Parameters
    ----------
    x, y : ndarray, shape (n,)
    corners : ndarray of int, shape (m, 3)
    """
    edges = np.stack([np.hypot(x[corners[:, a]] - x[corners[:, b]], y[corners[:, a]] - y[corners[:, b]])
                      for a, b in ((0, 1), (1, 2), (2, 0))])
    return edges.max(axis=0), edges.min(axis=0)


def bridges_gap(longest: Reals) -> npt.NDArray[np.bool_]:
    """Triangles whose longest edge is more than four times the usual one."""
    return np.asarray(longest > _GAP * np.median(longest), dtype=np.bool_)
