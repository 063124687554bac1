"""Observed, predicted and residual data as maps, one figure a component."""
import numpy as np
from matplotlib import pyplot
from matplotlib.ticker import MaxNLocator
from matplotlib.tri import Triangulation

from . import style


def draw(survey, component, title):
    """Observed and predicted share colours; the residual is centred on zero. Without a prediction only the first is
    drawn."""
    panels = 1 if component.predicted is None else 3
    width, height = _panel_size(survey, panels)
    figure, axes = pyplot.subplots(1, panels, figsize=(panels * width + 0.9, height + 1.5), sharex=True, sharey=True,
                                   squeeze=False, constrained_layout=True)
    axes = axes[0]
    both = [component.observed] + ([] if panels == 1 else [component.predicted])
    colours, low, high = style.value_limits(*both)
    for panel, values, words in zip(axes, both, ('Observed', 'Predicted')):
        shown = _field(panel, survey, values, colours, low, high)
        panel.set_title(words)
    _bar(figure, shown, list(axes[:len(both)]), '%s (%s)' % (component.name, component.unit))
    if panels == 3:
        reach = np.nanmax(np.abs(component.residual), initial=0.0) or 1.0
        shown = _field(axes[2], survey, component.residual, style.DIVERGING, -reach, reach)
        axes[2].set_title('Residual')
        _bar(figure, shown, [axes[2]], 'predicted − observed (%s)' % component.unit)
    for panel in axes:
        panel.set_aspect('equal')
        style.metre_axes(panel, ticks=4)
        panel.label_outer()
    figure.suptitle(title)
    return figure


def _bar(figure, shown, panels, label):
    bar = figure.colorbar(shown, ax=panels, location='bottom', shrink=0.8, aspect=18 * len(panels), pad=0.03,
                          label=label)
    low, high = shown.get_clim()
    ticks = MaxNLocator(4 * len(panels)).tick_values(low, high)
    slack = 1e-6 * (high - low)
    bar.set_ticks(ticks[(ticks >= low - slack) & (ticks <= high + slack)])


def _panel_size(survey, panels):
    """Inches of a panel, so that equal scales on both axes fill it."""
    dx, dy = np.ptp(survey.x) or 1.0, np.ptp(survey.y) or 1.0
    width = 5.0 if panels == 1 else 3.1
    return width, float(np.clip(width * dy / dx, 0.7, 6.0))


def _field(panel, survey, values, colours, low, high):
    """Filled contours through the stations where these cover the ground evenly, coloured dots where they do not."""
    valid = np.isfinite(values)
    x, y = survey.x[valid], survey.y[valid]
    triangles = None if survey.lines else _triangles(x, y)
    if triangles is None:
        size = float(np.clip(9000.0 / max(len(x), 1), 6.0, 60.0))
        panel.margins(0.08)
        shown = panel.scatter(x, y, c=values[valid], s=size, linewidth=0.0, cmap=colours, vmin=low, vmax=high)
    else:
        shown = panel.tricontourf(triangles, values[valid], levels=MaxNLocator(20).tick_values(low, high), cmap=colours)
        for part in shown.collections:  # drawn as pixels: as polygons they show seams
            part.set_rasterized(True)
        if len(x) <= 3000:
            panel.plot(x, y, linestyle='none', marker='.', markersize=1.4, color='black', alpha=0.45)
    if not valid.all():
        panel.plot(survey.x[~valid], survey.y[~valid], linestyle='none', marker='x', markersize=3, color=style.GREY,
                   markeredgewidth=0.6)
    return shown


def _triangles(x, y):
    """Triangles between stations without those that bridge gaps; None where they say little."""
    if len(x) < 12:
        return None
    try:
        triangles = Triangulation(x, y)
    except (RuntimeError, ValueError):
        return None
    corners = triangles.triangles
    edges = np.stack([np.hypot(x[corners[:, a]] - x[corners[:, b]], y[corners[:, a]] - y[corners[:, b]])
                      for a, b in ((0, 1), (1, 2), (2, 0))])
    longest, shortest = edges.max(axis=0), edges.min(axis=0)
    if np.median(longest) > 5.0 * np.median(shortest):
        return None
    far = longest > 4.0 * np.median(longest)
    if far.all():
        return None
    triangles.set_mask(far)
    return triangles
