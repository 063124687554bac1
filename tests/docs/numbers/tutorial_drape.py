"""Numbers of docs/tutorial-drape.md: its survey, the true body and the output that the page shows."""
import csv
import json
import re

from measured import ROOT, page_text, says

FOLDER = ROOT / 'docs' / 'tutorial'
with (FOLDER / 'drape.csv').open(encoding='ascii') as file:
    ROWS = list(csv.DictReader(file))
BODY = json.loads((FOLDER / 'drape_bodies.json').read_text(encoding='ascii'))['bodies'][0]
CENTRE = [0.5 * sum(BODY[axis]) for axis in ('x', 'y', 'elevation')]
MOMENT = 0.06 * (BODY['x'][1] - BODY['x'][0]) * (BODY['y'][1] - BODY['y'][0]) * (BODY['elevation'][1] - BODY['elevation'][0]) * 1e-6
FOUND = re.search(r'(?m)^   1 +(\d+) +(\d+) +(\d+) ', page_text('tutorial-drape.md'))
if FOUND is None:
    raise ValueError('tutorial-drape.md: no row of the body')
ABOVE = [float(row['radar_m']) for row in ROWS]

STATEMENTS = [
    says('The sensor is {:.0f} to {:.0f} m above the ground', min(ABOVE), max(ABOVE)),
    says('its centre at {:.0f}, {:.0f} and elevation {:.0f}, and susceptibility times volume of {:.2f}', *CENTRE, MOMENT),
    says('the body is {:.0f} m too deep', CENTRE[2] - float(FOUND[3])),
]
GIVEN = ['Layers of 20 m', 'by more than 150 m', '(10⁶ m³)', '## 1.', '## 2.', '## 3.', '## 4.']
