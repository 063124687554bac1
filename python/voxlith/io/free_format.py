"""The free-format reader of all text inputs.

Values are separated by spaces, tabs, commas or line ends; a read runs on over line ends until it has its values; after
the last value of a read the rest of the line is dropped. ``n*value`` repeats a value, ``n*`` and two commas in a row
leave values as they were, a slash ends the read and leaves all further values as they were.
"""

from __future__ import annotations

import enum
import io
import re
import threading
import warnings
from types import TracebackType
from typing import BinaryIO

import numpy as np
import numpy.typing as npt

from ..errors import FileError, PathLike, shown
from .numbers import LONGEST_WORD, parse_integer, parse_real
from .output import open_input

Reals = npt.NDArray[np.float64]

_BLOCK = 1 << 22
_WORD = re.compile(rb"[^ \n,\t\r/]+")
_REPEATED = re.compile(r"([0-9]{1,10})\*(.*)", re.DOTALL)
_LEAST_PLAIN = 64  # bytes worth the fast path
_PLAIN = b"0123456789+-.eE \t\r\n,"  # text of these alone may be read as a whole
_SPECIAL = re.compile(rb"[^0-9+\-.eE \t\r\n,]")
_TWO_COMMAS = re.compile(rb",[ \t\r\n]*,")
_FILTERS = threading.Lock()  # filters of warnings are those of all threads
_COMMA_TO_SPACE = bytes.maketrans(b",", b" ")
_SPACES = np.zeros(256, dtype=bool)
_SPACES[list(b" \t\r\n,")] = True


class Status(enum.Enum):
    """How a read ended."""

    GOOD = "good"
    END = "end of the text"
    BAD = "no number"


class FreeFormat:
    """Free-format reads from a file or from text in memory, one after the other.

    Parameters
    ----------
    source : BinaryIO
        What is read; closed by the reader.
    path : path
        Name for messages.

    Attributes
    ----------
    line : int
        Line of the next character, from 1.
    status : Status
        Of the read under way. After a status other than good no further value is looked for.
    given : int
        Values really given in the read under way; values left out are not counted.
    slash : bool
        Whether a slash ended the read under way.

    Examples
    --------
    >>> reader = FreeFormat.of_text("1 2*5\\n,,7 / rest\\n8")
    >>> reader.begin()
    >>> reader.reals(np.zeros(6))
    array([1., 5., 5., 0., 7., 0.])
    >>> reader.status, reader.given, reader.slash
    (<Status.GOOD: 'good'>, 4, True)
    >>> reader.end()
    >>> reader.begin()
    >>> reader.real(0.0)
    8.0
    """

    def __init__(self, source: BinaryIO, path: PathLike) -> None:
        self.path = path
        self.line = 1
        self._source = source
        self._text = b""
        self._all_plain = True
        self._at = 0
        self._base = 0  # bytes of the source in front of the text
        self._slow_until = 0  # byte of the source before which the fast path is not tried again
        self._ended = False
        self.begin()

    @classmethod
    def of_file(cls, path: PathLike) -> FreeFormat:
        """Reads from a file. Raises FileError when it cannot be opened."""
        return cls(open_input(path), path)

    @classmethod
    def of_text(cls, text: str, path: PathLike = "text") -> FreeFormat:
        """Reads from text in memory, one byte per character."""
        return cls(io.BytesIO(text.encode("latin-1", "replace")), path)

    def __enter__(self) -> FreeFormat:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._source.close()

    def begin(self) -> None:
        """Begin a read."""
        self.status = Status.GOOD
        self.given = 0
        self.slash = False
        self.bad_word = ""
        self._comma_pending = True  # true at the start and after a comma: another comma now is a value left out
        self._repeats = 0
        self._repeated = ""

    def end(self) -> None:
        """End a read: the rest of the line is dropped."""
        while self._at < len(self._text) or self._fill():
            line_end = self._text.find(b"\n", self._at)
            if line_end >= 0:
                self._at = line_end + 1
                self.line += 1
                return
            self._at = len(self._text)

    def real(self, default: float) -> float:
        """The next value as a real number, or `default` when it is left out or not there; look at `status`."""
        word = self._next_value()
        if word is None:
            return default
        value = parse_real(word)
        if value is None:
            self._fail(word)
            return default
        self.given += 1
        return value

    def integer(self, default: int) -> int:
        """The next value as a 32-bit integer; see :meth:`real`."""
        word = self._next_value()
        if word is None:
            return default
        value = parse_integer(word)
        if value is None:
            self._fail(word)
            return default
        self.given += 1
        return value

    def reals(self, values: Reals) -> Reals:
        """Fill an array (1-D, contiguous) and return it; values left out or not there stay as they are."""
        done = 0
        while done < len(values):
            if self.status is Status.GOOD and not self.slash and not self._repeats:
                done += self._take_plain(values[done:])
                if done == len(values):
                    break
            values[done] = self.real(float(values[done]))
            if self.status is not Status.GOOD or self.slash:
                break
            done += 1
            done += self._fill_repeated(values[done:], float(values[done - 1]))
        return values

    def expect(self, count: int, what: str) -> None:
        """Require that the read under way is good and was given `count` values.

        Raises
        ------
        FileError
            ``expected WHAT, found ...``.
        """
        if self.status is Status.BAD:
            raise FileError(self.path, f"expected {what}, found {shown(self.bad_word)}", line=self.line)
        if self.status is Status.END:
            raise FileError(self.path, f"expected {what}, found the end of the file after {self.given}",
                            line=self.line)
        if self.given != count:
            found = "before a slash" if self.slash else "and values left out between commas"
            raise FileError(self.path, f"expected {what}, found {self.given} {found}", line=self.line)

    def expect_end(self, what: str) -> None:
        """Require that nothing but spaces follows. Raises FileError."""
        if self._repeats and self._repeated:
            raise FileError(self.path, f"expected the end of the file after {what}, found {self._repeats} more of "
                            f"{shown(self._repeated)}", line=self.line)
        while self._at < len(self._text) or self._fill():
            rest = self._text[self._at:]
            text = rest.lstrip(b" \t\r\n,")
            self.line += rest[: len(rest) - len(text)].count(b"\n")
            if text:
                word = text.split(None, 1)[0][:60].decode("latin-1")
                raise FileError(self.path, f"expected the end of the file after {what}, found {shown(word)}",
                                line=self.line)
            self._at = len(self._text)

    def _fill(self) -> bool:
        """Make more text available after what is there; false at the end."""
        if self._ended:
            return False
        try:
            more = self._source.read(_BLOCK)
        except OSError as error:
            raise FileError(self.path, f"cannot be read: {error.strerror}") from error
        self._text = self._text[self._at:] + (more or b"")
        self._base += self._at
        self._at = 0
        self._all_plain = not self._text.translate(None, _PLAIN)
        self._ended = not more
        return bool(more)

    def _next_value(self) -> str | None:
        """The next word; None when a value is left out, after a slash and at the end."""
        if self.status is not Status.GOOD or self.slash:
            return None
        if self._repeats:
            self._repeats -= 1
            return self._repeated or None
        word = self._next_word()
        match = _REPEATED.fullmatch(word) if word and "*" in word else None
        if word is None or match is None:
            return word
        count = int(match[1])
        if not 1 <= count < 2**31:
            return word
        self._repeats, self._repeated = count - 1, match[2]
        return self._repeated or None

    def _next_word(self) -> str | None:
        while True:
            if self._at == len(self._text) and not self._fill():
                self.status = Status.END
                return None
            match = _WORD.search(self._text, self._at)
            before = self._text[self._at: match.start() if match else len(self._text)]
            if self._skip_separators(before):
                return None
            if match:
                return self._whole_word()

    def _skip_separators(self, text: bytes) -> bool:
        """Go over separators; true when a value is left out there or a slash ends the read."""
        if not text.strip(b" "):
            self._at += len(text)
            return False
        for index, character in enumerate(text):
            if character == 0x2F:
                self._at += index
                self.slash = True
                return True
            self.line += character == 0x0A
            if character == 0x2C:
                if self._comma_pending:
                    self._at += index + 1
                    return True
                self._comma_pending = True
        self._at += len(text)
        return False

    def _whole_word(self) -> str:
        """The word at the present position, or its beginning when it is longer than any number."""
        match = _WORD.match(self._text, self._at)
        while match and match.end() == len(self._text) and match.end() - self._at <= LONGEST_WORD and self._fill():
            match = _WORD.match(self._text, self._at)
        assert match is not None
        word = self._text[self._at: min(match.end(), self._at + LONGEST_WORD + 1)].decode("latin-1")
        self._at += len(word)
        self._comma_pending = False
        return word

    def _fail(self, word: str) -> None:
        self.status = Status.BAD
        self.bad_word = word

    def _fill_repeated(self, values: Reals, value: float) -> int:
        count = min(len(values), self._repeats)
        if self._repeated:
            values[:count] = value
            self.given += count
        self._repeats -= count
        return count

    def _take_plain(self, values: Reals) -> int:
        """Read the plain numbers at the head of the text at once; give how many values were filled.

        Plain text holds nothing but usual spellings, white space and single commas. The word after the last white
        space of the buffer may continue in the next one and is left.
        """
        if self._base + self._at < self._slow_until:
            return 0
        if len(self._text) - self._at < _BLOCK // 2:
            self._fill()
        end = min(len(self._text), self._at + 32 * len(values))
        special = None if self._all_plain else _SPECIAL.search(self._text, self._at, end)
        block = self._text[self._at: special.start() if special else end]
        block = block[: _last_space(block) + 1].rstrip(b" \t\r\n,")
        if len(block) < _LEAST_PLAIN:
            return 0
        found = self._plain_numbers(block)
        if found is None:
            self._slow_until = self._base + self._at + len(block)
            return 0
        if len(found) > len(values):
            found = found[: len(values)]
            block = block[: _end_of_word(block, len(found))]
        values[: len(found)] = found
        self._at += len(block)
        self.line += block.count(b"\n")
        self.given += len(found)
        self._comma_pending = False
        return len(found)

    def _plain_numbers(self, block: bytes) -> Reals | None:
        """All numbers of plain text, which ends with a word; None when a word or a comma needs the slow path."""
        if b"," in block:
            first = block.lstrip(b" \t\r\n")[:1]
            if _TWO_COMMAS.search(block) or (first == b"," and self._comma_pending):
                return None
            block = block.translate(_COMMA_TO_SPACE)
        return plain_numbers(block)


def plain_numbers(text: bytes) -> Reals | None:
    """All numbers of a text of usual spellings and white space at once; None when it holds anything else.

    >>> plain_numbers(b"1 2.5e3"), plain_numbers(b"1-5"), plain_numbers(b" ")
    (array([1.0e+00, 2.5e+03]), None, None)
    """
    if not text.strip() or text.translate(None, _PLAIN.replace(b",", b"")):
        return None
    with _FILTERS, warnings.catch_warnings():
        warnings.simplefilter("error")
        try:
            numbers = np.fromstring(text, dtype=np.float64, sep=" ")
        except (DeprecationWarning, ValueError):
            return None
    space = np.frombuffer(text, dtype=np.uint8) <= ord(" ")
    words = np.count_nonzero(space[:-1] > space[1:]) + (not space[0])
    return numbers if len(numbers) == words else None


def _last_space(block: bytes) -> int:
    return max(block.rfind(b" "), block.rfind(b"\n"), block.rfind(b"\t"), block.rfind(b"\r"), block.rfind(b","))


def _end_of_word(block: bytes, number: int) -> int:
    """Where word `number` (from 1) of the text ends."""
    space = _SPACES[np.frombuffer(block, dtype=np.uint8)]
    ends = np.flatnonzero(~space[:-1] & space[1:])
    return int(ends[number - 1]) + 1 if number <= len(ends) else len(block)
