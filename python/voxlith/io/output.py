"""Whole files: read from regular files alone, written beside their name and renamed when they are complete."""

from __future__ import annotations

import contextlib
import os
import secrets
import stat
from collections.abc import Iterator
from typing import BinaryIO

from ..errors import FileError, PathLike


def open_input(path: PathLike) -> BinaryIO:
    """Open a regular file (or a link to one) for reading, unbuffered.

    Pipes and devices need have no end, and some files are read twice; they count as files that cannot be read.

    Raises
    ------
    FileError
        When there is no such file or it cannot be read.
    """
    try:
        # Without O_NONBLOCK a named pipe that nobody writes to would hold the program here for ever.
        handle = os.open(path, os.O_RDONLY | os.O_CLOEXEC | os.O_NONBLOCK)
    except (OSError, ValueError) as error:
        raise FileError(path, f"cannot be read: {_reason(error)}") from error
    if not stat.S_ISREG(os.fstat(handle).st_mode):
        os.close(handle)
        raise FileError(path, "cannot be read: expected a regular file")
    return os.fdopen(handle, "rb", buffering=0)


def read_bytes(path: PathLike) -> bytes:
    """All bytes of a regular file. Raises FileError."""
    with open_input(path) as source:
        try:
            return source.read()
        except (OSError, MemoryError) as error:
            raise FileError(path, f"cannot be read: {_reason(error)}") from error


def _reason(error: BaseException) -> str:
    return (error.strerror if isinstance(error, OSError) else None) or str(error) or type(error).__name__


@contextlib.contextmanager
def open_output(path: PathLike) -> Iterator[BinaryIO]:
    """Write a file whole or not at all.

    The text goes to a new file beside `path` (its name, a random part and ``.part``). When the block ends without an
    error the file is flushed to the disk and renamed; otherwise it is removed, and what stood under `path` stays.

    Parameters
    ----------
    path : path
        Final name. A link is replaced, not followed; folders, pipes and devices are refused.

    Yields
    ------
    BinaryIO
        Buffered binary file to write to.

    Raises
    ------
    FileError
        When the file cannot be created or written.
    """
    with output_name(path) as beside:
        with open(beside, "wb", buffering=1 << 20) as output:
            yield output


@contextlib.contextmanager
def output_name(path: PathLike) -> Iterator[str]:
    """The same for libraries that write a file by its name.

    Yields
    ------
    str
        Name of a new and empty file beside `path`, with the same ending, to write to.
    """
    name = os.fspath(path)
    _refuse_special(name)
    beside = f"{name}.{secrets.token_hex(4)}.part{os.path.splitext(name)[1]}"
    try:
        os.close(os.open(beside, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o666))
    except (OSError, ValueError) as error:
        raise FileError(name, f"cannot be created: {_reason(error)}") from error
    complete = False
    try:
        yield beside
        _sync(beside, os.O_RDONLY)
        os.replace(beside, name)
        complete = True
        with contextlib.suppress(OSError):  # the rename itself; not all file systems can do so
            _sync(os.path.dirname(name) or ".", os.O_RDONLY | os.O_DIRECTORY)
    except OSError as error:
        raise FileError(name, f"cannot be written: {_reason(error)}") from error
    finally:
        if not complete:
            with contextlib.suppress(OSError):
                os.unlink(beside)


def write_bytes(path: PathLike, content: bytes) -> None:
    """Write a whole file; see :func:`open_output`."""
    with open_output(path) as output:
        output.write(content)


def _refuse_special(name: str) -> None:
    try:
        mode = os.lstat(name).st_mode
    except (OSError, ValueError):
        return
    if not (stat.S_ISREG(mode) or stat.S_ISLNK(mode)):
        raise FileError(name, "cannot be created: expected the name of a regular file")


def _sync(name: str, flags: int) -> None:
    """Hand a file or folder to the disk."""
    handle = os.open(name, flags | os.O_CLOEXEC)
    try:
        os.fsync(handle)
    finally:
        os.close(handle)
