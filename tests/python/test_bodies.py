"""Bodies of a model: connected cells, their sums, where the excess lies, and the subcommand."""

from __future__ import annotations

import csv
import math

import numpy as np
import pytest
from conftest import one_line
from hypothesis import given
from hypothesis import strategies as st

from voxlith import Mesh, Model, Run, UsageError
from voxlith.bodies import (body_remark, connected_cells, core_columns, distribution, doubts, excess_above, excess_unit,
                            find_bodies, top_of, weaker_sign_text)
from voxlith.io.bounds_file import bounds_of_numbers
from voxlith.report.contents import report_contents

PAD = [300.0, 150.0]


@pytest.fixture
def mesh():
    """A core of 8 x 8 columns of 100 m with two padding columns on each side, layers of 50 m and a thick one at the bottom."""
    widths = [*PAD, *8 * [100.0], *PAD[::-1]]
    return Mesh.from_widths((0.0, 0.0, 200.0), widths, widths, [*6 * [50.0], 400.0])


def box(mesh, value, x, y, elevation):
    cells = mesh.centres()
    return np.where((np.abs(cells - [sum(x) / 2, sum(y) / 2, sum(elevation) / 2]) <
                     np.array([x[1] - x[0], y[1] - y[0], elevation[1] - elevation[0]]) / 2).all(axis=1), value, 0.0)


def test_a_box_is_found_as_it_is(mesh):
    values = box(mesh, 0.4, (650, 1050), (650, 1050), (-50, 150)) + box(mesh, -0.3, (450, 650), (450, 550), (50, 100))
    dense, light = find_bodies(Model(mesh, values, "density contrast", "g/cm3"), ground=np.full((mesh.nx, mesh.ny), 175.0))
    assert dense.centre == pytest.approx((850.0, 850.0, 50.0)) and dense.depth == pytest.approx(125.0)
    assert (dense.x, dense.y, dense.elevation) == ((650.0, 1050.0), (650.0, 1050.0), (-50.0, 150.0))
    assert dense.volume == pytest.approx(400 * 400 * 200) and dense.excess == pytest.approx(0.4 * dense.volume) and dense.peak == 0.4
    assert light.excess == pytest.approx(-0.3 * 200 * 100 * 50) and len(light.cells) == 2 and light.peak == -0.3


def test_cells_that_touch_by_edges_are_two_bodies(mesh):
    values = np.zeros(mesh.n_cells)
    values[mesh.cell_index([2, 3, 2], [4, 5, 4], [4, 4, 5])] = 1.0, 0.9, 0.8
    first, second = find_bodies(Model(mesh, values))
    assert (len(first.cells), len(second.cells)) == (2, 1)
    assert len(find_bodies(Model(mesh, values), 0.95)) == 1


def test_a_weak_sign_has_no_body(mesh):
    values = box(mesh, 0.4, (650, 1050), (650, 1050), (-50, 150)) + box(mesh, -0.1, (450, 650), (450, 550), (50, 100))
    assert len(find_bodies(Model(mesh, values))) == 1 and len(find_bodies(Model(mesh, values), 0.2)) == 2
    assert find_bodies(Model(mesh, 0.0 * values)) == []
    for share in (0.0, 1.5, math.nan):
        with pytest.raises(UsageError, match="threshold"):
            find_bodies(Model(mesh, values), share)


def test_a_weak_sign_of_much_excess_has_bodies_of_its_own_peak(mesh):
    strong, weak = box(mesh, 0.4, (650, 850), (650, 850), (50, 150)), box(mesh, -0.06, (450, 650), (450, 650), (-100, 100))
    model = Model(mesh, strong + weak)
    assert weaker_sign_text(model) == "values below 0: peak -0.06, 0.15 of that of the other sign; their bodies have 0.5 of their own peak or more"
    listed = find_bodies(model)
    assert [one.peak for one in listed] == [0.4, -0.06]
    assert sum(one.excess for one in listed if one.excess < 0.0) == pytest.approx(excess_above(model, (0.5,))[0].negative)
    assert [one.peak for one in find_bodies(Model(mesh, -strong - weak))] == [-0.4, 0.06]
    assert weaker_sign_text(Model(mesh, strong)) == "" and weaker_sign_text(Model(mesh, strong - strong)) == ""
    faint = Model(mesh, strong + weak / 2.0)
    assert len(find_bodies(faint)) == 1 and weaker_sign_text(faint) == ""
    small = Model(mesh, strong + box(mesh, -0.06, (450, 550), (450, 550), (50, 100)))
    text = weaker_sign_text(small)
    assert "no body; --threshold 0.15 lists them" in text and len(find_bodies(small)) == 1 and len(find_bodies(small, 0.15)) == 2


@given(st.integers(0, 2**27 - 1))
def test_groups_are_those_of_a_search_by_neighbours(bits):
    mesh = Mesh([0, 1, 2, 3], [0, 1, 2, 3], [0, -1, -2, -3])
    chosen = np.array([bits >> n & 1 for n in range(27)], dtype=bool)
    centres = mesh.centres()
    rest = set(np.flatnonzero(chosen).tolist())
    expected = set()
    while rest:
        group, edge = set(), [rest.pop()]
        while edge:
            cell = edge.pop()
            group.add(cell)
            near = {other for other in rest if np.abs(centres[other] - centres[cell]).sum() < 1.5}
            rest -= near
            edge += near
        expected.add(frozenset(group))
    found = connected_cells(mesh, chosen)
    assert {frozenset(group.tolist()) for group in found} == expected and len(found) == len(expected)


def test_sums_of_core_and_padding_are_those_of_the_cells(mesh):
    values = np.random.default_rng(3).normal(size=mesh.n_cells)
    active = np.random.default_rng(4).random(mesh.n_cells) > 0.2
    values[5] = np.nan
    model = Model(mesh, values, active=active)
    weights = np.where(model.shown, values, 0.0) * mesh.volumes()
    x, y, _ = mesh.centres().T
    inside = (x > 450) & (x < 1250) & (y > 450) & (y < 1250)
    found = distribution(model, bounds_of_numbers(-1.0, 1.0, mesh.n_cells))
    assert found.core.net == pytest.approx(weights[inside].sum()) and found.padding.net == pytest.approx(weights[~inside].sum())
    assert found.core.positive == pytest.approx(weights[inside & (weights > 0)].sum())
    assert found.in_padding == pytest.approx(np.abs(weights[~inside]).sum() / np.abs(weights).sum())
    assert found.in_bottom == pytest.approx(np.abs(weights[mesh.centres()[:, 2] < -100]).sum() / np.abs(weights).sum())
    assert found.cells_at_bounds == np.count_nonzero(model.shown & (np.abs(values) >= 0.999))
    everything, strong = excess_above(model, (1e-9, 0.5))
    assert everything == pytest.approx(found.core)
    assert 0.0 < strong.positive < everything.positive and everything.negative < strong.negative < 0.0


def test_doubtful_bodies_are_named(mesh):
    deep = Model(mesh, box(mesh, 0.4, (650, 1050), (650, 1050), (-500, -100)), "density contrast", "g/cm3")
    body, = find_bodies(deep)
    limits = bounds_of_numbers(0.0, 0.4, mesh.n_cells)
    assert body_remark(deep, body, limits) == "in the bottom layer; 100 % at bounds"
    assert ["bottom layer" in text or "bounds" in text for text in doubts(distribution(deep, limits))] == [True, True]
    beside = Model(mesh, box(mesh, -0.4, (0, 300), (650, 1050), (-50, 150)))
    assert body_remark(beside, find_bodies(beside)[0]) == "in padding columns"
    assert "padding" in doubts(distribution(beside))[0]
    good = Model(mesh, box(mesh, 0.3, (650, 1050), (650, 1050), (-50, 150)))
    assert body_remark(good, find_bodies(good)[0], limits) == "" and doubts(distribution(good, limits)) == []


def test_both_signs_of_a_smooth_model_are_doubtful(mesh):
    values = box(mesh, 0.4, (350, 650), (650, 1050), (-50, 150)) + box(mesh, -0.3, (750, 1050), (650, 1050), (-50, 150))
    found = distribution(Model(mesh, values, "density contrast", "g/cm3"))
    usual = doubts(found)
    assert doubts(found, "blocky") == doubts(found, "compact") == usual
    text, *rest = doubts(found, "smooth")
    assert rest == usual and "up to twice too large" in text and "--model-norm blocky" in text
    assert not any("both signs" in text for text in doubts(distribution(Model(mesh, np.maximum(values, 0.0))), "smooth"))


def test_the_norm_of_a_run_decides_on_the_warning(tools, gravity, copied):
    work = copied(gravity)
    values = Run(work.folder).model().values
    values[::2] = -np.abs(values[::2])
    values[1::2] = np.abs(values[1::2])
    Model(Run(work.folder).mesh, values).write(work.path("voxlith.den"), digits="full")
    assert "up to twice too large" in tools("bodies", work.folder).errors
    assert any("up to twice too large" in text for text in report_contents(Run(work.folder))["warnings"])
    log = work.path("voxlith.log")
    end = log.read_text().rindex(" VOXLITH ended on") if " VOXLITH ended on" in log.read_text() else len(log.read_text())
    log.write_text(log.read_text()[:end] + "Model norm: blocky, p = 1 for values\n" + log.read_text()[end:])
    assert "up to twice too large" not in tools("bodies", work.folder).errors


def test_a_bound_of_0_is_no_limit(mesh):
    """Cells at 0 have no excess; with positivity most cells are there."""
    values = box(mesh, 0.3, (650, 1050), (650, 1050), (-50, 150))
    assert distribution(Model(mesh, values), bounds_of_numbers(0.0, 0.5, mesh.n_cells, 1)).cells_at_bounds == 0


def test_a_mesh_without_padding_has_no_share_of_it():
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 4 * [50.0], 3 * [40.0], 3 * [10.0])
    found = distribution(Model(mesh, np.ones(mesh.n_cells)))
    assert core_columns(mesh).all() and math.isnan(found.in_padding) and math.isnan(found.in_bottom) and math.isnan(found.at_bounds)
    assert doubts(found) == []


def test_ground_is_the_top_of_the_active_cells(mesh):
    active = mesh.active_cells(lambda x, y: 0.0 * x + 90.0)
    assert (top_of(Model(mesh, np.ones(mesh.n_cells), active=active)) == 100.0).all()
    assert (top_of(Model(mesh, np.ones(mesh.n_cells))) == 200.0).all()


def test_units_of_the_excess(mesh):
    model = Model(mesh, box(mesh, 0.4, (650, 1050), (650, 1050), (-50, 150)), "density contrast", "g/cm3")
    assert find_bodies(model)[0].excess * excess_unit(model).factor == pytest.approx(0.4 * 400 * 400 * 200 * 1000.0 / 1.0e9)  # Mt
    assert excess_unit(Model(mesh, model.values, "model")).unit == "1e6 m3"


def test_bodies_of_a_run(tools, gravity, copied, tmp_path):
    work = copied(gravity)
    model = Run(work.folder).model()
    done = tools("bodies", work.folder, "--out", "bodies.csv", "--threshold", "0.6")
    assert done.status == 0
    with open(tmp_path / "bodies.csv", newline="") as file:
        rows = list(csv.DictReader(file))
    largest = find_bodies(model, 0.6, top_of(model))[0]
    assert [float(rows[0][name]) for name in ("x", "y", "elevation")] == pytest.approx(largest.centre, abs=0.06)
    assert float(rows[0]["excess"]) == pytest.approx(largest.excess * 1e-6, rel=1e-5) and rows[0]["excess_unit"] == "Mt"
    assert int(rows[0]["cells"]) == len(largest.cells) and done.out.count("\n   ") >= len(rows) - 1
    net = f"{distribution(model).core.net * 1e-6:.4g}"
    assert f"core of the mesh:        net {net}," in done.out
    shown = report_contents(Run(work.folder))
    assert shown["recovered"][0][:2] == [model.name, "1"] and len(shown["recovered"][0]) == 10
    assert any(net in row[1] for row in shown["summary"])


def test_bodies_at_bounds_are_warned_of(tools, gravity, copied):
    work = copied(gravity)
    values = Run(work.folder).model().values
    limit = float(np.quantile(np.abs(values), 0.98))
    work.control(l8=f"{-limit},{limit}")
    clipped = np.clip(values, -limit, limit)
    Model(Run(work.folder).mesh, clipped).write(work.path("voxlith.den"), digits="full")
    done = tools("bodies", work.folder)
    assert done.status == 0 and "cells at their bounds" in done.errors and "at bounds" in done.out
    assert any("cells at their bounds" in text for text in report_contents(Run(work.folder))["warnings"])


def test_bodies_of_files_at_their_place(tools, mesh, tmp_path):
    from voxlith.side_file import SideInfo, read_side_file, write_side_file
    mesh.write(tmp_path / "m.msh")
    Model(mesh, box(mesh, 0.4, (650, 1050), (650, 1050), (-50, 150))).write(tmp_path / "a.den")
    (tmp_path / "ground.txt").write_text("4\n" + "".join(f"{x} {y} 180\n" for x in (400000, 410000) for y in (5000000, 5010000)))
    write_side_file(tmp_path / "m.msh", SideInfo("EPSG:32633", (400000.0, 5000000.0)))
    done = tools("bodies", "--mesh", "m.msh", "--model", "a.den", "--topography", "ground.txt", "--out", "b.csv")
    assert done.status == 0
    row = (tmp_path / "b.csv").read_text().splitlines()[1].split(",")
    assert row[:6] == ["a.den", "1", "400850.0", "5000850.0", "50.0", "130.0"] and row[16:18] == ["12.8", "Mt"]
    assert read_side_file(tmp_path / "b.csv").shift == (0.0, 0.0) and read_side_file(tmp_path / "b.csv").crs == "EPSG:32633"
    Model(mesh, np.zeros(mesh.n_cells)).write(tmp_path / "zero.sus")
    assert "0 bodies" in tools("bodies", "--mesh", "m.msh", "--model", "zero.sus").out


@pytest.mark.parametrize("words, said", [
    ((), "a run, or --mesh and --model"), (("run", "--mesh", "m.msh"), "a run, or --mesh and --model"),
    (("run", "--threshold", "1.2"), "at most 1"), (("run", "--threshold", "0"), "above 0"),
    (("--mesh", "m.msh", "--model", "a.den", "--iteration", "3"), "together with a run")])
def test_wrong_use_is_named(tools, words, said):
    assert said in one_line(tools("bodies", *words), 2)


def test_a_folder_without_a_model_is_named(tools, gravity, copied):
    work = copied(gravity)
    for name in ("voxlith.den", "voxlith.rho"):
        work.path(name).unlink(missing_ok=True)
    assert "holds no model yet" in one_line(tools("bodies", work.folder))


def test_an_input_is_not_overwritten(tools, gravity, copied):
    work = copied(gravity)
    assert "another file" in one_line(tools("bodies", work.folder, "--out", work.path("voxlith.inp")), 2)
