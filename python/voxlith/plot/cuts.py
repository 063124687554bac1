"""Which part of a mesh a picture shows, and where planes cut it."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Literal

import numpy as np
import numpy.typing as npt

from ..errors import UsageError
from ..mesh import Mesh
from ..model import Model
from ..section import Section, section_along, straight_line
from ..survey import Survey
from .lengths import metres

Reals = npt.NDArray[np.float64]
At = tuple[float, float, float] | Literal["peak", "largest", "middle"]

_ALIKE = 1.05  # cells of the core are at most so many times as wide as the widest one below the stations
_CORE = 1.5  # without stations: times as wide as the narrowest
_BEYOND = 0.02  # of its length: what a section along a profile shows beyond the stations


@dataclass(frozen=True)
class Window:
    """Cells that are shown: first and end (one past the last) of each axis, counted from 0."""

    x: tuple[int, int]
    y: tuple[int, int]
    z: tuple[int, int]

    def nodes(self, mesh: Mesh) -> tuple[Reals, Reals, Reals]:
        """Nodes of the shown cells."""
        return (mesh.x_nodes[self.x[0]: self.x[1] + 1], mesh.y_nodes[self.y[0]: self.y[1] + 1],
                mesh.z_nodes[self.z[0]: self.z[1] + 1])

    def part(self, cube: Reals) -> Reals:
        """The shown part of an array of shape (nz, nx, ny)."""
        return cube[self.z[0]: self.z[1], self.x[0]: self.x[1], self.y[0]: self.y[1]]


def stations_near(section: Section, survey: Survey) -> tuple[Reals, Reals]:
    """Position along a section and elevation of the stations within the cells that it cuts, or within half the usual
    distance between stations."""
    along, off = section.along(survey.x, survey.y)
    half = max(0.5 * (section.across[1] - section.across[0]), 0.5 * _usual_distance(survey))
    near = np.abs(off - section.middle) <= half
    return along[near], survey.elevation[near]


def section_title(section: Section) -> str:
    """What a picture says of a section."""
    if section.line is not None:
        return "Section below the profile"
    west, east = section.across
    normal = "y" if section.axis == "x" else "x"
    return f"Section at {normal} {metres(west, east - west)} to {metres(east, east - west)} m"


def _usual_distance(survey: Survey) -> float:
    """Distance between stations that cover their extent evenly; 0 for those on one line."""
    if not survey.n_stations:
        return 0.0
    area = float(np.ptp(survey.x)) * float(np.ptp(survey.y))
    return math.sqrt(area / survey.n_stations) if np.isfinite(area) else 0.0


def shown_window(mesh: Mesh, survey: Survey | None, whole: bool) -> Window:
    """The cells to show: all of them, or those below the stations with their like, without padding.

    No cell that lies within the extent of the stations is left out. Layers deeper than the shown part is wide are.
    """
    if whole:
        return Window((0, mesh.nx), (0, mesh.ny), (0, mesh.nz))
    x = _core(mesh.x_nodes, None if survey is None else survey.x)
    y = _core(mesh.y_nodes, None if survey is None else survey.y)
    reach = max(mesh.x_nodes[x[1]] - mesh.x_nodes[x[0]], mesh.y_nodes[y[1]] - mesh.y_nodes[y[0]])
    depth = mesh.z_nodes[0] - mesh.z_nodes
    return Window(x, y, (0, max(1, int(np.searchsorted(depth, reach * 1.001, side="right")) - 1)))


def _core(nodes: Reals, stations: Reals | None) -> tuple[int, int]:
    """First and end cell of an axis."""
    widths = np.diff(nodes)
    inside = np.zeros(0) if stations is None else stations[(stations >= nodes[0]) & (stations <= nodes[-1])]
    if not len(inside):
        core = np.flatnonzero(widths <= _CORE * widths.min())
        return int(core[0]), int(core[-1]) + 1
    first = min(max(int(np.searchsorted(nodes, inside.min(), side="right")) - 1, 0), len(widths) - 1)
    end = min(max(int(np.searchsorted(nodes, inside.max(), side="left")), first + 1), len(widths))
    widest = _ALIKE * widths[first:end].max()
    while first > 0 and widths[first - 1] <= widest:
        first -= 1
    while end < len(widths) and widths[end] <= widest:
        end += 1
    return first, end


def station_window(mesh: Mesh, survey: Survey | None, window: Window) -> Window:
    """The shown cells within the stations' extent; the whole window without stations over it."""
    if survey is None:
        return window
    ranges = []
    for nodes, values, (first, end) in ((mesh.x_nodes, survey.x, window.x), (mesh.y_nodes, survey.y, window.y)):
        low = max(int(np.searchsorted(nodes, np.nanmin(values), side="right")) - 1, first)
        high = min(max(int(np.searchsorted(nodes, np.nanmax(values), side="left")), low + 1), end)
        if low >= high:
            return window
        ranges.append((low, high))
    return Window(ranges[0], ranges[1], window.z)


def meeting_point(model: Model, survey: Survey | None, window: Window, at: At) -> tuple[float, float, float]:
    """Where the planes of the picture meet: easting, northing, elevation.

    ``"peak"``: the cell of :func:`peak_cell` below the stations; of a uniform model, their middle.
    ``"largest"``: the cell of the largest magnitude below the stations.
    ``"middle"``: the middle of the stations' extent, in the layer of the peak.

    Raises
    ------
    UsageError
        For a point outside the mesh, and when no cell has a value.
    """
    mesh = model.mesh
    if at not in ("peak", "largest", "middle") and (isinstance(at, str) or len(at) != 3):
        raise UsageError(f"at {at}: expected peak, largest, middle, or easting, northing and elevation of a point")
    if not isinstance(at, str):
        for axis, nodes, value in zip(("x", "y", "elevation"), (mesh.x_nodes, mesh.y_nodes, mesh.z_nodes), at):
            low, high = float(nodes.min()), float(nodes.max())
            if not low <= value <= high:
                raise UsageError(f"{axis} {metres(value)} lies outside the mesh, {metres(low)} to {metres(high)}")
        return at
    below = station_window(mesh, survey, window)
    magnitude = np.abs(below.part(shown_cube(model)))
    if not np.isfinite(magnitude).any():
        below = window
        magnitude = np.abs(below.part(shown_cube(model)))
    if not np.isfinite(magnitude).any():
        raise UsageError("no cell of the model has a value")
    k, i, j = _cell_of(np.nanargmax(magnitude), magnitude) if at == "largest" else peak_cell(magnitude)
    x, y = float(mesh.x_centres[below.x[0] + i]), float(mesh.y_centres[below.y[0] + j])
    if at == "middle" or (at == "peak" and np.nanmax(magnitude) == np.nanmin(magnitude)):
        x = _middle(mesh.x_nodes, None if survey is None else survey.x, below.x)
        y = _middle(mesh.y_nodes, None if survey is None else survey.y, below.y)
    return x, y, float(mesh.z_centres[below.z[0] + k])


def peak_cell(magnitude: Reals) -> tuple[int, int, int]:
    """Layer, column to the east and column to the north, from 0, of the largest magnitude that does not go on growing downwards.

    The data hardly see the deepest layers, and a model that grows to the bottom of the mesh has its largest value in
    the last one. So a value counts where the cell below it is smaller or has none; without such a cell, every value.

    Parameters
    ----------
    magnitude : ndarray, shape (nz, nx, ny)
        NaN in cells without a value; not in all of them.
    """
    known = np.nan_to_num(magnitude, nan=-1.0)
    peaks = known[:-1] * (known[:-1] > known[1:])
    largest = peaks if len(peaks) and peaks.max() > 0.0 else known
    return _cell_of(np.argmax(largest), largest)


def _cell_of(number: np.intp, cube: Reals) -> tuple[int, int, int]:
    k, i, j = (int(n) for n in np.unravel_index(int(number), cube.shape))
    return k, i, j


def _middle(nodes: Reals, stations: Reals | None, cells: tuple[int, int]) -> float:
    low, high = float(nodes[cells[0]]), float(nodes[cells[1]])
    if stations is None:
        return 0.5 * (low + high)
    return min(max(0.5 * float(np.nanmin(stations) + np.nanmax(stations)), low), high)


def shown_cube(model: Model) -> Reals:
    """Values of shape (nz, nx, ny); NaN in cells that are inactive or have no value."""
    cube: Reals = model.mesh.cube(np.where(model.shown, model.values, np.nan))
    return cube


def section_below(mesh: Mesh, survey: Survey) -> Section | None:
    """The section below stations on one oblique line; None for other surveys."""
    line = straight_line(survey.x, survey.y)
    if line is None or line.axis:
        return None
    length = float(line.distance.max())
    return section_along(mesh, line, -_BEYOND * length, (1.0 + _BEYOND) * length)
