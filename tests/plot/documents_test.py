"""The page and the manual page name every option and every picture, and no others."""
import argparse
import os
import re
import unittest
from unittest import mock

import surveys
from voxlith_plot import command

PROJECT = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', '..')


def options():
    """The long options of the command line."""
    found = []
    with mock.patch.object(argparse.ArgumentParser, 'parse_args', lambda self, _: found.extend(self._actions)):
        command.parse([])
    return sorted(option for action in found for option in action.option_strings if option.startswith('--'))


class Documents(unittest.TestCase):
    def test_page(self):
        page = surveys.read(os.path.join(PROJECT, 'docs'), 'pictures-of-a-run.md')
        listed = sorted(re.findall(r'(?m)^\| `(--[a-z-]+)', page))
        self.assertEqual(listed + ['--help'], sorted(options(), key=lambda option: (option == '--help', option)))
        for picture in command.PICTURES:
            self.assertIn('*`%s`' % picture, page)
        for path in re.findall(r'\]\((pictures/.*?)\)', page):
            self.assertTrue(os.path.isfile(os.path.join(PROJECT, 'docs', path)), path)

    def test_bodies_of_the_page(self):
        page = surveys.read(os.path.join(PROJECT, 'docs'), 'pictures-of-a-run.md')
        surveys.write(surveys.ROOT, 'page.json', re.search(r'(?s)```json\n(.*?)```', page)[1])
        body, = command.formats.read_bodies(os.path.join(surveys.ROOT, 'page.json'))
        self.assertEqual((body.name, body.z, body.model), ('shallow block', (-250.0, -100.0), 0))

    def test_usage(self):
        """Every option is in the line that errors begin with, and the folder in front of those that take any number of words."""
        self.assertEqual(sorted(re.findall(r'--[a-z-]+', command.USAGE)), options())
        self.assertTrue(command.USAGE.startswith('voxlith-plot FOLDER '))

    def test_manual_page(self):
        page = surveys.read(os.path.join(PROJECT, 'man'), 'voxlith-plot.1')
        items = re.findall(r'(?m)^\.It Fl (?:h , )?-([a-z-]+)', page)
        self.assertEqual(sorted('--' + item for item in items), options())
        for picture in command.PICTURES:
            self.assertIn('Cm %s' % picture, page)
