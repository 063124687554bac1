"""A layer of equivalent sources that carries a gravity field to another height.

A dense and a light block make the field; 25 x 25 stations measure it at 60 m. The inversion knows one layer of sources,
50 m thick at the top of its own mesh (style 1), which reaches 400 m further than the stations, and finds densities that
explain the data: no picture of the ground, but they have its field. Computed from them 150 m and 300 m higher, the
field is compared with the true one there. The cells below the top layer keep the starting value, which is 0 so that
they add nothing.
"""
from gallery import Body, Mesh, grid, read_data, read_values, rms, write_bodies, write_stations, write_values

GROUND = Mesh(24 * [50], 24 * [50], 12 * [50])
SOURCES = Mesh(40 * [50], 40 * [50], [50, 100, 100], corner=(-400.0, -400.0))
BODIES = [Body('shallow block', (300, 500), (350, 600), (100, 250), 0.5),
          Body('deep block', (650, 950), (650, 900), (200, 450), -0.6)]
HEIGHTS = [60.0, 210.0, 360.0]
PICTURES = ['sections', 'data']

CONTROL = """0                      ! a new run
2 0 0                  ! fixed trade-off, no background removal
0.001 0.02 0           ! trade-off, -, sources of either sign
gz.obs                 ! observed data
gz.mtx                 ! sensitivities
0.0                    ! initial model, g/cm3
0.0                    ! reference model
null                   ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
40                     ! iterations
"""


def run(bench, report):
    GROUND.write(bench.path('ground.msh'))
    SOURCES.write(bench.path('sources.msh'))
    write_values(bench.path('true.den'), GROUND.model(BODIES))
    write_bodies(bench.path('true_bodies.json'), GROUND, BODIES)
    for height in HEIGHTS:
        write_stations(bench.path('stations%.0f.obs' % height), grid(0, 1200, 25, 0, 1200, 25, height))
        noise = ['--noise', '0,0.01', '--seed', 5] if height == HEIGHTS[0] else []
        bench.tools('predict', '--mesh', 'ground.msh', '--stations', 'stations%.0f.obs' % height, '--type', 'gz',
                    '--model', 'true.den', '--out', 'gz.obs' if noise else 'true%.0f.obs' % height, *noise)
    bench.write('voxlith.inp', CONTROL)
    bench.tools('mtx', '--mesh', 'sources.msh', '--stations', 'gz.obs', '--type', 'gz', '--out', 'gz.mtx', '--style', 1)
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.2)
    sources = read_values(bench.path('voxlith.den'))
    deeper = [abs(v) for p, v in enumerate(sources) if p % SOURCES.nz > 0]
    report.require(max(deeper) == 0.0, 'a cell below the sources has left its starting value')
    print()
    for height in HEIGHTS[1:]:
        bench.tools('predict', '--mesh', 'sources.msh', '--stations', 'stations%.0f.obs' % height, '--type', 'gz',
                    '--model', 'voxlith.den', '--out', 'upward%.0f.obs' % height)
        true = [row[3] for row in read_data(bench.path('true%.0f.obs' % height))]
        found = [row[3] for row in read_data(bench.path('upward%.0f.obs' % height))]
        difference = rms([f - t for f, t in zip(found, true)])
        report.below('RMS difference / RMS field at %.0f m' % height, difference / rms(true), 0.03)
    print('\nThe inversion took %.1f s.' % seconds)
