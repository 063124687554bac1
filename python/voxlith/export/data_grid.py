"""Observed, predicted and residual data on a regular grid, as GeoTIFF and as NetCDF.

Values between stations are interpolated linearly on the Delaunay triangulation of the stations with a datum (SciPy). So
a pixel whose centre is a station has its datum, and no value is beyond those of the stations. There is none outside
their convex hull, nor in triangles that bridge a gap of the survey.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt

from ..crs import parse_crs
from ..errors import FileError, PathLike, UsageError
from ..io.output import output_name
from ..memory import require_memory
from ..packages import require
from ..run import Fit
from ..terrain import merged_points
from ..triangles import bridges_gap, edge_lengths
from .raster import Band, Raster, write_geotiff

Reals = npt.NDArray[np.float64]

METHOD = "linear interpolation on the Delaunay triangulation of the stations; no values outside their convex hull and in gaps"

_PARTS = ("observed", "predicted", "residual")
_OF_TRIANGLE = 0.25  # cell size over the usual longest edge of a triangle: a quarter of the line spacing
_STEPS = (1.0, 2.0, 2.5, 5.0, 10.0)
_MOST_PIXELS = 100_000_000


@dataclass(frozen=True)
class DataGrid:
    """Data on a regular grid.

    Attributes
    ----------
    x, y : ndarray
        Centres of the columns from west to east, and of the rows from north to south, metres.
    cell : float
        Size of a pixel, metres.
    bands : tuple of Band
        Observed, predicted and residual data (predicted minus observed) of each component, in data units.
    """

    x: Reals
    y: Reals
    cell: float
    bands: tuple[Band, ...]


def grid_data(fits: Sequence[Fit], cell: float | None = None) -> DataGrid:
    """Grid the data of fits that have their stations in one reference system.

    Parameters
    ----------
    fits : sequence of Fit
    cell : float, optional
        Size of the pixels, metres; by default about a quarter of the distance between stations, or of lines.

    Raises
    ------
    UsageError
        Without data, for stations along one line, and for too many pixels.
    MissingPackageError
        Without SciPy.
    """
    if not fits:
        raise UsageError("data grid: expected data with predictions")
    x, y = np.concatenate([fit.observed.x for fit in fits]), np.concatenate([fit.observed.y for fit in fits])
    size = cell or _usual_cell(x, y)
    # Centres are multiples of the cell size, so that grids of several runs lie on each other.
    east = np.arange(math.floor(float(x.min()) / size + 0.5), math.ceil(float(x.max()) / size - 0.5) + 1) * size
    north = np.arange(math.floor(float(y.min()) / size + 0.5), math.ceil(float(y.max()) / size - 0.5) + 1)[::-1] * size
    pixels = float(len(east)) * float(len(north))
    if pixels > _MOST_PIXELS:
        raise UsageError(f"data grid: expected at most {_MOST_PIXELS} pixels, found {len(east)} x {len(north)}; use larger ones")
    require_memory(60.0 * pixels, f"a data grid of {len(east)} x {len(north)} pixels")
    bands: list[Band] = []
    for fit in fits:
        for number, (name, unit) in enumerate(zip(fit.observed.names, fit.observed.units)):
            columns = np.column_stack([fit.observed.data[number], fit.predicted[number], fit.residual[number]])
            values = _interpolated(fit.observed.x, fit.observed.y, columns, east, north, name)
            bands += [Band(f"{name} {part}", plane, unit) for part, plane in zip(_PARTS, values)]
    return DataGrid(east, north, size, tuple(bands))


def _triangulation(x: Reals, y: Reals, name: str) -> Any:
    spatial = require("scipy.spatial", "data grids")
    try:
        if len(x) < 3:
            raise ValueError("few")
        return spatial.Delaunay(np.column_stack([x - x.mean(), y - y.mean()]))
    except (spatial.QhullError, ValueError) as error:
        raise UsageError(f"data grid: {name}: expected stations that cover an area, found {len(x)} along one line; export a "
                         ".csv or .vtr in place of a grid") from error


def _usual_cell(x: Reals, y: Reals) -> float:
    corners = _triangulation(x, y, "the survey").simplices
    wanted = _OF_TRIANGLE * float(np.median(edge_lengths(x, y, corners)[0]))
    power = 10.0 ** math.floor(math.log10(wanted))
    return max(step * power for step in _STEPS if step * power <= wanted * (1.0 + 1.0e-9))


def _interpolated(x: Reals, y: Reals, columns: Reals, east: Reals, north: Reals, name: str) -> list[Reals]:
    """A plane of shape (rows, columns) for each column of values at the stations."""
    held = np.isfinite(columns).all(axis=1)
    if not held.any():
        return [np.full((len(north), len(east)), np.nan)] * columns.shape[1]
    origin = np.array([x[held].mean(), y[held].mean()])
    places, values = merged_points(np.column_stack([x, y])[held] - origin, columns[held])
    triangles = _triangulation(places[:, 0], places[:, 1], name)
    gap = bridges_gap(edge_lengths(places[:, 0], places[:, 1], triangles.simplices)[0])
    planes = np.full((columns.shape[1], len(north), len(east)), np.nan)
    middle = places.mean(axis=0)  # the origin of the triangulation
    for row, at in enumerate(north):
        points = np.column_stack([east - origin[0] - middle[0], np.full(len(east), at - origin[1] - middle[1])])
        # Stations on the hull are points of the grid: rounding must not put these outside.
        found = triangles.find_simplex(points, tol=1.0e-9)
        inside = np.flatnonzero((found >= 0) & ~gap[found])
        transform = triangles.transform[found[inside]]
        two = np.einsum("nab,nb->na", transform[:, :2], points[inside] - transform[:, 2])
        shares = np.column_stack([two, 1.0 - two.sum(axis=1)])
        planes[:, row, inside] = np.einsum("nc,ncp->pn", shares, values[triangles.simplices[found[inside]]])
    return list(planes)


def write_data_geotiff(path: PathLike, grid: DataGrid, crs: str = "") -> None:
    """Write a data grid as bands of a GeoTIFF. Raises UsageError, FileError, MissingPackageError."""
    corner = (float(grid.x[0]) - 0.5 * grid.cell, float(grid.y[0]) + 0.5 * grid.cell)
    write_geotiff(path, Raster(corner, (grid.cell, grid.cell)), grid.bands, crs, {"gridding": METHOD})


def write_data_netcdf(path: PathLike, grid: DataGrid, crs: str = "") -> None:
    """Write a data grid as NetCDF (classic format, CF conventions), a variable per band.

    Raises
    ------
    UsageError
        For an unknown reference system.
    FileError
        When the file cannot be written.
    MissingPackageError
        Without SciPy.
    """
    netcdf = require("scipy.io", "NetCDF files")
    mapping = _grid_mapping(crs) if crs else {}
    try:
        with output_name(path) as beside, netcdf.netcdf_file(beside, "w", version=2) as file:
            _describe(file, {"Conventions": "CF-1.8", "title": "Observed, predicted and residual data", "gridding": METHOD})
            for name, nodes, axis, meaning in (("x", grid.x, "X", "projection_x_coordinate"),
                                               ("y", grid.y[::-1], "Y", "projection_y_coordinate")):
                file.createDimension(name, len(nodes))
                variable = file.createVariable(name, "d", (name,))
                variable[:] = nodes
                _describe(variable, {"units": "m", "axis": axis, "standard_name": meaning})
            if mapping:
                _describe(file.createVariable("crs", "i", ()), mapping)
            for band in grid.bands:
                variable = file.createVariable(band.name.replace(" ", "_").lower(), "f", ("y", "x"))
                variable[:] = band.values[::-1].astype(np.float32)
                _describe(variable, {"long_name": band.name, "units": band.unit, "_FillValue": np.float32(np.nan),
                                     **({"grid_mapping": "crs"} if mapping else {})})
    except (OSError, ValueError) as error:
        raise FileError(path, f"cannot be written: {error}") from error


def _grid_mapping(crs: str) -> dict[str, Any]:
    """Attributes of the CF conventions, and the WKT that GDAL reads."""
    found = parse_crs(crs)
    attributes = {name: value for name, value in found.to_cf().items() if value is not None}
    return {**attributes, "spatial_ref": found.to_wkt()}


def _describe(target: Any, attributes: dict[str, Any]) -> None:
    for name, value in attributes.items():
        # SciPy would write numbers of Python in single precision.
        setattr(target, name, value.encode("utf-8") if isinstance(value, str) else np.float64(value) if isinstance(value, float)
                else value)
