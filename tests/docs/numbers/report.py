"""Numbers of docs/report.md: limits that the sources set."""
from measured import ROOT, says, setting

PAGE = ROOT / 'python/voxlith/report/page'
SCRIPTS = sum(path.stat().st_size for path in PAGE.glob('*.js'))

STATEMENTS = [
    says('above {:.0f} stations', setting('python/voxlith/checks/results.py', r'^MOST_CHECKED = ([\d_]+)')),
    says('At most {:.0f} arrows', setting('python/voxlith/plot/style.py', r'^MOST_VECTOR_POINTS\S* Final = ([\d_]+)')),
    says('Models of up to {:.0f} cells', setting('python/voxlith/report/contents.py', r'^_EXACT_CELLS = ([\d_]+)')),
    says('larger ones in {:.0f} steps', setting('python/voxlith/report/encoding.py', r'or of (\d+) steps')),
    says('The scripts are part of VoxLith and take about {:.0f} kB', round(SCRIPTS / 1000, -1)),
]
GIVEN = ['where 1 is the noise level', 'The 3-D view needs WebGL 2']
