#!/usr/bin/env python3
"""Follows the tutorials word for word, in a folder that looks like a clone with a finished build.

    tutorial_test.py --build DIR [--accept] [PAGE ...]     pages such as tutorial-gravity.md; default: all

What the pages show must be what the programs say and leave; each picture of a page must come out of its commands:

    <!-- picture pictures/NAME.png plots/sections.png -->   the picture of the page, and the file that the commands make

--accept writes what the programs say into the pages and the pictures into docs/pictures.
"""
import argparse
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
DOCS = os.path.join(ROOT, 'docs')
sys.dont_write_bytecode = True
sys.path.insert(0, HERE)
from doc_blocks import Session, blocks_of, masked  # noqa: E402

PICTURE = re.compile(r'^<!-- picture (\S+) (\S+) -->\n!\[[^\]]+\]\((\S+)\)$', re.M)


class TutorialSession(Session):
    """One shell from the first block to the last: its folder and its variables stay."""

    def __init__(self, clone):
        super().__init__(clone, '')
        self.environment['PATH'] = os.environ['PATH']
        self.clone = clone

    def run(self, block):
        state = os.path.join(self.clone, '.state')
        script = '\n'.join(block.lines) + '\nexport -p >%s\n' % state
        before = '. %s\n' % state if os.path.exists(state) else ''
        done = subprocess.run(['bash', '-e', '-c', before + 'cd "%s"\n' % self.folder + script + 'pwd >%s.folder\n' % state],
                              cwd=self.clone, env=self.environment, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              timeout=600)
        self.output = done.stdout.splitlines()
        if done.returncode:
            raise RuntimeError('the commands of line %d end with status %d:\n%s' % (block.number, done.returncode, done.stdout))
        with open(state + '.folder') as f:
            self.folder = f.read().rstrip('\n')


def lay_clone(folder, build):
    """What a newcomer has in front of him behind the first command of the README."""
    for name in ('docs', 'scripts', 'examples', 'tools', 'python'):
        os.symlink(os.path.join(ROOT, name), os.path.join(folder, name))
    os.makedirs(os.path.join(folder, 'build'))
    os.symlink(os.path.abspath(build), os.path.join(folder, 'build', 'release'))


def follow(text, session):
    """Goes through a page; returns (first line, what it shows, what it should show) of each difference."""
    differences = []
    for block in blocks_of(text):
        if block.kind == 'run':
            session.run(block)
        elif block.kind == 'file':
            session.write(block)
        elif block.kind in ('screen', 'excerpt'):
            expected = session.expected(block)
            if [masked(line) for line in expected] != [masked(line) for line in block.lines]:
                differences.append((block.first, block.lines, expected))
        else:
            raise ValueError('line %d: a tutorial has no "%s" blocks' % (block.number, block.kind))
    return differences


def unmarked_commands(text):
    """Lines of the shell blocks that no mark stands in front of: nobody would notice that they no longer work."""
    return [n for n, (mark, line) in enumerate(zip([''] + text.split('\n'), text.split('\n')), 1)
            if line == '```sh' and not mark.startswith('<!-- run')]


def check(page, build, accept):
    """Follows a page; returns what is wrong with it."""
    path = os.path.join(DOCS, page)
    with open(path) as f:
        text = f.read()
    clone = tempfile.mkdtemp(prefix='voxlith-tutorial-')
    try:
        lay_clone(clone, build)
        session = TutorialSession(clone)
        problems = ['line %d: commands that are not run' % n for n in unmarked_commands(text)]
        differences = follow(text, session)
        pictures = PICTURE.findall(text)
        if not pictures:
            problems.append('no picture')
        for shown, made, linked in pictures:
            source = os.path.join(session.folder, made)
            if shown != linked or not os.path.exists(source) or os.path.getsize(source) < 5000:
                problems.append('the commands do not make the picture %s' % shown)
            elif accept:
                shutil.copy(source, os.path.join(DOCS, shown))
            elif not os.path.exists(os.path.join(DOCS, shown)):
                problems.append('docs/%s is missing' % shown)
    finally:
        shutil.rmtree(clone)
    if accept:
        lines = text.split('\n')
        for first, shown, expected in reversed(differences):
            lines[first:first + len(shown)] = expected
        with open(path, 'w') as f:
            f.write('\n'.join(lines))
        return problems
    return problems + ['line %d: the programs leave\n%s\nand the page shows\n%s' % (first + 1, '\n'.join(expected), '\n'.join(shown))
                       for first, shown, expected in differences]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--build', required=True)
    parser.add_argument('--accept', action='store_true')
    parser.add_argument('pages', nargs='*')
    asked = parser.parse_args()
    pages = asked.pages or sorted(os.path.basename(p) for p in glob.glob(os.path.join(DOCS, 'tutorial-*.md')))
    failed = not pages
    for page in pages:
        problems = check(page, asked.build, asked.accept)
        print('%s: %s' % (page, 'ok' if not problems else 'FAILED'), flush=True)
        for problem in problems:
            print('  ' + problem)
        failed = failed or bool(problems)
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
