"""All checks of a survey together."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from ..codes import default_uncertainty, is_magnetic
from ..survey import Survey
from .axes import check_axes
from .findings import Finding, ordered
from .stations import check_coordinates, check_duplicates, check_outliers, looks_like_degrees, noise_of
from .trend import check_edges, check_trend
from .values import are_loose, check_sign, check_values, no_data_codes

Reals = npt.NDArray[np.float64]


def station_names(survey: Survey) -> list[str]:
    """Names by record number, and line where there is one."""
    numbers = [f"record {number}" for number in range(1, survey.n_stations + 1)]
    if survey.line is None:
        return numbers
    return [f"{number} ({line})" for number, line in zip(numbers, survey.line.tolist())]


def check_survey(survey: Survey, names: Sequence[str] | None = None, *, given: npt.ArrayLike | None = None,
                 regional_removed: bool = False, sign: int = 0) -> list[Finding]:
    """Check a survey by itself.

    Parameters
    ----------
    survey : Survey
    names : sequence of str, optional
        Of the stations; by record number otherwise.
    given : array_like, shape (components, n), optional
        Standard deviations as the file has them, also those of 0 and below; by default those of the survey.
    regional_removed : bool
        Whether a regional field was subtracted already: then tails of broad anomalies may leave twice as large a slope and level.
    sign : int
        Of the model that is looked for: 1 positive, -1 negative, 0 either.

    Returns
    -------
    list of Finding
        Errors first.

    Examples
    --------
    >>> line = np.arange(20.0) * 50.0
    >>> survey = Survey(line, 0.0 * line, 0.0 * line + 3.0, [np.sin(line / 300.0)], (0,), [0.0 * line + 0.02])
    >>> [finding.name for finding in check_survey(survey)]
    []
    """
    known = list(names) if names is not None else station_names(survey)
    findings = list(check_coordinates(survey.x, survey.y, survey.elevation, known))
    written = survey.uncertainty if given is None else np.atleast_2d(np.asarray(given, dtype=np.float64))
    metres = not looks_like_degrees(survey.x, survey.y)
    labels = survey.names
    for number in range(survey.n_components):
        label, values = labels[number], survey.data[number]
        findings += check_values(values, None if written is None else written[number], survey.codes[number], label, known)
        usable = np.where(no_data_codes(values), np.nan, values)
        if not np.isfinite(usable).any():
            continue
        deviations, unit = _deviations(survey, number), "standard deviations"
        if are_loose(usable, deviations):
            # Wrong standard deviations must not hide what the data show by themselves.
            scatter = noise_of(survey.x, survey.y, usable)
            deviations, unit = np.full(survey.n_stations, scatter), "times the scatter of neighbours"
        # Distances in degrees and in metres do not go together.
        height = survey.elevation if metres else np.zeros(survey.n_stations)
        findings += check_duplicates(survey.x, survey.y, height, usable, deviations, label, known, unit)
        findings += check_outliers(survey.x, survey.y, usable, deviations, label, known)
        findings += check_sign(usable, deviations, sign, survey.codes[number], label)
        if not metres or not float(np.ptp(usable[np.isfinite(usable)])) > 0.0:
            continue
        shown = check_trend(survey.x, survey.y, usable, deviations, label, survey.units[number], regional_removed)
        if not shown and is_magnetic(survey.codes[number]):
            shown = check_edges(survey.x, survey.y, usable, deviations, label, survey.units[number])
        findings += shown
    if metres:
        findings += check_axes(survey)
    return ordered(findings)


def _deviations(survey: Survey, number: int) -> Reals:
    """Standard deviations above 0 of a component."""
    usual = default_uncertainty(survey.codes[0])
    if survey.uncertainty is None:
        return np.full(survey.n_stations, usual)
    given = survey.uncertainty[number]
    return np.where(given > 0.0, given, usual)
