#!/usr/bin/python3
"""RMS misfit of each component: of the predictions that a run wrote, and of its models multiplied by the sensitivities themselves.

    ./fits.py CONTROL

The two are the same where the product definitions do what they should.
"""
import sys

import numpy as np

from voxlith import Run, Sensitivity


def rms(scores):
    return np.sqrt(np.nanmean(scores * scores))


run = Run('.', sys.argv[1])
fit, models, control = run.fit(), run.models(), run.control.values
for number, terms in enumerate(control.products):
    response = np.zeros(fit.observed.n_stations)
    for term in terms.terms:
        with Sensitivity(control.mtx_files[term.mtx - 1]) as sensitivity:
            response += term.coefficient * sensitivity.forward(models[term.model - 1].values)
    residual = (response - fit.observed.data[number]) / fit.observed.uncertainties()[number]
    print(f'component {number + 1}: RMS misfit {rms(fit.zscore[number]):.2f}, of the models {rms(residual):.2f}')
