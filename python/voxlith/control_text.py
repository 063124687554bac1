"""The text of a control file whose lines and values are explained in it."""

from __future__ import annotations

import math
from collections.abc import Sequence

from .control_choices import Choices

_VALUE_WIDTH = 24


def control_text(choices: Choices, data_file: str, mtx_files: Sequence[str], *, initial: str = "", bounds: str = "",
                 weighting: str = "null", norm: str = "smooth") -> str:
    """Twelve lines with a comment each, product definitions for several files, and after them, where the program reads
    no more, the reasons for the values.

    Parameters
    ----------
    choices : Choices
    data_file, mtx_files : str
        Names as the run will find them.
    initial, bounds : str
        Texts of lines 6 and 8 in place of those of `choices`.
    weighting : str
        Text of line 10. With a file of weights the alphas are 1.
    norm : str
        Model norm of the run.
    """
    count = len(mtx_files)
    labels = " dens susc" if choices.model_count == 2 else ""
    names = " | ".join(mtx_files)
    lines = [
        _line(f"0 {count} {count} {choices.model_count}{labels}",
              "0 new run (1 continue), sensitivity files, data components, model types"),
        _line("2 0 0", "mode (2), background: 0 kept, 1 fitted and removed, 2 removed with the value after it"),
        _line(f"{_short(choices.tradeoff)} 0.02 {choices.sign}",
              "trade-off, not used, sign: -1 negative, 0 either, 1 positive"),
        _line(data_file, "observed data"),
        _line(names, "sensitivities") if len(names) < 200 else names,
        _line(initial or _short(choices.initial), f"initial model: a number or a file, {choices.unit}"),
        _line("0.0", "reference model: a number or a file"),
        _line(bounds or choices.bounds, "bounds lower,upper, or a file, or null"),
        _line("1 1 1 1" if weighting != "null" else f"{_short(choices.alpha_s)} 1 1 1", "alphaS, alphaE, alphaN, alphaZ"),
        _line(weighting, "weighting file"),
        _line("null", "data offset, or file for a refinement"),
        _line(f"{choices.iterations} 0 0", "iterations, interval of stored models (0 none), method (0)"),
        *_products(choices), "", "The lines below are not read.", "", *_tradeoff_reason(choices, count, norm),
        *_sign_reason(choices), *_norm_reason(choices, weighting, norm),
        "Line 12: a limit for runs without options; voxlith-run --target-rms and --until-converged end by themselves.",
        *_product_reason(choices),
    ]
    return "\n".join(lines) + "\n"


def run_options(choices: Choices, norm: str = "smooth") -> str:
    """Options of voxlith-run that fit the data to their standard deviations, those of two models each by themselves."""
    return "--target-rms 1" + (" --per-component" if choices.model_count > 1 else "") + norm_option(norm)


def norm_option(norm: str) -> str:
    """The option of voxlith-run for a model norm, with a space before it; empty for its default."""
    return "" if norm == "smooth" else f" --model-norm {norm}"


def _norm_reason(choices: Choices, weighting: str, norm: str) -> list[str]:
    """What alphas and weights do."""
    if weighting != "null":
        lines = ["Line 10: depth weighting from the sensitivities, for alphas of 1 on line 9. It suits",
                 f"  voxlith-run --target-rms 1{norm_option(norm)}."]
        if norm == "blocky":
            smooth = "twice" if choices.sign == 0 else "1.3 times"
            lines.append(f"  A smooth model, that of --model-norm smooth, can have {smooth} the mass of a body.")
        return lines
    return [f"Line 9: alphaS is 0.005/h for cells of h = {_short(choices.cell)}: smoothness dominates within about ten cells, "
            "smallness beyond."]


def _short(value: float) -> str:
    return f"{value:.6g}"


def _line(value: str, comment: str) -> str:
    return f"{value:<{_VALUE_WIDTH}}{'' if len(value) < _VALUE_WIDTH else ' '}! {comment}"


def _products(choices: Choices) -> list[str]:
    """One product for each component; a single file needs no definition."""
    if len(choices.model_of) < 2:
        return []
    return [f"1 {number} {model + 1} 1.0" for number, model in enumerate(choices.model_of, 1)]


def _tradeoff_reason(choices: Choices, count: int, norm: str) -> list[str]:
    # The misfit in the table of a joint run is a sum over the components.
    wanted = "1" if count == 1 else f"{math.sqrt(count):.2f}, the root of {count} components"
    return [f"Line 3, trade-off: {choices.tradeoff_reason}. voxlith-run {run_options(choices, norm)} replaces it by the one at",
            f"  which the data are fitted to their standard deviations: the RMS misfit of the table ends at {wanted}.",
            "  Runs without that option keep it. A larger one gives a smoother model and a larger misfit."]


def _sign_reason(choices: Choices) -> list[str]:
    word = "positive" if choices.sign > 0 else "negative" if choices.sign < 0 else "of either sign"
    lines = [f"Line 3, sign, and line 8, bounds: model values {word}, in {choices.unit}."]
    if choices.sign == 0 and choices.one_sign:
        high, low = ("of higher (1)", "of lower (-1) susceptibility") if choices.unit == "SI" else ("denser (1)", "less dense (-1)")
        lines.append(f"  A body known to be {high} or {low} than its surroundings is recovered better when its sign is given.")
    return [*lines, "  Narrower bounds that geology gives sharpen the model; 99 or -99 leaves a side free."]


def _product_reason(choices: Choices) -> list[str]:
    if len(choices.model_of) < 2:
        return []
    return ["After line 12: for each component the number of products, then sensitivity file, model, factor."]
