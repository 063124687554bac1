#!/usr/bin/env python3
"""Holds the documents and the manual pages to the programs.

    docs_test.py --build DIR [--accept] [Commands | Guides | Readme | Numbers | Options | Messages | Stops | Links | Compatibility | Modules | ManualPages ...]

The commands in docs/ are run and what the documents show is compared with what the programs leave; options, messages and links are
compared with the programs, the sources and the files. --accept writes what the programs leave into the documents.
"""
import argparse
import ast
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.dont_write_bytecode = True
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(ROOT, 'scripts', 'pages'))
from doc_blocks import Session, blocks_of, masked  # noqa: E402
from make_pages import help_of_all  # noqa: E402
from option_tables import with_tables  # noqa: E402

DOCS = os.path.join(ROOT, 'docs')
MAN = os.path.join(ROOT, 'man')
MADE_PAGES = ['voxlith-run.1', 'voxlith-tools.1', 'voxlith-plot.1']  # from the help of the programs
PAGES = ['voxlith.1', 'voxlith-run.1', 'voxlith-tools.1', 'voxlith-inp.5', 'voxlith-mtx.5']
REFERENCE_PAGES = ['formats.md', 'control-file.md', 'command-line.md', 'log-and-tables.md', 'voxlith-run.md']
GUIDE_PAGES = ['survey.md', 'terrain.md', 'regional.md', 'ubc-files.md', 'own-matrix.md', 'case-hamersley.md']
OPTION_PAGES = ['command-line.md', 'voxlith-run.md', 'pictures-of-a-run.md']
LINKED_PAGES = ['README.md', 'CONTRIBUTING.md', 'bench/README.md', 'fuzz/README.md', 'python/README.md']
NUMBER_PAGES = ['choosing-parameters.md', 'when-it-does-not-fit.md']
STOP_PAGES = ['control-file.md', 'command-line.md', 'log-and-tables.md']
build = ''
accept = False


def read(*path):
    with open(os.path.join(*path)) as f:
        return f.read()


def manual_page(name):
    """A manual page, written by hand or made from the help of its program."""
    return read(*((build, 'pages', 'man') if name in MADE_PAGES else (MAN,)), name)


def without_blocks(text):
    return re.sub(r'(?ms)^```.*?^```$', '', text)


class PageTest(unittest.TestCase):
    """What the commands of a page leave is what the page shows."""

    def session(self, folder):
        # Debian packs NumPy for its own interpreter.
        session = Session(folder, os.pathsep.join([build, os.path.join(build, 'tools'), '/usr/bin']))
        session.environment['PYTHONPATH'] = os.path.join(ROOT, 'python')
        return session

    def go_through(self, name, session, differences):
        """Goes through the blocks of a page. Differences are (first line of the content, content, what it should be)."""
        for block in blocks_of(read(DOCS, name)):
            if block.kind == 'continues':
                self.go_through(block.words, session, None)
            elif block.kind == 'example':
                subprocess.run([sys.executable, os.path.join(ROOT, 'examples', 'run_example.py'), block.words, '--build', build,
                                '--work', session.folder], check=True, stdout=subprocess.DEVNULL, timeout=600)
            elif block.kind == 'files':
                for path in block.words.split():
                    shutil.copy(os.path.join(ROOT, path), session.folder)
            elif block.kind == 'file':
                session.write(block)
            elif block.kind == 'run':
                session.run(block)
            elif differences is not None:
                expected = session.expected(block)
                if [masked(line) for line in expected] != [masked(line) for line in block.lines]:
                    differences.append((block.first, block.lines, expected))

    def check_page(self, name):
        folder = tempfile.mkdtemp(prefix='voxlith-docs-')
        try:
            differences = []
            self.go_through(name, self.session(folder), differences)
        finally:
            shutil.rmtree(folder)
        if accept and differences:
            lines = read(DOCS, name).split('\n')
            for first, shown, expected in reversed(differences):
                lines[first:first + len(shown)] = expected
            with open(os.path.join(DOCS, name), 'w') as f:
                f.write('\n'.join(lines))
            return
        for first, shown, expected in differences:
            self.fail('docs/%s, line %d: the programs leave\n%s\n\nand the page shows\n%s'
                      % (name, first + 1, '\n'.join(expected), '\n'.join(shown)))


class Commands(PageTest):
    """The pages of reference."""


class Guides(PageTest):
    """The pages that lead through a piece of work."""


class Readme(unittest.TestCase):
    """The tables and commands of the README."""

    def section(self, heading):
        return read(ROOT, 'README.md').split('\n## %s\n' % heading)[1].split('\n## ')[0]

    def test_table_is_that_of_the_first_example(self):
        """The gallery shows what the example says, and its own test runs the example."""
        chapter = read(DOCS, 'gallery.md').split('\n## two_blocks\n')[1].split('\n## ')[0]
        shown = re.search(r'(?s)```\n(RMS misfit.*?)\n```', read(ROOT, 'README.md')).group(1)
        self.assertGreater(len(shown.splitlines()), 5)
        self.assertIn(shown, chapter)

    def test_scripts_are_there(self):
        for script in set(re.findall(r'\bscripts/[a-z-]+', read(ROOT, 'README.md'))):
            with self.subTest(script=script):
                self.assertTrue(os.access(os.path.join(ROOT, script), os.X_OK))

    def test_own_survey(self):
        """The lines to a first own survey, with the table of the gravity tutorial as the survey."""
        commands = re.search(r'(?s)```sh\n(.*?)\n```', self.section('Your own survey')).group(1)
        folder = tempfile.mkdtemp(prefix='voxlith-docs-')
        try:
            shutil.copy(os.path.join(DOCS, 'tutorial', 'gravity.csv'), os.path.join(folder, 'survey.csv'))
            path = build + os.pathsep + os.path.join(build, 'tools') + os.pathsep + os.environ['PATH']
            done = subprocess.run(['sh', '-e', '-c', commands], cwd=folder, env=dict(os.environ, PATH=path), text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600)
            self.assertEqual(done.returncode, 0, done.stdout)
            made = os.listdir(folder)
            for name in ('voxlith.den', 'voxlith_tradeoff.csv', 'report.html'):
                self.assertIn(name, made)
        finally:
            shutil.rmtree(folder)


class Numbers(PageTest):
    """The pages whose numbers come from many runs of an example."""


def add_page_tests(case, names):
    for name in names:
        setattr(case, 'test_' + re.sub(r'\W', '_', name[:-3]), lambda self, name=name: self.check_page(name))


def subcommand_help():
    """Options of each subcommand of voxlith-tools, by its own help."""
    program = os.path.join(build, 'tools', 'voxlith-tools')
    ask = lambda *words: subprocess.run([program, *words, '--help'], check=True, stdout=subprocess.PIPE, text=True, timeout=60).stdout
    commands = re.findall(r'(?m)^  ([a-z-]+) ', ask().split('subcommands,')[1])
    option = r'(?m)^  (?:-\w, ?)?(--[a-z0-9-]+)(?![a-z0-9-]| +Show the version)'
    return {command: set(re.findall(option, ask(command))) - {'--help'} for command in commands}


class Options(unittest.TestCase):
    """Every option of the programs stands in the pages and in the manual pages, and no other."""

    def setUp(self):
        self.commands = subcommand_help()
        self.assertGreaterEqual(set(self.commands), {'mtx', 'info', 'predict'})
        self.assertIn('--mesh', self.commands['mtx'])

    def test_reference(self):
        sections = re.split(r'(?m)^### voxlith-tools ', read(DOCS, 'command-line.md'))[1:]
        documented = {}
        for section in sections:
            documented[section.split('\n')[0].strip()] = set(re.findall(r'(?m)^\| `(--[a-z0-9-]+)', section))
        self.assertEqual(documented, self.commands)

    def test_tables_have_the_text_of_the_help(self):
        """--accept writes the tables of the pages anew."""
        commands = help_of_all(pathlib.Path(build))
        marked = []
        for name in OPTION_PAGES:
            page = read(DOCS, name)
            expected, found = with_tables(page, commands)
            marked += found
            if accept:
                with open(os.path.join(DOCS, name), 'w') as f:
                    f.write(expected)
                continue
            for shown, wanted in zip(page.split('\n'), expected.split('\n')):
                self.assertEqual(shown, wanted, 'docs/%s: docs_test.py --build DIR --accept Options writes the tables anew' % name)
            self.assertEqual(page, expected, 'docs/' + name)
        self.assertEqual(sorted(marked), sorted(set(commands) - {'voxlith', 'voxlith-tools'}))

    def test_commands_of_all_pages_have_known_options(self):
        """Those of blocks that no test runs, too."""
        commands = help_of_all(pathlib.Path(build))
        total = 0
        for name in ['README.md', 'python/README.md'] + ['docs/' + n for n in sorted(os.listdir(DOCS)) if n.endswith('.md')]:
            for block in re.findall(r'(?ms)^```sh\n(.*?)^```$', read(ROOT, name)):
                for line in block.replace('\\\n', ' ').split('\n'):
                    found = re.search(r'\b(voxlith-tools [a-z-]+|voxlith-run|voxlith-plot)(?![\w-]) (.*)', line.split(' #')[0])
                    if not found or '$options' in line or found[1].startswith('voxlith-tools --'):
                        continue
                    total += 1
                    with self.subTest(page=name, command=found[0]):
                        self.assertIn(found[1], commands)
                        known = {'--' + option.name for option in commands[found[1]].options}
                        words = re.split(r'[|;&<>)]', found[2])[0]
                        self.assertLessEqual(set(re.findall(r'(?<!\S)--[a-z][a-z0-9-]*', words)), known)
        self.assertGreater(total, 150)

    def test_manual_page(self):
        page = manual_page('voxlith-tools.1')
        sections = re.split(r'(?m)^\.Ss ', page)[1:]
        documented = {}
        for section in sections:
            section = re.split(r'(?m)^\.Sh ', section)[0]
            options = re.findall(r'(?m)^\.It Fl Fl ([a-z0-9-]+)', section)
            documented[section.split('\n')[0].strip()] = {'--' + option for option in options}
        self.assertEqual(documented, self.commands)

    def test_options_of_voxlith_run(self):
        """Every option of voxlith-run stands on its page and in its manual page, and no other."""
        shown = subprocess.run([os.path.join(build, 'voxlith-run'), '--help'], check=True, stdout=subprocess.PIPE, text=True).stdout
        options = set(re.findall(r'(?m)^  (?:-\w, )?(--[a-z-]+)', shown))
        self.assertIn('--continue', options)
        self.assertEqual(set(re.findall(r'(?m)^\| `(--[a-z-]+)', read(DOCS, 'voxlith-run.md'))), options - {'--help', '--version'})
        self.assertEqual({'--' + name for name in re.findall(r'(?m)^\.It (?:Fl h , )?Fl Fl ([a-z-]+)', manual_page('voxlith-run.1'))}, options)

    def test_keywords(self):
        source = read(ROOT, 'src', 'driver', 'command_line.cpp')
        spellings = set()
        for group in re.findall(r'beginsWithOneOf\(argument, \{([^}]*)\}', source):
            spellings |= set(re.findall(r'"(\w+)"', group))
        self.assertEqual(len(spellings), 15)
        for name, text in (('docs/command-line.md', read(DOCS, 'command-line.md')), ('man/voxlith.1', read(MAN, 'voxlith.1'))):
            words = set(re.findall(r'\w+', text))
            self.assertEqual(spellings - words, set(), 'not in ' + name)
            self.assertIn('NOFAST', words, name)


def literals_of(*folders):
    """The texts of all string literals in the sources."""
    found = set()
    for folder in folders:
        for place, _, names in os.walk(os.path.join(ROOT, folder)):
            for name in sorted(names):
                if not name.endswith(('.cpp', '.h')):
                    continue
                text = re.sub(r'(?m)(^|\s)//.*$', '', read(place, name))
                for literal in re.findall(r'"((?:[^"\\\n]|\\.)*)"', text):
                    found.add(ast.literal_eval('"' + literal + '"').rstrip('\n'))
    return found


def tiled(text, literals):
    """Whether the text is a row of literals, each whole."""
    reached = [True] + len(text) * [False]
    for at in range(len(text)):
        if reached[at]:
            for literal in literals:
                if literal and text.startswith(literal, at):
                    reached[at + len(literal)] = True
    return reached[-1]


def stops_quoted(name):
    """Messages quoted as stops: `- Stop: ...` lines, and the first column of tables with the heading "message"."""
    quoted, in_table = [], False
    for number, line in enumerate(read(DOCS, name).split('\n'), 1):
        in_table = line.startswith('|') and (in_table or line.startswith('| message |'))
        found = re.match(r'- Stop: `([^`]+)`', line) or (in_table and re.match(r'\| `([^`]+)` \|', line))
        if found:
            quoted.append((number, found.group(1)))
        elif in_table and not re.match(r'\| message|\|---', line):
            raise ValueError('%s, line %d: a row without a message' % (name, number))
    return quoted


class Messages(unittest.TestCase):
    def test_quoted_messages_exist(self):
        """Messages in the documents are put together from literals of the sources; <...> stands for what varies."""
        literals = literals_of('src')
        total = 0
        for name in STOP_PAGES:
            for number, message in stops_quoted(name):
                total += 1
                for part in re.split(r'<[^>]*>', message):
                    with self.subTest(page=name, line=number, part=part):
                        self.assertTrue(tiled(part, literals), 'no such message in the sources')
        self.assertGreater(total, 80)

    def test_messages_are_documented(self):
        """Every message that begins with "Error" and every file "not found" of the sources stands in the documents."""
        documented = '\n'.join(message for name in STOP_PAGES for _, message in stops_quoted(name))
        wanted = [text for text in literals_of('src') if re.match(r' ?(An )?(Error:?|error) \w', text)]
        wanted += [text for text in literals_of('src') if re.match(r' (There was|The number of data|The data file|No line|Not enough)', text)]
        self.assertGreater(len(wanted), 30)
        # The screen's shorter copies of two messages are told beside them; this one is a copy of a condition that never holds;
        # the last is a warning after which the run goes on.
        spared = {'Error: the number of mesh for the second mtx file is different to the first',
                  'Error: the number of padded mesh for the second mtx file is different to the first',
                  'Error: the lower bound value is greater than the upper bound',
                  ' Not enough memory available so idisk was switched to 1'}
        for text in sorted(set(wanted) - spared):
            with self.subTest(message=text):
                self.assertIn(text, documented)


# Line of the control file, what stands there, and the message as the documents quote it.
BROKEN_LINES = [
    (1, '', '<control file>, line <n>: expected <what>, found "<text>"'),
    (1, '0 7', 'Error: the number of MTX files must be between 1 and 6. Number specified was:<n>'),
    (1, '0 1 0', 'Error: the number of number of data types must be between 1 and 6. Number specified was:<n>'),
    (1, '0 1 1 9', 'Error: the number of number of model types must be between 1 and 6. Number specified was:<n>'),
    (1, '0 1 1 2 a/b c', '<control file>, line 1: expected a model label without "/", found "<label>"'),
    (1, '0 1 2 1', 'Error: the number of mtx product definitions is different to the number of observed data types'),
    (1, '1', ' Model File <name> not found'),
    (2, 'two', '<control file>, line <n>: expected the integer iMode, found "<text>"'),
    (3, '0.01', '<control file>, line <n>: expected two numbers, trade-off and tolc, found "<text>"'),
    (3, '0.01 0.02 1 400', ' The data file does not appear to have the required line/time values'),
    (4, '', 'Error: the observed data file has not been defined'),
    (4, 'absent.obs', 'Error: the observed data file does not exist:<name>'),
    (4, 'words.txt', '<file>, line <n>: expected the number of data, found "<text>"'),
    (4, 'short.obs', ' The number of data values in the file does not match the header count'),
    (5, 'absent.mtx', 'Error: the mtx file does not exist:<name>'),
    (5, 'gz.obs', '<file>: byte <n>: expected <what>, found <what>'),
    (6, '-0.5', 'Error: the specified model value is invalid because it conflicts with the model positivity flag'),
    (6, 'absent.den', ' Model File <name> not found'),
    (7, 'block.msh', ' An error occurred while reading the model <name>'),
    (8, 'absent.bnd', ' Bounds File <name> not found'),
    (8, 'block.msh', ' Error occurred while reading the model <name>'),
    (9, '1 1 1', '<control file>, line <n>: expected four numbers, alphaS alphaE alphaN alphaZ, found "<text>"'),
    (9, '-1 1 1 1', 'Error: the alpha values cannot be negative. Values specified: <text>'),
    (9, '0 0 0 0', 'Error: the alpha values cannot all be zero. Values specified: <text>'),
    (10, 'absent.w', ' File <name> not found'),
    (10, 'block.den', '<file>, line <n>: expected <what>, found the end of the file'),
]


class Stops(unittest.TestCase):
    """Control files with one broken line end with the message that the documents quote, and with its exit status."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix='voxlith-docs-')
        session = Session(cls.folder, build + os.pathsep + os.path.join(build, 'tools'))
        for block in blocks_of(read(DOCS, 'formats.md')):
            if block.kind == 'file':
                session.write(block)
            elif block.kind == 'run':
                session.run(block)
            if os.path.exists(os.path.join(cls.folder, 'voxlith.inp')):
                break
        cls.lines = read(cls.folder, 'voxlith.inp').split('\n')
        with open(os.path.join(cls.folder, 'words.txt'), 'w') as f:
            f.write('x y z\n')
        with open(os.path.join(cls.folder, 'short.obs'), 'w') as f:
            f.writelines(read(cls.folder, 'gz.obs').splitlines(keepends=True)[:-1])

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def test_broken_lines(self):
        quoted = {message for name in STOP_PAGES for _, message in stops_quoted(name)}
        for line, text, message in BROKEN_LINES:
            with self.subTest(line=line, text=text):
                self.assertIn(message, quoted)
                lines = list(self.lines)
                lines[line - 1] = text
                with open(os.path.join(self.folder, 'broken.inp'), 'w') as f:
                    f.write('\n'.join(lines))
                done = subprocess.run([os.path.join(build, 'voxlith'), 'broken.inp'], cwd=self.folder, text=True,
                                      stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)
                pattern = '.*'.join(re.escape(part) for part in re.split('<[^>]*>', message))
                own = message.startswith(('Error', ' '))
                self.assertRegex(done.stdout if own else done.stderr, '(?m)^%s *$' % pattern)
                self.assertEqual(done.returncode, 0 if own else 2)
                self.assertRegex(read(self.folder, 'voxlith.log') if line > 1 or text else message, '(?m)^' + pattern)
                self.assertNotIn('VOXLITH ended on', read(self.folder, 'voxlith.log') if line > 1 or text else '')


def anchors_of(text):
    """The anchors that the headings of a page get on the web."""
    anchors = set()
    for heading in re.findall(r'(?m)^#+ (.+)$', without_blocks(text)):
        plain = re.sub(r'[^\w\- ]', '', heading.lower())
        anchors.add(plain.strip().replace(' ', '-'))
    return anchors


class Links(unittest.TestCase):
    def test_links_resolve(self):
        pages = LINKED_PAGES + ['docs/' + n for n in sorted(os.listdir(DOCS)) if n.endswith('.md')]
        total = 0
        for page in pages:
            folder = os.path.dirname(os.path.join(ROOT, page))
            for target in re.findall(r'\]\(([^)\s]+)\)', without_blocks(read(ROOT, page))):
                if re.match(r'[a-z]+:', target):
                    continue
                total += 1
                with self.subTest(page=page, link=target):
                    path, _, anchor = target.partition('#')
                    path = os.path.normpath(os.path.join(folder, path)) if path else os.path.join(ROOT, page)
                    self.assertTrue(os.path.exists(path), 'no such file')
                    if anchor:
                        self.assertIn(anchor, anchors_of(read(path)), 'no such heading')
        self.assertGreater(total, 40)

    def test_every_page_is_reached(self):
        """From the contents and from the site; the README leads to the contents."""
        contents, site = read(DOCS, 'index.md'), read(ROOT, 'mkdocs.yml')
        self.assertIn('(docs/index.md)', read(ROOT, 'README.md'))
        for name in sorted(os.listdir(DOCS)):
            if name.endswith('.md') and name != 'index.md':
                with self.subTest(page=name):
                    self.assertIn('(%s)' % name, contents)
                    self.assertIn(': %s\n' % name, site)


class Compatibility(unittest.TestCase):
    """The page on compatibility names the files that carry the tag, and no others."""

    TAG = re.compile(r'// Compatibility: .+[.]$')

    def tagged(self):
        found = {}
        for folder, _, names in os.walk(os.path.join(ROOT, 'src')):
            for name in names:
                path = os.path.relpath(os.path.join(folder, name), ROOT)
                lines = [line for line in read(ROOT, path).splitlines() if 'Compatibility:' in line]
                if lines:
                    found[path] = lines
        return found

    def test_page_and_sources_agree(self):
        named = set(re.findall(r'`(src/[^`]+)`', read(DOCS, 'compatibility.md')))
        self.assertEqual(sorted(named), sorted(self.tagged()))

    def test_each_tag_is_one_sentence_on_one_line(self):
        for path, lines in self.tagged().items():
            for line in lines:
                with self.subTest(path=path, line=line.strip()):
                    self.assertRegex(line, self.TAG)


class Modules(unittest.TestCase):
    """Dependencies between the modules point down only, as docs/architecture.md has them."""

    def test_includes_point_down(self):
        chain = re.search(r'point down only: ([^.]*)\.', read(DOCS, 'architecture.md')).group(1)
        levels = [level.split(', ') for level in chain.split(' > ')]
        modules = [module for level in levels for module in level]
        self.assertEqual(sorted(modules), sorted(next(os.walk(os.path.join(ROOT, 'src')))[1]))
        rank = {module: n for n, level in enumerate(levels) for module in level}
        for folder, _, names in os.walk(os.path.join(ROOT, 'src')):
            module = os.path.relpath(folder, os.path.join(ROOT, 'src')).split(os.sep)[0]
            for name in names if module in rank else []:
                for other in re.findall(r'(?m)^#include "(\w+)/', read(folder, name)):
                    with self.subTest(file=os.path.join(folder, name), includes=other):
                        self.assertTrue(other == module or rank[other] > rank[module] or
                                        (rank[other] == rank[module] and other in ('base', 'simd')))


class ManualPages(unittest.TestCase):
    def test_no_warnings(self):
        pages = sorted(name for name in os.listdir(MAN) if not name.endswith('.in')) + MADE_PAGES
        self.assertGreaterEqual(set(pages), set(PAGES))
        for page in pages:
            with self.subTest(page=page):
                done = subprocess.run(['groff', '-mandoc', '-Tutf8', '-ww'], input=manual_page(page), stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE, text=True, timeout=60)
                self.assertEqual((done.returncode, done.stderr), (0, ''))
                self.assertGreater(len(done.stdout.splitlines()), 60)

    def test_pages_name_each_other(self):
        for page in PAGES:
            name, section = page.rsplit('.', 1)
            for other in PAGES:
                if other != page:
                    self.assertIn('.Xr %s %s' % (name, section), manual_page(other))


add_page_tests(Commands, REFERENCE_PAGES)
add_page_tests(Guides, GUIDE_PAGES)
add_page_tests(Numbers, NUMBER_PAGES)

if __name__ == '__main__':
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True, help='where the programs were built')
    parser.add_argument('--accept', action='store_true', help='write what the programs leave into the documents')
    asked, rest = parser.parse_known_args()
    build, accept = os.path.abspath(asked.build), asked.accept
    unittest.main(argv=[sys.argv[0]] + rest)
