"""``voxlith-tools bodies``: position, depth and excess mass of the bodies of a model."""

from __future__ import annotations

import argparse
import math
import os
from collections.abc import Sequence
from dataclasses import dataclass, replace

import numpy as np
import numpy.typing as npt

from ..amounts import count_text
from ..bodies import (OTHER_THRESHOLDS, THRESHOLD, Body, Excess, body_remark, distribution, doubts, excess_above, excess_unit,
                      find_bodies, top_of, weaker_sign_text)
from ..checks import Finding
from ..checks.findings import sentence
from ..checks.results import model_norm, residual_clusters
from ..codes import unit_text
from ..errors import FileError, PathLike
from ..export import Placement
from ..io.bounds_file import CellBounds
from ..io.output import write_bytes
from ..memory import require_memory
from ..mesh import Mesh
from ..model import Model
from ..run import Run
from ..side_file import SideInfo, first_coordinates, write_side_file
from ..stacked_run import bounded_models, require_run
from ..terrain_input import terrain_over
from .output import check_output, say, warn
from .parser import Parser, integer_within, number_from
from .station_options import add_terrain_options
from .vtr import split_name

PROGRAM = "voxlith-tools"
_MOST_SHOWN = 10
_BYTES_PER_CELL = 80.0
_QUANTITIES = {".den": ("density contrast", "g/cm3"), ".rho": ("density contrast", "g/cm3"), ".sus": ("susceptibility", "SI"),
               ".kap": ("susceptibility", "SI")}
_COLUMNS = ("model,body,x,y,elevation,depth,x_min,x_max,y_min,y_max,elevation_min,elevation_max,cells,volume_m3,peak,unit,excess,"
            "excess_unit,remark")

_EXAMPLES = """\
A body is a group of cells, connected by their faces, with at least a given fraction of the peak; each sign has its own
peak, and a weaker sign of little excess has no body. Position is the centre weighted by value and volume. A smooth model spreads a body, so its excess mass depends on the
threshold. The net excess mass of the core, below the survey, does not.

Examples:
  voxlith-tools bodies run1
  voxlith-tools bodies run1 --threshold 0.2 --out bodies.csv
  voxlith-tools bodies --mesh mesh.msh --model voxlith.den --topography dem.tif"""


@dataclass(frozen=True)
class _Source:
    """Models with the bounds of their cells where they are known, at their place, and the files that they come from; of a
    run its model norm, and where its residuals cluster."""

    models: list[Model]
    bounds: list[CellBounds | None]
    placement: Placement
    inputs: dict[str, str]
    norm: str = ""
    residuals: Sequence[Finding] = ()


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} bodies", "Position, depth and excess mass of the bodies of a model", _EXAMPLES)
    add = parser.add_argument
    add("run", metavar="FOLDER", nargs="?", help="Folder of the run; or give --mesh and --model")
    add("--control", metavar="FILE", default="voxlith.inp", help="Control file in the folder (default: voxlith.inp)")
    add("--iteration", metavar="N", type=integer_within(0, 99999), help="The models stored at iteration N")
    add("--mesh", metavar="FILE", help="UBC tensor mesh file, for models without a run")
    add("--model", metavar="[NAME=]FILE", nargs="+", action="extend",
        help="Model file, or NAME=FILE; densities end in .den or .rho, susceptibilities in .sus or .kap")
    add("--threshold", metavar="FRACTION", type=number_from(0.0, above=True), default=THRESHOLD,
        help=f"Cells with at least this fraction of the peak belong to a body (default: {THRESHOLD:g})")
    add_terrain_options(parser, ", for depths below the ground (default: the top of the active cells)")
    add("--out", metavar="FILE", help="CSV file of the bodies to write")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    parser = make_parser()
    options = parser.parse(arguments)
    if (options.run is None) == (options.mesh is None) or (options.mesh is None) != (not options.model):
        parser.error("expected either a run, or --mesh and --model")
    if options.iteration is not None and options.run is None:
        parser.error("--iteration: expected together with a run")
    if options.threshold > 1.0:
        parser.error(f"--threshold {options.threshold:g}: expected a number above 0 and at most 1")
    source = _of_files(options) if options.run is None else _of_run(Run(options.run, options.control), options.iteration)
    if options.out:
        check_output(options.out, {**source.inputs, "--topography": options.topography})
    placed = [source.placement.model(model) for model in source.models]
    grounds = _grounds(options, placed, source.placement.crs)
    bodies = [find_bodies(model, options.threshold, ground) for model, ground in zip(placed, grounds)]
    if options.out:
        rows = [row for model, bounds, found in zip(placed, source.bounds, bodies) for row in _rows(model, found, bounds)]
        write_bytes(options.out, ("\n".join([_COLUMNS, *rows]) + "\n").encode())
        write_side_file(options.out, SideInfo(source.placement.crs))
    for model, bounds, found in zip(placed, source.bounds, bodies):
        _report(model, found, bounds, options, source.norm)
    for finding in source.residuals:
        warn(PROGRAM, sentence(finding))
    return 0


def _of_run(work: Run, iteration: int | None) -> _Source:
    require_run(work, "give that of the stacked run, with its --control")
    if work.results_of_other:
        warn(PROGRAM, work.results_of_other)
    values = work.control.values
    cells = work.mesh.n_cells
    require_memory(_BYTES_PER_CELL * cells * values.model_count, f"{work.folder}: models of {cells} cells")
    files = {"the data file": values.data_file, **{f"sensitivity file {number}": name for number, name in enumerate(values.mtx_files, 1)}}
    side = first_coordinates(map(work.path, files.values()))
    inputs = {"the control file": os.fspath(work.path(work.control_name)), **{name: os.fspath(work.path(file)) for name, file in files.items()}}
    models, bounds = bounded_models(work, iteration)
    return _Source(models, bounds, Placement(side.crs, side.shift), inputs, model_norm(work),
                   _clusters(work) if iteration is None else ())


def _clusters(work: Run) -> list[Finding]:
    """Clusters of residuals, where the run has written predictions."""
    if not work.path("voxlith.pre").is_file():
        return []
    try:
        return residual_clusters(work)
    except FileError as error:
        warn(PROGRAM, f"the residuals are not looked at: {error}")
        return []


def _of_files(options: argparse.Namespace) -> _Source:
    mesh = Mesh.read(options.mesh)
    require_memory(_BYTES_PER_CELL * mesh.n_cells * len(options.model), f"{options.mesh}: a mesh of {mesh.n_cells} cells")
    named = [split_name(text) for text in options.model]
    side = first_coordinates([options.mesh, *(path for _, path in named)])
    models = [Model.read(path, mesh, name, _QUANTITIES.get(os.path.splitext(path)[1].lower(), ("", ""))[1]) for name, path in named]
    inputs = {"--mesh": options.mesh, **{f"--model {path}": path for _, path in named}}
    return _Source(models, [None] * len(models), Placement(side.crs, side.shift), inputs)


def _grounds(options: argparse.Namespace, models: Sequence[Model], crs: str) -> list[npt.NDArray[np.float64]]:
    """Elevation of the ground above the columns of each model."""
    if not options.topography:
        return [top_of(model) for model in models]
    mesh = models[0].mesh
    surface, warning = terrain_over(options.topography, mesh, SideInfo(crs), options.terrain_crs or "")
    if warning:
        warn(PROGRAM, warning)
    return [surface(*np.meshgrid(mesh.x_centres, mesh.y_centres, indexing="ij"))] * len(models)


def _rows(model: Model, bodies: Sequence[Body], bounds: CellBounds | None) -> list[str]:
    """Lines of the CSV file."""
    shown = excess_unit(model)
    name = f'"{model.name}"' if "," in model.name else model.name
    rows = []
    for number, one in enumerate(bodies, 1):
        places = [*one.centre, one.depth, *one.x, *one.y, *one.elevation]
        rows.append(",".join([name, str(number), *("" if math.isnan(value) else f"{value:.1f}" for value in places), str(len(one.cells)),
                              f"{one.volume:.6g}", f"{one.peak:.6g}", model.unit, f"{one.excess * shown.factor:.6g}", shown.unit,
                              body_remark(model, one, bounds)]))
    return rows


def _report(model: Model, bodies: Sequence[Body], bounds: CellBounds | None, options: argparse.Namespace,
            norm: str) -> None:
    shown = excess_unit(model)
    count = count_text(len(bodies), "body", "bodies")
    say(f"{model.name}{f' ({unit_text(model.unit)})' if model.unit else ''}: {count}, connected cells of {options.threshold:g} of the peak or more")
    if not bodies:
        return
    text = weaker_sign_text(model, options.threshold)
    if text:
        say(text)
    _report_table(model, bodies[:_MOST_SHOWN], bounds)
    rest = bodies[_MOST_SHOWN:]
    if rest:
        say(f"and {len(rest)} more, {sum(abs(one.excess) for one in rest) * shown.factor:.3g} {shown.unit} together"
            + ("" if options.out else "; --out lists them"))
    _report_sums(model, bounds, norm)


def _report_table(model: Model, bodies: Sequence[Body], bounds: CellBounds | None) -> None:
    shown = excess_unit(model)
    table = [["body", "x", "y", "elevation", "depth", "extent E x N x down, m", "volume 1e6 m3", "peak", f"{shown.name} {shown.unit}", ""]]
    for number, one in enumerate(bodies, 1):
        sides = " x ".join(f"{high - low:.0f}" for low, high in (one.x, one.y, one.elevation))
        table.append([str(number), *(f"{value:.0f}" for value in one.centre), "-" if math.isnan(one.depth) else f"{one.depth:.0f}", sides,
                      f"{one.volume * 1.0e-6:.4g}", f"{one.peak:.4g}", f"{one.excess * shown.factor:.4g}", body_remark(model, one, bounds)])
    widths = [max(map(len, column)) for column in zip(*table)]
    for row in table:
        words = [text.rjust(width) for text, width in zip(row[:-1], widths)]
        say("  ".join([*words, row[-1]]).rstrip())


def _report_sums(model: Model, bounds: CellBounds | None, norm: str) -> None:
    shown, found = excess_unit(model), distribution(model, bounds)

    def line(label: str, excess: Excess) -> None:
        scaled = Excess(excess.positive * shown.factor, excess.negative * shown.factor)
        say(f"{label + ':':<24} net {scaled.net:.4g}, above 0 {scaled.positive:.4g}, below 0 {scaled.negative:.4g}")

    say(f"{shown.name}, {shown.unit} (that of a body depends on the threshold, the net of the core does not)")
    line("core of the mesh", found.core)
    for share, excess in zip(OTHER_THRESHOLDS, excess_above(model)):
        line(f"of it above {share:g} peak", excess)
    if not math.isnan(found.in_padding):
        line("padding columns", found.padding)
    parts = [f"{100.0 * value:.0f} % {where}" for value, where in (
        (found.in_padding, "in padding columns"), (found.in_bottom, "in the bottom layer"), (found.at_bounds, "at bounds"))
             if not math.isnan(value)]
    if parts:
        say(f"{'absolute values:':<24} {', '.join(parts)}")
    for text in doubts(found, norm):
        warn(PROGRAM, f"{model.name}: {text}")
