"""Magnetisation as a vector per cell: amplitude, direction, moments."""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .bodies import connected_cells
from .errors import UsageError
from .mesh import Mesh
from .model import Model
from .survey import Direction

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

_NANOTESLA_OF_AMPERE_PER_METRE = 400.0 * math.pi  # mu0 * 1e9


def unit_vector(direction: Direction) -> Reals:
    """Direction to the east, to the north and down.

    >>> unit_vector(Direction(90.0, 0.0)).round(12).tolist()
    [0.0, 0.0, 1.0]
    """
    inclination, declination = math.radians(direction.inclination), math.radians(direction.declination)
    return np.array([math.cos(inclination) * math.sin(declination), math.cos(inclination) * math.cos(declination),
                     math.sin(inclination)])


def direction_of(vector: npt.ArrayLike) -> Direction:
    """Inclination (positive downwards) and declination (0 to 360, clockwise from north) of a vector east, north, down.

    >>> direction_of([0.0, -2.0, 0.0])
    Direction(inclination=0.0, declination=180.0)
    """
    east, north, down = np.asarray(vector, dtype=np.float64).tolist()
    return Direction(math.degrees(math.atan2(down, math.hypot(east, north))), math.degrees(math.atan2(east, north)) % 360.0)


def angle_between(a: Direction, b: Direction) -> float:
    """Angle between two directions, degrees."""
    return math.degrees(math.acos(min(1.0, max(-1.0, float(unit_vector(a) @ unit_vector(b))))))


@dataclass(frozen=True)
class MagneticBody:
    """Cells that are connected by their faces, see :meth:`VectorModel.bodies`.

    Attributes
    ----------
    cells : int
    centre : tuple of float
        x, y and elevation, weighted by amplitude and volume.
    volume : float
        m3.
    moment : ndarray, shape (3,)
        Sum of magnetisation times volume, A m2 to the east, north and down: directions are weighted by amplitude.
    """

    cells: int
    centre: tuple[float, float, float]
    volume: float
    moment: Reals

    @property
    def direction(self) -> Direction:
        """Direction of the moment."""
        return direction_of(self.moment)


@dataclass(frozen=True)
class VectorModel:
    """A magnetisation vector per cell.

    Attributes
    ----------
    mesh : Mesh
    east, north, down : ndarray, shape (cells,)
        In cell order, in units of strength / mu0: 1 is what a susceptibility of 1 SI would induce.
    strength : float
        Of the inducing field, nT.
    active : ndarray of bool, shape (cells,), or None
        Cells that count; all by default.
    """

    mesh: Mesh
    east: Reals
    north: Reals
    down: Reals
    strength: float
    active: Mask | None = None

    def __post_init__(self) -> None:
        shape = (self.mesh.n_cells,)
        for name in ("east", "north", "down"):
            if getattr(self, name).shape != shape:
                raise UsageError(f"{name}: expected {shape[0]} values, found the shape {getattr(self, name).shape}")

    @classmethod
    def from_components(cls, mesh: Mesh, values: Sequence[Reals], directions: Sequence[Direction], strength: float,
                        active: Mask | None = None) -> VectorModel:
        """From components along any directions: the vector is the sum of the components times their directions."""
        total = np.zeros((3, mesh.n_cells))
        for component, direction in zip(values, directions, strict=True):
            total += unit_vector(direction)[:, None] * np.where(np.isnan(component), 0.0, component)
        # Cosines of right angles are not exactly 0.
        total[np.abs(total) < 1.0e-15 * np.abs(total).max(initial=0.0)] = 0.0
        return cls(mesh, total[0], total[1], total[2], strength, active)

    @property
    def vectors(self) -> Reals:
        """Shape (cells, 3): east, north, down."""
        return np.stack([self.east, self.north, self.down], axis=1)

    @property
    def amplitude(self) -> Reals:
        """Length of the vectors, shape (cells,)."""
        return np.asarray(np.sqrt(self.east**2 + self.north**2 + self.down**2))

    @property
    def inclination(self) -> Reals:
        """Degrees, positive downwards, shape (cells,)."""
        return np.asarray(np.degrees(np.arctan2(self.down, np.hypot(self.east, self.north))))

    @property
    def declination(self) -> Reals:
        """Degrees from 0 to 360, clockwise from north, shape (cells,)."""
        return np.asarray(np.degrees(np.arctan2(self.east, self.north)) % 360.0)

    def component(self, direction: Direction) -> Reals:
        """Component along a direction, shape (cells,)."""
        return np.asarray(self.vectors @ unit_vector(direction))

    def model(self, quantity: str) -> Model:
        """``"amplitude"``, ``"inclination"`` or ``"declination"`` as a model."""
        units = {"amplitude": "SI", "inclination": "degrees", "declination": "degrees"}
        if quantity not in units:
            raise UsageError(f"quantity {quantity}: expected {', '.join(units)}")
        name = "magnetisation" if quantity == "amplitude" else quantity
        return Model(self.mesh, getattr(self, quantity), name, units[quantity], self.active)

    def moment(self, least: float = 0.0) -> Reals:
        """Sum of magnetisation times volume, A m2 to the east, north and down.

        Parameters
        ----------
        least : float
            Only cells of this share of the largest amplitude or more.
        """
        amplitude = self.amplitude
        chosen = amplitude >= least * amplitude.max(initial=0.0)
        if self.active is not None:
            chosen &= self.active
        volumes = np.where(chosen, self.mesh.volumes(), 0.0)
        return np.asarray(volumes @ self.vectors) * (self.strength / _NANOTESLA_OF_AMPERE_PER_METRE)

    def centre(self, least: float = 0.5) -> tuple[float, float, float]:
        """Centre of the cells of a share of the largest amplitude or more, weighted by amplitude and volume: x, y, z."""
        amplitude = self.amplitude
        weight = np.where(amplitude >= least * amplitude.max(initial=0.0), amplitude, 0.0) * self.mesh.volumes()
        if not weight.sum() > 0.0:
            raise UsageError("vectors: expected amplitudes above 0")
        x, y, z = (weight @ self.mesh.centres() / weight.sum()).tolist()
        return x, y, z

    def bodies(self, least: float = 0.5) -> list[MagneticBody]:
        """Connected cells of a share of the largest amplitude or more, the largest moment first.

        Cells are connected by their faces. Cells without an amplitude are in no body.
        """
        amplitude = np.where(np.isfinite(self.amplitude), self.amplitude, 0.0)
        if self.active is not None:
            amplitude[~self.active] = 0.0
        chosen = (amplitude > 0.0) & (amplitude >= least * amplitude.max(initial=0.0))
        volumes, centres = self.mesh.volumes(), self.mesh.centres()
        found = []
        for inside in connected_cells(self.mesh, chosen):
            weights = amplitude[inside] * volumes[inside]
            x, y, z = (weights @ centres[inside] / weights.sum()).tolist()
            moment = volumes[inside] @ self.vectors[inside] * (self.strength / _NANOTESLA_OF_AMPERE_PER_METRE)
            found.append(MagneticBody(len(inside), (x, y, z), float(volumes[inside].sum()), np.asarray(moment)))
        return sorted(found, key=lambda one: -float(np.linalg.norm(one.moment)))
