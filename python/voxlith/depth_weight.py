"""The depth weight of the cells, W = ((depth + z0) / z0)^(-beta / 2).

The depth is that of the cell's centre below the top of the mesh, or below the top of the first active cell of its
column. Rows are divided by W, because the inversion works on the model multiplied by W (Y. Li and D. W. Oldenburg 1996,
Geophysics 61, 394-408, section on depth weighting).
"""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .errors import UsageError
from .mesh import Mesh

Reals = npt.NDArray[np.float64]
Singles = npt.NDArray[np.float32]


@dataclass(frozen=True)
class DepthWeight:
    """Parameters of the weight; both 0 for none.

    Attributes
    ----------
    z0 : float
        Metres.
    beta : float
        Exponent.
    """

    z0: float = 0.0
    beta: float = 0.0

    def __post_init__(self) -> None:
        if (self.z0, self.beta) != (0.0, 0.0) and not (0.0 < self.z0 < math.inf and 0.0 <= self.beta < math.inf):
            raise UsageError(f"depth weight: expected z0 above 0 and beta not below 0, found {self.z0}, {self.beta}")


def default_depth_weight(code: int, mesh: Mesh, elevation: npt.ArrayLike,
                         inactive: npt.ArrayLike | None = None, height: npt.ArrayLike | None = None) -> DepthWeight:
    """A weight that falls off like the response of the cells.

    z0 is half the (mean) thickness of the first active cells plus the mean height of the stations above the top of the
    mesh or, with topography, above the surface; beta is 2 for the vertical attraction and 3 for gradients and
    magnetics.

    Parameters
    ----------
    code : int
        Data type.
    mesh : Mesh
    elevation : array_like, shape (n,)
        Of the stations, metres.
    inactive : array_like of int, shape (nx, ny), optional
        Inactive cells at the top of each column.
    height : array_like, shape (n,), optional
        Of the stations above the surface; wanted with `inactive`.
    """
    thickness = mesh.z_widths[0]
    if inactive is None:
        heights = np.asarray(elevation, dtype=np.float64) - mesh.z_nodes[0]
    else:
        if height is None:
            raise UsageError("depth weight: expected the heights of the stations beside inactive cells")
        heights = np.asarray(height, dtype=np.float64)
        tops = np.asarray(inactive).ravel(order="F")
        widths = mesh.z_widths[tops[tops < mesh.nz]]
        if not len(widths):
            raise UsageError("depth weight: expected at least one active cell")
        thickness = np.add.accumulate(widths)[-1] / len(widths)
    mean = np.add.accumulate(heights)[-1] / len(heights) if len(heights) else 0.0
    return DepthWeight(float(0.5 * thickness + max(mean, 0.0)), 2.0 if code == 0 else 3.0)


def cell_depth_weights(weight: DepthWeight, mesh: Mesh, inactive: npt.ArrayLike | None = None) -> Singles:
    """W of each cell, in cell order.

    Parameters
    ----------
    weight : DepthWeight
    mesh : Mesh
    inactive : array_like of int, shape (nx, ny), optional
        Inactive cells at the top of each column; their weight is 1.

    Returns
    -------
    ndarray of float32, shape (cells,)

    Raises
    ------
    UsageError
        When a weight is too small for single precision.
    """
    tops = np.zeros((mesh.nx, mesh.ny), dtype=np.intp) if inactive is None else np.asarray(inactive, dtype=np.intp)
    if tops.shape != (mesh.nx, mesh.ny) or tops.min() < 0 or tops.max() > mesh.nz:
        raise UsageError(f"inactive: expected counts within 0 to {mesh.nz} of shape ({mesh.nx}, {mesh.ny})")
    columns = {top: _column(weight, mesh, top) for top in np.unique(tops).tolist()}
    return np.concatenate([columns[top] for top in tops.ravel(order="F").tolist()])


def _column(weight: DepthWeight, mesh: Mesh, top: int) -> Singles:
    column = np.ones(mesh.nz, dtype=np.float32)
    if weight.z0 <= 0.0:
        return column
    nodes = mesh.depth_nodes
    for k in range(top, mesh.nz):
        depth = 0.5 * (nodes[k] + nodes[k + 1]) - nodes[top]
        column[k] = math.pow((depth + weight.z0) / weight.z0, -0.5 * weight.beta)
        if not column[k] >= np.finfo(np.float32).tiny:
            raise UsageError(f"depth weight {weight.z0}, {weight.beta}: the weight of layer {k + 1} is too small to be "
                             "stored")
    return column
