"""How the residuals spread: a histogram of z-scores, (predicted - observed) / deviation, under the standard normal."""
import numpy as np
from matplotlib import pyplot

from . import style
from .formats import Missing

WIDEST = 1.0e6  # half the axis at most
FARTHEST = 1.0e15  # scores beyond count as this one, whose square is still a number


def draw(run):
    components = [c for c in run.survey.components if c.predicted is not None]
    if not components:
        raise Missing('%s holds no predicted data yet (voxlith.pre)' % run.folder)
    columns = min(len(components), 3)
    rows = -(-len(components) // columns)
    figure, axes = pyplot.subplots(rows, columns, figsize=(max(5.5, 4.2 * columns), 3.8 * rows), squeeze=False,
                                   constrained_layout=True)
    for panel in axes.flat[len(components):]:
        panel.set_visible(False)
    for panel, component in zip(axes.flat, components):
        _histogram(panel, component)
    figure.suptitle('z-scores after iteration %s' % ('-' if run.iteration is None else run.iteration))
    return figure


def _histogram(panel, component):
    scores = component.zscore[np.isfinite(component.zscore)]
    scores = np.clip(scores, -FARTHEST, FARTHEST)
    panel.set_title(component.name)
    panel.set_xlabel('z-score = (predicted − observed) / standard deviation')
    panel.set_ylabel('share of the data per unit of z')
    if not len(scores):
        panel.text(0.5, 0.5, 'all data are masked', transform=panel.transAxes, ha='center', color=style.GREY)
        return
    reach = min(max(4.0, np.ceil(np.percentile(np.abs(scores), 99.5))), WIDEST)
    width = 0.25 if len(scores) >= 2000 else 0.5 if len(scores) >= 100 else 1.0
    width = max(width, np.ceil(reach / 30.0) if reach > 30.0 else 0.0)
    reach = width * np.ceil(reach / width)
    edges = np.linspace(-reach, reach, int(round(2.0 * reach / width)) + 1)
    weights = np.full(len(scores), 1.0 / (len(scores) * (edges[1] - edges[0])))
    panel.hist(scores, bins=edges, weights=weights, color=style.BLUE, alpha=0.55, edgecolor='white', linewidth=0.4,
               label='data')
    z = np.linspace(-1.0, 1.0, 801) * min(reach, 8.0)
    panel.plot(z, np.exp(-0.5 * z * z) / np.sqrt(2.0 * np.pi), color=style.VERMILION, linewidth=1.6,
               label='standard normal')
    panel.set_xlim(-reach, reach)
    panel.set_ylim(0.0, panel.get_ylim()[1] * 1.2)
    masked = len(component.zscore) - len(scores)
    words = ['%d data' % len(scores) + (', %d masked' % masked if masked else ''),
             'mean %.2f' % scores.mean(), 'RMS %.2f' % np.sqrt(np.mean(scores ** 2)),
             '%d beyond 3' % np.sum(np.abs(scores) > 3.0)]
    outside = int(np.sum(np.abs(scores) > reach))
    words += ['%d beyond the axis' % outside] if outside else []
    panel.text(0.03, 0.97, '\n'.join(words), transform=panel.transAxes, va='top', fontsize=8)
    panel.legend(loc='upper right')
