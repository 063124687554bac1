"""IGRF-14: components against the public calculator of the model, and the poles, dates and places it refuses."""

from __future__ import annotations

import datetime
from pathlib import Path

import numpy as np
import pytest

from voxlith import UsageError
from voxlith.igrf import decimal_year, main_field

VALUES = np.genfromtxt(Path(__file__).parent / "igrf14_values.csv", delimiter=",", dtype=None, encoding="ascii")
TOLERANCE = 0.2  # nT: the table is rounded to 0.1 and its calculator rounds dates


def test_components_agree_with_the_calculator_of_the_model():
    assert len(VALUES) == 75
    for longitude, latitude, height, date, north, east, down in VALUES.tolist():
        field = main_field(longitude, latitude, height, date)
        assert np.allclose([field.north, field.east, field.down], [north, east, down], rtol=0.0, atol=TOLERANCE), date


def test_angles_follow_from_the_components():
    field = main_field(118.0, -22.5, 500.0, "2020-07-01")
    inclination, declination = np.radians([field.inclination, field.declination])
    rebuilt = field.strength * np.array([np.cos(inclination) * np.cos(declination),
                                         np.cos(inclination) * np.sin(declination), np.sin(inclination)])
    assert np.allclose(rebuilt, [field.north, field.east, field.down])
    assert field.inclination < 0.0  # upwards in the south
    assert 15000.0 < field.inducing().strength < 80000.0


@pytest.mark.parametrize("latitude", [-90.0, 90.0])
def test_field_is_continuous_at_the_poles(latitude):
    at, near = main_field(30.0, latitude, 0.0, "2024-01-01"), main_field(30.0, latitude * 0.9999999, 0.0, "2024-01-01")
    assert np.allclose([at.north, at.east, at.down], [near.north, near.east, near.down], atol=0.01)


def test_field_has_neither_sources_nor_currents_outside_the_earth():
    """Divergence and curl in a local frame vanish up to the curvature of the frame (2 B / r is 16 nT/km)."""
    step = 1000.0
    degree = np.degrees(step / 6.371e6)
    def vector(dx, dy, dz):
        field = main_field(20.0 + dx * degree / np.cos(np.radians(40.0)), 40.0 + dy * degree, dz * step, "2015-01-01")
        return np.array([field.east, field.north, -field.down])
    slopes = [(vector(*axis) - vector(*(-np.array(axis)))) / 2.0 for axis in np.eye(3)]
    assert abs(slopes[0][0] + slopes[1][1] + slopes[2][2]) < 20.0
    assert abs(slopes[2][2]) > 10.0


def test_dates():
    assert decimal_year("2024-01-01") == 2024.0
    assert decimal_year(datetime.date(2023, 12, 31)) == pytest.approx(2023.0 + 364.0 / 365.0)
    assert decimal_year("2024.25") == 2024.25
    for text in ("", "2024-13-01", "01.05.2024", "may", "nan", "2024-02-30"):
        with pytest.raises(UsageError, match="expected YYYY-MM-DD"):
            decimal_year(text)


@pytest.mark.parametrize("place, message", [
    ((15.0, 91.0, 0.0, "2024"), "latitude within 90"), ((452000.0, 5.3, 0.0, "2024"), "longitude within 360"),
    ((15.0, 50.0, 1.0e6, "2024"), "height"), ((15.0, 50.0, 0.0, "1899-12-31"), "1900 to 2030"),
    ((15.0, 50.0, 0.0, "2031-01-01"), "1900 to 2030"), ((float("nan"), 50.0, 0.0, "2024"), "degrees"),
    ((15.0, 50.0, float("nan"), "2024"), "height")])
def test_refusals(place, message):
    with pytest.raises(UsageError, match=message):
        main_field(*place)
