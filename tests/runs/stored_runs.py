#!/usr/bin/env python3
"""Whole runs whose files are compared, byte for byte but for dates and times, with those stored here.

    stored_runs.py --build DIR [--only NAME] [--work DIR] [--program NAME] [--accept]

Results are the same bytes from every compiler and on every machine, so there are no tolerances. --accept replaces the stored files
by those of the present programs: for an intended change of results. With --program voxlith-run its files are compared with those of
voxlith; the screen is its own.
"""
import argparse
import os
import re
import shutil
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, '..', '..', 'examples'))
sys.dont_write_bytecode = True
from gallery import Body, Mesh, Workbench, grid, read_values, write_stations, write_values  # noqa: E402

MESH = Mesh(8 * [100], 6 * [100], 4 * [80])
BODIES = [Body('block', (250, 450), (150, 350), (80, 240), 0.5)]
FIELD = ['--field', '60,5,50000', '--direction', '60,5']
STATIONS = grid(50, 750, 6, 50, 550, 5, 5.0)
MAGNETIC = ((60.0, 5.0, 50000.0), (60.0, 5.0))


def control(**changed):
    lines = ['0', '2 0 0', '0.01 0.02 0', 'd.obs', 'g.mtx', '0.001', '0.0', 'null', '0.0001 1. 1. 1.', 'null', 'null', '14']
    for number, text in changed.items():
        at = int(number[1:]) - 1
        lines += [''] * (at + 1 - len(lines))
        lines[at] = text
    return '\n'.join(lines) + '\n'


def write_gravity_survey(bench, mtx=(), mesh=MESH, bodies=BODIES, stations=STATIONS):
    mesh.write(bench.path('mesh.msh'))
    write_values(bench.path('true.den'), mesh.model(bodies))
    write_stations(bench.path('s.obs'), stations)
    bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 's.obs', '--type', 'gz', '--model', 'true.den', '--out',
                'd.obs', '--noise', '1,0.01', '--seed', 3)
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'd.obs', '--type', 'gz', '--out', 'g.mtx', *mtx)


def write_joint_survey(bench):
    write_gravity_survey(bench)
    write_stations(bench.path('s.mag'), STATIONS, MAGNETIC)
    bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 's.mag', '--type', 'tmi', '--model', 'true.den', '--out',
                'd.mag', '--noise', '1,1', '--seed', 4, *FIELD)
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'd.mag', '--type', 'tmi', '--out', 't.mtx', *FIELD)
    gravity = open(bench.path('d.obs')).read().splitlines()[1:]
    magnetic = open(bench.path('d.mag')).read().splitlines()[3:]
    rows = [g + ' ' + ' '.join(m.split()[3:5]) for g, m in zip(gravity, magnetic)]
    bench.write('both.obs', '%d\n' % len(rows) + '\n'.join(rows) + '\n')


def two_models(bench):
    write_joint_survey(bench)
    bench.write('voxlith.inp', control(l1='0 2 2 2 dens susc', l4='both.obs', l5='g.mtx|t.mtx', l12='14 5',
                                       l13='1 1 1 1.0', l14='1 2 2 1.0'))
    bench.voxlith('voxlith.inp')


def background(bench):
    write_gravity_survey(bench)
    bench.write('voxlith.inp', control(l2='2 1 0'))
    bench.voxlith('voxlith.inp')


def strict_positivity(bench):
    write_gravity_survey(bench)
    bench.write('voxlith.inp', control(l3='0.01 0.02 2', l12='26'))
    bench.voxlith('voxlith.inp')


def continued(bench):
    write_gravity_survey(bench)
    bench.write('voxlith.inp', control(l2='-1 0 0', l12='4'))
    bench.voxlith('voxlith.inp')
    bench.write('voxlith.inp', control(l1='1', l2='-1 0 0', l12='24'))
    bench.voxlith('voxlith.inp')


def three_layouts(bench):
    """The same sensitivities in each layout of file give the same inversion."""
    models = []
    for form in ('bare', 'record', 'tagged'):
        write_gravity_survey(bench, ['--form', form, '--depth-weight', 'none'])
        bench.write('voxlith.inp', control())
        bench.voxlith('voxlith.inp')
        models.append(open(bench.path('voxlith.den')).read())
    if len(set(models)) != 1:
        raise SystemExit('three_layouts: the layouts of the sensitivity file give different models')


def equivalent_source(bench):
    write_gravity_survey(bench, ['--layers', 1])
    bench.write('voxlith.inp', control(l6='0.0'))
    bench.voxlith('voxlith.inp')


def surface_and_apparent_density(bench):
    write_gravity_survey(bench, ['--layers', 2, '--style', 3])
    bench.write('voxlith.inp', control())
    bench.voxlith('voxlith.inp')


CASES = [two_models, background, strict_positivity, continued, three_layouts, equivalent_source, surface_and_apparent_density]


def masked(text):
    text = re.sub(r'[ \d]\d/\d\d/\d{4}  [\d:]{8}', 'DATE', text)
    text = re.sub(r'(time taken \(mins\): +|OH [A-Za-z_ ]+: +)[\d.*]+', r'\1TIME', text)
    text = re.sub(r'(time, steps\+: ) *[\d.]+', r'\1TIME', text)
    return re.sub(r'(?m)^( {4}[ \d]{8}.{42}) *[\d.]+( +\d+\+)?$', r'\1 TIME\2', text)


def files_of(bench, before):
    files = {}
    screen = ['screen.txt'] if bench.program == 'voxlith' else []
    for name in sorted(os.listdir(bench.folder)):
        if name.startswith('voxlith') and name not in before or name in screen + ['obs_surafce_calc.dat', 'obs_fit_pred.dat']:
            files[name] = masked(open(bench.path(name)).read())
    return files


def difference(want, got):
    for number, (a, b) in enumerate(zip(want.splitlines(), got.splitlines()), 1):
        if a != b:
            return 'line %d\n  stored |%s|\n  now    |%s|' % (number, a, b)
    return 'lengths differ: %d and %d characters' % (len(want), len(got))


def check(case, build, work, accept, program):
    bench = Workbench(build, os.path.join(work, case.__name__))
    bench.program = program
    case(bench)
    got = files_of(bench, {'voxlith.inp'})
    stored = os.path.join(HERE, 'expected', case.__name__)
    if accept:
        shutil.rmtree(stored, ignore_errors=True)
        os.makedirs(stored)
        for name, text in got.items():
            with open(os.path.join(stored, name), 'w') as f:
                f.write(text)
        return []
    want = {name: open(os.path.join(stored, name)).read() for name in sorted(os.listdir(stored))
            if program == 'voxlith' or name != 'screen.txt'}
    problems = ['%s: %s' % (n, 'missing' if n in want else 'not expected') for n in sorted(set(want) ^ set(got))]
    for name in sorted(set(want) & set(got)):
        if want[name] != got[name]:
            problems.append('%s against %s, %s' % (bench.path(name), os.path.join(stored, name), difference(want[name], got[name])))
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True)
    parser.add_argument('--only')
    parser.add_argument('--work')
    parser.add_argument('--program', default='voxlith', choices=['voxlith', 'voxlith-run'])
    parser.add_argument('--accept', action='store_true')
    asked = parser.parse_args()
    if asked.accept and asked.program != 'voxlith':
        parser.error('the stored files are those of voxlith')
    work = asked.work or tempfile.mkdtemp(prefix='voxlith-runs-')
    failed = 0
    for case in CASES:
        if asked.only and asked.only != case.__name__:
            continue
        problems = check(case, asked.build, work, asked.accept, asked.program)
        print('%s: %s' % (case.__name__, 'ok' if not problems else 'FAILED'))
        for problem in problems:
            print('  ' + problem)
        failed += bool(problems)
    if not asked.work:
        shutil.rmtree(work, ignore_errors=True)
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
