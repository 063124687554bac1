"""The rows of a gigabyte brought into memory beside `cat` of the file, from sensitivity files and from arranged rows. Needs Linux.

Runs over the same mesh nearly without rows say what a start takes beside the rows.
"""
import mmap
import os
import re
import signal
import statistics
import subprocess
import time

import large_survey
from benchmarks import Line
from whole_run_benchmarks import LARGE_MESH, Run

ROUNDS = 7
COEFFICIENTS = 130_000_000
CAT = 'cat FILE >/dev/null from the cache'
ARRANGED = 'voxlith.arranged'


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
    """CPU seconds of all threads of a process."""
    threads = '/proc/%d/task' % pid
    return sum(int(open(os.path.join(threads, thread, 'schedstat')).read().split()[0]) for thread in os.listdir(threads)) * 1e-9


def characters_read(pid):
    with open('/proc/%d/io' % pid) as f:
        return int(re.search(r'rchar: (\d+)', f.read()).group(1))


def start_once(run, command):
    """CPU seconds and bytes read when memory is planned and rows are read, and CPU seconds when the iterations begin."""
    large_survey.write_run(run.folder, 1)
    child = subprocess.Popen([*command, 'voxlith.inp'], cwd=run.folder, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, bufsize=0)
    screen, loaded = b'', None
    while b'Begin iterations' not in screen:
        part = os.read(child.stdout.fileno(), 65536)
        if not part:
            raise RuntimeError(command[0] + ' ended before its iterations in ' + run.folder)
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


def from_sensitivity_files(settings, run, small):
    command = [settings.voxlith]
    run.cat()
    cats, reads, starts, empties = [], [], [], []
    for _ in range(ROUNDS):
        cats.append(run.cat())
        starts.append(start_once(run, command))
        empties.append(start_once(small, command))
        reads.append(read_into_memory(run.path('rows.mtx')))
    median = statistics.median
    cat = median(cats)
    load = median(s[0] for s in starts) - median(e[0] for e in empties)
    blocking = median(s[2] - s[0] for s in starts) - median(e[2] - e[0] for e in empties)
    work = 'start-up, %.2f GB' % (run.bytes / 1e9)
    yield Line(work, CAT, load / cat, 1.3,
               note='bytes read over bytes of the file: %.4f; scaling and blocking the rows: %.1f times cat' %
               (starts[0][1] / run.bytes, blocking / cat))
    yield Line(work + ', rows arranged', CAT, (load + blocking) / cat, 4)
    yield Line(work, 'read(2) into one fresh array', load / median(reads),
               note='that read over cat: %.2f; its lowest and highest over the median: %.2f, %.2f' %
               (median(reads) / cat, min(reads) / median(reads), max(reads) / median(reads)))
    # Where the host of a virtual machine has taken free memory back, touching it again costs several times the work.
    lowest = min(s[0] for s in starts) - min(e[0] for e in empties)
    yield Line(work + ', lowest rounds', CAT, lowest / min(cats))


def from_arranged_rows(settings, run, small):
    """Until the iterations begin, so that all that the rows take is counted."""
    command = [os.path.join(settings.build, 'voxlith-run'), '--threads', '1', '--keep-arranged']
    for survey in (run, small):
        start_once(survey, command)  # writes the file
    cats, reads, starts, empties = [], [], [], []
    for _ in range(ROUNDS):
        cats.append(run.cat(ARRANGED))
        starts.append(start_once(run, command)[2])
        empties.append(start_once(small, command)[2])
        reads.append(read_into_memory(run.path(ARRANGED)))
    bytes_kept = os.path.getsize(run.path(ARRANGED))
    for survey in (run, small):
        os.remove(survey.path(ARRANGED))
    median = statistics.median
    rows = median(starts) - median(empties)
    yield Line('start from arranged rows, %.2f GB' % (bytes_kept / 1e9), CAT, rows / median(cats), 1.2,
               note='read(2) of that file into one fresh array: %.2f times cat' % (median(reads) / median(cats)))


def run(settings, name):
    survey = Run(settings, LARGE_MESH, max(settings.coefficients, COEFFICIENTS))
    small = Run(settings, LARGE_MESH, 1_500_000)  # the same arrays nearly without rows
    yield from from_sensitivity_files(settings, survey, small)
    yield from from_arranged_rows(settings, survey, small)
