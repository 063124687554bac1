#!/usr/bin/env python3
"""Makes the tables of a tutorial, a survey over a remanent body: remanent.csv,
remanent_gradients.csv and remanent_bodies.json.

    make_vector.py --build DIR [--out DIR]

The data come from analytical prisms of a dense body whose magnetisation points far from the inducing field, with noise of a
stated size: total field and gravity on a grid, the six gravity gradients on a coarser one.
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

EAST, NORTH = 452000.0, 5318000.0
FIELD = InducingField(65.0, 10.0, 50000.0)
MAGNETISATION, AMPLITUDE, DENSITY = '-20,200', 0.05, 0.4
BODY = {'name': 'body', 'x': [EAST + 300, EAST + 450], 'y': [NORTH + 350, NORTH + 500], 'elevation': [-250, -100]}
GRID, COARSE_GRID = 16, 8
GRADIENTS = ('gxx', 'gyy', 'gzz', 'gxy', 'gxz', 'gyz')


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--build', required=True)
    parser.add_argument('--out', default=HERE)
    asked = parser.parse_args()
    folder = tempfile.mkdtemp()
    mesh = Mesh.from_widths((EAST, NORTH, 0.0), 32 * [25.0], 32 * [25.0], 16 * [25.0])
    mesh.write(os.path.join(folder, 'fine.msh'))
    inside = np.all([(c > low) & (c < high) for c, (low, high) in
                     zip(mesh.centres().T, (BODY['x'], BODY['y'], BODY['elevation']))], axis=0)

    def data(x, y, z, kind, value, noise, seed, *options):
        stations = Survey(x, y, z, np.zeros((1, len(x))), (1,), field=FIELD)
        stations.write(os.path.join(folder, 's.obs'))
        write_model_file(os.path.join(folder, 'fine.mod'), np.where(inside, value, 0.0))
        subprocess.run([os.path.join(os.path.abspath(asked.build), 'tools', 'voxlith-tools'), 'predict', '--mesh', 'fine.msh', '--stations', 's.obs', '--type',
                        kind, '--model', 'fine.mod', '--noise', f'0,{noise}', '--seed', str(seed), '--out', 'd.obs', *options],
                       cwd=folder, check=True, stdout=subprocess.DEVNULL)
        return Survey.read(os.path.join(folder, 'd.obs')).data[0]

    def table(name, head, columns, formats):
        with open(os.path.join(asked.out, name), 'w', encoding='utf-8') as file:
            file.write(head + '\n')
            for row in zip(*columns):
                file.write(','.join(text % value for text, value in zip(formats, row)) + '\n')

    x, y = (a.ravel() for a in np.meshgrid(EAST + np.linspace(25, 775, GRID), NORTH + np.linspace(25, 775, GRID)))
    z = np.full(len(x), 20.0)
    tmi = data(x, y, z, 'tmi', AMPLITUDE, 1.5, 1, '--magnetisation', MAGNETISATION)
    gz = data(x, y, z, 'gz', DENSITY, 0.01, 2)
    table('remanent.csv', 'x,y,z,tmi,tmi_error,gz,gz_error',
          (x, y, z, tmi, np.full(len(x), 1.5), gz, np.full(len(x), 0.01)), ('%.1f', '%.1f', '%.1f', '%.1f', '%.1f', '%.3f', '%.2f'))
    x, y = (a.ravel() for a in np.meshgrid(EAST + np.linspace(75, 725, COARSE_GRID), NORTH + np.linspace(75, 725, COARSE_GRID)))
    z = np.full(len(x), 20.0)
    parts = [data(x, y, z, kind, DENSITY, 0.5, 10 + n) for n, kind in enumerate(GRADIENTS)]
    table('remanent_gradients.csv', ','.join(['x', 'y', 'z', *GRADIENTS, 'error']), (x, y, z, *parts, np.full(len(x), 0.5)),
          ('%.1f', '%.1f', '%.1f', *6 * ['%.2f'], '%.1f'))
    with open(os.path.join(asked.out, 'remanent_bodies.json'), 'w', encoding='utf-8') as file:
        json.dump({'bodies': [BODY]}, file, indent=1)
        file.write('\n')


if __name__ == '__main__':
    sys.exit(main())
