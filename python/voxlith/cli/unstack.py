"""``voxlith-tools unstack``: models, predictions and misfits of a stacked run by property and type of data."""

from __future__ import annotations

import os
from collections.abc import Sequence

import numpy as np

from ..errors import FileError, MissingPackageError, PathLike, UsageError
from ..io.numbers import number_text
from ..io.output import write_bytes
from ..model import Model, write_vtr
from ..run import Run
from ..side_file import first_coordinates, write_side_file
from ..stacked_run import ComponentFit, StackedRun
from ..survey import Direction, InducingField
from ..vectors import MagneticBody, VectorModel, angle_between, direction_of
from .output import say, warn
from .parser import Parser, integer_within

PROGRAM = "voxlith-tools"

_EXAMPLES = """\
Examples:
  voxlith-tools unstack . --control vector.inp
  voxlith-tools unstack run1 --control mixed.inp --out run1/properties --no-vtr
Files: mesh.msh and PROPERTY.mod for each property, with properties.vtr for ParaView; amplitude.mod, inclination.mod and
declination.mod of a magnetisation; COMPONENT.csv with data and predictions, and components.csv with the misfit of each.
bodies.csv has position and moment of each magnetic body: connected cells of half the largest amplitude or more."""

_MOST_SHOWN = 5
_UNEVEN = 1.5  # the largest RMS misfit of a data type over the smallest


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} unstack", "Split the results of a stacked run by property and data type", _EXAMPLES)
    add = parser.add_argument
    add("folder", metavar="FOLDER", help="Folder of the run")
    add("--control", metavar="FILE", default="voxlith.inp", help="Control file, seen from FOLDER (default: voxlith.inp)")
    add("--stack", metavar="FILE", help="JSON file that voxlith-tools stack wrote (default: NAME.json beside NAME.mtx)")
    add("--iteration", metavar="N", type=integer_within(0, 99999), help="The model stored at iteration N")
    add("--out", metavar="FOLDER", help="Folder of the files (default: FOLDER/properties)")
    add("--no-vtr", action="store_true", help="Do not write the file for ParaView, which needs VTK")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    stacked = StackedRun(Run(options.folder, options.control), options.stack)
    out = options.out or os.path.join(options.folder, "properties")
    if os.path.realpath(out) == os.path.realpath(options.folder):
        raise UsageError(f"--out {out}: expected another folder than that of the run")
    models = stacked.models(options.iteration)
    vector = stacked.vector(options.iteration)
    fits = stacked.fits()
    try:
        os.makedirs(out, exist_ok=True)
    except OSError as error:
        raise FileError(out, f"cannot be made a folder: {error.strerror}") from error
    stacked.stack.mesh.write(os.path.join(out, "mesh.msh"))
    shown = list(models)
    if vector is not None:
        shown += [vector.model(quantity) for quantity in ("amplitude", "inclination", "declination")]
    values = stacked.run.control.values
    side = first_coordinates(map(stacked.run.path, (values.data_file, *values.mtx_files)))
    write_side_file(os.path.join(out, "mesh.msh"), side)
    for name, model in zip([*(one.name for one in stacked.stack.properties), "amplitude", "inclination", "declination"], shown):
        model.write(os.path.join(out, f"{name}.mod"), digits="full")
    if not options.no_vtr:
        _write_vtr(os.path.join(out, "properties.vtr"), shown, vector)
        write_side_file(os.path.join(out, "properties.vtr"), side)
    for one in fits:
        _write_component(os.path.join(out, f"{one.name}.csv"), one)
        write_side_file(os.path.join(out, f"{one.name}.csv"), side)
    _write_components(os.path.join(out, "components.csv"), fits)
    bodies = _bodies(vector)
    if bodies:
        _write_bodies(os.path.join(out, "bodies.csv"), bodies, stacked.stack.field)
        write_side_file(os.path.join(out, "bodies.csv"), side)
    _report(out, stacked, models, vector, fits)
    _report_bodies(bodies)
    misfits = [one.rms for one in fits if one.rms > 0.0]
    if misfits and max(misfits) > _UNEVEN * min(misfits):
        warn(PROGRAM, f"{os.fspath(out)}: the data types are fitted unevenly, with RMS misfits of {min(misfits):.2f} to {max(misfits):.2f}; "
             "voxlith-tools compact --per-component fits each to its standard deviations, with --norm 2 as a smooth model")
    return 0


def _bodies(vector: VectorModel | None) -> list[MagneticBody]:
    """Bodies of a magnetisation; none without the package that finds connected cells."""
    if vector is None:
        return []
    try:
        return vector.bodies()
    except MissingPackageError as error:
        warn(PROGRAM, f"no bodies.csv: {error}")
        return []


def _write_bodies(path: PathLike, bodies: Sequence[MagneticBody], field: InducingField | None) -> None:
    lines = ["body,x,y,elevation,cells,volume_m3,moment_Am2,inclination,declination,angle_to_field"]
    for number, one in enumerate(bodies, 1):
        angle = "" if field is None else f"{angle_between(one.direction, field.direction):.1f}"
        x, y, z = one.centre
        lines.append(f"{number},{x:.1f},{y:.1f},{z:.1f},{one.cells},{one.volume:.6g},{np.linalg.norm(one.moment):.6g},"
                     f"{one.direction.inclination:.1f},{one.direction.declination:.1f},{angle}")
    write_bytes(path, ("\n".join(lines) + "\n").encode())


def _write_vtr(path: PathLike, models: Sequence[Model], vector: VectorModel | None) -> None:
    if vector is None:
        write_vtr(path, list(models))
        return
    names = {"magnetisation": "amplitude"}
    renamed = [Model(one.mesh, one.values, names.get(one.name, one.name), one.unit, one.active) for one in models]
    write_vtr(path, renamed, {"magnetisation": vector.vectors * [1.0, 1.0, -1.0]})


def _write_component(path: PathLike, fit: ComponentFit) -> None:
    survey = fit.observed
    columns = [survey.x, survey.y, survey.elevation, survey.data[0], fit.predicted, survey.uncertainties()[0], fit.zscore]
    lines = ["x,y,elevation,observed,predicted,uncertainty,zscore"]
    lines += [",".join("" if np.isnan(value) else number_text(value) for value in row) for row in np.stack(columns, axis=1).tolist()]
    write_bytes(path, ("\n".join(lines) + "\n").encode())


def _write_components(path: PathLike, fits: Sequence[ComponentFit]) -> None:
    lines = ["component,unit,rows,valid,rms_misfit"]
    lines += [f"{one.name},{one.unit},{len(one.predicted)},{one.valid},{one.rms:.6g}" for one in fits]
    write_bytes(path, ("\n".join(lines) + "\n").encode())


def _direction_text(direction: Direction) -> str:
    return f"{direction.inclination:.1f} / {direction.declination:.1f}"


def _report(out: str, stacked: StackedRun, models: Sequence[Model], vector: VectorModel | None,
            fits: Sequence[ComponentFit]) -> None:
    say(f"{out}:")
    for one, model in zip(stacked.stack.properties, models):
        values = model.values[model.shown]
        say(f"property:      {one.name}, {values.min():.4g} to {values.max():.4g} {one.unit}")
    for fit in fits:
        say(f"component:     {fit.name}, {fit.valid} data, RMS misfit {fit.rms:.4f}")
    if vector is None or not vector.amplitude.max() > 0.0:
        return
    amplitude = vector.amplitude
    x, y, z = vector.mesh.centres()[int(np.argmax(amplitude))].tolist()
    say(f"magnetisation: largest {amplitude.max():.4g} SI, {amplitude.max() * vector.strength / (0.4 * np.pi) / 1000.0:.4g} A/m, at x "
        f"{x:.0f}, y {y:.0f}, elevation {z:.0f}")
    moment = vector.moment()
    found = direction_of(moment)
    say(f"moment:        {np.linalg.norm(moment):.4g} A m2, inclination / declination {_direction_text(found)}")
    field = stacked.stack.field
    if field is not None:
        say(f"inducing field: {_direction_text(field.direction)}, {angle_between(found, field.direction):.0f} degrees from the moment")


def _report_bodies(bodies: Sequence[MagneticBody]) -> None:
    for number, one in enumerate(bodies[:_MOST_SHOWN], 1):
        x, y, z = one.centre
        say(f"body {number}:        x {x:.0f}, y {y:.0f}, elevation {z:.0f}, {one.cells} cells, {np.linalg.norm(one.moment):.4g} A m2, "
            f"{_direction_text(one.direction)}")
    if len(bodies) > _MOST_SHOWN:
        say(f"{len(bodies) - _MOST_SHOWN} smaller bodies in bodies.csv")
