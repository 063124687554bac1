"""Pictures of magnetisation vectors: what they show, and voxlith-plot on a stacked run."""

from __future__ import annotations

import os
import subprocess

import numpy as np
import pytest
from conftest import BUILD
from matplotlib.quiver import Quiver

from voxlith import Direction, InducingField, Mesh, Survey, UsageError, plot
from voxlith.plot.vectors import _projected
from voxlith.vectors import VectorModel, unit_vector

FIELD = Direction(65.0, 10.0)


@pytest.fixture
def vector():
    """A body of 3 x 3 x 2 cells whose magnetisation points at -20 / 200, and weak cells around it."""
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 12 * [50.0], 10 * [50.0], 8 * [25.0])
    cells = mesh.centres()
    body = (np.abs(cells[:, 0] - 275) < 60) & (np.abs(cells[:, 1] - 225) < 60) & (cells[:, 2] < -50) & (cells[:, 2] > -100)
    amplitude = np.where(body, 0.05, 0.001)
    east, north, down = (amplitude * one for one in unit_vector(Direction(-20.0, 200.0)))
    return VectorModel(mesh, east, north, down, 50000.0)


def test_arrows_point_along_the_vectors(vector):
    survey = Survey(*(a.ravel() for a in np.meshgrid(np.linspace(25, 575, 8), np.linspace(25, 475, 8))), np.full(64, 5.0), np.zeros((1, 64)), (1,))
    figure = plot.vector_sections(vector, survey=survey, field=FIELD)
    arrows = [child for panel in figure.axes for child in panel.get_children() if isinstance(child, Quiver)]
    assert [arrow.N for arrow in arrows] == [9, 6, 6]
    east, north, down = unit_vector(Direction(-20.0, 200.0))
    for arrow, expected in zip(arrows, ((east, north), (east, -down), (north, -down))):
        # Easting, northing, elevation upwards; one scale in all panels.
        assert np.arctan2(arrow.V, arrow.U) == pytest.approx(np.arctan2(expected[1], expected[0]))
        assert np.hypot(arrow.U, arrow.V) / np.hypot(*expected) == pytest.approx(np.hypot(arrows[0].U[0], arrows[0].V[0]) / np.hypot(east, north))
    titles = [panel.get_title() for panel in figure.axes]
    assert titles[:3] == ["Elevation -100 to -75 m", "Section at y 150 to 200 m", "Section at x 200 to 250 m"]


def test_stereonet_shows_the_cells_of_the_body(vector):
    figure = plot.stereonet(vector, field=FIELD, expected=Direction(-20.0, 200.0))
    filled, opened = figure.axes[0].collections
    assert len(filled.get_offsets()) == 0 and len(opened.get_offsets()) == 18
    x, y = _projected([-20.0], [200.0])
    np.testing.assert_allclose(np.asarray(opened.get_offsets()), np.tile([x[0], y[0]], (18, 1)), atol=1e-12)
    text = " ".join(one.get_text() for one in figure.legends[0].get_texts())
    assert "Summed moment\n-20° / 200°" in text and "65° / 10°" in text


def test_the_net_has_equal_areas():
    """Rings of equal solid angle have equal areas; the horizon has the radius 1."""
    steps = np.linspace(0.0, 1.0, 6)
    radius = np.hypot(*_projected(np.degrees(np.arcsin(1.0 - steps)), np.zeros(6)))
    assert np.diff(radius**2) == pytest.approx(0.2) and radius[-1] == pytest.approx(1.0)


def test_vectors_of_zero_are_refused(vector):
    nothing = VectorModel(vector.mesh, *np.zeros((3, vector.mesh.n_cells)), 50000.0)
    for draw in (plot.vector_sections, plot.stereonet):
        with pytest.raises(UsageError, match="amplitudes above 0"):
            draw(nothing)


def test_voxlith_plot_on_a_stacked_run(tools, tmp_path, capsys):
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 5 * [50.0], 6 * [50.0], 4 * [40.0])
    mesh.write("m.msh")
    x, y = (a.ravel() for a in np.meshgrid(np.linspace(25, 225, 5), np.linspace(25, 275, 5)))
    rng = np.random.default_rng(1)
    field = InducingField(65.0, 10.0, 50000.0)
    for kind, code in (("tmi", 1), ("gz", 0)):
        Survey(x, y, np.full(25, 10.0), rng.normal(size=(1, 25)), (code,), np.full((1, 25), 0.3), field=field if code else None).write(f"{kind}.obs")
    for name, *words in (("x", "tmi", "--magnetisation", "x"), ("z", "tmi", "--magnetisation", "z"), ("gz", "gz")):
        assert tools("mtx", "--mesh", "m.msh", "--stations", f"{words[0]}.obs", "--type", *words, "--out", f"{name}.mtx").status == 0
    assert tools("stack", "--properties", "mx", "mz", "density", "--rows", "tmi.obs", "x.mtx", "z.mtx", "-", "--rows", "gz.obs", "-", "-", "gz.mtx",
                 "--scale", "1", "1", "10", "--out", "mixed").status == 0
    done = subprocess.run([BUILD / "voxlith", "mixed.inp"], capture_output=True, timeout=60)
    assert done.returncode == 0
    from voxlith.cli.plot import main
    (tmp_path / "ground.csv").write_text("x,y,z\n" + "".join(f"{x},{y},{x / 10}\n" for x in (0, 250) for y in (0, 300)))
    capsys.readouterr()
    assert main([".", "--control", "mixed.inp", "--dpi", "40", "--topography", "ground.csv"]) == 0
    assert "area needed" not in capsys.readouterr().err  # it covers the mesh of each property
    assert sorted(os.listdir("plots")) == sorted(f"{name}.png" for name in (
        "convergence", "data_TMI", "data_Gz", "sections_mx", "sections_mz", "sections_density", "vectors", "stereonet", "zscores_TMI", "zscores_Gz"))


def test_other_runs_have_no_vectors(tmp_path, capsys):
    (tmp_path / "voxlith.inp").write_text("0\n2 0 0\n0.01 0.02 0\ndata.obs\ndata.mtx\n0.0\n0.0\nnull\n1 1 1 1\nnull\nnull\n5 0\n")
    from voxlith.cli.plot import main
    assert main([str(tmp_path), "--only", "stereonet"]) == 1
    assert "holds no run of a magnetisation vector" in capsys.readouterr().err
