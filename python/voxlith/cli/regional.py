"""``voxlith-tools regional``: separate a regional field from the anomalies of a survey."""

from __future__ import annotations

import argparse
from collections.abc import Sequence

import numpy as np

from ..checks.values import no_data_codes
from ..codes import is_magnetic
from ..errors import FileError, UsageError
from ..io.numbers import number_text
from ..regional import Regional, polynomial_regional, residual_level, subtract, upward_regional, wavelength_regional
from ..regional_picture import draw_regional
from ..side_file import read_side_file, write_side_file
from ..survey import Survey
from .obs import type_code
from .output import check_output, say, warn
from .parser import Parser, integer_within, number_from, number_list

PROGRAM = "voxlith-tools"

_LEAST_AGAINST = 0.1  # part of the residuals with the other sign than the anomalies; half of them between anomalies

_EXAMPLES = """\
A polynomial is fitted by robust least squares. --upward and --wavelength use equivalent sources: point masses below the
stations. The mass of a model depends on the regional field: try two, such as with and without --anomaly, and compare.

Examples:
  voxlith-tools regional gz.obs --order 1 --out residual.obs --picture regional.png
  voxlith-tools regional gz.obs --order 1 --outside 452300,453100,5318200,5318900 --out residual.obs
  voxlith-tools regional gz.obs --order 1 --anomaly positive --out residual.obs
  voxlith-tools regional gz.obs --upward 2000 --out residual.obs
  voxlith-tools regional tmi.mag --wavelength 5000 --out residual.mag
The side file, residual.obs.json, stores what was subtracted."""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} regional", "Separate a regional field from the anomalies of a survey", _EXAMPLES)
    add = parser.add_argument
    add("file", metavar="FILE", help="Observed data file")
    add("--order", metavar="NUMBER", type=integer_within(0, 3),
        help="Order of a polynomial, fitted by robust least squares: 0 a constant, 1 a plane, 2 or 3")
    add("--outside", metavar="XMIN,XMAX,YMIN,YMAX",
        help="With --order: fit outside of this box, which contains the anomalies; coordinates of the data file")
    add("--anomaly", choices=["either", "positive", "negative"],
        help="With --order: the sign of the anomalies; residuals of this sign count less (default: either)")
    add("--upward", metavar="METRES", type=number_from(0.0, above=True),
        help="Subtract the field continued upwards by this height, by equivalent sources")
    add("--wavelength", metavar="METRES", type=number_from(0.0, above=True),
        help="Subtract wavelengths above this one, by a grid of equivalent sources")
    add("--component", metavar="NUMBER", type=integer_within(1, 6), default=1, help="Component of the data (default: 1)")
    add("--type", metavar="TYPE", nargs="+", action="extend",
        help="Data types of the components (default: those of the file, else gz, or tmi with a field)")
    add("--out", metavar="FILE", required=True, help="Observed data file of the residual to write")
    add("--picture", metavar="FILE", help="Picture of field, regional and residual to write (.png or .pdf)")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    parser = make_parser()
    options = parser.parse(arguments)
    methods = [name for name in ("order", "upward", "wavelength") if getattr(options, name) is not None]
    if len(methods) != 1:
        raise UsageError(f"expected one of --order, --upward and --wavelength, found {len(methods)}")
    for name in ("outside", "anomaly"):
        if getattr(options, name) is not None and options.order is None:
            raise UsageError(f"--{name} goes with --order")
    check_output(options.out, {"the data": options.file})
    survey = Survey.read(options.file, [type_code(text) for text in options.type] if options.type else None)
    number = options.component - 1
    if 0 <= number < survey.n_components and no_data_codes(survey.data[number]).any():
        code = float(survey.data[number][no_data_codes(survey.data[number])][0])
        raise FileError(options.file, f"expected data, found {code:g}, which stands for no datum; mask it first")
    regional = _separate(survey, options, number)
    residual = subtract(survey, regional, number)
    residual.write(options.out, digits="full")
    write_side_file(options.out, read_side_file(options.file).with_step(
        "regional", of=options.file, component=options.component, method=regional.method, parameter=regional.parameter,
        coefficients=regional.coefficients.tolist(), origin=list(regional.origin), **_fitted_to(options),
        subtracted=[float(f"{value:.9g}") for value in regional.values.tolist()]))
    if options.picture:
        draw_regional(options.picture, survey, regional, number)
    _report(options, survey, residual, regional, number)
    return 0


def _separate(survey: Survey, options: argparse.Namespace, number: int) -> Regional:
    if options.order is not None:
        return polynomial_regional(survey, options.order, number, outside=_box(options.outside),
                                   anomaly=options.anomaly or "either")
    if options.upward is not None:
        return upward_regional(survey, options.upward, number)
    return wavelength_regional(survey, options.wavelength, number)


def _box(text: str | None) -> tuple[float, float, float, float] | None:
    if text is None:
        return None
    xmin, xmax, ymin, ymax = number_list("--outside", "xmin,xmax,ymin,ymax", text, 4)
    if not (xmin < xmax and ymin < ymax):
        raise UsageError(f"--outside {text}: expected xmin below xmax and ymin below ymax")
    return xmin, xmax, ymin, ymax


def _fitted_to(options: argparse.Namespace) -> dict[str, object]:
    """What of the data a polynomial was fitted to, for the side file."""
    box = _box(options.outside)
    return {**({} if box is None else {"outside": list(box)}), **({"anomaly": options.anomaly} if options.anomaly else {})}


def _report_level(options: argparse.Namespace, residual: Survey, number: int) -> None:
    """How the residual lies, and whether its edges are off 0."""
    level, unit = residual_level(residual, number), residual.units[number]
    say(f"median:     {_rounded(level.median)} {unit}, {100.0 * level.below:.0f} % of the residuals below 0")
    if level.edges:
        say("edges:      " + ", ".join(f"{name} {_rounded(value)}" for name, value in level.edges.items()) + f" {unit}")
    if level.corners:
        say("corners:    " + ", ".join(f"{name} {_rounded(value)}" for name, value in level.corners.items()) + f" {unit}")
    # A fit below positive anomalies leaves what reaches the edge.
    expected = {"positive": 1.0, "negative": -1.0}.get(options.anomaly or "", 0.0)
    biased = [name for name in level.biased if not expected * level.edges[name] > 0.0]
    against = level.below if options.anomaly == "positive" else 1.0 - level.below if options.anomaly == "negative" else 1.0
    if against < _LEAST_AGAINST:
        warn(PROGRAM, f"{options.out}: {100.0 * (1.0 - against):.0f} % of the residuals are {options.anomaly}; the surface lies "
             "beyond the field between the anomalies, as where there are anomalies of both signs; leave --anomaly out, or fit "
             "outside of the anomalies with --outside")
    if biased:
        high = all(level.edges[name] < 0.0 for name in biased)
        low = all(level.edges[name] > 0.0 for name in biased)
        remedy = ("fit outside of the anomaly with --outside, or give its sign with --anomaly" if options.order is not None
                  else "compare with --order 1 and --outside")
        what = ("the regional field is too high there, and the residual has lost part of a positive anomaly, or a negative one "
                "reaches the edge" if high else
                "the regional field is too low there, and the residual has lost part of a negative anomaly, or a positive one "
                "reaches the edge" if low else
                "the regional field has another slope or shape")
        warn(PROGRAM, f"{options.out}: the residual is not 0 at the edges of the survey ({', '.join(biased)}); {what}; {remedy}")
    elif options.order and not options.anomaly and level.biased_corners and not is_magnetic(residual.codes[number]):
        warn(PROGRAM, f"{options.out}: the residual is not 0 at the corners of the survey ({', '.join(level.biased_corners)}); anomalies have "
             "tilted the regional field, or reach the corner; fit outside of all anomalies with --outside, and compare the models")


def _rounded(value: float) -> str:
    return number_text(float(f"{value:.3g}") + 0.0)


def _report(options: argparse.Namespace, survey: Survey, residual: Survey, regional: Regional, number: int) -> None:
    unit = survey.units[number]
    say(f"file:       {options.out}")
    for label, values in (("field:", survey.data[number]), ("regional:", regional.values), ("residual:", residual.data[number])):
        held = values[np.isfinite(values)]
        low, high = (number_text(float(f"{value:.4g}")) for value in (held.min(), held.max()))
        say(f"{label:<11} {low} to {high} {unit}")
    if regional.method == "polynomial" and regional.coefficients.size:
        say(f"constant:   {number_text(float(f'{regional.coefficients[0]:.4g}'))} {unit} at the middle of the survey")
    if regional.slope is not None:
        east, north = (_rounded(1000.0 * value) for value in regional.slope)
        say(f"slope:      {east} to the east, {north} to the north, {unit} per km at the middle of the survey")
    _report_level(options, residual, number)
    field_range, left = float(np.nanmax(survey.data[number]) - np.nanmin(survey.data[number])), float(np.ptp(regional.values))
    if regional.method != "polynomial" and left > 0.9 * field_range:
        warn(PROGRAM, f"{options.out}: the regional field holds nearly all of the range of the data; use a larger height or "
             "wavelength")
