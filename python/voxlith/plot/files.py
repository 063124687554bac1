"""Figures as files."""

from __future__ import annotations

import os
import zlib
from typing import Literal

from matplotlib.figure import Figure

from ..errors import PathLike, UsageError, VoxlithError
from ..io.output import output_name
from .style import styled

Format = Literal["png", "pdf", "svg"]

FORMATS = ("png", "pdf", "svg")
USUAL_DPI = 110
LARGEST_DPI = 1200

_NO_DATE = {"png": {}, "pdf": {"CreationDate": None}, "svg": {"Date": None}}


@styled
def save(figure: Figure, path: PathLike, *, dpi: float = USUAL_DPI) -> None:
    """Write a figure; the ending of the name says the format: ``.png``, ``.pdf`` or ``.svg``.

    The same figure gives the same bytes.

    Raises
    ------
    UsageError
        For another ending.
    FileError
        When the file cannot be written.
    VoxlithError
        When the figure cannot be drawn.
    """
    kind = os.path.splitext(os.fspath(path))[1].removeprefix(".").lower()
    if kind not in FORMATS:
        raise UsageError(f"{os.fspath(path)}: expected the ending .png, .pdf or .svg")
    with output_name(path) as beside:
        try:
            figure.savefig(beside, format=kind, dpi=dpi, metadata=_NO_DATE[kind])
        except (ValueError, ArithmeticError, RuntimeError, zlib.error) as error:
            raise VoxlithError(f"{os.fspath(path)}: cannot be drawn: {error}") from error
