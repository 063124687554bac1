"""voxlith-run with several threads: products and whole iterations by the time of day, beside what the memory allows.

The machine must do nothing else meanwhile. Needs numpy.
"""
import os
import statistics
import subprocess
import time

import kernel_benchmarks
import large_survey
from benchmarks import Line
from whole_run_benchmarks import ITERATION_LINE, LARGE_MESH, Run

COEFFICIENTS = 100_000_000
ITERATIONS = 9  # one more would be a conjugate-gradient step
UNCOUNTED = 2   # the first ones touch the optimiser's memory for the first time
ROUNDS = 3
SHARE_GOAL = 0.65  # of the time of one thread, where memory allows it
MEMORY_GOAL = 1.1
SURPLUS_GOAL = 1.1


def iteration_seconds(run, threads):
    """Seconds of each counted iteration of a run."""
    large_survey.write_run(run.folder, ITERATIONS)
    ends = {}
    command = [os.path.join(run.settings.build, 'voxlith-run'), '--threads', str(threads), 'voxlith.inp']
    with subprocess.Popen(command, cwd=run.folder, stdout=subprocess.PIPE, bufsize=0) as child:
        for line in child.stdout:
            found = ITERATION_LINE.match(line)
            if found:
                ends[int(found[1])] = time.monotonic()
    if child.returncode or ITERATIONS not in ends:
        raise RuntimeError('voxlith-run failed in ' + run.folder)
    return [ends[n] - ends[n - 1] for n in range(UNCOUNTED + 1, ITERATIONS + 1)]


def thread_counts(cores):
    return sorted({1, cores, cores + 1, 2 * cores, 4 * cores})


def iteration_lines(settings, memory_ratio):
    """`memory_ratio` is time of a pass over memory on all cores over that on one."""
    run = Run(settings, LARGE_MESH, COEFFICIENTS)
    run.cat()
    cores = len(os.sched_getaffinity(0))
    counts = thread_counts(cores)
    seconds = {threads: [] for threads in counts}
    for _ in range(ROUNDS):
        for threads in counts:
            seconds[threads].append(statistics.median(iteration_seconds(run, threads)))
    work = 'iteration, %d cells, %.0f M coefficients, %%d threads' % (run.cells, run.coefficients / 1e6)
    for threads in counts[1:]:
        reference = 1 if threads == cores else cores
        ratios = [a / b for a, b in zip(seconds[threads], seconds[reference])]
        goal = max(SHARE_GOAL, MEMORY_GOAL * memory_ratio) if threads == cores else SURPLUS_GOAL
        middle = {count: statistics.median(seconds[count]) for count in (threads, reference)}
        yield Line(work % threads, '%d thread%s' % (reference, 's' * (reference > 1)), middle[threads] / middle[reference],
                   goal, min(ratios), max(ratios), '%.3f s beside %.3f s' % (middle[threads], middle[reference]))


def run(settings, name):
    memory_ratio = None
    for line in kernel_benchmarks.run(settings, name):
        if line.work.startswith('memory pass'):
            memory_ratio = line.ratio
        yield line
    yield from iteration_lines(settings, memory_ratio)
