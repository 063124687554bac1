"""Coordinate reference systems: conversion of stations, terrain and outlines to metres.

Coordinates are easting (or longitude) first, whatever order the definition of a system has. The conversions are those
of PROJ.
"""

from __future__ import annotations

import math
from functools import lru_cache
from typing import Any

import numpy as np
import numpy.typing as npt

from .errors import UsageError
from .packages import require

Reals = npt.NDArray[np.float64]

WIDEST_FIXED = 11
"""Characters that a coordinate with two decimals may take in the data files of a run; with more it touches the next."""

_METRES = ("metre", "meter", "metres", "meters")


@lru_cache(maxsize=16)
def parse_crs(text: str, option: str = "--crs") -> Any:
    """A coordinate reference system from ``EPSG:32633``, a PROJ string or WKT.

    Raises
    ------
    UsageError
        ``OPTION TEXT: expected ...``
    MissingPackageError
        Without pyproj.
    """
    pyproj = require("pyproj", "coordinate reference systems")
    try:
        return pyproj.CRS.from_user_input(text.strip())
    except pyproj.exceptions.CRSError as error:
        raise UsageError(f"{option} {text}: expected a coordinate reference system such as EPSG:32633") from error


def require_metres(text: str, option: str = "--to") -> None:
    """Refuse systems whose coordinates are not metres on a plane. Raises UsageError."""
    crs = parse_crs(text, option)
    if not crs.is_projected or any(axis.unit_name not in _METRES for axis in crs.axis_info[:2]):
        unit = crs.axis_info[0].unit_name if crs.axis_info else "no unit"
        raise UsageError(f"{option} {text}: expected a projected system in metres, such as the UTM zone of the survey, found "
                         f"{crs.name} in {unit}")


def convert(x: npt.ArrayLike, y: npt.ArrayLike, source: str, target: str) -> tuple[Reals, Reals]:
    """Coordinates of one system in another one.

    Parameters
    ----------
    x, y : array_like
        Easting and northing, or longitude and latitude.
    source, target : str
        See :func:`parse_crs`.

    Raises
    ------
    UsageError
        For a system that is not known, or a point that the target cannot hold.

    Examples
    --------
    >>> east, north = convert([15.0], [50.0], "EPSG:4326", "EPSG:32633")
    >>> float(round(east[0])), float(round(north[0]))
    (500000.0, 5538631.0)
    """
    pyproj = require("pyproj", "coordinate reference systems")
    first, second = parse_crs(source, "--crs"), parse_crs(target, "--to")
    east, north = np.asarray(x, dtype=np.float64), np.asarray(y, dtype=np.float64)
    if first.is_geographic:
        _check_degrees(east, north, source)
    found = pyproj.Transformer.from_crs(first, second, always_xy=True).transform(east, north)
    out_x, out_y = np.asarray(found[0], dtype=np.float64), np.asarray(found[1], dtype=np.float64)
    bad = np.flatnonzero(~(np.isfinite(out_x) & np.isfinite(out_y)))
    if len(bad):
        at = int(bad[0])
        raise UsageError(f"--to {target}: the point {at + 1} at {east.ravel()[at]:g}, {north.ravel()[at]:g} of {source} has no "
                         "place in it")
    return out_x, out_y


def longitude_latitude(x: npt.ArrayLike, y: npt.ArrayLike, source: str) -> tuple[Reals, Reals]:
    """Geodetic longitude and latitude on WGS84, degrees."""
    return convert(x, y, source, "EPSG:4326")


def outside_area_of_use(x: Reals, y: Reals, crs: str) -> str:
    """Where a system is meant to be used, when the middle of the points lies outside of it; else empty."""
    area = parse_crs(crs).area_of_use
    if area is None or not len(x):
        return ""
    longitude, latitude = longitude_latitude([float(np.median(x))], [float(np.median(y))], crs)
    east_ok = (area.west <= longitude[0] <= area.east if area.west <= area.east
               else longitude[0] >= area.west or longitude[0] <= area.east)
    inside = east_ok and area.south <= latitude[0] <= area.north
    return "" if inside else str(area.name)


def grid_convergence(x: float, y: float, crs: str) -> float:
    """Angle of grid north clockwise from true north at a point of a projected system, degrees.

    A declination from true north becomes one from grid north, along y, when this is subtracted.
    """
    pyproj = require("pyproj", "coordinate reference systems")
    longitude, latitude = longitude_latitude([x], [y], crs)
    factors = pyproj.Proj(parse_crs(crs)).get_factors(float(longitude[0]), float(latitude[0]))
    return float(factors.meridian_convergence)


def distance_scale(x: float, y: float, crs: str) -> float:
    """Distances of a projected system over those on the ground at a point: the geometric mean of all directions.

    Examples
    --------
    >>> round(distance_scale(-13627665.0, 4548320.0, "EPSG:3857"), 1)
    1.3
    """
    pyproj = require("pyproj", "coordinate reference systems")
    longitude, latitude = longitude_latitude([x], [y], crs)
    factors = pyproj.Proj(parse_crs(crs)).get_factors(float(longitude[0]), float(latitude[0]))
    scale = math.sqrt(abs(factors.meridional_scale * factors.parallel_scale))
    return scale if math.isfinite(scale) and scale > 0.0 else 1.0


def shift_for_fields(x: Reals, y: Reals) -> tuple[float, float]:
    """What to subtract from easting and northing so that they fit the fields of a run's data files; 0 where they fit.

    Examples
    --------
    >>> shift_for_fields(np.array([-13627665.27]), np.array([4548320.0]))
    (-13600000.0, 0.0)
    """
    shifts = []
    for values in (x, y):
        widest = max((len(f"{value:.2f}") for value in (float(values.min()), float(values.max()))), default=0)
        shifts.append(0.0 if widest <= WIDEST_FIXED else float(np.round(np.median(values) / 1.0e5) * 1.0e5))
    return shifts[0], shifts[1]


def _check_degrees(x: Reals, y: Reals, source: str) -> None:
    if x.size and (np.abs(y).max() > 90.0 or np.abs(x).max() > 360.0):
        raise UsageError(f"--crs {source}: expected longitudes and latitudes in degrees, found x to {np.abs(x).max():g}, y to "
                         f"{np.abs(y).max():g}; x and y may be exchanged, or in metres already")
