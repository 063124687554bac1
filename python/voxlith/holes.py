"""Vertical boreholes among the stations of a survey: several stations at one x and y, at different elevations."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

Reals = npt.NDArray[np.float64]

_FEWEST = 4  # stations of a hole: repeated readings with another elevation are fewer
_SAME_PLACE = 0.01  # metres


@dataclass(frozen=True)
class Hole:
    """Stations in a vertical hole.

    Attributes
    ----------
    stations : ndarray of int
        Their indices, from the top down.
    x, y : float
    top, bottom : float
        Elevations of the highest and the lowest station.
    """

    stations: npt.NDArray[np.intp]
    x: float
    y: float
    top: float
    bottom: float


def vertical_holes(x: npt.ArrayLike, y: npt.ArrayLike, elevation: npt.ArrayLike) -> list[Hole]:
    """Holes of four stations or more at different elevations, in the order of their first stations.

    Examples
    --------
    >>> [hole.stations.tolist() for hole in vertical_holes([5, 0, 5, 5, 5], [1, 1, 1, 1, 1], [10, 50, 40, 30, 20])]
    [[2, 3, 4, 0]]
    """
    east, north, height = (np.asarray(values, dtype=np.float64) for values in (x, y, elevation))
    if not len(east):
        return []
    places = np.rint(np.column_stack([east, north]) / _SAME_PLACE)
    _, first, numbers = np.unique(places, axis=0, return_index=True, return_inverse=True)
    order = np.lexsort((-height, numbers))
    starts = np.searchsorted(numbers[order], np.arange(len(first)))
    holes = []
    for group in np.argsort(first, kind="stable").tolist():
        end = starts[group + 1] if group + 1 < len(starts) else len(order)
        if end - starts[group] < _FEWEST:
            continue
        stations = order[starts[group]:end]
        if len(np.unique(height[stations])) >= _FEWEST:
            holes.append(Hole(stations, float(east[stations[0]]), float(north[stations[0]]), float(height[stations[0]]),
                              float(height[stations[-1]])))
    return holes
