"""Axes of lengths: metres or kilometres, without a constant part where coordinates are long."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Any

from matplotlib.ticker import FuncFormatter, MaxNLocator

_KILOMETRES_FROM = 5000.0  # metres of extent
_LONG_NUMBER = 1.0e5  # tick labels of six digits and more are long


@dataclass(frozen=True)
class LengthScale:
    """How coordinates are shown: ``(metres - offset) / unit_length`` in `unit`.

    Attributes
    ----------
    unit : str
    unit_length : float
        Metres.
    offset : float
        Metres.
    """

    unit: str
    unit_length: float
    offset: float

    def shown(self, metres: float) -> str:
        """Text of a tick."""
        value = (metres - self.offset) / self.unit_length
        return f"{round(value, 6) + 0.0:.10g}".replace("-", "−")

    def label(self, name: str, meaning: str = "") -> str:
        """Label of an axis.

        >>> length_scale(452000.0, 453200.0).label("x", "east")
        'x − 450000, east (m)'
        """
        constant = f" − {self.offset / self.unit_length:.12g}" if self.offset else ""
        return f"{name}{constant}{f', {meaning}' if meaning else ''} ({self.unit})"


def length_scale(low: float, high: float) -> LengthScale:
    """Scale for an axis from `low` to `high`, metres.

    >>> length_scale(7445400.0, 7577900.0)
    LengthScale(unit='km', unit_length=1000.0, offset=0.0)
    >>> length_scale(0.0, 1600.0)
    LengthScale(unit='m', unit_length=1.0, offset=0.0)
    """
    extent = abs(high - low)
    unit, unit_length = ("km", 1000.0) if extent >= _KILOMETRES_FROM else ("m", 1.0)
    offset = 0.0
    if max(abs(low), abs(high)) / unit_length >= _LONG_NUMBER and extent > 0.0:
        step = 10.0 ** math.ceil(math.log10(extent))
        offset = math.floor(min(low, high) / step) * step
    return LengthScale(unit, unit_length, offset)


def show_lengths(axis: Any, scale: LengthScale, ticks: int = 5) -> None:
    """Plain ticks of an axis in this scale."""
    axis.set_major_locator(MaxNLocator(ticks, steps=[1, 2, 2.5, 5, 10]))
    axis.set_major_formatter(FuncFormatter(lambda value, _: scale.shown(value)))


def map_axes(panel: Any, x_limits: tuple[float, float], y_limits: tuple[float, float], ticks: int = 5) -> None:
    """Labels and ticks of a map, easting and northing."""
    for axis, limits, name, meaning in ((panel.xaxis, x_limits, "x", "east"), (panel.yaxis, y_limits, "y", "north")):
        scale = length_scale(*limits)
        show_lengths(axis, scale, ticks)
        axis.set_label_text(scale.label(name, meaning))


def metres(value: float, cell: float = 0.0) -> str:
    """A coordinate without an exponent and without a minus in front of zero, to a hundredth of the width of a cell.

    >>> metres(5318549.5455, 50.0), metres(-0.0), metres(2.25)
    ('5318549.5', '0', '2.25')
    """
    decimals = max(2 - math.floor(math.log10(cell)), 0) if cell > 0.0 else 12
    return f"{round(float(value), decimals) + 0.0:.12g}"
