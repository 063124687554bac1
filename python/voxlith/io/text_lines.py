"""Text files line by line, cut into words as ``voxlith`` cuts them.

Text is kept with one character per byte, because widths in the files count bytes: 256 of a line, 32 of a word, 16 of a
line name.
"""

from __future__ import annotations

import re

from ..errors import FileError, PathLike, shown
from .output import read_bytes

LINE_WIDTH = 256
TOKEN_WIDTH = 32
LONGEST_LINE = 1 << 20
"""Bytes of a line; a file with a longer one is no file of lines."""

_TOKEN = re.compile(r" *([^ ,\t]*)[ ,\t]?")


def read_lines(path: PathLike) -> list[str]:
    """Lines of a file without their ends; a last line without an end counts.

    Raises
    ------
    FileError
        When the file cannot be read, or has a line longer than a megabyte.
    """
    text = read_bytes(path).decode("latin-1")
    lines = text.split("\n")
    if not lines[-1]:
        lines.pop()
    check_lengths(path, lines)
    return [line.rstrip("\r") for line in lines] if "\r" in text else lines


def check_lengths(path: PathLike, lines: list[str]) -> None:
    """Raise FileError for the first line that is longer than a megabyte."""
    if lines and max(map(len, lines)) > LONGEST_LINE:
        number = next(n for n, line in enumerate(lines, 1) if len(line) > LONGEST_LINE)
        raise FileError(path, f"expected a line of at most {LONGEST_LINE} characters, found {len(lines[number - 1])}",
                        line=number)


def to_text(words: str) -> str:
    """Text as people read it, of characters that are bytes; bytes that are no UTF-8 are kept as surrogates."""
    return words.encode("latin-1").decode("utf-8", "surrogateescape")


def to_bytes(text: str) -> bytes:
    """The reverse of :func:`to_text`, as bytes."""
    return text.encode("utf-8", "surrogateescape")


def tokens(line: str) -> list[str]:
    """Words of a record. Each ends at a space, comma or tab, of which one is consumed; leading spaces are skipped.

    So a comma or tab at the start, or after spaces that ended a word, gives an empty word.

    >>> tokens("1.5  2,3 ,4")
    ['1.5', '2', '3', '', '4']
    """
    line = line[:LINE_WIDTH].rstrip(" ")
    if "," not in line and "\t" not in line:
        return [word[:TOKEN_WIDTH] for word in line.split(" ") if word]
    found = []
    at = 0
    while at < len(line):
        match = _TOKEN.match(line, at)
        assert match is not None
        found.append(match[1][:TOKEN_WIDTH])
        at = match.end()
    return found


def words_of(line: str) -> list[str]:
    """Words between spaces, tabs, commas and carriage returns; no word is empty.

    >>> words_of(" 4 ,\\t5\\r")
    ['4', '5']
    """
    return re.findall(r"[^ \t,\r]+", line)


def without_comment(line: str) -> str:
    """The line up to the first ``!``."""
    return line.partition("!")[0]


def expected(path: PathLike, line: int, what: str, found: str | None) -> FileError:
    """The error ``expected WHAT, found "WORD"``; None means the end of the file."""
    return FileError(path, f"expected {what}, found {'the end of the file' if found is None else _shown_bytes(found)}",
                     line=line)


def _shown_bytes(text: str) -> str:
    """Text whose characters are bytes, as messages show it."""
    try:
        return shown(to_text(text))
    except UnicodeEncodeError:
        return shown(text)
