"""Files are written whole or not at all, and read from regular files alone."""

import os
import pickle

import pytest

from voxlith import FileError
from voxlith.io.output import open_input, open_output, output_name, read_bytes, write_bytes


def test_a_file_appears_when_it_is_complete(tmp_path):
    path = tmp_path / "model.den"
    path.write_bytes(b"old")
    with open_output(path) as output:
        output.write(b"new")
        assert path.read_bytes() == b"old"
    assert path.read_bytes() == b"new"
    assert os.listdir(tmp_path) == ["model.den"]


def test_a_failure_leaves_what_was_there(tmp_path):
    path = tmp_path / "model.den"
    path.write_bytes(b"old")
    with pytest.raises(KeyboardInterrupt), open_output(path) as output:
        output.write(b"half")
        raise KeyboardInterrupt
    assert path.read_bytes() == b"old"
    assert os.listdir(tmp_path) == ["model.den"]


def test_a_full_disk_is_told_and_leaves_nothing(tmp_path):
    path = tmp_path / "model.den"
    with pytest.raises(FileError, match="model.den: cannot be written: No space left"), open_output(path) as output:
        os.dup2(os.open("/dev/full", os.O_WRONLY), output.fileno())
        output.write(b"x" * (1 << 22))
    assert os.listdir(tmp_path) == []


def test_permissions_follow_the_umask(tmp_path):
    held = os.umask(0o027)
    try:
        write_bytes(tmp_path / "a", b"")
    finally:
        os.umask(held)
    assert os.stat(tmp_path / "a").st_mode & 0o777 == 0o640


def test_a_link_is_replaced_not_followed(tmp_path):
    (tmp_path / "target").write_bytes(b"kept")
    (tmp_path / "link").symlink_to("target")
    write_bytes(tmp_path / "link", b"new")
    assert (tmp_path / "target").read_bytes() == b"kept"
    assert (tmp_path / "link").read_bytes() == b"new" and not (tmp_path / "link").is_symlink()


def test_libraries_write_by_name(tmp_path):
    with output_name(tmp_path / "grid.vtr") as beside:
        assert beside.endswith(".vtr")
        with open(beside, "w") as output:
            output.write("grid")
    assert (tmp_path / "grid.vtr").read_text() == "grid"


@pytest.mark.parametrize("make", [lambda p: p.mkdir(), lambda p: os.mkfifo(p)])
def test_special_files_are_refused(tmp_path, make):
    make(tmp_path / "special")
    with pytest.raises(FileError, match="cannot be created: expected the name of a regular file"):
        write_bytes(tmp_path / "special", b"")
    with pytest.raises(FileError, match="cannot be read"):
        read_bytes(tmp_path / "special")


def test_names_that_cannot_be(tmp_path):
    with pytest.raises(FileError, match="cannot be created: No such file or directory"):
        write_bytes(tmp_path / "nowhere" / "a", b"")
    with pytest.raises(FileError, match="cannot be read: No such file or directory"):
        open_input(tmp_path / "nowhere")
    with pytest.raises(FileError, match="cannot be"):
        write_bytes("a\0b", b"")
    with pytest.raises(FileError, match="cannot be"):
        read_bytes("a\0b")


def test_errors_travel_between_processes():
    error = FileError("a.obs", "expected x", line=3)
    again = pickle.loads(pickle.dumps(error))
    assert (str(again), again.line, again.byte) == ("a.obs, line 3: expected x", 3, None)
