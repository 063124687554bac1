"""How the residuals spread: a histogram of z-scores, (predicted - observed) / standard deviation."""

from __future__ import annotations

from typing import Any

import numpy as np
from matplotlib.figure import Figure

from ..errors import RunError
from ..run import Fit, Run
from . import style
from .data_view import view_of
from .style import Reals, new_figure, styled

_WIDEST = 1.0e6  # half the axis at most
_FARTHEST = 1.0e15  # scores beyond count as this one, whose square is still a number


@styled
def zscores(source: Run | Fit) -> Figure:
    """A histogram of the z-scores of each component under the standard normal distribution.

    Parameters
    ----------
    source : Run or Fit

    Raises
    ------
    RunError
        When there are no predicted data yet.
    FileError
        When a file of the run cannot be used.
    """
    view = view_of(source)
    if view.predicted is None:
        raise RunError(f"{view.origin}: holds no predicted data yet (voxlith.pre)")
    count = view.survey.n_components
    columns = min(count, 3)
    rows = -(-count // columns)
    figure = new_figure(max(5.5, 4.2 * columns), 3.8 * rows)
    panels = figure.subplots(rows, columns, squeeze=False)
    for panel in panels.flat[count:]:
        panel.set_visible(False)
    for number, panel in enumerate(panels.flat[:count]):
        _histogram(panel, view.names[number], view.zscore(number))
    figure.suptitle("z-scores" + ("" if view.iteration is None else f" after iteration {view.iteration}"))
    return figure


def _histogram(panel: Any, name: str, zscore: Reals) -> None:
    scores = np.clip(zscore[~np.isnan(zscore)], -_FARTHEST, _FARTHEST)
    panel.set_title(name)
    panel.set_xlabel("z-score = (predicted − observed) / standard deviation")
    panel.set_ylabel("share of the data per unit of z")
    if not len(scores):
        panel.text(0.5, 0.5, "all data are masked", transform=panel.transAxes, ha="center", color=style.GREY)
        return
    reach = min(max(4.0, float(np.ceil(np.percentile(np.abs(scores), 99.5)))), _WIDEST)
    width = 0.25 if len(scores) >= 2000 else 0.5 if len(scores) >= 100 else 1.0
    width = max(width, float(np.ceil(reach / 30.0)) if reach > 30.0 else 0.0)
    reach = width * float(np.ceil(reach / width))
    edges = np.linspace(-reach, reach, int(round(2.0 * reach / width)) + 1)
    weights = np.full(len(scores), 1.0 / (len(scores) * (edges[1] - edges[0])))
    panel.hist(scores, bins=edges, weights=weights, color=style.BLUE, alpha=0.55, edgecolor="white", linewidth=0.4,
               label="data")
    z = np.linspace(-1.0, 1.0, 801) * min(reach, 8.0)
    panel.plot(z, np.exp(-0.5 * z * z) / np.sqrt(2.0 * np.pi), color=style.VERMILION, linewidth=1.6,
               label="standard normal")
    panel.set_xlim(-reach, reach)
    panel.set_ylim(0.0, panel.get_ylim()[1] * 1.2)
    panel.text(0.03, 0.97, "\n".join(_words(scores, len(zscore) - len(scores), reach)), transform=panel.transAxes,
               va="top", fontsize=8)
    panel.legend(loc="upper right")


def _words(scores: Reals, masked: int, reach: float) -> list[str]:
    words = [f"{len(scores)} data" + (f", {masked} masked" if masked else ""), f"mean {scores.mean():.2f}",
             f"RMS {np.sqrt(np.mean(scores ** 2)):.2f}", f"{np.sum(np.abs(scores) > 3.0)} beyond 3"]
    outside = int(np.sum(np.abs(scores) > reach))
    return words + ([f"{outside} beyond the axis"] if outside else [])
