"""A depth slice and vertical sections through a model, with its histogram."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Any

import matplotlib
import numpy as np
from matplotlib.colors import Normalize
from matplotlib.figure import Figure
from matplotlib.lines import Line2D
from matplotlib.patches import Patch
from matplotlib.ticker import MaxNLocator

from ..codes import unit_text
from ..errors import UsageError, VoxlithError
from ..io.bodies_file import TrueBody
from ..model import Model
from ..run import Run
from ..section import Section, cell_of, section_across
from ..survey import Survey
from . import style
from .cuts import (At, Window, meeting_point, section_below, section_title, shown_cube, shown_window, stations_near,
                   station_window)
from .data_view import last_iteration
from .lengths import length_scale, map_axes, metres, show_lengths
from .outlines import draw_outline, overlap
from .style import Limits, Reals, drawable, new_figure, styled

Surface = Callable[[Any, Any], Any]

_NO_VALUE = "0.85"  # grey of cells without a value
_LONGEST = 8.2  # inches of both columns of panels
_TALLEST = 6.0  # inches of the depth slice
_LEAST_HEIGHT = 0.6  # inches of a vertical section before its scale is stretched
_LEAST_WIDTH = 2.1  # inches of the column of the histogram
_LEAST_RANGES = 1.2  # inches of the panel below the histogram; with less it is left out
_TOP, _BOTTOM, _BAR, _BETWEEN = 0.95, 0.85, 1.2, 0.75
_ROWS, _ROW = 2, 0.2  # rows of the legend that _BOTTOM holds, and inches of a further one
_GROUND = "#5b3a1a"
_CHOSEN = {"peak": " at the peak", "middle": " at the peak", "largest": " at the largest value"}
_SLICE_TITLE, _SECTION_TITLE = 3.4, 2.4  # inches of their titles
_PLAIN_POWERS = (-3, 5)  # of ten: values within are written in full


@styled
def sections(source: Run | Model, model_type: int | str = 0, *, iteration: int | None = None, at: At = "peak",
             survey: Survey | None = None, surface: Surface | None = None, bodies: Sequence[TrueBody] = (),
             whole_mesh: bool = False, colormap: str | None = None, limits: Limits | None = None,
             inversion_style: int | None = None, title: str | None = None) -> Figure:
    """A depth slice, sections at a northing and at an easting, and a histogram of the shown cells.

    A metre has one length in all panels, but for the vertical scale of the sections where the mesh is flat; the picture
    says so. Stations near a section are shown on it, and the ground surface where cells are
    inactive or `surface` is given. Below stations on one oblique line the section along it replaces that at an easting.

    Parameters
    ----------
    source : Run or Model
    model_type : int or str
        Of a run: number from 0, or label.
    iteration : int, optional
        Of a run: a stored iteration.
    at : {"peak", "largest", "middle"} or (x, y, elevation)
        Where the planes meet: the cell of the largest magnitude below the stations that has a smaller one below it; the
        cell of the largest magnitude there; the middle of the stations' extent, in the layer of the peak; or a point,
        metres.
    survey : Survey, optional
        Stations; of a run, those of its data.
    surface : callable, optional
        Elevation of the ground for arrays x, y, e.g. a :class:`~voxlith.Terrain`.
    bodies : sequence of TrueBody
        Outlines of true bodies.
    whole_mesh : bool
        Whether padding cells and great depths are shown.
    colormap : str, optional
        A name of Matplotlib.
    limits : (float, float), optional
        Of the colours, in the unit of the model.
    inversion_style : int, optional
        0 to 4; 1 and 2 show the top layer, 3 two layers. Of a run, its own.
    title : str, optional

    Raises
    ------
    UsageError
        For a point outside the mesh, an unknown colour map, limits that do not rise, a model without a value.
    RunError, FileError
        When a run has no such model, or a file cannot be used.
    """
    number = 0
    if isinstance(source, Run):
        model, number = source.model(model_type, iteration), _number(source, model_type)
        survey = _stations_of(source) if survey is None else survey
        inversion_style = style_of(source) if inversion_style is None else inversion_style
        reached = last_iteration(source) if iteration is None else iteration
        title = title or f"{_capital(model.name)}{'' if reached is None else f', iteration {reached}'}"
    elif isinstance(source, Model):
        model = source
    else:
        raise UsageError(f"source: expected a Run or a Model, found {type(source).__name__}")
    chosen = [body for body in bodies if body.model == number]
    page = _Page(model, survey, surface, chosen, shown_window(model.mesh, survey, whole_mesh), at)
    page.colormap, page.low, page.high = style.value_scale(page.window.part(page.cube), colormap=colormap, limits=limits)
    page.draw(inversion_style or 0, title or _capital(model.name))
    return page.figure


def _number(run: Run, model_type: int | str) -> int:
    labels = run.control.values.labels
    return labels.index(model_type) if isinstance(model_type, str) and model_type in labels else \
        int(model_type) if isinstance(model_type, int) else 0


def _stations_of(run: Run) -> Survey | None:
    """Stations of the data; None where these cannot be read: the model can be shown without them."""
    try:
        return run.observed
    except VoxlithError:
        return None


def style_of(run: Run) -> int:
    """The inversion style that the log names; without a log, the one that the sensitivity file implies."""
    if run.path("voxlith.log").is_file():
        named = run.log[-1].style
        if named is not None:
            return named
    return run.headers[-1].style_of_counts


def _capital(text: str) -> str:
    return text[:1].upper() + text[1:]


class _Page:
    """One figure: depth slice and section below it, section to the right, histogram in the corner, a colour bar."""

    def __init__(self, model: Model, survey: Survey | None, surface: Surface | None, bodies: Sequence[TrueBody],
                 window: Window, at: At) -> None:
        self.model, self.survey, self.surface, self.bodies, self.window = model, survey, surface, bodies, window
        self.mesh = model.mesh
        self.cube = drawable(shown_cube(model))
        self.where = meeting_point(model, survey, window, at)
        self.chosen = "Depth slice" + (_CHOSEN[at] if isinstance(at, str) else "")
        self.x, self.y, self.z = window.nodes(self.mesh)
        self.layer = cell_of(self.mesh.z_nodes, self.where[2])
        self.depth = self.mesh.z_nodes[0] == 0.0
        self.colormap, self.low, self.high = style.SEQUENTIAL, 0.0, 1.0
        self.outlined: set[bool] = set()
        self.ground = False
        self.top = self._top()
        left = section_across(self.mesh, "y", self.where[1], window.x)
        along = None if survey is None else section_below(self.mesh, survey)
        self.planes = [left, along or section_across(self.mesh, "x", self.where[0], window.y)]

    def _top(self) -> float:
        """Elevation of the upper edge of the sections: no station and no part of the ground lies above it."""
        top = float(self.z[0])
        if self.survey is not None and len(self.survey.elevation):
            highest = float(np.nanmax(drawable(self.survey.elevation), initial=top))
            reach = float(self.z[0] - self.z[-1])
            top = max(top, min(highest, top + reach) + 0.04 * reach) if highest > top else top
        return top

    @property
    def cross(self) -> str:
        return "white" if self.colormap == style.SEQUENTIAL else "0.3"

    def draw(self, inversion_style: int, title: str) -> None:
        two = inversion_style == 3
        self._layout(two)
        if two:
            self._slice(self.slices[0], 0, "Surface layer")
            self._slice(self.slices[1], min(1, self.mesh.nz - 1), "Below the surface layer")
            self.slices[1].set_ylabel("")
        elif inversion_style in (1, 2):
            self._slice(self.slices[0], 0, "Top layer")
        else:
            self._slice(self.slices[0], self.layer, self.chosen)
        for panel, plane in zip(self.verticals, self.planes):
            self._section(panel, plane)
        if self.corner is not None:
            self._histogram(self.corner)
        if self.ranges is not None:
            self._ranges(self.ranges)
        self._finish(title)

    def _layout(self, two: bool) -> None:
        """Places panels in inches, so that a metre has one length in all of them."""
        dx, dy = float(self.x[-1] - self.x[0]), float(self.y[-1] - self.y[0])
        dz = float(self.top - self.z[-1])
        along = float(np.ptp(self.planes[1].nodes))
        beside = max(along, dx) if two else along
        scale = min(_LONGEST / (dx + beside), _TALLEST / dy)
        self.stretch = _round_up(_LEAST_HEIGHT / (dz * scale))
        wide, high, deep = dx * scale, dy * scale, dz * scale * self.stretch
        column = max(beside * scale, 0.0 if two else _LEAST_WIDTH)
        left, gap = 0.85, 0.95
        width, height = left + max(wide, 1.0) + gap + column + _BAR, _TOP + high + _BETWEEN + deep + _BOTTOM
        height = max(height, 4.4)
        self.figure = new_figure(width, height, constrained=False)

        def place(x: float, y: float, w: float, h: float) -> Any:
            return self.figure.add_axes((x / width, y / height, w / width, h / height))
        second = left + max(wide, 1.0) + gap
        upper = height - _TOP - high
        self.slices = [place(left, upper, wide, high)] + ([place(second, upper, wide, high)] if two else [])
        lower = upper - _BETWEEN - deep
        self.verticals = [place(left, lower, wide, deep), place(second, lower, along * scale, deep)]
        tall = min(high - 0.35, 3.6)
        self.corner = self.ranges = None
        if not two and tall > 0.8:
            self.corner = place(second, height - _TOP - tall, column, tall)
            rest = high - tall - _BETWEEN - 0.35
            if rest > _LEAST_RANGES:
                self.ranges = place(second, upper, column, rest)
        self.bar = place(width - _BAR + 0.3, lower, 0.16, height - _TOP - lower)

    def _slice(self, panel: Any, layer: int, words: str) -> None:
        """A layer from above, counted from 0 at the top of the mesh."""
        (x0, x1), (y0, y1) = self.window.x, self.window.y
        self._field(panel, self.x, self.y, self.cube[layer, x0:x1, y0:y1].T)
        upper, lower = float(self.mesh.z_nodes[layer]), float(self.mesh.z_nodes[layer + 1])
        for body in self.bodies:
            self._outline(panel, body.x, body.y, overlap(body.elevation, (lower, upper)))
        limits = (float(self.x[0]), float(self.x[-1])), (float(self.y[0]), float(self.y[-1]))
        if self.survey is not None:
            count = self.survey.n_stations
            panel.plot(self.survey.x, self.survey.y, linestyle="none", marker=".", color="black", alpha=0.6,
                       markersize=float(np.clip(60.0 / np.sqrt(max(count, 1)), 0.8, 3.0)), zorder=3,
                       rasterized=count > style.MOST_VECTOR_POINTS)
            limits = _with(limits[0], self.survey.x), _with(limits[1], self.survey.y)
        panel.set_xlim(limits[0])
        panel.set_ylim(limits[1])
        panel.axhline(self.where[1], color=self.cross, linewidth=0.8, linestyle=":")
        if self.planes[1].line is None:
            panel.axvline(self.where[0], color=self.cross, linewidth=0.8, linestyle=":")
        else:
            ends = np.array([self.planes[1].nodes[0], self.planes[1].nodes[-1]])
            panel.plot(*self.planes[1].points(ends), color=self.cross, linewidth=0.8, linestyle="--")
        map_axes(panel, *limits)
        narrow = self._is_narrow(panel, _SLICE_TITLE)
        panel.set_title(f"{words},{chr(10) if narrow else ' '}{self._heights(lower, upper)}", loc="left" if narrow else "center")

    def _is_narrow(self, panel: Any, inches: float) -> bool:
        """Whether a title of this length does not fit above the panel."""
        return bool(self.figure.get_size_inches()[0] * panel.get_position().width < inches)

    def _heights(self, lower: float, upper: float) -> str:
        if self.depth:
            return f"depth {metres(-upper, upper - lower)} to {metres(-lower, upper - lower)} m"
        return f"elevation {metres(lower, upper - lower)} to {metres(upper, upper - lower)} m"

    def _section(self, panel: Any, plane: Section) -> None:
        z0, z1 = self.window.z
        sign = -1.0 if self.depth else 1.0
        self._field(panel, plane.nodes, sign * self.z, self.cube[z0:z1, plane.i, plane.j])
        along = {"x": "x", "y": "y"}.get(plane.axis)
        for body in self.bodies:
            if along is not None:
                beside = body.y if along == "x" else body.x
                self._outline(panel, body.x if along == "x" else body.y,
                              (sign * body.elevation[0], sign * body.elevation[1]), overlap(beside, plane.across))
        self._surface(panel, plane, sign)
        limits = float(plane.nodes[0]), float(plane.nodes[-1])
        if self.survey is not None:
            at, elevation = stations_near(plane, self.survey)
            if len(at):
                panel.plot(at, sign * elevation, linestyle="none", marker="v", markersize=2.5, color="black", clip_on=False,
                           zorder=4, rasterized=len(at) > style.MOST_VECTOR_POINTS)
                limits = _with(limits, at)
        if plane.axis:
            panel.axvline(self.where[0 if plane.axis == "x" else 1], color=self.cross, linewidth=0.8, linestyle=":")
        panel.axhline(sign * self.where[2], color=self.cross, linewidth=0.8, linestyle=":")
        panel.set_xlim(limits)
        vertical = sign * float(self.z[-1]), sign * self.top
        panel.set_ylim(vertical)
        across = length_scale(*limits)
        show_lengths(panel.xaxis, across)
        names = {"x": ("x", "east"), "y": ("y", "north"), "": ("distance along the profile", "")}
        panel.set_xlabel(across.label(*names[plane.axis]))
        upwards = length_scale(*vertical)
        show_lengths(panel.yaxis, upwards)
        panel.set_ylabel(upwards.label("depth" if self.depth else "elevation"))
        panel.set_title(section_title(plane), loc="left" if self._is_narrow(panel, _SECTION_TITLE) else "center")

    def _surface(self, panel: Any, plane: Section, sign: float) -> None:
        """The ground: that of the surface, else the top of the uppermost active cells where some are inactive."""
        if self.surface is not None:
            along = np.linspace(plane.nodes[0], plane.nodes[-1], 400)
            heights = drawable(self.surface(*plane.points(along)))
            panel.plot(along, sign * heights, color=_GROUND, linewidth=1.1)
            self.ground = True
            return
        if self.model.active is None:
            return
        active = self.mesh.cube(self.model.active)[:, plane.i, plane.j]
        if active[0].all() or not active.any():
            return
        heights = self.mesh.z_nodes[np.where(active.any(axis=0), np.argmax(active, axis=0), self.mesh.nz)]
        panel.stairs(sign * heights, plane.nodes, baseline=None, color=_GROUND, linewidth=1.1)
        self.ground = True

    def _field(self, panel: Any, across: Reals, along: Reals, values: Reals) -> None:
        colours = matplotlib.colormaps[self.colormap].with_extremes(bad=_NO_VALUE)
        self._edge(panel, across, along)
        self.last = panel.pcolormesh(across, along, values, cmap=colours, vmin=self.low,
                                     vmax=self.high, rasterized=True)

    def _edge(self, panel: Any, across: Reals, along: Reals) -> None:
        """A thin line round the shown cells, seen where the panel reaches beyond them."""
        (west, east), (first, last) = across[[0, -1]], along[[0, -1]]
        panel.plot([west, east, east, west, west], [first, first, last, last, first], color="0.5", linewidth=0.5)

    def _outline(self, panel: Any, a: tuple[float, float], b: tuple[float, float], inside: bool) -> None:
        self.outlined.add(inside)
        draw_outline(panel, a, b, is_cut=inside)

    def _histogram(self, panel: Any) -> None:
        """How many of the shown cells have which value, in the colours of the sections."""
        values = self.window.part(self.cube)
        values = np.clip(values[np.isfinite(values)], self.low, self.high)
        edges = np.linspace(self.low, self.high, 41)
        counts, _ = np.histogram(values, edges)
        middles = 0.5 * (edges[1:] + edges[:-1])
        colours = matplotlib.colormaps[self.colormap](Normalize(self.low, self.high)(middles))
        panel.bar(middles, counts, width=np.diff(edges), color=colours, edgecolor="0.4", linewidth=0.3)
        if counts.any():
            panel.set_yscale("log")
            panel.set_ylim(bottom=0.7)
        panel.set_xlim(self.low, self.high)
        panel.xaxis.set_major_locator(MaxNLocator(4))
        panel.xaxis.get_major_formatter().set_powerlimits(_PLAIN_POWERS)
        panel.yaxis.set_major_formatter(lambda value, _: f"{value:g}")
        panel.set_xlabel(self._quantity())
        panel.set_ylabel("cells")
        panel.set_title(f"Histogram of the {len(values)} shown cells")

    def _ranges(self, panel: Any) -> None:
        """Smallest and largest value of each layer below the stations, and the layer of the depth slice."""
        sign = -1.0 if self.depth else 1.0
        values = station_window(self.mesh, self.survey, self.window).part(self.cube)
        known = np.isfinite(values)
        shown = known.any(axis=(1, 2))
        low, high = (np.where(shown, found, np.nan) for found in
                     (np.where(known, values, np.inf).min(axis=(1, 2)), np.where(known, values, -np.inf).max(axis=(1, 2))))
        for ends in (low, high):
            panel.stairs(ends, sign * self.z, baseline=None, orientation="horizontal", color=style.BLUE, linewidth=1.2)
        panel.fill_betweenx(sign * self.z, np.append(low, low[-1]), np.append(high, high[-1]), step="post",
                            color=style.BLUE, alpha=0.25, linewidth=0.0)
        panel.axhline(sign * self.where[2], color="0.3", linewidth=0.8, linestyle=":")
        panel.set_ylim(sign * float(self.z[-1]), sign * float(self.z[0]))
        panel.grid(True, color="0.9", linewidth=0.6)
        upwards = length_scale(*panel.get_ylim())
        show_lengths(panel.yaxis, upwards)
        panel.set_ylabel(upwards.label("depth" if self.depth else "elevation"))
        panel.xaxis.get_major_formatter().set_powerlimits(_PLAIN_POWERS)
        panel.set_xlabel(self._quantity())
        panel.set_title("Range of each layer" + (" below the stations" if self.survey is not None else ""))

    def _quantity(self) -> str:
        unit = f" ({unit_text(self.model.unit)})" if self.model.unit else ""
        return f"{_capital(self.model.name)}{unit}"

    def _grow(self, inches: float) -> None:
        """Make the figure higher by so much at its bottom; the panels keep their sizes."""
        width, height = self.figure.get_size_inches()
        higher = height + inches
        for panel in self.figure.axes:
            place = panel.get_position()
            panel.set_position((place.x0, (place.y0 * height + inches) / higher, place.width, place.height * height / higher))
        self.figure.set_size_inches(width, higher)

    def _finish(self, title: str) -> None:
        shown = self.window.part(self.cube)
        handles = self._legend(bool(np.isnan(shown).any()))
        columns = 3 if len(handles) < 4 else 2
        self._grow(max(-(-len(handles) // columns) - _ROWS, 0) * _ROW)
        bar = self.figure.colorbar(self.last, cax=self.bar, label=self._quantity(),
                                   extend=style.extension(shown, self.low, self.high))
        bar.formatter.set_powerlimits(_PLAIN_POWERS)
        bar.update_ticks()
        height = self.figure.get_size_inches()[1]
        self.figure.suptitle(title, y=1.0 - 0.12 / height, va="top")
        self.figure.text(0.5, 1.0 - 0.36 / height, self._words(), ha="center", va="top", fontsize=8.5)
        if handles:
            self.figure.legend(handles=handles, loc="lower left", ncol=columns, bbox_to_anchor=(0.01, 0.0), frameon=False)

    def _legend(self, no_value: bool) -> list[Any]:
        handles: list[Any] = [
            Line2D([], [], color="black", linewidth=1.1, linestyle="-" if inside else (0, (4, 3)), label=label)
            for inside, label in ((True, "true body, cut by the section"), (False, "true body, beside the section"))
            if inside in self.outlined]
        if self.survey is not None:
            handles.append(Line2D([], [], color="black", linestyle="none", marker="v", markersize=3, label="stations"))
        if self.ground:
            handles.append(Line2D([], [], color=_GROUND, linewidth=1.1, label="ground surface"))
        if no_value:
            label = "inactive or no-data cells" if self.model.active is not None else "no-data cells"
            handles.append(Patch(facecolor=_NO_VALUE, edgecolor="0.4", linewidth=0.6, label=label))
        return handles

    def _words(self) -> str:
        """What is at the meeting point, and how the sections are stretched."""
        i, j = cell_of(self.mesh.x_nodes, self.where[0]), cell_of(self.mesh.y_nodes, self.where[1])
        value = float(self.cube[self.layer, i, j])
        upward = ("depth", -self.where[2]) if self.depth else ("elevation", self.where[2])
        found = f"{value:.4g} {unit_text(self.model.unit)}".strip() if np.isfinite(value) else "No value"
        widths = self.mesh.x_widths[i], self.mesh.y_widths[j], self.mesh.z_widths[self.layer]
        x, y, z = (metres(value, float(width)) for value, width in zip((*self.where[:2], upward[1]), widths))
        words = f"{found} at x {x}, y {y}, {upward[0]} {z} m"
        below = station_window(self.mesh, self.survey, self.window)
        values = below.part(self.cube)
        if np.isfinite(values).any():
            words += f";  {np.nanmin(values):.4g} to {np.nanmax(values):.4g}"
            words += " below the stations" if self.survey is not None else ""
        if self.stretch > 1.0:
            words += f";  vertical scale × {self.stretch:g}"
        return words


def _with(limits: tuple[float, float], values: Reals) -> tuple[float, float]:
    """Limits that hold the values, too; those far away, as from a wrong coordinate, do not count."""
    found = drawable(values)
    found = found[np.isfinite(found)]
    reach = limits[1] - limits[0]
    found = found[(found > limits[0] - reach) & (found < limits[1] + reach)]
    if not len(found):
        return limits
    margin = 0.02 * reach
    low = float(found.min()) - margin if found.min() < limits[0] else limits[0]
    high = float(found.max()) + margin if found.max() > limits[1] else limits[1]
    return low, high


def _round_up(factor: float) -> float:
    """A stretch of 1, 2, 5, 10 ... that is enough."""
    if factor <= 1.0:
        return 1.0
    power = 10.0 ** float(np.floor(np.log10(factor)))
    return float(next(power * step for step in (1, 2, 5, 10) if power * step >= factor * (1.0 - 1e-9)))
