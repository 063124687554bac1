"""``voxlith-tools vtr``: a mesh and models on it as a VTK rectilinear grid, for ParaView and other viewers."""

from __future__ import annotations

import os
from collections.abc import Sequence
from dataclasses import replace

import numpy as np

from ..errors import FileError, UsageError
from ..io.numbers import number_text
from ..memory import require_memory
from ..mesh import Mesh
from ..model import Model, write_vtr
from ..sensitivity import Sensitivity
from ..side_file import first_coordinates, write_side_file
from .output import check_output, say
from .parser import Parser

PROGRAM = "voxlith-tools"
_BYTES_PER_CELL = 40.0  # of a model

_EXAMPLES = """\
x is the easting, y the northing, z the elevation. No-data cells (values at or below -1e30) are NaN and blanked.

Examples:
  voxlith-tools vtr --mesh m.msh --model voxlith.den --out model.vtr
  voxlith-tools vtr --mesh m.msh --model true=true.den --model recovered=voxlith.den --out both.vtr"""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} vtr", "Write mesh and models as a VTK rectilinear grid (.vtr)", _EXAMPLES)
    add = parser.add_argument
    add("--mesh", metavar="FILE", required=True, help="UBC tensor mesh file")
    add("--model", metavar="[NAME=]FILE", nargs="+", action="extend", required=True,
        help="Model file, or NAME=FILE to name its data; as often as there are models (default of the name: that of the "
             "file)")
    add("--mtx", metavar="FILE", help="Sensitivity file: its inactive cells, above the terrain, become no-data cells")
    add("--out", metavar="FILE", required=True, help="Grid file to write")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    options = make_parser().parse(arguments)
    named = _named(options.model)
    check_output(options.out, {"--mesh": options.mesh, **{f"--model {path}": path for path in named.values()}})
    mesh = Mesh.read(options.mesh)
    require_memory(_BYTES_PER_CELL * mesh.n_cells * len(named), f"{options.mesh}: a mesh of {mesh.n_cells} cells")
    models = [Model.read(path, mesh, name) for name, path in named.items()]
    if options.mtx:
        models = [_without_inactive(model, options.mtx) for model in models]
    write_vtr(options.out, models)
    write_side_file(options.out, first_coordinates([options.mesh, *filter(None, [options.mtx]), *named.values()]))
    for model in models:
        _report(model)
    return 0


def _without_inactive(model: Model, mtx: str) -> Model:
    """The model with no data in the inactive cells of a sensitivity file."""
    with Sensitivity(mtx) as sensitivity:
        if sensitivity.mesh.shape != model.mesh.shape:
            raise FileError(mtx, f"expected {model.mesh}, found {sensitivity.mesh}")
        inactive = sensitivity.inactive_cells()
    return replace(model, values=np.where(inactive, np.nan, model.values))


def split_name(text: str) -> tuple[str, str]:
    """Name and file of a model: ``NAME=FILE``, or a file, whose name without its folders is the name.

    Raises
    ------
    UsageError
        For an empty name or file, and for a name that XML cannot hold.

    >>> split_name("a b=c=d.den"), split_name("/some/where/voxlith.den")
    (('a b', 'c=d.den'), ('voxlith.den', '/some/where/voxlith.den'))
    """
    name, sign, path = text.partition("=")
    if not sign:
        name, path = os.path.basename(text), text
    if not name or not path:
        raise UsageError(f"--model {text}: expected FILE or NAME=FILE")
    for at, character in enumerate(name, 1):
        if ord(character) < 0x20 or 0x7F <= ord(character) < 0xA0 or "\ud800" <= character <= "\udfff" or \
                character in "\ufffe\uffff":
            raise UsageError(f"--model: expected a name in UTF-8 without control characters, found {text} (character {at})")
    return name, path


def _named(texts: Sequence[str]) -> dict[str, str]:
    """Files by the names of the models, which differ."""
    found: dict[str, str] = {}
    for text in texts:
        name, path = split_name(text)
        if name in found:
            raise UsageError(f"--model {text}: the name {name} is that of {found[name]} already; give NAME=FILE")
        found[name] = path
    return found


def _report(model: Model) -> None:
    values = model.values[~np.isnan(model.values)]
    least, most = (float(values.min()), float(values.max())) if len(values) else (0.0, 0.0)
    missing = len(model.values) - len(values)
    say(f"{model.name}: {number_text(least)} to {number_text(most)}"
        + (f", {missing} no-data cells" if missing else ""))
