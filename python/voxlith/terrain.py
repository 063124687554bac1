"""The surface of the ground between points of known elevation."""

from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

from .errors import PathLike, UsageError
from .io.topography_file import read_topography_file, write_topography_file
from .packages import require

Reals = npt.NDArray[np.float64]
Integers = npt.NDArray[np.intp]

SAME_PLACE = 1.5e-8
"""Points closer than this part of the extent count as one point with their mean elevation."""

_FLAT = 1.0e-9  # points whose spread across a line is less than this part of that along it are a profile
_AT_ONCE = 1 << 22  # distances computed at once


class Terrain:
    """A surface through points.

    The elevation is interpolated linearly on a Delaunay triangulation of the points. Outside the convex hull the
    elevation of the nearest hull point is used. Points along one line give a surface that varies along that line
    alone.

    Parameters
    ----------
    points : array_like, shape (n, 3)
        x, y and elevation in metres.

    Raises
    ------
    UsageError
        When there is no point, or a number is not finite.
    MissingPackageError
        Without SciPy, for points that are not along one line.

    Notes
    -----
    Barber, Dobkin and Huhdanpaa (1996), The Quickhull algorithm for convex hulls, ACM Trans. Math. Softw. 22, 469-483,
    as in SciPy.

    Examples
    --------
    >>> terrain = Terrain([[0, 0, 10], [100, 0, 20], [0, 100, 10], [100, 100, 20]])
    >>> terrain(50.0, 50.0), terrain([25.0, 1000.0], [-1000.0, 40.0])
    (array(15.), array([12.5, 20. ]))
    """

    def __init__(self, points: npt.ArrayLike) -> None:
        rows = np.asarray(points, dtype=np.float64)
        if rows.ndim != 2 or rows.shape[1] != 3 or not len(rows) or not np.isfinite(rows).all():
            raise UsageError("terrain: expected finite points of shape (n, 3), one or more")
        # Coordinates from the middle of the points keep their digits in the products of the triangulation.
        self._origin = 0.5 * (rows[:, :2].min(axis=0) + rows[:, :2].max(axis=0))
        self._places, self._elevation = merged_points(rows[:, :2] - self._origin, rows[:, 2])
        self._triangles: Any = None
        self._edges = _profile(self._places)
        if self._edges is None:
            self._triangulate()

    @classmethod
    def read(cls, path: PathLike) -> Terrain:
        """A surface through the points of a UBC topography file. Raises FileError."""
        return cls(read_topography_file(path))

    def write(self, path: PathLike) -> None:
        """Write the points, those that coincide as one, as a UBC topography file. Raises FileError."""
        write_topography_file(path, np.column_stack([self._places + self._origin, self._elevation]))

    def __repr__(self) -> str:
        low, high = self._elevation.min(), self._elevation.max()
        return f"Terrain({len(self._elevation)} points, elevation {low:g} to {high:g})"

    def __call__(self, x: npt.ArrayLike, y: npt.ArrayLike) -> Reals:
        """Elevation of the surface, metres.

        Parameters
        ----------
        x, y : array_like
            Easting and northing, metres; broadcast against each other.
        """
        east, north = np.broadcast_arrays(np.asarray(x, dtype=np.float64), np.asarray(y, dtype=np.float64))
        at = np.column_stack([east.ravel(), north.ravel()]) - self._origin
        found = np.full(len(at), np.nan) if self._triangles is None else self._within(at)
        outside = np.flatnonzero(np.isnan(found))
        found[outside] = self._on_edges(at[outside])
        return found.reshape(east.shape)

    def _triangulate(self) -> None:
        spatial = require("scipy.spatial", "a surface through points")
        interpolate = require("scipy.interpolate", "a surface through points")
        try:
            triangles = spatial.Delaunay(self._places)
        except spatial.QhullError:  # nearly along one line: too flat for triangles
            self._edges = _along_line(self._places)
            return
        self._triangles = interpolate.LinearNDInterpolator(triangles, self._elevation)
        self._edges = np.asarray(triangles.convex_hull, dtype=np.intp)

    def _within(self, at: Reals) -> Reals:
        return np.asarray(self._triangles(at), dtype=np.float64).ravel()

    def _on_edges(self, at: Reals) -> Reals:
        """Elevation of the nearest point of the hull, or of the profile."""
        assert self._edges is not None
        if not len(self._edges):
            return np.full(len(at), self._elevation[0])
        # Far away, the nearest point no longer depends on the distance.
        reach = 1.0e4 * max(float(np.abs(self._places).max()), 1.0)
        near = np.clip(at, -reach, reach)
        start = self._places[self._edges[:, 0]]
        along = self._places[self._edges[:, 1]] - start
        squared = np.einsum("ec,ec->e", along, along)
        rise = self._elevation[self._edges]
        found = np.empty(len(at))
        step = max(_AT_ONCE // len(self._edges), 1)
        for first in range(0, len(at), step):
            offset = near[first: first + step, None, :] - start[None, :, :]
            share = np.clip(np.einsum("qec,ec->qe", offset, along) / squared, 0.0, 1.0)
            distance = np.square(offset - share[:, :, None] * along).sum(axis=2)
            edge = np.argmin(distance, axis=1)
            part = share[np.arange(len(edge)), edge]
            found[first: first + step] = rise[edge, 0] + part * (rise[edge, 1] - rise[edge, 0])
        return found


def merged_points(places: Reals, values: Reals) -> tuple[Reals, Reals]:
    """Points in the order of their places; those of one place as one, with the mean of their values.

    Parameters
    ----------
    places : ndarray, shape (n, 2)
    values : ndarray, shape (n,) or (n, columns)
    """
    extent = float(np.ptp(places, axis=0).max())
    grid = np.rint(places / (SAME_PLACE * extent if extent > 0.0 else 1.0)).astype(np.int64)
    _, first, which, counts = np.unique(grid, axis=0, return_index=True, return_inverse=True, return_counts=True)
    columns = values.reshape(len(values), -1)
    sums = np.column_stack([np.bincount(which.ravel(), weights=column) for column in columns.T])
    # A single point keeps its value to the bit.
    mean = np.where(counts[:, None] == 1, columns[first], sums / counts[:, None])
    return places[first], mean.reshape(len(first), *values.shape[1:])


def _profile(places: Reals) -> Integers | None:
    """Edges along a line of points; None when the points are not along one line."""
    if len(places) < 3:
        return _along_line(places)
    spread = np.linalg.svd(places - places.mean(axis=0), full_matrices=False, compute_uv=False)
    return _along_line(places) if spread[1] <= _FLAT * spread[0] else None


def _along_line(places: Reals) -> Integers:
    """Edges between neighbours along the line through the points, shape (n - 1, 2)."""
    centred = places - places.mean(axis=0)
    direction = np.linalg.svd(centred, full_matrices=False)[2][0]
    order = np.argsort(centred @ direction, kind="stable")
    return np.column_stack([order[:-1], order[1:]])
