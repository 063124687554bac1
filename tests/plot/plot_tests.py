#!/usr/bin/env python3
"""Tests of voxlith-plot and of the gallery, on small runs of the real programs.

    plot_tests.py --build DIR [NAME ...]        NAME as in unittest: formats_test, pictures_test.Sections ...
"""
import argparse
import os
import shutil
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.dirname(os.path.dirname(HERE))
sys.path[:0] = [HERE, os.path.join(PROJECT, 'tools', 'plot'), os.path.join(PROJECT, 'examples')]
sys.dont_write_bytecode = True


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--build', required=True, help='where voxlith and voxlith-tools were built')
    parser.add_argument('names', nargs='*', metavar='NAME')
    asked = parser.parse_args()
    try:
        import matplotlib  # noqa: F401
        import numpy  # noqa: F401
    except ImportError as error:
        print('%s cannot import %s: install the Debian packages python3-matplotlib and python3-numpy'
              % (sys.executable, error.name), file=sys.stderr)
        return 1
    import surveys
    surveys.BUILD = asked.build
    loader = unittest.TestLoader()
    tests = loader.loadTestsFromNames(asked.names) if asked.names else loader.discover(HERE, pattern='*_test.py')
    try:
        return 0 if unittest.TextTestRunner(verbosity=2).run(tests).wasSuccessful() else 1
    finally:
        shutil.rmtree(surveys.ROOT, ignore_errors=True)


if __name__ == '__main__':
    sys.exit(main())
