"""Little-endian numbers off a sensitivity file, with the tests that keep a damaged file from asking for what is not
there. Every test that fails is a FileError with the byte."""

from __future__ import annotations

import contextlib
import os
from collections.abc import Iterator
from typing import BinaryIO

import numpy as np
import numpy.typing as npt

from ..errors import FileError
from ..wavelet import LONGEST_PLAIN_AXIS

Reals = npt.NDArray[np.float64]
Singles = npt.NDArray[np.float32]
Integers = npt.NDArray[np.int32]

_LARGEST = 2**31 - 1
_STATION = np.dtype([("position", "<f8", 3), ("number", "<f4")])


class BinaryInput:
    """A file, its size, and the position of the next read."""

    def __init__(self, source: BinaryIO, path: str) -> None:
        self._source = source
        self.path = path
        self.size = os.fstat(source.fileno()).st_size
        self.position = 0

    def close(self) -> None:
        """Close the file."""
        self._source.close()

    def error(self, what: str, found: str, offset: int = 0) -> FileError:
        """The error ``expected WHAT, found FOUND`` at the present byte plus `offset`."""
        return FileError(self.path, f"expected {what}, found {found}", byte=self.position + offset)

    def bytes_at(self, begin: int, count: int) -> bytes:
        """Up to `count` bytes from byte `begin` on; fewer only at the end of the file."""
        if self._source.closed:
            raise FileError(self.path, "cannot be read: it has been closed")
        parts: list[bytes] = []
        done = 0
        while done < count:
            try:
                part = os.pread(self._source.fileno(), count - done, begin + done)
            except OSError as error:
                raise FileError(self.path, f"cannot be read: {error.strerror}", byte=begin + done) from error
            if not part:
                break
            parts.append(part)
            done += len(part)
        return parts[0] if len(parts) == 1 else b"".join(parts)

    def require(self, count: int, what: str) -> None:
        """Require that many bytes from the present position on."""
        left = self.size - self.position
        if count > left:
            raise self.error(f"{what} ({count} bytes)", f"only {left} to the end of the file")

    def take(self, count: int, what: str) -> bytes:
        """That many bytes, all of them."""
        self.require(count, what)
        found = self.bytes_at(self.position, count)
        if len(found) < count:
            raise self.error(f"{what} ({count} bytes)", f"only {len(found)} to the end of the file")
        self.position += count
        return found

    def int32(self, what: str) -> int:
        """One integer."""
        return int.from_bytes(self.take(4, what), "little", signed=True)

    def int_at(self, begin: int, what: str) -> int:
        """One integer at a byte; the position stays."""
        before, self.position = self.position, begin
        try:
            return self.int32(what)
        finally:
            self.position = before

    def count(self, what: str, most: int = _LARGEST) -> int:
        """One integer from 1 to `most`."""
        value = self.int32(what)
        if not 1 <= value <= most:
            limit = "of 1 or more" if most == _LARGEST else f"from 1 to {most}"
            raise self.error(f"{what} {limit}", str(value), -4)
        return value

    def integers(self, count: int, what: str) -> Integers:
        """Integers of 32 bits."""
        return np.frombuffer(self.take(4 * count, what), dtype="<i4")

    def singles(self, count: int, what: str) -> Singles:
        """Real numbers of 32 bits."""
        return np.frombuffer(self.take(4 * count, what), dtype="<f4")

    def reals(self, count: int, what: str) -> Reals:
        """Real numbers of 64 bits."""
        return np.frombuffer(self.take(8 * count, what), dtype="<f8")

    def finite_singles(self, count: int, what: str) -> Singles:
        """Real numbers of 32 bits, all of them finite."""
        values = self.singles(count, what)
        self._require_finite(np.isfinite(values), 4, what)
        return values

    def finite_reals(self, count: int, what: str) -> Reals:
        """Real numbers of 64 bits, all of them finite."""
        values = self.reals(count, what)
        self._require_finite(np.isfinite(values), 8, what)
        return values

    def nodes(self, count: int, axis: str, strict: bool) -> Reals:
        """Nodes of an axis; if strict they follow one another: y and x rise, z rises or falls."""
        return self._ordered(self.finite_reals(count, f"the {axis} nodes"), axis, 8, strict)

    def single_nodes(self, count: int, axis: str, strict: bool) -> Reals:
        """The same, stored as real numbers of 32 bits."""
        return self._ordered(self.finite_singles(count, f"the {axis} nodes").astype(np.float64), axis, 4, strict)

    def _ordered(self, nodes: Reals, axis: str, width: int, strict: bool) -> Reals:
        steps = np.diff(nodes) * (-1.0 if axis == "z" and nodes[-1] < nodes[0] else 1.0)
        bad = np.flatnonzero(~(steps > 0.0))
        if strict and len(bad):
            first = int(bad[0])
            raise self.error(f"{axis} nodes that follow one another", f"{nodes[first]:g} and {nodes[first + 1]:g}",
                             width * (first - len(nodes)))
        return nodes

    def _require_finite(self, finite: npt.NDArray[np.bool_], width: int, what: str) -> None:
        bad = np.flatnonzero(~finite)
        if len(bad):
            raise self.error(f"{what} to be finite", "another number", width * (int(bad[0]) - len(finite)))

    def stations(self, count: int) -> tuple[Reals, Singles]:
        """x, y, elevation per station, shape (count, 3), and the number after them."""
        table = np.frombuffer(self.take(_STATION.itemsize * count, "the stations"), dtype=_STATION)
        return np.ascontiguousarray(table["position"]), np.ascontiguousarray(table["number"])

    def mesh_counts(self, strict: bool) -> tuple[int, int, int, int, int, int]:
        """ny, nx, nz and npy, npx, npz."""
        ny, nx, nz = (self.count(axis) for axis in ("ny", "nx", "nz"))
        if nx * ny * nz > _LARGEST:
            raise self.error(f"mesh counts of at most {_LARGEST} cells", f"{ny} x {nx} x {nz}", -12)
        return ny, nx, nz, *self.padded_counts((ny, nx, nz), strict)

    def padded_counts(self, cells: tuple[int, int, int], strict: bool) -> tuple[int, int, int]:
        """npy, npx, npz: along x and y they hold the mesh, and the whole is no absurd multiple of it."""
        found = []
        for axis, count, least in zip(("npy", "npx", "npz"), cells, (cells[0], cells[1], 1)):
            extent = self.int32(axis)
            if not least <= extent <= max(1024, 64 * count):
                raise self.error(f"{axis} from {least} to {max(1024, 64 * count)}", str(extent), -4)
            if strict and extent > LONGEST_PLAIN_AXIS and extent & (extent - 1):
                raise self.error(f"{axis} of a power of two", str(extent), -4)
            found.append(extent)
        npy, npx, npz = found
        total, mesh = npy * npx * max(npz, cells[2]), cells[0] * cells[1] * cells[2]
        if total > _LARGEST or (total > 1 << 18 and total // 64 > mesh):
            raise self.error(f"a padded mesh that suits {mesh} cells", f"{npy} x {npx} x {npz}", -12)
        return npy, npx, npz

    @contextlib.contextmanager
    def record(self, length: int | None, what: str) -> Iterator[int]:
        """A framed record: its length before (as expected, when that is known) and after what is read inside."""
        begin = self.position
        found = self.int32(what)
        if length is not None and found != length:
            raise FileError(self.path, f"expected {what} of length {length}, found {found}", byte=begin)
        self.require(found + 4 if found >= 0 else 4, what)
        yield found
        end = self.int32(what)
        if end != found:
            raise self.error(f"{what} to end with its length {found}", str(end), -4)
