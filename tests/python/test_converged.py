"""Converged runs against independent computation: SciPy's minimiser, several starts, and reasons for targets out of reach."""

from __future__ import annotations

import re
import subprocess

import numpy as np
import pytest
from conftest import BUILD
from objective import Objective

from voxlith import Direction, InducingField, Mesh, Model, Run, Survey
from voxlith.codes import data_type_code
from voxlith.plot import convergence

CONTROL = """0
2 0 0
%g 0.02 0
d.obs
gz.mtx
%s
0.0
%s
1 1 1 1
weights.txt
null
30
"""


def converge(folder, *options):
    done = subprocess.run([BUILD / "voxlith-run", "voxlith.inp", *options], cwd=folder, capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, done.stderr
    assert ("not reached" in done.stdout) == ("was not reached" in done.stderr), "the last word of a run that misses its target"
    return done.stdout


@pytest.fixture
def gravity(tools, tmp_path):
    """A block below 64 stations, with depth weights of the norm."""
    x, y = (a.ravel() for a in np.meshgrid(np.linspace(50.0, 950.0, 8), np.linspace(50.0, 950.0, 8)))
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 10 * [100.0], 10 * [100.0], [50.0, 50.0, 100.0, 100.0, 200.0])
    mesh.write(tmp_path / "mesh.msh")
    cx, cy, cz = mesh.centres().T
    Model(mesh, np.where((abs(cx - 500) < 160) & (abs(cy - 400) < 160) & (cz < -50) & (cz > -300), 0.4, 0.0)).write(tmp_path / "true.mod")
    Survey(x, y, np.full(64, 5.0), np.zeros((1, 64)), (0,)).write(tmp_path / "s.obs")
    for words in (("predict", "--stations", "s.obs", "--model", "true.mod", "--noise", "1,0.01", "--out", "d.obs", "--mesh", "mesh.msh",
                   "--type", "gz"),
                  ("mtx", "--stations", "d.obs", "--mesh", "mesh.msh", "--type", "gz", "--out", "gz.mtx", "--depth-weight", "50,2"),
                  ("weights", "--mtx", "gz.mtx", "--out", "weights.txt")):
        done = tools(*words)
        assert done.status == 0, done.errors

    def control(tradeoff, start="0.001", bounds="0,0.15"):
        (tmp_path / "voxlith.inp").write_text(CONTROL % (tradeoff, start, bounds))
    control(3.0)
    return control


def test_minimiser_of_scipy(gravity, tmp_path):
    from scipy.optimize import minimize
    converge(tmp_path, "--until-converged", "1e-13")
    found = np.loadtxt(tmp_path / "voxlith.den")
    peer = Objective.of(tmp_path, "d.obs", 3.0)
    # Scaled by the diagonal, so that the minimiser of SciPy gets there.
    scale = 1.0 / np.sqrt(np.sum(peer.matrix ** 2, axis=0) / len(peer.data) + 3.0 * peer.smallness.ravel() / peer.depth_weight ** 2)

    def scaled(z):
        value, gradient = peer.value_and_gradient(z * scale)
        return value, gradient * scale
    limits = [(0.0, 0.15 * w / s) for w, s in zip(peer.depth_weight, scale)]
    done = minimize(scaled, np.zeros(len(scale)), jac=True, method="L-BFGS-B", bounds=limits,
                    options={"maxiter": 100000, "maxfun": 200000, "maxcor": 50, "ftol": 0.0, "gtol": 1e-11})
    expected = done.x * scale / peer.depth_weight
    assert np.count_nonzero(expected >= 0.15 * (1.0 - 1e-9)) > 3 and np.count_nonzero(expected <= 1e-12) > 30
    np.testing.assert_allclose(found, expected, atol=1e-6)
    log = (tmp_path / "voxlith.aux").read_text().splitlines()
    assert float(log[-1].split()[3]) ** 2 == pytest.approx(done.fun, rel=1e-4)


def test_bounds_as_the_reason(gravity, tmp_path):
    gravity(3.0, bounds="0,0.01")
    text = converge(tmp_path, "--target-rms")
    assert re.search(r"not reached, the best is \d", text) and "Reason: the bounds." in text


def test_cells_too_coarse_as_the_reason(gravity, tmp_path):
    survey = Survey.read(tmp_path / "d.obs", ["gz"])
    noise = np.random.default_rng(1).normal(0.0, 0.2, survey.data.shape)
    noisy = survey.with_data(survey.data + noise)
    x, y, z = (np.concatenate([a, a]) for a in (noisy.x, noisy.y, noisy.elevation))
    # Each station twice, with data that no model can explain both.
    Survey(x, y, z, np.concatenate([noisy.data, noisy.data + 0.2], axis=1), (0,),
           np.concatenate([noisy.uncertainty, noisy.uncertainty], axis=1)).write(tmp_path / "d.obs")
    assert subprocess.run([BUILD / "tools" / "voxlith-tools", "mtx", "--stations", "d.obs", "--mesh", "mesh.msh", "--type", "gz",
                           "--out", "gz.mtx"], cwd=tmp_path, capture_output=True).returncode == 0
    gravity(3.0, bounds="-9,9")
    text = converge(tmp_path, "--target-rms")
    assert "Reason: the cells are too coarse" in text and "Reason: the bounds" not in text


def test_terms_of_a_search_add_up_to_the_total_in_the_picture(gravity, tmp_path):
    """Each iteration has its own trade-off, not that of the control file."""
    gravity(0.01, start="0.0", bounds="-1,1")
    converge(tmp_path, "--target-rms", "1")
    run = Run(tmp_path)
    assert run.tradeoffs is not None and run.tradeoffs.iteration[-1] == run.table[-1].iteration
    figure = convergence(run)
    terms = {line.get_label(): dict(zip(line.get_xdata(), line.get_ydata())) for line in figure.axes[3].lines}
    for row in run.table[1:]:
        total = sum(values.get(row.iteration, 0.0) for values in terms.values())
        assert total == pytest.approx(row.total ** 2, rel=2e-3)


def test_small_standard_deviations_with_positivity(tools, tmp_path):
    """Magnetic data with errors of 1 %: many cells meet their bounds early on the way of a step."""
    x, y = (a.ravel() for a in np.meshgrid(np.arange(9) * 100.0, np.arange(9) * 100.0))
    mesh = Mesh.from_widths((-400.0, -400.0, 0.0), 16 * [100.0], 16 * [100.0], 8 * [50.0])
    mesh.write(tmp_path / "mesh.msh")
    cx, cy, cz = mesh.centres().T
    Model(mesh, np.where((abs(cx - 400) < 150) & (abs(cy - 400) < 150) & (cz < -100) & (cz > -250), 0.05, 0.0)).write(tmp_path / "true.mod")
    Survey(x, y, np.full(81, 30.0), np.zeros((1, 81)), (data_type_code("tmi"),), field=InducingField(60.0, 5.0, 50000.0),
           direction=Direction(60.0, 5.0)).write(tmp_path / "s.obs")
    for words in (("predict", "--stations", "s.obs", "--model", "true.mod", "--noise", "1,0.1", "--out", "d.obs", "--mesh", "mesh.msh",
                   "--type", "tmi"),
                  ("mtx", "--stations", "d.obs", "--mesh", "mesh.msh", "--type", "tmi", "--out", "d.mtx"),
                  ("init", "--data", "d.obs", "--mtx", "d.mtx")):
        done = tools(*words)
        assert done.status == 0, done.errors
    log = converge(tmp_path, "--target-rms", "1")
    assert "Target RMS misfit 1: reached" in log
    share = re.search(r"at most ([0-9.e+-]+) % above its minimum", log)
    assert share and float(share[1]) < 1.0
    assert len((tmp_path / "voxlith.aux").read_text().splitlines()) < 60
