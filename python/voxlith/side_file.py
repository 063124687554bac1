"""What a file of numbers cannot say of itself: its reference system, the shift of its origin, and its history.

The side file of ``gz.obs`` is ``gz.obs.json``. Programs that know nothing of it are not disturbed.
"""

from __future__ import annotations

import json
import math
import os
from collections.abc import Iterable
from dataclasses import dataclass, field, replace
from typing import Any

from .errors import FileError, PathLike
from .io.output import write_bytes

ENDING = ".json"
_MARK = "voxlith side file"


@dataclass(frozen=True)
class SideInfo:
    """Contents of a side file.

    Attributes
    ----------
    crs : str
        Coordinate reference system, such as ``EPSG:32633``, or WKT; empty when unknown.
    shift : tuple of 2 float
        Metres that were subtracted from easting and northing; add them for coordinates of the reference system.
    history : tuple of dict
        What was done to the data, the first step first; each has an ``operation``.
    """

    crs: str = ""
    shift: tuple[float, float] = (0.0, 0.0)
    history: tuple[dict[str, Any], ...] = field(default=())

    @property
    def is_empty(self) -> bool:
        """Whether there is nothing to remember."""
        return not self.crs and self.shift == (0.0, 0.0) and not self.history

    @property
    def regional_removed(self) -> bool:
        """Whether a regional field was subtracted."""
        return any(step.get("operation") == "regional" for step in self.history)

    @property
    def magnetisation(self) -> str:
        """Direction of magnetisation that a sensitivity file was computed with, as given; empty when unknown."""
        return next((str(step.get("direction", "")) for step in self.history if step.get("operation") == "magnetisation"), "")

    def station_names(self, stations: int) -> list[str]:
        """Names of the stations that voxlith-tools obs --name kept; empty when there is not one for each station."""
        for step in reversed(self.history):
            names = step.get("names")
            if step.get("operation") == "station-names" and isinstance(names, list) and len(names) == stations:
                return [str(name) for name in names]
        return []

    def component_factors(self, components: int) -> list[float]:
        """Factors of the misfits of the types of data that the standard deviations of a stacked run contain; 1 for each where
        nothing is said of them. Raises ValueError for other factors than numbers above 0."""
        for step in reversed(self.history):
            factors = step.get("factors")
            if step.get("operation") == "component-factors" and isinstance(factors, list) and len(factors) == components:
                if not all(isinstance(factor, (int, float)) and 0.0 < factor < math.inf for factor in factors):
                    raise ValueError(f"component-factors: expected numbers above 0, found {factors}")
                return [float(factor) for factor in factors]
        return [1.0] * components

    @property
    def coordinates(self) -> SideInfo:
        """The same without the history, which belongs to one file."""
        return replace(self, history=())

    def with_step(self, operation: str, **details: Any) -> SideInfo:
        """The same with one more step of the history."""
        return replace(self, history=(*self.history, {"operation": operation, **details}))


def side_path(path: PathLike) -> str:
    """Name of the side file.

    >>> side_path("gz.obs")
    'gz.obs.json'
    """
    return os.fspath(path) + ENDING


def read_side_file(path: PathLike) -> SideInfo:
    """What is remembered of a file; nothing without a side file.

    Raises
    ------
    FileError
        When there is a side file of another form.
    """
    name = side_path(path)
    try:
        with open(name, encoding="utf-8") as file:
            found = json.load(file)
    except FileNotFoundError:
        return SideInfo()
    except (OSError, ValueError) as error:
        raise FileError(name, f"expected a side file in JSON ({error})") from error
    try:
        if found["format"] != _MARK:
            raise KeyError("format")
        east, north = (float(value) for value in found.get("shift", (0.0, 0.0)))
        history = tuple(dict(step) for step in found.get("history", ()))
        return SideInfo(str(found.get("crs", "")), (east, north), history)
    except (KeyError, TypeError, ValueError) as error:
        raise FileError(name, f"expected a side file with format, crs, shift and history ({error!r})") from error


def first_coordinates(paths: Iterable[PathLike]) -> SideInfo:
    """Coordinates that the first of some files with a side file says. Raises FileError."""
    for path in paths:
        found = read_side_file(path).coordinates
        if not found.is_empty:
            return found
    return SideInfo()


def write_side_file(path: PathLike, info: SideInfo) -> bool:
    """Write the side file of a file, or remove an old one when there is nothing to remember; gives whether there is one
    now.

    Raises
    ------
    FileError
        When the name is that of a file of another kind, which stays.
    """
    name = side_path(path)
    if info.is_empty:
        try:
            read_side_file(path)
            os.remove(name)
        except (OSError, FileError):
            pass
        return False
    read_side_file(path)
    write_bytes(name, side_content(path, info))
    return True


def side_content(path: PathLike, info: SideInfo) -> bytes:
    """Content of the side file of a file; empty when there is nothing to remember."""
    if info.is_empty:
        return b""
    text = json.dumps({"format": _MARK, "of": os.path.basename(os.fspath(path)), "crs": info.crs,
                       "shift": list(info.shift), "history": list(info.history)}, indent=1, ensure_ascii=False)
    return (text + "\n").encode("utf-8")


def other_coordinates(first: SideInfo, second: SideInfo) -> str:
    """How the coordinates of two files differ, where both files say what theirs are; empty when they agree.

    >>> other_coordinates(SideInfo("EPSG:32633"), SideInfo("EPSG:32632"))
    'EPSG:32633 and EPSG:32632'
    >>> other_coordinates(SideInfo("EPSG:32633"), SideInfo()), other_coordinates(SideInfo("a"), SideInfo("a"))
    ('', '')
    """
    if not first.crs or not second.crs:
        return ""
    from .crs import parse_crs  # brings NumPy, which a computation does without
    if first.crs != second.crs and not parse_crs(first.crs).equals(parse_crs(second.crs)):
        return f"{first.crs} and {second.crs}"
    if first.shift != second.shift:
        return " and ".join(f"a shift of the origin of {east:.12g},{north:.12g}" for east, north in (first.shift, second.shift))
    return ""
