"""Numbers of pages that rest on measured tables, and the scripts that make the tables."""

from __future__ import annotations

import subprocess
import sys

import pytest
from conftest import BUILD, ROOT

sys.path[:0] = [str(ROOT / "bench"), str(ROOT / "tests" / "docs")]
import broad_anomaly  # noqa: E402
import coupled_structure  # noqa: E402
import results  # noqa: E402
from measured import says, table, unsourced_numbers, with_measured, wrong_statements  # noqa: E402

PAGE = "# Title\n\nThe mass is 1.25 times\nthe truth, see [case 4](a-5.md), at 10^6 cells (1998).\n\n```\n77\n```\n"
GIVEN = ["[case 4]"]


def test_statements_hold_their_numbers_and_no_others():
    right, wrong, absent = (says("mass is {:.2f} times the truth", 1.254), says("mass is {:.2f} times the truth", 1.26),
                            says("depth is {:.0f} m", 3.0))
    assert wrong_statements(PAGE, [right]) == []
    for statement, word in ((wrong, "1.26 times"), (absent, "0 times")):
        fault, = wrong_statements(PAGE, [statement])
        assert word in fault
    assert wrong_statements(with_measured(PAGE, [wrong]), [wrong]) == []
    assert with_measured(PAGE, [right]) == PAGE


def test_numbers_without_a_source_are_found():
    statement = says("is {:.2f} times", 1.25)
    assert unsourced_numbers(PAGE, [statement], GIVEN) == []
    assert [fault.split(":")[1].strip() for fault in unsourced_numbers(PAGE, [], [])] == ["no source for 1.25", "no source for 4"]
    fault, = unsourced_numbers(PAGE, [statement], [*GIVEN, "no such words"])
    assert fault.startswith("not on the page")


def test_tables_name_the_command_that_made_them(tmp_path, monkeypatch):
    monkeypatch.setattr(sys, "argv", ["/some/where/made.py", "--build", "/some/build", "--seed", "3"])
    results.write_table(tmp_path / "made.csv", ["a", "b"], [[1, "x, y"]])
    assert (tmp_path / "made.csv").read_text() == '# bench/made.py --seed 3\na,b\n1,"x, y"\n'


@pytest.mark.parametrize("seed", [0, 4])
def test_broad_anomaly_is_that_of_the_table(seed):
    row = table("broad-anomaly.csv")[seed]
    assert {name: float(row[name]) for name in broad_anomaly.OPTIONS} == pytest.approx(broad_anomaly.too_high(seed), abs=2e-4)


def test_the_page_has_the_series_of_coupled_runs():
    """Each row of the page: mean and range over the noise. The coupling is better for each realisation in overlap and correlation."""
    page = (ROOT / "docs" / "tutorial-boreholes.md").read_text()
    rows = table("coupled-structure.csv")
    for way, title in zip(coupled_structure.WAYS, ("without", "one run with 0.07", "balanced with 0.03")):
        columns = [[float(row[name]) for row in rows if row["coupling"] == way] for name in ("misfit", "correlation", "overlap")]
        assert len(columns[0]) == len(coupled_structure.SEEDS)
        texts = [f"{sum(column) / len(column):.2f} ({min(column):.2f} to {max(column):.2f})" for column in columns]
        assert f"| {title} | {' | '.join(texts)} |" in page
    for name in ("correlation", "overlap"):
        alone, balanced = ([float(row[name]) for row in rows if row["coupling"] == way] for way in ("without", "balanced"))
        assert all(after > before for before, after in zip(alone, balanced, strict=True))


@pytest.mark.slow
def test_a_coupled_run_is_that_of_the_table(tmp_path):
    wanted = [[float(row[name]) for name in ("misfit", "correlation", "overlap")] for row in table("coupled-structure.csv") if row["seed"] == "3"]
    found = coupled_structure.recover(3, BUILD, tmp_path)
    assert [[one.misfit, one.correlation, one.overlap] for one in found] == wanted


def test_scaling_still_runs_on_a_tiny_survey(tmp_path):
    made = tmp_path / "made.csv"
    for words in (["iterations", "--coefficients", "1e4", "--threads", "1"], ["rows", "--side", "4"]):
        subprocess.run([sys.executable, ROOT / "bench" / "scaling.py", *words, "--mesh", "8", "8", "4", "--build", BUILD, "--folder", tmp_path,
                        "--csv", made], check=True, capture_output=True, timeout=60)
    lines = made.read_text().splitlines()
    assert [line.split(",")[0] for line in lines[2:]] == ["what", "iteration", "start", "memory", "row of mtx"]
    assert lines[:2] == ["# bench/scaling.py iterations --coefficients 1e4 --threads 1 --mesh 8 8 4 --csv made.csv",
                         "# bench/scaling.py rows --side 4 --mesh 8 8 4 --csv made.csv"]
    assert len({(row["what"], row["cells"], row["coefficients"], row["threads"]) for row in table("scaling.csv")}) == len(table("scaling.csv"))
