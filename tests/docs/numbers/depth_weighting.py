"""Numbers of docs/depth-weighting.md: docs/measured/recovered-depth.csv, made by bench/recovered_depth.py --page."""
from collections.abc import Callable

from measured import says, table

Row = dict[str, str]
ROWS = table('recovered-depth.csv')
NORMS = ['none', 'smooth', 'blocky', 'compact']
SPARSE = ['blocky', 'compact']
PAIR = 'gz pair 100-240 m'
NAMES = {'gz 100-240 m': 'gz, 100-240 m', 'gz 280-480 m': 'gz, 280-480 m', 'gzz 100-240 m': 'gzz, 100-240 m',
         'tmi dyke 80-320 m': 'tmi, dyke 80-320 m, inclination -45', 'tmi block 250-450 m': 'tmi, block 250-450 m, inclination 62',
         PAIR: 'gz, pair of opposite sign, 100-240 m'}


def rows(case: str = '', norm: str = '', seed: str = '7', sign: str = '', decay: str = '') -> list[Row]:
    """Rows of a case, a norm; without them of all."""
    return [row for row in ROWS if case in ('', row['case']) and norm in ('', row['norm']) and seed in ('', row['seed'])
            and row['sign'] == sign and row['decay'] == decay]


def column(found: list[Row], name: str) -> list[float]:
    return [float(row[name]) for row in found]


def ratios(found: list[Row]) -> list[float]:
    """Depth over the true one."""
    return [float(row['depth']) / float(row['true_depth']) for row in found]


def table_row(case: str) -> tuple[object, ...]:
    """The line of a case: depths and masses by norm, of each body."""
    bodies = range(len(rows(case, 'smooth')))
    cells = lambda name, width: ' | '.join(  # noqa: E731
        ', '.join(f"{float(rows(case, norm)[body][name]):.{width}f}" for body in bodies) for norm in NORMS)
    true = ', '.join(f"{float(row['true_depth']):.0f}" for row in rows(case, 'smooth'))
    return f"| {NAMES[case]} | {true} | {cells('depth', 0)} | {cells('mass', 2)} |",


def fields(line: str) -> tuple[str, tuple[float, ...]]:
    """A line of the table as a template and its numbers; those of the name and the true depth stay."""
    name, true, *cells = [cell.strip() for cell in line.strip('|').split('|')]
    numbers = [number for cell in cells for number in cell.split(', ')]
    places = [', '.join('{:.2f}' if '.' in number else '{:.0f}' for number in cell.split(', ')) for cell in cells]
    return f"| {name} | {true} | {' | '.join(places)} |", tuple(map(float, numbers))


def shift(norm: str, name: str) -> float:
    """Largest change of a column between the noise of the table and three others."""
    return max(abs(float(row[name]) - float(other[name])) for row in rows(norm=norm)
               for other in rows(row['case'], norm, seed='') if other['body'] == row['body'])


def off(found: list[Row], of: Callable[[list[Row]], list[float]]) -> float:
    """Largest distance from 1, percent, rounded up."""
    return -(-max(abs(value - 1.0) for value in of(found)) * 100.0 // 1)


def mass(found: list[Row]) -> list[float]:
    return column(found, 'mass')


WEIGHTED = [row for norm in NORMS[1:] for row in rows(norm=norm)]
SMOOTH, SINGLE = rows(norm='smooth'), [row for row in rows(norm='smooth') if row['case'] != PAIR]
FIRST, SECOND = mass(rows(PAIR, 'smooth'))
SHALLOW = [1.0 - ratio for ratio in ratios(rows(norm='smooth', decay='1.0'))]
PADDED = rows('tmi dyke 80-320 m', 'smooth', decay='1.3')
CHOSEN = [row for seed in ('7', '1', '2', '3') for row in rows(norm='recommended', seed=seed)]
DYKES = [row for seed in ('7', '1', '2', '3') for row in rows('tmi dyke 80-320 m', 'smooth', seed)]
STATEMENTS = [
    says('these have depths within {:.0f} % and masses within {:.0f} % of the truth', off(CHOSEN, ratios), off(CHOSEN, mass)),
    says('all centroids are then within {:.0f} m horizontally', -(-max(column(CHOSEN, 'aside')) // 1)),
    says('a smooth dyke has {:.2f} to {:.2f} times its moment', min(mass(DYKES)), max(mass(DYKES))),
    *(says(*(lambda pair: (pair[0], *pair[1]))(fields(table_row(case)[0]))) for case in NAMES),
    says('All runs end at an RMS misfit of {:.2f} to {:.2f}', min(column(rows(), 'misfit')), max(column(rows(), 'misfit'))),
    says('all centroids are within {:.0f} m of the true centre horizontally', -(-max(column(WEIGHTED, 'aside')) // 1)),
    says('change depths by up to {:.0f} m (blocky) and {:.0f} m (compact), and masses by up to {:.2f} and {:.2f}',
         *(shift(norm, name) for name in ('depth', 'mass') for norm in SPARSE)),
    says('within {:.0f} % of the truth with the smooth norm, within {:.0f} % with sparse norms', off(SMOOTH, ratios),
         off([row for norm in SPARSE for row in rows(norm=norm)], ratios)),
    says('its peak is {:.2f} to {:.2f} of the true contrast', min(column(SMOOTH, 'peak')), max(column(SMOOTH, 'peak'))),
    says('peak then hold {:.2f} to {:.2f} of the mass of a single body', min(column(SINGLE, 'mass_above_a_fifth')),
         max(column(SINGLE, 'mass_above_a_fifth'))),
    says('with sparse norms within {:.0f} % for all bodies', off([row for norm in SPARSE for row in rows(norm=norm)], mass)),
    says('With the smooth norm within {:.0f} % for one body', off(SINGLE, mass)),
    says('has {:.1f} times the mass. The data determine', 0.5 * (FIRST + SECOND)),
    says('which is right within {:.0f} %', -(-abs(FIRST - SECOND) * 100.0 // 1)),
    says('With a decay of 1.0 it is {:.1f} times', 0.5 * sum(mass(rows(PAIR, 'smooth', decay='1.0')))),
    says('body in a smooth run that allows both signs has {:.1f} times its mass', *mass(rows('gz 100-240 m', 'smooth', sign='either'))),
    says('their peaks are {:.1f} to {:.1f} times the true contrast', min(column(rows(norm='compact'), 'peak')),
         max(column(rows(norm='compact'), 'peak'))),
    says('With 1.2 a blocky gzz body has {:.2f} of its mass', *mass(rows('gzz 100-240 m', 'blocky', decay='1.2'))),
    says('1.3 gives the dyke {:.2f} times its mass', *mass(PADDED)),
    says('1.0 makes depths {:.0f} to {:.0f} % too small', 100.0 * min(SHALLOW), 100.0 * max(SHALLOW)),
    says('these contained {:.2f} of the dyke', *column(PADDED, 'mass_outside_core')),
]
GIVEN = [
    'relative to its largest value (Li and Oldenburg 2000, Geophysics 65, 540-552)', '(Li and Oldenburg 1996, Geophysics 61, 394-408)',
    'decays like (depth + z0)^-1.2 below the stations (-1.4 for a blocky norm)', 'p of about 1.2, gradients and magnetics about 0.6',
    'the weight is 0', 'uses 1/(depth + z0) in place of r', 'decays like (depth + z0)^-1.8',
    'section 1 of the file are w times 2.5e8 / h^2', 'weights of differences by 1e8, and those of smallness by 1.', 'on line 10 of',
    'on line 9', '16 x 16 stations 80 m apart and noise of 1 % of the largest datum', 'cells of 50 m',
    'suits the norm: 1.2, and 1.4 for blocky', 'The power 3 of', 'With a decay of 1.3', 'With a decay of 1.0', 'With 1.2 a',
    'norm 1.3 gives', 'and 1.0 makes', 'Three other realisations', 'with four realisations of the noise',
]
