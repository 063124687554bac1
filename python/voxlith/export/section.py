"""Vertical sections through models as GeoTIFF and as CSV.

A raster of a section has the position along the section as its x and the elevation as its y. Its side file says where
the section starts and ends in the reference system of the survey.
"""

from __future__ import annotations

import csv
import io
from collections.abc import Sequence

import numpy as np

from ..errors import PathLike, UsageError
from ..io.numbers import number_text
from ..io.output import open_output
from ..memory import require_memory
from ..mesh import Mesh
from ..model import Model, common_mesh
from ..section import Section, section_across, section_between, straight_line
from ..side_file import SideInfo, write_side_file
from ..survey import Survey
from .raster import Band, Raster, write_geotiff
from .sampling import cells_along, regular_centres, regular_count, shown_cube

LOCAL_CRS = 'LOCAL_CS["section: position along it and elevation",UNIT["metre",1]]'
_HEADING = ("position", "x", "y", "elevation", "width", "thickness")
_POSITIONS = {"x": "easting", "y": "northing", "": "distance from the start"}


def section_at(mesh: Mesh, normal: str, value: float) -> Section:
    """The section at an easting (`normal` x) or a northing (`normal` y). Raises UsageError for one beside the mesh."""
    nodes = mesh.x_nodes if normal == "x" else mesh.y_nodes
    if not nodes[0] <= value <= nodes[-1]:
        raise UsageError(f"section: {normal} {value:.12g} lies outside the mesh, {nodes[0]:.12g} to {nodes[-1]:.12g}")
    return section_across(mesh, normal, value)


def section_of_stations(mesh: Mesh, survey: Survey) -> Section:
    """The section below stations on one straight line, from the first to the last. Raises UsageError for other surveys."""
    line = straight_line(survey.x, survey.y)
    if line is None:
        raise UsageError("section: expected stations on one straight line, found others; name two points")
    if line.axis:
        return section_at(mesh, "y" if line.axis == "x" else "x", line.start[1] if line.axis == "x" else line.start[0])
    length = float(line.distance.max())
    (x, y), (east, north) = line.start, line.direction
    return section_between(mesh, line.start, (x + length * east, y + length * north))


def write_section_geotiff(path: PathLike, model: Model, section: Section, crs: str = "") -> tuple[int, int]:
    """Write a section as a raster of one band, and its side file.

    Pixels have the smallest widths of the cells that the section cuts; a pixel has the value of the cell at its centre.
    Inactive and no-data cells are NaN, which is the no-data value.

    Returns
    -------
    tuple of 2 int
        Rows and columns.

    Raises
    ------
    FileError
        When a file cannot be written.
    MissingPackageError
        Without rasterio.
    """
    mesh, nodes = model.mesh, section.nodes
    cut = np.diff(nodes) if section.line is None else np.concatenate([mesh.x_widths[section.i], mesh.y_widths[section.j]])
    columns = regular_count(cut, "section", float(nodes[-1] - nodes[0]))
    rows = regular_count(mesh.z_widths, "z")
    require_memory(8.0 * mesh.n_cells + 8.0 * columns * rows, f"a GeoTIFF of {columns} x {rows} pixels")
    k = cells_along(mesh.z_nodes, regular_centres(mesh.z_nodes, rows))
    x, y = section.points(regular_centres(nodes, columns))
    i, j = cells_along(mesh.x_nodes, x), cells_along(mesh.y_nodes, y)
    values = shown_cube(model)[k][:, i, j]
    raster = Raster((float(nodes[0]), float(mesh.z_nodes[0])),
                    (float(np.ptp(nodes)) / columns, float(np.ptp(mesh.z_nodes)) / rows))
    write_geotiff(path, raster, [Band(f"{model.name}, section", values, model.unit)], LOCAL_CRS,
                  {"quantity": model.name, "unit": model.unit, "section": _ends_text(section)})
    write_side_file(path, section_side(section, crs))
    return rows, columns


def section_side(section: Section, crs: str) -> SideInfo:
    """What the side file of a section says: its axes, and its ends in the reference system of the survey."""
    x, y = section.points(section.nodes[[0, -1]])
    return SideInfo(crs).with_step("section", horizontal=_POSITIONS[section.axis], vertical="elevation",
                                   positions=[float(section.nodes[0]), float(section.nodes[-1])],
                                   start=[float(x[0]), float(y[0])], end=[float(x[1]), float(y[1])])


def _ends_text(section: Section) -> str:
    x, y = section.points(section.nodes[[0, -1]])
    return " to ".join(f"{number_text(float(a))},{number_text(float(b))}" for a, b in zip(x, y))


def write_section_csv(path: PathLike, models: Sequence[Model], section: Section) -> int:
    """Write a section as a table: one row per cell that it cuts and that is active in one of the models, from the top down.

    ``position`` is that along the section at the middle of the cut, ``width`` is the length of the cut. Lengths are
    metres. A value that is missing is empty.

    Returns
    -------
    int
        Rows.

    Raises
    ------
    UsageError
        Without models, or for models of several meshes.
    FileError
        When the file cannot be written.
    """
    mesh = common_mesh(models, "CSV of a section")
    middle, widths = 0.5 * (section.nodes[1:] + section.nodes[:-1]), np.diff(section.nodes)
    x, y = section.points(middle)
    planes = [shown_cube(model)[:, section.i, section.j] for model in models]
    text = io.StringIO()
    rows = csv.writer(text, lineterminator="\n")
    rows.writerow([*_HEADING, *(f"{model.name} ({model.unit})" if model.unit else model.name for model in models)])
    count = 0
    for column in range(len(middle)):
        for k in np.flatnonzero(np.any([np.isfinite(plane[:, column]) for plane in planes], axis=0)).tolist():
            lengths = (middle[column], x[column], y[column], mesh.z_centres[k], widths[column], mesh.z_widths[k])
            values = (float(plane[k, column]) for plane in planes)
            rows.writerow([*(number_text(round(float(length), 3)) for length in lengths),
                           *("" if value != value else number_text(value) for value in values)])
            count += 1
    with open_output(path) as output:
        output.write(text.getvalue().encode())
    return count
