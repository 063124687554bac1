"""Data of vertical boreholes against elevation: observed and predicted data of each hole, and residuals beside or below them."""

from __future__ import annotations

from typing import Any

import numpy as np
from matplotlib.figure import Figure
from matplotlib.ticker import MaxNLocator

from ..holes import Hole
from . import style
from .data_view import DataView
from .style import Limits, drawable, new_figure

MOST_HOLES = 6


def hole_profiles(view: DataView, component: int, holes: list[Hole], title: str, limits: Limits | None) -> Figure:
    """A panel for each hole, of the first six, with one scale of elevation; residuals on the right of one hole, else below."""
    shown = holes[:MOST_HOLES]
    with_residual = view.predicted is not None
    if len(shown) == 1:
        figure = new_figure(7.4 if with_residual else 4.4, 5.6)
        panels = figure.subplots(1, 1 + with_residual, sharey=True, squeeze=False).T
    else:
        figure = new_figure(2.3 * len(shown) + 1.0, 8.0 if with_residual else 5.0)
        panels = figure.subplots(1 + with_residual, len(shown), sharex="row", sharey=True, squeeze=False)
    for number, hole in enumerate(shown):
        _data_of_hole(panels[0, number], view, component, hole)
        panels[0, number].set_title(f"x {hole.x:.0f}, y {hole.y:.0f}", fontsize=8.5)
        if with_residual:
            _residuals_of_hole(panels[1, number], view, component, hole)
    for panel in panels.flat:
        panel.grid(True, color="0.9", linewidth=0.6)
        panel.xaxis.set_major_locator(MaxNLocator(4))
        panel.ticklabel_format(axis="x", style="sci", scilimits=(-4, 6))
    for number, panel in enumerate(panels[:, 0]):
        if number == 0 or len(shown) > 1:
            panel.set_ylabel("elevation (m)")
    if limits is not None:
        panels[0, 0].set_xlim(style.value_scale(view.observed(component), limits=limits)[1:])
    some = "" if len(shown) == len(holes) else f", first {len(shown)} of {len(holes)} holes"
    if len(shown) == 1:
        panels[0, 0].legend(loc="best", fontsize=7.5)
        figure.suptitle(title)
    else:  # a legend is wider than a narrow panel
        figure.suptitle(title + some, x=0.01, ha="left")
        figure.legend(*panels[0, 0].get_legend_handles_labels(), loc="upper right", ncol=2, fontsize=7.5, frameon=False)
    return figure


def _data_of_hole(panel: Any, view: DataView, component: int, hole: Hole) -> None:
    at, height = hole.stations, view.survey.elevation[hole.stations]
    panel.errorbar(view.observed(component)[at], height, xerr=view.deviation(component)[at], fmt=".", color="black", markersize=4,
                   elinewidth=0.8, label="observed, ±1 standard deviation")
    if view.predicted is not None:
        panel.plot(view.modelled(component)[at], height, color=style.BLUE, linewidth=1.4, label="predicted")
    panel.set_xlabel(f"{view.names[component]} ({view.unit(component)})")


def _residuals_of_hole(panel: Any, view: DataView, component: int, hole: Hole) -> None:
    scores = drawable(view.zscore(component))[hole.stations]
    panel.axvspan(-1.0, 1.0, color="0.88", linewidth=0.0)
    panel.axvline(0.0, color=style.GREY, linewidth=0.8)
    panel.plot(scores, view.survey.elevation[hole.stations], ".", color=style.VERMILION, markersize=4)
    reach = 1.1 * max(1.5, float(np.abs(scores[np.isfinite(scores)]).max(initial=0.0)))
    low, high = panel.get_xlim()
    panel.set_xlim(min(-reach, low), max(reach, high))
    panel.set_xlabel("(predicted − observed)\n/ standard deviation")
