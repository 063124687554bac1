"""Which wavelet coefficients of a row are kept."""

from __future__ import annotations

import math
from typing import NamedTuple

import numpy as np
import numpy.typing as npt

from .errors import UsageError

Reals = npt.NDArray[np.float64]


_SHORT_ROW = 4096
_LOWER_BITS = 48  # of the 64 of a number; the others are the exponent and the first four bits of the mantissa
_ROUNDING = 1.0e-9  # of a sum, far more than its order can change


class CompressedRow(NamedTuple):
    """What is kept of a row.

    Attributes
    ----------
    positions : ndarray of int32, shape (n,)
        From 1, rising.
    values : ndarray of float32, shape (n,)
    loss : float
        Norm of what is dropped over the norm of the row; 0 for a row of zeros.
    """

    positions: npt.NDArray[np.int32]
    values: npt.NDArray[np.float32]
    loss: float


def compress_row(padded: Reals, tolerance: float) -> CompressedRow:
    """The smallest set of coefficients whose loss is at most a tolerance.

    Of equal magnitudes the first ones are kept. The set is never empty: a row of zeros keeps its first
    coefficient, since a row without any cannot be read back.

    Parameters
    ----------
    padded : ndarray, shape (n,) or (npy, npx, npz)
        All coefficients of the row.
    tolerance : float
        Largest loss: norm of what is dropped over the norm of the row, from 0 to below 1.

    Returns
    -------
    CompressedRow

    Raises
    ------
    UsageError
        For a coefficient that single precision cannot hold.

    Examples
    --------
    >>> row = compress_row(np.array([0.0, 4.0, 0.1, -3.0]), 0.1)
    >>> row.positions, row.values, round(row.loss, 4)
    (array([2, 4], dtype=int32), array([ 4., -3.], dtype=float32), 0.02)
    """
    flat = np.asarray(padded, dtype=np.float64).ravel()
    magnitude = np.abs(flat)
    if not np.all(magnitude <= np.finfo(np.float32).max):
        raise UsageError("a coefficient is too large for single precision")
    indices = np.flatnonzero(magnitude > 0.0)
    if not len(indices):
        return _row_of(flat, np.zeros(1, dtype=np.intp), 0.0)
    # Squares of magnitudes relative to the largest neither overflow nor vanish where it matters.
    relative = magnitude / magnitude.max()
    found = _split_by_magnitude(relative, tolerance) if len(relative) >= _SHORT_ROW else None
    if found is not None:
        return _row_of(flat, *found)
    relative = relative[indices]
    order = np.argsort(-relative, kind="stable")
    squares = relative[order] * relative[order]
    dropped = np.concatenate(([0.0], np.cumsum(squares[::-1])))  # of the last 0, 1, 2, ... coefficients
    total = float(np.cumsum(relative * relative)[-1])
    count = int(np.searchsorted(dropped, tolerance * tolerance * total, side="right")) - 1
    kept = np.sort(indices[order[: len(order) - count]])
    return _row_of(flat, kept if len(kept) else indices[order[:1]], math.sqrt(dropped[count] / total))


def _split_by_magnitude(relative: Reals, tolerance: float) -> tuple[npt.NDArray[np.intp], float] | None:
    """What the sorted sums of :func:`compress_row` keep, without sorting all: magnitudes are counted by their leading bits, and only
    those are sorted among which the limit is.

    Returns
    -------
    indices of what is kept, and the loss
        None where rounding could decide otherwise than in the sorted sums.
    """
    squares = relative * relative
    total = float(np.cumsum(squares)[-1])
    allowed = tolerance * tolerance * total
    classes = relative.view(np.int64) >> _LOWER_BITS
    below = np.cumsum(np.bincount(classes, weights=squares))
    divided = int(np.searchsorted(below, allowed, side="right"))
    if divided == len(below):
        return None
    undecided = np.flatnonzero(classes == divided)[::-1]  # of equal magnitudes the last one is dropped first
    order = undecided[np.argsort(relative[undecided], kind="stable")]
    dropped = np.concatenate(([0.0], np.cumsum(squares[order]))) + (float(below[divided - 1]) if divided else 0.0)
    if not np.abs(dropped - allowed).min() > _ROUNDING * allowed:
        return None
    count = int(np.searchsorted(dropped, allowed, side="right")) - 1
    keep = classes >= divided
    keep[order[:count]] = False
    return np.flatnonzero(keep), math.sqrt(dropped[count] / total)


def _row_of(flat: Reals, indices: npt.NDArray[np.intp], loss: float) -> CompressedRow:
    return CompressedRow((indices + 1).astype(np.int32), flat[indices].astype(np.float32), loss)
