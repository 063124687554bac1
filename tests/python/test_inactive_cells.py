"""A forgotten terrain: air cells that would be part of the model are found by ``mtx``, ``check`` and ``init``."""

from __future__ import annotations

import numpy as np
import pytest
from conftest import one_line

from voxlith import Mesh, Survey
from voxlith.checks.inactive import check_ground

LAYER, TOP = 50.0, 400.0
NAMES = [f"S{number}" for number in range(1, 101)]


def height(x, y):
    return 300.0 + 100.0 * np.exp(-((x - 450.0) ** 2 + (y - 450.0) ** 2) / 2.0 / 200.0**2)


@pytest.fixture
def hill(tools, tmp_path):
    """Gravity and its gradient on a hill, and a mesh whose top lies above it; sensitivities with and without the terrain."""
    x, y = (a.ravel() for a in np.meshgrid(np.arange(10) * 100.0, np.arange(10) * 100.0))
    field = 2.0 / (1.0 + ((x - 450.0) ** 2 + (y - 450.0) ** 2) / 200.0**2) ** 1.5
    for kind, code, data in (("gz", 0, field), ("gzz", 12, 30.0 * field)):
        Survey(x, y, height(x, y) + 1.0, [data], (code,), [0.02 * data.max() + 0.0 * data]).write(tmp_path / f"{kind}.obs")
    Survey(x, y, height(x, y) + 1.0, [field, 30.0 * field], (0, 12), [0.04 + 0.0 * x, 1.2 + 0.0 * x]).write(tmp_path / "d.obs")
    points = [f"{a},{b},{height(a, b)}" for a in np.arange(-500.0, 1500.0, 50.0) for b in np.arange(-500.0, 1500.0, 50.0)]
    (tmp_path / "dem.csv").write_text("x,y,z\n" + "\n".join(points) + "\n")
    Mesh.from_widths((-300.0, -300.0, TOP), 15 * [100.0], 15 * [100.0], 12 * [LAYER]).write(tmp_path / "m.msh")
    for name, kind, more in (("gz", "gz", ("--topography", "dem.csv")), ("gzz", "gzz", ("--topography", "dem.csv")),
                             ("gz_air", "gz", ()), ("gzz_air", "gzz", ())):
        assert tools("mtx", "--mesh", "m.msh", "--stations", f"{kind}.obs", "--type", kind, "--depth-weight", "100,2", *more,
                     "--out", f"{name}.mtx").status == 0


def test_a_forgotten_terrain_is_found(hill, tools, tmp_path):
    checked = tools("check", "gz.obs", "--mtx", "gz_air.mtx")
    assert "warning  in-active-cells" in checked.out and "give the terrain with --topography" in checked.out
    made = tools("init", "--data", "gz.obs", "--mtx", "gz_air.mtx")
    assert made.status == 0 and "more than one cell below the top of the active cells" in made.errors
    assert "in-active-cells" not in tools("check", "gz.obs", "--mtx", "gz.mtx").out
    assert "active cells" not in tools("init", "--data", "gz.obs", "--mtx", "gz.mtx", "--force").errors


def test_a_mesh_below_the_hill_is_found(hill, tools, tmp_path):
    """Its top at the lowest station: no cell is in the air, but the hill is missing."""
    assert tools("mesh", "--stations", "gz.obs", "--cell", "50,25", "--depth", "500", "--out", "low.msh").status == 0
    checked = tools("check", "gz.obs", "--mesh", "low.msh", "--topography", "dem.csv")
    assert "warning  ground-above-mesh" in checked.out
    assert "ground-above-mesh" not in tools("check", "gz.obs", "--mesh", "m.msh", "--topography", "dem.csv").out
    assert tools("mtx", "--mesh", "low.msh", "--stations", "gz.obs", "--type", "gz", "--out", "low.mtx").status == 0
    assert "warning  relief" in tools("check", "gz.obs", "--mtx", "low.mtx").out
    assert "it follows no terrain" in tools("init", "--data", "gz.obs", "--mtx", "low.mtx").errors


@pytest.mark.parametrize("files", [("gz.mtx", "gzz_air.mtx"), ("gz_air.mtx", "gzz.mtx")])
def test_a_terrain_in_one_of_two_files_is_refused(hill, tools, tmp_path, files):
    assert "inactive cells above the terrain" in one_line(tools("init", "--data", "d.obs", "--mtx", *files))
    stacked = tools("stack", "--properties", "upper", "lower", "--out", "two", "--rows", "gz.obs", files[0], "-",
                    "--rows", "gzz.obs", "-", files[1])
    assert "inactive cells above the terrain" in one_line(stacked)
    assert not (tmp_path / "voxlith.inp").exists()
    assert tools("init", "--data", "d.obs", "--mtx", "gz.mtx", "gzz.mtx").status == 0
    text = (tmp_path / "voxlith.inp").read_text()
    (tmp_path / "voxlith.inp").write_text(text.replace("gz.mtx | gzz.mtx", " | ".join(files)))
    checked = tools("check", "d.obs", "--type", "gz", "gzz", "--control", "voxlith.inp")
    assert checked.status == 1 and "error    sensitivity-files" in checked.out


@pytest.mark.parametrize("line, old, new, words", [
    (8, "voxlith_bounds.txt", "0,1", "inactive cells"), (8, "voxlith_bounds.txt", "null", "free"),
    (6, "voxlith_start.mod", "0.001", "the initial model on line 6")])
def test_a_control_file_that_forgets_them(hill, tools, tmp_path, line, old, new, words):
    assert tools("init", "--data", "gz.obs", "--mtx", "gz.mtx", "--sign", "positive").status == 0
    assert "inactive-cells" not in tools("check", "gz.obs", "--control", "voxlith.inp").out
    lines = (tmp_path / "voxlith.inp").read_text().splitlines()
    assert lines[line - 1].startswith(old)
    lines[line - 1] = lines[line - 1].replace(old, new)
    (tmp_path / "voxlith.inp").write_text("\n".join(lines) + "\n")
    checked = tools("check", "gz.obs", "--control", "voxlith.inp")
    assert checked.status == 1 and "error    inactive-cells" in checked.out and words in checked.out


def test_boreholes_and_flat_ground_raise_no_alarm():
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 10 * [100.0], 10 * [100.0], 10 * [50.0])
    active = np.zeros(mesh.n_cells, dtype=bool)
    hole = np.column_stack([500.0 + 0.3 * np.arange(20), 0.0 * np.arange(20) + 500.0, -20.0 * np.arange(1.0, 21.0)])
    x, y = (a.ravel() for a in np.meshgrid(np.arange(5) * 100.0 + 300.0, np.arange(5) * 100.0 + 300.0))
    ground = np.column_stack([x, y, 0.0 * x + 2.0])
    assert check_ground(hole, mesh, active, NAMES) == check_ground(ground, mesh, active, NAMES) == []
    assert check_ground(np.vstack([hole, ground]), mesh, active, NAMES) == check_ground(None, mesh, active, NAMES) == []
    buried = ground - [0.0, 0.0, 80.0]
    assert [finding.name for finding in check_ground(buried, mesh, active, NAMES)] == ["in-active-cells"]
