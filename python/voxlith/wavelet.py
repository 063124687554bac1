"""The separable 3-D wavelet transform of padded cell arrays, and the way between mesh and padded array.

Padded arrays have the shape (npy, npx, npz), z fastest; the mesh sits at their low corner. Every sum has the order of
the inversion program, so that both give the same bytes. The wavelets are Daubechies' orthonormal ones (I. Daubechies
1988, Communications on Pure and Applied Mathematics 41, 909-996).
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Final

import numpy as np
import numpy.typing as npt

from .errors import UsageError

Reals = npt.NDArray[np.float64]
Singles = npt.NDArray[np.float32]

LONGEST_PLAIN_AXIS: Final = 4
"""Axes up to this extent are not transformed and need no power of two."""

_TAPS: Final = {
    4: (0.482962913144534143375, 0.836516303737807905575, 0.224143868042013381026, -0.129409522551260381174),
    6: (0.332670552950082615999, 0.806891509311092576494, 0.459877502118491570095, -0.135011020010254588696,
        -0.0854412738820266616928, 0.0352262918857095366027),
    8: (0.230377813308896500863, 0.71484657055291564709, 0.630880767929858907882, -0.0279837694168598542114,
        -0.18703481171909308408, 0.0308413818355607636272, 0.0328830116668851997354, -0.0105974017850690321049),
}


@dataclass(frozen=True)
class Filter:
    """Low-pass and high-pass filter of a transform.

    Attributes
    ----------
    low, high : ndarray of float32, shape (taps,)
    """

    low: Singles
    high: Singles

    @property
    def taps(self) -> int:
        """Filter length."""
        return len(self.low)


def mirrored_filter(low: Singles) -> Singles:
    """High-pass filter that goes with a low-pass one: backwards, with alternating sign, the last one negative.

    >>> mirrored_filter(np.array([1, 2, 3, 4], dtype=np.float32))
    array([ 4., -3.,  2., -1.], dtype=float32)
    """
    signs = np.where(np.arange(len(low)) % 2 == 0, -1, 1).astype(np.float32)
    return np.ascontiguousarray((signs * low)[::-1])


def daubechies_filter(taps: int) -> Filter:
    """Filter of a Daubechies wavelet in the extremal-phase order.

    Parameters
    ----------
    taps : int
        Filter length: 4, 6 or 8.

    Raises
    ------
    UsageError
        For another length.

    >>> daubechies_filter(4).high
    array([-0.12940952, -0.22414386,  0.8365163 , -0.4829629 ], dtype=float32)
    """
    if taps not in _TAPS:
        raise UsageError(f"taps {taps}: expected 4, 6 or 8")
    low = np.array(_TAPS[taps], dtype=np.float32)
    return Filter(low, mirrored_filter(low))


def padded_extent(cells: int) -> int:
    """Smallest power of two that holds the cells of an axis.

    >>> [padded_extent(n) for n in (1, 3, 8, 9)]
    [1, 4, 8, 16]
    """
    return 1 << (cells - 1).bit_length()


def _forward_step(lines: Reals, n: int, bank: Filter) -> None:
    """One level on the first n values (rows of `lines`, shape (extent, lines)), in place."""
    half, taps = n // 2, bank.taps
    out = np.zeros((n, lines.shape[1]))
    smooth, detail = out[:half], out[half:]
    if n & (n - 1):
        base = taps * n - taps // 2
        for i in range(half):
            for k in range(taps):
                value = lines[(base + 2 * i + k + 2) & (n - 1)]
                smooth[i] += float(bank.low[k]) * value
                detail[i] += float(bank.high[k]) * value
    else:
        twice = np.concatenate((lines[:n], lines[:n]))
        term = np.empty_like(smooth)
        for k in range(taps):
            first = (taps * n - taps // 2 + k + 2) & (n - 1)
            values = twice[first: first + n: 2]
            smooth += np.multiply(values, float(bank.low[k]), out=term)
            detail += np.multiply(values, float(bank.high[k]), out=term)
    lines[:n] = out


def _inverse_step(lines: Reals, n: int, bank: Filter) -> None:
    """The transpose of :func:`_forward_step`; n is a power of two."""
    half, taps = n // 2, bank.taps
    base = taps * n - taps // 2 + 2
    out = np.zeros((n, lines.shape[1]))
    # Outputs that the filter reaches round the end of the line, one by one; all others at once. Either way an output
    # adds its terms in the order of i.
    reach = taps // 2
    wrapped = half if taps % 2 else min(half, reach)
    indices = {(base + 2 * m + odd) & (n - 1) for m in range(wrapped) for odd in (0, 1)}
    for i in range(half) if wrapped == half else sorted({*range(wrapped), *range(max(half - reach, 0), half)}):
        for k in range(taps):
            j = (base + 2 * i + k) & (n - 1)
            if j in indices:
                out[j] += float(bank.low[k]) * lines[i] + float(bank.high[k]) * lines[i + half]
    _add_inner(lines, out, n, bank, wrapped)
    lines[:n] = out


def _add_inner(lines: Reals, out: Reals, n: int, bank: Filter, wrapped: int) -> None:
    """Outputs m >= wrapped, of which each pair sees taps/2 values of either half."""
    half, reach = n // 2, bank.taps // 2
    count = half - wrapped
    if count <= 0:
        return
    term, other = np.empty((2, count, lines.shape[1]))
    for odd in (0, 1):
        total = np.zeros_like(term)
        for t in range(reach):
            k = 2 * (reach - 1 - t) + odd
            first = wrapped + 1 - reach + t
            np.multiply(lines[first: first + count], float(bank.low[k]), out=term)
            term += np.multiply(lines[half + first: half + first + count], float(bank.high[k]), out=other)
            total += term
        indices = (bank.taps * n - bank.taps // 2 + 2 + odd + 2 * np.arange(wrapped, half)) & (n - 1)
        out[indices] = total


def _levels(extent: int) -> list[int]:
    """Lengths of the levels, the longest first."""
    found = []
    while extent >= 4:
        found.append(extent)
        extent //= 2
    return found


def _forward_lines(lines: Reals, bank: Filter) -> None:
    """All levels along the first axis, shape (extent, lines), in place; extents of 4 or less are left alone."""
    if len(lines) > LONGEST_PLAIN_AXIS:
        for n in _levels(len(lines)):
            _forward_step(lines, n, bank)


def _inverse_lines(lines: Reals, bank: Filter) -> None:
    """The transpose of :func:`_forward_lines`."""
    n = 4
    while n <= len(lines) > LONGEST_PLAIN_AXIS:
        _inverse_step(lines, n, bank)
        n *= 2


def _require_volume(array: Reals) -> None:
    if array.ndim != 3:
        raise UsageError(f"padded array: expected the shape (npy, npx, npz), found {array.shape}")


def forward_transform(cells: Reals, bank: Filter, shape: tuple[int, int, int] | None = None) -> Reals:
    """All levels along z, x and y, in this order; axes of extent 4 or less are left alone.

    Parameters
    ----------
    cells : ndarray, shape (ny, nx, nz)
        The low corner of a padded array, which is 0 elsewhere.
    bank : Filter
    shape : tuple of 3 int, optional
        npy, npx, npz of the padded array; by default that of `cells`. Extents above 4 are powers of two.

    Returns
    -------
    ndarray, shape (npy, npx, npz)
    """
    array = np.asarray(cells, dtype=np.float64)
    _require_volume(array)
    ny, nx, nz = array.shape
    npy, npx, npz = shape or array.shape
    # Lines of zeros stay zeros, so only the others are transformed.
    filled = np.flatnonzero(array.any(axis=(1, 2)))
    first, end = (int(filled[0]), int(filled[-1]) + 1) if len(filled) else (0, 0)
    lines = np.zeros((npz, end - first, nx))
    lines[:nz] = np.moveaxis(array[first:end], 2, 0)
    _forward_lines(lines.reshape(npz, -1), bank)
    along_x = np.zeros((npx, npz, end - first))
    along_x[:nx] = np.moveaxis(lines, 2, 0)
    _forward_lines(along_x.reshape(npx, -1), bank)
    along_y = np.zeros((npy, npx, npz))
    along_y[first:end] = np.moveaxis(along_x, 2, 0)
    _forward_lines(along_y.reshape(npy, -1), bank)
    return along_y


def inverse_transform(padded: Reals, bank: Filter, shape: tuple[int, int, int] | None = None) -> Reals:
    """The transpose of :func:`forward_transform`, and its inverse within rounding.

    Parameters
    ----------
    padded : ndarray, shape (npy, npx, npz)
    bank : Filter
    shape : tuple of 3 int, optional
        The part to compute, at the low corner; by default all.

    Returns
    -------
    ndarray, of that shape
    """
    array = np.asarray(padded, dtype=np.float64)
    _require_volume(array)
    npy, npx, npz = array.shape
    ny, nx, nz = shape or array.shape
    columns = array.reshape(-1, npz)
    filled = np.flatnonzero(columns.any(axis=1))
    lines = np.ascontiguousarray(columns[filled].T)
    _inverse_lines(lines, bank)
    along_z = np.zeros((nz, npy * npx))
    along_z[:, filled] = lines[:nz]
    along_x = np.ascontiguousarray(np.moveaxis(along_z.reshape(nz, npy, npx), 2, 0))
    _inverse_lines(along_x.reshape(npx, -1), bank)
    along_y = np.ascontiguousarray(np.moveaxis(along_x[:nx], 2, 0))
    _inverse_lines(along_y.reshape(npy, -1), bank)
    return along_y[:ny]
