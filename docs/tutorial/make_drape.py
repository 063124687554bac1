#!/usr/bin/env python3
"""Makes the survey of a tutorial, a draped magnetic flight over a ridge: drape.csv, drape_dem.tif and drape_bodies.json.

    make_drape.py --build DIR [--out DIR]

The total field comes from an analytical prism below the flank of the ridge, with noise of 2 nT. The helicopter follows the terrain, but not
its short slopes.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, '..', '..', 'python'))
sys.dont_write_bytecode = True
import numpy as np  # noqa: E402
import rasterio  # noqa: E402

from voxlith import Direction, Mesh, Survey  # noqa: E402
from voxlith.earth_field import inducing_field  # noqa: E402

CRS, DATE = 'EPSG:32633', '2024-05-14'
EAST, NORTH, LENGTH = 452000.0, 5318000.0, 1000.0
BODY = {'name': 'intrusion', 'x': [EAST + 540, EAST + 700], 'y': [NORTH + 400, NORTH + 640], 'elevation': [340, 480]}
SUSCEPTIBILITY, NOISE, CLEARANCE = 0.06, 2.0, 50.0
LINES, STATIONS = 14, 21


def ground(x, y, smooth=0.0):
    """Elevation of a ridge that strikes to the north-north-east; `smooth` widens it, metres."""
    across = (x - EAST - 420.0) - 0.25 * (y - NORTH - 500.0)
    width = np.hypot(190.0, smooth)
    return 480.0 + 170.0 * (190.0 / width) * np.exp(-0.5 * (across / width) ** 2) + 0.03 * (y - NORTH)


def write_terrain(path):
    pixel, count = 25.0, 96
    west, north = EAST - 700.0, NORTH + 1700.0
    columns, rows = np.meshgrid(np.arange(count) + 0.5, np.arange(count) + 0.5)
    values = np.round(ground(west + pixel * columns, north - pixel * rows), 1).astype('float32')
    with rasterio.open(path, 'w', driver='GTiff', width=count, height=count, count=1, dtype='float32', crs=CRS,
                       transform=rasterio.Affine(pixel, 0, west, 0, -pixel, north), compress='deflate') as target:
        target.write(values, 1)


def flight():
    """Line names, x, y and elevation of the sensor: lines to the east and back, 75 m apart."""
    source = np.random.default_rng(21)
    lines, x, y = [], [], []
    for line in range(LINES):
        along = np.linspace(10.0, LENGTH - 10.0, STATIONS)[:: 1 if line % 2 == 0 else -1]
        x.append(EAST + along + source.uniform(-4.0, 4.0, STATIONS))
        y.append(NORTH + 12.0 + 75.0 * line + source.uniform(-8.0, 8.0, STATIONS))
        lines += STATIONS * ['L%d' % (100 + 10 * line)]
    x, y = np.round(np.concatenate(x), 1), np.round(np.concatenate(y), 1)
    drape = np.maximum(ground(x, y, 90.0), ground(x, y) - 10.0)
    return lines, x, y, np.round(drape + CLEARANCE + source.uniform(-3.0, 3.0, x.size), 1)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--build', required=True)
    parser.add_argument('--out', default=HERE)
    asked = parser.parse_args()
    write_terrain(os.path.join(asked.out, 'drape_dem.tif'))
    lines, x, y, z = flight()
    places = Survey(x, y, z, np.zeros((1, x.size)), (1,))
    field = inducing_field(places, CRS, DATE)
    stations = Survey(x, y, z, np.zeros((1, x.size)), (1,), field=field, direction=Direction(field.inclination, field.declination))
    with tempfile.TemporaryDirectory() as folder:
        (west, east), (south, north), (bottom, top) = (BODY[axis] for axis in ('x', 'y', 'elevation'))
        Mesh.from_widths((west, south, top), [east - west], [north - south], [top - bottom]).write(os.path.join(folder, 'body.msh'))
        stations.write(os.path.join(folder, 'places.mag'))
        subprocess.run([os.path.join(os.path.abspath(asked.build), 'tools', 'voxlith-tools'), 'predict', '--mesh', 'body.msh', '--stations',
                        'places.mag', '--type', 'tmi', '--model', str(SUSCEPTIBILITY), '--out', 'made.mag'],
                       cwd=folder, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        data = Survey.read(os.path.join(folder, 'made.mag')).data[0]
    data = data + np.random.default_rng(22).normal(0.0, NOISE, data.size)
    with open(os.path.join(asked.out, 'drape.csv'), 'w', encoding='ascii') as file:
        file.write('line,easting_m,northing_m,gps_m,radar_m,tmi_nt\n')
        for name, *values in zip(lines, x, y, z, np.maximum(z - ground(x, y), 0.0), data):
            file.write('%s,%.1f,%.1f,%.1f,%.1f,%.1f\n' % (name, *values))
    with open(os.path.join(asked.out, 'drape_bodies.json'), 'w', encoding='ascii') as file:
        json.dump({'bodies': [dict(BODY, model=1)]}, file, indent=1)
        file.write('\n')


if __name__ == '__main__':
    sys.exit(main())
