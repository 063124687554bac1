"""Products with rows from disk beside `cat` of the same file: from the cache of the system, and from the disk itself.

A run goes to disk when its address space is too small for the rows. Wall times, since waiting for the disk is what counts; the time
that an iteration takes beside its products is measured with rows in memory and subtracted. For cold products the run is stopped
whenever it has read the file once, and the file is dropped from the cache. Needs Linux, numpy and perf.
"""
import os
import re
import select
import signal
import statistics
import subprocess
import time

import large_survey
import whole_run_benchmarks
from benchmarks import Line

WARM_GOAL, COLD_GOAL = 1.2, 1.05
FIRST, LAST = 2, 7     # iterations that are timed
ROUNDS = 3
THREAD_SPACE = 1 << 24  # address space of a thread: its stack


def drop_from_cache(path):
    handle = os.open(path, os.O_RDONLY)
    os.fsync(handle)
    os.posix_fadvise(handle, 0, 0, os.POSIX_FADV_DONTNEED)
    os.close(handle)


def cat_seconds(run, cold):
    if cold:
        drop_from_cache(run.path('rows.mtx'))
    start = time.perf_counter()
    subprocess.run(['cat', 'rows.mtx'], cwd=run.folder, stdout=subprocess.DEVNULL, check=True)
    return time.perf_counter() - start


class Stops:
    """Stops a process for each time that it has read the rows once, and drops the file from the cache meanwhile."""

    def __init__(self, child, run):
        self.child, self.path = child, run.path('rows.mtx')
        self.bytes = 8 * run.coefficients + 4 * run.data
        self.next, self.seconds = None, 0.0

    def look(self):
        with open('/proc/%d/io' % self.child.pid) as f:
            done = int(re.search(r'rchar: (\d+)', f.read()).group(1))
        if self.next is None or done >= self.next:
            start = time.perf_counter()
            os.kill(self.child.pid, signal.SIGSTOP)
            drop_from_cache(self.path)
            os.kill(self.child.pid, signal.SIGCONT)
            self.next = done + self.bytes
            self.seconds += time.perf_counter() - start


def iteration_seconds(run, command, address_space=None, cold=False):
    """Median of the wall seconds of single iterations without stops, from the lines on the screen.

    voxlith-run writes a checkpoint after some of them, which takes several times as long as an iteration.
    """
    large_survey.write_run(run.folder, LAST + 1)
    child = whole_run_benchmarks.start_limited([*command, 'voxlith.inp'], run.folder, address_space)
    stops, begun, text, ends = Stops(child, run), False, b'', {}
    while LAST not in ends:
        if select.select([child.stdout], [], [], 0.0005 if cold else None)[0]:
            part = os.read(child.stdout.fileno(), 65536)
            if not part:
                raise RuntimeError(command[0] + ' ended early in ' + run.folder)
            text += part
            begun = begun or b'Begin iterations' in text
            rows = re.findall(rb'(?m)^ *(\d+) +[\d.]+ +[\d.]+ +[\d.]+ .*\n', text)
            for row in rows:
                ends.setdefault(int(row), time.perf_counter() - stops.seconds)
        if cold and begun:
            stops.look()
    child.kill()
    child.wait()
    child.stdout.close()
    with open(run.path('voxlith.log')) as f:
        if address_space and 'MTX file accessed from disk' not in f.read():
            raise RuntimeError('the run did not go to disk')
    return statistics.median(ends[i] - ends[i - 1] for i in range(FIRST + 1, LAST + 1))


def run(settings, name):
    survey = whole_run_benchmarks.Run(settings, whole_run_benchmarks.LARGE_MESH, settings.coefficients)
    inside, outside = sum(whole_run_benchmarks.profile(survey, FIRST, LAST) for _ in range(ROUNDS))
    runner = os.path.join(settings.build, 'voxlith-run')
    os.environ['MALLOC_ARENA_MAX'] = '1'  # a heap for each thread would take address space
    survey.run(1)
    plan, beside = survey.planned()
    small = plan + beside - 4 * survey.coefficients
    cats = {cold: statistics.median(cat_seconds(survey, cold) for _ in range(2 * ROUNDS + 1)) for cold in (True, False)}
    programs = {'voxlith': ([settings.voxlith], small),
                'voxlith-run --threads 2': ([runner, '--threads', '2'], small + 2 * THREAD_SPACE)}
    for program, (command, space) in programs.items():
        in_memory = statistics.median(iteration_seconds(survey, command) for _ in range(ROUNDS))
        for cold in (False, True):
            whole = statistics.median(iteration_seconds(survey, command, space, cold) for _ in range(ROUNDS))
            # An iteration has one product of each kind.
            product = (whole - in_memory * outside / (inside + outside)) / 2
            yield Line('product in disk mode, %.2f GB, %s' % (survey.bytes / 1e9, program),
                       'cat FILE, ' + ('cold' if cold else 'from the cache'), product / cats[cold],
                       COLD_GOAL if cold else WARM_GOAL, note='' if cold else 'wall times; cat %.0f ms from the cache, %.0f ms cold' %
                       (1e3 * cats[False], 1e3 * cats[True]))
