"""Checks of what a run has found: clusters of residuals, and the model norm that decides how far to trust a mass."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError
from ..run import Fit, Run
from ..side_file import read_side_file
from ..stacked_run import RunByProperty, StackedRun, is_stacked
from ..survey import Survey
from .findings import Finding
from .residuals import check_peak, check_residuals
from .survey import station_names

Reals = npt.NDArray[np.float64]

MOST_CHECKED = 100_000
"""Stations up to which residuals are compared with those of their neighbours."""


@dataclass(frozen=True)
class _Component:
    """Data of one type with their residuals in standard deviations."""

    label: str
    survey: Survey
    data: Reals
    residual: Reals
    deviation: Reals
    names: list[str]


def residual_clusters(run: Run, fit: Fit | None = None) -> list[Finding]:
    """Where residuals of neighbouring stations agree, also in a run whose RMS misfit is 1, and peaks that a model leaves; see
    :func:`~voxlith.checks.residuals.check_residuals` and :func:`~voxlith.checks.residuals.check_peak`.

    Parameters
    ----------
    run : Run
    fit : Fit, optional
        What :meth:`Run.fit` gave, so that the files are not read again. Not used for a stacked run, whose types of data are
        looked at one by one.

    Raises
    ------
    FileError
        When there are no predictions, or they cannot be read.
    MissingPackageError
        Without SciPy.
    """
    if is_stacked(run):
        stacked = run.stacked if isinstance(run, RunByProperty) else StackedRun(run)
        parts = [_Component(one.name, one.observed, one.observed.data[0], one.zscore, one.observed.uncertainties()[0],
                            station_names(one.observed))
                 for one in stacked.fits()]
    else:
        known = run.fit() if fit is None else fit
        names = _names_of(run, known.observed)
        parts = [_Component(label, known.observed, known.observed.data[number], known.zscore[number],
                            known.observed.uncertainties()[number], names)
                 for number, label in enumerate(run.data_names())]
    return [finding for part in parts if part.survey.n_stations <= MOST_CHECKED for finding in (
        *check_residuals(part.survey.x, part.survey.y, part.data, part.residual, part.names, part.label),
        *check_peak(part.survey.x, part.survey.y, part.data, part.residual, part.deviation, part.label))]


def _names_of(run: Run, survey: Survey) -> list[str]:
    kept = read_side_file(run.path(run.control.values.data_file)).station_names(survey.n_stations)
    return kept or station_names(survey)


def model_norm(run: Run) -> str:
    """Norm of the last model, as ``voxlith-run --model-norm`` names it; empty where the log does not say, and for a stacked
    run, which ``voxlith-tools compact`` weights."""
    if is_stacked(run):
        return ""
    try:
        return run.log[-1].inputs.get("Model norm", "smooth").partition(",")[0]
    except FileError:
        return ""
