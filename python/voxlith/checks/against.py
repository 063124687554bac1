"""Checks of a survey against a mesh, a sensitivity file and a terrain."""

from __future__ import annotations

from collections.abc import Callable, Sequence

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..holes import vertical_holes
from ..io.mtx_header import MtxHeader
from ..mesh import Mesh
from ..side_file import SideInfo, other_coordinates
from .findings import Finding, named

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

_TOP = "check the sign and the unit of the top of the mesh; voxlith-tools mesh --topography puts it above the ground"
_IN_GROUND, _FAR_ABOVE = 1.0, 300.0  # metres against the terrain


def check_reference_systems(survey: SideInfo, other: SideInfo, path: str) -> list[Finding]:
    """The coordinates of the survey must be those of a mesh or sensitivity file, as far as both are known."""
    found = other_coordinates(survey, other)
    if not found:
        return []
    return [Finding("error", "reference-system", f"the coordinates of the survey and of {path} differ: {found}",
                    "make both from one data file")]


def check_mesh(x: Reals, y: Reals, elevation: Reals, mesh: Mesh, names: Sequence[str], has_terrain: bool) -> list[Finding]:
    """Stations beside the mesh, or below its top."""
    beside = outside_mesh(x, y, mesh)
    findings = []
    if beside.all() and not outside_mesh(y, x, mesh).any():
        return [Finding("error", "outside-mesh", "all stations are beside the mesh, but inside it with x and y exchanged",
                        "exchange the columns of --x and --y")]
    if beside.any():
        findings.append(Finding(
            "error" if beside.mean() > 0.5 else "warning", "outside-mesh", f"{np.count_nonzero(beside)} of {len(x)} stations "
            f"beside the mesh, which lies at x {mesh.x_nodes[0]:g} to {mesh.x_nodes[-1]:g}, y {mesh.y_nodes[0]:g} to "
            f"{mesh.y_nodes[-1]:g}", "make the mesh below these stations, or check their coordinates", named(names, beside)))
    if not beside.all():
        findings += _check_height(x[~beside], y[~beside], elevation[~beside], mesh)
    below = (elevation < mesh.z_nodes[0]) & ~beside
    if below.any() and not has_terrain:
        findings.append(Finding(
            "error", "below-mesh-top", f"{count_text(np.count_nonzero(below), 'station')} below the top of the mesh at elevation "
            f"{mesh.z_nodes[0]:g}", "give the terrain with --topography, or lower the top of the mesh", named(names, below)))
    return findings


def _check_height(x: Reals, y: Reals, elevation: Reals, mesh: Mesh) -> list[Finding]:
    """A top with the wrong sign, or so far below all stations that they resolve nothing."""
    top, lowest = float(mesh.z_nodes[0]), float(elevation.min())
    extent = max(float(np.ptp(x)), float(np.ptp(y)))
    mirrored = top < 0.0 < lowest and abs(-top - float(np.median(elevation))) < -0.5 * top + float(np.ptp(elevation))
    if lowest - top <= (0.0 if mirrored else _FAR_ABOVE) or (not mirrored and lowest - top <= 0.25 * extent):
        return []
    sign = "; with the other sign it would be at theirs" if mirrored else ""
    return [Finding("error" if mirrored else "warning", "far-above-mesh", f"all stations are {lowest - top:.4g} m or more above the top "
                    f"of the mesh at elevation {top:g}{sign}", "check the sign and the unit of the top of the mesh: elevations count upwards")]


def outside_mesh(x: Reals, y: Reals, mesh: Mesh) -> Mask:
    """Stations that are not above or below cells of the mesh."""
    return np.asarray((x < mesh.x_nodes[0]) | (x > mesh.x_nodes[-1]) | (y < mesh.y_nodes[0]) | (y > mesh.y_nodes[-1]),
                      dtype=np.bool_)


def check_terrain(x: Reals, y: Reals, elevation: Reals, surface: Callable[[Reals, Reals], Reals],
                  names: Sequence[str]) -> list[Finding]:
    """Stations in the ground, or far above it. Those of vertical holes may be in the ground."""
    height = elevation - surface(x, y)
    buried, far = height < -_IN_GROUND, height > _FAR_ABOVE
    findings = []
    for hole in vertical_holes(x, y, elevation):
        buried[hole.stations] = False
        depth = -float(height[hole.stations[0]])
        if hole.top < 0.0 and depth > hole.top - hole.bottom:
            findings.append(Finding(
                "warning", "hole-depths", f"the highest station of the hole at x {hole.x:.8g}, y {hole.y:.8g} is {depth:.4g} m below "
                f"the terrain, at elevation {hole.top:g}; depths may stand in place of elevations",
                "subtract depths from the elevation of the collar", (names[int(hole.stations[0])],)))
    if buried.any():
        findings.append(Finding(
            "warning", "below-ground", f"{count_text(np.count_nonzero(buried), 'station')} below the terrain, the deepest by "
            f"{-height.min():.4g} m", "check elevations and terrain; voxlith-tools obs --height 0 puts stations of the surface on the terrain",
            named(names, buried)))
    if far.any() and not (far.all() and float(np.ptp(height)) < _FAR_ABOVE):
        findings.append(Finding("warning", "far-above-ground", f"{count_text(np.count_nonzero(far), 'station')} more than "
                                f"{_FAR_ABOVE:g} m above the terrain, the highest by {height.max():.4g} m",
                                "check the unit of the elevations and that of the terrain", named(names, far)))
    return findings


def check_top(x: Reals, y: Reals, mesh: Mesh, surface: Callable[[Reals, Reals], Reals]) -> list[Finding]:
    """Ground between the stations that is above the top of the mesh, by more than the half cell that a slope may hide.

    A top that is everywhere far below or far above the ground is an error.
    """
    columns = np.meshgrid(*(centres[(centres >= places.min()) & (centres <= places.max())]
                            for centres, places in ((mesh.x_centres, x), (mesh.y_centres, y))))
    height = surface(*columns) - mesh.z_nodes[0]
    above = height > 0.5 * mesh.z_widths[0]
    if height.size and float(height.max()) < -0.5 * float(mesh.z_widths.sum()):
        return [Finding("error", "ground-below-mesh", f"the ground between the stations is {-height.max():.4g} m or more below the top of "
                        f"the mesh at elevation {mesh.z_nodes[0]:g}; more than half of the layers would be inactive", _TOP)]
    if above.all() and height.size and float(height.min()) > 2.0 * float(mesh.z_widths[0]):
        return [Finding("error", "ground-above-mesh", f"the ground is {height.min():.4g} to {height.max():.4g} m above the top of the "
                        f"mesh at elevation {mesh.z_nodes[0]:g} in all columns between the stations; the model lacks all of it", _TOP)]
    if not above.any():
        return []
    return [Finding("warning", "ground-above-mesh", f"the terrain is above the top of the mesh in {np.count_nonzero(above)} of "
                    f"{above.size} columns between the stations, by up to {height.max():.4g} m; the model lacks that ground",
                    "give the terrain to voxlith-tools mesh, which puts the top above it")]


def check_sensitivities(x: Reals, y: Reals, elevation: Reals, header: MtxHeader, path: str,
                        names: Sequence[str]) -> list[Finding]:
    """The stations must be those of the sensitivity file, in the same order."""
    if len(x) != header.n_data:
        return [Finding("error", "station-order", f"{len(x)} stations, but {path} holds rows for {header.n_data}",
                        "compute the sensitivities from this data file")]
    if header.stations is None:
        return []
    places = np.column_stack([x, y, elevation])
    slack = 0.1 * min(float(np.abs(np.diff(nodes)).min()) for nodes in (header.x_nodes, header.y_nodes, header.z_nodes))
    apart = ~(np.abs(places - header.stations) <= slack).all(axis=1)
    if not apart.any():
        return []
    step = max(slack, 1.0e-6)
    same_places = np.array_equal(_sorted(places, step), _sorted(header.stations, step))
    if same_places:
        return [Finding("error", "station-order", f"the stations are those of {path} in another order, "
                        f"{np.count_nonzero(apart)} of {len(x)} at another place in the list",
                        "compute the sensitivities from this data file", named(names, apart))]
    return [Finding("error", "station-order", f"{np.count_nonzero(apart)} of {len(x)} stations are not those of {path}",
                    "compute the sensitivities from this data file", named(names, apart))]


def _sorted(places: Reals, step: float) -> Reals:
    rounded = np.rint(places / step)
    return np.asarray(rounded[np.lexsort(rounded.T)], dtype=np.float64)
