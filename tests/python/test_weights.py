"""Weights of the model norm: their decay, padding, inactive cells, and the depth of a body that they recover."""

from __future__ import annotations

import numpy as np
import pytest

from voxlith import Mesh, UsageError, write_sensitivity
from voxlith.io.weight_file import read_weight_files, write_weight_file
from voxlith.survey import Survey
from voxlith.weights import DECAY, POWER_LAW_DECAY, power_law_weights, read_cell_sensitivity, sensitivity_weights

CELL = 60.0


def survey(power: int) -> Survey:
    x, y = (a.ravel() for a in np.meshgrid(np.arange(12) * 80.0, np.arange(12) * 80.0))
    return Survey(x, y, np.full(144, 2.0), np.zeros((1, 144)), (0 if power == 3 else 12,))


def padded_mesh() -> Mesh:
    sides = [150.0, 100.0, *(16 * [CELL]), 100.0, 150.0]
    return Mesh.from_widths((-290.0, -290.0, 0.0), sides, sides, [*(10 * [CELL]), 90.0, 130.0])


def kernel(stations: Survey, mesh: Mesh, power: int) -> np.ndarray:
    """Response of point masses: z/r^3 like gravity (power 3), or (2 z^2 - h^2)/r^5 like its gradient (power 5)."""
    places = np.column_stack([stations.x, stations.y, stations.elevation])
    offset = places[:, None, :] - mesh.centres()[None, :, :]
    distance = np.linalg.norm(offset, axis=2)
    z = offset[:, :, 2]
    rows = z / distance**3 if power == 3 else (3.0 * z**2 - distance**2) / distance**5
    return 1.0e-4 * rows * mesh.volumes()


def relative(rows: np.ndarray, mesh: Mesh) -> np.ndarray:
    return np.sqrt((rows**2).sum(axis=0)) / mesh.volumes()


@pytest.mark.parametrize("power", [3, 5])
def test_weights_of_the_core_fall_like_the_power_of_the_depth(power):
    mesh, stations = padded_mesh(), survey(power)
    made = sensitivity_weights(mesh, relative(kernel(stations, mesh, power), mesh))
    inner = made.cells.smallness[:7, 8:12, 8:12].mean(axis=(1, 2))
    slope = np.polyfit(np.log(-mesh.z_centres[:7]), np.log(inner), 1)[0]
    assert slope == pytest.approx(-DECAY, rel=0.25)
    # The sensitivity of a gradient falls faster, so that a smaller power of it does.
    assert (0.9 < made.power < 1.8) if power == 3 else (0.5 < made.power < 0.9)


def test_padding_cells_are_not_cheap():
    mesh, stations = padded_mesh(), survey(3)
    weights = sensitivity_weights(mesh, relative(kernel(stations, mesh, 3), mesh)).cells.smallness
    sensitivity = relative(kernel(stations, mesh, 3), mesh)
    raw = mesh.cube((sensitivity / sensitivity.max()) ** DECAY)
    assert weights[5, 0, 10] / raw[5, 0, 10] > 2.0 * weights[5, 8, 10] / raw[5, 8, 10]


@pytest.mark.parametrize("power", [3, 5])
def test_depth_of_a_body(power):
    """Smooth models of least weighted norm, at the noise level: the body is at its depth, without weights near the top."""
    mesh, stations = padded_mesh(), survey(power)
    rows = kernel(stations, mesh, power)
    x, y, z = mesh.centres().T
    true = (abs(x - 440) < 130) & (abs(y - 440) < 130) & (abs(z + 210) < 90)
    data = rows @ (0.5 * true)
    deviation = 0.01 * abs(data).max()
    data += np.random.default_rng(3).normal(0.0, deviation, data.shape)
    made = sensitivity_weights(mesh, relative(rows, mesh))
    depths = {}
    for name, weights in (("weighted", made.cells), ("none", None)):
        model = _smooth_model(mesh, rows / deviation, data / deviation, weights)
        inside = model > 0.5 * model.max()
        mass = (model * mesh.volumes())[inside]
        depths[name] = -float((z[inside] * mass).sum() / mass.sum())
    assert depths["weighted"] == pytest.approx(210.0, rel=0.3)
    assert depths["none"] < 0.6 * 210.0


def _smooth_model(mesh, rows, data, weights):
    """Least norm at an RMS misfit of 1, without bounds."""
    from scipy.sparse import coo_matrix, diags
    from scipy.sparse.linalg import splu
    volumes = mesh.volumes()
    index = np.arange(mesh.n_cells).reshape(mesh.shape, order="F")
    ones = np.ones(mesh.shape)
    sections = (ones, ones[:, 1:], ones[:, :, 1:], ones[1:]) if weights is None else weights.sections()
    norm = diags(volumes * sections[0].ravel(order="F") * (2.5 / CELL**2 if weights is None else 1.0e-8))
    for axis, section, centres in ((1, sections[1], mesh.x_centres), (2, sections[2], mesh.y_centres),
                                   (0, sections[3], mesh.z_centres)):
        count = mesh.shape[axis]
        a, b = (index.take(cells, axis).ravel() for cells in (range(count - 1), range(1, count)))
        shape = [1, 1, 1]
        shape[axis] = count - 1
        step = np.broadcast_to(np.diff(centres).reshape(shape), section.shape).ravel()
        each = np.arange(len(a))
        difference = coo_matrix((np.r_[1.0 / step, -1.0 / step], (np.r_[each, each], np.r_[a, b])),
                                shape=(len(a), mesh.n_cells))
        norm = norm + difference.T @ diags(volumes[a] * section.ravel()) @ difference
    solved = splu(norm.tocsc()).solve(rows.T.copy())
    values, vectors = np.linalg.eigh(rows @ solved)
    turned = vectors.T @ data
    low, high = -30.0, 30.0
    for _ in range(60):
        middle = 0.5 * (low + high)
        misfit = np.sqrt(np.mean((turned * 10.0**middle / (np.maximum(values, 0.0) + 10.0**middle)) ** 2))
        low, high = (middle, high) if misfit < 1.0 else (low, middle)
    return solved @ (vectors @ (turned / (np.maximum(values, 0.0) + 10.0**low)))


def test_inactive_cells():
    mesh, stations = padded_mesh(), survey(3)
    sensitivity = mesh.cube(relative(kernel(stations, mesh, 3), mesh)).copy()
    sensitivity[:2, :10] = 0.0
    made = sensitivity_weights(mesh, mesh.flat(sensitivity))
    assert not made.active[:2, :10].any() and made.active.sum() == mesh.n_cells - 2 * 10 * mesh.ny
    assert (made.cells.z_difference[1, :10] == 0.0).all() and (made.cells.z_difference[1, 10:] > 0.0).all()
    assert (made.cells.x_difference[:2, 9] == 0.0).all() and (made.cells.x_difference[2:, 9] > 0.0).all()
    law = power_law_weights(mesh, mesh.flat(made.active))
    below = law.cells.smallness[2, 4, 4] / law.cells.smallness[2, 15, 4]
    assert below == pytest.approx((2.0 / 6.0) ** -POWER_LAW_DECAY * (mesh.x_widths[4] / mesh.x_widths[15]) ** 2)


def test_sensitivities_of_files(tmp_path):
    mesh, stations = padded_mesh(), survey(3).select(np.arange(0, 144, 6))
    rows = kernel(stations, mesh, 3)
    for name, scale in (("a.mtx", 1.0), ("b.mtx", 1000.0)):
        write_sensitivity(tmp_path / name, iter(scale * rows), mesh, stations, tolerance=1.0e-5)
    _, found, one = read_cell_sensitivity([tmp_path / "a.mtx"])
    expected = relative(rows, mesh)
    assert np.allclose(one, expected / expected.max(), rtol=1.0e-3, atol=1.0e-5) and found.shape == mesh.shape
    _, _, both = read_cell_sensitivity([tmp_path / "a.mtx", tmp_path / "b.mtx"])
    assert np.allclose(both, np.sqrt(2.0) * one, rtol=1.0e-4)
    made = sensitivity_weights(mesh, one)
    write_weight_file(tmp_path / "w.txt", made.cells)
    again = read_weight_files([tmp_path / "w.txt"], mesh.nx, mesh.ny, mesh.nz)
    assert all(np.array_equal(a, b) for a, b in zip(again.sections(), made.cells.sections()))


def test_refusals():
    mesh = padded_mesh()
    with pytest.raises(UsageError, match="do not fall with depth"):
        sensitivity_weights(mesh, np.ones(mesh.n_cells))
    with pytest.raises(UsageError, match="z0 above 0"):
        power_law_weights(mesh, z0=0.0)
    flat = Mesh.from_widths((0.0, 0.0, 0.0), 4 * [10.0], 4 * [10.0], [10.0])
    with pytest.raises(UsageError, match="two active layers"):
        sensitivity_weights(flat, np.arange(1.0, 17.0))
