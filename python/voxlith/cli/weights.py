"""``voxlith-tools weights``: a weighting file that keeps recovered bodies at their depth."""

from __future__ import annotations

from collections.abc import Sequence

from ..errors import UsageError
from ..io.numbers import number_text
from ..io.weight_file import write_weight_file
from ..weights import DECAY, DECAY_OF_NORM, POWER_LAW_DECAY, power_law_weights, read_cell_sensitivity, sensitivity_weights
from .output import check_output, say
from .parser import Parser, number_from

PROGRAM = "voxlith-tools"

_EXAMPLES = """\
The weights of the model norm follow the sensitivities of the files, or a power of the depth. Weights of padding
cells grow with their volume, so that bodies do not spread into them.

Examples:
  voxlith-tools weights --mtx gz.mtx --out weights.txt
  voxlith-tools weights --mtx gz.mtx gzz.mtx --out weights.txt
  voxlith-tools weights --mtx tmi.mtx --law power --z0 30 --out weights.txt
  voxlith-tools weights --mtx gz.mtx --model-norm blocky --out weights.txt
Name the file on line 10 of the control file. voxlith-tools init also writes and names such a file. The weights suit
voxlith-run with --target-rms or --until-converged, which minimise the model norm exactly."""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} weights", "Write a weighting file that keeps recovered bodies at their depth", _EXAMPLES)
    add = parser.add_argument
    add("--mtx", metavar="FILE", nargs="+", action="extend", required=True, help="Sensitivity file; several for a joint run")
    add("--law", choices=["sensitivity", "power"], default="sensitivity",
        help="Weights from the sensitivities of the files (sensitivity) or a power of the depth (power) (default: sensitivity)")
    add("--decay", metavar="NUMBER", type=number_from(0.0),
        help=f"Power of the depth with which the weights decay below the stations (default: {DECAY:g}, or "
             f"{DECAY_OF_NORM['blocky']:g} for a blocky norm; {POWER_LAW_DECAY:g} with --law power)")
    add("--model-norm", choices=list(DECAY_OF_NORM), default="smooth",
        help="Model norm of the run, as for voxlith-run (default: smooth)")
    add("--z0", metavar="METRES", type=number_from(0.0, above=True),
        help="Added to the depth, with --law power (default: half the first layer)")
    add("--out", metavar="FILE", required=True, help="Weighting file to write")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    if options.z0 is not None and options.law != "power":
        raise UsageError("--z0 goes with --law power")
    decay = options.decay
    if decay is None:
        decay = POWER_LAW_DECAY if options.law == "power" else DECAY_OF_NORM[options.model_norm]
    check_output(options.out, {f"--mtx {name}": name for name in options.mtx})
    header, mesh, sensitivity = read_cell_sensitivity(options.mtx)
    made = sensitivity_weights(mesh, sensitivity, header, DECAY if options.law == "power" else decay)
    if options.law == "power":
        made = power_law_weights(mesh, mesh.flat(made.active), z0=options.z0, decay=decay)
    write_weight_file(options.out, made.cells)
    weights = made.cells.smallness[made.active] / float(made.cells.smallness[made.active].max())
    say(f"{options.out}: {mesh.nx} x {mesh.ny} x {mesh.nz} cells, {int(made.active.sum())} active")
    least = number_text(float(f"{weights.min():.3g}"))
    say(f"weights:        1 to {least}, falling like (depth + z0)^-{number_text(decay)} below the stations")
    if options.law == "sensitivity":
        say(f"power:          {made.power:.3f} of the relative sensitivities")
    say("alphas:         1 1 1 1 go with these weights on line 9")
    return 0
