"""The blocks of the documents that are more than text: files, commands, and what the programs leave.

A comment in front of a fenced block says what it is:

    <!-- file NAME -->            the block is written into the file NAME
    <!-- run -->                  the block is run by a shell, which must succeed
    <!-- run: stops -->           the same; the inversion ends early here
    <!-- screen 3-9 -->           lines 3 to 9 of what the last commands wrote; several ranges stand apart by "..."
    <!-- excerpt NAME 1-4,20 -->  lines of a file; long gaps as above
    <!-- continues OTHER.md -->   (anywhere) the blocks of OTHER.md run first, in the same folder
    <!-- example NAME -->         (anywhere) the files of this example lie in the folder
    <!-- files PATH ... -->       (anywhere) these files of the source tree lie in the folder

Dates and times are masked; trailing blanks do not count.
"""
import os
import re
import subprocess

COMMENT = re.compile(r'^<!-- (file|run|screen|excerpt|continues|example|files)\b:? ?(.*?) ?-->$')


class Block:
    def __init__(self, kind, words, number, first, lines):
        self.kind, self.words, self.number = kind, words, number
        self.first, self.lines = first, lines  # where the content begins in the document (from 0), and the content


def blocks_of(text):
    """The marked blocks in order. Raises ValueError where a mark has no block behind it."""
    lines = text.split('\n')
    found, at = [], 0
    while at < len(lines):
        mark = COMMENT.match(lines[at])
        at += 1
        if not mark:
            continue
        kind, words = mark.groups()
        if kind in ('continues', 'example', 'files'):
            found.append(Block(kind, words, at, at, []))
            continue
        if at >= len(lines) or not lines[at].startswith('```'):
            raise ValueError('line %d: no block behind the mark' % at)
        end = lines.index('```', at + 1)
        found.append(Block(kind, words, at, at + 1, lines[at + 1:end]))
        at = end + 1
    return found


def masked(line):
    line = re.sub(r'[ \d]\d/\d\d/\d{4}  [\d:]{8}', 'DATE', line.rstrip())
    line = re.sub(r'(time taken \(mins\): +|OH [A-Za-z_ ]+: +|^time: +)[\d.*]+', r'\1TIME', line)
    line = re.sub(r'(time, steps\+: ) *[\d.]+', r'\1TIME', line)
    return re.sub(r'^((?:\S+ )? {4}[ \d]{8}.{42}) *[\d.]+( +\d+\+)?$', r'\1 TIME\2', line)


def selected(lines, ranges):
    """Lines by ranges such as 1-4,20; several ranges stand apart by a line of three dots."""
    out = []
    for part in ranges.split(','):
        first, _, last = part.partition('-')
        first, last = int(first), int(last or first)
        if last > len(lines):
            raise ValueError('there are only %d lines, not %d' % (len(lines), last))
        out += (['...'] if out else []) + [line.rstrip() for line in lines[first - 1:last]]
    return out


class Session:
    """A folder in which the blocks of a document are gone through."""

    def __init__(self, folder, path):
        self.folder, self.output = folder, []
        self.environment = dict(os.environ, PATH=path + os.pathsep + os.environ['PATH'], LC_ALL='C')

    def write(self, block):
        with open(os.path.join(self.folder, block.words), 'w') as f:
            f.write('\n'.join(block.lines) + '\n')

    def run(self, block):
        done = subprocess.run(['sh', '-e', '-c', '\n'.join(block.lines)], cwd=self.folder, env=self.environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600)
        self.output = done.stdout.splitlines()
        if done.returncode:
            raise RuntimeError('the commands of line %d end with status %d:\n%s' % (block.number, done.returncode, done.stdout))
        return done.stdout

    def expected(self, block):
        """What a screen or excerpt block has to show."""
        if block.kind == 'screen':
            return selected(self.output, block.words)
        name, ranges = block.words.split()
        with open(os.path.join(self.folder, name)) as f:
            return selected(f.read().splitlines(), ranges)
