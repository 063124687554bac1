"""The subcommands check, weights, terrain and regional, and terrain of any form for mtx."""

from __future__ import annotations

import json

import numpy as np
import pytest
from conftest import one_line, stations
from test_checks import changed, clean
from test_coordinates import UTM33, slope, write_raster

from voxlith import Mesh, Survey
from voxlith.crs import longitude_latitude
from voxlith.io.bounds_file import read_bounds_file
from voxlith.io.topography_file import read_topography_file
from voxlith.io.weight_file import read_weight_files
from voxlith.side_file import SideInfo, read_side_file, write_side_file
from voxlith.survey import InducingField


def messy_table(path) -> None:
    """A survey in degrees with semicolons, decimal commas, missing values, a duplicate, a -9999, an offset and a slope."""
    survey = clean()
    x, y = survey.x.copy(), survey.y + 220000.0
    data = survey.data[0] + 12.0 + 0.003 * (x - 452000.0)
    x[200], y[200], data[200] = x[20], y[20], data[20] + 1.3
    longitude, latitude = longitude_latitude(x, y, UTM33)
    words = [f"{value:.3f}" for value in data]
    words[60], words[61], words[62] = "-9999.000", "", "NA"
    rows = [f"P{n:03d};{a:.7f};{b:.7f};{c:.2f};{d};0.020".replace(".", ",") for n, (a, b, c, d) in
            enumerate(zip(longitude, latitude, survey.elevation, words))]
    path.write_text("name;lon;lat;h;gz;err\n" + "\n".join(rows) + "\n")


COLUMNS = ("--x", "lon", "--y", "lat", "--z", "h", "--data", "gz:err", "--decimal-comma", "--name", "name")


def test_check_finds_all_traps_of_a_messy_table(tools, tmp_path):
    messy_table(tmp_path / "messy.csv")
    done = tools("check", "messy.csv", *COLUMNS, "--json", "found.json")
    assert done.status == 1
    found = {item["name"]: item for item in json.loads((tmp_path / "found.json").read_text())}
    assert {"degrees", "no-data-code", "duplicate-stations"} <= set(found)
    done = tools("check", "messy.csv", *COLUMNS, "--crs", "EPSG:4326", "--to", UTM33, "--json", "-")
    found = {item["name"]: item for item in json.loads(done.out)}
    assert set(found) - {"outliers"} == {"no-data-code", "duplicate-stations", "constant-offset", "regional-trend",
                                         "missing-data"}
    assert found["missing-data"]["stations"] == ["P061", "P062"]
    assert found["no-data-code"]["stations"] == ["P060"] and set(found["duplicate-stations"]["stations"][0].split(" = ")) == {
        "P020", "P200"}


def test_check_of_clean_data_ends_with_0(tools, tmp_path):
    clean().write(tmp_path / "gz.obs")
    done = tools("check", "gz.obs")
    assert done.status == 0 and done.out.endswith("gz.obs: 256 stations, 0 errors, 0 warnings, 0 notes\n")


@pytest.mark.parametrize("content, name", [
    (clean, "utf16"), (None, "absent"), (b"lon;lat\n1;2\n", "table")])
def test_files_that_cannot_be_read(tools, tmp_path, content, name):
    if content is clean:
        clean().write(tmp_path / "a.obs")
        (tmp_path / "a.obs").write_bytes((tmp_path / "a.obs").read_text().encode("utf-16"))
        done = tools("check", "a.obs")
        assert done.status == 1 and "not plain text in UTF-8" in done.out
    elif content is None:
        assert "absent.obs" in one_line(tools("check", "absent.obs"))
    else:
        (tmp_path / "a.csv").write_bytes(content)
        done = tools("check", "a.csv")
        assert done.status == 1 and "--data" in done.out


def test_check_of_numbers_that_are_none(tools, tmp_path):
    (tmp_path / "a.csv").write_text("x;y;z;d\n1000,5;2;3;1,25\n2000;2;3;1\n")
    done = tools("check", "a.csv", "--data", "d", "--floor", 1)
    assert done.status == 1 and "--decimal-comma" in done.out
    assert "1 field without a number" in done.out and "1 record without x, y or elevation" in done.out


def test_check_against_mesh_sensitivities_and_date(tools, tmp_path, magnetic):
    data, mesh, mtx = (magnetic.path(name) for name in ("data.obs", "mesh.msh", "data.mtx"))
    done = tools("check", data, "--type", "tmi", "--mesh", mesh, "--mtx", mtx)
    assert done.status == 0, done.out
    survey = Survey.read(data, "tmi")
    survey.select(np.arange(survey.n_stations)[::-1]).write(tmp_path / "turned.mag")
    done = tools("check", "turned.mag", "--type", "tmi", "--mtx", mtx)
    assert done.status == 1 and "in another order" in done.out
    done = tools("check", data, "--type", "tmi", "--date", "2024-05-01")
    assert "--crs" in one_line(done, 2)


def test_another_field_or_type_in_the_sensitivities(tools, tmp_path, magnetic, gravity):
    """mtx says it, check finds it, init and stack refuse it."""
    data, mesh = (magnetic.path(name) for name in ("data.obs", "mesh.msh"))
    field = Survey.read(data).field
    done = tools("mtx", "--stations", data, "--mesh", mesh, "--type", "tmi", "--field",
                 f"{-field.inclination},{field.declination},{field.strength}", "--out", "o.mtx")
    assert done.status == 0 and "leave --field out" in done.errors
    done = tools("mtx", "--stations", data, "--mesh", mesh, "--type", "tmi", "--out", "same.mtx", "--field",
                 f"{field.inclination},{field.declination},{field.strength}")
    assert done.status == 0 and "leave --field out" not in done.errors
    done = tools("check", data, "--mtx", "o.mtx")
    assert done.status == 1 and "inducing-field" in done.out and "60" in done.out
    assert "inducing field" in one_line(tools("init", "--data", data, "--mtx", "o.mtx"))
    assert not (tmp_path / "voxlith.inp").exists()
    assert "inducing field" in one_line(tools("stack", "--properties", "s", "--rows", data, "o.mtx", "--out", "j"), 2)
    other = gravity.path("data.mtx")
    assert "of type Gz" in one_line(tools("init", "--data", data, "--mtx", other))
    assert "is of Gz" in one_line(tools("stack", "--properties", "s", "--rows", data, other, "--out", "j"), 2)


def test_check_shows_the_field_of_a_table_without_one(tools, tmp_path):
    rows = "".join(f"{452000 + 100 * n},5318000,40,{n % 7}\n" for n in range(20))
    (tmp_path / "tmi.csv").write_text("x,y,z,d\n" + rows)
    done = tools("check", "tmi.csv", "--data", "d", "--type", "tmi", "--floor", 1, "--crs", UTM33, "--date", "2024-05-01")
    assert "IGRF-14 has inclination 64.4, declination 5." in done.out and "convert the table with --date" in done.out


def test_regional_warns_of_a_sign_that_anomalies_of_both_signs_contradict(tools, tmp_path):
    x, y = (a.ravel() * 100.0 for a in np.meshgrid(np.arange(16.0), np.arange(16.0)))
    bump = [1.0 / (1.0 + ((x - at) ** 2 + (y - 700.0) ** 2) / 200.0**2) ** 1.5 for at in (300.0, 1200.0)]
    for name, data, expected in (("both.obs", 3.0 * bump[0] - 12.0 * bump[1], True), ("one.obs", 3.0 * bump[0], False)):
        noise = np.random.default_rng(1).normal(0.0, 0.02, x.shape)
        Survey(x, y, 0.0 * x, [data + noise], (0,), [np.full(x.shape, 0.02)]).write(tmp_path / name)
        done = tools("regional", name, "--order", 1, "--anomaly", "positive", "--out", "residual.obs")
        assert done.status == 0 and ("% of the residuals are positive" in done.errors) == expected, done.out


def test_weights(tools, tmp_path, gravity):
    done = tools("weights", "--mtx", gravity.path("data.mtx"), "--out", "w.txt")
    assert done.status == 0 and "1 1 1 1" in done.out
    mesh = Mesh.read(gravity.path("mesh.msh"))
    weights = read_weight_files([tmp_path / "w.txt"], mesh.nx, mesh.ny, mesh.nz)
    middle = weights.smallness[:, 4, 3]
    assert (np.diff(middle) < 0.0).all()
    power = tools("weights", "--mtx", gravity.path("data.mtx"), "--out", "p.txt", "--law", "power", "--z0", 25, "--decay", 2)
    assert power.status == 0
    law = read_weight_files([tmp_path / "p.txt"], mesh.nx, mesh.ny, mesh.nz).smallness[:, 4, 3]
    depth = 120.0 - mesh.z_centres
    assert np.allclose((law / law[0])[:2], ((25.0 + depth) / (25.0 + depth[0]))[:2] ** -2.0)
    assert one_line(tools("weights", "--mtx", gravity.path("data.mtx"), "--out", "w.txt", "--z0", 3), 2) == (
        "--z0 goes with --law power")
    assert tools("weights", "--mtx", gravity.path("data.obs"), "--out", "q.txt").status == 1
    assert not (tmp_path / "q.txt").exists()


def test_terrain_of_a_mesh(tools, tmp_path):
    write_raster(tmp_path / "dem.tif")
    mesh = Mesh.from_widths((452000.0, 5538000.0, 400.0), 12 * [100.0], 10 * [100.0], [50.0])
    mesh.write(tmp_path / "mesh.msh")
    done = tools("terrain", "dem.tif", "--mesh", "mesh.msh", "--to", UTM33, "--out", "topo.txt")
    assert done.status == 0 and "EPSG:32633" in done.out
    points = read_topography_file(tmp_path / "topo.txt")
    assert np.allclose(points[:, 2], slope(points[:, 0], points[:, 1]), atol=0.05)
    assert read_side_file(tmp_path / "topo.txt").crs == UTM33
    assert "one of --mesh and --stations" in one_line(tools("terrain", "dem.tif", "--out", "t.txt"), 2)
    (tmp_path / "line.txt").write_text("3\n452000 5538000 1\n452500 5538500 1\n453000 5539000 1\n")
    assert "along one line" in one_line(tools("terrain", "line.txt", "--mesh", "mesh.msh", "--out", "t.txt"))
    (tmp_path / "far.txt").write_text("3\n0 0 1\n1000 0 1\n0 1000 1\n")
    assert "expected points around" in one_line(tools("terrain", "far.txt", "--mesh", "mesh.msh", "--out", "t.txt"))


def test_sensitivities_over_a_raster_equal_those_over_its_points(tools, tmp_path):
    """Inactive cells, too: the terrain of a raster and of its points is the same surface."""
    mesh = Mesh.from_widths((452000.0, 5538000.0, 340.0), 8 * [100.0], 6 * [100.0], 5 * [20.0])
    mesh.write(tmp_path / "mesh.msh")
    survey = stations(0)
    survey = changed(survey, x=survey.x + 451000.0, y=survey.y + 5536000.0, elevation=survey.elevation + 300.0)
    survey.write(tmp_path / "s.obs")
    write_side_file(tmp_path / "s.obs", SideInfo(UTM33))
    write_raster(tmp_path / "dem.tif", pixel=50.0)
    x, y = (a.ravel() for a in np.meshgrid(np.arange(451000.0, 454000.0, 100.0), np.arange(5537000.0, 5540000.0, 100.0)))
    (tmp_path / "points.csv").write_text("x,y,z\n" + "\n".join(f"{a},{b},{slope(a, b)}" for a, b in zip(x, y)) + "\n")
    bounds = []
    for topography in ("dem.tif", "points.csv"):
        done = tools("mtx", "--mesh", "mesh.msh", "--stations", "s.obs", "--type", "gz", "--out", "g.mtx", "--topography",
                     topography)
        assert done.status == 0, done.errors
        bounds.append(read_bounds_file(tmp_path / "g_bounds.txt", mesh.n_cells))
    assert np.array_equal(*bounds) and (bounds[0] == 0.0).all(axis=-1).any()


def test_regional(tools, tmp_path):
    survey = clean()
    tilted = changed(survey, data=survey.data + 12.0 + 0.002 * (survey.x - 452000.0))
    tilted.write(tmp_path / "gz.obs")
    write_side_file(tmp_path / "gz.obs", SideInfo("EPSG:32633"))
    done = tools("regional", "gz.obs", "--order", 1, "--out", "rest.obs", "--picture", "regional.png")
    assert done.status == 0 and (tmp_path / "regional.png").read_bytes()[:4] == b"\x89PNG"
    residual = Survey.read(tmp_path / "rest.obs")
    assert np.abs(residual.data - survey.data).max() < 0.15
    side = read_side_file(tmp_path / "rest.obs")
    assert side.crs == "EPSG:32633" and side.history[0]["operation"] == "regional"
    restored = residual.data[0] + np.array(side.history[0]["subtracted"])
    assert np.allclose(restored, Survey.read(tmp_path / "gz.obs").data[0], atol=1.0e-6)
    assert tools("check", "rest.obs").status == 0
    assert "one of --order" in one_line(tools("regional", "gz.obs", "--out", "r.obs"), 2)
    assert ".png or .pdf" in one_line(tools("regional", "gz.obs", "--order", 0, "--out", "r.obs", "--picture", "r.txt"), 2)
    curved = changed(survey, data=survey.data + 1.0e-5 * (survey.x - 452000.0) ** 2)
    curved.write(tmp_path / "curved.obs")
    assert tools("regional", "curved.obs", "--order", 0, "--out", "flat.obs").status == 0
    assert "that was subtracted does not fit" in tools("check", "flat.obs").out  # an offset cannot be all of it
    line = survey.select(np.arange(112, 128))
    line.write(tmp_path / "line.obs")
    assert tools("regional", "line.obs", "--upward", 300, "--out", "r.obs", "--picture", "r.pdf").status == 0


def test_mesh_remembers_the_reference_system(tools, tmp_path):
    clean().write(tmp_path / "gz.obs")
    write_side_file(tmp_path / "gz.obs", SideInfo(UTM33, (1.0e5, 0.0)).with_step("regional"))
    options = ("mesh", "--stations", "gz.obs", "--cell", 50, "--depth", 400, "--out", "m.msh")
    assert tools(*options).status == 0
    assert read_side_file(tmp_path / "m.msh") == SideInfo(UTM33, (1.0e5, 0.0))


def test_coordinates_go_from_data_to_exports(tools, tmp_path):
    """Data, mesh, sensitivities, predicted data, VTK and GeoTIFF: all know where they are."""
    import rasterio
    mesh = Mesh.from_widths((2000.0, 5538000.0, 340.0), 8 * [100.0], 6 * [100.0], 5 * [20.0])
    survey = stations(0)
    survey.x, survey.y, survey.elevation = survey.x + 1000.0, survey.y + 5536000.0, survey.elevation + 300.0
    survey.write(tmp_path / "gz.obs")
    mesh.write(tmp_path / "mesh.msh")
    known = SideInfo(UTM33, (450000.0, 0.0), ({"operation": "regional"},))
    write_side_file(tmp_path / "gz.obs", known)
    common = ("--mesh", "mesh.msh", "--stations", "gz.obs", "--type", "gz")
    assert tools("mtx", *common, "--out", "gz.mtx").status == 0
    assert tools("predict", *common, "--model", 0.5, "--out", "predicted.obs").status == 0
    for name in ("gz.mtx", "predicted.obs"):
        assert read_side_file(tmp_path / name) == known.coordinates, name
    (tmp_path / "m.den").write_text("\n".join(["0.1"] * mesh.n_cells) + "\n")
    assert tools("vtr", "--mesh", "mesh.msh", "--model", "m.den", "--mtx", "gz.mtx", "--out", "m.vtr").status == 0
    assert read_side_file(tmp_path / "m.vtr") == known.coordinates
    write_side_file(tmp_path / "mesh.msh", known.coordinates)
    assert tools("export", "--mesh", "mesh.msh", "--model", "m.den", "--out", "m.tif").status == 0
    with rasterio.open(tmp_path / "m.tif") as file:
        assert file.crs.to_epsg() == 32633 and file.bounds.left == 452000.0
    assert tools("export", "--mesh", "mesh.msh", "--model", "m.den", "--out", "m.csv").status == 0
    assert read_side_file(tmp_path / "m.csv") == SideInfo(UTM33)
    write_side_file(tmp_path / "mesh.msh", SideInfo("EPSG:32632", known.shift))
    assert "found EPSG:32633 and EPSG:32632" in one_line(tools("mtx", *common, "--out", "other.mtx"), 2)
    assert not (tmp_path / "other.mtx").exists()
    assert "reference-system" in tools("check", "gz.obs", "--mesh", "mesh.msh").out
    (tmp_path / "mesh.msh.json").unlink()
    (tmp_path / "gz.obs.json").unlink()
    assert tools("mtx", *common, "--out", "gz.mtx").status == 0
    assert not (tmp_path / "gz.mtx.json").exists()


def test_terrain_of_sensitivities_in_another_system(tools, tmp_path):
    """mtx converts a terrain in degrees, and what terrain wrote for a shifted survey; the inactive cells are the same."""
    from voxlith.crs import convert
    mesh = Mesh.from_widths((2000.0, 5538000.0, 340.0), 8 * [100.0], 6 * [100.0], 5 * [20.0])
    survey = stations(0)
    survey.x, survey.y, survey.elevation = survey.x + 1000.0, survey.y + 5536000.0, survey.elevation + 300.0
    survey.write(tmp_path / "gz.obs")
    mesh.write(tmp_path / "mesh.msh")
    for name in ("gz.obs", "mesh.msh"):
        write_side_file(tmp_path / name, SideInfo(UTM33, (450000.0, 0.0)))
    x, y = (values.ravel() for values in np.meshgrid(np.linspace(451500.0, 453500.0, 21), np.linspace(5537500.0, 5539500.0, 21)))
    z = 290.0 + 0.04 * (x - 452000.0)
    longitude, latitude = convert(x, y, UTM33, "EPSG:4326")
    rows = [f"{a:.8f},{b:.8f},{c:.3f}" for a, b, c in zip(longitude, latitude, z)]
    (tmp_path / "ground.csv").write_text("\n".join(["lon,lat,z", *rows]) + "\n")
    common = ("mtx", "--mesh", "mesh.msh", "--stations", "gz.obs", "--type", "gz", "--boreholes", "--topography")
    first = tools(*common, "ground.csv", "--terrain-crs", "EPSG:4326", "--out", "a.mtx")
    assert first.status == 0, first
    assert tools("terrain", "ground.csv", "--terrain-crs", "EPSG:4326", "--mesh", "mesh.msh", "--out", "topo.txt").status == 0
    assert tools(*common, "topo.txt", "--out", "b.mtx").status == 0
    assert (tmp_path / "a_bounds.txt").read_text() == (tmp_path / "b_bounds.txt").read_text()
    assert len(set((tmp_path / "a_bounds.txt").read_text().split())) > 2
    assert "degrees need --terrain-crs" in one_line(tools(*common, "ground.csv", "--out", "c.mtx"))
    assert "topo.txt is in EPSG:32633" in one_line(tools(*common, "topo.txt", "--terrain-crs", "EPSG:4326", "--out", "c.mtx"), 2)
    assert not (tmp_path / "c.mtx").exists()


def table(path, survey: Survey, *, words: dict[int, str] | None = None, deviation: str = "0.02", encoding: str = "utf-8") -> None:
    """A plain table of a survey; `words` replace data."""
    texts = {n: f"{value:.4f}" for n, value in enumerate(survey.data[0])} | (words or {})
    rows = [f"Süd{n},{x:.3f},{y:.3f},{z:.3f},{texts[n]},{deviation}" for n, (x, y, z) in
            enumerate(zip(survey.x, survey.y, survey.elevation))]
    path.write_bytes(("name,x,y,z,gz,err\n" + "\n".join(rows) + "\n").encode(encoding))


PLAIN = ("--data", "gz:err", "--name", "name")


@pytest.mark.parametrize("more, name, severity", [
    ({"encoding": "latin-1"}, "encoding", "note"), ({"encoding": "utf-16"}, "encoding", "note"), ({"encoding": "utf-16-le"}, "encoding", "error"),
    ({"deviation": "0"}, "standard-deviations", "error"), ({"deviation": "-0.02"}, "standard-deviations", "error"),
    ({"deviation": ""}, "standard-deviations", "warning"), ({"words": {5: "1e30"}}, "no-data-code", "error"),
    ({"words": {5: "1.70141e38"}}, "no-data-code", "error"), ({"words": {n: "2.5" for n in range(256)}}, "constant-data", "error"),
    ({"words": {n: "-9999" for n in range(256)}}, "no-valid-datum", "error"), ({"words": {7: "NA"}}, "missing-data", "note")])
def test_traps_of_a_table(tools, tmp_path, more, name, severity):
    """What check calls an error of the file itself, obs refuses too, and the other way round."""
    table(tmp_path / "a.csv", clean(), **more)
    done = tools("check", "a.csv", *PLAIN, "--json", "found.json")
    found = {item["name"]: item["severity"] for item in json.loads((tmp_path / "found.json").read_text())}
    assert found[name] == severity and done.status == int("error" in found.values())
    made = tools("obs", "a.csv", *PLAIN[:2], "--out", "a.obs")
    refused = name in ("encoding", "standard-deviations", "no-valid-datum") and severity == "error"
    assert made.status == int(refused), made.errors
    assert severity != "error" or made.errors


def test_separators_of_thousands(tools, tmp_path):
    table(tmp_path / "a.csv", clean(), words={n: f'"1,{n:03d}.5"' for n in range(256)})
    done = tools("check", "a.csv", *PLAIN)
    assert done.status == 1 and "without separators of thousands" in done.out


def test_degrees_are_refused_by_all_that_need_metres(tools, tmp_path):
    survey = clean()
    survey = changed(survey, x=15.0 + (survey.x - 452000.0) / 71_000.0, y=48.0 + (survey.y - 5318000.0) / 111_000.0)
    table(tmp_path / "deg.csv", changed(survey, x=np.round(survey.x, 6)))
    survey.write(tmp_path / "deg.obs", digits="full")
    assert "--crs EPSG:4326" in one_line(tools("obs", "deg.csv", "--data", "gz:err", "--out", "a.obs"), 2)
    for words in (("--csv", "deg.csv"), ("--stations", "deg.obs")):
        assert "--crs EPSG:4326" in one_line(tools("mesh", *words, "--cell", 50, "--depth", 300, "--out", "a.msh"), 2)
    assert tools("check", "deg.obs").status == 1


def test_web_mercator_is_named(tools, tmp_path):
    survey = clean()
    table(tmp_path / "m.csv", changed(survey, x=survey.x - 14_000_000.0, y=survey.y - 770_000.0))
    done = tools("check", "m.csv", *PLAIN, "--crs", "EPSG:3857")
    assert done.status == 1 and "are 1.27 times those on the ground" in done.out and "too wide" in done.out
    made = tools("obs", "m.csv", *PLAIN[:2], "--crs", "EPSG:3857", "--out", "m.obs")
    assert made.status == 0 and "1.27 times" in made.errors and "was subtracted" in made.errors
    made = tools("obs", "m.csv", *PLAIN[:2], "--crs", "EPSG:3857", "--to", "EPSG:32610", "--out", "m.obs")
    assert made.status == 0 and made.errors == ""


def test_regional_refuses_no_data_codes(tools, tmp_path):
    survey = clean()
    data = survey.data.copy()
    data[0, 3] = -9999.0
    changed(survey, data=data).write(tmp_path / "a.obs")
    assert "found -9999" in one_line(tools("regional", "a.obs", "--order", 1, "--out", "b.obs"))


def test_field_of_another_place(tools, tmp_path):
    """A field of the wrong hemisphere, and one of the place: 15 E 48 N."""
    survey = clean()
    inducing = InducingField(-64.0, 4.0, 48500.0)
    magnetic = changed(survey, codes=(1,), data=100.0 * survey.data, uncertainty=np.full((1, 256), 2.0), field=inducing,
                       direction=inducing.direction)
    magnetic.write(tmp_path / "tmi.mag")
    words = ("check", "tmi.mag", "--type", "tmi", "--crs", UTM33, "--date", "2024-05-01")
    done = tools(*words)
    assert done.status == 1 and "error    field-direction" in done.out and "by IGRF-14 on 2024-05-01" in done.out
    right = InducingField(64.5, 5.0, 48800.0)
    changed(magnetic, field=right, direction=right.direction).write(tmp_path / "tmi.mag")
    assert "field-direction" not in tools(*words).out


def test_stations_in_the_ground_and_outside(tools, tmp_path):
    survey = clean()
    survey.write(tmp_path / "gz.obs")
    rows = [f"{x},{y},{z}" for x in (451000, 452600, 454000) for y, z in ((5317000, 90), (5320000, 95))]
    (tmp_path / "dem.csv").write_text("x,y,z\n" + "\n".join(rows) + "\n")
    assert "warning  below-ground" in tools("check", "gz.obs", "--topography", "dem.csv").out
    mesh = Mesh.from_widths((460000.0, 5318000.0, 0.0), 10 * [100.0], 10 * [100.0], 5 * [50.0])
    mesh.write(tmp_path / "far.msh")
    done = tools("check", "gz.obs", "--mesh", "far.msh")
    assert done.status == 1 and "error    outside-mesh" in done.out
    assert "stations are outside the mesh" in tools("mtx", "--mesh", "far.msh", "--stations", "gz.obs", "--type", "gz", "--out",
                                                    "a.mtx").errors


def test_a_far_station_keeps_the_terrain_and_all_other_findings(tools, tmp_path):
    survey = clean()
    survey.y += 220_000.0
    survey.x[7] += 100_000.0
    survey.write(tmp_path / "gz.obs")
    write_raster(tmp_path / "dem.tif")
    done = tools("check", "gz.obs", "--crs", UTM33, "--topography", "dem.tif")
    assert "far-stations" in done.out and "record 8" in done.out and "below-ground" in done.out and "error    terrain" not in done.out
    wrong = tools("check", "gz.obs", "--crs", "EPSG:32634", "--topography", "dem.tif")
    assert wrong.status == 1 and "error    terrain" in wrong.out and "far-stations" in wrong.out


def named_table(path) -> None:
    """Four lines of eight stations with names; microgal for the standard deviations."""
    rows = [f"S{8 * i + j},{i + 10},{7 * j},{1000 + 50 * j},{2000 + 50 * i},{100 + j},{0.1 * i + 0.01 * j * j:.3f},20"
            for i in range(4) for j in range(8)]
    path.write_text("name,line,t,x,y,z,gz,err\n" + "\n".join(rows) + "\n")


@pytest.mark.parametrize("lines", ["names", "numbers"])
def test_line_and_time_columns_are_read_by_all(tools, tmp_path, lines):
    named_table(tmp_path / "s.csv")
    if lines == "names":
        text = (tmp_path / "s.csv").read_text()
        (tmp_path / "s.csv").write_text("\n".join(row.replace(",1", ",L1", 1) for row in text.splitlines()) + "\n")
    done = tools("obs", "s.csv", "--data", "gz:err", "--line", "line", "--error-scale", 0.001, "--out", "gz.obs")
    assert done.status == 0
    survey = Survey.read(tmp_path / "gz.obs")
    assert survey.time[:9].tolist() == [0, 50, 100, 150, 200, 250, 300, 350, 0] and len(survey.lines()) == 4
    assert np.allclose(survey.uncertainty, 0.02)
    assert tools("mesh", "--stations", "gz.obs", "--cell", 50, "--depth", 100, "--out", "m.msh").status == 0
    assert "32 stations" in tools("check", "gz.obs", "--mesh", "m.msh").out
    assert tools("regional", "gz.obs", "--order", 1, "--out", "rest.obs").status == 0
    assert Survey.read(tmp_path / "rest.obs").line.tolist() == survey.line.tolist()
    assert tools("obs", "gz.obs", "--csv", "back.csv").status == 0
    assert (tmp_path / "back.csv").read_text().startswith("x,y,z,data1,uncertainty1,line,time\n")


def test_stations_by_name(tools, tmp_path):
    named_table(tmp_path / "s.csv")
    options = ("obs", "s.csv", "--data", "gz:err", "--data-scale", 1, "--error-scale", 0.001, "--out", "gz.obs")
    done = tools(*options, "--name", "name", "--drop", "S3,S31", "--mask", "S5")
    assert done.status == 0 and "dropped:      2 stations" in done.out and "masked:       1 station of" in done.out
    survey = Survey.read(tmp_path / "gz.obs")
    assert survey.n_stations == 30 and np.flatnonzero(np.isnan(survey.data[0])).tolist() == [4]
    assert "stations: S5" in tools("check", "gz.obs").out
    tools("obs", "s.csv", "--data", "gz:err", "--out", "b.obs", "--drop", "line 2", "3")
    assert Survey.read(tmp_path / "b.obs").x[0] == 1100.0
    assert one_line(tools(*options, "--name", "name", "--drop", "S99"), 2) == "--drop: there is no station S99"
    assert one_line(tools(*options, "--drop", ","), 2) == "--drop ,: expected a name"
    assert "without --name stations are lines of the CSV" in one_line(tools(*options, "--mask", "S99"), 2)


def test_scaled_data_hold_no_codes(tools, tmp_path):
    (tmp_path / "s.csv").write_text("x,y,z,gz\n0,0,0,1000\n50,0,0,1200\n100,0,0,-9999\n")
    scaled = ("obs", "s.csv", "--data", "gz", "--data-scale", 0.001, "--out", "gz.obs")
    assert "--dummy" in one_line(tools(*scaled))
    assert tools(*scaled, "--dummy", "-9999").status == 0
    assert Survey.read(tmp_path / "gz.obs").data[0, :2].tolist() == [1.0, 1.2]


def test_mesh_below_a_terrain(tools, tmp_path):
    named_table(tmp_path / "s.csv")
    tools("obs", "s.csv", "--data", "gz:err", "--out", "gz.obs")
    (tmp_path / "dem.csv").write_text("x,y,z\n" + "\n".join(
        f"{x},{y},{100 + 0.02 * (x - 1000) - 0.5:.3f}" for x in range(0, 3001, 100) for y in range(1000, 3001, 100)) + "\n")
    done = tools("mesh", "--stations", "gz.obs", "--cell", "50,10", "--depth", 100, "--topography", "dem.csv", "--out", "m.msh")
    assert done.status == 0 and done.errors == ""
    mesh = Mesh.read(tmp_path / "m.msh")
    ground = 99.5 + 0.02 * (mesh.x_centres - 1000.0)
    assert ground.max() <= mesh.z_nodes[0] <= ground.max() + 1.0
    core = mesh.x_widths == 50.0
    bottom = mesh.z_nodes[np.flatnonzero(mesh.z_widths == 10.0)[-1] + 1]
    assert bottom <= ground[core].min() - 100.0 < bottom + 10.0
    done = tools("mesh", "--stations", "gz.obs", "--cell", 50, "--depth", 100, "--top", 90, "--topography", "dem.csv",
                 "--out", "m.msh")
    assert "the ground rises to" in done.errors
