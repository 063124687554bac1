"""Numbers of docs/interrupted-runs.md: the interval that the source sets."""
from measured import says, setting

INTERVAL = setting('src/base/staged_files.h', r'publicationInterval = ([\d.]+);')

STATEMENTS = [
    says('at least every {:.0f} seconds', INTERVAL), says('by these {:.0f} seconds at most', INTERVAL), says('the last {:.0f} seconds of work', INTERVAL),
]
GIVEN = ['the first number of the control file to 1', 'missing values are 0', '(exit status 127; ']
