"""Many numbers as exponent fields of width 14 with 6 digits, ``  0.123456E+01``, the form of all model files."""

from __future__ import annotations

from typing import Final

import numpy as np
import numpy.typing as npt

from .numbers import exponent_field

WIDTH: Final = 14
_LOWEST, _HIGHEST = -98, 98  # exponents 10^e above a value whose fields have two digits of exponent
_SCALES = np.array([float(f"1e{6 - e}") for e in range(_LOWEST, _HIGHEST + 1)])
_DOUBTFUL = 0.5 - 1.0e-8  # a value whose scaled form lies nearer to a half is rounded exactly


def exponent_fields(values: npt.ArrayLike) -> npt.NDArray[np.uint8]:
    """Characters of the fields of many numbers.

    The rounding is that of the exact binary value, ties to the even digit: the same characters as
    :func:`~voxlith.io.numbers.exponent_field` gives one by one.

    Parameters
    ----------
    values : array_like, shape (n,)

    Returns
    -------
    ndarray of uint8, shape (n, 14)

    Examples
    --------
    >>> exponent_fields([1.23456, -0.5]).tobytes()
    b'  0.123456E+01 -0.500000E+00'
    """
    numbers = np.ascontiguousarray(values, dtype=np.float64).ravel()
    size = np.abs(numbers)
    plain = (size > 1.0e-97) & (size < 1.0e96)
    safe = np.where(plain, size, 0.5)
    exponent = np.floor(np.log10(safe)).astype(np.int64) + 1
    scaled = safe * _SCALES[exponent - _LOWEST]
    exponent += (scaled >= 1.0e6).astype(np.int64) - (scaled < 1.0e5).astype(np.int64)
    scaled = safe * _SCALES[exponent - _LOWEST]
    digits = np.rint(scaled)
    exact = ~plain | (np.abs(scaled - digits) > _DOUBTFUL)
    carried = digits >= 1.0e6
    whole = np.where(carried, 100000, digits).astype(np.int64)
    exponent += carried
    zero = numbers == 0.0
    fields = _assemble(np.where(zero, 0, whole), np.where(zero, 0, exponent), np.signbit(numbers))
    for index in np.flatnonzero(exact & ~zero):
        text = exponent_field(float(numbers[index])).encode()
        fields[index] = np.frombuffer(text, dtype=np.uint8)
    return fields


def _assemble(digits: npt.NDArray[np.int64], exponent: npt.NDArray[np.int64],
              negative: npt.NDArray[np.bool_]) -> npt.NDArray[np.uint8]:
    fields = np.empty((len(digits), WIDTH), dtype=np.uint8)
    fields[:] = np.frombuffer(b"  0.000000E+00", dtype=np.uint8)
    fields[negative, 1] = ord("-")
    for column in range(9, 3, -1):
        digits, rest = np.divmod(digits, 10)
        fields[:, column] += rest.astype(np.uint8)
    fields[exponent < 0, 11] = ord("-")
    tens, ones = np.divmod(np.abs(exponent), 10)
    fields[:, 12] += tens.astype(np.uint8)
    fields[:, 13] += ones.astype(np.uint8)
    return fields


def exponent_lines(values: npt.ArrayLike) -> bytes:
    """One field per line.

    >>> exponent_lines([0.0, 1.0])
    b'  0.000000E+00\\n  0.100000E+01\\n'
    """
    fields = exponent_fields(values)
    lines = np.full((len(fields), WIDTH + 1), ord("\n"), dtype=np.uint8)
    lines[:, :WIDTH] = fields
    return lines.tobytes()
