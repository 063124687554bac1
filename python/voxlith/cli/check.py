"""``voxlith-tools check``: look for what would spoil the inversion of a survey."""

from __future__ import annotations

import argparse
import os
from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..checks import Finding, check_survey, findings_json, findings_table, worst
from ..checks.against import check_mesh, check_reference_systems, check_sensitivities, check_terrain, check_top
from ..checks.background import check_background
from ..checks.field import check_field, check_field_of_any_year, check_type_and_field
from ..checks.findings import ordered
from ..checks.inactive import check_ground, check_run_cells
from ..checks.stations import check_scale, far_stations
from ..checks.survey import station_names
from ..checks.table import check_encoding, read_loosely
from ..crs import convert, outside_area_of_use, parse_crs
from ..earth_field import earth_field, inducing_field
from ..errors import FileError, UsageError
from ..grid_table import is_grid
from ..io.control_file import ControlValues, read_control_file
from ..io.mtx_file import MtxFile
from ..io.obs_file import read_obs_file
from ..io.output import write_bytes
from ..mesh import Mesh
from ..sensitivity import common_inactive_cells
from ..side_file import SideInfo, read_side_file
from ..survey import Survey
from ..survey_table import SurveyColumns
from ..terrain_input import read_terrain, terrain_step
from .check_run import check_folder, check_run_background, run_of_control
from .obs import type_code
from .output import check_output, say
from .parser import Parser
from .station_names import kept_names
from .station_options import (add_csv_options, add_data_options, add_station_options, add_terrain_options, read_table,
                              scales, station_columns)

PROGRAM = "voxlith-tools"
Reals = npt.NDArray[np.float64]
_SIGNS = {"negative": -1, "either": 0, "positive": 1}

_EXAMPLES = """\
In the data: no-data codes, no valid datum, outliers, constant data, standard deviations of 0 and below, missing data, wrong
units, a constant offset, a regional trend, components of other axes. In the stations: duplicates that differ, degrees,
positions beside or below the mesh, below the ground, or in another order than in the sensitivity file. With --date: an
inducing field that does not match place and date. With --mtx or --control: a background value that rocks do not have, a
forgotten terrain, sensitivities of another inducing field. In a run: all this, and residuals of neighbouring stations that
agree. Each finding shows a severity, the stations and what to do.

Examples:
  voxlith-tools check gz.obs --mesh mesh.msh
  voxlith-tools check run1
  voxlith-tools check survey.csv --x lon --y lat --z h --data gz:err --name station --crs EPSG:4326 --to EPSG:32633
  voxlith-tools check tmi.mag --mtx tmi.mtx --crs EPSG:32633 --date 2024-05-01 --json findings.json
The exit status is 1 when a finding would spoil a run (error), else 0."""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} check", "Check survey data for faults that would spoil an inversion", _EXAMPLES)
    add = parser.add_argument
    add("file", metavar="FILE", help="Observed data file, or a CSV (with --data), or the folder of a run")
    add_station_options(parser)
    add_data_options(parser)
    add("--name", metavar="COLUMN", help="Column of the station names of a CSV (default: its lines)")
    add("--mesh", metavar="FILE", help="Mesh file: check that the stations are above it")
    add("--mtx", metavar="FILE",
        help="Sensitivity file: compare its stations; check the ground below them, and the background value that the data "
             "would give")
    add("--control", metavar="FILE",
        help="Control file of the run: check the background value on its line 2, and that inactive cells are fixed; with a "
             "folder its name there (default: voxlith.inp)")
    add_terrain_options(parser, ": whether stations are in the ground, and the mesh below it")
    add("--crs", metavar="CRS", help="Reference system of the stations (default: that of the side file)")
    add("--to", metavar="CRS", help="Reference system in metres to convert the stations of a CSV to")
    add("--date", metavar="DATE", help="Date of a magnetic survey, to compare its field with IGRF-14")
    add("--sign", choices=["negative", "either", "positive"],
        help="Sign of the densities of the model: warns when more than a quarter of gz lies more than 2 standard deviations "
             "on the other side of 0 (default: either)")
    add("--json", metavar="FILE", help="File for all findings as JSON; - for standard output in place of the table")
    add_csv_options(parser)
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    parser = make_parser()
    options = parser.parse(arguments)
    if options.json and options.json != "-":
        check_output(options.json, {"the data": options.file, "--mesh": options.mesh, "--mtx": options.mtx})
    if os.path.isdir(options.file):
        return _of_folder(parser, options)
    findings = [] if is_grid(options.file) else check_encoding(
        options.file, is_table=bool(options.data) and not options.file.lower().endswith(".xyz"))
    try:
        survey, given, names, more = _read_table(parser, options) if options.data else _read_data(options)
    except FileError as error:
        if worst(findings) != "error":
            findings.append(Finding("error", "unreadable", str(error), _remedy(error)))
        return _finish(options, findings, 0)
    findings += more
    survey, side = _placed(options, survey, findings)
    findings += check_survey(survey, names, given=given, regional_removed=side.regional_removed,
                             sign=_SIGNS[options.sign or "either"])
    findings += _against(options, survey, side, names)
    findings += _background(options, survey, findings)
    if options.control:
        findings += check_run_cells(run_of_control(options.control))
    return _finish(options, findings, survey.n_stations)


def _of_folder(parser: Parser, options: argparse.Namespace) -> int:
    given = [name for name, value in vars(options).items() if value != parser.get_default(name) and value is not None]
    for name in sorted(set(given) - {"file", "_given", "control", "json"}):
        raise UsageError(f"--{name.replace('_', '-')} goes with a file; {options.file} is a folder")
    return _finish(options, *check_folder(options.file, options.control or "voxlith.inp"))


def _background(options: argparse.Namespace, survey: Survey, findings: Sequence[Finding]) -> list[Finding]:
    """The background that the control file removes, or could remove where the data have an offset or a slope."""
    if options.control and not options.mtx:
        return check_run_background(run_of_control(options.control), survey, findings)
    values = read_control_file(options.control).values if options.control else ControlValues()
    if not values.background and not {"constant-offset", "regional-trend"} & {finding.name for finding in findings}:
        return []
    return check_background(survey, [options.mtx] if options.mtx else (), values.background, values.background_value)


def _remedy(error: FileError) -> str:
    if ".obs" not in error.path and error.path.lower().endswith((".csv", ".txt", ".tsv")):
        return "name the columns of a table with --x, --y, --z and --data"
    return "correct the line, or convert the table once more with voxlith-tools obs"


def _finish(options: argparse.Namespace, findings: Sequence[Finding], stations: int) -> int:
    """Report; gives the exit status."""
    if options.json == "-":
        say_raw(findings_json(findings))
    else:
        if options.json:
            write_bytes(options.json, (findings_json(findings) + "\n").encode("utf-8"))
        for line in findings_table(findings):
            say(line)
        counts = [count_text(sum(finding.severity == severity for finding in findings), severity)
                  for severity in ("error", "warning", "note")]
        say(f"{options.file}: {count_text(stations, 'station')}, {', '.join(counts)}")
    return 1 if worst(findings) == "error" else 0


def say_raw(text: str) -> None:
    """JSON keeps its line ends and letters."""
    print(text)


def _codes(options: argparse.Namespace, components: int) -> list[int]:
    codes = [type_code(text) for text in options.type or ["gz"]]
    if len(codes) not in (1, components):
        raise UsageError(f"--type: expected one data type, or one for each of the {components} components")
    return codes * components if len(codes) == 1 else codes


def _read_table(parser: Parser, options: argparse.Namespace) -> tuple[Survey, Reals | None, list[str], list[Finding]]:
    columns = SurveyColumns(station_columns(parser, options), tuple(options.data), "", "", "", options.dummy or "",
                            options.percent, options.floor, *scales(options))
    found = read_loosely(read_table(options.file, options), columns, _codes(options, len(options.data)), options.name or "")
    if not found.survey.n_stations:
        raise FileError(options.file, "expected a station with x, y and elevation, found none")
    return found.survey, found.given, found.names, found.findings


def _read_data(options: argparse.Namespace) -> tuple[Survey, Reals | None, list[str], list[Finding]]:
    for name in ("name", "dummy", "percent", "floor", "data_scale", "error_scale"):
        if getattr(options, name) is not None:
            raise UsageError(f"--{name.replace('_', '-')} goes with a CSV and --data")
    codes = [type_code(text) for text in options.type or ()]
    obs = read_obs_file(options.file, codes=codes, lined=None, any_count=True)
    survey = Survey.from_obs_file(obs)
    findings = []
    if obs.count != survey.n_stations:
        findings.append(Finding("warning", "count", f"the count line has {obs.count}, the file contains {survey.n_stations} "
                                "records", "correct the count"))
    written = None if obs.uncertainty is None else np.where(np.isnan(survey.data), np.nan, obs.uncertainty)
    return survey, written, kept_names(read_side_file(options.file), survey.n_stations) or station_names(survey), findings


def _placed(options: argparse.Namespace, survey: Survey, findings: list[Finding]) -> tuple[Survey, SideInfo]:
    """The survey in metres, where it is said how."""
    side = read_side_file(options.file)
    crs = options.crs or side.crs
    if options.to:
        if not crs:
            raise UsageError("--to: expected --crs beside it")
        from dataclasses import replace
        x, y = convert(survey.x, survey.y, crs, options.to)
        survey, crs = replace(survey, x=x, y=y), options.to
    if crs and parse_crs(crs).is_projected:
        area = outside_area_of_use(survey.x + side.shift[0], survey.y + side.shift[1], crs)
        if area:
            findings.append(Finding("warning", "area-of-use", f"the survey lies outside of where {crs} is used ({area})",
                                    "check the zone, and the order of x and y"))
        findings += check_scale(survey.x + side.shift[0], survey.y + side.shift[1], crs)
    return survey, SideInfo(crs, side.shift, side.history)


def _against(options: argparse.Namespace, survey: Survey, side: SideInfo, names: Sequence[str]) -> list[Finding]:
    places = survey.x, survey.y, survey.elevation
    findings: list[Finding] = []
    for name in (options.mesh, options.mtx):
        findings += check_reference_systems(side, read_side_file(name), name) if name else []
    if options.mesh:
        findings += check_mesh(*places, Mesh.read(options.mesh), names, bool(options.topography))
    if options.topography:
        findings += _against_terrain(options, survey, side, names)
    if options.mtx:
        with MtxFile(options.mtx) as mtx:
            findings += check_sensitivities(*places, mtx.header, os.fspath(options.mtx), names)
            findings += check_type_and_field(survey, mtx.header, os.fspath(options.mtx))
        findings += check_ground(np.column_stack(places), *common_inactive_cells([options.mtx]), names)
    if options.date:
        if survey.field is None:
            found = inducing_field(survey, side.crs, options.date, side.shift)
            findings.append(Finding("note", "field-direction", f"the data have no inducing field; IGRF-14 has inclination "
                                    f"{found.inclination:.1f}, declination {found.declination:.1f} from grid north and "
                                    f"{found.strength:.0f} nT on {options.date}", "convert the table with --date"))
        else:
            findings += check_field(survey.field, earth_field(survey, side.crs, options.date, side.shift), options.date)
    else:
        findings += check_field_of_any_year(survey, side)
    return ordered(findings)


def _against_terrain(options: argparse.Namespace, survey: Survey, side: SideInfo, names: Sequence[str]) -> list[Finding]:
    # One station far off must not make the terrain of all others too coarse, or hide what was found.
    near = ~far_stations(survey.x, survey.y)
    places, known = survey.select(np.flatnonzero(near)), [names[number] for number in np.flatnonzero(near).tolist()]
    try:
        surface, warning = read_terrain(options.topography, np.column_stack([places.x, places.y]), terrain_step(places.x, places.y),
                                        crs=side.crs, terrain_crs=options.terrain_crs or "", shift=side.shift)
    except FileError as error:
        return [Finding("error", "terrain", str(error), "use a terrain that covers the stations")]
    findings = check_terrain(places.x, places.y, places.elevation, surface, known)
    if options.mesh:
        findings += check_top(places.x, places.y, Mesh.read(options.mesh), surface)
    if warning:
        findings.append(Finding("warning", "terrain", warning, "use a terrain that covers the stations"))
    return findings
