"""Outlines of the true bodies of synthetic data, as JSON.

``{"bodies": [{"name": "block", "x": [350, 600], "y": [400, 650], "elevation": [-250, -100], "model": 1}]}``; `model`
counts from 1 and is 1 where it is left out.
"""

from __future__ import annotations

import json
import math
from dataclasses import dataclass
from typing import Any

from ..errors import FileError, PathLike
from .output import read_bytes

Range = tuple[float, float]


@dataclass(frozen=True)
class TrueBody:
    """A box: ranges of easting, northing and elevation in metres, and the model type (from 0) it belongs to."""

    name: str
    x: Range
    y: Range
    elevation: Range
    model: int = 0


def read_bodies_file(path: PathLike) -> list[TrueBody]:
    """Read the outlines of true bodies.

    Raises
    ------
    FileError
        When the file is no JSON of this form.
    """
    text = read_bytes(path).decode("utf-8", "replace")
    try:
        listed = json.loads(text)
    except (json.JSONDecodeError, RecursionError) as error:
        raise FileError(path, f"expected JSON: {getattr(error, 'msg', 'too deep')}",
                        line=getattr(error, "lineno", 1)) from error
    bodies = listed.get("bodies") if isinstance(listed, dict) else None
    if not isinstance(bodies, list):
        raise FileError(path, 'expected a list "bodies"', line=1)
    return [_body(path, number, body) for number, body in enumerate(bodies, 1)]


def _body(path: PathLike, number: int, body: Any) -> TrueBody:
    try:
        x, y, elevation = (_range(body[key]) for key in ("x", "y", "elevation"))
        return TrueBody(str(body["name"]), x, y, elevation, int(body.get("model", 1)) - 1)
    except (KeyError, TypeError, ValueError, IndexError, OverflowError) as error:
        raise FileError(path, f'body {number}: expected "name" and pairs of numbers "x", "y", "elevation"', line=1) from error


def _range(pair: Any) -> Range:
    low, high = sorted((float(pair[0]), float(pair[1])))
    if not (math.isfinite(low) and math.isfinite(high)):
        raise ValueError
    return low, high
