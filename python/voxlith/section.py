"""Vertical sections through a mesh: across an axis, or along a line between two points."""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .errors import UsageError
from .mesh import Mesh

Reals = npt.NDArray[np.float64]
Indices = npt.NDArray[np.intp]

_STRAIGHT = 0.01  # of the length: what stations of one line may be beside it
_SLIVER = 1.0e-9  # of the length: what the plane crosses for less is left out


@dataclass(frozen=True)
class Line:
    """Stations on one straight line.

    Attributes
    ----------
    axis : {"x", "y", ""}
        Coordinate along it; empty for an oblique line.
    distance : ndarray, shape (n,)
        That coordinate, or the distance from the first station, metres.
    start, direction : tuple of float
        Point at distance 0 of an oblique line, and the unit vector along it.
    """

    axis: str
    distance: Reals
    start: tuple[float, float]
    direction: tuple[float, float]


def straight_line(x: Reals, y: Reals) -> Line | None:
    """The line on which all stations stand; None when they do not stand on one."""
    if len(x) < 2 or not (np.isfinite(x).all() and np.isfinite(y).all()):
        return None
    dx, dy = x - x.mean(), y - y.mean()
    directions, spread, _ = np.linalg.svd(np.stack([dx, dy]), full_matrices=False)
    if spread[0] == 0.0 or spread[1] > _STRAIGHT * spread[0]:
        return None
    east, north = (float(value) for value in directions[:, 0])
    if abs(east) > 0.9999:
        return Line("x", x, (0.0, float(y.mean())), (1.0, 0.0))
    if abs(north) > 0.9999:
        return Line("y", y, (float(x.mean()), 0.0), (0.0, 1.0))
    sign = 1.0 if east >= 0.0 else -1.0
    east, north = sign * east, sign * north
    along = east * dx + north * dy
    first = float(along.min())
    start = (float(x.mean()) + first * east, float(y.mean()) + first * north)
    return Line("", along - first, start, (east, north))


@dataclass(frozen=True)
class Section:
    """A vertical plane through columns of cells.

    Attributes
    ----------
    axis : {"x", "y", ""}
        Coordinate along it; empty for a section along an oblique line.
    nodes : ndarray, shape (m + 1,)
        That coordinate, or the distance, where the plane enters and leaves columns.
    i, j : ndarray of int, shape (m,)
        Columns.
    across : tuple of float
        The coordinate across the plane, between the sides of the cells that it cuts.
    line : Line or None
        The oblique line.
    """

    axis: str
    nodes: Reals
    i: Indices
    j: Indices
    across: tuple[float, float]
    line: Line | None = None

    @property
    def middle(self) -> float:
        """The coordinate across the plane in the middle of the cells that it cuts; 0 of an oblique line."""
        return 0.5 * (self.across[0] + self.across[1])

    def along(self, x: Reals, y: Reals) -> tuple[Reals, Reals]:
        """Position of points along the plane, and their coordinate across it."""
        if self.line is None:
            return (x, y) if self.axis == "x" else (y, x)
        dx, dy = x - self.line.start[0], y - self.line.start[1]
        east, north = self.line.direction
        return dx * east + dy * north, dy * east - dx * north

    def points(self, along: Reals) -> tuple[Reals, Reals]:
        """Easting and northing of places along the plane."""
        if self.line is not None:
            (x, y), (east, north) = self.line.start, self.line.direction
            return x + along * east, y + along * north
        fixed = np.full(len(along), self.middle)
        return (along, fixed) if self.axis == "x" else (fixed, along)


def cell_of(nodes: Reals, value: float) -> int:
    """The interval of monotonic nodes that holds a value within them, from 0."""
    rising = nodes if nodes[-1] > nodes[0] else nodes[::-1]
    cell = min(max(int(np.searchsorted(rising, value, side="right")) - 1, 0), len(nodes) - 2)
    return cell if nodes[-1] > nodes[0] else len(nodes) - 2 - cell


def section_across(mesh: Mesh, normal: str, value: float, cells: tuple[int, int] | None = None) -> Section:
    """The section at an easting (`normal` x) or a northing (`normal` y).

    Parameters
    ----------
    mesh : Mesh
    normal : {"x", "y"}
    value : float
        Within the mesh.
    cells : tuple of 2 int, optional
        First and end cell along the section; all by default.
    """
    own, other = (mesh.x_nodes, mesh.y_nodes) if normal == "x" else (mesh.y_nodes, mesh.x_nodes)
    cell = cell_of(own, value)
    first, end = (0, len(other) - 1) if cells is None else cells
    along = np.arange(first, end)
    fixed = np.full(len(along), cell)
    i, j = (fixed, along) if normal == "x" else (along, fixed)
    return Section("y" if normal == "x" else "x", other[first: end + 1], i, j, (float(own[cell]), float(own[cell + 1])))


def section_along(mesh: Mesh, line: Line, low: float, high: float) -> Section | None:
    """The section along an oblique line between two distances, within the mesh; None when it misses the mesh."""
    length = high - low
    for start, slope, nodes in zip(line.start, line.direction, (mesh.x_nodes, mesh.y_nodes)):
        ends = sorted(((nodes[0] - start) / slope, (nodes[-1] - start) / slope))
        low, high = max(low, float(ends[0])), min(high, float(ends[1]))
    if not low < high:
        return None
    inner = np.concatenate([(nodes - start) / slope for start, slope, nodes in
                            zip(line.start, line.direction, (mesh.x_nodes, mesh.y_nodes))])
    nodes = np.unique(np.concatenate([[low, high], inner[(inner > low) & (inner < high)]]))
    nodes = nodes[np.append(True, np.diff(nodes) > _SLIVER * length)]
    middles = 0.5 * (nodes[1:] + nodes[:-1])
    x, y = line.start[0] + middles * line.direction[0], line.start[1] + middles * line.direction[1]
    i = np.array([cell_of(mesh.x_nodes, float(value)) for value in x], dtype=np.intp)
    j = np.array([cell_of(mesh.y_nodes, float(value)) for value in y], dtype=np.intp)
    half = 0.5 * math.hypot(float(mesh.x_widths[i].max()), float(mesh.y_widths[j].max()))
    return Section("", nodes, i, j, (-half, half), line)


def section_between(mesh: Mesh, start: tuple[float, float], end: tuple[float, float]) -> Section:
    """The section between two points; distances count from the first one.

    Raises
    ------
    UsageError
        For one point in place of two, and for a line beside the mesh.
    """
    east, north = end[0] - start[0], end[1] - start[1]
    length = math.hypot(east, north)
    if not 0.0 < length < math.inf:
        raise UsageError(f"section: expected two points, found {start[0]:g},{start[1]:g} and {end[0]:g},{end[1]:g}")
    # A line that is parallel to an axis but for rounding still crosses the nodes of the other one, far away.
    least = 1.0e-12
    direction = tuple(math.copysign(max(abs(part / length), least), part) for part in (east, north))
    line = Line("", np.array([0.0, length]), start, (direction[0], direction[1]))
    found = section_along(mesh, line, 0.0, length)
    if found is None:
        raise UsageError(f"section: the line from {start[0]:.12g},{start[1]:.12g} to {end[0]:.12g},{end[1]:.12g} lies beside the "
                         f"mesh, which has x {mesh.x_nodes[0]:.12g} to {mesh.x_nodes[-1]:.12g}, y {mesh.y_nodes[0]:.12g} to "
                         f"{mesh.y_nodes[-1]:.12g}")
    return found
