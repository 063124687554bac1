"""``voxlith-tools bounds``: a bounds file from a lithology model."""

from __future__ import annotations

from collections.abc import Sequence

from ..errors import UsageError
from ..io.bounds_file import write_bounds_file
from ..lithology import LithologyBounds, Pair, UnitTable, bounds_of_units, describe_pair, parse_pair, read_unit_cells
from ..memory import require_memory
from ..mesh import Mesh
from .output import check_output, say
from .parser import Parser

PROGRAM = "voxlith-tools"
_BYTES_PER_CELL = 80.0

_EXAMPLES = """\
A bound of 99 or -99 leaves that side free; fixed cells keep their initial values.

Examples:
  voxlith-tools bounds --mesh m.msh --units geology.mod --unit 1=0,0.1 --unit 2=0.2,0.6 --unit 9=fixed --out bounds.txt
  voxlith-tools bounds --mesh m.msh --units geology.mod --table units.txt --default -99,99 --fixed known.mod \\
      --out bounds.txt"""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} bounds", "Write a bounds file from a lithology model", _EXAMPLES)
    add = parser.add_argument
    add("--mesh", metavar="FILE", required=True, help="UBC tensor mesh file")
    add("--units", metavar="FILE", required=True,
        help="File with a whole number per cell in cell order: its unit; values at or below -1e30 are no-data cells, "
             "which are fixed")
    add("--table", metavar="FILE",
        help="Table of units, one line per unit: unit lower upper, or unit fixed; comments after ! or #")
    add("--unit", metavar="UNIT=LOWER,UPPER", action="append", default=[],
        help="unit=lower,upper or unit=fixed, as often as there are units")
    add("--default", metavar="LOWER,UPPER",
        help="lower,upper or fixed for units without bounds of their own (default: there must be none)")
    add("--fixed", metavar="FILE",
        help="Mask, 0 or 1 per cell in cell order: 1 fixes the cell at its initial value")
    add("--out", metavar="FILE", required=True, help="Bounds file to write")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    check_output(options.out, {"--mesh": options.mesh, "--units": options.units, "--table": options.table,
                               "--fixed": options.fixed})
    table = _table(options.table, options.unit)
    default = parse_pair(f"--default {options.default}", options.default) if options.default else None
    mesh = Mesh.read(options.mesh)
    require_memory(_BYTES_PER_CELL * mesh.n_cells, f"{options.mesh}: a mesh of {mesh.n_cells} cells")
    units = read_unit_cells(options.units, mesh.n_cells)
    mask = read_unit_cells(options.fixed, mesh.n_cells) if options.fixed else None
    bounds = bounds_of_units(units, table, default, mask)
    write_bounds_file(options.out, bounds.pairs)
    _report(bounds, table, default)
    return 0


def _table(path: str | None, units: Sequence[str]) -> UnitTable:
    table = UnitTable()
    if path:
        table.read(path)
    for text in units:
        unit, sign, pair = text.partition("=")
        if not sign:
            raise UsageError(f"--unit {text}: expected unit=lower,upper or unit=fixed")
        table.add(f"--unit {text}", unit, pair)
    return table


def _report(bounds: LithologyBounds, table: UnitTable, default: Pair | None) -> None:
    for unit, cells in bounds.cells.items():
        say(f"unit {unit:<10} {cells} cells, {describe_pair(table.pairs[unit])}")
    if bounds.by_default and default is not None:
        say(f"other units     {bounds.by_default} cells, {describe_pair(default)}")
    if bounds.by_mask:
        say(f"mask            {bounds.by_mask} cells, fixed")
    if bounds.no_data:
        say(f"no data         {bounds.no_data} cells, fixed")
