"""The head of a sensitivity file in any of its three layouts: what it measures and the mesh. Rows are not touched."""
import os
import struct
from dataclasses import dataclass

import numpy as np

from .text_input import FormatError, Missing


@dataclass
class Mtx:
    """Nodes as stored: z from the top down, as depth or elevation. `padded_layers` below the layers of the mesh tells
    of a surface style."""
    data_type: int
    n_data: int
    x_nodes: np.ndarray
    y_nodes: np.ndarray
    z_nodes: np.ndarray
    padded_layers: int


class _Bytes:
    """Little-endian values off the front of a file."""

    def __init__(self, path):
        self.path, self.size = path, os.path.getsize(path)
        self.file = open(path, 'rb')

    def take(self, code, count):
        width = struct.calcsize(code)
        if count < 0 or count * width > self.size - self.file.tell():
            raise FormatError('%s ends within its head' % self.path)
        return np.frombuffer(self.file.read(count * width), dtype='<' + {'i': 'i4', 'f': 'f4', 'd': 'f8'}[code])

    def skip(self, count):
        if count < 0 or count > self.size - self.file.tell():
            raise FormatError('%s ends within its head' % self.path)
        self.file.seek(count, os.SEEK_CUR)


def read_mtx(path):
    if not os.path.isfile(path):
        raise Missing('%s is not there' % path)
    try:
        source = _Bytes(path)
    except OSError as error:
        raise FormatError('cannot read %s: %s' % (path, error.strerror)) from None
    with source.file:
        head = source.take('i', 7)
        framed, n_cells, sizes = head[0] == head[6] == 20, int(head[2]), [int(n) for n in head[3:6]]
        if framed and head[1] > 0 and min(sizes) > 0 and sizes[0] * sizes[1] * sizes[2] == n_cells:
            return _record_form(path, source, head)
        source.file.seek(0)
        return _stream_form(path, source)


def _stream_form(path, source):
    tagged = source.file.read(4) == b'VX3D'
    source.file.seek(8 if tagged else 0)
    data_type, n_data = (int(v) for v in source.take('i', 2))
    if tagged:
        source.skip(24 + 28 * n_data)
    ny, nx, nz, _, _, npz = _counts(path, source.take('i', 6))
    source.skip(8 * int(source.take('i', 1)[0]))
    y, x, z = (_nodes(path, source.take('d', n + 1)) for n in (ny, nx, nz))
    return Mtx(data_type, n_data, x, y, z, npz)


def _record_form(path, source, head):
    ny, nx, nz = _counts(path, head[3:6])
    source.take('i', 1)
    y, x, z = (_nodes(path, source.take('f', n + 1)) for n in (ny, nx, nz))
    source.take('i', 2)
    for _ in ('topography', 'taps'):
        source.skip(int(source.take('i', 1)[0]) + 4)
    npz = int(source.take('i', 4)[3])
    name = os.path.basename(path)
    return Mtx(1 if 'MAG' in name or 'mag' in name else 0, int(head[1]), x, y, z, npz)


def _counts(path, counts):
    counts = [int(count) for count in counts]
    if min(counts) < 1:
        raise FormatError('%s is no sensitivity file: its mesh has %s cells' % (path, ' x '.join(map(str, counts[:3]))))
    return counts


def _nodes(path, nodes):
    steps = np.diff(nodes.astype(float))
    if not ((steps > 0.0).all() or (steps < 0.0).all()):
        raise FormatError('%s is no sensitivity file: its mesh nodes do not follow one another' % path)
    return nodes.astype(float)
