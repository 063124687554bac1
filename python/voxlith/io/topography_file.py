"""Points of the surface in UBC form: their number (which may be left out), then x, y and elevation of each, one point a
line. A comment follows ``!``; blank lines are left out."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

from ..errors import PathLike, UsageError
from .numbers import number_text, parse_integer, parse_real
from .output import write_bytes
from .text_lines import expected, read_lines, without_comment, words_of

LARGEST_COORDINATE = 1.0e12


def read_topography_file(path: PathLike) -> npt.NDArray[np.float64]:
    """Read the points of a surface.

    Returns
    -------
    ndarray, shape (n, 3)
        x, y and elevation in metres; at least one point.

    Raises
    ------
    FileError
        When the count does not match or a line is no point with coordinates within 1e12.
    """
    points: list[tuple[float, ...]] = []
    count: int | None = None
    lines = read_lines(path)
    for number, line in enumerate(lines, 1):
        text = without_comment(line)
        words = words_of(text)
        if not words:
            continue
        if len(words) == 1 and not points and count is None:
            count = parse_integer(words[0])
            if count is None or count < 1:
                raise expected(path, number, "the number of points", text)
            continue
        if count is not None and len(points) == count:
            raise expected(path, number, f"the end of the file after {count} points", text)
        points.append(_point(path, number, words, text))
    if len(points) < (count or 1):
        raise expected(path, len(lines) + 1, f"x, y, elevation of point {len(points) + 1}", None)
    return np.array(points)


def _point(path: PathLike, number: int, words: list[str], text: str) -> tuple[float, ...]:
    values = [parse_real(word) for word in words]
    found = [value for value in values if value is not None and abs(value) <= LARGEST_COORDINATE]
    if len(words) != 3 or len(found) != 3:
        raise expected(path, number, "x, y, elevation within 1e12", text)
    return tuple(found)


def write_topography_file(path: PathLike, points: npt.ArrayLike) -> None:
    """Write the points of a surface, shape (n, 3), with the fewest digits that read back as the same numbers.

    Raises
    ------
    UsageError
        When there is no point, or a coordinate is not within 1e12.
    FileError
        When the file cannot be written.
    """
    rows = np.atleast_2d(np.asarray(points, dtype=np.float64))
    if rows.ndim != 2 or rows.shape[1] != 3 or not len(rows):
        raise UsageError(f"points: expected the shape (n, 3), found {np.shape(points)}")
    if not np.all(np.abs(rows) <= LARGEST_COORDINATE):
        raise UsageError("points: expected coordinates within 1e12")
    lines = [" ".join(map(number_text, row)) for row in rows.tolist()]
    write_bytes(path, ("\n".join([f"{len(rows)} ! points: x, y, elevation", *lines]) + "\n").encode())
