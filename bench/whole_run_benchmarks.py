"""Whole runs of voxlith beside what bounds them: memory, an iteration without its products, growth.

The surveys are made once and kept in the folder of the benchmarks. Lengths of runs are subtracted from each other, so that an
iteration is counted without the start. Needs Linux and numpy, for `iteration` also perf.
"""
import glob
import os
import re
import resource
import shutil
import signal
import statistics
import subprocess
import time

import numpy as np

import large_survey
from benchmarks import Line

ROUNDS = 3
LARGE_MESH = (128, 128, 64)
MANY_COEFFICIENTS = 200_000_000
SAMPLES_A_SECOND = 2000  # of perf
LAST_ITERATIONS = 11  # of a run that are not profiled
# Two whole cycles have a conjugate-gradient step each, nearly all of which is products.
ITERATIONS = {'optimiser steps': (2, 11), 'two cycles': (12, 31)}
GROWTH_GOAL = 1.5  # 1 is growth in proportion; larger sizes leave the caches
ITERATION_LINE = re.compile(rb' *(\d+) +[\d.]+ +[\d.]+ +[\d.]+ ')
CLEARING = re.compile(r'clear_(huge_)?page|clear_subpage|clear_user|folio_zero')


def start_limited(command, folder, address_space=None, stdout=subprocess.PIPE):
    """A process that has no more address space than this many bytes."""
    def limit():
        if address_space:
            resource.setrlimit(resource.RLIMIT_AS, (address_space, address_space))
    # With a routine to run first the child is a copy of this process. Without one it would borrow this process's
    # memory until it starts the program, and the largest size that this process ever had would count as its own.
    return subprocess.Popen(command, cwd=folder, stdout=stdout, bufsize=0, preexec_fn=limit)


class Run:
    """A folder with a survey of at least so many coefficients over a mesh, and what is known of it."""

    def __init__(self, settings, mesh, coefficients):
        self.settings = settings
        self.folder = os.path.join(settings.folder, 'run-%d-%d-%d-%d' % (*mesh, coefficients))
        known = os.path.join(self.folder, 'counts')
        if not os.path.exists(known):
            os.makedirs(self.folder, exist_ok=True)
            base = large_survey.base_file(settings.tools, settings.folder, *mesh)
            counts = base.write_repeated(self.path('rows.mtx'), coefficients)
            base.write_data(self.path('data.obs'))
            with open(known, 'w') as f:
                f.write('%d %d %d\n' % counts)
        with open(known) as f:
            self.data, self.coefficients, self.bytes = map(int, f.read().split())
        self.mesh = mesh
        self.cells = mesh[0] * mesh[1] * mesh[2]

    def path(self, name):
        return os.path.join(self.folder, name)

    def run(self, iterations, address_space=None):
        """CPU seconds and largest resident bytes of a whole run."""
        large_survey.write_run(self.folder, iterations)
        child = start_limited([self.settings.voxlith, 'voxlith.inp'], self.folder, address_space, subprocess.DEVNULL)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode:
            raise RuntimeError('voxlith failed in ' + self.folder)
        return usage.ru_utime + usage.ru_stime, 1024 * usage.ru_maxrss

    def log(self):
        with open(self.path('voxlith.log')) as f:
            return f.read()

    def planned(self):
        """Bytes of the log's plan, and of the observed and mesh groups beside it."""
        plan = int(re.search(r'Memory allocated: *(\d+)MB', self.log()).group(1)) << 20
        return plan, 64 * self.data + 24 * (sum(self.mesh) + 2) + 4 * self.cells

    def cat(self, name='rows.mtx'):
        """CPU seconds of reading a file of the folder in order, from the cache: the sensitivity file or another one."""
        child = subprocess.Popen(['cat', name], cwd=self.folder, stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode:
            raise RuntimeError('cat failed in ' + self.folder)
        return usage.ru_utime + usage.ru_stime


def per_iteration(run, first, last, rounds=ROUNDS, **limits):
    """Median CPU seconds of one iteration, from runs of two lengths by turns."""
    differences = [run.run(last, **limits)[0] - run.run(first, **limits)[0] for _ in range(rounds)]
    return statistics.median(differences) / (last - first)


def memory(settings):
    for mesh, coefficients in (((64, 64, 16), 3_200_000), (LARGE_MESH, settings.coefficients)):
        run = Run(settings, mesh, coefficients)
        peak = max(run.run(13)[1] for _ in range(ROUNDS))
        plan, beside = run.planned()
        yield Line('peak memory, %d cells, %.1f M coefficients' % (run.cells, run.coefficients / 1e6),
                   'plan, observed and mesh groups', peak / (plan + beside), 1.05, note='peak %.1f MiB' % (peak / 2 ** 20))


def routine_name(symbol):
    """A demangled name without anonymous namespaces, template arguments, parameters and return type."""
    words = re.split('[<(]', symbol.replace('(anonymous namespace)::', ''))[0].split()
    return words[-1] if words else ''


def product_routines(build):
    """Names of all routines of the module of sensitivities, which in an iteration computes the products."""
    objects = glob.glob(os.path.join(build, 'CMakeFiles', 'module_sensitivity.dir', '**', '*.o'), recursive=True)
    symbols = subprocess.run(['nm', '-C', '--defined-only', *objects], capture_output=True, text=True, check=True).stdout
    return {routine_name(found[1]) for found in re.finditer(r'(?m)^[0-9a-f]+ [tT] (.*)', symbols)}


def profile(run, first=2, last=11):
    """Samples inside and outside the products, of iterations `first` to `last` of one run.

    The iterations are cut out of the run by the times of their lines on the screen. The difference of two runs of
    different lengths would not do: on a virtual machine whose host has taken memory back, the start takes anything from
    one second to several, as pages are cleared for the first time. Such clearing goes on in the first iterations, where
    the optimiser's corrections are touched for the first time; it is no work of an iteration and left out. The run would
    go on for more iterations: its last ones have no conjugate-gradient step, and its end writes all files.
    """
    if not shutil.which('perf'):
        raise RuntimeError('expected the program perf (Debian package linux-perf), found none')
    large_survey.write_run(run.folder, last + LAST_ITERATIONS)
    name, ends = run.path('perf.data'), {}
    record = ['perf', 'record', '-q', '-k', 'CLOCK_MONOTONIC', '-e', 'cpu-clock', '-F', str(SAMPLES_A_SECOND), '-o', name]
    with subprocess.Popen([*record, run.settings.voxlith, 'voxlith.inp'], cwd=run.folder, stdout=subprocess.PIPE) as child:
        for line in child.stdout:
            row = ITERATION_LINE.match(line)
            if row:
                ends[int(row[1])] = time.clock_gettime(time.CLOCK_MONOTONIC)
            if last in ends:
                child.send_signal(signal.SIGINT)  # perf ends the run and writes its file
                break
    if last not in ends:
        raise RuntimeError('voxlith or perf failed in ' + run.folder)
    report = subprocess.run(['perf', 'report', '-i', name, '--stdio', '--no-children', '-F', 'sample,symbol', '-t', ';',
                             '--time', '%.9f,%.9f' % (ends[first - 1], ends[last])],
                            capture_output=True, text=True, check=True).stdout
    products = product_routines(run.settings.build)
    inside = outside = 0
    for line in report.splitlines():
        count, found, symbol = line.partition(';')
        if found and count.strip().isdigit() and not CLEARING.search(symbol):
            if routine_name(symbol.partition(']')[2]) in products:
                inside += int(count)
            else:
                outside += int(count)
    return np.array([inside, outside])


def iteration(settings):
    for coefficients, goal, rounds, works in ((settings.coefficients, 0.45, ROUNDS, ITERATIONS),
                                              (MANY_COEFFICIENTS, 0.12, 1, ('optimiser steps',))):
        run = Run(settings, LARGE_MESH, coefficients)
        run.cat()  # brings the sensitivity file into the cache
        for work in works:
            first, last = ITERATIONS[work]
            samples = [profile(run, first, last) for _ in range(rounds)]
            shares = sorted(outside / (inside + outside) for inside, outside in samples)
            inside, outside = 1e3 * sum(samples) / (rounds * SAMPLES_A_SECOND * (last - first + 1))
            yield Line('%s without their products, %.0f M coefficients' % (work, run.coefficients / 1e6), 'the whole iterations',
                       statistics.median(shares), goal, shares[0], shares[-1],
                       '%d cells, iterations %d to %d; an iteration takes %.0f ms for its products and %.0f ms beside them' %
                       (run.cells, first, last, inside, outside))


def reading_pass(coefficients):
    """Median CPU seconds of a pass that adds up 8 bytes a coefficient."""
    values = np.ones(coefficients, np.int64)
    repeats = max(1, 20_000_000 // coefficients)
    passes = []
    for _ in range(9):
        start = time.process_time()
        for _ in range(repeats):
            values.sum()
        passes.append((time.process_time() - start) / repeats)
    return statistics.median(passes)


def growth(settings):
    """Each size has four times the cells and coefficients of the one before."""
    sizes = []
    for mesh, coefficients in (((32, 32, 16), 500_000), ((64, 64, 16), 2_000_000), ((128, 128, 16), 8_000_000),
                               ((256, 256, 16), 32_000_000)):
        run = Run(settings, mesh, coefficients)
        # The first ten iterations of every size: later ones hold conjugate-gradient steps, which cost more.
        seconds = per_iteration(run, 1, 11, ROUNDS * max(1, 8_000_000 // run.coefficients))
        sizes.append((run, seconds))
        work = 'iteration, %d cells, %.1f M coefficients' % (run.cells, run.coefficients / 1e6)
        yield Line(work, 'reading pass over the coefficients', seconds / reading_pass(run.coefficients))
        if len(sizes) > 1:
            yield Line(work, 'four iterations at 1/4 of the size', seconds / (4 * sizes[-2][1]), GROWTH_GOAL)
    unit = [seconds / (run.cells + run.coefficients) for run, seconds in sizes]
    yield Line('time per cell and coefficient, largest size', 'smallest size', unit[-1] / unit[0])


BENCHMARKS = {'memory': memory, 'iteration': iteration, 'growth': growth}


def run(settings, name):
    return BENCHMARKS[name](settings)
