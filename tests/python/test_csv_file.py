"""Tables as spreadsheets write them."""

import codecs

import numpy as np
import pytest

from voxlith import FileError, UsageError
from voxlith.io.csv_file import read_csv_file, write_csv_file


@pytest.fixture
def table(tmp_path):
    def read(text, **keywords):
        content = text.encode() if isinstance(text, str) else text
        (tmp_path / "t.csv").write_bytes(content)
        return read_csv_file(tmp_path / "t.csv", **keywords)
    return read


def rows(found):
    return [found.columns, *found.frame.values.tolist()]


@pytest.mark.parametrize("text", ["a,b\n1,2\n", "a;b\n1;2\n", "a\tb\n1\t2\n", "a b\n1   2\n", " a ,b\r\n 1 , 2\r\n",
                                  "a  b\n 1\t2 ", "a,b\r1,2\r"])
def test_the_separator_is_found_in_the_first_line(table, text):
    assert rows(table(text)) == [["a", "b"], ["1", "2"]]


def test_a_separator_may_be_said(table):
    assert rows(table("a;b\n1,5;2\n")) == [["a", "b"], ["1,5", "2"]]
    assert rows(table("a;b\n1;5\n", separator="comma")) == [["a;b"], ["1;5"]]


def test_quotes_hold_separators_quotes_and_line_ends(table):
    found = table('"a, b",c\n"say ""x""" , 2\n"two\nlines",3\n4,5\n')
    assert rows(found) == [["a, b", "c"], ['say "x"', "2"], ["two\nlines", "3"], ["4", "5"]]
    assert found.lines.tolist() == [2, 3, 5]
    assert rows(table('a b\n"x y" 2\n')) == [["a", "b"], ["x y", "2"]]
    assert rows(table('a,b\n5" pipe,2\n')) == [["a", "b"], ['5" pipe', "2"]]


def test_comments_and_blank_lines_are_left_out(table):
    found = table("# made by hand\n\n\ufeffa,b\n! note\n1,2\n,,\n  \n3,\n#4,5\n")
    assert rows(found) == [["a", "b"], ["1", "2"], ["3", ""]]
    assert found.lines.tolist() == [5, 8]
    assert rows(table("a,b,\n1,2,,,\n")) == [["a", "b"], ["1", "2"]]


@pytest.mark.parametrize("content", [codecs.BOM_UTF8 + "é,b\n1,2\n".encode(), "é,b\n1,2\n".encode("latin-1"),
                                     codecs.BOM_UTF16_LE + "é,b\n1,2\n".encode("utf-16-le")])
def test_text_of_other_programs(table, content):
    assert rows(table(content)) == [["é", "b"], ["1", "2"]]


@pytest.mark.parametrize("text, problem", [
    ("a,b\n1,2\n\n3\n", "line 4: expected 2 fields as in the line of column names, found 1"),
    ("a,b\n1,2,3\n", "line 2: expected 2 fields as in the line of column names, found 3"),
    ('a,b\n1,2\n"3,4\n5,6\n', "line 3: expected a closing quote, found the end of the file"),
    ('a,b\n"1"x,2\n', "line 2: expected a separator after the closing quote"),
    ("", "line 1: expected column names, found the end of the file"),
    (",,\n", "line 1: expected column names, found none"),
    ("a,b\n" + 1100000 * "1" + "\n", "line 2: expected a line of at most 1048576 characters, found 1100000"),
    ("a,b\n" + 140000 * "1" + ",2\n", "line 2: expected fields of at most 131072 characters; a closing quote may be "
                                      "missing"),
    ("a,b\n1,\0\n", "line 2: expected text, found a zero byte")])
def test_what_is_wrong_is_named_with_its_line(table, tmp_path, text, problem):
    with pytest.raises(FileError) as error:
        table(text)
    assert str(error.value) == f"{tmp_path / 't.csv'}, {problem}"


def test_numbers_name_their_column(table):
    found = table("a;b;a\n1,5;x;\n", decimal_comma=True)
    assert found.numbers(0).tolist() == [1.5]
    for column, problem in ((1, 'line 2: column "b": expected a number, found "x"'),
                            (2, 'line 2: column "a": expected a number, found an empty field')):
        with pytest.raises(FileError, match=problem):
            found.numbers(column)
    assert found.column("b") == 1
    with pytest.raises(UsageError, match="has two columns of that name"):
        found.column("a")
    with pytest.raises(UsageError, match="--x c: .*t.csv has no column of that name; it has a, b, a"):
        found.column("c", "--x")
    with pytest.raises(FileError, match="expected another separator than the comma"):
        table("a,b\n1,2\n", decimal_comma=True)
    with pytest.raises(FileError, match="a number with a decimal comma"):
        table("a;b\n1.5;2\n", decimal_comma=True).numbers(0)


@pytest.mark.parametrize("word, value", [("1D1", 10.0), ("+2", 2.0), (".5", 0.5), ("1e-400", 0.0)])
def test_spellings_of_numbers(table, word, value):
    assert table(f"a\n{word}\n1\n").numbers(0)[0] == value


@pytest.mark.parametrize("word", ["inf", "nan", "1e400", "1_0", "0x1", "1 2", "é"])
def test_what_is_no_number(table, word):
    with pytest.raises(FileError, match="expected a number"):
        table(f"a,b\n1,1\n{word},1\n").numbers(0)


def test_tables_are_written_so_that_they_read_back(tmp_path):
    import pandas
    frame = pandas.DataFrame([["1", "a b"], ['say "x"', ""], ["2,5", "é"]], columns=["#x", "y;z"])
    for separator in ("comma", "semicolon", "tab"):
        write_csv_file(tmp_path / "t.csv", frame, separator=separator)
        found = read_csv_file(tmp_path / "t.csv", separator=separator)
        assert rows(found) == [["#x", "y;z"], *frame.values.tolist()]


def test_a_long_table_takes_time_in_proportion(table):
    import time
    text = "x,y,z,d\n" + 100000 * "452000.25,5318000.5,12.25,-0.125\n"
    start = time.process_time()
    found = table(text)
    assert len(found) == 100000 and np.all(found.numbers(3) == -0.125)
    assert time.process_time() - start < 6.0
