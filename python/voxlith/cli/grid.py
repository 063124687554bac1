"""``voxlith-tools grid``: regular grids of GemPy and tensor grids of Tomofast-x as a mesh and a model."""

from __future__ import annotations

import argparse
import os
from collections.abc import Sequence

import numpy as np

from ..errors import UsageError
from ..export import from_gempy, from_tomofast
from ..io.gempy_file import read_gempy_file
from ..io.tomofast_file import read_tomofast_file
from ..mesh import Mesh
from ..model import Model
from .output import check_output, say
from .parser import Parser, number_list

PROGRAM = "voxlith-tools"

_EXAMPLES = """\
A file that ends in .npy or .npz is read as one of GemPy, any other as one of Tomofast-x. A grid with three components gives
three models, with _1, _2 and _3 in their names.

Examples:
  voxlith-tools grid lith.npy --extent 0,2000,0,2000,-1000,0 --resolution 40,40,20 --out-mesh g.msh --out lith.mod
  voxlith-tools grid lith.npz --mesh m.msh --out units.mod
  voxlith-tools grid model_grid.txt --out-mesh t.msh --out start.den
  voxlith-tools grid grid.txt --values values.txt --out-mesh t.msh --out start.den"""


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} grid", "Read a grid of GemPy or Tomofast-x into a mesh and a model", _EXAMPLES)
    add = parser.add_argument
    add("grid", metavar="FILE", help="Grid file")
    add("--extent", metavar="W,E,S,N,BOTTOM,TOP", help="west,east,south,north,bottom,top of a .npy file, metres")
    add("--resolution", metavar="NX,NY,NZ", help="Cells of a .npy file along x, y and z")
    add("--values", metavar="FILE", help="File of values beside a Tomofast-x grid file without values")
    add("--mesh", metavar="FILE", help="UBC tensor mesh whose cells get the value at their centre (GemPy)")
    add("--out-mesh", metavar="FILE", help="UBC tensor mesh of the grid to write")
    add("--out", metavar="FILE", required=True, help="Model file to write")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    parser = make_parser()
    options = parser.parse(arguments)
    parser.exclusive(options, "mesh", "out-mesh")
    gempy = options.grid.lower().endswith((".npy", ".npz"))
    for option in ("values",) if gempy else ("extent", "resolution", "mesh"):
        if getattr(options, option) is not None:
            parser.error(f"--{option}: not for a grid of {'GemPy' if gempy else 'Tomofast-x'}")
    inputs = {"the grid": options.grid, "--values": options.values, "--mesh": options.mesh}
    for output in (options.out, options.out_mesh):
        if output:
            check_output(output, inputs)
    models = _of_gempy(options) if gempy else from_tomofast(read_tomofast_file(options.grid, options.values))
    if options.out_mesh:
        models[0].mesh.write(options.out_mesh)
    for number, model in enumerate(models, 1):
        stem, ending = os.path.splitext(options.out)
        name = options.out if len(models) == 1 else f"{stem}_{number}{ending}"
        model.write(name, digits="full")
        missing = int(np.isnan(model.values).sum())
        say(f"{name}: {model.mesh.nx} x {model.mesh.ny} x {model.mesh.nz} cells"
            + (f", {missing} no-data cells" if missing else ""))
    return 0


def _of_gempy(options: argparse.Namespace) -> list[Model]:
    extent, resolution = options.extent, options.resolution
    ends = None if extent is None else number_list("--extent", "xmin,xmax,ymin,ymax,zmin,zmax", extent, 6)
    counts = None if resolution is None else number_list("--resolution", "nx,ny,nz", resolution, 3)
    if counts is not None and any(count != int(count) for count in counts):
        raise UsageError(f"--resolution {resolution}: expected whole numbers nx,ny,nz")
    grid = read_gempy_file(options.grid, ends, None if counts is None else [int(count) for count in counts])
    return [from_gempy(grid, None if options.mesh is None else Mesh.read(options.mesh))]
