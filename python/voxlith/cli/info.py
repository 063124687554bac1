"""``voxlith-tools info``: the header of a sensitivity file."""

from __future__ import annotations

import os
from collections.abc import Iterator, Sequence
from typing import Any

import numpy as np
import numpy.typing as npt

from ..codes import data_type_name
from ..errors import PathLike
from ..io.mtx_file import MtxFile
from ..io.mtx_header import MtxHeader
from ..io.numbers import number_text
from .output import say
from .parser import Parser

PROGRAM = "voxlith-tools"
_LAYOUTS = {"record": "record form", "bare": "bare form"}
_STYLES = ("standard 3D", "equivalent source", "apparent density", "surface and apparent density",
           "3D with edge padding correction")

_EXAMPLES = """\
Example:
  voxlith-tools info gz.mtx"""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} info", "Print the header of a sensitivity file", _EXAMPLES)
    parser.add_argument("file", metavar="FILE", help="Sensitivity file of any layout")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    with MtxFile(options.file, strict=False) as mtx:
        lines = [*_start(options.file, mtx.header), *_mesh(mtx.header), *_rows(mtx), *_tail(mtx)]
    for label, value in lines:
        say(f"{label + ':':<22}{value}")
    return 0


def _range(values: npt.NDArray[np.floating[Any]]) -> str:
    return f"{_shortest(values.min())} to {_shortest(values.max())}"


def _shortest(value: np.floating[Any]) -> str:
    """The fewest digits that read back as the same, in single precision where the file has that."""
    return number_text(float(value)) if value.dtype == np.float64 else number_text(float(str(value)))


def _counts(*counts: int) -> str:
    return " x ".join(map(str, counts))


def _start(path: PathLike, head: MtxHeader) -> Iterator[tuple[str, str]]:
    yield "file", os.fspath(path)
    yield "file size", f"{os.path.getsize(path)} bytes"
    yield "layout", _LAYOUTS.get(head.form, f"tagged form, version {head.version}")
    by_name = " (by the file's name)" if head.form == "record" else ""
    yield "data type", f"{head.data_type} {data_type_name(head.data_type)}{by_name}"
    yield "data", str(head.n_data)
    if head.form != "tagged" or head.stations is None:
        return
    strength, inclination, declination = (number_text(float(str(np.float32(value)))) for value in head.inducing)
    yield "incl, decl, geomag", f"{inclination}, {declination}, {strength}"
    measured = (number_text(float(str(np.float32(value)))) for value in head.measured)
    yield "aincl, adecl, idir", f"{', '.join(measured)}, {head.idir}"
    for axis, values in zip("xyz", head.stations.T):
        yield f"stations {axis}", _range(values)


def _mesh(head: MtxHeader) -> Iterator[tuple[str, str]]:
    yield "cells x, y, z", _counts(head.nx, head.ny, head.nz)
    yield "padded x, y, z", _counts(head.npx, head.npy, head.npz)
    for axis, nodes in (("x", head.x_nodes), ("y", head.y_nodes), ("z", head.z_nodes)):
        yield f"{axis} nodes", f"{number_text(float(nodes[0]))} to {number_text(float(nodes[-1]))}"
    yield "filter", " ".join([f"{len(head.low)}:", *map(_shortest, head.low)])
    if head.form != "record":
        yield "weight parameters", ", ".join(number_text(float(str(np.float32(value))))
                                             for value in head.weight_parameters)
    yield "depth weights", _range(head.depth_weight)


def _rows(mtx: MtxFile) -> Iterator[tuple[str, str]]:
    counts = mtx.row_counts().astype(np.int64)
    kept = int(counts.sum())
    yield "coefficients", str(kept)
    yield "coefficients per row", f"{counts.min()} to {counts.max()}"
    ratio = mtx.header.n_data * mtx.header.n_padded / kept if kept else 0.0
    yield "compression", number_text(np.floor(100.0 * ratio + 0.5) / 100.0) if kept else "no coefficients"


def _tail(mtx: MtxFile) -> Iterator[tuple[str, str]]:
    head, tail = mtx.header, mtx.tail()
    yield "diagonal of G'G", "not stored" if tail is None else _range(tail.diagonal)
    stored = tail.style if tail is not None else None
    style = head.style_of_counts if stored is None else stored
    name = _STYLES[style] if 0 <= style < len(_STYLES) else _STYLES[0]
    yield "inversion style", f"{style} {name}{'' if stored is not None else ' (by the padded mesh)'}"
    yield "layers covered", str(head.layers)
    yield "layer responses", f"{head.layers + 1} per datum" if stored is not None else "not stored"
