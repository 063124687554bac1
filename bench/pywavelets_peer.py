#!/usr/bin/env python3
"""The wavelet transform of voxlith beside PyWavelets on the same work: 256 x 256 x 64 values, 4 taps, all levels of each axis.

    pywavelets_peer.py [--ratios voxlith-bench-ratios]

Each program is timed beside three read-and-write passes over the array in its own process, and the two ratios are divided. The
peer is the fully separable transform with periodic ends, which takes each axis through all its levels before the next, as
voxlith does. Needs numpy and pywt.
"""
import argparse
import os
import re
import statistics
import subprocess
import sys
import time
import warnings

import numpy as np
import pywt

SHAPE = (256, 256, 64)
GOAL = 10.0
ROUNDS = 9


def seconds(work):
    start = time.process_time()
    work()
    return time.process_time() - start


def levels(n):
    return int(np.log2(n)) - 1  # steps on n, n/2, ... 4 values


def peer_ratios(rounds=ROUNDS):
    """PyWavelets over three passes, forward and inverse."""
    values = np.random.default_rng(4).standard_normal(SHAPE)
    depth = [levels(n) for n in SHAPE]

    def passes():
        for _ in range(3):
            np.negative(values, out=values)

    with warnings.catch_warnings():
        warnings.simplefilter('ignore')  # the coarse levels are shorter than PyWavelets recommends
        result = pywt.fswavedecn(values, 'db2', mode='periodization', levels=depth)
        back = pywt.fswaverecn(result)
        if not np.allclose(back, values, atol=1e-9):
            raise SystemExit('PyWavelets does not give the values back')
        times = [(seconds(passes), seconds(lambda: pywt.fswavedecn(values, 'db2', mode='periodization', levels=depth)),
                  seconds(lambda: pywt.fswaverecn(result))) for _ in range(rounds)]
    one_pass, forward, inverse = (statistics.median(column) for column in zip(*times))
    return forward / one_pass, inverse / one_pass


def own_ratios(program):
    text = subprocess.run([program, '--only', 'transform'], capture_output=True, text=True, check=True).stdout
    found = re.findall(r'three read-and-write passes +([0-9.]+)', text)
    if len(found) != 2:
        raise SystemExit('no ratios of the transform from ' + program)
    return tuple(map(float, found))


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--ratios', default=os.path.join(here, '..', 'build', 'bench', 'bench', 'voxlith-bench-ratios'))
    asked = parser.parse_args()
    print('%-12s %22s %22s %28s %6s' % ('256x256x64', 'voxlith over 3 passes', 'PyWavelets over them', 'PyWavelets over voxlith',
                                       'goal'))
    for name, own, peer in zip(('forward', 'inverse'), own_ratios(asked.ratios), peer_ratios()):
        print('%-12s %22.2f %22.2f %28.1f %6.0f %s' % (name, own, peer, peer / own, GOAL,
                                                       'met' if peer / own >= GOAL else 'missed'))
    return 0


if __name__ == '__main__':
    sys.exit(main())
