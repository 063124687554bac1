"""Whole runs of voxlith beside what bounds them: start-up, disk mode, memory, an iteration without its products, growth.

The surveys are made once and kept in the folder of the benchmarks. Lengths of runs are subtracted from each other, so that an
iteration is counted without the start. Needs Linux and numpy, for `disk` and `iteration` also perf.
"""
import glob
import mmap
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
ITERATION_GOAL = 0.45  # at 23 M coefficients
# Two whole cycles have a conjugate-gradient step each, nearly all of which is products.
ITERATIONS = {'optimiser steps': (2, 11), 'two cycles': (12, 31)}
GROWTH_GOAL = 1.5  # 1 is growth in proportion; larger sizes leave the caches
CAT = 'cat FILE >/dev/null from the cache'
ITERATION_LINE = re.compile(rb' *(\d+) +[\d.]+ +[\d.]+ +[\d.]+ ')
CLEARING = re.compile(r'clear_(huge_)?page|clear_subpage|clear_user|folio_zero')


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

        def limit():
            if address_space:
                resource.setrlimit(resource.RLIMIT_AS, (address_space, address_space))
        # With a routine to run first the child is a copy of this process. Without one it would borrow this process's
        # memory until it starts the program, and the largest size that this process ever had would count as its own.
        child = subprocess.Popen([self.settings.voxlith, 'voxlith.inp'], cwd=self.folder, stdout=subprocess.DEVNULL, preexec_fn=limit)
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

    def cat(self):
        """CPU seconds of reading the sensitivity file in order, from the cache."""
        child = subprocess.Popen(['cat', 'rows.mtx'], cwd=self.folder, stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode:
            raise RuntimeError('cat failed in ' + self.folder)
        return usage.ru_utime + usage.ru_stime


def read_into_memory(path):
    """CPU seconds of read(2) of a whole file, from the cache, into one array that nothing has been stored in before."""
    size = os.path.getsize(path)
    start = time.process_time()
    with open(path, 'rb', buffering=0) as f, mmap.mmap(-1, size, mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS) as array:
        array.madvise(mmap.MADV_HUGEPAGE)
        with memoryview(array) as view:
            done = 0
            while done < size:
                done += f.readinto(view[done:done + (1 << 21)])
        seconds = time.process_time() - start
    return seconds


def cpu_of(pid):
    with open('/proc/%d/schedstat' % pid) as f:
        return int(f.read().split()[0]) * 1e-9


def characters_read(pid):
    with open('/proc/%d/io' % pid) as f:
        return int(re.search(r'rchar: (\d+)', f.read()).group(1))


def start_once(run):
    """CPU seconds and bytes read when the rows are in memory, and CPU seconds when the iterations begin."""
    large_survey.write_run(run.folder, 1)
    child = subprocess.Popen([run.settings.voxlith, 'voxlith.inp'], cwd=run.folder, stdout=subprocess.PIPE, bufsize=0)
    screen, loaded = b'', None
    while b'Begin iterations' not in screen:
        part = os.read(child.stdout.fileno(), 65536)
        if not part:
            raise RuntimeError('voxlith ended before its iterations in ' + run.folder)
        screen += part
        if loaded is None and b'Memory allocated' in screen:
            os.kill(child.pid, signal.SIGSTOP)
            loaded = cpu_of(child.pid), characters_read(child.pid)
            os.kill(child.pid, signal.SIGCONT)
    ready = cpu_of(child.pid)
    child.kill()
    child.wait()
    child.stdout.close()
    return (*loaded, ready)


def start_up(settings):
    run = Run(settings, LARGE_MESH, max(settings.coefficients, 130_000_000))
    small = Run(settings, LARGE_MESH, 1_500_000)  # the same arrays nearly without rows
    run.cat()
    cats, reads, starts, empties = [], [], [], []
    for _ in range(2 * ROUNDS + 1):
        cats.append(run.cat())
        starts.append(start_once(run))
        empties.append(start_once(small))
        reads.append(read_into_memory(run.path('rows.mtx')))
    median = statistics.median
    cat = median(cats)
    load = median(s[0] for s in starts) - median(e[0] for e in empties)
    blocking = median(s[2] - s[0] for s in starts) - median(e[2] - e[0] for e in empties)
    work = 'start-up, %.2f GB' % (run.bytes / 1e9)
    yield Line(work, CAT, load / cat, 1.3,
               note='bytes read over bytes of the file: %.4f; scaling and blocking the rows: %.1f times cat' %
               (starts[0][1] / run.bytes, blocking / cat))
    yield Line(work, 'read(2) into one fresh array', load / median(reads),
               note='that read over cat: %.2f; its lowest and highest over the median: %.2f, %.2f' %
               (median(reads) / cat, min(reads) / median(reads), max(reads) / median(reads)))
    # Where the host of a virtual machine has taken free memory back, touching it again costs several times the work.
    lowest = min(s[0] for s in starts) - min(e[0] for e in empties)
    yield Line(work + ', lowest rounds', CAT, lowest / min(cats))


def per_iteration(run, first, last, rounds=ROUNDS, **limits):
    """Median CPU seconds of one iteration, from runs of two lengths by turns."""
    differences = [run.run(last, **limits)[0] - run.run(first, **limits)[0] for _ in range(rounds)]
    return statistics.median(differences) / (last - first)


def disk(settings):
    """An iteration has one product of each kind; what it does beside them is the same from memory and from disk."""
    run = Run(settings, LARGE_MESH, settings.coefficients)
    inside, outside = sum(profile(run) for _ in range(ROUNDS))
    in_memory = per_iteration(run, 1, 11)
    plan, beside = run.planned()
    from_disk = per_iteration(run, 1, 6, address_space=plan + beside - 4 * run.coefficients)
    if 'MTX file accessed from disk' not in run.log():
        raise RuntimeError('the run did not go to disk')
    run.cat()
    cat = statistics.median(run.cat() for _ in range(2 * ROUNDS + 1))
    product = (from_disk - in_memory * outside / (inside + outside)) / 2
    yield Line('product in disk mode, %.2f GB' % (run.bytes / 1e9), CAT, product / cat, 1.1,
               note='from memory: %.2f' % (in_memory * inside / (inside + outside) / 2 / cat))


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
    the optimiser's corrections are touched for the first time; it is no work of an iteration and left out.
    """
    if not shutil.which('perf'):
        raise RuntimeError('expected the program perf (Debian package linux-perf), found none')
    large_survey.write_run(run.folder, last)
    name, ends = run.path('perf.data'), {}
    record = ['perf', 'record', '-q', '-k', 'CLOCK_MONOTONIC', '-e', 'cpu-clock', '-F', '2000', '-o', name]
    with subprocess.Popen([*record, run.settings.voxlith, 'voxlith.inp'], cwd=run.folder, stdout=subprocess.PIPE) as child:
        for line in child.stdout:
            row = ITERATION_LINE.match(line)
            if row:
                ends[int(row[1])] = time.clock_gettime(time.CLOCK_MONOTONIC)
    if child.returncode or last not in ends:
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
    run = Run(settings, LARGE_MESH, settings.coefficients)
    run.run(1)  # brings the sensitivity file into the cache
    millions = run.coefficients / 1e6
    for work, (first, last) in ITERATIONS.items():
        samples = [profile(run, first, last) for _ in range(ROUNDS)]
        shares = sorted(outside / (inside + outside) for inside, outside in samples)
        yield Line('%s without their products, %.0f M coefficients' % (work, millions), 'the whole iterations',
                   statistics.median(shares), ITERATION_GOAL, shares[0], shares[-1],
                   '%d cells, iterations %d to %d' % (run.cells, first, last))


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


BENCHMARKS = {'start-up': start_up, 'disk': disk, 'memory': memory, 'iteration': iteration, 'growth': growth}


def run(settings, name):
    return BENCHMARKS[name](settings)
