"""Colours, fonts and scales: one look for all pictures.

Line colours are those of Okabe and Ito (2008), told apart by colour-blind readers. Maps are viridis, and PuOr, purple to
orange, centred on zero where both signs matter.
"""

from __future__ import annotations

import functools
import warnings
from collections.abc import Callable
from typing import Any, Final, ParamSpec, TypeVar

import matplotlib
import numpy as np
import numpy.typing as npt
from matplotlib.backends.backend_agg import FigureCanvasAgg
from matplotlib.figure import Figure

from ..errors import UsageError

Reals = npt.NDArray[np.float64]
Limits = tuple[float, float]

BLUE, ORANGE, GREEN, VERMILION, PURPLE, GREY = "#0072B2", "#E69F00", "#009E73", "#D55E00", "#CC79A7", "#666666"
SEQUENTIAL, DIVERGING = "viridis", "PuOr_r"
MOST_VECTOR_POINTS: Final = 3000
"""More stations than these are drawn as pixels in PDF and SVG."""

SETTINGS: Final[dict[str, Any]] = {
    "font.size": 9, "axes.titlesize": 9.5, "axes.labelsize": 9, "legend.fontsize": 8, "xtick.labelsize": 8,
    "ytick.labelsize": 8, "figure.titlesize": 11, "axes.linewidth": 0.7, "legend.framealpha": 0.9,
    "pdf.fonttype": 42, "svg.fonttype": "path", "svg.hashsalt": "voxlith", "axes.formatter.useoffset": False,
    # Names of files and lines are text, whatever they hold.
    "text.parse_math": False, "text.usetex": False, "axes.formatter.use_mathtext": False,
}

_BOTH_SIGNS = 0.15  # of the larger magnitude; a smaller one of the other sign does not matter
_LARGEST = 1.0e30  # beyond it Matplotlib's ticks overflow

P = ParamSpec("P")
R = TypeVar("R")


def styled(function: Callable[P, R]) -> Callable[P, R]:
    """Let a function draw with the settings of this module, whatever those of the user are."""
    @functools.wraps(function)
    def wrapped(*args: P.args, **kwargs: P.kwargs) -> R:
        with matplotlib.rc_context(SETTINGS), warnings.catch_warnings():
            # Letters that the font lacks become boxes; a layout that is too small for its labels stays readable.
            warnings.filterwarnings("ignore", module="matplotlib")
            warnings.filterwarnings("ignore", message="Glyph .* missing from current font")
            return function(*args, **kwargs)
    return wrapped


def new_figure(width: float, height: float, *, constrained: bool = True) -> Figure:
    """A figure of this size in inches, kept by nothing but its name."""
    figure = Figure(figsize=(width, height), layout="constrained" if constrained else None)
    FigureCanvasAgg(figure)
    return figure


def drawable(values: npt.ArrayLike) -> Reals:
    """Values with NaN in place of those that no axis can hold."""
    array = np.asarray(values, dtype=np.float64)
    with np.errstate(invalid="ignore"):
        return np.where(np.abs(array) < _LARGEST, array, np.nan)


def value_scale(*arrays: npt.ArrayLike, colormap: str | None = None, limits: Limits | None = None) -> tuple[str, float, float]:
    """Colour map and limits that arrays share: centred on zero where both signs matter.

    Raises
    ------
    UsageError
        For an unknown colour map, and for limits that do not rise.

    >>> value_scale([0.0, 2.0]), value_scale([-1.0, 2.0])
    (('viridis', 0.0, 2.0), ('PuOr_r', -2.0, 2.0))
    """
    values = np.concatenate([np.ravel(drawable(array)) for array in arrays])
    values = values[np.isfinite(values)]
    low, high = (float(values.min()), float(values.max())) if len(values) else (0.0, 1.0)
    chosen = SEQUENTIAL
    if low < 0.0 < high and min(-low, high) > _BOTH_SIGNS * max(-low, high):
        chosen, low, high = DIVERGING, -max(-low, high), max(-low, high)
    elif high - low <= 1e-12 * abs(high):
        pad = abs(high) * 0.05 or 1.0
        low, high = low - pad, high + pad
    if limits is not None:
        if np.shape(limits) != (2,):
            raise UsageError(f"limits {limits}: expected two numbers that rise")
        low, high = limits
        if not (np.isfinite(low) and np.isfinite(high) and low < high):
            raise UsageError(f"limits {low:g},{high:g}: expected two numbers that rise")
    return check_colormap(colormap) or chosen, low, high


def check_colormap(name: str | None) -> str | None:
    """The name of a colour map of Matplotlib. Raises UsageError for an unknown one."""
    if name is not None and name not in matplotlib.colormaps:
        raise UsageError(f"colour map {name}: Matplotlib has none of that name")
    return name


def extension(values: npt.ArrayLike, low: float, high: float) -> str:
    """Ends of a colour bar beyond which there are values."""
    array = drawable(values)
    with np.errstate(invalid="ignore"):
        below, above = bool((array < low).any()), bool((array > high).any())
    return "both" if below and above else "min" if below else "max" if above else "neither"
