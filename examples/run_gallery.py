#!/usr/bin/env python3
"""Runs and checks all examples; with --pictures also draws them and writes the gallery page.

    run_gallery.py [--build DIR] [--work DIR] [--only NAME ...]
    run_gallery.py --pictures [--docs DIR]
    run_gallery.py --compare [--docs DIR]
    run_gallery.py --report-pictures [--docs DIR]

Each example that passes also gets a report, report.html in its folder. --report-pictures renews the pictures of reports
in the documents, which a headless Chromium takes.
The page, docs/gallery.md, shows of each example what it is about, what it found, how long it took, and the pictures
that its list PICTURES names ('sections' if it has none). Pictures need Matplotlib. The exit status is 1 when an example
fails its check; the page is not written then. --compare also holds the page to what the examples say now, times apart.
"""
import argparse
import csv
import os
import re
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
sys.dont_write_bytecode = True
import report_pictures  # noqa: E402
import run_example  # noqa: E402

CAPTIONS = {
    'sections': 'A depth slice, two sections and a histogram of the recovered model; lines show the true bodies, where these are known.',
    'data': 'Observed and predicted data have one colour scale; residuals are in standard deviations.',
    'convergence': 'Misfit, norm and total against the iteration.',
    'zscores': 'Residuals over their standard deviations beside the standard normal distribution.',
    'vectors': 'Sections through the amplitude of the magnetisation; arrows are its component in the plane, boxes true bodies.',
    'stereonet': 'Directions of the cells on an equal-area net; areas grow with the moment.',
    'profiles': 'Observed and predicted data of each line.'}

HEAD = """# The gallery of examples

This page shows what each example recovers. An example makes synthetic data with noise (one has real data), inverts them, and compares the
result with the truth. [Pictures of a run](pictures-of-a-run.md) explains the pictures. The times are for the whole example, with the
computation of data and sensitivities; they depend on the machine.

The tables compare each body with the nearest recovered one. The centre is that of the cells above half the peak. The excess mass is the sum
of density contrast times volume, up to the longest side of the body away from it. A smooth model spreads a body, so the recovered peak is
lower than the true contrast: compare position, depth and excess mass.

`python3 examples/run_example.py NAME` runs one example, `python3 examples/run_gallery.py` runs and checks all of them. Each gets a
[report](report.md), `report.html` in its folder. With `--pictures`, `run_gallery.py` also draws the pictures and writes this page.
"""


CONVERGED = """Most examples run `voxlith` with a given trade-off and number of iterations, so their RMS misfits differ from 1. For your own survey
let `voxlith-run --target-rms 1` find the trade-off. The table shows the same surveys with that option, as `bench/gallery_convergence.py`
measures them. Products are those with the sensitivities, including the search for the trade-off.
"""


def run_one(name, asked):
    """Runs an example with its check: (passed, seconds, what it said, its folder)."""
    folder = os.path.join(asked.work, name)
    command = [sys.executable, os.path.join(HERE, 'run_example.py'), name, '--build', asked.build, '--work', folder,
               '--check']
    start = time.monotonic()
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return done.returncode == 0, time.monotonic() - start, done.stdout, folder


def control_of(name):
    """Options that name the control file of an example."""
    control = getattr(run_example.load(name), 'CONTROL_FILE', None)
    return ['--control', control] if control else []


def write_report(name, folder, asked):
    """Writes the report of an example; gives its path."""
    path = os.path.join(folder, 'report.html')
    folder = os.path.join(folder, getattr(run_example.load(name), 'FOLDERS', [''])[0])
    subprocess.run([os.path.join(asked.build, 'tools', 'voxlith-tools'), 'report', folder, *control_of(name), '--out', path, '--title',
                    'Example ' + name], check=True, stdout=subprocess.DEVNULL)
    return path


def findings(name, said):
    """The lines that report results: neither the introduction nor the commands nor what these said."""
    lines = said[len(run_example.load(name).__doc__.strip()):].splitlines()
    kept = [line for line in lines if not line.startswith(('$ ', '    ', 'All files are in'))]
    return re.sub(r'\n{3,}', '\n\n', '\n'.join(kept)).strip('\n')


def small_copy(source, target):
    """A picture with a palette of 256 colours: a third of the size, no colour off by more than a few steps in 255."""
    from PIL import Image
    with Image.open(source) as picture:
        palette = picture.convert('RGB').quantize(256, method=Image.Quantize.MAXCOVERAGE, dither=Image.Dither.NONE)
    palette.save(target, optimize=True)


def draw(name, folder, asked):
    """Draws the pictures of an example into the docs; gives their names within these."""
    example = run_example.load(name)
    wanted = getattr(example, 'PICTURES', ['sections'])
    made = []
    for part in getattr(example, 'FOLDERS', ['']):
        with tempfile.TemporaryDirectory() as out:
            subprocess.run([os.path.join(asked.build, 'tools', 'voxlith-plot'), os.path.join(folder, part), *control_of(name),
                            '--out', out], check=True, stdout=subprocess.DEVNULL)
            for picture in wanted:
                target = 'pictures/%s_%s%s.png' % (name, picture, part and '_' + part)
                small_copy(os.path.join(out, picture + '.png'), os.path.join(asked.docs, target))
                made.append((picture, target))
    return made


def converged_table():
    """The same surveys inverted to the target misfit, a table that bench/gallery_convergence.py measured."""
    with open(os.path.join(HERE, '..', 'docs', 'measured', 'gallery-convergence.csv')) as f:
        rows = list(csv.DictReader(line for line in f if not line.startswith('#')))
    lines = ['## To the target misfit', '', CONVERGED, '| run | RMS misfit of the example (iterations) | RMS misfit with `--target-rms 1` | products | time, s |', '|---|---|---|---|---|']
    lines += ['| %s | %s (%s) | %s | %s | %s |' % (row['run'], row['rms_example'], row['iterations_example'], row['rms'], row['products'],
                                                 row['seconds']) for row in rows]
    return '\n'.join(lines) + '\n'


def chapter(name, seconds, said, pictures):
    title, _, story = run_example.load(name).__doc__.strip().partition('\n\n')
    parts = ['## %s\n\n%s\n' % (name, title)]
    parts += [story.strip() + '\n'] if story.strip() else []
    parts += ['![%s: %s](%s)\n\n*%s*\n' % (name, picture, target, CAPTIONS[picture.split('_')[0]])
              for picture, target in pictures]
    parts.append('The whole example took %.1f s. Its output:\n\n```\n%s\n```\n' % (seconds, findings(name, said)))
    return '\n'.join(parts)


def findings_on_page(name, docs):
    """What the page says that an example found."""
    with open(os.path.join(docs, 'gallery.md')) as f:
        found = re.search(r'(?ms)^## %s\n.*?^```\n(.*?)^```$' % name, f.read())
    return found[1].strip('\n') if found else ''


def same_but_for_times(a, b):
    return re.sub(r'[\d.]+ s\b', 'TIME', a) == re.sub(r'[\d.]+ s\b', 'TIME', b)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', default=os.path.join(HERE, '..', 'build', 'release'),
                        help='where the programs were built')
    parser.add_argument('--work', help='the folder of the runs (default: examples-out in the build folder)')
    parser.add_argument('--only', nargs='+', choices=run_example.names(), metavar='NAME', help='some examples alone')
    parser.add_argument('--pictures', action='store_true', help='draw pictures and write the page')
    parser.add_argument('--compare', action='store_true', help='hold the page to what the examples say now')
    parser.add_argument('--report-pictures', action='store_true', help='take the pictures of reports')
    parser.add_argument('--docs', default=os.path.join(HERE, '..', 'docs'), help='where the page goes (default: docs)')
    asked = parser.parse_args()
    asked.work = asked.work or os.path.join(asked.build, 'examples-out')
    if asked.pictures or asked.report_pictures:
        os.makedirs(os.path.join(asked.docs, 'pictures'), exist_ok=True)
    chapters, failed, reports = [], [], {}
    for name in asked.only or run_example.names():
        passed, seconds, said, folder = run_one(name, asked)
        print('%-20s %-7s %5.1f s' % (name, 'passed' if passed else 'FAILED', seconds), flush=True)
        if not passed:
            failed.append(name)
            print(said)
            continue
        reports[name] = write_report(name, folder, asked)
        if asked.compare and not same_but_for_times(findings(name, said), findings_on_page(name, asked.docs)):
            failed.append(name)
            print('The page says of %s:\n%s\nThe example says:\n%s\nTo renew the page: run_gallery.py --pictures'
                  % (name, findings_on_page(name, asked.docs), findings(name, said)))
        elif asked.pictures:
            chapters.append(chapter(name, seconds, said, draw(name, folder, asked)))
    if asked.report_pictures and not failed:
        for path in report_pictures.take(reports, asked.docs, small_copy):
            print('%s: %.0f kB' % (os.path.relpath(path), os.path.getsize(path) / 1000))
    if asked.pictures and not failed:
        with open(os.path.join(asked.docs, 'gallery.md'), 'w') as f:
            f.write(HEAD + '\n' + '\n'.join(chapters) + '\n' + converged_table())
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
