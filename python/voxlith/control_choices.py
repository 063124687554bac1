"""Values of a control file that suit the data and the sensitivity files of a run, and the reasons for them."""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass, field

import numpy as np
import numpy.typing as npt

from .codes import is_magnetic
from .io.mtx_header import MtxHeader
from .io.numbers import number_text
from .tradeoff import TradeoffResult, search_tradeoff

Reals = npt.NDArray[np.float64]

_USUAL_ITERATIONS = 100
_MANY_ITERATIONS = 200  # cells at a bound, and two models, slow a run down
_GRAVITY_TRADEOFF, _MAGNETIC_TRADEOFF = 0.01, 1.0  # what the program takes for none
_SMALLNESS_OF_CELL = 0.005  # alphaS times the cell size: differences dominate within some ten cells
_MOST_COEFFICIENTS = 250_000_000  # 2 GB of rows
_MOST_OF_ROCKS = 15.0  # g/cm3 or SI
_HEADROOM = 4.0  # bounds over the largest value of the smooth model without them
_TARGET_MISFIT = 0.95  # RMS; a little below 1, as the run approaches its end from above
_TARGET_WITH_SIGN = 0.8  # bounds that the search does not know raise the misfit


@dataclass(frozen=True)
class Overrides:
    """What the user has said; the rest is chosen.

    Attributes
    ----------
    sign : int or None
        -1 negative, 0 either, 1 positive.
    tradeoff : float or None
    iterations : int or None
    bounds : str
        ``"lower,upper"`` or ``"null"``; empty for none.
    """

    sign: int | None = None
    tradeoff: float | None = None
    iterations: int | None = None
    bounds: str = ""


@dataclass
class Choices:
    """Values of the lines of a control file.

    Attributes
    ----------
    unit : str
        Of the model.
    sign : int
        Line 3.
    tradeoff, tradeoff_reason
        Line 3, and what stands for it.
    initial : float
        Line 6.
    bounds : str
        Line 8.
    alpha_s : float
        Line 9.
    cell : float
        Size of the core's cells, metres.
    iterations : int
        Line 12.
    model_of : list of int
        Model type (from 0) of each sensitivity file.
    factor, factor_reason
        Of the products with model 2, which is counted in units of it.
    warnings : list of str
        What the models without bounds make suspect.
    """

    unit: str
    sign: int
    tradeoff: float
    initial: float
    bounds: str
    alpha_s: float
    cell: float
    iterations: int
    model_of: list[int]
    tradeoff_reason: str = ""
    factor: float = 1.0
    factor_reason: str = ""
    warnings: list[str] = field(default_factory=list)

    @property
    def model_count(self) -> int:
        """Model types."""
        return max(self.model_of) + 1


def choose_values(headers: Sequence[MtxHeader], overrides: Overrides) -> Choices:
    """All values but those that need a search: trade-off, factor, and bounds of two models.

    Parameters
    ----------
    headers : sequence of MtxHeader
        Of the sensitivity files in the order of the components of the data.
    overrides : Overrides
    """
    magnetic = [is_magnetic(header.data_type) for header in headers]
    mixed = any(magnetic) and not all(magnetic)
    sign = overrides.sign
    if sign is None:
        sign = 0 if mixed or not magnetic[0] else 1
    # Of two models the second is in units of a factor that the data may still change.
    bounds = overrides.bounds or _bounds_of(sign, "99" if mixed else "1")
    cell = _cell_size(headers[0])
    iterations = overrides.iterations or (_MANY_ITERATIONS if sign or mixed else _USUAL_ITERATIONS)
    tradeoff = overrides.tradeoff or (_MAGNETIC_TRADEOFF if magnetic[0] else _GRAVITY_TRADEOFF)
    unit = "g/cm3 and SI" if mixed else "SI" if magnetic[0] else "g/cm3"
    return Choices(unit, sign, tradeoff, 0.001 * sign, bounds, _rounded(_SMALLNESS_OF_CELL / cell, 1), cell, iterations,
                   [int(mixed and one) for one in magnetic])


def choose_tradeoff(choices: Choices, names: Sequence[str], coefficients: int, data: Reals, uncertainty: Reals,
                    overrides: Overrides) -> None:
    """Choose the trade-off, and with two model types the factor of the second one.

    The trade-off is that of the overrides, or the one at which an inversion without bounds fits the data. For files
    whose rows are too many to be held for that it is the one that the program takes for the data type. With two model
    types the factor makes the trade-off of the first serve the second, too: a model in units of f has 1/f^2 of its norm
    squared, so f is the root of the one's trade-off over the other's. Where data of one type are not fitted with any
    trade-off, f is the ratio of the largest values of both models.

    Parameters
    ----------
    choices : Choices
        Of :func:`choose_values`; trade-off, factor, bounds, unit and warnings change.
    names : sequence of str
        Sensitivity files.
    coefficients : int
        In all of them.
    data, uncertainty : ndarray, shape (files, data)
        NaN where masked.
    overrides : Overrides

    Raises
    ------
    RunError
        When the program that computes fails.
    """
    asked, two = overrides.tradeoff is not None, choices.model_count > 1
    choices.tradeoff_reason = "as it was asked for"
    if asked and not two:
        return
    if coefficients > _MOST_COEFFICIENTS:
        too_large = "the sensitivity files are too large to try others here"
        choices.tradeoff_reason = choices.tradeoff_reason if asked else f"the usual value; {too_large}"
        choices.factor_reason = f"1; {too_large}" if two else ""
        return
    first = _search(choices, names, data, uncertainty, 0)
    if not asked:
        choices.tradeoff = _rounded(first.tradeoff, 2) if first.usable else choices.tradeoff
        choices.tradeoff_reason = ("model 1 by itself: " if two else "") + _reason(first)
    _add_warnings(choices, first, "g/cm3" if two else choices.unit)
    if two:
        second = _search(choices, names, data, uncertainty, 1)
        _add_warnings(choices, second, "SI")
        _choose_factor(choices, first, second, overrides)


def _search(choices: Choices, names: Sequence[str], data: Reals, uncertainty: Reals, model: int) -> TradeoffResult:
    """The trade-off of the files of one model type by themselves: types have no part of the norm in common."""
    chosen = [n for n, number in enumerate(choices.model_of) if number == model]
    # Each component counts by itself in the misfit of a joint inversion.
    target = math.sqrt(len(chosen)) * (_TARGET_WITH_SIGN if choices.sign else _TARGET_MISFIT)
    return search_tradeoff([names[n] for n in chosen], data[chosen], uncertainty[chosen], alpha_s=choices.alpha_s,
                           target=target)


def _cell_size(header: MtxHeader) -> float:
    """Geometric mean of the core's widths; axes of one cell say nothing."""
    widths = [np.abs(np.diff(nodes)) for nodes in (header.x_nodes, header.y_nodes, header.z_nodes)]
    logarithms = [math.log(float(values.min())) for values in widths if len(values) > 1]
    return math.exp(sum(logarithms) / len(logarithms)) if logarithms else float(widths[0].min())


def _rounded(value: float, digits: int) -> float:
    """A number with few significant digits.

    >>> _rounded(0.0123, 1), _rounded(-0.0456, 2), _rounded(0.0, 2)
    (0.01, -0.046, 0.0)
    """
    if value == 0.0:
        return 0.0
    power = math.floor(math.log10(abs(value)))
    return float(f"{value:.{digits - 1}e}") if -300 < power < 300 else value


def _bounds_of(sign: int, most: str) -> str:
    return f"{'0' if sign > 0 else f'-{most}'},{'0' if sign < 0 else most}"


def _reason(result: TradeoffResult) -> str:
    if not result.usable:
        return "the data lie within their standard deviations and need no model; the usual value is taken"
    misfit = number_text(round(result.misfit, 2))
    if result.reached:
        return f"an inversion without bounds comes to an RMS misfit of {misfit} with it"
    if result.misfit > 0.0:
        return (f"an RMS misfit of {misfit} remains with it: standard deviations may be too small, or cells too "
                "large")
    return "the data lie within their standard deviations; a weak model is all they need"


def _add_warnings(choices: Choices, result: TradeoffResult, unit: str) -> None:
    """Rocks do not have such values: the data are in another unit, have the other sign, or were measured elsewhere."""
    values = (f"an inversion without bounds makes values from {number_text(_rounded(result.smallest, 2))} to "
              f"{number_text(_rounded(result.largest, 2))} {unit}")
    if result.magnitude > _MOST_OF_ROCKS:
        choices.warnings.append(f"{values}: check the unit of the data and the elevations of the stations")
    against = -result.smallest > 2.0 * result.largest if choices.sign > 0 else result.largest > -2.0 * result.smallest
    if choices.sign and against:
        word = "positive" if choices.sign > 0 else "negative"
        choices.warnings.append(f"{values}, and values are to be {word}: check the sign of the data, a constant offset "
                                "in them, and --sign")


def _choose_factor(choices: Choices, first: TradeoffResult, second: TradeoffResult, overrides: Overrides) -> None:
    """One pair of bounds holds for both models, so it is wide enough for the larger one."""
    if not (first.magnitude > 0.0 and second.magnitude > 0.0):
        choices.factor_reason = "1, as the data of one model need no model"
        return
    if first.reached and second.reached:
        choices.factor = _rounded(math.sqrt(first.tradeoff / second.tradeoff), 2)
        choices.factor_reason = (f"the root of {number_text(_rounded(first.tradeoff, 2))}, the trade-off for model 1 "
                                 f"alone, over {number_text(_rounded(second.tradeoff, 2))}, that for model 2 alone")
    else:
        choices.factor = _rounded(second.magnitude / first.magnitude, 2)
        choices.factor_reason = ("brings both models to numbers of like size; the data of model "
                                 f"{2 if first.reached else 1} alone are not fitted with any trade-off")
    choices.unit = f"g/cm3 and {number_text(choices.factor)} SI"
    if not overrides.bounds:
        largest = _HEADROOM * max(first.magnitude, second.magnitude / choices.factor)
        choices.bounds = _bounds_of(choices.sign, number_text(max(1.0, math.ceil(largest))))
