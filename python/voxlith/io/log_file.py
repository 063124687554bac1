"""``voxlith.log``: the inputs and the course of a run, and of the runs that continued it.

The log is written by runs alone. What it says about single iterations follows its lines ``Iteration:``;
values there are roots where the log calls them misfit, norm of the model and total, and terms of the objective without
a root elsewhere.
"""

from __future__ import annotations

import datetime
import math
import re
from collections.abc import Callable
from dataclasses import dataclass, field

from ..errors import FileError, PathLike, shown
from .numbers import parse_integer, parse_real
from .output import read_bytes
from .text_lines import to_text

_HEADER = re.compile(r"VOXLITH version (\S+) +(started|inversion continued) on: +(.*)")
_DATE = re.compile(r"([ \d]\d)/(\d\d)/([ \d]{4}) +(\d\d):(\d\d):(\d\d)")


@dataclass
class IterationTerms:
    """Terms of the objective function of one iteration, in the unit of squared normalised residuals.

    Attributes
    ----------
    misfit, model_norm, total : float
        RMS misfit, root of the model norm, root of the total. In the terms of the start `model_norm` has its root, too.
    reference : float
        Smallness term of the model norm.
    barrier : float
        Logarithmic barrier; 0 without one.
    smoothness, smooth_y, smooth_x, smooth_z : float
        Smoothness terms: their sum and the three directions.
    """

    misfit: float = math.nan
    reference: float = math.nan
    barrier: float = 0.0
    smoothness: float = math.nan
    smooth_y: float = math.nan
    smooth_x: float = math.nan
    smooth_z: float = math.nan
    model_norm: float = math.nan
    total: float = math.nan


@dataclass
class DataStatistics:
    """A row of the statistics of the data; values in units of the standard deviations. The column Average of the log
    is left out: it holds no mean."""

    valid: int
    minimum: float
    maximum: float


@dataclass
class RunLog:
    """What a log says of one run.

    Attributes
    ----------
    version : str
    continued : bool
    started, ended : datetime or None
        `ended` is None when the run goes on, was stopped, or ended with a message.
    inputs : dict
        Texts of the inputs by the words in front of the colon, e.g. ``"Data file"``.
    data_types : list of str
        Name of the data type of each sensitivity file.
    style : int or None
        Inversion style, 0 to 4.
    data_count, cell_count, nx, ny, nz : int or None
    memory_megabytes : int or None
    from_disk : bool
        Whether the rows were read from the disk at every product.
    data_shift : float
        Keyword Offset.
    data_limits : dict
        Keyword ObsClip: (minimum, maximum) by component, from 0.
    statistics : list of DataStatistics
        One per component.
    tradeoff : float or None
        The multiplier in force.
    start : IterationTerms or None
        Terms of the starting model.
    iterations : dict
        Terms by number of iteration.
    background_value : float or None
        Background value that was removed.
    minutes : dict
        Minutes by timer: ``"cpu"``, ``"clock"``, and those of the overhead lines.
    messages : list of str
        Lines that begin with Error, and other lines of unknown content.
    """

    version: str
    continued: bool
    started: datetime.datetime | None
    ended: datetime.datetime | None = None
    inputs: dict[str, str] = field(default_factory=dict)
    data_types: list[str] = field(default_factory=list)
    style: int | None = None
    data_count: int | None = None
    cell_count: int | None = None
    nx: int | None = None
    ny: int | None = None
    nz: int | None = None
    memory_megabytes: int | None = None
    from_disk: bool = False
    data_shift: float = 0.0
    data_limits: dict[int, tuple[float, float]] = field(default_factory=dict)
    statistics: list[DataStatistics] = field(default_factory=list)
    tradeoff: float | None = None
    start: IterationTerms | None = None
    iterations: dict[int, IterationTerms] = field(default_factory=dict)
    background_value: float | None = None
    minutes: dict[str, float] = field(default_factory=dict)
    messages: list[str] = field(default_factory=list)

    @property
    def finished(self) -> bool:
        """Whether the run went through to its end."""
        return self.ended is not None


def read_log_file(path: PathLike) -> list[RunLog]:
    """Read a log: one entry per run, the continued ones after the one that they continue.

    A line that is not ended yet counts as not there.

    Raises
    ------
    FileError
        When the file cannot be read, or does not begin as a log.
    """
    content = read_bytes(path)
    lines = content[: content.rfind(b"\n") + 1].decode("latin-1").split("\n")[:-1]
    reader = _LogReader(path)
    for number, line in enumerate(lines, 1):
        reader.take(number, line.rstrip("\r"))
    if not reader.runs:
        raise FileError(path, "expected a log, which begins with VOXLITH version, found no line", line=1)
    return reader.runs


def _date(text: str) -> datetime.datetime | None:
    """Day, month, year and time; None when the field cannot be read."""
    match = _DATE.match(text)
    if not match:
        return None
    first, second, year, hour, minute, seconds = (int(part) for part in match.groups())
    try:
        return datetime.datetime(year, second, first, hour, minute, seconds)
    except ValueError:
        return None


def _end_date(text: str) -> datetime.datetime | None:
    """The same with the month first, as the last lines have it."""
    match = _DATE.match(text)
    return _date(f"{match[2]}/{match[1].strip():0>2}/{text[6:]}") if match else None


def _fields(text: str, *widths: int) -> list[float]:
    """Numbers of fixed-width fields; not a number where there is none."""
    found, at = [], 0
    for width in widths:
        value = parse_real(text[at: at + width].strip())
        found.append(math.nan if value is None else value)
        at += width
    return found


class _LogReader:
    """Takes the lines of a log one after the other."""

    def __init__(self, path: PathLike) -> None:
        self.path = path
        self.runs: list[RunLog] = []
        self._number = 0
        self._terms = IterationTerms()
        self._table: Callable[[str], bool] | None = None  # takes the lines of a table, false after its end

    def take(self, number: int, line: str) -> None:
        header = _HEADER.match(line)
        if header:
            self.runs.append(RunLog(header[1], header[2] != "started", _date(header[3])))
            self._table = None
        elif not self.runs:
            raise FileError(self.path, f"expected a log, which begins with VOXLITH version, found {shown(line)}",
                            line=number)
        elif self._table is None or not self._table(line):
            self._table = None
            self._take_line(self.runs[-1], line)

    def _take_line(self, run: RunLog, line: str) -> None:
        key, colon, text = line.partition(":")
        name = key.strip()
        if line.startswith(("Error", " There was an error", " Error occurred", " An error occurred")):
            run.messages.append(to_text(line.strip()))
        elif name.startswith("Data type ") and colon:
            run.data_types.append(text.strip())
        elif name == "Data limits to be applied to observed data":
            self._table = self._take_limits
        elif line.startswith(" Observed data: NumValid"):
            self._table = self._take_statistics
        elif line.startswith("MTX file accessed from"):
            run.from_disk = line.endswith("disk")
        elif line.startswith((" Output model every", " Inversion Method")):
            run.inputs[" ".join(line.split()[:2])] = line.split()[-1 if "Method" in line else 3]
        elif name == "Iteration" and colon:
            number = parse_integer(text.strip())  # four columns: asterisks from 10000 on
            self._number = self._number + 1 if number is None else number
            self._terms = run.iterations.setdefault(self._number, IterationTerms())
        elif colon and not self._take_terms(run, name, text):
            self._take_value(run, name, text)
        elif line.strip() and not colon and line.strip() != "Begin iterations":
            run.messages.append(to_text(line.strip()))

    def _take_limits(self, line: str) -> bool:
        component = parse_integer(line[:4].strip())
        if component is None or not line.strip():
            return False
        low, high = _fields(line[4:], 10, 10)
        self.runs[-1].data_limits[component - 1] = (low, high)
        return True

    def _take_statistics(self, line: str) -> bool:
        if len(line) < 52 or line[:15].strip():
            return False
        low, high = _fields(line[24:], 14, 14)
        count = parse_integer(line[15:24].strip())
        self.runs[-1].statistics.append(DataStatistics(count or 0, low, high))
        return True

    def _take_terms(self, run: RunLog, name: str, text: str) -> bool:
        """Lines of the objective function."""
        value = _fields(text, 15)[0]
        kind, _, term = name.partition(" ")
        if name == "tradeoff par":
            run.tradeoff = value
            run.start = self._terms = IterationTerms()
        elif name in ("initial misfit", "achieved misfit"):
            self._terms.misfit = value
        elif name == "initial norm":
            self._terms.model_norm = math.sqrt(value) if value >= 0.0 else math.nan
        elif name == "model norm":
            self._terms.model_norm = value
        elif name in ("initial total", "total objective"):
            self._terms.total = value
        elif kind in ("initial", "model") and term == "ref":
            self._terms.reference = value
        elif kind in ("initial", "model") and term in ("barrier", "barr"):
            self._terms.barrier = value
        elif kind in ("initial", "model") and term == "smth":
            terms = self._terms
            terms.smoothness, terms.smooth_y, terms.smooth_x, terms.smooth_z = _fields(text, 15, 14, 14, 14)
        else:
            return name == "time, steps+"
        return True

    def _take_value(self, run: RunLog, name: str, text: str) -> None:
        plain = text.strip()
        number = parse_integer(plain)
        if name in _COUNTS:
            setattr(run, _COUNTS[name], number)
        elif name == "Memory allocated":
            run.memory_megabytes = parse_integer(plain.removesuffix("MB").strip())
        elif name == "VOXLITH ended on":
            run.ended = _end_date(text.lstrip())
        elif name == "Data shift to be added to observed data":
            run.data_shift = _fields(plain, len(plain))[0]
        elif name == "Background Value Removed":
            run.background_value = _fields(plain, len(plain))[0]
        elif name.endswith("time taken (mins)"):
            run.minutes[name.split(" ")[0]] = _fields(plain, len(plain))[0]
        elif name.startswith("OH "):
            run.minutes[name] = _fields(plain, len(plain))[0]
        else:
            run.inputs[to_text(name)] = to_text(plain)


_COUNTS = {"Inversion style": "style", "number of data": "data_count", "total model cells": "cell_count",
           "number of x cells": "nx", "number of y cells": "ny", "number of z cells": "nz"}
