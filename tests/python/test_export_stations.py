"""Stations for GIS: read back by GDAL and pandas."""

from __future__ import annotations

import sys

import numpy as np
import pandas as pd
import pytest
from conftest import one_line

from voxlith import Fit, FileError, MissingPackageError, Run, Survey, UsageError
from voxlith.export import station_columns, write_stations_csv, write_stations_geopackage
from voxlith.side_file import SideInfo, write_side_file
from voxlith.survey import numbered_names


def two_components() -> Fit:
    """Five stations of two lines; the third has no gz."""
    x = 400000.25 + 100.0 * np.arange(5)
    data = np.stack([0.1 * np.arange(5), np.linspace(-3.0, 3.0, 5)])
    data[0, 2] = np.nan
    survey = Survey(x, 5000000.0 + 0.0 * x, 20.0 + np.arange(5), data, (0, 12), np.where(np.isnan(data), np.nan, [[0.05], [2.0]]),
                    line=np.array(["L1", "L1", "L1", "L,2", "L,2"]))
    return Fit(survey, np.where(np.isnan(data), np.nan, data + [[0.1], [-1.0]]))


def test_columns_are_those_of_the_fit(tmp_path):
    columns = station_columns(two_components(), ["a", "b", "c d", "ü", "7"])
    write_stations_csv(tmp_path / "s.csv", columns, "EPSG:32633")
    found = pd.read_csv(tmp_path / "s.csv", dtype={"station": str})
    assert list(found) == ["station", "line", "x", "y", "elevation", *(f"{name}_{what}" for name in ("gz", "gzz") for what in (
        "observed", "predicted", "residual", "sd", "zscore")), "crs"]
    assert list(found["station"]) == ["a", "b", "c d", "ü", "7"] and list(found["line"])[3] == "L,2"
    assert found["x"][1] == 400100.25 and set(found["crs"]) == {"EPSG:32633"}
    assert np.isnan(found.loc[2, ["gz_observed", "gz_predicted", "gz_residual", "gz_sd", "gz_zscore"]].to_numpy(float)).all()
    kept = found.drop(2)
    assert kept["gz_residual"].to_numpy() == pytest.approx(0.1) and kept["gz_zscore"].to_numpy() == pytest.approx(2.0)
    assert found["gzz_residual"].to_numpy() == pytest.approx(-1.0) and found["gzz_zscore"].to_numpy() == pytest.approx(-0.5)


def test_a_geopackage_holds_the_same(tmp_path):
    ogr = pytest.importorskip("osgeo.ogr")
    columns = station_columns(two_components(), ["a", "b", "c", "d", "e"])
    for _ in range(2):  # the second one replaces the first
        write_stations_geopackage(tmp_path / "s.gpkg", [("stations", columns)], "EPSG:32633")
    source = ogr.Open(str(tmp_path / "s.gpkg"))
    layer = source.GetLayerByName("stations")
    assert layer.GetFeatureCount() == 5 and layer.GetSpatialRef().GetAuthorityCode(None) == "32633"
    for number, feature in enumerate(layer):
        point = feature.GetGeometryRef()
        assert (point.GetX(), point.GetY(), point.GetZ()) == (columns[2][1][number], 5000000.0, 20.0 + number)
        for name, values in columns:
            value = values[number]
            assert feature.GetField(name) is None if value != value else feature.GetField(name) == value
    assert [entry.name for entry in tmp_path.iterdir()] == ["s.gpkg"]


def test_failures_are_named(tmp_path, monkeypatch):
    pytest.importorskip("osgeo.ogr")
    layers = [("stations", station_columns(two_components()))]
    with pytest.raises(UsageError, match="EPSG:1: expected a coordinate"):
        write_stations_geopackage(tmp_path / "s.gpkg", layers, "EPSG:1")
    with pytest.raises(FileError, match="cannot be created"):
        write_stations_geopackage(tmp_path / "missing" / "s.gpkg", layers, "")
    (tmp_path / "old.gpkg").write_text("kept")
    monkeypatch.setattr("voxlith.export.stations._write_layer", lambda *_: (_ for _ in ()).throw(RuntimeError("disk full")))
    with pytest.raises(FileError, match="disk full"):
        write_stations_geopackage(tmp_path / "old.gpkg", layers, "")
    assert (tmp_path / "old.gpkg").read_text() == "kept" and len(list(tmp_path.iterdir())) == 1
    monkeypatch.setitem(sys.modules, "osgeo", None)
    monkeypatch.delitem(sys.modules, "osgeo.ogr")
    with pytest.raises(MissingPackageError, match="python3-gdal"):
        write_stations_geopackage(tmp_path / "s.gpkg", layers, "")


def test_stations_of_a_run_with_names_at_their_place(tools, gravity, copied, tmp_path):
    pytest.importorskip("osgeo.ogr")
    work = copied(gravity)
    fit = Run(work.folder).fit()
    count = fit.observed.n_stations
    names = [f"TS{number}" for number in range(count)]
    write_side_file(work.path("data.obs"), SideInfo("EPSG:32633", (400000.0, 5000000.0)).with_step("station-names", names=names))
    assert tools("export", work.folder, "--out", "s.csv", "--stations").status == 0
    found = pd.read_csv(tmp_path / "s.csv")
    assert list(found["station"]) == names and found["x"].to_numpy() == pytest.approx(fit.observed.x + 400000.0)
    assert found["gz_zscore"].to_numpy() == pytest.approx(fit.zscore[0], rel=1e-5, nan_ok=True)
    done = tools("export", work.folder, "--out", "s.gpkg")
    assert done.status == 0 and f"stations, {count} stations, 9 columns, EPSG:32633" in done.out


@pytest.mark.parametrize("words, said", [
    (("RUN", "--out", "s.vtr", "--stations"), "together with a CSV or a GeoPackage"),
    (("RUN", "--out", "s.csv", "--stations", "--section", "x=1"), "exclude each other"),
    (("RUN", "--out", "s.gpkg", "--iteration", "3"), "expected a run without --iteration"),
    (("--mesh", "m.msh", "--model", "a.den", "--out", "s.gpkg"), "expected a run")])
def test_wrong_use(tools, gravity, words, said):
    assert said in one_line(tools("export", *(gravity.folder if word == "RUN" else word for word in words)), 2)


def test_a_run_without_predictions(tools, gravity, copied):
    work = copied(gravity)
    work.path("voxlith.pre").unlink()
    assert "predicted data" in one_line(tools("export", work.folder, "--out", "s.gpkg"), 2)


def test_layers_of_one_data_type_have_names_of_their_own(tmp_path):
    ogr = pytest.importorskip("osgeo.ogr")
    names = numbered_names(["gz", "tmi", "gz"])
    write_stations_geopackage(tmp_path / "s.gpkg", [(name, station_columns(two_components())) for name in names], "")
    source = ogr.Open(str(tmp_path / "s.gpkg"))
    assert [source.GetLayer(number).GetName() for number in range(source.GetLayerCount())] == names == ["gz", "tmi", "gz_2"]
