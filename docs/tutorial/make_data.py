#!/usr/bin/env python3
"""Makes the tables of the tutorials: surveys of our own making over bodies that are known.

    make_data.py --build DIR [--out DIR]

The data come from closed-form prisms on meshes finer than those of the tutorials, with noise of a stated size, rounded to the
decimals that a field table has.
"""
import argparse
import csv
import os
import random
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, '..', '..', 'examples'))
sys.dont_write_bytecode = True
from gallery import Body, Mesh, Workbench, read_data, write_bodies, write_stations, write_values  # noqa: E402

EAST, NORTH = 452000.0, 5318000.0
FIELD = ((62.0, 3.0, 52000.0), (62.0, 3.0))

# A chromite lens in gabbro: a short, dense body with a deeper root to the north-east.
LENS = [Body('lens', (452500, 452750), (5318450, 5318750), (60, 180), 0.8),
        Body('root', (452650, 452900), (5318600, 5318850), (180, 380), 0.6)]
# A magnetite skarn and a thin dyke.
SKARN = [Body('skarn', (452350, 452600), (5318300, 5318600), (80, 260), 0.08),
         Body('dyke', (452900, 453000), (5318200, 5318900), (50, 400), 0.04)]
# Gravity and magnetics: sulphides are dense, an intrusion is magnetic, a skarn is both.
DENSE = [Body('sulphides', (452250, 452450), (5318250, 5318450), (80, 220), 0.7),
         Body('skarn', (452750, 453000), (5318700, 5318900), (80, 280), 0.6)]
MAGNETIC = [Body('intrusion', (452800, 453000), (5318250, 5318450), (80, 240), 0.06),
            Body('skarn', (452750, 453000), (5318700, 5318900), (80, 280), 0.05)]
# Sediments over basement: a dense block and a light basin, the same from the surface to 250 m.
BLOCKS = [Body('dense block', (452200, 452550), (5318500, 5318900), (0, 250), 0.25),
          Body('light basin', (452750, 453050), (5318200, 5318800), (0, 250), -0.20)]


def irregular(step, spread, height, seed):
    """Stations about a grid over a square of 1200 m, as far from it as people walk round a bush; elevations roll gently."""
    source = random.Random(seed)
    out = []
    for j in range(int(1200 / step) + 1):
        for i in range(int(1200 / step) + 1):
            x = min(1200.0, max(0.0, i * step + source.uniform(-spread, spread)))
            y = min(1200.0, max(0.0, j * step + source.uniform(-spread, spread)))
            out.append((round(EAST + x, 1), round(NORTH + y, 1), round(height + 3.0 * (x + y) / 2400 + source.uniform(0, 1), 2)))
    return out


def flight(spacing, along, height):
    """Lines from south to north, with the number of the line and the seconds on it."""
    return [('L%d' % (10 * (n + 1)), 2.0 * m, (EAST + n * spacing, NORTH + m * along, height))
            for n in range(int(1200 / spacing) + 1) for m in range(int(1200 / along) + 1)]


def predicted(bench, stations, kind, bodies, noise, seed, cell=25):
    """Data and deviations by prisms of 25 m below elevation 0, and the outlines of the bodies."""
    count = int(1500 / cell)
    mesh = Mesh(count * [cell], count * [cell], int(500 / cell) * [cell], (EAST - 150, NORTH - 150), 0.0)
    mesh.write(bench.path('fine.msh'))
    write_values(bench.path('fine.mod'), mesh.model(bodies))
    write_stations(bench.path('stations.obs'), stations, FIELD if kind == 'tmi' else None)
    bench.tools('predict', '--mesh', 'fine.msh', '--stations', 'stations.obs', '--type', kind, '--model', 'fine.mod', '--out',
                'data.obs', '--noise', noise, '--seed', seed)
    return mesh, [row[3:5] for row in read_data(bench.path('data.obs'), magnetic=kind == 'tmi')]


def table(path, head, rows):
    with open(path, 'w', newline='') as f:
        writer = csv.writer(f, lineterminator='\n')
        writer.writerow(head)
        writer.writerows(rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--build', required=True)
    parser.add_argument('--out', default=HERE)
    asked = parser.parse_args()
    bench = Workbench(asked.build, tempfile.mkdtemp())
    out = lambda name: os.path.join(asked.out, name)
    place = ('easting_m', 'northing_m', 'elevation_m')

    stations = irregular(80, 15, 2.0, 1)
    mesh, gz = predicted(bench, stations, 'gz', LENS, '0,0.02', 1)
    table(out('gravity.csv'), ('station',) + place + ('gz_mgal', 'error_mgal'),
          [('G%03d' % (n + 1), '%.1f' % x, '%.1f' % y, '%.2f' % z, '%.3f' % d, '%.3f' % s)
           for n, ((x, y, z), (d, s)) in enumerate(zip(stations, gz))])
    write_bodies(out('gravity_bodies.json'), mesh, LENS)

    lines = flight(75, 40, 40.0)
    mesh, tmi = predicted(bench, [place_of for _, _, place_of in lines], 'tmi', SKARN, '0,4', 2)
    table(out('magnetics.csv'), ('line', 'seconds') + place + ('tmi_nt',),
          [(line, '%.1f' % t, '%.1f' % x, '%.1f' % y, '%.1f' % z, '%.1f' % d)
           for (line, t, (x, y, z)), (d, s) in zip(lines, tmi)])
    write_bodies(out('magnetics_bodies.json'), mesh, SKARN)

    stations = irregular(75, 10, 20.0, 3)
    _, gz = predicted(bench, stations, 'gz', DENSE, '0,0.01', 3)
    mesh, tmi = predicted(bench, stations, 'tmi', MAGNETIC, '0,3', 4)
    table(out('joint.csv'), place + ('gz_mgal', 'gz_error', 'tmi_nt', 'tmi_error'),
          [('%.1f' % x, '%.1f' % y, '%.2f' % z, '%.3f' % g[0], '%.3f' % g[1], '%.1f' % t[0], '%.1f' % t[1])
           for (x, y, z), g, t in zip(stations, gz, tmi)])
    write_bodies(out('joint_bodies.json'), mesh, DENSE, MAGNETIC)

    stations = irregular(60, 12, 2.0, 5)
    mesh, gz = predicted(bench, stations, 'gz', BLOCKS, '0,0.02', 5)
    table(out('blocks.csv'), ('station',) + place + ('gz_mgal',),
          [('B%03d' % (n + 1), '%.1f' % x, '%.1f' % y, '%.2f' % z, '%.3f' % d)
           for n, ((x, y, z), (d, s)) in enumerate(zip(stations, gz))])
    write_bodies(out('blocks_bodies.json'), mesh, BLOCKS)


if __name__ == '__main__':
    sys.exit(main())
