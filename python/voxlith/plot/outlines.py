"""Outlines of true bodies on slices and sections."""

from __future__ import annotations

from typing import Any

from matplotlib.patches import Rectangle
from matplotlib.patheffects import withStroke

Range = tuple[float, float]


def draw_outline(panel: Any, a: Range, b: Range, *, is_cut: bool) -> None:
    """The box of a true body: solid where the plane of the panel cuts it, dashed where it lies beside it.

    Parameters
    ----------
    panel : Axes
    a, b : pair of float
        Ranges along the horizontal and the vertical axis of the panel.
    is_cut : bool
    """
    low = min(b)
    panel.add_patch(Rectangle((a[0], low), a[1] - a[0], abs(b[1] - b[0]), fill=False, edgecolor="black", linewidth=1.1,
                              linestyle="-" if is_cut else (0, (4, 3)),
                              path_effects=[withStroke(linewidth=2.4, foreground="white")]))


def overlap(a: Range, b: Range) -> bool:
    """Whether two ranges have a part in common; the second one may fall."""
    return a[0] < max(b) and a[1] > min(b)
