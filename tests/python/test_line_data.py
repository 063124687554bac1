"""Geosoft XYZ: lines, ties, dummies and channel names; thinning of lines."""

from __future__ import annotations

import hypothesis.strategies as st
import numpy as np
import pytest
from hypothesis import given

from voxlith import FileError, UsageError
from voxlith.io.line_data import read_line_data, thin_lines

TEXT = """/ exported 2024
/   X          Y        Z   TMI
//-----------------------
LINE 100
 452000.0 5318000.0  40.0  12.5
 452010.0 5318000.0  41.0  *
TIE  T9
 452005.0 5318050.0  40.5  -3.25
Line 101:2
 452000.0 5318100.0  *     1e2
L102
 452000.0 5318200.0  40.0  7
"""


def test_lines_ties_dummies_and_channels(tmp_path):
    (tmp_path / "tmi.xyz").write_text(TEXT)
    found = read_line_data(tmp_path / "tmi.xyz")
    assert found.channels == ["X", "Y", "Z", "TMI"]
    assert found.line == ["L100", "L100", "TT9", "L101:2", "L102"]
    assert found.is_tie.tolist() == [False, False, True, False, False]
    assert np.array_equal(found.channel("tmi"), [12.5, np.nan, -3.25, 100.0, 7.0], equal_nan=True)
    assert found.records.tolist() == [5, 6, 8, 10, 12]
    with pytest.raises(UsageError, match="X, Y, Z, TMI"):
        found.channel("gz")


def test_without_names(tmp_path):
    (tmp_path / "a.xyz").write_text("1 2 3\n4 5 6\n")
    found = read_line_data(tmp_path / "a.xyz")
    assert found.channels == ["X", "Y", "C3"] and found.line == ["L0", "L0"]


@pytest.mark.parametrize("text, message", [("", "found none"), ("/ x\nLINE 1\n", "found none"),
                                           ("1 2 3\n1 2\n", "line 2: expected 3 columns"),
                                           ("1 2 x\n", 'line 1: expected a number or \\*, found "x"'),
                                           ("1 2 inf\n", "expected a number")])
def test_refusals(tmp_path, text, message):
    (tmp_path / "a.xyz").write_text(text)
    with pytest.raises(FileError, match=message):
        read_line_data(tmp_path / "a.xyz")


@given(st.binary(max_size=300))
def test_any_bytes_end_in_records_or_one_error(tmp_path_factory, content):
    path = tmp_path_factory.mktemp("xyz") / "a.xyz"
    path.write_bytes(content)
    try:
        assert len(read_line_data(path).line) > 0
    except FileError as error:
        assert "\n" not in str(error)


@given(st.lists(st.floats(0.0, 100.0), min_size=1, max_size=40), st.floats(0.0, 50.0))
def test_thinned_lines_keep_their_distance(positions, distance):
    x = np.sort(np.array(positions))
    line = ["a"] * (len(x) // 2) + ["b"] * (len(x) - len(x) // 2)
    kept = thin_lines(x, 0.0 * x, line, distance)
    assert kept[0] == 0 and (len(x) < 2 or len(x) // 2 in kept)
    for first, second in zip(kept, kept[1:]):
        assert line[first] != line[second] or x[second] - x[first] >= distance
    assert thin_lines(x, 0.0 * x, line, 0.0).tolist() == list(range(len(x)))
