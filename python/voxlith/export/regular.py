"""Grids of GemPy and Tomofast-x from models, and models from them."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np

from ..errors import UsageError
from ..io.gempy_file import GempyGrid
from ..io.tomofast_file import TomofastGrid
from ..memory import require_memory
from ..mesh import Mesh
from ..model import Model
from .sampling import cells_along, regular_centres, regular_count, shown_cube


def to_gempy(model: Model, resolution: Sequence[int] | None = None) -> GempyGrid:
    """A regular grid with the values of a model at its cell centres; NaN in inactive cells.

    Parameters
    ----------
    resolution : three int, optional
        Cells along x, y and z; by default those of the smallest widths of the mesh.
    """
    mesh = model.mesh
    counts = list(resolution) if resolution is not None else [
        regular_count(widths, axis) for widths, axis in ((mesh.x_widths, "x"), (mesh.y_widths, "y"), (mesh.z_widths, "z"))]
    require_memory(8.0 * float(np.prod(np.array(counts, dtype=float))), f"a regular grid of {' x '.join(map(str, counts))} cells")
    rising = mesh.z_nodes[::-1]
    i, j = (cells_along(nodes, regular_centres(nodes, count)) for nodes, count in zip((mesh.x_nodes, mesh.y_nodes), counts))
    k = cells_along(mesh.z_nodes, regular_centres(rising, counts[2]))
    values = shown_cube(model)[np.ix_(k, i, j)].transpose(1, 2, 0)
    extent = tuple(float(value) for nodes in (mesh.x_nodes, mesh.y_nodes, rising) for value in (nodes[0], nodes[-1]))
    return GempyGrid(extent, tuple(int(count) for count in counts), np.ascontiguousarray(values))


def from_gempy(grid: GempyGrid, mesh: Mesh | None = None, name: str = "lithology") -> Model:
    """A model on the cells of the grid, or on another mesh.

    Parameters
    ----------
    mesh : Mesh, optional
        Its cells get the value at their centre; NaN outside the grid.
    """
    x, y, z = grid.nodes
    own = Model(Mesh(x, y, z[::-1]), grid.values.transpose(2, 0, 1)[::-1], name)
    if mesh is None or mesh == own.mesh:
        return own
    east, north, high = (axis[None, :, None] if n == 0 else axis[None, None, :] if n == 1 else axis[:, None, None]
                         for n, axis in enumerate((mesh.x_centres, mesh.y_centres, mesh.z_centres)))
    return Model(mesh, own.value_at(east, north, high), name)


def to_tomofast(models: Sequence[Model]) -> TomofastGrid:
    """A tensor grid with the values of one model, or of three that are a vector; 0 in inactive cells.

    z runs downwards from elevation 0.
    """
    if len(models) not in (1, 3) or any(model.mesh != models[0].mesh for model in models):
        raise UsageError("Tomofast-x grid: expected one model, or three of the same mesh")
    mesh = models[0].mesh
    values = np.stack([np.nan_to_num(shown_cube(model), nan=0.0).transpose(0, 2, 1) for model in models], axis=-1)
    return TomofastGrid(mesh.x_nodes, mesh.y_nodes, mesh.depth_nodes, values)


def from_tomofast(grid: TomofastGrid, name: str = "model", unit: str = "") -> list[Model]:
    """Models of the components of a grid, named ``name`` or ``name_1`` to ``name_3``."""
    mesh = Mesh(grid.x_nodes, grid.y_nodes, -grid.z_nodes + 0.0)
    count = grid.values.shape[-1]
    names = [name] if count == 1 else [f"{name}_{number}" for number in range(1, count + 1)]
    return [Model(mesh, grid.values[..., number].transpose(0, 2, 1), one, unit) for number, one in enumerate(names)]
