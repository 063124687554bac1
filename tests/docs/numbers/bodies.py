"""Numbers of docs/bodies.md: what docs/survey.md shows, and limits of the sources."""
from measured import says, setting, shown

CORES = [shown('survey.md', r'^core of the mesh: +net ([\d.]+)', where)[0] for where in (0, 1)]
SOURCE = 'python/voxlith/bodies.py'
TRUE = setting('docs/survey.md', r'The true mass is ([\d.]+) Mt')

STATEMENTS = [
    says('the core has {:.1f} Mt ({:.1f} Mt without depth weights), and the true mass is {:.1f} Mt', *CORES, TRUE),
    says('default {:.1f})', setting(SOURCE, r'^THRESHOLD = ([\d.]+)')),
    says('above {:.1f}, {:.2f} and {:.1f} of the peak', *(setting(SOURCE, rf'^OTHER_THRESHOLDS = \({before}([\d.]+)') for before in ('', '[^,]+, ', '[^,]+, [^,]+, '))),
    says('at least {:.0f} percent of the absolute excess:', 100 * setting(SOURCE, r'^MUCH = ([\d.]+)')),
]
GIVEN = [
    'Values are counted from 0', 'the bound farther from 0', 'A bound of 0,',
    'the lesser sign has at least 10 percent of the absolute excess', 'even when the RMS misfit is 1',
]
