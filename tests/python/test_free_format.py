"""The free-format reader, and its fast path against reading value by value."""

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

from voxlith import FileError
from voxlith.io import free_format
from voxlith.io.free_format import FreeFormat, Status, plain_numbers

WORDS = st.sampled_from(["1", "2.5", "-3e2", ".5", "7.", "1-5", "2d3", "3*4", "2*", "/", "x", "1.5.2", "nan", "+1"]
                        + 20 * ["12.25"])
GAPS = st.sampled_from([" ", "\n", ",", "  ", "\r\n", " , ", "\t", ",,", "\n\n"])


def read(text, count, one_by_one):
    """Values, how the read ended, and what the next read finds."""
    values = np.full(count, -7.0)
    with FreeFormat.of_text(text) as reader:
        if one_by_one:
            for place in range(count):
                values[place] = reader.real(float(values[place]))
                if reader.status is not Status.GOOD or reader.slash:
                    break
        else:
            reader.reals(values)
        ended = reader.status, reader.given, reader.slash, reader.line
        reader.end()
        reader.begin()
        return values.tolist(), ended, repr(reader.real(-1.0)), reader.status, reader.line


@given(st.lists(st.tuples(WORDS, GAPS), max_size=120), st.integers(1, 200), st.sampled_from([7, 64, 1 << 22]))
def test_fast_path_reads_what_single_reads_do(parts, count, block):
    text = "".join(word + gap for word, gap in parts)
    held = free_format._BLOCK, free_format._LEAST_PLAIN
    free_format._BLOCK, free_format._LEAST_PLAIN = block, 1
    try:
        fast = read(text, count, False)
    finally:
        free_format._BLOCK, free_format._LEAST_PLAIN = held
    slow = read(text, count, True)
    np.testing.assert_array_equal(fast[0], slow[0])
    assert fast[1:] == slow[1:]


def values_of(text, count):
    with FreeFormat.of_text(text) as reader:
        return reader.reals(np.zeros(count)).tolist(), reader.status, reader.given


def test_documented_forms():
    assert values_of("4*0.2", 4) == ([0.2] * 4, Status.GOOD, 4)
    assert values_of("0.1,,0.3", 3) == ([0.1, 0.0, 0.3], Status.GOOD, 2)
    assert values_of("0.1 0.2 / 9", 4) == ([0.1, 0.2, 0.0, 0.0], Status.GOOD, 2)
    assert values_of("2* 5", 3) == ([0.0, 0.0, 5.0], Status.GOOD, 1)
    assert values_of("1 2", 3) == ([1.0, 2.0, 0.0], Status.END, 2)
    assert values_of("1 two", 2) == ([1.0, 0.0], Status.BAD, 1)
    assert values_of("0*5 1", 1)[1] is Status.BAD
    assert values_of("3*x", 3)[1] is Status.BAD


def test_rest_of_the_line_is_dropped():
    with FreeFormat.of_text("1 2 remark\n3") as reader:
        reader.reals(np.zeros(2))
        reader.end()
        reader.begin()
        assert reader.integer(0) == 3
        reader.end()
        reader.end()


def test_integers_and_left_out_values():
    with FreeFormat.of_text("5,,1.5") as reader:
        assert [reader.integer(9), reader.integer(9), reader.integer(9)] == [5, 9, 9]
        assert reader.status is Status.BAD
        assert reader.integer(9) == 9


def test_words_of_any_length_take_no_memory():
    with FreeFormat.of_text("9" * 5000 + " 1") as reader:
        reader.real(0.0)
        assert reader.status is Status.BAD


def test_a_word_across_blocks():
    held = free_format._BLOCK
    free_format._BLOCK = 3
    try:
        assert values_of("123456.75 2", 2)[0] == [123456.75, 2.0]
    finally:
        free_format._BLOCK = held


def test_messages():
    with FreeFormat.of_text("1\n\nx", "m.den") as reader, pytest.raises(FileError, match=r'm.den, line 3: .*found "x"'):
        reader.reals(np.zeros(2))
        reader.expect(2, "2 values")
    with FreeFormat.of_text("1\n", "m.den") as reader, pytest.raises(FileError, match="line 2: .*end of the file"):
        reader.reals(np.zeros(2))
        reader.expect(2, "2 values")
    with FreeFormat.of_text("1 /", "m.den") as reader, pytest.raises(FileError, match="found 1 before a slash"):
        reader.reals(np.zeros(2))
        reader.expect(2, "2 values")
    with FreeFormat.of_text("1 2\n 3", "m.den") as reader, pytest.raises(FileError, match="line 2: expected the end"):
        reader.reals(np.zeros(2))
        reader.expect(2, "2 values")
        reader.expect_end("2 values")


def test_plain_numbers():
    assert plain_numbers(b"1-5") is None
    assert plain_numbers(b"1 2 nan") is None
    assert plain_numbers(b"  \n") is None
    np.testing.assert_array_equal(plain_numbers(b"1\t2\r\n 3"), [1.0, 2.0, 3.0])


def test_repeats_that_are_left_are_more_than_the_end():
    reader = FreeFormat.of_text("3*1", "m.den")
    reader.reals(np.zeros(2))
    with pytest.raises(FileError, match='m.den, line 1: expected the end of the file after two, found 1 more of "1"'):
        reader.expect_end("two")
