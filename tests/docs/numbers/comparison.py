"""Numbers of docs/comparison.md: limits that the sources set; the others are rules and magnitudes."""
import re

from measured import ROOT, says

WIDTH = re.search(r'shortNameWidth = (\d+)', (ROOT / 'src/formats/short_name.h').read_text(encoding='utf-8'))
if WIDTH is None:
    raise ValueError('src/formats/short_name.h: no shortNameWidth')

STATEMENTS = [says('names in the control file have at most {} characters', WIDTH[1])]
GIVEN = ['above about 0.1 SI']
