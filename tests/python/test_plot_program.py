"""voxlith-plot as a user starts it: files made, words said, exit status; the documents name its options."""

import os
import re
import shutil
import subprocess

import matplotlib.image
import numpy as np
import pytest
from conftest import BUILD, ROOT, Bench, Outcome, lay_survey

import voxlith
from voxlith.cli.plot import PICTURES, main, make_parser


@pytest.fixture
def plot(capsys):
    def run(*arguments: object) -> Outcome:
        capsys.readouterr()
        try:
            status = main([str(argument) for argument in arguments])
        except SystemExit as end:
            status = int(end.code or 0)
        return Outcome(status, *capsys.readouterr())
    return run


def refused(outcome: Outcome, words: str, status: int = 1) -> None:
    assert outcome.status == status and outcome.errors.count("\n") == 1, outcome
    assert outcome.errors.startswith("voxlith-plot: ") and words in outcome.errors, outcome.errors


def check_png(path):
    pixels = matplotlib.image.imread(path)
    height, width = pixels.shape[:2]
    assert 400 <= width <= 1600 and 250 <= height <= 1600, f"{path}: {width} x {height}"
    assert len(np.unique((pixels[:, :, :3] * 255).astype(int) @ [65536, 256, 1])) > 30, path
    for edge in (pixels[0], pixels[-1], pixels[:, 0], pixels[:, -1]):  # labels would be cut there
        assert (edge[:, :3] > 0.99).all(), f"{path} is cut at an edge"


@pytest.fixture(scope="module")
def lined(tmp_path_factory) -> Bench:
    """A run along named lines."""
    bench = Bench(tmp_path_factory.mktemp("lined"))
    lay_survey(bench)
    survey = voxlith.Survey.read(bench.path("data.obs"), "gz")
    order = np.argsort(survey.y, kind="stable")
    survey = survey.select(order)
    survey.line, survey.time = np.array([f"L{y:.0f}" for y in survey.y]), survey.x.copy()
    survey.write(bench.path("data.obs"))
    bench.tools("mtx", "--mesh", "mesh.msh", "--stations", "data.obs", "--type", "gz", "--out", "data.mtx")
    bench.control(l3="0.01 0.02 0 200")
    bench.voxlith()
    return bench


@pytest.mark.parametrize("kind, names", [
    ("gravity", ["convergence", "data", "sections", "zscores"]),
    ("magnetic", ["convergence", "data", "sections", "zscores"]),
    ("joint", ["convergence", "data_1", "data_2", "sections_dens", "sections_susc", "zscores"]),
    ("lined", ["convergence", "data", "profiles", "sections", "zscores"])])
def test_all_pictures_of_a_run(request, plot, tmp_path, kind, names):
    done = plot(request.getfixturevalue(kind).folder, "--out", tmp_path / "p")
    assert (done.status, done.errors) == (0, "")
    assert done.out.split() == [str(tmp_path / "p" / f"{name}.png") for name in names]
    for name in done.out.split():
        check_png(name)


def test_formats_resolution_and_colours(gravity, plot, tmp_path):
    done = plot(gravity.folder, "--only", "sections", "data", "sections", "--format", "png", "pdf", "svg", "--out", tmp_path,
                "--dpi", 55, "--colormap", "cividis", "--limits", "-0.1,0.2", "--at", "largest")
    assert (done.status, done.errors) == (0, "")
    assert sorted(os.listdir(tmp_path)) == [f"{name}.{kind}" for name in ("data", "sections") for kind in ("pdf", "png", "svg")]
    small = matplotlib.image.imread(tmp_path / "sections.png").shape
    plot(gravity.folder, "--only", "sections", "--out", tmp_path)
    assert matplotlib.image.imread(tmp_path / "sections.png").shape[0] == pytest.approx(2 * small[0], abs=2)


def test_stored_iteration_point_bodies_and_topography(gravity, plot, tmp_path):
    (tmp_path / "b.json").write_text('{"bodies": [{"name": "a", "x": [1, 2], "y": [3, 4], "elevation": [1, 2]}]}')
    (tmp_path / "t.topo").write_text("3\n1000 2000 110\n1800 2000 110\n1000 2600 100\n")
    done = plot(gravity.folder, "--only", "sections", "--out", tmp_path, "--iteration", 10, "--at", "1100,2100,0", "--true",
                tmp_path / "b.json", "--topography", tmp_path / "t.topo", "--whole-mesh")
    assert (done.status, done.errors) == (0, "")
    check_png(tmp_path / "sections.png")


def test_topography_is_any_surface_over_the_mesh(gravity, plot, tmp_path):
    (tmp_path / "t.csv").write_text("Easting,Northing,Height\n1000,2000,110\n1800,2000,110\n1000,2600,100\n")
    done = plot(gravity.folder, "--only", "sections", "--out", tmp_path, "--topography", tmp_path / "t.csv")
    assert (done.status, done.errors) == (0, "")
    (tmp_path / "t.tif").write_bytes(b"II*\0no raster")
    done = plot(gravity.folder, "--only", "sections", "--out", tmp_path, "--topography", tmp_path / "t.tif")
    assert done.status != 0 and "t.tif" in done.errors and len(done.errors.splitlines()) == 1


def test_results_of_another_control_file_are_named(gravity, copied, plot, tmp_path):
    bench = copied(gravity)
    shutil.copy(bench.path("voxlith.inp"), bench.path("second.inp"))
    done = plot(bench.folder, "--control", "second.inp", "--only", "convergence", "--out", tmp_path)
    assert done.status == 0 and "the results are those of voxlith.inp, which ran last in this folder, not of second.inp" in done.errors


def test_a_run_that_goes_on(gravity, copied, plot):
    bench = copied(gravity)
    bench.path("voxlith.den").unlink()
    for name, rows in (("voxlith.aux", 12), ("voxlith.log", 90)):
        text = "\n".join(bench.path(name).read_text().split("\n")[:rows])
        bench.write(name, text[:-5])
    done = plot(bench.folder)
    assert (done.status, done.errors, len(done.out.split())) == (0, "", 4)


def test_a_run_at_its_very_start(gravity, copied, plot):
    bench = copied(gravity)
    for path in bench.folder.iterdir():
        if path.name.startswith("voxlith") and path.name not in ("voxlith.inp", "voxlith.aux"):
            path.unlink()
    bench.write("voxlith.aux", " VoxLith Inversion progress\n\n")
    done = plot(bench.folder)
    assert done.status == 0 and done.out.split() == [str(bench.folder / "plots" / "data.png")]
    lines = done.errors.splitlines()
    assert [line.split(":")[1] for line in lines] == [" no convergence", " no sections", " no zscores"]
    for picture, words in (("convergence", "holds no row yet"), ("sections", "holds no model yet (voxlith.rho)"),
                           ("zscores", "holds no predicted data yet (voxlith.pre)")):
        refused(plot(bench.folder, "--only", picture), words)


def test_nothing_there(tmp_path, plot):
    done = plot(tmp_path)
    assert done.status == 1 and done.out == "" and not any(tmp_path.iterdir())
    assert done.errors.splitlines()[-1] == f"voxlith-plot: {tmp_path}: holds nothing to draw"


def test_damaged_files(gravity, copied, plot):
    bench = copied(gravity)
    good = bench.path("voxlith.den").read_bytes()
    bench.write("voxlith.den", "0.5\nhalf\n")
    refused(plot(bench.folder, "--only", "sections"), f"{bench.folder}/voxlith.den, line 2: ")
    done = plot(bench.folder)  # keeps no other picture from being drawn
    refused(done, "voxlith.den, line 2")
    assert [os.path.basename(path) for path in done.out.split()] == ["convergence.png", "data.png", "zscores.png"]
    bench.path("voxlith.den").write_bytes(good)
    bench.write("true_bodies.json", '{"bodies": 7}')
    refused(plot(bench.folder, "--only", "sections"), 'true_bodies.json, line 1: expected a list "bodies"')
    bench.write("voxlith.pre", "42\n1 2 3 x 5\n")
    refused(plot(bench.folder, "--only", "data"), "voxlith.pre, line ")
    bench.path("voxlith.pre").write_bytes(gravity.path("voxlith.pre").read_bytes())
    bench.path("data.obs").unlink()
    refused(plot(bench.folder, "--only", "zscores"), "data.obs: cannot be read")


@pytest.mark.parametrize("name", ["voxlith.aux", "voxlith.log", "voxlith.pre", "voxlith.den", "voxlith.inp", "data.obs", "data.mtx"])
@pytest.mark.parametrize("damage", ["cut", "words"])
def test_no_file_of_a_run_ends_in_a_traceback(gravity, copied, plot, name, damage):
    bench = copied(gravity)
    content = bench.path(name).read_bytes()
    changed = {"cut": content[: len(content) // 3],
               "words": content[:200] + b" 1e999 nan ** -1 \xff $\\frac{$ " + content[230:]}[damage]
    bench.path(name).write_bytes(changed)
    done = plot(bench.folder, "--dpi", 30)
    assert done.status in (0, 1)
    assert all(line.startswith("voxlith-plot: ") and line.isprintable() for line in done.errors.splitlines()), done.errors


def test_wrong_names(gravity, copied, plot, tmp_path):
    folder = gravity.folder
    refused(plot("/nowhere"), "/nowhere: there is no such folder")
    refused(plot(folder, "--control", "other.inp", "--only", "data"), "other.inp: there is no such file")
    refused(plot(folder, "--true", "/nowhere.json"), "/nowhere.json: there is no such file")
    refused(plot(folder, "--at", "5,2100,0", "--only", "sections"), "x 5 lies outside the mesh, 1000 to 1800", 2)
    refused(plot(folder, "--iteration", 7, "--only", "sections"), "holds no model of iteration 7 (voxlith_iter_007.den)")
    (tmp_path / "plots").write_text("")
    refused(plot(folder, "--out", tmp_path / "plots", "--only", "data"), "plots: cannot be made a folder: File exists")


@pytest.mark.parametrize("words, problem", [
    ((), "FOLDER is required"), (("a", "b"), "b: expected no further argument"),
    ((".", "--only", "map"), "--only map: expected one of convergence, data, sections, vectors, stereonet, zscores"),
    ((".", "--at", "1,2"), "--at 1,2: expected X,Y,Z, peak, largest or middle"),
    ((".", "--format", "gif"), "--format gif: expected one of png, pdf, svg"),
    ((".", "--iteration", "x"), "--iteration: expected a whole number from 0 to 99999, found x"),
    ((".", "--limits", "2,1"), "--limits 2,1: expected two numbers that rise"),
    ((".", "--dpi", "1"), "--dpi: expected a whole number from 30 to 1200, found 1"),
    ((".", "--colormap", "rainbows"), "colour map rainbows: Matplotlib has none of that name"),
    ((".", "--colourmap", "jet"), "--colourmap: no such option; did you mean --colormap?"),
    ((".", "--dpi", "50", "--dpi", "60"), "--dpi: given twice")])
def test_wrong_arguments(plot, words, problem):
    refused(plot(*words), problem, 2)


def test_names_are_never_read_as_mathematics(joint, copied, plot):
    bench = copied(joint)
    bench.write("voxlith.inp", bench.path("voxlith.inp").read_text().replace("dens susc", "$x^ a_b$"))
    for old, new in (("dens", "$x^"), ("susc", "a_b$")):
        bench.path(f"voxlith_{old}.den").rename(bench.path(f"voxlith_{new}.den"))
    done = plot(bench.folder, "--only", "sections")
    assert (done.status, done.errors) == (0, "")


def test_help_and_version_come_at_once():
    for option, words in (("--help", "voxlith-plot run1 --only sections"), ("--version", f"voxlith-plot {voxlith.__version__}")):
        done = subprocess.run([BUILD / "tools" / "voxlith-plot", option], capture_output=True, text=True, timeout=60)
        assert done.returncode == 0 and words in done.stdout


def test_without_matplotlib(gravity, tmp_path):
    (tmp_path / "matplotlib.py").write_text("raise ImportError('none')\n")
    done = subprocess.run([BUILD / "tools" / "voxlith-plot", gravity.folder], capture_output=True, text=True, timeout=60,
                          env={**os.environ, "PYTHONPATH": str(tmp_path)})
    assert done.returncode == 1
    assert done.stderr == ("voxlith-plot: pictures: the Python module matplotlib is missing; install the Debian package "
                           "python3-matplotlib\n")


# Documents

def options():
    return sorted(option for action in make_parser()._actions for option in action.option_strings if option.startswith("--"))


def test_the_page_names_every_option():
    page = (ROOT / "docs" / "pictures-of-a-run.md").read_text()
    assert sorted([*re.findall(r"(?m)^\| `(--[a-z-]+)", page), "--help", "--version"]) == options()
    for picture in PICTURES:
        assert f"*`{picture}`" in page
    for path in re.findall(r"\]\((pictures/.*?)\)", page):
        assert (ROOT / "docs" / path).is_file(), path


def test_the_manual_page_names_every_option():
    page = (BUILD / "pages" / "man" / "voxlith-plot.1").read_text()
    assert sorted(f"--{item}" for item in re.findall(r"(?m)^\.It (?:Fl h , )?Fl Fl ([a-z-]+)", page)) == options()
    for picture in PICTURES:
        assert f"Cm {picture}" in page


def test_the_folder_comes_before_options_that_take_any_number_of_words():
    assert make_parser().format_help().startswith("usage: voxlith-plot FOLDER [OPTIONS]\n")
