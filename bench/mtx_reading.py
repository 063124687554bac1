"""Reading a sensitivity file row by row from Python beside `cat` of it: least CPU times of several repeats, and memory.

Needs numpy and the package in python/.
"""
import os
import resource
import subprocess
import sys
import time

import numpy as np

from benchmarks import Line

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'python'))
from voxlith.io.mtx_file import MtxFile, MtxHeader, MtxRow, MtxTail  # noqa: E402
from voxlith.io.mtx_output import write_mtx_file  # noqa: E402
from voxlith.wavelet import daubechies_filter  # noqa: E402

REPEATS = 9
MEGABYTES = 1024
COEFFICIENTS = (2000, 20000)  # of a row


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


def peak_memory(path):
    """Largest resident bytes of a process that reads all rows."""
    done = subprocess.run([sys.executable, os.path.abspath(__file__), path], stdout=subprocess.PIPE, check=True)
    return int(done.stdout)


def run(settings, name):
    path = os.path.join(settings.folder, 'python-rows.mtx')
    try:
        for count in COEFFICIENTS:
            make_file(path, MEGABYTES, count)
            copying = best(lambda: subprocess.run(['cat', path], stdout=subprocess.DEVNULL, check=True))[1]
            for work, goal, action in (('rows', 2.0, lambda: read_rows(path, True)),
                                       ('rows, no checks', None, lambda: read_rows(path, False)),
                                       ('rows and their sum', None, lambda: read_rows(path, True, True))):
                yield Line('%s of %d in Python, %d MB' % (work, count, MEGABYTES), 'cat FILE >/dev/null from the cache',
                           best(action)[1] / copying, goal)
        yield Line('memory of reading rows in Python', '200 MB', peak_memory(path) / 200e6, 1.0)
    finally:
        if os.path.exists(path):
            os.unlink(path)


if __name__ == '__main__':
    read_rows(sys.argv[1], True)
    print(1024 * resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
