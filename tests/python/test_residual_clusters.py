"""Clusters of residuals: found where neighbours agree, and not where noise, or the rounded peak of a smooth model, is alone."""

from __future__ import annotations

import numpy as np
import pytest
from conftest import Bench

from voxlith import Fit, Run
from voxlith.checks import residuals
from voxlith.checks.residuals import check_peak, check_residuals, neighbourhood
from voxlith.report import ReportOptions, report_contents

X, Y = (values.ravel() for values in np.meshgrid(50.0 * np.arange(16), 50.0 * np.arange(16)))
ANOMALY = 3.0 * np.exp(-((X - 200.0) ** 2 + (Y - 200.0) ** 2) / 2.0e4)
NAMES = [f"S{number}" for number in range(256)]


def noise(seed: int) -> np.ndarray:
    return np.random.default_rng(seed).normal(size=256)


def around(x: float, y: float) -> np.ndarray:
    return np.hypot(X - x, Y - y) < 80.0


def test_independent_residuals_are_no_finding() -> None:
    scores = []
    for seed in range(60):
        found = neighbourhood(X, Y, ANOMALY, noise(seed))
        assert found is not None and abs(found.moran) < 0.15
        scores.append(found.score)
        assert not check_residuals(X, Y, ANOMALY, noise(seed), NAMES, "Gz")
    assert abs(np.mean(scores)) < 0.4 and 0.75 < np.std(scores) < 1.25


@pytest.mark.parametrize("sign, word", [(1.0, "above"), (-1.0, "below")])
def test_a_cluster_beside_the_anomaly_is_named(sign: float, word: str) -> None:
    """A body that the mesh cannot show, in a run whose RMS is 1 all the same."""
    residual = 0.85 * noise(5) + sign * 3.5 * around(600.0, 550.0)
    assert np.sqrt(np.mean(residual**2)) == pytest.approx(1.0, abs=0.15)
    residual[7] = np.nan
    finding, = check_residuals(X, Y, ANOMALY, residual, NAMES, "Gz")
    assert finding.name == "residual-clusters" and f"are {word} the observed" in finding.text
    expected = {name for name, near in zip(NAMES, around(600.0, 550.0).tolist()) if near}
    assert finding.stations[0] in expected and len(expected & set(finding.stations)) >= 3
    x, y = (float(part.split()[1]) for part in finding.text.split("around ")[1].split(" the ")[0].split(","))
    assert np.hypot(x - 600.0, y - 550.0) <= 75.0


def test_a_rounded_peak_is_expected() -> None:
    """A smooth model makes the peak of the anomaly smaller; a residual that makes it larger is another matter."""
    peak = around(200.0, 200.0)
    assert not check_residuals(X, Y, ANOMALY, 0.85 * noise(6) - 3.5 * peak, NAMES, "Gz")
    assert not check_residuals(X, Y, -ANOMALY, 0.85 * noise(6) + 3.5 * peak, NAMES, "Gz")
    assert check_residuals(X, Y, ANOMALY, 0.85 * noise(6) + 3.5 * peak, NAMES, "Gz")


@pytest.mark.parametrize("sign", [1.0, -1.0])
def test_a_peak_that_a_model_leaves_is_named(sign: float) -> None:
    """Standard deviations of 0.2 of the peak make the loss large beside it; those of 0.02 do not."""
    peak = around(200.0, 200.0)
    left = 0.85 * noise(6) - sign * 3.0 * peak
    finding, = check_peak(X, Y, sign * ANOMALY, left, np.full(256, 0.3), "Gz")
    assert finding.name == "rounded-peak" and "around x 200, y 200 the model explains 6" in finding.text
    assert not check_peak(X, Y, sign * ANOMALY, left, np.full(256, 0.03), "Gz")
    assert not check_peak(X, Y, sign * ANOMALY, 0.85 * noise(6), np.full(256, 0.3), "Gz")
    assert not check_peak(X, Y, sign * ANOMALY, 0.85 * noise(6) + sign * 3.0 * peak, np.full(256, 0.3), "Gz")
    assert not check_peak(X, Y, ANOMALY, np.full(256, np.nan), np.full(256, 0.3), "Gz")


def test_few_or_equal_residuals_say_nothing() -> None:
    assert neighbourhood(X[:19], Y[:19], ANOMALY[:19], noise(1)[:19]) is None
    assert neighbourhood(X, Y, ANOMALY, np.zeros(256)) is None and neighbourhood(X, Y, ANOMALY, np.full(256, np.nan)) is None
    for constant in (1.0, -1.0):
        assert not check_residuals(X, Y, ANOMALY, np.full(256, constant), NAMES, "Gz")


def test_report_bodies_and_check_warn(tools, copied, gravity: Bench, monkeypatch: pytest.MonkeyPatch) -> None:
    """Predictions of a run that are moved in one corner. Nine of 30 stations raise the RMS, so the limits are lower here."""
    monkeypatch.setattr(residuals, "_LEAST_MEAN", 1.5)
    monkeypatch.setattr(residuals, "_CORRELATED", 2.0)
    run = Run(copied(gravity).folder)

    def warned() -> list[str]:
        return [text for text in report_contents(run, ReportOptions())["warnings"] if "neighbours agree" in text]

    fit = run.fit()
    survey, data = fit.observed, fit.observed.data[0]
    corner = np.argsort(np.hypot(survey.x - survey.x.min(), survey.y - survey.y.min()))[:9]
    # Away from the median, in which a rounded peak does not lie.
    away = 3.0 * survey.uncertainties()[0] * np.sign(np.nanmean(data[corner]) - np.nanmedian(data))
    monkeypatch.setattr(Run, "fit", lambda _: Fit(survey, survey.data + 1.0e-3 * noise(1)[:30] * survey.uncertainties()))
    assert not warned()
    moved = np.isin(np.arange(30), corner) * away
    monkeypatch.setattr(Run, "fit", lambda _: Fit(survey, survey.data + moved))
    text, = warned()
    assert "(record " in text and "map of residuals" in text
    checked = tools("check", run.folder)
    assert checked.status == 0 and "warning  residual-clusters" in checked.out
    assert text in tools("bodies", run.folder).errors
    run.path("voxlith.pre").unlink()
    assert "note     no-predictions" in tools("check", run.folder).out
    assert "neighbours agree" not in tools("bodies", run.folder).errors


def test_check_of_a_folder(tools, copied, gravity: Bench) -> None:
    """Its data, sensitivities and control file, with no other option."""
    folder = copied(gravity).folder
    assert tools("check", folder, "--json", "-").status == 0
    refused = tools("check", folder, "--mtx", "g.mtx")
    assert refused.status == 2 and "--mtx goes with a file" in refused.errors
    assert "cannot be read" in tools("check", folder, "--control", "none.inp").errors
    run = Run(folder)
    data = run.path(run.control.values.data_file)
    lines = data.read_text().splitlines()
    lines[-1], lines[-2] = lines[-2], lines[-1]
    data.write_text("\n".join(lines) + "\n")
    checked = tools("check", folder)
    assert checked.status == 1 and "error    station-order" in checked.out


def test_damaged_predictions_are_said(tools, copied, gravity: Bench) -> None:
    run = Run(copied(gravity).folder)
    run.path("voxlith.pre").write_text("nothing\n")
    done = tools("bodies", run.folder)
    assert done.status == 0 and "the residuals are not looked at: " in done.errors and "core of the mesh" in done.out
