"""GeoTIFF files of named bands."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, UsageError
from ..io.output import output_name
from ..packages import require

Reals = npt.NDArray[np.float64]


@dataclass(frozen=True)
class Raster:
    """Where the pixels of a raster are.

    Attributes
    ----------
    corner : tuple of 2 float
        x and y of the outer corner of the first pixel of the first row, the upper left one.
    pixel : tuple of 2 float
        Width and height of a pixel, metres.
    """

    corner: tuple[float, float]
    pixel: tuple[float, float]


@dataclass(frozen=True)
class Band:
    """Values of a raster.

    Attributes
    ----------
    name : str
    values : ndarray, shape (rows, columns)
        Rows from the top down; NaN without a value.
    unit : str
    tags : mapping
        Metadata of the band.
    """

    name: str
    values: Reals
    unit: str = ""
    tags: Mapping[str, str] = field(default_factory=dict)


def write_geotiff(path: PathLike, raster: Raster, bands: Sequence[Band], crs: str, tags: Mapping[str, str]) -> None:
    """Write bands in single precision; NaN is the no-data value.

    Parameters
    ----------
    path : path
    raster : Raster
    bands : sequence of Band
        One or more of one shape.
    crs : str
        Reference system; empty for none.
    tags : mapping
        Metadata of the file.

    Raises
    ------
    UsageError
        For an unknown reference system.
    FileError
        When the file cannot be written.
    MissingPackageError
        Without rasterio.
    """
    rasterio = require("rasterio", "GeoTIFF files")
    rows, columns = bands[0].values.shape
    transform = rasterio.Affine(raster.pixel[0], 0.0, raster.corner[0], 0.0, -raster.pixel[1], raster.corner[1])
    try:
        with output_name(path) as beside, rasterio.open(
                beside, "w", driver="GTiff", width=columns, height=rows, count=len(bands), dtype="float32", nodata=np.nan,
                transform=transform, crs=crs or None, compress="deflate") as file:
            file.update_tags(**tags)
            for number, band in enumerate(bands, 1):
                file.write(band.values.astype(np.float32), number)
                file.set_band_description(number, band.name)
                file.set_band_unit(number, band.unit)
                file.update_tags(number, unit=band.unit, **band.tags)
    except rasterio.errors.CRSError as error:
        raise UsageError(f"{crs}: expected a coordinate reference system, such as EPSG:32633") from error
    except rasterio.errors.RasterioError as error:
        raise FileError(path, f"cannot be written: {error}") from error
