"""Writes sensitivity files in their three layouts, a row at a time; their contents are described in
:mod:`voxlith.io.mtx_file`."""

from __future__ import annotations

from collections.abc import Callable, Iterable
from typing import Any, BinaryIO

import numpy as np
import numpy.typing as npt

from ..errors import PathLike, UsageError
from .mtx_file import MtxRow, MtxTail
from .mtx_header import LARGEST_INT32, MAGIC, MOST_RECORD_TAPS, MtxHeader
from .output import open_output

_STATION = np.dtype([("position", "<f8", 3), ("number", "<f4")])


def write_mtx_file(path: PathLike, header: MtxHeader, rows: Iterable[MtxRow],
                   tail: MtxTail | Callable[[], MtxTail] | None) -> None:
    """Write a sensitivity file.

    Parameters
    ----------
    path : path
    header : MtxHeader
        `rows_begin` is not used.
    rows : iterable of MtxRow
        As many as `header.n_data`, each with at least one coefficient; asked for one after the other.
    tail : MtxTail, or a routine that gives it once the rows are written
        None for the record layout.

    Raises
    ------
    UsageError
        When header, rows and tail do not fit together or break a limit of the layout.
    FileError
        When the file cannot be written.
    """
    check_header(header)
    with open_output(path) as output:
        output.write(_head(header))
        written = 0
        for row in rows:
            _write_row(output, header, row, written)
            written += 1
        if written != header.n_data:
            raise UsageError(f"rows: expected {header.n_data}, found {written}")
        if header.form != "record":
            _write_tail(output, header, tail() if callable(tail) else tail)


def check_header(header: MtxHeader) -> None:
    """Require a header that its layout can hold. Raises UsageError."""
    if header.form not in ("tagged", "bare", "record"):
        raise UsageError(f"form {header.form!r}: expected tagged, bare or record")
    shapes: dict[str, tuple[npt.NDArray[Any] | None, tuple[int, ...]]] = {
        "low": (header.low, (len(header.low),)), "high": (header.high, (len(header.low),)),
        "y_nodes": (header.y_nodes, (header.ny + 1,)), "x_nodes": (header.x_nodes, (header.nx + 1,)),
        "z_nodes": (header.z_nodes, (header.nz + 1,)), "depth_weight": (header.depth_weight, (header.n_cells,))}
    if header.form == "tagged":
        shapes["stations"] = (header.stations, (header.n_data, 3))
    for name, (array, shape) in shapes.items():
        if array is None or array.shape != shape or not np.isfinite(array).all():
            raise UsageError(f"{name}: expected finite numbers of shape {shape}")
    if min(header.n_data, header.ny, header.nx, header.nz) < 1 or len(header.low) < 1:
        raise UsageError("expected counts of 1 or more")
    if header.npy < header.ny or header.npx < header.nx or header.npz < 1:
        raise UsageError("expected padded counts that hold the mesh")
    if 8 * header.n_dense > LARGEST_INT32:
        raise UsageError(f"the padded mesh has {header.n_dense} cells; at most {LARGEST_INT32 // 8} can be stored")
    if header.form == "record" and len(header.low) > MOST_RECORD_TAPS:
        raise UsageError(f"the record layout holds at most {MOST_RECORD_TAPS} taps")
    if header.form == "record" and 4 + max(8 * header.n_dense, 4 * header.n_cells) > LARGEST_INT32:
        raise UsageError(f"the record layout holds records of at most {LARGEST_INT32} bytes")
    if header.form != "record" and len(_head(header)) > LARGEST_INT32:
        raise UsageError(f"mesh and stations take more than {LARGEST_INT32} bytes in front of the rows")


def _integers(*values: int) -> bytes:
    return np.array(values, dtype="<i4").tobytes()


def _singles(*values: float) -> bytes:
    return np.array(values, dtype="<f4").tobytes()


def _array(values: npt.ArrayLike, kind: str) -> bytes:
    return np.ascontiguousarray(values, dtype=kind).tobytes()


def _head(header: MtxHeader) -> bytes:
    return _record_head(header) if header.form == "record" else _stream_head(header)


def _stream_head(header: MtxHeader) -> bytes:
    parts = []
    tagged = header.form == "tagged"
    if tagged:
        parts += [MAGIC, _integers(header.version)]
    parts.append(_integers(header.data_type, header.n_data))
    if tagged:
        parts += [_singles(*header.inducing), _integers(header.idir), _singles(*header.measured), _stations(header)]
    parts += [_integers(header.ny, header.nx, header.nz, header.npy, header.npx, header.npz, len(header.low)),
              _array(header.low, "<f4"), _array(header.high, "<f4")]
    parts += [_array(nodes, "<f8") for nodes in (header.y_nodes, header.x_nodes, header.z_nodes)]
    parts += [_singles(*header.weight_parameters), _array(header.depth_weight, "<f4")]
    return b"".join(parts)


def _stations(header: MtxHeader) -> bytes:
    table = np.zeros(header.n_data, dtype=_STATION)
    table["position"] = header.stations
    if header.station_numbers is not None:
        table["number"] = header.station_numbers
    return table.tobytes()


def _framed(payload: bytes) -> bytes:
    return _integers(len(payload)) + payload + _integers(len(payload))


def _record_head(header: MtxHeader) -> bytes:
    shape = (header.nx, header.ny)
    topography = np.zeros(shape, dtype="<i4") if header.topography is None else header.topography
    if topography.shape != shape:
        raise UsageError(f"topography: expected the shape {shape}, found {topography.shape}")
    nodes = b"".join(_array(nodes, "<f4") for nodes in (header.y_nodes, header.x_nodes, header.z_nodes))
    return b"".join([
        _framed(_integers(header.n_data, header.n_cells, header.ny, header.nx, header.nz)),
        _framed(nodes + _singles(header.unused[0])),
        _framed(_array(topography, "<i4")),
        _framed(_integers(len(header.low)) + _array(header.low, "<f4")),
        _framed(_integers(header.npy, header.npx, header.npz)),
        _framed(_integers(header.unused[1]) + _array(header.depth_weight, "<f4")),
    ])


def _write_row(output: BinaryIO, header: MtxHeader, row: MtxRow, number: int) -> None:
    positions = np.ascontiguousarray(row.positions, dtype="<i4")
    values = np.ascontiguousarray(row.values, dtype="<f4")
    if positions.shape != values.shape or positions.ndim != 1:
        raise UsageError(f"row {number + 1}: expected a value for each position")
    if row.dense and header.form != "record":
        if values.shape != (header.n_dense,):
            raise UsageError(f"row {number + 1}: expected {header.n_dense} values of a dense row")
        output.write(_integers(-1) + values.tobytes())
        return
    if not len(positions) and header.form != "record":
        raise UsageError(f"row {number + 1}: expected a coefficient or more: a row without any cannot be read back")
    if len(positions) and not 1 <= positions.min() <= positions.max() <= header.n_padded:
        raise UsageError(f"row {number + 1}: expected positions within 1 to {header.n_padded}")
    content = _integers(len(positions)) + positions.tobytes() + values.tobytes()
    output.write(_framed(content) if header.form == "record" else content)


def _write_tail(output: BinaryIO, header: MtxHeader, tail: MtxTail | None) -> None:
    if tail is None or tail.diagonal.shape != (header.n_cells,):
        raise UsageError(f"diagonal: expected the shape ({header.n_cells},)")
    output.write(_array(tail.diagonal, "<f8"))
    if header.form == "tagged" and header.version > 1:
        shape = (header.n_data, header.layers + 1)
        if tail.style is None or tail.layer_response is None or tail.layer_response.shape != shape:
            raise UsageError(f"expected a style and layer responses of shape {shape}")
        output.write(_integers(tail.style) + _array(tail.layer_response, "<f8"))
