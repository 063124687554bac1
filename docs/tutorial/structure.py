#!/usr/bin/python3
"""Compares the density and susceptibility of a stacked run with the true body of make_coupled.py.

    ./structure.py CONTROL

For each property: correlation with the true model, and the overlap of the cells above half the peak with those of the body (intersection
over union); then the mean of |grad a x grad b| of both models, each in units of its peak.
"""
import sys

import numpy as np
from make_coupled import is_inside

from voxlith import Run
from voxlith.stacked_run import StackedRun

run = StackedRun(Run('.', sys.argv[1]))
mesh, models = run.stack.mesh, run.models()
true = is_inside(mesh.centres())
for fit in run.fits():
    print(f'{fit.name}: RMS misfit {fit.rms:.2f}')
for model in models:
    large = model.values > 0.5 * model.values.max()
    print(f'{model.name}: correlation {np.corrcoef(model.values, true)[0, 1]:.2f}, overlap {(large & true).sum() / (large | true).sum():.2f}')
places = [mesh.z_nodes[:-1] - 0.5 * mesh.z_widths, mesh.x_nodes[:-1] + 0.5 * mesh.x_widths, mesh.y_nodes[:-1] + 0.5 * mesh.y_widths]
a, b = (np.stack(np.gradient(mesh.cube(model.values / model.values.max()), *places), axis=-1) for model in models)
print(f'mean |grad a x grad b|: {np.linalg.norm(np.cross(a, b), axis=-1).mean():.2e} per m2')
