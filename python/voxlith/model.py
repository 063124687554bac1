"""Values of the cells of a mesh: densities, susceptibilities, lithology numbers, any quantity."""

from __future__ import annotations

import os
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any
from xml.sax.saxutils import escape

import numpy as np
import numpy.typing as npt

from .codes import DUMMY_LIMIT
from .errors import FileError, PathLike, UsageError
from .io.model_file import Digits, read_model_file, write_model_file
from .io.output import output_name
from .mesh import Mesh
from .packages import require

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

NO_DATA = -1.0e33
"""What no-data cells hold in files. A reference model at this value leaves the cell out; -1.0e32 would not."""

_HIDDEN_CELL = 32  # bit of VTK's ghost array that blanks a cell
_GHOSTS = "vtkGhostType"


@dataclass
class Model:
    """A value per cell of a mesh.

    Parameters
    ----------
    mesh : Mesh
    values : array_like, shape (cells,) in cell order or (nz, nx, ny)
        NaN in no-data cells.
    name : str
        Quantity, e.g. ``"density contrast"``.
    unit : str
        Unit, e.g. ``"g/cm3"``.
    active : array_like of bool, shape as values, optional
        Cells below the surface. Without it all cells with a value are active.

    Raises
    ------
    UsageError
        When the values do not fit the mesh.

    Examples
    --------
    >>> mesh = Mesh([0, 10, 20], [0, 10], [0, -5, -10])
    >>> model = Model(mesh, [1.0, 2.0, 3.0, np.nan], "density contrast", "g/cm3")
    >>> model.cube[0]
    array([[1.],
           [3.]])
    >>> model.depth_slice(1)
    array([[ 2.],
           [nan]])
    """

    mesh: Mesh
    values: Reals
    name: str = "model"
    unit: str = ""
    active: Mask | None = None

    def __post_init__(self) -> None:
        self.values = self.mesh.flat(np.asarray(self.values, dtype=np.float64))
        if self.active is not None:
            self.active = self.mesh.flat(np.asarray(self.active, dtype=np.bool_))

    def __repr__(self) -> str:
        found = self.values[self.shown]
        extent = f"{found.min():g} to {found.max():g}" if len(found) else "no value"
        return f"Model({self.name}, {extent}{f' {self.unit}' if self.unit else ''}, {self.mesh})"

    @property
    def cube(self) -> Reals:
        """Values of shape (nz, nx, ny), a view: layer from the top, column from the west, row from the south."""
        cube: Reals = self.mesh.cube(self.values)
        return cube

    @property
    def shown(self) -> Mask:
        """Cells that are active and have a value, shape (cells,)."""
        valued = ~np.isnan(self.values)
        return valued if self.active is None else valued & self.active

    def depth_slice(self, layer: int) -> Reals:
        """Values of a layer, counted from 0 at the top, shape (nx, ny)."""
        layer_values: Reals = self.cube[layer]
        return layer_values

    def slice_at(self, *, x: float | None = None, y: float | None = None, elevation: float | None = None) -> Reals:
        """Values of the cells that a plane cuts.

        Parameters
        ----------
        x, y, elevation : float
            Position of the plane: one of the three, metres.

        Returns
        -------
        ndarray
            Shape (nz, ny) at an easting, (nz, nx) at a northing, (nx, ny) at an elevation.

        Raises
        ------
        UsageError
            When not exactly one position is given, or it lies outside the mesh.
        """
        axes = (("x", x), ("y", y), ("elevation", elevation))
        given = [(axis, position) for axis, position in axes if position is not None]
        if len(given) != 1:
            raise UsageError("slice: expected one of x, y and elevation")
        axis, position = given[0]
        mesh = self.mesh
        inner = {"x": mesh.x_centres[0], "y": mesh.y_centres[0], "elevation": mesh.z_centres[0], axis: position}
        cell = int(mesh.cell_at(inner["x"], inner["y"], inner["elevation"]))
        if cell < 0:
            raise UsageError(f"slice: {axis} {position:g} lies outside the mesh")
        k, i, j = cell % mesh.nz, cell // mesh.nz % mesh.nx, cell // (mesh.nz * mesh.nx)
        found: Reals = self.cube[:, i, :] if axis == "x" else self.cube[:, :, j] if axis == "y" else self.cube[k]
        return found

    def value_at(self, x: npt.ArrayLike, y: npt.ArrayLike, z: npt.ArrayLike) -> Reals:
        """Value of the cell that holds each point (easting, northing, elevation); NaN outside the mesh."""
        cells = self.mesh.cell_at(x, y, z)
        return np.where(cells < 0, np.nan, self.values[np.maximum(cells, 0)])

    @classmethod
    def read(cls, path: PathLike, mesh: Mesh, name: str = "model", unit: str = "", *, strict: bool = True) -> Model:
        """Read a model file; values at or below -1.0e30 become NaN. Raises FileError."""
        values = read_model_file(path, mesh.n_cells, strict=strict)
        values[~(values > DUMMY_LIMIT)] = np.nan
        return cls(mesh, values, name, unit)

    def write(self, path: PathLike, *, digits: Digits = "fixed") -> None:
        """Write a model file; NaN becomes -1.0e33, which leaves a cell out wherever ``voxlith`` reads a model.

        `digits` as of :func:`~voxlith.io.model_file.write_model_file`. Raises FileError.
        """
        write_model_file(path, np.where(np.isnan(self.values), NO_DATA, self.values), digits=digits)

    @classmethod
    def from_discretize(cls, mesh: Any, values: npt.ArrayLike, name: str = "model", unit: str = "") -> Model:
        """From values in the order of discretize: x fastest, then y, then z upwards.

        Parameters
        ----------
        mesh : Mesh, or TensorMesh of discretize
        values : array_like, shape (cells,)
        """
        own = mesh if isinstance(mesh, Mesh) else Mesh.from_discretize(mesh)
        array = np.asarray(values, dtype=np.float64)
        if array.shape != (own.n_cells,):
            raise UsageError(f"values: expected the shape ({own.n_cells},), found {array.shape}")
        upwards = array.reshape((own.nz, own.ny, own.nx))
        return cls(own, upwards[::-1].transpose(0, 2, 1), name, unit)

    def to_discretize(self) -> Reals:
        """Values in the order of discretize: x fastest, then y, then z upwards, shape (cells,)."""
        upwards = self.cube[::-1].transpose(0, 2, 1)
        return np.ascontiguousarray(upwards).ravel()

    def to_xarray(self) -> Any:
        """An ``xarray.DataArray`` with the dimensions (z, y, x) at the cell centres, z the elevation from the top down.

        Inactive cells are NaN. Raises MissingPackageError without xarray.
        """
        xarray = require("xarray", "labelled arrays of a model")
        mesh = self.mesh
        shown = np.where(mesh.cube(self.shown), self.cube, np.nan)
        return xarray.DataArray(
            shown.transpose(0, 2, 1), dims=("z", "y", "x"), name=self.name.replace(" ", "_"),
            coords={"z": ("z", mesh.z_centres, {"units": "m", "long_name": "elevation", "positive": "up"}),
                    "y": ("y", mesh.y_centres, {"units": "m", "long_name": "northing"}),
                    "x": ("x", mesh.x_centres, {"units": "m", "long_name": "easting"})},
            attrs={"units": self.unit, "long_name": self.name})

    def to_vtk(self) -> Any:
        """A ``vtkRectilinearGrid`` with the values as cell data; inactive and no-data cells are blanked.

        z rises, as VTK wants it. Raises MissingPackageError without VTK.
        """
        return models_to_vtk([self])

    def write_vtr(self, path: PathLike) -> None:
        """Write a VTK rectilinear grid (.vtr) for ParaView. Raises FileError."""
        write_vtr(path, [self])


def common_mesh(models: Sequence[Model], what: str) -> Mesh:
    """The mesh that all models have. Raises UsageError, which begins with `what`, without models or for several meshes."""
    if not models or any(model.mesh != models[0].mesh for model in models):
        raise UsageError(f"{what}: expected one or more models of the same mesh")
    return models[0].mesh


def models_to_vtk(models: list[Model]) -> Any:
    """One ``vtkRectilinearGrid`` with several models of the same mesh as its cell data.

    Each array bears the name of its model; a cell is blanked where no model shows a value.

    Raises
    ------
    UsageError
        When there is no model, meshes differ, or names come twice.
    MissingPackageError
        Without VTK.
    """
    mesh = common_mesh(models, "VTK grid")
    names = [model.name for model in models]
    if len(set(names)) != len(names):
        raise UsageError(f"VTK grid: expected names that differ, found {', '.join(names)}")
    data_model = require("vtkmodules.vtkCommonDataModel", "VTK grids")
    support = require("vtkmodules.util.numpy_support", "VTK grids")
    grid = data_model.vtkRectilinearGrid()
    grid.SetDimensions(mesh.nx + 1, mesh.ny + 1, mesh.nz + 1)
    for name, put, nodes in (("x", grid.SetXCoordinates, mesh.x_nodes), ("y", grid.SetYCoordinates, mesh.y_nodes),
                             ("z", grid.SetZCoordinates, mesh.z_nodes[::-1])):
        array = support.numpy_to_vtk(nodes, deep=True)
        array.SetName(name)
        put(array)
    for model in models:
        array = support.numpy_to_vtk(model.to_discretize(), deep=True)
        array.SetName(model.name)
        grid.GetCellData().AddArray(array)
    grid.GetCellData().SetActiveScalars(names[0])
    hidden = ~np.any([model.shown for model in models], axis=0)
    if hidden.any():
        order = Model(mesh, hidden.astype(np.float64)).to_discretize()
        ghosts = support.numpy_to_vtk((order * _HIDDEN_CELL).astype(np.uint8), deep=True)
        ghosts.SetName(_GHOSTS)
        grid.GetCellData().AddArray(ghosts)
    return grid


def write_vtr(path: PathLike, models: list[Model], vectors: Mapping[str, Reals] | None = None) -> None:
    """Write models of one mesh into a VTK rectilinear grid (.vtr).

    Parameters
    ----------
    path : path
    models : list of Model
    vectors : dict of ndarray, shape (cells, 3), optional
        Vectors per cell by name, to the east, to the north and upwards.

    Raises
    ------
    FileError
    UsageError, MissingPackageError
        As :func:`models_to_vtk`.
    """
    grid = models_to_vtk(models)
    for name, values in (vectors or {}).items():
        support = require("vtkmodules.util.numpy_support", "VTK grids")
        columns = np.stack([Model(models[0].mesh, values[:, axis]).to_discretize() for axis in range(3)], axis=1)
        array = support.numpy_to_vtk(np.ascontiguousarray(columns), deep=True)
        array.SetName(name)
        grid.GetCellData().SetVectors(array)
    arrays = grid.GetCellData()
    for number in range(arrays.GetNumberOfArrays()):
        # The writer of VTK 9 puts names into the file as they are.
        arrays.GetArray(number).SetName(escape(arrays.GetArray(number).GetName(), {'"': "&quot;"}))
    writer = require("vtkmodules.vtkIOXML", "VTK grids").vtkXMLRectilinearGridWriter()
    writer.SetInputData(grid)
    writer.SetDataModeToAppended()
    writer.EncodeAppendedDataOff()
    with output_name(path) as beside:
        writer.SetFileName(beside)
        if not writer.Write() or not os.path.getsize(beside):
            raise FileError(path, "cannot be written by VTK")
