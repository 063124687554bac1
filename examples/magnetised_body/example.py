"""A magnetised body recovered from total-field data, with positive susceptibilities.

The mesh has 32 x 32 x 16 cells of 50 m. The 21 x 21 stations are 30 m above it, in an inclined field. The data are
computed by analytical prisms, without the compressed sensitivities of the inversion, and have noise of 2 percent plus 1
nT.
"""
from gallery import Body, Mesh, grid, read_values, write_bodies, write_stations, write_values

MESH = Mesh(32 * [50], 32 * [50], 16 * [50])
BODIES = [Body('intrusion', (600, 950), (650, 950), (150, 400), 0.05)]
FIELD = ((65.0, 10.0, 50000.0), (65.0, 10.0))
PICTURES = ['sections', 'data']

CONTROL = """0                      ! a new run
2 0 0                  ! fixed trade-off, no background removal
30 0.02 1              ! trade-off, -, susceptibilities above zero
tmi.mag                ! observed data
tmi.mtx                ! sensitivities
0.0001                 ! initial model, SI
0.0                    ! reference model
0.0,1.0                ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
60                     ! iterations
"""


def run(bench, report):
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.sus'), MESH.model(BODIES))
    write_bodies(bench.path('true_bodies.json'), MESH, BODIES)
    write_stations(bench.path('stations.mag'), grid(100, 1500, 21, 100, 1500, 21, 30.0), FIELD)
    bench.write('voxlith.inp', CONTROL)
    field = ['--field', '%g,%g,%g' % FIELD[0], '--direction', '%g,%g' % FIELD[1]]
    bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 'stations.mag', '--type', 'tmi', '--model', 'true.sus',
                '--out', 'tmi.mag', '--noise', '2,1.0', '--seed', 2, *field)
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'tmi.mag', '--type', 'tmi', '--out', 'tmi.mtx', *field)
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.2)
    report.bodies(MESH, read_values(bench.path('voxlith.sus')), BODIES, 'SI')
    print('\nThe inversion took %.1f s.' % seconds)
