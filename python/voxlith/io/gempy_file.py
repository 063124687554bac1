"""Regular grids of GemPy as NumPy files: lithology numbers or other values, with x slowest, then y, then z fastest upwards.

A ``.npy`` file holds the values alone; extent and resolution come with it in words. A ``.npz`` file holds ``values``,
``extent`` (xmin, xmax, ymin, ymax, zmin, zmax) and ``resolution`` (cells along x, y and z).
"""

from __future__ import annotations

import os
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, UsageError
from .output import open_input, open_output

Reals = npt.NDArray[np.float64]


@dataclass(frozen=True)
class GempyGrid:
    """A regular grid.

    Attributes
    ----------
    extent : tuple of 6 float
        xmin, xmax, ymin, ymax, zmin, zmax, metres; z upwards.
    resolution : tuple of 3 int
        Cells along x, y and z.
    values : ndarray, shape (nx, ny, nz)
        z upwards.
    """

    extent: tuple[float, ...]
    resolution: tuple[int, ...]
    values: Reals

    def __post_init__(self) -> None:
        low, high = np.array(self.extent[::2]), np.array(self.extent[1::2])
        if len(self.extent) != 6 or not np.isfinite(self.extent).all() or not (high > low).all():
            raise UsageError("extent: expected xmin,xmax,ymin,ymax,zmin,zmax with each maximum above its minimum")
        if len(self.resolution) != 3 or min(self.resolution) < 1:
            raise UsageError("resolution: expected the cells along x, y and z, 1 or more each")

    @property
    def nodes(self) -> tuple[Reals, Reals, Reals]:
        """Cell edges along x, y and z, rising."""
        x, y, z = (np.linspace(self.extent[2 * axis], self.extent[2 * axis + 1], count + 1)
                   for axis, count in enumerate(self.resolution))
        return x, y, z


def write_gempy_file(path: PathLike, grid: GempyGrid) -> None:
    """Write a ``.npz`` file. Raises FileError."""
    with open_output(path) as output:
        np.savez_compressed(output, values=grid.values.ravel(), extent=np.array(grid.extent),
                            resolution=np.array(grid.resolution))


def read_gempy_file(path: PathLike, extent: Sequence[float] | None = None,
                    resolution: Sequence[int] | None = None) -> GempyGrid:
    """Read a ``.npz`` file, or a ``.npy`` file with its extent and resolution.

    Raises
    ------
    FileError
        When the file cannot be read or holds another number of values.
    UsageError
        Without the extent or the resolution of a ``.npy`` file.
    """
    with open_input(path) as source:
        try:
            found = np.load(source, allow_pickle=False)
            if isinstance(found, np.ndarray):
                values = found
            else:
                values = found["values"]
                extent = found["extent"].ravel().tolist() if extent is None else extent
                resolution = found["resolution"].ravel().tolist() if resolution is None else resolution
            numbers = np.asarray(values, dtype=np.float64)
        except Exception as error:  # NumPy raises errors of many kinds for damaged files
            raise FileError(path, f"expected a NumPy file of numbers: {str(error).splitlines()[0]}") from error
    if extent is None or resolution is None:
        raise UsageError(f"{os.fspath(path)}: expected the extent and the resolution of the grid")
    count = int(np.prod([int(number) for number in resolution]))
    # GemPy's solutions may have several rows: the first one holds the lithology numbers.
    if numbers.ndim == 2 and numbers.shape[1] == count:
        numbers = numbers[0]
    if numbers.size != count:
        raise FileError(path, f"expected {count} values for the resolution {' x '.join(map(str, resolution))}, found {numbers.size}")
    shape = tuple(int(number) for number in resolution)
    return GempyGrid(tuple(float(number) for number in extent), shape, numbers.reshape(shape))
