"""Small runs of the real programs, each made once; a test that changes files works in a copy."""
import contextlib
import functools
import io
import os
import shutil
import tempfile

from gallery import (Body, Mesh, Workbench, grid, noisy, read_data, write_bodies, write_data, write_stations,
                     write_values)
from voxlith_plot import command

BUILD = None
ROOT = tempfile.mkdtemp(prefix='voxlith-plot-tests-')
SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'tools', 'plot', 'voxlith-plot')

MESH = Mesh(8 * [100], 6 * [100], 4 * [80], corner=(1000.0, 2000.0), top=120.0)
BODIES = [Body('block', (1250, 1450), (2150, 2350), (80, 240), 0.5)]
STATIONS = grid(1050, 1750, 7, 2050, 2550, 6, 125.0)
FIELD = ((60.0, 5.0, 50000.0), (60.0, 5.0))


def control(**changed):
    """Lines of a control file; l12='30' changes line 12."""
    lines = ['0', '2 0 0', '0.01 0.02 0', 'd.obs', 'g.mtx', '0.001', '0.0', 'null', '0.0001 1. 1. 1.', 'null', 'null',
             '14']
    for number, text in changed.items():
        at = int(number[1:]) - 1
        lines += [''] * (at + 1 - len(lines))
        lines[at] = text
    return '\n'.join(lines) + '\n'


def lay(bench, kind='gz', stations=STATIONS, data='d.obs', mtx='g.mtx', masked=(), options=(), lines=None):
    """Data of a kind with noise, some masked, and their sensitivity file."""
    field = FIELD if kind in ('tmi', 'tx', 'ty', 'tz') else None
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.mod'), MESH.model(BODIES))
    write_bodies(bench.path('true_bodies.json'), MESH, BODIES)
    write_stations(bench.path('s.obs'), stations, field)
    bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 's.obs', '--type', kind, '--model', 'true.mod',
                '--out', 'exact')
    exact = [row[3] for row in read_data(bench.path('exact'), magnetic=bool(field))]
    deviation = 0.05 * max(abs(v) for v in exact)
    column = [(None if i in masked else d, s) for i, (d, s) in enumerate(noisy(exact, len(exact) * [deviation], 3))]
    write_data(bench.path(data), stations, [column], field, lines)
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 's.obs', '--type', kind, '--out', mtx, *options)
    return column


def gravity(bench):
    """Masked data, stored models, conjugate gradients."""
    lay(bench, masked=(3, 17))
    bench.write('voxlith.inp', control(l12='30 5'))
    bench.voxlith('voxlith.inp')


def magnetic(bench):
    """Keywords that change data and deviations."""
    column = lay(bench, 'tmi')
    highest = max(d for d, _ in column)
    bench.write('voxlith.inp', control(l3='30 0.02 1'))
    bench.voxlith('voxlith.inp', 'Misfit=(5,2)', 'Offset=2.5', 'ObsClip=(-1000,%.3f)' % (highest - 1e-3))


def joint(bench):
    """Two components, two labelled models, each with masked data of its own."""
    first = lay(bench, masked=(3, 5))
    second = lay(bench, 'tmi', data='d.mag', mtx='t.mtx', masked=(5, 8))
    write_data(bench.path('both.obs'), STATIONS, [first, second])
    bench.write('voxlith.inp', control(l1='0 2 2 2 dens susc', l4='both.obs', l5='g.mtx|t.mtx', l12='14 5',
                                       l13='1 1 1 1.0', l14='1 2 2 0.5'))
    bench.voxlith('voxlith.inp')


def barrier(bench):
    lay(bench)
    bench.write('voxlith.inp', control(l3='0.01 0.02 2', l12='26'))
    bench.voxlith('voxlith.inp')


def continued(bench):
    lay(bench)
    bench.write('voxlith.inp', control(l12='4'))
    bench.voxlith('voxlith.inp')
    bench.write('voxlith.inp', control(l1='1', l12='24', l3='0.02 0.02 0'))
    bench.voxlith('voxlith.inp')


def surface(bench):
    """Two unknowns a column."""
    lay(bench, options=['--style', '3'])
    bench.write('voxlith.inp', control())
    bench.voxlith('voxlith.inp')


def apparent(bench):
    """One unknown a column."""
    lay(bench, options=['--style', '2', '--depth-weight', 'none'])
    bench.write('voxlith.inp', control())
    bench.voxlith('voxlith.inp')


def lines(bench):
    """Data averaged along named lines, whose ends have no whole window."""
    stations = [(x, y, 125.0) for y in (2150, 2250, 2350) for x in range(1050, 1751, 50)]
    named = [('L%d' % s[1], s[0]) for s in stations]
    masked = [i for i, s in enumerate(stations) if not 1150 <= s[0] <= 1650]
    lay(bench, stations=stations, masked=masked, lines=named)
    bench.write('voxlith.inp', control(l3='0.01 0.02 0 200'))
    bench.voxlith('voxlith.inp')


def oblique(bench):
    """All stations on one line across the mesh."""
    lay(bench, stations=[(1050 + 35.0 * i, 2050 + 25.0 * i, 125.0) for i in range(20)])
    bench.write('voxlith.inp', control())
    bench.voxlith('voxlith.inp')


ALL = (gravity, magnetic, joint, barrier, continued, surface, apparent, lines, oblique)


@functools.lru_cache(maxsize=None)
def made(case):
    bench = Workbench(BUILD, os.path.join(ROOT, case.__name__))
    with contextlib.redirect_stdout(io.StringIO()):
        case(bench)
    return bench.folder


def copy(case):
    """A copy of a run that a test may spoil."""
    folder = tempfile.mkdtemp(dir=ROOT, prefix=case.__name__ + '-')
    shutil.copytree(made(case), folder, dirs_exist_ok=True)
    return folder


def plot(*arguments):
    """Runs the command line: (exit status, its output, its errors)."""
    said, errors = io.StringIO(), io.StringIO()
    with contextlib.redirect_stdout(said), contextlib.redirect_stderr(errors):
        try:
            status = command.main([str(argument) for argument in arguments])
        except SystemExit as end:
            status = end.code
    return status, said.getvalue(), errors.getvalue()


def read(folder, name):
    with open(os.path.join(folder, name)) as f:
        return f.read()


def write(folder, name, text):
    with open(os.path.join(folder, name), 'w') as f:
        f.write(text)
