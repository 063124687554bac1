"""Which wavelet coefficients of a row are kept."""

from __future__ import annotations

import math
from typing import NamedTuple

import numpy as np
import numpy.typing as npt

from .errors import UsageError

Reals = npt.NDArray[np.float64]


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
    relative = magnitude[indices] / magnitude.max()
    order = np.argsort(-relative, kind="stable")
    squares = relative[order] * relative[order]
    dropped = np.concatenate(([0.0], np.cumsum(squares[::-1])))  # of the last 0, 1, 2, ... coefficients
    total = float(np.cumsum(relative * relative)[-1])
    count = int(np.searchsorted(dropped, tolerance * tolerance * total, side="right")) - 1
    kept = np.sort(indices[order[: len(order) - count]])
    return _row_of(flat, kept if len(kept) else indices[order[:1]], math.sqrt(dropped[count] / total))


def _row_of(flat: Reals, indices: npt.NDArray[np.intp], loss: float) -> CompressedRow:
    return CompressedRow((indices + 1).astype(np.int32), flat[indices].astype(np.float32), loss)
