"""Arrays for the page: base64 text of single-precision numbers, of double-precision numbers, or of 65535 steps."""

from __future__ import annotations

import base64
from typing import Any

import numpy as np
import numpy.typing as npt

Reals = npt.NDArray[np.float64]

STEPS = 65534
"""Largest step of a quantised array; one more stands for no value."""


def encode_singles(values: npt.ArrayLike) -> dict[str, Any]:
    """Numbers in single precision; NaN stays."""
    return {"type": "f4", "data": _text(np.asarray(values, dtype="<f4"))}


def encode_doubles(values: npt.ArrayLike) -> dict[str, Any]:
    """Numbers in double precision, for coordinates."""
    return {"type": "f8", "data": _text(np.asarray(values, dtype="<f8"))}


def encode_steps(values: npt.ArrayLike) -> dict[str, Any]:
    """Numbers as 16-bit steps between the smallest and the largest: half a step, 1/131068 of the range, is the error.

    >>> encode_steps([0.0, 1.0, float("nan")])
    {'type': 'u2', 'low': 0.0, 'step': 1.5259254737998596e-05, 'data': 'AAD+////'}
    """
    numbers = np.asarray(values, dtype=np.float64)
    known = np.isfinite(numbers)
    low = float(numbers[known].min()) if known.any() else 0.0
    high = float(numbers[known].max()) if known.any() else 1.0
    step = (high - low) / STEPS or 1.0
    steps = np.full(numbers.shape, STEPS + 1, dtype="<u2")
    steps[known] = np.rint((numbers[known] - low) / step).astype("<u2")
    return {"type": "u2", "low": low, "step": step, "data": _text(steps)}


def _text(values: npt.NDArray[Any]) -> str:
    return base64.b64encode(np.ascontiguousarray(values).tobytes()).decode("ascii")
