"""``voxlith-tools mesh``: a padded mesh below the stations of a survey."""

from __future__ import annotations

import argparse
from collections.abc import Sequence
from dataclasses import dataclass, replace

import numpy as np
import numpy.typing as npt

from ..amounts import bytes_text, count_text, duration_text
from ..checks.against import check_terrain
from ..checks.findings import listed
from ..checks.inactive import check_ground
from ..errors import FileError, UsageError
from ..io.numbers import number_text, parse_real
from ..io.obs_file import read_obs_file
from ..io.text_lines import words_of
from ..layers import plan_layers
from ..mesh import Mesh
from ..side_file import SideInfo, read_side_file, write_side_file
from ..mesh_plan import Extent, MeshPlan, Padding, PlannedMesh, far_station, plain_coordinate, plan_mesh
from ..survey_table import stations_of_table
from ..terrain import Terrain
from ..terrain_input import read_terrain, terrain_step
from .output import check_output, say, warn
from .parser import Parser, integer_within, number_from, number_list
from .placing import refuse_degrees
from .station_names import kept_names
from .station_options import add_csv_options, add_station_options, add_terrain_options, read_table, station_columns

Reals = npt.NDArray[np.float64]
PROGRAM = "voxlith-tools"
_FEWEST_CELLS = 5  # of the core along its longer side

_EXAMPLES = """\
Examples:
  voxlith-tools mesh --stations gz.obs --cell 50 --depth 800 --out mesh.msh
  voxlith-tools mesh --csv survey.csv --x easting --y northing --z elevation --cell 100,100,50 --depth 2000 \\
      --layer-factor 1.05 --padding-factor 1.4 --padding-distance 5000 --out mesh.msh
  voxlith-tools mesh --extent 0,1600,0,1600 --top 0 --cell 50 --depth 800 --padding-cells 0 --out mesh.msh"""


@dataclass(frozen=True)
class _Stations:
    """Stations of a survey, and the line of each in its file."""

    x: Reals
    y: Reals
    elevation: Reals
    path: str
    lines: npt.NDArray[np.int64]


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} mesh", "Write a padded mesh below the stations of a survey", _EXAMPLES)
    add = parser.add_argument
    add("--stations", metavar="FILE", help="Observed data file; the core lies below its stations")
    add("--csv", metavar="FILE", help="CSV of the stations, in place of --stations")
    add("--extent", metavar="W,E,S,N", help="west,east,south,north of the core, in place of --stations")
    add_station_options(parser)
    add_csv_options(parser)
    add("--cell", metavar="METRES", required=True, help="Cell size of the core: one for all axes, or w,h, or dx,dy,dz")
    add("--depth", metavar="METRES", type=number_from(0.0, above=True), required=True,
        help="Depth of the core below the top; with --topography, below the lowest ground")
    add("--top", metavar="METRES|{lowest,highest}",
        help="Elevation of the top of the mesh, or lowest or highest for that of the lowest or highest station "
             "(default: lowest; with --topography the whole metre above the highest ground)")
    add_terrain_options(parser, ": the top of the mesh lies above it, and --depth counts from the lowest ground")
    add("--margin", metavar="METRES", type=number_from(0.0),
        help="Width of the core beyond the outermost stations (default: half a cell; none with --extent)")
    add("--layer-factor", metavar="FACTOR", type=number_from(1.0), default=1.0,
        help="Ratio of the thicknesses of a core layer and the one above (default: 1)")
    add("--padding-factor", metavar="FACTOR", type=number_from(1.0), default=1.3,
        help="Ratio of the widths of a padding cell and its inner neighbour (default: 1.3)")
    add("--padding-distance", metavar="METRES", type=number_from(0.0),
        help="Least width of the padding on each side, and its least depth (default: the depth)")
    add("--padding-cells", metavar="COUNT", type=integer_within(0, 2**31 - 1),
        help="Padding cells on each side and below, in place of a distance")
    add("--padding-below", metavar="METRES", type=number_from(0.0),
        help="Depth of the padding below, in place of that of --padding-distance")
    add("--out", metavar="FILE", required=True, help="UBC mesh file to write")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    parser = make_parser()
    options = parser.parse(arguments)
    parser.exclusive(options, "padding-distance", "padding-cells")
    sources = [name for name in ("stations", "csv", "extent") if getattr(options, name)]
    if len(sources) != 1:
        raise UsageError(f"expected one of --stations, --csv and --extent, found {len(sources)}")
    columns = station_columns(parser, options)
    check_output(options.out, {"--stations": options.stations, "--csv": options.csv, "--topography": options.topography})
    cell = _cell(options.cell)
    stations = None
    if options.csv:
        table = read_table(options.csv, options)
        x, y, elevation = stations_of_table(table, columns)
        if not len(table):
            raise FileError(options.csv, "expected a station, found the end of the file", line=table.end)
        stations = _Stations(x, y, elevation, options.csv, table.lines)
    elif options.stations:
        stations = _read_stations(options.stations)
    if stations is not None:
        refuse_degrees(stations.x, stations.y)
    side = read_side_file(options.stations).coordinates if options.stations else SideInfo()
    plan = _plan(options, cell, stations)
    ground = None
    if options.topography:
        ground = _ground(options, plan, side, stations)
        plan = _below_ground(options, plan, ground)
    planned = _planned(plan, stations)
    planned.mesh.write(options.out)
    if options.stations:
        write_side_file(options.out, side)
    _report(planned, stations, ground)
    return 0


def _read_stations(path: str) -> _Stations:
    found = read_obs_file(path, strict=False, lined=None, any_count=True)
    places = np.array([found.x, found.y, found.elevation])
    bad = np.flatnonzero(~np.isfinite(places).all(axis=0))
    first = 4 if found.header else 2
    if len(bad):
        raise FileError(path, "expected x, y and elevation of a station", line=first + int(bad[0]))
    if found.count != len(found.x):
        warn(PROGRAM, f"{path}: expected {found.count} stations, found {len(found.x)}; the mesh lies below those")
    return _Stations(found.x, found.y, found.elevation, path, np.arange(first, first + len(found.x)))


def _cell(text: str) -> tuple[float, float, float]:
    count = len(words_of(text))
    values = number_list("--cell", "w, or w,h, or dx,dy,dz", text, count if count in (2, 3) else 1)
    if min(values) <= 0.0:
        raise UsageError(f"--cell {text}: expected widths above 0")
    return values[0], values[1 if len(values) == 3 else 0], values[-1]


def _top(text: str, stations: _Stations | None) -> float:
    if text in ("lowest", "highest"):
        if stations is None:
            return 0.0
        return float(stations.elevation.min() if text == "lowest" else stations.elevation.max())
    top = parse_real(text)
    if top is None or not np.isfinite(top):
        raise UsageError(f"--top {text}: expected an elevation, lowest or highest")
    return top


def _extents(options: argparse.Namespace, cell: tuple[float, float, float],
             stations: _Stations | None) -> tuple[Extent, Extent]:
    """What the core covers to the east and to the north."""
    if stations is None:
        west, east, south, north = number_list("--extent", "west,east,south,north", options.extent, 4)
        if west > east or south > north:
            raise UsageError(f"--extent {options.extent}: expected west,east,south,north with west below east and south "
                             "below north")
        margins = (options.margin or 0.0, options.margin or 0.0)
    else:
        west, east, south, north = (float(limit) for values in (stations.x, stations.y)
                                    for limit in (values.min(), values.max()))
        margins = (0.5 * cell[0], 0.5 * cell[1]) if options.margin is None else (options.margin, options.margin)
    return Extent(west - margins[0], east + margins[0]), Extent(south - margins[1], north + margins[1])


def _plan(options: argparse.Namespace, cell: tuple[float, float, float], stations: _Stations | None) -> MeshPlan:
    east, north = _extents(options, cell, stations)
    distance = options.depth if options.padding_distance is None else options.padding_distance
    sides = Padding(options.padding_factor, distance, options.padding_cells)
    below = sides if options.padding_below is None else Padding(options.padding_factor, options.padding_below)
    return MeshPlan(east, north, _top(options.top or "lowest", stations), options.depth, cell, options.layer_factor, sides, below)


def _planned(plan: MeshPlan, stations: _Stations | None) -> PlannedMesh:
    """The mesh. A station far from all others is named, for its coordinates may be wrong."""
    far = None if stations is None else far_station(stations.x, stations.y)
    text = ""
    if far is not None and stations is not None:
        text = (f"{stations.path}, line {stations.lines[far]}: the station at x {number_text(float(stations.x[far]))}, y "
                f"{number_text(float(stations.y[far]))} is far from all others")
    try:
        planned = plan_mesh(plan)
    except UsageError as error:
        if text:
            raise UsageError(f"{error}; {text}") from error
        raise
    if text:
        warn(PROGRAM, f"{text}; a wrong coordinate makes the mesh too large")
    return planned


@dataclass(frozen=True)
class _Ground:
    """Elevations of the ground: the highest of the mesh, the lowest of its core, and the surface."""

    highest: float
    lowest: float
    surface: Terrain


def _ground(options: argparse.Namespace, plan: MeshPlan, side: SideInfo, stations: _Stations | None) -> _Ground:
    """The ground below the mesh of a plan. Raises VoxlithError."""
    planned = plan_mesh(plan)
    mesh = planned.mesh
    corners = np.array([(x, y) for x in (mesh.x_nodes[0], mesh.x_nodes[-1]) for y in (mesh.y_nodes[0], mesh.y_nodes[-1])])
    step = min(plan.cell[0], plan.cell[1])
    if stations is not None:
        step = min(step, terrain_step(stations.x, stations.y))
    surface, warning = read_terrain(options.topography, corners, step, crs=side.crs,
                                    terrain_crs=options.terrain_crs or "", shift=side.shift)
    if warning:
        warn(PROGRAM, warning)
    heights = surface(*np.meshgrid(mesh.x_centres, mesh.y_centres, indexing="ij"))
    core = ((mesh.x_centres > planned.core_east.least) & (mesh.x_centres < planned.core_east.most),
            (mesh.y_centres > planned.core_north.least) & (mesh.y_centres < planned.core_north.most))
    return _Ground(float(heights.max()), float(heights[np.ix_(*core)].min()), surface)


def _below_ground(options: argparse.Namespace, plan: MeshPlan, ground: _Ground) -> MeshPlan:
    """The plan with its top above the ground, unless the top is given, and its depth from the lowest ground."""
    top = plan.top if options.top is not None else float(np.ceil(ground.highest))
    if top < ground.highest:
        warn(PROGRAM, f"--top {options.top}: the ground rises to {ground.highest:.6g}; what lies above the top of the mesh is "
             "not modelled")
    return replace(plan, top=top, depth=options.depth + max(top - ground.lowest, 0.0))


def _report(planned: PlannedMesh, stations: _Stations | None, ground: _Ground | None = None) -> None:
    mesh = planned.mesh
    if stations is not None:
        say(f"stations:       {len(stations.x)}")
    say(f"cells:          {mesh.nx} x {mesh.ny} x {mesh.nz} = {mesh.n_cells}")
    say(f"core cells:     {' x '.join(map(str, planned.core_cells))}")
    _report_axis("east:", mesh.x_nodes, planned.core_east)
    _report_axis("north:", mesh.y_nodes, planned.core_north)
    _report_axis("elevation:", mesh.z_nodes[::-1], planned.core_elevation)
    plan = plan_layers(mesh)
    say(f"row of the mtx: {plan.npx} x {plan.npy} x {plan.npz} = {plan.npx * plan.npy * plan.npz} values before "
        "compression (powers of two)")
    for cells, padded, axis in ((mesh.nx, plan.npx, "to the east"), (mesh.ny, plan.npy, "to the north"),
                                (mesh.nz, plan.npz, "downwards")):
        _report_padding(cells, padded, axis)
    east, north = planned.core_cells[:2]
    if stations is not None and max(east, north) < _FEWEST_CELLS and len(stations.x) > 4 * east * north:
        warn(PROGRAM, f"--cell: a core of {east} x {north} columns below {len(stations.x)} stations shows no body; use cells of about the "
             "distance of the stations")
    if stations is not None:
        _report_work(len(stations.x), mesh.n_cells, plan.npx * plan.npy * plan.npz)
    if ground is not None:
        say(f"ground:         {ground.lowest:.6g} in the core at least, {ground.highest:.6g} at most")
        if stations is not None:
            _warn_of_buried(stations, ground.surface)
        return
    below = 0 if stations is None else int(np.count_nonzero(stations.elevation < mesh.z_nodes[0]))
    if below:
        warn(PROGRAM, f"{count_text(below, 'station')} below the top of the mesh; give the terrain with --topography")
    elif stations is not None:
        _warn_of_relief(stations, mesh)


def _warn_of_relief(stations: _Stations, mesh: Mesh) -> None:
    places = np.column_stack([stations.x, stations.y, stations.elevation])
    for finding in check_ground(places, mesh, np.zeros(mesh.n_cells, dtype=np.bool_), [""] * len(places)):
        if finding.name == "relief":
            warn(PROGRAM, f"{stations.path}: {finding.text}; {finding.remedy}")


def _warn_of_buried(stations: _Stations, surface: Terrain) -> None:
    names = kept_names(read_side_file(stations.path), len(stations.x)) or [f"line {line}" for line in stations.lines.tolist()]
    for finding in check_terrain(stations.x, stations.y, stations.elevation, surface, names):
        warn(PROGRAM, f"{stations.path}: {finding.text} ({listed(finding.stations)}); {finding.remedy}")


def _report_work(rows: int, cells: int, padded: int) -> None:
    """What ``mtx`` will take; the same rates as in the program that computes."""
    seconds = max(1, round(rows * (5.0e-9 * cells + 1.0e-8 * padded)))
    say(f"mtx of it:      {rows} rows, {bytes_text(8.0 * rows * padded)} before compression, about "
        f"{duration_text(seconds)} on one core")


def _report_axis(label: str, nodes: Reals, core: Extent) -> None:
    first, last, least, most = (number_text(plain_coordinate(float(value) + 0.0))
                                for value in (nodes[0], nodes[-1], core.least, core.most))
    say(f"{label:<15} {first} to {last} (core {least} to {most})")


def _report_padding(cells: int, padded: int, axis: str) -> None:
    """Rows of a little more than a power of two cells are nearly half padding."""
    half = padded // 2
    if padded > 4 and padded != cells and cells <= 1.15 * half:
        say(f"                {cells} cells {axis} are padded to {padded}; with {half} the rows would be half as long")
