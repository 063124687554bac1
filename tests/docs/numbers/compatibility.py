"""docs/compatibility.md quotes no measurement; its numbers are rules of the programs."""
from measured import says, setting

STATEMENTS = [says('magnitude is above {:.0f}', setting('src/formats/bounds_file.cpp', r'noLowerMagnitude = ([\d.]+)F'))]
GIVEN = [
    'differ from 1 m', 'acts towards 0', 'predicted amplitude is 0', 'a positivity flag above 2', 'later these cells are 0',
    '`OH gtg prod` is 0', 'logged as 2', 'Data type codes from 20 on', 'Padded sizes above 4', 'A row of count 0', 'is written as 0',
]
