"""Completion for bash, zsh and fish from the help of the programs."""
from __future__ import annotations

import re
import shlex
import textwrap
from collections.abc import Iterator

from program_help import Entry, Help

PROGRAMS = ('voxlith', 'voxlith-run', 'voxlith-run-mpi', 'voxlith-tools', 'voxlith-plot')
LONGEST_TEXT = 72

Commands = dict[str, Help]
"""The help of each command: a program, or ``voxlith-tools`` and a subcommand with a space between."""


def short_text(text: str) -> str:
    """The first statement of a text.

    >>> short_text('Threads, 1 to 256; the result does not depend on them (default: all)')
    'Threads, 1 to 256'
    """
    return textwrap.shorten(re.split(r'; | \(|[.] ', text)[0], LONGEST_TEXT, placeholder=' ...')


def keywords_of(commands: Commands) -> list[str]:
    """The keywords of voxlith, which voxlith-run lists in its help."""
    (keyword,) = [entry for entry in commands['voxlith-run'].arguments if entry.name == 'KEYWORD']
    return re.findall(r'\b[A-Z]\w*=', keyword.text)


def argument_kind(found: Help) -> str:
    """What the arguments of a command are."""
    return found.arguments[0].kind if found.arguments else 'none'


# --- bash

BASH_HEAD = '''\
# Completion for voxlith, voxlith-run, voxlith-tools and voxlith-plot in bash, made from their help.
'''
BASH_TAIL = '''\
# Offers what may stand at the cursor. $1: the command, $2: how many words it has.
_voxlith_offer() {
    local command=$1 first=$2 word=${COMP_WORDS[COMP_CWORD]} at=$((COMP_CWORD - 1)) what=
    if [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$(_voxlith_options "$command")" -- "$word"))
        return 0
    fi
    while ((at >= first)) && [[ ${COMP_WORDS[at]} != --* ]]; do
        at=$((at - 1))
    done
    ((at >= first)) && what=$(_voxlith_value "$command ${COMP_WORDS[at]}")
    # Only an option that takes several values reaches further than the next word.
    if ((at < COMP_CWORD - 1)) && [[ $what != several\\ * ]]; then
        what=
    fi
    [ -n "$what" ] || what=$(_voxlith_value "$command")
    what=${what#several }
    if [[ $what == control && " ${COMP_WORDS[*]:1:COMP_CWORD-1} " == *.inp\\ * ]]; then
        what="words $(_voxlith_keywords "$command")"
    fi
    case $what in
        words\\ *)
            COMPREPLY=($(compgen -W "${what#words }" -- "$word"))
            [[ ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null ;;
        file)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            compopt -o filenames 2>/dev/null ;;
        folder)
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
            compopt -o filenames 2>/dev/null ;;
        control)
            mapfile -t COMPREPLY < <(compgen -f -X '!*.inp' -- "$word"; compgen -d -- "$word")
            compopt -o filenames 2>/dev/null ;;
    esac
    return 0
}

_voxlith() { _voxlith_offer voxlith 1; }
_voxlith_run() { _voxlith_offer voxlith-run 1; }
_voxlith_plot() { _voxlith_offer voxlith-plot 1; }
_voxlith_tools() {
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W "$(_voxlith_subcommands) --help --version" -- "${COMP_WORDS[1]}"))
    else
        _voxlith_offer "voxlith-tools ${COMP_WORDS[1]}" 2
    fi
}

complete -F _voxlith voxlith
complete -F _voxlith_run voxlith-run voxlith-run-mpi
complete -F _voxlith_tools voxlith-tools
complete -F _voxlith_plot voxlith-plot
'''


def bash_value(entry: Entry) -> str:
    """The word of the table for a value."""
    what = f"words {' '.join(entry.values)}" if entry.kind == 'words' else entry.kind
    return f'several {what}' if entry.repeated else what


def bash_completion(commands: Commands) -> str:
    """The file for bash."""
    values: dict[str, list[str]] = {}
    for command, found in commands.items():
        values.setdefault(argument_kind(found), []).append(f'"{command}"')
        for option in found.options:
            if option.kind != 'none':
                values.setdefault(bash_value(option), []).append(f'"{command} --{option.name}"')
    lines = ['_voxlith_options() {', '    case $1 in']
    for command, found in commands.items():
        lines.append(f'        "{command}") echo "{" ".join("--" + option.name for option in found.options)}" ;;')
    lines += ['    esac', '}', '', '# What follows an option, or what the arguments of a command are.', '_voxlith_value() {',
              '    case $1 in']
    for what, patterns in values.items():
        lines.append('        ' + ' | '.join(patterns) + f') echo "{what}" ;;')
    keywords = ' '.join(keywords_of(commands))
    lines += ['    esac', '}', '', f'_voxlith_subcommands() {{ echo "{" ".join(subcommands_of(commands))}"; }}',
              f'_voxlith_keywords() {{ [ "$1" = voxlith ] && echo "NOFAST {keywords}" || echo "{keywords}"; }}', '']
    return BASH_HEAD + '\n' + '\n'.join(lines) + '\n' + BASH_TAIL


def subcommands_of(commands: Commands) -> list[str]:
    """The subcommands of voxlith-tools."""
    return [entry.name for entry in commands['voxlith-tools'].subcommands]


# --- zsh

ZSH_ACTIONS = {'file': '_files', 'folder': '_files -/', 'control': '_files -g "*.inp"', 'other': ' '}


def zsh_quoted(text: str) -> str:
    """A text inside the brackets or between the colons of an option."""
    return re.sub(r'([\[\]:\\])', r'\\\1', text)


def zsh_value(entry: Entry) -> str:
    """Message and action of a value."""
    action = f"({' '.join(entry.values)})" if entry.kind == 'words' else ZSH_ACTIONS[entry.kind]
    return f'{zsh_quoted(entry.placeholder)}:{action}'


def zsh_specifications(found: Help) -> Iterator[str]:
    """The specifications of _arguments for a command."""
    for option in found.options:
        text = f'--{option.name}[{zsh_quoted(short_text(option.text))}]'
        if option.kind == 'none':
            yield text
        elif option.repeated:
            yield f'{text}:*-*:{zsh_value(option)}'
        else:
            yield f"{text}:{':' if option.placeholder.startswith('[') and '=' not in option.placeholder else ''}{zsh_value(option)}"
    for argument in found.arguments:
        if argument.name != 'KEYWORD':
            yield f"{'*' if argument.repeated else '1'}:{zsh_value(argument)}"


def zsh_arguments(found: Help, indent: str, more: list[str]) -> list[str]:
    """One call of _arguments."""
    words = [shlex.quote(word) for word in [*zsh_specifications(found), *more]]
    return [f'{indent}_arguments \\', *[f'{indent}    {word} \\' for word in words[:-1]], f'{indent}    {words[-1]}']


def zsh_completion(commands: Commands) -> str:
    """The file for zsh."""
    keywords = keywords_of(commands)
    keyword_words = "*:keyword:compadd -S '' -- " + ' '.join(keywords)
    lines = [f"#compdef {' '.join(PROGRAMS)}", '# Completion for zsh, made from the help of the programs.', '',
             'local state line', 'local -a subcommands', '', 'case $service in', 'voxlith)',
             *zsh_arguments(commands['voxlith'], '    ', [keyword_words + ' NOFAST']), '    ;;', 'voxlith-run | voxlith-run-mpi)',
             *zsh_arguments(commands['voxlith-run'], '    ', [keyword_words]), '    ;;', 'voxlith-plot)',
             *zsh_arguments(commands['voxlith-plot'], '    ', []), '    ;;', 'voxlith-tools)',
             "    _arguments -C '--help[Show this help and end]' '--version[Show the version and end]' \\",
             "        '1: :->subcommand' '*:: :->options'", '    case $state in', '    subcommand)', '        subcommands=(']
    for entry in commands['voxlith-tools'].subcommands:
        lines.append('            ' + shlex.quote(f"{entry.name}:{entry.text.replace(':', chr(92) + ':')}"))
    lines += ['        )', '        _describe subcommand subcommands', '        ;;', '    options)', '        case $words[1] in']
    for name in subcommands_of(commands):
        lines += [f'        {name})', *zsh_arguments(commands[f'voxlith-tools {name}'], '            ', []), '            ;;']
    return '\n'.join([*lines, '        esac', '        ;;', '    esac', '    ;;', 'esac', ''])


# --- fish

FISH_FOLDERS = '(__fish_complete_directories)'


def fish_line(program: str, condition: str, words: list[str], text: str) -> str:
    """One call of complete."""
    parts = ['complete', '-c', program, *(['-n', condition] if condition else []), *words, *(['-d', text] if text else [])]
    return ' '.join(shlex.quote(part) for part in parts)


def fish_value(entry: Entry) -> list[str]:
    """What follows an option or stands as argument."""
    if entry.kind == 'words':
        return ['-x', '-a', ' '.join(entry.values)]
    if entry.kind == 'folder':
        return ['-x', '-a', FISH_FOLDERS]
    optional = entry.placeholder.startswith('[') and '=' not in entry.placeholder
    if entry.kind in ('file', 'control'):
        return ['-r', '-F']
    return [] if optional or entry.kind == 'none' else ['-x']


def fish_command(program: str, condition: str, found: Help) -> list[str]:
    """The lines of a program or subcommand."""
    lines = [fish_line(program, condition, ['-l', option.name, *fish_value(option)], short_text(option.text))
             for option in found.options]
    kind = argument_kind(found)
    if kind == 'folder':
        lines.append(fish_line(program, condition, ['-f', '-a', FISH_FOLDERS], ''))
    elif kind == 'none':
        lines.append(fish_line(program, condition, ['-f'], ''))
    return lines


def fish_keywords(program: str, words: list[str]) -> list[str]:
    """Control file first, keywords after it."""
    seen = "string match -q '*.inp' -- (commandline -opc)"
    return [fish_line(program, f'not {seen}', ['-f', '-a', '(__fish_complete_suffix .inp)'], 'control file'),
            fish_line(program, seen, ['-f', '-a', ' '.join(words)], 'keyword')]


def fish_completions(commands: Commands) -> dict[str, str]:
    """The file of each program for fish, which looks for it by the program's name."""
    keywords = keywords_of(commands)
    tools = [fish_line('voxlith-tools', '__fish_use_subcommand', ['-f', '-a', entry.name], entry.text)
             for entry in commands['voxlith-tools'].subcommands]
    for name in subcommands_of(commands):
        tools += fish_command('voxlith-tools', f'__fish_seen_subcommand_from {name}', commands[f'voxlith-tools {name}'])
    lines = {'voxlith': fish_keywords('voxlith', [*keywords, 'NOFAST']),
             'voxlith-run': [*fish_command('voxlith-run', '', commands['voxlith-run']), *fish_keywords('voxlith-run', keywords)],
             'voxlith-run-mpi': [fish_line('voxlith-run-mpi', '', ['-w', 'voxlith-run'], '')],
             'voxlith-tools': tools, 'voxlith-plot': fish_command('voxlith-plot', '', commands['voxlith-plot'])}
    return {program: '\n'.join([f'# Completion of {program} for fish, made from its help.', *found, ''])
            for program, found in lines.items()}
