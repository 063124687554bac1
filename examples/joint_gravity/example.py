"""Vertical gravity and its vertical gradient together, explained by one density model.

The attraction is sensitive to the deep block, the gradient to the edges of the shallow one. Each component has its own
sensitivity file. Two definitions at the end of the control file connect both with model type 1. The mesh has 24 x 24 x
12 cells of 50 m. The 17 x 17 stations are 10 m above it, with noise of 1 percent plus 0.005 mGal and 0.5 Eötvös.
"""
from gallery import (Body, Mesh, component_rms, grid, read_data, read_values, write_bodies, write_data,
                     write_stations, write_values)

MESH = Mesh(24 * [50], 24 * [50], 12 * [50])
BODIES = [Body('shallow block', (250, 450), (300, 500), (50, 200), 0.5),
          Body('deep block', (700, 950), (650, 900), (150, 350), 0.6)]
TYPES = [('gz', '1,0.005'), ('gzz', '1,0.5')]

CONTROL = """0 2 2 1                ! a new run: two sensitivity files, two components, one model
2 0 0                  ! fixed trade-off, no background removal
0.01 0.02 1            ! trade-off, -, densities above zero
joint.obs              ! observed data
gz.mtx | gzz.mtx       ! sensitivities
0.001                  ! initial model, g/cm3
0.0                    ! reference model
0.0,1.0                ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
100                    ! iterations
1 1 1 1.0
1 2 1 1.0
"""


def run(bench, report):
    stations = grid(200, 1000, 17, 200, 1000, 17, 10.0)
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.den'), MESH.model(BODIES))
    write_bodies(bench.path('true_bodies.json'), MESH, BODIES)
    write_stations(bench.path('stations.obs'), stations)
    bench.write('voxlith.inp', CONTROL)
    for seed, (kind, noise) in enumerate(TYPES):
        bench.tools('predict', '--mesh', 'mesh.msh', '--stations', 'stations.obs', '--type', kind, '--model', 'true.den',
                    '--out', kind + '.obs', '--noise', noise, '--seed', seed + 1)
        bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 'stations.obs', '--type', kind, '--out', kind + '.mtx',
                    '--depth-weight', '15,2.5')
    parts = [read_data(bench.path(kind + '.obs')) for kind, _ in TYPES]
    write_data(bench.path('joint.obs'), stations, [[row[3:5] for row in part] for part in parts])
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.6)
    report.components([kind for kind, _ in TYPES], component_rms(
        read_data(bench.path('joint.obs'), 2), read_data(bench.path('voxlith.pre'), 2), 2), 1.3)
    report.bodies(MESH, read_values(bench.path('voxlith.den')), BODIES, 'g/cm3')
    print('\nThe inversion took %.1f s.' % seconds)
