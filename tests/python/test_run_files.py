"""Tables and logs that runs leave."""

import math

import numpy as np
import pytest
from conftest import Bench

from voxlith import FileError, UsageError
from voxlith.io import tables
from voxlith.io.line_search_file import read_line_search_file, write_line_search_file
from voxlith.io.log_file import read_log_file
from voxlith.io.progress_file import IterationRow, read_progress_file, rows_of, write_progress_file


def test_table_of_iterations(gravity: Bench, joint: Bench, tmp_path):
    for bench in (gravity, joint):
        rows = read_progress_file(bench.path("voxlith.aux"))
        assert [row.iteration for row in rows] == list(range(15))
        assert rows[12].steps == 0 and rows[11].steps is None
        assert rows[-1].misfit < rows[0].misfit
        write_progress_file(tmp_path / "again", rows)
        assert (tmp_path / "again").read_bytes() == bench.path("voxlith.aux").read_bytes()


def test_the_starting_model_norm_has_its_root(tmp_path):
    rows = [IterationRow(0, 9.0, 2.0, 9.5), IterationRow(1, 3.0, 1.5, 3.5, 12.3),
            IterationRow(2, 1.0, 1.0, 1.5, 0.1, 9)]
    write_progress_file(tmp_path / "aux", rows)
    assert (tmp_path / "aux").read_text().splitlines()[3].split() == ["0", "9.0000", "4.0000", "9.5000"]
    assert read_progress_file(tmp_path / "aux") == rows


def test_unfinished_and_cut_rows(tmp_path):
    text = """ VoxLith Inversion progress

   Iterations    RMS_Misfit    Model_Norm    Total_Norm      Time
           0       15.4759        0.0000       15.4759
           1       13.13
           1       13.1371        0.0001**************       0.0
   Iterations    RMS_Misfit    Model_Norm    Total_Norm      Time
           2        7.8464        0.54"""
    path = tmp_path / "voxlith.aux"
    path.write_text(text)
    rows = read_progress_file(path)
    assert [row.iteration for row in rows] == [0, 1] and math.isnan(rows[1].total)
    content = text.encode()
    assert rows_of(content, path)[1] == content.rfind(b"\n") + 1
    path.write_text(text + "\n nonsense\n")
    with pytest.raises(FileError, match='line 9: expected a row of the table of iterations, found " nonsense"'):
        read_progress_file(path)
    assert len(read_progress_file(path, strict=False)) == 2


@pytest.mark.parametrize("row", ["           1       13.1371        x.xxxx       13.1371       0.0",
                                 "           1       13.1371        0.0001       13.1371       0.0   9",
                                 "           1       13.1371        0.0001       13.1371       y.0",
                                 "           x       13.1371        0.0001       13.1371       0.0"])
def test_rows_that_are_none(tmp_path, row):
    (tmp_path / "aux").write_text("\n\n\n" + row + "\n")
    with pytest.raises(FileError, match="line 4"):
        read_progress_file(tmp_path / "aux")


def test_line_search_values(bench: Bench, tmp_path):
    write_line_search_file(tmp_path / "lsv", [])
    assert (tmp_path / "lsv").read_text() == " VoxLith Line Search Values\n\n"
    assert read_line_search_file(tmp_path / "lsv").shape == (0, 5)
    write_line_search_file(tmp_path / "lsv", [[1, 0.5, 2, 3, 4], [2, 5, 6, 7, 8]])
    assert read_line_search_file(tmp_path / "lsv").tolist() == [[1, 0.5, 2, 3, 4], [2, 5, 6, 7, 8]]
    for text, message in (("", "line 1: expected two headings"),
                          ("a\n\n1 2 3\n", "line 3: expected an integer and four"),
                          ("a\n\n \n1.5 2 3 4 5\n", "line 4")):
        (tmp_path / "lsv").write_text(text)
        with pytest.raises(FileError, match=message):
            read_line_search_file(tmp_path / "lsv")
    with pytest.raises(UsageError, match="line search"):
        write_line_search_file(tmp_path / "lsv", [[1.5, 2, 3, 4, 5]])


def test_log_of_a_run(gravity: Bench, magnetic: Bench, joint: Bench):
    log = read_log_file(gravity.path("voxlith.log"))[0]
    assert log.finished and not log.continued and log.version == "2.01"
    assert log.started is not None and log.ended is not None and log.started <= log.ended
    assert (log.style, log.data_count, log.cell_count, log.nx, log.ny, log.nz) == (0, 30, 192, 8, 6, 4)
    assert log.data_types == ["Gz"] and log.data_limits == {0: (0.0, 0.5)} and not log.from_disk
    assert log.inputs["Output model"] == "5" and log.inputs["Data file"] == "data.obs"
    assert log.statistics[0].valid == 28
    assert log.start is not None and log.start.model_norm == 0.0 and log.tradeoff == 0.01
    assert list(log.iterations) == list(range(1, 15)) and log.messages == []
    rows = read_progress_file(gravity.path("voxlith.aux"))
    for row in rows[1:]:
        terms = log.iterations[row.iteration]
        assert (terms.misfit, terms.model_norm, terms.total) == (row.misfit, row.model_norm, row.total)
        assert terms.smoothness == pytest.approx(terms.smooth_x + terms.smooth_y + terms.smooth_z, abs=2e-4)
    assert "cpu" in log.minutes and "OH calc_obj" in log.minutes
    magnetic_log = read_log_file(magnetic.path("voxlith.log"))[0]
    assert magnetic_log.data_shift == 2.5 and magnetic_log.data_types == ["TMI"]
    assert "Field values" in magnetic_log.inputs
    joint_log = read_log_file(joint.path("voxlith.log"))[0]
    assert joint_log.data_types == ["Gz", "TMI"] and len(joint_log.statistics) == 2


def test_log_of_a_continued_run_with_background_and_barrier(gravity: Bench, copied):
    bench = copied(gravity)
    bench.control(l2="2 1", l3="0.01 0.02 2", l12="4")
    bench.voxlith()
    bench.control(l1="1", l2="2 1", l3="0.02 0.02 2", l12="3")
    bench.voxlith()
    first, second = read_log_file(bench.path("voxlith.log"))
    assert second.continued and list(second.iterations) == [5, 6, 7] and second.tradeoff == 0.02
    assert first.background_value is not None and first.iterations[1].barrier != 0.0
    for name in (tables.SURFACE_RESPONSE_TABLE, tables.BACKGROUND_FIT_TABLE):
        table = tables.read_background_table(bench.path(name))
        assert len(table.x) == 30 and not np.isnan(table.columns).any()
        tables.write_background_table(bench.path("again"), table)
        assert bench.path("again").read_bytes() == bench.path(name).read_bytes()


def test_logs_that_end_early_or_are_none(bench: Bench, tmp_path):
    bench.control(l4="nowhere.obs")
    bench.voxlith()
    log = read_log_file(bench.path("voxlith.log"))[0]
    assert not log.finished and log.messages == ["Error: the observed data file does not exist:nowhere.obs"]
    (tmp_path / "log").write_text("something\n")
    with pytest.raises(FileError, match="line 1: expected a log, .*found \"something\""):
        read_log_file(tmp_path / "log")
    (tmp_path / "log").write_text("VOXLITH version 2.01 started on: 99/99/2026  08:21:40")
    with pytest.raises(FileError, match="found no line"):
        read_log_file(tmp_path / "log")
    (tmp_path / "log").write_text("VOXLITH version 2.01 started on: 99/99/2026  08:21:40\n"
                                  " Data limits to be applied to observed data: \n   1     x.000     0.500\n\n"
                                  " Observed data: NumValid\n"
                                  "                0              *             *             *\n"
                                  "Iteration:    9\nIteration: ****\nMTX file accessed from disk\n"
                                  "VOXLITH ended on: 99/99/2026\n")
    log = read_log_file(tmp_path / "log")[0]
    assert log.started is None and not log.finished and list(log.iterations) == [9, 10] and log.from_disk
    assert log.statistics[0].valid == 0 and math.isnan(log.statistics[0].minimum)


def test_error_tables(gravity: Bench, joint: Bench):
    for bench, components in ((gravity, 1), (joint, 2)):
        table = tables.read_error_table(bench.path("voxlith_error.dat"))
        assert table.actual.shape == (components, 30)
        tables.write_error_table(bench.path("again"), table)
        assert bench.path("again").read_bytes() == bench.path("voxlith_error.dat").read_bytes()
        assert np.isnan(table.actual).any() and (np.isnan(table.actual) == np.isnan(table.zscore)).all()


def test_apparent_densities(bench: Bench):
    from conftest import lay_survey
    lay_survey(bench, mtx=("--style", 2, "--depth-weight", "none"))
    bench.control(l12="3")
    bench.voxlith()
    table = tables.read_apparent_density_table(bench.path("voxlith_appden.csv"))
    assert len(table.value) == 30 and not np.isnan(table.value).any()
    table.value[4] = np.nan
    tables.write_apparent_density_table(bench.path("again"), table)
    assert np.isnan(tables.read_apparent_density_table(bench.path("again")).value[4])
    text = bench.path("again").read_text().splitlines()
    text[5] = bench.path("voxlith_appden.csv").read_text().splitlines()[5]
    assert "\n".join(text) + "\n" == bench.path("voxlith_appden.csv").read_text()


def test_background_tables_along_lines(bench: Bench):
    from conftest import lay_survey, stations
    from voxlith import Survey
    lay_survey(bench)
    survey = Survey.read(bench.path("data.obs"))
    survey.line = np.array([f"L{int(y)}" for y in stations(0).y])
    survey.time = survey.x - 1000.0
    survey.write(bench.path("data.obs"))
    bench.control(l2="2 1", l3="0.01 0.02 0 200", l12="3")
    bench.voxlith()
    path = bench.path(tables.SURFACE_RESPONSE_TABLE)
    table = tables.read_background_table(path)
    assert table.line is not None and table.line[:7] == 6 * ["L2050"] + ["L2175"]
    assert table.time is not None and table.time[:2].tolist() == [50.0, 190.0]
    assert np.isnan(table.columns[0, 1]).any()
    tables.write_background_table(bench.path("again"), table)
    assert bench.path("again").read_bytes() == path.read_bytes()


@pytest.mark.parametrize("reader, text, message", [
    (tables.read_error_table, "x,y\n", "line 1: expected the heading"),
    (tables.read_error_table, "", "line 1: expected the heading .*found the end of the file"),
    (tables.read_error_table, " x,y,elev,actual,modelled,difference,zscore\n1 2 3\n",
     "line 2: .* in 92 columns, found 5"),
    (tables.read_error_table, " x,y,elev,actual,modelled,difference,zscore\n" + 92 * "x", "line 2: expected a row"),
    (tables.read_apparent_density_table, "       I,           X,           Y,        AppDen\n2,1,1,1\n", "station 1"),
    (tables.read_apparent_density_table, "       I,           X,           Y,        AppDen\n1,1,1\n", "I,X,Y,AppDen"),
    (tables.read_background_table, "     I      X         Y         Z         OBS        Pred        Diff\n     2\n",
     "line 2: expected a row of the table, station 1"),
    (tables.read_background_table,
     "     I      X         Y         Z         OBS        Pred        Diff\n     1   1\n",
     "line 2: expected a row of the table")])
def test_damaged_tables(tmp_path, reader, text, message):
    (tmp_path / "t").write_text(text)
    with pytest.raises(FileError, match=message):
        reader(tmp_path / "t")
