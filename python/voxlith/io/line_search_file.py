"""``voxlith.lsv``: two headings and, in files of other programs, rows of an integer and four numbers."""

from __future__ import annotations

import math

import numpy as np
import numpy.typing as npt

from ..errors import PathLike, UsageError
from .free_format import FreeFormat, Status
from .numbers import number_text
from .output import write_bytes
from .text_lines import LINE_WIDTH, expected, read_lines

HEADINGS = (" VoxLith Line Search Values", "")


def read_line_search_file(path: PathLike) -> npt.NDArray[np.float64]:
    """Read the rows of a line search file.

    Returns
    -------
    ndarray, shape (n, 5)
        The integer and the four numbers of each row that is not blank.

    Raises
    ------
    FileError
        When the file cannot be read, lacks its headings or has another row.
    """
    lines = read_lines(path)
    if len(lines) < len(HEADINGS):
        raise expected(path, len(lines) + 1, "two headings", None)
    rows = []
    for number, line in enumerate(lines[len(HEADINGS):], len(HEADINGS) + 1):
        if not line.strip(" "):
            continue
        with FreeFormat.of_text(line[:LINE_WIDTH]) as reader:
            row = [float(reader.integer(0)), *(reader.real(0.0) for _ in range(4))]
            if reader.status is not Status.GOOD:
                raise expected(path, number, "an integer and four numbers", line)
        rows.append(row)
    return np.array(rows).reshape(-1, 5)


def write_line_search_file(path: PathLike, rows: npt.ArrayLike) -> None:
    """Write rows of an integer and four numbers, shape (n, 5), below the headings.

    Raises UsageError for another shape and FileError when the file cannot be written.
    """
    table = np.asarray(rows, dtype=np.float64).reshape(-1, 5) if np.size(rows) else np.empty((0, 5))
    if table.size != np.size(rows) or not all(math.isfinite(row[0]) and row[0] == int(row[0]) for row in table):
        raise UsageError("line search values: expected rows of an integer and four numbers")
    lines = [*HEADINGS, *(" ".join([str(int(row[0])), *map(number_text, row[1:])]) for row in table.tolist())]
    write_bytes(path, ("\n".join(lines) + "\n").encode())
