"""The transform: against its definition, its adjoint, an independent peer; and what is kept of a row."""

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

from voxlith import UsageError
from voxlith import compression
from voxlith.compression import compress_row
from voxlith.wavelet import Filter, daubechies_filter, forward_transform, inverse_transform, mirrored_filter, padded_extent


def plain_step(line, n, bank, forward):
    """One level by its definition, number by number."""
    half, taps, work = n // 2, bank.taps, [0.0] * n
    base = taps * n - taps // 2
    low, high = bank.low.astype(float).tolist(), bank.high.astype(float).tolist()
    for i in range(half):
        for k in range(taps):
            j = (base + 2 * i + k + 2) & (n - 1)
            if forward:
                work[i] += low[k] * line[j]
                work[i + half] += high[k] * line[j]
            else:
                work[j] += low[k] * line[i] + high[k] * line[i + half]
    line[:n] = work


def plain_line(values, bank, forward):
    line = list(map(float, values))
    n = len(line) if forward else 4
    while 4 <= n <= len(line):
        plain_step(line, n, bank, forward)
        n = n // 2 if forward else 2 * n
    return line


@pytest.mark.parametrize("taps", [4, 6, 8, 2, 10, 3, 7])
@pytest.mark.parametrize("extent", [8, 16, 64, 5, 12, 6])
@pytest.mark.parametrize("forward", [True, False])
def test_lines_are_transformed_by_the_definition_to_the_bit(taps, extent, forward):
    rng = np.random.default_rng(taps * extent)
    low = rng.normal(size=taps).astype(np.float32)
    bank = Filter(low, mirrored_filter(low)) if taps not in (4, 6, 8) else daubechies_filter(taps)
    transform = forward_transform if forward else inverse_transform
    for axis in range(3):
        shape = [3, 3, 3]
        shape[axis] = extent
        array = rng.normal(size=shape)
        found = np.moveaxis(transform(array, bank), axis, 2).reshape(-1, extent)
        for line, values in zip(found, np.moveaxis(array, axis, 2).reshape(-1, extent)):
            assert line.tolist() == plain_line(values, bank, forward)


def test_axes_up_to_four_are_left_alone():
    array = np.random.default_rng(1).normal(size=(4, 2, 1))
    np.testing.assert_array_equal(forward_transform(array, daubechies_filter(4)), array)


@pytest.mark.parametrize("taps", [4, 6, 8])
def test_orthonormal(taps):
    rng = np.random.default_rng(taps)
    bank = daubechies_filter(taps)
    a, b = rng.normal(size=(2, 16, 8, 32))
    forward = forward_transform(a, bank)
    np.testing.assert_allclose(inverse_transform(forward, bank), a, atol=3e-6)
    assert np.sum(forward * b) == pytest.approx(np.sum(a * inverse_transform(b, bank)), rel=1e-12)
    assert np.linalg.norm(forward) == pytest.approx(np.linalg.norm(a), rel=1e-6)


@pytest.mark.parametrize("taps", [4, 6, 8])
def test_filters_have_their_moments(taps):
    """Orthonormal to shifts by two, and blind to polynomials of degree below taps/2."""
    bank = daubechies_filter(taps)
    low = bank.low.astype(float)
    for shift in range(0, taps, 2):
        assert np.dot(low[: taps - shift], low[shift:]) == pytest.approx(float(shift == 0), abs=1e-6)
    for power in range(taps // 2):
        assert np.dot(bank.high.astype(float), np.arange(taps) ** power) == pytest.approx(0.0, abs=1e-4)


def test_unknown_lengths_are_refused():
    with pytest.raises(UsageError, match="taps 5: expected 4, 6 or 8"):
        daubechies_filter(5)
    with pytest.raises(UsageError, match="padded array"):
        forward_transform(np.zeros(8), daubechies_filter(4))


@pytest.mark.parametrize("filled", [slice(0, 5), slice(2, 3), slice(0, 0)])
@pytest.mark.parametrize(("shape", "padded"), [((5, 6, 7), (8, 8, 16)), ((5, 3, 2), (16, 4, 2)), ((5, 7, 4), (8, 8, 8))])
def test_the_mesh_alone_is_transformed_as_the_padded_array(filled, shape, padded):
    """To the bit: lines of zeros, and what is cropped, cost nothing but change nothing."""
    rng = np.random.default_rng(7)
    bank = daubechies_filter(6)
    cells = np.zeros(shape)
    cells[filled] = rng.normal(size=shape)[filled]
    whole = np.zeros(padded)
    whole[: shape[0], : shape[1], : shape[2]] = cells
    coefficients = forward_transform(whole, bank)
    assert forward_transform(cells, bank, padded).tobytes() == coefficients.tobytes()
    coefficients[np.abs(coefficients) < 0.5] = 0.0
    part = inverse_transform(coefficients, bank)[: shape[0], : shape[1], : shape[2]]
    assert inverse_transform(coefficients, bank, shape).tobytes() == part.tobytes()


def test_padded_extents():
    assert [padded_extent(n) for n in (1, 2, 5, 1024, 1025)] == [1, 2, 8, 1024, 2048]


@pytest.mark.parametrize("tolerance", [0.0, 1e-6, 0.01, 0.3, 0.99])
@pytest.mark.parametrize("kind", ["spread", "equal", "steps", "tiny"])
def test_long_rows_keep_what_a_sort_of_all_keeps(monkeypatch, tolerance, kind):
    rng = np.random.default_rng(11)
    row = {"spread": rng.normal(size=9000) ** 9, "equal": rng.choice([-1.0, 1.0], 9000), "steps": rng.integers(-3, 4, 9000) * 0.1,
           "tiny": 1e-170 * rng.normal(size=9000)}[kind]
    found = compress_row(row, tolerance)
    monkeypatch.setattr(compression, "_SHORT_ROW", 10000)
    sorted_out = compress_row(row, tolerance)
    assert found.positions.tolist() == sorted_out.positions.tolist() and found.values.tobytes() == sorted_out.values.tobytes()
    assert found.loss == pytest.approx(sorted_out.loss, rel=1e-9)


rows = st.lists(st.one_of(st.floats(-1e30, 1e30), st.sampled_from([0.0, 1.0, -1.0, 0.5])), min_size=1, max_size=60)


@given(rows, st.sampled_from([0.0, 1e-3, 0.1, 0.5, 0.99]))
def test_the_smallest_set_within_the_tolerance_is_kept(values, tolerance):
    values = np.array(values)
    kept = compress_row(values, tolerance)
    assert (np.diff(kept.positions) > 0).all() and len(kept.positions) >= 1
    np.testing.assert_array_equal(kept.values, values[kept.positions - 1].astype(np.float32))
    if not values.any():
        assert kept.positions.tolist() == [1] and kept.loss == 0.0
        return
    scale = np.abs(values).max()
    rest = np.delete(values, kept.positions - 1) / scale
    assert np.linalg.norm(rest) <= tolerance * np.linalg.norm(values / scale) * (1 + 1e-12)
    smallest = np.abs(values[kept.positions - 1]).min() / scale
    assert (np.abs(rest) <= smallest).all()
    if len(kept.positions) > 1 and smallest > 1e-100:
        more = np.linalg.norm(np.append(rest, smallest))
        assert more > tolerance * np.linalg.norm(values / scale) * (1 - 1e-12)


def test_of_equal_magnitudes_the_first_are_kept():
    assert compress_row(np.array([0.0, -1.0, 1.0, 1.0, -1.0]), 0.71).positions.tolist() == [2, 3]


def test_rows_that_single_precision_cannot_hold():
    for value in (1e39, np.nan, np.inf):
        with pytest.raises(UsageError, match="too large for single precision"):
            compress_row(np.array([1.0, value]), 0.1)
