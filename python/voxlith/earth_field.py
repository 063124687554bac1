"""The inducing field of a survey from its place and date."""

from __future__ import annotations

import numpy as np

from .crs import grid_convergence, longitude_latitude, parse_crs
from .errors import UsageError
from .igrf import MainField, main_field
from .survey import InducingField, Survey


def earth_field(survey: Survey, crs: str, date: str, shift: tuple[float, float] = (0.0, 0.0)) -> MainField:
    """The main field at the middle of a survey, from true north.

    Parameters
    ----------
    survey : Survey
    crs : str
        Reference system of its coordinates.
    date : str
        ``YYYY-MM-DD``.
    shift : tuple of 2 float
        What was subtracted from the coordinates of the reference system.

    Raises
    ------
    UsageError
        For a place or a date that IGRF-14 does not cover.
    """
    if not crs:
        raise UsageError("--date: expected --crs beside it, so that the place is known")
    x, y = _middle(survey, shift)
    longitude, latitude = longitude_latitude([x], [y], crs)
    return main_field(float(longitude[0]), float(latitude[0]), float(np.median(survey.elevation)), date)


def inducing_field(survey: Survey, crs: str, date: str, shift: tuple[float, float] = (0.0, 0.0)) -> InducingField:
    """The inducing field of a survey as its data file needs it: the declination counts from y, which is grid north.

    Parameters as for :func:`earth_field`.
    """
    field = earth_field(survey, crs, date, shift)
    convergence = grid_convergence(*_middle(survey, shift), crs) if parse_crs(crs).is_projected else 0.0
    # The model is good to about 0.01 degrees and 10 nT.
    return InducingField(round(field.inclination, 3), round(field.declination - convergence, 3), round(field.strength, 1))


def _middle(survey: Survey, shift: tuple[float, float]) -> tuple[float, float]:
    return float(np.median(survey.x)) + shift[0], float(np.median(survey.y)) + shift[1]
