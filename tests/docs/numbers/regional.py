"""Numbers of docs/regional.md: the output that the page shows, the data of the line, and bench/broad_anomaly.py."""
import re

from measured import ROOT, numbers_in, page_text, says, table

SHOWN = re.findall(r'(?m)^--(\w+) \d+  regional: (.*) mGal residual: (.*) mGal$', page_text('regional.md'))
LEFT = [abs(number) for kind, _, residual in SHOWN if kind == 'order' for number in numbers_in(residual)]
RANGES = [highest - lowest for kind, regional, _ in SHOWN if kind != 'order' for lowest, highest in [numbers_in(regional)]]
DATA = [float(line.split()[3]) for line in (ROOT / 'examples/hamersley/gravity.obs').read_text(encoding='ascii').splitlines()[1:]]
BROAD = {name: [float(row[name]) for row in table('broad-anomaly.csv')] for name in ('none', 'anomaly', 'outside')}

STATEMENTS = [
    says('The polynomials leave anomalies of {:.0f} to {:.0f} mGal', min(LEFT), max(LEFT)),
    says('a field with a range of only {:.0f} to {:.0f} mGal from data with a range of {:.0f} mGal', min(RANGES), max(RANGES),
         max(DATA) - min(DATA)),
    says('the plane was {:.2f} to {:.2f} mGal too high', min(BROAD['none']), max(BROAD['none'])),
    says('it was {:.2f} to {:.2f} mGal too high, with `--outside` {:.2f} to {:.2f} mGal', min(BROAD['anomaly']), max(BROAD['anomaly']),
         min(BROAD['outside']), max(BROAD['outside'])),
]
GIVEN = [
    'synthetic gravity at 12 by 12 stations, with an anomaly of 0.6 mGal and a standard deviation of 0.03 mGal',
    'below -2 standard deviations', 'should be near 0 at the edges', 'is not 0 at the ends of the line', 'the mean of an edge is not 0',
    'the fraction below 0', '[line 2 of the control file]',
]
