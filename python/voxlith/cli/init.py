"""``voxlith-tools init``: a control file with comments for given data and sensitivity files."""

from __future__ import annotations

import argparse
import os
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..codes import MOST_FILES, data_type_name, has_magnetic_layout
from ..control_choices import Choices, Overrides, add_warnings, choose_norm, choose_values
from ..control_text import control_text, norm_option, run_options
from ..errors import FileError, UsageError, VoxlithError
from ..io.mtx_file import MtxFile
from ..io.mtx_header import MtxHeader
from ..io.numbers import number_text
from ..io.obs_file import read_obs_file
from ..io.output import write_bytes
from ..io.text_lines import to_bytes
from ..checks import check_survey
from ..checks.background import check_background
from ..checks.field import check_field_of_any_year, check_type_and_field
from ..checks.findings import sentence
from ..checks.inactive import check_ground
from ..checks.survey import station_names
from ..checks.values import no_data_codes
from ..mesh import Mesh
from ..sensitivity import common_inactive_cells
from ..side_file import read_side_file
from ..survey import Survey
from ..weights import DECAY_OF_NORM
from .init_files import allow_both_signs, prepare_files
from .output import check_output, say, warn
from .parser import Parser, integer_within, number_from, number_list

Reals = npt.NDArray[np.float64]
PROGRAM = "voxlith-tools"
_SIGNS = {"auto": None, "negative": -1, "either": 0, "positive": 1}
_LONGEST_NAME, _LONGEST_MTX_LINE = 80, 240

_WEIGHTS = "auto"
_NOTABLE_DIFFERENCE = 1.0e-3  # of depth weights, relative
_FULL_STYLES = (0, 4)
_WORTH_SAYING = ("duplicate-stations", "outliers", "constant-offset", "regional-trend", "background", "sign", "relief",
                 "in-active-cells", "field-direction")

_EXAMPLES = """\
The file explains its values. The trade-off is a starting value, which voxlith-run --target-rms replaces.

Examples:
  voxlith-tools init --data gz.obs --mtx gz.mtx
  voxlith-tools init --data tmi.mag --mesh mesh.msh --mtx tmi.mtx --bounds 0,0.2 --out tmi.inp
  voxlith-tools init --data joint.obs --mtx gz.mtx gzz.mtx --sign positive
  voxlith-tools init --data gz.obs --mtx gz.mtx --model-norm smooth
File names are written as they are given: run voxlith-run in the folder in which you ran this command."""


@dataclass(frozen=True)
class _Sensitivities:
    """The sensitivity files of a run, in the order of the components."""

    names: list[str]
    headers: list[MtxHeader]
    coefficients: int

    @property
    def first(self) -> MtxHeader:
        return self.headers[0]


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} init", "Write a control file with comments for data and sensitivity files", _EXAMPLES)
    add = parser.add_argument
    add("--data", metavar="FILE", required=True, help="Observed data file")
    add("--mtx", metavar="FILE", nargs="+", action="extend", required=True,
        help="Sensitivity file; several for a joint inversion")
    add("--mesh", metavar="FILE", help="Mesh file; compared with the mesh in the sensitivity file")
    add("--out", metavar="FILE", default="voxlith.inp", help="Control file to write (default: voxlith.inp)")
    add("--force", action="store_true", help="Replace an earlier control file and the files that go with it")
    add("--sign", choices=list(_SIGNS),
        help="Values of the model (default: auto, which is positive for magnetic data without bounds below 0, else either)")
    add("--bounds", metavar="LOWER,UPPER", help="lower,upper of the model, or null (default: by the sign)")
    add("--tradeoff", metavar="NUMBER", type=number_from(0.0, above=True), help="Trade-off (default: a starting value)")
    add("--iterations", metavar="COUNT", type=integer_within(1, 99999),
        help="Iterations (default: 100; 200 with a sign or two models)")
    add("--weights", choices=["auto", "none"], default=_WEIGHTS,
        help=f"auto: write depth weights of the model norm for full 3-D models and name them on line 10; none: no "
             f"weights, as suits runs of voxlith itself (default: {_WEIGHTS})")
    add("--model-norm", choices=["auto", *DECAY_OF_NORM], default="auto",
        help="Model norm of the run: weights that suit it, and the command (default: auto: with depth weights blocky for one "
             "model of either sign or of susceptibilities, whose masses a smooth model overstates, else smooth)")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    _check_options(options)
    sensitivities = _read_sensitivities(options.mtx)
    _check_alike(sensitivities)
    if options.mesh:
        _check_mesh(options.mesh, sensitivities)
    survey = _read_data(options.data, sensitivities)
    if not any((np.isfinite(values) & ~no_data_codes(values)).any() for values in survey.data):
        raise FileError(options.data, "expected a valid datum, found none")
    notes, warnings = _notes(survey)
    warnings += _component_order_warnings(options.data, sensitivities) + _depth_weight_warnings(sensitivities)
    overrides = Overrides(_SIGNS[options.sign or "auto"], options.tradeoff, options.iterations, options.bounds or "",
                          _both_signs(options))
    choices = choose_values(sensitivities.headers, overrides)
    add_warnings(choices, sensitivities.names, sensitivities.coefficients, survey.data, survey.uncertainties())
    weighted = options.weights == "auto" and _is_full(sensitivities)
    norm = choose_norm(choices, weighted) if options.model_norm == "auto" else options.model_norm
    files = prepare_files(choices, options.mtx, options.out, model_norm=norm if weighted else None,
                          bounds_asked=bool(options.bounds), replace=options.force)
    if options.model_norm == "auto" and norm != "smooth" and files.weighting == "null":
        norm = "smooth"  # one layer, or no fall with depth: there are no weights
    for name in (files.initial, files.bounds, files.weighting):
        _check_name("--out", name, _LONGEST_NAME, False)
    text = control_text(choices, options.data, options.mtx, initial=files.initial, bounds=files.bounds,
                        weighting=files.weighting, norm=norm)
    write_bytes(options.out, to_bytes(text))
    how = run_options(choices, norm) if options.tradeoff is None else "--until-converged" + norm_option(norm)
    _report(options, notes + files.notes, text, how)
    warnings += _check_warnings(options, survey)
    for warning in warnings + choices.warnings:
        warn(PROGRAM, f"{options.data}: {warning}")
    return 0


def _both_signs(options: argparse.Namespace) -> bool:
    """Whether bounds that the user gave, here or to ``mtx``, allow values of both signs."""
    if not options.bounds:
        return allow_both_signs(options.mtx)
    if options.bounds == "null":
        return False
    lower, upper = number_list("--bounds", "lower,upper or null", options.bounds, 2)
    return lower < 0.0 < upper


def _is_full(files: _Sensitivities) -> bool:
    """Whether the model has all layers free."""
    return files.first.layers == files.first.nz and files.first.style_of_counts in _FULL_STYLES


def _check_warnings(options: argparse.Namespace, survey: Survey) -> list[str]:
    """What would spoil the run, in words of ``check``."""
    side = read_side_file(options.data)
    findings = check_survey(survey, regional_removed=side.regional_removed, sign=_SIGNS[options.sign or "auto"] or 0)
    findings += check_field_of_any_year(survey, side)
    if {"constant-offset", "regional-trend"} & {finding.name for finding in findings}:
        findings += check_background(survey, options.mtx)
    with MtxFile(options.mtx[0]) as mtx:
        places = mtx.header.stations
    findings += check_ground(places, *common_inactive_cells(options.mtx), station_names(survey))
    texts = []
    for finding in findings:
        if finding.name == "standard-deviations":
            continue  # said already
        if finding.severity == "error" or (finding.severity == "warning" and finding.name in _WORTH_SAYING):
            texts.append(sentence(finding))
    return texts


def _check_name(option: str, name: str, longest: int, several: bool) -> None:
    """What a name may hold to stand in a control file and be found."""
    good = 0 < len(to_bytes(name)) <= longest and name == name.strip(" ") and name.isprintable() and "!" not in name
    if not good or (several and "|" in name):
        bar = ' and "|"' if several else ""
        raise UsageError(f'{option} {name}: expected a name of at most {longest} characters without "!"{bar} that a '
                         "control file can hold")


def _check_options(options: argparse.Namespace) -> None:
    _check_name("--data", options.data, _LONGEST_NAME, False)
    if len(options.mtx) > MOST_FILES:
        raise UsageError(f"--mtx: expected at most {MOST_FILES} files")
    for name in options.mtx:
        _check_name("--mtx", name, _LONGEST_MTX_LINE // len(options.mtx), len(options.mtx) > 1)
    check_output(options.out, {"--data": options.data, "--mesh": options.mesh,
                               **{f"--mtx {name}": name for name in options.mtx}})
    if os.path.lexists(options.out) and not options.force:
        raise VoxlithError(f"{options.out}: there is such a file already; --force replaces it")
    if options.bounds and options.bounds != "null":
        lower, upper = number_list("--bounds", "lower,upper or null", options.bounds, 2)
        if not lower < upper:
            raise UsageError(f"--bounds {options.bounds}: expected a lower bound below the upper one")


def _read_sensitivities(names: list[str]) -> _Sensitivities:
    headers, coefficients = [], 0
    for name in names:
        with MtxFile(name) as mtx:
            headers.append(mtx.header)
            coefficients += int(mtx.row_counts().sum(dtype=np.int64))
    return _Sensitivities(names, headers, coefficients)


def _counts_text(x: int, y: int, z: int) -> str:
    return f"{x} x {y} x {z}"


def _header_counts(header: MtxHeader) -> str:
    return _counts_text(header.nx, header.ny, header.nz)


def _check_alike(files: _Sensitivities) -> None:
    """The files must have the same data and cells."""
    first = files.first
    for name, header in zip(files.names[1:], files.headers[1:]):
        if header.n_data != first.n_data:
            raise FileError(name, f"expected {first.n_data} data as in {files.names[0]}, found {header.n_data}")
        if _header_counts(header) != _header_counts(first):
            raise FileError(name, f"expected {_header_counts(first)} cells as in {files.names[0]}, found "
                            f"{_header_counts(header)}")
        if "record" in (header.form, first.form):
            raise FileError(name, "a file in record form can be used only by itself")


def _smallest_cell(header: MtxHeader) -> float:
    return min(float(np.abs(np.diff(nodes)).min()) for nodes in (header.x_nodes, header.y_nodes, header.z_nodes))


def _check_mesh(path: str, files: _Sensitivities) -> None:
    """The nodes of the mesh file must be those of the sensitivity file."""
    mesh, head = Mesh.read(path), files.first
    found = _counts_text(mesh.nx, mesh.ny, mesh.nz)
    if found != _header_counts(head):
        raise FileError(path, f"expected {_header_counts(head)} cells as in {files.names[0]}, found {found}")
    slack = 0.01 * _smallest_cell(head)
    for axis, nodes, expected in (("x", mesh.x_nodes, head.x_nodes), ("y", mesh.y_nodes, head.y_nodes),
                                  ("z", mesh.depth_nodes, head.z_nodes)):
        bad = np.flatnonzero(np.abs(nodes - expected) > slack)
        if len(bad):
            at = int(bad[0])
            raise FileError(path, f"expected node {at + 1} of {axis} at {number_text(float(expected[at]))} as in "
                            f"{files.names[0]}, found {number_text(float(nodes[at]))}")


def _read_data(path: str, files: _Sensitivities) -> Survey:
    """The data of a run with these files; records beyond their count are dropped, as the run drops them."""
    codes = [header.data_type for header in files.headers]
    wanted = files.first.n_data
    try:
        found = read_obs_file(path, codes=codes, lined=None, any_count=True)
    except FileError as error:
        raise _layout_error(path, files.names[0], codes[0]) or error from error
    if len(found.x) < wanted:
        raise FileError(path, f"expected {wanted} records as in {files.names[0]}, found {len(found.x)}")
    survey = Survey.from_obs_file(found).select(np.arange(wanted))
    for name, header in zip(files.names, files.headers):
        _check_stations(path, survey, name, header)
        _check_type_and_field(path, survey, name, header)
    return survey


def _layout_error(path: str, name: str, code: int) -> FileError | None:
    """The error for a file whose header is that of the other kind of data; None when its header is not the reason."""
    magnetic = has_magnetic_layout(code)
    try:
        found = read_obs_file(path, lined=None, any_count=True, strict=False)
    except FileError:
        return None
    if (found.header is not None) == magnetic:
        return None
    what = "magnetic data (incl, decl, geomag)" if magnetic else "gravity data (the number of data)"
    has = "no lines" if magnetic else "the lines"
    return FileError(path, f"expected the header of {what}, as {name} is of type {data_type_name(code)}; the file has {has} of an "
                     "inducing field", line=1)


def _check_stations(path: str, survey: Survey, name: str, header: MtxHeader) -> None:
    """The records must be at the stations of the sensitivity file, in their order. Other layouts do not hold these."""
    if header.stations is None:
        return
    slack = 0.1 * _smallest_cell(header)
    for axis, values, expected in zip(("x", "y", "elevation"), (survey.x, survey.y, survey.elevation), header.stations.T):
        bad = np.flatnonzero(~(np.abs(values - expected) <= slack))
        if len(bad):
            at = int(bad[0])
            raise FileError(path, f"record {at + 1}: expected {axis} {number_text(float(expected[at]))} as in {name}, "
                            f"found {number_text(float(values[at]))}")


def _check_type_and_field(path: str, survey: Survey, name: str, header: MtxHeader) -> None:
    """Data of another kind or of another inducing field than the sensitivities are refused, small differences said."""
    for finding in check_type_and_field(survey, header, name):
        if finding.severity == "error":
            raise FileError(path, sentence(finding))
        warn(PROGRAM, f"{path}: {sentence(finding)}")


def _notes(survey: Survey) -> tuple[list[str], list[str]]:
    """What is to say of the data, and warnings."""
    valid = survey.valid
    dummies = int(np.count_nonzero(~valid))
    given = np.zeros(valid.shape, dtype=bool) if survey.uncertainty is None else survey.uncertainty > 0.0
    without = int(np.count_nonzero(valid & ~given))
    warnings = []
    if without:
        warnings.append(f"{without} data have no standard deviation: 1 is taken for magnetic data, 0.01 for others; "
                        "Misfit=(percent,floor) on the command line of voxlith-run gives better ones")
    return [f"{survey.n_stations} records, {dummies} dummies"], warnings


def _component_order_warnings(path: str, files: _Sensitivities) -> list[str]:
    """Components that the count line of the data names in another order than the sensitivity files have."""
    if len(files.headers) < 2:
        return []
    stated = read_obs_file(path, lined=None, any_count=True, strict=False).codes
    wanted = tuple(header.data_type for header in files.headers)
    if len(stated) != len(wanted) or stated == wanted:
        return []
    return [f"its components are {', '.join(map(data_type_name, stated))}, but the files of --mtx are those of "
            f"{', '.join(map(data_type_name, wanted))}: component i is predicted by file i, whose rows its standard deviations divide; "
            "give the files in the order of the components"]


def _depth_weight_warnings(files: _Sensitivities) -> list[str]:
    """A model has the depth weight of the first file, and predictions from a file with another one are wrong."""
    first, warnings = files.first, []
    for name, header in zip(files.names[1:], files.headers[1:]):
        larger = np.maximum(first.depth_weight, header.depth_weight)
        differences = np.abs(first.depth_weight - header.depth_weight) / np.where(larger > 0.0, larger, 1.0)
        if differences.max(initial=0.0) > _NOTABLE_DIFFERENCE:
            warnings.append(f"the depth weights of {files.names[0]} and {name} differ: predictions take those of the first file, so "
                            "those from the other are wrong; make all with the same --depth-weight")
    return warnings


def _report(options: argparse.Namespace, notes: Sequence[str], text: str, how: str) -> None:
    say(f"{options.out} for {options.data}:")
    for note in notes:
        say(f"  {note}")
    say()
    for line in text.splitlines():
        say(line)
    say()
    say(f"Run it with: voxlith-run {options.out} {how}")
