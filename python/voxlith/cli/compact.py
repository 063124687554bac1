"""``voxlith-tools compact``: a stacked run in rounds, with weights of the model norm that are computed anew from its results:
for compact bodies, and for each type of data at its target misfit."""

from __future__ import annotations

import os
import subprocess
from collections.abc import Sequence

from ..compact import (Compactness, amplitudes, balanced_factors, balanced_weights, changed_share, compact_weights,
                       group_misfit, next_eps)
from ..errors import RunError, UsageError, VoxlithError
from ..io.control_file import ControlFile
from ..io.output import write_bytes
from ..io.weight_file import is_null_name, write_weight_file
from ..model import Model
from ..process import find_program
from ..run import Run
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
Round 0 is voxlith-run --target-rms with the weights of the control file. Each further round weights the smallness of a cell
less, the larger its amplitude was, and the norm of each property so that its data reach the target misfit. --norm 2
only balances the misfits. The last round is that of CONTROL_compact.inp with CONTROL_compact_weights.txt; CONTROL_compact.csv
has a line for each round."""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} compact", "Run a stacked inversion in rounds: compact bodies, each type of data at its misfit", _EXAMPLES)
    add = parser.add_argument
    add("folder", metavar="FOLDER", help="Folder of the run")
    add("--control", metavar="FILE", default="voxlith.inp", help="Control file, seen from FOLDER (default: voxlith.inp)")
    add("--stack", metavar="FILE", help="What voxlith-tools stack wrote (default: NAME.json beside NAME.mtx)")
    add("--rounds", metavar="COUNT", type=integer_within(1, 50), default=_ROUNDS, 
        help=f"Rounds after round 0, 1 to 50 (default: {_ROUNDS})")
    add("--norm", metavar="P", type=number_from(0.0), default=0.0,
        help="Power of the amplitude in the norm, from 0, which counts volume, to 2, which leaves the norm as it is (default: 0)")
    add("--smoothness", metavar="NUMBER", type=number_from(0.0),
        help="Factor of the smoothness from round 1 on (default: 0.001; 1 with --norm 2)")
    add("--target-rms", metavar="R", type=number_from(0.0, above=True), default=1.0, help="RMS misfit of each round (default: 1)")
    add("--cross-gradient", metavar="WEIGHT[,A,B]", help="Couple the structure of two properties in each round, as voxlith-run does")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    if options.norm > 2.0:
        raise UsageError(f"--norm {options.norm:g}: expected a number from 0 to 2")
    words = ["--target-rms", repr(options.target_rms)]
    words += ["--cross-gradient", options.cross_gradient] if options.cross_gradient else []
    first = Run(options.folder, options.control)
    stem = os.path.splitext(options.control)[0]
    stack = StackedRun(first, options.stack).stack
    base = first.weights()
    control = first.control
    if control.values.model_count != 1 or control.values.restart > 0:
        raise VoxlithError(f"{first.path(options.control)}: expected a new run with one model type")
    if is_null_name(control.values.weight_files[0]):
        warn(PROGRAM, f"{options.control}: no weighting file; without the seams of voxlith-tools stack one property is smoothed into the next")
    names = _Names(options.folder, stem)
    smoothness = options.smoothness if options.smoothness is not None else 1.0 if options.norm == 2.0 else _SMOOTHNESS
    _invert(options.folder, options.control, words)
    here = StackedRun(first, stack)
    model = first.model()
    table = ["round," + ",".join([*(f"rms_{one.name}" for one in stack.components),
                                  *(f"amplitude_{stack.properties[group[0]].name}" for group in stack.groups()), "change"])]
    rms = _note(table, names.table, here, 0, model, 1.0)
    factors = [1.0] * len(stack.groups())
    how: Compactness | None = None
    for number in range(1, options.rounds + 1):
        how = Compactness(next_eps(amplitudes(stack, model.values), how), options.norm, smoothness)
        factors = balanced_factors(stack, factors, rms, options.target_rms)
        weights = balanced_weights(stack, compact_weights(stack, base, model.values, how), factors)
        write_weight_file(first.path(names.weights), weights)
        _write_control(control, first, names)
        _invert(options.folder, names.control, words)
        here = StackedRun(Run(options.folder, names.control), stack)
        before, model = model, here.run.model()
        change = changed_share(before, model)
        rms = _note(table, names.table, here, number, model, change)
        if options.norm == 2.0 and _is_balanced(stack, rms, options.target_rms):
            break
    _warn_of_rest(options.norm, change, stack, rms, options.target_rms)
    say(f"Look at it with: voxlith-tools unstack {options.folder} --control {names.control}")
    return 0


def _is_balanced(stack: Stack, rms: list[float], target: float) -> bool:
    misfits = [group_misfit(stack, group, rms) for group in stack.groups()]
    return all(abs(misfit / target - 1.0) <= _BALANCED for misfit in misfits if misfit > 0.0)


def _warn_of_rest(norm: float, change: float, stack: Stack, rms: list[float], target: float) -> None:
    if norm < 2.0 and change > _SETTLED:
        warn(PROGRAM, f"the last round still changed the model by {100.0 * change:.0f} percent; more rounds, or bounds of the amplitude, "
             "settle it")
    if not _is_balanced(stack, rms, target):
        warn(PROGRAM, "the misfits of the types of data differ from the target by more than 5 percent; more rounds balance them")


class _Names:
    """Names of the files beside a control file."""

    def __init__(self, folder: str, stem: str) -> None:
        self.control = f"{stem}_compact.inp"
        self.weights = f"{stem}_compact_weights.txt"
        self.table = os.path.join(folder, f"{stem}_compact.csv")


def _write_control(control: ControlFile, run: Run, names: _Names) -> None:
    control.set(weight_files=(names.weights,))
    control.write(run.path(names.control))


def _program() -> str:
    """The program voxlith-run; where a variable names voxlith, the one beside it."""
    found = find_program(None, "voxlith-run")
    return found if os.path.basename(found) == "voxlith-run" else find_program(os.path.join(os.path.dirname(found), "voxlith-run"))


def _invert(folder: str, control: str, options: Sequence[str]) -> None:
    """A run of voxlith-run to the target misfit. Raises RunError with what it says."""
    words = [_program(), control, *options, "--quiet"]
    done = subprocess.run(words, cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace", check=False)
    if done.returncode != 0:
        said = " ".join(done.stderr.split()) or f"exit status {done.returncode}"
        raise RunError(f"{os.path.join(folder, control)}: {said}")


def _note(table: list[str], path: str, stacked: StackedRun, number: int, model: Model, change: float) -> list[float]:
    """A line of the table, and one on the screen; gives the misfit of each component."""
    stack = stacked.stack
    rms = [fit.rms for fit in stacked.fits()]
    largest = [float(one.max()) * stack.properties[group[0]].scale for one, group in zip(amplitudes(stack, model.values), stack.groups())]
    table.append(",".join([str(number), *(f"{one:.4f}" for one in rms), *(f"{one:.5g}" for one in largest), f"{change:.4f}"]))
    write_bytes(path, ("\n".join(table) + "\n").encode())
    misfits = ", ".join(f"{one.name} {value:.3f}" for one, value in zip(stack.components, rms))
    say(f"round {number}: RMS misfit {misfits}; largest {' '.join(f'{one:.4g}' for one in largest)}"
        + (f"; changed by {100.0 * change:.0f} percent" if number else ""))
    return rms
