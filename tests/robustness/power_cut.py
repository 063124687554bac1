#!/usr/bin/env python3
"""Shuts file systems down without a flush while the program runs and after its end, as a power failure does.

Each file system lies in a file that is mounted through a loop device. After a cut it is mounted again: what had not reached the disk is
gone. Then no file that is read as a whole is empty or incomplete, a run that had reported its end has all of its results, and a
continued run starts where the interrupted one was at most the publication interval before the cut. The device itself loses
nothing: caches of disks are not part of the test.

Needs root and loop devices, and is skipped with a message (exit status 77) without them.

    power_cut.py --program build/release/voxlith --tools build/release/tools/voxlith-tools --count 40 --seed 1
"""
import argparse
import fcntl
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import time

import surveys

SKIPPED = 77
SHUTDOWN = 0x8004587D  # EXT4_IOC_SHUTDOWN and XFS_IOC_GOINGDOWN: _IOR('X', 125, __u32)
WITHOUT_FLUSH = 2
MAKE = {'ext4': ['mkfs.ext4', '-q', '-F'], 'xfs': ['mkfs.xfs', '-q', '-f']}
IMAGE_BYTES = 320 << 20
INTERVAL = 5.0  # publicationInterval of base/staged_files.h
DELAY = 2.0     # of this script on a busy machine, between a row of the table and its notice
FINAL = ('voxlith.den', 'voxlith.pre', 'voxlith.rho', 'voxlith_grad.mod', 'voxlith_error.dat')


class Disk:
    """A file system that can lose its power."""

    def __init__(self, kind, work):
        self.kind, self.image, self.folder = kind, os.path.join(work, kind + '.image'), os.path.join(work, kind)
        with open(self.image, 'wb') as f:
            f.truncate(IMAGE_BYTES)
        subprocess.run(MAKE[kind] + [self.image], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        os.makedirs(self.folder)
        self.mount()

    def mount(self):
        subprocess.run(['mount', '-t', self.kind, '-o', 'loop', self.image, self.folder], check=True, stderr=subprocess.PIPE)

    def cut(self):
        handle = os.open(self.folder, os.O_RDONLY)
        try:
            fcntl.ioctl(handle, SHUTDOWN, struct.pack('I', WITHOUT_FLUSH))
        finally:
            os.close(handle)

    def unmount(self):
        for attempt in range(50):
            if subprocess.run(['umount', self.folder], stderr=subprocess.DEVNULL).returncode == 0:
                return
            time.sleep(0.1)
        subprocess.run(['umount', self.folder], check=True)

    def restart(self):
        self.unmount()
        self.mount()


class Trial:
    """One run, one cut. `faults` lists what was violated."""

    def __init__(self, program, disk, kind, truth, seconds, chance):
        self.program, self.disk, self.kind, self.truth = program, disk, kind, truth
        self.seconds, self.chance = seconds, chance
        self.folder = os.path.join(disk.folder, 'run')
        self.faults, self.what, self.lost = [], '', 0.0

    def prepare(self, inputs):
        shutil.rmtree(self.folder, ignore_errors=True)
        os.makedirs(self.folder)
        for name in self.kind.files:
            shutil.copy(os.path.join(inputs, name), self.folder)
        surveys.write(self.folder, 'voxlith.inp', self.kind.control(0))
        os.sync()

    def watch(self, process, until):
        """Notes when each row of the table appears, up to a time or the end of the run."""
        seen = {}
        while time.monotonic() < until and process.poll() is None:
            for row in surveys.whole_rows(self.folder):
                seen.setdefault(row, time.monotonic())
            time.sleep(0.02)
        return seen

    def cut_during(self):
        delay = self.chance.uniform(0.1, self.seconds)
        process = surveys.start(self.program, self.folder, self.kind)
        seen = self.watch(process, time.monotonic() + delay)
        self.disk.cut()
        at = time.monotonic()
        ended = process.poll() == 0
        process.kill()
        process.communicate()
        self.what = 'cut after %.2f s' % delay
        self.disk.restart()
        if ended:
            self.check_end()
        else:
            self.check_whole_files()
            self.check_progress(seen, at)

    def cut_after(self):
        status, errors = surveys.run(self.program, self.folder, self.kind)
        if status != 0 or errors:
            self.faults.append('the run ended with %d: %s' % (status, errors))
        delay = self.chance.choice([0.0, 0.5, 2.0, 8.0])
        time.sleep(delay)
        self.disk.cut()
        self.what = 'cut %.1f s after the end' % delay
        self.disk.restart()
        self.check_end()

    def check_whole_files(self):
        self.faults += surveys.faults_of_whole_files(self.folder, self.truth.lines)

    def check_end(self):
        self.check_whole_files()
        for name in FINAL:
            if not surveys.has(self.folder, name):
                self.faults.append('%s is missing' % name)
            elif surveys.read(self.folder, name) != self.truth.files[name]:
                self.faults.append('%s differs from that of an undisturbed run' % name)
        missing = [name for name in self.truth.iteration_models if not surveys.has(self.folder, name)]
        if missing:
            self.faults.append('%d iteration models are missing' % len(missing))
        if not surveys.has(self.folder, 'voxlith.log') or 'VOXLITH ended on' not in surveys.read(self.folder, 'voxlith.log'):
            self.faults.append('the log has no end')

    def check_progress(self, seen, at):
        """`seen`: when each row appeared; `at`: time of the cut."""
        if not seen:
            return
        rows = surveys.whole_rows(self.folder)
        model = self.truth.iteration_of(self.folder)
        if model is None:
            self.faults.append('the running model is that of no iteration')
            return
        for what, done in (('progress table', rows[-1] if rows else -1), ('model', model)):
            if done + 1 in seen:
                lost = at - seen[done + 1]
                self.lost = max(self.lost, lost)
                if lost > INTERVAL + DELAY:
                    self.faults.append('the %s lost the last %.1f s' % (what, lost))
        if not rows or rows[-1] == 0:
            return
        surveys.write(self.folder, 'voxlith.inp', self.kind.control(1))
        status, errors = surveys.run(self.program, self.folder, self.kind)
        if status != 0 or errors:
            self.faults.append('the continued run ended with %d: %s' % (status, errors))
        elif surveys.whole_rows(self.folder)[-1] != rows[-1] + self.kind.iterations:
            self.faults.append('the continued run ended with row %d' % surveys.whole_rows(self.folder)[-1])


class Truth:
    """The files of an undisturbed run that writes the model of every iteration."""

    def __init__(self, program, inputs, folder, kind):
        every = surveys.Kind(kind.name, kind.files, last='%d 1' % kind.iterations)
        surveys.new_folder(folder, inputs, every)
        start = time.monotonic()
        status, errors = surveys.run(program, folder, every)
        self.seconds = time.monotonic() - start
        if status != 0 or errors:
            raise SystemExit('the undisturbed run failed: %d %s' % (status, errors))
        self.lines = surveys.line_counts(folder)
        self.files = {name: surveys.read(folder, name) for name in FINAL}
        self.models = {}
        for iteration in range(1, kind.iterations):
            name = 'voxlith_iter_%0*d.den' % (3 if kind.iterations < 1000 else 4, iteration)
            self.models[surveys.read(folder, name)] = iteration
        self.models[self.files['voxlith.rho']] = kind.iterations
        step = int(kind.last.split()[1])
        self.iteration_models = [name for name in self.lines if name.startswith('voxlith_iter_')
                                 and int(name[13:].split('.')[0]) % step == 0]

    def iteration_of(self, folder):
        """Of the running model in a folder; 0 for the starting model."""
        text = surveys.read(folder, 'voxlith.rho') if surveys.has(folder, 'voxlith.rho') else ''
        if text in self.models:
            return self.models[text]
        return 0 if len(set(text.split())) == 1 else None


def skip(reason):
    print('skipped: ' + reason)
    return SKIPPED


def make_disks(kinds, work):
    """The file systems, or the reason why there are none."""
    if os.geteuid() != 0:
        return [], 'mounting a file system needs root'
    disks = []
    for kind in kinds:
        if shutil.which(MAKE[kind][0]) is None:
            return disks, MAKE[kind][0] + ' is not installed'
        try:
            disks.append(Disk(kind, work))
        except subprocess.CalledProcessError as error:
            return disks, '%s: %s' % (kind, (error.stderr or b'').decode(errors='replace').strip())
    return disks, ''


def run_trials(options, disks, work, chance):
    inputs = os.path.join(work, 'inputs')
    surveys.write_inputs(inputs, os.path.abspath(options.tools))
    program = os.path.abspath(options.program)
    kind = surveys.Kind('plain', ['gz.obs', 'gz.mtx'], last='%d %d' % (options.iterations, max(1, options.iterations // 4)))
    truth = Truth(program, inputs, os.path.join(work, 'reference'), kind)
    failed = 0
    for disk in disks:
        seconds = truth.seconds
        failures = {'during': 0, 'after': 0}
        longest = 0.0
        for number in range(options.count):
            moment = 'after' if number % 4 == 1 else 'during'
            trial = Trial(program, disk, kind, truth, seconds, chance)
            trial.prepare(inputs)
            trial.cut_after() if moment == 'after' else trial.cut_during()
            longest = max(longest, trial.lost)
            if trial.faults:
                failures[moment] += 1
                print('%s, trial %d, %s:' % (disk.kind, number + 1, trial.what))
                for fault in trial.faults:
                    print('    ' + fault)
        print('%s: %d cuts during a run, %d failed; %d after its end, %d failed; at most the last %.1f s lost'
              % (disk.kind, options.count - (options.count + 2) // 4, failures['during'], (options.count + 2) // 4, failures['after'], longest))
        failed += sum(failures.values())
    return 1 if failed else 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--program', required=True)
    parser.add_argument('--tools', required=True)
    parser.add_argument('--count', type=int, default=40, help='cuts for each file system')
    parser.add_argument('--iterations', type=int, default=900, help='of a run')
    parser.add_argument('--kinds', nargs='+', choices=sorted(MAKE), default=sorted(MAKE), help='file systems')
    parser.add_argument('--seed', type=int, default=int(time.time()))
    options = parser.parse_args()
    print('seed %d' % options.seed)
    work = tempfile.mkdtemp(prefix='voxlith_power_')
    disks = []
    try:
        disks, reason = make_disks(options.kinds, work)
        if reason:
            return skip(reason)
        return run_trials(options, disks, work, random.Random(options.seed))
    finally:
        for disk in disks:
            disk.unmount()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == '__main__':
    sys.exit(main())
