#!/usr/bin/env python3
"""Runs the programs with little stack and little address space.

Each run ends as it should, or with exit status 2 and one line on standard error. Limits begin where the program itself can be
loaded: below, the system ends it.

    limits.py --program build/release/voxlith --forward build/release/tools/voxlith-forward --tools build/release/tools/voxlith-tools
"""
import argparse
import os
import resource
import shutil
import subprocess
import sys
import tempfile

import surveys

STEP = 50
STACKS = list(range(64, 400, 16)) + [1024, 8192]


def run_limited(command, folder, kind, kilobytes):
    def limit():
        resource.setrlimit(kind, (kilobytes * 1024, kilobytes * 1024))
    done = subprocess.run(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                          preexec_fn=limit)
    return done.returncode, done.stderr.decode(errors='replace')


def is_clear(status, errors):
    """The estimate of mtx may stand before the line."""
    return status == 0 or (status == 2 and len([line for line in errors.splitlines() if ' before compression, ' not in line]) == 1)


def first_start(command, folder):
    """The least address space in kB in which the program can be loaded and shows its help."""
    kilobytes = 1000
    while run_limited(command, folder, resource.RLIMIT_AS, kilobytes)[0] != 0:
        kilobytes += STEP
    return kilobytes


def sweep(name, command, folder, kind, limits, enough=10):
    """Faults at the limits, up to so many successful runs on end."""
    faults, successes, seen = [], 0, set()
    for kilobytes in limits:
        status, errors = run_limited(command, folder, kind, kilobytes)
        seen.add(status)
        if not is_clear(status, errors):
            faults.append('%s at %d kB: status %d, %r' % (name, kilobytes, status, errors))
        successes = successes + 1 if status == 0 else 0
        if successes == enough:
            break
    if 0 not in seen:
        faults.append('%s never succeeded' % name)
    print('%s: status %s' % (name, ', '.join(map(str, sorted(seen)))))
    return faults


def refuse_out_of_proportion(forward, folder):
    """Inputs of a few bytes that ask for gigabytes, and a line without end, are refused with little memory."""
    surveys.write(folder, 'huge.msh', '800 800 800\n0 0 0\n800*1\n800*1\n800*1\n')
    surveys.write(folder, 'line.msh', '8 8 8\n' + '1 ' * 600000 + '\n')
    with open(os.path.join(folder, 'zeros.msh'), 'wb') as f:
        f.truncate(1 << 31)
    faults = []
    for name, words in (('huge.msh', 'can be stored'), ('line.msh', 'line 2: expected a line of at most 1000000 characters'),
                        ('zeros.msh', 'line 1: expected a line of at most 1000000 characters')):
        command = [forward, 'mtx', '--mesh', name, '--stations', 'gz.obs', '--type', 'gz', '--threads', '1', '--out', 'never.mtx']
        status, errors = run_limited(command, folder, resource.RLIMIT_AS, 200000)
        print('mtx, %s: status %d' % (name, status))
        if status != 1 or words not in errors or errors.count('\n') != 1:
            faults.append('mtx --mesh %s: status %d, %r' % (name, status, errors[:200]))
    return faults


def go(options, work):
    program, forward = os.path.abspath(options.program), os.path.abspath(options.forward)
    inputs = os.path.join(work, 'inputs')
    surveys.write_inputs(inputs, os.path.abspath(options.tools))
    cases = []
    for name in ('plain', 'from-disk'):
        kind = next(kind for kind in surveys.kinds() if kind.name == name)
        kind.last = '2'
        folder = os.path.join(work, name)
        surveys.new_folder(folder, inputs, kind)
        cases.append(('voxlith, ' + name, [program], [program, 'voxlith.inp'], folder))
    mtx = [forward, 'mtx', '--mesh', 'survey.msh', '--stations', 'gz.obs', '--type', 'gz', '--out', 'new.mtx']
    cases.append(('mtx', [forward, '--help'], mtx, inputs))
    faults = refuse_out_of_proportion(forward, inputs)
    for name, start, command, folder in cases:
        least = first_start(start, folder)
        faults += sweep(name + ', address space', command, folder, resource.RLIMIT_AS, range(least, least + 40000, STEP))
        faults += sweep(name + ', stack', command, folder, resource.RLIMIT_STACK, STACKS, len(STACKS))
    return faults


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--program', required=True)
    parser.add_argument('--forward', required=True)
    parser.add_argument('--tools', required=True)
    options = parser.parse_args()
    work = tempfile.mkdtemp(prefix='voxlith_limits_')
    try:
        faults = go(options, work)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    for fault in faults:
        print('FAILED: ' + fault)
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
