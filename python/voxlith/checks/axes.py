"""Whether the components of a survey belong to one field, with the axes that this program has: x east, y north, z down.

Components of other axes, such as x north or z upwards, look like any others. But components of a potential field depend
on each other: point sources below the stations that fit some of them predict the rest (equivalent sources, Dampney 1969,
Geophysics 34, 39-53). Where the components fit badly as they are, and well with exchanged axes, these are the axes of the
survey.
"""

from __future__ import annotations

import itertools
from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from ..packages import require
from ..survey import Survey
from .findings import Finding

Reals = npt.NDArray[np.float64]

X_NORTH = {10: 11, 11: 10, 14: 15, 15: 14, 20: 21, 21: 20}
"""Codes of components that change places where x is north."""

ODD_IN_Z = frozenset({0, 14, 15, 22})
"""Codes of components that change their sign where z is upwards."""

_AXES = {2: (2, 2), 12: (2, 2), 10: (0, 0), 11: (1, 1), 13: (0, 1), 14: (0, 2), 15: (1, 2)}  # of gradients
_VECTOR = {20: 0, 21: 1, 22: 2}
_GROUPS = ((0, *_AXES), tuple(_VECTOR))
_EOTVOS = 1.0e4  # gradient in Eotvos over gravity in mGal, for the same 1/m
_FEWEST, _MOST = 20, 250  # stations
_DEPTH = 2.0  # of the sources, in distances between stations
_DAMPING = 1.0e-4  # of the mean square of the columns
_BETTER, _GOOD = 2.0, 0.5  # how much better another choice must fit, and how well: misfit over the data


def check_axes(survey: Survey) -> list[Finding]:
    """The choice of axes with which the components agree, where it is another one than that of the survey.

    At least two components of gravity and its gradients, or of the magnetic field, are needed. Raises
    MissingPackageError without SciPy.
    """
    findings = []
    for group in _GROUPS:
        chosen = [number for number, code in enumerate(survey.codes) if code in group]
        if len(chosen) > 1:
            findings += _check_group(survey, chosen)
    return findings


def _check_group(survey: Survey, chosen: Sequence[int]) -> list[Finding]:
    held = np.flatnonzero(np.isfinite(survey.data[chosen]).all(axis=0))
    if len(held) < _FEWEST:
        return []
    places = np.column_stack([survey.x, survey.y, -survey.elevation])[held]
    data = survey.data[chosen][:, held]
    scale = data.std(axis=1)
    if not (scale > 0.0).all():
        return []
    tree = require("scipy.spatial", "the comparison of components").cKDTree(places)
    # The neighbourhood of the largest anomaly keeps the spacing of the stations.
    anomaly = np.abs(data - np.median(data, axis=1, keepdims=True)) / scale[:, None]
    strongest = int(np.argmax(anomaly.sum(axis=0)))
    near = np.sort(np.atleast_1d(tree.query(places[strongest], k=min(len(held), _MOST))[1]))
    places, data = places[near], data[:, near]
    # Between lines there are no stations: the mean distance counts, in one line that along it.
    spacing = max(float(np.median(tree.query(places, k=2)[0][:, 1])), _mean_distance(places))
    if not spacing > 0.0:
        return []
    codes = [survey.codes[number] for number in chosen]
    misfit = {}
    for x_north, upwards in itertools.product((False, True), repeat=2):
        own = tuple(X_NORTH.get(code, code) if x_north else code for code in codes)
        signs = tuple(-1.0 if upwards and code in ODD_IN_Z else 1.0 for code in codes)
        misfit[x_north, upwards] = _misfit(places, data * np.array(signs)[:, None], own, scale, _DEPTH * spacing)
    best = min(misfit, key=lambda axes: misfit[axes])
    if misfit[best] > _GOOD or misfit[False, False] < _BETTER * misfit[best]:
        return []
    labels = ", ".join(survey.names[number] for number in chosen)
    options = [option for option, used in zip(("--x-north", "--upwards"), best) if used]
    axes = " and ".join(text for text, used in zip(("x to the north and y to the east", "z upwards"), best) if used)
    swapped = "; or exchange --x and --y, where the stations have them exchanged" if best[0] else ""
    text = (f"{labels}: the components contradict each other with x to the east, y to the north and z downwards (sources that "
            f"fit all leave {100.0 * misfit[False, False]:.0f} % of them), and agree with {axes} "
            f"({100.0 * misfit[best]:.0f} %)")
    return [Finding("error", "axes", text, f"convert the table with voxlith-tools obs {' '.join(options)}{swapped}")]


def _mean_distance(places: Reals) -> float:
    """Side of a square per station; 0 for stations on one line."""
    centred = places[:, :2] - places[:, :2].mean(axis=0)
    along = np.ptp(centred @ np.linalg.svd(centred, full_matrices=False)[2].T, axis=0)
    return float(np.sqrt(along[0] * along[1] / len(places)))


def _misfit(places: Reals, data: Reals, codes: Sequence[int], scale: Reals, depth: float) -> float:
    """What point sources below the stations, and a constant of each component, leave of the components: RMS, each
    component over its size."""
    sources = places + np.array([0.0, 0.0, depth])
    away = sources[None, :, :] - places[:, None, :]
    constants = np.repeat(np.eye(len(codes)), len(places), axis=0)
    responses = np.vstack([_response(away, code) / size for code, size in zip(codes, scale)])
    responses /= np.sqrt(np.mean(np.square(responses)) * len(responses))  # columns of a mean square of 1
    matrix = np.hstack([responses, constants])
    values = (data / scale[:, None]).ravel()
    damped = np.where(np.arange(matrix.shape[1]) < len(places), _DAMPING, 0.0)
    fitted = np.linalg.solve(matrix.T @ matrix + np.diag(damped), matrix.T @ values)
    left: Reals = values - matrix @ fitted
    return float(np.sqrt(np.mean(np.square(left))))


def _response(away: Reals, code: int) -> Reals:
    """Component at each station of a source in each place, shape (stations, sources), but for a common factor."""
    squared = np.square(away).sum(axis=2)
    if code in _AXES:
        first, second = _AXES[code]
        moment = 3.0 * away[:, :, first] * away[:, :, second] - (squared if first == second else 0.0)
        return np.asarray(_EOTVOS * moment / squared**2.5)
    return np.asarray(away[:, :, _VECTOR.get(code, 2)] / squared**1.5)
