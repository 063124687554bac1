"""The amplitude of the magnetic anomaly, which hardly depends on the direction of magnetisation.

Three sensitivity files contain the components tx, ty and tz. One definition with the word RMS combines their
predictions as sqrt(tx^2 + ty^2 + tz^2). The data are combined in the same way from three predictions by analytical
prisms, with noise of 1 nT. A run divides by standard deviations only as many sensitivity files as it has components,
here one. Therefore the standard deviation of all data is 1.
"""
from gallery import (Body, Mesh, grid, noisy, read_data, read_values, write_bodies, write_data, write_stations,
                     write_values)

MESH = Mesh(24 * [50], 24 * [50], 12 * [50])
BODIES = [Body('intrusion', (450, 700), (500, 750), (100, 300), 0.05)]
FIELD = ((30.0, 10.0, 50000.0), (30.0, 10.0))
KINDS = ['tx', 'ty', 'tz']

CONTROL = """0 3 1 1                ! a new run: three sensitivity files, one component, one model
2 0 0                  ! fixed trade-off, no background removal
30 0.02 1              ! trade-off, -, susceptibilities above zero
amplitude.mag          ! observed data
tx.mtx | ty.mtx | tz.mtx
0.001                  ! initial model, SI
0.0                    ! reference model
0.0,1.0                ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
60                     ! iterations
3 1 1 1.0 2 1 1.0 3 1 1.0 RMS
"""


def run(bench, report):
    stations = grid(150, 1050, 19, 150, 1050, 19, 30.0)
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.sus'), MESH.model(BODIES))
    write_bodies(bench.path('true_bodies.json'), MESH, BODIES)
    write_stations(bench.path('stations.mag'), stations, FIELD)
    bench.write('voxlith.inp', CONTROL)
    for kind in KINDS:
        bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 'stations.mag', '--type', kind, '--model', 'true.sus',
                    '--out', kind + '.mag')
        bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'stations.mag', '--type', kind, '--out', kind + '.mtx')
    parts = [read_data(bench.path(kind + '.mag'), magnetic=True) for kind in KINDS]
    amplitude = [sum(row[3] ** 2 for row in rows) ** 0.5 for rows in zip(*parts)]
    write_data(bench.path('amplitude.mag'), stations, [noisy(amplitude, len(amplitude) * [1.0], 3)], FIELD)
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.2)
    report.bodies(MESH, read_values(bench.path('voxlith.sus')), BODIES, 'SI')
    print('\nThe inversion took %.1f s.' % seconds)
