"""The gallery page: every example with its pictures, none too large, none that nobody shows."""
import os
import re
import tempfile
import unittest

from matplotlib import image

import run_example
import run_gallery
import surveys

DOCS = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..', 'docs')


class Page(unittest.TestCase):
    def setUp(self):
        self.page = surveys.read(DOCS, 'gallery.md')

    def test_every_example_has_a_chapter_and_its_pictures(self):
        chapters = dict(re.findall(r'(?ms)^## (\w+)\n(.*?)(?=^## |\Z)', self.page))
        self.assertEqual(sorted(chapters), run_example.names())
        for name, text in chapters.items():
            example = run_example.load(name)
            self.assertIn(example.__doc__.strip(), text, '%s has changed: run_gallery.py --pictures' % name)
            self.assertRegex(text, r'The whole example took \d+\.\d s')
            shown = re.findall(r'\]\(pictures/%s_(\w+)\.png\)' % name, text)
            self.assertEqual(shown, getattr(example, 'PICTURES', ['sections']))

    def test_pictures(self):
        shown = re.findall(r'\]\((pictures/.+?\.png)\)', self.page)
        for path in shown:
            self.assertLess(os.path.getsize(os.path.join(DOCS, path)), 150000, path)
            height, width = image.imread(os.path.join(DOCS, path)).shape[:2]
            self.assertTrue(500 <= width <= 1600 and 300 <= height <= 1600, path)


class Command(unittest.TestCase):
    def test_findings(self):
        said = run_example.load('two_blocks').__doc__.strip()
        said += '\n\n$ voxlith a\n    4 s\nRMS 1\n\n\n\nmore\n\nAll files are in x.\n'
        self.assertEqual(run_gallery.findings('two_blocks', said), 'RMS 1\n\nmore')

    def test_page_against_example(self):
        on_page = run_gallery.findings_on_page('two_blocks', DOCS)
        self.assertIn('RMS misfit: ', on_page)
        self.assertTrue(run_gallery.same_but_for_times(on_page, re.sub(r'took [\d.]+ s', 'took 77.7 s', on_page)))
        self.assertFalse(run_gallery.same_but_for_times(on_page, on_page.replace('0.5 ', '0.6 ')))
        self.assertEqual(run_gallery.findings_on_page('no_example', DOCS), '')

    def test_palette_keeps_the_colours(self):
        out = tempfile.mkdtemp(dir=surveys.ROOT)
        surveys.plot(surveys.made(surveys.surface), '--only', 'sections', '--out', out)
        source, target = os.path.join(out, 'sections.png'), os.path.join(out, 'small.png')
        run_gallery.small_copy(source, target)
        before, after = image.imread(source)[:, :, :3], image.imread(target)[:, :, :3]
        self.assertLess(abs(before - after).max() * 255, 12)
        self.assertLess(os.path.getsize(target), os.path.getsize(source))
