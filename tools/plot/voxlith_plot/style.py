"""Colours, fonts and the saving of figures: one look for all pictures.

Colours are those of Okabe and Ito (2008), told apart by colour-blind readers; maps are viridis, and PuOr, purple to
orange, centred on zero where the sign matters.
"""
import os

import matplotlib
import numpy as np

matplotlib.use('Agg')
from matplotlib import pyplot  # noqa: E402
from matplotlib.ticker import MaxNLocator, ScalarFormatter  # noqa: E402

BLUE, ORANGE, GREEN, VERMILION, PURPLE, GREY = '#0072B2', '#E69F00', '#009E73', '#D55E00', '#CC79A7', '#666666'
SEQUENTIAL, DIVERGING = 'viridis', 'PuOr_r'
DPI = 110

pyplot.rcParams.update({
    'font.size': 9, 'axes.titlesize': 9.5, 'axes.labelsize': 9, 'legend.fontsize': 8, 'xtick.labelsize': 8,
    'ytick.labelsize': 8, 'figure.titlesize': 11, 'axes.linewidth': 0.7, 'legend.framealpha': 0.9,
    'pdf.fonttype': 42, 'axes.formatter.useoffset': False})


def save(figure, folder, name, kinds):
    """Writes the figure as NAME.KIND for each kind, whole or not at all; gives the paths."""
    os.makedirs(folder, exist_ok=True)
    paths = []
    for kind in kinds:
        path = os.path.join(folder, '%s.%s' % (name, kind))
        beside = path + '.part'
        try:
            figure.savefig(beside, format=kind, dpi=DPI, metadata={'CreationDate': None} if kind == 'pdf' else {})
            os.replace(beside, path)
        finally:
            if os.path.exists(beside):
                os.remove(beside)
        paths.append(path)
    pyplot.close(figure)
    return paths


def value_limits(*arrays):
    """Colour map and limits that the arrays share: centred on zero when both signs matter."""
    values = np.concatenate([np.ravel(a) for a in arrays])
    values = values[np.isfinite(values)]
    if not len(values):
        return SEQUENTIAL, 0.0, 1.0
    low, high = float(values.min()), float(values.max())
    if low < 0.0 < high and min(-low, high) > 0.15 * max(-low, high):
        reach = max(-low, high)
        return DIVERGING, -reach, reach
    if high <= low:
        pad = abs(high) * 0.05 or 1.0
        return SEQUENTIAL, low - pad, high + pad
    return SEQUENTIAL, low, high


def metre_axes(axes, x_label='x, east (m)', y_label='y, north (m)', ticks=5):
    """Labels and a few plain ticks on both axes; coordinates are never shown with an offset or a power of ten."""
    axes.set_xlabel(x_label)
    axes.set_ylabel(y_label)
    for axis in (axes.xaxis, axes.yaxis):
        axis.set_major_locator(MaxNLocator(ticks, steps=[1, 2, 2.5, 5, 10]))
        formatter = ScalarFormatter(useOffset=False)
        formatter.set_scientific(False)
        axis.set_major_formatter(formatter)
