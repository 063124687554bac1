"""A picture of field, regional field and residual: maps, or profiles where the stations follow one line."""

from __future__ import annotations

import os
from typing import Any

import numpy as np
import numpy.typing as npt

from .errors import PathLike, UsageError
from .io.output import write_bytes
from .packages import require
from .regional import Regional
from .survey import Survey

Reals = npt.NDArray[np.float64]

_PROFILE = 0.02  # width over length below which stations follow one line


def draw_regional(path: PathLike, survey: Survey, regional: Regional, component: int = 0) -> None:
    """Draw field, regional and residual of a component.

    Raises
    ------
    UsageError
        For another ending than .png and .pdf.
    FileError
        When the picture cannot be written.
    MissingPackageError
        Without Matplotlib.
    """
    ending = os.path.splitext(os.fspath(path))[1].lower()
    if ending not in (".png", ".pdf"):
        raise UsageError(f"picture {os.fspath(path)}: expected a name ending in .png or .pdf")
    require("matplotlib", "pictures").use("Agg", force=False)
    figure = require("matplotlib.figure", "pictures").Figure
    field = survey.data[component]
    panels = (("field", field), ("regional", regional.values), ("residual", field - regional.values))
    centred = np.column_stack([survey.x, survey.y])
    centred = centred - centred.mean(axis=0)
    spread, directions = np.linalg.svd(centred, full_matrices=False)[1:]
    unit = survey.units[component]
    if len(spread) < 2 or spread[1] < _PROFILE * spread[0]:
        drawn = figure(figsize=(8, 5), layout="constrained")
        direction = directions[0] * np.sign(directions[0][np.argmax(np.abs(directions[0]))])
        _profiles(drawn, centred @ direction, panels, unit)
    else:
        drawn = figure(figsize=(12, 4), layout="constrained")
        _maps(drawn, survey, panels, unit)
    import io
    buffer = io.BytesIO()
    drawn.savefig(buffer, format=ending[1:], dpi=90)
    write_bytes(path, buffer.getvalue())


def _profiles(figure: Any, along: Reals, panels: Any, unit: str) -> None:
    order = np.argsort(along)
    upper, lower = figure.subplots(2, 1, sharex=True)
    upper.plot(along[order], panels[0][1][order], ".-", color="#0072b2", label="field")
    upper.plot(along[order], panels[1][1][order], color="#d55e00", label="regional")
    lower.plot(along[order], panels[2][1][order], ".-", color="#009e73", label="residual")
    for axes in (upper, lower):
        axes.set_ylabel(unit)
        axes.legend()
        axes.grid(alpha=0.3)
    lower.set_xlabel("distance along the line (m)")


def _maps(figure: Any, survey: Survey, panels: Any, unit: str) -> None:
    axes = figure.subplots(1, 3, sharex=True, sharey=True)
    for number, (axis, (title, values)) in enumerate(zip(axes, panels)):
        held = values[np.isfinite(values)]
        limit = float(np.abs(held).max()) if number == 2 else 0.0
        limits = {"vmin": -limit, "vmax": limit, "cmap": "RdBu_r"} if number == 2 else {"cmap": "viridis"}
        drawn = axis.scatter(survey.x, survey.y, c=values, s=12, **limits)
        figure.colorbar(drawn, ax=axis, label=unit, shrink=0.8)
        axis.set_title(title)
        axis.set_aspect("equal")
        axis.set_xlabel("easting (m)")
        axis.ticklabel_format(useOffset=False, style="plain")
        axis.tick_params(axis="x", labelrotation=30)
    axes[0].set_ylabel("northing (m)")
