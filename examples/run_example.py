#!/usr/bin/env python3
"""Runs an example from nothing to a recovered body and shows the result.

    run_example.py NAME [--build DIR] [--work DIR] [--check]
    run_example.py --list

Each example is a folder here with an example.py: its docstring says what it shows, its run(bench, report) does it. With --check the
exit status is 1 when the example does not recover what it should.
"""
import argparse
import importlib.util
import os
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
sys.dont_write_bytecode = True
import gallery  # noqa: E402


def names():
    return sorted(n for n in os.listdir(HERE) if os.path.exists(os.path.join(HERE, n, 'example.py')))


def load(name):
    place = importlib.util.spec_from_file_location('example', os.path.join(HERE, name, 'example.py'))
    module = importlib.util.module_from_spec(place)
    place.loader.exec_module(module)
    return module


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('name', nargs='?')
    parser.add_argument('--build', default=os.path.join(HERE, '..', 'build', 'release'), help='where the programs were built')
    parser.add_argument('--work', help='the folder of the run (default: examples-out/NAME in the build folder)')
    parser.add_argument('--check', action='store_true', help='fail when the result is not what it should be')
    parser.add_argument('--list', action='store_true', help='name the examples')
    asked = parser.parse_args()
    if asked.list:
        for name in names():
            print('%-20s %s' % (name, load(name).__doc__.strip().splitlines()[0]))
        return 0
    if asked.name not in names():
        parser.error('name one of: ' + ', '.join(names()))
    example = load(asked.name)
    print(example.__doc__.strip() + '\n')
    bench = gallery.Workbench(asked.build, asked.work or os.path.join(asked.build, 'examples-out', asked.name))
    report = gallery.Report()
    start = time.monotonic()
    example.run(bench, report)
    print('\nAll files are in %s; the whole example took %.0f s.' % (os.path.relpath(bench.folder), time.monotonic() - start))
    for failure in report.failures:
        print('NOT RECOVERED: ' + failure)
    return 1 if asked.check and report.failures else 0


if __name__ == '__main__':
    sys.exit(main())
