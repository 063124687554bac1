"""What the programs say of themselves: their help, taken apart. Manual pages and completions are made from it."""
from __future__ import annotations

import re
import subprocess
from dataclasses import dataclass, field

OPTION = re.compile(r'  (?:-(?P<short>\w), )?--(?P<name>[a-z][a-z0-9-]*)(?: (?P<placeholder>\S.*?))?(?:\s{2,}(?P<text>\S.*))?')
ARGUMENT = re.compile(r'  (?P<name>[A-Z][A-Z0-9]*)(?:\s{2,}(?P<text>\S.*))?')
SUBCOMMAND = re.compile(r'  (?P<name>[a-z][a-z-]*)\s{2,}(?P<text>\S.*)')
HEADINGS = {'positional arguments:': 'arguments', 'options:': 'options', 'subcommands, in the order of work:': 'subcommands'}
WORD_LIST = re.compile(r': ((?:\w+, )+\w+)(?:, or a code| \(default|$)')


@dataclass
class Entry:
    """An option, an argument or a subcommand with its text."""

    name: str
    text: str
    short: str = ''
    placeholder: str = ''

    @property
    def repeated(self) -> bool:
        """Whether several values may follow."""
        return self.placeholder.endswith(' ...')

    @property
    def values(self) -> list[str]:
        """The words that the value may be, where help lists them."""
        found = re.search(r'\{([^}]*)\}', self.placeholder) or WORD_LIST.search(self.text)
        return re.split(r', ?', found[1]) if found and self.placeholder else []

    @property
    def kind(self) -> str:
        """What the value is: file, folder, words, other, or none where there is no value."""
        if not self.placeholder:
            return 'none'
        if self.values:
            return 'words'
        place = re.search(r'FILE|FOLDER|CONTROL', self.placeholder)
        return 'other' if not place else 'folder' if place[0] == 'FOLDER' else 'control' if place[0] == 'CONTROL' else 'file'


@dataclass
class Help:
    """The help of a program or of one of its subcommands."""

    usage: str = ''
    description: str = ''
    arguments: list[Entry] = field(default_factory=list)
    options: list[Entry] = field(default_factory=list)
    subcommands: list[Entry] = field(default_factory=list)
    notes: list[str] = field(default_factory=list)
    examples: list[str] = field(default_factory=list)


def ask(command: list[str]) -> str:
    """The help that a program prints. Raises RuntimeError where it fails."""
    done = subprocess.run([*command, '--help'], capture_output=True, text=True, timeout=60, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(command)} --help ends with status {done.returncode}: {done.stderr}")
    return done.stdout


def parse_help(text: str) -> Help:
    """Take a help text apart. Raises ValueError at a line that belongs to nothing.

    >>> parse_help('usage: x\\n\\nDoes.\\n\\noptions:\\n  -h, --help  Show this\\n  --at {a,b}  Where').options[1].values
    ['a', 'b']
    """
    found = Help()
    blocks = re.split(r'\n\s*\n', text.strip('\n'))
    usage, description, *rest = blocks
    found.usage = re.sub(r'\s+', ' ', usage.removeprefix('usage: '))
    found.description = re.sub(r'\s+', ' ', description)
    for block in rest:
        heading, _, body = block.partition('\n')
        if heading in HEADINGS:
            getattr(found, HEADINGS[heading]).extend(_entries(body.split('\n'), HEADINGS[heading]))
        else:
            _add_notes(found, block.split('\n'))
    for argument in found.arguments:
        if f'{argument.name} ...' in found.usage:
            argument.placeholder += ' ...'
    return found


def _entries(lines: list[str], section: str) -> list[Entry]:
    form = {'arguments': ARGUMENT, 'options': OPTION, 'subcommands': SUBCOMMAND}[section]
    entries: list[Entry] = []
    for line in lines:
        if line.startswith('   ') and entries:
            entries[-1].text = f'{entries[-1].text} {line.strip()}'.strip()
            continue
        match = form.fullmatch(line)
        if not match:
            raise ValueError(f'"{line}": expected an entry of the {section}')
        parts = match.groupdict(default='')
        name = parts['name']
        placeholder = parts.get('placeholder', name if section == 'arguments' else '')
        entries.append(Entry(name, parts['text'], parts.get('short', ''), placeholder))
    return entries


def _add_notes(found: Help, lines: list[str]) -> None:
    """Lines that begin with a space are examples, all others notes; lines that end in a colon are headings."""
    paragraph: list[str] = []
    for line in lines:
        if line.startswith(' '):
            found.examples.append(line.strip() if not found.examples or not found.examples[-1].endswith('\\') else
                                  f'    {line.strip()}')
        elif not line.rstrip().endswith('xamples:') and not line.rstrip().endswith('xample:'):
            paragraph.append(line)
    if paragraph and not paragraph[0].startswith('Exit status:'):
        found.notes.append(re.sub(r'\s+', ' ', ' '.join(paragraph)).strip())
