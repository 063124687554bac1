"""Susceptibilities kept strictly above zero by a logarithmic barrier.

With positivity flag 2 each cell stays at or above 0.00001, and a barrier keeps cells away from that limit while the
model grows. The weight of the barrier decreases after each conjugate-gradient step. The log shows the barrier term of
each iteration.
"""
from gallery import Body, Mesh, grid, read_values, write_bodies, write_stations, write_values

MESH = Mesh(24 * [50], 24 * [50], 12 * [50])
BODIES = [Body('intrusion', (450, 700), (500, 750), (100, 300), 0.05)]
FIELD = ((65.0, 10.0, 50000.0), (65.0, 10.0))
PICTURES = ['sections', 'convergence']

CONTROL = """0                      ! a new run
2 0 0                  ! fixed trade-off, no background removal
30 0.02 2              ! trade-off, -, susceptibilities strictly above zero
tmi.mag                ! observed data
tmi.mtx                ! sensitivities
0.001                  ! initial model, SI
0.0                    ! reference model
null                   ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
60                     ! iterations
"""


def barrier_terms(bench):
    """The starting term and that of each iteration, from the log."""
    with open(bench.path('voxlith.log')) as f:
        return [float(line.split(':')[1]) for line in f if 'initial barrier:' in line or 'model barr:' in line]


def run(bench, report):
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.sus'), MESH.model(BODIES))
    write_bodies(bench.path('true_bodies.json'), MESH, BODIES)
    write_stations(bench.path('stations.mag'), grid(150, 1050, 19, 150, 1050, 19, 30.0), FIELD)
    bench.write('voxlith.inp', CONTROL)
    bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 'stations.mag', '--type', 'tmi', '--model', 'true.sus',
                '--out', 'tmi.mag', '--noise', '2,1.0', '--seed', 9)
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'tmi.mag', '--type', 'tmi', '--out', 'tmi.mtx')
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.3)
    model = read_values(bench.path('voxlith.sus'))
    terms = barrier_terms(bench)
    report.bodies(MESH, model, BODIES, 'SI')
    print()
    # The limit is a single-precision number and the file shows seven digits.
    report.above('smallest susceptibility', min(model), 0.999e-5)
    report.require(len(terms) == 61, 'the log has %d barrier terms, not one a row of the table' % len(terms))
    report.require(all(t >= 0.0 for t in terms), 'a barrier term is below zero')
    report.below('barrier term: last over largest', terms[-1] / max(terms), 0.75)
    print('\nThe inversion took %.1f s.' % seconds)
