"""Which layers a sensitivity file covers, and the inversion style that follows."""

from __future__ import annotations

from dataclasses import dataclass

from .errors import UsageError
from .mesh import Mesh
from .wavelet import LONGEST_PLAIN_AXIS, padded_extent

STYLES = ("Standard 3D", "Equivalent source", "Apparent density", "Surface+Apparent density",
          "3D with edge padding correction")
"""Names of the inversion styles 0 to 4."""


@dataclass(frozen=True)
class LayerPlan:
    """Padded mesh, covered layers and style of a file.

    Attributes
    ----------
    npy, npx, npz : int
        Padded cells.
    layers : int
        Layers that the sensitivities cover.
    style : int
        Inversion style, 0 to 4.
    sum_below : bool
        Whether the last covered layer represents all layers from there down.
    """

    npy: int
    npx: int
    npz: int
    layers: int
    style: int
    sum_below: bool


def plan_layers(mesh: Mesh, layers: int | None = None, style: int | None = None, *,
                stores_style: bool = True) -> LayerPlan:
    """Choose padded mesh and style.

    Parameters
    ----------
    mesh : Mesh
    layers : int, optional
        Layers to cover: all, at most 4, or a power of two. By default as the style asks: 1 in styles 1 and 2, 2 in
        style 3, all in the others.
    style : int, optional
        By default the one that follows from the layers.
    stores_style : bool
        Whether the file can hold a style (tagged layout, version 2).

    Raises
    ------
    UsageError
        When layers, style and layout do not go together.

    Examples
    --------
    >>> plan_layers(Mesh([0, 1, 2, 3], [0, 1], [0, -1, -2]), style=2)
    LayerPlan(npy=1, npx=4, npz=1, layers=1, style=2, sum_below=True)
    """
    nz = mesh.nz
    if style is not None and not 0 <= style < len(STYLES):
        raise UsageError(f"style {style}: expected 0 to {len(STYLES) - 1}")
    surface = style in (1, 2, 3)
    covered = layers if layers is not None else nz if not surface else 2 if style == 3 and nz > 1 else 1
    if not 1 <= covered <= nz:
        raise UsageError(f"layers {covered}: the mesh has {nz} layers")
    if covered < nz and covered > LONGEST_PLAIN_AXIS and covered & (covered - 1):
        raise UsageError(f"layers {covered}: expected at most {LONGEST_PLAIN_AXIS}, a power of two, or all {nz} layers")
    if covered < nz and style in (0, 4):
        raise UsageError(f"layers {covered}: style {style} covers all {nz} layers of the mesh")
    npz = covered if covered < nz else padded_extent(nz)
    seen = 0 if npz >= nz else 1 if npz == 1 else 3
    chosen = seen if style is None else style
    if chosen != seen and not stores_style:
        raise UsageError(f"style {chosen}: without a style of its own (tagged layout, version 2) the file is read as "
                         f"style {seen}")
    return LayerPlan(padded_extent(mesh.ny), padded_extent(mesh.nx), npz, covered, chosen,
                     chosen in (2, 3) and covered < nz)
