#!/usr/bin/env python3
"""Runs of voxlith-run that converge, on all surveys of the examples: the target misfit, the same minimum from several starting
models, and the same bytes after a stop.

    converged_runs.py --build DIR
"""
import argparse
import csv
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..')
EXAMPLES = os.path.join(ROOT, 'examples')
RESULTS = ('voxlith.den', 'voxlith.pre', 'voxlith_error.dat', 'voxlith_tradeoff.csv')


class Failures(list):
    def check(self, holds, text):
        print(('ok       ' if holds else 'FAILED   ') + text, flush=True)
        if not holds:
            self.append(text)


def run(program, folder, *options):
    done = subprocess.run([program, 'voxlith.inp', *options], cwd=folder, check=True, stdout=subprocess.PIPE, text=True)
    return int(re.search(r'(?m)^ *Products .*: (\d+)', done.stdout).group(1))


def total_of(folder):
    with open(os.path.join(folder, 'voxlith.aux')) as f:
        return float(f.read().split('\n')[-2].split()[3]) ** 2


def model_of(folder):
    with open(os.path.join(folder, 'voxlith.den')) as f:
        return [float(value) for value in f.read().split()]


def examples():
    return sorted(name for name in os.listdir(EXAMPLES) if os.path.exists(os.path.join(EXAMPLES, name, 'example.py')))


def runs_of(folder):
    """Folders of an example that have a control file."""
    return sorted(place for place, _, names in os.walk(folder) if 'voxlith.inp' in names)


def check_target(program, name, folder, failures):
    products = run(program, folder, '--target-rms', '1')
    with open(os.path.join(folder, 'voxlith_tradeoff.csv')) as f:
        last = list(csv.DictReader(f))[-1]
    once = run(program, folder, '--until-converged', '1e-4', 'Tradeoff=' + last['tradeoff'])
    failures.check(0.98 <= float(last['rms_misfit']) <= 1.02, '%s: RMS misfit %s' % (name, last['rms_misfit']))
    failures.check(products <= 3 * once, '%s: %d products with the search, %d for one solution' % (name, products, once))


def check_starts(program, folder, failures):
    """Seven starting models of the two blocks end at one total and one model."""
    with open(os.path.join(folder, 'voxlith.inp')) as f:
        lines = f.read().split('\n')
    totals, models = [], []
    for start in ('0.0', '0.001', '0.01', '0.05', '0.1', '0.3', '0.9'):
        with open(os.path.join(folder, 'voxlith.inp'), 'w') as f:
            f.write('\n'.join(lines[:5] + [start] + lines[6:]))
        run(program, folder, '--until-converged', 'Tradeoff=3')
        totals.append(total_of(folder))
        models.append(model_of(folder))
    largest = max(models[0])
    apart = max(abs(a - b) for model in models[1:] for a, b in zip(models[0], model, strict=True))
    failures.check(max(totals) - min(totals) <= 1e-4 * min(totals), 'seven starts: totals %.6g to %.6g' % (min(totals), max(totals)))
    failures.check(apart <= 0.01 * largest, 'seven starts: models %.2g apart, largest value %.3g' % (apart, largest))


def check_compact(build, folder, failures):
    """Two blocks with depth weights: volumes above half the peak and peaks of a compact model."""
    subprocess.run([os.path.join(build, 'tools', 'voxlith-tools'), 'init', '--data', 'gz.obs', '--mtx', 'gz.mtx', '--sign', 'positive',
                    '--weights', 'auto', '--force'], cwd=folder, check=True, stdout=subprocess.DEVNULL)
    run(os.path.join(build, 'voxlith-run'), folder, '--target-rms', '1', '--model-norm', 'compact')
    with open(os.path.join(folder, 'voxlith.aux')) as f:
        misfit = float(f.read().split('\n')[-2].split()[1])
    failures.check(0.98 <= misfit <= 1.02, 'compact: RMS misfit %.4f' % misfit)
    model = model_of(folder)
    with open(os.path.join(folder, 'true.den')) as f:
        true = [float(value) for value in f.read().split()]
    for value in sorted(set(true) - {0.0}):
        body = [n for n, found in enumerate(true) if found == value]
        # Cells nearer to this block than to the other one: the blocks lie on either side of the diagonal of the map.
        south_west = (body[0] // 16 % 32) + body[0] // 512 < 31
        near = [found for n, found in enumerate(model) if ((n // 16 % 32) + n // 512 < 31) == south_west]
        peak, volume = max(near), sum(found > 0.5 * max(near) for found in near)
        failures.check(abs(peak - value) <= 0.2 * value, 'compact: peak %.3f for %g' % (peak, value))
        failures.check(abs(volume - len(body)) <= 0.3 * len(body), 'compact: %d cells for %d' % (volume, len(body)))


def check_stop(program, folder, failures):
    """A run that is stopped and continued until it completes leaves the bytes of one that never stopped."""
    run(program, folder, '--target-rms', '1')
    stopped = folder + '-stopped'
    shutil.copytree(folder, stopped)
    for name in RESULTS:
        os.remove(os.path.join(stopped, name))
    stops, options = 0, []
    for delay in (0.15, 0.2, 0.3, 0.5, 1, 2, 4, 8):
        child = subprocess.Popen([program, 'voxlith.inp', '--target-rms', '1', *options], cwd=stopped,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(delay)
        child.send_signal(signal.SIGINT)
        status = child.wait()
        if status == 0:
            break
        stops += 1
        options = ['--continue'] if os.path.exists(os.path.join(stopped, 'voxlith.checkpoint')) else []
    else:
        run(program, stopped, '--target-rms', '1', *options)
    for name in RESULTS:
        with open(os.path.join(folder, name), 'rb') as a, open(os.path.join(stopped, name), 'rb') as b:
            failures.check(a.read() == b.read(), 'after %d stops: %s' % (stops, name))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True, help='where the programs were built')
    build = os.path.abspath(parser.parse_args().build)
    program = os.path.join(build, 'voxlith-run')
    failures = Failures()
    with tempfile.TemporaryDirectory() as work:
        for name in examples():
            folder = os.path.join(work, name)
            subprocess.run([sys.executable, os.path.join(EXAMPLES, 'run_example.py'), name, '--build', build, '--work', folder],
                           check=True, stdout=subprocess.DEVNULL)
            for place in runs_of(folder):
                check_target(program, os.path.relpath(place, work), place, failures)
        check_starts(program, os.path.join(work, 'two_blocks'), failures)
        check_stop(program, os.path.join(work, 'two_blocks'), failures)
        check_compact(build, os.path.join(work, 'two_blocks'), failures)
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
