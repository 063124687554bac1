"""Sections and data grids: read back by rasterio, SciPy and pandas, and compared with cells and stations of known place."""

from __future__ import annotations

import json
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
import rasterio
from conftest import Bench, Tools, one_line
from scipy.io import netcdf_file

from voxlith import Fit, Mesh, Model, Run, Survey, UsageError
from voxlith.export import (grid_data, section_at, section_of_stations, write_data_geotiff, write_data_netcdf,
                            write_section_csv, write_section_geotiff)
from voxlith.section import section_between


def terraced() -> Model:
    """Cells of 50 m and of 100 m, the first layer inactive in the west; each value names its cell."""
    mesh = Mesh.from_widths((457000.0, 5538000.0, 300.0), 8 * [50.0] + 2 * [100.0], 6 * [50.0], 5 * [25.0])
    active = ~((mesh.centres()[:, 0] < 457200.0) & (mesh.centres()[:, 2] > 275.0))
    return Model(mesh, np.arange(mesh.n_cells) / 8.0, "density contrast", "g/cm3", active)


def gridded_fit(step: float = 40.0) -> Fit:
    """A plane, which linear interpolation keeps, at stations with a gap in one corner."""
    x, y = (a.ravel() for a in np.meshgrid(457000.0 + step * np.arange(9), 5538000.0 + step * np.arange(7)))
    data = 0.01 * (x - 457000.0) - 0.02 * (y - 5538000.0) + 1.0
    data[30] = np.nan
    survey = Survey(x, y, np.full(len(x), 320.0), data[None, :], (0,), np.full((1, len(x)), 0.1))
    return Fit(survey, data[None, :] + 0.25)


def test_a_section_across_an_axis_as_geotiff(tmp_path: Path) -> None:
    model, path = terraced(), tmp_path / "section.tif"
    section = section_at(model.mesh, "y", 5538130.0)
    assert write_section_geotiff(path, model, section, "EPSG:32633") == (5, 12)
    with rasterio.open(path) as file:
        assert tuple(file.bounds) == (457000.0, 175.0, 457600.0, 300.0) and np.isnan(file.nodata)
        assert file.tags()["section"] == "457000,5538125 to 457600,5538125" and file.units == ("g/cm3",)
        for x, z in ((457225.0, 287.0), (457590.0, 177.0), (457410.0, 210.0), (457020.0, 290.0)):
            cell = model.mesh.cell_at(x, 5538125.0, z)
            expected = model.values[cell] if model.shown[cell] else np.nan
            np.testing.assert_allclose(next(file.sample([(x, z)]))[0], expected, rtol=1e-6)
        assert int(np.isnan(file.read(1)).sum()) == 4
    side = json.loads((tmp_path / "section.tif.json").read_text())
    assert side["crs"] == "EPSG:32633"
    assert side["history"] == [{"operation": "section", "horizontal": "easting", "vertical": "elevation",
                                "positions": [457000.0, 457600.0], "start": [457000.0, 5538125.0], "end": [457600.0, 5538125.0]}]


def test_an_oblique_section(tmp_path: Path) -> None:
    """Both files name the cells below the line; the reader finds these by the side file alone."""
    model = terraced()
    section = section_between(model.mesh, (457010.0, 5538290.0), (457500.0, 5538020.0))
    write_section_geotiff(tmp_path / "s.tif", model, section, "EPSG:32633")
    side = json.loads((tmp_path / "s.tif.json").read_text())["history"][0]
    assert side["horizontal"] == "distance from the start" and side["start"] == [457010.0, 5538290.0]
    start, end = np.array(side["start"]), np.array(side["end"])
    unit = (end - start) / np.linalg.norm(end - start)
    np.testing.assert_allclose(end, [457500.0, 5538020.0], atol=1e-6)
    with rasterio.open(tmp_path / "s.tif") as file:
        assert file.bounds.left == 0.0 and file.bounds.right == pytest.approx(np.linalg.norm(end - start))
        band = file.read(1)
        for row, column in ((0, 0), (0, 7), (2, 4), (4, band.shape[1] - 1)):
            distance, z = file.xy(row, column)
            cell = model.mesh.cell_at(*(start + distance * unit), z)
            np.testing.assert_allclose(band[row, column], model.values[cell] if model.shown[cell] else np.nan, rtol=1e-6)
    count = write_section_csv(tmp_path / "s.csv", [model], section)
    table = pd.read_csv(tmp_path / "s.csv")
    assert len(table) == count and list(table)[:6] == ["position", "x", "y", "elevation", "width", "thickness"]
    cells = model.mesh.cell_at(table.x, table.y, table.elevation)
    np.testing.assert_array_equal(table["density contrast (g/cm3)"], model.values[cells])
    assert model.shown[cells].all()
    np.testing.assert_allclose(np.column_stack([table.x, table.y]), start + table.position.to_numpy()[:, None] * unit, atol=2e-3)
    assert table[table.elevation < 200.0].width.sum() == pytest.approx(np.linalg.norm(end - start), abs=0.01)


def test_sections_beside_the_mesh_are_refused() -> None:
    mesh = terraced().mesh
    with pytest.raises(UsageError, match="x 1 lies outside the mesh, 457000 to 457600"):
        section_at(mesh, "x", 1.0)
    with pytest.raises(UsageError, match="lies beside the mesh"):
        section_between(mesh, (457000.0, 1.0), (457100.0, 1.0))
    with pytest.raises(UsageError, match="two points"):
        section_between(mesh, (457000.0, 5538000.0), (457000.0, 5538000.0))
    with pytest.raises(UsageError, match="one straight line"):
        section_of_stations(mesh, gridded_fit().observed)
    # Two points on an easting: the section is that across the axis.
    parallel = section_between(mesh, (457075.0, 5538000.0), (457075.0, 5538300.0))
    assert parallel.i.tolist() == 6 * [1] and parallel.j.tolist() == list(range(6))


def test_data_grids_have_the_data_at_the_stations(tmp_path: Path) -> None:
    fit = gridded_fit()
    grid = grid_data([fit])
    assert grid.cell == 10.0 and [band.name for band in grid.bands] == ["Gz observed", "Gz predicted", "Gz residual"]
    write_data_geotiff(tmp_path / "d.tif", grid, "EPSG:32633")
    valid = fit.observed.valid[0]
    with rasterio.open(tmp_path / "d.tif") as file:
        assert file.crs.to_epsg() == 32633 and file.units == ("mGal",) * 3 and "Delaunay" in file.tags()["gridding"]
        places = list(zip(fit.observed.x[valid], fit.observed.y[valid]))
        found = np.array(list(file.sample(places)))
        np.testing.assert_allclose(found[:, 0], fit.observed.data[0][valid], rtol=1e-5)
        np.testing.assert_allclose(found[:, 1], fit.predicted[0][valid], rtol=1e-5)
        np.testing.assert_allclose(file.read(3), 0.25, rtol=1e-5)  # all of the hull, also at the masked station
        x, y = np.meshgrid(grid.x, grid.y)
        np.testing.assert_allclose(file.read(1), 0.01 * (x - 457000.0) - 0.02 * (y - 5538000.0) + 1.0, atol=1e-5)
    write_data_netcdf(tmp_path / "d.nc", grid, "EPSG:32633")
    with netcdf_file(tmp_path / "d.nc", mmap=False) as file:
        assert file.Conventions == b"CF-1.8" and file.variables["gz_observed"].units == b"mGal"
        assert file.variables["crs"].semi_minor_axis == pytest.approx(6356752.314245179, rel=1e-14)
        assert file.variables["y"][0] == 5538000.0 and file.variables["x"][-1] == 457320.0
        np.testing.assert_allclose(file.variables["gz_observed"][:][::-1], grid.bands[0].values, rtol=1e-5)
    with rasterio.open(f"netcdf:{tmp_path / 'd.nc'}:gz_predicted") as file:
        assert file.crs.to_epsg() == 32633 and tuple(file.transform)[:6] == (10.0, 0.0, 456995.0, 0.0, -10.0, 5538245.0)
        assert next(file.sample([(457040.0, 5538080.0)]))[0] == pytest.approx(1.25 + 0.4 - 1.6)


def test_gaps_and_outside_have_no_values(tmp_path: Path) -> None:
    fit = gridded_fit(10.0)
    x, y = fit.observed.x - 457000.0, fit.observed.y - 5538000.0
    far = Survey(np.append(fit.observed.x, 457500.0), np.append(fit.observed.y, 5538030.0), np.full(64, 320.0),
                 np.append(fit.observed.data[0], 5.0)[None, :], (0,))
    grid = grid_data([Fit(far, far.data)], 5.0)
    east, north = np.meshgrid(grid.x - 457000.0, grid.y - 5538000.0)
    inside = (east <= x.max()) & (north <= y.max()) & (north >= 0.0)
    held = np.isfinite(grid.bands[0].values)
    assert held[inside].all() and not held[~inside].any()
    write_data_netcdf(tmp_path / "d.nc", grid)
    with netcdf_file(tmp_path / "d.nc", mmap=False) as file:
        assert "crs" not in file.variables and np.isnan(file.variables["gz_observed"]._FillValue)
    line = fit.observed.select(np.arange(9))
    with pytest.raises(UsageError, match="cover an area, found 9 along one line"):
        grid_data([Fit(line, line.data)])
    with pytest.raises(UsageError, match="at most 100000000 pixels"):
        grid_data([fit], 0.001)
    masked = fit.observed.with_data([np.full(63, np.nan)])
    assert not np.isfinite(grid_data([Fit(masked, masked.data)], 5.0).bands[0].values).any()


def test_stations_at_one_place_count_with_their_mean() -> None:
    fit = gridded_fit()
    twice = Survey(np.append(fit.observed.x, 457040.0), np.append(fit.observed.y, 5538040.0), np.full(64, 320.0),
                   np.append(fit.observed.data[0], 3.0)[None, :], (0,))
    grid = grid_data([Fit(twice, twice.data)], 10.0)
    own = fit.observed.data[0][(fit.observed.x == 457040.0) & (fit.observed.y == 5538040.0)][0]
    at = grid.bands[0].values[list(grid.y).index(5538040.0), list(grid.x).index(457040.0)]
    assert at == pytest.approx(0.5 * (own + 3.0))


def test_the_command(copied, joint: Bench, tools: Tools) -> None:
    bench = copied(joint)
    bench.write("data.obs.json", '{"format": "voxlith side file", "crs": "EPSG:32633", "shift": [500000.0, 0.0]}')
    run = Run(bench.folder)
    assert tools("export", bench.folder, "--out", "s.tif", "--section", "y=2300", "--choose", "susc").out == \
        "s.tif: 8 x 6 pixels, easting and elevation\nfrom 501000,2350 to 501800,2350\n"
    with rasterio.open("s.tif") as file:
        x, z = 501350.0, float(run.mesh.z_centres[1])
        assert next(file.sample([(x, z)]))[0] == pytest.approx(float(run.model("susc").value_at(x - 500000.0, 2350.0, z)))
    assert tools("export", bench.folder, "--out", "s.csv", "--section", "501000,2000,501700,2600").status == 0
    table = pd.read_csv("s.csv")
    assert table.x.min() > 501000.0 and [name.partition(" (")[0] for name in table][6:] == ["density contrast dens", "susceptibility susc"]
    assert tools("export", bench.folder, "--out", "l.csv", "--layers", "2:2").out == "l.csv: 48 active cells\n"
    assert set(pd.read_csv("l.csv").elevation) == {run.mesh.z_centres[1]}
    said = tools("export", bench.folder, "--out", "d.nc", "--data-grid", "25").out
    assert said.startswith("d.nc: 6 bands of ") and "pixels of 25 m, EPSG:32633\ngridding: linear" in said
    assert tools("export", bench.folder, "--out", "d.tif", "--data-grid", "auto").status == 0
    with rasterio.open("d.tif") as file:
        assert file.bounds.left > 500000.0 and len(file.units) == 6 and set(file.units) == {"mGal", "nT"}


@pytest.mark.parametrize("words, problem", [
    (("a.nc",), "expected --data-grid"), (("a.csv", "--data-grid", "5"), "--data-grid: expected together"),
    (("a.tif", "--data-grid", "0"), "above 0"), (("a.tif", "--data-grid", "auto", "--section", "x=1"), "exclude each other"),
    (("a.geoh5", "--section", "x=1"), "--section: expected together"), (("a.tif", "--section", "z=1"), "--section z=1"),
    (("a.tif", "--section", "x=nan"), "x=METRES"), (("a.tif", "--section", "stations"), "one straight line"),
    (("a.tif", "--section", "1,2,3"), "X1,Y1,X2,Y2"), (("a.tif", "--iteration", "5", "--data-grid", "5"), "exclude each other")])
def test_wrong_sections_and_grids(gravity: Bench, tools: Tools, words: tuple[str, ...], problem: str) -> None:
    assert problem in one_line(tools("export", gravity.folder, "--out", *words), 2)
    assert not list(Path.cwd().glob("a.*"))
