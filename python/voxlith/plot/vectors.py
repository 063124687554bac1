"""Magnetisation vectors: sections with arrows, and a stereonet of their directions."""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any

import numpy as np
import numpy.typing as npt
from matplotlib.cm import ScalarMappable
from matplotlib.colors import Normalize
from matplotlib.figure import Figure
from matplotlib.lines import Line2D

from ..errors import UsageError
from ..io.bodies_file import TrueBody
from ..section import cell_of
from ..survey import Direction, Survey
from ..vectors import VectorModel, direction_of, unit_vector
from .cuts import At, meeting_point, shown_window
from .lengths import length_scale, map_axes, metres, show_lengths
from .outlines import draw_outline, overlap
from .style import SEQUENTIAL, VERMILION, Limits, Reals, check_colormap, new_figure, styled

_SHOWN_SHARE = 0.1  # cells of a smaller share of the largest amplitude have no arrow
_MOST_ARROWS = 22  # along an axis; more cells than these share an arrow
_RING = 30  # degrees between the circles of a stereonet


@styled
def vector_sections(vector: VectorModel, *, survey: Survey | None = None, field: Direction | None = None, at: At = "peak",
                    bodies: Sequence[TrueBody] = (), whole_mesh: bool = False, colormap: str | None = None, limits: Limits | None = None,
                    title: str | None = None) -> Figure:
    """A depth slice and two vertical sections: amplitude in colours, and arrows of the vectors' components in the plane.

    The length of an arrow is that of the component in the plane; all panels have one scale. Arrows are drawn where the amplitude is
    a tenth of the largest shown one or more.

    Parameters
    ----------
    vector : VectorModel
    survey : Survey, optional
        Stations, below which the sections lie.
    field : Direction, optional
        Of the inducing field; an arrow of its own in each panel.
    at : {"peak", "largest", "middle"} or (x, y, elevation)
        Where the planes meet; see :func:`~voxlith.plot.sections`.
    bodies : sequence of TrueBody
        Outlines of true bodies.
    whole_mesh : bool
        Whether padding cells and great depths are shown.
    colormap : str, optional
    limits : (float, float), optional
        Of the colours, SI.
    title : str, optional

    Raises
    ------
    UsageError
        For a point outside the mesh, an unknown colour map, or a vector of 0 everywhere.
    """
    model = vector.model("amplitude")
    mesh = vector.mesh
    window = shown_window(mesh, survey, whole_mesh)
    x0, y0, z0 = meeting_point(model, survey, window, at)
    k, i, j = cell_of(mesh.z_nodes, z0), cell_of(mesh.x_nodes, x0), cell_of(mesh.y_nodes, y0)
    cubes = [mesh.cube(np.where(model.shown, one, np.nan)) for one in (vector.east, vector.north, -vector.down, vector.amplitude)]
    east, north, up, amplitude = (window.part(cube) for cube in cubes)
    largest = float(np.nanmax(amplitude, initial=0.0))
    if not largest > 0.0:
        raise UsageError("vectors: expected amplitudes above 0")
    low, high = limits or (0.0, largest)
    norm, colors = Normalize(low, high), check_colormap(colormap) or SEQUENTIAL
    x, y, z = window.nodes(mesh)
    k, i, j = k - window.z[0], i - window.x[0], j - window.y[0]
    width, length, depth = float(np.ptp(x)), float(np.ptp(y)), float(np.ptp(z))
    scale = 4.6 / max(width, length)
    figure = new_figure(scale * (width + length) + 2.6, scale * (length + depth) + 2.4)
    grid = figure.add_gridspec(2, 2, width_ratios=(width, length), height_ratios=(length, depth))
    panels = [figure.add_subplot(grid[0, 0]), figure.add_subplot(grid[1, 0]), figure.add_subplot(grid[1, 1])]
    smallest = min(float(np.diff(x).min()), float(np.diff(y).min()), float(np.abs(np.diff(z)).min()))
    per_length = 2.5 * max(smallest, max(width, length) / _MOST_ARROWS) / largest  # metres on the paper for an amplitude of 1
    planes = [(panels[0], x, y, amplitude[k].T, east[k].T, north[k].T), (panels[1], x, z, amplitude[:, :, j], east[:, :, j], up[:, :, j]),
              (panels[2], y, z, amplitude[:, i, :], north[:, i, :], up[:, i, :])]
    for panel, across, along, values, u, v in planes:
        panel.pcolormesh(across, along, values, norm=norm, cmap=colors, rasterized=True)
        _arrows(panel, across, along, values, u, v, largest, per_length)
        panel.set_aspect("equal")
    _outlines(panels, (x, y, z), (k, i, j), bodies)
    _label(panels, (x, y, z), (k, i, j), survey)
    if field is not None:
        _field_arrows(panels, unit_vector(field))
    bar = figure.colorbar(ScalarMappable(norm, colors), ax=panels, shrink=0.7, extend="max" if largest > high else "neither")
    bar.set_label(f"Amplitude (SI); 1 SI is {vector.strength / (400.0 * math.pi):.3g} A/m")
    _legend(figure.add_subplot(grid[0, 1]), vector, field, bool(bodies))
    figure.suptitle(title or "Magnetisation")
    return figure


def _outlines(panels: list[Any], nodes: tuple[Reals, Reals, Reals], cell: tuple[int, int, int], bodies: Sequence[TrueBody]) -> None:
    planes = [(float(axis[number]), float(axis[number + 1])) for axis, number in zip(nodes, (cell[1], cell[2], cell[0]))]
    for body in bodies:
        ranges = (body.x, body.y, body.elevation)
        for panel, (across, along, normal) in zip(panels, ((0, 1, 2), (0, 2, 1), (1, 2, 0))):
            draw_outline(panel, ranges[across], ranges[along], is_cut=overlap(ranges[normal], planes[normal]))


def _arrows(panel: Any, across: Reals, along: Reals, amplitude: Reals, u: Reals, v: Reals, largest: float, per_length: float) -> None:
    """Arrows at the middles of cells, all cells or every other, third ... of them."""
    centres = [0.5 * (nodes[1:] + nodes[:-1]) for nodes in (across, along)]
    chosen = np.zeros(amplitude.shape, dtype=bool)
    chosen[_spread(centres[1])[:, None], _spread(centres[0])[None, :]] = True
    chosen &= np.nan_to_num(amplitude) >= _SHOWN_SHARE * largest
    if not chosen.any():
        return
    places = np.meshgrid(centres[0], centres[1])
    panel.quiver(places[0][chosen], places[1][chosen], u[chosen] * per_length, v[chosen] * per_length, angles="xy", scale_units="xy",
                 scale=1.0, units="inches", pivot="mid", width=0.025, headwidth=4.5, headlength=5.0, headaxislength=4.5, color="black",
                 edgecolor="white", linewidth=0.6, zorder=2.5)


def _spread(centres: Reals) -> npt.NDArray[np.intp]:
    """Cells that are far enough from each other for an arrow each."""
    least = 0.999 * float(np.ptp(centres)) / _MOST_ARROWS
    chosen, last = [], -math.inf
    for number in np.argsort(centres):
        if centres[number] - last >= least:
            chosen.append(int(number))
            last = float(centres[number])
    return np.array(chosen, dtype=np.intp)


def _label(panels: list[Any], nodes: tuple[Reals, Reals, Reals], cell: tuple[int, int, int], survey: Survey | None) -> None:
    x, y, z = nodes
    k, i, j = cell
    plan, west_east, south_north = panels
    map_axes(plan, (float(x[0]), float(x[-1])), (float(y[0]), float(y[-1])))
    plan.set_title(f"Elevation {metres(z[k + 1])} to {metres(z[k])} m")
    for panel, across, name, where in ((west_east, x, ("x", "east"), f"Section at y {metres(y[j])} to {metres(y[j + 1])} m"),
                                       (south_north, y, ("y", "north"), f"Section at x {metres(x[i])} to {metres(x[i + 1])} m")):
        panel.set_xlim(across[0], across[-1])
        panel.set_ylim(z[-1], z[0])
        show_lengths(panel.xaxis, length_scale(float(across[0]), float(across[-1])))
        panel.set_xlabel(length_scale(float(across[0]), float(across[-1])).label(*name))
        panel.set_ylabel("elevation (m)")
        panel.set_title(where)
    if survey is not None:
        plan.plot(survey.x, survey.y, ".", color="white", markersize=1.5, alpha=0.8)
    lines = dict(color="white", linewidth=0.6, linestyle=(0, (6, 4)))
    middle = [0.5 * (axis[n] + axis[n + 1]) for axis, n in ((x, i), (y, j), (z, k))]
    plan.axhline(middle[1], **lines)
    plan.axvline(middle[0], **lines)
    for panel in (west_east, south_north):
        panel.axhline(middle[2], **lines)


def _field_arrows(panels: list[Any], field: Reals) -> None:
    """The inducing field in a corner of each panel, 0.35 inches for its whole length."""
    east, north, down = field.tolist()
    for panel, u, v in zip(panels, (east, east, north), (north, -down, -down)):
        panel.annotate("", xy=(26 + 25 * u, 30 + 25 * v), xytext=(26, 30), xycoords="axes points", textcoords="axes points",
                       arrowprops={"arrowstyle": "-|>", "color": VERMILION, "linewidth": 1.6, "shrinkA": 0, "shrinkB": 0})


def _legend(panel: Any, vector: VectorModel, field: Direction | None, outlined: bool) -> None:
    """What the arrows mean, and the summed moment."""
    panel.set_axis_off()
    moment = vector.moment()
    found = direction_of(moment)
    lines = ["Arrows: magnetisation in the plane,", f"from {100 * _SHOWN_SHARE:.0f} % of the largest amplitude on", "",
             f"Summed moment {np.linalg.norm(moment):.3g} A m²",
             f"inclination {found.inclination:.0f}°, declination {found.declination:.0f}°"]
    if outlined:
        lines += ["", "Boxes: true bodies, dashed beside the section"]
    if field is not None:
        panel.legend([Line2D([], [], color=VERMILION, linewidth=1.6, marker=">", markersize=4)],
                     [f"Inducing field, inclination {field.inclination:.0f}°, declination {field.declination:.0f}°"], loc="lower left",
                     frameon=False)
    panel.text(0.02, 0.95, "\n".join(lines), va="top", transform=panel.transAxes)


@styled
def stereonet(vector: VectorModel, *, field: Direction | None = None, expected: Direction | None = None, least: float = _SHOWN_SHARE,
              title: str | None = None) -> Figure:
    """Directions of the cells on an equal-area net; areas of the dots grow with amplitude times volume.

    Filled dots point downwards, open ones upwards.

    Parameters
    ----------
    vector : VectorModel
    field : Direction, optional
        Of the inducing field.
    expected : Direction, optional
        A direction that is known, as of samples.
    least : float
        Share of the largest amplitude from which on cells are shown.
    title : str, optional

    Raises
    ------
    UsageError
        For a vector of 0 everywhere.
    """
    amplitude = vector.amplitude * (1.0 if vector.active is None else vector.active)
    if not amplitude.max(initial=0.0) > 0.0:
        raise UsageError("vectors: expected amplitudes above 0")
    shown = np.flatnonzero(amplitude >= least * amplitude.max())
    moments = (amplitude * vector.mesh.volumes())[shown]
    order = np.argsort(-moments)
    shown, moments = shown[order], moments[order]
    figure = new_figure(6.8, 5.4, constrained=False)
    panel = figure.add_axes((0.02, 0.09, 0.66, 0.82))
    _net(panel)
    inclination, declination = vector.inclination[shown], vector.declination[shown]
    x, y = _projected(inclination, declination)
    colour = Normalize(0.0, float(amplitude.max()))
    areas = 4.0 + 120.0 * moments / moments.max()
    from matplotlib import colormaps
    colours = colormaps[SEQUENTIAL](colour(amplitude[shown]))
    down = inclination >= 0.0
    panel.scatter(x[down], y[down], areas[down], c=colours[down], edgecolors="black", linewidths=0.4, zorder=3)
    panel.scatter(x[~down], y[~down], areas[~down], facecolors="white", edgecolors=colours[~down], linewidths=1.3, zorder=3)
    found = direction_of(vector.moment())
    marks = [(found, "D", "Summed moment", "black")]
    marks += [(field, "*", "Inducing field", VERMILION)] if field is not None else []
    marks += [(expected, "s", "Expected", "#0072B2")] if expected is not None else []
    handles, texts = [], []
    for direction, marker, name, tint in marks:
        px, py = _projected(np.array([direction.inclination]), np.array([direction.declination]))
        face = tint if direction.inclination >= 0.0 else "white"
        panel.plot(px, py, marker, color=tint, markerfacecolor=face, markersize=11, markeredgewidth=1.6, zorder=5)
        handles.append(Line2D([], [], linestyle="none", marker=marker, color=tint, markerfacecolor=face, markersize=8))
        texts.append(f"{name}\n{direction.inclination:.0f}° / {direction.declination:.0f}°")
    for name, face in (("Downwards", "0.4"), ("Upwards", "white")):
        handles.append(Line2D([], [], linestyle="none", marker="o", color="0.2", markerfacecolor=face, markersize=6))
        texts.append(name)
    figure.legend(handles, texts, loc="center left", bbox_to_anchor=(0.72, 0.62), frameon=False, labelspacing=1.0)
    bar = figure.colorbar(ScalarMappable(colour, SEQUENTIAL), cax=figure.add_axes((0.76, 0.12, 0.025, 0.25)))
    bar.set_label("Amplitude (SI)")
    figure.suptitle(title or "Directions of magnetisation, equal-area net")
    figure.text(0.35, 0.03, f"{len(shown)} cells of {100.0 * least:.0f} % of the largest amplitude or more; inclination / declination",
                ha="center", fontsize=8)
    return figure


def _projected(inclination: npt.ArrayLike, declination: npt.ArrayLike) -> tuple[Reals, Reals]:
    """Equal-area projection of either hemisphere, radius 1 at the horizon (Lambert's azimuthal projection)."""
    colatitude = np.radians(90.0 - np.abs(np.asarray(inclination, dtype=np.float64)))
    radius = math.sqrt(2.0) * np.sin(0.5 * colatitude)
    azimuth = np.radians(np.asarray(declination, dtype=np.float64))
    return np.asarray(radius * np.sin(azimuth)), np.asarray(radius * np.cos(azimuth))


def _net(panel: Any) -> None:
    """Circles of equal inclination, lines of equal declination."""
    turn = np.linspace(0.0, 360.0, 181)
    for inclination in range(0, 90, _RING):
        x, y = _projected(np.full(turn.shape, inclination), turn)
        panel.plot(x, y, color="black" if inclination == 0 else "0.75", linewidth=1.0 if inclination == 0 else 0.6, zorder=1)
        if inclination:
            panel.text(0.015, float(y[0]), f"{inclination}°", fontsize=7, color="0.45", va="bottom")
    for declination in range(0, 360, _RING):
        x, y = _projected(np.array([0.0, 90.0]), np.full(2, float(declination)))
        panel.plot(x, y, color="0.85", linewidth=0.6, zorder=1)
        text = {0: "N", 90: "E", 180: "S", 270: "W"}.get(declination, f"{declination}°")
        panel.text(1.08 * float(x[0]), 1.08 * float(y[0]), text, ha="center", va="center", fontsize=9 if len(text) == 1 else 7)
    panel.set_xlim(-1.16, 1.16)
    panel.set_ylim(-1.16, 1.16)
    panel.set_aspect("equal")
    panel.set_axis_off()


