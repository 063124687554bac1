"""``voxlith.aux``: the table of iterations, and the row of the starting model in front of it.

Columns have fixed widths. A row that a running program has not ended yet counts as not there. The row of the starting
model shows the model norm without its root; here it has its root like all others.
"""

from __future__ import annotations

import math
from collections.abc import Iterable
from dataclasses import dataclass

from ..errors import FileError, PathLike, shown
from .numbers import fixed_field, integer_field, parse_integer, parse_real
from .output import read_bytes, write_bytes

HEADINGS = (" VoxLith Inversion progress", "")
TABLE_HEADING = "   Iterations    RMS_Misfit    Model_Norm    Total_Norm      Time"
_SHORTEST_ROW = 54


@dataclass(frozen=True)
class IterationRow:
    """One row of the table.

    Attributes
    ----------
    iteration : int
        Number of the iteration, counted on by continued runs; 0 the starting model.
    misfit : float
        RMS misfit: the root of the sum of squared normalised residuals over the number of stations.
    model_norm : float
        Root of the model norm.
    total : float
        Root of misfit squared plus trade-off times the model norm squared.
    seconds : float
        Duration of the iteration; 0 in the first row.
    steps : int or None
        Accepted steps of a conjugate-gradient iteration; None in all others.
    """

    iteration: int
    misfit: float
    model_norm: float
    total: float
    seconds: float = 0.0
    steps: int | None = None


def read_progress_file(path: PathLike, *, strict: bool = True) -> list[IterationRow]:
    """Read the table of iterations.

    Parameters
    ----------
    path : path
    strict : bool
        Whether a line that is no row is an error; otherwise it is left out.

    Returns
    -------
    list of IterationRow
        Empty when the file holds its headings only.

    Raises
    ------
    FileError
        When the file cannot be read or, if strict, a line is no row of the table.
    """
    rows, _ = rows_of(read_bytes(path), path, strict=strict)
    return rows


def rows_of(content: bytes, path: PathLike, *, first_line: int = 1,
            strict: bool = True) -> tuple[list[IterationRow], int]:
    """Rows of complete lines of the table.

    Parameters
    ----------
    content : bytes
        The file from the beginning of line `first_line` on.

    Returns
    -------
    rows : list of IterationRow
    taken : int
        Bytes of `content` in complete lines.
    """
    taken = content.rfind(b"\n") + 1
    rows = []
    for number, line in enumerate(content[:taken].decode("latin-1").split("\n")[:-1], first_line):
        text = line.rstrip("\r")
        if number <= len(HEADINGS) + 1 or not text.strip() or "Iterations" in text or _was_cut(text):
            continue
        row = _row_of(text)
        if row is not None:
            rows.append(row)
        elif strict:
            raise FileError(path, f"expected a row of the table of iterations, found {shown(text)}", line=number)
    return rows, taken


def _was_cut(text: str) -> bool:
    """Whether a run was stopped while it wrote this row, and a later one continued after it."""
    return len(text) < _SHORTEST_ROW and text[1:12].strip().isdigit()


def _row_of(text: str) -> IterationRow | None:
    iteration = parse_integer(text[1:12].strip())
    numbers = [_printed(text[first: first + 14]) for first in (12, 26, 40)]
    seconds = _printed(text[54:64]) if text[54:64].strip() else 0.0
    steps = parse_integer(text[64:68].strip()) if text.rstrip().endswith("+") else None
    if iteration is None or seconds is None or (text[64:].strip() and steps is None):
        return None
    misfit, norm, total = numbers
    if misfit is None or norm is None or total is None:
        return None
    if not text[54:].strip():
        norm = math.sqrt(norm) if norm >= 0.0 else math.nan
    return IterationRow(iteration, misfit, norm, total, seconds, steps)


def _printed(text: str) -> float | None:
    """A field as a number; not a number where asterisks stand for one too wide."""
    return math.nan if "*" in text else parse_real(text.strip())


def write_progress_file(path: PathLike, rows: Iterable[IterationRow]) -> None:
    """Write a table of iterations, the first row without a time being that of the starting model.

    Raises FileError when the file cannot be written.
    """
    lines = [*HEADINGS, TABLE_HEADING]
    for index, row in enumerate(rows):
        start = index == 0 and row.iteration == 0
        norm = row.model_norm**2 if start else row.model_norm
        text = f"    {integer_field(row.iteration, 8)}"
        text += "".join(fixed_field(value, 14, 4) for value in (row.misfit, norm, row.total))
        if not start:
            text += fixed_field(row.seconds, 10, 1)
        if row.steps is not None:
            text += integer_field(row.steps, 4) + "+"
        lines.append(text)
    write_bytes(path, ("\n".join(lines) + "\n").encode())
