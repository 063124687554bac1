"""VTK files beside rectilinear grids: image data of uniform meshes, and stations as points."""

from __future__ import annotations

import os
from collections.abc import Sequence
from typing import Any

import numpy as np

from ..errors import FileError, PathLike, UsageError
from ..io.output import output_name
from ..mesh import Mesh
from ..model import Model, models_to_vtk
from ..packages import require
from ..run import Fit

_SAME_WIDTH = 1.0e-6  # relative difference up to which widths count as equal


def is_uniform(mesh: Mesh) -> bool:
    """Whether all cells have the same widths along each axis."""
    return all(float(np.ptp(widths)) <= _SAME_WIDTH * float(widths.max())
               for widths in (mesh.x_widths, mesh.y_widths, mesh.z_widths))


def write_vti(path: PathLike, models: Sequence[Model]) -> None:
    """Write models of one uniform mesh as VTK image data (.vti); inactive and no-data cells are blanked.

    Raises
    ------
    UsageError
        When cells differ in width, and as :func:`~voxlith.model.models_to_vtk`.
    FileError
        When the file cannot be written.
    """
    grid = models_to_vtk(list(models))
    mesh = models[0].mesh
    if not is_uniform(mesh):
        raise UsageError(f"{os.fspath(path)}: image data have cells of equal width; expected a rectilinear grid (.vtr) for this mesh")
    image = require("vtkmodules.vtkCommonDataModel", "VTK grids").vtkImageData()
    image.SetDimensions(mesh.nx + 1, mesh.ny + 1, mesh.nz + 1)
    image.SetOrigin(mesh.x_nodes[0], mesh.y_nodes[0], mesh.z_nodes[-1])
    image.SetSpacing(*(float(nodes.max() - nodes.min()) / (len(nodes) - 1)
                       for nodes in (mesh.x_nodes, mesh.y_nodes, mesh.z_nodes)))
    image.GetCellData().ShallowCopy(grid.GetCellData())
    _write(path, "vtkXMLImageDataWriter", image)


def write_stations_vtp(path: PathLike, fit: Fit) -> None:
    """Write stations as points (.vtp) with observed, predicted and residual data; NaN where a datum is masked.

    Raises FileError, and MissingPackageError without VTK.
    """
    core = require("vtkmodules.vtkCommonCore", "VTK files")
    model = require("vtkmodules.vtkCommonDataModel", "VTK files")
    support = require("vtkmodules.util.numpy_support", "VTK files")
    survey = fit.observed
    count = survey.n_stations
    points = core.vtkPoints()
    points.SetData(support.numpy_to_vtk(np.column_stack([survey.x, survey.y, survey.elevation]), deep=True))
    cells = model.vtkCellArray()
    for number in range(count):
        cells.InsertNextCell(1, [number])
    stations = model.vtkPolyData()
    stations.SetPoints(points)
    stations.SetVerts(cells)
    for number, (name, unit) in enumerate(zip(survey.names, survey.units)):
        for what, values in ((f"{name} observed ({unit})", survey.data), (f"{name} predicted ({unit})", fit.predicted),
                             (f"{name} residual (standard deviations)", fit.zscore)):
            array = support.numpy_to_vtk(np.ascontiguousarray(values[number]), deep=True)
            array.SetName(what)
            stations.GetPointData().AddArray(array)
    _write(path, "vtkXMLPolyDataWriter", stations)


def _write(path: PathLike, kind: str, content: Any) -> None:
    writer = getattr(require("vtkmodules.vtkIOXML", "VTK files"), kind)()
    writer.SetInputData(content)
    writer.SetDataModeToAppended()
    writer.EncodeAppendedDataOff()
    with output_name(path) as beside:
        writer.SetFileName(beside)
        if not writer.Write() or not os.path.getsize(beside):
            raise FileError(path, "cannot be written by VTK")
