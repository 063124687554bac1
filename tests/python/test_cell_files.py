"""Files of cells: models, bounds, weights; and points of the surface."""

import numpy as np
import pytest
from conftest import Bench, block_mesh
from hypothesis import given
from hypothesis import strategies as st

from voxlith import FileError, UsageError
from voxlith.io.bounds_file import bounds_of_pairs, bounds_of_text, read_bounds_file, write_bounds_file
from voxlith.io.model_file import read_model_file, write_model_file
from voxlith.io.topography_file import read_topography_file, write_topography_file
from voxlith.io.weight_file import CellWeights, is_null_name, read_weight_files, section_shapes, write_weight_file

numbers = st.lists(st.floats(allow_nan=False), min_size=1, max_size=80)


@given(numbers)
def test_models_with_all_digits(tmp_path_factory, values):
    path = tmp_path_factory.mktemp("model") / "m.den"
    write_model_file(path, values, digits="full")
    np.testing.assert_array_equal(read_model_file(path, len(values)), values)


@given(numbers)
def test_models_with_six_digits_are_stable(tmp_path_factory, values):
    path = tmp_path_factory.mktemp("model") / "m.den"
    write_model_file(path, values)
    first = path.read_bytes()
    write_model_file(path, read_model_file(path, len(values)))
    assert path.read_bytes() == first


def test_runs_write_the_same_bytes(gravity: Bench, magnetic: Bench, joint: Bench):
    cells = block_mesh().n_cells
    count = 0
    for folder in (gravity.folder, magnetic.folder, joint.folder):
        for path in folder.iterdir():
            if path.suffix in (".den", ".rho", ".sus", ".kap") or path.name == "voxlith_grad.mod":
                write_model_file(folder / "again", read_model_file(path, cells))
                assert (folder / "again").read_bytes() == path.read_bytes(), path
                count += 1
    assert count >= 12


def test_short_and_long_models(tmp_path):
    path = tmp_path / "m.den"
    path.write_text("1\n2,,3 / 5\n")
    with pytest.raises(FileError, match="m.den, line 2: expected 5 cell values, found 3 before a slash"):
        read_model_file(path, 5)
    assert read_model_file(path, 5, strict=False).tolist() == [1, 2, 0, 3, 0]
    assert read_model_file(path, 5, strict=False, fill=9.0).tolist() == [1, 2, 9, 3, 9]
    path.write_text("1 2 3\n")
    with pytest.raises(FileError, match="line 2: expected 4 cell values, found the end of the file after 3"):
        read_model_file(path, 4)
    with pytest.raises(FileError, match='line 1: expected the end of the file after the 2 cell values, found "3"'):
        read_model_file(path, 2)
    assert read_model_file(path, 2, strict=False).tolist() == [1, 2]
    path.write_text("1 ,, 3\n")
    with pytest.raises(FileError, match="found 2 and values left out between commas"):
        read_model_file(path, 3)
    path.write_text("1\ntext\n")
    for strict in (True, False):
        with pytest.raises(FileError, match='line 2: expected 2 cell values, found "text"'):
            read_model_file(path, 2, strict=strict)


def test_a_model_as_a_cube(tmp_path):
    write_model_file(tmp_path / "m", np.arange(24.0).reshape((2, 3, 4), order="F"))
    assert read_model_file(tmp_path / "m", 24).tolist() == list(range(24))
    with pytest.raises(UsageError, match="digits"):
        write_model_file(tmp_path / "m", [1.0], digits="some")


def test_many_cells_in_mixed_spellings(tmp_path):
    rng = np.random.default_rng(1)
    values = rng.normal(size=20000).round(5)
    text = "".join(f"{value:.5f}\n" if n % 7 else f"{value:.5f}," for n, value in enumerate(values))
    (tmp_path / "m").write_text(text + "5000*1.5\n3D0 ")
    found = read_model_file(tmp_path / "m", 25001)
    np.testing.assert_array_equal(found, [*values, *5000 * [1.5], 3.0])


@given(st.lists(st.tuples(st.one_of(st.just(-np.inf), st.floats(-50, 50)),
                          st.one_of(st.just(np.inf), st.floats(-50, 50))), min_size=1, max_size=40),
       st.sampled_from(["full", "fixed"]))
def test_bounds_keep_their_meaning(tmp_path_factory, pairs, digits):
    path = tmp_path_factory.mktemp("bounds") / "b.txt"
    pairs = np.round(pairs, 3)
    write_bounds_file(path, pairs, digits=digits)
    found = bounds_of_pairs(read_bounds_file(path, len(pairs)))
    held = pairs[:, 0].astype(np.float32) >= pairs[:, 1].astype(np.float32)
    np.testing.assert_array_equal(found.fixed, held)
    np.testing.assert_array_equal(found.lower, pairs[:, 0].astype(np.float32))
    np.testing.assert_array_equal(found.upper, pairs[:, 1].astype(np.float32))


def test_bounds_that_cannot_be_written(tmp_path):
    for pairs in ([1.0, 2.0], [[np.nan, 1.0]], [[np.inf, np.inf]], [[0.0, -np.inf]]):
        with pytest.raises(UsageError, match="bounds"):
            write_bounds_file(tmp_path / "b", pairs)


def test_short_bounds(tmp_path):
    (tmp_path / "b").write_text("0 1\n0 1\n")
    with pytest.raises(FileError, match="expected 6 values, a pair per cell, found the end of the file after 4"):
        read_bounds_file(tmp_path / "b", 3)
    found = bounds_of_text("b", 3, folder=tmp_path, strict=False)
    assert found.fixed.tolist() == [False, False, True]


# Pair, positivity flag, then lower and upper bound, or None for a fixed cell.
PAIRS = [((1, 1), 0, None), ((2, 1), 0, None), ((100, 2), 0, (100, 2)), ((100000, 2), 0, (-np.inf, 2)),
         ((0, 99), 0, (0, np.inf)), ((-99, 99), 0, (-np.inf, np.inf)), ((98.9, 98.9), 0, None),
         ((-99, 1), 0, (-99, 1)), ((-1, 1), 1, (0, 1)), ((-2, -1), 1, (0, 0)), ((-1, 1), 2, (np.float32(1e-5), 1)),
         ((-1, 1), -1, (-1, 0)), ((0.5, 1), -1, (0, 0)), ((-99, -1), 1, (-99, 0)), ((0, 0), 2, None)]


@pytest.mark.parametrize("pair, flag, wanted", PAIRS)
def test_pairs_of_a_file(pair, flag, wanted):
    found = bounds_of_pairs([pair], flag)
    if wanted is None:
        assert found.fixed[0]
    else:
        assert not found.fixed[0] and (found.lower[0], found.upper[0]) == wanted


@pytest.mark.parametrize("text, flag, wanted", [
    ("null", 0, (-np.inf, np.inf)), ("NULL ", 1, (0, np.inf)), ("null", 2, (np.float32(1e-5), np.inf)),
    ("null", -1, (-np.inf, 0)), ("0.0,1.0", 0, (0, 1)), ("-99,1.0", 0, (-np.inf, 1)), ("0,99", 0, (0, np.inf)),
    ("99 99", 0, (-np.inf, np.inf)), ("0.5,0.1", 0, (0.5, np.float32(0.1))), ("-1 1", 1, (0, 1)),
    ("-99 -1", 1, (-np.inf, 0)),
    ("-1 -0.5", 2, (np.float32(1e-5), np.float32(1e-5))), ("0.5 1", -1, (0, 0)), ("2*0.5", 0, (0.5, 0.5))])
def test_bounds_of_line_8(text, flag, wanted):
    found = bounds_of_text(text, 2, flag)
    assert not found.fixed.any()
    assert (found.lower[1], found.upper[1]) == wanted


def test_a_bounds_file_holds_cells_as_the_program_holds_them(gravity: Bench, copied):
    bench = copied(gravity)
    pairs = np.tile([-np.inf, np.inf], (192, 1))
    pairs[::3] = 0.0
    write_bounds_file(bench.path("b.txt"), pairs)
    bench.control(l8="b.txt", l6="0.25", l12="6")
    bench.voxlith()
    model = read_model_file(bench.path("voxlith.den"), 192)
    fixed = bounds_of_pairs(read_bounds_file(bench.path("b.txt"), 192)).fixed
    assert (model[fixed] == 0.25).all() and (model[~fixed] != 0.25).any()


def weights(nx, ny, nz):
    rng = np.random.default_rng(2)
    return CellWeights(*(rng.uniform(0, 9, shape).round(4) for shape in section_shapes(nx, ny, nz)))


@pytest.mark.parametrize("nx, ny, nz", [(3, 4, 5), (1, 2, 1), (1, 1, 1)])
def test_weights_round_trip(tmp_path, nx, ny, nz):
    written = weights(nx, ny, nz)
    for digits in ("full", "fixed"):
        write_weight_file(tmp_path / "w", written, digits=digits)
        for a, b in zip(read_weight_files([tmp_path / "w"], nx, ny, nz).sections(), written.sections()):
            np.testing.assert_array_equal(a, b)


def test_sections_begin_on_new_lines(tmp_path):
    (tmp_path / "w").write_text("1 1 1 1 left\n2 2 over\n3 3\n")
    found = read_weight_files([tmp_path / "w"], 2, 2, 1)
    assert [section.ravel().tolist() for section in found.sections()] == [[1] * 4, [2] * 2, [3] * 2, []]


def test_four_weight_files(tmp_path):
    (tmp_path / "e").write_text("5 6\n")
    found = read_weight_files(["null", tmp_path / "e", " ", "NULLx"], 2, 2, 1)
    assert found.x_difference.ravel(order="F").tolist() == [5, 6]
    assert (found.smallness == 1).all() and found.z_difference.size == 0
    assert (read_weight_files(["null"], 2, 2, 2).z_difference == 1).all()
    assert is_null_name(" nullmodel.dat") and not is_null_name("Null")
    with pytest.raises(UsageError, match="1 or 4 names"):
        read_weight_files(["a", "b"], 2, 2, 1)


@pytest.mark.parametrize("text, message", [
    ("1 1 1\n", "line 2: expected 4 weights of section 1, smallness, found the end"),
    ("1 1 1 1\nx\n", 'line 2: expected 2 weights of section 2, x differences, found "x"'),
    ("1 1 1 1\n2 2\n3 ,,\n4\n", "section 3, y differences"),
    ("1 1 1 1\n2 2\n3 3\n4 4\n", "line 4: expected the end of the file after the four sections")])
def test_damaged_weights(tmp_path, text, message):
    (tmp_path / "w").write_text(text)
    with pytest.raises(FileError, match=message):
        read_weight_files([tmp_path / "w"], 2, 2, 1)


def test_damaged_single_section(tmp_path):
    (tmp_path / "e").write_text("5 6\n7\n")
    with pytest.raises(FileError, match="after section 2"):
        read_weight_files(["null", tmp_path / "e", "null", "null"], 2, 2, 1)


def test_weights_that_cannot_be_written(tmp_path):
    good = weights(2, 2, 2)
    for bad in (CellWeights(good.smallness, good.y_difference, good.y_difference, good.z_difference),
                CellWeights(-good.smallness, *good.sections()[1:]),
                CellWeights(good.smallness * np.nan, *good.sections()[1:])):
        with pytest.raises(UsageError, match="weights"):
            write_weight_file(tmp_path / "w", bad)


def test_the_program_reads_written_weights(gravity: Bench, copied):
    bench = copied(gravity)
    mesh = block_mesh()
    write_weight_file(bench.path("w.txt"), CellWeights(*map(np.ones, section_shapes(mesh.nx, mesh.ny, mesh.nz))))
    bench.control(l12="6")
    bench.voxlith()
    plain = bench.path("voxlith.den").read_bytes()
    bench.control(l10="w.txt", l12="6")
    bench.voxlith()
    assert bench.path("voxlith.den").read_bytes() == plain


@given(st.lists(st.tuples(*[st.floats(-1e12, 1e12)] * 3), min_size=1, max_size=30))
def test_surface_points_round_trip(tmp_path_factory, points):
    path = tmp_path_factory.mktemp("topo") / "t.topo"
    write_topography_file(path, points)
    np.testing.assert_array_equal(read_topography_file(path), points)


def test_the_count_of_points_may_be_left_out(tmp_path):
    (tmp_path / "t").write_text("! a hill\n\n0 0,1 ! first\n1D1 2 3\n")
    assert read_topography_file(tmp_path / "t").tolist() == [[0, 0, 1], [10, 2, 3]]


@pytest.mark.parametrize("text, message", [
    ("", "expected x, y, elevation of point 1, found the end"), ("0\n1 2 3", "line 1: expected the number of points"),
    ("2\n1 2 3\n", "expected x, y, elevation of point 2, found the end"),
    ("1\n1 2 3\n4 5 6\n", "line 3: expected the end of the file after 1 points"),
    ("1 2\n", "line 1: expected x, y, elevation within 1e12"), ("1 2 1e13\n", "within 1e12"),
    ("1 2 nan\n", "within 1e12"), ("1 2 3 4\n", "expected x, y, elevation"), ("x\n", "the number of points")])
def test_damaged_surfaces(tmp_path, text, message):
    (tmp_path / "t").write_text(text)
    with pytest.raises(FileError, match=message):
        read_topography_file(tmp_path / "t")


def test_surfaces_that_cannot_be_written(tmp_path):
    for points in ([[1, 2]], np.empty((0, 3)), [[1, 2, np.inf]]):
        with pytest.raises(UsageError, match="points"):
            write_topography_file(tmp_path / "t", points)
