"""Line data of other programs: Geosoft XYZ, text with a row per record and headings ``LINE`` and ``TIE``.

Lines that begin with ``/`` are comments; the last one in front of the records with as many words as there are columns
names the channels. ``*`` stands for no value.
"""

from __future__ import annotations

import math
import re
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, UsageError, shown
from ..packages import require
from .csv_file import CsvTable
from .numbers import number_text, parse_real
from .text_lines import read_lines

Reals = npt.NDArray[np.float64]

_HEADING = re.compile(r"^(line|tie|random|l|t|d|b|s|p)\s*([0-9][\w.:\-]*)\s*$|^(line|tie|random)\b\s*(.*)$", re.IGNORECASE)
_SPACES = re.compile(r"[\s,]+")


@dataclass(frozen=True)
class LineData:
    """Records of lines.

    Attributes
    ----------
    channels : list of str
        Names of the columns; ``X``, ``Y``, ``C3``, ... without a comment that names them.
    values : ndarray, shape (records, channels)
        NaN where there is no value.
    line : list of str
        Name of the line of each record.
    is_tie : ndarray of bool, shape (records,)
    records : ndarray of int, shape (records,)
        Line of the file of each record, from 1.
    """

    channels: list[str]
    values: Reals
    line: list[str]
    is_tie: npt.NDArray[np.bool_]
    records: npt.NDArray[np.int64]

    def channel(self, name: str, option: str = "--channel") -> Reals:
        """A column by its name, in any case. Raises UsageError."""
        known = [channel.lower() for channel in self.channels]
        if known.count(name.lower()) != 1:
            raise UsageError(f"{option} {name}: expected one of the channels {', '.join(self.channels)}")
        return self.values[:, known.index(name.lower())]


def read_line_data(path: PathLike) -> LineData:
    """Read a file in Geosoft XYZ form.

    Raises
    ------
    FileError
        For a record with another number of columns, a word that is no number, or a file without a record.
    """
    names: list[str] = []
    comments: list[list[str]] = []
    rows: list[list[float]] = []
    lines: list[str] = []
    ties: list[bool] = []
    numbers: list[int] = []
    name, tie = "L0", False
    for number, text in enumerate(read_lines(path), 1):
        content = text.strip()
        if not content:
            continue
        if content[0] == "/":
            if not rows:
                comments.append(_SPACES.split(content.strip("/ \t")))
            continue
        heading = _HEADING.match(content)
        if heading:
            word, label = (heading[1] or heading[3]), (heading[2] or heading[4] or "")
            tie = word.lower() in ("tie", "t")
            name = ("T" if tie else "L") + label.strip().replace(" ", "_")
            continue
        rows.append(_record(path, number, content, len(rows[0]) if rows else 0))
        lines.append(name)
        ties.append(tie)
        numbers.append(number)
    if not rows:
        raise FileError(path, "expected a record, found none")
    names = next((words for words in reversed(comments) if len(words) == len(rows[0])), [])
    if not names:
        names = ["X", "Y", *(f"C{n}" for n in range(3, len(rows[0]) + 1))][: len(rows[0])]
    return LineData(names, np.array(rows), lines, np.array(ties, dtype=np.bool_), np.array(numbers, dtype=np.int64))


def _record(path: PathLike, number: int, content: str, columns: int) -> list[float]:
    words = [word for word in _SPACES.split(content) if word]
    if columns and len(words) != columns:
        raise FileError(path, f"expected {columns} columns as in the first record, found {len(words)}", line=number)
    values = []
    for word in words:
        value = math.nan if set(word) == {"*"} else parse_real(word)
        if value is None or math.isinf(value):
            raise FileError(path, f"expected a number or *, found {shown(word)}", line=number)
        values.append(value)
    return values


def table_of_lines(data: LineData, path: PathLike) -> CsvTable:
    """The records as a table of text, with a column ``line`` of the line names beside the channels."""
    pandas = require("pandas", "tables")
    texts = [["" if value != value else number_text(value) for value in column] for column in data.values.T.tolist()]
    columns = [*data.channels, "line"] if "line" not in data.channels else list(data.channels)
    if "line" not in data.channels:
        texts.append(list(data.line))
    frame = pandas.DataFrame(dict(enumerate(texts)), dtype=object)
    return CsvTable(path, columns, frame, data.records, int(data.records[-1]) + 1)


def thin_lines(x: Reals, y: Reals, line: list[str], distance: float) -> npt.NDArray[np.intp]:
    """Records to keep so that those of a line are at least a distance apart; the first of each line is kept.

    Examples
    --------
    >>> thin_lines(np.arange(6.0), np.zeros(6), ["a"] * 4 + ["b"] * 2, 2.0)
    array([0, 2, 4])
    """
    if not distance >= 0.0:
        raise UsageError(f"--every: expected a distance of 0 or more, found {distance:g}")
    kept: list[int] = []
    for number in range(len(x)):
        last = kept[-1] if kept else -1
        new_line = last < 0 or line[number] != line[last]
        if new_line or math.hypot(x[number] - x[last], y[number] - y[last]) >= distance:
            kept.append(number)
    return np.array(kept, dtype=np.intp)
