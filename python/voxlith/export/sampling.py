"""Values of cells at the centres of regular grids."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

from ..errors import UsageError
from ..model import Model

Reals = npt.NDArray[np.float64]

MOST_SAMPLES = 1_000_000_000


def regular_count(widths: Reals, name: str, length: float | None = None) -> int:
    """Cells of the smallest of these widths that fill the axis, or this length."""
    count = float(widths.sum() if length is None else length) / float(widths.min())
    if count > MOST_SAMPLES:
        raise UsageError(f"{name}: a regular grid of cells of {float(widths.min()):g} m has {count:.3g} cells along this axis")
    return max(int(round(count)), 1)


def regular_centres(nodes: Reals, count: int) -> Reals:
    """Centres of `count` equal cells between the first and the last node."""
    step = (float(nodes[-1]) - float(nodes[0])) / count
    return np.asarray(float(nodes[0]) + step * (np.arange(count) + 0.5), dtype=np.float64)


def cells_along(nodes: Reals, centres: Reals) -> npt.NDArray[np.intp]:
    """Cell of an axis that holds each position within it; nodes may rise or fall."""
    sign = 1.0 if nodes[-1] > nodes[0] else -1.0
    found = np.searchsorted(sign * nodes, sign * centres, side="right") - 1
    return np.asarray(np.clip(found, 0, len(nodes) - 2), dtype=np.intp)


def shown_cube(model: Model) -> Reals:
    """Values of shape (nz, nx, ny), NaN in inactive cells."""
    return np.where(model.mesh.cube(model.shown), model.cube, np.nan)
