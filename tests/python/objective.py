"""The objective of a small run with one component, by NumPy alone: a peer of the converged modes of voxlith-run."""

from __future__ import annotations

from dataclasses import dataclass
from pathlib import Path

import numpy as np
import numpy.typing as npt

from voxlith import Survey
from voxlith.io.control_file import read_control_file
from voxlith.io.weight_file import read_weight_files
from voxlith.sensitivity import Sensitivity

Reals = npt.NDArray[np.float64]
_DIFFERENCE_UNIT = 1.0e8


@dataclass
class Objective:
    """``phi_d + mu phi_m`` of the inversion variable x = W m, with reference model 0; products are counted.

    Attributes
    ----------
    matrix : ndarray, shape (data, cells)
        Rows over W and over the standard deviations.
    data : ndarray
        Over the standard deviations.
    depth_weight : ndarray, shape (cells,)
        W; 1 where the variable is the model itself.
    smallness, differences
        Weights of the norm, shape (ny, nx, nz) and one less along an axis; those of differences over h^2.
    """

    matrix: Reals
    data: Reals
    depth_weight: Reals
    smallness: Reals
    differences: list[Reals]
    tradeoff: float
    products: int = 0

    @classmethod
    def of(cls, folder: Path, data_file: str, tradeoff: float, *, physical: bool = False) -> Objective:
        """Of the run in a folder; `physical` for the model itself as the variable."""
        control = read_control_file(folder / "voxlith.inp").values
        with Sensitivity(folder / control.mtx_files[0]) as sensitivity:
            rows, head, mesh = sensitivity.dense_matrix(weighted=True), sensitivity.header, sensitivity.mesh
        survey = Survey.read(folder / data_file, [head.data_type])
        spread = survey.uncertainty[0].astype(np.float32).astype(np.float64)
        depth_weight = head.depth_weight.astype(np.float64)
        if physical:
            rows, depth_weight = rows * depth_weight, np.ones_like(depth_weight)
        weights = read_weight_files([folder / control.weight_files[0]], mesh.nx, mesh.ny, mesh.nz)
        volumes = mesh.cube(mesh.volumes())
        share = volumes / volumes.sum()
        order = (2, 1, 0)  # (nz, nx, ny) to (ny, nx, nz)
        alphas = control.alphas
        smallness = (weights.smallness * alphas[0] * share).transpose(order)
        parts = ((weights.y_difference * share[:, :, :-1], alphas[2], mesh.y_centres, 2),
                 (weights.x_difference * share[:, :-1, :], alphas[1], mesh.x_centres, 1),
                 (weights.z_difference * share[:-1, :, :], alphas[3], mesh.z_centres, 0))
        differences = []
        for values, alpha, centres, axis in parts:
            shape = [1, 1, 1]
            shape[axis] = -1
            spacing = np.square(np.diff(centres)).reshape(shape)
            differences.append((_DIFFERENCE_UNIT * alpha * values / spacing).transpose(order))
        return cls(rows / spread[:, None], survey.data[0] / spread, depth_weight, smallness, differences, tradeoff)

    def value_and_gradient(self, x: Reals) -> tuple[float, Reals]:
        """phi and its gradient by x."""
        self.products += 2
        residual = self.matrix @ x - self.data
        model = (x / self.depth_weight).reshape(self.smallness.shape)
        norm = float(np.sum(self.smallness * model * model))
        slope = self.smallness * model
        for axis, weight in enumerate(self.differences):
            difference = np.diff(model, axis=axis)
            norm += float(np.sum(weight * difference * difference))
            flow = weight * difference
            end = [slice(None)] * 3
            start = [slice(None)] * 3
            start[axis], end[axis] = slice(None, -1), slice(1, None)
            slope[tuple(start)] -= flow
            slope[tuple(end)] += flow
        gradient = self.matrix.T @ residual / len(self.data) + self.tradeoff * slope.ravel() / self.depth_weight
        return float(residual @ residual) / len(self.data) + self.tradeoff * norm, 2.0 * gradient
