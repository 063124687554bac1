"""Residuals of neighbouring stations that agree: structure in the data that a model leaves, at any RMS misfit.

Independent residuals of unit variance have means over k stations whose standard deviation is 1 / sqrt(k). Where such a
mean is much larger, the stations around it share a residual: a body that the mesh or the bounds do not allow, a level of
one line, or standard deviations that are too large there and too small elsewhere. Moran's I says whether neighbours agree
on the whole (Moran 1950, Biometrika 37, 17-23).

A smooth model rounds the peaks of large anomalies, also in runs that end at an RMS misfit of 1. Residuals that make a
large anomaly smaller are therefore no finding, unless a seventh of its peak is missing.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..packages import require
from .findings import Finding

Reals = npt.NDArray[np.float64]

_NEIGHBOURS = 8
_FEWEST = 20  # stations for a statement
_LEAST_MEAN = 2.0  # times the RMS: six standard deviations of the mean of nine independent residuals
_CORRELATED = 4.0  # standard deviations of Moran's I
_ROUNDED, _LOST = 1.5, 0.15  # times the RMS on the mean at the peak, and part of the peak that the model leaves
_LARGE = 0.2  # of the largest mean of neighbouring data from the median: there a smooth model rounds peaks


@dataclass(frozen=True)
class Neighbourhood:
    """How residuals agree with those of their neighbours.

    Attributes
    ----------
    moran : float
        Moran's I: 0 for independent residuals, towards 1 where neighbours agree.
    score : float
        It in standard deviations from what independent residuals have.
    mean, anomaly : ndarray, shape (n,)
        Mean residual of each station and its neighbours, in units of the RMS, and mean of the data from their median,
        over the largest one; NaN where the datum is masked.
    count : int
        Stations of such a mean.
    """

    moran: float
    score: float
    mean: Reals
    anomaly: Reals
    count: int

    @property
    def rounds_peak(self) -> npt.NDArray[np.bool_]:
        """Stations where the residual makes a large anomaly smaller."""
        return np.asarray((np.abs(self.anomaly) > _LARGE) & (self.mean * self.anomaly < 0.0), dtype=np.bool_)


def neighbourhood(x: Reals, y: Reals, observed: Reals, residual: Reals) -> Neighbourhood | None:
    """Agreement of residuals; None for too few stations, or residuals that are all 0.

    Parameters
    ----------
    x, y, observed : ndarray, shape (n,)
    residual : ndarray, shape (n,)
        In standard deviations; NaN where masked.
    """
    held = np.flatnonzero(np.isfinite(residual))
    if len(held) < _FEWEST:
        return None
    rms = math.sqrt(float(np.mean(np.square(residual[held]))))
    if not 0.0 < rms < math.inf:
        return None
    places, values = np.column_stack([x, y])[held], residual[held] / rms
    tree = require("scipy.spatial", "the comparison of residuals with their neighbours").cKDTree(places)
    near = tree.query(places, k=_NEIGHBOURS + 1)[1]
    mean, anomaly = np.full(len(residual), np.nan), np.full(len(residual), np.nan)
    mean[held] = values[near].mean(axis=1)
    anomaly[held] = (observed[held] - np.median(observed[held]))[near].mean(axis=1)
    anomaly /= max(float(np.nanmax(np.abs(anomaly))), 1.0e-300)
    moran, score = _moran(values, near[:, 1:])
    return Neighbourhood(moran, score, mean, anomaly, _NEIGHBOURS + 1)


def _moran(values: Reals, near: npt.NDArray[np.intp]) -> tuple[float, float]:
    """Moran's I with equal weights of the neighbours, and it in standard deviations under normality (Cliff and Ord 1981)."""
    count, neighbours = near.shape
    centred = values - values.mean()
    squared = float(centred @ centred)
    if not squared > 0.0:
        return 0.0, 0.0
    moran = float((centred * centred[near].mean(axis=1)).sum()) / squared
    start = np.repeat(np.arange(count), neighbours)
    pairs = set(zip(start.tolist(), near.ravel().tolist()))
    both = sum((b, a) in pairs for a, b in pairs)
    weight = float(count)
    one = (len(pairs) + both) / neighbours**2  # half the sum of squares of w + its transpose
    incoming = np.bincount(near.ravel(), minlength=count) / neighbours
    two = float(np.square(1.0 + incoming).sum())
    expected = -1.0 / (count - 1.0)
    variance = (count**2 * one - count * two + 3.0 * weight**2) / ((count**2 - 1.0) * weight**2) - expected**2
    return moran, (moran - expected) / math.sqrt(max(variance, 1.0e-30))


def check_residuals(x: Reals, y: Reals, observed: Reals, residual: Reals, names: Sequence[str], label: str) -> list[Finding]:
    """The stations around which neighbouring residuals agree most.

    Parameters
    ----------
    x, y, observed : ndarray, shape (n,)
    residual : ndarray, shape (n,)
        Predicted minus observed in standard deviations; NaN where masked.
    names : sequence of str
        Of the stations.
    label : str
        What to call the component.
    """
    found = neighbourhood(x, y, observed, residual)
    if found is None or found.score < _CORRELATED:
        return []
    size = np.where(np.isfinite(found.mean) & ~found.rounds_peak, np.abs(found.mean), 0.0)
    centre = int(np.argmax(size))
    if size[centre] <= _LEAST_MEAN:
        return []
    chosen = np.flatnonzero((size > _LEAST_MEAN) & (np.sign(found.mean) == np.sign(found.mean[centre])))
    chosen = chosen[np.argsort(-size[chosen], kind="stable")]
    side = "above" if found.mean[centre] > 0.0 else "below"
    return [Finding("warning", "residual-clusters",
                    f"{label}: residuals of neighbours agree (Moran's I {found.moran:.2f}): around x {x[centre]:.8g}, y "
                    f"{y[centre]:.8g} the predicted data are {side} the observed ones by {size[centre]:.1f} times the RMS on the "
                    f"mean of {found.count} stations", "look at the map of residuals there: cells too large for shallow sources, "
                    "bounds, constant offsets of lines, or standard deviations that are too small there",
                    tuple(names[number] for number in chosen.tolist()))]


def check_peak(x: Reals, y: Reals, observed: Reals, residual: Reals, deviation: Reals, label: str) -> list[Finding]:
    """Whether the model leaves much of the largest anomaly: smooth models round weak peaks by several percent, and more is a
    body that is too shallow, too wide and too light.

    Parameters
    ----------
    x, y, observed : ndarray, shape (n,)
    residual : ndarray, shape (n,)
        Predicted minus observed in standard deviations; NaN where masked.
    deviation : ndarray, shape (n,)
        Standard deviations.
    label : str
        What to call the component.
    """
    found = neighbourhood(x, y, observed, residual)
    if found is None:
        return []
    centre = int(np.nanargmax(np.abs(found.anomaly)))
    if -found.mean[centre] * np.sign(found.anomaly[centre]) < _ROUNDED:
        return []
    held = np.flatnonzero(np.isfinite(residual))
    near = held[np.argsort(np.hypot(x[held] - x[centre], y[held] - y[centre]), kind="stable")[:found.count]]
    lost = -float((residual * deviation)[near].sum()) / float((observed[near] - np.median(observed[held])).sum())
    if lost < _LOST:
        return []
    return [Finding("warning", "rounded-peak", f"{label}: around x {x[centre]:.8g}, y {y[centre]:.8g} the model explains "
                    f"{100.0 * (1.0 - lost):.0f} % of the largest anomaly, on the mean of {found.count} stations",
                    "a blocky norm keeps peaks: init and voxlith-run --model-norm blocky, with cells small enough for the body")]
