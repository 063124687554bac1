#!/usr/bin/env python3
"""Makes manual pages and completions from the help of the programs.

    make_pages.py --build DIR --out DIR

Templates of the manual pages are man/*.1.in. The results are OUT/man/*.1, OUT/completion/voxlith.bash, OUT/completion/_voxlith (zsh)
and OUT/completion/*.fish.
"""
from __future__ import annotations

import argparse
import os
import pathlib
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from completions import bash_completion, fish_completions, zsh_completion  # noqa: E402
from manual import fill_template  # noqa: E402
from program_help import Entry, Help, ask, parse_help  # noqa: E402

TEMPLATES = pathlib.Path(__file__).resolve().parents[2] / 'man'


def help_of_all(build: pathlib.Path) -> dict[str, Help]:
    """The help of each program and of each subcommand. voxlith itself has no help: every word is a control file to it."""
    tools = [str(build / 'tools' / 'voxlith-tools')]
    commands = {'voxlith': Help(arguments=[Entry('CONTROL', 'Control file', placeholder='CONTROL')]),
                'voxlith-run': parse_help(ask([str(build / 'voxlith-run')])), 'voxlith-tools': parse_help(ask(tools)),
                'voxlith-plot': parse_help(ask([str(build / 'tools' / 'voxlith-plot')]))}
    for entry in commands['voxlith-tools'].subcommands:
        commands[f'voxlith-tools {entry.name}'] = parse_help(ask([*tools, entry.name]))
    return commands


def make_pages(commands: dict[str, Help]) -> dict[str, str]:
    """The text of each page by its name."""
    subcommands = {name.partition(' ')[2]: found for name, found in commands.items() if ' ' in name}
    pages = {f'man/{program}.1': fill_template((TEMPLATES / f'{program}.1.in').read_text(), commands[program], subcommands)
             for program in ('voxlith-run', 'voxlith-tools', 'voxlith-plot')}
    pages['completion/voxlith.bash'] = bash_completion(commands)
    pages['completion/_voxlith'] = zsh_completion(commands)
    pages |= {f'completion/{program}.fish': text for program, text in fish_completions(commands).items()}
    return pages


def write_pages(pages: dict[str, str], out: pathlib.Path) -> None:
    """Write each page beside its final name first."""
    for name, text in pages.items():
        path = out / name
        path.parent.mkdir(parents=True, exist_ok=True)
        unfinished = path.with_name(path.name + '.unfinished')
        unfinished.write_text(text)
        os.replace(unfinished, path)


def main() -> int:
    """Make all pages; the exit status is 1 where a program or a template cannot be used."""
    parser = argparse.ArgumentParser(description='Makes manual pages and completions from the help of the programs.')
    parser.add_argument('--build', required=True, type=pathlib.Path, help='folder of the built programs')
    parser.add_argument('--out', required=True, type=pathlib.Path, help='folder of the results')
    asked = parser.parse_args()
    try:
        write_pages(make_pages(help_of_all(asked.build.resolve())), asked.out)
    except (OSError, RuntimeError, ValueError) as error:
        print(f'make_pages.py: {error}', file=sys.stderr)
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
