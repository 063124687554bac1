"""Files of one number per cell: models, gradients, lithology numbers, masks.

The cells have the order of the UBC model format: z fastest from the top down, then x from west to east, then y from
south to north. There is no header. ``voxlith`` writes a number a line with 6 digits.
"""

from __future__ import annotations

from typing import Literal

import numpy as np
import numpy.typing as npt

from ..errors import PathLike, UsageError
from .exponent_text import exponent_lines
from .free_format import FreeFormat
from .numbers import number_text
from .output import open_output

Reals = npt.NDArray[np.float64]
Digits = Literal["fixed", "full"]

_AT_ONCE = 1 << 16


def read_model_file(path: PathLike, cells: int, *, fill: float = 0.0, strict: bool = True) -> Reals:
    """Read one number per cell.

    Parameters
    ----------
    path : path
    cells : int
        Number of cells of the mesh.
    fill : float
        Value of cells that a short file or a value left out does not give (``strict=False``).
    strict : bool
        Whether values left out, too few or too many are an error. ``voxlith`` itself reads such files: it fills up
        and does not look at what follows.

    Returns
    -------
    ndarray, shape (cells,)
        Values as written, in cell order; no-data cells hold -1.0e30 or less.

    Raises
    ------
    FileError
        When the file cannot be read, for text among the numbers and, if strict, for another count than `cells`.
    """
    with FreeFormat.of_file(path) as reader:
        values = np.full(cells, fill) if fill else np.zeros(cells)
        reader.reals(values)
        what = f"{cells} cell values"
        if strict or reader.status.name == "BAD":
            reader.expect(cells, what)
        if strict:
            reader.expect_end(f"the {what}")
    return values


def write_model_file(path: PathLike, values: npt.ArrayLike, *, digits: Digits = "fixed") -> None:
    """Write one number per line.

    Parameters
    ----------
    path : path
    values : array_like
        In cell order; a cube of shape (nz, nx, ny) is taken in Fortran order, which is the cell order.
    digits : {"fixed", "full"}
        ``"fixed"``: fields of 6 digits, the same bytes that ``voxlith`` writes. ``"full"``: the fewest digits that
        read back as the same numbers.

    Raises
    ------
    FileError
        When the file cannot be written.

    Examples
    --------
    >>> import tempfile, pathlib
    >>> path = pathlib.Path(tempfile.mkdtemp()) / "start.den"
    >>> write_model_file(path, [0.5, -1.0])
    >>> path.read_text()
    '  0.500000E+00\\n -0.100000E+01\\n'
    >>> read_model_file(path, 2)
    array([ 0.5, -1. ])
    """
    numbers = np.asarray(values, dtype=np.float64).ravel(order="F")
    if digits not in ("fixed", "full"):
        raise UsageError(f"digits {digits!r}: expected 'fixed' or 'full'")
    with open_output(path) as output:
        for first in range(0, len(numbers), _AT_ONCE):
            some = numbers[first: first + _AT_ONCE]
            output.write(exponent_lines(some) if digits == "fixed" else full_lines(some))


def full_lines(numbers: Reals) -> bytes:
    """One number per line with the fewest digits that read back as the same."""
    return "".join([f"{number_text(value)}\n" for value in numbers.tolist()]).encode()
