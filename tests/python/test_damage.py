"""Damaged files at every reader: an object or a FileError that names the file and the place, in little memory and time.

The files to damage are those of real runs, and each reader gets those of the others, too.
"""

import re
import resource
import time

import numpy as np
import pytest
from conftest import Bench
from hypothesis import given
from hypothesis import strategies as st

from voxlith import FileError, Mesh, Model, Sensitivity, Survey, UsageError
from voxlith.io import tables
from voxlith.io.bounds_file import read_bounds_file, write_bounds_file
from voxlith.io.control_file import read_control_file
from voxlith.io.csv_file import read_csv_file
from voxlith.io.line_search_file import read_line_search_file, write_line_search_file
from voxlith.io.log_file import read_log_file
from voxlith.io.model_file import read_model_file
from voxlith.io.mtx_file import MtxFile
from voxlith.io.obs_file import read_obs_file
from voxlith.io.progress_file import read_progress_file
from voxlith.io.topography_file import read_topography_file, write_topography_file
from voxlith.io.weight_file import CellWeights, read_weight_files, section_shapes, write_weight_file

SECONDS = 3.0
MEGABYTES = 300


def all_of_a_sensitivity_file(path, strict):
    with MtxFile(path, strict=strict) as mtx:
        for row in mtx.rows():
            assert row.positions.shape == row.values.shape
        mtx.row_counts()
        mtx.tail()


def products_of_a_sensitivity_file(path, strict):
    with Sensitivity(path, strict=strict) as sensitivity:
        sensitivity.forward(np.ones(sensitivity.header.n_cells))
        sensitivity.dense_row(0)


READERS = {
    "mesh": lambda path, strict: Mesh.read(path),
    "model": lambda path, strict: read_model_file(path, 192, strict=strict),
    "bounds": lambda path, strict: read_bounds_file(path, 192, strict=strict),
    "weights": lambda path, strict: read_weight_files([path], 8, 6, 4, strict=strict),
    "topography": lambda path, strict: read_topography_file(path),
    "table": lambda path, strict: read_csv_file(path, separator="auto", decimal_comma=not strict),
    "gravity data": lambda path, strict: read_obs_file(path, codes=[0], strict=strict),
    "magnetic data": lambda path, strict: read_obs_file(path, codes=[1, 20], records=30, strict=strict),
    "any data": lambda path, strict: Survey.read(path, strict=strict),
    "lined data": lambda path, strict: read_obs_file(path, lined=True, strict=strict),
    "reference data": lambda path, strict: read_obs_file(path, codes=[0], reference=True, strict=strict),
    "control": lambda path, strict: read_control_file(path, strict=strict),
    "progress": lambda path, strict: read_progress_file(path, strict=strict),
    "line search": lambda path, strict: read_line_search_file(path),
    "log": lambda path, strict: read_log_file(path),
    "error table": lambda path, strict: tables.read_error_table(path),
    "density table": lambda path, strict: tables.read_apparent_density_table(path),
    "background table": lambda path, strict: tables.read_background_table(path),
    "sensitivities": all_of_a_sensitivity_file,
    "products": products_of_a_sensitivity_file,
}


@pytest.fixture(scope="module")
def examples(gravity: Bench, magnetic: Bench, joint: Bench, tmp_path_factory) -> list[bytes]:
    """A file of each kind."""
    made = tmp_path_factory.mktemp("made")
    write_bounds_file(made / "bounds", np.tile([0.0, 1.0], (192, 1)))
    write_weight_file(made / "weights", CellWeights(*map(np.ones, section_shapes(8, 6, 4))))
    write_topography_file(made / "topography", np.arange(30.0).reshape(10, 3))
    write_line_search_file(made / "lsv", [[1, 2, 3, 4, 5]])
    (made / "density").write_text("       I,           X,           Y,        AppDen\n"
                                  "       1,      100.00,      100.00,  0.582205E-02\n"
                                  "       2,      300.00,      100.00,             *\n")
    (made / "background").write_text("     I      X         Y         Z         OBS        Resp\n     1      50.0      "
                                     "50.0       5.0      0.1474     15.4403\n")
    survey = Survey.read(magnetic.path("data.obs"))
    survey.angles = np.ones((30, 2))
    survey.write(made / "downhole.obs")
    gravity.tools("mtx", "--mesh", "mesh.msh", "--stations", "data.obs", "--type", "gz", "--out", made / "record.mtx",
                  "--form", "record")
    gravity.tools("mtx", "--mesh", "mesh.msh", "--stations", "data.obs", "--type", "gz", "--out", made / "bare.mtx",
                  "--form", "bare")
    paths = [*made.iterdir(), *(magnetic.path(name) for name in ("data.obs", "data.mtx", "voxlith.log")),
             *(joint.path(name) for name in ("voxlith.inp", "data.obs", "voxlith.pre", "voxlith_error.dat")),
             *(gravity.path(name) for name in ("mesh.msh", "voxlith.den", "voxlith.aux", "voxlith.inp", "voxlith.pre"))]
    return [path.read_bytes() for path in paths]


WORDS = [b"99999999", b"2147483647*1", b"-1", b"1e999", b"nan", b"*", b",,", b"/", b"!", b"\n\n", b"\0", b"\xff\xfe",
         b" " * 300, b"9" * 2000, b"\r", b"\t", b"0", b"\x00\x00\x00\x80", b"\xff\xff\xff\x7f", b"0" * 40]


@st.composite
def damaged(draw, examples):
    content = bytearray(draw(st.sampled_from(examples)))
    head = draw(st.booleans())  # most numbers that tell sizes stand in front
    for _ in range(draw(st.integers(0, 4))):
        limit = min(len(content), 200) if head else len(content)
        at = draw(st.integers(0, max(limit, 1) - 1)) if limit else 0
        kind = draw(st.sampled_from(["cut", "byte", "word", "remove", "repeat", "insert"]))
        if kind == "cut":
            del content[at:]
        elif kind == "byte" and content:
            content[at] = draw(st.integers(0, 255))
        elif kind == "word":
            word = draw(st.sampled_from(WORDS))
            content[at: at + len(word)] = word
        elif kind == "remove":
            del content[at: at + draw(st.integers(1, 50))]
        elif kind == "repeat":
            content[at:at] = content[at: at + draw(st.integers(1, 100))]
        else:
            content[at:at] = draw(st.sampled_from(WORDS))
    return bytes(content)


def examine(reader, path, strict):
    """An object or one FileError with the name of the file and a place, without much memory or time."""
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    start = time.process_time()
    try:
        READERS[reader](path, strict)
    except FileError as error:
        assert error.path == str(path)
        no_mesh = not strict and re.search(": [xyz]_nodes: expected", str(error))  # nodes that the program takes
        assert no_mesh or re.fullmatch(r".+(, line [1-9][0-9]*|: byte [0-9]+): [^\n]*", str(error)), str(error)
    assert time.process_time() - start < SECONDS
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 1024 * MEGABYTES


@pytest.mark.parametrize("reader", READERS)
@given(data=st.data())
def test_damaged_files(reader, examples, tmp_path_factory, data):
    path = tmp_path_factory.getbasetemp() / "damaged.file"
    path.write_bytes(data.draw(damaged(examples)))
    examine(reader, path, data.draw(st.booleans()))


@pytest.mark.parametrize("reader", READERS)
@given(content=st.binary(max_size=300))
def test_any_bytes(reader, tmp_path_factory, content):
    path = tmp_path_factory.getbasetemp() / "bytes.file"
    path.write_bytes(content)
    examine(reader, path, True)
    examine(reader, path, False)


@pytest.mark.parametrize("reader", READERS)
def test_empty_files(reader, tmp_path):
    (tmp_path / "empty").write_bytes(b"")
    examine(reader, tmp_path / "empty", True)
    examine(reader, tmp_path / "empty", False)


@pytest.mark.parametrize("reader", READERS)
def test_files_that_are_not_there(reader, tmp_path):
    with pytest.raises(FileError, match="nowhere: cannot be read: No such file or directory"):
        READERS[reader](tmp_path / "nowhere", True)


def test_small_files_that_ask_for_much(tmp_path):
    path = tmp_path / "greedy"
    for text, reader in (("2000000000 1 1\n0 0 0\n2000000000*1 1 1\n", "mesh"), ("2147483647*0\n", "model"),
                         ("2147483647*0\n" * 50, "bounds"), ("2147483647*0", "weights"),
                         ("2147483647\n1 2 3 4 5\n", "gravity data"), ("0 1 1 6\n" + "1e9 " * 50, "control")):
        path.write_text(text)
        examine(reader, path, True)
        examine(reader, path, False)


def test_a_huge_mesh_and_a_short_model(tmp_path):
    """Memory follows what the file holds, not what the mesh could."""
    (tmp_path / "m.den").write_text("1 2 3\n")
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    with pytest.raises(FileError, match="found the end of the file after 3"):
        read_model_file(tmp_path / "m.den", 2**31 - 1)
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 100 * 1024


def test_damage_is_no_wrong_use():
    with pytest.raises(UsageError):
        Model(Mesh([0, 1], [0, 1], [0, -1]), [1.0, 2.0])
