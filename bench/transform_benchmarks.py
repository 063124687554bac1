"""The wavelet transform beside PyWavelets on the same work: 256 x 256 x 64 values, 4 taps, all levels of each axis.

Each program is timed beside three read-and-write passes over the array in its own process, and the two ratios are divided.
PyWavelets takes each axis through all its levels before the next, with periodic ends, as voxlith does. Needs numpy and pywt.
"""
import statistics
import time
import warnings

import numpy as np
import pywt

import kernel_benchmarks
from benchmarks import Line

SHAPE = (256, 256, 64)
GOAL = 0.1


def seconds(work):
    start = time.process_time()
    work()
    return time.process_time() - start


def levels(n):
    return int(np.log2(n)) - 1  # steps on n, n/2, ... 4 values


def pywavelets_ratios(rounds):
    """PyWavelets over three passes, forward and inverse."""
    values = np.random.default_rng(4).standard_normal(SHAPE)
    depth = [levels(n) for n in SHAPE]

    def passes():
        for _ in range(3):
            np.negative(values, out=values)

    def forward():
        return pywt.fswavedecn(values, 'db2', mode='periodization', levels=depth)

    with warnings.catch_warnings():
        warnings.simplefilter('ignore')  # the coarse levels are shorter than PyWavelets recommends
        result = forward()
        if not np.allclose(pywt.fswaverecn(result), values, atol=1e-9):
            raise RuntimeError('PyWavelets does not give the values back')
        times = [(seconds(passes), seconds(forward), seconds(lambda: pywt.fswaverecn(result))) for _ in range(rounds)]
    one_pass, forward_time, inverse_time = (statistics.median(column) for column in zip(*times))
    return forward_time / one_pass, inverse_time / one_pass


def run(settings, name):
    own = [line.ratio for line in kernel_benchmarks.run(settings, 'transform')]
    for work, ratio, reference in zip(('transform', 'inverse transform'), own, pywavelets_ratios(settings.rounds)):
        yield Line(work + ' 256 x 256 x 64, 4 taps', 'PyWavelets', ratio / reference, GOAL,
                   note='over three passes: voxlith %.2f, PyWavelets %.2f' % (ratio, reference))
