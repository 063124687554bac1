"""Grids in the exchange format GXF, revision 3 (Geosoft): keywords with ``#``, then the values, as text or in base 90.

The reader of GDAL leaves out the rotation of a grid and refuses grids whose points run along y, so the format is read
here.
"""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, shown
from .numbers import parse_real
from .text_lines import read_lines

Reals = npt.NDArray[np.float64]

MOST_POINTS = 100_000_000
_FIRST_DIGIT, _BASE = 37, 90  # "%" is 0, "~" is 89
_DUMMY, _REPEAT = "!", '"'

# Of each sense: whether the points of a row run along x, and whether points and rows begin at the far end of their axis.
_SENSES = {1: (True, False, False), -1: (False, False, False), 2: (False, True, False), -2: (True, False, True),
           3: (True, True, True), -3: (False, True, True), 4: (False, False, True), -4: (True, True, False)}


@dataclass(frozen=True)
class GxfGrid:
    """A grid.

    Attributes
    ----------
    values : ndarray, shape (ny, nx)
        South to north and west to east before the rotation; NaN where the grid has no value.
    origin : tuple of 2 float
        x and y of the first point, in units of the file.
    spacing : tuple of 2 float
        Between points along x and along y, in units of the file.
    rotation : float
        Of the x axis of the grid, degrees anticlockwise from east.
    metres : float
        Of one unit of length.
    projection : str
        Name of the reference system as the file has it; empty when it names none.
    """

    values: Reals
    origin: tuple[float, float]
    spacing: tuple[float, float]
    rotation: float = 0.0
    metres: float = 1.0
    projection: str = ""

    def places(self) -> tuple[Reals, Reals]:
        """x and y of all points in metres, each of the shape of the values."""
        along, up = np.meshgrid(self.spacing[0] * np.arange(self.values.shape[1]),
                                self.spacing[1] * np.arange(self.values.shape[0]))
        cos, sin = math.cos(math.radians(self.rotation)), math.sin(math.radians(self.rotation))
        if self.rotation % 90.0 == 0.0:
            cos, sin = round(cos), round(sin)
        return (self.metres * (self.origin[0] + cos * along - sin * up),
                self.metres * (self.origin[1] + sin * along + cos * up))


def read_gxf_file(path: PathLike) -> GxfGrid:
    """Read a grid.

    Raises
    ------
    FileError
        For a keyword that is missing or has another value than a grid can have, and for values that are too few, too many
        or no numbers.
    """
    lines = read_lines(path)
    words, first = _keywords(path, lines)
    points, rows = (_count(path, words, key) for key in ("POINTS", "ROWS"))
    if points * rows > MOST_POINTS:
        raise FileError(path, f"expected at most {MOST_POINTS} points, found {points} x {rows}")
    sense, size = int(_number(path, words, "SENSE", 1.0)), int(_number(path, words, "GTYPE", 0.0))
    if sense not in _SENSES or not 0 <= size <= 20:
        raise FileError(path, f"expected a SENSE of -4 to 4 and a GTYPE of 0 to 20, found {sense} and {size}")
    text = lines[first:]
    raw = _compressed(path, text, size, first + 1) if size else _plain(path, text, first + 1)
    if len(raw) != points * rows:
        raise FileError(path, f"expected {points} x {rows} values, found {len(raw)}")
    if "DUMMY" in words:
        raw[raw == _number(path, words, "DUMMY", math.nan)] = math.nan
    scale, offset = _numbers(path, words, "TRANSFORM", (1.0, 0.0))
    spacing = tuple(_number(path, words, key, math.nan) for key in ("PTSEPARATION", "RWSEPARATION"))
    if not (spacing[0] > 0.0 and spacing[1] > 0.0):
        raise FileError(path, "expected PTSEPARATION and RWSEPARATION above 0")
    along_x, points_turn, rows_turn = _SENSES[sense]
    grid = (scale * raw + offset).reshape(rows, points)[::-1 if rows_turn else 1, ::-1 if points_turn else 1]
    metres = _unit(path, words)
    return GxfGrid(np.ascontiguousarray(grid if along_x else grid.T),
                   (_number(path, words, "XORIGIN", 0.0), _number(path, words, "YORIGIN", 0.0)),
                   (spacing[0], spacing[1]) if along_x else (spacing[1], spacing[0]),
                   _number(path, words, "ROTATION", 0.0), metres, _quoted(words.get("MAP_PROJECTION", (0, ""))[1]))


def _keywords(path: PathLike, lines: list[str]) -> tuple[dict[str, tuple[int, str]], int]:
    """The first line after each keyword, with its number, and the index of the first line of values."""
    found: dict[str, tuple[int, str]] = {}
    for index, line in enumerate(lines):
        if not line.startswith("#"):
            continue
        key = line[1:].strip().upper()[:60]
        if key == "GRID":
            return found, index + 1
        if key and index + 1 < len(lines) and not lines[index + 1].startswith("#"):
            found[key] = (index + 2, lines[index + 1].strip())
    raise FileError(path, "expected the keyword #GRID, found none")


def _numbers(path: PathLike, words: dict[str, tuple[int, str]], key: str, otherwise: tuple[float, ...]) -> list[float]:
    if key not in words:
        return list(otherwise)
    line, text = words[key]
    values = [parse_real(word) for word in text.replace(",", " ").split()]
    if len(values) != len(otherwise) or any(value is None or not math.isfinite(value) for value in values):
        raise FileError(path, f"expected {len(otherwise)} {'number' if len(otherwise) == 1 else 'numbers'} after #{key}, found {shown(text)}", line=line)
    return [value for value in values if value is not None]


def _number(path: PathLike, words: dict[str, tuple[int, str]], key: str, otherwise: float) -> float:
    return _numbers(path, words, key, (otherwise,))[0]


def _count(path: PathLike, words: dict[str, tuple[int, str]], key: str) -> int:
    value = _number(path, words, key, math.nan)
    if not (value >= 1.0 and value == math.floor(value)):
        raise FileError(path, f"expected the keyword #{key} with a count above 0")
    return int(value)


def _unit(path: PathLike, words: dict[str, tuple[int, str]]) -> float:
    """Metres of a unit of length: the number after the name of the unit."""
    line, text = words.get("UNIT_LENGTH", (0, ""))
    if not text:
        return 1.0
    value = parse_real(text.rpartition(",")[2].strip())
    if value is None or not 0.0 < value < math.inf:
        raise FileError(path, f"expected a unit of length with its metres after #UNIT_LENGTH, found {shown(text)}", line=line)
    return value


def _quoted(text: str) -> str:
    """What stands in the first pair of quotes."""
    parts = text.split('"')
    return parts[1].strip() if len(parts) > 2 else ""


def _plain(path: PathLike, lines: list[str], first: int) -> Reals:
    values: list[float] = []
    for number, line in enumerate(lines, first):
        if line.startswith("#"):
            break
        for word in line.replace(",", " ").split():
            value = math.nan if set(word) == {"*"} else parse_real(word)
            if value is None or math.isinf(value):
                raise FileError(path, f"expected a number, found {shown(word)}", line=number)
            values.append(value)
    return np.array(values, dtype=np.float64)


def _compressed(path: PathLike, lines: list[str], size: int, first: int) -> Reals:
    """Values of `size` characters each: ``!`` stands for no value, ``"`` for a count and the value that it repeats."""
    values: list[float] = []
    for number, line in enumerate(lines, first):
        if line.startswith("#"):
            break
        text = line.rstrip()
        if len(text) % size:
            raise FileError(path, f"expected groups of {size} characters, found {len(text)} characters", line=number)
        groups = [text[at: at + size] for at in range(0, len(text), size)]
        at = 0
        while at < len(groups):
            repeat, count = groups[at][0] == _REPEAT, 1
            if repeat:
                if at + 2 >= len(groups):
                    raise FileError(path, "expected a count and a value to repeat, found the end of the line", line=number)
                count = int(_digits(path, groups[at + 1], number))
                at += 2
            if len(values) + count > MOST_POINTS:
                raise FileError(path, f"expected at most {MOST_POINTS} values", line=number)
            values.extend([math.nan if groups[at][0] == _DUMMY else _digits(path, groups[at], number)] * count)
            at += 1
    return np.array(values, dtype=np.float64)


def _digits(path: PathLike, group: str, line: int) -> float:
    value = 0.0
    for character in group:
        digit = ord(character) - _FIRST_DIGIT
        if not 0 <= digit < _BASE:
            raise FileError(path, f"expected a number in base 90, found {shown(group)}", line=line)
        value = _BASE * value + digit
    return value
