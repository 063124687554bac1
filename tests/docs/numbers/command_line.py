"""Numbers of docs/command-line.md, which defines keywords and options: limits that the sources and their tests set."""
import math

from measured import says, setting

PRISMS = 'tests/tools/forward/prism_test.cpp'

DEFINES = True
STATEMENTS = [
    says('up to {:.0f} times the largest width', setting('tools/forward/far_cells.h', r'farDistance = (\d+);')),
    says('The error is below {:.0e} of the norm of a row. At any distance it is below {:.0e} of the largest response',
         setting(PRISMS, r'errors.inNorm, .* (1e-12)\)'), setting(PRISMS, r'errors.inResponse, (1e-8)\)')),
    says('which is {:.1f} A/m for 50000 nT', 50000e-9 / (4e-7 * math.pi)),
    says('falls by {:.1f} in each round, down to {:.2f} of it', setting('python/voxlith/compact.py', r'(?m)^COOLING = ([\d.]+)'),
         setting('python/voxlith/compact.py', r'(?m)^LAST_SHARE = ([\d.]+)')),
    says('its amplitude can be {:.1f} times as large', math.sqrt(3)),
]
GIVEN = ['for a magnetisation of 1 SI times', 'a susceptibility of 1 SI']
