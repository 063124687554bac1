"""What a report shows: everything that the folder of a run holds at this moment, as plain values for the page."""

from __future__ import annotations

import datetime
import json
import math
import os
from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt

from ..checks import check_survey
from ..checks.findings import sentence
from ..checks.results import MOST_CHECKED, residual_clusters
from ..codes import unit_text
from ..errors import FileError, PathLike, RunError, UsageError
from ..io.log_file import RunLog
from ..io.output import read_bytes
from ..io.progress_file import IterationRow
from ..io.tradeoff_table import read_tradeoff_table
from ..model import Model
from ..run import Fit, Run
from ..side_file import read_side_file
from ..stacked_run import RunByProperty, by_property
from ..terrain_input import terrain_over
from .coarsening import MOST_CELLS, Window, choose_window, shown_values
from .encoding import encode_doubles, encode_singles, encode_steps
from .fitted_data import FittedData, fitted_data
from .recovered import recovered_bodies

Contents = dict[str, Any]

TRUE_BODIES = "true_bodies.json"
_EXACT_CELLS = 200_000  # up to here cells are in single precision
_MOST_STATIONS = 200_000
_VECTOR_LABELS = (("mx", "my", "mz"), ("x", "y", "z"), ("east", "north", "down"), ("east", "north", "up"))
_TABLES = ("The trade-offs tried", "The factors tried")  # where they are written; the report shows them
_INFORMATION = ("The objective,", "Without bounds and reference model")
_TARGET, _REASON = "Target RMS misfit", "Reason"
_UPWARDS = ("up", "upwards")  # labels of a component that is not downwards


@dataclass(frozen=True)
class ReportOptions:
    """What a report shows.

    Attributes
    ----------
    title : str
        Heading; by default the name of the folder.
    most_cells : int
        Cells that are shown; larger models are coarsened.
    whole_mesh : bool
        Whether padding cells are shown.
    true_bodies : path or None
        Outlines of true bodies; by default ``true_bodies.json`` of the run, when there is one.
    topography : path or None
        Ground surface, as :func:`voxlith.terrain_input.read_terrain` reads it; by default the top of the active cells.
    vectors : tuple of 3 str, or None
        Labels of the models that are the vector to the east, to the north and down (upwards, when the third one is up);
        by default mx, my, mz.
    tradeoff_table : path or None
        Table of a search for the trade-off multiplier; by default the one in the folder of the run, when there is one.
    """

    title: str = ""
    most_cells: int = MOST_CELLS
    whole_mesh: bool = False
    true_bodies: PathLike | None = None
    topography: PathLike | None = None
    vectors: tuple[str, str, str] | None = None
    tradeoff_table: PathLike | None = None


def report_contents(run: Run, options: ReportOptions | None = None, findings: list[list[str]] | None = None) -> Contents:
    """Collect the contents of a report.

    `findings` are those of an earlier report of the same data, which are not looked for again. Results that the run has not
    written yet are left out; ``notes`` says so. What spoils a result, such as a target that was not reached, is in
    ``warnings``.

    Raises
    ------
    FileError
        When the control file, a sensitivity file or the data cannot be used.
    """
    from .. import __version__
    run = by_property(run)
    chosen = options or ReportOptions()
    notes: list[str] = []
    warnings = [run.results_of_other] if run.results_of_other else []
    log, rows = _log_of(run, notes, warnings), _rows_of(run, notes)
    fit = _fit_of(run, notes, warnings)
    models = _models_of(run, notes, warnings)
    recovered = recovered_bodies(run, models)
    warnings += recovered.warnings
    notes += recovered.notes
    survey = fit.observed if fit is not None else run.observed
    data = None if fit is None else fitted_data(run, fit)
    warnings += _residual_clusters(run, fit)
    window = choose_window(run.mesh, survey, chosen.most_cells, whole_mesh=chosen.whole_mesh)
    if models and window.note(run.mesh):
        notes.append(window.note(run.mesh))
    shown = [_shown_model(model, window) for model in models]
    curve = _tradeoff_curve(run, chosen)
    kept = _kept_stations(survey.n_stations, notes)
    return {
        "title": chosen.title or os.path.basename(os.path.abspath(run.folder)),
        "subtitle": _subtitle(run, log),
        "version": f"Made by voxlith-tools report, version {__version__}, from results of voxlith "
                   f"{log.version if log else 'of unknown version'}.",
        "citation": f"Please cite as: VoxLith, version {__version__}: constrained inversion of gravity and magnetic data.",
        "warnings": warnings, "notes": notes, "live": False, "stamp": "", "status": {"text": ""},
        "summary": _summary(run, log, rows, fit, data, models, curve) + recovered.sums, "recovered": recovered.bodies,
        "fit": _fit_rows(data), "findings": _findings(run) if findings is None else findings,
        "parameters": _parameters(run, log),
        "iterations": _iterations(rows, fit), "noise_level": None if fit is None else 1.0,
        "mesh": _shown_mesh(run, window), "models": shown, "vectors": _vectors(run, chosen, models),
        "terrain": _terrain(run, chosen, models, window, notes), "bodies": _bodies(run, chosen),
        "stations": {"x": encode_doubles(survey.x[kept]), "y": encode_doubles(survey.y[kept]),
                     "elevation": encode_doubles(survey.elevation[kept])},
        "components": _components(data, kept), "lines": _lines(fit, kept),
        "lcurve": curve,
    }


# Reading what there is

def _log_of(run: Run, notes: list[str], warnings: list[str]) -> RunLog | None:
    try:
        log = run.log[-1]
    except FileError:
        notes.append("There is no log yet.")
        return None
    warnings.extend(_missed_targets(log))
    for message in log.messages:
        if message.startswith(_INFORMATION):
            notes.append(message)
        elif not message.startswith(_TABLES):
            warnings.append(f"The log says: {message}")
    return log


def _missed_targets(log: RunLog) -> list[str]:
    """Targets of the misfit that the run has not reached, with the reason where the log has one."""
    found = []
    for key, text in log.inputs.items():
        if key.startswith(_TARGET) and text.startswith("not reached"):
            rest = text.removeprefix("not reached").lstrip(", ")
            found.append(f"{key} not reached: {rest}")
        elif key.startswith(_TARGET) and text.startswith("the misfit stays below it"):
            found.append(f"{key} not reached: {text}")
    if found and log.inputs.get(_REASON):
        found[-1] += f". {_REASON}: {log.inputs[_REASON]}"
    return found


def _rows_of(run: Run, notes: list[str]) -> list[IterationRow]:
    try:
        return run.table
    except FileError:
        notes.append("There is no table of iterations yet.")
        return []


def _fit_of(run: Run, notes: list[str], warnings: list[str]) -> Fit | None:
    try:
        return run.fit()
    except FileError as error:
        if run.path("voxlith.pre").is_file():
            warnings.append(f"The predicted data are left out: {error}")
        else:
            notes.append("There are no predicted data yet.")
        run.observed  # inputs that cannot be used are an error  # noqa: B018
        return None


def _models_of(run: Run, notes: list[str], warnings: list[str]) -> list[Model]:
    try:
        return run.models()
    except RunError:
        notes.append("There is no model yet.")
    except FileError as error:
        warnings.append(f"The model is left out: {error}")
    return []


# Texts

def _number(value: float) -> str:
    """A number as text, with six significant digits."""
    return f"{value:.6g}" if math.isfinite(value) else "no value"


def _subtitle(run: Run, log: RunLog | None) -> str:
    state = {"new": "not started", "running": "running", "finished": "finished", "unfinished": "not finished"}[run.state]
    parts = [f"Run {state}"]
    if log is not None and log.started is not None:
        parts.append(f"started {log.started:%Y-%m-%d %H:%M}")
    if log is not None and log.ended is not None:
        parts.append(f"ended {log.ended:%Y-%m-%d %H:%M}")
    parts.append(f"report of {datetime.datetime.now():%Y-%m-%d %H:%M}")
    return ", ".join(parts)


def _summary(run: Run, log: RunLog | None, rows: list[IterationRow], fit: Fit | None, data: FittedData | None, models: list[Model],
             curve: Contents | None) -> list[list[str]]:
    mesh = run.mesh
    lines = [["Mesh", f"{mesh.nx} x {mesh.ny} x {mesh.nz} cells (east, north, down)"],
             ["Stations", str(_station_count(run))]]
    if rows:
        level = _noise_level(fit)
        last = rows[-1].misfit / level if data is None else _rms(data.zscore)
        lines += [["Iterations", str(rows[-1].iteration)],
                  ["RMS misfit at the start", f"{rows[0].misfit / level:.4f}"], ["RMS misfit at the end", f"{last:.4f}"]]
    if curve is not None and curve["tradeoff"]:
        lines.append(["Trade-off multiplier", f"{_number(curve['tradeoff'][-1])}, found by the run"])
    elif log is not None and log.tradeoff is not None:
        lines.append(["Trade-off multiplier", _number(log.tradeoff)])
    for model in models:
        found = model.values[model.shown]
        if len(found):
            lines.append([model.name[:1].upper() + model.name[1:],
                          f"{_number(float(found.min()))} to {_number(float(found.max()))}"
                          f"{' x' if model.unit[:1].isdigit() else ''} {unit_text(model.unit)}"])
    return lines


def _station_count(run: Run) -> int:
    """Stations of all data; rows of a stacked run at one place are one."""
    if not isinstance(run, RunByProperty):
        return run.headers[0].n_data
    survey = run.observed
    return len(np.unique(np.stack([survey.x, survey.y, survey.elevation]), axis=1).T)


def _rms(zscore: npt.NDArray[np.float64]) -> float:
    """RMS of the residuals of valid data, in standard deviations."""
    used = zscore[~np.isnan(zscore)]
    return math.sqrt(float(np.mean(used**2))) if len(used) else math.nan


def _fit_rows(data: FittedData | None) -> list[list[str]]:
    if data is None:
        return []
    rows = []
    for name, unit, z, masked in zip(data.names, data.units, data.zscore, data.masked):
        valid = int((~np.isnan(z)).sum())
        rows.append([f"{name} ({unit_text(unit)})", str(valid), str(masked), f"{_rms(z):.4f}" if valid else "no value"])
    return rows


def _residual_clusters(run: Run, fit: Fit | None) -> list[str]:
    """Where residuals of neighbours agree, of a run whose misfit may look right."""
    if fit is None:
        return []
    return [sentence(finding) for finding in residual_clusters(run, fit)]


def _noise_level(fit: Fit | None) -> float:
    """What the misfits of the table of iterations are divided by, so that they are those of the valid data."""
    return fit.noise_level or 1.0 if fit is not None else 1.0


def _parameters(run: Run, log: RunLog | None) -> list[list[str]]:
    """Inputs as the log shows them; those of the control file before there is a log."""
    if log is not None:
        return [["Control file", run.control_name], *([key, text] for key, text in log.inputs.items() if text and key != _REASON)]
    values = run.control.values
    return [["Control file", run.control_name], ["Data file", values.data_file],
            ["Sensitivity files", ", ".join(values.mtx_files)], ["Initial model", values.initial_model],
            ["Reference model", values.reference_model], ["Bounds", values.bounds],
            ["Iterations", str(values.max_iterations)]]


def _iterations(rows: list[IterationRow], fit: Fit | None) -> Contents | None:
    """The table of iterations; its misfit is that of the valid data."""
    if not rows:
        return None
    level = _noise_level(fit)
    texts = [[str(row.iteration), f"{row.misfit / level:.4f}", f"{row.model_norm:.4f}", f"{row.total:.4f}", f"{row.seconds:.1f}",
              "" if row.steps is None else str(row.steps)] for row in rows]

    def column(name: str) -> list[float | None]:
        values = [float(getattr(row, name)) for row in rows]
        return [value if math.isfinite(value) else None for value in values]

    return {"iteration": [row.iteration for row in rows], "misfit": [one and one / level for one in column("misfit")],
            "norm": column("model_norm"),
            "total": column("total"), "texts": texts}


# Model and what surrounds it

def _shown_mesh(run: Run, window: Window) -> Contents:
    mesh = window.shown_mesh(run.mesh)
    return {"x": mesh.x_nodes.tolist(), "y": mesh.y_nodes.tolist(), "z": mesh.z_nodes.tolist()}


def _shown_model(model: Model, window: Window) -> Contents:
    values = shown_values(model, window)
    known = values[~np.isnan(values)]
    low, high = (float(known.min()), float(known.max())) if len(known) else (0.0, 0.0)
    cells = encode_singles(values) if values.size <= _EXACT_CELLS else encode_steps(values)
    return {"name": model.name, "unit": unit_text(model.unit), "low": low, "high": high, "cells": cells}


def _vectors(run: Run, options: ReportOptions, models: list[Model]) -> Contents | None:
    known = run.names if isinstance(run, RunByProperty) else run.control.values.labels
    labels = [label.lower() for label in known]
    wanted = [options.vectors] if options.vectors is not None else list(_VECTOR_LABELS)
    for names in wanted:
        if all(name.lower() in labels for name in names):
            found = [labels.index(name.lower()) for name in names]
            return {"models": found, "down": labels[found[2]] not in _UPWARDS} if models else None
    if options.vectors is not None:
        raise UsageError(f"vectors {','.join(options.vectors)}: expected three labels of models, found "
                         f"{', '.join(known) or 'none'}")
    return None


def _terrain(run: Run, options: ReportOptions, models: list[Model], window: Window, notes: list[str]) -> Contents | None:
    """Elevation of the ground at the centre of each shown column, shape (y, x)."""
    shown = window.shown_mesh(run.mesh)
    if options.topography is not None:
        x, y = np.meshgrid(shown.x_centres, shown.y_centres)
        surface, warning = terrain_over(options.topography, run.mesh, run.coordinates)
        if warning:
            notes.append(warning)
        return encode_singles(surface(x, y))
    if not models or models[0].shown.all():
        return None
    active = models[0].mesh.cube(models[0].shown)
    top = np.where(active.any(axis=0), run.mesh.z_nodes[np.argmax(active, axis=0)], np.nan)
    columns = top[window.x, window.y]
    return encode_singles(columns[:: window.factors[0], :: window.factors[1]].T)


def _bodies(run: Run, options: ReportOptions) -> list[Contents]:
    path = run.path(TRUE_BODIES) if options.true_bodies is None else options.true_bodies
    if options.true_bodies is None and not run.path(TRUE_BODIES).is_file():
        return []
    expected = "expected {\"bodies\": [...]} with name, x, y and elevation of each"
    try:
        listed = json.loads(read_bytes(path))["bodies"]
        return [{"name": str(body["name"]), "model": int(body.get("model", 1)),
                 **{axis: _interval(body[axis]) for axis in ("x", "y", "elevation")}} for body in listed]
    except (ValueError, KeyError, TypeError, RecursionError) as error:
        raise FileError(path, expected) from error


def _interval(ends: list[float]) -> list[float]:
    first, second = (float(end) for end in ends)
    return sorted((first, second))


# Data

def _kept_stations(count: int, notes: list[str]) -> npt.NDArray[np.intp]:
    step = -(-count // _MOST_STATIONS)
    if step > 1:
        notes.append(f"Maps and profiles show every {step}th of {count} stations; tables hold all.")
    return np.arange(0, count, max(step, 1))


def _components(data: FittedData | None, kept: npt.NDArray[np.intp]) -> list[Contents]:
    if data is None:
        return []
    return [{"name": name, "unit": unit_text(unit), "observed": encode_singles(data.observed[number, kept]),
             "predicted": encode_singles(data.predicted[number, kept]), "uncertainty": encode_singles(data.uncertainty[number, kept])}
            for number, (name, unit) in enumerate(zip(data.names, data.units))]


def _lines(fit: Fit | None, kept: npt.NDArray[np.intp]) -> list[Contents] | None:
    if fit is None or fit.observed.line is None:
        return None
    lines = fit.observed.select(kept).lines()
    return [{"name": line.name, "first": line.first, "last": line.last} for line in lines]


def _findings(run: Run) -> list[list[str]]:
    """What a check of the data finds: severity, what was found, and what to do."""
    if run.headers[0].n_data > MOST_CHECKED:
        return []
    sign = run.control.values.positivity or 0
    if isinstance(run, RunByProperty):
        # The sign is that of the models, of which data of a stack have several.
        surveys, sign = run.stacked.surveys(), 0
    else:
        surveys = {"": run.observed}
    return [[finding.severity, f"{name}: {finding.text}" if len(surveys) > 1 else finding.text, finding.remedy]
            for name, survey in surveys.items()
            for finding in check_survey(survey, regional_removed=_regional_removed(run), sign=sign)]


def _regional_removed(run: Run) -> bool:
    """Whether a regional field was subtracted from the data, as far as their side file can be read."""
    try:
        return read_side_file(run.path(run.control.values.data_file)).regional_removed
    except FileError:
        return False


def _tradeoff_curve(run: Run, options: ReportOptions) -> Contents | None:
    """Trials of trade-off multipliers."""
    table = run.tradeoffs if options.tradeoff_table is None else read_tradeoff_table(options.tradeoff_table)
    if table is None:
        return None
    return {"tradeoff": table.tradeoff.tolist(), "misfit": table.misfit.tolist(),
            "norm": np.sqrt(table.squared_norm).tolist()}
