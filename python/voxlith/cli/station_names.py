"""Stations by name: those to leave out, those to mask, and names that a data file cannot hold."""

from __future__ import annotations

import argparse
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import FileError, UsageError
from ..io.csv_file import CsvTable
from ..side_file import SideInfo
from ..survey import Survey
from .parser import Parser

Mask = npt.NDArray[np.bool_]

_OPERATION = "station-names"


@dataclass(frozen=True)
class ChosenStations:
    """A table without the stations that were to be left out.

    Attributes
    ----------
    table : CsvTable
    masked : ndarray of bool, shape (rows,)
        Stations whose data are to be masked.
    names : list of str
        Of all stations; empty without a column of them.
    dropped : int
    """

    table: CsvTable
    masked: Mask
    names: list[str]
    dropped: int


def add_name_options(parser: Parser) -> None:
    """The options."""
    parser.add_argument("--name", metavar="COLUMN", help="Column of the station names, which are kept in the side file")
    for option, what in (("--drop", "Leave out these stations"), ("--mask", "Make the data of these stations dummies")):
        parser.add_argument(option, metavar="NAME[,NAME...]", nargs="+", action="extend",
                            help=f"{what}: names of --name, or line N of the CSV as check names them")


def choose_stations(table: CsvTable, options: argparse.Namespace) -> ChosenStations:
    """Leave out and mask stations by name.

    Raises
    ------
    UsageError
        For a name that no station has.
    FileError
        When no station is left.
    """
    names = table.words(table.column(options.name, "--name")) if options.name else []
    known = names or [f"line {line}" for line in table.lines.tolist()]
    dropped, masked = (_chosen(option, getattr(options, option), known, bool(names)) for option in ("drop", "mask"))
    if len(table) and dropped.all():
        raise FileError(table.path, "expected a station, found none beside those of --drop")
    kept = ~dropped
    return ChosenStations(table.select(kept) if dropped.any() else table, masked[kept],
                          [name for name, stays in zip(names, kept.tolist()) if stays], int(np.count_nonzero(dropped)))


def _chosen(option: str, texts: Sequence[str] | None, known: Sequence[str], named: bool) -> Mask:
    """Stations of these names. A name may hold a comma itself."""
    wanted: list[str] = []
    for text in texts or ():
        wanted += [text] if text in known else [word.strip() for word in text.split(",") if word.strip()]
    if texts and not wanted:
        raise UsageError(f"--{option} {' '.join(texts)}: expected a name")
    if not named:
        wanted = [f"line {word.removeprefix('line').strip()}" for word in wanted]
    missing = sorted(set(wanted) - set(known))
    if missing:
        hint = "" if named else "; without --name stations are lines of the CSV"
        raise UsageError(f"--{option}: there is no station {', '.join(missing[:5])}"
                         f"{f' and {len(missing) - 5} more' if len(missing) > 5 else ''}{hint}")
    return np.isin(np.array(known, dtype=np.str_), wanted) if wanted else np.zeros(len(known), dtype=np.bool_)


def with_names(side: SideInfo, names: Sequence[str]) -> SideInfo:
    """A side file that holds the names of the stations, in the order of the records."""
    return side.with_step(_OPERATION, names=list(names)) if names else side


def kept_names(side: SideInfo, stations: int) -> list[str]:
    """Names of the stations that a side file holds; empty when there are none, or not one for each station."""
    return side.station_names(stations)
