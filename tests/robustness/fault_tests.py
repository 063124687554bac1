#!/usr/bin/env python3
"""Faults around a run: full disks, folders that cannot be written, files that disappear or change, closed standard streams.

Each run must end with one clear line on standard error that names the file and the cause, and with exit status 2. Every file that is
read as a whole must still exist in its last complete version.

    fault_tests.py --program build/release/voxlith --tools build/release/tools/voxlith-tools
"""
import argparse
import os
import resource
import shutil
import subprocess
import sys
import tempfile
import time

import surveys

NOBODY = 65534


class Faults:
    def __init__(self, program, tools, work):
        self.program, self.work = program, work
        self.inputs = os.path.join(work, 'inputs')
        surveys.write_inputs(self.inputs, tools)
        self.kinds = {kind.name: kind for kind in surveys.kinds()}
        self.reference = {}
        self.injected = self.failed = self.skipped = 0
        self.number = 0

    def folder(self, kind, after_a_run=False):
        """A folder with inputs and, if wanted, the files of an earlier run."""
        self.number += 1
        path = os.path.join(self.work, 'fault-%d' % self.number)
        surveys.new_folder(path, self.inputs, kind)
        if after_a_run or kind.name not in self.reference:
            status, errors = surveys.run(self.program, path, kind)
            if status != 0:
                raise SystemExit('the reference run failed: ' + errors)
            self.reference[kind.name] = surveys.line_counts(path)
            if not after_a_run:
                return self.folder(kind)
        return path

    def skip(self, what, why):
        self.skipped += 1
        print('skipped: %s: %s' % (what, why))

    def report(self, what, problems):
        self.injected += 1
        if problems:
            self.failed += 1
            print('FAILED: %s: %s' % (what, '; '.join(problems)))

    def judge(self, what, folder, kind, status, errors, names, status_wanted=2):
        """`names`: the message must have one of these."""
        problems = []
        if status != status_wanted:
            problems.append('exit status %s instead of %d' % (status, status_wanted))
        if status_wanted == 2 and (errors.count('\n') != 1 or not any(name in errors for name in names)):
            problems.append('no clear line that names one of %s: %r' % (names, errors))
        if status_wanted == 0 and errors:
            problems.append('text on standard error: %r' % errors)
        if os.path.isdir(folder):
            problems += surveys.faults_of_whole_files(folder, self.reference[kind.name])
            problems += ['%s remains' % name for name in os.listdir(folder) if name.endswith(('.part', '.previous'))]
        self.report(what, problems)

    def finish(self, process):
        errors = process.communicate()[1].decode(errors='replace')
        return process.returncode, errors

    # Disk space

    def file_size_limit(self):
        """A limit for the size of a file acts like a disk that is full at that byte."""
        kind = self.kinds['plain']
        for after_a_run in (False, True):
            for limit in (0, 1, 100, 700, 1500, 2000, 2500, 3000, 4000, 6000, 9000, 12000, 20000, 30000):
                folder = self.folder(kind, after_a_run)
                before = {name: surveys.read(folder, name) for name in surveys.line_counts(folder)}

                def set_limit(size=limit):
                    resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))
                process = subprocess.Popen([self.program, 'voxlith.inp'], cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                           stderr=subprocess.PIPE, preexec_fn=set_limit)
                status, errors = self.finish(process)
                self.judge('files of at most %d bytes' % limit, folder, kind, status, errors, ['File too large'])
                missing = [name for name in before if not surveys.has(folder, name)]
                if missing:
                    self.report('files of at most %d bytes' % limit, ['%s are gone' % missing])

    def full_disk(self):
        if os.geteuid() != 0:
            return self.skip('full disk', 'mounting a small file system needs root')
        kind = self.kinds['plain']
        self.folder(kind)
        for pages in (1, 2, 3, 4, 6, 10, 14, 18, 22, 26):
            mounted = os.path.join(self.work, 'disk')
            os.makedirs(mounted, exist_ok=True)
            done = subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=%dk' % (4 * pages), 'tmpfs', mounted], stderr=subprocess.PIPE)
            if done.returncode != 0:
                return self.skip('full disk', done.stderr.decode().strip())
            try:
                for name in kind.files:
                    os.symlink(os.path.join(self.inputs, name), os.path.join(mounted, name))
                try:
                    surveys.write(mounted, 'voxlith.inp', kind.control(0))
                except OSError:
                    continue
                status, errors = surveys.run(self.program, mounted, kind)
                self.judge('disk of %d pages' % pages, mounted, kind, status, errors, ['No space left on device'])
            finally:
                subprocess.run(['umount', mounted], check=True)

    # Folders

    def as_nobody(self):
        os.setgroups([])
        os.setgid(NOBODY)
        os.setuid(NOBODY)

    def folder_without_permission(self):
        kind = self.kinds['plain']
        prepare = self.as_nobody if os.geteuid() == 0 else None
        for after_a_run in (False, True):
            folder = self.folder(kind, after_a_run)
            for name in os.listdir(folder):
                os.chmod(os.path.join(folder, name), 0o444)
            os.chmod(folder, 0o555)
            os.chmod(self.work, 0o755)
            try:
                done = subprocess.run([self.program, 'voxlith.inp'], cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                      stderr=subprocess.PIPE, preexec_fn=prepare)
            except (PermissionError, subprocess.SubprocessError) as error:
                os.chmod(folder, 0o755)
                return self.skip('folder without write permission', 'another user cannot start the program here: %s' % error)
            if done.returncode == 127 or done.returncode == 126:
                return self.skip('folder without write permission', 'another user cannot start the program here')
            self.judge('folder without write permission', folder, kind, done.returncode, done.stderr.decode(), ['voxlith.log'])
            os.chmod(folder, 0o755)

    def folders_in_the_way(self):
        """A folder where a file is to be written."""
        kind = self.kinds['plain']
        for name in ('voxlith.log', 'voxlith.pre', 'voxlith.rho', 'voxlith_grad.mod', 'voxlith.den', 'voxlith_error.dat'):
            folder = self.folder(kind)
            os.makedirs(os.path.join(folder, name, 'inside'))
            status, errors = surveys.run(self.program, folder, kind)
            if not os.path.isdir(os.path.join(folder, name, 'inside')):
                self.report('a folder named ' + name, ['it is gone'])
            shutil.rmtree(os.path.join(folder, name))
            self.judge('a folder named ' + name, folder, kind, status, errors, [name])

    def folder_vanishes(self):
        kind = self.kinds['plain']
        folder = self.folder(kind)
        process = surveys.start(self.program, folder, kind)
        self.wait_for_rows(process, folder, 2)
        while os.path.isdir(folder) and process.poll() is None:
            shutil.rmtree(folder, ignore_errors=True)  # the run may create a file while the folder is being emptied
        status, errors = self.finish(process)
        self.judge('the work folder vanishes', folder, kind, status, errors, ['voxlith'])

    # Input files

    def wait_for_rows(self, process, folder, rows):
        while process.poll() is None and len(surveys.whole_rows(folder)) < rows:
            time.sleep(0.001)
        if process.poll() is not None:
            print('(the run was over before the fault)')

    def sensitivities_change(self):
        """The sensitivity file of a run that reads it from disk at every product."""
        kind = self.kinds['from-disk']
        if surveys.find_disk_limit(self.program, self.inputs, self.work, kind) is None:
            return self.skip('sensitivity file changed during a run', 'no limit of the address space makes this build read from disk')
        name = kind.files[1]

        def own_copy(folder):
            path = os.path.join(folder, name)
            os.unlink(path)
            shutil.copy(os.path.join(self.inputs, name), path)
            return path

        def truncated(path):
            os.truncate(path, 20000)

        def emptied(path):
            os.truncate(path, 0)

        def overwritten(path):
            with open(path, 'r+b') as f:
                f.write(b'\xff' * os.path.getsize(path))

        def vanished(path):
            os.unlink(path)

        def replaced(path):
            with open(path + '.new', 'wb') as f:
                f.write(b'another file')
            os.rename(path + '.new', path)

        for change, wanted in ((truncated, 2), (emptied, 2), (overwritten, None), (vanished, 0), (replaced, 0)):
            folder = self.folder(kind)
            path = own_copy(folder)
            process = surveys.start(self.program, folder, kind)
            self.wait_for_rows(process, folder, 2)
            change(path)
            status, errors = self.finish(process)
            for extra in (path, path + '.new'):
                if os.path.exists(extra):
                    os.unlink(extra)
            # An open file keeps its content when its name is removed. Overwritten numbers may still be numbers.
            if wanted is None:
                wanted = 0 if status == 0 else 2
            self.judge('sensitivity file %s' % change.__name__, folder, kind, status, errors, [name], wanted)

    def inputs_of_the_wrong_kind(self):
        kind = self.kinds['plain']
        for name, content in (('gz.mtx', b''), ('gz.mtx', b'VX3D'), ('gz.mtx', b'no numbers at all'), ('gz.obs', b'word\n')):
            folder = self.folder(kind)
            os.unlink(os.path.join(folder, name))
            with open(os.path.join(folder, name), 'wb') as f:
                f.write(content)
            status, errors = surveys.run(self.program, folder, kind)
            self.judge('%s with %r' % (name, content), folder, kind, status, errors, [name])

    def label_that_leads_elsewhere(self):
        """A model label is part of file names. It must not name a file outside the folder of the run."""
        kind = self.kinds['joint']
        folder = self.folder(kind)
        os.makedirs(os.path.join(folder, 'voxlith_a'))
        with open(os.path.join(folder, 'voxlith.inp')) as f:
            text = f.read()
        surveys.write(folder, 'voxlith.inp', text.replace('dens', 'a/../../'))
        before = sorted(os.listdir(self.work))
        status, errors = surveys.run(self.program, folder, kind)
        if sorted(os.listdir(self.work)) != before:
            self.report('a label that leads elsewhere', ['a file was written outside the folder of the run'])
        os.rmdir(os.path.join(folder, 'voxlith_a'))
        self.judge('a label that leads elsewhere', folder, kind, status, errors, ['voxlith.inp, line 1'])

    # Standard streams

    def screen(self, what, redirection, names, status_wanted=2):
        kind = self.kinds['plain']
        folder = self.folder(kind)
        done = subprocess.run(['sh', '-c', 'exec "$0" voxlith.inp ' + redirection, self.program], cwd=folder, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.judge(what, folder, kind, done.returncode, done.stderr.decode(), names, status_wanted)
        return folder

    def screens(self):
        self.screen('standard output closed', '>&-', ['standard output'])
        self.screen('standard output full', '>/dev/full', ['standard output'])
        folder = self.screen('standard error closed', '2>&-', [], 0)
        self.compare_with_reference('standard error closed', folder)
        folder = self.screen('standard input closed', '<&-', [], 0)
        self.compare_with_reference('standard input closed', folder)

    def compare_with_reference(self, what, folder):
        """Nothing that was meant for a closed stream is in a file."""
        undisturbed = self.folder(self.kinds['plain'], after_a_run=True)
        for name in ('voxlith.rho', 'voxlith.den', 'voxlith.pre', 'voxlith_error.dat', 'voxlith_grad.mod'):
            if surveys.read(folder, name) != surveys.read(undisturbed, name):
                self.report(what, ['%s differs from that of an undisturbed run' % name])

    def message_while_screen_closed(self):
        """The message of a failure is in no file of the run when standard error is closed."""
        kind = self.kinds['plain']
        folder = self.folder(kind)
        os.makedirs(os.path.join(folder, 'voxlith.rho'))
        done = subprocess.run(['sh', '-c', 'exec "$0" voxlith.inp 2>&-', self.program], cwd=folder, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL)
        problems = [] if done.returncode == 2 else ['exit status %d' % done.returncode]
        if surveys.read(folder, 'voxlith.log').count('voxlith.rho: ') != 1:
            problems.append('the log does not have the message exactly once')
        for name in ('voxlith.aux', 'voxlith.pre'):
            if surveys.has(folder, name) and 'voxlith.rho: ' in surveys.read(folder, name):
                problems.append('the message is in ' + name)
        self.report('message while standard error is closed', problems)

    def reader_leaves(self):
        kind = self.kinds['plain']
        folder = self.folder(kind)
        process = surveys.start(self.program, folder, kind, stdout=subprocess.PIPE)
        process.stdout.readline()
        process.stdout.close()
        process.stdout = None
        status, errors = self.finish(process)
        self.judge('the reader of standard output ends', folder, kind, status, errors, ['standard output'])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--program', required=True)
    parser.add_argument('--tools', required=True)
    options = parser.parse_args()
    work = tempfile.mkdtemp(prefix='voxlith_faults_')
    try:
        faults = Faults(os.path.abspath(options.program), os.path.abspath(options.tools), work)
        for inject in (faults.file_size_limit, faults.full_disk, faults.folder_without_permission, faults.folders_in_the_way,
                       faults.folder_vanishes, faults.sensitivities_change, faults.inputs_of_the_wrong_kind,
                       faults.label_that_leads_elsewhere, faults.screens,
                       faults.message_while_screen_closed, faults.reader_leaves):
            inject()
    finally:
        shutil.rmtree(work, ignore_errors=True)
    print('%d faults injected, %d failed, %d kinds skipped' % (faults.injected, faults.failed, faults.skipped))
    return 1 if faults.failed or not faults.injected else 0


if __name__ == '__main__':
    sys.exit(main())
