"""Depth slices of a model as a GeoTIFF, a band per layer."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np

from ..errors import PathLike, UsageError
from ..memory import require_memory
from ..model import Model
from .raster import Band, Raster, write_geotiff
from .sampling import cells_along, regular_centres, regular_count, shown_cube


def write_depth_slices(path: PathLike, model: Model, crs: str = "", layers: Sequence[int] | None = None) -> tuple[int, int, int]:
    """Write depth slices as bands, the top layer first; each band bears the elevation of its layer.

    Rows run from north to south. Pixels have the smallest cell widths of the mesh; a pixel has the value of the cell at its
    centre. Inactive and no-data cells are NaN, which is the no-data value.

    Parameters
    ----------
    path : path
    model : Model
    crs : str
        Reference system, such as ``EPSG:32633``.
    layers : sequence of int, optional
        Layers, counted from 0 at the top; all by default.

    Returns
    -------
    tuple of 3 int
        Bands, rows and columns.

    Raises
    ------
    UsageError
        For a layer that the mesh does not have, and an unknown reference system.
    FileError
        When the file cannot be written.
    MissingPackageError
        Without rasterio.
    """
    mesh = model.mesh
    chosen = list(range(mesh.nz)) if layers is None else list(layers)
    if not chosen or min(chosen) < 0 or max(chosen) >= mesh.nz:
        raise UsageError(f"layers: the mesh has {mesh.nz} layers")
    columns, rows = regular_count(mesh.x_widths, "x"), regular_count(mesh.y_widths, "y")
    require_memory(8.0 * mesh.n_cells + 8.0 * columns * rows, f"a GeoTIFF of {columns} x {rows} pixels")
    east = cells_along(mesh.x_nodes, regular_centres(mesh.x_nodes, columns))
    north = cells_along(mesh.y_nodes, regular_centres(mesh.y_nodes, rows))[::-1]
    cube = shown_cube(model)
    raster = Raster((float(mesh.x_nodes[0]), float(mesh.y_nodes[-1])),
                    (float(np.ptp(mesh.x_nodes)) / columns, float(np.ptp(mesh.y_nodes)) / rows))
    elevations = [f"{mesh.z_centres[layer]:g}" for layer in chosen]
    bands = [Band(f"{model.name}, elevation {elevation} m", cube[layer][np.ix_(east, north)].T, model.unit,
                  {"elevation": elevation}) for layer, elevation in zip(chosen, elevations)]
    write_geotiff(path, raster, bands, crs, {"quantity": model.name, "unit": model.unit})
    return len(chosen), rows, columns
