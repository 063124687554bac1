"""Manual pages (mdoc) from the help of the programs and templates with the rest of the text.

A template has lines ``@options@``, ``@notes@``, ``@examples@`` or ``@subcommands@``.
"""
from __future__ import annotations

import re
import textwrap
from collections.abc import Callable

from program_help import Entry, Help


def text_lines(text: str) -> list[str]:
    """Lines of running text that mdoc takes as they are."""
    lines = textwrap.wrap(text.replace('\\', '\\e'), 78, break_long_words=False, break_on_hyphens=False)
    return [('\\&' if line[0] in ".'" else '') + line.replace('--', '\\-\\-') for line in lines]


def literal_lines(lines: list[str]) -> list[str]:
    """Lines of a literal block."""
    escaped = [line.replace('\\', '\\e').replace('-', '\\-') for line in lines]
    return ['.Bd -literal -offset indent', *[('\\&' if line[:1] in ".'" else '') + line for line in escaped], '.Ed']


def value_of(placeholder: str) -> str:
    """The macros of a placeholder.

    >>> value_of('FILE ...'), value_of('[TOLERANCE]'), value_of('{a,b}')
    ('Ar FILE ...', 'Op Ar TOLERANCE', 'Brq Cm a | b')
    """
    optional = re.fullmatch(r'\[([A-Z]+)\]', placeholder)
    if optional:
        return f'Op Ar {optional[1]}'
    choice = re.fullmatch(r'\{([^}]*)\}( \.\.\.)?', placeholder)
    if choice:
        return 'Brq Cm ' + choice[1].replace(',', ' | ') + (' Ns No " ..."' if choice[2] else '')
    return f'Ar {placeholder}'


def option_lines(options: list[Entry]) -> list[str]:
    """The list of options; nothing without any."""
    if not options:
        return []
    lines = ['.Bl -tag -width Ds']
    for option in options:
        short = f'Fl {option.short} , ' if option.short else ''
        value = f' {value_of(option.placeholder)}' if option.placeholder else ''
        lines += [f'.It {short}Fl Fl {option.name}{value}', *text_lines(option.text + '.')]
    return [*lines, '.El']


def subcommand_lines(name: str, found: Help) -> list[str]:
    """The section of a subcommand."""
    lines = [f'.Ss {name}', '.D1 ' + found.usage.replace('-', '\\-').split(' ', 1)[1], *text_lines(found.description + '.')]
    for argument in found.arguments:
        lines += ['.Pp', '.Ar ' + argument.name + ' :', *text_lines(argument.text + '.')]
    lines += option_lines([option for option in found.options if option.name != 'help' and option.text != 'Show the version and end'])
    for note in found.notes:
        lines += ['.Pp', *text_lines(note)]
    if found.examples:
        lines += ['.Pp', *literal_lines(found.examples)]
    return lines


def note_lines(notes: list[str]) -> list[str]:
    """Paragraphs of their own."""
    return [line for note in notes for line in ('.Pp', *text_lines(note))]


def fill_template(template: str, program: Help, subcommands: dict[str, Help]) -> str:
    """The manual page. Raises ValueError at an unknown mark."""
    makers: dict[str, Callable[[], list[str]]] = {
        'options': lambda: option_lines(program.options),
        'notes': lambda: note_lines(program.notes),
        'examples': lambda: literal_lines(program.examples),
        'subcommands': lambda: [line for name, found in subcommands.items() for line in subcommand_lines(name, found)],
    }
    lines: list[str] = []
    for line in template.split('\n'):
        mark = re.fullmatch(r'@(\w+)@', line)
        if mark and mark[1] not in makers:
            raise ValueError(f'"{line}": no such mark')
        lines += makers[mark[1]]() if mark else [line]
    return '\n'.join(lines)
