"""geoh5 files (HDF5): block models, points and curves with data, in the published layout of version 2.

Entities are groups named by their UUID in flat groups of the workspace; parents and types are hard links.

Cells of a block model run along z fastest, then u (east), then v (north); z delimiters are distances upwards from the
origin, which is the bottom south-west corner. Arrays here have the cell order of VoxLith: z fastest from the top down.
"""

from __future__ import annotations

import uuid
from collections.abc import Sequence
from dataclasses import dataclass, field
from typing import Any

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike
from ..packages import require
from .output import open_input, output_name

Reals = npt.NDArray[np.float64]
Pairs = npt.NDArray[np.int32]

WORKSPACE = "GEOSCIENCE"
ROOT_TYPE = "{dd99b610-be92-48c0-873c-5b5946ea2840}"
POINTS_TYPE = "{202C5DB1-A56D-4004-9CAD-BAAFD8899406}"
CURVE_TYPE = "{6A057FDC-B355-11E3-95BE-FD84A7FFCB88}"
BLOCK_MODEL_TYPE = "{B020A277-90E2-4CD7-84D6-612EE3F25051}"
FLOAT_NO_DATA = np.float32(1.175494351e-38)
INTEGER_NO_DATA = np.int32(-2147483648)

_CHILDREN = ("Data", "Groups", "Objects")
_XYZ = np.dtype([("x", "<f8"), ("y", "<f8"), ("z", "<f8")])
_DELIMITERS = ("U cell delimiters", "V cell delimiters", "Z cell delimiters")


@dataclass(frozen=True)
class Geoh5Data:
    """Values of an object: real numbers with NaN for no data, or texts.

    Attributes
    ----------
    name, unit : str
    values : ndarray
        One value per vertex, or per cell in the cell order of VoxLith.
    """

    name: str
    values: npt.NDArray[Any]
    unit: str = ""


@dataclass(frozen=True)
class Geoh5Points:
    """Points, or a curve when `pairs` says which vertices are joined.

    Attributes
    ----------
    vertices : ndarray, shape (n, 3)
        Easting, northing, elevation, metres.
    pairs : ndarray of int, shape (m, 2), or None
    """

    name: str
    vertices: Reals
    data: Sequence[Geoh5Data] = field(default=())
    pairs: Pairs | None = None


@dataclass(frozen=True)
class Geoh5Blocks:
    """A block model.

    Attributes
    ----------
    x_nodes, y_nodes, z_nodes : ndarray
        Cell edges: rising eastings and northings, falling elevations, metres.
    """

    name: str
    x_nodes: Reals
    y_nodes: Reals
    z_nodes: Reals
    data: Sequence[Geoh5Data] = field(default=())


def write_geoh5(path: PathLike, objects: Sequence[Geoh5Points | Geoh5Blocks]) -> None:
    """Write a workspace with these objects.

    Raises
    ------
    FileError
        When the file cannot be written.
    MissingPackageError
        Without h5py.
    """
    h5py = require("h5py", "geoh5 files")
    with output_name(path) as beside, h5py.File(beside, "w") as file:
        _Workspace(h5py, file).put(objects)


class _Workspace:
    """A workspace that is being written."""

    def __init__(self, h5py: Any, file: Any) -> None:
        self._text = h5py.string_dtype("utf-8")
        self._top = file.create_group(WORKSPACE)
        self._top.attrs["Version"] = 2.0
        self._top.attrs.create("Distance unit", "metre", dtype=self._text)
        self._top.attrs.create("Contributors", np.array(["VoxLith"], dtype=object), dtype=self._text)
        for name in (*_CHILDREN, "Types/Data types", "Types/Group types", "Types/Object types"):
            self._top.create_group(name)
        self._types: dict[tuple[str, str, str], Any] = {}

    def put(self, objects: Sequence[Geoh5Points | Geoh5Blocks]) -> None:
        root = self._entity("Groups", "Workspace", self._type("Group types", "Workspace", ROOT_TYPE))
        self._top["Root"] = root
        for one in objects:
            if isinstance(one, Geoh5Blocks):
                kind = self._type("Object types", "Block model", BLOCK_MODEL_TYPE)
            elif one.pairs is not None:
                kind = self._type("Object types", "Curve", CURVE_TYPE)
            else:
                kind = self._type("Object types", "Points", POINTS_TYPE)
            group = self._entity("Objects", one.name, kind)
            root["Objects"][_key(group)] = group
            if isinstance(one, Geoh5Blocks):
                self._put_blocks(group, one)
            else:
                self._put_points(group, one)

    def _put_blocks(self, group: Any, blocks: Geoh5Blocks) -> None:
        rising = blocks.z_nodes[::-1]
        origin = (float(blocks.x_nodes[0]), float(blocks.y_nodes[0]), float(rising[0]))
        group.attrs.create("Origin", np.array(origin, dtype=_XYZ), dtype=_XYZ)
        group.attrs["Rotation"] = 0.0
        for name, nodes in zip(_DELIMITERS, (blocks.x_nodes, blocks.y_nodes, rising)):
            group.create_dataset(name, data=nodes - nodes[0], dtype="<f8", **_compression(len(nodes)))
        shape = tuple(len(nodes) - 1 for nodes in (blocks.z_nodes, blocks.x_nodes, blocks.y_nodes))
        for one in blocks.data:
            upwards = one.values.reshape(shape, order="F")[::-1].ravel(order="F")
            self._put_data(group, Geoh5Data(one.name, upwards, one.unit), "Cell")

    def _put_points(self, group: Any, points: Geoh5Points) -> None:
        vertices = np.empty(len(points.vertices), dtype=_XYZ)
        for axis, name in enumerate("xyz"):
            vertices[name] = points.vertices[:, axis]
        group.create_dataset("Vertices", data=vertices)
        if points.pairs is not None:
            group.create_dataset("Cells", data=points.pairs.astype("<i4"))
        for one in points.data:
            self._put_data(group, one, "Vertex")

    def _put_data(self, parent: Any, data: Geoh5Data, association: str) -> None:
        words = data.values.dtype.kind in "OU"
        kind = self._data_type(data.name, "Text" if words else "Float", data.unit)
        group = self._entity("Data", data.name, kind, children=False)
        group.attrs.create("Association", association, dtype=self._text)
        if words:
            group.create_dataset("Data", data=data.values.astype(object), dtype=self._text)
        else:
            singles = data.values.astype("<f4")
            singles[np.isnan(data.values)] = FLOAT_NO_DATA
            group.create_dataset("Data", data=singles, **_compression(len(singles)))
        parent["Data"][_key(group)] = group

    def _entity(self, place: str, name: str, kind: Any, *, children: bool = True) -> Any:
        key = _new_key()
        group = self._top[place].create_group(key)
        self._name(group, name, key)
        for flag in ("Visible", "Public", "Allow delete", "Allow move", "Allow rename"):
            group.attrs[flag] = np.int8(1)
        group["Type"] = kind
        for child in _CHILDREN if children else ():
            group.create_group(child)
        return group

    def _type(self, place: str, name: str, key: str) -> Any:
        if (place, name, key) not in self._types:
            group = self._top["Types"][place].create_group(key)
            self._name(group, name, key)
            self._types[place, name, key] = group
        return self._types[place, name, key]

    def _data_type(self, name: str, primitive: str, unit: str) -> Any:
        if (name, primitive, unit) not in self._types:
            key = _new_key()
            group = self._top["Types"]["Data types"].create_group(key)
            self._name(group, name, key)
            group.attrs.create("Primitive type", primitive, dtype=self._text)
            if unit:
                group.attrs.create("Units", unit, dtype=self._text)
            self._types[name, primitive, unit] = group
        return self._types[name, primitive, unit]

    def _name(self, group: Any, name: str, key: str) -> None:
        group.attrs.create("Name", name, dtype=self._text)
        group.attrs.create("ID", key, dtype=self._text)


def _new_key() -> str:
    return "{" + str(uuid.uuid4()) + "}"


def _key(group: Any) -> str:
    return str(group.name).rpartition("/")[2]


def _compression(count: int) -> dict[str, Any]:
    return {"compression": "gzip", "compression_opts": 5} if count > 1000 else {}


def read_geoh5(path: PathLike) -> list[Geoh5Points | Geoh5Blocks]:
    """Read points, curves and unrotated block models of a workspace, with their real-number and text data.

    Other objects and data are left out.

    Raises
    ------
    FileError
        When the file is no geoh5 workspace, or an object lacks a part.
    MissingPackageError
        Without h5py.
    """
    h5py = require("h5py", "geoh5 files")
    open_input(path).close()
    try:
        with h5py.File(path, "r") as file:
            if WORKSPACE not in file:
                raise FileError(path, f"expected the group {WORKSPACE} of a geoh5 workspace, found none")
            found = [_read_object(path, group) for group in file[WORKSPACE]["Objects"].values()]
    except (OSError, KeyError, ValueError, TypeError, IndexError, AttributeError, RuntimeError) as error:
        raise FileError(path, f"expected a geoh5 workspace of version 2: {str(error).splitlines()[0]}") from error
    return [one for one in found if one is not None]


def _read_object(path: PathLike, group: Any) -> Geoh5Points | Geoh5Blocks | None:
    kind = _word(group["Type"].attrs["ID"]).upper()
    name = _word(group.attrs["Name"])
    if kind == BLOCK_MODEL_TYPE:
        if float(group.attrs.get("Rotation", 0.0)) != 0.0:
            return None
        origin = group.attrs["Origin"]
        nodes = [np.asarray(group[delimiters][:], dtype=np.float64) + float(origin[axis])
                 for delimiters, axis in zip(_DELIMITERS, "xyz")]
        shape = tuple(len(nodes[axis]) - 1 for axis in (2, 0, 1))
        data = [Geoh5Data(one.name, one.values.reshape(shape, order="F")[::-1].ravel(order="F"), one.unit)
                for one in _read_data(group, int(np.prod(shape)))]
        return Geoh5Blocks(name, nodes[0], nodes[1], nodes[2][::-1], data)
    if kind not in (POINTS_TYPE, CURVE_TYPE):
        return None
    vertices = group["Vertices"][:]
    pairs = np.asarray(group["Cells"][:], dtype=np.int32) if kind == CURVE_TYPE else None
    columns = np.column_stack([vertices[axis] for axis in "xyz"]).astype(np.float64)
    return Geoh5Points(name, columns, _read_data(group, len(columns)), pairs)


def _read_data(group: Any, count: int) -> list[Geoh5Data]:
    found = []
    for one in group["Data"].values():
        primitive = _word(one["Type"].attrs["Primitive type"])
        unit = _word(one["Type"].attrs.get("Units", ""))
        if primitive not in ("Float", "Text") or "Data" not in one or len(one["Data"]) != count:
            continue
        values = one["Data"].asstr()[:] if primitive == "Text" else one["Data"][:].astype(np.float64)
        if primitive == "Float":
            values[values == float(FLOAT_NO_DATA)] = np.nan
        found.append(Geoh5Data(_word(one.attrs["Name"]), values, unit))
    return found


def _word(value: Any) -> str:
    return value.decode("utf-8", "replace") if isinstance(value, bytes) else str(value)
