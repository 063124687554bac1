"""Apparent density: one density per column from the surface to the bottom of the mesh, as a map.

The true model is 300 m of rock whose density varies horizontally but not with depth: a dense square, and a strip of low
density. With a sensitivity file of style 2 each column has a single unknown. The run writes the density below each
station to voxlith_appden.csv, which is compared with the truth. The table contains the values of the optimiser's
variable, which include the depth weight. A single layer needs no depth weight, so the file is made without one and the
table contains densities.
"""
from gallery import Body, Mesh, correlation, grid, rms
from surface_survey import columns_of, invert, measure, write_truth

MESH = Mesh(30 * [50], 30 * [50], 6 * [50])
BODIES = [Body('dense square', (300, 650), (700, 1050), (0, 300), 0.30),
          Body('low-density strip', (950, 1200), (300, 1200), (0, 300), -0.20)]


def true_density(x, y):
    return sum(body.value for body in BODIES if body.holds(x, y, 1.0))


def run(bench, report):
    write_truth(bench, MESH, BODIES)
    measure(bench, grid(125, 1375, 26, 125, 1375, 26, 2.0), 0.02, 6)
    model, seconds = invert(bench, report, 2, 0.003, 60, '--depth-weight', 'none')
    columns = columns_of(MESH, model)
    report.require(all(min(c) == max(c) for c in columns), 'a column has more than one density')
    with open(bench.path('voxlith_appden.csv')) as f:
        rows = [[float(word) for word in line.split(',')] for line in f.readlines()[1:]]
    report.require(len(rows) == 26 * 26, 'voxlith_appden.csv has %d rows' % len(rows))
    true = [true_density(x, y) for _, x, y, _ in rows]
    found = [value for _, _, _, value in rows]
    print()
    report.above('correlation with the true map', correlation(true, found), 0.95)
    report.below('RMS error / RMS density', rms([f - t for f, t in zip(found, true)]) / rms(true), 0.3)
    for body in BODIES:
        inner = [value for _, x, y, value in rows if body.holds(x, y, 150.0, -75.0)]
        report.close('mean density inside the %s' % body.name, sum(inner) / len(inner), body.value, 0.1 * abs(body.value))
    # Stations stand on cell centres, so the table shows the model itself.
    cell = {(x, y): columns[j * MESH.nx + i][0] for j, y in enumerate(MESH.y) for i, x in enumerate(MESH.x)}
    report.require(max(abs(cell[x, y] - value) for _, x, y, value in rows) < 2e-6, 'table and model differ at cell centres')
    print('\nThe inversion took %.1f s.' % seconds)
