"""Line data of other programs: Geosoft XYZ, text with a row per record and headings ``LINE`` and ``TIE``.

Lines that begin with ``/`` are comments; the last one in front of the records with as many names as there are columns
names the channels. ``*`` stands for no value. Channels may hold text, such as dates.
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
from .numbers import parse_real
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
    words : list of list of str
        Text of each record; empty where there is no value.
    line : list of str
        Name of the line of each record.
    is_tie : ndarray of bool, shape (records,)
    records : ndarray of int, shape (records,)
        Line of the file of each record, from 1.
    """

    channels: list[str]
    words: list[list[str]]
    line: list[str]
    is_tie: npt.NDArray[np.bool_]
    records: npt.NDArray[np.int64]


def read_line_data(path: PathLike) -> LineData:
    """Read a file in Geosoft XYZ form.

    Raises
    ------
    FileError
        For a record with another number of columns, a line that begins with text that is neither a heading nor a
        number, or a file without a record.
    """
    names: list[str] = []
    comments: list[list[str]] = []
    rows: list[list[str]] = []
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
    columns = len(rows[0])
    names = next((words for words in reversed(comments) if len(words) == columns and all(map(_is_name, words))), [])
    if len({name.lower() for name in names}) < columns:
        names = ["X", "Y", *(f"C{n}" for n in range(3, columns + 1))][:columns]
    return LineData(names, rows, lines, np.array(ties, dtype=np.bool_), np.array(numbers, dtype=np.int64))


def _is_name(word: str) -> bool:
    """Whether a word of a comment may name a channel: it is no rule, and no number."""
    return any(character.isalpha() for character in word) and parse_real(word) is None


def _record(path: PathLike, number: int, content: str, columns: int) -> list[str]:
    words = content.split()
    # Commas separate fields only where no space does: elsewhere they are decimal commas, or follow a field.
    words = [word.strip() for word in content.split(",")] if len(words) == 1 else [word.rstrip(",") for word in words]
    if columns and len(words) != columns:
        raise FileError(path, f"expected {columns} columns as in the first record, found {len(words)}", line=number)
    words = ["" if set(word) == {"*"} else word for word in words]
    if words[0] and parse_real(words[0].replace(",", ".", 1)) is None and not words[0][0].isdigit():
        raise FileError(path, f"expected a heading, a number or *, found {shown(words[0])}", line=number)
    return words


def table_of_lines(data: LineData, path: PathLike, decimal_comma: bool = False) -> CsvTable:
    """The records as a table of text, with a column ``line`` of the line names beside the channels."""
    pandas = require("pandas", "tables")
    columns = list(data.channels)
    texts = [list(column) for column in zip(*data.words)]
    if "line" not in columns:
        columns.append("line")
        texts.append(list(data.line))
    frame = pandas.DataFrame(dict(enumerate(texts)), dtype=object)
    return CsvTable(path, columns, frame, data.records, int(data.records[-1]) + 1, decimal_comma)


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
    last: dict[str, int] = {}
    for number, name in enumerate(line):
        before = last.get(name, -1)
        if before < 0 or math.hypot(x[number] - x[before], y[number] - y[before]) >= distance:
            kept.append(number)
            last[name] = number
    return np.array(kept, dtype=np.intp)
