"""Depth slices of a model as a GeoTIFF, a band per layer."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np

from ..errors import FileError, PathLike, UsageError
from ..io.output import output_name
from ..memory import require_memory
from ..model import Model
from ..packages import require
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
    rasterio = require("rasterio", "GeoTIFF files")
    mesh = model.mesh
    chosen = list(range(mesh.nz)) if layers is None else list(layers)
    if not chosen or min(chosen) < 0 or max(chosen) >= mesh.nz:
        raise UsageError(f"layers: the mesh has {mesh.nz} layers")
    columns, rows = regular_count(mesh.x_widths, "x"), regular_count(mesh.y_widths, "y")
    require_memory(8.0 * mesh.n_cells + 8.0 * columns * rows, f"a GeoTIFF of {columns} x {rows} pixels")
    east = cells_along(mesh.x_nodes, regular_centres(mesh.x_nodes, columns))
    north = cells_along(mesh.y_nodes, regular_centres(mesh.y_nodes, rows))[::-1]
    transform = rasterio.transform.from_bounds(mesh.x_nodes[0], mesh.y_nodes[0], mesh.x_nodes[-1], mesh.y_nodes[-1], columns, rows)
    cube = shown_cube(model)
    try:
        with output_name(path) as beside, rasterio.open(
                beside, "w", driver="GTiff", width=columns, height=rows, count=len(chosen), dtype="float32", nodata=np.nan,
                transform=transform, crs=crs or None, compress="deflate") as file:
            file.update_tags(quantity=model.name, unit=model.unit)
            for band, layer in enumerate(chosen, 1):
                file.write(cube[layer][np.ix_(east, north)].T.astype(np.float32), band)
                file.set_band_description(band, f"{model.name}, elevation {mesh.z_centres[layer]:g} m")
                file.update_tags(band, elevation=f"{mesh.z_centres[layer]:g}", unit=model.unit)
    except rasterio.errors.CRSError as error:
        raise UsageError(f"{crs}: expected a coordinate reference system, such as EPSG:32633") from error
    except rasterio.errors.RasterioError as error:
        raise FileError(path, f"cannot be written: {error}") from error
    return len(chosen), rows, columns
