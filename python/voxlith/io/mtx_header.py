"""Headers of sensitivity files in their three layouts; their contents are described in :mod:`voxlith.io.mtx_file`."""

from __future__ import annotations

import struct
from dataclasses import dataclass, field
from typing import Literal

import numpy as np
import numpy.typing as npt

from ..errors import FileError
from ..wavelet import mirrored_filter
from .mtx_input import BinaryInput

Reals = npt.NDArray[np.float64]
Singles = npt.NDArray[np.float32]
Integers = npt.NDArray[np.int32]
Form = Literal["tagged", "bare", "record"]

MAGIC = b"VX3D"
MOST_RECORD_TAPS = 24
LARGEST_INT32 = 2**31 - 1


@dataclass
class MtxHeader:
    """Everything before the rows.

    Attributes
    ----------
    form : {"tagged", "bare", "record"}
    version : int
        Of the tagged layout, 0 to 2; 0 in the others.
    data_type : int
        Code of the data. In the record layout it follows from the name of the file.
    n_data : int
        Data, and rows.
    ny, nx, nz : int
        Cells.
    npy, npx, npz : int
        Padded cells.
    low, high : ndarray of float32, shape (taps,)
        Low-pass and high-pass filter.
    y_nodes, x_nodes, z_nodes : ndarray, shape (cells of the axis + 1,)
        Metres to the north, to the east and downwards (minus the elevation).
    depth_weight : ndarray of float32, shape (nx ny nz,)
        Depth weight of each cell in cell order.
    weight_parameters : tuple of 2 float
        z0 and beta of the depth weight.
    inducing : tuple of 3 float
        Strength (nT), inclination and declination (degrees) of the inducing field; tagged layout.
    idir : int
        Direction flag; tagged layout.
    measured : tuple of 2 float
        Inclination and declination of the measured component; tagged layout.
    stations : ndarray, shape (n_data, 3), or None
        x, y, elevation; tagged layout.
    station_numbers : ndarray of float32, shape (n_data,), or None
        A number per station that nothing uses; tagged layout.
    topography : ndarray of int32, shape (nx, ny), or None
        Inactive cells at the top of each column; record layout, and not used.
    unused : tuple of float and int
        The numbers after the nodes and before the depth weights; record layout, and not used.
    """

    form: Form
    data_type: int
    n_data: int
    ny: int
    nx: int
    nz: int
    npy: int
    npx: int
    npz: int
    low: Singles
    high: Singles
    y_nodes: Reals
    x_nodes: Reals
    z_nodes: Reals
    depth_weight: Singles
    weight_parameters: tuple[float, float] = (0.0, 0.0)
    version: int = 0
    inducing: tuple[float, float, float] = (0.0, 0.0, 0.0)
    idir: int = 1
    measured: tuple[float, float] = (0.0, 0.0)
    stations: Reals | None = None
    station_numbers: Singles | None = None
    topography: Integers | None = None
    unused: tuple[float, int] = (0.0, 0)
    rows_begin: int = field(default=0, compare=False)

    @property
    def n_cells(self) -> int:
        """Cells of the mesh."""
        return self.nx * self.ny * self.nz

    @property
    def n_padded(self) -> int:
        """Positions of the padded array."""
        return self.npx * self.npy * self.npz

    @property
    def n_dense(self) -> int:
        """Values of a row that is stored without indices."""
        return self.npx * self.npy * max(self.npz, self.nz)

    @property
    def layers(self) -> int:
        """Layers that the sensitivities cover, nzl."""
        return min(self.npz, self.nz)

    @property
    def style_of_counts(self) -> int:
        """Inversion style that follows from the counts when none is stored."""
        return 0 if self.npz >= self.nz else 1 if self.npz == 1 else 3


def read_header(source: BinaryInput, name: str, strict: bool) -> MtxHeader:
    """Header of a sensitivity file; the position is then that of the first row.

    Parameters
    ----------
    source : BinaryInput
        At its first byte.
    name : str
        Name of the file: in the record layout it decides about the data type.
    strict : bool
        Whether padded extents that are no power of two, and nodes that do not follow one another, are an error.

    Raises
    ------
    FileError
        The file, the byte, what was expected and what was found.
    """
    if _is_text(source.bytes_at(0, 32)):
        raise FileError(source.path, "expected a sensitivity file, found text", byte=0)
    header = _record_header(source, name, strict) if _is_record_form(source) else _stream_header(source, strict)
    if source.position > LARGEST_INT32:
        raise source.error(f"the rows to begin within the first {LARGEST_INT32} bytes", "their beginning here")
    header.rows_begin = source.position
    return header


def _stream_header(source: BinaryInput, strict: bool) -> MtxHeader:
    tagged = source.bytes_at(0, 4) == MAGIC
    source.position = 4 if tagged else 0
    version = source.int32("the version") if tagged else 0
    data_type = source.int32("the data type")
    n_data = source.count("the number of data")
    source.require((32 if tagged else 4) * n_data, f"stations and rows of {n_data} data")
    inducing, idir, measured = (0.0, 0.0, 0.0), 1, (0.0, 0.0)
    stations = numbers = None
    if tagged:
        strength, incl, decl = source.singles(3, "the inducing field").tolist()
        inducing, idir = (strength, incl, decl), source.int32("idir")
        aincl, adecl = source.singles(2, "the measured direction").tolist()
        measured = (aincl, adecl)
        stations, numbers = source.stations(n_data)
    ny, nx, nz, npy, npx, npz = source.mesh_counts(strict)
    taps = source.count("the number of taps")
    source.require(8 * taps, "the taps")
    low, high = source.finite_singles(taps, "the low-pass taps"), source.finite_singles(taps, "the high-pass taps")
    cells = nx * ny * nz
    source.require(8 * (nx + ny + nz + 3) + 8 + 12 * cells + 4 * n_data, "nodes, weights, rows and tail of the mesh")
    y, x, z = (source.nodes(count + 1, axis, strict) for count, axis in zip((ny, nx, nz), "yxz"))
    z0, beta = source.singles(2, "the weight parameters").tolist()
    weights = source.singles(cells, "the depth weights")
    return MtxHeader("tagged" if tagged else "bare", data_type, n_data, ny, nx, nz, npy, npx, npz, low, high, y, x,
                     z, weights, (z0, beta), version, inducing, idir, measured, stations, numbers)


def _record_header(source: BinaryInput, name: str, strict: bool) -> MtxHeader:
    with source.record(20, "the record of the counts"):
        n_data, n_cells = source.count("the number of data"), source.int32("the number of cells")
        ny, nx, nz = (source.count(axis) for axis in ("ny", "nx", "nz"))
    source.require(12 * n_data, f"rows of {n_data} data")
    with source.record(4 * (ny + nx + nz + 4), "the record of the nodes"):
        y, x, z = (source.single_nodes(count + 1, axis, strict) for count, axis in zip((ny, nx, nz), "yxz"))
        after_nodes = float(source.singles(1, "the number after the nodes")[0])
    with source.record(4 * nx * ny, "the record of the topography"):
        topography = source.integers(nx * ny, "the topography").reshape(nx, ny)
    with source.record(None, "the record of the taps") as length:
        taps = source.count("the number of taps", MOST_RECORD_TAPS)
        if length != 4 + 4 * taps:
            raise source.error(f"the record of the taps of length {4 + 4 * taps}", str(length), -8)
        low = source.finite_singles(taps, "the low-pass taps")
    with source.record(12, "the record of the padded mesh"):
        npy, npx, npz = source.padded_counts((ny, nx, nz), strict)
    with source.record(4 + 4 * n_cells, "the record of the depth weights"):
        before_weights = source.int32("the number before the depth weights")
        weights = source.singles(n_cells, "the depth weights")
    data_type = 1 if "MAG" in name or "mag" in name else 0
    return MtxHeader("record", data_type, n_data, ny, nx, nz, npy, npx, npz, low, mirrored_filter(low), y, x, z,
                     weights, topography=topography, unused=(after_nodes, before_weights))


def _is_text(start: bytes) -> bool:
    """Whether there are printable characters alone; a sensitivity file begins with small integers of four bytes."""
    return len(start) > 8 and start.isascii() and (start.decode("ascii").replace("\n", "").replace("\r", "").replace("\t", "")
                                                   .isprintable())


def _is_record_form(source: BinaryInput) -> bool:
    """Whether the first record holds counts that are consistent."""
    start = source.bytes_at(0, 28)
    if len(start) < 28:
        return False
    length, n_data, cells, ny, nx, nz, again = struct.unpack("<7i", start)
    return bool(length == again == 20 and min(n_data, ny, nx, nz) > 0 and cells == nx * ny * nz)
