"""Surface density above apparent density: a thin cover and the rock below, each with its own density per column.

The 50 m thick cover has low-density patches; the 300 m of rock below contain a wide dense block with other edges. A
sensitivity file of style 3 has two unknowns per column. Both come from the same gravity data: short wavelengths belong
to the cover, long ones to the rock. Wavelengths in between are shared, so the recovered contrasts of both are a quarter
too small.
"""
import os

from gallery import Body, Mesh, correlation, grid
from surface_survey import columns_of, invert, measure, write_truth

MESH = Mesh(30 * [50], 30 * [50], [50] + 3 * [100])
COVER = [Body('first patch', (300, 450), (300, 450), (0, 50), -0.4),
         Body('second patch', (1000, 1150), (350, 500), (0, 50), -0.4),
         Body('third patch', (700, 850), (1050, 1200), (0, 50), -0.4)]
ROCK = [Body('dense block', (450, 1000), (500, 950), (50, 350), 0.3)]


def run(bench, report):
    truth = write_truth(bench, MESH, COVER + ROCK)
    measure(bench, grid(125, 1375, 26, 125, 1375, 26, 2.0), 0.01, 7)
    model, seconds = invert(bench, report, 3, 0.005, 100, '--depth-weight', '200,2')
    columns = columns_of(MESH, model)
    report.require(all(min(c[1:]) == max(c[1:]) for c in columns), 'a column has more than one density below the cover')
    report.require(not os.path.exists(bench.path('voxlith_appden.csv')), 'voxlith_appden.csv belongs to styles 1 and 2')
    places = [(y, x) for y in MESH.y for x in MESH.x]
    print()
    report.above('correlation of the cover', correlation([c[0] for c in columns], truth[0::MESH.nz]), 0.75)
    report.above('correlation of the rock', correlation([c[1] for c in columns], truth[1::MESH.nz]), 0.82)
    for layer, bodies in ((0, COVER), (1, ROCK)):
        for body in bodies:
            inner = [c[layer] for c, (y, x) in zip(columns, places) if body.holds(x, y, body.centre()[2], -20.0)]
            report.close('mean density of the %s' % body.name, sum(inner) / len(inner), body.value, 0.35 * abs(body.value))
    print('\nThe inversion took %.1f s.' % seconds)
