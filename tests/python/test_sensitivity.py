"""Sensitivity files of any matrix, against the writer of the tools; and their products."""

import subprocess
import tempfile
from functools import lru_cache
from pathlib import Path

import numpy as np
import pytest
from conftest import BUILD, DIRECTION, FIELD, Bench, block_mesh, lay_survey, stations
from scipy import sparse

from voxlith import DepthWeight, FileError, Mesh, Model, Run, Sensitivity, Survey, UsageError, write_sensitivity
from voxlith.depth_weight import cell_depth_weights, default_depth_weight
from voxlith.io.bounds_file import read_bounds_file
from voxlith.layers import plan_layers

MESH = Mesh.from_widths((1000.3, 2000.7, 121.1), [100, 90, 80.5, 110, 100, 130.25, 100], [100, 95, 105, 100, 140],
                        [20, 30, 40, 45.5, 60, 80])
NAMES = {0: "gz", 1: "tmi", 10: "gxx", 11: "gyy", 12: "gzz", 13: "gxy", 14: "gxz", 15: "gyz", 20: "tx", 21: "ty",
         22: "tz"}


def survey(code, mesh=MESH):
    """Stations above the mesh, the first two over an edge and a corner of its cells."""
    rng = np.random.default_rng(1)
    count = 11
    x, y = rng.uniform(950, 1700, count).round(2), rng.uniform(1950, 2600, count).round(2)
    x[:2], y[:2] = mesh.x_nodes[2], (mesh.y_nodes[1], 2123.0)
    magnetic = code == 1 or code >= 20
    return Survey(x, y, rng.uniform(122, 150, count).round(2), np.zeros((1, count)), (code,),
                  field=FIELD if magnetic else None, direction=DIRECTION if magnetic else None)


@lru_cache
def matrix(code):
    """Responses of the cells, as the writer of the tools gets them: the internal option --responses writes them."""
    with tempfile.TemporaryDirectory() as folder:
        mesh, data = Path(folder) / "mesh.msh", Path(folder) / "s.obs"
        MESH.write(mesh)
        survey(code).write(data)
        done = subprocess.run([BUILD / "tools" / "voxlith-forward", "mtx", "--mesh", mesh, "--stations", data, "--type",
                               NAMES[code], "--out", "none", "--responses"], stdout=subprocess.PIPE, check=True, timeout=60)
    rows = np.frombuffer(done.stdout).reshape(-1, MESH.n_cells)
    rows.flags.writeable = False
    return rows


def tool_file(bench, code, *options):
    MESH.write(bench.path("mesh.msh"))
    survey(code).write(bench.path("s.obs"))
    bench.tools("mtx", "--mesh", "mesh.msh", "--stations", "s.obs", "--type", NAMES[code], "--out", "tool.mtx",
                *options)
    return bench.path("tool.mtx").read_bytes()


CASES = [(code, (), {}) for code in NAMES] + [
    (0, ("--taps", 6), {"taps": 6}), (1, ("--taps", 8, "--tolerance", 0.001), {"taps": 8, "tolerance": 0.001}),
    (0, ("--tolerance", 0), {"tolerance": 0.0}), (12, ("--tolerance", 0.4), {"tolerance": 0.4}),
    (0, ("--form", "bare"), {"form": "bare"}), (0, ("--form", "record"), {"form": "record"}),
    (1, ("--version", 0), {"version": 0}), (1, ("--version", 1), {"version": 1}),
    (0, ("--depth-weight", "none"), {"depth_weight": DepthWeight()}),
    (0, ("--depth-weight", "33.3,2.7"), {"depth_weight": DepthWeight(33.3, 2.7)}),
    *((0, ("--style", style), {"style": style}) for style in (1, 2, 3, 4)),
    (0, ("--layers", 4), {"layers": 4}), (10, ("--layers", 2, "--style", 2), {"layers": 2, "style": 2})]


@pytest.mark.parametrize("code, options, arguments", CASES)
def test_the_same_rows_give_the_same_bytes(bench: Bench, code, options, arguments):
    wanted = tool_file(bench, code, *options)
    statistics = write_sensitivity(bench.path("own.mtx"), matrix(code), MESH, survey(code), **arguments)
    assert bench.path("own.mtx").read_bytes() == wanted
    assert statistics.rows == 11
    assert statistics.mean_loss <= statistics.largest_loss <= arguments.get("tolerance", 0.01)


def test_the_same_bytes_with_topography(bench: Bench):
    height = 85.0
    bench.write("hill.topo", f"4\n0 0 {height}\n9000 0 {height}\n0 9000 {height}\n9000 9000 {height}\n")
    for form, style in (("tagged", 0), ("record", None)):
        wanted = tool_file(bench, 0, "--topography", "hill.topo", "--form", form)
        data, counts = survey(0), MESH.inactive_counts(height)
        assert counts.min() == counts.max() == 2
        write_sensitivity(bench.path("own.mtx"), matrix(0), MESH, data, inactive=counts, height=data.elevation - height,
                          form=form, style=style)
        assert bench.path("own.mtx").read_bytes() == wanted
        bounds = read_bounds_file(bench.path("tool_bounds.txt"), MESH.n_cells)
        np.testing.assert_array_equal((bounds == 0).all(axis=1), ~MESH.active_cells(height))


@pytest.mark.parametrize("form", ["tagged", "record"])
def test_the_same_bytes_on_a_slope(bench: Bench, form):
    bench.write("hill.topo", "4\n0 0 121\n9000 0 -180\n0 9000 10\n9000 9000 -320\n")
    wanted = tool_file(bench, 0, "--topography", "hill.topo", "--depth-weight", "30,2", "--form", form)
    bounds = read_bounds_file(bench.path("tool_bounds.txt"), MESH.n_cells)
    counts = MESH.cube((bounds == 0).all(axis=1)).sum(axis=0)
    assert len(np.unique(counts)) > 1
    write_sensitivity(bench.path("own.mtx"), matrix(0), MESH, survey(0), inactive=counts, form=form,
                      depth_weight=DepthWeight(30.0, 2.0))
    assert bench.path("own.mtx").read_bytes() == wanted


def test_dense_sparse_and_row_by_row_matrices_are_the_same(tmp_path):
    rows, data = matrix(0), survey(0)
    orders = [rows, sparse.csr_matrix(rows), sparse.coo_matrix(rows), iter(rows), (row for row in rows.tolist())]
    contents = []
    for number, form in enumerate(orders):
        write_sensitivity(tmp_path / f"{number}.mtx", form, MESH, data)
        contents.append((tmp_path / f"{number}.mtx").read_bytes())
    upwards = np.array([Model(MESH, row).to_discretize() for row in rows])
    write_sensitivity(tmp_path / "u.mtx", upwards, MESH, data, order="discretize")
    assert set(contents) == {(tmp_path / "u.mtx").read_bytes()}


def test_any_physics_is_inverted(bench: Bench):
    """Rows that no prism gives: each datum is the mean density of a box of cells. The run recovers the data."""
    mesh = block_mesh()
    rng = np.random.default_rng(4)
    data = stations(0)
    rows = np.zeros((data.n_stations, mesh.n_cells))
    for row, x, y in zip(rows, data.x, data.y):
        near = np.hypot(mesh.centres()[:, 0] - x, mesh.centres()[:, 1] - y) < 180
        row[near] = rng.uniform(0.5, 1.5, near.sum()) / near.sum()
    true = np.where(mesh.centres()[:, 0] > 1400, 1.0, 0.2)
    write_sensitivity(bench.path("data.mtx"), rows, mesh, data, tolerance=1e-4, depth_weight=DepthWeight())
    data.with_data(rows @ true, np.full((1, data.n_stations), 0.02)).write(bench.path("data.obs"))
    bench.control(l3="0.0001 0.02 0", l12="60")
    bench.voxlith()
    run = Run(bench.folder)
    assert run.table[-1].misfit < 1.5
    found, wanted = (mesh.cube(values).mean(axis=0).ravel() for values in (run.model().values, true))
    assert np.corrcoef(found, wanted)[0, 1] > 0.9


@pytest.mark.parametrize("arguments, message", [
    ({"tolerance": 1.0}, "tolerance 1.0"), ({"version": 3}, "version 3"), ({"order": "upwards"}, "order"),
    ({"taps": 5}, "taps 5"), ({"style": 5}, "style 5: expected 0 to 4"), ({"layers": 9}, "the mesh has 6 layers"),
    ({"layers": 5}, "at most 4, a power of two, or all 6"), ({"layers": 2, "style": 4}, "style 4 covers all 6 layers"),
    ({"style": 2, "version": 1}, "the file is read as style 1"),
    ({"style": 1, "inactive": np.zeros((7, 5), int)}, "inactive"),
    ({"inactive": np.zeros((7, 5), int)}, "heights of the stations"),
    ({"inactive": np.full((7, 5), 6), "height": np.zeros(11)}, "at least one active cell"),
    ({"inactive": np.full((7, 5), 7), "depth_weight": DepthWeight(1, 1)}, "inactive: expected counts within 0 to 6"),
    ({"depth_weight": DepthWeight(1e-9, 9.0)}, "too small to be stored")])
def test_what_does_not_go_together(tmp_path, arguments, message):
    with pytest.raises(UsageError, match=message):
        write_sensitivity(tmp_path / "a.mtx", matrix(0), MESH, survey(0), **arguments)
    assert not list(tmp_path.iterdir())


def test_depth_weights_that_cannot_be():
    for z0, beta in ((0.0, 1.0), (-1.0, 1.0), (1.0, -1.0), (np.nan, 1.0)):
        with pytest.raises(UsageError, match="depth weight"):
            DepthWeight(z0, beta)


@pytest.mark.parametrize("rows, message", [
    (np.zeros((3, 4)), r"matrix: expected the shape \(11, 210\), found \(3, 4\)"),
    (iter([np.zeros(4)]), "row 1: expected the shape"), (iter([np.full(210, np.nan)]), "row 1: expected finite"),
    (iter([np.full(210, 1e39)]), "row 1: a coefficient is too large"), (iter(12 * [np.ones(210)]), "found more"),
    (iter(3 * [np.ones(210)]), "rows: expected 11, found 3")])
def test_rows_that_cannot_be_written(tmp_path, rows, message):
    with pytest.raises(UsageError, match=message):
        write_sensitivity(tmp_path / "a.mtx", rows, MESH, survey(0))
    assert not list(tmp_path.iterdir())


@pytest.mark.parametrize("form, style", [("tagged", 0), ("bare", None), ("record", None), ("tagged", 2), ("tagged", 3)])
def test_products_are_those_of_the_matrix(tmp_path, form, style):
    path = tmp_path / "a.mtx"
    rows = matrix(0)
    write_sensitivity(path, rows, MESH, survey(0), form=form, style=style, tolerance=0.0)
    rng = np.random.default_rng(5)
    model, data = rng.normal(size=MESH.n_cells), rng.normal(size=11)
    with Sensitivity(path) as sensitivity:
        assert sensitivity.mesh == MESH or form == "record"
        assert sensitivity.style == (style or 0) and sensitivity.shape == rows.shape
        dense = sensitivity.dense_matrix()
        expected = rows.reshape(11, 5, 7, 6).copy()
        covered = sensitivity.header.layers
        if covered < 6:
            expected[..., covered - 1] += expected[..., covered:].sum(axis=-1)
            expected[..., covered:] = 0.0
        np.testing.assert_allclose(dense, expected.reshape(rows.shape), rtol=2e-5, atol=2e-6 * np.abs(rows).max())
        np.testing.assert_allclose(sensitivity.forward(model), dense @ model, rtol=1e-10)
        np.testing.assert_allclose(sensitivity.transposed(data), dense.T @ data, rtol=1e-9, atol=1e-16)
        assert np.dot(sensitivity.forward(model), data) == pytest.approx(np.dot(model, sensitivity.transposed(data)))
        operator = sensitivity.linear_operator()
        np.testing.assert_array_equal(operator @ model, sensitivity.forward(model))
        np.testing.assert_array_equal(operator.T @ data, sensitivity.transposed(data))
        coefficients = sensitivity.coefficient_matrix()
        np.testing.assert_allclose(coefficients @ sensitivity.transform(model), dense @ model, rtol=1e-5)
        np.testing.assert_array_equal(sensitivity.sparse_matrix().toarray(), dense)
        thin = sensitivity.sparse_matrix(drop=0.01)
        assert thin.nnz < sensitivity.sparse_matrix().nnz
        np.testing.assert_array_equal(sensitivity.dense_row(3), dense[3])
        weighted = sensitivity.dense_matrix(weighted=True)
        np.testing.assert_allclose(weighted * sensitivity.header.depth_weight, dense)
        if covered == 6:
            np.testing.assert_allclose((weighted**2).sum(axis=0), sensitivity.tail().diagonal, rtol=1e-12)
        tail = sensitivity.tail()
        if tail.layer_response is not None:
            np.testing.assert_allclose(tail.layer_response[:, -1], rows.sum(axis=1), rtol=1e-12)
        with pytest.raises(UsageError, match="data: expected the shape"):
            sensitivity.transposed(np.zeros(3))


def test_the_diagonal_of_the_record_layout_is_that_of_the_others(tmp_path):
    write_sensitivity(tmp_path / "r.mtx", matrix(0), MESH, survey(0), form="record")
    write_sensitivity(tmp_path / "t.mtx", matrix(0), MESH, survey(0))
    with Sensitivity(tmp_path / "r.mtx") as record, Sensitivity(tmp_path / "t.mtx") as tagged:
        np.testing.assert_array_equal(record.tail().diagonal, tagged.tail().diagonal)


def test_predictions_are_those_of_the_program(gravity: Bench, magnetic: Bench):
    for bench in (gravity, magnetic):
        run = Run(bench.folder)
        with Sensitivity(bench.path("data.mtx")) as sensitivity:
            data = sensitivity.forward(run.model().values)
        predicted = run.predicted.data[0]
        valid = ~np.isnan(predicted)
        np.testing.assert_allclose(data[valid], predicted[valid], rtol=1e-4, atol=1e-6 * np.abs(data).max())


def test_meshes_given_by_elevations(tmp_path):
    lay_survey(bench := Bench(tmp_path))
    data = bytearray(bench.path("data.mtx").read_bytes())
    with Sensitivity(bench.path("data.mtx")) as sensitivity:
        z, mesh = sensitivity.header.z_nodes, sensitivity.mesh
    place = data.index(z.tobytes())
    data[place: place + z.nbytes] = (-z).tobytes()
    bench.path("up.mtx").write_bytes(data)
    with Sensitivity(bench.path("up.mtx")) as sensitivity:
        assert sensitivity.mesh == mesh
    data[place: place + z.nbytes] = np.zeros(len(z)).tobytes()
    bench.path("flat.mtx").write_bytes(data)
    with pytest.raises(FileError, match=f"byte {place}: expected z nodes that follow one another, found 0 and 0"):
        Sensitivity(bench.path("flat.mtx"))
    with pytest.raises(FileError, match="flat.mtx: z_nodes: expected falling"):
        Sensitivity(bench.path("flat.mtx"), strict=False)


def test_default_depth_weights():
    assert default_depth_weight(0, MESH, [141.1, 161.1]) == DepthWeight(10.0 + 30.0, 2.0)
    assert default_depth_weight(1, MESH, [0.0]) == DepthWeight(10.0, 3.0)
    weights = cell_depth_weights(DepthWeight(40.0, 2.0), MESH, np.full((7, 5), 2))
    assert weights[:2].tolist() == [1.0, 1.0] and weights[2] == np.float32(40 / (20 + 40))


def test_layer_plans():
    assert plan_layers(MESH).npz == 8 and plan_layers(MESH, 2).style == 3
    assert plan_layers(MESH, style=3).layers == 2 and plan_layers(MESH, 1).style == 1
