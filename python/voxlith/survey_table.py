"""Survey data from a table with named columns, as spreadsheets and processing programs export them, and back."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass, field
from typing import Any, Literal

import numpy as np
import numpy.typing as npt

from .checks.values import no_data_codes
from .codes import DUMMY_LIMIT, has_magnetic_layout
from .errors import FileError, UsageError
from .io.csv_file import CsvTable
from .io.numbers import number_text, parse_real
from .io.obs_file import LINE_NAME_WIDTH
from .io.text_lines import to_bytes
from .packages import require
from .survey import Direction, InducingField, Survey

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]
Unit = Literal["m", "km", "ft"]

METRES: dict[str, float] = {"m": 1.0, "km": 1000.0, "ft": 0.3048}
MASKED_WORDS = frozenset(("", "NA", "N/A", "NaN", "nan", "NULL", "null"))
"""Fields that stand for no datum; so does any field with an asterisk."""


@dataclass(frozen=True)
class StationColumns:
    """Columns of the stations.

    Attributes
    ----------
    x, y, z : str
        Easting, northing, elevation.
    elevation : float or None
        Of all stations, metres; the column z is then not used.
    z_unit : {"m", "km", "ft"}
        Unit of the column z.
    z_down : bool
        Whether the column z counts downwards.
    """

    x: str = "x"
    y: str = "y"
    z: str = "z"
    elevation: float | None = None
    z_unit: Unit = "m"
    z_down: bool = False


@dataclass(frozen=True)
class SurveyColumns:
    """Columns of the data, and what stands for those that are missing.

    Attributes
    ----------
    data : sequence of str
        ``"datum"`` or ``"datum:uncertainty"`` of each component.
    angles : str
        ``"aincl:adecl"`` of a direction per record (downhole form); empty for none.
    line, time : str
        Line name, and time or distance along it; empty for none.
    dummy : str
        A text or number that stands for no datum.
    percent, floor : float or None
        Standard deviations that no column gives are ``percent |d| / 100 + floor``; without both, the default of the
        data type.
    data_scale, error_scale : float
        What the data, and the standard deviations of a column, are multiplied by.
    """

    station: StationColumns = field(default_factory=StationColumns)
    data: Sequence[str] = ()
    angles: str = ""
    line: str = ""
    time: str = ""
    dummy: str = ""
    percent: float | None = None
    floor: float | None = None
    data_scale: float = 1.0
    error_scale: float = 1.0


@dataclass
class TableSummary:
    """What happened to a table.

    Attributes
    ----------
    default_uncertainties : int
        Standard deviations that no column gave.
    assumed_uncertainties : int
        Those of them that neither percentage nor floor gave.
    falling_times : int
        Records whose time is not above that of the record before on the same line.
    """

    default_uncertainties: int = 0
    assumed_uncertainties: int = 0
    falling_times: int = 0


def split_columns(text: str) -> tuple[str, str]:
    """The names around the last colon.

    >>> split_columns("gz:err"), split_columns("gz")
    (('gz', 'err'), ('gz', ''))
    """
    first, colon, second = text.rpartition(":")
    return (first, second) if colon else (text, "")


def stations_of_table(table: CsvTable, columns: StationColumns) -> tuple[Reals, Reals, Reals]:
    """x, y and elevation of the records, metres.

    Raises
    ------
    UsageError
        For names that the table does not have.
    FileError
        For the first field that is no number.
    """
    x_column, y_column = table.column(columns.x, "--x"), table.column(columns.y, "--y")
    z_column = table.column(columns.z, "--z") if columns.elevation is None else None
    x, y = _coordinate(table, x_column), _coordinate(table, y_column)
    if columns.elevation is not None or z_column is None:
        return x, y, np.full(len(table), columns.elevation)
    with np.errstate(over="ignore"):
        z = _coordinate(table, z_column) * METRES[columns.z_unit] * (-1.0 if columns.z_down else 1.0)
    _require(np.isfinite(z), table, z_column, "an elevation that can be held")
    return x, y, z + 0.0


def _coordinate(table: CsvTable, column: int) -> Reals:
    """A coordinate of all stations; the error says that obs --drop leaves stations out."""
    try:
        return table.numbers(column)
    except FileError as error:
        raise FileError(error.path, f"{error.problem}; obs --drop leaves such stations out", line=error.line) from None


def survey_of_table(table: CsvTable, columns: SurveyColumns, codes: Sequence[int], *,
                    inducing: InducingField | None = None,
                    direction: Direction | None = None) -> tuple[Survey, TableSummary]:
    """The survey of a table.

    Parameters
    ----------
    table : CsvTable
    columns : SurveyColumns
    codes : sequence of int
        Data type of each component.
    inducing, direction
        Inducing field and measured direction of magnetic data.

    Raises
    ------
    UsageError
        For names that the table does not have.
    FileError
        For the first field that cannot be used: file, line, column, what was expected and found.
    """
    summary = TableSummary()
    places = [_component_columns(table, text) for text in columns.data]
    angle_columns = [table.column(name, "--angles") for name in split_columns(columns.angles)] if columns.angles else []
    line_column = table.column(columns.line, "--line") if columns.line else None
    time_column = table.column(columns.time, "--time") if columns.line and columns.time else None
    x, y, z = stations_of_table(table, columns.station)
    if not len(table):
        raise FileError(table.path, "expected a record, found the end of the file", line=table.end)
    angles = np.column_stack([table.numbers(column) for column in angle_columns]) if angle_columns else None
    pairs = [_component(table, place, columns, codes[0], summary) for place in places]
    data, uncertainty = np.array([datum for datum, _ in pairs]), np.array([deviation for _, deviation in pairs])
    if angles is not None:
        _require(~np.isnan(data).any(axis=0), table, places[0][0], "a datum, as records with angles have no dummies")
    line = time = None
    if line_column is not None:
        line = _line_names(table, line_column)
    if line is not None and time_column is not None:
        time = table.numbers(time_column)
        summary.falling_times = int(np.count_nonzero((line[1:] == line[:-1]) & ~(time[1:] > time[:-1])))
    survey = Survey(x, y, z, data, tuple(codes), uncertainty, inducing, direction, 1 if angles is None else 0, angles,
                    line, time)
    return survey, summary


def table_of_survey(survey: Survey, columns: SurveyColumns) -> Any:
    """Text of a survey as a pandas frame, with the column names of `columns` where it has them.

    Masked data and standard deviations that are not given are empty.
    """
    pandas = require("pandas", "tables of a survey")
    station = columns.station
    fields: list[tuple[str, list[str]]] = [(station.x, _texts(survey.x)), (station.y, _texts(survey.y)),
                                           (station.z, _texts(survey.elevation))]
    if survey.angles is not None:
        fields += [("aincl", _texts(survey.angles[:, 0])), ("adecl", _texts(survey.angles[:, 1]))]
    names = [split_columns(text) for text in columns.data] + [("", "")] * survey.n_components
    for number, (datum, deviation) in enumerate(names[: survey.n_components]):
        values = survey.data[number]
        fields.append((datum or f"data{number + 1}", _texts(values)))
        if survey.uncertainty is not None:
            given = np.where((survey.uncertainty[number] > 0.0) & ~np.isnan(values), survey.uncertainty[number], np.nan)
            fields.append((deviation or f"uncertainty{number + 1}", _texts(given)))
    if survey.line is not None and survey.time is not None:
        fields += [(columns.line or "line", survey.line.tolist()), (columns.time or "time", _texts(survey.time))]
    frame = pandas.DataFrame(dict(enumerate(texts for _, texts in fields)), dtype=object)
    frame.columns = [name for name, _ in fields]
    return frame


def _texts(values: Reals) -> list[str]:
    return ["" if value != value else number_text(value) for value in values.tolist()]


def _require(good: Mask, table: CsvTable, column: int, expected: str) -> None:
    bad = np.flatnonzero(~good)
    if len(bad):
        raise table.error(int(bad[0]), column, expected)


def _component_columns(table: CsvTable, text: str) -> tuple[int, int | None]:
    """Columns of a datum and of its standard deviation. A column may have a colon in its name."""
    datum, deviation = (text, "") if text in table.columns else split_columns(text)
    return table.column(datum, "--data"), table.column(deviation, "--data") if deviation else None


def is_masked_word(word: str, dummy: str = "", decimal_comma: bool = False) -> bool:
    """Whether a field stands for no number: an empty one, NA, an asterisk, or what `dummy` says, as a text or a number.

    >>> is_masked_word("-9999,0", "-9999", decimal_comma=True), is_masked_word("-9999.0", "-9999"), is_masked_word("1")
    (True, True, False)
    """
    if word in MASKED_WORDS or "*" in word or (dummy != "" and word == dummy):
        return True
    if decimal_comma:
        word, dummy = word.replace(",", "."), dummy.replace(",", ".")
    value = parse_real(dummy) if dummy else None
    return value is not None and parse_real(word) == value


def _masked(words: list[str], dummy: str, decimal_comma: bool) -> Mask:
    """Fields that stand for no number."""
    return np.array([is_masked_word(word, dummy, decimal_comma) for word in words], dtype=np.bool_)


def _component(table: CsvTable, place: tuple[int, int | None], columns: SurveyColumns, code: int,
               summary: TableSummary) -> tuple[Reals, Reals]:
    """Data, NaN where masked, and their standard deviations, 0 where masked."""
    column = place[0]
    datum = table.numbers(column, "a number, or an empty field for a dummy",
                          _masked(table.words(column), columns.dummy, table.decimal_comma))
    datum[~(datum > DUMMY_LIMIT)] = np.nan
    if columns.data_scale != 1.0:
        # Once multiplied, a code would look like a datum.
        _require(~no_data_codes(datum), table, column, "a datum, as --data-scale multiplies it; name no-data codes with --dummy")
        datum = datum * columns.data_scale
    valid = ~np.isnan(datum)
    deviation = _given_uncertainty(table, place[1], columns, valid)
    missing = valid & np.isnan(deviation)
    summary.default_uncertainties += int(np.count_nonzero(missing))
    if columns.percent is None and columns.floor is None:
        deviation[missing] = 1.0 if has_magnetic_layout(code) else 0.01
        summary.assumed_uncertainties += int(np.count_nonzero(missing))
    else:
        chosen = (columns.percent or 0.0) / 100.0 * np.abs(datum) + (columns.floor or 0.0)
        _require(~missing | _can_be_kept(chosen), table, column,
                 "a datum to which --percent and --floor give a standard deviation above 0")
        deviation[missing] = chosen[missing]
    deviation[~valid] = 0.0
    with np.errstate(all="ignore"):
        # The quotient is what a run holds.
        quotient = datum / deviation.astype(np.float32).astype(np.float64)
        _require(~valid | ((quotient > DUMMY_LIMIT) & np.isfinite(quotient)), table, column,
                 "a datum of less than 1e30 standard deviations")
    return datum, deviation


def _given_uncertainty(table: CsvTable, column: int | None, columns: SurveyColumns, valid: Mask) -> Reals:
    """Standard deviations of a column; NaN where none is given."""
    if column is None:
        return np.full(len(valid), np.nan)
    masked = _masked(table.words(column), columns.dummy, table.decimal_comma) | ~valid
    deviation = table.numbers(column, "a standard deviation", masked) * columns.error_scale
    _require(masked | _can_be_kept(deviation), table, column, "a standard deviation above 0")
    return deviation


def _can_be_kept(values: Reals) -> Mask:
    """Whether standard deviations are above 0 and finite in single precision, in which a run holds them."""
    with np.errstate(over="ignore", invalid="ignore", under="ignore"):
        kept = values.astype(np.float32)
        usable: Mask = (kept > 0.0) & np.isfinite(kept)
        return usable


def _line_names(table: CsvTable, column: int) -> npt.NDArray[np.str_]:
    """Line names; spaces and commas, which would end a name in the data file, become underscores."""
    names = [word.translate(_UNDERSCORES) for word in table.words(column)]
    good = [0 < len(to_bytes(name)) <= LINE_NAME_WIDTH and name.isprintable() for name in names]
    _require(np.array(good, dtype=np.bool_), table, column, f"a line name of 1 to {LINE_NAME_WIDTH} characters")
    return np.array(names, dtype=np.str_)


_UNDERSCORES = str.maketrans(" \t\n,", "____")


def check_direction(direction: Direction, option: str) -> None:
    """Raise UsageError for angles that are none."""
    if not (abs(direction.inclination) <= 90.0 and abs(direction.declination) <= 360.0):
        raise UsageError(f"{option}: expected an inclination within 90 degrees and a declination within 360, found "
                         f"{number_text(direction.inclination)}, {number_text(direction.declination)}")
