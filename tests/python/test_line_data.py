"""Geosoft XYZ: lines, ties, dummies and channel names; thinning of lines."""

from __future__ import annotations

import hypothesis.strategies as st
import numpy as np
import pytest
from hypothesis import given

from voxlith import FileError
from voxlith.io.line_data import read_line_data, table_of_lines, thin_lines

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
    assert [words[3] for words in found.words] == ["12.5", "", "-3.25", "1e2", "7"]
    assert found.records.tolist() == [5, 6, 8, 10, 12]


def test_without_names(tmp_path):
    (tmp_path / "a.xyz").write_text("1 2 3\n4 5 6\n")
    found = read_line_data(tmp_path / "a.xyz")
    assert found.channels == ["X", "Y", "C3"] and found.line == ["L0", "L0"]


@pytest.mark.parametrize("text, message", [("", "found none"), ("/ x\nLINE 1\n", "found none"),
                                           ("1 2 3\n1 2\n", "line 2: expected 3 columns"),
                                           ("x 1 2\n", 'line 1: expected a heading, a number or \\*, found "x"')])
def test_refusals(tmp_path, text, message):
    (tmp_path / "a.xyz").write_text(text)
    with pytest.raises(FileError, match=message):
        read_line_data(tmp_path / "a.xyz")


EXPORT = """/ ------------------------------------------------------
/ XYZ EXPORT [06/15/2011]
/ DATABASE   [.\\mag.gdb : Super]
/ ------------------------------------------------------
/
/         X           Y      DATE        MAG
/========== =========== ========== =========
/
Line  100
//Flight 1
//Date 2011/05/03
 452000,50  5318000,25  2011/05/03     12,5
 452010,50  5318000,25  2011/05/03        *
Line  110
 452010,50  5318100,25  2011/05/04     -3,5
"""


def test_an_export_with_rules_dates_and_decimal_commas(tmp_path):
    (tmp_path / "a.xyz").write_text(EXPORT)
    found = read_line_data(tmp_path / "a.xyz")
    assert found.channels == ["X", "Y", "DATE", "MAG"] and found.line == ["L100", "L100", "L110"]
    assert found.words[1] == ["452010,50", "5318000,25", "2011/05/03", ""]
    table = table_of_lines(found, tmp_path / "a.xyz", True)
    assert table.numbers(table.column("X")).tolist() == [452000.5, 452010.5, 452010.5]
    with pytest.raises(FileError, match='line 12: column "DATE": expected a number, found "2011/05/03"'):
        table.numbers(table.column("DATE"))
    with pytest.raises(FileError, match='line 12: column "X": expected a number, found "452000,50"'):
        plain = table_of_lines(found, tmp_path / "a.xyz")
        plain.numbers(plain.column("X"))


def test_fields_between_commas(tmp_path):
    (tmp_path / "a.xyz").write_text("LINE 1\n1,2,,4\n5, 6, *, 8\n")
    assert read_line_data(tmp_path / "a.xyz").words == [["1", "2", "", "4"], ["5", "6", "", "8"]]


def test_lines_of_two_surveys_that_alternate():
    x = np.repeat(np.arange(6.0), 2)
    assert thin_lines(x, 0.0 * x, ["a", "b"] * 6, 2.0).tolist() == [0, 1, 4, 5, 8, 9]


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
