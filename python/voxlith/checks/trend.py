"""Checks for a constant offset and a regional trend, which no body inside the mesh explains."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

from ..packages import require
from ..regional import SIGNIFICANT, edge_means
from .findings import Finding

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

_FEWEST = 12
_OFFSET = 0.35  # level of the edge of the survey, as a part of the range of the anomalies
_TREND = 0.5  # change of the plane across the survey, as a part of the range of the anomalies
_LEFT = 2.0  # how much more a fitted regional field may leave: tails of broad anomalies, up to 0.3 and 0.5 in real surveys
_SIGNIFICANT = 5.0  # standard deviations
_EVEN = 0.5  # range of the means of the edges over their mean; tails of anomalies differ more


def check_trend(x: Reals, y: Reals, values: Reals, deviations: Reals, label: str, unit: str,
                regional_removed: bool = False) -> list[Finding]:
    """A level at the edge of the survey, and a slope across it, or what is left of them where a regional field was subtracted.

    A plane is fitted to the stations at the edge by robust least squares. Anomalies of bodies inside the survey have
    decayed there, so what the plane holds comes from outside, or from a reference that is off.
    """
    valid = np.isfinite(values)
    if np.count_nonzero(valid) < _FEWEST:
        return []
    at = np.column_stack([x, y])[valid]
    data, sd = values[valid], float(np.median(deviations[valid]))
    if not np.ptp(at, axis=0).any():
        return []  # a vertical borehole
    edge = edge_stations(at)
    if np.count_nonzero(edge) < 4:
        return []
    middle, extent = at.mean(axis=0), max(float(np.ptp(at, axis=0).max()), 1.0e-9)
    plane = _plane((at[edge] - middle) / extent, data[edge])
    centred = (at - middle) / extent
    fitted = plane[0] + centred @ plane[1:]
    anomalies = float(np.quantile(data - fitted, 0.98) - np.quantile(data - fitted, 0.02))
    swing = float(np.ptp(fitted))
    least = max(anomalies, _SIGNIFICANT * sd) * (_LEFT if regional_removed else 1.0)
    left = "; the regional field that was subtracted does not fit" if regional_removed else ""
    remedy = "repeat voxlith-tools regional on the data, with another order, or with --outside around the anomalies"
    findings = []
    if abs(plane[0]) > _OFFSET * least:
        findings.append(Finding(
            "warning", "constant-offset", f"{label}: the data have a constant offset of {plane[0]:.4g} {unit} at the "
            f"edge of the survey, beside anomalies with a range of {anomalies:.3g} {unit}; no body explains an offset{left}",
            remedy if regional_removed else "subtract it with voxlith-tools regional (order 0 or 1)"))
    if swing > _TREND * least:
        direction = np.degrees(np.arctan2(plane[1], plane[2])) % 360.0
        findings.append(Finding(
            "warning", "regional-trend", f"{label}: a slope of {swing:.3g} {unit} across the survey, rising towards "
            f"{direction:.0f} degrees from north, beside anomalies of {anomalies:.3g} {unit}; bodies inside the mesh do not "
            f"explain it{left}", remedy if regional_removed else "subtract it with voxlith-tools regional --order 1"))
    return findings


def check_edges(x: Reals, y: Reals, values: Reals, deviations: Reals, label: str, unit: str) -> list[Finding]:
    """A level at the edges that is small beside the anomalies, but not beside the noise.

    For data that fade fast with the distance of bodies, such as magnetic data. A constant offset is about the same at all
    edges; the tails of anomalies are not.
    """
    edges = list(edge_means(x, y, values).values())
    if len(edges) < 2:
        return []
    means = np.array([edge.mean for edge in edges])
    level, sd = float(means.mean()), float(np.nanmedian(deviations[np.isfinite(values)]))
    error = float(np.linalg.norm([edge.error for edge in edges])) / len(edges)
    if abs(level) <= max(sd, SIGNIFICANT * error) or float(np.ptp(means)) > _EVEN * abs(level):
        return []
    return [Finding("warning", "constant-offset", f"{label}: the mean at the edges of the survey is {level:.3g} {unit}, {abs(level) / sd:.2g} "
                    "standard deviations; a constant offset or a regional field is left in the data, or a broad anomaly reaches all edges",
                    "look at the map of the data; subtract an offset with voxlith-tools regional --order 0")]


def edge_stations(places: Reals) -> Mask:
    """Stations at the edge of a survey: near the outline of all stations, or in the outer tenths of a line."""
    centred = places - places.mean(axis=0)
    spread, directions = np.linalg.svd(centred, full_matrices=False)[1:]
    if len(spread) < 2 or spread[1] < 0.02 * spread[0]:
        along = centred @ directions[0]
        low, high = np.quantile(along, [0.1, 0.9])
        return np.asarray((along <= low) | (along >= high), dtype=np.bool_)
    spatial = require("scipy.spatial", "the outline of the stations")
    # Directions of both main axes alike, so that the strip is as wide on all sides as the survey's shape asks.
    scaled = centred @ directions.T / np.ptp(centred @ directions.T, axis=0)
    hull = spatial.ConvexHull(scaled)
    inside = -(scaled @ hull.equations[:, :2].T + hull.equations[:, 2]).max(axis=1)
    return np.asarray(inside < 0.08, dtype=np.bool_)


def _plane(places: Reals, values: Reals) -> Reals:
    """Level and slopes by iteratively reweighted least squares with Tukey's biweight.

    Slopes across a line of stations stay 0.
    """
    design = np.column_stack([np.ones(len(values)), places])
    weights = np.ones(len(values))
    plane = np.zeros(3)
    for _ in range(20):
        plane = np.linalg.lstsq(design * weights[:, None], values * weights, rcond=1.0e-3)[0]
        residual = np.abs(values - design @ plane)
        scale = max(4.685 * 1.4826 * float(np.median(residual)), 1.0e-12 * max(float(np.abs(values).max()), 1.0e-30))
        weights = np.clip(1.0 - (residual / scale) ** 2, 0.0, None)
        if np.count_nonzero(weights) < 4:
            weights = 1.0 / (1.0 + residual / scale)
    return np.asarray(plane, dtype=np.float64)
