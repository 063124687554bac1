"""Numbers of docs/choosing-parameters.md: its example, rules, and the output that the page shows."""
from measured import says, setting, shown

EXAMPLE, PAGE = 'examples/two_blocks/example.py', 'choosing-parameters.md'


def example(pattern: str) -> float:
    return setting(EXAMPLE, pattern)


STATEMENTS = [
    says('in the west has {:.1f} g/cm³ and extends from {:.0f} to {:.0f} m depth', example(r"'shallow block'.* ([\d.]+)\)"),
         *(example(rf"'shallow block'.*{pattern}") for pattern in (r'\((\d+), \d+\), [\d.]+\)', r'\(\d+, (\d+)\), [\d.]+\)'))),
    says('in the east has {:.1f} g/cm³ and extends from {:.0f} to {:.0f} m', example(r"'deep block'.* ([\d.]+)\)"),
         *(example(rf"'deep block'.*{pattern}") for pattern in (r'\((\d+), \d+\), [\d.]+\)', r'\(\d+, (\d+)\), [\d.]+\)'))),
    says('There are {:.0f} gravity data with noise of {:.0f} percent plus {:.3f} mGal, {:.0f} x {:.0f} x {:.0f} cells of {:.0f} m, {:.0f} iterations, '
         'trade-off {:.2f}, bounds {:.0f} and {:.0f}', example(r'grid\(\d+, \d+, (\d+),') ** 2, example(r"'--noise', '(\d+),"),
         example(r"'--noise', '\d+,([\d.]+)'"), example(r'MESH = Mesh\((\d+) '), example(r'MESH = Mesh\(\d+ \* \[50\], (\d+)'),
         example(r', (\d+) \* \[50\]\)'), example(r', \d+ \* \[(\d+)\]\)'), example(r'(?m)^(\d+) +! iterations'), example(r'(?m)^([\d.]+) 0.02 1'),
         example(r'(?m)^([\d.]+),[\d.]+ +! bounds'), example(r'(?m)^[\d.]+,([\d.]+) +! bounds')),
    says('ends at an RMS misfit of {:.2f} with a trade-off of {:.0f}', setting('docs/gallery.md', r'(?s)\n## magnetised_body.*?start, ([\d.]+) after'),
         setting('examples/magnetised_body/example.py', r'(?m)^(\d+) 0.02 1')),
    says('This survey has stations {:.0f} m apart', (example(r'grid\(\d+, (\d+),') - example(r'grid\((\d+),')) / (example(r'grid\(\d+, \d+, (\d+),') - 1)),
]
GIVEN = [
    'Runs from 0.05 and 0.3 fit as well', 'alphas of 1.', 'after 60 iterations the anomalies',
    'are set to 0.01 (1 in magnetic files). For anomalies of 0.1 mGal',
    'Begin with 0.01 for gravity (mGal) and 1 to 30 for total field (nT)', 'A value of 1 is a fit',
    'is far above 1, divide by 10. If it is far below 1, multiply', 'then use factors of 3',
    'With 60 iterations that is 0.1 here, with 300 it is 0.3', 'flattened out near 1',
    'has at most 20 steps of its solver and at most 20 accepted steps', '0 or 1 in all rows', 'An alphaZ of 0.1', 'multiplied by 1.0e8',
    'about 1.0e4 has the same weight', 'flag 2', 'an initial value of 0 is raised to 0.00001', 'Flag 2,', '33 cells to 64',
    'a factor of at most 1.5', '(-beta/2)', 'beta 2 for gz, 3 for gradients and magnetics', 'a trade-off of 0.3, and 60 or 300',
    'differ by more than 0.01', 'Up to 0.01, the default', '0.03 is good enough for first trials; 0.1 is not', 'Here length 4 keeps',
    'lengths 6 and 8', '| 0.01 | 0.001 for the last run |', '| 0.0001 1 1 1 | change', 'by factors of 3 to 10 |',
    '| 0.01 gravity, 10 magnetics | change it by factors of 10, then 3, until the RMS misfit is near 1 |',
    '| 60 | 100 to 300 at the trade-off chosen |',
]
