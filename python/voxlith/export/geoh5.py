"""Models and data of a run as a geoh5 workspace."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np

from ..errors import PathLike, UsageError
from ..io.geoh5 import Geoh5Blocks, Geoh5Data, Geoh5Points, write_geoh5
from ..model import Model
from ..run import Fit
from ..survey import Survey


def write_run_geoh5(path: PathLike, models: Sequence[Model], fit: Fit | None = None) -> None:
    """Write models of one mesh as a block model, and stations with observed, predicted and residual data.

    Inactive and no-data cells, and masked data, have no value. A survey with lines is a curve along each line.

    Raises
    ------
    UsageError
        Without models and data, or for models of several meshes.
    FileError
        When the file cannot be written.
    MissingPackageError
        Without h5py.
    """
    objects: list[Geoh5Points | Geoh5Blocks] = []
    if models:
        mesh = models[0].mesh
        if any(model.mesh != mesh for model in models):
            raise UsageError("geoh5: expected models of the same mesh")
        cells = [Geoh5Data(model.name, np.where(model.shown, model.values, np.nan), model.unit) for model in models]
        objects.append(Geoh5Blocks("Model", mesh.x_nodes, mesh.y_nodes, mesh.z_nodes, cells))
    if fit is not None:
        objects.append(_stations(fit))
    if not objects:
        raise UsageError("geoh5: expected models or data")
    write_geoh5(path, objects)


def _stations(fit: Fit) -> Geoh5Points:
    survey = fit.observed
    data = []
    for number, (name, unit) in enumerate(zip(survey.names, survey.units)):
        data += [Geoh5Data(f"{name} observed", survey.data[number], unit),
                 Geoh5Data(f"{name} predicted", fit.predicted[number], unit),
                 Geoh5Data(f"{name} residual in standard deviations", fit.zscore[number])]
    pairs = None
    if survey.line is not None:
        data.append(Geoh5Data("Line", survey.line))
        pairs = _line_pairs(survey)
    vertices = np.column_stack([survey.x, survey.y, survey.elevation])
    if pairs is not None and not len(pairs):
        pairs = None
    return Geoh5Points("Stations", vertices, data, pairs)


def _line_pairs(survey: Survey) -> np.ndarray[tuple[int, ...], np.dtype[np.int32]]:
    """Consecutive stations of each line, shape (m, 2)."""
    starts = [np.arange(line.first, line.last, dtype=np.int32) for line in survey.lines()]
    first = np.concatenate(starts) if starts else np.zeros(0, dtype=np.int32)
    return np.column_stack([first, first + 1]).astype(np.int32)
