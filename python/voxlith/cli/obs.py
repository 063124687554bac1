"""``voxlith-tools obs``: a CSV with named columns to observed data, and observed data to a CSV."""

from __future__ import annotations

import argparse
import re
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..codes import MOST_FILES, data_type_code, data_type_name, data_unit, has_magnetic_layout
from ..errors import FileError, UsageError
from ..io.csv_file import write_csv_file
from ..checks import Finding, check_survey
from ..checks.axes import ODD_IN_Z, X_NORTH
from ..checks.field import check_field_of_any_year
from ..checks.findings import listed, sentence
from ..checks.values import no_data_codes
from ..earth_field import inducing_field
from ..io.numbers import number_text, parse_integer
from ..io.obs_file import read_obs_file
from ..side_file import write_side_file
from ..survey import Direction, InducingField, Survey
from ..survey_table import (SurveyColumns, TableSummary, check_direction, split_columns, survey_of_table,
                            table_of_survey)
from .output import check_output, say, warn
from .parser import Parser, integer_within, number_list
from .placing import Placed, add_placing_options, place_survey
from .station_names import add_name_options, choose_stations, kept_names, with_names
from .station_options import (add_csv_options, add_data_options, add_station_options, read_table, scales,
                              station_columns)

PROGRAM = "voxlith-tools"
_MAGNETIC_NAME = re.compile(r"(^|_)(tmi|mag|magnetic|nt)(_|$)", re.IGNORECASE)
Reals = npt.NDArray[np.float64]
_KNOWN_TYPES = (0, 1, 2, 10, 11, 12, 13, 14, 15, 20, 21, 22)
_REPORTED = ("standard-deviations",)  # the report shows them

_EXAMPLES = """\
Examples:
  voxlith-tools obs survey.csv --x easting --y northing --z elevation --data gz:gz_err --out gz.obs
  voxlith-tools obs flight.csv --x E --y N --z height --data tmi --floor 2 --percent 1 --field 65,10,50000 \\
      --line line --time fid --out tmi.mag
  voxlith-tools obs levels.csv --z depth --z-down --z-unit ft --data gxx:err --data gzz:err --type gxx gzz --out g.obs
  voxlith-tools obs degrees.csv --x lon --y lat --z h --data tmi --crs EPSG:4326 --to EPSG:32633 --date 2024-05-01 \\
      --type tmi --floor 2 --out tmi.mag
  voxlith-tools obs flight.xyz --x X --y Y --data TMI --line line --time FID --height 60 --topography dem.tif \\
      --every 50 --field 65,10,50000 --floor 2 --out tmi.mag
  voxlith-tools obs bouguer.gxf --data band1 --height 0 --topography dem.tif --every 200 --floor 0.05 --out gz.obs
  voxlith-tools obs voxlith.pre --csv predicted.csv --x easting --y northing --z elevation --data gz:gz_err
An empty field is a dummy. A standard deviation that no column gives is percent |d| / 100 + floor, or, without these
options, 1 for magnetic data and 0.01 for all others."""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} obs", "Convert a CSV to observed data, or observed data to a CSV", _EXAMPLES)
    parser.add_argument("file", metavar="FILE", help="CSV, Geosoft XYZ file or grid (with --out), or observed data file (with --csv)")
    parser.add_argument("--out", metavar="FILE", help="Observed data file to write")
    parser.add_argument("--csv", metavar="FILE", help="CSV file to write")
    add_station_options(parser)
    add_data_options(parser)
    parser.add_argument("--x-north", action="store_true",
                        help="Components of the table have x north and y east: gxx and gyy, gxz and gyz, tx and ty are exchanged")
    parser.add_argument("--upwards", action="store_true",
                        help="Components of the table have z upwards: the signs of gz, gxz, gyz and tz are changed")
    parser.add_argument("--field", metavar="INCL,DECL,NT", help="Inducing field incl,decl,nT of magnetic data")
    parser.add_argument("--date", metavar="DATE",
                        help="Date of a magnetic survey: the field is that of IGRF-14 at its place, in place of --field; its "
                             "declination is turned from true north to grid north, the y axis of a projected system")
    parser.add_argument("--direction", metavar="AINCL,ADECL",
                        help="Measured direction aincl,adecl (default: along the field)")
    parser.add_argument("--angles", metavar="COLUMNS",
                        help="Columns aincl:adecl of a direction for each record: the downhole form")
    parser.add_argument("--line", metavar="COLUMN", help="Column of the line name; spaces in names become _. Name and time become "
                        "the last two columns of the data file")
    parser.add_argument("--time", metavar="COLUMN", help="Column of the time or distance along the line (default with --line: the "
                        "distance in metres from the first station of the line)")
    add_name_options(parser)
    parser.add_argument("--components", metavar="COUNT", type=integer_within(1, MOST_FILES),
                        help="Components of the observed data file (with --csv)")
    add_placing_options(parser)
    add_csv_options(parser)
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    parser = make_parser()
    options = parser.parse(arguments)
    parser.exclusive(options, "out", "csv")
    parser.exclusive(options, "field", "date")
    if options.height is not None:
        parser.exclusive(options, "height", "elevation")
        parser.exclusive(options, "height", "z")
        options.elevation = 0.0  # until the terrain is known
    columns = SurveyColumns(station_columns(parser, options), tuple(options.data or ()), options.angles or "",
                            options.line or "", options.time or "", options.dummy or "", options.percent, options.floor,
                            *scales(options))
    _check_common(options, columns)
    output = options.out or options.csv
    check_output(output, {"the file to convert": options.file})
    done = _import(options, columns) if options.out else _export(options, columns)
    _report(output, done)
    _warn(output, done)
    return 0


@dataclass(frozen=True)
class _Converted:
    """What was converted: the survey, what its table left open, the count line of observed data, and whether the data
    types are known."""

    survey: Survey
    summary: TableSummary
    count: int | None
    types_known: bool
    placed: Placed | None = None
    findings: Sequence[Finding] = ()


def type_code(text: str) -> int:
    """Code of a data type by its name or number. Raises UsageError for any other text."""
    code = parse_integer(text)
    if code is None:
        try:
            code = data_type_code(text)
        except UsageError:
            code = -1
    if code not in _KNOWN_TYPES:
        known = ", ".join(f"{known} {data_type_name(known).lower()}" for known in _KNOWN_TYPES)
        raise UsageError(f"--type {text}: unknown; known are {known}")
    return code


def _check_common(options: argparse.Namespace, columns: SurveyColumns) -> None:
    if not options.out and not options.csv:
        raise UsageError("expected one of --out and --csv")
    if columns.time and not columns.line:
        raise UsageError("--time: expected --line beside it")
    if options.csv and columns.line and not columns.time:
        raise UsageError("--line: expected --time beside it with --csv")
    if len(columns.data) > MOST_FILES:
        raise UsageError(f"--data: expected at most {MOST_FILES} components")


def _codes(types: Sequence[str], components: int, otherwise: str) -> list[int]:
    """Data type of each component; one type stands for all."""
    if len(types) not in (0, 1, components):
        raise UsageError(f"--type: expected one data type, or one for each of the {components} components")
    codes = [type_code(text) for text in types] or [type_code(otherwise)]
    return codes * components if len(codes) == 1 else codes


def _import(options: argparse.Namespace, columns: SurveyColumns) -> _Converted:
    """A CSV to observed data."""
    if not columns.data:
        raise UsageError("expected --data with the column of the data")
    if options.components:
        raise UsageError("--components goes with --csv")
    if columns.angles and not all(split_columns(columns.angles)):
        raise UsageError(f"--angles {columns.angles}: expected aincl:adecl")
    if columns.angles and columns.line:
        raise UsageError("--angles and --line cannot stand together")
    types = list(options.type or ())
    magnetic = bool(options.field or options.date)
    codes = _codes(types, len(columns.data), "tmi" if magnetic else "gz")
    codes = [X_NORTH.get(code, code) for code in codes] if options.x_north else codes
    inducing, direction = _field(options, codes, (types or ["tmi" if magnetic else "gz"])[0])
    if columns.angles and codes[0] != 1:
        raise UsageError("--angles: expected data of type tmi")
    chosen = choose_stations(read_table(options.file, options), options)
    if columns.angles and chosen.masked.any():
        raise UsageError("--mask: records with angles have no dummies; leave the stations out with --drop")
    read, summary = survey_of_table(chosen.table, columns, codes, inducing=inducing, direction=direction)
    read.data[:, chosen.masked] = np.nan
    if read.uncertainty is not None:
        read.uncertainty[:, chosen.masked] = 0.0
    masked = _mask_no_data_codes(read, chosen.names or [f"line {line}" for line in chosen.table.lines.tolist()])
    if masked and columns.angles:
        raise FileError(options.file, f"{masked[0].text} ({listed(masked[0].stations)}); records with angles have no dummies: "
                        "leave these stations out")
    if not read.valid.any():
        raise FileError(options.file, "expected a valid datum, found none; check the columns of --data and --dummy")
    if options.upwards:
        signs = np.array([-1.0 if code in ODD_IN_Z else 1.0 for code in codes])
        read = read.with_data(signs[:, None] * read.data + 0.0)
    placed = place_survey(read, options)
    survey = placed.survey
    if survey.line is not None and survey.time is None:
        survey.time = _distances(survey)
    if chosen.dropped:
        placed.notes.append(f"dropped:      {count_text(chosen.dropped, 'station')} of --drop")
    if chosen.masked.any():
        placed.notes.append(f"masked:       {count_text(np.count_nonzero(chosen.masked), 'station')} of --mask")
    if chosen.names:
        placed.side = with_names(placed.side, [chosen.names[number] for number in placed.kept.tolist()])
    if options.date:
        survey.field = inducing_field(survey, placed.side.crs, options.date, placed.side.shift)
        placed.side = placed.side.with_step("field", model="IGRF-14", date=options.date)
        survey.direction = direction or survey.field.direction
    survey.write(options.out, digits="full")
    write_side_file(options.out, placed.side)
    masked += [] if types or magnetic else _magnetic_names(columns)
    of_place = [] if options.date else check_field_of_any_year(survey, placed.side)
    return _Converted(survey, summary, None, True, placed,
                      [*masked, *check_survey(survey, kept_names(placed.side, survey.n_stations) or None), *of_place])


def _magnetic_names(columns: SurveyColumns) -> list[Finding]:
    """Columns whose names are those of magnetic data, which are read as gravity without --type and --field."""
    found = [name for name in (text.split(":")[0] for text in columns.data) if _MAGNETIC_NAME.search(name)]
    return [Finding("warning", "data-type", f"column {name} is read as gz in mGal, but has the name of magnetic data",
                    "give --field or --date with magnetic data, or --type gz") for name in found]


def _mask_no_data_codes(survey: Survey, names: Sequence[str]) -> list[Finding]:
    """Mask data that are a no-data code, which would spoil a run; gives what is to say of them."""
    findings = []
    for number, label in enumerate(survey.names):
        values = survey.data[number]
        coded = no_data_codes(values)
        for code in np.unique(values[coded]).tolist():
            same = values == code
            findings.append(Finding("warning", "no-data-code", f"{label}: {count_text(np.count_nonzero(same), 'datum', 'data')} of "
                                    f"{code:g}, which stands for no datum, masked", f"--dummy {code:g} masks without a warning",
                                    tuple(names[at] for at in np.flatnonzero(same).tolist())))
        values[coded] = np.nan
        if survey.uncertainty is not None:
            survey.uncertainty[number, coded] = 0.0
    return findings


def _distances(survey: Survey) -> Reals:
    """Distance of each station from the first one of its line, along the line, metres."""
    distance = np.zeros(survey.n_stations)
    for line in survey.lines():
        x, y = survey.x[line.slice], survey.y[line.slice]
        distance[line.slice] = np.round(np.concatenate([[0.0], np.cumsum(np.hypot(np.diff(x), np.diff(y)))]), 3)
    return distance


def _field(options: argparse.Namespace, codes: Sequence[int],
           first: str) -> tuple[InducingField | None, Direction | None]:
    """Inducing field and measured direction, where the first component is magnetic."""
    if not has_magnetic_layout(codes[0]):
        if options.field or options.date:
            raise UsageError(f"--{'field' if options.field else 'date'}: {first} data have no inducing field")
        return None, None
    if options.date:
        found = Direction(*number_list("--direction", "aincl,adecl", options.direction, 2)) if options.direction else None
        if found:
            check_direction(found, "--direction")
        return None, found
    if not options.field:
        raise UsageError(f"--type {first}: expected --field incl,decl,nT, or --date, with magnetic data")
    inclination, declination, strength = number_list("--field", "incl,decl,nT", options.field, 3)
    inducing = InducingField(inclination, declination, strength)
    direction = inducing.direction
    if options.direction:
        direction = Direction(*number_list("--direction", "aincl,adecl", options.direction, 2))
    for angles in (inducing.direction, direction):
        check_direction(angles, "--field, --direction")
    if not strength > 0.0:
        raise UsageError(f"--field {options.field}: expected a field strength above 0 nT")
    return inducing, direction


def _export(options: argparse.Namespace, columns: SurveyColumns) -> _Converted:
    """Observed data to a CSV."""
    for option in ("name", "drop", "mask", "data_scale", "error_scale", "percent", "floor", "field", "direction",
                   "angles", "dummy", "elevation", "z_down", "z_unit", "crs", "to", "shift", "every", "height", "topography",
                   "terrain_crs", "date", "x_north", "upwards"):
        if getattr(options, option) not in (None, "", False):
            raise UsageError(f"--{option.replace('_', '-')} goes with --out")
    if options.separator == "blank" or options.decimal_comma:
        raise UsageError("--separator blank and --decimal-comma go with --out: a CSV is written with commas, semicolons "
                         "or tabs")
    types = [type_code(text) for text in options.type or ()]
    components = options.components or len(types) or len(columns.data)
    codes = _codes(list(map(str, types)), components, "gz") if types else []
    found = read_obs_file(options.file, codes=codes, components=0 if codes else components, lined=bool(columns.line) or None,
                          any_count=True)
    survey = Survey.from_obs_file(found)
    write_csv_file(options.csv, table_of_survey(survey, columns), separator=options.separator or "comma")
    return _Converted(survey, TableSummary(), found.count, bool(found.codes))


def _report(output: str, done: _Converted) -> None:
    survey = done.survey
    say(f"file:         {output}")
    say(f"records:      {survey.n_stations}")
    for label, values in (("x:", survey.x), ("y:", survey.y), ("elevation:", survey.elevation)):
        say(f"{label:<13} {number_text(float(values.min()))} to {number_text(float(values.max()))}")
    for number in range(survey.n_components):
        _report_component(survey, number, done.types_known)
    if survey.field is not None:
        field, direction = survey.field, survey.direction or survey.field.direction
        say("field:        " + ",".join(map(number_text, (field.inclination, field.declination, field.strength))))
        say(f"direction:    {number_text(direction.inclination)},{number_text(direction.declination)}, direction flag "
            f"{survey.idir}")
    for note in done.placed.notes if done.placed else ():
        say(note)
    if done.summary.default_uncertainties:
        say(f"default:      {done.summary.default_uncertainties} standard deviations that no column gives")


def _report_component(survey: Survey, number: int, types_known: bool) -> None:
    values = survey.data[number]
    valid = ~np.isnan(values)
    count = int(np.count_nonzero(valid))
    text = f"component {number + 1}:  {count} data, {survey.n_stations - count} dummies"
    if count:
        unit = f" {data_unit(survey.codes[number])}" if types_known else ""
        text += f", {values[valid].min():.6g} to {values[valid].max():.6g}{unit}"
    if count and survey.uncertainty is not None:
        deviations = np.nan_to_num(survey.uncertainty[number][valid])
        text += f", standard deviations {deviations.min():.6g} to {deviations.max():.6g}"
    say(text)


def _warn(output: str, done: _Converted) -> None:
    survey = done.survey
    for text in done.placed.warnings if done.placed else ():
        warn(PROGRAM, f"{output}: {text}")
    for finding in done.findings:
        if finding.severity != "note" and finding.name not in _REPORTED:
            warn(PROGRAM, f"{output}: {sentence(finding)}")
    if survey.field is not None and not survey.field.is_of_the_earth:
        warn(PROGRAM, f"{output}: a field of {number_text(survey.field.strength)} nT is not that of the Earth")
    if done.summary.assumed_uncertainties:
        warn(PROGRAM, f"{output}: {count_text(done.summary.assumed_uncertainties, 'datum', 'data')} without a standard deviation; "
             f"{1 if has_magnetic_layout(survey.codes[0]) else 0.01} is assumed; give --percent and --floor")
    if done.summary.falling_times:
        warn(PROGRAM, f"{output}: the time does not rise along its line in {done.summary.falling_times} records; "
             "averages along lines need it to")
    if done.count is not None and done.count != survey.n_stations:
        warn(PROGRAM, f"the count line has {done.count}, the file contains {survey.n_stations} records")
