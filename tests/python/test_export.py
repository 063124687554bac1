"""Exports: each file is read back by an independent reader, and held against its published layout."""

from __future__ import annotations

import csv
from pathlib import Path

import h5py
import hypothesis.strategies as st
import numpy as np
import pytest
import rasterio
from conftest import Bench, Tools, one_line
from hypothesis import given
from vtkmodules.util.numpy_support import vtk_to_numpy
from vtkmodules.vtkCommonCore import reference
from vtkmodules.vtkIOXML import vtkXMLImageDataReader, vtkXMLPolyDataReader, vtkXMLRectilinearGridReader

from voxlith import FileError, Fit, Mesh, Model, Run, Survey, UsageError
from voxlith.export import (Placement, from_gempy, from_tomofast, to_gempy, to_tomofast, write_cells_csv,
                            write_depth_slices, write_run_geoh5, write_stations_vtp, write_vti)
from voxlith.io.gempy_file import GempyGrid, read_gempy_file, write_gempy_file
from voxlith.io.geoh5 import Geoh5Blocks, Geoh5Points, read_geoh5
from voxlith.io.tomofast_file import read_tomofast_file, write_tomofast_file


def uneven() -> Model:
    mesh = Mesh.from_widths((1000.0, 2000.0, 120.0), [50.0, 100.0, 150.0], [100.0, 200.0], [20.0, 40.0, 60.0, 80.0])
    values = np.arange(24.0) / 7.0
    values[[5, 9]] = np.nan
    return Model(mesh, values, "density contrast", "g/cm3", np.arange(24) != 11)


def lined_fit() -> Fit:
    x = np.array([1010.0, 1060.0, 1110.0, 1010.0, 1060.0])
    data = np.array([[1.0, 2.0, np.nan, 4.0, 5.0]])
    survey = Survey(x, x + 1000.0, np.full(5, 125.0), data, (0,), np.full((1, 5), 0.5),
                    line=np.array(["L1", "L1", "L1", "L2", "L2"]), time=np.arange(5.0))
    return Fit(survey, data + 1.0)


def test_geoh5_has_the_published_layout(tmp_path: Path) -> None:
    path, model, fit = tmp_path / "run.geoh5", uneven(), lined_fit()
    write_run_geoh5(path, [model], fit)
    with h5py.File(path) as file:
        assert list(file) == ["GEOSCIENCE"]
        top = file["GEOSCIENCE"]
        assert sorted(top) == ["Data", "Groups", "Objects", "Root", "Types"]
        assert top.attrs["Version"] == 2.0 and top.attrs["Distance unit"] == "metre"
        assert list(top.attrs["Contributors"]) == ["VoxLith"]
        assert sorted(top["Types"]) == ["Data types", "Group types", "Object types"]
        assert top["Root"].attrs["ID"] in top["Groups"] and top["Groups"][top["Root"].attrs["ID"]] == top["Root"]
        assert top["Root"]["Type"] == top["Types/Group types/{dd99b610-be92-48c0-873c-5b5946ea2840}"]
        objects = {group.attrs["Name"]: group for group in top["Objects"].values()}
        assert sorted(top["Root"]["Objects"]) == sorted(top["Objects"])
        for group in (*objects.values(), *top["Data"].values(), *top["Groups"].values()):
            assert group.attrs["ID"] == group.name.rpartition("/")[2] and len(group.attrs["ID"]) == 38
            assert group["Type"].attrs["ID"] and group["Type"].attrs["Name"]
        blocks = objects["Model"]
        assert blocks["Type"].attrs["ID"] == "{B020A277-90E2-4CD7-84D6-612EE3F25051}"
        assert blocks.attrs["Origin"].tolist() == (1000.0, 2000.0, -80.0) and blocks.attrs["Rotation"] == 0.0
        assert blocks["U cell delimiters"][:].tolist() == [0, 50, 150, 300]
        assert blocks["V cell delimiters"][:].tolist() == [0, 100, 300]
        assert blocks["Z cell delimiters"][:].tolist() == [0, 80, 140, 180, 200]
        data = next(iter(blocks["Data"].values()))
        assert data == top["Data"][data.attrs["ID"]] and data.attrs["Association"] == "Cell"
        assert data["Type"].attrs["Primitive type"] == "Float" and data["Type"].attrs["Units"] == "g/cm3"
        stored = data["Data"][:]
        assert stored.dtype == np.float32
        for k in range(4):
            for i in range(3):
                for j in range(2):
                    cell = model.mesh.cell_index(3 - k, i, j)
                    expected = model.values[cell] if model.shown[cell] else 1.175494351e-38
                    assert stored[k + i * 4 + j * 3 * 4] == np.float32(expected)
        stations = objects["Stations"]
        assert stations["Type"].attrs["ID"] == "{6A057FDC-B355-11E3-95BE-FD84A7FFCB88}"
        assert stations["Cells"][:].tolist() == [[0, 1], [1, 2], [3, 4]] and stations["Cells"].dtype == np.int32
        assert stations["Vertices"].dtype.names == ("x", "y", "z") and stations["Vertices"][2].tolist() == (1110.0, 2110.0, 125.0)
        named = {one.attrs["Name"]: one for one in stations["Data"].values()}
        assert all(one.attrs["Association"] == "Vertex" for one in named.values())
        assert named["Gz predicted"]["Data"][:].tolist() == [2, 3, np.float32(1.175494351e-38), 5, 6]
        assert named["Line"]["Type"].attrs["Primitive type"] == "Text"
        assert named["Line"]["Data"].asstr()[:].tolist() == ["L1", "L1", "L1", "L2", "L2"]


def test_geoh5_is_read_back(tmp_path: Path) -> None:
    path, model, fit = tmp_path / "run.geoh5", uneven(), lined_fit()
    write_run_geoh5(path, [model], fit)
    found = {one.name: one for one in read_geoh5(path)}
    blocks, points = found["Model"], found["Stations"]
    assert isinstance(blocks, Geoh5Blocks) and isinstance(points, Geoh5Points)
    assert Mesh(blocks.x_nodes, blocks.y_nodes, blocks.z_nodes) == model.mesh
    np.testing.assert_allclose(blocks.data[0].values, np.where(model.shown, model.values, np.nan), rtol=1e-6)
    assert {one.name for one in points.data} == {"Gz observed", "Gz predicted", "Gz residual in standard deviations", "Line"}
    plain = Fit(Survey(fit.observed.x, fit.observed.y, fit.observed.elevation, fit.observed.data, (0,)), fit.predicted)
    write_run_geoh5(path, [], plain)
    (only,) = read_geoh5(path)
    assert isinstance(only, Geoh5Points) and only.pairs is None
    with pytest.raises(UsageError):
        write_run_geoh5(path, [])


def test_damaged_geoh5(tmp_path: Path) -> None:
    path = tmp_path / "run.geoh5"
    write_run_geoh5(path, [uneven()], lined_fit())
    whole = path.read_bytes()
    for size in (0, 10, 700, len(whole) // 2):
        path.write_bytes(whole[:size])
        with pytest.raises(FileError, match="run.geoh5"):
            read_geoh5(path)
    with h5py.File(path, "w") as file:
        file.create_group("other")
    with pytest.raises(FileError, match="GEOSCIENCE"):
        read_geoh5(path)


def test_vtk_files(tmp_path: Path) -> None:
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 3 * [10.0], 2 * [20.0], 2 * [5.0])
    model = Model(mesh, np.arange(12.0), "density", "g/cm3", np.arange(12) != 4)
    write_vti(tmp_path / "m.vti", [model])
    reader = vtkXMLImageDataReader()
    reader.SetFileName(str(tmp_path / "m.vti"))
    reader.Update()
    image = reader.GetOutput()
    assert image.GetOrigin() == (0.0, 0.0, -10.0) and image.GetSpacing() == (10.0, 20.0, 5.0)
    np.testing.assert_array_equal(vtk_to_numpy(image.GetCellData().GetArray("density")), model.to_discretize())
    at = image.FindCell([15.0, 10.0, -2.0], None, 0, 0.0, reference(0), [0.0] * 3, [0.0] * 8)
    hidden = vtk_to_numpy(image.GetCellData().GetArray("vtkGhostType"))
    assert image.GetCellData().GetArray("density").GetValue(at) == 2.0
    assert hidden.sum() == 32 and vtk_to_numpy(image.GetCellData().GetArray("density"))[hidden == 32] == [4.0]
    with pytest.raises(UsageError, match="rectilinear"):
        write_vti(tmp_path / "n.vti", [uneven()])
    write_stations_vtp(tmp_path / "s.vtp", lined_fit())
    points = vtkXMLPolyDataReader()
    points.SetFileName(str(tmp_path / "s.vtp"))
    points.Update()
    stations = points.GetOutput()
    assert stations.GetNumberOfVerts() == 5 and stations.GetPoint(2) == (1110.0, 2110.0, 125.0)
    np.testing.assert_array_equal(vtk_to_numpy(stations.GetPointData().GetArray("Gz predicted (mGal)")), lined_fit().predicted[0])


def test_depth_slices(tmp_path: Path) -> None:
    model, path = uneven(), tmp_path / "slices.tif"
    assert write_depth_slices(path, model, "EPSG:32633") == (4, 3, 6)
    with rasterio.open(path) as file:
        assert file.crs.to_epsg() == 32633 and np.isnan(file.nodata)
        assert tuple(file.bounds) == (1000.0, 2000.0, 1300.0, 2300.0)
        assert file.descriptions[1] == "density contrast, elevation 80 m" and file.tags(1)["unit"] == "g/cm3"
        for x, y, layer in ((1025.0, 2050.0, 0), (1140.0, 2250.0, 3), (1290.0, 2110.0, 2), (1010.0, 2290.0, 1)):
            found = next(file.sample([(x, y)], layer + 1))[0]
            cell = model.mesh.cell_at(x, y, model.mesh.z_centres[layer])
            expected = model.values[cell] if model.shown[cell] else np.nan
            np.testing.assert_allclose(found, expected, rtol=1e-6)
        assert int(np.isnan(file.read(1)).sum() + np.isnan(file.read(2)).sum()) > 0
    assert write_depth_slices(path, model, layers=[2]) == (1, 3, 6)
    for wrong in ([], [4], [-1]):
        with pytest.raises(UsageError, match="4 layers"):
            write_depth_slices(path, model, layers=wrong)
    with pytest.raises(UsageError, match="reference system"):
        write_depth_slices(path, model, "EPSG:nothing")


def test_cells_csv(tmp_path: Path) -> None:
    model, path = uneven(), tmp_path / "cells.csv"
    second = Model(model.mesh, np.arange(24.0), "a, \"b\"", "SI")
    assert write_cells_csv(path, [model]) == 21
    assert write_cells_csv(path, [model, second]) == 24
    with open(path, newline="") as file:
        rows = list(csv.DictReader(file))
    assert list(rows[0])[-2:] == ["density contrast (g/cm3)", 'a, "b" (SI)']
    for cell, row in enumerate(rows):
        centre = [float(row[name]) for name in ("x", "y", "elevation")]
        np.testing.assert_allclose(centre, model.mesh.centres()[cell])
        assert model.mesh.cell_at(*centre) == cell
        volume = float(row["width_x"]) * float(row["width_y"]) * float(row["thickness"])
        np.testing.assert_allclose(volume, model.mesh.volumes()[cell])
        value = row["density contrast (g/cm3)"]
        assert (value == "") == (not model.shown[cell])
        assert value == "" or float(value) == model.values[cell]


def test_gempy_order(tmp_path: Path) -> None:
    grid = GempyGrid((0.0, 20.0, 100.0, 130.0, -40.0, 0.0), (2, 3, 4), np.arange(24.0).reshape(2, 3, 4))
    model = from_gempy(grid)
    # x slowest, z fastest upwards
    assert model.value_at(5.0, 105.0, -35.0) == 0.0 and model.value_at(5.0, 105.0, -5.0) == 3.0
    assert model.value_at(15.0, 105.0, -35.0) == 12.0 and model.value_at(5.0, 115.0, -35.0) == 4.0
    back = to_gempy(model)
    assert back.extent == grid.extent and back.resolution == grid.resolution
    np.testing.assert_array_equal(back.values, grid.values)
    write_gempy_file(tmp_path / "g.npz", grid)
    again = read_gempy_file(tmp_path / "g.npz")
    assert again.extent == grid.extent and (again.values == grid.values).all()
    np.save(tmp_path / "g.npy", np.vstack([grid.values.ravel(), np.zeros(24)]))
    assert (read_gempy_file(tmp_path / "g.npy", grid.extent, grid.resolution).values == grid.values).all()
    fine = Mesh.from_widths((-10.0, 100.0, 0.0), 8 * [5.0], 6 * [5.0], 4 * [10.0])
    sampled = from_gempy(grid, fine)
    assert np.isnan(sampled.value_at(-5.0, 105.0, -5.0)) and sampled.value_at(17.0, 129.0, -39.0) == 20.0
    with pytest.raises(UsageError, match="extent and the resolution"):
        read_gempy_file(tmp_path / "g.npy")
    with pytest.raises(FileError, match="expected 8 values"):
        read_gempy_file(tmp_path / "g.npy", grid.extent, (2, 2, 2))
    for text in (b"", b"nonsense", (tmp_path / "g.npz").read_bytes()[:60]):
        (tmp_path / "bad.npz").write_bytes(text)
        with pytest.raises(FileError, match="NumPy file"):
            read_gempy_file(tmp_path / "bad.npz")
    with pytest.raises(UsageError, match="maximum above"):
        GempyGrid((0, 0, 0, 1, 0, 1), (1, 1, 1), np.zeros((1, 1, 1)))


def test_pickled_objects_are_not_loaded(tmp_path: Path) -> None:
    np.save(tmp_path / "o.npy", np.array([{"a": 1}], dtype=object))
    with pytest.raises(FileError, match="NumPy file"):
        read_gempy_file(tmp_path / "o.npy", (0, 1, 0, 1, 0, 1), (1, 1, 1))


@given(st.tuples(*3 * [st.integers(1, 5)]), st.sampled_from([1, 3]), st.integers(0, 99))
def test_tomofast_grids_come_back(tmp_path_factory: pytest.TempPathFactory, counts: tuple[int, int, int], components: int,
                                  seed: int) -> None:
    source = np.random.default_rng(seed)
    x, y, z = (np.cumsum(np.rint(source.uniform(1, 50, count + 1))) for count in counts)
    mesh = Mesh(x, y, -z)
    models = [Model(mesh, np.float32(source.normal(size=mesh.n_cells))) for _ in range(components)]
    path = tmp_path_factory.mktemp("grid") / "model.txt"
    write_tomofast_file(path, to_tomofast(models))
    back = from_tomofast(read_tomofast_file(path))
    assert len(back) == components and back[0].mesh == mesh
    for one, other in zip(models, back):
        np.testing.assert_allclose(other.values, one.values, rtol=1e-8)


def test_tomofast_lines(tmp_path: Path) -> None:
    mesh = Mesh([0, 10, 30], [0, 5], [2, 0, -4])
    write_tomofast_file(tmp_path / "g.txt", to_tomofast([Model(mesh, [1.0, 2.0, 3.0, np.nan])]))
    assert (tmp_path / "g.txt").read_text() == (
        "4\n0 10 0 5 -2 0 1 1 1 1\n10 30 0 5 -2 0 3 2 1 1\n0 10 0 5 0 4 2 1 1 2\n10 30 0 5 0 4 0 2 1 2\n")
    grid = "4\n0 10 0 5 -2 0 1 1 1\n0 10 0 5 0 4 1 1 2\n10 30 0 5 -2 0 2 1 1\n10 30 0 5 0 4 2 1 2\n"
    (tmp_path / "h.txt").write_text(grid)
    for values in ("1\n2\n3\n0\n", "4\n1\n2\n3\n0\n"):
        (tmp_path / "v.txt").write_text(values)
        (model,) = from_tomofast(read_tomofast_file(tmp_path / "h.txt", tmp_path / "v.txt"))
        assert model.values.tolist() == [1.0, 2.0, 3.0, 0.0] and model.mesh == mesh
    for text, problem in (("", "number of cells"), ("2\n", "2 lines"), ("1\n1 2 3\n", "X1 X2"), ("1\n0 1 0 1 0 1 5 1 1 x\n", "numbers"),
                          ("1\n0 1 0 1 0 1 5 2 1 1\n", "number each cell"), ("1\n1 0 0 1 0 1 5 1 1 1\n", "X1 and X2"),
                          ("2\n0 1 0 1 0 1 5 1 1 1\n0 1 0 1 0 1 5 1 1 1\n", "number each cell"),
                          ("2\n0 1 0 1 0 1 5 1 1 1\n1 2 0 2 0 1 5 2 1 1\n", "Y1 and Y2")):
        (tmp_path / "h.txt").write_text(text)
        with pytest.raises(FileError, match=problem):
            read_tomofast_file(tmp_path / "h.txt")
    (tmp_path / "h.txt").write_text(grid)
    for values in ("1\n", "1 2\n" * 4):
        (tmp_path / "v.txt").write_text(values)
        with pytest.raises(FileError, match="v.txt"):
            read_tomofast_file(tmp_path / "h.txt", tmp_path / "v.txt")


def test_export_command(copied, joint: Bench, tools: Tools) -> None:
    bench = copied(joint)
    bench.write("data.obs.json", '{"format": "voxlith side file", "crs": "EPSG:32633", "shift": [500000.0, 0.0]}')
    run = Run(bench.folder)
    assert tools("export", bench.folder, "--out", "a.geoh5").out == "a.geoh5: 192 cells, 2 models, 30 stations\n"
    blocks = next(one for one in read_geoh5("a.geoh5") if isinstance(one, Geoh5Blocks))
    assert blocks.x_nodes[0] == 501000.0 and len(blocks.data) == 2
    outcome = tools("export", bench.folder, "--out", "a.vtr")
    assert outcome.out == "a.vtr: 192 cells, 2 models\na_stations.vtp: 30 stations\n"
    reader = vtkXMLRectilinearGridReader()
    reader.SetFileName("a.vtr")
    reader.Update()
    assert reader.GetOutput().GetBounds()[:2] == (501000.0, 501800.0)
    assert "1 density contrast dens, 2 susceptibility susc" in one_line(tools("export", bench.folder, "--out", "a.tif"), 2)
    assert tools("export", bench.folder, "--out", "a.tif", "--choose", "susc", "--layers", "2:3").out == \
        "a.tif: 2 bands of 8 x 6 pixels, EPSG:32633\n"
    with rasterio.open("a.tif") as file:
        assert file.crs.to_epsg() == 32633 and file.bounds.left == 501000.0
        np.testing.assert_allclose(file.read(1)[::-1].T, run.model("susc").depth_slice(1), rtol=1e-6)
    assert "--crs EPSG:32632: the data are in EPSG:32633" in one_line(tools("export", bench.folder, "--out", "c.tif", "--crs", "EPSG:32632"), 2)
    assert tools("export", bench.folder, "--out", "a.csv").out == "a.csv: 192 active cells\n"
    assert "resolution 8,6,6" in tools("export", bench.folder, "--out", "a.npz", "--choose", 1).out
    assert tools("export", bench.folder, "--out", "a.txt", "--choose", 2).out == "a.txt: 192 cells, 1 components\n"
    assert tools("grid", "a.txt", "--out-mesh", "a.msh", "--out", "a.mod").status == 0
    mesh = Mesh.read("a.msh")
    np.testing.assert_allclose(Model.read("a.mod", mesh).values, run.model(1).values, rtol=1e-6, atol=1e-12)
    assert tools("grid", "a.npz", "--mesh", "a.msh", "--out", "b.mod").status == 0
    np.testing.assert_allclose(Model.read("b.mod", mesh).values, run.model(0).values, rtol=1e-6, atol=1e-12)
    assert tools("export", "--mesh", "a.msh", "--model", "x=a.mod", "--out", "b.csv").out == "b.csv: 192 active cells\n"


@pytest.mark.parametrize("words, problem", [
    (("RUN", "--out", "a.doc"), "ends in one of .geoh5, .vtr"), (("--out", "a.csv"), "either a run, or"),
    (("RUN", "--mesh", "m", "--model", "x", "--out", "a.csv"), "either a run, or"),
    (("RUN", "--out", "a.vtr", "--layers", "1:2"), "--layers: expected"), (("RUN", "--out", "a.csv", "--choose", "1"), "all models"),
    (("RUN", "--out", "a.tif", "--layers", "0:2"), "A:B from 1 to 4"), (("RUN", "--out", "a.tif", "--choose", "9"), "--choose 9"),
    (("RUN", "--out", "a.csv", "--iteration", "x"), "--iteration x"), (("RUN", "--out", "a.tif", "--crs", "nothing"), "nothing")])
def test_wrong_exports(gravity: Bench, tools: Tools, words: tuple[str, ...], problem: str) -> None:
    named = [str(gravity.folder) if word == "RUN" else word for word in words]
    assert problem in one_line(tools("export", *named), 2)
    assert not list(Path.cwd().glob("a.*"))


@pytest.mark.parametrize("words, problem", [
    (("g.npy", "--out", "a.mod"), "extent and the resolution"), (("g.npy", "--values", "v", "--out", "a.mod"), "not for a grid of GemPy"),
    (("g.txt", "--extent", "1", "--out", "a.mod"), "not for a grid of Tomofast-x"),
    (("g.npy", "--extent", "0,1", "--resolution", "1,1,1", "--out", "a.mod"), "--extent 0,1"),
    (("g.npy", "--extent", "0,1,0,1,0,1", "--resolution", "1,1,1.5", "--out", "a.mod"), "whole numbers"),
    (("g.npy", "--out", "g.npy"), "another file")])
def test_wrong_grids(tools: Tools, words: tuple[str, ...], problem: str) -> None:
    np.save("g.npy", np.zeros(1))
    assert problem in one_line(tools("grid", *words), 2)


def test_stored_iterations_are_exported(gravity: Bench, tools: Tools) -> None:
    assert tools("export", gravity.folder, "--iteration", 5, "--out", "a.geoh5").out == "a.geoh5: 192 cells, 1 model\n"
    assert "no model of iteration 6" in one_line(tools("export", gravity.folder, "--iteration", 6, "--out", "a.geoh5"))
    assert Placement().mesh(uneven().mesh) == uneven().mesh
