"""Values of a control file that suit the data and the sensitivity files of a run, and the reasons for them."""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass, field

import numpy as np
import numpy.typing as npt

from .codes import is_magnetic
from .errors import FileError
from .first_model import FirstModel, first_model
from .io.mtx_header import MtxHeader
from .io.numbers import number_text

Reals = npt.NDArray[np.float64]

_USUAL_ITERATIONS = 100
_MANY_ITERATIONS = 200  # cells at a bound, and two models, slow a run down
_GRAVITY_TRADEOFF, _MAGNETIC_TRADEOFF = 0.01, 1.0  # what the program takes for none
_SMALLNESS_OF_CELL = 0.005  # alphaS times the cell size: differences dominate within some ten cells
_MOST_COEFFICIENTS = 250_000_000  # 2 GB of rows
_MOST_OF_FIRST_MODEL = 3.0  # g/cm3 or SI; its values are some ten times too small, and rocks have less than 15


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
    both_signs : bool
        Whether known bounds allow values of both signs: without a sign of the user the model then may have either.
    """

    sign: int | None = None
    tradeoff: float | None = None
    iterations: int | None = None
    bounds: str = ""
    both_signs: bool = False


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
    warnings : list of str
        What the values of a first model make suspect.
    one_sign : bool
        Whether all values may be known to have one sign; not those of several properties.
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
    warnings: list[str] = field(default_factory=list)
    one_sign: bool = True

    @property
    def model_count(self) -> int:
        """Model types."""
        return max(self.model_of) + 1


def choose_values(headers: Sequence[MtxHeader], overrides: Overrides) -> Choices:
    """All values.

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
        sign = 0 if mixed or not magnetic[0] or overrides.both_signs else 1
    bounds = overrides.bounds or _bounds_of(sign, "1")
    cell = _cell_size(headers[0])
    iterations = overrides.iterations or (_MANY_ITERATIONS if sign or mixed else _USUAL_ITERATIONS)
    tradeoff = overrides.tradeoff or (_MAGNETIC_TRADEOFF if magnetic[0] else _GRAVITY_TRADEOFF)
    reason = "a starting value" if overrides.tradeoff is None else "as it was asked for"
    unit = "g/cm3 and SI" if mixed else "SI" if magnetic[0] else "g/cm3"
    return Choices(unit, sign, tradeoff, 0.001 * sign, bounds, _rounded(_SMALLNESS_OF_CELL / cell, 1), cell, iterations,
                   [int(mixed and one) for one in magnetic], reason)


def choose_norm(choices: Choices, weighted: bool) -> str:
    """The model norm with which masses and depths of bodies are right: blocky for one model that may have either sign, or is
    of a susceptibility.

    A smooth model of either sign has up to twice the mass of a body, one of a susceptibility up to 1.3 times, see
    docs/depth-weighting.md. Blocky norms need depth weights (`weighted`), and two models share their weights.
    """
    doubtful = choices.sign == 0 or choices.unit == "SI"
    return "blocky" if weighted and choices.model_count == 1 and doubtful else "smooth"


def add_warnings(choices: Choices, names: Sequence[str], coefficients: int, data: Reals, uncertainty: Reals) -> None:
    """Look at the values that the data ask for, those of a :func:`~voxlith.first_model.first_model`, and warn of odd ones.

    Files with too many coefficients to read twice are not looked at.

    Parameters
    ----------
    choices : Choices
        Of :func:`choose_values`; warnings are added.
    names : sequence of str
        Sensitivity files.
    coefficients : int
        In all of them.
    data, uncertainty : ndarray, shape (files, data)
        NaN where masked.

    Raises
    ------
    FileError
        For a sensitivity file that cannot be read.
    """
    if coefficients > _MOST_COEFFICIENTS:
        return
    units = ("g/cm3", "SI") if choices.model_count > 1 else (choices.unit,)
    for model, unit in enumerate(units):
        chosen = [n for n, number in enumerate(choices.model_of) if number == model]
        found = first_model([names[n] for n in chosen], data[chosen], uncertainty[chosen])
        if not (math.isfinite(found.smallest) and math.isfinite(found.largest)):
            raise FileError(names[chosen[0]], "expected coefficients that are numbers; a first model has values that are not")
        _add_warnings(choices, found, unit)


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


def _add_warnings(choices: Choices, model: FirstModel, unit: str) -> None:
    """Rocks do not have such values: the data are in another unit, have the other sign, or were measured elsewhere."""
    values = (f"a first, weak model of the data has values from {number_text(_rounded(model.smallest, 2))} to "
              f"{number_text(_rounded(model.largest, 2))} {unit}")
    if model.magnitude > _MOST_OF_FIRST_MODEL:
        choices.warnings.append(f"{values}: check the unit of the data and the elevations of the stations")
    against = -model.smallest > 2.0 * model.largest if choices.sign > 0 else model.largest > -2.0 * model.smallest
    if choices.sign and against:
        word = "positive" if choices.sign > 0 else "negative"
        choices.warnings.append(f"{values}, and values are to be {word}: check the sign of the data, a constant offset "
                                "in them, and --sign")
