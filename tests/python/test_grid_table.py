"""Grids as data: GXF of every sense, rotation and compression, rasters of other formats, thinning."""

from __future__ import annotations

import hypothesis.strategies as st
import numpy as np
import pytest
from conftest import one_line
from hypothesis import given

from voxlith import FileError, Survey
from voxlith.grid_table import read_grid_data, table_of_grid
from voxlith.io.gxf_file import read_gxf_file
from voxlith.side_file import read_side_file

VALUES = np.array([[1.0, 2.0, 3.0], [4.0, np.nan, 6.25]])  # south to north, west to east


def gxf(values: np.ndarray, sense: int = 1, **keywords: object) -> str:
    """A grid whose first point is south-west, written by rows in another sense."""
    rows = {1: values, -1: values.T, 2: values.T[:, ::-1], -2: values[::-1], 3: values[::-1, ::-1],
            -3: values.T[::-1, ::-1], 4: values.T[::-1], -4: values[:, ::-1]}[sense]
    steps = (50, 100) if abs(rows.shape[1]) == values.shape[1] and rows.shape == values.shape else (100, 50)
    words = {"POINTS": rows.shape[1], "ROWS": rows.shape[0], "PTSEPARATION": steps[0], "RWSEPARATION": steps[1],
             "XORIGIN": 452000, "YORIGIN": 5538000, "SENSE": sense, "DUMMY": -9999, **keywords}
    lines = [" ".join("-9999" if value != value else repr(float(value)) for value in row) for row in rows]
    return "text before\n" + "".join(f"#{key}\n{value}\n" for key, value in words.items()) + "#GRID\n" + "\n".join(lines) + "\n"


@pytest.mark.parametrize("sense", [1, -1, 2, -2, 3, -3, 4, -4])
def test_every_sense_is_the_same_grid(tmp_path, sense):
    (tmp_path / "a.gxf").write_text(gxf(VALUES, sense))
    grid = read_grid_data(tmp_path / "a.gxf")
    assert np.array_equal(grid.bands["band1"], VALUES, equal_nan=True)
    assert grid.x[0].tolist() == [452000.0, 452050.0, 452100.0] and grid.y[:, 0].tolist() == [5538000.0, 5538100.0]


def test_rotation_unit_and_transform(tmp_path):
    (tmp_path / "a.gxf").write_text(gxf(VALUES, ROTATION=30, UNIT_LENGTH='"ft",0.3048', TRANSFORM="2 -1",
                                        MAP_PROJECTION='"WGS 84 / UTM zone 33N"'))
    found = read_gxf_file(tmp_path / "a.gxf")
    assert np.array_equal(found.values, 2.0 * VALUES - 1.0, equal_nan=True)
    x, y = found.places()
    east, north = np.array([np.cos(np.radians(30)), np.sin(np.radians(30))]), np.array([-0.5, np.cos(np.radians(30))])
    last = np.array([452000.0, 5538000.0]) + 100.0 * east + 100.0 * north
    assert np.allclose([x[1, 2], y[1, 2]], 0.3048 * last, rtol=0, atol=1e-6)
    assert read_grid_data(tmp_path / "a.gxf").crs == "EPSG:32633"


def digits(value: int, size: int) -> str:
    text = ""
    for _ in range(size):
        value, digit = divmod(value, 90)
        text = chr(37 + digit) + text
    return text


@given(st.lists(st.one_of(st.none(), st.integers(0, 90**3 - 1)), min_size=1, max_size=30), st.data())
def test_compressed_values_come_back(tmp_path_factory, values, data):
    """Runs of equal values may be written as counts."""
    size, at, text = 3, 0, ""
    while at < len(values):
        alike = next((n for n in range(at, len(values)) if values[n] != values[at]), len(values)) - at
        count = data.draw(st.integers(1, alike))
        word = "!!!" if values[at] is None else digits(values[at], size)
        text += word if count == 1 else '"""' + digits(count, size) + word
        at += count
    path = tmp_path_factory.mktemp("gxf") / "a.gxf"
    path.write_text(f"#POINTS\n{len(values)}\n#ROWS\n1\n#PTSEPARATION\n1\n#RWSEPARATION\n1\n#GTYPE\n3\n#TRANSFORM\n0.5 10\n"
                    f"#GRID\n{text}\n")
    expected = [np.nan if value is None else 0.5 * value + 10.0 for value in values]
    assert np.array_equal(read_gxf_file(path).values[0], expected, equal_nan=True)


@pytest.mark.parametrize("old, new, problem", [
    ("#GRID", "#GRIDS", "keyword #GRID"), ("#POINTS\n3", "#POINTS\n0", "#POINTS with a count"), ("6.25", "x", 'found "x"'),
    ("6.25", "", "3 x 2 values, found 5"), ("#SENSE\n1", "#SENSE\n7", "SENSE of -4 to 4"), ("452000", "4,5,2x", "#XORIGIN"),
    ("#PTSEPARATION\n50", "#PTSEPARATION\n0", "above 0"), ("#POINTS\n3", "#POINTS\n3000000000", "at most"),
    ("#DUMMY\n-9999", "#GTYPE\n3", "expected")])
def test_damaged_gxf(tmp_path, old, new, problem):
    text = gxf(VALUES)
    assert old in text
    (tmp_path / "a.gxf").write_text(text.replace(old, new))
    with pytest.raises(FileError, match=problem):
        read_grid_data(tmp_path / "a.gxf")


@given(st.binary(max_size=200))
def test_any_values_end_in_a_grid_or_one_error(tmp_path_factory, content):
    path = tmp_path_factory.mktemp("gxf") / "a.gxf"
    path.write_bytes(b"#POINTS\n2\n#ROWS\n1\n#PTSEPARATION\n1\n#RWSEPARATION\n1\n#GTYPE\n2\n#GRID\n" + content)
    try:
        assert read_gxf_file(path).values.shape == (1, 2)
    except FileError as error:
        assert "\n" not in str(error)


def raster(path, driver: str, **more: object) -> None:
    import rasterio
    values = np.where(np.isnan(VALUES), -9999.0, VALUES)[::-1].astype(np.float32) + np.float32(0.1)
    profile = {"driver": driver, "width": 3, "height": 2, "count": 1, "dtype": "float32", "nodata": np.float32(-9998.9),
               "transform": rasterio.Affine(50.0, 0.0, 451975.0, 0.0, -50.0, 5538075.0), **more}
    with rasterio.open(path, "w", **profile) as file:
        file.write(values, 1)


@pytest.mark.parametrize("driver, name", [("GTiff", "a.tif"), ("GSBG", "a.grd"), ("AAIGrid", "a.asc"), ("netCDF", "a.nc")])
def test_rasters_are_stations(tools, tmp_path, driver, name):
    if driver != "GTiff":
        from rasterio.shutil import copy
        raster(tmp_path / "first.tif", "GTiff")
        copy(tmp_path / "first.tif", tmp_path / name, driver=driver)
    else:
        raster(tmp_path / name, driver)
    done = tools("obs", name, "--data", "band1", "--elevation", 10, "--floor", 0.1, "--out", "gz.obs")
    assert done.status == 0, done.errors
    survey = Survey.read(tmp_path / "gz.obs", "gz")
    assert survey.x.tolist() == [452000.0, 452050.0, 452100.0, 452000.0, 452100.0]
    assert survey.y.tolist() == [5538000.0] * 3 + [5538050.0] * 2
    assert np.allclose(survey.data[0], [1.1, 2.1, 3.1, 4.1, 6.35], atol=1e-6)


def test_reference_systems_of_grids(tools, tmp_path):
    raster(tmp_path / "a.tif", "GTiff", crs="EPSG:32633")
    words = ("obs", "a.tif", "--data", "band1", "--elevation", 10, "--floor", 0.1, "--out", "gz.obs")
    assert tools(*words).status == 0 and read_side_file(tmp_path / "gz.obs").crs == "EPSG:32633"
    assert "is in EPSG:32633" in one_line(tools(*words, "--crs", "EPSG:4326"), 2)
    assert tools(*words, "--to", "EPSG:32632").status == 0 and read_side_file(tmp_path / "gz.obs").crs == "EPSG:32632"
    assert "it has x, y, band1" in one_line(tools(*words[:2], "--data", "gz", *words[4:]), 2)
    import rasterio
    raster(tmp_path / "d.tif", "GTiff", crs="EPSG:4326", transform=rasterio.Affine(0.001, 0.0, 14.3, 0.0, -0.001, 48.0))
    assert "expected --to beside it" in one_line(tools("obs", "d.tif", *words[2:]), 2)
    done = tools("check", "d.tif", "--data", "band1", "--elevation", 10, "--floor", 0.1)
    assert done.status == 1 and "error    degrees" in done.out


def test_every_takes_rows_and_columns(tmp_path):
    (tmp_path / "a.gxf").write_text(gxf(np.arange(35.0).reshape(5, 7)))
    grid = read_grid_data(tmp_path / "a.gxf", 150.0)
    assert grid.bands["band1"].tolist() == [[0.0, 3.0, 6.0], [14.0, 17.0, 20.0], [28.0, 31.0, 34.0]]
    assert len(table_of_grid(grid, "a.gxf")) == 9
    assert read_grid_data(tmp_path / "a.gxf", 100.0).bands["band1"].shape == (5, 4)


def test_files_that_are_no_grids(tmp_path):
    (tmp_path / "a.tif").write_text("no raster")
    with pytest.raises(FileError, match="expected a grid"):
        read_grid_data(tmp_path / "a.tif")
    (tmp_path / "e.gxf").write_text(gxf(np.full((2, 3), np.nan)))
    with pytest.raises(FileError, match="expected a value, found none"):
        read_grid_data(tmp_path / "e.gxf")
