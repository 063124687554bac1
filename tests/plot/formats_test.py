"""Each reader: what the program has written comes back; what is damaged gives one exact line; what is unfinished
is left out."""
import contextlib
import io
import os
import random
import unittest

import numpy as np

import surveys
from voxlith_plot import formats
from voxlith_plot.formats import FormatError
from voxlith_plot.text_input import Missing, free_numbers, number


class Numbers(unittest.TestCase):
    def test_forms_of_reals(self):
        for text, value in (('1.5', 1.5), ('1.5d3', 1500.0), ('-2D-1', -0.2), ('0.5-101', 0.5e-101), ('.5+2', 50.0)):
            self.assertEqual(number(text), value)
        for text in ('abc', '1.5x', '', '--1', '1e'):
            self.assertRaises(ValueError, number, text)

    def test_free_format(self):
        self.assertEqual(free_numbers('0.01, 2*5 7 / 9', 9), [0.01, 5.0, 5.0, 7.0])
        self.assertEqual(free_numbers('1 2 3', 2), [1.0, 2.0])
        self.assertEqual(free_numbers('1 two 3', 3), [1.0])


class Control(unittest.TestCase):
    def read(self, **changed):
        path = os.path.join(surveys.ROOT, 'control.inp')
        surveys.write(surveys.ROOT, 'control.inp', surveys.control(**changed))
        return formats.read_control(path)

    def refused(self, words, **changed):
        with self.assertRaises(FormatError) as caught:
            self.read(**changed)
        self.assertEqual(str(caught.exception), os.path.join(surveys.ROOT, 'control.inp') + words)

    def test_separators_of_names(self):
        for text in ('a b.mtx | c.mtx|d.mtx', 'a b.mtx, c.mtx, d.mtx', 'a b.mtx|c.mtx,d.mtx'):
            self.assertEqual(self.read(l1='0 3', l5=text).mtx_files, ['a b.mtx', 'c.mtx', 'd.mtx'], text)
        self.assertEqual(self.read(l1='0 3', l5='a c  d ! names').mtx_files, ['a', 'c', 'd'])
        self.assertEqual(self.read(l5='one file.mtx ! a name').mtx_files, ['one file.mtx'])

    def test_counts(self):
        one = self.read()
        self.assertEqual((one.components, one.models, one.labels, one.terms), (1, 1, [''], [[(0, 0, 1.0)]]))
        two = self.read(l1='0 2', l5='a|b')
        self.assertEqual((two.components, two.models, two.terms), (2, 1, [[(0, 0, 1.0)], [(1, 0, 1.0)]]))
        labelled = self.read(l1='0 2 2 2 density  susceptibility', l5='a|b', l13='1 1 1 1', l14='2 1 1 -0.5 2 2 0.25')
        self.assertEqual(labelled.labels, ['density', 'suscepti'])
        self.assertEqual(labelled.terms, [[(0, 0, 1.0)], [(0, 0, -0.5), (1, 1, 0.25)]])
        self.assertEqual(labelled.amplitude, [False, False])
        self.assertTrue(self.read(l1='0 3 1 1', l5='a|b|c', l13='3 1 1 1.0 2 1 1.0 3 1 1.0 RMS').amplitude[0])

    def test_interval(self):
        self.assertEqual(self.read(l3='0.01 0.02 1 400 ! x').interval, 400.0)
        self.assertEqual(self.read(l3='0.01 0.02 1').interval, 0.0)

    def test_refusals(self):
        self.refused(", line 1: 'x' is no whole number", l1='0 x')
        self.refused(', line 1: 7 sensitivity files; 1 to 6 are possible', l1='0 7')
        self.refused(', line 4: no name of a data file', l4='! d.obs')
        self.refused(', line 5: 2 sensitivity files are needed', l1='0 2', l5='a.mtx|')
        self.refused(', line 13: file 3, model 1: there is no such', l1='0 2', l5='a|b', l13='1 3 1 1.0')
        self.refused(", line 13: 'one' is no number (product definition)", l1='0 2', l5='a|b', l13='one 1 1 1.0')

    def test_short_and_absent(self):
        path = os.path.join(surveys.ROOT, 'short.inp')
        surveys.write(surveys.ROOT, 'short.inp', '0\n2\n')
        with self.assertRaisesRegex(FormatError, r'short.inp ends at line 2: a control file has at least 9 lines$'):
            formats.read_control(path)
        with self.assertRaisesRegex(Missing, r'nowhere.inp is not there$'):
            formats.read_control(os.path.join(surveys.ROOT, 'nowhere.inp'))


class Progress(unittest.TestCase):
    def test_rows_of_whole_runs(self):
        for case, last in ((surveys.gravity, 30), (surveys.continued, 28), (surveys.barrier, 26)):
            progress = formats.read_progress(os.path.join(surveys.made(case), 'voxlith.aux'))
            self.assertEqual(list(progress.iteration), list(range(last + 1)), case.__name__)
            self.assertTrue((progress.steps[progress.steps >= 0] <= 20).all())
        marked = formats.read_progress(os.path.join(surveys.made(surveys.gravity), 'voxlith.aux'))
        self.assertEqual(list(marked.iteration[marked.steps >= 0]), [12, 22])
        marked = formats.read_progress(os.path.join(surveys.made(surveys.continued), 'voxlith.aux'))
        self.assertEqual(list(marked.iteration[marked.steps >= 0]), [16, 26])

    def test_cut_anywhere(self):
        folder = surveys.copy(surveys.gravity)
        path = os.path.join(folder, 'voxlith.aux')
        text = surveys.read(folder, 'voxlith.aux')
        whole = formats.read_progress(path)
        for cut in range(0, len(text), 7):
            surveys.write(folder, 'voxlith.aux', text[:cut])
            rows = max(text[:cut].count('\n') - 3, 0)
            if rows:
                np.testing.assert_array_equal(formats.read_progress(path).total, whole.total[:rows])
            else:
                self.assertRaises(Missing, formats.read_progress, path)

    def test_row_that_ends_early(self):
        folder = surveys.copy(surveys.gravity)
        path = os.path.join(folder, 'voxlith.aux')
        lines = surveys.read(folder, 'voxlith.aux').split('\n')
        whole = formats.read_progress(path)
        for length in range(12, 54, 3):
            surveys.write(folder, 'voxlith.aux', '\n'.join(lines[:9] + [lines[9][:length]] + lines[10:]))
            np.testing.assert_array_equal(formats.read_progress(path).total, np.delete(whole.total, 6))

    def test_damaged_row(self):
        folder = surveys.copy(surveys.gravity)
        lines = surveys.read(folder, 'voxlith.aux').split('\n')
        lines[9] = lines[9].replace('.', 'x', 1)
        surveys.write(folder, 'voxlith.aux', '\n'.join(lines))
        with self.assertRaises(FormatError) as caught:
            formats.read_progress(os.path.join(folder, 'voxlith.aux'))
        self.assertEqual(str(caught.exception),
                         "%s/voxlith.aux, line 10: '%s' is no row of the table" % (folder, lines[9].strip()))

    def test_overflow_is_no_number(self):
        folder = surveys.copy(surveys.gravity)
        lines = surveys.read(folder, 'voxlith.aux').split('\n')
        lines[4] = lines[4][:12] + 14 * '*' + lines[4][26:]
        surveys.write(folder, 'voxlith.aux', '\n'.join(lines))
        progress = formats.read_progress(os.path.join(folder, 'voxlith.aux'))
        self.assertTrue(np.isnan(progress.misfit[1]) and np.isfinite(progress.norm[1]))


class Log(unittest.TestCase):
    def test_terms_add_up_to_the_total(self):
        for case in (surveys.gravity, surveys.joint, surveys.barrier, surveys.continued, surveys.surface):
            folder = surveys.made(case)
            progress = formats.read_progress(os.path.join(folder, 'voxlith.aux'))
            terms = formats.read_log(os.path.join(folder, 'voxlith.log')).terms
            self.assertEqual(sorted(terms), list(progress.iteration), case.__name__)
            for i, misfit, total in zip(progress.iteration, progress.misfit, progress.total):
                parts = misfit ** 2 + sum(terms[i].values())
                # Printed with four decimals: roots of the misfit and the total, the terms as they are.
                self.assertAlmostEqual(parts ** 0.5, total, delta=4e-4 + 3e-4 / total, msg='%s %d' % (case.__name__, i))

    def test_what_it_says_of_the_run(self):
        for case, style, types in ((surveys.gravity, 0, ['Gz']), (surveys.surface, 3, ['Gz']),
                                   (surveys.apparent, 2, ['Gz']), (surveys.joint, 0, ['Gz', 'TMI'])):
            log = formats.read_log(os.path.join(surveys.made(case), 'voxlith.log'))
            self.assertEqual((log.finished, log.style, log.data_types), (True, style, types), case.__name__)
        log = formats.read_log(os.path.join(surveys.made(surveys.magnetic), 'voxlith.log'))
        self.assertEqual(log.shift, 2.5)
        self.assertEqual(log.limits[0][0], -1000.0)

    def test_continued_run_is_not_finished_before_its_end(self):
        folder = surveys.copy(surveys.continued)
        text = surveys.read(folder, 'voxlith.log')
        surveys.write(folder, 'voxlith.log', text[:text.rindex('VOXLITH ended')])
        self.assertIn('VOXLITH ended', surveys.read(folder, 'voxlith.log'))
        self.assertFalse(formats.read_log(os.path.join(folder, 'voxlith.log')).finished)

    def test_cut_anywhere(self):
        folder = surveys.copy(surveys.barrier)
        text = surveys.read(folder, 'voxlith.log')
        path = os.path.join(folder, 'voxlith.log')
        whole = formats.read_log(path).terms
        for cut in range(0, len(text), 61):
            surveys.write(folder, 'voxlith.log', text[:cut])
            log = formats.read_log(path)
            self.assertFalse(log.finished and cut < text.rindex('VOXLITH ended'))
            for iteration, terms in log.terms.items():
                self.assertLessEqual(terms.items(), whole[iteration].items())


class Data(unittest.TestCase):
    def read(self, text, *arguments, **named):
        path = os.path.join(surveys.ROOT, 'data.obs')
        surveys.write(surveys.ROOT, 'data.obs', text)
        return formats.read_data(path, *arguments, **named)

    def test_what_was_written_comes_back(self):
        for seed in range(20):
            source = random.Random(seed)
            components, count = source.randint(1, 6), source.randint(1, 9)
            separator = source.choice((' ', '  ', ',', ', ', '\t'))
            magnetic = source.random() < 0.5
            rows = [[source.uniform(-1e4, 1e4) for _ in range(3 + 2 * components)] for _ in range(count)]
            masked = [[source.random() < 0.2 for _ in range(components)] for _ in range(count)]
            words = [[repr(v) if i < 3 or i % 2 == 0 or not m[(i - 3) // 2] else '**' for i, v in enumerate(row)]
                     for row, m in zip(rows, masked)]
            head = ('60 5 50000\n60 5 1\n' if magnetic else '') + '99 ! not the number\n'
            data = self.read(head + ''.join(separator.join(row) + '\n' for row in words), components, magnetic)
            np.testing.assert_array_equal(np.array([data.x, data.y, data.z]).T, np.array(rows)[:, :3], 'seed %d' % seed)
            values = np.where(np.array(masked), np.nan, np.array(rows)[:, 3::2])
            np.testing.assert_array_equal(data.values.T, values, 'seed %d' % seed)
            np.testing.assert_array_equal(data.deviations.T, np.where(np.array(masked), 0.0, np.array(rows)[:, 4::2]))

    def test_without_deviations_and_with_more_records(self):
        data = self.read('3\n1 2 3 4 5\n6 7 8 9 10\n', 2, False, most=1)
        np.testing.assert_array_equal(data.values, [[4.0], [5.0]])

    def test_downhole_angles_are_passed_over(self):
        data = self.read('60 5 50000\n60 5 0\n1\n1 2 3 80 90 4 0.5\n', 1, True, True)
        self.assertEqual((data.values[0, 0], data.deviations[0, 0]), (4.0, 0.5))

    def test_lines(self):
        data = self.read('2\n1 2 3 4 0.1 L1 10\n1 2 3 * 0.1 averyveryverylongname 20.5\n', 1, False, lined=True)
        self.assertEqual(data.lines, [('L1', 10.0), ('averyveryverylon', 20.5)])
        with self.assertRaisesRegex(FormatError, 'data.obs, line 2: no line name and time$'):
            self.read('1\n1 2 3 4 0.1\n', 1, False, lined=True)

    def test_refusals(self):
        for text, words in (('1\n', ' holds no data record'), ('', ' holds no data record'),
                            ('1\n \n1 2 3 4 5\n', ' holds no data record'),
                            ('1\n1 2\n', ', line 2: 2 columns; x, y, z and data are needed'),
                            ('1\n1 2 three 4 5\n', ", line 2: 'three' is no number (coordinate)"),
                            ('1\n1 2 3 4 5\n1 2 3 x 5\n', ", line 3: 'x' is no number (datum)"),
                            ('1\n1 2 3 4 5\n1 2 3 4 five\n', ", line 3: 'five' is no number (deviation)"),
                            ('1\n1 2 3 4 5\n1 2 3\n', ', line 3: component 1 is missing')):
            with self.assertRaises(FormatError) as caught:
                self.read(text, 1, False)
            self.assertEqual(str(caught.exception), os.path.join(surveys.ROOT, 'data.obs') + words)


class Models(unittest.TestCase):
    def test_values_and_absent_cells(self):
        path = os.path.join(surveys.ROOT, 'm.den')
        surveys.write(surveys.ROOT, 'm.den', '  0.100000E+01\n -0.100000E+33\n  0.5-101\n')
        np.testing.assert_array_equal(formats.read_model(path, 3), [1.0, np.nan, 0.5e-101])
        with self.assertRaisesRegex(FormatError, r'm.den holds 3 values; the mesh has 4 cells$'):
            formats.read_model(path, 4)
        surveys.write(surveys.ROOT, 'm.den', '  0.1\n  zero\n')
        with self.assertRaisesRegex(FormatError, r"m.den, line 2: 'zero' is no number \(cell\)$"):
            formats.read_model(path, 2)


    def test_repeats_and_commas(self):
        path = os.path.join(surveys.ROOT, 'm.den')
        surveys.write(surveys.ROOT, 'm.den', '2*0.5, 1d-2\n3*-1\n')
        np.testing.assert_array_equal(formats.read_model(path, 6), [0.5, 0.5, 0.01, -1.0, -1.0, -1.0])

    def test_cells_held_at_zero(self):
        path = os.path.join(surveys.ROOT, 'b.txt')
        surveys.write(surveys.ROOT, 'b.txt', '0 0\n0 1\n-1 0\n2*0.0\n0.5 0.5\n')
        self.assertEqual(list(formats.read_held_at_zero(path, 7)), [True, False, False, True, False, False, False])
        self.assertEqual(list(formats.read_held_at_zero(path, 1)), [True])


class SensitivityHead(unittest.TestCase):
    FORMS = (['--form', 'tagged'], ['--form', 'tagged', '--version', '1'], ['--form', 'bare'], ['--form', 'record'])

    def test_nodes_of_each_layout(self):
        folder = surveys.copy(surveys.gravity)
        bench = surveys.Workbench(surveys.BUILD, folder)
        for form in self.FORMS:
            with contextlib.redirect_stdout(io.StringIO()):
                bench.tools('mtx', '--mesh', 'mesh.msh', '--stations', 's.obs', '--type', 'gz', '--out', 'f.mtx', *form)
            head = formats.read_mtx(os.path.join(folder, 'f.mtx'))
            np.testing.assert_array_equal(head.x_nodes, np.arange(1000.0, 1801.0, 100.0), str(form))
            np.testing.assert_array_equal(head.y_nodes, np.arange(2000.0, 2601.0, 100.0), str(form))
            np.testing.assert_array_equal(head.z_nodes, np.arange(-120.0, 201.0, 80.0), str(form))
            self.assertEqual((head.data_type, head.n_data), (0, len(surveys.STATIONS)))
            self.cut(folder, form)

    def cut(self, folder, form):
        """A file that ends within its head is told so, wherever it ends."""
        path = os.path.join(folder, 'f.mtx')
        with open(path, 'rb') as f:
            content = f.read()
        nodes = np.arange(-120.0, 201.0, 80.0).astype('<f4' if 'record' in form else '<f8').tobytes()
        for end in range(0, content.index(nodes), 13):
            with open(path, 'wb') as f:
                f.write(content[:end])
            with self.assertRaisesRegex(FormatError, '^' + path + ' (ends within its head|is no sensitivity file: )'):
                formats.read_mtx(path)

    def test_noise_is_refused(self):
        path = os.path.join(surveys.ROOT, 'noise.mtx')
        for seed in range(200):
            source = random.Random(seed)
            with open(path, 'wb') as f:
                f.write(b'VX3D' if seed % 2 else b'')
                f.write(bytes(source.choice((0, 1, 20, 255)) for _ in range(source.randint(0, 300))))
            try:
                head = formats.read_mtx(path)
            except FormatError:
                continue
            self.assertGreater(len(head.x_nodes), 1, 'seed %d' % seed)


class TrueBodies(unittest.TestCase):
    def test_what_an_example_writes(self):
        body, = formats.read_bodies(os.path.join(surveys.made(surveys.gravity), 'true_bodies.json'))
        self.assertEqual((body.name, body.x, body.y, body.z, body.model),
                         ('block', (1250.0, 1450.0), (2150.0, 2350.0), (-120.0, 40.0), 0))

    def test_refusals(self):
        path = os.path.join(surveys.ROOT, 'b.json')
        for text, words in (('{"bodies": [\n{]', ', line 2: '), ('{}', ': each of "bodies" needs "name" and pairs'),
                            ('{"bodies": [{"name": "a", "x": [1], "y": [1, 2], "elevation": [1, 2]}]}',
                             ': each of "bodies" needs'),
                            ('[1]', ': each of "bodies" needs')):
            surveys.write(surveys.ROOT, 'b.json', text)
            with self.assertRaisesRegex(FormatError, '^' + path + words):
                formats.read_bodies(path)
