"""Weights of the model norm that keep recovered bodies at their depth.

The data of gravity and magnetics decay with depth, so of all models that fit, a norm without weights prefers one close
to the surface. Here each cell gets the weight

    w = r^p (V / V_core)^3,

with r the relative sensitivity of the cell per volume, V / V_core the volume of a padding cell over that of the core's
cells, and p chosen so that w falls with depth like (depth + z0)^-a below the stations. The weights of differences are
geometric means of those of both cells.

- r is the root of the diagonal of G'G over the volume, by its largest value (Li and Oldenburg 2000, Geophysics 65,
  540-552, eq. 6), or 1/(depth + z0), a power law (Li and Oldenburg 1996, Geophysics 61, 394-408).
- V / V_core keeps padding cells from being cheap; without it bodies leak into them.
- The weight of the smallness, section 1 of the file, is w 2.5e8 / h^2 for cells of size h, so that the alphas on line 9
  are all 1. The factor 1e8 makes up for the units of the format.
- a = 1.2 by experiment, 1.4 for blocky norms, see docs/depth-weighting.md. p follows from the decay of r, which
  depends on the type of data and on the layout of the stations.

Differences between an active and an inactive cell have the weight 0: ground is not drawn to the value of air.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt

from .errors import PathLike, UsageError
from .io.mtx_header import MtxHeader
from .io.weight_file import CellWeights
from .mesh import Mesh
from .sensitivity import Sensitivity

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

DECAY = 1.2
"""Power of the depth with which weights fall off below the stations."""

DECAY_OF_NORM = {"smooth": DECAY, "blocky": 1.4, "compact": DECAY}
"""The same for the norms of voxlith-run --model-norm. A blocky norm needs more: it takes less from deep cells."""

POWER_LAW_DECAY = 1.8
"""The same for a power law, which knows nothing of the gaps between the stations."""

SMALLNESS = 2.5
"""Weight of the smallness of a cell over that of its differences, times the square of the cell size."""

_SMALLNESS_UNIT = 1.0e8  # the format multiplies the weights of differences by this, and those of smallness by 1

_LARGEST_PADDING = 1.0e4  # of volumes, whose third powers are weights
_LEAST = 1.0e-12  # weights are held in single precision and multiplied by volumes


@dataclass(frozen=True)
class DepthWeighting:
    """Weights and what they were made from.

    Attributes
    ----------
    cells : CellWeights
        The four sections of a weighting file, for alphas of 1.
    power : float
        p, the power of the relative sensitivities.
    decay : float
        Power of the depth with which the weights fall off below the stations.
    active : ndarray of bool, shape (nz, nx, ny)
        Cells with a response.
    """

    cells: CellWeights
    power: float
    decay: float
    active: Mask


def read_cell_sensitivity(paths: Sequence[PathLike]) -> tuple[MtxHeader, Mesh, Reals]:
    """Root of the diagonal of G'G over the volume of each cell, from the diagonals that sensitivity files hold.

    Several files each count relative to their largest value.

    Returns
    -------
    MtxHeader, Mesh
        Of the first file.
    ndarray, shape (cells,)
        0 where a cell has no response.

    Raises
    ------
    FileError
        For a file that cannot be read.
    UsageError
        For files of different meshes, or without any response.
    """
    first: tuple[MtxHeader, Mesh] | None = None
    total: Reals | None = None
    for path in paths:
        with Sensitivity(path) as sensitivity:
            header, mesh = sensitivity.header, sensitivity.mesh
            diagonal = np.where(sensitivity.inactive_cells(), 0.0, sensitivity.tail().diagonal)
        if first is None:
            first, total = (header, mesh), np.zeros(mesh.n_cells)
        elif (mesh.nx, mesh.ny, mesh.nz) != (first[1].nx, first[1].ny, first[1].nz):
            raise UsageError(f"{path}: expected {first[1]} as in {paths[0]}, found {mesh}")
        # Rows are stored divided by the depth weights.
        squared = np.maximum(diagonal, 0.0) * np.square(header.depth_weight.astype(np.float64) / mesh.volumes())
        largest = float(squared.max())
        if not 0.0 < largest < math.inf:
            raise UsageError(f"{path}: expected sensitivities above 0")
        assert total is not None
        total += squared / largest
    if first is None or total is None:
        raise UsageError("weights: expected a sensitivity file")
    return *first, np.sqrt(total)


def sensitivity_weights(mesh: Mesh, sensitivity: npt.ArrayLike, header: MtxHeader | None = None,
                        decay: float = DECAY) -> DepthWeighting:
    """Weights from the sensitivity per volume of each cell.

    Parameters
    ----------
    mesh : Mesh
    sensitivity : array_like, shape (cells,)
        See :func:`read_cell_sensitivity`; 0 where a cell is inactive.
    header : MtxHeader, optional
        Its stations say below which columns the decay is fitted; without them all columns of the smallest cells.
    decay : float
        a.

    Raises
    ------
    UsageError
        When the sensitivities do not fall with depth.
    """
    relative = mesh.cube(np.asarray(sensitivity, dtype=np.float64))
    active: Mask = relative > 1.0e-9 * float(relative.max())
    depth = _depths(mesh, active)
    inside_x, inside_y, layers = _core(mesh, None if header is None else header.stations)
    used: Mask = np.zeros(active.shape, dtype=bool)
    used[:layers] = active[:layers] & inside_x[:, None] & inside_y[None, :]
    logs = np.log(np.where(active, relative, 1.0))
    fall = _slope(logs, depth, used)
    if not fall < 0.0:
        raise UsageError("weights: the sensitivities do not fall with depth; use a power law")
    power = decay / -fall
    weights = np.where(active, np.exp(power * (logs - logs[active].max())), 1.0) * _padding_factor(mesh, layers)
    return DepthWeighting(_sections(mesh, weights, active), power, decay, active)


def power_law_weights(mesh: Mesh, active: npt.ArrayLike | None = None, *, z0: float | None = None,
                      decay: float = POWER_LAW_DECAY) -> DepthWeighting:
    """Weights that fall like (depth + z0)^-decay below the first active cell of each column.

    Parameters
    ----------
    mesh : Mesh
    active : array_like of bool, shape (cells,), optional
        All by default.
    z0 : float, optional
        Metres; half the first layer by default.
    decay : float
    """
    mask: Mask = np.ones(mesh.shape, dtype=bool) if active is None else mesh.cube(np.asarray(active, dtype=bool))
    z0 = 0.5 * float(mesh.z_widths[0]) if z0 is None else z0
    if not (z0 > 0.0 and decay >= 0.0):
        raise UsageError(f"weights: expected z0 above 0 and a power of 0 or more, found {z0:g}, {decay:g}")
    weights = np.where(mask, (_depths(mesh, mask) / z0 + 1.0) ** -decay, 1.0)
    weights *= _padding_factor(mesh, _core(mesh, None)[2])
    return DepthWeighting(_sections(mesh, weights, mask), decay, decay, mask)


def core_cell(mesh: Mesh) -> float:
    """Geometric mean of the smallest widths of the axes with more than one cell, metres."""
    logs = [math.log(float(widths.min())) for widths in (mesh.x_widths, mesh.y_widths, mesh.z_widths) if len(widths) > 1]
    return math.exp(sum(logs) / len(logs)) if logs else float(mesh.z_widths[0])


def _depths(mesh: Mesh, active: Mask) -> Reals:
    """Depth of the cell centres below the top of the first active cell of their column, shape (nz, nx, ny)."""
    tops = np.where(active.any(axis=0), np.argmax(active, axis=0), 0)
    depths: Reals = mesh.z_nodes[:-1][tops][None, :, :] - mesh.z_centres[:, None, None]
    return np.maximum(depths, 0.0)


def _padding_factor(mesh: Mesh, layers: int) -> Reals:
    """(V / V_core)^3 of each cell, shape (nz, nx, ny): by its area over the smallest one, and below the core by its
    thickness over that of the lowest core layer. Layers of the core may grow with depth; that makes no padding of
    them."""
    thickness = mesh.z_widths / mesh.z_widths[layers - 1]
    thickness[:layers] = 1.0
    area = np.outer(mesh.x_widths / mesh.x_widths.min(), mesh.y_widths / mesh.y_widths.min())
    volume = np.minimum(thickness[:, None, None] * area[None, :, :], _LARGEST_PADDING)
    return np.asarray(volume**3, dtype=np.float64)


def _core(mesh: Mesh, stations: Reals | None) -> tuple[Mask, Mask, int]:
    """Columns along x and along y below the stations, and the layers down to half the length of the survey: deeper, the
    survey itself looks small."""
    x, y = mesh.x_widths, mesh.y_widths
    inside_x, inside_y = x < 1.01 * x.min(), y < 1.01 * y.min()
    reach = 0.5 * max(float(x[inside_x].sum()), float(y[inside_y].sum()))
    if stations is not None and len(stations) > 1:
        west, south, _ = stations.min(axis=0)
        east, north, _ = stations.max(axis=0)
        inside_x = _covered(mesh.x_nodes, float(west), float(east))
        inside_y = _covered(mesh.y_nodes, float(south), float(north))
        reach = 0.5 * max(float(east - west), float(north - south))
    layers = max(int(np.searchsorted(np.cumsum(mesh.z_widths), reach)), min(4, mesh.nz))
    if not (inside_x.any() and inside_y.any()):
        inside_x, inside_y = np.ones(mesh.nx, dtype=bool), np.ones(mesh.ny, dtype=bool)
    return inside_x, inside_y, min(layers, mesh.nz)


def _covered(nodes: Reals, least: float, most: float) -> Mask:
    """Cells of an axis that overlap an interval."""
    covered: Mask = (nodes[1:] >= least) & (nodes[:-1] <= most)
    return covered


def _slope(values: Reals, depth: Reals, used: Mask) -> float:
    """Slope of values against the logarithm of the depth, by least squares."""
    logs = np.log(np.maximum(depth[used], 1.0e-3))
    centred = logs - logs.mean()
    squared = float(centred @ centred)
    if not squared > 1.0e-9 * len(logs):  # one depth, but for rounding
        raise UsageError("weights: expected two active layers or more below the stations")
    return float(centred @ values[used]) / squared


def _sections(mesh: Mesh, weights: Reals, active: Mask) -> CellWeights:
    """Weights of cells, and of differences between two active or two inactive cells."""
    weights = np.maximum(weights, _LEAST)
    differences = []
    for axis in (1, 2, 0):
        a, b = _neighbours(weights, axis)
        same = np.equal(*_neighbours(active, axis))
        differences.append(np.where(same, np.sqrt(a * b), 0.0))
    return CellWeights(weights * (_SMALLNESS_UNIT * SMALLNESS / core_cell(mesh) ** 2), *differences)


def _neighbours(values: npt.NDArray[Any], axis: int) -> tuple[npt.NDArray[Any], npt.NDArray[Any]]:
    """Cells and their next ones along an axis."""
    count = values.shape[axis]
    return values.take(range(count - 1), axis), values.take(range(1, count), axis)
