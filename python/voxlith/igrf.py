"""The Earth's main field from IGRF-14: inclination, declination and strength from place, height and date.

The field is minus the gradient of V = a sum_n sum_m (a/r)^(n+1) (g_nm cos m lon + h_nm sin m lon) P_nm(cos theta), with
Schmidt semi-normalised functions P_nm, degree up to 13, a = 6371.2 km. Coefficients are linear in time between epochs
five years apart; after the last epoch they follow the secular variation. The place is geodetic, on the WGS84 ellipsoid.

Sources: International Association of Geomagnetism and Aeronomy, Working Group V-MOD (2024), IGRF-14,
doi 10.5281/zenodo.14012302; R. A. Langel (1987), The main field, in Geomagnetism, vol. 1, section 4.
"""

from __future__ import annotations

import calendar
import datetime
import math
from dataclasses import dataclass
from functools import lru_cache
from importlib import resources

import numpy as np
import numpy.typing as npt

from .errors import UsageError
from .survey import InducingField

Reals = npt.NDArray[np.float64]

COEFFICIENTS = "igrf14coeffs.txt"
_REFERENCE_RADIUS = 6371.2  # km
_SEMI_MAJOR, _SEMI_MINOR = 6378.137, 6356.752314245  # km, WGS84
_LOWEST, _HIGHEST = -10.0e3, 600.0e3  # metres
_POLE = 1.0e-10  # smallest sine of the colatitude; the east component divides by it


@dataclass(frozen=True)
class MainField:
    """The field at a place.

    Attributes
    ----------
    north, east, down : float
        Components in the geodetic frame, nT.
    """

    north: float
    east: float
    down: float

    @property
    def strength(self) -> float:
        """Magnitude, nT."""
        return math.sqrt(self.north**2 + self.east**2 + self.down**2)

    @property
    def inclination(self) -> float:
        """Downwards from the horizontal, degrees."""
        return math.degrees(math.atan2(self.down, math.hypot(self.north, self.east)))

    @property
    def declination(self) -> float:
        """Clockwise from true north, degrees."""
        return math.degrees(math.atan2(self.east, self.north))

    def inducing(self) -> InducingField:
        """As the inducing field of a survey, whose x runs to true east."""
        return InducingField(self.inclination, self.declination, self.strength)


@dataclass(frozen=True)
class _Model:
    """Coefficients g and h, shape (epochs, degree + 1, degree + 1) by degree and order, and the epochs in years. The
    last epoch is five years after the last model and follows from the secular variation."""

    epochs: Reals
    g: Reals
    h: Reals


def decimal_year(date: datetime.date | str) -> float:
    """A date as a year with a fraction: days since 1 January at 00:00 over the days of the year.

    Parameters
    ----------
    date : date or str
        As text ``YYYY-MM-DD``, or a year such as ``2024.5``.

    Raises
    ------
    UsageError
        For a text that is no date.

    Examples
    --------
    >>> decimal_year("2023-07-02"), decimal_year("2020.5")
    (2023.4986301369863, 2020.5)
    """
    if isinstance(date, str):
        text = date.strip()
        try:
            if "-" not in text.lstrip("-"):
                year = float(text)
                if math.isfinite(year):
                    return year
            date = datetime.date.fromisoformat(text)
        except ValueError:
            pass
        if isinstance(date, str):
            raise UsageError(f"date {text}: expected YYYY-MM-DD, or a year such as 2024.5")
    return date.year + (date.timetuple().tm_yday - 1) / (366 if calendar.isleap(date.year) else 365)


def main_field(longitude: float, latitude: float, height: float, date: datetime.date | str) -> MainField:
    """The field of IGRF-14.

    Parameters
    ----------
    longitude, latitude : float
        Geodetic, degrees, WGS84; east and north positive.
    height : float
        Above the ellipsoid, metres. Heights above sea level differ by less than 110 m, which is less than 6 nT.
    date : date or str
        See :func:`decimal_year`; from 1900 to 2030.

    Raises
    ------
    UsageError
        When place, height or date are outside of the model.

    Examples
    --------
    >>> field = main_field(15.0, 50.0, 400.0, "2024-05-01")
    >>> round(field.inclination, 1), round(field.declination, 1), round(field.strength, -2)
    (66.2, 5.0, 49400.0)
    """
    year = decimal_year(date)
    model = _model()
    if not model.epochs[0] <= year <= model.epochs[-1]:
        raise UsageError(f"date {date}: expected a date from {model.epochs[0]:.0f} to {model.epochs[-1]:.0f}, which "
                         "IGRF-14 covers")
    if not (abs(latitude) <= 90.0 and abs(longitude) <= 360.0):
        raise UsageError(f"longitude {longitude:g}, latitude {latitude:g}: expected degrees, latitude within 90 and "
                         "longitude within 360")
    if not _LOWEST <= height <= _HIGHEST:
        raise UsageError(f"height {height:g}: expected metres from {_LOWEST:g} to {_HIGHEST:g}")
    g, h = _at(model, year)
    return _synthesis(g, h, math.radians(longitude), math.radians(latitude), height / 1000.0)


@lru_cache(maxsize=1)
def _model() -> _Model:
    text = (resources.files("voxlith") / "data" / COEFFICIENTS).read_text(encoding="ascii")
    rows = [line.split() for line in text.splitlines() if not line.startswith("#")]
    epochs = [float(word) for word in rows[1][3:-1]]
    values = [(row[0], int(row[1]), int(row[2]), [float(word) for word in row[3:]]) for row in rows[2:] if row]
    degree = max(n for _, n, _, _ in values)
    g, h = (np.zeros((len(epochs) + 1, degree + 1, degree + 1)) for _ in range(2))
    for letter, n, m, numbers in values:
        # The last column is the change per year.
        (g if letter == "g" else h)[:, n, m] = [*numbers[:-1], numbers[-2] + 5.0 * numbers[-1]]
    return _Model(np.array([*epochs, epochs[-1] + 5.0]), g, h)


def _at(model: _Model, year: float) -> tuple[Reals, Reals]:
    """Coefficients of a date, linear between epochs."""
    first = min(int(np.searchsorted(model.epochs, year, side="right")) - 1, len(model.epochs) - 2)
    part = (year - model.epochs[first]) / (model.epochs[first + 1] - model.epochs[first])
    g: Reals = (1.0 - part) * model.g[first] + part * model.g[first + 1]
    h: Reals = (1.0 - part) * model.h[first] + part * model.h[first + 1]
    return g, h


def _geocentric(latitude: float, height: float) -> tuple[float, float, float, float]:
    """Radius (km) and sine of the latitude of a geodetic place, and cosine and sine of the angle between both verticals."""
    sine, cosine = math.sin(latitude), math.cos(latitude)
    a2, b2 = _SEMI_MAJOR**2, _SEMI_MINOR**2
    normal = a2 / math.sqrt(a2 * cosine**2 + b2 * sine**2)
    rho, z = (normal + height) * cosine, (normal * b2 / a2 + height) * sine
    radius = math.hypot(rho, z)
    return radius, z / radius, (rho * cosine + z * sine) / radius, (rho * sine - z * cosine) / radius


def _legendre(cosine: float, sine: float, degree: int) -> tuple[Reals, Reals]:
    """Schmidt semi-normalised functions P_nm of the colatitude, and their derivatives to it."""
    p, d = np.zeros((degree + 1, degree + 1)), np.zeros((degree + 1, degree + 1))
    p[0, 0] = 1.0
    for n in range(1, degree + 1):
        factor = 1.0 if n == 1 else math.sqrt(1.0 - 0.5 / n)
        p[n, n] = factor * sine * p[n - 1, n - 1]
        d[n, n] = factor * (sine * d[n - 1, n - 1] + cosine * p[n - 1, n - 1])
        for m in range(n):
            older = math.sqrt((n - 1) ** 2 - m * m)
            root = math.sqrt(n * n - m * m)
            below = p[n - 2, m] if n > 1 else 0.0
            slope = d[n - 2, m] if n > 1 else 0.0
            p[n, m] = ((2 * n - 1) * cosine * p[n - 1, m] - older * below) / root
            d[n, m] = ((2 * n - 1) * (cosine * d[n - 1, m] - sine * p[n - 1, m]) - older * slope) / root
    return p, d


def _synthesis(g: Reals, h: Reals, longitude: float, latitude: float, height: float) -> MainField:
    radius, cosine, turn_cosine, turn_sine = _geocentric(latitude, height)
    sine = max(math.sqrt(1.0 - min(cosine * cosine, 1.0)), _POLE)
    degree = len(g[0]) - 1
    p, d = _legendre(cosine, sine, degree)
    orders = np.arange(degree + 1)
    along, across = np.cos(orders * longitude), np.sin(orders * longitude)
    powers = (_REFERENCE_RADIUS / radius) ** (orders + 2.0)
    wave = g * along + h * across
    radial = float(powers @ ((orders + 1.0)[:, None] * wave * p).sum(axis=1))
    southward = float(-powers @ (wave * d).sum(axis=1))
    east = float(-powers @ (orders * (h * along - g * across) * p).sum(axis=1) / sine)
    # From the geocentric to the geodetic vertical.
    north, down = -southward, -radial
    return MainField(north * turn_cosine + down * turn_sine, east, down * turn_cosine - north * turn_sine)
