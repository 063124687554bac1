"""Control files written for given data: the program takes them as they stand and fits the data."""

import os
import re
import subprocess

import numpy as np
import pytest
from conftest import BUILD, DIRECTION, FIELD, one_line

from voxlith import Mesh, Model, Run, Survey
from voxlith.checks.background import background_values
from voxlith.io.control_file import read_control_file

KINDS = {"gz": 0, "tmi": 1}


@pytest.fixture
def survey(tools, tmp_path):
    """Makes data of a block, and their sensitivities; a new kind replaces the data but no sensitivity file."""
    x, y = (a.ravel() for a in np.meshgrid(np.arange(1000.0, 1801, 100), np.arange(0.0, 801, 100)))
    mesh = Mesh.from_widths((600.0, -400.0, 250.0), 16 * [100.0], 16 * [100.0], 8 * [50.0])
    mesh.write(tmp_path / "mesh.msh")
    cx, cy, cz = mesh.centres().T
    inside = (abs(cx - 1400) < 160) & (abs(cy - 400) < 160) & (cz < 200) & (cz > 0)

    def make(kind, value, mtx="g.mtx", weight=()):
        field = (FIELD, DIRECTION) if kind == "tmi" else (None, None)
        Survey(x, y, np.full(81, 250.0), np.zeros((1, 81)), (KINDS[kind],), field=field[0],
               direction=field[1]).write(tmp_path / "s.obs")
        Model(mesh, np.where(inside, value, 0.0)).write(tmp_path / "true.mod")
        noise = "2,0.01" if kind == "gz" else "2,1"
        for words in (("predict", "--stations", "s.obs", "--model", "true.mod", "--noise", noise, "--out", "d.obs"),
                      ("mtx", "--stations", "d.obs", "--out", mtx, *weight)):
            done = tools(*words, "--mesh", "mesh.msh", "--type", kind)
            assert done.status == 0, done.errors
        return Survey.read(tmp_path / "d.obs", kind)
    return make


@pytest.fixture
def two_kinds(survey, tmp_path):
    """Gravity of one block and total field of another one in one data file; gz.mtx and tmi.mtx."""
    def make(density, susceptibility, gravity_weight="40,3"):
        magnetic = survey("tmi", susceptibility, "tmi.mtx", ("--depth-weight", "40,3"))
        gravity = survey("gz", density, "gz.mtx", ("--depth-weight", gravity_weight))
        Survey(gravity.x, gravity.y, gravity.elevation, np.vstack([gravity.data, magnetic.data]), (0, 1),
               np.vstack([gravity.uncertainty, magnetic.uncertainty])).write(tmp_path / "d.obs")
        return ("--data", "d.obs", "--mtx", "gz.mtx", "tmi.mtx")
    return make


GRAVITY = ("--data", "d.obs", "--mtx", "g.mtx")


def run(folder, *options):
    done = subprocess.run([BUILD / "voxlith-run", "voxlith.inp", *options], cwd=folder, capture_output=True, timeout=120)
    assert done.returncode == 0, done
    return Run(folder)


def misfits(run):
    return [row.misfit for row in run.table]


def test_gravity_data_are_fitted(survey, tools, tmp_path):
    survey("gz", 0.4)
    done = tools("init", *GRAVITY, "--mesh", "mesh.msh")
    text = (tmp_path / "voxlith.inp").read_text()
    assert done.status == 0 and done.errors == "" and text in done.out
    assert "\nRun it with: voxlith-run voxlith.inp --target-rms 1 --model-norm blocky\n" in done.out
    assert "81 records, 0 dummies" in done.out
    found = misfits(run(tmp_path, "--target-rms", "1"))
    assert found[0] > 5 and 0.98 < found[-1] < 1.02


def test_magnetic_data_give_a_positive_model(survey, tools, tmp_path):
    survey("tmi", 0.05)
    assert tools("init", *GRAVITY, "--weights", "none").status == 0
    control = read_control_file(tmp_path / "voxlith.inp")
    assert control.values.positivity == 1
    assert control.values.bounds == "0,1"
    done = run(tmp_path, "--target-rms", "1")
    assert 0.98 < misfits(done)[-1] < 1.02 and done.model().values.min() >= 0.0


def test_bounds_below_0_allow_both_signs_of_magnetic_data(survey, tools, tmp_path):
    survey("tmi", 0.05)
    (tmp_path / "topo.csv").write_text("x,y,z\n" + "".join(f"{x},{y},{z}\n" for x, z in ((500, 90), (1400, 200)) for y in (-500, 1300)))
    done = tools("mtx", "--mesh", "mesh.msh", "--stations", "d.obs", "--type", "tmi", "--out", "g.mtx", "--topography", "topo.csv",
                 "--ground-bounds", "-1,1")
    assert done.status == 0, done.errors
    done = tools("init", *GRAVITY)
    assert done.status == 0 and "  g_bounds.txt: bounds of g.mtx, with" in done.out
    values = read_control_file(tmp_path / "voxlith.inp").values
    assert (values.positivity, values.bounds) == (0, "g_bounds.txt") and "of lower (-1) susceptibility" in done.out
    done = tools("init", *GRAVITY, "--sign", "positive", "--out", "p.inp")
    assert "those of g_bounds.txt, free sides by 0,1, cut at 0 for positive values" in done.out
    assert tools("init", *GRAVITY, "--bounds", "-0.2,0.3", "--out", "b.inp").status == 0
    assert read_control_file(tmp_path / "b.inp").values.positivity == 0


def test_what_is_asked_for_is_kept(survey, tools, tmp_path):
    survey("gz", 0.4)
    words = ("init", *GRAVITY, "--sign", "positive", "--tradeoff", "0.125", "--iterations", 3, "--bounds", "0,0.7")
    done = tools(*words)
    assert done.status == 0 and "\nRun it with: voxlith-run voxlith.inp --until-converged\n" in done.out
    text = (tmp_path / "voxlith.inp").read_text()
    assert "\n0.125 0.02 1 " in text and "\n0,0.7 " in text
    assert len(misfits(run(tmp_path))) == 4
    assert one_line(tools(*words)) == "voxlith.inp: there is such a file already; --force replaces it"
    assert tools(*words, "--force").status == 0


def test_two_models_are_both_fitted(two_kinds, tools, tmp_path):
    words = two_kinds(0.4, 0.05)
    done = tools("init", *words, "--sign", "either")
    assert done.status == 0 and done.errors == ""
    text = (tmp_path / "voxlith.inp").read_text()
    assert "\n1 1 1 1.0\n1 2 2 1.0\n" in text
    assert "--target-rms 1 --per-component" in done.out
    finished = run(tmp_path, "--target-rms", "1", "--per-component")
    observed, predicted = Survey.read(tmp_path / "d.obs", ["gz", "tmi"]), finished.predicted
    rms = np.sqrt(np.mean(((observed.data - predicted.data) / observed.uncertainty) ** 2, axis=1))
    assert (abs(rms - 1.0) < 0.02).all(), rms


def test_depth_weights_that_differ(two_kinds, tools):
    done = tools("init", *two_kinds(0.4, 0.05, "40,2"))
    assert done.status == 0
    assert "the depth weights of gz.mtx and tmi.mtx differ" in done.errors and done.errors.count("\n") == 1


def test_depth_weight_of_a_third_file(two_kinds, tools, tmp_path):
    """A run compares the parameters of the first two files alone."""
    two_kinds(0.4, 0.05, "40,3")
    gravity = Survey.read(tmp_path / "d.obs", ["gz", "tmi"]).component(0)
    for name, weight in (("alike.mtx", "40,3"), ("other.mtx", "40,2")):
        assert tools("mtx", "--mesh", "mesh.msh", "--stations", "d.obs", "--type", "gz", "--depth-weight", weight, "--out", name).status == 0
    thrice = Survey(gravity.x, gravity.y, gravity.elevation, np.repeat(gravity.data, 3, axis=0), (0, 0, 0),
                    np.repeat(gravity.uncertainties(), 3, axis=0))
    thrice.write("thrice.obs")
    for name in ("alike.mtx", "other.mtx"):
        done = tools("init", "--data", "thrice.obs", "--mtx", "gz.mtx", "gz.mtx", name, "--force")
        assert done.status == 0 and ("the depth weights of gz.mtx and other.mtx differ" in done.errors) == (name == "other.mtx")


def test_components_in_another_order_than_the_files(two_kinds, tools, tmp_path):
    two_kinds(0.4, 0.05, "40,3")
    found = Survey.read(tmp_path / "d.obs", ["gz", "tmi"])
    Survey(found.x, found.y, found.elevation, found.data[[1, 1]], ("tx", "tz"), found.uncertainties()[[1, 1]], field=FIELD,
           direction=DIRECTION).write("m.mag")
    for kind in ("tx", "tz"):
        assert tools("mtx", "--mesh", "mesh.msh", "--stations", "m.mag", "--type", kind, "--out", f"{kind}.mtx").status == 0
    for files, warned in ((("tz.mtx", "tx.mtx"), True), (("tx.mtx", "tz.mtx"), False)):
        done = tools("init", "--data", "m.mag", "--mtx", *files, "--force")
        assert done.status == 0 and ("give the files in the order of the components" in done.errors) == warned


@pytest.mark.parametrize("density, sign, warning", [
    (400.0, "positive", "check the unit of the data"), (0.4, "positive", ""), (-0.4, "negative", ""),
    (0.4, "negative", "are to be negative: check the sign"), (-0.4, "positive", "are to be positive: check the sign")])
def test_data_that_make_no_sense(survey, tools, density, sign, warning):
    survey("gz", density)
    done = tools("init", *GRAVITY, "--sign", sign)
    assert done.status == 0 and warning in done.errors and bool(done.errors) == bool(warning)


def test_what_does_not_belong_together(survey, tools, tmp_path):
    survey("gz", 0.4)
    data = (tmp_path / "d.obs").read_text()
    (tmp_path / "other.msh").write_text("2 2 2\n0 0 0\n2*1\n2*1\n2*1\n")
    moved = data.replace("1100.00", "1150.00", 1)
    for text, words, problem in (
            (moved, GRAVITY, "d.obs, record 2: expected x 1100 as in g.mtx, found 1150"),
            ("1\n1000 0 250 1 1\n", GRAVITY, "d.obs: expected 81 records as in g.mtx, found 1"),
            (f"60 0 50000\n60 0 1\n{data}", GRAVITY, "d.obs, line 1: expected the header of gravity data"),
            (data, (*GRAVITY, "--mesh", "other.msh"), "other.msh: expected 16 x 16 x 8 cells as in g.mtx, found 2 x 2 x 2"),
            (data, ("--data", "d.obs", "--mtx", "g.mtx", "absent.mtx"), "absent.mtx: cannot be read")):
        (tmp_path / "d.obs").write_text(text)
        assert problem.replace(", record", ": record") in one_line(tools("init", *words))
    for words, problem in (
            (("--data", "d.obs", "--mtx", "g|.mtx", "g.mtx"), "expected a name of at most 120 characters"),
            (("--data", "d!.obs", "--mtx", "g.mtx"), "expected a name of at most 80 characters"),
            ((*GRAVITY, "--out", "d.obs", "--force"), "--out d.obs: expected another file than that of --data"),
            ((*GRAVITY, "--bounds", "1,0"), "--bounds 1,0: expected a lower bound below the upper one"),
            ((*GRAVITY, "--sign", "posi"), "--sign posi: expected one of auto, negative, either, positive; did you mean "
                                           "positive?")):
        assert problem in one_line(tools("init", *words), 2)
    assert not os.path.exists(tmp_path / "voxlith.inp")


@pytest.fixture
def hill(survey, tools, tmp_path):
    """The survey over a terrain that leaves inactive cells in the two uppermost layers."""
    survey("gz", 0.4)
    rows = [f"{x},{y},{200.0 - 0.08 * abs(x - 1400.0)}" for x in (500, 1400, 2300) for y in (-500, 1300)]
    (tmp_path / "topo.csv").write_text("x,y,z\n" + "\n".join(rows) + "\n")
    done = tools("mtx", "--mesh", "mesh.msh", "--stations", "d.obs", "--type", "gz", "--out", "g.mtx", "--topography", "topo.csv")
    assert done.status == 0, done.errors
    return Mesh.read(tmp_path / "mesh.msh")


def inactive_of(tmp_path, mesh):
    from voxlith.terrain_input import read_terrain
    x, y = np.meshgrid(mesh.x_centres, mesh.y_centres)
    surface, _ = read_terrain(tmp_path / "topo.csv", np.column_stack([x.ravel(), y.ravel()]), 50.0)
    return ~mesh.active_cells(surface)


def test_inactive_cells_follow_by_themselves(hill, tools, tmp_path):
    done = tools("init", *GRAVITY, "--sign", "positive", "--iterations", 5)
    assert done.status == 0 and "voxlith_bounds.txt: bounds those of g_bounds.txt" in done.out
    assert "voxlith_start.mod" in done.out
    control = read_control_file(tmp_path / "voxlith.inp")
    assert (control.values.initial_model, control.values.bounds) == ("voxlith_start.mod", "voxlith_bounds.txt")
    inactive = inactive_of(tmp_path, hill)
    assert 0 < inactive.sum() < hill.n_cells / 2
    start = Model.read(tmp_path / "voxlith_start.mod", hill).values
    assert (start[inactive] == 0.0).all() and np.allclose(start[~inactive], 0.001)
    run(tmp_path)
    model = Model.read(tmp_path / "voxlith.den", hill).values
    assert (model[inactive] == 0.0).all() and model[~inactive].max() > 0.01 and model.min() >= 0.0


def test_bounds_of_a_lithology_are_taken_as_they_are(hill, tools, tmp_path):
    from voxlith.io.bounds_file import read_bounds_file, write_bounds_file
    pairs = read_bounds_file(tmp_path / "g_bounds.txt", hill.n_cells)
    pairs[pairs[:, 0] < pairs[:, 1]] = [0.1, 2.5]
    write_bounds_file(tmp_path / "g_bounds.txt", pairs)
    done = tools("init", *GRAVITY, "--sign", "positive")
    assert done.status == 0 and "g_bounds.txt: bounds of g.mtx" in done.out


def test_bounds_that_are_asked_for_fix_inactive_cells_too(hill, tools, tmp_path):
    done = tools("init", *GRAVITY, "--bounds", "-0.5,0.5", "--out", "other.inp")
    assert done.status == 0 and "other_bounds.txt" in done.out
    from voxlith.io.bounds_file import read_bounds_file
    pairs = read_bounds_file(tmp_path / "other_bounds.txt", hill.n_cells)
    inactive = inactive_of(tmp_path, hill)
    assert (pairs[inactive] == 0.0).all() and (pairs[~inactive] == [-0.5, 0.5]).all()


def test_bounds_that_forget_inactive_cells_are_refused(hill, tools, tmp_path):
    from voxlith.io.bounds_file import write_bounds_file
    write_bounds_file(tmp_path / "g_bounds.txt", np.tile([0.0, 1.0], (hill.n_cells, 1)))
    assert "inactive cells to be fixed" in one_line(tools("init", *GRAVITY))
    assert not (tmp_path / "voxlith.inp").exists()
    (tmp_path / "g_bounds.txt").unlink()
    assert tools("init", *GRAVITY, "--sign", "positive").status == 0
    assert "voxlith_bounds.txt" in (tmp_path / "voxlith.inp").read_text()


def test_weights(survey, tools, tmp_path):
    survey("gz", 0.4)
    assert tools("init", *GRAVITY, "--weights", "none", "--out", "plain.inp").status == 0
    assert (tmp_path / "plain.inp").read_text().splitlines()[9].startswith("null ")
    assert not (tmp_path / "plain_weights.txt").exists()
    done = tools("init", *GRAVITY, "--sign", "positive")
    assert done.status == 0 and "voxlith-run voxlith.inp --target-rms 1" in done.out
    lines = (tmp_path / "voxlith.inp").read_text().splitlines()
    assert lines[8].startswith("1 1 1 1 ") and lines[9].startswith("voxlith_weights.txt ")
    from voxlith.io.weight_file import read_weight_files
    assert (np.diff(read_weight_files([tmp_path / "voxlith_weights.txt"], 16, 16, 8).smallness[:, 8, 8]) < 0.0).all()


def test_what_check_would_say_stands_in_warnings(survey, tools, tmp_path):
    made = survey("gz", 0.4)
    data = made.data.copy()
    data[0, 40] = -9999.0
    made.with_data(data + 12.0 * (data > -9000.0)).write(tmp_path / "d.obs")
    errors = tools("init", *GRAVITY).errors
    assert "1 datum of -9999" in errors and "have a constant offset of 12" in errors


def test_a_background_that_rocks_do_not_have(survey, tools, tmp_path):
    """A slope across the survey would be fitted by a layer of hundreds of g/cm3."""
    made = survey("gz", 0.4)
    made.with_data(made.data + 0.05 * (made.x - 1000.0) + 0.03 * made.y).write(tmp_path / "d.obs")
    done = tools("init", *GRAVITY)
    assert done.status == 0 and "which rocks do not have" in done.errors and "leave 0 as the background on line 2" in done.errors
    checked = tools("check", "d.obs", "--control", "voxlith.inp")
    assert checked.status == 0 and "warning  background" in checked.out
    text = (tmp_path / "voxlith.inp").read_text()
    for line, words in (("2 1 0", "removes a fitted background of a density contrast of"), ("2 2 30", "a background of a density "
                         "contrast of 30 g/cm3")):
        (tmp_path / "voxlith.inp").write_text(text.replace("2 0 0", line, 1))
        checked = tools("check", "d.obs", "--control", "voxlith.inp")
        assert checked.status == 1 and "error    background" in checked.out and words in checked.out
    (tmp_path / "voxlith.inp").write_text(text.replace("2 0 0", "2 2 0.3", 1))
    assert "background" not in tools("check", "d.obs", "--control", "voxlith.inp").out


def test_fitted_background_is_that_of_a_run(survey, tools, tmp_path):
    made = survey("gz", 0.4)
    made.with_data(made.data + 5.0 + 0.001 * (made.x - 1000.0) ** 2 / 100.0).write(tmp_path / "d.obs")
    assert tools("init", *GRAVITY, "--iterations", 1).status == 0
    text = (tmp_path / "voxlith.inp").read_text()
    (tmp_path / "voxlith.inp").write_text(text.replace("2 0 0", "2 1 0", 1))
    run(tmp_path)
    removed = re.search(r"Background Value Removed: *(\S+)", (tmp_path / "voxlith.log").read_text())
    values = background_values(Survey.read(tmp_path / "d.obs", "gz"), [tmp_path / "g.mtx"])
    assert values == [(pytest.approx(float(removed[1]), abs=1e-4), 0)]


def test_no_valid_datum_is_refused(survey, tools, tmp_path):
    made = survey("gz", 0.4)
    for value in (np.nan, -9999.0):
        made.with_data(np.full((1, 81), value)).write(tmp_path / "d.obs")
        assert one_line(tools("init", *GRAVITY)) == "d.obs: expected a valid datum, found none"
    assert not (tmp_path / "voxlith.inp").exists()


def test_sensitivities_that_are_no_numbers_are_refused(survey, tools, tmp_path):
    survey("gz", 0.4)
    mesh = Mesh.read(tmp_path / "mesh.msh")
    content = bytearray((tmp_path / "g.mtx").read_bytes())
    end = len(content) - 8 * mesh.n_cells - 4 - 8 * 81 * (mesh.nz + 1)  # of the last row
    content[end - 4:end] = np.float32(np.nan).tobytes()
    (tmp_path / "g.mtx").write_bytes(content)
    assert one_line(tools("init", *GRAVITY)).startswith("g.mtx: expected coefficients that are numbers")


def test_weights_suit_the_model_norm(survey, tools, tmp_path):
    """A blocky norm gets weights that fall off faster, and the command says the norm."""
    from voxlith.io.weight_file import read_weight_files
    survey("gz", 0.4)
    plain = tools("init", *GRAVITY, "--model-norm", "smooth").out
    done = tools("init", *GRAVITY, "--model-norm", "blocky", "--out", "blocky.inp")
    assert done.status == 0 and "Run it with: voxlith-run blocky.inp --target-rms 1 --model-norm blocky\n" in done.out
    assert "--model-norm" not in plain and "can have twice the mass of a body" in done.out
    assert tools("weights", "--mtx", "g.mtx", "--model-norm", "blocky", "--out", "own.txt").out.count("(depth + z0)^-1.4") == 1
    assert (tmp_path / "own.txt").read_bytes() == (tmp_path / "blocky_weights.txt").read_bytes()
    smooth, blocky = (read_weight_files([tmp_path / name], 16, 16, 8).smallness[:6, 8, 8] for name in
                      ("voxlith_weights.txt", "blocky_weights.txt"))
    assert (np.diff(blocky / smooth) < 0.0).all()
    assert "--model-norm" in one_line(tools("init", *GRAVITY, "--model-norm", "sharp", "--out", "s.inp"), 2)


@pytest.mark.parametrize("kind, words, norm", [
    ("gz", (), "blocky"), ("gz", ("--sign", "either"), "blocky"), ("gz", ("--sign", "positive"), "smooth"),
    ("gz", ("--weights", "none"), "smooth"), ("tmi", (), "blocky"), ("tmi", ("--model-norm", "smooth"), "smooth")])
def test_the_norm_with_which_masses_are_right(survey, tools, tmp_path, kind, words, norm):
    """A smooth model of either sign, or of a susceptibility, overstates masses: the command at the end avoids it."""
    survey(kind, 0.4 if kind == "gz" else 0.05)
    said = tools("init", *GRAVITY, *words).out.splitlines()[-1]
    assert said == "Run it with: voxlith-run voxlith.inp --target-rms 1" + (f" --model-norm {norm}" if norm != "smooth" else "")
    if norm != "smooth":
        own = ("weights", "--mtx", "g.mtx", "--model-norm", norm, "--out", "own.txt")
        assert tools(*own).status == 0
        assert (tmp_path / "own.txt").read_bytes() == (tmp_path / "voxlith_weights.txt").read_bytes()


def test_one_layer_has_no_depth_weights(survey, tools, tmp_path):
    survey("gz", 0.4)
    Mesh.from_widths((600.0, -400.0, 250.0), 16 * [100.0], 16 * [100.0], [50.0]).write(tmp_path / "flat.msh")
    words = ("--mesh", "flat.msh", "--stations", "d.obs", "--type", "gz", "--style", 0, "--out", "flat.mtx")
    assert tools("mtx", *words).status == 0
    done = tools("init", "--data", "d.obs", "--mtx", "flat.mtx")
    assert done.status == 0 and "no depth weighting: " in done.out and "--model-norm" not in done.out
    assert (tmp_path / "voxlith.inp").read_text().splitlines()[9].startswith("null ")


@pytest.mark.parametrize("form", ["record", "bare"])
def test_weights_of_other_layouts(survey, tools, tmp_path, form):
    survey("gz", 0.4, weight=("--form", form))
    done = tools("init", *GRAVITY)
    assert done.status == 0 and "voxlith_weights.txt: depth weighting" in done.out, done


def test_files_of_the_user_stay(survey, tools, tmp_path):
    survey("gz", 0.4)
    (tmp_path / "voxlith_weights.txt").write_text("mine\n")
    assert one_line(tools("init", *GRAVITY)) == "voxlith_weights.txt: there is such a file already; --force replaces it"
    assert (tmp_path / "voxlith_weights.txt").read_text() == "mine\n" and not (tmp_path / "voxlith.inp").exists()
    assert tools("init", *GRAVITY, "--force").status == 0
    checked = tools("check", "d.obs", "--control", "voxlith.inp")
    assert checked.status == 0 and "background" not in checked.out
