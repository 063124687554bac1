"""Where exported coordinates are: the reference system, and a shift that is added to eastings and northings."""

from __future__ import annotations

from dataclasses import dataclass, replace

from ..mesh import Mesh
from ..model import Model
from ..survey import Survey


@dataclass(frozen=True)
class Placement:
    """Reference system and shift of coordinates.

    Attributes
    ----------
    crs : str
        Such as ``EPSG:32633``; empty when unknown.
    shift : tuple of 2 float
        Metres to add to easting and northing.

    Examples
    --------
    >>> placement = Placement("EPSG:32633", (500000.0, 0.0))
    >>> placement.mesh(Mesh([0, 1], [0, 1], [0, -1]))
    Mesh(1 x 1 x 1 cells, x 500000 to 500001, y 0 to 1, elevation -1 to 0)
    """

    crs: str = ""
    shift: tuple[float, float] = (0.0, 0.0)

    def mesh(self, mesh: Mesh) -> Mesh:
        """A mesh at its place."""
        if self.shift == (0.0, 0.0):
            return mesh
        return Mesh(mesh.x_nodes + self.shift[0], mesh.y_nodes + self.shift[1], mesh.z_nodes)

    def model(self, model: Model) -> Model:
        """A model at its place."""
        return replace(model, mesh=self.mesh(model.mesh))

    def survey(self, survey: Survey) -> Survey:
        """A survey at its place."""
        return replace(survey, x=survey.x + self.shift[0], y=survey.y + self.shift[1])
