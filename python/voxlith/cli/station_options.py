"""Options that subcommands with a CSV share: columns of the stations, and how the CSV is written."""

from __future__ import annotations

import argparse

from ..io.csv_file import CsvTable, read_csv_file
from ..survey_table import METRES, StationColumns
from .parser import Parser, number


def add_station_options(parser: Parser) -> None:
    """The columns of the stations."""
    columns = StationColumns()
    parser.add_argument("--x", metavar="COLUMN", default=columns.x, help="Column of the easting (default: x)")
    parser.add_argument("--y", metavar="COLUMN", default=columns.y, help="Column of the northing (default: y)")
    parser.add_argument("--z", metavar="COLUMN", help="Column of the elevation, up (default: z)")
    parser.add_argument("--elevation", metavar="METRES", type=number,
                        help="Elevation of all stations, in place of a column")
    parser.add_argument("--z-unit", choices=list(METRES),
                        help="Unit of the column of the elevation; metres are written (default: m)")
    parser.add_argument("--z-down", action="store_true",
                        help="The column of the elevation counts downwards: its sign is turned")


def add_csv_options(parser: Parser) -> None:
    """How the CSV is written."""
    parser.add_argument("--separator", choices=["auto", "comma", "semicolon", "tab", "blank"],
                        help="Between the fields of the CSV (default: auto)")
    parser.add_argument("--decimal-comma", action="store_true",
                        help="Numbers in the CSV have a comma before their decimals")


def station_columns(parser: Parser, options: argparse.Namespace) -> StationColumns:
    """The columns that the options say."""
    parser.exclusive(options, "elevation", "z")
    return StationColumns(options.x, options.y, options.z or "z", options.elevation, options.z_unit or "m",
                          options.z_down)


def read_table(path: str, options: argparse.Namespace) -> CsvTable:
    """The CSV, as the options say. Raises FileError."""
    return read_csv_file(path, separator=options.separator or "auto", decimal_comma=options.decimal_comma)
