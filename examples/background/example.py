"""A constant offset and a dense surface layer, removed from the data before the inversion starts.

The data are the sum of the field of a block, that of a top layer 0.3 g/cm³ denser than assumed, and a constant offset
of 12 mGal. The first run fits the response of the top layer, which sensitivity files of version 2 contain, to the data
and removes the fit (background 1). The second run is given the density (background 2). Without removal, a run can
explain the constant offset only by cells, and fails. Stations extend beyond the edge of the mesh, so that the response
of the layer varies.
"""
from gallery import (Body, Mesh, grid, noisy, read_data, read_values, write_bodies, write_data, write_stations,
                     write_values)

MESH = Mesh(32 * [50], 32 * [50], 12 * [50])
LAYER = Body('top layer', (0, 1600), (0, 1600), (0, 50), 0.3)
BODIES = [Body('block', (550, 750), (600, 800), (100, 250), 0.5)]
LEVEL = 12.0
PICTURES = ['data', 'sections']

CONTROL = """0                      ! a new run
2 %d %g                ! fixed trade-off, background removal, background value
0.01 0.02 0            ! trade-off, -, densities of either sign
gz.obs                 ! observed data
gz.mtx                 ! sensitivities
0.0                    ! initial model, g/cm3
0.0                    ! reference model
null                   ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
50                     ! iterations
"""


def value_removed(bench):
    with open(bench.path('voxlith.log')) as f:
        found = [line.split(':')[1] for line in f if 'Background Value Removed:' in line]
    return float(found[0]) if len(found) == 1 else float('nan')


def level_removed(bench):
    """Mean of what was taken off, from obs_fit_pred.dat: number, x, y, z, observed, fitted, difference."""
    with open(bench.path('obs_fit_pred.dat')) as f:
        fitted = [float(line.split()[5]) for line in f.readlines()[1:]]
    return sum(fitted) / len(fitted)


def run(bench, report):
    stations = grid(-100, 1700, 25, -100, 1700, 25, 5.0)
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.den'), MESH.model([LAYER] + BODIES))
    write_bodies(bench.path('true_bodies.json'), MESH, BODIES)
    write_stations(bench.path('stations.obs'), stations)
    bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 'stations.obs', '--type', 'gz', '--model', 'true.den',
                '--out', 'field.obs')
    field = [row[3] + LEVEL for row in read_data(bench.path('field.obs'))]
    data = noisy(field, len(field) * [0.02], 8)
    write_data(bench.path('gz.obs'), stations, [data])
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'gz.obs', '--type', 'gz', '--out', 'gz.mtx',
                '--depth-weight', '25,2.5', '--version', 2)
    bench.write('voxlith.inp', CONTROL % (0, 0.0))
    bench.voxlith('voxlith.inp')
    untouched = bench.progress()[-1][1]
    mean = sum(d for d, _ in data) / len(data)
    for mode, words, margin in ((1, 'background value, fitted', 0.05), (2, 'background value, given', 1e-4)):
        bench.write('voxlith.inp', CONTROL % (mode, LAYER.value))
        seconds = bench.voxlith('voxlith.inp')
        report.misfit(bench.progress(), 1.3)
        report.above('RMS misfit without removal / with it', untouched / bench.progress()[-1][1], 3.0)
        report.close(words, value_removed(bench), LAYER.value, margin)
        report.close('mean of the fit, mGal', level_removed(bench), mean, 0.001)
        report.bodies(MESH, read_values(bench.path('voxlith.den')), BODIES, 'g/cm3')
    print('\nEach inversion took about %.1f s.' % seconds)
