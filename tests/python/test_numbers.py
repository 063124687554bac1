"""Single numbers and fields of fixed width."""

import math
import struct

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

from voxlith.io.exponent_text import exponent_fields, exponent_lines
from voxlith.io.numbers import (LONGEST_WORD, exponent_field, fixed_field, integer_field, number_text, parse_integer,
                                parse_real)

any_double = st.integers(0, 2**64 - 1).map(lambda bits: struct.unpack("<d", struct.pack("<Q", bits))[0])


@pytest.mark.parametrize("word, value", [
    ("1", 1.0), ("-1.5", -1.5), ("+.5", 0.5), ("7.", 7.0), ("1e3", 1000.0), ("1D+3", 1000.0), ("1q-3", 1e-3),
    ("1-5", 1e-5), ("2.5+3", 2500.0), ("1e400", math.inf), ("-1e-400", -0.0), ("Inf", math.inf),
    ("-INFINITY", -math.inf), ("+inf", math.inf)])
def test_spellings_that_count(word, value):
    assert parse_real(word) == value
    assert math.copysign(1.0, parse_real(word)) == math.copysign(1.0, value)


@pytest.mark.parametrize("word", ["nan", "NaN", "-nan", "nan(12)"])
def test_words_for_not_a_number(word):
    assert math.isnan(parse_real(word))


@pytest.mark.parametrize("word", ["", "-", ".", "1e", "1e+", "e5", "1_0", "0x10", "1.5.2", "--1", "1 ", "1,5", "infin",
                                  "nan(", "nan()x", "١", "1" * (LONGEST_WORD + 1)])
def test_spellings_that_do_not_count(word):
    assert parse_real(word) is None


def test_a_long_word_is_read_to_its_limit():
    assert parse_real("0" * (LONGEST_WORD - 1) + "5") == 5.0


@pytest.mark.parametrize("word, value", [("12", 12), ("-3", -3), ("+4", 4), ("2147483647", 2**31 - 1),
                                         ("-2147483648", -2**31), ("2147483648", None), ("1.0", None), ("+-1", None),
                                         ("+", None), ("", None), ("9" * 2000, None)])
def test_integers(word, value):
    assert parse_integer(word) == value


@given(any_double)
def test_shortest_text_reads_back(value):
    back = parse_real(number_text(value))
    assert back == value or (math.isnan(back) and math.isnan(value))


@given(st.lists(st.one_of(any_double, st.floats(-1e6, 1e6), st.integers(-10**8, 10**8).map(lambda n: n / 1e7)),
                min_size=1, max_size=50))
def test_many_exponent_fields_are_those_one_by_one(values):
    assert exponent_fields(values).tobytes().decode() == "".join(map(exponent_field, values))


@given(any_double.filter(math.isfinite))
def test_exponent_field_is_the_correctly_rounded_decimal(value):
    field = exponent_field(value)
    assert len(field) == 14
    assert parse_real(field.strip()) == float(f"{value:.5e}")


@pytest.mark.parametrize("value, width, digits, field", [
    (1.23456, 14, 6, "  0.123456E+01"), (-1.23456, 14, 6, " -0.123456E+01"), (0.0, 14, 6, "  0.000000E+00"),
    (-0.0, 14, 6, " -0.000000E+00"), (9.999999e9, 14, 6, "  0.100000E+11"), (1e-150, 14, 6, "  0.100000-149"),
    (1e99, 14, 6, "  0.100000+100"), (math.nan, 14, 6, "           NaN"), (-math.inf, 14, 6, "     -Infinity"),
    (math.inf, 4, 1, " Inf"), (math.inf, 2, 1, "**"), (1.0, 11, 6, ".100000E+01"), (-1.0, 11, 6, "***********")])
def test_exponent_fields(value, width, digits, field):
    assert exponent_field(value, width, digits) == field


@pytest.mark.parametrize("value, width, decimals, field", [
    (2.5, 6, 0, "    2."), (-0.004, 6, 2, " -0.00"), (-0.25, 4, 2, "-.25"), (0.5, 2, 1, ".5"), (10.5, 3, 1, "***"),
    (math.nan, 2, 1, "**"), (1e300, 12, 2, "************")])
def test_fixed_fields(value, width, decimals, field):
    assert fixed_field(value, width, decimals) == field


def test_integer_fields():
    assert integer_field(-7, 3) == " -7"
    assert integer_field(1000, 3) == "***"


def test_lines_of_fields():
    assert exponent_lines(np.array([])) == b""
    assert exponent_lines([1e-200, -2.5]) == b"  0.100000-199\n -0.250000E+01\n"
