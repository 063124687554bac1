"""A padded mesh below the stations of a survey.

The core is covered by cells of one size, and layers of one thickness or of growing ones. Padding cells that grow outwards
surround the core on the sides and below. They absorb the effect of sources outside the survey.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .errors import UsageError
from .io.mesh_file import nodes_of
from .io.numbers import number_text
from .mesh import Mesh

Reals = npt.NDArray[np.float64]
Runs = list[tuple[float, int]]

MOST_CELLS = 268435455
"""Cells of a mesh whose rows, 8 bytes per cell, stay below 2 GB: what a sensitivity file can have."""

_SLACK = 1.0e-9  # a length of ten widths and a rounding error is ten cells
_MOST_GROWING = 100000


@dataclass(frozen=True)
class Extent:
    """From `least` to `most` along an axis, metres."""

    least: float
    most: float

    @property
    def length(self) -> float:
        """Metres."""
        return self.most - self.least


@dataclass(frozen=True)
class Padding:
    """Cells around the core.

    Attributes
    ----------
    factor : float
        Each cell is so many times as wide as the last, 1 or more.
    distance : float
        What the cells cover at least, metres.
    cells : int or None
        Their number, in place of a distance.
    """

    factor: float = 1.3
    distance: float = 0.0
    cells: int | None = None


@dataclass(frozen=True)
class MeshPlan:
    """What a mesh is to be.

    Attributes
    ----------
    east, north : Extent
        What the core covers at least.
    top : float
        Elevation of the top, metres.
    depth : float
        Depth of the core below the top, metres.
    cell : tuple of 3 float
        Size of the core's cells to the east, to the north and downwards, metres.
    layer_factor : float
        Each layer of the core is so many times as thick as the one above, 1 or more.
    sides, below : Padding
    """

    east: Extent
    north: Extent
    top: float
    depth: float
    cell: tuple[float, float, float]
    layer_factor: float = 1.0
    sides: Padding = Padding()
    below: Padding = Padding()


@dataclass(frozen=True)
class PlannedMesh:
    """A mesh and its core.

    Attributes
    ----------
    mesh : Mesh
    core_cells : tuple of 3 int
        Cells of the core to the east, to the north and downwards.
    core_east, core_north, core_elevation : Extent
        What the core covers.
    """

    mesh: Mesh
    core_cells: tuple[int, int, int]
    core_east: Extent
    core_north: Extent
    core_elevation: Extent


def plan_mesh(plan: MeshPlan) -> PlannedMesh:
    """The mesh of a plan.

    Raises
    ------
    UsageError
        When it would have more than 268435455 cells, or cells that do not move the nodes. The number is known before
        memory is taken.

    Examples
    --------
    >>> plan = MeshPlan(Extent(0.0, 100.0), Extent(0.0, 50.0), 10.0, 20.0, (50.0, 50.0, 10.0), below=Padding(2.0, 50.0))
    >>> planned = plan_mesh(plan)
    >>> planned.mesh.z_widths
    array([10., 10., 20., 40.])
    >>> planned.core_cells
    (2, 1, 2)
    """
    sides = [_side(extent, cell, plan.sides, axis) for extent, cell, axis in
             ((plan.east, plan.cell[0], "to the east"), (plan.north, plan.cell[1], "to the north"))]
    layers = _layers(plan)
    below = _growing(plan.below, layers[-1][0], "downwards")
    axes: list[tuple[Runs, str]] = [(sides[0][0], "to the east"), (sides[1][0], "to the north"),
                                    (layers + below, "downwards")]
    counts = [sum(count for _, count in runs) for runs, _ in axes]
    if math.prod(counts) > MOST_CELLS:
        raise _too_many(" x ".join(map(str, counts)))
    widths = [_widths(runs) for runs, _ in axes]
    starts = [_start(side[1], side[2]) for side in sides] + [0.0 - plan.top]
    for start, values, (_, axis) in zip(starts, widths, axes):
        _check_nodes(start, values, axis)
    mesh = Mesh.from_widths((starts[0], starts[1], plan.top), *widths)
    core_depth = float(np.cumsum(_widths(layers))[-1])
    return PlannedMesh(mesh, (sides[0][3], sides[1][3], sum(count for _, count in layers)), sides[0][1], sides[1][1],
                       Extent(plan.top - core_depth, plan.top))


def plain_coordinate(value: float) -> float:
    """A coordinate with 12 significant digits, as people write it.

    >>> plain_coordinate(0.1 + 0.2)
    0.3
    """
    return float(f"{value:.12g}")


def _too_many(found: str) -> UsageError:
    return UsageError(f"the mesh would have too many cells, {found}: expected at most {MOST_CELLS} in all; larger cells "
                      "or less depth or padding are needed")


def _side(extent: Extent, cell: float, padding: Padding, axis: str) -> tuple[Runs, Extent, Runs, int]:
    """Widths along a horizontal axis, the core, the padding of one side from the core outwards, cells of the core."""
    count = _cells_for(extent.length, cell, axis)
    outwards = _growing(padding, cell, axis)
    length = count * cell
    least = extent.least - 0.5 * (length - extent.length)
    return [*reversed(outwards), (cell, count), *outwards], Extent(least, least + length), outwards, count


def _start(core: Extent, outwards: Runs) -> float:
    covered = np.cumsum(_widths(outwards))
    return plain_coordinate(core.least - (float(covered[-1]) if len(covered) else 0.0))


def _cells_for(length: float, width: float, axis: str) -> int:
    cells = length / width if length < 1.0e300 * width else math.inf
    if not cells <= MOST_CELLS:
        raise _too_many(f"{cells:.3g} {axis}")
    return max(1, math.ceil(cells - _SLACK))


def _layers(plan: MeshPlan) -> Runs:
    first = plan.cell[2]
    if plan.layer_factor == 1.0:
        return [(first, _cells_for(plan.depth, first, "downwards"))]
    rest = Padding(plan.layer_factor, plan.depth - first * (1.0 + _SLACK))
    return [(first, 1), *_growing(rest, first, "downwards")]


def _growing(padding: Padding, innermost: float, axis: str) -> Runs:
    """Cells that grow from the core outwards, as (width, count)."""
    runs: Runs = []
    width, covered, done = innermost, 0.0, 0
    while done < padding.cells if padding.cells is not None else covered < padding.distance:
        wider = innermost if padding.factor == 1.0 else _rounded(width * padding.factor)
        if wider == width:  # from here on all cells are alike
            missing = padding.distance - covered
            count = padding.cells - done if padding.cells is not None else _cells_for(missing, width, axis)
            if count > MOST_CELLS:
                raise _too_many(f"{count} {axis}")
            return [*runs, (width, count)]
        width = wider
        covered += width
        done += 1
        runs.append((width, 1))
        if done > _MOST_GROWING:
            raise _too_many(f"more than {done} {axis}")
    return runs


def _rounded(width: float) -> float:
    """A width with four significant digits, as a person would write it."""
    if not 0.0 < width < math.inf:
        raise UsageError("the padding cells grow beyond what can be written: expected a smaller factor or fewer cells")
    scale = math.pow(10.0, 3.0 - math.floor(math.log10(width)))
    rounded = math.floor(width * scale + 0.5) / scale
    return rounded if 0.0 < rounded < math.inf else width


def _widths(runs: Sequence[tuple[float, int]]) -> Reals:
    return np.repeat([width for width, _ in runs], [count for _, count in runs]).astype(np.float64)


def _check_nodes(start: float, widths: Reals, axis: str) -> None:
    """The nodes that readers make of the numbers must rise."""
    nodes = nodes_of(start, widths)
    bad = np.flatnonzero(~(np.diff(nodes) > 0.0) | ~np.isfinite(nodes[1:]))
    if len(bad):
        raise UsageError(f"a cell of width {number_text(float(widths[bad[0]]))} {axis} does not move the node at "
                         f"{number_text(float(nodes[bad[0]]))}")


def far_station(x: Reals, y: Reals) -> int | None:
    """A station that lies so far from the others that its coordinates may be wrong.

    Parameters
    ----------
    x, y : ndarray, shape (n,)
        Metres.

    Returns
    -------
    int or None
        Index of the station farthest from the median, when it is more than ten times as far away as nine tenths of all
        stations are.

    Examples
    --------
    >>> line = np.arange(21.0)
    >>> far_station(line, 0.0 * line)
    >>> far_station(np.where(line == 7.0, 5000.0, line), 0.0 * line)
    7
    """
    if len(x) < 10:
        return None
    distance = np.hypot(x - np.median(x), y - np.median(y))
    farthest = int(np.argmax(distance))
    return farthest if distance[farthest] > 10.0 * float(np.quantile(distance, 0.9)) else None
