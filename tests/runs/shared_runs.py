#!/usr/bin/env python3
"""Whole runs of voxlith-run with several threads, whose files must be those of voxlith byte for byte (dates and times aside).

    shared_runs.py --build DIR [--run-build DIR] [--threads 1 2 3 7] [--ranks 1 2 3 5] [--mpirun FILE]
                   [--only NAME ...] [--work DIR]

With --ranks the program is voxlith-run-mpi, with each number of threads in as many processes. Converged runs are compared with one
thread of one process. The runs are those of stored_runs.py and larger ones, in which every loop has enough pieces for all threads. Without --only it is
the whole check; the tests take a sample of it.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
import stored_runs  # noqa: E402
from gallery import Body, Mesh, Workbench, grid  # noqa: E402
from stored_runs import control, difference, files_of, write_gravity_survey  # noqa: E402

MESH = Mesh(32 * [50], 30 * [50], 8 * [40])
BODIES = [Body('block', (500, 900), (400, 800), (80, 200), 0.5), Body('small', (1100, 1250), (900, 1100), (40, 120), -0.3)]
STATIONS = grid(25, 1575, 40, 25, 1475, 33, 5.0)


def write_survey(bench, mtx=()):
    write_gravity_survey(bench, mtx, MESH, BODIES, STATIONS)


def large_free(bench):
    write_survey(bench)
    bench.write('voxlith.inp', control(l12='16 4'))
    bench.voxlith('voxlith.inp')


def large_bounded(bench):
    """Bounds that many cells meet: steps are cut, cells change between free and fixed."""
    write_survey(bench)
    bench.write('voxlith.inp', control(l3='0.0001 0.02 1', l6='0.01', l8='0.0,0.2', l12='26'))
    bench.voxlith('voxlith.inp')


def large_barrier(bench):
    write_survey(bench, ['--depth-weight', 'none'])
    bench.write('voxlith.inp', control(l3='0.01 0.02 2', l12='14'))
    bench.voxlith('voxlith.inp')


def large_other_method(bench):
    write_survey(bench)
    bench.write('voxlith.inp', control(l12='8 0 1'))
    bench.voxlith('voxlith.inp')


def converged(bench):
    write_survey(bench)
    bench.write('voxlith.inp', control(l8='0.0,0.2'))
    bench.options = [*bench.options, '--until-converged', '1e-4']
    bench.voxlith('voxlith.inp')


def target_misfit(bench):
    write_survey(bench)
    bench.write('voxlith.inp', control())
    bench.options = [*bench.options, '--target-rms', '1']
    bench.voxlith('voxlith.inp')


def large_sparse(bench):
    """Rows of few coefficients, some of which take more memory in blocks: several processes lay out their rows in turn."""
    write_survey(bench, ['--tolerance', '0.6'])
    bench.write('voxlith.inp', control(l12='14'))
    bench.voxlith('voxlith.inp')


LARGE = [large_free, large_bounded, large_barrier, large_other_method, large_sparse]
CONVERGED = [converged, target_misfit]


def launcher_of(ranks, mpirun='mpirun'):
    """The command in front of the program; processes of one machine may be more than its cores, which Open MPI must be told."""
    command = [mpirun, '-n', str(ranks)]
    version = subprocess.run([mpirun, '--version'], capture_output=True, text=True, check=True).stdout
    if 'Open MPI' not in version and 'OpenRTE' not in version:  # mpirun and mpiexec of Open MPI
        return command
    command += ['--oversubscribe', '--bind-to', 'none']
    return command + ['--allow-run-as-root'] if os.geteuid() == 0 else command


def run_case(case, build, work, label, program='voxlith', options=(), launcher=()):
    bench = Workbench(build, os.path.join(work, case.__name__, label))
    bench.program, bench.options, bench.launcher = program, options, launcher
    case(bench)
    return files_of(bench, {'voxlith.inp'})


def problems_of(want, got, label):
    want = {name: text for name, text in want.items() if name != 'screen.txt'}
    found = ['%s, %s: %s' % (label, name, 'missing' if name in want else 'not expected') for name in sorted(set(want) ^ set(got))]
    return found + ['%s, %s: %s' % (label, name, difference(want[name], got[name]))
                    for name in sorted(set(want) & set(got)) if want[name] != got[name]]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True)
    parser.add_argument('--run-build', help='where voxlith-run is, if not in --build')
    parser.add_argument('--threads', nargs='+', type=int, default=[1, 2, 3, 7])
    parser.add_argument('--ranks', nargs='+', type=int)
    parser.add_argument('--mpirun', default='mpirun', help='that of the MPI of voxlith-run-mpi')
    parser.add_argument('--only', nargs='+', help='names of runs')
    parser.add_argument('--work')
    asked = parser.parse_args()
    build = os.path.abspath(asked.run_build or asked.build)
    if asked.ranks and not (shutil.which(asked.mpirun) and os.path.exists(os.path.join(build, 'voxlith-run-mpi'))):
        print('skipped: there is no MPI here')
        return 77
    cases = {case.__name__: case for case in stored_runs.CASES + LARGE + CONVERGED}
    program = os.path.join(build, 'voxlith-run-mpi' if asked.ranks else 'voxlith-run')
    work = asked.work or tempfile.mkdtemp(prefix='voxlith-shared-')
    failed = 0
    for name in asked.only or cases:
        reference = os.path.join(build, 'voxlith-run') if cases[name] in CONVERGED else 'voxlith'
        want = run_case(cases[name], asked.build, work, 'reference', reference, () if reference == 'voxlith' else ('--threads', '1'))
        problems = []
        for ranks in asked.ranks or [0]:
            for threads in asked.threads:
                label = '%d threads' % threads if ranks == 0 else '%d processes of %d threads' % (ranks, threads)
                got = run_case(cases[name], asked.build, work, label.replace(' ', '-'), program,
                               ['--threads', str(threads), '--smallest-piece', '1'], launcher_of(ranks, asked.mpirun) if ranks else ())
                problems += problems_of(want, got, label)
        print('%s: %s' % (name, 'ok' if not problems else 'FAILED'))
        for problem in problems:
            print('  ' + problem)
        failed += bool(problems)
    if not asked.work:
        shutil.rmtree(work, ignore_errors=True)
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
