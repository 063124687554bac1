"""Mesh files and the mesh."""

from types import SimpleNamespace

import numpy as np
import pytest
from conftest import Bench
from hypothesis import given
from hypothesis import strategies as st

from voxlith import FileError, Mesh, UsageError
from voxlith.io.mesh_file import MeshFile, read_mesh_file, write_mesh_file

widths = st.lists(st.floats(1e-3, 1e6), min_size=1, max_size=20)
corner = st.tuples(*[st.floats(-1e7, 1e7)] * 3)


@given(corner, widths, widths, widths)
def test_meshes_round_trip_to_the_bit(tmp_path_factory, corner, x, y, z):
    path = tmp_path_factory.mktemp("mesh") / "m.msh"
    try:
        mesh = Mesh.from_widths(corner, x, y, z)
    except UsageError:
        return  # widths that do not move a node far away
    mesh.write(path)
    again = Mesh.read(path)
    assert again == mesh
    again.write(path.with_suffix(".2"))
    assert path.with_suffix(".2").read_bytes() == path.read_bytes()


def test_the_tools_write_the_same_bytes(bench: Bench):
    bench.write("s.obs", "2\n1000 2000 3\n1500 2400 5\n")
    bench.tools("mesh", "--stations", "s.obs", "--cell", "50,20", "--depth", 400, "--layer-factor", 1.1, "--out",
                "m.msh")
    Mesh.read(bench.path("m.msh")).write(bench.path("again.msh"))
    assert bench.path("again.msh").read_bytes() == bench.path("m.msh").read_bytes()


def test_long_coordinates_leave_no_digits_behind(tmp_path):
    """Nodes of UTM size lose digits; the widths are written as they were, where that leads to the same nodes."""
    whole = Mesh.from_widths((452000.0, 5317119.9455, 12.5), [185.8, 142.9, 109.9], 30 * [0.1], [1.0 / 3.0, 0.7])
    mesh = Mesh(whole.x_nodes, whole.y_nodes, whole.z_nodes)
    mesh.write(tmp_path / "m.msh")
    assert (tmp_path / "m.msh").read_text().split("\n")[2:4] == ["185.8 142.9 109.9", "30*0.1"]
    for axis in (452000.0 + 0.1 * np.arange(40), np.linspace(452000.0, 452007.0, 71)):
        np.testing.assert_array_equal(Mesh(axis, [0.0, 1.0], [1.0, 0.0])._widths[0], 0.1)
    again = Mesh.read(tmp_path / "m.msh")
    for one, other in ((again.x_nodes, mesh.x_nodes), (again.y_nodes, mesh.y_nodes), (again.z_nodes, mesh.z_nodes)):
        np.testing.assert_allclose(one, other, rtol=4e-16)
    uneven = Mesh([1e6, 1e6 + 1e-9 * 2**20], [0.0, 1e-300], [1e300, 0.0])
    uneven.write(tmp_path / "u.msh")
    assert Mesh.read(tmp_path / "u.msh").shape == (1, 1, 1)


def test_free_form_and_comments(tmp_path):
    path = tmp_path / "m.msh"
    path.write_text("2 1 3 ! counts\n0,0\t10 ! corner\r\n2*100 1D2\n! nothing\n1e1 2*2.5d0 ! rest")
    mesh = Mesh.read(path)
    np.testing.assert_array_equal(mesh.x_nodes, [0, 100, 200])
    np.testing.assert_array_equal(mesh.y_nodes, [0, 100])
    np.testing.assert_array_equal(mesh.z_nodes, [10, 0, -2.5, -5])


@pytest.mark.parametrize("text, message", [
    ("", "line 1: expected the number of cells to the east, found the end"),
    ("2 0 1", 'line 1: expected the number of cells to the north, 1 to 10000000, found "0"'),
    ("2 1.5 1", 'found "1.5"'),
    ("90000 90000 90000\n", "at most 2147483647 cells, found 90000 x 90000 x 90000"),
    ("1 1 1\n0 x 0", 'line 2: expected the northing .*found "x"'),
    ("1 1 1\n0 0 nan", "elevation"),
    ("2 1 1\n0 0 0\n1 -1\n", 'line 3: expected 2 cell widths above 0 to the east, found "-1"'),
    ("2 1 1\n0 0 0\n3*1\n", 'expected 2 more cell widths to the east, found "3\\*1"'),
    ("2 1 1\n0 0 0\n0*1\n", 'found "0\\*1"'),
    ("2 1 1\n0 0 0\n1\n", "found the end of the file"),
    ("1 1 1\n1e20 0 0\n1 1 1\n", "move the nodes"),
    ("1 1 1\n0 0 0\n1 1 1 1\n", 'expected the end of the file, found "1"')])
def test_damaged_files(tmp_path, text, message):
    path = tmp_path / "m.msh"
    path.write_text(text)
    with pytest.raises(FileError, match=message):
        read_mesh_file(path)


def test_refused_meshes(tmp_path):
    one = np.ones(1)
    for bad in (MeshFile(0, 0, 0, np.array([0.0]), one, one), MeshFile(0, 0, 0, np.array([]), one, one),
                MeshFile(np.inf, 0, 0, one, one, one)):
        with pytest.raises(UsageError):
            write_mesh_file(tmp_path / "m.msh", bad)
    for nodes in ([0.0], [0.0, 0.0], [1.0, 0.0], [0.0, np.nan], [[0.0, 1.0]]):
        with pytest.raises(UsageError, match="x_nodes"):
            Mesh(nodes, [0, 1], [0, -1])
    with pytest.raises(UsageError, match="z_nodes: expected falling"):
        Mesh([0, 1], [0, 1], [0, 1])
    with pytest.raises(UsageError, match="at most"):
        Mesh(np.arange(5e4), np.arange(5e4), [0, -1])


def test_long_lines_of_widths_are_broken(tmp_path):
    mesh = Mesh.from_widths((0, 0, 0), np.arange(1, 100) + 0.125, [1], [1])
    mesh.write(tmp_path / "m.msh")
    assert max(map(len, (tmp_path / "m.msh").read_text().splitlines())) <= 100
    assert Mesh.read(tmp_path / "m.msh") == mesh


MESH = Mesh([0, 10, 30], [0, 5, 10, 20], [100, 90, 70, 40, 0])


def test_order_of_cells():
    k, i, j = np.unravel_index(17, MESH.shape, order="F")
    assert MESH.cell_index(k, i, j) == 17
    centres = MESH.centres()
    cube = MESH.cube(np.arange(MESH.n_cells))
    place = cube[2, 1, 2]
    assert centres[place].tolist() == [20.0, 15.0, 55.0]
    assert MESH.cell_at(*centres.T).tolist() == list(range(MESH.n_cells))
    np.testing.assert_array_equal(MESH.flat(cube), np.arange(MESH.n_cells))
    assert MESH.volumes().sum() == 30 * 20 * 100
    assert MESH.volumes()[place] == 20 * 10 * 30
    with pytest.raises(UsageError, match="cells: expected the shape"):
        MESH.cube(np.zeros(5))


def test_cells_are_views():
    values = np.zeros(MESH.n_cells)
    MESH.cube(values)[0, 0, 0] = 7.0
    assert values[0] == 7.0


def test_points_on_faces_and_outside():
    assert MESH.cell_at(10.0, 5.0, 90.0) == MESH.cell_index(1, 1, 1)
    assert MESH.cell_at(30.0, 20.0, 0.0) == MESH.cell_index(3, 1, 2)
    assert MESH.cell_at(0.0, 0.0, 100.0) == 0
    assert MESH.cell_at([-0.1, 30.1, 5, 5], 1, [1, 1, 100.1, np.nan]).tolist() == [-1, -1, -1, -1]


def test_active_cells():
    counts = MESH.inactive_counts(80.0)
    assert counts.tolist() == [[1] * 3] * 2  # the centre of layer 2 lies at 80: on the surface
    surface = np.array([[1000.0, 79.9, -5.0], [95.0, 94.9, 20.0]])
    assert MESH.inactive_counts(surface).tolist() == [[0, 2, 4], [0, 1, 3]]
    active = MESH.cube(MESH.active_cells(surface))
    assert active[:, 0, 1].tolist() == [False, False, True, True]
    assert MESH.inactive_counts(lambda x, y: x + 0 * y)[:, 0].tolist() == [4, 3]
    with pytest.raises(UsageError, match="surface"):
        MESH.inactive_counts(np.zeros((3, 2)))
    with pytest.raises(UsageError, match="surface"):
        MESH.inactive_counts(np.nan)


def test_discretize_by_its_shape():
    class Tensor:
        def __init__(self, h, origin):
            self.h, self.origin = h, origin
    other = MESH.to_discretize(Tensor)
    assert [len(h) for h in other.h] == [2, 3, 4]
    assert list(other.origin) == [0, 0, 0]
    assert other.h[2].tolist() == [40, 30, 20, 10]
    assert Mesh.from_discretize(other) == MESH
    with pytest.raises(UsageError, match="tensor mesh"):
        Mesh.from_discretize(SimpleNamespace(h=[[1.0]]))
    with pytest.raises(ImportError, match="discretize"):
        MESH.to_discretize()


def test_comparison_and_text():
    assert MESH != "mesh"
    assert MESH != Mesh([0, 10, 30], [0, 5, 10, 20], [100, 90, 70, 40, 1])
    assert "2 x 3 x 4 cells" in repr(MESH)
    assert MESH.x_widths.tolist() == [10, 20] and MESH.y_widths.tolist() == [5, 5, 10]
