"""Bodies of a model: connected cells above a share of the peak, and what the whole model holds where data resolve little.

The excess of cells is the sum of value times volume: mass for density contrasts, susceptibility times volume for
susceptibilities. A smooth model spreads a body, so the excess of a body depends on the threshold. The net excess of all cells
below the survey does not, but on how well the data cover the anomaly and on the regional field.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .errors import UsageError
from .io.bounds_file import CellBounds
from .mesh import Mesh
from .model import Model
from .packages import require

Reals = npt.NDArray[np.float64]
Indices = npt.NDArray[np.intp]
Mask = npt.NDArray[np.bool_]
Range = tuple[float, float]

THRESHOLD = 0.5
"""Share of the peak from which on cells belong to a body."""

OTHER_THRESHOLDS = (0.2, 0.35, 0.5)
"""Shares of the peak at which the excess is listed, so that its dependence on the threshold is seen."""

MUCH = 0.1
"""Share of the absolute excess in padding, in the bottom layer or at bounds from which on a warning is due."""

_WIDE = 1.01  # width of a padding column over that of the core's columns
_FEWEST_LAYERS = 4  # in thinner models, the bottom layer says nothing
_AT_BOUND = 1.0e-3  # distance from a bound, over the bound
_LEAST_PEAK, _LEAST_EXCESS = 0.1, 0.2  # of the other sign's, from which on a weaker sign has bodies of its own threshold


@dataclass(frozen=True)
class Body:
    """Cells that are connected by their faces.

    Attributes
    ----------
    cells : ndarray of int
        Indices of its cells.
    centre : tuple of 3 float
        x, y and elevation, weighted by value and volume.
    depth : float
        Of the centre below the ground, metres; NaN where the ground is unknown.
    x, y, elevation : tuple of 2 float
        Extent from face to face, metres.
    volume : float
        m3.
    peak : float
        Value that is farthest from 0.
    excess : float
        Sum of value times volume, unit of the value times m3.
    """

    cells: Indices
    centre: tuple[float, float, float]
    depth: float
    x: Range
    y: Range
    elevation: Range
    volume: float
    peak: float
    excess: float


@dataclass(frozen=True)
class Excess:
    """Sums of value times volume.

    Attributes
    ----------
    positive, negative : float
        Of the cells above and below 0.
    """

    positive: float
    negative: float

    @property
    def net(self) -> float:
        """Sum of both."""
        return self.positive + self.negative


@dataclass(frozen=True)
class Distribution:
    """Where the excess of a model lies.

    Attributes
    ----------
    core, padding : Excess
        Below the columns of the core, and below the wider columns at the sides of the mesh.
    in_padding, in_bottom, at_bounds : float
        Shares of the absolute excess: in padding columns, in the bottom layer, in cells at a bound other than 0. NaN where
        the mesh has no padding or few layers, or bounds are unknown.
    cells_at_bounds : int
    """

    core: Excess
    padding: Excess
    in_padding: float
    in_bottom: float
    at_bounds: float
    cells_at_bounds: int


def connected_cells(mesh: Mesh, chosen: Mask) -> list[Indices]:
    """Groups of chosen cells that are connected by their faces, as indices of cells, in no particular order.

    Raises MissingPackageError without SciPy.
    """
    ndimage = require("scipy.ndimage", "connected bodies")
    labels, count = ndimage.label(mesh.cube(chosen))
    cells = np.flatnonzero(chosen)
    numbers = mesh.flat(labels)[cells]
    order = np.argsort(numbers, kind="stable")
    return list(np.split(cells[order], np.searchsorted(numbers[order], np.arange(2, count + 1)))) if count else []


def find_bodies(model: Model, threshold: float = THRESHOLD, ground: Reals | None = None) -> list[Body]:
    """Bodies of both signs, the largest absolute excess first.

    Parameters
    ----------
    model : Model
    threshold : float
        Cells of this share of the peak of their sign or more. A sign whose peak is below this share of that of the other
        sign has bodies only where it matters (:func:`weaker_sign`).
    ground : ndarray, shape (nx, ny), optional
        Elevation of the ground above each column.

    Raises
    ------
    UsageError
        For a threshold that is not above 0 and at most 1.
    MissingPackageError
        Without SciPy.
    """
    if not 0.0 < threshold <= 1.0:
        raise UsageError(f"bodies: expected a threshold above 0 and at most 1, found {threshold:g}")
    values = _known(model)
    weaker = weaker_sign(model, threshold)
    found = []
    for sign in (1.0, -1.0):
        peak = float((sign * values).max(initial=0.0))
        if peak > 0.0 and (weaker is None or weaker.matters or sign * weaker.peak < 0.0):
            found += [_body(model.mesh, values, cells, ground) for cells in connected_cells(model.mesh, sign * values >= threshold * peak)]
    return sorted(found, key=lambda body: -abs(body.excess))


@dataclass(frozen=True)
class WeakerSign:
    """The sign whose peak is below the threshold times that of the other sign.

    Attributes
    ----------
    peak : float
        Its value that is farthest from 0.
    ratio : float
        Of its peak to that of the other sign.
    matters : bool
        Whether it may stand for a body of weak contrast: its peak is at least a tenth of the other, and its cells above the
        threshold of their own peak have at least a fifth of the excess of those of the other sign.
    """

    peak: float
    ratio: float
    matters: bool

    @property
    def side(self) -> str:
        """Where its values lie."""
        return "above 0" if self.peak > 0.0 else "below 0"


def weaker_sign(model: Model, threshold: float = THRESHOLD) -> WeakerSign | None:
    """The sign that a common threshold for both signs would hide; None where there is none."""
    values, volumes = _known(model), model.mesh.volumes()
    peaks = [float(values.max(initial=0.0)), float(values.min(initial=0.0))]
    weak = int(abs(peaks[1]) < abs(peaks[0]))
    peak, other = peaks[weak], peaks[1 - weak]
    if peak == 0.0 or abs(peak) >= threshold * abs(other):
        return None
    parts = [values / limit >= threshold for limit in (peak, other)]
    excess, usual = (abs(float((values[part] * volumes[part]).sum())) for part in parts)
    ratio = abs(peak / other)
    return WeakerSign(peak, ratio, ratio >= _LEAST_PEAK and excess >= _LEAST_EXCESS * usual)


def weaker_sign_text(model: Model, threshold: float = THRESHOLD) -> str:
    """What a list of bodies does with the weaker sign; an empty text where there is nothing to say."""
    found = weaker_sign(model, threshold)
    if found is None or found.ratio < _LEAST_PEAK:
        return ""
    start = f"values {found.side}: peak {found.peak:.4g}, {found.ratio:.2g} of that of the other sign"
    if found.matters:
        return f"{start}; their bodies have {threshold:g} of their own peak or more"
    # Rounded down, so that the peak is not below this share of the other.
    return f"{start}, and little excess: no body; --threshold {math.floor(100.0 * found.ratio) / 100.0:g} lists them"


def _known(model: Model) -> Reals:
    """Values, 0 in inactive and no-data cells."""
    return np.where(model.shown, model.values, 0.0)


def _body(mesh: Mesh, values: Reals, cells: Indices, ground: Reals | None) -> Body:
    k, i, j = _position(mesh, cells)
    volumes = mesh.x_widths[i] * mesh.y_widths[j] * mesh.z_widths[k]
    weights = values[cells] * volumes
    excess = float(weights.sum())
    x, y, z = (float(weights @ centres) / excess for centres in (mesh.x_centres[i], mesh.y_centres[j], mesh.z_centres[k]))
    depth = math.nan if ground is None else float(ground.ravel()[_column(mesh, x, y)]) - z
    peak = values[cells]
    return Body(cells, (x, y, z), depth, _range(mesh.x_nodes, i), _range(mesh.y_nodes, j),
                (float(mesh.z_nodes[k.max() + 1]), float(mesh.z_nodes[k.min()])), float(volumes.sum()),
                float(peak[np.argmax(np.abs(peak))]), excess)


def _position(mesh: Mesh, cells: Indices) -> tuple[Indices, Indices, Indices]:
    """Layer, column from the west and column from the south of cells."""
    rows, k = np.divmod(cells, mesh.nz)
    j, i = np.divmod(rows, mesh.nx)
    return k, i, j


def _column(mesh: Mesh, x: float, y: float) -> int:
    """Index of the column below a point within the mesh, in an array of shape (nx, ny)."""
    i = int(np.searchsorted(mesh.x_nodes[1:-1], x, side="right"))
    return i * mesh.ny + int(np.searchsorted(mesh.y_nodes[1:-1], y, side="right"))


def _range(nodes: Reals, index: Indices) -> Range:
    return float(nodes[index.min()]), float(nodes[index.max() + 1])


def top_of(model: Model) -> Reals:
    """Elevation of the top of the active cells, shape (nx, ny); NaN where a column has none."""
    active = model.mesh.cube(model.shown)
    return np.where(active.any(axis=0), model.mesh.z_nodes[np.argmax(active, axis=0)], np.nan)


def core_columns(mesh: Mesh) -> Mask:
    """Columns of the core, shape (nx, ny): all but the wider ones at the sides of the mesh."""
    return np.asarray(_narrow(mesh.x_widths)[:, None] & _narrow(mesh.y_widths)[None, :], dtype=np.bool_)


def _narrow(widths: Reals) -> Mask:
    """Columns from the first to the last of the smallest width."""
    inner = np.flatnonzero(widths <= _WIDE * widths.min())
    numbers = np.arange(len(widths))
    return np.asarray((numbers >= inner[0]) & (numbers <= inner[-1]), dtype=np.bool_)


def excess_above(model: Model, shares: Sequence[float] = OTHER_THRESHOLDS) -> list[Excess]:
    """Excess of the core's cells that have at least a share of the peak of their sign, one for each share."""
    mesh = model.mesh
    cube = np.where(core_columns(mesh), mesh.cube(_known(model)), 0.0)
    weights = cube * mesh.cube(mesh.volumes())
    high, low = float(cube.max(initial=0.0)), float(cube.min(initial=0.0))
    return [Excess(float(weights[(cube > 0.0) & (cube >= share * high)].sum()),
                   float(weights[(cube < 0.0) & (cube <= share * low)].sum())) for share in shares]


def distribution(model: Model, bounds: CellBounds | None = None) -> Distribution:
    """Where the excess of a model lies; `bounds` are those of its cells."""
    mesh = model.mesh
    weights = mesh.cube(_known(model)) * mesh.cube(mesh.volumes())
    core = core_columns(mesh)
    total = float(np.abs(weights).sum())

    def share(part: Reals) -> float:
        return float(np.abs(part).sum()) / total if total > 0.0 else 0.0

    limited = None if bounds is None else cells_at_bounds(model, bounds)
    return Distribution(
        _excess(weights[:, core]), _excess(weights[:, ~core]), math.nan if core.all() else share(weights[:, ~core]),
        math.nan if mesh.nz < _FEWEST_LAYERS else share(weights[-1]),
        math.nan if limited is None else share(mesh.flat(weights)[limited]), 0 if limited is None else int(limited.sum()))


def _excess(weights: Reals) -> Excess:
    return Excess(float(weights[weights > 0.0].sum()), float(weights[weights < 0.0].sum()))


def body_remark(model: Model, body: Body, bounds: CellBounds | None = None) -> str:
    """Where a body lies, when that makes it doubtful; else an empty text."""
    mesh = model.mesh
    k, i, j = _position(mesh, body.cells)
    weights = np.abs(model.values[body.cells]) * mesh.x_widths[i] * mesh.y_widths[j] * mesh.z_widths[k]
    parts = weights / weights.sum()
    texts = []
    if mesh.nz >= _FEWEST_LAYERS and parts[k == mesh.nz - 1].sum() > 0.5:
        texts.append("in the bottom layer")
    if parts[~(_narrow(mesh.x_widths)[i] & _narrow(mesh.y_widths)[j])].sum() > 0.5:
        texts.append("in padding columns")
    limited = 0.0 if bounds is None else float(parts[_are_at_bounds(model.values, bounds, body.cells)].sum())
    if limited > MUCH:
        texts.append(f"{100.0 * limited:.0f} % at bounds")
    return "; ".join(texts)


def cells_at_bounds(model: Model, bounds: CellBounds) -> Mask:
    """Cells at the bound that keeps them from values farther from 0, shape (cells,). Fixed cells do not count."""
    return _are_at_bounds(_known(model), bounds, slice(None))


def _are_at_bounds(all_values: Reals, bounds: CellBounds, cells: Indices | slice) -> Mask:
    values, lower, upper = all_values[cells], bounds.lower[cells], bounds.upper[cells]
    high = (values > 0.0) & np.isfinite(upper) & (values >= (1.0 - _AT_BOUND) * upper)
    low = (values < 0.0) & np.isfinite(lower) & (values <= (1.0 - _AT_BOUND) * lower)
    return np.asarray((high | low) & ~bounds.fixed[cells], dtype=np.bool_)


def doubts(found: Distribution, norm: str = "") -> list[str]:
    """What makes the excess of the bodies doubtful, a line each. `norm` is that of the model, empty where it is unknown."""
    texts = []
    if norm == "smooth" and _minor_share(found) > MUCH:
        texts.append("masses of a smooth model with both signs are up to twice too large, as weak parts of opposite sign cancel "
                     "in the data; use init and voxlith-run --model-norm blocky, or give --sign where geology knows it")
    if found.in_padding > MUCH:
        texts.append(f"{100.0 * found.in_padding:.0f} % of the absolute excess lies in padding columns, beside the survey")
    if found.in_bottom > MUCH:
        texts.append(f"{100.0 * found.in_bottom:.0f} % of the absolute excess lies in the bottom layer of the mesh, where the "
                     "data resolve no body")
    if found.at_bounds > MUCH:
        texts.append(f"{100.0 * found.at_bounds:.0f} % of the absolute excess lies in {found.cells_at_bounds} cells at their "
                     "bounds; the bounds decide about depth and volume there")
    return texts


def _minor_share(found: Distribution) -> float:
    """Excess of the lesser sign over the absolute one, in the core."""
    core = found.core
    absolute = core.positive - core.negative
    return min(core.positive, -core.negative) / absolute if absolute > 0.0 else 0.0


@dataclass(frozen=True)
class ExcessUnit:
    """How the excess of a model is shown.

    Attributes
    ----------
    name, unit : str
    factor : float
        What unit of the model times m3 is multiplied with.
    """

    name: str
    unit: str
    factor: float


def excess_unit(model: Model) -> ExcessUnit:
    """Megatonnes for a density contrast, else the value times volume.

    >>> mesh = Mesh([0, 1], [0, 1], [0, -1])
    >>> excess_unit(Model(mesh, [1.0], "density contrast", "g/cm3"))
    ExcessUnit(name='excess mass', unit='Mt', factor=1e-06)
    >>> excess_unit(Model(mesh, [1.0], "susceptibility", "0.01 SI"))
    ExcessUnit(name='susceptibility x volume', unit='1e6 m3', factor=1e-08)
    """
    first, _, rest = model.unit.partition(" ")
    try:
        scale, unit = float(first), rest
    except ValueError:
        scale, unit = 1.0, model.unit
    factor = float(f"{scale * 1.0e-6:.15g}")
    if unit == "g/cm3":
        return ExcessUnit("excess mass", "Mt", factor)
    if unit == "SI":
        return ExcessUnit("susceptibility x volume", "1e6 m3", factor)
    return ExcessUnit("value x volume", "1e6 m3", 1.0e-6)
