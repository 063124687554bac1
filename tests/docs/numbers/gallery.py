"""Numbers of docs/gallery.md: those of the programs of the examples, which it describes, and docs/measured/gallery-convergence.csv.

examples/run_gallery.py writes the page, with the time that each example took.
"""
import ast
import re

from measured import ROOT, page_text, says, table
from shown import block_numbers


def program_numbers(name: str) -> set[float]:
    """The numbers in the code of an example; its description, the docstring, does not count."""
    tree = ast.parse((ROOT / 'examples' / name / 'example.py').read_text(encoding='utf-8'))
    described = ast.get_docstring(tree, clean=False)
    constants = [node.value for node in ast.walk(tree) if isinstance(node, ast.Constant) and node.value != described]
    words = [word for text in constants if isinstance(text, str) for word in block_numbers(text.split('\n'))]
    return {float(value) for value in constants if type(value) in (int, float)} | set(words)


def row(found: dict[str, str]):
    return says(f"| {found['run']} | {{:.3f}} ({{:.0f}}) | {{:.3f}} | {{:.0f}} | {{:.2f}} |", *(float(found[key]) for key in list(found)[1:]))


FURTHER = {name: program_numbers(name) for name in re.findall(r'(?m)^## (\w+)$', page_text('gallery.md')) if (ROOT / 'examples' / name).is_dir()}
FURTHER['hamersley'].add(float((ROOT / 'examples/hamersley/gravity.obs').read_text(encoding='ascii').split()[0]))  # the stations
FURTHER['equivalent_source'] |= {high - 60.0 for high in FURTHER['equivalent_source'] if high > 200.0}  # above the stations
STATEMENTS = [row(found) for found in table('gallery-convergence.csv')]
GIVEN = sorted(set(re.findall(r'The whole example took [\d.]+ s\.', page_text('gallery.md')))) + ['so their RMS misfits differ from 1.', 'at or above 0.00001']
