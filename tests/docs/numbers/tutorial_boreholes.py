"""Numbers of docs/tutorial-boreholes.md: how its survey was made, docs/measured/coupled-structure.csv and the output that the page shows."""
from measured import says, setting, shown, table, tutorial_table

PAGE, MAKER = 'tutorial-boreholes.md', 'docs/tutorial/make_coupled.py'
DENSITY, SUSCEPTIBILITY = (setting(MAKER, rf'^DENSITY, SUSCEPTIBILITY = {pattern}') for pattern in (r'([\d.]+),', r'[\d.]+, ([\d.]+)'))
STRENGTH = setting(MAKER, r'^FIELD = .* ([\d.]+)\)')
ROWS = table('coupled-structure.csv')


def way(name: str, text: str):
    """A row of the table of couplings: mean and range of misfit, correlation and overlap."""
    columns = [[float(row[key]) for row in ROWS if row['coupling'] == name] for key in ('misfit', 'correlation', 'overlap')]
    return says(f'| {text} |' + 3 * ' {:.2f} ({:.2f} to {:.2f}) |', *(word for values in columns for word in (sum(values) / len(values), min(values), max(values))))


STATEMENTS = [
    says('Gravity was measured at only {} stations', len(tutorial_table('coupled_gz.csv'))),
    says('In rock of {:.2f} SI the largest difference between two shapes is {:.2f} times the field, here {:.0f} nT', SUSCEPTIBILITY, SUSCEPTIBILITY,
         SUSCEPTIBILITY * STRENGTH),
    says('of the true {:.1f} g/cm³', DENSITY),
    says('The misfit of the gravity is {:.2f} without and {:.2f} with the coupling', *shown(PAGE, r'^Gz: RMS misfit ([\d.]+)'),
         *shown(PAGE, r'^Gz: RMS misfit ([\d.]+)', 1)),
    way('without', 'without'), way('one run', 'one run with 0.07'), way('balanced', 'balanced with 0.03'),
]
GIVEN = [
    'an RMS misfit near 1', 'that is 0 where the gradients of both models are parallel', '| one run with 0.07 |',
    '| balanced with 0.03 |',
]
