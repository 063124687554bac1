"""Options that subcommands with a CSV share: columns of the stations, and how the CSV is written."""

from __future__ import annotations

import argparse

from ..crs import parse_crs
from ..errors import UsageError
from ..grid_table import is_grid, read_grid_data, table_of_grid
from ..io.csv_file import CsvTable, read_csv_file
from ..io.line_data import read_line_data, table_of_lines
from ..survey_table import METRES, StationColumns
from .parser import Parser, number, number_from


def add_station_options(parser: Parser) -> None:
    """The columns of the stations."""
    columns = StationColumns()
    parser.add_argument("--x", metavar="COLUMN", default=columns.x, help="Column of the easting (default: x)")
    parser.add_argument("--y", metavar="COLUMN", default=columns.y, help="Column of the northing (default: y)")
    parser.add_argument("--z", metavar="COLUMN", help="Column of the elevation, positive upwards (default: z)")
    parser.add_argument("--elevation", metavar="METRES", type=number,
                        help="Elevation of all stations, in place of a column")
    parser.add_argument("--z-unit", choices=list(METRES),
                        help="Unit of the column of the elevation; metres are written (default: m)")
    parser.add_argument("--z-down", action="store_true",
                        help="The column of the elevation is positive downwards: its sign is changed")


def add_data_options(parser: Parser) -> None:
    """Columns and types of the data, their default standard deviation, and what stands for no datum."""
    add = parser.add_argument
    add("--data", metavar="COLUMN", nargs="+", action="extend",
        help="Columns datum or datum:standard deviation of each component of a CSV, up to six; in mGal, "
             "Eotvos (gradients) or nT, else with --data-scale")
    add("--type", metavar="TYPE", nargs="+", action="extend",
        help="Data type of each component: gz, gxx, gyy, gzz, gxy, gxz, gyz, tmi, tx, ty, tz, or a code (default: gz, or tmi with "
             "a field)")
    add("--percent", metavar="NUMBER", type=number_from(0.0), help="Default standard deviation: percent of the datum")
    add("--floor", metavar="NUMBER", type=number_from(0.0), help="Default standard deviation: floor, added to the percentage")
    add("--data-scale", metavar="FACTOR", type=number_from(0.0, above=True),
        help="Multiply the data and their column of standard deviations by this factor, such as 0.001 from microgal to "
             "mGal; --percent and --floor are not multiplied")
    add("--error-scale", metavar="FACTOR", type=number_from(0.0, above=True),
        help="Multiply the column of the standard deviations by this factor, in place of --data-scale")
    add("--dummy", metavar="TEXT", help="Text or number that stands for no datum, such as -9999")


def scales(options: argparse.Namespace) -> tuple[float, float]:
    """What data and standard deviations are multiplied by."""
    data = 1.0 if options.data_scale is None else float(options.data_scale)
    return data, data if options.error_scale is None else float(options.error_scale)


def add_terrain_options(parser: Parser, purpose: str) -> None:
    """The terrain, and what it is for."""
    parser.add_argument("--topography", metavar="FILE", help=f"Terrain in any form of the subcommand terrain{purpose}")
    parser.add_argument("--terrain-crs", metavar="CRS", help="Reference system of the terrain where its file names none")


def add_csv_options(parser: Parser) -> None:
    """How the CSV is written."""
    parser.add_argument("--separator", choices=["auto", "comma", "semicolon", "tab", "blank"],
                        help="Separator of the fields of the CSV (default: auto)")
    parser.add_argument("--decimal-comma", action="store_true",
                        help="Numbers in the CSV have a decimal comma")


def station_columns(parser: Parser, options: argparse.Namespace) -> StationColumns:
    """The columns that the options say."""
    parser.exclusive(options, "elevation", "z")
    return StationColumns(options.x, options.y, options.z or "z", options.elevation, options.z_unit or "m",
                          options.z_down)


def read_table(path: str, options: argparse.Namespace) -> CsvTable:
    """The table, as its name and the options say: Geosoft XYZ, a grid, or a CSV. Raises VoxlithError.

    A grid brings its reference system into ``options.crs``, and is thinned by ``options.every``.
    """
    if not options.separator:
        if path.lower().endswith(".xyz"):
            return table_of_lines(read_line_data(path), path, options.decimal_comma)
        if is_grid(path):
            return _grid_table(path, options)
    return read_csv_file(path, separator=options.separator or "auto", decimal_comma=options.decimal_comma)


def _grid_table(path: str, options: argparse.Namespace) -> CsvTable:
    grid = read_grid_data(path, getattr(options, "every", None) or 0.0)
    options.every = None
    asked = getattr(options, "crs", None)
    if asked and grid.crs and not parse_crs(asked).equals(parse_crs(grid.crs)):
        raise UsageError(f"--crs {asked}: {path} is in {grid.crs}")
    options.crs = asked or grid.crs or None
    return table_of_grid(grid, path)
