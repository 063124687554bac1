"""The errors that the package raises: each says in one line what is wrong and where."""

from __future__ import annotations

import os

PathLike = str | os.PathLike[str]


class VoxlithError(Exception):
    """Base of all errors of this package. Its text is one line without control characters."""

    def __str__(self) -> str:
        return escaped(super().__str__())


class UsageError(VoxlithError, ValueError):
    """An argument that a routine cannot work with."""


class MissingPackageError(VoxlithError, ImportError):
    """A Python package that a routine needs and this machine lacks."""


class RunError(VoxlithError):
    """A run that could not be started, or that ended without its results."""


class FileError(VoxlithError):
    """A file that cannot be used.

    Parameters
    ----------
    path : path
        The file.
    problem : str
        What is wrong, usually ``expected WHAT, found WHAT``.
    line : int, optional
        Line of the problem, counted from 1.
    byte : int, optional
        Byte of the problem, counted from 0 (binary files).

    Examples
    --------
    >>> print(FileError("gz.obs", "expected a datum, found 'x'", line=3))
    gz.obs, line 3: expected a datum, found 'x'
    >>> print(FileError("gz.mtx", "expected the number of data of 1 or more, found 0", byte=12))
    gz.mtx: byte 12: expected the number of data of 1 or more, found 0
    """

    def __init__(self, path: PathLike, problem: str, *, line: int | None = None, byte: int | None = None) -> None:
        self.path = os.fspath(path)
        self.problem = problem
        self.line = line
        self.byte = byte
        location = f", line {line}" if line is not None else f": byte {byte}" if byte is not None else ""
        super().__init__(f"{self.path}{location}: {problem}")

    def __reduce__(self) -> tuple[object, ...]:
        return _rebuild, (self.path, self.problem, self.line, self.byte)


def _rebuild(path: str, problem: str, line: int | None, byte: int | None) -> FileError:
    return FileError(path, problem, line=line, byte=byte)


def escaped(text: str) -> str:
    r"""Text as messages show it: control characters, and bytes that are no text, are written as ``\n`` or ``\x1b``.

    >>> print(escaped("gz\x1b[2J\n.obs"))
    gz\x1b[2J\n.obs
    """
    return text if text.isprintable() else "".join(c if c.isprintable() else _escaped(c) for c in text)


def _escaped(character: str) -> str:
    code = ord(character)
    if 0xDC80 <= code <= 0xDCFF:  # a byte of a name that is no text, as Python holds it
        return f"\\x{code - 0xDC00:02x}"
    return character.encode("unicode_escape").decode()


def shown(text: str, width: int = 60) -> str:
    r"""A piece of a file as messages show it: in quotes, cut, escaped.

    >>> print(shown("1.0\tx"))
    "1.0\tx"
    """
    return f'"{escaped(text[:width])}"'
