"""A real line of gravity and magnetics over the Hamersley province, Western Australia.

113 stations along 112 km. Five commands lead from the file of each data type to sections: subtract the regional field
(gravity) or check the data (magnetics), compute sensitivities, write the control file with depth weighting, invert to
an RMS misfit of 1, draw. The data resolve the model only along the line: away from it, the model norm decides. Data:
Tomofast-x, MIT licence, see examples/hamersley/README.md.
"""
import os
import shutil

from gallery import Workbench, read_data, read_values

HERE = os.path.dirname(os.path.abspath(__file__))
FOLDERS = ['gravity', 'magnetic']
PICTURES = ['sections', 'data']


def run(bench, report):
    gravity = folder(bench, 'gravity', 'gravity.obs')
    gravity.tools('regional', 'gravity.obs', '--order', 1, '--out', 'residual.obs', '--picture', 'regional.png')
    invert(gravity, 'residual.obs', 'gz')
    magnetic = folder(bench, 'magnetic', 'magnetic.mag')
    magnetic.tools('check', 'magnetic.mag')
    invert(magnetic, 'magnetic.mag', 'tmi')
    for name, part, header in (('gravity', gravity, False), ('magnetic', magnetic, True)):
        print('\n%s' % name)
        misfit(report, part.progress())
        predicted = read_data(part.path('voxlith.pre'), 1, header)
        report.above('stations with a prediction', len(predicted), 112)
    density = read_values(gravity.path('voxlith.den'))
    report.below('largest density contrast, g/cm3', max(map(abs, density)), 1.0)
    report.below('largest susceptibility, SI', max(read_values(magnetic.path('voxlith.sus'))), 0.5)


def folder(bench, name, data):
    """A folder for one kind of data, with its files."""
    part = Workbench(bench.build, bench.path(name))
    part.program = 'voxlith-run'
    for source in (data, 'mesh.msh'):
        shutil.copy(os.path.join(HERE, source), part.path(source))
    return part


def invert(bench, data, kind):
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', data, '--type', kind, '--out', 'line.mtx')
    bench.tools('init', '--data', data, '--mtx', 'line.mtx', '--model-norm', 'smooth', '--force')
    bench.voxlith('voxlith.inp', '--target-rms', '1')


def misfit(report, progress):
    final = progress[-1][1]
    print('RMS misfit: %.3f at the start, %.3f at the end' % (progress[0][1], final))
    report.require(0.9 < final < 1.05, 'RMS misfit %.3f is not between 0.9 and 1.05' % final)
