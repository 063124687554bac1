"""A table read for its checks: what cannot be read becomes a finding, and the rest goes on."""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..errors import PathLike, shown
from ..io.csv_file import CsvTable
from ..io.numbers import parse_real
from ..io.output import read_bytes
from ..survey import Survey
from ..survey_table import METRES, SurveyColumns, is_masked_word, split_columns
from .findings import Finding
from .values import no_data_codes

Reals = npt.NDArray[np.float64]


@dataclass(frozen=True)
class LooseSurvey:
    """A survey with whatever could be read.

    Attributes
    ----------
    survey : Survey
        Records whose coordinates are numbers.
    given : ndarray, shape (components, n), or None
        Standard deviations as written, NaN where none is.
    names : list of str
    findings : list of Finding
        What could not be read.
    """

    survey: Survey
    given: Reals | None
    names: list[str]
    findings: list[Finding]


def check_encoding(path: PathLike, *, is_table: bool = False) -> list[Finding]:
    """Whether a file is plain text in UTF-8.

    Parameters
    ----------
    path : path
    is_table : bool
        Whether it is read as a table, which may also be UTF-16 with its mark.
    """
    content = read_bytes(path)
    marked = content[:2] in (b"\xff\xfe", b"\xfe\xff")
    if marked and is_table:
        return [Finding("note", "encoding", "the file is UTF-16; tables are read so, observed data are not",
                        "nothing, or save it as UTF-8")]
    if marked or b"\x00" in content[:4096]:
        return [Finding("error", "encoding", "the file is not plain text in UTF-8 (it contains zero bytes, as UTF-16 does)",
                        "save it as UTF-8, or as CSV (comma delimited)")]
    try:
        content.decode("utf-8")
    except UnicodeDecodeError as error:
        line = content[: error.start].count(b"\n") + 1
        return [Finding("note", "encoding", f"line {line} contains a letter that is not UTF-8; it is read as Latin-1",
                        "save the file as UTF-8 if names look odd")]
    return []


def read_loosely(table: CsvTable, columns: SurveyColumns, codes: Sequence[int], name_column: str = "") -> LooseSurvey:
    """A survey of a table; fields that are no numbers are findings.

    Raises
    ------
    UsageError
        For names that the table does not have.
    """
    findings: list[Finding] = []
    station = columns.station
    names = [f"line {line}" for line in table.lines.tolist()]
    if name_column:
        names = table.words(table.column(name_column, "--name"))
    x = _column(table, station.x, "--x", names, "", findings)
    y = _column(table, station.y, "--y", names, "", findings)
    if station.elevation is None:
        z = _column(table, station.z, "--z", names, "", findings) * METRES[station.z_unit]
        z = -z if station.z_down else z
    else:
        z = np.full(len(table), station.elevation)
    data, given = [], []
    for text in columns.data:
        datum, deviation = (text, "") if text in table.columns else split_columns(text)
        values = _column(table, datum, "--data", names, columns.dummy, findings)
        values = np.where(no_data_codes(values), values, values * columns.data_scale)
        data.append(np.where(np.abs(values) < 1.0e300, values, np.nan))
        chosen = (columns.percent or 0.0) / 100.0 * np.abs(values) + (columns.floor or 0.0)
        usual = np.where(chosen > 0.0, chosen, np.nan)
        written = _column(table, deviation, "--data", names, columns.dummy, findings) * columns.error_scale if deviation else usual
        given.append(np.where(np.isnan(written), usual, written))
    placed = np.isfinite(x) & np.isfinite(y) & np.isfinite(z)
    if not placed.all():
        findings.append(Finding("error", "coordinates", f"{count_text(np.count_nonzero(~placed), 'record')} without x, y or elevation",
                                "give each station x, y and an elevation, or remove it",
                                tuple(name for name, good in zip(names, placed.tolist()) if not good)))
    deviations = np.array(given)[:, placed]
    survey = Survey(x[placed], y[placed], z[placed], np.array(data)[:, placed], tuple(codes),
                    np.where(deviations > 0.0, deviations, np.nan))
    has_any = any(":" in text for text in columns.data) or columns.percent is not None or columns.floor is not None
    return LooseSurvey(survey, deviations if has_any else None, [n for n, good in zip(names, placed.tolist()) if good],
                       findings)


def _column(table: CsvTable, name: str, option: str, names: Sequence[str], dummy: str, findings: list[Finding]) -> Reals:
    """A column as numbers, NaN for fields that stand for no number and for those that are none."""
    words = table.words(table.column(name, option))
    values = np.full(len(words), np.nan)
    bad: list[int] = []
    for number, word in enumerate(words):
        if is_masked_word(word, dummy, table.decimal_comma):
            continue
        text = word.replace(",", ".") if table.decimal_comma else word
        value = parse_real(text)
        if value is None or math.isnan(value):
            bad.append(number)
        else:
            values[number] = value
    if bad:
        findings.append(Finding("error", "not-a-number", f"column {shown(name)}: {count_text(len(bad), 'field')} without a number, such as "
                                f"{shown(words[bad[0]])}", _number_remedy([words[number] for number in bad], table.decimal_comma),
                                tuple(names[number] for number in bad)))
    return values


def _number_remedy(words: Sequence[str], decimal_comma: bool) -> str:
    if any("," in word and "." in word for word in words):
        return "write the numbers without separators of thousands"
    if not decimal_comma and any("," in word for word in words):
        return "read the table with --decimal-comma"
    if decimal_comma and any("." in word for word in words):
        return "read the table without --decimal-comma"
    return "correct them, or name the text of no-data fields with --dummy"
