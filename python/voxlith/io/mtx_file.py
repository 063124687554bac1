"""Sensitivity files (MTX): header, rows and tail in the three layouts, read a row at a time.

A file holds one row per datum: the sensitivities to the cells divided by the depth weights of the cells, padded with
zeros, transformed to wavelet coefficients, and reduced to the largest of them. All numbers are little-endian.

=========== ==================================================================================================
layout      content
=========== ==================================================================================================
``tagged``  ``VX3D``, version, data type, field, stations, mesh, filter, nodes, depth weights, rows, diagonal
            of G'G and, in version 2, inversion style and layer responses
``bare``    the same without ``VX3D``, version, field and stations, and without what version 2 adds
``record``  records framed by their length; no data type, field, stations and diagonal
=========== ==================================================================================================
"""

from __future__ import annotations

import os
import struct
from collections.abc import Iterator
from dataclasses import dataclass
from types import TracebackType
from typing import NamedTuple

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike
from .mtx_header import MtxHeader, read_header
from .mtx_input import BinaryInput
from .output import open_input

Reals = npt.NDArray[np.float64]
Singles = npt.NDArray[np.float32]
Integers = npt.NDArray[np.int32]

_BLOCK = 1 << 19  # bytes read at once; still in the cache when the indices are looked at


@dataclass
class MtxTail:
    """What follows the rows.

    Attributes
    ----------
    diagonal : ndarray, shape (nx ny nz,)
        Diagonal of G'G: sum of the squared sensitivities of each cell over its depth weight squared.
    style : int or None
        Inversion style, 0 to 4; tagged layout of version 2.
    layer_response : ndarray, shape (n_data, nzl + 1), or None
        Response of each covered layer, and of the whole mesh, for unit property; tagged layout of version 2.
    """

    diagonal: Reals
    style: int | None = None
    layer_response: Reals | None = None


class MtxRow(NamedTuple):
    """One row as it is stored.

    Attributes
    ----------
    positions : ndarray of int32, shape (n,)
        Positions in the padded array, counted from 1: ``z + npz (x-1) + npz npx (y-1)``.
    values : ndarray of float32, shape (n,)
        Wavelet coefficients.
    dense : bool
        Whether the row is stored without positions, with a value for each of ``header.n_dense`` of them.
    """

    positions: Integers
    values: Singles
    dense: bool = False


class MtxFile:
    """A sensitivity file that is open for reading.

    Parameters
    ----------
    path : path
    name : str, optional
        Name as the control file has it, when it differs: in the record layout the name decides about the data type.
    strict : bool
        Whether rows without coefficients, padded extents that are no power of two and nodes that do not follow one
        another are an error.

    Raises
    ------
    FileError
        The file, the byte, what was expected and what was found.

    Attributes
    ----------
    header : MtxHeader

    Examples
    --------
    ::

        with MtxFile("gz.mtx") as mtx:
            for row in mtx.rows():
                print(len(row.positions), abs(row.values).max())
    """

    def __init__(self, path: PathLike, *, name: str | None = None, strict: bool = True) -> None:
        self.path = os.fspath(path)
        self.strict = strict
        self._input = BinaryInput(open_input(path), self.path)
        self._ends: list[int] = []  # byte after each row, once the counts have been read
        self._rows_end = 0  # byte after the last row, once it is known
        try:
            self.header = read_header(self._input, name or self.path, strict)
        except BaseException:
            self._input.close()
            raise

    def __enter__(self) -> MtxFile:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Close the file."""
        self._input.close()

    def rows(self, *, check: bool = True) -> Iterator[MtxRow]:
        """All rows in order.

        Parameters
        ----------
        check : bool
            Whether indices outside the padded array are looked for.

        Yields
        ------
        MtxRow
            Views of read-only memory of a few megabytes, which lives as long as a row of it is kept.

        Raises
        ------
        FileError
            When the rows are damaged or cut.
        """
        begin = self.header.rows_begin
        done = 0
        new_row = tuple.__new__
        while done < self.header.n_data:
            block = self._input.bytes_at(begin, _BLOCK)
            bounds, taken = self._cut_rows(block, begin, self.header.n_data - done)
            if not bounds:
                block = self._input.bytes_at(begin, self._row_bytes(block, begin))
                bounds, taken = self._cut_rows(block, begin, 1)
            words = np.frombuffer(block, dtype="<i4", count=taken // 4)
            if check:
                self._check_indices(words, bounds, begin)
            values = words.view("<f4")
            for start, middle in zip(bounds[::2], bounds[1::2]):
                if middle >= start:
                    # As MtxRow(...), in a third of the time.
                    yield new_row(MtxRow, (words[start:middle], values[middle: 2 * middle - start], False))
                else:
                    yield MtxRow(self._dense_index(), values[start: start + self.header.n_dense], True)
            done += len(bounds) // 2
            begin += taken
        self._rows_end = begin

    def row(self, number: int) -> MtxRow:
        """One row by its number from 0; the counts of all rows are read once. Raises FileError and IndexError."""
        n_data = self.header.n_data
        if not -n_data <= number < n_data:
            raise IndexError(f"row {number}: the file has {n_data} rows")
        number %= n_data
        ends = self._row_ends()
        begin = ends[number - 1] if number else self.header.rows_begin
        block = self._input.bytes_at(begin, ends[number] - begin)
        (start, middle), taken = self._cut_rows(block, begin, 1)
        words = np.frombuffer(block, dtype="<i4", count=taken // 4)
        self._check_indices(words, [start, middle], begin)
        values = words.view("<f4")
        if middle < start:
            return MtxRow(self._dense_index(), values[start: start + self.header.n_dense], True)
        return MtxRow(words[start:middle], values[middle: 2 * middle - start])

    def row_counts(self) -> Integers:
        """Number of coefficients of each row, shape (n_data,). Only the counts are read."""
        begins = np.array([self.header.rows_begin, *self._row_ends()])
        lengths = (np.diff(begins) // 4 - 1 - 2 * self._frame) // 2
        dense = np.diff(begins) // 4 - 1 == self.header.n_dense
        for number in np.flatnonzero(dense):
            count = self._input.int_at(int(begins[number]) + 4 * self._frame, "the count of a row")
            lengths[number] = self.header.n_dense if count < 0 else count
        return lengths.astype(np.int32)

    def mapped_rows(self) -> list[MtxRow]:
        """All rows as views of the file in memory: nothing is read before it is touched, and nothing is checked but
        the counts.

        A file that is cut while it is mapped ends the program; use it for files that nobody writes to.
        """
        words = np.memmap(self.path, dtype=np.uint8, mode="r")
        found = []
        begin = self.header.rows_begin
        for count, end in zip(self.row_counts().tolist(), self._row_ends()):
            first = begin + 4 * (1 + self._frame)
            if end - first == 4 * self.header.n_dense and count == self.header.n_dense:
                found.append(MtxRow(self._dense_index(), words[first: end].view("<f4"), True))
            else:
                middle = first + 4 * count
                found.append(MtxRow(words[first: middle].view("<i4"), words[middle: middle + 4 * count].view("<f4")))
            begin = end
        return found

    def tail(self) -> MtxTail | None:
        """What follows the rows; None in the record layout, which has nothing there. Raises FileError."""
        head, source = self.header, self._input
        if head.form == "record":
            return None
        source.position = self._rows_end or self._row_ends()[-1]
        versioned = head.form == "tagged" and head.version > 1
        layers = (head.layers + 1) * head.n_data
        source.require(8 * head.n_cells + (4 + 8 * layers if versioned else 0), "the diagonal and what follows it")
        diagonal = source.reals(head.n_cells, "the diagonal of G'G")
        if not versioned:
            return MtxTail(diagonal)
        style = source.int32("the inversion style")
        response = source.reals(layers, "the layer responses")
        return MtxTail(diagonal, style, response.reshape(head.n_data, head.layers + 1))

    @property
    def _frame(self) -> int:
        """Words of the length before and after each row."""
        return 1 if self.header.form == "record" else 0

    def _dense_index(self) -> Integers:
        return np.arange(1, self.header.n_dense + 1, dtype=np.int32)

    def _row_ends(self) -> list[int]:
        """Byte after each row. The counts are read once."""
        if not self._ends:
            begin, ends = self.header.rows_begin, []
            for _ in range(self.header.n_data):
                begin += self._row_bytes(self._input.bytes_at(begin, 8), begin)
                ends.append(begin)
            self._ends = ends
        return self._ends

    def _row_bytes(self, start: bytes, begin: int) -> int:
        """Length of the row that begins at byte `begin`, of which `start` is the beginning; it is all there."""
        need = 4 * (1 + self._frame)
        if len(start) < need:
            raise FileError(self.path, f"expected the count of a row ({need} bytes), found only {len(start)} to the "
                            "end of the file", byte=begin)
        count: int = struct.unpack_from("<i", start, 4 * self._frame)[0]
        framed: int = struct.unpack_from("<i", start)[0]
        if self._frame and (count < 0 or framed != 4 + 8 * count):
            raise FileError(self.path, f"expected the record of a row of 0 or more coefficients, found the length "
                            f"{framed} and the count {count}", byte=begin)
        if count == 0 and not self._frame and self.strict:
            raise FileError(self.path, "expected a row of 1 coefficient or more, found 0", byte=begin)
        length = need + 4 * self._frame + (4 * self.header.n_dense if count < 0 else 8 * count)
        if begin + length > self._input.size:
            raise FileError(self.path, f"expected the coefficients of a row ({length} bytes), found only "
                            f"{self._input.size - begin} to the end of the file", byte=begin)
        return length

    def _cut_rows(self, block: bytes, begin: int, most: int) -> tuple[list[int], int]:
        """Rows that a block holds whole.

        Returns
        -------
        bounds : list of int
            Of each row the word at which its indices begin, and the word at which its values begin. The second is
            smaller than the first for a dense row, whose values begin at the first.
        taken : int
            Bytes of the rows.
        """
        words = memoryview(block)[: len(block) // 4 * 4].cast("i")
        frame, size = self._frame, len(words)
        dense = self.header.n_dense
        bounds: list[int] = []
        at = 0
        if not frame:
            # The usual rows of the layouts without frames; the first other one ends them.
            add = bounds.append
            while at < size and (count := words[at]) > 0:
                add(at + 1)
                at += count + 1
                add(at)
                at += count
            if at > size:
                at = bounds[-2] - 1
                del bounds[-2:]
            if len(bounds) > 2 * most:
                at = bounds[2 * most] - 1
                del bounds[2 * most:]
        while len(bounds) < 2 * most and at + 1 + 2 * frame <= size:
            count = words[at + frame]
            first = at + 1 + frame
            end = first + (2 * count if count >= 0 else dense) + frame
            if end > size:
                break
            if count <= 0 or frame:
                self._row_bytes(block[4 * at: 4 * at + 8], begin + 4 * at)
            if frame and words[end - 1] != words[at]:
                raise FileError(self.path, f"expected the record of a row to end with its length {words[at]}, found "
                                f"{words[end - 1]}", byte=begin + 4 * (end - 1))
            bounds += (first, first + count)
            at = end
        return bounds, 4 * at

    def _check_indices(self, words: Integers, bounds: list[int], begin: int) -> None:
        """All indices within 1 to the padded cells; those of a row are words[start:middle]."""
        index = np.array(bounds)
        if (index[1:] <= index[:-1]).any():
            pairs = index.reshape(-1, 2)
            index = pairs[pairs[:, 0] < pairs[:, 1]].ravel()
            if not len(index):
                return
        # The extremes of all rows of a block at once; those of the words between the indices are not looked at.
        unsigned, highest_allowed = words.view("<u4"), self.header.n_padded
        highest = np.maximum.reduceat(unsigned, index)[::2]
        lowest = np.minimum.reduceat(unsigned, index)[::2]
        if highest.max() > highest_allowed or not lowest.min():
            row = int(np.flatnonzero((highest > highest_allowed) | (lowest == 0))[0])
            start, middle = index[2 * row: 2 * row + 2]
            indices = unsigned[start:middle]
            bad_word = int(start + np.flatnonzero((indices < 1) | (indices > highest_allowed))[0])
            raise FileError(self.path, f"expected a coefficient index within 1 to {highest_allowed}, found "
                            f"{words[bad_word]}", byte=begin + 4 * bad_word)


def read_mtx_header(path: PathLike, *, name: str | None = None, strict: bool = True) -> MtxHeader:
    """Header of a sensitivity file; see :class:`MtxFile`. Raises FileError."""
    with MtxFile(path, name=name, strict=strict) as mtx:
        return mtx.header
