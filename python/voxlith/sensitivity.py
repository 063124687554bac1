"""Sensitivity files as matrices: rows decompressed, products with models and data."""

from __future__ import annotations

import os
from collections.abc import Iterator, Sequence
from types import TracebackType
from typing import Any

import numpy as np
import numpy.typing as npt

from .codes import DUMMY_LIMIT
from .errors import FileError, PathLike, UsageError
from .io.mtx_file import MtxFile, MtxRow, MtxTail
from .io.mtx_header import MtxHeader
from .mesh import Mesh
from .packages import require
from .wavelet import Filter, forward_transform, inverse_transform

Reals = npt.NDArray[np.float64]

_SAME_MEAN = 1.0e-9  # rounding of a mean over many cells


class Sensitivity:
    """A sensitivity file that is open for reading.

    Data are the product of the matrix with a model: ``d = G m``, in the units of the file.

    Parameters
    ----------
    path : path
    name : str, optional
        Name as the control file has it, when it differs; see :class:`~voxlith.io.mtx_file.MtxFile`.
    strict : bool
        See :class:`~voxlith.io.mtx_file.MtxFile`.

    Raises
    ------
    FileError
        The file, the byte, what was expected and what was found.

    Attributes
    ----------
    header : MtxHeader
    mesh : Mesh

    Examples
    --------
    ::

        with Sensitivity("gz.mtx") as sensitivity:
            row = sensitivity.dense_row(0)           # mGal for 1 g/cm3 in each cell
            data = sensitivity.forward(model.values)
    """

    def __init__(self, path: PathLike, *, name: str | None = None, strict: bool = True) -> None:
        self._file = MtxFile(path, name=name, strict=strict)
        self.header = self._file.header
        try:
            self.mesh = mesh_of(self.header)
        except UsageError as error:
            self._file.close()
            raise FileError(path, str(error)) from error
        self._filter = Filter(self.header.low, self.header.high)

    def __enter__(self) -> Sensitivity:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Close the file."""
        self._file.close()

    @property
    def shape(self) -> tuple[int, int]:
        """Data and cells."""
        return self.header.n_data, self.header.n_cells

    def rows(self) -> Iterator[MtxRow]:
        """Rows as they are stored, see :meth:`MtxFile.rows <voxlith.io.mtx_file.MtxFile.rows>`."""
        return self._file.rows()

    def tail(self) -> MtxTail:
        """Diagonal of G'G, style and layer responses; in the record layout the diagonal is computed from the rows."""
        tail = self._file.tail()
        if tail is not None:
            return tail
        diagonal = np.zeros(self.header.n_cells)
        for row in self.rows():
            cells = self._cells_of(row).ravel()
            diagonal += cells * cells
        return MtxTail(diagonal)

    def inactive_cells(self) -> npt.NDArray[np.bool_]:
        """Cells above the terrain, in cell order, shape (cells,).

        ``voxlith-tools mtx`` writes the mean of all active cells as their diagonal of G'G. A diagonal of 0 counts as
        inactive, too. They are at the top of their columns.
        """
        diagonal = self.mesh.cube(self.tail().diagonal)
        mean = float(diagonal.mean())
        marked = (diagonal == 0.0) | (np.abs(diagonal - mean) <= _SAME_MEAN * mean)
        # Active cells below the first one that is not marked have that value by chance.
        at_top = np.logical_and.accumulate(marked, axis=0)
        return np.asarray(self.mesh.flat(at_top), dtype=np.bool_)

    @property
    def style(self) -> int:
        """Inversion style, 0 to 4."""
        head = self.header
        if head.form == "tagged" and head.version > 1:
            stored = self.tail().style
            assert stored is not None
            return stored
        return head.style_of_counts

    def decompress(self, row: MtxRow, *, weighted: bool = False) -> Reals:
        """A stored row as sensitivities of the cells.

        Parameters
        ----------
        row : MtxRow
        weighted : bool
            Whether to leave the row divided by the depth weights, as the inversion uses it.

        Returns
        -------
        ndarray, shape (cells,)
            In cell order; 0 in layers that the file does not cover.
        """
        cells = self._cells_of(row)
        cells[:, :, self.header.layers:] = 0.0
        flat = cells.ravel()
        return flat if weighted else flat * self.header.depth_weight

    def dense_row(self, number: int, *, weighted: bool = False) -> Reals:
        """Sensitivities of one datum, counted from 0, to all cells; see :meth:`decompress`. Raises FileError."""
        return self.decompress(self._file.row(number), weighted=weighted)

    def dense_matrix(self, *, weighted: bool = False) -> Reals:
        """All rows decompressed, shape (data, cells): 8 bytes per datum and cell. Raises FileError."""
        matrix = np.empty(self.shape)
        for number, row in enumerate(self.rows()):
            matrix[number] = self.decompress(row, weighted=weighted)
        return matrix

    def coefficient_matrix(self) -> Any:
        """Wavelet coefficients as a ``scipy.sparse.csr_matrix``, shape (data, padded cells), single precision.

        Its product with :meth:`transform` of a model gives the data.
        """
        counts = self._file.row_counts().astype(np.int64)
        limits = np.concatenate((np.zeros(1, dtype=np.int64), np.cumsum(np.minimum(counts, self.header.n_padded))))
        columns = np.empty(limits[-1], dtype=np.int32)
        values = np.empty(limits[-1], dtype=np.float32)
        for row, first, end in zip(self.rows(), limits, limits[1:]):
            columns[first:end] = row.positions[: end - first] - 1
            values[first:end] = row.values[: end - first]
        sparse = require("scipy.sparse", "sparse matrices")
        matrix = sparse.csr_matrix((values, columns, limits), shape=(self.header.n_data, self.header.n_padded))
        matrix.sort_indices()
        return matrix

    def sparse_matrix(self, drop: float = 0.0, *, weighted: bool = False) -> Any:
        """Sensitivities of the cells as a ``scipy.sparse.csr_matrix``, shape (data, cells).

        Parameters
        ----------
        drop : float
            Entries of a row up to this part of its largest magnitude are left out. With 0 few are: a decompressed row
            is dense.
        weighted : bool
            See :meth:`decompress`.
        """
        sparse = require("scipy.sparse", "sparse matrices")
        rows = []
        for stored in self.rows():
            row = self.decompress(stored, weighted=weighted)
            magnitude = np.abs(row)
            row[magnitude <= drop * magnitude.max()] = 0.0
            rows.append(sparse.csr_matrix(row))
        return sparse.vstack(rows, format="csr")

    def transform(self, model: npt.ArrayLike) -> Reals:
        """Wavelet transform of a model times the depth weights, shape (padded cells,)."""
        head = self.header
        values = np.asarray(model, dtype=np.float64)
        values = np.where(values > DUMMY_LIMIT, values, 0.0)
        cells = (self.mesh.flat(values) * head.depth_weight).reshape(head.ny, head.nx, head.nz)
        return forward_transform(cells[:, :, : head.npz], self._filter, (head.npy, head.npx, head.npz)).ravel()

    def forward(self, model: npt.ArrayLike) -> Reals:
        """Data of a model: G m.

        Parameters
        ----------
        model : array_like, shape (cells,) or (nz, nx, ny)
            No-data cells (NaN, or at or below -1.0e30) count as 0.

        Returns
        -------
        ndarray, shape (data,)
            In the data unit of the file.
        """
        transformed = self.transform(model)
        return np.array([np.dot(_doubles(row.values[: len(transformed)]),
                                transformed[row.positions[: len(transformed)] - 1]) for row in self.rows()])

    def transposed(self, data: npt.ArrayLike) -> Reals:
        """G' d, shape (cells,), of data of shape (data,)."""
        head = self.header
        numbers = np.asarray(data, dtype=np.float64)
        if numbers.shape != (head.n_data,):
            raise UsageError(f"data: expected the shape ({head.n_data},), found {numbers.shape}")
        total = np.zeros(head.n_padded)
        for row, number in zip(self.rows(), numbers.tolist()):
            total[row.positions[: head.n_padded] - 1] += number * _doubles(row.values[: head.n_padded])
        cells = _cells_of_coefficients(total, head, self._filter)
        cells[:, :, head.layers:] = 0.0
        return cells.ravel() * head.depth_weight

    def linear_operator(self) -> Any:
        """The matrix as a ``scipy.sparse.linalg.LinearOperator``, shape (data, cells).

        Each product reads the whole file.
        """
        linalg = require("scipy.sparse.linalg", "linear operators")
        return linalg.LinearOperator(self.shape, matvec=lambda m: self.forward(np.ravel(m)),
                                     rmatvec=lambda d: self.transposed(np.ravel(d)), dtype=np.float64)

    def _cells_of(self, row: MtxRow) -> Reals:
        """A stored row in the mesh, shape (ny, nx, nz); below the covered layers the last one is repeated."""
        head = self.header
        return reconstruct(row, head, self._filter)


def reconstruct(row: MtxRow, header: MtxHeader, bank: Filter) -> Reals:
    """A stored row as a reader gets it back: inverse transform and crop.

    Returns
    -------
    ndarray, shape (ny, nx, nz)
        Divided by the depth weights; below the covered layers the last one is repeated.
    """
    padded = np.zeros(header.n_padded)
    count = header.n_padded
    padded[row.positions[:count] - 1] = _doubles(row.values[:count])
    return _cells_of_coefficients(padded, header, bank)


def _cells_of_coefficients(padded: Reals, header: MtxHeader, bank: Filter) -> Reals:
    """Inverse transform in the mesh; below npz the value of the last copied cell is repeated."""
    covered = min(header.nz, header.npz)
    cells = inverse_transform(padded.reshape(header.npy, header.npx, header.npz), bank, (header.ny, header.nx, covered))
    return cells if covered == header.nz else np.pad(cells, ((0, 0), (0, 0), (0, header.nz - covered)), mode="edge")


def _doubles(values: npt.NDArray[np.float32]) -> Reals:
    """Coefficients in double precision; those that are no numbers are let through without a warning."""
    with np.errstate(invalid="ignore"):
        return values.astype(np.float64)


def mesh_of(header: MtxHeader) -> Mesh:
    """Mesh of a sensitivity file. z nodes that fall are taken for elevations.

    Raises UsageError when the nodes of an axis do not follow one another.
    """
    z = header.z_nodes
    return Mesh(header.x_nodes, header.y_nodes, -z + 0.0 if z[-1] > z[0] else z)


def common_inactive_cells(paths: Sequence[PathLike]) -> tuple[Mesh, npt.NDArray[np.bool_]]:
    """Mesh of sensitivity files, and the cells without a response in any of them, in cell order.

    Raises
    ------
    FileError
        For a file that cannot be read, and for one whose terrain leaves other cells inactive than that of the first
        file: cells in the air would be part of the model.
    """
    mesh: Mesh | None = None
    for path in paths:
        with Sensitivity(path) as sensitivity:
            here = sensitivity.inactive_cells()
            # Rows that are 0 in a cell may have lost it to the compression; the terrain marks it by another value.
            above = here & (sensitivity.tail().diagonal != 0.0)
            if mesh is None:
                mesh, inactive, above_first = sensitivity.mesh, here, above
                continue
        if here.shape != above_first.shape or (above & ~inactive).any() or (above_first & ~here).any():
            raise FileError(path, f"expected the {np.count_nonzero(above_first)} inactive cells above the terrain of "
                            f"{os.fspath(paths[0])}, found {np.count_nonzero(above)}; compute all files with one "
                            "--topography")
        inactive = inactive & here
    if mesh is None:
        raise UsageError("expected a sensitivity file")
    return mesh, inactive
