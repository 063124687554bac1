"""Tables to observed data and back."""

import numpy as np
import pytest
from conftest import one_line
from hypothesis import assume, given
from hypothesis import strategies as st

from voxlith import Survey
from voxlith.checks.stations import looks_like_degrees
from voxlith.checks.values import no_data_codes
from voxlith.io.obs_file import read_obs_file

PLACES = ("--x", "E", "--y", "N", "--z", "h")


@pytest.fixture
def convert(tools, tmp_path):
    """Converts a table with the columns of `PLACES`, or any file."""
    def run(csv, *arguments, data="d:s", out=("--out", "d.obs")):
        (tmp_path / "s.csv").write_text(csv, newline="")
        return tools("obs", "s.csv", *PLACES, *(("--data", data) if data else ()), *out, *arguments)
    return run


def test_the_gravity_layout(convert, tmp_path):
    done = convert('E,N,h,d,s\n10,20,5.5,0.25,0.01\n"11",21,6,,\n12,22,7,-1e-7,0.5\n')
    assert (done.status, done.errors) == (0, "")
    assert (tmp_path / "d.obs").read_text() == (
        "3  !! # of data\n"
        "           10           20          5.5          0.25          0.01\n"
        "           11           21            6             *             *\n"
        "           12           22            7        -1e-07           0.5\n")
    assert done.out.splitlines() == [
        "file:         d.obs", "records:      3", "x:            10 to 12", "y:            20 to 22",
        "elevation:    5.5 to 7",
        "component 1:  2 data, 1 dummies, -1e-07 to 0.25 mGal, standard deviations 0.01 to 0.5"]


def test_the_magnetic_layout(convert, tmp_path):
    done = convert("E,N,h,d,line,t\n1,2,-3,5,L 1,10\n1,2,-3,5,L 1,11\n", "--field", "60,-10,48000.5", "--direction",
                   "55,0", "--percent", 10, "--floor", 2, "--line", "line", "--time", "t", "--z-down", "--z-unit", "km",
                   data="d")
    assert done.out.splitlines()[-3:] == ["field:        60,-10,48000.5", "direction:    55,0, direction flag 1",
                                          "default:      2 standard deviations that no column gives"]
    assert "assumed" not in done.errors
    assert (tmp_path / "d.obs").read_text().startswith(
        "60 -10 48000.5  !! incl, decl, geomag\n55 0 1  !! aincl, adecl, idir\n2  !! # of data\n"
        "            1            2         3000             5")
    survey = Survey.read(tmp_path / "d.obs", "tmi", lined=True)
    assert survey.uncertainty.tolist() == [[2.5, 2.5]]
    assert [line.name for line in survey.lines()] == ["L_1"]
    assert survey.time.tolist() == [10, 11] and survey.field.strength == 48000.5


def test_defaults(convert, tools, tmp_path):
    assert convert("E,N,d\n1,2,5\n", data="d").status == 2
    (tmp_path / "s.csv").write_text("E,N,d\n1,2,5\n")
    options = ("obs", "s.csv", "--x", "E", "--y", "N", "--elevation", 30, "--data", "d", "--out", "d.obs")
    assert tools(*options).status == 0
    found = Survey.read(tmp_path / "d.obs")
    assert (found.uncertainty[0, 0], found.elevation[0]) == (0.01, 30.0)
    assert tools(*options, "--field", "60,0,50000").status == 0
    assert Survey.read(tmp_path / "d.obs").uncertainty[0, 0] == 1.0


HEAD = "E,N,h,d,s\n1,2,3,4,5\n"


@pytest.mark.parametrize("csv, problem", [
    (HEAD + "1,2,,4,5\n", 'column "h": expected a number, found an empty field; obs --drop leaves such stations out'),
    (HEAD + "1,2,,4,5\n" + 12 * "1,2,x,4,5\n", 'column "h": expected a number, found an empty field; likewise lines 4, 5, 6, 7, 8, 9, 10, 11 ...; '
     "obs --drop leaves such stations out"),
    (HEAD + "1,2,3,x,5\n", 'column "d": expected a number, or an empty field for a dummy, found "x"'),
    (HEAD + "1,2,3,4,0\n", 'column "s": expected a standard deviation above 0, found "0"'),
    (HEAD + "1,2,3,4,1e-60\n", 'column "s": expected a standard deviation above 0, found "1e-60"'),
    (HEAD + "1,2,3,4,1e60\n", 'column "s": expected a standard deviation above 0, found "1e60"'),
    (HEAD + "1,2,3,-1e3,1e-30\n", 'column "d": expected a datum of less than 1e30 standard deviations, found "-1e3"')])
def test_what_is_wrong_in_the_table(convert, tmp_path, csv, problem):
    assert one_line(convert(csv)) == f"s.csv, line 3: {problem}"
    assert not (tmp_path / "d.obs").exists()


def test_an_empty_table_is_none(convert):
    assert one_line(convert("E,N,h,d,s\n")) == "s.csv, line 2: expected a record, found the end of the file"


@pytest.mark.parametrize("arguments, data, problem", [
    ((), "q:s", "--data q: s.csv has no column of that name; it has E, N, h, d, s"),
    (("--time", "d"), "d:s", "--time: expected --line beside it"),
    (("--type", "tmi"), "d", "--type tmi: expected --field incl,decl,nT, or --date, with magnetic data"),
    (("--type", "tm"), "d", "--type tm: unknown; known are 0 gz, 1 tmi, 2 gzz, 10 gxx, 11 gyy, 12 gzz, 13 gxy, 14 gxz, "
                            "15 gyz, 20 tx, 21 ty, 22 tz"),
    (("--type", "tmi", "--field", "100,0,50000"), "d", "--field, --direction: expected an inclination within 90 degrees "
                                                       "and a declination within 360, found 100, 0"),
    (("--field", "60,0,-1"), "d", "--field 60,0,-1: expected a field strength above 0 nT"),
    (("--field", "60,0"), "d", "--field 60,0: expected incl,decl,nT"),
    (("--type", "gz", "--field", "60,0,50000"), "d", "--field: gz data have no inducing field"),
    (("--type", "gz", "gzz"), "d", "--type: expected one data type, or one for each of the 1 components"),
    (("--angles", "s"), "d", "--angles s: expected aincl:adecl"),
    (("--angles", "s:s"), "d", "--angles: expected data of type tmi"),
    (("--components", 2), "d", "--components goes with --csv"),
    (("--floor", "-1"), "d", "--floor: expected a number of 0 or more, found -1"),
    (("--z-unit", "miles"), "d", "--z-unit miles: expected one of m, km, ft"),
    ((), None, "expected --data with the column of the data")])
def test_what_is_wrong_on_the_command_line(convert, tmp_path, arguments, data, problem):
    assert one_line(convert(HEAD, *arguments, data=data), 2) == problem
    assert not (tmp_path / "d.obs").exists()


def test_uncertainties_of_nothing(convert):
    done = convert(HEAD + "1,2,3,0,5\n", "--percent", 5, data="d")
    assert one_line(done) == ('s.csv, line 3: column "d": expected a datum to which --percent and --floor give a standard '
                              'deviation above 0, found "0"')


def test_names_of_lines(convert):
    done = convert("E,N,h,d,line,t\n1,2,3,4,12345678901234567,1\n", "--line", "line", "--time", "t", data="d")
    assert one_line(done) == ('s.csv, line 2: column "line": expected a line name of 1 to 16 characters, found '
                              '"12345678901234567"')
    done = convert("E,N,h,d,line,t\n1,2,3,4,a,1\n2,2,3,5,a,1\n3,2,3,6,b,0\n", "--line", "line", "--time", "t", data="d")
    assert done.errors == ("voxlith-tools: warning: d.obs: 3 data without a standard deviation; 0.01 is assumed; give --percent and --floor\n"
                           "voxlith-tools: warning: d.obs: the time does not rise along its line in 1 records; averages "
                           "along lines need it to\n")


def test_a_field_that_is_not_that_of_the_earth(convert):
    done = convert(HEAD, "--field", "60,0,5")
    assert done.errors == "voxlith-tools: warning: d.obs: a field of 5 nT is not that of the Earth\n"


def test_dummies_have_many_names(convert, tmp_path):
    done = convert("E,N,h,d,s\n1,1,1,NA,1\n1,1,1,*,1\n1,1,1,-9999.0,1\n1,1,1,NaN,1\n1,1,1,-1e31,1\n1,1,1,7,NA\n",
                   "--dummy", "-9999")
    assert done.status == 0
    found = read_obs_file(tmp_path / "d.obs", codes=[0])
    assert np.isnan(found.data[0]).tolist() == 5 * [True] + [False]
    assert (found.data[0, 5], found.uncertainty[0, 5]) == (7.0, 0.01)


def test_the_downhole_form_keeps_its_angles(convert, tools, tmp_path):
    csv = "E,N,h,d,s,i,a\n1,2,3,4,5,60,7\n1,2,3,4,5,61,8\n"
    assert convert(csv, "--angles", "i:a", "--field", "60,0,50000").status == 0
    survey = Survey.read(tmp_path / "d.obs", "tmi")
    assert survey.idir == 0 and survey.angles.tolist() == [[60, 7], [61, 8]]
    assert tools("obs", "d.obs", "--csv", "back.csv").status == 0
    assert (tmp_path / "back.csv").read_text() == ("x,y,z,aincl,adecl,data1,uncertainty1\n1,2,3,60,7,4,5\n"
                                                   "1,2,3,61,8,4,5\n")
    done = convert(csv.replace(",4,", ",,"), "--angles", "i:a", "--field", "60,0,50000")
    assert one_line(done) == ('s.csv, line 2: column "d": expected a datum, as records with angles have no dummies, found '
                              "an empty field")


NUMBERS = st.floats(-1e4, 1e4).map(lambda value: float(f"{value:.9g}"))


@given(components=st.integers(1, 4), magnetic=st.booleans(), with_lines=st.booleans(), data=st.data())
def test_tables_go_there_and_back(tmp_path_factory, components, magnetic, with_lines, data):
    """What is read of the observed data is what is in the table, and the table that comes back is the same text."""
    from voxlith.cli.tools import main
    folder = tmp_path_factory.mktemp("obs")
    datum = st.one_of(st.none(), st.tuples(NUMBERS, st.floats(0.001, 100.0).map(lambda value: float(f"{value:.6g}"))))
    records = data.draw(st.lists(st.tuples(st.tuples(NUMBERS, NUMBERS, NUMBERS),
                                           st.lists(datum, min_size=components, max_size=components)), min_size=1, max_size=8))
    columns_of_data = np.array([[np.nan if value is None else value[0] for value in values] for _, values in records]).T
    assume(any((np.isfinite(column) & ~no_data_codes(column)).any() for column in columns_of_data))
    assume(not looks_like_degrees([place[0] for place, _ in records], [place[1] for place, _ in records]))
    names = [f"d{n}:s{n}" for n in range(components)]
    lines = ["E,N,h," + ",".join(names).replace(":", ",") + (",line,time" if with_lines else "")]
    for number, (place, values) in enumerate(records):
        fields = [*map(repr, place)]
        for value in values:
            fields += ["", ""] if value is None else [*map(repr, value)]
        lines.append(",".join(fields + ([f"L{number % 2}", str(number)] if with_lines else [])))
    (folder / "s.csv").write_text("\n".join(lines) + "\n")
    columns = [*PLACES, "--data", *names, *(("--line", "line", "--time", "time") if with_lines else ())]
    field = ["--field", "60.5,-3,51234.5", "--type", "tmi"] if magnetic else []
    there = [*columns, *field, "--out", str(folder / "d.obs")]
    assert main(["obs", str(folder / "s.csv"), *there]) == 0
    found = read_obs_file(folder / "d.obs", codes=components * [1 if magnetic else 0], lined=with_lines)
    expected = np.where([no_data_codes(column) for column in columns_of_data], np.nan, columns_of_data).T
    np.testing.assert_array_equal(found.data.T, expected)
    assert found.x.tolist() == [place[0] for place, _ in records]
    back = [*columns, "--csv"]
    observed = (folder / "d.obs").read_text()
    assert main(["obs", str(folder / "d.obs"), *back, str(folder / "back.csv")]) == 0
    assert main(["obs", str(folder / "back.csv"), *there]) == 0
    assert (folder / "d.obs").read_text() == observed
    assert main(["obs", str(folder / "d.obs"), *back, str(folder / "again.csv")]) == 0
    assert (folder / "again.csv").read_text() == (folder / "back.csv").read_text()


def test_what_the_program_writes_is_read(tools, tmp_path):
    (tmp_path / "p.pre").write_text("      2                         !! # of data\n"
                                    "      100.00      200.00       50.00  0.123456E+01  0.100000E-01\n"
                                    "      110.00      200.00       50.00             *             *\n\n")
    done = tools("obs", "p.pre", "--csv", "back.csv")
    assert (done.status, done.errors) == (0, "")
    assert (tmp_path / "back.csv").read_text() == ("x,y,z,data1,uncertainty1\n100,200,50,1.23456,0.01\n110,200,50,,\n")
    (tmp_path / "w.obs").write_text("3\n1 2 3 4\n1 2 3 5\n")
    done = tools("obs", "w.obs", "--csv", "back.csv", "--separator", "semicolon")
    assert done.errors == "voxlith-tools: warning: the count line has 3, the file contains 2 records\n"
    assert (tmp_path / "back.csv").read_text() == "x;y;z;data1\n1;2;3;4\n1;2;3;5\n"
    assert "mGal" not in done.out and "mGal" in tools("obs", "w.obs", "--csv", "back.csv", "--type", "gz").out


@pytest.mark.parametrize("text, problem", [
    ("2\n1 2 3 4 5\n1 2 3 4\n", "line 3: expected 5 columns, found 4"),
    ("2\n1 2 3 4 5\n\n1 2 3 4 5\n", "line 3: expected a record, found a blank line"),
    ("2\n1 2 x 4 5\n", 'line 2: expected the elevation, found "x"'),
    ("1\n1 2,,3 4 5\n", "line 2: expected words of at most 31 characters, found an empty column"),
    ("", "line 1: expected a header, found the end of the file"),
    ("1\n", "line 2: expected record 1 of 1, found the end of the file"),
    ("abc\n", 'line 1: expected the number of data, found "abc"'),
    ("1\n1 2 3 " + 2000000 * "4" + "\n", "line 2: expected a line of at most 1048576 characters, found 2000006")])
def test_observed_data_that_cannot_be_read(tools, tmp_path, text, problem):
    (tmp_path / "bad.obs").write_text(text)
    assert one_line(tools("obs", "bad.obs", "--csv", "back.csv")) == f"bad.obs, {problem}"
    assert not (tmp_path / "back.csv").exists()


def test_options_of_the_other_direction(tools, tmp_path):
    (tmp_path / "d.obs").write_text("1\n1 2 3 4 5\n")
    for option in (("--floor", 1), ("--z-down",), ("--dummy", "x"), ("--angles", "a:b")):
        assert one_line(tools("obs", "d.obs", "--csv", "c.csv", *option), 2) == f"{option[0]} goes with --out"
    assert "a CSV is written with commas" in one_line(tools("obs", "d.obs", "--csv", "c.csv", "--decimal-comma"), 2)
    assert one_line(tools("obs", "d.obs"), 2) == "expected one of --out and --csv"
    assert one_line(tools("obs", "d.obs", "--out", "a", "--csv", "b"), 2) == "--out and --csv exclude each other"
    assert one_line(tools("obs", "d.obs", "--csv", "./d.obs"), 2) == (
        "--out ./d.obs: expected another file than that of the file to convert")
    assert (tmp_path / "d.obs").read_text() == "1\n1 2 3 4 5\n"


def test_no_valid_datum_is_refused(convert, tmp_path):
    assert one_line(convert("E,N,h,d,s\n1,2,3,,\n1,5,3,NA,\n")) == (
        "s.csv: expected a valid datum, found none; check the columns of --data and --dummy")
    assert not (tmp_path / "d.obs").exists()


def test_no_data_codes_with_a_decimal_comma(convert, tmp_path):
    csv = "E;N;h;d;s\n100;2;3;-9999,0;1\n200;5;3;1,5;0,1\n300;5;3;1,25;0,1\n"
    done = convert(csv, "--decimal-comma")
    assert "1 datum of -9999, which stands for no datum, masked (line 2)" in done.errors
    assert "--dummy -9999" in done.errors and "2 data, 1 dummies" in done.out
    assert np.isnan(Survey.read(tmp_path / "d.obs").data[0]).tolist() == [True, False, False]
    for dummy in ("-9999", "-9999,0"):
        assert convert(csv, "--decimal-comma", "--dummy", dummy).errors == ""
        assert np.isnan(Survey.read(tmp_path / "d.obs").data[0]).tolist() == [True, False, False]


def test_several_no_data_codes_are_masked_and_check_agrees(convert, tools, tmp_path):
    """One --dummy cannot name two codes; what obs has masked, check finds no more."""
    rows = [f"{100 * (n % 6)},{100 * (n // 6)},3,{np.sin(n):.3f},0.1\n" for n in range(36)]
    rows[4], rows[9], rows[17] = (rows[n].replace(f",{np.sin(n):.3f},", f",{code},")
                                  for n, code in ((4, "-9999"), (9, "1e30"), (17, "-9999")))
    done = convert("E,N,h,d,s\n" + "".join(rows))
    assert done.status == 0 and "33 data, 3 dummies" in done.out
    assert "2 data of -9999, which stands for no datum, masked (line 6, line 19)" in done.errors
    assert "1 datum of 1e+30, which stands for no datum, masked (line 11)" in done.errors
    assert np.flatnonzero(np.isnan(Survey.read(tmp_path / "d.obs").data[0])).tolist() == [4, 9, 17]
    assert "no-data-code" not in tools("check", "d.obs").out
    table = "E,N,h,d,s,i,a\n" + "".join(row.replace("\n", ",60,5\n") for row in rows)
    message = one_line(convert(table, "--angles", "i:a", "--field", "60,0,50000"))
    assert "2 data of -9999" in message and "have no dummies" in message


def test_duplicates_are_seen(convert):
    csv = "E,N,h,d,s\n" + "".join(f"{100 * n},0,3,{0.1 * n},0.02\n" for n in range(9)) + "300,0,3,1.56,0.02\n"
    assert "differ by up to 45 standard deviations (record 4 = record 10)" in convert(csv).errors


DEGREES = "E,N,h,d,s\n15.01,49.98,300,1,0.1\n15.02,49.98,310,2,0.1\n15.01,49.99,305,1.5,0.1\n"


def test_degrees_need_a_reference_system(convert, tmp_path):
    message = one_line(convert(DEGREES), 2)
    assert "look like longitude and latitude" in message and "--crs EPSG:4326" in message
    assert "expected --to beside it" in one_line(convert(DEGREES, "--crs", "EPSG:4326"), 2)
    assert "projected system in metres" in one_line(convert(DEGREES, "--crs", "EPSG:4326", "--to", "EPSG:4326"), 2)
    done = convert(DEGREES, "--crs", "EPSG:4326", "--to", "EPSG:32633")
    assert done.status == 0 and "converted:    from EPSG:4326 to EPSG:32633" in done.out
    survey = Survey.read(tmp_path / "d.obs")
    assert abs(survey.x - 501000.0).max() < 1000.0 and abs(survey.y - 5537000.0).max() < 2000.0
    from voxlith.side_file import read_side_file
    assert read_side_file(tmp_path / "d.obs").crs == "EPSG:32633"


def test_field_of_place_and_date(convert, tmp_path):
    done = convert(DEGREES, "--crs", "EPSG:4326", "--to", "EPSG:32633", "--date", "2024-05-01", "--type", "tmi")
    assert done.status == 0
    survey = Survey.read(tmp_path / "d.obs", "tmi")
    assert survey.field.inclination == pytest.approx(66.16, abs=0.05) and survey.field.strength == pytest.approx(49450, abs=20)
    assert survey.direction == survey.field.direction
    assert "exclude each other" in one_line(convert(DEGREES, "--date", "2024", "--field", "60,0,50000"), 2)
    assert "have no inducing field" in one_line(convert(HEAD, "--date", "2024", "--type", "gz"), 2)


def test_wide_coordinates_are_shifted(convert, tmp_path):
    csv = "E,N,h,d,s\n-13627665.27,4547675.35,3,1,0.1\n-13627565.27,4547775.35,3,2,0.1\n"
    done = convert(csv)
    assert "-13600000,0 was subtracted" in done.errors and "shift:        -13600000,0" in done.out
    assert Survey.read(tmp_path / "d.obs").x.tolist() == pytest.approx([-27665.27, -27565.27])
    from voxlith.side_file import read_side_file
    assert read_side_file(tmp_path / "d.obs").shift == (-13600000.0, 0.0)
    assert convert(csv, "--shift", "none").status == 0
    assert Survey.read(tmp_path / "d.obs").x[0] == -13627665.27


def test_stations_above_a_terrain(convert, tmp_path):
    (tmp_path / "topo.csv").write_text("x,y,z\n0,0,100\n1000,0,200\n0,1000,100\n1000,1000,200\n")
    done = convert("E,N,d,s\n0,500,1,0.1\n500,500,2,0.1\n", "--topography", "topo.csv", "--height", 60)
    assert done.status == 2  # the column of the elevation is not wanted, too
    options = ("obs", "s.csv", "--x", "E", "--y", "N", "--data", "d:s", "--out", "d.obs", "--topography", "topo.csv", "--height")
    from voxlith.cli.tools import main
    assert main([*map(str, options), "60"]) == 0
    assert Survey.read(tmp_path / "d.obs").elevation.tolist() == [160.0, 210.0]


def test_lines_of_geosoft_xyz(tools, tmp_path):
    (tmp_path / "f.xyz").write_text("/ X Y Z TMI FID\nLINE 10\n0 0 50 1 0\n0 20 50 * 1\n0 40 50 3 2\nLINE 20\n50 0 50 4 0\n")
    options = ("obs", "f.xyz", "--x", "X", "--y", "Y", "--z", "Z", "--data", "TMI", "--line", "line", "--time", "FID", "--field",
               "60,5,48000", "--floor", 2, "--out", "f.mag")
    assert tools(*options).status == 0
    survey = Survey.read(tmp_path / "f.mag", "tmi", lined=True)
    assert [line.name for line in survey.lines()] == ["L10", "L20"] and np.isnan(survey.data[0]).tolist() == [0, 1, 0, 0]
    done = tools(*options, "--every", 30)
    assert "thinned:      3 of 4 records" in done.out


def test_axes_of_other_programs(convert, tmp_path):
    """x north and z upwards become x east and z downwards: the tensor of a rotated frame."""
    csv = "E,N,h,xx,xz,z\n0,0,3,1,2,3\n100,0,3,4,5,6\n"
    options = ("--data", "xx", "xz", "z", "--type", "gxx", "gxz", "gz", "--floor", 1)
    assert convert(csv, *options, "--x-north", "--upwards", data=None).status == 0
    survey = Survey.read(tmp_path / "d.obs")
    assert survey.codes == (11, 15, 0)
    assert survey.data.tolist() == [[1, 4], [-2, -5], [-3, -6]]


def test_magnetic_data_without_type_or_field(tools, tmp_path):
    (tmp_path / "m.csv").write_text("x,y,z,tmi,mantle\n" + "".join(f"{50 * n},{30 * n % 70},5,{n % 5},{n % 5}\n" for n in range(20)))
    words = ("obs", "m.csv", "--x", "x", "--y", "y", "--z", "z", "--floor", 1, "--out", "o.obs")
    assert "tmi is read as gz in mGal" in tools(*words, "--data", "tmi").errors
    assert "is read as gz" not in tools(*words, "--data", "mantle").errors
    assert "is read as gz" not in tools(*words, "--data", "tmi", "--type", "tmi", "--field", "60,5,50000").errors
