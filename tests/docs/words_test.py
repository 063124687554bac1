#!/usr/bin/env python3
"""Holds the words of the documents to the field's standard terms, and the length of their sentences to 35 words.

    words_test.py [FILE ...]        without files: README, CONTRIBUTING, docs/, manual pages, bench/, fuzz/, examples/
"""
import glob
import os
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LONGEST_SENTENCE = 35

# Pattern of a term to avoid, and the term to use.
AVOIDED = [
    (r'(?<!standard\s)\bdeviations?\b', 'standard deviation, uncertainty'),
    (r'\bheld (fixed|back|at|against|to)\b|\bcells? (is|are) held\b', 'fixed, limited, compared with'),
    (r'\bcells? of (air|ground)\b', 'inactive cells, active cells'),
    (r'\babsent cells?\b', 'no-data cells'),
    (r'\bmade data\b', 'synthetic data'),
    (r'\bclosed-form\b', 'analytical'),
    (r'\btaps\b(?![`\'"])', 'filter length'),
    (r'\brows repeat\b', 'stalled'),
    (r'\bheaps?\b', 'histogram'),
    (r'\brims?\b', 'edge'),
    (r'\bdear(er|est)?\b', 'expensive'),
    (r'\blight (body|bodies)\b', 'low-density body'),
    (r'\bremarks?\b', 'comment'),
    (r'\bwork(s|ed)? out\b', 'compute'),
    (r'\b(tell|tells|told)\b', 'report, show'),
    (r'\b(mend|mends|mended)\b', 'fix'),
    (r'\bpass(es|ed)? over\b(?= (without|in silence|unknown|what))', 'ignore'),
    (r'\ba row a station\b|\bone density a column\b', 'one row per station'),
    (r'\bmodel of units\b', 'lithology model'),
    (r'\bsome (two|three|four|five|ten|\d+) (minutes|seconds|hours)\b', 'about'),
    (r'\b(rooms?|houses?|wishes|doubts?|contests?|leisure|foretell)\b', 'a plain technical term'),
    (r'\bbehind\b', 'after, end'),
    (r'\bby custom\b', 'by default'),
    (r'\bstands? apart by\b', 'separated by'),
    (r'\bare held\b', 'are fixed'),
    (r'\btakes? off\b|\btaken off\b', 'remove'),
    (r'\ba level of\b|\ba level\b(?! (surface|road))', 'a constant offset'),
]

# In pages only: files, tables, messages and manual pages have the plain letters.
UNITS = [(r'g/cm3', 'g/cm³'), (r'\bEotvos\b', 'Eötvös')]


def pages():
    patterns = ['README.md', 'CONTRIBUTING.md', 'docs/**/*.md', 'man/*.[1-9]', 'man/*.[1-9].in', 'bench/*.md', 'fuzz/*.md', 'examples/**/*.md']
    return sorted(path for pattern in patterns for path in glob.glob(os.path.join(ROOT, pattern), recursive=True))


def prose_lines(path):
    """Lines with their numbers; code blocks, code spans, links, comments and tables' rules become empty."""
    with open(path, encoding='utf-8') as file:
        text = file.read()
    blank = lambda match: re.sub(r'[^\n]', ' ', match.group(0))  # noqa: E731
    text = re.sub(r'(?ms)^```.*?^```$', blank, text)
    text = re.sub(r'(?s)<!--.*?-->', blank, text)
    if re.search(r'[.][1-9]([.]in)?$', path):
        text = re.sub(r'(?m)^@\w+@$', '', text)
        text = re.sub(r'(?ms)^[.]Bd.*?^[.]Ed$', blank, text)
        text = re.sub(r'(?m)^[.]([A-Z][a-z]|\\").*$', '', text)
    text = re.sub(r'`[^`\n]*`', 'code', text)
    text = re.sub(r'\]\([^)]*\)', ']', text)
    return text.split('\n')


def avoided_terms(lines, more):
    text = '\n'.join(lines)
    for pattern, better in AVOIDED + more:
        for match in re.finditer(pattern, text, re.IGNORECASE):
            yield text.count('\n', 0, match.start()) + 1, f'"{match.group(0)}": write {better}'


def paragraphs(lines):
    """(line, text) of each paragraph, list item and table row's cell."""
    start, parts = 1, []
    for number, line in enumerate([*lines, ''], start=1):
        stripped = line.strip()
        table = stripped.startswith('|')
        breaks = not stripped or table or re.match(r'([-*#]|\d+[.]) ?', stripped)
        if breaks and parts:
            yield start, ' '.join(parts)
            parts = []
        if table:
            for cell in stripped.strip('|').split('|'):
                yield number, cell.strip()
        elif stripped and not stripped.startswith('#'):
            if not parts:
                start = number
            parts.append(re.sub(r'^([-*]|\d+[.]) ', '', stripped))


def long_sentences(lines):
    for number, text in paragraphs(lines):
        for sentence in re.split(r'(?<=[.!?:;])\s+', text):
            words = re.findall(r'[^\W\d_][\w\'-]*', sentence)
            if len(words) > LONGEST_SENTENCE:
                yield number, f'sentence of {len(words)} words: {" ".join(words[:6])} ...'


def main():
    faults = 0
    for path in sys.argv[1:] or pages():
        lines = prose_lines(path)
        for number, fault in sorted([*avoided_terms(lines, UNITS if path.endswith('.md') else []), *long_sentences(lines)]):
            print(f'{os.path.relpath(path, ROOT)}:{number}: {fault}')
            faults += 1
    if faults:
        print(f'{faults} faults')
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
