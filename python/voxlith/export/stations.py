"""Stations of a run with their data, for GIS: a layer of points in a GeoPackage, or a CSV."""

from __future__ import annotations

import csv
import io
import os
from collections.abc import Sequence
from typing import Any

import numpy as np

from ..errors import FileError, PathLike, UsageError
from ..io.numbers import number_text
from ..io.output import output_name, write_bytes
from ..packages import require
from ..run import Fit

Value = str | float
Column = tuple[str, list[Value]]

_DIGITS = 6  # of data; files of a run have no more


def station_columns(fit: Fit, names: Sequence[str] = ()) -> list[Column]:
    """Columns of the stations by name: ``station`` and ``line`` where there are any, x, y, elevation, then of each component
    ``observed``, ``predicted``, ``residual`` (predicted minus observed, in its unit), ``sd`` (standard deviation) and
    ``zscore`` (residual in standard deviations). NaN where a datum is masked.

    `names` has one name for each station, or is empty.
    """
    survey = fit.observed
    columns: list[Column] = []
    if names:
        columns.append(("station", list(names)))
    if survey.line is not None:
        columns.append(("line", [str(one) for one in survey.line.tolist()]))
    columns += [("x", survey.x.tolist()), ("y", survey.y.tolist()), ("elevation", survey.elevation.tolist())]
    for number, name in enumerate(survey.names):
        values = {"observed": survey.data, "predicted": fit.predicted, "residual": fit.residual, "sd": survey.uncertainties(),
                  "zscore": fit.zscore}
        masked = np.isnan(fit.zscore[number])
        columns += [(f"{name.lower()}_{what}", [float(f"{value:.{_DIGITS}g}") for value in np.where(masked, np.nan, array[number]).tolist()])
                    for what, array in values.items()]
    return columns


def write_stations_csv(path: PathLike, columns: Sequence[Column], crs: str) -> None:
    """Write the columns, and one with the reference system where it is known. Masked data are empty fields.

    Raises FileError.
    """
    text = io.StringIO()
    writer = csv.writer(text, lineterminator="\n")
    writer.writerow([*(name for name, _ in columns), *(["crs"] if crs else [])])
    for row in zip(*(values for _, values in columns)):
        writer.writerow([*map(_text, row), *([crs] if crs else [])])
    write_bytes(path, text.getvalue().encode())


def _text(value: Value) -> str:
    return value if isinstance(value, str) else "" if value != value else number_text(value)


def write_stations_geopackage(path: PathLike, layers: Sequence[tuple[str, Sequence[Column]]], crs: str) -> None:
    """Write layers of points, each with its name and columns as of :func:`station_columns`. Masked data are NULL.

    Raises
    ------
    UsageError
        For an unknown reference system.
    FileError
        When the file cannot be written.
    MissingPackageError
        Without GDAL.
    """
    ogr, osr = require("osgeo.ogr", "GeoPackage files"), require("osgeo.osr", "GeoPackage files")
    ogr.UseExceptions()
    osr.UseExceptions()
    system = None
    if crs:
        system = osr.SpatialReference()
        try:
            system.SetFromUserInput(crs)
        except RuntimeError as error:
            raise UsageError(f"{crs}: expected a coordinate reference system, such as EPSG:32633") from error
    try:
        with output_name(path) as beside:
            os.unlink(beside)  # GDAL makes a new database only where there is no file
            source = ogr.GetDriverByName("GPKG").CreateDataSource(beside)
            for name, columns in layers:
                _write_layer(ogr, source, name, columns, system)
            source = None  # closes the file
    except RuntimeError as error:
        raise FileError(path, f"cannot be written: {error}") from error


def _write_layer(ogr: Any, source: Any, name: str, columns: Sequence[Column], system: Any) -> None:
    places = dict(columns)
    layer = source.CreateLayer(name, system, ogr.wkbPoint25D)
    for title, values in columns:
        layer.CreateField(ogr.FieldDefn(title, ogr.OFTString if values and isinstance(values[0], str) else ogr.OFTReal))
    layer.StartTransaction()
    for number, (x, y, z) in enumerate(zip(places["x"], places["y"], places["elevation"])):
        feature = ogr.Feature(layer.GetLayerDefn())
        for field, (_, values) in enumerate(columns):
            if values[number] == values[number]:  # NaN stays NULL
                feature.SetField(field, values[number])
        point = ogr.Geometry(ogr.wkbPoint25D)
        point.AddPoint(x, y, z)
        feature.SetGeometry(point)
        layer.CreateFeature(feature)
    layer.CommitTransaction()
