"""The tensor mesh: rectangular cells between nodes along three axes."""

from __future__ import annotations

import math
from collections.abc import Callable
from typing import Any

import numpy as np
import numpy.typing as npt

from .errors import PathLike, UsageError
from .io.mesh_file import MOST_CELLS, MeshFile, nodes_of, read_mesh_file, write_mesh_file

Reals = npt.NDArray[np.float64]
Indices = npt.NDArray[np.intp]
Mask = npt.NDArray[np.bool_]
Surface = npt.ArrayLike | Callable[[Reals, Reals], npt.ArrayLike]

ON_SURFACE = 1.0e-6
"""A centre at most this part of a cell's thickness above the surface counts as below it."""


class Mesh:
    """A tensor mesh.

    x runs to the east, y to the north; z is the elevation and falls from the top down. Arrays of cells have the order
    of the files: z fastest from the top down, then x, then y. As a cube they have the shape (nz, nx, ny).

    Parameters
    ----------
    x_nodes : array_like, shape (nx + 1,)
        Eastings of the cell faces, rising, metres.
    y_nodes : array_like, shape (ny + 1,)
        Northings, rising, metres.
    z_nodes : array_like, shape (nz + 1,)
        Elevations, falling, metres.

    Raises
    ------
    UsageError
        When nodes do not follow one another, or there are more than 2147483647 cells.

    Examples
    --------
    >>> mesh = Mesh.from_widths((0.0, 0.0, 10.0), [100.0, 100.0], [50.0], [10.0, 20.0, 30.0])
    >>> mesh
    Mesh(2 x 1 x 3 cells, x 0 to 200, y 0 to 50, elevation -50 to 10)
    >>> mesh.z_centres
    array([  5., -10., -35.])
    >>> mesh.cell_at([150.0, 250.0], [25.0, 25.0], [-10.0, 0.0])
    array([ 4, -1])
    """

    def __init__(self, x_nodes: npt.ArrayLike, y_nodes: npt.ArrayLike, z_nodes: npt.ArrayLike) -> None:
        self.x_nodes = _axis(x_nodes, "x_nodes", 1.0)
        self.y_nodes = _axis(y_nodes, "y_nodes", 1.0)
        self.z_nodes = _axis(z_nodes, "z_nodes", -1.0)
        self._widths = tuple(_plain_widths(nodes) for nodes in (self.x_nodes, self.y_nodes, self.z_nodes))
        if self.nx * self.ny * self.nz > MOST_CELLS:
            raise UsageError(f"mesh: expected at most {MOST_CELLS} cells, found {self.nx} x {self.ny} x {self.nz}")

    @classmethod
    def from_widths(cls, corner: tuple[float, float, float], x_widths: npt.ArrayLike, y_widths: npt.ArrayLike,
                    z_widths: npt.ArrayLike) -> Mesh:
        """A mesh from its top south-west corner and the widths of its cells.

        Parameters
        ----------
        corner : tuple of 3 float
            Easting, northing and elevation of the top south-west corner, metres.
        x_widths, y_widths, z_widths : array_like
            Widths from west to east, from south to north and from the top down, metres, above 0.
        """
        widths = tuple(np.array(values, dtype=np.float64).ravel() for values in (x_widths, y_widths, z_widths))
        x, y, top = (float(value) for value in corner)
        # Nodes are summed as depths, as the tools sum them.
        mesh = cls(nodes_of(x, widths[0]), nodes_of(y, widths[1]), -nodes_of(-top, widths[2]) + 0.0)
        mesh._widths = widths
        return mesh

    @classmethod
    def read(cls, path: PathLike) -> Mesh:
        """Read a UBC mesh file. Raises FileError."""
        found = read_mesh_file(path)
        return cls.from_widths((found.west, found.south, found.top), found.east_widths, found.north_widths,
                               found.down_widths)

    def write(self, path: PathLike) -> None:
        """Write a UBC mesh file, with the widths that the mesh was built from. Raises FileError."""
        x, y, z = self._widths
        write_mesh_file(path, MeshFile(float(self.x_nodes[0]), float(self.y_nodes[0]), float(self.z_nodes[0]), x, y, z))

    @classmethod
    def from_discretize(cls, mesh: Any) -> Mesh:
        """The mesh of a ``TensorMesh`` of discretize, or of any object with `h` (widths to the east, to the north and
        upwards) and `origin` (west, south, bottom)."""
        try:
            x, y, z = (np.asarray(widths, dtype=np.float64) for widths in mesh.h)
            west, south, bottom = (float(value) for value in mesh.origin)
        except (AttributeError, TypeError, ValueError) as error:
            raise UsageError("mesh: expected a 3-D tensor mesh with h and origin") from error
        return cls(nodes_of(west, x), nodes_of(south, y), nodes_of(bottom, z)[::-1])

    def to_discretize(self, tensor_mesh: Callable[..., Any] | None = None) -> Any:
        """The same mesh for discretize.

        Parameters
        ----------
        tensor_mesh : callable, optional
            Called with a list of widths and with ``origin``; by default ``discretize.TensorMesh``.
        """
        if tensor_mesh is None:
            from .packages import require
            tensor_mesh = require("discretize", "meshes of discretize").TensorMesh
        assert tensor_mesh is not None
        widths = [self.x_widths, self.y_widths, self.z_widths[::-1]]
        return tensor_mesh(widths, origin=[self.x_nodes[0], self.y_nodes[0], self.z_nodes[-1]])

    def __repr__(self) -> str:
        return (f"Mesh({self.nx} x {self.ny} x {self.nz} cells, x {self.x_nodes[0]:g} to {self.x_nodes[-1]:g}, "
                f"y {self.y_nodes[0]:g} to {self.y_nodes[-1]:g}, "
                f"elevation {self.z_nodes[-1]:g} to {self.z_nodes[0]:g})")

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Mesh):
            return NotImplemented
        return all(np.array_equal(a, b) for a, b in ((self.x_nodes, other.x_nodes), (self.y_nodes, other.y_nodes),
                                                     (self.z_nodes, other.z_nodes)))

    __hash__ = None  # type: ignore[assignment]

    @property
    def nx(self) -> int:
        """Cells to the east."""
        return len(self.x_nodes) - 1

    @property
    def ny(self) -> int:
        """Cells to the north."""
        return len(self.y_nodes) - 1

    @property
    def nz(self) -> int:
        """Layers."""
        return len(self.z_nodes) - 1

    @property
    def n_cells(self) -> int:
        """Number of cells."""
        return self.nx * self.ny * self.nz

    @property
    def shape(self) -> tuple[int, int, int]:
        """Shape (nz, nx, ny) of a cube of cells."""
        return self.nz, self.nx, self.ny

    @property
    def depth_nodes(self) -> Reals:
        """Minus the elevations of the faces, rising downwards, shape (nz + 1,)."""
        return -self.z_nodes + 0.0

    @property
    def x_widths(self) -> Reals:
        """Widths to the east, shape (nx,)."""
        widths: Reals = np.diff(self.x_nodes)
        return widths

    @property
    def y_widths(self) -> Reals:
        """Widths to the north, shape (ny,)."""
        widths: Reals = np.diff(self.y_nodes)
        return widths

    @property
    def z_widths(self) -> Reals:
        """Thicknesses from the top down, shape (nz,)."""
        widths: Reals = np.abs(np.diff(self.z_nodes))
        return widths

    @property
    def x_centres(self) -> Reals:
        """Eastings of the cell centres, shape (nx,)."""
        return 0.5 * (self.x_nodes[:-1] + self.x_nodes[1:])

    @property
    def y_centres(self) -> Reals:
        """Northings of the cell centres, shape (ny,)."""
        return 0.5 * (self.y_nodes[:-1] + self.y_nodes[1:])

    @property
    def z_centres(self) -> Reals:
        """Elevations of the cell centres from the top down, shape (nz,)."""
        return 0.5 * (self.z_nodes[:-1] + self.z_nodes[1:])

    def centres(self) -> Reals:
        """x, y, elevation of the centre of each cell in cell order, shape (cells, 3)."""
        z, x, y = np.meshgrid(self.z_centres, self.x_centres, self.y_centres, indexing="ij")
        return np.stack([array.ravel(order="F") for array in (x, y, z)], axis=1)

    def volumes(self) -> Reals:
        """Volume of each cell in cell order, cubic metres, shape (cells,)."""
        return self.flat(self.z_widths[:, None, None] * self.x_widths[None, :, None] * self.y_widths[None, None, :])

    def cube(self, cells: npt.ArrayLike) -> npt.NDArray[Any]:
        """Values in cell order as a cube of shape (nz, nx, ny); a view where possible."""
        values = np.asarray(cells)
        if values.size != self.n_cells or values.shape not in ((self.n_cells,), self.shape):
            raise UsageError(f"cells: expected the shape ({self.n_cells},) or {self.shape}, found {values.shape}")
        return values.reshape(self.shape, order="F")

    def flat(self, cells: npt.ArrayLike) -> npt.NDArray[Any]:
        """A cube of shape (nz, nx, ny), or values in cell order, as values in cell order; a view where possible."""
        return self.cube(cells).ravel(order="F")

    def cell_index(self, k: npt.ArrayLike, i: npt.ArrayLike, j: npt.ArrayLike) -> Indices:
        """Index in cell order of layer k from the top, column i from the west and j from the south, all from 0."""
        return (np.asarray(j, dtype=np.intp) * self.nx + np.asarray(i, dtype=np.intp)) * self.nz + np.asarray(
            k, dtype=np.intp)

    def cell_at(self, x: npt.ArrayLike, y: npt.ArrayLike, z: npt.ArrayLike) -> Indices:
        """Index in cell order of the cell that contains each point; -1 outside the mesh.

        A point on a face belongs to the cell to the east, to the north or below; one on the last face of an axis to
        the last cell.

        Parameters
        ----------
        x, y, z : array_like
            Easting, northing and elevation, metres; broadcast against each other.
        """
        i, j = _interval(self.x_nodes, x), _interval(self.y_nodes, y)
        k = _interval(self.depth_nodes, -np.asarray(z, dtype=np.float64))
        i, j, k = np.broadcast_arrays(i, j, k)
        outside = (i < 0) | (j < 0) | (k < 0)
        return np.where(outside, -1, self.cell_index(k, i, j))

    def inactive_counts(self, surface: Surface) -> Indices:
        """Inactive cells at the top of each column: cells whose centre lies above a surface.

        Parameters
        ----------
        surface : number, array_like of shape (nx, ny), or callable
            Elevation of the surface at the centre of each column, or a routine that gives it for arrays x, y.

        Returns
        -------
        ndarray of int, shape (nx, ny)
        """
        x, y = np.meshgrid(self.x_centres, self.y_centres, indexing="ij")
        given = surface(x, y) if callable(surface) else surface
        elevation = np.asarray(given, dtype=np.float64)
        if elevation.shape not in ((), (self.nx, self.ny)) or not np.isfinite(elevation).all():
            raise UsageError(f"surface: expected finite elevations of shape ({self.nx}, {self.ny})")
        above = self.z_centres[:, None, None] > elevation + ON_SURFACE * self.z_widths[:, None, None]
        # The inactive cells of a column end with the first cell that is not above the surface.
        counts = np.where(above.all(axis=0), self.nz, np.argmin(above, axis=0))
        return np.broadcast_to(counts, (self.nx, self.ny)).astype(np.intp)

    def active_cells(self, surface: Surface) -> Mask:
        """Cells below a surface, in cell order, shape (cells,); see :meth:`inactive_counts`."""
        counts = self.inactive_counts(surface)
        active = np.arange(self.nz)[:, None, None] >= counts[None, :, :]
        return self.flat(active)


def _axis(nodes: npt.ArrayLike, name: str, direction: float) -> Reals:
    values = np.array(nodes, dtype=np.float64)
    if values.ndim != 1 or len(values) < 2:
        raise UsageError(f"{name}: expected two numbers or more along one axis, found the shape {values.shape}")
    if not np.isfinite(values).all() or not (np.diff(values) * direction > 0.0).all():
        raise UsageError(f"{name}: expected {'rising' if direction > 0 else 'falling'} finite numbers")
    values.flags.writeable = False
    return values


def _plain_widths(nodes: Reals) -> Reals:
    """Widths between nodes without the rounding errors of long coordinates, where they lead to the same nodes but for
    the rounding of their sum.

    >>> _plain_widths(np.array([5318000.0, 5318185.8, 5318328.7]))
    array([185.8, 142.9])
    """
    widths: Reals = np.abs(np.diff(nodes))
    last_digit = float(np.spacing(np.abs(nodes).max()))
    plain: Reals = np.round(widths, min(max(math.floor(-math.log10(2.0 * last_digit)), 0), 15))
    sign = 1.0 if nodes[-1] > nodes[0] else -1.0
    missed = np.abs(nodes_of(sign * float(nodes[0]), plain) - sign * nodes)
    return plain if (missed <= (1.0 + 0.5 * len(widths)) * last_digit).all() and (plain > 0.0).all() else widths


def _interval(nodes: Reals, coordinates: npt.ArrayLike) -> Indices:
    """Cell of an axis that contains each coordinate; -1 outside."""
    at = np.asarray(coordinates, dtype=np.float64)
    cell = np.searchsorted(nodes, at, side="right") - 1
    cell = np.where(at == nodes[-1], len(nodes) - 2, cell)
    return np.where((at >= nodes[0]) & (at <= nodes[-1]), cell, -1)
