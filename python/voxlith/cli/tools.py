"""``voxlith-tools``: prepare surveys for the inversion and look at its files.

A subcommand is a module of this package, imported when it is asked for; ``mtx`` and ``predict`` are handed to the program
that computes.
"""

from __future__ import annotations

import importlib
import sys
from collections.abc import Sequence
from typing import Final

from .. import __version__
from .output import run_program
from .parser import suggestion

PROGRAM: Final = "voxlith-tools"

SUBCOMMANDS: Final[dict[str, str]] = {
    "obs": "Convert a CSV to observed data, or observed data to a CSV",
    "check": "Check survey data for faults that would spoil an inversion",
    "regional": "Separate a regional field from the anomalies of a survey",
    "mesh": "Write a padded mesh below the stations of a survey",
    "terrain": "Write points of the ground surface from a raster or a table",
    "mtx": "Compute the sensitivity file of a survey",
    "mtx-join": "Join sensitivity files that contain parts of the rows",
    "bounds": "Write a bounds file from a lithology model",
    "weights": "Write a weighting file that keeps recovered bodies at their depth",
    "init": "Write a control file with comments for data and sensitivity files",
    "stack": "Combine several properties in one model, and several data types in one run",
    "unstack": "Split the results of a stacked run by property and data type",
    "compact": "Run a stacked inversion in rounds, for compact bodies and a target misfit of each data type",
    "bodies": "List the bodies of a model: position, depth, excess mass",
    "report": "Write an interactive report of a run (HTML), or follow a run",
    "export": "Write models and data as geoh5, VTK, GeoTIFF, CSV, GemPy or Tomofast-x",
    "vtr": "Write mesh and models as a VTK rectilinear grid (.vtr)",
    "grid": "Read a grid of GemPy or Tomofast-x into a mesh and a model",
    "predict": "Compute data of a model by prisms, without compression",
    "info": "Print the header of a sensitivity file",
}
_COMPUTED = ("mtx", "mtx-join", "predict")


def help_text() -> str:
    """What ``voxlith-tools --help`` shows."""
    lines = [f"usage: {PROGRAM} SUBCOMMAND [OPTIONS]", "",
             "The steps before and after an inversion, from a survey to a model and its report", "",
             "options:", "  -h, --help     Show this help and end", "  --version      Show the version and end", "",
             "subcommands, in the order of work:"]
    lines += [f"  {name:<14} {text}" for name, text in SUBCOMMANDS.items()]
    return "\n".join([*lines, "", f"{PROGRAM} SUBCOMMAND --help shows the options of a subcommand, with examples."])


def main(arguments: Sequence[str] | None = None) -> int:
    """Run the program with these arguments, those of the command line by default; gives the exit status."""
    words = list(sys.argv[1:] if arguments is None else arguments)
    return run_program(PROGRAM, lambda: _run(words))


def _run(words: list[str]) -> int:
    if not words:
        return _wrong("a subcommand is required: " + ", ".join(SUBCOMMANDS))
    name, rest = words[0], words[1:]
    if name in ("-h", "--help"):
        print(help_text())
        return 0
    if name == "--version" or (name in _COMPUTED and _asks_version(name, rest)):
        print(f"{PROGRAM} {__version__}")
        return 0
    if name in _COMPUTED:
        from .forward import run_forward
        return run_forward(name, rest)
    if name not in SUBCOMMANDS:
        what = "option" if name.startswith("-") else "subcommand"
        return _wrong(f"{name}: no such {what}{suggestion(name, ['--help', '--version', *SUBCOMMANDS])}")
    module = importlib.import_module(f".{name}", __package__)
    status: int = module.run(rest)
    return status


def _asks_version(command: str, words: list[str]) -> bool:
    """Whether the version of the program is asked for: ``--version N`` of mtx is that of the file."""
    following = zip(words, [*words[1:], "-"], strict=True)
    return any(word == "--version" and (command == "predict" or after.startswith("-")) for word, after in following)


def _wrong(text: str) -> int:
    from ..errors import UsageError
    raise UsageError(text)
