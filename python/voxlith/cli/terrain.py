"""``voxlith-tools terrain``: points of the ground below a mesh or a survey from a raster, a table or UBC points."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from ..crs import require_metres
from ..errors import UsageError
from ..io.numbers import number_text
from ..io.obs_file import read_obs_file
from ..io.topography_file import write_topography_file
from ..mesh import Mesh
from ..side_file import SideInfo, read_side_file, write_side_file
from ..terrain_input import read_terrain
from .output import check_output, say, warn
from .parser import Parser, number_from

PROGRAM = "voxlith-tools"
Reals = npt.NDArray[np.float64]

_EXAMPLES = """\
GDAL reads the rasters. A raster is converted to the reference system of the survey, resampled and cropped. Fewer than three
points, and points along one line, are refused.

Examples:
  voxlith-tools terrain dem.tif --mesh mesh.msh --out topo.txt
  voxlith-tools terrain heights.csv --terrain-crs EPSG:4326 --stations gz.obs --out topo.txt
The points go to --topography of mtx, obs and check, which also take the raster or table itself. The reference system of the
survey is that of the side file of --mesh or --stations, or --to."""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} terrain", "Write points of the ground surface from a raster or a table", _EXAMPLES)
    add = parser.add_argument
    add("file", metavar="FILE", help="GeoTIFF, ESRI ASCII, Surfer or NetCDF raster; CSV with column names; or UBC topography file")
    add("--mesh", metavar="FILE", help="Mesh file: the points cover its columns")
    add("--stations", metavar="FILE", help="Observed data file: the points cover its stations, in place of --mesh")
    add("--margin", metavar="METRES", type=number_from(0.0), default=0.0, help="Width of the area beyond mesh or stations (default: 0)")
    add("--step", metavar="METRES", type=number_from(0.0, above=True),
        help="Distance of the points of a raster (default: half the smallest cell; with --stations a hundredth of the survey)")
    add("--terrain-crs", metavar="CRS", help="Reference system of the terrain where its file names none, such as EPSG:4326")
    add("--to", metavar="CRS", help="Reference system of the survey (default: that of its side file)")
    add("--out", metavar="FILE", required=True, help="UBC topography file to write")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    if bool(options.mesh) == bool(options.stations):
        raise UsageError("expected one of --mesh and --stations")
    check_output(options.out, {"the terrain": options.file, "--mesh": options.mesh, "--stations": options.stations})
    side = survey_side(options.mesh or options.stations, options.to)
    places, step = _places(options.mesh, options.stations)
    edge = np.array([options.margin, options.margin])
    places = np.vstack([places, places.min(axis=0) - edge, places.max(axis=0) + edge])
    surface, warning = read_terrain(options.file, places, options.step or step, crs=side.crs,
                                    terrain_crs=options.terrain_crs or "", shift=side.shift)
    surface.write(options.out)
    write_side_file(options.out, SideInfo(side.crs, side.shift))
    say(f"{options.out}: {surface}")
    say(f"reference system: {side.crs or 'not known'}")
    if warning:
        warn(PROGRAM, warning)
    return 0


def survey_side(path: str, to: str | None) -> SideInfo:
    """What is known of the coordinates of a survey: its side file, or the option --to."""
    side = read_side_file(path)
    if to:
        require_metres(to)
        if side.crs and side.crs != to:
            raise UsageError(f"--to {to}: {path} is in {side.crs}")
        return SideInfo(to, side.shift, side.history)
    return side


def _places(mesh: str | None, stations: str | None) -> tuple[Reals, float]:
    """Where elevations are needed, and a distance of points that shows them."""
    if mesh:
        found = Mesh.read(mesh)
        x, y = np.meshgrid(found.x_nodes[[0, -1]], found.y_nodes[[0, -1]])
        step = 0.5 * min(float(found.x_widths.min()), float(found.y_widths.min()))
        return np.column_stack([x.ravel(), y.ravel()]), step
    obs = read_obs_file(stations or "", strict=False, lined=None, any_count=True)
    extent = max(float(np.ptp(obs.x)), float(np.ptp(obs.y)))
    return np.column_stack([obs.x, obs.y]), max(extent / 100.0, 1.0)


def describe_shift(shift: tuple[float, float]) -> str:
    """A shift as reports show it."""
    return ",".join(map(number_text, shift))
