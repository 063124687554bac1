"""A gradiometer that averages along its flight lines, with lines and tie lines over a small body.

Each datum is the mean of the vertical gradient over 400 m of the line, eight stations long. Along a line from the west
the anomaly is smeared east-west, along a tie line north-south. The fourth number on line 3 of the control file sets
this interval. Without it no model can explain both directions at once, as the second run shows. The means are computed
from predictions every 10 m, so that the synthetic data do not depend on the averaging in the run. Data closer than half
the interval to the end of their line have no complete window and are left out.
"""
from gallery import Body, Mesh, noisy, read_data, read_values, write_bodies, write_data, write_stations, write_values

MESH = Mesh(28 * [50], 28 * [50], 10 * [50])
BODIES = [Body('small block', (600, 800), (650, 800), (100, 250), 0.5)]
FIRST, LAST, STEP, FINE, INTERVAL, HEIGHT = 100, 1300, 50, 10, 400, 40.0
PLACES = range(350, 1051, 100)
LINES = [('L%04d' % at, at, True) for at in PLACES] + [('T%04d' % at, at, False) for at in PLACES]
PICTURES = ['profiles', 'sections']

CONTROL = """0                      ! a new run
2 0 0                  ! fixed trade-off, no background removal
0.01 0.02 1 %s ! trade-off, -, densities above zero, integration interval
lines.obs              ! observed data
gzz.mtx                ! sensitivities
0.001                  ! initial model, g/cm3
0.0                    ! reference model
0.0,1.0                ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
50                     ! iterations
"""


def place(line, along):
    _, at, east = line
    return (along, at, HEIGHT) if east else (at, along, HEIGHT)


def mean_of(fine, along):
    """The mean over the interval round a point of a line by the trapezoidal rule; None where it runs over an end."""
    first, last = along - INTERVAL // 2, along + INTERVAL // 2
    if first < FIRST or last > LAST:
        return None
    part = fine[(first - FIRST) // FINE:(last - FIRST) // FINE + 1]
    return (sum(part) - 0.5 * (part[0] + part[-1])) * FINE / INTERVAL


def run(bench, report):
    fine_points = range(FIRST, LAST + 1, FINE)
    points = range(FIRST, LAST + 1, STEP)
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.den'), MESH.model(BODIES))
    write_bodies(bench.path('true_bodies.json'), MESH, BODIES)
    write_stations(bench.path('fine.obs'), [place(line, a) for line in LINES for a in fine_points])
    bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 'fine.obs', '--type', 'gzz', '--model', 'true.den',
                '--out', 'fine_gzz.obs')
    fine = [row[3] for row in read_data(bench.path('fine_gzz.obs'))]
    means = []
    for k in range(len(LINES)):
        along_line = fine[k * len(fine_points):(k + 1) * len(fine_points)]
        means += [mean_of(along_line, a) for a in points]
    data = noisy([m or 0.0 for m in means], len(means) * [0.2], 4)
    data = [(None if mean is None else d, s) for mean, (d, s) in zip(means, data)]
    write_data(bench.path('lines.obs'), [place(line, a) for line in LINES for a in points], [data],
               lines=[(line[0], a) for line in LINES for a in points])
    bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'lines.obs', '--type', 'gzz', '--out', 'gzz.mtx')

    bench.write('voxlith.inp', CONTROL % '')
    bench.voxlith('voxlith.inp')
    without = bench.progress()
    bench.write('voxlith.inp', CONTROL % INTERVAL)
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.2)
    report.above('RMS misfit without the interval / with it', without[-1][1] / bench.progress()[-1][1], 2.0)
    report.bodies(MESH, read_values(bench.path('voxlith.den')), BODIES, 'g/cm3')
    print('\nThe inversion with the interval took %.1f s.' % seconds)
