"""Checks of the stations: coordinates, duplicates, and data against those of their neighbours."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..crs import distance_scale, shift_for_fields
from ..holes import vertical_holes
from ..packages import require
from .findings import Finding, named

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

_NEAR = 0.05  # of the usual distance between neighbours: nearer stations are duplicates
_DIFFERENT, _SUSPECT = 5.0, 3.0  # standard deviations between the data of duplicates
_NEIGHBOURS = 12
_FEWEST = 8  # stations for a comparison with neighbours
_OUTLIER, _SPOILS = 10.0, 30.0  # robust spreads from the surface through the neighbours
_SMALL_SITE = 20.0  # metres
_EASTINGS, _NORTHINGS = (1.0e5, 9.0e5), (1.0e6, 1.0e7)  # metres, UTM
_STRETCHED = 0.02  # of distances
_UNTIE = 3.0  # the surface through neighbours explains this many standard deviations by itself


def check_coordinates(x: Reals, y: Reals, elevation: Reals, names: Sequence[str]) -> list[Finding]:
    """Degrees in place of metres, stations at one place, far stations, heights of 0."""
    findings = []
    if looks_like_degrees(x, y):
        return [Finding("error", "degrees", f"x from {x.min():g} to {x.max():g} and y from {y.min():g} to {y.max():g} look "
                        "like longitude and latitude; metres are needed",
                        "convert with --crs EPSG:4326 --to EPSG:CODE of a projection in metres")]
    if looks_like_degrees(y, x) and abs(y).max() > 90.0:
        findings.append(Finding("error", "degrees", "x and y look like latitude and longitude; metres are needed",
                                "convert with --crs and --to, longitude as --x"))
    holes = vertical_holes(x, y, elevation)
    if holes:
        count = sum(len(hole.stations) for hole in holes)
        findings.append(Finding("note", "boreholes", f"{count} of {len(x)} stations in {count_text(len(holes), 'vertical hole')}, from "
                                f"elevation {max(hole.top for hole in holes):g} to {min(hole.bottom for hole in holes):g}",
                                "nothing, if they were measured in holes; mtx and predict need --boreholes"))
    elif len(x) > 1 and float(np.ptp(x)) == 0.0 and float(np.ptp(y)) == 0.0:
        findings.append(Finding("error", "one-place", "all stations have the same x and y", "check the columns of x and y"))
    findings += _check_extent(x, y, in_holes=bool(holes))
    far = far_stations(x, y)
    if far.any():
        findings.append(Finding("warning", "far-stations", f"{count_text(np.count_nonzero(far), 'station')} far from all others; "
                                "wrong coordinates make the mesh too large", "check their coordinates", named(names, far)))
    if len(elevation) > 3 and not elevation.any():
        findings.append(Finding("note", "elevations", "all elevations are 0",
                                "name the column of the elevation with --z, unless the survey is flat at 0"))
    return findings


def _check_extent(x: Reals, y: Reals, in_holes: bool) -> list[Finding]:
    """Coordinates in kilometres, too wide for data files, or exchanged."""
    findings = []
    extent = max(float(np.ptp(x)), float(np.ptp(y)))
    if len(x) >= _FEWEST and 0.0 < extent < _SMALL_SITE and not in_holes:
        findings.append(Finding("warning", "small-survey", f"the stations cover {extent:.3g} m only; the coordinates may be in "
                                "kilometres", "convert x and y to metres"))
    if shift_for_fields(x, y) != (0.0, 0.0):
        findings.append(Finding("warning", "wide-coordinates", f"x from {x.min():.0f} to {x.max():.0f}, y from {y.min():.0f} to "
                                f"{y.max():.0f} are too wide for the fields of the data files of a run, where they would run "
                                "together", "voxlith-tools obs subtracts a shift and stores it; Web Mercator (EPSG:3857), "
                                "which stretches distances, needs --crs and --to"))
    if _NORTHINGS[0] < x.min() and x.max() < _NORTHINGS[1] and _EASTINGS[0] < y.min() and y.max() < _EASTINGS[1]:
        findings.append(Finding("note", "exchanged", f"x from {x.min():.0f} and y from {y.min():.0f} would be a northing and an "
                                "easting of UTM", "exchange the columns of --x and --y if x is the northing"))
    return findings


def check_scale(x: Reals, y: Reals, crs: str) -> list[Finding]:
    """Whether a metre of a reference system is a metre on the ground where the survey is."""
    scale = distance_scale(float(np.median(x)), float(np.median(y)), crs)
    if abs(scale - 1.0) < _STRETCHED:
        return []
    return [Finding("error" if abs(scale - 1.0) > 5.0 * _STRETCHED else "warning", "stretched", f"distances in {crs} are "
                    f"{scale:.3g} times those on the ground here; depths and densities would be wrong",
                    "convert with --crs and --to a system of the place, such as its UTM zone")]


def looks_like_degrees(x: npt.ArrayLike, y: npt.ArrayLike) -> bool:
    """Whether coordinates are longitudes and latitudes rather than metres.

    Examples
    --------
    >>> looks_like_degrees([15.01, 15.03], [49.98, 50.01]), looks_like_degrees([0.0, 100.0], [0.0, 50.0])
    (True, False)
    """
    east, north = np.asarray(x, dtype=np.float64), np.asarray(y, dtype=np.float64)
    if not len(east) or np.abs(east).max() > 360.0 or np.abs(north).max() > 90.0:
        return False
    # A local grid of metres this small is a site of a few steps, with rounded coordinates.
    extent = max(float(np.ptp(east)), float(np.ptp(north)))
    fractions = np.concatenate([east, north]) % 1.0
    return extent < 20.0 and bool((np.abs(fractions - np.rint(fractions)) > 1.0e-9).mean() > 0.5)


def far_stations(x: Reals, y: Reals) -> Mask:
    """Stations more than ten times as far from the median as nine tenths of all stations are."""
    if len(x) < 10:
        return np.zeros(len(x), dtype=np.bool_)
    distance = np.hypot(x - np.median(x), y - np.median(y))
    return np.asarray(distance > 10.0 * max(float(np.quantile(distance, 0.9)), 1.0e-9), dtype=np.bool_)


def check_duplicates(x: Reals, y: Reals, elevation: Reals, values: Reals, deviations: Reals, label: str,
                     names: Sequence[str], unit: str = "standard deviations") -> list[Finding]:
    """Stations at the same or nearly the same place, and how their data agree.

    Parameters
    ----------
    values, deviations : ndarray, shape (n,)
        NaN where masked; deviations above 0.
    unit : str
        What the deviations are.
    """
    places = np.column_stack([x, y, elevation])
    valid = np.flatnonzero(np.isfinite(values))
    if len(valid) < 2:
        return []
    tree = _tree(places[valid])
    distance = tree.query(places[valid], k=2)[0][:, 1]
    usual = float(np.median(distance[distance > 0.0])) if (distance > 0.0).any() else 1.0
    pairs = valid[tree.query_pairs(_NEAR * usual, output_type="ndarray")]
    if not len(pairs):
        return []
    first, second = pairs.T
    apart = np.linalg.norm(places[first] - places[second], axis=1)
    allowed = np.hypot(deviations[first], deviations[second])
    # Over a small distance the field itself may differ.
    gradient = _usual_gradient(tree, places[valid], values[valid])
    ratio = np.maximum(np.abs(values[first] - values[second]) - 3.0 * gradient * apart, 0.0) / allowed
    findings = []
    for least, most, severity, words in ((_DIFFERENT, np.inf, "error", "differ"), (_SUSPECT, _DIFFERENT, "warning", "differ"),
                                         (-1.0, _SUSPECT, "note", "agree")):
        chosen = (ratio > least) & (ratio <= most)
        if not chosen.any():
            continue
        by = f"by up to {ratio[chosen].max():.0f} {unit}" if words == "differ" else f"within 3 {unit}"
        remedy = ("remove or correct one of each pair" if words == "differ"
                  else "nothing, or keep one of each pair")
        findings.append(Finding("error" if severity == "error" else "warning" if severity == "warning" else "note",
                                "duplicate-stations", f"{label}: {count_text(np.count_nonzero(chosen), 'pair')} of stations at "
                                f"the same position, with data that {words} {by}", remedy,
                                tuple(f"{names[a]} = {names[b]}" for a, b in pairs[chosen].tolist())))
    return findings


def check_outliers(x: Reals, y: Reals, values: Reals, deviations: Reals, label: str, names: Sequence[str]) -> list[Finding]:
    """Data far from a surface through their neighbours."""
    score = outlier_scores(x, y, values, deviations)
    found = score > _OUTLIER
    if not found.any():
        return []
    bad = score > _SPOILS
    severity: Any = "error" if bad.any() else "warning"
    order = np.flatnonzero(found)[np.argsort(-score[found], kind="stable")]
    return [Finding(severity, "outliers", f"{label}: {count_text(len(order), 'datum', 'data')} far from those of the neighbours, the farthest by "
                    f"{score.max():.0f} times their usual spread", "look at them; mask or correct wrong data",
                    tuple(names[number] for number in order.tolist()))]


def outlier_scores(x: Reals, y: Reals, values: Reals, deviations: Reals) -> Reals:
    """How far each datum is from a robust plane through its neighbours, in units of the spread of the neighbours about
    it; 0 where that cannot be said.

    The plane is fitted by iteratively reweighted least squares with the weights of the sum of magnitudes, without the
    datum itself. The spread is the largest of 1.4826 times the median deviation of the neighbours, the median spread of
    all stations, and three standard deviations.
    """
    score = np.zeros(len(values))
    valid = np.flatnonzero(np.isfinite(values))
    if len(valid) < _FEWEST:
        return score
    apart, spread = _from_neighbours(x, y, values, valid)
    floor = np.maximum(float(np.median(spread)), _UNTIE * deviations[valid])
    # The slope of the plane over the distance of the neighbours is what a steep anomaly may change at its flank.
    score[valid] = apart / np.maximum(np.maximum(spread, floor), 1.0e-30)
    return score


def noise_of(x: Reals, y: Reals, values: Reals) -> float:
    """Scatter of the data about planes through their neighbours, as a standard deviation; a hundredth of the range of the data
    where there are too few. Above 0.
    """
    valid = np.flatnonzero(np.isfinite(values))
    least = 1.0e-6 * float(np.ptp(values[valid]))
    if len(valid) < _FEWEST:
        return max(1.0e4 * least, 1.0e-30)
    return max(float(np.median(_from_neighbours(x, y, values, valid)[1])), least, 1.0e-30)


def _from_neighbours(x: Reals, y: Reals, values: Reals, valid: npt.NDArray[np.intp]) -> tuple[Reals, Reals]:
    """How far each valid datum is from a plane through its neighbours, and their spread about it."""
    places = np.column_stack([x, y])[valid]
    data = values[valid]
    count = min(_NEIGHBOURS, len(valid) - 1)
    distance, near = _tree(places).query(places, k=count + 1)
    # Stations at one place: the station itself need not come first.
    own = near == np.arange(len(valid))[:, None]
    own[~own.any(axis=1), -1] = True
    near = near[~own].reshape(len(valid), count)
    radius = np.maximum(distance.max(axis=1), 1.0e-9)
    offset = (places[near] - places[:, None, :]) / radius[:, None, None]
    design = np.concatenate([np.ones((len(valid), count, 1)), offset], axis=2)
    target = data[near]
    coefficients = _robust_planes(design, target)
    residual = np.abs(target - np.einsum("snc,sc->sn", design, coefficients))
    spread = 1.4826 * np.median(residual, axis=1)
    return np.abs(data - coefficients[:, 0]), np.asarray(spread, dtype=np.float64)


def _robust_planes(design: Reals, target: Reals) -> Reals:
    """Planes of least sum of magnitudes, shape (stations, 3)."""
    scale = np.maximum(np.ptp(target, axis=1), 1.0e-30)
    weights = np.ones(target.shape)
    coefficients = np.zeros((len(target), 3))
    for _ in range(12):
        weighted = design * weights[:, :, None]
        normal = np.einsum("snc,snd->scd", weighted, design)
        normal += 1.0e-6 * np.eye(3) * weights.sum(axis=1)[:, None, None]
        coefficients = np.linalg.solve(normal, np.einsum("snc,sn->sc", weighted, target)[:, :, None])[:, :, 0]
        residual = np.abs(target - np.einsum("snc,sc->sn", design, coefficients))
        weights = 1.0 / np.maximum(residual / scale[:, None], 1.0e-4)
    return coefficients


def _usual_gradient(tree: Any, places: Reals, values: Reals) -> float:
    """Median change of the data per metre between neighbours."""
    count = min(4, len(places) - 1)
    distance, near = tree.query(places, k=count + 1)
    apart, change = distance[:, 1:], np.abs(values[near[:, 1:]] - values[:, None])
    used = apart > 0.0
    return float(np.median(change[used] / apart[used])) if used.any() else 0.0


def _tree(places: Reals) -> Any:
    return require("scipy.spatial", "the comparison of stations with their neighbours").cKDTree(places)
