"""Rounds of compact: they go on after a stop with the same bytes, and say what is missing."""

from __future__ import annotations

import json
import signal
import subprocess
import time
from dataclasses import replace

import numpy as np
import pytest
from conftest import BUILD, one_line

from voxlith import Direction, InducingField, Mesh, Run, Survey
from voxlith.compact import component_factors
from voxlith.compact_progress import CompactProgress, Round
from voxlith.errors import FileError, UsageError
from voxlith.io.model_file import read_model_file, write_model_file
from voxlith.model import Model
from voxlith.side_file import SideInfo, read_side_file, write_side_file
from voxlith.stack import Stack, StackedComponent, StackedProperty
from voxlith.stacked_run import StackedRun
from voxlith.vectors import VectorModel, unit_vector

RESULTS = ("voxlith.sus", "vector_compact_weights.txt", "vector_compact.csv", "vector_compact.json")


@pytest.fixture(scope="module")
def made(tmp_path_factory):
    """A stack of three components of a small remanent body."""
    folder = tmp_path_factory.mktemp("compact")
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 8 * [50.0], 8 * [50.0], 5 * [40.0])
    mesh.write(folder / "mesh.msh")
    x, y = (a.ravel() for a in np.meshgrid(np.linspace(25, 375, 7), np.linspace(25, 375, 7)))
    Survey(x, y, np.full(49, 15.0), np.zeros((1, 49)), (1,), field=InducingField(65.0, 10.0, 50000.0)).write(folder / "s.obs")
    cells = mesh.centres()
    body = (np.abs(cells[:, 0] - 200) < 60) & (np.abs(cells[:, 1] - 200) < 60) & (cells[:, 2] < -40) & (cells[:, 2] > -120)
    write_model_file(folder / "true.mod", np.where(body, 0.05, 0.0))

    def run(*words):
        done = subprocess.run([BUILD / "tools" / "voxlith-tools", *words], cwd=folder, capture_output=True, text=True, timeout=120)
        assert done.returncode == 0, done.stderr

    run("predict", "--mesh", "mesh.msh", "--stations", "s.obs", "--type", "tmi", "--magnetisation", "-20,200", "--model", "true.mod", "--noise",
        "0,1", "--seed", "2", "--out", "tmi.obs")
    for axis in "xyz":
        run("mtx", "--mesh", "mesh.msh", "--stations", "tmi.obs", "--type", "tmi", "--magnetisation", axis, "--out", f"{axis}.mtx")
    for name, bounds in (("vector", "-0.05,0.05"), ("free", "null")):
        run("stack", "--properties", "mx", "my", "mz", "--rows", "tmi.obs", "x.mtx", "y.mtx", "z.mtx", "--bounds", bounds, "--out", name)
    return folder


@pytest.fixture
def folder(made, tmp_path, monkeypatch):
    monkeypatch.setenv("VOXLITH_PROGRAM", str(BUILD / "voxlith"))
    for path in made.iterdir():
        (tmp_path / path.name).symlink_to(path)
    return tmp_path


def contents(folder):
    return [(folder / name).read_bytes() for name in RESULTS]


def test_rounds_go_on_after_a_stop(tools, folder):
    """Stopped by a signal in a later round, or asked for fewer rounds: the results are those of one call."""
    words = ("compact", ".", "--control", "vector.inp")
    assert tools(*words, "--rounds", 3).status == 0
    whole = contents(folder)
    assert tools(*words, "--rounds", 1).status == 0
    assert contents(folder) != whole
    done = tools(*words, "--rounds", 3, "--continue")
    assert done.status == 0 and done.out.startswith("1 of 3 rounds are done\nround 2: ")
    assert contents(folder) == whole
    for sent in (signal.SIGTERM, signal.SIGKILL):
        for path in folder.glob("v*_compact*"):
            path.unlink()
        process = subprocess.Popen([BUILD / "tools" / "voxlith-tools", *words, "--rounds", "3"], cwd=folder, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        assert process.stdout is not None
        for line in process.stdout:
            if line.startswith("round 1:"):
                break
        process.send_signal(sent)
        errors = process.communicate(timeout=60)[1]
        if sent == signal.SIGTERM and process.returncode:
            assert process.returncode == 130 and "stopped in round 2 of 3; --continue goes on with it" in errors
        # A kill leaves the run of the round to end by itself.
        give_up = time.monotonic() + 30.0
        while (done := tools(*words, "--rounds", 3, "--continue")).status and time.monotonic() < give_up:
            assert "another run is writing" in done.errors
            time.sleep(0.1)
        assert done.status == 0 and contents(folder) == whole


def test_a_stop_in_the_first_run_leaves_nothing_to_continue(tools, folder):
    """Not even the rounds of an earlier call."""
    words = ("compact", ".", "--control", "vector.inp", "--rounds", "1")
    assert tools(*words).status == 0
    process = subprocess.Popen([BUILD / "tools" / "voxlith-tools", *words], cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    while process.poll() is None and (folder / "vector_compact.json").exists():
        time.sleep(0.001)
    process.kill()
    process.wait()
    assert "vector_compact.json: cannot be read" in one_line(tools(*words, "--continue"))


def test_only_the_last_model_is_kept(tools, folder):
    assert tools("compact", ".", "--control", "vector.inp", "--rounds", 2).status == 0
    assert [path.name for path in folder.glob("*_round*")] == ["vector_compact_round2.mod"]
    assert json.loads((folder / "vector_compact.json").read_text())["settings"]["--norm"] == 0.0


def test_what_cannot_be_continued_is_refused(tools, folder):
    words = ("compact", ".", "--control", "vector.inp", "--rounds", 1)
    assert "vector_compact.json: cannot be read" in one_line(tools(*words, "--continue"))
    assert tools(*words).status == 0
    assert "have --norm 0.0, found 1.0; start anew without --continue" in one_line(tools(*words, "--continue", "--norm", 1), 2)
    (folder / "vector_compact_round1.mod").write_text("1 2 3\n")
    assert "vector_compact_round1.mod" in one_line(tools(*words, "--continue"))
    (folder / "vector_compact.json").write_text("{}")
    assert "expected the file that voxlith-tools compact writes" in one_line(tools(*words, "--continue")).replace('"format": "voxlith compact 1", ', "")


def test_amplitudes_without_bounds_get_a_warning(tools, folder):
    done = tools("compact", ".", "--control", "free.inp", "--rounds", 1)
    assert done.status == 0 and "free.inp: no bounds of mx, my, mz: a compact body shrinks to few cells" in done.errors
    assert "no bounds" not in tools("compact", ".", "--control", "vector.inp", "--rounds", 1).errors
    assert "no bounds" not in tools("compact", ".", "--control", "free.inp", "--rounds", 1, "--norm", 2).errors


@pytest.fixture(scope="module")
def mixed(made, tmp_path_factory):
    """Total field beside gravity and two gradients of the same body."""
    folder = tmp_path_factory.mktemp("mixed")
    for name in ("mesh.msh", "tmi.obs", "x.mtx", "y.mtx", "z.mtx"):
        (folder / name).symlink_to(made / name)
    write_model_file(folder / "true.mod", 8.0 * read_model_file(made / "true.mod", 320))
    survey = Survey.read(made / "tmi.obs")
    rows = []
    for kind, code, noise in (("gz", 0, 0.01), ("gzz", 12, 0.5), ("gxz", 14, 0.5)):
        replace(survey, codes=(code,), field=None, direction=None).write(folder / "s.obs")
        common = ("--mesh", "mesh.msh", "--type", kind)
        for words in (("predict", *common, "--stations", "s.obs", "--model", "true.mod", "--noise", f"0,{noise}", "--seed", "3", "--out",
                       f"{kind}.obs"), ("mtx", *common, "--stations", f"{kind}.obs", "--out", f"{kind}.mtx")):
            subprocess.run([BUILD / "tools" / "voxlith-tools", *words], cwd=folder, check=True, capture_output=True)
        rows += ["--rows", f"{kind}.obs", "-", "-", "-", f"{kind}.mtx"]
    subprocess.run([BUILD / "tools" / "voxlith-tools", "stack", "--properties", "mx", "my", "mz", "density", "--bounds", "-0.1,0.1", "-0.1,0.1",
                    "-0.1,0.1", "0,1", "--rows", "tmi.obs", "x.mtx", "y.mtx", "z.mtx", "-", *rows, "--out", "mixed"], cwd=folder, check=True,
                   capture_output=True)
    return folder


@pytest.fixture
def mixed_folder(mixed, tmp_path, monkeypatch):
    monkeypatch.setenv("VOXLITH_PROGRAM", str(BUILD / "voxlith"))
    for path in mixed.iterdir():
        (tmp_path / path.name).symlink_to(path)
    return tmp_path


def test_each_type_of_data_reaches_the_target(tools, mixed_folder):
    """With factors of the misfits that are in the standard deviations of the run, not in those of its results."""
    words = ("compact", ".", "--control", "mixed.inp", "--norm", 2, "--per-component")
    done = tools(*words, "--rounds", 8)
    assert done.status == 0 and "differ from the target" not in done.errors, done.errors
    run = Run(mixed_folder, "mixed_compact.inp")
    fits = StackedRun(run).fits()
    assert [fit.rms for fit in fits] == pytest.approx([1.0] * 4, abs=0.05)
    factors = read_side_file(mixed_folder / "mixed_compact.obs").component_factors(4)
    assert max(factors[1:]) > 1.2 * min(factors[1:]) and np.mean(factors) == pytest.approx(1.0)
    given, used = (Survey.read(mixed_folder / name) for name in ("mixed.obs", "mixed_compact.obs"))
    for fit, factor, part in zip(fits, factors, np.split(np.arange(4 * 49), 4)):
        assert used.uncertainties()[0][part] * np.sqrt(factor) == pytest.approx(given.uncertainties()[0][part], rel=1e-4)
        assert fit.observed.uncertainties()[0] == pytest.approx(given.uncertainties()[0][part], rel=1e-4)
    assert run.table[-1].misfit == pytest.approx(1.0, abs=0.03)
    whole = [(mixed_folder / name).read_bytes() for name in ("voxlith.sus", "mixed_compact.csv", "mixed_compact.obs")]
    assert tools(*words, "--rounds", 1).status == 0
    assert "found None" in one_line(tools(*words[:-1], "--continue"), 2)
    assert tools("compact", ".", "--control", "mixed_compact.inp", "--norm", 2, "--per-component", "--rounds", 1).status == 0
    again = StackedRun(Run(mixed_folder, "mixed_compact_compact.inp")).fits()
    for fit, part in zip(again, np.split(np.arange(4 * 49), 4)):
        assert fit.observed.uncertainties()[0] == pytest.approx(given.uncertainties()[0][part], rel=1e-4)
    write_side_file(mixed_folder / "mixed_compact.obs", SideInfo().with_step("component-factors", factors=[1.0, "a", 0.0, -1.0]))
    assert "expected numbers above 0" in one_line(tools("unstack", ".", "--control", "mixed_compact.inp", "--no-vtr"))
    assert tools(*words, "--rounds", 8, "--continue").status == 0
    assert [(mixed_folder / name).read_bytes() for name in ("voxlith.sus", "mixed_compact.csv", "mixed_compact.obs")] == whole


def test_factors_of_components_follow_their_misfits():
    """Misfits that fall with a power of their factor: secants find the target, within groups of a mean factor of 1."""
    mesh = Mesh([0, 1], [0, 1], [0, -1])
    stack = Stack(mesh, (StackedProperty("a", "SI"), StackedProperty("b", "SI")),
                  tuple(StackedComponent(name, 0, 0, count, depends) for name, count, depends in
                        (("one", 10, ("a",)), ("two", 30, ("b",)), ("three", 10, ("b",)), ("none", 10, ("b",)))))
    def misfits(factors):
        # That of the group follows the factor of its norm, here as if it were always balanced.
        rms = np.array([1.0, 0.7 * factors[1] ** -0.2, 1.9 * factors[2] ** -0.4, np.nan])
        return rms / np.array([1.0, *[np.sqrt((30 * rms[1] ** 2 + 10 * rms[2] ** 2) / 40)] * 2, 1.0])
    tried = [((1.0,) * 4, tuple(misfits([1.0] * 4)))]
    for _ in range(12):
        factors = component_factors(stack, tried, 1.0)
        tried.append((tuple(factors), tuple(misfits(factors))))
    assert tried[-1][1][:3] == pytest.approx([1.0] * 3, abs=0.02)
    assert factors[0] == pytest.approx(1.0) and np.average(factors, weights=[10, 30, 10, 10]) == pytest.approx(1.0)


def test_progress_is_read_back(tmp_path):
    mesh = Mesh([0, 1, 2], [0, 1], [0, -1])
    progress = CompactProgress({"--norm": 0.0}, [Round((1.5,), (0.25,), 1.0)], (), (1.0,))
    progress.write(tmp_path / "p.json", Model(mesh, np.array([0.1, 1.0 / 3.0])))
    assert CompactProgress.read(tmp_path / "p.json") == progress and progress.model_file == "p_round0.mod"
    assert Model.read(tmp_path / "p_round0.mod", mesh).values.tolist() == [0.1, 1.0 / 3.0]
    with pytest.raises(UsageError, match="--norm 0.0, found 2.0"):
        progress.require({"--norm": 2.0}, "p.json")
    for text in ('{"format": "voxlith compact 1"}', "[", '{"format": "voxlith compact 1", "rounds": []}'):
        (tmp_path / "p.json").write_text(text)
        with pytest.raises(FileError, match="voxlith-tools compact writes"):
            CompactProgress.read(tmp_path / "p.json")


def test_bodies_are_connected_cells():
    """Two bodies that touch at an edge alone, and weak cells that belong to none."""
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 6 * [10.0], 6 * [10.0], 3 * [10.0])
    cells = mesh.centres()
    first = (cells[:, 0] < 20) & (cells[:, 1] < 20) & (cells[:, 2] > -20)
    second = (cells[:, 0] > 20) & (cells[:, 0] < 30) & (cells[:, 1] > 20) & (cells[:, 1] < 30) & (cells[:, 2] > -10)
    vectors = 0.001 * np.ones((mesh.n_cells, 3))
    vectors[first] = 0.05 * unit_vector(Direction(-20.0, 200.0))
    vectors[second] = 0.04 * unit_vector(Direction(60.0, 10.0))
    found = VectorModel(mesh, *vectors.T, 50000.0).bodies()
    assert [one.cells for one in found] == [8, 1]
    assert found[0].centre == pytest.approx((10.0, 10.0, -10.0)) and found[0].volume == pytest.approx(8000.0)
    # 1 SI in 50000 nT is 39.789 A/m.
    assert np.linalg.norm(found[0].moment) == pytest.approx(0.05 * 39.78874 * 8000.0, rel=1e-6)
    assert (found[0].direction.inclination, found[0].direction.declination) == pytest.approx((-20.0, 200.0))
    assert (found[1].direction.inclination, found[1].direction.declination) == pytest.approx((60.0, 10.0))
    assert VectorModel(mesh, *np.zeros((3, mesh.n_cells)), 50000.0).bodies() == []
