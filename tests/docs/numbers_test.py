#!/usr/bin/env python3
"""Holds the numbers in the prose of pages to measured tables.

    numbers_test.py [--accept] [PAGE ...]     pages such as regional.md or README.md; default: all that have a file in numbers/

numbers/PAGE.py gives the STATEMENTS of a page, which rest on docs/measured, and the phrases whose numbers are GIVEN: settings,
definitions, references. A number of the page in neither, and in no block of the page that another test holds to the programs, is a fault.
On a page that DEFINES a format or options only numbers with a unit of a quantity count. FURTHER gives
numbers by the heading of their section, such as those of the program that a section describes. --accept writes the numbers of the tables into the pages.
"""
from __future__ import annotations

import argparse
import importlib.util
import sys
import types
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE))
from measured import ROOT, unsourced_numbers, with_measured, wrong_statements  # noqa: E402


def source_of(page: str) -> types.ModuleType:
    """What numbers/PAGE.py says: STATEMENTS and GIVEN phrases, and for some pages DEFINES or FURTHER numbers of sections."""
    path = HERE / 'numbers' / f"{Path(page).stem.replace('-', '_').lower()}.py"
    found = importlib.util.spec_from_file_location(path.stem, path)
    if found is None or found.loader is None:
        raise FileNotFoundError(path)
    module = importlib.util.module_from_spec(found)
    found.loader.exec_module(module)
    return module


def place_of(page: str) -> Path:
    return ROOT / page if page == 'README.md' else ROOT / 'docs' / page


def pages() -> list[str]:
    """All pages whose numbers have a file of sources."""
    stems = sorted(path.stem for path in (HERE / 'numbers').glob('*.py'))
    return ['README.md' if stem == 'readme' else stem.replace('_', '-') + '.md' for stem in stems]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--accept', action='store_true')
    parser.add_argument('pages', nargs='*')
    asked = parser.parse_args()
    failed = False
    for page in asked.pages or pages():
        source = source_of(page)
        statements = source.STATEMENTS
        path = place_of(page)
        text = path.read_text(encoding='utf-8')
        if asked.accept:
            text = with_measured(text, statements)
            path.write_text(text, encoding='utf-8')
        faults = wrong_statements(text, statements) + unsourced_numbers(text, statements, source.GIVEN, getattr(source, 'DEFINES', False),
                                                                                getattr(source, 'FURTHER', None))
        print(f"{page}: {len(statements)} statements, {'ok' if not faults else 'FAILED'}")
        for fault in faults:
            print('  ' + fault)
        failed = failed or bool(faults)
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
