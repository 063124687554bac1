"""Compact models by reweighting: the smallness of a cell is weighted less, the larger the amplitude of the model in it.

Minimising ``sum w f (m - r)^2`` with ``f = (1 + a^2 / eps^2)^(p/2 - 1)``, and computing f anew from the amplitude a of the last
model in each round, approaches the minimum of ``sum w (a^2 + eps^2)^(p/2)`` (Last and Kubik 1983, Geophysics 48, 713-721; Portniaguine
and Zhdanov 1999, Geophysics 64, 874-887). With p = 0 the volume of the body counts, not its magnitude. The amplitude of a magnetisation is
that of its vector: weighting each component by itself would turn vectors towards the axes.
"""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass, replace

import numpy as np
import numpy.typing as npt

from .errors import UsageError
from .io.weight_file import CellWeights
from .model import Model
from .stack import Stack
from .survey import Survey

Reals = npt.NDArray[np.float64]

FIRST_SHARE = 0.1
"""eps of the first round over the largest amplitude."""

LAST_SHARE = 0.02
"""The smallest eps over the largest amplitude of the last model."""

COOLING = 0.7
"""eps over that of the round before."""

_LEAST_SLOPE, _USUAL_SLOPE, _LARGEST_SLOPE = 0.3, 0.5, 1.0  # of -log of the squared misfit of a component over log of its factor
_LARGEST_CHANGE = 20.0  # of a factor in a round
_LEAST_FACTOR = 1.0e-3


@dataclass(frozen=True)
class Compactness:
    """What the weights of the next round are made with.

    Attributes
    ----------
    eps : tuple of float
        Amplitude above which a cell is weighted less, one for each group of properties.
    norm : float
        p, from 0 to 2.
    smoothness : float
        Factor of the weights of differences.
    """

    eps: tuple[float, ...]
    norm: float = 0.0
    smoothness: float = 1.0e-3


def amplitudes(stack: Stack, values: npt.ArrayLike) -> list[Reals]:
    """Amplitude of each group in each cell of a stacked model, in model units, shape (cells,) each.

    Components count as if at right angles to each other.
    """
    parts = np.split(np.asarray(values, dtype=np.float64), len(stack.properties))
    return [np.sqrt(sum((np.square(np.nan_to_num(parts[number])) for number in group), np.zeros(stack.mesh.n_cells)))
            for group in stack.groups()]


def next_eps(found: list[Reals], before: Compactness | None) -> tuple[float, ...]:
    """eps of each group for the round after a model with these amplitudes."""
    largest = [float(one.max(initial=0.0)) for one in found]
    if before is None:
        return tuple(FIRST_SHARE * one for one in largest)
    return tuple(max(COOLING * eps, LAST_SHARE * one) for eps, one in zip(before.eps, largest))


def compact_weights(stack: Stack, base: CellWeights, values: npt.ArrayLike, how: Compactness) -> CellWeights:
    """Weights of a stacked run for its next round.

    Parameters
    ----------
    stack : Stack
    base : CellWeights
        Of the first round.
    values : array_like, shape (stacked cells,)
        Model of the last round.
    how : Compactness
    """
    if not 0.0 <= how.norm <= 2.0:
        raise UsageError(f"norm {how.norm:g}: expected a number from 0 to 2")
    factors = [np.ones(stack.mesh.n_cells)] * len(stack.properties)
    for group, amplitude, eps in zip(stack.groups(), amplitudes(stack, values), how.eps):
        if eps > 0.0:
            factor = np.power(1.0 + np.square(amplitude / eps), 0.5 * how.norm - 1.0)
            for number in group:
                factors[number] = factor
    smallness = stack.stacked_mesh.cube(np.concatenate(factors)) * base.smallness
    return CellWeights(smallness, *(section * how.smoothness for section in base.sections()[1:]))


def balanced_factors(stack: Stack, factors: list[float], rms: list[float], target: float) -> list[float]:
    """Factors of the weights of each group that bring its data closer to the target misfit.

    Parameters
    ----------
    stack : Stack
    factors : list of float
        Of the last run, one for each group.
    rms : list of float
        Misfit of each component in it.
    target : float

    Returns
    -------
    list of float
        Their geometric mean is 1: the trade-off is searched anyway.
    """
    found = list(factors)
    for number, group in enumerate(stack.groups()):
        misfit = group_misfit(stack, group, rms)
        if misfit > 0.0:
            found[number] *= min(max((target / misfit) ** 2, 0.05), 20.0)
    mean = float(np.exp(np.mean(np.log(found))))
    return [factor / mean for factor in found]


def group_misfit(stack: Stack, group: list[int], rms: list[float]) -> float:
    """RMS misfit of the data that depend on a group alone; 0 where there are none."""
    parts = [number for number in stack.components_of(group) if not np.isnan(rms[number])]
    count = sum(stack.components[number].count for number in parts)
    return float(np.sqrt(sum(rms[number] ** 2 * stack.components[number].count for number in parts) / count)) if count else 0.0


def component_factors(stack: Stack, tried: Sequence[tuple[Sequence[float], Sequence[float]]], target: float) -> list[float]:
    """Factors of the data misfit of each component that bring it closer to the target misfit.

    Components of one group share its norm, whose factor brings the group to the target, see :func:`balanced_factors`. The mean of
    their factors over their rows is 1. Components of no group have factors of their own.

    Parameters
    ----------
    stack : Stack
    tried : sequence of pairs
        Factors and misfits (RMS) of the rounds so far, the last one at the end. The last two show how a misfit follows its factor.
    target : float
    """
    factors, rms = (np.asarray(part, dtype=np.float64) for part in tried[-1])
    distance = np.where(rms > 0.0, 2.0 * np.log(np.where(rms > 0.0, rms, target) / target), 0.0)
    slope = np.full(len(factors), _USUAL_SLOPE)
    if len(tried) > 1:
        step = np.log(factors / np.asarray(tried[-2][0]))
        moved = (np.abs(step) > 1.0e-2) & (rms > 0.0)
        change = 2.0 * np.log(rms[moved] / np.asarray(tried[-2][1])[moved])
        slope[moved] = np.clip(-change / step[moved], _LEAST_SLOPE, _LARGEST_SLOPE)
    found = factors * np.clip(np.exp(distance / slope), 1.0 / _LARGEST_CHANGE, _LARGEST_CHANGE)
    rows = np.array([one.count for one in stack.components], dtype=np.float64)
    for group in stack.groups():
        parts = stack.components_of(group)
        if parts:
            found[parts] = np.maximum(found[parts] / np.average(found[parts], weights=rows[parts]), _LEAST_FACTOR)
    return [float(one) for one in found / np.average(found, weights=rows)]


def weighted_survey(stack: Stack, survey: Survey, factors: Sequence[float]) -> Survey:
    """Data of a stacked run whose standard deviations make each component's misfit count by its factor."""
    spread = survey.uncertainties().copy()
    for one, factor in zip(stack.components, factors, strict=True):
        spread[:, one.rows] /= np.sqrt(factor)
    return replace(survey, uncertainty=spread)


def balanced_weights(stack: Stack, weights: CellWeights, factors: list[float]) -> CellWeights:
    """Weights of a stacked run with a factor for each group of properties."""
    ny = stack.mesh.ny
    along = np.ones(len(stack.properties))
    for factor, group in zip(factors, stack.groups()):
        along[group] = factor
    cells = np.repeat(along, ny)
    # A difference across a seam has the weight 0.
    return CellWeights(*(section * (cells if section.shape[2] == len(cells) else cells[:-1]) for section in weights.sections()))


def changed_share(before: Model, after: Model) -> float:
    """Norm of the change of a model over its norm."""
    norm = float(np.linalg.norm(np.nan_to_num(after.values)))
    return float(np.linalg.norm(np.nan_to_num(after.values - before.values))) / norm if norm > 0.0 else 0.0
