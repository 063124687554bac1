"""Checks of the inducing field of a survey: against that of a sensitivity file, and against the Earth's at its place."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

from ..codes import data_type_name, has_magnetic_layout
from ..earth_field import inducing_field
from ..errors import UsageError
from ..igrf import MainField
from ..io.mtx_header import MtxHeader
from ..side_file import SideInfo
from ..survey import InducingField, Survey
from .findings import Finding

Reals = npt.NDArray[np.float64]

_SUSPECT_ANGLE, _WRONG_ANGLE = 3.0, 15.0  # degrees between field directions of one date
_SUSPECT_STRENGTH = 0.05
_NOTABLE_FIELD, _OTHER_FIELD = 0.25, 3.0  # degrees, and percent of the strength, between data and sensitivities
_YEARS = range(1900, 2031, 10)
_NO_YEAR, _OTHER_PLACE = 12.0, 30.0  # degrees from the field of the nearest year


def check_type_and_field(survey: Survey, header: MtxHeader, path: str) -> list[Finding]:
    """Data and sensitivities must both be magnetic or both not, and of one inducing field.

    Of several components the first file alone says which kind the data file is, so nothing is said of their type.
    """
    code = header.data_type
    magnetic = has_magnetic_layout(code)
    if header.form == "record":  # neither type nor field is in the file
        return []
    if survey.n_components == 1 and has_magnetic_layout(survey.codes[0]) != magnetic:
        lines = "the lines of an inducing field" if survey.field else "no lines of an inducing field"
        return [Finding("error", "data-type", f"the data are {survey.names[0]} ({lines}), but {path} is of {data_type_name(code)}",
                        f"compute the sensitivities with mtx --type {survey.names[0].lower()}, or give the data of {path}")]
    strength, inclination, declination = header.inducing
    if survey.field is None or not magnetic or not strength > 0.0:
        return []
    angle = _angle(survey.field, inclination, declination)
    percent = 100.0 * abs(survey.field.strength / strength - 1.0)
    if max(angle, percent) <= _NOTABLE_FIELD:
        return []
    return [Finding("error" if max(angle, percent) > _OTHER_FIELD else "warning", "inducing-field",
                    f"the inducing field of the data ({_field_text(survey.field)}) and that of {path} "
                    f"({_field_text(InducingField(inclination, declination, strength))}) are {angle:.3g} degrees and {percent:.3g} % "
                    "apart", "compute the sensitivities from this data file, without --field")]


def check_field(field: InducingField, expected: MainField, date: str) -> list[Finding]:
    """The inducing field of a survey against the Earth's field at its place and date."""
    angle = _angle(field, expected.inclination, expected.declination)
    text = (f"inclination {expected.inclination:.1f}, declination {expected.declination:.1f}, {expected.strength:.0f} nT by "
            f"IGRF-14 on {date}")
    found = _field_text(field)
    remedy = "use --date with --crs in place of --field; data reduced to the pole keep inclination 90"
    if angle > _SUSPECT_ANGLE:
        return [Finding("error" if angle > _WRONG_ANGLE else "warning", "field-direction",
                        f"the field of the data ({found}) is {angle:.0f} degrees from that of the place ({text})", remedy)]
    if abs(field.strength / expected.strength - 1.0) > _SUSPECT_STRENGTH:
        return [Finding("warning", "field-strength", f"the field of the data ({found}) has another strength than that of the "
                        f"place ({text})", remedy)]
    return []


def check_field_of_any_year(survey: Survey, side: SideInfo) -> list[Finding]:
    """The inducing field of a survey without a date against all fields that its place has had since 1900.

    Nothing is said of data reduced to the pole or the equator, and of coordinates without a reference system.
    """
    field = survey.field
    if field is None or not side.crs or not field.is_of_the_earth or abs(field.inclination) in (0.0, 90.0):
        return []
    try:
        known = [(year, inducing_field(survey, side.crs, str(year), side.shift)) for year in _YEARS]
    except UsageError:
        return []  # coordinates beyond the reference system, which other checks name
    angles = [_angle(field, one.inclination, one.declination) for _, one in known]
    angle = min(angles)
    year, nearest = known[angles.index(angle)]
    if angle <= _NO_YEAR:
        return []
    return [Finding("error" if angle > _OTHER_PLACE else "warning", "field-direction",
                    f"the inducing field of the data ({_field_text(field)}) is {angle:.0f} degrees or more from that of the place "
                    f"in any year since {_YEARS[0]}; IGRF-14 has {_field_text(_rounded(nearest))} in {year}",
                    "check the signs of inclination and declination and the reference system; obs --date computes the field")]


def _rounded(field: InducingField) -> InducingField:
    return InducingField(round(field.inclination, 1), round(field.declination, 1), round(field.strength))


def _field_text(field: InducingField) -> str:
    return f"inclination {field.inclination:.6g}, declination {field.declination:.6g}, {field.strength:.7g} nT"


def _angle(field: InducingField, inclination: float, declination: float) -> float:
    cosine = _direction(field.inclination, field.declination) @ _direction(inclination, declination)
    return float(np.degrees(np.arccos(np.clip(cosine, -1.0, 1.0))))


def _direction(inclination: float, declination: float) -> Reals:
    incl, decl = np.radians([inclination, declination])
    return np.array([np.cos(incl) * np.sin(decl), np.cos(incl) * np.cos(decl), np.sin(incl)])
