"""Data on grids as tables of stations: a station at each point of a raster, with columns x, y and one per band."""

from __future__ import annotations

import math
import os
import warnings
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .dem import is_raster
from .errors import FileError, PathLike, UsageError
from .io.csv_file import CsvTable
from .io.gxf_file import read_gxf_file
from .io.numbers import number_text
from .packages import require

Reals = npt.NDArray[np.float64]

MOST_STATIONS = 4_000_000


@dataclass(frozen=True)
class GridData:
    """Points of a grid.

    Attributes
    ----------
    x, y : ndarray, shape (rows, columns)
        Metres, or degrees.
    bands : dict of str to ndarray, shape (rows, columns)
        NaN where there is no value.
    crs : str
        Reference system; empty when the file names none.
    step : float
        Shortest distance of neighbours, in units of x and y.
    """

    x: Reals
    y: Reals
    bands: dict[str, Reals]
    crs: str
    step: float


def is_grid(path: PathLike) -> bool:
    """Whether a file is read as a grid, by the ending of its name."""
    return is_raster(path)


def read_grid_data(path: PathLike, every: float = 0.0) -> GridData:
    """Read a grid.

    Parameters
    ----------
    path : path
        GXF, or any raster that GDAL reads.
    every : float
        Least distance of the points that are kept, along rows and along columns, in units of the coordinates.

    Raises
    ------
    FileError
        For a file that is no grid, has no coordinates, or has no value.
    UsageError
        For more than :data:`MOST_STATIONS` points.
    """
    grid = _read_gxf(path, every) if os.fspath(path).lower().endswith(".gxf") else _read_raster(path, every)
    if not any(np.isfinite(values).any() for values in grid.bands.values()):
        raise FileError(path, "expected a value, found none")
    return grid


def table_of_grid(grid: GridData, path: PathLike) -> CsvTable:
    """The points as a table of text, from south to north; points without any value are left out."""
    pandas = require("pandas", "tables")
    kept = np.any([np.isfinite(values) for values in grid.bands.values()], axis=0)
    texts = [[number_text(value) for value in values[kept].tolist()] for values in (grid.x, grid.y)]
    # Values of single precision are written with the digits of single precision.
    texts += [["" if value != value else number_text(float(str(value))) for value in values[kept]]
              for values in grid.bands.values()]
    frame = pandas.DataFrame(dict(enumerate(texts)), dtype=object)
    points = np.flatnonzero(kept.ravel()) + 1
    return CsvTable(path, ["x", "y", *grid.bands], frame, points.astype(np.int64), int(points[-1]) + 1)


def _read_gxf(path: PathLike, every: float) -> GridData:
    found = read_gxf_file(path)
    x, y = found.places()
    spacing = (found.metres * found.spacing[0], found.metres * found.spacing[1])
    x, y, values = _thinned((x, y, found.values), spacing, every)
    _require_few(path, values.size)
    return GridData(x, y, {"band1": values}, _known_crs(found.projection), min(spacing))


def _known_crs(name: str) -> str:
    """A name of a projection that PROJ knows, else nothing."""
    if not name:
        return ""
    pyproj = require("pyproj", "coordinate reference systems")
    try:
        return str(pyproj.CRS.from_user_input(name).to_string())
    except pyproj.exceptions.CRSError:
        return ""


def _read_raster(path: PathLike, every: float) -> GridData:
    rasterio = require("rasterio", "data on grids")
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", rasterio.errors.NotGeoreferencedWarning)
            with rasterio.open(os.fspath(path)) as source:
                return _of_source(path, source, every)
    except (rasterio.errors.RasterioError, OSError) as error:
        raise FileError(path, f"expected a grid ({error})") from error


def _of_source(path: PathLike, source: object, every: float) -> GridData:
    from typing import Any
    raster: Any = source
    if raster.transform.is_identity or not raster.count:
        raise FileError(path, "expected a grid with coordinates, found none")
    a, b, c, d, e, f = raster.transform[:6]
    steps = _strides((math.hypot(a, d), math.hypot(b, e)), every)
    rows, columns = np.arange(raster.height)[::-steps[1]], np.arange(raster.width)[::steps[0]]
    _require_few(path, len(rows) * len(columns))
    column, row = np.meshgrid(columns + 0.5, rows + 0.5)
    names = [text.strip() if text and text.strip() else f"band{number}" for number, text in enumerate(raster.descriptions, 1)]
    if len({"x", "y", *names}) < len(names) + 2:
        names = [f"band{number}" for number in range(1, raster.count + 1)]
    bands = {}
    for number, name in enumerate(names, 1):
        band = raster.read(number, masked=True)
        values = band.astype(np.float64 if band.dtype.itemsize > 4 or band.dtype.kind != "f" else np.float32)
        bands[name] = values.filled(np.nan)[np.ix_(rows, columns)]
    crs = raster.crs.to_string() if raster.crs else ""
    return GridData(a * column + b * row + c, d * column + e * row + f, bands, crs, min(math.hypot(a, d), math.hypot(b, e)))


def _thinned(arrays: tuple[Reals, ...], spacing: tuple[float, float], every: float) -> list[Reals]:
    steps = _strides(spacing, every)
    return [values[:: steps[1], :: steps[0]] for values in arrays]


def _strides(spacing: tuple[float, float], every: float) -> tuple[int, int]:
    """Every so many columns and rows are kept."""
    columns, rows = (max(1, math.ceil(every / step - 1.0e-9)) for step in spacing)
    return columns, rows


def _require_few(path: PathLike, count: int) -> None:
    if count > MOST_STATIONS:
        raise UsageError(f"{os.fspath(path)}: expected at most {MOST_STATIONS} points, found {count}; keep fewer with --every")
