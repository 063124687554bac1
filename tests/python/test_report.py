"""Contents of reports: coarsening, encoding, and what is said of missing results."""

from __future__ import annotations

import base64
import hashlib
import html
import json
import os
import re
import signal
import subprocess
import urllib.request
from pathlib import Path

import hypothesis.strategies as st
import numpy as np
import pytest
from conftest import BUILD, Bench, Tools, block_mesh, lay_survey, one_line
from hypothesis import given

from voxlith import FileError, Mesh, Model, Run, Survey, UsageError
from voxlith.io.tradeoff_table import read_tradeoff_table
from voxlith.report import ReportOptions, report_contents, write_report
from voxlith.report.coarsening import Window, choose_window, shown_values
from voxlith.report.encoding import encode_doubles, encode_singles, encode_steps


def decoded(coded: dict[str, object]) -> np.ndarray:
    content = base64.b64decode(str(coded["data"]))
    if coded["type"] != "u2":
        return np.frombuffer(content, dtype="<" + str(coded["type"]))
    steps = np.frombuffer(content, dtype="<u2")
    return np.where(steps == 65535, np.nan, coded["low"] + steps * coded["step"])  # type: ignore[operator]


numbers = st.lists(st.floats(-1e6, 1e6, width=32) | st.just(float("nan")), min_size=1, max_size=40)


@given(numbers)
def test_encoded_arrays_hold_their_numbers(values: list[float]) -> None:
    array = np.array(values)
    np.testing.assert_array_equal(decoded(encode_singles(array)), array)
    np.testing.assert_array_equal(decoded(encode_doubles(array)), array)
    steps = decoded(encode_steps(array))
    np.testing.assert_array_equal(np.isnan(steps), np.isnan(array))
    known = array[~np.isnan(array)]
    if len(known):
        assert np.nanmax(abs(steps - array)) <= 0.5001 * (known.max() - known.min()) / 65534 + 1e-12 * abs(known).max()


@given(st.tuples(*3 * [st.integers(1, 9)]), st.tuples(*3 * [st.integers(1, 4)]), st.integers(0, 99))
def test_blocks_keep_the_mass(counts: tuple[int, int, int], factors: tuple[int, int, int], seed: int) -> None:
    source = np.random.default_rng(seed)
    nodes = [np.cumsum(source.uniform(1, 5, count + 1)) for count in counts]
    mesh = Mesh(nodes[0], nodes[1], -nodes[2])
    model = Model(mesh, source.normal(size=mesh.n_cells))
    window = Window(slice(0, counts[0]), slice(0, counts[1]), slice(0, counts[2]), factors)
    small, values = window.shown_mesh(mesh), shown_values(model, window)
    assert values.shape == (small.nz, small.ny, small.nx)
    volumes = small.z_widths[:, None, None] * small.y_widths[None, :, None] * small.x_widths
    assert np.isclose((values * volumes).sum(), (model.values * mesh.volumes()).sum(), atol=1e-9)
    if max(factors) == 1:
        np.testing.assert_array_equal(values, model.cube.transpose(0, 2, 1))


def test_blocks_with_few_active_cells_have_no_value() -> None:
    mesh = Mesh([0, 1, 2, 3, 4], [0, 1], [0, -1])
    model = Model(mesh, [np.nan, np.nan, 5.0, np.nan])
    window = Window(slice(0, 4), slice(0, 1), slice(0, 1), (2, 1, 1))
    np.testing.assert_array_equal(shown_values(model, window).ravel(), [np.nan, 5.0])


def test_window_keeps_all_cells_of_the_survey() -> None:
    widths = [800.0, 400.0, 200.0, *20 * [100.0], 200.0, 400.0, 800.0]
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), widths, widths, 40 * [100.0])
    x = np.linspace(1450.0, 3350.0, 20)
    survey = Survey(x, x, np.zeros(20), np.zeros((1, 20)), (0,))
    window = choose_window(mesh, survey)
    shown = window.shown_mesh(mesh)
    assert shown.x_nodes[0] <= 1450 and shown.x_nodes[-1] >= 3350 and shown.nx < mesh.nx and shown.nz < mesh.nz
    assert not window.merges and "padding cells" in window.note(mesh)
    small = choose_window(mesh, survey, 1000)
    assert small.merges and small.shown_mesh(mesh).n_cells <= 1000 and "shown as one" in small.note(mesh)
    assert choose_window(mesh, survey, whole_mesh=True).note(mesh) == ""
    assert choose_window(mesh, None).note(mesh) == ""


def test_policy_allows_what_the_page_holds_alone(gravity: Bench, tmp_path: Path) -> None:
    path = tmp_path / "report.html"
    write_report(Run(gravity.folder), path, ReportOptions(title="</title><script>alert(1)</script>"))
    text = path.read_text()
    policy = html.unescape(re.search(r'Content-Security-Policy" content="([^"]*)"', text)[1])  # type: ignore[index]
    assert policy.startswith("default-src 'none';") and "unsafe" not in policy and "http" not in policy
    scripts = re.findall(r"<script>(.*?)</script>", text, re.DOTALL)
    styles = re.findall(r"<style>(.*?)</style>", text, re.DOTALL)
    assert len(scripts) == len(styles) == 1 and "alert(1)" not in scripts[0]
    for found in (*scripts, *styles):
        assert f"'sha256-{base64.b64encode(hashlib.sha256(found.encode()).digest()).decode()}'" in policy
    assert re.search(r"(src|href)=[\"'](?!data:)", text) is None
    contents = re.search(r'id="contents">(.*?)</script>', text, re.DOTALL)[1]  # type: ignore[index]
    assert json.loads(contents)["title"] == "</title><script>alert(1)</script>"


def test_a_run_without_results(copied, gravity: Bench) -> None:
    bench = copied(gravity)
    for file in bench.folder.glob("voxlith*"):
        if file.name != "voxlith.inp":
            file.unlink()
    contents = report_contents(Run(bench.folder))
    assert contents["models"] == contents["components"] == [] and contents["iterations"] is None
    assert contents["notes"] == ["There is no log yet.", "There is no table of iterations yet.",
                                 "There are no predicted data yet.", "There is no model yet."]
    assert contents["warnings"] == []
    assert ["Data file", "data.obs"] in contents["parameters"]
    bench.path("data.obs").write_text("3\n1 2\n")
    with pytest.raises(FileError, match="data.obs"):
        report_contents(Run(bench.folder))


def test_damaged_results_are_named(copied, gravity: Bench) -> None:
    bench = copied(gravity)
    bench.path("voxlith.den").write_text("1.0\nx\n")
    bench.path("voxlith.pre").write_text("nothing\n")
    warnings = report_contents(Run(bench.folder))["warnings"]
    assert any(text.startswith("The model is left out:") for text in warnings)
    assert any(text.startswith("The predicted data are left out:") for text in warnings)


@pytest.mark.parametrize("line, warning", [
    ("Target RMS misfit 1: not reached, the best is 3.5 with trade-off 0.1\nReason: the cells are too coarse",
     "Target RMS misfit 1 not reached: the best is 3.5 with trade-off 0.1. Reason: the cells are too coarse"),
    ("Target RMS misfit 1 of each component: not reached, no factors bring the worst component nearer",
     "Target RMS misfit 1 of each component not reached: no factors bring the worst component nearer"),
    ("Target RMS misfit 1: the misfit stays below it, 0.5, however large the trade-off",
     "Target RMS misfit 1 not reached: the misfit stays below it, 0.5, however large the trade-off"),
    ("Target RMS misfit 1: reached 1.0003 with trade-off 0.1 after 7 trade-offs", None)])
def test_only_what_spoils_a_result_is_a_warning(copied, gravity: Bench, line: str, warning: str | None) -> None:
    bench = copied(gravity)
    information = ("The trade-offs tried are in voxlith_tradeoff.csv", "The objective, 12.5, is at most 0.0001 % above its minimum")
    with bench.path("voxlith.log").open("a") as log:
        log.write("\n".join((line, *information)) + "\n")
    contents = report_contents(Run(bench.folder))
    assert [text for text in contents["warnings"] if "excess" not in text] == ([warning] if warning else [])
    assert [text for text in information if not text.startswith("The trade-offs tried")] == contents["notes"]
    assert not any(row[0] == "Reason" for row in contents["parameters"])


def test_surroundings(copied, joint: Bench, tmp_path: Path) -> None:
    bench = copied(joint)
    bench.write("true_bodies.json", '{"bodies": [{"name": "a", "x": [2, 1], "y": [1, 2], "elevation": [-5, 0], "model": 2}]}')
    bench.write("voxlith_tradeoff.csv", "tradeoff,rms_misfit,phi_m,more\n1,2,9,0\n0.1,1,16,0\n")
    bench.write("ground.topo", "3\n1000 2000 100\n1800 2600 110\n1000 2600 110\n")
    contents = report_contents(Run(bench.folder), ReportOptions(topography=bench.path("ground.topo")))
    assert contents["bodies"] == [{"name": "a", "model": 2, "x": [1, 2], "y": [1, 2], "elevation": [-5, 0]}]
    assert contents["lcurve"] == {"tradeoff": [1.0, 0.1], "misfit": [2.0, 1.0], "norm": [3.0, 4.0]}
    assert ["Trade-off multiplier", "0.1, found by the run"] in contents["summary"]
    os.utime(bench.path("voxlith_tradeoff.csv"), (0, 0))
    assert report_contents(Run(bench.folder))["lcurve"] is None, "a table that is older than the run"
    assert decoded(contents["terrain"]).shape == (48,) and contents["vectors"] is None
    for text in ("{}", "[", '{"bodies": [{"name": 1}]}', '{"bodies": [{"name": "a", "x": [1], "y": 2, "elevation": 3}]}'):
        bench.write("true_bodies.json", text)
        with pytest.raises(FileError, match="bodies"):
            report_contents(Run(bench.folder))
    bench.path("true_bodies.json").unlink()
    with pytest.raises(UsageError, match="found dens, susc"):
        report_contents(Run(bench.folder), ReportOptions(vectors=("a", "b", "c")))


@pytest.mark.parametrize("text", ["", "a,b\n", "tradeoff,rms_misfit,phi_m\n1,2\n", "tradeoff,rms_misfit,phi_m\n1,2,x\n",
                                  "tradeoff,rms_misfit,phi_m\n1,nan,2\n"])
def test_damaged_tradeoff_table(tmp_path: Path, text: str) -> None:
    path = tmp_path / "table.csv"
    path.write_text(text)
    with pytest.raises(FileError, match="table.csv, line [12]: expected"):
        read_tradeoff_table(path)


def test_ground_is_the_top_of_the_active_cells(tmp_path: Path) -> None:
    bench = Bench(tmp_path / "run")
    lay_survey(bench)
    mesh = block_mesh()
    top = np.where(mesh.centres()[:, 2] > 80.0, 0.0, 1.0)
    bench.write("bounds.txt", "".join(f"0.0 {value}\n" for value in top))
    bench.control(l8="bounds.txt", l6="0.0")
    bench.voxlith()
    contents = report_contents(Run(bench.folder))
    assert set(decoded(contents["terrain"]).tolist()) == {70.0}
    assert np.isnan(decoded(contents["models"][0]["cells"])[: 48]).all()


def test_command(gravity: Bench, tools: Tools, tmp_path: Path) -> None:
    outcome = tools("report", gravity.folder, "--out", "a.html", "--title", "A", "--cells", 1000)
    assert outcome.status == 0 and re.fullmatch(r"a.html: 0.\d\d MB\n", outcome.out)
    assert "<title>A</title>" in Path("a.html").read_text()
    assert "expected a name that ends in .html" in one_line(tools("report", gravity.folder, "--out", "a.den"), 2)
    assert "exclude each other" in one_line(tools("report", gravity.folder, "--out", "a.html", "--follow"), 2)
    assert "together with --follow" in one_line(tools("report", gravity.folder, "--port", 80), 2)
    assert "three labels" in one_line(tools("report", gravity.folder, "--vectors", "a,b"), 2)
    assert "there is no such folder" in one_line(tools("report", "nowhere"))
    assert "nothing.inp" in one_line(tools("report", gravity.folder, "--control", "nothing.inp"))
    assert not Path("report.html").exists()


def test_follow_command_ends_with_the_interrupt(gravity: Bench) -> None:
    command = [str(BUILD / "tools" / "voxlith-tools"), "report", str(gravity.folder), "--follow"]
    program = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    try:
        assert program.stdout is not None
        assert "Ctrl+C" in program.stdout.readline()
        with urllib.request.urlopen(program.stdout.readline().strip() + "status.json", timeout=20) as answer:
            assert json.load(answer)["text"].endswith("The run has finished.")
        program.send_signal(signal.SIGINT)
        _, errors = program.communicate(timeout=20)
        assert (program.returncode, errors) == (0, "")
    finally:
        program.kill()
        program.wait()
