"""Observed data, and all other files of that form: predicted, masked, residual and reference data.

A header, then one record per line. Files whose first data type is magnetic have the field and the measured direction
in front of the count::

    60.00 10.00 50000.00     inclination, declination, strength of the inducing field
    60.00 10.00 1            inclination, declination of the measured component, direction flag idir
    12                       number of records (and, with several components, their number and their codes)
    x y elevation ...        a record

========== ============================ ==========================================
form       when                         record
========== ============================ ==========================================
plain      with uncertainties           ``x y z d1 s1 d2 s2 ...``
plain      without                      ``x y z d1 d2 ...``
lined      integration interval         ``x y z d1 s1 d2 s2 ... line time``
downhole   first code 1, idir below 1   ``x y z aincl adecl d1 s1 d2 s2 ...``
========== ============================ ==========================================

An asterisk instead of a datum masks it. Columns are separated by spaces, or by one comma or tab.
"""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass, field

import numpy as np
import numpy.typing as npt

from ..codes import DUMMY_LIMIT, MOST_FILES, has_magnetic_layout
from ..errors import FileError, PathLike, UsageError, shown
from .free_format import FreeFormat, Status, plain_numbers
from .numbers import parse_integer, parse_real
from .text_lines import LINE_WIDTH, TOKEN_WIDTH, expected, read_lines, to_text, tokens, words_of

Reals = npt.NDArray[np.float64]

LINE_NAME_WIDTH = 16
_MOST_CODE = 99


@dataclass(frozen=True)
class ObsHeader:
    """The two lines of magnetic files: angles in degrees (inclination downwards, declination clockwise from north).

    Attributes
    ----------
    inclination, declination : float
        Of the inducing field.
    strength : float
        Of the inducing field, nT.
    measured_inclination, measured_declination : float
        Direction of the measured component.
    idir : int
        Direction flag; below 1 each record of a total-field file has a direction of its own.
    """

    inclination: float
    declination: float
    strength: float
    measured_inclination: float
    measured_declination: float
    idir: int = 1


@dataclass
class ObsFile:
    """Contents of a file of data, as written there.

    Attributes
    ----------
    x, y, elevation : ndarray, shape (n,)
        Metres to the east, to the north and upwards.
    data : ndarray, shape (components, n)
        In data units; NaN where masked.
    uncertainty : ndarray, shape (components, n), or None
        Standard deviations in data units, 0 or less where the default applies; None without such columns.
    header : ObsHeader or None
        Of magnetic files.
    codes : tuple of int
        Data types of the components; empty when unknown.
    angles : ndarray, shape (n, 2), or None
        Inclination and declination of the measured component per record (downhole form).
    line : list of str, or None
        Line name of each record (lined form), at most 16 bytes.
    time : ndarray, shape (n,), or None
        Time of each record, in the unit of the integration interval (lined form).
    count : int
        The number of records as the header says.
    """

    x: Reals
    y: Reals
    elevation: Reals
    data: Reals
    uncertainty: Reals | None = None
    header: ObsHeader | None = None
    codes: tuple[int, ...] = ()
    angles: Reals | None = None
    line: list[str] | None = None
    time: Reals | None = None
    count: int = field(default=0)


@dataclass
class _Form:
    """What is known of the records from the caller and the header."""

    path: PathLike
    components: int
    codes: tuple[int, ...]
    header: ObsHeader | None
    lined: bool
    strict: bool
    count: int
    count_line: int
    any_count: bool = False
    with_uncertainty: bool = True

    @property
    def downhole(self) -> bool:
        first = self.codes[0] if self.codes else 1
        return self.header is not None and self.header.idir < 1 and first == 1

    @property
    def columns(self) -> int:
        each = 2 if self.with_uncertainty else 1
        return 3 + 2 * self.downhole + each * self.components + 2 * self.lined


def read_obs_file(path: PathLike, *, codes: Sequence[int] = (), components: int = 0, lined: bool | None = False,
                  reference: bool = False, records: int | None = None, strict: bool = True,
                  any_count: bool = False) -> ObsFile:
    """Read a file of data.

    Parameters
    ----------
    path : path
    codes : sequence of int
        Data types of the components as the sensitivity files have them. The first one decides about the layout.
        Without codes the first line decides about the layout, and the codes are those of the count line where it
        has them.
    components : int
        Number of components; 0 takes it from `codes`, the count line or, last, from the columns of the first record.
    lined : bool or None
        Whether line name and time follow the data (runs with an integration interval). With None the records decide: a
        name that is no number; or, of one component, names that come in groups with times that rise in each.
    reference : bool
        Read as a run reads reference data: free-format, so that a record may run over lines, without asterisks.
    records : int, optional
        How many records a run reads; further ones are not looked at.
    strict : bool
        Whether what is doubtful is an error: a count that does not match, columns left out or too many, lines and
        words that are cut. With ``strict=False`` the file is read as a run reads it; coordinates that are left out
        are NaN (a run keeps those of the sensitivity file).
    any_count : bool
        Whether a count that does not match is let pass by a strict read, too; see :attr:`ObsFile.count`.

    Returns
    -------
    ObsFile

    Raises
    ------
    FileError
        The file, the line, what was expected and what was found.

    Notes
    -----
    A run writes a masked datum of a later component as 0 with the uncertainty 0; in a file of observed data the same
    is a datum of 0 with the default uncertainty. The file itself does not say which.
    """
    if not 0 <= components <= MOST_FILES or len(codes) > MOST_FILES or (codes and components not in (0, len(codes))):
        raise UsageError(f"components: expected 1 to {MOST_FILES}, a code for each, found {components}, {list(codes)}")
    lines = read_lines(path)
    with FreeFormat.of_text("\n".join(lines[:1000]) + "\n", path) as reader:
        magnetic = has_magnetic_layout(codes[0]) if codes else not _is_count_line(path, lines)
        header = _read_header(reader, strict) if magnetic else None
        count_line = reader.line
        count = _read_count(reader)
        first = reader.line
    count_text = lines[count_line - 1] if count_line <= len(lines) else ""
    known, found_codes = _components_of(tuple(codes), components, count_text)
    form = _Form(path, known, found_codes, header, bool(lined), strict, count, count_line, any_count)
    if lined is None and not reference and not form.downhole:
        form.lined = _are_lined(lines[first - 1:], known)
    if reference or form.downhole:
        return _read_free(form, lines, first, records, reference)
    return _read_lines(form, lines, first, records, 4 if magnetic else 2)


def _are_lined(texts: list[str], components: int) -> bool:
    """Whether the records end with a line name and a time."""
    rows = [words for words in (words_of(text.split("!")[0]) for text in texts) if words]
    if not rows or len(rows[0]) < 6 or any(len(words) != len(rows[0]) for words in rows):
        return False
    masked = [words for words in rows if "*" not in "".join(words[-2:])]
    times = [parse_real(words[-1]) for words in masked]
    names = [words[-2] for words in masked]
    if not masked or any(time is None for time in times):
        return False
    if any(parse_real(name) is None for name in names):
        return True
    if components:
        return len(rows[0]) == 5 + 2 * components
    # Names that are numbers: x, y, elevation, datum, standard deviation, name, time could be two components.
    starts = [0, *(n for n in range(1, len(names)) if names[n] != names[n - 1])]
    rising = all(names[n] != names[n - 1] or (times[n] or 0.0) > (times[n - 1] or 0.0) for n in range(1, len(names)))
    whole = all(parse_integer(name) is not None for name in names)
    return len(rows[0]) == 7 and rising and whole and 3 * len(starts) <= len(names)


def _is_count_line(path: PathLike, lines: list[str]) -> bool:
    """Whether a file begins with the count: one number, or count, components and a code for each."""
    if not lines:
        raise expected(path, 1, "a header", None)
    numbers: list[float] = []
    for word in words_of(lines[0]):
        value = parse_real(word)
        if value is None:
            break
        numbers.append(value)
    if len(numbers) < 3:
        return True
    return 1 <= numbers[1] <= MOST_FILES and len(numbers) == 2 + numbers[1] and max(numbers[2:]) <= _MOST_CODE


def _read_header(reader: FreeFormat, strict: bool) -> ObsHeader:
    reader.begin()
    incl, decl, strength = (reader.real(0.0) for _ in range(3))
    if reader.status is not Status.GOOD:
        reader.expect(3, "inclination, declination and strength of the field")
    reader.end()
    line = reader.line
    reader.begin()
    aincl, adecl, idir = reader.real(incl), reader.real(decl), reader.integer(1)
    good = reader.status is Status.GOOD
    if strict and reader.given > 0 and not (good and reader.given == 3 and reader.line == line):
        raise FileError(reader.path, "expected inclination and declination of the measured component and the whole "
                        "number idir, or a text", line=line)
    reader.end()
    return ObsHeader(incl, decl, strength, aincl, adecl, idir if good else 1)


def _read_count(reader: FreeFormat) -> int:
    reader.begin()
    count = reader.integer(0)
    if reader.status is not Status.GOOD:
        reader.expect(1, "the number of data")
    reader.end()
    return count


def _components_of(codes: tuple[int, ...], components: int, count_text: str) -> tuple[int, tuple[int, ...]]:
    """Number of components (0: unknown) and their codes, from the caller or the count line."""
    if codes:
        return len(codes), codes
    numbers: list[int] = []
    for word in words_of(count_text):
        number = parse_integer(word)
        if number is None:
            break
        numbers.append(number)
    given = numbers[1] if len(numbers) > 1 and 1 <= numbers[1] <= MOST_FILES else 0
    found = tuple(numbers[2: 2 + given]) if len(numbers) >= 2 + given else ()
    if components and components != given:
        return components, ()
    return given, found


def _choose_columns(form: _Form, words: list[str], line: int) -> None:
    """What the first record decides: the number of components when it is unknown, and whether all of them have
    uncertainties."""
    besides = 3 + 2 * form.downhole + 2 * form.lined
    columns = len(words) - besides
    if form.components == 0:
        form.components = max(columns // 2 if columns % 2 == 0 else columns, 1)
        if form.components > MOST_FILES:
            raise FileError(form.path, f"expected at most {MOST_FILES} components, found {columns} columns of data",
                            line=line)
    form.with_uncertainty = columns >= 2 * form.components
    if form.lined and not form.with_uncertainty:
        raise FileError(form.path, f"expected {besides + 2 * form.components} columns (data, uncertainties, line name "
                        f"and time), found {len(words)}", line=line)


def _record_lines(form: _Form, lines: list[str], first: int, records: int | None) -> list[str]:
    """The lines of the records, and the tests that do not look into them."""
    end = len(lines)
    while end > first - 1 and not lines[end - 1].strip(" \t"):
        end -= 1
    found = end - (first - 1)
    wanted = found if records is None else records
    if found < wanted or found < 1:
        raise expected(form.path, end + 1, f"record {found + 1} of {max(wanted, 1)}", None)
    if form.strict and found > wanted:
        surplus = lines[first - 1 + wanted]
        raise expected(form.path, first + wanted, f"the end of the file after {wanted} records", surplus)
    if form.strict and not form.any_count and form.count != wanted:
        raise FileError(form.path, f"expected the count {wanted} of the records that follow, found {form.count}",
                        line=form.count_line)
    return lines[first - 1: first - 1 + wanted]


def _check_words(form: _Form, words: list[str], text: str, line: int) -> None:
    """The tests of a strict read: nothing is cut, left out or too much."""
    if len(text) > LINE_WIDTH:
        raise FileError(form.path, f"expected at most {LINE_WIDTH} characters, found {len(text)}", line=line)
    if not text.strip(" \t"):
        raise FileError(form.path, "expected a record, found a blank line", line=line)
    for word in words[: form.columns]:
        if not word or len(word) >= TOKEN_WIDTH:
            what = "an empty column" if not word else f"{shown(word)} ..."
            raise FileError(form.path, f"expected words of at most {TOKEN_WIDTH - 1} characters, found {what}",
                            line=line)
    if len(words) > form.columns and not words[form.columns].startswith("!"):
        raise FileError(form.path, f"expected {form.columns} columns, found {len(words)}", line=line)


def _read_lines(form: _Form, lines: list[str], first: int, records: int | None, form_line: int) -> ObsFile:
    """Records of the plain and the lined form, one per line. `form_line`: the line whose columns decide for all."""
    texts = _record_lines(form, lines, first, records)
    decisive = texts[0] if form.strict or form_line > len(lines) else lines[form_line - 1]
    words = tokens(decisive)
    if form.strict:
        words = words[: next((n for n, word in enumerate(words) if word.startswith("!")), len(words))]
    _choose_columns(form, words, form_line)
    numbers = _plain_records(form, texts)
    if numbers is not None:
        return _from_numbers(form, numbers)
    rows = []
    for line, text in enumerate(texts, first):
        words = tokens(text)
        if form.strict:
            _check_words(form, words, text, line)
            words = _completed(form, words, line)
        rows.append((words + [""] * form.columns)[: form.columns])
    return _from_columns(form, list(zip(*rows)), first)


def _plain_records(form: _Form, texts: list[str]) -> Reals | None:
    """Records of numbers in usual spellings without anything special, read at once, shape (columns, n); else None."""
    columns = form.columns
    if form.lined or max(map(len, texts)) > LINE_WIDTH or any(len(text.split()) != columns for text in texts):
        return None
    content = "\n".join(texts).encode("latin-1")
    if any(len(word) >= TOKEN_WIDTH for word in content.split()):
        return None
    numbers = plain_numbers(content)
    return None if numbers is None or b"\t" in content or b"\r" in content else numbers.reshape(-1, columns).T.copy()


def _from_numbers(form: _Form, columns: Reals) -> ObsFile:
    """The contents of a file whose records are numbers, one column per row."""
    start, each = 5 if form.downhole else 3, 2 if form.with_uncertainty else 1
    data = columns[start::each].copy()
    data[~(data > DUMMY_LIMIT)] = np.nan
    uncertainty = columns[start + 1:: 2].copy() if form.with_uncertainty else None
    angles = columns[3:5].T.copy() if form.downhole else None
    return ObsFile(columns[0], columns[1], columns[2], data, uncertainty, form.header, form.codes, angles,
                   count=form.count)


def _completed(form: _Form, words: list[str], line: int) -> list[str]:
    """Masked records of many components are written with fewer asterisks than columns."""
    missing = form.columns - len(words)
    if missing > 0 and not form.lined and len(words) >= 9 and all("*" in word for word in words[3:]):
        return words + ["*"] * missing
    if missing > 0:
        raise FileError(form.path, f"expected {form.columns} columns, found {len(words)}", line=line)
    return words


def _from_columns(form: _Form, columns: list[tuple[str, ...]], first: int) -> ObsFile:
    where = _Column(form, first)
    x, y, elevation = (where.numbers(columns[n], what, np.nan) for n, what in enumerate(("x", "y", "the elevation")))
    shape = (form.components, len(columns[0]))
    data, uncertainty = np.zeros(shape), np.zeros(shape)
    each = 2 if form.with_uncertainty else 1
    for component in range(form.components):
        words = columns[3 + each * component]
        masked = np.array(["*" in word for word in words])
        data[component] = where.numbers(words, f"datum {component + 1}", 0.0, masked)
        if form.with_uncertainty:
            words = columns[4 + each * component]
            starred = np.array(["*" in word for word in words])
            uncertainty[component] = where.numbers(words, f"the uncertainty of datum {component + 1}", 0.0, starred)
            masked |= starred & form.lined
        data[component, masked] = np.nan
    data[~(data > DUMMY_LIMIT)] = np.nan
    line = [to_text(word[:LINE_NAME_WIDTH]) for word in columns[-2]] if form.lined else None
    time = where.numbers(columns[-1], "a time", 0.0) if form.lined else None
    return ObsFile(x, y, elevation, data, uncertainty if form.with_uncertainty else None, form.header, form.codes,
                   line=line, time=time, count=form.count)


@dataclass
class _Column:
    """Turns the words of a column to numbers, and names the line of one that is none."""

    form: _Form
    first: int

    def numbers(self, words: Sequence[str], what: str, default: float,
                masked: npt.NDArray[np.bool_] | None = None) -> Reals:
        """Words as numbers; `default` replaces words left out and masked ones."""
        if masked is not None and masked.any():
            words = ["" if mask else word for word, mask in zip(words, masked.tolist())]
        plain = plain_numbers(" ".join(words).encode("latin-1"))
        if plain is not None and len(plain) == len(words) and all(words):
            return plain
        values = [parse_real(word) for word in words]
        if None in values:
            values = [self._special(word, what, default, index) if value is None else value
                      for index, (word, value) in enumerate(zip(words, values))]
        return np.array(values, dtype=np.float64)

    def _special(self, word: str, what: str, default: float, index: int) -> float:
        """A word that is no plain number: left out, with a slash or a repeat count, or no number at all."""
        if not word:
            return default
        with FreeFormat.of_text(word) as reader:
            value = reader.real(default)
            bad = reader.status is Status.BAD or (self.form.strict and reader.given == 0)
        if bad:
            raise expected(self.form.path, self.first + index, what, word)
        return value


def _read_free(form: _Form, lines: list[str], first: int, records: int | None, reference: bool) -> ObsFile:
    """Records of the downhole form and of reference data, which are read free-format."""
    texts = _record_lines(form, lines, first, records) if form.strict else lines[first - 1:]
    decisive = texts[0] if texts else ""
    _choose_columns(form, tokens(decisive), first)
    if form.downhole:
        form.with_uncertainty = not reference
    rows: list[list[float]] = []
    with FreeFormat.of_text("\n".join(texts) + "\n", form.path) as reader:
        reader.line = first
        wanted = len(texts) if records is None else records
        while len(rows) < wanted:
            row = _free_record(form, reader, len(rows) + 1)
            if row is None:
                break
            rows.append(row)
    if not rows or (records is not None and len(rows) < records):
        raise expected(form.path, len(lines) + 1, f"record {len(rows) + 1}", None)
    return _from_numbers(form, np.array(rows).T.copy())


def _free_record(form: _Form, reader: FreeFormat, number: int) -> list[float] | None:
    """The values of one record; None at the end of the file."""
    reader.begin()
    line = reader.line
    row = [reader.real(np.nan if n < 3 else 0.0) for n in range(form.columns)]
    if reader.status is Status.END and reader.given == 0:
        return None
    if form.strict:
        reader.expect(form.columns, f"{form.columns} numbers of record {number}")
        if reader.line != line:
            raise FileError(form.path, f"expected {form.columns} numbers of record {number} on one line", line=line)
    elif reader.status is Status.BAD:
        reader.expect(form.columns, f"a number of record {number}")
    reader.end()
    return row
