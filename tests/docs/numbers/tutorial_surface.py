"""Numbers of docs/tutorial-surface.md: its true bodies and the output that the page shows."""
from measured import says, setting, shown

MAKER = 'docs/tutorial/make_data.py'
BLOCKS = [setting(MAKER, rf"Body\('{name}'.* (-?[\d.]+)\)") for name in ('dense block', 'light basin')]

STATEMENTS = [
    says('The RMS misfit (second column of the iteration table) is {:.0f}', shown('tutorial-surface.md', r'^ +\d+ +([\d.]+) +[\d.]+ +[\d.]+ +TIME')[0]),
    says('their true density contrasts, +{:.2f} and {:.2f} g/cm³', *BLOCKS),
]
GIVEN = ['inversion style 2', '## 3. Sensitivities of style 2', 'The columns are 25 m wide']
