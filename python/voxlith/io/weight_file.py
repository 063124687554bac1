"""Weights of the model norm: four sections of numbers, each beginning on a new line, or a file for each section.

======= ================ ======== =========================================
section shape            times    weight of
======= ================ ======== =========================================
1       (nz, nx, ny)     alphaS   the smallness of the cell
2       (nz, nx-1, ny)   alphaE   the difference to the next cell along x
3       (nz, nx, ny-1)   alphaN   the difference to the next cell along y
4       (nz-1, nx, ny)   alphaZ   the difference to the next cell downwards
======= ================ ======== =========================================
"""

from __future__ import annotations

import os
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..errors import PathLike, UsageError
from .exponent_text import exponent_lines
from .free_format import FreeFormat
from .model_file import Digits, full_lines
from .output import open_output

Reals = npt.NDArray[np.float64]

_NAMES = ("smallness", "x differences", "y differences", "z differences")


@dataclass(frozen=True)
class CellWeights:
    """Weights as written in the files, before alphas and cell volumes.

    Attributes
    ----------
    smallness : ndarray, shape (nz, nx, ny)
    x_difference : ndarray, shape (nz, nx-1, ny)
        Between a cell and the next one to the east.
    y_difference : ndarray, shape (nz, nx, ny-1)
        Between a cell and the next one to the north.
    z_difference : ndarray, shape (nz-1, nx, ny)
        Between a cell and the next one below.
    """

    smallness: Reals
    x_difference: Reals
    y_difference: Reals
    z_difference: Reals

    def sections(self) -> tuple[Reals, Reals, Reals, Reals]:
        """The four arrays in the order of the file."""
        return self.smallness, self.x_difference, self.y_difference, self.z_difference


def section_shapes(nx: int, ny: int, nz: int) -> list[tuple[int, int, int]]:
    """Shapes (nz, nx, ny) of the four sections."""
    return [(nz, nx, ny), (nz, nx - 1, ny), (nz, nx, ny - 1), (nz - 1, nx, ny)]


def is_null_name(name: str) -> bool:
    """Whether a name of a weighting file means weights of 1: blank, or beginning with null or NULL."""
    return not name.strip(" ") or name.strip(" ")[:4] in ("null", "NULL")


def _read_section(reader: FreeFormat, shape: tuple[int, int, int], number: int, strict: bool) -> Reals:
    count = shape[0] * shape[1] * shape[2]
    values = np.zeros(count)
    if count:
        reader.begin()
        reader.reals(values)
        what = f"{count} weights of section {number}, {_NAMES[number - 1]}"
        if strict or reader.status.name != "GOOD":
            reader.expect(count, what)
        reader.end()
    return values.reshape(shape, order="F")


def read_weight_files(names: Sequence[PathLike], nx: int, ny: int, nz: int, *, strict: bool = True) -> CellWeights:
    """Read the weights of a run.

    Parameters
    ----------
    names : sequence of path
        One file with all sections, or four names of which each may be null (:func:`is_null_name`).
    nx, ny, nz : int
        Cells of the mesh along x, y and z.
    strict : bool
        Whether values left out, and anything but spaces after the last section, are an error.

    Returns
    -------
    CellWeights
        Weights of 1 where a name is null.

    Raises
    ------
    FileError
        When a file cannot be read, ends early or holds text among the numbers.
    UsageError
        For another number of names than 1 or 4.
    """
    if len(names) not in (1, 4):
        raise UsageError(f"weighting files: expected 1 or 4 names, found {len(names)}")
    shapes = section_shapes(nx, ny, nz)
    if len(names) == 1 and not is_null_name(os.fspath(names[0])):
        with FreeFormat.of_file(names[0]) as reader:
            sections = [_read_section(reader, shape, number, strict) for number, shape in enumerate(shapes, 1)]
            if strict:
                reader.expect_end("the four sections")
        return CellWeights(*sections)
    sections = []
    for number, (shape, name) in enumerate(zip(shapes, 4 * list(names) if len(names) == 1 else names), 1):
        if is_null_name(os.fspath(name)):
            sections.append(np.ones(shape))
            continue
        with FreeFormat.of_file(name) as reader:
            sections.append(_read_section(reader, shape, number, strict))
            if strict:
                reader.expect_end(f"section {number}")
    return CellWeights(*sections)


def write_weight_file(path: PathLike, weights: CellWeights, *, digits: Digits = "full") -> None:
    """Write all four sections into one file, a number a line.

    Raises
    ------
    UsageError
        When the shapes do not belong to one mesh, or a weight is not finite or below 0.
    FileError
        When the file cannot be written.
    """
    nz, nx, ny = weights.smallness.shape
    for section, shape in zip(weights.sections(), section_shapes(nx, ny, nz)):
        if section.shape != shape:
            raise UsageError(f"weights: expected the shape {shape}, found {section.shape}")
        if not (np.isfinite(section).all() and (section >= 0.0).all()):
            raise UsageError("weights: expected finite numbers of 0 or more")
    with open_output(path) as output:
        for section in weights.sections():
            values = section.ravel(order="F")
            output.write(exponent_lines(values) if digits == "fixed" else full_lines(values))
