"""Sensitivity files: layouts, rows, damage."""

import struct
from dataclasses import replace

import numpy as np
import pytest
from conftest import Bench, lay_survey

from voxlith import FileError, UsageError
from voxlith.io import mtx_file
from voxlith.io.mtx_file import MtxFile, MtxHeader, MtxRow, MtxTail, read_mtx_header
from voxlith.io.mtx_output import write_mtx_file
from voxlith.wavelet import daubechies_filter

LAYOUTS = [("tagged", 2), ("tagged", 1), ("tagged", 0), ("bare", 0), ("record", 0)]


def header(form="tagged", version=2, n_data=3, npz=4, nz=4):
    bank = daubechies_filter(4)
    found = MtxHeader(form, 0, n_data, 2, 3, nz, 2, 4, npz, bank.low, bank.high, np.arange(3.0), np.arange(4.0),
                      np.arange(nz + 1.0), np.linspace(0.5, 1, 6 * nz, dtype=np.float32), (45.0, 2.0))
    if form == "tagged":
        found = replace(found, version=version, inducing=(5e4, 60.0, 5.0), idir=1, measured=(55.0, 8.0),
                        stations=np.arange(3.0 * n_data).reshape(n_data, 3),
                        station_numbers=np.arange(n_data, dtype=np.float32))
    elif form == "record":
        found = replace(found, weight_parameters=(0.0, 0.0), unused=(1.5, 24),
                        topography=np.arange(6, dtype=np.int32).reshape(3, 2))
    return found


def rows_of(head, seed=1):
    rng = np.random.default_rng(seed)
    for _ in range(head.n_data):
        positions = np.flatnonzero(rng.random(head.n_padded) < 0.4) + 1
        positions = positions if len(positions) else np.array([1])
        yield MtxRow(positions.astype(np.int32), rng.normal(size=len(positions)).astype(np.float32))


def tail_of(head):
    if head.form == "record":
        return None
    versioned = head.form == "tagged" and head.version > 1
    return MtxTail(np.arange(head.n_cells, dtype=float), 3 if versioned else None,
                   np.arange((head.layers + 1.0) * head.n_data).reshape(head.n_data, -1) if versioned else None)


def equal(a, b):
    for key, value in vars(a).items():
        if key != "rows_begin":
            np.testing.assert_array_equal(value, getattr(b, key), key)


@pytest.mark.parametrize("form, version", LAYOUTS)
@pytest.mark.parametrize("npz", [4, 2, 1])
def test_files_round_trip(tmp_path, form, version, npz):
    path = tmp_path / "a.mtx"
    head = header(form, version, npz=npz)
    write_mtx_file(path, head, rows_of(head), lambda: tail_of(head))
    with MtxFile(path) as mtx:
        equal(mtx.header, head)
        assert mtx.header.style_of_counts == {4: 0, 2: 3, 1: 1}[npz]
        found = list(mtx.rows())
        for row, wanted in zip(found, rows_of(head)):
            np.testing.assert_array_equal(row.positions, wanted.positions)
            np.testing.assert_array_equal(row.values, wanted.values)
        tail, wanted_tail = mtx.tail(), tail_of(head)
        if wanted_tail is None:
            assert tail is None
        else:
            assert tail is not None
            equal(tail, wanted_tail)
    with MtxFile(path) as mtx:
        for number in (2, 0, -1, 1):
            np.testing.assert_array_equal(mtx.row(number).values, found[number].values)
        with pytest.raises(IndexError, match="row 3: the file has 3 rows"):
            mtx.row(3)
        assert mtx.row_counts().tolist() == [len(row.positions) for row in found]
        for row, wanted in zip(mtx.mapped_rows(), found):
            np.testing.assert_array_equal(row.positions, wanted.positions)
            np.testing.assert_array_equal(row.values, wanted.values)
        write_mtx_file(tmp_path / "b.mtx", mtx.header, mtx.rows(), mtx.tail())
    assert (tmp_path / "b.mtx").read_bytes() == path.read_bytes()


@pytest.mark.parametrize("form", ["tagged", "bare", "record"])
def test_tool_files_round_trip(bench: Bench, form):
    lay_survey(bench, "tmi", 1, mtx=("--form", form))
    with MtxFile(bench.path("data.mtx")) as mtx:
        write_mtx_file(bench.path("again.mtx"), mtx.header, mtx.rows(), mtx.tail())
    assert bench.path("again.mtx").read_bytes() == bench.path("data.mtx").read_bytes()


@pytest.mark.parametrize("block", [8, 100, 333])
@pytest.mark.parametrize("form", ["tagged", "record"])
def test_rows_longer_than_a_block(tmp_path, monkeypatch, block, form):
    head = header(form, 2 if form == "tagged" else 0, n_data=20)
    write_mtx_file(tmp_path / "a.mtx", head, rows_of(head), tail_of(head))
    monkeypatch.setattr(mtx_file, "_BLOCK", block)
    with MtxFile(tmp_path / "a.mtx") as mtx:
        for row, wanted in zip(mtx.rows(), rows_of(head), strict=True):
            np.testing.assert_array_equal(row.positions, wanted.positions)
            np.testing.assert_array_equal(row.values, wanted.values)


def test_dense_rows(tmp_path):
    head = header(npz=2, nz=4)
    given = list(rows_of(head))
    given[1] = MtxRow(np.arange(1, head.n_dense + 1, dtype=np.int32), np.arange(head.n_dense, dtype=np.float32), True)
    write_mtx_file(tmp_path / "a.mtx", head, given, tail_of(head))
    with MtxFile(tmp_path / "a.mtx") as mtx:
        rows = list(mtx.rows())
        assert [row.dense for row in rows] == [False, True, False]
        assert len(rows[1].values) == 2 * 4 * 4 and rows[1].positions[-1] == 32
        assert mtx.row(1).dense and mtx.mapped_rows()[1].dense
        assert mtx.row_counts().tolist() == [len(row.positions) for row in rows]
    write_mtx_file(tmp_path / "b.mtx", head, rows, tail_of(head))
    assert (tmp_path / "b.mtx").read_bytes() == (tmp_path / "a.mtx").read_bytes()


def test_data_type_of_the_record_layout(tmp_path):
    head = header("record", 0)
    for name, code in (("a.mtx", 0), ("aMAG.mtx", 1), ("image.mtx", 1), ("Mag.mtx", 0)):
        write_mtx_file(tmp_path / name, head, rows_of(head), None)
        assert read_mtx_header(tmp_path / name, name=name).data_type == code


def test_a_bare_file_of_type_20(tmp_path):
    head = replace(header("bare", 0), data_type=20)
    write_mtx_file(tmp_path / "a.mtx", head, rows_of(head), tail_of(head))
    assert read_mtx_header(tmp_path / "a.mtx").form == "bare"


def content(tmp_path, form="tagged", version=2):
    head = header(form, version)
    write_mtx_file(tmp_path / "a.mtx", head, rows_of(head), tail_of(head))
    return bytearray((tmp_path / "a.mtx").read_bytes())


def read_all(path, strict=True):
    with MtxFile(path, strict=strict) as mtx:
        list(mtx.rows())
        mtx.tail()


@pytest.mark.parametrize("form, version", LAYOUTS)
def test_every_cut_is_told(tmp_path, form, version):
    data = content(tmp_path, form, version)
    for length in range(0, len(data), 3):
        (tmp_path / "cut.mtx").write_bytes(data[:length])
        with pytest.raises(FileError, match="cut.mtx: byte [0-9]+: expected .*, found"):
            read_all(tmp_path / "cut.mtx")


# Byte of the tagged layout, the 4 bytes that are put there, and the message. Stations begin at 40, the mesh at 124.
DAMAGE = [(12, struct.pack("<i", 0), "byte 12: expected the number of data of 1 or more, found 0"),
          (12, struct.pack("<i", 2**30), "stations and rows of 1073741824 data"),
          (124, struct.pack("<i", -1), "byte 124: expected ny of 1 or more"),
          (124, struct.pack("<i", 2**30), "mesh counts of at most 2147483647 cells"),
          (136, struct.pack("<i", 1), "byte 136: expected npy from 2 to"),
          (140, struct.pack("<i", 6), "byte 140: expected npx of a power of two, found 6"),
          (140, struct.pack("<i", 2000), "npx from 3 to 1024"),
          (148, struct.pack("<i", 2**28), r"the taps \(2147483648 bytes\)"),
          (152, struct.pack("<f", np.nan), "byte 152: expected the low-pass taps to be finite"),
          (192, struct.pack("<f", np.inf), "byte 184: expected the y nodes to be finite|y nodes")]


@pytest.mark.parametrize("byte, value, message", DAMAGE)
def test_damaged_headers(tmp_path, byte, value, message):
    data = content(tmp_path)
    if byte == 192:
        data[184:192] = struct.pack("<d", np.inf)
    else:
        data[byte:byte + 4] = value
    (tmp_path / "bad.mtx").write_bytes(data)
    with pytest.raises(FileError, match=message):
        read_all(tmp_path / "bad.mtx")


@pytest.mark.parametrize("text", ["13 11 11 ! cells\n452000 5318000 300\n", "60  !! # of data\r\n 1 2 3 4\n", "0.0\t0.0\n0.0 0.0\n"])
def test_texts_are_named(tmp_path, text):
    """A mesh, data or a model in place of a sensitivity file."""
    path = tmp_path / "a.mtx"
    path.write_text(text)
    with pytest.raises(FileError, match="byte 0: expected a sensitivity file, found text$"):
        read_mtx_header(path)


def test_a_padding_out_of_proportion(tmp_path):
    data = content(tmp_path)
    data[136:148] = struct.pack("<3i", 128, 128, 128)
    (tmp_path / "bad.mtx").write_bytes(data)
    with pytest.raises(FileError, match="byte 136: expected a padded mesh that suits 24 cells, found 128 x 128 x 128"):
        read_all(tmp_path / "bad.mtx")


def test_extents_without_strictness(tmp_path):
    data = content(tmp_path)
    data[140:144] = struct.pack("<i", 6)
    (tmp_path / "odd.mtx").write_bytes(data)
    with MtxFile(tmp_path / "odd.mtx", strict=False) as mtx:
        assert mtx.header.npx == 6


@pytest.mark.parametrize("form", ["tagged", "record"])
def test_damaged_rows(tmp_path, form):
    data = content(tmp_path, form, 2 if form == "tagged" else 0)
    (tmp_path / "a.mtx").write_bytes(data)
    begin = read_mtx_header(tmp_path / "a.mtx").rows_begin
    frame = 4 if form == "record" else 0
    for value, found in ((0, "0"), (33, "33"), (-5, "-5")):
        bad = bytearray(data)
        bad[begin + frame + 8: begin + frame + 12] = struct.pack("<i", value)
        (tmp_path / "bad.mtx").write_bytes(bad)
        place = begin + frame + 8
        message = f"byte {place}: expected a coefficient index within 1 to 32, found {found}"
        with pytest.raises(FileError, match=message):
            read_all(tmp_path / "bad.mtx")
        with MtxFile(tmp_path / "bad.mtx") as mtx:
            assert len(list(mtx.rows(check=False))) == 3
            with pytest.raises(FileError, match="coefficient index"):
                mtx.row(0)
    bad = bytearray(data)
    bad[begin + frame: begin + frame + 4] = struct.pack("<i", 2**31 - 1)
    (tmp_path / "bad.mtx").write_bytes(bad)
    with pytest.raises(FileError, match=f"byte {begin}: expected the (coefficients|record) of a row"):
        read_all(tmp_path / "bad.mtx")


def test_empty_rows(tmp_path):
    data = content(tmp_path)
    (tmp_path / "a.mtx").write_bytes(data)
    with MtxFile(tmp_path / "a.mtx") as mtx:
        begin, first = mtx.header.rows_begin, 4 + 8 * len(mtx.row(0).positions)
    empty = data[:begin] + struct.pack("<i", 0) + data[begin + first:]
    (tmp_path / "empty.mtx").write_bytes(empty)
    with pytest.raises(FileError, match=f"byte {begin}: expected a row of 1 coefficient or more, found 0"):
        read_all(tmp_path / "empty.mtx")
    with MtxFile(tmp_path / "empty.mtx", strict=False) as mtx:
        assert [len(row.positions) for row in mtx.rows()][0] == 0


def test_damaged_frames(tmp_path):
    data = content(tmp_path, "record", 0)
    (tmp_path / "a.mtx").write_bytes(data)
    begin = read_mtx_header(tmp_path / "a.mtx").rows_begin
    for byte, message in ((28, "expected the record of the nodes of length 52, found 7"), (24, None),
                          (begin, "expected the record of a row of 0 or more coefficients, found the length 7"),
                          (len(data) - 4, "expected the record of a row to end with its length")):
        bad = bytearray(data)
        bad[byte:byte + 4] = struct.pack("<i", 7)
        (tmp_path / "bad.mtx").write_bytes(bad)
        with pytest.raises(FileError, match=message):
            read_all(tmp_path / "bad.mtx")
    taps = data.index(struct.pack("<i", 20), 28)
    bad = bytearray(data)
    bad[taps + 4: taps + 8] = struct.pack("<i", 25)
    (tmp_path / "bad.mtx").write_bytes(bad)
    with pytest.raises(FileError, match="the number of taps from 1 to 24, found 25"):
        read_all(tmp_path / "bad.mtx")
    bad[taps + 4: taps + 8] = struct.pack("<i", 3)
    (tmp_path / "bad.mtx").write_bytes(bad)
    with pytest.raises(FileError, match="the record of the taps of length 16, found 20"):
        read_all(tmp_path / "bad.mtx")


def test_a_closed_file(tmp_path):
    content(tmp_path)
    mtx = MtxFile(tmp_path / "a.mtx")
    mtx.close()
    with pytest.raises(FileError, match="closed"):
        mtx.row(0)


def wide(count):
    return MtxRow(np.arange(1, count + 1, dtype=np.int32), np.zeros(count, dtype=np.float32))


@pytest.mark.parametrize("change, message", [
    ({"form": "other"}, "form 'other'"), ({"stations": None}, "stations"),
    ({"low": np.zeros(0, np.float32), "high": np.zeros(0, np.float32)}, "counts of 1"),
    ({"x_nodes": np.zeros(3)}, "x_nodes"), ({"y_nodes": np.array([0, np.nan, 1])}, "y_nodes"),
    ({"npx": 2}, "padded counts"), ({"npx": 2**20, "npy": 2**20}, "at most 268435455 can be stored")])
def test_headers_that_cannot_be_written(tmp_path, change, message):
    head = replace(header(), **change)
    with pytest.raises(UsageError, match=message):
        write_mtx_file(tmp_path / "a.mtx", head, [], None)
    assert not list(tmp_path.iterdir())


def test_limits_of_the_record_layout(tmp_path):
    bank = np.zeros(25, np.float32)
    with pytest.raises(UsageError, match="at most 24 taps"):
        write_mtx_file(tmp_path / "a.mtx", replace(header("record", 0), low=bank, high=bank), [], None)
    with pytest.raises(UsageError, match="topography"):
        head = replace(header("record", 0), topography=np.zeros((2, 3), np.int32))
        write_mtx_file(tmp_path / "a.mtx", head, [], None)


def test_rows_and_tails_that_cannot_be_written(tmp_path):
    head = header()
    good = list(rows_of(head))
    for rows, tail, message in (
            (good[:2], tail_of(head), "rows: expected 3, found 2"),
            ([wide(0)], None, "row 1: expected a coefficient or more"),
            ([wide(33)], None, "row 1: expected positions within 1 to 32"),
            ([MtxRow(np.ones(2, np.int32), np.ones(1, np.float32))], None, "a value for each position"),
            ([MtxRow(np.ones(2, np.int32), np.ones(2, np.float32), True)], None, "values of a dense row"),
            (good, None, "diagonal"), (good, MtxTail(np.zeros(3)), "diagonal"),
            (good, MtxTail(np.zeros(24)), "a style and layer responses")):
        with pytest.raises(UsageError, match=message):
            write_mtx_file(tmp_path / "a.mtx", head, rows, tail)
    assert not list(tmp_path.iterdir())
