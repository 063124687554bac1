"""Stacked runs: rows, models and weights are those of their properties, and a run equals the same problem by product definitions."""

from __future__ import annotations

import resource
import signal
import subprocess
import time

import numpy as np
import pytest
import rasterio
from conftest import BUILD, one_line

from voxlith import Direction, InducingField, Mesh, Model, Run, Sensitivity, Survey, UsageError
from voxlith.bodies import distribution
from voxlith.cli.forward import _side
from voxlith.compact import Compactness, amplitudes, compact_weights, next_eps
from voxlith.io.model_file import read_model_file, write_model_file
from voxlith.io.weight_file import CellWeights, read_weight_files, section_shapes, write_weight_file
from voxlith.report import ReportOptions, report_contents
from voxlith.report.fitted_data import fitted_data
from voxlith.side_file import SideInfo, read_side_file, write_side_file
from voxlith.stack import Stack, StackedProperty, property_of
from voxlith.stacked_run import RunByProperty, StackedRun, bounded_models
from voxlith.vectors import VectorModel, angle_between, direction_of, unit_vector

FIELD = InducingField(65.0, 10.0, 50000.0)
FIELD_TEXT = "65,10,50000"
SHAPE = (8, 10, 6)
STATIONS = 48


@pytest.fixture(scope="module")
def made(tmp_path_factory):
    """Gravity and magnetics over a dense block and a magnetic one, a borehole beside, and their sensitivity files."""
    folder = tmp_path_factory.mktemp("stack")
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), SHAPE[0] * [50.0], SHAPE[1] * [50.0], [20.0, 30.0, 40.0, 50.0, 60.0, 70.0])
    mesh.write(folder / "mesh.msh")
    x, y = (a.ravel() for a in np.meshgrid(np.linspace(25, 375, 6), np.linspace(25, 475, 8)))
    Survey(x, y, np.full(STATIONS, 10.0), np.zeros((1, STATIONS)), (1,), field=FIELD).write(folder / "s.obs")
    depths = -np.arange(15.0, 165.0, 25.0)
    Survey(np.full(6, 212.0), np.full(6, 263.0), depths, np.zeros((1, 6)), (1,), field=FIELD).write(folder / "hole.obs")
    cells = mesh.centres()
    dense = (np.abs(cells[:, 0] - 125) < 60) & (np.abs(cells[:, 1] - 175) < 60) & (cells[:, 2] < -40) & (cells[:, 2] > -150)
    magnetic = (np.abs(cells[:, 0] - 275) < 60) & (np.abs(cells[:, 1] - 325) < 60) & (cells[:, 2] < -40) & (cells[:, 2] > -150)
    write_model_file(folder / "dense.mod", np.where(dense, 0.5, 0.0))
    write_model_file(folder / "magnetic.mod", np.where(magnetic, 0.05, 0.0))

    def tools(*words):
        done = subprocess.run([BUILD / "tools" / "voxlith-tools", *words], cwd=folder, capture_output=True, text=True, timeout=120)
        assert done.returncode == 0, done.stderr
        return done.stdout

    fine = ("--mesh", "mesh.msh", "--field", FIELD_TEXT)
    for kind, model, stations, name in (("gz", "dense.mod", "s.obs", "gz"), ("tmi", "magnetic.mod", "s.obs", "tmi"),
                                        ("tz", "magnetic.mod", "hole.obs", "tz")):
        tools("predict", *fine, "--stations", stations, "--type", kind, "--model", model, "--noise", "1,0.001" if kind == "gz" else "1,0.5",
              "--seed", "4", "--boreholes", "--out", f"{name}.obs")
        tools("mtx", *fine, "--stations", f"{name}.obs", "--type", kind, "--tolerance", "1e-5", "--depth-weight", "40,3", "--boreholes",
              "--out", f"{name}.mtx")
    for axis in "xyz":
        tools("mtx", *fine, "--stations", "tmi.obs", "--type", "tmi", "--tolerance", "1e-5", "--depth-weight", "40,3", "--magnetisation", axis,
              "--out", f"tmi_{axis}.mtx")
    return folder, mesh, tools


@pytest.fixture
def folder(made, tmp_path, monkeypatch):
    """A folder with these files; the commands start the program of this build."""
    monkeypatch.setenv("VOXLITH_PROGRAM", str(BUILD / "voxlith"))
    for path in made[0].iterdir():
        (tmp_path / path.name).symlink_to(path)
    return tmp_path


@pytest.fixture
def stack(folder, tools):
    def run(*words):
        done = tools("stack", *words)
        assert done.status == 0, done
        return done
    return run


def voxlith_run(folder, *words, program="voxlith-run"):
    done = subprocess.run([BUILD / program, *words], cwd=folder, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stdout[-2000:] + done.stderr


TWO = ("--properties", "density", "susc", "--rows", "gz.obs", "gz.mtx", "-", "--rows", "tmi.obs", "-", "tmi.mtx")


def test_rows_are_those_of_the_files_side_by_side(made, stack, folder):
    _, mesh, _ = made
    stack(*TWO, "--rows", "tz.obs", "-", "tz.mtx", "--scale", "1", "0.1", "--tolerance", "1e-6", "--out", "two")
    rng = np.random.default_rng(3)
    density, susceptibility = rng.normal(size=(2, mesh.n_cells))
    known = Stack.read("two.json")
    assert [(one.name, one.first, one.count) for one in known.components] == [("Gz", 0, 48), ("TMI", 48, 48), ("Tz", 96, 6)]
    assert known.stacked_mesh == Mesh.read("two.msh") and known.field == FIELD
    with Sensitivity("two.mtx") as whole:
        data = whole.forward(known.join([density, susceptibility]))
    for one, name, model in zip(known.components, ("gz", "tmi", "tz"), (density, susceptibility, susceptibility)):
        with Sensitivity(f"{name}.mtx") as part:
            assert data[one.rows] == pytest.approx(part.forward(model), abs=1e-4 * np.abs(data[one.rows]).max())
    observed = Survey.read("two.obs")
    for one, name in zip(known.components, ("gz", "tmi", "tz")):
        given = Survey.read(f"{name}.obs", codes=one.code)
        # The file holds six digits, and standard deviations of each datum.
        assert observed.data[0, one.rows] == pytest.approx(given.data[0], abs=1e-3)
        assert observed.uncertainties()[0, one.rows] == pytest.approx(given.uncertainties()[0], rel=1e-3)


def test_a_stacked_run_equals_product_definitions(made, stack, folder, tools):
    """Gravity and magnetics with a model each on the same stations: the same minimum within 1 percent."""
    _, mesh, _ = made
    alphas, tradeoff, scale = "0.0001 1 1 1", 1.0, 0.05
    gz, tmi = Survey.read("gz.obs"), Survey.read("tmi.obs")
    both = Survey(gz.x, gz.y, gz.elevation, np.concatenate([gz.data, tmi.data]), (0, 1),
                  np.concatenate([gz.uncertainties(), tmi.uncertainties()]))
    both.write("joint.obs")
    (folder / "joint.inp").write_text(f"0 2 2 2 dens susc\n2 0 0\n{tradeoff} 0.02 0\njoint.obs\ngz.mtx | tmi.mtx\n0.0\n0.0\nnull\n{alphas}\nnull\nnull\n"
                                      f"50 0 0\n1 1 1 1.0\n1 2 2 {scale}\n")
    voxlith_run(folder, "joint.inp", "--until-converged", "1e-7")
    by_products = [read_model_file("voxlith_dens.den", mesh.n_cells), scale * read_model_file("voxlith_susc.den", mesh.n_cells)]
    stack(*TWO, "--scale", "1", str(scale), "--weights", "none", "--tolerance", "1e-6", "--out", "two")
    text = (folder / "two.inp").read_text().splitlines()
    text[2], text[8] = f"{tradeoff} 0.02 0", alphas
    (folder / "two.inp").write_text("\n".join(text) + "\n")
    voxlith_run(folder, "two.inp", "--until-converged", "1e-7")
    for one, expected in zip(StackedRun(Run(folder, "two.inp")).models(), by_products):
        assert np.linalg.norm(one.values - expected) < 0.01 * np.linalg.norm(expected)
    done = tools("unstack", ".", "--control", "two.inp", "--no-vtr")
    assert done.status == 0, done
    for name, expected in zip(("density", "susc"), by_products):
        assert np.linalg.norm(read_model_file(f"properties/{name}.mod", mesh.n_cells) - expected) < 0.01 * np.linalg.norm(expected)


def test_cross_gradient_of_properties_and_of_model_types(made, stack, folder):
    """The coupling changes the models in the same way in a stack and by product definitions, and makes them alike."""
    _, mesh, _ = made
    alphas, tradeoff, scale, weight = "0.0001 1 1 1", 1.0, 0.05, 0.1
    gz, tmi = Survey.read("gz.obs"), Survey.read("tmi.obs")
    Survey(gz.x, gz.y, gz.elevation, np.concatenate([gz.data, tmi.data]), (0, 1),
           np.concatenate([gz.uncertainties(), tmi.uncertainties()])).write("joint.obs")
    (folder / "joint.inp").write_text(f"0 2 2 2 dens susc\n2 0 0\n{tradeoff} 0.02 0\njoint.obs\ngz.mtx | tmi.mtx\n0.0\n0.0\nnull\n{alphas}\nnull\nnull\n"
                                      f"50 0 0\n1 1 1 1.0\n1 2 2 {scale}\n")
    stack(*TWO, "--scale", "1", str(scale), "--weights", "none", "--tolerance", "1e-6", "--out", "two")
    text = (folder / "two.inp").read_text().splitlines()
    text[2], text[8] = f"{tradeoff} 0.02 0", alphas
    (folder / "two.inp").write_text("\n".join(text) + "\n")
    terms = []
    for options in ((), ("--cross-gradient", f"{weight},1,2")):
        voxlith_run(folder, "joint.inp", "--until-converged", "1e-7", *options)
        by_products = [read_model_file(f"voxlith_{name}.den", mesh.n_cells) for name in ("dens", "susc")]
        # The misfit of a stack is a mean over all rows, here half of the sum over both components.
        halved = ("--cross-gradient", f"{0.5 * weight},1,2") if options else ()
        voxlith_run(folder, "two.inp", "--until-converged", "1e-7", *halved)
        for one, known, expected in zip(StackedRun(Run(folder, "two.inp")).models(), Stack.read("two.json").properties, by_products):
            assert np.linalg.norm(one.values / known.scale - expected) < 0.01 * np.linalg.norm(expected)
        gradients = [np.stack(np.gradient(mesh.cube(values)), -1) for values in by_products]
        terms.append(float(np.square(np.cross(*gradients)).sum()))
    assert terms[1] < 0.8 * terms[0], terms
    assert "Cross-gradient of properties 1 and 2: weight" in (folder / "voxlith.log").read_text()


@pytest.mark.parametrize(("words", "message"), [
    (("--cross-gradient", "1"), "--cross-gradient: expected --target-rms or --until-converged, too"),
    (("--until-converged", "--cross-gradient", "0"), "expected a weight above 0"),
    (("--until-converged", "--cross-gradient", "1,2"), "expected a weight above 0"),
    (("--until-converged", "--cross-gradient", "1,2,2"), "numbers of two properties"),
    (("--until-converged", "--cross-gradient", "1,1,3"), "expected a property from 1 to 2")])
def test_wrong_couplings_are_refused(stack, folder, words, message):
    stack(*TWO, "--scale", "1", "1", "--out", "two")
    done = subprocess.run([BUILD / "voxlith-run", "two.inp", *words], cwd=folder, capture_output=True, text=True, timeout=60)
    assert done.returncode == 2 and message in done.stderr and done.stderr.count("\n") == 1


def run_from_disk(folder, control):
    """A run with so little address space that it reads its sensitivities from disk at every product."""
    for kilobytes in range(8000, 60000, 100):
        done = subprocess.run([BUILD / "voxlith-run", control, "--quiet", "--threads", "1"], cwd=folder, capture_output=True, timeout=120,
                              preexec_fn=lambda limit=1024 * kilobytes: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        if done.returncode == 0:
            break
    assert "MTX file accessed from disk" in (folder / "voxlith.log").read_text()


def test_memory_disk_kill_and_continue(stack, folder):
    """The same model with the sensitivities in memory or on disk, and the same bytes after a run that was killed."""
    stack(*TWO, "--scale", "1", "0.05", "--tolerance", "0", "--out", "two")  # large enough for a run to choose the disk
    text = (folder / "two.inp").read_text()
    for name in ("memory", "disk"):
        there = folder / name
        there.mkdir()
        for path in folder.glob("two*"):
            (there / path.name).write_bytes(path.read_bytes())
        lines = text.splitlines()
        lines[11] = "120 0 0" if name == "memory" else "20 0 0"
        (there / "two.inp").write_text("\n".join(lines) + "\n")
    run_from_disk(folder / "disk", "two.inp")
    from_disk = read_model_file(folder / "disk" / "voxlith.sus", 960)
    (folder / "disk" / "voxlith.sus").unlink()
    voxlith_run(folder / "disk", "two.inp", "--quiet")
    assert "MTX file accessed from memory" in (folder / "disk" / "voxlith.log").read_text()
    in_memory = read_model_file(folder / "disk" / "voxlith.sus", 960)
    # Rows in memory are rounded to single precision once they are divided by the standard deviations.
    assert np.abs(from_disk - in_memory).max() < 1e-3 * np.abs(in_memory).max() > 0.0
    voxlith_run(folder / "memory", "two.inp", "--quiet")
    model = (folder / "memory" / "voxlith.sus").read_bytes()
    there = folder / "memory"
    for path in there.glob("voxlith*"):
        path.unlink()
    process = subprocess.Popen([BUILD / "voxlith-run", "two.inp", "--quiet"], cwd=there)
    while process.poll() is None and (not (there / "voxlith.aux").exists() or len((there / "voxlith.aux").read_text().splitlines()) < 6):
        time.sleep(0.001)
    process.send_signal(signal.SIGTERM)
    process.wait(timeout=60)
    if process.returncode != 0:
        voxlith_run(there, "two.inp", "--continue", "--quiet")
    assert (there / "voxlith.sus").read_bytes() == model


def test_a_remanent_body_by_a_vector_run(made, stack, folder, tools):
    """Magnetisation far from the inducing field; the compact rounds find direction, position and the misfit."""
    _, mesh, forward = made
    remanence = Direction(-20.0, 200.0)
    forward("predict", "--mesh", "mesh.msh", "--stations", "s.obs", "--type", "tmi", "--field", FIELD_TEXT, "--magnetisation", "-20,200",
            "--model", "magnetic.mod", "--noise", "2,1", "--seed", "2", "--out", str(folder / "remanent.obs"))
    stack("--properties", "mx", "my", "mz", "--rows", "remanent.obs", "tmi_x.mtx", "tmi_y.mtx", "tmi_z.mtx", "--bounds", "-0.06,0.06",
          "--out", "vector")
    done = tools("compact", ".", "--control", "vector.inp", "--rounds", "6")
    assert done.status == 0, done
    run = StackedRun(Run(folder, "vector_compact.inp"))
    assert run.fits()[0].rms == pytest.approx(1.0, abs=0.05)
    vector = run.vector()
    assert vector is not None
    assert angle_between(direction_of(vector.moment()), remanence) < 8.0
    assert np.abs(np.array(vector.centre(0.3)) - [275.0, 325.0, -90.0]).max() < 50.0
    done = tools("unstack", ".", "--control", "vector_compact.inp")
    assert done.status == 0 and "moment: " in done.out, done
    names = {path.name for path in (folder / "properties").iterdir()}
    assert names == {"mx.mod", "my.mod", "mz.mod", "amplitude.mod", "inclination.mod", "declination.mod", "mesh.msh", "properties.vtr",
                     "TMI.csv", "components.csv", "bodies.csv"}
    lines = [line.split(",") for line in (folder / "properties" / "bodies.csv").read_text().splitlines()]
    body = dict(zip(lines[0], map(float, lines[1])))
    assert abs(body["x"] - 275.0) < 50.0 and abs(body["y"] - 325.0) < 50.0 and "body 1: " in done.out
    # The true one: 0.05 SI in 50000 nT, 100 x 100 x 90 m.
    assert angle_between(Direction(body["inclination"], body["declination"]), remanence) < 8.0
    assert read_model_file("properties/amplitude.mod", mesh.n_cells) == pytest.approx(vector.amplitude, rel=1e-5, abs=1e-9)


def test_seams_do_not_smooth_one_property_into_the_next():
    mesh = Mesh([0, 1, 3], [0, 2, 3, 4], [0, -1])
    known = Stack(mesh, (StackedProperty("a", "SI"), StackedProperty("b", "SI"), StackedProperty("c", "SI")), ())
    shapes = section_shapes(mesh.nx, mesh.ny, mesh.nz)
    joined = known.join_weights([CellWeights(*(np.full(shape, number + 1.0) for shape in shapes)) for number in range(3)], [1.0, 4.0, 1.0])
    assert [section.shape for section in joined.sections()] == section_shapes(mesh.nx, 3 * mesh.ny, mesh.nz)
    assert joined.y_difference[0, 0].tolist() == [1, 1, 0, 2, 2, 0, 3, 3]
    assert joined.smallness[0, 0].tolist() == [1, 1, 1, 8, 8, 8, 3, 3, 3]


def test_split_undoes_join():
    mesh = Mesh([0, 1, 3], [0, 2, 3, 4], [0, -1, -3])
    known = Stack(mesh, (StackedProperty("a", "SI", None, 0.02), StackedProperty("b", "g/cm3", None, 5.0)), ())
    values = np.random.default_rng(1).normal(size=(2, mesh.n_cells))
    for part, given in zip(known.split(known.join(list(values))), values):
        assert part == pytest.approx(given, rel=1e-14)
    assert known.join([0.02, 5.0]).tolist() == [1.0] * (2 * mesh.n_cells)
    with pytest.raises(UsageError, match="98 times the scale"):
        known.join_bounds([(0.0, 3.0), (0.0, 1.0)])
    assert np.isinf(known.join_bounds([(-99.0, 99.0), (0.0, 1.0)])[:mesh.n_cells]).all()


def test_a_stack_with_terrain_fixes_inactive_cells(made, stack, folder):
    _, mesh, forward = made
    (folder / "hill.topo").write_text("4\n0 0 0\n400 0 -45\n0 500 0\n400 500 -45\n")
    x, y = (a.ravel() for a in np.meshgrid(np.linspace(25, 375, 4), np.linspace(25, 475, 4)))
    Survey(x, y, np.full(16, 10.0), np.ones((1, 16)), (1,), np.ones((1, 16)), field=FIELD).write(folder / "slope.obs")
    for axis in "xy":
        forward("mtx", "--mesh", "mesh.msh", "--stations", str(folder / "slope.obs"), "--type", "tmi", "--magnetisation", axis, "--topography",
                str(folder / "hill.topo"), "--out", str(folder / f"hill_{axis}.mtx"))
    stack("--properties", "mx", "my", "--rows", "slope.obs", "hill_x.mtx", "hill_y.mtx", "--start", "0.01", "--bounds", "-1,1", "--out", "hill")
    with Sensitivity("hill_x.mtx") as one, Sensitivity("hill.mtx") as both:
        inactive = one.inactive_cells()
        assert 0 < inactive.sum() < mesh.n_cells
        assert both.inactive_cells().tolist() == np.tile(inactive, 2).tolist()
    bounds = Run(folder, "hill.inp").bounds()
    assert bounds.fixed.tolist() == np.tile(inactive, 2).tolist()
    assert read_model_file("hill_start.mod", 2 * mesh.n_cells)[np.tile(inactive, 2)].tolist() == [0.0] * (2 * int(inactive.sum()))


@pytest.mark.parametrize(("words", "message"), [
    (("--properties", "a", "--rows", "gz.obs", "gz.mtx"), "expected two or more of different names"),
    (("--properties", "a", "a", "--rows", "gz.obs", "gz.mtx", "gz.mtx"), "expected two or more of different names"),
    (("--properties", "a", "b", "--rows", "gz.obs", "gz.mtx"), "expected observed data and 2 sensitivity files or -, found 1"),
    (("--properties", "a", "b", "--rows", "gz.obs", "-", "-"), "expected a sensitivity file"),
    (("--properties", "a", "b", "--rows", "gz.obs", "gz.mtx", "-"), "property b: expected a sensitivity file for it"),
    (("--properties", "a", "b/c", "--rows", "gz.obs", "gz.mtx", "gz.mtx"), "expected a name of letters"),
    (("--properties", "a=x", "b", "--rows", "gz.obs", "gz.mtx", "gz.mtx"), "expected magnetic data for a direction"),
    (("--properties", "a=q", "b", "--rows", "tmi.obs", "tmi.mtx", "tmi.mtx"), "expected NAME=x, y, z or INC,DEC"),
    (("--properties", "a=99,0", "b", "--rows", "tmi.obs", "tmi.mtx", "tmi.mtx"), "within 90 degrees"),
    (("--properties", "a", "b", "--rows", "hole.obs", "tmi.mtx", "tmi.mtx"), "tmi.mtx: expected 6 rows as hole.obs has data, found 48"),
    (("--properties", "a", "b", "--rows", "gz.obs:2", "gz.mtx", "gz.mtx"), "expected a component from 1 to 1"),
    ((*TWO, "--scale", "1", "-2"), "--scale -2: expected a number above 0"),
    ((*TWO, "--scale", "1", "2", "3"), "--scale: expected one value or 2"),
    ((*TWO, "--bounds", "1,0"), "expected a lower bound below the upper one"),
    ((*TWO, "--start", "none.mod"), "--start none.mod: expected a number or a model file"),
    ((*TWO, "--tolerance", "1"), "--tolerance 1: expected a number from 0 to below 1"),
    ((*TWO, "--out", "tmi"), "tmi.mtx is among the files to read")])
def test_what_does_not_go_together_is_refused(tools, folder, words, message):
    done = tools("stack", *words, *(() if "--out" in words else ("--out", "two")))
    assert done.status in (1, 2) and message in one_line(done, done.status)
    assert not list(folder.glob("two*"))


def test_earlier_files_are_kept(tools, folder):
    (folder / "two.inp").write_text("mine")
    done = tools("stack", *TWO, "--scale", "1", "1", "--out", "two")
    assert "two.inp: there is such a file already" in one_line(done)
    assert (folder / "two.inp").read_text() == "mine" and not (folder / "two.mtx").exists()


@pytest.mark.parametrize("text", ["", "{}", "[1]", '{"format": "voxlith stack 1"}', "[" * 100000, '{"format": "voxlith stack 1", "nodes": 1}',
                                  '{"format": "voxlith stack 1", "nodes": {"x": [0, 1], "y": [0, 1], "z": [0, 1]}}'])
def test_a_damaged_stack_is_refused(tools, stack, folder, text):
    stack(*TWO, "--scale", "1", "1", "--out", "two")
    (folder / "two.json").write_text(text)
    assert "two.json: expected" in one_line(tools("unstack", ".", "--control", "two.inp"))


def test_the_stack_of_another_run_is_refused(tools, stack, folder):
    stack(*TWO, "--scale", "1", "1", "--out", "two")
    stack(*TWO, "--rows", "tz.obs", "-", "tz.mtx", "--scale", "1", "1", "--out", "three")
    message = one_line(tools("unstack", ".", "--control", "two.inp", "--stack", "three.json"))
    assert "three.json: expected the stack of the run, 960 cells and 96 rows, found 960 and 102" in message


def test_vectors_along_any_directions():
    mesh = Mesh([0, 1], [0, 1, 2], [0, -1])
    directions = [Direction(65.0, 10.0), Direction(0.0, 100.0), Direction(-25.0, 10.0)]
    given = VectorModel(mesh, np.array([0.1, 0.0]), np.array([-0.2, 0.0]), np.array([0.3, 0.0]), 50000.0)
    values = [given.component(direction) for direction in directions]
    again = VectorModel.from_components(mesh, values, directions, 50000.0)
    assert again.vectors == pytest.approx(given.vectors, abs=1e-12)
    assert again.amplitude[0] == pytest.approx(np.sqrt(0.14))
    # 1 SI in 50000 nT is 39.789 A/m.
    assert given.moment() == pytest.approx(39.78874 * np.array([0.1, -0.2, 0.3]), rel=1e-6)
    assert again.model("declination").values[0] == pytest.approx(np.degrees(np.arctan2(0.1, -0.2)))
    assert unit_vector(direction_of([1.0, -2.0, 0.5])) == pytest.approx(np.array([1.0, -2.0, 0.5]) / np.sqrt(5.25))


def test_property_texts():
    assert property_of("p=-20,200", [1]).direction == Direction(-20.0, 200.0)
    assert property_of("density", [0, 12]).unit == "g/cm3" and property_of("mx", [1]).direction == Direction(0.0, 90.0)
    with pytest.raises(UsageError, match="found both"):
        property_of("a", [0, 1])


def test_compact_weights_follow_the_amplitude_of_the_vector():
    mesh = Mesh([0, 1, 2], [0, 1], [0, -1])
    axes = [StackedProperty(name, "SI", direction) for name, direction in (("mx", Direction(0, 90)), ("my", Direction(0, 0)))]
    known = Stack(mesh, (*axes, StackedProperty("density", "g/cm3")), ())
    base = CellWeights(*(np.ones(shape) for shape in section_shapes(2, 3, 1)))
    values = [3.0, 0.0, 4.0, 0.0, 0.0, 2.0]
    assert [one.tolist() for one in amplitudes(known, values)] == [[5.0, 0.0], [0.0, 2.0]]
    eps = next_eps(amplitudes(known, values), None)
    assert eps == pytest.approx((0.5, 0.2))
    found = compact_weights(known, base, values, Compactness(eps, 0.0, 0.1))
    assert found.smallness[0, :, 0] == pytest.approx([1 / 101, 1.0]) and found.smallness[0, :, 1] == pytest.approx([1 / 101, 1.0])
    assert found.smallness[0, :, 2] == pytest.approx([1.0, 1 / 101]) and found.x_difference[0, 0, 0] == 0.1
    unchanged = compact_weights(known, base, values, Compactness(eps, 2.0, 1.0))
    assert all((a == b).all() for a, b in zip(unchanged.sections(), base.sections()))


def test_weights_of_a_stack_are_read_back(stack, folder):
    stack(*TWO, "--scale", "1", "0.05", "--smallness", "1", "2", "--out", "two")
    found = read_weight_files([folder / "two_weights.txt"], SHAPE[0], 2 * SHAPE[1], SHAPE[2])
    assert (found.y_difference[:, :, SHAPE[1] - 1] == 0.0).all() and (found.y_difference > 0.0).sum() == 2 * 9 * 48
    write_weight_file(folder / "again.txt", found)
    assert (folder / "again.txt").read_bytes() == (folder / "two_weights.txt").read_bytes()
    assert Model(Mesh.read("two.msh"), np.zeros(960)).values.size == 960


def test_unstack_warns_of_data_types_that_are_fitted_unevenly(stack, folder, tools, monkeypatch):
    stack(*TWO, "--out", "two")
    assert subprocess.run([BUILD / "voxlith", "two.inp"], cwd=folder, capture_output=True, timeout=60).returncode == 0
    from voxlith.cli import unstack
    fitted = [fit.rms for fit in StackedRun(Run(folder, "two.inp")).fits()]
    for limit, warned in ((0.99 * max(fitted) / min(fitted), True), (1.01 * max(fitted) / min(fitted), False)):
        monkeypatch.setattr(unstack, "_UNEVEN", limit)
        assert ("fitted unevenly, with RMS misfits of" in tools("unstack", ".", "--control", "two.inp", "--no-vtr").errors) == warned


def test_components_reach_the_target_misfit_together(made, stack, folder, tools):
    """TMI, gravity and a borehole: the rounds bring the data of each property to the target."""
    stack(*TWO, "--rows", "tz.obs", "-", "tz.mtx", "--scale", "1", "0.5", "--out", "two")
    done = tools("compact", ".", "--control", "two.inp", "--norm", "2")
    assert done.status == 0 and "warning" not in done.errors, done
    rounds = [line.split(",") for line in (folder / "two_compact.csv").read_text().splitlines()]
    assert rounds[0] == ["round", "rms_Gz", "rms_TMI", "rms_Tz", "amplitude_density", "amplitude_susc", "change"]
    known = Stack.read("two.json")
    last = dict(zip(rounds[0], map(float, rounds[-1])))
    assert last["rms_Gz"] == pytest.approx(1.0, abs=0.06)
    assert [known.components_of(group) for group in known.groups()] == [[0], [1, 2]]
    magnetic = np.sqrt((48 * last["rms_TMI"] ** 2 + 6 * last["rms_Tz"] ** 2) / 54)
    assert magnetic == pytest.approx(1.0, abs=0.06)


@pytest.mark.parametrize(("words", "message"), [
    (("--norm", "3"), "--norm 3: expected a number from 0 to 2"), (("--rounds", "0"), "expected a whole number from 1 to 50"),
    (("--control", "none.inp"), "none.inp: cannot be read")])
def test_wrong_rounds_are_refused(tools, stack, folder, words, message):
    stack(*TWO, "--scale", "1", "1", "--out", "two")
    assert message in one_line(tools("compact", ".", *(words if "--control" in words else ("--control", "two.inp", *words))),
                               1 if "--control" in words else 2)


def test_a_run_that_fails_is_reported(tools, stack, folder):
    stack(*TWO, "--scale", "1", "1", "--out", "two")
    (folder / "two_weights.txt").write_text("1 2 3\n")
    assert "two_weights.txt" in one_line(tools("compact", ".", "--control", "two.inp", "--norm", "2"))


VECTOR = ("--properties", "mx", "my", "mz", "--rows", "tmi.obs", "tmi_x.mtx", "tmi_y.mtx", "tmi_z.mtx")
UTM = SideInfo("EPSG:32633", (450000.0, 5500000.0))


def short_run(folder, name):
    """Two iterations of a stacked run."""
    text = (folder / f"{name}.inp").read_text().splitlines()
    text[11] = "2 0 0"
    (folder / f"{name}.inp").write_text("\n".join(text) + "\n")
    voxlith_run(folder, f"{name}.inp", program="voxlith")


def test_coordinates_and_properties_of_a_vector_reach_exports(made, stack, folder, tools):
    """The reference system goes through stack and unstack; export writes properties, not the copies side by side."""
    _, mesh, _ = made
    write_side_file("tmi.obs", UTM)
    stack(*VECTOR, "--out", "vector")
    assert all(read_side_file(f"vector{ending}") == UTM for ending in (".obs", ".mtx", ".msh"))
    short_run(folder, "vector")
    assert tools("unstack", ".", "--control", "vector.inp").status == 0
    assert all(read_side_file(f"properties/{name}") == UTM for name in ("mesh.msh", "properties.vtr", "TMI.csv"))
    models = StackedRun(Run(folder, "vector.inp")).models()
    done = tools("export", ".", "--control", "vector.inp", "--out", "cells.csv")
    assert done.status == 0 and done.out == f"cells.csv: {mesh.n_cells} active cells\n"
    lines = (folder / "cells.csv").read_text().splitlines()
    assert all(name in lines[0] for name in ("mx", "my", "mz"))
    table = np.array([line.split(",") for line in lines[1:]], dtype=float)
    assert table[:, -3:].sum(axis=0) == pytest.approx([one.values.sum() for one in models], rel=1e-4)
    assert table[:, 1].max() < UTM.shift[1] + mesh.y_nodes[-1]
    assert "--mesh properties/mesh.msh" in one_line(tools("export", "properties", "--out", "a.csv"), 2)


def test_bodies_of_a_stacked_run_are_those_of_each_property(made, stack, folder, tools):
    stack(*TWO, "--scale", "0.1", "0.01", "--bounds", "-1e-5,1e-5", "-0.5,0.5", "--out", "two")
    short_run(folder, "two")
    done = tools("bodies", ".", "--control", "two.inp")
    density, susceptibility = done.out.split("susc (SI)")
    assert done.status == 0 and density.startswith("density (g/cm") and "excess mass Mt" in density and "susceptibility x volume" in susceptibility
    models, bounds = bounded_models(Run(folder, "two.inp"))
    assert [one.upper.max() for one in bounds] == pytest.approx([1e-5, 0.5], rel=1e-5)
    assert "density: " in done.errors and done.errors.count("cells at their bounds") == 1
    assert distribution(models[0], bounds[0]).cells_at_bounds > 0 == distribution(models[1], bounds[1]).cells_at_bounds


def test_bodies_of_a_vector_are_those_of_its_amplitude(made, stack, folder, tools):
    stack(*VECTOR, "--out", "vector")
    short_run(folder, "vector")
    done = tools("bodies", ".", "--control", "vector.inp")
    assert done.status == 0 and done.out.startswith("magnetisation (SI)") and "mx" not in done.out
    shown = report_contents(Run(folder, "vector.inp"), ReportOptions())["recovered"]
    assert shown and {row[0] for row in shown} == {"magnetisation"}


def test_a_report_shows_the_vector_of_a_stacked_run(made, stack, folder, tools):
    _, mesh, _ = made
    stack(*VECTOR, "--out", "vector")
    short_run(folder, "vector")
    contents = report_contents(Run(folder, "vector.inp"), ReportOptions())
    assert contents["vectors"] == {"models": [0, 1, 2], "down": True}
    assert contents["mesh"]["y"] == mesh.y_nodes.tolist() and [one["name"] for one in contents["models"]] == ["mx", "my", "mz"]
    assert tools("report", ".", "--control", "vector.inp", "--vectors", "mx,my,mz").status == 0
    assert "found mx, my, mz" in one_line(tools("report", ".", "--control", "vector.inp", "--vectors", "a,b,c"), 2)
    assert tools("unstack", ".", "--control", "vector.inp", "--no-vtr").status == 0
    assert "expected the folder of a run, found that of voxlith-tools unstack; give" in one_line(tools("report", "properties"), 2)


def test_a_report_shows_each_type_of_data_at_its_stations(stack, folder, tools):
    stack(*TWO, "--rows", "tz.obs", "-", "tz.mtx", "--scale", "1", "0.05", "--out", "two")
    short_run(folder, "two")
    write_side_file("two.obs", read_side_file("two.obs").with_step("component-factors", factors=[4.0, 1.0, 1.0]))
    run = Run(folder, "two.inp")
    contents = report_contents(run, ReportOptions())
    fits = StackedRun(run).fits()
    assert fits[0].rms == pytest.approx(0.5 * np.sqrt(np.mean(run.fit().zscore[0, :48] ** 2)))
    assert [row[:3] for row in contents["fit"]] == [["Gz (mGal)", "48", "0"], ["TMI (nT)", "48", "0"], ["Tz (nT)", "6", "0"]]
    assert [float(row[3]) for row in contents["fit"]] == pytest.approx([fit.rms for fit in fits], abs=1e-4)
    assert ["Stations", "54"] in contents["summary"]  # gravity and total field have the same
    shown = fitted_data(RunByProperty(run), run.fit())
    assert (~np.isnan(shown.observed)).sum(axis=1).tolist() == [48, 48, 6]
    assert shown.predicted[1, 48:96] == pytest.approx(fits[1].predicted)
    assert [one["name"] for one in contents["models"]] == ["density", "susc"]
    assert tools("report", ".", "--control", "two.inp").status == 0
    done = tools("export", ".", "--control", "two.inp", "--out", "cells.vtr")
    assert done.status == 0 and done.out == "cells.vtr: 480 cells, 2 models\n" and "warning: .: the data Gz, TMI" in done.errors


def test_sections_and_data_grids_of_a_stacked_run(made, stack, folder, tools):
    """A section cuts the properties, not the copies; a data grid has a band of each type of data."""
    _, mesh, _ = made
    stack(*TWO, "--scale", "1", "0.05", "--out", "two")
    short_run(folder, "two")
    stacked = StackedRun(Run(folder, "two.inp"))
    done = tools("export", ".", "--control", "two.inp", "--out", "d.tif", "--data-grid", "auto")
    assert done.status == 0 and done.out.startswith("d.tif: 6 bands") and not done.errors
    gravity, magnetic = (one.fit() for one in stacked.fits())
    with rasterio.open("d.tif") as file:
        assert file.units == 3 * ("mGal",) + 3 * ("nT",)
        for first, fit in ((0, gravity), (3, magnetic)):
            middle = int(np.argmin(np.hypot(fit.observed.x - 205.0, fit.observed.y - 250.0)))
            found = next(file.sample([(fit.observed.x[middle], fit.observed.y[middle])]))[first: first + 3]
            spread = float(np.ptp(fit.observed.data))
            assert found[0] == pytest.approx(fit.observed.data[0][middle], abs=0.1 * spread)
            assert found[2] == pytest.approx(found[1] - found[0], abs=1e-3 * spread)
    x = float(mesh.x_centres[2])
    done = tools("export", ".", "--control", "two.inp", "--out", "s.tif", "--section", f"x={x}", "--choose", "2", "--crs", "EPSG:32633")
    assert done.status == 0
    with rasterio.open("s.tif") as file:
        y, z = float(mesh.y_centres[1]), float(mesh.z_centres[0])
        assert next(file.sample([(y, z)]))[0] == pytest.approx(float(stacked.models()[1].value_at(x, y, z)), rel=1e-5)


def test_a_file_that_is_not_of_a_stack_does_no_harm(gravity, tools, copied):
    folder = copied(gravity)
    (folder.folder / "data.json").write_text("{}")
    assert tools("export", folder.folder, "--out", folder.path("cells.csv")).status == 0


def test_files_of_other_coordinates_are_refused(tools, folder):
    write_side_file("tmi.obs", UTM)
    write_side_file("gz.obs", SideInfo("EPSG:32632"))
    done = tools("stack", *TWO, "--scale", "1", "1", "--out", "two")
    assert "gz.obs and tmi.obs: expected the same coordinates, found EPSG:32632 and EPSG:32633" in one_line(done, 2)
    assert not list(folder.glob("two*"))


def test_exchanged_files_are_noticed(stack, folder):
    for axis in "xyz":
        write_side_file(f"tmi_{axis}.mtx", _side("mtx", ["--magnetisation", axis]))
    assert stack(*VECTOR, "--out", "right").errors == ""
    done = stack(*VECTOR[:6], "tmi_y.mtx", "tmi_x.mtx", "tmi_z.mtx", "--out", "wrong")
    assert "tmi_y.mtx: computed with --magnetisation y, but mx is the component along 0,90" in done.errors
    assert done.errors.count("warning") == 2
    assert read_side_file("wrong.mtx") == SideInfo()
    assert _side("mtx-join", ["--magnetisation=-20,200"]).magnetisation == "-20,200" and _side("predict", ["--magnetisation", "x"]).is_empty


@pytest.mark.parametrize(("words", "warned"), [((*VECTOR, "--bounds", "ground.txt"), True), ((*VECTOR, "--bounds", "0,1"), True),
                                               ((*VECTOR, "--bounds", "-1,1"), False), (VECTOR, False),
                                               ((*TWO, "--scale", "1", "1", "--bounds", "ground.txt"), False)])
def test_bounds_without_negative_components_get_a_warning(made, stack, folder, words, warned):
    _, mesh, _ = made
    (folder / "ground.txt").write_text("0 99\n" * mesh.n_cells)
    done = stack(*words, "--out", "bounded")
    assert (f"warning: --bounds {words[-1]}: no component of the magnetisation can be below 0" in done.errors) == warned == bool(done.errors)


def test_the_control_file_says_each_thing_once(stack, folder):
    stack(*VECTOR, "--out", "vector")
    text = (folder / "vector.inp").read_text()
    assert text.count("voxlith-run --target-rms 1 ") == 1 and "denser" not in text
