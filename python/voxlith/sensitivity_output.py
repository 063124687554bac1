"""Sensitivity files from a matrix of any code: dense, sparse, or a row at a time.

The rows are divided by the depth weights of the cells, padded, transformed and reduced as ``voxlith-tools mtx`` does
it, to the same bytes for the same rows.
"""

from __future__ import annotations

from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from typing import Any, Literal

import numpy as np
import numpy.typing as npt

from .compression import compress_row
from .depth_weight import DepthWeight, cell_depth_weights, default_depth_weight
from .errors import PathLike, UsageError
from .io.mtx_file import MtxRow, MtxTail
from .io.mtx_header import Form, MtxHeader
from .io.mtx_output import write_mtx_file
from .layers import LayerPlan, plan_layers
from .mesh import Mesh
from .model import Model
from .sensitivity import reconstruct
from .survey import Survey
from .wavelet import daubechies_filter, forward_transform

Reals = npt.NDArray[np.float64]
Indices = npt.NDArray[np.intp]


@dataclass
class RowStatistics:
    """What became of the rows.

    Attributes
    ----------
    rows : int
    coefficients : int
        Kept in all rows.
    largest_loss, mean_loss : float
        Norm of what was dropped from a row over the norm of the row.
    """

    rows: int = 0
    coefficients: int = 0
    largest_loss: float = 0.0
    mean_loss: float = 0.0


def write_sensitivity(path: PathLike, matrix: Any, mesh: Mesh, survey: Survey, *, component: int = 0,
                      order: Literal["voxlith", "discretize"] = "voxlith", tolerance: float = 0.01, taps: int = 4,
                      depth_weight: DepthWeight | None = None, cell_weights: npt.ArrayLike | None = None,
                      row_weights: npt.ArrayLike | None = None, form: Form = "tagged", version: int = 2,
                      layers: int | None = None, style: int | None = None,
                      inactive: npt.ArrayLike | None = None, height: npt.ArrayLike | None = None) -> RowStatistics:
    """Write a sensitivity file.

    Parameters
    ----------
    path : path
    matrix : ndarray, scipy.sparse matrix, or iterable of rows
        Response of each datum to unit property in each cell, shape (stations, cells): mGal or Eotvos for 1 g/cm3, nT
        for 1 SI, or in any units that data and model are to have. Rows of an iterable are taken one after the other,
        so that the matrix need not fit into memory.
    mesh : Mesh
    survey : Survey
        Stations, and the field of magnetic data.
    component : int
        Component of the survey that the rows belong to, from 0.
    order : {"voxlith", "discretize"}
        Order of the cells in a row.
    tolerance : float
        Largest loss of a row over its norm, from 0 to below 1.
    taps : int
        Wavelet filter length: 4, 6 or 8.
    depth_weight : DepthWeight, optional
        By default that of :func:`~voxlith.depth_weight.default_depth_weight`; ``DepthWeight()`` for none.
    cell_weights : array_like, shape (cells,), optional
        Depth weights of the cells, above 0, in place of those that `depth_weight` gives; its numbers still go into the
        header.
    row_weights : array_like, shape (stations,), optional
        Weight of each row in the diagonal of G'G that the file holds, which preconditions the inversion; 1 by default.
        For rows in different units.
    form : {"tagged", "bare", "record"}
        Layout. The record layout holds no data type: its readers take it from "mag" in the name of the file.
    version : int
        Of the tagged layout, 0 to 2.
    layers, style : int, optional
        Of surface styles, see :func:`~voxlith.layers.plan_layers`.
    inactive : array_like of int, shape (nx, ny), optional
        Inactive cells at the top of each column (:meth:`Mesh.inactive_counts`) where there is topography. Their
        responses are set to 0; bounds have to fix them at 0.
    height : array_like, shape (stations,), optional
        Heights of the stations above the surface, for the default depth weight beside `inactive`.

    Returns
    -------
    RowStatistics

    Raises
    ------
    UsageError
        When the arguments do not go together, or a row is not finite or too large for single precision.
    FileError
        When the file cannot be written.
    """
    if not 0.0 <= tolerance < 1.0:
        raise UsageError(f"tolerance {tolerance}: expected a number from 0 to below 1")
    if version not in (0, 1, 2):
        raise UsageError(f"version {version}: expected 0, 1 or 2")
    if order not in ("voxlith", "discretize"):
        raise UsageError(f"order {order!r}: expected 'voxlith' or 'discretize'")
    plan = plan_layers(mesh, layers, style, stores_style=form == "tagged" and version > 1)
    counts = None if inactive is None else np.asarray(inactive, dtype=np.intp)
    if counts is not None and plan.style in (1, 2, 3):
        raise UsageError(f"inactive cells: expected style 0 or 4, found style {plan.style}, whose layers begin at the "
                         "top of the mesh")
    code = survey.codes[component]
    weight = depth_weight or default_depth_weight(code, mesh, survey.elevation, counts, height)
    header = _header(mesh, survey, code, plan, weight, taps, form, version, counts)
    if cell_weights is not None:
        header.depth_weight = np.asarray(cell_weights, dtype=np.float32)
        if header.depth_weight.shape != (mesh.n_cells,) or not (header.depth_weight > 0.0).all():
            raise UsageError(f"cell weights: expected {mesh.n_cells} numbers above 0")
    in_diagonal = np.ones(header.n_data) if row_weights is None else np.asarray(row_weights, dtype=np.float64)
    if in_diagonal.shape != (header.n_data,) or not (in_diagonal >= 0.0).all():
        raise UsageError(f"row weights: expected {header.n_data} numbers of 0 or more")
    work = _Rows(matrix, mesh, header, plan, tolerance, order, counts, in_diagonal)
    write_mtx_file(path, header, work, work.tail)
    return work.statistics


def _header(mesh: Mesh, survey: Survey, code: int, plan: LayerPlan, weight: DepthWeight, taps: int, form: Form,
            version: int, inactive: Indices | None) -> MtxHeader:
    bank = daubechies_filter(taps)
    header = MtxHeader(form, code, survey.n_stations, mesh.ny, mesh.nx, mesh.nz, plan.npy, plan.npx, plan.npz, bank.low,
                       bank.high, mesh.y_nodes, mesh.x_nodes, mesh.depth_nodes,
                       cell_depth_weights(weight, mesh, inactive), (weight.z0, weight.beta))
    if form == "tagged":
        header.version = version
        header.stations = np.stack([survey.x, survey.y, survey.elevation], axis=1)
        if survey.field is not None:
            direction = survey.direction or survey.field.direction
            header.inducing = (survey.field.strength, survey.field.inclination, survey.field.declination)
            header.measured = (direction.inclination, direction.declination)
            header.idir = survey.idir
    if form == "record":
        header.unused = (0.0, mesh.n_cells)
        if inactive is not None:
            header.topography = inactive.astype(np.int32)
    return header


class _Rows:
    """Compresses the rows one after the other, and sums what follows from them."""

    def __init__(self, matrix: Any, mesh: Mesh, header: MtxHeader, plan: LayerPlan, tolerance: float, order: str,
                 inactive: Indices | None, in_diagonal: Reals) -> None:
        self._in_diagonal = in_diagonal
        self._matrix = matrix
        self._mesh = mesh
        self._header = header
        self._plan = plan
        self._tolerance = tolerance
        self._order = order
        self._filter = daubechies_filter(len(header.low))
        shape = (mesh.ny, mesh.nx, mesh.nz)
        self._weights = header.depth_weight.astype(np.float64).reshape(shape)
        self._inactive = None if inactive is None else np.arange(mesh.nz) < inactive.T[:, :, None]
        self._diagonal = np.zeros(shape)
        self._responses = np.zeros((header.n_data, plan.layers + 1))
        self.statistics = RowStatistics()

    def __iter__(self) -> Iterator[MtxRow]:
        for number, row in enumerate(self._given()):
            if number == self._header.n_data:
                raise UsageError(f"matrix: expected {self._header.n_data} rows, found more")
            yield self._compress(number, row)

    def _given(self) -> Iterable[npt.ArrayLike]:
        matrix = self._matrix
        shape = getattr(matrix, "shape", None)
        if shape is not None and tuple(shape) != (self._header.n_data, self._header.n_cells):
            raise UsageError(f"matrix: expected the shape ({self._header.n_data}, {self._header.n_cells}), found "
                             f"{tuple(shape)}")
        if hasattr(matrix, "tocsr"):
            rows = matrix.tocsr()
            return (rows[number].toarray().ravel() for number in range(shape[0] if shape else 0))
        rows_given: Iterator[npt.ArrayLike] = iter(matrix)
        return rows_given

    def _cells(self, number: int, row: npt.ArrayLike) -> Reals:
        """A row as the response of the cells, shape (ny, nx, nz)."""
        values = np.asarray(row, dtype=np.float64)
        if values.ndim != 1 or values.size != self._mesh.n_cells:
            raise UsageError(f"row {number + 1}: expected the shape ({self._mesh.n_cells},), found {values.shape}")
        if not np.isfinite(values).all():
            raise UsageError(f"row {number + 1}: expected finite numbers")
        if self._order == "discretize":
            values = Model.from_discretize(self._mesh, values).values
        cells = values.reshape(self._mesh.ny, self._mesh.nx, self._mesh.nz).copy()
        if self._inactive is not None:
            cells[self._inactive] = 0.0
        return cells

    def _compress(self, number: int, row: npt.ArrayLike) -> MtxRow:
        plan = self._plan
        cells = self._cells(number, row)
        self._responses[number] = _layer_sums(cells, plan.layers)
        if plan.sum_below:
            for k in range(plan.npz, self._mesh.nz):
                cells[:, :, plan.npz - 1] += cells[:, :, k]
        cells /= self._weights
        padded = forward_transform(cells[:, :, : plan.npz], self._filter, (plan.npy, plan.npx, plan.npz))
        try:
            kept = compress_row(padded, self._tolerance)
        except UsageError as error:
            raise UsageError(f"row {number + 1}: {error}") from error
        found = MtxRow(kept.positions, kept.values)
        back = reconstruct(found, self._header, self._filter)
        self._diagonal += back * back * self._in_diagonal[number]
        self.statistics.rows += 1
        self.statistics.coefficients += len(kept.positions)
        self.statistics.largest_loss = max(self.statistics.largest_loss, kept.loss)
        self.statistics.mean_loss += kept.loss / self._header.n_data
        return found

    def tail(self) -> MtxTail:
        """Diagonal, style and layer responses, once all rows are written."""
        diagonal = self._diagonal.ravel()
        if self._inactive is not None:
            # A diagonal of 0 would leave the preconditioner of inactive cells to the regularisation alone.
            inactive = self._inactive.ravel()
            active = diagonal[~inactive]
            total = np.cumsum(active)[-1] if len(active) else 0.0
            diagonal = np.where(inactive, total / len(active) if total > 0.0 else 1.0, diagonal)
        return MtxTail(diagonal, self._plan.style, self._responses)


def _layer_sums(cells: Reals, layers: int) -> Reals:
    """Sum of each of the first layers, and of all cells, each in cell order."""
    columns = cells.reshape(-1, cells.shape[2])
    sums = np.empty(layers + 1)
    sums[:layers] = np.cumsum(columns[:, :layers], axis=0)[-1]
    sums[layers] = np.cumsum(columns.ravel())[-1]
    return sums + 0.0
