"""Numbers of docs/tutorial-gravity.md: its survey, its true body and the output that the page shows."""
from measured import says, setting, shown, tutorial_table

MAKER = 'docs/tutorial/make_data.py'
LOWEST = min(float(row['elevation_m']) for row in tutorial_table('gravity.csv'))

STATEMENTS = [
    says('stations, {:.0f} m apart', setting(MAKER, r'irregular\((\d+), 15, 2.0, 1\)')),
    says('the lowest station is at {:.1f} m', LOWEST),
    says('The misfit ends close to {:.0f}', shown('tutorial-gravity.md', r'^ +4 +([\d.]+) ')[0]),
    says('The RMS misfit of all data is {:.0f}:', shown('tutorial-gravity.md', r'^ +4 +([\d.]+) ')[0]),
    says('its true contrast of {:.1f}', setting(MAKER, r"Body\('lens'.* ([\d.]+)\)")),
]
GIVEN = ['the top of the mesh is at 0', 'the trade-off at which the root-mean-square (RMS) misfit is 1']
