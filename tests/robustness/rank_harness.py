#!/usr/bin/env python3
"""Kills one process of voxlith-run-mpi at a random time, and continues the run with another number of processes.

The others must end by themselves, with a status and a line that tell of the kill. No file may be half written under its final name, and
the results of the continued run must be those of a run that nobody stopped, byte for byte; times are left out.

    rank_harness.py --build build/release --count 50 --seed 1
"""
import argparse
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from typing import NamedTuple

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'runs'))
sys.dont_write_bytecode = True
from shared_runs import MESH, Workbench, control, launcher_of, write_survey  # noqa: E402
from stored_runs import difference, masked  # noqa: E402

INPUTS = ['d.obs', 'g.mtx', 'voxlith.inp']
CHECKPOINT = 'voxlith.checkpoint'
RANKS = 4
PATIENCE = 60  # seconds until the other processes must have ended


class Programs(NamedTuple):
    build: str
    mpirun: str


def command(programs, ranks, options):
    return [*launcher_of(ranks, programs.mpirun), os.path.join(programs.build, 'voxlith-run-mpi'), '--threads', '1', *options,
            'voxlith.inp']


def new_folder(folder, inputs):
    os.makedirs(folder)
    for name in INPUTS:
        os.link(os.path.join(inputs, name), os.path.join(folder, name))


def text_of(folder, name):
    with open(os.path.join(folder, name)) as file:
        return file.read()


def results(folder):
    """Result files of a run without the times in them."""
    return {name: masked(text_of(folder, name)) for name in os.listdir(folder)
            if name not in INPUTS + ['voxlith.log', 'screen.txt', 'mesh.msh', 's.obs', 'true.den']}


def processes_of(launcher):
    """The processes of the run, below the launcher; some MPIs have a process of their own between the two."""
    parents, found = {}, []
    for entry in map(int, filter(str.isdigit, os.listdir('/proc'))):
        try:
            with open('/proc/%d/stat' % entry) as file:
                name, fields = file.read().rsplit(')', 1)
        except OSError:  # it has ended
            continue
        parents[entry] = int(fields.split()[1])
        if name.split('(', 1)[1].startswith('voxlith-run'):
            found.append(entry)
    return sorted(entry for entry in found if launcher in (parents[entry], parents.get(parents[entry])))


def kill_one(programs, folder, options, seconds, chance):
    """Starts or continues the run and kills a process. Returns (was it killed, faults)."""
    going_on = ['--continue'] if os.path.exists(os.path.join(folder, CHECKPOINT)) else []
    # MPICH reports a killed process on standard output, Open MPI on standard error.
    run = subprocess.Popen(command(programs, RANKS, options + going_on), cwd=folder, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True)
    while run.poll() is None and len(processes_of(run.pid)) < RANKS:
        time.sleep(0.01)
    time.sleep(chance.uniform(0.0, seconds))
    victims = processes_of(run.pid)
    if victims:
        os.kill(chance.choice(victims), signal.SIGKILL)
    try:
        screen = run.communicate(timeout=PATIENCE)[0]
    except subprocess.TimeoutExpired:
        run.kill()
        return True, ['the other processes did not end']
    if run.returncode == 0:
        return False, []
    return True, [] if 'signal 9' in screen else ['status %d, no line about the kill: %s' % (run.returncode, screen)]


def faults_of_files(folder):
    """Files that are not whole."""
    cells = MESH.nx * MESH.ny * MESH.nz
    faults = []
    for name, count in (('voxlith.rho', cells), ('voxlith.den', cells), ('voxlith_grad.mod', cells)):
        path = os.path.join(folder, name)
        if os.path.exists(path) and len(text_of(folder, name).split()) != count:
            faults.append('%s is not whole' % name)
    return faults


def trial(programs, inputs, folder, options, wanted, seconds, chance):
    """Returns (was the run killed, faults)."""
    new_folder(folder, inputs)
    killed, faults = kill_one(programs, folder, options, seconds, chance)
    if faults:
        return killed, faults
    faults = faults_of_files(folder)
    if killed:
        going_on = ['--continue'] if os.path.exists(os.path.join(folder, CHECKPOINT)) else []
        ranks = chance.choice([1, 2, 3, 5])
        done = subprocess.run(command(programs, ranks, options + going_on), cwd=folder, stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True)
        if done.returncode != 0:
            return killed, faults + ['%d processes ended with %d: %s' % (ranks, done.returncode, done.stderr)]
    found = results(folder)
    faults += ['%s is %s' % (name, 'missing' if name in wanted else 'left over') for name in sorted(set(found) ^ set(wanted))]
    return killed, faults + ['%s: %s' % (name, difference(wanted[name], found[name])) for name in sorted(set(found) & set(wanted))
                             if found[name] != wanted[name]]


def undisturbed(programs, inputs, folder, options):
    """Results of voxlith-run, and the seconds that the processes take."""
    new_folder(folder, inputs)
    subprocess.run([os.path.join(programs.build, 'voxlith-run'), '--threads', '1', *options, 'voxlith.inp'], cwd=folder,
                   stdout=subprocess.DEVNULL, check=True)
    wanted = results(folder)
    start = time.monotonic()
    subprocess.run(command(programs, RANKS, options), cwd=folder, stdout=subprocess.DEVNULL, check=True)
    return wanted, time.monotonic() - start


def faults_of_another_folder(programs, inputs, work):
    """A process that would read its rows in another folder must end the run before anything is written."""
    here, there = os.path.join(work, 'here'), os.path.join(work, 'there')
    new_folder(here, inputs)
    new_folder(there, inputs)
    run_here = command(programs, 1, [])
    program = [os.path.join(programs.build, 'voxlith-run-mpi'), 'voxlith.inp']
    done = subprocess.run([*run_here, ':', '-n', '1', '-wdir', there, *program], cwd=here, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=PATIENCE)
    left = [name for name in os.listdir(here) + os.listdir(there) if name not in [*INPUTS, 'voxlith.log']]
    wanted = done.returncode != 0 and 'works in another folder' in done.stdout and not left
    return [] if wanted else ['another folder: status %d, files %s: %s' % (done.returncode, left, done.stdout)]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True)
    parser.add_argument('--mpirun', default='mpirun', help='that of the MPI of voxlith-run-mpi')
    parser.add_argument('--count', type=int, default=50, help='kills')
    parser.add_argument('--seed', type=int, default=int(time.time()))
    parser.add_argument('--iterations', type=int, default=40)
    parser.add_argument('--options', default='', help='of voxlith-run, such as "--target-rms 1"')
    asked = parser.parse_args()
    build = os.path.abspath(asked.build)
    programs = Programs(build, asked.mpirun)
    if not (shutil.which(asked.mpirun) and os.path.exists(os.path.join(build, 'voxlith-run-mpi'))):
        print('skipped: there is no MPI here')
        return 77
    chance = random.Random(asked.seed)
    print('seed %d' % asked.seed)
    work = tempfile.mkdtemp(prefix='voxlith-ranks-')
    inputs = os.path.join(work, 'inputs')
    bench = Workbench(build, inputs)
    write_survey(bench)
    bench.write('voxlith.inp', control(l12=str(asked.iterations)))
    options = asked.options.split()
    wanted, seconds = undisturbed(programs, inputs, os.path.join(work, 'reference'), options)
    kills, trials = 0, 0
    faults = faults_of_another_folder(programs, inputs, work)
    print('\n'.join(faults), end='')
    failed = len(faults)
    while kills < asked.count:
        folder = os.path.join(work, 'trial-%d' % trials)
        killed, faults = trial(programs, inputs, folder, options, wanted, seconds, chance)
        trials += 1
        kills += killed
        shutil.rmtree(folder)
        for fault in faults:
            print('trial %d: %s' % (trials, fault))
        failed += bool(faults)
    shutil.rmtree(work)
    print('%d kills in %d runs, %d failed' % (kills, trials, failed))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
