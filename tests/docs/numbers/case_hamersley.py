"""Numbers of docs/case-hamersley.md: its data and mesh, and the output that the page shows."""
import re

from measured import ROOT, page_text, says, setting

FOLDER = 'examples/hamersley'
GRAVITY, MAGNETIC = ([[float(word) for word in line.split()] for line in (ROOT / FOLDER / name).read_text(encoding='ascii').splitlines()]
                     for name in ('gravity.obs', 'magnetic.mag'))
STATIONS, STRENGTH, MAGNETIC = GRAVITY[1:], MAGNETIC[0][2], MAGNETIC[3:]
NORTHING = [station[1] / 1000 for station in STATIONS]
LISTS = [[tuple(map(float, row.split())) for row in found.split('\n')]
         for found in re.findall(r'```\n((?: +7\d{3}\.\d +-?[\d.]+ +[\d.]+\n?)+)\n```', page_text('case-hamersley.md'))]
PLANE, SECOND = LISTS[:2]
PAIRS = [(value, other) for place, value, _ in PLANE for there, other, _ in SECOND if abs(place - there) < 1.5]

STATEMENTS = [
    says('The line has {} stations', len(STATIONS)),
    says('It is {:.0f} km long', max(NORTHING) - min(NORTHING)),
    says('Standard deviations of {:.0f} mGal and {:.0f} nT are assumed', STATIONS[0][4], MAGNETIC[0][4]),
    says('a vertical inducing field of {:,.0f} nT', STRENGTH),
    says('Their values change by up to {:.0f} %', max(100 * abs(other - value) / abs(value) for value, other in PAIRS)),
    says('{:.0f} km from the end of the line', max(NORTHING) - PLANE[-1][0]),
    says('the uppermost cells, {:.0f} m thick', setting(f'{FOLDER}/mesh.msh', r'\n([\d.]+) [\d. ]+\s*\Z')),
]
GIVEN = [
    'within one cell of 1 km', 'susceptibility above 0.02 SI', 'stations are 1 km apart',
    'Within about 10 km of both ends',
]
