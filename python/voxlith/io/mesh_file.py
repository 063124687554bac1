"""UBC tensor mesh.

Three counts (cells to the east, to the north, downwards), easting, northing and elevation of the top south-west corner,
then the widths along each axis, from west to east, from south to north, from the top down.

``n*width`` repeats a width; a comment follows ``!``; line ends have no meaning.
"""

from __future__ import annotations

import math
from collections.abc import Iterator
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, UsageError
from .numbers import number_text, parse_integer, parse_real
from .output import write_bytes
from .text_lines import expected, read_lines, without_comment, words_of

Reals = npt.NDArray[np.float64]

MOST_CELLS = 2**31 - 1
MOST_CELLS_OF_AXIS = 10_000_000
_LINE_LENGTH = 100


@dataclass(frozen=True)
class MeshFile:
    """Contents of a mesh file, in metres.

    Attributes
    ----------
    west, south, top : float
        Easting, northing and elevation of the top south-west corner.
    east_widths : ndarray, shape (nx,)
        Widths from west to east.
    north_widths : ndarray, shape (ny,)
        Widths from south to north.
    down_widths : ndarray, shape (nz,)
        Widths from the top down.
    """

    west: float
    south: float
    top: float
    east_widths: Reals
    north_widths: Reals
    down_widths: Reals


class _Words:
    """The words of the file one by one, with the line of the last one."""

    def __init__(self, path: PathLike) -> None:
        self.path = path
        self.line = 1
        self._words = self._all_words(read_lines(path))

    def _all_words(self, lines: list[str]) -> Iterator[str]:
        for self.line, line in enumerate(lines, 1):
            yield from words_of(without_comment(line))

    def next(self, what: str) -> str:
        word = next(self._words, None)
        if word is None:
            raise expected(self.path, self.line, what, None)
        return word

    def number(self, what: str) -> float:
        word = self.next(what)
        value = parse_real(word)
        if value is None or not math.isfinite(value):
            raise expected(self.path, self.line, what, word)
        return value

    def count(self, what: str) -> int:
        word = self.next(what)
        count = parse_integer(word)
        if count is None or not 1 <= count <= MOST_CELLS_OF_AXIS:
            raise expected(self.path, self.line, f"{what}, 1 to {MOST_CELLS_OF_AXIS}", word)
        return count

    def end(self) -> None:
        word = next(self._words, None)
        if word is not None:
            raise expected(self.path, self.line, "the end of the file", word)


def _widths(words: _Words, count: int, axis: str) -> Reals:
    what = f"{count} cell widths above 0 {axis}"
    widths = np.empty(count)
    done = 0
    while done < count:
        word = words.next(what)
        repeat, star, value = word.rpartition("*")
        repeats = parse_integer(repeat) if star else 1
        width = parse_real(value)
        if repeats is None or width is None or repeats < 1 or not 0.0 < width < math.inf:
            raise expected(words.path, words.line, what, word)
        if repeats > count - done:
            raise expected(words.path, words.line, f"{count - done} more cell widths {axis}", word)
        widths[done: done + repeats] = width
        done += repeats
    return widths


def nodes_of(first: float, widths: Reals) -> Reals:
    """Nodes from the first one on, summed one by one.

    Parameters
    ----------
    first : float
    widths : ndarray, shape (n,)

    Returns
    -------
    ndarray, shape (n + 1,)

    >>> nodes_of(10.0, np.array([1.0, 2.0]))
    array([10., 11., 13.])
    """
    return np.cumsum(np.concatenate((np.array([first]), widths)))


def read_mesh_file(path: PathLike) -> MeshFile:
    """Read a mesh file.

    Raises
    ------
    FileError
        For anything but a whole mesh of at most 2147483647 cells whose widths are above 0 and move the nodes.
    """
    words = _Words(path)
    counts = [words.count(f"the number of cells {axis}") for axis in ("to the east", "to the north", "downwards")]
    if math.prod(counts) > MOST_CELLS:
        raise FileError(path, f"expected at most {MOST_CELLS} cells, found {' x '.join(map(str, counts))}",
                        line=words.line)
    corner = [words.number(f"the {what} of the top south-west corner") for what in ("easting", "northing", "elevation")]
    widths = []
    for count, first, axis in zip(counts, corner, ("to the east", "to the north", "downwards")):
        widths.append(_widths(words, count, axis))
        nodes = nodes_of(-first if axis == "downwards" else first, widths[-1])
        if not np.all(np.diff(nodes) > 0.0) or not math.isfinite(nodes[-1]):
            raise FileError(path, f"expected cell widths {axis} that move the nodes", line=words.line)
    words.end()
    return MeshFile(corner[0], corner[1], corner[2], *widths)


def write_mesh_file(path: PathLike, mesh: MeshFile) -> None:
    """Write a mesh file, with the fewest digits that read back as the same numbers, equal widths as ``n*width``.

    Raises
    ------
    UsageError
        When a width is not above 0 or a number not finite.
    FileError
        When the file cannot be written.
    """
    axes = (mesh.east_widths, mesh.north_widths, mesh.down_widths)
    corner = (mesh.west, mesh.south, mesh.top)
    if not all(len(widths) and np.all(widths > 0.0) and np.all(np.isfinite(widths)) for widths in axes):
        raise UsageError("mesh: expected finite widths above 0 along each axis")
    if not all(map(math.isfinite, corner)):
        raise UsageError("mesh: expected a finite corner")
    counts = " ".join(str(len(widths)) for widths in axes)
    text = f"{counts} ! cells to the east, to the north, downwards\n"
    text += " ".join(map(number_text, corner)) + " ! top south-west corner: easting, northing, elevation\n"
    write_bytes(path, (text + "".join(map(_widths_text, axes))).encode())


def _widths_text(widths: Reals) -> str:
    starts = np.flatnonzero(np.concatenate(([True], widths[1:] != widths[:-1])))
    lines, line = [], ""
    for start, end in zip(starts, [*starts[1:], len(widths)]):
        word = number_text(float(widths[start]))
        word = f"{end - start}*{word}" if end - start > 1 else word
        if line and len(line) + 1 + len(word) > _LINE_LENGTH:
            lines.append(line)
            line = ""
        line += f" {word}" if line else word
    return "\n".join([*lines, line]) + "\n"
