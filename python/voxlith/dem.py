"""Terrain from raster files (GeoTIFF, ESRI ASCII, Surfer, NetCDF and whatever else GDAL reads): points on a grid.

The raster is converted to the reference system of the survey, resampled to the cells that it is wanted for (the mean of
the pixels in each place of the grid where they are finer, bilinear where they are coarser) and cropped to them.
"""

from __future__ import annotations

import math
import os
from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt

from .checks.values import no_data_codes
from .crs import parse_crs
from .errors import FileError, PathLike, UsageError
from .packages import require

Reals = npt.NDArray[np.float64]

RASTER_ENDINGS = (".tif", ".tiff", ".asc", ".grd", ".nc", ".vrt", ".img", ".hgt", ".dem", ".bil", ".dt2", ".gxf")
"""Endings of names that are taken for rasters; any other file is a list of points."""

MOST_POINTS = 4_000_000
_MARGIN = 2.0  # grid steps beyond the box
_FINEST = 0.25  # of a pixel: finer points add time alone
_LOWEST, _HIGHEST = -12_000.0, 9_000.0  # metres; what lies beyond is no elevation


@dataclass(frozen=True)
class Box:
    """A rectangle in the coordinates of the survey, metres."""

    west: float
    east: float
    south: float
    north: float


@dataclass(frozen=True)
class RasterTerrain:
    """Points of a raster.

    Attributes
    ----------
    points : ndarray, shape (n, 3)
        x, y and elevation, metres, pixels without data left out.
    step : float
        Distance of the points, metres.
    covered : float
        Part of the box that has data.
    crs : str
        Reference system of the raster; empty when the file names none.
    """

    points: Reals
    step: float
    covered: float
    crs: str


def is_raster(path: PathLike) -> bool:
    """Whether a file is read as a raster, by the ending of its name."""
    return os.path.splitext(os.fspath(path))[1].lower() in RASTER_ENDINGS


def read_raster_terrain(path: PathLike, box: Box, step: float, *, crs: str = "", raster_crs: str = "",
                        shift: tuple[float, float] = (0.0, 0.0)) -> RasterTerrain:
    """Points of a raster within a box.

    Parameters
    ----------
    path : path
    box : Box
        What is needed, in the coordinates of the survey.
    step : float
        Wanted distance of the points, metres; at least a quarter of a pixel, between which the raster is smooth.
    crs : str
        Reference system of the survey; empty takes the raster's coordinates as they are.
    raster_crs : str
        Reference system of the raster where its file names none.
    shift : tuple of 2 float
        Subtracted from the coordinates of the reference system, as in the survey.

    Raises
    ------
    FileError
        When the file cannot be read, does not cover the box, or holds no elevations.
    UsageError
        When it has no reference system and one is needed, or another one than `raster_crs`, or too many points would
        result.
    MissingPackageError
        Without rasterio.
    """
    rasterio = require("rasterio", "terrain from rasters")
    require("rasterio.vrt", "terrain from rasters")
    if not step > 0.0:
        raise UsageError(f"terrain: expected a step above 0, found {step:g}")
    try:
        with rasterio.open(os.fspath(path)) as source:
            own = source.crs.to_wkt() if source.crs else raster_crs
            if raster_crs and not parse_crs(raster_crs, "--terrain-crs").equals(parse_crs(own)):
                raise UsageError(f"--terrain-crs {raster_crs}: {os.fspath(path)} is in {source.crs.to_string()}")
            step = max(step, _FINEST * _pixel(source, own or crs))
            east = np.arange(box.west - _MARGIN * step, box.east + (_MARGIN + 0.5) * step, step) + shift[0]
            north = np.arange(box.north + _MARGIN * step, box.south - (_MARGIN + 0.5) * step, -step) + shift[1]
            if len(east) * len(north) > MOST_POINTS:
                raise UsageError(f"terrain: expected at most {MOST_POINTS} points, found {len(east)} x {len(north)}; use a larger step")
            grid = _resampled(rasterio, source, own, crs, east, north, step)
            name = (source.crs.to_string() if source.crs else "") or raster_crs
    except (rasterio.errors.RasterioError, OSError) as error:
        raise FileError(path, f"expected a raster of elevations ({error})") from error
    held = np.isfinite(grid)
    if not held.any():
        raise FileError(path, f"expected elevations within x {box.west:.8g} to {box.east:.8g}, y {box.south:.8g} to {box.north:.8g}, "
                        f"found none; {_hint(name, crs)}")
    low, high = float(grid[held].min()), float(grid[held].max())
    if low < _LOWEST or high > _HIGHEST:
        raise FileError(path, f"expected elevations in metres, found {low:g} to {high:g}; the raster has a no-data code that "
                        "its header does not name, or another unit")
    x, y = np.meshgrid(east - shift[0], north - shift[1])
    inside = ((x >= box.west) & (x <= box.east) & (y >= box.south) & (y <= box.north))
    covered = float(held[inside].mean()) if inside.any() else float(held.mean())
    return RasterTerrain(np.column_stack([x[held], y[held], grid[held]]), step, covered, name)


def _hint(raster: str, survey: str) -> str:
    if raster and not survey:
        return (f"the raster is in {raster}, and nothing names the reference system of the survey: obs --crs stores it beside the data, "
                "and voxlith-tools terrain --to CRS converts the raster for a mesh without one")
    if raster and survey:
        return (f"the raster is in {raster}{'' if raster == survey else f' and the survey in {survey}'}: it lies elsewhere, or the "
                "coordinates of the survey are wrong")
    return "neither of them names a reference system: the coordinates differ, or the raster lies elsewhere (--terrain-crs and --to of terrain)"


def _pixel(source: Any, crs: str) -> float:
    """Width of a pixel in about metres."""
    in_degrees = bool(crs) and parse_crs(crs).is_geographic
    return float(max(abs(source.transform.a), abs(source.transform.e))) * (111_000.0 if in_degrees else 1.0)


def _resampled(rasterio: Any, source: Any, own: str, crs: str, east: Reals, north: Reals, step: float) -> Reals:
    """The first band on a grid of the survey's reference system, NaN without data."""
    if not crs or (own and parse_crs(own).equals(parse_crs(crs))):
        # Names differ more often than systems do: without one, coordinates are taken as they are.
        own = crs = own or crs or "+proj=eqc +units=m +type=crs"
    if not own:
        raise UsageError(f"{source.name}: the raster names no reference system; say it with --terrain-crs")
    transform = source.transform
    if transform.is_identity:
        raise FileError(source.name, "expected a raster with coordinates, found none")
    coarse = step > 1.5 * _pixel(source, own)
    resampling = rasterio.enums.Resampling.average if coarse else rasterio.enums.Resampling.bilinear
    _check_codes(source)
    # A warped view takes a reference system in place of that of the file, which rasterio.warp.reproject does not.
    with rasterio.vrt.WarpedVRT(
            source, src_crs=rasterio.crs.CRS.from_user_input(own), crs=rasterio.crs.CRS.from_user_input(crs),
            src_nodata=source.nodata, nodata=math.nan, dtype="float64", width=len(east), height=len(north),
            transform=rasterio.Affine(step, 0.0, east[0] - 0.5 * step, 0.0, -step, north[0] + 0.5 * step),
            resampling=resampling) as view:
        return np.asarray(view.read(1), dtype=np.float64)


def _check_codes(source: Any) -> None:
    """Refuse pixels that look like a no-data code which the header does not name: means would hide them."""
    shape = tuple(min(count, 500) for count in source.shape)
    sample = np.asarray(source.read(1, out_shape=shape, masked=True).astype(np.float64).filled(np.nan)).ravel()
    coded = sample[no_data_codes(sample)]
    if len(coded):
        raise FileError(source.name, f"expected elevations, found pixels of {coded[0]:g}, which stands for no data; name it in "
                        f"the header, as by gdal_edit.py -a_nodata {coded[0]:g}")


def check_points(points: npt.ArrayLike, path: PathLike) -> Reals:
    """Points of a terrain that make a surface.

    Raises
    ------
    FileError
        For fewer than three points, for points along one line, beside which the elevation would be a guess, and for
        elevations that are a no-data code.
    """
    rows = np.asarray(points, dtype=np.float64)
    coded = np.flatnonzero(no_data_codes(rows[:, 2]))
    if len(coded):
        raise FileError(path, f"expected elevations, found {len(coded)} points of {rows[coded[0], 2]:g}, which stands for no "
                        "data; leave these points out")
    if len(rows) < 3:
        raise FileError(path, f"expected three points of terrain or more, found {len(rows)}")
    centred = rows[:, :2] - rows[:, :2].mean(axis=0)
    spread = np.linalg.svd(centred, full_matrices=False, compute_uv=False)
    if not spread[1] > 1.0e-6 * spread[0]:
        raise FileError(path, f"expected points of terrain that cover an area, found {len(rows)} points along one line")
    return rows
