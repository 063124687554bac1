"""Checks of a survey against a mesh, a sensitivity file, a terrain and the Earth's field."""

from __future__ import annotations

from collections.abc import Callable, Sequence

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..codes import data_type_name, has_magnetic_layout
from ..holes import vertical_holes
from ..igrf import MainField
from ..io.mtx_header import MtxHeader
from ..mesh import Mesh
from ..side_file import SideInfo, other_coordinates
from ..survey import InducingField, Survey
from .findings import Finding, named

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

_SUSPECT_ANGLE, _WRONG_ANGLE = 3.0, 15.0  # degrees between field directions
_SUSPECT_STRENGTH = 0.05
_NOTABLE_FIELD, _OTHER_FIELD = 0.25, 3.0  # degrees, and percent of the strength, between data and sensitivities
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
    below = (elevation < mesh.z_nodes[0]) & ~beside
    if below.any() and not has_terrain:
        findings.append(Finding(
            "error", "below-mesh-top", f"{count_text(np.count_nonzero(below), 'station')} below the top of the mesh at elevation "
            f"{mesh.z_nodes[0]:g}", "give the terrain with --topography, or lower the top of the mesh", named(names, below)))
    return findings


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
    """Ground between the stations that is above the top of the mesh, by more than the half cell that a slope may hide."""
    columns = np.meshgrid(*(centres[(centres >= places.min()) & (centres <= places.max())]
                            for centres, places in ((mesh.x_centres, x), (mesh.y_centres, y))))
    height = surface(*columns) - mesh.z_nodes[0]
    above = height > 0.5 * mesh.z_widths[0]
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


def check_type_and_field(survey: Survey, header: MtxHeader, path: str) -> list[Finding]:
    """Data and sensitivities must both be magnetic or both not, and of one inducing field.

    Of several components the first file alone says which kind the data file is, so nothing is said of their type.
    """
    code = header.data_type
    magnetic = has_magnetic_layout(code)
    if header.form == "record":  # neither type nor field is in the file
        return []
    if survey.n_components == 1 and has_magnetic_layout(survey.codes[0]) != magnetic:
        lines = "the lines of an inducing field" if survey.field else "no lines of an inducing field"
        return [Finding("error", "data-type", f"the data are {survey.names[0]} ({lines}), but {path} is of {data_type_name(code)}",
                        f"compute the sensitivities with mtx --type {survey.names[0].lower()}, or give the data of {path}")]
    strength, inclination, declination = header.inducing
    if survey.field is None or not magnetic or not strength > 0.0:
        return []
    angle = _angle(survey.field, inclination, declination)
    percent = 100.0 * abs(survey.field.strength / strength - 1.0)
    if max(angle, percent) <= _NOTABLE_FIELD:
        return []
    return [Finding("error" if max(angle, percent) > _OTHER_FIELD else "warning", "inducing-field",
                    f"the inducing field of the data ({_field_text(survey.field)}) and that of {path} "
                    f"({_field_text(InducingField(inclination, declination, strength))}) are {angle:.3g} degrees and {percent:.3g} % "
                    "apart", "compute the sensitivities from this data file, without --field")]


def check_field(field: InducingField, expected: MainField, date: str) -> list[Finding]:
    """The inducing field of a survey against the Earth's field at its place and date."""
    angle = _angle(field, expected.inclination, expected.declination)
    text = (f"inclination {expected.inclination:.1f}, declination {expected.declination:.1f}, {expected.strength:.0f} nT by "
            f"IGRF-14 on {date}")
    found = _field_text(field)
    remedy = "use --date with --crs in place of --field; data reduced to the pole keep inclination 90"
    if angle > _SUSPECT_ANGLE:
        return [Finding("error" if angle > _WRONG_ANGLE else "warning", "field-direction",
                        f"the field of the data ({found}) is {angle:.0f} degrees from that of the place ({text})", remedy)]
    if abs(field.strength / expected.strength - 1.0) > _SUSPECT_STRENGTH:
        return [Finding("warning", "field-strength", f"the field of the data ({found}) has another strength than that of the "
                        f"place ({text})", remedy)]
    return []


def _field_text(field: InducingField) -> str:
    return f"inclination {field.inclination:.6g}, declination {field.declination:.6g}, {field.strength:.7g} nT"


def _angle(field: InducingField, inclination: float, declination: float) -> float:
    cosine = _direction(field.inclination, field.declination) @ _direction(inclination, declination)
    return float(np.degrees(np.arccos(np.clip(cosine, -1.0, 1.0))))


def _direction(inclination: float, declination: float) -> Reals:
    incl, decl = np.radians([inclination, declination])
    return np.array([np.cos(incl) * np.sin(decl), np.cos(incl) * np.cos(decl), np.sin(incl)])


def _sorted(places: Reals, step: float) -> Reals:
    rounded = np.rint(places / step)
    return np.asarray(rounded[np.lexsort(rounded.T)], dtype=np.float64)
