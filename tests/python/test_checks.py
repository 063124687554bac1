"""Checks of a survey: each trap of real data is found and named, and clean surveys raise no alarm."""

from __future__ import annotations

import json
import math
import re
from pathlib import Path

import hypothesis.strategies as st
import numpy as np
import pytest
from hypothesis import given

from voxlith import Mesh, Survey
from voxlith.checks import Finding, check_survey, findings_json, findings_table, worst
from voxlith.checks.against import check_mesh, check_sensitivities, check_terrain, check_top
from voxlith.checks.field import check_field, check_field_of_any_year, check_type_and_field
from voxlith.checks.stations import check_scale, looks_like_degrees, outlier_scores
from voxlith.checks.values import no_data_codes
from voxlith.igrf import main_field
from voxlith.survey import InducingField

SD = 0.02


def clean(seed: int = 0, count: int = 16, scale: float = 1.0) -> Survey:
    """Gravity over a point-like body, 0.5 to 2 mGal, with noise."""
    generator = np.random.default_rng(seed)
    x, y = (a.ravel() * 80.0 + generator.normal(0.0, 5.0, count * count)
            for a in np.meshgrid(np.arange(count), np.arange(count)))
    squared = (x - 600.0) ** 2 + (y - 500.0) ** 2
    data = 2.0 * (1.0 + squared / 200.0**2) ** -1.5 + generator.normal(0.0, SD, x.shape)
    return Survey(x + 452000.0, y + 5318000.0, 3.0 + 0.001 * x, [scale * data], (0,), [np.full(x.shape, scale * SD)])


def found(survey: Survey, **more: object) -> dict[str, Finding]:
    return {finding.name: finding for finding in check_survey(survey, **more)}


def changed(survey: Survey, **arrays: object) -> Survey:
    from dataclasses import replace
    return replace(survey, **arrays)


@pytest.mark.parametrize("seed", range(8))
def test_clean_surveys_raise_no_alarm(seed):
    assert check_survey(clean(seed)) == []


def test_clean_lines_and_sparse_surveys_raise_no_alarm():
    survey = clean()
    line = survey.select(np.arange(112, 128))
    assert check_survey(line) == []
    assert check_survey(survey.select(np.random.default_rng(1).choice(256, 40, replace=False))) == []


def test_duplicate_with_another_value_is_an_error():
    survey = clean()
    data = survey.data.copy()
    x, y = survey.x.copy(), survey.y.copy()
    x[17], y[17] = x[100] + 0.3, y[100]
    data[0, 17] = data[0, 100] + 63.0 * SD
    finding = found(changed(survey, x=x, y=y, data=data))["duplicate-stations"]
    assert finding.severity == "error" and "1 pair of stations" in finding.text
    assert finding.stations in (("record 18 = record 101",), ("record 101 = record 18",))


def test_duplicates_that_agree_are_a_note():
    survey = clean()
    both = np.r_[np.arange(256), 40, 41]
    findings = found(survey.select(both))
    assert findings["duplicate-stations"].severity == "note" and len(findings["duplicate-stations"].stations) == 2


@pytest.mark.parametrize("code", [-9999.0, 1.0e30, 99999.0, -32768.0, 9999.99])
def test_no_data_codes(code):
    survey = clean()
    data = survey.data.copy()
    data[0, [3, 90]] = code
    finding = found(changed(survey, data=data))["no-data-code"]
    assert finding.severity == "error" and finding.stations == ("record 4", "record 91")
    assert "--dummy" in finding.remedy


@given(st.lists(st.floats(-500.0, 500.0), min_size=5, max_size=50), st.sampled_from([-9999.0, 99999.0, 1e30]),
       st.integers(0, 4))
def test_a_code_is_found_at_any_place_and_data_are_not_codes(values, code, at):
    data = np.array(values)
    assert not no_data_codes(data).any() or set(np.abs(data[no_data_codes(data)])) <= {999.0}
    data[at] = code
    assert no_data_codes(data)[at]


def test_real_data_of_the_size_of_a_code_are_kept():
    anomaly = np.linspace(-3000.0, 3000.0, 121)
    anomaly[40] = -999.0
    assert not no_data_codes(anomaly).any()


def test_no_valid_datum_is_an_error():
    survey = clean()
    assert found(changed(survey, data=np.full((1, 256), np.nan)))["no-valid-datum"].severity == "error"
    assert "no-valid-datum" in found(changed(survey, data=np.full((1, 256), -9999.0)))


def test_constant_data():
    assert found(changed(clean(), data=np.full((1, 256), 1.25)))["constant-data"].severity == "error"


def test_standard_deviations():
    survey = clean()
    deviations = np.full((1, 256), SD)
    deviations[0, 5], deviations[0, 6] = 0.0, -1.0
    findings = [f for f in check_survey(survey, given=deviations) if f.name == "standard-deviations"]
    assert [(f.severity, f.stations) for f in findings] == [("error", ("record 7",)), ("error", ("record 6",))]
    assert "no standard deviations" in found(changed(survey, uncertainty=None))["standard-deviations"].text
    assert "range" in found(changed(survey, uncertainty=np.full((1, 256), 1.0e-6)))["standard-deviations"].text
    assert "above the range" in found(changed(survey, uncertainty=np.full((1, 256), 50.0)))["standard-deviations"].text


@pytest.mark.parametrize("scale, offset, code, words", [
    (1000.0, 0.0, 0, "microgal"), (1.0e-5, 0.0, 0, "m/s2"), (1.0, 980_500.0, 0, "absolute gravity"),
    (1.0, 48_500.0, 1, "total field"), (1.0e-9, 0.0, 12, "s-2")])
def test_units(scale, offset, code, words):
    survey = clean(scale=scale)
    survey = changed(survey, data=survey.data + offset, codes=(code,),
                     field=InducingField(60.0, 5.0, 48_500.0) if code == 1 else None)
    assert words in found(survey)["units"].text


def test_outlier_against_neighbours():
    survey = clean()
    data = survey.data.copy()
    data[0, 133] += 1.0
    finding = found(changed(survey, data=data))["outliers"]
    assert finding.stations == ("record 134",)
    data[0, 133] += 10.0
    assert found(changed(survey, data=data))["outliers"].severity == "error"


def test_outlier_scores_do_not_depend_on_order_level_or_slope():
    survey = clean()
    data = survey.data[0] + 0.5 * (np.arange(256) == 77)
    scores = outlier_scores(survey.x, survey.y, data, np.full(256, SD))
    assert np.argmax(scores) == 77
    shuffled = np.random.default_rng(2).permutation(256)
    again = outlier_scores(survey.x[shuffled], survey.y[shuffled], data[shuffled], np.full(256, SD))
    assert np.allclose(again, scores[shuffled], rtol=1e-6)
    tilted = outlier_scores(survey.x, survey.y, data + 30.0 + 0.001 * (survey.x - 452000.0), np.full(256, SD))
    assert np.argmax(tilted) == 77 and tilted[77] == pytest.approx(scores[77], rel=0.2)


def test_offset_and_slope():
    survey = clean()
    assert set(found(changed(survey, data=survey.data + 12.0))) == {"constant-offset"}
    sloping = found(changed(survey, data=survey.data + 12.0 + 0.002 * (survey.x - 452000.0)))
    assert set(sloping) == {"constant-offset", "regional-trend"}
    assert re.search(r"towards (89|9[01]) degrees", sloping["regional-trend"].text)


def magnetic(offset: float, slope: float = 0.0) -> Survey:
    """The anomaly of a dipole in a field of inclination 60, on lines with noise of 3 nT."""
    x, y = (a.ravel() * 50.0 for a in np.meshgrid(np.arange(24.0), np.arange(24.0)))
    field = np.array([0.0, 0.5, -math.sqrt(0.75)])
    apart = np.stack([x - 600.0, y - 600.0, np.full(x.shape, 120.0)], axis=1)
    distance = np.linalg.norm(apart, axis=1)
    data = 1.0e9 * (3.0 * (apart @ field / distance) ** 2 - 1.0) / distance**3
    noise = np.random.default_rng(5).normal(0.0, 3.0, x.shape)
    return Survey(x, y, np.full(x.shape, 40.0), [data + noise + offset + slope * (x - 600.0)], (1,), [np.full(x.shape, 3.0)],
                  field=InducingField(60.0, 0.0, 50000.0))


def test_small_offset_of_magnetic_data():
    """7 standard deviations are hidden below anomalies of hundreds of nT, and are still wrong in every part of a model."""
    assert np.ptp(magnetic(0.0).data) > 600.0
    assert found(magnetic(0.0)) == {} and found(magnetic(0.0), regional_removed=True) == {}
    for offset in (22.0, -8.0):
        finding = found(magnetic(offset))["constant-offset"]
        level = float(re.search(r"survey is (-?[0-9.]+) nT", finding.text)[1])
        assert level == pytest.approx(offset, abs=4.0) and finding.severity == "warning"
    assert set(found(magnetic(22.0), regional_removed=True)) == {"constant-offset"}
    assert "constant-offset" not in found(magnetic(0.0, slope=0.02))
    assert "constant-offset" not in found(magnetic(2.0))


def test_what_a_wrong_regional_field_has_left_is_found():
    """A side file that says that a regional field was subtracted is no proof that the right one was."""
    survey = clean()
    assert found(survey, regional_removed=True) == {}
    slope = 0.004 * (survey.x - survey.x.mean()) + 0.003 * (survey.y - survey.y.mean())
    finding = found(changed(survey, data=survey.data + slope), regional_removed=True)["regional-trend"]
    assert finding.severity == "warning" and "that was subtracted does not fit" in finding.text and "another order" in finding.remedy
    level = found(changed(survey, data=survey.data + 5.0), regional_removed=True)["constant-offset"]
    assert level.severity == "warning" and "that was subtracted" in level.text
    # Tails of anomalies, as they are left of a fit, raise no alarm.
    little = changed(survey, data=survey.data + 0.1 * slope - 0.3)
    assert found(little, regional_removed=True) == {}


def test_residuals_in_microgal():
    """Too small a range for the check of ranges, but standard deviations that no gravimeter has."""
    assert found(clean(scale=50.0)) == {}
    finding = found(clean(scale=250.0))["units"]
    assert finding.severity == "warning" and "microgal" in finding.text and "--data-scale 0.001" in finding.remedy


def test_degrees():
    survey = clean()
    degrees = changed(survey, x=15.0 + (survey.x - 452000.0) / 71_000.0, y=50.0 + (survey.y - 5318000.0) / 111_000.0)
    finding = found(degrees)["degrees"]
    assert finding.severity == "error" and "--crs" in finding.remedy
    assert not looks_like_degrees(np.arange(10.0), np.arange(10.0))


def test_far_station():
    survey = clean()
    x = survey.x.copy()
    x[9] = 45200.0
    assert found(changed(survey, x=x))["far-stations"].stations == ("record 10",)


def names(survey: Survey) -> list[str]:
    return [f"S{n}" for n in range(survey.n_stations)]


def test_mesh_and_terrain():
    survey = clean()
    mesh = Mesh.from_widths((451900.0, 5317900.0, 3.2), 28 * [50.0], 28 * [50.0], 8 * [50.0])
    below = check_mesh(survey.x, survey.y, survey.elevation, mesh, names(survey), False)
    assert [f.name for f in below] == ["below-mesh-top"]
    assert check_mesh(survey.x, survey.y, survey.elevation, mesh, names(survey), True) == []
    swapped = check_mesh(survey.y, survey.x, survey.elevation + 1.0, mesh, names(survey), False)
    assert "exchanged" in swapped[0].text
    beside = check_mesh(survey.x + 1000.0, survey.y, survey.elevation + 1.0, mesh, names(survey), False)
    assert beside[0].name == "outside-mesh" and beside[0].severity == "error"
    buried = check_terrain(survey.x, survey.y, survey.elevation, lambda x, y: 0.0 * x + 50.0, names(survey))
    assert buried[0].name == "below-ground" and len(buried[0].stations) == 256
    assert check_terrain(survey.x, survey.y, survey.elevation, lambda x, y: 0.0 * x + 2.0, names(survey)) == []


@pytest.mark.parametrize("top, base, expected", [
    (550.0, 500.0, []), (-550.0, 500.0, ["error"]), (0.0, 700.0, ["warning"]), (400.0, 600.0, []), (-200.0, 0.5, [])])
def test_top_of_the_mesh_against_the_stations(top, base, expected):
    """A top with the wrong sign or of another datum is found, a survey above its mesh is none."""
    survey = clean()
    mesh = Mesh.from_widths((451900.0, 5317900.0, top), 28 * [50.0], 28 * [50.0], 8 * [25.0])
    findings = check_mesh(survey.x, survey.y, survey.elevation + base, mesh, names(survey), True)
    assert [f.severity for f in findings if f.name == "far-above-mesh"] == expected


@pytest.mark.parametrize("top, expected", [
    (520.0, []), (480.0, [("ground-above-mesh", "warning")]), (-520.0, [("ground-above-mesh", "error")]),
    (1220.0, [("ground-below-mesh", "error")])])
def test_top_of_the_mesh_against_the_terrain(top, expected):
    survey = clean()
    mesh = Mesh.from_widths((451900.0, 5317900.0, top), 28 * [50.0], 28 * [50.0], 8 * [50.0])
    found_here = check_top(survey.x, survey.y, mesh, lambda x, y: 500.0 + 0.02 * (x - 452600.0))
    assert [(f.name, f.severity) for f in found_here] == expected


def test_station_order_against_sensitivities(gravity):
    from voxlith.io.mtx_file import MtxFile
    survey = Survey.read(gravity.path("data.obs"))
    with MtxFile(gravity.path("data.mtx")) as file:
        header = file.header
    places = survey.x, survey.y, survey.elevation
    assert check_sensitivities(*places, header, "data.mtx", names(survey)) == []
    turned = check_sensitivities(*(a[::-1] for a in places), header, "data.mtx", names(survey))
    assert "another order" in turned[0].text
    assert "are not those" in check_sensitivities(survey.x + 60.0, survey.y, survey.elevation, header, "data.mtx",
                                                  names(survey))[0].text
    assert "rows for" in check_sensitivities(*(a[:-1] for a in places), header, "data.mtx", names(survey)[:-1])[0].text


def test_field_of_the_place():
    expected = main_field(15.0, 50.0, 400.0, "2024-05-01")
    assert check_field(expected.inducing(), expected, "2024-05-01") == []
    wrong = check_field(InducingField(-66.0, 5.0, 49400.0), expected, "2024-05-01")
    assert wrong[0].severity == "error"
    assert check_field(InducingField(60.0, 5.0, 49400.0), expected, "2024-05-01")[0].severity == "warning"
    assert check_field(InducingField(66.2, 5.0, 60000.0), expected, "2024-05-01")[0].name == "field-strength"


@pytest.mark.parametrize("inclination, declination, severities", [
    (64.4, 5.0, []), (62.0, 3.0, []), (68.0, -6.0, []), (-64.4, 5.0, ["error"]), (64.4, 120.0, ["error"]), (45.0, 5.0, ["warning"]),
    (90.0, 0.0, []), (0.0, 0.0, [])])
def test_field_without_a_date(inclination, declination, severities):
    """A wrong sign is found without a date; the change of the field with time, and data reduced to the pole, raise no alarm."""
    from voxlith.side_file import SideInfo
    survey = changed(clean(), codes=(1,), field=InducingField(inclination, declination, 49000.0))
    findings = check_field_of_any_year(survey, SideInfo("EPSG:32633"))
    assert [finding.severity for finding in findings] == severities
    assert check_field_of_any_year(survey, SideInfo()) == []


def test_type_and_field_of_sensitivities(magnetic, gravity):
    """The field of the data is that of the sensitivities, to single precision; another one moves the bodies."""
    from voxlith.io.mtx_file import read_mtx_header
    survey, header = Survey.read(magnetic.path("data.obs")), read_mtx_header(magnetic.path("data.mtx"))
    field = survey.field
    assert check_type_and_field(survey, header, "t.mtx") == []

    def severity(**other: float) -> list[str]:
        from dataclasses import replace
        return [f.severity for f in check_type_and_field(changed(survey, field=replace(field, **other)), header, "t.mtx")]

    assert severity(inclination=-field.inclination) == ["error"]
    assert severity(strength=1.04 * field.strength) == ["error"] and severity(strength=1.01 * field.strength) == ["warning"]
    assert severity(inclination=field.inclination + 1.0) == ["warning"] and severity(inclination=field.inclination + 0.1) == []
    other_kind = check_type_and_field(survey, read_mtx_header(gravity.path("data.mtx")), "gz.mtx")
    assert [(f.name, f.severity) for f in other_kind] == [("data-type", "error")] and "gz.mtx is of Gz" in other_kind[0].text
    assert check_type_and_field(Survey.read(gravity.path("data.obs")), header, "t.mtx")[0].name == "data-type"


def test_messy_survey_shows_all_its_traps_together():
    """No trap hides another one."""
    survey = clean()
    data = survey.data + 12.0 + 0.003 * (survey.y - 5318000.0)
    x, y = survey.x.copy(), survey.y.copy()
    data[0, 60] = -9999.0
    x[200], y[200], data[0, 200] = x[20], y[20], data[0, 20] + 1.3
    data[0, 150] = np.nan
    findings = found(changed(survey, x=x, y=y, data=data))
    assert {"no-data-code", "duplicate-stations", "constant-offset", "regional-trend"} <= set(findings)


def test_table_and_json():
    findings = [Finding("note", "b", "second", "nothing"), Finding("error", "a", "first", "do it", ("ä1", "2"))]
    lines = findings_table(findings)
    assert lines[0].startswith("error") and "stations: ä1, 2" in lines[1] and lines[2].strip() == "do: do it"
    assert [item["severity"] for item in json.loads(findings_json(findings))] == ["error", "note"]
    assert worst(findings) == "error" and worst([]) is None


@given(st.integers(1, 30), st.integers(0, 2**32 - 1))
def test_any_survey_can_be_checked(count, seed):
    """Few stations, equal places, huge and tiny numbers: never more than findings."""
    generator = np.random.default_rng(seed)
    numbers = generator.choice([0.0, 1.0, -1.0, 1.0e-30, 1.0e12, 5.5, np.nan], (1, count))
    places = generator.choice([0.0, 1.0, 2.0e6, 1.0e-3, 333.3], (3, count))
    survey = Survey(*places, numbers, (0,), np.abs(numbers))
    with np.errstate(all="ignore"):
        assert worst(check_survey(survey)) in (None, "note", "warning", "error")


def test_tutorial_data_raise_no_error():
    import pandas as pd
    folder = Path(__file__).resolve().parents[2] / "docs" / "tutorial"
    for name, column, code in (("gravity", "gz_mgal", "gz"), ("blocks", "gz_mgal", "gz"), ("joint", "gz_mgal", "gz")):
        table = pd.read_csv(folder / f"{name}.csv")
        table["sd"] = 0.02
        survey = Survey.from_pandas(table, column, "sd", code, x="easting_m", y="northing_m", elevation="elevation_m")
        assert worst(check_survey(survey)) is None, name


def test_missing_data_are_noted():
    survey = clean()
    data = survey.data.copy()
    data[0, [4, 9]] = np.nan
    finding = found(changed(survey, data=data))["missing-data"]
    assert finding.severity == "note" and "2 of 256" in finding.text and finding.stations == ("record 5", "record 10")


def test_kilometres_wide_and_exchanged_coordinates():
    survey = clean()
    assert found(changed(survey, x=survey.x / 1000.0, y=survey.y / 1000.0))["small-survey"].severity == "warning"
    wide = found(changed(survey, x=survey.x - 14_000_000.0, y=survey.y - 770_000.0))
    assert "Web Mercator" in wide["wide-coordinates"].remedy
    assert found(changed(survey, x=survey.y, y=survey.x))["exchanged"].severity == "note"


def test_web_mercator_stretches():
    assert check_scale(np.array([500_000.0]), np.array([5_300_000.0]), "EPSG:32633") == []
    finding, = check_scale(np.array([1_600_000.0]), np.array([6_100_000.0]), "EPSG:3857")
    assert finding.severity == "error" and re.search(r"are 1\.4\d times", finding.text)


def test_a_vertical_borehole_has_no_trend_in_plan():
    depths = -np.arange(20.0, 420.0, 20.0)
    hole = Survey(np.full(20, 452225.0), np.full(20, 5318425.0), depths, np.linspace(5.0, 9.0, 20)[None, :], (20,), np.full((1, 20), 0.1))
    assert not {"regional-trend", "constant-offset"} & {finding.name for finding in check_survey(hole)}


def test_stations_in_vertical_holes_are_no_faults():
    depths = 100.0 - np.arange(20.0, 420.0, 20.0)
    hole = Survey(np.full(20, 452225.0), np.full(20, 5318425.0), depths, np.linspace(0.0, 1.0, 20)[None, :] ** 2, (0,), np.full((1, 20), 0.01))
    note, = check_survey(hole)
    assert (note.severity, note.name) == ("note", "boreholes") and "20 of 20 stations in 1 vertical hole, from elevation 80 to -300" in note.text
    survey = clean()
    both = Survey(*(np.append(a, b) for a, b in ((survey.x, hole.x), (survey.y, hole.y), (survey.elevation, depths))),
                  np.append(survey.data, hole.data)[None, :], (0,), np.append(survey.uncertainty, hole.uncertainty)[None, :])
    assert {finding.name for finding in check_survey(both)} <= {"boreholes", "outliers"}
    names = [str(number) for number in range(20)]
    ground = lambda x, y: 0.0 * x + 100.0  # noqa: E731
    assert check_terrain(hole.x, hole.y, depths, ground, names) == []
    deep, = check_terrain(hole.x, hole.y, depths - 500.0, ground, names)
    assert deep.name == "hole-depths" and "520 m below" in deep.text
    one_place = changed(hole, elevation=np.full(20, 3.0))
    assert "one-place" in found(one_place) and found(one_place)["one-place"].severity == "error"


@pytest.mark.parametrize("bad", [0.0, 30.0])
def test_standard_deviations_in_another_unit_hide_nothing(bad):
    survey = clean()
    data = survey.data + 12.0 + 0.002 * (survey.x - 452000.0)
    data[0, 133] += 3.0 + bad
    findings = found(changed(survey, data=data, uncertainty=np.full((1, 256), 1000.0 * SD)))
    assert {"standard-deviations", "outliers", "constant-offset", "regional-trend"} <= set(findings)
    assert findings["outliers"].stations == ("record 134",)
    assert "--error-scale" in findings["standard-deviations"].remedy


def test_a_sign_that_the_data_contradict():
    survey = clean()
    low = changed(survey, data=survey.data - 0.3)
    assert "sign" not in found(survey, sign=1) and "sign" not in found(low) and "sign" not in found(low, sign=-1)
    assert "below -2 standard deviations" in found(low, sign=1)["sign"].text
    assert "above 2 standard deviations" in found(changed(low, data=-low.data), sign=-1)["sign"].text
    assert "sign" not in found(changed(low, codes=(12,)), sign=1)  # gradients have both signs
