"""Sensitivity files in parts, by jobs that are stopped, on any number of threads: the bytes are those of one job."""

import os
import signal
import subprocess
import time
from pathlib import Path

import numpy as np
import pytest
from conftest import BUILD, DIRECTION, FIELD, one_line

from voxlith import Mesh, Survey

CELLS = (32, 24, 16)
STATIONS = 120
SURVEY = ("--mesh", "mesh.msh", "--stations", "s.obs")
HILL = "3\n0 0 60\n700 0 -40\n0 500 60\n"


@pytest.fixture
def folder(tmp_path):
    """A mesh, and stations above it: about 1 MB of rows."""
    Mesh.from_widths((0.0, 0.0, 0.0), CELLS[0] * [20.0], CELLS[1] * [20.0], CELLS[2] * [10.0]).write(tmp_path / "mesh.msh")
    random = np.random.default_rng(7)
    Survey(random.uniform(0, 640, STATIONS), random.uniform(0, 480, STATIONS), np.full(STATIONS, 80.0),
           np.zeros((1, STATIONS)), (1,), field=FIELD, direction=DIRECTION).write(tmp_path / "s.obs")
    (tmp_path / "hill.topo").write_text(HILL)
    return tmp_path


@pytest.fixture
def mtx(tools, folder):
    """Runs mtx or mtx-join for the survey; the file that it wrote, as bytes."""
    def run(out, *options, command="mtx", kind="tmi"):
        done = tools(command, *SURVEY, "--type", kind, "--out", out, *options)
        assert done.status == 0, done.errors
        return (folder / out).read_bytes()
    return run


@pytest.mark.parametrize("options", [(), ("--topography", "hill.topo"), ("--form", "bare"), ("--taps", "6", "--version", "1"),
                                     ("--form", "record"), ("--style", "2", "--layers", "1"),
                                     ("--magnetisation", "-20,200", "--boreholes", "--cavity", "sphere")],
                         ids=["plain", "terrain", "bare", "version1", "record", "apparent", "remanent"])
def test_parts_make_the_file_of_one_job(mtx, options):
    whole = mtx("mag.mtx", *options)
    for number in (1, 2, 3):
        mtx(f"mag{number}.mtx", *options, "--rows", f"{number}/3")
    ordered = options[:1] == ("--form",)  # forms without stations
    parts = ["mag1.mtx", "mag2.mtx", "mag3.mtx"] if ordered else ["mag3.mtx", "mag1.mtx", "mag2.mtx"]
    assert mtx("mag_joined.mtx", *options, *parts, command="mtx-join") == whole
    assert mtx("mag_ranges.mtx", *options, "--threads", "5") == whole


def test_a_part_has_the_depth_weight_of_the_survey(mtx):
    mtx("a.mtx", "--rows", "1:7", kind="gz")
    mtx("b.mtx", "--rows", f"8:{STATIONS}", kind="gz")
    assert mtx("joined.mtx", "a.mtx", "b.mtx", command="mtx-join", kind="gz") == mtx("whole.mtx", kind="gz")


def test_a_part_of_another_magnetisation_is_refused(mtx, tools):
    mtx("a.mtx", "--rows", "1/2", "--magnetisation", "x")
    mtx("b.mtx", "--rows", "2/2", "--magnetisation", "y")
    done = tools("mtx-join", *SURVEY, "--type", "tmi", "--out", "x.mtx", "--magnetisation", "x", "a.mtx", "b.mtx")
    assert one_line(done).endswith("b.mtx: expected the responses of the options, found others; compare --magnetisation, "
                                   "--cavity and --topography")


def test_stations_that_repeat_are_joined(mtx, folder):
    lines = (folder / "s.obs").read_text().splitlines()
    head = len(lines) - STATIONS
    (folder / "s.obs").write_text("\n".join(lines[:head] + STATIONS * [lines[-1]]) + "\n")
    whole = mtx("whole.mtx")
    mtx("a.mtx", "--rows", "1:50")
    mtx("b.mtx", "--rows", f"51:{STATIONS}")
    assert mtx("joined.mtx", "b.mtx", "a.mtx", command="mtx-join") == whole


@pytest.mark.parametrize(("rows", "message"), [
    ("0:3", "expected A:B"), ("3:2", "expected A:B"), ("3", "expected A:B"), ("1:2:3", "expected A:B"),
    ("0/4", "expected A:B"), ("5/4", "expected A:B"), ("1.5:2", "expected A:B"), (f"1:{STATIONS + 1}", "has 120 rows"),
    ("1/500", "has only 120 rows")])
def test_impossible_rows(tools, folder, rows, message):
    done = tools("mtx", *SURVEY, "--type", "tmi", "--out", "x.mtx", "--rows", rows)
    assert message in one_line(done)
    assert not (folder / "x.mtx").exists()


def test_parts_that_do_not_fit(tools, mtx, folder):
    mtx("a.mtx", "--rows", "1:50")
    mtx("b.mtx", "--rows", "51:100")
    mtx("c.mtx", "--rows", "90:120")
    mtx("gz.mtx", "--rows", "1:50", kind="gz")

    def message(*arguments):
        text = one_line(tools("mtx-join", *SURVEY, "--type", "tmi", "--out", "x.mtx", *arguments))
        assert not (folder / "x.mtx").exists()
        return text
    assert message("a.mtx", "b.mtx") == "no part contains rows 101 to 120"
    assert message("c.mtx", "b.mtx", "a.mtx") == "b.mtx: row 90 is also in another part"
    assert message("a.mtx", "a.mtx") == "a.mtx: rows 1 to 50 are also in another part"
    assert message("gz.mtx") == "gz.mtx: expected the data type of the options, found another"
    assert message("a.mtx", "--taps", "8") == "a.mtx: expected the filter of the options, found another"
    # The field of the stations is another, too: a warning before the error.
    other = tools("mtx-join", *SURVEY, "--type", "tmi", "--out", "x.mtx", "a.mtx", "--field", "1,2,50000")
    assert other.status == 1 and "warning: s.obs: its inducing field is 60,5,50000" in other.errors
    assert other.errors.endswith("voxlith-tools: a.mtx: expected the field of the options, found another\n")
    assert message("a.mtx", "--depth-weight", "9,2") == "a.mtx: expected the depth weight of the options, found another"
    assert "cannot be opened" in message("none.mtx")
    (folder / "cut.mtx").write_bytes((folder / "a.mtx").read_bytes()[:-9])
    assert message("cut.mtx").startswith("cut.mtx: ")
    same = tools("mtx-join", *SURVEY, "--type", "tmi", "--out", "a.mtx", "a.mtx")
    assert "expected another file than that of the parts" in one_line(same, 2)


COMMAND = [str(BUILD / "tools" / "voxlith-forward"), "mtx", *SURVEY, "--type", "tmi", "--out", "r.mtx"]


def limited(folder: Path, blocks: int) -> subprocess.CompletedProcess:
    """A run that fails because it may write files of so many blocks of 512 bytes only."""
    return subprocess.run(["sh", "-c", f"ulimit -f {blocks}; exec {' '.join(COMMAND)}"], cwd=folder, capture_output=True,
                          text=True, timeout=120, check=False)


def killed(folder: Path, size: int) -> None:
    """A run that is killed when it has written so many bytes."""
    unfinished = folder / "r.mtx.unfinished"
    with subprocess.Popen([*COMMAND, "--threads", "1"], cwd=folder, stderr=subprocess.DEVNULL) as process:
        while process.poll() is None and not (unfinished.exists() and unfinished.stat().st_size > size):
            time.sleep(0.001)
        process.kill()
    assert process.returncode == -signal.SIGKILL, "the run ended before it was killed"


def test_a_run_goes_on_where_it_was_killed(tools, mtx, folder):
    whole = mtx("whole.mtx")
    for size in (150_000, 250_000, 450_000):
        killed(folder, size)
        assert not (folder / "r.mtx").exists()
    done = tools("mtx", *SURVEY, "--type", "tmi", "--out", "r.mtx")
    assert done.status == 0 and "r.mtx: continuing after row " in done.errors
    assert (folder / "r.mtx").read_bytes() == whole
    assert not list(folder.glob("r.mtx.*"))


def test_a_run_goes_on_after_a_full_disk(mtx, folder):
    whole = mtx("whole.mtx")
    failed = limited(folder, 700)
    assert failed.returncode == 1 and "cannot be written" in failed.stderr and (folder / "r.mtx.unfinished").exists()
    assert mtx("r.mtx") == whole


@pytest.mark.parametrize("part", ["unfinished", "unfinished.rows"])
@pytest.mark.parametrize("damage", ["cut", "zeros", "empty", "gone"])
def test_lost_bytes_of_a_killed_run_are_computed_again(mtx, folder, part, damage):
    whole = mtx("whole.mtx")
    limited(folder, 900)
    name = folder / f"r.mtx.{part}"
    content = name.read_bytes()
    if damage == "gone":
        name.unlink()
    else:
        half = len(content) // 2
        name.write_bytes({"cut": content[:half + 3], "zeros": content[:half] + bytes(len(content) - half), "empty": b""}[damage])
    assert mtx("r.mtx") == whole


@pytest.mark.parametrize("options", [("--tolerance", "0.02"), ("--rows", "2:90"), ("--taps", "6"), ("--field", "1,2,40000")])
def test_rows_of_other_options_are_not_taken(tools, mtx, folder, options):
    expected = mtx("whole.mtx", *options)
    limited(folder, 900)
    done = tools("mtx", *SURVEY, "--type", "tmi", "--out", "r.mtx", *options)
    assert done.status == 0 and "going on" not in done.errors
    assert (folder / "r.mtx").read_bytes() == expected


def test_two_processes_do_not_write_one_file(tools, folder):
    import fcntl
    limited(folder, 900)
    with open(folder / "r.mtx.unfinished", "rb") as other:
        fcntl.flock(other, fcntl.LOCK_EX)
        before = os.stat(other.fileno()).st_size
        done = tools("mtx", *SURVEY, "--type", "tmi", "--out", "r.mtx")
        assert one_line(done) == "r.mtx.unfinished: another process is writing this file"
        assert os.stat(other.fileno()).st_size == before
