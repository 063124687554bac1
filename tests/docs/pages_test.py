#!/usr/bin/env python3
"""Manual pages and completions that are made from the help of the programs.

    pages_test.py --build DIR [PagesOfAll | Parsing | Bash | Zsh | Fish ...]

Completions are asked of the shells themselves; a shell that is not installed is skipped with a message.
"""
import argparse
import functools
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
sys.dont_write_bytecode = True
sys.path[:0] = [str(HERE), str(ROOT / 'scripts' / 'pages')]
import completions  # noqa: E402
import make_pages  # noqa: E402
import manual  # noqa: E402
import words_test  # noqa: E402
from program_help import Help, parse_help  # noqa: E402

build = pathlib.Path()
ORDER = ['obs', 'check', 'regional', 'mesh', 'terrain', 'mtx', 'init', 'report']


@functools.cache
def help_of_all():
    return make_pages.help_of_all(build)


class PagesOfAll(unittest.TestCase):
    """The pages of the programs as they are built."""

    @classmethod
    def setUpClass(cls):
        cls.commands = help_of_all()

    def test_the_build_holds_the_pages_of_its_programs(self):
        for name, text in make_pages.make_pages(self.commands).items():
            with self.subTest(page=name):
                self.assertEqual((build / 'pages' / name).read_text(), text, 'made from another help')

    def test_every_value_has_a_placeholder_of_its_kind(self):
        for command, found in self.commands.items():
            for option in found.options:
                with self.subTest(command=command, option=option.name):
                    self.assertRegex(option.text, r'^\S.{5}')
                    self.assertNotRegex(option.placeholder, r'FLOAT|INT\b|UINT|DIR\b')
                    if option.placeholder and re.match(r'(\w+ ){1,3}(?<!the )(?<!that )file\b', option.text):
                        self.assertEqual(option.kind, 'file', option.placeholder)

    def test_subcommands_come_in_the_order_of_work(self):
        names = completions.subcommands_of(self.commands)
        self.assertEqual([name for name in names if name in ORDER], ORDER)

    def test_every_subcommand_has_an_example_that_names_it(self):
        for name in completions.subcommands_of(self.commands):
            with self.subTest(subcommand=name):
                self.assertRegex('\n'.join(self.commands[f'voxlith-tools {name}'].examples), f'voxlith-tools {name} ')

    def test_manual_pages_use_the_words_of_the_glossary(self):
        for path in sorted((build / 'pages' / 'man').glob('*.1')):
            lines = words_test.prose_lines(str(path))
            self.assertGreater(len(lines), 60)
            with self.subTest(page=path.name):
                self.assertEqual([*words_test.avoided_terms(lines, []), *words_test.long_sentences(lines)], [])


class Parsing(unittest.TestCase):
    """Help texts that are taken apart, and what is made of them."""

    def test_entries_keep_all_their_lines(self):
        found = parse_help('usage: p FILE ... [OPTIONS]\n\nDoes it.\n\npositional arguments:\n  FILE  Files\n\noptions:\n'
                           '  -q, --quiet   Say\n                nothing\n  --a-long-option-of-all {one,two}\n'
                           '                Where\n\nA note.\n\nExamples:\n  p a.txt\n')
        self.assertTrue(found.arguments[0].repeated)
        self.assertEqual([(o.short, o.name, o.text, o.kind) for o in found.options],
                         [('q', 'quiet', 'Say nothing', 'none'), ('', 'a-long-option-of-all', 'Where', 'words')])
        self.assertEqual((found.notes, found.examples), (['A note.'], ['p a.txt']))

    def test_a_line_that_belongs_to_nothing_is_an_error(self):
        with self.assertRaisesRegex(ValueError, 'expected an entry of the options'):
            parse_help('usage: p\n\nDoes it.\n\noptions:\n  nonsense here')

    def test_an_unknown_mark_of_a_template_is_an_error(self):
        with self.assertRaisesRegex(ValueError, 'no such mark'):
            manual.fill_template('.Sh OPTIONS\n@option@\n', Help(), {})

    def test_lines_that_look_like_requests_are_text(self):
        self.assertEqual(manual.text_lines(".geoh5 or 'x' of --out"), ["\\&.geoh5 or 'x' of \\-\\-out"])

    def test_a_program_that_fails_is_an_error_and_leaves_no_pages(self):
        with tempfile.TemporaryDirectory(prefix='voxlith-pages-') as folder:
            fake = pathlib.Path(folder, 'voxlith-run')
            fake.write_text('#!/bin/sh\nexit 3\n')
            fake.chmod(0o755)
            done = subprocess.run([sys.executable, ROOT / 'scripts/pages/make_pages.py', '--build', folder, '--out', folder + '/out'],
                                  capture_output=True, text=True, timeout=60, check=False)
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stderr, r'^make_pages.py: .*voxlith-run --help ends with status 3: \n$')
            self.assertFalse(os.path.exists(folder + '/out'))


class Shell(unittest.TestCase):
    """What a shell completes, in a folder with a control file and a run."""

    program = ''

    @classmethod
    def setUpClass(cls):
        if not cls.program:
            raise unittest.SkipTest('the common part of the shells')
        if not shutil.which(cls.program):
            raise unittest.SkipTest(f'{cls.program} is not installed')
        cls.folder = tempfile.mkdtemp(prefix='voxlith-completion-')
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        os.mkdir(os.path.join(cls.folder, 'run1'))
        for name in ('mine.inp', 'runlog.txt', 'blocks.msh'):
            pathlib.Path(cls.folder, name).touch()

    def run_shell(self, *words):
        done = subprocess.run(words, cwd=self.folder, capture_output=True, text=True, timeout=60, check=False,
                              env=dict(os.environ, HOME=self.folder, LC_ALL='C'))
        self.assertEqual((done.returncode, done.stderr), (0, ''))
        return done.stdout

    def completion(self, name):
        return str(build / 'pages' / 'completion' / name)


class Bash(Shell):
    program = 'bash'

    def complete(self, line):
        code = ('source "$1"; shift; compopt() { :; }; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
                'handler=$(complete -p "$1" | sed "s/.*-F \\([^ ]*\\).*/\\1/"); "$handler"; printf "%s\\n" "${COMPREPLY[@]}"')
        return self.run_shell('bash', '-c', code, 'bash', self.completion('voxlith.bash'), *line.split(' ')).split()

    def test_words_options_and_files(self):
        for line, offered in [('voxlith-tools pre', ['predict']), ('voxlith-tools mtx --tol', ['--tolerance']),
                              ('voxlith-tools mtx --type gx', ['gxx', 'gxy', 'gxz']), ('voxlith-tools obs a.csv --z-unit k', ['km']),
                              ('voxlith-tools mtx --mesh bl', ['blocks.msh']), ('voxlith-tools report r', ['run1']),
                              ('voxlith m', ['mine.inp']), ('voxlith mine.inp N', ['NOFAST']), ('voxlith mine.inp Tr', ['Tradeoff=']),
                              ('voxlith-run-mpi mine.inp Tr', ['Tradeoff=']), ('voxlith-run --json-log runl', ['runlog.txt']),
                              ('voxlith-run --threads ', []), ('voxlith-plot run1 --only data se', ['sections']),
                              ('voxlith-plot run1 --at ', ['peak', 'largest', 'middle']), ('voxlith-tools bounds --mesh x.msh bl', [])]:
            with self.subTest(line=line):
                self.assertEqual(self.complete(line), offered)

    def test_every_option_is_offered(self):
        for command, found in help_of_all().items():
            if command not in ('voxlith', 'voxlith-tools'):
                with self.subTest(command=command):
                    self.assertEqual(self.complete(command + ' --'), ['--' + option.name for option in found.options])


class Zsh(Shell):
    """A shell on a pseudo-terminal; the programs are functions that show the line they were called with."""

    program = 'zsh'
    SCRIPT = r'''
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell "PS1=; fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -D; cd $2;" \
    'for p in voxlith voxlith-run voxlith-tools voxlith-plot; do eval "$p() { print -r -- GOT:\$*: }"; done; print READY'
zpty -r shell line '*READY*'
for words in "${@:3}"; do
    zpty -w shell "$words"$'\t'
    zpty -r shell line '*GOT:*:*'
    print -r -- ${${line##*GOT:}%%:*}
done
zpty -d shell
'''

    def test_words_options_and_files(self):
        cases = {'voxlith-tools pre': 'predict', 'voxlith-tools mtx --tol': 'mtx --tolerance', 'voxlith-tools obs a.csv --z-unit k':
                 'obs a.csv --z-unit km', 'voxlith-tools mtx --mesh bl': 'mtx --mesh blocks.msh', 'voxlith-tools report r': 'report run1/',
                 'voxlith m': 'mine.inp', 'voxlith mine.inp Tr': 'mine.inp Tradeoff=', 'voxlith-run mine.inp --js':
                 'mine.inp --json-log', 'voxlith-plot run1 --only data se': 'run1 --only data sections'}
        shown = self.run_shell('zsh', '-f', '-c', self.SCRIPT, 'zsh', str(build / 'pages' / 'completion'), self.folder, *cases)
        without_slash = [line.strip().rstrip('/') for line in shown.splitlines()]
        self.assertEqual(without_slash, [line.rstrip('/') for line in cases.values()])

    def test_syntax(self):
        self.run_shell('zsh', '-n', self.completion('_voxlith'))


class Fish(Shell):
    program = 'fish'

    def complete(self, line):
        program = line.split(' ')[0]
        script = f"source '{self.completion(program + '.fish')}'; complete -C '{line}'"
        return [found.split('\t')[0] for found in self.run_shell('fish', '--no-config', '-c', script).splitlines()]

    def test_words_options_and_files(self):
        for line, offered in [('voxlith-tools pre', ['predict']), ('voxlith-tools mtx --tol', ['--tolerance']),
                              ('voxlith-tools obs a.csv --z-unit k', ['km']), ('voxlith-tools mtx --mesh bl', ['blocks.msh']),
                              ('voxlith-tools report r', ['run1/']), ('voxlith m', ['mine.inp']), ('voxlith mine.inp Tr', ['Tradeoff=']),
                              ('voxlith-run mine.inp --js', ['--json-log']), ('voxlith-plot run1 --only se', ['sections'])]:
            with self.subTest(line=line):
                self.assertEqual(self.complete(line), offered)

    def test_syntax(self):
        for program in completions.PROGRAMS:
            self.run_shell('fish', '-n', self.completion(program + '.fish'))


if __name__ == '__main__':
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True, type=pathlib.Path, help='where the programs were built')
    asked, rest = parser.parse_known_args()
    build = asked.build.resolve()
    unittest.main(argv=[sys.argv[0]] + rest)
