#!/usr/bin/python3
"""Reading a sensitivity file row by row from Python, against copying it.

    mtx_reading.py [--megabytes 1024] [--coefficients 20000] [--folder /tmp]

Makes a file of that size with rows of that length, reads it several times with `cat` and with voxlith.io.mtx_file, and
shows the least times and the memory that the readers took. Needs numpy. Beside other work, look at processor times.
"""
import argparse
import os
import resource
import subprocess
import sys
import tempfile
import time

import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'python'))
from voxlith.io.mtx_file import MtxFile, MtxHeader, MtxRow, MtxTail  # noqa: E402
from voxlith.io.mtx_output import write_mtx_file  # noqa: E402
from voxlith.wavelet import daubechies_filter  # noqa: E402

REPEATS = 9


def make_file(path, megabytes, coefficients):
    side = 8
    while side**3 < 2 * coefficients:
        side *= 2
    rows = max(megabytes * 2**20 // (8 * coefficients + 4), 1)
    bank, nodes = daubechies_filter(4), np.arange(side + 1.0)
    header = MtxHeader('bare', 0, rows, side, side, side, side, side, side, bank.low, bank.high, nodes, nodes, nodes,
                       np.ones(side**3, dtype=np.float32))
    rng = np.random.default_rng(1)
    positions = np.sort(rng.choice(side**3, coefficients, replace=False)).astype(np.int32) + 1
    row = MtxRow(positions, rng.normal(size=coefficients).astype(np.float32))
    write_mtx_file(path, header, (row for _ in range(rows)), MtxTail(np.ones(side**3)))


def processor_seconds():
    """Of this program and of those that it has waited for."""
    used = [resource.getrusage(who) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)]
    return sum(usage.ru_utime + usage.ru_stime for usage in used)


def best(action):
    """Least wall-clock and processor time of several repeats."""
    clock, processor = [], []
    for _ in range(REPEATS):
        start, used = time.perf_counter(), processor_seconds()
        action()
        clock.append(time.perf_counter() - start)
        processor.append(processor_seconds() - used)
    return min(clock), min(processor)


def read_rows(path, check, sums=False):
    total = 0.0
    with MtxFile(path) as mtx:
        for row in mtx.rows(check=check):
            if sums:
                total += float(row.values.sum())
    return total


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--megabytes', type=int, default=1024)
    parser.add_argument('--coefficients', type=int, default=20000)
    parser.add_argument('--folder', default=tempfile.gettempdir())
    asked = parser.parse_args()
    path = os.path.join(asked.folder, 'voxlith-bench-%d.mtx' % os.getpid())
    try:
        make_file(path, asked.megabytes, asked.coefficients)
        copying = best(lambda: subprocess.run(['cat', path], stdout=subprocess.DEVNULL, check=True))
        size = os.path.getsize(path) / 2**20
        print('file:               %.0f MB, rows of %d coefficients' % (size, asked.coefficients))
        print('cat:                %.3f s, processor %.3f s' % copying)
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        for name, action in (('rows', lambda: read_rows(path, True)),
                             ('rows, no checks', lambda: read_rows(path, False)),
                             ('rows and their sum', lambda: read_rows(path, True, True))):
            seconds = best(action)
            print('%-19s %.3f s, %.2f times cat; processor %.3f s, %.2f times'
                  % (name + ':', seconds[0], seconds[0] / copying[0], seconds[1], seconds[1] / copying[1]))
        print('memory:             %d MB, %d MB more than before reading'
              % (resource.getrusage(resource.RUSAGE_SELF).ru_maxrss // 1024,
                 (resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before) // 1024))
    finally:
        if os.path.exists(path):
            os.unlink(path)


if __name__ == '__main__':
    sys.exit(main())
