"""Checks of the data themselves: no-data codes, constant data, standard deviations, units."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..codes import data_unit, is_magnetic
from .findings import Finding, named

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

NO_DATA_CODES = tuple(sorted({sign * code for sign in (-1.0, 1.0) for code in (
    999.0, 999.9, 999.99, 999.999, 9999.0, 9999.9, 9999.99, 9999.999, 99999.0, 99999.9, 99999.99, 999999.0, 9999999.0,
    99999999.0, 32767.0, 32768.0, 1.0e10, 1.0e20, 1.0e30, 1.0e31, 1.0e32, 1.0e35, 1.70141e38)}))
"""Numbers that stand for no datum in files of other programs."""

_FAR = 10.0  # spreads from the median beyond which a code is no datum
_ABSOLUTE_GRAVITY = (970_000.0, 990_000.0)  # mGal
_EARTH_FIELD = (18_000.0, 70_000.0)  # nT
_LARGEST_RANGE = {"mGal": 600.0, "Eotvos": 20_000.0, "nT": 60_000.0}
_SMALLEST_RANGE = {"mGal": 2.0e-3, "Eotvos": 1.0e-2, "nT": 1.0e-2}
_LARGEST_ERROR = 5.0  # mGal; gravimeters read to hundredths, regional compilations to 1 or 2
_TIGHT, _LOOSE = 1.0e-4, 0.5  # standard deviations as a part of the range of the data
_CONTRADICTS, _MOST_AGAINST = 2.0, 0.25  # standard deviations, and part of the data, against the sign of a model


def no_data_codes(values: Reals) -> Mask:
    """Data that are a no-data code: they lie far from all others, or occur more than once and are 9999 or more.

    Examples
    --------
    >>> no_data_codes(np.array([1.0, 2.0, -9999.0, 1.5, np.nan, 1e30]))
    array([False, False,  True, False, False,  True])
    """
    found = np.zeros(values.shape, dtype=np.bool_)
    coded = np.isfinite(values) & np.isclose(values[:, None], np.array(NO_DATA_CODES), rtol=1.0e-6, atol=0.0).any(axis=1)
    others = values[np.isfinite(values) & ~coded]
    if not coded.any():
        return found
    if not len(others):
        return np.asarray(coded, dtype=np.bool_)
    middle = float(np.median(others))
    spread = max(float(np.quantile(np.abs(others - middle), 0.9)), 1.0e-12 * max(abs(middle), 1.0))
    far = np.abs(values - middle) > _FAR * spread
    for code in np.unique(values[coded]).tolist():
        same = coded & (values == code)
        found |= same & far
        if np.count_nonzero(same) > 1 and abs(code) >= 9999.0:
            found |= same
    return found


def check_values(values: Reals, deviations: Reals | None, code: int, label: str, names: Sequence[str]) -> list[Finding]:
    """Findings of one component.

    Parameters
    ----------
    values, deviations : ndarray, shape (n,)
        NaN where masked; deviations None when the file has none.
    code : int
        Data type.
    label : str
        What to call the component.
    names : sequence of str
        Of the stations.
    """
    valid = np.isfinite(values)
    if not valid.any():
        return [Finding("error", "no-valid-datum", f"{label}: no datum is valid, all {len(values)} are masked",
                        "check the column of the data and the text of no-data fields")]
    findings = []
    if not valid.all():
        findings.append(Finding("note", "missing-data", f"{label}: {np.count_nonzero(~valid)} of {len(values)} data missing, "
                                "such as empty fields, NA and *", "nothing, if these stations have no datum; a run leaves them "
                                "out", named(names, ~valid)))
    coded = no_data_codes(values)
    for number in np.unique(values[coded]).tolist():
        same = values == number
        findings.append(Finding("error", "no-data-code",
                                f"{label}: {count_text(np.count_nonzero(same), 'datum', 'data')} of {number:g}, which stands for no datum",
                                f"convert the table with --dummy {number:g}", named(names, same)))
    kept = valid & ~coded
    if not kept.any():
        return [*findings, Finding("error", "no-valid-datum", f"{label}: no datum is valid beside no-data codes",
                                   "check the column of the data")]
    data = values[kept]
    if np.count_nonzero(kept) > 1 and float(np.ptp(data)) == 0.0:
        findings.append(Finding("error", "constant-data", f"{label}: all {len(data)} data are {data[0]:g}",
                                "check the column of the data"))
    units = _check_units(data, code, label)
    if not units and deviations is not None and data_unit(code) == "mGal":
        units = _check_gravity_errors(data, deviations[kept], label)
    findings += units
    return findings + _check_deviations(data, None if deviations is None else deviations[kept], label,
                                        [name for name, used in zip(names, kept.tolist()) if used])


def check_sign(values: Reals, deviations: Reals, sign: int, code: int, label: str) -> list[Finding]:
    """Whether data contradict the sign of the model: bodies of one sign below the stations make gz of this sign alone.

    Parameters
    ----------
    values, deviations : ndarray, shape (n,)
        NaN where masked; standard deviations above 0.
    sign : int
        1 for densities of 0 and above, -1 for those of 0 and below; 0 for either.
    code : int
        Data type; of other components than gz the sign of the bodies decides nothing.
    """
    used = np.isfinite(values) & np.isfinite(deviations)
    if sign == 0 or code != 0 or not used.any():
        return []
    against = float((sign * values[used] < -_CONTRADICTS * deviations[used]).mean())
    if against <= _MOST_AGAINST:
        return []
    side, word, level = ("below -2", "positive", "high") if sign > 0 else ("above 2", "negative", "low")
    return [Finding("warning", "sign", f"{label}: {100.0 * against:.0f} % of the data are {side} standard deviations; {word} "
                    "densities cannot explain them", f"check the sign of the data and the constant offset: a regional field that is too "
                    f"{level} hides mass (voxlith-tools regional --outside, --anomaly {word}); else allow both signs")]


def _check_units(data: Reals, code: int, label: str) -> list[Finding]:
    unit = data_unit(code)
    middle, extent = float(np.median(data)), float(np.ptp(data))
    if unit == "mGal" and _ABSOLUTE_GRAVITY[0] < middle < _ABSOLUTE_GRAVITY[1]:
        return [Finding("error", "units", f"{label}: a median of {middle:.8g} mGal is absolute gravity, not an anomaly",
                        "subtract normal gravity, free-air and Bouguer corrections first")]
    if is_magnetic(code) and _EARTH_FIELD[0] < abs(middle) < _EARTH_FIELD[1] and extent < abs(middle):
        return [Finding("error", "units", f"{label}: a median of {middle:.6g} nT is the total field, not an anomaly",
                        "subtract the Earth's field of place and date (IGRF) first")]
    if extent > _LARGEST_RANGE[unit]:
        hint = "microgal or gravity units" if unit == "mGal" else "another unit"
        return [Finding("error", "units", f"{label}: a range of {extent:.4g} {unit} is larger than rocks make; the data "
                        f"may be in {hint}", f"convert the data to {unit}")]
    if 0.0 < extent < _SMALLEST_RANGE[unit]:
        hint = "m/s2" if unit == "mGal" else "s-2" if unit == "Eotvos" else "T or uT"
        return [Finding("warning", "units", f"{label}: a range of {extent:.3g} {unit} is below what surveys measure; the "
                        f"data may be in {hint}", f"convert the data to {unit}")]
    return []


def _check_gravity_errors(data: Reals, deviations: Reals, label: str) -> list[Finding]:
    """Standard deviations in microgal that the data, in microgal too, exceed."""
    given = deviations[deviations > 0.0]
    if not len(given) or float(np.median(given)) < _LARGEST_ERROR or are_loose(data, deviations):
        return []
    return [Finding("warning", "units", f"{label}: a median standard deviation of {float(np.median(given)):.3g} mGal beside a range of "
                    f"{float(np.ptp(data)):.4g} mGal is more than gravimeters have; data and standard deviations may be in microgal",
                    "convert the table with voxlith-tools obs --data-scale 0.001")]


def are_loose(values: Reals, deviations: Reals) -> bool:
    """Whether standard deviations are too large to say anything of the data, as those in another unit are."""
    used = np.isfinite(values)
    given, data = deviations[used & (deviations > 0.0)], values[used]
    if not len(given):
        return False
    # An outlier must not make the range of all the others look wide.
    low, high = np.quantile(data, [0.02, 0.98])
    return 0.0 < min(_LOOSE * float(np.ptp(data)), max(float(high - low), 1.0e-6 * float(np.ptp(data)))) < float(np.median(given))


def _check_deviations(data: Reals, deviations: Reals | None, label: str, names: Sequence[str]) -> list[Finding]:
    if deviations is None:
        return [Finding("warning", "standard-deviations", f"{label}: the file has no standard deviations",
                        "convert the table with a column of them, or with --floor and --percent")]
    findings = []
    for severity, wrong, what in (("error", deviations < 0.0, "below 0"),
                                  ("error", deviations == 0.0, "0; a run puts its default there"),
                                  ("warning", np.isnan(deviations), "missing; a run puts its default there")):
        if wrong.any():
            findings.append(Finding("error" if severity == "error" else "warning", "standard-deviations",
                                    f"{label}: {np.count_nonzero(wrong)} standard deviations are {what}",
                                    "give each datum a standard deviation above 0", named(names, wrong)))
    given, extent = deviations[deviations > 0.0], float(np.ptp(data))
    if len(given) and extent > 0.0:
        middle = float(np.median(given))
        if middle < _TIGHT * extent:
            findings.append(Finding("warning", "standard-deviations", f"{label}: a median standard deviation of {middle:.3g} "
                                    f"is {middle / extent:.1g} of the range of the data; no mesh explains them so closely",
                                    "use the standard deviation of repeated readings, at least 0.5 % of the range"))
        if are_loose(data, deviations):
            findings.append(Finding("warning", "standard-deviations", f"{label}: a median standard deviation of {middle:.3g} "
                                    f"is {'above' if middle > extent else 'not small beside'} the range {extent:.3g} of the "
                                    "data; a model without bodies fits them", "check the unit of the standard deviations; voxlith-tools obs --error-scale "
                                    "converts it (0.001 from microgal)"))
    return findings
