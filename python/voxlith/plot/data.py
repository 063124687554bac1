"""Observed, predicted and residual data: maps, one profile, a panel per line, or a panel per borehole."""

from __future__ import annotations

from typing import Any

import numpy as np
from matplotlib.figure import Figure
from matplotlib.ticker import MaxNLocator
from matplotlib.tri import Triangulation

from ..errors import UsageError
from ..holes import vertical_holes
from ..run import Fit, Run
from ..section import Line, straight_line
from ..survey import Survey
from ..triangles import bridges_gap, edge_lengths
from . import style
from .data_view import DataView, view_of
from .holes import hole_profiles
from .lengths import length_scale, map_axes, show_lengths
from .style import Limits, Reals, drawable, new_figure, styled

MOST_LINES = 30
_MOST_TRIANGULATED = 100_000
_MOST_UNEVEN = 40.0  # times as far apart as along the lines: triangles between lines are drawn
_ALONG_AXIS = 2.0  # times as far along an axis as across it: a line runs along the axis
_RESIDUAL_REACH = 3.0  # standard deviations
_RESIDUAL_MOST = 10.0


@styled
def data(source: Run | Fit | Survey, component: int = 0, *, colormap: str | None = None,
         limits: Limits | None = None) -> Figure:
    """Observed data, and predicted data with residuals where there are predictions.

    Maps; a profile where all stations stand on one line; against elevation where all are in vertical boreholes. Residuals are coloured stations in units of their standard
    deviation.

    Parameters
    ----------
    source : Run, Fit or Survey
    component : int
        Counted from 0.
    colormap : str, optional
        Of observed and predicted data; a name of Matplotlib.
    limits : (float, float), optional
        Of their colours, or of the axis of a profile, in data units.

    Raises
    ------
    UsageError
        For a component, colour map or limits that cannot be used.
    FileError
        When a file of a run cannot be used.
    """
    view = view_of(source)
    view.check_component(component)
    state = "" if view.iteration is None else f", iteration {view.iteration}"
    title = f"Data: {view.names[component]}{state}"
    holes = vertical_holes(view.survey.x, view.survey.y, view.survey.elevation)
    if sum(len(hole.stations) for hole in holes) == view.survey.n_stations:
        style.check_colormap(colormap)
        return hole_profiles(view, component, holes, title, limits)
    line = straight_line(view.survey.x, view.survey.y)
    if line is not None and view.survey.line is None:
        style.check_colormap(colormap)
        return _profile(view, component, line, title, limits)
    return _maps(view, component, title, colormap, limits)


def _maps(view: DataView, component: int, title: str, colormap: str | None, limits: Limits | None) -> Figure:
    survey = view.survey
    panels = 1 if view.predicted is None else 3
    width, height = panel_size(survey, panels)
    figure = new_figure(panels * width + 0.9, height + 1.5)
    axes = figure.subplots(1, panels, sharex=True, sharey=True, squeeze=False)[0]
    both = [view.observed(component)] + ([] if panels == 1 else [view.modelled(component)])
    chosen, low, high = style.value_scale(*both, colormap=colormap, limits=limits)
    for panel, values, words in zip(axes, both, ("Observed", "Predicted")):
        shown = field_map(panel, survey, values, chosen, low, high)
        panel.set_title(words)
    colour_bar(figure, shown, list(axes[:len(both)]), f"{view.names[component]} ({view.unit(component)})",
         style.extension(np.concatenate(both), low, high))
    if panels == 3:
        scores = drawable(view.zscore(component))
        reach = residual_reach(scores)
        shown = station_map(axes[2], survey, scores, style.DIVERGING, -reach, reach, edge="0.4")
        axes[2].set_title("Residual")
        colour_bar(figure, shown, [axes[2]], "(predicted − observed) / standard deviation", style.extension(scores, -reach, reach))
    show_extent(axes, survey)
    figure.suptitle(title)
    return figure


def show_extent(panels: Any, survey: Survey) -> None:
    """Give maps the extent of the survey, one scale on both axes, and labels."""
    x_limits, y_limits = _extent(survey.x), _extent(survey.y)
    for panel in panels:
        panel.set_xlim(x_limits)
        panel.set_ylim(y_limits)
        panel.set_aspect("equal")
        map_axes(panel, x_limits, y_limits, ticks=4)
        panel.label_outer()


def residual_reach(scores: Reals) -> float:
    """Half the range of colours of residuals: 3 standard deviations, more where more than a fiftieth is beyond."""
    found = np.abs(scores[np.isfinite(scores)])
    wide = float(np.ceil(np.percentile(found, 98.0))) if len(found) else 0.0
    return float(np.clip(wide, _RESIDUAL_REACH, _RESIDUAL_MOST))


def _extent(values: Reals) -> tuple[float, float]:
    low, high = float(values.min()), float(values.max())
    margin = 0.05 * (high - low) or 1.0
    return low - margin, high + margin


def colour_bar(figure: Figure, shown: Any, panels: list[Any], label: str, extend: str) -> None:
    """A colour bar below panels."""
    bar = figure.colorbar(shown, ax=panels, location="bottom", shrink=0.8, aspect=18 * len(panels), pad=0.03, label=label,
                          extend=extend)
    low, high = shown.get_clim()
    ticks = MaxNLocator(4 * len(panels)).tick_values(low, high)
    slack = 1e-6 * (high - low)
    bar.set_ticks(ticks[(ticks >= low - slack) & (ticks <= high + slack)])


def panel_size(survey: Survey, panels: int) -> tuple[float, float]:
    """Inches of a panel, so that equal scales on both axes fill it."""
    dx, dy = float(np.ptp(survey.x)) or 1.0, float(np.ptp(survey.y)) or 1.0
    width = 5.0 if panels == 1 else 3.1
    return width, float(np.clip(width * dy / dx, 0.7, 6.0))


def field_map(panel: Any, survey: Survey, values: Reals, colormap: str, low: float, high: float) -> Any:
    """Filled contours through the stations where these cover the ground evenly, coloured stations where they do not."""
    valid = np.isfinite(values)
    x, y = survey.x[valid], survey.y[valid]
    triangles = gapless_triangles(x, y)
    if triangles is None:
        return station_map(panel, survey, values, colormap, low, high)
    levels = np.linspace(low, high, 22)
    shown = panel.tricontourf(triangles, values[valid], levels=levels, cmap=colormap,
                              extend=style.extension(values, low, high))
    for part in shown.collections:  # drawn as pixels: as polygons they show seams
        part.set_rasterized(True)
    panel.plot(x, y, linestyle="none", marker=".", markersize=1.4, color="black", alpha=0.45,
               rasterized=len(x) > style.MOST_VECTOR_POINTS)
    _crosses(panel, survey, valid)
    return shown


def station_map(panel: Any, survey: Survey, values: Reals, colormap: str, low: float, high: float,
              edge: str | None = None) -> Any:
    """Coloured stations; those of the largest magnitude lie on top, masked ones are crosses."""
    valid = np.isfinite(values)
    order = np.argsort(np.abs(values[valid]), kind="stable")
    size = float(np.clip(9000.0 / max(len(order), 1), 9.0, 60.0))
    shown = panel.scatter(survey.x[valid][order], survey.y[valid][order], c=values[valid][order], s=size, cmap=colormap,
                          vmin=low, vmax=high, linewidth=0.3 if edge else 0.0, edgecolors=edge or "none",
                          rasterized=len(order) > style.MOST_VECTOR_POINTS)
    _crosses(panel, survey, valid)
    return shown


def _crosses(panel: Any, survey: Survey, valid: Any) -> None:
    if not valid.all():
        panel.plot(survey.x[~valid], survey.y[~valid], linestyle="none", marker="x", markersize=3, color=style.GREY,
                   markeredgewidth=0.6)


def gapless_triangles(x: Reals, y: Reals) -> Triangulation | None:
    """Triangles between stations without those that bridge gaps; None where they say little.

    Parameters
    ----------
    x, y : ndarray, shape (n,)
    """
    if not 12 <= len(x) <= _MOST_TRIANGULATED:
        return None
    try:
        triangles = Triangulation(x - x.mean(), y - y.mean())
    except (RuntimeError, ValueError):  # stations on one line
        return None
    triangles.x, triangles.y = x, y
    longest, shortest = edge_lengths(x, y, triangles.triangles)
    if np.median(longest) > _MOST_UNEVEN * np.median(shortest):
        return None
    far = bridges_gap(longest)
    if far.all():
        return None
    triangles.set_mask(far)
    return triangles


def distance_label(line: Line) -> tuple[str, Any]:
    """Label and scale of the axis along a line of stations."""
    scale = length_scale(float(line.distance.min()), float(line.distance.max()))
    names = {"x": ("x", "east"), "y": ("y", "north"), "": ("distance along the line", "")}
    return scale.label(*names[line.axis]), scale


def _profile(view: DataView, component: int, line: Line, title: str, limits: Limits | None) -> Figure:
    """One line: data with standard deviations and prediction above, residuals in standard deviations below."""
    order = np.argsort(line.distance, kind="stable")
    at = line.distance[order]
    observed, name, unit = view.observed(component)[order], view.names[component], view.unit(component)
    deviation = view.deviation(component)[order]
    if view.predicted is None:
        figure = new_figure(8.0, 3.6)
        panel = lowest = figure.subplots()
    else:
        figure = new_figure(8.0, 5.2)
        panel, lowest = figure.subplots(2, 1, sharex=True, gridspec_kw={"height_ratios": [2, 1]})
    panel.errorbar(at, observed, deviation, fmt=".", color="black", markersize=4, elinewidth=0.8,
                   label="observed, ±1 standard deviation")
    if view.predicted is not None:
        panel.plot(at, view.modelled(component)[order], color=style.BLUE, linewidth=1.4, label="predicted")
        scores = drawable(view.zscore(component))[order]
        lowest.axhspan(-1.0, 1.0, color="0.88", linewidth=0.0, label="±1 standard deviation")
        lowest.plot(at, scores, ".", color=style.VERMILION, markersize=4, label="residual")
        lowest.axhline(0.0, color=style.GREY, linewidth=0.8)
        lowest.set_ylabel("(predicted − observed)\n/ standard deviation")
        lowest.legend(loc="best", ncol=2)
    if limits is not None:
        panel.set_ylim(style.value_scale(observed, limits=limits)[1:])
    panel.set_ylabel(f"{name} ({unit})")
    panel.legend(loc="best")
    label, scale = distance_label(line)
    show_lengths(lowest.xaxis, scale, 8)
    lowest.set_xlabel(label)
    figure.suptitle(title)
    return figure


def _along_lines(survey: Survey, parts: list[slice]) -> tuple[list[Reals], Any, str]:
    """Positions along each line, their scale and label: x or y where all lines run along that axis, else the distance from
    the western or southern end of each line."""
    ends = [(float(survey.x[part][-1] - survey.x[part][0]), float(survey.y[part][-1] - survey.y[part][0])) for part in parts]
    axis = "x" if all(abs(east) > _ALONG_AXIS * abs(north) for east, north in ends) else \
        "y" if all(abs(north) > _ALONG_AXIS * abs(east) for east, north in ends) else ""
    if axis:
        positions = [survey.x[part] if axis == "x" else survey.y[part] for part in parts]
    else:
        positions = []
        for part, (east, north) in zip(parts, ends):
            steps = np.hypot(np.diff(survey.x[part]), np.diff(survey.y[part]))
            distance = np.concatenate([[0.0], np.cumsum(steps)])
            backwards = (east if abs(east) >= abs(north) else north) < 0.0
            positions.append(distance[-1] - distance if backwards else distance)
    scale = length_scale(min(float(at.min()) for at in positions), max(float(at.max()) for at in positions))
    names = {"x": ("x", "east"), "y": ("y", "north"), "": ("distance along the line from its western or southern end", "")}
    return positions, scale, scale.label(*names[axis])


@styled
def line_profiles(source: Run | Fit | Survey, component: int = 0) -> Figure:
    """Data of the lines that the data file names, a panel each with one scale; the first 30 of them.

    Parameters
    ----------
    source : Run, Fit or Survey
    component : int
        Counted from 0.

    Raises
    ------
    UsageError
        For data without lines, and for a component that is not there.
    FileError
        When a file of a run cannot be used.
    """
    view = view_of(source)
    view.check_component(component)
    if view.survey.line is None or view.survey.time is None:
        raise UsageError("line profiles: expected data with line names")
    lines = view.survey.lines()
    shown = lines[:MOST_LINES]
    columns = min(len(shown), 4)
    rows = -(-len(shown) // columns)
    figure = new_figure(2.5 * columns + 0.8, 1.7 * rows + 1.1)
    panels = figure.subplots(rows, columns, sharey=True, squeeze=False)
    for panel in panels.flat[len(shown):]:
        panel.set_visible(False)
    observed = view.observed(component)
    positions, scale, label = _along_lines(view.survey, [line.slice for line in shown])
    for panel, line, at in zip(panels.flat, shown, positions):
        part = line.slice
        panel.plot(at, observed[part], ".", color="black", markersize=3, label="observed")
        if view.predicted is not None:
            panel.plot(at, view.modelled(component)[part], color=style.BLUE, linewidth=1.3, label="predicted")
        panel.set_title(str(line.name), fontsize=8.5)
        panel.grid(True, color="0.9", linewidth=0.6)
        if not np.isfinite(observed[part]).any():
            panel.text(0.5, 0.5, "masked", transform=panel.transAxes, ha="center", color=style.GREY)
    for panel in panels.flat[:len(shown)]:
        show_lengths(panel.xaxis, scale, 4)
    for panel in panels[:, 0]:
        panel.set_ylabel(f"{view.names[component]} ({view.unit(component)})")
    figure.supxlabel(label, fontsize=9)
    figure.legend(*panels.flat[0].get_legend_handles_labels(), loc="upper right", ncol=2)
    state = "" if view.iteration is None else f", iteration {view.iteration}"
    some = "" if len(shown) == len(lines) else f", first {len(shown)} of {len(lines)} lines"
    figure.suptitle(f"Data: {view.names[component]}{state}{some}")
    return figure
