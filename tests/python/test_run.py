"""Runs: started, followed, stopped, continued; and their results."""

import os
import shutil
import subprocess
import sys
import time

import numpy as np
import pytest
from conftest import BUILD, ROOT, Bench, lay_survey

from voxlith import FileError, Run, RunError, Survey, UsageError
from voxlith.io.bounds_file import write_bounds_file
from voxlith.process import find_program, keyword_arguments

PROGRAM = BUILD / "voxlith"


def open_run(bench, **options):
    return Run(bench.folder, program=PROGRAM, **options)


def test_results_of_a_gravity_run(gravity: Bench):
    run = open_run(gravity)
    assert run.state == "finished" and run.codes() == (0,) and run.data_names() == ["Gz"]
    assert repr(run).endswith("finished)")
    model = run.model()
    assert model.name == "density contrast" and model.unit == "g/cm3" and model.active is None
    assert (model.values >= 0).all() and model.values.max() > 0.01
    assert run.stored_iterations() == [5, 10]
    assert run.model(iteration=5).values.max() != model.values.max()
    assert run.gradient().values.shape == (192,)
    assert (run.initial_model().values == 0.001).all() and (run.reference_model().values == 0.0).all()
    assert run.bounds().upper[0] == 1.0 and (run.weights().smallness == 1.0).all()
    for call in (lambda: run.model(iteration=7), lambda: run.model(1), lambda: run.model("dens")):
        with pytest.raises(RunError):
            call()


def test_data_beside_predictions(gravity: Bench, magnetic: Bench, joint: Bench):
    for bench in (gravity, magnetic, joint):
        run = open_run(bench)
        fit = run.fit()
        table = run.error_table()
        masked = np.isnan(fit.observed.data)
        for component in range(len(table.actual)):
            shown = ~np.isnan(table.actual[component])
            assert not (masked[component] & shown).any()
            np.testing.assert_allclose(fit.observed.data[component, shown], table.actual[component, shown], atol=0.0051)
            np.testing.assert_allclose(fit.predicted[component, shown], table.modelled[component, shown], atol=0.0051)
            np.testing.assert_allclose(fit.zscore[component, shown], table.zscore[component, shown], atol=0.02)
        misfit = np.sqrt(np.nansum(fit.zscore**2) / fit.observed.n_stations)
        assert misfit == pytest.approx(run.table[-1].misfit, rel=2e-3)
    assert np.isnan(open_run(gravity).fit().observed.data).sum() == 2
    used = open_run(magnetic).fit().observed
    np.testing.assert_allclose(used.uncertainty[0], 0.05 * np.abs(used.data[0]) + 2, rtol=1e-5)


def test_results_of_a_joint_run(joint: Bench):
    run = open_run(joint)
    assert run.codes() == (0, 1)
    dens, susc = run.models()
    assert (dens.name, dens.unit) == ("density contrast dens", "g/cm3")
    assert (susc.name, susc.unit) == ("susceptibility susc", "0.5 SI")
    np.testing.assert_array_equal(run.model("susc").values, susc.values)
    assert len(run.models(iteration=5)) == 2
    assert np.isnan(run.observed.data[0, 3]) and np.isnan(run.observed.data[1, 5])
    with pytest.raises(RunError, match="several model types cannot be continued"):
        run.continue_run(3)


def test_a_run_is_followed(gravity: Bench, copied):
    bench = copied(gravity)
    run = open_run(bench)
    with pytest.raises(RunError, match="results of an earlier run"):
        run.start()
    with pytest.raises(RunError, match="no run was started"):
        run.wait()
    run.start(replace_results=True, tradeoff=0.5)
    rows = list(run.follow(0.01))
    run.wait()
    assert [row.iteration for row in rows] == list(range(15)) == [row.iteration for row in run.table]
    assert run.log[-1].tradeoff == 0.5 and "Inversion completed" in run.process.screen()
    run.continue_run(3)
    assert [row.iteration for row in run.follow(0.01)] == [15, 16, 17]
    run.wait()
    assert [log.continued for log in run.log] == [False, True]
    assert run.control.values.restart == 0
    rows = list(Run(bench.folder).follow(0.01))
    assert [row.iteration for row in rows] == list(range(18))


def test_a_run_is_stopped_and_continued(gravity: Bench, copied):
    bench = copied(gravity)
    bench.control(l12="200000")
    run = open_run(bench)
    run.start(replace_results=True)
    with pytest.raises(RunError, match="a run goes on"):
        run.start(replace_results=True)
    last = 0
    for row in run.follow(0.01):
        last = row.iteration
        if last >= 20 and not run.process.stopped:
            assert run.state == "running" and run.model().values.shape == (192,)
            with pytest.raises(RunError, match="within 0.01 s and goes on"):
                run.wait(0.01)
            run.stop()
    run.stop()
    assert run.state == "unfinished"
    with pytest.raises(RunError, match="was stopped; it can be continued"):
        run.wait()
    run.continue_run(2)
    first, second = [row.iteration for row in run.follow(0.01)]
    run.wait()
    assert second == first + 1 > last
    assert run.state == "finished"
    assert not list(bench.folder.glob("*.part"))  # the next run removes what a stopped one left


def test_an_interrupted_script_loses_no_run(gravity: Bench, copied):
    bench = copied(gravity)
    bench.control(l12="3000")
    script = (f"import sys; sys.path.insert(0, {str(ROOT / 'python')!r})\n"
              f"from voxlith import Run\nrun = Run({str(bench.folder)!r}, program={str(PROGRAM)!r})\n"
              "run.start(replace_results=True)\nprint(run.process.pid)\n")
    subprocess.run([sys.executable, "-c", script], check=True, capture_output=True, timeout=60)
    rows = list(Run(bench.folder).follow(0.05, patience=60.0))
    assert rows[-1].iteration == 3000 and open_run(bench).state == "finished"


def test_a_run_that_ends_with_a_message(gravity: Bench, copied):
    bench = copied(gravity)
    bench.path("data.obs").write_text("30\n1 2 x 4\n")
    run = open_run(bench)
    run.start(replace_results=True)
    assert list(run.follow(0.01)) == []
    with pytest.raises(RunError, match="ended without results: There was an error while reading the data values"):
        run.wait()
    assert run.state == "unfinished"


def test_a_run_that_is_killed(gravity: Bench, copied):
    bench = copied(gravity)
    bench.control(l12="200000")
    run = open_run(bench)
    run.start(replace_results=True)
    os.kill(run.process.pid, 9)
    with pytest.raises(RunError, match="signal 9"):
        run.wait()


def test_nothing_to_continue(gravity: Bench, copied):
    bench = copied(gravity)
    for name in ("voxlith.rho", "voxlith.aux"):
        bench.path(name).unlink()
        with pytest.raises(RunError, match=f"{name}: there is no such file"):
            open_run(bench).continue_run(3)
        bench.path(name).touch()
    with pytest.raises(UsageError, match="iterations 0"):
        open_run(bench).continue_run(0)


def test_a_continued_control_file(gravity: Bench, copied):
    bench = copied(gravity)
    bench.control(l1="1", l12="2")
    run = open_run(bench)
    run.start()
    assert [row.iteration for row in run.follow(0.01)] == [15, 16]


def test_state_of_folders(gravity: Bench, copied, tmp_path):
    with pytest.raises(RunError, match="no such folder"):
        Run(tmp_path / "nowhere")
    (tmp_path / "new").mkdir()
    assert Run(tmp_path / "new").state == "new"
    bench = copied(gravity)
    bench.path("voxlith.log").write_text("nothing\n")
    run = open_run(bench)
    assert run.state == "unfinished"
    for name in ("voxlith.den", "voxlith.rho"):
        bench.path(name).unlink()
    with pytest.raises(RunError, match=r"holds no model yet \(voxlith.rho\)"):
        run.model()
    bench.path("data.mtx").unlink()
    with pytest.raises(FileError, match="data.mtx: cannot be read"):
        run.codes()


def test_cells_that_bounds_fix_at_zero_are_inactive(gravity: Bench, copied):
    bench = copied(gravity)
    pairs = np.tile([-np.inf, np.inf], (192, 1))
    pairs[::4] = 0.0
    write_bounds_file(bench.path("b.txt"), pairs)
    start = np.full(192, 0.001)
    start[::4] = 0.0
    from voxlith.io.model_file import write_model_file
    write_model_file(bench.path("start.den"), start)
    bench.control(l6="start.den", l7="null", l8="b.txt")
    bench.voxlith()
    model = open_run(bench).model()
    assert model.active is not None and not model.active[::4].any() and model.active.sum() == 144
    assert np.array_equal(open_run(bench).initial_model().values, start)


def test_positivity_by_default(magnetic: Bench):
    assert open_run(magnetic).bounds().lower[0] == 0.0
    assert open_run(magnetic).model().name == "susceptibility"


def test_styles_and_tables(bench: Bench):
    lay_survey(bench, mtx=("--style", 2, "--depth-weight", "none"))
    bench.control(l2="2 1", l12="3")
    bench.voxlith()
    run = open_run(bench)
    np.testing.assert_allclose(run.model().slice_at(elevation=100.0).ravel(), run.model().depth_slice(3).ravel())
    assert len(run.apparent_density().value) == len(run.surface_response().x) == len(run.background_fit().x) == 30


def test_doubtful_inputs_are_told_or_read(gravity: Bench, copied):
    bench = copied(gravity)
    text = bench.path("data.obs").read_text().splitlines()
    bench.path("data.obs").write_text("\n".join(["31", *text[1:], text[-1]]) + "\n")
    with pytest.raises(FileError, match="after 30 records"):
        run = open_run(bench)
        assert run.observed
    assert open_run(bench, strict=False).observed.n_stations == 30


def test_keywords():
    assert keyword_arguments(misfit=(0, 0.5), tradeoff=0.1, offset=-2, obs_clip=[(0, 1), (-1, 2.5)], clip_layer=3) == [
        "Misfit=(0,0.5)", "Tradeoff=0.1", "Offset=-2", "ObsClip=(0,1,-1,2.5)", "Clip=3"]
    for bad in ({"misfit": (0, 0)}, {"misfit": (-1, 1)}, {"tradeoff": 0.0}):
        with pytest.raises(UsageError):
            keyword_arguments(**bad)


def test_the_program_is_found(tmp_path, monkeypatch):
    program = tmp_path / "bin" / "voxlith"
    program.parent.mkdir()
    shutil.copy(PROGRAM, program)
    monkeypatch.delenv("VOXLITH_PROGRAM", raising=False)
    assert find_program(program) == str(program)
    monkeypatch.setenv("PATH", str(program.parent))
    assert find_program() == str(program)
    monkeypatch.setenv("VOXLITH_PROGRAM", str(PROGRAM))
    assert find_program() == str(PROGRAM)
    monkeypatch.setenv("VOXLITH_PROGRAM", str(tmp_path / "nowhere"))
    with pytest.raises(RunError, match=r"nowhere \(from VOXLITH_PROGRAM\): there is no such program"):
        find_program()
    with pytest.raises(RunError, match="elsewhere: there is no such program"):
        find_program("elsewhere")
    monkeypatch.delenv("VOXLITH_PROGRAM")
    with pytest.raises(RunError, match="no-such-program: the program is neither on the PATH nor beside"):
        find_program(name="no-such-program")


def test_a_program_that_cannot_be_started(gravity: Bench, copied, tmp_path):
    script = tmp_path / "program"
    script.write_text("#!/nowhere/at/all\n")
    script.chmod(0o755)
    with pytest.raises(RunError, match="cannot be started"):
        Run(copied(gravity).folder, program=script).start(replace_results=True)


def test_a_program_that_does_not_stop_is_killed(gravity: Bench, copied, tmp_path):
    script = tmp_path / "program"
    script.write_text("#!/bin/sh\ntrap '' TERM\necho going\nwhile true; do sleep 0.1; done\n")
    script.chmod(0o755)
    run = Run(copied(gravity).folder, program=script)
    run.start(replace_results=True)
    while "going" not in run.process.screen():
        time.sleep(0.02)
    run.process.stop(0.1)
    assert not run.process.running


def test_surveys_of_a_run_are_written_again(gravity: Bench, tmp_path):
    run = open_run(gravity)
    run.predicted.write(tmp_path / "p.obs")
    np.testing.assert_array_equal(Survey.read(tmp_path / "p.obs").data, run.predicted.data)
