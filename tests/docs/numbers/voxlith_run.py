"""docs/voxlith-run.md quotes no measurement in its text; its options and their output are another test's."""
from measured import says, setting

STATEMENTS = [says('the first {:.0f} characters of the line', setting('src/formats/short_name.h', r'shortNameWidth = (\d+)'))]
GIVEN = [
    '| 0 | completed', '| 1 | stopped with', '| 2 | wrong use', '| 130, 138, 143 |', 'a number of iterations below 1',
    'text beyond 256 characters', 'standard deviations below 0', '`--continue`, or 1 as the first number of the control file',
    'Later runs with 1 on line 1', 'or 8 directly after',
]
