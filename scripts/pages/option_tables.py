"""The tables of options in the pages, from the help of the programs.

A page marks the place of a table by ``<!-- options COMMAND -->``; the table follows. ``<!-- options COMMAND like OTHER -->``
refers to the table of OTHER for options that both have with the same text.
"""
from __future__ import annotations

import re

from program_help import Entry, Help

MARK = re.compile(r'^<!-- options ([a-z -]+?)(?: like ([a-z -]+))? -->$')
HEAD = ['| option | value | meaning |', '|---|---|---|']


def value_words(placeholder: str) -> str:
    """A placeholder in words.

    >>> value_words('METRES|{lowest,highest}'), value_words('{a,b,c} ...'), value_words('[MISFIT]'), value_words('')
    ('METRES; or lowest, highest', 'a, b or c, one or several', 'MISFIT, optional', '')
    """
    optional = re.fullmatch(r'\[([A-Z]+)\]', placeholder)
    if optional:
        return f'{optional[1]}, optional'
    several = placeholder.endswith(' ...')
    form, _, listed = placeholder.removesuffix(' ...').removesuffix('}').partition('{')
    words = listed.split(',')
    if form:
        text = f"{form[:-1]}; or {', '.join(words)}" if listed else form
    else:
        text = f"{', '.join(words[:-1])} or {words[-1]}" if len(words) > 1 else listed
    return f'{text}, one or several' if several else text


def plain_text(text: str) -> str:
    """A text as a cell of a table shows it: options as code, no Markdown of its own.

    >>> plain_text('Like --out, a|b, NA and *')
    'Like `--out`, a\\\\|b, NA and \\\\*'
    """
    text = re.sub(r'([|*<>])', r'\\\1', text.replace('Eotvos', 'Eötvös').replace('g/cm3', 'g/cm³'))
    return re.sub(r'(?<![\w-])--[a-z][a-z0-9-]*[a-z0-9]', r'`\g<0>`', text)


def option_table(name: str, found: Help, like: tuple[str, Help] | None = None) -> list[str]:
    """The lines of the table of a program or subcommand."""
    needed = set(re.findall(r'[^[]--([a-z0-9-]+)', found.usage.split('[OPTIONS]')[0]))
    known = {(entry.name, entry.placeholder, entry.text) for entry in like[1].options} if like else set()
    lines = list(HEAD)
    for entry in found.arguments:
        optional = re.search(rf'\[{entry.name}\b', found.usage)
        lines.append(f"| `{entry.name}{' ...' if entry.repeated else ''}` | {'' if optional else 'required '}| {plain_text(entry.text)} |")
    for entry in found.options:
        if entry.name in ('help', 'version') and entry.text.startswith('Show th'):
            continue
        if (entry.name, entry.placeholder, entry.text) in known:
            text = f"as for [{like[0].split()[-1]}](#{like[0].replace(' ', '-')})" if like else ''
        else:
            text = plain_text(entry.text)
        value = ', '.join(part for part in (value_words(entry.placeholder), 'required' if entry.name in needed else '') if part)
        lines.append(f"| `--{entry.name}` | {plain_text(value)}{' ' if value else ''}| {text} |")
    if len(lines) == len(HEAD):
        raise ValueError(f'{name}: the help has no options')
    return lines


def with_tables(page: str, commands: dict[str, Help]) -> tuple[str, list[str]]:
    """The page with the tables of now, and the commands whose tables it has.

    Raises ValueError where a mark has no known command.
    """
    lines, out, marked, at = page.split('\n'), [], [], 0
    while at < len(lines):
        out.append(lines[at])
        mark = MARK.match(lines[at])
        at += 1
        if mark:
            for name in filter(None, mark.groups()):
                if name not in commands:
                    raise ValueError(f'line {at}: no command "{name}"')
            like = (mark[2], commands[mark[2]]) if mark[2] else None
            out += option_table(mark[1], commands[mark[1]], like)
            marked.append(mark[1])
            while at < len(lines) and lines[at].startswith('|'):
                at += 1
    return '\n'.join(out), marked
