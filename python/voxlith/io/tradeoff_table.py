"""``voxlith_tradeoff.csv``: the trials of a search for the trade-off multiplier by ``voxlith-run --target-rms``."""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, shown
from .numbers import parse_real
from .text_lines import read_lines

Reals = npt.NDArray[np.float64]

TRADEOFF_TABLE = "voxlith_tradeoff.csv"
_COLUMNS = ("tradeoff", "rms_misfit", "phi_m")
_ITERATION = "iteration"


@dataclass(frozen=True)
class TradeoffTable:
    """Trials in the order in which they were made.

    Attributes
    ----------
    tradeoff : ndarray, shape (n,)
        Trade-off multipliers.
    misfit : ndarray, shape (n,)
        RMS misfits.
    squared_norm : ndarray, shape (n,)
        Model norms before the root.
    iteration : ndarray, shape (n,)
        Last iteration with this multiplier; NaN where the table does not say.
    """

    tradeoff: Reals
    misfit: Reals
    squared_norm: Reals
    iteration: Reals


def read_tradeoff_table(path: PathLike) -> TradeoffTable:
    """Read a table of trade-off multipliers by the names of its columns.

    Raises
    ------
    FileError
        When the file cannot be read, lacks a column, or a value is no number.
    """
    lines = read_lines(path)
    names = [name.strip() for name in lines[0].split(",")] if lines else []
    missing = [name for name in _COLUMNS if name not in names]
    if missing:
        raise FileError(path, f"expected the columns {', '.join(_COLUMNS)}, found {shown(','.join(names))}", line=1)
    columns = [*_COLUMNS, *([_ITERATION] if _ITERATION in names else [])]
    rows = []
    for number, text in enumerate(lines[1:], 2):
        words = text.split(",")
        values = [parse_real(words[names.index(name)].strip()) if names.index(name) < len(words) else None
                  for name in columns]
        if len(words) != len(names) or any(value is None or not math.isfinite(value) for value in values):
            raise FileError(path, f"expected a row of {len(names)} numbers, found {shown(text)}", line=number)
        rows.append([value for value in values if value is not None])
    table = np.array(rows).reshape(len(rows), len(columns)).T
    iteration = table[3] if len(columns) > len(_COLUMNS) else np.full(len(rows), np.nan)
    return TradeoffTable(table[0], table[1], table[2], iteration)
