"""Observed, predicted and residual data as profiles: one line of stations, or the lines that a data file names."""
import numpy as np
from matplotlib import pyplot

from . import style

MOST_LINES = 30


def along(survey):
    """Label and coordinate along the line on which all stations stand; None when they do not stand on one."""
    x, y = survey.x - survey.x.mean(), survey.y - survey.y.mean()
    directions = np.linalg.svd(np.stack([x, y]), full_matrices=False)
    spread = directions[1]
    if len(x) < 2 or spread[0] == 0.0 or spread[1] > 0.01 * spread[0]:
        return None
    east, north = directions[0][:, 0]
    if abs(east) > 0.9999:
        return 'x, east (m)', survey.x
    if abs(north) > 0.9999:
        return 'y, north (m)', survey.y
    distance = (east * x + north * y) * (1.0 if east >= 0.0 else -1.0)
    return 'distance along the line (m)', distance - distance.min()


def draw_single(place, component, title):
    """One line: data with deviations and prediction above, residual with its deviations below."""
    label, distance = place
    order = np.argsort(distance, kind='stable')
    at = distance[order]
    if component.predicted is None:
        figure, panel = pyplot.subplots(figsize=(8.0, 3.6), constrained_layout=True)
        panel.plot(at, component.observed[order], '.', color='black', label='observed')
        lowest = panel
    else:
        figure, (panel, lowest) = pyplot.subplots(2, 1, figsize=(8.0, 5.2), sharex=True, constrained_layout=True,
                                                  gridspec_kw={'height_ratios': [2, 1]})
        panel.errorbar(at, component.observed[order], component.deviation[order], fmt='.', color='black', markersize=4,
                       elinewidth=0.8, label='observed, ±1 standard deviation')
        panel.plot(at, component.predicted[order], color=style.BLUE, linewidth=1.4, label='predicted')
        deviation = component.deviation[order]
        lowest.fill_between(at, -deviation, deviation, color='0.85', label='±1 standard deviation', linewidth=0.0)
        lowest.plot(at, component.residual[order], '.', color=style.VERMILION, markersize=4, label='residual')
        lowest.axhline(0.0, color=style.GREY, linewidth=0.8)
        lowest.set_ylabel('predicted − observed\n(%s)' % component.unit)
        lowest.legend(loc='best', ncol=2)
    panel.set_ylabel('%s (%s)' % (component.name, component.unit))
    panel.legend(loc='best')
    lowest.set_xlabel(label)
    figure.suptitle(title)
    return figure


def line_ranges(survey):
    """(name, first, behind the last) of each stretch of records with one line name; a name that returns is a new
    line."""
    ranges, first = [], 0
    for i in range(1, len(survey.lines) + 1):
        if i == len(survey.lines) or survey.lines[i][0] != survey.lines[first][0]:
            ranges.append((survey.lines[first][0], first, i))
            first = i
    return ranges


def draw_lines(survey, component, title):
    """A panel a line, all with one scale; the first MOST_LINES of them."""
    ranges = line_ranges(survey)
    shown = ranges[:MOST_LINES]
    columns = min(len(shown), 4)
    rows = -(-len(shown) // columns)
    figure, axes = pyplot.subplots(rows, columns, figsize=(2.5 * columns + 0.8, 1.7 * rows + 1.1), sharey=True,
                                   squeeze=False, constrained_layout=True)
    time = np.array([time for _, time in survey.lines])
    for panel in axes.flat[len(shown):]:
        panel.set_visible(False)
    for panel, (name, first, end) in zip(axes.flat, shown):
        part = slice(first, end)
        panel.plot(time[part], component.observed[part], '.', color='black', markersize=3, label='observed')
        if component.predicted is not None:
            panel.plot(time[part], component.predicted[part], color=style.BLUE, linewidth=1.3, label='predicted')
        panel.set_title(name, fontsize=8.5)
        panel.grid(True, color='0.9', linewidth=0.6)
        if not np.isfinite(component.observed[part]).any():
            panel.text(0.5, 0.5, 'masked', transform=panel.transAxes, ha='center', color=style.GREY)
    for panel in axes[:, 0]:
        panel.set_ylabel('%s (%s)' % (component.name, component.unit))
    figure.supxlabel('place along the line (the unit of the time column)', fontsize=9)
    handles, words = axes.flat[0].get_legend_handles_labels()
    figure.legend(handles, words, loc='upper right', ncol=2)
    figure.suptitle(title + ('' if len(shown) == len(ranges) else ', first %d of %d lines' % (len(shown), len(ranges))))
    return figure
