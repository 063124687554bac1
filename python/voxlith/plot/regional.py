"""Field, regional field and residual: maps, or profiles where the stations stand on one line."""

from __future__ import annotations

import numpy as np
from matplotlib.figure import Figure

from ..codes import unit_text
from ..regional import Regional
from ..section import Line, straight_line
from ..survey import Survey
from . import style
from .data import colour_bar, distance_label, field_map, panel_size, show_extent
from .lengths import show_lengths
from .style import drawable, new_figure, styled


@styled
def regional_figure(survey: Survey, regional: Regional, component: int = 0) -> Figure:
    """Field, regional field and residual of a component.

    Parameters
    ----------
    survey : Survey
        The field before the subtraction.
    regional : Regional
    component : int
        Counted from 0.
    """
    name, unit = survey.names[component], unit_text(survey.units[component])
    line = straight_line(survey.x, survey.y)
    draw = _maps if line is None else _profiles
    return draw(survey, drawable(survey.data[component]), drawable(regional.values), f"{name} ({unit})", line)


def _maps(survey: Survey, field: style.Reals, regional: style.Reals, label: str, _line: Line | None) -> Figure:
    width, height = panel_size(survey, 3)
    figure = new_figure(3 * width + 0.9, height + 1.5)
    panels = figure.subplots(1, 3, sharex=True, sharey=True)
    colours, low, high = style.value_scale(field, regional)
    for panel, values, title in zip(panels, (field, np.where(np.isfinite(field), regional, np.nan)), ("Field", "Regional field")):
        shown = field_map(panel, survey, values, colours, low, high)
        panel.set_title(title)
    colour_bar(figure, shown, list(panels[:2]), label, "neither")
    residual = field - regional
    most = float(np.nanmax(np.abs(residual), initial=0.0)) or 1.0
    shown = field_map(panels[2], survey, residual, style.DIVERGING, -most, most)
    panels[2].set_title("Residual, field minus regional field")
    colour_bar(figure, shown, [panels[2]], label, "neither")
    show_extent(panels, survey)
    return figure


def _profiles(_survey: Survey, field: style.Reals, regional: style.Reals, label: str, line: Line | None) -> Figure:
    if line is None:
        raise ValueError("a profile needs a line")
    order = np.argsort(line.distance, kind="stable")
    at = line.distance[order]
    figure = new_figure(8.0, 5.2)
    upper, lower = figure.subplots(2, 1, sharex=True)
    upper.plot(at, field[order], ".-", color="black", markersize=4, linewidth=0.8, label="field")
    upper.plot(at, regional[order], color=style.VERMILION, label="regional field")
    lower.plot(at, (field - regional)[order], ".-", color=style.BLUE, markersize=4, linewidth=0.8, label="residual")
    for panel in (upper, lower):
        panel.set_ylabel(label)
        panel.legend(loc="best")
        panel.grid(True, color="0.9", linewidth=0.6)
    text, scale = distance_label(line)
    show_lengths(lower.xaxis, scale, 8)
    lower.set_xlabel(text)
    return figure
