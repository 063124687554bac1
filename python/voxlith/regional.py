"""Separation of a regional field from the anomalies of a survey.

Three methods: a polynomial in x and y by robust least squares; upward continuation to a height at which the anomalies
have faded; and the long wavelengths. The last two work on equivalent sources, point masses below the stations, so that
stations need not be on a grid or at one elevation (Dampney 1969, Geophysics 34, 39-53).
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Any, Literal

import numpy as np
import numpy.typing as npt

from .errors import UsageError
from .packages import require
from .survey import Survey

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]
Method = Literal["polynomial", "upward", "wavelength"]
Anomaly = Literal["either", "positive", "negative"]
Box = tuple[float, float, float, float]

_TUKEY = 4.685  # tuning constant of the biweight for 95 % efficiency
_MOST_SOURCES = 6000
_DEPTH_OF_SPACING = 2.5  # depth of equivalent sources over the distance of the stations
_GRID = 128
_EDGE = 0.125  # width of an edge over the extent of the survey
_CORNER = 0.2  # width of a corner over the extent of the survey
_LINE = 0.02  # width over length below which stations follow one line
_FEWEST_AT_EDGE = 5
SIGNIFICANT = 3.0
"""Standard errors from which on a mean differs from 0."""


@dataclass(frozen=True)
class Regional:
    """A regional field at the stations.

    Attributes
    ----------
    values : ndarray, shape (n,)
        In the unit of the data.
    method : {"polynomial", "upward", "wavelength"}
    parameter : float
        Order, height (m) or wavelength (m).
    coefficients : ndarray
        Of a polynomial in (x - x0)/r and (y - y0)/r; empty for the other methods.
    origin : tuple of 3 float
        x0, y0 and r, metres.
    """

    values: Reals
    method: Method
    parameter: float
    coefficients: Reals
    origin: tuple[float, float, float]

    @property
    def slope(self) -> tuple[float, float] | None:
        """Of a polynomial of order 1 and above, to the east and to the north at the origin, per metre."""
        if self.method != "polynomial" or self.parameter < 1.0:
            return None
        rising = self.coefficients[[int(self.parameter) + 1, 1]] / self.origin[2]  # x and y among x^i y^j, j first
        return float(rising[0]), float(rising[1])


def polynomial_regional(survey: Survey, order: int, component: int = 0, *, outside: Box | None = None,
                        anomaly: Anomaly = "either") -> Regional:
    """A polynomial of order 0 (a constant) to 3 in x and y by robust least squares.

    Iteratively reweighted with Tukey's biweight, so that anomalies, which cover less than half of the stations, count
    little (Beaton and Tukey 1974, Technometrics 16, 147-185). Terms that the stations do not determine, such as slopes
    across a single line, stay 0.

    Parameters
    ----------
    survey : Survey
    order : int
    component : int
        Counted from 0.
    outside : (xmin, xmax, ymin, ymax), optional
        Metres; stations in this box are left out of the fit.
    anomaly : {"either", "positive", "negative"}
        Of positive anomalies, residuals above 0 count less than those below, in units of their standard deviations; of
        negative ones the other way round.

    Raises
    ------
    UsageError
        For another order, a box whose limits do not rise, or too few stations.
    """
    if order not in (0, 1, 2, 3):
        raise UsageError(f"regional: expected an order of 0 to 3, found {order}")
    values, valid = _data(survey, component)
    x, y, origin = _scaled(survey)
    design = np.column_stack([x**i * y**j for i in range(order + 1) for j in range(order + 1 - i)])
    if outside is not None:
        valid = valid & ~_inside(survey, outside)
    if np.count_nonzero(valid) < 2 * design.shape[1]:
        raise UsageError(f"regional: expected {2 * design.shape[1]} data or more for order {order}, found "
                         f"{np.count_nonzero(valid)}{'' if outside is None else ' outside of the box'}")
    if anomaly == "either":
        coefficients = _robust_fit(design[valid], values[valid])
    else:
        sign = 1.0 if anomaly == "positive" else -1.0
        coefficients = sign * _one_sided_fit(design[valid], sign * values[valid],
                                             survey.uncertainties()[component][valid])
    return Regional(design @ coefficients, "polynomial", float(order), coefficients, origin)


def upward_regional(survey: Survey, height: float, component: int = 0) -> Regional:
    """The field continued upwards by a height, by equivalent sources. Raises UsageError."""
    if not height > 0.0:
        raise UsageError(f"regional: expected a height above 0, found {height:g}")
    sources = _EquivalentSources(survey, component)
    raised = sources.predict(survey.x, survey.y, survey.elevation + height)
    return Regional(raised, "upward", height, np.zeros(0), (0.0, 0.0, 1.0))


def wavelength_regional(survey: Survey, wavelength: float, component: int = 0) -> Regional:
    """The wavelengths above a limit: a Gaussian low pass of half amplitude at it, on a grid of equivalent sources.

    Raises
    ------
    UsageError
        When the wavelength is not above 0, or is longer than twice the survey.
    """
    extent = max(float(np.ptp(survey.x)), float(np.ptp(survey.y)))
    if not 0.0 < wavelength <= 2.0 * extent:
        raise UsageError(f"regional: expected a wavelength above 0 and up to twice the survey, {2.0 * extent:g} m, found "
                         f"{wavelength:g}")
    interpolate = require("scipy.interpolate", "the separation of wavelengths")
    ndimage = require("scipy.ndimage", "the separation of wavelengths")
    sources = _EquivalentSources(survey, component)
    margin = wavelength
    step = max(extent + 2.0 * margin, 1.0) / _GRID
    axes = [np.arange(float(values.min()) - margin, float(values.max()) + margin + step, step)
            for values in (survey.x, survey.y)]
    grid_x, grid_y = np.meshgrid(*axes, indexing="ij")
    level = float(np.median(survey.elevation))
    # Beyond the survey the sources extrapolate; the margin keeps edges of the grid away.
    grid = sources.predict(grid_x.ravel(), grid_y.ravel(), np.full(grid_x.size, level)).reshape(grid_x.shape)
    # exp(-2 pi^2 s^2 / wavelength^2) = 1/2
    width = wavelength * math.sqrt(0.5 * math.log(2.0)) / math.pi
    smooth = ndimage.gaussian_filter(grid, width / step, mode="nearest")
    found = interpolate.RegularGridInterpolator(axes, smooth, bounds_error=False, fill_value=None)
    values = np.asarray(found(np.column_stack([survey.x, survey.y])), dtype=np.float64)
    return Regional(values, "wavelength", wavelength, np.zeros(0), (0.0, 0.0, 1.0))


def subtract(survey: Survey, regional: Regional, component: int = 0) -> Survey:
    """The survey with the residual in place of a component."""
    data = survey.data.copy()
    data[component] -= regional.values
    return survey.with_data(data)


class _EquivalentSources:
    """Point masses, one below each place of the survey, that reproduce its data.

    A level is fitted beside them. The damping is that at which the data are fitted to their standard deviations.
    """

    def __init__(self, survey: Survey, component: int) -> None:
        values, valid = _data(survey, component)
        linalg = require("scipy.linalg", "equivalent sources")
        spatial = require("scipy.spatial", "equivalent sources")
        places = np.column_stack([survey.x, survey.y, survey.elevation])[valid]
        tree = spatial.cKDTree(places[:, :2])
        apart = tree.query(places[:, :2], k=2)[0][:, 1]
        spacing = float(np.median(apart[apart > 0.0])) if (apart > 0.0).any() else 0.0
        if len(places) < 4 or not spacing > 0.0:
            raise UsageError("regional: expected four stations or more at different places")
        if len(places) > _MOST_SOURCES:
            raise UsageError(f"regional: expected at most {_MOST_SOURCES} stations for equivalent sources, found "
                             f"{len(places)}; thin them, or use a polynomial")
        self._depth = _DEPTH_OF_SPACING * spacing
        keep: npt.NDArray[np.intp] = np.unique(np.rint(places[:, :2] / (0.5 * spacing)), axis=0, return_index=True)[1]
        self._sources = places[keep] - np.array([0.0, 0.0, self._depth])
        self._level = float(np.median(values[valid]))
        deviations = np.nan_to_num(survey.uncertainties()[component][valid], nan=1.0)
        rows = self._rows(places) / deviations[:, None]
        target = (values[valid] - self._level) / deviations
        self._strengths = _damped(linalg, rows, target)

    def predict(self, x: Reals, y: Reals, elevation: Reals) -> Reals:
        """The field at places."""
        places = np.column_stack([x, y, elevation])
        found = np.empty(len(places))
        for first in range(0, len(places), 2048):
            found[first: first + 2048] = self._rows(places[first: first + 2048]) @ self._strengths
        return found + self._level

    def _rows(self, places: Reals) -> Reals:
        """Attraction of the sources, 1 right above a source."""
        offset = places[:, None, :] - self._sources[None, :, :]
        distance = np.sqrt((offset**2).sum(axis=2))
        rows: Reals = offset[:, :, 2] * self._depth**2 / distance**3
        return rows


def _damped(linalg: Any, rows: Reals, target: Reals) -> Reals:
    """Least squares with the largest damping that fits to a root mean square of 1."""
    left, values, right = (np.asarray(part, dtype=np.float64) for part in linalg.svd(rows, full_matrices=False))
    turned = left.T @ target
    outside = max(float(target @ target - turned @ turned), 0.0)

    def misfit(damping: float) -> float:
        rest = turned * damping / (values**2 + damping)
        return math.sqrt((float(rest @ rest) + outside) / len(target))

    low, high = math.log(float(values[0]) ** 2 * 1.0e-12), math.log(float(values[0]) ** 2 * 1.0e3)
    for _ in range(60):
        middle = 0.5 * (low + high)
        low, high = (middle, high) if misfit(math.exp(middle)) < 1.0 else (low, middle)
    damping = math.exp(low)
    return np.asarray(right.T @ (turned * values / (values**2 + damping)), dtype=np.float64)


def _robust_fit(design: Reals, values: Reals) -> Reals:
    weights = np.ones(len(values))
    coefficients = np.zeros(design.shape[1])
    for number in range(60):
        root = np.sqrt(weights)[:, None]
        found = np.linalg.lstsq(design * root, values * root[:, 0], rcond=1.0e-6)[0]
        done = number > 3 and np.allclose(found, coefficients, rtol=1.0e-8, atol=1.0e-10 * float(np.abs(found).max()))
        coefficients = found
        if done:
            break
        residual = values - design @ coefficients
        middle = float(np.median(residual))
        scale = _TUKEY * 1.4826 * float(np.median(np.abs(residual - middle)))
        if not scale > 1.0e-12 * float(np.abs(values).max()):
            break
        weights = np.square(np.clip(1.0 - np.square(residual / scale), 0.0, None))
    return np.asarray(coefficients, dtype=np.float64)


def _one_sided_fit(design: Reals, values: Reals, deviations: Reals) -> Reals:
    """A surface below positive anomalies.

    Residuals above it have weights that fall off with their square (Geman and McClure 1987, Bull. Int. Stat. Inst. 52,
    5-21), those below it the weights of Huber. The unit is the standard deviation. It begins large, so that the start,
    which lies too high, does not decide, and shrinks by steps.
    """
    coefficients = np.asarray(np.linalg.lstsq(design, values, rcond=1.0e-6)[0], dtype=np.float64)
    spread = 1.4826 * float(np.median(np.abs(values - design @ coefficients)))
    factor = max(spread / float(deviations.min()), 1.0)
    while True:
        unit = deviations * factor
        for _ in range(100):
            residual = (values - design @ coefficients) / unit
            weights = np.where(residual > 0.0, (1.0 + residual**2) ** -2.0, 1.5 / np.maximum(-residual, 1.5)) / deviations**2
            root = np.sqrt(weights / weights.max())
            found = np.linalg.lstsq(design * root[:, None], values * root, rcond=1.0e-6)[0]
            moved = float(np.abs(design @ (found - coefficients)).max())
            coefficients = np.asarray(found, dtype=np.float64)
            if moved < 1.0e-3 * float(deviations.min()):
                break
        if factor <= 1.0:
            return coefficients
        factor = max(factor / 1.4, 1.0)


def _inside(survey: Survey, box: Box) -> Mask:
    """Stations in a box."""
    xmin, xmax, ymin, ymax = box
    if not (xmin < xmax and ymin < ymax):
        raise UsageError(f"regional: expected xmin below xmax and ymin below ymax, found {xmin:g},{xmax:g},{ymin:g},{ymax:g}")
    inside: Mask = (survey.x >= xmin) & (survey.x <= xmax) & (survey.y >= ymin) & (survey.y <= ymax)
    if not inside.any():
        raise UsageError(f"regional: expected a box with stations, found none of {survey.n_stations} in {xmin:.10g},{xmax:.10g},"
                         f"{ymin:.10g},{ymax:.10g}; they are at x {survey.x.min():.8g} to {survey.x.max():.8g}, y {survey.y.min():.8g} to "
                         f"{survey.y.max():.8g}")
    return inside


@dataclass(frozen=True)
class ResidualLevel:
    """How a residual lies about 0.

    Attributes
    ----------
    median : float
    below : float
        Part of the data that are below 0.
    edges : dict
        Mean of each edge of the survey, by its name, less anomalies that reach it: the mean of the middle half.
    biased : tuple of str
        Edges whose mean is not 0: by more than a standard deviation, and more than the scatter of their data allows.
    corners : dict
        Means of the corners, which an edge does not show where two of them have opposite signs.
    biased_corners : tuple of str
        As for the edges.
    """

    median: float
    below: float
    edges: dict[str, float]
    biased: tuple[str, ...]
    corners: dict[str, float]
    biased_corners: tuple[str, ...]


def residual_level(residual: Survey, component: int = 0) -> ResidualLevel:
    """How the residual of a component lies about 0, all over the survey and at its edges.

    An edge is the outer eighth of the extent. Across a single line of stations there is none.
    """
    values, valid = _data(residual, component)
    deviation = float(np.nanmedian(residual.uncertainties()[component]))
    edges, corners = edge_means(residual.x, residual.y, values), _corner_means(residual.x, residual.y, values)
    found = values[valid]
    return ResidualLevel(float(np.median(found)), float((found < 0.0).mean()), {name: edge.mean for name, edge in edges.items()},
                         _biased(edges, deviation), {name: corner.mean for name, corner in corners.items()},
                         _biased(corners, deviation))


def _biased(means: dict[str, EdgeMean], deviation: float) -> tuple[str, ...]:
    return tuple(name for name, one in means.items() if abs(one.mean) > max(deviation, SIGNIFICANT * one.error))


@dataclass(frozen=True)
class EdgeMean:
    """Mean of the data at an edge, of their middle half, and its standard error from their scatter."""

    mean: float
    error: float


def edge_means(x: Reals, y: Reals, values: Reals) -> dict[str, EdgeMean]:
    """Means at the edges of a survey, the outer eighth of its extent, by their names; NaN is no datum.

    An edge needs five data. Across a single line of stations there is none.
    """
    valid = np.isfinite(values)
    extents = float(np.ptp(x)), float(np.ptp(y))
    edges: dict[str, EdgeMean] = {}
    for places, extent, names in ((x, extents[0], ("west", "east")), (y, extents[1], ("south", "north"))):
        if extent <= _LINE * max(extents):
            continue
        for name, distance in zip(names, (places - places.min(), places.max() - places)):
            at = values[valid & (distance <= _EDGE * extent)]
            if len(at) >= _FEWEST_AT_EDGE:
                edges[name] = _middle_mean(at)
    return edges


def _corner_means(x: Reals, y: Reals, values: Reals) -> dict[str, EdgeMean]:
    """Means in the corners of a survey that is an area, by their names; a corner needs five data."""
    valid, east, north = np.isfinite(values), float(np.ptp(x)), float(np.ptp(y))
    corners: dict[str, EdgeMean] = {}
    if min(east, north) <= _LINE * max(east, north):
        return corners
    for first, upward in (("north", y.max() - y), ("south", y - y.min())):
        for second, sideward in (("west", x - x.min()), ("east", x.max() - x)):
            at = values[valid & (upward <= _CORNER * north) & (sideward <= _CORNER * east)]
            if len(at) >= _FEWEST_AT_EDGE:
                corners[first + second] = _middle_mean(at)
    return corners


def _middle_mean(values: Reals) -> EdgeMean:
    """Mean of the middle half."""
    at = np.sort(values)
    quarter = len(at) // 4
    scatter = 0.7413 * float(at[-1 - quarter] - at[quarter])  # of the quartiles, to a standard deviation
    return EdgeMean(float(at[quarter: len(at) - quarter].mean()), 1.2 * scatter / math.sqrt(len(at)))


def _data(survey: Survey, component: int) -> tuple[Reals, Mask]:
    if not 0 <= component < survey.n_components:
        raise UsageError(f"regional: expected a component of 1 to {survey.n_components}, found {component + 1}")
    values = survey.data[component]
    valid: Mask = np.isfinite(values)
    if not valid.any():
        raise UsageError("regional: no datum is valid")
    return values, valid


def _scaled(survey: Survey) -> tuple[Reals, Reals, tuple[float, float, float]]:
    x0, y0 = 0.5 * float(survey.x.min() + survey.x.max()), 0.5 * float(survey.y.min() + survey.y.max())
    radius = max(0.5 * float(np.ptp(survey.x)), 0.5 * float(np.ptp(survey.y)), 1.0e-9)
    return (survey.x - x0) / radius, (survey.y - y0) / radius, (x0, y0, radius)
