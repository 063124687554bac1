"""``voxlith-tools check`` for the folder of a run: its data, files and cells, and the residuals that it has left."""

from __future__ import annotations

import os
from collections.abc import Sequence

import numpy as np

from ..checks import Finding, check_survey
from ..checks.against import check_sensitivities
from ..checks.background import check_background
from ..checks.field import check_field_of_any_year, check_type_and_field
from ..checks.findings import ordered
from ..checks.inactive import check_ground, check_run_cells
from ..checks.results import residual_clusters
from ..checks.survey import station_names
from ..run import Run
from ..sensitivity import Sensitivity
from ..side_file import read_side_file
from ..stacked_run import is_stacked, require_run
from ..survey import Survey


def check_folder(folder: str, control: str) -> tuple[list[Finding], int]:
    """Findings of a run, and the number of its stations.

    Of a stacked run only the residuals are looked at, as its rows are data of several types on a mesh of several models.

    Raises
    ------
    VoxlithError
        For a folder without a run, and for a file that cannot be read.
    """
    run = Run(folder, control)
    require_run(run, "give that of the stacked run, with its --control")
    survey = run.observed
    findings = [] if is_stacked(run) else _check_inputs(run, survey)
    if run.path("voxlith.pre").is_file():
        findings += residual_clusters(run)
    else:
        findings.append(Finding("note", "no-predictions", "the run has no predicted data yet", "check it again after the run"))
    return ordered(findings), survey.n_stations


def _check_inputs(run: Run, survey: Survey) -> list[Finding]:
    values = run.control.values
    side = read_side_file(run.path(values.data_file))
    names = side.station_names(survey.n_stations) or station_names(survey)
    findings = check_survey(survey, names, regional_removed=side.regional_removed, sign=values.positivity or 0)
    findings += check_run_cells(run) + check_field_of_any_year(survey, side)
    places = survey.x, survey.y, survey.elevation
    for name in values.mtx_files:
        with Sensitivity(run.path(name)) as sensitivity:
            findings += check_sensitivities(*places, sensitivity.header, name, names)
            findings += check_type_and_field(survey, sensitivity.header, name)
            if name == values.mtx_files[0]:
                findings += check_ground(np.column_stack(places), sensitivity.mesh, sensitivity.inactive_cells(), names)
    return findings + check_run_background(run, survey, findings)


def check_run_background(run: Run, survey: Survey, findings: Sequence[Finding]) -> list[Finding]:
    """The background that the control file removes, or could remove where the data have an offset or a slope."""
    values = run.control.values
    if not values.background and not {"constant-offset", "regional-trend"} & {finding.name for finding in findings}:
        return []
    return check_background(survey, [run.path(name) for name in values.mtx_files], values.background,
                            values.background_value)


def run_of_control(path: str) -> Run:
    """The run of a control file."""
    return Run(os.path.dirname(path) or ".", os.path.basename(path))
