"""A first look at the values of a model: one step of scaled steepest descent, a product with the sensitivities each way."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .errors import PathLike, UsageError
from .sensitivity import Sensitivity

Reals = npt.NDArray[np.float64]


@dataclass(frozen=True)
class FirstModel:
    """Range of the values of a first model.

    Attributes
    ----------
    smallest, largest : float
        In the unit of the sensitivities; both 0 where the data are 0.
    """

    smallest: float
    largest: float

    @property
    def magnitude(self) -> float:
        """Largest magnitude."""
        return max(-self.smallest, self.largest)


def first_model(mtx_files: Sequence[PathLike], data: Reals, uncertainty: Reals) -> FirstModel:
    """The model t D G'W d of the files of one model type: W = 1/uncertainty^2, D = 1/root of the diagonal of G'G, t for the best fit.

    It has no bounds, and its values spread like those of a smooth model.

    Parameters
    ----------
    mtx_files : sequence of path
    data, uncertainty : ndarray, shape (files, data)
        In data units; NaN where masked. Data without an uncertainty count with the root mean square of their component.

    Raises
    ------
    UsageError
        When the shapes do not fit.
    FileError
        For a file that cannot be read.
    """
    if data.shape != uncertainty.shape or len(data) != len(mtx_files):
        raise UsageError(f"data: expected data and uncertainties of {len(mtx_files)} components, found {data.shape} and "
                         f"{uncertainty.shape}")
    weights = [_weights(values, spread) for values, spread in zip(data, uncertainty)]
    values = np.where(np.isnan(data), 0.0, data)
    gradient: Reals = np.zeros(0)
    diagonal: Reals = np.zeros(0)
    for path, weight, datum in zip(mtx_files, weights, values):
        with Sensitivity(path) as sensitivity:
            part = sensitivity.transposed(weight * datum)
            own = np.where(sensitivity.inactive_cells(), 0.0, sensitivity.tail().diagonal)
            own = own * np.square(sensitivity.header.depth_weight.astype(np.float64)) * weight.mean()
        gradient = part if not len(gradient) else gradient + part
        diagonal = own if not len(diagonal) else diagonal + own
    direction = np.divide(gradient, np.sqrt(diagonal), out=np.zeros_like(gradient), where=diagonal > 0.0)
    curvature = 0.0
    for path, weight in zip(mtx_files, weights):
        with Sensitivity(path) as sensitivity:
            curvature += float(np.sum(weight * np.square(sensitivity.forward(direction))))
    length = float(gradient @ direction) / curvature if curvature > 0.0 else 0.0
    return FirstModel(length * float(direction.min()), length * float(direction.max()))


def _weights(data: Reals, uncertainty: Reals) -> Reals:
    """1/uncertainty^2, 0 where a datum is masked."""
    valid = ~np.isnan(data)
    if not valid.any():
        return np.zeros_like(data)
    usual = float(np.sqrt(np.mean(np.square(data[valid])))) or 1.0
    spread = np.where(valid & (uncertainty > 0.0), uncertainty, usual)
    return np.where(valid, 1.0 / np.square(spread), 0.0)
