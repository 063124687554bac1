"""Checks of the cells above the terrain: whether it was forgotten, differs between files, or leaves cells free."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..errors import FileError
from ..mesh import Mesh
from ..packages import require
from ..run import Run
from ..sensitivity import common_inactive_cells
from .findings import Finding, named

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

_MUCH_RELIEF = 2.0  # layers that the stations rise above the lowest one
_TERRAIN = "give the terrain with --topography to mesh and mtx"


def check_ground(stations: Reals | None, mesh: Mesh, inactive: Mask, names: Sequence[str]) -> list[Finding]:
    """Whether stations lie deep in active cells, or rise over a relief that no cell follows, as without a terrain.

    Stations in boreholes are left out: those whose nearest neighbour is above or below them.

    Parameters
    ----------
    stations : ndarray, shape (n, 3), or None
        x, y, elevation; None where a file does not hold them.
    mesh : Mesh
    inactive : ndarray of bool, shape (cells,)
    names : sequence of str
        Of the stations.
    """
    if stations is None or inactive.all():
        return []
    above = ~_in_boreholes(stations)
    if not above.any():
        return []
    i = np.searchsorted(mesh.x_nodes[1:-1], stations[:, 0])
    j = np.searchsorted(mesh.y_nodes[1:-1], stations[:, 1])
    first = np.argmin(mesh.cube(inactive), axis=0)[i, j]
    # The middle of a column decides which cells are inactive; at its sides a slope is lower by as much as this.
    slope = 0.5 * np.hypot(mesh.x_widths[i], mesh.y_widths[j]) if inactive.any() else 0.0
    depth = mesh.z_nodes[first] - stations[:, 2]
    deep = above & (depth > mesh.z_widths[first] + slope)
    if deep.any():
        remedy = "use the terrain of the stations, with elevations of one datum" if inactive.any() else _TERRAIN
        count = count_text(np.count_nonzero(deep), "station")
        return [Finding("warning", "in-active-cells", f"{count} more than one cell below the top of the active cells, the "
                        f"deepest by {depth[deep].max():.4g} m; cells in the air would be part of the model", remedy,
                        named(names, deep))]
    relief = float(np.ptp(stations[above, 2]))
    if not inactive.any() and relief > _MUCH_RELIEF * float(mesh.z_widths[0]):
        return [Finding("warning", "relief", f"the elevations of the stations differ by {relief:.4g} m, and the mesh has "
                        "no inactive cells: it follows no terrain", f"{_TERRAIN}; over flat ground this is right")]
    return []


def _in_boreholes(stations: Reals) -> Mask:
    """Stations whose nearest neighbour at another elevation is rather above or below than beside them."""
    if len(stations) < 2:
        return np.zeros(len(stations), dtype=np.bool_)
    tree = require("scipy.spatial", "the comparison of stations with their neighbours").cKDTree(stations)
    near = stations[tree.query(stations, k=2)[1][:, 1]] - stations
    return np.asarray(np.abs(near[:, 2]) > np.hypot(near[:, 0], near[:, 1]), dtype=np.bool_)


def check_run_cells(run: Run) -> list[Finding]:
    """Whether the control file of a run fixes the inactive cells at 0.

    Raises
    ------
    FileError
        For another file than the sensitivities that cannot be read.
    """
    try:
        _, inactive = common_inactive_cells([run.path(name) for name in run.control.values.mtx_files])
    except FileError as error:
        return [Finding("error", "sensitivity-files", str(error), "compute all of them from one mesh and terrain")]
    if not inactive.any() or inactive.all():
        return []
    remedy = "name the bounds file of mtx --topography on line 8, or let voxlith-tools init write the file"
    count = f"{np.count_nonzero(inactive)} inactive cells above the terrain"
    free = inactive & ~run.bounds().fixed
    if free.any():
        return [Finding("error", "inactive-cells", f"line 8 of the control file leaves {np.count_nonzero(free)} of {count} "
                        "free", remedy)]
    started = inactive & (run.initial_model().values != 0.0)
    if started.any():
        return [Finding("error", "inactive-cells", f"the initial model on line 6 of the control file is not 0 in "
                        f"{np.count_nonzero(started)} of {count}, which keep it",
                        "start from 0, or from a model file with 0 in these cells, as voxlith-tools init writes it")]
    return []
