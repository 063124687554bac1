"""A remanent, dense body: total field, gravity, and the magnetic field in two boreholes, in one run.

The magnetisation of the body points to the south and upwards, the inducing field to the north and downwards. So the
properties of this stacked run are the three components of the magnetisation and the density. Each data type is fitted
to its own standard deviations. The norm is the sum of amplitudes. Bodies are more compact than with squared amplitudes,
and less than with volumes, which gave a second body that fits noise. The directions of single cells scatter; the
direction of the body is the result. The picture gives the moment summed over all cells: weak magnetisation outside
the body turns it.
"""
import csv

from gallery import Body, Mesh, grid, read_values, write_bodies, write_stations, write_values

PADDING = [120, 70]
MESH = Mesh(PADDING + 12 * [50] + PADDING[::-1], PADDING + 12 * [50] + PADDING[::-1], 8 * [50], (-190.0, -190.0))
DENSE = Body('dense body', (200, 350), (250, 400), (100, 250), 0.4)
MAGNETIC = Body('its magnetisation', (200, 350), (250, 400), (100, 250), 0.05)
FIELD = ((65.0, 10.0, 50000.0), (65.0, 10.0))
INCLINATION, DECLINATION = -20, 200
AXES = ('x', 'y', 'z')
HOLES = [(x, y, -20.0 * n) for x, y in ((425.0, 325.0), (275.0, 475.0)) for n in range(1, 18)]
CONTROL_FILE = 'mixed_compact.inp'
PICTURES = ['vectors', 'stereonet', 'sections_density']


def run(bench, report):
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.den'), MESH.model([DENSE]))
    write_values(bench.path('true.sus'), MESH.model([MAGNETIC]))
    write_bodies(bench.path('true_bodies.json'), MESH, [DENSE])
    stations = grid(25, 575, 12, 25, 575, 12, 20.0)
    write_stations(bench.path('stations.obs'), stations)
    write_stations(bench.path('stations.mag'), stations, FIELD)
    write_stations(bench.path('holes.mag'), HOLES, FIELD)
    remanence = ('--magnetisation=%d,%d' % (INCLINATION, DECLINATION),)
    rows = []
    for seed, (kind, places, model, noise, options) in enumerate((
            ('gz', 'stations.obs', 'true.den', '0,0.01', ()), ('tmi', 'stations.mag', 'true.sus', '0,2', remanence),
            ('tx', 'holes.mag', 'true.sus', '0,4', remanence), ('ty', 'holes.mag', 'true.sus', '0,4', remanence),
            ('tz', 'holes.mag', 'true.sus', '0,4', remanence)), 1):
        survey = ('--mesh', 'mesh.msh', '--type', kind) + (('--boreholes',) if places == 'holes.mag' else ())
        bench.tools('predict', *survey, '--stations', places, '--model', model, *options, '--out', kind + '.obs', '--noise', noise,
                    '--seed', seed)
        rows += ['--rows', kind + '.obs'] + _sensitivities(bench, kind, survey)
    bench.tools('stack', '--properties', 'mx', 'my', 'mz', 'density', '--bounds', *3 * ['-0.05,0.05'], '0,0.5', '--out', 'mixed',
                '--force', '--tolerance', 0.001, *rows)
    bench.tools('compact', '.', '--control', 'mixed.inp', '--norm', 1, '--per-component', '--rounds', 12)
    bench.tools('unstack', '.', '--control', CONTROL_FILE, '--no-vtr')
    print()
    fits = _table(bench, 'components')
    report.components([one['component'] for one in fits], [float(one['rms_misfit']) for one in fits], 1.1)
    report.require(all(float(one['rms_misfit']) > 0.9 for one in fits), 'a type of data is fitted below 0.9 of its errors')
    body = _table(bench, 'bodies')[0]
    report.close('inclination of the body', float(body['inclination']), INCLINATION, 5.0)
    report.close('declination of the body', float(body['declination']), DECLINATION, 5.0)
    report.bodies(MESH, read_values(bench.path('properties/density.mod')), [DENSE], 'g/cm3')
    report.bodies(MESH, read_values(bench.path('properties/amplitude.mod')), [MAGNETIC], 'SI')


def _sensitivities(bench, kind, survey):
    """The sensitivity file of each property, or -."""
    files = []
    for axis in AXES if kind != 'gz' else ['']:
        files.append('%s_%s.mtx' % (kind, axis) if axis else 'gz.mtx')
        bench.tools('mtx', *survey, '--stations', kind + '.obs', '--out', files[-1], '--tolerance', 0.001,
                    *(('--magnetisation', axis) if axis else ()))
    return files + ['-'] if kind != 'gz' else 3 * ['-'] + files


def _table(bench, name):
    with open(bench.path('properties/%s.csv' % name)) as file:
        return list(csv.DictReader(file))
