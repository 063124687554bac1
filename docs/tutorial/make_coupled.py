#!/usr/bin/python3
"""Makes the tables of a tutorial, a survey over a dipping body that is dense and magnetic.

    make_coupled.py --build DIR [--out DIR] [--noise FACTOR] [--seed NUMBER]

The tables are coupled_gz.csv, a few gravity stations, coupled_tmi.csv, the total field on a grid, and coupled_holes.csv, two components of the
magnetic field in three vertical boreholes; coupled_bodies.json holds the outlines of the body. The data are those of the cells of the
tutorial that are inside the body, with noise of FACTOR times the usual size.
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

from voxlith import InducingField, Mesh, Survey  # noqa: E402
from voxlith.io.model_file import write_model_file  # noqa: E402

FIELD = InducingField(65.0, 10.0, 50000.0)
DENSITY, SUSCEPTIBILITY = 0.4, 0.04
WEST_TOP, THICKNESS, SOUTH, NORTH, TOP, BOTTOM = 330.0, 140.0, 350.0, 650.0, 80.0, 280.0  # dips to the east by 45 degrees
HOLES = [(400.0, 490.0), (540.0, 490.0), (610.0, 420.0)]
HOLE_OPTIONS = ['--boreholes', '--cavity', '90,0']
NOISE = {'gz': 0.02, 'tmi': 2.0, 'tx': 4.0, 'tz': 4.0}


def is_inside(points):
    """Whether points, shape (n, 3), are in the body."""
    x, y, depth = points[:, 0], points[:, 1], -points[:, 2]
    west = WEST_TOP + depth - TOP
    return (x > west) & (x < west + THICKNESS) & (y > SOUTH) & (y < NORTH) & (depth > TOP) & (depth < BOTTOM)


def grid(count):
    x, y = (a.ravel() for a in np.meshgrid(np.linspace(100, 880, count), np.linspace(100, 880, count)))
    return x, y, np.full(len(x), 20.0)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--build', required=True)
    parser.add_argument('--out', default=HERE)
    parser.add_argument('--noise', type=float, default=1.0)
    parser.add_argument('--seed', type=int, default=3)
    asked = parser.parse_args()
    folder = tempfile.mkdtemp()
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 14 * [70.0], 14 * [70.0], 10 * [40.0])
    mesh.write(os.path.join(folder, 'fine.msh'))
    inside = is_inside(mesh.centres())

    def data(places, kind):
        Survey(*places, np.zeros((1, len(places[0]))), (1,), field=FIELD).write(os.path.join(folder, 's.obs'))
        write_model_file(os.path.join(folder, 'fine.mod'), np.where(inside, DENSITY if kind == 'gz' else SUSCEPTIBILITY, 0.0))
        subprocess.run([os.path.join(os.path.abspath(asked.build), 'tools', 'voxlith-tools'), 'predict', '--mesh', 'fine.msh', '--stations', 's.obs',
                        '--type', kind, '--model', 'fine.mod', '--noise', f'0,{asked.noise * NOISE[kind]}', '--seed',
                        str(asked.seed + list(NOISE).index(kind)), '--out', 'd.obs', *(HOLE_OPTIONS if kind in ('tx', 'tz') else [])],
                       cwd=folder, check=True, stdout=subprocess.DEVNULL)
        return Survey.read(os.path.join(folder, 'd.obs')).data[0]

    def table(name, places, kinds):
        columns = [*places, *(data(places, kind) for kind in kinds), np.full(len(places[0]), asked.noise * NOISE[kinds[0]])]
        formats = ['%.1f'] * 3 + (['%.3f'] * 2 if kinds == ['gz'] else ['%.1f'] * (len(kinds) + 1))
        with open(os.path.join(asked.out, name), 'w', encoding='utf-8') as file:
            file.write(','.join(['x', 'y', 'z', *kinds, 'error']) + '\n')
            for row in zip(*columns):
                file.write(','.join(text % value for text, value in zip(formats, row)) + '\n')

    table('coupled_gz.csv', grid(6), ['gz'])
    table('coupled_tmi.csv', grid(12), ['tmi'])
    depths = np.linspace(20, 380, 13)
    x, y = (np.repeat([hole[axis] for hole in HOLES], len(depths)) for axis in (0, 1))
    table('coupled_holes.csv', (x, y, np.tile(-depths, len(HOLES))), ['tx', 'tz'])
    centres, bodies = mesh.centres()[inside], []
    for elevation in np.unique(centres[:, 2])[::-1]:
        layer = centres[centres[:, 2] == elevation]
        west, south = layer[:, :2].min(axis=0) - 35.0
        east, north = layer[:, :2].max(axis=0) + 35.0
        bodies.append({'name': 'body', 'x': [west, east], 'y': [south, north], 'elevation': [elevation - 20.0, elevation + 20.0]})
    with open(os.path.join(asked.out, 'coupled_bodies.json'), 'w', encoding='utf-8') as file:
        json.dump({'bodies': bodies}, file, indent=1)
        file.write('\n')


if __name__ == '__main__':
    sys.exit(main())
