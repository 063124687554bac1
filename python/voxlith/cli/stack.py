"""``voxlith-tools stack``: one run for several properties and any mixture of data."""

from __future__ import annotations

import argparse
import math
import os
from collections.abc import Sequence
from dataclasses import dataclass, replace

import numpy as np
import numpy.typing as npt

from ..checks.field import check_type_and_field
from ..checks.findings import sentence
from ..codes import data_type_name
from ..control_choices import Choices, Overrides, choose_values
from ..control_text import control_text
from ..errors import UsageError, VoxlithError
from ..first_model import first_model
from ..io.bounds_file import read_bounds_file, write_bounds_file
from ..io.model_file import read_model_file, write_model_file
from ..io.mtx_file import read_mtx_header
from ..io.numbers import number_text, parse_real
from ..io.output import write_bytes
from ..io.text_lines import to_bytes
from ..io.weight_file import CellWeights, section_shapes, write_weight_file
from ..stack import (RowSource, Stack, direction_of_text, inactive_cells, make_stack, property_of, stacked_survey,
                     write_stacked_sensitivity)
from ..side_file import SideInfo, other_coordinates, read_side_file, write_side_file
from ..survey import Survey
from ..vectors import angle_between
from ..weights import read_cell_sensitivity, sensitivity_weights
from .output import say, warn
from .parser import Parser, number_from, number_list

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]
PROGRAM = "voxlith-tools"
_SAME_DIRECTION = 1.0  # degrees

_ENDINGS = (".mtx", ".obs", ".msh", ".json", ".inp", "_bounds.txt", "_weights.txt", "_start.mod", "_reference.mod")

_EXAMPLES = """\
Examples:
  voxlith-tools stack --properties mx my mz --rows tmi.mag tmi_x.mtx tmi_y.mtx tmi_z.mtx --out vector
  voxlith-tools stack --properties mx my mz density --rows tmi.mag tmi_x.mtx tmi_y.mtx tmi_z.mtx - \\
      --rows gz.obs - - - gz.mtx --out mixed
  voxlith-tools stack --properties p=65,10 s=0,100 t=-25,10 --smallness 1 4 4 \\
      --rows tmi.mag tmi_p.mtx tmi_s.mtx tmi_t.mtx --out vector
Give --rows once for each data type. DATA:N takes component N of a data file. A sensitivity file for each property
follows in the order of --properties, or - where the data do not depend on it. Directions of magnetisation are
those of mtx --magnetisation. Run the control file that is written, then voxlith-tools unstack."""


@dataclass(frozen=True)
class _Asked:
    """Texts of an option that has a value for each property."""

    option: str
    texts: list[str]


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} stack", "Combine several properties in one model, and several data types in one run", _EXAMPLES)
    add = parser.add_argument
    add("--properties", metavar="NAME", nargs="+", required=True,
        help="Names of the properties, NAME=x, y, z or INC,DEC for components of the magnetisation; mx, my and mz are along the axes")
    add("--rows", metavar="FILE", nargs="+", action="append", required=True,
        help="Observed data (DATA:N for component N of a file), then their sensitivity file for each property, or - where "
             "they do not depend on it; once for each data type")
    add("--scale", metavar="NUMBER", nargs="+",
        help="Unit of each property in the run, or auto (default: auto, the magnitude of a first model of each)")
    add("--bounds", metavar="BOUNDS", nargs="+",
        help="lower,upper, a bounds file, or null: one for all or one for each property (default: null)")
    add("--start", metavar="FILE", nargs="+", help="Initial model: files or numbers (default: 0)")
    add("--reference", metavar="FILE", nargs="+", help="Reference model: files or numbers (default: 0)")
    add("--smallness", metavar="NUMBER", nargs="+",
        help="Factor of the smallness of each property (default: 1); above 1 it keeps a component of the magnetisation small")
    add("--weights", choices=["auto", "none"], default="auto",
        help="auto: depth weights of the model norm from the sensitivities; none: only the seams (default: auto)")
    add("--tolerance", metavar="NUMBER", type=number_from(0.0), default=0.01,
        help="Largest loss of a row over its norm, in addition to that of the files (default: 0.01)")
    add("--out", metavar="NAME", required=True, help="Beginning of the names of the files to write: NAME.mtx, NAME.inp ...")
    add("--force", action="store_true", help="Replace earlier files of these names")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    if not options.tolerance < 1.0:
        raise UsageError(f"--tolerance {options.tolerance:g}: expected a number from 0 to below 1")
    names = list(options.properties)
    groups = [_source(words, len(names)) for words in options.rows]
    _check_outputs(options, groups)
    properties = [property_of(text, [one.survey.codes[0] for one in groups if one.mtx[number]]) for number, text in enumerate(names)]
    stack = make_stack(properties, groups)
    side = _coordinates(groups)
    _warn_of_directions(stack, groups)
    scales, reason = _scales(options, stack, groups)
    stack = replace(stack, properties=tuple(replace(one, scale=scale) for one, scale in zip(stack.properties, scales)))
    inactive = inactive_cells(groups)
    bounds = _bounds(options, stack, inactive)
    _warn_of_bounds(options, stack, bounds)
    start = _models("--start", options.start, stack, inactive)
    reference = _models("--reference", options.reference, stack, inactive)
    factors = [_number("--smallness", text) for text in _per_property("--smallness", options.smallness, "1", stack)]
    weights = stack.join_weights(_weights(options, stack, groups), factors)
    _write(options, stack, groups, bounds, start, reference, weights, reason)
    for ending in (".mtx", ".obs", ".msh"):
        write_side_file(options.out + ending, side)
    return 0


def _source(words: Sequence[str], properties: int) -> RowSource:
    if len(words) != properties + 1:
        raise UsageError(f"--rows {' '.join(words)}: expected observed data and {properties} sensitivity files or -, found "
                         f"{len(words) - 1} of these")
    name, separator, number = words[0].rpartition(":")
    component = 0
    if separator and number.isdigit() and not os.path.exists(words[0]):
        component = int(number) - 1
    else:
        name = words[0]
    mtx = tuple(None if word == "-" else word for word in words[1:])
    first = next((word for word in mtx if word), None)
    if first is None:
        raise UsageError(f"--rows {' '.join(words)}: expected a sensitivity file")
    head = read_mtx_header(first)
    survey = Survey.read(name)
    if not 0 <= component < survey.n_components:
        raise UsageError(f"--rows {words[0]}: expected a component from 1 to {survey.n_components}")
    data = survey.component(component)
    for path in filter(None, mtx):
        _check_type_and_field(words[0], data, path)
    return RowSource(replace(data, codes=(head.data_type,)), mtx, words[0])


def _check_type_and_field(name: str, data: Survey, path: str) -> None:
    """Rows of another kind, or of another inducing field, than the data are refused, small differences said."""
    for finding in check_type_and_field(data, read_mtx_header(path), path):
        if finding.severity == "error":
            raise UsageError(f"--rows {name}: {sentence(finding)}")
        warn(PROGRAM, f"{name}: {sentence(finding)}")


def _coordinates(groups: Sequence[RowSource]) -> SideInfo:
    """Reference system and shift of all files. Raises UsageError when two files differ."""
    first, kept = "", SideInfo()
    for path in dict.fromkeys(path for one in groups for path in (_data_path(one), *map(str, one.given))):
        found = read_side_file(path).coordinates
        other = other_coordinates(kept, found)
        if other:
            raise UsageError(f"{first} and {path}: expected the same coordinates, found {other}")
        if kept.is_empty and not found.is_empty:
            first, kept = path, found
    return kept


def _data_path(source: RowSource) -> str:
    """The data file without the number of a component."""
    name, _, number = source.data_file.rpartition(":")
    return name if number.isdigit() and not os.path.exists(source.data_file) else source.data_file


def _warn_of_directions(stack: Stack, groups: Sequence[RowSource]) -> None:
    """Files of another direction of magnetisation than that of their property, as far as they say theirs."""
    for one in groups:
        for path, known in zip(one.mtx, stack.properties):
            text = read_side_file(path).magnetisation if path is not None else ""
            found = direction_of_text(text)
            if found is not None and known.direction is not None and angle_between(found, known.direction) > _SAME_DIRECTION:
                warn(PROGRAM, f"{path}: computed with --magnetisation {text}, but {known.name} is the component along "
                              f"{number_text(known.direction.inclination)},{number_text(known.direction.declination)}; "
                              "compare the order of --rows with that of --properties")


def _warn_of_bounds(options: argparse.Namespace, stack: Stack, bounds: Reals) -> None:
    """Bounds that allow no component of a vector to be negative, as those of a susceptibility."""
    vector = [pair for pair, one in zip(np.split(bounds, len(stack.properties)), stack.properties) if one.direction is not None]
    if vector and all((pair[:, 0] >= 0.0).all() and (pair[:, 1] > 0.0).any() for pair in vector):
        warn(PROGRAM, f"--bounds {' '.join(options.bounds)}: no component of the magnetisation can be below 0, so most directions "
                      "are excluded; expected lower bounds below 0, such as -0.05,0.05. Inactive cells of "
                      "the sensitivity files are fixed without a bounds file")


def _check_outputs(options: argparse.Namespace, groups: Sequence[RowSource]) -> None:
    """Nothing that is read or that stands there is written over."""
    read = {os.path.realpath(path) for one in groups for path in (one.data_file, one.data_file.rpartition(":")[0], *one.given)
            if path and os.path.exists(path)}
    for text in [*(options.bounds or []), *(options.start or []), *(options.reference or [])]:
        if os.path.exists(text):
            read.add(os.path.realpath(text))
    for ending in _ENDINGS:
        path = options.out + ending
        if os.path.realpath(path) in read:
            raise UsageError(f"--out {options.out}: {path} is among the files to read; expected another name")
        if os.path.lexists(path) and not options.force:
            raise VoxlithError(f"{path}: there is such a file already; --force replaces it")


def _per_property(option: str, texts: Sequence[str] | None, usual: str, stack: Stack) -> list[str]:
    count = len(stack.properties)
    given = list(texts or [usual])
    if len(given) not in (1, count):
        raise UsageError(f"{option}: expected one value or {count}, one for each property, found {len(given)}")
    return given * count if len(given) == 1 else given


def _number(option: str, text: str, *, above: bool = False) -> float:
    value = parse_real(text)
    if value is None or not math.isfinite(value) or value < 0.0 or (above and value == 0.0):
        raise UsageError(f"{option} {text}: expected a number {'above 0' if above else 'of 0 or more'}")
    return value


def _scales(options: argparse.Namespace, stack: Stack, groups: Sequence[RowSource]) -> tuple[list[float], str]:
    """Scale of each property, and what they were chosen by."""
    if options.scale and options.scale != ["auto"]:
        return [_number("--scale", text, above=True) for text in _per_property("--scale", options.scale, "1", stack)], "as given"
    if all(one.direction is not None for one in stack.properties):
        return [1.0] * len(stack.properties), "components of one vector"
    sizes: dict[int, float] = {}
    for group in stack.groups():
        size = _size(stack, groups, group)
        sizes.update((number, size) for number in group)
    scales = [float(f"{sizes[number] / sizes[0]:.2g}") for number in range(len(stack.properties))]
    return scales, "sizes of a first model of each property"


def _size(stack: Stack, sources: Sequence[RowSource], group: Sequence[int]) -> float:
    """Largest value of a first model of the properties of a group, each and each type of data by itself: the geometric mean."""
    found = []
    for one in sources:
        for number in group:
            path = one.mtx[number]
            if path is not None:
                model = first_model([path], one.survey.data, one.survey.uncertainties())
                found += [model.magnitude] if model.magnitude > 0.0 else []
    if not found:
        names = ", ".join(stack.properties[number].name for number in group)
        raise UsageError(f"--scale auto: the data of {names} are 0; give numbers")
    return math.exp(sum(map(math.log, found)) / len(found))


def _bounds(options: argparse.Namespace, stack: Stack, inactive: Mask) -> Reals:
    pairs = []
    for text in _per_property("--bounds", options.bounds, "null", stack):
        if text == "null":
            pair = np.tile([-np.inf, np.inf], (stack.mesh.n_cells, 1))
        elif os.path.exists(text):
            pair = read_bounds_file(text, stack.mesh.n_cells)
        else:
            lower, upper = number_list("--bounds", "lower,upper, a file or null", text, 2)
            if not lower < upper:
                raise UsageError(f"--bounds {text}: expected a lower bound below the upper one")
            pair = np.tile([lower, upper], (stack.mesh.n_cells, 1))
        pair[inactive] = 0.0
        pairs.append(pair)
    return stack.join_bounds(pairs)


def _models(option: str, texts: Sequence[str] | None, stack: Stack, inactive: Mask) -> Reals:
    values = []
    for text in _per_property(option, texts, "0", stack):
        number = parse_real(text)
        if number is not None and math.isfinite(number):
            model = np.full(stack.mesh.n_cells, number)
        elif os.path.exists(text):
            model = read_model_file(text, stack.mesh.n_cells)
        else:
            raise UsageError(f"{option} {text}: expected a number or a model file")
        values.append(np.where(inactive, 0.0, model))
    return stack.join(values)


def _weights(options: argparse.Namespace, stack: Stack, groups: Sequence[RowSource]) -> list[CellWeights]:
    """Weights of each property; components of one vector share theirs."""
    mesh = stack.mesh
    if options.weights == "none":
        return [CellWeights(*(np.ones(shape) for shape in section_shapes(mesh.nx, mesh.ny, mesh.nz)))] * len(stack.properties)
    vector = [number for number, one in enumerate(stack.properties) if one.direction is not None]
    made: dict[int, CellWeights] = {}
    for number in range(len(stack.properties)):
        members = vector if number in vector else [number]
        if members[0] not in made:
            paths = list(dict.fromkeys(path for one in groups for member in members if (path := one.mtx[member])))
            header, _, sensitivity = read_cell_sensitivity(paths)
            made[members[0]] = sensitivity_weights(mesh, sensitivity, header).cells
        made[number] = made[members[0]]
    return [made[number] for number in range(len(stack.properties))]


def _text(values: Reals) -> str | None:
    """The text of a model that is one number."""
    return f"{values[0]:.9g}" if (values == values[0]).all() else None


def _write(options: argparse.Namespace, stack: Stack, groups: Sequence[RowSource], bounds: Reals, start: Reals, reference: Reals,
           weights: CellWeights, reason: str) -> None:
    name = options.out
    mtx, data = name + ".mtx", name + ".obs"
    statistics = write_stacked_sensitivity(mtx, stack, groups, tolerance=options.tolerance)
    survey = stacked_survey(stack, groups)
    survey.write(data)
    stack.stacked_mesh.write(name + ".msh")
    stack.write(name + ".json")
    write_bounds_file(name + "_bounds.txt", bounds)
    write_weight_file(name + "_weights.txt", weights)
    texts = []
    for ending, values in (("_start.mod", start), ("_reference.mod", reference)):
        text = _text(values)
        if text is None:
            text = os.path.basename(name) + ending
            write_model_file(name + ending, values, digits="full")
        texts.append(text)
    choices = _choices(stack, mtx)
    beside = os.path.basename(name)
    text = control_text(choices, beside + ".obs", [beside + ".mtx"], initial=texts[0], bounds=beside + "_bounds.txt",
                        weighting=beside + "_weights.txt")
    lines = text.split("\n")
    lines[6] = f"{texts[1]:<23} ! reference model: a number or a file"
    if options.weights == "none":
        lines[8] = f"{choices.alpha_s:.6g} 1 1 1 ! alphaS, alphaE, alphaN, alphaZ"
    write_bytes(name + ".inp", to_bytes("\n".join(lines)))
    _report(options, stack, survey, reason, statistics.coefficients)


def _choices(stack: Stack, mtx: str) -> Choices:
    choices = choose_values([read_mtx_header(mtx)], Overrides(sign=0, bounds="null"))
    choices.initial = 0.0
    choices.tradeoff_reason = "a starting value"
    choices.one_sign = False
    choices.unit = ", ".join(f"{one.name} in {number_text(one.scale)} {one.unit}" for one in stack.properties)
    return choices


def _report(options: argparse.Namespace, stack: Stack, survey: Survey, reason: str, coefficients: int) -> None:
    name = options.out
    mesh = stack.mesh
    say(f"{name}.inp: {len(stack.properties)} properties, {survey.n_stations} rows, {mesh.nx} x {mesh.ny} x {mesh.nz} cells each, "
        f"{coefficients} coefficients")
    for one in stack.properties:
        where = "" if one.direction is None else (f", magnetisation {number_text(one.direction.inclination)} / "
                                                  f"{number_text(one.direction.declination)}")
        say(f"property:   {one.name}, counted in units of {number_text(one.scale)} {one.unit}{where}")
    say(f"scales:     {reason}")
    for part in stack.components:
        data = survey.data[0, part.rows]
        valid = data[~np.isnan(data)]
        extent = f"{valid.min():.4g} to {valid.max():.4g} {part.unit}" if len(valid) else "no datum"
        say(f"rows:       {part.first + 1} to {part.first + part.count} {part.name} ({data_type_name(part.code)}) of "
            f"{part.data_file}, {extent}")
    say(f"Run it with: voxlith-run {os.path.basename(name)}.inp --target-rms 1, then voxlith-tools unstack")
