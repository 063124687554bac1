#!/usr/bin/env python3
"""Kills the program at random times of small runs and continues each run. Processes are killed, not machines: what the program has
written is there, whether it had reached the disk or not. The failure of a machine is the subject of power_cut.py.

After each kill every file that is read as a whole is complete or does not exist, and of the iterations in the log at most the last one
is missing from the progress table. The continuation, which may also be killed, runs to its end. A run that was killed before it had
written anything to continue from is started again.

    kill_harness.py --program build/release/voxlith --tools build/release/tools/voxlith-tools --count 500 --seed 1
"""
import argparse
import os
import random
import re
import shutil
import signal
import sys
import tempfile
import time

import surveys

SIGNALS = [signal.SIGKILL, signal.SIGKILL, signal.SIGTERM, signal.SIGINT]


class Trial:
    """One run with its kills. `faults` lists what was violated."""

    def __init__(self, program, inputs, folder, kind, reference, seconds, chance):
        self.program, self.folder, self.kind, self.reference = program, folder, kind, reference
        self.seconds, self.chance = seconds, chance
        self.faults, self.history = [], []
        self.kills = self.restarts = self.continuations = 0
        surveys.new_folder(folder, inputs, kind)

    def add_fault(self, text):
        self.faults.append(text)

    def iteration_in_log(self):
        if not surveys.has(self.folder, 'voxlith.log'):
            return 0
        numbers = re.findall(r'^Iteration: +(\d+)$', surveys.read(self.folder, 'voxlith.log'), re.M)
        return int(numbers[-1]) if numbers else 0

    def wait_for_rows(self, process, more):
        wanted = len(surveys.whole_rows(self.folder)) + more
        while process.poll() is None and len(surveys.whole_rows(self.folder)) < wanted:
            time.sleep(0.001)

    def kill_one(self):
        """Starts the program and kills it. True when it was still running."""
        process = surveys.start(self.program, self.folder, self.kind)
        with_signal = self.chance.choice(SIGNALS)
        if self.chance.random() < 0.3:
            delay = self.chance.uniform(0.0, self.seconds)
        else:
            # The speed of a busy machine varies: wait for a row of the table, then a little.
            self.wait_for_rows(process, self.chance.randrange(self.kind.iterations + 1))
            delay = self.chance.uniform(0.0, 2.0 * self.seconds / self.kind.iterations)
        time.sleep(delay)
        process.send_signal(with_signal)
        process.stderr.read()
        process.stderr.close()
        process.wait()
        self.history.append('%s after %.4f s' % (with_signal.name, delay))
        if process.returncode == 0:
            return False
        if process.returncode != -with_signal:
            self.add_fault('ended with status %d, not by the signal' % process.returncode)
        self.kills += 1
        return True

    def check_after_kill(self):
        for fault in surveys.faults_of_whole_files(self.folder, self.reference):
            self.add_fault(fault)
        rows = surveys.whole_rows(self.folder)
        begun = self.iteration_in_log()
        done = rows[-1] if rows else 0
        if done < begun - 1:
            self.add_fault('iteration %d had begun, but the progress table ends with %d' % (begun, done))
        return done

    def can_be_continued(self):
        return (surveys.has(self.folder, 'voxlith.aux') and all(surveys.has(self.folder, name) for name in self.kind.running_models)
                and (self.kind.mode != -1 or surveys.has(self.folder, 'voxlith.lsv')))

    def prepare_next(self):
        """Sets the control file for the next run. Returns the iterations done."""
        done = self.check_after_kill()
        restart = 1 if self.can_be_continued() else 0
        if restart:
            # A run of several model types writes a file for each; the user chooses the one to continue from.
            running = self.kind.running_models[0]
            if running != self.kind.continued_model:
                shutil.copy(os.path.join(self.folder, running), os.path.join(self.folder, self.kind.continued_model))
        elif done > 0:
            self.add_fault('%d iterations are done, but there is nothing to continue from' % done)
        surveys.write(self.folder, 'voxlith.inp', self.kind.control(restart))
        self.continuations += restart
        self.restarts += 1 - restart
        return done if restart else 0

    def check_end(self, before):
        text = surveys.read(self.folder, 'voxlith.log')
        if 'VOXLITH ended on' not in text.splitlines()[-3]:
            self.add_fault('the log of the last run has no end')
        wanted = before + self.kind.iterations
        rows = surveys.whole_rows(self.folder)
        # The initial state has a row of its own unless an earlier run was killed just before it.
        # A run continued before its first iteration writes that row again.
        while rows[:1] == [0]:
            rows = rows[1:]
        if rows != list(range(1, wanted + 1)):
            self.add_fault('rows of the progress table: %s, wanted 1 to %d' % (rows, wanted))
        for fault in surveys.faults_of_whole_files(self.folder, self.reference):
            self.add_fault('at the end: ' + fault)
        for name in self.reference:
            if not name.startswith('voxlith_iter_') and not surveys.has(self.folder, name):
                self.add_fault('at the end %s is missing' % name)

    def go(self):
        kills = 1 + (self.chance.random() < 0.3)
        before = 0
        for _ in range(kills):
            if not self.kill_one():
                return  # the run had already ended
            before = self.prepare_next()
        status, errors = surveys.run(self.program, self.folder, self.kind)
        if status != 0 or errors:
            self.add_fault('the run after the kill ended with %d: %s' % (status, errors))
            return
        self.check_end(before)


def undisturbed(program, inputs, work, kind):
    """Line counts and duration of a run that is not killed."""
    folder = os.path.join(work, 'reference-' + kind.name)
    surveys.new_folder(folder, inputs, kind)
    start = time.monotonic()
    status, errors = surveys.run(program, folder, kind)
    seconds = time.monotonic() - start
    if status != 0 or errors or 'ended on' not in surveys.read(folder, 'voxlith.log'):
        raise SystemExit('%s: the undisturbed run failed: %d %s' % (kind.name, status, errors))
    return surveys.line_counts(folder), seconds


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--program', required=True)
    parser.add_argument('--tools', required=True)
    parser.add_argument('--count', type=int, default=500, help='kills')
    parser.add_argument('--seed', type=int, default=int(time.time()))
    parser.add_argument('--kind', help='only this kind')
    parser.add_argument('--keep', action='store_true', help='keep the folders of trials that failed')
    options = parser.parse_args()
    program, tools = os.path.abspath(options.program), os.path.abspath(options.tools)
    chance = random.Random(options.seed)
    print('seed %d' % options.seed)
    work = tempfile.mkdtemp(prefix='voxlith_kill_')
    inputs = os.path.join(work, 'inputs')
    surveys.write_inputs(inputs, tools)
    cases = []
    for kind in surveys.kinds():
        if options.kind and kind.name != options.kind:
            continue
        if kind.disk and surveys.find_disk_limit(program, inputs, work, kind) is None:
            print('%s: left out, no limit of the address space makes this build read rows from disk' % kind.name)
            continue
        cases.append((kind,) + undisturbed(program, inputs, work, kind))
    failed = kills = trials = late = continued = anew = 0
    per_kind = {}
    while kills < options.count:
        kind, reference, seconds = cases[trials % len(cases)]
        folder = os.path.join(work, 'trial-%d' % trials)
        trial = Trial(program, inputs, folder, kind, reference, seconds, chance)
        trial.go()
        trials += 1
        kills += trial.kills
        late += trial.kills == 0
        continued += trial.continuations
        anew += trial.restarts
        per_kind[kind.name] = per_kind.get(kind.name, 0) + trial.kills
        if trial.faults:
            failed += 1
            print('trial %d, %s, %s:' % (trials, kind.name, ', '.join(trial.history)))
            for fault in trial.faults:
                print('    ' + fault)
        if not (trial.faults and options.keep):
            shutil.rmtree(folder)
    if not (failed and options.keep):
        shutil.rmtree(work)
    print(', '.join('%s %d' % item for item in per_kind.items()))
    print('%d kills in %d runs (%d runs ended before the kill): %d continued, %d started anew because nothing was written yet, '
          '%d failed' % (kills, trials, late, continued, anew, failed))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
