"""The background value that a run would fit and remove with 1 as the background on line 2 of the control file."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

from ..codes import is_magnetic, model_quantity
from ..errors import PathLike
from ..sensitivity import Sensitivity
from ..survey import Survey
from .findings import Finding

Reals = npt.NDArray[np.float64]

LARGEST_CONTRAST = {"g/cm3": 3.0, "SI": 1.0}
"""Density contrasts and susceptibilities beyond which there are hardly any rocks."""


def fitted_background(data: Reals, response: Reals) -> float | None:
    """The value of the surface layer that fits the data beside a level, as a run fits it; None when nothing does.

    Parameters
    ----------
    data, response : ndarray, shape (n,)
        Data, NaN where masked, and the response of the layer for unit property.
    """
    used = np.isfinite(data) & np.isfinite(response)
    if np.count_nonzero(used) < 2:
        return None
    centred = response[used] - response[used].mean()
    squared = float(centred @ centred)
    if not squared > 0.0:
        return None
    return float(centred @ (data[used] - data[used].mean())) / squared


def check_background(survey: Survey, mtx: PathLike) -> list[Finding]:
    """Whether a fitted background would be a value that rocks have. Raises FileError."""
    with Sensitivity(mtx) as sensitivity:
        code, tail = sensitivity.header.data_type, sensitivity.tail()
    if tail.layer_response is None or len(tail.layer_response) != survey.n_stations:
        return []
    value = fitted_background(survey.data[0], tail.layer_response[:, 0])
    return background_finding(value, code)


def background_finding(value: float | None, code: int) -> list[Finding]:
    """A note on a background value, when rocks do not have it."""
    unit = model_quantity(code)[1]
    if value is None or abs(value) <= LARGEST_CONTRAST[unit]:
        return []
    kind = "susceptibility" if is_magnetic(code) else "density contrast"
    return [Finding("warning", "background", f"a background fitted to these data (1 on line 2 of the control file) would be a "
                    f"{kind} of {value:.3g} {unit}, which rocks do not have",
                    "do not remove it by line 2; subtract a regional field with voxlith-tools regional")]
