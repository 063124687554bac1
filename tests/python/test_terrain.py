"""The surface between and outside of its points."""

import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

from voxlith import Mesh, Terrain, UsageError


@pytest.mark.parametrize("seed", range(20))
def test_a_plane_is_a_plane_and_its_points_are_met(seed):
    rng = np.random.default_rng(seed)
    x, y = rng.uniform(500000, 510000, 40), rng.uniform(7.5e6, 7.51e6, 40)
    z = 100 + 0.02 * (x - 500000) - 0.03 * (y - 7.5e6)
    terrain = Terrain(np.column_stack([x, y, z]))
    np.testing.assert_allclose(terrain(x, y), z, atol=1e-9)
    # The middle of three points is within the hull.
    mean = [np.mean([a[:-2], a[1:-1], a[2:]], axis=0) for a in (x, y, z)]
    np.testing.assert_allclose(terrain(mean[0], mean[1]), mean[2], atol=1e-6)


def test_outside_the_nearest_hull_point_counts():
    terrain = Terrain([[0, 0, 10], [100, 0, 20], [0, 100, 10], [100, 100, 20]])
    places = [(50, 50, 15), (25, -1000, 12.5), (1000, 40, 20), (-5, -5, 10), (1e300, 50, 20)]
    for x, y, expected in places:
        assert terrain(x, y) == pytest.approx(expected, abs=1e-6)


def test_a_profile_and_a_point():
    profile = [[0, 0, 0], [20, 20, 0], [10, 10, 10]]
    for x, y, expected in ((5, 5, 5), (0, 10, 5), (40, 20, 0), (-3, -3, 0)):
        assert Terrain(profile)(x, y) == pytest.approx(expected, abs=1e-6)
    assert Terrain([[5, 5, 7]])(-100, 3) == 7
    assert Terrain([[5, 5, 7]])([[1, 2]], 3).tolist() == [[7, 7]]
    assert Terrain([[0, 0, 4], [0, 0, 8], [10, 0, 6], [0, 10, 6]])(0, 0) == 6


def test_points_nearly_along_a_line():
    x = np.linspace(0.0, 1.0e4, 50)
    terrain = Terrain(np.column_stack([x, 1e-7 * np.sin(x), x]))
    assert terrain(2500.0, 0.0) == pytest.approx(2500.0, abs=1.0)


@given(st.lists(st.tuples(st.integers(-3, 3), st.integers(-3, 3), st.integers(0, 9)), min_size=1, max_size=12),
       st.floats(-10, 10), st.floats(-10, 10))
def test_elevations_stay_between_those_of_the_points(points, x, y):
    found = float(Terrain(points)(x, y))
    merged = {}
    for east, north, elevation in points:
        merged.setdefault((east, north), []).append(elevation)
    means = [np.mean(values) for values in merged.values()]
    assert min(means) - 1e-9 <= found <= max(means) + 1e-9


@given(st.integers(0, 2**32 - 1))
def test_the_hull_is_the_hull(seed):
    """Against the definition: the nearest point of all edges between neighbours of the convex hull."""
    rng = np.random.default_rng(seed)
    points = rng.uniform(-1, 1, (rng.integers(4, 20), 3))
    place = rng.uniform(-3, 3, 2)
    from scipy.spatial import ConvexHull, Delaunay
    if Delaunay(points[:, :2]).find_simplex(place) >= 0:
        return
    hull = ConvexHull(points[:, :2]).vertices
    share = np.linspace(0, 1, 20001)[:, None]
    best = (np.inf, 0.0)
    for a, b in zip(hull, np.roll(hull, 1)):
        line = points[a] + share * (points[b] - points[a])
        distance = np.hypot(*(line[:, :2] - place).T)
        best = min(best, (distance.min(), line[np.argmin(distance), 2]))
    assert Terrain(points)(*place) == pytest.approx(best[1], abs=1e-3)


def test_columns_above_the_surface_are_inactive():
    mesh = Mesh.from_widths((0, 0, 40), 3 * [10], 2 * [10], 4 * [10])
    terrain = Terrain([[0, -50, 40], [30, -50, 10], [0, 50, 40], [30, 50, 10]])
    assert mesh.inactive_counts(terrain).tolist() == [[0, 0], [1, 1], [2, 2]]


def test_points_are_read_written_and_checked(tmp_path):
    terrain = Terrain([[4.5e5, 5.3e6, 7.0], [4.6e5, 5.3e6, 8.0], [4.5e5, 5.4e6, 9.0]])
    terrain.write(tmp_path / "t.topo")
    again = Terrain.read(tmp_path / "t.topo")
    assert repr(again) == repr(terrain) == "Terrain(3 points, elevation 7 to 9)"
    assert again(4.5e5, 5.4e6) == 9.0
    for points in ([], [[1, 2]], [[1, 2, np.nan]]):
        with pytest.raises(UsageError):
            Terrain(points)
