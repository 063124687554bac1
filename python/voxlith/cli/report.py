"""``voxlith-tools report``: an interactive report of a run as one HTML file, or a page that follows the run."""

from __future__ import annotations

import os
from collections.abc import Sequence

from ..errors import UsageError, VoxlithError
from ..report import ReportOptions, write_report
from ..report.coarsening import MOST_CELLS
from ..run import Run
from ..stacked_run import by_property, require_run
from .output import check_output, say
from .parser import Parser, integer_within

PROGRAM = "voxlith-tools"
_HIGHEST_PORT = 65535

_EXAMPLES = """\
The run may still be active. The HTML file opens in any browser and loads nothing from a network.

Examples:
  voxlith-tools report run1
  voxlith-tools report run1 --out gravity.html --title "Gravity, first run"
  voxlith-tools report run1 --follow"""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} report", "Write an interactive report of a run, or follow a run in the browser", _EXAMPLES)
    add = parser.add_argument
    add("run", metavar="FOLDER", help="Folder of the run")
    add("--out", metavar="FILE", help="HTML file to write (default: report.html in the folder of the run)")
    add("--control", metavar="FILE", default="voxlith.inp", help="Control file in the folder (default: voxlith.inp)")
    add("--title", metavar="TEXT", default="", help="Heading (default: the name of the folder)")
    add("--whole-mesh", action="store_true", help="Show padding cells, too")
    add("--cells", metavar="NUMBER", type=integer_within(1000, 10_000_000), default=MOST_CELLS,
        help=f"Coarsen models that have more cells than this (default: {MOST_CELLS})")
    add("--true", metavar="FILE", help="Outlines of true bodies (default: true_bodies.json of the run, if any)")
    add("--topography", metavar="FILE", help="Ground surface: a raster, a table with x, y and z, or UBC points (default: top of active cells)")
    add("--vectors", metavar="X,Y,Z", help="Labels of the models that are the vector components to the east, to the north "
                                           "and down, or upwards if Z is up (default: mx,my,mz, if there are any)")
    add("--tradeoff-table", metavar="FILE", help="Table of trade-offs for the L-curve (default: "
                                                 "voxlith_tradeoff.csv of the run, if any)")
    add("--follow", action="store_true", help="Show an active run in the browser, until Ctrl-C")
    add("--port", metavar="NUMBER", type=integer_within(0, _HIGHEST_PORT), default=0,
        help="Port of --follow on this machine (default: a free one)")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    parser = make_parser()
    given = parser.parse(arguments)
    if given.follow and given.out:
        parser.error("--follow and --out exclude each other")
    if given.port and not given.follow:
        parser.error("--port: expected together with --follow")
    options = ReportOptions(title=given.title, most_cells=given.cells, whole_mesh=given.whole_mesh, true_bodies=given.true,
                            topography=given.topography, vectors=_labels(given.vectors), tradeoff_table=given.tradeoff_table)
    work = Run(given.run, given.control)
    require_run(work, "give that of the stacked run, with its --control")
    work = by_property(work)
    return _follow(work, options, given.port) if given.follow else _write(work, options, given.out)


def _labels(text: str | None) -> tuple[str, str, str] | None:
    if text is None:
        return None
    words = [word.strip() for word in text.split(",")]
    if len(words) != 3 or not all(words):
        raise UsageError(f"--vectors {text}: expected three labels with commas between them")
    return words[0], words[1], words[2]


def _write(work: Run, options: ReportOptions, out: str | None) -> int:
    values = work.control.values
    path = os.fspath(work.path("report.html")) if out is None else out
    if not path.endswith((".html", ".htm")):
        raise UsageError(f"--out {path}: expected a name that ends in .html")
    inputs = {"RUN": work.path(work.control_name), "the data file": work.path(values.data_file)}
    inputs |= {f"sensitivity file {number}": work.path(name) for number, name in enumerate(values.mtx_files, 1)}
    check_output(path, {**inputs, "--true": options.true_bodies, "--topography": options.topography,
                        "--tradeoff-table": options.tradeoff_table})
    write_report(work, path, options)
    say(f"{path}: {os.path.getsize(path) / 1.0e6:.2f} MB")
    return 0


def _follow(work: Run, options: ReportOptions, port: int) -> int:
    from ..report.server import FollowServer
    try:
        server = FollowServer(work, options, port)
    except OSError as error:
        raise VoxlithError(f"--port {port}: {error.strerror}") from error
    say("Open this address in the browser; it is valid on this machine until Ctrl+C, which does not touch the run.")
    print(server.address, flush=True)
    try:
        server.serve()
    except KeyboardInterrupt:
        say()
    return 0
