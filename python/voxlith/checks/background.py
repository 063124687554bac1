"""The background value that a run would fit and remove with 1 as the background on line 2 of the control file."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from ..codes import model_quantity
from ..errors import PathLike
from ..sensitivity import Sensitivity
from ..survey import Survey
from .findings import Finding

Reals = npt.NDArray[np.float64]

LARGEST_CONTRAST = {"g/cm3": 3.0, "SI": 1.0}
"""Density contrasts and susceptibilities beyond which there are hardly any rocks."""


def fitted_background(data: Reals, response: Reals) -> float | None:
    """The value of the surface layer that fits the data beside a constant offset, as a run fits it; None when nothing does.

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


def background_values(survey: Survey, mtx: Sequence[PathLike]) -> list[tuple[float, int]]:
    """The value that a run fits for each component, with its data type; none for files that do not hold the response of
    the layer.

    With several components a run removes the mean of their values from each of them.

    Raises
    ------
    FileError
        For a file that cannot be read.
    """
    fitted: list[tuple[float, int]] = []
    for number, path in enumerate(mtx[: survey.n_components]):
        with Sensitivity(path) as sensitivity:
            code, response = sensitivity.header.data_type, sensitivity.tail().layer_response
        if response is None or len(response) != survey.n_stations:
            return []
        value = fitted_background(survey.data[number], response[:, 0])
        if value is None:
            return []
        fitted.append((value, code))
    mean = sum(value for value, _ in fitted) / max(len(fitted), 1)
    return [(mean, code) for _, code in fitted]


def check_background(survey: Survey, mtx: Sequence[PathLike], chosen: int = 0, given: float = 0.0) -> list[Finding]:
    """Whether the background of a run is a value that rocks have.

    Parameters
    ----------
    survey : Survey
    mtx : sequence of path
        Sensitivity files of the components.
    chosen : int
        Background removal on line 2 of the control file: 0 none, 1 fitted, 2 given.
    given : float
        The value that line 2 gives.

    Raises
    ------
    FileError
        For a file that cannot be read.
    """
    findings: list[Finding] = []
    values = background_values(survey, mtx)
    if chosen == 2:
        values = [(given, code) for _, code in values]
    for value, unit in dict.fromkeys((value, model_quantity(code)[1]) for value, code in values):
        findings += _finding(value, unit, chosen)
    return findings


def _finding(value: float, unit: str, chosen: int) -> list[Finding]:
    kind = "susceptibility" if unit == "SI" else "density contrast"
    of_rocks = abs(value) <= LARGEST_CONTRAST[unit]
    text = f"a {kind} of {value:.3g} {unit}"
    remedy = "set the background on line 2 to 0; subtract a regional field with voxlith-tools regional"
    if of_rocks:
        return [Finding("note", "background", f"a background fitted to these data would be {text}",
                        "1 as the background on line 2 of the control file removes it")] if not chosen else []
    if chosen == 1:
        return [Finding("error", "background", f"line 2 of the control file removes a fitted background of {text}, which rocks "
                        "do not have; the model would be what is left of the data", remedy)]
    if chosen == 2:
        return [Finding("error", "background", f"line 2 of the control file removes a background of {text}, which rocks do not "
                        "have", remedy)]
    return [Finding("warning", "background", f"a background fitted to these data (1 on line 2 of the control file) would be "
                    f"{text}, which rocks do not have",
                    "leave 0 as the background on line 2; subtract a regional field with voxlith-tools regional")]
