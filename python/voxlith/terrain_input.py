"""Terrain from any file: rasters that GDAL reads, tables with column names, and UBC points."""

from __future__ import annotations

import os
from dataclasses import replace

import numpy as np
import numpy.typing as npt

from .checks.stations import looks_like_degrees
from .crs import convert
from .dem import Box, check_points, is_raster, read_raster_terrain
from .errors import FileError, PathLike, UsageError
from .grid_table import read_grid_data
from .io.csv_file import read_csv_file
from .io.topography_file import read_topography_file
from .mesh import Mesh
from .side_file import SideInfo, other_coordinates, read_side_file
from .terrain import Terrain

Reals = npt.NDArray[np.float64]

TABLE_ENDINGS = (".csv", ".tsv")
_X_NAMES = ("x", "easting", "east", "e", "lon", "longitude", "utm_x", "easting_m")
_Y_NAMES = ("y", "northing", "north", "n", "lat", "latitude", "utm_y", "northing_m")
_Z_NAMES = ("z", "elevation", "height", "h", "elev", "alt", "altitude", "elevation_m", "height_m")
_LEAST_COVERED = 0.98


def terrain_step(x: Reals, y: Reals) -> float:
    """Step of the points of a raster that suits heights below stations: a hundredth of their extent, a metre at least."""
    return max(float(np.ptp(x)), float(np.ptp(y)), 100.0) / 100.0


def read_terrain(path: PathLike, places: npt.ArrayLike, step: float, *, crs: str = "", terrain_crs: str = "",
                 shift: tuple[float, float] = (0.0, 0.0)) -> tuple[Terrain, str]:
    """The surface around places.

    Parameters
    ----------
    path : path
        A raster by the ending of its name (:data:`voxlith.dem.RASTER_ENDINGS`), a table with column names
        (``.csv``), or UBC points.
    places : array_like, shape (n, 2)
        x and y where elevations are needed, in the coordinates of the survey.
    step : float
        Wanted distance of points from rasters, metres.
    crs : str
        Reference system of the survey.
    terrain_crs : str
        That of the terrain; by default the one that its file or its side file names, or that of the survey.
    shift : tuple of 2 float
        Subtracted from coordinates of the reference system, as in the survey.

    Returns
    -------
    Terrain
    str
        A warning, or an empty text.

    Raises
    ------
    FileError
        For a file that cannot be read, and for points that make no surface around the places.
    UsageError
        When `terrain_crs` is another one than the file or its side file names.
    """
    at = np.asarray(places, dtype=np.float64)
    box = Box(float(at[:, 0].min()), float(at[:, 0].max()), float(at[:, 1].min()), float(at[:, 1].max()))
    gxf = os.fspath(path).lower().endswith(".gxf")
    if is_raster(path) and not gxf:
        found = read_raster_terrain(path, box, step, crs=crs, raster_crs=terrain_crs, shift=shift)
        warning = ""
        if found.covered < _LEAST_COVERED:
            warning = (f"{os.fspath(path)}: the raster covers {100.0 * found.covered:.0f} % of the area needed; elsewhere the "
                       "elevation of the nearest point is used")
        return Terrain(check_points(found.points, path)), warning
    if gxf:
        points, own = _gxf_points(path, step)
        side = SideInfo(own)
    else:
        points = _table_points(path) if os.fspath(path).lower().endswith(TABLE_ENDINGS) else read_topography_file(path)
        side = read_side_file(path)
    if other_coordinates(SideInfo(terrain_crs), SideInfo(side.crs)):
        raise UsageError(f"--terrain-crs {terrain_crs}: {os.fspath(path)} is in {side.crs}")
    in_degrees = looks_like_degrees(points[:, 0], points[:, 1])
    points = _moved(points, replace(side, crs=side.crs or terrain_crs), SideInfo(crs, shift))
    return Terrain(check_points(points, path)), _coverage_warning(path, points, box, in_degrees)


def terrain_over(path: PathLike, mesh: Mesh, side: SideInfo, terrain_crs: str = "") -> tuple[Terrain, str]:
    """The surface over the columns of a mesh whose coordinates are those of `side`, and a warning or an empty text.

    Raises FileError and UsageError as :func:`read_terrain`.
    """
    x, y = np.meshgrid(mesh.x_centres, mesh.y_centres, indexing="ij")
    return read_terrain(path, np.column_stack([x.ravel(), y.ravel()]), float(mesh.x_widths.min()), crs=side.crs, terrain_crs=terrain_crs,
                        shift=side.shift)


def _moved(points: Reals, own: SideInfo, wanted: SideInfo) -> Reals:
    """Points in the coordinates of the survey."""
    if own.crs and wanted.crs and other_coordinates(SideInfo(own.crs), SideInfo(wanted.crs)):
        x, y = convert(points[:, 0] + own.shift[0], points[:, 1] + own.shift[1], own.crs, wanted.crs)
        return np.column_stack([x - wanted.shift[0], y - wanted.shift[1], points[:, 2]])
    # Equal shifts leave the numbers as they are.
    east, north = own.shift[0] - wanted.shift[0], own.shift[1] - wanted.shift[1]
    return np.asarray(points + np.array([east, north, 0.0]), dtype=np.float64)


def _gxf_points(path: PathLike, step: float) -> tuple[Reals, str]:
    """Points of a grid with values, and its reference system."""
    grid = read_grid_data(path)
    if grid.step < 0.5 * step and not looks_like_degrees(grid.x.ravel(), grid.y.ravel()):
        grid = read_grid_data(path, step)
    heights, = grid.bands.values()
    held = np.isfinite(heights)
    return np.column_stack([grid.x[held], grid.y[held], heights[held]]), grid.crs


def _coverage_warning(path: PathLike, points: Reals, box: Box, in_degrees: bool) -> str:
    low, high = points[:, :2].min(axis=0), points[:, :2].max(axis=0)
    if low[0] > box.east or high[0] < box.west or low[1] > box.north or high[1] < box.south:
        hint = ""
        if in_degrees:
            hint = "; degrees need --terrain-crs EPSG:4326, and a reference system of the survey"
        raise FileError(path, f"expected points around x {box.west:g} to {box.east:g}, y {box.south:g} to {box.north:g}, found "
                        f"points at x {low[0]:g} to {high[0]:g}, y {low[1]:g} to {high[1]:g}{hint}")
    wide = max(box.east - box.west, box.north - box.south)
    if low[0] > box.west + 0.25 * wide or high[0] < box.east - 0.25 * wide or low[1] > box.south + 0.25 * wide or \
            high[1] < box.north - 0.25 * wide:
        return (f"{os.fspath(path)}: the points lie at x {low[0]:g} to {high[0]:g}, y {low[1]:g} to {high[1]:g}, which leaves out "
                "much of the area needed; there the elevation of the nearest point is used")
    return ""


def _table_points(path: PathLike) -> Reals:
    table = read_csv_file(path)
    if len(table) and any("," in word for word in table.frame.iloc[0]):
        table = read_csv_file(path, decimal_comma=True)
    columns = []
    for what, names in (("x", _X_NAMES), ("y", _Y_NAMES), ("elevation", _Z_NAMES)):
        found = [number for number, name in enumerate(table.columns) if name.strip().lower() in names]
        if len(found) != 1:
            raise UsageError(f"{os.fspath(path)}: expected one column of {what} named {', '.join(names)}, found the columns "
                             f"{', '.join(table.columns)}")
        columns.append(table.numbers(found[0]))
    return np.column_stack(columns)
