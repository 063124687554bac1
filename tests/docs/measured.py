"""Statements of a page that rest on measured tables, and the numbers of a page that no statement holds.

A statement is a piece of the page with ``{}`` fields in place of its numbers, and the values of the fields, which come from a table in
docs/measured or are computed from the page's own formulas. White space of the page does not count.
"""
from __future__ import annotations

import csv
import json
import re
import string
from pathlib import Path
from typing import NamedTuple

from shown import Shown, shown_text

ROOT = Path(__file__).resolve().parents[2]
TABLES = ROOT / 'docs' / 'measured'
# Years, powers, names such as x86-64 and 3-D, numbers of headings, volume and pages, and what is counted in the order of a list: line 12, style 2.
NO_NUMBERS = re.compile(r'(?m)\b(?:19|20)\d\d\b|10\^-?\d+|10[⁰¹²³⁴-⁹⁻]+|\b[A-Za-z]\w*(?:-\d+)+\b|\b[123]-D\b|^#+ \d+\.|\b\d+, \d+-\d+\.|'
                        r'\b(?:exit status(?: is)?|lines?|[Ss]tyles?|components?|sections?|flag|mode|round|file) \d+(?:(?:,| and| or| to) \d+)*(?!\w| ?%)')
# What a number of a page that defines (a format, options) is a quantity by; its other numbers are codes, counts and limits.
UNIT = re.compile(r'\s?(?:s|ms|min|minutes?|seconds?|hours?|[kMG]B|m|km|mGal|nT|E|Eötvös|A/m|SI|Mt|g/cm³|percent|%|times|iterations|rounds|products)(?![\w/])')
NUMBER = r'-?\d[\d,]*(?:\.\d+)?(?:e-?\d+)?'


def plain(value: object, form: str) -> str:
    """A value as the pages write it: 1.2e-9, not 1.2e-09."""
    return re.sub(r'e([+-])0*(?=\d)', lambda found: 'e' + found[1].strip('+'), format(value, form))


class Statement(NamedTuple):
    """A template with fields such as {:.2f}, and what stands there."""

    template: str
    values: tuple[object, ...]

    @property
    def text(self) -> str:
        fields = [form or '' for _, field, form, _ in string.Formatter().parse(self.template) if field is not None]
        words = [plain(value, form) for value, form in zip(self.values, fields, strict=True)]
        return re.sub(r'\{[^{}]*\}', '{}', self.template).format(*words)

    def pattern(self) -> re.Pattern[str]:
        """What the statement looks like with any numbers."""
        parts = []
        for literal, field, _, _ in string.Formatter().parse(self.template):
            parts.append(re.sub(r'(\\ |\\\n|\s)+', lambda _: r'\s+', re.escape(literal)))
            parts.append('' if field is None else f'({NUMBER})')
        return re.compile(''.join(parts))


def says(template: str, *values: object) -> Statement:
    return Statement(template, values)


def table(name: str) -> list[dict[str, str]]:
    """The rows of a measured table; lines with # give the command that made it."""
    lines = (TABLES / name).read_text(encoding='ascii').splitlines()
    return list(csv.DictReader(line for line in lines if not line.startswith('#')))


def only(rows: list[dict[str, str]], **wanted: object) -> dict[str, str]:
    """The one row with these values."""
    found = [row for row in rows if all(row[key] == str(value) for key, value in wanted.items())]
    if len(found) != 1:
        raise ValueError(f'expected one row with {wanted}, found {len(found)}')
    return found[0]


def page_text(page: str) -> str:
    """A page, whose shown output another test holds to the programs."""
    return (ROOT / 'docs' / page).read_text(encoding='utf-8')


def shown(page: str, pattern: str, where: int = 0) -> list[float]:
    """The numbers that the groups of a pattern find in the output or the commands that a page shows, at its first place or a later one."""
    found = list(re.finditer(pattern, shown_text(page_text(page)), re.M))
    if len(found) <= where:
        raise ValueError(f'{page} shows no {pattern}')
    return [float(word.replace(',', '')) for word in found[where].groups()]


def setting(path: str, pattern: str) -> float:
    """The number that the group of a pattern finds in a source file."""
    found = re.search(pattern, (ROOT / path).read_text(encoding='utf-8'), re.M)
    if found is None:
        raise ValueError(f'{path}: no {pattern}')
    return float(found[1])


def tutorial_table(name: str) -> list[dict[str, str]]:
    """The rows of a table of the tutorials."""
    with (ROOT / 'docs' / 'tutorial' / name).open(encoding='ascii') as file:
        return list(csv.DictReader(file))


def bodies_of(name: str) -> list[dict[str, list[float]]]:
    """The true bodies of a tutorial: ranges in x, y and elevation."""
    return json.loads((ROOT / 'docs' / 'tutorial' / name).read_text(encoding='ascii'))['bodies']


def numbers_in(text: str) -> list[float]:
    return [float(found.replace(',', '')) for found in re.findall(rf'(?<![\w.]){NUMBER}', text)]


def wrong_statements(page: str, statements: list[Statement]) -> list[str]:
    """What is wrong with the statements: not on the page, more than once, or with other numbers."""
    faults = []
    for statement in statements:
        found = list(statement.pattern().finditer(page))
        if len(found) != 1:
            faults.append(f'the page has this {len(found)} times, expected once: {statement.template}')
        elif ' '.join(found[0].group(0).split()) != ' '.join(statement.text.split()):
            faults.append(f"the table gives\n  {statement.text}\nand the page has\n  {' '.join(found[0].group(0).split())}")
    return faults


def with_measured(page: str, statements: list[Statement]) -> str:
    """The page with the numbers of the tables."""
    for statement in statements:
        found = statement.pattern().search(page)
        if found:
            shown = [field for field in string.Formatter().parse(statement.template) if field[1] is not None]
            words = [plain(value, field[2] or '') for field, value in zip(shown, statement.values)]
            for number in range(len(words), 0, -1):
                page = page[:found.start(number)] + words[number - 1] + page[found.end(number):]
    return page


def masked_prose(text: str) -> str:
    """The page with blanks for all that is no prose: code, comments, targets of links, options (another test has them from the programs).

    Places stay the same."""
    blank = lambda match: re.sub(r'[^\n]', ' ', match.group(0))  # noqa: E731
    for pattern in (r'(?ms)^```.*?^```$', r'(?s)<!--.*?-->', r'(?m)^\| `--.*$', r'`[^`\n]*`', r'(?<=\])\([^)]*\)', r'(?m)^ *\d+\. '):
        text = re.sub(pattern, blank, text)
    return text


def unsourced_numbers(text: str, statements: list[Statement], given: list[str], only_quantities: bool = False,
                      further: dict[str, set[float]] | None = None) -> list[str]:
    """Numbers in the prose of a page that stand neither in a statement nor in a given phrase (a setting, a definition, a reference),
    and that no tested block of the page shows.

    Code and NO_NUMBERS are left out. Only quantities count on a page that defines.
    """
    prose = list(masked_prose(text))
    phrases = [statement.pattern() for statement in statements]
    phrases += [re.compile(r'\s+'.join(map(re.escape, phrase.split()))) for phrase in given]
    faults = []
    for phrase in phrases:
        matches = list(phrase.finditer(text))
        if not matches:
            faults.append(f'not on the page: {phrase.pattern}')
        for found in matches:
            prose[found.start():found.end()] = ' ' * (found.end() - found.start())
    rest = NO_NUMBERS.sub(lambda found: ' ' * len(found.group(0)), ''.join(prose))
    known = Shown(text, further or {})
    for found in re.finditer(rf'(?<![\w^.]){NUMBER}', rest):
        line, word = rest.count('\n', 0, found.start()), found.group(0).rstrip(',')
        if only_quantities and not UNIT.match(rest, found.end()):
            continue
        if not known.has(word, line):
            faults.append(f"line {line + 1}: no source for {word}: {text[max(0, found.start() - 40):found.end() + 30]!r}")
    return faults
