"""A CSV with one row per active cell."""

from __future__ import annotations

import csv
import io
from collections.abc import Sequence

import numpy as np

from ..errors import PathLike
from ..io.numbers import number_text
from ..io.output import open_output
from ..model import Model, common_mesh

_AT_ONCE = 1 << 15
_POSITIONS = ("x", "y", "elevation", "width_x", "width_y", "thickness")


def write_cells_csv(path: PathLike, models: Sequence[Model], layers: Sequence[int] | None = None) -> int:
    """Write centre, widths and values of each cell that is active in one of the models, in cell order.

    Lengths are metres; the headings of the values have their units. A value that is missing is empty.

    Parameters
    ----------
    path : path
    models : sequence of Model
    layers : sequence of int, optional
        Layers, counted from 0 at the top; all by default.

    Returns
    -------
    int
        Rows.

    Raises
    ------
    UsageError
        Without models, or for models of several meshes.
    FileError
        When the file cannot be written.
    """
    mesh = common_mesh(models, "CSV of cells")
    shown = np.any([model.shown for model in models], axis=0)
    if layers is not None:
        shown &= np.isin(np.arange(mesh.n_cells) % mesh.nz, list(layers))
    cells = np.flatnonzero(shown)
    z, x, y = ([number_text(value) for value in values.tolist()] for values in (mesh.z_centres, mesh.x_centres, mesh.y_centres))
    dz, dx, dy = ([number_text(value) for value in values.tolist()] for values in (mesh.z_widths, mesh.x_widths, mesh.y_widths))
    heading = [*_POSITIONS, *(f"{model.name} ({model.unit})" if model.unit else model.name for model in models)]
    with open_output(path) as output:
        output.write(_lines([heading]))
        for first in range(0, len(cells), _AT_ONCE):
            part = cells[first: first + _AT_ONCE]
            columns = [np.where(model.shown[part], model.values[part], np.nan).tolist() for model in models]
            rows = []
            for cell, values in zip(part.tolist(), zip(*columns)):
                k, i, j = cell % mesh.nz, cell // mesh.nz % mesh.nx, cell // (mesh.nz * mesh.nx)
                rows.append([x[i], y[j], z[k], dx[i], dy[j], dz[k],
                             *("" if value != value else number_text(value) for value in values)])
            output.write(_lines(rows))
    return len(cells)


def _lines(rows: Sequence[Sequence[str]]) -> bytes:
    text = io.StringIO()
    csv.writer(text, lineterminator="\n").writerows(rows)
    return text.getvalue().encode()
