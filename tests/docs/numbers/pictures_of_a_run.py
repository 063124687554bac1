"""Numbers of docs/pictures-of-a-run.md: settings and definitions."""
from measured import says, setting

STATEMENTS = [says('Pixels per inch (default: {:.0f})', setting('python/voxlith/plot/files.py', r'^USUAL_DPI = (\d+)'))]
GIVEN = [
    'needs Python 3 with', 'drawn, 1 when a file is missing or damaged, 2 when the arguments are wrong',
    '1 for one component without masked data, and the root of 2', 'elevation 0', 'counts from 1', 'Both have the area 1',
]
