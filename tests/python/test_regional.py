"""Separation of a regional field: truth recovered, whatever level, slope and anomalies there are."""

from __future__ import annotations

import numpy as np
import pytest

from voxlith import Survey, UsageError
from voxlith.regional import polynomial_regional, residual_level, subtract, upward_regional, wavelength_regional

SD = 0.02


def places(count: int = 20) -> tuple[np.ndarray, np.ndarray]:
    generator = np.random.default_rng(4)
    x, y = (a.ravel() * 100.0 + generator.normal(0.0, 8.0, count * count)
            for a in np.meshgrid(np.arange(count), np.arange(count)))
    return x, y


def mass(x, y, x0, y0, depth, amplitude):
    return amplitude * (1.0 + ((x - x0) ** 2 + (y - y0) ** 2) / depth**2) ** -1.5


def survey(data: np.ndarray, x: np.ndarray, y: np.ndarray, noise: float = SD) -> Survey:
    data = data + np.random.default_rng(7).normal(0.0, noise, data.shape)
    return Survey(x, y, 10.0 + 0.01 * x, [data], (0,), [np.full(data.shape, SD)])


@pytest.mark.parametrize("order", [0, 1, 2, 3])
def test_polynomial_is_recovered_beside_anomalies(order):
    x, y = places()
    u, v = (x - 950.0) / 950.0, (y - 950.0) / 950.0
    regional = 12.0 + (order > 0) * (2.0 * u - 1.0 * v) + (order > 1) * (0.7 * u * v - u**2) + (order > 2) * 0.5 * v**3
    found = polynomial_regional(survey(regional + mass(x, y, 600.0, 700.0, 120.0, 2.0), x, y), order)
    assert np.abs(found.values - regional).max() < (0.15 if order < 2 else 0.3)
    residual = subtract(survey(regional + mass(x, y, 600.0, 700.0, 120.0, 2.0), x, y), found)
    assert np.abs(residual.data[0] - mass(x, y, 600.0, 700.0, 120.0, 2.0)).max() < 0.3


def test_polynomial_of_a_line_has_no_slope_across_it():
    x = np.arange(60.0) * 50.0
    found = polynomial_regional(survey(3.0 + 0.001 * x, x, 0.0 * x), 1)
    assert np.allclose(found.values, 3.0 + 0.001 * x, atol=0.02)
    assert abs(found.coefficients[1]) < 1.0e-6


def test_masked_data_have_a_regional_too():
    x, y = places()
    made = survey(5.0 + 0.001 * x, x, y)
    made.data[0, :50] = np.nan
    found = polynomial_regional(made, 1)
    assert np.allclose(found.values, 5.0 + 0.001 * x, atol=0.02)
    assert np.isnan(subtract(made, found).data[0, :50]).all()


def test_upward_continuation_of_a_point_mass_is_that_of_a_deeper_one():
    """Noise-free and well inside the survey: the field at height h of a mass at depth d is that at depth d + h."""
    x, y = places()
    depth, height = 300.0, 200.0
    made = survey(mass(x, y, 950.0, 950.0, depth, 2.0), x, y, 0.0)
    made.elevation[:] = 0.0
    found = upward_regional(made, height).values
    expected = mass(x, y, 950.0, 950.0, depth + height, 2.0 * (depth / (depth + height)) ** 2)
    inner = (np.hypot(x - 950.0, y - 950.0) < 500.0)
    assert np.abs(found - expected)[inner].max() < 0.05 * expected.max()


def test_wavelengths_are_separated():
    x, y = places(28)
    long, short = 5.0 * np.sin(2 * np.pi * x / 4000.0), 1.0 * np.sin(2 * np.pi * x / 350.0)
    found = wavelength_regional(survey(long + short, x, y, 0.0), 1200.0).values
    inner = (abs(x - 1350.0) < 700.0) & (abs(y - 1350.0) < 700.0)
    assert np.abs(found - long)[inner].max() < 0.8
    assert np.std((found - long)[inner]) < 0.4


def test_regional_and_residual_add_up():
    x, y = places()
    made = survey(12.0 + 0.002 * x + mass(x, y, 900.0, 900.0, 150.0, 2.0), x, y)
    for regional in (polynomial_regional(made, 2), upward_regional(made, 500.0), wavelength_regional(made, 1500.0)):
        assert np.allclose(subtract(made, regional).data[0] + regional.values, made.data[0])


def test_refusals():
    x, y = places(4)
    made = survey(0.0 * x, x, y)
    for call, message in ((lambda: polynomial_regional(made, 4), "order of 0 to 3"),
                          (lambda: polynomial_regional(made, 3), "20 data or more"),
                          (lambda: upward_regional(made, 0.0), "height above 0"),
                          (lambda: wavelength_regional(made, 1.0e6), "wavelength"),
                          (lambda: polynomial_regional(made, 1, 3), "component")):
        with pytest.raises(UsageError, match=message):
            call()
    made.data[:] = np.nan
    with pytest.raises(UsageError, match="no datum"):
        polynomial_regional(made, 0)


def broad_anomaly(seed: int) -> tuple[Survey, np.ndarray]:
    """An anomaly of 0.6 that reaches the edges of a survey, on a plane; and the plane."""
    x, y = (a.ravel() * 100.0 for a in np.meshgrid(np.arange(12), np.arange(12)))
    plane = 5.0 + 0.001 * x - 0.0005 * y
    data = plane + mass(x, y, 550.0, 550.0, 350.0, 0.6) + np.random.default_rng(seed).normal(0.0, 0.03, x.shape)
    return Survey(x, y, 0.0 * x, [data], (0,), [np.full(x.shape, 0.03)]), plane


@pytest.mark.parametrize("seed", [0, 1])
def test_a_broad_anomaly_is_kept_by_its_sign_or_a_box(seed):
    made, plane = broad_anomaly(seed)
    usual = polynomial_regional(made, 1)
    too_high = (usual.values - plane).mean()
    assert too_high > 0.1
    assert set(residual_level(subtract(made, usual)).biased) == {"west", "east", "south", "north"}
    for options, part in (({"anomaly": "positive"}, 0.5), ({"outside": (150.0, 950.0, 150.0, 950.0)}, 0.7)):
        found = polynomial_regional(made, 1, **options)
        assert abs((found.values - plane).mean()) < part * too_high
        assert not {name for name, edge in residual_level(subtract(made, found)).edges.items() if edge < -0.02}


def test_signs_of_anomalies_mirror_each_other_and_leave_noise_alone():
    made, _ = broad_anomaly(3)
    turned = made.with_data(-made.data)
    assert np.allclose(polynomial_regional(made, 1, anomaly="positive").values,
                       -polynomial_regional(turned, 1, anomaly="negative").values, atol=1.0e-9)
    x, y = places()
    for sign in ("positive", "negative"):
        assert np.abs(polynomial_regional(survey(0.0 * x, x, y), 1, anomaly=sign).values).max() < 2.0 * SD


def test_boxes_that_leave_nothing_are_refused():
    made, _ = broad_anomaly(0)
    with pytest.raises(UsageError, match="found 0 outside of the box"):
        polynomial_regional(made, 1, outside=(-1.0, 2000.0, -1.0, 2000.0))
    with pytest.raises(UsageError, match="xmin below xmax"):
        polynomial_regional(made, 1, outside=(5.0, 2.0, 0.0, 1.0))


def test_slope_and_corners_of_a_tilted_plane():
    """Where two opposite corners are off, means along the edges do not show it."""
    x, y = (a.ravel() * 60.0 for a in np.meshgrid(np.arange(18.0), np.arange(18.0)))
    noise = np.random.default_rng(2).normal(0.0, 0.01, x.shape)
    plane = 0.0018 * x - 0.0011 * y
    survey = Survey(x, y, 0.0 * x, [plane + noise], (0,), [np.full(x.shape, 0.01)])
    fitted = polynomial_regional(survey, 1)
    assert fitted.slope == pytest.approx((0.0018, -0.0011), abs=2.0e-5)
    assert polynomial_regional(survey, 2).slope == pytest.approx((0.0018, -0.0011), abs=2.0e-5)
    assert polynomial_regional(survey, 0).slope is None
    assert residual_level(subtract(survey, fitted)).biased_corners == ()
    bumps = [np.exp(-((x - east) ** 2 + (y - north) ** 2) / 250.0**2) for east, north in ((0.0, 1020.0), (1020.0, 0.0))]
    level = residual_level(survey.with_data([noise + 0.06 * (bumps[1] - bumps[0])]))
    assert level.biased == () and level.biased_corners == ("northwest", "southeast")


def test_a_box_without_stations_is_refused():
    x, y = (a.ravel() * 60.0 + 500000.0 for a in np.meshgrid(np.arange(8.0), np.arange(8.0)))
    survey = Survey(x, y, 0.0 * x, [0.001 * x], (0,), [np.full(x.shape, 0.01)])
    with pytest.raises(UsageError, match="found none of 64 in 250,850,200,800; they are at x 500000 to"):
        polynomial_regional(survey, 1, outside=(250.0, 850.0, 200.0, 800.0))
