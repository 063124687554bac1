"""Several properties in one model: magnetisation along three axes, density beside it, any number of them.

The properties are copies of the mesh side by side along y, in one sensitivity file whose rows are ``[G1 | G2 | ...]``.
A run takes it for one model on a larger mesh, so everything works that works for one: bounds, reference and starting
model, continuation, sensitivities on disk, converged inversions. Weights of 0 at the seams keep the smoothness of
one property apart from that of the next. Rows of any data follow each other, each datum with its own standard deviation.

A property is counted in units of its scale: model values times the scale are in the unit of the property. So one trade-off
serves properties of different size.
"""

from __future__ import annotations

import json
from collections.abc import Iterator, Sequence
from contextlib import ExitStack
from dataclasses import asdict, dataclass, replace

import numpy as np
import numpy.typing as npt

from .codes import data_type_name, data_unit, is_magnetic, model_quantity
from .depth_weight import DepthWeight
from .errors import FileError, PathLike, UsageError
from .io.output import read_bytes, write_bytes
from .io.weight_file import CellWeights
from .mesh import Mesh
from .sensitivity import Sensitivity, common_inactive_cells
from .sensitivity_output import RowStatistics, write_sensitivity
from .survey import Direction, InducingField, Survey

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

_FORMAT = "voxlith stack 1"
_AXES = {"x": Direction(0.0, 90.0), "y": Direction(0.0, 0.0), "z": Direction(90.0, 0.0)}
_LARGEST_BOUND = 98.0  # from 98.9 on a side of a bounds file is free


@dataclass(frozen=True)
class StackedProperty:
    """A property of the cells.

    Attributes
    ----------
    name : str
        Of letters, digits and underscores.
    unit : str
    direction : Direction or None
        Of the magnetisation, where the property is one of its components.
    scale : float
        Model values are in units of this number times `unit`.
    """

    name: str
    unit: str
    direction: Direction | None = None
    scale: float = 1.0


@dataclass(frozen=True)
class StackedComponent:
    """Rows of one type of data.

    Attributes
    ----------
    name : str
    code : int
        Data type.
    first, count : int
        Rows, the first counted from 0.
    depends : tuple of str
        Names of the properties that the data depend on.
    data_file : str
        Where the data are from.
    """

    name: str
    code: int
    first: int
    count: int
    depends: tuple[str, ...] = ()
    data_file: str = ""

    @property
    def unit(self) -> str:
        """Unit of the data."""
        return data_unit(self.code)

    @property
    def rows(self) -> slice:
        """The rows as a slice."""
        return slice(self.first, self.first + self.count)


@dataclass(frozen=True)
class Stack:
    """Which property is where in a stacked model, and which data in the rows.

    Attributes
    ----------
    mesh : Mesh
        Of one property.
    properties : tuple of StackedProperty
        From south to north in the stacked mesh.
    components : tuple of StackedComponent
        In the order of the rows.
    field : InducingField or None
        The magnetisation is counted in units of its strength over mu0.

    Examples
    --------
    >>> stack = Stack(Mesh([0, 1], [0, 1, 2], [0, -1]), (StackedProperty("a", "SI"), StackedProperty("b", "SI", None, 10.0)), ())
    >>> stack.stacked_mesh.shape
    (1, 1, 4)
    >>> stack.split([1.0, 2.0, 3.0, 4.0])
    [array([1., 2.]), array([30., 40.])]
    """

    mesh: Mesh
    properties: tuple[StackedProperty, ...]
    components: tuple[StackedComponent, ...]
    field: InducingField | None = None

    @property
    def stacked_mesh(self) -> Mesh:
        """Copies of the mesh side by side along y, the first in its place."""
        nodes = self.mesh.y_nodes
        length = nodes[-1] - nodes[0]
        all_nodes = [nodes[:1], *(nodes[1:] + number * length for number in range(len(self.properties)))]
        return Mesh(self.mesh.x_nodes, np.concatenate(all_nodes), self.mesh.z_nodes)

    def split(self, values: npt.ArrayLike) -> list[Reals]:
        """A stacked model as one array per property, shape (cells,) each, in the unit of the property."""
        parts = np.asarray(values, dtype=np.float64)
        if parts.shape != (len(self.properties) * self.mesh.n_cells,):
            raise UsageError(f"stacked model: expected {len(self.properties)} x {self.mesh.n_cells} values, found "
                             f"{parts.size}")
        return [part * known.scale for part, known in zip(np.split(parts, len(self.properties)), self.properties)]

    def join(self, values: Sequence[npt.ArrayLike]) -> Reals:
        """A number or shape (cells,) for each property, in its unit, as a stacked model."""
        if len(values) != len(self.properties):
            raise UsageError(f"stacked model: expected {len(self.properties)} properties, found {len(values)}")
        cells = self.mesh.n_cells
        return np.concatenate([np.broadcast_to(np.asarray(value, dtype=np.float64), (cells,)) / known.scale
                               for value, known in zip(values, self.properties)])

    def join_bounds(self, pairs: Sequence[npt.ArrayLike]) -> Reals:
        """Bounds of each property, shape (2,) or (cells, 2) in its unit, as those of the stacked model.

        Raises UsageError for a bound that is 98 times the scale or more and would be read as none.
        """
        joined = []
        for pair, known in zip(pairs, self.properties, strict=True):
            given = np.broadcast_to(np.asarray(pair, dtype=np.float64), (self.mesh.n_cells, 2))
            free = np.abs(given) >= 98.9
            scaled = np.where(free, np.copysign(np.inf, given), given / known.scale)
            if (np.abs(scaled[~free]) >= _LARGEST_BOUND).any():
                raise UsageError(f"bounds of {known.name}: expected bounds below {_LARGEST_BOUND:g} times the scale {known.scale:g}; "
                                 "choose a larger scale, or 99 and -99 for no bound")
            joined.append(scaled)
        return np.concatenate(joined)

    def join_weights(self, weights: Sequence[CellWeights], smallness: Sequence[float] | None = None) -> CellWeights:
        """Weights of each property as those of the stacked model, with 0 at the seams.

        Parameters
        ----------
        weights : sequence of CellWeights
        smallness : sequence of float, optional
            A factor for the smallness of each property.
        """
        factors = [1.0] * len(weights) if smallness is None else list(smallness)
        seam = np.zeros((self.mesh.nz, self.mesh.nx, 1))
        y_parts = [part for one in weights for part in (one.y_difference, seam)][:-1]
        return CellWeights(np.concatenate([one.smallness * factor for one, factor in zip(weights, factors, strict=True)], axis=2),
                           np.concatenate([one.x_difference for one in weights], axis=2), np.concatenate(y_parts, axis=2),
                           np.concatenate([one.z_difference for one in weights], axis=2))

    def groups(self) -> list[list[int]]:
        """Properties that belong together: all components of the magnetisation, and every other property by itself."""
        vector = [number for number, one in enumerate(self.properties) if one.direction is not None]
        return ([vector] if vector else []) + [[number] for number in range(len(self.properties)) if number not in vector]

    def components_of(self, group: Sequence[int]) -> list[int]:
        """Numbers of the data that depend on properties of a group and on no others."""
        names = {self.properties[number].name for number in group}
        return [number for number, one in enumerate(self.components) if one.depends and names.issuperset(one.depends)]

    def write(self, path: PathLike) -> None:
        """Write what :meth:`read` reads, JSON. Raises FileError."""
        mesh = self.mesh
        content = {"format": _FORMAT,
                   "nodes": {"x": mesh.x_nodes.tolist(), "y": mesh.y_nodes.tolist(), "z": mesh.z_nodes.tolist()},
                   "properties": [asdict(one) for one in self.properties],
                   "components": [asdict(one) for one in self.components],
                   "field": None if self.field is None else asdict(self.field)}
        write_bytes(path, (json.dumps(content, indent=1) + "\n").encode())

    @classmethod
    def read(cls, path: PathLike) -> Stack:
        """Read what :meth:`write` has written. Raises FileError."""
        try:
            content = json.loads(read_bytes(path))
            if not isinstance(content, dict) or content.get("format") != _FORMAT:
                raise FileError(path, f'expected "format": "{_FORMAT}", the file that voxlith-tools stack writes')
            nodes = content["nodes"]
            properties = tuple(StackedProperty(one["name"], one["unit"],
                                               None if one["direction"] is None else Direction(**one["direction"]),
                                               float(one["scale"])) for one in content["properties"])
            components = tuple(StackedComponent(one["name"], one["code"], one["first"], one["count"], tuple(one["depends"]),
                                                one["data_file"]) for one in content["components"])
            field = None if content["field"] is None else InducingField(**content["field"])
            return cls(Mesh(nodes["x"], nodes["y"], nodes["z"]), properties, components, field)
        except (ValueError, KeyError, TypeError, RecursionError) as error:
            raise FileError(path, f"expected the file that voxlith-tools stack writes: {error}") from error


@dataclass(frozen=True)
class RowSource:
    """Data and their sensitivities to each property.

    Attributes
    ----------
    survey : Survey
        Of one component.
    mtx : tuple of path or None
        Sensitivity file for each property; None where the data do not depend on it.
    data_file : str
    """

    survey: Survey
    mtx: tuple[PathLike | None, ...]
    data_file: str = ""

    @property
    def given(self) -> list[PathLike]:
        """The sensitivity files that there are."""
        return [path for path in self.mtx if path is not None]


def is_stack_file(path: PathLike) -> bool:
    """Whether a file says of itself that it is what :meth:`Stack.write` wrote, be it whole or not. Raises FileError."""
    return f'"{_FORMAT}"'.encode() in read_bytes(path)[:80]


def property_of(text: str, codes: Sequence[int]) -> StackedProperty:
    """A property from ``NAME`` or ``NAME=x|y|z|INC,DEC``; without a direction the names mx, my and mz have theirs.

    Parameters
    ----------
    text : str
    codes : sequence of int
        Types of the data that depend on it.

    >>> property_of("mz", [1])
    StackedProperty(name='mz', unit='SI', direction=Direction(inclination=90.0, declination=0.0), scale=1.0)
    """
    name, given, where = text.partition("=")
    if not name.isidentifier() or not name.isascii():
        raise UsageError(f"property {text}: expected a name of letters, digits and underscores")
    direction = None
    if given:
        direction = _AXES.get(where) or _direction(text, where)
    elif name in ("mx", "my", "mz"):
        direction = _AXES[name[1]]
    kinds = {is_magnetic(code) for code in codes}
    if len(kinds) > 1:
        raise UsageError(f"property {name}: expected sensitivities of magnetic data or of others, found both")
    if direction is not None and kinds == {False}:
        raise UsageError(f"property {text}: expected magnetic data for a direction of magnetisation")
    return StackedProperty(name, model_quantity(codes[0])[1] if codes else "", direction)


def direction_of_text(text: str) -> Direction | None:
    """Direction of x, y, z or INC,DEC; None for an empty text. Raises UsageError.

    >>> direction_of_text("z")
    Direction(inclination=90.0, declination=0.0)
    """
    return _AXES.get(text) or (_direction(text, text) if text else None)


def _direction(text: str, where: str) -> Direction:
    words = where.split(",")
    try:
        inclination, declination = (float(word) for word in words)
        if not (abs(inclination) <= 90.0 and abs(declination) <= 360.0):
            raise ValueError
    except ValueError:
        raise UsageError(f"property {text}: expected NAME=x, y, z or INC,DEC with an inclination within 90 degrees and a "
                         "declination within 360") from None
    return Direction(inclination, declination)


def make_stack(properties: Sequence[StackedProperty], sources: Sequence[RowSource]) -> Stack:
    """What properties and data make up; checks that the files go together.

    Raises
    ------
    UsageError
        When counts or names do not go together.
    FileError
        For a file of another mesh, data type or stations than its data.
    """
    names = [one.name for one in properties]
    if len(properties) < 2 or len(set(names)) < len(names):
        raise UsageError(f"properties {' '.join(names)}: expected two or more of different names")
    mesh: Mesh | None = None
    field, first, components = None, 0, []
    for source in sources:
        if len(source.mtx) != len(properties) or not any(source.mtx):
            raise UsageError(f"{source.data_file}: expected {len(properties)} sensitivity files or -, one for each property, not "
                             f"all of them -; found {len(source.mtx)}")
        for path in source.given:
            mesh, here = _checked(path, source, mesh)
            field = field or here
        code = source.survey.codes[0]
        depends = tuple(one.name for one, path in zip(properties, source.mtx) if path)
        components.append(StackedComponent(data_type_name(code), code, first, source.survey.n_stations, depends, source.data_file))
        first += source.survey.n_stations
    for number, known in enumerate(properties):
        if not any(source.mtx[number] for source in sources):
            raise UsageError(f"property {known.name}: expected a sensitivity file for it")
    assert mesh is not None
    return Stack(mesh, tuple(properties), tuple(_numbered(components)), field)


def _numbered(components: list[StackedComponent]) -> list[StackedComponent]:
    """Names that repeat get a number."""
    names = [one.name for one in components]
    return [replace(one, name=f"{one.name}{names[:at].count(one.name) + 1}") if names.count(one.name) > 1 else one
            for at, one in enumerate(components)]


def _checked(path: PathLike, source: RowSource, mesh: Mesh | None) -> tuple[Mesh, InducingField | None]:
    """Mesh and field of a sensitivity file that has to go with data and mesh."""
    with Sensitivity(path) as sensitivity:
        header, found = sensitivity.header, sensitivity.mesh
        style = sensitivity.style
    survey = source.survey
    slack = 0.1 * min(float(widths.min()) for widths in (found.x_widths, found.y_widths, found.z_widths))
    if style != 0:
        raise FileError(path, f"expected inversion style 0, all cells free, found style {style}")
    if header.n_data != survey.n_stations:
        raise FileError(path, f"expected {survey.n_stations} rows as {source.data_file} has data, found {header.n_data}")
    if header.form != "record" and header.data_type != survey.codes[0]:
        raise FileError(path, f"expected data type {data_type_name(survey.codes[0])} as of {source.data_file}, found "
                        f"{data_type_name(header.data_type)}")
    if header.stations is not None:
        away = np.abs(header.stations - np.stack([survey.x, survey.y, survey.elevation], axis=1)).max(axis=1)
        if (away > slack).any():
            raise FileError(path, f"expected the stations of {source.data_file}, found another place of station "
                            f"{int(np.argmax(away > slack)) + 1}")
    if mesh is not None and not _same_mesh(mesh, found, slack):
        raise FileError(path, f"expected the mesh of the other files, {mesh}, found {found}")
    strength, inclination, declination = header.inducing
    here = InducingField(inclination, declination, strength) if is_magnetic(header.data_type) and strength > 0.0 else None
    return mesh or found, here


def _same_mesh(a: Mesh, b: Mesh, slack: float) -> bool:
    return a.shape == b.shape and all(float(np.abs(p - q).max()) <= 0.1 * slack for p, q in
                                      ((a.x_nodes, b.x_nodes), (a.y_nodes, b.y_nodes), (a.z_nodes, b.z_nodes)))


def stacked_survey(stack: Stack, sources: Sequence[RowSource]) -> Survey:
    """Data of all rows, each with the standard deviation in force for it."""
    surveys = [source.survey for source in sources]
    magnetic = [survey for survey in surveys if is_magnetic(survey.codes[0])]
    # The layout of the file holds the field.
    code = 1 if stack.field is not None else 0
    return Survey(np.concatenate([survey.x for survey in surveys]), np.concatenate([survey.y for survey in surveys]),
                  np.concatenate([survey.elevation for survey in surveys]),
                  np.concatenate([survey.data for survey in surveys], axis=1), (code,),
                  np.concatenate([survey.uncertainties() for survey in surveys], axis=1),
                  field=stack.field, direction=magnetic[0].direction if magnetic else None)


def write_stacked_sensitivity(path: PathLike, stack: Stack, sources: Sequence[RowSource], *,
                              tolerance: float = 0.01) -> RowStatistics:
    """Write the sensitivity file of a stack; rows are decompressed and compressed again one after the other.

    Parameters
    ----------
    path : path
    stack : Stack
        Of :func:`make_stack`.
    sources : sequence of RowSource
    tolerance : float
        Largest loss of a row over its norm, beside that of the files.

    Raises
    ------
    UsageError, FileError
        As :func:`~voxlith.sensitivity_output.write_sensitivity`.
    """
    weights, parameters = _cell_weights(stack, sources)
    inactive = inactive_cells(sources)
    counts = None
    if inactive.any():
        columns = stack.mesh.cube(inactive).sum(axis=0)
        counts = np.concatenate([columns] * len(stack.properties), axis=1)
    survey = stacked_survey(stack, sources)
    # The inversion divides the diagonal by one mean square of the standard deviations.
    precision = np.nan_to_num(survey.uncertainties()[0] ** -2.0)
    return write_sensitivity(path, _rows(stack, sources), stack.stacked_mesh, survey, tolerance=tolerance,
                             depth_weight=parameters, cell_weights=weights, row_weights=precision / (precision.mean() or 1.0),
                             inactive=counts)


def _rows(stack: Stack, sources: Sequence[RowSource]) -> Iterator[Reals]:
    cells = stack.mesh.n_cells
    for source in sources:
        with ExitStack() as files:
            opened = [None if path is None else files.enter_context(Sensitivity(path)) for path in source.mtx]
            streams = [None if one is None else one.rows() for one in opened]
            for _ in range(source.survey.n_stations):
                row = np.zeros((len(stack.properties), cells))
                for number, (one, stream) in enumerate(zip(opened, streams)):
                    if one is not None and stream is not None:
                        row[number] = one.decompress(next(stream)) * stack.properties[number].scale
                yield row.ravel()


def _cell_weights(stack: Stack, sources: Sequence[RowSource]) -> tuple[npt.NDArray[np.float32], DepthWeight]:
    """Depth weights of each property, those of its first file."""
    weights, parameters = [], DepthWeight()
    for number in range(len(stack.properties)):
        path = next(source.mtx[number] for source in sources if source.mtx[number])
        assert path is not None
        with Sensitivity(path) as sensitivity:
            weights.append(sensitivity.header.depth_weight)
            z0, beta = sensitivity.header.weight_parameters
            if number == 0 and z0 > 0.0 and beta >= 0.0:
                parameters = DepthWeight(z0, beta)
    return np.concatenate(weights), parameters


def inactive_cells(sources: Sequence[RowSource]) -> Mask:
    """Cells of the mesh of one property without a response in any file. Raises FileError for different terrains."""
    return common_inactive_cells(list({path: None for source in sources for path in source.mtx if path}))[1]
