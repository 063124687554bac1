"""Surveys of any size for timing: the rows of a small survey of voxlith-tools, repeated with values of their own.

A run takes as long over repeated rows as over computed ones, and a file of a gigabyte is written in seconds. Needs numpy.
"""
import os
import struct
import subprocess

import numpy as np

CELL = 50.0    # metres
ELEVATION = 25.0
BASE_SIDE = 16  # stations along each side of the survey whose rows are repeated


class TaggedFile:
    """The parts of a sensitivity file of the tagged form, version 2."""

    def __init__(self, path):
        with open(path, 'rb') as f:
            self.data = f.read()
        magic, version, self.type, self.stations = struct.unpack_from('<4siii', self.data, 0)
        if magic != b'VX3D' or version != 2:
            raise RuntimeError(path + ': expected a tagged file of version 2')
        self.field = self.data[16:40]
        self.table = np.frombuffer(self.data, '<u1', 28 * self.stations, 40).reshape(self.stations, 28)
        start = 40 + 28 * self.stations
        self.ny, self.nx, self.nz, _, _, _, taps = struct.unpack_from('<7i', self.data, start)
        self.cells = self.nx * self.ny * self.nz
        rows = start + 28 + 8 * taps + 8 * (self.nx + self.ny + self.nz + 3) + 8 + 4 * self.cells
        self.mesh = self.data[start:rows]
        self.rows, at = [], rows
        for _ in range(self.stations):
            count, = struct.unpack_from('<i', self.data, at)
            self.rows.append((self.data[at:at + 4 + 4 * count],
                              np.frombuffer(self.data, '<f4', count, at + 4 + 4 * count)))
            at += 4 + 8 * count
        self.diagonal = np.frombuffer(self.data, '<f8', self.cells, at)
        self.tail = self.data[at + 8 * self.cells:]  # style, then layer responses, one column a station

    def write_repeated(self, path, coefficients):
        """Writes rows until there are at least this many coefficients. Returns (stations, coefficients, bytes)."""
        lengths = [len(values) for _, values in self.rows]
        chosen, total = [], 0
        while total < coefficients:
            row = len(chosen) % self.stations
            chosen.append(row)
            total += lengths[row]
        with open(path, 'wb') as f:
            f.write(struct.pack('<4siii', b'VX3D', 2, self.type, len(chosen)) + self.field)
            f.write(self.table[chosen].tobytes() + self.mesh)
            for n, row in enumerate(chosen):
                head, values = self.rows[row]
                f.write(head + (values * np.float32(1.0 + 0.1 * np.sin(0.7 * n))).tobytes())
            f.write((self.diagonal * (len(chosen) / self.stations)).tobytes())
            layers = (len(self.tail) - 4) // self.stations
            f.write(self.tail[:4])
            f.write(b''.join(self.tail[4 + layers * row:4 + layers * (row + 1)] for row in chosen))
            size = f.tell()
        self.chosen = chosen
        return len(chosen), total, size

    def write_data(self, path):
        """Data for the rows written last: a high over the middle of the survey, with differences from row to row."""
        position = np.frombuffer(self.table[self.chosen][:, :24].tobytes(), '<f8').reshape(-1, 3)
        x, y = (position[:, axis] / (CELL * n) - 0.5 for axis, n in ((0, self.nx), (1, self.ny)))
        value = np.exp(-12.0 * (x * x + y * y)) + 0.02 * np.cos(1.3 * np.arange(len(position)))
        with open(path, 'w') as f:
            f.write('%d\n' % len(position))
            f.writelines('%.2f %.2f %.2f %.5f 0.05\n' % (*p, v) for p, v in zip(position, value))


def base_file(tools, folder, nx, ny, nz, tolerance=0.01, side=BASE_SIDE):
    """The small survey over this mesh, computed once."""
    name = os.path.join(folder, 'base-%d-%d-%d-%d-%g' % (nx, ny, nz, side, tolerance))
    if not os.path.exists(name + '.mtx'):
        with open(name + '.msh', 'w') as f:
            f.write('%d %d %d\n0 0 0\n%d*%g\n%d*%g\n%d*%g\n' % (nx, ny, nz, nx, CELL, ny, CELL, nz, CELL))
        with open(name + '.obs', 'w') as f:
            f.write('%d\n' % (side * side))
            for j in range(side):
                for i in range(side):
                    f.write('%.2f %.2f %g\n' % (CELL * nx * (0.05 + 0.9 * i / (side - 1)),
                                                CELL * ny * (0.05 + 0.9 * j / (side - 1)), ELEVATION))
        subprocess.run([tools, 'mtx', '--mesh', name + '.msh', '--stations', name + '.obs', '--type', 'gz', '--tolerance',
                        str(tolerance), '--out', name + '.part'], check=True, stdout=subprocess.DEVNULL)
        os.rename(name + '.part', name + '.mtx')
    return TaggedFile(name + '.mtx')


def write_run(folder, iterations):
    """The control file of a run over folder/rows.mtx and folder/data.obs."""
    with open(os.path.join(folder, 'voxlith.inp'), 'w') as f:
        f.write('0 1 1 1\n2 0 0\n0.01 0.02 0\ndata.obs\nrows.mtx\n0.001\n0.0\n-10,10\n0.0001 1. 1. 1.\nnull\n0\n'
                '%d 0 0\n' % iterations)
