"""The course of a run: misfit, norm and total against the iteration, and the terms that make the norm."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

import numpy as np
import numpy.typing as npt
from matplotlib.figure import Figure
from matplotlib.ticker import FuncFormatter, LogLocator, MaxNLocator, NullFormatter

from ..errors import FileError, RunError, VoxlithError
from ..io.log_file import IterationTerms, RunLog
from ..io.progress_file import IterationRow
from ..run import Run
from . import style
from .style import Reals, drawable, new_figure, styled

_TERMS = (("reference", "difference from the reference", style.GREY, (0, (1, 1))),
          ("smooth_x", "smoothness in x", style.BLUE, "-"),
          ("smooth_y", "smoothness in y", style.ORANGE, "--"), ("smooth_z", "smoothness in z", style.GREEN, "-."),
          ("barrier", "barrier", style.PURPLE, ":"))
_LEAST = 0.0005  # of a term that is drawn: the log prints four decimals
_NOTABLE = 0.01  # of the squared misfit: what the log leaves out is drawn from there on


@styled
def convergence(run: Run) -> Figure:
    """Misfit, model norm and total of each iteration, and the terms of the total.

    Raises
    ------
    RunError
        When the table of iterations is missing or holds no row.
    FileError
        When it cannot be used.
    """
    if not run.path("voxlith.aux").is_file():
        raise RunError(f"{run.folder}: holds no table of iterations yet (voxlith.aux)")
    rows = run.table
    if not rows:
        raise RunError(f"{run.path('voxlith.aux')}: holds no row yet")
    iteration = np.array([row.iteration for row in rows])
    curves = [drawable([getattr(row, name) for row in rows]) for name in ("misfit", "model_norm", "total")]
    figure = new_figure(9.0, 6.0)
    panels = figure.subplots(2, 2, sharex=True)
    titles = ("RMS misfit (standard deviations)", "Model norm (root of its terms)",
              "Total objective (root of the sum of its terms)")
    for panel, values, title in zip(panels.flat, curves, titles):
        _curve(panel, rows, iteration, values)
        panel.set_title(title)
    noise = noise_level(run)
    panels[0, 0].axhline(noise, color=style.GREY, linewidth=0.8, linestyle="--")
    panels[0, 0].annotate(f"noise level, {noise:.3g}", (0.0, noise), xycoords=("axes fraction", "data"), xytext=(4, 3),
                          textcoords="offset points", color=style.GREY, fontsize=8)
    _logarithmic(panels[0, 0], np.append(curves[0], noise))
    _logarithmic(panels[1, 0], curves[2])
    panels[0, 0].legend(loc="upper right")
    _terms(panels[1, 1], run, iteration, curves[0], curves[2])
    for panel in panels[1]:
        panel.set_xlabel("iteration")
    for panel in panels.flat:
        panel.grid(True, color="0.9", linewidth=0.6)
        panel.xaxis.set_major_locator(MaxNLocator(8, integer=True))
    state = "finished" if run.state == "finished" else "not finished"
    figure.suptitle(f"Convergence: RMS misfit {rows[-1].misfit:.4g} after {rows[-1].iteration} iterations ({state})")
    return figure


def noise_level(run: Run) -> float:
    """Misfit of data that are fitted to one standard deviation each; 1 where the data cannot be read."""
    try:
        return run.fit().noise_level
    except VoxlithError:
        return 1.0


def unchanged(rows: list[IterationRow]) -> npt.NDArray[np.bool_]:
    """Iterations that took no step. In the last ten of a run none is tried: the row repeats the one before, and the
    number of steps is that of the last try."""
    found = [row.steps == 0 for row in rows]
    for number in range(1, len(rows)):
        row, last = rows[number], rows[number - 1]
        same = (row.misfit, row.model_norm, row.total) == (last.misfit, last.model_norm, last.total)
        found[number] = found[number] or same
    return np.array(found, dtype=np.bool_)


def _curve(panel: Any, rows: list[IterationRow], iteration: npt.NDArray[Any], values: Reals) -> None:
    panel.plot(iteration, values, color=style.BLUE, linewidth=1.2, marker=".", markersize=3, label="each iteration")
    marked, same = np.array([row.steps is not None for row in rows]), unchanged(rows)
    for chosen, face, words in ((marked & ~same, style.VERMILION, "conjugate gradients"),
                                (marked & same, "white", "conjugate gradients, model unchanged")):
        if chosen.any():
            panel.plot(iteration[chosen], values[chosen], linestyle="none", marker="D", markersize=5,
                       markerfacecolor=face, markeredgecolor=style.VERMILION, label=words)


def _logarithmic(panel: Any, values: Reals) -> None:
    """A logarithmic axis with plain numbers, where the values spread enough for one."""
    values = values[np.isfinite(values)]
    values = values[values > 0.0]
    if len(values) and values.max() > 8.0 * values.min():
        panel.set_yscale("log")
        decades = np.log10(values.max() / values.min())
        panel.yaxis.set_major_locator(LogLocator(subs=(1.0, 2.0, 5.0) if decades < 3.0 else (1.0,), numticks=15))
        panel.yaxis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:g}"))
        panel.yaxis.set_minor_formatter(NullFormatter())


def _terms_of(log: RunLog) -> Iterator[tuple[int, IterationTerms]]:
    """Terms by iteration. A continued run starts with those of the iteration before it, which are not its own."""
    if log.start is not None and not log.continued:
        yield 0, log.start
    yield from log.iterations.items()


def _norm_of(terms: IterationTerms) -> float:
    """The square of the model norm, without the trade-off."""
    return float(sum(getattr(terms, key) for key, *_ in _TERMS if key != "barrier"))


def _multipliers(run: Run, weighted: dict[int, float]) -> Callable[[int, RunLog, IterationTerms], float]:
    """The trade-off multiplier of an iteration: of the table where a run tried several, else that of the log.

    A sparse norm follows the misfit with multipliers after the last one of the table; `weighted` is the norm times the
    multiplier by iteration.
    """
    try:
        table = run.tradeoffs
    except FileError:
        table = None
    if table is None or not len(table.tradeoff) or np.isnan(table.iteration).any():
        return lambda number, log, terms: log.tradeoff or 0.0
    order = np.argsort(table.iteration, kind="stable")
    last, multipliers = table.iteration[order], table.tradeoff[order]

    def of_iteration(number: int, log: RunLog, terms: IterationTerms) -> float:
        norm = _norm_of(terms)
        if number > last[-1] and norm > 0.0 and number in weighted:
            return weighted[number] / norm
        return float(multipliers[min(int(np.searchsorted(last, number)), len(last) - 1)])

    return of_iteration


def _terms(panel: Any, run: Run, iteration: npt.NDArray[Any], misfit: Reals, total: Reals) -> None:
    """What the square of the total is made of: the misfit, the parts of the norm times the trade-off, the barrier. The log rounds
    the parts of a small norm to 0: then their sum is drawn, from the table.
    """
    panel.set_title("Terms of the total: misfit², trade-off × parts of norm²")
    panel.plot(iteration, drawable(misfit ** 2), color="black", linewidth=1.2, label="misfit²")
    try:
        logs = run.log if run.path("voxlith.log").is_file() else []
    except FileError:
        logs = []
    multiplier_of = _multipliers(run, dict(zip(iteration.tolist(), (total ** 2 - misfit ** 2).tolist())))
    found = {number: (terms, multiplier_of(number, log, terms)) for log in logs for number, terms in _terms_of(log)}
    numbers = sorted(found)
    shown = False
    for key, words, colour, dashes in _TERMS:
        # The barrier is a term of the total by itself.
        values = drawable([getattr(terms, key) * (1.0 if key == "barrier" else tradeoff)
                           for terms, tradeoff in (found[number] for number in numbers)])
        values = np.where(values > 0.0, values, np.nan)
        if (values >= _LEAST).any():
            shown = True
            panel.plot(numbers, values, color=colour, linestyle=dashes, linewidth=1.2, label=words)
    rest = drawable(total ** 2 - misfit ** 2)
    if found and not shown and rest[-1] > _NOTABLE * misfit[-1] ** 2:
        panel.plot(iteration, np.where(rest > 0.0, rest, np.nan), color=style.GREY, linestyle="--", linewidth=1.2, label="trade-off × norm²")
    _logarithmic(panel, np.concatenate([np.asarray(line.get_ydata(), dtype=np.float64) for line in panel.lines]))
    if panel.get_yscale() == "log":
        panel.set_ylim(bottom=max(panel.get_ylim()[0], _LEAST))
    panel.legend(loc="best")
