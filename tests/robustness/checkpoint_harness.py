#!/usr/bin/env python3
"""Stops voxlith-run at random times of small runs, by signals that it can act on and by kills, and continues each run until it ends.

All result files must then be those of a run that nobody stopped, byte for byte; times in the progress table and the log, which
says how often the run was continued, are left out. Processes are stopped here, not machines.

    checkpoint_harness.py --program build/release/voxlith-run --tools build/release/tools/voxlith-tools --count 200 --seed 1
    checkpoint_harness.py ... --converged       all converged modes, each on several kinds of surveys

Each part of a run has one or two threads, by chance.
"""
import argparse
import os
import pty
import random
import shutil
import signal
import sys
import tempfile
import time

import surveys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'runs'))
sys.dont_write_bytecode = True
from stored_runs import difference, masked  # noqa: E402

SIGNALS = [signal.SIGKILL, signal.SIGKILL, signal.SIGTERM, signal.SIGINT]
CHECKPOINT = 'voxlith.checkpoint'
MOST_STOPS = 4  # of one run
SINGLE_MODELS = ('plain', 'magnetic', 'averaged', 'barrier', 'from-disk')
# Mode, options, kinds of surveys. Gravity and magnetic data of one survey differ much in what they are fitted to with ease.
CONVERGED_MODES = (
    ('until converged', '--until-converged 1e-4', ('plain', 'record', 'averaged', 'barrier', 'from-disk')),
    ('until converged', '--until-converged 1e-3', ('joint', 'magnetic')),
    ('interior point', '--until-converged Tradeoff=1e-7', ('barrier',)),
    ('target', '--target-rms 1', SINGLE_MODELS),
    ('target', '--target-rms 20', ('joint',)),
    ('per component', '--target-rms 1 --per-component Misfit=(5,1)', ('joint',)),
    ('per component', '--target-rms 1 --per-component --model-norm compact Misfit=(5,1)', ('joint',)),
    ('compact', '--target-rms 1 --model-norm compact', SINGLE_MODELS),
    ('compact', '--target-rms 50 --model-norm compact', ('joint',)),
    ('blocky', '--target-rms 1 --model-norm blocky', SINGLE_MODELS),
    ('cross-gradient', '--target-rms 20 --cross-gradient 1', ('joint',)),
    ('cross-gradient', '--until-converged 1e-4 --cross-gradient 1', ('joint',)),
)


def results(folder):
    """Result files of a run without the times in them."""
    return {name: masked(surveys.read(folder, name)) for name in os.listdir(folder)
            if name not in surveys.INPUTS and name != 'voxlith.log'}


def faults_of_stop(process, with_signal):
    """A signal that the program can act on ends it with 128 + signal, a kill ends it at once."""
    if process.returncode in (-with_signal, 0) or process.returncode == 128 + with_signal:
        return []
    return ['ended with status %d after %s' % (process.returncode, with_signal.name)]


def threads(kind, chance):
    """With rows from disk always the same: the memory that threads take decides where rows are, and so the order of sums."""
    if kind.disk:
        return []
    return chance.choice([['--threads', '1'], ['--threads', '2', '--smallest-piece', '100']])


def stop_once(program, folder, kind, options, seconds, chance):
    """Starts or continues the run and stops it. Returns (was it stopped, faults)."""
    going_on = surveys.has(folder, CHECKPOINT)
    process = surveys.start(program, folder, kind, options + threads(kind, chance) + (['--continue'] if going_on else []))
    time.sleep(chance.uniform(0.0, 1.2 * seconds))
    with_signal = chance.choice(SIGNALS)
    process.send_signal(with_signal)
    process.stderr.read()
    process.stderr.close()
    process.wait()
    faults = faults_of_stop(process, with_signal)
    if process.returncode == 0 and with_signal != signal.SIGKILL and surveys.has(folder, CHECKPOINT):
        faults.append('a completed run left its checkpoint')
    return process.returncode != 0, faults


def trial(program, inputs, folder, kind, options, wanted, seconds, chance):
    """One run with its stops, compared at its end. Returns (stops, faults)."""
    surveys.new_folder(folder, inputs, kind)
    stops, faults = 0, []
    for _ in range(1 + chance.randrange(MOST_STOPS)):
        stopped, more = stop_once(program, folder, kind, options, seconds, chance)
        faults += more
        if not stopped:
            break
        stops += 1
    else:
        going_on = surveys.has(folder, CHECKPOINT)
        status, errors = surveys.run(program, folder, kind, options + threads(kind, chance) + (['--continue'] if going_on else []))
        if status != 0:
            return stops, faults + ['the last part ended with %d: %s' % (status, errors)]
    found = results(folder)
    faults += ['%s is %s' % (name, 'missing' if name in wanted else 'left over') for name in sorted(set(found) ^ set(wanted))]
    faults += ['%s: %s' % (name, difference(wanted[name], found[name])) for name in sorted(set(found) & set(wanted))
               if found[name] != wanted[name]]
    return stops, faults


def undisturbed(program, inputs, folder, kind, options):
    """Results and duration of a run that is not stopped."""
    surveys.new_folder(folder, inputs, kind)
    start = time.monotonic()
    status, errors = surveys.run(program, folder, kind, options)
    seconds = time.monotonic() - start
    # A survey whose target is out of reach is as good a test, and so is one with a warning; the run says so.
    if status != 0 or not all('target RMS misfit was not reached' in line or 'voxlith-run: warning: ' in line
                              for line in errors.splitlines()):
        raise SystemExit('%s: the undisturbed run failed: %d %s' % (kind.name, status, errors))
    return results(folder), seconds


def faults_of_other_inputs(program, inputs, work):
    """A checkpoint is not combined with other data: what differs is named, and the checkpoint stays."""
    kind = surveys.kinds()[0]
    folder = os.path.join(work, 'other-inputs')
    surveys.new_folder(folder, inputs, kind)
    process = surveys.start(program, folder, kind)
    while process.poll() is None and not surveys.has(folder, CHECKPOINT):
        time.sleep(0.001)
    process.kill()
    process.communicate()
    if not surveys.has(folder, CHECKPOINT):
        return ['the run ended before it could be killed']
    data = surveys.read(folder, kind.files[0])
    os.remove(os.path.join(folder, kind.files[0]))  # it is a link to that of all trials
    surveys.write(folder, kind.files[0], data.replace(' 0.02\n', ' 0.03\n', 1))
    status, errors = surveys.run(program, folder, kind, ['--continue'])
    wanted = 'belongs to another inversion: the observed data or their uncertainties changed'
    if status != 2 or wanted not in errors or not surveys.has(folder, CHECKPOINT):
        return ['other data: status %d, %s' % (status, errors)]
    return []


def faults_of_signals(program, inputs, work):
    """SIGINT and SIGTERM end the run after an iteration with status 130 and 143; a terminal shows the progress and the time left."""
    faults = []
    kind = surveys.Kind('long', ['gz.obs', 'gz.mtx'], last='3000')
    for with_signal in (signal.SIGINT, signal.SIGTERM):
        folder = os.path.join(work, with_signal.name)
        surveys.new_folder(folder, inputs, kind)
        terminal, errors = pty.openpty()
        process = surveys.start(program, folder, kind, stderr=errors)
        os.close(errors)
        while process.poll() is None and len(surveys.whole_rows(folder)) < 5:
            time.sleep(0.001)
        process.send_signal(with_signal)
        shown = shown_on(terminal)
        process.wait()
        done = surveys.whole_rows(folder)[-1]
        if process.returncode != 128 + with_signal:
            faults.append('%s: ended with status %d' % (with_signal.name, process.returncode))
        for wanted in ('iteration 1 of 3000, RMS misfit', ' left', 'stopped by a signal after iteration %d' % done):
            if wanted not in shown:
                faults.append('%s: the terminal does not show "%s"' % (with_signal.name, wanted))
        if not surveys.has(folder, CHECKPOINT):
            faults.append('%s: there is no checkpoint' % with_signal.name)
    return faults


def shown_on(terminal):
    """All that a process writes to its terminal until it ends."""
    shown = b''
    while True:
        try:
            more = os.read(terminal, 65536)
        except OSError:  # the other end is closed
            more = b''
        if not more:
            os.close(terminal)
            return shown.decode(errors='replace')
        shown += more


def make_cases(program, inputs, work, only_kind, modes):
    """Mode, kind, options, results and duration of a run that is not stopped."""
    cases = []
    for mode, text, names in modes:
        options = text.split()
        for kind in surveys.kinds():
            left_out = '--per-component' in options and not kind.labels if names is None else kind.name not in names
            if left_out or only_kind not in (None, kind.name):
                continue
            if kind.disk and surveys.find_disk_limit(program, inputs, work, kind, options) is None:
                print('%s: left out, no limit of the address space makes this build read rows from disk' % kind.name)
                continue
            folder = os.path.join(work, 'reference-%d' % len(cases))
            cases.append((mode, kind, options) + undisturbed(program, inputs, folder, kind, options))
    return cases


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--program', required=True)
    parser.add_argument('--tools', required=True)
    parser.add_argument('--count', type=int, default=200, help='stops')
    parser.add_argument('--seed', type=int, default=int(time.time()))
    parser.add_argument('--kind', help='only this kind')
    parser.add_argument('--options', default='', help='of voxlith-run, such as "--target-rms 1"')
    parser.add_argument('--converged', action='store_true', help='the converged modes instead of --options')
    asked = parser.parse_args()
    program, tools = os.path.abspath(asked.program), os.path.abspath(asked.tools)
    chance = random.Random(asked.seed)
    signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell's background work ignores it, and so would the program
    print('seed %d' % asked.seed)
    work = tempfile.mkdtemp(prefix='voxlith-checkpoints-')
    inputs = os.path.join(work, 'inputs')
    surveys.write_inputs(inputs, tools)
    modes = CONVERGED_MODES if asked.converged else ((asked.options.strip() or 'plain', asked.options, None),)
    cases = make_cases(program, inputs, work, asked.kind, modes)
    faults = faults_of_other_inputs(program, inputs, work) + faults_of_signals(program, inputs, work)
    for fault in faults:
        print(fault)
    stops, trials, failed = {mode: 0 for mode, *_ in cases}, 0, len(faults)
    while sum(stops.values()) < asked.count:
        mode, kind, options, wanted, seconds = cases[trials % len(cases)]
        folder = os.path.join(work, 'trial-%d' % trials)
        count, faults = trial(program, inputs, folder, kind, options, wanted, seconds, chance)
        trials += 1
        stops[mode] += count
        shutil.rmtree(folder)
        if faults:
            failed += 1
            print('trial %d, %s, %s:' % (trials, mode, kind.name))
            for fault in faults:
                print('    ' + fault)
    shutil.rmtree(work)
    print(', '.join('%s %d' % item for item in stops.items()))
    print('%d stops in %d runs, %d failed' % (sum(stops.values()), trials, failed))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
