"""Numbers of docs/when-it-does-not-fit.md: the output that the page and other tested pages show, and limits of the sources."""
import math
import re

from measured import page_text, says, setting, shown

PAGE, GALLERY = 'when-it-does-not-fit.md', 'docs/gallery.md'
CHECKS = 'python/voxlith/checks/residuals.py'
RMS, LARGEST = shown(PAGE, r'^as it is +RMS +([\d.]+) +norm +[\d.]+ +largest ([\d.]+)')
ROWS = [(int(number), misfit) for number, misfit in re.findall(r'(?m)^ +(\d+) +([\d.]+) +[\d.]+ +[\d.]+ +[\d.]+', page_text(PAGE))]
STALLED = max(number for number, misfit in ROWS if misfit == dict(ROWS)[12]) - 12
WITH, RATIO = (setting(GALLERY, rf'(?s)\n## along_line.*?{pattern}') for pattern in (r'start, ([\d.]+) after', r'the interval / with it +([\d.]+)'))
ONCE = 1 / math.erfc(3 * setting(CHECKS, r'(?m)^_LEAST_MEAN = ([\d.]+)') / math.sqrt(2))
FILES = [shown('choosing-parameters.md', rf'^{tolerance} +compression: +([\d.]+)')[0] for tolerance in ('0.01', '0.03')]

STATEMENTS = [
    says('a good run ends at an RMS misfit of {:.1f} with densities up to {:.2f} g/cm³', RMS, LARGEST),
    says('one datum of {:.0f} is {:.0f} mGal too high', setting('docs/choosing-parameters.md', r'There are (\d+) gravity data'), *shown(PAGE, r'\$4 \+= (5) \}')),
    says('a constant offset of {:.0f} mGal makes the misfit {:.0f} times larger', setting(GALLERY, r'(?s)\nbackground value, given.*?\nmean of the fit, mGal +true +([\d.]+)'),
         setting(GALLERY, r'(?s)\n## background.*after 50.*\nRMS misfit without removal / with it +([\d.]+)[^\n]*\nbackground value, given')),
    says('(RMS misfit {:.0f} in place of {:.1f} in `examples/along_line`)', WITH * RATIO, WITH),
    says('in {} of {} iterations above', STALLED, 22 - 12),
    says('Here it is {:.0f} mGal, and the model', *shown(PAGE, r'\$4 \+= (2) \}')),
    says('[remanent body](tutorial-vector.md) it ends at an RMS misfit of {:.2f}', *shown('tutorial-vector.md', r'^ +\d+ +([\d.]+) +[\d.]+ +[\d.]+$')),
    says('once in {:.0f} million', round(ONCE * 1e-6, -2)),
    says('({:.2f} in place of {:.2f} compresses the example {:.1f} times as far)', 0.03, 0.01, FILES[1] / FILES[0]),
]
GIVEN = [
    'stays far above 1 |', 'stays far above 1, flattened out', 'misfit far below 1 |', 'standard deviations of 0, unusable',
    '(1) The head', '(2) The row', '(3) The z-scores', 'Continue the run: 1 on line 1', 'rows with 0 or 1 steps',
    '## The misfit stays far above 1', 'Divide it by 10.', 'of 0.01 or less', '## The misfit is far below 1',
    'Susceptibilities of 0 or more', 'are 0, and the largest', 'alphaE to alphaZ are near 0', 'An RMS misfit of 1 is a mean',
    'runs that end at 1,', 'deviations are 0, as with', 'a datum of 0 is left out', 'then shows 0.0000', 'deviation is near 0',
    'up to 20 products in the solver',
]
