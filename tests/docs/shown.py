"""Numbers of a page that its own blocks show: commands and files of the page, and the output that another test holds to the programs.

A number of the prose with two or more digits has its source in a block where the block has it with the same or more digits. Numbers of three
and more digits may come from any block of the page, shorter ones from the blocks of their section (##) alone. A single digit is never
taken from a block: it would be found nearly everywhere.
"""
from __future__ import annotations

import re

from doc_blocks import blocks_of, masked

TOKEN = re.compile(r'(?<![\w.])-?(?:\d{1,3}(?:,\d{3})+(?![\d,])|\d+)(?:\.\d+)?(?:[eE][+-]?\d+)?(?![\d.]\d|\w*_)')
TESTED = ('file', 'run', 'screen', 'excerpt')


def sections_of(text: str) -> list[tuple[int, int]]:
    """First and last line (from 0, last excluded) of each ## section, and of what stands before the first."""
    starts = [0] + [number for number, line in enumerate(text.split('\n')) if line.startswith('## ')]
    return list(zip(starts, starts[1:] + [text.count('\n') + 1]))


def block_numbers(lines: list[str]) -> list[float]:
    """The numbers of a block; dates and times, which differ from run to run, do not count."""
    return [float(found.replace(',', '')) for line in lines for found in TOKEN.findall(masked(line))]


def shown_text(text: str) -> str:
    """The lines of all tested blocks."""
    return '\n'.join(masked(line) for block in blocks_of(text) if block.kind in TESTED for line in block.lines)


def numbers_by_section(text: str) -> list[tuple[int, int, list[float]]]:
    """For each section its first and last line, and the numbers that its tested blocks show."""
    blocks = [(block.number, block_numbers(block.lines)) for block in blocks_of(text) if block.kind in TESTED]
    return [(first, last, [value for line, values in blocks if first < line <= last for value in values])
            for first, last in sections_of(text)]


def digits_of(word: str) -> int:
    """The digits that say something: 0.05 has one, 5318520 seven, 1.0 two."""
    return len(re.sub(r'\D', '', word.split('e')[0]).lstrip('0'))


def is_rounded(word: str, value: float) -> bool:
    """Whether a word of the prose is this value with its own number of decimals. Without a sign it may be the amount of the value."""
    mantissa, _, exponent = word.replace(',', '').partition('e')
    decimals = len(mantissa.partition('.')[2]) - int(exponent or 0)
    wanted = float(word.replace(',', ''))
    given = value if word.startswith('-') else abs(value)
    return abs(given - wanted) <= 0.5 * 10.0 ** -decimals * (1 + 1e-9)


class Shown:
    """What the tested blocks of a page show, and further numbers of sections, by their headings, such as those of an example's program."""

    def __init__(self, text: str, further: dict[str, set[float]]):
        self.sections = numbers_by_section(text)
        self.all = [value for *_, values in self.sections for value in values]
        lines = text.split('\n')
        self.further = [(first, last, further.get(lines[first].removeprefix('## '), set())) for first, last, _ in self.sections]

    def has(self, word: str, line: int) -> bool:
        """Whether a number of the prose on a line (from 0) stands in a block."""
        digits = digits_of(word)
        if any(first <= line < last and float(word.replace(',', '')) in values for first, last, values in self.further):
            return True
        if digits < 2:
            return False
        values = self.all if digits > 2 else next(values for first, last, values in self.sections if first <= line < last)
        return any(is_rounded(word, value) for value in values)
