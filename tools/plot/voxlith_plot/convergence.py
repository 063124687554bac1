"""The course of a run: misfit, norm and total against the iteration, and the terms that make the norm."""
import numpy as np
from matplotlib import pyplot
from matplotlib.ticker import FuncFormatter, LogLocator, MaxNLocator, NullFormatter

from . import style

TERMS = (('reference', 'difference from the reference', style.GREY, (0, (1, 1))),
         ('x', 'smoothness in x', style.BLUE, '-'),
         ('y', 'smoothness in y', style.ORANGE, '--'), ('z', 'smoothness in z', style.GREEN, '-.'),
         ('barrier', 'barrier', style.PURPLE, ':'))
LEAST = 0.0005  # of a term that is drawn: the log prints four decimals


def draw(run):
    progress = run.progress
    figure, axes = pyplot.subplots(2, 2, figsize=(9.0, 6.0), sharex=True, constrained_layout=True)
    panels = (('RMS misfit', '(standard deviations)', progress.misfit),
              ('Model norm', '(root of its terms)', progress.norm),
              ('Total objective', '(root of the sum of its terms)', progress.total))
    for panel, (title, unit, values) in zip(axes.flat, panels):
        _curve(panel, progress, values)
        panel.set_title('%s %s' % (title, unit))
    noise = run.noise_level
    axes[0, 0].axhline(noise, color=style.GREY, linewidth=0.8, linestyle='--')
    axes[0, 0].annotate('noise level, %.3g' % noise, (0.0, noise), xycoords=('axes fraction', 'data'), xytext=(4, 3),
                        textcoords='offset points', color=style.GREY, fontsize=8)
    _logarithmic(axes[0, 0], np.append(progress.misfit, noise))
    _logarithmic(axes[1, 0], progress.total)
    axes[0, 0].legend(loc='upper right')
    _terms(axes[1, 1], progress, run.log.terms)
    for panel in axes[1]:
        panel.set_xlabel('iteration')
    for panel in axes.flat:
        panel.grid(True, color='0.9', linewidth=0.6)
        panel.xaxis.set_major_locator(MaxNLocator(8, integer=True))
    state = 'finished' if run.log.finished else 'not finished'
    figure.suptitle('Convergence: RMS misfit %.4g after %d iterations (%s)'
                    % (progress.misfit[-1], progress.iteration[-1], state))
    return figure


def _curve(panel, progress, values):
    panel.plot(progress.iteration, values, color=style.BLUE, linewidth=1.2, marker='.', markersize=3,
               label='each iteration')
    marked = progress.steps >= 0
    for chosen, face, words in ((marked & ~_unchanged(progress), style.VERMILION, 'conjugate gradients'),
                                (marked & _unchanged(progress), 'white', 'conjugate gradients, model unchanged')):
        if chosen.any():
            panel.plot(progress.iteration[chosen], values[chosen], linestyle='none', marker='D', markersize=5,
                       markerfacecolor=face, markeredgecolor=style.VERMILION, label=words)


def _unchanged(progress):
    """Iterations that took no step. In the last ten of a run none is tried: the row repeats the one before, and the
    number of steps is that of the last try."""
    columns = np.stack([progress.misfit, progress.norm, progress.total])
    repeated = np.append(False, (columns[:, 1:] == columns[:, :-1]).all(axis=0))
    return repeated | (progress.steps == 0)


def _logarithmic(panel, values):
    """A logarithmic axis with plain numbers, where the values spread enough for one."""
    values = values[values > 0.0]
    if len(values) and values.max() > 8.0 * values.min():
        panel.set_yscale('log')
        decades = np.log10(values.max() / values.min())
        panel.yaxis.set_major_locator(LogLocator(subs=(1.0, 2.0, 5.0) if decades < 3.0 else (1.0,), numticks=15))
        panel.yaxis.set_major_formatter(FuncFormatter(lambda value, _: '%g' % value))
        panel.yaxis.set_minor_formatter(NullFormatter())


def _terms(panel, progress, terms):
    """What the square of the total is made of: the misfit, the parts of the norm times the trade-off, the barrier."""
    panel.set_title('Terms of the total: misfit², trade-off × parts of norm²')
    panel.plot(progress.iteration, progress.misfit ** 2, color='black', linewidth=1.2, label='misfit²')
    for key, words, colour, dashes in TERMS:
        points = sorted((iteration, found[key]) for iteration, found in terms.items() if key in found)
        values = np.array([value if value > 0.0 else np.nan for _, value in points])
        if (values >= LEAST).any():
            panel.plot([iteration for iteration, _ in points], values, color=colour, linestyle=dashes, linewidth=1.2,
                       label=words)
    _logarithmic(panel, np.concatenate([line.get_ydata() for line in panel.lines]))
    if panel.get_yscale() == 'log':
        panel.set_ylim(bottom=max(panel.get_ylim()[0], LEAST))
    panel.legend(loc='best')
