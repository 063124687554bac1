"""Grids of Tomofast-x: one line per cell with its bounds, its value or three components, and its indices.

The first line has the number of cells. A line is ``X1 X2 Y1 Y2 Z1 Z2 value i j k``; or the values stand in a file of their
own beside a grid file without them. z runs downwards. Indices count from 1 along x, y and z. Written files have x fastest.
"""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, shown
from .numbers import parse_integer, parse_real
from .output import open_output, read_bytes

Reals = npt.NDArray[np.float64]

_BOUNDS, _INDICES = 6, 3
_AT_ONCE = 1 << 14


@dataclass(frozen=True)
class TomofastGrid:
    """A tensor grid with values.

    Attributes
    ----------
    x_nodes, y_nodes, z_nodes : ndarray
        Cell edges, rising; z downwards, metres.
    values : ndarray, shape (nz, ny, nx, components)
        One or three components; none for a grid without values.
    """

    x_nodes: Reals
    y_nodes: Reals
    z_nodes: Reals
    values: Reals


def write_tomofast_file(path: PathLike, grid: TomofastGrid) -> None:
    """Write a model grid in one file, coordinates with 15 significant digits and values with nine. Raises FileError."""
    nx, ny, nz = (len(nodes) - 1 for nodes in (grid.x_nodes, grid.y_nodes, grid.z_nodes))
    values = grid.values.reshape(nz * ny * nx, -1)
    x, y, z = ([f"{low:.15g} {high:.15g}" for low, high in zip(nodes[:-1], nodes[1:])]
               for nodes in (grid.x_nodes, grid.y_nodes, grid.z_nodes))
    with open_output(path) as output:
        output.write(f"{nx * ny * nz}\n".encode())
        lines = []
        for n in range(nx * ny * nz):
            i, j, k = n % nx, n // nx % ny, n // (nx * ny)
            numbers = " ".join(f"{value:.9g}" for value in values[n].tolist())
            lines.append(f"{x[i]} {y[j]} {z[k]} {numbers} {i + 1} {j + 1} {k + 1}\n")
            if len(lines) == _AT_ONCE:
                output.write("".join(lines).encode())
                lines.clear()
        output.write("".join(lines).encode())


def read_tomofast_file(path: PathLike, values_path: PathLike | None = None) -> TomofastGrid:
    """Read a model grid, or a grid file and its file of values.

    Parameters
    ----------
    path : path
    values_path : path, optional
        Values in the order of the lines of the grid file, with or without a first line with their number.

    Raises
    ------
    FileError
        When a file cannot be read, or the cells are no tensor grid.
    """
    table, width = _table(path)
    components = width - _BOUNDS - _INDICES
    expected = (0,) if values_path is not None else (1, 3)
    if components not in expected:
        what = "X1 X2 Y1 Y2 Z1 Z2 i j k" if values_path is not None else "X1 X2 Y1 Y2 Z1 Z2, one or three values, i j k"
        raise FileError(path, f"expected lines {what}, found {width} numbers", line=2)
    indices = table[:, -_INDICES:]
    counts = indices.max(axis=0)
    whole = (indices == np.rint(indices)).all() and (indices >= 1).all() and float(np.prod(counts)) == len(table)
    if not whole:
        raise FileError(path, "expected indices i j k from 1 that number each cell of a grid once")
    i, j, k = (indices[:, axis].astype(np.intp) - 1 for axis in range(3))
    nx, ny, nz = (int(count) for count in counts)
    order = (k * ny + j) * nx + i
    if len(np.unique(order)) != len(table):
        raise FileError(path, "expected indices i j k from 1 that number each cell of a grid once")
    nodes = [_nodes(path, table[:, 2 * axis], table[:, 2 * axis + 1], index, count, name)
             for axis, (index, count, name) in enumerate(((i, nx, "X"), (j, ny, "Y"), (k, nz, "Z")))]
    given = table[:, _BOUNDS: _BOUNDS + components] if values_path is None else _values(values_path, len(table))
    values = np.empty((len(table), given.shape[1]))
    values[order] = given
    return TomofastGrid(nodes[0], nodes[1], nodes[2], values.reshape(nz, ny, nx, -1))


def _table(path: PathLike) -> tuple[Reals, int]:
    """Numbers of all lines after the count."""
    lines = read_bytes(path).decode("latin-1").split("\n")
    while lines and not lines[-1].strip():
        lines.pop()
    count = parse_integer(lines[0].strip()) if lines else None
    if count is None or count < 1:
        raise FileError(path, f"expected the number of cells, found {shown(lines[0] if lines else '')}", line=1)
    if len(lines) - 1 != count:
        raise FileError(path, f"expected {count} lines of cells, found {len(lines) - 1}", line=1)
    width = len(lines[1].split())
    return _numbers(path, lines[1:], width, 2), width


def _numbers(path: PathLike, lines: list[str], width: int, first: int) -> Reals:
    table = np.empty((len(lines), width))
    for number, line in enumerate(lines):
        values = [parse_real(word) for word in line.split()]
        if len(values) != width or any(value is None or not np.isfinite(value) for value in values):
            raise FileError(path, f"expected {width} numbers, found {shown(line)}", line=first + number)
        table[number] = values
    return table


def _values(path: PathLike, count: int) -> Reals:
    lines = [line for line in read_bytes(path).decode("latin-1").split("\n") if line.strip()]
    start = 1 if len(lines) == count + 1 and parse_integer(lines[0].strip()) == count else 0
    if len(lines) - start != count:
        raise FileError(path, f"expected {count} values, found {len(lines)} lines")
    width = len(lines[start].split())
    if width not in (1, 3):
        raise FileError(path, f"expected one or three values per line, found {shown(lines[start])}", line=start + 1)
    return _numbers(path, lines[start:], width, start + 1)


def _nodes(path: PathLike, low: Reals, high: Reals, index: npt.NDArray[np.intp], count: int, axis: str) -> Reals:
    """Cell edges of an axis; every cell must have those of its index."""
    nodes = np.full(count + 1, np.nan)
    nodes[index] = low
    nodes[count] = high[index == count - 1][0]
    slack = 1.0e-6 * float(np.abs(np.diff(nodes)).max())
    fits = np.abs(nodes[index] - low).max() <= slack and np.abs(nodes[index + 1] - high).max() <= slack
    if not fits or not (np.diff(nodes) > 0.0).all():
        raise FileError(path, f"expected cells of a tensor grid: {axis}1 and {axis}2 that rise with the index")
    return nodes
