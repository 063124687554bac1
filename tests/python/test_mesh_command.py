"""Meshes planned around surveys."""

import resource

import numpy as np
import pytest
from conftest import one_line
from hypothesis import given
from hypothesis import strategies as st

from voxlith import Mesh, Survey, UsageError
from voxlith.mesh_plan import Extent, MeshPlan, Padding, plan_mesh

CORE = ("--extent", "0,1600,100,900", "--cell", 50, "--depth", 800)


def test_the_core_fits_the_extent(tools, tmp_path):
    done = tools("mesh", *CORE, "--padding-cells", 0, "--out", "m.msh")
    assert (tmp_path / "m.msh").read_text() == ("32 16 16 ! cells to the east, to the north, downwards\n"
                                                "0 100 0 ! top south-west corner: easting, northing, elevation\n"
                                                "32*50\n16*50\n16*50\n")
    assert done.out.splitlines() == [
        "cells:          32 x 16 x 16 = 8192", "core cells:     32 x 16 x 16",
        "east:           0 to 1600 (core 0 to 1600)", "north:          100 to 900 (core 100 to 900)",
        "elevation:      -800 to 0 (core -800 to 0)",
        "row of the mtx: 32 x 16 x 16 = 8192 values before compression (powers of two)"]


def test_stations_are_in_the_middle_of_the_core(tools, tmp_path):
    (tmp_path / "s.csv").write_text("E;N;h\n1000;2000;-20\n1300;2100;-15\n1200;2050;-30\n")
    options = ("mesh", "--csv", "s.csv", "--x", "E", "--y", "N", "--z", "h", "--cell", "100,25", "--depth", 800,
               "--padding-factor", 2, "--padding-distance", 250, "--out", "m.msh")
    done = tools(*options)
    assert done.out.startswith("stations:       3\n") and done.errors == ""
    mesh = Mesh.read(tmp_path / "m.msh")
    # Half a cell beyond the outermost stations; 200 and 400 of padding at the sides, 50, 100, 200 below.
    assert mesh.x_nodes.tolist() == [350, 750, 950, 1050, 1150, 1250, 1350, 1550, 1950]
    assert (mesh.y_nodes[0], mesh.z_nodes[0], mesh.z_nodes[-1]) == (1350, -30, -30 - 800 - 350)
    assert tools(*options, "--top", "highest").errors == (
        "voxlith-tools: warning: 2 stations below the top of the mesh; give the terrain with "
            "--topography\n")
    assert tools(*options, "--top", "-17.5").status == 0
    assert Mesh.read(tmp_path / "m.msh").z_nodes[0] == -17.5


def test_observed_data_are_read(tools, tmp_path):
    (tmp_path / "s.obs").write_text("2\n0 0 5 1 1\n100 300 7 1 1\n")
    done = tools("mesh", "--stations", "s.obs", "--cell", 50, "--depth", 800, "--margin", 0, "--padding-cells", 2, "--out",
                 "m.msh")
    mesh = Mesh.read(tmp_path / "m.msh")
    assert (mesh.nx, mesh.ny, mesh.nz) == (2 + 4, 6 + 4, 16 + 2)
    assert mesh.x_widths.tolist() == [84.5, 65, 50, 50, 65, 84.5]
    assert mesh.z_nodes[0] == 5
    assert "                18 cells downwards are padded to 32; with 16 the rows would be half as long\n" in done.out
    assert "\nmtx of it:      2 rows, 66 kB before compression, about 1 s on one core\n" in done.out


def test_a_file_that_lost_stations_is_noticed(tools, tmp_path):
    (tmp_path / "s.obs").write_text("5\n0 0 5 1 1\n100 300 7 1 1\n")
    done = tools("mesh", "--stations", "s.obs", "--cell", 50, "--depth", 800, "--out", "m.msh")
    assert done.status == 0
    assert done.errors == "voxlith-tools: warning: s.obs: expected 5 stations, found 2; the mesh lies below those\n"


LENGTHS = st.floats(0.0, 30.0)


@given(size=st.floats(0.1, 1000.0), west=st.floats(-1e6, 1e6), south=st.floats(-1e6, 1e6), east=LENGTHS, north=LENGTHS,
       top=st.floats(-500, 500), depth=st.floats(0.1, 20.0), shape=st.tuples(st.floats(0.5, 2.0), st.floats(0.2, 1.0)),
       layer_factor=st.one_of(st.just(1.0), st.floats(1.0, 1.3)), factor=st.one_of(st.just(1.0), st.floats(1.0, 2.0)),
       distance=st.floats(0.0, 20.0), cells=st.one_of(st.none(), st.integers(0, 5)))
def test_plans_hold_for_any_survey(tmp_path_factory, size, west, south, east, north, top, depth, shape, layer_factor,
                                   factor, distance, cells):
    """The core is covered by cells of the size asked for, widths grow outwards, and the file reads back."""
    cell = (size, size * shape[0], size * shape[1])
    padding = Padding(factor, size * distance, cells)
    plan = MeshPlan(Extent(west, west + size * east), Extent(south, south + size * north), top, size * depth, cell,
                    layer_factor, padding, padding)
    planned = plan_mesh(plan)
    mesh, slack = planned.mesh, 1e-6 * size
    path = tmp_path_factory.mktemp("mesh") / "m.msh"
    mesh.write(path)
    assert Mesh.read(path) == mesh
    assert planned.core_east.least <= plan.east.least + slack
    assert planned.core_north.most >= plan.north.most - slack
    assert planned.core_elevation.least <= top - plan.depth + slack
    assert planned.core_cells[0] == max(1, int(np.ceil(plan.east.length / size - 1e-9)))
    widths = mesh.z_widths
    assert np.all(widths >= 0.999 * cell[2]) and np.all(widths[1:] >= 0.999 * widths[:-1])
    np.testing.assert_allclose(mesh.x_widths, mesh.x_widths[::-1], rtol=1e-6)
    if cells is None:
        assert mesh.x_nodes[0] <= plan.east.least - padding.distance + slack
        assert mesh.z_nodes[-1] <= top - plan.depth - padding.distance + slack
    else:
        assert mesh.nx == planned.core_cells[0] + 2 * cells


@pytest.mark.parametrize("arguments, problem", [
    (("--cell", 0), "--cell 0: expected widths above 0"),
    (("--cell", "50,50,x"), "--cell 50,50,x: expected w, or w,h, or dx,dy,dz"),
    (("--cell", "1,2,3,4"), "--cell 1,2,3,4: expected w, or w,h, or dx,dy,dz"),
    (("--depth", -1), "--depth: expected a number above 0, found -1"),
    (("--layer-factor", 0.5), "--layer-factor: expected a number of 1 or more, found 0.5"),
    (("--extent", "5,1,0,1"), "--extent 5,1,0,1: expected west,east,south,north with west below east and south below "
                              "north"),
    (("--top", "high"), "--top high: expected an elevation, lowest or highest"),
    (("--csv", "s.csv"), "expected one of --stations, --csv and --extent, found 2"),
    (("--padding-cells", 1, "--padding-distance", 2), "--padding-distance and --padding-cells exclude each other"),
    (("--padding-cells", 100000), "the padding cells grow beyond what can be written: expected a smaller factor or fewer "
                                  "cells"),
    (("--extent", "1e17,1.00000000000001e17,0,1", "--cell", 5), "a cell of width 6.5 to the east does not move the node at "
                                                                "1.0000000000000083e+17")])
def test_what_cannot_be_a_mesh(tools, tmp_path, arguments, problem):
    options = dict(zip(CORE[::2], CORE[1::2])) | dict(zip(arguments[::2], arguments[1::2]))
    words = [word for pair in options.items() for word in pair]
    assert one_line(tools("mesh", *words, "--out", "m.msh"), 2) == problem
    assert not (tmp_path / "m.msh").exists()


@pytest.mark.parametrize("arguments", [("--cell", "1e-6"), ("--cell", "1e-300"), ("--depth", 1e300),
                                       ("--padding-cells", 2**31 - 1, "--padding-factor", 1),
                                       ("--padding-factor", 1.00001, "--padding-distance", 1e12),
                                       ("--layer-factor", 1.00001, "--depth", 1e12), ("--cell", 0.1)])
def test_sizes_out_of_proportion_are_seen_before_memory_is_taken(tools, arguments):
    options = dict(zip(CORE[::2], CORE[1::2])) | dict(zip(arguments[::2], arguments[1::2]))
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    error = one_line(tools("mesh", *[word for pair in options.items() for word in pair], "--out", "m.msh"), 2)
    assert error.startswith("the mesh would have too many cells, ")
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 20 * 1024


def test_a_wrong_coordinate_is_named(tools, tmp_path):
    rows = [f"{450000 + 50 * n},{5300000 + 10 * (n % 3)},10" for n in range(20)]
    rows[7] = "45000035,5300010,10"
    (tmp_path / "s.csv").write_text("x,y,z\n" + "\n".join(rows) + "\n")
    options = ("mesh", "--csv", "s.csv", "--depth", 100, "--out", "m.msh")
    text = "s.csv, line 9: the station at x 45000035, y 5300010 is far from all others"
    assert one_line(tools(*options, "--cell", 5), 2).endswith("; " + text)
    done = tools(*options, "--cell", 500)
    assert done.status == 0 and done.errors == (
        f"voxlith-tools: warning: {text}; a wrong coordinate makes the mesh too large\n")


def test_stations_that_are_none(tools, tmp_path):
    (tmp_path / "s.csv").write_text("x,y,z\n")
    assert one_line(tools("mesh", "--csv", "s.csv", "--cell", 5, "--depth", 5, "--out", "m.msh")) == (
        "s.csv, line 2: expected a station, found the end of the file")
    (tmp_path / "s.obs").write_text("1\n1 2 / 3\n")
    assert one_line(tools("mesh", "--stations", "s.obs", "--cell", 5, "--depth", 5, "--out", "m.msh")) == (
        "s.obs, line 2: expected x, y and elevation of a station")


def test_too_many_cells_is_a_usage_error():
    with pytest.raises(UsageError, match="10000 x 10000 x 10000: expected at most 268435455 in all"):
        plan_mesh(MeshPlan(Extent(0, 1e4), Extent(0, 1e4), 0.0, 1e4, (1.0, 1.0, 1.0)))


def test_relief_without_terrain_and_cells_that_are_too_large(tools, tmp_path):
    x, y = (a.ravel() * 50.0 for a in np.meshgrid(np.arange(20.0), np.arange(20.0)))
    Survey(x, y, 400.0 + 0.15 * x, [0.0 * x], (0,), [0.0 * x + 0.01]).write(tmp_path / "hill.obs")
    Survey(x, y, 400.0 + 0.01 * x, [0.0 * x], (0,), [0.0 * x + 0.01]).write(tmp_path / "flat.obs")
    words = ("mesh", "--depth", 400, "--out", "m.msh")
    assert "differ by 142.5 m" in tools(*words, "--stations", "hill.obs", "--cell", 50).errors
    assert tools(*words, "--stations", "flat.obs", "--cell", 50).errors == ""
    assert "shows no body" in tools(*words, "--stations", "flat.obs", "--cell", 500).errors
