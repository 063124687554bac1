"""``voxlith-tools export``: models and data of a run, or model files, in the formats of other programs."""

from __future__ import annotations

import argparse
import os
from collections.abc import Callable, Sequence
from dataclasses import dataclass

from ..amounts import count_text
from ..errors import UsageError
from ..export import Placement
from ..io.numbers import parse_integer
from ..memory import require_memory
from ..mesh import Mesh
from ..model import Model, write_vtr
from ..run import Fit, Run
from ..section import Section, section_between
from ..side_file import SideInfo, first_coordinates, other_coordinates, read_side_file, write_side_file
from ..stacked_run import StackedRun, is_stacked, require_run
from ..survey import Survey
from .output import check_output, say, warn
from .parser import Parser, number_from, number_list
from .vtr import split_name

PROGRAM = "voxlith-tools"
_BYTES_PER_CELL = 80.0
_ENDINGS = {"geoh5": (".geoh5",), "vtk": (".vtr", ".vti"), "geotiff": (".tif", ".tiff"), "csv": (".csv",),
            "netcdf": (".nc",), "gempy": (".npz",), "tomofast": (".txt",), "geopackage": (".gpkg",)}

_EXAMPLES = """\
The ending of --out selects the format: .geoh5, .vtr or .vti (VTK), .tif (GeoTIFF), .csv, .nc (NetCDF), .npz (GemPy),
.txt (Tomofast-x), .gpkg (GeoPackage). A GeoTIFF contains depth slices; with --section a vertical section, with --data-grid the
data. A GeoPackage contains the stations with observed, predicted and residual data, as does a CSV with --stations.

Examples:
  voxlith-tools export run1 --out run1.geoh5
  voxlith-tools export run1 --out run1.vtr
  voxlith-tools export run1 --out slices.tif --crs EPSG:32633 --layers 1:8
  voxlith-tools export run1 --out section.tif --section y=5538000
  voxlith-tools export run1 --out section.csv --section 457000,5538000,459000,5539500
  voxlith-tools export run1 --out data.tif --data-grid auto
  voxlith-tools export run1 --out data.nc --data-grid 25
  voxlith-tools export run1 --out stations.gpkg
  voxlith-tools export run1 --out stations.csv --stations
  voxlith-tools export --mesh m.msh --model density=voxlith.den --out cells.csv"""


@dataclass(frozen=True)
class _Source:
    """What is exported, and the files that it comes from."""

    models: list[Model]
    fits: list[Fit]
    placement: Placement
    inputs: dict[str, str]
    stations: Survey | None = None
    names: tuple[str, ...] = ()


@dataclass(frozen=True)
class _Task:
    """A file to write: models and data at their place, and what was asked for."""

    out: str
    models: list[Model]
    fits: list[Fit]
    stations: Survey | None
    asked: argparse.Namespace
    crs: str
    names: tuple[str, ...] = ()

    @property
    def fit(self) -> Fit | None:
        """The data where they are of one run, and not of several types that have units of their own."""
        return self.fits[0] if len(self.fits) == 1 else None


def make_parser() -> Parser:
    """The options."""
    parser = Parser(f"{PROGRAM} export", "Write models and data of a run in the formats of other programs", _EXAMPLES)
    add = parser.add_argument
    add("run", metavar="FOLDER", nargs="?", help="Folder of the run; or give --mesh and --model")
    add("--control", metavar="FILE", default="voxlith.inp", help="Control file in the folder (default: voxlith.inp)")
    add("--mesh", metavar="FILE", help="UBC tensor mesh file, for models without a run")
    add("--model", metavar="[NAME=]FILE", nargs="+", action="extend", help="Model file, or NAME=FILE; as often as there are models")
    add("--out", metavar="FILE", required=True, help="File to write; its ending selects the format")
    add("--choose", metavar="NAME", help="One of several models, by its number from 1 or its label (GeoTIFF, GemPy, Tomofast-x)")
    add("--iteration", metavar="NUMBER", help="Models that the run has stored at this iteration, without data")
    add("--layers", metavar="A:B", help="Layers of a GeoTIFF or CSV, counted from 1 at the top (default: all)")
    add("--section", metavar="WHERE", help="A vertical section as GeoTIFF or CSV: x=EASTING, y=NORTHING, two points X1,Y1,X2,Y2, or "
        "stations, below those of one straight line")
    add("--data-grid", metavar="METRES|{auto}", type=_grid_cell, help="Observed, predicted and residual data on a grid with pixels of this size, or auto, "
        "as GeoTIFF or NetCDF")
    add("--stations", action="store_true", help="Stations with observed, predicted and residual data as CSV, in place of cells")
    add("--crs", metavar="CRS", help="Coordinate reference system (default: that of the data file)")
    return parser


def run(arguments: Sequence[str]) -> int:
    """Run the subcommand; gives the exit status. Raises VoxlithError."""
    parser = make_parser()
    options = parser.parse(arguments)
    kind = next((kind for kind, endings in _ENDINGS.items() if options.out.lower().endswith(endings)), None)
    if kind is None:
        known = ", ".join(ending for endings in _ENDINGS.values() for ending in endings)
        raise UsageError(f"--out {options.out}: expected a name that ends in one of {known}")
    if (options.run is None) == (options.mesh is None) or (options.mesh is None) != (not options.model):
        parser.error("expected either a run, or --mesh and --model")
    if options.mesh is not None and options.iteration is not None:
        parser.error("--iteration: expected together with a run")
    _check_kind(parser, options, kind)
    source = _of_files(options.mesh, options.model) if options.run is None else _of_run(
        Run(options.run, options.control), _number("--iteration", options.iteration), bool(options.data_grid) or _wants_stations(options, kind))
    check_output(options.out, source.inputs)
    placed = source.placement
    other = other_coordinates(SideInfo(options.crs or ""), SideInfo(placed.crs))
    if other:
        raise UsageError(f"--crs {options.crs}: the data are in {placed.crs}; --crs names their system and converts nothing")
    task = _Task(options.out, [placed.model(model) for model in source.models],
                 [Fit(placed.survey(fit.observed), fit.predicted) for fit in source.fits],
                 None if source.stations is None else placed.survey(source.stations), options, options.crs or placed.crs, source.names)
    if options.data_grid:
        _write_data_grid(task)
    elif options.section:
        _write_section(task)
    elif _wants_stations(options, kind):
        _write_stations(task)
    else:
        _WRITERS[kind](task)
    if kind not in ("geotiff", "netcdf", "geopackage"):  # which name their reference system themselves
        write_side_file(options.out, SideInfo(task.crs))
    return 0


def _grid_cell(text: str) -> float | str:
    """Size of pixels, or auto."""
    return text if text == "auto" else number_from(0.0, above=True)(text)


def _wants_stations(options: argparse.Namespace, kind: str) -> bool:
    return bool(options.stations) or kind == "geopackage"


def _check_kind(parser: Parser, options: argparse.Namespace, kind: str) -> None:
    """Options that only some formats have."""
    for option, kinds, names in (("layers", ("geotiff", "csv"), "a GeoTIFF (.tif) or a CSV"),
                                 ("section", ("geotiff", "csv"), "a GeoTIFF (.tif) or a CSV"),
                                 ("data_grid", ("geotiff", "netcdf"), "a GeoTIFF (.tif) or NetCDF (.nc)")):
        if getattr(options, option) is not None and kind not in kinds:
            parser.error(f"--{option.replace('_', '-')}: expected together with {names}")
    for one, other in (("layers", "section"), ("layers", "data-grid"), ("section", "data-grid"), ("iteration", "data-grid"),
                       ("choose", "data-grid")):
        parser.exclusive(options, one, other)
    for option in ("layers", "section", "data-grid", "iteration"):
        parser.exclusive(options, "stations", option)
    if options.stations and kind not in ("csv", "geopackage"):
        parser.error("--stations: expected together with a CSV or a GeoPackage (.gpkg)")
    if _wants_stations(options, kind) and (options.run is None or options.iteration is not None):
        parser.error("stations: expected a run without --iteration, which has predicted data")
    if kind == "netcdf" and options.data_grid is None:
        parser.error(f"--out {options.out}: expected --data-grid with NetCDF, which holds data")
    if options.data_grid is not None and options.run is None:
        parser.error("--data-grid: expected a run, which has data")
    if options.choose and kind not in ("geotiff", "gempy", "tomofast"):
        parser.error(f"--choose: a file {options.out} holds all models")


def _number(option: str, text: str | None) -> int | None:
    if text is None:
        return None
    value = parse_integer(text)
    if value is None or value < 0:
        raise UsageError(f"{option} {text}: expected a whole number of 0 or more")
    return value


def _of_run(work: Run, iteration: int | None, all_data: bool) -> _Source:
    require_run(work, f"export its models with --mesh {work.path('mesh.msh')} --model {work.path('PROPERTY.mod')} ...")
    values = work.control.values
    mesh = work.mesh
    require_memory(_BYTES_PER_CELL * mesh.n_cells * values.model_count, f"{work.folder}: models of {mesh.n_cells} cells")
    data_file = os.fspath(work.path(values.data_file))
    side = first_coordinates([data_file, *map(work.path, values.mtx_files)])
    inputs = {"the control file": os.fspath(work.path(work.control_name)), "the data file": data_file}
    inputs |= {f"sensitivity file {number}": os.fspath(work.path(name)) for number, name in enumerate(values.mtx_files, 1)}
    with_data = iteration is None and work.path("voxlith.pre").is_file()
    placement = Placement(side.crs, side.shift)
    if is_stacked(work):
        models, fits = _of_stack(work, iteration, with_data, all_data)
        return _Source(models, fits, placement, inputs, fits[0].observed if fits else None)
    return _Source(work.models(iteration), [work.fit()] if with_data else [], placement, inputs, work.observed,
                   tuple(read_side_file(data_file).station_names(work.headers[0].n_data)))


def _of_stack(work: Run, iteration: int | None, with_data: bool, all_data: bool) -> tuple[list[Model], list[Fit]]:
    """A model for each property on the mesh of one, and the data."""
    stacked = StackedRun(work)
    fits = stacked.fits() if with_data else []
    if len(fits) > 1 and not all_data:
        names = ", ".join(one.name for one in fits)
        warn(PROGRAM, f"{work.folder}: the data {names} of the stacked run are left out; a GeoPackage (--out .gpkg), --data-grid and "
             "voxlith-tools unstack hold them")
    return stacked.models(iteration), [one.fit() for one in fits]


def _of_files(mesh_file: str, texts: Sequence[str]) -> _Source:
    mesh = Mesh.read(mesh_file)
    require_memory(_BYTES_PER_CELL * mesh.n_cells * len(texts), f"{mesh_file}: a mesh of {mesh.n_cells} cells")
    named = [split_name(text) for text in texts]
    if len({name for name, _ in named}) != len(named):
        raise UsageError("--model: expected names that differ; give NAME=FILE")
    inputs = {"--mesh": mesh_file, **{f"--model {path}": path for _, path in named}}
    side = first_coordinates([mesh_file, *(path for _, path in named)])
    models = [Model.read(path, mesh, name) for name, path in named]
    return _Source(models, [], Placement(side.crs, side.shift), inputs)


def _choose(models: list[Model], choice: str | None) -> Model:
    if choice is None:
        if len(models) > 1:
            raise UsageError(f"--choose: expected one of the models {_listed(models)}")
        return models[0]
    number = parse_integer(choice)
    if number is not None and 1 <= number <= len(models):
        return models[number - 1]
    found = [model for model in models if choice in (model.name, model.name.rpartition(" ")[2])]
    if len(found) != 1:
        raise UsageError(f"--choose {choice}: expected one of the models {_listed(models)}")
    return found[0]


def _listed(models: list[Model]) -> str:
    return ", ".join(f"{number} {model.name}" for number, model in enumerate(models, 1))


def _write_geoh5(task: _Task) -> None:
    from ..export import write_run_geoh5
    write_run_geoh5(task.out, task.models, task.fit)
    stations = "" if task.fit is None else f", {task.fit.observed.n_stations} stations"
    say(f"{task.out}: {task.models[0].mesh.n_cells} cells, {count_text(len(task.models), 'model')}{stations}")


def _write_vtk(task: _Task) -> None:
    from ..export import write_stations_vtp, write_vti
    if task.out.lower().endswith(".vti"):
        write_vti(task.out, task.models)
    else:
        write_vtr(task.out, task.models)
    say(f"{task.out}: {task.models[0].mesh.n_cells} cells, {count_text(len(task.models), 'model')}")
    if task.fit is not None:
        stations = f"{os.path.splitext(task.out)[0]}_stations.vtp"
        write_stations_vtp(stations, task.fit)
        say(f"{stations}: {task.fit.observed.n_stations} stations")


def _write_geotiff(task: _Task) -> None:
    from ..export import write_depth_slices
    model = _choose(task.models, task.asked.choose)
    bands, rows, columns = write_depth_slices(task.out, model, task.crs, _layers(task.asked.layers, model.mesh.nz))
    say(f"{task.out}: {bands} bands of {columns} x {rows} pixels, {task.crs or 'no coordinate reference system'}")


def _layers(text: str | None, count: int) -> range | None:
    if text is None:
        return None
    first, colon, last = text.partition(":")
    ends = [parse_integer(first), parse_integer(last if colon else first)]
    if ends[0] is None or ends[1] is None or not 1 <= ends[0] <= ends[1] <= count:
        raise UsageError(f"--layers {text}: expected A:B from 1 to {count}")
    return range(ends[0] - 1, ends[1])


def _write_csv(task: _Task) -> None:
    from ..export import write_cells_csv
    layers = _layers(task.asked.layers, task.models[0].mesh.nz)
    say(f"{task.out}: {write_cells_csv(task.out, task.models, layers)} active cells")


def _write_section(task: _Task) -> None:
    from ..export import section
    plane = _section(task.asked.section, task.models[0].mesh, task.stations)
    if task.out.lower().endswith(".csv"):
        say(f"{task.out}: {section.write_section_csv(task.out, task.models, plane)} active cells")
        return
    rows, columns = section.write_section_geotiff(task.out, _choose(task.models, task.asked.choose), plane, task.crs)
    step = section.section_side(plane, task.crs).history[0]
    say(f"{task.out}: {columns} x {rows} pixels, {step['horizontal']} and {step['vertical']}")
    say("from " + " to ".join(f"{x:.12g},{y:.12g}" for x, y in (step["start"], step["end"])))


def _section(text: str, mesh: Mesh, stations: Survey | None) -> Section:
    from ..export import section
    if text == "stations":
        if stations is None:
            raise UsageError("--section stations: expected a run with data of one type")
        return section.section_of_stations(mesh, stations)
    normal, equals, value = text.partition("=")
    if equals and normal in ("x", "y"):
        return section.section_at(mesh, normal, *number_list("--section", f"{normal}=METRES", value, 1))
    west, south, east, north = number_list("--section", "x=EASTING, y=NORTHING, X1,Y1,X2,Y2 or stations", text, 4)
    return section_between(mesh, (west, south), (east, north))


def _write_stations(task: _Task) -> None:
    from ..export.stations import station_columns, write_stations_csv, write_stations_geopackage
    from ..survey import numbered_names
    if not task.fits:
        raise UsageError("stations: expected a run with predicted data (voxlith.pre)")
    layer_names = ["stations"] if len(task.fits) == 1 else numbered_names([fit.observed.names[0].lower() for fit in task.fits])
    layers = [(name, station_columns(fit, task.names)) for name, fit in zip(layer_names, task.fits)]
    if task.out.lower().endswith(".csv"):
        if len(layers) > 1:
            raise UsageError(f"--out {task.out}: expected data of one type for a CSV, found {len(layers)}; use .gpkg, or voxlith-tools unstack")
        write_stations_csv(task.out, layers[0][1], task.crs)
    else:
        write_stations_geopackage(task.out, layers, task.crs)
    for (name, columns), fit in zip(layers, task.fits):
        say(f"{task.out}: {name}, {count_text(fit.observed.n_stations, 'station')}, {count_text(len(columns), 'column')}, "
            f"{task.crs or 'no coordinate reference system'}")


def _write_data_grid(task: _Task) -> None:
    from ..export.data_grid import METHOD, grid_data, write_data_geotiff, write_data_netcdf
    if not task.fits:
        raise UsageError("--data-grid: expected a run with predicted data (voxlith.pre)")
    grid = grid_data(task.fits, None if task.asked.data_grid == "auto" else task.asked.data_grid)
    write = write_data_netcdf if task.out.lower().endswith(".nc") else write_data_geotiff
    write(task.out, grid, task.crs)
    say(f"{task.out}: {len(grid.bands)} bands of {len(grid.x)} x {len(grid.y)} pixels of {grid.cell:g} m, "
        f"{task.crs or 'no coordinate reference system'}")
    say(f"gridding: {METHOD}")


def _write_gempy(task: _Task) -> None:
    from ..export import to_gempy
    from ..io.gempy_file import write_gempy_file
    grid = to_gempy(_choose(task.models, task.asked.choose))
    write_gempy_file(task.out, grid)
    say(f"{task.out}: extent {','.join(f'{value:g}' for value in grid.extent)}, "
        f"resolution {','.join(map(str, grid.resolution))}")


def _write_tomofast(task: _Task) -> None:
    from ..export import to_tomofast
    from ..io.tomofast_file import write_tomofast_file
    chosen = task.models if task.asked.choose is None and len(task.models) == 3 else [_choose(task.models, task.asked.choose)]
    write_tomofast_file(task.out, to_tomofast(chosen))
    say(f"{task.out}: {chosen[0].mesh.n_cells} cells, {len(chosen)} components")


_WRITERS: dict[str, Callable[[_Task], None]] = {
    "geoh5": _write_geoh5, "vtk": _write_vtk, "geotiff": _write_geotiff, "csv": _write_csv, "gempy": _write_gempy,
    "tomofast": _write_tomofast}
