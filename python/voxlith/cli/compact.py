"""``voxlith-tools compact``: a stacked run in rounds, with weights of the model norm that are computed anew from its results:
for compact bodies, and for each type of data at its target misfit."""

from __future__ import annotations

import argparse
import os
import signal
import subprocess
import sys
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np

from ..compact import (Compactness, amplitudes, balanced_factors, balanced_weights, changed_share, compact_weights,
                       component_factors, group_misfit, next_eps, weighted_survey)
from ..compact_progress import CompactProgress, Round
from ..errors import RunError, UsageError, VoxlithError
from ..io.output import write_bytes
from ..io.weight_file import CellWeights, is_null_name, write_weight_file
from ..model import Model
from ..process import find_program
from ..run import Run
from ..side_file import read_side_file, write_side_file
from ..stack import Stack
from ..stacked_run import StackedRun
from .output import say, warn
from .parser import Parser, integer_within, number_from

PROGRAM = "voxlith-tools"
_ROUNDS = 8
_SMOOTHNESS = 1.0e-3
_SETTLED = 0.05
_BALANCED = 0.05

_EXAMPLES = """\
Examples:
  voxlith-tools compact . --control vector.inp
  voxlith-tools compact run1 --control mixed.inp --rounds 10 --norm 1
  voxlith-tools compact . --control mixed.inp --norm 2
  voxlith-tools compact . --control mixed.inp --norm 2 --per-component
Round 0 is voxlith-run --target-rms with the weights of the control file. Each further round reduces the weight of smallness
in cells of large amplitude, and weights the norm of each property so that its data reach the target misfit. With --norm 2
only the misfits are balanced. --per-component fits each data type to the target, by standard deviations for this run only,
CONTROL_compact.obs. CONTROL_compact.inp, with CONTROL_compact_weights.txt, is the control file of the last round;
CONTROL_compact.csv has a line for each round. After a stop, or for more rounds, give the same options and --continue."""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} compact", "Run a stacked inversion in rounds, for compact bodies and a target misfit of each data type",
                    _EXAMPLES)
    add = parser.add_argument
    add("folder", metavar="FOLDER", help="Folder of the run")
    add("--control", metavar="FILE", default="voxlith.inp", help="Control file, seen from FOLDER (default: voxlith.inp)")
    add("--stack", metavar="FILE", help="JSON file that voxlith-tools stack wrote (default: NAME.json beside NAME.mtx)")
    add("--rounds", metavar="COUNT", type=integer_within(1, 50), default=_ROUNDS, 
        help=f"Rounds after round 0, 1 to 50 (default: {_ROUNDS})")
    add("--norm", metavar="P", type=number_from(0.0), default=0.0,
        help="Power of the amplitude in the norm, from 0 (volume, compact bodies) to 2 (smooth, no change of the norm) (default: 0)")
    add("--smoothness", metavar="NUMBER", type=number_from(0.0),
        help="Factor of the smoothness from round 1 on (default: 0.001; 1 with --norm 2)")
    add("--target-rms", metavar="R", type=number_from(0.0, above=True), default=1.0, help="RMS misfit of each round (default: 1)")
    add("--per-component", action="store_true",
        help="Fit each data type to the target misfit, not only the data of each property together")
    add("--continue", dest="go_on", action="store_true", help="Continue after the last complete round of an earlier call with these options")
    add("--cross-gradient", metavar="WEIGHT[,A,B]", help="Couple the structure of two properties in each round, as voxlith-run does")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    if options.norm > 2.0:
        raise UsageError(f"--norm {options.norm:g}: expected a number from 0 to 2")
    before = signal.signal(signal.SIGTERM, _interrupt)
    try:
        return _run_rounds(options)
    finally:
        signal.signal(signal.SIGTERM, before)


def _run_rounds(options: argparse.Namespace) -> int:
    work = _prepare(options)
    progress = CompactProgress(_settings(options))
    if options.go_on:
        progress = CompactProgress.read(work.names.progress)
        progress.require(_settings(options), work.names.progress)
        say(f"{len(progress.rounds) - 1} of {options.rounds} rounds are done")
    elif os.path.exists(work.names.progress):
        os.unlink(work.names.progress)  # of another sequence, which must not be continued from here on
    try:
        model = _last_model(work, progress) if progress.rounds else _first_round(work, progress)
        while len(progress.rounds) <= options.rounds and not (len(progress.rounds) > 1 and _is_done(options, work.stack, progress)):
            model = _next_round(work, progress, model)
    except KeyboardInterrupt:
        how = "--continue goes on with it" if progress.rounds else "no round is complete, so start anew"
        warn(PROGRAM, f"stopped in round {len(progress.rounds)} of {options.rounds}; {how}")
        raise
    _warn_of_rest(options, work.stack, progress)
    say(f"Look at it with: voxlith-tools unstack {options.folder} --control {work.names.control}")
    return 0


def _interrupt(number: int, frame: object) -> None:
    raise KeyboardInterrupt


def _settings(options: argparse.Namespace) -> dict[str, object]:
    """What all rounds have in common."""
    return {"--control": options.control, "--norm": options.norm, "--smoothness": _smoothness(options), "--target-rms": options.target_rms,
            "--cross-gradient": options.cross_gradient, "--per-component": options.per_component or None}


def _smoothness(options: argparse.Namespace) -> float:
    if options.smoothness is not None:
        return float(options.smoothness)
    return 1.0 if options.norm == 2.0 else _SMOOTHNESS


@dataclass(frozen=True)
class _Work:
    """What all rounds use."""

    options: argparse.Namespace
    first: Run
    stack: Stack
    base: CellWeights
    names: _Names
    words: list[str]  # options of voxlith-run


def _prepare(options: argparse.Namespace) -> _Work:
    words = ["--target-rms", repr(options.target_rms)]
    words += ["--cross-gradient", options.cross_gradient] if options.cross_gradient else []
    first = Run(options.folder, options.control)
    stack = StackedRun(first, options.stack).stack
    values = first.control.values
    if values.model_count != 1 or values.restart > 0:
        raise VoxlithError(f"{first.path(options.control)}: expected a new run with one model type")
    if is_null_name(values.weight_files[0]):
        warn(PROGRAM, f"{options.control}: no weighting file; without the seams of voxlith-tools stack one property is smoothed into the next")
    work = _Work(options, first, stack, first.weights(), _Names(options.folder, os.path.splitext(options.control)[0]), words)
    if options.norm < 2.0:
        _warn_of_bounds(options.control, stack, first)
    return work


def _warn_of_bounds(control: str, stack: Stack, run: Run) -> None:
    """Without bounds nothing but the cell size limits how small a compact body becomes."""
    bounds = run.bounds()
    is_free = ~bounds.fixed & (np.isinf(bounds.lower) | np.isinf(bounds.upper))
    free = [known.name for known, part in zip(stack.properties, np.split(is_free, len(stack.properties))) if part.any()]
    if free:
        warn(PROGRAM, f"{control}: no bounds of {', '.join(free)}: a compact body shrinks to few cells of an amplitude that no rock has; give the "
             "largest plausible amplitude to stack, such as --bounds -0.05,0.05")


def _last_model(work: _Work, progress: CompactProgress) -> Model:
    place = os.path.dirname(work.names.progress)
    return Model.read(os.path.join(place, progress.model_file), work.first.mesh, "model")


def _first_round(work: _Work, progress: CompactProgress) -> Model:
    _invert(work.options.folder, work.options.control, work.words, 0)
    model = work.first.model()
    progress.factors = (1.0,) * len(work.stack.groups())
    _note(work, progress, StackedRun(work.first, work.stack), model, 1.0)
    return model


def _next_round(work: _Work, progress: CompactProgress, before: Model) -> Model:
    """A run with weights that follow from the last model. Gives its model, and adds the round to the progress."""
    options, stack, number = work.options, work.stack, len(progress.rounds)
    last = Compactness(progress.eps, options.norm, _smoothness(options)) if progress.eps else None
    how = Compactness(next_eps(amplitudes(stack, before.values), last), options.norm, _smoothness(options))
    factors = balanced_factors(stack, list(progress.factors), list(progress.rounds[-1].rms), options.target_rms)
    weights = balanced_weights(stack, compact_weights(stack, work.base, before.values, how), factors)
    write_weight_file(work.first.path(work.names.weights), weights)
    control = work.first.control
    control.set(weight_files=(work.names.weights,))
    shares = _write_weighted_data(work, progress) if options.per_component else ()
    if shares:
        control.set(data_file=work.names.data)
    control.write(work.first.path(work.names.control))
    _invert(options.folder, work.names.control, work.words, number, resume=options.go_on)
    here = StackedRun(Run(options.folder, work.names.control), stack)
    model = here.run.model()
    progress.eps, progress.factors = how.eps, tuple(factors)
    _note(work, progress, here, model, changed_share(before, model), shares)
    return model


def _write_weighted_data(work: _Work, progress: CompactProgress) -> tuple[float, ...]:
    """Data of the next round with standard deviations by the factors of their types. Gives these factors."""
    stack, run = work.stack, work.first
    tried = [(one.component_factors or [1.0] * len(one.rms), one.rms) for one in progress.rounds]
    shares = tuple(component_factors(stack, tried, work.options.target_rms))
    weighted_survey(stack, run.observed, shares).write(run.path(work.names.data))
    side = read_side_file(run.path(run.control.values.data_file))
    # The data of the control file may contain factors of an earlier sequence.
    whole = [before * share for before, share in zip(side.component_factors(len(shares)), shares)]
    write_side_file(run.path(work.names.data), side.with_step("component-factors", factors=whole))
    return shares


def _is_done(options: argparse.Namespace, stack: Stack, progress: CompactProgress) -> bool:
    """Whether rounds that only balance the misfits have balanced them."""
    return options.norm == 2.0 and _is_balanced(options, stack, list(progress.rounds[-1].rms))


def _is_balanced(options: argparse.Namespace, stack: Stack, rms: list[float]) -> bool:
    target = options.target_rms
    misfits = rms if options.per_component else [group_misfit(stack, group, rms) for group in stack.groups()]
    return all(abs(misfit / target - 1.0) <= _BALANCED for misfit in misfits if misfit > 0.0)


def _warn_of_rest(options: argparse.Namespace, stack: Stack, progress: CompactProgress) -> None:
    change = progress.rounds[-1].change
    if options.norm < 2.0 and change > _SETTLED:
        warn(PROGRAM, f"the last round still changed the model by {100.0 * change:.0f} percent; more rounds, or bounds of the amplitude, "
             "settle it")
    if not _is_balanced(options, stack, list(progress.rounds[-1].rms)):
        warn(PROGRAM, "the misfits of the data types differ from the target by more than 5 percent; more rounds balance them")


class _Names:
    """Names of the files beside a control file."""

    def __init__(self, folder: str, stem: str) -> None:
        self.control = f"{stem}_compact.inp"
        self.weights = f"{stem}_compact_weights.txt"
        self.data = f"{stem}_compact.obs"
        self.table = os.path.join(folder, f"{stem}_compact.csv")
        self.progress = os.path.join(folder, f"{stem}_compact.json")


def _program() -> str:
    """The program voxlith-run; where a variable names voxlith, the one beside it."""
    found = find_program(None, "voxlith-run")
    return found if os.path.basename(found) == "voxlith-run" else find_program(os.path.join(os.path.dirname(found), "voxlith-run"))


def _invert(folder: str, control: str, options: Sequence[str], number: int, *, resume: bool = False) -> None:
    """A run of voxlith-run to the target misfit; with `resume` from its checkpoint, if that is of this round. Raises RunError."""
    words = [_program(), control, *options, "--quiet"]
    if resume and os.path.exists(os.path.join(folder, "voxlith.checkpoint")) and _status([*words, "--continue"], folder)[0] == 0:
        return
    status, said = _status(words, folder)
    if status != 0:
        raise RunError(f"{os.path.join(folder, control)}, round {number}: {said or f'exit status {status}'}")


def _status(words: Sequence[str], folder: str) -> tuple[int, str]:
    """Exit status of a program and what it says on standard error. An interrupt stops it after its iteration."""
    with subprocess.Popen(words, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                          errors="replace") as process:
        try:
            said = process.communicate()[1]
        except KeyboardInterrupt:
            process.terminate()
            process.communicate()
            raise
    return process.returncode, " ".join(said.split())


def _note(work: _Work, progress: CompactProgress, stacked: StackedRun, model: Model, change: float,
          shares: tuple[float, ...] = ()) -> None:
    """Add a round to the progress: a line of the table, and one on the screen."""
    stack, number = work.stack, len(progress.rounds)
    rms = tuple(fit.rms for fit in stacked.fits())
    largest = tuple(float(one.max()) * stack.properties[group[0]].scale
                    for one, group in zip(amplitudes(stack, model.values), stack.groups()))
    progress.rounds.append(Round(rms, largest, change, shares))
    progress.write(work.names.progress, model)
    head = ["round", *(f"rms_{one.name}" for one in stack.components),
            *(f"amplitude_{stack.properties[group[0]].name}" for group in stack.groups()), "change"]
    rows = [[str(at), *(f"{value:.4f}" for value in one.rms), *(f"{value:.5g}" for value in one.largest), f"{one.change:.4f}"]
            for at, one in enumerate(progress.rounds)]
    write_bytes(work.names.table, "".join(",".join(row) + "\n" for row in [head, *rows]).encode())
    misfits = ", ".join(f"{one.name} {value:.3f}" for one, value in zip(stack.components, rms))
    say(f"round {number}: RMS misfit {misfits}; largest {' '.join(f'{one:.4g}' for one in largest)}"
        + (f"; changed by {100.0 * change:.0f} percent" if number else ""))
    sys.stdout.flush()
