"""Gravity and magnetics in one run, with a density model and a susceptibility model.

One body is dense, another is magnetic, a third is both. The first definition connects the gravity with model type 1,
"dens", the second the total field with model type 2, "susc", so each model explains its own data. One trade-off applies
to both models: the unit of the second is 0.03 SI (its coefficient is 0.03), so that both have similar magnitudes. Both
files have the same depth weight. The models are written as voxlith_dens.den and voxlith_susc.den: the suffix is that of
the first component.
"""
from gallery import (Body, Mesh, component_rms, grid, read_data, read_values, write_bodies, write_data,
                     write_stations, write_values)

MESH = Mesh(24 * [50], 24 * [50], 12 * [50])
DENSE = [Body('dense', (250, 450), (250, 450), (100, 250), 0.5),
         Body('both', (700, 950), (700, 900), (100, 300), 0.5)]
MAGNETIC = [Body('magnetic', (750, 950), (250, 450), (100, 250), 0.05),
            Body('both', (700, 950), (700, 900), (100, 300), 0.05)]
FIELD = ((65.0, 10.0, 50000.0), (65.0, 10.0))
UNIT = 0.03
PICTURES = ['sections_dens', 'sections_susc']

CONTROL = """0 2 2 2 dens susc      ! a new run: two sensitivity files, two components, two models and their labels
2 0 0                  ! fixed trade-off, no background removal
0.01 0.02 1            ! trade-off, -, values above zero
joint.obs              ! observed data
gz.mtx | tmi.mtx       ! sensitivities
0.001                  ! initial models
0.0                    ! reference models
null                   ! bounds
0.0001 1. 1. 1.        ! alphaS, alphaE, alphaN, alphaZ
null                   ! weighting
null                   ! data offset
150                    ! iterations
1 1 1 1.0
1 2 2 0.03
"""


def run(bench, report):
    stations = grid(150, 1050, 17, 150, 1050, 17, 30.0)
    MESH.write(bench.path('mesh.msh'))
    write_values(bench.path('true.den'), MESH.model(DENSE))
    write_values(bench.path('true.sus'), MESH.model(MAGNETIC))
    write_bodies(bench.path('true_bodies.json'), MESH, DENSE, MAGNETIC)
    write_stations(bench.path('stations.obs'), stations)
    write_stations(bench.path('stations.mag'), stations, FIELD)
    bench.write('voxlith.inp', CONTROL)
    for kind, start, model, noise, seed in (('gz', 'stations.obs', 'true.den', '1,0.005', 1),
                                            ('tmi', 'stations.mag', 'true.sus', '2,1.0', 2)):
        bench.tools('predict', '--mesh', 'mesh.msh', '--stations', start, '--type', kind, '--model', model,
                    '--out', kind + '.obs', '--noise', noise, '--seed', seed)
        bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', start, '--type', kind, '--out', kind + '.mtx',
                    '--depth-weight', '30,3')
    parts = [read_data(bench.path('gz.obs')), read_data(bench.path('tmi.obs'), magnetic=True)]
    write_data(bench.path('joint.obs'), stations, [[row[3:5] for row in part] for part in parts])
    seconds = bench.voxlith('voxlith.inp')
    report.misfit(bench.progress(), 1.4)
    report.components(['gravity', 'total field'], component_rms(
        read_data(bench.path('joint.obs'), 2), read_data(bench.path('voxlith.pre'), 2), 2), 1.3)
    density = read_values(bench.path('voxlith_dens.den'))
    susceptibility = [UNIT * v for v in read_values(bench.path('voxlith_susc.den'))]
    report.bodies(MESH, density, DENSE, 'g/cm3')
    report.bodies(MESH, susceptibility, MAGNETIC, 'SI')
    print()
    # What the other model holds must not leak in: the place of a body of one kind stays almost empty in the other model.
    for words, model, stranger, body in (('density peak where only magnetic', density, MAGNETIC[0], DENSE[0]),
                                         ('susceptibility peak where only dense', susceptibility, DENSE[0], MAGNETIC[0])):
        inside = max(model[p] for p, x, y, d in MESH.cells() if stranger.holds(x, y, d))
        own = max(model[p] for p, x, y, d in MESH.cells() if body.holds(x, y, d))
        report.below(words + ' / own peak', inside / own, 0.2)
    print('\nThe inversion took %.1f s.' % seconds)
