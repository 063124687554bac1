"""Models small enough for a browser: cropped to the survey, and cells merged into blocks."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..mesh import Mesh
from ..model import Model
from ..survey import Survey

Reals = npt.NDArray[np.float64]

MOST_CELLS = 1_000_000
"""Cells of a model that a report shows by default."""


_MARGIN = 0.25  # around the stations, as a part of their extent


@dataclass(frozen=True)
class Window:
    """The part of a mesh that is shown, and how many of its cells along each axis become one.

    Attributes
    ----------
    x, y, z : slice
        Cells along each axis that are shown.
    factors : tuple of 3 int
        Cells per block along x, y and z.
    """

    x: slice
    y: slice
    z: slice
    factors: tuple[int, int, int]

    @property
    def merges(self) -> bool:
        """Whether cells are merged."""
        return max(self.factors) > 1

    def shown_mesh(self, mesh: Mesh) -> Mesh:
        """The mesh of the blocks."""
        return Mesh(*(_block_nodes(nodes, part, factor) for nodes, part, factor in
                      zip((mesh.x_nodes, mesh.y_nodes, mesh.z_nodes), (self.x, self.y, self.z), self.factors)))

    def note(self, mesh: Mesh) -> str:
        """What is left out or merged, in one sentence; empty when all cells are shown."""
        parts = []
        if (self.x, self.y, self.z) != (slice(0, mesh.nx), slice(0, mesh.ny), slice(0, mesh.nz)):
            shown = " x ".join(str(part.stop - part.start) for part in (self.x, self.y, self.z))
            parts.append(f"The report shows {shown} of {mesh.nx} x {mesh.ny} x {mesh.nz} cells; padding cells around the "
                         "survey and below it are left out.")
        if self.merges:
            parts.append(f"Blocks of {' x '.join(map(str, self.factors))} cells are shown as one, with the mean of their "
                         "active cells weighted by volume. Extremes in the tables are those of single cells.")
        return " ".join(parts)


def choose_window(mesh: Mesh, survey: Survey | None, most_cells: int = MOST_CELLS, *, whole_mesh: bool = False) -> Window:
    """Choose what to show of a mesh.

    Cells within the extent of the stations and a margin of a quarter of it on each side are shown, down to as far as the shown
    part is wide; then blocks are doubled along the axis with the smallest blocks until few enough are left.
    """
    parts = [slice(0, count) for count in (mesh.nx, mesh.ny, mesh.nz)]
    if survey is not None and survey.n_stations and not whole_mesh:
        extent = max(float(np.ptp(survey.x)), float(np.ptp(survey.y)))
        margin = _MARGIN * extent
        if margin > 0.0:
            parts[0] = _cells_between(mesh.x_nodes, float(survey.x.min()) - margin, float(survey.x.max()) + margin)
            parts[1] = _cells_between(mesh.y_nodes, float(survey.y.min()) - margin, float(survey.y.max()) + margin)
            deepest = float(mesh.z_nodes[0]) - (extent + 2.0 * margin)
            parts[2] = slice(0, max(int(np.searchsorted(-mesh.z_nodes, -deepest, side="left")), 1))
            parts[2] = slice(0, min(parts[2].stop, mesh.nz))
    factors = [1, 1, 1]
    widths = (mesh.x_widths, mesh.y_widths, mesh.z_widths)

    def blocks(axis: int) -> int:
        count: int = parts[axis].stop - parts[axis].start
        return -(-count // factors[axis])

    while blocks(0) * blocks(1) * blocks(2) > most_cells:
        sizes = [float(np.median(widths[axis][parts[axis]])) * factors[axis] if blocks(axis) > 1 else np.inf
                 for axis in range(3)]
        factors[int(np.argmin(sizes))] += 1
    return Window(parts[0], parts[1], parts[2], (factors[0], factors[1], factors[2]))


def shown_values(model: Model, window: Window) -> Reals:
    """Values of the blocks, shape (z, y, x); NaN where less than half of the volume of a block is active."""
    mesh = model.mesh
    cube = np.where(mesh.cube(model.shown), model.cube, np.nan)[window.z, window.x, window.y]
    if not window.merges:
        return np.ascontiguousarray(cube.transpose(0, 2, 1))
    known = ~np.isnan(cube)
    volume = (mesh.z_widths[window.z, None, None] * mesh.x_widths[None, window.x, None]
              * mesh.y_widths[None, None, window.y])
    fx, fy, fz = window.factors
    parts = [np.where(known, cube * volume, 0.0), np.where(known, volume, 0.0), volume]
    for axis, factor in ((0, fz), (1, fx), (2, fy)):
        parts = [np.add.reduceat(part, np.arange(0, part.shape[axis], factor), axis=axis) for part in parts]
    weighted, active, whole = parts
    with np.errstate(invalid="ignore", divide="ignore"):
        means = np.where(active >= 0.5 * whole, weighted / active, np.nan)
    return np.ascontiguousarray(means.transpose(0, 2, 1))


def _cells_between(nodes: Reals, low: float, high: float) -> slice:
    """Cells that touch an interval; all when it misses the axis."""
    first = max(int(np.searchsorted(nodes, low, side="right")) - 1, 0)
    last = min(int(np.searchsorted(nodes, high, side="left")), len(nodes) - 1)
    return slice(first, last) if first < last else slice(0, len(nodes) - 1)


def _block_nodes(nodes: Reals, part: slice, factor: int) -> Reals:
    within = nodes[part.start: part.stop + 1]
    return np.append(within[:-1:factor], within[-1])
