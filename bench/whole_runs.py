#!/usr/bin/env python3
"""Whole runs of voxlith beside what bounds them: start-up, disk mode, memory, an iteration without its products, growth.

    whole_runs.py [--build DIR] [--folder DIR] [--only GROUP...] [--coefficients N]

Groups: start-up, disk, memory, iteration, growth. Reports ratios of CPU times (growth: of iterations and of reading passes); the
surveys are made once and kept in the folder. Needs Linux and numpy, for the groups disk and iteration also perf.
"""
import argparse
import mmap
import os
import re
import resource
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np

sys.dont_write_bytecode = True
import large_survey  # noqa: E402

ROUNDS = 3
# What belongs to the products, in a profile by routine.
PRODUCTS = re.compile(r'multiply(Avx|Plain|InMemory)|add(Avx|Plain)|InUse|rowsTimes|RowsToCompact|RowTransposed|rowTimes|transform|'
                      r'padCells|cropCells|modelProduct|transposeProduct|[fF]romMemory')
CLEARING = re.compile(r'clear_(huge_)?page|clear_subpage|clear_user|folio_zero')


class Run:
    """A folder with a survey and what is known of it."""

    def __init__(self, voxlith, tools, folder, mesh, coefficients, side=16, tolerance=0.01):
        self.voxlith = voxlith
        self.folder = os.path.join(folder, 'run-%d-%d-%d-%d' % (*mesh, coefficients))
        known = os.path.join(self.folder, 'counts')
        if not os.path.exists(known):
            os.makedirs(self.folder, exist_ok=True)
            base = large_survey.base_file(tools, folder, *mesh, side=side, tolerance=tolerance)
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
        child = subprocess.Popen([self.voxlith, 'voxlith.inp'], cwd=self.folder, stdout=subprocess.DEVNULL, preexec_fn=limit)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode:
            raise SystemExit('voxlith failed in ' + self.folder)
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
            raise SystemExit('cat failed in ' + self.folder)
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


def show(work, peer, ratio, goal, note=''):
    verdict = '' if goal is None else '%5.2f %s' % (goal, 'met' if ratio <= goal else 'missed')
    print('%-44s %-36s %7.3f   %s' % (work, peer, ratio, verdict))
    if note:
        print('    ' + note)
    sys.stdout.flush()


def cpu_of(pid):
    with open('/proc/%d/schedstat' % pid) as f:
        return int(f.read().split()[0]) * 1e-9


def characters_read(pid):
    with open('/proc/%d/io' % pid) as f:
        return int(re.search(r'rchar: (\d+)', f.read()).group(1))


def start_once(run):
    """CPU seconds and bytes read when the rows are in memory, and CPU seconds when the iterations begin."""
    large_survey.write_run(run.folder, 1)
    child = subprocess.Popen([run.voxlith, 'voxlith.inp'], cwd=run.folder, stdout=subprocess.PIPE, bufsize=0)
    screen, loaded = b'', None
    while b'Begin iterations' not in screen:
        part = os.read(child.stdout.fileno(), 65536)
        if not part:
            raise SystemExit('voxlith ended before its iterations in ' + run.folder)
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


def start_up(make, options):
    run = make((128, 128, 64), max(options.coefficients, 130_000_000))
    small = make((128, 128, 64), 1_500_000)  # the same arrays nearly without rows
    run.cat()
    cats, reads, starts, empties = [], [], [], []
    for _ in range(2 * ROUNDS + 1):
        cats.append(run.cat())
        starts.append(start_once(run))
        empties.append(start_once(small))
        reads.append(read_into_memory(run.path('rows.mtx')))
    median = lambda values: statistics.median(values)
    cat = median(cats)
    load = median(s[0] for s in starts) - median(e[0] for e in empties)
    arrange = median(s[2] - s[0] for s in starts) - median(e[2] - e[0] for e in empties)
    work = 'start-up, %.2f GB' % (run.bytes / 1e9)
    show(work, 'cat FILE >/dev/null from the cache', load / cat, 1.3,
         'bytes read over bytes of the file: %.4f; scaling and arranging the rows: %.1f times the peer' %
         (starts[0][1] / run.bytes, arrange / cat))
    show(work, 'read(2) into one fresh array', load / median(reads), None,
         'that read over cat: %.2f; its lowest and highest over the median: %.2f, %.2f' %
         (median(reads) / cat, min(reads) / median(reads), max(reads) / median(reads)))
    # Where the host of a virtual machine has taken free memory back, touching it again costs several times the work.
    lowest = min(s[0] for s in starts) - min(e[0] for e in empties)
    show(work + ', lowest rounds', 'cat FILE >/dev/null from the cache', lowest / min(cats), None)


def per_iteration(run, first, last, rounds=ROUNDS, **settings):
    """Median CPU seconds of one iteration, from runs of two lengths by turns."""
    differences = [run.run(last, **settings)[0] - run.run(first, **settings)[0] for _ in range(rounds)]
    return statistics.median(differences) / (last - first)


def disk(make, options):
    """An iteration has one product of each kind; what it does beside them is the same from memory and from disk."""
    run = make((128, 128, 64), options.coefficients)
    inside, outside = sum(profile(run) for _ in range(ROUNDS))
    memory = per_iteration(run, 1, 11)
    plan, beside = run.planned()
    from_disk = per_iteration(run, 1, 6, address_space=plan + beside - 4 * run.coefficients)
    if 'MTX file accessed from disk' not in run.log():
        raise SystemExit('the run did not go to disk')
    run.cat()
    cat = statistics.median(run.cat() for _ in range(2 * ROUNDS + 1))
    product = (from_disk - memory * outside / (inside + outside)) / 2
    show('product in disk mode, %.2f GB' % (run.bytes / 1e9), 'cat FILE >/dev/null from the cache', product / cat, 1.1,
         'from memory: %.2f' % (memory * inside / (inside + outside) / 2 / cat))


def memory(make, options):
    for mesh, coefficients in (((64, 64, 16), 3_200_000), ((128, 128, 64), options.coefficients)):
        run = make(mesh, coefficients)
        peak = max(run.run(13)[1] for _ in range(ROUNDS))
        plan, beside = run.planned()
        show('peak memory, %d cells, %.1f M coefficients' % (run.cells, run.coefficients / 1e6),
             'plan, observed and mesh groups', peak / (plan + beside), 1.05, 'peak %.1f MiB' % (peak / 2 ** 20))


def profile(run, last=11):
    """Samples inside and outside the products, of iterations 2 to `last` of one run.

    The iterations are cut out of the run by the times of their lines on the screen. The difference of two runs of
    different lengths would not do: on a virtual machine whose host has taken memory back, the start takes anything from
    one second to several, as pages are cleared for the first time. Such clearing goes on in the first iterations, where
    the optimiser's corrections are touched for the first time; it is no work of an iteration and left out.
    """
    large_survey.write_run(run.folder, last)
    name, ends = run.path('perf.data'), {}
    record = ['perf', 'record', '-q', '-k', 'CLOCK_MONOTONIC', '-e', 'cpu-clock', '-F', '2000', '-o', name]
    with subprocess.Popen([*record, run.voxlith, 'voxlith.inp'], cwd=run.folder, stdout=subprocess.PIPE) as child:
        for line in child.stdout:
            row = re.match(rb' *(\d+) +[\d.]+ +[\d.]+ +[\d.]+ ', line)
            if row:
                ends[int(row[1])] = time.clock_gettime(time.CLOCK_MONOTONIC)
    if child.returncode or last not in ends:
        raise SystemExit('voxlith or perf failed in ' + run.folder)
    report = subprocess.run(['perf', 'report', '-i', name, '--stdio', '--no-children', '-F', 'sample,symbol', '-t', ';',
                             '--time', '%.9f,%.9f' % (ends[1], ends[last])],
                            capture_output=True, text=True, check=True).stdout
    inside = outside = 0
    for line in report.splitlines():
        count, found, symbol = line.partition(';')
        if found and count.strip().isdigit() and not CLEARING.search(symbol):
            if PRODUCTS.search(symbol):
                inside += int(count)
            else:
                outside += int(count)
    return np.array([inside, outside])


def iteration(make, options):
    run = make((128, 128, 64), options.coefficients)
    run.run(1)  # brings the sensitivity file into the cache
    shares = sorted(outside / (inside + outside) for inside, outside in (profile(run) for _ in range(ROUNDS)))
    show('iteration without its products, %.0f M coefficients' % (run.coefficients / 1e6), 'the whole iteration',
         statistics.median(shares), 0.1,
         '%d cells, two models written; lowest %.3f, highest %.3f' % (run.cells, shares[0], shares[-1]))


def growth(make, options):
    rows = []
    for mesh, coefficients in (((32, 32, 16), 500_000), ((64, 64, 16), 2_000_000), ((128, 128, 16), 8_000_000),
                               ((256, 256, 16), 32_000_000)):
        run = make(mesh, coefficients)
        values = np.ones(run.coefficients, np.int64)
        repeats = max(1, 20_000_000 // run.coefficients)
        passes = []
        for _ in range(9):
            start = time.process_time()
            for _ in range(repeats):
                values.sum()
            passes.append((time.process_time() - start) / repeats)
        # The first ten iterations of every size: later ones hold conjugate-gradient steps, which cost more.
        rounds = ROUNDS * max(1, 8_000_000 // run.coefficients)
        rows.append((run.cells, run.coefficients, per_iteration(run, 1, 11, rounds), statistics.median(passes)))
    print('\n%10s %14s %22s %22s %24s' % ('cells', 'coefficients', 'iteration over a pass', 'over 1/4 the next size',
                                          'per cell and coefficient'))
    units = [seconds / (cells + coefficients) for cells, coefficients, seconds, _ in rows]
    for n, (cells, coefficients, seconds, one_pass) in enumerate(rows):
        step = '%.2f' % (seconds / (rows[n + 1][2] / 4)) if n + 1 < len(rows) else ''
        print('%10d %14d %22.1f %22s %24.2f' % (cells, coefficients, seconds / one_pass, step, units[n] / units[-1]))


GROUPS = {'start-up': start_up, 'disk': disk, 'memory': memory, 'iteration': iteration, 'growth': growth}


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', default=os.path.join(here, '..', 'build', 'bench'), help='where the programs were built')
    parser.add_argument('--folder', default=os.path.join(tempfile.gettempdir(), 'voxlith-bench'))
    parser.add_argument('--only', nargs='+', choices=GROUPS, default=list(GROUPS))
    parser.add_argument('--coefficients', type=int, default=23_000_000, help='of the large runs, at least')
    options = parser.parse_args()
    os.makedirs(options.folder, exist_ok=True)
    build = os.path.abspath(options.build)
    voxlith, tools = os.path.join(build, 'voxlith'), os.path.join(build, 'tools', 'voxlith-tools')
    print('%-44s %-36s %7s   %5s' % ('work', 'peer', 'ratio', 'goal'))
    for name in options.only:
        if name in ('disk', 'iteration') and not shutil.which('perf'):
            print('%s: left out, there is no perf' % name)
            continue
        GROUPS[name](lambda mesh, coefficients: Run(voxlith, tools, options.folder, mesh, coefficients), options)
    return 0


if __name__ == '__main__':
    sys.exit(main())
