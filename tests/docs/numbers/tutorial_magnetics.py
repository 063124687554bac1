"""Numbers of docs/tutorial-magnetics.md: its survey, its true bodies and the output that the page shows."""
from measured import bodies_of, only, says, setting, shown, tutorial_table

ROWS = tutorial_table('magnetics.csv')
LINES = {row['line']: float(row['easting_m']) for row in ROWS}
WEST, EAST = only(bodies_of('magnetics_bodies.json'), name='dyke')['x']
SKARN = setting('docs/tutorial/make_data.py', r"^SKARN = .* ([\d.]+)\)")

STATEMENTS = [
    says('A helicopter has flown {} lines, {:.0f} m apart and {:.0f} m above ground', len(LINES),
         LINES['L20'] - LINES['L10'], float(ROWS[0]['elevation_m'])),
    says('The RMS misfit (second column) is {:.0f}', shown('tutorial-magnetics.md', r'^ +\d+ +([\d.]+) +[\d.]+ +[\d.]+ +TIME')[0]),
    says('above the true {:.2f} SI', SKARN),
    says('The dyke is {:.0f} m wide', EAST - WEST),
]
GIVEN = ['errors of about 4 nT']
