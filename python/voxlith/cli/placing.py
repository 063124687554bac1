"""Options that place stations: reference systems, heights above the terrain, a shift of the origin, thinning of lines."""

from __future__ import annotations

import argparse
from dataclasses import dataclass, replace

import numpy as np
import numpy.typing as npt

from ..checks.stations import check_scale, looks_like_degrees
from ..crs import convert, outside_area_of_use, parse_crs, require_metres, shift_for_fields
from ..errors import UsageError
from ..io.line_data import thin_lines
from ..io.numbers import number_text
from ..side_file import SideInfo
from ..survey import Survey
from ..terrain_input import read_terrain
from .parser import Parser, number, number_from, number_list
from .station_options import add_terrain_options

Reals = npt.NDArray[np.float64]


@dataclass
class Placed:
    """A survey whose stations are where the options put them.

    Attributes
    ----------
    survey : Survey
    side : SideInfo
        What is to be remembered of the coordinates.
    notes, warnings : list of str
    kept : ndarray of int, shape (n,)
        Numbers, from 0, of the stations that thinning has left.
    """

    survey: Survey
    side: SideInfo
    notes: list[str]
    warnings: list[str]
    kept: npt.NDArray[np.intp]


def add_placing_options(parser: Parser) -> None:
    """The options."""
    add = parser.add_argument
    add("--crs", metavar="CRS", help="Reference system of x and y in the table, such as EPSG:4326 for longitude and latitude")
    add("--to", metavar="CRS", help="Reference system in metres to convert x and y to, such as EPSG:32633")
    add("--shift", metavar="X,Y|{none}", help="Metres to subtract from x and y, or none; stored in the side file (default: a "
        "shift only where coordinates are too wide for the files of a run)")
    add("--every", metavar="METRES", type=number_from(0.0),
        help="Keep records of a line, or rows and columns of a grid, that are at least this far apart")
    add("--height", metavar="METRES", type=number, help="Height of the stations above the terrain of --topography")
    add_terrain_options(parser, ", for --height")


def place_survey(survey: Survey, options: argparse.Namespace) -> Placed:
    """Convert, shift, thin and lift the stations. Raises VoxlithError."""
    placed = Placed(survey, SideInfo(options.crs or ""), [], [], np.arange(survey.n_stations))
    _convert(placed, options)
    _warn_of_scale(placed)
    _shift(placed, options)
    if options.every is not None:
        _thin(placed, options.every)
    if options.height is not None:
        _lift(placed, options)
    return placed


def _convert(placed: Placed, options: argparse.Namespace) -> None:
    survey = placed.survey
    if options.to:
        if not options.crs:
            raise UsageError("--to: expected --crs beside it, the reference system of the table")
        require_metres(options.to)
        x, y = convert(survey.x, survey.y, options.crs, options.to)
        # Millimetres are finer than any survey.
        placed.survey, placed.side = replace(survey, x=np.round(x, 3), y=np.round(y, 3)), SideInfo(options.to)
        placed.notes.append(f"converted:    from {options.crs} to {options.to}")
        area = outside_area_of_use(x, y, options.to)
        if area:
            placed.warnings.append(f"the survey lies outside of where {options.to} is used ({area}); check the zone, and the "
                                   "order of x and y")
    elif options.crs and not parse_crs(options.crs).is_projected:
        raise UsageError(f"--crs {options.crs}: expected --to beside it, a reference system in metres such as EPSG:32633")
    else:
        refuse_degrees(survey.x, survey.y)


def refuse_degrees(x: Reals, y: Reals) -> None:
    """Raise UsageError for coordinates that look like longitude and latitude."""
    if looks_like_degrees(x, y):
        raise UsageError(f"x from {number_text(float(x.min()))} to {number_text(float(x.max()))}, y from "
                         f"{number_text(float(y.min()))} to {number_text(float(y.max()))} look like longitude and "
                         "latitude; metres are needed: give --crs EPSG:4326 and --to EPSG:CODE of a system in metres to "
                         "voxlith-tools obs")


def _warn_of_scale(placed: Placed) -> None:
    crs = placed.side.crs
    for finding in check_scale(placed.survey.x, placed.survey.y, crs) if crs else ():
        placed.warnings.append(f"{finding.text}; {finding.remedy}")


def _shift(placed: Placed, options: argparse.Namespace) -> None:
    survey = placed.survey
    if options.shift == "none":
        return
    if options.shift:
        east, north = number_list("--shift", "x,y or none", options.shift, 2)
    else:
        east, north = shift_for_fields(survey.x, survey.y)
        if (east, north) != (0.0, 0.0):
            placed.warnings.append("x and y are too wide for the fields of the data files of a run, where they would run "
                                   f"together; {number_text(east)},{number_text(north)} was subtracted from them and is "
                                   "stored in the side file")
    if (east, north) == (0.0, 0.0):
        return
    placed.survey = replace(survey, x=survey.x - east, y=survey.y - north)
    placed.side = replace(placed.side, shift=(east, north))
    placed.notes.append(f"shift:        {number_text(east)},{number_text(north)} subtracted from x and y")


def _thin(placed: Placed, distance: float) -> None:
    survey = placed.survey
    # Records without a datum must not take the place of their neighbours.
    used = np.flatnonzero(survey.valid.any(axis=0))
    names = [""] * len(used) if survey.line is None else survey.line[used].tolist()
    kept = used[thin_lines(survey.x[used], survey.y[used], names, distance)]
    placed.survey, placed.kept = survey.select(kept), kept
    placed.notes.append(f"thinned:      {len(kept)} of {survey.n_stations} records, at least {number_text(distance)} m apart "
                        "along a line")


def _lift(placed: Placed, options: argparse.Namespace) -> None:
    if not options.topography:
        raise UsageError("--height: expected --topography beside it")
    survey, side = placed.survey, placed.side
    places = np.column_stack([survey.x, survey.y])
    step = max(float(np.ptp(survey.x)), float(np.ptp(survey.y)), 100.0) / 200.0
    surface, warning = read_terrain(options.topography, places, step, crs=side.crs, terrain_crs=options.terrain_crs or "",
                                    shift=side.shift)
    if warning:
        placed.warnings.append(warning)
    placed.survey = replace(survey, elevation=surface(survey.x, survey.y) + options.height)
    placed.notes.append(f"height:       {number_text(options.height)} m above the terrain")
