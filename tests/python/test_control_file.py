"""Control files: read as the program reads them, edited with their comments kept."""

import re

import pytest
from conftest import CONTROL, Bench
from hypothesis import given
from hypothesis import strategies as st

from voxlith import FileError, UsageError
from voxlith.io.control_file import ControlFile, Product, ProductTerm, read_control_file, write_control_file
from voxlith.io.log_file import read_log_file


def control(tmp_path, **lines):
    """The usual control file with other lines; l3="1 2" changes line 3."""
    texts = CONTROL.splitlines()
    for name, text in lines.items():
        texts += [""] * (int(name[1:]) - len(texts))
        texts[int(name[1:]) - 1] = text
    path = tmp_path / "voxlith.inp"
    path.write_text("\n".join(texts) + "\n")
    return path


def test_values(tmp_path):
    values = read_control_file(control(tmp_path)).values
    assert (values.restart, values.mtx_count, values.component_count, values.model_count) == (0, 1, 1, 1)
    assert (values.tradeoff, values.tolc, values.positivity, values.integration_interval) == (0.01, 0.02, 0, 0.0)
    assert (values.data_file, values.mtx_files) == ("data.obs", ("data.mtx",))
    assert values.alphas == (0.0001, 1.0, 1.0, 1.0)
    assert (values.max_iterations, values.output_step) == (14, 5)
    assert values.terms_of(0) == Product((ProductTerm(1, 1, 1.0),))


def test_joint_values(tmp_path):
    path = control(tmp_path, l1="0 3 2 2,dens,susceptibility ! joint", l2="-1 2,0.5", l3="1 2 -999 400",
                   l5="a b.mtx|b.mtx | c.mtx", l9="null", l10="null|w x.txt||z", l13="3 1 1 1 2 1 1D0 3 1 1 RMS",
                   l14="2 1 1 0 2 2 0.5")
    values = read_control_file(path).values
    assert values.labels == ("dens", "suscepti") and values.mtx_files == ("a b.mtx", "b.mtx", "c.mtx")
    assert (values.mode, values.background, values.background_value) == (-1, 2, 0.5)
    assert values.positivity is None and values.integration_interval == 400
    assert values.weight_files == ("null", "w x.txt", "", "z")
    assert values.products[0].amplitude and not values.products[1].amplitude
    assert [term.takes_part for term in values.products[1].terms] == [False, True]


@pytest.mark.parametrize("line, names", [("a|b,c", ("a", "b,c")), ("a, b", ("a", "b")), ("a b", ("a", "b"))])
def test_names_of_sensitivity_files(tmp_path, line, names):
    assert read_control_file(control(tmp_path, l1="0 2", l5=line)).values.mtx_files == names


def test_lines_that_may_be_missing(tmp_path):
    path = tmp_path / "voxlith.inp"
    path.write_text("\n".join(CONTROL.splitlines()[:9]))
    control_file = read_control_file(path)
    assert control_file.values.max_iterations == 300 and control_file.values.weight_files == ("null",)
    control_file.set(max_iterations=20)
    assert len(control_file.lines) == 12 and control_file.lines[10].startswith("null")
    control_file.write(path)
    assert read_control_file(path).values.max_iterations == 20
    assert not path.read_bytes().endswith(b"\n")


# Line, its text, what it is read as without strictness (None: stops in any case), and the message.
DOUBTFUL = [
    ("l1", "x", None, 'line 1: expected the integer iRestart, found "x"'),
    ("l1", "", None, "line 1: expected the integer iRestart"),
    ("l1", "0 two", {"mtx_count": 1}, 'line 1: expected the number of sensitivity files, found "two"'),
    ("l1", "0 1 7", None, "line 1: expected 1 to 6 data components"),
    ("l1", "0 1 1 2 a/b", None, 'expected a model label without "/"'),
    ("l1", "0 1 1 2 dens dens", {"labels": ("dens", "dens")}, "labels that differ"),
    ("l2", "two", None, "line 2: expected the integer iMode"),
    ("l2", "2 zero", {"background": 0}, "line 2: expected the integer iMode"),
    ("l3", "0.1", None, "line 3: expected two numbers, trade-off and tolc"),
    ("l3", "0.1 0.2 one", {"positivity": None}, "line 3: expected two numbers"),
    ("l3", "0.1 0.2,,5", {"positivity": None, "integration_interval": 5.0}, "line 3"),
    ("l4", "  ! none", None, "line 4: expected the name of the observed data file"),
    ("l4", "data.obs\t! data", {"data_file": "data.obs\t"}, "line 4: .*without tabs"),
    ("l6", 85 * "m", {"initial_model": 80 * "m"}, "line 6: expected the initial model within 80 characters"),
    ("l9", "1 2 3", None, "line 9: expected four numbers"),
    ("l9", "1 2 ,, 4", {"alphas": (1.0, 2.0, 1.0, 4.0)}, "line 9: expected four numbers"),
    ("l9", "1 -1 1 1", None, "line 9: expected alphas of 0 or more"),
    ("l9", "0 0 0 0", None, "not all of them 0"),
    ("l12", "many", {"max_iterations": 300}, "line 12: expected the number of iterations"),
    ("l12", "10 x", {"max_iterations": 10, "output_step": 0}, "line 12"),
    ("l12", "0", {"max_iterations": 300}, None),
]


@pytest.mark.parametrize("line, text, lenient, message", DOUBTFUL)
def test_doubtful_lines(tmp_path, line, text, lenient, message):
    path = control(tmp_path, **{line: text})
    if message is not None:
        with pytest.raises(FileError, match=message):
            read_control_file(path)
    if lenient is None:
        with pytest.raises(FileError):
            read_control_file(path, strict=False)
    else:
        values = read_control_file(path, strict=False).values
        assert {key: getattr(values, key) for key in lenient} == lenient


@pytest.mark.parametrize("lines, message", [
    ({"l1": "0 2", "l5": "a|"}, "2 names of sensitivity files"),
    ({"l1": "0 2 1", "l5": "a|b"}, "expected 1 product definitions, one per data component, found 0"),
    ({"l1": "0 2", "l5": "a|b", "l13": "1 1 1 1"}, "expected 2 product definitions.*found 1"),
    ({"l1": "0 1 2 2", "l13": "1 1 1 1"}, "expected 2 product definitions.*found 1"),
    ({"l1": "0 1 1 2", "l13": "one 1 1 1"}, "line 13: expected the number of terms"),
    ({"l1": "0 1 1 2", "l13": "2 1 1 1"}, "line 13: expected 2 terms"),
    ({"l1": "0 1 1 2", "l13": "1 1 1 x"}, "line 13: expected 1 terms"),
    ({"l1": "0 1 1 2", "l13": "1 1 3 1"}, "model types up to 2")])
def test_product_definitions_that_stop_a_run(tmp_path, lines, message):
    with pytest.raises(FileError, match=message):
        read_control_file(control(tmp_path, **lines))


def test_too_short_files(tmp_path):
    path = tmp_path / "voxlith.inp"
    for count in range(9):
        path.write_text("".join(line + "\n" for line in CONTROL.splitlines()[:count]))
        with pytest.raises(FileError, match=f"line {count + 1}: expected .*, found the end of the file"):
            read_control_file(path)


def test_unchanged_files_keep_their_bytes(tmp_path):
    for content in (CONTROL, CONTROL.replace("\n", "\r\n"), CONTROL.rstrip("\n"), CONTROL + "\n! the end\n"):
        path = tmp_path / "voxlith.inp"
        path.write_bytes(content.encode() .replace(b"a new run", b"ein Lauf \xfc\xc3\xbc"))
        write_control_file(tmp_path / "again", read_control_file(path))
        assert (tmp_path / "again").read_bytes() == path.read_bytes()


def test_comments_stay_in_place(tmp_path):
    control_file = read_control_file(control(tmp_path, l12="14\t! why"))
    control_file.set(tradeoff=0.25, bounds="a rather long name of bounds.txt", max_iterations=7)
    assert control_file.lines[2] == "0.25 0.02 0        ! trade-off, -, no positivity"
    assert control_file.lines[7] == "a rather long name of bounds.txt ! bounds"
    assert control_file.lines[11] == "7  ! why"
    assert control_file.lines[0] == CONTROL.splitlines()[0]


def test_line_ends_stay(tmp_path):
    path = tmp_path / "voxlith.inp"
    path.write_bytes(CONTROL.replace("\n", "\r\n").replace("! bounds", "").encode())
    control_file = read_control_file(path)
    control_file.set(bounds="0 1", tradeoff=2.0)
    control_file.write(path)
    assert path.read_bytes().count(b"\r\n") == 12
    assert read_control_file(path).values.bounds == "0 1"


def test_products_are_edited(tmp_path):
    control_file = read_control_file(control(tmp_path))
    one, two = Product((ProductTerm(1, 1, 1.0),)), Product((ProductTerm(1, 2, 0.5), ProductTerm(2, 1, -1.0)))
    control_file.set(mtx_files=["a.mtx", "b.mtx"], model_count=2, products=[one, two])
    assert control_file.lines[0].startswith("0 2 2 2 ") and control_file.values.labels == ("", "")
    assert control_file.lines[12:] == ["1 1 1 1", "2 1 2 0.5 2 1 -1"]
    control_file.set(products=(), labels=("dens", "susc"))
    assert len(control_file.lines) == 12 and control_file.lines[0].startswith("0 2 2 2 dens susc")
    control_file.set(model_count=1, labels=(), mtx_files=("a.mtx",))
    assert control_file.lines[0].split("!")[0].split() == ["0"]


@pytest.mark.parametrize("changes, message", [
    ({"iterations": 5}, "unknown iterations; known are alphas"), ({"data_file": "a!b"}, "without !"),
    ({"data_file": ""}, "line 4"), ({"mtx_count": 2}, "names of sensitivity files"),
    ({"data_file": 90 * "x"}, "80 characters"),
    ({"mtx_files": ("a|b", "c")}, "without |"), ({"weight_files": ("a", "b")}, "one weighting file or four"),
    ({"alphas": (0.0, 0.0, 0.0, 0.0)}, "not all of them 0"),
    ({"model_count": 2, "labels": ("a b", "c")}, "labels without"),
    ({"max_iterations": 0}, "max_iterations = 0 would be read as 300"), ({"weight_files": ("a|b",)}, "read as"),
    ({"restart": -3}, "restart")])
def test_changes_that_a_file_cannot_hold(tmp_path, changes, message):
    control_file = read_control_file(control(tmp_path))
    lines, values = list(control_file.lines), control_file.values
    with pytest.raises(UsageError, match=message):
        control_file.set(**changes)
    assert control_file.lines == lines and control_file.values == values


texts = st.text("abcdefXYZ._-/ 0123456789", min_size=1, max_size=30).map(str.strip).filter(bool)


@given(st.fixed_dictionaries({}, optional={
    "tradeoff": st.floats(0, 1e6), "positivity": st.sampled_from([None, -1, 0, 1, 2]), "data_file": texts,
    "integration_interval": st.floats(0, 1e5), "bounds": texts, "initial_model": texts, "data_offset": texts,
    "alphas": st.tuples(*[st.floats(1e-9, 1e3)] * 4), "max_iterations": st.integers(1, 10**6),
    "output_step": st.integers(0, 100), "background": st.integers(0, 2), "mode": st.sampled_from([-1, 2]),
    "inversion_method": st.integers(0, 2), "restart": st.integers(0, 2)}))
def test_every_change_is_read_back(tmp_path_factory, changes):
    path = tmp_path_factory.mktemp("control") / "voxlith.inp"
    control_file = ControlFile.new(data_file="d.obs", mtx_files=("d.mtx",))
    control_file.set(**changes)
    control_file.write(path)
    again = read_control_file(path)
    assert again.values == control_file.values
    assert {key: getattr(again.values, key) for key in changes} == changes
    assert all(re.search("! .*", line) for line in again.lines)


def test_the_program_understands_a_written_file(gravity: Bench, copied):
    bench = copied(gravity)
    ControlFile.new(data_file="data.obs", mtx_files=("data.mtx",), tradeoff=0.125, positivity=1, bounds="0,1",
                    max_iterations=3, alphas=(0.5, 1.0, 2.0, 3.0)).write(bench.path("new.inp"))
    bench.voxlith("new.inp")
    log = read_log_file(bench.path("voxlith.log"))[-1]
    assert log.finished and log.tradeoff == 0.125 and list(log.iterations) == [1, 2, 3]
    assert log.inputs["Bounds file"] == "0,1" and log.inputs["Positivity flag"] == "1"
    assert log.inputs["Alpha values (s, e, n, z)"].split() == ["0.500000", "1.000", "2.000", "3.000"]
