"""Tables that a run leaves at its end: errors, apparent density, and the two tables of background removal.

All have fixed-width columns, though the headings of some have commas.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, shown
from .numbers import exponent_field, fixed_field, integer_field, parse_integer, parse_real
from .output import write_bytes
from .text_lines import read_lines, to_bytes, to_text

Reals = npt.NDArray[np.float64]

ERROR_TABLE = "voxlith_error.dat"
APPARENT_DENSITY_TABLE = "voxlith_appden.csv"
SURFACE_RESPONSE_TABLE = "obs_surafce_calc.dat"
BACKGROUND_FIT_TABLE = "obs_fit_pred.dat"

_ERROR_HEADINGS = (" x,y,elev,actual,modelled,difference,zscore",
                   " x,y,elev,actual1,modelled1,difference1,zscore1,actual2,modelled2,difference2,zscore2")
_DENSITY_HEADING = "       I,           X,           Y,        AppDen"
_NO_VALUE = -99999.0


@dataclass(frozen=True)
class ErrorTable:
    """``voxlith_error.dat``: data beside predictions, with two decimals.

    Attributes
    ----------
    x, y, elevation : ndarray, shape (n,)
        Metres.
    actual, modelled, difference : ndarray, shape (components, n)
        In data units, NaN where masked; the difference is modelled minus actual. At most two components.
    zscore : ndarray, shape (components, n)
        The difference in units of the standard deviation.
    """

    x: Reals
    y: Reals
    elevation: Reals
    actual: Reals
    modelled: Reals
    difference: Reals
    zscore: Reals


def _field(path: PathLike, line: int, text: str, what: str) -> float:
    """A field as a number; NaN for a single asterisk or a field of asterisks."""
    word = text.strip()
    if word and not word.strip("*"):
        return math.nan
    value = parse_real(word)
    if value is None:
        raise FileError(path, f"expected {what}, found {shown(word)}", line=line)
    return value


def _fields(path: PathLike, line: int, text: str, widths: Sequence[int], what: str) -> list[float]:
    if len(text) < sum(widths):
        raise FileError(path, f"expected {what} in {sum(widths)} columns, found {len(text)}", line=line)
    row, at = [], 0
    for width in widths:
        row.append(_field(path, line, text[at: at + width], what))
        at += width
    return row


def _table_lines(path: PathLike, headings: Sequence[str]) -> tuple[list[str], str]:
    lines = read_lines(path)
    if not lines or lines[0] not in headings:
        found = shown(lines[0]) if lines else "the end of the file"
        raise FileError(path, f"expected the heading {shown(headings[0], 40)} or alike, found {found}", line=1)
    return lines[1:], lines[0]


def read_error_table(path: PathLike) -> ErrorTable:
    """Read ``voxlith_error.dat``.

    Raises
    ------
    FileError
        When the file cannot be read or a row has other columns.
    """
    lines, heading = _table_lines(path, _ERROR_HEADINGS)
    components = 1 if heading == _ERROR_HEADINGS[0] else 2
    widths = [12, 12, 12] + [14] * (4 * components)
    table = np.array([_fields(path, number, text, widths, "a row of the error table")
                      for number, text in enumerate(lines, 2)]).reshape(len(lines), len(widths)).T
    parts = table[3:].reshape(components, 4, -1).copy()
    parts[(parts == _NO_VALUE).all(axis=1)[:, None, :].repeat(4, axis=1)] = np.nan
    return ErrorTable(table[0], table[1], table[2], *(parts[:, n] for n in range(4)))


def write_error_table(path: PathLike, table: ErrorTable) -> None:
    """Write an error table in the form of a run. Raises FileError."""
    components = len(table.actual)
    lines = [_ERROR_HEADINGS[components > 1]]
    for n in range(len(table.x)):
        text = "".join(fixed_field(float(values[n]), 12, 2) for values in (table.x, table.y, table.elevation))
        for part in zip(table.actual, table.modelled, table.difference, table.zscore):
            values = [float(column[n]) for column in part]
            if not math.isnan(values[0]):
                text += "".join(fixed_field(value, 14, 2) for value in values)
            else:
                text += ("*".rjust(14) if components == 1 else fixed_field(_NO_VALUE, 14, 2)) * 4
        lines.append(text)
    write_bytes(path, ("\n".join(lines) + "\n").encode())


@dataclass(frozen=True)
class ApparentDensityTable:
    """``voxlith_appden.csv``: the first layer at the stations.

    Attributes
    ----------
    x, y : ndarray, shape (n,)
        Metres.
    value : ndarray, shape (n,)
        In the unit of the inversion variable; NaN beyond the mesh and over no-data cells.
    """

    x: Reals
    y: Reals
    value: Reals


def read_apparent_density_table(path: PathLike) -> ApparentDensityTable:
    """Read ``voxlith_appden.csv``. Raises FileError when it cannot be read or a row has other columns."""
    lines, _ = _table_lines(path, (_DENSITY_HEADING,))
    rows = []
    what = "a row I,X,Y,AppDen"
    for number, text in enumerate(lines, 2):
        words = text.split(",")
        if len(words) != 4 or parse_integer(words[0].strip()) != number - 1:
            raise FileError(path, f"expected {what} of station {number - 1}, found {shown(text)}", line=number)
        rows.append([_field(path, number, word, what) for word in words[1:]])
    table = np.array(rows).reshape(len(rows), 3).T
    return ApparentDensityTable(table[0], table[1], table[2])


def write_apparent_density_table(path: PathLike, table: ApparentDensityTable) -> None:
    """Write a table of apparent densities in the form of a run. Raises FileError."""
    lines = [_DENSITY_HEADING]
    for n, (x, y, value) in enumerate(zip(table.x.tolist(), table.y.tolist(), table.value.tolist()), 1):
        last = "*".rjust(14) if math.isnan(value) else exponent_field(value)
        lines.append(f"{integer_field(n, 8)},{fixed_field(x, 12, 2)},{fixed_field(y, 12, 2)},{last}")
    write_bytes(path, ("\n".join(lines) + "\n").encode())


@dataclass(frozen=True)
class BackgroundTable:
    """``obs_surafce_calc.dat`` or ``obs_fit_pred.dat``.

    Attributes
    ----------
    x, y, elevation : ndarray, shape (n,)
        Metres.
    columns : ndarray, shape (components, 2 or 3, n)
        Per component: datum and response of the surface layer; or datum, the part taken off, and what is left. NaN
        where a row has none.
    line : list of str, or None
    time : ndarray, shape (n,), or None
        Line names and times of the table of surface responses of a run with an integration interval.
    """

    x: Reals
    y: Reals
    elevation: Reals
    columns: Reals
    line: list[str] | None = None
    time: Reals | None = None


_BACKGROUND_HEADINGS = {
    "     I      X         Y         Z         OBS        Resp": (1, 2),
    "     I      X         Y         Z        OBS1       Resp1        OBS2       Resp2": (2, 2),
    "     I      X         Y         Z         OBS        Pred        Diff": (1, 3),
    "     I      X         Y         Z        OBS1       Pred1       Diff1        OBS2       Pred2       Diff2": (2, 3),
}


def read_background_table(path: PathLike) -> BackgroundTable:
    """Read one of the two tables of background removal; its heading decides which one.

    Raises FileError when the file cannot be read or a row has other columns.
    """
    lines, heading = _table_lines(path, tuple(_BACKGROUND_HEADINGS))
    _, each = _BACKGROUND_HEADINGS[heading]
    lined = each == 2 and any(_is_lined(text, each) for text in lines)
    start = 59 if lined else 36
    width = max((len(text) for text in lines), default=start) - start
    components = max(width // (12 * each), 1)
    rows, names, times = [], [], []
    what = "a row of the table"
    for number, text in enumerate(lines, 2):
        if parse_integer(text[:6].strip()) != number - 1 and "*" not in text[:6]:
            raise FileError(path, f"expected {what}, station {number - 1}, found {shown(text)}", line=number)
        if lined:
            names.append(to_text(text[7:23].rstrip(" ")))
            times.append(_field(path, number, text[23:29], what))
        position = _fields(path, number, text[start - 30:], (10, 10, 10), what)
        count = min((len(text) - start) // 12, components * each)
        values = _fields(path, number, text[start:], (12,) * count, what)
        rows.append(position + values + [math.nan] * (components * each - count))
    table = np.array(rows).reshape(len(rows), 3 + components * each).T
    return BackgroundTable(table[0], table[1], table[2], table[3:].reshape(components, each, -1),
                           names if lined else None, np.array(times) if lined else None)


def _is_lined(text: str, each: int) -> bool:
    """Whether a row has a line name and a time: its width is no multiple of the columns without them."""
    return (len(text) - 36) % (12 * each) != 0 or len(text) < 36


def write_background_table(path: PathLike, table: BackgroundTable) -> None:
    """Write a table of background removal in the form of a run. Raises FileError."""
    components, each, count = table.columns.shape
    heading = next(text for text, key in _BACKGROUND_HEADINGS.items() if key == (min(components, 2), each))
    lines = [heading]
    for n in range(count):
        text = integer_field(n + 1, 6)
        if table.line is not None and table.time is not None:
            name = to_bytes(table.line[n])[:16].decode("latin-1")
            text += f" {name.ljust(16)}{fixed_field(float(table.time[n]), 6, 1)}"
        text += "".join(fixed_field(float(values[n]), 10, 1) for values in (table.x, table.y, table.elevation))
        lines.append(text + _background_values(table.columns[:, :, n], table.line is not None))
    write_bytes(path, ("\n".join(lines) + "\n").encode("latin-1"))


def _background_values(values: Reals, lined: bool) -> str:
    star = "*".rjust(12)
    if lined and np.isnan(values[0]).any():
        return fixed_field(float(values[0, 0]), 12, 4) + star
    return "".join(star if math.isnan(value) else fixed_field(value, 12, 4) for value in values.ravel().tolist())
