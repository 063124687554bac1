"""``voxlith-plot``: pictures of a run, finished or going on."""

from __future__ import annotations

import argparse
import os
import sys
from collections.abc import Iterator, Sequence
from typing import TYPE_CHECKING, Any, Final


from ..errors import FileError, RunError, UsageError, VoxlithError, escaped
from .output import run_program, say, warn
from .parser import Parser, integer_within, number_list

if TYPE_CHECKING:
    from ..io.bodies_file import TrueBody
    from ..mesh import Mesh
    from ..run import Run
    from ..stacked_run import StackedRun
    from ..survey import Direction
    from ..terrain import Terrain
    from ..vectors import VectorModel

PROGRAM: Final = "voxlith-plot"
PICTURES: Final = ("convergence", "data", "sections", "vectors", "stereonet", "zscores")
_FORMATS = ("png", "pdf", "svg")
_CONTROL = "voxlith.inp"

_EXAMPLES = """\
Examples:
  voxlith-plot run1                             all pictures of the run in run1, as PNG in run1/plots
  voxlith-plot run1 --only sections             the sections alone
  voxlith-plot . --format png pdf --out paper   PNG and PDF, in the folder paper
  voxlith-plot run1 --at 500,650,-200           sections through x 500, y 650, elevation -200
  voxlith-plot run1 --at largest                sections through the cell of the largest magnitude
  voxlith-plot run1 --iteration 40              the model stored at iteration 40 (voxlith_iter_040.den)
  voxlith-plot run1 --limits -0.1,0.4           colours of the sections from -0.1 to 0.4

The run may still be active: the last finished iteration is drawn. A picture whose files do not exist yet is left out
with a line on standard error; if --only names it, this is an error. Pictures of data need the control file, the
data file and the sensitivity files of the run.

Exit status: 0 all available pictures are drawn, 1 a file is missing or damaged, 2 wrong arguments."""



def make_parser() -> Parser:
    """The options."""
    parser = Parser(PROGRAM, "Pictures of a run of voxlith, complete or active: convergence, data, sections through the "
                    "model, magnetisation vectors, z-scores.", _EXAMPLES)
    add = parser.add_argument
    add("folder", metavar="FOLDER", help="Folder of the run")
    add("--control", metavar="FILE", help=f"Control file, seen from FOLDER (default: {_CONTROL})")
    add("--out", metavar="FOLDER", help="Folder of the pictures (default: FOLDER/plots)")
    add("--only", nargs="+", choices=PICTURES,
        help="Draw only these pictures (default: all)")
    add("--at", metavar="X,Y,Z|{peak,largest,middle}",
        help="Where the sections intersect: a point, Z its elevation; largest, the cell of the largest magnitude below the "
             "stations; peak, likewise, but with a smaller magnitude below it; or middle, that of the stations' extent "
             "(default: peak)")
    add("--iteration", metavar="NUMBER", type=integer_within(0, 99999), help="Sections of the model stored at iteration N")
    add("--whole-mesh", action="store_true", help="Show padding cells and all depths in the sections")
    add("--true", metavar="FILE",
        help="Outlines of the true bodies, JSON (default: true_bodies.json in FOLDER, if it exists)")
    add("--topography", metavar="FILE", help="Ground surface, drawn on the sections: a raster, a table with x, y and z, or UBC points")
    add("--format", nargs="+", choices=_FORMATS, help="Formats of the pictures (default: png)")
    add("--dpi", metavar="NUMBER", type=integer_within(30, 1200), help="Pixels per inch (default: 110)")
    add("--colormap", metavar="NAME", help="Colour map of Matplotlib for sections and maps (default: by the values)")
    add("--limits", metavar="LOW,HIGH", help="Limits of the colours of the sections (default: by the values)")
    return parser


def main(arguments: Sequence[str] | None = None) -> int:
    """Run the program with these arguments, those of the command line by default; gives the exit status."""
    words = list(sys.argv[1:] if arguments is None else arguments)
    return run_program(PROGRAM, lambda: _run(words))


def _run(words: Sequence[str]) -> int:
    options = make_parser().parse(words)
    options.at = _place(options.at)
    options.limits = _limits(options.limits)
    from ..run import Run
    run = Run(options.folder, options.control or _CONTROL, strict=False)
    for path in (options.true, options.topography, run.path(options.control) if options.control else None):
        if path and not os.path.isfile(path):
            raise VoxlithError(f"{path}: there is no such file")
    from ..plot.style import check_colormap
    check_colormap(options.colormap)
    if run.results_of_other:
        warn(PROGRAM, run.results_of_other)
    return _draw_all(run, options)


def _place(text: str | None) -> Any:
    if text in (None, "peak", "largest", "middle"):
        return text or "peak"
    return tuple(number_list("--at", "X,Y,Z, peak, largest or middle", text or "", 3))


def _limits(text: str | None) -> tuple[float, float] | None:
    if text is None:
        return None
    low, high = number_list("--limits", "LOW,HIGH", text, 2)
    if not low < high:
        raise UsageError(f"--limits {text}: expected two numbers that rise")
    return low, high


def _convergence(run: Run, options: argparse.Namespace) -> Iterator[tuple[str, Any]]:
    from .. import plot
    yield "convergence", plot.convergence(run)


def _zscores(run: Run, options: argparse.Namespace) -> Iterator[tuple[str, Any]]:
    from .. import plot
    from ..stacked_run import StackedRun, is_stacked
    if is_stacked(run):
        for one in StackedRun(run).fits():
            yield f"zscores_{one.name}", plot.zscores(one.fit())
        return
    yield "zscores", plot.zscores(run)


def _data(run: Run, options: argparse.Namespace) -> Iterator[tuple[str, Any]]:
    from .. import plot
    from ..plot.data_view import view_of
    from ..stacked_run import StackedRun, is_stacked
    if is_stacked(run):
        for one in StackedRun(run).fits():
            yield f"data_{one.name}", plot.data(one.fit(), colormap=options.colormap)
        return
    survey = view_of(run).survey
    for component in range(survey.n_components):
        suffix = f"_{component + 1}" if survey.n_components > 1 else ""
        yield f"data{suffix}", plot.data(run, component, colormap=options.colormap)
        if survey.line is not None and survey.time is not None:
            yield f"profiles{suffix}", plot.line_profiles(run, component)


def _surface(run: Run, mesh: Mesh, path: str | None) -> Terrain | None:
    from ..terrain_input import terrain_over
    if not path:
        return None
    surface, warning = terrain_over(path, mesh, run.coordinates)
    if warning:
        warn(PROGRAM, warning)
    return surface


def _true_bodies(run: Run, options: argparse.Namespace) -> list[TrueBody]:
    from ..io.bodies_file import read_bodies_file
    usual = run.path("true_bodies.json")
    named = options.true or (usual if usual.is_file() else None)
    return read_bodies_file(named) if named else []


def _sections(run: Run, options: argparse.Namespace) -> Iterator[tuple[str, Any]]:
    from .. import plot
    bodies = _true_bodies(run, options)
    from ..stacked_run import StackedRun, is_stacked
    if is_stacked(run):
        stacked = StackedRun(run)
        surface = _surface(run, stacked.stack.mesh, options.topography)
        for model in stacked.models(options.iteration):
            yield f"sections_{model.name}", plot.sections(model, at=options.at, survey=stacked.survey(), surface=surface, bodies=bodies,
                                                          whole_mesh=options.whole_mesh, colormap=options.colormap, limits=options.limits)
        return
    surface = _surface(run, run.mesh, options.topography)
    values = run.control.values
    for number in range(values.model_count):
        label = "" if values.model_count == 1 else values.labels[number].strip() if number < len(values.labels) else ""
        label = label or ("" if values.model_count == 1 else f"{number + 1:02d}")
        figure = plot.sections(run, number, iteration=options.iteration, at=options.at, surface=surface, bodies=bodies,
                               whole_mesh=options.whole_mesh, colormap=options.colormap, limits=options.limits)
        yield f"sections_{label}" if label else "sections", figure


def _vector_of(run: Run, options: argparse.Namespace) -> tuple[StackedRun, VectorModel] | None:
    """The magnetisation of a stacked run; None of other runs, which have no such pictures."""
    from ..stacked_run import StackedRun, is_stacked
    if is_stacked(run):
        stacked = StackedRun(run)
        vector = stacked.vector(options.iteration)
        if vector is not None:
            return stacked, vector
    if options.only and {"vectors", "stereonet"} & set(options.only):
        raise VoxlithError(f"{options.folder}: holds no run of a magnetisation vector, as voxlith-tools stack prepares it")
    return None


def _vectors(run: Run, options: argparse.Namespace) -> Iterator[tuple[str, Any]]:
    found = _vector_of(run, options)
    if found is not None:
        from .. import plot
        stacked, vector = found
        yield "vectors", plot.vector_sections(vector, survey=stacked.survey(), field=_field_of(stacked), at=options.at,
                                              bodies=_true_bodies(run, options), whole_mesh=options.whole_mesh, colormap=options.colormap, limits=options.limits)


def _stereonet(run: Run, options: argparse.Namespace) -> Iterator[tuple[str, Any]]:
    found = _vector_of(run, options)
    if found is not None:
        from .. import plot
        yield "stereonet", plot.stereonet(found[1], field=_field_of(found[0]))


def _field_of(stacked: StackedRun) -> Direction | None:
    return None if stacked.stack.field is None else stacked.stack.field.direction


_DRAWERS = {"convergence": _convergence, "data": _data, "sections": _sections, "vectors": _vectors, "stereonet": _stereonet,
            "zscores": _zscores}


def _draw_all(run: Run, options: argparse.Namespace) -> int:
    """Draws one picture after the other. One that cannot be drawn keeps no other from being drawn."""
    from ..plot.files import USUAL_DPI, save
    out = options.out or os.path.join(options.folder, "plots")
    drawn, failed = 0, False
    for picture in dict.fromkeys(options.only or PICTURES):
        try:
            for name, figure in _DRAWERS[picture](run, options):
                _make_folder(out)
                for kind in dict.fromkeys(options.format or ["png"]):
                    path = os.path.join(out, f"{name.replace(os.sep, '_')}.{kind}")
                    save(figure, path, dpi=options.dpi or USUAL_DPI)
                    say(path)
                drawn += 1
        except UsageError:
            raise
        except VoxlithError as error:
            missing = not options.only and _is_missing(error)
            failed = failed or not missing
            sys.stdout.flush()
            print(f"{PROGRAM}: {escaped(f'no {picture}: {error}' if missing else str(error))}", file=sys.stderr)
    if not drawn and not failed:
        raise VoxlithError(f"{options.folder}: holds nothing to draw")
    return 1 if failed else 0


def _is_missing(error: VoxlithError) -> bool:
    """Whether files are not there yet, as in a run that has just begun."""
    return isinstance(error, RunError) or (isinstance(error, FileError) and "No such file" in error.problem)


def _make_folder(path: str) -> None:
    try:
        os.makedirs(path, exist_ok=True)
    except OSError as error:
        raise FileError(path, f"cannot be made a folder: {error.strerror}") from error
