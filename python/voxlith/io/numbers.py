"""Single numbers in text: the spellings that ``voxlith`` reads and the fields that it writes."""

from __future__ import annotations

import math
import re

LONGEST_WORD = 1024
"""A longer word is no number."""

_REAL = re.compile(r"([-+]?(?:[0-9]+\.?[0-9]*|\.[0-9]+))(?:[eEdDqQ]([-+]?[0-9]+)|([-+][0-9]+))?")
_NAMED = re.compile(r"([-+]?)(?:(inf|infinity)|nan(?:\([^)]*\))?)", re.IGNORECASE)
_INTEGER = re.compile(r"-?[0-9]+|\+[0-9]+")


def parse_real(word: str) -> float | None:
    """The number that a word is, or None.

    Exponents are written with E, D or Q or a sign alone; ``inf``, ``infinity``, ``nan`` and ``nan(...)`` count in any
    case. A number too large is an infinity.

    >>> parse_real("15E-1"), parse_real("15D-1"), parse_real("15-1"), parse_real("1_5"), parse_real("-Inf")
    (1.5, 1.5, 1.5, None, -inf)
    """
    if len(word) > LONGEST_WORD:
        return None
    match = _REAL.fullmatch(word)
    if match:
        return float(f"{match[1]}e{match[2] or match[3]}" if match[2] or match[3] else match[1])
    named = _NAMED.fullmatch(word)
    if not named:
        return None
    return math.copysign(math.inf, -1.0 if named[1] == "-" else 1.0) if named[2] else math.nan


def parse_integer(word: str) -> int | None:
    """The 32-bit integer that a word is, or None.

    >>> parse_integer("+12"), parse_integer("1.0"), parse_integer("3000000000")
    (12, None, None)
    """
    if len(word) > LONGEST_WORD or not _INTEGER.fullmatch(word):
        return None
    value = int(word)
    return value if -(2**31) <= value < 2**31 else None


def number_text(value: float) -> str:
    """A number with the fewest digits that read back as the same, without an exponent where that is short.

    >>> number_text(100.0), number_text(0.1), number_text(1e-7), number_text(1e15), number_text(-0.0)
    ('100', '0.1', '1e-07', '1e+15', '-0')
    """
    if not math.isfinite(value):
        return repr(float(value))
    magnitude = abs(value)
    mantissa, _, exponent = repr(float(value)).partition("e")
    if mantissa.endswith(".0"):
        mantissa = mantissa[:-2]
    if magnitude != 0.0 and not 9.999999747378752e-06 <= magnitude < 1.0e15:
        return _scientific(value)
    return _positional(mantissa, int(exponent)) if exponent else mantissa


def _scientific(value: float) -> str:
    """Shortest digits with an exponent of at least two digits."""
    for digits in range(17):
        text = f"{value:.{digits}e}"
        if float(text) == value:
            return text
    return f"{value:.17e}"


def _positional(mantissa: str, exponent: int) -> str:
    """A mantissa with one digit in front of the point, its exponent below 0, written without exponent."""
    sign = "-" if mantissa.startswith("-") else ""
    digits = mantissa.lstrip("-").replace(".", "")
    return f"{sign}0.{'0' * (-exponent - 1)}{digits}"


def fixed_field(value: float, width: int, decimals: int) -> str:
    """Fixed-point field, right-aligned; asterisks where the number does not fit.

    A zero before the point is left out when only so the number fits.

    >>> fixed_field(1.005, 8, 2), fixed_field(-0.001, 5, 2), fixed_field(0.25, 3, 2), fixed_field(1234.5, 5, 2)
    ('    1.00', '-0.00', '.25', '*****')
    """
    if not math.isfinite(value):
        return _not_finite_field(value, width)
    text = f"{value:.{decimals}f}" if decimals else f"{value:.0f}."
    if len(text) > width and decimals:
        text = text.replace("0.", ".", 1) if text.lstrip("-").startswith("0.") else text
    return text.rjust(width) if len(text) <= width else "*" * width


def exponent_field(value: float, width: int = 14, digits: int = 6) -> str:
    """Exponent field with a leading zero: ``0.123456E+01``; exponents of three digits are written without the E.

    >>> exponent_field(1.23456), exponent_field(-1e-200), exponent_field(0.0)
    ('  0.123456E+01', ' -0.100000-199', '  0.000000E+00')
    """
    if not math.isfinite(value):
        return _not_finite_field(value, width)
    sign = "-" if math.copysign(1.0, value) < 0 else ""
    if len(sign) + 1 + digits + 4 > width:
        return "*" * width
    mantissa, _, power = f"{abs(value):.{digits - 1}e}".partition("e")
    exponent = int(power) + 1 if value != 0.0 else 0
    tail = f"E{exponent:+03d}" if abs(exponent) < 100 else f"{exponent:+04d}"
    zero = "0" if len(sign) + 1 + digits + 4 < width else ""
    return f"{sign}{zero}.{mantissa.replace('.', '')}{tail}".rjust(width)


def integer_field(value: int, width: int) -> str:
    """Integer field, right-aligned; asterisks where the number does not fit.

    >>> integer_field(12, 4), integer_field(12345, 4)
    ('  12', '****')
    """
    text = str(value)
    return text.rjust(width) if len(text) <= width else "*" * width


def _not_finite_field(value: float, width: int) -> str:
    sign = "-" if value == -math.inf else ""
    word = "NaN" if math.isnan(value) else "Infinity"
    text = sign + (word if len(sign + word) <= width else word[:3])
    return text.rjust(width) if len(text) <= width else "*" * width
