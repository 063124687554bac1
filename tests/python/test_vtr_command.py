"""Grids for viewers: VTK reads each value where its cell lies."""

import numpy as np
import pytest
from conftest import one_line
from hypothesis import given
from hypothesis import strategies as st

from voxlith import Mesh, Model, UsageError
from voxlith.cli.vtr import split_name

vtk_xml = pytest.importorskip("vtkmodules.vtkIOXML")
from vtkmodules.util.numpy_support import vtk_to_numpy  # noqa: E402


def read_grid(path):
    reader = vtk_xml.vtkXMLRectilinearGridReader()
    reader.SetFileName(str(path))
    reader.Update()
    return reader.GetOutput()


def centres(grid):
    """Centres of the cells in the order of VTK, shape (cells, 3)."""
    nodes = [vtk_to_numpy(values) for values in (grid.GetXCoordinates(), grid.GetYCoordinates(), grid.GetZCoordinates())]
    x, y, z = (0.5 * (values[1:] + values[:-1]) for values in nodes)
    z, y, x = np.meshgrid(z, y, x, indexing="ij")
    return np.column_stack([x.ravel(), y.ravel(), z.ravel()])


def place_value(points):
    """A value that says where the cell is."""
    return points @ [1e6, 1e3, 1.0]


widths = st.lists(st.integers(1, 9), min_size=1, max_size=5)


@given(x=widths, y=widths, z=widths, top=st.integers(-50, 50))
def test_every_cell_is_where_its_value_says(tmp_path_factory, x, y, z, top):
    folder = tmp_path_factory.getbasetemp()
    mesh = Mesh.from_widths((-40.0, 7.0, float(top)), *(np.array(axis, float) for axis in (x, y, z)))
    Model(mesh, place_value(mesh.centres()), "here").write_vtr(folder / "g.vtr")
    grid = read_grid(folder / "g.vtr")
    assert (np.diff(vtk_to_numpy(grid.GetZCoordinates())) > 0).all()
    np.testing.assert_allclose(vtk_to_numpy(grid.GetCellData().GetArray("here")), place_value(centres(grid)), rtol=1e-12)


@pytest.fixture
def folder(tmp_path):
    (tmp_path / "m.msh").write_text("3 2 4\n100 200 50\n10 20 30\n5 6\n2*1 2 4\n")
    mesh = Mesh.read(tmp_path / "m.msh")
    values = place_value(mesh.centres())
    Model(mesh, values).write(tmp_path / "b.den", digits="full")
    values[5] = np.nan
    Model(mesh, values).write(tmp_path / "a.den", digits="full")
    return tmp_path


def test_no_data_cells_are_blanked(tools, folder):
    done = tools("vtr", "--mesh", "m.msh", "--model", "a.den", "second=b.den", "--out", "g.vtr")
    assert done.status == 0, done.errors
    assert done.out.splitlines() == ["a.den: 105202544 to 145208049.5, 1 no-data cells", "second: 105202544 to 145208049.5"]
    grid = read_grid(folder / "g.vtr")
    first, second = (vtk_to_numpy(grid.GetCellData().GetArray(name)) for name in ("a.den", "second"))
    # Cell 5 is the second from the top of the column i = 1, j = 0: layer 2 of 4 from below.
    assert np.flatnonzero(np.isnan(first)).tolist() == [2 * 6 + 1]
    assert not np.isnan(second).any()
    assert tools("vtr", "--mesh", "m.msh", "--model", "a.den", "--out", "g.vtr").status == 0
    assert [n for n in range(24) if not read_grid(folder / "g.vtr").IsCellVisible(n)] == [2 * 6 + 1]


def test_names_of_models(tools, folder):
    assert split_name("é€🌍=f") == ("é€🌍", "f")
    for text in ("=f", "a\nb=f", "\x7f=f", "\udcc3=f", "\uffff=f", "name=", "folder/", ""):
        with pytest.raises(UsageError):
            split_name(text)
    assert tools("vtr", "--mesh", "m.msh", "--model", '<"&">=b.den', "--out", "g.vtr").status == 0
    assert read_grid(folder / "g.vtr").GetCellData().GetArray('<"&">') is not None


@pytest.mark.parametrize("text, problem", [
    ("23*1\n", "line 2: expected 24 cell values, found the end of the file"),
    ("25*1\n", "line 1: expected the end of the file after the 24 values of the mesh"),
    ("10*1\nx\n", "line 2: expected "), ("10*1 /\n", "line 1: expected "), ("22*1,,1\n", "line 1: expected ")])
def test_what_is_wrong_in_a_model(tools, folder, text, problem):
    (folder / "bad.den").write_text(text)
    assert one_line(tools("vtr", "--mesh", "m.msh", "--model", "bad.den", "--out", "g.vtr")).startswith("bad.den, " + problem[:14])
    assert not (folder / "g.vtr").exists()


def test_what_is_wrong_on_the_command_line(tools, folder):
    for words, problem in (
            (("--model", "a.den", "a.den"), "--model a.den: the name a.den is that of a.den already; give NAME=FILE"),
            (("--model", "x=a.den", "--out", "m.msh"), "--out m.msh: expected another file than that of --mesh"),
            (("--model", "a.den", "--out", "a.den"), "--out a.den: expected another file than that of --model a.den")):
        out = () if "--out" in words else ("--out", "g.vtr")
        assert one_line(tools("vtr", "--mesh", "m.msh", *words, *out), 2) == problem
    assert one_line(tools("vtr", "--mesh", "m.msh", "--model", "none", "--out", "g.vtr")).startswith("none: cannot be read")
    (folder / "m.msh").write_text("10000 10000 10000\n0 0 0\n10000*1 10000*1 10000*1\n")
    assert "expected at most 2147483647 cells" in one_line(
        tools("vtr", "--mesh", "m.msh", "--model", "a.den", "--out", "g.vtr"))


def test_inactive_cells_show_nothing(tools, tmp_path, gravity):
    mesh = Mesh.read(gravity.path("mesh.msh"))
    (tmp_path / "topo.csv").write_text("x,y,z\n0,0,90\n9000,0,90\n0,9000,90\n9000,9000,90\n")
    done = tools("mtx", "--mesh", gravity.path("mesh.msh"), "--stations", gravity.path("data.obs"), "--type", "gz", "--out", "g.mtx",
                 "--topography", "topo.csv")
    assert done.status == 0, done.errors
    Model(mesh, np.ones(mesh.n_cells)).write(tmp_path / "m.den")
    done = tools("vtr", "--mesh", gravity.path("mesh.msh"), "--model", "m.den", "--mtx", "g.mtx", "--out", "m.vtr")
    assert done.status == 0 and f"{mesh.nx * mesh.ny} no-data cells" in done.out
    grid = read_grid(tmp_path / "m.vtr")
    values = vtk_to_numpy(grid.GetCellData().GetArray("m.den"))
    assert np.array_equal(np.isnan(values), centres(grid)[:, 2] > 90.0)
    Mesh.from_widths((0.0, 0.0, 0.0), [1.0], [1.0], [1.0]).write(tmp_path / "one.msh")
    (tmp_path / "one.den").write_text("1\n")
    assert "g.mtx: expected" in one_line(tools("vtr", "--mesh", "one.msh", "--model", "one.den", "--mtx", "g.mtx", "--out", "n.vtr"))
