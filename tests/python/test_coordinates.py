"""Coordinate reference systems, side files, terrain from rasters, and the field of a place."""

from __future__ import annotations

import numpy as np
import pytest

from voxlith import FileError, Survey, UsageError
from voxlith.crs import (convert, grid_convergence, longitude_latitude, outside_area_of_use, require_metres,
                         shift_for_fields)
from voxlith.dem import Box, check_points, is_raster, read_raster_terrain
from voxlith.earth_field import earth_field, inducing_field
from voxlith.side_file import SideInfo, read_side_file, side_path, write_side_file
from voxlith.terrain_input import read_terrain

UTM33 = "EPSG:32633"
BOX = Box(452000.0, 453200.0, 5538000.0, 5539200.0)


def test_conversion_there_and_back():
    generator = np.random.default_rng(5)
    x, y = generator.uniform(400e3, 600e3, 50), generator.uniform(5.3e6, 5.6e6, 50)
    longitude, latitude = longitude_latitude(x, y, UTM33)
    assert abs(latitude - 49.0).max() < 3.0 and abs(longitude - 15.0).max() < 2.0
    back = convert(longitude, latitude, "EPSG:4326", UTM33)
    assert np.allclose(back, [x, y], atol=1.0e-3)


@pytest.mark.parametrize("call, message", [
    (lambda: convert([15.0], [50.0], "EPSG:1", UTM33), "--crs EPSG:1"),
    (lambda: convert([15.0], [50.0], "EPSG:4326", "nonsense"), "--to nonsense"),
    (lambda: convert([452000.0], [5538000.0], "EPSG:4326", UTM33), "in metres already"),
    (lambda: convert([50.0], [150.0], "EPSG:4326", UTM33), "exchanged"),
    (lambda: require_metres("EPSG:4326"), "projected system in metres"),
    (lambda: require_metres("EPSG:2264"), "projected system in metres")])
def test_refusals(call, message):
    with pytest.raises(UsageError, match=message):
        call()


def test_wrong_zone_is_seen():
    x, y = convert([118.0], [-22.0], "EPSG:4326", "EPSG:32750")
    assert outside_area_of_use(x, y, "EPSG:32750") == ""
    assert "12°E" in outside_area_of_use(*convert([30.0], [50.0], "EPSG:4326", UTM33), UTM33)


def test_wide_coordinates_are_shifted():
    x, y = convert([-122.4, -122.39], [37.77, 37.78], "EPSG:4326", "EPSG:3857")
    shift = shift_for_fields(x, y)
    assert shift[0] == -13_600_000.0 and shift[1] == 0.0
    assert all(len(f"{value:.2f}") <= 11 for value in x - shift[0])
    assert shift_for_fields(np.array([452000.0]), np.array([5318000.0])) == (0.0, 0.0)


def test_side_file(tmp_path):
    path = tmp_path / "gz.obs"
    assert read_side_file(path) == SideInfo()
    info = SideInfo(UTM33, (-1.0e5, 2.5)).with_step("regional", order=1, values=[0.5])
    assert write_side_file(path, info) and read_side_file(path) == info
    assert not write_side_file(path, SideInfo()) and not (tmp_path / "gz.obs.json").exists()
    for text in ("no JSON", "[]", "{}", '{"format": "voxlith side file", "shift": "ab"}'):
        (tmp_path / "gz.obs.json").write_text(text)
        with pytest.raises(FileError, match="side file"):
            read_side_file(path)
    assert side_path(path).endswith("gz.obs.json")


def test_field_of_a_place_counts_from_grid_north():
    x, y = convert([13.5], [50.0], "EPSG:4326", UTM33)
    survey = Survey(x, y, np.array([400.0]), np.zeros((1, 1)), (0,))
    assert grid_convergence(float(x[0]), float(y[0]), UTM33) == pytest.approx(-1.149, abs=0.01)
    true, grid = earth_field(survey, UTM33, "2024-05-01"), inducing_field(survey, UTM33, "2024-05-01")
    assert grid.declination == pytest.approx(true.declination + 1.149, abs=0.01)
    moved = Survey(x - 4.0e5, y, survey.elevation, survey.data, (0,))
    assert inducing_field(moved, UTM33, "2024-05-01", (4.0e5, 0.0)) == grid
    with pytest.raises(UsageError, match="--crs"):
        earth_field(survey, "", "2024-05-01")


def slope(x, y):
    """Elevation of the test terrain."""
    return 300.0 + 0.05 * (x - 452000.0) - 0.02 * (y - 5538000.0)


def write_raster(path, driver="GTiff", pixel=25.0, crs=UTM33, hole=False, degrees=False, names_code=True):
    import rasterio
    west, north, count = 450000.0, 5541000.0, int(5000.0 / pixel)
    if degrees:
        west, north, pixel, count = 14.30, 50.03, 0.0003, 250
    columns, rows = np.meshgrid(np.arange(count) + 0.5, np.arange(count) + 0.5)
    x, y = west + columns * pixel, north - rows * pixel
    if degrees:
        x, y = convert(x, y, "EPSG:4326", UTM33)
    values = slope(x, y).astype("float32")
    if hole:
        values[:, : count // 2] = -9999.0
    with rasterio.open(path, "w", driver=driver, width=count, height=count, count=1, dtype="float32",
                       nodata=-9999.0 if hole and names_code else None, crs=crs,
                       transform=rasterio.Affine(pixel, 0, west, 0, -pixel, north)) as target:
        target.write(values, 1)
    return path


@pytest.mark.parametrize("driver, name", [("GTiff", "dem.tif"), ("AAIGrid", "dem.asc"), ("GSBG", "dem.grd"),
                                          ("netCDF", "dem.nc")])
def test_formats_of_rasters(tmp_path, driver, name):
    import shutil
    from rasterio.shutil import copy
    write_raster(tmp_path / "first.tif")
    if driver == "GTiff":
        shutil.copy(tmp_path / "first.tif", tmp_path / name)
    else:
        try:
            copy(str(tmp_path / "first.tif"), str(tmp_path / name), driver=driver)
        except Exception as error:  # noqa: BLE001
            pytest.skip(f"this GDAL does not write {driver}: {error}")
    assert is_raster(name) and not is_raster("topo.txt")
    terrain = read_raster_terrain(tmp_path / name, BOX, 50.0, crs=UTM33, raster_crs="" if driver == "GTiff" else UTM33)
    x, y, z = terrain.points.T
    assert terrain.covered == 1.0 and np.allclose(z, slope(x, y), atol=0.05)
    assert x.min() < BOX.west and x.max() > BOX.east and len(z) < 2500


def test_raster_in_degrees_and_shifted_survey(tmp_path):
    write_raster(tmp_path / "dem.tif", crs="EPSG:4326", degrees=True)
    box = Box(52000.0, 53200.0, 38000.0, 39200.0)
    terrain = read_raster_terrain(tmp_path / "dem.tif", box, 40.0, crs=UTM33, shift=(400000.0, 5500000.0))
    x, y, z = terrain.points.T
    assert np.allclose(z, slope(x + 400000.0, y + 5500000.0), atol=0.7)


def test_raster_in_degrees_without_a_reference_system(tmp_path):
    """Its longitudes come first, whatever order EPSG:4326 has."""
    write_raster(tmp_path / "dem.tif", crs=None, degrees=True)
    terrain = read_raster_terrain(tmp_path / "dem.tif", BOX, 40.0, crs=UTM33, raster_crs="EPSG:4326")
    x, y, z = terrain.points.T
    assert terrain.covered == 1.0 and np.allclose(z, slope(x, y), atol=0.7)
    with pytest.raises(UsageError, match="names no reference system; say it with --terrain-crs"):
        read_raster_terrain(tmp_path / "dem.tif", BOX, 40.0, crs=UTM33)
    with pytest.raises(UsageError, match="--terrain-crs nothing"):
        read_raster_terrain(tmp_path / "dem.tif", BOX, 40.0, crs=UTM33, raster_crs="nothing")
    write_raster(tmp_path / "named.tif")
    with pytest.raises(UsageError, match="--terrain-crs EPSG:4326: .*named.tif is in EPSG:32633"):
        read_raster_terrain(tmp_path / "named.tif", BOX, 40.0, crs=UTM33, raster_crs="EPSG:4326")


def test_points_that_know_their_coordinates(tmp_path):
    """Points that voxlith-tools terrain wrote have a side file: another system and another shift are converted."""
    x, y = (values.ravel() for values in np.meshgrid(np.linspace(451000.0, 454000.0, 25), np.linspace(5537000.0, 5540000.0, 25)))
    places = np.array([[452000.0, 5538000.0], [453100.0, 5539200.0]])
    expected = slope(*places.T)
    for crs, shift in ((UTM33, (0.0, 0.0)), (UTM33, (450000.0, 5500000.0)), ("EPSG:25833", (1000.0, 0.0)), ("EPSG:32632", (9000.0, 0.0))):
        east, north = convert(x, y, UTM33, crs)
        points = np.column_stack([east - shift[0], north - shift[1], slope(x, y)])
        (tmp_path / "topo.txt").write_text("\n".join(" ".join(map(repr, row)) for row in points.tolist()))
        write_side_file(tmp_path / "topo.txt", SideInfo(crs, shift))
        for own in ((0.0, 0.0), (400000.0, 0.0)):
            surface, warning = read_terrain(tmp_path / "topo.txt", places - own, 50.0, crs=UTM33, shift=own)
            assert surface(*(places - own).T) == pytest.approx(expected, abs=0.5) and not warning
    with pytest.raises(UsageError, match="--terrain-crs EPSG:4326: .*topo.txt is in EPSG:32632"):
        read_terrain(tmp_path / "topo.txt", places, 50.0, crs=UTM33, terrain_crs="EPSG:4326")


def test_part_without_data_and_box_outside(tmp_path):
    write_raster(tmp_path / "dem.tif", hole=True)
    box = Box(451900.0, 453100.0, 5538000.0, 5539200.0)
    assert read_raster_terrain(tmp_path / "dem.tif", box, 50.0, crs=UTM33).covered == pytest.approx(0.5, abs=0.05)
    with pytest.raises(FileError, match="found none"):
        read_raster_terrain(tmp_path / "dem.tif", Box(0.0, 1000.0, 0.0, 1000.0), 50.0, crs=UTM33)
    with pytest.raises(FileError, match="the raster is in EPSG:.*nothing names the reference system of the survey: obs --crs"):
        read_raster_terrain(tmp_path / "dem.tif", Box(0.0, 1000.0, 0.0, 1000.0), 50.0)
    with pytest.raises(UsageError, match="at most"):
        read_raster_terrain(tmp_path / "dem.tif", Box(0.0, 4.0e6, 0.0, 4.0e6), 50.0, crs=UTM33)


def test_a_step_is_at_least_a_quarter_of_a_pixel(tmp_path):
    rasterio = pytest.importorskip("rasterio")
    write_raster(tmp_path / "dem.tif")
    found = read_raster_terrain(tmp_path / "dem.tif", BOX, 0.1, crs=UTM33)
    with rasterio.open(tmp_path / "dem.tif") as source:
        pixel = abs(source.transform.a) * (111_000.0 if source.crs.is_geographic else 1.0)
    assert found.step == pytest.approx(0.25 * pixel)


def test_no_data_code_without_a_header_is_refused(tmp_path):
    write_raster(tmp_path / "dem.tif", hole=True, names_code=False)
    with pytest.raises(FileError, match="stands for no data"):
        read_raster_terrain(tmp_path / "dem.tif", BOX, 50.0, crs=UTM33)


def test_files_that_are_no_rasters(tmp_path):
    (tmp_path / "dem.tif").write_text("no raster")
    with pytest.raises(FileError, match="expected a raster"):
        read_raster_terrain(tmp_path / "dem.tif", BOX, 50.0)
    with pytest.raises(FileError):
        read_raster_terrain(tmp_path / "absent.tif", BOX, 50.0)


def test_points_that_make_no_surface():
    with pytest.raises(FileError, match="three points"):
        check_points([[0.0, 0.0, 1.0], [1.0, 0.0, 1.0]], "topo.txt")
    with pytest.raises(FileError, match="along one line"):
        check_points([[n, 2.0 * n, 1.0] for n in range(9)], "topo.txt")
    assert check_points([[0.0, 0.0, 1.0], [1.0, 0.0, 1.0], [0.0, 1.0, 1.0]], "topo.txt").shape == (3, 3)


def test_side_file_spares_other_files(tmp_path):
    other = tmp_path / "a.obs.json"
    other.write_text('{"mine": 1}')
    assert not write_side_file(tmp_path / "a.obs", SideInfo())
    with pytest.raises(FileError, match="expected a side file"):
        write_side_file(tmp_path / "a.obs", SideInfo(UTM33))
    assert other.read_text() == '{"mine": 1}'


def test_no_data_codes_and_degrees_among_points(tmp_path):
    places = np.array([[BOX.west, BOX.south], [BOX.east, BOX.north]])
    rows = [(x, y, 400.0 + 0.01 * n) for n, (x, y) in enumerate((x, y) for x in (452000, 452600, 453200)
                                                                for y in (5538000, 5539200))]
    write = lambda points: (tmp_path / "t.csv").write_text("x,y,z\n" + "\n".join(f"{a},{b},{c}" for a, b, c in points))
    write(rows)
    assert read_terrain(tmp_path / "t.csv", places, 10.0)[1] == ""
    points = [",".join(map(str, row)) for row in rows]
    (tmp_path / "s.csv").write_text("x;y;z\n" + "\n".join(p.replace(",", ";").replace(".", ",") for p in points) + "\n")
    assert repr(read_terrain(tmp_path / "s.csv", places, 10.0)[0]) == repr(read_terrain(tmp_path / "t.csv", places, 10.0)[0])
    write([*rows[:-1], (453200, 5539200, -9999)])
    with pytest.raises(FileError, match="1 points of -9999"):
        read_terrain(tmp_path / "t.csv", places, 10.0)
    write([(14.31, 49.91, 400), (14.35, 49.92, 410), (14.33, 49.96, 420)])
    with pytest.raises(FileError, match="--terrain-crs EPSG:4326"):
        read_terrain(tmp_path / "t.csv", places, 10.0, crs=UTM33)


def test_terrain_of_a_rotated_gxf(tmp_path):
    """The rotation counts, and the grid may be finer than is wanted."""
    from test_grid_table import gxf
    heights = np.add.outer(10.0 * np.arange(40), 1.0 * np.arange(80))
    (tmp_path / "a.gxf").write_text(gxf(heights, ROTATION=30, XORIGIN=453000, YORIGIN=5536000))
    places = np.array([[454000.0, 5538000.0], [454500.0, 5538600.0]])
    surface, _ = read_terrain(tmp_path / "a.gxf", places, 150.0, crs=UTM33, terrain_crs=UTM33)
    at = np.array([454200.0, 5538300.0])
    offset, angle = at - [453000.0, 5536000.0], np.radians(30.0)
    along, up = (np.cos(angle) * offset[0] + np.sin(angle) * offset[1], -np.sin(angle) * offset[0] + np.cos(angle) * offset[1])
    assert surface(*at) == pytest.approx(along / 50.0 + up / 10.0, abs=1e-6)
