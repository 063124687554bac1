"""Bounds of the cells by a lithology model: each unit of rock has its own."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .codes import DUMMY_LIMIT
from .errors import FileError, PathLike, UsageError
from .io.free_format import FreeFormat
from .io.numbers import number_text, parse_integer, parse_real
from .io.text_lines import read_lines, words_of

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]
Pair = tuple[float, float]

FIXED: Pair = (0.0, 0.0)
"""Pair of a bounds file that fixes a cell at its starting value."""

_FREE: Pair = (-99.0, 99.0)
_FREE_MAGNITUDE = np.float32(98.9)
_FREE_LOWER = -100000.0  # of a pair whose upper bound is real: -99 would be taken for a bound there
_LARGEST_UNIT = 2**31 - 1


@dataclass(frozen=True)
class UnitCells:
    """A file with a whole number per cell.

    Attributes
    ----------
    path : path
    values : ndarray, shape (cells,)
        Numbers of the units in cell order; NaN in no-data cells.
    """

    path: PathLike
    values: Reals

    def line_of(self, cell: int) -> int:
        """Line of a cell (from 0) in the file."""
        with FreeFormat.of_file(self.path) as reader:
            reader.reals(np.zeros(cell + 1))
            return reader.line


def read_unit_cells(path: PathLike, cells: int) -> UnitCells:
    """Read a lithology model or a mask: a whole number per cell, in the form of a model file.

    Parameters
    ----------
    path : path
    cells : int
        Cells of the mesh.

    Raises
    ------
    FileError
        For a number that is not whole, and for too few or too many of them.
    """
    values = np.zeros(cells)
    with FreeFormat.of_file(path) as reader:
        reader.reals(values)
        reader.expect(cells, f"{cells} whole numbers, one per cell")
        reader.expect_end(f"the {cells} values of the mesh")
    missing = values <= DUMMY_LIMIT
    good = missing | ((values == np.floor(values)) & (np.abs(values) <= _LARGEST_UNIT))
    units = UnitCells(path, np.where(missing, np.nan, values))
    if not good.all():
        bad = int(np.argmin(good))
        raise FileError(path, f"expected a whole number for cell {bad + 1}, found {number_text(float(values[bad]))}",
                        line=units.line_of(bad))
    return units


def parse_pair(source: str, text: str) -> Pair:
    """Bounds as people write them: ``lower,upper`` or ``fixed``; 99 and -99 leave a side free.

    Parameters
    ----------
    source : str
        What stands in front of the message: an option, or a file and line.
    text : str

    Returns
    -------
    tuple of 2 float
        A pair of a bounds file.

    Raises
    ------
    UsageError
        For any other text, and for bounds that are not below each other in single precision, in which they are read.

    >>> parse_pair("--unit", "0,0.5"), parse_pair("--unit", "-99,0.5"), parse_pair("--unit", "fixed")
    ((0.0, 0.5), (-100000.0, 0.5), (0.0, 0.0))
    """
    words = words_of(text)
    if words == ["fixed"]:
        return FIXED
    values = [parse_real(word) for word in words]
    finite = [value for value in values if value is not None and np.isfinite(value)]
    if len(words) != 2 or len(finite) != 2:
        raise UsageError(f"{source}: expected lower,upper or fixed, found {text}")
    lower, upper = finite
    if _is_free(lower):
        return _FREE if _is_free(upper) else (_FREE_LOWER, upper)
    if _is_free(upper):
        return lower, _FREE[1]
    if not np.float32(lower) < np.float32(upper):
        raise UsageError(f"{source}: expected a lower bound below the upper one (write fixed to fix cells), found {text}")
    return lower, upper


def _is_free(value: float) -> bool:
    with np.errstate(over="ignore"):
        return bool(abs(np.float32(value)) >= _FREE_MAGNITUDE)


def describe_pair(pair: Pair) -> str:
    """A pair in words.

    >>> describe_pair((0.0, 0.5)), describe_pair((-100000.0, 0.5)), describe_pair((0.0, 0.0)), describe_pair((0.0, 99.0))
    ('0 to 0.5', 'up to 0.5', 'fixed', 'from 0')
    """
    if pair == FIXED:
        return "fixed"
    lower, upper = pair
    if _is_free(lower):
        return "free" if _is_free(upper) else f"up to {number_text(upper)}"
    return f"from {number_text(lower)}" if _is_free(upper) else f"{number_text(lower)} to {number_text(upper)}"


class UnitTable:
    """Bounds of units by their number."""

    def __init__(self) -> None:
        self.pairs: dict[int, Pair] = {}

    def add(self, source: str, unit: str, pair: str) -> None:
        """Add a unit. Raises UsageError, with `source` in front, for a wrong text and for a unit that is there."""
        number = parse_integer(unit)
        if number is None or number == -_LARGEST_UNIT - 1:
            raise UsageError(f"{source}: expected the whole number of a unit, found {unit}")
        bounds = parse_pair(source, pair)
        if number in self.pairs:
            raise UsageError(f"{source}: unit {number} has bounds already, {describe_pair(self.pairs[number])}")
        self.pairs[number] = bounds

    def read(self, path: PathLike) -> None:
        """Add the units of a table: ``unit lower upper`` or ``unit fixed`` per line, comments after ``!`` or ``#``.

        Raises
        ------
        FileError
        """
        for number, line in enumerate(read_lines(path), 1):
            text = line.partition("!")[0].partition("#")[0]
            words = words_of(text)
            if not words:
                continue
            try:
                self.add("", words[0], text[text.index(words[0]) + len(words[0]):].strip(" \t,") or "the end of the line")
            except UsageError as error:
                raise FileError(path, str(error).removeprefix(": "), line=number) from error


@dataclass
class LithologyBounds:
    """Bounds of all cells, and how they came about.

    Attributes
    ----------
    pairs : ndarray, shape (cells, 2)
        As a bounds file has them.
    cells : dict
        Number of cells by unit; those of the mask and of the default are not counted.
    by_default, by_mask, no_data : int
        Cells with the default bounds; cells that the mask fixes; no-data cells, which are fixed, too.
    """

    pairs: Reals
    cells: dict[int, int]
    by_default: int
    by_mask: int
    no_data: int


def bounds_of_units(units: UnitCells, table: UnitTable, default: Pair | None = None,
                    mask: UnitCells | None = None) -> LithologyBounds:
    """Bounds of each cell.

    Parameters
    ----------
    units : UnitCells
    table : UnitTable
    default : tuple of 2 float, optional
        Bounds of units that the table does not have; without it there must be none.
    mask : UnitCells, optional
        1 fixes a cell, 0 leaves it to its unit.

    Raises
    ------
    FileError
        For a unit without bounds, and for a mask with other numbers than 0 and 1.
    """
    fixed = np.zeros(len(units.values), dtype=np.bool_)
    if mask is not None:
        bad = np.flatnonzero(~((mask.values == 0.0) | (mask.values == 1.0)))
        if len(bad):
            value = mask.values[bad[0]]
            found = "a no-data cell" if np.isnan(value) else number_text(float(value))
            raise FileError(mask.path, f"expected 0 or 1 for cell {bad[0] + 1}, found {found}",
                            line=mask.line_of(int(bad[0])))
        fixed = mask.values == 1.0
    no_data = np.isnan(units.values) & ~fixed
    pairs = np.tile(np.array(FIXED), (len(fixed), 1))
    numbers = np.where(fixed | no_data, np.nan, units.values)
    present, which = np.unique(numbers[~np.isnan(numbers)].astype(np.int64), return_inverse=True)
    units_present: list[int] = present.tolist()
    unknown = [number for number in units_present if number not in table.pairs]
    if unknown and default is None:
        cell = int(np.flatnonzero(np.isin(numbers, unknown))[0])
        number = int(numbers[cell])
        raise FileError(units.path, f"expected a unit with bounds for cell {cell + 1}, found {number}; give --unit "
                        f"{number}=lower,upper or --default", line=units.line_of(cell))
    if units_present:
        chosen = np.array([table.pairs.get(number, default or FIXED) for number in units_present])
        pairs[~np.isnan(numbers)] = chosen[which.ravel()]
    counts: dict[int, int] = dict(zip(units_present, np.bincount(which.ravel()).tolist()))
    return LithologyBounds(pairs, {unit: counts.get(unit, 0) for unit in sorted(table.pairs)},
                           sum(counts[unit] for unit in unknown), int(fixed.sum()), int(no_data.sum()))
