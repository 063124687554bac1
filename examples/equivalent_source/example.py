"""A layer of equivalent sources that continues a gravity field upwards.

The field of a high-density and a low-density block is measured at 25 x 25 stations at 60 m. The inversion has one layer
of sources, 50 m thick at the top of its own mesh (style 1), which extends 400 m beyond the stations. The densities
found are not a model of the subsurface, but they have the same field. Their field 150 m and 300 m higher is compared
with the true one. The cells below the top layer keep their initial value of 0, so that they do not contribute.
"""
from gallery import Body, Mesh, grid, read_data, rms, write_stations
from surface_survey import invert, measure, predict, write_truth

GROUND = Mesh(24 * [50], 24 * [50], 12 * [50])
SOURCES = Mesh(40 * [50], 40 * [50], [50, 100, 100], corner=(-400.0, -400.0))
BODIES = [Body('shallow block', (300, 500), (350, 600), (100, 250), 0.5),
          Body('deep block', (650, 950), (650, 900), (200, 450), -0.6)]
MEASURED_AT = 60.0
HIGHER = [210.0, 360.0]
PICTURES = ['sections', 'data']


def run(bench, report):
    write_truth(bench, GROUND, BODIES, 'ground.msh')
    measure(bench, grid(0, 1200, 25, 0, 1200, 25, MEASURED_AT), 0.01, 5, 'ground.msh', 'stations%.0f.obs' % MEASURED_AT)
    SOURCES.write(bench.path('sources.msh'))
    sources, seconds = invert(bench, report, 1, 0.001, 40, mesh_file='sources.msh', unknowns='sources')
    deeper = [abs(v) for p, v in enumerate(sources) if p % SOURCES.nz > 0]
    report.require(max(deeper) == 0.0, 'a cell below the sources has left its starting value')
    print()
    for height in HIGHER:
        stations = 'stations%.0f.obs' % height
        write_stations(bench.path(stations), grid(0, 1200, 25, 0, 1200, 25, height))
        predict(bench, 'ground.msh', 'true.den', stations, 'true%.0f.obs' % height)
        predict(bench, 'sources.msh', 'voxlith.den', stations, 'upward%.0f.obs' % height)
        true = [row[3] for row in read_data(bench.path('true%.0f.obs' % height))]
        found = [row[3] for row in read_data(bench.path('upward%.0f.obs' % height))]
        difference = rms([f - t for f, t in zip(found, true)])
        report.below('RMS difference / RMS field at %.0f m' % height, difference / rms(true), 0.03)
    print('\nThe inversion took %.1f s.' % seconds)
