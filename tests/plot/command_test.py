"""The program as a user starts it: files made, words said, exit status."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import numpy as np
from matplotlib import image

import surveys

NAMES = {surveys.gravity: ['convergence', 'data', 'sections', 'zscores'],
         surveys.joint: ['convergence', 'data_1', 'data_2', 'sections_dens', 'sections_susc', 'zscores'],
         surveys.lines: ['convergence', 'data', 'profiles', 'sections', 'zscores'],
         surveys.oblique: ['convergence', 'data', 'sections', 'zscores']}


class Pictures(unittest.TestCase):
    def test_all_runs_as_png(self):
        for case in surveys.ALL:
            folder = surveys.copy(case)
            status, said, errors = surveys.plot(folder)
            self.assertEqual((status, errors), (0, ''), case.__name__)
            made = sorted(os.listdir(os.path.join(folder, 'plots')))
            self.assertEqual(said.split(), [os.path.join(folder, 'plots', name) for name in made])
            self.assertEqual(made, [name + '.png' for name in NAMES.get(case, NAMES[surveys.gravity])], case.__name__)
            for name in made:
                self.check_png(os.path.join(folder, 'plots', name))

    def check_png(self, path):
        pixels = image.imread(path)
        height, width = pixels.shape[:2]
        self.assertTrue(400 <= width <= 1600 and 250 <= height <= 1600, '%s has %d x %d pixels' % (path, width, height))
        colours = np.unique((pixels[:, :, :3] * 255).astype(int) @ [65536, 256, 1])
        self.assertGreater(len(colours), 30, path)
        # Nothing touches the edge: labels would be cut there.
        for edge in (pixels[0], pixels[-1], pixels[:, 0], pixels[:, -1]):
            self.assertTrue((edge[:, :3] > 0.99).all(), path + ' is cut at an edge')

    def test_pdf_and_folder(self):
        out = tempfile.mkdtemp(dir=surveys.ROOT)
        status, said, errors = surveys.plot(surveys.made(surveys.gravity), '--only', 'sections', 'data',
                                            '--format', 'png', 'pdf', '--out', os.path.join(out, 'new'))
        self.assertEqual((status, errors), (0, ''))
        self.assertEqual(sorted(os.listdir(os.path.join(out, 'new'))),
                         ['data.pdf', 'data.png', 'sections.pdf', 'sections.png'])
        for name in ('data.pdf', 'sections.pdf'):
            with open(os.path.join(out, 'new', name), 'rb') as f:
                content = f.read()
            self.assertTrue(content.startswith(b'%PDF') and content.rstrip().endswith(b'%%EOF') and len(content) > 5000)

    def test_same_bytes_twice(self):
        first, second = (tempfile.mkdtemp(dir=surveys.ROOT) for _ in range(2))
        for out in (first, second):
            surveys.plot(surveys.made(surveys.gravity), '--out', out, '--format', 'png', 'pdf')
        for name in os.listdir(first):
            with open(os.path.join(first, name), 'rb') as a, open(os.path.join(second, name), 'rb') as b:
                self.assertEqual(a.read(), b.read(), name)

    def test_stored_iteration_place_and_bodies(self):
        out = tempfile.mkdtemp(dir=surveys.ROOT)
        folder = surveys.made(surveys.gravity)
        status, said, errors = surveys.plot(folder, '--only', 'sections', '--out', out, '--iteration', 10,
                                            '--at', '1100,2100,0', '--true',
                                            os.path.join(folder, 'true_bodies.json'), '--whole-mesh')
        self.assertEqual((status, errors), (0, ''))


class Unfinished(unittest.TestCase):
    def test_run_going_on(self):
        folder = surveys.copy(surveys.gravity)
        os.remove(os.path.join(folder, 'voxlith.den'))
        os.remove(os.path.join(folder, 'voxlith_error.dat'))
        for name, rows in (('voxlith.aux', 12), ('voxlith.log', 90)):
            text = '\n'.join(surveys.read(folder, name).split('\n')[:rows])
            surveys.write(folder, name, text[:-5])
        status, said, errors = surveys.plot(folder)
        self.assertEqual((status, errors, len(said.split())), (0, '', 4))

    def test_run_at_its_very_start(self):
        folder = surveys.copy(surveys.gravity)
        for name in os.listdir(folder):
            if name.startswith('voxlith') and name not in ('voxlith.inp', 'voxlith.aux'):
                os.remove(os.path.join(folder, name))
        surveys.write(folder, 'voxlith.aux', ' VoxLith Inversion progress\n\n')
        status, said, errors = surveys.plot(folder)
        self.assertEqual(status, 0)
        self.assertEqual(said.split(), [os.path.join(folder, 'plots', 'data.png')])
        self.assertEqual(errors.splitlines(), [
            'voxlith-plot: no convergence: %s/voxlith.aux holds no row yet' % folder,
            'voxlith-plot: no sections: %s holds no model yet (voxlith.rho)' % folder,
            'voxlith-plot: no zscores: %s holds no predicted data yet (voxlith.pre)' % folder])
        for picture, line in zip(('convergence', 'sections', 'zscores'), errors.splitlines()):
            status, _, alone = surveys.plot(folder, '--only', picture)
            self.assertEqual((status, alone), (1, line.replace('no %s: ' % picture, '') + '\n'))

    def test_nothing_there(self):
        folder = tempfile.mkdtemp(dir=surveys.ROOT)
        status, said, errors = surveys.plot(folder)
        self.assertEqual((status, said), (1, ''))
        self.assertEqual(errors.splitlines()[-1], 'voxlith-plot: %s holds nothing to draw' % folder)
        self.assertEqual(os.listdir(folder), [])


class Refusals(unittest.TestCase):
    def refused(self, words, *arguments):
        status, said, errors = surveys.plot(*arguments)
        self.assertEqual((status, errors), (1, 'voxlith-plot: %s\n' % words))

    def test_damaged_files(self):
        folder = surveys.copy(surveys.gravity)
        surveys.write(folder, 'voxlith.den', '0.5\nhalf\n')
        self.refused("%s/voxlith.den, line 2: 'half' is no number (cell)" % folder, folder, '--only', 'sections')
        surveys.write(folder, 'true_bodies.json', '{"bodies": 7}')
        self.refused('%s/true_bodies.json: each of "bodies" needs "name" and pairs "x", "y", "elevation" (TypeError)'
                     % folder, folder, '--only', 'sections')
        surveys.write(folder, 'voxlith.pre', '42\n1 2 3 x 5\n')
        self.refused("%s/voxlith.pre, line 2: 'x' is no number (datum)" % folder, folder, '--only', 'data')
        os.remove(os.path.join(folder, 'd.obs'))
        surveys.write(folder, 'voxlith.pre', '42\n1 2 3 4 5\n')
        self.refused('%s/d.obs is not there' % folder, folder, '--only', 'zscores')

    def test_wrong_names(self):
        folder = surveys.made(surveys.gravity)
        self.refused('/nowhere is no folder', '/nowhere')
        self.refused('%s/other.inp is not there' % folder, folder, '--control', 'other.inp', '--only', 'data')
        self.refused('/nowhere.json is not there', folder, '--true', '/nowhere.json', '--only', 'sections')
        self.refused('x 5 lies outside the mesh, 1000 to 1800', folder, '--at', '5,2100,0', '--only', 'sections')

    def test_one_damaged_file_keeps_no_other_picture_from_being_drawn(self):
        folder = surveys.copy(surveys.gravity)
        surveys.write(folder, 'voxlith.den', 'x\n')
        status, said, errors = surveys.plot(folder)
        self.assertEqual(status, 1)
        self.assertEqual(errors, "voxlith-plot: %s/voxlith.den, line 1: 'x' is no number (cell)\n" % folder)
        self.assertEqual([os.path.basename(path) for path in said.split()],
                         ['convergence.png', 'data.png', 'zscores.png'])

    def test_no_room_for_pictures(self):
        folder = surveys.copy(surveys.gravity)
        surveys.write(folder, 'plots', '')
        status, _, errors = surveys.plot(folder)
        self.assertEqual(status, 1)
        self.assertRegex(errors, r"^voxlith-plot: .*File exists: '.*plots'\n$")

    def test_wrong_arguments(self):
        for arguments in ((), ('a', 'b'), ('.', '--only', 'map'), ('.', '--at', '1,2'), ('.', '--format', 'gif'),
                          ('.', '--iteration', 'x')):
            status, _, errors = surveys.plot(*arguments)
            self.assertEqual(status, 2, arguments)
            self.assertIn('voxlith-plot: error: ', errors)

    def test_help(self):
        status, said, _ = surveys.plot('--help')
        self.assertEqual(status, 0)
        self.assertIn('examples:\n  voxlith-plot run1 ', said)


class Start(unittest.TestCase):
    def test_installed(self):
        """Modules lie beside the script or in ../share/voxlith/plot."""
        root = tempfile.mkdtemp(dir=surveys.ROOT)
        os.mkdir(os.path.join(root, 'bin'))
        script = shutil.copy(surveys.SCRIPT, os.path.join(root, 'bin'))
        run = lambda *options: subprocess.run([sys.executable, *options, script, '--help'], stdout=subprocess.PIPE,
                                              stderr=subprocess.PIPE, text=True)
        done = run()
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, 'voxlith-plot: its modules are neither in %s/bin nor in %s/share/voxlith/plot\n'
                         % (root, root))
        shutil.copytree(os.path.join(os.path.dirname(surveys.SCRIPT), 'voxlith_plot'),
                        os.path.join(root, 'share', 'voxlith', 'plot', 'voxlith_plot'))
        self.assertEqual(run().returncode, 0)
        self.assertEqual(os.listdir(os.path.join(root, 'bin')), ['voxlith-plot'])

        # Without site packages there is no matplotlib.
        done = run('-I', '-S')
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, '^voxlith-plot: the Python module (numpy|matplotlib) is missing; install the '
                                      'Debian packages python3-matplotlib and python3-numpy\n$')
