"""Two dense blocks at different depths, recovered from vertical gravity.

The mesh has 32 x 32 x 16 cells of 50 m. The 21 x 21 stations are 2 m above it. The data are computed by analytical
prisms, without the compressed sensitivities of the inversion, and have noise of 1 percent plus 0.005 mGal.
"""
from gallery import Body, Mesh, grid, read_values, write_bodies, write_stations, write_values

MESH = Mesh(32 * [50], 32 * [50], 16 * [50])
BODIES = [Body('shallow block', (350, 600), (400, 650), (100, 250), 0.5),
          Body('deep block', (950, 1250), (900, 1200), (200, 450), 0.6)]
PICTURES = ['sections', 'data', 'convergence', 'zscores']

CONTROL = """0                      ! a new run
2 0 0                  ! fixed trade-off, no background removal
0.01 0.02 1            ! trade-off, -, densities above zero
gz.obs                 ! observed data
gz.mtx                 ! sensitivities
0.001                  ! initial model, g/cm3
0.0                    ! reference model
0.0,1.0                ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
60                     ! iterations
"""


def run(bench, report):
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.den'), MESH.model(BODIES))
    write_bodies(bench.path('true_bodies.json'), MESH, BODIES)
    write_stations(bench.path('stations.obs'), grid(100, 1500, 21, 100, 1500, 21, 2.0))
    bench.write('voxlith.inp', CONTROL)
    bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 'stations.obs', '--type', 'gz', '--model', 'true.den',
                '--out', 'gz.obs', '--noise', '1,0.005', '--seed', 1)
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'gz.obs', '--type', 'gz', '--out', 'gz.mtx',
                '--depth-weight', '25,2.5')
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.2)
    report.bodies(MESH, read_values(bench.path('voxlith.den')), BODIES, 'g/cm3')
    print('\nThe inversion took %.1f s.' % seconds)
