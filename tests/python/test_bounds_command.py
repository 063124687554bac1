"""Bounds by a lithology model."""

import numpy as np
import pytest
from conftest import one_line
from hypothesis import given
from hypothesis import strategies as st

from voxlith.io.bounds_file import bounds_of_pairs, read_bounds_file
from voxlith.lithology import describe_pair, parse_pair

UNITS = ("--unit", "1=0,0.1", "--unit", "2=-0.5,0.25", "--unit", "3=fixed", "--unit", "-7=-99,99")


@pytest.fixture
def bounds(tools, tmp_path):
    """Writes bounds of twelve cells, and reads them as a run does."""
    (tmp_path / "m.msh").write_text("3 2 2\n0 0 0\n3*1\n2*1\n2*1\n")
    (tmp_path / "u.mod").write_text("1 2 3 1 2 3\n1 2 3 1 2 -7\n")

    def run(*arguments, units="u.mod"):
        return tools("bounds", "--mesh", "m.msh", "--units", units, *arguments, "--out", "b.txt")
    return run


@pytest.fixture
def read_back(tmp_path):
    return lambda: bounds_of_pairs(read_bounds_file(tmp_path / "b.txt", 12))


def test_every_cell_gets_the_bounds_of_its_unit(bounds, read_back):
    done = bounds(*UNITS)
    assert done.out.splitlines() == ["unit -7         1 cells, free", "unit 1          4 cells, 0 to 0.1",
                                     "unit 2          4 cells, -0.5 to 0.25", "unit 3          3 cells, fixed"]
    found = read_back()
    units = np.array([1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, -7])
    assert found.fixed.tolist() == (units == 3).tolist()
    assert found.lower[units == 2].tolist() == 4 * [-0.5] and found.upper[units == 2].tolist() == 4 * [0.25]
    assert found.upper[0] == np.float32(0.1)
    assert (found.lower[11], found.upper[11]) == (-np.inf, np.inf)


@pytest.mark.parametrize("text, lower, upper", [
    ("-99,0.5", -np.inf, 0.5), ("0.5,99", 0.5, np.inf), ("-98.9,0.5", -np.inf, 0.5), ("0.5,98.9", 0.5, np.inf),
    ("-98.9,98.9", -np.inf, np.inf), ("-1e30,1e30", -np.inf, np.inf), ("-98,98", -98, 98), ("-99,-1", -np.inf, -1)])
def test_free_sides_are_read_as_free(bounds, read_back, text, lower, upper):
    bounds("--default", text)
    found = read_back()
    assert not found.fixed.any()
    assert set(found.lower.tolist()) == {lower} and set(found.upper.tolist()) == {upper}


@given(lower=st.floats(-3, 3), width=st.floats(0.01, 3))
def test_pairs_mean_what_they_say(lower, width):
    pair = parse_pair("--unit", f"{lower!r},{lower + width!r}")
    found = bounds_of_pairs([pair])
    assert not found.fixed[0]
    assert (found.lower[0], found.upper[0]) == (np.float32(lower), np.float32(lower + width))
    assert describe_pair(pair).count(" to ") == 1


def test_a_mask_fixes_cells_of_any_unit(bounds, read_back, tmp_path):
    (tmp_path / "mask.mod").write_text("1 0 0 0 0 1\n5*0 1\n")
    done = bounds(*UNITS[:-2], "--fixed", "mask.mod")  # only a fixed cell is of unit -7
    assert "mask            3 cells, fixed\n" in done.out
    assert np.flatnonzero(read_back().fixed).tolist() == [0, 2, 5, 8, 11]


def test_no_data_cells_are_fixed(bounds, read_back, tmp_path):
    (tmp_path / "u.mod").write_text("-1e32 11*1\n")
    assert bounds("--unit", "1=0,1").out.splitlines()[-1] == "no data         1 cells, fixed"
    assert read_back().fixed.tolist() == [True] + 11 * [False]


def test_table_and_options_are_one_table(bounds, tmp_path):
    (tmp_path / "t.txt").write_text("! unit lower upper\n1 0 0.1\n\n2,-0.5,0.25  # ore\n3 fixed\n")
    assert bounds("--table", "t.txt", "--unit", "-7=-99,99").status == 0
    by_table = (tmp_path / "b.txt").read_text()
    bounds(*UNITS)
    assert (tmp_path / "b.txt").read_text() == by_table
    assert bounds("--unit", "1=0,1", "--default", "fixed").out.splitlines()[-1] == "other units     8 cells, fixed"


@pytest.mark.parametrize("arguments, problem", [
    (("--unit", "1=0.5,0.1"), "--unit 1=0.5,0.1: expected a lower bound below the upper one (write fixed to fix cells), "
                              "found 0.5,0.1"),
    (("--unit", "1=1,1.00000000001"), "--unit 1=1,1.00000000001: expected a lower bound below the upper one (write fixed "
                                      "to fix cells), found 1,1.00000000001"),
    (("--unit", "1=1"), "--unit 1=1: expected lower,upper or fixed, found 1"),
    (("--unit", "1=1,x"), "--unit 1=1,x: expected lower,upper or fixed, found 1,x"),
    (("--unit", "1"), "--unit 1: expected unit=lower,upper or unit=fixed"),
    (("--unit", "1.5=0,1"), "--unit 1.5=0,1: expected the whole number of a unit, found 1.5"),
    (("--unit", "2=0,1", "--unit", "2=0,2"), "--unit 2=0,2: unit 2 has bounds already, 0 to 1"),
    (("--default", "a"), "--default a: expected lower,upper or fixed, found a")])
def test_what_is_wrong_on_the_command_line(bounds, tmp_path, arguments, problem):
    assert one_line(bounds(*arguments), 2) == problem
    assert not (tmp_path / "b.txt").exists()


@pytest.mark.parametrize("name, text, arguments, problem", [
    ("t.txt", "4 0 1\n5 0\n", ("--table", "t.txt"), "line 2: expected lower,upper or fixed, found 0"),
    ("t.txt", "4\n", ("--table", "t.txt"), "line 1: expected lower,upper or fixed, found the end of the line"),
    ("t.txt", "4 fixed\n\n4 0 1\n", ("--table", "t.txt"), "line 3: unit 4 has bounds already, fixed"),
    ("x.mod", "11*1\n1.5\n", (), "line 2: expected a whole number for cell 12, found 1.5"),
    ("x.mod", "11*1\nnan\n", (), "line 2: expected a whole number for cell 12, found nan"),
    ("x.mod", "11*1\n3e9\n", (), "line 2: expected a whole number for cell 12, found 3000000000"),
    ("x.mod", "11*1", (), "line 1: expected 12 whole numbers, one per cell, found the end of the file after 11"),
    ("x.mod", "13*1", (), "line 1: expected the end of the file after the 12 values of the mesh"),
    ("mask", "11*1\n2\n", ("--fixed", "mask"), "line 2: expected 0 or 1 for cell 12, found 2"),
    ("mask", "-1e32\n11*1\n", ("--fixed", "mask"), "line 1: expected 0 or 1 for cell 1, found a no-data cell")])
def test_what_is_wrong_in_a_file(bounds, tmp_path, name, text, arguments, problem):
    (tmp_path / name).write_text(text)
    done = bounds("--unit", "1=0,1", "--default", "0,1", *arguments, units="x.mod" if name == "x.mod" else "u.mod")
    assert one_line(done).startswith(f"{name}, {problem}")
    assert not (tmp_path / "b.txt").exists()


def test_a_unit_without_bounds(bounds):
    assert one_line(bounds(*UNITS[:-2])) == ("u.mod, line 2: expected a unit with bounds for cell 12, found -7; give "
                                             "--unit -7=lower,upper or --default")


def test_a_mesh_out_of_proportion(tools, tmp_path):
    (tmp_path / "m.msh").write_text("10000 10000 10000\n0 0 0\n10000*1 10000*1 10000*1\n")
    (tmp_path / "u.mod").write_text("1\n")
    assert "expected at most 2147483647 cells, found 10000 x 10000 x 10000" in one_line(
        tools("bounds", "--mesh", "m.msh", "--units", "u.mod", "--out", "b.txt"))
    (tmp_path / "m.msh").write_text("1000 1000 2000\n0 0 0\n1000*1 1000*1 2000*1\n")
    error = one_line(tools("bounds", "--mesh", "m.msh", "--units", "u.mod", "--out", "b.txt"))
    assert error.startswith("m.msh: a mesh of 2000000000 cells takes 160.0 GB of memory; there are ")
