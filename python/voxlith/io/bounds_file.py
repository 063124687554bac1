"""Bounds of the cells: the text of line 8 of the control file and files of pairs ``lower upper`` in cell order.

A magnitude of 99 leaves a side free. A pair whose lower bound is at or above its upper bound fixes the cell at its
starting value.
"""

from __future__ import annotations

import os
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import PathLike, UsageError
from .exponent_text import exponent_fields
from .free_format import FreeFormat
from .model_file import Digits
from .numbers import number_text
from .output import open_output

Reals = npt.NDArray[np.float64]

FREE = 99.0
"""A bound of this magnitude leaves its side free."""

FREE_LOWER = -100000.0
"""The free lower bound of a pair in a file whose upper bound is real."""

_FREE_MAGNITUDE = np.float32(98.9)
_FREE_LOWER_MAGNITUDE = np.float32(99990.0)
_STRICT_POSITIVE = np.float32(1.0e-5)
_AT_ONCE = 1 << 15


@dataclass(frozen=True)
class CellBounds:
    """What bounds make of the cells of one model type.

    Attributes
    ----------
    lower, upper : ndarray, shape (cells,)
        Bounds in the unit of the model; -inf and inf where a side is free. Fixed cells keep the pair as it was read.
    fixed : ndarray of bool, shape (cells,)
        Cells that keep their starting value.
    """

    lower: Reals
    upper: Reals
    fixed: npt.NDArray[np.bool_]


def read_bounds_file(path: PathLike, cells: int, *, strict: bool = True) -> Reals:
    """Read a file of pairs.

    Parameters
    ----------
    path : path
    cells : int
        Number of cells of the mesh.
    strict : bool
        Whether values left out, too few or too many are an error. ``voxlith`` fills up with pairs 0, 0, which fix the
        cells.

    Returns
    -------
    ndarray, shape (cells, 2)
        Lower and upper value of each pair as written.

    Raises
    ------
    FileError
        When the file cannot be read, for text among the numbers and, if strict, for another count of values.
    """
    with FreeFormat.of_file(path) as reader:
        values = np.zeros(2 * cells)
        reader.reals(values)
        what = f"{2 * cells} values, a pair per cell"
        if strict or reader.status.name == "BAD":
            reader.expect(2 * cells, what)
        if strict:
            reader.expect_end(f"the {what}")
    return values.reshape(cells, 2)


def write_bounds_file(path: PathLike, pairs: npt.ArrayLike, *, digits: Digits = "full") -> None:
    """Write a file of pairs.

    Parameters
    ----------
    path : path
    pairs : array_like, shape (cells, 2)
        Lower and upper bound of each cell in cell order; infinite bounds are free sides, and equal ones fix a cell.
    digits : {"full", "fixed"}
        ``"full"``: the fewest digits that read back as the same, as ``voxlith-tools`` writes. ``"fixed"``: fields of 6
        digits.

    Raises
    ------
    UsageError
        For another shape, NaN, or bounds that would be taken for free sides.
    FileError
        When the file cannot be written.

    Examples
    --------
    >>> import tempfile, pathlib
    >>> path = pathlib.Path(tempfile.mkdtemp()) / "bounds.txt"
    >>> write_bounds_file(path, [[0.0, 1.0], [-np.inf, 0.5], [0.0, 0.0]])
    >>> path.read_text()
    '0 1\\n-100000 0.5\\n0 0\\n'
    """
    rows = _writable_pairs(np.array(pairs, dtype=np.float64))
    with open_output(path) as output:
        for first in range(0, len(rows), _AT_ONCE):
            some = rows[first: first + _AT_ONCE]
            if digits == "full":
                # Most cells share their pair with others.
                cells = [(lower, upper) for lower, upper in some.tolist()]
                lines = {pair: f"{number_text(pair[0])} {number_text(pair[1])}\n" for pair in set(cells)}
                output.write("".join([lines[pair] for pair in cells]).encode())
            else:
                fields = np.hstack([exponent_fields(some[:, 0]), exponent_fields(some[:, 1])])
                ends = np.full((len(some), 1), ord("\n"), dtype=np.uint8)
                output.write(np.hstack([fields, ends]).tobytes())


def _writable_pairs(rows: Reals) -> Reals:
    if rows.ndim != 2 or rows.shape[1] != 2:
        raise UsageError(f"bounds: expected pairs of shape (cells, 2), found {rows.shape}")
    if np.isnan(rows).any():
        raise UsageError("bounds: expected numbers, found NaN")
    free_lower, free_upper = rows[:, 0] == -np.inf, rows[:, 1] == np.inf
    rows[free_lower & free_upper, 0] = -FREE
    rows[free_lower & ~free_upper, 0] = FREE_LOWER
    rows[free_upper, 1] = FREE
    if not np.isfinite(rows).all():
        raise UsageError("bounds: expected lower bounds below inf and upper bounds above -inf")
    return rows


def bounds_of_pairs(pairs: npt.ArrayLike, positivity: int = 0) -> CellBounds:
    """What the pairs of a file mean.

    Parameters
    ----------
    pairs : array_like, shape (cells, 2)
    positivity : int
        Positivity flag: 1 at least 0, 2 at least 1e-5, -1 at most 0, 0 none.

    Returns
    -------
    CellBounds
        In single precision, as a run holds them.
    """
    rows = np.asarray(pairs, dtype=np.float32)
    lower, upper = rows[:, 0].copy(), rows[:, 1].copy()
    fixed = (np.abs(lower) <= _FREE_MAGNITUDE) & (np.abs(upper) <= _FREE_MAGNITUDE) & (lower >= upper)
    if positivity > 0:
        least = _least(positivity)
        raised = ~fixed & (lower < least) & (np.abs(lower) < _FREE_MAGNITUDE)
        lower[raised] = least
        raised = ~fixed & (upper < least) & (np.abs(upper) < _FREE_MAGNITUDE)
        upper[raised] = np.maximum(least, lower[raised])
    elif positivity < 0:
        lower[~fixed] = np.minimum(np.float32(0), lower[~fixed])
        upper[~fixed] = np.minimum(np.float32(0), upper[~fixed])
    free_upper = np.abs(upper) > _FREE_MAGNITUDE
    free_lower = np.where(free_upper, np.abs(lower) > _FREE_MAGNITUDE, np.abs(lower) > _FREE_LOWER_MAGNITUDE)
    low = np.where(free_lower & ~fixed, -np.inf, lower.astype(np.float64))
    high = np.where(free_upper & ~fixed, np.inf, upper.astype(np.float64))
    return CellBounds(low, high, fixed)


def bounds_of_numbers(lower: float, upper: float, cells: int, positivity: int = 0) -> CellBounds:
    """What two numbers on line 8 mean for all cells; arguments and result as of :func:`bounds_of_pairs`."""
    low, high = np.float32(lower), np.float32(upper)
    if positivity > 0:
        least = _least(positivity)
        low = least if np.float32(-FREE) < low < least else low
        high = max(least, low) if np.float32(-FREE) < high < least else high
    elif positivity < 0:
        low, high = min(np.float32(0), low), min(np.float32(0), high)
    return _for_all(-np.inf if abs(low) >= _FREE_MAGNITUDE else float(low),
                    np.inf if abs(high) >= _FREE_MAGNITUDE else float(high), cells)


def bounds_of_text(text: str, cells: int, positivity: int = 0, *, folder: PathLike = ".",
                   strict: bool = True) -> CellBounds:
    """What line 8 of the control file means: ``null``, two numbers, or the name of a file of pairs in `folder`.

    Raises
    ------
    FileError
        As :func:`read_bounds_file`.

    Examples
    --------
    >>> bounds_of_text("-99,1.0", 2, 0)
    CellBounds(lower=array([-inf, -inf]), upper=array([1., 1.]), fixed=array([False, False]))
    >>> bounds_of_text("null", 1, 1).lower
    array([0.])
    """
    short = text[:80].rstrip(" ")
    if short in ("null", "NULL"):
        lower = float(_least(positivity)) if positivity in (1, 2) else -np.inf
        return _for_all(lower, 0.0 if positivity < 0 else np.inf, cells)
    with FreeFormat.of_text(short) as reader:
        pair = reader.reals(np.zeros(2))
        if reader.status.name == "GOOD" and reader.given == 2:
            return bounds_of_numbers(pair[0], pair[1], cells, positivity)
    name = os.path.join(folder, short.strip(" "))
    return bounds_of_pairs(read_bounds_file(name, cells, strict=strict), positivity)


def _least(positivity: int) -> np.float32:
    return _STRICT_POSITIVE if positivity == 2 else np.float32(0)


def _for_all(lower: float, upper: float, cells: int) -> CellBounds:
    return CellBounds(np.full(cells, lower), np.full(cells, upper), np.zeros(cells, dtype=bool))
