"""Files of observed data, against the program that reads and writes them."""

import numpy as np
import pytest
from conftest import Bench, stations
from hypothesis import given
from hypothesis import strategies as st

from voxlith import FileError, UsageError
from voxlith.io.obs_file import ObsFile, ObsHeader, read_obs_file
from voxlith.io.obs_output import write_obs_file

coordinate = st.one_of(st.floats(-1e7, 1e7), st.integers(-10**8, 10**8).map(lambda n: n / 100))
datum = st.one_of(st.floats(-1e30, 1e30, exclude_min=True), st.just(np.nan),
                  st.integers(-10**6, 10**6).map(lambda n: n / 1e3))
deviation = st.one_of(st.floats(0, 1e10), st.integers(0, 10**6).map(lambda n: n / 1e3))
name = st.text("abcXYZ019_-äß", min_size=1, max_size=8)


@st.composite
def surveys(draw):
    count, components = draw(st.integers(1, 8)), draw(st.integers(1, 6))
    form = draw(st.sampled_from(["plain", "bare", "lined", "magnetic", "downhole"]))

    def column(values):
        return np.array(draw(st.lists(values, min_size=count, max_size=count)))
    data = np.array([column(datum) for _ in range(components)])
    obs = ObsFile(column(coordinate), column(coordinate), column(coordinate), data)
    if form != "bare":
        obs.uncertainty = np.array([column(deviation) for _ in range(components)])
    if form in ("magnetic", "downhole"):
        angles = st.floats(-90, 90)
        obs.header = ObsHeader(draw(angles), draw(angles), 5e4, draw(angles), draw(angles), int(form == "magnetic"))
        obs.codes = (1, *[20] * (components - 1))
    else:
        obs.codes = (0, *[12] * (components - 1))
    if form == "downhole":
        obs.angles = np.stack([column(st.floats(-90, 90)), column(st.floats(0, 360))], axis=1)
    if form == "lined":
        obs.line = draw(st.lists(name, min_size=count, max_size=count))
        obs.time = column(st.floats(0, 1e5))
    return obs


def same(a, b):
    for key in ("x", "y", "elevation", "data", "angles", "time"):
        first, second = getattr(a, key), getattr(b, key)
        assert (first is None) == (second is None), key
        if first is not None:
            np.testing.assert_array_equal(first, second, key)
    assert (a.uncertainty is None) == (b.uncertainty is None)
    if a.uncertainty is not None:
        kept = ~np.isnan(a.data) if a.angles is None else np.ones(a.data.shape, dtype=bool)
        np.testing.assert_array_equal(a.uncertainty[kept], b.uncertainty[kept])
    assert a.line == b.line and a.header == b.header


@given(surveys(), st.sampled_from(["auto", "full"]))
def test_nothing_is_lost_on_the_way(tmp_path_factory, obs, digits):
    path = tmp_path_factory.mktemp("obs") / "d.obs"
    try:
        write_obs_file(path, obs, digits=digits)
    except UsageError as error:
        assert "characters" in str(error)
        return
    lined = obs.line is not None
    again = read_obs_file(path, codes=obs.codes, lined=lined, records=len(obs.x))
    same(obs, again)
    write_obs_file(path.with_suffix(".2"), again, digits=digits)
    assert path.read_bytes() == path.with_suffix(".2").read_bytes()
    blind = read_obs_file(path, lined=lined, components=0 if obs.uncertainty is not None else len(obs.data))
    same(obs, blind)


@given(surveys())
def test_fixed_fields_are_stable(tmp_path_factory, obs):
    if obs.line is not None:
        obs.time = np.round(obs.time)
    path = tmp_path_factory.mktemp("obs") / "d.obs"
    try:
        write_obs_file(path, obs, digits="fixed")
    except UsageError as error:
        assert "fills its field" in str(error)
        return
    lined = obs.line is not None
    again = read_obs_file(path, codes=obs.codes, lined=lined)
    write_obs_file(path.with_suffix(".2"), again, digits="fixed")
    assert path.read_bytes() == path.with_suffix(".2").read_bytes()


def test_runs_and_tools_write_the_same_bytes(gravity: Bench, magnetic: Bench, joint: Bench):
    count = 0
    for folder, codes in ((gravity.folder, (0,)), (magnetic.folder, (1,)), (joint.folder, (0, 1))):
        for path in folder.iterdir():
            own = path.name == "stations.obs" or (path.name, codes) == ("data.obs", (0, 1))
            if path.suffix in (".obs", ".pre") and not own:
                write_obs_file(folder / "again", read_obs_file(path, codes=codes))
                assert (folder / "again").read_bytes() == path.read_bytes(), path
                count += 1
    assert count == 6


def test_full_digits_are_those_of_the_tools(bench: Bench):
    bench.write("s.csv", "x,y,z,g,s\n1000.125,2000,5,0.1234567,0.01\n1e3,2000.5,5.25,,0.02\n-3,7,1e6,-1e-7,0.5\n")
    bench.tools("obs", "s.csv", "--data", "g:s", "--out", "d.obs")
    obs = read_obs_file(bench.path("d.obs"))
    assert np.isnan(obs.data[0]).tolist() == [False, True, False]
    write_obs_file(bench.path("again"), obs, digits="full")
    assert bench.path("again").read_bytes() == bench.path("d.obs").read_bytes()


def write(tmp_path, text):
    path = tmp_path / "d.obs"
    path.write_text(text)
    return path


def test_forms_are_told_from_the_file(tmp_path):
    obs = read_obs_file(write(tmp_path, "2 2 0 12 !! text\n1 2 3 4 5 6 7\n1 2 3 * 5 6 *\n"))
    assert obs.codes == (0, 12) and obs.header is None
    np.testing.assert_array_equal(obs.data, [[4, np.nan], [6, 6]])
    np.testing.assert_array_equal(obs.uncertainty, [[5, 5], [7, 0]])
    obs = read_obs_file(write(tmp_path, "60 10 50000 text\nunknown direction\n1\n1 2 3 4\n"))
    assert obs.header == ObsHeader(60, 10, 50000, 60, 10, 1) and obs.uncertainty is None
    obs = read_obs_file(write(tmp_path, "60 10 5D4\n60 10 0\n2\n1 2 3 85 10 7 1\n1 2 3 84,11,8,2\n"))
    assert obs.angles.tolist() == [[85, 10], [84, 11]] and obs.data.tolist() == [[7, 8]]
    obs = read_obs_file(write(tmp_path, "2\n1 2 3 4 5 L1 10\n1 2 3 4 * ÄÄÄÄÄÄÄÄÄ 11\n"), lined=True)
    assert obs.line == ["L1", "ÄÄÄÄÄÄÄÄ"] and obs.time.tolist() == [10, 11]
    assert np.isnan(obs.data[0, 1])
    obs = read_obs_file(write(tmp_path, "1\n1 2 3 4\n"), components=1)
    assert obs.uncertainty is None
    obs = read_obs_file(write(tmp_path, "1\n1 2 3 4 5 6\n"))
    assert obs.data.tolist() == [[4], [5], [6]]


@pytest.mark.parametrize("text, options, message", [
    ("", {}, "line 1: expected a header, found the end of the file"),
    ("x\n1 2 3 4\n", {}, 'line 1: expected the number of data, found "x"'),
    ("60 10 50000\n60 10\n2\n1 2 3 4\n", {}, "line 2: expected inclination and declination of the measured"),
    ("60 x\n", {"codes": [1]}, 'line 1: expected inclination, declination and strength of the field, found "x"'),
    ("1\n", {}, "line 2: expected record 1 of 1, found the end"),
    ("3\n1 2 3 4 5\n1 2 3 4 5\n", {}, "line 1: expected the count 2 of the records that follow, found 3"),
    ("2\n1 2 3 4 5\n1 2 3 4 5\n", {"records": 3}, "line 4: expected record 3 of 3, found the end"),
    ("2\n1 2 3 4 5\n1 2 3 4 5\n", {"records": 1}, "line 3: expected the end of the file after 1 records"),
    ("2\n1 2 3 4 5\n1 2 3 4\n", {}, "line 3: expected 5 columns, found 4"),
    ("2\n1 2 3 4 5\n1 2 3 4 5 6\n", {}, "line 3: expected 5 columns, found 6"),
    ("2\n1 2 3 4 5\n\n1 2 3 4 5\n", {}, "line 1: expected the count 3"),
    ("3\n1 2 3 4 5\n\n1 2 3 4 5\n", {}, "line 3: expected a record, found a blank line"),
    ("2\n1 2 3 4 5\n1 2 , 4 5\n", {}, "line 3: .*found an empty column"),
    ("2\n1 2 3 4 5\n1 2 3,5 1\n", {}, None),
    ("2\n1 2 3 4 5\n1 2 3 4.x 5\n", {}, 'line 3: expected datum 1, found "4.x"'),
    ("2\n1 2 3 4 5\n1 2 3 4 x\n", {}, 'line 3: expected the uncertainty of datum 1, found "x"'),
    ("2\n1 2 3 4 5\n1 y 3 4 5\n", {}, 'line 3: expected y, found "y"'),
    ("1\n1 2 3 4 /5\n", {}, 'line 2: expected the uncertainty of datum 1, found "/5"'),
    ("1\n1 2 3 4 5 L1\n", {"lined": True, "components": 1}, "line 2: expected 7 columns"),
    ("2\n1 2 3 4 5 L1 6\n1 2 3 4 5 L1 z\n", {"lined": True}, 'line 3: expected a time, found "z"'),
    ("1\n" + " ".join("1234567") + " 8" * 20, {}, "at most 6 components, found 24 columns"),
    ("1\n1 2 3 4 5 " + 260 * "!", {}, "line 2: expected at most 256 characters"),
    ("1\n1 2 3 4 0." + 40 * "5" + "\n", {}, "line 2: expected words of at most 31 characters"),
    ("60 10 5e4\n60 10 0\n2\n1 2 3 85 10 7 1\n1 2 3 85 10 7\n", {"codes": [1]}, "expected 7 numbers of record 2"),
    ("60 10 5e4\n60 10 0\n1\n1 2 3 85 10 x 1\n", {}, 'line 4: expected 7 numbers of record 1, found "x"'),
    ("60 10 5e4\n60 10 0\n2\n1 2 3 85 10 7 1\n1 2 3 85 10\n", {"records": 2}, "expected 7 numbers of record 2"),
])
def test_what_is_doubtful_is_told(tmp_path, text, options, message):
    path = write(tmp_path, text)
    if message is None:
        read_obs_file(path, **options)
        return
    with pytest.raises(FileError, match=message):
        read_obs_file(path, **options)


def test_comments_behind_records_are_let_through(tmp_path):
    assert read_obs_file(write(tmp_path, "1 remark\n1 2 3 4 5 !! remark\n")).data.tolist() == [[4]]


def test_wrong_arguments(tmp_path):
    path = write(tmp_path, "1\n1 2 3 4 5\n")
    for options in ({"components": 7}, {"codes": [0] * 7}, {"codes": [0], "components": 2}):
        with pytest.raises(UsageError, match="components"):
            read_obs_file(path, **options)


def test_masked_records_of_many_components(tmp_path):
    """A run writes six asterisks at most, whatever the number of components is."""
    text = "2 4 0 0 0 0\n1 2 3 1 1 2 1 3 1 4 1\n1 2 3" + 6 * " *" + "\n"
    obs = read_obs_file(write(tmp_path, text))
    assert np.isnan(obs.data[:, 1]).all()
    write_obs_file(tmp_path / "again", obs)
    assert (tmp_path / "again").read_text().splitlines()[2].count("*") == 8


# Records that the program reads in ways of its own, behind a first one with data and uncertainties.
ODD_RECORDS = ["100 100 5 0.5 0.1", "100,100,5,0.5,0.1", "100 100 5 * 0.1", "100 100 5 0.5 *", "100 100 5 0.5 0",
               "100 100 5 0.5 -3", "100 100 5 0.5", "100 100 5 , 0.1", "100 100 5 1D-1 1-1", "100 100 5 0.5/x 0.1",
               "100 100 5 0.5 0.1 77 text", "1*100 100 5 0.5 0.1", "100\t100\t5\t0.5\t0.1", "100 100 5 nan 0.1",
               "100 100 5 -1e31 0.1", "100 100 5 " + "0" * 40 + "7 0.1", "100 100 5" + 250 * " " + "0.5 0.1",
               "100 100 5 inf 0.1", "  100 100 5 0.5 0.1\r", "100 100 5 0.5 0.1,"]


def test_odd_records_are_read_as_the_program_reads_them(bench: Bench):
    """Limits that mask the second record make the program write down what it has read."""
    records = ["0 0 5 0.5 0.1", "100 100 5 77 1", *ODD_RECORDS]
    survey = stations(0, len(records))
    survey.write(bench.path("s.obs"))
    (bench.folder / "mesh.msh").write_text("4 4 2\n900 1900 100\n4*200\n4*200\n2*100\n")
    bench.tools("mtx", "--mesh", "mesh.msh", "--stations", "s.obs", "--type", "gz", "--out", "data.mtx")
    bench.path("data.obs").write_text(f"{len(records)}\n" + "\n".join(records) + "\n", newline="")
    bench.control(l12="1")
    bench.voxlith("voxlith.inp", "ObsClip=(-1e29,50)")
    program = read_obs_file(bench.path("voxlith_obs_masked.obs"), codes=[0])
    own = read_obs_file(bench.path("data.obs"), codes=[0], records=len(records), strict=False)
    own.data[0, own.data[0] > 50] = np.nan
    np.testing.assert_array_equal(own.data, program.data)
    used = np.where(own.uncertainty > 0, own.uncertainty, 0.01)
    np.testing.assert_allclose(used[~np.isnan(own.data)], program.uncertainty[~np.isnan(own.data)], rtol=1e-6)
    given = ~np.isnan(own.x)
    np.testing.assert_array_equal(own.x[given], program.x[given])


def test_reference_data_run_over_lines(tmp_path):
    path = write(tmp_path, "2\n1 2\n3 4 5 rest\n1,2,3,6\n7\n")
    obs = read_obs_file(path, codes=[0], records=2, reference=True, strict=False)
    assert obs.data.tolist() == [[4.0, 6.0]] and obs.elevation.tolist() == [3, 3]
    with pytest.raises(FileError, match="record"):
        read_obs_file(path, codes=[0], records=2, reference=True)
    assert read_obs_file(path, codes=[0], records=3, reference=True, strict=False).x.tolist() == [1, 1, 7]
    with pytest.raises(FileError, match="expected record 4"):
        read_obs_file(path, codes=[0], records=4, reference=True, strict=False)
    with pytest.raises(FileError, match='found "x"'):
        read_obs_file(write(tmp_path, "1\n1 2 3 x 5\n"), codes=[0], reference=True, strict=False)


def test_header_over_lines_without_strictness(tmp_path):
    obs = read_obs_file(write(tmp_path, "60\n10 50000\n60 10 1\n1\n1 2 3 4 5\n"), codes=[1], strict=False)
    assert obs.header.strength == 50000 and obs.data.tolist() == [[4]]


def good():
    return ObsFile(np.zeros(2), np.zeros(2), np.zeros(2), np.zeros((1, 2)), np.ones((1, 2)), codes=(0,))


@pytest.mark.parametrize("change, message", [
    ({"x": np.zeros(3)}, "expected the shape"), ({"y": np.array([0, np.nan])}, "y: expected finite"),
    ({"data": np.zeros((7, 2))}, "1 to 6 components"), ({"data": np.full((1, 2), np.inf)}, "data: expected finite"),
    ({"line": ["a", "b"]}, "go together"), ({"line": ["a"], "time": np.zeros(2)}, "expected 2 names"),
    ({"line": ["a b", "c"], "time": np.zeros(2)}, "line name 'a b'"),
    ({"line": ["", "c"], "time": np.zeros(2)}, "line name"),
    ({"line": ["ÄÄÄÄÄÄÄÄx", "c"], "time": np.zeros(2)}, "at|16 bytes"),
    ({"line": ["a", "b"], "time": np.zeros(2), "uncertainty": None}, "follow uncertainties"),
    ({"angles": np.zeros((2, 2))}, "angles per record"),
    ({"header": ObsHeader(0, 0, 1, 0, 0, 0), "codes": (1,)}, "idir"),
    ({"x": np.zeros(0), "y": np.zeros(0), "elevation": np.zeros(0), "data": np.zeros((1, 0)), "uncertainty": None},
     "at least one record")])
def test_what_cannot_be_written(tmp_path, change, message):
    obs = good()
    for key, value in change.items():
        setattr(obs, key, value)
    with pytest.raises(UsageError, match=message):
        write_obs_file(tmp_path / "d.obs", obs)
    assert not (tmp_path / "d.obs").exists()


def test_writing_chooses_its_digits(tmp_path):
    obs = good()
    with pytest.raises(UsageError, match="digits"):
        write_obs_file(tmp_path / "d", obs, digits="some")
    write_obs_file(tmp_path / "d", obs)
    assert "0.100000E+01" in (tmp_path / "d").read_text()
    for key, value in (("x", 0.001), ("x", 1e9), ("data", 978123.456)):
        obs = good()
        getattr(obs, key)[..., 0] = value
        write_obs_file(tmp_path / "d", obs)
        assert "E+" not in (tmp_path / "d").read_text()
        same(obs, read_obs_file(tmp_path / "d"))
