"""Tables as spreadsheets write them: one line of column names, then one line per record.

Fields are separated by commas, semicolons, tabs or spaces; a field in double quotes may hold separators, line ends and
doubled quotes. Lines that are blank, that hold separators alone, or that begin with ``#`` or ``!`` are left out. Text is
UTF-8, UTF-16 with its mark, or Latin-1.
"""

from __future__ import annotations

import csv
import itertools
import math
import re
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, replace
from typing import Any, Final, Literal

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, UsageError, escaped, shown
from ..packages import require
from .free_format import plain_numbers
from .numbers import parse_real
from .output import read_bytes, write_bytes
from .text_lines import check_lengths

Reals = npt.NDArray[np.float64]
Separator = Literal["auto", "comma", "semicolon", "tab", "blank"]

SEPARATORS: Final[dict[str, str]] = {"comma": ",", "semicolon": ";", "tab": "\t", "blank": " "}

_SPACES_AFTER_QUOTE = re.compile(r'"[ \t]+(?=[,;\t]|$)')
_MOST_NAMES_SHOWN = 400
_MOST_LINES = 8  # of rows with the same fault, named in an error


@dataclass(frozen=True)
class CsvTable:
    """A table of text, with the places of its rows for messages.

    Attributes
    ----------
    path : path
    columns : list of str
        Names of the columns.
    frame : pandas.DataFrame
        Text of the fields without the spaces around it; columns 0, 1, ... in the order of `columns`.
    lines : ndarray of int, shape (rows,)
        Line of each row, from 1.
    end : int
        Line after the last one.
    decimal_comma : bool
        Whether numbers have a comma in front of their decimals.
    """

    path: PathLike
    columns: list[str]
    frame: Any
    lines: npt.NDArray[np.int64]
    end: int
    decimal_comma: bool = False

    def __len__(self) -> int:
        return len(self.lines)

    def column(self, name: str, option: str = "column") -> int:
        """Number of the column of that name, from 0.

        Raises
        ------
        UsageError
            When there is none or there are two; `option` is named in front.
        """
        count = self.columns.count(name)
        if count == 0:
            known = escaped(", ".join(self.columns))
            known = known if len(known) <= _MOST_NAMES_SHOWN else f"{known[:_MOST_NAMES_SHOWN]} ..."
            raise UsageError(f"{option} {name}: {self.path} has no column of that name; it has {known}")
        if count > 1:
            raise UsageError(f"{option} {name}: {self.path} has two columns of that name")
        return self.columns.index(name)

    def select(self, rows: npt.NDArray[np.bool_]) -> CsvTable:
        """The table of some rows."""
        return replace(self, frame=self.frame[rows].reset_index(drop=True), lines=self.lines[rows])

    def words(self, column: int) -> list[str]:
        """Text of a column."""
        words: list[str] = self.frame[column].tolist()
        return words

    def numbers(self, column: int, expected: str = "a number", masked: npt.NDArray[np.bool_] | None = None) -> Reals:
        """A column as numbers.

        Parameters
        ----------
        column : int
        expected : str
            What the error says was expected.
        masked : ndarray of bool, shape (rows,), optional
            Rows that are not looked at; NaN.

        Raises
        ------
        FileError
            For the first field that is no finite number: file, line, column, what was found.
        """
        words = self.words(column)
        if masked is not None and masked.any():
            words = ["0" if mask else word for word, mask in zip(words, masked.tolist())]
        texts = [word.replace(",", ".") for word in words] if self.decimal_comma else words
        found = plain_numbers("\n".join(texts).encode("utf-8", "replace")) if all(texts) else None
        if found is None or len(found) != len(texts) or not np.isfinite(found).all():
            found = np.array([_finite(text) for text in texts], dtype=np.float64)
            bad = np.flatnonzero(np.isnan(found))
            if len(bad):
                raise self.error(int(bad[0]), column, expected, bad[1:].tolist())
        if self.decimal_comma and any("." in word for word in words):
            row = next(n for n, word in enumerate(words) if "." in word)
            raise self.error(row, column, "a number with a decimal comma")
        return found if masked is None else np.where(masked, np.nan, found)

    def error(self, row: int, column: int, expected: str, others: Sequence[int] = ()) -> FileError:
        """The error ``line N: column "NAME": expected WHAT, found "FIELD"``, with the lines of other rows like it."""
        field = self.words(column)[row]
        found = shown(field) if field else "an empty field"
        lines = ", ".join(str(int(self.lines[other])) for other in others[:_MOST_LINES])
        also = f"; likewise line{'s' if len(others) > 1 else ''} {lines}{' ...' if len(others) > _MOST_LINES else ''}" if others else ""
        return FileError(self.path, f"column {shown(self.columns[column])}: expected {expected}, found {found}{also}",
                         line=int(self.lines[row]))


def _finite(word: str) -> float:
    value = parse_real(word)
    return value if value is not None and math.isfinite(value) else math.nan


def read_csv_file(path: PathLike, *, separator: Separator = "auto", decimal_comma: bool = False) -> CsvTable:
    """Read a table.

    Parameters
    ----------
    path : path
    separator : {"auto", "comma", "semicolon", "tab", "blank"}
        Between the fields. ``"auto"``: the first of tab, semicolon and comma that occurs in the line of column names,
        else spaces. ``"blank"``: any number of spaces and tabs.
    decimal_comma : bool
        Whether numbers have a comma in front of their decimals.

    Raises
    ------
    FileError
        When a row has another number of fields than there are columns (empty ones at the end may be too many), for a
        quote without its end, and for a line longer than a megabyte or a field longer than 131072 characters.
    MissingPackageError
        Without pandas.
    """
    lines = _text_lines(path)
    first = next((n for n, line in enumerate(lines) if _holds_something(line)), None)
    if first is None:
        raise FileError(path, "expected column names, found the end of the file", line=len(lines) + 1)
    between = SEPARATORS[separator] if separator != "auto" else _detected(lines[first])
    if decimal_comma and between == ",":
        raise FileError(path, "expected another separator than the comma with --decimal-comma, found commas",
                        line=first + 1)
    records = _records(path, lines, between)
    head, columns = next(records)
    while columns and not columns[-1]:
        columns.pop()
    if not columns:
        raise FileError(path, "expected column names, found none", line=head)
    numbers, rows = [], []
    for number, fields in records:
        if any(fields):
            numbers.append(number)
            rows.append(_fitted(path, number, fields, len(columns)))
    pandas = require("pandas", "tables")
    frame = pandas.DataFrame(rows, columns=range(len(columns)), dtype=object)
    return CsvTable(path, columns, frame, np.array(numbers, dtype=np.int64), len(lines) + 1, decimal_comma)


def write_csv_file(path: PathLike, frame: Any, *, separator: Separator = "comma") -> None:
    """Write a table of text with its column names. Raises FileError.

    Parameters
    ----------
    path : path
    frame : pandas.DataFrame
        Fields as text.
    separator : {"comma", "semicolon", "tab", "auto"}
        ``"auto"`` is a comma.
    """
    fields = itertools.chain(map(str, frame.columns), *(frame[name] for name in frame.columns))
    # A field that begins like a comment would be lost at the start of a line.
    quoting = csv.QUOTE_ALL if any(field[:1] in ("#", "!") for field in fields) else csv.QUOTE_MINIMAL
    text = frame.to_csv(sep=SEPARATORS.get(separator, ","), index=False, quoting=quoting, lineterminator="\n")
    write_bytes(path, text.encode("utf-8", "surrogateescape"))


def _text_lines(path: PathLike) -> list[str]:
    content = read_bytes(path)
    if content[:2] in (b"\xff\xfe", b"\xfe\xff"):
        text = content.decode("utf-16", "replace")
    else:
        try:
            text = content.decode("utf-8")
        except UnicodeDecodeError:
            text = content.decode("latin-1")
    text = text.replace("\ufeff", "", 1)
    lines = (text.replace("\r\n", "\n").replace("\r", "\n") if "\r" in text else text).split("\n")
    if not lines[-1]:
        lines.pop()
    check_lengths(path, lines)
    if "\0" in text:
        number = next(n for n, line in enumerate(lines, 1) if "\0" in line)
        raise FileError(path, "expected text, found a zero byte", line=number)
    return lines


def _holds_something(line: str) -> bool:
    """Whether a line is neither blank nor a comment."""
    content = line.strip(" \t")
    return bool(content) and content[0] not in "#!"


def _detected(line: str) -> str:
    return next((character for character in "\t;," if character in line), " ")


def _records(path: PathLike, lines: Sequence[str], between: str) -> Iterator[tuple[int, list[str]]]:
    """Rows with the line where each begins; a row with a line end in quotes runs over several lines.

    Rows are cut by Python's csv module, which tells the lines; pandas, which reads tables faster, does not.
    """
    source = _Lines(lines, between)
    try:
        for fields in csv.reader(source, delimiter=between, skipinitialspace=True, strict=True):
            yield source.first, [field.strip(" \t\n") for field in fields]
            source.first = 0
    except csv.Error as error:
        reason = str(error)
        problem = f"expected a row of fields ({reason})"
        if "unexpected end" in reason:
            problem = "expected a closing quote, found the end of the file"
        elif "expected after" in reason:
            problem = "expected a separator after the closing quote"
        elif "field larger" in reason:
            problem = f"expected fields of at most {csv.field_size_limit()} characters; a closing quote may be missing"
        raise FileError(path, problem, line=source.first) from error


class _Lines:
    """The lines for the csv module, without blank lines and comments between rows.

    Attributes
    ----------
    first : int
        Line where the row under way begins, from 1; set to 0 where the row ends.
    """

    def __init__(self, lines: Sequence[str], between: str) -> None:
        self.first = 0
        self._lines = enumerate(lines, 1)
        self._blank = between == " "

    def __iter__(self) -> Iterator[str]:
        for number, line in self._lines:
            if self.first == 0:
                if not _holds_something(line):
                    continue
                self.first = number
            text = line.replace("\t", " ") if self._blank else line
            yield (_SPACES_AFTER_QUOTE.sub('"', text) if '"' in text else text) + "\n"


def _fitted(path: PathLike, line: int, fields: list[str], count: int) -> list[str]:
    """As many fields as there are columns; empty ones at the end may be too many."""
    while len(fields) > count and not fields[-1]:
        fields.pop()
    if len(fields) != count:
        raise FileError(path, f"expected {count} fields as in the line of column names, found {len(fields)}", line=line)
    return fields
