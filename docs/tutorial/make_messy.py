#!/usr/bin/env python3
"""Makes the messy survey of a tutorial: messy.csv, messy_dem.tif and messy_bodies.json.

    make_messy.py --build DIR [--out DIR]

The data come from analytical prisms of a body below a hilly terrain, with noise of 0.02 mGal. Then they get what real tables have:
degrees, semicolons, decimal commas, missing values, a no-data code, a duplicate station, a constant offset and a slope.
"""
import argparse
import json
import os
import random
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, '..', '..', 'python'))
sys.dont_write_bytecode = True
import numpy as np  # noqa: E402
import rasterio  # noqa: E402

from voxlith import Survey  # noqa: E402
from voxlith.crs import longitude_latitude  # noqa: E402

CRS = 'EPSG:32633'
EAST, NORTH = 452000.0, 5318000.0
BODY = {'name': 'lens', 'x': [452500, 452750], 'y': [5318450, 5318700], 'elevation': [190, 330]}
CONTRAST, NOISE = 0.8, 0.02


def ground(x, y):
    """Elevation: a hill and a valley."""
    u, v = (x - EAST) / 1200.0, (y - NORTH) / 1200.0
    return 430.0 + 25.0 * np.sin(3.0 * u + 0.5) * np.cos(2.5 * v) + 12.0 * v


def write_terrain(path):
    pixel, count = 25.0, 112
    west, north = EAST - 800.0, NORTH + 2000.0
    columns, rows = np.meshgrid(np.arange(count) + 0.5, np.arange(count) + 0.5)
    values = np.round(ground(west + pixel * columns, north - pixel * rows), 1).astype('float32')
    with rasterio.open(path, 'w', driver='GTiff', width=count, height=count, count=1, dtype='float32', crs=CRS,
                       transform=rasterio.Affine(pixel, 0, west, 0, -pixel, north), compress='deflate') as target:
        target.write(values, 1)


def stations():
    source = random.Random(11)
    out = [(EAST + 80 * i + source.uniform(-12, 12), NORTH + 80 * j + source.uniform(-12, 12))
           for j in range(16) for i in range(16)]
    x, y = np.round(np.array(out).T, 1)
    return x, y, np.round(ground(x, y), 2)


def attraction(build, folder, x, y, z):
    """Gravity of the body, mGal."""
    west, east = BODY['x']
    south, north = BODY['y']
    bottom, top = BODY['elevation']
    mesh = os.path.join(folder, 'body.msh')
    with open(mesh, 'w') as f:
        f.write('1 1 1\n%g %g %g\n%g\n%g\n%g\n' % (west, south, top, east - west, north - south, top - bottom))
    places = os.path.join(folder, 'places.obs')
    Survey(x, y, z, np.zeros((1, len(x))), (0,)).write(places)
    made = os.path.join(folder, 'made.obs')
    subprocess.run([os.path.join(build, 'tools', 'voxlith-tools'), 'predict', '--mesh', mesh, '--stations', places, '--type', 'gz',
                    '--model', str(CONTRAST), '--out', made], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return Survey.read(made).data[0]


def main():
    import tempfile
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--build', required=True)
    parser.add_argument('--out', default=HERE)
    asked = parser.parse_args()
    write_terrain(os.path.join(asked.out, 'messy_dem.tif'))
    x, y, z = stations()
    with tempfile.TemporaryDirectory() as folder:
        data = attraction(asked.build, folder, x, y, z)
    data = data + np.random.default_rng(12).normal(0.0, NOISE, len(data))
    data = data + 12.0 + 0.0012 * (x - EAST) - 0.0006 * (y - NORTH)
    words = ['%.3f' % value for value in data]
    words[60], words[61], words[62], words[121] = '-9999.0', '', '', 'NA'
    longitude, latitude = longitude_latitude(x, y, CRS)
    rows = [['P%03d' % (n + 1), '%.7f' % a, '%.7f' % b, '%.2f' % h, d, '%.3f' % NOISE]
            for n, (a, b, h, d) in enumerate(zip(longitude, latitude, z, words))]
    again = list(rows[88])
    again[0], again[4] = 'P257', '%.3f' % (data[88] + 63 * NOISE)
    rows.append(again)
    with open(os.path.join(asked.out, 'messy.csv'), 'w') as f:
        f.write('Station;Lon;Lat;Height;g;err\n')
        f.writelines(';'.join(row).replace('.', ',') + '\n' for row in rows)
    with open(os.path.join(asked.out, 'messy_bodies.json'), 'w') as f:
        json.dump({'bodies': [dict(BODY, model=1)]}, f, indent=1)
        f.write('\n')


if __name__ == '__main__':
    sys.exit(main())
